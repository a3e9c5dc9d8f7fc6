// Control of the simulated device.
#include "control.h"

#include "clock.h"
#include "counters.h"
#include "fault.h"
#include "growth.h"
#include "notification.h"
#include "objects.h"
#include "restart.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>

using namespace sim;
using describe::platform::FUNCTION_COUNT;
using describe::platform::functions;

namespace
{

kvRc clearAlarms(Transaction &device)
{
    kvRc code = KV_OK;
    const auto clear = [&](objType type, uint32_t number, uint32_t &alarms) {
        if (code == KV_OK)
            code = setAlarms(device, type, number, alarms, 0);
    };
    clear(OBJ_SYSTEM, 1, device->system.alarms);
    for (uint32_t i = 0; i < KV_SIM_PORTS; ++i)
        clear(OBJ_PDH, i + 1, device->ports[i].alarms);
    for (uint32_t i = 0; i < KV_SIM_PWS; ++i)
        clear(OBJ_PWE, i + 1, device->pws[i].alarms);
    for (uint32_t i = 0; i < KV_SIM_GROUPS; ++i)
        clear(OBJ_IMA_GROUP, i + 1, device->groups[i].alarms);
    for (uint32_t i = 0; i < KV_SIM_LINKS; ++i)
        clear(OBJ_IMA_LINK, i + 1, device->links[i].alarms);
    return code;
}

kvRc set(const Counter &counter, uint64_t value)
{
    if (!counter)
        return failureCode();
    counter.set(value);
    return KV_OK;
}

template <class Value>
kvRc get(const Counter &counter, Value *value)
{
    if (!counter)
        return failureCode();
    *value = static_cast<Value>(counter.value());
    return KV_OK;
}

kvRc tell(const ArmedFault *armed, kvSimFault *fault)
{
    if (!armed)
        return failureCode();
    *fault = armed->fault;
    fault->function[sizeof fault->function - 1] = '\0';
    fault->operation[sizeof fault->operation - 1] = '\0';
    for (kvSimArgument &wanted : fault->where)
        wanted.name[sizeof wanted.name - 1] = '\0';
    return KV_OK;
}

// Whom the reports are waited for, while the clock is moved.
class Reports
{
  public:
    explicit Reports(bool anyway) : anyway_{anyway}
    {
        if (isHandling(Service::pm))
            passed_.insert(thisProcess());
    }

    // Waits until all have been dealt with; fail()s when a subscriber gets no further.
    kvRc wait()
    {
        constexpr uint64_t PATIENCE = 2000 * MILLISECOND;
        std::map<uint32_t, uint32_t> before;
        for (uint64_t since = hostMonotonic();; sleepMs(1)) {
            const std::map<uint32_t, uint32_t> now = open();
            if (now.empty())
                return KV_OK;
            if (now != before)
                since = hostMonotonic();
            before = now;
            if (hostMonotonic() - since < PATIENCE)
                continue;
            if (!anyway_)
                return fail(WRONG_STATE,
                            "process %u has not dealt with a PM report for 2 seconds, so the clock "
                            "stopped at that interval's end",
                            now.begin()->first);
            for (const auto &[process, count] : now)
                passed_.insert(process);
        }
    }

  private:
    std::map<uint32_t, uint32_t> open() const
    {
        std::map<uint32_t, uint32_t> found;
        Transaction device;
        if (!device)
            return found;
        for (const Backlog &one : backlogs(device, Service::pm))
            if (!passed_.contains(one.process))
                found[one.process] = one.count;
        return found;
    }

    const bool anyway_;
    std::set<uint32_t> passed_; // these are not waited for
};

int advance(uint64_t microseconds, bool anyway)
{
    uint64_t target = 0; // an uptime: the clock may be set meanwhile
    const int begun = control([&](Transaction &device) {
        if (microseconds > CLOCK_END - deviceTime(*device))
            return fail(BAD_VALUE, "the device clock ends with the year 9999");
        target = uptime(*device) + microseconds;
        return KV_OK;
    });
    if (begun != 0)
        return -1;
    Reports reports{anyway};
    for (;;) {
        bool reached = true;
        const int moved = control([&](Transaction &device) {
            const uint64_t now = deviceTime(*device);
            const auto left = static_cast<int64_t>(target - device->clock.seen);
            const uint64_t end = now + static_cast<uint64_t>(std::max<int64_t>(left, 0));
            const uint64_t next = nextUntil(*device, end);
            const uint64_t to = next ? next : end;
            device.modify(device->clock.uptime) += to > now ? to - now : 0;
            reached = next == 0;
            return tick(device);
        });
        if (moved != 0)
            return -1;
        if (reached)
            return 0;
        if (reports.wait() != KV_OK)
            return -1;
    }
}

} // namespace

const char *kv_sim_error(void)
{
    return failureText();
}

int kv_sim_open(void)
{
    return control([](Transaction &) { return KV_OK; });
}

int kv_sim_close(void)
{
    return letGo() ? 0 : -1;
}

uint32_t kv_sim_holder(void)
{
    return holder();
}

int kv_sim_reset(void)
{
    return control([](Transaction &device) {
        kvRc code = endAllFaults(device);
        if (code == KV_OK)
            code = clearAlarms(device);
        if (code != KV_OK)
            return code;
        device.commit();
        factoryReset(*device);
        return KV_OK;
    });
}

uint32_t kv_sim_fault_arm(const kvSimFault *fault)
{
    uint32_t id = 0;
    control([&](Transaction &device) {
        id = arm(device, *fault);
        return id ? KV_OK : failureCode();
    });
    return id;
}

int kv_sim_fault_add(const kvSimFault *fault)
{
    return kv_sim_fault_arm(fault) ? 0 : -1;
}

int kv_sim_fault_clear(void)
{
    return control(endAllFaults);
}

int kv_sim_fault_end(uint32_t id)
{
    return control([=](Transaction &device) { return endFault(device, id); });
}

int kv_sim_fault_release(uint32_t id)
{
    return control([=](Transaction &device) { return releaseFault(device, id); });
}

int kv_sim_fault_get(unsigned index, kvSimFault *fault)
{
    return control([=](Transaction &device) { return tell(armedFault(device, index), fault); });
}

int kv_sim_fault_find(uint32_t id, kvSimFault *fault)
{
    return control([=](Transaction &device) { return tell(faultOf(device, id), fault); });
}

unsigned kv_sim_hanging(void)
{
    Transaction device;
    return device ? device->hanging : 0;
}

const char *kv_sim_function(unsigned index)
{
    return index < FUNCTION_COUNT ? functions()[index].name : nullptr;
}

int kv_sim_argument_get(const char *function, unsigned index, kvSimArgument *argument)
{
    const Function *row = describe::platform::find(function);
    std::vector<std::string> names;
    if (row)
        names = argumentsOf(*row);
    for (const Function &other : functions())
        for (const describe::platform::Argument &own : other.arguments)
            if (!*function && !own.isPointer && std::ranges::find(names, own.name) == names.end())
                names.emplace_back(own.name);
    if (!row && *function)
        fail(BAD_VALUE, "there is no platform function '%s'", function);
    else if (index >= names.size())
        fail(NO_OBJECT, "there are no more numbers");
    if (index >= names.size())
        return -1;
    *argument = {};
    snprintf(argument->name, sizeof argument->name, "%s", names[index].c_str());
    return 0;
}

int kv_sim_reboot(const kvSimReboot *reboot)
{
    return control([=](Transaction &device) {
        if (reboot->clock > CLOCK_END)
            return fail(BAD_VALUE, "the device clock ends with the year 9999");
        restart(device, *reboot, uptime(*device));
        return tick(device);
    });
}

uint32_t kv_sim_away(void)
{
    Transaction device;
    if (!device)
        return 0;
    tick(device);
    const uint64_t until = device->restart.until;
    return until ? static_cast<uint32_t>((until - uptime(*device) + 999) / 1000) : 0;
}

uint64_t kv_sim_clock_get(void)
{
    Transaction device;
    return device ? deviceTime(*device) : 0;
}

int kv_sim_clock_set(uint64_t microseconds)
{
    return control([=](Transaction &device) {
        if (microseconds > CLOCK_END)
            return fail(BAD_VALUE, "the device clock ends with the year 9999");
        return setClock(device, microseconds);
    });
}

int kv_sim_clock_stop(int stopped)
{
    return control([=](Transaction &device) { return stopClock(device, stopped != 0); });
}

int kv_sim_clock_stopped(void)
{
    Transaction device;
    return device && device->clock.stopped;
}

int kv_sim_clock_advance(uint64_t microseconds)
{
    return advance(microseconds, false);
}

int kv_sim_clock_advance_anyway(uint64_t microseconds)
{
    return advance(microseconds, true);
}

int kv_sim_alarm_set(uint32_t type, uint32_t number, uint32_t bits)
{
    return control([=](Transaction &device) {
        uint32_t *alarms = alarmsOf(device, type, number);
        if (!alarms)
            return failureCode();
        return setAlarms(device, type, number, *alarms, bits);
    });
}

int kv_sim_alarm_alter(uint32_t type, uint32_t number, uint32_t bits)
{
    return control([=](Transaction &device) {
        uint32_t *alarms = alarmsOf(device, type, number);
        return alarms ? (device.modify(*alarms) = bits, KV_OK) : failureCode();
    });
}

int kv_sim_alarm_send(uint32_t type, uint32_t number, uint32_t status, uint32_t delta)
{
    return control([=](Transaction &device) {
        return notify(device, Service::alarm, {objType{type}, number, status, delta});
    });
}

int kv_sim_alarm_burst(uint32_t type, uint32_t number, uint32_t status, uint32_t delta,
                       uint32_t count, uint32_t delayMs)
{
    for (uint32_t i = 0; i < count; ++i) {
        if (delayMs)
            sleepMs(delayMs);
        if (kv_sim_alarm_send(type, number, status, delta) != 0)
            return -1;
    }
    return 0;
}

int kv_sim_alarm_get(uint32_t type, uint32_t number, uint32_t *bits)
{
    return control([=](Transaction &device) {
        const uint32_t *alarms = alarmsOf(device, type, number);
        if (!alarms)
            return failureCode();
        *bits = *alarms;
        return KV_OK;
    });
}

int kv_sim_interval_end(uint32_t interval)
{
    return control([=](Transaction &device) {
        if (!isMember(pmInterval{interval}))
            return BAD_VALUE;
        growAll(device, device->clock.seen);
        return endInterval(device, interval);
    });
}

int kv_sim_interval_send(uint32_t interval)
{
    return control([=](Transaction &device) {
        return notify(device, Service::pm, {objType{interval}, 0, 0, 0});
    });
}

int kv_sim_interval_period(uint32_t interval, uint32_t seconds)
{
    return control([=](Transaction &device) {
        if (!isMember(pmInterval{interval}))
            return BAD_VALUE;
        device.modify(device->clock).period[interval - 1] = seconds;
        scheduleIntervals(*device);
        return wake(device, Service::pm);
    });
}

int kv_sim_pm_set(uint32_t type, uint32_t number, uint32_t interval, uint32_t word, uint32_t value)
{
    return control([=](Transaction &device) {
        grow(device, type, number, device->clock.seen);
        return set(pmCounter(device, type, number, interval, word), value);
    });
}

int kv_sim_pm_get(uint32_t type, uint32_t number, uint32_t interval, uint32_t word, uint32_t *value)
{
    return control([=](Transaction &device) {
        grow(device, type, number, device->clock.seen);
        return get(pmCounter(device, type, number, interval, word), value);
    });
}

int kv_sim_om_set(uint32_t type, uint32_t number, uint32_t counter, uint64_t value)
{
    return control([=](Transaction &device) {
        grow(device, type, number, device->clock.seen);
        return set(omCounter(device, type, number, counter), value);
    });
}

int kv_sim_om_get(uint32_t type, uint32_t number, uint32_t counter, uint64_t *value)
{
    return control([=](Transaction &device) {
        grow(device, type, number, device->clock.seen);
        return get(omCounter(device, type, number, counter), value);
    });
}

int kv_sim_rate_set(const kvSimRate *rate)
{
    return control([=](Transaction &device) { return setRate(device, *rate); });
}

int kv_sim_rate_get(unsigned index, kvSimRate *rate)
{
    return control([=](Transaction &device) {
        if (index >= std::min(device->rates.count, RATES))
            return fail(NO_OBJECT, "there is no rate %u", index);
        *rate = device->rates.rates[index];
        return KV_OK;
    });
}

int kv_sim_pending(uint32_t *waiting, uint64_t *lost)
{
    return control([=](Transaction &device) {
        *waiting = 0;
        for (const Service service : {Service::alarm, Service::pm})
            for (const Backlog &one : backlogs(device, service))
                *waiting += one.count;
        *lost = sim::lost(device);
        return KV_OK;
    });
}

int kv_sim_subscription_get(unsigned index, kvSimSubscription *subscription)
{
    return control([=](Transaction &device) {
        unsigned left = index;
        for (const Notifications &all : device->services) {
            for (const Subscriber &subscriber : all.subscribers) {
                if (!isListening(subscriber) || left-- > 0)
                    continue;
                *subscription = {subscriber.process, &all != device->services,
                                 waiting(all, subscriber), lost(all, subscriber)};
                return KV_OK;
            }
        }
        return fail(NO_OBJECT, "there is no subscription %u", index);
    });
}

int kv_sim_subscription_end(uint32_t process, uint32_t services, uint32_t ending)
{
    return control([=](Transaction &device) {
        if (services == 0 || services > (KV_SIM_ALARMS | KV_SIM_REPORTS))
            return fail(BAD_VALUE, "there are no services %u", services);
        if (ending > KV_SIM_HANGUP)
            return fail(BAD_VALUE, "there is no ending %u", ending);
        bool any = process == 0;
        for (const Service service : {Service::alarm, Service::pm})
            if (services & 1U << static_cast<uint32_t>(service))
                any |=
                    endSubscriptions(*device, service, process, static_cast<kvSimEnding>(ending));
        return any ? KV_OK : fail(NO_OBJECT, "process %u has no such subscription", process);
    });
}

int kv_sim_upgrade_fail(uint32_t state)
{
    return control([=](Transaction &device) {
        if (state != 0 && !inRange("upgrade state", state, LOAD_FIRST, LOAD_DONE))
            return BAD_VALUE;
        device.modify(device->upgrade.failState) = state;
        return KV_OK;
    });
}

uint64_t kv_sim_log_last(void)
{
    Transaction device;
    return device ? device->logLast : 0;
}

int kv_sim_log_get(uint64_t number, kvSimLog *record)
{
    return control([=](Transaction &device) {
        const kvSimLog &found = device->log[number % LOG];
        if (number <= device->logCleared || number > device->logLast || found.number != number)
            return fail(NO_OBJECT, "record %llu is not in the log",
                        static_cast<unsigned long long>(number));
        *record = found;
        record->file[sizeof record->file - 1] = '\0';
        record->function[sizeof record->function - 1] = '\0';
        record->text[sizeof record->text - 1] = '\0';
        return KV_OK;
    });
}
