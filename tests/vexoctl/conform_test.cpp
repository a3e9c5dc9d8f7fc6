// A device's differences from the simulated one: those that are planted are told, and no others.
#include "../instead.h"

#include <conform.h>

namespace
{

using vexoctl::Json;
using namespace vexoctl::conformance;

class Conform : public Twisted
{
  protected:
    static Json page(bool writes)
    {
        const auto begin = [](const auto &) {};
        return pageOf(
            ask([](const std::string &) {}, writes ? BeforeWriting{begin} : BeforeWriting{}),
            writes);
    }

    // The questions that were answered otherwise, and how.
    static std::map<std::string, std::string> differing(const Json &page)
    {
        std::map<std::string, std::string> found;
        for (const Json &row : page["answers"])
            if (row.contains("differing"))
                found[row["question"]] =
                    row["result"].get<std::string>() + " " + row["differing"].dump();
        return found;
    }
};

TEST_F(Conform, TellsNoDifferenceOfASimulatedDevice)
{
    for (const bool writes : {false, true}) {
        const Json answers = page(writes);
        EXPECT_TRUE(differing(answers).empty()) << testing::PrintToString(differing(answers));
        EXPECT_GE(answers["questions"], 220);
        EXPECT_EQ(answers["not tried"] == 0, writes);
    }
}

void fault(const char *function, kvSimEffect effect, uint32_t value, uint32_t object = 0,
           const char *where = "", uint32_t equals = 0)
{
    kvSimFault fault{};
    strcpy_n(fault.function, function, sizeof fault.function);
    fault.effect = effect;
    fault.value = value;
    fault.object = object;
    strcpy_n(fault.where[0].name, where, sizeof fault.where[0].name);
    fault.where[0].value = equals;
    ASSERT_NE(kv_sim_fault_arm(&fault), 0u) << kv_sim_error();
}

// The device's own function.
template <auto function, class... Arguments>
kvRc devices(const char *name, Arguments... arguments)
{
    return reinterpret_cast<decltype(function)>(dlsym(RTLD_NEXT, name))(arguments...);
}

#define DEVICES_OWN(function, ...) devices<&function>(#function, __VA_ARGS__)

struct Plant {
    int run; // those of the same are planted together
    const char *name;
    void (*plant)();
    const char *question; // that tells it
    const char *answer;   // a part of it
};

const Plant PLANTS[] = {
    {1, "another make", [] { kv_sim_set("inventory.text1", "VG-8"); },
     "sys inventory get: what does it tell", R"("inventory.text1":["VG-8"])"},
    {1, "another version", [] { kv_sim_set("version.3", "fpga 2"); },
     "sys version get: what does it tell", "fpga 2"},
    {1, "a link of another speed", [] { kv_sim_set("link.speed", "7"); },
     "misc sys_info get: what does it tell", "linkSpeed"},
    {1, "one port refuses", [] { fault("config_get_pdh_lpbk", KV_SIM_CODE, 512, 5); },
     "pdh lpbk get: does it answer", "other refusal {\"\":[\"refused with 32\"]}"},
    {1, "fewer ports",
     [] {
         instead<&config_get_pdh_params> = [](pdhParams *params, uint32_t port) {
             return port > 8 ? kvRc{4} : DEVICES_OWN(config_get_pdh_params, params, port);
         };
     },
     "pdh: how many there are", R"(["8"])"},
    {1, "a getter that refuses", [] { fault("config_get_pwe_if", KV_SIM_CODE, 2); },
     "sys lops get: does it answer", "refused with 2"},
    {1, "another refusal of a number",
     [] {
         instead<&config_get_pdh_admin> = [](adminStatus *status, uint32_t port) {
             const kvRc code = DEVICES_OWN(config_get_pdh_admin, status, port);
             return code == 4 ? kvRc{128} : code;
         };
     },
     "pdh admin get: one that isn't there", "refused with 8"},
    {1, "a number that is refused nowhere",
     [] {
         instead<&config_get_pdh_lpbk> = [](pdhLpbk *loopback, uint32_t port) {
             return DEVICES_OWN(config_get_pdh_lpbk, loopback, port == 0 ? 1 : port);
         };
     },
     "pdh lpbk get: one that isn't there", R"("number 0":["answers"])"},
    {2, "failures without a text", [] { instead<&config_get_error_string> = [] { return ""; }; },
     "pdh frame get: one that isn't there", "without a text"},
    {3, "the text of an earlier failure",
     [] {
         instead<&config_get_error_string> = [] {
             static char text[] = "failure 0";
             text[strlen("failure ")] = static_cast<char>('0' + (text[strlen("failure ")] + 1) % 8);
             return static_cast<const char *>(text);
         };
     },
     "order: is the text of a failure that of the latest", "another text"},
    {2, "a value that the library has no name for",
     [] {
         instead<&config_get_pdh_params> = [](pdhParams *params, uint32_t port) {
             const kvRc code = DEVICES_OWN(config_get_pdh_params, params, port);
             params->frameMode = pdhFrameMode{99};
             return code;
         };
     },
     "pdh frame get: is all of it filled in, known and ended", "mode is 0"},
    {2, "garbage", [] { fault("config_get_pdh_admin", KV_SIM_GARBAGE, 7); },
     "pdh admin get: is all of it filled in, known and ended", "status is 0"},
    {2, "counters of another shape",
     [] {
         instead<&pmom_pdh_pm_stat_get> = [](uint32_t port, pmInterval interval, uint32_t which,
                                             pdhPmStat *stat) {
             const kvRc code = DEVICES_OWN(pmom_pdh_pm_stat_get, port, interval, which, stat);
             stat->layoutType = 2;
             return code;
         };
     },
     "pdh pm get: which shape has it", "none that is known"},
    {2, "a slow call", [] { fault("config_get_system_mode", KV_SIM_DELAY, 150); },
     "sys: does each call return within 0.1 s", R"("sys tdm_mode get":["no"])"},
    {3, "a setting that is not kept", [] { fault("config_set_pdh_lpbk", KV_SIM_NOTHING, 0); },
     "pdh lpbk set: what is set is read back", "2 is read as 1"},
    {3, "a narrower range",
     [] { fault("config_set_pdh_params", KV_SIM_CODE, 2, 0, "params.frameMode", 5); },
     "pdh frame set: what is set is read back", R"({"mode":["5 refused with 2"]})"},
    {3, "a wider range",
     [] {
         instead<&config_set_temperature_thr> = [](const temperatureThr *threshold) {
             const temperatureThr cut{std::min(threshold->first, 150U),
                                      std::min(threshold->second, 150U)};
             return DEVICES_OWN(config_set_temperature_thr, &cut);
         };
     },
     "sys temp set: what is set is read back", "4294967295 is read as something else"},
    {3, "other defaults of a new pseudowire",
     [] {
         instead<&config_get_pw_defaults> = [](pwConfig *config, const pwDefaultsKey *key,
                                               uint32_t pwId) {
             const kvRc code = DEVICES_OWN(config_get_pw_defaults, config, key, pwId);
             config->jitterBufferSize = 777;
             return code;
         };
     },
     "pwe params set: what a new one has, tdm-1", "777"},
    {3, "a pseudowire that stays", [] { fault("config_del_pw", KV_SIM_NOTHING, 0); },
     "pwe params set: is one that was removed gone", R"("tdm-1":["provisioned"])"},
    {3, "events that don't come",
     [] {
         kvSimFault fault{};
         fault.effect = KV_SIM_DROP;
         kv_sim_fault_arm(&fault);
     },
     "events: do they come for what changed", "no event came"},
};

TEST_F(Conform, TellsEachOfTwentyDifferences)
{
    static_assert(std::size(PLANTS) == 20);
    for (const int run : {1, 2, 3}) {
        ASSERT_EQ(kv_sim_reset(), 0);
        for (const Plant &plant : PLANTS)
            if (plant.run == run)
                plant.plant();
        const auto found = differing(page(run == 3));
        insteadOfNothing();
        for (const auto &[ofRun, name, plant, question, answer] : PLANTS) {
            if (ofRun != run)
                continue;
            const auto told = found.find(question);
            if (told == found.end())
                ADD_FAILURE() << name << ": " << testing::PrintToString(found);
            else
                EXPECT_NE(told->second.find(answer), std::string::npos)
                    << name << ": " << told->second;
        }
    }
}

// What it asks of a device in service without being told that it may write.
TEST_F(Conform, CallsNothingThatChangesAnythingUnlessItMayWrite)
{
    mark();
    page(false);
    for (const std::string &call : calls())
        EXPECT_TRUE(call.find("_get") != call.npos && call.find("clear") == call.npos) << call;
}

} // namespace
