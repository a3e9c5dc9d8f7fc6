/**
 * @file ima.h
 * @brief IMA groups and their links: provisioning, states, alarms, PM and OM
 * counters.
 *
 * What all operations share is described under @ref conventions. Groups count from
 * 1; a group has at most VEXO_IMA_LINK_MAX links. Should the platform claim more,
 * the first VEXO_IMA_LINK_MAX are used and every count that is returned says
 * VEXO_IMA_LINK_MAX; only vexo_cmi_ima_get() hands the platform's record over as
 * it is, its count included.
 */
#ifndef VEXO_CMI_IMA_H
#define VEXO_CMI_IMA_H

#include <vexo_cmi/values.h>

/** The most links that a group can have. */
#define VEXO_IMA_LINK_MAX 8

/** What is to be done to a group. The meaning of the parameters is the platform's. */
typedef struct vexoImaGroupSet {
    vexoImaAction imaAction;
    uint32_t groupParam1;
    uint32_t groupParam2;
    uint32_t groupParam3; /**< 0 leaves the group's as it is */
} vexoImaGroupSet;

/** State of a group; its layout is the platform's. */
typedef struct vexoImaGroupState {
    uint32_t words[8];
} vexoImaGroupState;

/** State of a link; the layout behind the number is the platform's. */
typedef struct vexoImaLinkState {
    uint32_t linkId; /**< number of the link */
    uint32_t words[9];
} vexoImaLinkState;

/** A group with its links as the platform has it. */
typedef struct vexoImaParams {
    uint32_t groupParam1;
    uint32_t groupParam2;
    uint32_t groupParam3;
    vexoImaGroupState groupState;
    uint32_t linkCount; /**< how many of the links are in use */
    vexoImaLinkState links[VEXO_IMA_LINK_MAX];
} vexoImaParams;

/** PM counters of a link; the meaning of the counters is the platform's. */
typedef struct vexoImaLinkPm {
    uint32_t linkId;       /**< number of the link */
    uint32_t intervalFlag; /**< 1 when the platform says so, else 0 */
    /** the platform's order, except that its second counter is the eighth here */
    uint32_t counters[16];
} vexoImaLinkPm;

/** PM counters of a group and its links; the meaning of the counters is the platform's. */
typedef struct vexoImaGroupPm {
    uint32_t intervalFlag; /**< 1 when the platform says so, else 0 */
    uint32_t counters[3];  /**< the platform's third, first and second */
    uint32_t linkCount;    /**< number of link records that follow */
    vexoImaLinkPm links[VEXO_IMA_LINK_MAX];
} vexoImaGroupPm;

/** OM counters of a link: the low halves of 64-bit counters. */
typedef struct vexoImaLinkOm {
    uint32_t counters[8];
} vexoImaLinkOm;

/**
 * OM counters of a group and its links: the low halves of 64-bit
 * counters. The links stand in the order of vexo_cmi_ima_lnk_get().
 */
typedef struct vexoImaOm {
    uint32_t counters[2];
    uint32_t linkCount; /**< number of link blocks that follow */
    vexoImaLinkOm links[VEXO_IMA_LINK_MAX];
} vexoImaOm;

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Creates, modifies or deletes a group. A created group has no links. A modify
 * keeps the links and, with `groupParam3` 0, the third parameter; the other two
 * parameters are applied always, 0 included. An action that is none of the three
 * is refused with "Bad IMA action".
 *
 * @remark Nothing is called then.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_set(const vexoImaGroupSet *group, uint32_t groupId,
                                      vexoResult *result);
/**
 * Reads a group with its links, as the platform has it.
 *
 * @remark Byte for byte: the link count is not checked.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_get(vexoImaParams *params, uint32_t groupId, vexoResult *result);

/** Adds a link to a group that can be read; the platform judges room and membership. */
VEXO_CMI_EXPORT void vexo_cmi_ima_lnk_add(uint32_t linkId, uint32_t groupId, vexoResult *result);
/** Removes a link from a group that can be read. */
VEXO_CMI_EXPORT void vexo_cmi_ima_lnk_delete(uint32_t linkId, uint32_t groupId, vexoResult *result);

/**
 * Reads the numbers of a group's links.
 * @param linkIds room for VEXO_IMA_LINK_MAX numbers; those behind the last are not touched
 * @param linkCount how many there are, 0 to VEXO_IMA_LINK_MAX
 * @param groupId from 1
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_lnk_get(uint32_t linkIds[VEXO_IMA_LINK_MAX], uint32_t *linkCount,
                                          uint32_t groupId, vexoResult *result);

/** Reads the state of a group. */
VEXO_CMI_EXPORT void vexo_cmi_ima_group_state_get(vexoImaGroupState *state, uint32_t groupId,
                                                  vexoResult *result);
/**
 * Reads the states of a group's links.
 * @param states room for VEXO_IMA_LINK_MAX records; those behind the last are not touched
 * @param linkCount how many there are, 0 to VEXO_IMA_LINK_MAX
 * @param groupId from 1
 * @param result outcome; may be null
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_lnk_state_get(vexoImaLinkState states[VEXO_IMA_LINK_MAX],
                                                uint32_t *linkCount, uint32_t groupId,
                                                vexoResult *result);

/**
 * Reads the PM counters of a group and of each of its links.
 *
 * @remark Written before a link is asked for: the group's part and `linkCount`,
 * which counts all links also when one of them fails, and the links before that
 * one. Link records behind the last are not touched. A failed counter read
 * carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_pm_get(vexoImaGroupPm *pm, vexoPmType pmType, uint32_t groupId,
                                         vexoResult *result);

/**
 * Clears the PM counters of a group, then those of each of its links: of the
 * intervals 1, 2 and 3 in this order. A failure leaves what comes after it
 * uncleared. Group 0 clears all groups from 1 to 8 and their links as far as it
 * can, and reports no failure.
 *
 * @remark A failed clear carries the code text. With group 0 every clear is
 * tried, also of a group that can't be read (but not of its links); `rc` is
 * VEXO_RC_OK and `message` is left as it was.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_pm_clear(uint32_t groupId, vexoResult *result);

/**
 * Reads the OM counters of a group and of each of its links and, with @p clear
 * not 0, clears each right after it was read. After a failure what was cleared
 * stays cleared.
 *
 * @remark Written before a failure: what was read until then; the group's counters
 * before they are cleared, `linkCount`, which counts all links, afterwards. Blocks
 * behind the last link are not touched. A failed counter call carries the code
 * text.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_om_get(vexoImaOm *om, uint32_t clear, uint32_t groupId,
                                         vexoResult *result);

/**
 * Writes the alarm status bits of the IMA groups (bits 0 to 9), then those of
 * the IMA links (bits 16 to 22), as a whole. When the first write fails, the
 * second is not made.
 *
 * @remark A failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_alarms_set(uint32_t alarmBits, vexoResult *result);
/**
 * Reads the alarm bits now active on a group or a link; their meaning is the
 * platform's.
 *
 * @remark An @p imaType that is neither fails as VEXO_RC_GENERAL without a call.
 * A failure carries the code text.
 */
VEXO_CMI_EXPORT void vexo_cmi_ima_alarms_get(uint32_t *alarmBits, vexoImaType imaType,
                                             uint32_t number, vexoResult *result);

#ifdef __cplusplus
}
#endif

#endif
