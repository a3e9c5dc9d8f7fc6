#include "operations.h"

#include "bare.h"

#include <kv_common.h>
#include <kv_config.h>
#include <kv_forker.h>
#include <kv_upgrade.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <sys/time.h>

extern "C" int gorvGetVersion(char *buffer, int)
{
    memcpy(buffer, "gorv", 5);
    return 0;
}

namespace bench
{

vexoResult result;

namespace
{

// Pseudowires of one kind each.
enum : uint32_t {
    PW_PLAIN = 1,   // type 1, untagged, PSN type 2, no RTP
    PW_RICH = 2,    // type 2, double tag, PSN type 1, RTP
    PW_ATM = 3,     // type 3, double tag, PSN type 1, 20 cross-connects
    PW_ATM_UDP = 4, // type 4, one tag, PSN type 3, no cross-connects
    PW_CREATED = 0, // what is created; not in the list of those provisioned
};

enum : uint32_t { GROUP = 1, GROUP_CREATED = 0, GROUP_EMPTY = 9 };

constexpr uint32_t PORT = 1;
constexpr uint32_t PORT_1 = 2; // with the line counters in arrangement 1

// What the caller hands to the library. Texts are copied faster or slower by where they lie: here
// they always lie the same.
namespace cmi
{

constexpr unsigned char MAC_IN[6]{1, 2, 3, 4, 5, 6};
constexpr vexoPdhParamsIn PDH_IN{VEXO_ADMIN_STATUS_1,  VEXO_PDH_FRAME_MODE_2,
                                 VEXO_PDH_CODE_3,      100,
                                 VEXO_PDH_SYNC_MODE_4, 5,
                                 VEXO_PDH_NIU_MODE_1,  7};
constexpr vexoPdhSync SYNC_IN{VEXO_PDH_SYNC_MODE_2, 3};
constexpr vexoPweVlan UNTAGGED{VEXO_VLAN_MODE_UNTAGGED, 0, 0, 0, 0, 0, 0, 0, 0};
constexpr vexoPweVlan TAGGED{VEXO_VLAN_MODE_2, 0, 0, 0, 0, 7, 1, 3, 1};
constexpr vexoPweVlan DOUBLE_TAG{VEXO_VLAN_MODE_DOUBLE, 100, 1, 5, 1, 7, 1, 3, 1};
constexpr vexoPwePsn PSN_1{VEXO_PWE_PSN_TYPE_1, 1, 1, 2, 1, 3, 1, {4}, 1, {}};
constexpr vexoPwePsn PSN_2{VEXO_PWE_PSN_TYPE_2, 1, 1, 2, 1, 0, 0, {0}, 0, {}};
constexpr vexoPwePsn PSN_3{VEXO_PWE_PSN_TYPE_3, 1, 1, 2, 1, 3, 1, {1}, 0, {}};
constexpr vexoPweRtp RTP_OFF{VEXO_PWE_RTP_OFF, 0, 0, 0, 0, {}};
constexpr vexoPweRtp RTP_ON{VEXO_PWE_RTP_ON, 96, 1, 4711, 1, {}};
constexpr vexoPweServiceT1 SERVICE_1{1, 2000, 256, RTP_OFF, {}};
constexpr vexoPweServiceT2 SERVICE_2{1, 3, 1, 2000, 256, 1, RTP_ON};
constexpr vexoPweServiceA SERVICE_A{
    1, 48, 3, 1, VEXO_ATM_MODE_1, VEXO_ATM_TYPE_2, 2, 2, VEXO_ATM_CLP_MODE_3, 8, 9, {}};

constexpr vexoPweParams params(vexoPweType type, vexoPweAction action, const vexoPweVlan &vlan,
                               const vexoPwePsn &psn, const vexoPweService &service)
{
    return {type, action, VEXO_ADMIN_STATUS_1, {1, 2, 3, 4, 5, 6}, {}, vlan, psn, service};
}

constexpr vexoPweParams PLAIN =
    params(VEXO_PWE_TYPE_TDM_1, VEXO_PWE_ACTION_MODIFY, UNTAGGED, PSN_2, {.t1 = SERVICE_1});
constexpr vexoPweParams RICH =
    params(VEXO_PWE_TYPE_TDM_2, VEXO_PWE_ACTION_MODIFY, DOUBLE_TAG, PSN_1, {.t2 = SERVICE_2});
constexpr vexoPweParams RICH_CREATED =
    params(VEXO_PWE_TYPE_TDM_2, VEXO_PWE_ACTION_CREATE, DOUBLE_TAG, PSN_1, {.t2 = SERVICE_2});
constexpr vexoPweParams ATM =
    params(VEXO_PWE_TYPE_ATM_3, VEXO_PWE_ACTION_MODIFY, DOUBLE_TAG, PSN_1, {.a = SERVICE_A});
constexpr vexoPweParams ATM_CREATED =
    params(VEXO_PWE_TYPE_ATM_3, VEXO_PWE_ACTION_CREATE, DOUBLE_TAG, PSN_1, {.a = SERVICE_A});
constexpr vexoPweParams ATM_UDP =
    params(VEXO_PWE_TYPE_ATM_4, VEXO_PWE_ACTION_MODIFY, TAGGED, PSN_3, {.a = SERVICE_A});
constexpr vexoPweParams DELETED =
    params(VEXO_PWE_TYPE_TDM_1, VEXO_PWE_ACTION_DELETE, UNTAGGED, PSN_2, {.t1 = SERVICE_1});
constexpr vexoPweAtmXc XC{VEXO_PWE_ATM_XC_TYPE_1, 1, 2, 3, 4};
constexpr vexoImaGroupSet GROUP_MODIFY{VEXO_IMA_ACTION_MODIFY, 1, 2, 3};
constexpr vexoImaGroupSet GROUP_CREATE{VEXO_IMA_ACTION_CREATE, 1, 2, 3};
constexpr vexoImaGroupSet GROUP_DELETE{VEXO_IMA_ACTION_DELETE, 0, 0, 0};
constexpr vexoUpgradeInfo UPGRADE_IN{VEXO_UPGRADE_MODE_1, "a file name of some length", {}};
constexpr unsigned FIRST = 1;
constexpr unsigned SECOND = 2;

unsigned char mac[6];
unsigned value, second, third;
vexoTdmMode tdmMode;
vexoAlarmMode alarmMode;
vexoNetQuality quality;
vexoModuleState moduleState;
alignas(2048) vexoSysInventory inventory;
alignas(2048) vexoSysStatus status;
alignas(2048) vexoSwVersion version;
vexoAdminStatus admin;
vexoPdhParamsOut pdh;
vexoPdhCode code;
vexoPdhFrameMode frame;
vexoPdhSync sync;
vexoPdhNiuMode niu;
vexoLpbk loopback;
vexoPdhPm pdhPm;
vexoPweParamsInfo pwe;
vexoPweVlan vlan;
vexoPwePsn psn;
vexoPweRtp rtp;
vexoPweAtmXc xcs[VEXO_PWE_ATM_XC_MAX];
vexoPwePm pwePm;
vexoPweOm pweOm;
vexoImaParams ima;
vexoImaGroupState groupState;
vexoImaLinkState linkStates[VEXO_IMA_LINK_MAX];
uint32_t linkIds[VEXO_IMA_LINK_MAX];
vexoImaGroupPm imaPm;
vexoImaOm imaOm;
vexoSysInfo sysInfo;
alignas(2048) vexoUpgradeInfo upgrade;
alignas(2048) vexoDebugInfo debug;
vexoTpgmStatus tpgm;

} // namespace cmi

// What the caller of the bare platform has instead.
namespace kv
{

unsigned value;
eqptMode mode;
alarmMode reportMode;
pweIf interface;
sysParams sys;
sysStatus status;
swVersion version;
lopsThreshold lops;
clkOut clocks;
temperatureThr thresholds;
adminStatus admin;
operState state;
pdhParams port;
pdhLpbk loopback;
pdhPmStat portPm;
pwConfig pw;
pwDefaultsKey key;
pwPmStats pwPm;
pwOmStats pwOm;
pwAtmXc xc;
imaParams ima;
imaGroupPmStat groupPm;
imaLinkPmStat linkPm;
imaGroupOmStat groupOm;
imaLinkOmStat linkOm;
sysLinkStatus link;
sysOmStat sysOm;
upgradeRequest upgrade;
upgradeStatus upgradeState;
peerServer server;
debugInfo debug;
sysLpbk sysLoopback;
tpgmSetup tpgmIn;
tpgmStatus tpgm;
timeval time{2000000, 0};

} // namespace kv

constexpr pmInterval INTERVALS[] = {pmInterval{1}, pmInterval{2}, pmInterval{3}};

void clearBare(kvRc (*clear)(uint32_t, pmInterval, uint32_t), uint32_t object)
{
    for (pmInterval interval : INTERVALS)
        clear(object, interval, 0);
}

void changeBarePort()
{
    config_get_pdh_params(&kv::port, PORT);
    config_set_pdh_params(&kv::port, PORT);
}

void changeBarePw(uint32_t pwId)
{
    config_get_pw(&kv::pw, pwId);
    config_set_pw(&kv::pw, pwId);
}

void createBarePw(uint32_t pwId)
{
    config_get_pw_defaults(&kv::pw, &kv::key, pwId);
    config_add_pw(&kv::pw, pwId);
}

void readBarePw(uint32_t pwId)
{
    config_get_pw(&kv::pw, pwId);
    config_get_pw_oper_state(&kv::state, pwId);
}

void readBareGroupPm(uint32_t group)
{
    config_get_ima_params(&kv::ima, group);
    pmom_ima_group_pm_stat_get(group, pmInterval{1}, 0, &kv::groupPm);
    for (uint32_t i = 0; i < kv::ima.linkCount; ++i)
        pmom_ima_link_pm_stat_get(kv::ima.links[i].linkId, pmInterval{1}, 0, &kv::linkPm);
}

void clearBareGroup(uint32_t group)
{
    config_get_ima_params(&kv::ima, group);
    clearBare(pmom_ima_group_pm_stat_clear, group);
    for (uint32_t i = 0; i < kv::ima.linkCount; ++i)
        clearBare(pmom_ima_link_pm_stat_clear, kv::ima.links[i].linkId);
}

void readBareGroupOm(bool clear)
{
    config_get_ima_params(&kv::ima, GROUP);
    pmom_ima_group_om_stat_get(GROUP, &kv::groupOm);
    if (clear)
        pmom_ima_group_om_stat_clear(GROUP);
    for (uint32_t i = 0; i < kv::ima.linkCount; ++i) {
        pmom_ima_link_om_stat_get(kv::ima.links[i].linkId, &kv::linkOm);
        if (clear)
            pmom_ima_link_om_stat_clear(kv::ima.links[i].linkId);
    }
}

constexpr auto ATTRIBUTE = Kind::attribute;
constexpr auto PWE_PART = Kind::pwePart;
constexpr auto OTHER = Kind::other;

constexpr Operation OPERATIONS[] = {
    // sys
    {ATTRIBUTE, "sys_tod_set", "", sizeof(timeval), [] { vexo_cmi_sys_tod_set(1, 2, &result); },
     [] { settimeofday(&kv::time, nullptr); }},
    {ATTRIBUTE, "sys_reset", "", 0, [] { vexo_cmi_sys_reset(&result); },
     [] { forker_box_shutdown(); }},
    {ATTRIBUTE, "sys_tdm_mode_set", "", 0,
     [] { vexo_cmi_sys_tdm_mode_set(VEXO_TDM_MODE_2, &result); },
     [] { config_set_system_mode(eqptMode{2}); }},
    {ATTRIBUTE, "sys_tdm_mode_get", "", sizeof(eqptMode),
     [] { vexo_cmi_sys_tdm_mode_get(&cmi::tdmMode, &result); },
     [] { config_get_system_mode(&kv::mode); }},
    {ATTRIBUTE, "sys_src_mac_set", "", 6, [] { vexo_cmi_sys_src_mac_set(cmi::MAC_IN, &result); },
     [] { config_set_pwe_src_mac_addr(cmi::MAC_IN); }},
    {ATTRIBUTE, "sys_src_mac_get", "", sizeof(pweIf),
     [] { vexo_cmi_sys_src_mac_get(cmi::mac, &result); },
     [] { config_get_pwe_if(&kv::interface); }},
    {ATTRIBUTE, "sys_tpid_set", "", 0, [] { vexo_cmi_sys_tpid_set(0x8100, &result); },
     [] { config_system_tpid_set(0x8100); }},
    {ATTRIBUTE, "sys_tpid_get", "", sizeof(sysParams),
     [] { vexo_cmi_sys_tpid_get(&cmi::value, &result); },
     [] { config_get_system_params(&kv::sys); }},
    {ATTRIBUTE, "sys_src_ip_set", "", 0, [] { vexo_cmi_sys_src_ip_set(0x0A000001, &result); },
     [] { config_set_pwe_src_ip_addr(&kv::value); }},
    {ATTRIBUTE, "sys_src_ip_get", "", sizeof(pweIf),
     [] { vexo_cmi_sys_src_ip_get(&cmi::value, &result); },
     [] { config_get_pwe_if(&kv::interface); }},
    {ATTRIBUTE, "sys_lops_set", "", sizeof(lopsThreshold),
     [] { vexo_cmi_sys_lops_set(1, 2, &result); },
     [] { config_set_pwe_lops_threshold(&kv::lops); }},
    {ATTRIBUTE, "sys_lops_get", "", sizeof(pweIf),
     [] { vexo_cmi_sys_lops_get(&cmi::value, &cmi::second, &result); },
     [] { config_get_pwe_if(&kv::interface); }},
    {ATTRIBUTE, "sys_rpt_mode_set", "", 0,
     [] { vexo_cmi_sys_rpt_mode_set(VEXO_ALARM_MODE_1, 5, &result); },
     [] { alarm_set_notification(alarmMode{2}, 5); }},
    {ATTRIBUTE, "sys_rpt_mode_get", "", sizeof(alarmMode) + sizeof(uint32_t),
     [] { vexo_cmi_sys_rpt_mode_get(&cmi::alarmMode, &cmi::value, &result); },
     [] { alarm_get_notification(&kv::reportMode, &kv::value); }},
    {ATTRIBUTE, "sys_clk_out_set", "", sizeof(clkOut),
     [] { vexo_cmi_sys_clk_out_set(&cmi::FIRST, &cmi::SECOND, &result); },
     [] { config_set_clk_out(&kv::clocks); }},
    {ATTRIBUTE, "sys_clk_out_get", "", sizeof(sysParams),
     [] { vexo_cmi_sys_clk_out_get(&cmi::value, &cmi::second, &result); },
     [] { config_get_system_params(&kv::sys); }},
    {ATTRIBUTE, "sys_net_type_set", "", 0,
     [] { vexo_cmi_sys_net_type_set(VEXO_NET_QUALITY_2, &result); },
     [] { config_set_psn_net_type(psnNetType{2}); }},
    {ATTRIBUTE, "sys_net_type_get", "", sizeof(sysParams),
     [] { vexo_cmi_sys_net_type_get(&cmi::quality, &result); },
     [] { config_get_system_params(&kv::sys); }},
    {ATTRIBUTE, "sys_temp_set", "", sizeof(temperatureThr),
     [] { vexo_cmi_sys_temp_set(70, 80, &result); },
     [] { config_set_temperature_thr(&kv::thresholds); }},
    {ATTRIBUTE, "sys_temp_get", "", sizeof(sysParams) + sizeof(unsigned),
     [] { vexo_cmi_sys_temp_get(&cmi::value, &cmi::second, &cmi::third, &result); },
     [] {
         config_get_temperature(&kv::value);
         config_get_system_params(&kv::sys);
     }},
    {ATTRIBUTE, "sys_alarm_get", "", sizeof(uint32_t),
     [] { vexo_cmi_sys_alarm_get(&cmi::value, &result); },
     [] { alarm_get_active_bits(OBJ_SYSTEM, 1, &kv::value); }},
    {ATTRIBUTE, "sys_alarm_set", "", 0, [] { vexo_cmi_sys_alarm_set(3, &result); },
     [] { alarm_set_status_bits(OBJ_SYSTEM, 0x7FFF, 3); }},
    {Kind::inventory, "sys_inventory_get", "", sizeof(sysParams),
     [] { vexo_cmi_sys_inventory_get(&cmi::inventory, &result); },
     [] { config_get_system_params(&kv::sys); }},
    {Kind::versions, "sys_status_get", "", sizeof(sysStatus),
     [] { vexo_cmi_sys_status_get(&cmi::status, &result); },
     [] {
         config_get_sys_status(&kv::status);
         gorvGetVersion(kv::version.text[0], 128);
     }},
    {ATTRIBUTE, "sys_oper_state_get", "", sizeof(sysParams),
     [] { vexo_cmi_sys_oper_state_get(&cmi::moduleState, &result); },
     [] { config_get_system_params(&kv::sys); }},
    {Kind::versions, "sys_version_get", "", sizeof(swVersion),
     [] { vexo_cmi_sys_version_get(&cmi::version, &result); },
     [] {
         config_get_sys_version(&kv::version);
         gorvGetVersion(kv::version.text[0], 128);
     }},
    {OTHER, "sys_kato_send", "not due", sizeof(timeval),
     [] { vexo_cmi_sys_kato_send(1000000, 2, &result); }, [] { gettimeofday(&kv::time, nullptr); }},
    {OTHER, "sys_kato_send", "due", 2 * sizeof(timeval),
     [] {
         bareClockAdvance(1000);
         vexo_cmi_sys_kato_send(1000000, 2, &result);
     },
     [] {
         bareClockAdvance(1000);
         gettimeofday(&kv::time, nullptr);
         settimeofday(&kv::time, nullptr);
         kv_log(6, 29, "", "", 0, "Kato time is updated");
         gettimeofday(&kv::time, nullptr);
     }},

    // pdh
    {Kind::pdhParams, "pdh_params_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_params_set(&cmi::PDH_IN, PORT, &result); }, changeBarePort},
    {Kind::pdhParams, "pdh_params_get", "", sizeof(pdhParams) + sizeof(operState) + sizeof(pdhLpbk),
     [] { vexo_cmi_pdh_params_get(&cmi::pdh, PORT, &result); },
     [] {
         config_get_pdh_params(&kv::port, PORT);
         config_get_pdh_oper_state(&kv::state, PORT);
         config_get_pdh_lpbk(&kv::loopback, PORT);
     }},
    {ATTRIBUTE, "pdh_admin_set", "", 0,
     [] { vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, PORT, &result); },
     [] { config_set_pdh_admin(adminStatus{2}, PORT); }},
    {ATTRIBUTE, "pdh_admin_get", "", sizeof(adminStatus),
     [] { vexo_cmi_pdh_admin_get(&cmi::admin, PORT, &result); },
     [] { config_get_pdh_admin(&kv::admin, PORT); }},
    {ATTRIBUTE, "pdh_code_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_code_set(VEXO_PDH_CODE_2, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_code_get", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_code_get(&cmi::code, PORT, &result); },
     [] { config_get_pdh_params(&kv::port, PORT); }},
    {ATTRIBUTE, "pdh_frame_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_frame_set(VEXO_PDH_FRAME_MODE_2, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_frame_get", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_frame_get(&cmi::frame, PORT, &result); },
     [] { config_get_pdh_params(&kv::port, PORT); }},
    {ATTRIBUTE, "pdh_cable_len_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_cable_len_set(100, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_cable_len_set", "0", 0, [] { vexo_cmi_pdh_cable_len_set(0, PORT, &result); },
     [] {}},
    {ATTRIBUTE, "pdh_cable_len_get", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_cable_len_get(&cmi::value, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_sync_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_sync_set(&cmi::SYNC_IN, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_sync_get", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_sync_get(&cmi::sync, &cmi::value, PORT, &result); },
     [] { config_get_pdh_params(&kv::port, PORT); }},
    {ATTRIBUTE, "pdh_niu_set", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_niu_set(VEXO_PDH_NIU_MODE_2, PORT, &result); }, changeBarePort},
    {ATTRIBUTE, "pdh_niu_get", "", sizeof(pdhParams),
     [] { vexo_cmi_pdh_niu_get(&cmi::niu, PORT, &result); },
     [] { config_get_pdh_params(&kv::port, PORT); }},
    {ATTRIBUTE, "pdh_lpbk_set", "", sizeof(pdhLpbk),
     [] { vexo_cmi_pdh_lpbk_set(VEXO_LPBK_4, PORT, &result); },
     [] {
         config_get_pdh_lpbk(&kv::loopback, PORT);
         config_set_pdh_lpbk(&kv::loopback, PORT);
     }},
    {ATTRIBUTE, "pdh_lpbk_get", "", sizeof(pdhLpbk),
     [] { vexo_cmi_pdh_lpbk_get(&cmi::loopback, PORT, &result); },
     [] { config_get_pdh_lpbk(&kv::loopback, PORT); }},
    {ATTRIBUTE, "pdh_alarms_set", "", 0, [] { vexo_cmi_pdh_alarms_set(3, &result); },
     [] { alarm_set_status_bits(OBJ_PDH, 0xFFFF, 3); }},
    {ATTRIBUTE, "pdh_alarms_get", "", sizeof(uint32_t),
     [] { vexo_cmi_pdh_alarms_get(&cmi::value, PORT, &result); },
     [] { alarm_get_active_bits(OBJ_PDH, PORT, &kv::value); }},
    {OTHER, "pdh_pm_get", "arrangement 0", sizeof(pdhPmStat),
     [] { vexo_cmi_pdh_pm_get(&cmi::pdhPm, VEXO_PM_TYPE_1, PORT, &result); },
     [] { pmom_pdh_pm_stat_get(PORT, pmInterval{1}, 0, &kv::portPm); }},
    {OTHER, "pdh_pm_get", "arrangement 1", sizeof(pdhPmStat),
     [] { vexo_cmi_pdh_pm_get(&cmi::pdhPm, VEXO_PM_TYPE_1, PORT_1, &result); },
     [] { pmom_pdh_pm_stat_get(PORT_1, pmInterval{1}, 0, &kv::portPm); }},
    {OTHER, "pdh_pm_clear", "", 0, [] { vexo_cmi_pdh_pm_clear(PORT, &result); },
     [] { clearBare(pmom_pdh_pm_stat_clear, PORT); }},

    // pwe
    {Kind::pweParamsSet, "pwe_params_set", "modify: type 1, untagged, PSN type 2", sizeof(pwConfig),
     [] { vexo_cmi_pwe_params_set(&cmi::PLAIN, PW_PLAIN, &result); },
     [] { changeBarePw(PW_PLAIN); }},
    {Kind::pweParamsSet, "pwe_params_set", "modify: type 2, double tag, PSN type 1, RTP",
     sizeof(pwConfig), [] { vexo_cmi_pwe_params_set(&cmi::RICH, PW_RICH, &result); },
     [] { changeBarePw(PW_RICH); }},
    {Kind::pweParamsSet, "pwe_params_set", "create: type 2, double tag, PSN type 1, RTP",
     sizeof(pwConfig) + sizeof(pwDefaultsKey),
     [] { vexo_cmi_pwe_params_set(&cmi::RICH_CREATED, PW_CREATED, &result); },
     [] { createBarePw(PW_CREATED); }},
    {Kind::pweParamsSet, "pwe_params_set", "modify: type 3, double tag, PSN type 1",
     sizeof(pwConfig), [] { vexo_cmi_pwe_params_set(&cmi::ATM, PW_ATM, &result); },
     [] { changeBarePw(PW_ATM); }},
    {Kind::pweParamsSet, "pwe_params_set", "create: type 3, double tag, PSN type 1",
     sizeof(pwConfig) + sizeof(pwDefaultsKey),
     [] { vexo_cmi_pwe_params_set(&cmi::ATM_CREATED, PW_CREATED, &result); },
     [] { createBarePw(PW_CREATED); }},
    {Kind::pweParamsSet, "pwe_params_set", "modify: type 4, one tag, PSN type 3", sizeof(pwConfig),
     [] { vexo_cmi_pwe_params_set(&cmi::ATM_UDP, PW_ATM_UDP, &result); },
     [] { changeBarePw(PW_ATM_UDP); }},
    {Kind::pweParamsSet, "pwe_params_set", "delete", sizeof(pwConfig),
     [] { vexo_cmi_pwe_params_set(&cmi::DELETED, PW_PLAIN, &result); },
     [] { config_del_pw(PW_PLAIN); }},
    {Kind::pweParamsGet, "pwe_params_get", "type 1, untagged, PSN type 2",
     sizeof(pwConfig) + sizeof(operState),
     [] { vexo_cmi_pwe_params_get(&cmi::pwe, PW_PLAIN, &result); }, [] { readBarePw(PW_PLAIN); }},
    {Kind::pweParamsGet, "pwe_params_get", "type 2, double tag, PSN type 1, RTP",
     sizeof(pwConfig) + sizeof(operState),
     [] { vexo_cmi_pwe_params_get(&cmi::pwe, PW_RICH, &result); }, [] { readBarePw(PW_RICH); }},
    {Kind::pweParamsGet, "pwe_params_get", "type 3, double tag, PSN type 1",
     sizeof(pwConfig) + sizeof(operState),
     [] { vexo_cmi_pwe_params_get(&cmi::pwe, PW_ATM, &result); }, [] { readBarePw(PW_ATM); }},
    {Kind::pweParamsGet, "pwe_params_get", "type 4, one tag, PSN type 3",
     sizeof(pwConfig) + sizeof(operState),
     [] { vexo_cmi_pwe_params_get(&cmi::pwe, PW_ATM_UDP, &result); },
     [] { readBarePw(PW_ATM_UDP); }},
    {Kind::pweParamsGet, "pwe_params_get", "not provisioned", sizeof(pwConfig) + sizeof(operState),
     [] {
         bareFailCode = KV_NOT_PROVISIONED;
         bareFailIn = 1;
         vexo_cmi_pwe_params_get(&cmi::pwe, PW_PLAIN, &result);
     },
     [] {
         bareFailCode = KV_NOT_PROVISIONED;
         bareFailIn = 1;
         config_get_pw(&kv::pw, PW_PLAIN);
     }},
    {ATTRIBUTE, "pwe_admin_set", "", 0,
     [] { vexo_cmi_pwe_admin_set(VEXO_ADMIN_STATUS_1, PW_PLAIN, &result); },
     [] { config_set_pw_admin(adminStatus{2}, PW_PLAIN); }},
    {ATTRIBUTE, "pwe_admin_get", "", sizeof(adminStatus),
     [] { vexo_cmi_pwe_admin_get(&cmi::admin, PW_PLAIN, &result); },
     [] { config_get_pw_admin(&kv::admin, PW_PLAIN); }},
    {ATTRIBUTE, "pwe_dst_mac_set", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_dst_mac_set(cmi::MAC_IN, PW_PLAIN, &result); },
     [] { changeBarePw(PW_PLAIN); }},
    {ATTRIBUTE, "pwe_dst_mac_get", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_dst_mac_get(cmi::mac, PW_PLAIN, &result); },
     [] { config_get_pw(&kv::pw, PW_PLAIN); }},
    {PWE_PART, "pwe_vlan_set", "untagged", sizeof(pwConfig),
     [] { vexo_cmi_pwe_vlan_set(&cmi::UNTAGGED, PW_PLAIN, &result); },
     [] { changeBarePw(PW_PLAIN); }},
    {PWE_PART, "pwe_vlan_set", "double tag", sizeof(pwConfig),
     [] { vexo_cmi_pwe_vlan_set(&cmi::DOUBLE_TAG, PW_RICH, &result); },
     [] { changeBarePw(PW_RICH); }},
    {PWE_PART, "pwe_vlan_get", "untagged", sizeof(pwConfig),
     [] { vexo_cmi_pwe_vlan_get(&cmi::vlan, PW_PLAIN, &result); },
     [] { config_get_pw(&kv::pw, PW_PLAIN); }},
    {PWE_PART, "pwe_vlan_get", "double tag", sizeof(pwConfig),
     [] { vexo_cmi_pwe_vlan_get(&cmi::vlan, PW_RICH, &result); },
     [] { config_get_pw(&kv::pw, PW_RICH); }},
    {PWE_PART, "pwe_psn_set", "type 1", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_set(&cmi::PSN_1, PW_RICH, &result); }, [] { changeBarePw(PW_RICH); }},
    {PWE_PART, "pwe_psn_set", "type 2", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_set(&cmi::PSN_2, PW_PLAIN, &result); }, [] { changeBarePw(PW_PLAIN); }},
    {PWE_PART, "pwe_psn_set", "type 3", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_set(&cmi::PSN_3, PW_ATM_UDP, &result); },
     [] { changeBarePw(PW_ATM_UDP); }},
    {PWE_PART, "pwe_psn_get", "type 1", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_get(&cmi::psn, PW_RICH, &result); },
     [] { config_get_pw(&kv::pw, PW_RICH); }},
    {PWE_PART, "pwe_psn_get", "type 2", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_get(&cmi::psn, PW_PLAIN, &result); },
     [] { config_get_pw(&kv::pw, PW_PLAIN); }},
    {PWE_PART, "pwe_psn_get", "type 3", sizeof(pwConfig),
     [] { vexo_cmi_pwe_psn_get(&cmi::psn, PW_ATM_UDP, &result); },
     [] { config_get_pw(&kv::pw, PW_ATM_UDP); }},
    {ATTRIBUTE, "pwe_pdv_set", "", 0, [] { vexo_cmi_pwe_pdv_set(2000, PW_PLAIN, &result); },
     [] { config_set_pw_jitter_size(2000, PW_PLAIN); }},
    {ATTRIBUTE, "pwe_pdv_get", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_pdv_get(&cmi::value, PW_RICH, &result); },
     [] { config_get_pw(&kv::pw, PW_RICH); }},
    {ATTRIBUTE, "pwe_payload_set", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_payload_set(256, PW_RICH, &result); }, [] { changeBarePw(PW_RICH); }},
    {ATTRIBUTE, "pwe_payload_get", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_payload_get(&cmi::value, PW_RICH, &result); },
     [] { config_get_pw(&kv::pw, PW_RICH); }},
    {PWE_PART, "pwe_rtp_set", "off", sizeof(pwConfig),
     [] { vexo_cmi_pwe_rtp_set(&cmi::RTP_OFF, PW_PLAIN, &result); },
     [] { changeBarePw(PW_PLAIN); }},
    {PWE_PART, "pwe_rtp_set", "on", sizeof(pwConfig),
     [] { vexo_cmi_pwe_rtp_set(&cmi::RTP_ON, PW_RICH, &result); }, [] { changeBarePw(PW_RICH); }},
    {PWE_PART, "pwe_rtp_get", "off", sizeof(pwConfig),
     [] { vexo_cmi_pwe_rtp_get(&cmi::rtp, PW_PLAIN, &result); },
     [] { config_get_pw(&kv::pw, PW_PLAIN); }},
    {PWE_PART, "pwe_rtp_get", "on", sizeof(pwConfig),
     [] { vexo_cmi_pwe_rtp_get(&cmi::rtp, PW_RICH, &result); },
     [] { config_get_pw(&kv::pw, PW_RICH); }},
    {ATTRIBUTE, "pwe_atm_force_ais_set", "", 0,
     [] { vexo_cmi_pwe_atm_force_ais_set(1, PW_ATM, &result); },
     [] { config_set_pw_ais(1, PW_ATM); }},
    {ATTRIBUTE, "pwe_atm_force_ais_get", "", sizeof(pwConfig),
     [] { vexo_cmi_pwe_atm_force_ais_get(&cmi::value, PW_ATM, &result); },
     [] { config_get_pw(&kv::pw, PW_ATM); }},
    {OTHER, "pwe_atmop_xc_set", "", sizeof(pwAtmXc),
     [] { vexo_cmi_pwe_atmop_xc_set(&cmi::XC, PW_ATM, &result); },
     [] { config_add_pw_atm_xc(&kv::xc, PW_ATM); }},
    {OTHER, "pwe_atmop_xc_delete", "", sizeof(pwAtmXc),
     [] { vexo_cmi_pwe_atmop_xc_delete(&cmi::XC, PW_ATM, &result); },
     [] { config_del_pw_atm_xc(&kv::xc, PW_ATM); }},
    {Kind::crossConnects, "pwe_atmop_xc_get", "none", sizeof(pwConfig),
     [] { vexo_cmi_pwe_atmop_xc_get(cmi::xcs, &cmi::value, PW_ATM_UDP, &result); },
     [] { config_get_pw(&kv::pw, PW_ATM_UDP); }},
    {Kind::crossConnects, "pwe_atmop_xc_get", "20", sizeof(pwConfig),
     [] { vexo_cmi_pwe_atmop_xc_get(cmi::xcs, &cmi::value, PW_ATM, &result); },
     [] { config_get_pw(&kv::pw, PW_ATM); }},
    {ATTRIBUTE, "pwe_alarms_set", "", 0, [] { vexo_cmi_pwe_alarms_set(3, &result); },
     [] { alarm_set_status_bits(OBJ_PWE, 0x1F, 3); }},
    {ATTRIBUTE, "pwe_alarms_get", "", sizeof(uint32_t),
     [] { vexo_cmi_pwe_alarms_get(&cmi::value, PW_PLAIN, &result); },
     [] { alarm_get_active_bits(OBJ_PWE, PW_PLAIN, &kv::value); }},
    {OTHER, "pwe_pm_get", "generic", sizeof(pwConfig) + sizeof(pwPmStats),
     [] { vexo_cmi_pwe_pm_get(&cmi::pwePm, VEXO_PM_TYPE_1, PW_PLAIN, &result); },
     [] {
         pmom_pw_pm_stat_get(PW_PLAIN, pmInterval{1}, 0, &kv::pwPm);
         config_get_pw(&kv::pw, PW_PLAIN);
     }},
    {OTHER, "pwe_pm_get", "ATM", sizeof(pwConfig) + sizeof(pwPmStats),
     [] { vexo_cmi_pwe_pm_get(&cmi::pwePm, VEXO_PM_TYPE_1, PW_ATM, &result); },
     [] {
         pmom_pw_pm_stat_get(PW_ATM, pmInterval{1}, 0, &kv::pwPm);
         config_get_pw(&kv::pw, PW_ATM);
     }},
    {OTHER, "pwe_pm_clear", "", 0, [] { vexo_cmi_pwe_pm_clear(PW_PLAIN, &result); },
     [] { clearBare(pmom_pw_pm_stat_clear, PW_PLAIN); }},
    {OTHER, "pwe_om_get", "TDM", sizeof(pwConfig) + sizeof(pwOmStats),
     [] { vexo_cmi_pwe_om_get(&cmi::pweOm, 0, PW_PLAIN, &result); },
     [] {
         config_get_pw(&kv::pw, PW_PLAIN);
         pmom_pw_om_stat_get(PW_PLAIN, &kv::pwOm);
     }},
    {OTHER, "pwe_om_get", "ATM, clear", sizeof(pwConfig) + sizeof(pwOmStats),
     [] { vexo_cmi_pwe_om_get(&cmi::pweOm, 1, PW_ATM, &result); },
     [] {
         config_get_pw(&kv::pw, PW_ATM);
         pmom_pw_om_stat_get(PW_ATM, &kv::pwOm);
         pmom_pw_om_stat_clear(PW_ATM);
     }},

    // ima
    {OTHER, "ima_set", "modify", sizeof(imaParams),
     [] { vexo_cmi_ima_set(&cmi::GROUP_MODIFY, GROUP, &result); },
     [] {
         config_get_ima_params(&kv::ima, GROUP);
         config_set_ima_params(&kv::ima, GROUP);
     }},
    {OTHER, "ima_set", "create", sizeof(imaParams),
     [] { vexo_cmi_ima_set(&cmi::GROUP_CREATE, GROUP_CREATED, &result); },
     [] { config_add_ima(&kv::ima, GROUP_CREATED); }},
    {OTHER, "ima_set", "delete", sizeof(imaParams),
     [] { vexo_cmi_ima_set(&cmi::GROUP_DELETE, GROUP_EMPTY, &result); },
     [] { config_del_ima(GROUP_EMPTY); }},
    {OTHER, "ima_get", "", sizeof(imaParams), [] { vexo_cmi_ima_get(&cmi::ima, GROUP, &result); },
     [] { config_get_ima_params(&kv::ima, GROUP); }},
    {OTHER, "ima_lnk_add", "", sizeof(imaParams), [] { vexo_cmi_ima_lnk_add(1, GROUP, &result); },
     [] {
         config_get_ima_params(&kv::ima, GROUP);
         config_add_ima_link(1, GROUP);
     }},
    {OTHER, "ima_lnk_delete", "", sizeof(imaParams),
     [] { vexo_cmi_ima_lnk_delete(1, GROUP, &result); },
     [] {
         config_get_ima_params(&kv::ima, GROUP);
         config_del_ima_link(1, GROUP);
     }},
    {OTHER, "ima_lnk_get", "8 links", sizeof(imaParams),
     [] { vexo_cmi_ima_lnk_get(cmi::linkIds, &cmi::value, GROUP, &result); },
     [] { config_get_ima_params(&kv::ima, GROUP); }},
    {OTHER, "ima_group_state_get", "", sizeof(imaParams),
     [] { vexo_cmi_ima_group_state_get(&cmi::groupState, GROUP, &result); },
     [] { config_get_ima_params(&kv::ima, GROUP); }},
    {OTHER, "ima_lnk_state_get", "8 links", sizeof(imaParams),
     [] { vexo_cmi_ima_lnk_state_get(cmi::linkStates, &cmi::value, GROUP, &result); },
     [] { config_get_ima_params(&kv::ima, GROUP); }},
    {OTHER, "ima_pm_get", "no links",
     sizeof(imaParams) + sizeof(imaGroupPmStat) + sizeof(imaLinkPmStat),
     [] { vexo_cmi_ima_pm_get(&cmi::imaPm, VEXO_PM_TYPE_1, GROUP_EMPTY, &result); },
     [] { readBareGroupPm(GROUP_EMPTY); }},
    {OTHER, "ima_pm_get", "8 links",
     sizeof(imaParams) + sizeof(imaGroupPmStat) + sizeof(imaLinkPmStat),
     [] { vexo_cmi_ima_pm_get(&cmi::imaPm, VEXO_PM_TYPE_1, GROUP, &result); },
     [] { readBareGroupPm(GROUP); }},
    {OTHER, "ima_pm_clear", "8 links", sizeof(imaParams),
     [] { vexo_cmi_ima_pm_clear(GROUP, &result); }, [] { clearBareGroup(GROUP); }},
    {OTHER, "ima_pm_clear", "8 groups of 8 links", sizeof(imaParams),
     [] { vexo_cmi_ima_pm_clear(0, &result); },
     [] {
         for (uint32_t group = 1; group <= 8; ++group)
             clearBareGroup(group);
     }},
    {OTHER, "ima_om_get", "8 links",
     sizeof(imaParams) + sizeof(imaGroupOmStat) + sizeof(imaLinkOmStat),
     [] { vexo_cmi_ima_om_get(&cmi::imaOm, 0, GROUP, &result); }, [] { readBareGroupOm(false); }},
    {OTHER, "ima_om_get", "8 links, clear",
     sizeof(imaParams) + sizeof(imaGroupOmStat) + sizeof(imaLinkOmStat),
     [] { vexo_cmi_ima_om_get(&cmi::imaOm, 1, GROUP, &result); }, [] { readBareGroupOm(true); }},
    {ATTRIBUTE, "ima_alarms_set", "", 0, [] { vexo_cmi_ima_alarms_set(3, &result); },
     [] {
         alarm_set_status_bits(OBJ_IMA_GROUP, 0x3FF, 3);
         alarm_set_status_bits(OBJ_IMA_LINK, 0x7F0000, 3);
     }},
    {ATTRIBUTE, "ima_alarms_get", "group", sizeof(uint32_t),
     [] { vexo_cmi_ima_alarms_get(&cmi::value, VEXO_IMA_TYPE_GROUP, GROUP, &result); },
     [] { alarm_get_active_bits(OBJ_IMA_GROUP, GROUP, &kv::value); }},
    {ATTRIBUTE, "ima_alarms_get", "link", sizeof(uint32_t),
     [] { vexo_cmi_ima_alarms_get(&cmi::value, VEXO_IMA_TYPE_LINK, 1, &result); },
     [] { alarm_get_active_bits(OBJ_IMA_LINK, 1, &kv::value); }},

    // misc
    {OTHER, "misc_sys_info_get", "", sizeof(sysLinkStatus) + sizeof(sysOmStat),
     [] { vexo_cmi_misc_sys_info_get(&cmi::sysInfo, 0, &result); },
     [] {
         config_get_sys_link_status(&kv::link);
         pmom_sys_om_stat_get(&kv::sysOm, 0);
     }},
    {OTHER, "misc_upgrade_init", "", sizeof(upgradeRequest) + sizeof(peerServer),
     [] { vexo_cmi_misc_upgrade_init(&cmi::UPGRADE_IN, &result); },
     [] {
         config_get_peer_server_params(&kv::server);
         upgrade_load(&kv::upgrade);
     }},
    {OTHER, "misc_upgrade_info_get", "", sizeof(upgradeStatus),
     [] { vexo_cmi_misc_upgrade_info_get(&cmi::upgrade, &result); },
     [] { upgrade_status_get(2, &kv::upgradeState); }},
    {OTHER, "misc_dbg_init", "", sizeof(debugInfo),
     [] { vexo_cmi_misc_dbg_init("a debug text of some length", &result); },
     [] { config_set_debug_info_params(&kv::debug); }},
    {OTHER, "misc_dbg_info_get", "", sizeof(debugInfo),
     [] { vexo_cmi_misc_dbg_info_get(&cmi::debug, &result); },
     [] { config_get_debug_info_params(&kv::debug); }},
    {OTHER, "misc_dbg_mode_set", "", 0, [] { vexo_cmi_misc_dbg_mode_set(3, &result); },
     [] { kv_log(5, 29, "", "", 0, "mode mask=%X", 3U); }},
    {OTHER, "misc_log_reset", "", 0, [] { vexo_cmi_misc_log_reset(&result); },
     [] {
         kv_log_clear();
         alarm_raise_alarm(OBJ_SYSTEM, 1, EV_LOG_FULL_ALM, 0);
     }},
    {ATTRIBUTE, "misc_sys_lbk_set", "", sizeof(sysLpbk),
     [] { vexo_cmi_misc_sys_lbk_set(VEXO_LPBK_1, &result); },
     [] { config_set_sys_lpbk(&kv::sysLoopback); }},
    {ATTRIBUTE, "misc_sys_lbk_get", "", sizeof(sysLpbk),
     [] { vexo_cmi_misc_sys_lbk_get(&cmi::loopback, &result); },
     [] { config_get_sys_lpbk(&kv::sysLoopback); }},
    {OTHER, "misc_tpgm_init", "", sizeof(tpgmSetup),
     [] { vexo_cmi_misc_tpgm_init(1, 2, 3, &result); }, [] { config_init_tpgm(&kv::tpgmIn); }},
    {OTHER, "misc_tpgm_stat_get", "", sizeof(tpgmStatus),
     [] { vexo_cmi_misc_tpgm_stat_get(&cmi::tpgm, 0, &result); },
     [] {
         config_get_tpgm_status(&kv::tpgm);
         config_clear_tpgm_status(0);
     }},
};

void refuseHostClock()
{
    Dl_info info{};
    if (dladdr(dlsym(RTLD_DEFAULT, "settimeofday"), &info) == 0 ||
        !strstr(info.dli_fname, "libkv_common.so")) {
        fprintf(stderr, "settimeofday() is not the bare platform's\n");
        exit(1);
    }
}

void provision(const vexoPweParams &params, uint32_t pwId)
{
    vexo_cmi_pwe_params_set(&params, pwId, &result);
    if (result.rc == VEXO_RC_OK)
        return;
    fprintf(stderr, "pseudowire %u: %s\n", pwId, result.message);
    exit(1);
}

} // namespace

const char *nameOf(Kind kind)
{
    static constexpr const char *NAMES[] = {"attribute",      "pwe part",       "pdh params",
                                            "pwe params set", "pwe params get", "versions",
                                            "inventory",      "cross-connects", "other"};
    return NAMES[static_cast<int>(kind)];
}

std::span<const Operation> operations()
{
    return OPERATIONS;
}

void setUp()
{
    refuseHostClock();
    for (uint32_t first = 0; first < PW_PROV_MAX; first += 4) {
        provision(cmi::PLAIN, first + PW_PLAIN);
        provision(cmi::RICH, first + PW_RICH);
        provision(cmi::ATM, first + PW_ATM);
        provision(cmi::ATM_UDP, first + PW_ATM_UDP);
    }
    config_get_pw(&kv::pw, PW_ATM);
    kv::pw.atmXcCount = PW_ATM_XC_MAX;
    for (pwAtmXc &xc : kv::pw.atmXc)
        xc = {1, 2, 3, 4, pweAtmXcType{2}};
    config_set_pw(&kv::pw, PW_ATM);
    changeBarePort();
    vexo_cmi_pdh_params_set(&cmi::PDH_IN, PORT, &result);
    kv::ima.linkCount = IMA_LINK_MAX;
    for (uint32_t group = 1; group <= 8; ++group) {
        for (uint32_t i = 0; i < IMA_LINK_MAX; ++i)
            kv::ima.links[i].linkId = (group - 1) * IMA_LINK_MAX + i + 1;
        config_add_ima(&kv::ima, group);
    }
}

void bareReport(vexoPmCallback callback)
{
    constexpr pmInterval INTERVAL{1};
    static vexoPmNotification record;
    const uint32_t ports = GetObjectCount(OBJ_PDH);
    for (uint32_t port = 1; port <= ports; ++port)
        pmom_pdh_pm_stat_get(port, INTERVAL, 1, &kv::portPm);
    callback(&record);
    static pwProvList list;
    config_get_pw_all_prov(&list);
    for (uint32_t i = 0; i < list.count; ++i) {
        config_get_pw(&kv::pw, list.pwIds[i]);
        pmom_pw_pm_stat_get(list.pwIds[i], INTERVAL, 1, &kv::pwPm);
        callback(&record);
    }
    const uint32_t groups = GetObjectCount(OBJ_IMA_GROUP);
    for (uint32_t group = 1; group <= groups; ++group) {
        config_get_ima_params(&kv::ima, group);
        pmom_ima_group_pm_stat_get(group, INTERVAL, 1, &kv::groupPm);
        for (uint32_t i = 0; i < kv::ima.linkCount; ++i)
            pmom_ima_link_pm_stat_get(kv::ima.links[i].linkId, INTERVAL, 1, &kv::linkPm);
        callback(&record);
    }
}

void bareAlarm(const alarmEvent *event, vexoAlarmCallback callback)
{
    static vexoAlarmNotification alarm;
    kv_log(7, 29, "", "", 0, "got alarm: type=%d, obj=%d, status=0x%X, delta=0x%X", 3,
           static_cast<int>(event->objId), event->status, event->delta);
    callback(&alarm);
}

} // namespace bench
