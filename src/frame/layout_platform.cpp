// Layout of the records that cross to the platform.

#include <kv_alarm.h>
#include <kv_config.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>

#include <bit>

#include <stddef.h>

// The low word of a kvCounter comes first.
static_assert(std::endian::native == std::endian::little);

#define SIZE(record, size) static_assert(sizeof(record) == (size))
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset))

SIZE(swVersion, 1280);
AT(swVersion, text, 0);

SIZE(sysParams, 496);
AT(sysParams, tpid, 300);
AT(sysParams, text328, 328);
AT(sysParams, text410, 410);
AT(sysParams, text425, 425);
AT(sysParams, text446, 446);
AT(sysParams, text461, 461);
AT(sysParams, number, 468);
AT(sysParams, psnNetType, 472);
AT(sysParams, temperatureThr1, 476);
AT(sysParams, temperatureThr2, 480);
AT(sysParams, clkOut1, 484);
AT(sysParams, clkOut2, 488);
AT(sysParams, operState, 492);

SIZE(sysStatus, 1360);
AT(sysStatus, operState, 0);
AT(sysStatus, version, 4);
AT(sysStatus, values1, 1284);
AT(sysStatus, values2, 1336);

SIZE(pweIf, 24);
AT(pweIf, srcIp, 0);
AT(pweIf, srcMac, 8);
AT(pweIf, lops1, 16);
AT(pweIf, lops2, 20);

SIZE(lopsThreshold, 8);
AT(lopsThreshold, first, 0);
AT(lopsThreshold, second, 4);

SIZE(clkOut, 8);
AT(clkOut, first, 0);
AT(clkOut, second, 4);

SIZE(temperatureThr, 8);
AT(temperatureThr, first, 0);
AT(temperatureThr, second, 4);

SIZE(sysLinkStatus, 28);
AT(sysLinkStatus, words, 0);

SIZE(peerServer, 16);
AT(peerServer, address, 0);

SIZE(debugInfo, 132);
AT(debugInfo, text, 0);
AT(debugInfo, state, 128);

SIZE(sysLpbk, 8);
AT(sysLpbk, lpbk, 0);
AT(sysLpbk, second, 4);

SIZE(tpgmSetup, 12);
AT(tpgmSetup, params, 0);

SIZE(tpgmStatus, 132);
AT(tpgmStatus, words, 0);

SIZE(pdhParams, 40);
AT(pdhParams, adminStatus, 0);
AT(pdhParams, clockMode, 4);
AT(pdhParams, clockParam, 8);
AT(pdhParams, frameMode, 12);
AT(pdhParams, lineCode, 16);
AT(pdhParams, cableLength, 20);
AT(pdhParams, niuMode, 24);
AT(pdhParams, syncAux, 28);
AT(pdhParams, auxParam, 32);

SIZE(pdhLpbk, 12);
AT(pdhLpbk, lpbk, 0);

SIZE(pwAtmXc, 12);
AT(pwAtmXc, xcId1, 0);
AT(pwAtmXc, xcId2, 2);
AT(pwAtmXc, xcId3, 4);
AT(pwAtmXc, xcId4, 6);
AT(pwAtmXc, xcType, 8);

SIZE(pwEncapsulation, 24);
AT(pwEncapsulation, enc2.param1, 12);
AT(pwEncapsulation, enc2.param2, 16);
AT(pwEncapsulation, enc2.param3, 20);
AT(pwEncapsulation, enc2.param4, 21);
AT(pwEncapsulation, enc3.param1, 0);
AT(pwEncapsulation, enc3.param2, 4);
AT(pwEncapsulation, enc4.udpMode, 0);
AT(pwEncapsulation, enc4.param1, 4);
AT(pwEncapsulation, enc4.param2, 8);
AT(pwEncapsulation, enc4.param3, 12);

SIZE(pwConfig, 400);
AT(pwConfig, pweType, 0);
AT(pwConfig, adminStatus, 4);
AT(pwConfig, pwId, 8);
AT(pwConfig, circuit, 12);
AT(pwConfig, encType, 16);
AT(pwConfig, enc, 20);
AT(pwConfig, dstMac, 44);
AT(pwConfig, srcMac, 50);
AT(pwConfig, tagMode, 56);
AT(pwConfig, outerPriority, 60);
AT(pwConfig, outerVlanId, 62);
AT(pwConfig, priority, 64);
AT(pwConfig, vlanId, 66);
AT(pwConfig, rtpEnable, 68);
AT(pwConfig, rtpSsrc, 72);
AT(pwConfig, rtpPayloadType, 76);
AT(pwConfig, jitterBufferSize, 80);
AT(pwConfig, payloadSize, 84);
AT(pwConfig, serviceOption, 88);
AT(pwConfig, serviceFlag, 92);
AT(pwConfig, atmMode, 96);
AT(pwConfig, atmType, 100);
AT(pwConfig, atmFlag1, 104);
AT(pwConfig, atmFlag2, 108);
AT(pwConfig, atmClpMap, 112);
AT(pwConfig, atmParam1, 116);
AT(pwConfig, atmParam2, 120);
AT(pwConfig, atmXc, 124);
AT(pwConfig, atmXcCount, 364);
AT(pwConfig, aisForced, 392);

SIZE(pwDefaultsKey, 8);
AT(pwDefaultsKey, pweType, 0);
AT(pwDefaultsKey, encType, 4);

SIZE(pwProvList, 2056);
AT(pwProvList, pwIds, 0);
AT(pwProvList, count, 2048);

SIZE(imaLinkEntry, 40);
AT(imaLinkEntry, linkId, 0);
AT(imaLinkEntry, state, 4);

SIZE(imaParams, 368);
AT(imaParams, groupParam1, 0);
AT(imaParams, groupParam2, 4);
AT(imaParams, groupParam3, 8);
AT(imaParams, groupState, 12);
AT(imaParams, linkCount, 44);
AT(imaParams, links, 48);

SIZE(alarmEvent, 16);
AT(alarmEvent, objType, 0);
AT(alarmEvent, objId, 4);
AT(alarmEvent, status, 8);
AT(alarmEvent, delta, 12);

SIZE(pdhPmStat, 104);
AT(pdhPmStat, layoutType, 28);
AT(pdhPmStat, line, 32);
AT(pdhPmStat, common, 84);

SIZE(pwPmStats, 88);
AT(pwPmStats, bodyKind, 28);
AT(pwPmStats, body, 32);

SIZE(pwAtmCounters, 20);
AT(pwAtmCounters, counters, 0);
AT(pwAtmCounters, flag, 16);

SIZE(pwGenCounters, 56);
AT(pwGenCounters, counters, 0);
AT(pwGenCounters, flag, 52);

SIZE(pwOmEntry, 24);
AT(pwOmEntry, words, 0);
AT(pwOmEntry, counters, 8);

SIZE(pwOmStats, 520);
AT(pwOmStats, counters, 0);
AT(pwOmStats, entries, 40);

SIZE(imaGroupPmStat, 52);
AT(imaGroupPmStat, counters, 28);
AT(imaGroupPmStat, flag, 40);

SIZE(imaLinkPmStat, 100);
AT(imaLinkPmStat, counters, 28);
AT(imaLinkPmStat, flag, 92);

SIZE(imaGroupOmStat, 20);
AT(imaGroupOmStat, counters, 0);

SIZE(imaLinkOmStat, 68);
AT(imaLinkOmStat, counters, 0);

SIZE(sysOmStat, 296);
AT(sysOmStat, words, 0);

SIZE(upgradeRequest, 148);
AT(upgradeRequest, mode, 0);
AT(upgradeRequest, constant4, 4);
AT(upgradeRequest, constant8, 8);
AT(upgradeRequest, serverAddress, 12);
AT(upgradeRequest, fileName, 16);
AT(upgradeRequest, platform80, 80);
AT(upgradeRequest, constant144, 144);

SIZE(upgradeStatus, 348);
AT(upgradeStatus, state, 128);
AT(upgradeStatus, mode, 132);
AT(upgradeStatus, fileName, 276);

#undef SIZE
#undef AT
