#include "frame/counters.h"
#include "frame/outcome.h"
#include "ima/counters.h"

#include <kv_alarm.h>
#include <kv_config.h>
#include <vexo_cmi/convert.h>

#include <string.h>

using frame::Outcome;

namespace
{

constexpr uint32_t GROUP_ALARM_MASK = 0x3FF;
constexpr uint32_t LINK_ALARM_MASK = 0x7F0000;
constexpr uint32_t GROUPS_CLEARED = 8;

// The counters of one group and of its links, up to the first failure.
void clearGroup(uint32_t groupId, vexoResult *result)
{
    Outcome outcome{result};
    imaParams record;
    if (!outcome.orConfigText(config_get_ima_params(&record, groupId)))
        return;
    if (!frame::clearPm(outcome, pmom_ima_group_pm_stat_clear, groupId))
        return;
    for (const imaLinkEntry &link : linksOf(record))
        if (!frame::clearPm(outcome, pmom_ima_link_pm_stat_clear, link.linkId))
            return;
}

void clearRegardless(frame::ClearPm clear, uint32_t object)
{
    frame::clearPm(clear, object, [](kvRc) { return true; });
}

// The counters of all groups and their links, whatever fails.
void clearAllGroups()
{
    for (uint32_t groupId = 1; groupId <= GROUPS_CLEARED; ++groupId) {
        imaParams record;
        const bool readable = config_get_ima_params(&record, groupId) == KV_OK;
        clearRegardless(pmom_ima_group_pm_stat_clear, groupId);
        if (!readable)
            continue;
        for (const imaLinkEntry &link : linksOf(record))
            clearRegardless(pmom_ima_link_pm_stat_clear, link.linkId);
    }
}

// Twice, so that no link asks whether it is cleared.
template <bool clear>
void readOm(vexoImaOm *om, uint32_t groupId, vexoResult *result)
{
    Outcome outcome{result};
    imaParams record;
    if (!outcome.orConfigText(config_get_ima_params(&record, groupId)))
        return;
    imaGroupOmStat groupStat;
    if (!outcome.orCodeText(pmom_ima_group_om_stat_get(groupId, &groupStat)))
        return;
    for (unsigned k = 0; k < 2; ++k)
        om->counters[k] = groupStat.counters[k].low;
    if (clear && !outcome.orCodeText(pmom_ima_group_om_stat_clear(groupId)))
        return;
    const auto links = linksOf(record);
    om->linkCount = static_cast<uint32_t>(links.size());
    vexoImaLinkOm *linkOm = om->links;
    for (const imaLinkEntry &link : links) {
        imaLinkOmStat stat;
        if (!outcome.orCodeText(pmom_ima_link_om_stat_get(link.linkId, &stat)))
            return;
        for (unsigned k = 0; k < 8; ++k)
            linkOm->counters[k] = stat.counters[k].low;
        ++linkOm;
        if (clear && !outcome.orCodeText(pmom_ima_link_om_stat_clear(link.linkId)))
            return;
    }
}

} // namespace

void fillImaGroupPm(const imaGroupPmStat *in, vexoImaGroupPm *out)
{
    out->intervalFlag = frame::flagOf(in->flag);
    out->counters[0] = in->counters[2];
    out->counters[1] = in->counters[0];
    out->counters[2] = in->counters[1];
}

void fillImaLinkPm(const imaLinkPmStat *in, uint32_t linkId, vexoImaLinkPm *out)
{
    out->linkId = linkId;
    out->intervalFlag = frame::flagOf(in->flag);
    out->counters[0] = in->counters[0];
    memcpy(&out->counters[1], &in->counters[2], 6 * sizeof(uint32_t));
    out->counters[7] = in->counters[1];
    memcpy(&out->counters[8], &in->counters[8], 8 * sizeof(uint32_t));
}

void vexo_cmi_ima_pm_get(vexoImaGroupPm *pm, vexoPmType pmType, uint32_t groupId,
                         vexoResult *result)
{
    Outcome outcome{result};
    imaParams record;
    if (!outcome.orConfigText(config_get_ima_params(&record, groupId)))
        return;
    const pmInterval interval = vexoPmType_to_pmInterval(pmType);
    imaGroupPmStat groupStat;
    if (!outcome.orCodeText(
            pmom_ima_group_pm_stat_get(groupId, interval, frame::PM_OF_OPERATION, &groupStat)))
        return;
    fillImaGroupPm(&groupStat, pm);
    const auto links = linksOf(record);
    pm->linkCount = static_cast<uint32_t>(links.size());
    vexoImaLinkPm *linkPm = pm->links;
    for (const imaLinkEntry &link : links) {
        imaLinkPmStat stat;
        if (!outcome.orCodeText(
                pmom_ima_link_pm_stat_get(link.linkId, interval, frame::PM_OF_OPERATION, &stat)))
            return;
        fillImaLinkPm(&stat, link.linkId, linkPm++);
    }
}

void vexo_cmi_ima_pm_clear(uint32_t groupId, vexoResult *result)
{
    if (groupId != 0) {
        clearGroup(groupId, result);
        return;
    }
    clearAllGroups();
    Outcome::succeedSilently(result);
}

void vexo_cmi_ima_om_get(vexoImaOm *om, uint32_t clear, uint32_t groupId, vexoResult *result)
{
    clear ? readOm<true>(om, groupId, result) : readOm<false>(om, groupId, result);
}

void vexo_cmi_ima_alarms_set(uint32_t alarmBits, vexoResult *result)
{
    Outcome outcome{result};
    if (!outcome.orCodeText(alarm_set_status_bits(OBJ_IMA_GROUP, GROUP_ALARM_MASK, alarmBits)))
        return;
    outcome.orCodeText(alarm_set_status_bits(OBJ_IMA_LINK, LINK_ALARM_MASK, alarmBits));
}

void vexo_cmi_ima_alarms_get(uint32_t *alarmBits, vexoImaType imaType, uint32_t number,
                             vexoResult *result)
{
    Outcome outcome{result};
    uint32_t active = 0;
    kvRc code = KV_FAILURE;
    if (imaType == VEXO_IMA_TYPE_GROUP)
        code = alarm_get_active_bits(OBJ_IMA_GROUP, number, &active);
    else if (imaType == VEXO_IMA_TYPE_LINK)
        code = alarm_get_active_bits(OBJ_IMA_LINK, number, &active);
    if (!outcome.orCodeText(code))
        return;
    *alarmBits = active;
}
