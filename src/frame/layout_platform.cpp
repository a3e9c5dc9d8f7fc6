// Layout of the records that cross to the platform.

#include "frame/layout.h"

#include <kv_alarm.h>
#include <kv_config.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>

#include <bit>

// The low word of a kvCounter comes first.
static_assert(std::endian::native == std::endian::little);

SIZE(kvCounter, 8);
AT(kvCounter, low, uint32_t, 0);
AT(kvCounter, high, uint32_t, 4);

SIZE(swVersion, 1280);
AT(swVersion, text, char[10][128], 0);

SIZE(sysParams, 496);
AT(sysParams, tpid, uint16_t, 300);
AT(sysParams, text328, char[82], 328);
AT(sysParams, text410, char[15], 410);
AT(sysParams, text425, char[21], 425);
AT(sysParams, text446, char[15], 446);
AT(sysParams, text461, char[7], 461);
AT(sysParams, number, uint32_t, 468);
AT(sysParams, psnNetType, psnNetType, 472);
AT(sysParams, temperatureThr1, uint32_t, 476);
AT(sysParams, temperatureThr2, uint32_t, 480);
AT(sysParams, clkOut1, uint32_t, 484);
AT(sysParams, clkOut2, uint32_t, 488);
AT(sysParams, operState, operState, 492);

SIZE(sysStatus, 1360);
AT(sysStatus, operState, operState, 0);
AT(sysStatus, version, swVersion, 4);
AT(sysStatus, values1, uint32_t[13], 1284);
AT(sysStatus, values2, uint32_t[6], 1336);

SIZE(pweIf, 24);
AT(pweIf, srcIp, uint32_t, 0);
AT(pweIf, srcMac, uint8_t[6], 8);
AT(pweIf, lops1, uint32_t, 16);
AT(pweIf, lops2, uint32_t, 20);

SIZE(lopsThreshold, 8);
AT(lopsThreshold, first, uint32_t, 0);
AT(lopsThreshold, second, uint32_t, 4);

SIZE(clkOut, 8);
AT(clkOut, first, uint32_t, 0);
AT(clkOut, second, uint32_t, 4);

SIZE(temperatureThr, 8);
AT(temperatureThr, first, uint32_t, 0);
AT(temperatureThr, second, uint32_t, 4);

SIZE(sysLinkStatus, 28);
AT(sysLinkStatus, words, uint32_t[7], 0);

SIZE(peerServer, 16);
AT(peerServer, address, uint32_t, 0);

SIZE(debugInfo, 132);
AT(debugInfo, text, char[128], 0);
AT(debugInfo, state, DebugState, 128);

SIZE(sysLpbk, 8);
AT(sysLpbk, lpbk, lpbk, 0);
AT(sysLpbk, second, uint32_t, 4);

SIZE(tpgmSetup, 12);
AT(tpgmSetup, params, uint32_t[3], 0);

SIZE(tpgmStatus, 132);
AT(tpgmStatus, words, uint32_t[33], 0);

SIZE(pdhParams, 40);
AT(pdhParams, adminStatus, adminStatus, 0);
AT(pdhParams, clockMode, pdhClockMode, 4);
AT(pdhParams, clockParam, uint32_t, 8);
AT(pdhParams, frameMode, pdhFrameMode, 12);
AT(pdhParams, lineCode, pdhCode, 16);
AT(pdhParams, cableLength, uint16_t, 20);
AT(pdhParams, niuMode, pdhNiuMode, 24);
AT(pdhParams, syncAux, uint32_t, 28);
AT(pdhParams, auxParam, uint32_t, 32);

SIZE(pdhLpbk, 12);
AT(pdhLpbk, lpbk, lpbk, 0);

SIZE(pwAtmXc, 12);
AT(pwAtmXc, xcId1, uint16_t, 0);
AT(pwAtmXc, xcId2, uint16_t, 2);
AT(pwAtmXc, xcId3, uint16_t, 4);
AT(pwAtmXc, xcId4, uint16_t, 6);
AT(pwAtmXc, xcType, pweAtmXcType, 8);

SIZE(pwEncapsulation, 24);
AT(pwEncapsulation, enc2.param1, uint32_t, 12);
AT(pwEncapsulation, enc2.param2, uint32_t, 16);
AT(pwEncapsulation, enc2.param3, uint8_t, 20);
AT(pwEncapsulation, enc2.param4, uint8_t, 21);
AT(pwEncapsulation, enc3.param1, uint32_t, 0);
AT(pwEncapsulation, enc3.param2, uint32_t, 4);
AT(pwEncapsulation, enc4.udpMode, pweIpUdpMode, 0);
AT(pwEncapsulation, enc4.param1, uint32_t, 4);
AT(pwEncapsulation, enc4.param2, uint32_t, 8);
AT(pwEncapsulation, enc4.param3, uint32_t, 12);

SIZE(pwConfig, 400);
AT(pwConfig, pweType, pweType, 0);
AT(pwConfig, adminStatus, adminStatus, 4);
AT(pwConfig, pwId, uint32_t, 8);
AT(pwConfig, circuit, uint32_t, 12);
AT(pwConfig, encType, pweEncType, 16);
AT(pwConfig, enc, pwEncapsulation, 20);
AT(pwConfig, dstMac, uint8_t[6], 44);
AT(pwConfig, srcMac, uint8_t[6], 50);
AT(pwConfig, tagMode, tagMode, 56);
AT(pwConfig, outerPriority, uint8_t, 60);
AT(pwConfig, outerVlanId, uint16_t, 62);
AT(pwConfig, priority, uint8_t, 64);
AT(pwConfig, vlanId, uint16_t, 66);
AT(pwConfig, rtpEnable, uint32_t, 68);
AT(pwConfig, rtpSsrc, uint32_t, 72);
AT(pwConfig, rtpPayloadType, uint8_t, 76);
AT(pwConfig, jitterBufferSize, uint32_t, 80);
AT(pwConfig, payloadSize, uint32_t, 84);
AT(pwConfig, serviceOption, uint32_t, 88);
AT(pwConfig, serviceFlag, uint32_t, 92);
AT(pwConfig, atmMode, atmMode, 96);
AT(pwConfig, atmType, atmType, 100);
AT(pwConfig, atmFlag1, uint32_t, 104);
AT(pwConfig, atmFlag2, uint32_t, 108);
AT(pwConfig, atmClpMap, atmClpMap, 112);
AT(pwConfig, atmParam1, uint32_t, 116);
AT(pwConfig, atmParam2, uint32_t, 120);
AT(pwConfig, atmXc, pwAtmXc[20], 124);
AT(pwConfig, atmXcCount, uint32_t, 364);
AT(pwConfig, aisForced, uint32_t, 392);

SIZE(pwDefaultsKey, 8);
AT(pwDefaultsKey, pweType, pweType, 0);
AT(pwDefaultsKey, encType, pweEncType, 4);

SIZE(pwProvList, 2056);
AT(pwProvList, pwIds, uint16_t[1024], 0);
AT(pwProvList, count, uint16_t, 2048);

SIZE(imaLinkEntry, 40);
AT(imaLinkEntry, linkId, uint32_t, 0);
AT(imaLinkEntry, state, uint32_t[9], 4);

SIZE(imaGroupState, 32);
AT(imaGroupState, words, uint32_t[8], 0);

SIZE(imaParams, 368);
AT(imaParams, groupParam1, uint32_t, 0);
AT(imaParams, groupParam2, uint32_t, 4);
AT(imaParams, groupParam3, uint32_t, 8);
AT(imaParams, groupState, imaGroupState, 12);
AT(imaParams, linkCount, uint32_t, 44);
AT(imaParams, links, imaLinkEntry[8], 48);

SIZE(alarmEvent, 16);
AT(alarmEvent, objType, objType, 0);
AT(alarmEvent, objId, uint32_t, 4);
AT(alarmEvent, status, uint32_t, 8);
AT(alarmEvent, delta, uint32_t, 12);

SIZE(pdhPmStat, 104);
AT(pdhPmStat, layoutType, uint32_t, 28);
AT(pdhPmStat, line, uint32_t[13], 32);
AT(pdhPmStat, common, uint32_t[5], 84);

SIZE(pwPmStats, 88);
AT(pwPmStats, bodyKind, uint32_t, 28);
AT(pwPmStats, body, pwPmCounters, 32);

SIZE(pwAtmCounters, 20);
AT(pwAtmCounters, counters, uint32_t[4], 0);
AT(pwAtmCounters, flag, uint32_t, 16);

SIZE(pwGenCounters, 56);
AT(pwGenCounters, counters, uint32_t[13], 0);
AT(pwGenCounters, flag, uint32_t, 52);

SIZE(pwPmCounters, 56);
AT(pwPmCounters, generic, pwGenCounters, 0);
AT(pwPmCounters, atm, pwAtmCounters, 0);

SIZE(pwOmEntry, 24);
AT(pwOmEntry, words, uint32_t[2], 0);
AT(pwOmEntry, counters, kvCounter[2], 8);

SIZE(pwOmStats, 520);
AT(pwOmStats, counters, kvCounter[5], 0);
AT(pwOmStats, entries, pwOmEntry[20], 40);

SIZE(imaGroupPmStat, 52);
AT(imaGroupPmStat, counters, uint32_t[3], 28);
AT(imaGroupPmStat, flag, uint32_t, 40);

SIZE(imaLinkPmStat, 100);
AT(imaLinkPmStat, counters, uint32_t[16], 28);
AT(imaLinkPmStat, flag, uint32_t, 92);

SIZE(imaGroupOmStat, 20);
AT(imaGroupOmStat, counters, kvCounter[2], 0);

SIZE(imaLinkOmStat, 68);
AT(imaLinkOmStat, counters, kvCounter[8], 0);

SIZE(sysOmStat, 296);
AT(sysOmStat, words, uint32_t[74], 0);

SIZE(upgradeRequest, 148);
AT(upgradeRequest, mode, UpgradeMode, 0);
AT(upgradeRequest, constant4, uint32_t, 4);
AT(upgradeRequest, constant8, uint32_t, 8);
AT(upgradeRequest, serverAddress, uint32_t, 12);
AT(upgradeRequest, fileName, char[64], 16);
AT(upgradeRequest, platform80, uint8_t[64], 80);
AT(upgradeRequest, constant144, uint32_t, 144);

SIZE(upgradeStatus, 348);
AT(upgradeStatus, state, UpgradeState, 128);
AT(upgradeStatus, mode, UpgradeMode, 132);
AT(upgradeStatus, fileName, char[64], 276);
