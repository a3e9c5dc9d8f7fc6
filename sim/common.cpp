// libkv_common: log and return-code texts.
#include "bodies.h"
#include "entry.h"
#include "objects.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace sim;

namespace
{

constexpr int LOG_DEBUG = 7;

} // namespace

const char *body::kv_rc_to_string(Transaction &, kvRc code)
{
    static constexpr struct {
        kvRc code;
        const char *text;
    } texts[] = {
        {KV_OK, "success"},
        {KV_FAILURE, "general failure"},
        {BAD_VALUE, "bad value"},
        {NO_OBJECT, "no such object"},
        {8, "failure 8"},
        {16, "failure 16"},
        {32, "failure 32"},
        {64, "failure 64"},
        {FULL, "no room left"},
        {EXISTS, "exists already"},
        {WRONG_STATE, "not possible in this state"},
        {1024, "failure 1024"},
        {2048, "failure 2048"},
        {KV_NO_COUNTERS, "no counters"},
        {KV_NOT_PROVISIONED, "not provisioned"},
    };
    for (const auto &known : texts)
        if (known.code == code)
            return known.text;
    return "unknown failure";
}

int kv_log(int level, int module, const char *file, const char *function, int line,
           const char *format, ...)
{
    kvSimLog record{};
    record.level = level;
    record.module = module;
    record.line = line;
    snprintf(record.file, sizeof record.file, "%s", file);
    snprintf(record.function, sizeof record.function, "%s", function);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(record.text, sizeof record.text, format, arguments);
    va_end(arguments);

    const auto number = [](int argument) { return static_cast<uint32_t>(argument); };
    const auto *text = reinterpret_cast<const uint8_t *>(record.text);
    Call call{Index::kv_log, number(level), number(module), number(line),
              std::span{text, strlen(record.text)}};
    return static_cast<int>(call.run([&](Transaction &device) {
        record.number = device->logLast + 1;
        device->log[record.number % LOG] = record;
        device.modify(device->logLast) = record.number;
        // The log counts as full when it has been filled once with records that are not for
        // debugging.
        if (level >= LOG_DEBUG || ++device.modify(device->logCounted) != LOG)
            return KV_OK;
        uint32_t &alarms = device->system.alarms;
        return setAlarms(device, OBJ_SYSTEM, 1, alarms, alarms | SYSTEM_LOG_FULL);
    }));
}

kvRc body::kv_log_clear(Transaction &device)
{
    device.modify(device->logCleared) = device->logLast;
    store(device, device->logCounted, 0);
    uint32_t &alarms = device->system.alarms;
    return device->behaviours.logAlarm
               ? setAlarms(device, OBJ_SYSTEM, 1, alarms, alarms & ~SYSTEM_LOG_FULL)
               : KV_OK;
}
