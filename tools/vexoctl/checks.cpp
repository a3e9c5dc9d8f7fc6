#include "checks.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vexoctl
{

using describe::Field;
using describe::Kind;
using describe::Type;

namespace
{

bool isLowBits(uint32_t bits)
{
    return (bits & (bits + 1)) == 0;
}

// Which values of the telling field make this one be there: "pweType=atm-3 or atm-4".
std::string conditionOf(const Field &field, const Type &record, const std::string &prefix)
{
    if (!field.options.by)
        return "";
    const Field &by = *fieldOf(record, field.options.by);
    std::vector<uint32_t> probe((record.size + 3) / 4);
    Names values;
    for (uint32_t value = by.type->first; value <= by.type->last; ++value) {
        putWord(at(probe.data(), by), value);
        if (field.options.when(probe.data()))
            values.push_back(valueText(*by.type, value));
    }
    return prefix + by.name + "=" + inWords(values);
}

uint32_t limitOf(const Field &field, const Type &record)
{
    const std::vector<uint32_t> zero((record.size + 3) / 4);
    return field.options.limit ? field.options.limit(zero.data()) : 0xFFFFFFFF;
}

bool isGiven(const Paths &given, const std::string &path)
{
    const auto found = given.lower_bound(path);
    return found != given.end() &&
           (*found == path || (found->starts_with(path) && (*found)[path.size()] == '.'));
}

} // namespace

void check(const Type &record, const Paths &given, const void *value, const std::string &prefix)
{
    for (const Field &field : record.fields) {
        const describe::Options &options = field.options;
        const std::string path = prefix + field.name;
        if (options.hidden)
            continue;
        if (options.when && !options.when(value)) {
            if (!isGiven(given, path))
                continue;
            const Field &by = *fieldOf(record, options.by);
            throw UsageError(path + ": only with " + conditionOf(field, record, prefix) +
                             ", not with " + valueText(*by.type, wordAt(at(value, by))));
        }
        if (field.type->kind == Kind::record && field.count == 1)
            check(*field.type, given, at(value, field), path + ".");
        else if (options.limit && field.type->kind == Kind::text)
            checkLength(path,
                        strnlen(static_cast<const char *>(at(value, field)), field.type->size),
                        options.limit(value));
        else if (options.limit)
            checkLimit(path, wordAt(at(value, field)), options.limit(value));
    }
}

Names missing(const Type &record, const Paths &given, const void *value, const std::string &prefix)
{
    Names names;
    for (const Field &field : record.fields)
        if (field.options.alone && field.options.alone(value))
            return names;
    for (const Field &field : record.fields) {
        const describe::Options &options = field.options;
        const std::string path = prefix + field.name;
        if (options.hidden || options.leftOut || (options.when && !options.when(value)))
            continue;
        if (field.type->kind == Kind::record && field.count == 1)
            std::ranges::copy(missing(*field.type, given, at(value, field), path + "."),
                              std::back_inserter(names));
        else if (!given.contains(path))
            names.push_back(path);
    }
    return names;
}

std::string rangeOf(uint32_t limit)
{
    return isLowBits(limit) ? "from 0 to " + std::to_string(limit)
                            : "made of the bits " + hexadecimal(limit);
}

void checkLimit(const std::string &what, uint32_t number, uint32_t limit)
{
    if (number & ~limit)
        throw UsageError(what + ": expected a number " + rangeOf(limit) + ", not " +
                         (isLowBits(limit) ? std::to_string(number) : hexadecimal(number)));
}

void checkLength(const std::string &what, size_t length, uint32_t limit)
{
    if (length > limit)
        throw UsageError(what + ": " + std::to_string(length) + " characters, at most " +
                         std::to_string(limit) + " are used");
}

std::vector<Leaf> leaves(const Type &record, const std::string &prefix,
                         const std::string &condition)
{
    std::vector<Leaf> all;
    for (const Field &field : record.fields) {
        if (field.options.hidden)
            continue;
        const std::string own = conditionOf(field, record, prefix);
        const std::string &told = own.empty() ? condition : own;
        if (field.type->kind == Kind::record && field.count == 1)
            std::ranges::copy(leaves(*field.type, prefix + field.name + ".", told),
                              std::back_inserter(all));
        else
            all.push_back({prefix + field.name, &record, &field, told, limitOf(field, record)});
    }
    return all;
}

} // namespace vexoctl
