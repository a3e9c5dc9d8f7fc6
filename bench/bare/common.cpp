// libkv_common: log, return-code texts, and the clock.
#include "bare.h"

#include <kv_common.h>

#include <sys/time.h>

uint32_t bareFailIn;
kvRc bareFailCode;

static timeval deviceTime{1000000, 0};

const char *kv_rc_to_string(kvRc)
{
    return "the bare platform's text for a code";
}

int kv_log(int, int, const char *, const char *, int, const char *, ...)
{
    return 0;
}

kvRc kv_log_clear(void)
{
    return bare::answer();
}

void bareClockAdvance(uint32_t seconds)
{
    deviceTime.tv_sec += seconds;
}

extern "C" int settimeofday(const timeval *time, const struct timezone *) noexcept
{
    return bare::copy(&deviceTime, time) == KV_OK ? 0 : -1;
}

extern "C" int gettimeofday(timeval *time, void *) noexcept
{
    *time = deviceTime;
    return 0;
}
