// Reads or changes the one platform record that an operation needs; clears any.
#ifndef FRAME_RECORD_H
#define FRAME_RECORD_H

#include "frame/outcome.h"

#include <type_traits>

#include <stddef.h>
#include <string.h>

namespace frame
{

// Clears a large record by the C library, which takes wider steps than a compiler that knows the
// size.
[[gnu::noinline]] inline void clear(void *record, size_t size)
{
    memset(record, 0, size);
}

// Hands what a getter of the configuration library tells about an object, or about the system, to
// `use`, which takes the outcome as well where it can refuse. Always inlined: by itself the
// compiler keeps it out of an operation whose record is large.
template <class Record, class Use>
[[gnu::always_inline]] inline void read(kvRc (*get)(Record *, uint32_t), uint32_t object,
                                        vexoResult *result, Use use)
{
    Outcome outcome{result};
    Record record;
    if (!outcome.orConfigText(get(&record, object)))
        return;
    if constexpr (std::is_invocable_v<Use, Record &, Outcome &>)
        use(record, outcome);
    else
        use(record);
}

template <class Record, class Use>
[[gnu::always_inline]] inline void read(kvRc (*get)(Record *), vexoResult *result, Use use)
{
    Outcome outcome{result};
    Record record;
    if (outcome.orConfigText(get(&record)))
        use(record);
}

// Reads the object's record, lets `overlay` change it and writes it back. An overlay that can
// refuse takes the outcome as well and returns whether to go on.
template <class Record, class Overlay>
[[gnu::always_inline]] inline void change(kvRc (*get)(Record *, uint32_t),
                                          kvRc (*set)(const Record *, uint32_t), uint32_t object,
                                          vexoResult *result, Overlay overlay)
{
    Outcome outcome{result};
    Record record;
    if (!outcome.orConfigText(get(&record, object)))
        return;
    if constexpr (std::is_invocable_v<Overlay, Record &, Outcome &>) {
        if (!overlay(record, outcome))
            return;
    } else {
        overlay(record);
    }
    outcome.orConfigText(set(&record, object));
}

} // namespace frame

#endif
