// The simulated device on files that are no device, or no longer one.
//
// DEVICE_FILE_ROUNDS and DEVICE_FILE_SEED say how long and from which seed; DEVICE_FILE_ROUND
// repeats one round of that seed.
#include "device_use.h"

#include <clock.h>
#include <state.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

using namespace hostile;

constexpr size_t HEAD = sizeof(sim::Head);

uint64_t fromEnvironment(const char *name, uint64_t otherwise)
{
    const char *value = getenv(name);
    return value ? strtoull(value, nullptr, 0) : otherwise;
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
        ASSERT_EQ(makeUsed(path_), 0);
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

TEST_F(DeviceFile, EndsItsCallsThoughTheTimeOfALoadsNextStateRunsOver)
{
    Bytes bytes = sound_;
    auto &device = *reinterpret_cast<sim::State *>(bytes.data());
    device.clock.stopped = 1;
    device.clock.offset = 0 - (device.clock.uptime + sim::SECOND);
    device.upgrade.state = sim::LOAD_FIRST;
    device.upgrade.since = device.clock.uptime;
    write(path_, bytes);
    EXPECT_EQ(inAProcess([&] { return use(path_.c_str(), 1, 0); }), USED);
}

// Whoever writes into the file while others use it can have their calls refused, not more.
TEST_F(DeviceFile, MayBeDamagedWhileItIsUsed)
{
    for (const uint32_t word : {0xFFFFFFFFu, 0x12345678u}) {
        SCOPED_TRACE(testing::Message() << std::hex << word);
        write(path_, sound_);
        const int ending = inAProcess([&] {
            setenv("KV_SIM_DEVICE", path_.c_str(), 1);
            if (kv_sim_open() != 0)
                return REFUSED;
            const pid_t damaging = fork();
            if (damaging == 0) {
                const int file = open(path_.c_str(), O_RDWR | O_CLOEXEC);
                auto *bytes = static_cast<char *>(
                    mmap(nullptr, sound_.size(), PROT_WRITE, MAP_SHARED, file, 0));
                const std::atomic_ref used{
                    *reinterpret_cast<uint32_t *>(bytes + offsetof(sim::State, undo.used))};
                // What stands in the way of most later calls comes last.
                for (int left = 50000000; left > 0; --left)
                    used.store(word);
                for (size_t at = HEAD; at + sizeof word <= sound_.size(); at += sizeof word)
                    memcpy(bytes + at, &word, sizeof word);
                _exit(0);
            }
            int status = 0;
            while (waitpid(damaging, &status, WNOHANG) == 0)
                runEveryOperation();
            runEveryOperation();
            return status == 0 && kv_sim_reset() == 0 ? USED : USELESS;
        });
        EXPECT_EQ(ending, USED);
        EXPECT_EQ(inAProcess([&] { return use(path_.c_str(), 1, 0); }), USED);
    }
}

} // namespace
