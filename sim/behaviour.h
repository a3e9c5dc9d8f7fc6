// What follows from a change: alarms that have a cause, and whether an object is in service.
#ifndef SIM_BEHAVIOUR_H
#define SIM_BEHAVIOUR_H

#include "device.h"

namespace sim
{

// Carries out what follows from the changes of a transaction, before it is committed. Fails when a
// subscriber can't be told. Nothing is looked at until the device attends to it.
kvRc settle(Transaction &device);

// Attends to what follows from changes from now on, and carries out what follows from how things
// stand.
kvRc attend(Transaction &device);

} // namespace sim

#endif
