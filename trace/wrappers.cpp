// The functions of both layers, each made from its row or its declaration.
#include "call.h"

#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>
#include <sys/time.h>

using namespace trace;
using describe::platform::Index;

namespace
{

template <class... Given>
constexpr Returns ofOperation()
{
    return (isResult<Given> || ...) ? Returns::result : Returns::nothing;
}

constexpr Returns ofPlatform(describe::platform::Returns returns)
{
    switch (returns) {
    case describe::platform::Returns::code:
    case describe::platform::Returns::status:
        return Returns::code;
    case describe::platform::Returns::text:
        return Returns::text;
    default:
        return Returns::other;
    }
}

template <trace::Operation operation, class Declaration>
struct OperationWrapper;

template <trace::Operation operation, class... Given>
struct OperationWrapper<operation, void(Given...)> {
    static void call(Given... given)
    {
        constexpr uint16_t place = placeOf(operation);
        trace::call<place, ofOperation<Given...>()>(targetOf<void (*)(Given...)>(place), given...);
    }
};

template <Index function, Returns returns, class Declaration>
struct PlatformWrapper;

template <Index function, Returns returns, class Result, class... Given>
struct PlatformWrapper<function, returns, Result(Given...)> {
    static Result call(Given... given)
    {
        constexpr uint16_t place = placeOf(function);
        return trace::call<place, returns>(targetOf<Result (*)(Given...)>(place), given...);
    }
};

} // namespace

#define EXPORT [[gnu::visibility("default")]]

extern "C" {

// ---- Operations ----

#define PARAMETERS(function, count) PARAMETERS_##count(function)
#define GIVEN(count) GIVEN_##count
#define PARAMETERS_0(function)
#define PARAMETERS_1(function) PLATFORM_ARGUMENT(function, 0)
#define PARAMETERS_2(function) PARAMETERS_1(function), PLATFORM_ARGUMENT(function, 1)
#define PARAMETERS_3(function) PARAMETERS_2(function), PLATFORM_ARGUMENT(function, 2)
#define PARAMETERS_4(function) PARAMETERS_3(function), PLATFORM_ARGUMENT(function, 3)
#define PARAMETERS_5(function) PARAMETERS_4(function), PLATFORM_ARGUMENT(function, 4)
#define PARAMETERS_6(function) PARAMETERS_5(function), PLATFORM_ARGUMENT(function, 5)
#define GIVEN_0
#define GIVEN_1 a0
#define GIVEN_2 GIVEN_1, a1
#define GIVEN_3 GIVEN_2, a2
#define GIVEN_4 GIVEN_3, a3
#define GIVEN_5 GIVEN_4, a4
#define GIVEN_6 GIVEN_5, a5

#define TRACED(function, count)                                                                    \
    EXPORT void function(PARAMETERS(function, count))                                              \
    {                                                                                              \
        OperationWrapper<trace::Operation::function, decltype(function)>::call(GIVEN(count));      \
    }
#include "operations.inc"
#undef TRACED

// ---- The platform's functions ----

#define WRAPPER(library, kind, returns, function, ...)                                             \
    EXPORT PLATFORM_DEFINE(                                                                        \
        (PlatformWrapper<Index::function, ofPlatform(describe::platform::Returns::returns),        \
                         decltype(function)>::call),                                               \
        function, __VA_ARGS__)
LIBRARY_FUNCTIONS(WRAPPER)

// What it is given can't be handed on as it is: the text is, which it makes.
EXPORT int kv_log(int level, int module, const char *file, const char *function, int line,
                  const char *format, ...)
{
    char text[LONGEST_TEXT];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    using Behind = int (*)(int, int, const char *, const char *, int, const char *, ...);
    constexpr uint16_t place = placeOf(Index::kv_log);
    const auto behind = targetOf<Behind>(place);
    constexpr auto all = std::make_index_sequence<6>{};
    if (!start() ||
        !enter<place>(all, level, module, file, function, line, static_cast<const char *>(text)))
        return behind(level, module, file, function, line, "%s", text);
    ++thread.depth;
    const int result = behind(level, module, file, function, line, "%s", text);
    const uint64_t clock = trace::now();
    --thread.depth;
    trace::exit<place, Returns::code>(clock, true, result, std::index_sequence<>{});
    return result;
}
}

// ---- The clock ----

// Everyone's in the process, of whom the library alone is recorded. On the simulated device the
// library has the device's clock behind the recorder, and these are not called by it.
namespace
{

using Set = int (*)(const timeval *, const struct timezone *);
using Get = int (*)(timeval *, void *);

std::atomic<Set> deviceSet;
std::atomic<Get> deviceGet;

int setDevice(const timeval *time, const struct timezone *zone)
{
    return trace::call<placeOf(Index::settimeofday), Returns::code>(deviceSet.load(), time, zone);
}

int getDevice(timeval *time, void *zone)
{
    return trace::call<placeOf(Index::gettimeofday), Returns::code>(deviceGet.load(), time, zone);
}

} // namespace

extern "C" {

EXPORT int settimeofday(const timeval *time, const struct timezone *zone) noexcept
{
    constexpr uint16_t place = placeOf(Index::settimeofday);
    const auto behind = targetOf<Set>(place);
    if (!isInLibrary(__builtin_return_address(0)))
        return behind(time, zone);
    return trace::call<place, Returns::code>(behind, time, zone);
}

EXPORT int gettimeofday(timeval *time, void *zone) noexcept
{
    constexpr uint16_t place = placeOf(Index::gettimeofday);
    const auto behind = targetOf<Get>(place);
    if (!isInLibrary(__builtin_return_address(0)))
        return behind(time, zone);
    return trace::call<place, Returns::code>(behind, time, zone);
}

// For a simulated device, whose clock is to be the library's in place of the C library's: `front`
// is what the name means in the process, `behind` the C library's function, `instead` the device's.
// What the library is to call so that it is recorded; null where the recorder doesn't stand between
// these.
EXPORT void *vexo_trace_clock(const char *name, void *front, void *behind, void *instead)
{
    if (strcmp(name, "settimeofday") == 0 && front == reinterpret_cast<void *>(settimeofday) &&
        targetOf<void *>(placeOf(Index::settimeofday)) == behind) {
        deviceSet = reinterpret_cast<Set>(instead);
        return reinterpret_cast<void *>(setDevice);
    }
    if (strcmp(name, "gettimeofday") == 0 && front == reinterpret_cast<void *>(gettimeofday) &&
        targetOf<void *>(placeOf(Index::gettimeofday)) == behind) {
        deviceGet = reinterpret_cast<Get>(instead);
        return reinterpret_cast<void *>(getDevice);
    }
    return nullptr;
}
}

void *trace::wrapperOf(uint16_t place)
{
#define TRACED(function, count) reinterpret_cast<void *>(::function),
#define WRAPPED(library, kind, returns, function, ...) reinterpret_cast<void *>(::function),
    static void *const wrappers[] = {
#include "operations.inc"
        PLATFORM_FUNCTIONS(WRAPPED)};
#undef TRACED
    return wrappers[place];
}

void trace::putRedactedText(Writer &writer, const char *text, size_t length)
{
    char copy[2 * LONGEST_TEXT];
    memcpy(copy, text, length);
    writer.text(copy, redactText(copy, length, LONGEST_TEXT));
}

void trace::putRedacted(Writer &writer, const Shape::Argument &argument, const void *value,
                        size_t size, uint32_t count)
{
    alignas(8) char copy[4096];
    if (size > sizeof copy)
        size = sizeof copy;
    memcpy(copy, value, size);
    redact(argument.name, argument.type, count, copy);
    writer.record(copy, size);
}
