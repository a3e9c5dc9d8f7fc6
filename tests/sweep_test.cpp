// What holds for every operation, over the rows that describe them: a new operation joins by its
// row.
#include "device.h"

#include <describe.h>

#include <fstream>
#include <map>
#include <set>

namespace
{

using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;

constexpr uint8_t UNTOUCHED = 0xFF;
constexpr size_t RED_ZONE = 64;
constexpr kvRc INJECTED = 128;
constexpr vexoRc INJECTED_RC = VEXO_RC_FAILURE_8;

// Values for given arguments where 1 won't do.
const std::map<std::string, std::map<std::string, uint32_t>> PARTICULAR = {
    {"vexo_cmi_sys_tpid_set", {{"tpid", 0x88A8}}},
    {"vexo_cmi_pwe_params_set", {{"pwId", 1}}},
    {"vexo_cmi_pwe_atm_force_ais_set", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atm_force_ais_get", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_set", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_delete", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_get", {{"pwId", 2}}},
    {"vexo_cmi_pwe_om_get", {{"pwId", 2}, {"clear", 1}}},
    {"vexo_cmi_ima_lnk_add", {{"linkId", 9}}},
};

// How many bytes of its outputs an operation may write before a later call fails.
const std::map<std::string, size_t> WRITTEN_EARLY = {
    {"vexo_cmi_pdh_cable_len_get", sizeof(uint32_t)},
    {"vexo_cmi_pdh_pm_get", offsetof(vexoPdhPm, lineCounters)},
    {"vexo_cmi_pwe_params_get", sizeof(vexoPweParamsInfo)},
    {"vexo_cmi_pwe_pm_get", offsetof(vexoPwePm, pweType)},
    {"vexo_cmi_ima_pm_get", sizeof(vexoImaGroupPm)},
    {"vexo_cmi_ima_om_get", sizeof(vexoImaOm)},
    {"vexo_cmi_misc_sys_info_get", offsetof(vexoSysInfo, om)},
};

// Those that succeed whatever the platform answers, and the one that makes its second call all the
// same.
const std::set<std::string> ALWAYS_SUCCEEDING = {"vexo_cmi_misc_log_reset",
                                                 "vexo_cmi_misc_dbg_mode_set"};
const std::string NEVER_STOPPING = "vexo_cmi_misc_tpgm_stat_get";

// The first word that is read back, where it isn't 1.
const std::map<std::string, uint32_t> READ_BACK = {
    {"vexo_cmi_sys_src_mac_get", 2}, // of 02:00:00:00:00:01
    {"vexo_cmi_pwe_dst_mac_get", 2},
    {"vexo_cmi_sys_tpid_get", 0x88A8},
    {"vexo_cmi_sys_temp_get", 41}, // the temperature
};

// Whether a failure carries the platform's text for the code.
bool hasCodeText(const std::string &operation, const std::string &function)
{
    return function.starts_with("pmom_") || function.starts_with("upgrade_") ||
           (operation.starts_with("vexo_cmi_ima_alarms") && function.starts_with("alarm_"));
}

// One call with outputs between red zones.
class Invocation
{
  public:
    explicit Invocation(const Operation &operation) : operation_{operation}
    {
        const auto particular = PARTICULAR.find(operation.name);
        for (const Argument &argument : operation.arguments) {
            std::vector<uint8_t> &bytes = storage_.emplace_back();
            if (argument.type->kind == Kind::text) {
                bytes = {'t', 'e', 'x', 't', 0};
                continue;
            }
            const size_t size = argument.type->size * argument.count;
            bytes.assign(RED_ZONE + size + RED_ZONE, UNTOUCHED);
            if (argument.direction == Direction::out)
                continue;
            memset(bytes.data() + RED_ZONE, 0, size);
            fill(*argument.type, bytes.data() + RED_ZONE);
            if (particular != PARTICULAR.end() && particular->second.contains(argument.name))
                memcpy(bytes.data() + RED_ZONE, &particular->second.at(argument.name),
                       sizeof(uint32_t));
        }
    }

    void call(vexoResult *result)
    {
        std::vector<void *> arguments;
        for (size_t i = 0; i < storage_.size(); ++i)
            arguments.push_back(storage_[i].data() + offset(i));
        operation_.call(arguments.data(), result);
    }

    bool redZonesHold() const
    {
        for (size_t i = 0; i < storage_.size(); ++i) {
            if (offset(i) == 0)
                continue;
            const std::vector<uint8_t> &bytes = storage_[i];
            for (size_t k = 0; k < RED_ZONE; ++k)
                if (bytes[k] != UNTOUCHED || bytes[bytes.size() - 1 - k] != UNTOUCHED)
                    return false;
        }
        return true;
    }

    // The outputs, one behind the other.
    std::vector<uint8_t> outputs() const
    {
        std::vector<uint8_t> all;
        for (size_t i = 0; i < storage_.size(); ++i)
            if (operation_.arguments[i].direction == Direction::out)
                all.insert(all.end(), storage_[i].begin() + RED_ZONE, storage_[i].end() - RED_ZONE);
        return all;
    }

  private:
    size_t offset(size_t index) const
    {
        return operation_.arguments[index].type->kind == Kind::text ? 0 : RED_ZONE;
    }

    // 1 in every number, flags and enumerations included; a record of a TDM pseudowire, and so on.
    static void fill(const describe::Type &type, uint8_t *value)
    {
        const uint32_t one = 1;
        if (type.kind == Kind::word || type.kind == Kind::enumeration)
            memcpy(value, &one, sizeof one);
        else if (type.kind == Kind::mac)
            memcpy(value, "\x02\x00\x00\x00\x00\x01", 6);
        else if (type.kind == Kind::text)
            memcpy(value, "file", 5);
        for (const describe::Field &field : type.fields)
            if (strcmp(field.name, "reserved") != 0 && !field.options.when)
                for (uint32_t i = 0; i < field.count; ++i)
                    fill(*field.type, value + field.offset + i * field.type->size);
        if (&type == &describe::typeOf<vexoPweParams>()) {
            const vexoPweAction modify{};
            memcpy(value + offsetof(vexoPweParams, pweAction), &modify, sizeof modify);
        }
        if (&type == &describe::typeOf<vexoImaGroupSet>()) {
            const vexoImaAction modify{};
            memcpy(value + offsetof(vexoImaGroupSet, imaAction), &modify, sizeof modify);
        }
    }

    const Operation &operation_;
    std::vector<std::vector<uint8_t>> storage_;
};

class EveryOperation : public Device
{
  protected:
    // A device on which every operation of the sweep succeeds.
    void prepare()
    {
        ASSERT_EQ(kv_sim_reset(), 0);
        kv_sim_clock_stop(1);
        createPwe(VEXO_PWE_TYPE_TDM_1, 1);
        createPwe(VEXO_PWE_TYPE_ATM_3, 2);
        const vexoPweAtmXc xc{VEXO_PWE_ATM_XC_TYPE_1, 1, 1, 1, 1};
        vexo_cmi_pwe_atmop_xc_set(&xc, 2, &result);
        createGroup(1, {1, 2});
    }

    void prepareFor(const Operation &operation)
    {
        ASSERT_NO_FATAL_FAILURE(prepare());
        // The one cross-connect that the sweep's record describes is to be added.
        if (operation.name == std::string{"vexo_cmi_pwe_atmop_xc_set"}) {
            const vexoPweAtmXc xc{VEXO_PWE_ATM_XC_TYPE_1, 1, 1, 1, 1};
            vexo_cmi_pwe_atmop_xc_delete(&xc, 2, &result);
            ASSERT_OK(result);
        }
        mark();
    }

    // The calls that a fault can meet: those that report a code.
    size_t faultableCalls() const
    {
        size_t count = 0;
        for (const std::string &name : calls())
            count += name != "settimeofday" && name != "gettimeofday" && name != "kv_log_clear";
        return count;
    }
};

TEST_F(EveryOperation, thatIsExportedHasARow)
{
    const std::set<std::string> withoutResult = {
        "vexo_cmi_init",
        "vexo_cmi_fini",
        "vexo_cmi_alarm_callback_register",
        "vexo_cmi_alarm_callback_unregister",
        "vexo_cmi_pm_callback_register",
        "vexo_cmi_pm_callback_unregister",
    };
    std::ifstream exports{EXPORTS_MAP};
    size_t found = 0;
    for (std::string name; exports >> name;) {
        if (!name.starts_with("vexo_cmi_"))
            continue;
        name.pop_back(); // the semicolon
        EXPECT_EQ(describe::find(name) == nullptr, withoutResult.contains(name)) << name;
        ++found;
    }
    EXPECT_EQ(found, describe::operations().size() + withoutResult.size());
}

TEST_F(EveryOperation, succeedsOnAPreparedDeviceWithAndWithoutAResult)
{
    for (const Operation &operation : describe::operations()) {
        SCOPED_TRACE(operation.name);
        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation reporting{operation};
        vexoResult reported = unwritten();
        reporting.call(&reported);
        EXPECT_OK(reported);
        const Names made = calls();
        EXPECT_TRUE(reporting.redZonesHold());

        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation silent{operation};
        silent.call(nullptr);
        if (operation.name != std::string{"vexo_cmi_sys_kato_send"}) { // which remembers the first
            EXPECT_EQ(calls(), made);
        }
        EXPECT_EQ(silent.outputs(), reporting.outputs());
        EXPECT_TRUE(silent.redZonesHold());
    }
}

TEST_F(EveryOperation, stopsAtTheFirstFailureAndReportsIt)
{
    for (const Operation &operation : describe::operations()) {
        SCOPED_TRACE(operation.name);
        const std::string name = operation.name;
        if (ALWAYS_SUCCEEDING.contains(name))
            continue;
        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation{operation}.call(nullptr);
        const Names all = calls();
        const size_t faultable = faultableCalls();
        for (uint32_t n = 0; n < faultable; ++n) {
            SCOPED_TRACE("platform call " + std::to_string(n + 1) + ", " + all[n]);
            for (const bool reporting : {true, false}) {
                ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
                failing("", INJECTED, n);
                Invocation invocation{operation};
                vexoResult reported = unwritten();
                invocation.call(reporting ? &reported : nullptr);

                const bool goesOn = name == NEVER_STOPPING;
                const size_t made = goesOn ? all.size() : n + 1;
                EXPECT_EQ(calls(), Names(all.begin(), all.begin() + static_cast<long>(made)));
                const size_t early = WRITTEN_EARLY.contains(name) ? WRITTEN_EARLY.at(name) : 0;
                const std::vector<uint8_t> outputs = invocation.outputs();
                for (size_t i = early; i < outputs.size(); ++i)
                    ASSERT_EQ(outputs[i], UNTOUCHED) << "byte " << i << " was written";
                EXPECT_TRUE(invocation.redZonesHold());
                if (!reporting)
                    continue;
                EXPECT_EQ(reported.rc, INJECTED_RC);
                const std::string text = hasCodeText(name, all[n]) ? kv_rc_to_string(INJECTED)
                                                                   : "injected fault in " + all[n];
                EXPECT_EQ(reported.message, text);
                for (size_t i = text.size(); i < sizeof reported.message; ++i)
                    ASSERT_EQ(reported.message[i], '\0') << "byte " << i << " of the message";
            }
        }
    }
}

TEST_F(EveryOperation, ofWhichASetterIsReadBackByItsGetter)
{
    // Where the record that is read is not the one that is set.
    const std::set<std::string> others = {"vexo_cmi_pwe_params_set"};
    size_t pairs = 0;
    for (const Operation &setter : describe::operations()) {
        std::string name = setter.name;
        if (!name.ends_with("_set") || others.contains(name))
            continue;
        name.replace(name.size() - 3, 3, "get");
        const Operation *getter = describe::find(name);
        if (!getter || name.find("alarm") != std::string::npos)
            continue;
        SCOPED_TRACE(setter.name);
        ASSERT_NO_FATAL_FAILURE(prepareFor(setter));
        Invocation set{setter};
        set.call(&result);
        ASSERT_OK(result);
        Invocation get{*getter};
        get.call(&result);
        ASSERT_OK(result);
        const std::vector<uint8_t> read = get.outputs();
        ASSERT_GE(read.size(), sizeof(uint32_t));
        uint32_t first;
        memcpy(&first, read.data(), sizeof first);
        const auto other = READ_BACK.find(name);
        const uint32_t expected = other == READ_BACK.end() ? 1 : other->second;
        EXPECT_EQ(first, expected);
        ++pairs;
    }
    EXPECT_GE(pairs, 25u);
}

} // namespace
