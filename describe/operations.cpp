#include "records.h"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace describe
{

namespace
{

constexpr Role ACTION{Use::action};
constexpr Role STATE{Use::state};
constexpr Role SETTING{Use::setting};
constexpr Role PART{Use::part};
constexpr Role DEBUG_TEXT{Use::setting, "dbg"};
// Only pseudowires with the ATM part have cross-connects.
constexpr Role XC{.use = Use::setting, .with = "a"};
constexpr Role ADDS_XC{Use::adds, "xc"};
constexpr Role REMOVES_XC{Use::removes, "xc"};
constexpr Role ADDS_LINK{Use::adds, "linkIds"};
constexpr Role REMOVES_LINK{Use::removes, "linkIds"};

constexpr Operation OPERATIONS[] = {
    OPERATION(vexo_cmi_sys_tod_set, ACTION, "settimeofday", "seconds=1767225600 microseconds=0",
              {.name = "seconds", .changes = true}, {.name = "microseconds", .changes = true}),
    OPERATION(vexo_cmi_sys_reset, ACTION, "forker_box_shutdown", ""),
    OPERATION(vexo_cmi_sys_tdm_mode_set, SETTING, "config_set_system_mode", "mode=2", {"mode"}),
    OPERATION(vexo_cmi_sys_tdm_mode_get, SETTING, "config_get_system_mode", "", {"mode"}),
    OPERATION(vexo_cmi_sys_src_mac_set, SETTING, "config_set_pwe_src_mac_addr",
              "mac=02:00:5e:00:00:01", {"mac"}),
    OPERATION(vexo_cmi_sys_src_mac_get, SETTING, "config_get_pwe_if", "", {"mac"}),
    OPERATION(vexo_cmi_sys_tpid_set, SETTING, "config_system_tpid_set", "tpid=0x88a8",
              {.name = "tpid", .limit = 0xFFFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_tpid_get, SETTING, "config_get_system_params", "",
              {.name = "tpid", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_src_ip_set, SETTING, "config_set_pwe_src_ip_addr", "address=0x0a000001",
              {.name = "address", .type = &ADDRESS}),
    OPERATION(vexo_cmi_sys_src_ip_get, SETTING, "config_get_pwe_if", "",
              {.name = "address", .type = &ADDRESS}),
    OPERATION(vexo_cmi_sys_lops_set, SETTING, "config_set_pwe_lops_threshold", "first=10 second=20",
              {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_lops_get, SETTING, "config_get_pwe_if", "", {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_rpt_mode_set, SETTING, "alarm_set_notification", "mode=1 value=0",
              {"mode"}, {"value"}),
    OPERATION(vexo_cmi_sys_rpt_mode_get, SETTING, "alarm_get_notification", "", {"mode"},
              {"value"}),
    OPERATION(vexo_cmi_sys_clk_out_set, SETTING, "config_set_clk_out", "first=1 second=0",
              {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_clk_out_get, SETTING, "config_get_system_params", "", {"first"},
              {"second"}),
    OPERATION(vexo_cmi_sys_net_type_set, SETTING, "config_set_psn_net_type", "quality=2",
              {"quality"}),
    OPERATION(vexo_cmi_sys_net_type_get, SETTING, "config_get_system_params", "", {"quality"}),
    OPERATION(vexo_cmi_sys_temp_set, SETTING, "config_set_temperature_thr", "first=60 second=75",
              {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_temp_get, SETTING, "config_get_temperature config_get_system_params", "",
              {.name = "current", .changes = true}, {"first"}, {"second"}),
    OPERATION(vexo_cmi_sys_alarm_get, STATE, "alarm_get_active_bits", "",
              {.name = "bits", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_alarm_set, ACTION, "alarm_set_status_bits", "bits=0x2000",
              {.name = "bits", .limit = 0x7FFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_sys_inventory_get, STATE, "config_get_system_params", "", {"inventory"}),
    OPERATION(vexo_cmi_sys_status_get, STATE, "config_get_sys_status", "", {"status"}),
    OPERATION(vexo_cmi_sys_oper_state_get, STATE, "config_get_system_params", "", {"state"}),
    OPERATION(vexo_cmi_sys_version_get, STATE, "config_get_sys_version", "", {"version"}),
    OPERATION(vexo_cmi_sys_kato_send, ACTION,
              "due: gettimeofday settimeofday gettimeofday | else: gettimeofday",
              "seconds=1767225600 microseconds=0", {.name = "seconds", .changes = true},
              {.name = "microseconds", .changes = true}),

    OPERATION(vexo_cmi_pdh_params_set, SETTING, "config_get_pdh_params config_set_pdh_params",
              "port=3 adminStatus=1 frameMode=2 lineCode=1 cableLength=40 syncMode=1 syncParam=0 "
              "niuMode=1 auxParam=0",
              {"params"}, {"port"}),
    OPERATION(vexo_cmi_pdh_params_get, SETTING,
              "config_get_pdh_params config_get_pdh_oper_state config_get_pdh_lpbk", "port=3",
              {"params"}, {"port"}),
    OPERATION(vexo_cmi_pdh_admin_set, PART, "config_set_pdh_admin", "port=3 status=1", {"status"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_admin_get, PART, "config_get_pdh_admin", "port=3", {"status"}, {"port"}),
    OPERATION(vexo_cmi_pdh_code_set, PART, "config_get_pdh_params config_set_pdh_params",
              "port=3 code=2", {"code"}, {"port"}),
    OPERATION(vexo_cmi_pdh_code_get, PART, "config_get_pdh_params", "port=3", {"code"}, {"port"}),
    OPERATION(vexo_cmi_pdh_frame_set, PART, "config_get_pdh_params config_set_pdh_params",
              "port=3 mode=2", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_frame_get, PART, "config_get_pdh_params", "port=3", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_cable_len_set, PART,
              "config_get_pdh_params config_set_pdh_params | length 0:", "port=3 length=30",
              {.name = "length", .limit = 0xFFFF}, {"port"}),
    OPERATION(vexo_cmi_pdh_cable_len_get, PART, "config_get_pdh_params config_set_pdh_params",
              "port=3", {"length"}, {"port"}),
    OPERATION(vexo_cmi_pdh_sync_set, PART, "config_get_pdh_params config_set_pdh_params",
              "port=3 mode=2 param=1", {"sync"}, {"port"}),
    OPERATION(vexo_cmi_pdh_sync_get, PART, "config_get_pdh_params", "port=3", {"sync"}, {"aux"},
              {"port"}),
    OPERATION(vexo_cmi_pdh_niu_set, PART, "config_get_pdh_params config_set_pdh_params",
              "port=3 mode=1", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_niu_get, PART, "config_get_pdh_params", "port=3", {"mode"}, {"port"}),
    OPERATION(vexo_cmi_pdh_lpbk_set, SETTING, "config_get_pdh_lpbk config_set_pdh_lpbk",
              "port=3 loopback=2", {"loopback"}, {"port"}),
    OPERATION(vexo_cmi_pdh_lpbk_get, PART, "config_get_pdh_lpbk", "port=3", {"loopback"}, {"port"}),
    OPERATION(vexo_cmi_pdh_alarms_set, ACTION, "alarm_set_status_bits", "alarmBits=0x5",
              {.name = "alarmBits", .limit = 0xFFFF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_pdh_alarms_get, STATE, "alarm_get_active_bits", "port=3",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"port"}),
    OPERATION(vexo_cmi_pdh_pm_get, STATE, "pmom_pdh_pm_stat_get", "port=3 pmType=1", {"pm"},
              {"pmType"}, {"port"}),
    OPERATION(vexo_cmi_pdh_pm_clear, ACTION, "3*pmom_pdh_pm_stat_clear", "port=3", {"port"}),

    OPERATION(vexo_cmi_pwe_params_set, SETTING,
              "modify: config_get_pw config_set_pw | create: config_get_pw_defaults config_add_pw "
              "| delete: config_del_pw",
              "pwId=17 pweAction=create pweType=tdm-1 adminStatus=1 dstMac=02:00:5e:00:00:11 "
              "vlan.mode=untagged psn.psnType=2 psn.param1=4711 t1.circuit=3 t1.payloadSize=256 "
              "t1.rtp.mode=on t1.rtp.payloadType=96 | pwId=18 pweAction=create pweType=atm-3 "
              "adminStatus=1 dstMac=02:00:5e:00:00:12 vlan.mode=untagged psn.psnType=2 a.circuit=1 "
              "a.atmMode=1 a.atmType=1 a.atmClpMode=1 a.atmParam1=0 a.atmParam2=0",
              {"params"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_params_get, SETTING,
              "provisioned: config_get_pw config_get_pw_oper_state | else: config_get_pw",
              "pwId=17", {"info"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_admin_set, PART, "config_set_pw_admin", "pwId=17 status=2", {"status"},
              {"pwId"}),
    OPERATION(vexo_cmi_pwe_admin_get, PART, "config_get_pw_admin", "pwId=17", {"status"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_dst_mac_set, PART, "config_get_pw config_set_pw",
              "pwId=17 mac=02:00:5e:00:00:13", {"mac"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_dst_mac_get, PART, "config_get_pw", "pwId=17", {"mac"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_vlan_set, PART, "config_get_pw config_set_pw",
              "pwId=17 mode=double outerVlanId=100 vlanId=7", {"vlan"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_vlan_get, PART, "config_get_pw", "pwId=17", {"vlan"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_psn_set, PART, "config_get_pw config_set_pw",
              "pwId=17 psnType=3 udpMode=2 param1=49152", {"psn"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_psn_get, PART, "config_get_pw", "pwId=17", {"psn"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pdv_set, PART, "config_set_pw_jitter_size", "pwId=17 size=4000",
              {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pdv_get, PART, "config_get_pw", "pwId=17", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_payload_set, PART, "config_get_pw config_set_pw", "pwId=17 size=128",
              {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_payload_get, PART, "config_get_pw", "pwId=17", {"size"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_rtp_set, PART, "config_get_pw config_set_pw",
              "pwId=17 mode=on payloadType=97", {"rtp"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_rtp_get, PART, "config_get_pw", "pwId=17", {"rtp"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atm_force_ais_set, SETTING, "config_set_pw_ais", "pwId=18 force=1",
              {.name = "force", .type = &FLAG}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atm_force_ais_get, SETTING, "config_get_pw", "pwId=18",
              {.name = "force", .type = &FLAG}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_set, ADDS_XC, "config_add_pw_atm_xc",
              "pwId=18 xcType=1 xcId1=0 xcId2=32 xcId3=0 xcId4=33", {"xc"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_delete, REMOVES_XC, "config_del_pw_atm_xc",
              "pwId=18 xcType=1 xcId1=0 xcId2=32 xcId3=0 xcId4=33", {"xc"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_atmop_xc_get, XC, "config_get_pw", "pwId=18",
              {"xc", VEXO_PWE_ATM_XC_MAX, "count"}, {"count"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_alarms_set, ACTION, "alarm_set_status_bits", "alarmBits=0x1",
              {.name = "alarmBits", .limit = 0x1F, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_pwe_alarms_get, STATE, "alarm_get_active_bits", "pwId=17",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pm_get, STATE, "pmom_pw_pm_stat_get config_get_pw", "pwId=17 pmType=1",
              {"pm"}, {"pmType"}, {"pwId"}),
    OPERATION(vexo_cmi_pwe_pm_clear, ACTION, "3*pmom_pw_pm_stat_clear", "pwId=17", {"pwId"}),
    OPERATION(vexo_cmi_pwe_om_get, STATE,
              "clear: config_get_pw pmom_pw_om_stat_get pmom_pw_om_stat_clear | else: "
              "config_get_pw pmom_pw_om_stat_get",
              "pwId=17 clear=0", {"om"}, {"clear"}, {"pwId"}),

    OPERATION(vexo_cmi_ima_set, SETTING,
              "modify: config_get_ima_params config_set_ima_params | create: config_add_ima | "
              "delete: config_del_ima",
              "groupId=1 imaAction=create groupParam1=1 groupParam2=128 groupParam3=25", {"group"},
              {"groupId"}),
    OPERATION(vexo_cmi_ima_get, SETTING, "config_get_ima_params", "groupId=1", {"params"},
              {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_add, ADDS_LINK, "config_get_ima_params config_add_ima_link",
              "groupId=1 linkId=4", {"linkId"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_delete, REMOVES_LINK, "config_get_ima_params config_del_ima_link",
              "groupId=1 linkId=4", {"linkId"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_get, SETTING, "config_get_ima_params", "groupId=1",
              {"linkIds", VEXO_IMA_LINK_MAX, "linkCount"}, {"linkCount"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_group_state_get, PART, "config_get_ima_params", "groupId=1", {"state"},
              {"groupId"}),
    OPERATION(vexo_cmi_ima_lnk_state_get, PART, "config_get_ima_params", "groupId=1",
              {"states", VEXO_IMA_LINK_MAX, "linkCount"}, {"linkCount"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_pm_get, STATE,
              "config_get_ima_params pmom_ima_group_pm_stat_get links*(pmom_ima_link_pm_stat_get)",
              "groupId=1 pmType=1", {"pm"}, {"pmType"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_pm_clear, ACTION,
              "config_get_ima_params 3*pmom_ima_group_pm_stat_clear "
              "links*(3*pmom_ima_link_pm_stat_clear)",
              "groupId=1", {"groupId"}),
    OPERATION(
        vexo_cmi_ima_om_get, STATE,
        "clear: config_get_ima_params pmom_ima_group_om_stat_get pmom_ima_group_om_stat_clear "
        "links*(pmom_ima_link_om_stat_get pmom_ima_link_om_stat_clear) | else: "
        "config_get_ima_params pmom_ima_group_om_stat_get links*(pmom_ima_link_om_stat_get)",
        "groupId=1 clear=0", {"om"}, {"clear"}, {"groupId"}),
    OPERATION(vexo_cmi_ima_alarms_set, ACTION, "alarm_set_status_bits alarm_set_status_bits",
              "alarmBits=0x10001", {.name = "alarmBits", .limit = 0x7F03FF, .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_ima_alarms_get, STATE, "alarm_get_active_bits", "imaType=group number=1",
              {.name = "alarmBits", .type = &HEXADECIMAL}, {"imaType"}, {"number"}),

    OPERATION(vexo_cmi_misc_sys_info_get, STATE, "config_get_sys_link_status pmom_sys_om_stat_get",
              "clear=0", {"info"}, {"clear"}),
    OPERATION(vexo_cmi_misc_upgrade_init, ACTION, "config_get_peer_server_params upgrade_load",
              "mode=1 fileName=load.bin", {"upgrade"}),
    OPERATION(vexo_cmi_misc_upgrade_info_get, STATE, "upgrade_status_get", "", {"upgrade"}),
    OPERATION(vexo_cmi_misc_dbg_init, DEBUG_TEXT, "config_set_debug_info_params",
              "info='trace the alarms'", {.name = "info", .limit = 128}),
    OPERATION(vexo_cmi_misc_dbg_info_get, DEBUG_TEXT, "config_get_debug_info_params", "",
              {"debug"}),
    OPERATION(vexo_cmi_misc_dbg_mode_set, ACTION, "kv_log", "mask=0xff",
              {.name = "mask", .type = &HEXADECIMAL}),
    OPERATION(vexo_cmi_misc_log_reset, ACTION, "kv_log_clear alarm_raise_alarm", ""),
    OPERATION(vexo_cmi_misc_sys_lbk_set, SETTING, "config_set_sys_lpbk", "loopback=2",
              {"loopback"}),
    OPERATION(vexo_cmi_misc_sys_lbk_get, SETTING, "config_get_sys_lpbk", "", {"loopback"}),
    OPERATION(vexo_cmi_misc_tpgm_init, ACTION, "config_init_tpgm",
              "tpgmParam1=1 tpgmParam2=0 tpgmParam3=0", {"tpgmParam1"}, {"tpgmParam2"},
              {"tpgmParam3"}),
    OPERATION(vexo_cmi_misc_tpgm_stat_get, ACTION,
              "config_get_tpgm_status config_clear_tpgm_status", "clear=1",
              {.name = "status", .changes = true}, {"clear"}),
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

bool changesByItself(const Operation &operation, const Argument &argument)
{
    return argument.changes ||
           (operation.role.use == Use::state && argument.direction == Direction::out);
}

const Argument *objectOf(const Operation &operation)
{
    static constexpr std::string_view NUMBERS[] = {"port", "pwId", "groupId"};
    const auto found = std::ranges::find_if(operation.arguments, [](const Argument &argument) {
        return std::ranges::count(NUMBERS, argument.name) > 0;
    });
    return found == operation.arguments.end() ? nullptr : &*found;
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

std::vector<Case> casesOf(const Operation &operation)
{
    constexpr std::string_view EACH = "links*(";
    std::vector<Case> cases;
    std::istringstream text{operation.calls};
    for (std::string part; std::getline(text, part, '|');) {
        Case &found = cases.emplace_back();
        if (const size_t colon = part.find(':'); colon != part.npos) {
            found.when = part.substr(0, colon);
            found.when.erase(0, found.when.find_first_not_of(' '));
            part.erase(0, colon + 1);
        }
        const size_t each = part.find(EACH);
        found.calls = expand(part.substr(0, each));
        if (each != part.npos)
            found.callsPerLink =
                expand(part.substr(each + EACH.size(), part.find(')') - each - EACH.size()));
    }
    return cases;
}

std::vector<Case> casesOf(const Operation &operation, uint32_t links)
{
    std::vector<Case> cases = casesOf(operation);
    for (Case &found : cases)
        for (uint32_t i = 0; i < links; ++i)
            std::ranges::copy(found.callsPerLink, std::back_inserter(found.calls));
    return cases;
}

} // namespace describe
