#include "frame/log.h"
#include "frame/outcome.h"
#include "sys/clock.h"

#include <vexo_cmi/sys.h>

#include <atomic>

using frame::Outcome;

namespace
{

constexpr int64_t KEEP_ALIVE_SECONDS = 900;

// When the clock was last set by a keep-alive: seconds, then 20 bits of microseconds. One word, so
// that overlapping keep-alives never see half a time.
std::atomic<uint64_t> ptm;

uint64_t pack(const timeval &time)
{
    return static_cast<uint64_t>(time.tv_sec) << 20 | static_cast<uint64_t>(time.tv_usec);
}

bool due(const timeval &now)
{
    const uint64_t last = ptm.load(std::memory_order_relaxed);
    const int64_t seconds = static_cast<int64_t>(last) >> 20; // may be negative: 32 bits after 2038
    const int64_t microseconds = static_cast<int64_t>(last & 0xFFFFF);
    int64_t elapsed = now.tv_sec - seconds;
    if (now.tv_usec < microseconds)
        --elapsed;
    return elapsed > KEEP_ALIVE_SECONDS || seconds == 0;
}

} // namespace

void vexo_cmi_sys_kato_send(unsigned seconds, unsigned microseconds, vexoResult *result)
{
    Outcome outcome{result};
    if (!due(clockRead())) {
        outcome.succeed();
        return;
    }
    if (!outcome.config(clockSet(seconds, microseconds)))
        return;
    CMI_LOG(frame::LOG_INFO, "Kato time is updated");
    ptm.store(pack(clockRead()), std::memory_order_relaxed);
}
