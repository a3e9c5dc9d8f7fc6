#include "config_plan.h"

#include <algorithm>
#include <cstring>

namespace vexoctl::config
{

using describe::Operation;
using describe::Type;

namespace
{

// The value by this name; null when it isn't there or isn't known.
const Json *valueOf(const Json &fields, const std::string &name)
{
    const auto found = fields.find(name);
    return found == fields.end() || found->is_null() ? nullptr : &*found;
}

Json fieldsOf(const Json &fields, const std::string &name)
{
    const Json *value = valueOf(fields, name);
    return value ? *value : Json::object();
}

bool isNothing(const Json &value)
{
    return value == 0 || value == "";
}

// A record of which some fields are wanted and the others stay.
class Record
{
  public:
    Record(const Type &type, const Json &now, const Json &wanted)
        : words_((type.size + 3) / 4), fields_(merge(type, now, wanted, words_.data()))
    {
        // What the record, being what it is now, does not have.
        Paths given;
        for (const auto &[path, value] : flat(wanted))
            if (!value.is_null())
                given.insert(path);
        check(type, given, words_.data());
    }

    const Json &fields() const { return fields_; }
    // Whether only a new object can have them.
    bool isNew() const { return isNew_; }

  private:
    Json merge(const Type &type, const Json &now, const Json &wanted, void *value);

    bool isNew_ = false;
    std::vector<uint32_t> words_;
    const Json fields_;
};

Json Record::merge(const Type &type, const Json &now, const Json &wanted, void *value)
{
    Json merged = Json::object();
    for (const describe::Field &field : type.fields) {
        const describe::Options &options = field.options;
        if (options.hidden || (options.when && !options.when(value)))
            continue;
        if (field.type->kind == describe::Kind::record) {
            merged[field.name] = merge(*field.type, fieldsOf(now, field.name),
                                       fieldsOf(wanted, field.name), at(value, field));
            continue;
        }
        const Json *old = valueOf(now, field.name);
        const Json *next = valueOf(wanted, field.name);
        if (!next && !old)
            continue;
        if (!next)
            next = old;
        Paths ignored;
        fromJson(*field.type, *next, {}, at(value, field), ignored);
        merged[field.name] = *next;
        const bool differs = old && *old != *next;
        const std::string_view leftOut = options.leftOut ? options.leftOut : "";
        isNew_ |=
            differs && (options.fixed || (leftOut.starts_with("non-zero") && isNothing(*next)));
        if (leftOut.starts_with("two-state: 1") && *next != 1 && *next != 2)
            throw UsageError(std::string{field.name} + ": expected 1 or 2, not " + next->dump());
    }
    return merged;
}

class ObjectPlanner
{
  public:
    ObjectPlanner(const Key &key, const Settings &now, const Json &wanted, bool anew)
        : key_{key}, kind_{*key.kind}, now_{now}, wanted_{wanted}, state_{now}, isNew_{anew}
    {
    }

    std::vector<Step> steps()
    {
        checkTold();
        for (const Setter &setter : kind_.setters)
            merge(setter);
        isNew_ |= !now_;
        if (isNew_ && now_)
            destroy();
        else
            planLists(Phase::remove);
        for (size_t i = 0; i < kind_.setters.size(); ++i)
            set(kind_.setters[i], values_[i], i == kind_.maker);
        planLists(Phase::add);
        // That a new object has nothing somewhere is expected, though no step sets it.
        for (const Json &values : isNew_ ? values_ : std::vector<Json>{})
            for (const auto &[name, value] : values.items())
                if (!steps_.back().after->contains(name))
                    (*steps_.back().after)[name] = value;
        return std::move(steps_);
    }

    void destroy()
    {
        for (const auto &[name, field] : kind_.fields)
            if (wanted_.is_object() && now_->contains(name) && (*now_)[name].is_null() &&
                !valueOf(wanted_, name))
                throw Untold(name + " isn't told, and the object would have to be made anew");
        step(Phase::destroy, *kind_.setters[kind_.maker].operation, {kind_.action + "=delete"}, {});
    }

    std::vector<Step> taken() { return std::move(steps_); }

  private:
    Json present() const { return now_.value_or(Json::object()); }

    // What isn't told could not be led back.
    void checkTold() const
    {
        const auto wanted = flat(wanted_);
        for (const auto &one : flat(present()))
            if (one.second.is_null() && std::ranges::any_of(wanted, [&](const auto &other) {
                    return other.first == one.first && !other.second.is_null();
                }))
                throw Untold(one.first + ": the device doesn't tell what it is set to");
    }

    // What the setter would be given.
    void merge(const Setter &setter)
    {
        Json now = Json::object(), wanted = Json::object();
        const Json present = this->present();
        for (const std::string &name : setter.fields) {
            if (const Json *value = valueOf(present, name))
                now[name] = *value;
            if (const Json *value = valueOf(wanted_, name))
                wanted[name] = *value;
        }
        if (setter.record) {
            const Record record{*setter.record, now, wanted};
            isNew_ |= record.isNew();
            values_.push_back(record.fields());
        } else {
            now.update(wanted);
            values_.push_back(std::move(now));
        }
    }

    // "vlan.mode=double" and so on.
    Names assignments(const Json &fields) const
    {
        Names words;
        for (const auto &[path, value] : flat(fields))
            words.push_back(path + "=" + readable(key_, path, value));
        return words;
    }

    void set(const Setter &setter, const Json &values, bool makes)
    {
        const bool creates = makes && !state_;
        if (!creates && !changes(values))
            return;
        Names words = assignments(values);
        if (makes)
            words.insert(words.begin(), kind_.action + (creates ? "=create" : "=modify"));
        Json after = state_.value_or(Json::object());
        after.update(values);
        step(creates          ? Phase::create
             : makes          ? Phase::modify
             : kind_.isMade() ? Phase::add
                              : Phase::set,
             *setter.operation, words, std::move(after));
    }

    // Whether they are not what the object has; one that was just made has nothing set.
    bool changes(const Json &values) const
    {
        const auto present = flat(*state_);
        return std::ranges::any_of(flat(values), [&](const auto &value) {
            const auto found =
                std::ranges::find(present, value.first, [](const auto &one) { return one.first; });
            return found == present.end() ? !isNew_ || !isNothing(value.second)
                                          : found->second != value.second;
        });
    }

    void planLists(Phase phase)
    {
        for (const auto &[name, field] : kind_.fields)
            if (field.isList())
                planList(name, field, phase);
    }

    // What is added goes to the end; so, of what is there, stays what the wanted list begins with.
    void planList(const std::string &name, const Field &field, Phase phase)
    {
        const Json present = this->present();
        const Json *wanted = valueOf(wanted_, name);
        const bool has = !field.with || values_[kind_.maker].contains(field.with);
        if (wanted && !has)
            throw UsageError(name + ": only with " + field.with);
        if (!has || (!wanted && !present.contains(name)))
            return;
        if (!wanted)
            wanted = valueOf(present, name);
        if (!wanted)
            return;
        const Json *old = isNew_ ? nullptr : valueOf(*state_, name);
        Json list = old ? *old : Json::array();
        size_t kept = 0;
        for (const Json &element : Json(list))
            if (kept < wanted->size() && element == (*wanted)[kept]) {
                ++kept;
            } else if (phase == Phase::remove) {
                list.erase(std::ranges::find(list, element));
                change(phase, *field.removes, name, element, list);
            }
        for (; phase == Phase::add && kept < wanted->size(); ++kept) {
            list.push_back((*wanted)[kept]);
            change(phase, *field.adds, name, (*wanted)[kept], list);
        }
    }

    void change(Phase phase, const Operation &operation, const std::string &name,
                const Json &element, const Json &list)
    {
        Json after = *state_;
        after[name] = list;
        step(phase, operation,
             element.is_object() ? assignments(element)
                                 : assignments({{elementOf(operation), element}}),
             std::move(after));
    }

    // The argument that is the element.
    static std::string elementOf(const Operation &operation)
    {
        for (const describe::Argument &argument : operation.arguments)
            if (&argument != describe::objectOf(operation))
                return argument.name;
        return "";
    }

    void step(Phase phase, const Operation &operation, const Names &words, Settings after)
    {
        Names all = wordsOf(key_);
        all.insert(all.end(), words.begin(), words.end());
        // Whatever is wrong with it is found before anything is called.
        const Invocation checked{operation, all, {}};
        steps_.push_back({key_, phase, &operation, std::move(all), state_, after});
        state_ = std::move(after);
    }

    const Key key_;
    const Kind &kind_;
    const Settings &now_;
    const Json &wanted_;
    Settings state_; // after the steps so far
    bool isNew_;
    std::vector<Json> values_; // of the setters
    std::vector<Step> steps_;
};

std::string shellWord(const std::string &word)
{
    constexpr const char *PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"
                                  "=.:,/+-";
    if (!word.empty() && word.find_first_not_of(PLAIN) == word.npos)
        return word;
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string{"'\\''"} : std::string(1, c);
    return text + "'";
}

// What the object has to itself: "circuit=3".
std::set<std::string> ownedBy(const Key &key, const Settings &settings)
{
    std::set<std::string> owned;
    const auto values = flat(settings.value_or(Json::object()));
    for (const Setter &setter : key.kind->setters)
        for (const Leaf &leaf : setter.record ? leaves(*setter.record) : std::vector<Leaf>{})
            for (const auto &[path, value] : values)
                if (leaf.field->options.exclusive && path == leaf.path && !value.is_null() &&
                    !isNothing(value))
                    owned.insert(std::string{leaf.field->name} + "=" + value.dump());
    return owned;
}

// An object that is changed, by what only it has before and after that.
struct Move {
    Key key;
    std::set<std::string> from, to;

    bool standsInTheWayOf(const Move &other) const
    {
        return std::ranges::any_of(
            from, [&](const auto &one) { return other.to.contains(one) && !to.contains(one); });
    }
};

// In an order in which each takes what no other has any more. Where they stand in a ring, one of
// them is made anew: it lets go of what it has before all others are changed.
std::vector<std::pair<Key, bool>> ordered(std::vector<Move> moves)
{
    std::vector<std::pair<Key, bool>> keys;
    while (!moves.empty()) {
        const auto isFree = [&](const Move &move) {
            return std::ranges::none_of(moves, [&](const Move &other) {
                return &other != &move && other.standsInTheWayOf(move);
            });
        };
        const auto free = std::ranges::find_if(moves, isFree);
        const auto next = free == moves.end() ? moves.begin() : free;
        keys.emplace_back(next->key, free == moves.end());
        moves.erase(next);
    }
    return keys;
}

} // namespace

std::vector<Step> planObject(const Key &key, const Settings &now, const Settings &wanted, bool anew)
{
    if ((wanted && wanted->is_null()) || now == wanted)
        return {};
    if (now && now->is_null())
        throw Untold("the device doesn't tell what it is set to");
    try {
        const Json none;
        ObjectPlanner planner{key, now, wanted ? *wanted : none, anew};
        if (wanted)
            return planner.steps();
        planner.destroy();
        return planner.taken();
    } catch (const UsageError &error) {
        // What lacks may be what the device doesn't tell.
        if (now &&
            std::ranges::any_of(flat(*now), [](const auto &one) { return one.second.is_null(); }))
            throw Untold(error.what());
        throw UsageError(nameOf(key) + ": " + error.what());
    }
}

Plan plan(const Document &device, const Document &wanted, bool prune)
{
    Plan plan;
    const auto add = [&](const Key &key, bool anew) {
        try {
            std::ranges::move(planObject(key, device.find(key), wanted.find(key), anew),
                              std::back_inserter(plan.steps));
        } catch (const Untold &untold) {
            const auto reason = device.reasons.find(nameOf(key));
            plan.untold[key] =
                untold.what() + (reason == device.reasons.end() ? "" : " (" + reason->second + ")");
        }
    };
    std::vector<Move> moves;
    for (const auto &[key, now] : device.objects) {
        const Settings target = wanted.find(key);
        if (!target && !prune)
            continue;
        Move move{key, ownedBy(key, now), ownedBy(key, target)};
        if (now && target && !move.to.empty() && move.from != move.to)
            moves.push_back(std::move(move));
        else
            add(key, false);
    }
    for (const auto &[key, anew] : ordered(std::move(moves)))
        add(key, anew);
    std::ranges::stable_sort(plan.steps, {}, &Step::phase);
    return plan;
}

std::string commandOf(const Step &step)
{
    std::string line = spoken(step.operation->name);
    for (const std::string &word : step.words)
        line += " " + shellWord(word);
    return line;
}

} // namespace vexoctl::config
