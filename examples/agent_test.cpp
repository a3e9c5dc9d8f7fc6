/*
 * How an agent is tested on the simulated device: a small agent, a fixture to be copied, and tests
 * of what agents get wrong. A day of the device takes milliseconds, and nothing sleeps.
 *
 *   c++ -std=c++20 agent_test.cpp -o agent_test \
 *       $(pkg-config --cflags --libs vexo_cmi vexo_cmi-simulator gtest_main)
 */
#include <gtest/gtest.h>
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <cstdio>
#include <cstring>
#include <future>
#include <map>
#include <mutex>
#include <vector>

#include <unistd.h>

// In C++, too, what is not named is 0, which g++ warns of with -Wextra.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// What the library takes from the software that hosts it.
extern "C" int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "agent test");
}

namespace
{

// The agent. It carries lines over pseudowires and knows the alarms and counters of its ports. It
// has no thread and no pause of its own: whoever runs it calls work() every second, and a test
// whenever it likes.
class Agent
{
  public:
    Agent()
    {
        agent = this;
        listen();
    }
    ~Agent()
    {
        vexo_cmi_fini(); // no callback runs from here on
        agent = nullptr;
    }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;

    void carry(uint32_t port, uint32_t pwId)
    {
        const std::lock_guard lock{mutex_};
        lines_[port] = pwId;
    }

    // Brings the device to what is wanted, and the agent to what is the case. False when something
    // failed; the next time begins again, with what is there by then.
    bool work()
    {
        bool heard = true;
        for (const auto &[port, pwId] : lines_) {
            if (!takeIntoService(port) || !provide(port, pwId) || !poll(port, heard)) {
                deaf_ = true;
                return false;
            }
        }
        // A device that was away has forgotten who listens. So may one have that answers, when
        // there is an alarm that it has not told of.
        if (deaf_ || !heard)
            listen();
        deaf_ = false;
        return true;
    }

    uint32_t alarms(uint32_t port)
    {
        const std::lock_guard lock{mutex_};
        return alarms_[port];
    }
    // The first line counter of each quarter of an hour that has been reported.
    std::vector<uint32_t> quarters(uint32_t port)
    {
        const std::lock_guard lock{mutex_};
        return quarters_[port];
    }

  private:
    static bool takeIntoService(uint32_t port)
    {
        vexoAdminStatus status;
        vexoResult result;
        vexo_cmi_pdh_admin_get(&status, port, &result);
        if (result.rc == VEXO_RC_OK && status != VEXO_ADMIN_STATUS_1)
            vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, port, &result);
        return result.rc == VEXO_RC_OK;
    }

    // A create that failed may have been carried out, and a restart may have undone one that was
    // not: what counts is what the device has.
    static bool provide(uint32_t port, uint32_t pwId)
    {
        vexoPweParamsInfo info;
        vexoResult result;
        vexo_cmi_pwe_params_get(&info, pwId, &result);
        if (result.rc != VEXO_RC_OK)
            return false;
        const bool isThere = info.pweAction == VEXO_PWE_ACTION_CREATE;
        if (isThere && info.pweType == VEXO_PWE_TYPE_TDM_1 &&
            info.adminStatus == VEXO_ADMIN_STATUS_1 && info.service.t1.circuit == port)
            return true;
        vexoPweParams params{};
        params.pweType = VEXO_PWE_TYPE_TDM_1;
        params.pweAction = isThere ? VEXO_PWE_ACTION_MODIFY : VEXO_PWE_ACTION_CREATE;
        params.adminStatus = VEXO_ADMIN_STATUS_1;
        params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
        params.psn.psnType = VEXO_PWE_PSN_TYPE_2;
        params.service.t1.circuit = port;
        params.service.t1.rtp.mode = VEXO_PWE_RTP_OFF;
        vexo_cmi_pwe_params_set(&params, pwId, &result);
        return result.rc == VEXO_RC_OK;
    }

    bool poll(uint32_t port, bool &heard)
    {
        const std::lock_guard lock{mutex_}; // an event that comes now is newer than what is read
        uint32_t bits;
        vexoResult result;
        vexo_cmi_pdh_alarms_get(&bits, port, &result);
        if (result.rc != VEXO_RC_OK)
            return false;
        heard = heard && alarms_[port] == bits;
        alarms_[port] = bits;
        return true;
    }

    // A service whose subscription is gone begins anew only after it was unregistered.
    static void listen()
    {
        vexo_cmi_fini();
        vexo_cmi_alarm_callback_register(onAlarm);
        vexo_cmi_pm_callback_register(onPm);
    }

    static void onAlarm(vexoAlarmNotification *alarm)
    {
        if (alarm->objType != VEXO_OBJ_TYPE_PDH)
            return;
        const std::lock_guard lock{agent->mutex_};
        agent->alarms_[alarm->object.objId] = alarm->object.status;
    }

    static void onPm(vexoPmNotification *pm)
    {
        if (pm->objType != VEXO_OBJ_TYPE_PDH)
            return;
        const std::lock_guard lock{agent->mutex_};
        for (const auto &[port, pwId] : agent->lines_) {
            const vexoPdhPm &counters = pm->pdh[port - 1];
            if (counters.pmType == VEXO_PM_TYPE_1) // all 0 where they could not be read
                agent->quarters_[port].push_back(counters.lineCounters[0]);
        }
    }

    static inline Agent *agent; // the callbacks'

    bool deaf_ = false;
    std::mutex mutex_;                   // for what the callbacks use, too
    std::map<uint32_t, uint32_t> lines_; // by port
    std::map<uint32_t, uint32_t> alarms_;
    std::map<uint32_t, std::vector<uint32_t>> quarters_;
};

// The fixture. Without KV_SIM_DEVICE the program has a device of its own, which each test finds
// new, with a clock that moves only when it is told to.
class AgentTest : public testing::Test
{
  protected:
    static constexpr uint32_t LIMIT = 10000; // milliseconds, of what takes a few
    static constexpr uint64_t SECOND = 1000000;
    static constexpr uint64_t MIDNIGHT = 1700006400 * SECOND;

    void SetUp() override
    {
        ASSERT_EQ(kv_sim_reset(), 0) << kv_sim_error();
        kv_sim_clock_stop(1);
        kv_sim_clock_set(MIDNIGHT);
    }
    void TearDown() override { kv_sim_fault_clear(); }

    // The library's services subscribe on their own threads: what comes earlier they don't hear.
    static void waitUntilListening()
    {
        ASSERT_EQ(kv_sim_wait_subscribed(static_cast<uint32_t>(getpid()),
                                         KV_SIM_ALARMS + KV_SIM_REPORTS, LIMIT),
                  0)
            << kv_sim_error();
    }
    // When it returns, the callbacks have returned, too.
    static void raise(uint32_t port, uint32_t bits)
    {
        ASSERT_EQ(kv_sim_alarm_set(KV_SIM_PDH, port, bits), 0) << kv_sim_error();
        ASSERT_EQ(kv_sim_wait_handled(LIMIT), 0) << kv_sim_error();
    }
    static void pass(uint64_t seconds)
    {
        ASSERT_EQ(kv_sim_clock_advance(seconds * SECOND), 0) << kv_sim_error();
        ASSERT_EQ(kv_sim_wait_handled(LIMIT), 0) << kv_sim_error();
    }
    static uint32_t arm(const kvSimFault &fault)
    {
        const uint32_t id = kv_sim_fault_arm(&fault);
        EXPECT_NE(id, 0U) << kv_sim_error();
        return id;
    }
    // How often a fault has met something: a test whose fault met nothing has shown nothing.
    static uint32_t met(uint32_t id)
    {
        kvSimFault fault{};
        EXPECT_EQ(kv_sim_fault_find(id, &fault), 0) << kv_sim_error();
        return fault.met;
    }
    // How many calls of a platform function there have been.
    static unsigned calls(const char *function)
    {
        unsigned count = 0;
        kvSimCall call;
        kvSimCursor cursor{}; // at the oldest call
        while (kv_sim_journal_next(&cursor, &call, 0) == 1)
            count += strcmp(call.function, function) == 0;
        EXPECT_EQ(cursor.lost, 0U) << "the journal was too small: KV_SIM_JOURNAL";
        return count;
    }
};

TEST_F(AgentTest, FindsWhatItHasCreatedWhenTheAnswerIsLost)
{
    Agent agent;
    agent.carry(3, 17);
    const uint32_t fault = arm(
        {.function = "config_add_pw", .object = 17, .times = 1, .effect = KV_SIM_LOST, .value = 1});
    EXPECT_FALSE(agent.work());
    EXPECT_EQ(met(fault), 1U);
    EXPECT_TRUE(agent.work());
    EXPECT_EQ(calls("config_add_pw"), 1U) << "it is there, a second one would be refused";
    EXPECT_EQ(calls("config_set_pw"), 0U) << "and as it should be";
}

TEST_F(AgentTest, FindsAnAlarmByPollingWhoseEventIsLost)
{
    Agent agent;
    agent.carry(3, 17);
    ASSERT_TRUE(agent.work());
    waitUntilListening();
    raise(3, 0x4);
    EXPECT_EQ(agent.alarms(3), 0x4U) << "by its event";

    const uint32_t fault = arm({.times = 1, .effect = KV_SIM_DROP, .service = KV_SIM_ALARMS});
    raise(3, 0x5);
    EXPECT_EQ(met(fault), 1U);
    EXPECT_EQ(agent.alarms(3), 0x4U);
    EXPECT_TRUE(agent.work());
    EXPECT_EQ(agent.alarms(3), 0x5U);
}

TEST_F(AgentTest, CompletesItsWorkOnADeviceThatRestartsInTheMiddleOfIt)
{
    Agent agent;
    for (uint32_t port = 1; port <= 8; ++port)
        agent.carry(port, 16 + port);
    waitUntilListening();
    arm({.function = "config_add_pw", .effect = KV_SIM_HANG, .nth = 5});
    auto working = std::async(std::launch::async, [&] { return agent.work(); });
    ASSERT_EQ(kv_sim_wait_hanging(1, LIMIT), 0) << kv_sim_error();

    const kvSimReboot reboot{.milliseconds = 30000}; // and comes back with factory defaults
    ASSERT_EQ(kv_sim_reboot(&reboot), 0) << kv_sim_error();
    EXPECT_FALSE(working.get()) << "the call that hung fails";
    EXPECT_FALSE(agent.work()) << "so do all while it is away";
    pass(30);
    EXPECT_EQ(kv_sim_away(), 0U);
    EXPECT_TRUE(agent.work());
    for (uint32_t pwId = 17; pwId <= 24; ++pwId) {
        vexoPweParamsInfo info;
        vexo_cmi_pwe_params_get(&info, pwId, nullptr);
        EXPECT_EQ(info.pweAction, VEXO_PWE_ACTION_CREATE) << pwId;
    }
    waitUntilListening();
    raise(8, 0x1);
    EXPECT_EQ(agent.alarms(8), 0x1U) << "it listens again";
}

TEST_F(AgentTest, TakesADayOfReports)
{
    Agent agent;
    agent.carry(3, 17);
    ASSERT_TRUE(agent.work());
    waitUntilListening();
    // The words of a port's counters begin with one that tells their arrangement.
    const kvSimRate rate{
        .type = KV_SIM_PDH, .number = 3, .counter = 1, .amount = 1, .milliseconds = 1000};
    ASSERT_EQ(kv_sim_rate_set(&rate), 0) << kv_sim_error();
    pass(24 * 3600);
    EXPECT_EQ(agent.quarters(3), std::vector<uint32_t>(96, 900));
}

} // namespace
