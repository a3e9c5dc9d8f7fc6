#include "frame/record.h"
#include "pwe/record.h"

#include <vexo_cmi/convert.h>

#include <string.h>

using frame::Outcome;

namespace
{

template <class Overlay>
[[gnu::always_inline]] inline void changePw(uint32_t pwId, vexoResult *result, Overlay overlay)
{
    frame::change(config_get_pw, config_set_pw, pwId, result, overlay);
}

bool checkTdm(const pwConfig &record, Outcome &outcome)
{
    return pwe::isTdm(record.pweType) || outcome.refuseBadType();
}

} // namespace

void vexo_cmi_pwe_admin_set(vexoAdminStatus status, uint32_t pwId, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_pw_admin(vexoAdminStatus_to_adminStatus(status), pwId));
}

void vexo_cmi_pwe_admin_get(vexoAdminStatus *status, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw_admin, pwId, result, [=](adminStatus platformStatus) {
        *status = adminStatus_to_vexoAdminStatus(platformStatus);
    });
}

void vexo_cmi_pwe_dst_mac_set(const unsigned char mac[6], uint32_t pwId, vexoResult *result)
{
    changePw(pwId, result,
             [=](pwConfig &record) { memcpy(record.dstMac, mac, sizeof record.dstMac); });
}

void vexo_cmi_pwe_dst_mac_get(unsigned char mac[6], uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result,
                [=](const pwConfig &record) { memcpy(mac, record.dstMac, sizeof record.dstMac); });
}

void vexo_cmi_pwe_vlan_set(const vexoPweVlan *vlan, uint32_t pwId, vexoResult *result)
{
    changePw(pwId, result, [=](pwConfig &record) { pwe::overlayVlan(record, *vlan); });
}

void vexo_cmi_pwe_vlan_get(vexoPweVlan *vlan, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record) {
        memset(vlan, 0, sizeof *vlan);
        pwe::extractVlan(*vlan, record);
    });
}

void vexo_cmi_pwe_psn_set(const vexoPwePsn *psn, uint32_t pwId, vexoResult *result)
{
    changePw(pwId, result, [=](pwConfig &record, Outcome &outcome) {
        return pwe::overlayPsn(record, *psn, outcome);
    });
}

void vexo_cmi_pwe_psn_get(vexoPwePsn *psn, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record, Outcome &outcome) {
        memset(psn, 0, sizeof *psn);
        pwe::extractPsn(*psn, record, outcome);
    });
}

void vexo_cmi_pwe_pdv_set(uint32_t size, uint32_t pwId, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_pw_jitter_size(size, pwId));
}

void vexo_cmi_pwe_pdv_get(uint32_t *size, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record, Outcome &outcome) {
        if (checkTdm(record, outcome))
            *size = record.jitterBufferSize;
    });
}

void vexo_cmi_pwe_payload_set(uint32_t size, uint32_t pwId, vexoResult *result)
{
    changePw(pwId, result, [=](pwConfig &record, Outcome &outcome) {
        if (!checkTdm(record, outcome))
            return false;
        if (size)
            record.payloadSize = size;
        return true;
    });
}

void vexo_cmi_pwe_payload_get(uint32_t *size, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record, Outcome &outcome) {
        if (checkTdm(record, outcome))
            *size = record.payloadSize;
    });
}

void vexo_cmi_pwe_rtp_set(const vexoPweRtp *rtp, uint32_t pwId, vexoResult *result)
{
    changePw(pwId, result, [=](pwConfig &record, Outcome &outcome) {
        pwe::overlayTwoState(record.rtpEnable, rtp->mode, pwe::FIRST_CLEARS);
        if (!checkTdm(record, outcome))
            return false;
        pwe::overlayRtpFields(record, *rtp);
        return true;
    });
}

void vexo_cmi_pwe_rtp_get(vexoPweRtp *rtp, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record, Outcome &outcome) {
        memset(rtp, 0, sizeof *rtp);
        if (checkTdm(record, outcome))
            pwe::extractRtp(*rtp, record);
    });
}

void vexo_cmi_pwe_atm_force_ais_set(uint32_t force, uint32_t pwId, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_pw_ais(force != 0, pwId));
}

void vexo_cmi_pwe_atm_force_ais_get(uint32_t *force, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result,
                [=](const pwConfig &record) { *force = record.aisForced != 0; });
}
