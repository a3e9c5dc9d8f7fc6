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

struct System {
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
    pdhParams params;
    pdhLpbk loopback;
    uint32_t alarms;
    Pm<pdhPmStat> pm;
};

struct Pw {
    uint32_t provisioned;
    uint32_t alarms;
    pwConfig config;
    pwOmStats om;
    Pm<pwPmStats> pm;
};

struct Group {
    uint32_t provisioned;
    uint32_t alarms;
    imaParams params;
    imaGroupOmStat om;
    Pm<imaGroupPmStat> pm;
};

struct Link {
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

enum class Service : uint32_t { alarm, pm };

constexpr uint32_t SERVICES = 2;
constexpr uint32_t SUBSCRIBERS = 256; // of a service
constexpr uint32_t EVENTS = 4095;

// A process that listens. Its doorbell is a datagram socket with an abstract name.
struct Subscriber {
    uint32_t used;
    uint32_t process;
    uint32_t rung;  // the doorbell was rung and has not been answered yet
    uint32_t busy;  // taking a notification
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

struct ArmedFault {
    uint32_t used;
    kvSimFault fault;
};

constexpr uint32_t FAULTS = 32;
constexpr uint32_t LOG = 512;

// What a change overwrote, until it is complete. The largest changes an alarm of every pseudowire,
// with an event for each.
constexpr uint32_t UNDO_SIZE = 1 << 18;

struct Undo {
    uint32_t used;
    uint8_t bytes[UNDO_SIZE];
};

constexpr uint64_t MAGIC = 0x6B76'5369'6D44'6576;
constexpr uint32_t VERSION = 4;

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
    uint32_t hanging;         // calls that have begun to hang since then
    uint64_t resets;          // the factory resets

    System system;
    Port ports[KV_SIM_PORTS];
    Pw pws[KV_SIM_PWS];
    Group groups[KV_SIM_GROUPS];
    Link links[KV_SIM_LINKS];
    uint32_t pmEpoch[KV_SIM_INTERVALS];
    Upgrade upgrade;
    Clock clock;

    Notifications services[SERVICES];
    uint64_t lost;

    uint32_t faultCount;
    ArmedFault faults[FAULTS];

    Journal journal;
    uint64_t logLast;
    uint64_t logCleared; // records up to this number are gone
    uint32_t logCounted; // since then, debug records left out
    kvSimLog log[LOG];
};

} // namespace sim

#endif
