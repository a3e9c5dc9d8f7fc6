/**
 * @file pdh.h
 * @brief PDH ports: configuration, alarms, PM counters.
 *
 * What all operations share is described under @ref conventions. Ports count from
 * 1. The units and meanings of "cable length", "sync parameter" and "aux" are the
 * platform's.
 */
#ifndef VEXO_CMI_PDH_H
#define VEXO_CMI_PDH_H

#include <vexo_cmi/values.h>

/** Whole configuration of a port, as it is set. */
typedef struct vexoPdhParamsIn {
    vexoAdminStatus adminStatus;
    vexoPdhFrameMode frameMode;
    vexoPdhCode lineCode;
    uint32_t cableLength; /**< the low 16 bits are stored, 0 included */
    vexoPdhSyncMode syncMode;
    uint32_t syncParam; /**< companion of the sync mode */
    vexoPdhNiuMode niuMode;
    uint32_t auxParam;
} vexoPdhParamsIn;

/** Whole configuration of a port, as it is read. */
typedef struct vexoPdhParamsOut {
    vexoAdminStatus adminStatus;
    vexoOperState operState;
    vexoPdhFrameMode frameMode;
    vexoPdhCode lineCode;
    uint32_t cableLength; /**< 0 to 65535 */
    vexoPdhSyncMode syncMode;
    uint32_t syncParam; /**< companion of the sync mode */
    vexoPdhNiuMode niuMode;
    vexoLpbk loopback; /**< 0 where the platform's is not known */
    uint32_t auxParam;
} vexoPdhParamsOut;

/** Synchronisation of a port. */
typedef struct vexoPdhSync {
    vexoPdhSyncMode mode;
    uint32_t param; /**< companion of the mode */
} vexoPdhSync;

/**
 * PM counters of a port. The platform has two arrangements of the line
 * counters, and the record does not tell which one it holds; it depends on the
 * port.
 *
 * - Arrangement 0 fills all 13 words: twelve counters, then a flag (1 or 0).
 * - Arrangement 1 fills words 0 to 7: seven counters, then a flag (1 or 0); the
 *   other five are not written.
 * - In any other arrangement no word of lineCounters is written.
 *
 * What is not written keeps what the caller had there (vexo_cmi_pdh_pm_get())
 * or is 0 (in a PM report).
 */
typedef struct vexoPdhPm {
    vexoPmType pmType; /**< the type asked for; in a PM report its vexoPmInterval */
    uint32_t lineCounters[13];
    uint32_t commonCounters[5]; /**< of every arrangement */
} vexoPdhPm;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the whole configuration of a port. The loopback is not part of it.
 *
 * @remark The platform's fields that the record does not name stay as they are.
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_params_set(const vexoPdhParamsIn *params, uint32_t port,
                                             vexoResult *result);
/**
 * Reads the whole configuration, operational state and loopback of a port.
 *
 * @remark After a failure nothing is written.
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_params_get(vexoPdhParamsOut *params, uint32_t port,
                                             vexoResult *result);

/** Sets the administrative status of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_admin_set(vexoAdminStatus status, uint32_t port,
                                            vexoResult *result);
/** Reads the administrative status of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_admin_get(vexoAdminStatus *status, uint32_t port,
                                            vexoResult *result);

/** Sets the line code of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_code_set(vexoPdhCode code, uint32_t port, vexoResult *result);
/** Reads the line code of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_code_get(vexoPdhCode *code, uint32_t port, vexoResult *result);

/** Sets the frame mode of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_frame_set(vexoPdhFrameMode mode, uint32_t port,
                                            vexoResult *result);
/** Reads the frame mode of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_frame_get(vexoPdhFrameMode *mode, uint32_t port,
                                            vexoResult *result);

/**
 * Sets the cable length of a port.
 *
 * @remark Only the low 16 bits of a larger number are stored. With 0 nothing is
 * called.
 * @param length 1 to 65535; 0 is accepted and ignored: the port keeps its length
 * @param port from 1
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_cable_len_set(uint32_t length, uint32_t port, vexoResult *result);
/**
 * Reads the cable length of a port, 0 to 65535, and writes the port's
 * configuration back unchanged. When a setter of the same port runs at the same
 * time, it can undo that setter's change.
 *
 * @remark @p length is written before the write-back, whose failure is the
 * operation's failure.
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_cable_len_get(uint32_t *length, uint32_t port,
                                                vexoResult *result);

/** Sets the synchronisation of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_sync_set(const vexoPdhSync *sync, uint32_t port,
                                           vexoResult *result);
/** Reads the synchronisation of a port and a value beside it that only the platform sets. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_sync_get(vexoPdhSync *sync, uint32_t *aux, uint32_t port,
                                           vexoResult *result);

/** Sets the NIU mode of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_niu_set(vexoPdhNiuMode mode, uint32_t port, vexoResult *result);
/** Reads the NIU mode of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_niu_get(vexoPdhNiuMode *mode, uint32_t port, vexoResult *result);

/** Sets the loopback of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_lpbk_set(vexoLpbk loopback, uint32_t port, vexoResult *result);
/** Reads the loopback of a port. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_lpbk_get(vexoLpbk *loopback, uint32_t port, vexoResult *result);

/** Writes the alarm status bits of the PDH ports as a whole. Only bits 0 to 15 can be addressed. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_alarms_set(uint32_t alarmBits, vexoResult *result);
/** Reads the alarm bits now active on a port; their meaning is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_pdh_alarms_get(uint32_t *alarmBits, uint32_t port,
                                             vexoResult *result);

/**
 * Reads the PM counters of a port. Which line counters there are depends on
 * the port.
 *
 * @remark Written before the platform is asked: @p pm->pmType. Words that the
 * port's arrangement does not have keep what the caller had there. A failure
 * carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_pm_get(vexoPdhPm *pm, vexoPmType pmType, uint32_t port,
                                         vexoResult *result);
/**
 * Clears the PM counters of a port, of the intervals 1, 2 and 3 in this order.
 * A failure leaves the later ones uncleared.
 *
 * @remark A failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_pdh_pm_clear(uint32_t port, vexoResult *result);

#ifdef __cplusplus
}
#endif

#endif
