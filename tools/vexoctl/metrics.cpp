#include "session.h"

#include <cstring>
#include <iostream>
#include <map>

namespace vexoctl
{

namespace
{

// The samples of each metric, in the order in which OpenMetrics wants them: metric by metric.
class Exposition
{
  public:
    void gauge(const std::string &metric, const std::string &labels, uint64_t value)
    {
        samples_[metric] += metric + "{" + labels + "} " + std::to_string(value) + "\n";
    }

    void print(std::ostream &stream) const
    {
        for (const auto &[metric, samples] : samples_)
            stream << "# TYPE " << metric << " gauge\n" << samples;
        stream << "# EOF\n";
    }

  private:
    std::map<std::string, std::string> samples_;
};

std::string label(const std::string &name, uint64_t value)
{
    return name + "=\"" + std::to_string(value) + "\"";
}

// Words that the library left alone are counters that there are not.
template <class Record>
void forget(Record &record)
{
    memset(&record, 0xFF, sizeof record);
}

bool isOk(const vexoResult &result)
{
    return result.rc == VEXO_RC_OK;
}

constexpr vexoPmType RUNNING_INTERVALS[] = {VEXO_PM_TYPE_1, VEXO_PM_TYPE_2, VEXO_PM_TYPE_3};
constexpr uint32_t NUMBERS_TRIED = 1024; // pseudowires; ports and groups end at the first gap
constexpr uint32_t GROUPS_TRIED = 64;

void counters(Exposition &out, const std::string &metric, const std::string &labels,
              const uint32_t *values, size_t count, const char *set = "")
{
    for (size_t i = 0; i < count; ++i)
        out.gauge(metric,
                  labels + (*set ? std::string{",set=\""} + set + "\"" : "") + "," +
                      label("counter", i),
                  values[i]);
}

void ports(Exposition &out)
{
    vexoResult result;
    for (uint32_t port = 1;; ++port) {
        uint32_t bits;
        vexo_cmi_pdh_alarms_get(&bits, port, &result);
        if (!isOk(result))
            return;
        out.gauge("vexo_pdh_alarm_bits", label("port", port), bits);
        for (vexoPmType type : RUNNING_INTERVALS) {
            vexoPdhPm pm;
            forget(pm);
            vexo_cmi_pdh_pm_get(&pm, type, port, &result);
            if (!isOk(result))
                continue;
            const std::string labels = label("port", port) + "," + label("interval", type);
            const Json shown = toJson(describe::typeOf<vexoPdhPm>(), &pm);
            for (const char *layout : {"layout0", "layout1"})
                if (shown.contains(layout) && shown[layout]["intervalFlag"] == 1) {
                    counters(out, "vexo_pdh_pm", labels, pm.lineCounters,
                             shown[layout]["counters"].size(), "line");
                    counters(out, "vexo_pdh_pm", labels, pm.commonCounters,
                             std::size(pm.commonCounters), "common");
                }
        }
    }
}

void pseudowire(Exposition &out, uint32_t pwId)
{
    vexoResult result;
    uint32_t bits;
    vexo_cmi_pwe_alarms_get(&bits, pwId, &result);
    if (!isOk(result))
        return;
    out.gauge("vexo_pwe_alarm_bits", label("pw", pwId), bits);
    for (vexoPmType type : RUNNING_INTERVALS) {
        vexoPwePm pm;
        forget(pm);
        vexo_cmi_pwe_pm_get(&pm, type, pwId, &result);
        if (!isOk(result))
            continue;
        const std::string labels = label("pw", pwId) + "," + label("interval", type);
        if (pm.body.generic.valid == 1)
            counters(out, "vexo_pwe_pm", labels, pm.body.generic.counters,
                     std::size(pm.body.generic.counters), "generic");
        else if (pm.body.generic.valid == describe::UNTOUCHED && pm.body.atm.valid == 1)
            counters(out, "vexo_pwe_pm", labels, pm.body.atm.counters,
                     std::size(pm.body.atm.counters), "atm");
    }
    vexoPweOm om;
    forget(om);
    vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
    if (!isOk(result))
        return;
    const Json shown = toJson(describe::typeOf<vexoPweOm>(), &om);
    for (const char *set : {"tdmCounters", "atmCounters"})
        if (shown.contains(set))
            counters(out, "vexo_pwe_om", label("pw", pwId), om.counters, shown[set].size());
}

void group(Exposition &out, uint32_t groupId)
{
    vexoResult result;
    uint32_t bits;
    vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_GROUP, groupId, &result);
    if (!isOk(result))
        return;
    out.gauge("vexo_ima_group_alarm_bits", label("group", groupId), bits);
    uint32_t linkIds[VEXO_IMA_LINK_MAX];
    uint32_t linkCount = 0;
    vexo_cmi_ima_lnk_get(linkIds, &linkCount, groupId, &result);
    for (uint32_t i = 0; i < linkCount; ++i) {
        vexo_cmi_ima_alarms_get(&bits, VEXO_IMA_TYPE_LINK, linkIds[i], &result);
        if (isOk(result))
            out.gauge("vexo_ima_link_alarm_bits",
                      label("group", groupId) + "," + label("link", linkIds[i]), bits);
    }
    for (vexoPmType type : RUNNING_INTERVALS) {
        vexoImaGroupPm pm;
        vexo_cmi_ima_pm_get(&pm, type, groupId, &result);
        if (!isOk(result))
            continue;
        const std::string labels = label("group", groupId) + "," + label("interval", type);
        if (pm.intervalFlag == 1)
            counters(out, "vexo_ima_group_pm", labels, pm.counters, std::size(pm.counters));
        for (uint32_t i = 0; i < pm.linkCount; ++i)
            if (pm.links[i].intervalFlag == 1)
                counters(out, "vexo_ima_link_pm", labels + "," + label("link", pm.links[i].linkId),
                         pm.links[i].counters, std::size(pm.links[i].counters));
    }
    vexoImaOm om;
    vexo_cmi_ima_om_get(&om, 0, groupId, &result);
    if (!isOk(result))
        return;
    counters(out, "vexo_ima_group_om", label("group", groupId), om.counters,
             std::size(om.counters));
    for (uint32_t i = 0; i < om.linkCount && i < linkCount; ++i)
        counters(out, "vexo_ima_link_om", label("group", groupId) + "," + label("link", linkIds[i]),
                 om.links[i].counters, std::size(om.links[i].counters));
}

} // namespace

Status metrics(const Words &words)
{
    if (words.size() > 1)
        throw UsageError("metrics takes no arguments");
    Exposition out;
    vexoResult result;
    unsigned bits;
    vexo_cmi_sys_alarm_get(&bits, &result);
    if (!isOk(result)) {
        std::cerr << "vexoctl: metrics: failure " << static_cast<uint32_t>(result.rc) << ": "
                  << result.message << std::endl;
        return FAILURE;
    }
    out.gauge("vexo_system_alarm_bits", label("system", 1), bits);
    unsigned temperature, first, second;
    vexo_cmi_sys_temp_get(&temperature, &first, &second, &result);
    if (isOk(result))
        out.gauge("vexo_system_temperature", label("system", 1), temperature);
    ports(out);
    for (uint32_t pwId = 1; pwId <= NUMBERS_TRIED; ++pwId)
        pseudowire(out, pwId);
    for (uint32_t groupId = 1; groupId <= GROUPS_TRIED; ++groupId)
        group(out, groupId);
    out.print(std::cout);
    return SUCCESS;
}

} // namespace vexoctl
