// Rows that hold the layout of a record.
#ifndef FRAME_LAYOUT_H
#define FRAME_LAYOUT_H

#include <type_traits>
#include <utility>

#include <stddef.h>
#include <stdint.h>

namespace frame
{

// The type of a member tells its size: a record has a row of its own, an enumeration is a word.
template <class T>
constexpr bool isSized = !std::is_enum_v<T> || sizeof(T) == sizeof(uint32_t);

} // namespace frame

#define SIZE(record, size)                                                                         \
    static_assert(sizeof(record) == (size), #record " does not have " #size " bytes")
#define AT(record, member, type, offset)                                                           \
    static_assert(std::is_same_v<decltype(std::declval<record &>().member), type> &&               \
                      frame::isSized<type> && offsetof(record, member) == (offset),                \
                  #record "." #member " is not " #type " at offset " #offset)

#endif
