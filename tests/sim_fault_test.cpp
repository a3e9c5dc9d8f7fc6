// What befalls the simulated device when a test asks for it: faults of calls and of notifications,
// subscriptions that end, restarts.
#include "device.h"

#include <kv_alarm.h>
#include <kv_upgrade.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <numeric>
#include <set>
#include <thread>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Codes = std::vector<kvRc>;
using Numbers = std::vector<uint32_t>;

constexpr uint64_t MILLISECOND = 1000;

Numbers received; // the objects of the alarm events, or the intervals
std::vector<alarmEvent> events;

kvSimFault faultOf(const char *function, uint32_t effect, uint32_t value = 0)
{
    kvSimFault fault{};
    strcpy_n(fault.function, function, sizeof fault.function);
    fault.effect = effect;
    fault.value = value;
    return fault;
}

uint32_t armed(const kvSimFault &fault)
{
    const uint32_t id = kv_sim_fault_arm(&fault);
    EXPECT_NE(id, 0U) << kv_sim_error();
    return id;
}

kvSimFault found(uint32_t id)
{
    kvSimFault fault{};
    EXPECT_EQ(kv_sim_fault_find(id, &fault), 0) << kv_sim_error();
    return fault;
}

template <class Condition>
bool soon(Condition condition)
{
    for (int i = 0; i < 30000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    return false;
}

pwConfig pseudowire()
{
    pwConfig config;
    const pwDefaultsKey key{PWE_TYPE_TDM_1, pweEncType{2}};
    EXPECT_EQ(config_get_pw_defaults(&config, &key, 1), KV_OK);
    return config;
}

bool hasPw(uint32_t pwId)
{
    pwConfig config;
    return config_get_pw(&config, pwId) == KV_OK;
}

// The events of a port: 1 is raised, then taken back.
void toggle(uint32_t port)
{
    uint32_t bits = 0;
    EXPECT_EQ(kv_sim_alarm_get(KV_SIM_PDH, port, &bits), 0);
    EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PDH, port, bits ^ 1), 0) << kv_sim_error();
}

short eventsOf(int descriptor)
{
    pollfd waited{descriptor, POLLIN, 0};
    EXPECT_GE(poll(&waited, 1, 0), 0);
    return waited.revents;
}

class Faults : public Device
{
  protected:
    void SetUp() override
    {
        Device::SetUp();
        kv_sim_clock_stop(1);
        kv_sim_clock_set(1700000000'000'000); // no interval ends in the next 100 s
        received.clear();
        events.clear();
        subscribe();
    }
    void subscribe()
    {
        alarms = alarm_notification_sock();
        ASSERT_EQ(alarm_subscribe(0, 0,
                                  [](const alarmEvent *event) {
                                      received.push_back(event->objId);
                                      events.push_back(*event);
                                  }),
                  KV_OK);
        reports = pmom_notification_sock();
        ASSERT_EQ(pmom_subscribe([](pmInterval interval) { received.push_back(interval); }), KV_OK);
    }
    void TearDown() override
    {
        alarm_unsubscribe();
        pmom_unsubscribe();
    }

    // What has come since the last time.
    static Numbers taken()
    {
        received.clear();
        EXPECT_EQ(alarm_process_notification(), KV_OK);
        EXPECT_EQ(pmom_process_notification(), KV_OK);
        return received;
    }

    int alarms = -1, reports = -1;
};

} // namespace

TEST_F(Faults, LoseAnAnswerOrTheEffectOfWhateverChangesSomething)
{
    const pwConfig config = pseudowire();
    const imaParams group{};
    upgradeRequest request{};
    request.mode = UpgradeMode{1};
    strcpy_n(request.fileName, "image", sizeof request.fileName);
    sysOmStat om;
    const auto bitsOf = [](uint32_t type) {
        uint32_t bits = 0;
        EXPECT_EQ(kv_sim_alarm_get(type, 1, &bits), 0);
        return bits;
    };
    const auto counted = [] {
        uint32_t word = 0;
        EXPECT_EQ(kv_sim_pm_get(KV_SIM_PDH, 1, 1, 4, &word), 0);
        return word;
    };
    const struct {
        const char *function;
        std::function<kvRc()> call;
        std::function<bool()> done;
    } rows[] = {
        {"config_system_tpid_set", [] { return config_system_tpid_set(0x9100); },
         [] {
             sysParams params;
             return config_get_system_params(&params) == KV_OK && params.tpid == 0x9100;
         }},
        {"config_add_pw", [&] { return config_add_pw(&config, 1); }, [] { return hasPw(1); }},
        {"config_add_ima", [&] { return config_add_ima(&group, 1); },
         [] {
             imaParams params;
             return config_get_ima_params(&params, 1) == KV_OK;
         }},
        {"alarm_set_status_bits", [] { return alarm_set_status_bits(OBJ_PDH, 3, 3); },
         [&] { return bitsOf(KV_SIM_PDH) == 3; }},
        {"alarm_raise_alarm", [] { return alarm_raise_alarm(OBJ_SYSTEM, 1, 2, 1); },
         [&] { return bitsOf(KV_SIM_SYSTEM) == 4; }},
        {"pmom_pdh_pm_stat_clear", [] { return pmom_pdh_pm_stat_clear(1, pmInterval{1}, 0); },
         [&] { return counted() == 0; }},
        {"pmom_sys_om_stat_get", [&] { return pmom_sys_om_stat_get(&om, 1); },
         [] {
             sysOmStat now;
             return pmom_sys_om_stat_get(&now, 0) == KV_OK && now.words[3] == 0;
         }},
        {"upgrade_load", [&] { return upgrade_load(&request); },
         [] {
             upgradeStatus status;
             return upgrade_status_get(2, &status) == KV_OK && status.state == 2;
         }},
        {"kv_log", [] { return static_cast<kvRc>(kv_log(3, 29, "file", "function", 7, "text")); },
         [] { return kv_sim_log_last() == 1; }},
        {"alarm_subscribe",
         [] {
             alarm_unsubscribe();
             return alarm_subscribe(0, 0, [](const alarmEvent *) {});
         },
         [] {
             kvSimSubscription subscription;
             return kv_sim_subscription_get(0, &subscription) == 0 && subscription.pm == 0;
         }},
    };
    constexpr struct {
        uint32_t effect;
        bool fails, done;
    } EFFECTS[] = {
        {KV_SIM_CODE, true, false}, {KV_SIM_LOST, true, true}, {KV_SIM_NOTHING, false, false}};
    for (const auto &row : rows)
        for (const auto &[effect, fails, done] : EFFECTS)
            for (const bool named : {true, false}) {
                SCOPED_TRACE(std::string{row.function} + " " + std::to_string(effect));
                if (!named && (std::string_view{row.function} == "kv_log" || // has no code
                               std::string_view{row.function} == "alarm_subscribe"))
                    continue;
                ASSERT_EQ(kv_sim_reset(), 0);
                ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, 1, 1, 4, 7), 0);
                ASSERT_EQ(kv_sim_om_set(KV_SIM_SYSTEM, 1, 3, 9), 0);
                ASSERT_FALSE(row.done() && row.function != std::string_view{"alarm_subscribe"});
                const uint32_t id = armed(faultOf(named ? row.function : "", effect, 64));
                EXPECT_EQ(row.call(), fails ? 64U : 0U);
                EXPECT_EQ(found(id).met, 1U);
                ASSERT_EQ(kv_sim_fault_end(id), 0);
                EXPECT_EQ(row.done(), done);
            }
    EXPECT_EQ(om.words[3], 9U) << "told though nothing was done";
}

TEST_F(Faults, OfChangesAreRefusedForWhatChangesNothing)
{
    std::set<std::string> refused;
    for (unsigned i = 0; const char *name = kv_sim_function(i); ++i) {
        const kvSimFault fault = faultOf(name, KV_SIM_LOST, 1);
        if (kv_sim_fault_add(&fault) != 0)
            refused.insert(name);
    }
    for (const std::string &name : refused)
        EXPECT_TRUE(name.find("_get") != std::string::npos || name.ends_with("_sock") ||
                    name.ends_with("_string") || name == "GetObjectCount" || name == "gettimeofday")
            << name;
    for (const char *name : {"config_set_pw", "config_del_ima_link", "forker_box_shutdown",
                             "settimeofday", "pmom_sys_om_stat_get", "pmom_unsubscribe"})
        EXPECT_FALSE(refused.contains(name)) << name;
    for (const char *name :
         {"config_get_pw", "alarm_notification_sock", "kv_rc_to_string", "GetObjectCount"})
        EXPECT_TRUE(refused.contains(name)) << name;
}

TEST_F(Faults, MeetTheCallsThatTheyAreFor)
{
    const pwConfig config = pseudowire();
    pdhParams port, other;
    ASSERT_EQ(config_get_pdh_params(&port, 3), KV_OK);
    port.frameMode = pdhFrameMode{2};
    port.syncAux = 4711;
    uint32_t bits;
    pdhPmStat pm;
    const std::function<kvRc()> calls[] = {
        [&] { return config_set_pdh_params(&port, 3); },
        [&] { return config_add_pw(&config, 3); },
        [&] { return alarm_get_active_bits(OBJ_PDH, 3, &bits); },
        [&] { return alarm_get_active_bits(OBJ_PWE, 3, &bits); },
        [&] { return alarm_set_status_bits(OBJ_PWE, 1, 1); },
        [&] { return pmom_pdh_pm_stat_get(3, pmInterval{2}, 0, &pm); },
        [&] { return config_get_pdh_params(&other, 4); },
    };
    const auto of = [](const char *function, auto change) {
        kvSimFault fault = faultOf(function, KV_SIM_CODE, 64);
        change(fault);
        return fault;
    };
    const auto where = [](kvSimFault &fault, size_t i, const char *name, uint32_t value) {
        strcpy_n(fault.where[i].name, name, sizeof fault.where[i].name);
        fault.where[i].value = value;
    };
    static const char *operation = "vexo_cmi_pdh_params_set";
    const struct {
        kvSimFault fault;
        std::vector<size_t> met;
    } rows[] = {
        {of("", [](auto &) {}), {0, 1, 2, 3, 4, 5, 6}},
        {of("", [](auto &f) { f.object = 3; }), {0, 1, 2, 3, 5}},
        {of("", [](auto &f) { f.object = 3, f.ofType = 1, f.type = KV_SIM_PDH; }), {0, 2, 5}},
        {of("", [](auto &f) { f.ofType = 1, f.type = KV_SIM_PW; }), {1, 3, 4}},
        {of("alarm_get_active_bits", [](auto &f) { f.ofType = 1, f.type = KV_SIM_PW; }), {3}},
        {of("", [](auto &f) { f.ofType = 1, f.type = KV_SIM_SYSTEM; }), {}},
        {of("", [&](auto &f) { where(f, 0, "interval", 2); }), {5}},
        {of("", [&](auto &f) { where(f, 0, "interval", 1); }), {}},
        {of("", [&](auto &f) { where(f, 0, "mask", 1), where(f, 2, "bits", 1); }), {4}},
        {of("", [&](auto &f) { where(f, 0, "mask", 1), where(f, 2, "bits", 2); }), {}},
        {of("config_set_pdh_params", [&](auto &f) { where(f, 0, "params.syncAux", 4711); }), {0}},
        {of("config_set_pdh_params", [&](auto &f) { where(f, 0, "params.frameMode", 1); }), {}},
        {of("config_add_pw", [&](auto &f) { where(f, 0, "config.atmXc.7.xcId2", 0); }), {1}},
        {of("", [](auto &f) { f.process = static_cast<uint32_t>(getpid()), f.object = 4; }), {6}},
        {of("", [](auto &f) { f.process = static_cast<uint32_t>(getppid()); }), {}},
        {of("", [](auto &f) { strcpy_n(f.operation, operation, sizeof f.operation); }), {2}},
        {of("", [](auto &f) { f.nth = 3; }), {2}},
        {of("", [](auto &f) { f.object = 3, f.nth = 5; }), {5}},
        {of("", [](auto &f) { f.skip = 2, f.times = 2; }), {2, 3}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        const auto &[fault, met] = row;
        ASSERT_EQ(kv_sim_reset(), 0);
        const uint32_t id = armed(fault);
        std::vector<size_t> failed;
        for (size_t i = 0; i < std::size(calls); ++i) {
            *kv_sim_operation() = i == 2 ? operation : i == 4 ? "vexo_cmi_pdh_params" : nullptr;
            if (calls[i]() == 64)
                failed.push_back(i);
        }
        *kv_sim_operation() = nullptr;
        EXPECT_EQ(failed, met);
        EXPECT_EQ(found(id).met, met.size());
    }
}

TEST_F(Faults, AreRefusedWithTheReason)
{
    const auto of = [](const char *function, uint32_t effect, auto change) {
        kvSimFault fault = faultOf(function, effect, 1);
        change(fault);
        return fault;
    };
    const auto where = [](const char *name) {
        return [=](kvSimFault &fault) {
            strcpy_n(fault.where[1].name, name, sizeof fault.where[1].name);
        };
    };
    const struct {
        kvSimFault fault;
        const char *reason;
    } rows[] = {
        {of("", KV_SIM_HOLD + 1, [](auto &) {}), "there is no effect"},
        {of("config_get_pw", KV_SIM_NOTHING, [](auto &) {}), "config_get_pw changes nothing"},
        {of("config_get_pw", KV_SIM_CODE, where("pwid")), "config_get_pw has no number 'pwid'"},
        {of("config_add_pw", KV_SIM_CODE, where("config.atmXc.20.xcId1")), "has no number"},
        {of("config_add_pw", KV_SIM_CODE, where("config.dstMac")), "has no number"},
        {of("", KV_SIM_CODE, where("pwid")), "no platform function has"},
        {of("", KV_SIM_DROP, where("interval")), "such a notification has no number 'interval'"},
        {of("alarm_subscribe", KV_SIM_DROP, [](auto &) {}), "not by function"},
        {of("", KV_SIM_DROP, [](auto &f) { f.process = 1; }), "not by function, process"},
        {of("", KV_SIM_DROP, [](auto &f) { f.service = 3; }), "no service 3"},
        {of("", KV_SIM_CODE, [](auto &f) { f.service = 1; }), "only notifications"},
        {of("", KV_SIM_CODE, [](auto &f) { f.nth = 1, f.times = 1; }), "without skip and times"},
        {of("", KV_SIM_CODE, [](auto &f) { f.chance = 1000001; }), "1000001 in a million"},
    };
    for (const auto &[fault, reason] : rows) {
        EXPECT_EQ(kv_sim_fault_arm(&fault), 0U) << reason;
        EXPECT_NE(strstr(kv_sim_error(), reason), nullptr) << kv_sim_error();
    }
    kvSimFault left;
    EXPECT_EQ(kv_sim_fault_get(0, &left), -1);
}

TEST_F(Faults, CountTheNthCallAlsoWhereAnotherOneMeetsIt)
{
    kvSimFault first = faultOf("config_get_temperature", KV_SIM_CODE, 16), third = first,
               same = first;
    first.times = 1;
    third.nth = 3;
    third.value = 32;
    same.nth = 1;
    const uint32_t ids[] = {armed(first), armed(third), armed(same)};
    unsigned temperature;
    Codes codes;
    for (int i = 0; i < 4; ++i)
        codes.push_back(config_get_temperature(&temperature));
    EXPECT_EQ(codes, (Codes{16, 0, 32, 0}));
    kvSimFault fault;
    EXPECT_EQ(kv_sim_fault_get(0, &fault), -1) << "all are spent";
    for (const uint32_t id : ids) {
        EXPECT_EQ(found(id).met, id != ids[2]);
        EXPECT_EQ(found(id).spent, 1U);
    }
}

TEST_F(Faults, AtRandomRepeatThemselvesWhateverElseIsCalled)
{
    kvSimFault chance = faultOf("config_get_temperature", KV_SIM_CODE, 16);
    chance.chance = 250000;
    chance.seed = 5;
    const kvSimFault garbage = faultOf("config_get_sys_link_status", KV_SIM_GARBAGE, 5);
    unsigned temperature;
    sysLinkStatus status;
    const auto run = [&](int others) {
        EXPECT_EQ(kv_sim_reset(), 0);
        const uint32_t id = armed(chance);
        armed(garbage);
        Numbers numbers;
        for (int i = 0; i < 1000; ++i) {
            numbers.push_back(config_get_temperature(&temperature));
            EXPECT_EQ(config_get_sys_link_status(&status), KV_OK);
            numbers.insert(numbers.end(), std::begin(status.words), std::end(status.words));
            for (int k = 0; k < others; ++k)
                kv_log_clear();
        }
        EXPECT_GT(found(id).met, 200U);
        EXPECT_LT(found(id).met, 300U);
        return numbers;
    };
    const Numbers once = run(0);
    EXPECT_EQ(run(1), once);
    chance.seed = 6;
    EXPECT_NE(run(0), once);
    EXPECT_GT((std::set<uint32_t>{once.begin(), once.end()}).size(), 1000U)
        << "garbage of each call";
}

TEST_F(Faults, AreEndedAndReleasedOneByOne)
{
    const auto hangAt = [](uint32_t port) {
        kvSimFault fault = faultOf("config_get_pdh_admin", KV_SIM_HANG);
        fault.object = port;
        return fault;
    };
    const uint32_t ids[] = {armed(hangAt(1)), armed(hangAt(2))};
    std::atomic<uint32_t> returned = 0; // of the second port
    const auto hang = [&](uint32_t port) {
        return std::thread{[&returned, port] {
            adminStatus status;
            EXPECT_EQ(config_get_pdh_admin(&status, port), KV_OK);
            returned += port == 2;
        }};
    };
    std::thread first = hang(1), second = hang(2);
    EXPECT_TRUE(soon([] { return kv_sim_hanging() == 2; }));
    EXPECT_EQ(kv_sim_fault_release(ids[0]), 0);
    first.join();
    EXPECT_EQ(kv_sim_hanging(), 1U);
    EXPECT_EQ(found(ids[1]).waiting, 1U);

    first = hang(1); // it is still there
    EXPECT_TRUE(soon([] { return kv_sim_hanging() == 2; }));
    EXPECT_EQ(kv_sim_fault_end(ids[0]), 0);
    first.join();
    adminStatus status;
    EXPECT_EQ(config_get_pdh_admin(&status, 1), KV_OK);
    EXPECT_EQ(returned, 0U) << "it hangs on";
    EXPECT_EQ(kv_sim_fault_end(ids[1]), 0);
    second.join();
    EXPECT_EQ(kv_sim_hanging(), 0U);
    EXPECT_EQ(found(ids[0]).met, 2U);
    EXPECT_EQ(kv_sim_fault_end(4711), -1);
    EXPECT_EQ(kv_sim_fault_release(0), -1);
}

TEST_F(Faults, Are1024AtMostAndEachCanBeFoundUntilAsManyHaveFollowed)
{
    kvSimFault fault = faultOf("config_get_pdh_admin", KV_SIM_CODE, 8);
    uint32_t last = 0;
    for (uint32_t i = 0; i < 1024; ++i) {
        fault.object = i + 1;
        const uint32_t id = armed(fault);
        EXPECT_GT(id, last);
        last = id;
    }
    EXPECT_EQ(kv_sim_fault_arm(&fault), 0U);
    EXPECT_NE(strstr(kv_sim_error(), "1024 faults"), nullptr) << kv_sim_error();
    adminStatus status;
    EXPECT_EQ(config_get_pdh_admin(&status, 16), 8U);
    const uint32_t gone = last - 1023 + 15;
    EXPECT_EQ(kv_sim_fault_end(gone), 0);
    EXPECT_EQ(config_get_pdh_admin(&status, 16), KV_OK);
    EXPECT_EQ(found(gone).met, 1U);
    EXPECT_EQ(found(gone).object, 16U);
    EXPECT_EQ(kv_sim_fault_get(15, &fault), 0);
    EXPECT_EQ(fault.object, 17U) << "in the order in which they were added";
    fault.object = 16;
    armed(fault);
    EXPECT_EQ(kv_sim_fault_find(gone, &fault), -1);
    EXPECT_EQ(config_get_pdh_admin(&status, 16), 8U);
    EXPECT_EQ(kv_sim_fault_clear(), 0);
    EXPECT_EQ(config_get_pdh_admin(&status, 16), KV_OK);
}

TEST_F(Faults, BefallTheNextNotificationsOfAService)
{
    const struct {
        uint32_t effect;
        Numbers sent;      // of the ports 1 to 5, two of them met
        Numbers releasing; // comes when it is released
    } rows[] = {
        {KV_SIM_DROP, {1, 4, 5}, {}},       {KV_SIM_DOUBLE, {1, 2, 2, 3, 3, 4, 5}, {}},
        {KV_SIM_SWAP, {1, 3, 2, 5, 4}, {}}, {KV_SIM_HOLD, {1, 4, 5}, {2, 3}},
        {KV_SIM_LATE, {1, 4, 5}, {2, 3}},
    };
    for (const bool pm : {false, true})
        for (const auto &[effect, sent, releasing] : rows) {
            SCOPED_TRACE(std::to_string(effect) + (pm ? " pm" : " alarms"));
            kvSimFault fault = faultOf("", effect, 1000);
            fault.service = pm ? KV_SIM_REPORTS : KV_SIM_ALARMS;
            fault.skip = 1;
            fault.times = 2;
            const uint32_t id = armed(fault);
            for (uint32_t i = 1; i <= 5; ++i) {
                if (pm)
                    EXPECT_EQ(kv_sim_interval_send(i), 0);
                else
                    toggle(i);
            }
            EXPECT_EQ(taken(), sent);
            EXPECT_EQ(found(id).waiting, releasing.size());
            EXPECT_EQ(found(id).met, 2U);
            EXPECT_EQ(kv_sim_fault_get(0, &fault), releasing.empty() ? -1 : 0);
            EXPECT_EQ(kv_sim_fault_release(id), 0);
            EXPECT_EQ(taken(), releasing);
            EXPECT_EQ(found(id).waiting, 0U);
            EXPECT_EQ(kv_sim_fault_get(0, &fault), -1);
        }
}

TEST_F(Faults, OfNotificationsMeetThoseThatTheyAreFor)
{
    kvSimFault fault = faultOf("", KV_SIM_DROP);
    fault.ofType = 1;
    fault.type = KV_SIM_PDH;
    strcpy_n(fault.where[0].name, "delta", sizeof fault.where[0].name);
    fault.where[0].value = 4;
    const uint32_t dropping = armed(fault);
    EXPECT_EQ(alarm_raise_alarm(OBJ_PDH, 1, 2, 1), KV_OK); // delta 4
    EXPECT_EQ(alarm_raise_alarm(OBJ_PDH, 2, 1, 1), KV_OK);
    EXPECT_EQ(alarm_raise_alarm(OBJ_SYSTEM, 1, 2, 1), KV_OK);
    uint32_t bits = 0;
    EXPECT_EQ(alarm_get_active_bits(OBJ_PDH, 1, &bits), KV_OK);
    EXPECT_EQ(bits, 4U) << "it is the case";
    EXPECT_EQ(taken(), (Numbers{2, 1}));
    EXPECT_EQ(found(dropping).met, 1U);
    EXPECT_EQ(kv_sim_fault_clear(), 0);

    EXPECT_EQ(kv_sim_alarm_alter(KV_SIM_PDH, 1, 6), 0);
    EXPECT_EQ(alarm_get_active_bits(OBJ_PDH, 1, &bits), KV_OK);
    EXPECT_EQ(bits, 6U);
    EXPECT_EQ(taken(), Numbers{});
    EXPECT_EQ(kv_sim_alarm_set(KV_SIM_PDH, 1, 7), 0);
    EXPECT_EQ(taken(), Numbers{1});
    EXPECT_EQ(events.back().delta, 1U);
}

TEST_F(Faults, DelayNotificationsByDeviceTime)
{
    const auto late = [](uint32_t milliseconds) {
        kvSimFault fault = faultOf("", KV_SIM_LATE, milliseconds);
        fault.times = 1;
        armed(fault);
    };
    late(30000);
    toggle(9);
    late(5000);
    toggle(8);
    EXPECT_EQ(kv_sim_clock_advance(5000 * MILLISECOND - 1), 0);
    EXPECT_EQ(taken(), Numbers{});
    EXPECT_EQ(kv_sim_clock_set(1600000000'000'000), 0); // lets no time pass
    EXPECT_EQ(taken(), Numbers{});
    EXPECT_EQ(kv_sim_clock_advance(1), 0);
    EXPECT_EQ(taken(), Numbers{8});
    toggle(7);
    EXPECT_EQ(kv_sim_clock_advance(25000 * MILLISECOND), 0);
    EXPECT_EQ(taken(), (Numbers{7, 9}));
    late(1000);
    toggle(6);
    EXPECT_EQ(kv_sim_wait_handled(0), 0) << "the clock stands";

    // By the running clock it wakes who waits.
    ASSERT_EQ(kv_sim_clock_stop(0), 0);
    EXPECT_EQ(kv_sim_wait_handled(0), -1);
    EXPECT_STREQ(kv_sim_error(), "a fault still delays 1 notifications");
    EXPECT_EQ(kv_sim_fault_clear(), 0);
    EXPECT_EQ(taken(), Numbers{6});
    late(20);
    toggle(5);
    EXPECT_TRUE(soon([&] { return eventsOf(alarms) != 0 && !taken().empty(); }));
    EXPECT_EQ(received, Numbers{5});
}

TEST_F(Faults, KeepAThousandNotificationsAndCountWhatComesThenAsLost)
{
    kvSimFault fault = faultOf("", KV_SIM_HOLD);
    const uint32_t id = armed(fault);
    EXPECT_EQ(alarm_set_status_bits(OBJ_PDH, 1, 1), KV_OK); // sixteen events
    EXPECT_EQ(found(id).waiting, 16U);
    for (int i = 0; i < 1100; ++i)
        toggle(1);
    EXPECT_EQ(found(id).waiting, 1024U);
    uint32_t waiting;
    uint64_t lost;
    EXPECT_EQ(kv_sim_pending(&waiting, &lost), 0);
    EXPECT_EQ(lost, 1100U + 16 - 1024);
    EXPECT_EQ(kv_sim_fault_end(id), 0);
    Numbers ports(16);
    std::iota(ports.begin(), ports.end(), 1);
    ports.resize(1024, 1);
    EXPECT_EQ(taken(), ports);
}

TEST_F(Faults, EndASubscriptionInSilenceOrSoThatItsDescriptorTellsIt)
{
    constexpr struct {
        uint32_t ending;
        short told;
    } ROWS[] = {{KV_SIM_SILENCE, 0}, {KV_SIM_ERROR, POLLERR}, {KV_SIM_HANGUP, POLLHUP}};
    for (const auto &[ending, told] : ROWS)
        for (const uint32_t service : {KV_SIM_ALARMS, KV_SIM_REPORTS}) {
            SCOPED_TRACE(std::to_string(ending) + " " + std::to_string(service));
            const bool pm = service == KV_SIM_REPORTS;
            int &descriptor = pm ? reports : alarms;
            const auto process = pm ? pmom_process_notification : alarm_process_notification;
            EXPECT_EQ(kv_sim_subscription_end(1, service, ending), -1) << "of another process";
            EXPECT_EQ(kv_sim_subscription_end(static_cast<uint32_t>(getpid()), service, ending), 0);
            EXPECT_EQ(kv_sim_subscription_end(static_cast<uint32_t>(getpid()), service, ending), -1)
                << "there is none left";
            pm ? kv_sim_interval_send(1) : kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
            EXPECT_EQ(eventsOf(descriptor) & POLLIN, told ? POLLIN : 0);
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(process(), told ? KV_FAILURE : KV_OK);
                EXPECT_EQ(eventsOf(descriptor) & ~POLLIN, told);
            }
            pm ? pmom_unsubscribe() : alarm_unsubscribe();
            descriptor = pm ? pmom_notification_sock() : alarm_notification_sock();
            received.clear();
            if (pm)
                EXPECT_EQ(pmom_subscribe([](pmInterval i) { received.push_back(i); }), KV_OK);
            else
                EXPECT_EQ(alarm_subscribe(
                              0, 0, [](const alarmEvent *e) { received.push_back(e->objId); }),
                          KV_OK);
            EXPECT_EQ(eventsOf(descriptor), 0);
            pm ? kv_sim_interval_send(2) : kv_sim_alarm_send(KV_SIM_PDH, 2, 1, 1);
            EXPECT_EQ(eventsOf(descriptor), POLLIN);
            EXPECT_EQ(process(), KV_OK);
            EXPECT_EQ(received, Numbers{2});
        }
}

TEST_F(Faults, RestartTheDeviceWhichComesBackAsItWasAskedFor)
{
    constexpr uint64_t BACK = 1000 * MILLISECOND;
    for (const bool keeps : {false, true}) {
        SCOPED_TRACE(keeps);
        TearDown();
        Faults::SetUp();
        const pwConfig config = pseudowire();
        ASSERT_EQ(config_add_pw(&config, 7), KV_OK);
        ASSERT_EQ(config_system_tpid_set(0x9100), KV_OK);
        ASSERT_EQ(kv_sim_alarm_set(KV_SIM_PDH, 3, 5), 0);
        ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, 3, 1, 4, 12), 0);
        ASSERT_EQ(kv_sim_om_set(KV_SIM_SYSTEM, 1, 3, 9), 0);
        ASSERT_EQ(kv_sim_interval_end(1), 0);
        const pdhLpbk loopback{lpbk{2}, {}};
        ASSERT_EQ(config_set_pdh_lpbk(&loopback, 3), KV_OK);
        upgradeRequest request{};
        request.mode = UpgradeMode{1};
        strcpy_n(request.fileName, "image", sizeof request.fileName);
        ASSERT_EQ(upgrade_load(&request), KV_OK);
        const uint32_t id = armed(faultOf("config_get_temperature", KV_SIM_CODE, 8));
        const uint32_t hanging = armed(faultOf("config_get_pwe_if", KV_SIM_HANG));
        const uint32_t holding = armed(faultOf("", KV_SIM_HOLD));
        toggle(4);
        std::thread hung{[] {
            pweIf interface;
            EXPECT_EQ(config_get_pwe_if(&interface), KV_FAILURE);
        }};
        EXPECT_TRUE(soon([] { return kv_sim_hanging() == 1; }));
        const uint64_t before = kv_sim_clock_get();
        const kvSimReboot reboot{1000, keeps, keeps, keeps, keeps, 0};
        ASSERT_EQ(kv_sim_reboot(&reboot), 0);
        hung.join();
        EXPECT_EQ(kv_sim_away(), 1000U);
        unsigned temperature;
        EXPECT_EQ(config_get_temperature(&temperature), KV_FAILURE);
        EXPECT_STREQ(config_get_error_string(), "the device is restarting");
        EXPECT_EQ(GetObjectCount(OBJ_PDH), 0U);
        EXPECT_EQ(alarm_subscribe(0, 0, nullptr), KV_FAILURE);
        for (const int descriptor : {alarms, reports})
            EXPECT_EQ(eventsOf(descriptor), POLLIN);
        EXPECT_EQ(alarm_process_notification(), KV_FAILURE);
        EXPECT_EQ(pmom_process_notification(), KV_FAILURE);
        for (const int descriptor : {alarms, reports})
            EXPECT_EQ(eventsOf(descriptor), POLLIN | POLLHUP);
        EXPECT_EQ(kv_sim_clock_advance(BACK - 1), 0);
        EXPECT_EQ(config_get_temperature(&temperature), KV_FAILURE);
        EXPECT_EQ(kv_sim_clock_advance(1), 0);
        EXPECT_EQ(kv_sim_away(), 0U);

        EXPECT_EQ(kv_sim_clock_get(), keeps ? 0 : before + BACK);
        EXPECT_EQ(config_get_temperature(&temperature), keeps ? 8U : 0U);
        EXPECT_EQ(kv_sim_fault_end(hanging), 0);
        EXPECT_EQ(found(id).spent, 0U);
        EXPECT_EQ(found(holding).waiting, 0U);
        EXPECT_EQ(hasPw(7), keeps);
        sysParams params;
        EXPECT_EQ(config_get_system_params(&params), KV_OK);
        EXPECT_EQ(params.tpid, keeps ? 0x9100 : 0x8100);
        EXPECT_STREQ(params.text410, "VG-16");
        uint32_t bits = 0;
        EXPECT_EQ(alarm_get_active_bits(OBJ_PDH, 3, &bits), KV_OK);
        EXPECT_EQ(bits, 5U);
        pdhPmStat pm;
        EXPECT_EQ(pmom_pdh_pm_stat_get(3, pmInterval{1}, 0, &pm), KV_OK);
        EXPECT_EQ(pm.line[3], 0U);
        EXPECT_EQ(pmom_pdh_pm_stat_get(3, pmInterval{1}, 1, &pm), KV_NO_COUNTERS);
        sysOmStat om;
        EXPECT_EQ(pmom_sys_om_stat_get(&om, 0), KV_OK);
        EXPECT_EQ(om.words[3], 0U);
        pdhLpbk looped;
        EXPECT_EQ(config_get_pdh_lpbk(&looped, 3), KV_OK);
        EXPECT_EQ(looped.lpbk, 1U);
        upgradeStatus load;
        EXPECT_EQ(upgrade_status_get(2, &load), KV_OK);
        EXPECT_EQ(load.state, 1U);
        kvSimCall first;
        EXPECT_EQ(kv_sim_journal_get(1, &first), 0);
        EXPECT_EQ(first.function == std::string_view{"alarm_notification_sock"}, keeps);
        TearDown();
        subscribe();
        EXPECT_EQ(kv_sim_fault_clear(), 0);
        EXPECT_EQ(taken(), Numbers{}) << "what was kept is gone";
    }
}

TEST_F(Device, HearsNoServiceAfterARestartUntilItIsRegisteredAnewOnceTheDeviceIsBack)
{
    static std::atomic<int> heard;
    heard = 0;
    const auto listen = [] {
        vexo_cmi_alarm_callback_unregister();
        vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) { ++heard; });
    };
    const auto send = [] {
        EXPECT_EQ(kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1), 0);
        EXPECT_EQ(kv_sim_wait_handled(30000), 0) << kv_sim_error();
    };
    const auto subscriptions = [this] { return std::ranges::count(calls(), "alarm_subscribe"); };
    kv_sim_clock_stop(1);
    mark();
    listen();
    ASSERT_EQ(kv_sim_wait_subscribed(0, KV_SIM_ALARMS, 30000), 0) << kv_sim_error();
    send();
    EXPECT_EQ(heard, 1);

    const kvSimReboot reboot{60000, 1, 1, 1, 0, 0};
    ASSERT_EQ(kv_sim_reboot(&reboot), 0);
    EXPECT_EQ(kv_sim_wait_subscribed(0, KV_SIM_ALARMS, 0), -1);
    listen();
    EXPECT_TRUE(soon([&] { return subscriptions() == 2; }));
    ASSERT_EQ(kv_sim_clock_advance(60000 * MILLISECOND), 0);
    send();
    EXPECT_EQ(kv_sim_wait_subscribed(0, KV_SIM_ALARMS, 0), -1) << "it was refused while away";
    EXPECT_EQ(heard, 1);
    listen();
    EXPECT_EQ(kv_sim_wait_subscribed(0, KV_SIM_ALARMS, 30000), 0) << kv_sim_error();
    send();
    EXPECT_EQ(heard, 2);
    vexo_cmi_fini();
}
