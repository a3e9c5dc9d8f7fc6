// The bare platform: the least that can stand in for the platform libraries. Records are copied in
// and out; there is no journal, no lock and no check of a number.
#ifndef BARE_H
#define BARE_H

#include <kv_alarm.h>
#include <kv_pmom.h>

#include <stdint.h>

extern "C" {

// Not 0: so many calls from now, one fails with this code.
extern uint32_t bareFailIn;
extern kvRc bareFailCode;

// How many objects of a kind there are; less than as many as there is room for.
struct BareObjects {
    uint32_t ports, pws, groups;
};
extern BareObjects bareObjects;

// Moves the clock on. settimeofday() and gettimeofday() are the bare platform's, too.
void bareClockAdvance(uint32_t seconds);

// A pending notification: the service's descriptor becomes readable.
void bareAlarmSend(const alarmEvent *event);
void barePmSend(pmInterval interval);

// What the latest subscriber would be handed, on the calling thread; also when it has gone.
void bareAlarmDeliver(const alarmEvent *event);
void barePmDeliver(pmInterval interval);

// Whether there is a subscriber.
int bareAlarmSubscribed(void);
int barePmSubscribed(void);
}

#endif
