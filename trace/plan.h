// A replay's plan: what a recording answers, as it is mapped by the process that is replayed and by
// the one that watches over it. Numbers are offsets in the plan, or places of steps and queues.
#ifndef TRACE_PLAN_H
#define TRACE_PLAN_H

#include <platform.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace trace
{

// Of the environment: the plan's file, and the simulated device's where it stands behind.
constexpr char PLAN_VARIABLE[] = "VEXO_REPLAY";

constexpr int WENT_ANOTHER_WAY = 3; // the exit status

constexpr uint32_t NO_STEP = 0xFFFFFFFF;

enum PlanFlag : uint32_t {
    CONTINUES = 1,  // differences are counted
    LOOSE = 2,      // the order and the values of changes don't matter
    LOOKS = 4,      // there is no way to go: reads are answered as the last ones were
    SIMULATED = 8,  // what the recording doesn't know the simulated device does
    STAND_INS = 16, // in place of addresses
    CUT = 32,       // the recording ends before the process did
};

enum class StepKind : uint8_t {
    read,    // tells something
    change,  // changes the device
    service, // of notifications, but for
    event,   // what a handler is given, or that there is a failure
    text,    // tells what a number means
    none,    // isn't looked at
};

inline StepKind kindOf(const describe::platform::Function &function)
{
    using namespace describe::platform;
    if (function.returns == describe::platform::Returns::text)
        return StepKind::text;
    // Who logs changes nothing that anybody asks for.
    if (strcmp(function.name, "kv_log") == 0)
        return StepKind::none;
    switch (function.kind) {
    case Class::reads:
        return StepKind::read;
    case Class::notifies:
        return strstr(function.name, "_process_") ? StepKind::event : StepKind::service;
    default:
        return StepKind::change;
    }
}

constexpr uint32_t SERVICES = 2;

inline uint32_t serviceOf(const describe::platform::Function &function)
{
    return function.library == describe::platform::Library::pmom;
}

struct Thing {
    uint32_t type, number;
    bool operator==(const Thing &) const = default;
};

// What a call is about; the system where that is no object.
inline Thing thingOf(const describe::platform::Function &function, const uint32_t *numbers)
{
    using describe::platform::Object;
    uint32_t place = 0; // among the numbers
    for (int i = 0; i < function.object; ++i)
        place += !function.arguments[static_cast<size_t>(i)].isPointer;
    switch (function.objectKind) {
    case Object::port:
        return {OBJ_PDH, numbers[place]};
    case Object::pw:
        return {OBJ_PWE, numbers[place]};
    case Object::group:
        return {OBJ_IMA_GROUP, numbers[place]};
    case Object::link:
        // A group's links have an order: who adds or removes one changes the group.
        if (place + 1U < function.arguments.size() &&
            strcmp(function.arguments[place + 1U].name, "group") == 0)
            return {OBJ_IMA_GROUP, numbers[place + 1]};
        return {OBJ_IMA_LINK, numbers[place]};
    case Object::alarm:
        return {numbers[place - 1], numbers[place]};
    default:
        return {OBJ_SYSTEM, 0};
    }
}

constexpr size_t NUMBERS = 4;

// In the order of the recording.
struct Step {
    uint32_t call; // in the recording
    uint32_t next; // of the same queue
    uint32_t thread;
    uint16_t function;
    StepKind kind;
    bool repeats; // the answer before, but for what changes by itself
    uint32_t numbers[NUMBERS];
    uint32_t result;
    uint32_t done; // has been, or been passed over
    uint64_t in;
    uint64_t out[2];
    uint64_t text; // that it returned or, when it failed, that told why
    uint64_t clock;
    uint64_t end; // of a handler, by the clock
};

// The steps that answer the same question, are about the same thing or are of the same service.
struct Queue {
    uint32_t what;
    uint32_t numbers[NUMBERS];
    uint32_t first;
    uint32_t at;     // what comes next
    uint32_t latest; // that has been
    uint32_t about;  // of a question: the queue of the thing's changes
};

// What is asked for by a key that is no function's.
constexpr uint32_t CHANGES_OF = 0x10000;

inline uint32_t hashOf(uint32_t what, const uint32_t *numbers)
{
    uint64_t hash = what;
    for (size_t i = 0; i < NUMBERS; ++i)
        hash = (hash ^ numbers[i]) * 0x9E3779B97F4A7C15;
    return static_cast<uint32_t>(hash >> 32);
}

enum class DifferenceKind : uint32_t {
    other,   // than what is expected, which is a step unless nothing is
    unknown, // to the recording, in which nothing like it is
    process, // which is another one
    missing, // when the process ended
};

constexpr size_t BEFORE = 5;

struct Difference {
    DifferenceKind kind;
    uint32_t expected; // NO_STEP: nothing
    uint32_t thread;   // the system's number
    uint32_t function;
    uint32_t numbers[NUMBERS];
    uint32_t inSize;
    uint64_t answered;       // calls before it
    uint32_t before[BEFORE]; // the latest steps, from the last on
    alignas(8) uint8_t in[2048];
};

constexpr uint32_t KEPT_DIFFERENCES = 64;

struct Plan {
    uint64_t size;
    uint32_t flags;
    uint32_t stepCount, queueCount, bucketCount; // the latter a power of 2
    uint64_t steps, queues, buckets;             // a bucket: a queue's place, from 1
    uint32_t events[SERVICES], services[SERVICES];

    // What changes while it is followed.
    std::atomic<uint32_t> process; // which follows it; 0: none has called yet
    std::atomic<uint64_t> answered;
    std::atomic<uint32_t> latest; // step
    uint32_t latests[BEFORE];     // and those before it
    std::atomic<uint32_t> subscribed;
    std::atomic<uint32_t> differenceCount;
    Difference differences[KEPT_DIFFERENCES];

    template <class T>
    T *at(uint64_t offset)
    {
        return reinterpret_cast<T *>(reinterpret_cast<uint8_t *>(this) + offset);
    }
    Step &step(uint32_t place) { return at<Step>(steps)[place]; }
    Queue &queue(uint32_t place) { return at<Queue>(queues)[place]; }
};

// Whether two values of a type say the same: reserved fields, and those that don't count or change
// by themselves, aside. Where addresses are stand-ins, these and texts aren't compared.
bool isSame(const describe::Type &type, const uint8_t *a, const uint8_t *b, bool standIns);
bool isSame(const describe::platform::Argument &argument, const uint8_t *a, const uint8_t *b,
            bool standIns);

} // namespace trace

#endif
