// One row per function of the platform's libraries, enumeration and field of a record. What stands
// in for the platform, or between it and the library, is made from these rows.
#ifndef DESCRIBE_PLATFORM_H
#define DESCRIBE_PLATFORM_H

#include "type.h"

#include <kv_alarm.h>
#include <kv_common.h>
#include <kv_config.h>
#include <kv_forker.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>

#include <sys/time.h>

namespace describe
{

// The values are those that the simulated device knows; what else a device has is not known.
TITLED_ENUMERATION(eqptMode, "TDM mode", 1, 3)
TITLED_ENUMERATION(operState, "operational state", 1, 5)
TITLED_ENUMERATION(adminStatus, "administrative status", 1, 3)
TITLED_ENUMERATION(pdhFrameMode, "frame mode", 1, 6)
TITLED_ENUMERATION(pdhCode, "line code", 1, 4)
TITLED_ENUMERATION(pdhNiuMode, "NIU mode", 1, 4)
TITLED_ENUMERATION(pdhClockMode, "clock mode", 1, 5)
TITLED_ENUMERATION(lpbk, "loopback", 1, 7)
TITLED_ENUMERATION(pmInterval, "PM interval", 1, 4)
TITLED_ENUMERATION(tagMode, "tag mode", 1, 4)
TITLED_ENUMERATION(pweIpUdpMode, "UDP mode", 1, 3)
TITLED_ENUMERATION(pweType, "pseudowire type", 1, 6)
TITLED_ENUMERATION(pweEncType, "encapsulation", 1, 5)
TITLED_ENUMERATION(pweAtmXcType, "cross-connect type", 1, 3)
TITLED_ENUMERATION(alarmMode, "alarm report mode", 2, 4)
TITLED_ENUMERATION(atmMode, "ATM mode", 1, 2)
TITLED_ENUMERATION(atmType, "ATM type", 1, 2)
TITLED_ENUMERATION(atmClpMap, "ATM CLP map", 1, 4)
TITLED_ENUMERATION(psnNetType, "network type", 1, 2)
TITLED_ENUMERATION(UpgradeMode, "upgrade mode", 1, 2)
TITLED_ENUMERATION(UpgradeState, "upgrade state", 1, 6)
TITLED_ENUMERATION(DebugState, "debug state", 1, 3)
TITLED_ENUMERATION(objType, "object type", 0, 34, {OBJ_SYSTEM, "system"}, {OBJ_PDH, "pdh"},
                   {OBJ_IMA_GROUP, "ima-group"}, {OBJ_PWE, "pwe"}, {OBJ_IMA_LINK, "ima-link"})

// What the platform hands to a subscriber's handler; the other records are what its functions take.
RECORD(alarmEvent, F(objType), F(objId), F(status, .type = &HEXADECIMAL),
       F(delta, .type = &HEXADECIMAL))

} // namespace describe

namespace describe::platform
{

// Whose function it is. The clock is the host's.
enum class Library { config, alarm, pmom, upgrade, forker, common, clock };

// What a function does: tells something and changes nothing (reads), changes what another tells
// (writes), does something else (acts), belongs to the notifications (notifies).
enum class Class { reads, writes, acts, notifies };

// What it returns: a platform code; a number; a text of the platform's; a descriptor, or -1; 0, or
// something else that says no more than that it failed.
enum class Returns { code, count, text, descriptor, status };

// What tells more about a failure: config_get_error_string(), or kv_rc_to_string() of the code. Of
// the alarm calls of IMA objects the library takes the latter, see the operations' rows.
enum class FailureText { none, config, code };

enum class Object { none, port, pw, group, link, alarm };

struct Argument {
    const char *name;
    const Type *type; // null: of a callback, or of a format's
    Direction direction;
    bool isPointer;
    bool
        changes; // by itself: a state, a counter; or with the library's build: a line of its source
};

struct Function {
    const char *name;
    Library library;
    Class kind;
    Returns returns;
    std::span<const Argument> arguments;
    // Which argument is the object, and of which kind: that of the alarm calls is of the type that
    // stands before it. -1: none.
    int object;
    Object objectKind;
};

// F(library, class, returns, function, names of its arguments...), by libraries. An argument's name
// says whether it is an object: port, pwId, group, link and, of an object of any type, number.
#define CONFIG_FUNCTIONS(F)                                                                        \
    F(config, reads, text, config_get_error_string)                                                \
    F(config, writes, code, config_set_system_mode, mode)                                          \
    F(config, reads, code, config_get_system_mode, mode)                                           \
    F(config, writes, code, config_set_pwe_src_mac_addr, mac)                                      \
    F(config, reads, code, config_get_pwe_if, interface)                                           \
    F(config, writes, code, config_system_tpid_set, tpid)                                          \
    F(config, reads, code, config_get_system_params, params)                                       \
    F(config, writes, code, config_set_pwe_src_ip_addr, address)                                   \
    F(config, writes, code, config_set_pwe_lops_threshold, threshold)                              \
    F(config, writes, code, config_set_clk_out, clocks)                                            \
    F(config, writes, code, config_set_psn_net_type, type)                                         \
    F(config, writes, code, config_set_temperature_thr, threshold)                                 \
    F(config, reads, code, config_get_temperature, temperature)                                    \
    F(config, reads, code, config_get_sys_status, status)                                          \
    F(config, reads, code, config_get_sys_version, version)                                        \
    F(config, reads, code, config_get_pdh_params, params, port)                                    \
    F(config, writes, code, config_set_pdh_params, params, port)                                   \
    F(config, reads, code, config_get_pdh_admin, status, port)                                     \
    F(config, writes, code, config_set_pdh_admin, status, port)                                    \
    F(config, reads, code, config_get_pdh_oper_state, state, port)                                 \
    F(config, reads, code, config_get_pdh_lpbk, loopback, port)                                    \
    F(config, writes, code, config_set_pdh_lpbk, loopback, port)                                   \
    F(config, reads, code, config_get_pw, config, pwId)                                            \
    F(config, reads, code, config_get_pw_defaults, config, key, pwId)                              \
    F(config, writes, code, config_add_pw, config, pwId)                                           \
    F(config, writes, code, config_set_pw, config, pwId)                                           \
    F(config, writes, code, config_del_pw, pwId)                                                   \
    F(config, reads, code, config_get_pw_oper_state, state, pwId)                                  \
    F(config, writes, code, config_set_pw_admin, status, pwId)                                     \
    F(config, reads, code, config_get_pw_admin, status, pwId)                                      \
    F(config, writes, code, config_set_pw_jitter_size, size, pwId)                                 \
    F(config, writes, code, config_set_pw_ais, force, pwId)                                        \
    F(config, writes, code, config_add_pw_atm_xc, xc, pwId)                                        \
    F(config, writes, code, config_del_pw_atm_xc, xc, pwId)                                        \
    F(config, reads, code, config_get_pw_all_prov, list)                                           \
    F(config, reads, text, config_pwe_srv_type_to_string, type)                                    \
    F(config, reads, code, config_get_ima_params, params, group)                                   \
    F(config, writes, code, config_set_ima_params, params, group)                                  \
    F(config, writes, code, config_add_ima, params, group)                                         \
    F(config, writes, code, config_del_ima, group)                                                 \
    F(config, writes, code, config_add_ima_link, link, group)                                      \
    F(config, writes, code, config_del_ima_link, link, group)                                      \
    F(config, reads, code, config_get_sys_link_status, status)                                     \
    F(config, reads, code, config_get_peer_server_params, server)                                  \
    F(config, writes, code, config_set_debug_info_params, info)                                    \
    F(config, reads, code, config_get_debug_info_params, info)                                     \
    F(config, writes, code, config_set_sys_lpbk, loopback)                                         \
    F(config, reads, code, config_get_sys_lpbk, loopback)                                          \
    F(config, acts, code, config_init_tpgm, setup)                                                 \
    F(config, reads, code, config_get_tpgm_status, status)                                         \
    F(config, acts, code, config_clear_tpgm_status, clear)                                         \
    F(config, reads, count, GetObjectCount, type)

#define ALARM_FUNCTIONS(F)                                                                         \
    F(alarm, reads, code, alarm_get_active_bits, type, number, bits)                               \
    F(alarm, acts, code, alarm_set_status_bits, type, mask, bits)                                  \
    F(alarm, writes, code, alarm_set_notification, mode, value)                                    \
    F(alarm, reads, code, alarm_get_notification, mode, value)                                     \
    F(alarm, acts, code, alarm_raise_alarm, type, number, alarm, state)                            \
    F(alarm, notifies, descriptor, alarm_notification_sock)                                        \
    F(alarm, notifies, code, alarm_subscribe, first, second, handler)                              \
    F(alarm, notifies, code, alarm_process_notification)                                           \
    F(alarm, notifies, code, alarm_unsubscribe)

#define PMOM_FUNCTIONS(F)                                                                          \
    F(pmom, reads, code, pmom_pdh_pm_stat_get, port, interval, which, stat)                        \
    F(pmom, acts, code, pmom_pdh_pm_stat_clear, port, interval, which)                             \
    F(pmom, reads, code, pmom_pw_pm_stat_get, pwId, interval, which, stats)                        \
    F(pmom, acts, code, pmom_pw_pm_stat_clear, pwId, interval, which)                              \
    F(pmom, reads, code, pmom_pw_om_stat_get, pwId, stats)                                         \
    F(pmom, acts, code, pmom_pw_om_stat_clear, pwId)                                               \
    F(pmom, reads, code, pmom_ima_group_pm_stat_get, group, interval, which, stat)                 \
    F(pmom, acts, code, pmom_ima_group_pm_stat_clear, group, interval, which)                      \
    F(pmom, reads, code, pmom_ima_link_pm_stat_get, link, interval, which, stat)                   \
    F(pmom, acts, code, pmom_ima_link_pm_stat_clear, link, interval, which)                        \
    F(pmom, reads, code, pmom_ima_group_om_stat_get, group, stat)                                  \
    F(pmom, acts, code, pmom_ima_group_om_stat_clear, group)                                       \
    F(pmom, reads, code, pmom_ima_link_om_stat_get, link, stat)                                    \
    F(pmom, acts, code, pmom_ima_link_om_stat_clear, link)                                         \
    F(pmom, reads, code, pmom_sys_om_stat_get, stat, clear)                                        \
    F(pmom, notifies, descriptor, pmom_notification_sock)                                          \
    F(pmom, notifies, code, pmom_subscribe, handler)                                               \
    F(pmom, notifies, code, pmom_process_notification)                                             \
    F(pmom, notifies, code, pmom_unsubscribe)

#define UPGRADE_FUNCTIONS(F)                                                                       \
    F(upgrade, acts, code, upgrade_load, request)                                                  \
    F(upgrade, reads, code, upgrade_status_get, constant, status)

#define FORKER_FUNCTIONS(F) F(forker, acts, code, forker_box_shutdown)

#define COMMON_FUNCTIONS(F)                                                                        \
    F(common, reads, text, kv_rc_to_string, code)                                                  \
    F(common, acts, code, kv_log_clear)

// The host's, which the device stands in for.
#define CLOCK_FUNCTIONS(F)                                                                         \
    F(clock, writes, status, settimeofday, time, zone)                                             \
    F(clock, reads, status, gettimeofday, time, zone)

// The only one that takes more than its row names.
#define LOG_FUNCTION(F) F(common, acts, status, kv_log, level, module, file, function, line, format)

#define LIBRARY_FUNCTIONS(F)                                                                       \
    CONFIG_FUNCTIONS(F)                                                                            \
    ALARM_FUNCTIONS(F)                                                                             \
    PMOM_FUNCTIONS(F)                                                                              \
    UPGRADE_FUNCTIONS(F)                                                                           \
    FORKER_FUNCTIONS(F)                                                                            \
    COMMON_FUNCTIONS(F)

#define PLATFORM_FUNCTIONS(F)                                                                      \
    LIBRARY_FUNCTIONS(F)                                                                           \
    LOG_FUNCTION(F)                                                                                \
    CLOCK_FUNCTIONS(F)

// The index of each row.
#define PLATFORM_INDEX(library, kind, returns, function, ...) function,
enum class Index : uint32_t { PLATFORM_FUNCTIONS(PLATFORM_INDEX) count };
#undef PLATFORM_INDEX

constexpr uint32_t FUNCTION_COUNT = static_cast<uint32_t>(Index::count);

std::span<const Function, FUNCTION_COUNT> functions();
const Function *find(std::string_view name);

// All records, for checks over the rows.
std::span<const Type *const> records();

FailureText failureTextOf(const Function &function);

// Whether it can say that it failed, and somebody asks: a log record and a text are not asked for.
bool canFail(const Function &function);

// The arguments of a call, in the declared order of each kind: numbers, the record that it is
// given, and those that it fills.
struct Arguments {
    template <class... Given>
    explicit Arguments(Given... given)
    {
        (add(given), ...);
    }

    uint32_t numbers[4]{};
    std::span<const uint8_t> in;
    std::span<uint8_t> out[2];

  private:
    void add(uint32_t number) { numbers[numberCount_++] = number; }

    void add(std::span<const uint8_t> bytes) { in = bytes; }

    // Of a MAC address.
    void add(const unsigned char *bytes) { in = {bytes, sizeof(Mac)}; }

    template <class Record>
    void add(const Record *record)
    {
        in = {reinterpret_cast<const uint8_t *>(record), sizeof(Record)};
    }

    template <class Record>
    void add(Record *record)
    {
        out[outCount_++] = {reinterpret_cast<uint8_t *>(record), sizeof(Record)};
    }

    template <class Result, class... Given>
    void add(Result (*)(Given...)) // a handler
    {
    }

    uint32_t numberCount_ = 0;
    uint32_t outCount_ = 0;
};

// Defines a function of the platform from its row, for use in a macro that is given to those above:
// it passes its arguments on to another.
#define PLATFORM_DEFINE(callee, function, ...)                                                     \
    PLATFORM_RESULT(function)                                                                      \
    function(PLATFORM_COUNT(PLATFORM_PARAMETERS, __VA_ARGS__)(function))                           \
    {                                                                                              \
        return callee(PLATFORM_COUNT(PLATFORM_GIVEN, __VA_ARGS__));                                \
    }

#define PLATFORM_RESULT(function) describe::Signature<decltype(function)>::Result
#define PLATFORM_ARGUMENT(function, i) describe::Signature<decltype(function)>::Argument<i> a##i
#define PLATFORM_PARAMETERS_0(function)
#define PLATFORM_PARAMETERS_1(function) PLATFORM_ARGUMENT(function, 0)
#define PLATFORM_PARAMETERS_2(function)                                                            \
    PLATFORM_PARAMETERS_1(function), PLATFORM_ARGUMENT(function, 1)
#define PLATFORM_PARAMETERS_3(function)                                                            \
    PLATFORM_PARAMETERS_2(function), PLATFORM_ARGUMENT(function, 2)
#define PLATFORM_PARAMETERS_4(function)                                                            \
    PLATFORM_PARAMETERS_3(function), PLATFORM_ARGUMENT(function, 3)
#define PLATFORM_GIVEN_0
#define PLATFORM_GIVEN_1 a0
#define PLATFORM_GIVEN_2 a0, a1
#define PLATFORM_GIVEN_3 a0, a1, a2
#define PLATFORM_GIVEN_4 a0, a1, a2, a3
// prefix_N, N the number of the arguments behind it.
#define PLATFORM_COUNT(prefix, ...)                                                                \
    PLATFORM_COUNTED(prefix __VA_OPT__(, ) __VA_ARGS__, 6, 5, 4, 3, 2, 1, 0)
#define PLATFORM_COUNTED(prefix, a, b, c, d, e, f, n, ...) prefix##_##n

} // namespace describe::platform

#endif
