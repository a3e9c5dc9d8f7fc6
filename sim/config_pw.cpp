// libkv_config: pseudowires and their cross-connects.
#include "bodies.h"
#include "objects.h"

#include <algorithm>
#include <cstring>

using namespace sim;

namespace
{

constexpr pweType TYPE_6{6};
constexpr tagMode UNTAGGED{1};
constexpr uint16_t VLAN_MAX = 4094;
constexpr uint8_t PRIORITY_MAX = 7;
constexpr uint32_t PAYLOAD_MAX = 1500;
constexpr uint32_t JITTER_MAX = 500000;

bool isType(pweType type)
{
    return (type >= PWE_TYPE_TDM_1 && type <= PWE_TYPE_ATM_4) || type == TYPE_6;
}

bool isTdm(pweType type)
{
    return type == PWE_TYPE_TDM_1 || type == PWE_TYPE_TDM_2;
}

bool isAtm(pweType type)
{
    return type == PWE_TYPE_ATM_3 || type == PWE_TYPE_ATM_4;
}

bool upTo(const char *what, uint32_t value, uint32_t last)
{
    if (value <= last)
        return true;
    fail(BAD_VALUE, "%s %u is more than %u", what, value, last);
    return false;
}

bool isKind(pweType type, pweEncType encapsulation)
{
    if (isType(type))
        return isMember(encapsulation);
    fail(BAD_VALUE, "pseudowire type %u is not one of 1, 2, 3, 4 and 6", type);
    return false;
}

bool isTag(const pwConfig &config)
{
    return isMember(config.tagMode) &&
           (config.tagMode == UNTAGGED ||
            (upTo("VLAN identifier", config.vlanId, VLAN_MAX) &&
             upTo("priority", config.priority, PRIORITY_MAX) &&
             upTo("outer VLAN identifier", config.outerVlanId, VLAN_MAX) &&
             upTo("outer priority", config.outerPriority, PRIORITY_MAX)));
}

bool isService(const pwConfig &config)
{
    if (isTdm(config.pweType))
        return inRange("payload size", config.payloadSize, 1, PAYLOAD_MAX) &&
               inRange("jitter buffer size", config.jitterBufferSize, 1, JITTER_MAX);
    if (isAtm(config.pweType))
        return isMember(config.atmMode) && isMember(config.atmType) && isMember(config.atmClpMap) &&
               upTo("number of cross-connects", config.atmXcCount, PW_ATM_XC_MAX);
    return true;
}

bool isValid(const pwConfig &config)
{
    return isKind(config.pweType, config.encType) && isMember(config.adminStatus) &&
           isTag(config) && isService(config);
}

// What another record or object says has to fit, if the device looks at that.
bool isConsistent(const State &state, const pwConfig &config, uint32_t pwId)
{
    if (!state.behaviours.consistency)
        return true;
    if (config.pwId != pwId)
        fail(BAD_VALUE, "the record is pseudowire %u's, not %u's", config.pwId, pwId);
    else if (config.circuit > KV_SIM_PORTS)
        fail(BAD_VALUE, "circuit %u is beyond the %d ports", config.circuit, KV_SIM_PORTS);
    else
        return true;
    return false;
}

pwConfig defaultsOf(const State &state, pweType type, pweEncType encapsulation, uint32_t pwId)
{
    pwConfig config{};
    config.pweType = type;
    config.adminStatus = ADMIN_DOWN;
    config.pwId = pwId;
    config.encType = encapsulation;
    memcpy(config.srcMac, state.system.interface.srcMac, sizeof config.srcMac);
    config.tagMode = UNTAGGED;
    config.serviceOption = 1;
    if (isTdm(type)) {
        config.rtpPayloadType = 96;
        config.jitterBufferSize = type == PWE_TYPE_TDM_1 ? 5000 : 3000;
        config.payloadSize = type == PWE_TYPE_TDM_1 ? 256 : 192;
    } else if (isAtm(type)) {
        config.payloadSize = 48;
        config.atmMode = atmMode{1};
        config.atmType = atmType{1};
        config.atmClpMap = atmClpMap{1};
    }
    if (encapsulation == pweEncType{4})
        config.enc.enc4.udpMode = pweIpUdpMode{1};
    return config;
}

Pw *atmPwOf(Transaction &device, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    if (!found || isAtm(found->config.pweType))
        return found;
    fail(WRONG_STATE, "pseudowire %u is not ATM", pwId);
    return nullptr;
}

bool sameXc(const pwAtmXc &a, const pwAtmXc &b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

uint32_t xcCount(const pwConfig &config)
{
    return std::min(config.atmXcCount, PW_ATM_XC_MAX);
}

// The index of a cross-connect, or the count when there is none like it.
uint32_t findXc(const pwConfig &config, const pwAtmXc &xc)
{
    uint32_t i = 0;
    while (i < xcCount(config) && !sameXc(config.atmXc[i], xc))
        ++i;
    return i;
}

} // namespace

kvRc body::config_get_pw(Transaction &device, pwConfig *config, uint32_t pwId)
{
    const Pw *found = pwOf(device, pwId);
    return found ? answer(config, found->config) : failureCode();
}

kvRc body::config_get_pw_defaults(Transaction &device, pwConfig *config, const pwDefaultsKey *key,
                                  uint32_t pwId)
{
    if (!isKind(key->pweType, key->encType))
        return BAD_VALUE;
    return answer(config, defaultsOf(*device, key->pweType, key->encType, pwId));
}

kvRc body::config_add_pw(Transaction &device, const pwConfig *config, uint32_t pwId)
{
    if (pwId < 1 || pwId > KV_SIM_PWS)
        return fail(NO_OBJECT, "there is no pseudowire %u, only 1 to %d", pwId, KV_SIM_PWS);
    if (device->pws[pwId - 1].provisioned)
        return fail(EXISTS, "pseudowire %u is provisioned already", pwId);
    if (!isValid(*config) || !isConsistent(*device, *config, pwId))
        return BAD_VALUE;
    Pw &pw = device.modify(device->pws[pwId - 1]);
    pw = {};
    pw.config = *config;
    pw.provisioned = 1;
    return KV_OK;
}

kvRc body::config_set_pw(Transaction &device, const pwConfig *config, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    if (!found || !isValid(*config) || !isConsistent(*device, *config, pwId))
        return failureCode();
    if (config->pweType != found->config.pweType)
        return fail(WRONG_STATE, "pseudowire %u is of type %u and can't become %u", pwId,
                    found->config.pweType, config->pweType);
    return store(device, found->config, *config);
}

kvRc body::config_del_pw(Transaction &device, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    if (!found)
        return failureCode();
    device.modify(found->provisioned) = 0;
    return setAlarms(device, OBJ_PWE, pwId, found->alarms, 0);
}

kvRc body::config_get_pw_oper_state(Transaction &device, operState *state, uint32_t pwId)
{
    const Pw *found = pwOf(device, pwId);
    return found ? answer(state, stateOf(*found)) : failureCode();
}

kvRc body::config_set_pw_admin(Transaction &device, adminStatus status, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    return found && isMember(status) ? store(device, found->config.adminStatus, status)
                                     : failureCode();
}

kvRc body::config_get_pw_admin(Transaction &device, adminStatus *status, uint32_t pwId)
{
    const Pw *found = pwOf(device, pwId);
    return found ? answer(status, found->config.adminStatus) : failureCode();
}

kvRc body::config_set_pw_jitter_size(Transaction &device, uint32_t size, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    if (!found)
        return failureCode();
    if (!isTdm(found->config.pweType))
        return fail(WRONG_STATE, "pseudowire %u has no jitter buffer", pwId);
    if (!inRange("jitter buffer size", size, 1, JITTER_MAX))
        return BAD_VALUE;
    return store(device, found->config.jitterBufferSize, size);
}

kvRc body::config_set_pw_ais(Transaction &device, uint32_t force, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    if (!found || !upTo("forced AIS", force, 1))
        return failureCode();
    if (!isAtm(found->config.pweType))
        return fail(WRONG_STATE, "pseudowire %u is not ATM", pwId);
    return store(device, found->config.aisForced, force);
}

kvRc body::config_add_pw_atm_xc(Transaction &device, const pwAtmXc *xc, uint32_t pwId)
{
    Pw *found = atmPwOf(device, pwId);
    if (!found || !isMember(xc->xcType))
        return failureCode();
    const uint32_t count = xcCount(found->config);
    if (findXc(found->config, *xc) < count)
        return fail(EXISTS, "pseudowire %u has this cross-connect already", pwId);
    if (count == PW_ATM_XC_MAX)
        return fail(FULL, "pseudowire %u has %u cross-connects, no more can be", pwId,
                    PW_ATM_XC_MAX);
    pwConfig &config = device.modify(found->config);
    config.atmXc[count] = *xc;
    config.atmXcCount = count + 1;
    return KV_OK;
}

kvRc body::config_del_pw_atm_xc(Transaction &device, const pwAtmXc *xc, uint32_t pwId)
{
    Pw *found = atmPwOf(device, pwId);
    if (!found)
        return failureCode();
    const uint32_t count = xcCount(found->config);
    uint32_t i = findXc(found->config, *xc);
    if (i >= count)
        return fail(NO_OBJECT, "pseudowire %u has no such cross-connect", pwId);
    pwConfig &config = device.modify(found->config);
    for (; i + 1 < count; ++i)
        config.atmXc[i] = config.atmXc[i + 1];
    config.atmXcCount = count - 1;
    return KV_OK;
}

kvRc body::config_get_pw_all_prov(Transaction &device, pwProvList *list)
{
    list->count = 0;
    for (uint32_t i = 0; i < KV_SIM_PWS; ++i)
        if (device->pws[i].provisioned)
            list->pwIds[list->count++] = static_cast<uint16_t>(i + 1);
    return KV_OK;
}

const char *body::config_pwe_srv_type_to_string(Transaction &, pweType type)
{
    static constexpr const char *names[] = {"none",  "tdm-1", "tdm-2", "atm-3",
                                            "atm-4", "5",     "type-6"};
    return isType(type) ? names[type] : "unknown";
}
