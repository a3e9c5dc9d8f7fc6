// libkv_config: the system.
#include "bodies.h"
#include "clock.h"
#include "objects.h"

#include <algorithm>

#include <cstring>

using namespace sim;

namespace
{

constexpr uint16_t TPID_MIN = 0x0600;
constexpr uint32_t TEMPERATURE_MAX = 150;

} // namespace

const char *body::config_get_error_string(Transaction &)
{
    return failureText();
}

kvRc body::config_set_system_mode(Transaction &device, eqptMode mode)
{
    return isMember(mode) ? store(device, device->system.mode, mode) : BAD_VALUE;
}

kvRc body::config_get_system_mode(Transaction &device, eqptMode *mode)
{
    return answer(mode, device->system.mode);
}

kvRc body::config_set_pwe_src_mac_addr(Transaction &device, const unsigned char *mac)
{
    if (mac[0] & 1)
        return fail(BAD_VALUE, "source MAC address %02X:%02X:%02X:%02X:%02X:%02X is a group's",
                    mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    auto &own = device.modify(device->system.interface.srcMac);
    memcpy(own, mac, sizeof own);
    return KV_OK;
}

kvRc body::config_get_pwe_if(Transaction &device, pweIf *interface)
{
    return answer(interface, device->system.interface);
}

kvRc body::config_system_tpid_set(Transaction &device, unsigned short tpid)
{
    if (tpid < TPID_MIN)
        return fail(BAD_VALUE, "TPID 0x%04X is below 0x%04X", tpid, TPID_MIN);
    return store(device, device->system.params.tpid, tpid);
}

kvRc body::config_get_system_params(Transaction &device, sysParams *params)
{
    answer(params, device->system.params);
    return answer(&params->operState, stateOfSystem(*device));
}

kvRc body::config_set_pwe_src_ip_addr(Transaction &device, const unsigned *address)
{
    if (*address == 0)
        return fail(BAD_VALUE, "source IPv4 address 0 is none");
    return store(device, device->system.interface.srcIp, *address);
}

kvRc body::config_set_pwe_lops_threshold(Transaction &device, const lopsThreshold *threshold)
{
    store(device, device->system.interface.lops1, threshold->first);
    return store(device, device->system.interface.lops2, threshold->second);
}

kvRc body::config_set_clk_out(Transaction &device, const clkOut *clocks)
{
    store(device, device->system.params.clkOut1, clocks->first);
    return store(device, device->system.params.clkOut2, clocks->second);
}

kvRc body::config_set_psn_net_type(Transaction &device, psnNetType type)
{
    return isMember(type) ? store(device, device->system.params.psnNetType, type) : BAD_VALUE;
}

kvRc body::config_set_temperature_thr(Transaction &device, const temperatureThr *threshold)
{
    if (threshold->first > TEMPERATURE_MAX || threshold->second > TEMPERATURE_MAX)
        return fail(BAD_VALUE, "temperature thresholds %u and %u: at most %u each",
                    threshold->first, threshold->second, TEMPERATURE_MAX);
    store(device, device->system.params.temperatureThr1, threshold->first);
    return store(device, device->system.params.temperatureThr2, threshold->second);
}

kvRc body::config_get_temperature(Transaction &device, unsigned *temperature)
{
    return answer(temperature, device->system.temperature);
}

kvRc body::config_get_sys_status(Transaction &device, sysStatus *status)
{
    answer(status, device->system.status);
    return answer(&status->operState, stateOfSystem(*device));
}

kvRc body::config_get_sys_version(Transaction &device, swVersion *version)
{
    return answer(version, device->system.status.version);
}

kvRc body::config_get_sys_link_status(Transaction &device, sysLinkStatus *status)
{
    return answer(status, device->system.link);
}

kvRc body::config_get_peer_server_params(Transaction &device, peerServer *server)
{
    return answer(server, device->system.server);
}

// The state word of the record is not looked at; a text turns debugging on.
kvRc body::config_set_debug_info_params(Transaction &device, const debugInfo *info)
{
    debugInfo &debug = device.modify(device->system.debug);
    memcpy(debug.text, info->text, sizeof debug.text);
    debug.state = DebugState{debug.text[0] ? 2U : 1U};
    return KV_OK;
}

kvRc body::config_get_debug_info_params(Transaction &device, debugInfo *info)
{
    return answer(info, device->system.debug);
}

kvRc body::config_set_sys_lpbk(Transaction &device, const sysLpbk *loopback)
{
    return isLoopback(loopback->lpbk) ? store(device, device->system.loopback, *loopback)
                                      : BAD_VALUE;
}

kvRc body::config_get_sys_lpbk(Transaction &device, sysLpbk *loopback)
{
    return answer(loopback, device->system.loopback);
}

kvRc body::config_init_tpgm(Transaction &device, const tpgmSetup *setup)
{
    store(device, device->system.tpgm, *setup);
    return store(device, device->system.tpgmStart, uptime(*device));
}

// Words: whether it runs, the three set-up values, seconds since it was set up or cleared, and the
// bits sent in that time at 2048 kbit/s, low half and high half.
kvRc body::config_get_tpgm_status(Transaction &device, tpgmStatus *status)
{
    const System &system = device->system;
    *status = {};
    if (system.tpgmStart == 0)
        return KV_OK;
    const uint64_t seconds = (uptime(*device) - system.tpgmStart) / SECOND;
    const uint64_t bits = seconds * 2048000;
    status->words[0] = 1;
    memcpy(&status->words[1], system.tpgm.params, sizeof system.tpgm.params);
    status->words[4] = static_cast<uint32_t>(seconds);
    status->words[5] = static_cast<uint32_t>(bits);
    status->words[6] = static_cast<uint32_t>(bits >> 32);
    return KV_OK;
}

kvRc body::config_clear_tpgm_status(Transaction &device, uint32_t clear)
{
    const bool restarts = clear && device->system.tpgmStart;
    return restarts ? store(device, device->system.tpgmStart, uptime(*device)) : KV_OK;
}

uint32_t body::GetObjectCount(Transaction &device, objType type)
{
    switch (type) {
    case OBJ_SYSTEM:
        return 1;
    case OBJ_PDH:
        return std::min<uint32_t>(device->likeness.ports, KV_SIM_PORTS);
    case OBJ_IMA_GROUP:
        return std::min<uint32_t>(device->likeness.groups, KV_SIM_GROUPS);
    case OBJ_IMA_LINK:
        return KV_SIM_LINKS;
    case OBJ_PWE:
        return std::min<uint32_t>(device->likeness.pwes, KV_SIM_PWS);
    }
    return 0;
}
