/**
 * @file convert.h
 * @brief Translation of every enumeration to and from the platform's.
 *
 * Pure functions, defined for every 32-bit value, callable from anywhere. An
 * operation applies them by itself; an agent needs them only where it also talks to
 * the platform directly. Where it includes the platform's own headers, which define
 * these types, it defines VEXO_CMI_PLATFORM_TYPES and includes them first; an
 * enumeration is passed as 32 bits. A value that is no member gives the default:
 * 0, or what is named here.
 */
#ifndef VEXO_CMI_CONVERT_H
#define VEXO_CMI_CONVERT_H

#include <vexo_cmi/sys.h>
#include <vexo_cmi/values.h>

#ifndef VEXO_CMI_PLATFORM_TYPES
VEXO_CMI_OPAQUE_ENUM(eqptMode);
VEXO_CMI_OPAQUE_ENUM(operState);
VEXO_CMI_OPAQUE_ENUM(adminStatus);
VEXO_CMI_OPAQUE_ENUM(pdhFrameMode);
VEXO_CMI_OPAQUE_ENUM(pdhCode);
VEXO_CMI_OPAQUE_ENUM(pdhNiuMode);
VEXO_CMI_OPAQUE_ENUM(pdhClockMode);
VEXO_CMI_OPAQUE_ENUM(lpbk);
VEXO_CMI_OPAQUE_ENUM(pmInterval);
VEXO_CMI_OPAQUE_ENUM(tagMode);
VEXO_CMI_OPAQUE_ENUM(pweIpUdpMode);
VEXO_CMI_OPAQUE_ENUM(pweType);
VEXO_CMI_OPAQUE_ENUM(pweEncType);
VEXO_CMI_OPAQUE_ENUM(objType);
VEXO_CMI_OPAQUE_ENUM(pweAtmXcType);
VEXO_CMI_OPAQUE_ENUM(alarmMode);
VEXO_CMI_OPAQUE_ENUM(atmMode);
VEXO_CMI_OPAQUE_ENUM(atmType);
VEXO_CMI_OPAQUE_ENUM(atmClpMap);
VEXO_CMI_OPAQUE_ENUM(psnNetType);
VEXO_CMI_OPAQUE_ENUM(UpgradeMode);
VEXO_CMI_OPAQUE_ENUM(UpgradeState);
VEXO_CMI_OPAQUE_ENUM(DebugState);
#endif

/** The platform's software version record; defined by the platform. */
struct swVersion;

#ifdef __cplusplus
extern "C" {
#endif

/** TDM mode: 1 to 3 as they are. */
VEXO_CMI_EXPORT eqptMode vexoTdmMode_to_eqptMode(vexoTdmMode value);
/** TDM mode: 1 to 3 as they are. */
VEXO_CMI_EXPORT vexoTdmMode eqptMode_to_vexoTdmMode(eqptMode value);

/** State of the system: 0, 2, 3, 4 as they are, 6 gives 5. Default 1. */
VEXO_CMI_EXPORT vexoModuleState operState_to_vexoModuleState(operState value);
/** State of a port or pseudowire: 1 gives 2, 2 gives 3, 3 gives 1, 4 and 5 as they are. */
VEXO_CMI_EXPORT vexoOperState operState_to_vexoOperState(operState value);

/** Administrative status: 1 gives 2, 2 gives 1, 3 gives 3. */
VEXO_CMI_EXPORT adminStatus vexoAdminStatus_to_adminStatus(vexoAdminStatus value);
/** Administrative status: 1 gives 2, 2 gives 1, 3 gives 3. */
VEXO_CMI_EXPORT vexoAdminStatus adminStatus_to_vexoAdminStatus(adminStatus value);

/** PDH frame mode: 1 to 6 as they are. */
VEXO_CMI_EXPORT pdhFrameMode vexoPdhFrameMode_to_pdhFrameMode(vexoPdhFrameMode value);
/** PDH frame mode: 1 to 6 as they are. */
VEXO_CMI_EXPORT vexoPdhFrameMode pdhFrameMode_to_vexoPdhFrameMode(pdhFrameMode value);

/** PDH line code: 1 to 4 as they are. */
VEXO_CMI_EXPORT pdhCode vexoPdhCode_to_pdhCode(vexoPdhCode value);
/** PDH line code: 1 to 4 as they are. */
VEXO_CMI_EXPORT vexoPdhCode pdhCode_to_vexoPdhCode(pdhCode value);

/** PDH NIU mode: 1 to 4 as they are. */
VEXO_CMI_EXPORT pdhNiuMode vexoPdhNiuMode_to_pdhNiuMode(vexoPdhNiuMode value);
/** PDH NIU mode: 1 to 4 as they are. */
VEXO_CMI_EXPORT vexoPdhNiuMode pdhNiuMode_to_vexoPdhNiuMode(pdhNiuMode value);

/** PDH synchronisation mode: 1 to 5 as they are. */
VEXO_CMI_EXPORT pdhClockMode vexoPdhSyncMode_to_pdhClockMode(vexoPdhSyncMode value);
/** PDH synchronisation mode: 1 to 5 as they are. */
VEXO_CMI_EXPORT vexoPdhSyncMode pdhClockMode_to_vexoPdhSyncMode(pdhClockMode value);

/** Loopback: 1 to 3 as they are, 4 gives 7. */
VEXO_CMI_EXPORT lpbk vexoLpbk_to_lpbk(vexoLpbk value);
/** Loopback: 1 to 3 as they are, 7 gives 4. */
VEXO_CMI_EXPORT vexoLpbk lpbk_to_vexoLpbk(lpbk value);

/** PM type: 1 to 4 as they are. */
VEXO_CMI_EXPORT pmInterval vexoPmType_to_pmInterval(vexoPmType value);
/** PM interval: 1 to 3 as they are. */
VEXO_CMI_EXPORT pmInterval vexoPmInterval_to_pmInterval(vexoPmInterval value);
/** PM interval: 1 to 3 as they are. */
VEXO_CMI_EXPORT vexoPmInterval pmInterval_to_vexoPmInterval(pmInterval value);

/** VLAN mode: 1 to 4 as they are. */
VEXO_CMI_EXPORT tagMode vexoVlanMode_to_tagMode(vexoVlanMode value);
/** VLAN mode: 1 to 4 as they are. */
VEXO_CMI_EXPORT vexoVlanMode tagMode_to_vexoVlanMode(tagMode value);

/** UDP mode: 1 to 3 as they are. */
VEXO_CMI_EXPORT pweIpUdpMode vexoPweUdpMode_to_pweIpUdpMode(vexoPweUdpMode value);
/** UDP mode: 1 to 3 as they are. */
VEXO_CMI_EXPORT vexoPweUdpMode pweIpUdpMode_to_vexoPweUdpMode(pweIpUdpMode value);

/** Pseudowire type: 1 to 4 as they are, 5 gives 6. */
VEXO_CMI_EXPORT pweType vexoPweType_to_pweType(vexoPweType value);
/** Pseudowire type: 1 to 4 as they are, 6 gives 5. */
VEXO_CMI_EXPORT vexoPweType pweType_to_vexoPweType(pweType value);

/** PSN type: 1, 2, 3, 4 give 2, 3, 4, 1; 5 gives 5. */
VEXO_CMI_EXPORT pweEncType vexoPwePsnType_to_pweEncType(vexoPwePsnType value);
/** PSN type: 1, 2, 3, 4 give 4, 1, 2, 3; 5 gives 5. */
VEXO_CMI_EXPORT vexoPwePsnType pweEncType_to_vexoPwePsnType(pweEncType value);

/** Alarmed object: 0 gives 1, 1 gives 2, 3 gives 3, 2 and 34 give 4. */
VEXO_CMI_EXPORT vexoObjType objType_to_vexoObjType(objType value);

/** Cross-connect type: 1, 2, 3 give 2, 3, 1. */
VEXO_CMI_EXPORT pweAtmXcType vexoPweAtmXcType_to_pweAtmXcType(vexoPweAtmXcType value);
/** Cross-connect type: 1, 2, 3 give 3, 1, 2. */
VEXO_CMI_EXPORT vexoPweAtmXcType pweAtmXcType_to_vexoPweAtmXcType(pweAtmXcType value);

/** Alarm report mode: 1 gives the bit of value 2, 2 that of value 4. */
VEXO_CMI_EXPORT alarmMode vexoAlarmMode_to_alarmMode(vexoAlarmMode value);
/** Alarm report mode: the bit of value 2 gives 1, else the bit of value 4 gives 2. */
VEXO_CMI_EXPORT vexoAlarmMode alarmMode_to_vexoAlarmMode(alarmMode value);

/** ATM mode: 1 gives 1. Default 2. */
VEXO_CMI_EXPORT atmMode vexoAtmMode_to_atmMode(vexoAtmMode value);
/** ATM mode: 1 and 2 as they are. */
VEXO_CMI_EXPORT vexoAtmMode atmMode_to_vexoAtmMode(atmMode value);

/** ATM type: 2 gives 2. Default 1. */
VEXO_CMI_EXPORT atmType vexoAtmType_to_atmType(vexoAtmType value);
/** ATM type: 1 and 2 as they are. */
VEXO_CMI_EXPORT vexoAtmType atmType_to_vexoAtmType(atmType value);

/** ATM CLP mode: 2 to 4 as they are. Default 1. */
VEXO_CMI_EXPORT atmClpMap vexoAtmClpMode_to_atmClpMap(vexoAtmClpMode value);
/** ATM CLP mode: 1 to 4 as they are. */
VEXO_CMI_EXPORT vexoAtmClpMode atmClpMap_to_vexoAtmClpMode(atmClpMap value);

/** Network quality: 1 and 2 as they are. */
VEXO_CMI_EXPORT psnNetType vexoNetQuality_to_psnNetType(vexoNetQuality value);
/** Network quality: 1 and 2 as they are. */
VEXO_CMI_EXPORT vexoNetQuality psnNetType_to_vexoNetQuality(psnNetType value);

/** Upgrade mode: 2 gives 2. Default 1. */
VEXO_CMI_EXPORT UpgradeMode vexoUpgradeMode_to_UpgradeMode(vexoUpgradeMode value);
/** Upgrade mode: 1 and 2 as they are. */
VEXO_CMI_EXPORT vexoUpgradeMode UpgradeMode_to_vexoUpgradeMode(UpgradeMode value);

/** Upgrade state: 2 to 6 as they are. Default 1. */
VEXO_CMI_EXPORT vexoUpgradeState UpgradeState_to_vexoUpgradeState(UpgradeState value);

/** Debug state: 2 and 3 as they are. Default 1. */
VEXO_CMI_EXPORT vexoDebugState DebugState_to_vexoDebugState(DebugState value);

/**
 * Copies the ten texts of a version record, each cut to 127 characters and
 * terminated, but for the text VEXO_SW_VERSION_GORV: that one is what the
 * hosting software's `gorvGetVersion` writes.
 */
VEXO_CMI_EXPORT void swVersion_to_vexoSwVersion(const struct swVersion *src, vexoSwVersion *dst);

#ifdef __cplusplus
}
#endif

#endif
