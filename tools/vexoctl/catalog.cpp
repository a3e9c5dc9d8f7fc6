#include "catalog.h"

#include "invocation.h"
#include "print.h"

#include <help.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>

namespace vexoctl
{

using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;
using describe::Type;

namespace
{

constexpr uint32_t UNLIMITED = 0xFFFFFFFF;
constexpr const char *APPLIED_ALWAYS = "applied always";

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

Json typeRow(const std::string &name, const Type &type, uint32_t count, uint32_t limit)
{
    Json row{{"name", name}, {"type", type.name}};
    if (type.kind == Kind::enumeration && type.first <= type.last) {
        row["first"] = type.first;
        row["last"] = type.last;
    }
    for (const describe::Member &member : type.members)
        row["values"][member.name] = member.value;
    if (limit != UNLIMITED)
        row["limit"] = limit;
    if (count > 1)
        row["count"] = count;
    return row;
}

std::string rowText(const Json &row)
{
    std::string text = row["type"];
    if (row.contains("fields"))
        text = "record";
    else if (row.contains("first"))
        text = row["first"].dump() + " to " + row["last"].dump();
    if (row.contains("limit"))
        text += row["type"] == "text" ? " up to " + row["limit"].dump()
                                      : " " + rangeOf(row["limit"].get<uint32_t>());
    if (row.contains("count"))
        text += ", " + row["count"].dump() + " of them";
    std::string separator = ": ";
    if (row.contains("values"))
        for (const auto &[name, value] : row["values"].items()) {
            text += separator + value.dump() + " " + name;
            separator = ", ";
        }
    if (row.contains("condition"))
        text += "; only with " + row["condition"].get<std::string>();
    // Without the name that the header has for such a field.
    if (row.contains("applied")) {
        const std::string applied = row["applied"];
        const size_t colon = applied.find(": ");
        text += "; " + (applied == APPLIED_ALWAYS    ? "must be given"
                        : colon != std::string::npos ? applied.substr(colon + 2)
                                                     : applied);
    }
    if (row.contains("help"))
        text += "; " + row["help"].get<std::string>();
    if (row.contains("optional"))
        text += "; may be left out";
    return text;
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

std::string usage(const Operation &operation)
{
    std::string line = spoken(operation.name);
    std::string fields;
    for (const Argument &argument : operation.arguments) {
        if (argument.direction == Direction::out)
            continue;
        const std::string name = argument.name;
        if (argument.type->kind == Kind::record)
            fields = " FIELD=... | " + name + "=@FILE";
        else
            line += argument.optional ? " [" + name + "=...]" : " " + name + "=...";
    }
    return line + fields;
}

Json manual(const Operation &operation)
{
    const auto found = describe::help.find(operation.name);
    const bool isSim = found == describe::help.end();
    std::istringstream paragraphs{isSim ? simHelp(operation.name) : std::string{found->second}};
    std::map<std::string, std::string> told; // of the arguments
    std::string help;
    for (std::string line; std::getline(paragraphs, line);) {
        const size_t colon = line.find(": ");
        const std::string name = line.substr(0, colon);
        if (std::any_of(operation.arguments.begin(), operation.arguments.end(),
                        [&](const Argument &argument) { return argument.name == name; }))
            told[name] = line.substr(colon + 2);
        else
            help += (help.empty() ? "" : "\n") + line;
    }
    Json page{{"operation", spoken(operation.name)},
              {"usage", usage(operation)},
              {"help", help},
              {"arguments", Json::array()},
              {"examples", Json::array()}};
    for (const char *example : examples())
        if (size_t count; longest(spokenPart(split(example)), count) == &operation)
            page["examples"].push_back(example);
    for (const Argument &argument : operation.arguments) {
        Json row = typeRow(argument.name, *argument.type, argument.count, argument.limit);
        row["direction"] = argument.direction == Direction::in ? "given" : "returned";
        if (told.contains(argument.name))
            row["help"] = told[argument.name];
        if (argument.optional)
            row["optional"] = true;
        for (const Leaf &leaf : leaves(*argument.type)) {
            Json field = typeRow(leaf.path, *leaf.field->type, leaf.field->count, leaf.limit);
            if (!leaf.condition.empty())
                field["condition"] = leaf.condition;
            if (isGivenRecord(argument))
                field["applied"] =
                    leaf.field->options.leftOut ? leaf.field->options.leftOut : APPLIED_ALWAYS;
            row["fields"].push_back(field);
        }
        page["arguments"].push_back(row);
    }
    return page;
}

std::string readableManual(const Json &page)
{
    constexpr size_t COLUMN = 28;
    std::string text = folded(page["usage"], 4) + "\n";
    std::istringstream paragraphs{page["help"].get<std::string>()};
    for (std::string line; std::getline(paragraphs, line);)
        text += "\n" + folded(line) + "\n";
    for (const char *direction : {"given", "returned"}) {
        std::string rows;
        for (const Json &row : page["arguments"]) {
            if (row["direction"] != direction)
                continue;
            rows += aligned("  " + row["name"].get<std::string>(), rowText(row), COLUMN);
            if (row.contains("fields"))
                for (const Json &field : row["fields"])
                    rows +=
                        aligned("    " + field["name"].get<std::string>(), rowText(field), COLUMN);
        }
        if (!rows.empty())
            text += std::string{"\n"} + direction + ":\n" + rows;
    }
    text += page["examples"].size() > 1 ? "\nexamples:\n" : "\nexample:\n";
    for (const Json &example : page["examples"])
        text += folded("  vexoctl " + example.get<std::string>(), 6) + "\n";
    return text;
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
