// Counters and alarms for Prometheus. What the device has no data for is left out.
#include "session.h"

#include "print.h"

#include <records.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>

namespace vexoctl
{

namespace
{

struct Family {
    const char *type;
    const char *help;
    bool isUsual; // shown when no families are named
};

// PM counters start anew with each interval, so they are no counters in Prometheus' sense. They and
// the single bits are many, and nearly all of them 0 or absent.
const std::map<std::string, Family> FAMILIES{
    {"alarms", {"gauge", "Number of alarms active on an object.", true}},
    {"alarm_mask", {"gauge", "Alarm bits active on an object, as one number.", true}},
    {"alarm", {"gauge", "1 for each alarm that is active, by its bit; absent otherwise.", false}},
    {"system_temperature", {"gauge", "Temperature of the system, in the platform's unit.", true}},
    {"pdh_pm", {"gauge", "Count of the running PM interval of a PDH port.", false}},
    {"pwe_pm", {"gauge", "Count of the running PM interval of a pseudowire.", false}},
    {"ima_group_pm", {"gauge", "Count of the running PM interval of an IMA group.", false}},
    {"ima_link_pm", {"gauge", "Count of the running PM interval of an IMA link.", false}},
    {"pwe_om", {"counter", "OM counter of a pseudowire, modulo 2^32.", true}},
    {"ima_group_om", {"counter", "OM counter of an IMA group, modulo 2^32.", true}},
    {"ima_link_om", {"counter", "OM counter of an IMA link, modulo 2^32.", true}},
};

constexpr const char *PREFIX = "vexo_";

std::string label(const std::string &name, uint64_t value)
{
    return name + "=\"" + std::to_string(value) + "\"";
}

// The samples of each family that is wanted, together, as Prometheus wants them.
class Exposition
{
  public:
    explicit Exposition(const Names &wanted)
    {
        for (const auto &[name, family] : FAMILIES)
            if (wanted.empty() ? family.isUsual : std::ranges::count(wanted, name) > 0)
                samples_[name] = "";
    }

    // Whether there is anything to be read for these families.
    bool wants(std::initializer_list<const char *> families) const
    {
        return std::ranges::any_of(families, [&](auto name) { return samples_.contains(name); });
    }
    // Those to be read for them.
    std::span<const vexoPmType> intervals(std::initializer_list<const char *> families) const
    {
        static constexpr vexoPmType running[] = {VEXO_PM_TYPE_1, VEXO_PM_TYPE_2, VEXO_PM_TYPE_3};
        return {running, wants(families) ? std::size(running) : 0};
    }
    bool wantsAlarms() const { return wants({"alarms", "alarm_mask", "alarm"}); }

    void add(const std::string &family, const std::string &labels, uint64_t value)
    {
        if (const auto found = samples_.find(family); found != samples_.end())
            found->second += sampleName(family) + (labels.empty() ? "" : "{" + labels + "}") + " " +
                             std::to_string(value) + "\n";
    }

    void addAll(const std::string &family, const std::string &labels,
                std::span<const uint32_t> counters)
    {
        for (size_t i = 0; i < counters.size(); ++i)
            add(family, labels + "," + label("counter", i), counters[i]);
    }

    void addAlarms(const std::string &object, uint32_t number, uint32_t bits)
    {
        const std::string labels = "object=\"" + object + "\"," + label("number", number);
        add("alarms", labels, static_cast<uint64_t>(std::popcount(bits)));
        add("alarm_mask", labels, bits);
        for (uint32_t bit = 0; bit < 32; ++bit)
            if (bits >> bit & 1)
                add("alarm", labels + "," + label("bit", bit), 1);
    }

    // A counter's family goes by another name than its samples in OpenMetrics only.
    void print(std::ostream &stream, bool isOpenMetrics) const
    {
        for (const auto &[family, samples] : samples_) {
            if (samples.empty())
                continue;
            const std::string name = isOpenMetrics ? PREFIX + family : sampleName(family);
            stream << "# HELP " << name << " " << FAMILIES.at(family).help << "\n# TYPE " << name
                   << " " << FAMILIES.at(family).type << "\n"
                   << samples;
        }
        if (isOpenMetrics)
            stream << "# EOF\n";
    }

  private:
    static std::string sampleName(const std::string &family)
    {
        const bool isCounter = FAMILIES.at(family).type == std::string_view{"counter"};
        return PREFIX + family + (isCounter ? "_total" : "");
    }

    std::map<std::string, std::string> samples_; // of the families that are wanted
};

// Words that the library leaves alone are counters that there are not.
template <class Record>
Record untouched()
{
    Record record;
    memset(&record, 0xFF, sizeof record);
    return record;
}

// Reads from the device, and remembers what failed. A copy from before forgets it again.
class Reader
{
  public:
    template <class... Parameters, class... Given>
    bool read(const std::string &what, void (*operation)(Parameters...), Given... given)
    {
        vexoResult result;
        makeCallOrEnd([&] { operation(given..., &result); });
        if (result.rc == VEXO_RC_OK)
            return true;
        if (failures_++ == 0)
            first_ = {what, result};
        return false;
    }

    void throwFailure() const
    {
        if (failures_ > 0)
            throw Failure{"metrics: " + std::to_string(failures_) +
                              (failures_ == 1 ? " read" : " reads") + " failed, first " +
                              first_.operation,
                          first_.result};
    }

  private:
    uint64_t failures_ = 0;
    Failure first_{};
};

// Whether anything of the port could be read.
bool addPort(Exposition &out, Reader &reader, uint32_t port)
{
    const std::string name = "PDH port " + std::to_string(port);
    uint32_t bits;
    bool isThere =
        out.wantsAlarms() && reader.read("alarms of " + name, vexo_cmi_pdh_alarms_get, &bits, port);
    if (isThere)
        out.addAlarms("pdh", port, bits);
    for (const vexoPmType type : out.intervals({"pdh_pm"})) {
        auto pm = untouched<vexoPdhPm>();
        if (!reader.read("PM of " + name, vexo_cmi_pdh_pm_get, &pm, type, port))
            continue;
        isThere = true;
        const std::string labels = label("port", port) + "," + label("interval", type);
        const bool is0 = describe::isLayout0(pm);
        const size_t count = is0 ? describe::PDH_FLAG_0 : describe::PDH_FLAG_1;
        if ((!is0 && !describe::isLayout1(pm)) || pm.lineCounters[count] != 1)
            continue;
        out.addAll("pdh_pm", labels + ",set=\"line\"," + label("layout", is0 ? 0 : 1),
                   {pm.lineCounters, count});
        out.addAll("pdh_pm", labels + ",set=\"common\"", pm.commonCounters);
    }
    return isThere;
}

void addPseudowire(Exposition &out, Reader &reader, uint32_t pwId)
{
    const std::string name = "pseudowire " + std::to_string(pwId);
    vexoPweParamsInfo info;
    const Reader before = reader;
    reader.read("parameters of " + name, vexo_cmi_pwe_params_get, &info, pwId);
    if (info.pweAction == VEXO_PWE_ACTION_DELETE)
        return; // not provisioned
    if (info.pweAction == VEXO_PWE_ACTION_CREATE)
        reader = before; // it is there; nothing else of it is used
    uint32_t bits;
    if (out.wantsAlarms() && reader.read("alarms of " + name, vexo_cmi_pwe_alarms_get, &bits, pwId))
        out.addAlarms("pwe", pwId, bits);
    for (const vexoPmType type : out.intervals({"pwe_pm"})) {
        auto pm = untouched<vexoPwePm>();
        const Reader beforePm = reader;
        if (!reader.read("PM of " + name, vexo_cmi_pwe_pm_get, &pm, type, pwId)) {
            if (pm.pweType != describe::UNTOUCHED)
                reader = beforePm; // its counters are of neither kind
            continue;
        }
        const std::string labels = label("pw", pwId) + "," + label("interval", type);
        if (pm.body.generic.valid == 1)
            out.addAll("pwe_pm", labels + ",set=\"generic\"", pm.body.generic.counters);
        else if (describe::isAtmBody(pm) && pm.body.atm.valid == 1)
            out.addAll("pwe_pm", labels + ",set=\"atm\"", pm.body.atm.counters);
    }
    auto om = untouched<vexoPweOm>();
    if (!out.wants({"pwe_om"}) || !reader.read("OM of " + name, vexo_cmi_pwe_om_get, &om, 0u, pwId))
        return;
    if (describe::hasTdmCounters(om))
        out.addAll("pwe_om", label("pw", pwId) + ",set=\"tdm\"", {om.counters, 2});
    if (describe::hasAtmCounters(om))
        out.addAll("pwe_om", label("pw", pwId) + ",set=\"atm\"", om.counters);
}

// Whether anything of the group could be read.
bool addGroup(Exposition &out, Reader &reader, uint32_t groupId)
{
    const std::string name = "IMA group " + std::to_string(groupId);
    const std::string group = label("group", groupId);
    uint32_t bits;
    bool isThere = out.wantsAlarms() && reader.read("alarms of " + name, vexo_cmi_ima_alarms_get,
                                                    &bits, VEXO_IMA_TYPE_GROUP, groupId);
    if (isThere)
        out.addAlarms("ima-group", groupId, bits);
    uint32_t linkIds[VEXO_IMA_LINK_MAX];
    uint32_t linkCount = 0;
    isThere |= reader.read("links of " + name, vexo_cmi_ima_lnk_get, linkIds, &linkCount, groupId);
    for (const uint32_t linkId : std::span{linkIds, linkCount})
        if (out.wantsAlarms() &&
            reader.read("alarms of IMA link " + std::to_string(linkId), vexo_cmi_ima_alarms_get,
                        &bits, VEXO_IMA_TYPE_LINK, linkId))
            out.addAlarms("ima-link", linkId, bits);
    for (const vexoPmType type : out.intervals({"ima_group_pm", "ima_link_pm"})) {
        // After a failure it holds what could be read before.
        auto pm = untouched<vexoImaGroupPm>();
        isThere |= reader.read("PM of " + name, vexo_cmi_ima_pm_get, &pm, type, groupId);
        const std::string labels = group + "," + label("interval", type);
        if (pm.intervalFlag == 1)
            out.addAll("ima_group_pm", labels, pm.counters);
        for (const vexoImaLinkPm &link : pm.links)
            if (link.intervalFlag == 1)
                out.addAll("ima_link_pm", labels + "," + label("link", link.linkId), link.counters);
    }
    vexoImaOm om;
    if (!out.wants({"ima_group_om", "ima_link_om"}) ||
        !reader.read("OM of " + name, vexo_cmi_ima_om_get, &om, 0u, groupId))
        return isThere;
    out.addAll("ima_group_om", group, om.counters);
    for (uint32_t i = 0; i < om.linkCount && i < linkCount; ++i)
        out.addAll("ima_link_om", group + "," + label("link", linkIds[i]), om.links[i].counters);
    return true;
}

// Of a list with commas.
Names familiesOf(const std::string &list)
{
    Names known = metricFamilies();
    if (list == "all")
        return known;
    Names wanted;
    std::istringstream stream{list};
    for (std::string name; std::getline(stream, name, ',');) {
        if (name.starts_with(PREFIX))
            name.erase(0, strlen(PREFIX));
        if (!FAMILIES.contains(name))
            throw UsageError("families: there is no family '" + name + "'" + hint(name, known));
        wanted.push_back(name);
    }
    if (wanted.empty())
        throw UsageError("families: expected names with commas between them, or all");
    return wanted;
}

} // namespace

Names metricFamilies()
{
    Names names{"all"};
    for (const auto &[name, family] : FAMILIES)
        names.push_back(name);
    return names;
}

std::string metricFamiliesHelp()
{
    std::string text = "\nThe families; * marks those shown when none are named:\n\n";
    for (const auto &[name, family] : FAMILIES)
        text += aligned((family.isUsual ? "  * " : "    ") + name, family.help, 24);
    return text;
}

void metrics(const Words &words, const Manner &manner)
{
    const Options options{words};
    const uint32_t pseudowires = options.number("pwes", 1024);
    const uint32_t groups = options.number("groups", 8);
    const std::string form = options.text("form", "text");
    if (form != "text" && form != "openmetrics")
        throw UsageError("form: expected text or openmetrics, not '" + form + "'");
    Exposition out{options.has("families") ? familiesOf(options.text("families", "")) : Names{}};
    if (manner.json)
        throw UsageError("what Prometheus reads has no form in JSON");
    Reader reader;
    uint32_t bits;
    if (out.wantsAlarms() && reader.read("alarms of the system", vexo_cmi_sys_alarm_get, &bits))
        out.addAlarms("system", 1, bits);
    uint32_t temperature, first, second;
    if (out.wants({"system_temperature"}) &&
        reader.read("temperature", vexo_cmi_sys_temp_get, &temperature, &first, &second))
        out.add("system_temperature", "", temperature);
    // Ports have no gaps: behind the last of which anything can be read there is none.
    Reader before = reader;
    for (uint32_t i = 0; i < VEXO_PM_PDH_MAX; ++i)
        if (addPort(out, reader, i + 1))
            before = reader;
    reader = before;
    if (out.wantsAlarms() || out.wants({"pwe_pm", "pwe_om"}))
        for (uint32_t i = 0; i < pseudowires; ++i)
            addPseudowire(out, reader, i + 1);
    if (out.wantsAlarms() ||
        out.wants({"ima_group_pm", "ima_link_pm", "ima_group_om", "ima_link_om"}))
        for (uint32_t i = 0; i < groups; ++i) {
            before = reader;
            if (!addGroup(out, reader, i + 1))
                reader = before;
        }
    out.print(std::cout, form == "openmetrics");
    reader.throwFailure();
}

} // namespace vexoctl
