/**
 * @file notify.h
 * @brief Callbacks: alarm events as they come, PM counters at the end of each
 * interval.
 *
 * There are two services, one for each callback, and they share nothing. A
 * service runs on one thread of the library's own from the first registration
 * of a callback until it is unregistered, or until vexo_cmi_fini(), the
 * unloading of the library or the normal end of the process. The thread
 * subscribes to the device's events by itself, soon after the registration has
 * returned: those from before are not seen.
 *
 * **Thread.** A callback runs on its service's thread, one call at a time;
 * while it runs, that service delivers nothing else. The two callbacks can run
 * at the same time as each other and as the agent's own threads. The thread has
 * the process's default attributes and the signal mask of the thread that
 * registered: block there the signals that are not to be handled on it.
 *
 * **Inside a callback.** Every operation may be called, and either callback may be
 * registered: so a callback can replace or mute itself. It must not unregister its
 * own service or call vexo_cmi_fini(): they would wait for the very thread that
 * calls them. The other service can be unregistered, provided that its callback
 * doesn't do the same. A callback must return: it must neither throw nor end its
 * thread or the process.
 *
 * **Record.** It lives on the service's stack until the callback returns, and
 * is then used again: copy what is to be kept. It may be written to.
 *
 * **After.** Unregistering lets the callback in progress end and hands on what
 * is pending: alarm events or whole PM reports, until the platform has no more,
 * 1000 times, or until its call fails twice in a row: then the rest is lost. When
 * it has returned, no callback is running and none will come; events that come
 * later are lost. After registering null or another callback, a call of the old
 * one that had begun may still be running, and the rest of a PM report still goes
 * to it.
 *
 * **At the same time.** Register, unregister and vexo_cmi_fini() take no lock,
 * so two threads must not call any of them at the same time. A registration
 * while the service is running is different: it only replaces the callback and
 * may come from any thread at any time; each event goes to one of the callbacks,
 * whole.
 *
 * **Failure.** Nothing is reported to the caller when a service can't start or
 * ends by itself: the platform's log tells (module 29, level 3). A service that
 * could not start, for want of a pipe or a thread, is tried again by the next
 * registration; one that ended by itself, because the platform refused the
 * subscription, its descriptor can't be waited for or the waiting failed, must be
 * unregistered first. When the platform's call that hands on what is pending
 * fails, the service tries again: the first time at once, after further failures
 * in a row 10 ms later, then 20, and so on up to a second, until a call succeeds.
 * Each failure is in the log. Unregistering ends such a pause at once, and what is
 * pending is lost.
 *
 * **Descriptors.** A running service has a pipe, none of it under the numbers 0
 * to 2, and what the platform opens for it; a program that the process starts
 * does not inherit the pipe (but for one that another thread starts in the very
 * moment of a registration). It waits with select(): where the pipe is numbered
 * FD_SETSIZE (1024) or more, it does not start; where the platform's descriptor is
 * that or negative, it ends by itself.
 *
 * **fork().** The child has no service, whatever the parent had, and may
 * register its own; its end does not touch the parent's, which goes on. That
 * holds for fork(); what is made by vfork() or clone() must execute a program or
 * call _exit(). A child that is forked inside a callback must not return from it:
 * it would run on as the service, beside the parent's.
 *
 * **Unloading.** dlclose() and the end of the process wait for a callback in
 * progress. The thread that calls dlclose() holds the loader's lock meanwhile: a
 * callback that needs it, for dlopen() for example, waits for ever. To be safe,
 * unregister before, likewise before the process tears down what a callback uses.
 */
#ifndef VEXO_CMI_NOTIFY_H
#define VEXO_CMI_NOTIFY_H

#include <vexo_cmi/ima.h>
#include <vexo_cmi/pdh.h>
#include <vexo_cmi/pwe.h>
#include <vexo_cmi/values.h>

/** Number of PDH ports that a PM report holds; further ports are left out, and the log says so. */
#define VEXO_PM_PDH_MAX 16

/** An alarm event of the system, a PDH port or a pseudowire. */
typedef struct vexoAlarmObject {
    uint32_t objId;  /**< number of the object, as the platform gives it */
    uint32_t status; /**< alarm bits now active on it, as the alarm getters return them */
    uint32_t delta;  /**< alarm bits that changed */
} vexoAlarmObject;

/** An alarm event of an IMA group or link. */
typedef struct vexoAlarmIma {
    vexoImaType imaType; /**< group or link */
    uint32_t groupId;    /**< number of the group or link */
    uint32_t linkId;     /**< the same number again */
    uint32_t status;     /**< alarm bits now active on it, as the alarm getters return them */
    uint32_t delta;      /**< alarm bits that changed */
} vexoAlarmIma;

/** An alarm event. What the variant does not name carries no meaning. */
typedef struct vexoAlarmNotification {
    vexoObjType objType; /**< selects the variant */
    union {
        vexoAlarmObject object; /**< system, PDH port, pseudowire */
        vexoAlarmIma ima;       /**< IMA group or link */
    };
} vexoAlarmNotification;

/** PM counters of one pseudowire in a report. */
typedef struct vexoPmPwe {
    vexoPweType pweType;
    vexoPmInterval interval;
    uint32_t pwId; /**< number of the pseudowire */
    vexoPwePmBody body;
} vexoPmPwe;

/** PM counters of one IMA group in a report. */
typedef struct vexoPmIma {
    vexoPmInterval interval;
    uint32_t groupId; /**< number of the group */
    /** a link whose counters could not be read is all 0, and is counted */
    vexoImaGroupPm group;
} vexoPmIma;

/**
 * One record of a PM report. What the variant does not name carries
 * no meaning.
 */
typedef struct vexoPmNotification {
    vexoObjType objType; /**< selects the variant */
    union {
        /**
         * PDH: element i belongs to port i + 1. A port whose counters
         * could not be read, or that does not exist, is all 0.
         */
        vexoPdhPm pdh[VEXO_PM_PDH_MAX];
        vexoPmPwe pwe; /**< pseudowire */
        vexoPmIma ima; /**< IMA group */
    };
} vexoPmNotification;

#ifdef __cplusplus
extern "C" {
#endif

/** Takes an alarm event, on the alarm service's thread; the record ends with the call. */
typedef void (*vexoAlarmCallback)(vexoAlarmNotification *alarm);

/** Takes one record of a PM report, on the PM service's thread; the record ends with the call. */
typedef void (*vexoPmCallback)(vexoPmNotification *pm);

/**
 * Registers the callback for alarm events and starts the service if it isn't
 * running. While it runs, the callback is only replaced, without a system call: each
 * event goes to the one registered when it is handed on. Null on a running service
 * keeps it subscribed and drops its events; on one that isn't running it is stored
 * in place of the callback, and nothing else happens.
 *
 * An object of a type that vexoObjType does not have raises no callback.
 */
VEXO_CMI_EXPORT void vexo_cmi_alarm_callback_register(vexoAlarmCallback callback);

/**
 * Stops the alarm service and waits until its thread has ended, after the
 * callback in progress and the events that are pending. Harmless when it isn't
 * running. Not from inside the alarm callback.
 */
VEXO_CMI_EXPORT void vexo_cmi_alarm_callback_unregister(void);

/**
 * Registers the callback for PM reports; otherwise as
 * vexo_cmi_alarm_callback_register(). At the end of each interval it is called, in
 * this order, once for all PDH ports, even if there are none, once for each
 * provisioned pseudowire and once for each IMA group. What can't be read is left
 * out or, of a port or a link, all 0; the log says so, unless it is merely that
 * there are no counters or no such group. A callback that is replaced during a
 * report gets the rest of it.
 *
 * Where there are more PDH ports than VEXO_PM_PDH_MAX, more links in a group than
 * VEXO_IMA_LINK_MAX, more than 1024 pseudowires or 65535 groups, only the first
 * are reported, and the log says that there are more.
 */
VEXO_CMI_EXPORT void vexo_cmi_pm_callback_register(vexoPmCallback callback);

/**
 * Stops the PM service and waits until its thread has ended, after the report
 * in progress, all its calls of the callback included, and the reports that are
 * pending. Harmless when it isn't running. Not from inside the PM callback.
 */
VEXO_CMI_EXPORT void vexo_cmi_pm_callback_unregister(void);

#ifdef __cplusplus
}
#endif

#endif
