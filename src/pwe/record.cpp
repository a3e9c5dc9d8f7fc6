#include "pwe/record.h"

#include <vexo_cmi/convert.h>

namespace pwe
{

namespace
{

// Of the PSN types without parameters, two are refused.
bool isPossible(vexoPwePsnType type, frame::Outcome &outcome)
{
    if (type == VEXO_PWE_PSN_TYPE_4)
        return outcome.refuse("Not supported");
    if (type == VEXO_PWE_PSN_TYPE_5)
        return outcome.refuse("Not implemented");
    return true;
}

template <class Field>
void overlayFlagged(Field &field, uint32_t value, uint32_t valid)
{
    if (valid)
        field = static_cast<Field>(value);
}

void overlayNonZero(uint32_t &field, uint32_t value)
{
    if (value)
        field = value;
}

void extractFlagged(uint32_t &value, uint32_t &valid, uint32_t field)
{
    value = field;
    valid = 1;
}

void overlayRtp(pwConfig &record, const vexoPweRtp &rtp)
{
    record.rtpEnable = rtp.mode == VEXO_PWE_RTP_ON;
    overlayRtpFields(record, rtp);
}

void overlayT1(pwConfig &record, const vexoPweServiceT1 &service)
{
    record.circuit = service.circuit;
    overlayNonZero(record.jitterBufferSize, service.jitterBufferSize);
    overlayNonZero(record.payloadSize, service.payloadSize);
    overlayRtp(record, service.rtp);
}

void overlayT2(pwConfig &record, const vexoPweServiceT2 &service)
{
    record.circuit = service.circuit;
    overlayFlagged(record.serviceOption, service.serviceOption, service.serviceOptionValid);
    overlayNonZero(record.jitterBufferSize, service.jitterBufferSize);
    overlayNonZero(record.payloadSize, service.payloadSize);
    overlayTwoState(record.serviceFlag, service.serviceFlag, FIRST_SETS);
    overlayRtp(record, service.rtp);
}

void overlayA(pwConfig &record, const vexoPweServiceA &service)
{
    record.circuit = service.circuit;
    overlayNonZero(record.payloadSize, service.payloadSize);
    overlayNonZero(record.serviceOption, service.serviceOption);
    overlayTwoState(record.serviceFlag, service.serviceFlag, FIRST_CLEARS);
    record.atmMode = vexoAtmMode_to_atmMode(service.atmMode);
    record.atmType = vexoAtmType_to_atmType(service.atmType);
    overlayTwoState(record.atmFlag1, service.atmFlag1, FIRST_CLEARS);
    overlayTwoState(record.atmFlag2, service.atmFlag2, FIRST_CLEARS);
    record.atmClpMap = vexoAtmClpMode_to_atmClpMap(service.atmClpMode);
    record.atmParam1 = service.atmParam1;
    record.atmParam2 = service.atmParam2;
}

void extractT1(vexoPweServiceT1 &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    service.jitterBufferSize = record.jitterBufferSize;
    service.payloadSize = record.payloadSize;
    extractRtp(service.rtp, record);
}

void extractT2(vexoPweServiceT2 &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    extractFlagged(service.serviceOption, service.serviceOptionValid, record.serviceOption);
    service.jitterBufferSize = record.jitterBufferSize;
    service.payloadSize = record.payloadSize;
    service.serviceFlag = extractTwoState(record.serviceFlag, FIRST_SETS);
    extractRtp(service.rtp, record);
}

void extractA(vexoPweServiceA &service, const pwConfig &record)
{
    service.circuit = record.circuit;
    service.payloadSize = record.payloadSize;
    service.serviceOption = record.serviceOption;
    service.serviceFlag = extractTwoState(record.serviceFlag, FIRST_CLEARS);
    service.atmMode = atmMode_to_vexoAtmMode(record.atmMode);
    service.atmType = atmType_to_vexoAtmType(record.atmType);
    service.atmFlag1 = extractTwoState(record.atmFlag1, FIRST_CLEARS);
    service.atmFlag2 = extractTwoState(record.atmFlag2, FIRST_CLEARS);
    service.atmClpMode = atmClpMap_to_vexoAtmClpMode(record.atmClpMap);
    service.atmParam1 = record.atmParam1;
    service.atmParam2 = record.atmParam2;
}

} // namespace

void overlayVlan(pwConfig &record, const vexoPweVlan &vlan)
{
    record.tagMode = vexoVlanMode_to_tagMode(vlan.mode);
    if (vlan.mode == VEXO_VLAN_MODE_UNTAGGED)
        return;
    overlayFlagged(record.vlanId, vlan.vlanId, vlan.vlanIdValid);
    overlayFlagged(record.priority, vlan.priority, vlan.priorityValid);
    if (vlan.mode != VEXO_VLAN_MODE_DOUBLE)
        return;
    overlayFlagged(record.outerVlanId, vlan.outerVlanId, vlan.outerVlanIdValid);
    overlayFlagged(record.outerPriority, vlan.outerPriority, vlan.outerPriorityValid);
}

bool overlayPsn(pwConfig &record, const vexoPwePsn &psn, frame::Outcome &outcome)
{
    record.encType = vexoPwePsnType_to_pweEncType(psn.psnType);
    switch (psn.psnType) {
    case VEXO_PWE_PSN_TYPE_1: {
        auto &enc = record.enc.enc2;
        overlayFlagged(enc.param1, psn.param1, psn.param1Valid);
        overlayFlagged(enc.param2, psn.param2, psn.param2Valid);
        overlayFlagged(enc.param3, psn.param3, psn.param3Valid);
        overlayFlagged(enc.param4, psn.param4, psn.param4Valid);
        return true;
    }
    case VEXO_PWE_PSN_TYPE_2: {
        auto &enc = record.enc.enc3;
        overlayFlagged(enc.param1, psn.param1, psn.param1Valid);
        overlayFlagged(enc.param2, psn.param2, psn.param2Valid);
        return true;
    }
    case VEXO_PWE_PSN_TYPE_3: {
        auto &enc = record.enc.enc4;
        enc.udpMode = vexoPweUdpMode_to_pweIpUdpMode(psn.udpMode);
        overlayFlagged(enc.param1, psn.param1, psn.param1Valid);
        overlayFlagged(enc.param2, psn.param2, psn.param2Valid);
        overlayFlagged(enc.param3, psn.param3, psn.param3Valid);
        return true;
    }
    default:
        return isPossible(psn.psnType, outcome);
    }
}

void overlayRtpFields(pwConfig &record, const vexoPweRtp &rtp)
{
    overlayFlagged(record.rtpPayloadType, rtp.payloadType, rtp.payloadTypeValid);
    overlayFlagged(record.rtpSsrc, rtp.ssrc, rtp.ssrcValid);
}

void overlayService(pwConfig &record, const vexoPweService &service, vexoPweType type)
{
    switch (type) {
    case VEXO_PWE_TYPE_TDM_1:
        return overlayT1(record, service.t1);
    case VEXO_PWE_TYPE_TDM_2:
        return overlayT2(record, service.t2);
    case VEXO_PWE_TYPE_ATM_3:
    case VEXO_PWE_TYPE_ATM_4:
        return overlayA(record, service.a);
    default:
        return;
    }
}

void extractVlan(vexoPweVlan &vlan, const pwConfig &record)
{
    vlan.mode = tagMode_to_vexoVlanMode(record.tagMode);
    if (vlan.mode == VEXO_VLAN_MODE_UNTAGGED)
        return;
    extractFlagged(vlan.vlanId, vlan.vlanIdValid, record.vlanId);
    extractFlagged(vlan.priority, vlan.priorityValid, record.priority);
    if (vlan.mode != VEXO_VLAN_MODE_DOUBLE)
        return;
    extractFlagged(vlan.outerVlanId, vlan.outerVlanIdValid, record.outerVlanId);
    extractFlagged(vlan.outerPriority, vlan.outerPriorityValid, record.outerPriority);
}

bool extractPsn(vexoPwePsn &psn, const pwConfig &record, frame::Outcome &outcome)
{
    psn.psnType = pweEncType_to_vexoPwePsnType(record.encType);
    switch (psn.psnType) {
    case VEXO_PWE_PSN_TYPE_1: {
        const auto &enc = record.enc.enc2;
        extractFlagged(psn.param1, psn.param1Valid, enc.param1);
        extractFlagged(psn.param2, psn.param2Valid, enc.param2);
        extractFlagged(psn.param3, psn.param3Valid, enc.param3);
        extractFlagged(psn.param4, psn.param4Valid, enc.param4);
        return true;
    }
    case VEXO_PWE_PSN_TYPE_2: {
        const auto &enc = record.enc.enc3;
        extractFlagged(psn.param1, psn.param1Valid, enc.param1);
        extractFlagged(psn.param2, psn.param2Valid, enc.param2);
        return true;
    }
    case VEXO_PWE_PSN_TYPE_3: {
        const auto &enc = record.enc.enc4;
        psn.udpMode = pweIpUdpMode_to_vexoPweUdpMode(enc.udpMode);
        extractFlagged(psn.param1, psn.param1Valid, enc.param1);
        extractFlagged(psn.param2, psn.param2Valid, enc.param2);
        extractFlagged(psn.param3, psn.param3Valid, enc.param3);
        return true;
    }
    default:
        return isPossible(psn.psnType, outcome);
    }
}

void extractRtp(vexoPweRtp &rtp, const pwConfig &record)
{
    rtp.mode = record.rtpEnable == 1 ? VEXO_PWE_RTP_ON : VEXO_PWE_RTP_OFF;
    if (rtp.mode == VEXO_PWE_RTP_OFF)
        return;
    extractFlagged(rtp.payloadType, rtp.payloadTypeValid, record.rtpPayloadType);
    extractFlagged(rtp.ssrc, rtp.ssrcValid, record.rtpSsrc);
}

void extractService(vexoPweService &service, const pwConfig &record, vexoPweType type)
{
    switch (type) {
    case VEXO_PWE_TYPE_TDM_1:
        return extractT1(service.t1, record);
    case VEXO_PWE_TYPE_TDM_2:
        return extractT2(service.t2, record);
    case VEXO_PWE_TYPE_ATM_3:
    case VEXO_PWE_TYPE_ATM_4:
        return extractA(service.a, record);
    default:
        return;
    }
}

} // namespace pwe
