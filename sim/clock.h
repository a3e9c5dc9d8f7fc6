// The device clock and what happens by it.
#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include "device.h"

namespace sim
{

constexpr uint64_t SECOND = 1000000;

// The device clock stops there: at the end of the year 9999.
constexpr uint64_t CLOCK_END = 253402300799 * SECOND;

// The host's clock that is never set, in nanoseconds; and its time of day, in microseconds, at a
// time of that one: when it is set this shows within 10 ms.
uint64_t hostMonotonic();
uint64_t hostTimeOfDay(uint64_t monotonic);

// The device time that has passed, however the clock was set meanwhile; never 0.
uint64_t uptime(State &state, uint64_t monotonic = hostMonotonic());

// Starts the clock of a new device by the host's time; lets that of a device that nobody used go on
// from where it was last seen when the host has been started anew since.
void startClock(State &state);
void resumeClock(State &state);

kvRc setClock(Transaction &device, uint64_t time);
kvRc stopClock(Transaction &device, bool stopped);

// How long, in microseconds of a running clock, until there is something for those who listen to a
// service: a PM interval ends, a notification is due that was kept; 0: nothing will be.
uint64_t untilNext(State &state, Service service);

// When something happens next by the clock, if that is not after `time`: an interval ends, a
// notification is due that was kept, the device is back; 0: nothing.
uint64_t nextUntil(const State &state, uint64_t time);

void scheduleIntervals(State &state);
// Ends an interval, which is reported. What its counters have grown by is not looked at.
kvRc endInterval(Transaction &device, uint32_t interval);

// A software load reaches a state, at an uptime.
void reachLoadState(Transaction &device, uint32_t state, uint64_t when);

} // namespace sim

#endif
