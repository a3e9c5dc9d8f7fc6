// Layout of the records that cross to the agent.

#include "frame/layout.h"

#include <vexo_cmi.h>

SIZE(vexoResult, 132);
AT(vexoResult, rc, vexoRc, 0);
AT(vexoResult, message, char[128], 4);

SIZE(vexoSwVersion, 1280);
AT(vexoSwVersion, text, char[10][128], 0);

SIZE(vexoSysInventory, 108);
AT(vexoSysInventory, text1, char[32], 0);
AT(vexoSysInventory, text2, char[32], 32);
AT(vexoSysInventory, text3, char[20], 64);
AT(vexoSysInventory, text4, char[12], 84);
AT(vexoSysInventory, text5, char[4], 96);
AT(vexoSysInventory, numberHigh, char[3], 100);
AT(vexoSysInventory, numberLow, char[5], 103);

SIZE(vexoSysStatus, 1360);
AT(vexoSysStatus, state, vexoModuleState, 0);
AT(vexoSysStatus, values1, uint32_t[13], 4);
AT(vexoSysStatus, version, vexoSwVersion, 56);
AT(vexoSysStatus, values2, uint32_t[6], 1336);

SIZE(vexoPdhParamsIn, 32);
AT(vexoPdhParamsIn, adminStatus, vexoAdminStatus, 0);
AT(vexoPdhParamsIn, frameMode, vexoPdhFrameMode, 4);
AT(vexoPdhParamsIn, lineCode, vexoPdhCode, 8);
AT(vexoPdhParamsIn, cableLength, uint32_t, 12);
AT(vexoPdhParamsIn, syncMode, vexoPdhSyncMode, 16);
AT(vexoPdhParamsIn, syncParam, uint32_t, 20);
AT(vexoPdhParamsIn, niuMode, vexoPdhNiuMode, 24);
AT(vexoPdhParamsIn, auxParam, uint32_t, 28);

SIZE(vexoPdhParamsOut, 40);
AT(vexoPdhParamsOut, adminStatus, vexoAdminStatus, 0);
AT(vexoPdhParamsOut, operState, vexoOperState, 4);
AT(vexoPdhParamsOut, frameMode, vexoPdhFrameMode, 8);
AT(vexoPdhParamsOut, lineCode, vexoPdhCode, 12);
AT(vexoPdhParamsOut, cableLength, uint32_t, 16);
AT(vexoPdhParamsOut, syncMode, vexoPdhSyncMode, 20);
AT(vexoPdhParamsOut, syncParam, uint32_t, 24);
AT(vexoPdhParamsOut, niuMode, vexoPdhNiuMode, 28);
AT(vexoPdhParamsOut, loopback, vexoLpbk, 32);
AT(vexoPdhParamsOut, auxParam, uint32_t, 36);

SIZE(vexoPdhSync, 8);
AT(vexoPdhSync, mode, vexoPdhSyncMode, 0);
AT(vexoPdhSync, param, uint32_t, 4);

SIZE(vexoPdhPm, 76);
AT(vexoPdhPm, pmType, vexoPmType, 0);
AT(vexoPdhPm, lineCounters, uint32_t[13], 4);
AT(vexoPdhPm, commonCounters, uint32_t[5], 56);

SIZE(vexoPweVlan, 36);
AT(vexoPweVlan, mode, vexoVlanMode, 0);
AT(vexoPweVlan, outerVlanId, uint32_t, 4);
AT(vexoPweVlan, outerVlanIdValid, uint32_t, 8);
AT(vexoPweVlan, outerPriority, uint32_t, 12);
AT(vexoPweVlan, outerPriorityValid, uint32_t, 16);
AT(vexoPweVlan, vlanId, uint32_t, 20);
AT(vexoPweVlan, vlanIdValid, uint32_t, 24);
AT(vexoPweVlan, priority, uint32_t, 28);
AT(vexoPweVlan, priorityValid, uint32_t, 32);

SIZE(vexoPwePsn, 64);
AT(vexoPwePsn, psnType, vexoPwePsnType, 0);
AT(vexoPwePsn, param1, uint32_t, 4);
AT(vexoPwePsn, param1Valid, uint32_t, 8);
AT(vexoPwePsn, param2, uint32_t, 12);
AT(vexoPwePsn, param2Valid, uint32_t, 16);
AT(vexoPwePsn, param3, uint32_t, 20);
AT(vexoPwePsn, param3Valid, uint32_t, 24);
AT(vexoPwePsn, param4, uint32_t, 28);
AT(vexoPwePsn, udpMode, vexoPweUdpMode, 28);
AT(vexoPwePsn, param4Valid, uint32_t, 32);
AT(vexoPwePsn, reserved, uint32_t[7], 36);

SIZE(vexoPweRtp, 28);
AT(vexoPweRtp, mode, vexoPweRtpMode, 0);
AT(vexoPweRtp, payloadType, uint32_t, 4);
AT(vexoPweRtp, payloadTypeValid, uint32_t, 8);
AT(vexoPweRtp, ssrc, uint32_t, 12);
AT(vexoPweRtp, ssrcValid, uint32_t, 16);
AT(vexoPweRtp, reserved, uint32_t[2], 20);

SIZE(vexoPweServiceT1, 52);
AT(vexoPweServiceT1, circuit, uint32_t, 0);
AT(vexoPweServiceT1, jitterBufferSize, uint32_t, 4);
AT(vexoPweServiceT1, payloadSize, uint32_t, 8);
AT(vexoPweServiceT1, rtp, vexoPweRtp, 12);
AT(vexoPweServiceT1, reserved, uint32_t[3], 40);

SIZE(vexoPweServiceT2, 52);
AT(vexoPweServiceT2, circuit, uint32_t, 0);
AT(vexoPweServiceT2, serviceOption, uint32_t, 4);
AT(vexoPweServiceT2, serviceOptionValid, uint32_t, 8);
AT(vexoPweServiceT2, jitterBufferSize, uint32_t, 12);
AT(vexoPweServiceT2, payloadSize, uint32_t, 16);
AT(vexoPweServiceT2, serviceFlag, uint32_t, 20);
AT(vexoPweServiceT2, rtp, vexoPweRtp, 24);

SIZE(vexoPweServiceA, 52);
AT(vexoPweServiceA, circuit, uint32_t, 0);
AT(vexoPweServiceA, payloadSize, uint32_t, 4);
AT(vexoPweServiceA, serviceOption, uint32_t, 8);
AT(vexoPweServiceA, serviceFlag, uint32_t, 12);
AT(vexoPweServiceA, atmMode, vexoAtmMode, 16);
AT(vexoPweServiceA, atmType, vexoAtmType, 20);
AT(vexoPweServiceA, atmFlag1, uint32_t, 24);
AT(vexoPweServiceA, atmFlag2, uint32_t, 28);
AT(vexoPweServiceA, atmClpMode, vexoAtmClpMode, 32);
AT(vexoPweServiceA, atmParam1, uint32_t, 36);
AT(vexoPweServiceA, atmParam2, uint32_t, 40);
AT(vexoPweServiceA, reserved, uint32_t[2], 44);

SIZE(vexoPweService, 52);
AT(vexoPweService, t1, vexoPweServiceT1, 0);
AT(vexoPweService, t2, vexoPweServiceT2, 0);
AT(vexoPweService, a, vexoPweServiceA, 0);

SIZE(vexoPweParams, 172);
AT(vexoPweParams, pweType, vexoPweType, 0);
AT(vexoPweParams, pweAction, vexoPweAction, 4);
AT(vexoPweParams, adminStatus, vexoAdminStatus, 8);
AT(vexoPweParams, dstMac, uint8_t[6], 12);
AT(vexoPweParams, reserved, uint8_t[2], 18);
AT(vexoPweParams, vlan, vexoPweVlan, 20);
AT(vexoPweParams, psn, vexoPwePsn, 56);
AT(vexoPweParams, service, vexoPweService, 120);

SIZE(vexoPweParamsInfo, 180);
AT(vexoPweParamsInfo, pweType, vexoPweType, 0);
AT(vexoPweParamsInfo, pweAction, vexoPweAction, 4);
AT(vexoPweParamsInfo, adminStatus, vexoAdminStatus, 8);
AT(vexoPweParamsInfo, operState, vexoOperState, 12);
AT(vexoPweParamsInfo, srcMac, uint8_t[6], 16);
AT(vexoPweParamsInfo, dstMac, uint8_t[6], 22);
AT(vexoPweParamsInfo, vlan, vexoPweVlan, 28);
AT(vexoPweParamsInfo, psn, vexoPwePsn, 64);
AT(vexoPweParamsInfo, service, vexoPweService, 128);

SIZE(vexoPweAtmXc, 20);
AT(vexoPweAtmXc, xcType, vexoPweAtmXcType, 0);
AT(vexoPweAtmXc, xcId1, uint32_t, 4);
AT(vexoPweAtmXc, xcId2, uint32_t, 8);
AT(vexoPweAtmXc, xcId3, uint32_t, 12);
AT(vexoPweAtmXc, xcId4, uint32_t, 16);

SIZE(vexoPweGenPm, 56);
AT(vexoPweGenPm, counters, uint32_t[13], 0);
AT(vexoPweGenPm, valid, uint32_t, 52);

SIZE(vexoPweAtmPm, 20);
AT(vexoPweAtmPm, counters, uint32_t[4], 0);
AT(vexoPweAtmPm, valid, uint32_t, 16);

SIZE(vexoPwePmBody, 56);
AT(vexoPwePmBody, generic, vexoPweGenPm, 0);
AT(vexoPwePmBody, atm, vexoPweAtmPm, 0);

SIZE(vexoPwePm, 64);
AT(vexoPwePm, pmType, vexoPmType, 0);
AT(vexoPwePm, pweType, vexoPweType, 4);
AT(vexoPwePm, body, vexoPwePmBody, 8);

SIZE(vexoPweOmEntry, 16);
AT(vexoPweOmEntry, words, uint32_t[2], 0);
AT(vexoPweOmEntry, counters, uint32_t[2], 8);

SIZE(vexoPweOm, 340);
AT(vexoPweOm, pweType, vexoPweType, 0);
AT(vexoPweOm, counters, uint32_t[4], 4);
AT(vexoPweOm, entries, vexoPweOmEntry[20], 20);

SIZE(vexoImaGroupSet, 16);
AT(vexoImaGroupSet, imaAction, vexoImaAction, 0);
AT(vexoImaGroupSet, groupParam1, uint32_t, 4);
AT(vexoImaGroupSet, groupParam2, uint32_t, 8);
AT(vexoImaGroupSet, groupParam3, uint32_t, 12);

SIZE(vexoImaGroupState, 32);
AT(vexoImaGroupState, words, uint32_t[8], 0);

SIZE(vexoImaLinkState, 40);
AT(vexoImaLinkState, linkId, uint32_t, 0);
AT(vexoImaLinkState, words, uint32_t[9], 4);

SIZE(vexoImaParams, 368);
AT(vexoImaParams, groupParam1, uint32_t, 0);
AT(vexoImaParams, groupParam2, uint32_t, 4);
AT(vexoImaParams, groupParam3, uint32_t, 8);
AT(vexoImaParams, groupState, vexoImaGroupState, 12);
AT(vexoImaParams, linkCount, uint32_t, 44);
AT(vexoImaParams, links, vexoImaLinkState[8], 48);

SIZE(vexoImaLinkPm, 72);
AT(vexoImaLinkPm, linkId, uint32_t, 0);
AT(vexoImaLinkPm, intervalFlag, uint32_t, 4);
AT(vexoImaLinkPm, counters, uint32_t[16], 8);

SIZE(vexoImaGroupPm, 596);
AT(vexoImaGroupPm, intervalFlag, uint32_t, 0);
AT(vexoImaGroupPm, counters, uint32_t[3], 4);
AT(vexoImaGroupPm, linkCount, uint32_t, 16);
AT(vexoImaGroupPm, links, vexoImaLinkPm[8], 20);

SIZE(vexoImaLinkOm, 32);
AT(vexoImaLinkOm, counters, uint32_t[8], 0);

SIZE(vexoImaOm, 268);
AT(vexoImaOm, counters, uint32_t[2], 0);
AT(vexoImaOm, linkCount, uint32_t, 8);
AT(vexoImaOm, links, vexoImaLinkOm[8], 12);

SIZE(vexoSysInfo, 316);
AT(vexoSysInfo, linkStatus, uint32_t, 0);
AT(vexoSysInfo, linkSpeed, uint32_t, 4);
AT(vexoSysInfo, linkParam, uint32_t, 8);
AT(vexoSysInfo, linkFlag, vexoLinkFlag, 12);
AT(vexoSysInfo, linkMode, uint32_t, 16);
AT(vexoSysInfo, om, uint32_t[74], 20);

SIZE(vexoUpgradeInfo, 136);
AT(vexoUpgradeInfo, mode, vexoUpgradeMode, 0);
AT(vexoUpgradeInfo, fileName, char[128], 4);
AT(vexoUpgradeInfo, state, vexoUpgradeState, 132);

SIZE(vexoDebugInfo, 132);
AT(vexoDebugInfo, state, vexoDebugState, 0);
AT(vexoDebugInfo, info, char[128], 4);

SIZE(vexoTpgmStatus, 132);
AT(vexoTpgmStatus, words, uint32_t[33], 0);

SIZE(vexoAlarmObject, 12);
AT(vexoAlarmObject, objId, uint32_t, 0);
AT(vexoAlarmObject, status, uint32_t, 4);
AT(vexoAlarmObject, delta, uint32_t, 8);

SIZE(vexoAlarmIma, 20);
AT(vexoAlarmIma, imaType, vexoImaType, 0);
AT(vexoAlarmIma, groupId, uint32_t, 4);
AT(vexoAlarmIma, linkId, uint32_t, 8);
AT(vexoAlarmIma, status, uint32_t, 12);
AT(vexoAlarmIma, delta, uint32_t, 16);

SIZE(vexoAlarmNotification, 24);
AT(vexoAlarmNotification, objType, vexoObjType, 0);
AT(vexoAlarmNotification, object, vexoAlarmObject, 4);
AT(vexoAlarmNotification, ima, vexoAlarmIma, 4);

SIZE(vexoPmPwe, 68);
AT(vexoPmPwe, pweType, vexoPweType, 0);
AT(vexoPmPwe, interval, vexoPmInterval, 4);
AT(vexoPmPwe, pwId, uint32_t, 8);
AT(vexoPmPwe, body, vexoPwePmBody, 12);

SIZE(vexoPmIma, 604);
AT(vexoPmIma, interval, vexoPmInterval, 0);
AT(vexoPmIma, groupId, uint32_t, 4);
AT(vexoPmIma, group, vexoImaGroupPm, 8);

SIZE(vexoPmNotification, 1220);
AT(vexoPmNotification, objType, vexoObjType, 0);
AT(vexoPmNotification, pdh, vexoPdhPm[16], 4);
AT(vexoPmNotification, pwe, vexoPmPwe, 4);
AT(vexoPmNotification, ima, vexoPmIma, 4);
