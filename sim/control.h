// What the functions of kv_sim.h are made with.
#ifndef SIM_CONTROL_H
#define SIM_CONTROL_H

#include "entry.h"

namespace sim
{

// Runs a command as a transaction, by the device clock as it stands; committed, with what follows
// from it, when it returns KV_OK.
template <class Command>
int control(Command command)
{
    Transaction device;
    if (!device)
        return -1;
    tick(device);
    if (command(device) != KV_OK || settle(device) != KV_OK)
        return -1;
    device.commit();
    return 0;
}

// Of the host's clock.
constexpr uint64_t MILLISECOND = 1000000;

// Looks at the device, as it is by its clock, every millisecond until the test is true; false when
// it isn't within the given time, or the device can't be used.
template <class Test>
bool waitFor(uint64_t milliseconds, Test test)
{
    const uint64_t end = hostMonotonic() + milliseconds * MILLISECOND;
    for (;;) {
        {
            Transaction device;
            if (!device)
                return false;
            tick(device);
            if (test(device))
                return true;
        }
        if (hostMonotonic() >= end)
            return false;
        sleepMs(1);
    }
}

} // namespace sim

#endif
