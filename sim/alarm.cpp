// libkv_alarm.
#include "bodies.h"
#include "notification.h"
#include "objects.h"

#include <pthread.h>

using namespace sim;

namespace
{

Subscription subscription{Service::alarm};
void (*subscribed)(const alarmEvent *);

struct Lifetime {
    Lifetime()
    {
        pthread_atfork(nullptr, nullptr, [] { subscription.close(); });
    }
    ~Lifetime() { subscription.close(); }
} lifetime;

kvRc overlay(Transaction &device, objType type, uint32_t number, uint32_t &alarms, uint32_t mask,
             uint32_t bits)
{
    return setAlarms(device, type, number, alarms, (alarms & ~mask) | (bits & mask));
}

// The same for those of the objects that exist.
template <class Object, size_t COUNT, class Exists>
kvRc overlayAll(Transaction &device, objType type, Object (&objects)[COUNT], uint32_t mask,
                uint32_t bits, Exists exists)
{
    uint32_t number = 0;
    for (Object &object : objects) {
        ++number;
        if (!exists(object))
            continue;
        if (const kvRc code = overlay(device, type, number, object.alarms, mask, bits))
            return code;
    }
    return KV_OK;
}

} // namespace

kvRc body::alarm_get_active_bits(Transaction &device, objType type, uint32_t number, uint32_t *bits)
{
    const uint32_t *alarms = alarmsOf(device, type, number);
    return alarms ? answer(bits, *alarms) : failureCode();
}

// The status bits under the mask, of every object of the type that exists.
kvRc body::alarm_set_status_bits(Transaction &device, objType type, uint32_t mask, uint32_t bits)
{
    switch (type) {
    case OBJ_SYSTEM:
        return overlay(device, type, 1, device->system.alarms, mask, bits);
    case OBJ_PDH:
        return overlayAll(device, type, device->ports, mask, bits, [](Port &) { return true; });
    case OBJ_PWE:
        return overlayAll(device, type, device->pws, mask, bits,
                          [](Pw &pw) { return pw.provisioned != 0; });
    case OBJ_IMA_GROUP:
        return overlayAll(device, type, device->groups, mask, bits,
                          [](Group &group) { return group.provisioned != 0; });
    case OBJ_IMA_LINK:
        return overlayAll(device, type, device->links, mask, bits,
                          [](Link &link) { return link.group != 0; });
    }
    return fail(NO_OBJECT, "there are no alarms of object type %u", type);
}

kvRc body::alarm_set_notification(Transaction &device, alarmMode mode, uint32_t value)
{
    if (mode != 2 && mode != 4)
        return fail(BAD_VALUE, "alarm report mode %u is neither 2 nor 4", mode);
    store(device, device->system.reportMode, mode);
    return store(device, device->system.reportValue, value);
}

kvRc body::alarm_get_notification(Transaction &device, alarmMode *mode, uint32_t *value)
{
    answer(mode, device->system.reportMode);
    return answer(value, device->system.reportValue);
}

kvRc body::alarm_raise_alarm(Transaction &device, objType type, uint32_t number, uint32_t alarm,
                             uint32_t state)
{
    uint32_t *alarms = alarmsOf(device, type, number);
    if (!alarms)
        return failureCode();
    if (alarm > 31)
        return fail(BAD_VALUE, "there is no alarm %u", alarm);
    const uint32_t bit = 1U << alarm;
    return overlay(device, type, number, *alarms, bit, state ? bit : 0);
}

int body::alarm_notification_sock(Transaction &)
{
    return subscription.descriptor();
}

kvRc body::alarm_subscribe(Transaction &device, uint32_t, uint32_t,
                           void (*handler)(const alarmEvent *))
{
    subscribed = handler;
    return subscription.subscribe(device);
}

kvRc body::alarm_process_notification(Transaction &device)
{
    return subscription.handOver(
        device, [handler = subscribed](const alarmEvent &event) { handler(&event); });
}

kvRc body::alarm_unsubscribe(Transaction &device)
{
    subscription.unsubscribe(device);
    return KV_OK;
}
