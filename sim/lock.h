// The device's lock. It is one word for the kernel's futexes, and nothing in it is followed as a
// pointer: whoever damages it keeps others waiting for some seconds, and no more.
#ifndef SIM_LOCK_H
#define SIM_LOCK_H

#include <cstdint>

namespace sim
{

// How long anything is waited for that others have locked.
constexpr int PATIENCE_SECONDS = 5;

struct Lock {
    uint32_t word;    // the thread that holds it, and the kernel's marks; 0: none
    uint32_t process; // the holder's
    uint32_t taken;   // counts, so that those who wait see that it goes on
};

// False, and fail()ed, when one thread has held it for too long. When a holder dies the kernel
// frees it.
bool acquire(Lock &lock);
void release(Lock &lock);

// The thread that holds it; 0: none.
uint32_t holder(Lock &lock);

// The calling process and thread, without asking the kernel each time.
uint32_t thisProcess();
uint32_t thisThread();

// In a forked child, whose thread has another number.
void forgetThread();

} // namespace sim

#endif
