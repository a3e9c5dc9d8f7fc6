// Reads a recording: its file's own description, the calls as trees, and their values.
#ifndef TRACE_RECORDING_H
#define TRACE_RECORDING_H

#include "file.h"

#include <describe.h>

#include <nlohmann/json.hpp>

#include <deque>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace trace
{

using Json = nlohmann::ordered_json;

// Why a file can't be read.
struct FileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---- What the file says of itself ----

struct Type;

struct Field {
    std::string name;
    const Type *type;
    uint32_t offset;
    uint32_t count;
    bool hidden, optional;
    bool changes;        // by itself: two runs of the same agent may have different values
    std::string flag;    // the field that says whether it counts, or empty
    std::string counted; // the field that says how many elements count, or empty
    std::string by;      // the field by whose values it is there, or empty
    std::vector<uint32_t> values;
    const describe::Field *row; // the same of this program's description; null: it has none
};

struct Type {
    std::string name;
    describe::Kind kind;
    uint32_t size;
    bool hexadecimal;
    std::string title;
    uint32_t first, last; // of an enumeration: its members' values
    std::vector<std::pair<uint32_t, std::string>> members;
    std::vector<Field> fields;

    const Field *find(std::string_view field) const;
};

struct Argument {
    std::string name;
    const Type *type; // null: of a callback and the like, of which there is a number
    bool output, pointer;
    bool changes; // as a field
    uint32_t count;
    std::string countedBy;
};

// Callbacks are the agent's, handlers the library's; the platform calls these.
enum class Layer { operation, platform, callback, handler };
enum class Returns { nothing, result, code, count, text, descriptor, status };

const char *nameOf(Layer layer);

struct Function {
    std::string name;
    Layer layer;
    Returns returns;
    std::string library, kind; // of the platform's: which, and what it does ("reads")
    int object;                // which argument is its object; -1: none
    std::string objectKind;
    std::vector<Argument> arguments;

    // Without what all operations' names begin with.
    std::string_view shortName() const;
};

// ---- Calls ----

struct Value {
    bool isThere = false; // else it was null, or the output of a failed call
    uint32_t count = 1;
    uint64_t number = 0;        // of what is no pointer
    std::string text;           // of a text
    std::vector<uint8_t> bytes; // of a record or an array
};

// A kind as the description has it: "system", "port", "pw", "group" or "link".
struct Object {
    std::string_view kind;
    uint32_t number;
    bool operator==(const Object &) const = default;
};

// What a call was given and gave back.
struct Content {
    std::vector<Value> arguments; // as many as the function has
    std::optional<uint32_t> code; // none: it hasn't returned, or returns none
    std::optional<std::string> text;
};

constexpr uint32_t NONE = 0xFFFFFFFF;

// Nanoseconds of the clock. A call without its begin is one whose first event was dropped, one
// without its end hasn't returned, or its last event is lost.
struct Call {
    uint32_t function;
    uint32_t thread; // its place among the threads
    uint32_t parent; // NONE: it has none
    uint32_t next;   // the following one with the same parent; NONE: the last
    uint64_t begin, end;
    const Event *enter, *exit;

    // Its begin or, where that is unknown, its end.
    uint64_t clock() const { return begin ? begin : end; }
    // Not when only its end is lost: its thread has gone on since.
    bool isOpen(const class Recording &recording) const;
    bool isRunning(const class Recording &recording) const;
};

struct ThreadOf {
    uint32_t id; // the system's
    std::string name;
    uint64_t first, last; // events
};

class Recording
{
  public:
    // Throws a FileError.
    explicit Recording(const std::string &path);
    Recording(const Recording &) = delete;

    const Head &head() const { return head_; }
    bool has(Flag flag) const { return (head_.flags & flag) != 0; }
    // Whether a process still has it; else it has ended, whether normally or not.
    bool isAlive() const { return alive_; }
    std::string version() const { return version_; }
    const std::vector<std::string> &command() const { return command_; }
    // The device's file as it was at the begin; empty: there is none.
    std::span<const uint8_t> snapshot() const { return snapshot_; }

    const std::deque<Type> &types() const { return types_; }
    const std::vector<Function> &functions() const { return functions_; }
    const std::vector<ThreadOf> &threads() const { return threads_; }
    // By threads; each call is followed by those within it.
    const std::vector<Call> &calls() const { return calls_; }
    // Those with no call around them, by their begins.
    const std::vector<uint32_t> &roots() const { return roots_; }
    uint32_t firstWithin(uint32_t call) const;

    // What was skipped: of kinds that this program doesn't know, and blocks that are damaged.
    uint64_t unknownEvents() const { return unknownEvents_; }
    uint64_t damagedBlocks() const { return damagedBlocks_; }
    uint64_t events() const { return events_; }
    uint64_t eventBytes() const { return eventBytes_; }

    const Function &functionOf(const Call &call) const { return functions_[call.function]; }
    // Nanoseconds since the epoch.
    uint64_t timeOf(uint64_t clock) const { return head_.startTime + (clock - head_.startClock); }
    // When anything was last recorded.
    uint64_t lastClock() const { return lastClock_; }
    // Whether it said that it had failed: its code isn't 0.
    bool failed(const Call &call) const;

    Content content(const Call &call) const;
    // The same into a content of that function's, without asking for memory anew.
    void read(const Call &call, Content &content) const;
    // What it is about; none: the system as a whole, or what the file doesn't tell.
    std::optional<Object> objectOf(const Call &call, const Content &content) const;

  private:
    void readDescription(std::string_view text);
    void readBlocks(int descriptor);
    void readThread(uint32_t thread, const std::vector<const Event *> &events);

    Head head_;
    bool alive_ = false;
    std::string version_;
    std::vector<std::string> command_;
    std::vector<uint8_t> snapshot_;
    std::deque<Type> types_;
    std::vector<Function> functions_;
    std::vector<std::vector<uint8_t>> blocks_;
    std::vector<ThreadOf> threads_;
    std::vector<Call> calls_;
    std::vector<uint32_t> roots_;
    uint64_t unknownEvents_ = 0, damagedBlocks_ = 0, events_ = 0, eventBytes_ = 0, lastClock_ = 0;
};

// Which fields: those that matter and don't change by themselves; those that matter; all.
enum class Detail { steady, usual, all };

// A value of that type as vexoctl's --json has it: fields that are there, enumerations by name.
Json toJson(const Type &type, const uint8_t *value, Detail detail = Detail::usual);
// The same of an argument; null where it isn't there.
Json toJson(const Argument &argument, const Value &value, Detail detail = Detail::usual);

// Whether a field is there and counts in that record.
bool counts(const Field &field, const Type &record, const uint8_t *value);
uint64_t wordAt(const uint8_t *at, uint32_t size);

// Switches the recording of a process on or off that has the file. Throws a FileError.
void switchRecording(const std::string &path, bool on);

} // namespace trace

#endif
