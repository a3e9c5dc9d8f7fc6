#include "frame/counters.h"
#include "frame/log.h"
#include "frame/record.h"
#include "ima/counters.h"
#include "notify/service.h"
#include "pdh/counters.h"
#include "pwe/counters.h"

#include <kv_config.h>
#include <kv_pmom.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/notify.h>

#include <algorithm>
#include <atomic>

std::atomic<vexoPmCallback> glPmCallback;
pthread_t glPmNotificationThread;
int glPmNotificationStopPfd[2];

extern "C" {
static void *thread_pm_notification_handler(void *);
static void pm_notification_handler(pmInterval interval);
}

namespace
{

struct PmService {
    using Callback = vexoPmCallback;

    static constexpr auto &callback = glPmCallback;
    static constexpr auto &thread = glPmNotificationThread;
    static constexpr auto &stopPipe = glPmNotificationStopPfd;

    static int socket() { return pmom_notification_sock(); }
    static kvRc subscribe() { return pmom_subscribe(pm_notification_handler); }
    static kvRc process() { return pmom_process_notification(); }
    static void unsubscribe() { pmom_unsubscribe(); }
    static constexpr auto &body = thread_pm_notification_handler;

    static constexpr char BODY_NAME[] = "thread_pm_notification_handler";
    static constexpr char REGISTER_NAME[] = "vexo_cmi_pm_callback_register";
    static constexpr char PIPE_FAILURE[] = "Cannot create of pm notification pipe";
    static constexpr char THREAD_FAILURE[] = "Cannot create of pm notification thread";
};

// There is no record to hold the platform's count of groups against; this bound only ends a report
// on nonsense.
constexpr uint32_t GROUPS_MAX = 0xFFFF;

#define REPORT_LOG(...) CMI_LOG_AS("pm_notification_handler", frame::LOG_ERROR, __VA_ARGS__)

// A report in progress. Its steps are not inlined into one another, so that the records of one
// share the stack with those of the next.
struct Report {
    Report(vexoPmCallback to, pmInterval ended)
        : callback{to}, interval{ended}, cmiInterval{pmInterval_to_vexoPmInterval(ended)}
    {
    }

    const vexoPmCallback callback;
    const pmInterval interval;
    const vexoPmInterval cmiInterval;
    vexoPmNotification record; // filled anew for each callback
    union {                    // likewise for each object
        pwConfig pw;
        pwPmStats pwStats;
        imaParams ima;
    } platform;

    [[gnu::noinline]] void ports();
    [[gnu::noinline]] void pseudowires();
    [[gnu::noinline]] void groups();

    void port(uint32_t index);
    void pseudowire(uint32_t pwId);
    void group(uint32_t groupId);
    void link(uint32_t linkId, vexoImaLinkPm &pm);
};

void Report::ports()
{
    frame::clear(&record, sizeof record);
    record.objType = VEXO_OBJ_TYPE_PDH;
    for (uint32_t i = 0; i < GetObjectCount(OBJ_PDH); ++i) {
        if (i == VEXO_PM_PDH_MAX) {
            REPORT_LOG("more than %d PDH ports, the others are left out", VEXO_PM_PDH_MAX);
            break;
        }
        port(i);
    }
    callback(&record);
}

void Report::port(uint32_t index)
{
    const uint32_t number = index + 1;
    pdhPmStat stat;
    const kvRc code = pmom_pdh_pm_stat_get(number, interval, frame::PM_OF_REPORT, &stat);
    if (code == KV_OK) {
        // In a report the word holds the interval; both enumerations number it alike.
        record.pdh[index].pmType = static_cast<vexoPmType>(cmiInterval);
        fillPdhPm(&record.pdh[index], &stat);
    } else if (code != KV_NO_COUNTERS) {
        REPORT_LOG("pmom_pdh_pm_stat_get failed(%d) %d(%s)", static_cast<int>(number),
                   static_cast<int>(code), frame::codeText(code));
    }
}

void Report::pseudowires()
{
    pwProvList list;
    if (const kvRc code = config_get_pw_all_prov(&list)) {
        REPORT_LOG("config_get_pw_all_prov failed %d(%s)", static_cast<int>(code),
                   frame::codeText(code));
        return;
    }
    if (list.count > PW_PROV_MAX)
        REPORT_LOG("%d pseudowires, only the first %d are reported", list.count,
                   static_cast<int>(PW_PROV_MAX));
    const uint32_t count = std::min<uint32_t>(list.count, PW_PROV_MAX);
    for (uint32_t i = 0; i < count; ++i)
        pseudowire(list.pwIds[i]);
}

void Report::pseudowire(uint32_t pwId)
{
    if (const kvRc code = config_get_pw(&platform.pw, pwId)) {
        REPORT_LOG("config_get_pw failed(%d) %d(%s)", static_cast<int>(pwId),
                   static_cast<int>(code), frame::codeText(code));
        return;
    }
    record.objType = VEXO_OBJ_TYPE_PWE;
    record.pwe.pweType = pweType_to_vexoPweType(platform.pw.pweType);
    record.pwe.interval = cmiInterval;
    record.pwe.pwId = pwId;
    const kvRc code = pmom_pw_pm_stat_get(pwId, interval, frame::PM_OF_REPORT, &platform.pwStats);
    if (code == KV_NO_COUNTERS)
        return;
    if (code != KV_OK) {
        REPORT_LOG("pmom_pw_pm_stat_get failed(%d) %d(%s)", static_cast<int>(pwId),
                   static_cast<int>(code), frame::codeText(code));
        return;
    }
    if (platform.pwStats.bodyKind == PW_PM_GENERIC) {
        fillPweGenPm(&record.pwe.body, &platform.pwStats.body);
    } else if (platform.pwStats.bodyKind == PW_PM_ATM) {
        fillPweAtmPm(&record.pwe.body, &platform.pwStats.body);
    } else {
        REPORT_LOG("Unknown PWE type %d", static_cast<int>(platform.pwStats.bodyKind));
        return;
    }
    callback(&record);
}

void Report::groups()
{
    for (uint32_t groupId = 1; groupId <= GetObjectCount(OBJ_IMA_GROUP); ++groupId) {
        if (groupId > GROUPS_MAX) {
            REPORT_LOG("more than %d IMA groups, the others are left out",
                       static_cast<int>(GROUPS_MAX));
            break;
        }
        group(groupId);
    }
}

void Report::group(uint32_t groupId)
{
    frame::clear(&record, sizeof record);
    record.objType = VEXO_OBJ_TYPE_IMA;
    record.ima.interval = cmiInterval;
    const imaParams &params = platform.ima;
    kvRc code = config_get_ima_params(&platform.ima, groupId);
    if (code == KV_NOT_PROVISIONED)
        return;
    if (code != KV_OK) {
        REPORT_LOG("config_get_ima_params failed(%d) (%s)", static_cast<int>(groupId),
                   frame::codeText(code));
        return;
    }
    record.ima.groupId = groupId;
    imaGroupPmStat stat;
    code = pmom_ima_group_pm_stat_get(groupId, interval, frame::PM_OF_REPORT, &stat);
    if (code == KV_NO_COUNTERS)
        return;
    if (code != KV_OK) {
        REPORT_LOG("pmom_ima_group_pm_stat_get failed(%d, %d) (%s)", static_cast<int>(groupId),
                   static_cast<int>(interval), frame::codeText(code));
        return;
    }
    fillImaGroupPm(&stat, &record.ima.group);
    if (params.linkCount > IMA_LINK_MAX)
        REPORT_LOG("IMA group %d has %u links, only the first %d are reported",
                   static_cast<int>(groupId), params.linkCount, static_cast<int>(IMA_LINK_MAX));
    const auto links = linksOf(params);
    record.ima.group.linkCount = static_cast<uint32_t>(links.size());
    vexoImaLinkPm *linkPm = record.ima.group.links;
    for (const imaLinkEntry &entry : links)
        link(entry.linkId, *linkPm++);
    callback(&record);
}

void Report::link(uint32_t linkId, vexoImaLinkPm &pm)
{
    imaLinkPmStat stat;
    const kvRc code = pmom_ima_link_pm_stat_get(linkId, interval, frame::PM_OF_REPORT, &stat);
    if (code == KV_OK)
        fillImaLinkPm(&stat, linkId, &pm);
    else if (code != KV_NO_COUNTERS)
        REPORT_LOG("pmom_ima_link_pm_stat_get failed(%d, %d) (%s)", static_cast<int>(linkId),
                   static_cast<int>(interval), frame::codeText(code));
}

} // namespace

static void *thread_pm_notification_handler(void *)
{
    notify::serve<PmService>();
    return nullptr;
}

static void pm_notification_handler(pmInterval interval)
{
    const vexoPmCallback callback = glPmCallback.load();
    if (!callback)
        return;
    Report report{callback, interval};
    report.ports();
    report.pseudowires();
    report.groups();
}

void vexo_cmi_pm_callback_register(vexoPmCallback callback)
{
    notify::registerCallback<PmService>(callback);
}

void vexo_cmi_pm_callback_unregister(void)
{
    notify::unregisterCallback<PmService>();
}
