// A platform that answers anything but what it should. Its functions have the platform's names, and
// come before those of the platform's libraries.
#ifndef HOSTILE_H
#define HOSTILE_H

#include <atomic>
#include <cstdint>

namespace hostile
{

// What the platform's functions see and do from now on, on every thread.
void start(uint64_t seed, uint64_t round);

// Calls of the platform's functions that the calling thread has made.
uint64_t &calls();

// How many objects of a kind there are; 0: random numbers, another at each call.
inline std::atomic<uint32_t> objects;
// Every call succeeds, and the PM service reports once, when it is subscribed to.
inline std::atomic<bool> willing;

// Faults of the library that the platform has seen, and the last of them.
inline std::atomic<uint32_t> complaints;
inline std::atomic<const char *> complaint;

// Whether the library's calls for the time of day would come here, and not set the host's clock.
bool hasTheClock();

} // namespace hostile

#endif
