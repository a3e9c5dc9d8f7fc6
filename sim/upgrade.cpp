// libkv_upgrade. A load goes through the states 2 to 5 in five seconds of device time each; a load
// made to fail at one of them is in state 6 from then on.
#include "clock.h"
#include "entry.h"
#include "objects.h"

#include <cstring>

using namespace sim;

namespace
{

constexpr uint32_t STATE_NONE = 1;
constexpr uint32_t STATE_FIRST = 2;
constexpr uint32_t STATE_DONE = 5;
constexpr uint32_t STATE_FAILED = 6;
constexpr uint64_t STATE_TIME = 5 * SECOND;
constexpr uint32_t UPGRADE_OBJECT = 2;

uint32_t stateOf(const State &state)
{
    const Upgrade &upgrade = state.upgrade;
    if (upgrade.start == 0)
        return STATE_NONE;
    const uint64_t now = deviceTime(state);
    const uint64_t passed = now > upgrade.start ? (now - upgrade.start) / STATE_TIME : 0;
    const auto reached = passed < STATE_DONE - STATE_FIRST
                             ? STATE_FIRST + static_cast<uint32_t>(passed)
                             : STATE_DONE;
    return upgrade.failState && reached >= upgrade.failState ? STATE_FAILED : reached;
}

} // namespace

kvRc upgrade_load(const upgradeRequest *request)
{
    return setter(Function::upgrade_load, {}, request, [=](Hold &hold) {
        const uint32_t state = stateOf(*hold);
        if (state >= STATE_FIRST && state < STATE_DONE)
            return fail(WRONG_STATE, "a software load is under way");
        if (!inRange("upgrade mode", request->mode, 2))
            return BAD_VALUE;
        if (request->fileName[0] == '\0')
            return fail(BAD_VALUE, "a software load needs the name of a file");
        Upgrade &upgrade = hold.edit(hold->upgrade);
        upgrade.request = *request;
        upgrade.start = deviceTime(*hold);
        return KV_OK;
    });
}

kvRc upgrade_status_get(uint32_t constant, upgradeStatus *out)
{
    return getter(Function::upgrade_status_get, {constant}, out, [=](Hold &hold) {
        if (constant != UPGRADE_OBJECT)
            return fail(NO_OBJECT, "there is no upgrade object %u", constant);
        *out = {};
        out->state = UpgradeState{stateOf(*hold)};
        out->mode = hold->upgrade.request.mode;
        memcpy(out->fileName, hold->upgrade.request.fileName, sizeof out->fileName);
        return KV_OK;
    });
}
