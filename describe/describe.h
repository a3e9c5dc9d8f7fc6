// One row per record field and per operation of the interface. The command line, the tests and the
// manual are made from these rows; sizes, offsets and types follow from the header.
#ifndef DESCRIBE_DESCRIBE_H
#define DESCRIBE_DESCRIBE_H

#include <vexo_cmi.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace describe
{

enum class Kind { word, enumeration, text, mac, record };

struct Field;

// What a person calls a value.
struct Member {
    uint32_t value;
    const char *name;
};

struct Type {
    Kind kind;
    const char *name;
    uint32_t size;
    std::span<const Member> members; // of an enumeration: those with a name, the first of a value's
    std::span<const Field> fields;   // of a record
    uint32_t first = 0;              // of an enumeration: its members' values
    uint32_t last = 0xFFFFFFFF;
    bool hexadecimal = false; // as a person wants to see it
};

// Alarm bits and the like.
extern const Type HEXADECIMAL;

// Written into what an operation may leave alone, to see whether it did.
constexpr uint32_t UNTOUCHED = 0xFFFFFFFF;

struct Options {
    bool hidden = false;        // reserved, or told by another field
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
};

struct Field {
    const char *name;
    const Type *type;
    uint32_t offset;
    uint32_t count; // of elements
    Options options;
};

enum class Direction { in, out };

struct Argument {
    const char *name;
    uint32_t count = 1;              // of elements, of an array to be filled
    const char *countedBy = nullptr; // the argument that says how many were
    uint32_t limit = 0xFFFFFFFF;     // the bits of a number, or the longest text, that aren't cut
    bool optional = false;           // 0 when it isn't given

    // Deduced from the operation's signature, the type where it isn't given.
    const Type *type = nullptr;
    Direction direction = Direction::in;
    bool isArray() const { return count > 1; }
};

struct Operation {
    const char *name;
    std::vector<Argument> arguments; // but for the result
    void (*call)(void *const *arguments, vexoResult *result);
};

template <class T>
const Type &typeOf();

std::span<const Operation> operations();
const Operation *find(std::string_view name);

// All records, for checks over the rows.
std::span<const Type *const> records();

// ---- How rows are made ----

template <class T>
constexpr Direction directionOf()
{
    using Pointee = std::remove_pointer_t<T>;
    return std::is_pointer_v<T> && !std::is_const_v<Pointee> ? Direction::out : Direction::in;
}

template <class T>
T argument(void *storage)
{
    if constexpr (std::is_pointer_v<T>)
        return static_cast<T>(storage);
    else
        return *static_cast<T *>(storage);
}

template <auto function, class Signature = decltype(function)>
struct Row;

template <auto function, class... Arguments>
struct Row<function, void (*)(Arguments...)> {
    static constexpr size_t count = sizeof...(Arguments) - 1;

    template <size_t... i>
    static void spread(void *const *storage, vexoResult *result, std::index_sequence<i...>)
    {
        using Types = std::tuple<Arguments...>;
        function(argument<std::tuple_element_t<i, Types>>(storage[i])..., result);
    }

    static void call(void *const *storage, vexoResult *result)
    {
        spread(storage, result, std::make_index_sequence<count>{});
    }

    // Takes as many names as the operation has arguments.
    static Operation make(const char *name, std::vector<Argument> arguments)
    {
        const Type *types[] = {&typeOf<std::remove_cv_t<std::remove_pointer_t<Arguments>>>()...};
        const Direction directions[] = {directionOf<Arguments>()...};
        arguments.resize(count);
        for (size_t i = 0; i < count; ++i) {
            if (!arguments[i].type)
                arguments[i].type = types[i];
            arguments[i].direction = directions[i];
        }
        return {name, std::move(arguments), call};
    }
};

// OPERATION(vexo_cmi_area_object_verb, {"argument"}, ...): a name for every argument but the
// result.
#define OPERATION(function, ...)                                                                   \
    ([] {                                                                                          \
        std::vector<describe::Argument> named{__VA_ARGS__};                                        \
        static_assert(std::initializer_list<describe::Argument>{__VA_ARGS__}.size() ==             \
                      describe::Row<&function>::count);                                            \
        return describe::Row<&function>::make(#function, std::move(named));                        \
    }())

} // namespace describe

#endif
