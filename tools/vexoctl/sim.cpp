// The commands of the simulated device. They are looked up when the program runs: on a device with
// the real platform libraries there is nothing to be found.
#include "session.h"

#include "invocation.h"

#include <kv_sim.h>

#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

namespace vexoctl
{

enum SimType : uint32_t {};
enum SimEffect : uint32_t {};

} // namespace vexoctl

namespace describe
{

template <>
const Type &typeOf<vexoctl::SimType>()
{
    static constexpr Member members[] = {{KV_SIM_SYSTEM, "system"},
                                         {KV_SIM_PDH, "pdh"},
                                         {KV_SIM_PW, "pwe"},
                                         {KV_SIM_GROUP, "ima-group"},
                                         {KV_SIM_LINK, "ima-link"}};
    static const Type type{Kind::enumeration, "object type", sizeof(uint32_t), members, {}};
    return type;
}

template <>
const Type &typeOf<vexoctl::SimEffect>()
{
    static constexpr Member members[] = {{KV_SIM_CODE, "code"},
                                         {KV_SIM_DELAY, "delay"},
                                         {KV_SIM_HANG, "hang"},
                                         {KV_SIM_GARBAGE, "garbage"}};
    static const Type type{Kind::enumeration, "effect", sizeof(uint32_t), members, {}};
    return type;
}

} // namespace describe

namespace vexoctl
{

namespace
{

Json output;

template <class Function>
Function *lookUp(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_DEFAULT, name));
}

#define SIM(function) lookUp<decltype(function)>(#function)

constexpr uint64_t SECOND = 1000000;

void report(int failed, vexoResult *result)
{
    result->rc = failed ? VEXO_RC_GENERAL : VEXO_RC_OK;
    strcpy_n(result->message, failed ? SIM(kv_sim_error)() : "", sizeof result->message);
}

void showClock()
{
    const uint64_t time = SIM(kv_sim_clock_get)();
    output = Json{{"seconds", time / SECOND},
                  {"microseconds", time % SECOND},
                  {"stopped", SIM(kv_sim_clock_stopped)() != 0}};
}

void sim_device_reset(vexoResult *result)
{
    report(SIM(kv_sim_reset)(), result);
}

void sim_clock_get(vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    showClock();
}

void sim_clock_set(uint32_t seconds, uint32_t microseconds, vexoResult *result)
{
    report(SIM(kv_sim_clock_set)(seconds * SECOND + microseconds), result);
}

void sim_clock_stop(vexoResult *result)
{
    report(SIM(kv_sim_clock_stop)(1), result);
}

void sim_clock_run(vexoResult *result)
{
    report(SIM(kv_sim_clock_stop)(0), result);
}

void sim_clock_advance(uint32_t seconds, uint32_t microseconds, vexoResult *result)
{
    report(SIM(kv_sim_clock_advance)(seconds * SECOND + microseconds), result);
}

void sim_fault_add(const char *function, SimEffect effect, uint32_t value, uint32_t object,
                   uint32_t skip, uint32_t times, vexoResult *result)
{
    if (strlen(function) >= sizeof(kvSimFault::function))
        throw UsageError(std::string{"there is no platform function '"} + function + "'");
    kvSimFault fault{};
    strcpy_n(fault.function, function, sizeof fault.function);
    fault.anyObject = object == 0;
    fault.object = object;
    fault.skip = skip;
    fault.times = times;
    fault.effect = static_cast<kvSimEffect>(effect);
    fault.value = value == 0 && effect == SimEffect{KV_SIM_CODE} ? 1 : value;
    report(SIM(kv_sim_fault_add)(&fault), result);
}

void sim_fault_clear(vexoResult *result)
{
    report(SIM(kv_sim_fault_clear)(), result);
}

void sim_fault_list(vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    Json faults = Json::array();
    kvSimFault fault;
    for (unsigned i = 0; SIM(kv_sim_fault_get)(i, &fault) == 0; ++i) {
        Json row{{"function", fault.function[0] ? fault.function : "any"}};
        if (!fault.anyObject)
            row["object"] = fault.object;
        const SimEffect effect{static_cast<uint32_t>(fault.effect)};
        row["effect"] = toJson(describe::typeOf<SimEffect>(), &effect);
        row["value"] = fault.value;
        row["skip"] = fault.skip;
        row["times"] = fault.times;
        faults.push_back(row);
    }
    output = Json{{"faults", faults}};
}

Json callOf(const kvSimCall &call, bool withRecord)
{
    Json row{{"number", call.number}, {"process", call.process}, {"function", call.function}};
    row["arguments"] = Json::array();
    for (uint32_t i = 0; i < call.argCount; ++i)
        row["arguments"].push_back(call.args[i]);
    row["code"] = call.code;
    if (withRecord && call.recordSize) {
        std::string hex;
        for (uint32_t i = 0; i < call.recordSize; ++i) {
            char digits[3];
            snprintf(digits, sizeof digits, "%02x", call.record[i]);
            hex += digits;
        }
        row["record"] = hex;
    }
    return row;
}

void sim_journal_get(uint32_t last, uint32_t records, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const uint64_t end = SIM(kv_sim_journal_last)();
    const uint64_t count = last ? last : 20;
    Json calls = Json::array();
    kvSimCall call;
    for (uint64_t n = end > count ? end - count + 1 : 1; n <= end; ++n)
        if (SIM(kv_sim_journal_get)(n, &call) == 0)
            calls.push_back(callOf(call, records != 0));
    output = Json{{"calls", calls}};
}

void sim_log_get(uint32_t last, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const uint64_t end = SIM(kv_sim_log_last)();
    const uint64_t count = last ? last : 20;
    Json records = Json::array();
    kvSimLog record;
    for (uint64_t n = end > count ? end - count + 1 : 1; n <= end; ++n)
        if (SIM(kv_sim_log_get)(n, &record) == 0)
            records.push_back(Json{{"number", record.number},
                                   {"level", record.level},
                                   {"module", record.module},
                                   {"file", record.file},
                                   {"function", record.function},
                                   {"line", record.line},
                                   {"text", record.text}});
    output = Json{{"records", records}};
}

void changeAlarms(SimType type, uint32_t number, uint32_t bits, bool raise, vexoResult *result)
{
    uint32_t active = 0;
    if (SIM(kv_sim_alarm_get)(type, number, &active) != 0)
        return report(-1, result);
    report(SIM(kv_sim_alarm_set)(type, number, raise ? active | bits : active & ~bits), result);
}

void sim_alarm_raise(SimType type, uint32_t number, uint32_t bits, vexoResult *result)
{
    changeAlarms(type, number, bits, true, result);
}

void sim_alarm_clear(SimType type, uint32_t number, uint32_t bits, vexoResult *result)
{
    changeAlarms(type, number, bits, false, result);
}

void sim_alarm_get(SimType type, uint32_t number, vexoResult *result)
{
    uint32_t bits = 0;
    report(SIM(kv_sim_alarm_get)(type, number, &bits), result);
    output = Json{{"bits", bits}};
}

void sim_interval_end(uint32_t interval, vexoResult *result)
{
    report(SIM(kv_sim_interval_end)(interval), result);
}

void sim_interval_period(uint32_t interval, uint32_t seconds, vexoResult *result)
{
    report(SIM(kv_sim_interval_period)(interval, seconds), result);
}

void sim_pm_set(SimType type, uint32_t number, uint32_t interval, uint32_t word, uint32_t value,
                vexoResult *result)
{
    report(SIM(kv_sim_pm_set)(type, number, interval, word, value), result);
}

void sim_om_set(SimType type, uint32_t number, uint32_t counter, uint32_t value, uint32_t high,
                vexoResult *result)
{
    const uint64_t whole = static_cast<uint64_t>(high) << 32 | value;
    report(SIM(kv_sim_om_set)(type, number, counter, whole), result);
}

void sim_upgrade_fail(uint32_t state, vexoResult *result)
{
    report(SIM(kv_sim_upgrade_fail)(state), result);
}

} // namespace

bool isSimulated()
{
    return SIM(kv_sim_open) != nullptr;
}

void useDevice(const std::string &file)
{
    if (!isSimulated())
        throw UsageError("--device names a simulated device, and there is none: these are the real "
                         "platform libraries");
    setenv("KV_SIM_DEVICE", file.c_str(), 1);
    if (SIM(kv_sim_open)() != 0)
        throw UsageError(SIM(kv_sim_error)());
}

const std::vector<describe::Operation> &simOperations()
{
    static const std::vector<describe::Operation> all{
        OPERATION(sim_device_reset),
        OPERATION(sim_clock_get),
        OPERATION(sim_clock_set, {"seconds"}, {.name = "microseconds", .optional = true}),
        OPERATION(sim_clock_stop),
        OPERATION(sim_clock_run),
        OPERATION(sim_clock_advance, {"seconds"}, {.name = "microseconds", .optional = true}),
        OPERATION(sim_fault_add, {.name = "function", .optional = true},
                  {.name = "effect", .optional = true}, {.name = "value", .optional = true},
                  {.name = "object", .optional = true}, {.name = "skip", .optional = true},
                  {.name = "times", .optional = true}),
        OPERATION(sim_fault_clear),
        OPERATION(sim_fault_list),
        OPERATION(sim_journal_get, {.name = "last", .optional = true},
                  {.name = "records", .optional = true}),
        OPERATION(sim_log_get, {.name = "last", .optional = true}),
        OPERATION(sim_alarm_raise, {"type"}, {"number"}, {"bits"}),
        OPERATION(sim_alarm_clear, {"type"}, {"number"}, {"bits"}),
        OPERATION(sim_alarm_get, {"type"}, {"number"}),
        OPERATION(sim_interval_end, {"interval"}),
        OPERATION(sim_interval_period, {"interval"}, {"seconds"}),
        OPERATION(sim_pm_set, {"type"}, {"number"}, {"interval"}, {"word"}, {"value"}),
        OPERATION(sim_om_set, {"type"}, {"number"}, {"counter"}, {"value"},
                  {.name = "high", .optional = true}),
        OPERATION(sim_upgrade_fail, {"state"}),
    };
    return all;
}

Json takeSimOutput()
{
    Json taken;
    std::swap(taken, output);
    return taken;
}

} // namespace vexoctl
