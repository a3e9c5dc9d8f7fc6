// What each stand-in does. A function whose body is missing doesn't link.
#ifndef SIM_BODIES_H
#define SIM_BODIES_H

#include "device.h"

#include <platform.h>

namespace sim
{

template <class Function>
struct BodyOf;

template <class Result, class... Given>
struct BodyOf<Result(Given...)> {
    using Type = Result(Transaction &, Given...);
};

namespace body
{

#define BODY(library, kind, returns, function, ...) BodyOf<decltype(::function)>::Type function;
LIBRARY_FUNCTIONS(BODY)
#undef BODY

} // namespace body

// The usual ends of a body: a value that is given out, and one that is taken over.
template <class Value>
kvRc answer(Value *out, const Value &value)
{
    *out = value;
    return KV_OK;
}

template <class Value>
kvRc store(Transaction &device, Value &field, const std::type_identity_t<Value> &value)
{
    device.modify(field) = value;
    return KV_OK;
}

} // namespace sim

#endif
