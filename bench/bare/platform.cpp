#include "bare.h"
#include "channel.h"

#include <platform.h>

#include <cstdlib>
#include <cstring>

uint32_t bareFailIn;
kvRc bareFailCode;
BareObjects bareObjects{16, PW_PROV_MAX, 8};

namespace bare
{

namespace
{

kvRc answer()
{
    return bareFailIn && --bareFailIn == 0 ? bareFailCode : KV_OK;
}

// There is one of each record, but for those below.
template <class Record>
Record stored{};

template <>
eqptMode stored<eqptMode>{1};
template <>
operState stored<operState>{1};
template <>
alarmMode stored<alarmMode>{2};
template <>
sysLinkStatus stored<sysLinkStatus>{{1, 2, 1, 1, 1, 1, 1}};
template <>
upgradeStatus stored<upgradeStatus>{{}, {}, {}, {}, "a file name of some length", {}};

pdhParams ports[17];
pwConfig pws[PW_PROV_MAX + 1];
imaParams groups[10];

// Port 2 has the line counters in their other arrangement; of the pseudowires, 3 and 4 of every
// four have ATM counters.
pdhPmStat portPm[17]{{}, {}, {{}, 1, {}, {}}};
constexpr pwPmStats PW_PM[] = {{{}, PW_PM_ATM, {}}, {{}, PW_PM_GENERIC, {}}};

Channel<alarmEvent, void (*)(const alarmEvent *)> alarms;
Channel<pmInterval, void (*)(pmInterval)> reports;

// Texts that fill their fields, and a full set of objects.
[[maybe_unused]] const bool filled = [] {
    sysParams &sys = stored<sysParams>;
    memset(sys.text328, 'a', sizeof sys.text328 - 1);
    memset(sys.text410, 'b', sizeof sys.text410 - 1);
    memset(sys.text425, 'c', sizeof sys.text425 - 1);
    memset(sys.text446, 'd', sizeof sys.text446 - 1);
    memset(sys.text461, 'e', sizeof sys.text461 - 1);
    sys.number = 4321 * 10000 + 8765;
    for (swVersion *version : {&stored<swVersion>, &stored<sysStatus>.version})
        for (auto &text : version->text)
            memset(text, 'v', sizeof text - 1);
    memset(stored<debugInfo>.text, 'i', sizeof stored<debugInfo>.text);
    pwProvList &list = stored<pwProvList>;
    for (uint32_t i = 0; i < PW_PROV_MAX; ++i)
        list.pwIds[i] = static_cast<uint16_t>(i + 1);
    return true;
}();

template <class Record>
kvRc copy(Record *to, const Record *from)
{
    const kvRc code = answer();
    if (code == KV_OK)
        *to = *from;
    return code;
}

// What a function does that has no body of its own: an answer is copied out of the stored record,
// what is given into it.
template <class Record>
void treat(Record *out)
{
    *out = stored<Record>;
}

template <class Record>
void treat(const Record *in)
{
    stored<Record> = *in;
}

void treat(const unsigned char *mac)
{
    memcpy(stored<pweIf>.srcMac, mac, sizeof stored<pweIf>.srcMac);
}

void treat(uint32_t) {}

template <class Function>
struct Generic;

template <class... Arguments>
struct Generic<kvRc (*)(Arguments...)> {
    static kvRc call(Arguments... arguments)
    {
        const kvRc code = answer();
        if (code == KV_OK)
            (treat(arguments), ...);
        return code;
    }
};

template <class... Arguments>
struct Generic<const char *(*)(Arguments...)> {
    static const char *call(Arguments...) { return "the bare platform's text"; }
};

// Of the objects that there are several of.
template <auto &table>
struct Table {
    using Record = std::remove_extent_t<std::remove_reference_t<decltype(table)>>;
    static kvRc call(Record *out, uint32_t object) { return copy(out, &table[object]); }
    static kvRc call(const Record *in, uint32_t object) { return copy(&table[object], in); }
};

template <auto &channel>
struct Descriptor {
    static int call() { return channel.descriptor(); }
};

template <auto &channel>
struct Process {
    static kvRc call()
    {
        auto event = channel.take();
        if (!event)
            return KV_FAILURE;
        channel.deliver(*event);
        return KV_OK;
    }
};

template <auto &channel>
struct Unsubscribe {
    static kvRc call()
    {
        channel.unsubscribe();
        return answer();
    }
};

template <auto function>
struct Body : Generic<decltype(function)> {
};

// clang-format off
template <> struct Body<&config_get_pdh_params> : Table<ports> {};
template <> struct Body<&config_set_pdh_params> : Table<ports> {};
template <> struct Body<&config_get_pw> : Table<pws> {};
template <> struct Body<&config_add_pw> : Table<pws> {};
template <> struct Body<&config_set_pw> : Table<pws> {};
template <> struct Body<&config_get_ima_params> : Table<groups> {};
template <> struct Body<&config_set_ima_params> : Table<groups> {};
template <> struct Body<&config_add_ima> : Table<groups> {};
template <> struct Body<&alarm_notification_sock> : Descriptor<alarms> {};
template <> struct Body<&alarm_process_notification> : Process<alarms> {};
template <> struct Body<&alarm_unsubscribe> : Unsubscribe<alarms> {};
template <> struct Body<&pmom_notification_sock> : Descriptor<reports> {};
template <> struct Body<&pmom_process_notification> : Process<reports> {};
template <> struct Body<&pmom_unsubscribe> : Unsubscribe<reports> {};
// clang-format on

template <>
struct Body<&pmom_pdh_pm_stat_get> {
    static kvRc call(uint32_t port, pmInterval, uint32_t, pdhPmStat *out)
    {
        return copy(out, &portPm[port]);
    }
};

template <>
struct Body<&pmom_pw_pm_stat_get> {
    static kvRc call(uint32_t pwId, pmInterval, uint32_t, pwPmStats *out)
    {
        return copy(out, &PW_PM[(pwId - 1) % 4 < 2]);
    }
};

template <>
struct Body<&config_get_pw_all_prov> {
    static kvRc call(pwProvList *out)
    {
        stored<pwProvList>.count = static_cast<uint16_t>(bareObjects.pws);
        return copy(out, &stored<pwProvList>);
    }
};

template <>
struct Body<&GetObjectCount> {
    static uint32_t call(objType type)
    {
        return type == OBJ_PDH ? bareObjects.ports : bareObjects.groups;
    }
};

template <>
struct Body<&alarm_subscribe> {
    static kvRc call(uint32_t, uint32_t, void (*handler)(const alarmEvent *))
    {
        alarms.subscribe(handler);
        return answer();
    }
};

template <>
struct Body<&pmom_subscribe> {
    static kvRc call(void (*handler)(pmInterval))
    {
        reports.subscribe(handler);
        return answer();
    }
};

} // namespace

} // namespace bare

using bare::Body;

extern "C" {

#define STAND_IN(library, kind, returns, function, ...)                                            \
    PLATFORM_DEFINE(Body<&function>::call, function, __VA_ARGS__)
LIBRARY_FUNCTIONS(STAND_IN)

int kv_log(int, int, const char *, const char *, int, const char *, ...)
{
    return 0;
}

static timeval deviceTime{1000000, 0};

int settimeofday(const timeval *time, const struct timezone *) noexcept
{
    return bare::copy(&deviceTime, time) == KV_OK ? 0 : -1;
}

int gettimeofday(timeval *time, void *) noexcept
{
    *time = deviceTime;
    return 0;
}
}

void bareClockAdvance(uint32_t seconds)
{
    deviceTime.tv_sec += seconds;
}

void bareAlarmSend(const alarmEvent *event)
{
    bare::alarms.send(*event);
}

void barePmSend(pmInterval interval)
{
    bare::reports.send(interval);
}

void bareAlarmDeliver(const alarmEvent *event)
{
    bare::alarms.deliver(*event);
}

void barePmDeliver(pmInterval interval)
{
    bare::reports.deliver(interval);
}

int bareAlarmSubscribed(void)
{
    return bare::alarms.subscribed();
}

int barePmSubscribed(void)
{
    return bare::reports.subscribed();
}
