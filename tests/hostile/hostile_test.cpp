// The library on a platform that answers anything but what it should.
//
// HOSTILE_ROUNDS and HOSTILE_SEED say how long and from which seed; HOSTILE_ROUND repeats one round
// of that seed.
#include "chance.h"
#include "guarded.h"
#include "hostile.h"

#include <describe.h>
#include <vexo_cmi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <unistd.h>

extern "C" void __sanitizer_set_death_callback(void (*)()) __attribute__((weak));

namespace
{

using hostile::chance;
using hostile::Guarded;

// More than any operation has reason for: the clearing of all IMA groups makes 224.
constexpr uint64_t CALLS_MAX = 300;
constexpr uint64_t CALLBACK_ROUND = 64;

uint64_t fromEnvironment(const char *name, uint64_t otherwise)
{
    const char *value = getenv(name);
    return value ? strtoull(value, nullptr, 0) : otherwise;
}

uint64_t seed, currentRound;

struct Passed {
    const describe::Argument *argument;
    uint8_t *start;
    size_t size;
    std::vector<uint8_t> before;
};

bool isOneOfTheNine(uint32_t rc)
{
    static const std::set<uint32_t> codes{0, 1, 2, 4, 8, 16, 32, 64, 128};
    return codes.contains(rc);
}

size_t sizeOf(const describe::Argument &argument)
{
    constexpr size_t TEXT_READ = 128;
    // A text may end, unterminated, where nothing more of it is read.
    return argument.type->size ? argument.type->size * argument.count : TEXT_READ;
}

class OneCall
{
  public:
    explicit OneCall(const describe::Operation &operation) : operation_{operation}
    {
        const size_t count = operation.arguments.size();
        while (pages().size() < count + 1)
            pages().emplace_back();
        passed_.resize(count);
        for (size_t i = 0; i < count; ++i)
            prepare(passed_[i], operation.arguments[i], pages()[i]);
        withResult_ = !chance().one(8);
        result_ = pages()[count].place(sizeof(vexoResult), chance().one(2));
        memset(result_, UNSEEN, sizeof(vexoResult));
    }

    // Returns what is wrong afterwards; empty: nothing.
    std::string run()
    {
        std::array<void *, 8> storage{};
        for (size_t i = 0; i < passed_.size(); ++i)
            storage[i] = passed_[i].start;
        const uint64_t before = hostile::calls();
        operation_.call(storage.data(),
                        withResult_ ? reinterpret_cast<vexoResult *>(result_) : nullptr);
        if (hostile::calls() - before > CALLS_MAX)
            return "made far too many platform calls";
        for (size_t i = 0; i <= passed_.size(); ++i)
            if (!pages()[i].isRedZoneWhole())
                return "wrote beside " + (i < passed_.size() ? name(i) : "the result");
        for (size_t i = 0; i < passed_.size(); ++i)
            if (passed_[i].argument->direction == describe::Direction::in &&
                memcmp(passed_[i].start, passed_[i].before.data(), passed_[i].size) != 0)
                return "changed its input " + name(i);
        return withResult_ ? objectionToResult() : "";
    }

    bool succeeded() const { return withResult_ && result()->rc == VEXO_RC_OK; }
    bool failed() const { return withResult_ && result()->rc != VEXO_RC_OK; }

  private:
    static constexpr uint8_t UNSEEN = 0xEE;

    static std::deque<Guarded> &pages()
    {
        thread_local std::deque<Guarded> own;
        return own;
    }

    static void prepare(Passed &passed, const describe::Argument &argument, Guarded &page)
    {
        passed.argument = &argument;
        passed.size = sizeOf(argument);
        passed.start = page.place(passed.size, argument.type->size == 0 || chance().one(2));
        chance().fill(passed.start, passed.size);
        if (argument.type->size == 0 && chance().one(2)) {
            passed.start += chance().below(static_cast<uint32_t>(passed.size));
            passed.size = static_cast<size_t>(page.end() - passed.start);
            passed.start[passed.size - 1] = '\0';
        }
        passed.before.assign(passed.start, passed.start + passed.size);
    }

    std::string name(size_t i) const { return passed_[i].argument->name; }
    const vexoResult *result() const { return reinterpret_cast<const vexoResult *>(result_); }

    std::string objectionToResult() const
    {
        if (!isOneOfTheNine(result()->rc))
            return "answered with the code " + std::to_string(result()->rc);
        const auto *message = reinterpret_cast<const uint8_t *>(result()->message);
        const auto isUnseen = [](uint8_t byte) { return byte == UNSEEN; };
        const bool leftAlone = std::all_of(message, message + VEXO_MESSAGE_SIZE, isUnseen);
        if (leftAlone ? failed() : !memchr(message, '\0', VEXO_MESSAGE_SIZE))
            return "left the message without an end";
        return "";
    }

    const describe::Operation &operation_;
    std::vector<Passed> passed_;
    bool withResult_;
    uint8_t *result_;
};

struct Seen {
    std::atomic<bool> success, failure;
};
std::vector<Seen> seen(describe::operations().size());

// What is wrong with what the callbacks were given, and with the operations made in them.
std::atomic<uint32_t> wrongInCallbacks;
std::atomic<uint32_t> callbacks[VEXO_OBJ_TYPE_IMA + 1][2];

std::string runOperation(size_t index)
{
    const describe::Operation &operation = describe::operations()[index];
    OneCall call{operation};
    const std::string wrong = call.run();
    if (call.succeeded())
        seen[index].success = true;
    if (call.failed())
        seen[index].failure = true;
    return wrong.empty() ? "" : operation.name + (" " + wrong);
}

void count(uint32_t type, bool report)
{
    if (type < std::size(callbacks))
        ++callbacks[type][report];
    else
        ++wrongInCallbacks;
    if (!chance().one(32))
        return;
    const auto index = chance().below(static_cast<uint32_t>(describe::operations().size()));
    if (const std::string wrong = runOperation(index); !wrong.empty()) {
        fprintf(stderr, "inside a callback: %s\n", wrong.c_str());
        ++wrongInCallbacks;
    }
}

void onAlarm(vexoAlarmNotification *alarm)
{
    count(alarm->objType, false);
}

void onPm(vexoPmNotification *pm)
{
    if (pm->objType == VEXO_OBJ_TYPE_IMA && pm->ima.group.linkCount > VEXO_IMA_LINK_MAX)
        ++wrongInCallbacks;
    count(pm->objType, true);
}

size_t operationOf(uint64_t round)
{
    return static_cast<size_t>(round % describe::operations().size());
}

std::string callbackRound(uint64_t round)
{
    const bool alarms = !chance().one(4), reports = !chance().one(4);
    if (alarms)
        vexo_cmi_alarm_callback_register(onAlarm);
    if (reports)
        vexo_cmi_pm_callback_register(onPm);
    std::string wrong;
    for (uint32_t left = chance().below(8); left > 0 && wrong.empty(); --left)
        wrong = runOperation(operationOf(round / CALLBACK_ROUND + left));
    if (chance().one(2))
        usleep(chance().below(300));
    if (chance().one(4)) {
        vexo_cmi_alarm_callback_register(chance().one(2) ? onAlarm : nullptr);
        vexo_cmi_pm_callback_register(chance().one(2) ? onPm : nullptr);
    }
    if (chance().one(4)) {
        vexo_cmi_fini();
    } else {
        vexo_cmi_alarm_callback_unregister();
        vexo_cmi_pm_callback_unregister();
    }
    return wrong;
}

constexpr unsigned STUCK_AFTER_SECONDS = 240;

void tellRound()
{
    fprintf(stderr, "hostile: HOSTILE_SEED=%llu HOSTILE_ROUND=%llu\n",
            static_cast<unsigned long long>(seed), static_cast<unsigned long long>(currentRound));
}

void onSignal(int number)
{
    if (number == SIGALRM)
        fprintf(stderr, "hostile: a round without end\n");
    tellRound();
    signal(number == SIGALRM ? SIGABRT : number, SIG_DFL);
    raise(number == SIGALRM ? SIGABRT : number);
}

long entries(const char *folder)
{
    return std::distance(std::filesystem::directory_iterator{folder}, {});
}

class HostilePlatform : public testing::Test
{
  protected:
    void SetUp() override
    {
        ASSERT_TRUE(hostile::hasTheClock());
        seed = fromEnvironment("HOSTILE_SEED", 20210611);
        for (int number : {SIGABRT, SIGALRM})
            signal(number, onSignal);
        if (__sanitizer_set_death_callback) {
            __sanitizer_set_death_callback(tellRound);
        } else {
            signal(SIGSEGV, onSignal);
            signal(SIGBUS, onSignal);
        }
        alarm(STUCK_AFTER_SECONDS);
    }

    void TearDown() override
    {
        alarm(0);
        EXPECT_EQ(wrongInCallbacks, 0u);
        EXPECT_EQ(hostile::complaints, 0u) << hostile::complaint;
    }
};

// A sanitizer's own thread comes with the first.
const bool firstThread = (std::thread{[] {}}.join(), true);

TEST_F(HostilePlatform, LeavesEveryOperationAndCallbackWithinBoundsAndCodes)
{
    const uint64_t only = fromEnvironment("HOSTILE_ROUND", ~0ull);
    const uint64_t rounds = fromEnvironment("HOSTILE_ROUNDS", 20000);
    printf("seed %llu\n", static_cast<unsigned long long>(seed));
    const long descriptorsBefore = entries("/proc/self/fd");
    const long threadsBefore = entries("/proc/self/task");

    for (uint64_t round = only == ~0ull ? 0 : only; round < rounds; ++round) {
        currentRound = round;
        hostile::start(seed, round);
        const std::string wrong =
            round % CALLBACK_ROUND == 0 ? callbackRound(round) : runOperation(operationOf(round));
        if (!wrong.empty()) {
            tellRound();
            FAIL() << wrong;
        }
        if (only != ~0ull)
            return;
        if (round % 1000 == 0)
            alarm(STUCK_AFTER_SECONDS);
    }

    EXPECT_EQ(entries("/proc/self/fd"), descriptorsBefore);
    EXPECT_EQ(entries("/proc/self/task"), threadsBefore);
    // It was not for want of calls that nothing happened.
    const std::set<std::string> cannotFail{"vexo_cmi_misc_dbg_mode_set", "vexo_cmi_misc_log_reset"};
    const std::set<std::string> seldomFail{"vexo_cmi_sys_kato_send"};
    const auto operations = describe::operations();
    for (size_t i = 0; i < operations.size(); ++i) {
        const std::string name = operations[i].name;
        EXPECT_TRUE(seen[i].success) << name << " never succeeded";
        if (!seldomFail.contains(name)) {
            EXPECT_EQ(seen[i].failure, !cannotFail.contains(name)) << name << " and failure";
        }
    }
    for (vexoObjType type :
         {VEXO_OBJ_TYPE_SYSTEM, VEXO_OBJ_TYPE_PDH, VEXO_OBJ_TYPE_PWE, VEXO_OBJ_TYPE_IMA}) {
        EXPECT_GT(callbacks[type][0], 0u) << "no alarm of type " << type;
        EXPECT_EQ(callbacks[type][1] > 0, type != VEXO_OBJ_TYPE_SYSTEM) << "reports of " << type;
    }
}

TEST_F(HostilePlatform, EndsAReportOfCountsWithoutBound)
{
    const std::atomic<uint32_t> &groups = callbacks[VEXO_OBJ_TYPE_IMA][1];
    const uint32_t before = groups;
    hostile::willing = true;
    hostile::objects = 0xFFFFFFFF;
    hostile::start(seed, 0);
    vexo_cmi_pm_callback_register(onPm);
    vexo_cmi_pm_callback_unregister();
    hostile::willing = false;
    hostile::objects = 0;
    EXPECT_EQ(groups - before, 0xFFFFu);
}

} // namespace
