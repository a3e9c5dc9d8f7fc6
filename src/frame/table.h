// Value tables: one list of pairs per pair of enumerations, read in both directions.
#ifndef FRAME_TABLE_H
#define FRAME_TABLE_H

#include <stddef.h>
#include <stdint.h>

namespace frame
{

struct Pair {
    uint32_t cmi;
    uint32_t platform;
};

template <size_t Count>
struct Table {
    Pair pairs[Count];
};

template <size_t Count>
Table(const Pair (&)[Count]) -> Table<Count>;

// The table in which 1 to Last stand for themselves.
template <uint32_t Last>
constexpr Table<Last> identity()
{
    Table<Last> table{};
    for (uint32_t i = 0; i < Last; ++i)
        table.pairs[i] = {i + 1, i + 1};
    return table;
}

// One direction of a table, dense: the members lie so close together that a byte per value does.
template <size_t Size>
struct Map {
    uint8_t to[Size];
    uint8_t other;

    constexpr uint32_t operator[](uint32_t value) const { return value < Size ? to[value] : other; }
};

using Side = uint32_t Pair::*;

template <auto table, Side from>
constexpr size_t sizeOf()
{
    uint32_t last = 0;
    for (const Pair &pair : table.pairs)
        last = pair.*from > last ? pair.*from : last;
    return last + 1;
}

// Whether a Map holds what stands on one side of a table.
template <size_t Count>
constexpr bool fits(const Table<Count> &table, Side side, uint32_t other)
{
    for (const Pair &pair : table.pairs)
        if (pair.*side > UINT8_MAX)
            return false;
    return other <= UINT8_MAX;
}

template <auto table, Side from, Side to, uint32_t other>
requires(fits(table, to, other)) constexpr auto mapOf()
{
    Map<sizeOf<table, from>()> map{};
    map.other = other;
    for (uint8_t &value : map.to)
        value = other;
    for (const Pair &pair : table.pairs)
        map.to[pair.*from] = static_cast<uint8_t>(pair.*to);
    return map;
}

template <auto table, Side from, Side to, uint32_t other>
inline constexpr auto map = mapOf<table, from, to, other>();

// What a CMI value is to the platform, and back; `other` is what a value that the table doesn't
// have gives.
template <class Platform, auto table, uint32_t other = 0>
constexpr Platform toPlatform(uint32_t value)
{
    return static_cast<Platform>(map<table, &Pair::cmi, &Pair::platform, other>[value]);
}

template <class Cmi, auto table, uint32_t other = 0>
constexpr Cmi toCmi(uint32_t value)
{
    return static_cast<Cmi>(map<table, &Pair::platform, &Pair::cmi, other>[value]);
}

} // namespace frame

#endif
