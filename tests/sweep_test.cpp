// What holds for every operation, over the rows that describe them: a new operation joins by its
// row.
#include "instead.h"

#include <describe.h>
#include <platform.h>

#include <array>
#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace
{

using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;

constexpr uint8_t UNTOUCHED = 0xFF;
constexpr size_t RED_ZONE = 64;
constexpr size_t TEXT_SIZE = 32;
constexpr uint32_t GROUP_LINKS = 2;
constexpr uint32_t USED = 5; // the variant of what is there before
constexpr kvRc INJECTED = 128;
constexpr vexoRc INJECTED_RC = VEXO_RC_FAILURE_8;

// The objects that are given, where 1 won't do.
const std::map<std::string, std::map<std::string, uint32_t>> OBJECTS = {
    {"vexo_cmi_pwe_atm_force_ais_set", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atm_force_ais_get", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_set", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_delete", {{"pwId", 2}}},
    {"vexo_cmi_pwe_atmop_xc_get", {{"pwId", 2}}},
    {"vexo_cmi_pwe_om_get", {{"pwId", 2}}},
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

// Whether a failure carries the platform's text for the code.
bool hasCodeText(const std::string &operation, const std::string &function)
{
    using describe::platform::FailureText;
    return failureTextOf(*describe::platform::find(function)) == FailureText::code ||
           operation.starts_with("vexo_cmi_ima_alarms");
}

// Functions of the platform that only tell what follows from what others tell; and the field that
// the setters of the administrative status change in a record that their getters don't read.
const std::set<std::string> FOLLOWING = {"config_get_pdh_admin", "config_get_pdh_oper_state",
                                         "config_get_pw_admin", "config_get_pw_oper_state",
                                         "config_get_pw_all_prov"};
bool isToldTwice(const std::string &setter, const std::string &field)
{
    return setter.ends_with("_admin_set") && field == ".adminStatus";
}

// Fills what is given with numbers of their own and members of the enumerations; another variant
// gives others.
class Filler
{
  public:
    Filler(const Operation &operation, uint32_t variant) : operation_{operation}, variant_{variant}
    {
    }

    void fill(const Argument &argument, uint8_t *value)
    {
        static const std::set<std::string> objects = {"port", "pwId", "groupId", "linkId",
                                                      "number"};
        const auto others = OBJECTS.find(operation_.name);
        if (!objects.contains(argument.name))
            fill(*argument.type, argument.name, argument.limit, value);
        else if (others != OBJECTS.end() && others->second.contains(argument.name))
            put(value, others->second.at(argument.name));
        else
            put(value, 1);
    }

  private:
    static void put(uint8_t *to, uint32_t word) { memcpy(to, &word, sizeof word); }

    void fill(const describe::Type &type, const std::string &name, uint32_t limit, uint8_t *value)
    {
        static const std::set<std::string> flags = {"clear", "force"};
        static const std::set<std::string> twoStates = {"serviceFlag", "atmFlag1", "atmFlag2"};
        ++filled_;
        if (type.kind == Kind::record)
            fillRecord(type, value);
        else if (type.kind == Kind::mac)
            memcpy(value, std::array<uint32_t, 2>{2, filled_ + variant_}.data(), type.size);
        else if (type.kind == Kind::text)
            snprintf(reinterpret_cast<char *>(value), TEXT_SIZE, "text %u", variant_);
        else if (type.kind == Kind::enumeration && name.ends_with("Action"))
            put(value, variant_ % USED == 0 ? VEXO_PWE_ACTION_MODIFY : VEXO_PWE_ACTION_CREATE);
        else if (type.kind == Kind::enumeration)
            put(value, type.first + variant_ % (type.last - type.first + 1));
        else if (name == "tpid")
            put(value, variant_ % 2 ? 0x88A8 : 0x9100);
        else if (flags.contains(name))
            put(value, 1 - variant_ % 2);
        else if (twoStates.contains(name))
            put(value, 1 + variant_ % 2);
        else
            put(value, (filled_ + 41 * variant_) & (name.ends_with("riority") ? 7 : limit));
    }

    void fillRecord(const describe::Type &type, uint8_t *record)
    {
        for (const describe::Field &field : type.fields) {
            const describe::Options &options = field.options;
            if (options.hidden || (options.when && !options.when(record)))
                continue;
            fill(*field.type, field.name, options.limit ? options.limit(record) : ~0U,
                 record + field.offset);
            for (const describe::Field &flag : type.fields)
                if (options.flag && strcmp(flag.name, options.flag) == 0)
                    put(record + flag.offset, 1);
        }
        // Of an RTP that is off nothing else is read.
        if (type.name == std::string{"vexoPweRtp"} && record[0] == VEXO_PWE_RTP_OFF)
            memset(record + sizeof(uint32_t), 0, type.size - sizeof(uint32_t));
    }

    const Operation &operation_;
    const uint32_t variant_;
    uint32_t filled_ = 0;
};

// Hands what a value is made of to `use`, by its name, ".vlan.mode" of a record, its type and where
// it stands.
template <class Use>
void forEachLeaf(const describe::Type &type, const std::string &name, const uint8_t *value, Use use)
{
    if (type.kind != Kind::record)
        use(name, type, value);
    for (const describe::Field &field : type.fields)
        for (uint32_t i = 0; i < field.count; ++i)
            if (!field.options.when || field.options.when(value))
                forEachLeaf(*field.type,
                            name + "." + field.name + (i ? " " + std::to_string(i) : ""),
                            value + field.offset + i * field.type->size, use);
}

using Bytes = std::vector<uint8_t>;
using Leaves = std::map<std::string, Bytes>;

// One call with outputs between red zones.
class Invocation
{
  public:
    explicit Invocation(const Operation &operation, uint32_t variant = 0) : operation_{operation}
    {
        Filler filler{operation, variant};
        for (const Argument &argument : operation.arguments) {
            const bool isText = argument.type->kind == Kind::text;
            const size_t size = isText ? TEXT_SIZE : argument.type->size * argument.count;
            std::vector<uint8_t> &bytes =
                storage_.emplace_back(RED_ZONE + size + RED_ZONE, UNTOUCHED);
            if (argument.direction == Direction::out)
                continue;
            memset(bytes.data() + RED_ZONE, 0, size);
            filler.fill(argument, bytes.data() + RED_ZONE);
        }
    }

    void call(vexoResult *result)
    {
        std::vector<void *> arguments;
        for (std::vector<uint8_t> &bytes : storage_)
            arguments.push_back(bytes.data() + RED_ZONE);
        operation_.call(arguments.data(), result);
    }

    bool redZonesHold() const
    {
        for (const std::vector<uint8_t> &bytes : storage_)
            for (size_t k = 0; k < RED_ZONE; ++k)
                if (bytes[k] != UNTOUCHED || bytes[bytes.size() - 1 - k] != UNTOUCHED)
                    return false;
        return true;
    }

    const uint8_t *value(size_t index) const { return storage_[index].data() + RED_ZONE; }

    // The outputs, one behind the other.
    std::vector<uint8_t> outputs() const
    {
        std::vector<uint8_t> all;
        for (size_t i = 0; i < storage_.size(); ++i)
            if (operation_.arguments[i].direction == Direction::out)
                all.insert(all.end(), storage_[i].begin() + RED_ZONE, storage_[i].end() - RED_ZONE);
        return all;
    }

    Leaves leaves(Direction direction) const
    {
        Leaves found;
        for (size_t i = 0; i < storage_.size(); ++i) {
            const Argument &argument = operation_.arguments[i];
            const bool isRecord = argument.type->kind == Kind::record;
            if (argument.direction == direction)
                forEachLeaf(*argument.type, isRecord ? "" : "." + std::string{argument.name},
                            value(i), [&](auto &name, auto &type, const uint8_t *leaf) {
                                const auto *text = reinterpret_cast<const char *>(leaf);
                                const size_t size =
                                    type.kind == Kind::text ? strlen(text) : type.size;
                                found[name] = {leaf, leaf + size};
                            });
        }
        return found;
    }

  private:
    const Operation &operation_;
    std::vector<std::vector<uint8_t>> storage_;
};

// A function of the platform that fills a value, of an object or of the system.
struct Reader {
    std::string name;
    const describe::Type &type;
    std::function<bool(Bytes &value, uint32_t object)> read; // false: it has none
    void (*answer)(const Bytes &value);                      // instead of the device, from now on
};

template <class Value>
concept Filled = std::is_object_v<Value> && !std::is_const_v<Value>;

template <auto function, Filled Value, std::same_as<uint32_t>... Object>
void addReader(std::vector<Reader> &readers, const describe::platform::Function &row,
               kvRc (*)(Value *, Object...))
{
    const auto read = [](Bytes &value, auto... object) {
        value.resize(sizeof(Value));
        return function(reinterpret_cast<Value *>(value.data()), object...) == KV_OK;
    };
    const auto answerBytes = [](const Bytes &value) {
        answer<function>(*reinterpret_cast<const Value *>(value.data()));
    };
    if constexpr (sizeof...(Object) == 0)
        readers.push_back({row.name, *row.arguments[0].type,
                           [=](Bytes &value, uint32_t object) { return !object && read(value); },
                           answerBytes});
    else if constexpr (sizeof...(Object) == 1)
        readers.push_back({row.name, *row.arguments[0].type, read, answerBytes});
}

template <auto function>
void addReader(std::vector<Reader> &, const describe::platform::Function &, ...)
{
}

std::vector<Reader> allReaders()
{
    std::vector<Reader> readers;
#define READER(library, kind, returns, function, ...)                                              \
    if (!FOLLOWING.contains(#function))                                                            \
        addReader<&function>(readers, *describe::platform::find(#function), &function);
    LIBRARY_FUNCTIONS(READER)
    return readers;
}

// By the function that tells it, and the object.
using State = std::map<std::pair<const Reader *, uint32_t>, Bytes>;

State state()
{
    static const std::vector<Reader> readers = allReaders();
    State found;
    for (const Reader &reader : readers)
        for (const uint32_t object : {0U, 1U, 2U, 3U})
            if (Bytes value; reader.read(value, object))
                found[{&reader, object}] = value;
    return found;
}

// The name of the getter of what an operation sets; empty when it sets nothing, or nothing that can
// be read.
std::string getterNameOf(const Operation &setter)
{
    // Of the alarms of IMA groups and links both are set, and one read.
    static const std::set<std::string> withoutGetter = {
        "vexo_cmi_sys_tod_set", "vexo_cmi_ima_alarms_set", "vexo_cmi_misc_dbg_mode_set",
        "vexo_cmi_misc_tpgm_init"};
    std::string name = setter.name;
    const auto replaceEnd = [&](const std::string &end, const char *by) {
        if (name.ends_with(end))
            name.replace(name.size() - end.size(), end.size(), by);
    };
    replaceEnd("_set", "_get");
    replaceEnd("_init", "_info_get");
    return name == setter.name || withoutGetter.contains(setter.name) ? "" : name;
}

class EveryOperation : public Twisted
{
  protected:
    // A device on which every operation of the sweep succeeds.
    void prepare()
    {
        ASSERT_EQ(kv_sim_reset(), 0);
        kv_sim_clock_stop(1);
        createPwe(VEXO_PWE_TYPE_TDM_1, 1);
        createPwe(VEXO_PWE_TYPE_ATM_3, 2);
        Invocation{*describe::find("vexo_cmi_pwe_atmop_xc_set")}.call(&result);
        createGroup(1, {1, 2}); // GROUP_LINKS
    }

    // On a used device all else that can be set has been set.
    void prepareFor(const Operation &operation, uint32_t variant = 0, bool used = false)
    {
        ASSERT_NO_FATAL_FAILURE(prepare());
        for (const Operation &setter : describe::operations())
            if (used && &setter != &operation && !getterNameOf(setter).empty())
                Invocation{setter, USED}.call(nullptr);
        const std::string name = operation.name;
        // What is added or created must not be there.
        if (name == "vexo_cmi_pwe_atmop_xc_set")
            Invocation{*describe::find("vexo_cmi_pwe_atmop_xc_delete")}.call(&result);
        else if (name == "vexo_cmi_pwe_params_set" && variant > 0)
            config_del_pw(1);
        else if (name == "vexo_cmi_ima_set" && variant > 0)
            config_del_ima(1);
        ASSERT_OK(result);
        mark();
    }
};

TEST_F(EveryOperation, SucceedsOnAPreparedDeviceByItsCallsWithAndWithoutAResult)
{
    for (const Operation &operation : describe::operations()) {
        SCOPED_TRACE(operation.name);
        const std::string name = operation.name;
        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation reporting{operation};
        vexoResult reported = unwritten();
        reporting.call(&reported);
        EXPECT_OK(reported) << "; if it needs another object or value, OBJECTS or Filler in "
                               "tests/sweep_test.cpp gives it";
        EXPECT_TRUE(reporting.redZonesHold());
        const Names made = calls();
        Names described = describe::casesOf(operation, GROUP_LINKS).front().calls;
        std::erase(described, "kv_log");
        EXPECT_EQ(made, described)
            << "its row in describe/operations.cpp has other calls than it makes";

        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation silent{operation};
        silent.call(nullptr);
        if (name != "vexo_cmi_sys_kato_send") { // which remembers the first
            EXPECT_EQ(calls(), made);
        }
        EXPECT_EQ(silent.outputs(), reporting.outputs());
        EXPECT_TRUE(silent.redZonesHold());
    }
}

// Counts and codes that no table has included.
TEST_F(EveryOperation, GivesOnlyItsEnumerationsAndStaysWithinBoundsWhenThePlatformAnswersAnything)
{
    const std::function<void(const describe::Type &, const uint8_t *)> expectMembers =
        [&](const describe::Type &type, const uint8_t *value) {
            uint32_t word;
            memcpy(&word, value, sizeof word);
            if (type.kind == Kind::enumeration && word != 0xFFFFFFFF) {
                EXPECT_LE(word, type.last) << type.name;
            }
            for (const describe::Field &field : type.fields)
                for (uint32_t i = 0; i < field.count; ++i)
                    expectMembers(*field.type, value + field.offset + i * field.type->size);
        };
    for (const Operation &operation : describe::operations())
        for (uint32_t seed = 1; seed <= 20; ++seed) {
            SCOPED_TRACE(operation.name);
            ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
            kvSimFault fault{};
            fault.effect = KV_SIM_GARBAGE;
            fault.value = seed;
            ASSERT_EQ(kv_sim_fault_add(&fault), 0);
            Invocation invocation{operation};
            invocation.call(&result);
            EXPECT_TRUE(invocation.redZonesHold());
            for (size_t i = 0; i < operation.arguments.size(); ++i)
                if (operation.arguments[i].direction == Direction::out)
                    expectMembers(*operation.arguments[i].type, invocation.value(i));
        }
}

TEST_F(EveryOperation, StopsAtTheFirstFailureAndReportsIt)
{
    for (const Operation &operation : describe::operations()) {
        SCOPED_TRACE(operation.name);
        const std::string name = operation.name;
        if (ALWAYS_SUCCEEDING.contains(name))
            continue;
        ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
        Invocation{operation}.call(nullptr);
        const Names all = calls();
        const std::vector<kvSimCall> whole = entries();
        for (size_t n = 0; n < all.size(); ++n) {
            if (failureTextOf(*describe::platform::find(all[n])) ==
                describe::platform::FailureText::none)
                continue;
            SCOPED_TRACE("platform call " + std::to_string(n + 1) + ", " + all[n]);
            const auto skip = static_cast<uint32_t>(whole[n].number - marked() - 1);
            for (const bool reporting : {true, false}) {
                ASSERT_NO_FATAL_FAILURE(prepareFor(operation));
                failing("", INJECTED, skip);
                Invocation invocation{operation};
                vexoResult reported = unwritten();
                invocation.call(reporting ? &reported : nullptr);

                const bool goesOn = name == NEVER_STOPPING;
                const size_t made = goesOn ? all.size() : n + 1;
                EXPECT_EQ(calls(), Names(all.begin(), all.begin() + static_cast<long>(made)));
                const size_t early = WRITTEN_EARLY.contains(name) ? WRITTEN_EARLY.at(name) : 0;
                const std::vector<uint8_t> outputs = invocation.outputs();
                for (size_t i = early; i < outputs.size(); ++i)
                    ASSERT_EQ(outputs[i], UNTOUCHED)
                        << "byte " << i << " of its outputs was written before that call; what may "
                        << "be stands in WRITTEN_EARLY in tests/sweep_test.cpp";
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

// Whatever the factory defaults are, they can't be all of these values.
TEST_F(EveryOperation, ThatSetsIsReadBackByItsGetterFieldByField)
{
    const std::set<std::string> notReadBack = {".pweAction",  ".imaAction", ".reserved",
                                               ".reserved 1", ".state",     ".port",
                                               ".pwId",       ".groupId"};
    for (const Operation &setter : describe::operations()) {
        SCOPED_TRACE(setter.name);
        const std::string name = getterNameOf(setter);
        if (name.empty())
            continue;
        const Operation *getter = describe::find(name);
        ASSERT_NE(getter, nullptr)
            << "describe/operations.cpp has no row of " << name << "; if there is no getter, "
            << "withoutGetter in tests/sweep_test.cpp says so";
        for (uint32_t variant : {0u, 1u, 2u}) {
            ASSERT_NO_FATAL_FAILURE(prepareFor(setter, variant));
            Invocation set{setter, variant};
            set.call(&result);
            ASSERT_OK(result);
            Invocation get{*getter};
            get.call(&result);
            ASSERT_OK(result);
            const Leaves read = get.leaves(Direction::out);
            for (const auto &[leaf, value] : set.leaves(Direction::in))
                if (!notReadBack.contains(leaf)) {
                    ASSERT_TRUE(read.contains(leaf)) << name << " has no output " << leaf
                                                     << "; one that is not read back stands "
                                                     << "in notReadBack in tests/sweep_test.cpp";
                    EXPECT_EQ(read.at(leaf), value) << leaf << ", variant " << variant;
                }
        }
    }
}

// Whether a getter answers otherwise when some bytes of what it reads are those of another value.
bool tells(const Operation &getter, const Reader &reader, const Bytes &value, const Bytes &other,
           size_t offset, size_t size)
{
    const auto answerOn = [&](const Bytes &read) {
        reader.answer(read);
        Invocation get{getter};
        get.call(nullptr);
        insteadOfNothing();
        return get.outputs();
    };
    Bytes mixed = value;
    memcpy(&mixed[offset], &other[offset], size);
    return answerOn(mixed) != answerOn(value);
}

// A neighbour that changes as well would be a field that makes no difference to the getter.
TEST_F(EveryOperation, ThatSetsChangesNothingOnThePlatformButWhatItsGetterTells)
{
    for (const Operation &setter : describe::operations())
        for (const uint32_t variant : {0U, 1U}) {
            const Operation *getter = describe::find(getterNameOf(setter));
            if (!getter)
                continue;
            ASSERT_NO_FATAL_FAILURE(prepareFor(setter, variant, true));
            const State before = state();
            Invocation{setter, variant}.call(&result);
            ASSERT_OK(result) << setter.name;
            const State after = state();
            for (const auto &entry : before) {
                if (!after.contains(entry.first))
                    continue;
                const Reader &reader = *entry.first.first;
                const uint32_t object = entry.first.second;
                const Bytes &was = entry.second;
                const Bytes &is = after.at(entry.first);
                const auto check = [&](auto &name, auto &type, size_t offset) {
                    if (!isToldTwice(setter.name, name) &&
                        memcmp(&was[offset], &is[offset], type.size) != 0) {
                        EXPECT_TRUE(tells(*getter, reader, was, is, offset, type.size) ||
                                    tells(*getter, reader, is, was, offset, type.size))
                            << setter.name << " changes " << name << " of what " << reader.name
                            << " tells of " << object << ", and " << getter->name
                            << " doesn't tell that";
                    }
                };
                for (const Bytes *value : {&was, &is}) // a field may be there in one of them only
                    forEachLeaf(reader.type, "", value->data(),
                                [&](auto &name, auto &type, const uint8_t *leaf) {
                                    check(name, type, static_cast<size_t>(leaf - value->data()));
                                });
            }
        }
}

// What is passed on without being read first: the calls as "function argument ... record word ...".
using Arguments = Device;

TEST_F(Arguments, ReachThePlatformInItsOwnTerms)
{
    createPwe(VEXO_PWE_TYPE_ATM_3, 1);
    createGroup(2, {9});
    const unsigned eleven = 11, twelve = 12;
    const vexoPweAtmXc xc{VEXO_PWE_ATM_XC_TYPE_2, 0x10001, 2, 3, 4};
    vexoPdhPm pdhPm;
    vexoPwePm pwePm;
    vexoSysInfo info;
    vexoTpgmStatus tpgm;
    vexoUpgradeInfo upgrade;
    const struct {
        std::function<void()> call;
        std::string expected;
    } rows[] = {
        {[&] { vexo_cmi_sys_tpid_set(0x188A8, &result); }, " config_system_tpid_set 88A8"},
        {[&] { vexo_cmi_sys_tdm_mode_set(vexoTdmMode{4}, &result); }, " config_set_system_mode 0"},
        {[&] { vexo_cmi_sys_src_ip_set(0xC0000201, &result); },
         " config_set_pwe_src_ip_addr C0000201"},
        {[&] { vexo_cmi_sys_lops_set(11, 12, &result); }, " config_set_pwe_lops_threshold B C"},
        {[&] { vexo_cmi_sys_clk_out_set(&eleven, &twelve, &result); }, " config_set_clk_out B C"},
        {[&] { vexo_cmi_sys_temp_set(11, 12, &result); }, " config_set_temperature_thr B C"},
        {[&] { vexo_cmi_sys_rpt_mode_set(VEXO_ALARM_MODE_2, 0xABCD, &result); },
         " alarm_set_notification 4 ABCD"},
        {[&] { vexo_cmi_sys_alarm_set(0xFFFFFFFF, &result); },
         " alarm_set_status_bits 0 7FFF FFFFFFFF"},
        {[&] { vexo_cmi_sys_net_type_set(vexoNetQuality{3}, &result); },
         " config_set_psn_net_type 0"},
        {[&] { vexo_cmi_pdh_admin_set(VEXO_ADMIN_STATUS_1, 16, &result); },
         " config_set_pdh_admin 2 10"},
        {[&] { vexo_cmi_pdh_alarms_set(0xABCD1234, &result); },
         " alarm_set_status_bits 1 FFFF ABCD1234"},
        {[&] { vexo_cmi_pdh_pm_get(&pdhPm, vexoPmType{9}, 3, &result); },
         " pmom_pdh_pm_stat_get 3 0 0"},
        {[&] { vexo_cmi_pwe_admin_set(VEXO_ADMIN_STATUS_1, 1, &result); },
         " config_set_pw_admin 2 1"},
        {[&] { vexo_cmi_pwe_pdv_set(1234, 1, &result); }, " config_set_pw_jitter_size 4D2 1"},
        {[&] { vexo_cmi_pwe_atm_force_ais_set(7, 1, &result); }, " config_set_pw_ais 1 1"},
        {[&] { vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result); },
         " config_add_pw_atm_xc 1 20001 40003 3"},
        {[&] { vexo_cmi_pwe_atmop_xc_delete(&xc, 1, &result); },
         " config_del_pw_atm_xc 1 20001 40003 3"},
        {[&] { vexo_cmi_pwe_alarms_set(0xFFFFFFFF, &result); },
         " alarm_set_status_bits 3 1F FFFFFFFF"},
        {[&] { vexo_cmi_pwe_pm_get(&pwePm, VEXO_PM_TYPE_4, 1, &result); },
         " pmom_pw_pm_stat_get 1 4 0 config_get_pw 1"},
        {[&] { vexo_cmi_pwe_pm_clear(1, &result); },
         " pmom_pw_pm_stat_clear 1 1 0 pmom_pw_pm_stat_clear 1 2 0 pmom_pw_pm_stat_clear 1 3 0"},
        {[&] { vexo_cmi_ima_lnk_delete(9, 2, &result); },
         " config_get_ima_params 2 config_del_ima_link 9 2"},
        {[&] { vexo_cmi_ima_lnk_add(9, 2, &result); },
         " config_get_ima_params 2 config_add_ima_link 9 2"},
        {[&] { vexo_cmi_ima_alarms_set(0xFFFFFFFF, &result); },
         " alarm_set_status_bits 2 3FF FFFFFFFF alarm_set_status_bits 22 7F0000 FFFFFFFF"},
        {[&] { vexo_cmi_misc_sys_info_get(&info, 5, &result); },
         " config_get_sys_link_status pmom_sys_om_stat_get 5"},
        {[&] { vexo_cmi_misc_upgrade_info_get(&upgrade, &result); }, " upgrade_status_get 2"},
        {[&] { vexo_cmi_misc_sys_lbk_set(VEXO_LPBK_4, &result); }, " config_set_sys_lpbk 7 0"},
        {[&] { vexo_cmi_misc_tpgm_init(7, 8, 9, &result); }, " config_init_tpgm 7 8 9"},
        {[&] { vexo_cmi_misc_tpgm_stat_get(&tpgm, 0, &result); },
         " config_get_tpgm_status config_clear_tpgm_status 0"},
    };
    for (const auto &row : rows) {
        mark();
        row.call();
        std::ostringstream made;
        made << std::hex << std::uppercase;
        for (const kvSimCall &call : entries()) {
            made << " " << call.function;
            for (uint32_t i = 0; i < call.argCount; ++i)
                made << " " << call.args[i];
            for (uint32_t word, i = 0; i < call.recordSize; i += sizeof word) {
                memcpy(&word, call.record + i, sizeof word);
                made << " " << word;
            }
        }
        EXPECT_EQ(made.str(), row.expected);
    }
}

} // namespace
