// What the simulated device tells: its journal of calls, and what a test waits for.
#include "sim_device.h"

#include <kv_alarm.h>

#include <atomic>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>

namespace
{

// Not found: its number is 0.
kvSimCall callOf(uint64_t number)
{
    kvSimCall call{};
    kv_sim_journal_get(number, &call);
    return call;
}

kvSimCall latest()
{
    return callOf(kv_sim_journal_last());
}

template <class Record>
std::string bytesOf(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

std::string recordOf(const kvSimCall &call)
{
    return {reinterpret_cast<const char *>(call.record), call.recordSize};
}

std::string outOf(const kvSimCall &call)
{
    return {reinterpret_cast<const char *>(call.out), call.outSize};
}

TEST_F(SimulatedDevice, TellsOfACallWhatItWasGivenAndWhatItFilled)
{
    run("", [] {
        pdhParams port{};
        EXPECT_EQ(config_get_pdh_params(&port, 3), KV_OK);
        EXPECT_EQ(recordOf(latest()), "");
        EXPECT_EQ(outOf(latest()), bytesOf(port));
        port.cableLength = 77;
        EXPECT_EQ(config_set_pdh_params(&port, 3), KV_OK);
        EXPECT_EQ(recordOf(latest()), bytesOf(port));
        EXPECT_EQ(outOf(latest()), "");

        struct {
            alarmMode mode;
            uint32_t value;
        } told;
        EXPECT_EQ(alarm_set_notification(alarmMode{4}, 9), KV_OK);
        EXPECT_EQ(alarm_get_notification(&told.mode, &told.value), KV_OK);
        EXPECT_EQ(outOf(latest()), bytesOf(told)) << "both, one behind the other";

        pdhParams untouched;
        EXPECT_EQ(config_get_pdh_params(&untouched, 99), 4U);
        EXPECT_EQ(latest().code, 4U);
        EXPECT_EQ(outOf(latest()), "") << "of a call that failed";
        EXPECT_EQ(outOf((config_get_error_string(), latest())),
                  "there is no PDH port 99, only 1 to 16");

        const uint32_t count = GetObjectCount(OBJ_PDH);
        EXPECT_EQ(outOf(latest()), bytesOf(count));

        const auto garbage = faultOf("config_get_sys_status", KV_SIM_GARBAGE, 5);
        EXPECT_EQ(kv_sim_fault_add(&garbage), 0);
        sysStatus status;
        EXPECT_EQ(config_get_sys_status(&status), KV_OK);
        EXPECT_EQ(outOf(latest()), bytesOf(status)) << "as long as it is";
    });
}

TEST_F(SimulatedDevice, TellsOfACallWhenAndWhereItWasMadeAndHowLongItTook)
{
    run("", [] {
        EXPECT_EQ(kv_sim_clock_stop(1), 0);
        EXPECT_EQ(kv_sim_clock_set(1000 * SECOND), 0);
        const auto now = [] {
            return static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch() /
                                         std::chrono::microseconds{1});
        };
        const uint64_t before = now();
        const auto slow = faultOf("config_system_tpid_set", KV_SIM_DELAY, 20);
        EXPECT_EQ(kv_sim_fault_add(&slow), 0);
        *kv_sim_operation() = "vexo_cmi_sys_tpid_set";
        EXPECT_EQ(config_system_tpid_set(0x9100), KV_OK);
        *kv_sim_operation() = nullptr;
        const kvSimCall call = latest();
        const uint64_t after = now();
        EXPECT_EQ(call.deviceTime, 1000 * SECOND);
        EXPECT_GE(call.hostTime + 10000, before);
        EXPECT_LE(call.hostTime, after + 10000);
        EXPECT_GE(call.duration, 20000000U);
        EXPECT_LE(call.duration / 1000, after - before + 10000);
        EXPECT_EQ(call.process, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(call.thread, static_cast<uint32_t>(gettid()));
        EXPECT_STREQ(call.operation, "vexo_cmi_sys_tpid_set");

        uint32_t other = 0;
        std::thread{[&] {
            other = static_cast<uint32_t>(gettid());
            GetObjectCount(OBJ_PDH);
        }}.join();
        EXPECT_EQ(latest().thread, other);
        EXPECT_STREQ(latest().operation, "") << "of another thread";
    });
}

TEST_F(SimulatedDevice, KeepsAsManyCallsAsItWasToldWhenItWasMade)
{
    const std::pair<const char *, uint64_t> sizes[] = {
        {"", 4096}, {"1", 1}, {"100", 100}, {"20000", 20000}};
    for (const auto &[told, calls] : sizes) {
        for (const std::string &device : {std::string{}, folder + "/of" + told}) {
            const auto expect = [&, calls = calls](const char *variable) {
                setenv("KV_SIM_JOURNAL", variable, 1);
                for (uint64_t i = 0; i < 2 * calls + 5; ++i)
                    GetObjectCount(OBJ_PDH);
                const uint64_t last = kv_sim_journal_last();
                EXPECT_EQ(callOf(last).number, last) << calls;
                EXPECT_EQ(callOf(last - calls + 1).number, last - calls + 1) << calls;
                EXPECT_EQ(callOf(last - calls).number, 0U) << calls;
                EXPECT_EQ(callOf(last + 1).number, 0U) << calls;
            };
            run(device, [&, told = told] { expect(told); });
            if (!device.empty())
                run(device, [&] { expect("7"); }); // it is as it was made
        }
    }
    EXPECT_LE(std::filesystem::file_size(folder + "/of"), 4U << 20);
    run("", [] {
        setenv("KV_SIM_JOURNAL", "1000000", 1);
        GetObjectCount(OBJ_PDH);
        EXPECT_EQ(latest().number, 1U);
    });
    for (const char *told : {"0", "1000001", "-1", "4k", " 5", "99999999999"}) {
        for (const std::string &device : {std::string{}, path}) {
            run(device, [&] {
                setenv("KV_SIM_JOURNAL", told, 1);
                EXPECT_EQ(kv_sim_open(), -1) << told;
                EXPECT_EQ(kv_sim_error(), std::string{"KV_SIM_JOURNAL is '"} + told +
                                              "', not a number of calls from 1 to 1000000");
            });
        }
        EXPECT_FALSE(std::filesystem::exists(path)) << told;
    }
}

TEST_F(SimulatedDevice, KeepsFewerCallsThatAreLongAndEachOfThemWhole)
{
    run("", [] {
        const auto garbage = faultOf("config_get_sys_status", KV_SIM_GARBAGE, 5);
        EXPECT_EQ(kv_sim_fault_add(&garbage), 0);
        std::map<uint64_t, std::string> made;
        sysStatus status;
        for (int i = 0; i < 4000; ++i) {
            if (i % 3 == 0)
                config_system_tpid_set(static_cast<uint16_t>(i));
            config_get_sys_status(&status);
            made[kv_sim_journal_last()] = bytesOf(status);
        }
        const uint64_t last = kv_sim_journal_last();
        uint64_t first = last;
        for (; callOf(first).number == first; --first) {
            const kvSimCall call = callOf(first);
            EXPECT_EQ(outOf(call), made.contains(first) ? made[first] : "");
        }
        EXPECT_GT(last - first, 4096U * 320 / (sizeof status + 200));
        EXPECT_LT(last - first, 4096U);
        while (first > 0)
            EXPECT_EQ(callOf(first--).number, 0U);
    });
}

TEST_F(SimulatedDevice, GivesACursorEachCallOnceAndTellsHowManyItMissed)
{
    constexpr uint64_t CALLS = 20000;
    constexpr int CALLERS = 3;
    for (const char *size : {"1000000", "64"}) {
        const std::string device = folder + "/of" + size;
        run(device, [&] {
            setenv("KV_SIM_JOURNAL", size, 1);
            kvSimCursor cursor{};
            kvSimCall call;
            EXPECT_EQ(kv_sim_journal_end(&cursor), 0);
            EXPECT_EQ(kv_sim_journal_next(&cursor, &call, 0), 0);
            std::vector<std::unique_ptr<Process>> callers;
            for (uint32_t id = 1; id <= CALLERS; ++id)
                callers.push_back(std::make_unique<Process>(device, [=] {
                    for (uint32_t n = 1; n <= CALLS; ++n)
                        alarm_raise_alarm(OBJ_PDH, id, 99, n); // refused: there is no alarm 99
                }));
            std::map<uint32_t, uint32_t> latestOf;
            uint64_t read = 0;
            for (uint64_t before = 0; cursor.next <= CALLERS * CALLS; ++read) {
                ASSERT_EQ(kv_sim_journal_next(&cursor, &call, 30000), 1) << kv_sim_error();
                EXPECT_GT(call.number, before);
                EXPECT_GT(call.args[3], latestOf[call.args[1]]);
                before = call.number;
                latestOf[call.args[1]] = call.args[3];
            }
            EXPECT_EQ(read + cursor.lost, CALLERS * CALLS);
            if (size != std::string{"64"}) {
                EXPECT_EQ(cursor.lost, 0U);
            }
            for (const auto &caller : callers)
                EXPECT_EQ(caller->end(), 0);
        });
    }
}

TEST_F(SimulatedDevice, GivesACursorTheCallsAfterAResetFromTheFirstOn)
{
    run("", [] {
        kvSimCursor cursor{};
        kvSimCall call;
        for (int i = 0; i < 100; ++i)
            GetObjectCount(OBJ_PDH);
        EXPECT_EQ(kv_sim_journal_next(&cursor, &call, 0), 1);
        EXPECT_EQ(call.number, 1U);
        EXPECT_EQ(kv_sim_journal_end(&cursor), 0);
        EXPECT_EQ(kv_sim_reset(), 0);
        EXPECT_EQ(kv_sim_journal_next(&cursor, &call, 0), 0);
        for (int i = 0; i < 200; ++i)
            GetObjectCount(OBJ_PWE);
        for (uint64_t number = 1; number <= 200; ++number) {
            EXPECT_EQ(kv_sim_journal_next(&cursor, &call, 0), 1);
            EXPECT_EQ(call.number, number);
        }
        EXPECT_EQ(cursor.lost, 0U);
    });
}

TEST_F(SimulatedDevice, ShowsCallsThatHaveNotReturnedAsPending)
{
    Process killed{path, [&] {
                       const auto hang = faultOf("config_system_tpid_set", KV_SIM_HANG, 0);
                       EXPECT_EQ(kv_sim_fault_add(&hang), 0);
                       config_system_tpid_set(1);
                   }};
    const auto id = static_cast<uint32_t>(killed.id());
    run(path, [=] {
        EXPECT_EQ(kv_sim_wait_hanging(1, 30000), 0) << kv_sim_error();
        EXPECT_EQ(latest().pending, id);
        EXPECT_EQ(latest().duration, 0U);
    });
    killed.kill();
    run(path, [=] {
        const kvSimCall call = latest();
        EXPECT_STREQ(call.function, "config_system_tpid_set");
        EXPECT_EQ(call.pending, id) << "when its process has died";
    });
    // While a handler runs, the call that delivers is under way.
    run("", [] {
        static uint64_t delivering;
        EXPECT_GE(alarm_notification_sock(), 0);
        const auto handler = [](const alarmEvent *) {
            delivering = kv_sim_journal_last();
            EXPECT_STREQ(callOf(delivering).function, "alarm_process_notification");
            EXPECT_EQ(callOf(delivering).pending, static_cast<uint32_t>(gettid()));
            GetObjectCount(OBJ_PDH);
        };
        EXPECT_EQ(alarm_subscribe(0, 0, handler), KV_OK);
        EXPECT_EQ(kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1), 0);
        EXPECT_EQ(alarm_process_notification(), KV_OK);
        EXPECT_EQ(callOf(delivering).pending, 0U);
        EXPECT_EQ(kv_sim_journal_last(), delivering + 1);
    });
}

// A call that the ring has overtaken while it hung comes back when it returns.
TEST_F(SimulatedDevice, ShowsAnOvertakenCallAnewWhenItReturns)
{
    run("", [] {
        setenv("KV_SIM_JOURNAL", "10", 1);
        const auto hang = faultOf("config_system_tpid_set", KV_SIM_HANG, 0);
        EXPECT_EQ(kv_sim_fault_add(&hang), 0);
        std::thread hanging{[] { config_system_tpid_set(0x9100); }};
        EXPECT_EQ(kv_sim_wait_hanging(1, 30000), 0) << kv_sim_error();
        for (int i = 0; i < 50; ++i)
            GetObjectCount(OBJ_PDH);
        EXPECT_EQ(kv_sim_fault_clear(), 0);
        hanging.join();
        EXPECT_EQ(kv_sim_journal_last(), 52U);
        EXPECT_STREQ(latest().function, "config_system_tpid_set");
        EXPECT_EQ(latest().pending, 0U);
    });
}

TEST_F(SimulatedDevice, FindsWhatOneThreadWroteBackOverWhatAnotherHadWritten)
{
    // Small: the test's thread; large: another. Reads, writes and administers a port, also in
    // vain; deletes a pseudowire, which is another object of the same number.
    const std::pair<const char *, const char *> rows[] = {
        {"r3 W3 w3", "1 2 3"},    {"r3 A3 w3", "1 2 3"}, // another part of the same object
        {"r3 W4 w3", ""},         {"r3 D3 w3", ""},
        {"W3 r3 w3", ""},         {"r3 w3 W3", ""},
        {"r3 W3 r3 w3", ""},      {"r3 w3 W3 w3", ""}, // without having read it
        {"r3 R3 w3 W3", "2 3 4"}, {"r3 R3 W3 w3 r3 W3 w3", "1 3 4, 5 6 7"},
        {"r3 a3 w3", ""},         {"r3 X3 w3", ""}, // what was refused wrote nothing
    };
    const auto make = [](const std::string &word) {
        const auto number = static_cast<uint32_t>(std::stoul(word.substr(1)));
        pdhParams port = portOf(1);
        switch (tolower(word[0])) {
        case 'r':
            return config_get_pdh_params(&port, number);
        case 'w':
            return config_set_pdh_params(&port, number);
        case 'a':
            return config_set_pdh_admin(adminStatus{2}, number);
        case 'x':
            return config_set_pdh_admin(adminStatus{9}, number);
        default:
            return config_del_pw(number);
        }
    };
    for (const auto &[calls, found] : rows) {
        run("", [make, calls = calls, found = found] {
            std::istringstream stream{calls};
            const std::vector<std::string> words{std::istream_iterator<std::string>{stream}, {}};
            std::atomic<size_t> turn{0};
            const auto play = [&](bool large) {
                for (size_t i = 0; i < words.size(); ++i) {
                    if ((isupper(words[i][0]) != 0) != large)
                        continue;
                    for (size_t now = turn; now != i; now = turn)
                        turn.wait(now);
                    make(words[i]);
                    ++turn;
                    turn.notify_all();
                }
            };
            std::thread other{play, true};
            play(false);
            other.join();
            kvSimRace races[4];
            const int count = kv_sim_journal_races(races, std::size(races));
            std::string told;
            for (int i = 0; i < count; ++i)
                told += (i ? ", " : "") + std::to_string(races[i].read) + " " +
                        std::to_string(races[i].between) + " " + std::to_string(races[i].write);
            EXPECT_EQ(told, found) << calls;
            EXPECT_EQ(kv_sim_journal_races(nullptr, 0), count) << calls;
        });
    }
}

TEST_F(SimulatedDevice, WaitsForWhatATestNeeds)
{
    Signal go, come;
    Process agent{path, [&] {
                      EXPECT_GE(alarm_notification_sock(), 0);
                      go.wait();
                      EXPECT_EQ(alarm_subscribe(0, 0, [](const alarmEvent *) {}), KV_OK);
                      go.wait();
                      EXPECT_EQ(alarm_process_notification(), KV_OK);
                      go.wait();
                      for (;;)
                          GetObjectCount(OBJ_PDH);
                  }};
    run(path, [&] {
        // Fails at once, with what there is instead; succeeds when it comes about meanwhile.
        const auto expect = [&](const std::string &instead,
                                const std::function<int(uint32_t)> &wait) {
            EXPECT_EQ(wait(0), -1) << instead;
            EXPECT_EQ(kv_sim_error(), instead);
            std::thread later{[&] {
                sleep_for(milliseconds{5});
                go.send();
            }};
            EXPECT_EQ(wait(30000), 0) << kv_sim_error();
            later.join();
        };
        const auto id = static_cast<uint32_t>(agent.id());
        const std::string process = "process " + std::to_string(id);
        expect(process + " has not subscribed to alarms",
               [=](uint32_t limit) { return kv_sim_wait_subscribed(id, KV_SIM_ALARMS, limit); });
        EXPECT_EQ(kv_sim_wait_subscribed(0, 0, 0), 0);
        EXPECT_EQ(kv_sim_wait_subscribed(id + 1, 0, 0), -1);
        EXPECT_EQ(kv_sim_wait_subscribed(0, KV_SIM_ALARMS | KV_SIM_REPORTS, 5), -1);
        EXPECT_STREQ(kv_sim_error(), "no process has subscribed to alarms and PM reports");
        EXPECT_EQ(kv_sim_wait_subscribed(0, 4, 0), -1);

        EXPECT_EQ(kv_sim_wait_handled(0), 0);
        EXPECT_EQ(kv_sim_alarm_burst(KV_SIM_PDH, 1, 1, 1, 3, 0), 0);
        expect(process + " has not dealt with 3 alarm events", kv_sim_wait_handled);

        EXPECT_EQ(kv_sim_wait_idle(50, 30000), 0) << kv_sim_error();
        go.send();
        const uint64_t before = kv_sim_journal_last();
        EXPECT_TRUE(soon([=] { return kv_sim_journal_last() > before; }));
        EXPECT_EQ(kv_sim_wait_idle(1000, 200), -1);
        EXPECT_NE(strstr(kv_sim_error(), "no 1000 ms without a call: the latest is call "), nullptr)
            << kv_sim_error();

        EXPECT_EQ(kv_sim_wait_hanging(1, 0), -1);
        EXPECT_STREQ(kv_sim_error(), "0 calls hang, not 1");
        const auto hang = faultOf("GetObjectCount", KV_SIM_HANG, 0);
        EXPECT_EQ(kv_sim_fault_add(&hang), 0);
        EXPECT_EQ(kv_sim_wait_hanging(1, 30000), 0) << kv_sim_error();
        EXPECT_EQ(kv_sim_wait_idle(50, 30000), 0) << "what hangs calls nothing: " << kv_sim_error();
        EXPECT_EQ(kill(agent.id(), SIGKILL), 0);
        EXPECT_TRUE(soon([] { return kv_sim_wait_subscribed(0, 0, 0) != 0; }));
    });
}

TEST_F(SimulatedDevice, MovesItsClockPastASubscriberThatHangsOnlyWhenToldTo)
{
    using std::chrono::steady_clock;
    Process agent{path, [] {
                      EXPECT_GE(pmom_notification_sock(), 0);
                      EXPECT_EQ(pmom_subscribe([](pmInterval) { pause(); }), KV_OK);
                      for (;;)
                          pmom_process_notification();
                  }};
    run(path, [&] {
        EXPECT_EQ(kv_sim_clock_stop(1), 0);
        EXPECT_EQ(kv_sim_clock_set(86400 * SECOND), 0);
        EXPECT_EQ(kv_sim_wait_subscribed(0, KV_SIM_REPORTS, 30000), 0) << kv_sim_error();
        EXPECT_EQ(kv_sim_clock_advance(86400 * SECOND), -1);
        EXPECT_EQ(kv_sim_error(), "process " + std::to_string(agent.id()) +
                                      " has not dealt with a PM report for 2 seconds, so the clock "
                                      "stopped at that interval's end");
        EXPECT_EQ(kv_sim_clock_get(), (86400 + 900) * SECOND);
        const auto start = steady_clock::now();
        EXPECT_EQ(kv_sim_clock_advance_anyway((86400 - 900) * SECOND), 0) << kv_sim_error();
        EXPECT_LT(steady_clock::now() - start, std::chrono::seconds{20}); // 2, and not 95 times 2
        EXPECT_EQ(kv_sim_clock_get(), 2 * 86400 * SECOND);
    });
}

TEST_F(SimulatedDevice, MovesItsClockFromWithinAReportWithoutWaitingForItself)
{
    run("", [] {
        static int reports;
        EXPECT_EQ(kv_sim_clock_stop(1), 0);
        EXPECT_GE(pmom_notification_sock(), 0);
        const auto handler = [](pmInterval) {
            if (reports++ == 0) {
                EXPECT_EQ(kv_sim_clock_advance(86400 * SECOND), 0) << kv_sim_error();
            }
        };
        EXPECT_EQ(pmom_subscribe(handler), KV_OK);
        EXPECT_EQ(kv_sim_interval_end(1), 0);
        EXPECT_EQ(pmom_process_notification(), KV_OK);
        EXPECT_EQ(pmom_process_notification(), KV_OK);
        EXPECT_EQ(reports, 1 + 96 + 24 + 1);
    });
}

} // namespace
