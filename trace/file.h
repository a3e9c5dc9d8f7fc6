// The recording's file, as it is written into a mapped file while the recorded process runs: a
// head, a description of all that may be recorded, as JSON, a snapshot of the device where one was
// asked for, and blocks of events.
//
// A block belongs to one thread at a time, which fills it with events and then takes another: one
// that was never used or, when there is none, the one that was taken longest ago. What a process
// that is killed leaves behind can be read but for the event that it was writing.
#ifndef TRACE_FILE_H
#define TRACE_FILE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace trace
{

constexpr char MAGIC[8] = "VEXOTRC";
constexpr uint32_t VERSION = 1;
constexpr uint32_t BYTE_ORDER_MARK = 0x01020304;

constexpr size_t PAGE = 4096;
constexpr uint32_t BLOCK_SIZE = 16384;
constexpr size_t DEFAULT_SIZE = size_t{64} << 20;
constexpr size_t LEAST_SIZE = size_t{1} << 20;
constexpr size_t MOST_SIZE = size_t{1} << (sizeof(void *) == 8 ? 40 : 30);

// Of the environment: what `vexotrace record` tells the recorder.
constexpr char FILE_VARIABLE[] = "VEXO_TRACE";
constexpr char SIZE_VARIABLE[] = "VEXO_TRACE_SIZE";
constexpr char REDACT_VARIABLE[] = "VEXO_TRACE_REDACT";
constexpr char SNAPSHOT_VARIABLE[] = "VEXO_TRACE_SNAPSHOT";
constexpr char DEVICE_VARIABLE[] = "KV_SIM_DEVICE";
// All processes that one recording is of have the same. The first of them sets it.
constexpr char SESSION_VARIABLE[] = "VEXO_TRACE_SESSION";

enum Flag : uint32_t {
    DISK_FULL = 1,       // the file is smaller than it was to be
    REDACTED = 2,        // addresses are stand-ins
    ENDED = 4,           // the process has ended normally, or executed another program
    NO_SNAPSHOT = 8,     // one was asked for, and there was no device file
    MORE_ADDRESSES = 16, // than there are stand-ins: the others have the same one
    MORE_CALLBACKS = 32, // than can be recorded: calls of the others aren't
};

// The first page. Numbers have the byte order of the machine that records.
struct Head {
    char magic[8];
    uint32_t byteOrder;
    uint32_t version;
    uint64_t size; // of the file
    uint64_t wantedSize;
    uint64_t descriptionOffset, descriptionSize;
    uint64_t snapshotOffset, snapshotSize;
    uint64_t blocksOffset;
    uint32_t blockSize, blockCount;
    uint64_t startTime;  // nanoseconds since the epoch, when
    uint64_t startClock; // the clock of the events read this
    uint32_t process;
    char session[36];

    // What changes while it is recorded.
    std::atomic<uint32_t> on; // 0: nothing is recorded until another process writes 1 here
    std::atomic<uint32_t> flags;
    std::atomic<uint64_t> taken;         // how many times a block was
    std::atomic<uint64_t> droppedEvents; // which were in blocks that were taken again
    std::atomic<uint64_t> lostCalls;     // of threads that found no block, or in signal handlers
};
static_assert(sizeof(Head) == 168 && std::atomic<uint64_t>::is_always_lock_free);

constexpr uint32_t FREE = 0;     // whoever takes it may have it
constexpr uint32_t OCCUPIED = 1; // a thread is filling it
constexpr uint32_t LEFT = 2;     // by a thread that has ended; there is room in it

struct Block {
    std::atomic<uint64_t> number; // of its taking, from 1; 0: never used
    std::atomic<uint32_t> state;
    uint32_t reserved;
    std::atomic<uint64_t> filled; // bytes below, number of the events above
};
static_assert(sizeof(Block) == 24);

constexpr uint64_t filled(uint64_t bytes, uint64_t events)
{
    return events << 32 | bytes;
}

enum class EventKind : uint8_t {
    thread = 1, // whose events follow, at the begin of each block: Thread
    enter = 2,  // of a function: its arguments in their order, but for outputs
    exit = 3,   // what it returned, then the outputs in their order
};

// 8 bytes each begin at a multiple of 8, and so do events.
struct Event {
    uint16_t size; // with what follows
    EventKind kind;
    uint8_t absent; // which arguments, by a bit each, aren't there: null, or outputs of a failure
    uint16_t function; // its place in the description
    uint16_t depth;    // of calls around it in the same thread
    uint64_t clock;
};
static_assert(sizeof(Event) == 16);

constexpr uint8_t NO_RESULT = 0x80; // in `absent`: the caller wanted none

struct ThreadEvent {
    uint32_t id;     // the system's
    uint32_t number; // from 1; numbers of threads that have ended aren't used again
    char name[16];
};

// ---- Values ----
//
// A number has 4 bytes, or 8 when it is longer than that; a callback the number of its registration
// in 4, 0 for none. A text is its length, in 4, and its bytes. A record of up to 16 bytes is as it
// is; of a longer one the units of 16 bytes that aren't 0 stand behind a map of up to 32 units, of
// 4 bytes, in turn. An array is the number of its elements and a record of them all. Each is filled
// up to a multiple of 4 bytes.

constexpr size_t PLAIN_SIZE = 16;
constexpr size_t UNIT_SIZE = 16;
constexpr size_t MAPPED_UNITS = 32;

constexpr size_t roundUp(size_t size, size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

// The most that a record can take.
constexpr size_t roomFor(size_t size)
{
    const size_t units = roundUp(size, UNIT_SIZE) / UNIT_SIZE;
    return size <= PLAIN_SIZE ? roundUp(size, 4)
                              : units * UNIT_SIZE + roundUp(units, MAPPED_UNITS) / MAPPED_UNITS * 4;
}

// Writes where there is room for the longest value and a unit more.
class Writer
{
  public:
    explicit Writer(uint8_t *to) : at_{to} {}

    uint8_t *end() const { return at_; }

    void number(uint32_t value)
    {
        memcpy(at_, &value, sizeof value);
        at_ += sizeof value;
    }

    void longNumber(uint64_t value)
    {
        memcpy(at_, &value, sizeof value);
        at_ += sizeof value;
    }

    void text(const char *text, size_t length)
    {
        number(static_cast<uint32_t>(length));
        plain(text, length);
    }

    void record(const void *record, size_t size)
    {
        if (size <= PLAIN_SIZE)
            plain(record, size);
        else
            packed(static_cast<const uint8_t *>(record), size);
    }

  private:
    void plain(const void *bytes, size_t size)
    {
        memcpy(at_, bytes, size);
        at_ += roundUp(size, 4);
    }

    // Each unit is written; the next one overwrites it when it is 0.
    [[gnu::always_inline]] void packed(const uint8_t *from, size_t size)
    {
        uint8_t *at = at_;
        const auto put = [&](const uint64_t(&unit)[2], uint32_t &bits, size_t place) {
            memcpy(at, unit, UNIT_SIZE);
            const uint32_t isThere = (unit[0] | unit[1]) != 0;
            at += isThere * UNIT_SIZE;
            bits |= isThere << place;
        };
        while (size > 0) {
            uint8_t *const map = at;
            uint32_t bits = 0;
            at += sizeof bits;
            const size_t whole = size / UNIT_SIZE < MAPPED_UNITS ? size / UNIT_SIZE : MAPPED_UNITS;
            for (size_t i = 0; i < whole; ++i, from += UNIT_SIZE) {
                uint64_t unit[2];
                memcpy(unit, from, sizeof unit);
                put(unit, bits, i);
            }
            size -= whole * UNIT_SIZE;
            if (whole < MAPPED_UNITS && size > 0) {
                uint64_t unit[2]{};
                memcpy(unit, from, size);
                put(unit, bits, whole);
                size = 0;
            }
            memcpy(map, &bits, sizeof bits);
        }
        at_ = at;
    }

    uint8_t *at_;
};

} // namespace trace

#endif
