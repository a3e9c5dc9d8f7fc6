// One row per enumeration and record of the interface; what is given to or answered by operations
// leads to all of them.
#ifndef DESCRIBE_RECORDS_H
#define DESCRIBE_RECORDS_H

#include "describe.h"

namespace describe
{

ENUMERATION(vexoTdmMode, 1, 3)
ENUMERATION(vexoModuleState, 0, 5)
ENUMERATION(vexoOperState, 1, 5)
ENUMERATION(vexoAdminStatus, 1, 3)
ENUMERATION(vexoPdhFrameMode, 1, 6)
ENUMERATION(vexoPdhCode, 1, 4)
ENUMERATION(vexoPdhNiuMode, 1, 4)
ENUMERATION(vexoPdhSyncMode, 1, 5)
ENUMERATION(vexoLpbk, 1, 4)
ENUMERATION(vexoPmType, 1, 4)
ENUMERATION(vexoPmInterval, 1, 3)
ENUMERATION(vexoVlanMode, 1, 4, {VEXO_VLAN_MODE_UNTAGGED, "untagged"},
            {VEXO_VLAN_MODE_DOUBLE, "double"})
ENUMERATION(vexoPweUdpMode, 1, 3)
ENUMERATION(vexoPweType, 1, 5, {VEXO_PWE_TYPE_TDM_1, "tdm-1"}, {VEXO_PWE_TYPE_TDM_2, "tdm-2"},
            {VEXO_PWE_TYPE_ATM_3, "atm-3"}, {VEXO_PWE_TYPE_ATM_4, "atm-4"})
ENUMERATION(vexoPwePsnType, 1, 5)
// What a pseudowire was read as can be given back: it is to stay.
ENUMERATION(vexoPweAction, 0, 2, {VEXO_PWE_ACTION_MODIFY, "modify"},
            {VEXO_PWE_ACTION_DELETE, "delete"}, {VEXO_PWE_ACTION_CREATE, "create"},
            {VEXO_PWE_ACTION_MODIFY, "provisioned"})
ENUMERATION(vexoPweRtpMode, 1, 2, {VEXO_PWE_RTP_OFF, "off"}, {VEXO_PWE_RTP_ON, "on"})
ENUMERATION(vexoAtmMode, 1, 2)
ENUMERATION(vexoAtmType, 1, 2)
ENUMERATION(vexoAtmClpMode, 1, 4)
ENUMERATION(vexoPweAtmXcType, 1, 3)
ENUMERATION(vexoImaAction, 0, 2, {VEXO_IMA_ACTION_MODIFY, "modify"},
            {VEXO_IMA_ACTION_DELETE, "delete"}, {VEXO_IMA_ACTION_CREATE, "create"})
ENUMERATION(vexoImaType, 1, 2, {VEXO_IMA_TYPE_GROUP, "group"}, {VEXO_IMA_TYPE_LINK, "link"})
ENUMERATION(vexoObjType, 1, 4, {VEXO_OBJ_TYPE_SYSTEM, "system"}, {VEXO_OBJ_TYPE_PDH, "pdh"},
            {VEXO_OBJ_TYPE_PWE, "pwe"}, {VEXO_OBJ_TYPE_IMA, "ima"})
ENUMERATION(vexoAlarmMode, 1, 2)
ENUMERATION(vexoNetQuality, 1, 2)
ENUMERATION(vexoUpgradeMode, 1, 2)
ENUMERATION(vexoUpgradeState, 1, 6)
ENUMERATION(vexoDebugState, 1, 3)
ENUMERATION(vexoLinkFlag, 1, 2, {VEXO_LINK_FLAG_CLEAR, "clear"}, {VEXO_LINK_FLAG_SET, "set"})

// What may be left out of a record that is given.
constexpr const char *KEPT = "flagged: left out, it is kept";
constexpr const char *NEVER_TAKEN = "never taken";
constexpr const char *NON_ZERO = "non-zero: 0 keeps it";
constexpr const char *CLEARS_OR_SETS = "two-state: 1 clears, 2 sets";
constexpr const char *SETS_OR_CLEARS = "two-state: 1 sets, 2 clears";

// A field that counts when its flag, the member behind it, is 1.
#define FLAGGED(member, ...)                                                                       \
    F(member, .flag = #member "Valid", .leftOut = KEPT __VA_OPT__(, ) __VA_ARGS__),                \
        F(member##Valid, .hidden = true)

// Limits, by the width that the platform has for the field.
template <class Record, uint32_t value>
constexpr uint32_t upTo(const Record &)
{
    return value;
}

template <class Record>
constexpr auto BYTE = on<upTo<Record, 0xFF>>;
template <class Record>
constexpr auto SHORT = on<upTo<Record, 0xFFFF>>;

RECORD(vexoSwVersion, F(text))
RECORD(vexoSysInventory, F(text1), F(text2), F(text3), F(text4), F(text5), F(numberHigh),
       F(numberLow))
RECORD(vexoSysStatus, F(state, .changes = true), F(values1), F(version), F(values2))

RECORD(vexoPdhParamsIn, F(adminStatus), F(frameMode), F(lineCode),
       F(cableLength, .limit = SHORT<Record>), F(syncMode), F(syncParam), F(niuMode), F(auxParam))
RECORD(vexoPdhParamsOut, F(adminStatus), F(operState, .changes = true), F(frameMode), F(lineCode),
       F(cableLength), F(syncMode), F(syncParam), F(niuMode), F(loopback), F(auxParam))
RECORD(vexoPdhSync, F(mode), F(param))

// The two arrangements of a port's line counters, as people see them. Which one a port has shows in
// where its flag was written.
struct PdhLayout0 {
    uint32_t counters[12];
    uint32_t intervalFlag;
};

struct PdhLayout1 {
    uint32_t counters[7];
    uint32_t intervalFlag;
};

constexpr size_t PDH_FLAG_0 = 12;
constexpr size_t PDH_FLAG_1 = 7;

constexpr bool isLayout0(const vexoPdhPm &pm)
{
    return pm.lineCounters[PDH_FLAG_0] <= 1;
}

constexpr bool isLayout1(const vexoPdhPm &pm)
{
    return !isLayout0(pm) && pm.lineCounters[PDH_FLAG_1] <= 1;
}

RECORD(PdhLayout0, F(counters, .changes = true), F(intervalFlag, .changes = true))
RECORD(PdhLayout1, F(counters, .changes = true), F(intervalFlag, .changes = true))
RECORD(vexoPdhPm, F(pmType), F(lineCounters, .hidden = true),
       field<PdhLayout0>("layout0", offsetof(Record, lineCounters), {.when = on<isLayout0>}),
       field<PdhLayout1>("layout1", offsetof(Record, lineCounters), {.when = on<isLayout1>}),
       F(commonCounters, .changes = true))

constexpr bool isTagged(const vexoPweVlan &vlan)
{
    return vlan.mode != VEXO_VLAN_MODE_UNTAGGED;
}

constexpr bool isDoubleTagged(const vexoPweVlan &vlan)
{
    return vlan.mode == VEXO_VLAN_MODE_DOUBLE;
}

RECORD(vexoPweVlan, F(mode),
       FLAGGED(outerVlanId, .when = on<isDoubleTagged>, .by = "mode", .limit = SHORT<Record>),
       FLAGGED(outerPriority, .when = on<isDoubleTagged>, .by = "mode", .limit = BYTE<Record>),
       FLAGGED(vlanId, .when = on<isTagged>, .by = "mode", .limit = SHORT<Record>),
       FLAGGED(priority, .when = on<isTagged>, .by = "mode", .limit = BYTE<Record>))

// Types of PSN that have a parameter.
template <vexoPwePsnType... types>
constexpr bool isPsn(const vexoPwePsn &psn)
{
    return ((psn.psnType == types) || ...);
}

constexpr auto PSN_1 = on<isPsn<VEXO_PWE_PSN_TYPE_1>>;
constexpr auto PSN_3 = on<isPsn<VEXO_PWE_PSN_TYPE_3>>;
constexpr auto PSN_1_3 = on<isPsn<VEXO_PWE_PSN_TYPE_1, VEXO_PWE_PSN_TYPE_3>>;
constexpr auto PSN_1_2_3 = on<isPsn<VEXO_PWE_PSN_TYPE_1, VEXO_PWE_PSN_TYPE_2, VEXO_PWE_PSN_TYPE_3>>;

constexpr uint32_t limitOfParam3(const vexoPwePsn &psn)
{
    return psn.psnType == VEXO_PWE_PSN_TYPE_1 ? 0xFF : 0xFFFFFFFF;
}

RECORD(vexoPwePsn, F(psnType), F(udpMode, .when = PSN_3, .by = "psnType"),
       FLAGGED(param1, .when = PSN_1_2_3, .by = "psnType"),
       FLAGGED(param2, .when = PSN_1_2_3, .by = "psnType"),
       FLAGGED(param3, .when = PSN_1_3, .by = "psnType", .limit = on<limitOfParam3>),
       FLAGGED(param4, .when = PSN_1, .by = "psnType", .limit = BYTE<Record>),
       F(reserved, .hidden = true))

RECORD(vexoPweRtp, F(mode, .leftOut = "two-state: left out, it is kept"),
       FLAGGED(payloadType, .limit = BYTE<Record>), FLAGGED(ssrc), F(reserved, .hidden = true))

// As a part of a whole pseudowire its mode is applied always.
constexpr auto rtpFieldsOfService = [] {
    auto fields = std::to_array(Row<vexoPweRtp>::fields);
    fields[0].options.leftOut = nullptr;
    return fields;
}();
constexpr Type rtpOfService{Kind::record, "vexoPweRtp", sizeof(vexoPweRtp), {}, rtpFieldsOfService};

RECORD(vexoPweServiceT1, F(circuit, .exclusive = true), F(jitterBufferSize, .leftOut = NON_ZERO),
       F(payloadSize, .leftOut = NON_ZERO), F(rtp, .type = &rtpOfService),
       F(reserved, .hidden = true))
RECORD(vexoPweServiceT2, F(circuit, .exclusive = true), FLAGGED(serviceOption),
       F(jitterBufferSize, .leftOut = NON_ZERO), F(payloadSize, .leftOut = NON_ZERO),
       F(serviceFlag, .leftOut = SETS_OR_CLEARS), F(rtp, .type = &rtpOfService))
RECORD(vexoPweServiceA, F(circuit, .exclusive = true), F(payloadSize, .leftOut = NON_ZERO),
       F(serviceOption, .leftOut = NON_ZERO), F(serviceFlag, .leftOut = CLEARS_OR_SETS), F(atmMode),
       F(atmType), F(atmFlag1, .leftOut = CLEARS_OR_SETS), F(atmFlag2, .leftOut = CLEARS_OR_SETS),
       F(atmClpMode), F(atmParam1), F(atmParam2), F(reserved, .hidden = true))

constexpr bool isTdm(vexoPweType type)
{
    return type == VEXO_PWE_TYPE_TDM_1 || type == VEXO_PWE_TYPE_TDM_2;
}

constexpr bool isAtm(vexoPweType type)
{
    return type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4;
}

template <class Record, vexoPweType... types>
constexpr bool isOfType(const Record &record)
{
    return ((record.pweType == types) || ...);
}

// The parameters of a service lie at the same place.
template <class Service, class Record, vexoPweType... types>
constexpr Field service(const char *name)
{
    return field<Service>(name, offsetof(Record, service),
                          {.when = on<isOfType<Record, types...>>, .by = "pweType"});
}

template <class Record>
constexpr Field T1 = service<vexoPweServiceT1, Record, VEXO_PWE_TYPE_TDM_1>("t1");
template <class Record>
constexpr Field T2 = service<vexoPweServiceT2, Record, VEXO_PWE_TYPE_TDM_2>("t2");
template <class Record>
constexpr Field
    ATM = service<vexoPweServiceA, Record, VEXO_PWE_TYPE_ATM_3, VEXO_PWE_TYPE_ATM_4>("a");

// A delete reads nothing else.
constexpr bool deletes(const vexoPweParams &params)
{
    return params.pweAction == VEXO_PWE_ACTION_DELETE;
}

constexpr bool deletesGroup(const vexoImaGroupSet &group)
{
    return group.imaAction == VEXO_IMA_ACTION_DELETE;
}

constexpr const char *MODIFY = "left out, it is modify";
RECORD(vexoPweParams, F(pweType, .fixed = true),
       F(pweAction, .leftOut = MODIFY, .alone = on<deletes>), F(adminStatus), F(dstMac),
       F(reserved, .hidden = true), F(vlan), F(psn), T1<Record>, T2<Record>, ATM<Record>)

// What a pseudowire is read as.
constexpr Member PROVISIONING[] = {{VEXO_PWE_ACTION_DELETE, "not-provisioned"},
                                   {VEXO_PWE_ACTION_CREATE, "provisioned"}};
constexpr Type provisioning{
    Kind::enumeration,      "vexoPweAction",       sizeof(vexoPweAction), PROVISIONING, {},
    VEXO_PWE_ACTION_DELETE, VEXO_PWE_ACTION_CREATE};

RECORD(vexoPweParamsInfo, F(pweType), F(pweAction, .type = &provisioning), F(adminStatus),
       F(operState, .changes = true), F(srcMac), F(dstMac), F(vlan), F(psn), T1<Record>, T2<Record>,
       ATM<Record>)

RECORD(vexoPweAtmXc, F(xcType), F(xcId1, .limit = SHORT<Record>), F(xcId2, .limit = SHORT<Record>),
       F(xcId3, .limit = SHORT<Record>), F(xcId4, .limit = SHORT<Record>))
RECORD(vexoPweGenPm, F(counters, .changes = true), F(valid, .changes = true))
RECORD(vexoPweAtmPm, F(counters, .changes = true), F(valid, .changes = true))

// Which of the two bodies it is shows in where the flag was written.
template <class Record>
constexpr bool isGeneric(const Record &pm)
{
    return pm.body.generic.valid <= 1;
}

template <class Record>
constexpr bool isAtmBody(const Record &pm)
{
    return !isGeneric(pm) && pm.body.atm.valid <= 1;
}

template <class Record>
constexpr Field GENERIC = field<vexoPweGenPm>("generic", offsetof(Record, body),
                                              {.when = on<isGeneric<Record>>});
template <class Record>
constexpr Field ATM_BODY = field<vexoPweAtmPm>("atm", offsetof(Record, body),
                                               {.when = on<isAtmBody<Record>>});
RECORD(vexoPwePm, F(pmType), F(pweType), GENERIC<Record>, ATM_BODY<Record>)

constexpr bool hasTdmCounters(const vexoPweOm &om)
{
    return isTdm(om.pweType);
}

constexpr bool hasAtmCounters(const vexoPweOm &om)
{
    return isAtm(om.pweType);
}

RECORD(vexoPweOmEntry, F(words), F(counters))
RECORD(vexoPweOm, F(pweType),
       field<uint32_t[2]>("tdmCounters", offsetof(Record, counters),
                          {.when = on<hasTdmCounters>, .by = "pweType"}),
       field<uint32_t[4]>("atmCounters", offsetof(Record, counters),
                          {.when = on<hasAtmCounters>, .by = "pweType"}),
       F(entries, .when = on<hasAtmCounters>, .by = "pweType"))

RECORD(vexoImaGroupSet, F(imaAction, .leftOut = MODIFY, .alone = on<deletesGroup>), F(groupParam1),
       F(groupParam2), F(groupParam3, .leftOut = NON_ZERO))
RECORD(vexoImaGroupState, F(words))
RECORD(vexoImaLinkState, F(linkId), F(words, .changes = true))
RECORD(vexoImaParams, F(groupParam1), F(groupParam2), F(groupParam3),
       F(groupState, .changes = true), F(linkCount), F(links, .count = "linkCount"))
RECORD(vexoImaLinkPm, F(linkId), F(intervalFlag, .changes = true), F(counters, .changes = true))
RECORD(vexoImaGroupPm, F(intervalFlag, .changes = true), F(counters, .changes = true), F(linkCount),
       F(links, .count = "linkCount"))
RECORD(vexoImaLinkOm, F(counters))
RECORD(vexoImaOm, F(counters), F(linkCount), F(links, .count = "linkCount"))

RECORD(vexoSysInfo, F(linkStatus), F(linkSpeed, .optional = true), F(linkParam), F(linkFlag),
       F(linkMode, .optional = true), F(om, .changes = true))
RECORD(vexoUpgradeInfo, F(mode), F(fileName, .limit = on<upTo<Record, 64>>),
       F(state, .leftOut = NEVER_TAKEN))
RECORD(vexoDebugInfo, F(state), F(info))
RECORD(vexoTpgmStatus, F(words))

template <class Record, vexoObjType... types>
constexpr bool isAbout(const Record &notification)
{
    return ((notification.objType == types) || ...);
}

template <class Record>
constexpr auto ABOUT_PDH = on<isAbout<Record, VEXO_OBJ_TYPE_PDH>>;
template <class Record>
constexpr auto ABOUT_PWE = on<isAbout<Record, VEXO_OBJ_TYPE_PWE>>;
template <class Record>
constexpr auto ABOUT_IMA = on<isAbout<Record, VEXO_OBJ_TYPE_IMA>>;

constexpr bool isAboutOneObject(const vexoAlarmNotification &alarm)
{
    return alarm.objType != VEXO_OBJ_TYPE_IMA;
}

RECORD(vexoAlarmObject, F(objId), F(status, .type = &HEXADECIMAL), F(delta, .type = &HEXADECIMAL))
RECORD(vexoAlarmIma, F(imaType), F(groupId), F(linkId), F(status, .type = &HEXADECIMAL),
       F(delta, .type = &HEXADECIMAL))
RECORD(vexoAlarmNotification, F(objType), F(object, .when = on<isAboutOneObject>, .by = "objType"),
       F(ima, .when = ABOUT_IMA<Record>, .by = "objType"))

// The record of a report is used again: it tells only when it was all UNTOUCHED before.
RECORD(vexoPmPwe, F(pweType), F(interval), F(pwId), GENERIC<Record>, ATM_BODY<Record>)
RECORD(vexoPmIma, F(interval), F(groupId), F(group))
RECORD(vexoPmNotification, F(objType), F(pdh, .when = ABOUT_PDH<Record>, .by = "objType"),
       F(pwe, .when = ABOUT_PWE<Record>, .by = "objType"),
       F(ima, .when = ABOUT_IMA<Record>, .by = "objType"))

} // namespace describe

#endif
