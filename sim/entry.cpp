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

#define SIM_FUNCTION_NAME(name) #name,
constexpr const char *NAMES[] = {SIM_FUNCTIONS(SIM_FUNCTION_NAME)};
#undef SIM_FUNCTION_NAME

// Functions without a code of their own, or whose code nobody looks at, are only met by a fault
// that names them; one that names none counts their calls all the same.
bool reportsCode(Function function)
{
    switch (function) {
    case Function::config_get_error_string:
    case Function::config_pwe_srv_type_to_string:
    case Function::kv_rc_to_string:
    case Function::kv_log:
    case Function::kv_log_clear:
    case Function::GetObjectCount:
    case Function::alarm_notification_sock:
    case Function::pmom_notification_sock:
    case Function::settimeofday:
    case Function::gettimeofday:
        return false;
    default:
        return true;
    }
}

// The first argument of these is something else than the number of an object.
bool hasObject(Function function)
{
    switch (function) {
    case Function::config_set_system_mode:
    case Function::config_system_tpid_set:
    case Function::config_set_psn_net_type:
    case Function::config_pwe_srv_type_to_string:
    case Function::config_clear_tpgm_status:
    case Function::GetObjectCount:
    case Function::alarm_set_status_bits:
    case Function::alarm_set_notification:
    case Function::alarm_subscribe:
    case Function::pmom_sys_om_stat_get:
    case Function::upgrade_status_get:
    case Function::kv_rc_to_string:
    case Function::kv_log:
    case Function::settimeofday:
        return false;
    default:
        return true;
    }
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

const char *nameOf(Function function)
{
    const auto index = static_cast<uint32_t>(function);
    return index < FUNCTION_COUNT ? NAMES[index] : nullptr;
}

Call::Call(Function function, std::initializer_list<uint32_t> arguments, Bytes in)
    : function_{function}, in_{in}
{
    for (uint32_t argument : arguments)
        arguments_[count_++] = argument;
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
    entry.function = function_;
    entry.process = processId();
    entry.thread = thread;
    entry.code = code_;
    entry.argCount = count_;
    memcpy(entry.args, arguments_, sizeof entry.args);
    entry.recordSize = std::min<uint32_t>(in_.size, KV_SIM_RECORD_SIZE);
    if (entry.recordSize)
        memcpy(entry.record, in_.start, entry.recordSize);
    device.modify(device->journalLast) = number;
    return number;
}

ArmedFault *Call::meet()
{
    for (ArmedFault &armed : device->faults) {
        if (!armed.used)
            continue;
        const kvSimFault &fault = armed.fault;
        const bool named = fault.function[0] != '\0';
        if (named && strncmp(fault.function, nameOf(function_), sizeof fault.function) != 0)
            continue;
        if (fault.object != 0 &&
            (count_ == 0 || !hasObject(function_) || arguments_[0] != fault.object))
            continue;
        if (fault.skip > 0) {
            --device.modify(armed.fault.skip);
            continue;
        }
        if (!named && !reportsCode(function_))
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

bool Call::enter(Bytes out)
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
        code_ = fail(fault.value, "injected fault in %s", nameOf(function_));
        return code_ == KV_OK;
    case KV_SIM_GARBAGE: {
        std::minstd_rand random{fault.value + static_cast<uint32_t>(device->journalLast)};
        auto *bytes = static_cast<uint8_t *>(const_cast<void *>(out.start));
        for (uint32_t i = 0; i < out.size; ++i)
            bytes[i] = static_cast<uint8_t>(random() >> 8);
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

kvRc Call::finish(kvRc code)
{
    code_ = code;
    return code;
}

} // namespace sim
