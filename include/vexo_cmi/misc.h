/**
 * @file misc.h
 * @brief Maintenance: link information, software upgrade, debug settings, log,
 * system loopback, test pattern generator.
 *
 * What all operations share is described under @ref conventions.
 */
#ifndef VEXO_CMI_MISC_H
#define VEXO_CMI_MISC_H

#include <vexo_cmi/values.h>

/** Link of the system and its OM counters. */
typedef struct vexoSysInfo {
    uint32_t linkStatus; /**< the platform's word */
    uint32_t linkSpeed;  /**< 10 for the platform's codes 0 and 1, 1000 for 2, else not
                            written; the unit is the platform's */
    uint32_t linkParam;  /**< the platform's word */
    vexoLinkFlag linkFlag;
    uint32_t linkMode; /**< the platform's word when it is 1, 2 or 3, else not written */
    uint32_t om[74];   /**< counters in the platform's layout */
} vexoSysInfo;

/** A software upgrade. */
typedef struct vexoUpgradeInfo {
    vexoUpgradeMode mode;
    /**
     * Name of the software file. 64 bytes of it are read and written,
     * the rest is left alone; a name of 64 characters has no terminator.
     */
    char fileName[128];
    vexoUpgradeState state; /**< only read out, never taken */
} vexoUpgradeInfo;

/** Debug settings. */
typedef struct vexoDebugInfo {
    vexoDebugState state;
    char info[128]; /**< a text of 128 characters has no terminator */
} vexoDebugInfo;

/** Status of the test pattern generator, in the platform's layout. */
typedef struct vexoTpgmStatus {
    uint32_t words[33];
} vexoTpgmStatus;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads the state of the system's link, then its OM counters.
 *
 * @remark Written before the counters are asked for: the link's fields; `om` is
 * left alone when they can't be read. A failed counter read carries the code
 * text.
 * @param info what is to be filled
 * @param clear handed to the platform, which knows what to do with it
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_sys_info_get(vexoSysInfo *info, uint32_t clear,
                                                vexoResult *result);

/**
 * Starts a software load: the file `fileName` of the peer server, in mode
 * `mode`. It goes on by itself once the platform has taken the order. Nothing is
 * loaded when the server's address can't be read.
 *
 * @remark How it goes is read with vexo_cmi_misc_upgrade_info_get(). When the
 * platform refuses the order, the failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_upgrade_init(const vexoUpgradeInfo *upgrade, vexoResult *result);
/**
 * Reads mode, file and state of the software load.
 *
 * @remark A failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_upgrade_info_get(vexoUpgradeInfo *upgrade, vexoResult *result);

/**
 * Sets the debug text, of at most 128 characters.
 *
 * @remark A terminated string; of a longer one 128 bytes are taken. The state
 * word goes along as 0.
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_dbg_init(const char *info, vexoResult *result);
/** Reads the debug settings. */
VEXO_CMI_EXPORT void vexo_cmi_misc_dbg_info_get(vexoDebugInfo *debug, vexoResult *result);
/**
 * Logs the mask and does nothing else. Always succeeds.
 *
 * @remark `message` is left as it was.
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_dbg_mode_set(uint32_t mask, vexoResult *result);

/**
 * Clears the platform's log, and then the alarm that says it is full. Always
 * succeeds; if the alarm can't be cleared, that is logged.
 *
 * @remark `message` is left as it was.
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_log_reset(vexoResult *result);

/** Sets the loopback of the system. */
VEXO_CMI_EXPORT void vexo_cmi_misc_sys_lbk_set(vexoLpbk loopback, vexoResult *result);
/** Reads the loopback of the system. */
VEXO_CMI_EXPORT void vexo_cmi_misc_sys_lbk_get(vexoLpbk *loopback, vexoResult *result);

/** Sets up the test pattern generator with three values, whose meaning is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_misc_tpgm_init(uint32_t tpgmParam1, uint32_t tpgmParam2,
                                             uint32_t tpgmParam3, vexoResult *result);
/**
 * Reads the status of the test pattern generator, and then has the platform clear
 * it, even when the read failed. If either fails, so does the operation.
 *
 * @remark The two outcomes are reported as one, their codes combined; @p status
 * is written only when both succeeded.
 * @param status what is to be filled
 * @param clear handed to the platform, which knows what to do with it
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_misc_tpgm_stat_get(vexoTpgmStatus *status, uint32_t clear,
                                                 vexoResult *result);

#ifdef __cplusplus
}
#endif

#endif
