// The simulated device: all of its state is this one plain struct, in private memory or in a file
// that processes share.
#ifndef SIM_STATE_H
#define SIM_STATE_H

#include "journal.h"
#include "kv_sim.h"
#include "lock.h"

#include <kv_alarm.h>
#include <kv_config.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>

namespace sim
{

// Counters of one kind and interval. They device for the interval in which they were last written;
// ending an interval is therefore one increment, however many objects there are.
template <class Record>
struct Pm {
    struct Slot {
        uint32_t epoch; // the interval's count plus 1; 0: never written
        Record record;
    };
    Slot slots[KV_SIM_INTERVALS][2]; // the running interval and the one before, by parity
};

// How long an object has been in service, which its counters grow by. Times are uptimes.
struct Duty {
    uint32_t up; // when it was last looked at
    uint64_t since;
    uint64_t served; // until then
    uint64_t grown;  // how much of it the counters have seen
};

// The alarms that are there by a cause of the device's own, of those that are active.
using Caused = uint32_t;

struct System {
    Duty duty;
    Caused caused;
    uint32_t temperatureSet; // a temperature that nobody set has no alarms
    eqptMode mode;
    alarmMode reportMode;
    uint32_t reportValue;
    uint32_t temperature;
    uint32_t alarms;
    uint32_t restarts;
    sysParams params;
    sysStatus status;
    pweIf interface;
    sysLinkStatus link;
    sysOmStat om;
    peerServer server;
    debugInfo debug;
    sysLpbk loopback;
    tpgmSetup tpgm;
    uint64_t tpgmStart; // uptime; 0: not set up
};

struct Port {
    Duty duty;
    Caused caused;
    uint32_t signal;
    pdhParams params;
    pdhLpbk loopback;
    uint32_t alarms;
    Pm<pdhPmStat> pm;
};

struct Pw {
    Duty duty;
    Caused caused;
    uint32_t claim;  // the circuit that it has; 0: none
    uint32_t shared; // others have it, too
    uint32_t provisioned;
    uint32_t alarms;
    pwConfig config;
    pwOmStats om;
    Pm<pwPmStats> pm;
};

struct Group {
    Duty duty;
    Caused caused;
    uint32_t provisioned;
    uint32_t alarms;
    imaParams params;
    imaGroupOmStat om;
    Pm<imaGroupPmStat> pm;
};

struct Link {
    Duty duty;
    uint32_t group; // 0: in none
    uint32_t alarms;
    imaLinkOmStat om;
    Pm<imaLinkPmStat> pm;
};

// States of a software load, as the platform numbers them; those between are reached one by one.
constexpr uint32_t LOAD_NONE = 1;
constexpr uint32_t LOAD_FIRST = 2;
constexpr uint32_t LOAD_DONE = 5;
constexpr uint32_t LOAD_FAILED = 6;

struct Upgrade {
    uint32_t state;
    uint32_t failState;
    uint64_t since; // uptime at which the state was reached
    upgradeRequest request;
};

constexpr bool isLoading(const Upgrade &load)
{
    return load.state >= LOAD_FIRST && load.state < LOAD_DONE;
}

// All times are in microseconds. The device's uptime is the time that has passed for it, whatever
// its clock was set to; it begins with 1.
struct Clock {
    uint64_t uptime; // at the anchor
    uint64_t anchor; // of the host's monotonic clock
    uint64_t seen;   // the latest uptime that anybody saw
    uint64_t offset; // what the uptime lacks to the time of day, modulo 2^64
    char boot[40];   // the host's run that the anchor belongs to
    uint32_t stopped;
    uint64_t nextEnd[KV_SIM_INTERVALS]; // device time at which the interval ends; 0: on command
    uint32_t period[KV_SIM_INTERVALS];
};

struct Restart {
    uint32_t underWay; // to be done, by whoever finds it so
    uint64_t begun;    // uptime
    uint64_t until;    // uptime at which the device is back; 0: it is there
    kvSimReboot how;
};

enum class Service : uint32_t { alarm, pm };

constexpr uint32_t SERVICES = 2;
constexpr uint32_t SUBSCRIBERS = 256; // of a service
constexpr uint32_t EVENTS = 4095;

// A process that listens. Its doorbell is a datagram socket with an abstract name.
struct Subscriber {
    uint32_t used;
    uint32_t process;
    uint32_t rung; // the doorbell was rung and has not been answered yet
    uint32_t busy; // taking a notification
    // A kvSimEnding that it has yet to notice; 0: it listens.
    uint32_t ending;
    uint64_t taken; // number of the last event that it took, or lost
    uint64_t lost;  // events, since it subscribed
    uint8_t name[16];
    uint32_t nameSize;
};

// One queue for all who listen: each has a place in it, and has lost what was overwritten before.
struct Notifications {
    Subscriber subscribers[SUBSCRIBERS];
    uint64_t last;             // number of the latest event
    alarmEvent events[EVENTS]; // of the PM service: the interval in the first word
};

constexpr uint32_t FAULTS = 1024;
constexpr uint32_t KEPT = 1024;

// A place that is free again tells of the fault that it was used for.
struct ArmedFault {
    uint32_t armed;
    uint32_t about;    // the index of a function, ANY_FUNCTION, or from NOTIFICATIONS on a service
    uint32_t seen;     // that fitted
    uint32_t drawn;    // numbers for its chance
    uint32_t releases; // of what hangs by it
    kvSimFault fault;
};

// Notifications that faults keep.
struct Kept {
    uint64_t due;   // uptime at which it is sent; 0: not by time
    uint32_t fault; // its place
    uint32_t service;
    uint32_t swapped; // sent after the next of its service
    alarmEvent event;
};

// What a device does and this one does only when told, each 0 or 1. Their names are the settings'.
struct Behaviours {
    uint32_t systemState;
    uint32_t loopbackAlarms;
    uint32_t circuitAlarms;
    uint32_t portAlarms;
    uint32_t linkAlarms;
    uint32_t loadVersion;
    uint32_t loadRestart;
    uint32_t consistency;
    uint32_t logAlarm;
};

// How a device differs that this one is to be like; as long as nothing was told, nobody looks.
struct Likeness {
    uint32_t told;
    uint32_t ports; // how many there are
    uint32_t pwes;
    uint32_t groups;
    uint32_t codes[5];    // of refusals, in the order of REFUSALS
    uint32_t refused[16]; // of the values of each of RANGES, those that it doesn't take: a bit each
};

constexpr uint32_t RATES = 4096;

// In the order of the objects; a counter has at most one.
struct Rates {
    uint32_t count;
    kvSimRate rates[RATES];
};

constexpr uint32_t LOG = 512;

// What a change overwrote, until it is complete. The largest changes an alarm of every pseudowire,
// with an event for each.
constexpr uint32_t UNDO_SIZE = 1 << 18;

struct Undo {
    uint32_t used;
    uint8_t bytes[UNDO_SIZE];
};

constexpr uint64_t MAGIC = 0x6B76'5369'6D44'6576;
constexpr uint32_t VERSION = 5;

// The first bytes of a device in a file, of whatever version. A size of 0: it is just being made.
struct Head {
    uint64_t magic;
    uint32_t version;
    uint32_t size;
};

// The journal's records come behind it.
struct alignas(64) State {
    Head head;
    uint32_t calls; // that the journal holds

    Lock lock;
    Undo undo;
    uint32_t initialised; // 0 while the factory defaults are being written

    // What a transaction modified lies behind here.
    uint32_t faultGeneration; // counts the clearings: what hangs waits for the next
    uint32_t hanging;         // calls that have begun to hang since then, and were not released
    uint32_t restarts;        // the device's
    uint64_t resets;          // the journal's

    System system;
    Port ports[KV_SIM_PORTS];
    Pw pws[KV_SIM_PWS];
    Group groups[KV_SIM_GROUPS];
    Link links[KV_SIM_LINKS];
    uint32_t pmEpoch[KV_SIM_INTERVALS];
    Upgrade upgrade;
    Clock clock;
    Restart restart;

    // Whether anything was asked for that follows from changes; until then nobody looks at them.
    uint32_t attentive;
    Behaviours behaviours;
    uint32_t linksNeeded[KV_SIM_GROUPS];
    uint32_t loadDowntime; // in seconds
    Likeness likeness;
    Rates rates;

    Notifications services[SERVICES];
    uint64_t lost;

    uint32_t faultLast;    // the id of the latest
    uint32_t faultCount;   // of the places in order
    uint32_t faultsLapsed; // some of these are no longer armed
    uint16_t faultOrder[FAULTS];
    ArmedFault faults[FAULTS];
    uint32_t keptCount;
    Kept kept[KEPT];

    Journal journal;
    uint64_t logLast;
    uint64_t logCleared; // records up to this number are gone
    uint32_t logCounted; // since then, debug records left out
    kvSimLog log[LOG];
};

// What faults may take of the 4 MiB of a new device.
static_assert(sizeof(State::faults) + sizeof(State::faultOrder) + sizeof(State::kept) <= 320 << 10);

} // namespace sim

#endif
