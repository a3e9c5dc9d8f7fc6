// One row per record field and per operation of the interface. The command line, the tests and the
// manual are made from these rows; sizes, offsets and types follow from the header.
#ifndef DESCRIBE_DESCRIBE_H
#define DESCRIBE_DESCRIBE_H

#include "type.h"

#include <vexo_cmi.h>

#include <vector>

namespace describe
{

// Written into what an operation may leave alone, to see whether it did.
constexpr uint32_t UNTOUCHED = 0xFFFFFFFF;

struct Argument {
    const char *name;
    uint32_t count = 1;              // of elements, of an array to be filled
    const char *countedBy = nullptr; // the argument that says how many were
    uint32_t limit = 0xFFFFFFFF;     // the bits of a number, or the longest text, that aren't cut
    bool optional = false;           // `otherwise` when it isn't given
    uint32_t otherwise = 0;

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

std::span<const Operation> operations();
const Operation *find(std::string_view name);

// All records, for checks over the rows.
std::span<const Type *const> records();

// ---- How rows are made ----

template <class T>
T argument(void *storage)
{
    if constexpr (std::is_pointer_v<T>)
        return static_cast<T>(storage);
    else
        return *static_cast<T *>(storage);
}

template <auto function, class Declaration = decltype(function)>
struct OperationRow;

template <auto function, class... Arguments>
struct OperationRow<function, void (*)(Arguments...)> {
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
                      describe::OperationRow<&function>::count);                                   \
        return describe::OperationRow<&function>::make(#function, std::move(named));               \
    }())

} // namespace describe

#endif
