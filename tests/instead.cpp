#include "instead.h"

#include <platform.h>

namespace
{

template <auto function>
decltype(function) either(decltype(function) devices)
{
    const auto own = instead<function>.load();
    return own ? own : devices;
}

} // namespace

// The executable's functions come first.
extern "C" {

#define EITHER(library, kind, returns, function, ...)                                              \
    PLATFORM_DEFINE(either<&function>(DEVICES(function)), function, __VA_ARGS__)
LIBRARY_FUNCTIONS(EITHER)
}

void insteadOfNothing()
{
#define DEVICES_AGAIN(library, kind, returns, function, ...) instead<&function> = nullptr;
    LIBRARY_FUNCTIONS(DEVICES_AGAIN)
}
