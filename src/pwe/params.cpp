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

void overlayNonZero(uint32_t &field, uint32_t value)
{
    if (value)
        field = value;
}

void overlayRtp(pwConfig &record, const vexoPweRtp &rtp)
{
    record.rtpEnable = rtp.mode == VEXO_PWE_RTP_ON;
    pwe::overlayRtpFields(record, rtp);
}

void overlay(pwConfig &record, const vexoPweServiceT1 &service)
{
    record.circuit = service.circuit;
    overlayNonZero(record.jitterBufferSize, service.jitterBufferSize);
    overlayNonZero(record.payloadSize, service.payloadSize);
    overlayRtp(record, service.rtp);
}

void overlay(pwConfig &record, const vexoPweServiceT2 &service)
{
    record.circuit = service.circuit;
    pwe::overlayFlagged(record.serviceOption, service.serviceOption, service.serviceOptionValid);
    overlayNonZero(record.jitterBufferSize, service.jitterBufferSize);
    overlayNonZero(record.payloadSize, service.payloadSize);
    pwe::overlayTwoState(record.serviceFlag, service.serviceFlag, pwe::FIRST_SETS);
    overlayRtp(record, service.rtp);
}

void overlay(pwConfig &record, const vexoPweServiceA &service)
{
    record.circuit = service.circuit;
    overlayNonZero(record.payloadSize, service.payloadSize);
    overlayNonZero(record.serviceOption, service.serviceOption);
    pwe::overlayTwoState(record.serviceFlag, service.serviceFlag, pwe::FIRST_CLEARS);
    record.atmMode = vexoAtmMode_to_atmMode(service.atmMode);
    record.atmType = vexoAtmType_to_atmType(service.atmType);
    pwe::overlayTwoState(record.atmFlag1, service.atmFlag1, pwe::FIRST_CLEARS);
    pwe::overlayTwoState(record.atmFlag2, service.atmFlag2, pwe::FIRST_CLEARS);
    record.atmClpMap = vexoAtmClpMode_to_atmClpMap(service.atmClpMode);
    record.atmParam1 = service.atmParam1;
    record.atmParam2 = service.atmParam2;
}

void extract(vexoPweServiceT1 &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    service.jitterBufferSize = record.jitterBufferSize;
    service.payloadSize = record.payloadSize;
    pwe::extractRtp(service.rtp, record);
}

void extract(vexoPweServiceT2 &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    pwe::extractFlagged(service.serviceOption, service.serviceOptionValid, record.serviceOption);
    service.jitterBufferSize = record.jitterBufferSize;
    service.payloadSize = record.payloadSize;
    service.serviceFlag = pwe::extractTwoState(record.serviceFlag, pwe::FIRST_SETS);
    pwe::extractRtp(service.rtp, record);
}

void extract(vexoPweServiceA &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    service.payloadSize = record.payloadSize;
    service.serviceOption = record.serviceOption;
    service.serviceFlag = pwe::extractTwoState(record.serviceFlag, pwe::FIRST_CLEARS);
    service.atmMode = atmMode_to_vexoAtmMode(record.atmMode);
    service.atmType = atmType_to_vexoAtmType(record.atmType);
    service.atmFlag1 = pwe::extractTwoState(record.atmFlag1, pwe::FIRST_CLEARS);
    service.atmFlag2 = pwe::extractTwoState(record.atmFlag2, pwe::FIRST_CLEARS);
    service.atmClpMode = atmClpMap_to_vexoAtmClpMode(record.atmClpMap);
    service.atmParam1 = record.atmParam1;
    service.atmParam2 = record.atmParam2;
}

// Hands the layout that a type has, if any, to `use`.
template <class Service, class Use>
void withLayout(Service &service, vexoPweType type, Use use)
{
    switch (type) {
    case VEXO_PWE_TYPE_TDM_1:
        return use(service.t1);
    case VEXO_PWE_TYPE_TDM_2:
        return use(service.t2);
    case VEXO_PWE_TYPE_ATM_3:
    case VEXO_PWE_TYPE_ATM_4:
        return use(service.a);
    default:
        return;
    }
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
    withLayout(params->service, params->pweType,
               [&](const auto &service) { overlay(record, service); });
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
    withLayout(info->service, info->pweType, [&](auto &service) { extract(service, record); });
}
