// The notification services: what they deliver, what they leave behind, and what hosts do to them.
#include "device.h"

#include <kv_alarm.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
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

namespace
{

using namespace std::chrono_literals;

// What the platform's functions do here beyond what they do by themselves.
struct Twist {
    std::atomic<uint32_t> ports{0}, groups{0}; // not 0: counts of objects
    std::atomic<bool> listTooLong{false}, groupsTooLong{false};
    std::atomic<bool> noPorts{false};
    std::atomic<int> processCalls{0};
    std::atomic<int> processFails{0};      // so many calls fail, and take nothing
    std::atomic<bool> processStuck{false}; // succeeds, and takes nothing
    std::atomic<bool> processHeld{false};  // waits meanwhile, and takes nothing
    std::atomic<int> holding{0};
    std::atomic<void (*)()> atAlarmLog{nullptr}; // done before an alarm event is logged
    std::atomic<void *> pwRecord{nullptr}, groupRecord{nullptr}; // where they were last read to
} twist;

template <class F>
F *next(const char *name)
{
    return reinterpret_cast<F *>(dlsym(RTLD_NEXT, name));
}

} // namespace

#define REAL(name) static const auto real = next<decltype(name)>(#name)

// The pauses of a service, in milliseconds. Those listed are over at once, one more never.
namespace
{

const std::vector<int> PAUSES{10, 20, 40, 80, 160, 320, 640, 1000, 1000};
std::mutex pausesMutex;
std::vector<int> pauses;

std::vector<int> pausesSoFar()
{
    const std::lock_guard guard{pausesMutex};
    return pauses;
}

} // namespace

int select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *left)
{
    REAL(select);
    if (!left || left->tv_sec >= 30 || twist.processCalls == 0)
        return real(count, reading, writing, failing, left);
    {
        const std::lock_guard guard{pausesMutex};
        pauses.push_back(static_cast<int>(left->tv_sec * 1000 + left->tv_usec / 1000));
        *left = {};
    }
    return real(count, reading, writing, failing, pauses.size() > PAUSES.size() ? nullptr : left);
}

static kvRc process(kvRc (*real)())
{
    ++twist.processCalls;
    if (twist.processFails > 0) {
        --twist.processFails;
        return 16;
    }
    if (twist.processStuck)
        return KV_OK;
    if (!twist.processHeld)
        return real();
    ++twist.holding;
    while (twist.processHeld)
        std::this_thread::sleep_for(1ms);
    --twist.holding;
    return KV_OK;
}

int kv_log(int level, int module, const char *file, const char *function, int line,
           const char *format, ...)
{
    REAL(kv_log);
    void (*const also)() = twist.atAlarmLog;
    if (also && strcmp(function, "alarm_notification_handler") == 0)
        also();
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return real(level, module, file, function, line, "%s", text);
}

kvRc pmom_process_notification()
{
    REAL(pmom_process_notification);
    return process(real);
}

kvRc alarm_process_notification()
{
    REAL(alarm_process_notification);
    return process(real);
}

uint32_t GetObjectCount(objType type)
{
    REAL(GetObjectCount);
    if (type == OBJ_PDH && twist.noPorts)
        return 0;
    const uint32_t count = type == OBJ_PDH ? twist.ports : twist.groups;
    return count ? count : real(type);
}

kvRc config_get_pw_all_prov(pwProvList *out)
{
    REAL(config_get_pw_all_prov);
    const kvRc code = real(out);
    if (twist.listTooLong) {
        std::fill(std::begin(out->pwIds), std::end(out->pwIds), uint16_t{1});
        out->count = 0xFFFF;
    }
    return code;
}

kvRc config_get_pw(pwConfig *out, uint32_t pwId)
{
    REAL(config_get_pw);
    twist.pwRecord = out;
    return real(out, pwId);
}

kvRc config_get_ima_params(imaParams *out, uint32_t group)
{
    REAL(config_get_ima_params);
    twist.groupRecord = out;
    const kvRc code = real(out, group);
    if (twist.groupsTooLong)
        out->linkCount = 0x80000001;
    return code;
}

namespace
{

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

std::set<std::string> namesIn(const char *folder)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator{folder})
        names.insert(entry.path().filename());
    return names;
}

auto descriptors()
{
    return namesIn("/proc/self/fd");
}

size_t threads()
{
    return namesIn("/proc/self/task").size() - UNDER_TSAN; // which has one of its own
}

std::set<int> pipes()
{
    std::set<int> found;
    std::error_code failure;
    for (const std::string &name : descriptors())
        if (read_symlink(std::filesystem::path{"/proc/self/fd"} / name, failure)
                .string()
                .starts_with("pipe:"))
            found.insert(stoi(name));
    return found;
}

int callsOf(const char *function)
{
    int count = 0;
    const uint64_t last = kv_sim_journal_last();
    kvSimCall call;
    for (uint64_t number = last > 1024 ? last - 1023 : 1; number <= last; ++number)
        count += kv_sim_journal_get(number, &call) == 0 && strcmp(call.function, function) == 0;
    return count;
}

// Everything that was raised has been handed on.
void settle()
{
    ASSERT_TRUE(until([] {
        uint32_t waiting;
        uint64_t lost;
        return kv_sim_pending(&waiting, &lost) == 0 && waiting == 0;
    }));
}

// The exit code of a process, or -1 when it doesn't end.
int await(pid_t process)
{
    int status = -1;
    if (until([&] { return waitpid(process, &status, WNOHANG) == process; }))
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    return -1;
}

// The exit code of a forked child that returns from its main function with what `body` returns.
int inChild(const std::function<int()> &body)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        exit(body());
    return await(child);
}

#define SKIP_UNDER_TSAN()                                                                          \
    if (UNDER_TSAN)                                                                                \
    GTEST_SKIP() << "ThreadSanitizer follows neither forked children nor signals"

#define REQUIRE(condition)                                                                         \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: not so: %s\n", __LINE__, #condition);                        \
            return 1;                                                                              \
        }                                                                                          \
    } while (false)

std::atomic<int> delivered;
std::atomic<pid_t> callbackThread;
std::atomic<void (*)()> inCallback;

template <class Record>
void count(Record *)
{
    callbackThread = gettid();
    ++delivered;
    if (void (*const also)() = inCallback)
        also();
}

struct ServiceCase {
    const char *name;
    void (*start)();
    void (*mute)();
    void (*stop)();
    void (*raise)(); // one call of the callback
    int (*socket)();
    const char *subscribe, *process, *unsubscribe;
    std::string inRegister, inThread; // beginnings of log records
};

const ServiceCase alarmService{
    "alarm",
    [] { vexo_cmi_alarm_callback_register(count); },
    [] { vexo_cmi_alarm_callback_register(nullptr); },
    vexo_cmi_alarm_callback_unregister,
    [] { kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1); },
    alarm_notification_sock,
    "alarm_subscribe",
    "alarm_process_notification",
    "alarm_unsubscribe",
    "3 29 gorvCmi vexo_cmi_alarm_callback_register Cannot create of alarm notification ",
    " 29 gorvCmi thread_alarm_notification_handler ",
};

const ServiceCase pmService{
    "pm",
    [] { vexo_cmi_pm_callback_register(count); },
    [] { vexo_cmi_pm_callback_register(nullptr); },
    vexo_cmi_pm_callback_unregister,
    [] { kv_sim_interval_send(1); },
    pmom_notification_sock,
    "pmom_subscribe",
    "pmom_process_notification",
    "pmom_unsubscribe",
    "3 29 gorvCmi vexo_cmi_pm_callback_register Cannot create of pm notification ",
    " 29 gorvCmi thread_pm_notification_handler ",
};

class Notify : public Device
{
  protected:
    void SetUp() override
    {
        Device::SetUp();
        delivered = 0;
        inCallback = nullptr;
        twist.ports = twist.groups = 0;
        twist.listTooLong = twist.groupsTooLong = twist.noPorts = false;
        twist.processStuck = twist.processHeld = false;
        twist.processCalls = twist.processFails = 0;
        pauses.clear();
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

    // Of the log, what the thread says at levels above debug, and its end.
    Names thread(uint64_t since = 0) const
    {
        Names lines = logSince(since);
        std::erase_if(lines, [&](const std::string &line) { return line.find(inThread) != 1; });
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(, NotifyService, testing::Values(&alarmService, &pmService),
                         [](const auto &tested) { return tested.param->name; });

TEST_P(NotifyService, RunsOnOneThreadWithOnePipeFromFirstRegistrationToUnregistration)
{
    const auto before = descriptors();
    const size_t pipesBefore = pipes().size();
    service.mute();
    service.stop();
    EXPECT_EQ(descriptors(), before) << "null on an idle service, and its unregistration";

    ASSERT_TRUE(start());
    ASSERT_TRUE(delivers());
    const auto running = descriptors();
    service.start();
    EXPECT_EQ(descriptors(), running) << "a second registration";
    EXPECT_EQ(pipes().size(), pipesBefore + 2);
    EXPECT_EQ(threads(), 2u);

    service.mute();
    const int heard = delivered;
    service.raise();
    settle();
    EXPECT_EQ(delivered, heard) << "null drops what comes";
    EXPECT_EQ(threads(), 2u) << "and keeps the service running";
    service.start();
    EXPECT_TRUE(delivers());
    EXPECT_EQ(callsOf(service.subscribe), 1);

    service.stop();
    service.stop();
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(threads(), 1u);
    EXPECT_EQ(callsOf(service.unsubscribe), 1);
    EXPECT_EQ(thread(), Names{"7" + inThread + "pthread_exit"});

    ASSERT_TRUE(start());
    EXPECT_TRUE(delivers());
    vexo_cmi_fini();
    vexo_cmi_fini();
    EXPECT_EQ(descriptors(), before);
    ASSERT_TRUE(start()) << "after vexo_cmi_fini()";
    EXPECT_TRUE(delivers());
}

TEST_P(NotifyService, AFailedPipeOrThreadIsLoggedAndTheNextRegistrationTriesAnew)
{
    const auto before = descriptors();
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    void (*const startService)() = service.start;
    setrlimit(RLIMIT_NOFILE, &none);
    startService();
    setrlimit(RLIMIT_NOFILE, &limit);

    // No thread gets a stack of this size.
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, SIZE_MAX - 0xFFFF);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    service.start();
    pthread_setattr_default_np(&usual);

    EXPECT_EQ(logSince(0), (Names{service.inRegister + "pipe", service.inRegister + "thread"}));
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(threads(), 1u);
    service.stop();
    ASSERT_TRUE(start());
    EXPECT_TRUE(delivers());
}

TEST_P(NotifyService, AFailedSubscriptionEndsTheThreadUntilItIsUnregistered)
{
    failing(service.subscribe, 128);
    service.start();
    const Names end{"3" + inThread + "CMI fail " + kv_rc_to_string(128) + "(128)",
                    "7" + inThread + "pthread_exit"};
    ASSERT_TRUE(until([&] { return thread() == end; }));
    service.start();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(thread(), end);
    EXPECT_EQ(callsOf(service.subscribe), 1);
    service.stop();
    EXPECT_EQ(callsOf(service.unsubscribe), 0);
    ASSERT_TRUE(start());
    EXPECT_TRUE(delivers());
}

TEST_P(NotifyService, AFailedProcessingIsLoggedAndTheServiceGoesOn)
{
    failing(service.process, 8);
    ASSERT_TRUE(start());
    service.raise();
    ASSERT_TRUE(until([&] { return !thread().empty(); }));
    EXPECT_EQ(thread(), Names{"3" + inThread + "process event fails: " + kv_rc_to_string(8)});
    EXPECT_TRUE(delivers());
}

TEST_P(NotifyService, PausesLongerAndLongerBetweenFailuresUntilItIsStopped)
{
    ASSERT_TRUE(start());
    twist.processFails = 1000;
    service.raise();
    ASSERT_TRUE(until([] { return pausesSoFar().size() == PAUSES.size() + 1; }));
    service.stop();
    std::vector<int> expected = PAUSES;
    expected.push_back(PAUSES.back());
    EXPECT_EQ(pauses, expected);
    // The first failure is followed by none.
    Names log(PAUSES.size() + 2, "3" + inThread + "process event fails: " + kv_rc_to_string(16));
    EXPECT_EQ(twist.processCalls, static_cast<int>(log.size()));
    log.push_back("7" + inThread + "pthread_exit");
    EXPECT_EQ(thread(), log);
    EXPECT_EQ(callsOf(service.unsubscribe), 1);
    EXPECT_EQ(delivered, 0) << "what is pending is dropped";
}

TEST_P(NotifyService, ASuccessEndsThePausesBetweenFailures)
{
    ASSERT_TRUE(start());
    for (int times = 1; times <= 2; ++times) {
        twist.processFails = 3;
        service.raise();
        ASSERT_TRUE(until([&] { return delivered == times; }));
    }
    service.stop();
    EXPECT_EQ(pauses, (std::vector<int>{10, 20, 10, 20}));
}

TEST_P(NotifyService, StopsEvenWhenNotificationsNeverCease)
{
    ASSERT_TRUE(start());
    twist.processStuck = true;
    service.raise();
    ASSERT_TRUE(until([] { return twist.processCalls > 0; }));
    // Behind a flag, as unregistering may never return.
    std::atomic<bool> stopped{false};
    std::thread stopping{[&] {
        service.stop();
        stopped = true;
    }};
    EXPECT_TRUE(until([&] { return stopped.load(); }));
    twist.processStuck = false;
    stopping.join();
}

TEST_P(NotifyService, TakesWhatIsPendingBeforeItStops)
{
    const std::set<int> others = pipes();
    ASSERT_TRUE(start());
    twist.processHeld = true;
    service.raise();
    ASSERT_TRUE(until([] { return twist.holding == 1; }));
    std::thread stopping{service.stop};
    EXPECT_TRUE(until([&] {
        int bytes = 0;
        for (const int end : pipes())
            if (!others.contains(end) && ioctl(end, FIONREAD, &bytes) == 0 && bytes == 1)
                return true;
        return false;
    })) << "told to stop";
    EXPECT_EQ(delivered, 0);
    twist.processHeld = false;
    stopping.join();
    EXPECT_EQ(delivered, 1);
}

TEST_P(NotifyService, SurvivesTheLossOfItsSocket)
{
    ASSERT_TRUE(start());
    ASSERT_TRUE(delivers());
    close(service.socket());
    service.raise();
    // Closing does not wake the thread.
    signal(SIGUSR1, [](int) {});
    tgkill(getpid(), callbackThread, SIGUSR1);
    const Names end{"3" + inThread + "select(): " + strerror(EBADF),
                    "7" + inThread + "pthread_exit"};
    ASSERT_TRUE(until([&] { return thread() == end; }));
    EXPECT_EQ(callsOf(service.unsubscribe), 1);
    service.stop();
    ASSERT_TRUE(start());
    EXPECT_TRUE(delivers());
}

TEST_P(NotifyService, ASignalGoesUnnoticed)
{
    SKIP_UNDER_TSAN();
    ASSERT_TRUE(start());
    ASSERT_TRUE(delivers());
    static std::atomic<int> taken;
    taken = 0;
    signal(SIGUSR1, [](int) { ++taken; });
    for (int i = 1; i <= 10; ++i) {
        tgkill(getpid(), callbackThread, SIGUSR1);
        ASSERT_TRUE(until([&] { return taken == i; }));
    }
    EXPECT_TRUE(delivers());
    EXPECT_EQ(thread(), Names{});
}

TEST_P(NotifyService, WorksInAHostThatHasClosedItsStandardDescriptors)
{
    SKIP_UNDER_TSAN();
    for (const int last : {0, 2}) {
        EXPECT_EQ(inChild([&] {
                      for (int descriptor = 0; descriptor <= last; ++descriptor)
                          close(descriptor);
                      const auto before = descriptors();
                      const std::set<int> others = pipes();
                      REQUIRE(start());
                      REQUIRE(delivers());
                      // Else what the host prints would stop the service.
                      for (const int end : pipes())
                          REQUIRE(others.contains(end) ||
                                  (end > STDERR_FILENO && fcntl(end, F_GETFD) == FD_CLOEXEC));
                      service.stop();
                      REQUIRE(threads() == 1 && descriptors() == before);
                      REQUIRE(start());
                      REQUIRE(delivers());
                      return 0;
                  }),
                  0)
            << "descriptors up to " << last << " closed";
    }
}

TEST_P(NotifyService, DescriptorsBeyondSelectAreRefusedWithALogRecord)
{
    SKIP_UNDER_TSAN();
    const auto body = [&] {
        const rlimit room{4096, 4096};
        REQUIRE(setrlimit(RLIMIT_NOFILE, &room) == 0);
        std::vector<int> taken;
        const auto takeAllBut = [&](size_t left) {
            do
                taken.push_back(dup(STDERR_FILENO));
            while (taken.back() < FD_SETSIZE);
            for (size_t i = 0; i < left; ++i)
                close(taken[i]);
        };
        const auto giveBack = [&] {
            for (const int descriptor : taken)
                close(descriptor);
            taken.clear();
        };

        takeAllBut(0);
        const auto before = descriptors();
        service.start();
        REQUIRE(logSince(0) == Names{service.inRegister + "pipe"});
        REQUIRE(descriptors() == before && threads() == 1);
        giveBack();
        REQUIRE(start());
        REQUIRE(delivers());
        service.stop();

        // Room for the pipe, but not for the platform's socket.
        takeAllBut(2);
        const uint64_t mark = kv_sim_log_last();
        service.start();
        REQUIRE(until([&] { return thread(mark).size() == 2; }));
        const std::string refusal = "3" + inThread + "select(): descriptor ";
        REQUIRE(thread(mark)[0].starts_with(refusal));
        REQUIRE(stoi(thread(mark)[0].substr(refusal.size())) >= FD_SETSIZE);
        REQUIRE(thread(mark)[1] == "7" + inThread + "pthread_exit");
        service.stop();
        giveBack();
        REQUIRE(start());
        REQUIRE(delivers());
        return 0;
    };
    EXPECT_EQ(inChild(body), 0);
}

TEST_P(NotifyService, NoDescriptorReachesAProgramThatTheHostStarts)
{
    const auto ofStarted = [] {
        std::string list;
        FILE *output = popen("ls /proc/self/fd", "r");
        for (int byte; (byte = fgetc(output)) != EOF;)
            list += static_cast<char>(byte);
        pclose(output);
        return list;
    };
    const std::string before = ofStarted();
    ASSERT_TRUE(start());
    EXPECT_EQ(ofStarted(), before);
}

TEST_P(NotifyService, AForkedChildEndsWithoutHarmAndCanHaveServicesOfItsOwn)
{
    SKIP_UNDER_TSAN();
    const std::set<int> others = pipes();
    ASSERT_TRUE(start());
    ASSERT_TRUE(delivers());
    EXPECT_EQ(inChild([] { return 0; }), 0) << "the child ends at once";
    EXPECT_TRUE(delivers());

    EXPECT_EQ(inChild([&] {
                  service.stop();
                  REQUIRE(start());
                  REQUIRE(delivers());
                  service.stop();
                  REQUIRE(threads() == 1);
                  REQUIRE(start());
                  REQUIRE(delivers());
                  return 0;
              }),
              0)
        << "the child registers";
    EXPECT_TRUE(delivers());

    // The child uses the numbers of the inherited pipe otherwise.
    const std::string path = testing::TempDir() + "notify_test." + std::to_string(getpid());
    std::set<int> ends = pipes();
    std::erase_if(ends, [&](int end) { return others.contains(end); });
    ASSERT_EQ(ends.size(), 2u);
    EXPECT_EQ(inChild([&] {
                  for (const int end : ends) {
                      FILE *file = fopen(path.c_str(), "a");
                      REQUIRE(file && dup2(fileno(file), end) == end);
                      REQUIRE(fputs("kept", fdopen(end, "a")) >= 0); // written when the child ends
                  }
                  return 0;
              }),
              0);
    EXPECT_EQ(std::filesystem::file_size(path), 8u);
    std::filesystem::remove(path);
    EXPECT_TRUE(delivers());
    EXPECT_EQ(callsOf(service.subscribe), 1);
}

TEST_P(NotifyService, LeavesNothingBehindHoweverOftenItIsRegistered)
{
    const auto resident = [] {
        size_t total, pages;
        FILE *file = fopen("/proc/self/statm", "r");
        const bool read = fscanf(file, "%zu %zu", &total, &pages) == 2;
        fclose(file);
        return read ? std::pair{total, pages} : std::pair<size_t, size_t>{};
    };
    const auto cycles = [&](int count) {
        for (int i = 0; i < count; ++i) {
            service.start();
            service.stop();
        }
    };
    const auto before = descriptors();
    cycles(2000); // the device fills its journal and log
    const auto [total, pages] = resident();
    cycles(10000);
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(threads(), 1u);
    if (!SANITIZED) {
        EXPECT_EQ(resident().first, total) << "pages of memory";
        // The kernel counts in batches of 64 pages; 64 bytes left behind by each cycle are 156.
        EXPECT_LE(resident().second, pages + 128) << "pages in use";
    }
}

TEST_P(NotifyService, ItsCallbackCanBeReplacedFromOutsideAndFromInsideAtOnce)
{
    constexpr uint32_t TIMES = 10000;
    static const ServiceCase *replaced;
    static std::atomic<uint32_t> inside;
    replaced = GetParam();
    inside = 0;
    twist.ports = twist.groups = 1;
    ASSERT_TRUE(start());
    inCallback = [] { (++inside % 10 ? replaced->start : replaced->mute)(); };
    std::atomic<bool> over{false};
    std::thread events{[&] {
        while (!over) {
            service.raise();
            std::this_thread::sleep_for(10us);
        }
    }};
    uint32_t outside = 0;
    const auto end = std::chrono::steady_clock::now() + 60s;
    while ((outside < TIMES || inside < TIMES) && std::chrono::steady_clock::now() < end) {
        (++outside % 3 ? service.start : service.mute)();
        std::this_thread::sleep_for(10us);
    }
    over = true;
    events.join();
    EXPECT_GE(outside, TIMES);
    EXPECT_GE(inside, TIMES);
    EXPECT_EQ(threads(), 2u);
}

TEST_F(Notify, UnloadAndEndStopBothServicesAlarmsFirstAndNeverHang)
{
    Dl_info library;
    ASSERT_TRUE(dladdr(reinterpret_cast<void *>(vexo_cmi_init), &library));
    const auto host = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "notify_host";
    for (const char *way : {"unload", "end"})
        for (const char *state : {"idle", "busy"}) {
            const pid_t child = fork();
            if (child == 0) {
                execl(host.c_str(), host.c_str(), library.dli_fname, way, state, nullptr);
                _exit(127);
            }
            EXPECT_EQ(await(child), 0) << way << " " << state;
        }
}

std::mutex recordsMutex;
std::vector<vexoAlarmNotification> alarms;
std::vector<vexoPmNotification> reports;

void keepAlarm(vexoAlarmNotification *alarm)
{
    const std::lock_guard guard{recordsMutex};
    alarms.push_back(*alarm);
}

void keepPm(vexoPmNotification *pm)
{
    const std::lock_guard guard{recordsMutex};
    reports.push_back(*pm);
}

class NotifyContent : public Notify
{
  protected:
    void SetUp() override
    {
        Notify::SetUp();
        alarms.clear();
        reports.clear();
        vexo_cmi_alarm_callback_register(keepAlarm);
        vexo_cmi_pm_callback_register(keepPm);
        ASSERT_TRUE(until([] { return callsOf("alarm_subscribe") && callsOf("pmom_subscribe"); }));
    }

    // A report of an interval that has just ended.
    std::vector<vexoPmNotification> report(uint32_t interval)
    {
        reports.clear();
        EXPECT_EQ(kv_sim_interval_end(interval), 0) << kv_sim_error();
        if (interval > 3)
            kv_sim_interval_send(interval);
        settle();
        return reports;
    }
};

TEST_F(NotifyContent, AlarmEventsOfEveryObjectTypeArriveAsThePlatformGaveThem)
{
    constexpr uint32_t S = 0xC0FFEE01, D = 0x8000000F;
    const struct {
        uint32_t type, number;
        std::vector<uint32_t> words; // none: not delivered
        const char *log;
    } table[] = {
        {0, 1, {1, 1, S, D}, "type=1, obj=1, status=0xC0FFEE01, delta=0x8000000F"},
        {1, 16, {2, 16, S, D}, "type=2, obj=16, status=0xC0FFEE01, delta=0x8000000F"},
        {2, 8, {4, 1, 8, 8, S, D}, "type=1, obj=8, status=0xC0FFEE01, delta=0x8000000F"},
        {3, 1024, {3, 1024, S, D}, "type=3, obj=1024, status=0xC0FFEE01, delta=0x8000000F"},
        {34, 64, {4, 2, 64, 64, S, D}, "type=2, obj=64, status=0xC0FFEE01, delta=0x8000000F"},
        {1,
         0xFFFFFFFF,
         {2, 0xFFFFFFFF, S, D},
         "type=2, obj=-1, status=0xC0FFEE01, delta=0x8000000F"},
        {4, 1, {}, nullptr},
        {33, 1, {}, nullptr},
        {35, 1, {}, nullptr},
        {0xFFFFFFFF, 1, {}, nullptr},
    };
    for (const auto &row : table) {
        alarms.clear();
        const uint64_t mark = kv_sim_log_last();
        kv_sim_alarm_send(row.type, row.number, S, D);
        settle();
        Names log;
        if (row.log)
            log.push_back(std::string{"7 29 gorvCmi alarm_notification_handler got alarm: "} +
                          row.log);
        EXPECT_EQ(logSince(mark), log) << "object type " << row.type;
        ASSERT_EQ(alarms.size(), log.size()) << "object type " << row.type;
        std::vector<uint32_t> words(row.words.size());
        if (row.log)
            memcpy(words.data(), alarms.data(), words.size() * sizeof(uint32_t));
        EXPECT_EQ(words, row.words) << "object type " << row.type;
    }
}

TEST_F(NotifyContent, AnAlarmGoesToTheCallbackThatWasThereWhenItCame)
{
    twist.atAlarmLog = [] { vexo_cmi_alarm_callback_register(nullptr); };
    kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
    kv_sim_alarm_send(KV_SIM_PDH, 1, 2, 2);
    settle();
    twist.atAlarmLog = nullptr;
    ASSERT_EQ(alarms.size(), 1u);
    EXPECT_EQ(alarms[0].object.status, 1u);
    EXPECT_EQ(logSince(0).size(), 1u) << "what nobody listens to is logged";
}

uint32_t counter(uint32_t type, uint32_t number, uint32_t word)
{
    return 0x01000000 * (type + 1) + 0x100 * number + word;
}

void fillCounters(uint32_t type, uint32_t number, uint32_t interval, uint32_t first, uint32_t last)
{
    for (uint32_t word = first; word <= last; ++word)
        ASSERT_EQ(kv_sim_pm_set(type, number, interval, word, counter(type, number, word)), 0)
            << kv_sim_error();
}

// The words of a record, from one on.
template <class Record>
std::vector<uint32_t> words(const Record &record, size_t from, size_t count)
{
    std::vector<uint32_t> all(sizeof record / sizeof(uint32_t));
    memcpy(all.data(), &record, sizeof record);
    const auto begin = all.begin() + static_cast<ptrdiff_t>(from);
    return {begin, begin + static_cast<ptrdiff_t>(count)};
}

// The counters with these words, and a flag behind them.
std::vector<uint32_t> expected(uint32_t type, uint32_t number, std::vector<uint32_t> words,
                               uint32_t flag)
{
    for (uint32_t &word : words)
        word = counter(type, number, word);
    words.push_back(flag);
    return words;
}

TEST_F(NotifyContent, AReportHoldsTheCountersOfAllPortsThenPseudowiresThenGroups)
{
    constexpr uint32_t INTERVAL = 2;
    const std::map<uint32_t, vexoPweType> pws{{1, VEXO_PWE_TYPE_TDM_1},
                                              {7, VEXO_PWE_TYPE_ATM_3},
                                              {300, VEXO_PWE_TYPE_TDM_2},
                                              {1024, VEXO_PWE_TYPE_ATM_4}};
    for (const auto &[pwId, type] : pws) {
        createPwe(type, pwId);
        const bool atm = type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4;
        fillCounters(KV_SIM_PW, pwId, INTERVAL, 1, atm ? 4 : 13);
    }
    kv_sim_pm_set(KV_SIM_PW, 300, INTERVAL, 14, 2); // a flag that is not 1 does not count
    for (uint32_t port = 1; port <= 16; ++port) {
        fillCounters(KV_SIM_PDH, port, INTERVAL, 1, port > 8 ? 8 : 12);
        fillCounters(KV_SIM_PDH, port, INTERVAL, 14, 18);
    }
    kv_sim_pm_set(KV_SIM_PDH, 16, INTERVAL, 9, 1); // the flag of the second arrangement
    createGroup(2, {1, 2, 3, 4, 5, 6, 7, 8});
    createGroup(8, {60});
    for (const uint32_t group : {2U, 8U})
        fillCounters(KV_SIM_GROUP, group, INTERVAL, 0, 2);
    for (const uint32_t link : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 60U})
        fillCounters(KV_SIM_LINK, link, INTERVAL, 0, 15);

    const auto records = report(INTERVAL);
    EXPECT_EQ(twist.groupRecord, twist.pwRecord) << "they have one buffer, as large as the larger";
    ASSERT_EQ(records.size(), 7u);
    auto record = records.begin();

    ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_PDH);
    for (uint32_t port = 1; port <= 16; ++port) {
        const vexoPdhPm &pm = record->pdh[port - 1];
        EXPECT_EQ(pm.pmType, INTERVAL);
        auto line = port <= 8
                        ? expected(KV_SIM_PDH, port, {1, 2, 3, 4, 5, 6, 7, 10, 8, 9, 11, 12}, 1)
                        : expected(KV_SIM_PDH, port, {2, 3, 4, 5, 6, 7, 8}, 1);
        line.resize(13); // what an arrangement does not have is 0
        EXPECT_EQ(words(pm, 1, 13), line) << "port " << port;
        auto common = expected(KV_SIM_PDH, port, {14, 15, 16, 17, 18}, 0);
        common.pop_back();
        EXPECT_EQ(words(pm, 14, 5), common) << "port " << port;
    }

    for (const auto &[pwId, type] : pws) {
        ++record;
        ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_PWE);
        EXPECT_EQ(record->pwe.pweType, type);
        EXPECT_EQ(record->pwe.interval, INTERVAL);
        EXPECT_EQ(record->pwe.pwId, pwId);
        std::vector<uint32_t> numbers(
            type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4 ? 4 : 13);
        std::iota(numbers.begin(), numbers.end(), 1U);
        EXPECT_EQ(words(record->pwe.body, 0, numbers.size() + 1),
                  expected(KV_SIM_PW, pwId, numbers, pwId != 300))
            << "pseudowire " << pwId;
    }

    for (const auto &[group, links] :
         std::map<uint32_t, std::vector<uint32_t>>{{2, {1, 2, 3, 4, 5, 6, 7, 8}}, {8, {60}}}) {
        ++record;
        ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_IMA);
        EXPECT_EQ(record->ima.interval, INTERVAL);
        EXPECT_EQ(record->ima.groupId, group);
        const vexoImaGroupPm &pm = record->ima.group;
        EXPECT_EQ(pm.intervalFlag, 1u);
        EXPECT_EQ(words(pm, 1, 4),
                  expected(KV_SIM_GROUP, group, {2, 0, 1}, static_cast<uint32_t>(links.size())));
        for (uint32_t i = 0; i < VEXO_IMA_LINK_MAX; ++i) {
            std::vector<uint32_t> all(18);
            if (i < links.size()) {
                all = expected(KV_SIM_LINK, links[i],
                               {0, 2, 3, 4, 5, 6, 7, 1, 8, 9, 10, 11, 12, 13, 14, 15}, 0);
                all.pop_back();
                all.insert(all.begin(), {links[i], 1});
            }
            EXPECT_EQ(words(pm.links[i], 0, 18), all) << "group " << group << ", link " << i;
        }
    }
}

bool isZero(const void *record, size_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(record);
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

// What a report tells about: the objects of its records, "-3" a port and "-" a link that is all 0.
std::string outline(const std::vector<vexoPmNotification> &records)
{
    std::string text;
    for (const vexoPmNotification &record : records) {
        if (record.objType == VEXO_OBJ_TYPE_PDH) {
            text += "ports";
            for (uint32_t i = 0; i < VEXO_PM_PDH_MAX; ++i)
                if (isZero(&record.pdh[i], sizeof record.pdh[i]))
                    text += "-" + std::to_string(i + 1);
        } else if (record.objType == VEXO_OBJ_TYPE_PWE) {
            text += " pw" + std::to_string(record.pwe.pwId);
        } else {
            text += " group" + std::to_string(record.ima.groupId) + "(";
            for (uint32_t i = 0; i < record.ima.group.linkCount; ++i) {
                const vexoImaLinkPm &link = record.ima.group.links[i];
                text += isZero(&link, sizeof link) ? "-" : std::to_string(link.linkId);
            }
            text += ")";
        }
    }
    return text;
}

TEST_F(NotifyContent, AFailedReadLeavesOutItsObjectAndSaysSoUnlessThereIsNothingToRead)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_ATM_3, 2);
    createGroup(1, {1, 2});
    const std::string whole = "ports pw1 pw2 group1(12)";
    const std::string noPort3 = "ports-3 pw1 pw2 group1(12)";
    const std::string noPws = "ports group1(12)";
    const std::string noGroup = "ports pw1 pw2";
    const struct {
        const char *function;
        uint32_t object;
        kvRc code;
        std::string outline;
        std::string log; // $ stands for the code's text
    } table[] = {
        {"kv_log_clear", 0, 1, whole, ""},
        {"pmom_pdh_pm_stat_get", 3, 0x1000, noPort3, ""},
        {"pmom_pdh_pm_stat_get", 3, 0x20000, noPort3, "pmom_pdh_pm_stat_get failed(3) 131072($)"},
        {"config_get_pw_all_prov", 0, 2, noPws, "config_get_pw_all_prov failed 2($)"},
        {"config_get_pw_all_prov", 0, 0x1000, noPws, "config_get_pw_all_prov failed 4096($)"},
        {"config_get_pw", 1, 0x20000, "ports pw2 group1(12)", "config_get_pw failed(1) 131072($)"},
        {"config_get_pw", 2, 0x1000, "ports pw1 group1(12)", "config_get_pw failed(2) 4096($)"},
        {"pmom_pw_pm_stat_get", 2, 0x1000, "ports pw1 group1(12)", ""},
        {"pmom_pw_pm_stat_get", 1, 0x20000, "ports pw2 group1(12)",
         "pmom_pw_pm_stat_get failed(1) 131072($)"},
        {"config_get_ima_params", 1, 0x20000, noGroup, ""},
        {"config_get_ima_params", 1, 0x1000, noGroup, "config_get_ima_params failed(1) ($)"},
        {"pmom_ima_group_pm_stat_get", 1, 0x1000, noGroup, ""},
        {"pmom_ima_group_pm_stat_get", 1, 0x20000, noGroup,
         "pmom_ima_group_pm_stat_get failed(1, 3) ($)"},
        {"pmom_ima_link_pm_stat_get", 1, 0x1000, "ports pw1 pw2 group1(-2)", ""},
        {"pmom_ima_link_pm_stat_get", 2, 512, "ports pw1 pw2 group1(1-)",
         "pmom_ima_link_pm_stat_get failed(2, 3) ($)"},
    };
    for (const auto &row : table) {
        failing(row.function, row.code, 0, 0, row.object);
        const uint64_t mark = kv_sim_log_last();
        EXPECT_EQ(outline(report(3)), row.outline) << row.function << " " << row.code;
        Names log;
        if (!row.log.empty()) {
            std::string text = row.log;
            if (const size_t at = text.find('$'); at != text.npos)
                text.replace(at, 1, kv_rc_to_string(row.code));
            log.push_back("3 29 gorvCmi pm_notification_handler " + text);
        }
        EXPECT_EQ(logSince(mark), log) << row.function << " " << row.code;
        kv_sim_fault_clear();
    }

    kv_sim_pm_set(KV_SIM_PW, 1, 3, 0, 7);
    const uint64_t mark = kv_sim_log_last();
    EXPECT_EQ(outline(report(3)), "ports pw2 group1(12)") << "counters of an unknown kind";
    EXPECT_EQ(logSince(mark), Names{"3 29 gorvCmi pm_notification_handler Unknown PWE type 7"});
}

TEST_F(NotifyContent, MoreObjectsThanTheRecordsHoldAreLeftOutWithALogRecord)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createGroup(1, {1, 2, 3, 4, 5, 6, 7, 8});
    twist.ports = 0xFFFFFFFF;
    twist.groups = 0xFFFFFFFF;
    twist.listTooLong = twist.groupsTooLong = true;
    failing("config_get_ima_params", 0x20000, 1, 0); // there is but the first group

    const auto records = report(1);
    std::string pws;
    for (int i = 0; i < 1024; ++i)
        pws += " pw1";
    EXPECT_EQ(outline(records), "ports" + pws + " group1(12345678)");
    const std::string function = "3 29 gorvCmi pm_notification_handler ";
    EXPECT_EQ(logSince(0),
              (Names{function + "more than 16 PDH ports, the others are left out",
                     function + "65535 pseudowires, only the first 1024 are reported",
                     function + "IMA group 1 has 2147483649 links, only the first 8 are reported",
                     function + "more than 65535 IMA groups, the others are left out"}));
}

TEST_F(NotifyContent, AnIntervalThatTheLibraryDoesNotKnowIsReadAsReceivedAndReportedAs0)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createGroup(1, {1});
    for (const uint32_t interval : {1U, 2U, 3U, 4U}) {
        const uint64_t mark = kv_sim_journal_last();
        const auto records = report(interval);
        const uint32_t known = interval < 4 ? interval : 0;
        ASSERT_EQ(records.size(), 3u);
        for (const vexoPdhPm &pm : records[0].pdh)
            EXPECT_EQ(pm.pmType, known);
        EXPECT_EQ(records[1].pwe.interval, known);
        EXPECT_EQ(records[2].ima.interval, known);
        int reads = 0;
        kvSimCall call;
        for (uint64_t number = mark + 1; kv_sim_journal_get(number, &call) == 0; ++number) {
            if (!strstr(call.function, "_pm_stat_get"))
                continue;
            ++reads;
            EXPECT_EQ(call.args[1], interval) << call.function;
            EXPECT_EQ(call.args[2], 1u) << call.function;
        }
        EXPECT_EQ(reads, 16 + 1 + 1 + 1);
    }
}

TEST_F(NotifyContent, AnEmptyDeviceReportsPortsAllTheSameAndWithoutAListenerNothingIsRead)
{
    failing("pmom_pdh_pm_stat_get", 0x1000, 0, 0);
    const std::string noPort = "ports-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16";
    EXPECT_EQ(outline(report(1)), noPort);
    twist.noPorts = true;
    EXPECT_EQ(outline(report(1)), noPort) << "no port at all";
    vexo_cmi_pm_callback_register(nullptr);
    const int lists = callsOf("config_get_pw_all_prov");
    EXPECT_EQ(outline(report(1)), "");
    EXPECT_EQ(callsOf("config_get_pw_all_prov"), lists);
}

std::atomic<int> laterRecords;

TEST_F(NotifyContent, ACallbackThatIsReplacedDuringAReportGetsTheRestOfIt)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_TDM_1, 2);
    laterRecords = 0;
    vexo_cmi_pm_callback_register([](vexoPmNotification *pm) {
        vexo_cmi_pm_callback_register([](vexoPmNotification *) { ++laterRecords; });
        keepPm(pm);
    });
    EXPECT_EQ(outline(report(1)), "ports pw1 pw2");
    EXPECT_EQ(laterRecords, 0);
    EXPECT_EQ(outline(report(1)), "");
    EXPECT_EQ(laterRecords, 3);
}

} // namespace
