// Recordings as they are replayed.
#ifndef VEXOTRACE_REPLAY_PLAN_H
#define VEXOTRACE_REPLAY_PLAN_H

#include <plan.h>
#include <recording.h>

namespace vexotrace
{

// The bytes of a plan, which the replayed process maps.
std::vector<uint8_t> planOf(const trace::Recording &recording, uint32_t flags);

// What a call was given in the replay, as the recording has it.
trace::Content contentOf(const trace::Function &function, const trace::Difference &difference);

} // namespace vexotrace

#endif
