// Every operation from many threads at once, beside both notification services.
#include "../device.h"
#include "chance.h"

#include <describe.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using hostile::chance;

namespace
{

constexpr int THREADS = 8;
constexpr uint32_t ALARMS = 2000;
constexpr uint32_t REPORTS = 20;
constexpr uint32_t MARK = 0x5A000000; // of the alarm events that are counted, in their delta

std::atomic<uint32_t> alarmCount, portReports, wrong;
std::atomic<bool> alarmSeen[ALARMS];

void onAlarm(vexoAlarmNotification *alarm)
{
    const uint32_t delta = alarm->object.delta;
    if ((delta & 0xFF000000) == MARK && alarm->object.status == ~delta) {
        wrong += alarmSeen[delta & 0xFFFFFF].exchange(true);
        ++alarmCount;
    }
}

void onAlarmAsWell(vexoAlarmNotification *alarm)
{
    onAlarm(alarm);
}

void onPm(vexoPmNotification *pm)
{
    if (pm->objType == VEXO_OBJ_TYPE_PDH)
        ++portReports;
    else if (pm->objType == VEXO_OBJ_TYPE_IMA && pm->ima.group.linkCount > VEXO_IMA_LINK_MAX)
        ++wrong;
}

// Runs every operation with small numbers as its arguments, so that the threads meet at the same
// objects.
class Caller
{
  public:
    explicit Caller(uint64_t seed) { chance().start(seed, 0); }

    void runAll(std::vector<std::atomic<uint32_t>> &successes)
    {
        const auto operations = describe::operations();
        for (size_t i = 0; i < operations.size(); ++i)
            if (run(operations[i]))
                ++successes[i];
    }

  private:
    bool run(const describe::Operation &operation)
    {
        std::array<void *, 8> arguments{};
        for (size_t i = 0; i < operation.arguments.size(); ++i) {
            if (operation.arguments[i].direction == describe::Direction::in)
                fill(storage_[i]);
            arguments[i] = storage_[i].data();
        }
        vexoResult result{vexoRc{0xFFFFFFFF}, ""};
        operation.call(arguments.data(), &result);
        static const std::set<uint32_t> codes{0, 1, 2, 4, 8, 16, 32, 64, 128};
        wrong += !codes.contains(result.rc);
        return result.rc == VEXO_RC_OK;
    }

    using Storage = std::array<uint32_t, 640>;

    static void fill(Storage &storage)
    {
        const uint32_t bound = 3 + chance().below(3);
        const bool same = chance().one(3); // so that what one thread adds another one finds
        const uint32_t first = chance().one(8) ? 0x8100 : chance().below(bound);
        for (uint32_t &word : storage)
            word = same ? first : chance().below(bound);
        storage[0] = first;
    }

    Storage storage_[8]{};
};

bool allTaken()
{
    uint32_t waiting = 0;
    uint64_t lost = 0;
    return kv_sim_pending(&waiting, &lost) != 0 || waiting == 0;
}

template <class Condition>
bool waitFor(Condition condition)
{
    for (int left = 30000; left > 0 && !condition(); --left)
        std::this_thread::sleep_for(1ms);
    return condition();
}

void sendAlarms()
{
    for (uint32_t i = 0; i < ALARMS; ++i) {
        if (i % 50 == 0)
            waitFor(allTaken);
        kv_sim_alarm_send(KV_SIM_PDH, 1, ~(MARK | i), MARK | i);
    }
}

void endIntervals()
{
    for (uint32_t i = 0; i < REPORTS; ++i) {
        kv_sim_interval_end(1 + i % 3);
        kv_sim_clock_advance(901 * 1000000); // so that keep-alives set the clock again
        std::this_thread::sleep_for(5ms);
    }
}

TEST(Threads, MayCallEveryOperationBesideBothServices)
{
    const char *given = getenv("THREADS_PASSES");
    const uint32_t passes = given ? static_cast<uint32_t>(atoi(given)) : 100;
    ASSERT_EQ(kv_sim_reset(), 0);
    for (uint32_t interval = 1; interval <= 3; ++interval)
        ASSERT_EQ(kv_sim_interval_period(interval, 0), 0);
    vexo_cmi_alarm_callback_register(onAlarm);
    vexo_cmi_pm_callback_register(onPm);
    // Once something has come through, both are subscribed.
    ASSERT_TRUE(waitFor([] {
        kv_sim_interval_send(1);
        return portReports > 0;
    }));
    ASSERT_TRUE(waitFor([] {
        kv_sim_alarm_send(KV_SIM_PDH, 1, ~(MARK | 0), MARK | 0);
        alarmSeen[0] = false;
        return alarmCount > 0;
    }));
    ASSERT_TRUE(waitFor(allTaken));
    wrong = 0;
    alarmSeen[0] = false;
    alarmCount = portReports = 0;

    std::vector<std::atomic<uint32_t>> successes(describe::operations().size());
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&, i] {
            Caller caller{static_cast<uint64_t>(i)};
            for (uint32_t pass = 0; pass < passes; ++pass)
                caller.runAll(successes);
        });
    std::atomic<bool> over{false};
    std::thread replacing{[&] {
        // What the others hardly hit upon by themselves.
        const vexoPweParams atm = newPwe(VEXO_PWE_TYPE_ATM_3);
        const vexoPweAtmXc crossConnect{VEXO_PWE_ATM_XC_TYPE_1, 1, 1, 1, 1};
        while (!over) {
            vexo_cmi_pwe_params_set(&atm, 1, nullptr);
            vexo_cmi_pwe_atmop_xc_set(&crossConnect, 1, nullptr);
            vexo_cmi_alarm_callback_register(onAlarmAsWell);
            vexo_cmi_pm_callback_register(onPm);
            vexo_cmi_alarm_callback_register(onAlarm);
            std::this_thread::sleep_for(100us);
        }
    }};
    std::thread alarms{sendAlarms};
    std::thread intervals{endIntervals};
    alarms.join();
    intervals.join();
    for (std::thread &thread : threads)
        thread.join();
    over = true;
    replacing.join();
    const bool taken = waitFor(allTaken);
    vexo_cmi_fini();

    // The operations' own events can be more than the device's queue holds.
    uint32_t waiting = 0;
    uint64_t lost = 0;
    ASSERT_EQ(kv_sim_pending(&waiting, &lost), 0);
    if (lost == 0) {
        EXPECT_TRUE(taken);
        EXPECT_EQ(alarmCount, ALARMS);
        EXPECT_EQ(portReports, REPORTS);
    }
    EXPECT_EQ(wrong, 0u);
    for (size_t i = 0; i < successes.size(); ++i)
        EXPECT_GT(successes[i], 0u) << describe::operations()[i].name << " never succeeded";
}

TEST(Threads, MaySendKeepAlivesAtOnce)
{
    ASSERT_EQ(kv_sim_reset(), 0);
    for (uint32_t interval = 1; interval <= 3; ++interval)
        ASSERT_EQ(kv_sim_interval_period(interval, 0), 0);
    wrong = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < THREADS; ++i)
        threads.emplace_back([i] {
            for (unsigned n = 0; n < 500; ++n) {
                kv_sim_clock_advance(901 * 1000000);
                vexoResult result;
                vexo_cmi_sys_kato_send(1000000 + n, i, &result);
                wrong += result.rc != VEXO_RC_OK;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_LT(kv_sim_clock_get(), 100000000ull * 1000000) << "never set";
}

} // namespace
