// libkv_config: IMA groups and their links.
#include "entry.h"
#include "objects.h"

using namespace sim;

namespace
{

template <class Body>
auto withGroup(uint32_t group, Body body)
{
    return [=](Transaction &device) -> kvRc {
        Group *found = groupOf(device, group);
        return found ? body(device, *found) : failureCode();
    };
}

// The group's record with its states as they are now: word 0 tells whether the group or link is
// up, word 1 of the group how many of its links are.
imaParams present(const State &state, const Group &group)
{
    imaParams params = group.params;
    uint32_t up = 0;
    for (uint32_t i = 0; i < params.linkCount && i < IMA_LINK_MAX; ++i) {
        const uint32_t link = params.links[i].linkId;
        const bool isUp = link >= 1 && link <= KV_SIM_LINKS && state.links[link - 1].alarms == 0;
        params.links[i].state[0] = isUp ? OPER_UP : OPER_DOWN;
        up += isUp;
    }
    params.groupState.words[0] = up > 0 && group.alarms == 0 ? OPER_UP : OPER_DOWN;
    params.groupState.words[1] = up;
    return params;
}

} // namespace

kvRc config_get_ima_params(imaParams *out, uint32_t group)
{
    return getter(Function::config_get_ima_params, {group}, out,
                  withGroup(group, [=](Transaction &device, Group &found) {
                      *out = present(*device, found);
                      return KV_OK;
                  }));
}

// Takes the parameters; states and links are the device's.
kvRc config_set_ima_params(const imaParams *in, uint32_t group)
{
    return setter(Function::config_set_ima_params, {group}, in,
                  withGroup(group, [=](Transaction &device, Group &found) {
                      imaParams &params = device.modify(found.params);
                      params.groupParam1 = in->groupParam1;
                      params.groupParam2 = in->groupParam2;
                      params.groupParam3 = in->groupParam3;
                      return KV_OK;
                  }));
}

kvRc config_add_ima(const imaParams *in, uint32_t group)
{
    return setter(Function::config_add_ima, {group}, in, [=](Transaction &device) {
        if (group < 1 || group > KV_SIM_GROUPS)
            return fail(NO_OBJECT, "there is no IMA group %u, only 1 to %d", group, KV_SIM_GROUPS);
        if (device->groups[group - 1].provisioned)
            return fail(EXISTS, "IMA group %u is provisioned already", group);
        if (in->linkCount != 0)
            return fail(BAD_VALUE, "IMA group %u: links are added one by one", group);
        Group &added = device.modify(device->groups[group - 1]);
        added = {};
        added.params = *in;
        added.provisioned = 1;
        return KV_OK;
    });
}

kvRc config_del_ima(uint32_t group)
{
    return action(Function::config_del_ima, {group},
                  withGroup(group, [=](Transaction &device, Group &found) {
                      for (Link &link : device->links)
                          if (link.group == group)
                              device.modify(link.group) = 0;
                      device.modify(found.provisioned) = 0;
                      return setAlarms(device, OBJ_IMA_GROUP, group, found.alarms, 0);
                  }));
}

kvRc config_add_ima_link(uint32_t link, uint32_t group)
{
    return action(
        Function::config_add_ima_link, {link, group},
        withGroup(group, [=](Transaction &device, Group &found) {
            Link *added = linkOf(device, link);
            if (!added)
                return failureCode();
            if (added->group)
                return fail(EXISTS, "IMA link %u is in group %u already", link, added->group);
            const uint32_t count = found.params.linkCount;
            if (count >= IMA_LINK_MAX)
                return fail(FULL, "IMA group %u has %u links, no more can be", group, IMA_LINK_MAX);
            imaParams &params = device.modify(found.params);
            params.links[count] = {link, {}};
            params.linkCount = count + 1;
            device.modify(added->group) = group;
            return KV_OK;
        }));
}

kvRc config_del_ima_link(uint32_t link, uint32_t group)
{
    return action(Function::config_del_ima_link, {link, group},
                  withGroup(group, [=](Transaction &device, Group &found) {
                      const uint32_t count = found.params.linkCount < IMA_LINK_MAX
                                                 ? found.params.linkCount
                                                 : IMA_LINK_MAX;
                      for (uint32_t i = 0; i < count; ++i) {
                          if (found.params.links[i].linkId != link)
                              continue;
                          imaParams &params = device.modify(found.params);
                          for (uint32_t k = i; k + 1 < count; ++k)
                              params.links[k] = params.links[k + 1];
                          params.linkCount = count - 1;
                          params.links[count - 1] = {};
                          if (Link *removed = linkOf(device, link))
                              device.modify(removed->group) = 0;
                          return KV_OK;
                      }
                      return fail(NO_OBJECT, "IMA link %u is not in group %u", link, group);
                  }));
}
