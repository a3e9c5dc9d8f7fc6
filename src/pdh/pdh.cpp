#include "frame/outcome.h"
#include "frame/record.h"

#include <kv_config.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/pdh.h>

using frame::Outcome;

namespace
{

template <class Overlay>
void changeParams(uint32_t port, vexoResult *result, Overlay overlay)
{
    frame::change(config_get_pdh_params, config_set_pdh_params, port, result, overlay);
}

} // namespace

void vexo_cmi_pdh_params_set(const vexoPdhParamsIn *params, uint32_t port, vexoResult *result)
{
    changeParams(port, result, [=](pdhParams &record) {
        record.adminStatus = vexoAdminStatus_to_adminStatus(params->adminStatus);
        record.frameMode = vexoPdhFrameMode_to_pdhFrameMode(params->frameMode);
        record.lineCode = vexoPdhCode_to_pdhCode(params->lineCode);
        record.niuMode = vexoPdhNiuMode_to_pdhNiuMode(params->niuMode);
        record.cableLength = static_cast<uint16_t>(params->cableLength);
        record.clockMode = vexoPdhSyncMode_to_pdhClockMode(params->syncMode);
        record.clockParam = params->syncParam;
        record.auxParam = params->auxParam;
    });
}

void vexo_cmi_pdh_params_get(vexoPdhParamsOut *params, uint32_t port, vexoResult *result)
{
    Outcome outcome{result};
    pdhParams record;
    if (!outcome.orConfigText(config_get_pdh_params(&record, port)))
        return;
    operState state;
    if (!outcome.orConfigText(config_get_pdh_oper_state(&state, port)))
        return;
    pdhLpbk loopback;
    if (!outcome.orConfigText(config_get_pdh_lpbk(&loopback, port)))
        return;
    params->adminStatus = adminStatus_to_vexoAdminStatus(record.adminStatus);
    params->lineCode = pdhCode_to_vexoPdhCode(record.lineCode);
    params->frameMode = pdhFrameMode_to_vexoPdhFrameMode(record.frameMode);
    params->cableLength = record.cableLength;
    params->niuMode = pdhNiuMode_to_vexoPdhNiuMode(record.niuMode);
    params->syncMode = pdhClockMode_to_vexoPdhSyncMode(record.clockMode);
    params->syncParam = record.clockParam;
    params->operState = operState_to_vexoOperState(state);
    params->loopback = lpbk_to_vexoLpbk(loopback.lpbk);
    params->auxParam = record.auxParam;
}

void vexo_cmi_pdh_admin_set(vexoAdminStatus status, uint32_t port, vexoResult *result)
{
    Outcome{result}.orConfigText(
        config_set_pdh_admin(vexoAdminStatus_to_adminStatus(status), port));
}

void vexo_cmi_pdh_admin_get(vexoAdminStatus *status, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_admin, port, result, [=](adminStatus platformStatus) {
        *status = adminStatus_to_vexoAdminStatus(platformStatus);
    });
}

void vexo_cmi_pdh_code_set(vexoPdhCode code, uint32_t port, vexoResult *result)
{
    changeParams(port, result,
                 [=](pdhParams &record) { record.lineCode = vexoPdhCode_to_pdhCode(code); });
}

void vexo_cmi_pdh_code_get(vexoPdhCode *code, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_params, port, result,
                [=](const pdhParams &record) { *code = pdhCode_to_vexoPdhCode(record.lineCode); });
}

void vexo_cmi_pdh_frame_set(vexoPdhFrameMode mode, uint32_t port, vexoResult *result)
{
    changeParams(port, result, [=](pdhParams &record) {
        record.frameMode = vexoPdhFrameMode_to_pdhFrameMode(mode);
    });
}

void vexo_cmi_pdh_frame_get(vexoPdhFrameMode *mode, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_params, port, result, [=](const pdhParams &record) {
        *mode = pdhFrameMode_to_vexoPdhFrameMode(record.frameMode);
    });
}

void vexo_cmi_pdh_cable_len_set(uint32_t length, uint32_t port, vexoResult *result)
{
    if (length == 0) {
        Outcome::succeed(result);
        return;
    }
    changeParams(port, result,
                 [=](pdhParams &record) { record.cableLength = static_cast<uint16_t>(length); });
}

void vexo_cmi_pdh_cable_len_get(uint32_t *length, uint32_t port, vexoResult *result)
{
    changeParams(port, result, [=](pdhParams &record) { *length = record.cableLength; });
}

void vexo_cmi_pdh_sync_set(const vexoPdhSync *sync, uint32_t port, vexoResult *result)
{
    changeParams(port, result, [=](pdhParams &record) {
        record.clockMode = vexoPdhSyncMode_to_pdhClockMode(sync->mode);
        record.clockParam = sync->param;
    });
}

void vexo_cmi_pdh_sync_get(vexoPdhSync *sync, uint32_t *aux, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_params, port, result, [=](const pdhParams &record) {
        sync->mode = pdhClockMode_to_vexoPdhSyncMode(record.clockMode);
        sync->param = record.clockParam;
        *aux = record.syncAux;
    });
}

void vexo_cmi_pdh_niu_set(vexoPdhNiuMode mode, uint32_t port, vexoResult *result)
{
    changeParams(port, result,
                 [=](pdhParams &record) { record.niuMode = vexoPdhNiuMode_to_pdhNiuMode(mode); });
}

void vexo_cmi_pdh_niu_get(vexoPdhNiuMode *mode, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_params, port, result, [=](const pdhParams &record) {
        *mode = pdhNiuMode_to_vexoPdhNiuMode(record.niuMode);
    });
}

void vexo_cmi_pdh_lpbk_set(vexoLpbk loopback, uint32_t port, vexoResult *result)
{
    frame::change(config_get_pdh_lpbk, config_set_pdh_lpbk, port, result,
                  [=](pdhLpbk &record) { record.lpbk = vexoLpbk_to_lpbk(loopback); });
}

void vexo_cmi_pdh_lpbk_get(vexoLpbk *loopback, uint32_t port, vexoResult *result)
{
    frame::read(config_get_pdh_lpbk, port, result,
                [=](const pdhLpbk &record) { *loopback = lpbk_to_vexoLpbk(record.lpbk); });
}
