#include "invocation.h"

#include "stop.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace vexoctl
{

using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;

namespace
{

constexpr std::string_view PREFIX = "vexo_cmi_";

} // namespace

std::string readWhole(const std::string &what, const std::string &file)
{
    constexpr size_t LONGEST = 1 << 20;
    std::ifstream opened;
    errno = 0;
    if (file != "-")
        opened.open(file);
    std::istream &stream = file == "-" ? std::cin : opened;
    std::string text(LONGEST, '\0');
    if (stream)
        stream.read(text.data(), LONGEST);
    if ((!stream && !stream.eof()) || isBroken(stream))
        throw UsageError(what + ": cannot read " + file + ": " + strerror(errno));
    if (!stream.eof())
        throw UsageError(what + ": " + file + " is longer than any record");
    text.resize(static_cast<size_t>(stream.gcount()));
    return text;
}

namespace
{

// A document, or the name of the file that holds one.
bool isDocumentWord(const std::string &value)
{
    return value.starts_with('@') || value.starts_with('{');
}

Json documentOf(const std::string &what, const std::string &value)
{
    return readJson(what, value.starts_with('@') ? readWhole(what, value.substr(1)) : value);
}

size_t indexOf(const Operation &operation, std::string_view name)
{
    const auto &arguments = operation.arguments;
    const auto found =
        std::find_if(arguments.begin(), arguments.end(), [&](const Argument &argument) {
            return name == argument.name && argument.direction == Direction::in;
        });
    return static_cast<size_t>(found - arguments.begin());
}

size_t givenRecord(const Operation &operation)
{
    const auto &arguments = operation.arguments;
    const auto found = std::find_if(arguments.begin(), arguments.end(), isGivenRecord);
    return static_cast<size_t>(found - arguments.begin());
}

} // namespace

const Operation *getterOf(const Operation &operation)
{
    const std::string name = operation.name;
    for (const auto &[setting, getting] : {std::pair{"_set", "_get"}, {"_init", "_info_get"}})
        if (name.ends_with(setting))
            return describe::find(name.substr(0, name.rfind('_')) + getting);
    return nullptr;
}

bool isDocument(const Argument &argument)
{
    return argument.type == &describe::Row<Json>::type;
}

bool isGivenRecord(const Argument &argument)
{
    return argument.direction == Direction::in && argument.type->kind == Kind::record;
}

std::vector<Assignable> assignable(const Operation &operation)
{
    std::vector<Assignable> all;
    for (const Argument &argument : operation.arguments) {
        if (argument.direction == Direction::out)
            continue;
        all.push_back({argument.name, argument.type});
        if (isGivenRecord(argument))
            for (const Leaf &leaf : leaves(*argument.type))
                all.push_back({leaf.path, leaf.field->type});
    }
    return all;
}

bool isBroken(const std::istream &stream)
{
    return stream.bad() || (&stream == &std::cin && ferror(stdin));
}

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

Invocation::Invocation(const Operation &operation, const Names &assignments, Leniency leniency)
    : operation_{operation}, leniency_{leniency}
{
    storage_.resize(operation.arguments.size());
    for (size_t i = 0; i < storage_.size(); ++i) {
        const Argument &argument = operation.arguments[i];
        const size_t words = (argument.type->size * argument.count + 3) / 4;
        const bool filled = argument.direction == Direction::out;
        storage_[i].words.assign(words, filled ? describe::UNTOUCHED : argument.otherwise);
    }

    std::vector<Assignment> all;
    for (const std::string &word : assignments) {
        if (isDocumentWord(word)) {
            load(documentOf("document", word));
            continue;
        }
        Assignment next = split(word);
        for (const Assignment &other : all)
            if (other.index == next.index && other.path == next.path)
                throw UsageError(word.substr(0, word.find('=')) + ": given twice");
        all.push_back(std::move(next));
    }
    std::stable_partition(all.begin(), all.end(),
                          [](const Assignment &one) { return one.path.empty(); });
    for (const Assignment &assignment : all)
        assign(assignment);
    for (size_t i = 0; i < storage_.size(); ++i) {
        const Argument &argument = operation.arguments[i];
        if (argument.direction == Direction::in && !argument.optional && !present_.contains(i))
            throw UsageError(std::string{argument.name} + " is missing" +
                             (isGivenRecord(argument)
                                  ? ": set its fields, or name a JSON document as in " +
                                        std::string{argument.name} + "=@FILE"
                                  : ""));
        if (isGivenRecord(argument))
            complete(i);
    }
}

void Invocation::complete(size_t index)
{
    const describe::Type &type = *operation_.arguments[index].type;
    Storage &storage = storage_[index];
    check(type, leniency_.stale ? named_ : given_, storage.bytes());
    if (const Names names = missing(type, given_, storage.bytes()); !names.empty())
        throw UsageError(inWords(names, "and") +
                         " must be given, too; what is left out would be set to 0");
    if (leniency_.stale) {
        // What the record no longer has, being what it has become, goes.
        const Json kept = toJson(type, storage.bytes());
        std::ranges::fill(storage.words, 0);
        fromJson(type, kept, {.members = true}, storage.bytes(), given_);
    }
}

Invocation::Assignment Invocation::split(const std::string &word) const
{
    const size_t sign = word.find('=');
    if (sign == std::string::npos || sign == 0)
        throw UsageError("expected name=value, not '" + word + "'");
    const std::string name = word.substr(0, sign);
    const std::string value = word.substr(sign + 1);
    const size_t index = indexOf(operation_, name);
    if (index < storage_.size())
        return {index, "", value};
    const size_t record = givenRecord(operation_);
    if (record == storage_.size()) {
        Names names;
        for (const Assignable &other : assignable(operation_))
            names.push_back(other.name);
        throw UsageError("there is no argument '" + name + "'" + hint(name, names));
    }
    const std::string qualifier = std::string{operation_.arguments[record].name} + ".";
    return {record, name.starts_with(qualifier) ? name.substr(qualifier.size()) : name, value};
}

void Invocation::load(const Json &document)
{
    bool isUsed = false;
    for (size_t i = 0; i < storage_.size(); ++i) {
        const Argument &argument = operation_.arguments[i];
        if (argument.direction == Direction::out)
            continue;
        const bool isRecord = isGivenRecord(argument);
        if (!isRecord && !document.contains(argument.name))
            continue;
        if (isRecord)
            loadRecord(i, document);
        else
            loadValue(i, document);
        isUsed = true;
    }
    if (!isUsed)
        throw UsageError("document: it holds nothing that this takes");
}

void Invocation::loadRecord(size_t index, const Json &document)
{
    const Argument &argument = operation_.arguments[index];
    const describe::Type &type = *argument.type;
    Json json = document;
    // What a getter printed holds the record under the name of the getter's argument.
    const Operation *getter = getterOf(operation_);
    bool printed = json.is_object() && json.contains("operation");
    if (printed) {
        const auto record = std::ranges::find_if(json, &Json::is_object);
        if (record == json.end())
            throw UsageError(std::string{argument.name} + ": the JSON document holds no record");
        json = Json(*record);
    }
    for (const Argument &told : getter ? getter->arguments : std::span<const Argument>{}) {
        if (told.direction == Direction::in || told.type->kind != Kind::record || !json.is_object())
            continue;
        if (json.contains(told.name) && json.at(told.name).is_object() && !fieldOf(type, told.name))
            json = Json(json.at(told.name));
        for (const describe::Field &field : told.type->fields)
            if (!fieldOf(type, field.name))
                json.erase(field.name);
    }
    for (const describe::Field &field : type.fields)
        if (leniency_.stale && field.options.alone && json.is_object())
            json.erase(field.name);
    fromJson(type, json, {.fields = printed, .members = leniency_.members}, storage_[index].bytes(),
             given_);
    present_.insert(index);
}

void Invocation::loadValue(size_t index, const Json &document)
{
    const Argument &argument = operation_.arguments[index];
    Json value = document;
    if (document.is_object() && document.contains(argument.name))
        value = Json(document.at(argument.name));
    set(index, value.is_string() ? value.get<std::string>() : value.dump());
}

void Invocation::set(size_t index, const std::string &value)
{
    const Argument &argument = operation_.arguments[index];
    Storage &storage = storage_[index];
    if (argument.type->kind == Kind::text) {
        checkLength(argument.name, value.size(), argument.limit);
        storage.text = value;
    } else {
        parse(*argument.type, argument.name, value, leniency_, storage.bytes());
        if (argument.type->kind == Kind::word)
            checkLimit(argument.name, storage.words[0], argument.limit);
    }
    present_.insert(index);
}

void Invocation::assign(const Assignment &assignment)
{
    const auto &[index, path, value] = assignment;
    const Argument &argument = operation_.arguments[index];
    if (!path.empty()) {
        fromJson(*argument.type, nested(path, value), {.members = leniency_.members},
                 storage_[index].bytes(), named_);
        given_.insert(path);
        present_.insert(index);
    } else if (argument.type->kind == Kind::text || !isDocumentWord(value)) {
        set(index, value);
    } else {
        const Json document = documentOf(argument.name, value);
        isGivenRecord(argument) ? loadRecord(index, document) : loadValue(index, document);
    }
}

bool Invocation::isDeletion() const
{
    for (size_t i = 0; i < storage_.size(); ++i)
        for (const describe::Field &field : operation_.arguments[i].type->fields)
            if (field.options.alone && isGivenRecord(operation_.arguments[i]) &&
                field.options.alone(storage_[i].bytes()))
                return true;
    return false;
}

uint32_t Invocation::objectNumber() const
{
    const Argument *object = describe::objectOf(operation_);
    return object ? storage_[static_cast<size_t>(object - operation_.arguments.data())].words[0]
                  : 0;
}

void Invocation::fill(uint32_t word)
{
    for (size_t i = 0; i < storage_.size(); ++i)
        if (operation_.arguments[i].direction == Direction::out)
            std::ranges::fill(storage_[i].words, word);
}

const vexoResult &Invocation::call()
{
    const auto call = [memory = memory_, &operation = operation_] {
        std::vector<void *> arguments;
        for (size_t i = 0; i < memory->storage.size(); ++i) {
            const Argument &argument = operation.arguments[i];
            Storage &storage = memory->storage[i];
            const bool isText =
                argument.type->kind == Kind::text && argument.direction == Direction::in;
            arguments.push_back(isDocument(argument) ? &storage.document
                                : isText             ? storage.text.data()
                                                     : storage.bytes());
        }
        operation.call(arguments.data(), &memory->result);
    };
    // Commands of the simulated device have an end of their own.
    std::string_view{operation_.name}.starts_with(PREFIX) ? makeCall(call) : call();
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

Json Invocation::outputs(Style style) const
{
    Json json = Json::object();
    for (size_t i = 0; i < storage_.size() && result_.rc == VEXO_RC_OK; ++i) {
        const Argument &argument = operation_.arguments[i];
        if (argument.direction == Direction::in)
            continue;
        const void *bytes = storage_[i].bytes();
        if (isDocument(argument) && storage_[i].document.is_null())
            return {};
        if (isDocument(argument))
            json.update(storage_[i].document);
        else
            json[argument.name] = argument.isArray()
                                      ? toJson(*argument.type, bytes, countOf(argument), style)
                                      : toJson(*argument.type, bytes, style);
    }
    return json;
}

} // namespace vexoctl
