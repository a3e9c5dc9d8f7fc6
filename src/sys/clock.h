// The device clock: the system's own.
#ifndef SYS_CLOCK_H
#define SYS_CLOCK_H

#include <kv_types.h>

#include <sys/time.h>

inline kvRc clockSet(unsigned seconds, unsigned microseconds)
{
    timeval time{};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_usec = static_cast<suseconds_t>(microseconds);
    return settimeofday(&time, nullptr) == 0 ? KV_OK : KV_FAILURE;
}

inline timeval clockRead()
{
    timeval time{};
    gettimeofday(&time, nullptr);
    return time;
}

#endif
