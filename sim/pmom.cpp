// libkv_pmom.
#include "bodies.h"
#include "notification.h"
#include "objects.h"
#include "pm.h"

#include <pthread.h>

using namespace sim;

namespace
{

Subscription subscription{Service::pm};
void (*subscribed)(pmInterval);

struct Lifetime {
    Lifetime()
    {
        pthread_atfork(nullptr, nullptr, [] { subscription.close(); });
    }
    ~Lifetime() { subscription.close(); }
} lifetime;

// A link counts only in a group.
Link *memberOf(Transaction &device, uint32_t number)
{
    Link *link = linkOf(device, number);
    if (!link || link->group)
        return link;
    fail(KV_NOT_PROVISIONED, "IMA link %u is in no group", number);
    return nullptr;
}

} // namespace

kvRc body::pmom_pdh_pm_stat_get(Transaction &device, uint32_t port, pmInterval interval,
                                uint32_t which, pdhPmStat *stat)
{
    const Port *found = portOf(device, port);
    return found ? readPm(*device, found->pm, interval, which, freshPdhPm(port), stat)
                 : failureCode();
}

kvRc body::pmom_pdh_pm_stat_clear(Transaction &device, uint32_t port, pmInterval interval, uint32_t)
{
    Port *found = portOf(device, port);
    return found ? clearPm(device, found->pm, interval, freshPdhPm(port)) : failureCode();
}

kvRc body::pmom_pw_pm_stat_get(Transaction &device, uint32_t pwId, pmInterval interval,
                               uint32_t which, pwPmStats *stats)
{
    const Pw *found = pwOf(device, pwId);
    return found ? readPm(*device, found->pm, interval, which, freshPwPm(found->config.pweType),
                          stats)
                 : failureCode();
}

kvRc body::pmom_pw_pm_stat_clear(Transaction &device, uint32_t pwId, pmInterval interval, uint32_t)
{
    Pw *found = pwOf(device, pwId);
    return found ? clearPm(device, found->pm, interval, freshPwPm(found->config.pweType))
                 : failureCode();
}

kvRc body::pmom_pw_om_stat_get(Transaction &device, uint32_t pwId, pwOmStats *stats)
{
    const Pw *found = pwOf(device, pwId);
    if (!found)
        return failureCode();
    *stats = found->om;
    for (uint32_t i = 0; i < found->config.atmXcCount && i < PW_ATM_XC_MAX; ++i) {
        const pwAtmXc &xc = found->config.atmXc[i];
        stats->entries[i].words[0] = xc.xcId1;
        stats->entries[i].words[1] = xc.xcId2;
    }
    return KV_OK;
}

kvRc body::pmom_pw_om_stat_clear(Transaction &device, uint32_t pwId)
{
    Pw *found = pwOf(device, pwId);
    return found ? store(device, found->om, {}) : failureCode();
}

kvRc body::pmom_ima_group_pm_stat_get(Transaction &device, uint32_t group, pmInterval interval,
                                      uint32_t which, imaGroupPmStat *stat)
{
    const Group *found = groupOf(device, group);
    return found ? readPm(*device, found->pm, interval, which, freshGroupPm(), stat)
                 : failureCode();
}

kvRc body::pmom_ima_group_pm_stat_clear(Transaction &device, uint32_t group, pmInterval interval,
                                        uint32_t)
{
    Group *found = groupOf(device, group);
    return found ? clearPm(device, found->pm, interval, freshGroupPm()) : failureCode();
}

kvRc body::pmom_ima_link_pm_stat_get(Transaction &device, uint32_t link, pmInterval interval,
                                     uint32_t which, imaLinkPmStat *stat)
{
    const Link *found = memberOf(device, link);
    return found ? readPm(*device, found->pm, interval, which, freshLinkPm(), stat) : failureCode();
}

kvRc body::pmom_ima_link_pm_stat_clear(Transaction &device, uint32_t link, pmInterval interval,
                                       uint32_t)
{
    Link *found = memberOf(device, link);
    return found ? clearPm(device, found->pm, interval, freshLinkPm()) : failureCode();
}

kvRc body::pmom_ima_group_om_stat_get(Transaction &device, uint32_t group, imaGroupOmStat *stat)
{
    const Group *found = groupOf(device, group);
    return found ? answer(stat, found->om) : failureCode();
}

kvRc body::pmom_ima_group_om_stat_clear(Transaction &device, uint32_t group)
{
    Group *found = groupOf(device, group);
    return found ? store(device, found->om, {}) : failureCode();
}

kvRc body::pmom_ima_link_om_stat_get(Transaction &device, uint32_t link, imaLinkOmStat *stat)
{
    const Link *found = memberOf(device, link);
    return found ? answer(stat, found->om) : failureCode();
}

kvRc body::pmom_ima_link_om_stat_clear(Transaction &device, uint32_t link)
{
    Link *found = memberOf(device, link);
    return found ? store(device, found->om, {}) : failureCode();
}

kvRc body::pmom_sys_om_stat_get(Transaction &device, sysOmStat *stat, uint32_t clear)
{
    *stat = device->system.om;
    return clear ? store(device, device->system.om, {}) : KV_OK;
}

int body::pmom_notification_sock(Transaction &)
{
    return subscription.descriptor();
}

kvRc body::pmom_subscribe(Transaction &device, void (*handler)(pmInterval interval))
{
    subscribed = handler;
    return subscription.subscribe(device);
}

kvRc body::pmom_process_notification(Transaction &device)
{
    return subscription.handOver(device, [handler = subscribed](const alarmEvent &event) {
        handler(static_cast<pmInterval>(event.objType));
    });
}

kvRc body::pmom_unsubscribe(Transaction &device)
{
    subscription.unsubscribe(device);
    return KV_OK;
}
