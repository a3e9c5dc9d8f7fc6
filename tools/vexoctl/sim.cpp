// The commands of the simulated device.
#include "session.h"

#include "counters.h"
#include "invocation.h"
#include "print.h"
#include "simulator.h"

#include <meaning.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ranges>
#include <set>
#include <sstream>

#include <unistd.h>

namespace vexoctl
{

using describe::Kind;
using describe::Type;

namespace
{

// All have a name: there is no range of others.
constexpr describe::Member OBJECTS[] = {{KV_SIM_SYSTEM, "system"},
                                        {KV_SIM_PDH, "pdh"},
                                        {KV_SIM_PW, "pwe"},
                                        {KV_SIM_GROUP, "ima-group"},
                                        {KV_SIM_LINK, "ima-link"}};
constexpr describe::Member EFFECTS[] = {
    {KV_SIM_CODE, "code"},       {KV_SIM_DELAY, "delay"},   {KV_SIM_HANG, "hang"},
    {KV_SIM_GARBAGE, "garbage"}, {KV_SIM_LOST, "lost"},     {KV_SIM_NOTHING, "nothing"},
    {KV_SIM_DROP, "drop"},       {KV_SIM_DOUBLE, "double"}, {KV_SIM_LATE, "late"},
    {KV_SIM_SWAP, "swap"},       {KV_SIM_HOLD, "hold"}};
constexpr describe::Member FAULT_SERVICES[] = {{KV_SIM_ALARMS, "alarms"}, {KV_SIM_REPORTS, "pm"}};
constexpr describe::Member ENDINGS[] = {
    {KV_SIM_SILENCE, "silence"}, {KV_SIM_ERROR, "error"}, {KV_SIM_HANGUP, "hangup"}};
constexpr describe::Member SETS[] = {{uint32_t(Counters::pm), "pm"},
                                     {uint32_t(Counters::om), "om"}};
constexpr describe::Member GROWTHS[] = {{0, "even"}, {1, "burst"}};
constexpr describe::Member SERVICE_NAMES[] = {{0, "any"},
                                              {KV_SIM_ALARMS, "alarms"},
                                              {KV_SIM_REPORTS, "pm"},
                                              {KV_SIM_ALARMS | KV_SIM_REPORTS, "both"}};
constexpr Type named(const char *title, std::span<const describe::Member> members)
{
    return {Kind::enumeration, title, sizeof(uint32_t), members, {}, 1, 0};
}
constexpr Type SERVICES = named("services", SERVICE_NAMES);
constexpr Type OBJECT_TYPE = named("object type", OBJECTS);
constexpr Type SET = named("set of counters", SETS);
constexpr Type GROWTH = named("growth", GROWTHS);
constexpr Type EFFECT = named("effect", EFFECTS);
constexpr Type SERVICE = named("service", FAULT_SERVICES);
constexpr Type ENDING = named("ending", ENDINGS);
// Of more bits than a number has.
constexpr Type CALL_NUMBER{Kind::text, "number of a call", 0};
constexpr uint32_t NOT_GIVEN = 0xFFFFFFFF;

constexpr uint64_t SECOND = 1000000;

void report(int failed, vexoResult *result)
{
    result->rc = failed ? VEXO_RC_GENERAL : VEXO_RC_OK;
    strcpy_n(result->message, failed ? SIM(kv_sim_error)() : "", sizeof result->message);
}

// A function of the control interface as an operation.
template <class Function, auto function>
struct Forward;

template <class... Arguments, auto function>
struct Forward<int(Arguments...), function> {
    static void call(Arguments... arguments, vexoResult *result)
    {
        report(function(arguments...), result);
    }
};

// What `get` tells of the elements up to the first that there isn't.
template <class Element, class Show>
Json all(int (*get)(unsigned, Element *), Show show)
{
    Json rows = Json::array();
    Element element;
    for (unsigned i = 0; get(i, &element) == 0; ++i)
        rows.push_back(show(element));
    return rows;
}

// What it tells of the latest elements, as many as `count`, or 20.
template <class Element, class Show>
Json latest(uint64_t end, uint64_t count, int (*get)(uint64_t, Element *), Show show)
{
    count = count ? count : 20;
    Json rows = Json::array();
    Element element;
    for (uint64_t n = end > count ? end - count + 1 : 1; n <= end; ++n)
        if (get(n, &element) == 0)
            rows.push_back(show(element));
    return rows;
}

void sim_clock(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const uint64_t time = SIM(kv_sim_clock_get)();
    *shown = Json{{"seconds", time / SECOND},
                  {"microseconds", time % SECOND},
                  {"stopped", SIM(kv_sim_clock_stopped)() != 0},
                  {"away", SIM(kv_sim_away)()}};
}

void sim_clock_set(uint32_t seconds, uint32_t microseconds, vexoResult *result)
{
    report(SIM(kv_sim_clock_set)(seconds * SECOND + microseconds), result);
}

template <int stop>
void stopClock(vexoResult *result)
{
    report(SIM(kv_sim_clock_stop)(stop), result);
}

void sim_clock_advance(uint32_t seconds, uint32_t microseconds, uint32_t anyway, vexoResult *result)
{
    const uint64_t time = seconds * SECOND + microseconds;
    report(anyway ? SIM(kv_sim_clock_advance_anyway)(time) : SIM(kv_sim_clock_advance)(time),
           result);
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

void checkName(const char *what, const std::string &name, const Names &names)
{
    if (std::ranges::count(names, name) == 0)
        throw UsageError(std::string{what} + " " + quoted(name) + hint(name, names));
}

void checkFunction(const std::string &function)
{
    if (!function.empty())
        checkName("function: there is no platform function", function, functionNames());
}

// What a fault's `where` can name; of no function, what those of all have.
Names argumentNames(const char *function)
{
    Names names;
    kvSimArgument argument;
    for (unsigned i = 0; SIM(kv_sim_argument_get)(function, i, &argument) == 0; ++i)
        names.emplace_back(argument.name);
    return names;
}

void sim_arguments(Json *shown, const char *function, vexoResult *result)
{
    checkFunction(function);
    report(SIM(kv_sim_open)(), result);
    *shown = Json{{"arguments", argumentNames(function)}};
}

// "port=3,params.frameMode=2"
void putWhere(kvSimFault &fault, const std::string &text)
{
    const bool notifies = fault.effect >= KV_SIM_DROP;
    const Names names = !notifies ? argumentNames(fault.function)
                        : fault.service == KV_SIM_REPORTS
                            ? Names{"interval"}
                            : Names{"type", "number", "status", "delta"};
    std::istringstream stream{text};
    size_t count = 0;
    for (std::string word; std::getline(stream, word, ','); ++count) {
        const size_t sign = word.find('=');
        const std::string name = word.substr(0, sign);
        if (sign == std::string::npos || count == std::size(fault.where))
            throw UsageError("where: expected up to " + std::to_string(std::size(fault.where)) +
                             " times name=value, with commas between them, not '" + text + "'");
        // An index other than that which stands for all is not among the names.
        if (name.find_first_of("0123456789") == std::string::npos)
            checkName("where: there is no number", name, names);
        kvSimArgument &wanted = fault.where[count];
        checkLength("where", name.size(), sizeof wanted.name - 1);
        strcpy_n(wanted.name, name.c_str(), sizeof wanted.name);
        parse(name == "type" ? OBJECT_TYPE : describe::Row<uint32_t>::type, "where: " + name,
              word.substr(sign + 1), {.members = true}, &wanted.value);
    }
}

// "vexo_cmi_pwe_params_set", or the words for it.
void putOperation(kvSimFault &fault, const std::string &given)
{
    Names names;
    for (const describe::Operation &operation : describe::operations()) {
        names.insert(names.end(), {operation.name, spoken(operation.name)});
        if (given == operation.name || given == names.back())
            return static_cast<void>(
                strcpy_n(fault.operation, operation.name, sizeof fault.operation));
    }
    checkName("operation: there is no operation", given, names);
}

void sim_fault_add(Json *shown, const char *function, uint32_t effect, uint32_t value,
                   uint32_t object, uint32_t skip, uint32_t times, uint32_t type, const char *where,
                   uint32_t process, const char *operation, uint32_t nth, uint32_t chance,
                   uint32_t seed, uint32_t service, vexoResult *result)
{
    checkFunction(function);
    if (seed && !chance)
        throw UsageError("seed: only with chance");
    kvSimFault fault{};
    strcpy_n(fault.function, function, sizeof fault.function);
    fault.object = object;
    fault.skip = skip;
    fault.times = times;
    fault.effect = effect;
    fault.value = value;
    fault.ofType = type != NOT_GIVEN;
    fault.type = fault.ofType ? type : 0;
    fault.process = process;
    fault.nth = nth;
    fault.chance = chance;
    fault.seed = seed;
    fault.service = service;
    putWhere(fault, where);
    if (*operation)
        putOperation(fault, operation);
    const uint32_t id = SIM(kv_sim_fault_arm)(&fault);
    report(id ? 0 : -1, result);
    *shown = Json{{"id", id}};
}

Json faultOf(const kvSimFault &fault)
{
    const bool notifies = fault.effect >= KV_SIM_DROP;
    Json row{{"id", fault.id}};
    if (notifies)
        row["service"] = toJson(SERVICE, &fault.service);
    else
        row["function"] = fault.function[0] ? fault.function : "any";
    if (fault.ofType)
        row["type"] = toJson(OBJECT_TYPE, &fault.type);
    for (const auto &[name, number] :
         {std::pair{"object", fault.object}, {"process", fault.process}, {"nth", fault.nth}})
        if (number)
            row[name] = number;
    if (fault.operation[0])
        row["operation"] = fault.operation;
    for (const kvSimArgument &wanted : fault.where)
        if (wanted.name[0])
            row["where"][wanted.name] = wanted.value;
    row["effect"] = toJson(EFFECT, &fault.effect);
    constexpr uint32_t WITH_VALUE[] = {KV_SIM_CODE, KV_SIM_DELAY, KV_SIM_GARBAGE, KV_SIM_LOST,
                                       KV_SIM_LATE};
    if (std::ranges::count(WITH_VALUE, fault.effect))
        row["value"] = fault.value;
    row.update(Json{{"skip", fault.skip}, {"times", fault.times}});
    if (fault.chance)
        row.update(Json{{"chance", fault.chance}, {"seed", fault.seed}});
    row.update(Json{{"met", fault.met}, {"waiting", fault.waiting}, {"spent", fault.spent != 0}});
    return row;
}

void sim_fault_list(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    *shown =
        Json{{"faults", all(SIM(kv_sim_fault_get), faultOf)}, {"hanging", SIM(kv_sim_hanging)()}};
}

void sim_fault_find(Json *shown, uint32_t id, vexoResult *result)
{
    kvSimFault fault{};
    report(SIM(kv_sim_fault_find)(id, &fault), result);
    *shown = faultOf(fault);
}

void sim_reboot(uint32_t milliseconds, uint32_t keepConfiguration, uint32_t keepFaults,
                uint32_t keepJournal, uint32_t clock, vexoResult *result)
{
    const kvSimReboot reboot{milliseconds, keepConfiguration,  keepFaults,
                             keepJournal,  clock != NOT_GIVEN, clock * SECOND};
    report(SIM(kv_sim_reboot)(&reboot), result);
}

std::string hexOf(const uint8_t *bytes, uint32_t size)
{
    std::string hex(2 * size + 1, '\0');
    for (uint32_t i = 0; i < size; ++i)
        snprintf(&hex[2 * i], 3, "%02x", bytes[i]);
    hex.pop_back();
    return hex;
}

// What calls are shown, and how much of each.
struct Shown {
    Shown(const char *ofFunction, uint32_t ofProcess, uint32_t ofObject, uint32_t records)
        : function{ofFunction}, process{ofProcess}, object{ofObject}, withRecords{records != 0}
    {
        checkFunction(function);
    }

    const std::string function; // empty: any
    const uint32_t process;     // 0: any
    const uint32_t object;
    const bool withRecords;

    bool has(const kvSimCall &call) const
    {
        return (function.empty() || function == call.function) &&
               (!process || call.process == process) && (!object || objectOf(call) == object);
    }

    static uint32_t objectOf(const kvSimCall &call)
    {
        constexpr std::string_view NAMES[] = {"port", "pwId", "group", "link", "number"};
        for (uint32_t i = 0; i < call.argCount; ++i)
            if (std::ranges::count(NAMES, call.argNames[i]))
                return call.args[i];
        return 0;
    }

    Json document(const kvSimCall &call) const
    {
        Json row{{"number", call.number},
                 {"deviceTime", call.deviceTime},
                 {"hostTime", call.hostTime},
                 {"process", call.process},
                 {"thread", call.thread},
                 {"operation", Json{}},
                 {"fault", Json{}},
                 {"function", call.function},
                 {"arguments", Json::object()}};
        if (*call.operation)
            row["operation"] = call.operation;
        if (call.fault)
            row["fault"] = call.fault;
        for (uint32_t i = 0; i < call.argCount; ++i)
            row["arguments"][call.argNames[i]] = call.args[i];
        if (call.pending)
            row["pending"] = call.pending;
        else
            row.update(Json{{"code", call.code}, {"duration", call.duration}});
        if (withRecords && call.recordSize)
            row["record"] = hexOf(call.record, call.recordSize);
        if (withRecords && call.outSize)
            row["out"] = hexOf(call.out, call.outSize);
        return row;
    }
};

std::string callLine(const Json &call)
{
    const auto text = [&](const char *name) {
        return call[name].is_string() ? call[name].get<std::string>() : call[name].dump();
    };
    std::string line = text("number") + " " + timeText(call["deviceTime"], zone()) + " " +
                       text("process") + "/" + text("thread") + " ";
    if (call["operation"].is_string())
        line += text("operation") + " > ";
    line += text("function");
    for (const auto &[name, value] : call["arguments"].items())
        line += " " + name + "=" + value.dump();
    if (call.contains("pending")) {
        line += ": pending";
    } else {
        char took[40];
        snprintf(took, sizeof took, " (%.1f us)", call["duration"].get<double>() / 1e3);
        line += ": " + text("code") + took;
    }
    for (const char *more : {"fault", "record", "out"})
        if (call.contains(more) && !call[more].is_null())
            line += std::string{", "} + more + " " + text(more);
    return line;
}

// The latest ones, as many as `last`, or 20.
void sim_journal(Json *shown, uint32_t last, uint32_t records, const char *function,
                 uint32_t process, uint32_t object, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const Shown wanted{function, process, object, records};
    const size_t count = last ? last : 20;
    std::vector<uint64_t> numbers;
    kvSimCall call;
    for (uint64_t n = SIM(kv_sim_journal_last)(); numbers.size() < count && n > 0; --n) {
        if (SIM(kv_sim_journal_get)(n, &call) != 0)
            break;
        if (wanted.has(call))
            numbers.push_back(n);
    }
    Json calls = Json::array();
    for (auto n = numbers.rbegin(); n != numbers.rend(); ++n)
        if (SIM(kv_sim_journal_get)(*n, &call) == 0)
            calls.push_back(wanted.document(call));
    if (printsDocuments()) {
        *shown = Json{{"calls", calls}};
        return;
    }
    for (const Json &row : calls)
        printLine(row, callLine(row));
    *shown = {};
}

uint64_t callNumber(const std::string &text)
{
    uint64_t number = 0;
    const char *const end = text.data() + text.size();
    if (const auto [stopped, error] = std::from_chars(text.data(), end, number);
        error != std::errc{} || stopped != end)
        throw UsageError("from: expected the number of a call, not " + quoted(text));
    return number;
}

// A call that is pending when it comes is shown once more when it has returned.
void sim_journal_follow(Json *shown, const char *from, uint32_t count, uint32_t seconds,
                        uint32_t records, const char *function, uint32_t process, uint32_t object,
                        vexoResult *result)
{
    const Shown wanted{function, process, object, records};
    kvSimCursor cursor{};
    report(SIM(kv_sim_journal_end)(&cursor), result);
    if (result->rc != VEXO_RC_OK)
        return;
    if (*from)
        cursor.next = callNumber(from);
    uint64_t told = 0;
    std::set<uint64_t> pending;
    int read = 0;
    stream(count, seconds, [&] {
        constexpr int AT_ONCE = 1000;
        kvSimCall call;
        const auto show = [&] {
            const Json row = wanted.document(call);
            if (wanted.has(call))
                printLine(row, callLine(row));
        };
        std::erase_if(pending, [&](uint64_t number) {
            if (SIM(kv_sim_journal_get)(number, &call) != 0)
                return true;
            if (!call.pending)
                show();
            return !call.pending;
        });
        int left = AT_ONCE;
        while (left > 0 && (read = SIM(kv_sim_journal_next)(&cursor, &call, 0)) == 1) {
            --left;
            if (cursor.lost > told)
                printLine(Json{{"lost", cursor.lost - told}},
                          std::to_string(cursor.lost - told) + " calls were lost");
            told = cursor.lost;
            if (call.pending)
                pending.insert(call.number);
            show();
        }
        return left < AT_ONCE;
    });
    report(read < 0, result);
    *shown = {};
}

void sim_journal_races(Json *shown, vexoResult *result)
{
    std::vector<kvSimRace> races(100);
    const int found = SIM(kv_sim_journal_races)(races.data(), static_cast<unsigned>(races.size()));
    report(found < 0, result);
    races.resize(std::clamp<size_t>(found < 0 ? 0 : static_cast<size_t>(found), 0, races.size()));
    const Shown all{"", 0, 0, false};
    Json rows = Json::array();
    for (const kvSimRace &race : races) {
        Json row;
        const std::pair<const char *, uint64_t> calls[] = {
            {"read", race.read}, {"between", race.between}, {"write", race.write}};
        kvSimCall call;
        for (const auto &[name, number] : calls)
            row[name] = SIM(kv_sim_journal_get)(number, &call) == 0 ? all.document(call)
                                                                    : Json{{"number", number}};
        rows.push_back(row);
    }
    *shown = Json{{"races", rows}, {"count", std::max(found, 0)}};
}

void sim_log(Json *shown, uint32_t last, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const auto show = [](const kvSimLog &record) {
        return Json{{"number", record.number},     {"level", record.level},
                    {"module", record.module},     {"file", record.file},
                    {"function", record.function}, {"line", record.line},
                    {"text", record.text}};
    };
    *shown = Json{{"records", latest(SIM(kv_sim_log_last)(), last, SIM(kv_sim_log_get), show)}};
}

template <bool raise>
void changeAlarms(uint32_t type, uint32_t number, uint32_t bits, vexoResult *result)
{
    uint32_t active = 0;
    if (SIM(kv_sim_alarm_get)(type, number, &active) != 0)
        return report(-1, result);
    report(SIM(kv_sim_alarm_set)(type, number, raise ? active | bits : active & ~bits), result);
}

void sim_pending(Json *shown, vexoResult *result)
{
    uint32_t waiting = 0;
    uint64_t lost = 0;
    report(SIM(kv_sim_pending)(&waiting, &lost), result);
    *shown = Json{{"waiting", waiting}, {"lost", lost}};
}

// How the object's counters are arranged.
bool readKind(uint32_t type, uint32_t number, uint32_t &kind)
{
    kind = 0;
    return type == KV_SIM_SYSTEM || SIM(kv_sim_pm_get)(type, number, 1, 0, &kind) == 0;
}

// Calls a function of the control interface with the word that goes with a counter's name.
template <class Use>
void useCounter(Counters set, uint32_t type, uint32_t number, const char *name, vexoResult *result,
                Use use)
{
    uint32_t kind;
    report(!readKind(type, number, kind) || use(counterWord(set, type, kind, name)), result);
}

void sim_pm_set(uint32_t type, uint32_t number, uint32_t interval, const char *counter,
                uint32_t value, vexoResult *result)
{
    useCounter(Counters::pm, type, number, counter, result, [=](uint32_t word) {
        return SIM(kv_sim_pm_set)(type, number, interval, word, value);
    });
}

void sim_pm_get(uint32_t *value, uint32_t type, uint32_t number, uint32_t interval,
                const char *counter, vexoResult *result)
{
    useCounter(Counters::pm, type, number, counter, result, [=](uint32_t word) {
        return SIM(kv_sim_pm_get)(type, number, interval, word, value);
    });
}

void sim_om_set(uint32_t type, uint32_t number, const char *counter, uint32_t value, uint32_t high,
                vexoResult *result)
{
    useCounter(Counters::om, type, number, counter, result, [=](uint32_t word) {
        return SIM(kv_sim_om_set)(type, number, word, static_cast<uint64_t>(high) << 32 | value);
    });
}

void sim_om_get(Json *shown, uint32_t type, uint32_t number, const char *counter,
                vexoResult *result)
{
    uint64_t value = 0;
    useCounter(Counters::om, type, number, counter, result,
               [&](uint32_t word) { return SIM(kv_sim_om_get)(type, number, word, &value); });
    *shown = Json{{"value", value}};
}

void sim_rate_set(uint32_t type, uint32_t number, const char *counter, uint32_t amount,
                  uint32_t milliseconds, uint32_t set, uint32_t growth, vexoResult *result)
{
    useCounter(Counters{set}, type, number, counter, result, [=](uint32_t word) {
        const kvSimRate rate{type, number, set, word, amount, milliseconds, growth};
        return SIM(kv_sim_rate_set)(&rate);
    });
}

void sim_rate_list(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const auto show = [](const kvSimRate &rate) {
        uint32_t kind;
        readKind(rate.type, rate.number, kind);
        return Json{{"type", toJson(OBJECT_TYPE, &rate.type)},
                    {"number", rate.number},
                    {"set", toJson(SET, &rate.om)},
                    {"counter", counterName(Counters{rate.om}, rate.type, kind, rate.counter)},
                    {"amount", rate.amount},
                    {"milliseconds", rate.milliseconds},
                    {"growth", toJson(GROWTH, &rate.burst)}};
    };
    *shown = Json{{"rates", all(SIM(kv_sim_rate_get), show)}};
}

Names settingNames()
{
    Names names;
    for (unsigned i = 0; const char *name = SIM(kv_sim_setting)(i); ++i)
        names.emplace_back(name);
    return names;
}

void requireSetting(const std::string &name)
{
    const Names names = settingNames();
    if (std::find(names.begin(), names.end(), name) == names.end())
        throw UsageError("name: there is no setting '" + name + "'" + hint(name, names));
}

void sim_set(const char *name, const char *value, vexoResult *result)
{
    requireSetting(name);
    report(SIM(kv_sim_set)(name, value), result);
}

void sim_get(Json *shown, const char *name, vexoResult *result)
{
    if (*name)
        requireSetting(name);
    report(SIM(kv_sim_open)(), result);
    Json settings = Json::object();
    char value[128];
    for (const std::string &known : settingNames())
        if ((!*name || known == name) && SIM(kv_sim_get)(known.c_str(), value, sizeof value) == 0)
            settings[known] = value;
    *shown = Json{{"settings", settings}};
}

void sim_subscriptions(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    const auto show = [](const kvSimSubscription &subscription) {
        return Json{{"process", subscription.process},
                    {"service", subscription.pm ? "pm" : "alarms"},
                    {"waiting", subscription.waiting},
                    {"lost", subscription.lost}};
    };
    *shown = Json{{"subscriptions", all(SIM(kv_sim_subscription_get), show)}};
}

void sim_values(Json *shown, vexoResult *result)
{
    report(SIM(kv_sim_open)(), result);
    Json rows = Json::array();
    for (const auto &[of, value, meaning] : describe::meanings())
        rows.push_back(Json{{"of", of}, {"value", value}, {"meaning", meaning}});
    *shown = Json{{"values", rows}};
}

} // namespace

bool isSimulated()
{
    return SIM(kv_sim_open) != nullptr && !getenv(RECORDING_VARIABLE);
}

bool isPrivateDevice()
{
    const char *const file = getenv("KV_SIM_DEVICE");
    return isSimulated() && (!file || !*file);
}

uint64_t deviceClock()
{
    using namespace std::chrono;
    const auto host = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    return isSimulated() ? SIM(kv_sim_clock_get)() : static_cast<uint64_t>(host.count());
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

Names simSettings()
{
    return settingNames();
}

void simReset()
{
    vexoResult result{};
    report(isSimulated() ? SIM(kv_sim_reset)() : -1, &result);
    if (result.rc != VEXO_RC_OK)
        throw UsageError(result.message);
}

void simSet(const std::string &name, uint32_t value)
{
    if (SIM(kv_sim_set)(name.c_str(), std::to_string(value).c_str()) != 0)
        throw UsageError(SIM(kv_sim_error)());
}

Json simLog()
{
    if (!isSimulated())
        return {};
    Json shown;
    vexoResult result{};
    sim_log(&shown, 512, &result);
    return shown;
}

void simRefuse(const std::string &function, uint32_t code)
{
    kvSimFault fault{};
    strcpy_n(fault.function, function.c_str(), sizeof fault.function);
    fault.value = code;
    if (SIM(kv_sim_fault_arm)(&fault) == 0)
        throw UsageError(SIM(kv_sim_error)());
}

namespace
{

#define CALL(name, function, example, ...)                                                         \
    describe::operation<&function>(name, {}, "", example,                                          \
                                   [] { return describe::names(__VA_OPT__({__VA_ARGS__})); })
#define COMMAND(function, ...) CALL(#function, function, __VA_ARGS__)
#define FORWARD(function, ...)                                                                     \
    CALL(#function,                                                                                \
         (Forward<decltype(kv_##function),                                                         \
                  [](auto... given) { return SIM(kv_##function)(given...); }>::call),              \
         __VA_ARGS__)
#define TYPE                                                                                       \
    {                                                                                              \
        .name = "type", .type = &OBJECT_TYPE                                                       \
    }
#define BITS(argument)                                                                             \
    {                                                                                              \
        .name = argument, .type = &describe::HEXADECIMAL                                           \
    }
// Of the commands that wait.
#define LIMIT                                                                                      \
    {                                                                                              \
        .name = "milliseconds", .optional = true, .otherwise = 10000                               \
    }
#define WAITS                                                                                      \
    " After so many milliseconds, 10000 when they are left out, it fails and tells what there "    \
    "was "                                                                                         \
    "instead."
#define OPTIONAL(argument)                                                                         \
    {                                                                                              \
        .name = argument, .optional = true                                                         \
    }

constexpr SimCommand COMMANDS[] = {
    {FORWARD(sim_reset, ""), "Puts the device back to its factory defaults."},
    {COMMAND(sim_clock, "", {"shown"}), "Shows the device's clock."},
    {COMMAND(sim_clock_set, "seconds=1767225600", {"seconds"}, OPTIONAL("microseconds")),
     "Sets the device's clock. The PM intervals that this skips don't end."},
    {CALL("sim_clock_stop", stopClock<1>, ""), "Stops the device's clock."},
    {CALL("sim_clock_run", stopClock<0>, ""), "Lets the device's clock run on."},
    {COMMAND(sim_clock_advance, "seconds=900", {"seconds"}, OPTIONAL("microseconds"),
             OPTIONAL("anyway")),
     "Moves the device's clock on; every PM interval whose end lies in between ends, as soon as "
     "subscribers have dealt with the report of the one before. When one has got no further for "
     "two seconds the clock stops there, with a failure; with anyway=1 that one is not waited for "
     "again, and the clock goes on."},
    {COMMAND(sim_functions, "", {"shown"}), "Shows the names of the platform's functions."},
    {COMMAND(sim_arguments, "function=config_set_pdh_params", {"shown"}, OPTIONAL("function")),
     "Shows the numbers by which a fault can tell the calls of a platform function, where=: its "
     "arguments, and the fields of the record that it is given, with 0 for each index; or the "
     "arguments of all functions."},
    {COMMAND(sim_fault_add, "function=config_get_pwe_if value=8 times=1", {"shown"},
             OPTIONAL("function"), {.name = "effect", .optional = true, .type = &EFFECT},
             {.name = "value", .optional = true, .otherwise = 1}, OPTIONAL("object"),
             OPTIONAL("skip"), OPTIONAL("times"),
             {.name = "type", .optional = true, .otherwise = NOT_GIVEN, .type = &OBJECT_TYPE},
             OPTIONAL("where"), OPTIONAL("process"), OPTIONAL("operation"), OPTIONAL("nth"),
             OPTIONAL("chance"), OPTIONAL("seed"),
             {.name = "service", .optional = true, .type = &SERVICE}),
     "Makes calls of a platform function (of all, when none is named) fail with the code value (1 "
     "when it is left out, and never 0); take value milliseconds longer; hang until the fault is "
     "released or ended; give random bytes made from value; be carried out and fail all the same "
     "with the code value (lost); or succeed and change nothing (nothing). Or makes notifications "
     "of a service be dropped, sent double, late by value milliseconds of device time, swapped "
     "with the next, or held until the fault is released or ended. Without object it meets those "
     "of any object, without type of any kind; where names numbers among the arguments, as 'sim "
     "arguments' shows them: where=interval=1,which=0. Skip are let pass first, then times are "
     "met, all when it is left out; or only the nth, counted whether or not another fault meets "
     "them; or chance in a million, at random by seed. Operation is one of the library's, known "
     "while it is recorded. The id is for 'sim fault find', 'sim fault release' and 'sim fault "
     "end'."},
    {FORWARD(sim_fault_clear, ""),
     "Ends all faults, lets the hanging calls go on and sends the notifications that were kept."},
    {FORWARD(sim_fault_end, "id=1", {"id"}),
     "Ends one fault, with what hangs by it or is kept as 'sim fault clear' does."},
    {FORWARD(sim_fault_release, "id=1", {"id"}),
     "Lets what hangs by a fault go on and sends what it keeps; the fault stays."},
    {COMMAND(sim_fault_find, "id=1", {"shown"}, {"id"}),
     "Shows a fault and how often it has met, also when it is spent or was ended, until 1024 newer "
     "ones have been added."},
    {COMMAND(sim_fault_list, "", {"shown"}),
     "Shows the faults as they stand, and how many calls hang."},
    {COMMAND(sim_journal, "last=5 function=config_set_pw", {"shown"}, OPTIONAL("last"),
             OPTIONAL("records"), OPTIONAL("function"), OPTIONAL("process"), OPTIONAL("object")),
     "Shows the latest calls of the platform's functions, 20 or as many as last says: all, or "
     "those "
     "of one function, of one process or about objects of one number. Of each: its number, the "
     "device's time, process and thread, the library's operation in progress if it is known, "
     "function and arguments, what it returned, how long it took and the id of the fault that met "
     "it; with records=1 also the bytes that it was given and that it filled. One that has not "
     "returned is shown as pending. The journal holds the latest 4096 calls, or as many as "
     "KV_SIM_JOURNAL said when the device was made; fewer where they take more than 320 bytes."},
    {COMMAND(sim_journal_follow, "from=1 for=1", {"shown"},
             {.name = "from", .optional = true, .type = &CALL_NUMBER}, OPTIONAL("count"),
             OPTIONAL("for"), OPTIONAL("records"), OPTIONAL("function"), OPTIONAL("process"),
             OPTIONAL("object")),
     "Shows calls as they come, one line each, and those that were pending once more when they "
     "return, until count lines have been printed, as many seconds as for says are over, or SIGINT "
     "or SIGTERM comes. From is the number of the first call; left out, it begins with the next. "
     "Where the journal has dropped calls before they were read, a line tells how many were lost."},
    {COMMAND(sim_journal_races, "", {"shown"}),
     "Shows lost updates among the calls that the journal holds, up to 100 and how many there are: "
     "a read of an object's record, a write to the object by another thread or process, and the "
     "write that puts the record back as it was read, with its own change."},
    {COMMAND(sim_reboot, "milliseconds=1", {"milliseconds"}, OPTIONAL("keepConfiguration"),
             OPTIONAL("keepFaults"), OPTIONAL("keepJournal"),
             {.name = "clock", .optional = true, .otherwise = NOT_GIVEN}),
     "Restarts the device: for some milliseconds of device time each call fails with code 1; "
     "subscriptions end with a hang-up of their descriptors. It comes back with its counters at 0, "
     "with factory defaults unless keepConfiguration=1, without faults unless keepFaults=1, with a "
     "new journal unless keepJournal=1, and with the clock going on or, in seconds, at clock."},
    {COMMAND(sim_log, "last=5", {"shown"}, OPTIONAL("last")),
     "Shows the latest records of the device's log, 20 or as many as last says."},
    {FORWARD(sim_alarm_set, "type=pdh number=3 bits=0x1", TYPE, {"number"}, BITS("bits")),
     "Sets the alarm bits that are active on an object. The system is number 1."},
    {FORWARD(sim_alarm_alter, "type=pdh number=3 bits=0x3", TYPE, {"number"}, BITS("bits")),
     "Sets the alarm bits that are active on an object, without an event."},
    {CALL("sim_alarm_raise", changeAlarms<true>, "type=pdh number=3 bits=0x5", TYPE, {"number"},
          BITS("bits")),
     "Raises alarm bits on an object, besides those that are active. The system is number 1."},
    {CALL("sim_alarm_clear", changeAlarms<false>, "type=pdh number=3 bits=0x4", TYPE, {"number"},
          BITS("bits")),
     "Clears alarm bits of an object."},
    {FORWARD(sim_alarm_get, "type=pdh number=3", TYPE, {"number"}, BITS("bits")),
     "Shows the alarm bits that are active on an object."},
    {FORWARD(sim_alarm_send, "type=pdh number=3 status=0x1 delta=0x1", TYPE, {"number"},
             BITS("status"), BITS("delta")),
     "Sends an alarm event as it is, whatever the device's state; with --force also of a type that "
     "there isn't."},
    {FORWARD(sim_alarm_burst, "type=pdh number=3 status=0x1 delta=0x1 count=100", TYPE, {"number"},
             BITS("status"), BITS("delta"), {"count"}, OPTIONAL("milliseconds")),
     "Sends the same alarm event count times, each after some milliseconds, as 'sim alarm send' "
     "does."},
    {FORWARD(sim_interval_end, "interval=1", {"interval"}),
     "Ends a PM interval now; 1 to 3 are reported."},
    {FORWARD(sim_interval_send, "interval=1", {"interval"}),
     "Sends the report of an interval, whatever its number, without ending anything."},
    {COMMAND(sim_pending, "", {"shown"}),
     "Shows how many notifications subscribers have not dealt with yet, and how many were lost "
     "because 4095 were waiting."},
    {FORWARD(sim_interval_period, "interval=1 seconds=60", {"interval"}, {"seconds"}),
     "Sets how long a PM interval lasts by the device's clock; 0: it only ends on command."},
    {COMMAND(sim_subscriptions, "", {"shown"}),
     "Shows which processes listen to alarms and PM reports, how many events wait for each, and "
     "how many it has lost because 4095 were waiting."},
    {FORWARD(sim_wait_subscribed, "milliseconds=10000 | services=both", OPTIONAL("process"),
             {.name = "services", .optional = true, .type = &SERVICES}, LIMIT),
     "Waits until a process, the given one or any, has subscribed to alarms, to PM reports, to "
     "both "
     "or, when services is left out, to either." WAITS},
    {FORWARD(sim_wait_handled, "", LIMIT),
     "Waits until all subscribers have dealt with all notifications that were sent." WAITS},
    {FORWARD(sim_wait_idle, "quiet=100", {.name = "quiet", .optional = true, .otherwise = 500},
             LIMIT),
     "Waits until no function of the platform has been called for so many milliseconds (quiet, "
     "500) from now on." WAITS},
    {FORWARD(sim_wait_hanging, "calls=1 milliseconds=5000",
             {.name = "calls", .optional = true, .otherwise = 1}, LIMIT),
     "Waits until so many calls (1) hang in a fault." WAITS},
    {FORWARD(sim_subscription_end, "process=0 services=both ending=hangup", {"process"},
             {.name = "services", .type = &SERVICES}, {.name = "ending", .type = &ENDING}),
     "Ends the subscriptions of a process (0: of all) to alarms, PM reports or both: in silence, "
     "or so that their "
     "descriptors report an error or a hang-up and taking notifications fails."},
    {COMMAND(sim_pm_set, "type=pdh number=3 interval=1 counter=layout0.counters.4 value=12", TYPE,
             {"number"}, {"interval"}, {"counter"}, {"value"}),
     "Sets a PM counter of an object in the running interval. The counter is named as 'pdh pm "
     "get', 'pwe pm get' and 'ima pm get' print it, with its index from 0 where it is one of "
     "several: layout0.counters.4; or it is a word by its number, as kv_sim.h counts them."},
    {COMMAND(sim_pm_get, "type=pdh number=3 interval=1 counter=layout0.counters.4", {"value"}, TYPE,
             {"number"}, {"interval"}, {"counter"}),
     "Shows a PM counter of an object in the running interval, named as for 'sim pm set'."},
    {COMMAND(sim_om_set, "type=ima-link number=4 counter=counters.0 value=7", TYPE, {"number"},
             {"counter"}, {"value"}, OPTIONAL("high")),
     "Sets an OM counter of an object, named as 'misc sys_info get', 'pwe om get' and 'ima om get' "
     "print it, with its index from 0: entries.3.counters.1; or by its number, as kv_sim.h counts "
     "them. High is the upper half of its 64 bits."},
    {COMMAND(sim_om_get, "type=ima-link number=4 counter=counters.0", {"shown"}, TYPE, {"number"},
             {"counter"}),
     "Shows all 64 bits of an OM counter of an object, named as for 'sim om set'."},
    {COMMAND(sim_rate_set, "type=pdh number=3 counter=layout0.counters.4 amount=10", TYPE,
             {"number"}, {"counter"}, {"amount"},
             {.name = "milliseconds", .optional = true, .otherwise = 1000},
             {.name = "set", .optional = true, .type = &SET},
             {.name = "growth", .optional = true, .type = &GROWTH}),
     "Lets a counter grow by the amount in so many milliseconds of device time, 1000 when they are "
     "left out, while its object is in service: evenly, or in a burst whenever they are over. A "
     "counter of the set pm, named as for 'sim pm set', grows in all intervals, one of the set om "
     "is named as for 'sim om set'. An amount of 0 ends it."},
    {COMMAND(sim_rate_list, "", {"shown"}), "Shows which counters grow by themselves."},
    {COMMAND(sim_set, "name=temperature value=72", {"name"}, {"value"}),
     "Changes a setting of the device: what it is like, or what it does by itself. 'sim get' shows "
     "all of them."},
    {COMMAND(sim_get, "name=temperature", {"shown"}, OPTIONAL("name")),
     "Shows a setting of the device, or all."},
    {FORWARD(sim_upgrade_fail, "state=4", {"state"}),
     "Makes software loads fail when they reach this state (2 to 5); 0: none fails."},
    {COMMAND(sim_values, "", {"shown"}),
     "Shows what values mean to the simulated device where that is the platform's to say. These "
     "are its own choices: a device may take them otherwise."},
};

} // namespace

std::span<const SimCommand> simCommands()
{
    return COMMANDS;
}

} // namespace vexoctl
