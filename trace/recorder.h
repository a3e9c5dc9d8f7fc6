// The parts of the recorder. It uses the C library only, and no heap.
#ifndef TRACE_RECORDER_H
#define TRACE_RECORDER_H

#include "file.h"

#include <describe.h>
#include <platform.h>

#include <time.h>

namespace trace
{

// ---- Functions that are recorded ----

// By their places in the description: the operations, the platform's functions, callbacks.
#define TRACED(name, count) name,
enum class Operation : uint16_t {
#include "operations.inc"
    count
};
#undef TRACED

constexpr uint16_t OPERATION_COUNT = static_cast<uint16_t>(Operation::count);
constexpr uint16_t PLATFORM_COUNT_ALL = static_cast<uint16_t>(describe::platform::FUNCTION_COUNT);

enum class Callback : uint16_t { alarm, pm, alarmEvent, pmInterval, count };

constexpr uint16_t placeOf(Operation operation)
{
    return static_cast<uint16_t>(operation);
}

constexpr uint16_t placeOf(describe::platform::Index function)
{
    return static_cast<uint16_t>(OPERATION_COUNT + static_cast<uint16_t>(function));
}

constexpr uint16_t placeOf(Callback callback)
{
    return static_cast<uint16_t>(OPERATION_COUNT + PLATFORM_COUNT_ALL +
                                 static_cast<uint16_t>(callback));
}

constexpr uint16_t FUNCTIONS = placeOf(Callback::count);

// What is known of a function when it is recorded.
constexpr size_t ARGUMENTS = 6;
struct Shape {
    const char *name;
    struct Argument {
        const char *name;
        const describe::Type *type;
        uint32_t size;    // of a record; of a text that is given, the longest
        uint16_t count;   // of elements
        int8_t countedBy; // the argument that says how many were filled; -1: all
    } arguments[ARGUMENTS];
    uint16_t argumentCount;
    uint32_t enterRoom, exitRoom; // what its events take at most
};
extern Shape shapes[FUNCTIONS];

void describeFunctions(); // fills them

// Writes the description; null when it doesn't fit.
char *writeDescription(char *at, char *end);

// ---- The file ----

// Stands in place of the head's until the first call, which opens the file, and when there is none.
constexpr uint32_t OFF = 0, ON = 1, NOT_YET = 2;
extern std::atomic<std::atomic<uint32_t> *> recording;

[[gnu::always_inline]] inline uint32_t isRecording()
{
    return recording.load(std::memory_order_relaxed)->load(std::memory_order_relaxed);
}

struct Thread {
    Block *block;
    uint8_t *at, *end;      // what is left of it
    uint64_t filled;        // as the block is to say
    const char **operation; // the simulated device's, or another place
    uint32_t number;
    uint16_t depth;
    bool busy;   // writes an event
    bool failed; // of the operation's calls one has
};
extern constinit thread_local Thread thread __attribute__((tls_model("initial-exec")));

extern bool redacting;

// Whether the call is to be recorded: opens the file where that hasn't been done.
bool start();

[[gnu::always_inline]] inline uint64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

// Room for an event in the thread's block, or in the next; null: there is none.
uint8_t *takeBlock(Thread &thread, size_t room);

[[gnu::always_inline]] inline uint8_t *beginEvent(Thread &self, size_t room)
{
    if (static_cast<size_t>(self.end - self.at) < room) [[unlikely]]
        return takeBlock(self, room);
    return self.at;
}

[[gnu::always_inline]] inline void endEvent(Thread &self, EventKind kind, uint8_t absent,
                                            uint16_t function, uint64_t clock, const uint8_t *end)
{
    const size_t size = roundUp(static_cast<size_t>(end - self.at), 8);
    const Event event{static_cast<uint16_t>(size), kind, absent, function, self.depth, clock};
    memcpy(self.at, &event, sizeof event);
    self.at += size;
    self.filled += filled(size, 1);
    self.block->filled.store(self.filled, std::memory_order_release);
}

void countLost();
void setFlag(Flag flag);

// ---- Addresses ----

// Writes a value of that type with stand-ins in place of MAC and IP addresses.
void redact(const char *name, const describe::Type *type, uint32_t count, void *value);
// The same of a text with so much room; its new length.
size_t redactText(char *text, size_t length, size_t room);

// ---- Who is behind ----

extern std::atomic<void *> targets[FUNCTIONS];
void *findTarget(uint16_t place);
// A function of the simulated device's control, where that is loaded, else null.
void *findSimulators(const char *name);

// The function that is called in the end.
template <class Function>
[[gnu::always_inline]] inline Function targetOf(uint16_t place)
{
    void *found = targets[place].load(std::memory_order_relaxed);
    if (!found) [[unlikely]]
        found = findTarget(place);
    return reinterpret_cast<Function>(found);
}

// What stands before it: of an operation or a function of the platform's.
void *wrapperOf(uint16_t place);
bool isInLibrary(const void *address);

// ---- Callbacks ----

using AlarmHandler = void (*)(const alarmEvent *);
using PmHandler = void (*)(pmInterval);

// What is registered in place of a callback, and the number of this registration; 0: of null.
template <class Function>
struct Registered {
    Function function;
    uint32_t number;
};
Registered<vexoAlarmCallback> registered(vexoAlarmCallback callback);
Registered<vexoPmCallback> registered(vexoPmCallback callback);
Registered<AlarmHandler> registered(AlarmHandler handler);
Registered<PmHandler> registered(PmHandler handler);

} // namespace trace

#endif
