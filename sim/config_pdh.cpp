// libkv_config: PDH ports.
#include "bodies.h"
#include "objects.h"

using namespace sim;

namespace
{

bool isValid(const pdhParams &params)
{
    return isMember(params.adminStatus) && isMember(params.clockMode) &&
           isMember(params.frameMode) && isMember(params.lineCode) && isMember(params.niuMode);
}

} // namespace

kvRc body::config_get_pdh_params(Transaction &device, pdhParams *params, uint32_t port)
{
    const Port *found = portOf(device, port);
    return found ? answer(params, found->params) : failureCode();
}

kvRc body::config_set_pdh_params(Transaction &device, const pdhParams *params, uint32_t port)
{
    Port *found = portOf(device, port);
    return found && isValid(*params) ? store(device, found->params, *params) : failureCode();
}

kvRc body::config_get_pdh_admin(Transaction &device, adminStatus *status, uint32_t port)
{
    const Port *found = portOf(device, port);
    return found ? answer(status, found->params.adminStatus) : failureCode();
}

kvRc body::config_set_pdh_admin(Transaction &device, adminStatus status, uint32_t port)
{
    Port *found = portOf(device, port);
    return found && isMember(status) ? store(device, found->params.adminStatus, status)
                                     : failureCode();
}

kvRc body::config_get_pdh_oper_state(Transaction &device, operState *state, uint32_t port)
{
    const Port *found = portOf(device, port);
    return found ? answer(state, stateOf(*found)) : failureCode();
}

kvRc body::config_get_pdh_lpbk(Transaction &device, pdhLpbk *loopback, uint32_t port)
{
    const Port *found = portOf(device, port);
    return found ? answer(loopback, found->loopback) : failureCode();
}

kvRc body::config_set_pdh_lpbk(Transaction &device, const pdhLpbk *loopback, uint32_t port)
{
    Port *found = portOf(device, port);
    return found && isLoopback(loopback->lpbk) ? store(device, found->loopback, *loopback)
                                               : failureCode();
}
