// Counters that grow while their object is in service.
#ifndef SIM_GROWTH_H
#define SIM_GROWTH_H

#include "device.h"

namespace sim
{

// How long an object has been in service at an uptime.
uint64_t servedUntil(const Duty &duty, uint64_t uptime);

// Brings the counters of an object, or of all, to where they are at an uptime; commits. To be
// called before anything else is changed.
void grow(Transaction &device, uint32_t type, uint32_t number, uint64_t uptime);
void growAll(Transaction &device, uint64_t uptime);

// Lets a counter grow otherwise from now on.
kvRc setRate(Transaction &device, const kvSimRate &rate);

} // namespace sim

#endif
