#include "clock.h"

#include "entry.h"
#include "growth.h"
#include "notification.h"
#include "restart.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

namespace sim
{

namespace
{

constexpr uint32_t REPORTED_INTERVALS = 3;

constexpr uint64_t LOAD_STATE_TIME = 5 * SECOND;
constexpr uint32_t LOADED_VERSION = 2; // which of the versions is that of what is loaded

// In nanoseconds.
uint64_t hostTime(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

// Tells one run of the host from another; empty where the host doesn't say.
void readBoot(char (&boot)[sizeof Clock::boot])
{
    memset(boot, 0, sizeof boot);
    const int file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    if (read(file, boot, sizeof boot - 1) < 0)
        memset(boot, 0, sizeof boot);
    close(file);
}

void anchor(Clock &clock, uint64_t uptime)
{
    clock.uptime = uptime;
    clock.anchor = hostMonotonic() / 1000;
}

void schedule(Clock &clock, uint32_t index, uint64_t now)
{
    const uint64_t period = clock.period[index] * SECOND;
    clock.nextEnd[index] = period ? (now / period + 1) * period : 0;
}

// A load stays in each state for a while, until it is done or at the state at which it fails.
void advanceLoad(Transaction &device)
{
    const Upgrade &load = device->upgrade;
    while (isLoading(load) && device->clock.seen - load.since >= LOAD_STATE_TIME)
        reachLoadState(device, load.state + 1, load.since + LOAD_STATE_TIME);
}

} // namespace

uint64_t hostMonotonic()
{
    return hostTime(CLOCK_MONOTONIC);
}

uint64_t hostTimeOfDay(uint64_t monotonic)
{
    constexpr uint64_t AGE = 10000000;
    static std::atomic<uint64_t> difference, until;
    if (monotonic >= until.load(std::memory_order_acquire)) {
        difference.store(hostTime(CLOCK_REALTIME) - monotonic, std::memory_order_relaxed);
        until.store(monotonic + AGE, std::memory_order_release);
    }
    return (monotonic + difference.load(std::memory_order_relaxed)) / 1000;
}

uint64_t uptime(State &state, uint64_t monotonic)
{
    Clock &clock = state.clock;
    const uint64_t host = clock.stopped ? 0 : monotonic / 1000;
    clock.seen = clock.uptime + (host > clock.anchor ? host - clock.anchor : 0);
    return clock.seen;
}

uint64_t seenTime(const State &state)
{
    return std::min(state.clock.offset + state.clock.seen, CLOCK_END);
}

uint64_t deviceTime(State &state)
{
    uptime(state);
    return seenTime(state);
}

void startClock(State &state)
{
    Clock &clock = state.clock;
    anchor(clock, 1);
    clock.seen = clock.uptime;
    clock.offset = hostTime(CLOCK_REALTIME) / 1000 / SECOND * SECOND - clock.uptime;
    readBoot(clock.boot);
}

// The name of the run is written last: a process that is killed before leaves it to the next.
void resumeClock(State &state)
{
    Clock &clock = state.clock;
    char boot[sizeof clock.boot];
    readBoot(boot);
    if (memcmp(boot, clock.boot, sizeof boot) == 0)
        return;
    anchor(clock, clock.seen);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    memcpy(clock.boot, boot, sizeof boot);
}

void reachLoadState(Transaction &device, uint32_t state, uint64_t when)
{
    Upgrade &load = device.modify(device->upgrade);
    load.state = state == load.failState ? LOAD_FAILED : state;
    load.since = when;
    if (load.state != LOAD_DONE)
        return;
    if (device->behaviours.loadVersion) {
        auto &version = device.modify(device->system.status.version.text[LOADED_VERSION]);
        constexpr int LENGTH = sizeof load.request.fileName;
        snprintf(version, sizeof version, "%.*s", LENGTH, load.request.fileName);
    }
    if (device->behaviours.loadRestart)
        restart(device,
                {.milliseconds = device->loadDowntime * 1000,
                 .keepConfiguration = 1,
                 .keepFaults = 1,
                 .keepJournal = 1,
                 .setClock = 0,
                 .clock = 0},
                when);
}

void scheduleIntervals(State &state)
{
    for (uint32_t i = 0; i < KV_SIM_INTERVALS; ++i)
        schedule(state.clock, i, deviceTime(state));
}

kvRc setClock(Transaction &device, uint64_t time)
{
    Clock &clock = device.modify(device->clock);
    clock.offset = time - uptime(*device);
    scheduleIntervals(*device);
    return wake(device, Service::pm);
}

kvRc stopClock(Transaction &device, bool stopped)
{
    Clock &clock = device.modify(device->clock);
    anchor(clock, uptime(*device));
    clock.stopped = stopped;
    return wake(device, Service::pm);
}

namespace
{

bool isFirst(uint64_t time, uint64_t first)
{
    return time && (!first || time < first);
}

uint64_t nextEnd(const State &state)
{
    uint64_t next = 0;
    for (uint64_t end : state.clock.nextEnd)
        if (isFirst(end, next))
            next = end;
    return next;
}

// By device time. Those of one service, or of all.
uint64_t nextKept(const State &state, std::optional<Service> service)
{
    uint64_t next = 0;
    for (uint32_t i = 0; i < std::min(state.keptCount, KEPT); ++i) {
        const Kept &kept = state.kept[i];
        if ((!service || kept.service == static_cast<uint32_t>(*service)) &&
            isFirst(kept.due, next))
            next = kept.due;
    }
    return next ? next + state.clock.offset : 0;
}

// By device time: when a software load reaches its next state.
uint64_t nextLoad(const State &state)
{
    const Upgrade &load = state.upgrade;
    return isLoading(load) ? load.since + LOAD_STATE_TIME + state.clock.offset : 0;
}

} // namespace

uint64_t nextUntil(const State &state, uint64_t time)
{
    uint64_t next = state.restart.until ? state.restart.until + state.clock.offset : 0;
    if (!next) {
        next = nextEnd(state);
        if (const uint64_t load = nextLoad(state); isFirst(load, next))
            next = load;
        if (const uint64_t kept = nextKept(state, {}); isFirst(kept, next))
            next = kept;
    }
    return next <= time ? next : 0;
}

uint64_t untilNext(State &state, Service service)
{
    uint64_t next = service == Service::pm ? nextEnd(state) : 0;
    if (const uint64_t kept = nextKept(state, service); isFirst(kept, next))
        next = kept;
    if (!next || state.clock.stopped)
        return 0;
    const uint64_t now = deviceTime(state);
    return next > now ? next - now : 1;
}

kvRc endInterval(Transaction &device, uint32_t interval)
{
    ++device.modify(device->pmEpoch[interval - 1]);
    return interval <= REPORTED_INTERVALS
               ? notify(device, Service::pm, {objType{interval}, 0, 0, 0})
               : KV_OK;
}

namespace
{

kvRc comeBack(Transaction &device)
{
    Restart &restart = device.modify(device->restart);
    Clock &clock = device.modify(device->clock);
    if (restart.how.setClock)
        clock.offset = restart.how.clock - restart.until;
    restart.until = 0;
    scheduleIntervals(*device);
    return device->attentive ? attend(device) : KV_OK;
}

// The ends of an interval that nobody saw are passed over, but for the last one, so that its
// counters are those of that time, and the one before.
kvRc endIntervals(Transaction &device, uint64_t time, uint64_t now)
{
    for (uint32_t i = 0; i < KV_SIM_INTERVALS; ++i) {
        if (device->clock.nextEnd[i] != time)
            continue;
        Clock &clock = device.modify(device->clock);
        const uint64_t period = clock.period[i] * SECOND;
        const uint64_t left = period ? (now - time) / period : 0;
        if (left > 0) {
            const uint64_t passed = std::max<uint64_t>(left - 1, 1);
            device.modify(device->pmEpoch[i]) += static_cast<uint32_t>(passed);
            clock.nextEnd[i] += passed * period;
            continue;
        }
        schedule(clock, i, now);
        if (const kvRc code = endInterval(device, i + 1))
            return code;
    }
    return KV_OK;
}

// What is due at a time.
kvRc happen(Transaction &device, uint64_t time, uint64_t now)
{
    if (device->restart.until)
        return comeBack(device);
    const uint64_t up = time - device->clock.offset;
    growAll(device, up);
    const kvRc code = sendKept(device, [=](const Kept &kept) { return kept.due == up; });
    return code ? code : endIntervals(device, time, now);
}

} // namespace

kvRc tick(Transaction &device, uint64_t monotonic)
{
    uptime(*device, monotonic);
    advanceLoad(device);
    // Each later than the last: what a damaged device has due may never end.
    for (uint64_t last = 0;;) {
        const uint64_t now = seenTime(*device);
        const bool isAway = device->restart.until != 0;
        uint64_t next = nextUntil(*device, now);
        const uint64_t up = next - device->clock.offset;
        if (!isAway && up <= last)
            next = 0;
        last = isAway ? 0 : up;
        const kvRc code = next ? happen(device, next, now) : KV_OK;
        if (code)
            device.rollback();
        else
            device.commit();
        if (!next || code)
            return code;
    }
}

} // namespace sim
