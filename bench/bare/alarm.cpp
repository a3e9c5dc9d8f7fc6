// libkv_alarm.
#include "bare.h"
#include "channel.h"

#include <cstdlib>

using bare::answer;
using bare::set;

static uint32_t activeBits;
static alarmMode reportMode{2};
static uint32_t reportValue;
static bare::Channel<alarmEvent, void (*)(const alarmEvent *)> channel;

kvRc alarm_get_active_bits(objType, uint32_t, uint32_t *bits)
{
    return set(*bits, activeBits);
}

kvRc alarm_set_status_bits(objType, uint32_t mask, uint32_t bits)
{
    return set(activeBits, bits & mask);
}

kvRc alarm_set_notification(alarmMode mode, uint32_t value)
{
    reportValue = value;
    return set(reportMode, mode);
}

kvRc alarm_get_notification(alarmMode *mode, uint32_t *value)
{
    *value = reportValue;
    return set(*mode, reportMode);
}

kvRc alarm_raise_alarm(objType, uint32_t, uint32_t, uint32_t)
{
    return answer();
}

int alarm_notification_sock(void)
{
    return channel.descriptor();
}

kvRc alarm_subscribe(uint32_t, uint32_t, void (*handler)(const alarmEvent *))
{
    channel.subscribe(handler);
    return answer();
}

kvRc alarm_process_notification(void)
{
    alarmEvent event;
    if (!channel.take(event))
        return KV_FAILURE;
    channel.handler()(&event);
    return KV_OK;
}

kvRc alarm_unsubscribe(void)
{
    channel.unsubscribe();
    return answer();
}

void bareAlarmSend(const alarmEvent *event)
{
    if (!channel.send(*event))
        abort();
}

void bareAlarmDeliver(const alarmEvent *event)
{
    channel.handler()(event);
}

int bareAlarmSubscribed(void)
{
    return channel.subscribed();
}
