// The library's records in the words of `vexoctl config save`.
#pragma once

#define JSON_DIAGNOSTICS 1 // an error tells where in the document it is
#include <nlohmann/json.hpp>
#include <vexo_cmi.h>

#include <cstdio>
#include <string>

using Json = nlohmann::json;

// What is none of them becomes the first one, and so differs from what was given.
NLOHMANN_JSON_SERIALIZE_ENUM(vexoPweType,
                             {{vexoPweType{}, nullptr}, {VEXO_PWE_TYPE_TDM_1, "tdm-1"}})
NLOHMANN_JSON_SERIALIZE_ENUM(vexoVlanMode, {{vexoVlanMode{}, nullptr},
                                            {VEXO_VLAN_MODE_UNTAGGED, "untagged"},
                                            {VEXO_VLAN_MODE_2, 2},
                                            {VEXO_VLAN_MODE_DOUBLE, "double"},
                                            {VEXO_VLAN_MODE_4, 4}})
NLOHMANN_JSON_SERIALIZE_ENUM(vexoPweRtpMode, {{vexoPweRtpMode{}, nullptr},
                                              {VEXO_PWE_RTP_OFF, "off"},
                                              {VEXO_PWE_RTP_ON, "on"}})

// A record is described once, in both directions: its values go into a Json that can be changed,
// and come from one that can't.
template <class R, class... Records>
concept Of = (std::is_same_v<std::remove_const_t<R>, Records> || ...);

template <class Record>
requires requires(Json json, Record record)
{
    describe(json, record);
}
struct nlohmann::adl_serializer<Record> {
    static void to_json(Json &json, const Record &record) { describe(json, record); }
    static void from_json(const Json &json, Record &record) { describe(json, record); }
};

void field(Json &to, const char *name, const auto &value)
{
    to[name] = value;
}
void field(const Json &from, const char *name, auto &value)
{
    from.at(name).get_to(value);
}

// Told, and to be given, only where the device has it; all else must be given.
inline void flagged(Json &to, const char *name, uint32_t value, uint32_t valid)
{
    if (valid)
        to[name] = value;
}
inline void flagged(const Json &from, const char *name, uint32_t &value, uint32_t &valid)
{
    if ((valid = from.contains(name)))
        from.at(name).get_to(value);
}

inline void field(Json &to, const char *name, const uint8_t (&mac)[6])
{
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    to[name] = text;
}
inline void field(const Json &from, const char *name, uint8_t (&mac)[6])
{
    sscanf(from.at(name).get<std::string>().c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0],
           &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
}

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(vexoPdhParamsIn, adminStatus, frameMode, lineCode, cableLength,
                                   syncMode, syncParam, niuMode, auxParam)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(vexoPdhParamsOut, adminStatus, frameMode, lineCode, cableLength,
                                   syncMode, syncParam, niuMode, auxParam, loopback)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(vexoImaGroupSet, groupParam1, groupParam2, groupParam3)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(vexoImaParams, groupParam1, groupParam2, groupParam3)

void describe(auto &json, Of<vexoPweVlan> auto &record)
{
    field(json, "mode", record.mode);
    flagged(json, "outerVlanId", record.outerVlanId, record.outerVlanIdValid);
    flagged(json, "outerPriority", record.outerPriority, record.outerPriorityValid);
    flagged(json, "vlanId", record.vlanId, record.vlanIdValid);
    flagged(json, "priority", record.priority, record.priorityValid);
}

void describe(auto &json, Of<vexoPwePsn> auto &record)
{
    field(json, "psnType", record.psnType);
    flagged(json, "param1", record.param1, record.param1Valid);
    flagged(json, "param2", record.param2, record.param2Valid);
    flagged(json, "param3", record.param3, record.param3Valid);
    flagged(json, "param4", record.param4, record.param4Valid);
    if (record.psnType == VEXO_PWE_PSN_TYPE_3)
        field(json, "udpMode", record.udpMode);
}

void describe(auto &json, Of<vexoPweRtp> auto &record)
{
    field(json, "mode", record.mode);
    flagged(json, "payloadType", record.payloadType, record.payloadTypeValid);
    flagged(json, "ssrc", record.ssrc, record.ssrcValid);
}

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(vexoPweServiceT1, circuit, jitterBufferSize, payloadSize, rtp)

void describe(auto &json, Of<vexoPweParams, vexoPweParamsInfo> auto &record)
{
    field(json, "pweType", record.pweType);
    field(json, "adminStatus", record.adminStatus);
    field(json, "dstMac", record.dstMac);
    field(json, "vlan", record.vlan);
    field(json, "psn", record.psn);
    if (record.pweType == VEXO_PWE_TYPE_TDM_1)
        field(json, "t1", record.service.t1);
}

// Where something isn't as wanted, in words; empty where it is.
inline std::string difference(const Json &now, const Json &wanted, const std::string &name = {})
{
    if (!now.is_object() || !wanted.is_object())
        return now == wanted ? "" : name + " is " + now.dump() + ", wanted " + wanted.dump();
    std::string all;
    for (const auto &[key, value] : wanted.items()) {
        const std::string one =
            difference(now.value(key, Json{}), value, name.empty() ? key : name + '.' + key);
        all += all.empty() || one.empty() ? one : "; " + one;
    }
    return all;
}
