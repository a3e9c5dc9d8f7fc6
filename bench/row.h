// How a row of operations.cpp is made of calls whose arguments are all known when they are
// compiled.
#ifndef ROW_H
#define ROW_H

#include "operations.h"

#include <type.h>

#include <algorithm>
#include <initializer_list>
#include <tuple>
#include <utility>
#include <vector>

namespace bench
{

// What pointers point to, room for the arrays among it. Texts are copied faster or slower by where
// they lie: here they always lie the same.
template <class T, size_t argument = 0>
alignas(sizeof(T) > 100 ? 2048 : alignof(T)) inline T place[20];

// An operation is given its inputs; what the platform is handed lies in a place of its own as well.
template <class T, class Result>
constexpr bool isGiven =
    !std::is_pointer_v<T> || (std::is_void_v<Result> && std::is_const_v<std::remove_pointer_t<T>>);

// A record that a call of the platform hands over.
struct Record {
    const void *type;
    size_t size;
};
template <class T>
inline constexpr char IDENTITY{};

// A call of a function with the arguments that are given, and places for the others.
template <auto function, auto... given>
struct Call {
    using Signature = describe::Signature<std::remove_pointer_t<decltype(function)>>;
    template <size_t i>
    using Argument = typename Signature::template Argument<i>;
    template <size_t i>
    using Pointee = std::remove_cv_t<std::remove_pointer_t<Argument<i>>>;
    using All = std::make_index_sequence<Signature::count>;

    template <size_t... i>
    static constexpr size_t givenOf(std::index_sequence<i...>)
    {
        return (size_t{0} + ... + isGiven<Argument<i>, typename Signature::Result>);
    }

    template <size_t i>
    static Argument<i> argument()
    {
        if constexpr (std::is_same_v<Argument<i>, vexoResult *>)
            return &result;
        else if constexpr (isGiven<Argument<i>, typename Signature::Result>)
            return static_cast<Argument<i>>(
                std::get<givenOf(std::make_index_sequence<i>{})>(std::tuple{given...}));
        else
            return place<Pointee<i>, i>;
    }

    template <size_t... i>
    [[gnu::always_inline]] static void make(std::index_sequence<i...>)
    {
        static_assert(sizeof...(given) == givenOf(All{}));
        function(argument<i>()...);
    }

    [[gnu::always_inline]] static void make() { make(All{}); }

    template <size_t... i>
    static constexpr auto records(std::index_sequence<i...>)
    {
        return std::vector<Record>{
            {std::is_pointer_v<Argument<i>> ? &IDENTITY<Pointee<i>> : nullptr,
             sizeof(Pointee<i>)}...};
    }
};

template <auto function, auto... given>
void library()
{
    Call<function, given...>::make();
}

template <class... Calls>
consteval size_t sizeOfRecords()
{
    std::vector<const void *> seen;
    size_t size = 0;
    for (const auto &records :
         std::initializer_list<std::vector<Record>>{Calls::records(typename Calls::All{})...})
        for (const Record &one : records)
            if (one.type && std::ranges::find(seen, one.type) == seen.end()) {
                seen.push_back(one.type);
                size += one.size;
            }
    return size;
}

// Calls of the platform, one after the other.
template <class... Calls>
constexpr Bare inTurn{[] { (Calls::make(), ...); }, sizeOfRecords<Calls...>()};

template <auto function, auto... given>
constexpr Bare by = inTurn<Call<function, given...>>;

// An operation's name and a call of it.
#define LIBRARY(operation, ...)                                                                    \
#operation, library < vexo_cmi_##operation __VA_OPT__(, ) __VA_ARGS__>

} // namespace bench

#endif
