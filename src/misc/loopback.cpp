#include "frame/outcome.h"
#include "frame/record.h"

#include <kv_config.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/misc.h>

using frame::Outcome;

void vexo_cmi_misc_sys_lbk_set(vexoLpbk loopback, vexoResult *result)
{
    Outcome outcome{result};
    const sysLpbk record{vexoLpbk_to_lpbk(loopback), 0};
    outcome.orConfigText(config_set_sys_lpbk(&record));
}

void vexo_cmi_misc_sys_lbk_get(vexoLpbk *loopback, vexoResult *result)
{
    frame::read(config_get_sys_lpbk, result,
                [=](const sysLpbk &record) { *loopback = lpbk_to_vexoLpbk(record.lpbk); });
}
