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

// The platform's line words in the order of the CMI record, and the flag behind them.
constexpr uint8_t LAYOUT_0[] = {0, 1, 2, 3, 4, 5, 6, 9, 7, 8, 10, 11};
constexpr uint8_t LAYOUT_0_FLAG = 12;
constexpr uint8_t LAYOUT_1[] = {1, 2, 3, 4, 5, 6, 7};
constexpr uint8_t LAYOUT_1_FLAG = 8;

template <size_t Count>
void fillLine(vexoPdhPm *out, const pdhPmStat *in, const uint8_t (&words)[Count], uint8_t flag)
{
    for (size_t i = 0; i < Count; ++i)
        out->lineCounters[i] = in->line[words[i]];
    out->lineCounters[Count] = frame::flagOf(in->line[flag]);
}

} // namespace

void fillPdhPm(vexoPdhPm *out, const pdhPmStat *in)
{
    if (in->layoutType == 0)
        fillLine(out, in, LAYOUT_0, LAYOUT_0_FLAG);
    else if (in->layoutType == 1)
        fillLine(out, in, LAYOUT_1, LAYOUT_1_FLAG);
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
