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

} // namespace pwe
