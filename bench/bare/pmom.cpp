// libkv_pmom.
#include "bare.h"
#include "channel.h"

#include <cstdlib>

using bare::answer;
using bare::copy;

// Port 2 has the line counters in their other arrangement; of the pseudowires, 3 and 4 of every
// four have ATM counters.
static pdhPmStat portPm[17]{{}, {}, {{}, 1, {}, {}}};
static constexpr pwPmStats PW_PM[] = {{{}, PW_PM_ATM, {}}, {{}, PW_PM_GENERIC, {}}};
static pwOmStats pwOm;
static imaGroupPmStat groupPm[10];
static imaLinkPmStat linkPm[65];
static imaGroupOmStat groupOm;
static imaLinkOmStat linkOm;
static sysOmStat sysOm;
static bare::Channel<pmInterval, void (*)(pmInterval)> channel;

kvRc pmom_pdh_pm_stat_get(uint32_t port, pmInterval, uint32_t, pdhPmStat *out)
{
    return copy(out, &portPm[port]);
}

kvRc pmom_pdh_pm_stat_clear(uint32_t, pmInterval, uint32_t)
{
    return answer();
}

kvRc pmom_pw_pm_stat_get(uint32_t pwId, pmInterval, uint32_t, pwPmStats *out)
{
    return copy(out, &PW_PM[(pwId - 1) % 4 < 2]);
}

kvRc pmom_pw_pm_stat_clear(uint32_t, pmInterval, uint32_t)
{
    return answer();
}

kvRc pmom_pw_om_stat_get(uint32_t, pwOmStats *out)
{
    return copy(out, &pwOm);
}

kvRc pmom_pw_om_stat_clear(uint32_t)
{
    return answer();
}

kvRc pmom_ima_group_pm_stat_get(uint32_t group, pmInterval, uint32_t, imaGroupPmStat *out)
{
    return copy(out, &groupPm[group]);
}

kvRc pmom_ima_group_pm_stat_clear(uint32_t, pmInterval, uint32_t)
{
    return answer();
}

kvRc pmom_ima_link_pm_stat_get(uint32_t link, pmInterval, uint32_t, imaLinkPmStat *out)
{
    return copy(out, &linkPm[link]);
}

kvRc pmom_ima_link_pm_stat_clear(uint32_t, pmInterval, uint32_t)
{
    return answer();
}

kvRc pmom_ima_group_om_stat_get(uint32_t, imaGroupOmStat *out)
{
    return copy(out, &groupOm);
}

kvRc pmom_ima_group_om_stat_clear(uint32_t)
{
    return answer();
}

kvRc pmom_ima_link_om_stat_get(uint32_t, imaLinkOmStat *out)
{
    return copy(out, &linkOm);
}

kvRc pmom_ima_link_om_stat_clear(uint32_t)
{
    return answer();
}

kvRc pmom_sys_om_stat_get(sysOmStat *out, uint32_t)
{
    return copy(out, &sysOm);
}

int pmom_notification_sock(void)
{
    return channel.descriptor();
}

kvRc pmom_subscribe(void (*handler)(pmInterval interval))
{
    channel.subscribe(handler);
    return answer();
}

kvRc pmom_process_notification(void)
{
    pmInterval interval;
    if (!channel.take(interval))
        return KV_FAILURE;
    channel.handler()(interval);
    return KV_OK;
}

kvRc pmom_unsubscribe(void)
{
    channel.unsubscribe();
    return answer();
}

void barePmSend(pmInterval interval)
{
    if (!channel.send(interval))
        abort();
}

void barePmDeliver(pmInterval interval)
{
    channel.handler()(interval);
}

int barePmSubscribed(void)
{
    return channel.subscribed();
}
