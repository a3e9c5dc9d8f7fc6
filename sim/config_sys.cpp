// libkv_config: the system.
#include "clock.h"
#include "entry.h"
#include "objects.h"

#include <cstring>

using namespace sim;

namespace
{

constexpr uint16_t TPID_MIN = 0x0600;
constexpr uint32_t TEMPERATURE_MAX = 150;

// Every setter of one value: a check, then the value.
template <class Value>
kvRc store(Transaction &device, Value &field, const Value &value)
{
    device.modify(field) = value;
    return KV_OK;
}

} // namespace

const char *config_get_error_string(void)
{
    Call entry{Function::config_get_error_string, {}};
    entry.enter();
    return entry.code() == KV_OK || !entry.device ? failureText() : nullptr;
}

kvRc config_set_system_mode(eqptMode mode)
{
    return action(Function::config_set_system_mode, {mode}, [=](Transaction &device) {
        return inRange("TDM mode", mode, 3) ? store(device, device->system.mode, mode) : BAD_VALUE;
    });
}

kvRc config_get_system_mode(eqptMode *mode)
{
    return getter(Function::config_get_system_mode, {}, mode, [=](Transaction &device) {
        *mode = device->system.mode;
        return KV_OK;
    });
}

kvRc config_set_pwe_src_mac_addr(const unsigned char *mac)
{
    const Bytes in{mac, 6};
    return call(Function::config_set_pwe_src_mac_addr, {}, in, {}, [=](Transaction &device) {
        if (mac[0] & 1)
            return fail(BAD_VALUE, "source MAC address %02X:%02X:%02X:%02X:%02X:%02X is a group's",
                        mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        memcpy(device.modify(device->system.interface.srcMac), mac, 6);
        return KV_OK;
    });
}

kvRc config_get_pwe_if(pweIf *out)
{
    return getter(Function::config_get_pwe_if, {}, out, [=](Transaction &device) {
        *out = device->system.interface;
        return KV_OK;
    });
}

kvRc config_system_tpid_set(unsigned short tpid)
{
    return action(Function::config_system_tpid_set, {tpid}, [=](Transaction &device) {
        if (tpid < TPID_MIN)
            return fail(BAD_VALUE, "TPID 0x%04X is below 0x%04X", tpid, TPID_MIN);
        return store<uint16_t>(device, device->system.params.tpid, tpid);
    });
}

kvRc config_get_system_params(sysParams *out)
{
    return getter(Function::config_get_system_params, {}, out, [=](Transaction &device) {
        *out = device->system.params;
        return KV_OK;
    });
}

kvRc config_set_pwe_src_ip_addr(const unsigned *address)
{
    return setter(Function::config_set_pwe_src_ip_addr, {}, address, [=](Transaction &device) {
        if (*address == 0)
            return fail(BAD_VALUE, "source IPv4 address 0 is none");
        return store(device, device->system.interface.srcIp, *address);
    });
}

kvRc config_set_pwe_lops_threshold(const lopsThreshold *in)
{
    return setter(Function::config_set_pwe_lops_threshold, {}, in, [=](Transaction &device) {
        store(device, device->system.interface.lops1, in->first);
        return store(device, device->system.interface.lops2, in->second);
    });
}

kvRc config_set_clk_out(const clkOut *in)
{
    return setter(Function::config_set_clk_out, {}, in, [=](Transaction &device) {
        store(device, device->system.params.clkOut1, in->first);
        return store(device, device->system.params.clkOut2, in->second);
    });
}

kvRc config_set_psn_net_type(psnNetType type)
{
    return action(Function::config_set_psn_net_type, {type}, [=](Transaction &device) {
        return inRange("network type", type, 2)
                   ? store(device, device->system.params.psnNetType, type)
                   : BAD_VALUE;
    });
}

kvRc config_set_temperature_thr(const temperatureThr *in)
{
    return setter(Function::config_set_temperature_thr, {}, in, [=](Transaction &device) {
        if (in->first > TEMPERATURE_MAX || in->second > TEMPERATURE_MAX)
            return fail(BAD_VALUE, "temperature thresholds %u and %u: at most %u each", in->first,
                        in->second, TEMPERATURE_MAX);
        store(device, device->system.params.temperatureThr1, in->first);
        return store(device, device->system.params.temperatureThr2, in->second);
    });
}

kvRc config_get_temperature(unsigned *temperature)
{
    return getter(Function::config_get_temperature, {}, temperature, [=](Transaction &device) {
        *temperature = device->system.temperature;
        return KV_OK;
    });
}

kvRc config_get_sys_status(sysStatus *out)
{
    return getter(Function::config_get_sys_status, {}, out, [=](Transaction &device) {
        *out = device->system.status;
        return KV_OK;
    });
}

kvRc config_get_sys_version(swVersion *out)
{
    return getter(Function::config_get_sys_version, {}, out, [=](Transaction &device) {
        *out = device->system.status.version;
        return KV_OK;
    });
}

kvRc config_get_sys_link_status(sysLinkStatus *out)
{
    return getter(Function::config_get_sys_link_status, {}, out, [=](Transaction &device) {
        *out = device->system.link;
        return KV_OK;
    });
}

kvRc config_get_peer_server_params(peerServer *out)
{
    return getter(Function::config_get_peer_server_params, {}, out, [=](Transaction &device) {
        *out = device->system.server;
        return KV_OK;
    });
}

// The state word of the record is not looked at; a text turns debugging on.
kvRc config_set_debug_info_params(const debugInfo *in)
{
    return setter(Function::config_set_debug_info_params, {}, in, [=](Transaction &device) {
        debugInfo &debug = device.modify(device->system.debug);
        memcpy(debug.text, in->text, sizeof debug.text);
        debug.state = DebugState{debug.text[0] ? 2U : 1U};
        return KV_OK;
    });
}

kvRc config_get_debug_info_params(debugInfo *out)
{
    return getter(Function::config_get_debug_info_params, {}, out, [=](Transaction &device) {
        *out = device->system.debug;
        return KV_OK;
    });
}

kvRc config_set_sys_lpbk(const sysLpbk *in)
{
    return setter(Function::config_set_sys_lpbk, {}, in, [=](Transaction &device) {
        return isLoopback(in->lpbk) ? store(device, device->system.loopback, *in) : BAD_VALUE;
    });
}

kvRc config_get_sys_lpbk(sysLpbk *out)
{
    return getter(Function::config_get_sys_lpbk, {}, out, [=](Transaction &device) {
        *out = device->system.loopback;
        return KV_OK;
    });
}

kvRc config_init_tpgm(const tpgmSetup *in)
{
    return setter(Function::config_init_tpgm, {}, in, [=](Transaction &device) {
        store(device, device->system.tpgm, *in);
        return store(device, device->system.tpgmStart, uptime(*device));
    });
}

// Words: whether it runs, the three set-up values, seconds since it was set up or cleared, and the
// bits sent in that time at 2048 kbit/s, low half and high half.
kvRc config_get_tpgm_status(tpgmStatus *out)
{
    return getter(Function::config_get_tpgm_status, {}, out, [=](Transaction &device) {
        const System &system = device->system;
        *out = {};
        if (system.tpgmStart == 0)
            return KV_OK;
        const uint64_t seconds = (uptime(*device) - system.tpgmStart) / SECOND;
        const uint64_t bits = seconds * 2048000;
        out->words[0] = 1;
        memcpy(&out->words[1], system.tpgm.params, sizeof system.tpgm.params);
        out->words[4] = static_cast<uint32_t>(seconds);
        out->words[5] = static_cast<uint32_t>(bits);
        out->words[6] = static_cast<uint32_t>(bits >> 32);
        return KV_OK;
    });
}

kvRc config_clear_tpgm_status(uint32_t clear)
{
    return action(Function::config_clear_tpgm_status, {clear}, [=](Transaction &device) {
        if (clear && device->system.tpgmStart)
            store(device, device->system.tpgmStart, uptime(*device));
        return KV_OK;
    });
}

uint32_t GetObjectCount(objType type)
{
    Call entry{Function::GetObjectCount, {type}};
    uint32_t instead = 0;
    if (!entry.enter(bytesOf(&instead)))
        return entry.device && entry.code() != KV_OK ? entry.code() : instead;
    switch (type) {
    case OBJ_SYSTEM:
        return 1;
    case OBJ_PDH:
        return KV_SIM_PORTS;
    case OBJ_IMA_GROUP:
        return KV_SIM_GROUPS;
    case OBJ_IMA_LINK:
        return KV_SIM_LINKS;
    case OBJ_PWE:
        return KV_SIM_PWS;
    }
    return 0;
}
