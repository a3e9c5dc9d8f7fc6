#include "describe.h"

#include <algorithm>

namespace describe
{

std::span<const Operation> operations()
{
    static const std::vector<Operation> all{
        OPERATION(vexo_cmi_sys_tod_set, {"seconds"}, {"microseconds"}),
        OPERATION(vexo_cmi_sys_reset),
        OPERATION(vexo_cmi_sys_tdm_mode_set, {"mode"}),
        OPERATION(vexo_cmi_sys_tdm_mode_get, {"mode"}),
        OPERATION(vexo_cmi_sys_src_mac_set, {"mac"}),
        OPERATION(vexo_cmi_sys_src_mac_get, {"mac"}),
        OPERATION(vexo_cmi_sys_tpid_set, {.name = "tpid", .limit = 0xFFFF, .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_tpid_get, {.name = "tpid", .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_src_ip_set, {.name = "address", .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_src_ip_get, {.name = "address", .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_lops_set, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_lops_get, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_rpt_mode_set, {"mode"}, {"value"}),
        OPERATION(vexo_cmi_sys_rpt_mode_get, {"mode"}, {"value"}),
        OPERATION(vexo_cmi_sys_clk_out_set, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_clk_out_get, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_net_type_set, {"quality"}),
        OPERATION(vexo_cmi_sys_net_type_get, {"quality"}),
        OPERATION(vexo_cmi_sys_temp_set, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_temp_get, {"current"}, {"first"}, {"second"}),
        OPERATION(vexo_cmi_sys_alarm_get, {.name = "bits", .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_alarm_set, {.name = "bits", .limit = 0x7FFF, .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_sys_inventory_get, {"inventory"}),
        OPERATION(vexo_cmi_sys_status_get, {"status"}),
        OPERATION(vexo_cmi_sys_oper_state_get, {"state"}),
        OPERATION(vexo_cmi_sys_version_get, {"version"}),
        OPERATION(vexo_cmi_sys_kato_send, {"seconds"}, {"microseconds"}),

        OPERATION(vexo_cmi_pdh_params_set, {"params"}, {"port"}),
        OPERATION(vexo_cmi_pdh_params_get, {"params"}, {"port"}),
        OPERATION(vexo_cmi_pdh_admin_set, {"status"}, {"port"}),
        OPERATION(vexo_cmi_pdh_admin_get, {"status"}, {"port"}),
        OPERATION(vexo_cmi_pdh_code_set, {"code"}, {"port"}),
        OPERATION(vexo_cmi_pdh_code_get, {"code"}, {"port"}),
        OPERATION(vexo_cmi_pdh_frame_set, {"mode"}, {"port"}),
        OPERATION(vexo_cmi_pdh_frame_get, {"mode"}, {"port"}),
        OPERATION(vexo_cmi_pdh_cable_len_set, {.name = "length", .limit = 0xFFFF}, {"port"}),
        OPERATION(vexo_cmi_pdh_cable_len_get, {"length"}, {"port"}),
        OPERATION(vexo_cmi_pdh_sync_set, {"sync"}, {"port"}),
        OPERATION(vexo_cmi_pdh_sync_get, {"sync"}, {"aux"}, {"port"}),
        OPERATION(vexo_cmi_pdh_niu_set, {"mode"}, {"port"}),
        OPERATION(vexo_cmi_pdh_niu_get, {"mode"}, {"port"}),
        OPERATION(vexo_cmi_pdh_lpbk_set, {"loopback"}, {"port"}),
        OPERATION(vexo_cmi_pdh_lpbk_get, {"loopback"}, {"port"}),
        OPERATION(vexo_cmi_pdh_alarms_set,
                  {.name = "alarmBits", .limit = 0xFFFF, .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_pdh_alarms_get, {.name = "alarmBits", .type = &HEXADECIMAL}, {"port"}),
        OPERATION(vexo_cmi_pdh_pm_get, {"pm"}, {"pmType"}, {"port"}),
        OPERATION(vexo_cmi_pdh_pm_clear, {"port"}),

        OPERATION(vexo_cmi_pwe_params_set, {"params"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_params_get, {"info"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_admin_set, {"status"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_admin_get, {"status"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_dst_mac_set, {"mac"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_dst_mac_get, {"mac"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_vlan_set, {"vlan"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_vlan_get, {"vlan"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_psn_set, {"psn"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_psn_get, {"psn"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_pdv_set, {"size"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_pdv_get, {"size"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_payload_set, {"size"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_payload_get, {"size"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_rtp_set, {"rtp"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_rtp_get, {"rtp"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_atm_force_ais_set, {"force"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_atm_force_ais_get, {"force"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_atmop_xc_set, {"xc"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_atmop_xc_delete, {"xc"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_atmop_xc_get, {"xc", VEXO_PWE_ATM_XC_MAX, "count"}, {"count"},
                  {"pwId"}),
        OPERATION(vexo_cmi_pwe_alarms_set,
                  {.name = "alarmBits", .limit = 0x1F, .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_pwe_alarms_get, {.name = "alarmBits", .type = &HEXADECIMAL}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_pm_get, {"pm"}, {"pmType"}, {"pwId"}),
        OPERATION(vexo_cmi_pwe_pm_clear, {"pwId"}),
        OPERATION(vexo_cmi_pwe_om_get, {"om"}, {"clear"}, {"pwId"}),

        OPERATION(vexo_cmi_ima_set, {"group"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_get, {"params"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_lnk_add, {"linkId"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_lnk_delete, {"linkId"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_lnk_get, {"linkIds", VEXO_IMA_LINK_MAX, "linkCount"}, {"linkCount"},
                  {"groupId"}),
        OPERATION(vexo_cmi_ima_group_state_get, {"state"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_lnk_state_get, {"states", VEXO_IMA_LINK_MAX, "linkCount"},
                  {"linkCount"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_pm_get, {"pm"}, {"pmType"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_pm_clear, {"groupId"}),
        OPERATION(vexo_cmi_ima_om_get, {"om"}, {"clear"}, {"groupId"}),
        OPERATION(vexo_cmi_ima_alarms_set,
                  {.name = "alarmBits", .limit = 0x7F03FF, .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_ima_alarms_get, {.name = "alarmBits", .type = &HEXADECIMAL}, {"imaType"},
                  {"number"}),

        OPERATION(vexo_cmi_misc_sys_info_get, {"info"}, {"clear"}),
        OPERATION(vexo_cmi_misc_upgrade_init, {"upgrade"}),
        OPERATION(vexo_cmi_misc_upgrade_info_get, {"upgrade"}),
        OPERATION(vexo_cmi_misc_dbg_init, {.name = "info", .limit = 128}),
        OPERATION(vexo_cmi_misc_dbg_info_get, {"debug"}),
        OPERATION(vexo_cmi_misc_dbg_mode_set, {.name = "mask", .type = &HEXADECIMAL}),
        OPERATION(vexo_cmi_misc_log_reset),
        OPERATION(vexo_cmi_misc_sys_lbk_set, {"loopback"}),
        OPERATION(vexo_cmi_misc_sys_lbk_get, {"loopback"}),
        OPERATION(vexo_cmi_misc_tpgm_init, {"tpgmParam1"}, {"tpgmParam2"}, {"tpgmParam3"}),
        OPERATION(vexo_cmi_misc_tpgm_stat_get, {"status"}, {"clear"}),
    };
    return all;
}

const Operation *find(std::string_view name)
{
    const auto all = operations();
    const auto found = std::find_if(
        all.begin(), all.end(), [&](const Operation &operation) { return name == operation.name; });
    return found == all.end() ? nullptr : &*found;
}

} // namespace describe
