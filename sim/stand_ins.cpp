// The functions of one library of the platform's, each made from its row.
#include "bodies.h"
#include "entry.h"
#include "rebind.h"

using namespace sim;
using describe::platform::Returns;

namespace
{

template <Index function, Returns returns, auto body>
struct StandIn;

template <Index function, Returns returns, class Result, class... Given,
          Result (*body)(Transaction &, Given...)>
struct StandIn<function, returns, body> {
    static Result call(Given... given)
    {
        if constexpr (returns == Returns::code) {
            Call call{function, given...};
            return call.run([=](Transaction &device) { return body(device, given...); });
        } else if constexpr (returns == Returns::count) {
            Result instead{};
            Call call{function, given..., &instead};
            if (call.enter())
                instead = body(call.device, given...);
            return call.isMet() && call.code() != KV_OK ? call.code() : instead;
        } else if constexpr (returns == Returns::text) {
            Call call{function, given...};
            call.enter();
            // Texts are there without a device, too: the one that tells why there is none.
            const bool fails = call.isMet() && call.code() != KV_OK;
            Result text = fails ? nullptr : body(call.device, given...);
            call.filled(text);
            return text;
        } else {
            static_assert(returns == Returns::descriptor);
            Call call{function, given...};
            return call.enter() ? body(call.device, given...) : -1;
        }
    }
};

} // namespace

extern "C" {

#define STAND_IN(library, kind, returns, function, ...)                                            \
    PLATFORM_DEFINE((StandIn<Index::function, Returns::returns, body::function>::call), function,  \
                    __VA_ARGS__)
FUNCTIONS(STAND_IN)
}

// Whichever stand-in comes with the library, what the library calls is right before anything is
// called.
__attribute__((constructor)) static void load()
{
    bindLibrary();
}
