#include "frame/outcome.h"

#include <kv_config.h>
#include <vexo_cmi/misc.h>

#include <string.h>

using frame::Outcome;

static_assert(sizeof(vexoTpgmStatus) == sizeof(tpgmStatus));

void vexo_cmi_misc_tpgm_init(uint32_t tpgmParam1, uint32_t tpgmParam2, uint32_t tpgmParam3,
                             vexoResult *result)
{
    Outcome outcome{result};
    const tpgmSetup record{{tpgmParam1, tpgmParam2, tpgmParam3}};
    outcome.orConfigText(config_init_tpgm(&record));
}

void vexo_cmi_misc_tpgm_stat_get(vexoTpgmStatus *status, uint32_t clear, vexoResult *result)
{
    Outcome outcome{result};
    tpgmStatus record;
    const kvRc read = config_get_tpgm_status(&record);
    const kvRc cleared = config_clear_tpgm_status(clear);
    if (!outcome.orConfigText(read | cleared))
        return;
    memcpy(status, &record, sizeof *status);
}
