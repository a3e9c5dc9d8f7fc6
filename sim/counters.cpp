#include "counters.h"

#include "objects.h"
#include "pm.h"

#include <cstring>

namespace sim
{

namespace
{

constexpr Counter NONE{};

template <class Record>
Counter wordOf(Transaction &device, Pm<Record> &pm, uint32_t interval, const Record &fresh,
               uint32_t word)
{
    constexpr uint32_t leading = sizeof(Record::platform0) / sizeof(uint32_t);
    constexpr uint32_t words = sizeof(Record) / sizeof(uint32_t) - leading;
    if (!isMember(pmInterval{interval}))
        return NONE;
    if (word >= words) {
        fail(BAD_VALUE, "word %u is not one of 0 to %u", word, words - 1);
        return NONE;
    }
    auto *record = reinterpret_cast<uint8_t *>(&modifyPm(device, pm, interval, fresh));
    return {record + (leading + word) * sizeof(uint32_t), sizeof(uint32_t)};
}

template <class Count, size_t COUNT>
Counter counterOf(Transaction &device, Count (&counters)[COUNT], uint32_t index)
{
    if (index < COUNT)
        return {reinterpret_cast<uint8_t *>(&device.modify(counters[index])), sizeof(Count)};
    fail(BAD_VALUE, "counter %u is not one of 0 to %zu", index, COUNT - 1);
    return NONE;
}

Counter counterOf(Transaction &device, pwOmStats &om, uint32_t index)
{
    constexpr uint32_t own = sizeof om.counters / sizeof(kvCounter);
    constexpr uint32_t all = own + 2 * sizeof om.entries / sizeof(pwOmEntry);
    if (index < own)
        return counterOf(device, om.counters, index);
    if (index < all)
        return counterOf(device, om.entries[(index - own) / 2].counters, (index - own) % 2);
    fail(BAD_VALUE, "counter %u is not one of 0 to %u", index, all - 1);
    return NONE;
}

} // namespace

uint64_t Counter::value() const
{
    uint64_t value = 0;
    memcpy(&value, at, size);
    return value;
}

void Counter::set(uint64_t value) const
{
    memcpy(at, &value, size);
}

Counter pmCounter(Transaction &device, uint32_t type, uint32_t number, uint32_t interval,
                  uint32_t word)
{
    switch (type) {
    case KV_SIM_PDH: {
        Port *port = portOf(device, number);
        return port ? wordOf(device, port->pm, interval, freshPdhPm(number), word) : NONE;
    }
    case KV_SIM_PW: {
        Pw *pw = pwOf(device, number);
        return pw ? wordOf(device, pw->pm, interval, freshPwPm(pw->config.pweType), word) : NONE;
    }
    case KV_SIM_GROUP: {
        Group *group = groupOf(device, number);
        return group ? wordOf(device, group->pm, interval, freshGroupPm(), word) : NONE;
    }
    case KV_SIM_LINK: {
        Link *link = linkOf(device, number);
        return link ? wordOf(device, link->pm, interval, freshLinkPm(), word) : NONE;
    }
    default:
        fail(BAD_VALUE, "object type %u has no PM counters", type);
        return NONE;
    }
}

Counter omCounter(Transaction &device, uint32_t type, uint32_t number, uint32_t counter)
{
    switch (type) {
    case KV_SIM_SYSTEM:
        return counterOf(device, device->system.om.words, counter);
    case KV_SIM_PW: {
        Pw *pw = pwOf(device, number);
        return pw ? counterOf(device, pw->om, counter) : NONE;
    }
    case KV_SIM_GROUP: {
        Group *group = groupOf(device, number);
        return group ? counterOf(device, group->om.counters, counter) : NONE;
    }
    case KV_SIM_LINK: {
        Link *link = linkOf(device, number);
        return link ? counterOf(device, link->om.counters, counter) : NONE;
    }
    default:
        fail(BAD_VALUE, "object type %u has no OM counters", type);
        return NONE;
    }
}

} // namespace sim
