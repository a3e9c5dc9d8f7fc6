#include "describe.h"

namespace describe
{

namespace
{

template <class T>
struct Element {
    using type = T;
    static constexpr uint32_t count = 1;
};

template <class T, size_t n>
struct Element<T[n]> {
    using type = T;
    static constexpr uint32_t count = n;
};

// Texts and MAC addresses are one element each.
template <size_t n>
struct Element<char[n]> {
    using type = char[n];
    static constexpr uint32_t count = 1;
};

template <size_t n, size_t size>
struct Element<char[n][size]>
{
    using type = char[size];
    static constexpr uint32_t count = n;
};

template <>
struct Element<uint8_t[6]> {
    using type = uint8_t[6];
    static constexpr uint32_t count = 1;
};

template <class T>
const Type &elementType()
{
    if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, char>) {
        static const Type text{Kind::text, "text", sizeof(T), {}, {}};
        return text;
    } else if constexpr (std::is_array_v<T>) {
        static const Type mac{Kind::mac, "MAC address", sizeof(T), {}, {}};
        return mac;
    } else {
        return typeOf<T>();
    }
}

template <class T>
Field field(const char *name, size_t offset, Options options = {})
{
    const Type *type = options.type ? options.type : &elementType<typename Element<T>::type>();
    return {name, type, static_cast<uint32_t>(offset), Element<T>::count, options};
}

} // namespace

#define ENUMERATION(T, first, last, ...)                                                           \
    template <>                                                                                    \
    const Type &typeOf<T>()                                                                        \
    {                                                                                              \
        static const std::initializer_list<Member> members{__VA_ARGS__};                           \
        static const Type type{Kind::enumeration, #T, sizeof(T), members, {}, first, last};        \
        return type;                                                                               \
    }

#define RECORD(T, ...)                                                                             \
    template <>                                                                                    \
    const Type &typeOf<T>()                                                                        \
    {                                                                                              \
        using Record [[maybe_unused]] = T;                                                         \
        static const std::initializer_list<Field> fields{__VA_ARGS__};                             \
        static const Type type{Kind::record, #T, sizeof(T), {}, fields};                           \
        return type;                                                                               \
    }

// A field; what is particular to it follows as designated initialisers of Options.
#define F(member, ...)                                                                             \
    field<decltype(Record::member)>(#member, offsetof(Record, member), Options{__VA_ARGS__})
#define LIMIT(value)                                                                               \
    .limit = [](const void *record) -> uint32_t {                                                  \
        [[maybe_unused]] const Record &r = *static_cast<const Record *>(record);                   \
        return value;                                                                              \
    }
#define FLAGGED(member, ...)                                                                       \
    F(member, .flag = #member "Valid", KEPT __VA_OPT__(, ) __VA_ARGS__),                           \
        F(member##Valid, .hidden = true)
// What may be left out of a record that is given.
#define LEFT_OUT(text) .leftOut = text
#define KEPT LEFT_OUT("flagged: left out, it is kept")
#define NON_ZERO LEFT_OUT("non-zero: 0 keeps it")
#define TWO_STATE(one, two) LEFT_OUT("two-state: 1 " one ", 2 " two)
// A condition on the record that the field is in, by the field that it depends on.
#define WHEN_BY(field, condition) WHEN(condition), .by = #field
#define WHEN(condition) .when = ON_RECORD(condition)
#define ON_RECORD(condition)                                                                       \
    [](const void *record) {                                                                       \
        const Record &r = *static_cast<const Record *>(record);                                    \
        return condition;                                                                          \
    }

const Type HEXADECIMAL{.kind = Kind::word,
                       .name = "number",
                       .size = sizeof(uint32_t),
                       .members = {},
                       .fields = {},
                       .hexadecimal = true};

template <>
const Type &typeOf<uint32_t>()
{
    static const Type word{Kind::word, "number", sizeof(uint32_t), {}, {}};
    return word;
}

// Arguments: a text that is given, and a MAC address.
template <>
const Type &typeOf<char>()
{
    static const Type text{Kind::text, "text", 0, {}, {}};
    return text;
}

template <>
const Type &typeOf<unsigned char>()
{
    return elementType<uint8_t[6]>();
}

// The result has no row of its own.
template <>
const Type &typeOf<vexoResult>()
{
    static const Type none{Kind::record, "vexoResult", sizeof(vexoResult), {}, {}};
    return none;
}

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

RECORD(vexoSwVersion, F(text))
RECORD(vexoSysInventory, F(text1), F(text2), F(text3), F(text4), F(text5), F(numberHigh),
       F(numberLow))
RECORD(vexoSysStatus, F(state), F(values1), F(version), F(values2))

RECORD(vexoPdhParamsIn, F(adminStatus), F(frameMode), F(lineCode), F(cableLength, LIMIT(0xFFFF)),
       F(syncMode), F(syncParam), F(niuMode), F(auxParam))
RECORD(vexoPdhParamsOut, F(adminStatus), F(operState), F(frameMode), F(lineCode), F(cableLength),
       F(syncMode), F(syncParam), F(niuMode), F(loopback), F(auxParam))
RECORD(vexoPdhSync, F(mode), F(param))

// The two arrangements of a port's line counters, as a person sees them. Which one a port has shows
// in where its flag was written.
namespace
{

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

} // namespace

RECORD(PdhLayout0, F(counters), F(intervalFlag))
RECORD(PdhLayout1, F(counters), F(intervalFlag))

#define PDH_LINE(name, layout, ...)                                                                \
    field<layout>(name, offsetof(Record, lineCounters), Options{__VA_ARGS__})
RECORD(vexoPdhPm, F(pmType), F(lineCounters, .hidden = true),
       PDH_LINE("layout0", PdhLayout0, WHEN(r.lineCounters[PDH_FLAG_0] <= 1)),
       PDH_LINE("layout1", PdhLayout1,
                WHEN(r.lineCounters[PDH_FLAG_0] > 1 && r.lineCounters[PDH_FLAG_1] <= 1)),
       F(commonCounters))

#define TAG WHEN_BY(mode, r.mode != VEXO_VLAN_MODE_UNTAGGED)
#define DOUBLE_TAG WHEN_BY(mode, r.mode == VEXO_VLAN_MODE_DOUBLE)
RECORD(vexoPweVlan, F(mode), FLAGGED(outerVlanId, DOUBLE_TAG, LIMIT(0xFFFF)),
       FLAGGED(outerPriority, DOUBLE_TAG, LIMIT(0xFF)), FLAGGED(vlanId, TAG, LIMIT(0xFFFF)),
       FLAGGED(priority, TAG, LIMIT(0xFF)))

// By the type of the encapsulation, as far as a type has parameters.
#define PSN_1 WHEN_BY(psnType, r.psnType == VEXO_PWE_PSN_TYPE_1)
#define PSN_3 WHEN_BY(psnType, r.psnType == VEXO_PWE_PSN_TYPE_3)
#define PSN_1_3                                                                                    \
    WHEN_BY(psnType, r.psnType == VEXO_PWE_PSN_TYPE_1 || r.psnType == VEXO_PWE_PSN_TYPE_3)
#define PSN_1_2_3                                                                                  \
    WHEN_BY(psnType, r.psnType >= VEXO_PWE_PSN_TYPE_1 && r.psnType <= VEXO_PWE_PSN_TYPE_3)
RECORD(vexoPwePsn, F(psnType), F(udpMode, PSN_3), FLAGGED(param1, PSN_1_2_3),
       FLAGGED(param2, PSN_1_2_3),
       FLAGGED(param3, PSN_1_3, LIMIT(r.psnType == VEXO_PWE_PSN_TYPE_1 ? 0xFF : 0xFFFFFFFF)),
       FLAGGED(param4, PSN_1, LIMIT(0xFF)), F(reserved, .hidden = true))

#define RTP_BUT_MODE FLAGGED(payloadType, LIMIT(0xFF)), FLAGGED(ssrc), F(reserved, .hidden = true)
RECORD(vexoPweRtp, F(mode, LEFT_OUT("two-state: left out, it is kept")), RTP_BUT_MODE)

namespace
{

// Of a whole pseudowire: its mode is applied always.
const Type &rtpOfService()
{
    using Record = vexoPweRtp;
    static const std::initializer_list<Field> fields{F(mode), RTP_BUT_MODE};
    static const Type type{Kind::record, "vexoPweRtp", sizeof(Record), {}, fields};
    return type;
}

} // namespace

#define SIZES F(jitterBufferSize, NON_ZERO), F(payloadSize, NON_ZERO)
#define RTP F(rtp, .type = &rtpOfService())
#define CLEAR_OR_SET TWO_STATE("clears", "sets")
RECORD(vexoPweServiceT1, F(circuit), SIZES, RTP, F(reserved, .hidden = true))
RECORD(vexoPweServiceT2, F(circuit), FLAGGED(serviceOption), SIZES,
       F(serviceFlag, TWO_STATE("sets", "clears")), RTP)
RECORD(vexoPweServiceA, F(circuit), F(payloadSize, NON_ZERO), F(serviceOption, NON_ZERO),
       F(serviceFlag, CLEAR_OR_SET), F(atmMode), F(atmType), F(atmFlag1, CLEAR_OR_SET),
       F(atmFlag2, CLEAR_OR_SET), F(atmClpMode), F(atmParam1), F(atmParam2),
       F(reserved, .hidden = true))

#define SERVICE                                                                                    \
    field<vexoPweServiceT1>("t1", offsetof(Record, service),                                       \
                            Options{WHEN_BY(pweType, r.pweType == VEXO_PWE_TYPE_TDM_1)}),          \
        field<vexoPweServiceT2>("t2", offsetof(Record, service),                                   \
                                Options{WHEN_BY(pweType, r.pweType == VEXO_PWE_TYPE_TDM_2)}),      \
        field<vexoPweServiceA>("a", offsetof(Record, service),                                     \
                               Options{WHEN_BY(pweType, r.pweType == VEXO_PWE_TYPE_ATM_3 ||        \
                                                            r.pweType == VEXO_PWE_TYPE_ATM_4)})

// A delete reads nothing else.
#define ACTION(member, deletion)                                                                   \
    F(member, LEFT_OUT("left out, it is modify"), .alone = ON_RECORD(r.member == deletion))
RECORD(vexoPweParams, F(pweType), ACTION(pweAction, VEXO_PWE_ACTION_DELETE), F(adminStatus),
       F(dstMac), F(reserved, .hidden = true), F(vlan), F(psn), SERVICE)

namespace
{

const Type &provisioning()
{
    static constexpr Member members[] = {{VEXO_PWE_ACTION_DELETE, "not-provisioned"},
                                         {VEXO_PWE_ACTION_CREATE, "provisioned"}};
    static const Type type{
        Kind::enumeration,      "vexoPweAction",       sizeof(vexoPweAction), members, {},
        VEXO_PWE_ACTION_DELETE, VEXO_PWE_ACTION_CREATE};
    return type;
}

} // namespace

RECORD(vexoPweParamsInfo, F(pweType), F(pweAction, .type = &provisioning()), F(adminStatus),
       F(operState), F(srcMac), F(dstMac), F(vlan), F(psn), SERVICE)

RECORD(vexoPweAtmXc, F(xcType), F(xcId1, LIMIT(0xFFFF)), F(xcId2, LIMIT(0xFFFF)),
       F(xcId3, LIMIT(0xFFFF)), F(xcId4, LIMIT(0xFFFF)))
RECORD(vexoPweGenPm, F(counters), F(valid))
RECORD(vexoPweAtmPm, F(counters), F(valid))

// Which of the two shows in where the flag was written.
#define PM_BODY                                                                                    \
    field<vexoPweGenPm>("generic", offsetof(Record, body),                                         \
                        Options{WHEN(r.body.generic.valid <= 1)}),                                 \
        field<vexoPweAtmPm>("atm", offsetof(Record, body),                                         \
                            Options{WHEN(r.body.generic.valid > 1 && r.body.atm.valid <= 1)})
RECORD(vexoPwePm, F(pmType), F(pweType), PM_BODY)

namespace
{

bool isTdm(vexoPweType type)
{
    return type == VEXO_PWE_TYPE_TDM_1 || type == VEXO_PWE_TYPE_TDM_2;
}

bool isAtm(vexoPweType type)
{
    return type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4;
}

} // namespace

RECORD(vexoPweOmEntry, F(words), F(counters))
RECORD(vexoPweOm, F(pweType),
       field<uint32_t[2]>("tdmCounters", offsetof(Record, counters),
                          Options{WHEN_BY(pweType, isTdm(r.pweType))}),
       field<uint32_t[4]>("atmCounters", offsetof(Record, counters),
                          Options{WHEN_BY(pweType, isAtm(r.pweType))}),
       F(entries, WHEN_BY(pweType, isAtm(r.pweType))))

RECORD(vexoImaGroupSet, ACTION(imaAction, VEXO_IMA_ACTION_DELETE), F(groupParam1), F(groupParam2),
       F(groupParam3, NON_ZERO))
RECORD(vexoImaGroupState, F(words))
RECORD(vexoImaLinkState, F(linkId), F(words))
RECORD(vexoImaParams, F(groupParam1), F(groupParam2), F(groupParam3), F(groupState), F(linkCount),
       F(links, .count = "linkCount"))
RECORD(vexoImaLinkPm, F(linkId), F(intervalFlag), F(counters))
RECORD(vexoImaGroupPm, F(intervalFlag), F(counters), F(linkCount), F(links, .count = "linkCount"))
RECORD(vexoImaLinkOm, F(counters))
RECORD(vexoImaOm, F(counters), F(linkCount), F(links, .count = "linkCount"))

RECORD(vexoSysInfo, F(linkStatus), F(linkSpeed, .optional = true), F(linkParam), F(linkFlag),
       F(linkMode, .optional = true), F(om))
RECORD(vexoUpgradeInfo, F(mode), F(fileName, LIMIT(64)), F(state, LEFT_OUT("never taken")))
RECORD(vexoDebugInfo, F(state), F(info))
RECORD(vexoTpgmStatus, F(words))

RECORD(vexoAlarmObject, F(objId), F(status, .type = &HEXADECIMAL), F(delta, .type = &HEXADECIMAL))
RECORD(vexoAlarmIma, F(imaType), F(groupId), F(linkId), F(status, .type = &HEXADECIMAL),
       F(delta, .type = &HEXADECIMAL))
RECORD(vexoAlarmNotification, F(objType),
       F(object, WHEN_BY(objType, r.objType != VEXO_OBJ_TYPE_IMA)),
       F(ima, WHEN_BY(objType, r.objType == VEXO_OBJ_TYPE_IMA)))

// The record of a report is used again: it tells only when it was all UNTOUCHED before.
RECORD(vexoPmPwe, F(pweType), F(interval), F(pwId), PM_BODY)
RECORD(vexoPmIma, F(interval), F(groupId), F(group))
RECORD(vexoPmNotification, F(objType), F(pdh, WHEN_BY(objType, r.objType == VEXO_OBJ_TYPE_PDH)),
       F(pwe, WHEN_BY(objType, r.objType == VEXO_OBJ_TYPE_PWE)),
       F(ima, WHEN_BY(objType, r.objType == VEXO_OBJ_TYPE_IMA)))

std::span<const Type *const> records()
{
    static const Type *const all[] = {
        &typeOf<vexoSwVersion>(),   &typeOf<vexoSysInventory>(),  &typeOf<vexoSysStatus>(),
        &typeOf<vexoPdhParamsIn>(), &typeOf<vexoPdhParamsOut>(),  &typeOf<vexoPdhSync>(),
        &typeOf<vexoPdhPm>(),       &typeOf<vexoPweVlan>(),       &typeOf<vexoPwePsn>(),
        &typeOf<vexoPweRtp>(),      &typeOf<vexoPweServiceT1>(),  &typeOf<vexoPweServiceT2>(),
        &typeOf<vexoPweServiceA>(), &typeOf<vexoPweParams>(),     &typeOf<vexoPweParamsInfo>(),
        &typeOf<vexoPweAtmXc>(),    &typeOf<vexoPweGenPm>(),      &typeOf<vexoPweAtmPm>(),
        &typeOf<vexoPwePm>(),       &typeOf<vexoPweOmEntry>(),    &typeOf<vexoPweOm>(),
        &typeOf<vexoImaGroupSet>(), &typeOf<vexoImaGroupState>(), &typeOf<vexoImaLinkState>(),
        &typeOf<vexoImaParams>(),   &typeOf<vexoImaLinkPm>(),     &typeOf<vexoImaGroupPm>(),
        &typeOf<vexoImaLinkOm>(),   &typeOf<vexoImaOm>(),         &typeOf<vexoSysInfo>(),
        &typeOf<vexoUpgradeInfo>(), &typeOf<vexoDebugInfo>(),     &typeOf<vexoTpgmStatus>(),
        &typeOf<vexoAlarmObject>(), &typeOf<vexoAlarmIma>(),      &typeOf<vexoAlarmNotification>(),
        &typeOf<vexoPmPwe>(),       &typeOf<vexoPmIma>(),         &typeOf<vexoPmNotification>(),
    };
    return all;
}

} // namespace describe
