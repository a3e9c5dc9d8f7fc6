#include "frame/log.h"
#include "frame/outcome.h"
#include "sys/clock.h"

#include <vexo_cmi/sys.h>

#include <atomic>

using frame::Outcome;

namespace
{

constexpr int64_t KEEP_ALIVE_SECONDS = 900;

// When the clock was last set by a keep-alive. Words of 32 bits, which need no library where the
// machine has no larger ones that are atomic: they last until 2106, and of two keep-alives at the
// same time the seconds of one may stand beside the microseconds of the other.
struct {
    std::atomic<uint32_t> seconds, microseconds;
} ptm;

bool due(const timeval &now)
{
    const int64_t last = ptm.seconds.load(std::memory_order_relaxed);
    int64_t elapsed = static_cast<uint32_t>(now.tv_sec) - last;
    if (static_cast<uint32_t>(now.tv_usec) < ptm.microseconds.load(std::memory_order_relaxed))
        --elapsed;
    return elapsed > KEEP_ALIVE_SECONDS || last == 0;
}

void remember(const timeval &now)
{
    ptm.seconds.store(static_cast<uint32_t>(now.tv_sec), std::memory_order_relaxed);
    ptm.microseconds.store(static_cast<uint32_t>(now.tv_usec), std::memory_order_relaxed);
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
    remember(clockRead());
}
