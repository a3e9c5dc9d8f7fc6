// What a device is set to as a document, on the simulated device: nothing gets lost, and what fails
// is taken back.
#include <config_apply.h>

#include <kv_sim.h>

#include <gtest/gtest.h>

#include <cstring>

namespace
{

using namespace vexoctl::config;
using describe::Operation;
using describe::Type;
using describe::Use;
using vexoctl::Json;
using vexoctl::Names;

constexpr Ranges FEW{.ports = 3, .pwes = 16, .groups = 3};

class Config : public testing::Test
{
  protected:
    void SetUp() override { ASSERT_EQ(kv_sim_reset(), 0); }

    void perform(const std::string &name, const Names &words)
    {
        Json outputs;
        const vexoResult result = device_.call(*describe::find("vexo_cmi_" + name), words, outputs);
        ASSERT_EQ(result.rc, VEXO_RC_OK) << name << ": " << result.message;
    }

    void createPwe(uint32_t pwId, const std::string &type, const Names &more = {})
    {
        Names words{
            "pwId=" + std::to_string(pwId), "pweAction=create", "pweType=" + type, "adminStatus=1",
            "dstMac=02:00:5e:00:00:11",     "psn.psnType=2"};
        const bool hasCircuit = more.size() == 1 && more[0].starts_with("t1.circuit=");
        Names own = type.starts_with("atm")
                        ? Names{"a.circuit=1",    "a.atmMode=1",   "a.atmType=1",
                                "a.atmClpMode=1", "a.atmParam1=0", "a.atmParam2=0"}
                        : Names{"t1.rtp.mode=off"};
        if (!type.starts_with("atm") && !hasCircuit)
            own.emplace_back("t1.circuit=1");
        words.insert(words.end(), own.begin(), own.end());
        words.insert(words.end(), more.begin(), more.end());
        if (!std::ranges::count(more, "vlan.mode=double"))
            words.emplace_back("vlan.mode=untagged");
        perform("pwe_params_set", words);
    }

    void createGroup(uint32_t group, const std::string &param3, const Names &links)
    {
        const std::string number = "groupId=" + std::to_string(group);
        perform("ima_set", {number, "imaAction=create", "groupParam1=1", "groupParam2=2",
                            "groupParam3=" + param3});
        for (const std::string &link : links)
            perform("ima_lnk_add", {number, "linkId=" + link});
    }

    // What leads from the device to the document.
    Plan planOf(const Document &wanted, bool prune = false)
    {
        Document now = save(device_, FEW);
        addNamed(device_, wanted, now);
        return plan(now, wanted, prune);
    }

    Document changed(const std::string &patch)
    {
        Json json = toJson(save(device_, FEW));
        json.merge_patch(Json::parse(patch));
        return readDocument("document", json.dump());
    }

    std::string saved() { return toJson(save(device_, FEW)).dump(1); }

    static std::string textOf(const Report &report)
    {
        std::string text;
        for (const auto *troubles : {&report.failed, &report.notUndone})
            for (const Trouble &trouble : *troubles)
                text += trouble.what + ": " + trouble.text + "\n";
        return text;
    }

    Device device_;
};

// ---- Nothing gets lost ----

// Values for all fields that a record has, being what it is; other ones for each variant.
class Sampler
{
  public:
    explicit Sampler(uint32_t variant) : next_{variant} {}

    Json of(const Type &type, const std::string &path, const std::map<std::string, uint32_t> &given)
    {
        const uint32_t n = ++next_;
        if (type.kind == describe::Kind::record) {
            std::vector<uint32_t> words((type.size + 3) / 4);
            Json record = Json::object();
            for (const describe::Field &field : type.fields) {
                const describe::Options &options = field.options;
                if (options.hidden || options.alone ||
                    (options.when && !options.when(words.data())))
                    continue;
                const bool isTwoState =
                    options.leftOut && strncmp(options.leftOut, "two-state: 1", 12) == 0;
                record[field.name] =
                    isTwoState
                        ? Json(1 + n % 2)
                        : of(*field.type, path + (path.empty() ? "" : ".") + field.name, given);
                vexoctl::Paths ignored;
                vexoctl::fromJson(*field.type, record[field.name], {},
                                  vexoctl::at(words.data(), field), ignored);
            }
            // Of an RTP that is off nothing more is told.
            if (record.value("mode", Json{}) == "off" && record.contains("ssrc"))
                record = {{"mode", "off"}};
            return record;
        }
        uint32_t words[2]{2, n};
        if (type.kind == describe::Kind::text)
            return "text " + std::to_string(n);
        if (const auto found = given.find(path); found != given.end())
            words[0] = found->second;
        else if (type.kind == describe::Kind::enumeration)
            words[0] = type.first + n % (type.last - type.first + 1);
        else if (type.kind == describe::Kind::word)
            words[0] = path == "tpid" ? 0x8800 + n : path == "force" ? n % 2 : 1 + n % 7;
        return vexoctl::toJson(type, words);
    }

  private:
    uint32_t next_;
};

// All settings by kind and path, as the setters' rows have them.
std::set<std::string> pathsOfRows()
{
    std::set<std::string> paths;
    for (const Operation &operation : describe::operations()) {
        const describe::Argument *object = describe::objectOf(operation);
        const describe::Role &role = operation.role;
        const std::string name = vexoctl::spoken(operation.name);
        const std::string kind = object      ? name.substr(0, name.find(' '))
                                 : role.name ? role.name
                                             : subjectOf(operation);
        if (role.use == Use::adds)
            paths.insert(kind + " " + role.name);
        if (role.use != Use::setting)
            continue;
        for (const describe::Argument &argument : operation.arguments)
            if (vexoctl::isGivenRecord(argument)) {
                for (const vexoctl::Leaf &leaf : vexoctl::leaves(*argument.type))
                    if (!leaf.field->options.alone)
                        paths.insert(kind + " " + leaf.path);
            } else if (argument.direction == describe::Direction::in && &argument != object) {
                paths.insert(kind + " " + argument.name);
            }
    }
    return paths;
}

// A document in which every setting has a value of its own, at least once.
Json sampled(uint32_t variant)
{
    Sampler sampler{variant};
    Json document{{"format", 1}};
    const auto fieldsOf = [&](const Kind &kind, const std::map<std::string, uint32_t> &given) {
        Json fields = Json::object();
        for (const Setter &setter : kind.setters)
            if (setter.record)
                fields.update(sampler.of(*setter.record, "", given));
            else
                for (const std::string &name : setter.fields)
                    fields[name] = sampler.of(*kind.fields.at(name).type, name, given);
        return fields;
    };
    uint32_t link = 64;
    for (const Kind &kind : kinds()) {
        Json &section = document[kind.section];
        if (!kind.number) {
            section[kind.setting] = fieldsOf(kind, {});
        } else if (kind.section == "pdh") {
            for (uint32_t port = 1; port <= 16; ++port)
                section[std::to_string(port)] = fieldsOf(kind, {});
        } else if (kind.section == "ima") {
            for (uint32_t group = 1; group <= 8; ++group) {
                Json &object = section[std::to_string(group)] = fieldsOf(kind, {});
                object["linkIds"] = Json::array();
                for (uint32_t i = 0; i < group; ++i)
                    object["linkIds"].push_back(link--);
            }
        } else {
            uint32_t pwId = 0;
            for (uint32_t type = 1; type <= 5; ++type)
                for (uint32_t psn = 1; psn <= 3; ++psn)
                    for (uint32_t mode = 1; mode <= 4; ++mode) {
                        Json &object = section[std::to_string(++pwId)] = fieldsOf(
                            kind, {{"pweType", type}, {"psn.psnType", psn}, {"vlan.mode", mode}});
                        if (!object.contains("a"))
                            object["force"] = 0;
                        else
                            object["xc"] = Json::array();
                        for (uint32_t i = 0; object.contains("a") && i < pwId % 21; ++i)
                            object["xc"].push_back(
                                sampler.of(*kind.fields.at("xc").type, "", {{"xcId1", 99 - i}}));
                    }
        }
    }
    return document;
}

TEST_F(Config, EverySettingOfTheRowsComesBackFromAnEmptyDevice)
{
    std::set<std::string> missing = pathsOfRows();
    for (uint32_t variant = 0; variant < 6; ++variant) {
        const Document wanted = readDocument("sample", sampled(variant).dump());
        // Directly, and by way of what the device that was set so has saved.
        Document document = wanted;
        for (const char *way : {"from the sample", "from what was saved"}) {
            ASSERT_EQ(kv_sim_reset(), 0);
            const Document empty = save(device_);
            const Report report = apply(device_, plan(empty, document, false), false);
            ASSERT_TRUE(report.failed.empty()) << way << ", " << textOf(report);
            document = save(device_);
            for (const auto &[key, settings] : wanted.objects) {
                const auto now = flat(document.find(key).value_or(Json{}));
                for (const auto &[path, value] : flat(*settings)) {
                    const auto told =
                        std::ranges::find(now, path, [](const auto &one) { return one.first; });
                    ASSERT_NE(told, now.end()) << way << ": " << nameOf(key) << " lost " << path;
                    EXPECT_EQ(told->second, value) << way << ": " << nameOf(key) << " " << path;
                    missing.erase((key.kind->number ? key.kind->section : key.kind->setting) + " " +
                                  path);
                }
            }
        }
    }
    for (const std::string &path : missing)
        ADD_FAILURE() << path << " is set by a row of describe/operations.cpp or records.h, but "
                      << "no document has it";
}

TEST_F(Config, WhatIsSavedOfAnIdleDeviceIsAlwaysTheSameAndSavingChangesNothing)
{
    apply(device_, plan(save(device_), readDocument("sample", sampled(1).dump()), false), false);
    const std::string first = saved();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(saved(), first);
    const uint64_t before = kv_sim_journal_last();
    save(device_, {.ports = 2, .pwes = 2, .groups = 1}, true);
    kvSimCall call;
    size_t calls = 0;
    for (uint64_t n = before + 1; kv_sim_journal_get(n, &call) == 0; ++n, ++calls)
        for (const char *change : {"_set", "_add", "_del", "_clear", "_init", "_load", "_raise"})
            EXPECT_EQ(strstr(call.function, change), nullptr) << call.function;
    EXPECT_GT(calls, 50u);
}

// ---- What fails is taken back ----

// Makes one of the operations that change something fail.
class Failing : public Device
{
  public:
    // By a platform's call; or, when it has been carried out all the same.
    enum class How { first, last, afterwards };

    Failing(size_t which, How how) : which_{which}, how_{how} {}

    vexoResult call(const Operation &operation, const Names &words, Json &outputs) override
    {
        const bool changes = std::ranges::none_of(operation.arguments, [](const auto &argument) {
            return argument.direction == describe::Direction::out;
        });
        if (!changes || which_-- != 0)
            return Device::call(operation, words, outputs);
        if (how_ == How::afterwards) {
            Device::call(operation, words, outputs);
            return {VEXO_RC_FAILURE_4, "carried out all the same"};
        }
        const bool twoCalls = describe::casesOf(operation)[0].calls.size() > 1 &&
                              !std::ranges::count(words, "pweAction=delete") &&
                              !std::ranges::count(words, "imaAction=delete") &&
                              !std::ranges::count(words, "imaAction=create");
        kvSimFault fault{};
        fault.skip = how_ == How::last && twoCalls;
        fault.times = 1;
        fault.effect = KV_SIM_CODE;
        fault.value = 128;
        kv_sim_fault_add(&fault);
        const vexoResult result = Device::call(operation, words, outputs);
        kv_sim_fault_clear();
        return result;
    }

  private:
    size_t which_;
    const How how_;
};

class Undone : public Config
{
  protected:
    void SetUp() override
    {
        Config::SetUp();
        createPwe(1, "tdm-1", {"vlan.mode=double", "vlan.vlanId=7"});
        createPwe(2, "atm-3", {"a.serviceOption=3"});
        perform("pwe_atm_force_ais_set", {"pwId=2", "force=1"});
        for (const char *id : {"32", "33", "34"})
            perform("pwe_atmop_xc_set", {"pwId=2", "xcType=1", "xcId1=0",
                                         std::string{"xcId2="} + id, "xcId3=0", "xcId4=1"});
        createPwe(3, "tdm-1");
        createGroup(1, "5", {"9", "3", "4"});
        createGroup(2, "0", {"5"});
        before_ = saved();
        wanted_ = changed(R"({
            "system": {"tpid": {"tpid": "0x88a8"}, "lops": {"second": 7}},
            "pdh": {"2": {"loopback": 2, "frameMode": 3}},
            "pwe": {"1": {"vlan": {"mode": "untagged", "outerVlanId": null, "outerPriority": null,
                                   "vlanId": null, "priority": null}, "psn": {"psnType": 3,
                                   "udpMode": 2, "param3": 4}},
                    "2": {"pweType": "tdm-2", "a": null, "xc": null, "force": 0,
                          "t2": {"circuit": 2, "serviceOption": 0, "payloadSize": 100,
                                 "jitterBufferSize": 200, "serviceFlag": 2,
                                 "rtp": {"mode": "on", "payloadType": 97, "ssrc": 1}}},
                    "3": null,
                    "4": {"pweType": "atm-4", "adminStatus": 2, "dstMac": "02:00:00:00:00:01",
                          "vlan": {"mode": 2, "vlanId": 5, "priority": 1},
                          "psn": {"psnType": 2, "param1": 1, "param2": 2},
                          "a": {"circuit": 3, "payloadSize": 48, "serviceOption": 2,
                                "serviceFlag": 2, "atmMode": 2, "atmType": 2, "atmFlag1": 2,
                                "atmFlag2": 1, "atmClpMode": 3, "atmParam1": 4, "atmParam2": 5},
                          "force": 1,
                          "xc": [{"xcType": 2, "xcId1": 1, "xcId2": 2, "xcId3": 3, "xcId4": 4}]}},
            "ima": {"1": {"groupParam3": 0, "linkIds": [3, 5]}, "2": {"linkIds": [9]},
                    "3": {"groupParam1": 1, "groupParam2": 1, "groupParam3": 1, "linkIds": [8]}}
        })");
        wanted_.objects.erase({numberedKind("pwe"), 3});
        plan_ = planOf(wanted_, true);
        ASSERT_GT(plan_.steps.size(), 15u);
    }

    std::string before_;
    Document wanted_;
    Plan plan_;
};

TEST_F(Undone, WithoutAFailureTheDeviceIsAsTheDocumentSays)
{
    const Report report = apply(device_, plan_, false);
    EXPECT_TRUE(report.failed.empty()) << textOf(report);
    EXPECT_EQ(report.done.size(), plan_.steps.size());
    EXPECT_TRUE(differences(wanted_, save(device_, FEW)).empty());
    EXPECT_TRUE(planOf(wanted_, true).steps.empty());
}

TEST_F(Undone, WhicheverOperationFailsTheDeviceIsAsBefore)
{
    for (const auto how : {Failing::How::first, Failing::How::last, Failing::How::afterwards})
        for (size_t i = 0; i < plan_.steps.size(); ++i) {
            Failing failing{i, how};
            const Report report = apply(failing, plan_, false);
            ASSERT_EQ(report.failed.size(), 1u) << commandOf(plan_.steps[i]);
            EXPECT_EQ(report.failed[0].what, commandOf(plan_.steps[i]));
            EXPECT_TRUE(report.notUndone.empty()) << textOf(report);
            ASSERT_EQ(saved(), before_) << commandOf(plan_.steps[i]);
        }
}

TEST_F(Undone, WhatCannotBeUndoneIsReportedAndTheRestIsUndone)
{
    // The last operation fails, and so does leading back the first pseudowire and a group's link.
    kvSimFault fault{};
    strcpy(fault.function, "config_set_pw");
    fault.object = 1;
    fault.skip = 1;
    fault.effect = KV_SIM_CODE;
    fault.value = 128;
    ASSERT_EQ(kv_sim_fault_add(&fault), 0);
    strcpy(fault.function, "config_add_ima_link");
    fault.object = 0;
    fault.where[0] = {"link", 9};
    ASSERT_EQ(kv_sim_fault_add(&fault), 0);
    Failing failing{plan_.steps.size() - 1, Failing::How::afterwards};
    const Report report = apply(failing, plan_, false);
    kv_sim_fault_clear();
    EXPECT_NE(textOf(report).find("pwe 1 vlan.mode: is untagged, not double"), std::string::npos)
        << textOf(report);
    const Document before = readDocument("before", before_);
    for (const Difference &difference : differences(before, save(device_, FEW)))
        if (difference.field == "linkIds")
            EXPECT_EQ(nameOf(difference.key) + difference.b.dump(), "ima 1[3,4]");
        else
            EXPECT_EQ(nameOf(difference.key), "pwe 1") << difference.field;
}

TEST_F(Undone, KeepingOnPerformsAllThatDoesNotFail)
{
    for (size_t i = 0; i < plan_.steps.size(); ++i) {
        const Key key = plan_.steps[i].key;
        if (plan_.steps[i].phase != Phase::set && plan_.steps[i].phase != Phase::modify)
            continue;
        SetUp();
        Failing failing{i, Failing::How::first};
        const Report report = apply(failing, plan_, true);
        EXPECT_FALSE(report.failed.empty());
        EXPECT_EQ(report.done.size(), plan_.steps.size() - 1);
        for (const Difference &difference : differences(wanted_, save(device_, FEW)))
            EXPECT_EQ(nameOf(difference.key), nameOf(key));
    }
}

// A device on which a circuit is one pseudowire's alone.
class OneForEachCircuit : public Device
{
  public:
    vexoResult call(const Operation &operation, const Names &words, Json &outputs) override
    {
        for (uint32_t pwId = 1; pwId <= FEW.pwes && !isGetter(operation); ++pwId) {
            const Key key{numberedKind("pwe"), pwId};
            const auto fields = flat(read(device_, key).settings.value_or(Json::object()));
            for (const auto &[path, value] : fields)
                if (path.ends_with("circuit") && words[0] != wordsOf(key)[0] &&
                    std::ranges::count(words, path + "=" + value.dump()))
                    return {VEXO_RC_FAILURE_4, "another has this circuit"};
        }
        return Device::call(operation, words, outputs);
    }

  private:
    Device device_;
};

TEST_F(Config, WhatIsOneObjectsAloneChangesHandsWithTheFewestOperations)
{
    for (uint32_t pwId = 1; pwId <= 6; ++pwId)
        createPwe(pwId, "tdm-1", {"t1.circuit=" + std::to_string(pwId)});
    const std::string before = saved();
    // A ring of three, and a row whose end takes a free one; its first goes to a new pseudowire.
    const std::string patch = R"({"pwe": {
        "1": {"t1": {"circuit": 2}}, "2": {"t1": {"circuit": 3}}, "3": {"t1": {"circuit": 1}},
        "4": {"t1": {"circuit": 5}}, "5": {"t1": {"circuit": 6}}, "6": {"t1": {"circuit": 9}},
        "7": {"pweType": "tdm-1", "adminStatus": 1, "dstMac": "02:00:00:00:00:01",
              "vlan": {"mode": "untagged"}, "psn": {"psnType": 2},
              "t1": {"circuit": 4, "rtp": {"mode": "off"}}}}})";
    const Document wanted = changed(patch);
    const Plan plan = planOf(wanted);
    EXPECT_EQ(plan.steps.size(), 6u + 1 + 1);
    OneForEachCircuit device;
    // Also the undo gives nothing to two at once.
    kvSimFault fault{};
    strcpy(fault.function, "config_add_pw");
    fault.object = 7;
    fault.effect = KV_SIM_CODE;
    fault.value = 128;
    ASSERT_EQ(kv_sim_fault_add(&fault), 0);
    Report report = apply(device, plan, false);
    EXPECT_EQ(report.failed.size(), 1u) << textOf(report);
    EXPECT_TRUE(report.notUndone.empty()) << textOf(report);
    EXPECT_EQ(saved(), before);
    kv_sim_fault_clear();
    report = apply(device, plan, false);
    EXPECT_TRUE(report.failed.empty()) << textOf(report);
    EXPECT_TRUE(differences(wanted, save(device_, FEW)).empty());
}

// ---- What can't be set, and what isn't told ----

TEST_F(Config, AValueThatNoModifyReachesTakesANewObjectAndWhenThatDoesNotHelpNothingIsChanged)
{
    createGroup(1, "5", {"9", "3"});
    createPwe(2, "atm-3", {"a.serviceOption=3"});
    Report report = apply(device_, planOf(changed(R"({"ima": {"1": {"groupParam3": 0}}})")), false);
    EXPECT_TRUE(report.failed.empty()) << textOf(report);
    EXPECT_EQ(report.done.front(), "ima set groupId=1 imaAction=delete");
    EXPECT_EQ(report.done.size(), 4u);
    // A new pseudowire of this device has the option 1.
    const std::string before = saved();
    report =
        apply(device_, planOf(changed(R"({"pwe": {"2": {"a": {"serviceOption": 0}}}})")), false);
    EXPECT_EQ(textOf(report), "pwe 2 a.serviceOption: is 1, not 0\n");
    EXPECT_EQ(saved(), before);
}

// A device whose new pseudowires have forced AIS.
class Forcing : public Device
{
  public:
    vexoResult call(const Operation &operation, const Names &words, Json &outputs) override
    {
        const vexoResult result = Device::call(operation, words, outputs);
        Json none;
        if (std::ranges::count(words, "pweAction=create"))
            Device::call(*describe::find("vexo_cmi_pwe_atm_force_ais_set"), {words[0], "force=1"},
                         none);
        return result;
    }
};

TEST_F(Config, WhatANewObjectHasUnaskedIsTold)
{
    createPwe(1, "atm-3");
    const Document wanted = save(device_, FEW);
    perform("pwe_params_set", {"pwId=1", "pweAction=delete"});
    const std::string before = saved();
    Forcing device;
    EXPECT_EQ(textOf(apply(device, planOf(wanted), false)), "pwe 1 force: is 1, not 0\n");
    EXPECT_EQ(saved(), before);
}

TEST_F(Config, WhatTheDeviceDoesNotTellIsNullWithItsReasonAndLeftAlone)
{
    createPwe(1, "tdm-1");
    kvSimFault fault{};
    strcpy(fault.function, "config_get_pw");
    fault.object = 1;
    fault.effect = KV_SIM_CODE;
    fault.value = 128;
    ASSERT_EQ(kv_sim_fault_add(&fault), 0);
    const Json json = toJson(save(device_, FEW));
    EXPECT_TRUE(json["pwe"]["1"].is_null());
    EXPECT_TRUE(json["refused"]["pwe 1"].get<std::string>().starts_with("failure 8: "));
    EXPECT_TRUE(json["absent"].contains("ima 2"));

    // What can't be read can't be led back, so nothing is done.
    const uint64_t calls = kv_sim_journal_last();
    const Document wanted =
        readDocument("document", R"({"format": 1, "system": {"tpid": {"tpid": 4660}},
                        "pwe": {"1": {"adminStatus": 2}}})");
    Report report = apply(device_, planOf(wanted), false);
    EXPECT_TRUE(textOf(report).starts_with("pwe 1: the device doesn't tell")) << textOf(report);
    EXPECT_TRUE(report.done.empty());
    EXPECT_GT(kv_sim_journal_last(), calls);
    report = apply(device_, planOf(wanted), true);
    EXPECT_EQ(report.done, std::vector<std::string>{"sys tpid set tpid=0x1234"});

    kv_sim_fault_clear();
    const Document unknown = readDocument("document", json.dump());
    for (const Difference &difference : differences(unknown, save(device_, FEW)))
        EXPECT_EQ(nameOf(difference.key), "system tpid");
    for (const Step &step : planOf(unknown, true).steps)
        EXPECT_EQ(nameOf(step.key), "system tpid");
}

TEST_F(Config, ADocumentThatCannotBeRightIsRefusedBeforeTheFirstOperation)
{
    createPwe(1, "tdm-1");
    const std::pair<const char *, const char *> documents[] = {
        {R"([])", "no format number"},
        {R"({"pwe": {}})", "no format number"},
        {R"({"format": 2})", "of format 2, where this program knows 1"},
        {R"({"format": 1, "pwes": {}})", "no section 'pwes'; did you mean 'pwe'?"},
        {R"({"format": 1, "pwe": []})", "pwe: expected an object"},
        {R"({"format": 1, "pwe": {"one": {}}})", "pwe: there is no 'one'"},
        {R"({"format": 1, "pwe": {"01": {}}})", "pwe: there is no '01'"},
        {R"({"format": 1, "system": {"tipd": {}}})", "no 'tipd'; did you mean 'tpid'?"},
        {R"({"format": 1, "system": {"tpid": {"tpid": 65536}}})", "from 0 to 65535"},
        {R"({"format": 1, "system": {"tpid": {"tpid": -1}}})", "expected a text or a whole number"},
        {R"({"format": 1, "system": {"dbg": {"info": 1}}})", "expected a text"},
        {R"({"format": 1, "pdh": {"3": {"frameMode": 9}}})", "pdh 3 frameMode: expected 1, 2"},
        {R"({"format": 1, "pdh": {"3": {"operState": 1}}})", "no field 'operState'"},
        {R"({"format": 1, "pwe": {"1": {"pweAction": "create"}}})", "no field 'pweAction'"},
        {R"({"format": 1, "pwe": {"1": {"vlan": {"id": 1}}}})",
         "pwe 1 vlan: there is no field 'id'"},
        {R"({"format": 1, "pwe": {"1": {"vlan": 1}}})", "pwe 1 vlan: expected an object"},
        {R"({"format": 1, "pwe": {"1": {"vlan": {"vlanId": 1}}}})",
         "pwe 1: vlan.vlanId: only with"},
        {R"({"format": 1, "pwe": {"1": {"force": 2}}})",
         "pwe 1 force: expected a number from 0 to 1"},
        {R"({"format": 1, "pwe": {"1": {"psn": {"psnType": 3}}}})", "psn.udpMode"},
        {R"({"format": 1, "pwe": {"1": {"xc": []}}})", "pwe 1: xc: only with a"},
        {R"({"format": 1, "pwe": {"2": {"adminStatus": 1}}})", "pwe 2: pweType, "},
        {R"({"format": 1, "ima": {"1": {"linkIds": [1, 1]}}})", "can't be in it twice"},
        {R"({"format": 1, "ima": {"1": {"linkIds": [1, 2, 3, 4, 5, 6, 7, 8, 9]}}})", "at most 8"},
        {R"({"format": 1, "ima": {"1": {"groupParam1": 1}}})", "groupParam2"},
        {R"({"format": 1, "format": 1})", "twice"},
    };
    for (const auto &[text, reason] : documents) {
        try {
            planOf(readDocument("file", text));
            ADD_FAILURE() << text;
        } catch (const vexoctl::UsageError &error) {
            EXPECT_NE(std::string{error.what()}.find(reason), std::string::npos)
                << text << ": " << error.what();
        }
    }
}

TEST_F(Config, DifferencesAreWhatBothNameAndWhatOneCannotHave)
{
    const auto text = [](const std::string &a, const std::string &b) {
        std::string lines;
        for (const auto &[key, field, one, other] :
             differences(readDocument("a", a), readDocument("b", b)))
            lines += nameOf(key) + " " + field + " " + one.dump() + " " + other.dump() + "\n";
        return lines;
    };
    const std::string a = R"({"format": 1, "pdh": {"1": {"frameMode": 1, "lineCode": 2}}, "pwe": {
        "1": {"vlan": {"mode": "double", "vlanId": 7}, "dstMac": "02:00:00:00:00:01"}, "2": null}})";
    EXPECT_EQ(text(a, a), "");
    EXPECT_EQ(text(a, R"({"format": 1})"), "");
    EXPECT_EQ(text(a, R"({"format": 1, "pdh": {"1": {"lineCode": "3", "frameMode": null}},
                          "pwe": {"1": {"vlan": {"mode": 1}}, "2": {"adminStatus": 1}, "3": {}}})"),
              "pdh 1 lineCode 2 3\n"
              "pwe 1 vlan.mode \"double\" \"untagged\"\n"
              "pwe 1 vlan.vlanId 7 null\n"
              "pwe 3  null {}\n");
}

} // namespace
