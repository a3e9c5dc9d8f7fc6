// libkv_pmom.
#include "entry.h"
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

kvRc pmom_pdh_pm_stat_get(uint32_t port, pmInterval interval, uint32_t which, pdhPmStat *out)
{
    return getter(Function::pmom_pdh_pm_stat_get, {port, interval, which}, out,
                  [=](Transaction &device) -> kvRc {
                      const Port *found = portOf(device, port);
                      return found ? readPm(*device, found->pm, interval, which, freshPdhPm(port),
                                            out)
                                   : failureCode();
                  });
}

kvRc pmom_pdh_pm_stat_clear(uint32_t port, pmInterval interval, uint32_t which)
{
    return action(Function::pmom_pdh_pm_stat_clear, {port, interval, which},
                  [=](Transaction &device) -> kvRc {
                      Port *found = portOf(device, port);
                      return found ? clearPm(device, found->pm, interval, freshPdhPm(port))
                                   : failureCode();
                  });
}

kvRc pmom_pw_pm_stat_get(uint32_t pwId, pmInterval interval, uint32_t which, pwPmStats *out)
{
    return getter(Function::pmom_pw_pm_stat_get, {pwId, interval, which}, out,
                  [=](Transaction &device) -> kvRc {
                      const Pw *pw = pwOf(device, pwId);
                      return pw ? readPm(*device, pw->pm, interval, which,
                                         freshPwPm(pw->config.pweType), out)
                                : failureCode();
                  });
}

kvRc pmom_pw_pm_stat_clear(uint32_t pwId, pmInterval interval, uint32_t which)
{
    return action(Function::pmom_pw_pm_stat_clear, {pwId, interval, which},
                  [=](Transaction &device) -> kvRc {
                      Pw *pw = pwOf(device, pwId);
                      return pw ? clearPm(device, pw->pm, interval, freshPwPm(pw->config.pweType))
                                : failureCode();
                  });
}

kvRc pmom_pw_om_stat_get(uint32_t pwId, pwOmStats *out)
{
    return getter(Function::pmom_pw_om_stat_get, {pwId}, out, [=](Transaction &device) -> kvRc {
        const Pw *pw = pwOf(device, pwId);
        if (!pw)
            return failureCode();
        *out = pw->om;
        for (uint32_t i = 0; i < pw->config.atmXcCount && i < PW_ATM_XC_MAX; ++i) {
            const pwAtmXc &xc = pw->config.atmXc[i];
            out->entries[i].words[0] = xc.xcId1;
            out->entries[i].words[1] = xc.xcId2;
        }
        return KV_OK;
    });
}

kvRc pmom_pw_om_stat_clear(uint32_t pwId)
{
    return action(Function::pmom_pw_om_stat_clear, {pwId}, [=](Transaction &device) -> kvRc {
        Pw *pw = pwOf(device, pwId);
        if (!pw)
            return failureCode();
        device.modify(pw->om) = {};
        return KV_OK;
    });
}

kvRc pmom_ima_group_pm_stat_get(uint32_t group, pmInterval interval, uint32_t which,
                                imaGroupPmStat *out)
{
    return getter(Function::pmom_ima_group_pm_stat_get, {group, interval, which}, out,
                  [=](Transaction &device) -> kvRc {
                      const Group *found = groupOf(device, group);
                      return found
                                 ? readPm(*device, found->pm, interval, which, freshGroupPm(), out)
                                 : failureCode();
                  });
}

kvRc pmom_ima_group_pm_stat_clear(uint32_t group, pmInterval interval, uint32_t which)
{
    return action(Function::pmom_ima_group_pm_stat_clear, {group, interval, which},
                  [=](Transaction &device) -> kvRc {
                      Group *found = groupOf(device, group);
                      return found ? clearPm(device, found->pm, interval, freshGroupPm())
                                   : failureCode();
                  });
}

kvRc pmom_ima_link_pm_stat_get(uint32_t link, pmInterval interval, uint32_t which,
                               imaLinkPmStat *out)
{
    return getter(Function::pmom_ima_link_pm_stat_get, {link, interval, which}, out,
                  [=](Transaction &device) -> kvRc {
                      const Link *found = memberOf(device, link);
                      return found ? readPm(*device, found->pm, interval, which, freshLinkPm(), out)
                                   : failureCode();
                  });
}

kvRc pmom_ima_link_pm_stat_clear(uint32_t link, pmInterval interval, uint32_t which)
{
    return action(Function::pmom_ima_link_pm_stat_clear, {link, interval, which},
                  [=](Transaction &device) -> kvRc {
                      Link *found = memberOf(device, link);
                      return found ? clearPm(device, found->pm, interval, freshLinkPm())
                                   : failureCode();
                  });
}

kvRc pmom_ima_group_om_stat_get(uint32_t group, imaGroupOmStat *out)
{
    return getter(Function::pmom_ima_group_om_stat_get, {group}, out,
                  [=](Transaction &device) -> kvRc {
                      const Group *found = groupOf(device, group);
                      if (!found)
                          return failureCode();
                      *out = found->om;
                      return KV_OK;
                  });
}

kvRc pmom_ima_group_om_stat_clear(uint32_t group)
{
    return action(Function::pmom_ima_group_om_stat_clear, {group},
                  [=](Transaction &device) -> kvRc {
                      Group *found = groupOf(device, group);
                      if (!found)
                          return failureCode();
                      device.modify(found->om) = {};
                      return KV_OK;
                  });
}

kvRc pmom_ima_link_om_stat_get(uint32_t link, imaLinkOmStat *out)
{
    return getter(Function::pmom_ima_link_om_stat_get, {link}, out,
                  [=](Transaction &device) -> kvRc {
                      const Link *found = memberOf(device, link);
                      if (!found)
                          return failureCode();
                      *out = found->om;
                      return KV_OK;
                  });
}

kvRc pmom_ima_link_om_stat_clear(uint32_t link)
{
    return action(Function::pmom_ima_link_om_stat_clear, {link}, [=](Transaction &device) -> kvRc {
        Link *found = memberOf(device, link);
        if (!found)
            return failureCode();
        device.modify(found->om) = {};
        return KV_OK;
    });
}

kvRc pmom_sys_om_stat_get(sysOmStat *out, uint32_t clear)
{
    return getter(Function::pmom_sys_om_stat_get, {clear}, out, [=](Transaction &device) {
        *out = device->system.om;
        if (clear)
            device.modify(device->system.om) = {};
        return KV_OK;
    });
}

int pmom_notification_sock(void)
{
    Call entry{Function::pmom_notification_sock, {}};
    return entry.enter() ? subscription.descriptor() : -1;
}

kvRc pmom_subscribe(void (*handler)(pmInterval interval))
{
    return action(Function::pmom_subscribe, {}, [=](Transaction &device) {
        subscribed = handler;
        return subscription.subscribe(device);
    });
}

kvRc pmom_process_notification(void)
{
    return action(Function::pmom_process_notification, {}, [](Transaction &device) {
        subscription.handOver(device, [handler = subscribed](const alarmEvent &event) {
            handler(static_cast<pmInterval>(event.objType));
        });
        return device ? KV_OK : failureCode();
    });
}

kvRc pmom_unsubscribe(void)
{
    return action(Function::pmom_unsubscribe, {}, [](Transaction &device) {
        subscription.unsubscribe(device);
        return KV_OK;
    });
}
