#include "lock.h"

#include "device.h"

#include <atomic>
#include <cerrno>

#include <linux/futex.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace sim
{

namespace
{

struct Self {
    uint32_t thread; // 0: not known yet
    uint32_t process;
    robust_list_head *robust;
};

// Initial-exec: the notification threads must not need the loader's lock for it.
__attribute__((tls_model("initial-exec"))) thread_local Self known;

const Self &self()
{
    if (!known.thread) {
        size_t size;
        if (syscall(SYS_get_robust_list, 0, &known.robust, &size) != 0)
            known.robust = nullptr;
        known.process = static_cast<uint32_t>(getpid());
        known.thread = static_cast<uint32_t>(syscall(SYS_gettid));
    }
    return known;
}

// When a thread dies the kernel looks at the word that it was about to change, besides those in its
// list of robust locks, and frees it if the thread holds it. The list is the C library's and would
// need pointers in the lock; the place for the one word is free while no lock of the C library's
// is just being taken.
void announce(const Self &self, const Lock *lock)
{
    if (!self.robust)
        return;
    const auto word = reinterpret_cast<uintptr_t>(lock ? &lock->word : nullptr);
    const auto offset = static_cast<uintptr_t>(self.robust->futex_offset);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    self.robust->list_op_pending = lock ? reinterpret_cast<robust_list *>(word - offset) : nullptr;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

constexpr long ROUND_NS = 100000000;
constexpr int ROUNDS = PATIENCE_SECONDS * 10;

// Whether a whole round passed. A process that is killed as it is woken takes the waking with it:
// those who wait besides look again by themselves.
bool sleepOn(Lock &lock, uint32_t value)
{
    const struct {
        long seconds, nanoseconds;
    } round{0, ROUND_NS};
    return syscall(SYS_futex, &lock.word, FUTEX_WAIT, value, &round, nullptr, 0) != 0 &&
           errno == ETIMEDOUT;
}

bool isGone(uint32_t thread)
{
    return kill(static_cast<pid_t>(thread), 0) != 0 && errno == ESRCH;
}

bool wait(Lock &lock, uint32_t thread)
{
    const std::atomic_ref word{lock.word};
    const std::atomic_ref taken{lock.taken};
    uint32_t before = taken;
    for (int rounds = 0;;) {
        uint32_t seen = word;
        const uint32_t holder = seen & FUTEX_TID_MASK;
        // The kernel does not free what a thread of another boot held, or of nobody's making.
        if (holder == 0 || (rounds == ROUNDS && isGone(holder))) {
            if (word.compare_exchange_strong(seen, thread | FUTEX_WAITERS))
                return true;
        } else if (rounds == ROUNDS) {
            fail(NO_DEVICE, "process %u has held the device for %d seconds; is it stopped?",
                 std::atomic_ref{lock.process}.load(), PATIENCE_SECONDS);
            return false;
        } else if ((seen & FUTEX_WAITERS) ||
                   word.compare_exchange_strong(seen, seen | FUTEX_WAITERS)) {
            rounds += sleepOn(lock, seen | FUTEX_WAITERS);
            if (taken != before)
                rounds = 0;
            before = taken;
        }
    }
}

} // namespace

bool acquire(Lock &lock)
{
    const Self &own = self();
    announce(own, &lock);
    uint32_t none = 0;
    if (!std::atomic_ref{lock.word}.compare_exchange_strong(none, own.thread) &&
        !wait(lock, own.thread)) {
        announce(own, nullptr);
        return false;
    }
    std::atomic_ref{lock.process}.store(own.process, std::memory_order_relaxed);
    std::atomic_ref{lock.taken}.store(lock.taken + 1, std::memory_order_relaxed);
    return true;
}

void release(Lock &lock)
{
    if (std::atomic_ref{lock.word}.exchange(0) & FUTEX_WAITERS)
        syscall(SYS_futex, &lock.word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    announce(self(), nullptr);
}

uint32_t holder(Lock &lock)
{
    return std::atomic_ref{lock.word}.load() & FUTEX_TID_MASK;
}

uint32_t thisProcess()
{
    return self().process;
}

uint32_t thisThread()
{
    return self().thread;
}

void forgetThread()
{
    known.thread = 0;
}

} // namespace sim
