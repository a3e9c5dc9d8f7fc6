// libkv_config.
#include "bare.h"

#include <kv_config.h>

#include <cstring>

using bare::answer;
using bare::copy;
using bare::set;

static sysParams sys;
static pweIf interface;
static sysStatus status;
static eqptMode mode{1};
static unsigned temperature = 40;
static sysLinkStatus linkStatus{{1, 2, 1, 1, 1, 1, 1}};
static peerServer server;
static debugInfo debug;
static sysLpbk loopback;
static tpgmSetup tpgm;
static tpgmStatus tpgmState;
static pdhParams ports[17];
static pdhLpbk portLoopbacks[17];
static pwConfig pws[PW_PROV_MAX + 1];
static pwConfig defaults;
static pwProvList provisioned;
static imaParams groups[10];
static operState state{1};

// Texts that fill their fields, and a full set of objects.
static const bool filled = [] {
    memset(sys.text328, 'a', sizeof sys.text328 - 1);
    memset(sys.text410, 'b', sizeof sys.text410 - 1);
    memset(sys.text425, 'c', sizeof sys.text425 - 1);
    memset(sys.text446, 'd', sizeof sys.text446 - 1);
    memset(sys.text461, 'e', sizeof sys.text461 - 1);
    sys.number = 4321 * 10000 + 8765;
    for (auto &text : status.version.text)
        memset(text, 'v', sizeof text - 1);
    memset(debug.text, 'i', sizeof debug.text);
    for (uint32_t i = 0; i < PW_PROV_MAX; ++i)
        provisioned.pwIds[i] = static_cast<uint16_t>(i + 1);
    provisioned.count = PW_PROV_MAX;
    return true;
}();

const char *config_get_error_string(void)
{
    return "the bare platform's text for its latest failure";
}

kvRc config_set_system_mode(eqptMode value)
{
    return set(mode, value);
}

kvRc config_get_system_mode(eqptMode *out)
{
    return copy(out, &mode);
}

kvRc config_set_pwe_src_mac_addr(const unsigned char *mac)
{
    memcpy(interface.srcMac, mac, sizeof interface.srcMac);
    return answer();
}

kvRc config_get_pwe_if(pweIf *out)
{
    return copy(out, &interface);
}

kvRc config_system_tpid_set(unsigned short tpid)
{
    return set(sys.tpid, tpid);
}

kvRc config_get_system_params(sysParams *out)
{
    return copy(out, &sys);
}

kvRc config_set_pwe_src_ip_addr(const unsigned *address)
{
    return copy(&interface.srcIp, address);
}

kvRc config_set_pwe_lops_threshold(const lopsThreshold *in)
{
    interface.lops1 = in->first;
    return copy(&interface.lops2, &in->second);
}

kvRc config_set_clk_out(const clkOut *in)
{
    sys.clkOut1 = in->first;
    return copy(&sys.clkOut2, &in->second);
}

kvRc config_set_psn_net_type(psnNetType type)
{
    return set(sys.psnNetType, type);
}

kvRc config_set_temperature_thr(const temperatureThr *in)
{
    sys.temperatureThr1 = in->first;
    return copy(&sys.temperatureThr2, &in->second);
}

kvRc config_get_temperature(unsigned *out)
{
    return copy(out, &temperature);
}

kvRc config_get_sys_status(sysStatus *out)
{
    return copy(out, &status);
}

kvRc config_get_sys_version(swVersion *out)
{
    return copy(out, &status.version);
}

kvRc config_get_pdh_params(pdhParams *out, uint32_t port)
{
    return copy(out, &ports[port]);
}

kvRc config_set_pdh_params(const pdhParams *in, uint32_t port)
{
    return copy(&ports[port], in);
}

kvRc config_get_pdh_admin(adminStatus *out, uint32_t port)
{
    return copy(out, &ports[port].adminStatus);
}

kvRc config_set_pdh_admin(adminStatus value, uint32_t port)
{
    return set(ports[port].adminStatus, value);
}

kvRc config_get_pdh_oper_state(operState *out, uint32_t)
{
    return copy(out, &state);
}

kvRc config_get_pdh_lpbk(pdhLpbk *out, uint32_t port)
{
    return copy(out, &portLoopbacks[port]);
}

kvRc config_set_pdh_lpbk(const pdhLpbk *in, uint32_t port)
{
    return copy(&portLoopbacks[port], in);
}

kvRc config_get_pw(pwConfig *out, uint32_t pwId)
{
    return copy(out, &pws[pwId]);
}

kvRc config_get_pw_defaults(pwConfig *out, const pwDefaultsKey *, uint32_t)
{
    return copy(out, &defaults);
}

kvRc config_add_pw(const pwConfig *in, uint32_t pwId)
{
    return copy(&pws[pwId], in);
}

kvRc config_set_pw(const pwConfig *in, uint32_t pwId)
{
    return copy(&pws[pwId], in);
}

kvRc config_del_pw(uint32_t)
{
    return answer();
}

kvRc config_get_pw_oper_state(operState *out, uint32_t)
{
    return copy(out, &state);
}

kvRc config_set_pw_admin(adminStatus value, uint32_t pwId)
{
    return set(pws[pwId].adminStatus, value);
}

kvRc config_get_pw_admin(adminStatus *out, uint32_t pwId)
{
    return copy(out, &pws[pwId].adminStatus);
}

kvRc config_set_pw_jitter_size(uint32_t size, uint32_t pwId)
{
    return set(pws[pwId].jitterBufferSize, size);
}

kvRc config_set_pw_ais(uint32_t force, uint32_t pwId)
{
    return set(pws[pwId].aisForced, force);
}

kvRc config_add_pw_atm_xc(const pwAtmXc *in, uint32_t pwId)
{
    return copy(&pws[pwId].atmXc[0], in);
}

kvRc config_del_pw_atm_xc(const pwAtmXc *, uint32_t)
{
    return answer();
}

kvRc config_get_pw_all_prov(pwProvList *out)
{
    return copy(out, &provisioned);
}

const char *config_pwe_srv_type_to_string(pweType)
{
    return "bare";
}

kvRc config_get_ima_params(imaParams *out, uint32_t group)
{
    return copy(out, &groups[group]);
}

kvRc config_set_ima_params(const imaParams *in, uint32_t group)
{
    return copy(&groups[group], in);
}

kvRc config_add_ima(const imaParams *in, uint32_t group)
{
    return copy(&groups[group], in);
}

kvRc config_del_ima(uint32_t)
{
    return answer();
}

kvRc config_add_ima_link(uint32_t, uint32_t)
{
    return answer();
}

kvRc config_del_ima_link(uint32_t, uint32_t)
{
    return answer();
}

kvRc config_get_sys_link_status(sysLinkStatus *out)
{
    return copy(out, &linkStatus);
}

kvRc config_get_peer_server_params(peerServer *out)
{
    return copy(out, &server);
}

kvRc config_set_debug_info_params(const debugInfo *in)
{
    return copy(&debug, in);
}

kvRc config_get_debug_info_params(debugInfo *out)
{
    return copy(out, &debug);
}

kvRc config_set_sys_lpbk(const sysLpbk *in)
{
    return copy(&loopback, in);
}

kvRc config_get_sys_lpbk(sysLpbk *out)
{
    return copy(out, &loopback);
}

kvRc config_init_tpgm(const tpgmSetup *in)
{
    return copy(&tpgm, in);
}

kvRc config_get_tpgm_status(tpgmStatus *out)
{
    return copy(out, &tpgmState);
}

kvRc config_clear_tpgm_status(uint32_t)
{
    return answer();
}

uint32_t GetObjectCount(objType type)
{
    switch (type) {
    case OBJ_PDH:
        return 16;
    case OBJ_IMA_GROUP:
        return 8;
    default:
        return 1;
    }
}
