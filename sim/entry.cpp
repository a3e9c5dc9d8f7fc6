#include "entry.h"

#include "clock.h"
#include "growth.h"
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
    if (code_ != KV_OK)
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

uint32_t Call::object() const
{
    const Function &row = rowOf(function_);
    if (row.object < 0)
        return 0;
    const auto before = row.arguments.first(static_cast<size_t>(row.object));
    return arguments_
        .numbers[std::ranges::count(before, false, &describe::platform::Argument::isPointer)];
}

// Those that this call is about, in case that it is one of the counters.
void Call::growCounters()
{
    const Function &row = rowOf(function_);
    if (row.library != describe::platform::Library::pmom)
        return;
    const auto type = [&] {
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
            return OBJ_SYSTEM;
        }
    }();
    grow(device, type, type == OBJ_SYSTEM ? 1 : object(), device->clock.seen);
}

ArmedFault *Call::meet()
{
    const Function &row = rowOf(function_);
    for (ArmedFault &armed : device->faults) {
        if (!armed.used)
            continue;
        const kvSimFault &fault = armed.fault;
        const bool named = fault.function[0] != '\0';
        if (named && strncmp(fault.function, row.name, sizeof fault.function) != 0)
            continue;
        if (fault.object != 0 && object() != fault.object)
            continue;
        if (fault.skip > 0) {
            --device.modify(armed.fault.skip);
            continue;
        }
        // Functions without a code of their own, or whose code nobody looks at, are only met by a
        // fault that names them; one that names none counts their calls all the same.
        if (!named && failureTextOf(row) == describe::platform::FailureText::none)
            continue;
        return &armed;
    }
    return nullptr;
}

void Call::wait(const kvSimFault &fault)
{
    if (fault.effect == KV_SIM_DELAY) {
        device.release();
        sleepMs(fault.value);
        device.regain();
        return;
    }
    const uint32_t generation = device->faultGeneration;
    ++device->hanging;
    while (device && device->faultGeneration == generation) {
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
    ArmedFault *armed = device->faultCount ? meet() : nullptr;
    if (armed && armed->fault.times > 0 && --device.modify(armed->fault.times) == 0) {
        device.modify(armed->used) = 0;
        --device.modify(device->faultCount);
    }
    record_.deviceTime = seenTime(*device);
    record_.hostTime = hostTimeOfDay(begun_);
    record_.process = thisProcess();
    record_.thread = thisThread();
    record_.pending = 1;
    record_.function = static_cast<uint32_t>(function_);
    std::ranges::copy(arguments_.numbers, record_.args);
    record();
    device.commit();
    if (!armed)
        return true;
    const kvSimFault fault = armed->fault;
    switch (fault.effect) {
    case KV_SIM_CODE:
        code_ = fail(fault.value, "injected fault in %s", rowOf(function_).name);
        return code_ == KV_OK;
    case KV_SIM_GARBAGE: {
        std::minstd_rand random{fault.value + static_cast<uint32_t>(device->journal.last)};
        for (const auto &out : arguments_.out)
            for (uint8_t &byte : out)
                byte = static_cast<uint8_t>(random() >> 8);
        return false;
    }
    case KV_SIM_DELAY:
    case KV_SIM_HANG:
        wait(fault);
        if (!device)
            code_ = NO_DEVICE;
        return code_ == KV_OK;
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
