// libkv_forker. A shut-down device comes up again at once: its configuration has survived, tests
// and the software load have not.
#include "bodies.h"
#include "objects.h"

using namespace sim;

kvRc body::forker_box_shutdown(Transaction &device)
{
    System &system = device.modify(device->system);
    ++system.restarts;
    system.loopback.lpbk = NO_LOOPBACK;
    system.tpgmStart = 0;
    for (Port &port : device->ports)
        device.modify(port.loopback).lpbk = NO_LOOPBACK;
    return store(device, device->upgrade.state, LOAD_NONE);
}
