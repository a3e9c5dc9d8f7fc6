// libkv_config: the configuration store of the device, as far as the library uses it. Members named
// platformN lie at offset N and are the platform's own.
#ifndef KV_CONFIG_H
#define KV_CONFIG_H

#include "kv_types.h"

struct swVersion {
    char text[10][128];
};

struct sysParams {
    uint8_t platform0[300];
    uint16_t tpid;
    uint8_t platform302[26];
    char text328[82];
    char text410[15];
    char text425[21];
    char text446[15];
    char text461[7];
    uint32_t number;
    enum psnNetType psnNetType;
    uint32_t temperatureThr1;
    uint32_t temperatureThr2;
    uint32_t clkOut1;
    uint32_t clkOut2;
    enum operState operState;
};

struct sysStatus {
    enum operState operState;
    swVersion version;
    uint32_t values1[13];
    uint32_t values2[6];
};

struct pweIf {
    uint32_t srcIp;
    uint8_t platform4[4];
    uint8_t srcMac[6];
    uint8_t platform14[2];
    uint32_t lops1;
    uint32_t lops2;
};

struct lopsThreshold {
    uint32_t first;
    uint32_t second;
};

struct clkOut {
    uint32_t first;
    uint32_t second;
};

struct temperatureThr {
    uint32_t first;
    uint32_t second;
};

struct sysLinkStatus {
    uint32_t words[7];
};

struct peerServer {
    uint32_t address; // network byte order
    uint32_t platform4[3];
};

struct debugInfo {
    char text[128];
    DebugState state;
};

struct sysLpbk {
    enum lpbk lpbk;
    uint32_t second;
};

struct tpgmSetup {
    uint32_t params[3];
};

struct tpgmStatus {
    uint32_t words[33];
};

struct pdhParams {
    enum adminStatus adminStatus;
    pdhClockMode clockMode;
    uint32_t clockParam;
    pdhFrameMode frameMode;
    pdhCode lineCode;
    uint16_t cableLength;
    uint8_t platform22[2];
    pdhNiuMode niuMode;
    uint32_t syncAux;
    uint32_t auxParam;
    uint8_t platform36[4];
};

struct pdhLpbk {
    enum lpbk lpbk;
    uint32_t platform4[2];
};

struct pwAtmXc {
    uint16_t xcId1;
    uint16_t xcId2;
    uint16_t xcId3;
    uint16_t xcId4;
    pweAtmXcType xcType;
};

// The parameters of an encapsulation, by its platform type.
union pwEncapsulation {
    struct {
        uint32_t platform20[3];
        uint32_t param1;
        uint32_t param2;
        uint8_t param3;
        uint8_t param4;
        uint8_t platform42[2];
    } enc2;
    struct {
        uint32_t param1;
        uint32_t param2;
    } enc3;
    struct {
        pweIpUdpMode udpMode;
        uint32_t param1;
        uint32_t param2;
        uint32_t param3;
    } enc4;
};

constexpr uint32_t PW_ATM_XC_MAX = 20;

struct pwConfig {
    enum pweType pweType;
    enum adminStatus adminStatus;
    uint32_t pwId;
    uint32_t circuit;
    pweEncType encType;
    pwEncapsulation enc;
    uint8_t dstMac[6];
    uint8_t srcMac[6];
    enum tagMode tagMode;
    uint8_t outerPriority;
    uint8_t platform61;
    uint16_t outerVlanId;
    uint8_t priority;
    uint8_t platform65;
    uint16_t vlanId;
    uint32_t rtpEnable;
    uint32_t rtpSsrc;
    uint8_t rtpPayloadType;
    uint8_t platform77[3];
    uint32_t jitterBufferSize;
    uint32_t payloadSize;
    uint32_t serviceOption;
    uint32_t serviceFlag;
    enum atmMode atmMode;
    enum atmType atmType;
    uint32_t atmFlag1;
    uint32_t atmFlag2;
    enum atmClpMap atmClpMap;
    uint32_t atmParam1;
    uint32_t atmParam2;
    pwAtmXc atmXc[PW_ATM_XC_MAX];
    uint32_t atmXcCount;
    uint8_t platform368[24];
    uint32_t aisForced;
    uint8_t platform396[4];
};

struct pwDefaultsKey {
    enum pweType pweType;
    pweEncType encType;
};

constexpr uint32_t PW_PROV_MAX = 1024;

struct pwProvList {
    uint16_t pwIds[PW_PROV_MAX];
    uint16_t count;
    uint8_t platform2050[6];
};

constexpr uint32_t IMA_LINK_MAX = 8;

struct imaLinkEntry {
    uint32_t linkId;
    uint32_t state[9];
};

struct imaGroupState {
    uint32_t words[8];
};

struct imaParams {
    uint32_t groupParam1;
    uint32_t groupParam2;
    uint32_t groupParam3;
    imaGroupState groupState;
    uint32_t linkCount;
    imaLinkEntry links[IMA_LINK_MAX];
};

extern "C" {

// The text of the latest failure, the platform's to keep.
const char *config_get_error_string(void);

kvRc config_set_system_mode(eqptMode mode);
kvRc config_get_system_mode(eqptMode *mode);
kvRc config_set_pwe_src_mac_addr(const unsigned char *mac);
kvRc config_get_pwe_if(pweIf *interface);
kvRc config_system_tpid_set(unsigned short tpid);
kvRc config_get_system_params(sysParams *params);
kvRc config_set_pwe_src_ip_addr(const unsigned *address);
kvRc config_set_pwe_lops_threshold(const lopsThreshold *threshold);
kvRc config_set_clk_out(const clkOut *clocks);
kvRc config_set_psn_net_type(psnNetType type);
kvRc config_set_temperature_thr(const temperatureThr *threshold);
kvRc config_get_temperature(unsigned *temperature);
kvRc config_get_sys_status(sysStatus *status);
kvRc config_get_sys_version(swVersion *version);

kvRc config_get_pdh_params(pdhParams *params, uint32_t port);
kvRc config_set_pdh_params(const pdhParams *params, uint32_t port);
kvRc config_get_pdh_admin(adminStatus *status, uint32_t port);
kvRc config_set_pdh_admin(adminStatus status, uint32_t port);
kvRc config_get_pdh_oper_state(operState *state, uint32_t port);
kvRc config_get_pdh_lpbk(pdhLpbk *loopback, uint32_t port);
kvRc config_set_pdh_lpbk(const pdhLpbk *loopback, uint32_t port);

kvRc config_get_pw(pwConfig *config, uint32_t pwId);
kvRc config_get_pw_defaults(pwConfig *config, const pwDefaultsKey *key, uint32_t pwId);
kvRc config_add_pw(const pwConfig *config, uint32_t pwId);
kvRc config_set_pw(const pwConfig *config, uint32_t pwId);
kvRc config_del_pw(uint32_t pwId);
kvRc config_get_pw_oper_state(operState *state, uint32_t pwId);
kvRc config_set_pw_admin(adminStatus status, uint32_t pwId);
kvRc config_get_pw_admin(adminStatus *status, uint32_t pwId);
kvRc config_set_pw_jitter_size(uint32_t size, uint32_t pwId);
kvRc config_set_pw_ais(uint32_t force, uint32_t pwId);
kvRc config_add_pw_atm_xc(const pwAtmXc *xc, uint32_t pwId);
kvRc config_del_pw_atm_xc(const pwAtmXc *xc, uint32_t pwId);
kvRc config_get_pw_all_prov(pwProvList *list);
const char *config_pwe_srv_type_to_string(pweType type);

kvRc config_get_ima_params(imaParams *params, uint32_t group);
kvRc config_set_ima_params(const imaParams *params, uint32_t group);
kvRc config_add_ima(const imaParams *params, uint32_t group);
kvRc config_del_ima(uint32_t group);
kvRc config_add_ima_link(uint32_t link, uint32_t group);
kvRc config_del_ima_link(uint32_t link, uint32_t group);

kvRc config_get_sys_link_status(sysLinkStatus *status);
kvRc config_get_peer_server_params(peerServer *server);
kvRc config_set_debug_info_params(const debugInfo *info);
kvRc config_get_debug_info_params(debugInfo *info);
kvRc config_set_sys_lpbk(const sysLpbk *loopback);
kvRc config_get_sys_lpbk(sysLpbk *loopback);
kvRc config_init_tpgm(const tpgmSetup *setup);
kvRc config_get_tpgm_status(tpgmStatus *status);
kvRc config_clear_tpgm_status(uint32_t clear);

// The number of objects of a type. Which of the platform's libraries has it is not known.
uint32_t GetObjectCount(objType type);
}

#endif
