// Read-modify-write of a platform record.
#ifndef FRAME_CHANGE_H
#define FRAME_CHANGE_H

#include "frame/outcome.h"

#include <type_traits>

namespace frame
{

// Reads the object's record, lets `overlay` change it and writes it back. An overlay that can
// refuse takes the outcome as well and returns whether to go on. Always part of the operation: by
// itself the compiler keeps it out of one whose record is large.
template <class Record, class Overlay>
[[gnu::always_inline]] inline void change(kvRc (*read)(Record *, uint32_t),
                                          kvRc (*write)(const Record *, uint32_t), uint32_t object,
                                          vexoResult *result, Overlay overlay)
{
    Outcome outcome{result};
    Record record;
    if (!outcome.config(read(&record, object)))
        return;
    if constexpr (std::is_invocable_v<Overlay, Record &, Outcome &>) {
        if (!overlay(record, outcome))
            return;
    } else {
        overlay(record);
    }
    outcome.config(write(&record, object));
}

} // namespace frame

#endif
