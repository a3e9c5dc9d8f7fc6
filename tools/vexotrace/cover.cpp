#include "commands.h"
#include "header_lines.h"
#include "text.h"

#include <describe.h>
#include <meaning.h>
#include <platform.h>
#include <records.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <unordered_map>

namespace vexotrace
{

using trace::Call;
using trace::Layer;
using trace::NONE;
using trace::Recording;

namespace
{

enum Group {
    OPERATIONS,
    FAILURES,
    CLASSES,
    VALUES_IN,
    VALUES_OUT,
    ALARMS,
    REPORTS,
    CALLBACKS,
    GROUPS
};
constexpr const char *GROUP_NAMES[] = {"operations", "failing calls", "classes of failure",
                                       "values in",  "values out",    "alarm kinds",
                                       "PM kinds",   "callbacks"};
static_assert(std::size(GROUP_NAMES) == GROUPS);

struct Item {
    Group group;
    std::string name;
    std::string owner;      // the operation, enumeration or callback that it belongs to
    const HeaderLine *line; // its declaration, or its owner's
    bool apart = false;     // the simulated device can't produce it
    uint64_t count = 0;
    uint64_t survived = 0, fatal = 0; // what agents that were swept made of it

    bool isSurvived() const { return survived > 0 && fatal == 0; }
};

const HeaderLine *lineOf(std::string_view name)
{
    const auto found = std::ranges::find(headerLines, name, &HeaderLine::name);
    return found == headerLines.end() ? nullptr : &*found;
}

std::string shortName(std::string_view name)
{
    constexpr std::string_view PREFIX = "vexo_cmi_";
    return std::string{name.substr(name.starts_with(PREFIX) ? PREFIX.size() : 0)};
}

constexpr const char *SERVICES[] = {"vexo_cmi_alarm_callback_register",
                                    "vexo_cmi_pm_callback_register"};

// All that the interface has, by the description and the header.
class Items
{
  public:
    Items()
    {
        for (const HeaderLine &line : headerLines)
            if (line.name.starts_with("vexo_cmi_"))
                add(OPERATIONS, shortName(line.name), shortName(line.name), &line);
        for (const describe::Operation &operation : describe::operations())
            addFailures(operation);
        for (const describe::platform::Function &function : describe::platform::functions())
            if (function.kind == describe::platform::Class::notifies)
                addFailure(SERVICES[function.library == describe::platform::Library::pmom],
                           function, 1);
        for (const HeaderLine &line : headerLines)
            if (line.enumeration == "vexoRc" && line.value != 0)
                add(CLASSES, std::string{line.name}, "vexoRc", &line);
        for (const describe::Operation &operation : describe::operations())
            for (const describe::Argument &argument : operation.arguments)
                addValues(*argument.type, argument.direction == describe::Direction::out);
        addValues(describe::typeOf<vexoAlarmNotification>(), true);
        addValues(describe::typeOf<vexoPmNotification>(), true);
        for (const char *kind : {"system", "port", "pw", "group", "link"})
            add(ALARMS, kind, "vexoAlarmCallback", lineOf("vexoAlarmCallback"));
        for (const char *kind : {"pdh", "pwe", "ima"})
            add(REPORTS, kind, "vexoPmCallback", lineOf("vexoPmCallback"));
        for (const char *name : {"vexoAlarmCallback", "vexoPmCallback"})
            add(CALLBACKS, name, name, lineOf(name));
    }

    // Null: there is none.
    Item *find(Group group, const std::string &name)
    {
        const auto found = byName_[group].find(name);
        return found == byName_[group].end() ? nullptr : found->second;
    }

    // A call that fails, the n-th of its function within the operation: the calls of each link
    // after the first are as the first's. Null: there is none.
    Item *failure(const std::string &operation, const std::string &function, uint32_t number)
    {
        Item *found = nullptr;
        for (; !found && number > 0; --number)
            found = find(FAILURES, failureName(operation, function, number));
        return found;
    }

    // Where the values of an enumeration are counted, by their numbers.
    std::vector<Item *> *valuesOf(const std::string &enumeration, bool output)
    {
        const auto found = values_[output].find(enumeration);
        return found == values_[output].end() ? nullptr : &found->second;
    }

    const std::deque<Item> &all() const { return all_; }

    static std::string failureName(const std::string &operation, std::string_view function,
                                   uint32_t number)
    {
        std::string name = shortName(operation) + ": " + std::string{function};
        return number > 1 ? name + " " + std::to_string(number) : name;
    }

  private:
    Item *add(Group group, const std::string &name, const std::string &owner,
              const HeaderLine *line)
    {
        Item *&item = byName_[group][name];
        if (!item) {
            all_.push_back({group, name, owner, line});
            item = &all_.back();
        }
        return item;
    }

    void addFailure(std::string_view operation, const describe::platform::Function &function,
                    uint32_t number)
    {
        if (canFail(function))
            add(FAILURES, failureName(std::string{operation}, function.name, number),
                shortName(operation), lineOf(operation));
    }

    // The second and third call of the same function are points of failure of their own; the calls
    // of each link are not.
    void addFailures(const describe::Operation &operation)
    {
        for (const describe::Case &found : describe::casesOf(operation, 1)) {
            std::map<std::string, uint32_t> numbers;
            for (const std::string &call : found.calls)
                if (const auto *function = describe::platform::find(call))
                    addFailure(operation.name, *function, ++numbers[call]);
        }
    }

    void addValues(const describe::Type &type, bool output)
    {
        for (const describe::Field &field : type.fields)
            if (!field.options.hidden && (output || field.options.leftOut != describe::NEVER_TAKEN))
                addValues(*field.type, output);
        if (type.kind != describe::Kind::enumeration)
            return;
        for (const HeaderLine &line : headerLines) {
            if (line.enumeration != type.name || line.value < type.first || line.value > type.last)
                continue;
            const std::string name = std::string{line.name} + (output ? " out" : " in");
            Item *const item = add(output ? VALUES_OUT : VALUES_IN, name, type.name, &line);
            const auto meanings = describe::meaningsOf(type.name);
            item->apart = output && std::ranges::any_of(meanings, [&](const auto &meaning) {
                              return meaning.meaning == describe::NEVER &&
                                     meaning.value == std::to_string(line.value);
                          });
            auto &values = values_[output][type.name];
            values.resize(std::max<size_t>(values.size(), line.value + 1));
            values[line.value] = item;
        }
    }

    std::deque<Item> all_;
    std::unordered_map<std::string, Item *> byName_[GROUPS];
    std::unordered_map<std::string, std::vector<Item *>> values_[2];
};

// Counts what one file's calls have met.
class Counter
{
  public:
    Counter(Items &items, const Recording &recording)
        : items_{items}, recording_{recording}, contents_(recording.functions().size())
    {
        for (const trace::Type &type : recording.types())
            enumerationsOf(type);
        for (const trace::Function &function : recording.functions())
            functions_.push_back(known(function));
    }

    void count()
    {
        for (const Call &call : recording_.calls()) {
            const Known &known = functions_[call.function];
            switch (known.layer) {
            case Layer::operation:
                countOperation(call, known);
                break;
            case Layer::callback:
                countCallback(call, known);
                break;
            case Layer::platform:
                if (known.notifies && recording_.failed(call))
                    ++known.notifies->count;
                break;
            case Layer::handler:
                break;
            }
        }
    }

  private:
    // What is to be counted of a function.
    struct Known {
        Layer layer;
        Item *item;                    // of an operation or a callback
        Item *notifies;                // of a call of the platform's by a service
        std::vector<size_t> arguments; // those with enumerations
    };

    Known known(const trace::Function &function)
    {
        Known known{function.layer, nullptr, nullptr, {}};
        if (function.layer == Layer::operation)
            known.item = items_.find(OPERATIONS, std::string{function.shortName()});
        else if (function.layer == Layer::callback)
            known.item = items_.find(CALLBACKS, function.name);
        else if (function.kind == "notifies")
            known.notifies =
                items_.find(FAILURES, Items::failureName(SERVICES[function.library == "pmom"],
                                                         function.name, 1));
        for (size_t i = 0; i < function.arguments.size(); ++i)
            if (function.arguments[i].type && enumerationsOf(*function.arguments[i].type).any)
                known.arguments.push_back(i);
        return known;
    }

    void countOperation(const Call &call, const Known &known)
    {
        if (known.item)
            ++known.item->count;
        const bool failed = recording_.failed(call);
        if (known.arguments.empty() && !failed)
            return countFailures(call, failed);
        trace::Content &content = contents_[call.function];
        recording_.read(call, content);
        if (failed && content.code)
            countClass(*content.code);
        countFailures(call, failed);
        countValues(call, known, content);
    }

    void countClass(uint32_t code)
    {
        for (const HeaderLine &line : headerLines)
            if (line.enumeration == "vexoRc" && line.value == code)
                if (Item *item = items_.find(CLASSES, std::string{line.name}))
                    ++item->count;
    }

    // That something isn't there, as a call that reads tells when all goes well, is no failure.
    void countFailures(const Call &call, bool failed)
    {
        const auto place = static_cast<uint32_t>(&call - recording_.calls().data());
        for (uint32_t i = recording_.firstWithin(place); i != NONE;
             i = recording_.calls()[i].next) {
            const Call &inner = recording_.calls()[i];
            if (!recording_.failed(inner))
                continue;
            const trace::Function &function = recording_.functionOf(inner);
            if (!failed && function.kind == "reads")
                continue;
            uint32_t number = 1;
            for (uint32_t k = recording_.firstWithin(place); k != i; k = recording_.calls()[k].next)
                number += recording_.calls()[k].function == inner.function;
            if (Item *item =
                    items_.failure(recording_.functionOf(call).name, function.name, number))
                ++item->count;
        }
    }

    void countCallback(const Call &call, const Known &known)
    {
        if (known.item)
            ++known.item->count;
        trace::Content &content = contents_[call.function];
        recording_.read(call, content);
        countValues(call, known, content);
        if (content.arguments.empty() || !content.arguments[0].isThere)
            return;
        if (const auto object = recording_.objectOf(call, content))
            if (Item *item = items_.find(ALARMS, std::string{object->kind});
                item && recording_.functionOf(call).name == item->owner)
                ++item->count;
        const Json record = toJson(recording_.functionOf(call).arguments[0], content.arguments[0]);
        const auto type = record.find("objType");
        if (type != record.end() && type->is_string())
            if (Item *item = items_.find(REPORTS, type->get<std::string>());
                item && recording_.functionOf(call).name == item->owner)
                ++item->count;
    }

    void countValues(const Call &call, const Known &known, const trace::Content &content)
    {
        const trace::Function &function = recording_.functionOf(call);
        for (const size_t i : known.arguments) {
            const trace::Value &value = content.arguments[i];
            const trace::Argument &argument = function.arguments[i];
            if (!value.isThere)
                continue;
            const bool output = argument.output || function.layer == Layer::callback;
            if (!argument.pointer) {
                countValue(*argument.type, value.number, output);
                continue;
            }
            for (uint32_t n = 0; n < value.count; ++n)
                countWithin(*argument.type, value.bytes.data() + size_t{n} * argument.type->size,
                            output);
        }
    }

    void countWithin(const trace::Type &type, const uint8_t *value, bool output)
    {
        if (type.kind == describe::Kind::enumeration)
            return countValue(type, trace::wordAt(value, type.size), output);
        for (const trace::Field *field : enumerationsOf(type).fields)
            if (trace::counts(*field, type, value))
                for (uint32_t n = 0; n < field->count; ++n)
                    countWithin(*field->type, value + field->offset + size_t{n} * field->type->size,
                                output);
    }

    void countValue(const trace::Type &type, uint64_t value, bool output)
    {
        const auto *items = enumerationsOf(type).items[output];
        if (items && value < items->size())
            if (Item *const item = (*items)[static_cast<size_t>(value)])
                ++item->count;
    }

    // Where there are enumerations in a type.
    struct Enumerations {
        bool any = false;
        std::vector<const trace::Field *> fields;
        std::vector<Item *> *items[2] = {nullptr, nullptr};
    };

    const Enumerations &enumerationsOf(const trace::Type &type)
    {
        const auto [found, isNew] = enumerations_.try_emplace(&type);
        if (!isNew)
            return found->second;
        Enumerations made;
        made.any = type.kind == describe::Kind::enumeration;
        if (made.any)
            for (const bool output : {false, true})
                made.items[output] = items_.valuesOf(type.name, output);
        for (const trace::Field &field : type.fields)
            if (!field.hidden && enumerationsOf(*field.type).any)
                made.fields.push_back(&field);
        made.any |= !made.fields.empty();
        return enumerations_[&type] = std::move(made);
    }

    Items &items_;
    const Recording &recording_;
    std::vector<Known> functions_;
    std::vector<trace::Content> contents_;
    std::unordered_map<const trace::Type *, Enumerations> enumerations_;
};

// ---- Reports of sweeps ----

bool isReport(const std::string &file)
{
    return std::ifstream{file}.peek() == '{';
}

const char *serviceOf(const describe::platform::Function *function)
{
    return SERVICES[function && function->library == describe::platform::Library::pmom];
}

// Of the calls that failed, and what came of it.
void countSweep(Items &items, const std::string &file)
try {
    std::ifstream stream{file};
    constexpr std::string_view FAILING[] = {"code", "stuck", "lost"};
    const Json report = Json::parse(stream);
    for (const Json &point : report.at("points")) {
        const std::string verdict = point.at("verdict"), operation = point.at("operation"),
                          function = point.at("function");
        if (verdict == "unmet" || verdict == "unstable")
            continue;
        if (Item *item = items.find(OPERATIONS, operation))
            ++item->count;
        if (!std::ranges::count(FAILING, point.at("effect").get<std::string>()))
            continue;
        Item *const item =
            operation.empty()
                ? items.failure(serviceOf(describe::platform::find(function)), function, 1)
                : items.failure(operation, function, point.at("step"));
        if (!item)
            continue;
        ++item->count;
        ++(verdict == "recovered" || verdict == "reported" ? item->survived : item->fatal);
    }
} catch (const Json::exception &) {
    throw UsageError(file + ": is neither a recording nor the report of a sweep");
}

// ---- The report ----

struct Sum {
    unsigned met = 0, of = 0, survived = 0;

    void add(const Item &item)
    {
        met += item.count > 0;
        survived += item.isSurvived();
        ++of;
    }
    double percent() const { return of ? 100.0 * met / of : 100.0; }
};

struct Report {
    std::array<Sum, GROUPS> groups{};
    Sum all, apart;

    explicit Report(const Items &items)
    {
        for (const Item &item : items.all()) {
            (item.apart ? apart : groups[item.group]).add(item);
            if (!item.apart)
                all.add(item);
        }
    }
};

// What isn't met of one operation, enumeration or callback.
struct Gap {
    std::string owner;
    std::vector<const Item *> items;

    std::string text() const
    {
        std::string text;
        for (const Item *item : items)
            if (item->group == OPERATIONS)
                text = "call it";
        unsigned failing = 0;
        constexpr unsigned MOST_NAMES = 3;
        unsigned others = 0;
        std::string values;
        for (const Item *item : items) {
            if (item->group == FAILURES)
                ++failing;
            else if (item->group != OPERATIONS && ++others <= MOST_NAMES)
                values += (values.empty() ? "" : ", ") + item->name;
        }
        if (others > MOST_NAMES)
            values += ", ...";
        if (failing)
            text += (text.empty() ? "let " : ", let ") + std::to_string(failing) +
                    (failing == 1 ? " call of its fail" : " calls of its fail");
        if (!values.empty())
            text += (text.empty() ? "" : ", ") + values;
        return text;
    }
};

// The largest first.
std::vector<Gap> gapsOf(const Items &items)
{
    std::map<std::string, Gap> byOwner;
    for (const Item &item : items.all())
        if (item.count == 0 && !item.apart) {
            byOwner[item.owner].owner = item.owner;
            byOwner[item.owner].items.push_back(&item);
        }
    std::vector<Gap> gaps;
    gaps.reserve(byOwner.size());
    for (auto &[owner, gap] : byOwner)
        gaps.push_back(std::move(gap));
    std::ranges::stable_sort(gaps, std::greater{}, [](const Gap &gap) { return gap.items.size(); });
    return gaps;
}

void print(const Items &items, const Report &report)
{
    constexpr size_t MOST_GAPS = 10;
    const auto line = [](const char *name, const Sum &sum) {
        printf("%-20s%5u of %4u%8.1f %%", name, sum.met, sum.of, sum.percent());
        if (sum.survived)
            printf(", %u survived", sum.survived);
        puts("");
    };
    for (size_t i = 0; i < GROUPS; ++i)
        line(GROUP_NAMES[i], report.groups[i]);
    line("all", report.all);
    printf("\nThe simulated device can't produce %u more, which aren't counted:\n",
           report.apart.of);
    for (const Item &item : items.all())
        if (item.apart)
            printf("    %s%s\n", item.name.c_str(), item.count ? ", met" : "");
    const char *title = "\nMet in a sweep, and not survived:\n";
    for (const Item &item : items.all())
        if (item.fatal) {
            printf("%s    %s\n", title, item.name.c_str());
            title = "";
        }
    const std::vector<Gap> gaps = gapsOf(items);
    if (!gaps.empty())
        puts("\nWhat would add most:");
    for (size_t i = 0; i < std::min(MOST_GAPS, gaps.size()); ++i)
        printf("%5zu  %s: %s\n", gaps[i].items.size(), gaps[i].owner.c_str(),
               gaps[i].text().c_str());
}

Json documentOf(const Items &items, const Report &report)
{
    Json json{{"percent", report.all.percent()}, {"met", report.all.met}, {"of", report.all.of}};
    const auto list = [&](const char *key, auto takes) {
        Json &listed = json[key] = Json::array();
        for (const Item &item : items.all())
            if (takes(item))
                listed.push_back({{"group", GROUP_NAMES[item.group]},
                                  {"name", item.name},
                                  {"owner", item.owner},
                                  {"count", item.count},
                                  {"survived", item.isSurvived()}});
    };
    Json groups = Json::array();
    for (size_t i = 0; i < GROUPS; ++i)
        groups.push_back({{"name", GROUP_NAMES[i]},
                          {"met", report.groups[i].met},
                          {"of", report.groups[i].of},
                          {"survived", report.groups[i].survived},
                          {"percent", report.groups[i].percent()}});
    json["groups"] = std::move(groups);
    list("items", [](const Item &item) { return !item.apart; });
    list("apart", [](const Item &item) { return item.apart; });
    Json adds = Json::array();
    for (const Gap &gap : gapsOf(items))
        adds.push_back({{"owner", gap.owner}, {"items", gap.items.size()}, {"how", gap.text()}});
    json["adds"] = std::move(adds);
    return json;
}

// A line's count is that of what it declares, and its branches are all that belongs to it.
void writeLcov(const std::string &path, const Items &items)
{
    const std::string headers = beside({HEADERS});
    if (headers.empty())
        throw UsageError("--lcov: the header isn't there, whose lines it tells of");
    std::ofstream stream{path};
    std::map<std::string_view, std::map<unsigned, std::vector<const Item *>>> files;
    for (const Item &item : items.all())
        if (item.line && !item.apart)
            files[item.line->file][item.line->line].push_back(&item);
    for (const auto &[file, lines] : files) {
        stream << "TN:\nSF:" << headers << "/" << file << "\n";
        unsigned functions = 0, functionsHit = 0, branches = 0, branchesHit = 0, hit = 0;
        std::string counts, taken;
        for (const auto &[line, declared] : lines) {
            uint64_t count = 0;
            unsigned branch = 0;
            for (const Item *item : declared) {
                if (item->group == OPERATIONS || item->group == CALLBACKS) {
                    stream << "FN:" << line << "," << item->line->name << "\n"
                           << "FNDA:" << item->count << "," << item->line->name << "\n";
                    ++functions;
                    functionsHit += item->count > 0;
                    count = item->count;
                }
            }
            for (const Item *item : declared) {
                if (item->group == OPERATIONS || item->group == CALLBACKS)
                    continue;
                if (item->line->enumeration.size() > 0)
                    count += item->count;
                taken += "BRDA:" + std::to_string(line) + ",0," + std::to_string(branch++) + "," +
                         std::to_string(item->count) + "\n";
                ++branches;
                branchesHit += item->count > 0;
            }
            counts += "DA:" + std::to_string(line) + "," + std::to_string(count) + "\n";
            hit += count > 0;
        }
        stream << "FNF:" << functions << "\nFNH:" << functionsHit << "\n"
               << taken << "BRF:" << branches << "\nBRH:" << branchesHit << "\n"
               << counts << "LF:" << lines.size() << "\nLH:" << hit << "\nend_of_record\n";
    }
    stream.close();
    if (!stream)
        throw UsageError(path + ": " + strerror(errno));
}

} // namespace

int cover(const CoverOptions &options)
{
    Items items;
    for (const std::string &file : options.files) {
        if (isReport(file)) {
            countSweep(items, file);
            continue;
        }
        const Recording recording{file};
        Counter{items, recording}.count();
        warn(file, recording);
    }
    const Report report{items};
    if (options.json)
        puts(dump(documentOf(items, report)).c_str());
    else
        print(items, report);
    if (!options.lcov.empty())
        writeLcov(options.lcov, items);
    fflush(stdout);
    if (!options.least || report.all.percent() >= *options.least)
        return SUCCESS;
    fprintf(stderr, "vexotrace: %.1f %% is less than %g %%\n", report.all.percent(),
            *options.least);
    return TOO_LITTLE;
}

} // namespace vexotrace
