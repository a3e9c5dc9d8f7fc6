#include "instead.h"

namespace
{

using Sys = Twisted;

TEST_F(Sys, ARefusalCarriesThePlatformsText)
{
    const unsigned char groupMac[6] = {0x01, 0, 0x5E, 0, 0, 1};
    vexo_cmi_sys_src_mac_set(groupMac, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_2);
    EXPECT_STREQ(result.message, "source MAC address 01:00:5E:00:00:01 is a group's");
}

TEST_F(Sys, InventoryTakesEachTextFromItsPlaceAndSplitsTheNumber)
{
    vexoSysInventory inventory;
    memset(&inventory, 0x5A, sizeof inventory);
    vexo_cmi_sys_inventory_get(&inventory, &result);
    EXPECT_OK(result);
    EXPECT_STREQ(inventory.text1, "VG-16");
    EXPECT_STREQ(inventory.text2, "TDM-over-packet gateway");
    EXPECT_STREQ(inventory.text3, "VG16-20210001");
    EXPECT_STREQ(inventory.text4, "2021-06-11");
    EXPECT_STREQ(inventory.text5, "B2");
    EXPECT_STREQ(inventory.numberHigh, "1");
    EXPECT_STREQ(inventory.numberLow, "2009");
}

TEST_F(Sys, TextsAndNumbersAreCutToTheirFields)
{
    sysParams params;
    memset(&params, 'x', sizeof params);
    params.number = 0xFFFFFFFF;
    params.operState = operState{6};
    answer<config_get_system_params>(params);
    vexoSysInventory inventory;
    vexo_cmi_sys_inventory_get(&inventory, &result);
    EXPECT_EQ(inventory.text1, std::string(31, 'x'));
    EXPECT_EQ(inventory.text2, std::string(31, 'x'));
    EXPECT_EQ(inventory.text3, std::string(19, 'x'));
    EXPECT_EQ(inventory.text4, std::string(11, 'x'));
    EXPECT_EQ(inventory.text5, std::string(3, 'x'));
    EXPECT_STREQ(inventory.numberHigh, "42");
    EXPECT_STREQ(inventory.numberLow, "7295");
    vexoModuleState state;
    vexo_cmi_sys_oper_state_get(&state, &result);
    EXPECT_EQ(state, VEXO_MODULE_STATE_5);
}

TEST_F(Sys, StatusPutsTheVersionsBehindTheFirstValues)
{
    sysStatus record;
    ASSERT_EQ(config_get_sys_status(&record), KV_OK);
    record.operState = operState{6};
    answer<config_get_sys_status>(record);
    vexoSysStatus read;
    vexo_cmi_sys_status_get(&read, &result);
    EXPECT_OK(result);
    EXPECT_EQ(read.state, VEXO_MODULE_STATE_5);
    for (uint32_t i = 0; i < 13; ++i)
        EXPECT_EQ(read.values1[i], 100 + i);
    for (uint32_t i = 0; i < 6; ++i)
        EXPECT_EQ(read.values2[i], 200 + i);
    vexoSwVersion version;
    vexo_cmi_sys_version_get(&version, &result);
    EXPECT_OK(result);
    for (unsigned i = 0; i < 10; ++i)
        EXPECT_STREQ(read.version.text[i], version.text[i]);
    EXPECT_STREQ(version.text[VEXO_SW_VERSION_GORV], "test host 1.0");
    EXPECT_STREQ(version.text[9], "config 12");
}

// The keep-alive. Its state outlives a test: each starts by making a setting due.

constexpr uint64_t SECOND = 1000000;

class KeepAlive : public Device
{
  protected:
    void SetUp() override
    {
        Device::SetUp();
        kv_sim_clock_stop(1);
        // Later than any setting of an earlier test, so that the next one is due.
        base += 1000000;
        kv_sim_clock_set(base * SECOND + 500000);
    }

    unsigned settings() const
    {
        unsigned count = 0;
        for (const std::string &name : calls())
            count += name == "settimeofday";
        return count;
    }

    // Sends one, with the time that the device has anyway.
    unsigned send(vexoResult *outcome)
    {
        mark();
        const uint64_t now = kv_sim_clock_get();
        vexo_cmi_sys_kato_send(static_cast<unsigned>(now / SECOND),
                               static_cast<unsigned>(now % SECOND), outcome);
        return settings();
    }

    static inline uint64_t base = 1700000000;
};

TEST_F(KeepAlive, SetsTheClockWhenItIsDueAndLogsThat)
{
    mark();
    vexo_cmi_sys_kato_send(static_cast<unsigned>(base + 7), 8, &result);
    EXPECT_OK(result);
    EXPECT_EQ(kv_sim_clock_get(), (base + 7) * SECOND + 8);
    EXPECT_EQ(calls(), (Names{"gettimeofday", "settimeofday", "gettimeofday"}));
    EXPECT_EQ(logSince(0), Names{"6 29 gorvCmi vexo_cmi_sys_kato_send Kato time is updated"});
}

TEST_F(KeepAlive, CountsWholeSecondsWithABorrow)
{
    ASSERT_EQ(send(&result), 1u);
    struct {
        uint64_t passed;
        unsigned set;
    } const rows[] = {
        {10 * SECOND, 0},      {900 * SECOND, 0}, {900 * SECOND + 499999, 0},
        {901 * SECOND - 1, 0}, // 901 seconds apart by the seconds, fewer microseconds
        {901 * SECOND, 1},
    };
    const uint64_t start = kv_sim_clock_get();
    for (const auto &row : rows) {
        kv_sim_clock_set(start + row.passed);
        vexoResult marked = unwritten();
        EXPECT_EQ(send(&marked), row.set) << row.passed;
        EXPECT_EQ(marked.rc, VEXO_RC_OK);
        EXPECT_EQ(marked.message[0], '\0');
        EXPECT_EQ(marked.message[1], 0x5A);
    }
}

TEST_F(KeepAlive, LeavesAClockAloneThatWasSetBack)
{
    ASSERT_EQ(send(&result), 1u);
    kv_sim_clock_set((base - 5000) * SECOND);
    EXPECT_EQ(send(&result), 0u);
    EXPECT_OK(result);
}

TEST_F(KeepAlive, TriesAgainAfterAFailedSettingWithAndWithoutAResult)
{
    for (vexoResult *outcome : {&result, static_cast<vexoResult *>(nullptr)}) {
        kv_sim_clock_advance(1000 * SECOND);
        failing("settimeofday", 2);
        EXPECT_EQ(send(outcome), 1u);
        EXPECT_EQ(result.rc, outcome ? VEXO_RC_GENERAL : VEXO_RC_OK);
        EXPECT_EQ(send(outcome), 1u) << "the failed setting counted";
        EXPECT_OK(result);
        EXPECT_EQ(send(outcome), 0u) << "the setting did not count";
    }
}

TEST_F(KeepAlive, SurvivesAFinish)
{
    ASSERT_EQ(send(&result), 1u);
    vexo_cmi_fini();
    EXPECT_EQ(send(&result), 0u);
}

TEST_F(Sys, AClockThatCannotBeSetIsAGeneralFailure)
{
    vexo_cmi_sys_tod_set(1700000000, 1000000, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "1000000 microseconds are not less than a second");
}

} // namespace
