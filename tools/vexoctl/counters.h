// The counters of the simulated device by the names under which the getters print them.
#ifndef VEXOCTL_COUNTERS_H
#define VEXOCTL_COUNTERS_H

#include <cstdint>
#include <string>

namespace vexoctl
{

// The word of the control interface that goes with a name ("layout0.counters.4"), or with a number,
// which is the word itself. `kind` is word 0 of the object's PM counters, which tells how they are
// arranged. Throws UsageError when the object has no such counter.
enum class Counters : uint32_t { pm, om };
uint32_t counterWord(Counters set, uint32_t type, uint32_t kind, const std::string &name);
// The other way round; the number where there is no name.
std::string counterName(Counters set, uint32_t type, uint32_t kind, uint32_t word);

} // namespace vexoctl

#endif
