// What the PM callback is handed: the reports.
#include "notify.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace
{

class NotifyReport
    : public NotifyContent<vexoPmNotification, vexo_cmi_pm_callback_register, pmService>
{
  protected:
    // A report of an interval that has just ended.
    std::vector<vexoPmNotification> report(uint32_t interval)
    {
        records.clear();
        EXPECT_EQ(kv_sim_interval_end(interval), 0) << kv_sim_error();
        if (interval > 3)
            kv_sim_interval_send(interval);
        settle();
        return records;
    }
};

uint32_t counter(uint32_t type, uint32_t number, uint32_t word)
{
    return 0x01000000 * (type + 1) + 0x100 * number + word;
}

void fillCounters(uint32_t type, uint32_t number, uint32_t interval, uint32_t first, uint32_t last)
{
    for (uint32_t word = first; word <= last; ++word)
        ASSERT_EQ(kv_sim_pm_set(type, number, interval, word, counter(type, number, word)), 0)
            << kv_sim_error();
}

// The words of a record, from one on.
template <class Record>
std::vector<uint32_t> words(const Record &record, size_t from, size_t count)
{
    std::vector<uint32_t> all(sizeof record / sizeof(uint32_t));
    memcpy(all.data(), &record, sizeof record);
    const auto begin = all.begin() + static_cast<ptrdiff_t>(from);
    return {begin, begin + static_cast<ptrdiff_t>(count)};
}

// The counters with these words, and a flag behind them.
std::vector<uint32_t> expected(uint32_t type, uint32_t number, std::vector<uint32_t> words,
                               uint32_t flag)
{
    for (uint32_t &word : words)
        word = counter(type, number, word);
    words.push_back(flag);
    return words;
}

TEST_F(NotifyReport, AReportHoldsTheCountersOfAllPortsThenPseudowiresThenGroups)
{
    constexpr uint32_t INTERVAL = 2;
    const std::map<uint32_t, vexoPweType> pws{{1, VEXO_PWE_TYPE_TDM_1},
                                              {7, VEXO_PWE_TYPE_ATM_3},
                                              {300, VEXO_PWE_TYPE_TDM_2},
                                              {1024, VEXO_PWE_TYPE_ATM_4}};
    for (const auto &[pwId, type] : pws) {
        createPwe(type, pwId);
        const bool atm = type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4;
        fillCounters(KV_SIM_PW, pwId, INTERVAL, 1, atm ? 4 : 13);
    }
    kv_sim_pm_set(KV_SIM_PW, 300, INTERVAL, 14, 2); // a flag that is not 1 does not count
    for (uint32_t port = 1; port <= 16; ++port) {
        fillCounters(KV_SIM_PDH, port, INTERVAL, 1, port > 8 ? 8 : 12);
        fillCounters(KV_SIM_PDH, port, INTERVAL, 14, 18);
    }
    kv_sim_pm_set(KV_SIM_PDH, 16, INTERVAL, 9, 1); // the flag of the second arrangement
    createGroup(2, {1, 2, 3, 4, 5, 6, 7, 8});
    createGroup(8, {60});
    for (const uint32_t group : {2U, 8U})
        fillCounters(KV_SIM_GROUP, group, INTERVAL, 0, 2);
    for (const uint32_t link : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 60U})
        fillCounters(KV_SIM_LINK, link, INTERVAL, 0, 15);

    static std::atomic<void *> pwRecord, groupRecord;
    instead<config_get_pw> = [](pwConfig *out, uint32_t pwId) {
        pwRecord = out;
        return DEVICES(config_get_pw)(out, pwId);
    };
    instead<config_get_ima_params> = [](imaParams *out, uint32_t group) {
        groupRecord = out;
        return DEVICES(config_get_ima_params)(out, group);
    };
    const auto told = report(INTERVAL);
    EXPECT_EQ(groupRecord, pwRecord) << "they have one buffer, as large as the larger";
    ASSERT_EQ(told.size(), 7u);
    auto record = told.begin();

    ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_PDH);
    for (uint32_t port = 1; port <= 16; ++port) {
        const vexoPdhPm &pm = record->pdh[port - 1];
        EXPECT_EQ(pm.pmType, INTERVAL);
        auto line = port <= 8
                        ? expected(KV_SIM_PDH, port, {1, 2, 3, 4, 5, 6, 7, 10, 8, 9, 11, 12}, 1)
                        : expected(KV_SIM_PDH, port, {2, 3, 4, 5, 6, 7, 8}, 1);
        line.resize(13); // what an arrangement does not have is 0
        EXPECT_EQ(words(pm, 1, 13), line) << "port " << port;
        auto common = expected(KV_SIM_PDH, port, {14, 15, 16, 17, 18}, 0);
        common.pop_back();
        EXPECT_EQ(words(pm, 14, 5), common) << "port " << port;
    }

    for (const auto &[pwId, type] : pws) {
        ++record;
        ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_PWE);
        EXPECT_EQ(record->pwe.pweType, type);
        EXPECT_EQ(record->pwe.interval, INTERVAL);
        EXPECT_EQ(record->pwe.pwId, pwId);
        std::vector<uint32_t> numbers(
            type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4 ? 4 : 13);
        std::iota(numbers.begin(), numbers.end(), 1U);
        EXPECT_EQ(words(record->pwe.body, 0, numbers.size() + 1),
                  expected(KV_SIM_PW, pwId, numbers, pwId != 300))
            << "pseudowire " << pwId;
    }

    for (const auto &[group, links] :
         std::map<uint32_t, std::vector<uint32_t>>{{2, {1, 2, 3, 4, 5, 6, 7, 8}}, {8, {60}}}) {
        ++record;
        ASSERT_EQ(record->objType, VEXO_OBJ_TYPE_IMA);
        EXPECT_EQ(record->ima.interval, INTERVAL);
        EXPECT_EQ(record->ima.groupId, group);
        const vexoImaGroupPm &pm = record->ima.group;
        EXPECT_EQ(pm.intervalFlag, 1u);
        EXPECT_EQ(words(pm, 1, 4),
                  expected(KV_SIM_GROUP, group, {2, 0, 1}, static_cast<uint32_t>(links.size())));
        for (uint32_t i = 0; i < VEXO_IMA_LINK_MAX; ++i) {
            std::vector<uint32_t> all(18);
            if (i < links.size()) {
                all = expected(KV_SIM_LINK, links[i],
                               {0, 2, 3, 4, 5, 6, 7, 1, 8, 9, 10, 11, 12, 13, 14, 15}, 0);
                all.pop_back();
                all.insert(all.begin(), {links[i], 1});
            }
            EXPECT_EQ(words(pm.links[i], 0, 18), all) << "group " << group << ", link " << i;
        }
    }
}

bool isZero(const void *record, size_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(record);
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

// What a report tells about: the objects of its records, "-3" a port and "-" a link that is all 0.
std::string outline(const std::vector<vexoPmNotification> &records)
{
    std::string text;
    for (const vexoPmNotification &record : records) {
        if (record.objType == VEXO_OBJ_TYPE_PDH) {
            text += "ports";
            for (uint32_t i = 0; i < VEXO_PM_PDH_MAX; ++i)
                if (isZero(&record.pdh[i], sizeof record.pdh[i]))
                    text += "-" + std::to_string(i + 1);
        } else if (record.objType == VEXO_OBJ_TYPE_PWE) {
            text += " pw" + std::to_string(record.pwe.pwId);
        } else {
            text += " group" + std::to_string(record.ima.groupId) + "(";
            for (uint32_t i = 0; i < record.ima.group.linkCount; ++i) {
                const vexoImaLinkPm &link = record.ima.group.links[i];
                text += isZero(&link, sizeof link) ? "-" : std::to_string(link.linkId);
            }
            text += ")";
        }
    }
    return text;
}

TEST_F(NotifyReport, AFailedReadLeavesOutItsObjectAndSaysSoUnlessThereIsNothingToRead)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_ATM_3, 2);
    createGroup(1, {1, 2});
    const std::string whole = "ports pw1 pw2 group1(12)";
    const std::string noPort3 = "ports-3 pw1 pw2 group1(12)";
    const std::string noPws = "ports group1(12)";
    const std::string noGroup = "ports pw1 pw2";
    const struct {
        const char *function;
        uint32_t object;
        kvRc code;
        std::string outline;
        std::string log; // $ stands for the code's text
    } table[] = {
        {"kv_log_clear", 0, 1, whole, ""},
        {"pmom_pdh_pm_stat_get", 3, 0x1000, noPort3, ""},
        {"pmom_pdh_pm_stat_get", 3, 0x20000, noPort3, "pmom_pdh_pm_stat_get failed(3) 131072($)"},
        {"config_get_pw_all_prov", 0, 2, noPws, "config_get_pw_all_prov failed 2($)"},
        {"config_get_pw_all_prov", 0, 0x1000, noPws, "config_get_pw_all_prov failed 4096($)"},
        {"config_get_pw", 1, 0x20000, "ports pw2 group1(12)", "config_get_pw failed(1) 131072($)"},
        {"config_get_pw", 2, 0x1000, "ports pw1 group1(12)", "config_get_pw failed(2) 4096($)"},
        {"pmom_pw_pm_stat_get", 2, 0x1000, "ports pw1 group1(12)", ""},
        {"pmom_pw_pm_stat_get", 1, 0x20000, "ports pw2 group1(12)",
         "pmom_pw_pm_stat_get failed(1) 131072($)"},
        {"config_get_ima_params", 1, 0x20000, noGroup, ""},
        {"config_get_ima_params", 1, 0x1000, noGroup, "config_get_ima_params failed(1) ($)"},
        {"pmom_ima_group_pm_stat_get", 1, 0x1000, noGroup, ""},
        {"pmom_ima_group_pm_stat_get", 1, 0x20000, noGroup,
         "pmom_ima_group_pm_stat_get failed(1, 3) ($)"},
        {"pmom_ima_link_pm_stat_get", 1, 0x1000, "ports pw1 pw2 group1(-2)", ""},
        {"pmom_ima_link_pm_stat_get", 2, 512, "ports pw1 pw2 group1(1-)",
         "pmom_ima_link_pm_stat_get failed(2, 3) ($)"},
    };
    for (const auto &row : table) {
        failing(row.function, row.code, 0, 0, row.object);
        const uint64_t mark = kv_sim_log_last();
        EXPECT_EQ(outline(report(3)), row.outline) << row.function << " " << row.code;
        Names log;
        if (!row.log.empty()) {
            std::string text = row.log;
            if (const size_t at = text.find('$'); at != text.npos)
                text.replace(at, 1, kv_rc_to_string(row.code));
            log.push_back("3 29 gorvCmi pm_notification_handler " + text);
        }
        EXPECT_EQ(logSince(mark), log) << row.function << " " << row.code;
        kv_sim_fault_clear();
    }

    kv_sim_pm_set(KV_SIM_PW, 1, 3, 0, 7);
    const uint64_t mark = kv_sim_log_last();
    EXPECT_EQ(outline(report(3)), "ports pw2 group1(12)") << "counters of an unknown kind";
    EXPECT_EQ(logSince(mark), Names{"3 29 gorvCmi pm_notification_handler Unknown PWE type 7"});
}

TEST_F(NotifyReport, MoreObjectsThanTheRecordsHoldAreLeftOutWithALogRecord)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createGroup(1, {1, 2, 3, 4, 5, 6, 7, 8});
    instead<GetObjectCount> = [](objType) { return 0xFFFFFFFF; };
    instead<config_get_pw_all_prov> = [](pwProvList *out) {
        std::fill(std::begin(out->pwIds), std::end(out->pwIds), uint16_t{1});
        out->count = 0xFFFF;
        return KV_OK;
    };
    instead<config_get_ima_params> = [](imaParams *out, uint32_t group) {
        const kvRc code = DEVICES(config_get_ima_params)(out, group);
        out->linkCount = 0x80000001;
        return code;
    };
    failing("config_get_ima_params", 0x20000, 1, 0); // there is but the first group

    const auto told = report(1);
    std::string pws;
    for (int i = 0; i < 1024; ++i)
        pws += " pw1";
    EXPECT_EQ(outline(told), "ports" + pws + " group1(12345678)");
    const std::string function = "3 29 gorvCmi pm_notification_handler ";
    EXPECT_EQ(logSince(0),
              (Names{function + "more than 16 PDH ports, the others are left out",
                     function + "65535 pseudowires, only the first 1024 are reported",
                     function + "IMA group 1 has 2147483649 links, only the first 8 are reported",
                     function + "more than 65535 IMA groups, the others are left out"}));
}

TEST_F(NotifyReport, AnIntervalThatTheLibraryDoesNotKnowIsReadAsReceivedAndReportedAs0)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createGroup(1, {1});
    for (const uint32_t interval : {1U, 2U, 3U, 4U}) {
        const uint64_t mark = kv_sim_journal_last();
        const auto told = report(interval);
        const uint32_t known = interval < 4 ? interval : 0;
        ASSERT_EQ(told.size(), 3u);
        for (const vexoPdhPm &pm : told[0].pdh)
            EXPECT_EQ(pm.pmType, known);
        EXPECT_EQ(told[1].pwe.interval, known);
        EXPECT_EQ(told[2].ima.interval, known);
        int reads = 0;
        kvSimCall call;
        for (uint64_t number = mark + 1; kv_sim_journal_get(number, &call) == 0; ++number) {
            if (!strstr(call.function, "_pm_stat_get"))
                continue;
            ++reads;
            EXPECT_EQ(call.args[1], interval) << call.function;
            EXPECT_EQ(call.args[2], 1u) << call.function;
        }
        EXPECT_EQ(reads, 16 + 1 + 1 + 1);
    }
}

TEST_F(NotifyReport, AnEmptyDeviceReportsPortsAllTheSameAndWithoutAListenerNothingIsRead)
{
    failing("pmom_pdh_pm_stat_get", 0x1000, 0, 0);
    const std::string noPort = "ports-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16";
    EXPECT_EQ(outline(report(1)), noPort);
    instead<GetObjectCount> = [](objType) { return 0U; };
    EXPECT_EQ(outline(report(1)), noPort) << "no port at all";
    vexo_cmi_pm_callback_register(nullptr);
    const int lists = callsOf("config_get_pw_all_prov");
    EXPECT_EQ(outline(report(1)), "");
    EXPECT_EQ(callsOf("config_get_pw_all_prov"), lists);
}

std::atomic<int> laterRecords;

TEST_F(NotifyReport, ACallbackThatIsReplacedDuringAReportGetsTheRestOfIt)
{
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createPwe(VEXO_PWE_TYPE_TDM_1, 2);
    laterRecords = 0;
    vexo_cmi_pm_callback_register([](vexoPmNotification *pm) {
        vexo_cmi_pm_callback_register([](vexoPmNotification *) { ++laterRecords; });
        keep(pm);
    });
    EXPECT_EQ(outline(report(1)), "ports pw1 pw2");
    EXPECT_EQ(laterRecords, 0);
    EXPECT_EQ(outline(report(1)), "");
    EXPECT_EQ(laterRecords, 3);
}

} // namespace
