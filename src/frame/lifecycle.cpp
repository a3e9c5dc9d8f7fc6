#include <vexo_cmi/base.h>
#include <vexo_cmi/notify.h>

void vexo_cmi_init(void) {}

void vexo_cmi_fini(void)
{
    vexo_cmi_alarm_callback_unregister();
    vexo_cmi_pm_callback_unregister();
}

namespace
{

struct Lifetime {
    Lifetime() { vexo_cmi_init(); }
    ~Lifetime() { vexo_cmi_fini(); }
};

const Lifetime lifetime;

} // namespace
