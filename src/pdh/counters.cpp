#include "frame/counters.h"
#include "frame/outcome.h"
#include "pdh/counters.h"

#include <kv_alarm.h>
#include <vexo_cmi/convert.h>

#include <string.h>

using frame::Outcome;

namespace
{

constexpr uint32_t PDH_ALARM_MASK = 0xFFFF;

// Twelve counters in another order than the platform's, and the flag.
void fillLayout0(uint32_t (&out)[13], const uint32_t (&line)[13])
{
    memcpy(out, line, 7 * sizeof *out);
    out[7] = line[9];
    memcpy(&out[8], &line[7], 2 * sizeof *out);
    memcpy(&out[10], &line[10], 2 * sizeof *out);
    out[12] = frame::flagOf(line[12]);
}

// Seven counters and the flag, behind a word that isn't read.
void fillLayout1(uint32_t (&out)[13], const uint32_t (&line)[13])
{
    memcpy(out, &line[1], 7 * sizeof *out);
    out[7] = frame::flagOf(line[8]);
}

} // namespace

void fillPdhPm(vexoPdhPm *out, const pdhPmStat *in)
{
    if (in->layoutType == 0)
        fillLayout0(out->lineCounters, in->line);
    else if (in->layoutType == 1)
        fillLayout1(out->lineCounters, in->line);
    memcpy(out->commonCounters, in->common, sizeof out->commonCounters);
}

void vexo_cmi_pdh_alarms_set(uint32_t alarmBits, vexoResult *result)
{
    Outcome{result}.orConfigText(alarm_set_status_bits(OBJ_PDH, PDH_ALARM_MASK, alarmBits));
}

void vexo_cmi_pdh_alarms_get(uint32_t *alarmBits, uint32_t port, vexoResult *result)
{
    Outcome outcome{result};
    uint32_t active;
    if (!outcome.orConfigText(alarm_get_active_bits(OBJ_PDH, port, &active)))
        return;
    *alarmBits = active;
}

void vexo_cmi_pdh_pm_get(vexoPdhPm *pm, vexoPmType pmType, uint32_t port, vexoResult *result)
{
    Outcome outcome{result};
    pm->pmType = pmType;
    pdhPmStat record;
    if (!outcome.orCodeText(pmom_pdh_pm_stat_get(port, vexoPmType_to_pmInterval(pmType),
                                                 frame::PM_OF_OPERATION, &record)))
        return;
    fillPdhPm(pm, &record);
}

void vexo_cmi_pdh_pm_clear(uint32_t port, vexoResult *result)
{
    Outcome outcome{result};
    frame::clearPm(outcome, pmom_pdh_pm_stat_clear, port);
}
