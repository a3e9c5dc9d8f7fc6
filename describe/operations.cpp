#include "records.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace describe
{

namespace
{

constexpr Operation OPERATIONS[] = {
    OPERATION(vexo_cmi_sys_tod_set, "settimeofday", {"seconds"}, {"microseconds"}),
    OPERATION(vexo_cmi_sys_reset, "forker_box_shutdown"),
    OPERATION(vexo_cmi_sys_tdm_mode_set, "config_set_system_mode", {"mode"}),
    OPERATION(vexo_cmi_sys_tdm_mode_get, "config_get_system_mode", {"mode"}),
    OPERATION(vexo_cmi_sys_src_mac_set, "config_set_pwe_src_mac_addr", {"mac"}),
    OPERATION(vexo_cmi_sys_src_mac_get, "config_get_pwe_if", {"mac"}),
    OPERATION(vexo_cmi_sys_tpid_set, "config_system_tpid_set",
              {.name = "tpid", .limit = 0xFFFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_tpid_get, "config_get_system_params",
              {.name = "tpid", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_src_ip_set, "config_set_pwe_src_ip_addr",
              {.name = "address", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_src_ip_get, "config_get_pwe_if",
              {.name = "address", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_lops_set, "config_set_pwe_lops_threshold", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_lops_get, "config_get_pwe_if", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_rpt_mode_set, "alarm_set_notification", {"mode"}, {"value"}),
    OPERATION(vexo_cmi_sys_rpt_mode_get, "alarm_get_notification", {"mode"}, {"value"}),
    OPERATION(vexo_cmi_sys_clk_out_set, "config_set_clk_out", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_clk_out_get, "config_get_system_params", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_net_type_set, "config_set_psn_net_type", {"quality"}),
    OPERATION(vexo_cmi_sys_net_type_get, "config_get_system_params", {"quality"}),
    OPERATION(vexo_cmi_sys_temp_set, "config_set_temperature_thr", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_temp_get, "config_get_temperature config_get_system_params", {"current"},
              {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_alarm_get, "alarm_get_active_bits",
              {.name = "bits", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_alarm_set, "alarm_set_status_bits",
              {.name = "bits", .limit = 0x7FFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_inventory_get, "config_get_system_params", {"inventory"}),
    OPERATION(vexo_cmi_sys_status_get, "config_get_sys_status", {"status"}),
    OPERATION(vexo_cmi_sys_oper_state_get, "config_get_system_params", {"state"}),
    OPERATION(vexo_cmi_sys_version_get, "config_get_sys_version", {"version"}),
    OPERATION(vexo_cmi_sys_kato_send,
              "due: gettimeofday settimeofday gettimeofday | else: gettimeofday", {"seconds"},
              {"microseconds"}),

    OPERATION(vexo_cmi_pdh_params_set, "config_get_pdh_params config_set_pdh_params", {"params"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_params_get,
              "config_get_pdh_params config_get_pdh_oper_state config_get_pdh_lpbk", {"params"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_admin_set, "config_set_pdh_admin", {"status"}, {"port"}),
    OPERATION(vexo_cmi_pdh_admin_get, "config_get_pdh_admin", {"status"}, {"port"}),
    OPERATION(vexo_cmi_pdh_code_set, "config_get_pdh_params config_set_pdh_params", {"code"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_code_get, "config_get_pdh_params", {"code"}, {"port"}),
    OPERATION(vexo_cmi_pdh_frame_set, "config_get_pdh_params config_set_pdh_params", {"mode"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_frame_get, "config_get_pdh_params", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_cable_len_set, "config_get_pdh_params config_set_pdh_params | length 0:",
              {.name = "length", .limit = 0xFFFF}, {"port"}),
    OPERATION(vexo_cmi_pdh_cable_len_get, "config_get_pdh_params config_set_pdh_params", {"length"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_sync_set, "config_get_pdh_params config_set_pdh_params", {"sync"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_sync_get, "config_get_pdh_params", {"sync"}, {"aux"}, {"port"}),
    OPERATION(vexo_cmi_pdh_niu_set, "config_get_pdh_params config_set_pdh_params", {"mode"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_niu_get, "config_get_pdh_params", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_lpbk_set, "config_get_pdh_lpbk config_set_pdh_lpbk", {"loopback"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_lpbk_get, "config_get_pdh_lpbk", {"loopback"}, {"port"}),
    OPERATION(vexo_cmi_pdh_alarms_set, "alarm_set_status_bits",
              {.name = "alarmBits", .limit = 0xFFFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_pdh_alarms_get, "alarm_get_active_bits",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"port"}),
    OPERATION(vexo_cmi_pdh_pm_get, "pmom_pdh_pm_stat_get", {"pm"}, {"pmType"}, {"port"}),
    OPERATION(vexo_cmi_pdh_pm_clear, "3*pmom_pdh_pm_stat_clear", {"port"}),

    OPERATION(vexo_cmi_pwe_params_set,
              "modify: config_get_pw config_set_pw | create: config_get_pw_defaults config_add_pw "
              "| delete: config_del_pw",
              {"params"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_params_get, "config_get_pw config_get_pw_oper_state", {"info"},
              {"pwId"}),
    OPERATION(vexo_cmi_pwe_admin_set, "config_set_pw_admin", {"status"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_admin_get, "config_get_pw_admin", {"status"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_dst_mac_set, "config_get_pw config_set_pw", {"mac"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_dst_mac_get, "config_get_pw", {"mac"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_vlan_set, "config_get_pw config_set_pw", {"vlan"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_vlan_get, "config_get_pw", {"vlan"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_psn_set, "config_get_pw config_set_pw", {"psn"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_psn_get, "config_get_pw", {"psn"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pdv_set, "config_set_pw_jitter_size", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pdv_get, "config_get_pw", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_payload_set, "config_get_pw config_set_pw", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_payload_get, "config_get_pw", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_rtp_set, "config_get_pw config_set_pw", {"rtp"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_rtp_get, "config_get_pw", {"rtp"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atm_force_ais_set, "config_set_pw_ais", {"force"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atm_force_ais_get, "config_get_pw", {"force"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_set, "config_add_pw_atm_xc", {"xc"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_delete, "config_del_pw_atm_xc", {"xc"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_get, "config_get_pw", {"xc", VEXO_PWE_ATM_XC_MAX, "count"},
              {"count"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_alarms_set, "alarm_set_status_bits",
              {.name = "alarmBits", .limit = 0x1F, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_pwe_alarms_get, "alarm_get_active_bits",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pm_get, "pmom_pw_pm_stat_get config_get_pw", {"pm"}, {"pmType"},
              {"pwId"}),
    OPERATION(vexo_cmi_pwe_pm_clear, "3*pmom_pw_pm_stat_clear", {"pwId"}),
    OPERATION(vexo_cmi_pwe_om_get,
              "clear: config_get_pw pmom_pw_om_stat_get pmom_pw_om_stat_clear | else: "
              "config_get_pw pmom_pw_om_stat_get",
              {"om"}, {"clear"}, {"pwId"}),

    OPERATION(vexo_cmi_ima_set,
              "modify: config_get_ima_params config_set_ima_params | create: config_add_ima | "
              "delete: config_del_ima",
              {"group"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_get, "config_get_ima_params", {"params"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_add, "config_get_ima_params config_add_ima_link", {"linkId"},
              {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_delete, "config_get_ima_params config_del_ima_link", {"linkId"},
              {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_get, "config_get_ima_params",
              {"linkIds", VEXO_IMA_LINK_MAX, "linkCount"}, {"linkCount"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_group_state_get, "config_get_ima_params", {"state"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_state_get, "config_get_ima_params",
              {"states", VEXO_IMA_LINK_MAX, "linkCount"}, {"linkCount"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_pm_get,
              "config_get_ima_params pmom_ima_group_pm_stat_get links*(pmom_ima_link_pm_stat_get)",
              {"pm"}, {"pmType"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_pm_clear,
              "config_get_ima_params 3*pmom_ima_group_pm_stat_clear "
              "links*(3*pmom_ima_link_pm_stat_clear)",
              {"groupId"}),
    OPERATION(
        vexo_cmi_ima_om_get,
        "clear: config_get_ima_params pmom_ima_group_om_stat_get pmom_ima_group_om_stat_clear "
        "links*(pmom_ima_link_om_stat_get pmom_ima_link_om_stat_clear) | else: "
        "config_get_ima_params pmom_ima_group_om_stat_get links*(pmom_ima_link_om_stat_get)",
        {"om"}, {"clear"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_alarms_set, "alarm_set_status_bits alarm_set_status_bits",
              {.name = "alarmBits", .limit = 0x7F03FF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_ima_alarms_get, "alarm_get_active_bits",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"imaType"}, {"number"}),

    OPERATION(vexo_cmi_misc_sys_info_get, "config_get_sys_link_status pmom_sys_om_stat_get",
              {"info"}, {"clear"}),
    OPERATION(vexo_cmi_misc_upgrade_init, "config_get_peer_server_params upgrade_load",
              {"upgrade"}),
    OPERATION(vexo_cmi_misc_upgrade_info_get, "upgrade_status_get", {"upgrade"}),
    OPERATION(vexo_cmi_misc_dbg_init, "config_set_debug_info_params",
              {.name = "info", .limit = 128}),
    OPERATION(vexo_cmi_misc_dbg_info_get, "config_get_debug_info_params", {"debug"}),
    OPERATION(vexo_cmi_misc_dbg_mode_set, "kv_log", {.name = "mask", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_misc_log_reset, "kv_log_clear alarm_raise_alarm"),
    OPERATION(vexo_cmi_misc_sys_lbk_set, "config_set_sys_lpbk", {"loopback"}),
    OPERATION(vexo_cmi_misc_sys_lbk_get, "config_get_sys_lpbk", {"loopback"}),
    OPERATION(vexo_cmi_misc_tpgm_init, "config_init_tpgm", {"tpgmParam1"}, {"tpgmParam2"},
              {"tpgmParam3"}),
    OPERATION(vexo_cmi_misc_tpgm_stat_get, "config_get_tpgm_status config_clear_tpgm_status",
              {"status"}, {"clear"}),
};

// "a 3*b" as "a b b b".
std::vector<std::string> expand(const std::string &calls)
{
    std::vector<std::string> all;
    std::istringstream words{calls};
    for (std::string word; words >> word;) {
        const size_t star = word.find('*');
        const int times = star == word.npos ? 1 : std::stoi(word);
        all.insert(all.end(), static_cast<size_t>(times),
                   star == word.npos ? word : word.substr(star + 1));
    }
    return all;
}

} // namespace

std::span<const Operation> operations()
{
    return OPERATIONS;
}

const Operation *find(std::string_view name)
{
    const auto found = std::ranges::find_if(
        OPERATIONS, [&](const Operation &operation) { return name == operation.name; });
    return found == std::end(OPERATIONS) ? nullptr : &*found;
}

std::span<const Type *const> records()
{
    static const std::vector<const Type *> all = [] {
        std::vector<const Type *> found;
        for (const Operation &operation : operations())
            for (const Argument &argument : operation.arguments)
                addRecords(*argument.type, found);
        addRecords(Row<vexoAlarmNotification>::type, found);
        addRecords(Row<vexoPmNotification>::type, found);
        return found;
    }();
    return all;
}

template <>
const Type &typeOf<uint32_t>()
{
    return Row<uint32_t>::type;
}

std::vector<Case> casesOf(const Operation &operation, uint32_t links)
{
    std::vector<Case> cases;
    std::istringstream text{operation.calls};
    for (std::string part; std::getline(text, part, '|');) {
        Case &found = cases.emplace_back();
        if (const size_t colon = part.find(':'); colon != part.npos) {
            found.when = part.substr(0, colon);
            found.when.erase(0, found.when.find_first_not_of(' '));
            part.erase(0, colon + 1);
        }
        const size_t loop = part.find("links*(");
        const std::vector<std::string> once = expand(part.substr(0, loop));
        found.calls = once;
        if (loop == part.npos)
            continue;
        const std::vector<std::string> each =
            expand(part.substr(loop + 7, part.find(')', loop) - loop - 7));
        for (uint32_t i = 0; i < links; ++i)
            found.calls.insert(found.calls.end(), each.begin(), each.end());
    }
    return cases;
}

} // namespace describe
