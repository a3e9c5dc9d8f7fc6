#include "row.h"

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
    PW_T1 = 5,      // type 1, double tag, PSN type 1, no RTP
    PW_CREATED = 0, // what is created; not in the list of those provisioned
};

enum : uint32_t { GROUP = 1, GROUP_CREATED = 0, GROUP_EMPTY = 9 };

constexpr uint32_t PORT = 1;
constexpr uint32_t PORT_1 = 2; // with the line counters in arrangement 1

// Inputs of the operations.
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
constexpr vexoPweParams T1 =
    params(VEXO_PWE_TYPE_TDM_1, VEXO_PWE_ACTION_MODIFY, DOUBLE_TAG, PSN_1, {.t1 = SERVICE_1});
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

constexpr char TEXT[] = "a debug text of some length";

timeval time{2000000, 0};

void clearBare(kvRc (*clear)(uint32_t, pmInterval, uint32_t), uint32_t object)
{
    clear(object, pmInterval{1}, 0);
    clear(object, pmInterval{2}, 0);
    clear(object, pmInterval{3}, 0);
}

void readBareGroupPm(uint32_t group)
{
    config_get_ima_params(place<imaParams>, group);
    pmom_ima_group_pm_stat_get(group, pmInterval{1}, 0, place<imaGroupPmStat>);
    for (uint32_t i = 0; i < place<imaParams>->linkCount; ++i)
        pmom_ima_link_pm_stat_get(place<imaParams>->links[i].linkId, pmInterval{1}, 0,
                                  place<imaLinkPmStat>);
}

void clearBareGroup(uint32_t group)
{
    config_get_ima_params(place<imaParams>, group);
    clearBare(pmom_ima_group_pm_stat_clear, group);
    for (uint32_t i = 0; i < place<imaParams>->linkCount; ++i)
        clearBare(pmom_ima_link_pm_stat_clear, place<imaParams>->links[i].linkId);
}

void readBareGroupOm(bool clear)
{
    config_get_ima_params(place<imaParams>, GROUP);
    pmom_ima_group_om_stat_get(GROUP, place<imaGroupOmStat>);
    if (clear)
        pmom_ima_group_om_stat_clear(GROUP);
    for (uint32_t i = 0; i < place<imaParams>->linkCount; ++i) {
        pmom_ima_link_om_stat_get(place<imaParams>->links[i].linkId, place<imaLinkOmStat>);
        if (clear)
            pmom_ima_link_om_stat_clear(place<imaParams>->links[i].linkId);
    }
}

constexpr Bare CHANGE_PORT =
    inTurn<Call<config_get_pdh_params, PORT>, Call<config_set_pdh_params, PORT>>;
template <uint32_t pwId>
constexpr Bare CHANGE_PW = inTurn<Call<config_get_pw, pwId>, Call<config_set_pw, pwId>>;
template <uint32_t pwId>
constexpr Bare CREATE_PW = inTurn<Call<config_get_pw_defaults, pwId>, Call<config_add_pw, pwId>>;
template <uint32_t pwId>
constexpr Bare READ_PW = inTurn<Call<config_get_pw, pwId>, Call<config_get_pw_oper_state, pwId>>;
template <uint32_t group>
constexpr Bare READ_GROUP_PM{[] { readBareGroupPm(group); },
                             sizeof(imaParams) + sizeof(imaGroupPmStat) + sizeof(imaLinkPmStat)};
template <bool clear>
constexpr Bare READ_GROUP_OM{[] { readBareGroupOm(clear); },
                             sizeof(imaParams) + sizeof(imaGroupOmStat) + sizeof(imaLinkOmStat)};
template <uint32_t group>
constexpr Bare CLEAR_GROUP{[] { clearBareGroup(group); }, sizeof(imaParams)};
template <auto function, uint32_t object>
constexpr Bare CLEAR{[] { clearBare(function, object); }, 0};

using enum Kind;

constexpr Operation OPERATIONS[] = {
    // sys
    {attribute,
     LIBRARY(sys_tod_set, 1, 2),
     {[] { settimeofday(&time, nullptr); }, sizeof(timeval)}},
    {attribute, LIBRARY(sys_reset), by<forker_box_shutdown>},
    {attribute, LIBRARY(sys_tdm_mode_set, VEXO_TDM_MODE_2),
     by<config_set_system_mode, eqptMode{2}>},
    {attribute, LIBRARY(sys_tdm_mode_get), by<config_get_system_mode>},
    {attribute, LIBRARY(sys_src_mac_set, MAC_IN), by<config_set_pwe_src_mac_addr>},
    {attribute, LIBRARY(sys_src_mac_get), by<config_get_pwe_if>},
    {attribute, LIBRARY(sys_tpid_set, 0x8100), by<config_system_tpid_set, 0x8100>},
    {attribute, LIBRARY(sys_tpid_get), by<config_get_system_params>},
    {attribute, LIBRARY(sys_src_ip_set, 0x0A000001), by<config_set_pwe_src_ip_addr>},
    {attribute, LIBRARY(sys_src_ip_get), by<config_get_pwe_if>},
    {attribute, LIBRARY(sys_lops_set, 1, 2), by<config_set_pwe_lops_threshold>},
    {attribute, LIBRARY(sys_lops_get), by<config_get_pwe_if>},
    {attribute, LIBRARY(sys_rpt_mode_set, VEXO_ALARM_MODE_1, 5),
     by<alarm_set_notification, alarmMode{2}, 5>},
    {attribute, LIBRARY(sys_rpt_mode_get), by<alarm_get_notification>},
    {attribute, LIBRARY(sys_clk_out_set, &FIRST, &SECOND), by<config_set_clk_out>},
    {attribute, LIBRARY(sys_clk_out_get), by<config_get_system_params>},
    {attribute, LIBRARY(sys_net_type_set, VEXO_NET_QUALITY_2),
     by<config_set_psn_net_type, psnNetType{2}>},
    {attribute, LIBRARY(sys_net_type_get), by<config_get_system_params>},
    {attribute, LIBRARY(sys_temp_set, 70, 80), by<config_set_temperature_thr>},
    {attribute, LIBRARY(sys_temp_get),
     inTurn<Call<config_get_temperature>, Call<config_get_system_params>>},
    {attribute, LIBRARY(sys_alarm_get), by<alarm_get_active_bits, OBJ_SYSTEM, 1>},
    {attribute, LIBRARY(sys_alarm_set, 3), by<alarm_set_status_bits, OBJ_SYSTEM, 0x7FFF, 3>},
    {inventory, LIBRARY(sys_inventory_get), by<config_get_system_params>},
    {versions, LIBRARY(sys_status_get),
     inTurn<Call<config_get_sys_status>, Call<gorvGetVersion, 128>>},
    {attribute, LIBRARY(sys_oper_state_get), by<config_get_system_params>},
    {versions, LIBRARY(sys_version_get),
     inTurn<Call<config_get_sys_version>, Call<gorvGetVersion, 128>>},
    {other,
     LIBRARY(sys_kato_send, 1000000, 2),
     {[] { gettimeofday(&time, nullptr); }, sizeof(timeval)},
     "not due"},
    {other,
     "sys_kato_send",
     [] {
         bareClockAdvance(1000);
         vexo_cmi_sys_kato_send(1000000, 2, &result);
     },
     {[] {
          bareClockAdvance(1000);
          gettimeofday(&time, nullptr);
          settimeofday(&time, nullptr);
          kv_log(6, 29, "", "", 0, "Kato time is updated");
          gettimeofday(&time, nullptr);
      },
      2 * sizeof(timeval)},
     "due"},

    // pdh
    {pdhParams, LIBRARY(pdh_params_set, &PDH_IN, PORT), CHANGE_PORT},
    {pdhParams, LIBRARY(pdh_params_get, PORT),
     inTurn<Call<config_get_pdh_params, PORT>, Call<config_get_pdh_oper_state, PORT>,
            Call<config_get_pdh_lpbk, PORT>>},
    {attribute, LIBRARY(pdh_admin_set, VEXO_ADMIN_STATUS_1, PORT),
     by<config_set_pdh_admin, adminStatus{2}, PORT>},
    {attribute, LIBRARY(pdh_admin_get, PORT), by<config_get_pdh_admin, PORT>},
    {attribute, LIBRARY(pdh_code_set, VEXO_PDH_CODE_2, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_code_get, PORT), by<config_get_pdh_params, PORT>},
    {attribute, LIBRARY(pdh_frame_set, VEXO_PDH_FRAME_MODE_2, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_frame_get, PORT), by<config_get_pdh_params, PORT>},
    {attribute, LIBRARY(pdh_cable_len_set, 100, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_cable_len_set, 0, PORT), inTurn<>, "0"},
    {attribute, LIBRARY(pdh_cable_len_get, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_sync_set, &SYNC_IN, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_sync_get, PORT), by<config_get_pdh_params, PORT>},
    {attribute, LIBRARY(pdh_niu_set, VEXO_PDH_NIU_MODE_2, PORT), CHANGE_PORT},
    {attribute, LIBRARY(pdh_niu_get, PORT), by<config_get_pdh_params, PORT>},
    {attribute, LIBRARY(pdh_lpbk_set, VEXO_LPBK_4, PORT),
     inTurn<Call<config_get_pdh_lpbk, PORT>, Call<config_set_pdh_lpbk, PORT>>},
    {attribute, LIBRARY(pdh_lpbk_get, PORT), by<config_get_pdh_lpbk, PORT>},
    {attribute, LIBRARY(pdh_alarms_set, 3), by<alarm_set_status_bits, OBJ_PDH, 0xFFFF, 3>},
    {attribute, LIBRARY(pdh_alarms_get, PORT), by<alarm_get_active_bits, OBJ_PDH, PORT>},
    {other, LIBRARY(pdh_pm_get, VEXO_PM_TYPE_1, PORT),
     by<pmom_pdh_pm_stat_get, PORT, pmInterval{1}, 0>, "arrangement 0"},
    {other, LIBRARY(pdh_pm_get, VEXO_PM_TYPE_1, PORT_1),
     by<pmom_pdh_pm_stat_get, PORT_1, pmInterval{1}, 0>, "arrangement 1"},
    {other, LIBRARY(pdh_pm_clear, PORT), CLEAR<pmom_pdh_pm_stat_clear, PORT>},

    // pwe
    {pweParamsSet, LIBRARY(pwe_params_set, &PLAIN, PW_PLAIN), CHANGE_PW<PW_PLAIN>,
     "modify: type 1, untagged, PSN type 2"},
    {pweParamsSet, LIBRARY(pwe_params_set, &RICH, PW_RICH), CHANGE_PW<PW_RICH>,
     "modify: type 2, double tag, PSN type 1, RTP"},
    {pweParamsSet, LIBRARY(pwe_params_set, &RICH_CREATED, PW_CREATED), CREATE_PW<PW_CREATED>,
     "create: type 2, double tag, PSN type 1, RTP"},
    {pweParamsSet, LIBRARY(pwe_params_set, &ATM, PW_ATM), CHANGE_PW<PW_ATM>,
     "modify: type 3, double tag, PSN type 1"},
    {pweParamsSet, LIBRARY(pwe_params_set, &ATM_CREATED, PW_CREATED), CREATE_PW<PW_CREATED>,
     "create: type 3, double tag, PSN type 1"},
    {pweParamsSet, LIBRARY(pwe_params_set, &ATM_UDP, PW_ATM_UDP), CHANGE_PW<PW_ATM_UDP>,
     "modify: type 4, one tag, PSN type 3"},
    {pweParamsSet, LIBRARY(pwe_params_set, &DELETED, PW_PLAIN), by<config_del_pw, PW_PLAIN>,
     "delete"},
    {pweParamsGet, LIBRARY(pwe_params_get, PW_PLAIN), READ_PW<PW_PLAIN>,
     "type 1, untagged, PSN type 2"},
    {pweParamsGet, LIBRARY(pwe_params_get, PW_T1), READ_PW<PW_T1>,
     "type 1, double tag, PSN type 1"},
    {pweParamsGet, LIBRARY(pwe_params_get, PW_RICH), READ_PW<PW_RICH>,
     "type 2, double tag, PSN type 1, RTP"},
    {pweParamsGet, LIBRARY(pwe_params_get, PW_ATM), READ_PW<PW_ATM>,
     "type 3, double tag, PSN type 1"},
    {pweParamsGet, LIBRARY(pwe_params_get, PW_ATM_UDP), READ_PW<PW_ATM_UDP>,
     "type 4, one tag, PSN type 3"},
    {pweParamsGet,
     "pwe_params_get",
     [] {
         bareFailCode = KV_NOT_PROVISIONED;
         bareFailIn = 1;
         vexo_cmi_pwe_params_get(place<vexoPweParamsInfo>, PW_PLAIN, &result);
     },
     {[] {
          bareFailCode = KV_NOT_PROVISIONED;
          bareFailIn = 1;
          config_get_pw(place<pwConfig>, PW_PLAIN);
      },
      sizeof(pwConfig) + sizeof(operState)},
     "not provisioned"},
    {attribute, LIBRARY(pwe_admin_set, VEXO_ADMIN_STATUS_1, PW_PLAIN),
     by<config_set_pw_admin, adminStatus{2}, PW_PLAIN>},
    {attribute, LIBRARY(pwe_admin_get, PW_PLAIN), by<config_get_pw_admin, PW_PLAIN>},
    {attribute, LIBRARY(pwe_dst_mac_set, MAC_IN, PW_PLAIN), CHANGE_PW<PW_PLAIN>},
    {attribute, LIBRARY(pwe_dst_mac_get, PW_PLAIN), by<config_get_pw, PW_PLAIN>},
    {pwePart, LIBRARY(pwe_vlan_set, &UNTAGGED, PW_PLAIN), CHANGE_PW<PW_PLAIN>, "untagged"},
    {pwePart, LIBRARY(pwe_vlan_set, &TAGGED, PW_ATM_UDP), CHANGE_PW<PW_ATM_UDP>, "one tag"},
    {pwePart, LIBRARY(pwe_vlan_set, &DOUBLE_TAG, PW_RICH), CHANGE_PW<PW_RICH>, "double tag"},
    {pwePart, LIBRARY(pwe_vlan_get, PW_PLAIN), by<config_get_pw, PW_PLAIN>, "untagged"},
    {pwePart, LIBRARY(pwe_vlan_get, PW_RICH), by<config_get_pw, PW_RICH>, "double tag"},
    {pwePart, LIBRARY(pwe_psn_set, &PSN_1, PW_RICH), CHANGE_PW<PW_RICH>, "type 1"},
    {pwePart, LIBRARY(pwe_psn_set, &PSN_2, PW_PLAIN), CHANGE_PW<PW_PLAIN>, "type 2"},
    {pwePart, LIBRARY(pwe_psn_set, &PSN_3, PW_ATM_UDP), CHANGE_PW<PW_ATM_UDP>, "type 3"},
    {pwePart, LIBRARY(pwe_psn_get, PW_RICH), by<config_get_pw, PW_RICH>, "type 1"},
    {pwePart, LIBRARY(pwe_psn_get, PW_PLAIN), by<config_get_pw, PW_PLAIN>, "type 2"},
    {pwePart, LIBRARY(pwe_psn_get, PW_ATM_UDP), by<config_get_pw, PW_ATM_UDP>, "type 3"},
    {attribute, LIBRARY(pwe_pdv_set, 2000, PW_PLAIN),
     by<config_set_pw_jitter_size, 2000, PW_PLAIN>},
    {attribute, LIBRARY(pwe_pdv_get, PW_RICH), by<config_get_pw, PW_RICH>},
    {attribute, LIBRARY(pwe_payload_set, 256, PW_RICH), CHANGE_PW<PW_RICH>},
    {attribute, LIBRARY(pwe_payload_get, PW_RICH), by<config_get_pw, PW_RICH>},
    {pwePart, LIBRARY(pwe_rtp_set, &RTP_OFF, PW_PLAIN), CHANGE_PW<PW_PLAIN>, "off"},
    {pwePart, LIBRARY(pwe_rtp_set, &RTP_ON, PW_RICH), CHANGE_PW<PW_RICH>, "on"},
    {pwePart, LIBRARY(pwe_rtp_get, PW_PLAIN), by<config_get_pw, PW_PLAIN>, "off"},
    {pwePart, LIBRARY(pwe_rtp_get, PW_RICH), by<config_get_pw, PW_RICH>, "on"},
    {attribute, LIBRARY(pwe_atm_force_ais_set, 1, PW_ATM), by<config_set_pw_ais, 1, PW_ATM>},
    {attribute, LIBRARY(pwe_atm_force_ais_get, PW_ATM), by<config_get_pw, PW_ATM>},
    {other, LIBRARY(pwe_atmop_xc_set, &XC, PW_ATM), by<config_add_pw_atm_xc, PW_ATM>},
    {other, LIBRARY(pwe_atmop_xc_delete, &XC, PW_ATM), by<config_del_pw_atm_xc, PW_ATM>},
    {crossConnects, LIBRARY(pwe_atmop_xc_get, PW_ATM_UDP), by<config_get_pw, PW_ATM_UDP>, "none"},
    {crossConnects, LIBRARY(pwe_atmop_xc_get, PW_ATM), by<config_get_pw, PW_ATM>, "20"},
    {attribute, LIBRARY(pwe_alarms_set, 3), by<alarm_set_status_bits, OBJ_PWE, 0x1F, 3>},
    {attribute, LIBRARY(pwe_alarms_get, PW_PLAIN), by<alarm_get_active_bits, OBJ_PWE, PW_PLAIN>},
    {other, LIBRARY(pwe_pm_get, VEXO_PM_TYPE_1, PW_PLAIN),
     inTurn<Call<pmom_pw_pm_stat_get, PW_PLAIN, pmInterval{1}, 0>, Call<config_get_pw, PW_PLAIN>>,
     "generic"},
    {other, LIBRARY(pwe_pm_get, VEXO_PM_TYPE_1, PW_ATM),
     inTurn<Call<pmom_pw_pm_stat_get, PW_ATM, pmInterval{1}, 0>, Call<config_get_pw, PW_ATM>>,
     "ATM"},
    {other, LIBRARY(pwe_pm_clear, PW_PLAIN), CLEAR<pmom_pw_pm_stat_clear, PW_PLAIN>},
    {other, LIBRARY(pwe_om_get, 0, PW_PLAIN),
     inTurn<Call<config_get_pw, PW_PLAIN>, Call<pmom_pw_om_stat_get, PW_PLAIN>>, "TDM"},
    {other, LIBRARY(pwe_om_get, 1, PW_ATM),
     inTurn<Call<config_get_pw, PW_ATM>, Call<pmom_pw_om_stat_get, PW_ATM>,
            Call<pmom_pw_om_stat_clear, PW_ATM>>,
     "ATM, clear"},

    // ima
    {other, LIBRARY(ima_set, &GROUP_MODIFY, GROUP),
     inTurn<Call<config_get_ima_params, GROUP>, Call<config_set_ima_params, GROUP>>, "modify"},
    {other, LIBRARY(ima_set, &GROUP_CREATE, GROUP_CREATED), by<config_add_ima, GROUP_CREATED>,
     "create"},
    {other, LIBRARY(ima_set, &GROUP_DELETE, GROUP_EMPTY), by<config_del_ima, GROUP_EMPTY>,
     "delete"},
    {other, LIBRARY(ima_get, GROUP), by<config_get_ima_params, GROUP>},
    {other, LIBRARY(ima_lnk_add, 1, GROUP),
     inTurn<Call<config_get_ima_params, GROUP>, Call<config_add_ima_link, 1, GROUP>>},
    {other, LIBRARY(ima_lnk_delete, 1, GROUP),
     inTurn<Call<config_get_ima_params, GROUP>, Call<config_del_ima_link, 1, GROUP>>},
    {other, LIBRARY(ima_lnk_get, GROUP), by<config_get_ima_params, GROUP>, "8 links"},
    {other, LIBRARY(ima_group_state_get, GROUP), by<config_get_ima_params, GROUP>},
    {other, LIBRARY(ima_lnk_state_get, GROUP), by<config_get_ima_params, GROUP>, "8 links"},
    {other, LIBRARY(ima_pm_get, VEXO_PM_TYPE_1, GROUP_EMPTY), READ_GROUP_PM<GROUP_EMPTY>,
     "no links"},
    {other, LIBRARY(ima_pm_get, VEXO_PM_TYPE_1, GROUP), READ_GROUP_PM<GROUP>, "8 links"},
    {other, LIBRARY(ima_pm_clear, GROUP), CLEAR_GROUP<GROUP>, "8 links"},
    {other,
     LIBRARY(ima_pm_clear, 0),
     {[] {
          for (uint32_t group = 1; group <= 8; ++group)
              clearBareGroup(group);
      },
      sizeof(imaParams)},
     "8 groups of 8 links"},
    {other, LIBRARY(ima_om_get, 0, GROUP), READ_GROUP_OM<false>, "8 links"},
    {other, LIBRARY(ima_om_get, 1, GROUP), READ_GROUP_OM<true>, "8 links, clear"},
    {attribute, LIBRARY(ima_alarms_set, 3),
     inTurn<Call<alarm_set_status_bits, OBJ_IMA_GROUP, 0x3FF, 3>,
            Call<alarm_set_status_bits, OBJ_IMA_LINK, 0x7F0000, 3>>},
    {attribute, LIBRARY(ima_alarms_get, VEXO_IMA_TYPE_GROUP, GROUP),
     by<alarm_get_active_bits, OBJ_IMA_GROUP, GROUP>, "group"},
    {attribute, LIBRARY(ima_alarms_get, VEXO_IMA_TYPE_LINK, 1),
     by<alarm_get_active_bits, OBJ_IMA_LINK, 1>, "link"},

    // misc
    {other, LIBRARY(misc_sys_info_get, 0),
     inTurn<Call<config_get_sys_link_status>, Call<pmom_sys_om_stat_get, 0>>},
    {other, LIBRARY(misc_upgrade_init, &UPGRADE_IN),
     inTurn<Call<config_get_peer_server_params>, Call<upgrade_load>>},
    {other, LIBRARY(misc_upgrade_info_get), by<upgrade_status_get, 2>},
    {other, LIBRARY(misc_dbg_init, TEXT), by<config_set_debug_info_params>},
    {other, LIBRARY(misc_dbg_info_get), by<config_get_debug_info_params>},
    {other,
     LIBRARY(misc_dbg_mode_set, 3),
     {[] { kv_log(5, 29, "", "", 0, "mode mask=%X", 3U); }, 0}},
    {other, LIBRARY(misc_log_reset),
     inTurn<Call<kv_log_clear>, Call<alarm_raise_alarm, OBJ_SYSTEM, 1, EV_LOG_FULL_ALM, 0>>},
    {attribute, LIBRARY(misc_sys_lbk_set, VEXO_LPBK_1), by<config_set_sys_lpbk>},
    {attribute, LIBRARY(misc_sys_lbk_get), by<config_get_sys_lpbk>},
    {other, LIBRARY(misc_tpgm_init, 1, 2, 3), by<config_init_tpgm>},
    {other, LIBRARY(misc_tpgm_stat_get, 0),
     inTurn<Call<config_get_tpgm_status>, Call<config_clear_tpgm_status, 0>>},
};

void refuseHostClock()
{
    Dl_info info{};
    if (dladdr(dlsym(RTLD_DEFAULT, "settimeofday"), &info) == 0 ||
        strstr(info.dli_fname, "/libc.so")) {
        fprintf(stderr, "settimeofday() is the host's\n");
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

std::string nameOf(const Operation &operation)
{
    const std::string name = operation.name;
    return *operation.variant ? name + ": " + operation.variant : name;
}

size_t recordsOf(const char *operation)
{
    size_t most = 0;
    for (const Operation &other : OPERATIONS)
        if (strcmp(other.name, operation) == 0)
            most = std::max(most, other.bare.records);
    return most;
}

std::span<const Operation> operations()
{
    return OPERATIONS;
}

void setUp()
{
    refuseHostClock();
    for (uint32_t first = 0; first < PW_PROV_MAX; first += 4) {
        provision(PLAIN, first + PW_PLAIN);
        provision(RICH, first + PW_RICH);
        provision(ATM, first + PW_ATM);
        provision(ATM_UDP, first + PW_ATM_UDP);
    }
    provision(T1, PW_T1);
    config_get_pw(place<pwConfig>, PW_ATM);
    place<pwConfig>->atmXcCount = PW_ATM_XC_MAX;
    for (pwAtmXc &xc : place<pwConfig>->atmXc)
        xc = {1, 2, 3, 4, pweAtmXcType{2}};
    config_set_pw(place<pwConfig>, PW_ATM);
    CHANGE_PORT.run();
    vexo_cmi_pdh_params_set(&PDH_IN, PORT, &result);
    place<imaParams>->linkCount = IMA_LINK_MAX;
    for (uint32_t group = 1; group <= 8; ++group) {
        for (uint32_t i = 0; i < IMA_LINK_MAX; ++i)
            place<imaParams>->links[i].linkId = (group - 1) * IMA_LINK_MAX + i + 1;
        config_add_ima(place<imaParams>, group);
    }
}

void bareReport(vexoPmCallback callback)
{
    constexpr pmInterval INTERVAL{1};
    static vexoPmNotification record;
    const uint32_t ports = GetObjectCount(OBJ_PDH);
    for (uint32_t port = 1; port <= ports; ++port)
        pmom_pdh_pm_stat_get(port, INTERVAL, 1, place<pdhPmStat>);
    callback(&record);
    static pwProvList list;
    config_get_pw_all_prov(&list);
    for (uint32_t i = 0; i < list.count; ++i) {
        config_get_pw(place<pwConfig>, list.pwIds[i]);
        pmom_pw_pm_stat_get(list.pwIds[i], INTERVAL, 1, place<pwPmStats>);
        callback(&record);
    }
    const uint32_t groups = GetObjectCount(OBJ_IMA_GROUP);
    for (uint32_t group = 1; group <= groups; ++group) {
        config_get_ima_params(place<imaParams>, group);
        pmom_ima_group_pm_stat_get(group, INTERVAL, 1, place<imaGroupPmStat>);
        for (uint32_t i = 0; i < place<imaParams>->linkCount; ++i)
            pmom_ima_link_pm_stat_get(place<imaParams>->links[i].linkId, INTERVAL, 1,
                                      place<imaLinkPmStat>);
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
