// The services in the process of their host: its descriptors, signals, forks and its end.
#include "notify.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace
{

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

TEST_P(NotifyService, SurvivesTheLossOfItsSocket)
{
    ASSERT_TRUE(works());
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
    EXPECT_TRUE(works());
}

TEST_P(NotifyService, ASignalGoesUnnoticed)
{
    SKIP_UNDER_TSAN();
    ASSERT_TRUE(works());
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
                      REQUIRE(works());
                      // Else what the host prints would stop the service.
                      for (const int end : pipes())
                          REQUIRE(others.contains(end) ||
                                  (end > STDERR_FILENO && fcntl(end, F_GETFD) == FD_CLOEXEC));
                      service.stop();
                      REQUIRE(threads() == 1 && descriptors() == before);
                      REQUIRE(works());
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
        REQUIRE(works());
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
        REQUIRE(works());
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
    ASSERT_TRUE(works());
    EXPECT_EQ(inChild([] { return 0; }), 0) << "the child ends at once";
    EXPECT_TRUE(delivers());

    EXPECT_EQ(inChild([&] {
                  service.stop();
                  REQUIRE(works());
                  service.stop();
                  REQUIRE(threads() == 1);
                  REQUIRE(works());
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

// By another thread of the host's, say: the pipe is there, the service's thread isn't.
TEST_P(NotifyService, AChildForkedDuringTheFirstRegistrationCanHaveAServiceOfItsOwn)
{
    SKIP_UNDER_TSAN();
    static std::function<int()> body;
    static std::vector<int> codes;
    codes.clear();
    body = [&] {
        twist.atMark = nullptr;
        REQUIRE(works());
        service.stop();
        REQUIRE(threads() == 1);
        return 0;
    };
    twist.atMark = [] { codes.push_back(inChild(body)); };
    ASSERT_TRUE(works());
    EXPECT_EQ(codes, (std::vector{0, 0})) << "one child for each end of the pipe";
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

} // namespace
