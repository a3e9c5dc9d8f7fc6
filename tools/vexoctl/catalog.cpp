#include "catalog.h"

#include "invocation.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

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
    {"watch", "watch [alarms] [pm] [count=N] [for=SECONDS]",
     "alarm events and PM reports as they come",
     "Prints alarm events and PM reports as they come, one line each, until N lines have been "
     "printed, the time is over or SIGINT or SIGTERM comes. Without 'alarms' or 'pm', both. The "
     "exit status is 1 when the subscription is refused and when events were lost, which standard "
     "error tells."},
    {"follow", "follow upgrade [count=N] [for=SECONDS]", "a software load, state by state",
     "Prints each state of a software load until it is over, that is, until the state is none of "
     "2, 3 and 4. The exit status is 1 when that is 6: the load failed."},
    {"metrics", "metrics [families=NAME,...|all] [form=FORM] [pwes=N] [groups=N]",
     "counters and alarms once, for Prometheus",
     "Prints counters and alarms once, of the PDH ports 1 to 16, the pseudowires 1 to N (1024) and "
     "the IMA groups 1 to N (8), as far as there are. The form is text, as node_exporter reads it "
     "from a file, or openmetrics. PM counters are those of the running interval; what there is no "
     "data for is left out. Where something can't be read, the rest is printed and the status is "
     "1."},
    {"exit", "exit", "ends the prompt or a script",
     "Ends the prompt, or a script, with success. 'quit' does the same."},
};

std::vector<const Operation *> allOperations()
{
    std::vector<const Operation *> all;
    for (const Operation &operation : describe::operations())
        all.push_back(&operation);
    if (isSimulated())
        for (const Operation &operation : simOperations())
            all.push_back(&operation);
    return all;
}

std::string joined(const Words &words, size_t count, char separator)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i ? std::string(1, separator) : "") + words[i];
    return text;
}

const Operation *find(const Words &words, size_t count)
{
    std::string name = joined(words, count, '_');
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '-' || c == ' '; }, '_');
    const bool isSim = name.starts_with("sim_");
    for (const Operation *operation : allOperations())
        if (operation->name == name || operation->name == "vexo_cmi_" + name ||
            (isSim && operation->name + std::string{"_get"} == name))
            return operation;
    return nullptr;
}

// The operation with the longest name that the words begin with.
const Operation *longest(const Words &words, size_t &count)
{
    for (count = words.size(); count > 0; --count)
        if (const Operation *operation = find(words, count))
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

// The words that can follow in the names of operations.
Names nextWords(const Words &words)
{
    const std::string said = joined(words, words.size(), ' ') + (words.empty() ? "" : " ");
    Names next;
    for (const Operation *operation : allOperations()) {
        const std::string name = spoken(operation->name);
        if (!name.starts_with(said))
            continue;
        const std::string rest = name.substr(said.size());
        const std::string word = rest.substr(0, rest.find(' '));
        if (std::find(next.begin(), next.end(), word) == next.end())
            next.push_back(word);
    }
    return next;
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

Names commandNames()
{
    Names names;
    for (const Command &command : COMMANDS)
        names.push_back(command.name);
    return names;
}

const Operation &operationOf(const Words &words, size_t &count)
{
    const Words said = spokenPart(words);
    if (const Operation *operation = longest(said, count))
        return *operation;
    if (!said.empty() && said[0] == "sim" && !isSimulated())
        throw UsageError("there is no simulated device: these are the real platform libraries");
    const std::string text = joined(said, said.size(), ' ');
    if (const Names next = nextWords(said); !said.empty() && !next.empty()) {
        std::string expected;
        for (const std::string &word : next)
            expected += (expected.empty() ? "" : ", ") + word;
        throw UsageError("'" + text + "' is not all of a command; next can be: " + expected);
    }
    Names names = commandNames();
    for (const Operation *operation : allOperations())
        names.push_back(spoken(operation->name));
    throw UsageError("there is no command '" + text + "'" + hint(text, names) +
                     " ('list' and 'help' show all)");
}

bool isOperation(const Words &words)
{
    return find(words, words.size()) != nullptr;
}

std::vector<const Operation *> operationsUnder(const Words &words)
{
    const std::string said = joined(words, words.size(), ' ');
    std::vector<const Operation *> found;
    for (const Operation *operation : allOperations()) {
        const std::string name = spoken(operation->name);
        const bool isSim = name.starts_with("sim ");
        if ((said.empty() && !isSim) || name == said || name.starts_with(said + " "))
            found.push_back(operation);
    }
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
    if (command == "watch") {
        next = {"alarms", "pm", "count=", "for="};
    } else if (command == "follow") {
        next = before.size() == 1 ? Names{"upgrade"} : Names{"count=", "for="};
    } else if (command == "metrics") {
        next = {"families=", "form=", "pwes=", "groups="};
        for (const std::string &family : metricFamilies())
            if (begun.starts_with("families="))
                next.push_back("families=" + family);
        if (begun.starts_with("form="))
            next = {"form=text", "form=openmetrics"};
    } else if (command == "list" || command == "help") {
        next = nextWords({before.begin() + 1, before.end()});
        if (command == "help" && before.size() == 1)
            std::ranges::copy(commandNames(), std::back_inserter(next));
    } else {
        next = nextWords(before);
        if (before.empty())
            std::ranges::copy(commandNames(), std::back_inserter(next));
        const Words said = spokenPart(before);
        const Operation *operation = find(said, said.size());
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
