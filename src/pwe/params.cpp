#include "pwe/record.h"

#include <vexo_cmi/convert.h>

#include <string.h>

using frame::Outcome;

namespace
{

kvRc readBase(pwConfig &record, const vexoPweParams &params, uint32_t pwId)
{
    if (params.pweAction != VEXO_PWE_ACTION_CREATE)
        return config_get_pw(&record, pwId);
    const pwDefaultsKey key{vexoPweType_to_pweType(params.pweType),
                            vexoPwePsnType_to_pweEncType(params.psn.psnType)};
    return config_get_pw_defaults(&record, &key, pwId);
}

void overlayHeader(pwConfig &record, const vexoPweParams &params, uint32_t pwId)
{
    record.adminStatus = vexoAdminStatus_to_adminStatus(params.adminStatus);
    memcpy(record.dstMac, params.dstMac, sizeof record.dstMac);
    record.pwId = pwId;
}

kvRc write(const pwConfig &record, vexoPweAction action, uint32_t pwId)
{
    return action == VEXO_PWE_ACTION_CREATE ? config_add_pw(&record, pwId)
                                            : config_set_pw(&record, pwId);
}

} // namespace

void vexo_cmi_pwe_params_set(const vexoPweParams *params, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    if (params->pweAction == VEXO_PWE_ACTION_DELETE) {
        outcome.orConfigText(config_del_pw(pwId));
        return;
    }
    pwConfig record;
    if (!outcome.orConfigText(readBase(record, *params, pwId)))
        return;
    overlayHeader(record, *params, pwId);
    pwe::overlayVlan(record, params->vlan);
    if (!pwe::overlayPsn(record, params->psn, outcome))
        return;
    record.pweType = vexoPweType_to_pweType(params->pweType);
    pwe::overlayService(record, params->service, params->pweType);
    outcome.orConfigText(write(record, params->pweAction, pwId));
}

void vexo_cmi_pwe_params_get(vexoPweParamsInfo *info, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    pwConfig record;
    const kvRc code = config_get_pw(&record, pwId);
    memset(info, 0, sizeof *info);
    if (code == KV_NOT_PROVISIONED) {
        info->pweAction = VEXO_PWE_ACTION_DELETE;
        outcome.succeed();
        return;
    }
    if (!outcome.orConfigText(code))
        return;
    info->adminStatus = adminStatus_to_vexoAdminStatus(record.adminStatus);
    info->pweType = pweType_to_vexoPweType(record.pweType);
    info->pweAction = VEXO_PWE_ACTION_CREATE;
    operState state;
    if (!outcome.orConfigText(config_get_pw_oper_state(&state, pwId)))
        return;
    info->operState = operState_to_vexoOperState(state);
    memcpy(info->dstMac, record.dstMac, sizeof info->dstMac);
    memcpy(info->srcMac, record.srcMac, sizeof info->srcMac);
    pwe::extractVlan(info->vlan, record);
    if (!pwe::extractPsn(info->psn, record, outcome))
        return;
    pwe::extractService(info->service, record, info->pweType);
}
