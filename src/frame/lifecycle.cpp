#include <vexo_cmi/base.h>
#include <vexo_cmi/notify.h>

// What atexit() of an object that can be unloaded calls; under ThreadSanitizer it calls something
// that forgets the object.
extern "C" int __cxa_atexit(void (*function)(void *), void *argument, void *object);
extern "C" void *__dso_handle;

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
    __cxa_atexit([](void *) { vexo_cmi_fini(); }, nullptr, &__dso_handle);
}
