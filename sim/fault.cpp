#include "fault.h"

#include "entry.h"
#include "notification.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <unistd.h>

namespace sim
{

namespace
{

using describe::Direction;
using describe::Kind;
using describe::Type;
using describe::platform::Argument;
using describe::platform::FailureText;
using describe::platform::functions;
using describe::platform::Returns;

constexpr uint32_t MILLION = 1000000;

Service serviceOf(const kvSimFault &fault)
{
    return fault.service == KV_SIM_REPORTS ? Service::pm : Service::alarm;
}

bool isNumber(const Type &type)
{
    return type.kind == Kind::word || type.kind == Kind::enumeration;
}

// Of the functions that read, one can be told to clear what it tells.
bool changesSomething(const Function &row)
{
    return row.kind != describe::platform::Class::reads || placeOf(row, "clear");
}

bool isForChanges(const kvSimFault &fault)
{
    return fault.effect == KV_SIM_LOST || fault.effect == KV_SIM_NOTHING;
}

bool canFailOrNot(const Function &row)
{
    return row.returns == Returns::code || row.returns == Returns::status;
}

bool fits(const ArmedFault &armed, const Subject &subject)
{
    const kvSimFault &fault = armed.fault;
    if (armed.about != subject.about && (!subject.row || armed.about != ANY_FUNCTION))
        return false;
    if (fault.object != 0 && subject.object != fault.object)
        return false;
    if (fault.ofType && subject.type != fault.type)
        return false;
    if (fault.process && fault.process != static_cast<uint32_t>(getpid()))
        return false;
    if (fault.operation[0]) {
        const char *operation = *kv_sim_operation();
        if (!operation || strncmp(operation, fault.operation, sizeof fault.operation) != 0)
            return false;
    }
    return std::ranges::all_of(fault.where, [&](const kvSimArgument &wanted) {
        return !wanted.name[0] || subject.argument(subject.of, wanted.name) == wanted.value;
    });
}

// A fault that names no function leaves those alone that have no code of their own, or whose code
// nobody looks at; only its `skip` counts them.
bool canMeet(const ArmedFault &armed, const Subject &subject)
{
    return armed.about != ANY_FUNCTION ||
           (failureTextOf(*subject.row) != FailureText::none &&
            (!isForChanges(armed.fault) || changesSomething(*subject.row)));
}

bool isItsTurn(ArmedFault &armed, const Subject &subject, bool met)
{
    kvSimFault &fault = armed.fault;
    if (fault.nth)
        return canMeet(armed, subject) && ++armed.seen == fault.nth;
    if (met)
        return false;
    if (fault.skip > 0) {
        --fault.skip;
        return false;
    }
    return canMeet(armed, subject) &&
           (fault.chance == 0 || mixed(fault.seed, armed.drawn++) % MILLION < fault.chance);
}

std::optional<NumberPlace> fieldOf(const Type &type, std::string_view path, uint32_t offset)
{
    if (path.empty())
        return isNumber(type) ? std::optional{NumberPlace{true, offset, type.size}} : std::nullopt;
    const auto next = [&] {
        const std::string_view step = path.substr(0, path.find('.'));
        path.remove_prefix(std::min(path.size(), step.size() + 1));
        return step;
    };
    const std::string_view name = next();
    for (const describe::Field &field : type.fields) {
        if (name != field.name)
            continue;
        uint32_t index = 0;
        if (field.count > 1) {
            const std::string_view digits = next();
            const char *end = digits.data() + digits.size();
            if (std::from_chars(digits.data(), end, index).ptr != end || digits.empty() ||
                index >= field.count)
                break;
        }
        return fieldOf(*field.type, path, offset + field.offset + index * field.type->size);
    }
    return {};
}

template <class Take>
void eachField(const Type &type, const std::string &path, Take take)
{
    if (isNumber(type))
        take(path);
    for (const describe::Field &field : type.fields)
        if (!field.options.hidden)
            eachField(*field.type, path + '.' + field.name + (field.count > 1 ? ".0" : ""), take);
}

kvRc checkNames(const kvSimFault &fault, const Function *row)
{
    for (const kvSimArgument &wanted : fault.where) {
        if (!wanted.name[0])
            continue;
        const auto has = [&](const Function &function) {
            return placeOf(function, wanted.name).has_value();
        };
        if (fault.effect >= KV_SIM_DROP ? !argumentOf(serviceOf(fault), {}, wanted.name)
            : row                       ? !has(*row)
                                        : std::ranges::none_of(functions(), has))
            return fail(BAD_VALUE, "%s has no number '%s'",
                        fault.effect >= KV_SIM_DROP ? "such a notification"
                        : row                       ? row->name
                                                    : "no platform function",
                        wanted.name);
    }
    return KV_OK;
}

kvRc check(const kvSimFault &fault, const Function *row)
{
    const bool notifies = fault.effect >= KV_SIM_DROP;
    if (fault.function[0] && !row)
        return fail(BAD_VALUE, "there is no platform function '%s'", fault.function);
    if (fault.effect > KV_SIM_HOLD)
        return fail(BAD_VALUE, "there is no effect %u", fault.effect);
    if ((fault.effect == KV_SIM_CODE || fault.effect == KV_SIM_LOST) && fault.value == KV_OK)
        return fail(BAD_VALUE, "a call can't fail with the code 0, which is success");
    if (notifies && (row || fault.process || fault.operation[0]))
        return fail(BAD_VALUE, "notifications are told by service, type, object and their numbers, "
                               "not by function, process or operation");
    if (fault.service > (notifies ? KV_SIM_REPORTS : 0))
        return fail(BAD_VALUE,
                    notifies ? "there is no service %u" : "only notifications are of a service, %u",
                    fault.service);
    if (row && isForChanges(fault) && !(canFailOrNot(*row) && changesSomething(*row)))
        return fail(BAD_VALUE, "%s changes nothing, or reports no code", row->name);
    if (fault.nth && (fault.skip || fault.times))
        return fail(BAD_VALUE, "the n-th is met once, without skip and times");
    if (fault.chance > MILLION)
        return fail(BAD_VALUE, "a chance of %u in a million", fault.chance);
    return checkNames(fault, row);
}

// What hangs and what is kept by it goes on.
kvRc release(Transaction &device, uint32_t place)
{
    ArmedFault &armed = device->faults[place];
    ++device.modify(armed.releases);
    if (armed.fault.effect == KV_SIM_HANG) {
        device.modify(device->hanging) -= std::min(device->hanging, armed.fault.waiting);
        device.modify(armed.fault.waiting) = 0;
    }
    return sendKept(device, [=](const Kept &kept) { return kept.fault == place; });
}

uint32_t placeIn(const State &state, const ArmedFault &armed)
{
    return static_cast<uint32_t>(&armed - state.faults);
}

} // namespace

uint64_t mixed(uint32_t seed, uint32_t count)
{
    uint64_t word = (static_cast<uint64_t>(seed) << 32 | count) + 0x9E3779B97F4A7C15;
    word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
    word = (word ^ word >> 27) * 0x94D049BB133111EB;
    return word ^ word >> 31;
}

std::optional<NumberPlace> placeOf(const Function &row, std::string_view name)
{
    const std::string_view first = name.substr(0, name.find('.'));
    uint32_t number = 0;
    for (const Argument &argument : row.arguments) {
        if (first == argument.name && !argument.isPointer)
            return first == name ? std::optional{NumberPlace{false, number, 0}} : std::nullopt;
        if (first == argument.name && argument.type && argument.direction == Direction::in)
            return fieldOf(*argument.type, name.substr(std::min(name.size(), first.size() + 1)), 0);
        number += !argument.isPointer;
    }
    return {};
}

std::vector<std::string> argumentsOf(const Function &row)
{
    std::vector<std::string> names;
    for (const Argument &argument : row.arguments) {
        if (!argument.isPointer)
            names.emplace_back(argument.name);
        else if (argument.type && argument.direction == Direction::in)
            eachField(*argument.type, argument.name,
                      [&](const std::string &path) { names.push_back(path); });
    }
    return names;
}

ArmedFault *meet(Transaction &device, const Subject &subject)
{
    ArmedFault *met = nullptr;
    const uint32_t count = std::min(device->faultCount, FAULTS);
    for (uint32_t i = 0; i < count; ++i) {
        ArmedFault &armed = device->faults[device->faultOrder[i] % FAULTS];
        if (!armed.armed || !fits(armed, subject) || !isItsTurn(armed, subject, met != nullptr))
            continue;
        kvSimFault &fault = armed.fault;
        if (!met) {
            met = &armed;
            ++fault.met;
        }
        if (fault.nth || (fault.times > 0 && --fault.times == 0)) {
            fault.spent = 1;
            armed.armed = 0;
            device->faultsLapsed = 1;
        }
    }
    return met;
}

void forgetLapsed(Transaction &device)
{
    if (!device->faultsLapsed)
        return;
    auto &order = device.modify(device->faultOrder);
    uint32_t &count = device.modify(device->faultCount);
    const auto lapsed = [&](uint16_t place) { return !device->faults[place % FAULTS].armed; };
    count = static_cast<uint32_t>(std::remove_if(order, order + std::min(count, FAULTS), lapsed) -
                                  order);
    device.modify(device->faultsLapsed) = 0;
}

uint32_t arm(Transaction &device, const kvSimFault &given)
{
    kvSimFault fault = given;
    const auto end = [](auto &text) { text[sizeof text - 1] = '\0'; };
    end(fault.function);
    end(fault.operation);
    for (kvSimArgument &wanted : fault.where)
        end(wanted.name);
    fault.met = fault.waiting = fault.spent = 0;
    const Function *row = describe::platform::find(fault.function);
    if (check(fault, row) != KV_OK)
        return 0;
    if (fault.effect >= KV_SIM_DROP && fault.service == 0)
        fault.service = KV_SIM_ALARMS;
    forgetLapsed(device);
    fault.id = device->faultLast + 1;
    for (uint32_t i = 0; i < FAULTS; ++i) {
        const auto place = static_cast<uint16_t>((fault.id + i) % FAULTS);
        ArmedFault &armed = device->faults[place];
        if (armed.armed || armed.fault.waiting || device->faultCount >= FAULTS)
            continue;
        const uint32_t about = fault.effect >= KV_SIM_DROP
                                   ? NOTIFICATIONS + static_cast<uint32_t>(serviceOf(fault))
                               : row ? static_cast<uint32_t>(row - functions().data())
                                     : ANY_FUNCTION;
        device.modify(armed) = {1, about, 0, 0, armed.releases, fault};
        device.modify(device->faultOrder[device->faultCount]) = place;
        ++device.modify(device->faultCount);
        return device.modify(device->faultLast) = fault.id;
    }
    fail(FULL, "there are %u faults, no more can be", FAULTS);
    return 0;
}

kvRc endAllFaults(Transaction &device)
{
    if (const kvRc code = sendKept(device, [](const Kept &) { return true; }))
        return code;
    for (ArmedFault &armed : device->faults) {
        if (armed.armed)
            device.modify(armed.armed) = 0;
        if (armed.fault.waiting)
            device.modify(armed.fault.waiting) = 0;
    }
    device.modify(device->faultCount) = 0;
    ++device.modify(device->faultGeneration);
    device.modify(device->hanging) = 0;
    return KV_OK;
}

kvRc endFault(Transaction &device, uint32_t id)
{
    ArmedFault *armed = faultOf(device, id);
    if (!armed)
        return failureCode();
    device.modify(armed->armed) = 0;
    device.modify(device->faultsLapsed) = 1;
    forgetLapsed(device);
    return release(device, placeIn(*device, *armed));
}

kvRc releaseFault(Transaction &device, uint32_t id)
{
    ArmedFault *armed = faultOf(device, id);
    return armed ? release(device, placeIn(*device, *armed)) : failureCode();
}

ArmedFault *faultOf(Transaction &device, uint32_t id)
{
    for (ArmedFault &armed : device->faults)
        if (id != 0 && armed.fault.id == id)
            return &armed;
    fail(NO_OBJECT, "there is no fault %u", id);
    return nullptr;
}

ArmedFault *armedFault(Transaction &device, unsigned index)
{
    const uint32_t count = std::min(device->faultCount, FAULTS);
    for (uint32_t i = 0; i < count; ++i) {
        ArmedFault &armed = device->faults[device->faultOrder[i] % FAULTS];
        if (armed.armed && index-- == 0)
            return &armed;
    }
    for (ArmedFault &spent : device->faults)
        if (!spent.armed && spent.fault.waiting && index-- == 0)
            return &spent;
    fail(NO_OBJECT, "there are no more faults");
    return nullptr;
}

} // namespace sim
