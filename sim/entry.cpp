#include "entry.h"

#include "clock.h"
#include "growth.h"
#include "likeness.h"
#include "notification.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include <unistd.h>

namespace sim
{

namespace
{

// Room for a text that is returned.
constexpr size_t TEXT_SIZE = 256;

const Function &rowOf(Index function)
{
    return describe::platform::functions()[static_cast<uint32_t>(function)];
}

} // namespace

void sleepMs(uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds{milliseconds});
}

// What it returned counts as soon as its changes do.
Call::~Call()
{
    if (!device)
        return;
    if (!keeps_)
        device.rollback();
    finish();
    device.commit();
}

JournalRecord &Call::record()
{
    const char *operation = *kv_sim_operation();
    const std::string_view name{operation ? operation : ""};
    size_t room = rowOf(function_).returns == describe::platform::Returns::text ? TEXT_SIZE : 0;
    for (const auto &out : arguments_.out)
        room += out.size();
    JournalRecord &added =
        addCall(*device, record_, {reinterpret_cast<const uint8_t *>(name.data()), name.size()},
                arguments_.in, room);
    record_.number = added.number;
    return added;
}

// The ring may have overtaken the call, or a reset may have emptied it.
void Call::finish()
{
    JournalRecord *mine = findCall(*device, record_.number);
    if (!mine || mine->process != record_.process || mine->thread != record_.thread ||
        !mine->pending)
        mine = &record();
    mine->code = code_;
    mine->duration = hostMonotonic() - begun_;
    if (code_ == KV_OK) {
        const auto bytes = reinterpret_cast<const uint8_t *>(text_);
        const Bytes text{bytes, text_ ? strnlen(text_, TEXT_SIZE) : 0};
        keepOut(*device, *mine, {{arguments_.out[0], arguments_.out[1], text}});
    }
    device.modify(mine->pending) = 0;
}

// None of the system, which has no number.
std::optional<uint32_t> Call::object() const
{
    const Function &row = rowOf(function_);
    if (row.object < 0)
        return {};
    const auto before = row.arguments.first(static_cast<size_t>(row.object));
    return arguments_
        .numbers[std::ranges::count(before, false, &describe::platform::Argument::isPointer)];
}

// Of the alarm calls, what they say.
std::optional<uint32_t> Call::type() const
{
    const Function &row = rowOf(function_);
    uint32_t number = 0;
    for (const auto &argument : row.arguments) {
        if (argument.type == &describe::typeOf<objType>())
            return arguments_.numbers[number];
        number += !argument.isPointer;
    }
    switch (row.objectKind) {
    case describe::platform::Object::port:
        return OBJ_PDH;
    case describe::platform::Object::pw:
        return OBJ_PWE;
    case describe::platform::Object::group:
        return OBJ_IMA_GROUP;
    case describe::platform::Object::link:
        return OBJ_IMA_LINK;
    default:
        return {};
    }
}

// Those that this call is about, in case that it is one of the counters.
void Call::growCounters()
{
    if (rowOf(function_).library == describe::platform::Library::pmom)
        grow(device, type().value_or(OBJ_SYSTEM), object().value_or(1), device->clock.seen);
}

std::optional<uint64_t> Call::argument(std::string_view name) const
{
    const std::optional<NumberPlace> place = placeOf(rowOf(function_), name);
    if (!place)
        return {};
    if (!place->inRecord)
        return arguments_.numbers[place->at];
    if (place->at + place->size > arguments_.in.size())
        return {};
    const auto as = [&](auto value) -> uint64_t {
        memcpy(&value, &arguments_.in[place->at], sizeof value);
        return value;
    };
    switch (place->size) {
    case 1:
        return as(uint8_t{});
    case 2:
        return as(uint16_t{});
    case 4:
        return as(uint32_t{});
    default:
        return as(uint64_t{});
    }
}

ArmedFault *Call::meet()
{
    const auto argument = [](const void *call, std::string_view name) {
        return static_cast<const Call *>(call)->argument(name);
    };
    return sim::meet(device, {static_cast<uint32_t>(function_), &rowOf(function_), type(), object(),
                              argument, this});
}

// It is there for those who ask about failures or take leave, and for the host's clock.
bool Call::isAway()
{
    const Function &row = rowOf(function_);
    return device->restart.until && row.returns != describe::platform::Returns::text &&
           row.library != describe::platform::Library::clock &&
           function_ != Index::alarm_process_notification &&
           function_ != Index::pmom_process_notification && function_ != Index::alarm_unsubscribe &&
           function_ != Index::pmom_unsubscribe;
}

bool Call::isTaken()
{
    const Likeness &likeness = device->likeness;
    if (!likeness.told)
        return true;
    const Function &row = rowOf(function_);
    if (const auto number = object();
        number && !hasObject(likeness, type().value_or(OBJ_SYSTEM), *number))
        return false;
    uint32_t number = 0;
    for (const auto &argument : row.arguments) {
        const void *value = argument.isPointer ? static_cast<const void *>(arguments_.in.data())
                                               : &arguments_.numbers[number++];
        if (row.kind == describe::platform::Class::writes && argument.type &&
            argument.direction == describe::Direction::in &&
            !takes(likeness, *argument.type, value))
            return false;
    }
    return true;
}

// Of the body, and of what follows from it.
void Call::answer(kvRc code)
{
    code_ = device && code == KV_OK ? settle(device) : code;
    if (device && device->likeness.told)
        code_ = codeOf(device->likeness, code_);
    if (code_ != KV_OK)
        keeps_ = false;
    if (lost_ != KV_OK)
        code_ = fail(lost_, "injected fault in %s", rowOf(function_).name);
}

void Call::wait(ArmedFault &armed)
{
    const kvSimFault fault = armed.fault;
    if (fault.effect == KV_SIM_DELAY) {
        device.release();
        sleepMs(fault.value);
        device.regain();
        return;
    }
    const uint32_t generation = device->faultGeneration;
    const uint32_t releases = armed.releases;
    ++device->hanging;
    ++armed.fault.waiting;
    while (device && device->faultGeneration == generation && armed.fault.id == fault.id &&
           armed.releases == releases) {
        device.release();
        sleepMs(1);
        device.regain();
    }
}

bool Call::enter()
{
    if (!device) {
        code_ = NO_DEVICE;
        return false;
    }
    begun_ = hostMonotonic();
    tick(device, begun_);
    if (device->rates.count)
        growCounters();
    const bool away = isAway();
    ArmedFault *armed = !away && device->faultCount ? meet() : nullptr;
    forgetLapsed(device);
    record_.deviceTime = seenTime(*device);
    record_.hostTime = hostTimeOfDay(begun_);
    record_.process = thisProcess();
    record_.thread = thisThread();
    record_.pending = 1;
    record_.function = static_cast<uint32_t>(function_);
    record_.fault = armed ? armed->fault.id : 0;
    std::ranges::copy(arguments_.numbers, record_.args);
    record();
    device.commit();
    if (away)
        code_ = fail(NO_DEVICE, "the device is restarting");
    if (!armed)
        return !away;
    const kvSimFault fault = armed->fault;
    switch (fault.effect) {
    case KV_SIM_CODE:
        code_ = fail(fault.value, "injected fault in %s", rowOf(function_).name);
        return code_ == KV_OK;
    case KV_SIM_GARBAGE: {
        uint64_t seed = mixed(fault.value, fault.met);
        std::minstd_rand random{static_cast<uint32_t>(seed ^ seed >> 32)};
        for (const auto &out : arguments_.out)
            for (uint8_t &byte : out)
                byte = static_cast<uint8_t>(random() >> 8);
        return false;
    }
    case KV_SIM_LOST:
        lost_ = fault.value;
        return true;
    case KV_SIM_NOTHING:
        // What fills something runs, and is undone.
        keeps_ = false;
        return !arguments_.out[0].empty();
    case KV_SIM_DELAY:
    case KV_SIM_HANG: {
        const uint32_t restarts = device->restarts;
        wait(*armed);
        if (!device)
            code_ = NO_DEVICE;
        else if (device->restarts != restarts)
            code_ = fail(NO_DEVICE, "the device was restarted");
        return code_ == KV_OK;
    }
    }
    return true;
}

} // namespace sim

const char **kv_sim_operation(void)
{
    // Initial-exec: the notification threads must not need the loader's lock for it.
    __attribute__((tls_model("initial-exec"))) static thread_local const char *operation;
    return &operation;
}
