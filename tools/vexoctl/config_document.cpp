#include "config_document.h"

#include "config_state.h"

#include <algorithm>
#include <charconv>

namespace vexoctl::config
{

using describe::Type;

namespace
{

constexpr uint32_t FORMAT = 1;
constexpr const char *NOTICE =
    "Each object was read whole, but one after the other: what others set meanwhile may be in some "
    "of them only.";

// What stands beside the sections; nothing of it is set.
const std::set<std::string> BESIDES{"format", "notice", "absent", "refused", "state"};

void add(Device &device, const Key &key, Document &document)
{
    Reading reading = read(device, key);
    if (!reading.reason.empty())
        document.reasons[nameOf(key)] = std::move(reading.reason);
    for (auto &[field, reason] : reading.refused)
        document.reasons[nameOf(key) + " " + field] = std::move(reason);
    document.objects[key] = std::move(reading.settings);
}

// ---- From a file ----

// Values as a getter tells them, whichever way they were written.
Json normal(const Type &type, const std::string &path, uint32_t limit, const Json &value)
{
    if (value.is_null())
        return value;
    if (type.kind == describe::Kind::record) {
        if (!value.is_object())
            throw UsageError(path + ": expected an object, not " + quoted(value.dump()));
        Json record = Json::object();
        for (const auto &[name, element] : value.items()) {
            const describe::Field *field = fieldOf(type, name);
            if (!field || field->options.hidden)
                throw UsageError(path + ": there is no field " + quoted(name));
            record[name] = normal(*field->type, path + "." + name, UNLIMITED, element);
        }
        return record;
    }
    if (type.kind == describe::Kind::text) {
        if (!value.is_string())
            throw UsageError(path + ": expected a text, not " + quoted(value.dump()));
        checkLength(path, value.get<std::string>().size(), limit);
        return value;
    }
    if (!value.is_string() && !value.is_number_unsigned())
        throw UsageError(path + ": expected a text or a whole number from 0, not " +
                         quoted(value.dump()));
    uint32_t words[2]{};
    parse(type, path, value.is_string() ? value.get<std::string>() : value.dump(), {}, words);
    if (type.kind == describe::Kind::word)
        checkLimit(path, words[0], limit & type.last);
    return vexoctl::toJson(type, words);
}

Json normalList(const Field &field, const std::string &path, const Json &value)
{
    if (!value.is_array() || value.size() > field.most)
        throw UsageError(path + ": expected a list of at most " + std::to_string(field.most));
    Json list = Json::array();
    for (const Json &element : value) {
        list.push_back(normal(*field.type, path, field.limit, element));
        if (element.is_null() || std::ranges::count(list, list.back()) > 1)
            throw UsageError(path + ": " + list.back().dump() + " can't be " +
                             (element.is_null() ? "in it" : "in it twice"));
    }
    return list;
}

Json normalObject(const Key &key, const Json &value)
{
    if (value.is_null())
        return value;
    if (!value.is_object())
        throw UsageError(nameOf(key) + ": expected an object, not " + quoted(value.dump()));
    Json fields = Json::object();
    for (const auto &[name, element] : value.items()) {
        const std::string path = nameOf(key) + " " + name;
        const auto field = key.kind->fields.find(name);
        if (field == key.kind->fields.end()) {
            Names names;
            for (const auto &[other, row] : key.kind->fields)
                names.push_back(other);
            throw UsageError(nameOf(key) + ": there is no field " + quoted(name) +
                             hint(name, names));
        }
        const bool isList = field->second.isList() && !element.is_null();
        fields[name] = isList ? normalList(field->second, path, element)
                              : normal(*field->second.type, path, field->second.limit, element);
    }
    return fields;
}

// What stands in a section by this name.
Key keyOf(const std::string &section, const std::string &name)
{
    Names names;
    for (const Kind &kind : kinds()) {
        if (kind.section != section)
            continue;
        uint32_t number = 0;
        const char *end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data(), end, number);
        if (kind.number ? error == std::errc{} && stop == end && name == std::to_string(number)
                        : name == kind.setting)
            return {&kind, number};
        if (!kind.number)
            names.push_back(kind.setting);
    }
    throw UsageError(section + ": there is no " + quoted(name) + hint(name, names));
}

} // namespace

uint32_t lastOf(const Kind &kind, const Ranges &ranges)
{
    if (!kind.number)
        return 0;
    return kind.section == "pdh"   ? ranges.ports
           : kind.section == "pwe" ? ranges.pwes
                                   : ranges.groups;
}

Settings Document::find(const Key &key) const
{
    if (const auto found = objects.find(key); found != objects.end())
        return found->second;
    return key.kind->isMade() && sections.contains(key.kind->section) ? Settings{} : Json{};
}

Document save(Device &device, const Ranges &ranges, bool state)
{
    Document document;
    for (const Kind &kind : kinds())
        for (uint32_t number = kind.number ? 1 : 0; number <= lastOf(kind, ranges); ++number)
            add(device, {&kind, number}, document);
    if (state)
        document.state = stateOf(device, document.objects);
    return document;
}

Document saveNamed(Device &device, const Document &other)
{
    Document document;
    addNamed(device, other, document);
    return document;
}

void addNamed(Device &device, const Document &other, Document &document)
{
    for (const auto &[key, settings] : other.objects)
        if (!document.objects.contains(key))
            add(device, key, document);
}

Json toJson(const Document &document)
{
    Json json{{"format", FORMAT}, {"notice", NOTICE}};
    for (const Kind &kind : kinds())
        json[kind.section] = Json::object();
    for (const auto &[key, settings] : document.objects)
        if (settings)
            json[key.kind->section]
                [key.kind->number ? std::to_string(key.number) : key.kind->setting] = *settings;
    for (const char *part : {"absent", "refused"})
        json[part] = Json::object();
    std::set<std::string> absent;
    for (const auto &[key, settings] : document.objects)
        if (!settings)
            absent.insert(nameOf(key));
    for (const auto &[name, reason] : document.reasons)
        json[absent.contains(name) ? "absent" : "refused"][name] = reason;
    if (!document.state.is_null())
        json["state"] = document.state;
    return json;
}

Document readDocument(const std::string &what, const std::string &text)
{
    const Json json = readJson(what, text);
    try {
        if (!json.is_object() || !json.contains("format") || !json["format"].is_number_unsigned())
            throw UsageError("not a document of a device's settings: it has no format number");
        if (json["format"] != FORMAT)
            throw UsageError("of format " + json["format"].dump() + ", where this program knows " +
                             std::to_string(FORMAT));
        Document document;
        Names known{BESIDES.begin(), BESIDES.end()};
        for (const Kind &kind : kinds())
            known.push_back(kind.section);
        for (const auto &[section, objects] : json.items()) {
            if (!std::ranges::count(known, section))
                throw UsageError("there is no section " + quoted(section) + hint(section, known));
            if (BESIDES.contains(section))
                continue;
            if (!objects.is_object())
                throw UsageError(section + ": expected an object");
            document.sections.insert(section);
            for (const auto &[name, object] : objects.items()) {
                const Key key = keyOf(section, name);
                document.objects[key] = normalObject(key, object);
            }
        }
        return document;
    } catch (const UsageError &error) {
        throw UsageError(what + ": " + error.what());
    }
}

namespace
{

using Flat = std::vector<std::pair<std::string, Json>>;

const Json *valueOf(const Flat &all, const std::string &name)
{
    const auto found = std::ranges::find(
        all, name, [](const auto &one) -> const std::string & { return one.first; });
    return found == all.end() || found->second.is_null() ? nullptr : &found->second;
}

// What one of two records has and the other, being what it is, can't have.
void addOwn(const Type &type, const std::string &prefix, const Json &record, const Json &other,
            Flat &own)
{
    std::vector<uint32_t> words((type.size + 3) / 4);
    for (const describe::Field &field : type.fields) {
        const describe::Options &options = field.options;
        const auto value = record.find(field.name), otherValue = other.find(field.name);
        const bool lacks = otherValue == other.end() && options.when &&
                           other.contains(options.by) && !options.when(words.data());
        if (value != record.end() && lacks)
            std::ranges::move(flat({{field.name, *value}}, prefix), std::back_inserter(own));
        if (otherValue == other.end() || otherValue->is_null())
            continue;
        Paths ignored;
        if (otherValue->is_structured() && value != record.end() && value->is_object())
            addOwn(*field.type, prefix + field.name + ".", *value, *otherValue, own);
        else if (!otherValue->is_structured())
            fromJson(*field.type, *otherValue, {}, at(words.data(), field), ignored);
    }
}

Flat ownOf(const Key &key, const Json &fields, const Json &others)
{
    Flat own;
    for (const Setter &setter : key.kind->setters)
        if (setter.record)
            addOwn(*setter.record, "", fields, others, own);
    for (const auto &[name, field] : key.kind->fields) {
        if (!field.with || !fields.contains(name) || others.contains(name))
            continue;
        const std::string part = field.with + std::string{"."};
        if (std::ranges::any_of(own, [&](const auto &one) { return one.first.starts_with(part); }))
            own.emplace_back(name, fields[name]);
    }
    return own;
}

} // namespace

std::vector<Difference> differences(const Key &key, const Settings &a, const Settings &b)
{
    if ((a && a->is_null()) || (b && b->is_null()) || a == b)
        return {};
    if (!a || !b)
        return {{key, "", a.value_or(Json{}), b.value_or(Json{})}};
    std::vector<Difference> found;
    const Flat others = flat(*b);
    for (const auto &[name, value] : flat(*a))
        if (const Json *other = valueOf(others, name); other && !value.is_null() && *other != value)
            found.push_back({key, name, value, *other});
    for (const auto &[name, value] : ownOf(key, *a, *b))
        found.push_back({key, name, value, Json{}});
    for (const auto &[name, value] : ownOf(key, *b, *a))
        found.push_back({key, name, Json{}, value});
    return found;
}

std::vector<Difference> differences(const Document &a, const Document &b)
{
    std::set<Key> keys;
    for (const Document *document : {&a, &b})
        for (const auto &[key, settings] : document->objects)
            keys.insert(key);
    std::vector<Difference> all;
    for (const Key &key : keys)
        std::ranges::move(differences(key, a.find(key), b.find(key)), std::back_inserter(all));
    return all;
}

std::string readable(const Key &key, const std::string &field, const Json &value)
{
    if (value.is_array()) {
        std::string text;
        for (const Json &element : value) {
            std::string words;
            for (const auto &[name, part] :
                 flat(element.is_object() ? element : Json{{"", element}}))
                words += (words.empty() ? "" : " ") + (name.empty() ? "" : name + "=") +
                         (part.is_string() ? part.get<std::string>() : part.dump());
            text += (text.empty() ? "" : ", ") + words;
        }
        return text.empty() ? "none" : text;
    }
    const auto found = key.kind->fields.find(field);
    const bool isHexadecimal = found != key.kind->fields.end() && found->second.type->hexadecimal;
    if (isHexadecimal && value.is_number())
        return hexadecimal(value.get<uint32_t>());
    return value.is_string() ? value.get<std::string>() : value.dump();
}

Json toJson(const std::vector<Difference> &differences)
{
    Json list = Json::array();
    for (const auto &[key, field, a, b] : differences)
        list.push_back({{"object", nameOf(key)},
                        {"field", field.empty() ? Json{} : Json(field)},
                        {"a", a},
                        {"b", b}});
    return list;
}

} // namespace vexoctl::config
