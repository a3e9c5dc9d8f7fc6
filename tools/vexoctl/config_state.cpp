#include "config_state.h"

#include <algorithm>

namespace vexoctl::config
{

using describe::Argument;
using describe::Direction;
using describe::Operation;
using describe::Use;

namespace
{

// Which words the operation is called with, and under which name each answer is kept: one for each
// member of an enumeration that it takes. Flags that clear are 0.
std::vector<std::pair<std::string, Names>> callsOf(const Operation &operation, const Key &key)
{
    std::vector<std::pair<std::string, Names>> calls{{"", wordsOf(key)}};
    for (const Argument &argument : operation.arguments) {
        if (argument.direction == Direction::out || &argument == describe::objectOf(operation))
            continue;
        const std::string name = std::string{argument.name} + "=";
        if (argument.type->kind != describe::Kind::enumeration) {
            for (auto &[kept, words] : calls)
                words.push_back(name + "0");
            continue;
        }
        const Names words = calls.front().second;
        calls.clear();
        for (const std::string &value : valuesOf(*argument.type)) {
            calls.emplace_back(value, words);
            calls.back().second.push_back(name + value);
        }
    }
    return calls;
}

Json answerOf(Device &device, const Operation &operation, const Names &words)
{
    Json outputs;
    const vexoResult result = device.call(operation, words, outputs);
    if (result.rc != VEXO_RC_OK)
        return {{"refused", textOf(result)}};
    return outputs.size() == 1 && outputs.front().is_object() ? Json(outputs.front()) : outputs;
}

// Takes what isn't a setting.
void addStates(Device &device, const Operation &operation, const Key &key, Json &states)
{
    for (const auto &[kept, words] : callsOf(operation, key)) {
        Json answer = answerOf(device, operation, words);
        for (const auto &[name, field] : key.kind->fields)
            if (operation.role.use == Use::setting)
                answer.erase(name);
        for (const Argument &argument : operation.arguments)
            if (argument.countedBy)
                answer.erase(argument.countedBy);
        if (answer.empty())
            continue;
        Json &place = states[subjectOf(operation)];
        (kept.empty() ? place : place[kept]) = std::move(answer);
    }
}

// Alarms are asked for by the type of the object, and links have them, too.
void addAlarms(Device &device, const Key &key, const Json &settings, Json &states)
{
    static const Operation &operation = *describe::find("vexo_cmi_ima_alarms_get");
    const auto alarms = [&](const std::string &type, const std::string &number) {
        return answerOf(device, operation, {"imaType=" + type, "number=" + number});
    };
    states["alarms"]["group"] = alarms("group", std::to_string(key.number));
    for (const Json &link : settings.value("linkIds", Json::array()))
        states["alarms"]["links"][link.dump()] = alarms("link", link.dump());
}

bool tellsState(const Operation &operation)
{
    return (operation.role.use == Use::state || operation.role.use == Use::setting) &&
           std::ranges::any_of(operation.arguments, [](const Argument &argument) {
               return argument.direction == Direction::out;
           });
}

} // namespace

Json stateOf(Device &device, const std::map<Key, Settings> &objects)
{
    static const Kind SYSTEM{.section = "system", .setting = ""};
    Json all = Json::object();
    for (const Operation &operation : describe::operations()) {
        const bool isAlarm = std::ranges::any_of(operation.arguments, [](const Argument &argument) {
            return std::string_view{argument.name} == "imaType";
        });
        if (!tellsState(operation) || describe::objectOf(operation) || isAlarm)
            continue;
        // Settings of the system are a kind each.
        const auto kind = std::ranges::find_if(kinds(), [&](const Kind &one) {
            return std::ranges::count(one.getters, &operation) > 0;
        });
        addStates(device, operation, {kind == kinds().end() ? &SYSTEM : &*kind}, all["system"]);
    }
    for (const auto &[key, settings] : objects) {
        if (!key.kind->number || !settings || settings->is_null())
            continue;
        Json &states = all[key.kind->section][std::to_string(key.number)];
        for (const Operation &operation : describe::operations()) {
            const Argument *object = describe::objectOf(operation);
            const char *with = operation.role.with;
            if (object && std::string_view{object->name} == key.kind->number &&
                tellsState(operation) && (!with || settings->contains(with)))
                addStates(device, operation, key, states);
        }
        if (key.kind->section == "ima")
            addAlarms(device, key, *settings, states);
    }
    return all;
}

} // namespace vexoctl::config
