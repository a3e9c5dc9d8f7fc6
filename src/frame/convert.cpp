#include "frame/table.h"
#include "frame/text.h"

#include <kv_config.h>
#include <vexo_cmi/convert.h>

using frame::identity;
using frame::Pair;
using frame::Table;
using frame::toCmi;
using frame::toPlatform;

namespace tables
{

constexpr Table tdmMode = identity<3>();
constexpr Table adminStatus{{Pair{1, 2}, {2, 1}, {3, 3}}};
constexpr Table frameMode = identity<6>();
constexpr Table lineCode = identity<4>();
constexpr Table niuMode = identity<4>();
constexpr Table syncMode = identity<5>();
constexpr Table loopback{{Pair{1, 1}, {2, 2}, {3, 3}, {4, 7}}};
constexpr Table pmType = identity<4>();
constexpr Table interval = identity<3>();
constexpr Table vlanMode = identity<4>();
constexpr Table udpMode = identity<3>();
constexpr Table pweType{{Pair{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 6}}};
constexpr Table psnType{{Pair{1, 2}, {2, 3}, {3, 4}, {4, 1}, {5, 5}}};
constexpr Table xcType{{Pair{1, 2}, {2, 3}, {3, 1}}};
constexpr Table alarmBit{{Pair{1, 2}, {2, 4}}};
constexpr Table atmMode = identity<2>();
constexpr Table atmType = identity<2>();
constexpr Table clpMode = identity<4>();
constexpr Table netQuality = identity<2>();
constexpr Table upgradeMode = identity<2>();

// Read in one direction only: towards the CMI.
constexpr Table moduleState{{Pair{0, 0}, {2, 2}, {3, 3}, {4, 4}, {5, 6}}};
constexpr Table operState{{Pair{2, 1}, {3, 2}, {1, 3}, {4, 4}, {5, 5}}};
constexpr Table alarmedObject{
    {Pair{1, OBJ_SYSTEM}, {2, OBJ_PDH}, {4, OBJ_IMA_GROUP}, {3, OBJ_PWE}, {4, OBJ_IMA_LINK}}};
constexpr Table upgradeState = identity<6>();
constexpr Table debugState = identity<3>();

} // namespace tables

eqptMode vexoTdmMode_to_eqptMode(vexoTdmMode value)
{
    return toPlatform<eqptMode, tables::tdmMode>(value);
}

vexoTdmMode eqptMode_to_vexoTdmMode(eqptMode value)
{
    return toCmi<vexoTdmMode, tables::tdmMode>(value);
}

vexoModuleState operState_to_vexoModuleState(operState value)
{
    return toCmi<vexoModuleState, tables::moduleState, 1>(value);
}

vexoOperState operState_to_vexoOperState(operState value)
{
    return toCmi<vexoOperState, tables::operState>(value);
}

adminStatus vexoAdminStatus_to_adminStatus(vexoAdminStatus value)
{
    return toPlatform<adminStatus, tables::adminStatus>(value);
}

vexoAdminStatus adminStatus_to_vexoAdminStatus(adminStatus value)
{
    return toCmi<vexoAdminStatus, tables::adminStatus>(value);
}

pdhFrameMode vexoPdhFrameMode_to_pdhFrameMode(vexoPdhFrameMode value)
{
    return toPlatform<pdhFrameMode, tables::frameMode>(value);
}

vexoPdhFrameMode pdhFrameMode_to_vexoPdhFrameMode(pdhFrameMode value)
{
    return toCmi<vexoPdhFrameMode, tables::frameMode>(value);
}

pdhCode vexoPdhCode_to_pdhCode(vexoPdhCode value)
{
    return toPlatform<pdhCode, tables::lineCode>(value);
}

vexoPdhCode pdhCode_to_vexoPdhCode(pdhCode value)
{
    return toCmi<vexoPdhCode, tables::lineCode>(value);
}

pdhNiuMode vexoPdhNiuMode_to_pdhNiuMode(vexoPdhNiuMode value)
{
    return toPlatform<pdhNiuMode, tables::niuMode>(value);
}

vexoPdhNiuMode pdhNiuMode_to_vexoPdhNiuMode(pdhNiuMode value)
{
    return toCmi<vexoPdhNiuMode, tables::niuMode>(value);
}

pdhClockMode vexoPdhSyncMode_to_pdhClockMode(vexoPdhSyncMode value)
{
    return toPlatform<pdhClockMode, tables::syncMode>(value);
}

vexoPdhSyncMode pdhClockMode_to_vexoPdhSyncMode(pdhClockMode value)
{
    return toCmi<vexoPdhSyncMode, tables::syncMode>(value);
}

lpbk vexoLpbk_to_lpbk(vexoLpbk value)
{
    return toPlatform<lpbk, tables::loopback>(value);
}

vexoLpbk lpbk_to_vexoLpbk(lpbk value)
{
    return toCmi<vexoLpbk, tables::loopback>(value);
}

pmInterval vexoPmType_to_pmInterval(vexoPmType value)
{
    return toPlatform<pmInterval, tables::pmType>(value);
}

pmInterval vexoPmInterval_to_pmInterval(vexoPmInterval value)
{
    return toPlatform<pmInterval, tables::interval>(value);
}

vexoPmInterval pmInterval_to_vexoPmInterval(pmInterval value)
{
    return toCmi<vexoPmInterval, tables::interval>(value);
}

tagMode vexoVlanMode_to_tagMode(vexoVlanMode value)
{
    return toPlatform<tagMode, tables::vlanMode>(value);
}

vexoVlanMode tagMode_to_vexoVlanMode(tagMode value)
{
    return toCmi<vexoVlanMode, tables::vlanMode>(value);
}

pweIpUdpMode vexoPweUdpMode_to_pweIpUdpMode(vexoPweUdpMode value)
{
    return toPlatform<pweIpUdpMode, tables::udpMode>(value);
}

vexoPweUdpMode pweIpUdpMode_to_vexoPweUdpMode(pweIpUdpMode value)
{
    return toCmi<vexoPweUdpMode, tables::udpMode>(value);
}

pweType vexoPweType_to_pweType(vexoPweType value)
{
    return toPlatform<pweType, tables::pweType>(value);
}

vexoPweType pweType_to_vexoPweType(pweType value)
{
    return toCmi<vexoPweType, tables::pweType>(value);
}

pweEncType vexoPwePsnType_to_pweEncType(vexoPwePsnType value)
{
    return toPlatform<pweEncType, tables::psnType>(value);
}

vexoPwePsnType pweEncType_to_vexoPwePsnType(pweEncType value)
{
    return toCmi<vexoPwePsnType, tables::psnType>(value);
}

vexoObjType objType_to_vexoObjType(objType value)
{
    return toCmi<vexoObjType, tables::alarmedObject>(value);
}

pweAtmXcType vexoPweAtmXcType_to_pweAtmXcType(vexoPweAtmXcType value)
{
    return toPlatform<pweAtmXcType, tables::xcType>(value);
}

vexoPweAtmXcType pweAtmXcType_to_vexoPweAtmXcType(pweAtmXcType value)
{
    return toCmi<vexoPweAtmXcType, tables::xcType>(value);
}

alarmMode vexoAlarmMode_to_alarmMode(vexoAlarmMode value)
{
    return toPlatform<alarmMode, tables::alarmBit>(value);
}

// The platform's mode is a set of bits: the table's first bit that is set decides.
vexoAlarmMode alarmMode_to_vexoAlarmMode(alarmMode value)
{
    for (const Pair &bit : tables::alarmBit.pairs)
        if (value & bit.platform)
            return static_cast<vexoAlarmMode>(bit.cmi);
    return vexoAlarmMode{};
}

atmMode vexoAtmMode_to_atmMode(vexoAtmMode value)
{
    return toPlatform<atmMode, tables::atmMode, 2>(value);
}

vexoAtmMode atmMode_to_vexoAtmMode(atmMode value)
{
    return toCmi<vexoAtmMode, tables::atmMode>(value);
}

atmType vexoAtmType_to_atmType(vexoAtmType value)
{
    return toPlatform<atmType, tables::atmType, 1>(value);
}

vexoAtmType atmType_to_vexoAtmType(atmType value)
{
    return toCmi<vexoAtmType, tables::atmType>(value);
}

atmClpMap vexoAtmClpMode_to_atmClpMap(vexoAtmClpMode value)
{
    return toPlatform<atmClpMap, tables::clpMode, 1>(value);
}

vexoAtmClpMode atmClpMap_to_vexoAtmClpMode(atmClpMap value)
{
    return toCmi<vexoAtmClpMode, tables::clpMode>(value);
}

psnNetType vexoNetQuality_to_psnNetType(vexoNetQuality value)
{
    return toPlatform<psnNetType, tables::netQuality>(value);
}

vexoNetQuality psnNetType_to_vexoNetQuality(psnNetType value)
{
    return toCmi<vexoNetQuality, tables::netQuality>(value);
}

UpgradeMode vexoUpgradeMode_to_UpgradeMode(vexoUpgradeMode value)
{
    return toPlatform<UpgradeMode, tables::upgradeMode, 1>(value);
}

vexoUpgradeMode UpgradeMode_to_vexoUpgradeMode(UpgradeMode value)
{
    return toCmi<vexoUpgradeMode, tables::upgradeMode>(value);
}

vexoUpgradeState UpgradeState_to_vexoUpgradeState(UpgradeState value)
{
    return toCmi<vexoUpgradeState, tables::upgradeState, 1>(value);
}

vexoDebugState DebugState_to_vexoDebugState(DebugState value)
{
    return toCmi<vexoDebugState, tables::debugState, 1>(value);
}

void swVersion_to_vexoSwVersion(const swVersion *src, vexoSwVersion *dst)
{
    constexpr unsigned GORV = VEXO_SW_VERSION_GORV;
    for (unsigned i = 0; i < GORV; ++i)
        frame::copyText(dst->text[i], src->text[i]);
    gorvGetVersion(dst->text[GORV], sizeof dst->text[GORV]);
    for (unsigned i = GORV + 1; i < 10; ++i)
        frame::copyText(dst->text[i], src->text[i]);
}
