// libkv_upgrade.
#include "bare.h"

#include <kv_upgrade.h>

static upgradeRequest request;
static upgradeStatus status{{}, {}, {}, {}, "a file name of some length", {}};

kvRc upgrade_load(const upgradeRequest *in)
{
    return bare::copy(&request, in);
}

kvRc upgrade_status_get(uint32_t, upgradeStatus *out)
{
    return bare::copy(out, &status);
}
