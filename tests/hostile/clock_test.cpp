// The keep-alive on every clock that there can be, and in the middle of another one.
#include "../device.h"

#include <cstdint>
#include <limits>

#include <signal.h>
#include <sys/time.h>
#include <ucontext.h>

#if defined(__SANITIZE_THREAD__)
#define UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_TSAN 1
#endif
#endif

namespace
{

// What the clock reads, and what it reads once it has been set.
struct Clock {
    timeval now, afterSetting;
    bool isSet;
} device;

int stepsLeft; // that a keep-alive takes alone after it has read the clock it has set
bool sending;

// From here on a signal comes after each instruction.
void step()
{
#ifdef __x86_64__
    asm volatile("leaq -128(%%rsp), %%rsp\n\t"
                 "pushfq\n\t"
                 "orq $0x100, (%%rsp)\n\t"
                 "popfq\n\t"
                 "leaq 128(%%rsp), %%rsp" ::
                     : "memory", "cc");
#endif
}

} // namespace

// The host's own, which the simulated device leaves in place.
int settimeofday(const timeval *, const struct timezone *) noexcept
{
    device.now = device.afterSetting;
    device.isSet = true;
    return 0;
}

int gettimeofday(timeval *time, void *) noexcept
{
    *time = device.now;
    if (device.isSet && stepsLeft > 0)
        step();
    return 0;
}

namespace
{

constexpr time_t LAST = std::numeric_limits<time_t>::max();

class KeepAlive : public Device
{
  public:
    // Whether a keep-alive that finds the clock at `now` sets it; it then reads `afterSetting`.
    static bool sets(timeval now, timeval afterSetting = {})
    {
        device = {now, afterSetting, false};
        vexoResult result;
        sending = true;
        vexo_cmi_sys_kato_send(1, 2, &result);
        sending = false;
        EXPECT_OK(result);
        return device.isSet;
    }

  protected:
    void SetUp() override
    {
#ifdef UNDER_TSAN
        GTEST_SKIP() << "ThreadSanitizer has a clock of its own";
#endif
        Device::SetUp();
    }

    // Back to where the library starts: set in the second 0 is never set.
    static void forget()
    {
        ASSERT_TRUE(sets({LAST, 999999}, {0, 0}));
    }
};

TEST_F(KeepAlive, SetsEveryClockThatReads901SecondsMoreThanWhenItWasSet)
{
    constexpr int64_t HALF = int64_t{1} << 31, WHOLE = int64_t{1} << 32;
    constexpr int64_t MIN = std::numeric_limits<time_t>::min(), MAX = LAST;
    const struct {
        int64_t last, lastMicroseconds, now, nowMicroseconds;
        bool sets;
    } rows[] = {
        {WHOLE - 99, 0, WHOLE + 802, 0, true},
        {WHOLE - 99, 0, WHOLE + 801, 999999, false},
        {WHOLE - 99, 7, WHOLE + 802, 6, false},
        {WHOLE - 99, 7, WHOLE + 802, 7, true},
        {HALF - 99, 0, HALF + 802, 0, true},
        {HALF - 99, 1, HALF + 802, 0, false},
        {1700000000, 0, 1700000000 + 901 + WHOLE, 0, true},
        {1700000000 + WHOLE, 0, 1700000000 + 901, 0, false},
        {1700000000, 0, -5, 0, false},
        {1700000000, 999999, MIN, 999999, false},
        {-2000, 500000, -1099, 499999, false},
        {-2000, 500000, -1099, 500000, true},
        {-2000, 500000, -2001, 999999, false},
        {-450, 0, 450, 999999, false},
        {-450, 0, 451, 0, true},
        {MIN, 0, MIN + 900, 999999, false},
        {MIN, 999999, MIN + 901, 999998, false},
        {MIN, 0, MAX, 0, true},
        {MAX - 901, 999999, MAX, 999998, false},
        {MAX - 901, 999999, MAX, 999999, true},
        {1, 0, 901, 999999, false},
        {1, 0, 902, 0, true},
    };
    const auto clockOf = [](int64_t seconds, int64_t microseconds) {
        timeval time{};
        time.tv_sec = static_cast<time_t>(seconds);
        time.tv_usec = static_cast<suseconds_t>(microseconds);
        return time;
    };
    for (const auto &row : rows) {
        if (row.last > MAX || row.now > MAX)
            continue;
        forget();
        ASSERT_TRUE(sets({1, 0}, clockOf(row.last, row.lastMicroseconds)));
        EXPECT_EQ(sets(clockOf(row.now, row.nowMicroseconds)), row.sets)
            << "set at " << row.last << "." << row.lastMicroseconds << ", now " << row.now << "."
            << row.nowMicroseconds;
    }
}

#ifdef __x86_64__
timeval another; // what the clock reads after the keep-alive in the middle

void onStep(int, siginfo_t *, void *context)
{
    if (sending && --stepsLeft > 0)
        return;
    constexpr greg_t SINGLE_STEP = 0x100;
    static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_EFL] &= ~SINGLE_STEP;
    if (!sending)
        return;
    const Clock interrupted = device;
    EXPECT_TRUE(KeepAlive::sets({LAST, 999999}, another));
    sending = true;
    device = interrupted;
}

TEST_F(KeepAlive, LeavesItsTimeOrThatOfAnotherInItsMiddleButNoMixture)
{
    constexpr time_t AT = 1700000000;
    struct sigaction action {
    };
    action.sa_sigaction = onStep;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    for (const bool early : {true, false}) {
        another = {AT + 1, early ? 0 : 999999};
        int steps = 0;
        for (bool interrupted = true; interrupted;) {
            forget();
            stepsLeft = ++steps;
            ASSERT_TRUE(sets({1, 0}, {AT, early ? 999999 : 0}));
            interrupted = stepsLeft == 0;
            stepsLeft = 0;
            // What one's seconds beside the other's microseconds would make due.
            const bool due = sets({AT + 901, 500000});
            EXPECT_FALSE(early ? due : !due && sets({AT + 902, 500000}))
                << "after " << steps << " instructions";
        }
        EXPECT_GT(steps, 5);
    }
}
#endif

} // namespace
