// Recordings of agents: this program, run again with the recorder before it.
#include "device.h"

#include <describe.h>
#include <platform.h>
#include <recording.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

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

const std::map<std::string, std::function<void()>> AGENTS = {{"calls", callAll}};

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

    // Runs an agent in the folder, recorded or as `start` does it; its exit status.
    int run(
        const std::string &agent, const std::function<void()> &prepare = [] {})
    {
        const pid_t child = fork();
        if (child == 0) {
            std::filesystem::current_path(folder_);
            setenv("VEXO_TRACE", "vexo.trace", 1);
            setenv("LD_PRELOAD", RECORDER, 1);
            prepare();
            execl("/proc/self/exe", "trace_test", "agent", agent.c_str(), nullptr);
            _exit(127);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
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
