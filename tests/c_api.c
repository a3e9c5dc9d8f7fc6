/* The header as a C program sees it. */
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
