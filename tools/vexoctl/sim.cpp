// The commands of the simulated device. They are looked up when the program runs: on a device with
// the real platform libraries there is nothing to be found.
#include "session.h"

#include "counters.h"
#include "invocation.h"

#include <kv_sim.h>
#include <meaning.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

namespace vexoctl
{

enum SimType : uint32_t {};
enum SimEffect : uint32_t {};

} // namespace vexoctl

namespace describe
{

// All have a name: there is no range of others.
#define NAMED(T, title, ...)                                                                       \
    template <>                                                                                    \
    struct Row<T> {                                                                                \
        static constexpr Member members[] = {__VA_ARGS__};                                         \
        static constexpr Type type{Kind::enumeration, title, sizeof(T), members, {}, 1, 0};        \
    };

NAMED(vexoctl::SimType, "object type", {KV_SIM_SYSTEM, "system"}, {KV_SIM_PDH, "pdh"},
      {KV_SIM_PW, "pwe"}, {KV_SIM_GROUP, "ima-group"}, {KV_SIM_LINK, "ima-link"})
NAMED(vexoctl::SimEffect, "effect", {KV_SIM_CODE, "code"}, {KV_SIM_DELAY, "delay"},
      {KV_SIM_HANG, "hang"}, {KV_SIM_GARBAGE, "garbage"})

} // namespace describe

namespace vexoctl
{

using describe::Operation;

namespace
{

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

void sim_reset(vexoResult *result)
{
    report(SIM(kv_sim_reset)(), result);
}

void sim_clock(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const uint64_t time = SIM(kv_sim_clock_get)();
    *shown = Json{{"seconds", time / SECOND},
                  {"microseconds", time % SECOND},
                  {"stopped", SIM(kv_sim_clock_stopped)() != 0}};
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

Names functionNames()
{
    Names names;
    for (unsigned i = 0; const char *name = SIM(kv_sim_function)(i); ++i)
        names.emplace_back(name);
    return names;
}

void sim_functions(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    *shown = Json{{"functions", functionNames()}};
}

void sim_fault_add(const char *function, SimEffect effect, uint32_t value, uint32_t object,
                   uint32_t skip, uint32_t times, vexoResult *result)
{
    const Names names = functionNames();
    if (*function && std::find(names.begin(), names.end(), function) == names.end())
        throw UsageError(std::string{"function: there is no platform function '"} + function + "'" +
                         hint(function, names));
    kvSimFault fault{};
    strcpy_n(fault.function, function, sizeof fault.function);
    fault.object = object;
    fault.skip = skip;
    fault.times = times;
    fault.effect = effect;
    fault.value = value;
    report(SIM(kv_sim_fault_add)(&fault), result);
}

void sim_fault_clear(vexoResult *result)
{
    report(SIM(kv_sim_fault_clear)(), result);
}

void sim_fault_list(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    Json faults = Json::array();
    kvSimFault fault;
    for (unsigned i = 0; SIM(kv_sim_fault_get)(i, &fault) == 0; ++i) {
        Json row{{"function", fault.function[0] ? fault.function : "any"}};
        if (fault.object)
            row["object"] = fault.object;
        const SimEffect effect{static_cast<uint32_t>(fault.effect)};
        row["effect"] = toJson(describe::Row<SimEffect>::type, &effect);
        row["value"] = fault.value;
        row["skip"] = fault.skip;
        row["times"] = fault.times;
        faults.push_back(row);
    }
    *shown = Json{{"faults", faults}, {"hanging", SIM(kv_sim_hanging)()}};
}

Json callOf(const kvSimCall &call, bool withRecord)
{
    Json row{{"number", call.number}, {"process", call.process}, {"function", call.function}};
    row["arguments"] = Json::object();
    for (uint32_t i = 0; i < call.argCount; ++i)
        row["arguments"][call.argNames[i]] = call.args[i];
    if (call.pending)
        row["pending"] = call.pending;
    else
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

void sim_journal(Json *shown, uint32_t last, uint32_t records, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const uint64_t end = SIM(kv_sim_journal_last)();
    const uint64_t count = last ? last : 20;
    Json calls = Json::array();
    kvSimCall call;
    for (uint64_t n = end > count ? end - count + 1 : 1; n <= end; ++n)
        if (SIM(kv_sim_journal_get)(n, &call) == 0)
            calls.push_back(callOf(call, records != 0));
    *shown = Json{{"calls", calls}};
}

void sim_log(Json *shown, uint32_t last, vexoResult *result)
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
    *shown = Json{{"records", records}};
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

void sim_alarm_set(SimType type, uint32_t number, uint32_t bits, vexoResult *result)
{
    report(SIM(kv_sim_alarm_set)(type, number, bits), result);
}

void sim_alarm_send(SimType type, uint32_t number, uint32_t status, uint32_t delta,
                    vexoResult *result)
{
    report(SIM(kv_sim_alarm_send)(type, number, status, delta), result);
}

void sim_alarm_get(SimType type, uint32_t number, uint32_t *bits, vexoResult *result)
{
    report(SIM(kv_sim_alarm_get)(type, number, bits), result);
}

void sim_alarm_burst(SimType type, uint32_t number, uint32_t status, uint32_t delta, uint32_t count,
                     uint32_t milliseconds, vexoResult *result)
{
    report(SIM(kv_sim_alarm_burst)(type, number, status, delta, count, milliseconds), result);
}

void sim_interval_end(uint32_t interval, vexoResult *result)
{
    report(SIM(kv_sim_interval_end)(interval), result);
}

void sim_interval_send(uint32_t interval, vexoResult *result)
{
    report(SIM(kv_sim_interval_send)(interval), result);
}

void sim_pending(Json *shown, vexoResult *result)
{
    uint32_t waiting = 0;
    uint64_t lost = 0;
    report(SIM(kv_sim_pending)(&waiting, &lost), result);
    *shown = Json{{"waiting", waiting}, {"lost", lost}};
}

void sim_interval_period(uint32_t interval, uint32_t seconds, vexoResult *result)
{
    report(SIM(kv_sim_interval_period)(interval, seconds), result);
}

void sim_pm_set(SimType type, uint32_t number, uint32_t interval, const char *counter,
                uint32_t value, vexoResult *result)
{
    uint32_t kind = 0;
    if (SIM(kv_sim_pm_get)(type, number, interval, 0, &kind) != 0)
        return report(-1, result);
    const uint32_t word = pmWord(type, kind, counter);
    report(SIM(kv_sim_pm_set)(type, number, interval, word, value), result);
}

void sim_pm_get(uint32_t *value, SimType type, uint32_t number, uint32_t interval,
                const char *counter, vexoResult *result)
{
    uint32_t kind = 0;
    if (SIM(kv_sim_pm_get)(type, number, interval, 0, &kind) != 0)
        return report(-1, result);
    report(SIM(kv_sim_pm_get)(type, number, interval, pmWord(type, kind, counter), value), result);
}

void sim_om_set(SimType type, uint32_t number, const char *name, uint32_t value, uint32_t high,
                vexoResult *result)
{
    uint32_t kind = 0;
    if (type == SimType{KV_SIM_PW} && SIM(kv_sim_pm_get)(type, number, 1, 0, &kind) != 0)
        return report(-1, result);
    const uint32_t counter = omWord(type, kind, name);
    const uint64_t whole = static_cast<uint64_t>(high) << 32 | value;
    report(SIM(kv_sim_om_set)(type, number, counter, whole), result);
}

void sim_subscriptions(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    Json rows = Json::array();
    kvSimSubscription subscription;
    for (unsigned i = 0; SIM(kv_sim_subscription_get)(i, &subscription) == 0; ++i)
        rows.push_back(Json{{"process", subscription.process},
                            {"service", subscription.pm ? "pm" : "alarms"},
                            {"waiting", subscription.waiting},
                            {"lost", subscription.lost}});
    *shown = Json{{"subscriptions", rows}};
}

void sim_values(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    Json rows = Json::array();
    for (const auto &[of, value, meaning] : describe::meanings())
        rows.push_back(Json{{"of", of}, {"value", value}, {"meaning", meaning}});
    *shown = Json{{"values", rows}};
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

bool isPrivateDevice()
{
    const char *const file = getenv("KV_SIM_DEVICE");
    return isSimulated() && (!file || !*file);
}

uint64_t lostEvents()
{
    uint64_t lost = 0;
    kvSimSubscription subscription;
    for (unsigned i = 0; isSimulated() && SIM(kv_sim_subscription_get)(i, &subscription) == 0; ++i)
        if (subscription.process == static_cast<uint32_t>(getpid()))
            lost += subscription.lost;
    return lost;
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

namespace
{

#define COMMAND(function, example, ...) OPERATION(function, "", example, __VA_ARGS__)
#define BITS(argument)                                                                             \
    {                                                                                              \
        .name = argument, .type = &describe::HEXADECIMAL                                           \
    }
#define OPTIONAL(argument)                                                                         \
    {                                                                                              \
        .name = argument, .optional = true                                                         \
    }

const struct {
    Operation operation;
    const char *help;
} COMMANDS[] = {
    {COMMAND(sim_reset, ""), "Puts the device back to its factory defaults."},
    {COMMAND(sim_clock, "", {"shown"}), "Shows the device's clock."},
    {COMMAND(sim_clock_set, "seconds=1767225600", {"seconds"}, OPTIONAL("microseconds")),
     "Sets the device's clock. The PM intervals that this skips don't end."},
    {COMMAND(sim_clock_stop, ""), "Stops the device's clock."},
    {COMMAND(sim_clock_run, ""), "Lets the device's clock run on."},
    {COMMAND(sim_clock_advance, "seconds=900", {"seconds"}, OPTIONAL("microseconds")),
     "Moves the device's clock on; every PM interval whose end lies in between ends."},
    {COMMAND(sim_functions, "", {"shown"}), "Shows the names of the platform's functions."},
    {COMMAND(sim_fault_add, "function=config_get_pwe_if value=8 times=1", OPTIONAL("function"),
             OPTIONAL("effect"), {.name = "value", .optional = true, .otherwise = 1},
             OPTIONAL("object"), OPTIONAL("skip"), OPTIONAL("times")),
     "Makes calls of a platform function (of all, when none is named) fail with the code value (1 "
     "when it is left out, and never 0), take value milliseconds longer, hang until the faults are "
     "cleared, or "
     "give random bytes made from value. Without object it meets calls for any object; skip calls "
     "are let "
     "pass first, then times calls are met, all when it is left out."},
    {COMMAND(sim_fault_clear, ""), "Ends all faults and lets the hanging calls go on."},
    {COMMAND(sim_fault_list, "", {"shown"}),
     "Shows the faults as they stand, and how many calls hang."},
    {COMMAND(sim_journal, "last=5", {"shown"}, OPTIONAL("last"), OPTIONAL("records")),
     "Shows the latest calls of the platform's functions, 20 or as many as last says; with "
     "records=1 also the bytes that they were given. A call that has not returned shows the thread "
     "in which it is pending in place of its code."},
    {COMMAND(sim_log, "last=5", {"shown"}, OPTIONAL("last")),
     "Shows the latest records of the device's log, 20 or as many as last says."},
    {COMMAND(sim_alarm_set, "type=pdh number=3 bits=0x1", {"type"}, {"number"}, BITS("bits")),
     "Sets the alarm bits that are active on an object. The system is number 1."},
    {COMMAND(sim_alarm_raise, "type=pdh number=3 bits=0x5", {"type"}, {"number"}, BITS("bits")),
     "Raises alarm bits on an object, besides those that are active. The system is number 1."},
    {COMMAND(sim_alarm_clear, "type=pdh number=3 bits=0x4", {"type"}, {"number"}, BITS("bits")),
     "Clears alarm bits of an object."},
    {COMMAND(sim_alarm_get, "type=pdh number=3", {"type"}, {"number"}, BITS("bits")),
     "Shows the alarm bits that are active on an object."},
    {COMMAND(sim_alarm_send, "type=pdh number=3 status=0x1 delta=0x1", {"type"}, {"number"},
             BITS("status"), BITS("delta")),
     "Sends an alarm event as it is, whatever the device's state; with --force also of a type that "
     "there isn't."},
    {COMMAND(sim_alarm_burst, "type=pdh number=3 status=0x1 delta=0x1 count=100", {"type"},
             {"number"}, BITS("status"), BITS("delta"), {"count"}, OPTIONAL("milliseconds")),
     "Sends the same alarm event count times, each after some milliseconds, as 'sim alarm send' "
     "does."},
    {COMMAND(sim_interval_end, "interval=1", {"interval"}),
     "Ends a PM interval now; 1 to 3 are reported."},
    {COMMAND(sim_interval_send, "interval=1", {"interval"}),
     "Sends the report of an interval, whatever its number, without ending anything."},
    {COMMAND(sim_pending, "", {"shown"}),
     "Shows how many notifications subscribers have not dealt with yet, and "
     "how many were lost because 4095 were waiting."},
    {COMMAND(sim_interval_period, "interval=1 seconds=60", {"interval"}, {"seconds"}),
     "Sets how long a PM interval lasts by the device's clock; 0: it only ends on command."},
    {COMMAND(sim_subscriptions, "", {"shown"}),
     "Shows which processes listen to alarms and PM reports, how "
     "many events wait for each, and how "
     "many it has lost because 4095 were waiting."},
    {COMMAND(sim_pm_set, "type=pdh number=3 interval=1 counter=layout0.counters.4 value=12",
             {"type"}, {"number"}, {"interval"}, {"counter"}, {"value"}),
     "Sets a PM counter of an object in the running interval. The counter is named as 'pdh pm "
     "get', "
     "'pwe pm get' and 'ima pm get' print it, with its index from 0 where it is one of several: "
     "layout0.counters.4; or it is a word by its number, as kv_sim.h counts them."},
    {COMMAND(sim_pm_get, "type=pdh number=3 interval=1 counter=layout0.counters.4", {"value"},
             {"type"}, {"number"}, {"interval"}, {"counter"}),
     "Shows a PM counter of an object in the running interval, named as for 'sim pm set'."},
    {COMMAND(sim_om_set, "type=ima-link number=4 counter=counters.0 value=7", {"type"}, {"number"},
             {"counter"}, {"value"}, OPTIONAL("high")),
     "Sets an OM counter of an object, named as 'misc sys_info get', 'pwe om get' and 'ima om get' "
     "print it, with its index from 0: entries.3.counters.1; or by its number, as kv_sim.h counts "
     "them. High is the upper half of its 64 bits."},
    {COMMAND(sim_upgrade_fail, "state=4", {"state"}),
     "Makes software loads fail when they reach this state (2 to 5); 0: none fails."},
    {COMMAND(sim_values, "", {"shown"}),
     "Shows what values mean to the simulated device where that is the "
     "platform's to say. These are "
     "its own choices: a device may take them otherwise."},
};

} // namespace

const std::vector<Operation> &simOperations()
{
    static const std::vector<Operation> all = [] {
        std::vector<Operation> operations;
        for (const auto &command : COMMANDS)
            operations.push_back(command.operation);
        return operations;
    }();
    return all;
}

std::string simHelp(const std::string &operation)
{
    for (const auto &command : COMMANDS)
        if (operation == command.operation.name)
            return command.help;
    return "";
}

} // namespace vexoctl
