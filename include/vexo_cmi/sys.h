/**
 * @file sys.h
 * @brief The system: settings, status, inventory, versions, keep-alive.
 *
 * What all operations share is described under @ref conventions. The values live
 * in the platform's configuration store; the library keeps none of them.
 */
#ifndef VEXO_CMI_SYS_H
#define VEXO_CMI_SYS_H

#include <vexo_cmi/values.h>

/** Which text of vexoSwVersion is that of the `gorv` component. */
#define VEXO_SW_VERSION_GORV 7

/**
 * Software versions: ten terminated texts. Text VEXO_SW_VERSION_GORV names the
 * version of the hosting `gorv` component; what the others name is the
 * platform's.
 */
typedef struct vexoSwVersion {
    char text[10][128];
} vexoSwVersion;

/**
 * Inventory: five texts and a number, whose meaning is the platform's. Every text
 * is terminated.
 */
typedef struct vexoSysInventory {
    char text1[32];     /**< at most 31 characters */
    char text2[32];     /**< at most 31 characters */
    char text3[20];     /**< at most 19 characters */
    char text4[12];     /**< at most 11 characters */
    char text5[4];      /**< at most 3 characters */
    char numberHigh[3]; /**< the number divided by 10000, in decimal, its first 2 digits */
    char numberLow[5];  /**< the number modulo 10000, in decimal, without leading zeros */
} vexoSysInventory;

/** Condition of the system. */
typedef struct vexoSysStatus {
    vexoModuleState state;
    uint32_t values1[13]; /**< thirteen values of the platform's */
    vexoSwVersion version;
    uint32_t values2[6]; /**< six values of the platform's */
} vexoSysStatus;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the clock of the device, at once.
 *
 * @remark The range is not checked here. A failure of any kind is
 * VEXO_RC_GENERAL with the configuration library's latest text, which need not
 * be about the clock.
 * @param seconds since the epoch
 * @param microseconds 0 to 999999
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_tod_set(unsigned seconds, unsigned microseconds,
                                          vexoResult *result);

/** Asks the platform's process supervisor to shut the device down. */
VEXO_CMI_EXPORT void vexo_cmi_sys_reset(vexoResult *result);

/** Sets the TDM mode of the equipment. */
VEXO_CMI_EXPORT void vexo_cmi_sys_tdm_mode_set(vexoTdmMode mode, vexoResult *result);
/** Reads the TDM mode of the equipment. */
VEXO_CMI_EXPORT void vexo_cmi_sys_tdm_mode_get(vexoTdmMode *mode, vexoResult *result);

/**
 * Sets the source MAC address of the pseudowires.
 *
 * @remark 6 bytes, read by vexo_cmi_sys_src_mac_get() in the same order.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_src_mac_set(const unsigned char mac[6], vexoResult *result);
/**
 * Reads the source MAC address of the pseudowires.
 *
 * @remark Exactly 6 bytes are written.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_src_mac_get(unsigned char mac[6], vexoResult *result);

/**
 * Sets the tag protocol identifier of VLAN tags.
 *
 * @remark Only the low 16 bits of a larger number are taken; that is no failure.
 * @param tpid 0 to 65535
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_tpid_set(unsigned tpid, vexoResult *result);
/** Reads the tag protocol identifier of VLAN tags, 0 to 65535. */
VEXO_CMI_EXPORT void vexo_cmi_sys_tpid_get(unsigned *tpid, vexoResult *result);

/** Sets the source IPv4 address of the pseudowires; the byte order is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_sys_src_ip_set(unsigned address, vexoResult *result);
/** Reads the source IPv4 address of the pseudowires, as the platform stores it. */
VEXO_CMI_EXPORT void vexo_cmi_sys_src_ip_get(unsigned *address, vexoResult *result);

/** Sets both LOPS thresholds; which is which, and their units, are the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_sys_lops_set(unsigned first, unsigned second, vexoResult *result);
/** Reads both LOPS thresholds. */
VEXO_CMI_EXPORT void vexo_cmi_sys_lops_get(unsigned *first, unsigned *second, vexoResult *result);

/** Sets the alarm report mode and its companion value, whose meaning is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_sys_rpt_mode_set(vexoAlarmMode mode, unsigned value,
                                               vexoResult *result);
/** Reads the alarm report mode and its companion value. */
VEXO_CMI_EXPORT void vexo_cmi_sys_rpt_mode_get(vexoAlarmMode *mode, unsigned *value,
                                               vexoResult *result);

/**
 * Sets both clock output values, whose meaning is the platform's.
 *
 * @remark Each is read once.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_clk_out_set(const unsigned *first, const unsigned *second,
                                              vexoResult *result);
/** Reads both clock output values. */
VEXO_CMI_EXPORT void vexo_cmi_sys_clk_out_get(unsigned *first, unsigned *second,
                                              vexoResult *result);

/** Sets the network type. */
VEXO_CMI_EXPORT void vexo_cmi_sys_net_type_set(vexoNetQuality quality, vexoResult *result);
/** Reads the network type. */
VEXO_CMI_EXPORT void vexo_cmi_sys_net_type_get(vexoNetQuality *quality, vexoResult *result);

/** Sets both temperature thresholds, in the platform's unit. */
VEXO_CMI_EXPORT void vexo_cmi_sys_temp_set(unsigned first, unsigned second, vexoResult *result);
/**
 * Reads the temperature and both thresholds, in the platform's unit.
 *
 * @remark After a failure none of the three is written.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_temp_get(unsigned *current, unsigned *first, unsigned *second,
                                           vexoResult *result);

/** Reads the alarm bits now active on the system; their meaning is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_sys_alarm_get(unsigned *bits, vexoResult *result);
/** Writes the alarm status bits of the system. Only bits 0 to 14 can be addressed. */
VEXO_CMI_EXPORT void vexo_cmi_sys_alarm_set(unsigned bits, vexoResult *result);

/**
 * Reads the inventory: five texts and a number, whose meaning is the platform's.
 *
 * @remark After a failure nothing is written.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_inventory_get(vexoSysInventory *inventory, vexoResult *result);
/**
 * Reads the condition of the system: its state, the software versions and values of the platform's.
 *
 * @remark After a failure nothing is written.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_status_get(vexoSysStatus *status, vexoResult *result);
/** Reads the state of the system alone. */
VEXO_CMI_EXPORT void vexo_cmi_sys_oper_state_get(vexoModuleState *state, vexoResult *result);
/**
 * Reads the software versions alone.
 *
 * @remark After a failure nothing is written.
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_version_get(vexoSwVersion *version, vexoResult *result);

/**
 * Takes a keep-alive from the agent, with its time of day, and keeps the device
 * clock in step: the clock is set when no keep-alive of this process has set it
 * yet, or when it reads 901 seconds or more past the last such setting. Any other
 * keep-alive succeeds and changes nothing, even when the device clock now reads
 * earlier than the last setting. After a failed setting the next keep-alive tries
 * again. A setting is logged ("Kato time is updated").
 *
 * @remark Set as by vexo_cmi_sys_tod_set(); the settings count from when the
 * library was loaded. Works the same with a null @p result. The device clock may
 * read whatever a `timeval` of the machine holds, before the epoch too; only a
 * setting after which it reads second 0 counts as none. Keep-alives may overlap in
 * time: each that finds a setting due makes one, and the time kept is that of one
 * of them, never the seconds of one with the microseconds of another; after two
 * that overlapped the next setting may come a second late. (On a machine without
 * atomic words of 64 bits this holds as long as their times are not a multiple of
 * 4096 seconds apart, nor on different sides of a multiple of 2^32.)
 * @param seconds since the epoch
 * @param microseconds 0 to 999999
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_sys_kato_send(unsigned seconds, unsigned microseconds,
                                            vexoResult *result);

#ifdef __cplusplus
}
#endif

#endif
