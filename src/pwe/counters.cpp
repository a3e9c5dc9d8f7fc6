#include "frame/counters.h"
#include "pwe/counters.h"
#include "pwe/record.h"

#include <kv_alarm.h>
#include <vexo_cmi/convert.h>

#include <string.h>

using frame::Outcome;

namespace
{

constexpr uint32_t PWE_ALARM_MASK = 0x1F;

void fillTdmOm(vexoPweOm *out, const pwOmStats &in)
{
    out->counters[0] = in.counters[2].low;
    out->counters[1] = in.counters[1].low;
}

void fillAtmOm(vexoPweOm *out, const pwOmStats &in)
{
    for (unsigned i = 0; i < 4; ++i)
        out->counters[i] = in.counters[i + 1].low;
    for (unsigned i = 0; i < VEXO_PWE_ATM_XC_MAX; ++i) {
        const pwOmEntry &entry = in.entries[i];
        out->entries[i] = {{entry.words[0], entry.words[1]},
                           {entry.counters[0].low, entry.counters[1].low}};
    }
}

} // namespace

void fillPweGenPm(vexoPwePmBody *out, const pwPmCounters *in)
{
    memcpy(out->generic.counters, in->generic.counters, sizeof out->generic.counters);
    out->generic.valid = frame::flagOf(in->generic.flag);
}

void fillPweAtmPm(vexoPwePmBody *out, const pwPmCounters *in)
{
    memcpy(out->atm.counters, in->atm.counters, sizeof out->atm.counters);
    out->atm.valid = frame::flagOf(in->atm.flag);
}

void vexo_cmi_pwe_alarms_set(uint32_t alarmBits, vexoResult *result)
{
    Outcome{result}.orConfigText(alarm_set_status_bits(OBJ_PWE, PWE_ALARM_MASK, alarmBits));
}

void vexo_cmi_pwe_alarms_get(uint32_t *alarmBits, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    uint32_t active;
    if (!outcome.orConfigText(alarm_get_active_bits(OBJ_PWE, pwId, &active)))
        return;
    *alarmBits = active;
}

void vexo_cmi_pwe_pm_get(vexoPwePm *pm, vexoPmType pmType, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    pm->pmType = pmType;
    pwPmStats stats;
    if (!outcome.orCodeText(pmom_pw_pm_stat_get(pwId, vexoPmType_to_pmInterval(pmType),
                                                frame::PM_OF_OPERATION, &stats)))
        return;
    pwConfig record;
    if (!outcome.orConfigText(config_get_pw(&record, pwId)))
        return;
    pm->pweType = pweType_to_vexoPweType(record.pweType);
    if (stats.bodyKind == PW_PM_GENERIC)
        fillPweGenPm(&pm->body, &stats.body);
    else if (stats.bodyKind == PW_PM_ATM)
        fillPweAtmPm(&pm->body, &stats.body);
    else
        outcome.refuseBadType();
}

void vexo_cmi_pwe_pm_clear(uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    frame::clearPm(outcome, pmom_pw_pm_stat_clear, pwId);
}

void vexo_cmi_pwe_om_get(vexoPweOm *om, uint32_t clear, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    pwConfig record;
    if (!outcome.orConfigText(config_get_pw(&record, pwId)))
        return;
    pwOmStats stats;
    if (!outcome.orCodeText(pmom_pw_om_stat_get(pwId, &stats)))
        return;
    if (clear && !outcome.orCodeText(pmom_pw_om_stat_clear(pwId)))
        return;
    om->pweType = pweType_to_vexoPweType(record.pweType);
    if (pwe::isTdm(record.pweType))
        fillTdmOm(om, stats);
    else if (pwe::isAtm(record.pweType))
        fillAtmOm(om, stats);
}
