#include "conform.h"

#include "config_apply.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sstream>

namespace vexoctl::conformance
{

using config::Key;
using describe::Argument;
using describe::Direction;
using describe::Kind;
using describe::Operation;
using describe::Type;
using describe::Use;

namespace
{

constexpr uint32_t NO_NUMBER = 0xFFFFFFFF; // that no object has
constexpr std::string_view IMA_TYPE = "imaType";
constexpr vexoAdminStatus DOWN = VEXO_ADMIN_STATUS_2;
constexpr uint32_t SYSTEM_ALARMS = 0x7FFF; // those that can be set
constexpr double SLOW = 100;               // milliseconds

std::string refusal(const vexoResult &result)
{
    return std::string{REFUSED} + std::to_string(result.rc) +
           (result.message[0] ? "" : ", without a text");
}

// ---- One call, and what can be seen of its outputs ----

struct Seen {
    vexoResult result{};
    Json outputs = Json::object();
    bool untouched = true;         // the outputs, all of them
    std::set<std::string> flaws{}; // "frameMode is 9"
    std::set<std::string> forms{}; // of what the platform fills in one way or another
};

// What outputs hold before a call: a value that the device tells can be the same as one of them.
constexpr uint8_t FILLS[] = {0xFF, 0xA5};

bool isUntouched(const void *value, size_t size, uint8_t fill)
{
    const auto *bytes = static_cast<const uint8_t *>(value);
    return std::all_of(bytes, bytes + size, [=](uint8_t byte) { return byte == fill; });
}

void look(const Type &type, const std::string &path, const void *value, uint8_t fill, Seen &seen)
{
    if (!path.empty() && type.kind != Kind::record && isUntouched(value, type.size, fill)) {
        seen.flaws.insert(path + " is left alone");
    } else if (type.kind == Kind::enumeration) {
        const uint32_t word = wordAt(value);
        if (!std::ranges::count(valuesOf(type), valueText(type, word)))
            seen.flaws.insert(path + " is " + std::to_string(word));
    } else if (type.kind == Kind::text && !memchr(value, 0, type.size)) {
        seen.flaws.insert(path + " does not end");
    }
    for (const describe::Field &field : type.fields) {
        const describe::Options &options = field.options;
        if (options.hidden)
            continue;
        const bool isForm = options.when && !options.by;
        if (options.when && !options.when(value))
            continue;
        if (isForm)
            seen.forms.insert(field.name);
        uint32_t count = field.count;
        if (options.count) {
            const uint32_t told = wordAt(at(value, *fieldOf(type, options.count)));
            if (told > count)
                seen.flaws.insert(path + options.count + std::string{" is beyond "} +
                                  std::to_string(count));
            count = std::min(count, told);
        }
        const auto *bytes = static_cast<const uint8_t *>(at(value, field));
        for (uint32_t i = 0; i < count; ++i) {
            const void *element = bytes + i * field.type->size;
            if (!options.optional || !isUntouched(element, field.type->size, fill))
                look(*field.type, path + field.name + (field.type->kind == Kind::record ? "." : ""),
                     element, fill, seen);
        }
    }
}

// ---- What is asked ----

// Objects that answer alike: the ports, the pseudowires of one type.
struct Group {
    std::string name; // in answers; empty where there is only one
    std::vector<uint32_t> numbers{};
};

struct Objects {
    const config::Kind *kind;
    uint32_t last = 0;            // number
    std::vector<uint32_t> free{}; // numbers of none, where objects are made
    std::vector<Group> groups{};  // those that there are
    std::vector<Group> made{};    // that are set: a port, those that were made for it
    std::string untried{};        // why none is there
};

// Words besides the object, and their name in the answer.
struct Variant {
    std::string name;
    Names words;
};

bool isIn(const Argument &argument)
{
    return argument.direction == Direction::in;
}

bool isOut(const Argument &argument)
{
    return !isIn(argument);
}

// Alarms of groups and links are asked for by the type of the object.
bool isTyped(const Operation &operation)
{
    return std::ranges::any_of(operation.arguments,
                               [](const Argument &argument) { return argument.name == IMA_TYPE; });
}

// A getter that changes something, whatever it is called with, is not among those that only read.
// What takes a flag that clears is called without.
bool readsOnly(const Operation &operation)
{
    return std::ranges::all_of(describe::casesOf(operation, 1), [](const describe::Case &one) {
        return one.when == "clear" || std::ranges::all_of(one.calls, [](const std::string &call) {
                   return call.find("get") != call.npos;
               });
    });
}

bool isAskedGetter(const Operation &operation, bool writes)
{
    return config::isGetter(operation) && operation.role.use != Use::action &&
           (writes || readsOnly(operation));
}

bool isAskedSetter(const Operation &operation)
{
    const Use use = operation.role.use;
    return !config::isGetter(operation) && (use == Use::setting || use == Use::part);
}

std::vector<Variant> variantsOf(const Operation &operation)
{
    std::vector<Variant> all{{"", {}}};
    for (const Argument &argument : operation.arguments) {
        if (isOut(argument) || &argument == describe::objectOf(operation) ||
            argument.name == std::string_view{"number"} || argument.name == IMA_TYPE)
            continue;
        const bool isChoice = argument.type->kind == Kind::enumeration;
        std::vector<Variant> next;
        for (const Variant &one : all)
            for (const std::string &value : isChoice ? valuesOf(*argument.type) : Names{"0"}) {
                Variant &more = next.emplace_back(one);
                more.words.push_back(argument.name + std::string{"="} + value);
                if (isChoice)
                    more.name += (more.name.empty() ? "" : " ") + more.words.back();
            }
        all = std::move(next);
    }
    return all;
}

std::string named(const std::string &group, const std::string &what)
{
    return group + (group.empty() || what.empty() ? "" : " ") + what;
}

std::string textOf(const Json &value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

// Outputs by their own names and those of the fields of a record.
std::map<std::string, Json> flatOutputs(const Json &outputs)
{
    std::map<std::string, Json> all;
    for (const auto &[name, value] : outputs.items())
        for (const auto &[path, element] :
             config::flat(value.is_object() ? value : Json{{name, value}}))
            all[path] = element;
    return all;
}

// ---- Events ----

struct Events {
    std::mutex mutex;
    std::condition_variable came;
    std::vector<vexoAlarmNotification> all;
} events;

void onAlarm(vexoAlarmNotification *alarm)
{
    const std::lock_guard guard{events.mutex};
    events.all.push_back(*alarm);
    events.came.notify_all();
}

class Listening
{
  public:
    Listening()
    {
        events.all.clear();
        vexo_cmi_alarm_callback_register(onAlarm);
    }
    ~Listening() { vexo_cmi_alarm_callback_unregister(); }
    Listening(const Listening &) = delete;
};

} // namespace

std::optional<uint32_t> systemAlarms()
{
    config::Device device;
    const auto once = [&]() -> std::optional<uint32_t> {
        Json outputs;
        if (device.call(*describe::find("vexo_cmi_sys_alarm_get"), {}, outputs).rc != VEXO_RC_OK)
            return {};
        return outputs["bits"].get<uint32_t>();
    };
    const std::optional<uint32_t> bits = once();
    return bits == once() ? bits : std::nullopt;
}

bool setSystemAlarms(uint32_t bits)
{
    config::Device device;
    Json ignored;
    const Names words{"bits=" + std::to_string(bits & SYSTEM_ALARMS)};
    return device.call(*describe::find("vexo_cmi_sys_alarm_set"), words, ignored).rc == VEXO_RC_OK;
}

namespace
{

class Asker
{
  public:
    Asker(const Progress &progress, const BeforeWriting &beforeWriting)
        : writes_{beforeWriting}, progress_{progress}, beforeWriting_{beforeWriting}
    {
        for (const char *section : {"pdh", "pwe", "ima"})
            objects_.push_back({.kind = config::numberedKind(section)});
    }

    Asked all()
    {
        for (Objects &one : objects_)
            count(one);
        if (writes_ && !asked_.stopped) {
            std::vector<Key> toBeMade;
            for (const Objects &one : objects_)
                for (const uint32_t number : one.free)
                    toBeMade.push_back({one.kind, number});
            beforeWriting_(toBeMade);
            for (Objects &one : objects_)
                make(one);
        }
        for (const Operation &operation : describe::operations())
            if (config::isGetter(operation) && operation.role.use != Use::action)
                askGetter(operation);
        for (const Operation &operation : describe::operations())
            if (isAskedSetter(operation))
                askSetter(operation);
        for (const Operation &operation : describe::operations())
            if (operation.role.use == Use::adds)
                askList(operation);
        askOrder();
        askEvents();
        for (Objects &one : objects_)
            remove(one);
        askTimes();
        return std::move(asked_);
    }

  private:
    using Work = std::function<void(Findings &)>;

    void ask(const std::string &question, const std::string &why, const Work &work)
    {
        Reply answer{question, {}, asked_.stopped && why.empty() ? asked_.stopped->what() : why};
        if (answer.why.empty())
            try {
                progress_(question);
                work(answer.findings);
                if (answer.findings.empty())
                    answer.why = "nothing was there to be asked";
            } catch (const Stopped &stopped) {
                Interruptible::goOn();
                if (writes_ || stopped.status == INTERRUPTED) {
                    asked_.stopped = stopped;
                    answer.why = stopped.what();
                } else {
                    answer.findings["a call"].insert(stopped.what());
                }
            }
        asked_.answers.push_back(std::move(answer));
    }

    Seen call(const Operation &operation, const Names &words)
    {
        Seen seen = callOnce(operation, words, FILLS[0]);
        const auto isLeft = [](const std::string &flaw) { return flaw.ends_with("left alone"); };
        if (std::ranges::any_of(seen.flaws, isLeft)) {
            const Seen again = callOnce(operation, words, FILLS[1]);
            std::erase_if(seen.flaws, [&](const std::string &flaw) {
                return isLeft(flaw) && !again.flaws.contains(flaw);
            });
        }
        return seen;
    }

    Seen callOnce(const Operation &operation, const Names &words, uint8_t fill)
    {
        Invocation invocation{operation, words, {.members = true, .stale = true}};
        invocation.fill(fill * 0x01010101U);
        const auto begin = std::chrono::steady_clock::now();
        Seen seen{.result = invocation.call()};
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - begin;
        const std::string name = spoken(operation.name);
        const auto known = asked_.milliseconds.emplace(name, took.count()).first;
        known->second = std::min(known->second, took.count());
        if (config::isGetter(operation))
            again_[&operation] = words;
        seen.outputs = invocation.outputs(Style::json);
        for (size_t i = 0; i < operation.arguments.size(); ++i) {
            const Argument &argument = operation.arguments[i];
            if (isIn(argument))
                continue;
            const auto *bytes = static_cast<const uint8_t *>(invocation.argument(i));
            seen.untouched &= isUntouched(bytes, argument.type->size * argument.count, fill);
            if (seen.result.rc != VEXO_RC_OK)
                continue;
            const size_t count = argument.isArray() ? seen.outputs[argument.name].size() : 1;
            const std::string path = argument.type->kind == Kind::record ? "" : argument.name;
            for (size_t k = 0; k < count; ++k)
                look(*argument.type, path, bytes + k * argument.type->size, fill, seen);
        }
        return seen;
    }

    Objects *objectsOf(const Operation &operation)
    {
        const Argument *object = describe::objectOf(operation);
        const auto found = std::ranges::find_if(objects_, [&](const Objects &one) {
            return isTyped(operation)
                       ? one.kind->section == "ima"
                       : object && object->name == std::string_view{one.kind->number};
        });
        return found == objects_.end() ? nullptr : &*found;
    }

    Names wordsOf(const Operation &operation, const Objects *objects, uint32_t number) const
    {
        if (!objects)
            return {};
        if (isTyped(operation))
            return {"imaType=group", "number=" + std::to_string(number)};
        return {objects->kind->number + std::string{"="} + std::to_string(number)};
    }

    static Names together(Names words, const Names &more)
    {
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    // ---- Objects ----

    struct Presence {
        bool isNumber, isThere;
        std::string type;
    };

    Presence presenceOf(const Objects &objects, uint32_t number, uint32_t refusedWith)
    {
        const Seen seen = call(*objects.kind->getters.front(),
                               wordsOf(*objects.kind->getters.front(), &objects, number));
        const auto told = flatOutputs(seen.outputs);
        const auto text = [&](const std::string &name) {
            const auto found = told.find(name);
            return found != told.end() && found->second.is_string()
                       ? found->second.get<std::string>()
                       : "";
        };
        const bool answers = seen.result.rc == VEXO_RC_OK;
        return {answers || seen.result.rc != refusedWith,
                answers && text(objects.kind->action) != "not-provisioned", text("pweType")};
    }

    void count(Objects &objects)
    {
        const config::Kind &kind = *objects.kind;
        const uint32_t usual = config::lastOf(kind, {});
        const uint32_t most = std::max(usual + 1, 64u);
        ask(kind.section + ": " + HOW_MANY, "", [&](Findings &findings) {
            const uint32_t refused =
                call(*kind.getters.front(), wordsOf(*kind.getters.front(), &objects, NO_NUMBER))
                    .result.rc;
            for (uint32_t number = 1; number <= most; ++number) {
                const Presence presence = presenceOf(objects, number, refused);
                if (presence.isNumber)
                    objects.last = number;
                // What isn't made is there, whatever it answers.
                if (presence.isThere || (presence.isNumber && !kind.isMade()))
                    groupOf(objects.groups, presence.type).numbers.push_back(number);
                else if (presence.isNumber && kind.isMade() &&
                         objects.free.size() <= typesOf(kind).size())
                    objects.free.push_back(number);
            }
            for (const Group &group : objects.groups)
                for (uint32_t number = 1; number < objects.last && !kind.isMade(); ++number)
                    if (!std::ranges::count(group.numbers, number))
                        findings["missing"].insert(std::to_string(number));
            findings["numbers up to"].insert(objects.last == most
                                                 ? std::to_string(most) + " or more"
                                                 : std::to_string(objects.last));
        });
        if (!kind.isMade())
            objects.untried = "no object answers";
        else
            objects.untried =
                "there is none" + std::string{writes_ ? "" : "; with --write one is made"};
    }

    static Group &groupOf(std::vector<Group> &groups, const std::string &name)
    {
        const auto found = std::ranges::find(groups, name, &Group::name);
        return found == groups.end() ? groups.emplace_back(Group{name}) : *found;
    }

    // ---- Getters ----

    // Of each object that there is, with each choice that the operation takes.
    template <class Use>
    void forEach(const Operation &operation, const Objects *objects, Use use)
    {
        const std::vector<Group> system{{"", {0}}};
        for (const Group &group : objects ? objects->groups : system)
            for (const Variant &variant : variantsOf(operation))
                for (const uint32_t number : group.numbers)
                    if (readsOnly(operation) || canBePutBack(operation, number))
                        use(named(group.name, variant.name),
                            call(operation,
                                 together(wordsOf(operation, objects, number), variant.words)));
    }

    // What writes back what it reads would write garbage.
    bool canBePutBack(const Operation &operation, uint32_t number)
    {
        const std::optional<Key> key = config::settingOf(operation, number);
        const config::Settings settings =
            key ? config::read(device_, *key).settings : Json::object();
        return settings && !settings->is_null() &&
               std::ranges::none_of(config::flat(*settings),
                                    [](const auto &one) { return one.second.is_null(); });
    }

    void askGetter(const Operation &operation)
    {
        const std::string name = spoken(operation.name) + ": ";
        const Objects *objects = objectsOf(operation);
        const std::string why = !isAskedGetter(operation, writes_) ? "it writes: only with --write"
                                : objects && objects->groups.empty() ? objects->untried
                                                                     : "";
        Findings known, forms, told;
        bool answered = false;
        ask(name + "does it answer", why, [&](Findings &findings) {
            forEach(operation, objects, [&](const std::string &what, const Seen &seen) {
                const bool answers = seen.result.rc == VEXO_RC_OK;
                findings[what].insert(answers ? std::string{ANSWERS} : refusal(seen.result));
                if (!answers)
                    return;
                answered = true;
                known[what].insert(seen.flaws.begin(), seen.flaws.end());
                forms[what].insert(seen.forms.begin(), seen.forms.end());
                if (seen.forms.empty())
                    forms[what].insert("none that is known");
                tell(operation, seen.outputs, told);
            });
        });
        const std::string unanswered =
            !why.empty() || answered || asked_.stopped ? why : "it did not answer";
        const auto give = [&](const Findings &found) { return [&](Findings &to) { to = found; }; };
        ask(name + "is all of it filled in, known and ended", unanswered, give(known));
        if (hasForms(operation))
            ask(name + "which shape has it", unanswered, give(forms));
        if (!fixedLeaves(operation).empty())
            ask(name + "what does it tell", unanswered, give(told));
        if (objects)
            askAbsent(operation, *objects,
                      isAskedGetter(operation, writes_) ? "" : "it writes: only with --write");
    }

    static bool hasForms(const Operation &operation)
    {
        const auto has = [](const auto &self, const Type &type) -> bool {
            return std::ranges::any_of(type.fields, [&](const describe::Field &field) {
                return (field.options.when && !field.options.by) || self(self, *field.type);
            });
        };
        return std::ranges::any_of(operation.arguments, [&](const Argument &argument) {
            return isOut(argument) && has(has, *argument.type);
        });
    }

    // What is neither set nor counted, nor the state of anything.
    static std::vector<Leaf> fixedLeaves(const Operation &operation)
    {
        std::vector<Leaf> all;
        const bool isSet = std::ranges::any_of(describe::operations(), [&](const Operation &other) {
            return !config::isGetter(other) && getterOf(other) == &operation;
        });
        if (operation.role.use != Use::state || describe::objectOf(operation) ||
            isTyped(operation) || isSet)
            return all;
        for (const Argument &argument : operation.arguments)
            if (isOut(argument))
                for (Leaf &leaf : leaves(*argument.type, argument.name + std::string{"."}))
                    if (!leaf.field->options.changes)
                        all.push_back(std::move(leaf));
        return all;
    }

    static void tell(const Operation &operation, const Json &outputs, Findings &told)
    {
        // The library has its host say this.
        char own[sizeof(vexoSwVersion::text[0])];
        gorvGetVersion(own, sizeof own);
        for (const Leaf &leaf : fixedLeaves(operation)) {
            Json value = outputs;
            std::istringstream steps{leaf.path};
            for (std::string step; value.is_object() && std::getline(steps, step, '.');)
                value = Json(value.value(step, Json{}));
            const Json values = value.is_array() ? value : Json::array({value});
            for (size_t i = 0; i < values.size(); ++i)
                if (values[i] != own)
                    told[leaf.path + (value.is_array() ? "." + std::to_string(i) : "")] = {
                        textOf(values[i])};
        }
    }

    void askAbsent(const Operation &operation, const Objects &objects, const std::string &why)
    {
        const std::string name = spoken(operation.name) + ": ";
        Findings left;
        ask(name + ABSENT, why, [&](Findings &findings) {
            std::vector<std::pair<std::string, uint32_t>> numbers{
                {"number 0", 0},
                {"number beyond", objects.last + 1},
                {"number 4294967295", NO_NUMBER}};
            if (!objects.free.empty())
                numbers.emplace_back("not made", objects.free.back());
            const Variant variant = variantsOf(operation).front();
            for (const auto &[what, number] : numbers) {
                const Seen seen =
                    call(operation, together(wordsOf(operation, &objects, number), variant.words));
                const bool answers = seen.result.rc == VEXO_RC_OK;
                findings[what].insert(answers ? std::string{ANSWERS} : refusal(seen.result));
                if (!answers)
                    left[what].insert(seen.untouched ? "untouched" : "written to");
            }
        });
        ask(name + "outputs of what was refused",
            why.empty() && left.empty() && !asked_.stopped ? "nothing was refused" : why,
            [&](Findings &findings) { findings = left; });
    }

    // ---- What is made ----

    static std::string circuitOf(const Objects &ports) { return std::to_string(ports.last); }

    // A value for a field that must be given: of the operation's example, where it has one.
    std::string valueFor(const std::string &path, const Leaf &leaf,
                         const Operation &operation) const
    {
        if (path == "adminStatus")
            return std::to_string(DOWN);
        if (path.ends_with(".circuit"))
            return circuitOf(objects_.front());
        std::istringstream words{operation.example};
        const std::string own = path.substr(path.find('.') + 1);
        for (std::string word; words >> word;)
            if (const size_t sign = word.find('='); sign != word.npos)
                if (const std::string name = word.substr(0, sign);
                    name == path || name.ends_with("." + own))
                    return word.substr(sign + 1);
        return leaf.field->type->kind == Kind::enumeration ? valuesOf(*leaf.field->type).front()
                                                           : "1";
    }

    // The words that make an object, and no more than that takes.
    Names making(const config::Kind &kind, uint32_t number, const std::string &type) const
    {
        const config::Setter &maker = kind.setters[kind.maker];
        Names words{kind.action + "=create"};
        if (!type.empty())
            words.push_back("pweType=" + type);
        const std::vector<Leaf> all = leaves(*maker.record);
        for (bool isWhole = false; !isWhole;) {
            std::vector<uint32_t> record((maker.record->size + 3) / 4);
            Paths given;
            for (const std::string &word : words) {
                const size_t sign = word.find('=');
                fromJson(*maker.record, nested(word.substr(0, sign), word.substr(sign + 1)), {},
                         record.data(), given);
                given.insert(word.substr(0, sign));
            }
            const Names lacking = missing(*maker.record, given, record.data());
            isWhole = lacking.empty();
            for (const std::string &path : lacking)
                words.push_back(
                    path + "=" +
                    valueFor(path, *std::ranges::find(all, path, &Leaf::path), *maker.operation));
        }
        words.insert(words.begin(), kind.number + std::string{"="} + std::to_string(number));
        return words;
    }

    void make(Objects &objects)
    {
        const config::Kind &kind = *objects.kind;
        if (!kind.isMade()) {
            // One that isn't in service, where there is one.
            for (const Group &group : objects.groups)
                objects.made = {{"", {chosen(group)}}};
            return;
        }
        const Names types = typesOf(kind);
        for (size_t i = 0; i < types.size(); ++i)
            makeOne(objects, types[i], i < objects.free.size() ? objects.free[i] : 0);
    }

    // Of which one each is made: those of pseudowires that have a name.
    static Names typesOf(const config::Kind &kind)
    {
        for (const describe::Field &field : kind.setters[kind.maker].record->fields)
            if (field.options.fixed) {
                Names names = valuesOf(*field.type);
                names.resize(field.type->members.size());
                return names;
            }
        return {""};
    }

    uint32_t chosen(const Group &ports)
    {
        const Operation &getter = *describe::find("vexo_cmi_pdh_admin_get");
        for (const uint32_t port : ports.numbers)
            if (call(getter, {"port=" + std::to_string(port)}).outputs.value("status", 0U) == DOWN)
                return port;
        return ports.numbers.back();
    }

    void makeOne(Objects &objects, const std::string &type, uint32_t number)
    {
        const config::Kind &kind = *objects.kind;
        const Operation &maker = *kind.setters[kind.maker].operation;
        const std::string what =
            spoken(maker.name) + ": what a new one has" + (type.empty() ? "" : ", ") + type;
        ask(what, number ? "" : "no number is free", [&](Findings &findings) {
            const Names words = making(kind, number, type);
            const Seen made = call(maker, words);
            findings["made"].insert(made.result.rc == VEXO_RC_OK ? "made" : refusal(made.result));
            if (made.result.rc != VEXO_RC_OK)
                return;
            groupOf(objects.groups, type).numbers.push_back(number);
            objects.made.push_back({type, {number}});
            const Operation &getter = *kind.getters.front();
            const Seen seen = call(getter, wordsOf(getter, &objects, number));
            for (const auto &[path, value] : flatOutputs(seen.outputs)) {
                const bool isGiven =
                    std::ranges::any_of(words, [&, &path = path](const std::string &word) {
                        return word.starts_with(path + "=");
                    });
                if (!isGiven && path != "srcMac" && path != "operState")
                    findings[path].insert(textOf(value));
            }
        });
    }

    void remove(Objects &objects)
    {
        const config::Kind &kind = *objects.kind;
        if (!kind.isMade())
            return;
        const Operation &maker = *kind.setters[kind.maker].operation;
        const Operation &getter = *kind.getters.front();
        const std::string question = spoken(maker.name) + ": is one that was removed gone";
        const auto removal = [&](Findings &findings) {
            for (const Group &group : objects.made) {
                const Seen gone = call(maker, together(wordsOf(maker, &objects, group.numbers[0]),
                                                       {kind.action + "=delete"}));
                findings[named(group.name, "removal")].insert(
                    gone.result.rc == VEXO_RC_OK ? "done" : refusal(gone.result));
                const Seen seen = call(getter, wordsOf(getter, &objects, group.numbers[0]));
                const auto told = flatOutputs(seen.outputs);
                const auto action = told.find(kind.action);
                findings[group.name].insert(seen.result.rc != VEXO_RC_OK ? refusal(seen.result)
                                            : action != told.end()
                                                ? action->second.get<std::string>()
                                                : std::string{ANSWERS});
            }
        };
        // What was made is removed also after an interruption.
        if (asked_.stopped && !objects.made.empty()) {
            Findings ignored;
            removal(ignored);
        }
        ask(question, untried(objects), removal);
    }

    std::string untried(const Objects &objects) const
    {
        return !writes_               ? "only with --write"
               : objects.made.empty() ? "none is there to be set"
                                      : "";
    }

    // ---- Setters ----

    struct Place {
        std::string path;
        const Type *type;
        uint32_t limit;
    };

    // What a setter takes, but for what says which object it is and what becomes of it.
    static std::vector<Place> placesOf(const Operation &operation)
    {
        std::vector<Place> all;
        for (const Argument &argument : operation.arguments) {
            if (isOut(argument) || &argument == describe::objectOf(operation))
                continue;
            if (!isGivenRecord(argument)) {
                all.push_back({argument.name, argument.type, argument.limit});
                continue;
            }
            for (const Leaf &leaf : leaves(*argument.type))
                if (!leaf.field->options.alone && !leaf.field->options.fixed)
                    all.push_back(
                        {leaf.path, leaf.field->type, leaf.limit & leaf.field->type->last});
        }
        return all;
    }

    // The values to be tried, the next of the same name only where one is refused, and what they
    // are called in the answer.
    static std::vector<std::pair<std::string, std::string>> valuesFor(const Place &place,
                                                                      const Json &now)
    {
        const Type &type = *place.type;
        std::vector<std::pair<std::string, std::string>> all;
        if (type.kind == Kind::enumeration) {
            for (const std::string &value : valuesOf(type))
                all.emplace_back(value, value);
            for (const uint32_t beyond : {type.first - 1, type.last + 1})
                if (beyond != NO_NUMBER)
                    all.emplace_back(std::to_string(beyond), std::to_string(beyond));
        } else if (type.kind == Kind::mac) {
            all.emplace_back("another", now == "02:00:5e:00:00:21" ? "02:00:5e:00:00:22"
                                                                   : "02:00:5e:00:00:21");
        } else if (type.kind == Kind::text) {
            all.emplace_back("another", now == "conform" ? "conformance" : "conform");
        } else if (type.last == 1) {
            all.emplace_back("0", "0");
            all.emplace_back("1", "1");
        } else {
            const uint32_t number = now.is_number() ? now.get<uint32_t>() : 0;
            const uint32_t most = place.limit;
            all.emplace_back("another", std::to_string(number < most ? number + 1 : number - 1));
            if (number > 0 && number < most)
                all.emplace_back("another", std::to_string(number - 1));
            all.emplace_back("0", "0");
            all.emplace_back(std::to_string(most), std::to_string(most));
        }
        return all;
    }

    void askSetter(const Operation &operation)
    {
        const std::string name = spoken(operation.name) + ": ";
        const Operation *getter = getterOf(operation);
        const Objects *objects = objectsOf(operation);
        const std::vector<Group> system{{"", {0}}};
        const std::string why = objects    ? untried(*objects)
                                : !writes_ ? "only with --write"
                                : !getter  ? "nothing reads it"
                                           : "";
        ask(name + TAKES, why, [&](Findings &findings) {
            for (const Group &group : objects ? objects->made : system)
                setEach(operation, *getter, objects, group, findings);
        });
        if (objects)
            ask(name + ABSENT, why, [&](Findings &findings) {
                Seen before;
                for (const Group &group : objects->made)
                    if (before = call(*getter, wordsOf(*getter, objects, group.numbers[0]));
                        before.result.rc == VEXO_RC_OK)
                        break;
                for (const auto &[what, number] :
                     {std::pair{"number 0", 0U}, {"number beyond", objects->last + 1}})
                    trySet(operation,
                           together(wordsOf(operation, objects, number), {printed(before)}),
                           [&, &what = what](const vexoResult &result) {
                               findings[what].insert(result.rc == VEXO_RC_OK ? "taken"
                                                                             : refusal(result));
                           });
            });
    }

    // What the getter told, as it prints it.
    static std::string printed(const Seen &seen)
    {
        Json document{{"operation", ""}};
        document.update(seen.outputs);
        return document.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    // What the command itself would refuse isn't tried.
    template <class Use>
    void trySet(const Operation &operation, const Names &words, Use use)
    {
        try {
            use(call(operation, words).result);
        } catch (const UsageError &) {
        }
    }

    void setEach(const Operation &operation, const Operation &getter, const Objects *objects,
                 const Group &group, Findings &findings)
    {
        const uint32_t number = group.numbers[0];
        const std::optional<Key> key = config::settingOf(operation, number);
        config::Undo undo{device_};
        config::Reading before = config::read(device_, *key);
        const Names own = wordsOf(getter, objects, number);
        const Seen now = call(getter, own);
        const auto told = config::flat(before.settings.value_or(Json::object()));
        const auto isUntold = [&](const Place &place) {
            return std::ranges::count(told, std::pair{place.path, Json{}}) > 0;
        };
        if (now.result.rc != VEXO_RC_OK || (before.settings && before.settings->is_null()) ||
            std::ranges::any_of(placesOf(operation), isUntold)) {
            findings[group.name].insert(now.result.rc ? refusal(now.result)
                                                      : "it could not be put back");
            return;
        }
        undo.remember(*key, before.settings);
        const auto putBack = [&] {
            config::Report report;
            undo.run(report);
            auto &back = findings[named(group.name, "put back")];
            for (const config::Trouble &trouble : report.notUndone)
                back.insert(trouble.what + ": " + trouble.text);
            for (const auto &[field, value] : told)
                if (value.is_null())
                    back.insert(field + ": the device doesn't tell what it is set to");
            if (back.empty())
                findings.erase(named(group.name, "put back"));
        };
        try {
            setPlaces(operation, getter, own, group, now, findings);
        } catch (const Stopped &) {
            putBack();
            throw;
        }
        putBack();
    }

    void setPlaces(const Operation &operation, const Operation &getter, const Names &own,
                   const Group &group, const Seen &now, Findings &findings)
    {
        const auto told = flatOutputs(now.outputs);
        const auto places = placesOf(operation);
        bool isTaken = false, isFollowed = false;
        for (const Place &place : places) {
            const Json current = toldAs(told, operation, place.path);
            const auto values = valuesFor(place, current);
            std::map<std::string, std::string> found;
            for (const auto &[shown, value] : values) {
                std::string &finding = found[shown];
                if (!finding.empty() && !finding.starts_with(REFUSED))
                    continue;
                Names words = together(own, {place.path + "=" + value});
                if (places.size() > 1)
                    words.push_back(printed(now));
                trySet(operation, words, [&, &value = value](const vexoResult &result) {
                    finding = refusal(result);
                    if (result.rc != VEXO_RC_OK)
                        return;
                    const Seen after = call(getter, own);
                    const Json read = toldAs(flatOutputs(after.outputs), operation, place.path);
                    finding = after.result.rc != VEXO_RC_OK
                                  ? "then it is " + refusal(after.result)
                                  : readBack(read, value, *place.type, current);
                    isTaken |= value != textOf(current);
                    isFollowed |= read != current;
                });
            }
            for (const auto &[shown, finding] : found)
                if (!finding.empty())
                    findings[named(group.name, place.path)].insert(shown + " " + finding);
        }
        if (isTaken && !isFollowed)
            findings[named(group.name, "put back")].insert(
                "not known: what is read doesn't follow what is set");
    }

    // Getters that have one output only call it as they like.
    static Json toldAs(const std::map<std::string, Json> &told, const Operation &operation,
                       const std::string &path)
    {
        if (const auto found = told.find(path); found != told.end())
            return found->second;
        return placesOf(operation).size() == 1 && told.size() == 1 ? told.begin()->second : Json{};
    }

    static std::string readBack(const Json &read, const std::string &value, const Type &type,
                                const Json &before)
    {
        const std::string text = textOf(read);
        if (read.is_null())
            return "is not told";
        if (text == value)
            return "is read back";
        if (type.kind == Kind::enumeration || type.last == 1)
            return "is read as " + text;
        return read == before ? "is read as before" : "is read as something else";
    }

    // ---- Lists ----

    void askList(const Operation &adds)
    {
        const config::Kind &kind = *objectsOf(adds)->kind;
        const config::Field &list = kind.fields.at(adds.role.name);
        const Objects &objects = *objectsOf(adds);
        ask(spoken(adds.name) + ": is what was added there, and gone when removed",
            untried(objects), [&](Findings &findings) {
                for (const Group &group : objects.made)
                    if (!list.with || group.name.starts_with("atm"))
                        tryList(adds, list, objects, group, findings);
            });
    }

    // One that is in no group.
    uint32_t freeLink(const char *list, const Objects &objects)
    {
        std::set<uint32_t> used;
        for (const Group &group : objects.groups)
            for (const uint32_t number : group.numbers)
                if (const config::Settings settings =
                        config::read(device_, {objects.kind, number}).settings;
                    settings && settings->is_object())
                    for (const Json &link : settings->value(list, Json::array()))
                        used.insert(link.get<uint32_t>());
        uint32_t link = 1;
        while (used.contains(link))
            ++link;
        return link;
    }

    void tryList(const Operation &adds, const config::Field &list, const Objects &objects,
                 const Group &group, Findings &findings)
    {
        Names element;
        std::istringstream example{adds.example};
        for (std::string word; example >> word;)
            if (word.starts_with("linkId="))
                element.push_back("linkId=" + std::to_string(freeLink(adds.role.name, objects)));
            else if (!word.starts_with(std::string{objects.kind->number} + "="))
                element.push_back(word);
        const Names words = together(wordsOf(adds, &objects, group.numbers[0]), element);
        const Key key{objects.kind, group.numbers[0]};
        const auto length = [&] {
            const config::Settings settings = config::read(device_, key).settings;
            return settings && settings->is_object()
                       ? settings->value(adds.role.name, Json::array()).size()
                       : 0;
        };
        const auto perform = [&](const char *what, const Operation &operation) {
            const size_t before = length();
            const Seen seen = call(operation, words);
            const auto grown = static_cast<long>(length()) - static_cast<long>(before);
            findings[named(group.name, what)].insert(
                (seen.result.rc == VEXO_RC_OK ? "done, " : refusal(seen.result) + ", ") +
                std::to_string(grown) + " more");
        };
        perform("added", *list.adds);
        perform("added again", *list.adds);
        perform("removed", *list.removes);
        perform("removed again", *list.removes);
    }

    // ---- Order ----

    // The library asks for the text of a failure behind the call that failed.
    void askOrder()
    {
        const Operation &port = *objects_.front().kind->getters.front();
        const Operation &group = *objects_.back().kind->getters.front();
        const auto fail = [&](const Operation &operation) {
            return call(operation, wordsOf(operation, objectsOf(operation), NO_NUMBER)).result;
        };
        ask("order: is the text of a failure that of the latest", "", [&](Findings &findings) {
            const vexoResult first = fail(port), other = fail(group), again = fail(port);
            findings["the same failure again"].insert(
                strcmp(first.message, again.message) == 0 ? "the same text" : "another text");
            findings["another failure"].insert(
                strcmp(first.message, other.message) == 0 ? "the same text" : "another text");
        });
        ask("order: does a getter answer behind one that failed", "", [&](Findings &findings) {
            const Operation &mode = *describe::find("vexo_cmi_sys_tdm_mode_get");
            fail(port);
            const Seen seen = call(mode, {});
            findings[""].insert(seen.result.rc == VEXO_RC_OK ? std::string{ANSWERS}
                                                             : refusal(seen.result));
            findings["text"].insert(seen.result.message[0] ? "left" : "none");
        });
        ask("order: is it all the same once more", "", [&](Findings &findings) {
            const config::Document one = config::save(device_, RANGES),
                                   other = config::save(device_, RANGES);
            findings[""].insert(differences(one, other).empty() ? "the same" : "otherwise");
        });
    }

    // ---- Events ----

    void askEvents()
    {
        ask("events: do they come for what changed", writes_ ? "" : "only with --write",
            [&](Findings &findings) {
                const std::optional<uint32_t> bits = systemAlarms();
                if (!bits) {
                    findings["system"].insert("the alarms could not be read");
                    return;
                }
                const Listening listening;
                constexpr uint32_t BIT = 1;
                // Nothing tells when the service has subscribed: the alarm is raised until it is
                // seen.
                findings["raised"].insert(await(*bits ^ BIT, *bits));
                const bool isFollowed =
                    setSystemAlarms(*bits ^ BIT) && systemAlarms() == (*bits ^ BIT);
                findings["put back"].insert(setSystemAlarms(*bits) && systemAlarms() == bits &&
                                                    isFollowed
                                                ? "read back"
                                                : "not read back");
            });
    }

    static std::string await(uint32_t raised, uint32_t before)
    {
        using namespace std::chrono_literals;
        std::unique_lock lock{events.mutex};
        auto patience = 5ms;
        for (int i = 0; i < 9; ++i, patience *= 2) {
            lock.unlock();
            if (!setSystemAlarms(i % 2 ? before : raised))
                return "the alarms could not be set";
            lock.lock();
            const auto isIt = [&](const vexoAlarmNotification &event) {
                return event.objType == VEXO_OBJ_TYPE_SYSTEM && event.object.status == raised &&
                       event.object.delta == (raised ^ before);
            };
            if (events.came.wait_for(lock, patience,
                                     [&] { return std::ranges::any_of(events.all, isIt); }))
                return "an event with status and change came";
        }
        return events.all.empty() ? "no event came" : "another event came";
    }

    // ---- Time ----

    void askTimes()
    {
        for (const char *area : {"sys", "pdh", "pwe", "ima", "misc"})
            ask(std::string{area} + ": does each call return within 0.1 s", "",
                [&](Findings &findings) {
                    for (auto &[operation, milliseconds] : std::map{asked_.milliseconds}) {
                        if (!operation.starts_with(area))
                            continue;
                        findings[""].insert("yes");
                        const auto slow =
                            std::ranges::find_if(again_, [&operation = operation](const auto &one) {
                                return spoken(one.first->name) == operation;
                            });
                        // Once may be the host's.
                        for (int i = 0; i < 3 && asked_.milliseconds[operation] >= SLOW &&
                                        slow != again_.end();
                             ++i)
                            call(*slow->first, slow->second);
                        if (asked_.milliseconds[operation] >= SLOW)
                            findings[operation].insert("no");
                    }
                });
    }

    static constexpr config::Ranges RANGES{.ports = 16, .pwes = 64, .groups = 8};

    const bool writes_;
    const Progress &progress_;
    const BeforeWriting &beforeWriting_;
    config::Device device_;
    Asked asked_;
    std::vector<Objects> objects_;
    std::map<const Operation *, Names> again_; // a call of each getter
};

} // namespace

Asked ask(const Progress &progress, const BeforeWriting &beforeWriting)
{
    return Asker{progress, beforeWriting}.all();
}

} // namespace vexoctl::conformance
