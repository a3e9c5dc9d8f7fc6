#include "config_settings.h"

#include <algorithm>
#include <cstring>

namespace vexoctl::config
{

using describe::Argument;
using describe::Direction;
using describe::Operation;
using describe::Type;
using describe::Use;

namespace
{

std::string areaOf(const Operation &operation)
{
    const std::string name = spoken(operation.name);
    return name.substr(0, name.find(' '));
}

Kind emptyKindOf(const Operation &operation)
{
    const Argument *object = describe::objectOf(operation);
    const describe::Role &role = operation.role;
    return {.section = object ? areaOf(operation) : "system",
            .setting = object      ? ""
                       : role.name ? role.name
                                   : subjectOf(operation),
            .number = object ? object->name : nullptr};
}

auto find(auto &all, const Kind &kind)
{
    return std::ranges::find_if(all, [&](const Kind &other) {
        return other.section == kind.section && other.setting == kind.setting;
    });
}

Kind &kindOf(const Operation &operation, std::vector<Kind> &all)
{
    Kind kind = emptyKindOf(operation);
    const auto found = find(all, kind);
    return found == all.end() ? all.emplace_back(std::move(kind)) : *found;
}

void addSetter(const Operation &operation, Kind &kind)
{
    Setter setter{&operation, nullptr, {}};
    const auto add = [&](const std::string &name, const Type &type, uint32_t limit) {
        kind.fields[name] = {.type = &type, .limit = limit};
        setter.fields.push_back(name);
    };
    for (const Argument &argument : operation.arguments) {
        if (&argument == describe::objectOf(operation))
            continue;
        if (!isGivenRecord(argument)) {
            add(argument.name, *argument.type, argument.limit);
            continue;
        }
        setter.record = argument.type;
        for (const describe::Field &field : argument.type->fields)
            if (field.options.alone) {
                kind.action = field.name;
                kind.maker = kind.setters.size();
            } else if (!field.options.hidden) {
                add(field.name, *field.type, UNLIMITED);
            }
    }
    kind.setters.push_back(std::move(setter));
}

void addList(const Operation &operation, Kind &kind)
{
    Field &list = kind.fields[operation.role.name];
    (operation.role.use == Use::adds ? list.adds : list.removes) = &operation;
    for (const Argument &argument : operation.arguments)
        if (&argument != describe::objectOf(operation)) {
            list.type = argument.type;
            list.limit = argument.limit;
        }
}

// What the getter tells by this name, when it is a setting.
void addTold(const Operation &getter, Kind &kind)
{
    for (const Argument &argument : getter.arguments)
        if (const auto field = kind.fields.find(argument.name); field != kind.fields.end()) {
            field->second.most = argument.isArray() ? argument.count : 0;
            field->second.with = getter.role.with;
        }
}

std::vector<Kind> kindsOfRows()
{
    std::vector<Kind> all;
    for (const Operation &operation : describe::operations()) {
        const Use use = operation.role.use;
        if (use == Use::adds || use == Use::removes)
            addList(operation, kindOf(operation, all));
        else if (use == Use::setting && isGetter(operation))
            kindOf(operation, all).getters.push_back(&operation);
        else if (use == Use::setting)
            addSetter(operation, kindOf(operation, all));
    }
    for (Kind &kind : all)
        for (const Operation *getter : kind.getters)
            addTold(*getter, kind);
    const auto rank = [](const Kind &kind) {
        return std::pair{kind.number != nullptr, kind.setting};
    };
    std::ranges::stable_sort(all, {}, rank);
    return all;
}

// The names of all that a getter tells.
Names toldBy(const Operation &getter)
{
    Names names;
    for (const Argument &argument : getter.arguments)
        if (argument.direction == Direction::out && !argument.type->fields.empty() &&
            !argument.isArray())
            for (const describe::Field &field : argument.type->fields)
                names.emplace_back(field.name);
        else if (argument.direction == Direction::out)
            names.emplace_back(argument.name);
    return names;
}

// The outputs of a getter as the fields of its object.
Json fieldsOf(const Operation &getter, const Json &outputs)
{
    Json fields = Json::object();
    for (const auto &[name, value] : outputs.items()) {
        const auto argument = std::ranges::find(getter.arguments, name, &Argument::name);
        if (argument != getter.arguments.end() && value.is_object())
            fields.update(value);
        else
            fields[name] = value;
    }
    return fields;
}

constexpr const char *NO_NAME = "a value that the interface has no name for";
constexpr const char *NO_TEXT = "a text that is not UTF-8";

// Why a value can't be given back; null when it can.
const char *flawOf(const Type &type, const Json &value)
{
    if (type.kind == describe::Kind::enumeration && value.is_number()) {
        const auto number = value.get<uint32_t>();
        return number < type.first || number > type.last ? NO_NAME : nullptr;
    }
    if (type.kind != describe::Kind::text)
        return nullptr;
    try {
        static_cast<void>(value.dump());
    } catch (const Json::exception &) {
        return NO_TEXT;
    }
    return nullptr;
}

void takeOutFlaws(const Type &type, const std::string &path, Json &value, Reading &reading)
{
    if (value.is_array()) {
        // Of a list nothing is known when it isn't known whole.
        Reading elements;
        for (Json &element : value)
            takeOutFlaws(type, path, element, elements);
        if (!elements.refused.empty()) {
            reading.refused[path] = elements.refused.begin()->second;
            value = nullptr;
        }
    } else if (const char *flaw = flawOf(type, value)) {
        reading.refused[path] = flaw + (value.is_number() ? ": " + value.dump() : "");
        value = nullptr;
    } else if (value.is_object()) {
        for (const auto &[name, part] : value.items())
            takeOutFlaws(*fieldOf(type, name)->type, path + "." + name, part, reading);
    }
}

Reading readOnce(Device &device, const Key &key)
{
    const Kind &kind = *key.kind;
    Reading reading{.settings = Json::object()};
    Json &fields = *reading.settings;
    for (const Operation *getter : kind.getters) {
        const char *with = getter->role.with;
        if (with && !fields.contains(with))
            continue;
        Json outputs;
        const vexoResult result = device.call(*getter, wordsOf(key), outputs);
        const Names told = toldBy(*getter);
        const bool isFirst = getter == kind.getters.front();
        if (isFirst && result.rc != VEXO_RC_OK) {
            // What doesn't tell whether an object is there fails generally where it isn't.
            const bool isAbsent = kind.isMade() && !std::ranges::count(told, kind.action) &&
                                  result.rc == VEXO_RC_GENERAL;
            return {isAbsent ? Settings{} : Settings{Json{}}, textOf(result)};
        }
        Json all = fieldsOf(*getter, outputs);
        if (isFirst && all.value(kind.action, "") == std::string{"not-provisioned"})
            return {Settings{}};
        for (const std::string &name : told) {
            const auto field = kind.fields.find(name);
            if (field == kind.fields.end() || (result.rc == VEXO_RC_OK && !all.contains(name)))
                continue;
            if (result.rc != VEXO_RC_OK)
                reading.refused[name] = textOf(result);
            fields[name] = std::move(all[name]);
            takeOutFlaws(*field->second.type, name, fields[name], reading);
        }
    }
    return reading;
}

} // namespace

const std::vector<Kind> &kinds()
{
    static const std::vector<Kind> all = kindsOfRows();
    return all;
}

const Kind *numberedKind(const std::string &section)
{
    const auto found = std::ranges::find_if(
        kinds(), [&](const Kind &kind) { return kind.number && kind.section == section; });
    return found == kinds().end() ? nullptr : &*found;
}

bool isGetter(const Operation &operation)
{
    return std::ranges::any_of(operation.arguments, [](const Argument &argument) {
        return argument.direction == Direction::out;
    });
}

std::optional<Key> settingOf(const Operation &operation, uint32_t number)
{
    const Use use = operation.role.use;
    const auto kind = find(kinds(), emptyKindOf(operation));
    if (use == Use::action || use == Use::state || kind == kinds().end() || kind->getters.empty())
        return {};
    return Key{&*kind, number};
}

std::string nameOf(const Key &key)
{
    return key.kind->section + " " +
           (key.kind->number ? std::to_string(key.number) : key.kind->setting);
}

Names wordsOf(const Key &key)
{
    if (!key.kind->number)
        return {};
    return {std::string{key.kind->number} + "=" + std::to_string(key.number)};
}

std::string subjectOf(const Operation &operation)
{
    const std::string name = spoken(operation.name);
    const size_t begin = name.find(' ') + 1;
    return begin > name.rfind(' ') ? areaOf(operation)
                                   : name.substr(begin, name.rfind(' ') - begin);
}

vexoResult Device::call(const Operation &operation, const Names &words, Json &outputs)
{
    Invocation invocation{operation, words, {}};
    const vexoResult result = invocation.call();
    outputs = invocation.outputs(Style::json);
    return result;
}

std::string textOf(const vexoResult &failure)
{
    return "failure " + std::to_string(failure.rc) + ": " + failure.message;
}

Reading read(Device &device, const Key &key)
{
    constexpr int MOST_TIMES = 16;
    Reading reading = readOnce(device, key);
    // When everything is the same once more, there was a moment at which all of it was true. One
    // getter is asked twice, too: what it tells otherwise each time can't be put back.
    for (int i = 0; i < MOST_TIMES; ++i) {
        if (!reading.settings || reading.settings->is_null())
            return reading;
        Reading again = readOnce(device, key);
        if (again.settings == reading.settings)
            return again;
        reading = std::move(again);
    }
    return {Json{}, "it was changed each time that it was read"};
}

std::vector<std::pair<std::string, Json>> flat(const Json &fields, const std::string &prefix)
{
    std::vector<std::pair<std::string, Json>> all;
    for (const auto &[name, value] : fields.items())
        if (value.is_object())
            std::ranges::move(flat(value, prefix + name + "."), std::back_inserter(all));
        else
            all.emplace_back(prefix + name, value);
    return all;
}

} // namespace vexoctl::config
