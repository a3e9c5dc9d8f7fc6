// One call of a recorded function.
#ifndef TRACE_CALL_H
#define TRACE_CALL_H

#include "recorder.h"

#include <type_traits>

namespace trace
{

constexpr size_t LONGEST_TEXT = 256;

template <class T>
constexpr bool isCallback = std::is_pointer_v<T> &&std::is_function_v<std::remove_pointer_t<T>>;
template <class T>
constexpr bool isOpaque = std::is_same_v<T, void *> || std::is_same_v<T, const struct timezone *>;
template <class T>
constexpr bool isResult = std::is_same_v<T, vexoResult *>;
template <class T>
constexpr bool isText = std::is_same_v<T, const char *>;
template <class T>
constexpr bool isRecord =
    std::is_pointer_v<T> && !isCallback<T> && !isOpaque<T> && !isResult<T> && !isText<T>;
template <class T>
constexpr bool isGiven = isRecord<T> &&std::is_const_v<std::remove_pointer_t<T>>;
template <class T>
constexpr bool isFilled = isRecord<T> && !std::is_const_v<std::remove_pointer_t<T>>;

// A MAC address is declared by its bytes.
template <class T>
constexpr size_t sizeOf = std::is_same_v<std::remove_cv_t<T>, unsigned char> ? sizeof(describe::Mac)
                                                                             : sizeof(T);

void putRedactedText(Writer &writer, const char *text, size_t length);
void putRedacted(Writer &writer, const Shape::Argument &argument, const void *value, size_t size,
                 uint32_t count);

inline void putText(Writer &writer, const char *text, size_t longest)
{
    const size_t length = strnlen(text, longest);
    if (redacting) [[unlikely]]
        return putRedactedText(writer, text, length);
    writer.text(text, length);
}

// What is written when a function is entered.
template <class T>
[[gnu::always_inline]] inline void enterWith(Writer &writer, const Shape::Argument &argument,
                                             uint8_t bit, uint8_t &absent, T given)
{
    if constexpr (isCallback<T>) {
        writer.number(registered(given).number);
    } else if constexpr (isOpaque<T>) {
        writer.number(given != nullptr);
    } else if constexpr (isText<T>) {
        if (given)
            putText(writer, given, argument.size);
        else
            absent |= bit;
    } else if constexpr (isGiven<T>) {
        constexpr size_t size = sizeOf<std::remove_pointer_t<T>>;
        if (!given)
            absent |= bit;
        else if (redacting) [[unlikely]]
            putRedacted(writer, argument, given, size, 1);
        else
            writer.record(given, size);
    } else if constexpr (!isResult<T> && !isFilled<T>) {
        static_assert(sizeof given <= sizeof(uint32_t));
        auto word = static_cast<uint32_t>(given);
        if (redacting) [[unlikely]]
            redact(argument.name, argument.type, 1, &word);
        writer.number(word);
    }
}

// What is written when it has succeeded. `all` are the arguments that are pointers.
template <class T>
[[gnu::always_inline]] inline void exitWith(Writer &writer, const Shape::Argument &argument,
                                            uint8_t bit, uint8_t &absent, T given,
                                            const void *const *all)
{
    if constexpr (isFilled<T>) {
        constexpr size_t size = sizeOf<std::remove_pointer_t<T>>;
        if (!given) {
            absent |= bit;
        } else if (argument.count > 1) [[unlikely]] {
            uint32_t count = argument.count;
            if (argument.countedBy >= 0 && all[argument.countedBy]) {
                uint32_t filled;
                memcpy(&filled, all[argument.countedBy], sizeof filled);
                count = filled < count ? filled : count;
            }
            writer.number(count);
            if (redacting)
                putRedacted(writer, argument, given, size * count, count);
            else
                writer.record(given, size * count);
        } else if (redacting) [[unlikely]] {
            putRedacted(writer, argument, given, size, 1);
        } else {
            writer.record(given, size);
        }
    }
}

template <class T>
constexpr const void *pointerOf(T given)
{
    if constexpr (isFilled<T>)
        return given;
    else
        return nullptr;
}

template <class T>
constexpr vexoResult *resultOf(T given)
{
    if constexpr (isResult<T>)
        return given;
    else
        return nullptr;
}

// What is handed on in place of an argument.
template <class T>
[[gnu::always_inline]] inline T handedOn(T given)
{
    if constexpr (isCallback<T>)
        return registered(given).function;
    else
        return given;
}

enum class Returns { nothing, result, code, text, other };

// An event of the thread, while it is written. What a signal handler calls meanwhile isn't
// recorded.
class Entry
{
  public:
    [[gnu::always_inline]] explicit Entry(size_t room) : self_{thread}
    {
        if (self_.busy) {
            countLost();
            return;
        }
        self_.busy = true;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        at_ = beginEvent(self_, room);
        if (!at_) {
            self_.busy = false;
            countLost();
        }
    }
    [[gnu::always_inline]] ~Entry()
    {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (at_)
            self_.busy = false;
    }
    Entry(const Entry &) = delete;

    explicit operator bool() const { return at_ != nullptr; }
    Writer writer() const { return Writer{at_ + sizeof(Event)}; }

    [[gnu::always_inline]] void end(EventKind kind, uint8_t absent, uint16_t place, uint64_t clock,
                                    const Writer &writer)
    {
        endEvent(self_, kind, absent, place, clock, writer.end());
    }

  private:
    Thread &self_;
    uint8_t *at_ = nullptr;
};

template <uint16_t place, class... Given, size_t... i>
[[gnu::always_inline]] inline bool enter(std::index_sequence<i...>, Given... given)
{
    const Shape &shape = shapes[place];
    Entry entry{shape.enterRoom};
    if (!entry)
        return false;
    const uint64_t clock = now();
    Writer writer = entry.writer();
    uint8_t absent = 0;
    (enterWith(writer, shape.arguments[i], uint8_t{1U << i}, absent, given), ...);
    entry.end(EventKind::enter, absent, place, clock, writer);
    return true;
}

template <uint16_t place, Returns returns, class Result, class... Given, size_t... i>
[[gnu::always_inline]] inline void exit(uint64_t clock, bool succeeded, Result result,
                                        std::index_sequence<i...>, Given... given)
{
    const Shape &shape = shapes[place];
    Entry entry{shape.exitRoom};
    if (!entry)
        return;
    Writer writer = entry.writer();
    uint8_t absent = 0;
    if constexpr (returns == Returns::result) {
        const vexoResult *filled = nullptr;
        ((filled = isResult<Given> ? resultOf(given) : filled), ...);
        if (!filled) {
            absent = NO_RESULT;
        } else {
            writer.number(filled->rc);
            if (filled->rc != VEXO_RC_OK)
                putText(writer, filled->message, sizeof filled->message);
        }
    } else if constexpr (returns == Returns::text) {
        if (result)
            putText(writer, result, LONGEST_TEXT);
        else
            absent = NO_RESULT;
    } else if constexpr (returns != Returns::nothing) {
        writer.number(static_cast<uint32_t>(result));
    }
    if (succeeded) {
        [[maybe_unused]] const void *const pointers[] = {pointerOf(given)..., nullptr};
        (exitWith(writer, shape.arguments[i], uint8_t{1U << i}, absent, given, pointers), ...);
    } else {
        ((absent |= isFilled<Given> ? uint8_t{1U << i} : uint8_t{0}), ...);
    }
    entry.end(EventKind::exit, absent, place, clock, writer);
}

// Calls the function that is behind, between two events.
template <uint16_t place, Returns returns, class Result, class... Given>
[[gnu::noinline]] Result record(Result (*behind)(Given...), Given... given)
{
    constexpr auto all = std::index_sequence_for<Given...>{};
    if ((isRecording() != ON && !start()) || !enter<place>(all, given...))
        return behind(handedOn(given)...);
    Thread &self = thread;
    ++self.depth;
    if constexpr (place < OPERATION_COUNT) {
        const char *const around = *self.operation;
        const bool failed = self.failed;
        *self.operation = shapes[place].name;
        self.failed = false;
        behind(handedOn(given)...);
        const uint64_t clock = now();
        *self.operation = around;
        --self.depth;
        const vexoResult *filled = nullptr;
        ((filled = isResult<Given> ? resultOf(given) : filled), ...);
        exit<place, returns>(clock, filled ? filled->rc == VEXO_RC_OK : !self.failed, 0, all,
                             given...);
        self.failed = failed;
    } else {
        const Result result = behind(handedOn(given)...);
        const uint64_t clock = now();
        --self.depth;
        const bool succeeded = returns != Returns::code || result == Result{};
        if constexpr (returns == Returns::code)
            self.failed |= !succeeded;
        exit<place, returns>(clock, succeeded, result, all, given...);
        return result;
    }
}

template <uint16_t place, Returns returns, class Result, class... Given>
[[gnu::always_inline]] inline Result call(Result (*behind)(Given...), Given... given)
{
    if (isRecording() == OFF) [[likely]]
        return behind(handedOn(given)...);
    return record<place, returns, Result, Given...>(behind, given...);
}

} // namespace trace

#endif
