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
    if (!hold)
        return;
    if (code_ != KV_OK)
        hold.revert();
    JournalEntry &pending = hold->journal[pending_ % JOURNAL];
    if (pending_ && pending.number == pending_ && pending.process == processId() &&
        pending.thread == threadId()) {
        hold.edit(pending.code) = code_;
        hold.edit(pending.thread) = 0;
    } else {
        record(0);
    }
    hold.keep();
}

uint64_t Call::record(uint32_t thread)
{
    const uint64_t number = hold->journalLast + 1;
    JournalEntry &entry = hold->journal[number % JOURNAL];
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
    hold.edit(hold->journalLast) = number;
    return number;
}

ArmedFault *Call::meet()
{
    for (ArmedFault &armed : hold->faults) {
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
            --hold.edit(armed.fault.skip);
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
    hold.keep();
    if (fault.effect == KV_SIM_DELAY) {
        hold.release();
        sleepMs(fault.value);
        hold.regain();
        return;
    }
    const uint32_t generation = hold->faultGeneration;
    ++hold->hanging;
    while (hold && hold->faultGeneration == generation) {
        hold.release();
        sleepMs(1);
        hold.regain();
    }
}

bool Call::enter(Bytes out)
{
    if (!hold) {
        code_ = NO_DEVICE;
        return false;
    }
    tick(hold);
    if (hold->faultCount == 0)
        return true;
    ArmedFault *armed = meet();
    if (armed && armed->fault.times > 0 && --hold.edit(armed->fault.times) == 0) {
        hold.edit(armed->used) = 0;
        --hold.edit(hold->faultCount);
    }
    hold.keep();
    if (!armed)
        return true;
    const kvSimFault fault = armed->fault;
    switch (fault.effect) {
    case KV_SIM_CODE:
        code_ = fail(fault.value, "injected fault in %s", nameOf(function_));
        return code_ == KV_OK;
    case KV_SIM_GARBAGE: {
        std::minstd_rand random{fault.value + static_cast<uint32_t>(hold->journalLast)};
        auto *bytes = static_cast<uint8_t *>(const_cast<void *>(out.start));
        for (uint32_t i = 0; i < out.size; ++i)
            bytes[i] = static_cast<uint8_t>(random() >> 8);
        return false;
    }
    case KV_SIM_DELAY:
    case KV_SIM_HANG:
        wait(fault);
        if (!hold)
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
