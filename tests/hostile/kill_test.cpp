// Hosts and vexoctl killed at random moments, while others use the same device: KILL_COUNT times.
#include "../device.h"
#include "chance.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace std::chrono;
using hostile::chance;

constexpr uint32_t LINKS_USED = 5;

class Kill : public testing::Test
{
  protected:
    void SetUp() override
    {
        folder_ = testing::TempDir() + "kill-XXXXXX";
        ASSERT_TRUE(mkdtemp(folder_.data()));
        device_ = folder_ + "/device";
        std::ofstream script{folder_ + "/script"};
        for (int n = 1; n <= 20000; ++n)
            script << "pdh params set port=1 adminStatus=1 frameMode=1 lineCode=1 cableLength=" << n
                   << " syncMode=1 syncParam=" << n << " niuMode=1 auxParam=" << n << "\n"
                   << "sys lops set first=" << n << " second=" << n << "\n"
                   << "pdh alarms set alarmBits=" << n << "\n";
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    template <class Body>
    pid_t start(Body body) const
    {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60); // a device that hangs is not usable
            setenv("KV_SIM_DEVICE", device_.c_str(), 1);
            _exit(kv_sim_open() == 0 ? body() : 99);
        }
        return child;
    }

    template <class Body>
    int onDevice(Body body) const
    {
        int status = 0;
        waitpid(start(body), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t startTool() const
    {
        return start([&] {
            if (!freopen("/dev/null", "w", stdout))
                return 98;
            const std::string script = folder_ + "/script";
            execl(VEXOCTL, "vexoctl", "--script", script.c_str(), nullptr);
            return 97;
        });
    }

    std::string folder_, device_;
};

void kill(pid_t process)
{
    ::kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

// In all that one call of the platform sets, the numbers are the same.
int keepChanging()
{
    vexoResult result;
    vexoPweParams pw = newPwe(VEXO_PWE_TYPE_ATM_3);
    for (uint32_t n = 1;; ++n) {
        const vexoPdhParamsIn port{VEXO_ADMIN_STATUS_1,  VEXO_PDH_FRAME_MODE_1,
                                   VEXO_PDH_CODE_1,      n & 0xFFFF,
                                   VEXO_PDH_SYNC_MODE_1, n & 0xFFFF,
                                   VEXO_PDH_NIU_MODE_1,  n & 0xFFFF};
        vexo_cmi_pdh_params_set(&port, 1, &result);
        vexo_cmi_sys_lops_set(n, n, &result);
        pw.pweAction = n % 3 == 0   ? VEXO_PWE_ACTION_DELETE
                       : n % 3 == 1 ? VEXO_PWE_ACTION_CREATE
                                    : VEXO_PWE_ACTION_MODIFY;
        pw.service.a.circuit = pw.service.a.atmParam1 = pw.service.a.atmParam2 = n;
        vexo_cmi_pwe_params_set(&pw, 1, &result);
        const vexoImaGroupSet group{n % 7 ? VEXO_IMA_ACTION_CREATE : VEXO_IMA_ACTION_DELETE, n, n,
                                    n};
        vexo_cmi_ima_set(&group, 1, &result);
        vexo_cmi_ima_lnk_add(1 + n % LINKS_USED, 1, &result);
        vexo_cmi_ima_lnk_delete(1 + n % 3, 1, &result);
        vexo_cmi_pdh_alarms_set(n, &result);
        kv_log(4, 1, "kill_test", "keepChanging", static_cast<int>(n), "%u", n);
        kv_sim_interval_end(1);
        const kvSimReboot reboot{};
        if (n % 250 == 0)
            kv_sim_reboot(&reboot);
        if (n % 1000 == 0)
            kv_sim_reset();
    }
}

std::atomic<bool> heard;

int listen()
{
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) { heard = true; });
    return pause();
}

bool canSubscribe()
{
    heard = false;
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) { heard = true; });
    for (int left = 10000; left > 0 && !heard; --left) {
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        std::this_thread::sleep_for(1ms);
    }
    vexo_cmi_fini();
    return heard;
}

// Whether a process goes on: makes calls after those there are, or after a reset.
bool goesOn(pid_t process)
{
    const uint64_t from = kv_sim_journal_last();
    for (const auto end = steady_clock::now() + 30s; steady_clock::now() < end;) {
        kvSimCall call;
        const uint64_t last = kv_sim_journal_last();
        for (uint64_t n = last; n > (last < from ? 0 : from) && last - n < 1000; --n)
            if (kv_sim_journal_get(n, &call) == 0 && call.process == static_cast<uint32_t>(process))
                return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

enum Wholeness { WHOLE, TORN_PORT, TORN_PW, TORN_GROUP, TORN_THRESHOLDS, TORN_ALARMS, TORN_LOG };

int wholeness()
{
    vexoResult result;
    vexoPdhParamsOut port;
    vexo_cmi_pdh_params_get(&port, 1, &result);
    const bool factory = port.cableLength == 133 && port.syncParam == 0;
    if (result.rc != VEXO_RC_OK ||
        (!factory && (port.cableLength != port.syncParam || port.syncParam != port.auxParam)))
        return TORN_PORT;
    vexoPweParamsInfo pw;
    vexo_cmi_pwe_params_get(&pw, 1, &result);
    const vexoPweServiceA &service = pw.service.a;
    if (result.rc != VEXO_RC_OK || service.circuit != service.atmParam1 ||
        service.circuit != service.atmParam2)
        return TORN_PW;
    // A group's list of its links and the links' group agree.
    const vexoImaGroupSet group{VEXO_IMA_ACTION_CREATE, 1, 1, 1};
    vexo_cmi_ima_set(&group, 1, nullptr);
    uint32_t links[VEXO_IMA_LINK_MAX], count = 0;
    vexo_cmi_ima_lnk_get(links, &count, 1, &result);
    for (uint32_t link = 1; link <= LINKS_USED; ++link) {
        vexo_cmi_ima_lnk_add(link, 1, &result);
        const bool listed = std::find(links, links + count, link) != links + count;
        if (result.rc != (listed ? VEXO_RC_FAILURE_16 : VEXO_RC_OK))
            return TORN_GROUP;
    }
    unsigned first, second;
    vexo_cmi_sys_lops_get(&first, &second, &result);
    if (result.rc != VEXO_RC_OK || (first != second && !(first == 10 && second == 20)))
        return TORN_THRESHOLDS;
    // One call sets the alarms of every port.
    for (uint32_t bits, before = 0, number = 1; number <= KV_SIM_PORTS; ++number, before = bits) {
        vexo_cmi_pdh_alarms_get(&bits, number, &result);
        if (result.rc != VEXO_RC_OK || (number > 1 && bits != before))
            return TORN_ALARMS;
    }
    kvSimLog record;
    for (uint64_t n = kv_sim_log_last(); kv_sim_log_get(n, &record) == 0; --n)
        if (record.file == std::string{"kill_test"} && record.text != std::to_string(record.line))
            return TORN_LOG;
    return WHOLE;
}

TEST_F(Kill, LeavesTheDeviceUsableAndNothingHalfDone)
{
    const char *given = getenv("KILL_COUNT");
    const int wanted = given ? atoi(given) : 300;
    chance().start(1, 0);
    int kills = 0, busy = 0;
    while (kills < wanted && !HasFailure()) {
        // At first it is mostly the making of the device that is cut short.
        const bool anew = kills < wanted / 3;
        if (anew)
            std::filesystem::remove(device_);
        const bool isTool = kills % 2 != 0;
        const pid_t first = isTool ? startTool() : start(keepChanging);
        const pid_t second = start(keepChanging);
        const pid_t listener = start(listen);
        if (isTool && !anew) {
            EXPECT_EQ(onDevice([=] { return goesOn(first) ? 0 : 1; }), 0) << "vexoctl does nothing";
        }
        std::this_thread::sleep_for(microseconds{chance().below(anew ? 1000 : 10000)});
        kill(first);
        EXPECT_EQ(onDevice([=] { return goesOn(second) ? 0 : 1; }), 0)
            << "the other process does not go on";
        kill(listener);
        kill(second);
        busy += onDevice([] { return kv_sim_journal_last() > 1000 ? 1 : 0; });
        kills += 3;
        EXPECT_EQ(onDevice(wholeness), WHOLE) << "after " << kills << " kills";
        if (kills % 30 == 0) {
            EXPECT_EQ(onDevice([] { return canSubscribe() ? 0 : 1; }), 0) << "no event is heard";
        }
    }
    printf("%d kills\n", kills);
    EXPECT_GT(busy, 0) << "the kills came too soon";
}

// The first and the last that a restart takes away: they are added in this order, and go together.
constexpr uint32_t FIRST_PW = 1, LAST_PW = KV_SIM_PWS;

int keepRestarting()
{
    const kvSimReboot reboot{};
    vexoPweParams pw = newPwe(VEXO_PWE_TYPE_TDM_1);
    for (;;) {
        for (const uint32_t pwId : {FIRST_PW, LAST_PW})
            vexo_cmi_pwe_params_set(&pw, pwId, nullptr);
        kv_sim_reboot(&reboot);
    }
}

bool isProvisioned(uint32_t pwId)
{
    vexoPweParamsInfo info;
    vexoResult result;
    vexo_cmi_pwe_params_get(&info, pwId, &result);
    EXPECT_OK(result);
    return info.pweAction == VEXO_PWE_ACTION_CREATE;
}

TEST_F(Kill, LeavesNoRestartHalfDone)
{
    chance().start(2, 0);
    for (int kills = 0; kills < 200 && !HasFailure(); ++kills) {
        const pid_t process = start(keepRestarting);
        EXPECT_EQ(onDevice([=] { return goesOn(process) ? 0 : 1; }), 0);
        std::this_thread::sleep_for(microseconds{chance().below(2000)});
        kill(process);
        EXPECT_EQ(onDevice([] {
                      return isProvisioned(LAST_PW) && !isProvisioned(FIRST_PW) ? 1 : HasFailure();
                  }),
                  0)
            << "after " << kills << " kills";
    }
}

} // namespace
