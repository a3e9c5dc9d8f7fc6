// vexoctl killed at random moments, while others use the same device: KILL_COUNT times.
#include "chance.h"

#include <kv_sim.h>
#include <vexo_cmi.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace
{

using namespace std::chrono;
using hostile::chance;

constexpr uint32_t PORTS_USED = 3;
constexpr int LINES = 20000; // more than a writer gets through before it is killed

class Kill : public testing::Test
{
  protected:
    void SetUp() override
    {
        folder_ = testing::TempDir() + "kill-XXXXXX";
        ASSERT_TRUE(mkdtemp(folder_.data()));
        device_ = folder_ + "/device";
        script_ = folder_ + "/script";
        writeScript();
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // In everything that is set, all numbers are the same.
    void writeScript() const
    {
        std::ofstream out{script_};
        for (int i = 0; i < LINES; ++i) {
            const std::string n = std::to_string(1 + i % 600);
            const std::string port = std::to_string(1 + static_cast<uint32_t>(i) % PORTS_USED);
            switch (i % 7) {
            case 0:
            case 1:
            case 2:
                out << "pdh params set port=" << port << " adminStatus=1 frameMode=1 lineCode=1"
                    << " niuMode=1 syncMode=1 cableLength=" << n << " syncParam=" << n
                    << " auxParam=" << n << "\n";
                break;
            case 3:
                out << "sys lops set first=" << n << " second=" << n << "\n";
                break;
            case 4:
                out << "misc tpgm init tpgmParam1=" << n << " tpgmParam2=" << n
                    << " tpgmParam3=" << n << "\n";
                break;
            case 5:
                out << "pdh alarms set alarmBits=" << n << "\n";
                break;
            default:
                out << "pdh pm get port=" << port << " pmType=1\n";
            }
        }
    }

    pid_t vexoctl(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VEXOCTL, "--device", device_});
        std::vector<char *> argv;
        for (std::string &argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        pid_t process = -1;
        EXPECT_EQ(posix_spawn(&process, VEXOCTL, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        return process;
    }

    // Runs `body` in a process that uses the device, and returns what it does, or -1.
    template <class Body>
    int onDevice(Body body) const
    {
        fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            alarm(60); // a device that hangs is not usable
            setenv("KV_SIM_DEVICE", device_.c_str(), 1);
            _exit(kv_sim_open() == 0 ? body() : 99);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string folder_, device_, script_;
};

void kill(pid_t process)
{
    ::kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

// Whether a process goes on, or has reached its end.
bool goesOn(pid_t process)
{
    const uint64_t from = kv_sim_journal_last();
    for (const auto end = steady_clock::now() + 30s; steady_clock::now() < end;) {
        kvSimCall call;
        const uint64_t last = kv_sim_journal_last();
        for (uint64_t n = last; n > from && last - n < 1000; --n)
            if (kv_sim_journal_get(n, &call) == 0 && call.process == static_cast<uint32_t>(process))
                return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

enum Wholeness { WHOLE, TORN_PORT, TORN_THRESHOLDS, TORN_ALARMS, NOT_USABLE };

int wholeness()
{
    vexoResult result;
    for (uint32_t port = 1; port <= PORTS_USED; ++port) {
        vexoPdhParamsOut params;
        vexo_cmi_pdh_params_get(&params, port, &result);
        const bool delivered = params.cableLength == 133 && params.syncParam == 0;
        if (result.rc != VEXO_RC_OK)
            return NOT_USABLE;
        if (!delivered &&
            (params.cableLength != params.syncParam || params.syncParam != params.auxParam))
            return TORN_PORT;
    }
    unsigned first, second;
    vexo_cmi_sys_lops_get(&first, &second, &result);
    if (result.rc != VEXO_RC_OK)
        return NOT_USABLE;
    if (first != second && !(first == 10 && second == 20))
        return TORN_THRESHOLDS;
    // One call sets the alarms of every port.
    for (uint32_t bits, before = 0, port = 1; port <= KV_SIM_PORTS; ++port, before = bits) {
        vexo_cmi_pdh_alarms_get(&bits, port, &result);
        if (result.rc != VEXO_RC_OK)
            return NOT_USABLE;
        if (port > 1 && bits != before)
            return TORN_ALARMS;
    }
    return WHOLE;
}

bool canSubscribe()
{
    static std::atomic<bool> heard;
    heard = false;
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) { heard = true; });
    for (int left = 10000; left > 0 && !heard; --left) {
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        std::this_thread::sleep_for(1ms);
    }
    vexo_cmi_fini();
    return heard;
}

TEST_F(Kill, LeavesTheDeviceUsableAndNothingHalfDone)
{
    const char *given = getenv("KILL_COUNT");
    const int wanted = given ? atoi(given) : 60;
    chance().start(1, 0);
    int kills = 0;
    while (kills < wanted && !HasFailure()) {
        // At first it is mostly the making of the device that is cut short.
        const bool anew = kills < wanted / 3;
        if (anew)
            std::filesystem::remove(device_);
        const pid_t first = vexoctl({"--script", script_});
        const pid_t second = vexoctl({"--script", script_});
        const pid_t listener = vexoctl({"watch"});
        std::this_thread::sleep_for(microseconds{chance().below(anew ? 30000 : 100000)});
        kill(first);
        const bool over = waitpid(second, nullptr, WNOHANG) == second;
        EXPECT_EQ(onDevice([=] { return over || goesOn(second) ? 0 : 1; }), 0)
            << "the other process does not go on";
        kill(listener);
        if (!over)
            kill(second);
        kills += 3;
        EXPECT_EQ(onDevice(wholeness), WHOLE) << "after " << kills << " kills";
        if (kills % 30 == 0) {
            EXPECT_EQ(onDevice([] { return canSubscribe() ? 0 : 1; }), 0) << "no event is heard";
        }
    }
    printf("%d kills\n", kills);
    EXPECT_EQ(onDevice([] { return kv_sim_journal_last() > 1000 ? 0 : 1; }), 0)
        << "the kills came too soon";
}

} // namespace
