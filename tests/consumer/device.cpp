// The platform libraries of a device that nobody here knows. What it does comes from the simulated
// one's parts, which nobody else in the process sees; OTHER makes one with fewer ports, and with
// codes and texts of its own.
#include <plan.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include <dlfcn.h>

using describe::platform::Index;
using describe::platform::Returns;

namespace
{

#ifdef OTHER
constexpr bool IS_OTHER = true;
#else
constexpr bool IS_OTHER = false;
#endif
constexpr uint32_t PORTS = 6;
constexpr kvRc NO_PORT = 77; // of no class that the library knows
constexpr const char *NO_PORT_TEXT = "E-77: this unit has six ports";

thread_local kvRc latest;

void *behind(const char *function)
{
    void *const core = dlopen(CORE, RTLD_NOW | RTLD_LOCAL);
    void *const found = core ? dlsym(core, function) : nullptr;
    if (!found) {
        fprintf(stderr, "%s\n", dlerror());
        abort();
    }
    return found;
}

kvRc own(kvRc code)
{
    constexpr kvRc BAD_VALUE = 2, NO_OBJECT = 4, EXISTS = 256;
    return code == BAD_VALUE ? 512 : code == NO_OBJECT ? NO_PORT + 1 : code == EXISTS ? 1024 : code;
}

bool isBeyond(const describe::platform::Function &row, const describe::platform::Arguments &given)
{
    const trace::Thing thing = trace::thingOf(row, given.numbers);
    return thing.type == OBJ_PDH && thing.number > PORTS;
}

template <Index function, Returns returns, class Declaration>
struct Front;

template <Index index, Returns returns, class Result, class... Given>
struct Front<index, returns, Result(Given...)> {
    static Result call(Given... given)
    {
        const describe::platform::Function &row =
            describe::platform::functions()[static_cast<size_t>(index)];
        static auto *const function = reinterpret_cast<Result (*)(Given...)>(behind(row.name));
        const describe::platform::Arguments arguments{given...};
        if (!IS_OTHER)
            return function(given...);
        if constexpr (returns == Returns::code) {
            return latest = isBeyond(row, arguments) ? NO_PORT : own(function(given...));
        } else if constexpr (index == Index::GetObjectCount) {
            return arguments.numbers[0] == OBJ_PDH ? PORTS : function(given...);
        } else if constexpr (returns == Returns::text) {
            const kvRc code = index == Index::kv_rc_to_string ? arguments.numbers[0] : latest;
            return code == NO_PORT ? NO_PORT_TEXT : function(given...);
        } else {
            return function(given...);
        }
    }
};

} // namespace

extern "C" {

#define FRONT(library, kind, returns, function, ...)                                               \
    PLATFORM_DEFINE((Front<Index::function, Returns::returns, decltype(function)>::call),          \
                    function, __VA_ARGS__)
LIBRARY_FUNCTIONS(FRONT)

int kv_log(int, int, const char *, const char *, int, const char *, ...)
{
    return 0;
}
}
