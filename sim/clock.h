// The device clock and what happens by it.
#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include "device.h"

namespace sim
{

constexpr uint64_t SECOND = 1000000;

// The device clock stops there: at the end of the year 9999.
constexpr uint64_t CLOCK_END = 253402300799 * SECOND;

void setClock(Hold &hold, uint64_t time);
void stopClock(Hold &hold, bool stopped);

// How long, in microseconds of a running clock, until a PM interval ends; 0: none will.
uint64_t untilNextEnd(const State &state);

// The end of the interval that ends first, if that is not after `time`; 0: none.
uint64_t nextEndUntil(const State &state, uint64_t time);

// Makes the library's clock the device's.
void bindClock();

void scheduleIntervals(State &state);
void endInterval(Hold &hold, uint32_t interval);

} // namespace sim

#endif
