// The keep-alive after January 2038, when 32 bits no longer hold the time as a positive number.
#include "../device.h"

TEST_F(Device, SetsItsClockByKeepAlivesAlsoAfter2038)
{
    constexpr uint64_t SECOND = 1000000;
    constexpr uint32_t IN_2040 = 2208988800;
    ASSERT_EQ(kv_sim_clock_stop(1), 0);
    ASSERT_EQ(kv_sim_clock_set(IN_2040 * SECOND), 0);
    vexo_cmi_sys_kato_send(IN_2040, 0, &result);
    ASSERT_OK(result);
    ASSERT_EQ(kv_sim_clock_advance(900 * SECOND), 0);
    vexo_cmi_sys_kato_send(IN_2040, 0, &result); // not due yet
    EXPECT_EQ(kv_sim_clock_get(), (IN_2040 + 900) * SECOND);
    ASSERT_EQ(kv_sim_clock_advance(SECOND), 0);
    vexo_cmi_sys_kato_send(IN_2040 + 7, 0, &result);
    EXPECT_OK(result);
    EXPECT_EQ(kv_sim_clock_get(), (IN_2040 + 7) * SECOND);
}
