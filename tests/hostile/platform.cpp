#include "platform.h"

#include "chance.h"
#include "guarded.h"

#include <kv_alarm.h>
#include <kv_common.h>
#include <kv_config.h>
#include <kv_forker.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>

#include <climits>
#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

namespace hostile
{

namespace
{

std::atomic<uint64_t> currentSeed, currentRound;

void complain(const char *about)
{
    complaint = about;
    ++complaints;
}

// ---- Answers ----

kvRc code()
{
    ++calls();
    if (willing || !chance().fails())
        return KV_OK;
    switch (chance().below(4)) {
    case 0:
        return KV_NO_COUNTERS;
    case 1:
        return KV_NOT_PROVISIONED;
    default:
        return chance().word();
    }
}

template <class Record>
kvRc give(Record *out)
{
    chance().fill(out, sizeof *out);
    return code();
}

template <class Record>
kvRc take(const Record *in)
{
    Record copy;
    memcpy(&copy, in, sizeof copy);
    return code();
}

// As many bytes of a text as the library may look at: a message less its terminator.
constexpr uint32_t TEXT_READ = 127;

struct Texts {
    Guarded terminated, unterminated;

    Texts()
    {
        for (const Guarded *page : {&terminated, &unterminated})
            for (uint8_t *at = page->begin(); at < page->end(); ++at)
                *at = static_cast<uint8_t>(1 + (at - page->begin()) % 255);
        terminated.end()[-1] = '\0';
    }
};

const char *text()
{
    static const Texts texts;
    ++calls();
    uint8_t *start = nullptr;
    switch (chance().below(3)) {
    case 0:
        start = texts.terminated.end() - 1 - chance().below(300);
        break;
    case 1:
        start = texts.unterminated.end() - TEXT_READ;
        break;
    }
    return reinterpret_cast<const char *>(start);
}

// ---- Notifications ----

struct Descriptors {
    int first = -1, second = -1;

    ~Descriptors() { closeAll(); }

    void closeAll()
    {
        for (int *descriptor : {&first, &second}) {
            if (*descriptor >= 0)
                close(*descriptor);
            *descriptor = -1;
        }
    }

    int open()
    {
        constexpr int IMPOSSIBLE[] = {-1, INT_MIN, FD_SETSIZE, INT_MAX};
        closeAll();
        int ends[2];
        switch (chance().below(6)) {
        case 0: // ready without end
            return first = eventfd(1, EFD_CLOEXEC);
        case 1:
            return first = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
        case 2: // never ready
            if (pipe2(ends, O_CLOEXEC) != 0)
                return -1;
            first = ends[0];
            second = ends[1];
            return first;
        case 3: // ready, with nothing behind it
            if (pipe2(ends, O_CLOEXEC) != 0)
                return -1;
            close(ends[1]);
            return first = ends[0];
        case 4: { // closed
            const int gone = eventfd(1, EFD_CLOEXEC);
            close(gone);
            return gone;
        }
        default:
            return IMPOSSIBLE[chance().below(4)];
        }
    }
};

thread_local Descriptors descriptors;

// The first of the platform's calls on a service's thread.
int sock(uint64_t service)
{
    chance().start(currentSeed ^ service, currentRound);
    ++calls();
    return descriptors.open();
}

using AlarmHandler = void (*)(const alarmEvent *);
using PmHandler = void (*)(pmInterval);
thread_local AlarmHandler alarmHandler;
thread_local PmHandler pmHandler;

void notifyAlarms()
{
    constexpr uint32_t TYPES[] = {OBJ_SYSTEM, OBJ_PDH, OBJ_IMA_GROUP, OBJ_PWE, OBJ_IMA_LINK};
    for (uint32_t left = chance().below(4); alarmHandler && left > 0; --left) {
        alarmEvent event;
        chance().fill(&event, sizeof event);
        if (chance().one(2))
            event.objType = objType{TYPES[chance().below(5)]};
        alarmHandler(&event);
    }
}

void notifyPm()
{
    for (uint32_t left = willing ? 1 : chance().below(3); pmHandler && left > 0; --left)
        pmHandler(pmInterval{chance().word()});
}

kvRc process(void (*notifyAll)())
{
    if (willing)
        return KV_OK;
    notifyAll();
    if (chance().one(16))
        descriptors.closeAll();
    return code();
}

kvRc unsubscribe(void (*notifyAll)())
{
    if (!willing)
        notifyAll();
    descriptors.closeAll();
    return code();
}

} // namespace

void start(uint64_t seed, uint64_t round)
{
    currentSeed = seed;
    currentRound = round;
    chance().start(seed, round);
}

uint64_t &calls()
{
    thread_local uint64_t count;
    return count;
}

bool hasTheClock()
{
    return dlsym(RTLD_DEFAULT, "settimeofday") == reinterpret_cast<void *>(&settimeofday) &&
           dlsym(RTLD_NEXT, "settimeofday") != reinterpret_cast<void *>(&settimeofday);
}

} // namespace hostile

using namespace hostile;

// The functions by what they do: fill `out`, look at `in`, or neither.
#define GIVE(name, ...)                                                                            \
    kvRc name(__VA_ARGS__)                                                                         \
    {                                                                                              \
        return give(out);                                                                          \
    }
#define TAKE(name, ...)                                                                            \
    kvRc name(__VA_ARGS__)                                                                         \
    {                                                                                              \
        return take(in);                                                                           \
    }
#define ANSWER(name, ...)                                                                          \
    kvRc name(__VA_ARGS__)                                                                         \
    {                                                                                              \
        return code();                                                                             \
    }

extern "C" {

int settimeofday(const timeval *in, const struct timezone *)
{
    return take(in) == KV_OK ? 0 : -1;
}

int gettimeofday(timeval *out, void *) noexcept
{
    *out = {static_cast<time_t>(chance().word()), static_cast<suseconds_t>(chance().word())};
    return code() == KV_OK ? 0 : -1;
}

int gorvGetVersion(char *buffer, int size)
{
    chance().fill(buffer, static_cast<size_t>(size));
    return static_cast<int>(code());
}

const char *config_get_error_string(void)
{
    return text();
}
const char *config_pwe_srv_type_to_string(pweType)
{
    return text();
}
const char *kv_rc_to_string(kvRc)
{
    return text();
}

// Looks at the arguments as the format has them, but not into the texts: these are the platform's
// own, and it knows what they are.
int kv_log(int, int, const char *file, const char *function, int, const char *format, ...)
{
    if (!file || !function)
        complain("a log record of no file or no function");
    va_list arguments;
    va_start(arguments, format);
    for (const char *at = strchr(format, '%'); at; at = strchr(at + 1, '%')) {
        if (at[1] == 's') {
            if (!va_arg(arguments, const char *))
                complain("a null text in the log");
        } else {
            va_arg(arguments, int);
        }
    }
    va_end(arguments);
    return static_cast<int>(code());
}
ANSWER(kv_log_clear)

kvRc config_set_pwe_src_mac_addr(const unsigned char *mac)
{
    unsigned char copy[6];
    memcpy(copy, mac, sizeof copy);
    return code();
}

ANSWER(config_set_system_mode, eqptMode)
GIVE(config_get_system_mode, eqptMode *out)
GIVE(config_get_pwe_if, pweIf *out)
ANSWER(config_system_tpid_set, unsigned short)
GIVE(config_get_system_params, sysParams *out)
TAKE(config_set_pwe_src_ip_addr, const unsigned *in)
TAKE(config_set_pwe_lops_threshold, const lopsThreshold *in)
TAKE(config_set_clk_out, const clkOut *in)
ANSWER(config_set_psn_net_type, psnNetType)
TAKE(config_set_temperature_thr, const temperatureThr *in)
GIVE(config_get_temperature, unsigned *out)
GIVE(config_get_sys_status, sysStatus *out)
GIVE(config_get_sys_version, swVersion *out)

GIVE(config_get_pdh_params, pdhParams *out, uint32_t)
TAKE(config_set_pdh_params, const pdhParams *in, uint32_t)
GIVE(config_get_pdh_admin, adminStatus *out, uint32_t)
ANSWER(config_set_pdh_admin, adminStatus, uint32_t)
GIVE(config_get_pdh_oper_state, operState *out, uint32_t)
GIVE(config_get_pdh_lpbk, pdhLpbk *out, uint32_t)
TAKE(config_set_pdh_lpbk, const pdhLpbk *in, uint32_t)

GIVE(config_get_pw, pwConfig *out, uint32_t)
kvRc config_get_pw_defaults(pwConfig *out, const pwDefaultsKey *key, uint32_t)
{
    take(key);
    return give(out);
}
TAKE(config_add_pw, const pwConfig *in, uint32_t)
TAKE(config_set_pw, const pwConfig *in, uint32_t)
ANSWER(config_del_pw, uint32_t)
GIVE(config_get_pw_oper_state, operState *out, uint32_t)
ANSWER(config_set_pw_admin, adminStatus, uint32_t)
GIVE(config_get_pw_admin, adminStatus *out, uint32_t)
ANSWER(config_set_pw_jitter_size, uint32_t, uint32_t)
ANSWER(config_set_pw_ais, uint32_t, uint32_t)
TAKE(config_add_pw_atm_xc, const pwAtmXc *in, uint32_t)
TAKE(config_del_pw_atm_xc, const pwAtmXc *in, uint32_t)
GIVE(config_get_pw_all_prov, pwProvList *out)

GIVE(config_get_ima_params, imaParams *out, uint32_t)
TAKE(config_set_ima_params, const imaParams *in, uint32_t)
TAKE(config_add_ima, const imaParams *in, uint32_t)
ANSWER(config_del_ima, uint32_t)
ANSWER(config_add_ima_link, uint32_t, uint32_t)
ANSWER(config_del_ima_link, uint32_t, uint32_t)

GIVE(config_get_sys_link_status, sysLinkStatus *out)
GIVE(config_get_peer_server_params, peerServer *out)
TAKE(config_set_debug_info_params, const debugInfo *in)
GIVE(config_get_debug_info_params, debugInfo *out)
TAKE(config_set_sys_lpbk, const sysLpbk *in)
GIVE(config_get_sys_lpbk, sysLpbk *out)
TAKE(config_init_tpgm, const tpgmSetup *in)
GIVE(config_get_tpgm_status, tpgmStatus *out)
ANSWER(config_clear_tpgm_status, uint32_t)

uint32_t GetObjectCount(objType)
{
    ++calls();
    return objects ? objects.load() : chance().below(32);
}

ANSWER(forker_box_shutdown)

TAKE(upgrade_load, const upgradeRequest *in)
GIVE(upgrade_status_get, uint32_t, upgradeStatus *out)

GIVE(pmom_pdh_pm_stat_get, uint32_t, pmInterval, uint32_t, pdhPmStat *out)
ANSWER(pmom_pdh_pm_stat_clear, uint32_t, pmInterval, uint32_t)
GIVE(pmom_pw_pm_stat_get, uint32_t, pmInterval, uint32_t, pwPmStats *out)
ANSWER(pmom_pw_pm_stat_clear, uint32_t, pmInterval, uint32_t)
GIVE(pmom_pw_om_stat_get, uint32_t, pwOmStats *out)
ANSWER(pmom_pw_om_stat_clear, uint32_t)
GIVE(pmom_ima_group_pm_stat_get, uint32_t, pmInterval, uint32_t, imaGroupPmStat *out)
ANSWER(pmom_ima_group_pm_stat_clear, uint32_t, pmInterval, uint32_t)
GIVE(pmom_ima_link_pm_stat_get, uint32_t, pmInterval, uint32_t, imaLinkPmStat *out)
ANSWER(pmom_ima_link_pm_stat_clear, uint32_t, pmInterval, uint32_t)
GIVE(pmom_ima_group_om_stat_get, uint32_t, imaGroupOmStat *out)
ANSWER(pmom_ima_group_om_stat_clear, uint32_t)
GIVE(pmom_ima_link_om_stat_get, uint32_t, imaLinkOmStat *out)
ANSWER(pmom_ima_link_om_stat_clear, uint32_t)
GIVE(pmom_sys_om_stat_get, sysOmStat *out, uint32_t)

GIVE(alarm_get_active_bits, objType, uint32_t, uint32_t *out)
ANSWER(alarm_set_status_bits, objType, uint32_t, uint32_t)
ANSWER(alarm_set_notification, alarmMode, uint32_t)
kvRc alarm_get_notification(alarmMode *mode, uint32_t *value)
{
    give(mode);
    return give(value);
}
ANSWER(alarm_raise_alarm, objType, uint32_t, uint32_t, uint32_t)

int alarm_notification_sock(void)
{
    return sock(1);
}
kvRc alarm_subscribe(uint32_t, uint32_t, AlarmHandler handler)
{
    alarmHandler = handler;
    notifyAlarms();
    return code();
}
kvRc alarm_process_notification(void)
{
    return process(notifyAlarms);
}
kvRc alarm_unsubscribe(void)
{
    return unsubscribe(notifyAlarms);
}

int pmom_notification_sock(void)
{
    return sock(2);
}
kvRc pmom_subscribe(PmHandler handler)
{
    pmHandler = handler;
    notifyPm();
    return code();
}
kvRc pmom_process_notification(void)
{
    return process(notifyPm);
}
kvRc pmom_unsubscribe(void)
{
    return unsubscribe(notifyPm);
}

} // extern "C"
