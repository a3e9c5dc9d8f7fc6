/**
 * @file pwe.h
 * @brief Pseudowires: provisioning, single attributes, ATM cross-connects,
 * alarms, PM and OM counters.
 *
 * What all operations share is described under @ref conventions.
 *
 * @page pweparams How to fill a pseudowire record
 *
 * Three kinds of fields let one record create a pseudowire or change one field
 * of it. What is not applied stays as the platform has it: on a create the
 * platform's default for the type and encapsulation, on a modify the present
 * value.
 *
 * - A **flagged** field is followed by a word named after it with the suffix
 *   `Valid`. It is applied when that word is not 0. When read, the word is 1
 *   for each value returned; value and word are 0 for one that does not exist
 *   in the present mode.
 * - A **non-zero** field is applied when it is not 0.
 * - A **two-state** field is 1 or 2. Any other value leaves the platform's
 *   field alone, but for `rtp.mode` of a whole record: there everything but 2
 *   turns RTP off.
 *
 * All others are applied always: `pweType`, `adminStatus`, `dstMac`,
 * `vlan.mode`, `psn.psnType`, `udpMode` of PSN type 3, and of the service
 * `circuit`, RTP on or off, `atmMode`, `atmType`, `atmClpMode`, `atmParam1` and
 * `atmParam2`. A modify must carry their present values, which
 * vexo_cmi_pwe_params_get() returns; to change one attribute, its own setter is
 * the better way. Zero the record before filling it in.
 *
 * A TDM pseudowire with RTP:
 * @code{.c}
 * vexoPweParams p = {0};
 * p.pweType = VEXO_PWE_TYPE_TDM_1;
 * p.pweAction = VEXO_PWE_ACTION_CREATE;
 * p.adminStatus = VEXO_ADMIN_STATUS_1;
 * memcpy(p.dstMac, mac, 6);
 * p.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
 * p.psn.psnType = VEXO_PWE_PSN_TYPE_2;
 * p.psn.param1 = 4711, p.psn.param1Valid = 1;
 * p.service.t1.circuit = 3;
 * p.service.t1.payloadSize = 256;
 * p.service.t1.rtp.mode = VEXO_PWE_RTP_ON;
 * p.service.t1.rtp.payloadType = 96, p.service.t1.rtp.payloadTypeValid = 1;
 * vexo_cmi_pwe_params_set(&p, 17, &result);
 * @endcode
 *
 * The same pseudowire, moved into a double tag and nothing else:
 * @code{.c}
 * vexoPweVlan vlan = {0};
 * vlan.mode = VEXO_VLAN_MODE_DOUBLE;
 * vlan.outerVlanId = 100, vlan.outerVlanIdValid = 1;
 * vlan.vlanId = 7, vlan.vlanIdValid = 1;
 * vexo_cmi_pwe_vlan_set(&vlan, 17, &result);
 * @endcode
 *
 * An ATM pseudowire with a cross-connect:
 * @code{.c}
 * vexoPweParams p = {0};
 * p.pweType = VEXO_PWE_TYPE_ATM_3;
 * p.pweAction = VEXO_PWE_ACTION_CREATE;
 * p.adminStatus = VEXO_ADMIN_STATUS_1;
 * memcpy(p.dstMac, mac, 6);
 * p.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
 * p.psn.psnType = VEXO_PWE_PSN_TYPE_2;
 * p.service.a.circuit = 1;
 * p.service.a.atmMode = VEXO_ATM_MODE_1;
 * p.service.a.atmType = VEXO_ATM_TYPE_1;
 * p.service.a.atmClpMode = VEXO_ATM_CLP_MODE_1;
 * vexo_cmi_pwe_params_set(&p, 18, &result);
 * vexoPweAtmXc xc = {VEXO_PWE_ATM_XC_TYPE_1, 0, 32, 0, 33};
 * vexo_cmi_pwe_atmop_xc_set(&xc, 18, &result);
 * @endcode
 */
#ifndef VEXO_CMI_PWE_H
#define VEXO_CMI_PWE_H

#include <vexo_cmi/values.h>

/** The most ATM cross-connects that a pseudowire can have. */
#define VEXO_PWE_ATM_XC_MAX 20

/**
 * VLAN tagging. Mode 1 has no tag, mode 3 both; every other mode has the one tag
 * `vlanId` and `priority`. Only the low 16 bits of an identifier and the low 8 of
 * a priority are stored.
 */
typedef struct vexoPweVlan {
    vexoVlanMode mode;
    uint32_t outerVlanId; /**< flagged; mode 3 only */
    uint32_t outerVlanIdValid;
    uint32_t outerPriority; /**< flagged; mode 3 only */
    uint32_t outerPriorityValid;
    uint32_t vlanId; /**< flagged; not in mode 1 */
    uint32_t vlanIdValid;
    uint32_t priority; /**< flagged; not in mode 1 */
    uint32_t priorityValid;
} vexoPweVlan;

/**
 * PSN encapsulation. The meaning of the parameters depends on the
 * PSN type and is the platform's.
 *
 * | `psnType` | has |
 * |---|---|
 * | 1 | `param1`, `param2`; `param3`, `param4` of 8 bits |
 * | 2 | `param1`, `param2` |
 * | 3 | `udpMode`, `param1`, `param2`, `param3` |
 * | 4, 5 | nothing: "Not supported", "Not implemented" |
 * | other | nothing; the platform is given encapsulation 0 |
 */
typedef struct vexoPwePsn {
    vexoPwePsnType psnType;
    uint32_t param1; /**< flagged */
    uint32_t param1Valid;
    uint32_t param2; /**< flagged */
    uint32_t param2Valid;
    uint32_t param3; /**< flagged */
    uint32_t param3Valid;
    union {
        uint32_t param4;        /**< flagged; PSN type 1 */
        vexoPweUdpMode udpMode; /**< PSN type 3, applied always, without a flag */
    };
    uint32_t param4Valid; /**< PSN type 1 */
    uint32_t reserved[7];
} vexoPwePsn;

/** RTP header of a TDM pseudowire. */
typedef struct vexoPweRtp {
    vexoPweRtpMode mode;  /**< two-state */
    uint32_t payloadType; /**< flagged; the low 8 bits are stored; read only while RTP is on */
    uint32_t payloadTypeValid;
    uint32_t ssrc; /**< flagged; read only while RTP is on */
    uint32_t ssrcValid;
    uint32_t reserved[2];
} vexoPweRtp;

/** Service of a pseudowire of type 1 (TDM). */
typedef struct vexoPweServiceT1 {
    uint32_t circuit;          /**< the circuit that is carried */
    uint32_t jitterBufferSize; /**< non-zero; in the platform's unit */
    uint32_t payloadSize;      /**< non-zero; in the platform's unit */
    vexoPweRtp rtp;            /**< `mode` applied always */
    uint32_t reserved[3];
} vexoPweServiceT1;

/** Service of a pseudowire of type 2 (TDM). */
typedef struct vexoPweServiceT2 {
    uint32_t circuit;       /**< the circuit that is carried */
    uint32_t serviceOption; /**< flagged */
    uint32_t serviceOptionValid;
    uint32_t jitterBufferSize; /**< non-zero; in the platform's unit */
    uint32_t payloadSize;      /**< non-zero; in the platform's unit */
    uint32_t serviceFlag;      /**< two-state; 1 sets the platform's flag, 2 clears it */
    vexoPweRtp rtp;            /**< `mode` applied always */
} vexoPweServiceT2;

/** Service of a pseudowire of type 3 or 4 (ATM). */
typedef struct vexoPweServiceA {
    uint32_t circuit;       /**< the circuit that is carried */
    uint32_t payloadSize;   /**< non-zero; in the platform's unit */
    uint32_t serviceOption; /**< non-zero */
    uint32_t serviceFlag;   /**< two-state; 1 clears the platform's flag, 2 sets it */
    vexoAtmMode atmMode;
    vexoAtmType atmType;
    uint32_t atmFlag1; /**< two-state; 1 clears the platform's flag, 2 sets it */
    uint32_t atmFlag2; /**< two-state; 1 clears the platform's flag, 2 sets it */
    vexoAtmClpMode atmClpMode;
    uint32_t atmParam1;
    uint32_t atmParam2;
    uint32_t reserved[2];
} vexoPweServiceA;

/** Type-specific part of a pseudowire record: `pweType` says which member holds. */
typedef union vexoPweService {
    vexoPweServiceT1 t1; /**< `pweType` 1 */
    vexoPweServiceT2 t2; /**< `pweType` 2 */
    vexoPweServiceA a;   /**< `pweType` 3 and 4 */
} vexoPweService;

/** A pseudowire as it is set; see @ref pweparams. */
typedef struct vexoPweParams {
    vexoPweType pweType;
    vexoPweAction pweAction; /**< 1 deletes, 2 creates, any other value modifies */
    vexoAdminStatus adminStatus;
    uint8_t dstMac[6]; /**< destination MAC address, as sent */
    uint8_t reserved[2];
    vexoPweVlan vlan;
    vexoPwePsn psn;
    vexoPweService service;
} vexoPweParams;

/** A pseudowire as it is read. */
typedef struct vexoPweParamsInfo {
    vexoPweType pweType;
    vexoPweAction pweAction; /**< 1 not provisioned, 2 provisioned */
    vexoAdminStatus adminStatus;
    vexoOperState operState;
    uint8_t srcMac[6]; /**< source MAC address in use */
    uint8_t dstMac[6]; /**< destination MAC address */
    vexoPweVlan vlan;
    vexoPwePsn psn;
    vexoPweService service;
} vexoPweParamsInfo;

/** An ATM cross-connect. Only the low 16 bits of an identifier are stored; what each
 * identifies is the platform's. */
typedef struct vexoPweAtmXc {
    vexoPweAtmXcType xcType;
    uint32_t xcId1;
    uint32_t xcId2;
    uint32_t xcId3;
    uint32_t xcId4;
} vexoPweAtmXc;

/** Generic (TDM) PM counters; their meanings and order are the platform's. */
typedef struct vexoPweGenPm {
    uint32_t counters[13];
    uint32_t valid; /**< 1 when the platform says so, else 0 */
} vexoPweGenPm;

/** ATM PM counters; their meanings and order are the platform's. */
typedef struct vexoPweAtmPm {
    uint32_t counters[4];
    uint32_t valid; /**< 1 when the platform says so, else 0 */
} vexoPweAtmPm;

/** PM counters of either kind. The record does not tell which; the
 * platform chooses. */
typedef union vexoPwePmBody {
    vexoPweGenPm generic; /**< generic counters */
    vexoPweAtmPm atm;     /**< ATM counters; the 36 bytes behind them are not written */
} vexoPwePmBody;

/** PM counters of a pseudowire. */
typedef struct vexoPwePm {
    vexoPmType pmType; /**< the type asked for */
    vexoPweType pweType;
    vexoPwePmBody body;
} vexoPwePm;

/** OM counters of one entry of an ATM pseudowire; their meaning is the platform's. */
typedef struct vexoPweOmEntry {
    uint32_t words[2];
    uint32_t counters[2]; /**< the low halves of 64-bit counters */
} vexoPweOmEntry;

/**
 * OM counters of a pseudowire. Counters are the low halves of the
 * platform's 64-bit ones and wrap. A TDM pseudowire has the first two counters,
 * an ATM pseudowire four and the entries, any other type none.
 */
typedef struct vexoPweOm {
    vexoPweType pweType;
    uint32_t counters[4];
    vexoPweOmEntry entries[VEXO_PWE_ATM_XC_MAX];
} vexoPweOm;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Creates, modifies or deletes a pseudowire, as `pweAction` says. A delete needs
 * nothing else. For what is not given, a create takes the platform's default and a
 * modify keeps the present value; to change one attribute, its own setter is the
 * better way. A modify names the type that the pseudowire has: it can't change the
 * type; that takes a delete and a create. A modify of one that is not provisioned
 * fails. PSN type 4 is refused with "Not supported", 5 with "Not implemented";
 * nothing is changed then.
 *
 * @remark How to fill the record: @ref pweparams. The fields of `service` are
 * chosen by the caller's `pweType`, not by that of the pseudowire as it stands.
 * The PSN type is refused after the platform's record (or its defaults) could be
 * read.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_params_set(const vexoPweParams *params, uint32_t pwId,
                                             vexoResult *result);

/**
 * Reads a pseudowire. Succeeds for one that is not provisioned, with `pweAction` 1
 * and everything else 0. An encapsulation that reads as PSN type 4 or 5 fails with
 * "Not supported" or "Not implemented".
 *
 * @remark Whatever happens, all of @p info is zeroed. When the operational
 * state can't be read, `pweType`, `pweAction` and `adminStatus` are filled; with
 * PSN type 4 or 5 everything but the PSN parameters and `service`.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_params_get(vexoPweParamsInfo *info, uint32_t pwId,
                                             vexoResult *result);

/** Sets the administrative status of a pseudowire. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_admin_set(vexoAdminStatus status, uint32_t pwId,
                                            vexoResult *result);
/** Reads the administrative status of a pseudowire. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_admin_get(vexoAdminStatus *status, uint32_t pwId,
                                            vexoResult *result);

/**
 * Sets the destination MAC address of a pseudowire.
 *
 * @remark 6 bytes, as sent.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_dst_mac_set(const unsigned char mac[6], uint32_t pwId,
                                              vexoResult *result);
/**
 * Reads the destination MAC address of a pseudowire.
 *
 * @remark Exactly 6 bytes are written.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_dst_mac_get(unsigned char mac[6], uint32_t pwId,
                                              vexoResult *result);

/**
 * Sets the VLAN tagging of a pseudowire; what is not given stays.
 *
 * @remark A field is given when it is flagged, see @ref pweparams.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_vlan_set(const vexoPweVlan *vlan, uint32_t pwId,
                                           vexoResult *result);
/**
 * Reads the VLAN tagging of a pseudowire.
 *
 * @remark What its mode does not have is 0.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_vlan_get(vexoPweVlan *vlan, uint32_t pwId, vexoResult *result);

/**
 * Sets the encapsulation of a pseudowire; what is not given stays. PSN type 4 is
 * refused with "Not supported", 5 with "Not implemented"; nothing is changed then.
 *
 * @remark A field is given when it is flagged, see @ref pweparams.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_psn_set(const vexoPwePsn *psn, uint32_t pwId, vexoResult *result);
/**
 * Reads the encapsulation of a pseudowire. One that reads as PSN type 4 or 5
 * fails with "Not supported" or "Not implemented".
 *
 * @remark What its type does not have is 0. After these failures `psnType` is
 * filled and the rest 0.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_psn_get(vexoPwePsn *psn, uint32_t pwId, vexoResult *result);

/** Sets the jitter buffer size (packet delay variation), in the platform's unit; the platform
 * judges size and type. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_pdv_set(uint32_t size, uint32_t pwId, vexoResult *result);
/** Reads the jitter buffer size of a TDM pseudowire; any other fails with "Bad PWE type". */
VEXO_CMI_EXPORT void vexo_cmi_pwe_pdv_get(uint32_t *size, uint32_t pwId, vexoResult *result);

/**
 * Sets the payload size of a TDM pseudowire, in the platform's unit; any other
 * is refused with "Bad PWE type". A size of 0 changes nothing.
 *
 * @remark With 0 the platform's record is written back as it was read.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_payload_set(uint32_t size, uint32_t pwId, vexoResult *result);
/** Reads the payload size of a TDM pseudowire; any other fails with "Bad PWE type". */
VEXO_CMI_EXPORT void vexo_cmi_pwe_payload_get(uint32_t *size, uint32_t pwId, vexoResult *result);

/**
 * Sets the RTP header of a TDM pseudowire; any other is refused with "Bad PWE
 * type". What is not given stays.
 *
 * @remark A field is given when it is flagged, see @ref pweparams. A `mode` other
 * than 1 and 2 leaves RTP on or off as it is.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_rtp_set(const vexoPweRtp *rtp, uint32_t pwId, vexoResult *result);
/**
 * Reads the RTP header of a TDM pseudowire; any other fails with "Bad PWE type".
 *
 * @remark After this failure all of @p rtp is zeroed.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_rtp_get(vexoPweRtp *rtp, uint32_t pwId, vexoResult *result);

/** Forces AIS on a pseudowire (any value but 0) or ends it (0). */
VEXO_CMI_EXPORT void vexo_cmi_pwe_atm_force_ais_set(uint32_t force, uint32_t pwId,
                                                    vexoResult *result);
/** Reads whether AIS is forced on a pseudowire of any type: 1 or 0. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_atm_force_ais_get(uint32_t *force, uint32_t pwId,
                                                    vexoResult *result);

/** Adds an ATM cross-connect to a pseudowire; the platform judges type, identifiers and room. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_atmop_xc_set(const vexoPweAtmXc *xc, uint32_t pwId,
                                               vexoResult *result);
/** Removes the ATM cross-connect with these values from a pseudowire. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_atmop_xc_delete(const vexoPweAtmXc *xc, uint32_t pwId,
                                                  vexoResult *result);
/**
 * Reads the ATM cross-connects of an ATM pseudowire; any other fails with
 * "Bad PWE type '...'", the platform's name of its type between the quotes.
 * @param xc room for VEXO_PWE_ATM_XC_MAX records, however many there are; those
 *     behind the last one are not touched
 * @param count how many there are, 0 to VEXO_PWE_ATM_XC_MAX: if the platform
 *     claims more, it is that
 * @param pwId number of the pseudowire
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_atmop_xc_get(vexoPweAtmXc *xc, uint32_t *count, uint32_t pwId,
                                               vexoResult *result);

/** Writes the alarm status bits of the pseudowires as a whole. Only bits 0 to 4 can be addressed.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_alarms_set(uint32_t alarmBits, vexoResult *result);
/** Reads the alarm bits now active on a pseudowire; their meaning is the platform's. */
VEXO_CMI_EXPORT void vexo_cmi_pwe_alarms_get(uint32_t *alarmBits, uint32_t pwId,
                                             vexoResult *result);

/**
 * Reads the PM counters of a pseudowire. "Bad PWE type" means that the
 * platform's counters are of neither kind.
 *
 * @remark Written before: `pmType` in any case, and `pweType` before that
 * refusal. A failed counter read carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_pm_get(vexoPwePm *pm, vexoPmType pmType, uint32_t pwId,
                                         vexoResult *result);
/**
 * Clears the PM counters of a pseudowire, of the intervals 1, 2 and 3 in this
 * order. A failure leaves the later ones uncleared.
 *
 * @remark A failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_pm_clear(uint32_t pwId, vexoResult *result);

/**
 * Reads the OM counters of a pseudowire and, with @p clear not 0, clears them
 * after reading. When the clear fails, the counters read are not returned.
 *
 * @remark Words that the type does not have keep what the caller had there. A
 * failed counter call carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_pwe_om_get(vexoPweOm *om, uint32_t clear, uint32_t pwId,
                                         vexoResult *result);

#ifdef __cplusplus
}
#endif

#endif
