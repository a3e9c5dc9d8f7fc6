/**
 * @file values.h
 * @brief The enumerations of the interface.
 *
 * 0 is no member of them (except of vexoModuleState and the actions): a platform
 * value that the library does not know becomes 0, or 1 where it is the state of
 * the system, of an upgrade or of debugging. Where only the platform knows what a
 * value means, the members are numbered.
 */
#ifndef VEXO_CMI_VALUES_H
#define VEXO_CMI_VALUES_H

#include <vexo_cmi/base.h>

/** TDM mode of the equipment. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoTdmMode){
    VEXO_TDM_MODE_1 = 1,
    VEXO_TDM_MODE_2 = 2,
    VEXO_TDM_MODE_3 = 3,
};

/**
 * State of the system (module). Unlike elsewhere, 0 is a member, and a platform
 * state that the library does not know reads as 1. The meanings are the
 * platform's.
 */
VEXO_CMI_ENUM(vexoModuleState){
    VEXO_MODULE_STATE_0 = 0, VEXO_MODULE_STATE_1 = 1, VEXO_MODULE_STATE_2 = 2,
    VEXO_MODULE_STATE_3 = 3, VEXO_MODULE_STATE_4 = 4, VEXO_MODULE_STATE_5 = 5,
};

/**
 * Operational state of a port or a pseudowire; 0 where the platform's is not
 * known. The meanings are the platform's.
 */
VEXO_CMI_ENUM(vexoOperState){
    VEXO_OPER_STATE_1 = 1, VEXO_OPER_STATE_2 = 2, VEXO_OPER_STATE_3 = 3,
    VEXO_OPER_STATE_4 = 4, VEXO_OPER_STATE_5 = 5,
};

/** Administrative status. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoAdminStatus){
    VEXO_ADMIN_STATUS_1 = 1,
    VEXO_ADMIN_STATUS_2 = 2,
    VEXO_ADMIN_STATUS_3 = 3,
};

/** PDH frame mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPdhFrameMode){
    VEXO_PDH_FRAME_MODE_1 = 1, VEXO_PDH_FRAME_MODE_2 = 2, VEXO_PDH_FRAME_MODE_3 = 3,
    VEXO_PDH_FRAME_MODE_4 = 4, VEXO_PDH_FRAME_MODE_5 = 5, VEXO_PDH_FRAME_MODE_6 = 6,
};

/** PDH line code. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPdhCode){
    VEXO_PDH_CODE_1 = 1,
    VEXO_PDH_CODE_2 = 2,
    VEXO_PDH_CODE_3 = 3,
    VEXO_PDH_CODE_4 = 4,
};

/** PDH NIU mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPdhNiuMode){
    VEXO_PDH_NIU_MODE_1 = 1,
    VEXO_PDH_NIU_MODE_2 = 2,
    VEXO_PDH_NIU_MODE_3 = 3,
    VEXO_PDH_NIU_MODE_4 = 4,
};

/** PDH synchronisation (clock) mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPdhSyncMode){
    VEXO_PDH_SYNC_MODE_1 = 1, VEXO_PDH_SYNC_MODE_2 = 2, VEXO_PDH_SYNC_MODE_3 = 3,
    VEXO_PDH_SYNC_MODE_4 = 4, VEXO_PDH_SYNC_MODE_5 = 5,
};

/** Loopback of a port or of the system. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoLpbk){
    VEXO_LPBK_1 = 1,
    VEXO_LPBK_2 = 2,
    VEXO_LPBK_3 = 3,
    VEXO_LPBK_4 = 4,
};

/**
 * Which PM counters a getter reads: 1 to 3 are the intervals of vexoPmInterval, 4 is
 * one more, which no clear covers. What they span is the platform's.
 */
VEXO_CMI_ENUM(vexoPmType){
    VEXO_PM_TYPE_1 = 1,
    VEXO_PM_TYPE_2 = 2,
    VEXO_PM_TYPE_3 = 3,
    VEXO_PM_TYPE_4 = 4,
};

/**
 * PM interval of a report; 0 for an interval that the library does not know. What
 * they span is the platform's.
 */
VEXO_CMI_ENUM(vexoPmInterval){
    VEXO_PM_INTERVAL_1 = 1,
    VEXO_PM_INTERVAL_2 = 2,
    VEXO_PM_INTERVAL_3 = 3,
};

/** VLAN tagging of a pseudowire. */
VEXO_CMI_ENUM(vexoVlanMode){
    VEXO_VLAN_MODE_UNTAGGED = 1, /**< no tag fields */
    VEXO_VLAN_MODE_2 = 2,        /**< one tag */
    VEXO_VLAN_MODE_DOUBLE = 3,   /**< outer tag and tag */
    VEXO_VLAN_MODE_4 = 4,        /**< one tag */
};

/** UDP mode of a pseudowire of PSN type 3. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPweUdpMode){
    VEXO_PWE_UDP_MODE_1 = 1,
    VEXO_PWE_UDP_MODE_2 = 2,
    VEXO_PWE_UDP_MODE_3 = 3,
};

/** Type of a pseudowire: which payload it carries, and which fields it has. */
VEXO_CMI_ENUM(vexoPweType){
    VEXO_PWE_TYPE_TDM_1 = 1, /**< TDM: jitter buffer, payload size, RTP */
    VEXO_PWE_TYPE_TDM_2 = 2, /**< TDM: as 1, and a service option and flag */
    VEXO_PWE_TYPE_ATM_3 = 3, /**< ATM, with cross-connects */
    VEXO_PWE_TYPE_ATM_4 = 4, /**< ATM, with cross-connects */
    VEXO_PWE_TYPE_5 = 5,     /**< no type-specific fields */
};

/** PSN type (encapsulation) of a pseudowire. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPwePsnType){
    VEXO_PWE_PSN_TYPE_1 = 1, VEXO_PWE_PSN_TYPE_2 = 2,
    VEXO_PWE_PSN_TYPE_3 = 3, /**< the one with a UDP mode */
    VEXO_PWE_PSN_TYPE_4 = 4, /**< "Not supported" */
    VEXO_PWE_PSN_TYPE_5 = 5, /**< "Not implemented" */
};

/** What vexo_cmi_pwe_params_set() is to do. Any other value modifies, too. */
VEXO_CMI_ENUM(vexoPweAction){
    VEXO_PWE_ACTION_MODIFY = 0, VEXO_PWE_ACTION_DELETE = 1, /**< read: not provisioned */
    VEXO_PWE_ACTION_CREATE = 2,                             /**< read: provisioned */
};

/** RTP header of a TDM pseudowire. */
VEXO_CMI_ENUM(vexoPweRtpMode){
    VEXO_PWE_RTP_OFF = 1,
    VEXO_PWE_RTP_ON = 2,
};

/** ATM mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoAtmMode){
    VEXO_ATM_MODE_1 = 1,
    VEXO_ATM_MODE_2 = 2,
};

/** ATM type. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoAtmType){
    VEXO_ATM_TYPE_1 = 1,
    VEXO_ATM_TYPE_2 = 2,
};

/** ATM CLP mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoAtmClpMode){
    VEXO_ATM_CLP_MODE_1 = 1,
    VEXO_ATM_CLP_MODE_2 = 2,
    VEXO_ATM_CLP_MODE_3 = 3,
    VEXO_ATM_CLP_MODE_4 = 4,
};

/** Type of an ATM cross-connect. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoPweAtmXcType){
    VEXO_PWE_ATM_XC_TYPE_1 = 1,
    VEXO_PWE_ATM_XC_TYPE_2 = 2,
    VEXO_PWE_ATM_XC_TYPE_3 = 3,
};

/** What vexo_cmi_ima_set() is to do. */
VEXO_CMI_ENUM(vexoImaAction){
    VEXO_IMA_ACTION_MODIFY = 0,
    VEXO_IMA_ACTION_DELETE = 1,
    VEXO_IMA_ACTION_CREATE = 2,
};

/** Whether an IMA number is that of a group or of a link. */
VEXO_CMI_ENUM(vexoImaType){
    VEXO_IMA_TYPE_GROUP = 1,
    VEXO_IMA_TYPE_LINK = 2,
};

/** Kind of object that an alarm event or a PM report is about. */
VEXO_CMI_ENUM(vexoObjType){
    VEXO_OBJ_TYPE_SYSTEM = 1, VEXO_OBJ_TYPE_PDH = 2, VEXO_OBJ_TYPE_PWE = 3,
    VEXO_OBJ_TYPE_IMA = 4, /**< IMA group or IMA link */
};

/** Alarm report mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoAlarmMode){
    VEXO_ALARM_MODE_1 = 1,
    VEXO_ALARM_MODE_2 = 2,
};

/** Quality of the network (network type). The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoNetQuality){
    VEXO_NET_QUALITY_1 = 1,
    VEXO_NET_QUALITY_2 = 2,
};

/** Software upgrade mode. The meaning of the members is the platform's. */
VEXO_CMI_ENUM(vexoUpgradeMode){
    VEXO_UPGRADE_MODE_1 = 1,
    VEXO_UPGRADE_MODE_2 = 2,
};

/** State of a software upgrade; 1 stands for every state not listed. The meanings are the
 * platform's. */
VEXO_CMI_ENUM(vexoUpgradeState){
    VEXO_UPGRADE_STATE_1 = 1, VEXO_UPGRADE_STATE_2 = 2, VEXO_UPGRADE_STATE_3 = 3,
    VEXO_UPGRADE_STATE_4 = 4, VEXO_UPGRADE_STATE_5 = 5, VEXO_UPGRADE_STATE_6 = 6,
};

/** Debug state; 1 stands for every state not listed. The meanings are the platform's. */
VEXO_CMI_ENUM(vexoDebugState){
    VEXO_DEBUG_STATE_1 = 1,
    VEXO_DEBUG_STATE_2 = 2,
    VEXO_DEBUG_STATE_3 = 3,
};

/** How the link flag of vexoSysInfo reads the platform's word. */
VEXO_CMI_ENUM(vexoLinkFlag){
    VEXO_LINK_FLAG_CLEAR = 1, /**< the platform's word is 0 */
    VEXO_LINK_FLAG_SET = 2,   /**< the platform's word is not 0 */
};

#endif
