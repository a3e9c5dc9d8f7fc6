/**
 * @file notify.h
 * @brief Callbacks: alarm events as they come, PM counters at the end of each
 * interval.
 *
 * There are two services, one for each callback, and they share nothing. A
 * service runs on one thread of the library's own from the first registration
 * of a callback until it is unregistered (or vexo_cmi_fini()).
 *
 * **Thread.** A callback runs on its service's thread, one call at a time;
 * while it runs, that service delivers nothing else. The two callbacks can run
 * at the same time as each other and as the agent's own threads.
 *
 * **Inside a callback.** Every operation may be called, also the registration
 * of the same callback's service (to replace or to mute itself). Not its
 * unregistration and not vexo_cmi_fini(): they wait for the very thread that
 * would call them.
 *
 * **Record.** It lives on the service's stack until the callback returns, and
 * is then used again: copy what is to be kept.
 *
 * **After.** When unregistering has returned, no callback is running and none
 * will come. After registering null or another callback, a call of the old one
 * that had begun may still be running.
 *
 * **Care.** Register, unregister and vexo_cmi_fini() must not run at the same
 * time as each other, but for registrations while the service is running, which
 * only replace the callback. Nothing is reported when a service can't start or
 * ends by itself: the platform's log tells. It can then be unregistered and
 * registered again. After fork() the child has no service, whatever the parent
 * had, and may register its own; the parent's goes on. A callback must return:
 * it must neither throw nor end its thread.
 */
#ifndef VEXO_CMI_NOTIFY_H
#define VEXO_CMI_NOTIFY_H

#include <vexo_cmi/ima.h>
#include <vexo_cmi/pdh.h>
#include <vexo_cmi/pwe.h>
#include <vexo_cmi/values.h>

/** Number of PDH ports that a PM report holds; further ports are left out, and the log says so. */
#define VEXO_PM_PDH_MAX 16

/** An alarm event of the system, a PDH port or a pseudowire, 12 bytes. */
typedef struct vexoAlarmObject {
    uint32_t objId;  /**< number of the object; 1 for the system */
    uint32_t status; /**< alarm bits now active on it, as the alarm getters return them */
    uint32_t delta;  /**< alarm bits that changed */
} vexoAlarmObject;

/** An alarm event of an IMA group or link, 20 bytes. */
typedef struct vexoAlarmIma {
    vexoImaType imaType; /**< group or link */
    uint32_t groupId;    /**< number of the group or link */
    uint32_t linkId;     /**< the same number again */
    uint32_t status;     /**< alarm bits now active on it, as the alarm getters return them */
    uint32_t delta;      /**< alarm bits that changed */
} vexoAlarmIma;

/** An alarm event, 24 bytes. What the variant does not name carries no meaning. */
typedef struct vexoAlarmNotification {
    vexoObjType objType; /**< offset 0: selects the variant */
    union {
        vexoAlarmObject object; /**< offset 4: system, PDH port, pseudowire */
        vexoAlarmIma ima;       /**< offset 4: IMA group or link */
    };
} vexoAlarmNotification;

/** PM counters of one pseudowire in a report, 68 bytes. */
typedef struct vexoPmPwe {
    vexoPweType pweType;     /**< offset 0 */
    vexoPmInterval interval; /**< offset 4 */
    uint32_t pwId;           /**< offset 8: number of the pseudowire */
    vexoPwePmBody body;      /**< offset 12 */
} vexoPmPwe;

/** PM counters of one IMA group in a report, 604 bytes. */
typedef struct vexoPmIma {
    vexoPmInterval interval; /**< offset 0 */
    uint32_t groupId;        /**< offset 4: number of the group */
    /** offset 8: a link whose counters could not be read is all 0, and is counted */
    vexoImaGroupPm group;
} vexoPmIma;

/**
 * One record of a PM report, 1220 bytes. What the variant does not name carries
 * no meaning.
 */
typedef struct vexoPmNotification {
    vexoObjType objType; /**< offset 0: selects the variant */
    union {
        /**
         * offset 4, PDH: element i belongs to port i + 1. A port whose counters
         * could not be read, or that does not exist, is all 0.
         */
        vexoPdhPm pdh[VEXO_PM_PDH_MAX];
        vexoPmPwe pwe; /**< offset 4, pseudowire */
        vexoPmIma ima; /**< offset 4, IMA group */
    };
} vexoPmNotification;

#ifdef __cplusplus
extern "C" {
#endif

/** Takes an alarm event. */
typedef void (*vexoAlarmCallback)(vexoAlarmNotification *alarm);

/** Takes one record of a PM report. */
typedef void (*vexoPmCallback)(vexoPmNotification *pm);

/**
 * Registers the callback for alarm events and starts the service if it isn't
 * running. While it runs, the callback is only replaced: each event goes to the
 * one registered when it arrives. Null keeps a running service subscribed and
 * drops its events.
 *
 * A service that could not be started is tried anew by the next registration;
 * one that ended by itself must be unregistered first.
 */
VEXO_CMI_EXPORT void vexo_cmi_alarm_callback_register(vexoAlarmCallback callback);

/**
 * Stops the alarm service and waits until its thread has ended, after the
 * callback in progress. Harmless when it isn't running.
 */
VEXO_CMI_EXPORT void vexo_cmi_alarm_callback_unregister(void);

/**
 * Registers the callback for PM reports; otherwise as
 * vexo_cmi_alarm_callback_register(). At the end of each interval it is called
 * once for all PDH ports, once for each provisioned pseudowire and once for
 * each IMA group whose counters can be read. A callback that is replaced during
 * a report gets the rest of that report.
 */
VEXO_CMI_EXPORT void vexo_cmi_pm_callback_register(vexoPmCallback callback);

/**
 * Stops the PM service and waits until its thread has ended, after the report
 * in progress. Harmless when it isn't running.
 */
VEXO_CMI_EXPORT void vexo_cmi_pm_callback_unregister(void);

#ifdef __cplusplus
}
#endif

#endif
