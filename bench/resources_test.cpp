// What an operation takes besides time: no memory, no lock, no system call, little stack.
#include "operations.h"

#include "bare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <ucontext.h>
#include <unistd.h>

using namespace bench;

namespace
{

unsigned allocations;
unsigned locks;

template <class Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These stand before those of the C library.
extern "C" {

void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

void *malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    ++allocations;
    return __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    ++allocations;
    return __libc_memalign(alignment, size);
}

void free(void *block)
{
    ++allocations;
    __libc_free(block);
}

int pthread_mutex_lock(pthread_mutex_t *mutex)
{
    ++locks;
    return next<decltype(pthread_mutex_lock)>("pthread_mutex_lock")(mutex);
}

int pthread_rwlock_rdlock(pthread_rwlock_t *lock)
{
    ++locks;
    return next<decltype(pthread_rwlock_rdlock)>("pthread_rwlock_rdlock")(lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t *lock)
{
    ++locks;
    return next<decltype(pthread_rwlock_wrlock)>("pthread_rwlock_wrlock")(lock);
}

int pthread_spin_lock(pthread_spinlock_t *lock)
{
    ++locks;
    return next<decltype(pthread_spin_lock)>("pthread_spin_lock")(lock);
}
}

namespace
{

// Makes every system call of this thread a signal as long as `blocking` says so.
class SystemCalls
{
  public:
    SystemCalls()
    {
        signal(SIGSYS, [](int) {
            blocking = SYSCALL_DISPATCH_FILTER_ALLOW;
            count_ = count_ + 1;
        });
        available = prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0, 0, &blocking) == 0;
    }
    ~SystemCalls() { prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, 0); }

    template <class Run>
    static unsigned during(Run run)
    {
        count_ = 0;
        blocking = SYSCALL_DISPATCH_FILTER_BLOCK;
        run();
        blocking = SYSCALL_DISPATCH_FILTER_ALLOW;
        return count_;
    }

    bool available;

  private:
    static volatile char blocking;
    static volatile unsigned count_;
};

volatile char SystemCalls::blocking = SYSCALL_DISPATCH_FILTER_ALLOW;
volatile unsigned SystemCalls::count_;

// How deep a function gets into a stack of its own.
class PaintedStack
{
  public:
    size_t depthOf(void (*run)())
    {
        return touchedBy(run) - touchedBy([] {});
    }

  private:
    static constexpr char PAINT = '\xA5';

    size_t touchedBy(void (*run)())
    {
        stack_.fill(PAINT);
        runInside(run);
        const auto touched = std::ranges::find_if(stack_, [](char byte) { return byte != PAINT; });
        return static_cast<size_t>(stack_.end() - touched);
    }

    [[gnu::noinline]] void runInside(void (*run)())
    {
        ucontext_t inside;
        getcontext(&inside);
        inside.uc_stack.ss_sp = stack_.data();
        inside.uc_stack.ss_size = stack_.size();
        inside.uc_link = &outside_;
        makecontext(&inside, run, 0);
        swapcontext(&outside_, &inside);
    }

    ucontext_t outside_{};
    alignas(64) std::array<char, 65536> stack_;
};

// What the library refuses by itself.
constexpr Operation REFUSALS[] = {
    {Kind::other,
     "pwe_pdv_get",
     [] {
         uint32_t size;
         vexo_cmi_pwe_pdv_get(&size, 3, &result);
     },
     {},
     "not TDM"},
    {Kind::other,
     "pwe_atmop_xc_get",
     [] {
         static vexoPweAtmXc xcs[VEXO_PWE_ATM_XC_MAX];
         uint32_t count;
         vexo_cmi_pwe_atmop_xc_get(xcs, &count, 1, &result);
     },
     {},
     "not ATM"},
    {Kind::other,
     "pwe_psn_set",
     [] {
         vexoPwePsn psn{};
         psn.psnType = VEXO_PWE_PSN_TYPE_4;
         vexo_cmi_pwe_psn_set(&psn, 1, &result);
     },
     {},
     "not supported"},
    {Kind::other,
     "ima_set",
     [] {
         vexoImaGroupSet group{};
         group.imaAction = vexoImaAction{3};
         vexo_cmi_ima_set(&group, 1, &result);
     },
     {},
     "bad action"},
};

// Every operation as it succeeds, with each of its platform calls failing in turn, and refused.
template <class Check>
void forEveryOutcome(Check check)
{
    constexpr unsigned CALLS_MAX = 300;
    for (const Operation &operation : operations()) {
        bareFailIn = 0;
        check(operation, nameOf(operation));
        for (unsigned call = 1; call < CALLS_MAX && bareFailIn == 0; ++call) {
            bareFailCode = 2;
            bareFailIn = call;
            check(operation, nameOf(operation) + ", call " + std::to_string(call) + " fails");
        }
    }
    bareFailIn = 0;
    for (const Operation &operation : REFUSALS)
        check(operation, nameOf(operation));
}

class AnOperation : public testing::Test
{
  protected:
    // Once before it counts, so that all functions are bound.
    static void SetUpTestSuite()
    {
        setUp();
        forEveryOutcome([](const Operation &operation, const std::string &) {
            operation.library();
            operation.bare.run();
        });
    }
};

TEST_F(AnOperation, AllocatesNothingAndTakesNoLock)
{
    forEveryOutcome([](const Operation &operation, const std::string &name) {
        allocations = locks = 0;
        operation.library();
        const unsigned allocated = allocations, locked = locks;
        EXPECT_EQ(allocated, 0U) << name;
        EXPECT_EQ(locked, 0U) << name;
    });
}

TEST_F(AnOperation, MakesNoSystemCallOfItsOwn)
{
    SystemCalls systemCalls;
    if (!systemCalls.available)
        GTEST_SKIP() << "the kernel can't hand system calls back";
    ASSERT_EQ(systemCalls.during(getppid), 1U);
    forEveryOutcome([&](const Operation &operation, const std::string &name) {
        EXPECT_EQ(systemCalls.during(operation.library), 0U) << name;
    });
}

TEST_F(AnOperation, NeedsItsRecordsAnd256BytesOfStack)
{
    PaintedStack stack;
    size_t most = 0;
    forEveryOutcome([&](const Operation &operation, const std::string &name) {
        const size_t depth = stack.depthOf(operation.library);
        const size_t records = recordsOf(operation.name);
        most = std::max(most, depth - std::min(depth, records));
        EXPECT_LE(depth, records + 256) << name;
    });
    printf("at most %zu bytes beyond its records\n", most);
}

TEST(ARegistration, MakesNoSystemCallWhileItsServiceRuns)
{
    SystemCalls systemCalls;
    if (!systemCalls.available)
        GTEST_SKIP() << "the kernel can't hand system calls back";
    const auto registerOne = [] { vexo_cmi_pm_callback_register([](vexoPmNotification *) {}); };
    registerOne();
    EXPECT_EQ(systemCalls.during(registerOne), 0U);
    vexo_cmi_fini();
}

TEST(APmReport, NeedsLessThan4KiBOfStackAndNoHeapOrLock)
{
    vexo_cmi_pm_callback_register([](vexoPmNotification *) {});
    while (!barePmSubscribed())
        usleep(1000);
    vexo_cmi_fini();
    PaintedStack stack;
    const auto report = [] { barePmDeliver(pmInterval{1}); };
    report();
    allocations = locks = 0;
    report();
    EXPECT_EQ(allocations + locks, 0U);
    const size_t depth = stack.depthOf(report);
    EXPECT_GT(depth, sizeof(vexoPmNotification));
    EXPECT_LT(depth, 4096U);
    printf("%zu bytes\n", depth);
}

} // namespace
