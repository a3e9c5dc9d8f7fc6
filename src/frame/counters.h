// What the PM counters of all families share.
#ifndef FRAME_COUNTERS_H
#define FRAME_COUNTERS_H

#include "frame/outcome.h"

#include <kv_types.h>

namespace frame
{

// The constant third argument of the platform's PM calls; its meaning is the platform's.
constexpr uint32_t PM_OF_OPERATION = 0;
constexpr uint32_t PM_OF_REPORT = 1;

// Flag words of the platform: exactly 1 counts as set.
inline uint32_t flagOf(uint32_t word)
{
    return word == 1;
}

using ClearPm = kvRc (*)(uint32_t object, pmInterval interval, uint32_t which);

// Clears an object's counters in the platform's intervals that a clear covers, up to the first
// failure.
inline bool clearPm(Outcome &outcome, ClearPm clear, uint32_t object)
{
    return outcome.orCodeText(clear(object, pmInterval{1}, PM_OF_OPERATION)) &&
           outcome.orCodeText(clear(object, pmInterval{2}, PM_OF_OPERATION)) &&
           outcome.orCodeText(clear(object, pmInterval{3}, PM_OF_OPERATION));
}

} // namespace frame

#endif
