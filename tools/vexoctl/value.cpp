#include "value.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <numeric>

namespace vexoctl
{

using describe::Field;
using describe::Kind;
using describe::Type;

namespace
{

uint32_t wordAt(const void *at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

void putWord(void *at, uint32_t word)
{
    memcpy(at, &word, sizeof word);
}

const void *at(const void *record, const Field &field)
{
    return static_cast<const char *>(record) + field.offset;
}

void *at(void *record, const Field &field)
{
    return static_cast<char *>(record) + field.offset;
}

std::string macText(const void *value)
{
    const auto *mac = static_cast<const uint8_t *>(value);
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

void parseMac(const std::string &what, const std::string &text, void *value)
{
    unsigned bytes[6];
    int used = 0;
    const int found = sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1],
                             &bytes[2], &bytes[3], &bytes[4], &bytes[5], &used);
    if (found != 6 || static_cast<size_t>(used) != text.size())
        throw UsageError(what + ": expected a MAC address such as 02:00:5e:10:00:01, not '" + text +
                         "'");
    for (int i = 0; i < 6; ++i)
        static_cast<uint8_t *>(value)[i] = static_cast<uint8_t>(bytes[i]);
}

uint32_t parseNumber(const std::string &what, const std::string &expected, const std::string &text)
{
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    uint32_t number = 0;
    const char *begin = text.data() + (hex ? 2 : 0);
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (error == std::errc::result_out_of_range && stop == end)
        throw UsageError(what + ": " + text + " is more than 4294967295");
    if (error != std::errc{} || stop != end)
        throw UsageError(what + ": expected " + expected + ", not '" + text + "'");
    return number;
}

std::string expectedOf(const Type &type)
{
    std::string expected = "a number";
    for (const describe::Member &member : type.members)
        expected += (&member == &type.members.back() ? " or " : ", ") + std::string{member.name};
    return expected;
}

uint32_t parseWord(const Type &type, const std::string &what, const std::string &text)
{
    for (const describe::Member &member : type.members)
        if (text == member.name)
            return member.value;
    return parseNumber(what, expectedOf(type), text);
}

void putText(const std::string &what, const std::string &text, uint32_t size, void *value)
{
    if (text.size() > size)
        throw UsageError(what + ": " + std::to_string(text.size()) + " characters, at most " +
                         std::to_string(size) + " fit");
    memset(value, 0, size);
    memcpy(value, text.data(), text.size());
}

bool isThere(const Field &field, const Type &type, const void *record)
{
    const describe::Options &options = field.options;
    if (options.hidden || (options.when && !options.when(record)))
        return false;
    if (options.flag && wordAt(at(record, *fieldOf(type, options.flag))) == 0)
        return false;
    return !options.optional || wordAt(at(record, field)) != describe::UNTOUCHED;
}

uint32_t shownCount(const Field &field, const Type &type, const void *record)
{
    if (!field.options.count)
        return field.count;
    return std::min(field.count, wordAt(at(record, *fieldOf(type, field.options.count))));
}

void raiseFlag(const Field &field, const Type &type, void *record)
{
    if (field.options.flag)
        putWord(at(record, *fieldOf(type, field.options.flag)), 1);
}

std::vector<std::string> fieldNames(const Type &record)
{
    std::vector<std::string> names;
    for (const Field &field : record.fields)
        names.emplace_back(field.name);
    return names;
}

} // namespace

const Field *fieldOf(const Type &record, std::string_view name)
{
    for (const Field &field : record.fields)
        if (name == field.name)
            return &field;
    return nullptr;
}

Json toJson(const Type &type, const void *value)
{
    switch (type.kind) {
    case Kind::word:
        return wordAt(value);
    case Kind::enumeration:
        for (const describe::Member &member : type.members)
            if (member.value == wordAt(value))
                return member.name;
        return wordAt(value);
    case Kind::text: {
        const char *text = static_cast<const char *>(value);
        return std::string(text, strnlen(text, type.size));
    }
    case Kind::mac:
        return macText(value);
    case Kind::record:
        break;
    }
    Json json = Json::object();
    for (const Field &field : type.fields) {
        if (!isThere(field, type, value))
            continue;
        if (field.count == 1)
            json[field.name] = toJson(*field.type, at(value, field));
        else
            json[field.name] =
                toJson(*field.type, at(value, field), shownCount(field, type, value));
    }
    return json;
}

Json toJson(const Type &type, const void *value, uint32_t count)
{
    Json json = Json::array();
    for (uint32_t i = 0; i < count; ++i)
        json.push_back(toJson(type, static_cast<const char *>(value) + i * type.size));
    return json;
}

void parse(const Type &type, const std::string &what, const std::string &text, void *value)
{
    switch (type.kind) {
    case Kind::word:
    case Kind::enumeration:
        putWord(value, parseWord(type, what, text));
        break;
    case Kind::text:
        putText(what, text, type.size, value);
        break;
    case Kind::mac:
        parseMac(what, text, value);
        break;
    case Kind::record:
        throw UsageError(what + ": a record: set its fields, as in " + what + "." +
                         type.fields[0].name + "=..., or name a JSON document, as in " + what +
                         "=@FILE");
    }
}

void setField(const Type &record, const std::string &path, const std::string &text, void *value)
{
    const size_t dot = path.find('.');
    const std::string name = path.substr(0, dot);
    const Field *field = fieldOf(record, name);
    if (!field)
        throw UsageError(std::string{record.name} + " has no field '" + name + "'" +
                         hint(name, fieldNames(record)));
    void *place = at(value, *field);
    if (dot != std::string::npos) {
        if (field->type->kind != Kind::record)
            throw UsageError(name + " has no fields");
        setField(*field->type, path.substr(dot + 1), text, place);
        return;
    }
    if (field->count > 1)
        throw UsageError(name + ": a list, which only a JSON document can set");
    parse(*field->type, path, text, place);
    raiseFlag(*field, record, value);
}

void fromJson(const Type &type, const std::string &what, const Json &json, bool lenient,
              void *value)
{
    if (type.kind != Kind::record) {
        if (json.is_number_unsigned() || json.is_string())
            return parse(type, what, json.is_string() ? json.get<std::string>() : json.dump(),
                         value);
        throw UsageError(what + ": expected " + expectedOf(type) + ", not " + json.dump());
    }
    if (!json.is_object())
        throw UsageError(what + ": expected an object, not " + json.dump());
    for (const auto &[name, element] : json.items()) {
        const Field *field = fieldOf(type, name);
        const std::string path = what + "." + name;
        if (!field && lenient)
            continue;
        if (!field)
            throw UsageError(path + ": there is no such field" + hint(name, fieldNames(type)));
        void *place = at(value, *field);
        if (field->count == 1) {
            fromJson(*field->type, path, element, lenient, place);
        } else {
            if (!element.is_array() || element.size() > field->count)
                throw UsageError(path + ": expected a list of at most " +
                                 std::to_string(field->count));
            for (size_t i = 0; i < element.size(); ++i)
                fromJson(*field->type, path, element[i], lenient,
                         static_cast<char *>(place) + i * field->type->size);
        }
        raiseFlag(*field, type, value);
    }
}

void checkLimits(const Type &record, const std::string &path, const void *value)
{
    for (const Field &field : record.fields) {
        const describe::Options &options = field.options;
        if (options.hidden || (options.when && !options.when(value)))
            continue;
        const std::string what = path.empty() ? field.name : path + "." + field.name;
        const void *place = at(value, field);
        if (field.type->kind == Kind::record && field.count == 1) {
            checkLimits(*field.type, what, place);
        } else if (options.limit && field.type->kind == Kind::text) {
            const uint32_t limit = options.limit(value);
            const size_t length = strnlen(static_cast<const char *>(place), field.type->size);
            if (length > limit)
                throw UsageError(what + ": " + std::to_string(length) + " characters, at most " +
                                 std::to_string(limit) + " are used");
        } else if (options.limit && wordAt(place) > options.limit(value)) {
            throw UsageError(what + ": expected a number from 0 to " +
                             std::to_string(options.limit(value)) + ", not " +
                             std::to_string(wordAt(place)));
        }
    }
}

std::vector<std::string> fieldPaths(const Type &record)
{
    std::vector<std::string> paths;
    for (const Field &field : record.fields) {
        if (field.options.hidden || field.count > 1)
            continue;
        if (field.type->kind != Kind::record) {
            paths.emplace_back(field.name);
            continue;
        }
        for (const std::string &path : fieldPaths(*field.type))
            paths.push_back(std::string{field.name} + "." + path);
    }
    return paths;
}

std::string closest(const std::string &name, const std::vector<std::string> &names)
{
    std::string best;
    size_t bestDistance = std::max<size_t>(2, name.size() / 3) + 1;
    for (const std::string &candidate : names) {
        std::vector<size_t> row(candidate.size() + 1);
        std::iota(row.begin(), row.end(), 0);
        for (size_t i = 0; i < name.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i + 1;
            for (size_t k = 0; k < candidate.size(); ++k) {
                const size_t replaced = diagonal + (name[i] != candidate[k]);
                diagonal = row[k + 1];
                row[k + 1] = std::min({replaced, row[k] + 1, row[k + 1] + 1});
            }
        }
        if (row.back() < bestDistance) {
            bestDistance = row.back();
            best = candidate;
        }
    }
    return best;
}

std::string hint(const std::string &name, const std::vector<std::string> &names)
{
    const std::string meant = closest(name, names);
    return meant.empty() ? "" : "; did you mean '" + meant + "'?";
}

} // namespace vexoctl
