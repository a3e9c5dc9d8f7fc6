#include "journal.h"

#include "device.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace sim
{

namespace
{

constexpr size_t ALIGNMENT = alignof(JournalRecord);
constexpr size_t LARGEST_RECORD =
    sizeof(JournalRecord) + KV_SIM_NAME_SIZE + KV_SIM_RECORD_SIZE + KV_SIM_OUT_SIZE + ALIGNMENT;

// No device comes so far: a place plus a record is still a number.
constexpr uint64_t FOREVER = uint64_t{1} << 62;

static_assert(sizeof(State) + JOURNAL_CALLS * (JOURNAL_BYTES + sizeof(uint64_t)) <= 4 << 20,
              "a new device takes more than is promised");

constexpr size_t bytesOf(uint32_t calls)
{
    return std::max(size_t{calls} * JOURNAL_BYTES, 2 * LARGEST_RECORD) / ALIGNMENT * ALIGNMENT;
}

// A place in the ring is known by how many bytes were before it since the beginning.
struct Ring {
    explicit Ring(State &state)
        : calls{journalCalls()}, size{bytesOf(calls)}, places{reinterpret_cast<uint64_t *>(&state +
                                                                                           1)},
          bytes{reinterpret_cast<uint8_t *>(places + calls)}
    {
    }

    // What is in the file is not to be relied on.
    size_t offset(uint64_t place) const
    {
        return static_cast<size_t>(place / ALIGNMENT * ALIGNMENT % size);
    }
    JournalRecord *at(uint64_t place) const
    {
        const size_t from = offset(place);
        return size - from < sizeof(JournalRecord)
                   ? nullptr
                   : reinterpret_cast<JournalRecord *>(bytes + from);
    }

    uint32_t calls;
    size_t size;
    uint64_t *places; // of the latest calls, by their numbers
    uint8_t *bytes;
};

size_t aligned(size_t size)
{
    return (size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
}

JournalPart partOf(Bytes bytes, size_t limit)
{
    size_t kept = std::min(bytes.size(), limit);
    const size_t size = kept;
    for (uint64_t eight; kept >= sizeof eight; kept -= sizeof eight) {
        memcpy(&eight, bytes.data() + kept - sizeof eight, sizeof eight);
        if (eight)
            break;
    }
    while (kept > 0 && bytes[kept - 1] == 0)
        --kept;
    return {static_cast<uint16_t>(size), static_cast<uint16_t>(kept)};
}

bool isWhole(JournalPart part, size_t limit)
{
    return part.kept <= part.size && part.size <= limit;
}

uint8_t *behind(JournalRecord &call)
{
    return reinterpret_cast<uint8_t *>(&call + 1);
}

size_t sizeOf(const JournalRecord &call)
{
    return aligned(sizeof call + call.operation.kept + call.in.kept + call.out.kept);
}

void fence()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

} // namespace

size_t journalSize(uint32_t calls)
{
    return calls * sizeof(uint64_t) + bytesOf(calls);
}

// Whoever is killed here leaves those whole that still count: room is taken before it is written
// to, and the number comes last.
JournalRecord &addCall(State &state, const JournalRecord &call, Bytes operation, Bytes in,
                       size_t room)
{
    const Ring ring{state};
    Journal &journal = state.journal;
    const JournalPart operationPart = partOf(operation, KV_SIM_NAME_SIZE - 1);
    const JournalPart inPart = partOf(in, KV_SIM_RECORD_SIZE);
    const size_t size = aligned(sizeof call + operationPart.kept + inPart.kept +
                                std::min<size_t>(room, KV_SIM_OUT_SIZE));
    uint64_t place = journal.end % FOREVER;
    const size_t left = ring.size - ring.offset(place);
    place += left < size ? left : 0;
    journal.end = place + size;
    fence();
    JournalRecord &added = *ring.at(place);
    added = call;
    added.number = journal.last + 1;
    added.operation = operationPart;
    added.in = inPart;
    std::ranges::copy(operation.first(operationPart.kept), behind(added));
    std::ranges::copy(in.first(inPart.kept), behind(added) + operationPart.kept);
    ring.places[added.number % ring.calls] = place;
    fence();
    journal.last = added.number;
    return added;
}

// No more is written than is kept: what is then given back of the room still has older records.
void keepOut(State &state, JournalRecord &call, std::span<const Bytes> out)
{
    size_t size = 0, kept = 0;
    for (Bytes bytes : out) {
        const JournalPart part = partOf(bytes, KV_SIM_OUT_SIZE - size);
        kept = part.kept ? size + part.kept : kept;
        size += part.size;
    }
    call.out = {static_cast<uint16_t>(size), static_cast<uint16_t>(kept)};
    uint8_t *to = behind(call) + call.operation.kept + call.in.kept;
    for (Bytes bytes : out) {
        const size_t own = std::min(bytes.size(), kept);
        to = std::ranges::copy(bytes.first(own), to).out;
        kept -= own;
    }
    const Ring ring{state};
    if (call.number == state.journal.last)
        state.journal.end = ring.places[call.number % ring.calls] + sizeOf(call);
}

JournalRecord *findCall(State &state, uint64_t number)
{
    const Ring ring{state};
    const Journal &journal = state.journal;
    if (number == 0 || number > journal.last)
        return nullptr;
    const uint64_t place = ring.places[number % ring.calls];
    JournalRecord *call = ring.at(place);
    const bool kept = call && journal.end - place <= ring.size && call->number == number &&
                      sizeOf(*call) <= ring.size - ring.offset(place) &&
                      isWhole(call->operation, KV_SIM_NAME_SIZE) &&
                      isWhole(call->in, KV_SIM_RECORD_SIZE) && isWhole(call->out, KV_SIM_OUT_SIZE);
    return kept ? call : nullptr;
}

uint64_t oldestCall(State &state)
{
    const uint64_t last = state.journal.last;
    const uint32_t calls = journalCalls();
    uint64_t first = last > calls ? last - calls + 1 : 1;
    for (uint64_t count = last + 1 - first; count > 0;) {
        const uint64_t half = count / 2;
        if (findCall(state, first + half)) {
            count = half;
        } else {
            first += half + 1;
            count -= half + 1;
        }
    }
    return first;
}

Bytes operationOf(JournalRecord &call)
{
    return {behind(call), call.operation.kept};
}

Bytes inOf(JournalRecord &call)
{
    return {behind(call) + call.operation.kept, call.in.kept};
}

Bytes outOf(JournalRecord &call)
{
    return {behind(call) + call.operation.kept + call.in.kept, call.out.kept};
}

} // namespace sim
