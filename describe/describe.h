// One row per record field and per operation of the interface. The command line, the tests and the
// manual are made from these rows; sizes, offsets and types follow from the header.
#ifndef DESCRIBE_DESCRIBE_H
#define DESCRIBE_DESCRIBE_H

#include "type.h"

#include <vexo_cmi.h>

#include <array>
#include <cstdio>
#include <string>
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
    bool changes = false; // by itself, as all that an operation tells that is Use::state

    // Deduced from the operation's signature, the type where it isn't given.
    const Type *type = nullptr;
    Direction direction = Direction::in;
    bool isArray() const { return count > 1; }
};

// What an operation is to the configuration of its object or, without one, of the system.
enum class Use {
    action,  // does something that is not read back as a setting
    state,   // tells what changes by itself
    setting, // sets what is kept, or tells it: of what a getter tells, what a setter takes
    part,    // of what another operation sets or tells with more, or without a side effect
    adds,    // an element of a list that a setting tells
    removes, // such an element
};

struct Role {
    Use use = Use::action;
    // The list; or the setting of the system, where that isn't what the operation's name tells.
    const char *name = nullptr;
    const char *with = nullptr; // the part that an object must have for this setting
};

struct Operation {
    const char *name;
    // The platform's functions that it calls when all goes well, by the cases in which they differ:
    // "case: function 3*function links*(function function) | case: function". What stands in
    // brackets is called for each link of the group; texts that are fetched are left out.
    const char *calls;
    // Arguments of a call that succeeds on a new device after the examples of the rows before, as
    // they are typed; of several, "first | second".
    const char *example;
    std::span<const Argument> arguments; // but for the result
    void (*call)(void *const *arguments, vexoResult *result);
    Role role = {};
};

struct Case {
    std::string when; // empty: always
    std::vector<std::string> calls;
    std::vector<std::string> callsPerLink; // behind them, for each link of the group
};

std::vector<Case> casesOf(const Operation &operation);
// The calls on a group with so many links.
std::vector<Case> casesOf(const Operation &operation, uint32_t links);

std::span<const Operation> operations();
const Operation *find(std::string_view name);
// Whether two runs of the same agent may well have different values of it.
bool changesByItself(const Operation &operation, const Argument &argument);
// The argument that is the number of a port, pseudowire or group; null when there is none.
const Argument *objectOf(const Operation &operation);

// All records, for checks over the rows.
std::span<const Type *const> records();

// "02:00:5e:00:00:11"
inline std::string macText(const void *value)
{
    const auto *mac = static_cast<const uint8_t *>(value);
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

// ---- How rows are made ----

template <class T>
T argument(void *storage)
{
    if constexpr (std::is_pointer_v<T>)
        return static_cast<T>(storage);
    else
        return *static_cast<T *>(storage);
}

// A MAC address is declared by its bytes.
template <class T>
constexpr const Type *argumentType()
{
    using Value = std::remove_cv_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_same_v<Value, vexoResult>)
        return nullptr;
    else
        return &Row<std::conditional_t<std::is_same_v<Value, unsigned char>, Mac, Value>>::type;
}

template <class Declaration>
struct OperationRow;

template <class... Arguments>
struct OperationRow<void (*)(Arguments...)> {
    static constexpr size_t count = sizeof...(Arguments) - 1;

    template <auto function, size_t... i>
    static void spread(void *const *storage, vexoResult *result, std::index_sequence<i...>)
    {
        using Types = std::tuple<Arguments...>;
        function(argument<std::tuple_element_t<i, Types>>(storage[i])..., result);
    }

    template <auto function>
    static void call(void *const *storage, vexoResult *result)
    {
        spread<function>(storage, result, std::make_index_sequence<count>{});
    }

    // Takes as many names as the operation has arguments.
    static constexpr std::array<describe::Argument, count>
    complete(std::array<describe::Argument, count> arguments)
    {
        const Type *types[] = {argumentType<Arguments>()...};
        const Direction directions[] = {directionOf<Arguments>()...};
        for (size_t i = 0; i < count; ++i) {
            if (!arguments[i].type)
                arguments[i].type = types[i];
            arguments[i].direction = directions[i];
        }
        return arguments;
    }
};

// The arguments of a row, which stand in a lambda since each has a type of its own.
template <class Declaration, class Names>
struct Named {
    static constexpr auto arguments = OperationRow<Declaration>::complete(Names{}());
};

template <class Declaration, class Names>
constexpr Operation operation(const char *name, Role role, const char *calls, const char *example,
                              Names, decltype(Operation::call) call = nullptr)
{
    return {name, calls, example, Named<Declaration, Names>::arguments, call, role};
}

template <auto function, class Names>
constexpr Operation operation(const char *name, Role role, const char *calls, const char *example,
                              Names names)
{
    using Declaration = decltype(function);
    return operation<Declaration>(name, role, calls, example, names,
                                  OperationRow<Declaration>::template call<function>);
}

constexpr std::array<Argument, 0> names()
{
    return {};
}

template <size_t count>
constexpr std::array<Argument, count> names(const Argument (&arguments)[count])
{
    return std::to_array(arguments);
}

// A program that reads the rows, and calls nothing, is without the library. A function that is
// named beyond its type would be asked for even by what a debugger is told.
#ifdef DESCRIBE_ROWS_ONLY
#define DESCRIBED(function) decltype(&function)
#else
#define DESCRIBED(function) &function
#endif

// OPERATION(vexo_cmi_area_object_verb, ROLE, "calls", "example", {"argument"}, ...): a name for
// every argument but the result.
#define OPERATION(function, role, calls, example, ...)                                             \
    describe::operation<DESCRIBED(function)>(#function, role, calls, example, [] {                 \
        return describe::names(__VA_OPT__({__VA_ARGS__}));                                         \
    })

} // namespace describe

#endif
