#include "manual.h"

#include "invocation.h"
#include "print.h"
#include "session.h"

#include <help.h>
#include <meaning.h>

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

// An argument, or a field of one.
struct Row {
    std::string name;
    const Type *type;
    uint32_t count;
    uint32_t limit;
    const Argument *argument = nullptr;
    std::string help{};
    std::string condition{};
    std::string applied{};                     // of a field that is given
    std::vector<describe::Meaning> meanings{}; // for the simulated device, where there is one
    std::vector<Row> fields{};

    bool hasRange() const { return type->kind == Kind::enumeration && type->first <= type->last; }
    std::string unit() const
    {
        return std::string{describe::unitOf(name.substr(name.rfind('.') + 1))};
    }
    bool hasLimit() const { return limit != UNLIMITED; }
};

struct Page {
    std::string help;
    std::vector<Row> arguments;
    Names examples;
};

constexpr const char *APPLIED_ALWAYS = "applied always";

Names examplesOf(const Operation &operation)
{
    const std::string arguments = operation.example;
    constexpr std::string_view BETWEEN = " | ";
    Names examples;
    for (size_t begin = 0, end = 0; end != arguments.npos; begin = end + BETWEEN.size()) {
        end = arguments.find(BETWEEN, begin);
        const std::string example = arguments.substr(begin, end - begin);
        examples.push_back(spoken(operation.name) + (example.empty() ? "" : " ") + example);
    }
    return examples;
}

// By the name of the field or the argument, or by that of the enumeration.
std::vector<describe::Meaning> meaningsOf(const std::string &name, const Type &type)
{
    if (!isSimulated())
        return {};
    const auto own = describe::meaningsOf(name);
    return own.empty() && type.kind == Kind::enumeration ? describe::meaningsOf(type.name) : own;
}

std::vector<Row> fieldsOf(const Argument &argument)
{
    std::vector<Row> rows;
    for (const Leaf &leaf : leaves(*argument.type)) {
        Row &row =
            rows.emplace_back(Row{leaf.path, leaf.field->type, leaf.field->count, leaf.limit});
        row.condition = leaf.condition;
        row.meanings =
            meaningsOf(std::string{leaf.record->name} + "." + leaf.field->name, *row.type);
        if (const char *leftOut = leaf.field->options.leftOut; isGivenRecord(argument))
            row.applied = leftOut ? leftOut : APPLIED_ALWAYS;
    }
    return rows;
}

Page pageOf(const Operation &operation)
{
    const auto found = describe::help.find(operation.name);
    std::string help{found == describe::help.end() ? "" : found->second};
    for (const SimCommand &command : simCommands())
        if (&command.operation == &operation)
            help = command.help;
    Page page{{}, {}, examplesOf(operation)};
    std::map<std::string, std::string> told; // of the arguments
    for (const Argument &argument : operation.arguments)
        told[argument.name];
    std::istringstream paragraphs{help};
    for (std::string line; std::getline(paragraphs, line);) {
        const size_t colon = line.find(": ");
        if (const auto name = told.find(line.substr(0, colon)); name != told.end())
            name->second = line.substr(colon + 2);
        else
            page.help += (page.help.empty() ? "" : "\n") + line;
    }
    for (const Argument &argument : operation.arguments)
        if (!isDocument(argument))
            page.arguments.push_back({.name = argument.name,
                                      .type = argument.type,
                                      .count = argument.count,
                                      .limit = argument.limit,
                                      .argument = &argument,
                                      .help = told[argument.name],
                                      .meanings = meaningsOf(argument.name, *argument.type),
                                      .fields = fieldsOf(argument)});
    return page;
}

Json document(const Row &row)
{
    Json json{{"name", row.name}, {"type", row.type->name}};
    if (row.hasRange())
        json.update(Json{{"first", row.type->first}, {"last", row.type->last}});
    for (const describe::Member &member : row.type->members)
        json["values"][member.name] = member.value;
    if (row.hasLimit())
        json["limit"] = row.limit;
    if (row.count > 1)
        json["count"] = row.count;
    if (row.argument)
        json["direction"] = row.argument->direction == Direction::in ? "given" : "returned";
    for (const auto &[name, text] : {std::pair{"help", row.help},
                                     {"unit", row.unit()},
                                     {"condition", row.condition},
                                     {"applied", row.applied}})
        if (!text.empty())
            json[name] = text;
    if (row.argument && row.argument->optional)
        json["optional"] = true;
    for (const auto &[of, value, meaning] : row.meanings)
        json["simulated"][std::string{value}] = meaning;
    for (const Row &field : row.fields)
        json["fields"].push_back(document(field));
    return json;
}

std::string text(const Row &row)
{
    std::string text = row.type->name;
    if (!row.fields.empty())
        text = "record";
    else if (row.hasRange())
        text = std::to_string(row.type->first) + " to " + std::to_string(row.type->last);
    if (row.hasLimit())
        text += row.type->kind == Kind::text ? " up to " + std::to_string(row.limit)
                                             : " " + rangeOf(row.limit);
    if (row.count > 1)
        text += ", " + std::to_string(row.count) + " of them";
    Names members;
    for (const describe::Member &member : row.type->members)
        members.push_back(std::to_string(member.value) + " " + member.name);
    text += (members.empty() ? "" : ": ") + joined(members, ", ");
    if (!row.unit().empty())
        text += "; in " + row.unit();
    if (!row.condition.empty())
        text += "; only with " + row.condition;
    // Without the name that the header has for such a field.
    if (const size_t colon = row.applied.find(": "); !row.applied.empty())
        text += "; " + (row.applied == APPLIED_ALWAYS ? "must be given"
                        : colon != row.applied.npos   ? row.applied.substr(colon + 2)
                                                      : row.applied);
    if (!row.help.empty())
        text += "; " + row.help;
    if (row.argument && row.argument->optional)
        text += "; may be left out";
    return text;
}

void addMeanings(const std::vector<Row> &rows, size_t column, std::string &lines)
{
    for (const Row &row : rows) {
        Names meanings;
        for (const auto &[of, value, meaning] : row.meanings)
            meanings.push_back(std::string{value} + ": " + std::string{meaning});
        // A record may tell again what the operation was given.
        const std::string line = aligned("  " + row.name, joined(meanings, "; "), column);
        if (!meanings.empty() && lines.find(line) == std::string::npos)
            lines += line;
        addMeanings(row.fields, column, lines);
    }
}

std::string callsText(const Operation &operation)
{
    const auto listed = [](const Names &names) {
        return names.empty() ? "nothing" : inWords(names, "and");
    };
    std::string lines;
    for (const describe::Case &one : describe::casesOf(operation))
        lines +=
            folded(
                "calls" + (one.when.empty() ? "" : " (" + one.when + ")") + ": " +
                    listed(one.calls) +
                    (one.callsPerLink.empty() ? "" : "; for each link " + listed(one.callsPerLink)),
                4) +
            "\n";
    return lines;
}

} // namespace

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

Json callsOf(const Operation &operation)
{
    Json cases = Json::array();
    for (const describe::Case &one : describe::casesOf(operation))
        cases.push_back(
            Json{{"when", one.when}, {"calls", one.calls}, {"callsPerLink", one.callsPerLink}});
    return cases;
}

Json manualDocument(const Operation &operation)
{
    const Page page = pageOf(operation);
    Json json{{"operation", spoken(operation.name)},
              {"usage", usage(operation)},
              {"help", page.help},
              {"arguments", Json::array()},
              {"calls", callsOf(operation)},
              {"examples", page.examples}};
    for (const Row &row : page.arguments)
        json["arguments"].push_back(document(row));
    return json;
}

std::string manualText(const Operation &operation)
{
    constexpr size_t COLUMN = 28;
    const Page page = pageOf(operation);
    std::string shown = folded(usage(operation), 4) + "\n";
    std::istringstream paragraphs{page.help};
    for (std::string line; std::getline(paragraphs, line);)
        shown += "\n" + folded(line) + "\n";
    for (const Direction direction : {Direction::in, Direction::out}) {
        std::string rows;
        for (const Row &row : page.arguments) {
            if (row.argument->direction != direction)
                continue;
            rows += aligned("  " + row.name, text(row), COLUMN);
            for (const Row &field : row.fields)
                rows += aligned("    " + field.name, text(field), COLUMN);
        }
        if (!rows.empty())
            shown += (direction == Direction::in ? "\ngiven:\n" : "\nreturned:\n") + rows;
    }
    std::string meanings;
    addMeanings(page.arguments, COLUMN, meanings);
    if (!meanings.empty())
        shown += "\non the simulated device, by its own choice:\n" + meanings;
    if (const std::string calls = callsText(operation); !calls.empty())
        shown += "\n" + calls;
    shown += page.examples.size() > 1 ? "\nexamples:\n" : "\nexample:\n";
    for (const std::string &example : page.examples)
        shown += folded("  vexoctl " + example, 6) + "\n";
    return shown;
}

} // namespace vexoctl
