#include "session.h"

#include "invocation.h"

#include <help.h>

#include <algorithm>
#include <iostream>
#include <set>

namespace vexoctl
{

using describe::Argument;
using describe::Direction;
using describe::Operation;

namespace
{

constexpr const char *COMMANDS[] = {"list", "help", "watch", "follow", "metrics", "sim"};

size_t firstAssignment(const Words &words)
{
    const auto found = std::find_if(words.begin(), words.end(), [](const std::string &word) {
        return word.find('=') != std::string::npos;
    });
    return static_cast<size_t>(found - words.begin());
}

std::string joined(const Words &words, size_t count, const std::string &prefix)
{
    std::string name = prefix;
    for (size_t i = 0; i < count; ++i)
        name += (i ? "_" : "") + words[i];
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

std::vector<std::string> spokenNames()
{
    std::vector<std::string> names;
    for (const Operation &operation : describe::operations())
        names.push_back(spoken(operation.name));
    return names;
}

const Operation &operationOf(const Words &words, size_t count)
{
    const std::string name = joined(words, count, "vexo_cmi_");
    if (const Operation *operation = describe::find(name))
        return *operation;
    std::string said;
    for (size_t i = 0; i < count; ++i)
        said += (i ? " " : "") + words[i];
    std::vector<std::string> names = spokenNames();
    names.insert(names.end(), std::begin(COMMANDS), std::end(COMMANDS));
    throw UsageError("there is no operation '" + said + "'" + hint(said, names) +
                     " ('list' shows all)");
}

const Operation &simOperationOf(const Words &words, size_t count)
{
    const std::string name = joined(words, count, "");
    std::vector<std::string> names;
    for (const Operation &operation : simOperations()) {
        if (operation.name == name)
            return operation;
        names.push_back(spoken(operation.name));
    }
    std::string said = name;
    std::replace(said.begin(), said.end(), '_', ' ');
    throw UsageError("there is no command '" + said + "'" + hint(said, names) +
                     " ('help sim' shows all)");
}

std::string usage(const Operation &operation)
{
    std::string line = spoken(operation.name);
    std::string fields;
    for (const Argument &argument : operation.arguments) {
        if (argument.direction == Direction::out)
            continue;
        const std::string name = argument.name;
        if (argument.type->kind == describe::Kind::record)
            fields = " FIELD=... | " + name + "=@FILE";
        else
            line += argument.optional ? " [" + name + "=...]" : " " + name + "=...";
    }
    return line + fields;
}

bool isScalar(const Json &json)
{
    return !json.is_structured();
}

std::string scalarText(const Json &json)
{
    if (json.is_string())
        return json.get<std::string>();
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Shown on one line: lists of numbers, and in lists also records of nothing but values.
bool isFlat(const Json &json)
{
    return json.is_array() &&
           std::all_of(json.begin(), json.end(), [](const Json &item) { return item.is_number(); });
}

bool isFlatRecord(const Json &json)
{
    return json.is_object() && std::all_of(json.begin(), json.end(), [](const Json &item) {
               return isScalar(item) || isFlat(item);
           });
}

std::string lineOf(const Json &json)
{
    std::string line;
    for (const auto &[name, item] : json.items())
        line += (json.is_object() ? " " + name : "") +
                (isScalar(item) ? " " + scalarText(item) : lineOf(item)) +
                (json.is_object() ? "," : "");
    if (json.is_object())
        line.pop_back();
    return line;
}

} // namespace

std::string readable(const Json &document, size_t indent)
{
    const std::string margin(indent, ' ');
    std::string text;
    for (const auto &[name, element] : document.items()) {
        text += margin + (document.is_array() ? "-" : name + ":");
        if (isScalar(element))
            text += " " + scalarText(element) + "\n";
        else if (isFlat(element) || (document.is_array() && isFlatRecord(element)))
            text += lineOf(element) + "\n";
        else
            text += "\n" + readable(element, indent + 2);
    }
    return text;
}

void Session::show(const Json &document)
{
    if (json_)
        std::cout << document.dump(compact_ ? -1 : 2, ' ', false, Json::error_handler_t::replace)
                  << std::endl;
    else
        std::cout << readable(document) << std::flush;
}

Status Session::operate(const Words &words)
{
    const size_t count = firstAssignment(words);
    const Operation &operation = operationOf(words, count);
    Invocation invocation{operation};
    for (size_t i = count; i < words.size(); ++i)
        invocation.set(words[i]);
    const vexoResult &result = invocation.run();
    if (json_) {
        Json document{{"operation", spoken(operation.name)},
                      {"rc", static_cast<uint32_t>(result.rc)},
                      {"message", result.message}};
        document.update(invocation.outputs());
        show(document);
    } else if (result.rc != VEXO_RC_OK) {
        std::cerr << "vexoctl: " << spoken(operation.name) << ": failure "
                  << static_cast<uint32_t>(result.rc) << ": " << result.message << std::endl;
    } else {
        const Json outputs = invocation.outputs();
        show(outputs.size() == 1 && outputs.begin()->is_object() ? *outputs.begin() : outputs);
    }
    return result.rc == VEXO_RC_OK ? SUCCESS : FAILURE;
}

Status Session::simulate(const Words &words)
{
    if (!isSimulated())
        throw UsageError("there is no simulated device: these are the real platform libraries");
    const size_t count = firstAssignment(words);
    const Operation &operation = simOperationOf(words, count);
    Invocation invocation{operation};
    for (size_t i = count; i < words.size(); ++i)
        invocation.set(words[i]);
    const vexoResult &result = invocation.run();
    Json output = takeSimOutput();
    if (json_) {
        Json document{{"operation", spoken(operation.name)},
                      {"rc", static_cast<uint32_t>(result.rc)},
                      {"message", result.message}};
        if (output.is_object())
            document.update(output);
        show(document);
    } else if (result.rc != VEXO_RC_OK) {
        std::cerr << "vexoctl: " << spoken(operation.name) << ": " << result.message << std::endl;
    } else if (!output.is_null()) {
        show(output.size() == 1 && output.begin()->is_array() ? *output.begin() : output);
    }
    return result.rc == VEXO_RC_OK ? SUCCESS : FAILURE;
}

Status Session::list(const Words &words)
{
    Json names = Json::array();
    for (const Operation &operation : describe::operations()) {
        const std::string line = usage(operation);
        if (words.size() < 2 || line.starts_with(words[1] + " "))
            names.push_back(json_ ? spoken(operation.name) : line);
    }
    if (names.empty())
        throw UsageError("there is no area '" + words[1] + "', only sys, pdh, pwe, ima and misc");
    if (json_) {
        show(Json{{"operations", names}});
        return SUCCESS;
    }
    for (const Json &line : names)
        std::cout << line.get<std::string>() << "\n";
    return SUCCESS;
}

namespace
{

constexpr const char *OVERVIEW =
    "AREA OBJECT VERB name=value ...   calls one operation, as in: pdh frame set port=3 mode=2\n"
    "list [AREA]                       the operations\n"
    "help OPERATION                    what an operation does and takes\n"
    "watch [alarms] [pm] [count=N] [for=SECONDS]   alarm events and PM reports as they come\n"
    "follow upgrade [for=SECONDS]      a software load, state by state\n"
    "metrics                           counters and alarms once, as OpenMetrics text\n"
    "sim ...                           controls the simulated device; 'help sim' tells how\n"
    "\n"
    "A number is decimal or 0x and hexadecimal. A record is set field by field (psn.param1=7)\n"
    "or from a JSON document (params=@FILE, params=@- for standard input), as --json prints it.\n";

void printField(const describe::Type &record, const std::string &path)
{
    for (const describe::Field &field : record.fields) {
        if (field.options.hidden)
            continue;
        const std::string name = path + field.name;
        if (field.type->kind == describe::Kind::record && field.count == 1) {
            printField(*field.type, name + ".");
            continue;
        }
        std::cout << "    " << name << "  (" << field.type->name;
        for (const describe::Member &member : field.type->members)
            std::cout << ", " << member.value << " " << member.name;
        std::cout << (field.count > 1 ? ", " + std::to_string(field.count) + " of them" : "")
                  << ")\n";
    }
}

void printArgument(const Argument &argument)
{
    std::cout << "  " << argument.name << "  ("
              << (argument.direction == Direction::in ? "given" : "returned") << ": "
              << argument.type->name;
    for (const describe::Member &member : argument.type->members)
        std::cout << ", " << member.value << " " << member.name;
    std::cout << (argument.isArray() ? ", up to " + std::to_string(argument.count) : "")
              << (argument.optional ? ", may be left out" : "") << ")\n";
    if (argument.type->kind == describe::Kind::record)
        printField(*argument.type, "");
}

void printOperation(const Operation &operation)
{
    std::cout << usage(operation) << "\n";
    const auto text = describe::help.find(operation.name);
    if (text != describe::help.end())
        std::cout << "\n" << text->second << "\n";
    if (!operation.arguments.empty())
        std::cout << "\n";
    for (const Argument &argument : operation.arguments)
        printArgument(argument);
}

} // namespace

Status Session::help(const Words &words)
{
    if (words.size() < 2) {
        std::cout << OVERVIEW;
    } else if (words[1] == "sim" && words.size() == 2) {
        for (const Operation &operation : simOperations())
            std::cout << usage(operation) << "\n";
    } else if (words[1] == "sim") {
        printOperation(simOperationOf({words.begin() + 1, words.end()}, words.size() - 1));
    } else {
        printOperation(operationOf({words.begin() + 1, words.end()}, words.size() - 1));
    }
    return SUCCESS;
}

Status Session::dispatch(const Words &words)
{
    if (words[0] == "list")
        return list(words);
    if (words[0] == "help")
        return help(words);
    if (words[0] == "watch")
        return watch(words, json_);
    if (words[0] == "follow")
        return follow(words, json_);
    if (words[0] == "metrics")
        return metrics(words);
    if (words[0] == "sim")
        return simulate(words);
    if (words[0] == "complete") {
        for (const std::string &word : completions({words.begin() + 1, words.end()}))
            std::cout << word << "\n";
        return SUCCESS;
    }
    return operate(words);
}

Status Session::execute(const Words &words)
{
    try {
        return dispatch(words);
    } catch (const UsageError &error) {
        if (json_)
            show(Json{{"error", error.what()}});
        else
            std::cerr << "vexoctl: " << error.what() << std::endl;
        return USAGE;
    }
}

Status Session::script(std::istream &stream)
{
    size_t number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        Status status;
        try {
            const Words words = split(line);
            status = words.empty() ? SUCCESS : execute(words);
        } catch (const UsageError &error) {
            std::cerr << "vexoctl: " << error.what() << std::endl;
            status = USAGE;
        }
        if (status != SUCCESS) {
            std::cerr << "vexoctl: stopped at line " << number << std::endl;
            return status;
        }
    }
    return SUCCESS;
}

Words split(const std::string &line)
{
    Words words;
    std::string word;
    bool open = false;
    char quote = '\0';
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote) {
            if (c == quote)
                quote = '\0';
            else
                word += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            open = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            open = true;
        } else if (c == '#' && !open) {
            break;
        } else if (isspace(static_cast<unsigned char>(c))) {
            if (open)
                words.push_back(word);
            word.clear();
            open = false;
        } else {
            word += c;
            open = true;
        }
    }
    if (quote)
        throw UsageError(std::string{"a quote is left open: "} + line);
    if (open)
        words.push_back(word);
    return words;
}

namespace
{

// The words that can follow, of operations whose spoken names begin with those that are there.
void addNextWords(const std::vector<std::string> &names, const Words &words,
                  std::set<std::string> &next)
{
    std::string said;
    for (size_t i = 0; i + 1 < words.size(); ++i)
        said += words[i] + " ";
    for (const std::string &name : names) {
        if (!name.starts_with(said))
            continue;
        const std::string rest = name.substr(said.size());
        next.insert(rest.substr(0, rest.find(' ')));
    }
}

void addArguments(const Operation &operation, std::set<std::string> &next)
{
    for (const std::string &name : Invocation::names(operation))
        next.insert(name + "=");
}

} // namespace

std::vector<std::string> completions(const Words &typed)
{
    Words words = typed.empty() ? Words{""} : typed;
    std::set<std::string> next;
    const bool helping = words[0] == "help" && words.size() > 1;
    if (words.size() == 1)
        next.insert(std::begin(COMMANDS), std::end(COMMANDS));
    if (words[0] == "list" && words.size() == 2)
        next = {"sys", "pdh", "pwe", "ima", "misc"};
    if (words[0] == "watch" && words.size() > 1)
        next = {"alarms", "pm", "count=", "for="};
    if (words[0] == "follow" && words.size() == 2)
        next = {"upgrade"};
    if (helping)
        words.erase(words.begin());
    std::vector<std::string> names = spokenNames();
    for (const Operation &operation : simOperations())
        names.push_back(spoken(operation.name));
    addNextWords(names, words, next);
    if (!helping) {
        for (size_t count = 1; count < words.size(); ++count) {
            if (const Operation *operation = describe::find(joined(words, count, "vexo_cmi_")))
                addArguments(*operation, next);
            for (const Operation &operation : simOperations())
                if (operation.name == joined(words, count, ""))
                    addArguments(operation, next);
        }
    }
    std::vector<std::string> fitting;
    for (const std::string &word : next)
        if (!word.empty() && word.starts_with(words.back()))
            fitting.push_back(word);
    return fitting;
}

} // namespace vexoctl
