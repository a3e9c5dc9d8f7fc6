// What the library's imports are bound to.
#ifndef SIM_REBIND_H
#define SIM_REBIND_H

namespace sim
{

// Makes the library's clock the device's, and its calls refusals where there is a mixture.
void bindLibrary();

// Says that simulated and real platform libraries were loaded together; empty when they were not.
const char *mixture();

} // namespace sim

#endif
