// libkv_forker. A shut-down device comes up again at once: its configuration has survived, tests
// and the software load have not.
#include "entry.h"
#include "objects.h"

#include <kv_forker.h>

using namespace sim;

kvRc forker_box_shutdown(void)
{
    return action(Function::forker_box_shutdown, {}, [](Transaction &device) {
        System &system = device.modify(device->system);
        ++system.restarts;
        system.loopback.lpbk = NO_LOOPBACK;
        system.tpgmStart = 0;
        for (Port &port : device->ports)
            device.modify(port.loopback).lpbk = NO_LOOPBACK;
        device.modify(device->upgrade.state) = LOAD_NONE;
        return KV_OK;
    });
}
