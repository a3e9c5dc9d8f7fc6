#include "clock.h"

#include "entry.h"
#include "notification.h"

#include <algorithm>

#include <time.h>

namespace sim
{

namespace
{

constexpr uint32_t REPORTED_INTERVALS = 3;

uint64_t hostTime()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * SECOND + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

void schedule(Clock &clock, uint32_t index, uint64_t now)
{
    const uint64_t period = clock.period[index] * SECOND;
    clock.nextEnd[index] = period ? (now / period + 1) * period : 0;
}

} // namespace

uint64_t deviceTime(const State &state)
{
    const Clock &clock = state.clock;
    const uint64_t host = clock.stopped ? 0 : hostTime();
    const uint64_t passed = host > clock.anchor ? host - clock.anchor : 0;
    return std::min(clock.base + passed, CLOCK_END);
}

void scheduleIntervals(State &state)
{
    for (uint32_t i = 0; i < KV_SIM_INTERVALS; ++i)
        schedule(state.clock, i, deviceTime(state));
}

void setClock(Hold &hold, uint64_t time)
{
    Clock &clock = hold.edit(hold->clock);
    clock.base = time;
    clock.anchor = hostTime();
    scheduleIntervals(*hold);
    wake(hold, Service::pm);
}

void stopClock(Hold &hold, bool stopped)
{
    Clock &clock = hold.edit(hold->clock);
    clock.base = deviceTime(*hold);
    clock.anchor = hostTime();
    clock.stopped = stopped;
    wake(hold, Service::pm);
}

uint64_t nextEndUntil(const State &state, uint64_t time)
{
    uint64_t next = 0;
    for (uint64_t end : state.clock.nextEnd)
        if (end && end <= time && (!next || end < next))
            next = end;
    return next;
}

uint64_t untilNextEnd(const State &state)
{
    const uint64_t next = nextEndUntil(state, UINT64_MAX);
    if (!next || state.clock.stopped)
        return 0;
    const uint64_t now = deviceTime(state);
    return next > now ? next - now : 1;
}

void endInterval(Hold &hold, uint32_t interval)
{
    ++hold.edit(hold->pmEpoch[interval - 1]);
    if (interval <= REPORTED_INTERVALS)
        notify(hold, Service::pm, {objType{interval}, 0, 0, 0});
}

void tick(Hold &hold)
{
    const uint64_t now = deviceTime(*hold);
    if (!nextEndUntil(*hold, now))
        return;
    Clock &clock = hold.edit(hold->clock);
    for (uint32_t i = 0; i < KV_SIM_INTERVALS; ++i) {
        if (!clock.nextEnd[i] || clock.nextEnd[i] > now)
            continue;
        endInterval(hold, i + 1);
        schedule(clock, i, now);
    }
    hold.keep();
}

} // namespace sim
