#include "codec.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <arpa/inet.h>

namespace vexoctl
{

using describe::Field;
using describe::Kind;
using describe::Member;
using describe::Type;

namespace
{

AddressOrder addressOrder;

uint32_t inHostOrder(uint32_t address)
{
    return addressOrder == AddressOrder::network ? ntohl(address) : address;
}

std::string addressText(uint32_t address)
{
    address = inHostOrder(address);
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 0xFF) + "." +
           std::to_string(address >> 8 & 0xFF) + "." + std::to_string(address & 0xFF);
}

// Dotted, as inet_pton(3) takes it.
uint32_t readAddress(const std::string &what, const std::string &text)
{
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw UsageError(what + ": expected an IPv4 address such as 192.0.2.1, not " +
                         quoted(text));
    if (addressOrder == AddressOrder::unknown)
        throw UsageError(what + ": give the number, or the byte order with --ip-order, which is "
                                "not known of this device");
    return inHostOrder(ntohl(address.s_addr));
}

// Six times two digits.
bool readMac(const std::string &text, uint8_t *mac)
{
    if (text.size() != 17)
        return false;
    for (size_t i = 0; i < 6; ++i) {
        const char *digits = text.data() + 3 * i;
        if ((i > 0 && digits[-1] != ':') ||
            std::from_chars(digits, digits + 2, mac[i], 16).ptr != digits + 2)
            return false;
    }
    return true;
}

const char *nameOf(const Type &type, uint32_t value)
{
    for (const Member &member : type.members)
        if (member.value == value)
            return member.name;
    return nullptr;
}

std::string expectedOf(const Type &type)
{
    static constexpr const char *OF_KIND[] = {"a number", "", "a text", "a MAC address",
                                              "an object"};
    return type.kind == Kind::enumeration ? inWords(valuesOf(type))
                                          : OF_KIND[static_cast<size_t>(type.kind)];
}

uint32_t parseWord(const Type &type, const std::string &what, const std::string &text,
                   Leniency leniency)
{
    Names names;
    for (const Member &member : type.members) {
        if (text == member.name)
            return member.value;
        names.emplace_back(member.name);
    }
    const std::string refusal = what + ": expected " + expectedOf(type) + ", not " + quoted(text);
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    uint32_t number = 0;
    const char *begin = text.data() + (hex ? 2 : 0);
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (error == std::errc::result_out_of_range && stop == end)
        throw UsageError(what + ": " + quoted(text) + " is more than 4294967295");
    if (error != std::errc{} || stop != end)
        throw UsageError(refusal + hint(text, names));
    if (type.kind == Kind::enumeration && !leniency.members && !nameOf(type, number) &&
        (number < type.first || number > type.last))
        throw UsageError(refusal + " (with --force it is sent all the same)");
    return number;
}

void putText(const std::string &what, const std::string &text, uint32_t size, void *value)
{
    if (text.size() > size)
        throw UsageError(what + ": " + std::to_string(text.size()) + " characters, at most " +
                         std::to_string(size) + " fit");
    if (text.find('\0') != std::string::npos)
        throw UsageError(what + ": a NUL in a text would end it");
    memset(value, 0, size);
    memcpy(value, text.data(), text.size());
}

// What may be named in a command.
const Field &settable(const Type &record, const std::string &path, const std::string &name)
{
    const Field *field = fieldOf(record, name);
    if (field && !field->options.hidden)
        return *field;
    Names names;
    for (const Field &other : record.fields)
        if (!other.options.hidden)
            names.emplace_back(other.name);
    throw UsageError(path + ": " + record.name + " has no field " + quoted(name) +
                     hint(name, names));
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

void fillFields(const Type &type, const std::string &path, const Json &json, Leniency leniency,
                void *value, Paths &given)
{
    for (const auto &[name, element] : json.items()) {
        if (leniency.fields && !fieldOf(type, name))
            continue;
        const std::string inner = path.empty() ? name : path + "." + name;
        const Field &field = settable(type, inner, name);
        void *place = at(value, field);
        if (field.count == 1) {
            fromJson(*field.type, element, leniency, place, given, inner);
        } else {
            if (!element.is_array() || element.size() > field.count)
                throw UsageError(inner + ": expected a list of at most " +
                                 std::to_string(field.count));
            for (size_t i = 0; i < element.size(); ++i)
                fromJson(*field.type, element[i], leniency,
                         static_cast<char *>(place) + i * field.type->size, given, inner);
        }
        if (field.options.flag)
            putWord(at(value, *fieldOf(type, field.options.flag)), 1);
    }
}

} // namespace

void setAddressOrder(AddressOrder order)
{
    addressOrder = order;
}

uint32_t wordAt(const void *at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

const void *at(const void *record, const Field &field)
{
    return static_cast<const char *>(record) + field.offset;
}

void putWord(void *at, uint32_t word)
{
    memcpy(at, &word, sizeof word);
}

void *at(void *record, const Field &field)
{
    return static_cast<char *>(record) + field.offset;
}

const Field *fieldOf(const Type &record, std::string_view name)
{
    for (const Field &field : record.fields)
        if (name == field.name)
            return &field;
    return nullptr;
}

std::string hexadecimal(uint32_t word)
{
    char text[11];
    snprintf(text, sizeof text, "0x%x", word);
    return text;
}

std::string valueText(const Type &type, uint32_t value)
{
    const char *name = nameOf(type, value);
    return name ? name : std::to_string(value);
}

Json toJson(const Type &type, const void *value, Style style)
{
    switch (type.kind) {
    case Kind::word:
        if (type.isAddress && style == Style::human && addressOrder != AddressOrder::unknown)
            return addressText(wordAt(value));
        if (type.hexadecimal && style == Style::human)
            return hexadecimal(wordAt(value));
        return wordAt(value);
    case Kind::enumeration:
        if (const char *name = nameOf(type, wordAt(value)))
            return name;
        return wordAt(value);
    case Kind::text: {
        const char *text = static_cast<const char *>(value);
        return std::string(text, strnlen(text, type.size));
    }
    case Kind::mac:
        return describe::macText(value);
    case Kind::record:
        break;
    }
    Json json = Json::object();
    for (const Field &field : type.fields) {
        if (!isThere(field, type, value))
            continue;
        if (field.count == 1)
            json[field.name] = toJson(*field.type, at(value, field), style);
        else
            json[field.name] =
                toJson(*field.type, at(value, field), shownCount(field, type, value), style);
    }
    return json;
}

Json toJson(const Type &type, const void *value, uint32_t count, Style style)
{
    Json json = Json::array();
    for (uint32_t i = 0; i < count; ++i)
        json.push_back(toJson(type, static_cast<const char *>(value) + i * type.size, style));
    return json;
}

void parse(const Type &type, const std::string &what, const std::string &text, Leniency leniency,
           void *value)
{
    switch (type.kind) {
    case Kind::word:
    case Kind::enumeration:
        if (type.isAddress && text.find('.') != text.npos)
            return putWord(value, readAddress(what, text));
        putWord(value, parseWord(type, what, text, leniency));
        break;
    case Kind::text:
        putText(what, text, type.size, value);
        break;
    case Kind::mac:
        if (!readMac(text, static_cast<uint8_t *>(value)))
            throw UsageError(what + ": expected a MAC address such as 02:00:5e:10:00:01, not " +
                             quoted(text));
        break;
    case Kind::record:
        throw UsageError(what +
                         ": a record, whose fields are set one by one or from a JSON "
                         "document, not by " +
                         quoted(text));
    }
}

Json readJson(const std::string &what, const std::string &text)
{
    constexpr int DEEPEST = 16;
    std::vector<std::set<std::string>> names;
    const auto look = [&](int depth, Json::parse_event_t event, const Json &parsed) {
        if (depth > DEEPEST)
            throw UsageError(what + ": the JSON document is nested too deep");
        if (event == Json::parse_event_t::object_start)
            names.emplace_back();
        else if (event == Json::parse_event_t::object_end)
            names.pop_back();
        else if (event == Json::parse_event_t::key &&
                 !names.back().insert(parsed.get<std::string>()).second)
            throw UsageError(what + ": " + quoted(parsed.get<std::string>()) +
                             " is there twice in the JSON document");
        return true;
    };
    try {
        return Json::parse(text, look);
    } catch (const Json::exception &error) {
        const std::string reason = error.what();
        // It begins with a mark for programmers, in brackets.
        throw UsageError(what + ": not a JSON document: " + reason.substr(reason.find("] ") + 2));
    }
}

Json nested(std::string path, Json value)
{
    for (size_t dot; (dot = path.rfind('.')) != path.npos; path.erase(dot))
        value = Json{{path.substr(dot + 1), value}};
    return Json{{path, value}};
}

void fromJson(const Type &type, const Json &json, Leniency leniency, void *value, Paths &given,
              const std::string &path)
{
    if (type.kind == Kind::record && json.is_object())
        return fillFields(type, path, json, leniency, value, given);
    if (json.is_object())
        throw UsageError(path + " has no fields");
    if (!(json.is_string() || (json.is_number_unsigned() && type.kind != Kind::record)))
        throw UsageError((path.empty() ? type.name : path) + ": expected " + expectedOf(type) +
                         ", not " + quoted(json.dump()));
    parse(type, path, json.is_string() ? json.get<std::string>() : json.dump(), leniency, value);
    given.insert(path);
}

Names valuesOf(const Type &type)
{
    Names names;
    for (const Member &member : type.members)
        names.emplace_back(member.name);
    for (uint32_t value = type.first; type.kind == Kind::enumeration && value <= type.last; ++value)
        if (!nameOf(type, value))
            names.push_back(std::to_string(value));
    return names;
}

} // namespace vexoctl
