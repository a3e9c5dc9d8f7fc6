#include <vexo_cmi/base.h>
#include <vexo_cmi/notify.h>

#include <stdlib.h>

void vexo_cmi_init(void) {}

void vexo_cmi_fini(void)
{
    vexo_cmi_alarm_callback_unregister();
    vexo_cmi_pm_callback_unregister();
}

// No static object: its destructor would need the C++ runtime on some machines. Nor a destructor
// function: at the end of the process the platform's static objects would be gone before it.
[[gnu::constructor]] static void load()
{
    vexo_cmi_init();
    atexit(vexo_cmi_fini); // or when the library is unloaded
}
