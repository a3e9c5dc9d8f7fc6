#include "device.h"

#include <map>

namespace
{

using Ima = Device;

TEST_F(Ima, AGroupIsCreatedEmptyAndModifiedWithoutLosingItsLinks)
{
    mark();
    const vexoImaGroupSet create{VEXO_IMA_ACTION_CREATE, 11, 22, 0};
    vexo_cmi_ima_set(&create, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(calls(), Names{"config_add_ima"});
    imaParams expected{};
    expected.groupParam1 = 11;
    expected.groupParam2 = 22;
    auto sent = given<imaParams>("config_add_ima");
    EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0);

    for (uint32_t link : {5u, 9u, 2u})
        vexo_cmi_ima_lnk_add(link, 1, &result);
    EXPECT_OK(result);
    const vexoImaGroupSet setThird{VEXO_IMA_ACTION_MODIFY, 0, 23, 33};
    vexo_cmi_ima_set(&setThird, 1, &result);
    EXPECT_OK(result);
    ASSERT_EQ(config_get_ima_params(&expected, 1), KV_OK);
    EXPECT_EQ(expected.groupParam1, 0u);

    mark();
    const vexoImaGroupSet keepThird{VEXO_IMA_ACTION_MODIFY, 1, 2, 0};
    vexo_cmi_ima_set(&keepThird, 1, &result);
    EXPECT_OK(result);
    expected.groupParam1 = 1;
    expected.groupParam2 = 2;
    sent = given<imaParams>("config_set_ima_params");
    EXPECT_EQ(memcmp(&sent, &expected, sizeof sent), 0);
    EXPECT_EQ(sent.groupParam3, 33u);
    EXPECT_EQ(sent.linkCount, 3u);

    vexoImaParams read;
    vexo_cmi_ima_get(&read, 1, &result);
    imaParams platform;
    ASSERT_EQ(config_get_ima_params(&platform, 1), KV_OK);
    EXPECT_EQ(memcmp(&read, &platform, sizeof read), 0);
}

TEST_F(Ima, ADeleteCallsOneFunctionAndAnUnknownActionNone)
{
    createGroup(1, {});
    mark();
    vexoImaGroupSet group{VEXO_IMA_ACTION_DELETE, 0, 0, 0};
    vexo_cmi_ima_set(&group, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(calls(), Names{"config_del_ima"});
    mark();
    group.imaAction = vexoImaAction{3};
    vexo_cmi_ima_set(&group, 1, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "Bad IMA action");
    EXPECT_EQ(calls(), Names{});
}

TEST_F(Ima, LinksAreListedInTheirOrderAndNothingBehindThemIsWritten)
{
    createGroup(2, {30, 10, 20});
    uint32_t ids[VEXO_IMA_LINK_MAX];
    vexoImaLinkState states[VEXO_IMA_LINK_MAX];
    memset(ids, 0x5A, sizeof ids);
    memset(states, 0x5A, sizeof states);
    uint32_t count = 0;
    vexo_cmi_ima_lnk_get(ids, &count, 2, &result);
    EXPECT_OK(result);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ((std::vector<uint32_t>{ids[0], ids[1], ids[2], ids[3]}),
              (std::vector<uint32_t>{30, 10, 20, 0x5A5A5A5A}));
    vexo_cmi_ima_lnk_state_get(states, &count, 2, &result);
    imaParams platform;
    ASSERT_EQ(config_get_ima_params(&platform, 2), KV_OK);
    EXPECT_EQ(memcmp(states, platform.links, 120), 0);
    EXPECT_EQ(states[3].linkId, 0x5A5A5A5Au);

    createGroup(3, {});
    memset(ids, 0x5A, sizeof ids);
    vexo_cmi_ima_lnk_get(ids, &count, 3, &result);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(ids[0], 0x5A5A5A5Au);
}

TEST_F(Ima, ThePlatformsRefusalsComeThrough)
{
    createGroup(1, {1, 2, 3, 4, 5, 6, 7, 8});
    createGroup(2, {});
    struct {
        uint32_t link, group;
        vexoRc rc;
        const char *text;
    } const rows[] = {
        {9, 1, VEXO_RC_FAILURE_8, "IMA group 1 has 8 links, no more can be"},
        {3, 2, VEXO_RC_FAILURE_16, "IMA link 3 is in group 1 already"},
        {65, 2, VEXO_RC_FAILURE_4, "there is no IMA link 65, only 1 to 64"},
        {9, 3, VEXO_RC_GENERAL, "IMA group 3 is not provisioned"},
        {9, 9, VEXO_RC_FAILURE_4, "there is no IMA group 9, only 1 to 8"},
    };
    for (const auto &row : rows) {
        vexo_cmi_ima_lnk_add(row.link, row.group, &result);
        EXPECT_EQ(result.rc, row.rc) << row.text;
        EXPECT_STREQ(result.message, row.text);
    }
}

TEST_F(Ima, PmCountersFindTheirPlaces)
{
    createGroup(1, {4, 6});
    for (uint32_t word = 0; word < 3; ++word)
        ASSERT_EQ(kv_sim_pm_set(KV_SIM_GROUP, 1, 2, word, 100 + word), 0);
    ASSERT_EQ(kv_sim_pm_set(KV_SIM_GROUP, 1, 2, 3, 2), 0); // the flag: not exactly 1
    for (uint32_t word = 0; word < 16; ++word)
        ASSERT_EQ(kv_sim_pm_set(KV_SIM_LINK, 6, 2, word, 200 + word), 0);
    vexoImaGroupPm pm;
    memset(&pm, 0x5A, sizeof pm);
    vexo_cmi_ima_pm_get(&pm, VEXO_PM_TYPE_2, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(pm.intervalFlag, 0u);
    EXPECT_EQ(pm.counters[0], 102u);
    EXPECT_EQ(pm.counters[1], 100u);
    EXPECT_EQ(pm.counters[2], 101u);
    EXPECT_EQ(pm.linkCount, 2u);
    EXPECT_EQ(pm.links[0].linkId, 4u);
    EXPECT_EQ(pm.links[1].linkId, 6u);
    EXPECT_EQ(pm.links[1].intervalFlag, 1u);
    const std::vector<uint32_t> counters(std::begin(pm.links[1].counters),
                                         std::end(pm.links[1].counters));
    EXPECT_EQ(counters, (std::vector<uint32_t>{200, 202, 203, 204, 205, 206, 207, 201, 208, 209,
                                               210, 211, 212, 213, 214, 215}));
    EXPECT_EQ(pm.links[2].linkId, 0x5A5A5A5Au);

    // The second link fails: what was read stays, all links are counted.
    memset(&pm, 0x5A, sizeof pm);
    failing("pmom_ima_link_pm_stat_get", 512, 1);
    vexo_cmi_ima_pm_get(&pm, VEXO_PM_TYPE_2, 1, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_32);
    EXPECT_STREQ(result.message, kv_rc_to_string(512));
    EXPECT_EQ(pm.linkCount, 2u);
    EXPECT_EQ(pm.links[0].linkId, 4u);
    EXPECT_EQ(pm.links[1].linkId, 0x5A5A5A5Au);
}

TEST_F(Ima, ClearingAllGroupsTriesEverythingAndReportsNothing)
{
    createGroup(1, {1, 2});
    createGroup(2, {3});
    mark();
    failing("", 128, 2, 5);
    vexoResult marked = unwritten();
    vexo_cmi_ima_pm_clear(0, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(marked.message[0], 0x5A);
    std::map<std::string, unsigned> counts;
    for (const std::string &name : calls())
        ++counts[name];
    EXPECT_EQ(counts["config_get_ima_params"], 8u);
    EXPECT_EQ(counts["pmom_ima_group_pm_stat_clear"], 24u);
    EXPECT_EQ(counts["pmom_ima_link_pm_stat_clear"], 9u);
}

TEST_F(Ima, OmCountersWrapAndAreClearedOnlyOnRequest)
{
    createGroup(1, {7});
    ASSERT_EQ(kv_sim_om_set(KV_SIM_GROUP, 1, 1, 4294967301), 0);
    for (uint32_t k = 0; k < 8; ++k)
        ASSERT_EQ(kv_sim_om_set(KV_SIM_LINK, 7, k, (1ULL << 32) + 10 + k), 0);
    vexoImaOm om{};
    vexo_cmi_ima_om_get(&om, 0, 1, &result);
    EXPECT_EQ(om.counters[1], 5u);
    vexo_cmi_ima_om_get(&om, 1, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(om.counters[1], 5u);
    for (uint32_t k = 0; k < 8; ++k)
        EXPECT_EQ(om.links[0].counters[k], 10 + k);
    vexo_cmi_ima_om_get(&om, 0, 1, &result);
    EXPECT_EQ(om.counters[1], 0u);
    EXPECT_EQ(om.links[0].counters[7], 0u);
}

TEST_F(Ima, AlarmsOfGroupsAndLinksShareAWord)
{
    createGroup(1, {7});
    vexo_cmi_ima_alarms_set(0xFFFFFFFF, &result);
    EXPECT_OK(result);
    uint32_t bits = 0;
    vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_GROUP, 1, &result);
    EXPECT_EQ(bits, 0x3FFu);
    vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_LINK, 7, &result);
    EXPECT_EQ(bits, 0x7F0000u);
    mark();
    vexo_cmi_ima_alarms_get(&bits, vexoImaType{3}, 7, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "general failure");
    EXPECT_EQ(calls(), Names{});
    EXPECT_EQ(bits, 0x7F0000u);
}

} // namespace
