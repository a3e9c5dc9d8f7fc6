#include "objects.h"

#include "notification.h"

#include <algorithm>
#include <span>

namespace sim
{

Port *portOf(Transaction &device, uint32_t port)
{
    if (port >= 1 && port <= KV_SIM_PORTS)
        return &device->ports[port - 1];
    fail(NO_OBJECT, "there is no PDH port %u, only 1 to %d", port, KV_SIM_PORTS);
    return nullptr;
}

Pw *pwOf(Transaction &device, uint32_t pwId)
{
    if (pwId >= 1 && pwId <= KV_SIM_PWS && device->pws[pwId - 1].provisioned)
        return &device->pws[pwId - 1];
    if (pwId >= 1 && pwId <= KV_SIM_PWS)
        fail(KV_NOT_PROVISIONED, "pseudowire %u is not provisioned", pwId);
    else
        fail(NO_OBJECT, "there is no pseudowire %u, only 1 to %d", pwId, KV_SIM_PWS);
    return nullptr;
}

Group *groupOf(Transaction &device, uint32_t group)
{
    if (group >= 1 && group <= KV_SIM_GROUPS && device->groups[group - 1].provisioned)
        return &device->groups[group - 1];
    if (group >= 1 && group <= KV_SIM_GROUPS)
        fail(KV_NOT_PROVISIONED, "IMA group %u is not provisioned", group);
    else
        fail(NO_OBJECT, "there is no IMA group %u, only 1 to %d", group, KV_SIM_GROUPS);
    return nullptr;
}

Link *linkOf(Transaction &device, uint32_t link)
{
    if (link >= 1 && link <= KV_SIM_LINKS)
        return &device->links[link - 1];
    fail(NO_OBJECT, "there is no IMA link %u, only 1 to %d", link, KV_SIM_LINKS);
    return nullptr;
}

uint32_t *alarmsOf(Transaction &device, uint32_t type, uint32_t number)
{
    switch (type) {
    case OBJ_SYSTEM:
        if (number == 1)
            return &device->system.alarms;
        fail(NO_OBJECT, "the system is number 1, not %u", number);
        return nullptr;
    case OBJ_PDH: {
        Port *port = portOf(device, number);
        return port ? &port->alarms : nullptr;
    }
    case OBJ_PWE: {
        Pw *pw = pwOf(device, number);
        return pw ? &pw->alarms : nullptr;
    }
    case OBJ_IMA_GROUP: {
        Group *group = groupOf(device, number);
        return group ? &group->alarms : nullptr;
    }
    case OBJ_IMA_LINK: {
        Link *link = linkOf(device, number);
        return link ? &link->alarms : nullptr;
    }
    default:
        fail(NO_OBJECT, "there are no alarms of object type %u", type);
        return nullptr;
    }
}

kvRc setAlarms(Transaction &device, uint32_t type, uint32_t number, uint32_t &alarms, uint32_t bits)
{
    const uint32_t delta = alarms ^ bits;
    if (delta == 0)
        return KV_OK;
    device.modify(alarms) = bits;
    return notify(device, Service::alarm, {objType{type}, number, bits, delta});
}

namespace
{

operState operStateOf(adminStatus status, bool testing, uint32_t alarms)
{
    if (status == ADMIN_TESTING || (status == ADMIN_UP && testing))
        return OPER_TESTING;
    return status == ADMIN_UP && alarms == 0 ? OPER_UP : OPER_DOWN;
}

} // namespace

operState stateOf(const Port &port)
{
    return operStateOf(port.params.adminStatus, port.loopback.lpbk != NO_LOOPBACK, port.alarms);
}

operState stateOf(const Pw &pw)
{
    return operStateOf(pw.config.adminStatus, false, pw.alarms);
}

operState stateOf(const Link &link)
{
    return link.alarms == 0 ? OPER_UP : OPER_DOWN;
}

operState stateOf(const State &state, const Group &group)
{
    return group.alarms == 0 && linksUp(state, group) > 0 ? OPER_UP : OPER_DOWN;
}

uint32_t linksUp(const State &state, const Group &group)
{
    const std::span links{group.params.links, std::min(group.params.linkCount, IMA_LINK_MAX)};
    return static_cast<uint32_t>(std::ranges::count_if(links, [&](const imaLinkEntry &entry) {
        const uint32_t link = entry.linkId;
        return link >= 1 && link <= KV_SIM_LINKS && stateOf(state.links[link - 1]) == OPER_UP;
    }));
}

// A full log and a first threshold are notices; what is behind them still works.
operState stateOfSystem(const State &state)
{
    constexpr uint32_t NOTICES = SYSTEM_LOG_FULL | SYSTEM_WARM;
    const System &system = state.system;
    return state.behaviours.systemState ? operStateOf(ADMIN_UP, system.loopback.lpbk != NO_LOOPBACK,
                                                      system.alarms & ~NOTICES)
                                        : OPER_UP;
}

bool inRange(const char *what, uint32_t value, uint32_t first, uint32_t last)
{
    if (value >= first && value <= last)
        return true;
    fail(BAD_VALUE, "%s %u is not one of %u to %u", what, value, first, last);
    return false;
}

bool isLoopback(lpbk value)
{
    if ((value >= 1 && value <= 3) || value == 7)
        return true;
    fail(BAD_VALUE, "loopback %u is not one of 1, 2, 3 and 7", value);
    return false;
}

} // namespace sim
