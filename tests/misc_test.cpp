#include "instead.h"

#include <kv_upgrade.h>

#include <algorithm>

namespace
{

using Misc = Twisted;

TEST_F(Misc, TheLinksCodesAreTranslatedOrLeaveTheFieldAlone)
{
    constexpr uint32_t KEPT = 0x5A5A5A5A;
    struct {
        uint32_t speedCode, speed, flagWord, flag, modeWord, mode;
    } const rows[] = {
        {0, 10, 0, 1, 0, KEPT},         {1, 10, 1, 2, 1, 1},
        {2, 1000, 0x80000000, 2, 2, 2}, {3, KEPT, 0xFFFFFFFF, 2, 3, 3},
        {7, KEPT, 0, 1, 4, KEPT},       {0xFFFFFFFF, KEPT, 2, 2, 0xFFFFFFFF, KEPT},
    };
    for (const auto &row : rows) {
        answer<config_get_sys_link_status>(
            sysLinkStatus{{11, row.speedCode, 22, 99, row.flagWord, row.modeWord, 99}});
        vexoSysInfo info;
        memset(&info, 0x5A, sizeof info);
        vexo_cmi_misc_sys_info_get(&info, 0, &result);
        EXPECT_OK(result);
        EXPECT_EQ(info.linkStatus, 11u);
        EXPECT_EQ(info.linkSpeed, row.speed) << row.speedCode;
        EXPECT_EQ(info.linkParam, 22u);
        EXPECT_EQ(info.linkFlag, row.flag) << row.flagWord;
        EXPECT_EQ(info.linkMode, row.mode) << row.modeWord;
    }
}

constexpr uint64_t SECOND = 1000000;

TEST_F(Misc, TheUpgradeRequestIsBuiltAsThePlatformWantsIt)
{
    for (size_t length : {1u, 63u, 64u, 100u}) {
        ASSERT_EQ(kv_sim_reset(), 0);
        vexoUpgradeInfo upgrade;
        memset(&upgrade, 'n', sizeof upgrade);
        upgrade.mode = vexoUpgradeMode{7};
        upgrade.fileName[length] = '\0';
        mark();
        vexo_cmi_misc_upgrade_init(&upgrade, &result);
        ASSERT_OK(result);
        upgradeRequest expected{};
        expected.mode = UpgradeMode{1};
        expected.constant4 = 2;
        expected.constant8 = 1;
        expected.constant144 = 1;
        expected.serverAddress = 0xC0000264;
        memset(expected.fileName, 'n', std::min<size_t>(length, 64));
        const auto sent = given<upgradeRequest>("upgrade_load");
        EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0) << length;

        vexoUpgradeInfo read;
        memset(&read, '#', sizeof read);
        vexo_cmi_misc_upgrade_info_get(&read, &result);
        EXPECT_OK(result);
        EXPECT_EQ(memcmp(read.fileName, expected.fileName, 64), 0);
        EXPECT_EQ(read.fileName[64], '#') << "written beyond 64 bytes";
    }
}

TEST_F(Misc, ALoadGoesThroughItsStatesOrFailsAtOne)
{
    kv_sim_clock_stop(1);
    const auto statesOf = [&](uint32_t failing) {
        EXPECT_EQ(kv_sim_upgrade_fail(failing), 0);
        vexoUpgradeInfo upgrade{VEXO_UPGRADE_MODE_2, "load.bin", vexoUpgradeState{}};
        vexo_cmi_misc_upgrade_init(&upgrade, &result);
        EXPECT_OK(result);
        std::vector<uint32_t> states;
        for (int i = 0; i < 5; ++i) {
            vexo_cmi_misc_upgrade_info_get(&upgrade, &result);
            EXPECT_OK(result);
            EXPECT_EQ(upgrade.mode, VEXO_UPGRADE_MODE_2);
            states.push_back(upgrade.state);
            kv_sim_clock_advance(5 * SECOND);
        }
        return states;
    };
    vexoUpgradeInfo none;
    vexo_cmi_misc_upgrade_info_get(&none, &result);
    EXPECT_EQ(none.state, VEXO_UPGRADE_STATE_1);
    EXPECT_EQ(statesOf(0), (std::vector<uint32_t>{2, 3, 4, 5, 5}));
    EXPECT_EQ(statesOf(4), (std::vector<uint32_t>{2, 3, 6, 6, 6}));
    EXPECT_EQ(statesOf(2), (std::vector<uint32_t>{6, 6, 6, 6, 6}));
}

TEST_F(Misc, ALoadAdvancesByTimeThatPassesAndItsEndIsAnEnd)
{
    kv_sim_clock_stop(1);
    vexoUpgradeInfo upgrade{VEXO_UPGRADE_MODE_2, "load.bin", vexoUpgradeState{}};
    const auto start = [&](uint32_t failing) {
        EXPECT_EQ(kv_sim_upgrade_fail(failing), 0);
        vexo_cmi_misc_upgrade_init(&upgrade, &result);
        EXPECT_OK(result);
    };
    const auto expectState = [&](uint32_t expected) {
        vexo_cmi_misc_upgrade_info_get(&upgrade, &result);
        EXPECT_EQ(upgrade.state, expected);
    };
    const auto expectKept = [&](uint32_t state) {
        for (const uint64_t year : {30U, 80U}) {
            kv_sim_clock_set(year * 365 * 86400 * SECOND);
            expectState(state);
        }
        for (const uint32_t failing : {state, 3u, 0u}) {
            kv_sim_upgrade_fail(failing <= 5 ? failing : 4);
            expectState(state);
        }
    };
    start(0);
    kv_sim_clock_advance(6 * SECOND);
    expectKept(3);
    kv_sim_clock_advance(100 * SECOND);
    expectKept(5);
    start(4);
    kv_sim_clock_advance(100 * SECOND);
    expectKept(6);
}

TEST_F(Misc, DebugTextsFillTheirFieldWithoutATerminator)
{
    for (size_t length : {0u, 5u, 127u, 128u, 300u}) {
        const std::string text(length, 'd');
        mark();
        vexo_cmi_misc_dbg_init(text.c_str(), &result);
        EXPECT_OK(result);
        debugInfo expected{};
        memset(expected.text, 'd', std::min<size_t>(length, 128));
        const auto sent = given<debugInfo>("config_set_debug_info_params");
        EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0) << length;
        vexoDebugInfo read;
        vexo_cmi_misc_dbg_info_get(&read, &result);
        EXPECT_OK(result);
        EXPECT_EQ(memcmp(read.info, expected.text, sizeof read.info), 0) << length;
        EXPECT_EQ(read.state, length ? VEXO_DEBUG_STATE_2 : VEXO_DEBUG_STATE_1);
    }
}

TEST_F(Misc, TheDebugModeIsLoggedAndNothingElse)
{
    vexoResult marked = unwritten();
    mark();
    vexo_cmi_misc_dbg_mode_set(0xAB12, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(marked.message[0], 0x5A);
    EXPECT_EQ(calls(), Names{});
    EXPECT_EQ(logSince(0), Names{"5 29 gorvCmi vexo_cmi_misc_dbg_mode_set mode mask=AB12"});
}

TEST_F(Misc, ResettingTheLogClearsItsAlarmOrLogsThatItCannot)
{
    ASSERT_EQ(kv_sim_alarm_set(KV_SIM_SYSTEM, 1, 1U << 13 | 1), 0);
    vexoResult marked = unwritten();
    vexo_cmi_misc_log_reset(&marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(marked.message[0], 0x5A);
    unsigned bits = 0;
    vexo_cmi_sys_alarm_get(&bits, &result);
    EXPECT_EQ(bits, 1u);

    failing("alarm_raise_alarm", 256);
    vexo_cmi_misc_log_reset(&marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(logSince(0), Names{"4 29 gorvCmi vexo_cmi_misc_log_reset Clearing EV_LOG_FULL_ALM "
                                 "failed: exists already"});
    vexo_cmi_misc_log_reset(nullptr);
    EXPECT_EQ(logSince(0), Names{}) << "the log was not cleared";
}

TEST_F(Misc, AFailedCounterReadLeavesTheCountersAlone)
{
    ASSERT_EQ(kv_sim_om_set(KV_SIM_SYSTEM, 1, 73, 999), 0);
    vexoSysInfo info;
    vexo_cmi_misc_sys_info_get(&info, 0, &result);
    EXPECT_OK(result);
    EXPECT_EQ(info.linkStatus, 1u);
    EXPECT_EQ(info.linkSpeed, 1000u);
    EXPECT_EQ(info.linkFlag, VEXO_LINK_FLAG_SET);
    EXPECT_EQ(info.linkMode, 2u);
    EXPECT_EQ(info.om[73], 999u);
    memset(&info, 0x5A, sizeof info);
    failing("pmom_sys_om_stat_get", 1024);
    vexo_cmi_misc_sys_info_get(&info, 0, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_64);
    EXPECT_STREQ(result.message, kv_rc_to_string(1024));
    EXPECT_EQ(info.linkSpeed, 1000u);
    EXPECT_EQ(info.om[73], 0x5A5A5A5Au);
}

TEST_F(Misc, TheTestPatternIsClearedAlsoWhenItCannotBeRead)
{
    kv_sim_clock_stop(1);
    vexo_cmi_misc_tpgm_init(7, 8, 9, &result);
    EXPECT_OK(result);
    kv_sim_clock_advance(3 * SECOND);
    struct {
        kvRc read, clear;
        vexoRc rc;
        uint32_t seconds; // that the next reading shows
    } const rows[] = {
        {256, 0, VEXO_RC_FAILURE_16, 0},
        {0, 512, VEXO_RC_FAILURE_32, 3},
        {256, 512, VEXO_RC_GENERAL, 3},
        {256, 256, VEXO_RC_FAILURE_16, 3},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rc);
        vexo_cmi_misc_tpgm_init(7, 8, 9, &result);
        kv_sim_clock_advance(3 * SECOND);
        if (row.read)
            failing("config_get_tpgm_status", row.read);
        if (row.clear)
            failing("config_clear_tpgm_status", row.clear);
        vexoTpgmStatus status;
        memset(&status, 0x5A, sizeof status);
        vexo_cmi_misc_tpgm_stat_get(&status, 1, &result);
        EXPECT_EQ(result.rc, row.rc);
        EXPECT_EQ(status.words[0], 0x5A5A5A5Au);
        vexo_cmi_misc_tpgm_stat_get(&status, 0, &result);
        EXPECT_OK(result);
        EXPECT_EQ(status.words[1], 7u);
        EXPECT_EQ(status.words[4], row.seconds);
    }
}

} // namespace
