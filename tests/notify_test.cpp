// The services: when they run, what a failure does to them, and how they end.
#include "notify.h"

#include <cstring>

#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

namespace
{

INSTANTIATE_TEST_SUITE_P(, NotifyService, testing::Values(&alarmService, &pmService),
                         [](const auto &tested) { return tested.param->name; });

TEST_P(NotifyService, RunsOnOneThreadWithOnePipeFromFirstRegistrationToUnregistration)
{
    const auto before = descriptors();
    const size_t pipesBefore = pipes().size();
    service.mute();
    service.stop();
    EXPECT_EQ(descriptors(), before) << "null on an idle service, and its unregistration";

    ASSERT_TRUE(works());
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

    EXPECT_TRUE(works());
    vexo_cmi_fini();
    vexo_cmi_fini();
    EXPECT_EQ(descriptors(), before);
    EXPECT_TRUE(works()) << "after vexo_cmi_fini()";
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
    EXPECT_TRUE(works());
}

TEST_P(NotifyService, AFailedSubscriptionEndsTheThreadUntilItIsUnregistered)
{
    failing(service.subscribe.c_str(), 128);
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
    EXPECT_TRUE(works());
}

TEST_P(NotifyService, AFailedProcessingIsLoggedAndTheServiceGoesOn)
{
    failing(service.process.c_str(), 8);
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
    EXPECT_EQ(pausesSoFar(), expected);
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
    EXPECT_EQ(pausesSoFar(), (std::vector<int>{10, 20, 10, 20}));
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
    cycles(2000); // the device fills its log, and then its journal
    for (int i = 0; i < 20000; ++i)
        GetObjectCount(OBJ_PDH);
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
    instead<GetObjectCount> = [](objType) { return 1U; };
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

} // namespace
