// What the device tells tests: the journal of calls, and that something has come about.
#include "control.h"

#include "notification.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

using namespace sim;
using describe::platform::Class;
using describe::platform::FUNCTION_COUNT;
using describe::platform::functions;

namespace
{

void put(void *to, Bytes kept, uint32_t size)
{
    uint8_t *const end = std::ranges::copy(kept, static_cast<uint8_t *>(to)).out;
    std::fill_n(end, size - kept.size(), uint8_t{0});
}

kvRc tell(Transaction &device, uint64_t number, kvSimCall &call)
{
    JournalRecord *const kept = findCall(*device, number);
    if (!kept || kept->function >= FUNCTION_COUNT)
        return fail(NO_OBJECT, "call %llu is not in the journal",
                    static_cast<unsigned long long>(number));
    const Function &function = functions()[kept->function];
    call.number = number;
    call.deviceTime = kept->deviceTime;
    call.hostTime = kept->hostTime;
    call.duration = kept->duration;
    call.process = kept->process;
    call.thread = kept->thread;
    call.pending = kept->pending ? kept->thread : 0;
    call.code = kept->code;
    call.fault = kept->fault;
    call.function = function.name;
    call.argCount = 0;
    for (const auto &argument : function.arguments) {
        if (argument.isPointer)
            continue;
        call.args[call.argCount] = kept->args[call.argCount];
        call.argNames[call.argCount++] = argument.name;
    }
    put(call.operation, operationOf(*kept), KV_SIM_NAME_SIZE);
    put(call.record, inOf(*kept), call.recordSize = kept->in.size);
    put(call.out, outOf(*kept), call.outSize = kept->out.size);
    return KV_OK;
}

// 1 when there was a call at the cursor, which may have to go where there still is one; 0 when
// there is none yet.
int read(Transaction &device, kvSimCursor &cursor, kvSimCall &call)
{
    if (cursor.resets != device->resets) {
        cursor.resets = device->resets;
        cursor.next = std::min<uint64_t>(cursor.next, 1);
    }
    const uint64_t oldest = oldestCall(*device);
    if (cursor.next < oldest) {
        cursor.lost += cursor.next ? oldest - cursor.next : 0;
        cursor.next = oldest;
    }
    if (cursor.next > device->journal.last)
        return 0;
    if (tell(device, cursor.next, call) != KV_OK)
        return -1;
    ++cursor.next;
    return 1;
}

// What a function reads or writes whole: a record's type, of an object of a kind.
struct Subject {
    const describe::Type *record;
    describe::platform::Object kind;
    uint32_t object;
    bool operator<(const Subject &other) const
    {
        return std::tie(record, kind, object) < std::tie(other.record, other.kind, other.object);
    }
};

// Whatever stands behind the pointer of the direction that the class has.
Subject subjectOf(const Function &function, const kvSimCall &call)
{
    Subject subject{nullptr, function.objectKind, 0};
    const auto direction =
        function.kind == Class::reads ? describe::Direction::out : describe::Direction::in;
    for (size_t i = 0, number = 0; i < function.arguments.size(); ++i) {
        const auto &argument = function.arguments[i];
        if (function.object == static_cast<int>(i))
            subject.object = call.args[number];
        if (argument.isPointer && argument.direction == direction)
            subject.record = argument.type;
        number += !argument.isPointer;
    }
    return subject;
}

// What kv_sim_error() tells is why the latest look was a failure.
template <class Look>
int await(uint32_t milliseconds, Look look)
{
    return waitFor(milliseconds, [&](Transaction &device) { return look(device) == KV_OK; }) ? 0
                                                                                             : -1;
}

class RaceFinder
{
  public:
    // Whether the call ends a race.
    bool add(const kvSimCall &call, kvSimRace &race)
    {
        if (call.pending || call.code != KV_OK)
            return false;
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): a call that was told has one
        const Function &function = *describe::platform::find(call.function);
        const Subject subject = subjectOf(function, call);
        if (function.kind == Class::reads && subject.record)
            reads_[{call.thread, subject}] = call.number;
        if (function.kind != Class::writes)
            return false;
        // Of an object every setter changes a part of the whole.
        Subject whole = subject;
        if (function.object >= 0)
            whole.record = nullptr;
        const auto known = reads_.find({call.thread, subject});
        bool found = false;
        if (known != reads_.end()) {
            race = {known->second, 0, call.number};
            reads_.erase(known);
            for (const auto &[thread, number] : writes_[whole])
                if (thread != call.thread && number > race.read)
                    race.between = std::max(race.between, number);
            found = race.between != 0;
        }
        writes_[whole][call.thread] = call.number;
        return found;
    }

  private:
    std::map<std::pair<uint32_t, Subject>, uint64_t> reads_; // each thread's latest
    std::map<Subject, std::map<uint32_t, uint64_t>> writes_;
};

} // namespace

uint64_t kv_sim_journal_last(void)
{
    Transaction device;
    return device ? device->journal.last : 0;
}

int kv_sim_journal_get(uint64_t number, kvSimCall *call)
{
    return control([=](Transaction &device) { return tell(device, number, *call); });
}

int kv_sim_journal_end(kvSimCursor *cursor)
{
    return control([=](Transaction &device) {
        *cursor = {device->journal.last + 1, 0, device->resets};
        return KV_OK;
    });
}

int kv_sim_journal_next(kvSimCursor *cursor, kvSimCall *call, uint32_t milliseconds)
{
    int found = 0;
    waitFor(milliseconds, [&](Transaction &device) {
        found = read(device, *cursor, *call);
        return found != 0;
    });
    return found == 0 && kv_sim_open() != 0 ? -1 : found;
}

int kv_sim_journal_races(kvSimRace *races, unsigned size)
{
    RaceFinder finder;
    kvSimCursor cursor{};
    kvSimCall call{};
    kvSimRace race{};
    int found = 0;
    int more;
    while ((more = kv_sim_journal_next(&cursor, &call, 0)) == 1)
        if (finder.add(call, race) && static_cast<unsigned>(found++) < size)
            races[found - 1] = race;
    return more == 0 ? found : -1;
}

int kv_sim_wait_subscribed(uint32_t process, uint32_t services, uint32_t milliseconds)
{
    static constexpr const char *NAMES[] = {"anything", "alarms", "PM reports",
                                            "alarms and PM reports"};
    if (services >= std::size(NAMES)) {
        fail(BAD_VALUE, "there are no services %u", services);
        return -1;
    }
    return await(milliseconds, [=](Transaction &device) {
        if (isSubscribed(*device, process, services))
            return KV_OK;
        return process ? fail(WRONG_STATE, "process %u has not subscribed to %s", process,
                              NAMES[services])
                       : fail(WRONG_STATE, "no process has subscribed to %s", NAMES[services]);
    });
}

int kv_sim_wait_handled(uint32_t milliseconds)
{
    return await(milliseconds, [](Transaction &device) {
        for (const Service service : {Service::alarm, Service::pm})
            for (const auto &[process, count] : backlogs(device, service))
                return fail(WRONG_STATE, "process %u has not dealt with %u %s", process, count,
                            service == Service::alarm ? "alarm events" : "PM reports");
        if (const uint32_t count = device->clock.stopped ? 0 : lateOnes(*device))
            return fail(WRONG_STATE, "a fault still delays %u notifications", count);
        return KV_OK;
    });
}

int kv_sim_wait_idle(uint32_t quiet, uint32_t milliseconds)
{
    uint64_t resets = 0, last = 0, since = 0;
    return await(milliseconds, [=](Transaction &device) mutable {
        const uint64_t now = hostMonotonic();
        if (!since || resets != device->resets || last != device->journal.last) {
            resets = device->resets;
            last = device->journal.last;
            since = now;
        }
        if (now - since >= quiet * MILLISECOND)
            return KV_OK;
        return fail(WRONG_STATE, "no %u ms without a call: the latest is call %llu", quiet,
                    static_cast<unsigned long long>(last));
    });
}

int kv_sim_wait_hanging(uint32_t calls, uint32_t milliseconds)
{
    return await(milliseconds, [=](Transaction &device) {
        return device->hanging >= calls
                   ? KV_OK
                   : fail(WRONG_STATE, "%u calls hang, not %u", device->hanging, calls);
    });
}
