// What the simulated device does by itself.
#include "device.h"

#include <kv_alarm.h>
#include <kv_upgrade.h>

#include <functional>
#include <map>

namespace
{

constexpr uint64_t SECOND = 1000000;

std::vector<alarmEvent> received;

class Behaviour : public Device
{
  protected:
    void SetUp() override
    {
        Device::SetUp();
        kv_sim_clock_stop(1);
        received.clear();
        EXPECT_EQ(
            alarm_subscribe(0, 0, [](const alarmEvent *event) { received.push_back(*event); }),
            KV_OK);
    }
    void TearDown() override { alarm_unsubscribe(); }

    static void set(const std::string &name, const std::string &value)
    {
        EXPECT_EQ(kv_sim_set(name.c_str(), value.c_str()), 0) << kv_sim_error();
    }

    static std::string get(const std::string &name)
    {
        char value[128];
        return kv_sim_get(name.c_str(), value, sizeof value) == 0 ? value : kv_sim_error();
    }

    static uint32_t alarms(uint32_t type, uint32_t number)
    {
        uint32_t bits = 0;
        EXPECT_EQ(kv_sim_alarm_get(type, number, &bits), 0) << kv_sim_error();
        return bits;
    }

    // The alarm events since the last time, each as "type number status delta".
    static Names events()
    {
        received.clear();
        EXPECT_EQ(alarm_process_notification(), KV_OK);
        Names all;
        for (const alarmEvent &event : received) {
            char text[64];
            snprintf(text, sizeof text, "%u %u %x %x", event.objType, event.objId, event.status,
                     event.delta);
            all.push_back(text);
        }
        return all;
    }

    void putPort(uint32_t port, uint32_t status)
    {
        vexo_cmi_pdh_admin_set(vexoAdminStatus{status}, port, &result);
        EXPECT_OK(result);
    }

    void putPw(uint32_t pwId, uint32_t circuit, vexoPweAction action = VEXO_PWE_ACTION_CREATE)
    {
        vexoPweParams params = newPwe(VEXO_PWE_TYPE_TDM_1);
        params.pweAction = action;
        params.service.t1.circuit = circuit;
        vexo_cmi_pwe_params_set(&params, pwId, &result);
        EXPECT_OK(result);
    }

    void loopPort(uint32_t port, uint32_t loopback)
    {
        vexo_cmi_pdh_lpbk_set(vexoLpbk{loopback}, port, &result);
        EXPECT_OK(result);
    }

    vexoModuleState systemState()
    {
        vexoModuleState state{};
        vexo_cmi_sys_oper_state_get(&state, &result);
        EXPECT_OK(result);
        vexoSysStatus status{};
        vexo_cmi_sys_status_get(&status, &result);
        EXPECT_EQ(status.state, state);
        return state;
    }
};

// Each cause: what has to be there first, what brings it about and what ends it; the alarms are
// told by one event each.
TEST_F(Behaviour, RaisesAnAlarmWithItsCauseAndClearsItWithIt)
{
    const auto temperature = [&](uint32_t first, uint32_t second) {
        vexo_cmi_sys_temp_set(first, second, &result);
        EXPECT_OK(result);
    };
    const auto loopSystem = [&](uint32_t loopback) {
        vexo_cmi_misc_sys_lbk_set(vexoLpbk{loopback}, &result);
    };
    const struct {
        const char *told;
        const char *setting; // that has to be on; null: none
        uint32_t type, number, bits;
        std::function<void()> first, begin, end;
    } causes[] = {
        {"a port without signal is taken into service", nullptr, KV_SIM_PDH, 3, 1U << 14,
         [&] { set("signal.3", "off"); }, [&] { putPort(3, 1); }, [&] { putPort(3, 2); }},
        {"a port in service loses its signal", nullptr, KV_SIM_PDH, 3, 1U << 14,
         [&] { putPort(3, 1); }, [&] { set("signal.3", "off"); }, [&] { set("signal.3", "on"); }},
        {"a port has a loopback", "loopback-alarms", KV_SIM_PDH, 16, 1U << 15, [&] {},
         [&] { loopPort(16, 2); }, [&] { loopPort(16, 1); }},
        {"the system has a loopback", "loopback-alarms", KV_SIM_SYSTEM, 1, 1U << 10, [&] {},
         [&] { loopSystem(3); }, [&] { loopSystem(1); }},
        {"loopbacks end with a shutdown", "loopback-alarms", KV_SIM_SYSTEM, 1, 1U << 10, [&] {},
         [&] { loopSystem(3); }, [&] { vexo_cmi_sys_reset(&result); }},
        {"a second pseudowire takes the circuit", "circuit-alarms", KV_SIM_PW, 1, 1U << 4,
         [&] { putPw(1, 5); }, [&] { putPw(1024, 5); },
         [&] { EXPECT_EQ(config_del_pw(1024), KV_OK); }},
        {"the pseudowire moves to another's circuit", "circuit-alarms", KV_SIM_PW, 2, 1U << 4,
         [&] { putPw(1, 500), putPw(2, 6); }, [&] { putPw(2, 500, VEXO_PWE_ACTION_MODIFY); },
         [&] { putPw(1, 7, VEXO_PWE_ACTION_MODIFY); }},
        {"a pseudowire is created on a port that is down", "port-alarms", KV_SIM_PW, 1, 1U << 3,
         [&] {}, [&] { putPw(1, 4); }, [&] { putPort(4, 1); }},
        {"the port of a pseudowire goes into test", "port-alarms", KV_SIM_PW, 1, 1U << 3,
         [&] { putPort(4, 1), putPw(1, 4); }, [&] { loopPort(4, 2); }, [&] { loopPort(4, 1); }},
        {"the port of a pseudowire gets an alarm", "port-alarms", KV_SIM_PW, 1, 1U << 3,
         [&] { putPort(4, 1), putPw(1, 4); }, [&] { vexo_cmi_pdh_alarms_set(1, &result); },
         [&] { vexo_cmi_pdh_alarms_set(0, &result); }},
        {"a group has no link yet", "link-alarms", KV_SIM_GROUP, 2, 1U << 9, [&] {},
         [&] { createGroup(2, {}); }, [&] { vexo_cmi_ima_lnk_add(9, 2, &result); }},
        {"a group has fewer links up than it needs", "link-alarms", KV_SIM_GROUP, 2, 1U << 9,
         [&] {
             set("links-needed.2", "2"), createGroup(2, {7, 8});
         },
         [&] { kv_sim_alarm_set(KV_SIM_LINK, 8, 1U << 16); },
         [&] { kv_sim_alarm_set(KV_SIM_LINK, 8, 0); }},
        {"a link leaves the group", "link-alarms", KV_SIM_GROUP, 2, 1U << 9,
         [&] { createGroup(2, {7}); }, [&] { vexo_cmi_ima_lnk_delete(7, 2, &result); },
         [&] { set("links-needed.2", "0"); }},
        {"it is warm", nullptr, KV_SIM_SYSTEM, 1, 1U << 11, [&] {},
         [&] { set("temperature", "70"); }, [&] { set("temperature", "69"); }},
        {"it is hot", nullptr, KV_SIM_SYSTEM, 1, 3U << 11, [&] {},
         [&] { set("temperature", "85"); }, [&] { temperature(86, 90); }},
    };
    for (const auto &cause : causes) {
        SCOPED_TRACE(cause.told);
        for (const bool on : {false, true}) {
            Device::SetUp();
            const uint32_t bits = on || !cause.setting ? cause.bits : 0;
            if (cause.setting && on)
                set(cause.setting, "on");
            cause.first();
            const std::string object =
                std::to_string(cause.type) + " " + std::to_string(cause.number) + " ";
            const auto told = [&](const char *form) {
                char text[64];
                snprintf(text, sizeof text, form, bits, bits);
                return bits ? Names{object + text} : Names{};
            };
            const auto happened = [&] {
                Names all = events();
                std::erase_if(all, [&](const auto &event) { return !event.starts_with(object); });
                return all;
            };
            happened();
            cause.begin();
            EXPECT_EQ(happened(), told("%x %x"));
            EXPECT_EQ(alarms(cause.type, cause.number), bits);
            cause.end();
            EXPECT_EQ(happened(), told("0 %x"));
            EXPECT_EQ(alarms(cause.type, cause.number), 0U);
        }
    }
}

TEST_F(Behaviour, RaisesAndClearsNoAlarmsButItsOwn)
{
    putPort(3, 1);
    set("signal.3", "off");
    vexo_cmi_pdh_alarms_set(0x8001, &result);
    EXPECT_EQ(alarms(KV_SIM_PDH, 3), 0x8001U);
    set("signal.3", "on");
    set("loopback-alarms", "on");
    EXPECT_EQ(alarms(KV_SIM_PDH, 3), 0x8001U);
    events();
    set("signal.3", "off");
    EXPECT_EQ(events(), Names{"1 3 c001 4000"});
    kv_sim_alarm_set(KV_SIM_PDH, 3, 0);
    config_set_pdh_admin(adminStatus{2}, 3);
    EXPECT_EQ(alarms(KV_SIM_PDH, 3), 0U) << "cleared by hand, it is back with its next cause only";
}

// Whatever is there when a behaviour is switched on or off counts as if it came or went then.
TEST_F(Behaviour, FindsTheCausesThatAreThereWhenItIsSwitched)
{
    putPw(1, 5);
    putPw(2, 5);
    putPw(3, 6);
    putPort(6, 1);
    createGroup(1, {});
    loopPort(8, 2);
    vexo_cmi_misc_sys_lbk_set(VEXO_LPBK_2, &result);
    EXPECT_EQ(events(), Names{});
    set("behaviours", "on");
    EXPECT_EQ(events(),
              (Names{"0 1 400 400", "1 8 8000 8000", "3 1 18 18", "3 2 18 18", "2 1 200 200"}));
    EXPECT_EQ(systemState(), VEXO_MODULE_STATE_2);
    set("circuit-alarms", "off");
    EXPECT_EQ(events(), (Names{"3 1 8 10", "3 2 8 10"}));
    EXPECT_EQ(get("behaviours"), "some");
    set("behaviours", "off");
    EXPECT_EQ(events(), (Names{"0 1 0 400", "1 8 0 8000", "3 1 0 8", "3 2 0 8", "2 1 0 200"}));
    EXPECT_EQ(systemState(), VEXO_MODULE_STATE_3);
}

TEST_F(Behaviour, LetsTheSystemsStateFollowItsAlarmsAndItsLoopback)
{
    const auto loop = [&](vexoLpbk loopback) { vexo_cmi_misc_sys_lbk_set(loopback, &result); };
    for (const bool follows : {false, true}) {
        set("system-state", follows ? "on" : "off");
        const auto expect = [&](vexoModuleState state) {
            EXPECT_EQ(systemState(), follows ? state : VEXO_MODULE_STATE_3);
        };
        for (uint32_t bit = 0; bit < 15; ++bit) {
            vexo_cmi_sys_alarm_set(1U << bit, &result);
            SCOPED_TRACE(bit);
            expect(bit == 11 || bit == EV_LOG_FULL_ALM ? VEXO_MODULE_STATE_3 : VEXO_MODULE_STATE_1);
        }
        loop(VEXO_LPBK_3);
        expect(VEXO_MODULE_STATE_2);
        loop(VEXO_LPBK_1);
        vexo_cmi_sys_alarm_set(0, &result);
        expect(VEXO_MODULE_STATE_3);
    }
}

class Growth : public Behaviour
{
  protected:
    void SetUp() override
    {
        Behaviour::SetUp();
        kv_sim_clock_set(1700006400 * SECOND); // a day begins
    }

    static void grows(uint32_t type, uint32_t number, uint32_t om, uint32_t counter,
                      uint32_t amount, uint32_t milliseconds, uint32_t burst = 0)
    {
        const kvSimRate rate{type, number, om, counter, amount, milliseconds, burst};
        EXPECT_EQ(kv_sim_rate_set(&rate), 0) << kv_sim_error();
    }

    static void pass(uint64_t milliseconds)
    {
        EXPECT_EQ(kv_sim_clock_advance(milliseconds * 1000), 0) << kv_sim_error();
    }

    uint32_t ofPort(uint32_t port, vexoPmType type = VEXO_PM_TYPE_1)
    {
        vexoPdhPm pm{};
        vexo_cmi_pdh_pm_get(&pm, type, port, &result);
        EXPECT_OK(result);
        return pm.lineCounters[0];
    }

    uint32_t ended(uint32_t port, uint32_t interval = 1)
    {
        pdhPmStat stat{};
        EXPECT_EQ(pmom_pdh_pm_stat_get(port, pmInterval{interval}, 1, &stat), KV_OK);
        return stat.line[0];
    }
};

TEST_F(Growth, IsEvenOrInBurstsWhileTheObjectIsInService)
{
    grows(KV_SIM_PDH, 1, 0, 1, 7, 2000);
    grows(KV_SIM_PDH, 2, 0, 1, 7, 2000, 1);
    pass(10000);
    EXPECT_EQ(ofPort(1) + ofPort(2), 0U) << "not in service yet";
    putPort(1, 1);
    putPort(2, 1);
    const struct {
        uint64_t milliseconds;
        uint32_t even, burst;
    } steps[] = {{500, 1, 0}, {500, 3, 0}, {999, 6, 0}, {1, 7, 7}, {1999, 13, 7}, {6001, 35, 35}};
    for (const auto &step : steps) {
        pass(step.milliseconds);
        EXPECT_EQ(ofPort(1), step.even);
        EXPECT_EQ(ofPort(2), step.burst);
    }
    pass(1000);
    kv_sim_alarm_set(KV_SIM_PDH, 2, 1);
    pass(60000);
    EXPECT_EQ(ofPort(2), 35U) << "an alarm has taken it down";
    kv_sim_alarm_set(KV_SIM_PDH, 2, 0);
    pass(999);
    EXPECT_EQ(ofPort(2), 35U);
    pass(1);
    EXPECT_EQ(ofPort(2), 42U);
    grows(KV_SIM_PDH, 2, 0, 1, 0, 1);
    pass(60000);
    EXPECT_EQ(ofPort(2), 42U) << "ended";
    kvSimRate rate;
    EXPECT_EQ(kv_sim_rate_get(0, &rate), 0);
    EXPECT_EQ(std::tuple(rate.type, rate.number, rate.amount), std::tuple(KV_SIM_PDH, 1U, 7U));
    EXPECT_EQ(kv_sim_rate_get(1, &rate), -1);
    // The clock can be set without time passing.
    const uint32_t before = ofPort(1);
    kv_sim_clock_set(1800000000 * SECOND);
    EXPECT_EQ(ofPort(1), before);
}

TEST_F(Growth, ReachesEveryCounterThatCanBeReadAndWrapsAroundAtItsEnd)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_ATM_3, 1024);
    createGroup(8, {64});
    vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, 16, &result);
    const struct {
        uint32_t type, number, om, first, last;
        uint64_t end;
    } rows[] = {
        {KV_SIM_PDH, 16, 0, 1, 18, UINT32_MAX},  {KV_SIM_PW, 1, 0, 1, 14, UINT32_MAX},
        {KV_SIM_PW, 1024, 0, 1, 14, UINT32_MAX}, {KV_SIM_GROUP, 8, 0, 0, 5, UINT32_MAX},
        {KV_SIM_LINK, 64, 0, 0, 17, UINT32_MAX}, {KV_SIM_SYSTEM, 1, 1, 0, 73, UINT32_MAX},
        {KV_SIM_PW, 1024, 1, 0, 44, UINT64_MAX}, {KV_SIM_GROUP, 8, 1, 0, 1, UINT64_MAX},
        {KV_SIM_LINK, 64, 1, 0, 7, UINT64_MAX},
    };
    for (const auto &row : rows)
        for (uint32_t counter = row.first; counter <= row.last; ++counter) {
            SCOPED_TRACE(testing::Message() << row.type << " " << row.om << " " << counter);
            grows(row.type, row.number, row.om, counter, 10 + counter, 1000);
            if (row.om) {
                EXPECT_EQ(kv_sim_om_set(row.type, row.number, counter, row.end), 0);
            } else {
                for (uint32_t interval = 1; interval <= 4; ++interval)
                    EXPECT_EQ(kv_sim_pm_set(row.type, row.number, interval, counter, UINT32_MAX),
                              0);
            }
        }
    pass(3000);
    for (const auto &row : rows) {
        const auto read = [&](uint32_t counter) -> uint64_t {
            uint64_t om = 0;
            uint32_t pm[4] = {};
            if (row.om) {
                EXPECT_EQ(kv_sim_om_get(row.type, row.number, counter, &om), 0);
                return om;
            }
            for (uint32_t interval = 1; interval <= 4; ++interval)
                EXPECT_EQ(kv_sim_pm_get(row.type, row.number, interval, counter, &pm[interval - 1]),
                          0);
            EXPECT_TRUE(pm[0] == pm[1] && pm[1] == pm[2] && pm[2] == pm[3]);
            return pm[0];
        };
        for (uint32_t counter = row.first; counter <= row.last; ++counter)
            EXPECT_EQ(read(counter), 3 * (10 + counter) - 1)
                << row.type << " " << row.om << " " << counter;
        for (const uint32_t beyond : {row.last + 1, UINT32_MAX}) {
            const kvSimRate rate{row.type, row.number, row.om, beyond, 1, 1000, 0};
            EXPECT_EQ(kv_sim_rate_set(&rate), -1);
            EXPECT_TRUE(strstr(kv_sim_error(), "is not one of 0 to")) << kv_sim_error();
        }
    }
    vexoPweOm om{};
    vexo_cmi_pwe_om_get(&om, 1, 1024, &result);
    EXPECT_EQ(om.counters[0], 3 * 11 - 1);
    vexo_cmi_pwe_om_get(&om, 0, 1024, &result);
    EXPECT_EQ(om.counters[0], 0U) << "cleared";
    pass(1000);
    vexo_cmi_pwe_om_get(&om, 0, 1024, &result);
    EXPECT_EQ(om.counters[0], 11U);
    // A pseudowire that is created anew begins at 0.
    EXPECT_EQ(config_del_pw(1), KV_OK);
    pass(1000);
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    pass(1000);
    vexoPwePm pm{};
    vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 1, &result);
    EXPECT_EQ(pm.body.generic.counters[0], 11U);
}

TEST_F(Growth, FallsIntoTheIntervalInWhichItHappens)
{
    grows(KV_SIM_PDH, 1, 0, 1, 2, 1000);
    putPort(1, 1);
    pass(899000);
    EXPECT_EQ(ofPort(1), 1798U);
    pass(2000);
    EXPECT_EQ(ofPort(1), 2U);
    EXPECT_EQ(ended(1), 1800U);
    EXPECT_EQ(ofPort(1, VEXO_PM_TYPE_2), 1802U);
    vexo_cmi_pdh_pm_clear(1, &result);
    pass(1000);
    EXPECT_EQ(kv_sim_interval_end(4), 0);
    EXPECT_EQ(ofPort(1), 2U);
    EXPECT_EQ(ended(1, 4), 1804U);
    EXPECT_EQ(ofPort(1, VEXO_PM_TYPE_4), 0U);
    // A day at once, interval by interval.
    pass(86400000 - 902000);
    EXPECT_EQ(ofPort(1), 0U);
    EXPECT_EQ(ended(1), 1800U);
    EXPECT_EQ(ended(1, 2), 7200U);
    EXPECT_EQ(ended(1, 3), 2 * (86400U - 901));
}

// Every setting by its name, and what is refused.
TEST_F(Behaviour, HasSettingsThatTakeWhatTheyGive)
{
    std::map<std::string, std::string> before;
    for (unsigned i = 0; const char *name = kv_sim_setting(i); ++i)
        EXPECT_TRUE(before.emplace(name, get(name)).second) << name;
    EXPECT_EQ(before.size(), 81U);
    const std::string tooLong(128, 'x');
    for (const auto &[name, value] : before) {
        SCOPED_TRACE(name);
        const Names values =
            value == "on" || value == "off" || value == "some" ? Names{"1", "on", "off"}
            : name.starts_with("version") || value.find_first_not_of("0123456789") != value.npos
                ? Names{tooLong, "", "x y"}
                : Names{"-1", "0", "7"};
        for (const std::string &taken : {values[1], values[2]}) {
            set(name, taken);
            EXPECT_EQ(get(name), taken);
        }
        EXPECT_EQ(kv_sim_set(name.c_str(), values[0].c_str()), -1);
        EXPECT_TRUE(strstr(kv_sim_error(), name.c_str())) << kv_sim_error();
        EXPECT_EQ(get(name), values[2]);
        char none[1];
        EXPECT_EQ(kv_sim_get(name.c_str(), none, sizeof none), -1);
    }
    for (const auto &[name, value] : {std::pair{"links-needed.8", "9"},
                                      {"load-downtime", "86401"},
                                      {"load-downtime", "86401"},
                                      {"temperature", "4294967296"},
                                      {"temperature", ""},
                                      {"temperature", "9x"},
                                      {"signal.0", "on"},
                                      {"signal.17", "on"},
                                      {"signal.01", "on"},
                                      {"version.10", ""},
                                      {"signal", "on"},
                                      {"", ""}})
        EXPECT_EQ(kv_sim_set(name, value), -1) << name;
    kv_sim_reset();
    for (const auto &[name, value] : before)
        EXPECT_EQ(get(name), value) << name;

    // Where the operations show them.
    for (int i = 1; i <= 5; ++i)
        set("inventory.text" + std::to_string(i), "t" + std::to_string(i));
    set("inventory.number", "0x1E8482");
    EXPECT_EQ(get("inventory.number"), "2000002");
    vexoSysInventory inventory;
    vexo_cmi_sys_inventory_get(&inventory, &result);
    for (const auto &[text, expected] : {std::pair{inventory.text1, "t1"},
                                         {inventory.text2, "t2"},
                                         {inventory.text3, "t3"},
                                         {inventory.text4, "t4"},
                                         {inventory.text5, "t5"},
                                         {inventory.numberHigh, "20"},
                                         {inventory.numberLow, "2"}})
        EXPECT_STREQ(text, expected);
    set("version.9", "config 13");
    vexoSwVersion version;
    vexo_cmi_sys_version_get(&version, &result);
    EXPECT_STREQ(version.text[9], "config 13");
    for (const char *name : {"status", "speed", "param", "flag", "mode"})
        set("link." + std::string{name}, "2");
    vexoSysInfo info{};
    vexo_cmi_misc_sys_info_get(&info, 0, &result);
    EXPECT_EQ(
        std::tuple(info.linkStatus, info.linkSpeed, info.linkParam, info.linkFlag, info.linkMode),
        std::tuple(2U, 1000U, 2U, VEXO_LINK_FLAG_SET, 2U));
    set("temperature", "50");
    unsigned current, first, second;
    vexo_cmi_sys_temp_get(&current, &first, &second, &result);
    EXPECT_EQ(current, 50U);
}

TEST_F(Behaviour, RefusesWhatDoesNotFitTogetherIfTold)
{
    createGroup(1, {1});
    createGroup(2, {2});
    putPw(1, 16);
    pwConfig pw{};
    imaParams group{};
    ASSERT_EQ(config_get_pw(&pw, 1), KV_OK);
    ASSERT_EQ(config_get_ima_params(&group, 2), KV_OK);
    const struct {
        const char *text;
        kvRc code;
        std::function<kvRc()> call;
    } refusals[] = {
        {"the record is pseudowire 9's, not 1's", 2,
         [=]() mutable { return pw.pwId = 9, config_set_pw(&pw, 1); }},
        {"the record is pseudowire 1's, not 2's", 2, [=] { return config_add_pw(&pw, 2); }},
        {"circuit 17 is beyond the 16 ports", 2,
         [=]() mutable { return pw.circuit = 17, config_set_pw(&pw, 1); }},
        {"circuit 4294967295 is beyond the 16 ports", 2,
         [=]() mutable { return pw.pwId = 3, pw.circuit = UINT32_MAX, config_add_pw(&pw, 3); }},
        {"IMA link 1 is in group 1 already", 256,
         [=]() mutable { return group.links[0].linkId = 1, config_set_ima_params(&group, 2); }},
        {"IMA link 64 is not in group 2", 4,
         [=]() mutable { return group.links[0].linkId = 64, config_set_ima_params(&group, 2); }},
    };
    set("consistency", "on");
    for (const auto &refusal : refusals) {
        EXPECT_EQ(refusal.call(), refusal.code) << refusal.text;
        EXPECT_STREQ(config_get_error_string(), refusal.text);
    }
    EXPECT_EQ(config_set_pw(&pw, 1), KV_OK);
    EXPECT_EQ(config_set_ima_params(&group, 2), KV_OK);
    set("consistency", "off");
    for (const auto &refusal : refusals)
        EXPECT_EQ(refusal.call(), KV_OK) << refusal.text;
    EXPECT_EQ(config_add_ima_link(1, 2), 256U) << "refused in any case";
}

TEST_F(Behaviour, TellsOfAFullLogWheneverItFillsAndOfAClearedOne)
{
    const auto fill = [](int records) {
        for (int i = 0; i < records; ++i)
            kv_log(4, 1, "file", "function", i, "%d", i);
    };
    for (int round = 0; round < 2; ++round) {
        fill(511);
        EXPECT_EQ(events(), Names{});
        fill(1);
        EXPECT_EQ(events(), Names{"0 1 2000 2000"});
        EXPECT_EQ(kv_log_clear(), KV_OK);
        EXPECT_EQ(events(), Names{"0 1 0 2000"});
    }
    set("log-alarm", "off");
    fill(512);
    kv_log_clear();
    EXPECT_EQ(alarms(KV_SIM_SYSTEM, 1), 0x2000U);
}

TEST_F(Behaviour, RunsWhatWasLoadedUnlessThatFailed)
{
    const std::string longest(64, 'f');
    const auto load = [&](const std::string &file, uint32_t failing) {
        kv_sim_upgrade_fail(failing);
        vexoUpgradeInfo upgrade{};
        upgrade.mode = VEXO_UPGRADE_MODE_1;
        memcpy(upgrade.fileName, file.data(), file.size());
        vexo_cmi_misc_upgrade_init(&upgrade, &result);
        EXPECT_OK(result);
        kv_sim_clock_advance(15 * SECOND - 1);
        const std::string before = get("version.2");
        kv_sim_clock_advance(1);
        vexoSwVersion version;
        vexo_cmi_sys_version_get(&version, &result);
        EXPECT_EQ(version.text[2], get("version.2"));
        return before + " " + version.text[2];
    };
    const std::string first = get("version.2");
    EXPECT_EQ(load("a.bin", 0), first + " " + first) << "off";
    set("load-version", "on");
    EXPECT_EQ(load("b.bin", 5), first + " " + first) << "failed at its end";
    EXPECT_EQ(load("c.bin", 3), first + " " + first) << "failed before";
    EXPECT_EQ(load("d.bin", 0), first + " d.bin");
    EXPECT_EQ(load(longest, 0), "d.bin " + longest);

    // Restarted, it is away, and comes back as it was configured, with the outcome of the load.
    EXPECT_EQ(kv_sim_away(), 0U);
    vexo_cmi_sys_tpid_set(0x9100, &result);
    set("load-restart", "on");
    EXPECT_EQ(load("e.bin", 4), longest + " " + longest);
    EXPECT_EQ(kv_sim_away(), 0U) << "failed";
    set("load-downtime", "30");
    vexoUpgradeInfo upgrade{};
    upgrade.mode = VEXO_UPGRADE_MODE_1;
    strcpy_n(upgrade.fileName, "f.bin", sizeof upgrade.fileName);
    kv_sim_upgrade_fail(0);
    vexo_cmi_misc_upgrade_init(&upgrade, &result);
    kv_sim_clock_advance(15 * SECOND - 1);
    EXPECT_EQ(kv_sim_away(), 0U);
    kv_sim_clock_advance(30 * SECOND);
    EXPECT_EQ(kv_sim_away(), 1U) << "in milliseconds, of which one has begun";
    unsigned tpid = 0;
    vexo_cmi_sys_tpid_get(&tpid, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    kv_sim_clock_advance(1);
    vexo_cmi_sys_tpid_get(&tpid, &result);
    EXPECT_OK(result);
    EXPECT_EQ(tpid, 0x9100U);
    EXPECT_EQ(get("version.2"), "f.bin");
    vexo_cmi_misc_upgrade_info_get(&upgrade, &result);
    EXPECT_EQ(upgrade.state, vexoUpgradeState{5});
}

} // namespace
