#include "frame/outcome.h"
#include "frame/record.h"
#include "ima/counters.h"

#include <kv_config.h>
#include <vexo_cmi/ima.h>

#include <string.h>

using frame::Outcome;

static_assert(VEXO_IMA_LINK_MAX == IMA_LINK_MAX);
static_assert(sizeof(vexoImaParams) == sizeof(imaParams));
static_assert(sizeof(vexoImaGroupState) == sizeof(imaGroupState));
static_assert(sizeof(vexoImaLinkState) == sizeof(imaLinkEntry));

void vexo_cmi_ima_set(const vexoImaGroupSet *group, uint32_t groupId, vexoResult *result)
{
    Outcome outcome{result};
    if (group->imaAction > VEXO_IMA_ACTION_CREATE) {
        outcome.refuse("Bad IMA action");
        return;
    }
    if (group->imaAction == VEXO_IMA_ACTION_DELETE) {
        outcome.orConfigText(config_del_ima(groupId));
        return;
    }
    imaParams record{};
    if (group->imaAction == VEXO_IMA_ACTION_MODIFY &&
        !outcome.orConfigText(config_get_ima_params(&record, groupId)))
        return;
    record.groupParam1 = group->groupParam1;
    record.groupParam2 = group->groupParam2;
    if (group->groupParam3)
        record.groupParam3 = group->groupParam3;
    outcome.orConfigText(group->imaAction == VEXO_IMA_ACTION_CREATE
                             ? config_add_ima(&record, groupId)
                             : config_set_ima_params(&record, groupId));
}

void vexo_cmi_ima_get(vexoImaParams *params, uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result,
                [=](const imaParams &record) { memcpy(params, &record, sizeof *params); });
}

void vexo_cmi_ima_lnk_add(uint32_t linkId, uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result, [=](const imaParams &, Outcome &outcome) {
        outcome.orConfigText(config_add_ima_link(linkId, groupId));
    });
}

void vexo_cmi_ima_lnk_delete(uint32_t linkId, uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result, [=](const imaParams &, Outcome &outcome) {
        outcome.orConfigText(config_del_ima_link(linkId, groupId));
    });
}

void vexo_cmi_ima_lnk_get(uint32_t linkIds[VEXO_IMA_LINK_MAX], uint32_t *linkCount,
                          uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result, [=](const imaParams &record) {
        const auto links = linksOf(record);
        *linkCount = static_cast<uint32_t>(links.size());
        uint32_t *next = linkIds;
        for (const imaLinkEntry &link : links)
            *next++ = link.linkId;
    });
}

void vexo_cmi_ima_group_state_get(vexoImaGroupState *state, uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result,
                [=](const imaParams &record) { memcpy(state, &record.groupState, sizeof *state); });
}

void vexo_cmi_ima_lnk_state_get(vexoImaLinkState states[VEXO_IMA_LINK_MAX], uint32_t *linkCount,
                                uint32_t groupId, vexoResult *result)
{
    frame::read(config_get_ima_params, groupId, result, [=](const imaParams &record) {
        const auto links = linksOf(record);
        *linkCount = static_cast<uint32_t>(links.size());
        memcpy(states, links.data(), links.size_bytes());
    });
}
