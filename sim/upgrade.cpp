// libkv_upgrade.
#include "bodies.h"
#include "clock.h"
#include "objects.h"

#include <cstring>

using namespace sim;

namespace
{

constexpr uint32_t UPGRADE_OBJECT = 2;

} // namespace

kvRc body::upgrade_load(Transaction &device, const upgradeRequest *request)
{
    if (isLoading(device->upgrade))
        return fail(WRONG_STATE, "a software load is under way");
    if (!isMember(request->mode))
        return BAD_VALUE;
    if (request->fileName[0] == '\0')
        return fail(BAD_VALUE, "a software load needs the name of a file");
    device.modify(device->upgrade.request) = *request;
    reachLoadState(device, LOAD_FIRST, uptime(*device));
    return KV_OK;
}

kvRc body::upgrade_status_get(Transaction &device, uint32_t constant, upgradeStatus *status)
{
    if (constant != UPGRADE_OBJECT)
        return fail(NO_OBJECT, "there is no upgrade object %u", constant);
    const Upgrade &load = device->upgrade;
    *status = {};
    status->state = UpgradeState{load.state};
    status->mode = load.request.mode;
    memcpy(status->fileName, load.request.fileName, sizeof status->fileName);
    return KV_OK;
}
