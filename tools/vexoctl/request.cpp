#include "request.h"

#include "print.h"

#include <meaning.h>

#include <algorithm>
#include <charconv>
#include <sstream>

namespace vexoctl
{

using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;

namespace
{

// Of a pseudowire, by what its getter tells.
bool isAbsent(const Json &told)
{
    return told.value("/info/pweAction"_json_pointer, "") == "not-provisioned";
}

// No operation lists them: they are asked for.
struct Listable {
    const char *name;
    uint32_t last = 0;
    const char *getter = nullptr;
};
constexpr Listable LISTABLE[] = {
    {"port", VEXO_PM_PDH_MAX, "vexo_cmi_pdh_admin_get"},
    {"pwId", 1024, "vexo_cmi_pwe_params_get"},
    {"groupId", 8, "vexo_cmi_ima_get"},
    {"linkId"},
    {"number"},
};

std::vector<uint32_t> allOf(const Listable &kind)
{
    if (!kind.getter)
        throw UsageError(std::string{kind.name} + ": expected numbers; nothing lists these");
    const Operation &getter = *describe::find(kind.getter);
    std::vector<uint32_t> numbers;
    for (uint32_t number = 1; number <= kind.last; ++number) {
        Invocation reading{getter, {kind.name + ("=" + std::to_string(number))}, {}};
        const vexoResult &result = reading.call();
        const Json told = reading.outputs(Style::json);
        // Of a pseudowire it is told otherwise that it isn't there.
        if (result.rc != VEXO_RC_OK && kind.name == std::string_view{"pwId"})
            throw Failure{spoken(getter.name), result};
        if (result.rc == VEXO_RC_OK && !isAbsent(told))
            numbers.push_back(number);
    }
    return numbers;
}

bool isGiven(const Argument &argument)
{
    return argument.direction == Direction::in;
}

const Argument *argumentOf(const Operation &operation, const std::string &word)
{
    const auto found = std::ranges::find_if(operation.arguments, [&](const Argument &argument) {
        return isGiven(argument) && word.starts_with(std::string{argument.name} + "=");
    });
    return found == operation.arguments.end() ? nullptr : &*found;
}

// The words, and what the getter tells as a document besides.
Names changed(const Operation &operation, Names words, const Manner &manner)
{
    const Operation *getter = getterOf(operation);
    if (!getter)
        throw UsageError("--change: nothing reads what this sets");
    Names asked = words;
    std::erase_if(asked, [&](const std::string &word) { return !argumentOf(*getter, word); });
    Invocation reading{*getter, asked, {}};
    if (const vexoResult &result = reading.call(); result.rc != VEXO_RC_OK)
        throw Failure{spoken(getter->name), result};
    const Json told = reading.outputs(Style::json);
    if (isAbsent(told))
        throw Failure{spoken(operation.name),
                      {VEXO_RC_GENERAL, "nothing to change: the pseudowire is not provisioned"}};
    words.push_back(told.dump());
    std::ranges::copy(manner.changes, std::back_inserter(words));
    return words;
}

void addFields(const std::string &path, const Json &json, Fields &fields)
{
    if (!json.is_object())
        fields.emplace_back(path, json);
    else
        for (const auto &[name, element] : json.items())
            addFields(path.empty() ? name : path + "." + name, element, fields);
}

// What a path leads to; null when that isn't there.
const Json *follow(const Json &json, const std::string &path)
{
    const Json *place = &json;
    std::istringstream steps{path};
    for (std::string step; place && std::getline(steps, step, '.');) {
        size_t index = 0;
        const auto [stop, error] = std::from_chars(step.data(), step.data() + step.size(), index);
        const bool isIndex = error == std::errc{} && stop == step.data() + step.size();
        if (place->is_object() && place->contains(step))
            place = &place->at(step);
        else if (place->is_array() && isIndex && index < place->size())
            place = &(*place)[index];
        else
            place = nullptr;
    }
    return place;
}

// What the numbers of a field are counted in, where its name doesn't say it.
std::string unitBehind(const std::string &path)
{
    const std::string name = path.substr(path.rfind('.') + 1);
    const std::string unit{describe::unitOf(name)};
    return unit.empty() || unit == name ? "" : " [" + unit + "]";
}

} // namespace

std::vector<uint32_t> numbersOf(const std::string &name, const std::string &list)
{
    constexpr size_t MOST = 65536;
    std::vector<uint32_t> numbers;
    std::istringstream parts{list};
    for (std::string part; std::getline(parts, part, ',');) {
        const size_t dash = part.find('-');
        uint32_t first, last;
        parse(describe::typeOf<uint32_t>(), name, part.substr(0, dash), {}, &first);
        last = first;
        if (dash != part.npos)
            parse(describe::typeOf<uint32_t>(), name, part.substr(dash + 1), {}, &last);
        if (last < first)
            throw UsageError(name + ": " + vexoctl::quoted(part) + " ends before it begins");
        if (last - first >= MOST || numbers.size() + last - first >= MOST)
            throw UsageError(name + ": more than " + std::to_string(MOST) + " objects");
        for (uint32_t number = first; number <= last && number >= first; ++number)
            if (std::ranges::find(numbers, number) == numbers.end())
                numbers.push_back(number);
    }
    return numbers;
}

std::string cell(const Json &value)
{
    if (value.is_null())
        return "-";
    if (value.is_string())
        return printable(value.get<std::string>());
    if (!value.is_array() || std::ranges::any_of(value, &Json::is_structured))
        return value.dump();
    Names items;
    for (const Json &item : value)
        items.push_back(cell(item));
    return joined(items, ",");
}

Json valueOf(const Operation &operation, const std::string &path, const std::string &text)
{
    const auto typed = [&](const describe::Type &type) {
        std::vector<uint32_t> bytes((type.size + 3) / 4);
        parse(type, path, text, {.members = true}, bytes.data());
        return toJson(type, bytes.data());
    };
    for (const Argument &argument : operation.arguments) {
        if (isGiven(argument) || isDocument(argument))
            continue;
        if (argument.type->kind != Kind::record && argument.name == path)
            return typed(*argument.type);
        for (const Leaf &leaf : leaves(*argument.type))
            for (const std::string &name :
                 {leaf.path, std::string{argument.name} + "." + leaf.path})
                if (path == name || (path.starts_with(name + ".") && leaf.field->count > 1))
                    return typed(*leaf.field->type);
    }
    return text;
}

std::optional<Objects> takeObjects(const Operation &operation, Names &words)
{
    std::optional<Objects> objects;
    for (auto word = words.begin(); word != words.end();) {
        const Argument *argument = argumentOf(operation, *word);
        const std::string name = argument ? argument->name : "";
        const auto kind =
            std::ranges::find_if(LISTABLE, [&](const auto &one) { return name == one.name; });
        const std::string value = word->substr(word->find('=') + 1);
        const bool isList = !value.empty() && isdigit(static_cast<unsigned char>(value[0])) &&
                            value.find_first_of(",-") != value.npos;
        if (kind == std::end(LISTABLE) || (value != "all" && !isList)) {
            ++word;
            continue;
        }
        if (objects)
            throw UsageError(name + ": one argument can be a list, and " + objects->name + " is");
        objects = {name, value == "all" ? allOf(*kind) : numbersOf(name, value)};
        word = words.erase(word);
    }
    return objects;
}

void takeFiles(const Operation &operation, Names &words)
{
    for (std::string &word : words) {
        const Argument *argument = argumentOf(operation, word);
        const size_t begin = argument ? word.find('=') + 1 : 0;
        if (word.substr(begin).starts_with('@') &&
            (!argument || argument->type->kind != Kind::text))
            word.replace(begin, word.npos,
                         readWhole(argument ? argument->name : "document", word.substr(begin + 1)));
    }
}

std::string endOf(const Operation &operation, const Invocation &invocation)
{
    static constexpr std::pair<std::string_view, const char *> ENDING[] = {
        {"vexo_cmi_sys_reset", "shuts the device down"},
        {"vexo_cmi_sys_tdm_mode_set", "changes the mode of all the equipment"},
        {"vexo_cmi_misc_upgrade_init", "replaces the device's software"},
        {"vexo_cmi_misc_sys_lbk_set", "may loop all traffic back"},
        {"vexo_cmi_ima_lnk_delete", "takes a link out of service"},
        {"vexo_cmi_pwe_atmop_xc_delete", "ends a cross-connect"},
        {"sim_reset", "puts the simulated device back to its factory defaults"},
    };
    for (const auto &[name, end] : ENDING)
        if (name == operation.name)
            return end;
    return invocation.isDeletion() ? "deletes it" : "";
}

Answer request(const Operation &operation, const Names &words, const Manner &manner, Style style,
               const std::function<void(const Invocation &)> &before)
{
    const bool isChange = !manner.changes.empty();
    Invocation invocation{operation,
                          isChange ? changed(operation, words, manner) : words,
                          {.members = manner.force, .stale = isChange}};
    before(invocation);
    const vexoResult &result = invocation.call();
    return {result, invocation.outputs(style)};
}

Names fieldNames(const Operation &operation)
{
    Names names;
    for (const Argument &argument : operation.arguments) {
        if (isGiven(argument) || isDocument(argument))
            continue;
        if (argument.type->kind != Kind::record || argument.isArray())
            names.emplace_back(argument.name);
        else
            for (const Leaf &leaf : leaves(*argument.type))
                names.push_back(leaf.path);
    }
    return names;
}

bool tells(const Operation &operation, const std::string &path)
{
    const Names names = fieldNames(operation);
    const auto isOne = [&](const std::string &one) {
        return std::ranges::any_of(names, [&](const std::string &name) {
            return name == one || one.starts_with(name + ".") || name.starts_with(one + ".");
        });
    };
    return std::ranges::any_of(operation.arguments, [&](const Argument &argument) {
        const std::string own = std::string{argument.name} + ".";
        return !isGiven(argument) &&
               (isDocument(argument) || path == argument.name ||
                isOne(path.starts_with(own) ? path.substr(own.size()) : path));
    });
}

Fields choose(const std::vector<const Operation *> &operations, const Json &outputs,
              const std::string &chosen)
{
    Fields fields;
    // What is shown alone needs no name.
    const bool isAlone = outputs.size() == 1 && outputs.front().is_object();
    const Json &whole = isAlone ? Json(outputs.front()) : outputs;
    if (chosen.empty()) {
        addFields("", whole, fields);
        return fields;
    }
    std::istringstream paths{chosen};
    for (std::string path; std::getline(paths, path, ',');) {
        if (path.empty() || std::ranges::none_of(operations, [&](const Operation *operation) {
                return tells(*operation, path);
            })) {
            Names names;
            for (const Operation *operation : operations)
                std::ranges::move(fieldNames(*operation), std::back_inserter(names));
            throw UsageError("fields: there is no field " + vexoctl::quoted(path) +
                             hint(path, names));
        }
        const Json *found = follow(whole, path);
        found = found ? found : follow(outputs, path);
        fields.emplace_back(path, found ? *found : Json{});
    }
    return fields;
}

Json asObject(const Fields &fields)
{
    Json json = Json::object();
    for (const auto &[path, value] : fields)
        json[path] = value;
    return json;
}

std::string lineOf(const Fields &fields)
{
    Names cells;
    for (const auto &[path, value] : fields)
        cells.push_back(cell(value));
    return joined(cells, "\t") + "\n";
}

std::string table(const std::string &name, const std::vector<std::pair<uint32_t, Fields>> &objects)
{
    Names head{name};
    for (const auto &[number, fields] : objects)
        for (const auto &[path, value] : fields)
            if (std::ranges::find(head, path) == head.end())
                head.push_back(path);
    std::vector<Names> rows{head};
    for (std::string &path : rows[0])
        path += unitBehind(path);
    for (const auto &[number, fields] : objects) {
        Names &row = rows.emplace_back(head.size(), "-");
        row[0] = std::to_string(number);
        for (const auto &[path, value] : fields)
            row[static_cast<size_t>(std::ranges::find(head, path) - head.begin())] = cell(value);
    }
    std::vector<size_t> widths(head.size());
    for (const Names &row : rows)
        for (size_t i = 0; i + 1 < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    std::string text;
    for (const Names &row : objects.empty() ? std::vector<Names>{} : rows)
        for (size_t i = 0; i < row.size(); ++i)
            text += row[i] +
                    (i + 1 == row.size() ? "\n" : std::string(widths[i] - row[i].size() + 2, ' '));
    return text;
}

} // namespace vexoctl
