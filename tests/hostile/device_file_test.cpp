// The simulated device on files that are no device, or no longer one.
//
// DEVICE_FILE_ROUNDS and DEVICE_FILE_SEED say how long and from which seed; DEVICE_FILE_ROUND
// repeats one round of that seed.
#include "chance.h"

#include <describe.h>
#include <state.h>
#include <vexo_cmi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using hostile::chance;
using Bytes = std::vector<char>;

constexpr size_t HEAD = sizeof(sim::Head);
constexpr unsigned STUCK_AFTER_SECONDS = 60;

uint64_t fromEnvironment(const char *name, uint64_t otherwise)
{
    const char *value = getenv(name);
    return value ? strtoull(value, nullptr, 0) : otherwise;
}

// ---- In the process that uses the file ----

enum Ending { USED = 0, REFUSED = 10, REFUSED_WITHOUT_A_WORD, USELESS };

void runEveryOperation()
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

void readBack()
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

void steer()
{
    constexpr uint32_t TYPES[] = {KV_SIM_SYSTEM, KV_SIM_PDH, KV_SIM_GROUP, KV_SIM_PW, KV_SIM_LINK};
    for (uint32_t type : TYPES)
        for (uint32_t number : {1u, 2u, chance().below(1100)}) {
            kv_sim_alarm_set(type, number, chance().word());
            kv_sim_pm_set(type, number, 1 + chance().below(4), chance().below(20), 1);
            kv_sim_om_set(type, number, chance().below(8), 1);
        }
    for (uint32_t interval = 1; interval <= 3; ++interval) {
        kv_sim_interval_period(interval, 900 * interval);
        kv_sim_interval_end(interval);
    }
    kv_sim_clock_advance(3600 * 1000000ull);
}

Ending use(const char *path, uint64_t seed, uint64_t round)
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

// ---- Beside it ----

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

Bytes contentOf(const std::string &path)
{
    Bytes bytes(static_cast<size_t>(std::filesystem::file_size(path)));
    std::ifstream{path, std::ios::binary}.read(bytes.data(),
                                               static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void write(const std::string &path, const Bytes &bytes)
{
    std::ofstream{path, std::ios::binary}.write(bytes.data(),
                                                static_cast<std::streamsize>(bytes.size()));
}

void randomise(Bytes &bytes, size_t from)
{
    chance().fill(bytes.data() + from, bytes.size() - from);
}

struct Case {
    Bytes bytes;
    bool mustBeRefused;
};

Case makeCase(const Bytes &sound)
{
    Bytes bytes = sound;
    const auto any = [](size_t bound) { return chance().below(static_cast<uint32_t>(bound)); };
    switch (chance().below(9)) {
    case 0: // cut off: not to nothing, nor to a head that has yet to become a device
        bytes.resize(1 + any(bytes.size() - 1));
        if (bytes.size() == HEAD)
            bytes.pop_back();
        return {bytes, true};
    case 1:
        bytes.resize(1 + any(2 * HEAD));
        if (bytes.size() == HEAD)
            bytes.pop_back();
        return {bytes, true};
    case 2:
        bytes.resize(bytes.size() + 1 + any(10000));
        return {bytes, true};
    case 3: { // another version, or another program's file
        const size_t at = chance().one(2) ? offsetof(sim::Head, version) + any(4) : any(HEAD);
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << any(8)));
        return {bytes, true};
    }
    case 4:
        bytes.resize(1 + any(chance().one(2) ? 64 : bytes.size()));
        bytes[0] = static_cast<char>(sound[0] + 1);
        randomise(bytes, 1);
        bytes[0] = static_cast<char>(sound[0] + 1);
        return {bytes, true};
    case 5:
        randomise(bytes, HEAD);
        return {bytes, false};
    case 6: { // torn: the second half of it was never written
        const size_t from = HEAD + any(bytes.size() - HEAD);
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end(), '\0');
        return {bytes, false};
    }
    case 7: { // a change that was not completed, in nobody's order
        uint32_t used = any(chance().one(2) ? 200 : sim::UNDO_SIZE + 1);
        chance().fill(&bytes[offsetof(sim::State, undo.bytes)], used);
        // The last of it tells where how many bytes belong.
        const uint32_t mark[] = {chance().word(), chance().below(100)};
        if (used >= sizeof mark)
            memcpy(&bytes[offsetof(sim::State, undo.bytes) + used - sizeof mark], mark,
                   sizeof mark);
        if (chance().one(8))
            used = chance().word();
        memcpy(&bytes[offsetof(sim::State, undo.used)], &used, sizeof used);
        return {bytes, false};
    }
    default:
        for (uint32_t left = 1 + any(2000); left > 0; --left) {
            const size_t at = HEAD + (any(bytes.size() - HEAD - 4) & ~3u);
            const uint32_t word = chance().word();
            memcpy(&bytes[at], &word, sizeof word);
        }
        return {bytes, false};
    }
}

class DeviceFile : public testing::Test
{
  protected:
    void SetUp() override
    {
        std::string folder = testing::TempDir() + "device-XXXXXX";
        ASSERT_TRUE(mkdtemp(folder.data()));
        folder_ = folder;
        path_ = folder_ + "/device";
        // Used, so that there is something of everything in it.
        ASSERT_EQ(inAProcess([&] {
                      setenv("KV_SIM_DEVICE", path_.c_str(), 1);
                      kv_sim_open();
                      chance().start(1, 0);
                      for (int pass = 0; pass < 50; ++pass)
                          runEveryOperation();
                      steer();
                      return 0;
                  }),
                  0);
        sound_ = contentOf(path_);
        ASSERT_GT(sound_.size(), HEAD);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string folder_, path_;
    Bytes sound_;
};

TEST_F(DeviceFile, IsRefusedAndLeftAsItIsOrUsedSafely)
{
    const uint64_t seed = fromEnvironment("DEVICE_FILE_SEED", 20210611);
    const uint64_t rounds = fromEnvironment("DEVICE_FILE_ROUNDS", 120);
    const uint64_t only = fromEnvironment("DEVICE_FILE_ROUND", ~0ull);
    printf("seed %llu\n", static_cast<unsigned long long>(seed));
    uint64_t refused = 0, used = 0;
    for (uint64_t round = only == ~0ull ? 0 : only; round < std::max(rounds, only + 1); ++round) {
        chance().start(seed, round);
        const Case made = makeCase(sound_);
        write(path_, made.bytes);
        const int ending = inAProcess([&] { return use(path_.c_str(), seed, round); });
        ASSERT_TRUE(ending == USED || ending == REFUSED)
            << "ending " << ending << " in round " << round << " of seed " << seed;
        if (made.mustBeRefused) {
            ASSERT_EQ(ending, REFUSED) << "in round " << round << " of seed " << seed;
        }
        if (ending == REFUSED) {
            ASSERT_EQ(contentOf(path_), made.bytes) << "in round " << round << " of seed " << seed;
        }
        ++(ending == REFUSED ? refused : used);
        if (only != ~0ull)
            return;
    }
    printf("%llu refused, %llu used\n", static_cast<unsigned long long>(refused),
           static_cast<unsigned long long>(used));
    EXPECT_GT(refused, 0u);
    EXPECT_GT(used, 0u);
}

TEST_F(DeviceFile, MustBeARegularFileThatCanBeWritten)
{
    const std::string fifo = folder_ + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string &path : {folder_, fifo, std::string{"/dev/zero"}, folder_ + "/no/file"})
        EXPECT_EQ(inAProcess([&] { return use(path.c_str(), 1, 1); }), REFUSED) << path;
}

} // namespace
