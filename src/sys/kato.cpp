#include "frame/log.h"
#include "frame/outcome.h"
#include "sys/clock.h"

#include <vexo_cmi/sys.h>

#include <array>
#include <atomic>
#include <bit>
#include <type_traits>

using frame::Outcome;

namespace
{

constexpr uint64_t DUE_SECONDS = 901;

// 64 bits where the machine reads and writes them whole without a library, else half of them.
using Word = std::conditional_t<std::atomic<uint64_t>::is_always_lock_free, uint64_t, uint32_t>;

// When the clock was last set by a keep-alive: the seconds, and the microseconds below as many bits
// of the seconds as there is room for. So of two keep-alives that store at the same time, the
// microseconds of one are not taken for those of the other, and no lock is needed.
constexpr unsigned MICROSECOND_BITS = 20;
struct {
    std::array<std::atomic<Word>, sizeof(int64_t) / sizeof(Word)> seconds;
    std::atomic<Word> microseconds;
} ptm;

using Words = std::array<Word, ptm.seconds.size()>;

Word tagOf(int64_t seconds)
{
    return static_cast<Word>(seconds) << MICROSECOND_BITS;
}

int64_t lastSeconds()
{
    Words words;
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = ptm.seconds[i].load(std::memory_order_relaxed);
    return std::bit_cast<int64_t>(words);
}

// The microseconds matter only in the second in which a setting becomes due. Those of another
// second are above all that a clock can read: then it is due a second later.
bool due(const timeval &now)
{
    const int64_t last = lastSeconds();
    if (now.tv_sec > last) {
        const uint64_t elapsed = static_cast<uint64_t>(now.tv_sec) - static_cast<uint64_t>(last);
        if (elapsed > DUE_SECONDS)
            return true;
        if (elapsed == DUE_SECONDS &&
            static_cast<Word>(now.tv_usec) >=
                ptm.microseconds.load(std::memory_order_relaxed) - tagOf(last))
            return true;
    }
    return last == 0;
}

void remember(const timeval &now)
{
    const auto words = std::bit_cast<Words>(int64_t{now.tv_sec});
    for (size_t i = 0; i < words.size(); ++i)
        ptm.seconds[i].store(words[i], std::memory_order_relaxed);
    ptm.microseconds.store(tagOf(now.tv_sec) + static_cast<Word>(now.tv_usec),
                           std::memory_order_relaxed);
}

} // namespace

void vexo_cmi_sys_kato_send(unsigned seconds, unsigned microseconds, vexoResult *result)
{
    Outcome outcome{result};
    if (!due(clockRead()))
        return;
    if (!outcome.orConfigText(clockSet(seconds, microseconds)))
        return;
    CMI_LOG(frame::LOG_INFO, "Kato time is updated");
    remember(clockRead());
}
