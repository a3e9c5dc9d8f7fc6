#include "invocation.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace vexoctl
{

using describe::Argument;
using describe::Direction;
using describe::Kind;

namespace
{

constexpr std::string_view PREFIX = "vexo_cmi_";

bool isGivenRecord(const Argument &argument)
{
    return argument.direction == Direction::in && argument.type->kind == Kind::record;
}

Json readDocument(const std::string &what, const std::string &file)
{
    std::ifstream stream;
    if (file != "-") {
        stream.open(file);
        if (!stream)
            throw UsageError(what + ": cannot read " + file + ": " + strerror(errno));
    }
    std::istream &from = file == "-" ? std::cin : stream;
    const std::string text{std::istreambuf_iterator<char>{from}, {}};
    try {
        return Json::parse(text);
    } catch (const Json::exception &error) {
        throw UsageError(what + ": " + (file == "-" ? "standard input" : file) +
                         " is not a JSON document: " + error.what());
    }
}

} // namespace

std::string spoken(const std::string &operation)
{
    std::string words = operation;
    if (words.starts_with(PREFIX))
        words.erase(0, PREFIX.size());
    const size_t area = words.find('_');
    const size_t verb = words.rfind('_');
    words[area] = ' ';
    words[verb] = ' ';
    return words;
}

Invocation::Invocation(const describe::Operation &operation)
    : operation_{operation}, storage_(operation.arguments.size())
{
    for (size_t i = 0; i < storage_.size(); ++i) {
        const Argument &argument = operation.arguments[i];
        const size_t words = (argument.type->size * argument.count + 3) / 4;
        const bool filled = argument.direction == Direction::out;
        storage_[i].words.assign(words, filled ? describe::UNTOUCHED : 0);
    }
}

std::vector<std::string> Invocation::names(const describe::Operation &operation)
{
    std::vector<std::string> names;
    for (const Argument &argument : operation.arguments) {
        if (argument.direction == Direction::out)
            continue;
        names.emplace_back(argument.name);
        if (isGivenRecord(argument))
            for (const std::string &path : fieldPaths(*argument.type))
                names.push_back(path);
    }
    return names;
}

size_t Invocation::indexOf(std::string_view name) const
{
    size_t index = 0;
    for (const Argument &argument : operation_.arguments) {
        if (name == argument.name && argument.direction == Direction::in)
            break;
        ++index;
    }
    return index;
}

void Invocation::load(size_t index, const std::string &file)
{
    const Argument &argument = operation_.arguments[index];
    Json json = readDocument(argument.name, file);
    // What a getter printed holds the record under the name of the getter's argument.
    const bool printed = json.is_object() && json.contains("operation");
    if (printed) {
        const auto record = std::find_if(json.begin(), json.end(),
                                         [](const Json &element) { return element.is_object(); });
        if (record == json.end())
            throw UsageError(std::string{argument.name} + ": " + file + " holds no record");
        json = Json(*record);
    }
    fromJson(*argument.type, argument.name, json, printed, storage_[index].bytes());
}

void Invocation::setArgument(size_t index, const std::string &value)
{
    const Argument &argument = operation_.arguments[index];
    if (argument.type->kind == Kind::record && value.starts_with('@')) {
        load(index, value.substr(1));
    } else if (argument.type->kind == Kind::text) {
        if (value.size() > argument.limit)
            throw UsageError(std::string{argument.name} + ": " + std::to_string(value.size()) +
                             " characters, at most " + std::to_string(argument.limit) +
                             " are used");
        storage_[index].text = value;
    } else {
        parse(*argument.type, argument.name, value, storage_[index].bytes());
        if (argument.type->kind == Kind::word && storage_[index].words[0] > argument.limit)
            throw UsageError(std::string{argument.name} + ": expected a number from 0 to " +
                             std::to_string(argument.limit) + ", not " + value);
    }
}

void Invocation::set(const std::string &assignment)
{
    const size_t sign = assignment.find('=');
    if (sign == std::string::npos || sign == 0)
        throw UsageError("expected name=value, not '" + assignment + "'");
    std::string name = assignment.substr(0, sign);
    const std::string value = assignment.substr(sign + 1);
    const size_t index = indexOf(name);
    if (index < storage_.size()) {
        setArgument(index, value);
        given_.insert(name);
        return;
    }
    const auto record =
        std::find_if(operation_.arguments.begin(), operation_.arguments.end(), isGivenRecord);
    if (record == operation_.arguments.end())
        throw UsageError(spoken(operation_.name) + " has no argument '" + name + "'" +
                         hint(name, names(operation_)));
    given_.insert(record->name);
    const std::string qualifier = std::string{record->name} + ".";
    if (name.starts_with(qualifier))
        name.erase(0, qualifier.size());
    const auto position = static_cast<size_t>(record - operation_.arguments.begin());
    setField(*record->type, name, value, storage_[position].bytes());
}

const vexoResult &Invocation::run()
{
    std::vector<void *> arguments;
    for (size_t i = 0; i < storage_.size(); ++i) {
        const Argument &argument = operation_.arguments[i];
        if (argument.direction == Direction::in && !argument.optional &&
            !given_.contains(argument.name))
            throw UsageError(spoken(operation_.name) + ": " + argument.name + " is missing");
        if (isGivenRecord(argument))
            checkLimits(*argument.type, "", storage_[i].bytes());
        const bool isText =
            argument.type->kind == Kind::text && argument.direction == Direction::in;
        arguments.push_back(isText ? storage_[i].text.data() : storage_[i].bytes());
    }
    operation_.call(arguments.data(), &result_);
    return result_;
}

uint32_t Invocation::countOf(const Argument &argument) const
{
    for (size_t i = 0; i < storage_.size(); ++i)
        if (argument.countedBy &&
            operation_.arguments[i].name == std::string_view{argument.countedBy})
            return std::min(storage_[i].words[0], argument.count);
    return argument.count;
}

Json Invocation::outputs() const
{
    Json json = Json::object();
    for (size_t i = 0; i < storage_.size() && result_.rc == VEXO_RC_OK; ++i) {
        const Argument &argument = operation_.arguments[i];
        if (argument.direction == Direction::in)
            continue;
        const void *bytes = storage_[i].bytes();
        json[argument.name] = argument.isArray() ? toJson(*argument.type, bytes, countOf(argument))
                                                 : toJson(*argument.type, bytes);
    }
    return json;
}

} // namespace vexoctl
