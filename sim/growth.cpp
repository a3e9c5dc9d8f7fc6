#include "growth.h"

#include "behaviour.h"
#include "clock.h"
#include "counters.h"
#include "objects.h"

#include <algorithm>
#include <span>
#include <tuple>

namespace sim
{

namespace
{

constexpr uint32_t LONGEST = 3600000; // in milliseconds: the products below stay within 64 bits

std::span<kvSimRate> all(Transaction &device)
{
    Rates &rates = device->rates;
    return {rates.rates, std::min(rates.count, RATES)};
}

auto objectOf(const kvSimRate &rate)
{
    return std::tuple{rate.type, rate.number};
}

auto counterOf(const kvSimRate &rate)
{
    return std::tuple{rate.type, rate.number, rate.om, rate.counter};
}

// The rates of the object whose rate is the first.
std::span<const kvSimRate> ofFirst(std::span<const kvSimRate> rates)
{
    const auto isOther = [object = objectOf(rates[0])](const kvSimRate &rate) {
        return objectOf(rate) != object;
    };
    return {rates.begin(), std::ranges::find_if(rates, isOther)};
}

// Null when the object doesn't exist. Unlike the look-up for a call this is no failure.
Duty *dutyOf(Transaction &device, uint32_t type, uint32_t number)
{
    const auto among = [number](auto &objects) {
        const bool exists = number >= 1 && number <= std::size(objects);
        return exists ? &objects[number - 1] : nullptr;
    };
    switch (type) {
    case KV_SIM_SYSTEM:
        return &device->system.duty;
    case KV_SIM_PDH: {
        Port *port = among(device->ports);
        return port ? &port->duty : nullptr;
    }
    case KV_SIM_PW: {
        Pw *pw = among(device->pws);
        return pw && pw->provisioned ? &pw->duty : nullptr;
    }
    case KV_SIM_GROUP: {
        Group *group = among(device->groups);
        return group && group->provisioned ? &group->duty : nullptr;
    }
    case KV_SIM_LINK: {
        Link *link = among(device->links);
        return link ? &link->duty : nullptr;
    }
    default:
        return nullptr;
    }
}

// What a counter has grown by in a time of service.
uint64_t grown(const kvSimRate &rate, uint64_t served)
{
    const uint64_t period = std::clamp(rate.milliseconds, 1U, LONGEST) * uint64_t{1000};
    const uint64_t part = rate.burst ? 0 : rate.amount * (served % period) / period;
    return served / period * rate.amount + part;
}

void add(Transaction &device, const kvSimRate &rate, uint64_t amount)
{
    if (amount == 0)
        return;
    const auto addTo = [amount](const Counter &counter) {
        if (counter)
            counter.set(counter.value() + amount);
    };
    if (rate.om)
        return addTo(omCounter(device, rate.type, rate.number, rate.counter));
    for (uint32_t interval = 1; interval <= KV_SIM_INTERVALS; ++interval)
        addTo(pmCounter(device, rate.type, rate.number, interval, rate.counter));
}

void grow(Transaction &device, std::span<const kvSimRate> rates, uint64_t uptime)
{
    Duty *duty = dutyOf(device, rates.front().type, rates.front().number);
    const uint64_t served = duty ? servedUntil(*duty, uptime) : 0;
    if (!duty || served == duty->grown)
        return;
    for (const kvSimRate &rate : rates)
        add(device, rate, grown(rate, served) - grown(rate, duty->grown));
    device.modify(duty->grown) = served;
    device.commit();
}

} // namespace

uint64_t servedUntil(const Duty &duty, uint64_t uptime)
{
    return duty.served + (duty.up && uptime > duty.since ? uptime - duty.since : 0);
}

void grow(Transaction &device, uint32_t type, uint32_t number, uint64_t uptime)
{
    const std::span rates = all(device);
    const std::tuple object{type, number};
    const auto at = std::ranges::lower_bound(rates, object, {}, objectOf);
    if (at != rates.end() && objectOf(*at) == object)
        grow(device, ofFirst({at, rates.end()}), uptime);
}

void growAll(Transaction &device, uint64_t uptime)
{
    for (std::span<const kvSimRate> left = all(device); !left.empty();) {
        const std::span own = ofFirst(left);
        grow(device, own, uptime);
        left = left.subspan(own.size());
    }
}

kvRc setRate(Transaction &device, const kvSimRate &rate)
{
    if (!inRange("period in milliseconds", rate.milliseconds, 1, LONGEST))
        return BAD_VALUE;
    const bool tellsKind = rate.type == KV_SIM_PDH || rate.type == KV_SIM_PW;
    if (!rate.om && rate.counter == 0 && tellsKind)
        return fail(BAD_VALUE, "word 0 is no counter, it tells which the others are");
    if (!(rate.om ? omCounter(device, rate.type, rate.number, rate.counter)
                  : pmCounter(device, rate.type, rate.number, 1, rate.counter)))
        return failureCode();
    const uint64_t now = device->clock.seen;
    device.rollback(); // nothing of the counter was changed
    grow(device, rate.type, rate.number, now);

    Rates &rates = device.modify(device->rates);
    const std::span known = all(device);
    kvSimRate *const end = known.data() + known.size();
    kvSimRate *const at = &*std::ranges::lower_bound(known, counterOf(rate), {}, counterOf);
    const bool isKnown = at != end && counterOf(*at) == counterOf(rate);
    if (rate.amount == 0) {
        std::copy(isKnown ? at + 1 : end, end, isKnown ? at : end);
        rates.count -= isKnown;
    } else if (isKnown) {
        *at = rate;
    } else if (known.size() < RATES) {
        std::copy_backward(at, end, end + 1);
        *at = rate;
        ++rates.count;
    } else {
        return fail(FULL, "%u counters grow already, no more can", RATES);
    }
    Duty &duty = device.modify(*dutyOf(device, rate.type, rate.number));
    duty = {duty.up, now, 0, 0};
    return attend(device);
}

} // namespace sim
