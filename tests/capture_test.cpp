// A host that exports names of the library's own: its calls within itself must not come here.
#include "device.h"

#include <vexo_cmi/convert.h>

namespace
{

unsigned captured;

} // namespace

char *strcpy_n(char *dst, const char *, unsigned)
{
    ++captured;
    return dst;
}

eqptMode vexoTdmMode_to_eqptMode(vexoTdmMode)
{
    ++captured;
    return eqptMode{};
}

void vexo_cmi_alarm_callback_unregister(void)
{
    ++captured;
}

void swVersion_to_vexoSwVersion(const swVersion *, vexoSwVersion *)
{
    ++captured;
}

namespace
{

using Host = Device;

TEST_F(Host, WithTheSameNamesCapturesNoCallWithinTheLibrary)
{
    vexo_cmi_sys_tdm_mode_set(VEXO_TDM_MODE_3, &result);
    EXPECT_EQ(result.rc, VEXO_RC_OK);
    vexo_cmi_sys_tdm_mode_set(vexoTdmMode{9}, &result);
    EXPECT_STREQ(result.message, "TDM mode 0 is not one of 1 to 3");
    vexoSwVersion version;
    vexo_cmi_sys_version_get(&version, &result);
    EXPECT_STREQ(version.text[VEXO_SW_VERSION_GORV], "test host 1.0");
    vexo_cmi_fini();
    EXPECT_EQ(captured, 0u);
}

} // namespace
