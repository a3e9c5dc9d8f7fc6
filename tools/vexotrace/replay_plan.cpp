#include "replay_plan.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <tuple>
#include <unordered_map>

namespace vexotrace
{

using describe::Kind;
using describe::platform::Index;
using trace::Call;
using trace::Content;
using trace::NO_STEP;
using trace::NUMBERS;
using trace::Plan;
using trace::Queue;
using trace::Recording;
using trace::Step;
using trace::StepKind;
using Row = describe::platform::Function;
using Bytes = std::vector<uint8_t>;

namespace
{

// ---- Records of the file and of this program ----

enum class Way { toOwn, toFile };

bool isSameLayout(const trace::Type &file, const describe::Type &own)
{
    if (file.size != own.size || file.kind != own.kind || file.fields.size() != own.fields.size())
        return false;
    for (size_t i = 0; i < own.fields.size(); ++i) {
        const trace::Field &a = file.fields[i];
        const describe::Field &b = own.fields[i];
        if (a.name != b.name || a.offset != b.offset || a.count != b.count ||
            !isSameLayout(*a.type, *b.type))
            return false;
    }
    return true;
}

// Fields by their names; what only one of them has stays 0.
void copy(const trace::Type &file, const describe::Type &own, const uint8_t *from, uint8_t *to,
          Way way)
{
    if (isSameLayout(file, own) || file.kind != Kind::record || own.kind != Kind::record) {
        memcpy(to, from, std::min(file.size, own.size));
        return;
    }
    for (const describe::Field &field : own.fields) {
        const trace::Field *const other = file.find(field.name);
        if (!other || (other->type->kind == Kind::record) != (field.type->kind == Kind::record))
            continue;
        for (uint32_t i = 0; i < std::min(field.count, other->count); ++i) {
            const size_t inOwn = field.offset + size_t{i} * field.type->size;
            const size_t inFile = other->offset + size_t{i} * other->type->size;
            copy(*other->type, *field.type, from + (way == Way::toOwn ? inFile : inOwn),
                 to + (way == Way::toOwn ? inOwn : inFile), way);
        }
    }
}

size_t placeOf(const trace::Function &function, const char *argument)
{
    for (size_t i = 0; i < function.arguments.size(); ++i)
        if (function.arguments[i].name == argument)
            return i;
    return function.arguments.size();
}

// ---- The plan ----

class Builder
{
  public:
    Builder(const Recording &recording, uint32_t flags) : recording_{recording}, flags_{flags}
    {
        put(Bytes(sizeof(Plan)));
        for (const trace::Function &function : recording.functions())
            rows_.push_back(function.layer == trace::Layer::platform
                                ? describe::platform::find(function.name)
                                : nullptr);
    }

    Bytes build()
    {
        const std::vector<Call> &calls = recording_.calls();
        steps_.reserve(calls.size());
        for (uint32_t i = 0; i < calls.size(); ++i)
            add(i);
        if (!std::ranges::is_sorted(steps_, {}, &Step::clock))
            std::ranges::stable_sort(steps_, {}, &Step::clock);
        if (std::ranges::any_of(steps_, isAlarm))
            takeAlarms();
        for (uint32_t i = 0; i < trace::SERVICES; ++i) {
            events_[i] = addQueue(SERVICE_QUEUE);
            services_[i] = addQueue(SERVICE_QUEUE);
        }
        for (uint32_t i = 0; i < steps_.size(); ++i)
            enqueue(i);
        return finish();
    }

  private:
    static constexpr uint32_t SERVICE_QUEUE = 0x20000; // which is not looked for

    uint64_t put(std::span<const uint8_t> bytes)
    {
        const size_t at = (bytes_.size() + 7) / 8 * 8;
        bytes_.resize(at);
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return at;
    }

    // Equal ones once.
    uint64_t putOnce(const Bytes &bytes)
    {
        const auto [found, isNew] =
            known_.try_emplace(std::string{bytes.begin(), bytes.end()}, uint64_t{0});
        if (isNew)
            found->second = put(bytes);
        return found->second;
    }

    uint64_t putText(const std::string &text)
    {
        Bytes bytes{text.begin(), text.end()};
        bytes.push_back(0);
        return putOnce(bytes);
    }

    void add(uint32_t place)
    {
        const Call &call = recording_.calls()[place];
        const Row *const row = rows_[call.function];
        if (!row || !call.enter || !call.exit)
            return;
        const StepKind kind = trace::kindOf(*row);
        if (kind == StepKind::none)
            return;
        recording_.read(call, content_);
        if (kind == StepKind::event) {
            addEvents(place, *row);
            return;
        }
        Step step = stepOf(place, *row, kind);
        fill(step, call, *row);
        steps_.push_back(step);
        toldBy(steps_.size() - 1, *row);
    }

    static Step stepOf(uint32_t place, const Row &row, StepKind kind)
    {
        Step step{};
        step.call = place;
        step.next = NO_STEP;
        step.kind = kind;
        step.function = static_cast<uint16_t>(&row - describe::platform::functions().data());
        return step;
    }

    void fill(Step &step, const Call &call, const Row &row)
    {
        const trace::Function &function = recording_.functionOf(call);
        step.thread = call.thread;
        step.clock = call.begin;
        step.result = content_.code.value_or(0);
        if (content_.text)
            step.text = putText(*content_.text);
        size_t numbers = 0, outputs = 0;
        for (const describe::platform::Argument &argument : row.arguments) {
            if (!argument.type)
                continue;
            const size_t place = placeOf(function, argument.name);
            const bool isThere =
                place < content_.arguments.size() && content_.arguments[place].isThere;
            if (!argument.isPointer) {
                step.numbers[numbers++] =
                    isThere ? static_cast<uint32_t>(content_.arguments[place].number) : 0;
                continue;
            }
            const uint64_t at = isThere ? putRecord(function.arguments[place], argument,
                                                    content_.arguments[place].bytes)
                                        : 0;
            (argument.direction == describe::Direction::in ? step.in : step.out[outputs++]) = at;
        }
    }

    uint64_t putRecord(const trace::Argument &file, const describe::platform::Argument &own,
                       const Bytes &bytes)
    {
        if (!file.type || bytes.size() < file.type->size)
            return 0;
        const auto [isSame, isNew] = isOwnLayout_.try_emplace(file.type, false);
        if (isNew)
            isSame->second = isSameLayout(*file.type, *own.type);
        if (isSame->second)
            return putOnce(bytes);
        Bytes record(own.type->size);
        copy(*file.type, *own.type, bytes.data(), record.data(), Way::toOwn);
        return putOnce(record);
    }

    // The text of a failure is asked for by the thread that had it.
    void toldBy(size_t place, const Row &row)
    {
        std::optional<size_t> &failed = failed_[steps_[place].thread];
        if (row.returns == describe::platform::Returns::code && steps_[place].result != KV_OK) {
            failed = place;
        } else if (steps_[place].function ==
                       static_cast<uint16_t>(Index::config_get_error_string) &&
                   failed) {
            steps_[*failed].text = steps_[place].text;
        }
    }

    // What the handler was given meanwhile, and that it failed.
    void addEvents(uint32_t place, const Row &row)
    {
        const Call &call = recording_.calls()[place];
        const uint32_t result = content_.code.value_or(0);
        for (uint32_t i = recording_.firstWithin(place); i != trace::NONE;
             i = recording_.calls()[i].next) {
            const Call &inner = recording_.calls()[i];
            const trace::Function &function = recording_.functionOf(inner);
            if (function.layer != trace::Layer::handler || !inner.enter ||
                function.arguments.empty())
                continue;
            recording_.read(inner, content_);
            Step step = stepOf(i, row, StepKind::event);
            step.thread = inner.thread;
            step.clock = inner.begin;
            step.end = inner.end ? inner.end : UINT64_MAX;
            const trace::Argument &argument = function.arguments[0];
            const trace::Value &value = content_.arguments[0];
            if (!argument.pointer)
                step.numbers[0] = static_cast<uint32_t>(value.number);
            else if (!argument.type || value.bytes.size() < argument.type->size)
                continue;
            else
                step.in = putEvent(*argument.type, value.bytes);
            steps_.push_back(step);
        }
        if (result != KV_OK) {
            Step step = stepOf(place, row, StepKind::event);
            step.thread = call.thread;
            step.clock = call.end;
            step.result = result;
            steps_.push_back(step);
        }
    }

    uint64_t putEvent(const trace::Type &type, const Bytes &bytes)
    {
        const describe::Type &own = describe::Row<alarmEvent>::type;
        Bytes record(own.size);
        copy(type, own, bytes.data(), record.data(), Way::toOwn);
        return putOnce(record);
    }

    static bool isAlarm(const Step &step) { return step.kind == StepKind::event && step.in != 0; }

    // What an event told of an object's alarms is what the device would answer next, where nobody
    // asked it afterwards.
    void takeAlarms()
    {
        constexpr auto READ = static_cast<uint16_t>(Index::alarm_get_active_bits);
        std::map<std::array<uint32_t, NUMBERS>, uint64_t> asked; // when, for the last time
        const auto keyOf = [](const Step &step) {
            return std::array{step.numbers[0], step.numbers[1], step.numbers[2], step.numbers[3]};
        };
        for (const Step &step : steps_)
            if (step.function == READ)
                asked[keyOf(step)] = step.clock;
        std::vector<Step> all;
        for (const Step &step : steps_) {
            all.push_back(step);
            if (!isAlarm(step))
                continue;
            alarmEvent event;
            memcpy(&event, bytes_.data() + step.in, sizeof event);
            Step told = stepOf(step.call, describe::platform::functions()[READ], StepKind::read);
            told.thread = step.thread;
            told.clock = step.clock;
            told.numbers[0] = event.objType;
            told.numbers[1] = event.objId;
            told.done = 1; // nobody has to ask
            const auto *const bits = reinterpret_cast<const uint8_t *>(&event.status);
            told.out[0] = putOnce(Bytes(bits, bits + sizeof event.status));
            if (asked[keyOf(told)] < step.clock)
                all.push_back(told);
        }
        steps_ = std::move(all);
    }

    uint32_t addQueue(uint32_t what, const uint32_t *numbers = nullptr)
    {
        Queue queue{};
        queue.what = what;
        if (numbers)
            memcpy(queue.numbers, numbers, sizeof queue.numbers);
        queue.first = queue.at = queue.latest = NO_STEP;
        queues_.push_back(queue);
        lasts_.push_back(NO_STEP);
        return static_cast<uint32_t>(queues_.size() - 1);
    }

    uint32_t queueOf(uint32_t what, const uint32_t *numbers, uint64_t in = 0)
    {
        std::array<uint32_t, NUMBERS> all;
        memcpy(all.data(), numbers, sizeof all);
        const Key key{what, all, in};
        const auto [found, isNew] = keys_.try_emplace(key, 0);
        if (isNew)
            found->second = addQueue(what, numbers);
        return found->second;
    }

    void enqueue(uint32_t place)
    {
        Step &step = steps_[place];
        const Row &row = describe::platform::functions()[step.function];
        const trace::Thing thing = trace::thingOf(row, step.numbers);
        const uint32_t numbers[NUMBERS]{thing.type, thing.number};
        uint32_t queue = 0;
        switch (step.kind) {
        case StepKind::event:
            queue = events_[trace::serviceOf(row)];
            break;
        case StepKind::service:
            queue = services_[trace::serviceOf(row)];
            break;
        case StepKind::change:
            queue = queueOf(trace::CHANGES_OF, numbers);
            break;
        default:
            queue = queueOf(step.function, step.numbers, step.in);
            queues_[queue].about = queueOf(trace::CHANGES_OF, numbers);
        }
        uint32_t &last = lasts_[queue];
        if (last == NO_STEP)
            queues_[queue].first = queues_[queue].at = place;
        else
            steps_[last].next = place;
        step.repeats = last != NO_STEP && isSameAnswer(row, steps_[last], step);
        last = place;
        if (flags_ & trace::LOOKS && step.kind == StepKind::read)
            queues_[queue].latest = place;
    }

    bool isSameAnswer(const Row &row, const Step &a, const Step &b) const
    {
        if (a.result != b.result && row.returns != describe::platform::Returns::descriptor)
            return false;
        size_t outputs = 0;
        for (const describe::platform::Argument &argument : row.arguments) {
            if (!argument.type || !argument.isPointer ||
                argument.direction == describe::Direction::in)
                continue;
            const size_t i = outputs++;
            if (!argument.changes && a.out[i] && b.out[i] && a.out[i] != b.out[i] &&
                !trace::isSame(*argument.type, bytes_.data() + a.out[i], bytes_.data() + b.out[i],
                               false))
                return false;
        }
        return true;
    }

    template <class T>
    uint64_t putAll(const std::vector<T> &all)
    {
        return put({reinterpret_cast<const uint8_t *>(all.data()), all.size() * sizeof(T)});
    }

    Bytes finish()
    {
        std::vector<uint32_t> buckets(16);
        while (buckets.size() < 2 * queues_.size())
            buckets.resize(2 * buckets.size());
        for (uint32_t i = 0; i < queues_.size(); ++i) {
            if (queues_[i].what == SERVICE_QUEUE)
                continue;
            size_t at = trace::hashOf(queues_[i].what, queues_[i].numbers);
            while (buckets[at & (buckets.size() - 1)] != 0)
                ++at;
            buckets[at & (buckets.size() - 1)] = i + 1;
        }
        const uint64_t steps = putAll(steps_), queues = putAll(queues_), at = putAll(buckets);
        Plan &plan = *new (bytes_.data()) Plan{};
        plan.size = bytes_.size();
        plan.flags = flags_;
        plan.stepCount = static_cast<uint32_t>(steps_.size());
        plan.queueCount = static_cast<uint32_t>(queues_.size());
        plan.bucketCount = static_cast<uint32_t>(buckets.size());
        plan.steps = steps;
        plan.queues = queues;
        plan.buckets = at;
        std::ranges::copy(events_, plan.events);
        std::ranges::copy(services_, plan.services);
        plan.latest = NO_STEP;
        std::ranges::fill(plan.latests, NO_STEP);
        return std::move(bytes_);
    }

    using Key = std::tuple<uint32_t, std::array<uint32_t, NUMBERS>, uint64_t>; // and the record

    const Recording &recording_;
    const uint32_t flags_;
    std::vector<const Row *> rows_; // of the recording's functions
    std::map<const trace::Type *, bool> isOwnLayout_;
    Content content_;
    Bytes bytes_;
    std::unordered_map<std::string, uint64_t> known_;
    std::vector<Step> steps_;
    std::map<uint32_t, std::optional<size_t>> failed_; // step, by threads
    std::vector<Queue> queues_;
    std::vector<uint32_t> lasts_; // step of each queue
    std::map<Key, uint32_t> keys_;
    std::array<uint32_t, trace::SERVICES> events_{}, services_{};
};

} // namespace

Bytes planOf(const Recording &recording, uint32_t flags)
{
    return Builder{recording, flags}.build();
}

Content contentOf(const trace::Function &function, const trace::Difference &difference)
{
    const Row &row = describe::platform::functions()[difference.function];
    Content content;
    content.arguments.resize(function.arguments.size());
    size_t numbers = 0;
    for (const describe::platform::Argument &argument : row.arguments) {
        const size_t place = placeOf(function, argument.name);
        const bool isNumber = argument.type && !argument.isPointer;
        const uint32_t number = isNumber ? difference.numbers[numbers++] : 0;
        if (place == function.arguments.size() ||
            (argument.isPointer && argument.direction == describe::Direction::out))
            continue;
        trace::Value &value = content.arguments[place];
        const trace::Type *const type = function.arguments[place].type;
        value.isThere = true;
        value.number = number;
        if (!argument.type || !argument.isPointer || !type)
            continue;
        value.bytes.resize(type->size);
        if (difference.inSize >= argument.type->size)
            copy(*type, *argument.type, difference.in, value.bytes.data(), Way::toFile);
    }
    return content;
}

} // namespace vexotrace
