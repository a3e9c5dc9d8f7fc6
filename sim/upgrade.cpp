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
    return setter(Function::upgrade_load, {}, request, [=](Hold &hold) {
        if (isLoading(hold->upgrade))
            return fail(WRONG_STATE, "a software load is under way");
        if (!inRange("upgrade mode", request->mode, 2))
            return BAD_VALUE;
        if (request->fileName[0] == '\0')
            return fail(BAD_VALUE, "a software load needs the name of a file");
        hold.edit(hold->upgrade.request) = *request;
        reachLoadState(hold, LOAD_FIRST, uptime(*hold));
        return KV_OK;
    });
}

kvRc upgrade_status_get(uint32_t constant, upgradeStatus *out)
{
    return getter(Function::upgrade_status_get, {constant}, out, [=](Hold &hold) {
        if (constant != UPGRADE_OBJECT)
            return fail(NO_OBJECT, "there is no upgrade object %u", constant);
        *out = {};
        out->state = UpgradeState{hold->upgrade.state};
        out->mode = hold->upgrade.request.mode;
        memcpy(out->fileName, hold->upgrade.request.fileName, sizeof out->fileName);
        return KV_OK;
    });
}
