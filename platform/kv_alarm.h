// libkv_alarm: the alarm service of the device, as far as the library uses it.
#ifndef KV_ALARM_H
#define KV_ALARM_H

#include "kv_types.h"

struct alarmEvent {
    enum objType objType;
    uint32_t objId;
    uint32_t status;
    uint32_t delta;
};

constexpr uint32_t EV_LOG_FULL_ALM = 13;

extern "C" {

kvRc alarm_get_active_bits(objType type, uint32_t number, uint32_t *bits);
kvRc alarm_set_status_bits(objType type, uint32_t mask, uint32_t bits);
kvRc alarm_set_notification(alarmMode mode, uint32_t value);
kvRc alarm_get_notification(alarmMode *mode, uint32_t *value);
kvRc alarm_raise_alarm(objType type, uint32_t number, uint32_t alarm, uint32_t state);

// Readable when an alarm event for this process is pending.
int alarm_notification_sock(void);
// The meaning of the two leading arguments is the platform's; the library passes 0.
kvRc alarm_subscribe(uint32_t first, uint32_t second, void (*handler)(const alarmEvent *));
// Hands what is pending to the handler, on the calling thread.
kvRc alarm_process_notification(void);
kvRc alarm_unsubscribe(void);
}

#endif
