/**
 * @file kv_sim.h
 * @brief Control of the simulated device, for tests and for `vexoctl sim`.
 *
 * The device lives in the file that the environment variable KV_SIM_DEVICE
 * names when the process first uses it, or first after kv_sim_close(). All
 * processes that name the same file share it; without the variable, or with an
 * empty one, each process has a device of its own, new and in memory.
 * docs/simulated-device.md tells more.
 *
 * Functions that return int give 0 for success and -1 for a failure, which
 * kv_sim_error() describes. Those that return a number give 0 when the device
 * can't be used; kv_sim_open() tells that apart. All may be called from any
 * thread and from within the callbacks of the library, though not from a signal
 * handler.
 */
#ifndef KV_SIM_H
#define KV_SIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KV_SIM_EXPORT __attribute__((visibility("default")))

/** What the device has. */
enum {
    KV_SIM_PORTS = 16,
    KV_SIM_PWS = 1024,
    KV_SIM_GROUPS = 8,
    KV_SIM_LINKS = 64,
    KV_SIM_INTERVALS = 4,
};

/** Why the calling thread's latest failed call failed, here or in the platform's functions. */
KV_SIM_EXPORT const char *kv_sim_error(void);

/** Opens the device if that has not been done yet, and makes its file if there is none. -1 when it
 * can't be used; the file is then as it was. */
KV_SIM_EXPORT int kv_sim_open(void);

/** Lets the device go: the next call uses the one that KV_SIM_DEVICE names then. No other thread of
 * the process may be in a call meanwhile. -1 when the process has a subscription; the device stays
 * then. */
KV_SIM_EXPORT int kv_sim_close(void);

/** The thread that holds the device at this moment, which takes microseconds unless it was stopped
 * meanwhile; 0: none. Waits for nothing. */
KV_SIM_EXPORT uint32_t kv_sim_holder(void);

/** Puts the device back to its factory defaults: everything, faults, journal, log and clock
 * included. Hanging calls go on; subscriptions stay, with the events that wait. */
KV_SIM_EXPORT int kv_sim_reset(void);

/** Kind of an object, as the platform's alarm service numbers them. */
enum { KV_SIM_SYSTEM = 0, KV_SIM_PDH = 1, KV_SIM_GROUP = 2, KV_SIM_PW = 3, KV_SIM_LINK = 34 };

/** What processes subscribe to: alarm events, the reports of PM intervals. */
enum { KV_SIM_ALARMS = 1, KV_SIM_REPORTS = 2 };

/* Faults: what befalls the calls of the platform's functions, and the notifications */

/** What a fault does to what it meets: the first six to calls, the others to notifications, of
 * which `service` says which. A call that fails changes nothing, unless its answer is lost. */
typedef enum kvSimEffect {
    KV_SIM_CODE,  /**< the call fails with the code `value`, which is not 0; GetObjectCount returns
                     it, functions that return a text return null, those that return a descriptor
                     -1 */
    KV_SIM_DELAY, /**< the call takes `value` milliseconds longer */
    KV_SIM_HANG, /**< the call does not return until the fault is released or ended, then goes on */
    KV_SIM_GARBAGE, /**< the call succeeds with outputs of random bytes, made from `value` and how
                       many calls the fault has met */
    KV_SIM_LOST, /**< the answer is lost: the call is carried out, and fails with the code `value`,
                    which is not 0; of functions that change something */
    KV_SIM_NOTHING, /**< the call succeeds and changes nothing; of functions that change something
                     */
    KV_SIM_DROP,    /**< the notification is not sent; what it would have told of is the case */
    KV_SIM_DOUBLE,  /**< it is sent twice */
    KV_SIM_LATE,    /**< it is sent when `value` milliseconds have passed for the device */
    KV_SIM_SWAP,    /**< it is sent after the next one of its service */
    KV_SIM_HOLD,    /**< it is sent when the fault is released or ended */
} kvSimEffect;

/** A number among what a call is given, by its name. */
typedef struct kvSimArgument {
    /** An argument, as the journal names it, or a field of the record that the call is given:
     * "params.clockMode", "params.links.0.linkId". Of an alarm event type, number, status and
     * delta, of a PM report interval. Empty: no argument. */
    char name[28];
    uint32_t value;
} kvSimArgument;

/** All that is 0 behind `value` is as if it were not there. */
typedef struct kvSimFault {
    /** Name of the platform function; empty: all that report a code, while `skip` counts the calls
     * of the others, too, as the journal does. Of functions that change nothing KV_SIM_LOST and
     * KV_SIM_NOTHING meet none. */
    char function[40];
    /** Number of the object: of a call's `args`, the first that is named port, pwId, group, link or
     * number, and of an alarm event. A call without an object is not met. 0: whatever the object,
     * also when there is none. */
    uint32_t object;
    uint32_t skip;   /**< how many that fit it lets pass first, that no fault before it meets */
    uint32_t times;  /**< how many it meets then; 0: all */
    uint32_t effect; /**< a kvSimEffect */
    uint32_t value;

    uint32_t service; /**< of the effects on notifications: KV_SIM_REPORTS; 0, too: KV_SIM_ALARMS */
    uint32_t ofType;  /**< not 0: only what is about an object of the kind `type` */
    uint32_t type;    /**< KV_SIM_PDH, ... */
    uint32_t process; /**< only calls of this process */
    /** Only calls of this operation of the library, "vexo_cmi_pwe_params_set": where that is
     * recorded, see kv_sim_operation(). */
    char operation[40];
    kvSimArgument where[3]; /**< only where these have these values */
    /** Only the n-th that fits, from 1, counted since the fault was added, whether or not another
     * one meets it; without skip and times. */
    uint32_t nth;
    /** So many in a million of those that `skip` lets pass, at random: by `seed` and how many it
     * has been tried on. 0: all. */
    uint32_t chance;
    uint32_t seed;

    uint32_t id;      /**< told: never 0, and greater than that of any fault before */
    uint32_t met;     /**< told: how many it has met */
    uint32_t waiting; /**< told: how many calls hang by it, or how many notifications it keeps */
    uint32_t spent;   /**< told: 1 when it has met all that it was to meet */
} kvSimFault;

/** Adds a fault and returns its id; of those that fit a call or notification, the first meets it. 0
 * when there is no such function, argument or effect, on the code 0, and when there are 1024
 * already. */
KV_SIM_EXPORT uint32_t kv_sim_fault_arm(const kvSimFault *fault);
/** The same: 0 for success and -1 for a failure. */
KV_SIM_EXPORT int kv_sim_fault_add(const kvSimFault *fault);
/** Ends all faults, lets the hanging calls go on and sends the notifications that were kept. */
KV_SIM_EXPORT int kv_sim_fault_clear(void);
/** Ends one, in the same way. */
KV_SIM_EXPORT int kv_sim_fault_end(uint32_t id);
/** Lets go what hangs by a fault and what it keeps; it stays, for what it meets from now on. */
KV_SIM_EXPORT int kv_sim_fault_release(uint32_t id);
/** The fault with this index, from 0, as it stands: skip and times count down. Behind those that
 * can still meet something come spent ones that keep something, until it is let go. -1 when there
 * are no more. */
KV_SIM_EXPORT int kv_sim_fault_get(unsigned index, kvSimFault *fault);
/** The fault with this id, as it stands or, when it is spent or was ended, as it stood then; it is
 * forgotten when 1024 newer ones have been added. */
KV_SIM_EXPORT int kv_sim_fault_find(uint32_t id, kvSimFault *fault);
/** How many calls hang; one whose process was killed counts until the faults are cleared. */
KV_SIM_EXPORT unsigned kv_sim_hanging(void);
/** Name of a platform function, by an index from 0; null when there are no more. */
KV_SIM_EXPORT const char *kv_sim_function(unsigned index);
/** What a kvSimArgument of a function's calls can be named, by an index from 0: its arguments that
 * are numbers, and the fields of the record that it is given, 0 for each index. Of an empty name:
 * the arguments of all functions. -1 when there are no more. */
KV_SIM_EXPORT int kv_sim_argument_get(const char *function, unsigned index,
                                      kvSimArgument *argument);

/* Restart */

typedef struct kvSimReboot {
    uint32_t milliseconds;      /**< of device time that the device is away */
    uint32_t keepConfiguration; /**< 0: comes back with factory defaults, without pseudowires and
                                   IMA groups; alarms of what is there then stay */
    uint32_t keepFaults;        /**< 0: all end */
    uint32_t keepJournal;       /**< 0: begins anew */
    uint32_t setClock;          /**< not 0: the clock is `clock` when the device is back */
    uint64_t clock;             /**< microseconds since the epoch */
} kvSimReboot;

/**
 * Restarts the device. While it is away each call fails with code 1, those that hang included; only
 * the texts of failures are there, and the clock, which is the host's. Subscriptions end: their
 * descriptors report a hang-up, and taking notifications fails. Loopbacks, test pattern and
 * software load end, notifications that were kept are gone; counters are 0, and no PM interval has
 * ended. Clock, alarms and all here is set as ever meanwhile.
 */
KV_SIM_EXPORT int kv_sim_reboot(const kvSimReboot *reboot);
/** Milliseconds of device time until the device is back; 0: it is there. */
KV_SIM_EXPORT uint32_t kv_sim_away(void);

/*
 * Journal: the calls of the platform's functions. It holds the latest 4096, or as many as the
 * environment variable KV_SIM_JOURNAL says when the device is made, up to 1000000. There are 320
 * bytes for each: where calls with long records take more, fewer are held.
 */

enum { KV_SIM_RECORD_SIZE = 512, KV_SIM_OUT_SIZE = 2560, KV_SIM_NAME_SIZE = 64 };

typedef struct kvSimCall {
    uint64_t number;     /**< counts all calls of the device, from 1 */
    uint64_t deviceTime; /**< by the device clock, when it began; microseconds since the epoch */
    uint64_t hostTime;   /**< by the host's time of day, to 10 ms when that was just set */
    uint64_t duration; /**< in nanoseconds, from when the device was free for it; 0 while pending */
    uint32_t process;
    uint32_t thread; /**< of that process */
    /** The thread, too, while the call is held up, hangs or delivers notifications, or did when the
     * process died; 0: it has returned. */
    uint32_t pending;
    uint32_t code;                      /**< what the call returned */
    uint32_t fault;                     /**< id of the fault that met it; 0: none */
    uint32_t argCount;                  /**< how many of the arguments are numbers */
    uint32_t args[4];                   /**< these, in the function's order */
    uint32_t recordSize;                /**< size of the record that the call was given; 0: none */
    uint32_t outSize;                   /**< size of what it filled; 0 when it failed, too */
    uint8_t record[KV_SIM_RECORD_SIZE]; /**< of kv_log, the text; nothing behind its size */
    /** The record that it filled, several one behind the other, or the text that it returned. */
    uint8_t out[KV_SIM_OUT_SIZE];
    char operation[KV_SIM_NAME_SIZE]; /**< see kv_sim_operation(); empty: not known */
    const char *function;             /**< its name; this and the next ones stay valid */
    const char *argNames[4];          /**< port, pwId, group, link and number are objects */
} kvSimCall;

/** Number of the latest call; 0: none yet. */
KV_SIM_EXPORT uint64_t kv_sim_journal_last(void);
/** The call with this number. -1 when there is none, or no longer. */
KV_SIM_EXPORT int kv_sim_journal_get(uint64_t number, kvSimCall *call);

/** A place in the journal; all zeros: at the oldest call that there is. */
typedef struct kvSimCursor {
    uint64_t next;   /**< number of the call to be read next */
    uint64_t lost;   /**< calls that the journal dropped before they were read */
    uint64_t resets; /**< of the device; one that was reset is read from its first call on */
} kvSimCursor;

/** Puts a cursor behind the latest call. */
KV_SIM_EXPORT int kv_sim_journal_end(kvSimCursor *cursor);
/**
 * Reads the call at a cursor, and moves it on; waits for one up to the given time. 1 when there was
 * one, 0 when there was none, -1 for a failure. A call is read once, though it may be pending; what
 * came of it kv_sim_journal_get() tells later.
 */
KV_SIM_EXPORT int kv_sim_journal_next(kvSimCursor *cursor, kvSimCall *call, uint32_t milliseconds);

/** A lost update: what one thread read of an object and wrote back undoes what another wrote in
 * between. The numbers of the three calls. */
typedef struct kvSimRace {
    uint64_t read;
    uint64_t between;
    uint64_t write;
} kvSimRace;

/**
 * Finds the lost updates among the calls that the journal holds: a function that reads a record of
 * an object, a function that writes to that object in another thread, of whatever process, and a
 * function that writes the record in the first. Fills in up to @p size of the oldest; returns how
 * many there are, -1 for a failure.
 */
KV_SIM_EXPORT int kv_sim_journal_races(kvSimRace *races, unsigned size);

/** Where the calling thread keeps the name of the library's operation that is in progress in it,
 * null for none. Whoever knows it, such as a recorder between the caller and the library, sets it
 * for as long as the operation runs, to a text that stays valid; the journal has it. */
KV_SIM_EXPORT const char **kv_sim_operation(void);

/* Clock: the device has its own; the host's is never set */

/** Reads the device clock: microseconds since the epoch. It begins with the host's time of day and
 * runs by the host's monotonic clock from then on; when the host is started anew, it goes on from
 * where it was last seen. It stops for good at the end of the year 9999. */
KV_SIM_EXPORT uint64_t kv_sim_clock_get(void);
/** Sets the device clock, which lets no time pass: the PM intervals that this skips don't end, the
 * next ends are counted from there, and a software load stays where it is. */
KV_SIM_EXPORT int kv_sim_clock_set(uint64_t microseconds);
/** Stops the device clock (not 0), or lets it run on (0). */
KV_SIM_EXPORT int kv_sim_clock_stop(int stopped);
/** 1 when the device clock is stopped, else 0. */
KV_SIM_EXPORT int kv_sim_clock_stopped(void);
/**
 * Moves the device clock on. Every PM interval whose end lies in between ends,
 * one after the other, each as soon as all subscribers have dealt with the
 * report of the one before; only the one from whose PM callback this is called
 * is not waited for. -1 when the clock was not moved, or not all the way: also
 * when a subscriber has got no further with its reports for two seconds, which
 * kv_sim_error() then names.
 */
KV_SIM_EXPORT int kv_sim_clock_advance(uint64_t microseconds);
/** The same, but goes on: a subscriber that got no further for two seconds is not waited for again.
 */
KV_SIM_EXPORT int kv_sim_clock_advance_anyway(uint64_t microseconds);

/*
 * Waiting, for at most so many milliseconds: 0 when it has come about, -1 when it has not, and
 * kv_sim_error() tells what there was instead
 */

/** Until a process (0: any) has subscribed to these services, a sum; 0: to any. */
KV_SIM_EXPORT int kv_sim_wait_subscribed(uint32_t process, uint32_t services,
                                         uint32_t milliseconds);
/** Until all subscribers have dealt with all notifications that have been sent: taken them, and
 * returned from their callbacks. While the clock runs, those that a fault delays count as well. */
KV_SIM_EXPORT int kv_sim_wait_handled(uint32_t milliseconds);
/** Until no function of the platform has been called for @p quiet milliseconds from now on. */
KV_SIM_EXPORT int kv_sim_wait_idle(uint32_t quiet, uint32_t milliseconds);
/** Until so many calls hang. */
KV_SIM_EXPORT int kv_sim_wait_hanging(uint32_t calls, uint32_t milliseconds);

/* Alarms */

/** Sets the alarm bits that are active on an object, and sends an event if that changes them. The
 * system is number 1. */
KV_SIM_EXPORT int kv_sim_alarm_set(uint32_t type, uint32_t number, uint32_t bits);
/** Sets them without an event. */
KV_SIM_EXPORT int kv_sim_alarm_alter(uint32_t type, uint32_t number, uint32_t bits);
/** Sends an event as it is, whatever the device's state; also of a type that doesn't exist. */
KV_SIM_EXPORT int kv_sim_alarm_send(uint32_t type, uint32_t number, uint32_t status,
                                    uint32_t delta);
/** Sends the same event @p count times, each after @p delayMs; returns after the last. */
KV_SIM_EXPORT int kv_sim_alarm_burst(uint32_t type, uint32_t number, uint32_t status,
                                     uint32_t delta, uint32_t count, uint32_t delayMs);
/** The alarm bits that are active on an object. */
KV_SIM_EXPORT int kv_sim_alarm_get(uint32_t type, uint32_t number, uint32_t *bits);

/* Counters and PM intervals */

/** Ends a PM interval (1 to 4) now; those of 1 to 3 are reported. The clock's next end of it stays.
 */
KV_SIM_EXPORT int kv_sim_interval_end(uint32_t interval);
/** Sends the report notification of an interval code, whatever it is, without ending anything. */
KV_SIM_EXPORT int kv_sim_interval_send(uint32_t interval);
/** Sets how long an interval (1 to 4) lasts, in seconds of the device clock; 0: it only ends on
 * command. Factory defaults: 900, 3600, 86400 and 0. */
KV_SIM_EXPORT int kv_sim_interval_period(uint32_t interval, uint32_t seconds);
/**
 * Sets one word of an object's PM counters in the running interval. The object
 * is a port, a group or a pseudowire that exists, or a link.
 * @param word index into the words behind the seven leading ones of the platform's record; word 0
 *     of a port tells the arrangement of its counters, that of a pseudowire their kind
 */
KV_SIM_EXPORT int kv_sim_pm_set(uint32_t type, uint32_t number, uint32_t interval, uint32_t word,
                                uint32_t value);
/** Reads such a word. */
KV_SIM_EXPORT int kv_sim_pm_get(uint32_t type, uint32_t number, uint32_t interval, uint32_t word,
                                uint32_t *value);
/**
 * Sets one OM counter of an object.
 * @param counter the system: one of 74 words, of which @p value fills 32 bits;
 * a pseudowire: 0 to 4, then 2 for each of 20 cross-connects; a group: 0 or 1;
 * a link: 0 to 7
 */
KV_SIM_EXPORT int kv_sim_om_set(uint32_t type, uint32_t number, uint32_t counter, uint64_t value);
/** Reads one OM counter of an object, by the same numbers. */
KV_SIM_EXPORT int kv_sim_om_get(uint32_t type, uint32_t number, uint32_t counter, uint64_t *value);

/** By how much a counter grows while its object is in service: it is up, which ports are not until
 * somebody takes them into service, and a link is in a group. */
typedef struct kvSimRate {
    uint32_t type;
    uint32_t number;
    uint32_t om;      /**< 0: a PM counter, in all intervals; 1: an OM counter */
    uint32_t counter; /**< as in kv_sim_pm_set() or kv_sim_om_set() */
    uint32_t amount;
    uint32_t milliseconds; /**< in which it grows by the amount: 1 to 3600000 of device time */
    uint32_t burst;        /**< 0: evenly; 1: at once, whenever they are over */
} kvSimRate;

/**
 * Lets a counter of an object that exists grow from now on, by device time; an
 * amount of 0 ends that. A counter wraps around at its end, which is that of 32
 * bits, or of 64 for the OM counters of pseudowires, groups and links. The times
 * of all rates of the object begin anew. Fails when 4096 counters grow already.
 */
KV_SIM_EXPORT int kv_sim_rate_set(const kvSimRate *rate);
/** The rate with this index, from 0, in the order of the objects. -1 when there are no more. */
KV_SIM_EXPORT int kv_sim_rate_get(unsigned index, kvSimRate *rate);

/** How many notifications have been sent that subscribers have not dealt with yet, and how many
 * were lost: of more than 4095 that wait for a subscriber the oldest. */
KV_SIM_EXPORT int kv_sim_pending(uint32_t *waiting, uint64_t *lost);

/** A process that listens to the device. */
typedef struct kvSimSubscription {
    uint32_t process;
    uint32_t pm;      /**< 0: to the alarms; 1: to the ends of the PM intervals */
    uint32_t waiting; /**< notifications that it has not taken yet */
    uint64_t lost;    /**< the oldest ones, when more than 4095 waited; since it subscribed */
} kvSimSubscription;

/** The subscription with this index, from 0. -1 when there are no more. */
KV_SIM_EXPORT int kv_sim_subscription_get(unsigned index, kvSimSubscription *subscription);

/** What a subscriber notices when its subscription ends. */
typedef enum kvSimEnding {
    KV_SIM_SILENCE, /**< nothing: no more notifications come */
    KV_SIM_ERROR,   /**< its descriptor reports an error, and taking notifications fails */
    KV_SIM_HANGUP,  /**< the same with a hang-up, as when what is behind a connection is gone */
} kvSimEnding;

/** Ends the subscriptions of a process (0: of all) to these services, a sum. One that is told so is
 * woken, and finds it when it takes notifications; it can subscribe anew after alarm_unsubscribe()
 * or pmom_unsubscribe(). -1 when the process has none. */
KV_SIM_EXPORT int kv_sim_subscription_end(uint32_t process, uint32_t services, uint32_t ending);

/* Settings: what the device is like, and what it does by itself */

/**
 * Sets one of the settings, by its name: "temperature", "signal.3",
 * "version.2". Numbers are decimal or begin with 0x; what can be switched takes
 * "on" and "off". "behaviours" stands for all of those that switch something
 * that a device does. docs/simulated-device.md tells what each is for.
 */
KV_SIM_EXPORT int kv_sim_set(const char *name, const char *value);
/** Reads a setting as text; "some" where "behaviours" is neither on nor off. Fails when the text
 * doesn't fit into @p size bytes; none needs more than 128. */
KV_SIM_EXPORT int kv_sim_get(const char *name, char *value, unsigned size);
/** Name of a setting, by an index from 0; null when there are no more. Valid until the thread asks
 * for the next. */
KV_SIM_EXPORT const char *kv_sim_setting(unsigned index);

/* Software upgrade */

/** Makes software loads fail when they reach this state (2 to 5 of the platform); 0: none fails.
 * One that has reached it already, or has ended, stays as it is. */
KV_SIM_EXPORT int kv_sim_upgrade_fail(uint32_t state);

/* Log: the last 512 records */

typedef struct kvSimLog {
    uint64_t number; /**< counts the records, from 1 */
    int level;
    int module;
    int line;
    char file[32];
    char function[64];
    char text[160];
} kvSimLog;

/** Number of the latest log record; 0: none yet. */
KV_SIM_EXPORT uint64_t kv_sim_log_last(void);
/** The log record with this number. -1 when there is none, or no longer. */
KV_SIM_EXPORT int kv_sim_log_get(uint64_t number, kvSimLog *record);

#ifdef __cplusplus
}
#endif

#endif
