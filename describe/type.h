// Types, records and functions as data: what the descriptions of both layers are made of. Sizes,
// offsets, types and directions follow from the declarations; a row adds the names.
#ifndef DESCRIBE_TYPE_H
#define DESCRIBE_TYPE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace describe
{

// A word is a number of 1, 2, 4 or 8 bytes.
enum class Kind { word, enumeration, text, mac, record };

struct Field;

// The name of a value.
struct Member {
    uint32_t value;
    const char *name;
};

struct Type {
    Kind kind;
    const char *name;
    uint32_t size;
    std::span<const Member>
        members{};                   // of an enumeration: those with a name, the first of a value's
    std::span<const Field> fields{}; // of a record
    uint32_t first = 0;              // of an enumeration: its members' values; of a flag: 0 and 1
    uint32_t last = 0xFFFFFFFF;
    const char *title = nullptr; // what people call it
    bool hexadecimal = false;    // as people want to see it
    bool isAddress = false;      // of IPv4, in the platform's byte order
};

struct Options {
    bool hidden = false;        // reserved, the platform's own, or told by another field
    const char *flag = nullptr; // the word that says whether the field counts
    // Of a record that is given: what a field is that may be left out. Any other is applied always,
    // at 0 too.
    const char *leftOut = nullptr;
    bool optional = false;       // may be left UNTOUCHED by the operation
    const char *count = nullptr; // the field that says how many elements count
    // Whether the field is there, by the record that it is in; and the field that this depends on,
    // where it is one.
    bool (*when)(const void *record) = nullptr;
    const char *by = nullptr;
    // As an argument's; by the record that it is in.
    uint32_t (*limit)(const void *record) = nullptr;
    const Type *type = nullptr; // in place of that of the member
    // Whether the field says that nothing else of the record is read; by the record that it is in.
    bool (*alone)(const void *record) = nullptr;
    bool fixed = false;     // of a record that is given: another value takes a new object
    bool exclusive = false; // a value, but for 0, may be one object's alone
    bool changes = false;   // by itself: a state, a counter, a time
};

struct Field {
    const char *name;
    const Type *type;
    uint32_t offset;
    uint32_t count; // of elements
    Options options;
};

enum class Direction { in, out };

// Adds a record, and those in it, that are not among the found ones.
inline void addRecords(const Type &type, std::vector<const Type *> &found)
{
    if (type.kind != Kind::record || std::ranges::find(found, &type) != found.end())
        return;
    found.push_back(&type);
    for (const Field &field : type.fields)
        addRecords(*field.type, found);
}

// ---- How rows are made ----

// A condition, or a limit, on a record of which the row knows only the bytes.
template <auto function>
struct On;

template <class Result, class Record, Result (*function)(const Record &)>
struct On<function> {
    static Result call(const void *record)
    {
        return function(*static_cast<const Record *>(record));
    }
};

template <auto function>
inline constexpr auto on = &On<function>::call;

// What an enumeration or a record is: specialised by its row.
template <class T>
struct Row {
    static_assert(sizeof(T) == 0,
                  "this type needs a row, ENUMERATION or RECORD: in describe/records.h, "
                  "or of the platform's in describe/platform.h or describe/platform.cpp");
};

template <class T>
constexpr const Type &typeOf()
{
    return Row<T>::type;
}

template <>
struct Row<uint32_t> {
    static constexpr Type type{.kind = Kind::word, .name = "number", .size = sizeof(uint32_t)};
};

// Addresses, alarm bits and the like.
constexpr Type HEXADECIMAL{
    .kind = Kind::word, .name = "number", .size = sizeof(uint32_t), .hexadecimal = true};

constexpr Type ADDRESS{.kind = Kind::word,
                       .name = "IPv4 address",
                       .size = sizeof(uint32_t),
                       .hexadecimal = true,
                       .isAddress = true};

// 0 or 1; any other number counts as 1.
constexpr Type FLAG{.kind = Kind::word, .name = "number", .size = sizeof(uint32_t), .last = 1};

template <>
struct Row<uint16_t> {
    static constexpr Type type{.kind = Kind::word, .name = "number", .size = sizeof(uint16_t)};
};

template <>
struct Row<int> {
    static constexpr Type type{.kind = Kind::word, .name = "number", .size = sizeof(int)};
};

// Of the host's clock.
template <>
struct Row<long> {
    static constexpr Type type{.kind = Kind::word, .name = "number", .size = sizeof(long)};
};

template <>
struct Row<uint8_t> {
    static constexpr Type type{.kind = Kind::word, .name = "number", .size = sizeof(uint8_t)};
};

// A text that is given, as long as it is.
template <>
struct Row<char> {
    static constexpr Type type{.kind = Kind::text, .name = "text", .size = 0};
};

// Texts and MAC addresses are one element each, wherever they stand.
template <size_t size>
struct Row<char[size]> {
    static constexpr Type type{.kind = Kind::text, .name = "text", .size = size};
};

using Mac = uint8_t[6];

template <>
struct Row<Mac> {
    static constexpr Type type{.kind = Kind::mac, .name = "MAC address", .size = sizeof(Mac)};
};

template <class T>
struct Element {
    using type = T;
    static constexpr uint32_t count = 1;
};

template <class T, size_t n>
struct Element<T[n]> {
    using type = T;
    static constexpr uint32_t count = n;
};

template <size_t n>
struct Element<char[n]> {
    using type = char[n];
    static constexpr uint32_t count = 1;
};

template <size_t n, size_t size>
struct Element<char[n][size]>
{
    using type = char[size];
    static constexpr uint32_t count = n;
};

template <>
struct Element<Mac> {
    using type = Mac;
    static constexpr uint32_t count = 1;
};

template <class T>
constexpr Field field(const char *name, size_t offset, Options options = {})
{
    const Type *type = options.type ? options.type : &Row<typename Element<T>::type>::type;
    options.hidden |= std::string_view{name}.starts_with("platform");
    return {name, type, static_cast<uint32_t>(offset), Element<T>::count, options};
}

#define ENUMERATION(T, first, last, ...) TITLED_ENUMERATION(T, nullptr, first, last, __VA_ARGS__)

#define TITLED_ENUMERATION(T, title, first, last, ...)                                             \
    template <>                                                                                    \
    struct Row<T> {                                                                                \
        static constexpr std::initializer_list<Member> members{__VA_ARGS__};                       \
        static constexpr Type type{Kind::enumeration,                                              \
                                   #T,                                                             \
                                   sizeof(T),                                                      \
                                   {members.begin(), members.size()},                              \
                                   {},                                                             \
                                   first,                                                          \
                                   last,                                                           \
                                   title};                                                         \
    };

#define RECORD(T, ...)                                                                             \
    template <>                                                                                    \
    struct Row<T> {                                                                                \
        using Record = T;                                                                          \
        static constexpr Field fields[] = {__VA_ARGS__};                                           \
        static constexpr Type type{Kind::record, #T, sizeof(T), {}, fields};                       \
    };

// A field; what is particular to it follows as designated initialisers of Options.
#define F(member, ...)                                                                             \
    describe::field<decltype(Record::member)>(#member, offsetof(Record, member),                   \
                                              describe::Options{__VA_ARGS__})

// ---- Functions ----

template <class Function>
struct Signature;

template <class R, class... Arguments>
struct Signature<R(Arguments...)> {
    using Result = R;
    static constexpr size_t count = sizeof...(Arguments);
    template <size_t i>
    using Argument = std::tuple_element_t<i, std::tuple<Arguments...>>;
    static constexpr bool isNoexcept = false;
};

// What stands behind the last argument of a format's is not known.
template <class R, class... Arguments>
struct Signature<R(Arguments..., ...)> : Signature<R(Arguments...)> {
};

template <class R, class... Arguments>
struct Signature<R(Arguments...) noexcept> : Signature<R(Arguments...)> {
    static constexpr bool isNoexcept = true;
};

template <class T>
constexpr Direction directionOf()
{
    using Pointee = std::remove_pointer_t<T>;
    return std::is_pointer_v<T> && !std::is_const_v<Pointee> ? Direction::out : Direction::in;
}

} // namespace describe

#endif
