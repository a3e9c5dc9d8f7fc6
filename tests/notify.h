// What the tests of the notification services share.
#ifndef TESTS_NOTIFY_H
#define TESTS_NOTIFY_H

#include "instead.h"

#include <kv_alarm.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
#define UNDER_TSAN 1
#else
#define UNDER_TSAN 0
#endif
#if UNDER_TSAN || defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif

using namespace std::chrono_literals;

// What the platform's functions do here beyond what they do by themselves.
struct Twist {
    std::atomic<int> processCalls{0};
    std::atomic<int> processFails{0};      // so many calls fail, and take nothing
    std::atomic<bool> processStuck{false}; // succeeds, and takes nothing
    std::atomic<bool> processHeld{false};  // waits meanwhile, and takes nothing
    std::atomic<int> holding{0};
    std::atomic<void (*)()> atAlarmLog{nullptr}; // done before an alarm event is logged
    std::atomic<void (*)()> atMark{nullptr};     // done before a descriptor's flags are set
};
inline Twist twist;

// The pauses of a service, in milliseconds. Those listed are over at once, one more never.
inline const std::vector<int> PAUSES{10, 20, 40, 80, 160, 320, 640, 1000, 1000};
std::vector<int> pausesSoFar();

// No twist, and no pause so far.
void untwist();

template <class Condition>
bool until(Condition condition)
{
    for (int i = 0; i < 10000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

// Of this process: its descriptors, as text and those of pipes, and how many threads it has.
std::set<std::string> descriptors();
std::set<int> pipes();
size_t threads();

// How often the journal, as far as it goes back, has a function of the platform.
int callsOf(const std::string &function);

// Everything that was raised has been handed on.
void settle();

inline std::atomic<int> delivered;
inline std::atomic<pid_t> callbackThread;
inline std::atomic<void (*)()> inCallback;

template <class Record>
void count(Record *)
{
    callbackThread = gettid();
    ++delivered;
    if (void (*const also)() = inCallback)
        also();
}

// A service, by its name and that of its library.
struct ServiceCase {
    std::string name, library;
    void (*start)();
    void (*mute)();
    void (*stop)();
    void (*raise)(); // one call of the callback
    int (*socket)();

    std::string subscribe = library + "_subscribe", unsubscribe = library + "_unsubscribe";
    std::string process = library + "_process_notification";
    // Beginnings of log records.
    std::string inRegister = "3 29 gorvCmi vexo_cmi_" + name +
                             "_callback_register Cannot create of " + name + " notification ";
    std::string inThread = " 29 gorvCmi thread_" + name + "_notification_handler ";
};

inline const ServiceCase alarmService{
    .name = "alarm",
    .library = "alarm",
    .start = [] { vexo_cmi_alarm_callback_register(count); },
    .mute = [] { vexo_cmi_alarm_callback_register(nullptr); },
    .stop = vexo_cmi_alarm_callback_unregister,
    .raise = [] { kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1); },
    .socket = alarm_notification_sock,
};

inline const ServiceCase pmService{
    .name = "pm",
    .library = "pmom",
    .start = [] { vexo_cmi_pm_callback_register(count); },
    .mute = [] { vexo_cmi_pm_callback_register(nullptr); },
    .stop = vexo_cmi_pm_callback_unregister,
    .raise = [] { kv_sim_interval_send(1); },
    .socket = pmom_notification_sock,
};

class Notify : public Device
{
  protected:
    void SetUp() override
    {
        Device::SetUp();
        delivered = 0;
        inCallback = nullptr;
        untwist();
    }

    void TearDown() override
    {
        kv_sim_fault_clear();
        vexo_cmi_fini();
        vexo_cmi_alarm_callback_register(nullptr);
        vexo_cmi_pm_callback_register(nullptr);
    }
};

class NotifyService : public Notify, public testing::WithParamInterface<const ServiceCase *>
{
  protected:
    const ServiceCase &service = *GetParam();
    const std::string inThread = service.inThread;

    bool start()
    {
        const int before = callsOf(service.subscribe);
        service.start();
        return until([&] { return callsOf(service.subscribe) > before; });
    }

    bool delivers()
    {
        const int before = delivered;
        service.raise();
        return until([&] { return delivered > before; });
    }

    bool works() { return start() && delivers(); }

    // Of the log, what the thread says at levels above debug, and its end.
    Names thread(uint64_t since = 0) const
    {
        Names lines = logSince(since);
        std::erase_if(lines, [&](const std::string &line) { return line.find(inThread) != 1; });
        return lines;
    }
};

// Keeps what the callback of a service is handed.
template <class Record, auto registerCallback, const ServiceCase &service>
class NotifyContent : public Notify
{
  protected:
    void SetUp() override
    {
        Notify::SetUp();
        records.clear();
        registerCallback(keep);
        ASSERT_TRUE(until([] { return callsOf(service.subscribe) > 0; }));
    }

    static void keep(Record *record)
    {
        const std::lock_guard guard{mutex};
        records.push_back(*record);
    }

    static inline std::mutex mutex;
    static inline std::vector<Record> records;
};

#endif
