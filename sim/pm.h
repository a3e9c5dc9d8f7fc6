// PM counters: the running interval and the one before it.
#ifndef SIM_PM_H
#define SIM_PM_H

#include "objects.h"

#include <cstring>

namespace sim
{

// Third argument of the platform's PM reads, as this device takes it.
constexpr uint32_t PM_RUNNING = 0;
constexpr uint32_t PM_ENDED = 1;

// Fills `out` with the counters of an interval. `fresh` is what the record is without any count.
// Counters of an interval that has not ended yet, asked for as ended, are not there.
template <class Record>
kvRc readPm(const State &state, const Pm<Record> &pm, uint32_t interval, uint32_t which,
            const Record &fresh, Record *out)
{
    if (!isMember(pmInterval{interval}))
        return BAD_VALUE;
    const uint32_t running = state.pmEpoch[interval - 1] + 1;
    if (which == PM_ENDED && running == 1)
        return fail(KV_NO_COUNTERS, "no PM interval %u has ended yet", interval);
    const uint32_t epoch = which == PM_ENDED ? running - 1 : running;
    const auto &slot = pm.slots[interval - 1][epoch % 2];
    *out = slot.epoch == epoch ? slot.record : fresh;
    return KV_OK;
}

// The counters of the running interval, to be written.
template <class Record>
Record &modifyPm(Transaction &device, Pm<Record> &pm, uint32_t interval, const Record &fresh)
{
    const uint32_t running = device->pmEpoch[interval - 1] + 1;
    auto &slot = device.modify(pm.slots[interval - 1][running % 2]);
    if (slot.epoch != running) {
        slot.epoch = running;
        slot.record = fresh;
    }
    return slot.record;
}

template <class Record>
kvRc clearPm(Transaction &device, Pm<Record> &pm, uint32_t interval, const Record &fresh)
{
    if (!isMember(pmInterval{interval}))
        return BAD_VALUE;
    modifyPm(device, pm, interval, fresh) = fresh;
    return KV_OK;
}

// What the counters of an object are before anything was counted.
pdhPmStat freshPdhPm(uint32_t port);
pwPmStats freshPwPm(pweType type);
imaGroupPmStat freshGroupPm();
imaLinkPmStat freshLinkPm();

} // namespace sim

#endif
