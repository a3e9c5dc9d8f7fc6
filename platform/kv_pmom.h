// libkv_pmom: PM and OM counters of the device, as far as the library uses them.
#ifndef KV_PMOM_H
#define KV_PMOM_H

#include "kv_types.h"

struct pdhPmStat {
    uint32_t platform0[7];
    uint32_t layoutType;
    uint32_t line[13];
    uint32_t common[5];
};

struct pwGenCounters {
    uint32_t counters[13];
    uint32_t flag;
};

struct pwAtmCounters {
    uint32_t counters[4];
    uint32_t flag;
};

union pwPmCounters {
    pwGenCounters generic;
    pwAtmCounters atm;
};

constexpr uint32_t PW_PM_GENERIC = 0;
constexpr uint32_t PW_PM_ATM = 1;

struct pwPmStats {
    uint32_t platform0[7];
    uint32_t bodyKind;
    pwPmCounters body;
};

struct pwOmEntry {
    uint32_t words[2];
    kvCounter counters[2];
};

struct pwOmStats {
    kvCounter counters[5];
    pwOmEntry entries[20];
};

struct imaGroupPmStat {
    uint32_t platform0[7];
    uint32_t counters[3];
    uint32_t flag;
    uint32_t platform44[2];
};

struct imaLinkPmStat {
    uint32_t platform0[7];
    uint32_t counters[16];
    uint32_t flag;
    uint32_t platform96;
};

struct imaGroupOmStat {
    kvCounter counters[2];
    uint32_t platform16;
};

struct imaLinkOmStat {
    kvCounter counters[8];
    uint32_t platform64;
};

struct sysOmStat {
    uint32_t words[74];
};

extern "C" {

// The third argument of the PM calls is a constant of the platform's: 0 for an operation, 1 in a
// PM report.
kvRc pmom_pdh_pm_stat_get(uint32_t port, pmInterval interval, uint32_t which, pdhPmStat *stat);
kvRc pmom_pdh_pm_stat_clear(uint32_t port, pmInterval interval, uint32_t which);
kvRc pmom_pw_pm_stat_get(uint32_t pwId, pmInterval interval, uint32_t which, pwPmStats *stats);
kvRc pmom_pw_pm_stat_clear(uint32_t pwId, pmInterval interval, uint32_t which);
kvRc pmom_pw_om_stat_get(uint32_t pwId, pwOmStats *stats);
kvRc pmom_pw_om_stat_clear(uint32_t pwId);
kvRc pmom_ima_group_pm_stat_get(uint32_t group, pmInterval interval, uint32_t which,
                                imaGroupPmStat *stat);
kvRc pmom_ima_group_pm_stat_clear(uint32_t group, pmInterval interval, uint32_t which);
kvRc pmom_ima_link_pm_stat_get(uint32_t link, pmInterval interval, uint32_t which,
                               imaLinkPmStat *stat);
kvRc pmom_ima_link_pm_stat_clear(uint32_t link, pmInterval interval, uint32_t which);
kvRc pmom_ima_group_om_stat_get(uint32_t group, imaGroupOmStat *stat);
kvRc pmom_ima_group_om_stat_clear(uint32_t group);
kvRc pmom_ima_link_om_stat_get(uint32_t link, imaLinkOmStat *stat);
kvRc pmom_ima_link_om_stat_clear(uint32_t link);
kvRc pmom_sys_om_stat_get(sysOmStat *stat, uint32_t clear);

// Readable when a PM notification for this process is pending.
int pmom_notification_sock(void);
kvRc pmom_subscribe(void (*handler)(pmInterval interval));
// Calls the handler with the interval that ended, on the calling thread.
kvRc pmom_process_notification(void);
kvRc pmom_unsubscribe(void);
}

#endif
