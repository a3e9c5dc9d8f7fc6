// The journal of calls: a ring of records as long as they are, behind the device's state.
#ifndef SIM_JOURNAL_H
#define SIM_JOURNAL_H

#include "kv_sim.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace sim
{

struct State;

using Bytes = std::span<const uint8_t>;

// How many calls it holds unless it was told otherwise, and at most. Short ones; of long ones as
// many as find room in this many bytes for each.
constexpr uint32_t JOURNAL_CALLS = 4096;
constexpr uint32_t JOURNAL_LARGEST = 1000000;
constexpr uint32_t JOURNAL_BYTES = 320;

struct Journal {
    uint64_t last; // number of the latest call
    uint64_t end;  // where the next record begins, counted without regard to the ring's end
};

// What stands behind a record. Zeros at its end are not kept.
struct JournalPart {
    uint16_t size;
    uint16_t kept;
};

struct JournalRecord {
    uint64_t number;
    uint64_t deviceTime; // in microseconds
    uint64_t hostTime;
    uint64_t duration; // in nanoseconds
    uint32_t process;
    uint32_t thread;
    uint32_t pending;  // 1: it has not returned yet
    uint32_t function; // the index of its row
    uint32_t code;
    uint32_t fault;   // the id of that which met it
    uint32_t args[4]; // the numbers among the arguments
    JournalPart operation;
    JournalPart in;
    JournalPart out;
};

// The bytes that a journal takes behind the state.
size_t journalSize(uint32_t calls);
// How many calls that of the opened device holds.
uint32_t journalCalls();

// Adds a call with what it was given, and room for what it will fill. It counts from now on.
JournalRecord &addCall(State &state, const JournalRecord &call, Bytes operation, Bytes in,
                       size_t room);
// Keeps what such a call has filled.
void keepOut(State &state, JournalRecord &call, std::span<const Bytes> out);

// The call with this number; null when there is none, or no longer.
JournalRecord *findCall(State &state, uint64_t number);
// The number of the oldest that is kept; when there is none, of the next.
uint64_t oldestCall(State &state);

// The bytes that are kept of its parts.
Bytes operationOf(JournalRecord &call);
Bytes inOf(JournalRecord &call);
Bytes outOf(JournalRecord &call);

} // namespace sim

#endif
