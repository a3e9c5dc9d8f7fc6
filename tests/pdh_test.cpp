#include "device.h"

namespace
{

using Pdh = Device;

// The port's record as the platform has it.
pdhParams platformParams(uint32_t port)
{
    pdhParams params;
    EXPECT_EQ(config_get_pdh_params(&params, port), KV_OK);
    return params;
}

// Gives the platform's own bytes of a port a pattern that must travel back.
pdhParams markPlatformBytes(uint32_t port)
{
    pdhParams params = platformParams(port);
    memset(params.platform22, 0xA1, sizeof params.platform22);
    memset(params.platform36, 0xB2, sizeof params.platform36);
    params.syncAux = 0xC3C3C3C3;
    params.auxParam = 0xD4;
    params.clockParam = 0xE5;
    EXPECT_EQ(config_set_pdh_params(&params, port), KV_OK);
    return params;
}

TEST_F(Pdh, ParamsSetReplacesWhatItNamesAndKeepsTheRest)
{
    pdhParams expected = markPlatformBytes(3);
    const vexoPdhParamsIn in{
        VEXO_ADMIN_STATUS_1, VEXO_PDH_FRAME_MODE_5, VEXO_PDH_CODE_3, 65541, VEXO_PDH_SYNC_MODE_4,
        0xFFFF0001,          VEXO_PDH_NIU_MODE_2,   0x80000002};
    mark();
    vexo_cmi_pdh_params_set(&in, 3, &result);
    EXPECT_OK(result);
    expected.adminStatus = adminStatus{2};
    expected.frameMode = pdhFrameMode{5};
    expected.lineCode = pdhCode{3};
    expected.cableLength = 5;
    expected.clockMode = pdhClockMode{4};
    expected.clockParam = 0xFFFF0001;
    expected.niuMode = pdhNiuMode{2};
    expected.auxParam = 0x80000002;
    const auto sent = given<pdhParams>("config_set_pdh_params");
    EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0);

    vexoPdhParamsOut out;
    vexo_cmi_pdh_params_get(&out, 3, &result);
    EXPECT_OK(result);
    const vexoPdhParamsOut read{VEXO_ADMIN_STATUS_1,
                                VEXO_OPER_STATE_1,
                                VEXO_PDH_FRAME_MODE_5,
                                VEXO_PDH_CODE_3,
                                5,
                                VEXO_PDH_SYNC_MODE_4,
                                0xFFFF0001,
                                VEXO_PDH_NIU_MODE_2,
                                VEXO_LPBK_1,
                                0x80000002};
    EXPECT_EQ(memcmp(&out, &read, sizeof out), 0);
}

TEST_F(Pdh, ACableLengthIsCutToThePlatformsWidthAndTheRestIsKept)
{
    pdhParams expected = markPlatformBytes(2);
    for (const uint16_t length : {uint16_t{9}, uint16_t{0}}) {
        mark();
        vexo_cmi_pdh_cable_len_set(65536U + length, 2, &result);
        EXPECT_OK(result);
        expected.cableLength = length;
        const auto sent = given<pdhParams>("config_set_pdh_params");
        EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0) << length;
    }
}

TEST_F(Pdh, ACableLengthOfZeroCallsNothing)
{
    mark();
    vexoResult marked = unwritten();
    vexo_cmi_pdh_cable_len_set(0, 999, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(marked.message[0], '\0');
    EXPECT_EQ(marked.message[1], 0x5A);
    EXPECT_EQ(calls(), Names{});
}

TEST_F(Pdh, ReadingTheCableLengthWritesTheRecordBack)
{
    const pdhParams before = markPlatformBytes(1);
    mark();
    uint32_t length = 0;
    vexo_cmi_pdh_cable_len_get(&length, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(length, before.cableLength);
    const auto sent = given<pdhParams>("config_set_pdh_params");
    EXPECT_EQ(memcmp(&sent, &before, sizeof sent), 0);
}

TEST_F(Pdh, LoopbackFourIsThePlatformsSevenAndShowsInTheState)
{
    pdhLpbk record{lpbk{1}, {0x1111, 0x2222}};
    ASSERT_EQ(config_set_pdh_lpbk(&record, 4), KV_OK);
    vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, 4, &result);
    mark();
    vexo_cmi_pdh_lpbk_set(VEXO_LPBK_4, 4, &result);
    EXPECT_OK(result);
    const auto sent = given<pdhLpbk>("config_set_pdh_lpbk");
    EXPECT_EQ(sent.lpbk, 7u);
    EXPECT_EQ(sent.platform4[0], 0x1111u);
    EXPECT_EQ(sent.platform4[1], 0x2222u);
    vexoPdhParamsOut out;
    vexo_cmi_pdh_params_get(&out, 4, &result);
    EXPECT_EQ(out.loopback, VEXO_LPBK_4);
    EXPECT_EQ(out.operState, VEXO_OPER_STATE_3);
}

TEST_F(Pdh, SyncGetReturnsTheValueThatOnlyThePlatformSets)
{
    vexoPdhSync sync{};
    uint32_t aux = 0;
    vexo_cmi_pdh_sync_get(&sync, &aux, 7, &result);
    EXPECT_OK(result);
    EXPECT_EQ(aux, 107u);
    EXPECT_EQ(sync.mode, VEXO_PDH_SYNC_MODE_1);
}

TEST_F(Pdh, AlarmsAreSetOnAllPortsAndReadFromOne)
{
    vexo_cmi_pdh_alarms_set(0xABCD1234, &result);
    EXPECT_OK(result);
    uint32_t bits = 0;
    vexo_cmi_pdh_alarms_get(&bits, 16, &result);
    EXPECT_EQ(bits, 0x1234u);
    vexo_cmi_pdh_alarms_get(&bits, 17, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_4);
    EXPECT_STREQ(result.message, "there is no PDH port 17, only 1 to 16");
    EXPECT_EQ(bits, 0x1234u);
}

// Every line word of the platform its own number, so that each shows where it went.
void numberCounters(uint32_t port, uint32_t flag, uint32_t flagWord)
{
    for (uint32_t word = 1; word <= 18; ++word)
        ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, port, 1, word, word == flagWord ? flag : 100 + word),
                  0);
}

TEST_F(Pdh, CountersOfBothArrangementsFindTheirPlaces)
{
    constexpr uint32_t KEPT = 0xEEEEEEEE;
    const auto read = [&](uint32_t port) {
        vexoPdhPm pm;
        for (uint32_t &word : pm.lineCounters)
            word = KEPT;
        vexo_cmi_pdh_pm_get(&pm, VEXO_PM_TYPE_1, port, &result);
        EXPECT_OK(result);
        EXPECT_EQ(pm.pmType, VEXO_PM_TYPE_1);
        for (uint32_t i = 0; i < 5; ++i)
            EXPECT_EQ(pm.commonCounters[i], 114 + i);
        return std::vector<uint32_t>(std::begin(pm.lineCounters), std::end(pm.lineCounters));
    };
    // Line word n of the platform (from offset 32) holds 101 + n.
    numberCounters(1, 1, 13);
    EXPECT_EQ(read(1), (std::vector<uint32_t>{101, 102, 103, 104, 105, 106, 107, 110, 108, 109, 111,
                                              112, 1}));
    numberCounters(1, 2, 13);
    EXPECT_EQ(read(1).back(), 0u) << "a flag of 2 is not set";
    numberCounters(9, 1, 9);
    EXPECT_EQ(read(9), (std::vector<uint32_t>{102, 103, 104, 105, 106, 107, 108, 1, KEPT, KEPT,
                                              KEPT, KEPT, KEPT}));
    // An arrangement that is neither.
    ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, 1, 1, 0, 2), 0);
    EXPECT_EQ(read(1), std::vector<uint32_t>(13, KEPT));
}

TEST_F(Pdh, AnUnknownPmTypeIsShownAsGivenAndRefused)
{
    vexoPdhPm pm;
    vexo_cmi_pdh_pm_get(&pm, vexoPmType{9}, 1, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_2);
    EXPECT_STREQ(result.message, "bad value");
    EXPECT_EQ(pm.pmType, 9u);
}

TEST_F(Pdh, AClearGoesIntervalByIntervalUpToAFailure)
{
    for (uint32_t interval = 1; interval <= 3; ++interval)
        ASSERT_EQ(kv_sim_pm_set(KV_SIM_PDH, 1, interval, 1, 50), 0);
    failing("pmom_pdh_pm_stat_clear", 128, 1);
    vexo_cmi_pdh_pm_clear(1, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_8);
    EXPECT_STREQ(result.message, "no room left");
    const uint32_t expected[] = {0, 50, 50};
    for (uint32_t interval = 1; interval <= 3; ++interval) {
        vexoPdhPm pm;
        vexo_cmi_pdh_pm_get(&pm, vexoPmType{interval}, 1, &result);
        EXPECT_EQ(pm.lineCounters[0], expected[interval - 1]) << interval;
    }
}

} // namespace
