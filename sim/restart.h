// The device goes away for a while and comes back.
#ifndef SIM_RESTART_H
#define SIM_RESTART_H

#include "device.h"

namespace sim
{

// Commits the transaction first. Whatever ends with a restart is gone at once; tick() has the
// device back when its time has come.
void restart(Transaction &device, const kvSimReboot &how, uint64_t uptime);

// Does the rest of a restart that has been decided on, also again.
void completeRestart(State &state);

} // namespace sim

#endif
