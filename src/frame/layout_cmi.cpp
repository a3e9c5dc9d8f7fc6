// Layout of the records that cross to the agent.

#include <vexo_cmi.h>

#include <stddef.h>

#define SIZE(record, size) static_assert(sizeof(record) == (size))
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset))

SIZE(vexoResult, 132);
AT(vexoResult, rc, 0);
AT(vexoResult, message, 4);

SIZE(vexoSwVersion, 1280);
AT(vexoSwVersion, text, 0);

SIZE(vexoSysInventory, 108);
AT(vexoSysInventory, text1, 0);
AT(vexoSysInventory, text2, 32);
AT(vexoSysInventory, text3, 64);
AT(vexoSysInventory, text4, 84);
AT(vexoSysInventory, text5, 96);
AT(vexoSysInventory, numberHigh, 100);
AT(vexoSysInventory, numberLow, 103);

SIZE(vexoSysStatus, 1360);
AT(vexoSysStatus, state, 0);
AT(vexoSysStatus, values1, 4);
AT(vexoSysStatus, version, 56);
AT(vexoSysStatus, values2, 1336);

SIZE(vexoPdhParamsIn, 32);
AT(vexoPdhParamsIn, adminStatus, 0);
AT(vexoPdhParamsIn, frameMode, 4);
AT(vexoPdhParamsIn, lineCode, 8);
AT(vexoPdhParamsIn, cableLength, 12);
AT(vexoPdhParamsIn, syncMode, 16);
AT(vexoPdhParamsIn, syncParam, 20);
AT(vexoPdhParamsIn, niuMode, 24);
AT(vexoPdhParamsIn, auxParam, 28);

SIZE(vexoPdhParamsOut, 40);
AT(vexoPdhParamsOut, adminStatus, 0);
AT(vexoPdhParamsOut, operState, 4);
AT(vexoPdhParamsOut, frameMode, 8);
AT(vexoPdhParamsOut, lineCode, 12);
AT(vexoPdhParamsOut, cableLength, 16);
AT(vexoPdhParamsOut, syncMode, 20);
AT(vexoPdhParamsOut, syncParam, 24);
AT(vexoPdhParamsOut, niuMode, 28);
AT(vexoPdhParamsOut, loopback, 32);
AT(vexoPdhParamsOut, auxParam, 36);

SIZE(vexoPdhSync, 8);
AT(vexoPdhSync, mode, 0);
AT(vexoPdhSync, param, 4);

SIZE(vexoPdhPm, 76);
AT(vexoPdhPm, pmType, 0);
AT(vexoPdhPm, lineCounters, 4);
AT(vexoPdhPm, commonCounters, 56);

SIZE(vexoPweVlan, 36);
AT(vexoPweVlan, mode, 0);
AT(vexoPweVlan, outerVlanId, 4);
AT(vexoPweVlan, outerVlanIdValid, 8);
AT(vexoPweVlan, outerPriority, 12);
AT(vexoPweVlan, outerPriorityValid, 16);
AT(vexoPweVlan, vlanId, 20);
AT(vexoPweVlan, vlanIdValid, 24);
AT(vexoPweVlan, priority, 28);
AT(vexoPweVlan, priorityValid, 32);

SIZE(vexoPwePsn, 64);
AT(vexoPwePsn, psnType, 0);
AT(vexoPwePsn, param1, 4);
AT(vexoPwePsn, param1Valid, 8);
AT(vexoPwePsn, param2, 12);
AT(vexoPwePsn, param2Valid, 16);
AT(vexoPwePsn, param3, 20);
AT(vexoPwePsn, param3Valid, 24);
AT(vexoPwePsn, param4, 28);
AT(vexoPwePsn, udpMode, 28);
AT(vexoPwePsn, param4Valid, 32);
AT(vexoPwePsn, reserved, 36);

SIZE(vexoPweRtp, 28);
AT(vexoPweRtp, mode, 0);
AT(vexoPweRtp, payloadType, 4);
AT(vexoPweRtp, payloadTypeValid, 8);
AT(vexoPweRtp, ssrc, 12);
AT(vexoPweRtp, ssrcValid, 16);
AT(vexoPweRtp, reserved, 20);

SIZE(vexoPweServiceT1, 52);
AT(vexoPweServiceT1, circuit, 0);
AT(vexoPweServiceT1, jitterBufferSize, 4);
AT(vexoPweServiceT1, payloadSize, 8);
AT(vexoPweServiceT1, rtp, 12);
AT(vexoPweServiceT1, reserved, 40);

SIZE(vexoPweServiceT2, 52);
AT(vexoPweServiceT2, circuit, 0);
AT(vexoPweServiceT2, serviceOption, 4);
AT(vexoPweServiceT2, serviceOptionValid, 8);
AT(vexoPweServiceT2, jitterBufferSize, 12);
AT(vexoPweServiceT2, payloadSize, 16);
AT(vexoPweServiceT2, serviceFlag, 20);
AT(vexoPweServiceT2, rtp, 24);

SIZE(vexoPweServiceA, 52);
AT(vexoPweServiceA, circuit, 0);
AT(vexoPweServiceA, payloadSize, 4);
AT(vexoPweServiceA, serviceOption, 8);
AT(vexoPweServiceA, serviceFlag, 12);
AT(vexoPweServiceA, atmMode, 16);
AT(vexoPweServiceA, atmType, 20);
AT(vexoPweServiceA, atmFlag1, 24);
AT(vexoPweServiceA, atmFlag2, 28);
AT(vexoPweServiceA, atmClpMode, 32);
AT(vexoPweServiceA, atmParam1, 36);
AT(vexoPweServiceA, atmParam2, 40);
AT(vexoPweServiceA, reserved, 44);

SIZE(vexoPweService, 52);
AT(vexoPweService, t1, 0);
AT(vexoPweService, t2, 0);
AT(vexoPweService, a, 0);

SIZE(vexoPweParams, 172);
AT(vexoPweParams, pweType, 0);
AT(vexoPweParams, pweAction, 4);
AT(vexoPweParams, adminStatus, 8);
AT(vexoPweParams, dstMac, 12);
AT(vexoPweParams, reserved, 18);
AT(vexoPweParams, vlan, 20);
AT(vexoPweParams, psn, 56);
AT(vexoPweParams, service, 120);

SIZE(vexoPweParamsInfo, 180);
AT(vexoPweParamsInfo, pweType, 0);
AT(vexoPweParamsInfo, pweAction, 4);
AT(vexoPweParamsInfo, adminStatus, 8);
AT(vexoPweParamsInfo, operState, 12);
AT(vexoPweParamsInfo, srcMac, 16);
AT(vexoPweParamsInfo, dstMac, 22);
AT(vexoPweParamsInfo, vlan, 28);
AT(vexoPweParamsInfo, psn, 64);
AT(vexoPweParamsInfo, service, 128);

SIZE(vexoPweAtmXc, 20);
AT(vexoPweAtmXc, xcType, 0);
AT(vexoPweAtmXc, xcId1, 4);
AT(vexoPweAtmXc, xcId2, 8);
AT(vexoPweAtmXc, xcId3, 12);
AT(vexoPweAtmXc, xcId4, 16);

SIZE(vexoPweGenPm, 56);
AT(vexoPweGenPm, counters, 0);
AT(vexoPweGenPm, valid, 52);

SIZE(vexoPweAtmPm, 20);
AT(vexoPweAtmPm, counters, 0);
AT(vexoPweAtmPm, valid, 16);

SIZE(vexoPwePmBody, 56);
AT(vexoPwePmBody, generic, 0);
AT(vexoPwePmBody, atm, 0);

SIZE(vexoPwePm, 64);
AT(vexoPwePm, pmType, 0);
AT(vexoPwePm, pweType, 4);
AT(vexoPwePm, body, 8);

SIZE(vexoPweOmEntry, 16);
AT(vexoPweOmEntry, words, 0);
AT(vexoPweOmEntry, counters, 8);

SIZE(vexoPweOm, 340);
AT(vexoPweOm, pweType, 0);
AT(vexoPweOm, counters, 4);
AT(vexoPweOm, entries, 20);

SIZE(vexoImaGroupSet, 16);
AT(vexoImaGroupSet, imaAction, 0);
AT(vexoImaGroupSet, groupParam1, 4);
AT(vexoImaGroupSet, groupParam2, 8);
AT(vexoImaGroupSet, groupParam3, 12);

SIZE(vexoImaGroupState, 32);
AT(vexoImaGroupState, words, 0);

SIZE(vexoImaLinkState, 40);
AT(vexoImaLinkState, linkId, 0);
AT(vexoImaLinkState, words, 4);

SIZE(vexoImaParams, 368);
AT(vexoImaParams, groupParam1, 0);
AT(vexoImaParams, groupParam2, 4);
AT(vexoImaParams, groupParam3, 8);
AT(vexoImaParams, groupState, 12);
AT(vexoImaParams, linkCount, 44);
AT(vexoImaParams, links, 48);

SIZE(vexoImaLinkPm, 72);
AT(vexoImaLinkPm, linkId, 0);
AT(vexoImaLinkPm, intervalFlag, 4);
AT(vexoImaLinkPm, counters, 8);

SIZE(vexoImaGroupPm, 596);
AT(vexoImaGroupPm, intervalFlag, 0);
AT(vexoImaGroupPm, counters, 4);
AT(vexoImaGroupPm, linkCount, 16);
AT(vexoImaGroupPm, links, 20);

SIZE(vexoImaLinkOm, 32);
AT(vexoImaLinkOm, counters, 0);

SIZE(vexoImaOm, 268);
AT(vexoImaOm, counters, 0);
AT(vexoImaOm, linkCount, 8);
AT(vexoImaOm, links, 12);

SIZE(vexoSysInfo, 316);
AT(vexoSysInfo, linkStatus, 0);
AT(vexoSysInfo, linkSpeed, 4);
AT(vexoSysInfo, linkParam, 8);
AT(vexoSysInfo, linkFlag, 12);
AT(vexoSysInfo, linkMode, 16);
AT(vexoSysInfo, om, 20);

SIZE(vexoUpgradeInfo, 136);
AT(vexoUpgradeInfo, mode, 0);
AT(vexoUpgradeInfo, fileName, 4);
AT(vexoUpgradeInfo, state, 132);

SIZE(vexoDebugInfo, 132);
AT(vexoDebugInfo, state, 0);
AT(vexoDebugInfo, info, 4);

SIZE(vexoTpgmStatus, 132);
AT(vexoTpgmStatus, words, 0);

SIZE(vexoAlarmObject, 12);
AT(vexoAlarmObject, objId, 0);
AT(vexoAlarmObject, status, 4);
AT(vexoAlarmObject, delta, 8);

SIZE(vexoAlarmIma, 20);
AT(vexoAlarmIma, imaType, 0);
AT(vexoAlarmIma, groupId, 4);
AT(vexoAlarmIma, linkId, 8);
AT(vexoAlarmIma, status, 12);
AT(vexoAlarmIma, delta, 16);

SIZE(vexoAlarmNotification, 24);
AT(vexoAlarmNotification, objType, 0);
AT(vexoAlarmNotification, object, 4);
AT(vexoAlarmNotification, ima, 4);

SIZE(vexoPmPwe, 68);
AT(vexoPmPwe, pweType, 0);
AT(vexoPmPwe, interval, 4);
AT(vexoPmPwe, pwId, 8);
AT(vexoPmPwe, body, 12);

SIZE(vexoPmIma, 604);
AT(vexoPmIma, interval, 0);
AT(vexoPmIma, groupId, 4);
AT(vexoPmIma, group, 8);

SIZE(vexoPmNotification, 1220);
AT(vexoPmNotification, objType, 0);
AT(vexoPmNotification, pdh, 4);
AT(vexoPmNotification, pwe, 4);
AT(vexoPmNotification, ima, 4);

#undef SIZE
#undef AT
