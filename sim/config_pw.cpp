// libkv_config: pseudowires and their cross-connects.
#include "entry.h"
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
        return inRange("encapsulation", encapsulation, 5);
    fail(BAD_VALUE, "pseudowire type %u is not one of 1, 2, 3, 4 and 6", type);
    return false;
}

bool isTag(const pwConfig &config)
{
    return inRange("tag mode", config.tagMode, 4) &&
           (config.tagMode == UNTAGGED ||
            (upTo("VLAN identifier", config.vlanId, VLAN_MAX) &&
             upTo("priority", config.priority, PRIORITY_MAX) &&
             upTo("outer VLAN identifier", config.outerVlanId, VLAN_MAX) &&
             upTo("outer priority", config.outerPriority, PRIORITY_MAX)));
}

bool isService(const pwConfig &config)
{
    if (isTdm(config.pweType))
        return inRange("payload size", config.payloadSize, PAYLOAD_MAX) &&
               inRange("jitter buffer size", config.jitterBufferSize, JITTER_MAX);
    if (isAtm(config.pweType))
        return inRange("ATM mode", config.atmMode, 2) && inRange("ATM type", config.atmType, 2) &&
               inRange("ATM CLP map", config.atmClpMap, 4) &&
               upTo("number of cross-connects", config.atmXcCount, PW_ATM_XC_MAX);
    return true;
}

bool isValid(const pwConfig &config)
{
    return isKind(config.pweType, config.encType) &&
           inRange("administrative status", config.adminStatus, 3) && isTag(config) &&
           isService(config);
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

template <class Body>
auto withPw(uint32_t pwId, Body body)
{
    return [=](Transaction &device) -> kvRc {
        Pw *found = pwOf(device, pwId);
        return found ? body(device, *found) : failureCode();
    };
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

kvRc config_get_pw(pwConfig *out, uint32_t pwId)
{
    return getter(Function::config_get_pw, {pwId}, out, withPw(pwId, [=](Transaction &, Pw &found) {
                      *out = found.config;
                      return KV_OK;
                  }));
}

kvRc config_get_pw_defaults(pwConfig *out, const pwDefaultsKey *key, uint32_t pwId)
{
    return call(Function::config_get_pw_defaults, {pwId}, bytesOf(key), bytesOf(out),
                [=](Transaction &device) {
                    if (!isKind(key->pweType, key->encType))
                        return BAD_VALUE;
                    *out = defaultsOf(*device, key->pweType, key->encType, pwId);
                    return KV_OK;
                });
}

kvRc config_add_pw(const pwConfig *in, uint32_t pwId)
{
    return setter(Function::config_add_pw, {pwId}, in, [=](Transaction &device) {
        if (pwId < 1 || pwId > KV_SIM_PWS)
            return fail(NO_OBJECT, "there is no pseudowire %u, only 1 to %d", pwId, KV_SIM_PWS);
        if (device->pws[pwId - 1].provisioned)
            return fail(EXISTS, "pseudowire %u is provisioned already", pwId);
        if (!isValid(*in))
            return BAD_VALUE;
        Pw &pw = device.modify(device->pws[pwId - 1]);
        pw = {};
        pw.config = *in;
        pw.provisioned = 1;
        return KV_OK;
    });
}

kvRc config_set_pw(const pwConfig *in, uint32_t pwId)
{
    return setter(
        Function::config_set_pw, {pwId}, in, withPw(pwId, [=](Transaction &device, Pw &found) {
            if (!isValid(*in))
                return BAD_VALUE;
            if (in->pweType != found.config.pweType)
                return fail(WRONG_STATE, "pseudowire %u is of type %u and can't become %u", pwId,
                            found.config.pweType, in->pweType);
            device.modify(found.config) = *in;
            return KV_OK;
        }));
}

kvRc config_del_pw(uint32_t pwId)
{
    return action(Function::config_del_pw, {pwId},
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      device.modify(found.provisioned) = 0;
                      return setAlarms(device, OBJ_PWE, pwId, found.alarms, 0);
                  }));
}

kvRc config_get_pw_oper_state(operState *out, uint32_t pwId)
{
    return getter(Function::config_get_pw_oper_state, {pwId}, out,
                  withPw(pwId, [=](Transaction &, Pw &found) {
                      *out = operStateOf(found.config.adminStatus, false, found.alarms);
                      return KV_OK;
                  }));
}

kvRc config_set_pw_admin(adminStatus value, uint32_t pwId)
{
    return action(Function::config_set_pw_admin, {pwId, value},
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      if (!inRange("administrative status", value, 3))
                          return BAD_VALUE;
                      device.modify(found.config.adminStatus) = value;
                      return KV_OK;
                  }));
}

kvRc config_get_pw_admin(adminStatus *out, uint32_t pwId)
{
    return getter(Function::config_get_pw_admin, {pwId}, out,
                  withPw(pwId, [=](Transaction &, Pw &found) {
                      *out = found.config.adminStatus;
                      return KV_OK;
                  }));
}

kvRc config_set_pw_jitter_size(uint32_t size, uint32_t pwId)
{
    return action(Function::config_set_pw_jitter_size, {pwId, size},
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      if (!isTdm(found.config.pweType))
                          return fail(WRONG_STATE, "pseudowire %u has no jitter buffer", pwId);
                      if (!inRange("jitter buffer size", size, JITTER_MAX))
                          return BAD_VALUE;
                      device.modify(found.config.jitterBufferSize) = size;
                      return KV_OK;
                  }));
}

kvRc config_set_pw_ais(uint32_t force, uint32_t pwId)
{
    return action(Function::config_set_pw_ais, {pwId, force},
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      if (!upTo("forced AIS", force, 1))
                          return BAD_VALUE;
                      if (!isAtm(found.config.pweType))
                          return fail(WRONG_STATE, "pseudowire %u is not ATM", pwId);
                      device.modify(found.config.aisForced) = force;
                      return KV_OK;
                  }));
}

kvRc config_add_pw_atm_xc(const pwAtmXc *in, uint32_t pwId)
{
    return setter(Function::config_add_pw_atm_xc, {pwId}, in,
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      if (!isAtm(found.config.pweType))
                          return fail(WRONG_STATE, "pseudowire %u is not ATM", pwId);
                      if (!inRange("cross-connect type", in->xcType, 3))
                          return BAD_VALUE;
                      if (findXc(found.config, *in) < xcCount(found.config))
                          return fail(EXISTS, "pseudowire %u has this cross-connect already", pwId);
                      const uint32_t count = xcCount(found.config);
                      if (count == PW_ATM_XC_MAX)
                          return fail(FULL, "pseudowire %u has %u cross-connects, no more can be",
                                      pwId, PW_ATM_XC_MAX);
                      pwConfig &config = device.modify(found.config);
                      config.atmXc[count] = *in;
                      config.atmXcCount = count + 1;
                      return KV_OK;
                  }));
}

kvRc config_del_pw_atm_xc(const pwAtmXc *in, uint32_t pwId)
{
    return setter(Function::config_del_pw_atm_xc, {pwId}, in,
                  withPw(pwId, [=](Transaction &device, Pw &found) {
                      if (!isAtm(found.config.pweType))
                          return fail(WRONG_STATE, "pseudowire %u is not ATM", pwId);
                      const uint32_t count = xcCount(found.config);
                      uint32_t i = findXc(found.config, *in);
                      if (i >= count)
                          return fail(NO_OBJECT, "pseudowire %u has no such cross-connect", pwId);
                      pwConfig &config = device.modify(found.config);
                      for (; i + 1 < count; ++i)
                          config.atmXc[i] = config.atmXc[i + 1];
                      config.atmXcCount = count - 1;
                      return KV_OK;
                  }));
}

kvRc config_get_pw_all_prov(pwProvList *out)
{
    return getter(Function::config_get_pw_all_prov, {}, out, [=](Transaction &device) {
        out->count = 0;
        for (uint32_t i = 0; i < KV_SIM_PWS; ++i)
            if (device->pws[i].provisioned)
                out->pwIds[out->count++] = static_cast<uint16_t>(i + 1);
        return KV_OK;
    });
}

const char *config_pwe_srv_type_to_string(pweType type)
{
    static constexpr const char *names[] = {"none",  "tdm-1", "tdm-2", "atm-3",
                                            "atm-4", "5",     "type-6"};
    Call entry{Function::config_pwe_srv_type_to_string, {type}};
    entry.enter();
    if (entry.code() != KV_OK)
        return nullptr;
    return isType(type) ? names[type] : "unknown";
}
