// What of a device changes by itself: states, counters, temperatures, alarms.
#ifndef VEXOCTL_CONFIG_STATE_H
#define VEXOCTL_CONFIG_STATE_H

#include "config_settings.h"

namespace vexoctl::config
{

// By section and object; calls nothing that clears. What is refused has its reason in its place.
Json stateOf(Device &device, const std::map<Key, Settings> &objects);

} // namespace vexoctl::config

#endif
