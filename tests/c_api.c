/* The header as a C program sees it that includes the platform's own headers, too. */
#define PLATFORM_ENUM(name) typedef enum { name##_MEMBER = 1 } name
PLATFORM_ENUM(eqptMode);
PLATFORM_ENUM(operState);
PLATFORM_ENUM(adminStatus);
PLATFORM_ENUM(pdhFrameMode);
PLATFORM_ENUM(pdhCode);
PLATFORM_ENUM(pdhNiuMode);
PLATFORM_ENUM(pdhClockMode);
PLATFORM_ENUM(lpbk);
PLATFORM_ENUM(pmInterval);
PLATFORM_ENUM(tagMode);
PLATFORM_ENUM(pweIpUdpMode);
PLATFORM_ENUM(pweType);
PLATFORM_ENUM(pweEncType);
PLATFORM_ENUM(objType);
PLATFORM_ENUM(pweAtmXcType);
PLATFORM_ENUM(alarmMode);
PLATFORM_ENUM(atmMode);
PLATFORM_ENUM(atmType);
PLATFORM_ENUM(atmClpMap);
PLATFORM_ENUM(psnNetType);
PLATFORM_ENUM(UpgradeMode);
PLATFORM_ENUM(UpgradeState);
PLATFORM_ENUM(DebugState);

#define VEXO_CMI_PLATFORM_TYPES
#include <vexo_cmi.h>

_Static_assert(sizeof(vexoResult) == 132, "vexoResult");
_Static_assert(sizeof(vexoPweParams) == 172, "vexoPweParams");
_Static_assert(sizeof(vexoPweParamsInfo) == 180, "vexoPweParamsInfo");
_Static_assert(sizeof(vexoAlarmNotification) == 24, "vexoAlarmNotification");
_Static_assert(sizeof(vexoPmNotification) == 1220, "vexoPmNotification");
_Static_assert(sizeof(vexoTdmMode) == 4, "enumerations");

unsigned tdmModeThroughC(unsigned mode);

unsigned tdmModeThroughC(unsigned mode)
{
    vexoResult result;
    vexoTdmMode read = 0;
    vexo_cmi_sys_tdm_mode_set(mode, &result);
    if (result.rc == VEXO_RC_OK)
        vexo_cmi_sys_tdm_mode_get(&read, &result);
    return result.rc == VEXO_RC_OK ? read : 0;
}
