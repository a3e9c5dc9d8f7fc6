// libkv_alarm.
#include "entry.h"
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

kvRc alarm_get_active_bits(objType type, uint32_t number, uint32_t *bits)
{
    return call(Function::alarm_get_active_bits, {number, type}, {}, bytesOf(bits),
                [=](Transaction &device) {
                    const uint32_t *alarms = alarmsOf(device, type, number);
                    if (!alarms)
                        return failureCode();
                    *bits = *alarms;
                    return KV_OK;
                });
}

// The status bits under the mask, of every object of the type that exists.
kvRc alarm_set_status_bits(objType type, uint32_t mask, uint32_t bits)
{
    return action(Function::alarm_set_status_bits, {type, mask, bits}, [=](Transaction &device) {
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
    });
}

kvRc alarm_set_notification(alarmMode mode, uint32_t value)
{
    return action(Function::alarm_set_notification, {mode, value}, [=](Transaction &device) {
        if (mode != 2 && mode != 4)
            return fail(BAD_VALUE, "alarm report mode %u is neither 2 nor 4", mode);
        device.modify(device->system.reportMode) = mode;
        device.modify(device->system.reportValue) = value;
        return KV_OK;
    });
}

kvRc alarm_get_notification(alarmMode *mode, uint32_t *value)
{
    return getter(Function::alarm_get_notification, {}, mode, [=](Transaction &device) {
        *mode = device->system.reportMode;
        *value = device->system.reportValue;
        return KV_OK;
    });
}

kvRc alarm_raise_alarm(objType type, uint32_t number, uint32_t alarm, uint32_t state)
{
    return action(Function::alarm_raise_alarm, {number, type, alarm, state},
                  [=](Transaction &device) {
                      uint32_t *alarms = alarmsOf(device, type, number);
                      if (!alarms)
                          return failureCode();
                      if (alarm > 31)
                          return fail(BAD_VALUE, "there is no alarm %u", alarm);
                      const uint32_t bit = 1U << alarm;
                      return overlay(device, type, number, *alarms, bit, state ? bit : 0);
                  });
}

int alarm_notification_sock(void)
{
    Call entry{Function::alarm_notification_sock, {}};
    return entry.enter() ? subscription.descriptor() : -1;
}

kvRc alarm_subscribe(uint32_t first, uint32_t second, void (*handler)(const alarmEvent *))
{
    return action(Function::alarm_subscribe, {first, second}, [=](Transaction &device) {
        subscribed = handler;
        return subscription.subscribe(device);
    });
}

kvRc alarm_process_notification(void)
{
    return action(Function::alarm_process_notification, {}, [](Transaction &device) {
        subscription.handOver(device,
                              [handler = subscribed](const alarmEvent &event) { handler(&event); });
        return device ? KV_OK : failureCode();
    });
}

kvRc alarm_unsubscribe(void)
{
    return action(Function::alarm_unsubscribe, {}, [](Transaction &device) {
        subscription.unsubscribe(device);
        return KV_OK;
    });
}
