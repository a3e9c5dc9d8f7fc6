// Counters and alarms as OpenMetrics text. What the device has no data for is left out.
#include "session.h"

#include <bit>
#include <cstring>
#include <iostream>
#include <map>

namespace vexoctl
{

namespace
{

struct Family {
    const char *type;
    const char *help;
};

// PM counters start anew with each interval, so they are no counters in the sense of OpenMetrics.
const std::map<std::string, Family> FAMILIES{
    {"vexo_alarms", {"gauge", "Number of alarms active on an object."}},
    {"vexo_alarm", {"gauge", "1 for each alarm that is active, by its bit; absent otherwise."}},
    {"vexo_system_temperature", {"gauge", "Temperature of the system, in the platform's unit."}},
    {"vexo_pdh_pm", {"gauge", "Count of the running PM interval of a PDH port."}},
    {"vexo_pwe_pm", {"gauge", "Count of the running PM interval of a pseudowire."}},
    {"vexo_ima_group_pm", {"gauge", "Count of the running PM interval of an IMA group."}},
    {"vexo_ima_link_pm", {"gauge", "Count of the running PM interval of an IMA link."}},
    {"vexo_pwe_om", {"counter", "OM counter of a pseudowire, modulo 2^32."}},
    {"vexo_ima_group_om", {"counter", "OM counter of an IMA group, modulo 2^32."}},
    {"vexo_ima_link_om", {"counter", "OM counter of an IMA link, modulo 2^32."}},
};

std::string label(const std::string &name, uint64_t value)
{
    return name + "=\"" + std::to_string(value) + "\"";
}

// The samples of each family, which OpenMetrics wants together.
class Exposition
{
  public:
    void add(const std::string &family, const std::string &labels, uint64_t value)
    {
        const bool isCounter = FAMILIES.at(family).type == std::string_view{"counter"};
        samples_[family] += family + (isCounter ? "_total" : "") +
                            (labels.empty() ? "" : "{" + labels + "}") + " " +
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
        add("vexo_alarms", labels, static_cast<uint64_t>(std::popcount(bits)));
        for (uint32_t bit = 0; bit < 32; ++bit)
            if (bits >> bit & 1)
                add("vexo_alarm", labels + "," + label("bit", bit), 1);
    }

    void print(std::ostream &stream) const
    {
        for (const auto &[family, samples] : samples_)
            stream << "# TYPE " << family << " " << FAMILIES.at(family).type << "\n# HELP "
                   << family << " " << FAMILIES.at(family).help << "\n"
                   << samples;
        stream << "# EOF\n";
    }

  private:
    std::map<std::string, std::string> samples_;
};

// Words that the library leaves alone are counters that there are not.
template <class Record>
Record untouched()
{
    Record record;
    memset(&record, 0xFF, sizeof record);
    return record;
}

bool isOk(const vexoResult &result)
{
    return result.rc == VEXO_RC_OK;
}

constexpr vexoPmType RUNNING_INTERVALS[] = {VEXO_PM_TYPE_1, VEXO_PM_TYPE_2, VEXO_PM_TYPE_3};
constexpr uint32_t PSEUDOWIRES_TRIED = 1024;
constexpr uint32_t GROUPS_TRIED = 8;

// Whether there is such a port.
bool addPort(Exposition &out, uint32_t port)
{
    vexoResult result;
    uint32_t bits;
    vexo_cmi_pdh_alarms_get(&bits, port, &result);
    if (!isOk(result))
        return false;
    out.addAlarms("pdh", port, bits);
    for (const vexoPmType type : RUNNING_INTERVALS) {
        auto pm = untouched<vexoPdhPm>();
        vexo_cmi_pdh_pm_get(&pm, type, port, &result);
        if (!isOk(result))
            continue;
        const std::string labels = label("port", port) + "," + label("interval", type);
        const Json shown = toJson(describe::typeOf<vexoPdhPm>(), &pm);
        for (const uint32_t layout : {0u, 1u}) {
            const auto found = shown.find("layout" + std::to_string(layout));
            if (found == shown.end() || found->at("intervalFlag") != 1)
                continue;
            out.addAll("vexo_pdh_pm", labels + ",set=\"line\"," + label("layout", layout),
                       {pm.lineCounters, found->at("counters").size()});
            out.addAll("vexo_pdh_pm", labels + ",set=\"common\"", pm.commonCounters);
        }
    }
    return true;
}

void addPseudowire(Exposition &out, uint32_t pwId)
{
    vexoResult result;
    uint32_t bits;
    vexo_cmi_pwe_alarms_get(&bits, pwId, &result);
    if (!isOk(result))
        return;
    out.addAlarms("pwe", pwId, bits);
    for (const vexoPmType type : RUNNING_INTERVALS) {
        auto pm = untouched<vexoPwePm>();
        vexo_cmi_pwe_pm_get(&pm, type, pwId, &result);
        if (!isOk(result))
            continue;
        const std::string labels = label("pw", pwId) + "," + label("interval", type);
        if (pm.body.generic.valid == 1)
            out.addAll("vexo_pwe_pm", labels + ",set=\"generic\"", pm.body.generic.counters);
        else if (pm.body.generic.valid == describe::UNTOUCHED && pm.body.atm.valid == 1)
            out.addAll("vexo_pwe_pm", labels + ",set=\"atm\"", pm.body.atm.counters);
    }
    auto om = untouched<vexoPweOm>();
    vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
    if (!isOk(result))
        return;
    const Json shown = toJson(describe::typeOf<vexoPweOm>(), &om);
    for (const std::string set : {"tdm", "atm"})
        if (const auto found = shown.find(set + "Counters"); found != shown.end())
            out.addAll("vexo_pwe_om", label("pw", pwId) + ",set=\"" + set + "\"",
                       {om.counters, found->size()});
}

void addGroup(Exposition &out, uint32_t groupId)
{
    vexoResult result;
    uint32_t bits;
    vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_GROUP, groupId, &result);
    if (!isOk(result))
        return;
    out.addAlarms("ima-group", groupId, bits);
    uint32_t linkIds[VEXO_IMA_LINK_MAX];
    uint32_t linkCount = 0;
    vexo_cmi_ima_lnk_get(linkIds, &linkCount, groupId, &result);
    for (uint32_t i = 0; i < linkCount; ++i) {
        vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_LINK, linkIds[i], &result);
        if (isOk(result))
            out.addAlarms("ima-link", linkIds[i], bits);
    }
    const std::string group = label("group", groupId);
    for (const vexoPmType type : RUNNING_INTERVALS) {
        vexoImaGroupPm pm;
        vexo_cmi_ima_pm_get(&pm, type, groupId, &result);
        if (!isOk(result))
            continue;
        const std::string labels = group + "," + label("interval", type);
        if (pm.intervalFlag == 1)
            out.addAll("vexo_ima_group_pm", labels, pm.counters);
        for (const vexoImaLinkPm &link : std::span{pm.links, pm.linkCount})
            if (link.intervalFlag == 1)
                out.addAll("vexo_ima_link_pm", labels + "," + label("link", link.linkId),
                           link.counters);
    }
    vexoImaOm om;
    vexo_cmi_ima_om_get(&om, 0, groupId, &result);
    if (!isOk(result))
        return;
    out.addAll("vexo_ima_group_om", group, om.counters);
    for (uint32_t i = 0; i < om.linkCount && i < linkCount; ++i)
        out.addAll("vexo_ima_link_om", group + "," + label("link", linkIds[i]),
                   om.links[i].counters);
}

} // namespace

void metrics(const Words &words)
{
    if (words.size() > 1)
        throw UsageError("metrics: expected nothing behind it, not '" + words[1] + "'");
    Exposition out;
    vexoResult result;
    uint32_t bits;
    vexo_cmi_sys_alarm_get(&bits, &result);
    if (!isOk(result))
        throw Failure{"metrics", result};
    out.addAlarms("system", 1, bits);
    uint32_t temperature, first, second;
    vexo_cmi_sys_temp_get(&temperature, &first, &second, &result);
    if (isOk(result))
        out.add("vexo_system_temperature", "", temperature);
    // Ports have no gaps; pseudowires and groups are there as they were created.
    for (uint32_t port = 1; addPort(out, port); ++port) {
    }
    for (uint32_t pwId = 1; pwId <= PSEUDOWIRES_TRIED; ++pwId)
        addPseudowire(out, pwId);
    for (uint32_t groupId = 1; groupId <= GROUPS_TRIED; ++groupId)
        addGroup(out, groupId);
    out.print(std::cout);
}

} // namespace vexoctl
