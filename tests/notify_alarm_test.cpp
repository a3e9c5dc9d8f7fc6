// What the alarm callback is handed.
#include "notify.h"

namespace
{

using NotifyAlarm =
    NotifyContent<vexoAlarmNotification, vexo_cmi_alarm_callback_register, alarmService>;

TEST_F(NotifyAlarm, AlarmEventsOfEveryObjectTypeArriveAsThePlatformGaveThem)
{
    constexpr uint32_t S = 0xC0FFEE01, D = 0x8000000F;
    const struct {
        uint32_t type, number;
        std::vector<uint32_t> words; // none: not delivered
        uint32_t logged;             // the type in the log
    } table[] = {
        {0, 1, {1, 1, S, D}, 1},
        {1, 16, {2, 16, S, D}, 2},
        {2, 8, {4, 1, 8, 8, S, D}, 1},
        {3, 1024, {3, 1024, S, D}, 3},
        {34, 64, {4, 2, 64, 64, S, D}, 2},
        {1, 0xFFFFFFFF, {2, 0xFFFFFFFF, S, D}, 2},
        {4, 1, {}, 0},
        {33, 1, {}, 0},
        {35, 1, {}, 0},
        {0xFFFFFFFF, 1, {}, 0},
    };
    for (const auto &row : table) {
        records.clear();
        const uint64_t mark = kv_sim_log_last();
        kv_sim_alarm_send(row.type, row.number, S, D);
        settle();
        Names log;
        if (row.logged)
            log.push_back("7 29 gorvCmi alarm_notification_handler got alarm: type=" +
                          std::to_string(row.logged) +
                          ", obj=" + std::to_string(static_cast<int>(row.number)) +
                          ", status=0xC0FFEE01, delta=0x8000000F");
        EXPECT_EQ(logSince(mark), log) << "object type " << row.type;
        ASSERT_EQ(records.size(), log.size()) << "object type " << row.type;
        std::vector<uint32_t> words(row.words.size());
        if (row.logged)
            memcpy(words.data(), records.data(), words.size() * sizeof(uint32_t));
        EXPECT_EQ(words, row.words) << "object type " << row.type;
    }
}

TEST_F(NotifyAlarm, AnAlarmGoesToTheCallbackThatWasThereWhenItCame)
{
    twist.atAlarmLog = [] { vexo_cmi_alarm_callback_register(nullptr); };
    kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
    kv_sim_alarm_send(KV_SIM_PDH, 1, 2, 2);
    settle();
    twist.atAlarmLog = nullptr;
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].object.status, 1u);
    EXPECT_EQ(logSince(0).size(), 1u) << "what nobody listens to is logged";
}

} // namespace
