// Counts that come from the platform.
#ifndef FRAME_CLAMP_H
#define FRAME_CLAMP_H

#include <stdint.h>

namespace frame
{

// A count that says more than its record holds counts as what the record holds.
inline uint32_t clamp(uint32_t count, uint32_t room)
{
    return count < room ? count : room;
}

} // namespace frame

#endif
