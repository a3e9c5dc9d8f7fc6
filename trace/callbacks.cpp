// What is registered in place of a callback calls it, between two events. Each callback has one of
// its own: which of them gets what comes while they are exchanged is the library's to say.
#include "call.h"

namespace trace
{

namespace
{

constexpr size_t REGISTRATIONS = 64;

template <Callback kind, class Function>
struct Stand;

template <Callback kind, class Given>
struct Stand<kind, void (*)(Given)> {
    using Function = void (*)(Given);

    template <size_t i>
    static void call(Given given)
    {
        const Function agents = callbacks[i].load(std::memory_order_relaxed);
        if (isRecording() == OFF) [[likely]]
            return agents(given);
        constexpr uint16_t place = placeOf(kind);
        constexpr auto one = std::make_index_sequence<1>{};
        bool entered = false;
        if (start()) {
            if constexpr (std::is_pointer_v<Given>)
                entered =
                    enter<place>(one, static_cast<const std::remove_pointer_t<Given> *>(given));
            else
                entered = enter<place>(one, given);
        }
        if (!entered)
            return agents(given);
        ++thread.depth;
        agents(given);
        const uint64_t clock = now();
        --thread.depth;
        exit<place, Returns::nothing>(clock, true, 0, std::index_sequence<>{});
    }

    template <size_t... i>
    static constexpr auto stands(std::index_sequence<i...>)
    {
        return std::array<Function, REGISTRATIONS>{call<i>...};
    }

    static Registered<Function> find(Function function)
    {
        static constexpr auto STANDS = stands(std::make_index_sequence<REGISTRATIONS>{});
        if (!function)
            return {nullptr, 0};
        for (uint32_t i = 0; i < REGISTRATIONS; ++i) {
            // Registered again what a call hands over: as when a host registers what it had read.
            Function known = nullptr;
            if (function == STANDS[i])
                return {function, i + 1};
            if (callbacks[i].compare_exchange_strong(known, function) || known == function)
                return {STANDS[i], i + 1};
        }
        setFlag(MORE_CALLBACKS);
        return {function, REGISTRATIONS + 1};
    }

    static inline std::atomic<Function> callbacks[REGISTRATIONS];
};

} // namespace

Registered<vexoAlarmCallback> registered(vexoAlarmCallback callback)
{
    return Stand<Callback::alarm, vexoAlarmCallback>::find(callback);
}

Registered<vexoPmCallback> registered(vexoPmCallback callback)
{
    return Stand<Callback::pm, vexoPmCallback>::find(callback);
}

Registered<AlarmHandler> registered(AlarmHandler handler)
{
    return Stand<Callback::alarmEvent, AlarmHandler>::find(handler);
}

Registered<PmHandler> registered(PmHandler handler)
{
    return Stand<Callback::pmInterval, PmHandler>::find(handler);
}

} // namespace trace
