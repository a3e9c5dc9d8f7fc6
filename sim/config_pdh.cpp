// libkv_config: PDH ports.
#include "entry.h"
#include "objects.h"

using namespace sim;

namespace
{

bool isValid(const pdhParams &params)
{
    return inRange("administrative status", params.adminStatus, 3) &&
           inRange("clock mode", params.clockMode, 5) &&
           inRange("frame mode", params.frameMode, 6) && inRange("line code", params.lineCode, 4) &&
           inRange("NIU mode", params.niuMode, 4);
}

// A body that needs the port.
template <class Body>
auto withPort(uint32_t port, Body body)
{
    return [=](Transaction &device) -> kvRc {
        Port *found = portOf(device, port);
        return found ? body(device, *found) : failureCode();
    };
}

} // namespace

kvRc config_get_pdh_params(pdhParams *out, uint32_t port)
{
    return getter(Function::config_get_pdh_params, {port}, out,
                  withPort(port, [=](Transaction &, Port &found) {
                      *out = found.params;
                      return KV_OK;
                  }));
}

kvRc config_set_pdh_params(const pdhParams *in, uint32_t port)
{
    return setter(Function::config_set_pdh_params, {port}, in,
                  withPort(port, [=](Transaction &device, Port &found) {
                      if (!isValid(*in))
                          return BAD_VALUE;
                      device.modify(found.params) = *in;
                      return KV_OK;
                  }));
}

kvRc config_get_pdh_admin(adminStatus *out, uint32_t port)
{
    return getter(Function::config_get_pdh_admin, {port}, out,
                  withPort(port, [=](Transaction &, Port &found) {
                      *out = found.params.adminStatus;
                      return KV_OK;
                  }));
}

kvRc config_set_pdh_admin(adminStatus value, uint32_t port)
{
    return action(Function::config_set_pdh_admin, {port, value},
                  withPort(port, [=](Transaction &device, Port &found) {
                      if (!inRange("administrative status", value, 3))
                          return BAD_VALUE;
                      device.modify(found.params.adminStatus) = value;
                      return KV_OK;
                  }));
}

kvRc config_get_pdh_oper_state(operState *out, uint32_t port)
{
    return getter(Function::config_get_pdh_oper_state, {port}, out,
                  withPort(port, [=](Transaction &, Port &found) {
                      *out = operStateOf(found.params.adminStatus,
                                         found.loopback.lpbk != NO_LOOPBACK, found.alarms);
                      return KV_OK;
                  }));
}

kvRc config_get_pdh_lpbk(pdhLpbk *out, uint32_t port)
{
    return getter(Function::config_get_pdh_lpbk, {port}, out,
                  withPort(port, [=](Transaction &, Port &found) {
                      *out = found.loopback;
                      return KV_OK;
                  }));
}

kvRc config_set_pdh_lpbk(const pdhLpbk *in, uint32_t port)
{
    return setter(Function::config_set_pdh_lpbk, {port}, in,
                  withPort(port, [=](Transaction &device, Port &found) {
                      if (!isLoopback(in->lpbk))
                          return failureCode();
                      device.modify(found.loopback) = *in;
                      return KV_OK;
                  }));
}
