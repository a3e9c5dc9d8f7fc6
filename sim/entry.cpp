#include "entry.h"

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

const Function &rowOf(Index function)
{
    return describe::platform::functions()[static_cast<uint32_t>(function)];
}

uint32_t processId()
{
    return static_cast<uint32_t>(getpid());
}

uint32_t threadId()
{
    return static_cast<uint32_t>(gettid());
}

} // namespace

void sleepMs(uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds{milliseconds});
}

// The journal's entry counts as soon as the call's changes do.
Call::~Call()
{
    if (!device)
        return;
    if (code_ != KV_OK)
        device.rollback();
    JournalEntry &pending = device->journal[pending_ % JOURNAL];
    if (pending_ && pending.number == pending_ && pending.process == processId() &&
        pending.thread == threadId()) {
        device.modify(pending.code) = code_;
        device.modify(pending.thread) = 0;
    } else {
        record(0);
    }
    device.commit();
}

uint64_t Call::record(uint32_t thread)
{
    const uint64_t number = device->journalLast + 1;
    JournalEntry &entry = device->journal[number % JOURNAL];
    entry.number = number;
    entry.function = static_cast<uint32_t>(function_);
    entry.process = processId();
    entry.thread = thread;
    entry.code = code_;
    memcpy(entry.args, arguments_.numbers, sizeof entry.args);
    entry.recordSize = static_cast<uint32_t>(std::min(arguments_.in.size(), sizeof entry.record));
    if (entry.recordSize)
        memcpy(entry.record, arguments_.in.data(), entry.recordSize);
    device.modify(device->journalLast) = number;
    return number;
}

bool Call::isAbout(uint32_t object) const
{
    const Function &row = rowOf(function_);
    if (row.object < 0)
        return false;
    const auto before = row.arguments.first(static_cast<size_t>(row.object));
    return arguments_.numbers[std::ranges::count(
               before, false, &describe::platform::Argument::isPointer)] == object;
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
        if (fault.object != 0 && !isAbout(fault.object))
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
    pending_ = record(threadId());
    device.commit();
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
    tick(device);
    if (device->faultCount == 0)
        return true;
    ArmedFault *armed = meet();
    if (armed && armed->fault.times > 0 && --device.modify(armed->fault.times) == 0) {
        device.modify(armed->used) = 0;
        --device.modify(device->faultCount);
    }
    device.commit();
    if (!armed)
        return true;
    const kvSimFault fault = armed->fault;
    switch (fault.effect) {
    case KV_SIM_CODE:
        code_ = fail(fault.value, "injected fault in %s", rowOf(function_).name);
        return code_ == KV_OK;
    case KV_SIM_GARBAGE: {
        std::minstd_rand random{fault.value + static_cast<uint32_t>(device->journalLast)};
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
