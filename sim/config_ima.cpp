// libkv_config: IMA groups and their links.
#include "bodies.h"
#include "objects.h"

#include <algorithm>

using namespace sim;

namespace
{

// The group's record with its states as they are now: word 0 tells whether the group or link is
// up, word 1 of the group how many of its links are.
imaParams present(const State &state, const Group &group)
{
    imaParams params = group.params;
    for (uint32_t i = 0; i < params.linkCount && i < IMA_LINK_MAX; ++i) {
        const uint32_t link = params.links[i].linkId;
        if (link >= 1 && link <= KV_SIM_LINKS)
            params.links[i].state[0] = stateOf(state.links[link - 1]);
    }
    params.groupState.words[0] = stateOf(state, group);
    params.groupState.words[1] = linksUp(state, group);
    return params;
}

// Whether a record's links are the group's own, if the device looks at that.
bool isConsistent(const State &state, const imaParams &params, uint32_t group)
{
    if (!state.behaviours.consistency)
        return true;
    for (uint32_t i = 0; i < params.linkCount && i < IMA_LINK_MAX; ++i) {
        const uint32_t link = params.links[i].linkId;
        const uint32_t in = link >= 1 && link <= KV_SIM_LINKS ? state.links[link - 1].group : 0;
        if (in == group)
            continue;
        if (in)
            fail(EXISTS, "IMA link %u is in group %u already", link, in);
        else
            fail(NO_OBJECT, "IMA link %u is not in group %u", link, group);
        return false;
    }
    return true;
}

} // namespace

kvRc body::config_get_ima_params(Transaction &device, imaParams *params, uint32_t group)
{
    const Group *found = groupOf(device, group);
    return found ? answer(params, present(*device, *found)) : failureCode();
}

// Takes the parameters; states and links are the device's.
kvRc body::config_set_ima_params(Transaction &device, const imaParams *params, uint32_t group)
{
    Group *found = groupOf(device, group);
    if (!found || !isConsistent(*device, *params, group))
        return failureCode();
    imaParams &own = device.modify(found->params);
    own.groupParam1 = params->groupParam1;
    own.groupParam2 = params->groupParam2;
    own.groupParam3 = params->groupParam3;
    return KV_OK;
}

kvRc body::config_add_ima(Transaction &device, const imaParams *params, uint32_t group)
{
    if (group < 1 || group > KV_SIM_GROUPS)
        return fail(NO_OBJECT, "there is no IMA group %u, only 1 to %d", group, KV_SIM_GROUPS);
    if (device->groups[group - 1].provisioned)
        return fail(EXISTS, "IMA group %u is provisioned already", group);
    if (params->linkCount != 0)
        return fail(BAD_VALUE, "IMA group %u: links are added one by one", group);
    Group &added = device.modify(device->groups[group - 1]);
    added = {};
    added.params = *params;
    added.provisioned = 1;
    return KV_OK;
}

kvRc body::config_del_ima(Transaction &device, uint32_t group)
{
    Group *found = groupOf(device, group);
    if (!found)
        return failureCode();
    for (Link &link : device->links)
        if (link.group == group)
            device.modify(link.group) = 0;
    device.modify(found->provisioned) = 0;
    return setAlarms(device, OBJ_IMA_GROUP, group, found->alarms, 0);
}

kvRc body::config_add_ima_link(Transaction &device, uint32_t link, uint32_t group)
{
    Group *found = groupOf(device, group);
    Link *added = found ? linkOf(device, link) : nullptr;
    if (!added)
        return failureCode();
    if (added->group)
        return fail(EXISTS, "IMA link %u is in group %u already", link, added->group);
    const uint32_t count = found->params.linkCount;
    if (count >= IMA_LINK_MAX)
        return fail(FULL, "IMA group %u has %u links, no more can be", group, IMA_LINK_MAX);
    imaParams &params = device.modify(found->params);
    params.links[count] = {link, {}};
    params.linkCount = count + 1;
    return store(device, added->group, group);
}

kvRc body::config_del_ima_link(Transaction &device, uint32_t link, uint32_t group)
{
    Group *found = groupOf(device, group);
    if (!found)
        return failureCode();
    const uint32_t count = std::min(found->params.linkCount, IMA_LINK_MAX);
    uint32_t i = 0;
    while (i < count && found->params.links[i].linkId != link)
        ++i;
    if (i == count)
        return fail(NO_OBJECT, "IMA link %u is not in group %u", link, group);
    imaParams &params = device.modify(found->params);
    for (; i + 1 < count; ++i)
        params.links[i] = params.links[i + 1];
    params.linkCount = count - 1;
    params.links[count - 1] = {};
    if (Link *removed = linkOf(device, link))
        device.modify(removed->group) = 0;
    return KV_OK;
}
