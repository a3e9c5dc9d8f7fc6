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

// Clears an object's counters, in the platform's intervals that a clear covers, as long as `goOn`
// says so of the code that comes back.
template <class GoOn>
[[gnu::always_inline]] inline bool clearPm(ClearPm clear, uint32_t object, GoOn goOn)
{
    return goOn(clear(object, pmInterval{1}, PM_OF_OPERATION)) &&
           goOn(clear(object, pmInterval{2}, PM_OF_OPERATION)) &&
           goOn(clear(object, pmInterval{3}, PM_OF_OPERATION));
}

// The same up to the first failure, which is reported.
inline bool clearPm(Outcome &outcome, ClearPm clear, uint32_t object)
{
    return clearPm(clear, object, [&](kvRc code) { return outcome.orCodeText(code); });
}

} // namespace frame

#endif
