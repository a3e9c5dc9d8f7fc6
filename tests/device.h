// A device with its factory defaults for each test, and its journal.
#ifndef TESTS_DEVICE_H
#define TESTS_DEVICE_H

#include <kv_common.h>
#include <kv_config.h>
#include <kv_pmom.h>
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <dlfcn.h>

class Device : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(kv_sim_reset(), 0); }

    // Starts a new list of calls().
    void mark() { marked_ = kv_sim_journal_last(); }

    // The number of the journal's latest call before that.
    uint64_t marked() const { return marked_; }

    // The platform's functions called since mark(), but for those that fetch texts or log.
    std::vector<std::string> calls() const
    {
        std::vector<std::string> names;
        for (const kvSimCall &call : entries())
            names.emplace_back(call.function);
        return names;
    }

    std::vector<kvSimCall> entries() const
    {
        std::vector<kvSimCall> found;
        kvSimCall call;
        for (uint64_t n = marked_ + 1; kv_sim_journal_get(n, &call) == 0; ++n)
            if (strcmp(call.function, "config_get_error_string") != 0 &&
                strcmp(call.function, "kv_rc_to_string") != 0 &&
                strcmp(call.function, "kv_log") != 0)
                found.push_back(call);
        return found;
    }

    // The record that the latest call of a function was given.
    template <class Record>
    Record given(const std::string &function) const
    {
        Record record{};
        bool found = false;
        for (const kvSimCall &call : entries()) {
            if (call.function != function || call.recordSize != sizeof record)
                continue;
            memcpy(&record, call.record, sizeof record);
            found = true;
        }
        EXPECT_TRUE(found) << function << " was not given such a record";
        return record;
    }

    // The log from a record on, each as "level module file function text".
    static std::vector<std::string> logSince(uint64_t number)
    {
        std::vector<std::string> lines;
        kvSimLog record;
        while (kv_sim_log_get(++number, &record) == 0) {
            EXPECT_GT(record.line, 0);
            lines.push_back(std::to_string(record.level) + " " + std::to_string(record.module) +
                            " " + record.file + " " + record.function + " " + record.text);
        }
        return lines;
    }

    // Makes a function fail, or all for which there is a code, for one object or, with 0, for all;
    // `skip` calls pass before.
    static void failing(const char *function, kvRc code, uint32_t skip = 0, uint32_t times = 1,
                        uint32_t object = 0)
    {
        kvSimFault fault{};
        strcpy_n(fault.function, function, sizeof fault.function);
        fault.object = object;
        fault.skip = skip;
        fault.times = times;
        fault.effect = KV_SIM_CODE;
        fault.value = code;
        ASSERT_EQ(kv_sim_fault_add(&fault), 0) << kv_sim_error();
    }

    vexoResult result{};

  private:
    uint64_t marked_ = 0;
};

// A vexoResult in which every byte shows whether it was written.
inline vexoResult unwritten()
{
    vexoResult result;
    memset(&result, 0x5A, sizeof result);
    return result;
}

#define EXPECT_OK(result) EXPECT_EQ((result).rc, VEXO_RC_OK) << (result).message
#define ASSERT_OK(result) ASSERT_EQ((result).rc, VEXO_RC_OK) << (result).message

// The device's function, where a test has its own before it.
#define DEVICES(function)                                                                          \
    [] {                                                                                           \
        static const auto devices =                                                                \
            reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function));                    \
        return devices;                                                                            \
    }()

using Names = std::vector<std::string>;

// What is put into a pseudowire's record for a pseudowire that the device accepts.
inline vexoPweParams newPwe(vexoPweType type, vexoPwePsnType psn = VEXO_PWE_PSN_TYPE_2)
{
    vexoPweParams params{};
    params.pweType = type;
    params.pweAction = VEXO_PWE_ACTION_CREATE;
    params.adminStatus = VEXO_ADMIN_STATUS_1;
    params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
    params.psn.psnType = psn;
    if (type == VEXO_PWE_TYPE_ATM_3 || type == VEXO_PWE_TYPE_ATM_4) {
        params.service.a.atmMode = VEXO_ATM_MODE_1;
        params.service.a.atmType = VEXO_ATM_TYPE_1;
        params.service.a.atmClpMode = VEXO_ATM_CLP_MODE_1;
    }
    return params;
}

inline void createPwe(vexoPweType type, uint32_t pwId)
{
    const vexoPweParams params = newPwe(type);
    vexoResult result;
    vexo_cmi_pwe_params_set(&params, pwId, &result);
    ASSERT_OK(result);
}

inline void createGroup(uint32_t groupId, std::initializer_list<uint32_t> links)
{
    vexoResult result;
    const vexoImaGroupSet group{VEXO_IMA_ACTION_CREATE, 1, 2, 3};
    vexo_cmi_ima_set(&group, groupId, &result);
    ASSERT_OK(result);
    for (uint32_t link : links) {
        vexo_cmi_ima_lnk_add(link, groupId, &result);
        ASSERT_OK(result);
    }
}

#endif
