// The counters of an object by their numbers.
#ifndef SIM_COUNTERS_H
#define SIM_COUNTERS_H

#include "device.h"

namespace sim
{

// A counter of 32 or 64 bits, low half first; to be written. Null: there is none, and fail()ed.
struct Counter {
    uint8_t *at;
    uint32_t size;

    explicit operator bool() const { return at != nullptr; }
    uint64_t value() const;
    void set(uint64_t value) const;
};

// A word of an object's PM counters in the running interval, counted from behind those that every
// record begins with.
Counter pmCounter(Transaction &device, uint32_t type, uint32_t number, uint32_t interval,
                  uint32_t word);
Counter omCounter(Transaction &device, uint32_t type, uint32_t number, uint32_t counter);

} // namespace sim

#endif
