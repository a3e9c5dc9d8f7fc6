// libkv_upgrade.
#include "clock.h"
#include "entry.h"
#include "objects.h"

#include <cstring>

using namespace sim;

namespace
{

constexpr uint32_t UPGRADE_OBJECT = 2;

} // namespace

kvRc upgrade_load(const upgradeRequest *request)
{
    return setter(Function::upgrade_load, {}, request, [=](Transaction &device) {
        if (isLoading(device->upgrade))
            return fail(WRONG_STATE, "a software load is under way");
        if (!inRange("upgrade mode", request->mode, 2))
            return BAD_VALUE;
        if (request->fileName[0] == '\0')
            return fail(BAD_VALUE, "a software load needs the name of a file");
        device.modify(device->upgrade.request) = *request;
        reachLoadState(device, LOAD_FIRST, uptime(*device));
        return KV_OK;
    });
}

kvRc upgrade_status_get(uint32_t constant, upgradeStatus *out)
{
    return getter(Function::upgrade_status_get, {constant}, out, [=](Transaction &device) {
        if (constant != UPGRADE_OBJECT)
            return fail(NO_OBJECT, "there is no upgrade object %u", constant);
        *out = {};
        out->state = UpgradeState{device->upgrade.state};
        out->mode = device->upgrade.request.mode;
        memcpy(out->fileName, device->upgrade.request.fileName, sizeof out->fileName);
        return KV_OK;
    });
}
