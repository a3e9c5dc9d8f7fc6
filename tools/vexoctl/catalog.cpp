#include "catalog.h"

#include "invocation.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace vexoctl
{

using describe::Operation;

namespace
{

constexpr Command COMMANDS[] = {
    {"list", "list [AREA [OBJECT]]", "the operations, with what they take",
     "Shows the operations, with what they take. The areas are sys, pdh, pwe, ima and misc; 'list "
     "sim' shows the commands of the simulated device."},
    {"help", "help [COMMAND]", "what a command does and takes",
     "Shows what a command does, what it takes and what it returns. '--help', '-h' or '?' anywhere "
     "in a command does the same."},
    {"watch",
     "watch [alarms] [pm] [active] [kind=KIND,...] [object=NUMBER,...] [bits=BITS] [count=N] "
     "[for=SECONDS]",
     "alarm events and PM reports as they come",
     "Prints alarm events and PM reports as they come, one line each, until N lines have been "
     "printed, the time is over or SIGINT or SIGTERM comes. Without 'alarms' or 'pm', both. Kinds "
     "are system, pdh, pwe, ima-group and ima-link; objects are numbers and ranges, 1-8,12; of "
     "alarm events, those that change one of the bits. With 'active', also the alarms that are "
     "active when it begins, and again when events were lost; --time local or utc tells when each "
     "came. The exit status is 1 when the subscription is refused and when events were lost, which "
     "standard error tells.",
     watch},
    {"wait", "wait OPERATION [NAME=VALUE ...] FIELD=VALUE ... [for=SECONDS]",
     "until a getter tells these values",
     "Calls a getter ten times a second until the fields have these values, and shows them; for "
     "ever, or as long as 'for' says: the exit status is 4 when the time is over, and 1 when the "
     "getter fails. 'wait pdh params get port=3 operState=1 for=30'",
     await},
    {"follow", "follow upgrade [count=N] [for=SECONDS]", "a software load, state by state",
     "Prints each state of a software load until it is over, that is, until the state is none of "
     "2, 3 and 4. The exit status is 1 when that is 6: the load failed.",
     follow},
    {"metrics", "metrics [families=NAME,...|all] [form=FORM] [pwes=N] [groups=N]",
     "counters and alarms once, for Prometheus",
     "Prints counters and alarms once, of the PDH ports 1 to 16, the pseudowires 1 to N (1024) and "
     "the IMA groups 1 to N (8), as far as there are. The form is text, as node_exporter reads it "
     "from a file, or openmetrics. PM counters are those of the running interval; what there is no "
     "data for is left out. Where something can't be read, the rest is printed and the status is "
     "1.",
     metrics},
    {"config save", "config save [FILE] [--state] [ports=N] [pwes=N] [groups=N]",
     "the device's settings as a document",
     "Writes the device's settings, and which objects it has, as a JSON document to FILE or to "
     "standard output; with --state also what changes by itself. The PDH ports 1 to N (16), the "
     "pseudowires 1 to N (1024) and the IMA groups 1 to N (8) are asked. Nothing is changed. What "
     "the device refused to tell is null, its reason stands under 'refused', and the exit status "
     "is 1.",
     configSave},
    {"config diff", "config diff A [B] [ports=N] [pwes=N] [groups=N]",
     "in what two documents, or a document and the device, differ",
     "Shows a line for each field in which A (-) and B (+) differ, and for each object that only "
     "one of them has. A and B are files, or '.' for the device, which B is when it is left out. "
     "What one of them doesn't know or doesn't name is no difference. The exit status is 0 when "
     "they are the same, 1 when they differ, 2 when that can't be told.",
     configDiff},
    {"config apply",
     "config apply FILE [--dry-run] [--prune] [--keep-going] [ports=N] [pwes=N] [groups=N]",
     "leads the device to what a document says",
     "Performs the operations that lead from what the device is set to to the document. What the "
     "document doesn't name stays; pseudowires and IMA groups that it doesn't have go only with "
     "--prune. With --dry-run the operations are only printed, as a script. When one fails, takes "
     "longer than --timeout allows or is interrupted (status 5), what was done is undone, and the "
     "report says so; with --keep-going the others are performed all the same, and nothing is "
     "undone.",
     configApply},
    {"conform", "conform [--write] [--json] [--junit FILE] [--against FILE] [--saved FILE]",
     "in what a device answers otherwise than the simulated one",
     "Asks the device what follows from the description of the operations, and shows where it "
     "answers otherwise than the simulated device does, as known to this version. Nothing is "
     "changed without --write; with it the system and one port are set, and pseudowires and a "
     "group that are made for it, and all is put back. What the device was set to before is kept "
     "in the file --saved (vexoctl-conform.saved) until then; where a run was killed, the next "
     "with --write puts it back first. --json prints the page that is to be kept: all answers, "
     "versions and date; --against compares with such a page, --junit writes the questions as "
     "tests. The exit status is 0 when nothing differs, from the simulated device or, with "
     "--against, from the page, else 1.",
     conform},
    {"report", "report FILE [--page FILE] [--recording FILE] [--with-addresses]",
     "what to send to those who help, as an archive",
     "Writes an archive (tar) with the versions, the library and its symbols, a page of conform, "
     "the device's settings and states, its log where it is a simulated one, and the recording. "
     "The page is asked of the device unless one is named; the recording is vexo.trace where "
     "there is one. MAC and IPv4 addresses are blanked unless told otherwise; those in a "
     "recording only where it was made so: with 'vexotrace record --redact'.",
     report},
    {"sim create", "sim create --like FILE", "a simulated device that is like another",
     "Puts the simulated device back to its factory defaults, and has it refuse what the device "
     "of a page of conform refuses: numbers of objects, values, getters, with the same codes. "
     "What it can't be told is named. The command is part of 'sim' and so is there only with the "
     "simulated device.",
     simCreate},
    {"pwe list", "pwe list [pwes=N]", "the pseudowires that are provisioned",
     "Shows the provisioned pseudowires of 1 to N (1024), a line each; with --json an array, with "
     "--fields a table of these fields.",
     pweList, true},
    {"ima list", "ima list [groups=N]", "the IMA groups that are provisioned",
     "Shows the provisioned IMA groups of 1 to N (8), a line each; with --json an array, with "
     "--fields a table of these fields.",
     imaList, true},
    {"exit", "exit", "ends the prompt or a script",
     "Ends the prompt, or a script, with success. 'quit' does the same."},
};

std::vector<const Operation *> allOperations()
{
    std::vector<const Operation *> all;
    for (const Operation &operation : describe::operations())
        all.push_back(&operation);
    if (isSimulated())
        for (const SimCommand &command : simCommands())
            all.push_back(&command.operation);
    return all;
}

const Operation *find(const Words &words)
{
    std::string name = joined(words, "_");
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '-' || c == ' '; }, '_');
    const bool isSim = name.starts_with("sim_");
    for (const Operation *operation : allOperations())
        if (operation->name == name || operation->name == "vexo_cmi_" + name ||
            (isSim && operation->name + std::string{"_get"} == name))
            return operation;
    return nullptr;
}

// Words up to the first that is an assignment or an option.
Words spokenPart(const Words &words)
{
    const auto end = std::find_if(words.begin(), words.end(), [](const std::string &word) {
        return word.find('=') != std::string::npos || word.starts_with('-');
    });
    return {words.begin(), end};
}

// The words that can follow in the names of operations and commands.
Names nextWords(const Words &words)
{
    const std::string said = joined(words, " ") + (words.empty() ? "" : " ");
    Names names;
    for (const Operation *operation : allOperations())
        names.push_back(spoken(operation->name));
    std::ranges::copy(commandNames(), std::back_inserter(names));
    Names next;
    for (const std::string &name : names) {
        if (!name.starts_with(said))
            continue;
        const std::string rest = name.substr(said.size());
        const std::string word = rest.substr(0, rest.find(' '));
        if (std::find(next.begin(), next.end(), word) == next.end())
            next.push_back(word);
    }
    return next;
}

// What a command can be given, by its usage: what stands in brackets may be left out.
Names wordsOf(const Command &command, bool optional)
{
    std::istringstream usage{command.usage + strlen(command.name)};
    Names words;
    for (std::string word; usage >> word;) {
        const bool isOptional = word.starts_with('[');
        if (isOptional == optional)
            words.push_back(word.substr(isOptional, word.find(']') - isOptional));
        for (; isOptional && !word.ends_with(']'); usage >> word)
            ; // of "[--name FILE]"
    }
    return words;
}

// "count=" of "count=N".
Names namesOf(Names words)
{
    for (std::string &word : words)
        if (const size_t sign = word.find('='); sign != word.npos)
            word.erase(sign + 1);
    return words;
}

// Those in the folder that the path is in so far; a folder ends with '/'.
Names files(const std::string &path)
{
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    std::error_code error;
    Names names;
    for (const auto &entry :
         std::filesystem::directory_iterator(folder.empty() ? "." : folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with('.') == path.substr(folder.size()).starts_with('.'))
            names.push_back(folder + name + (entry.is_directory(error) ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

std::span<const Command> commands()
{
    return COMMANDS;
}

const Command *commandOf(const Words &words)
{
    const std::string said = joined(words, " ") + " ";
    const auto found = std::ranges::find_if(COMMANDS, [&](const Command &one) {
        return said.starts_with(one.name + std::string{" "});
    });
    return found == std::end(COMMANDS) ? nullptr : &*found;
}

Options::Options(const Words &words)
{
    const Command &command = *commandOf(words);
    const Names required = wordsOf(command, false);
    Names expected = required;
    std::ranges::copy(wordsOf(command, true), std::back_inserter(expected));
    const Names known = namesOf(expected);
    const auto refuse = [&](const std::string &given) {
        throw UsageError("expected " + inWords(expected) + given);
    };
    for (size_t i = 1; i < words.size(); ++i) {
        const bool isOption = words[i].starts_with("--");
        const std::string word = words[i].substr(isOption ? 2 : 0);
        const size_t sign = word.find('=');
        const std::string name = word.substr(0, sign);
        const bool takesValue = std::ranges::count(known, name + "=") > 0;
        if (!takesValue && (isOption || !std::ranges::count(known, word)))
            refuse(", not '" + words[i] + "'");
        if (takesValue && sign == word.npos && !isOption)
            refuse(", not '" + words[i] + "'");
        if (takesValue && sign == word.npos && i + 1 == words.size())
            throw UsageError(name + ": expected a value behind it");
        const std::string value = !takesValue         ? ""
                                  : sign == word.npos ? words[++i]
                                                      : word.substr(sign + 1);
        if (!given_.emplace(name, value).second && takesValue)
            throw UsageError(name + ": given twice");
    }
    for (const std::string &word : required)
        if (!has(word))
            refuse("");
}

std::string Options::text(const std::string &name, const std::string &otherwise) const
{
    const auto found = given_.find(name);
    return found == given_.end() ? otherwise : found->second;
}

uint32_t Options::number(const std::string &name, uint32_t otherwise) const
{
    uint32_t number = otherwise;
    if (has(name)) {
        parse(describe::typeOf<uint32_t>(), name, text(name, ""), {}, &number);
        if (number == 0)
            throw UsageError(name + ": expected a number from 1, not 0");
    }
    return number;
}

Names commandNames()
{
    Names names;
    for (const Command &command : COMMANDS)
        if (isSimulated() || !std::string_view{command.name}.starts_with("sim "))
            names.push_back(command.name);
    return names;
}

const Operation &operationOf(const Words &words, size_t &count)
{
    const Words said = spokenPart(words);
    for (count = said.size(); count > 0; --count)
        if (const Operation *operation =
                find({said.begin(), said.begin() + static_cast<ptrdiff_t>(count)}))
            return *operation;
    if (!said.empty() && said[0] == "sim" && !isSimulated())
        throw UsageError("there is no simulated device: these are the real platform libraries");
    const std::string text = joined(said, " ");
    if (const Names next = nextWords(said); !said.empty() && !next.empty())
        throw UsageError("'" + text +
                         "' is not all of a command; next can be: " + joined(next, ", "));
    Names names = commandNames();
    for (const Operation *operation : allOperations())
        names.push_back(spoken(operation->name));
    throw UsageError("there is no command '" + text + "'" + hint(text, names) +
                     " ('list' and 'help' show all)");
}

bool isOperation(const Words &words)
{
    return find(words) != nullptr;
}

std::vector<const Operation *> operationsUnder(const Words &words)
{
    const std::string said = joined(words, " ");
    std::vector<const Operation *> found = allOperations();
    std::erase_if(found, [&](const Operation *operation) {
        const std::string name = spoken(operation->name);
        return said.empty() ? name.starts_with("sim ") : !(name + " ").starts_with(said + " ");
    });
    return found;
}

Names completions(const Words &typed)
{
    Words before = typed;
    const std::string begun = before.empty() ? "" : before.back();
    if (!before.empty())
        before.pop_back();
    Names next;
    const std::string command = before.empty() ? "" : before[0];
    if (command == "wait") {
        Words rest{before.begin() + 1, before.end()};
        rest.push_back(begun);
        next = completions(rest);
        const Words said = spokenPart({before.begin() + 1, before.end()});
        if (const Operation *operation = find(said)) {
            for (const std::string &field : fieldNames(*operation))
                next.push_back(field + "=");
            next.emplace_back("for=");
        }
    } else if (const Command *own = commandOf(before); own && own->run) {
        const Names first = namesOf(wordsOf(*own, false));
        const bool isFirst = joined(before, " ") == own->name;
        next = isFirst && !first.empty() ? first : namesOf(wordsOf(*own, true));
        const auto isFile = [](const std::string &word) {
            return word == "FILE" || word == "A" || word == "B";
        };
        if (std::erase_if(next, isFile) > 0 || std::ranges::any_of(first, isFile))
            std::ranges::copy(files(begun), std::back_inserter(next));
        for (const std::string &family : metricFamilies())
            if (begun.starts_with("families="))
                next.push_back("families=" + family);
        if (begun.starts_with("kind="))
            for (const char *kind : {"system", "pdh", "pwe", "ima-group", "ima-link"})
                next.push_back(std::string{"kind="} + kind);
        if (begun.starts_with("form="))
            next = {"form=text", "form=openmetrics"};
    } else if (command == "list" || command == "help") {
        next = nextWords({before.begin() + 1, before.end()});
    } else {
        next = nextWords(before);
        const Words said = spokenPart(before);
        const Operation *operation = find(said);
        const size_t sign = begun.find('=');
        const auto names = operation ? assignable(*operation) : std::vector<Assignable>{};
        for (const auto &[name, type] : names) {
            if (sign == std::string::npos)
                next.push_back(name + "=");
            else if (name == begun.substr(0, sign) && begun.substr(sign).starts_with("=@"))
                for (const std::string &file : files(begun.substr(sign + 2)))
                    next.push_back(name + "=@" + file);
            else if (name == begun.substr(0, sign))
                for (const std::string &value : valuesOf(*type))
                    next.push_back(name + "=" + value);
        }
    }
    std::erase_if(next, [&](const std::string &word) { return !word.starts_with(begun); });
    return next;
}

} // namespace vexoctl
