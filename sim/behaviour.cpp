#include "behaviour.h"

#include "clock.h"
#include "growth.h"
#include "objects.h"

#include <algorithm>

namespace sim
{

namespace
{

constexpr uint32_t on(bool condition, uint32_t bit)
{
    return condition ? bit : 0;
}

// Raises and clears the alarms whose causes have come and gone; others stay as they are.
template <class Object>
kvRc cause(Transaction &device, objType type, uint32_t number, Object &object, uint32_t causes)
{
    const uint32_t before = object.caused;
    if (causes == before)
        return KV_OK;
    device.modify(object.caused) = causes;
    return setAlarms(device, type, number, object.alarms,
                     (object.alarms & ~(before & ~causes)) | (causes & ~before));
}

// Whether the object went into service, or out of it.
bool serve(Transaction &device, Duty &duty, bool up)
{
    if (duty.up == uint32_t{up})
        return false;
    const uint64_t now = device->clock.seen;
    device.modify(duty) = {up, now, servedUntil(duty, now), duty.grown};
    return true;
}

kvRc settle(Transaction &device, System &system, uint32_t number)
{
    const sysParams &params = system.params;
    const bool isGiven = system.temperatureSet != 0;
    const kvRc code =
        cause(device, OBJ_SYSTEM, number, system,
              on(device->behaviours.loopbackAlarms && system.loopback.lpbk != NO_LOOPBACK,
                 SYSTEM_LOOPBACK) |
                  on(isGiven && system.temperature >= params.temperatureThr1, SYSTEM_WARM) |
                  on(isGiven && system.temperature >= params.temperatureThr2, SYSTEM_HOT));
    serve(device, system.duty, stateOfSystem(*device) == OPER_UP);
    return code;
}

void shareCircuit(Transaction &device, uint32_t circuit)
{
    if (circuit == 0)
        return;
    uint32_t claims = 0;
    for (const Pw &pw : device->pws)
        claims += pw.claim == circuit;
    for (Pw &pw : device->pws)
        if (pw.claim == circuit && pw.shared != uint32_t{claims > 1})
            device.modify(pw.shared) = claims > 1;
}

void claimCircuit(Transaction &device, Pw &pw)
{
    const uint32_t before = pw.claim;
    const uint32_t claim = pw.provisioned ? pw.config.circuit : 0;
    if (claim == before)
        return;
    device.modify(pw.claim) = claim;
    device.modify(pw.shared) = 0;
    shareCircuit(device, before);
    shareCircuit(device, claim);
}

kvRc settle(Transaction &device, Pw &pw, uint32_t number)
{
    claimCircuit(device, pw);
    const bool needsPort =
        pw.config.adminStatus == ADMIN_UP && pw.claim >= 1 && pw.claim <= KV_SIM_PORTS;
    const kvRc code = cause(device, OBJ_PWE, number, pw,
                            on(device->behaviours.circuitAlarms && pw.shared, PW_CIRCUIT) |
                                on(device->behaviours.portAlarms && needsPort &&
                                       stateOf(device->ports[pw.claim - 1]) != OPER_UP,
                                   PW_PORT));
    serve(device, pw.duty, pw.provisioned && stateOf(pw) == OPER_UP);
    return code;
}

kvRc settle(Transaction &device, Port &port, uint32_t number)
{
    const bool isLooped = port.loopback.lpbk != NO_LOOPBACK;
    kvRc code = cause(device, OBJ_PDH, number, port,
                      on(port.params.adminStatus == ADMIN_UP && !port.signal, PORT_NO_SIGNAL) |
                          on(device->behaviours.loopbackAlarms && isLooped, PORT_LOOPBACK));
    if (serve(device, port.duty, stateOf(port) == OPER_UP))
        for (uint32_t i = 0; i < KV_SIM_PWS && code == KV_OK; ++i)
            if (device->pws[i].claim == number)
                code = settle(device, device->pws[i], i + 1);
    return code;
}

kvRc settle(Transaction &device, Group &group, uint32_t number)
{
    const uint32_t up = group.provisioned ? linksUp(*device, group) : 0;
    const kvRc code = cause(device, OBJ_IMA_GROUP, number, group,
                            on(device->behaviours.linkAlarms && group.provisioned &&
                                   up < device->linksNeeded[number - 1],
                               GROUP_LINKS));
    serve(device, group.duty, up > 0 && group.alarms == 0);
    return code;
}

// What it means for its group is looked at when it is put into it and when its state changes.
kvRc settle(Transaction &device, Link &link, uint32_t)
{
    serve(device, link.duty, link.group && stateOf(link) == OPER_UP);
    const uint32_t group = link.group;
    return group >= 1 && group <= KV_SIM_GROUPS ? settle(device, device->groups[group - 1], group)
                                                : KV_OK;
}

// Settles the objects of which something lies between two places of the device.
template <class Object, size_t COUNT>
kvRc settleThose(Transaction &device, Object (&objects)[COUNT], size_t from, size_t to)
{
    const size_t begin =
        static_cast<size_t>(reinterpret_cast<char *>(objects) - reinterpret_cast<char *>(&*device));
    kvRc code = KV_OK;
    if (to <= begin || from >= begin + sizeof objects)
        return code;
    const size_t first = from > begin ? (from - begin) / sizeof(Object) : 0;
    const size_t end = std::min((to - begin - 1) / sizeof(Object) + 1, COUNT);
    for (size_t i = first; i < end && code == KV_OK; ++i)
        code = settle(device, objects[i], static_cast<uint32_t>(i + 1));
    return code;
}

kvRc settleThose(Transaction &device, size_t from, size_t to)
{
    System(&systems)[1] = reinterpret_cast<System(&)[1]>(device->system);
    kvRc code = settleThose(device, systems, from, to);
    if (code == KV_OK)
        code = settleThose(device, device->ports, from, to);
    if (code == KV_OK)
        code = settleThose(device, device->pws, from, to);
    if (code == KV_OK)
        code = settleThose(device, device->groups, from, to);
    return code == KV_OK ? settleThose(device, device->links, from, to) : code;
}

} // namespace

kvRc settle(Transaction &device)
{
    kvRc code = KV_OK;
    if (device->attentive)
        device.eachChange([&](size_t offset, size_t size) {
            if (code == KV_OK)
                code = settleThose(device, offset, offset + size);
        });
    return code;
}

kvRc attend(Transaction &device)
{
    if (!device->attentive)
        device.modify(device->attentive) = 1;
    for (Pw &pw : device->pws)
        claimCircuit(device, pw);
    return settleThose(device, 0, sizeof(State));
}

} // namespace sim
