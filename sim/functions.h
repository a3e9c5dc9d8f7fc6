// The platform functions that the simulated device stands in for.
#ifndef SIM_FUNCTIONS_H
#define SIM_FUNCTIONS_H

#include <stdint.h>

namespace sim
{

#define SIM_FUNCTIONS(X)                                                                           \
    X(config_get_error_string)                                                                     \
    X(config_set_system_mode)                                                                      \
    X(config_get_system_mode)                                                                      \
    X(config_set_pwe_src_mac_addr)                                                                 \
    X(config_get_pwe_if)                                                                           \
    X(config_system_tpid_set)                                                                      \
    X(config_get_system_params)                                                                    \
    X(config_set_pwe_src_ip_addr)                                                                  \
    X(config_set_pwe_lops_threshold)                                                               \
    X(config_set_clk_out)                                                                          \
    X(config_set_psn_net_type)                                                                     \
    X(config_set_temperature_thr)                                                                  \
    X(config_get_temperature)                                                                      \
    X(config_get_sys_status)                                                                       \
    X(config_get_sys_version)                                                                      \
    X(config_get_pdh_params)                                                                       \
    X(config_set_pdh_params)                                                                       \
    X(config_get_pdh_admin)                                                                        \
    X(config_set_pdh_admin)                                                                        \
    X(config_get_pdh_oper_state)                                                                   \
    X(config_get_pdh_lpbk)                                                                         \
    X(config_set_pdh_lpbk)                                                                         \
    X(config_get_pw)                                                                               \
    X(config_get_pw_defaults)                                                                      \
    X(config_add_pw)                                                                               \
    X(config_set_pw)                                                                               \
    X(config_del_pw)                                                                               \
    X(config_get_pw_oper_state)                                                                    \
    X(config_set_pw_admin)                                                                         \
    X(config_get_pw_admin)                                                                         \
    X(config_set_pw_jitter_size)                                                                   \
    X(config_set_pw_ais)                                                                           \
    X(config_add_pw_atm_xc)                                                                        \
    X(config_del_pw_atm_xc)                                                                        \
    X(config_get_pw_all_prov)                                                                      \
    X(config_pwe_srv_type_to_string)                                                               \
    X(config_get_ima_params)                                                                       \
    X(config_set_ima_params)                                                                       \
    X(config_add_ima)                                                                              \
    X(config_del_ima)                                                                              \
    X(config_add_ima_link)                                                                         \
    X(config_del_ima_link)                                                                         \
    X(config_get_sys_link_status)                                                                  \
    X(config_get_peer_server_params)                                                               \
    X(config_set_debug_info_params)                                                                \
    X(config_get_debug_info_params)                                                                \
    X(config_set_sys_lpbk)                                                                         \
    X(config_get_sys_lpbk)                                                                         \
    X(config_init_tpgm)                                                                            \
    X(config_get_tpgm_status)                                                                      \
    X(config_clear_tpgm_status)                                                                    \
    X(GetObjectCount)                                                                              \
    X(alarm_get_active_bits)                                                                       \
    X(alarm_set_status_bits)                                                                       \
    X(alarm_set_notification)                                                                      \
    X(alarm_get_notification)                                                                      \
    X(alarm_raise_alarm)                                                                           \
    X(alarm_notification_sock)                                                                     \
    X(alarm_subscribe)                                                                             \
    X(alarm_process_notification)                                                                  \
    X(alarm_unsubscribe)                                                                           \
    X(pmom_pdh_pm_stat_get)                                                                        \
    X(pmom_pdh_pm_stat_clear)                                                                      \
    X(pmom_pw_pm_stat_get)                                                                         \
    X(pmom_pw_pm_stat_clear)                                                                       \
    X(pmom_pw_om_stat_get)                                                                         \
    X(pmom_pw_om_stat_clear)                                                                       \
    X(pmom_ima_group_pm_stat_get)                                                                  \
    X(pmom_ima_group_pm_stat_clear)                                                                \
    X(pmom_ima_link_pm_stat_get)                                                                   \
    X(pmom_ima_link_pm_stat_clear)                                                                 \
    X(pmom_ima_group_om_stat_get)                                                                  \
    X(pmom_ima_group_om_stat_clear)                                                                \
    X(pmom_ima_link_om_stat_get)                                                                   \
    X(pmom_ima_link_om_stat_clear)                                                                 \
    X(pmom_sys_om_stat_get)                                                                        \
    X(pmom_notification_sock)                                                                      \
    X(pmom_subscribe)                                                                              \
    X(pmom_process_notification)                                                                   \
    X(pmom_unsubscribe)                                                                            \
    X(upgrade_load)                                                                                \
    X(upgrade_status_get)                                                                          \
    X(forker_box_shutdown)                                                                         \
    X(kv_rc_to_string)                                                                             \
    X(kv_log)                                                                                      \
    X(kv_log_clear)                                                                                \
    X(settimeofday)                                                                                \
    X(gettimeofday)

#define SIM_FUNCTION_MEMBER(name) name,
enum class Function : uint32_t { SIM_FUNCTIONS(SIM_FUNCTION_MEMBER) count };
#undef SIM_FUNCTION_MEMBER

constexpr uint32_t FUNCTION_COUNT = static_cast<uint32_t>(Function::count);

// Behind these come the C library's.
constexpr uint32_t PLATFORM_FUNCTION_COUNT = static_cast<uint32_t>(Function::settimeofday);

} // namespace sim

#endif
