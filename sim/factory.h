// What is configured on a device that nobody has configured.
#ifndef SIM_FACTORY_H
#define SIM_FACTORY_H

#include "objects.h"

namespace sim
{

void configureSystem(System &system);
void configurePort(Port &port, uint32_t number);

} // namespace sim

#endif
