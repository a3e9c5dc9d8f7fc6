// Recordings of agents: this program, run again with the recorder before it.
#include "device.h"

#include <describe.h>
#include <platform.h>
#include <recording.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using trace::Json;
using trace::Recording;

std::string hexadecimal(const uint8_t *bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

std::string hexadecimal(const std::vector<uint8_t> &bytes)
{
    return hexadecimal(bytes.data(), bytes.size());
}

// ---- Agents ----

struct Given {
    const describe::Argument &row;
    alignas(8) uint8_t bytes[4096];

    size_t size() const { return row.type->size * row.count; }
    bool isPointer() const
    {
        return row.direction == describe::Direction::out ||
               row.type->kind == describe::Kind::record || row.type->kind == describe::Kind::mac ||
               row.type->kind == describe::Kind::text;
    }

    // Numbers that most operations accept, and records of bytes that tell where they are.
    void fill()
    {
        const uint32_t one = 1;
        for (size_t i = 0; i < sizeof bytes; ++i)
            bytes[i] = static_cast<uint8_t>(i % 7 == 0 ? 0 : i);
        if (isPointer())
            bytes[100] = 0; // where a text ends
        else
            memcpy(bytes, &one, sizeof one);
    }
};

// Every operation once, and what it was given and gave, by itself and by the device's journal.
void callAll()
{
    Json all = Json::array();
    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    createGroup(1, {1, 2});
    for (const describe::Operation &operation : describe::operations()) {
        std::deque<Given> given;
        std::vector<void *> places;
        for (const describe::Argument &row : operation.arguments) {
            given.push_back({row, {}});
            given.back().fill();
            places.push_back(given.back().bytes);
        }
        Json one{{"name", operation.name}, {"in", Json::array()}, {"out", Json::array()}};
        const auto note = [&](const char *when) {
            for (const Given &argument : given)
                one[when].push_back(hexadecimal(argument.bytes, sizeof argument.bytes));
        };
        note("in");
        uint64_t number = kv_sim_journal_last();
        vexoResult result{};
        operation.call(places.data(), &result);
        note("out");
        one["code"] = result.rc;
        one["message"] = result.message;
        kvSimCall call;
        one["calls"] = Json::array();
        while (kv_sim_journal_get(++number, &call) == 0) {
            Json numbers = Json::array();
            for (uint32_t i = 0; i < call.argCount; ++i)
                numbers.push_back(call.args[i]);
            one["calls"].push_back({{"name", call.function},
                                    {"code", call.code},
                                    {"numbers", numbers},
                                    {"record", hexadecimal(call.record, call.recordSize)}});
        }
        all.push_back(one);
    }
    std::ofstream{"called.json"} << all;
}

// An operation that changes nothing, by whose number it is known again.
void ask(uint32_t number)
{
    vexoResult result;
    vexoPdhFrameMode mode;
    vexo_cmi_pdh_frame_get(&mode, number, &result);
}

// How far it has come is in a file of its own when it is killed.
void askForEver()
{
    const int descriptor = open("asked", O_RDWR | O_CREAT, 0600);
    if (ftruncate(descriptor, sizeof(uint32_t)) != 0)
        exit(1);
    auto *asked = static_cast<std::atomic<uint32_t> *>(
        mmap(nullptr, sizeof(uint32_t), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
    for (uint32_t number = 1;; ++number) {
        ask(number);
        *asked = number;
    }
}

constexpr uint32_t THREADS = 8, ASKED = 5000;

void askInThreads()
{
    // One after the other: their room is used again.
    for (uint32_t i = 0; i < 100; ++i)
        std::thread{ask, i + 1}.join();
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < THREADS; ++i)
        threads.emplace_back([=] {
            for (uint32_t number = 1; number <= ASKED; ++number)
                ask(i * ASKED + number);
        });
    for (std::thread &thread : threads)
        thread.join();
}

void hang()
{
    kvSimFault fault{};
    strcpy_n(fault.function, "config_get_pdh_params", sizeof fault.function);
    fault.effect = KV_SIM_HANG;
    kv_sim_fault_add(&fault);
    ask(7);
}

// In the child, in what the child becomes, and in what is started.
void multiply()
{
    ask(1);
    if (const pid_t child = fork()) {
        waitpid(child, nullptr, 0);
        ask(2);
        return;
    }
    ask(3);
    execl("/proc/self/exe", "trace_test", "agent", "asks", nullptr);
}

// A process that shows its title where its environment was, and goes elsewhere.
void overwrite()
{
    for (char **variable = environ; *variable; ++variable)
        memset(*variable, 'x', strlen(*variable));
    clearenv();
    if (chdir("/") == 0)
        ask(1);
}

// Stops itself where its parent is to do something.
void askBetweenStops()
{
    for (uint32_t number = 1; number <= 3; ++number) {
        ask(number);
        raise(SIGSTOP);
    }
}

// With the addresses in numbers and texts, each twice.
const uint8_t MAC[6] = {0x02, 0xAB, 0xCD, 0xEF, 0x12, 0x34};
constexpr uint32_t IP = 0xC0A8171B;

void tellAddresses()
{
    for (int i = 0; i < 2; ++i) {
        vexoResult result;
        vexo_cmi_sys_src_mac_set(MAC, &result);
        vexo_cmi_sys_src_ip_set(IP, &result);
        vexo_cmi_misc_dbg_init("from 02:ab:cd:ef:12:34, 192.168.23.27", &result);
    }
}

std::atomic<int> alarms;

void takeAlarms()
{
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *) { ask(++alarms == 1 ? 1 : 2); });
    uint32_t waiting = 0;
    uint64_t lost;
    for (kvSimSubscription one; kv_sim_subscription_get(0, &one) != 0;)
        usleep(1000);
    kv_sim_alarm_send(KV_SIM_PDH, 3, 5, 1);
    kv_sim_alarm_send(KV_SIM_LINK, 9, 5, 1);
    do
        kv_sim_pending(&waiting, &lost);
    while (waiting > 0 && usleep(1000) == 0);
    vexo_cmi_fini();
}

// Which function is found by one who asks for the next one than his own: not the C library's.
void askTheLoader()
{
    if (dlsym(RTLD_NEXT, "dlsym") == dlsym(dlopen("libc.so.6", RTLD_NOW), "dlsym"))
        exit(1);
}

const std::map<std::string, std::function<void()>> AGENTS = {
    {"asks", [] { ask(4); }},
    {"asks for ever", askForEver},
    {"asks in threads", askInThreads},
    {"asks between stops", askBetweenStops},
    {"asks the loader", askTheLoader},
    {"calls", callAll},
    {"hangs", hang},
    {"multiplies", multiply},
    {"overwrites its environment", overwrite},
    {"takes alarms", takeAlarms},
    {"tells addresses", tellAddresses},
};

// ---- Recordings of them ----

class Trace : public testing::Test
{
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/trace_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string file(const std::string &name = "vexo.trace") const { return folder_ / name; }

    // Starts an agent in the folder, with the recorder.
    pid_t start(
        const std::string &agent, const std::function<void()> &prepare = [] {})
    {
        const pid_t child = fork();
        if (child == 0) {
            std::filesystem::current_path(folder_);
            setenv("VEXO_TRACE", "vexo.trace", 1);
            setenv("VEXO_TRACE_SIZE", "1048576", 1);
            setenv("LD_PRELOAD", RECORDER, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
            prepare();
            execl("/proc/self/exe", "trace_test", "agent", agent.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }

    // Its exit status, or the signal that ended or stopped it, below 0.
    static int await(pid_t child)
    {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
        if (WIFSTOPPED(status))
            return -WSTOPSIG(status);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    int run(
        const std::string &agent, const std::function<void()> &prepare = [] {})
    {
        return await(start(agent, prepare));
    }

    // The numbers that were asked, by ask().
    static std::vector<uint64_t> asked(const Recording &recording)
    {
        std::vector<uint64_t> numbers;
        for (const trace::Call &call : recording.calls())
            if (recording.functionOf(call).name == "vexo_cmi_pdh_frame_get" && call.enter)
                numbers.push_back(recording.content(call).arguments[1].number);
        return numbers;
    }

    std::string bytesOf(const std::string &name) const
    {
        std::ifstream stream{file(name), std::ios::binary};
        return {std::istreambuf_iterator<char>{stream}, {}};
    }

    Json read(const std::string &name) const
    {
        std::ifstream stream{file(name)};
        return Json::parse(stream);
    }

    std::filesystem::path folder_;
};

TEST_F(Trace, HasWhatEveryOperationAndCallWasGivenAndGave)
{
    ASSERT_EQ(run("calls"), 0);
    const Json called = read("called.json");
    const Recording recording{file()};
    std::vector<uint32_t> operations;
    for (const uint32_t root : recording.roots()) {
        const trace::Call &call = recording.calls()[root];
        if (recording.functionOf(call).layer == trace::Layer::operation)
            operations.push_back(root);
    }
    ASSERT_GE(operations.size(), called.size());
    operations.erase(operations.begin(), operations.end() - static_cast<int>(called.size()));
    unsigned succeeded = 0;
    for (size_t n = 0; n < called.size(); ++n) {
        const Json &expected = called[n];
        SCOPED_TRACE(expected["name"].get<std::string>());
        const trace::Call &call = recording.calls()[operations[n]];
        const trace::Function &function = recording.functionOf(call);
        const trace::Content content = recording.content(call);
        EXPECT_EQ(function.name, expected["name"]);
        EXPECT_EQ(content.code, expected["code"].get<uint32_t>());
        EXPECT_EQ(content.text.value_or(""), expected["message"].get<std::string>());
        EXPECT_LE(call.begin, call.end);
        const bool success = expected["code"] == 0;
        succeeded += success;
        for (size_t i = 0; i < function.arguments.size(); ++i) {
            SCOPED_TRACE(function.arguments[i].name);
            const trace::Argument &argument = function.arguments[i];
            const trace::Value &value = content.arguments[i];
            const std::string bytes = expected[argument.output ? "out" : "in"][i];
            EXPECT_EQ(value.isThere, !argument.output || success);
            if (!value.isThere)
                continue;
            if (argument.pointer && argument.type->size > 0) {
                EXPECT_EQ(hexadecimal(value.bytes), bytes.substr(0, 2 * value.bytes.size()));
            } else if (argument.pointer) {
                EXPECT_EQ(value.text.size(), 0U) << "the first byte is 0";
            } else {
                EXPECT_EQ(value.number, 1U);
            }
        }
        uint32_t within = recording.firstWithin(operations[n]);
        for (const Json &made : expected["calls"]) {
            SCOPED_TRACE(made["name"].get<std::string>());
            ASSERT_NE(within, trace::NONE);
            const trace::Call &inner = recording.calls()[within];
            const trace::Content innerContent = recording.content(inner);
            EXPECT_EQ(recording.functionOf(inner).name, made["name"]);
            Json numbers = Json::array();
            std::string record;
            for (size_t i = 0; i < innerContent.arguments.size(); ++i) {
                const trace::Argument &argument = recording.functionOf(inner).arguments[i];
                if (argument.type && !argument.pointer)
                    numbers.push_back(innerContent.arguments[i].number);
                else if (argument.type && !argument.output)
                    record = hexadecimal(innerContent.arguments[i].bytes);
            }
            EXPECT_EQ(numbers, made["numbers"]);
            EXPECT_EQ(innerContent.code.value_or(0), made["code"].get<uint32_t>());
            EXPECT_EQ(record, made["name"] == "kv_log" ? "" : made["record"]);
            within = inner.next;
        }
        EXPECT_EQ(within, trace::NONE);
    }
    EXPECT_GT(succeeded, called.size() / 2);
    EXPECT_EQ(recording.damagedBlocks() + recording.unknownEvents(), 0U);
    EXPECT_EQ(recording.head().lostCalls, 0U);
}

using Numbers = std::vector<uint64_t>;

TEST_F(Trace, HasAllButWhatWasBeingWrittenWhenTheProcessWasKilled)
{
    for (int i = 0; i < 5; ++i) {
        const pid_t child = start("asks for ever");
        const auto count = [&]() -> uint32_t {
            const std::string bytes = bytesOf("asked");
            uint32_t number = 0;
            if (bytes.size() == sizeof number)
                memcpy(&number, bytes.data(), sizeof number);
            return number;
        };
        const uint32_t enough = 1000U << i;
        while (count() < enough)
            usleep(100);
        ASSERT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(await(child), -SIGKILL);
        const uint32_t last = count();
        std::filesystem::remove(file("asked"));
        const Recording recording{file()};
        EXPECT_FALSE(recording.isAlive());
        EXPECT_FALSE(recording.has(trace::ENDED));
        EXPECT_EQ(recording.damagedBlocks() + recording.unknownEvents(), 0U);
        const Numbers numbers = asked(recording);
        ASSERT_FALSE(numbers.empty());
        EXPECT_LE(last, numbers.back());
        EXPECT_GE(last + 1, numbers.back());
        for (size_t n = 1; n < numbers.size(); ++n)
            ASSERT_EQ(numbers[n], numbers[n - 1] + 1);
    }
}

TEST_F(Trace, ThatIsFullHasTheLatestCallsOfEachThreadAndSaysHowManyAreGone)
{
    ASSERT_EQ(run("asks in threads"), 0);
    const Recording recording{file()};
    EXPECT_GT(recording.head().droppedEvents, 2 * THREADS * ASKED);
    EXPECT_EQ(recording.head().lostCalls, 0U);
    EXPECT_EQ(recording.damagedBlocks() + recording.unknownEvents(), 0U);
    EXPECT_LE(recording.head().size, 1048576U);
    std::map<uint32_t, Numbers> byThread;
    for (const trace::Call &call : recording.calls())
        if (recording.functionOf(call).layer == trace::Layer::operation && call.enter)
            byThread[call.thread].push_back(recording.content(call).arguments[1].number);
    ASSERT_FALSE(byThread.empty());
    uint64_t latest = 0;
    for (const auto &[thread, numbers] : byThread) {
        latest += numbers.back() % ASKED == 0;
        for (size_t n = 1; n < numbers.size(); ++n)
            ASSERT_EQ(numbers[n], numbers[n - 1] + 1);
    }
    EXPECT_EQ(latest, byThread.size());
}

TEST_F(Trace, NamesWhatIsStillRunningWithItsArgumentsAndThatOfAKilledProcessIsNot)
{
    const pid_t child = start("hangs");
    std::unique_ptr<Recording> recording;
    const auto isThere = [&] {
        try {
            recording = std::make_unique<Recording>(file());
            return recording->calls().size() == 2;
        } catch (const trace::FileError &) {
            return false;
        }
    };
    while (!isThere())
        usleep(1000);
    for (const trace::Call &call : recording->calls()) {
        EXPECT_TRUE(call.isRunning(*recording));
        EXPECT_EQ(recording->content(call).arguments.back().number, 7U);
    }
    EXPECT_TRUE(recording->isAlive());
    kill(child, SIGKILL);
    EXPECT_EQ(await(child), -SIGKILL);
    const Recording dead{file()};
    EXPECT_FALSE(dead.calls()[0].isRunning(dead));
    EXPECT_EQ(dead.calls()[0].end, 0U);
}

TEST_F(Trace, OfEachProcessThatIsForkedOrStartedIsAFileOfItsOwn)
{
    ASSERT_EQ(run("multiplies"), 0);
    std::map<std::string, Numbers> found;
    for (const auto &entry : std::filesystem::directory_iterator{folder_}) {
        const Recording recording{entry.path()};
        for (const uint64_t number : asked(recording))
            found[entry.path().filename().string().substr(0, 11)].push_back(number);
        EXPECT_EQ(std::filesystem::status(entry.path()).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
    std::ranges::sort(found["vexo.trace."]);
    EXPECT_EQ(found,
              (std::map<std::string, Numbers>{{"vexo.trace", {1, 2}}, {"vexo.trace.", {3, 4}}}));
}

TEST_F(Trace, OfAnEarlierRunMakesRoomAndNoOtherFileDoes)
{
    ASSERT_EQ(run("asks"), 0);
    ASSERT_EQ(run("overwrites its environment"), 0);
    EXPECT_EQ(asked(Recording{file()}), Numbers{1}) << "of the second, whose environment is gone";
    std::ofstream{file()} << "a letter to my mother";
    ASSERT_EQ(run("asks"), 0);
    EXPECT_EQ(bytesOf("vexo.trace"), "a letter to my mother");
    EXPECT_THROW(Recording{file()}, trace::FileError);
}

TEST_F(Trace, IsSwitchedOffAndOnInARunningProcess)
{
    const pid_t child = start("asks between stops");
    ASSERT_EQ(await(child), -SIGSTOP);
    trace::switchRecording(file(), false);
    kill(child, SIGCONT);
    ASSERT_EQ(await(child), -SIGSTOP);
    EXPECT_EQ(asked(Recording{file()}), Numbers{1});
    trace::switchRecording(file(), true);
    kill(child, SIGCONT);
    ASSERT_EQ(await(child), -SIGSTOP);
    EXPECT_EQ(asked(Recording{file()}), (Numbers{1, 3}));
    kill(child, SIGCONT);
    EXPECT_EQ(await(child), 0);
}

TEST_F(Trace, OnAFullDiskIsSmallerOrEmptyAndSaysSoButTheAgentIsNotDisturbed)
{
    for (const rlim_t most : {3U << 20, 100000U, 4096U, 100U}) {
        SCOPED_TRACE(most);
        const auto limit = [=] {
            const rlimit sizes{most, most};
            setenv("VEXO_TRACE_SIZE", "8388608", 1);
            setrlimit(RLIMIT_FSIZE, &sizes);
        };
        ASSERT_EQ(run("asks", limit), 0);
        EXPECT_LE(std::filesystem::file_size(file()), most);
        if (most >= 4096) {
            const Recording recording{file()};
            EXPECT_TRUE(recording.has(trace::DISK_FULL));
            EXPECT_EQ(asked(recording), most > trace::LEAST_SIZE ? Numbers{4} : Numbers{});
        }
        std::filesystem::remove(file());
    }
}

TEST_F(Trace, RedactedHasNoAddressButEqualStandInsForEqualOnes)
{
    const std::string mac{reinterpret_cast<const char *>(MAC), sizeof MAC};
    const std::string ip{reinterpret_cast<const char *>(&IP), sizeof IP};
    const auto has = [&](const std::string &bytes) {
        const std::string all = bytesOf("vexo.trace");
        return all.find(bytes) != std::string::npos;
    };
    ASSERT_EQ(run("tells addresses"), 0);
    EXPECT_TRUE(has(mac) && has(ip) && has("02:ab:cd:ef:12:34") && has("192.168.23.27"));
    ASSERT_EQ(run("tells addresses", [] { setenv("VEXO_TRACE_REDACT", "1", 1); }), 0);
    EXPECT_FALSE(has(mac) || has(ip) || has("02:ab:cd:ef:12:34") || has("192.168.23.27"));
    const Recording recording{file()};
    EXPECT_TRUE(recording.has(trace::REDACTED));
    std::map<std::string, std::set<std::string>> given;
    for (const trace::Call &call : recording.calls()) {
        const trace::Function &function = recording.functionOf(call);
        if (call.parent != trace::NONE)
            continue;
        given[function.name].insert(
            toJson(function.arguments[0], recording.content(call).arguments[0]).dump());
    }
    using Stands = std::set<std::string>;
    EXPECT_EQ(given["vexo_cmi_sys_src_mac_set"], Stands{"\"02:00:00:00:00:01\""});
    EXPECT_EQ(given["vexo_cmi_sys_src_ip_set"], Stands{std::to_string(0x0A000001)});
    EXPECT_EQ(given["vexo_cmi_misc_dbg_init"], Stands{"\"from 02:00:00:00:00:01, 10.0.0.1\""});
}

TEST_F(Trace, HasTheDevicesFileAsItWasBefore)
{
    const auto withSnapshot = [&] {
        setenv("KV_SIM_DEVICE", "device", 1);
        setenv("VEXO_TRACE_SNAPSHOT", "1", 1);
    };
    ASSERT_EQ(run("tells addresses", withSnapshot), 0);
    EXPECT_TRUE(Recording{file()}.has(trace::NO_SNAPSHOT)) << "the device is new";
    const std::string before = bytesOf("device");
    ASSERT_EQ(run("asks", withSnapshot), 0);
    const Recording recording{file()};
    EXPECT_FALSE(recording.has(trace::NO_SNAPSHOT));
    EXPECT_EQ(asked(recording), Numbers{4});
    const auto snapshot = recording.snapshot();
    EXPECT_TRUE(before == std::string(snapshot.begin(), snapshot.end()));
}

// Callbacks with what they were given, and the operations within them, each with all around it.
Names callbacksOf(const Recording &recording)
{
    std::vector<std::string> lines;
    const std::function<void(uint32_t, std::string)> list = [&](uint32_t place, std::string path) {
        const trace::Call &call = recording.calls()[place];
        const trace::Function &function = recording.functionOf(call);
        path += std::string{function.shortName()};
        if (function.layer == trace::Layer::callback)
            lines.push_back(
                path + toJson(function.arguments[0], recording.content(call).arguments[0]).dump());
        else if (function.name == "vexo_cmi_pdh_frame_get")
            lines.push_back(path);
        for (uint32_t i = recording.firstWithin(place); i != trace::NONE;
             i = recording.calls()[i].next)
            list(i, path + " ");
    };
    for (const uint32_t root : recording.roots())
        list(root, "");
    return lines;
}

// Those of the agent that takes alarms.
void expectAlarms(const Recording &recording)
{
    const std::string way =
        "alarm_process_notification alarm_notification_handler vexoAlarmCallback";
    EXPECT_EQ(callbacksOf(recording),
              (Names{way + R"({"objType":"pdh","object":{"objId":3,"status":5,"delta":1}})",
                     way + " pdh_frame_get",
                     way + R"({"objType":"ima","ima":{"imaType":"link","groupId":9,"linkId":9,)"
                           R"("status":5,"delta":1}})",
                     way + " pdh_frame_get"}));
}

TEST_F(Trace, HasCallbacksWithWhatTheyWereGivenAndWhatTheyCall)
{
    ASSERT_EQ(run("takes alarms"), 0);
    expectAlarms(Recording{file()});
}

// It was recorded by the first vexotrace, and stays as it is.
TEST_F(Trace, OfEveryVersionIsRead)
{
    expectAlarms(Recording{RECORDINGS "/1.trace"});
}

// Of a later version's kinds; the calls around them stay.
TEST_F(Trace, ThatHasEventsWhichAreNotKnownIsReadWithoutThemAndSaysHowMany)
{
    const Recording whole{RECORDINGS "/agent.trace"};
    std::ifstream stream{RECORDINGS "/agent.trace", std::ios::binary};
    std::string bytes{std::istreambuf_iterator<char>{stream}, {}};
    const auto at = [&](size_t place) {
        return reinterpret_cast<trace::Event *>(bytes.data() + place);
    };
    size_t changed = 0;
    const auto begin = static_cast<size_t>(whole.head().blocksOffset + sizeof(trace::Block));
    for (size_t place = begin, n = 0; at(place)->size > 0; place += at(place)->size, ++n) {
        if (n % 5 != 3)
            continue;
        if (changed++ % 2 == 0)
            at(place)->kind = trace::EventKind{9};
        else
            at(place)->function = 9999;
    }
    ASSERT_GT(changed, 2U);
    std::ofstream{file("later"), std::ios::binary} << bytes;
    const Recording recording{file("later")};
    EXPECT_EQ(recording.unknownEvents(), changed);
    EXPECT_EQ(recording.events(), whole.events() - changed);
    EXPECT_EQ(recording.damagedBlocks(), 0U);
    EXPECT_EQ(recording.threads().size(), whole.threads().size());
    EXPECT_TRUE(std::ranges::is_sorted(whole.roots(), {},
                                       [&](uint32_t root) { return whole.calls()[root].clock(); }));
    const auto lacksItsEnd = [](const trace::Call &call) { return call.end == 0; };
    EXPECT_TRUE(std::ranges::none_of(whole.calls(), lacksItsEnd));
    EXPECT_TRUE(std::ranges::any_of(recording.calls(), lacksItsEnd));
    EXPECT_TRUE(std::ranges::none_of(recording.calls(), [&](const trace::Call &call) {
        return call.isOpen(recording);
    })) << "their threads have gone on";
}

TEST_F(Trace, ThatIsDamagedOrOfAnotherMachineSaysWhereAndKeepsTheRest)
{
    const Recording whole{RECORDINGS "/agent.trace"};
    std::ifstream stream{RECORDINGS "/agent.trace", std::ios::binary};
    const std::string bytes{std::istreambuf_iterator<char>{stream}, {}};
    const auto block = static_cast<size_t>(whole.head().blocksOffset);
    const size_t event = block + sizeof(trace::Block);
    const auto with = [&](size_t place, uint32_t word) {
        std::string changed = bytes;
        memcpy(changed.data() + place, &word, sizeof word);
        std::ofstream{file("changed"), std::ios::binary} << changed;
        return file("changed");
    };
    const std::pair<size_t, uint32_t> damages[] = {
        {block + offsetof(trace::Block, filled), 1U << 20}, {event, 9}, {event, 60000}};
    for (const auto &[place, word] : damages) {
        const Recording recording{with(place, word)};
        EXPECT_EQ(recording.damagedBlocks(), 1U);
        EXPECT_GT(recording.events(), 0U);
        EXPECT_LT(recording.events(), whole.events());
    }
    const auto isRefused = [](const std::string &name, const std::string &why) {
        try {
            const Recording recording{name};
        } catch (const trace::FileError &error) {
            return std::string{error.what()}.find(why) != std::string::npos;
        }
        return false;
    };
    EXPECT_TRUE(isRefused(with(offsetof(trace::Head, version), 7), "is of version 7"));
    EXPECT_TRUE(isRefused(with(offsetof(trace::Head, byteOrder), 0x04030201), "byte order"));
    EXPECT_TRUE(isRefused(with(offsetof(trace::Head, blockCount), 1U << 30), "does not have"));
    std::ofstream{file("empty")};
    EXPECT_TRUE(isRefused(file("empty"), "is empty"));
}

TEST_F(Trace, DoesNotChangeWhatTheLoaderFindsByItsCaller)
{
    EXPECT_EQ(run("asks the loader"), 0);
}

// Whichever of them is loaded first; the operations are found by dlsym().
TEST_F(Trace, LeavesTheLibraryTheDevicesClockAndRecordsItsCallsToIt)
{
    const auto folderOf = [](auto *function) {
        Dl_info object{};
        EXPECT_TRUE(dladdr(reinterpret_cast<void *>(function), &object));
        return std::filesystem::path{object.dli_fname};
    };
    const auto library = folderOf(vexo_cmi_init);
    const auto folder = folderOf(config_system_tpid_set).parent_path();
    const auto host = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "notify_host";
    // The host gives up its rights.
    std::filesystem::permissions(folder_, std::filesystem::perms::all);
    std::string standIns;
    for (const char *name : {"sim", "alarm", "common", "config", "forker", "pmom", "upgrade"})
        standIns += std::string{":"} + (folder / (std::string{"libkv_"} + name + ".so")).native();
    for (const std::string &preloaded :
         {std::string{RECORDER}, RECORDER + standIns, standIns + ":" RECORDER,
          RECORDER ":" + library.native(), library.native() + ":" RECORDER}) {
        for (const char *order : {"alone", "first", "again"}) {
            // What is preloaded stays.
            if (order == std::string{"again"} && preloaded.find("vexo_cmi") != std::string::npos)
                continue;
            SCOPED_TRACE(preloaded + " " + order);
            const int status = run("", [&] {
                setenv("LD_LIBRARY_PATH", folder.c_str(), 1);
                setenv("LD_PRELOAD", preloaded.c_str(), 1);
                execl(host.c_str(), host.c_str(), library.c_str(), "clock", order, nullptr);
            });
            ASSERT_EQ(status, 0);
            const Recording recording{file()};
            unsigned settings = 0;
            for (const trace::Call &call : recording.calls())
                if (recording.functionOf(call).name == "settimeofday")
                    settings += recording.content(call).code == 0U;
            EXPECT_EQ(settings, 2U);
            std::filesystem::remove(file());
        }
    }
}

// Reading is all that can be asked of what isn't as it was written.
TEST_F(Trace, ThatIsDamagedIsReadAsFarAsItIsWholeOrRefusedInWords)
{
    ASSERT_EQ(run("calls"), 0);
    const std::string whole = bytesOf("vexo.trace");
    std::minstd_rand random{1};
    unsigned refused = 0;
    const auto tryIt = [&](const std::string &bytes) {
        std::ofstream{file("damaged"), std::ios::binary} << bytes;
        try {
            const Recording recording{file("damaged")};
            for (const trace::Call &call : recording.calls()) {
                const trace::Content content = recording.content(call);
                const trace::Function &function = recording.functionOf(call);
                for (size_t i = 0; i < function.arguments.size(); ++i)
                    toJson(function.arguments[i], content.arguments[i],
                           i % 2 == 0 ? trace::Detail::all : trace::Detail::usual);
            }
        } catch (const trace::FileError &error) {
            EXPECT_EQ(std::string{error.what()}.find(file("damaged") + ": "), 0U) << error.what();
            ++refused;
        }
    };
    const auto *head = reinterpret_cast<const trace::Head *>(whole.data());
    const uint64_t used = head->blocksOffset + 3 * head->blockSize;
    const std::pair<uint64_t, uint64_t> parts[] = {
        {0, 150}, {head->descriptionOffset, head->blocksOffset}, {head->blocksOffset, used}};
    for (const auto &[begin, end] : parts) {
        for (int i = 0; i < 40; ++i) {
            std::string damaged = whole;
            for (int n = 0; n < 4; ++n)
                damaged[static_cast<size_t>(begin + random() % (end - begin))] =
                    static_cast<char>(random() >> 8);
            tryIt(damaged);
        }
    }
    for (const size_t size :
         std::initializer_list<size_t>{0, 10, 100, 5000, 60000, whole.size() - 1})
        tryIt(whole.substr(0, size));
    EXPECT_GT(refused, 20U);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && argv[1] == std::string{"agent"}) {
        AGENTS.at(argv[2])();
        return testing::Test::HasFailure();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
