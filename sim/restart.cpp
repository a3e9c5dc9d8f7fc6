#include "restart.h"

#include "clock.h"
#include "factory.h"
#include "growth.h"
#include "notification.h"

#include <atomic>
#include <span>

namespace sim
{

namespace
{

// What is active on what stays is the line's, and stays.
void loseConfiguration(State &state)
{
    configureSystem(state.system);
    for (uint32_t i = 0; i < KV_SIM_PORTS; ++i)
        configurePort(state.ports[i], i + 1);
    for (Pw &pw : state.pws)
        pw = {};
    for (Group &group : state.groups)
        group = {};
    for (Link &link : state.links)
        link.group = link.alarms = 0;
}

// They grow again when the device is back.
template <class Objects>
void zeroCounters(Objects &&objects, uint64_t now)
{
    for (auto &object : objects) {
        object.duty.served = servedUntil(object.duty, now);
        object.duty.up = 0;
        if constexpr (requires { object.om; })
            object.om = {};
        if constexpr (requires { object.pm; })
            object.pm = {};
    }
}

void endTests(State &state)
{
    state.system.loopback.lpbk = NO_LOOPBACK;
    state.system.tpgmStart = 0;
    for (Port &port : state.ports)
        port.loopback.lpbk = NO_LOOPBACK;
    if (isLoading(state.upgrade))
        state.upgrade.state = LOAD_NONE;
}

void forgetCalls(State &state)
{
    state.journal = {};
    ++state.resets;
}

void forgetFaults(State &state)
{
    state.faultCount = 0;
    for (ArmedFault &armed : state.faults)
        armed.armed = 0;
}

} // namespace

void restart(Transaction &device, const kvSimReboot &how, uint64_t now)
{
    device.commit();
    growAll(device, now);
    device.modify(device->restart) = {1, now, now + how.milliseconds * uint64_t{1000}, how};
    ++device.modify(device->restarts);
    device.commit();
    completeRestart(*device);
}

void completeRestart(State &state)
{
    const kvSimReboot &how = state.restart.how;
    ++state.faultGeneration;
    state.hanging = 0;
    state.keptCount = 0;
    for (ArmedFault &armed : state.faults)
        armed.fault.waiting = 0;
    if (!how.keepFaults)
        forgetFaults(state);
    if (!how.keepJournal)
        forgetCalls(state);
    for (const Service service : {Service::alarm, Service::pm})
        endSubscriptions(state, service, 0, KV_SIM_HANGUP);
    endTests(state);
    if (!how.keepConfiguration)
        loseConfiguration(state);
    for (uint32_t &epoch : state.pmEpoch)
        epoch = 0;
    zeroCounters(std::span{&state.system, 1}, state.restart.begun);
    zeroCounters(state.ports, state.restart.begun);
    zeroCounters(state.pws, state.restart.begun);
    zeroCounters(state.groups, state.restart.begun);
    zeroCounters(state.links, state.restart.begun);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state.restart.underWay = 0;
}

} // namespace sim
