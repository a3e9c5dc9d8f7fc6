// A simulated device in a file, and all that can be done with one, in a process of its own.
#ifndef HOSTILE_DEVICE_USE_H
#define HOSTILE_DEVICE_USE_H

#include "chance.h"

#include <describe.h>
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace hostile
{

using Bytes = std::vector<char>;

constexpr unsigned STUCK_AFTER_SECONDS = 60;

template <class Body>
int inAProcess(Body body)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

inline Bytes contentOf(const std::string &path)
{
    Bytes bytes(static_cast<size_t>(std::filesystem::file_size(path)));
    std::ifstream{path, std::ios::binary}.read(bytes.data(),
                                               static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline void write(const std::string &path, const Bytes &bytes)
{
    std::ofstream{path, std::ios::binary}.write(bytes.data(),
                                                static_cast<std::streamsize>(bytes.size()));
}

enum Ending { USED = 0, REFUSED = 10, REFUSED_WITHOUT_A_WORD, USELESS };

inline void runEveryOperation()
{
    static std::array<uint32_t, 1024> storage[8];
    std::array<void *, 8> arguments{};
    for (const describe::Operation &operation : describe::operations()) {
        for (size_t i = 0; i < operation.arguments.size(); ++i) {
            if (operation.arguments[i].direction == describe::Direction::in)
                for (uint32_t &word : storage[i])
                    word = chance().below(4);
            arguments[i] = storage[i].data();
        }
        vexoResult result;
        operation.call(arguments.data(), &result);
    }
}

inline void readBack()
{
    kvSimFault fault;
    for (unsigned i = 0; kv_sim_fault_get(i, &fault) == 0; ++i) {
    }
    kvSimCall call;
    kvSimLog record;
    for (uint64_t back = 0; back < 2000; ++back) {
        kv_sim_journal_get(kv_sim_journal_last() - back, &call);
        kv_sim_log_get(kv_sim_log_last() - back, &record);
    }
    uint32_t waiting = 0;
    uint64_t lost = 0;
    kv_sim_pending(&waiting, &lost);
}

inline void steer()
{
    constexpr uint32_t TYPES[] = {KV_SIM_SYSTEM, KV_SIM_PDH, KV_SIM_GROUP, KV_SIM_PW, KV_SIM_LINK};
    for (uint32_t type : TYPES)
        for (uint32_t number : {1u, 2u, chance().below(1100)}) {
            kv_sim_alarm_set(type, number, chance().word());
            kv_sim_pm_set(type, number, 1 + chance().below(4), chance().below(20), 1);
            kv_sim_om_set(type, number, chance().below(8), 1);
            const kvSimRate rate{type, number, chance().below(2), chance().below(20), 7, 900, 0};
            kv_sim_rate_set(&rate);
        }
    kv_sim_set("behaviours", chance().below(2) ? "on" : "off");
    kv_sim_set("signal.1", chance().below(2) ? "on" : "off");
    for (uint32_t interval = 1; interval <= 3; ++interval) {
        kv_sim_interval_period(interval, 900 * interval);
        kv_sim_interval_end(interval);
    }
    kv_sim_clock_advance(3600 * 1000000ull);
}

inline Ending use(const char *path, uint64_t seed, uint64_t round)
{
    alarm(STUCK_AFTER_SECONDS);
    setenv("KV_SIM_DEVICE", path, 1);
    chance().start(seed, round);
    if (kv_sim_open() != 0)
        return *kv_sim_error() ? REFUSED : REFUSED_WITHOUT_A_WORD;
    readBack();
    // What hangs or waits by its own orders does so also on a sound device.
    kv_sim_fault_clear();
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) {});
    vexo_cmi_pm_callback_register([](vexoPmNotification *) {});
    for (int pass = 0; pass < 2; ++pass) {
        runEveryOperation();
        steer();
    }
    readBack();
    vexo_cmi_fini();
    vexoPdhParamsOut params;
    vexoResult result{VEXO_RC_GENERAL, ""};
    if (kv_sim_reset() == 0)
        vexo_cmi_pdh_params_get(&params, 1, &result);
    return result.rc == VEXO_RC_OK ? USED : USELESS;
}

// A device in which there is something of everything.
inline int makeUsed(const std::string &path)
{
    return inAProcess([&] {
        setenv("KV_SIM_DEVICE", path.c_str(), 1);
        kv_sim_open();
        chance().start(1, 0);
        for (int pass = 0; pass < 50; ++pass)
            runEveryOperation();
        steer();
        return 0;
    });
}

} // namespace hostile

#endif
