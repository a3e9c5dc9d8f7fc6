#include "commands.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <unordered_map>

namespace vexotrace
{

using trace::Call;
using trace::Detail;
using trace::Function;
using trace::Layer;
using trace::NONE;
using trace::Recording;

namespace
{

// What is compared: an operation or another call that has none around it, or a callback or handler,
// with all that was called within it.
struct Unit {
    uint32_t place;
    uint32_t thread;
    uint32_t content; // equal for units that are the same
    std::string object;
    uint64_t begin;
    bool polls; // asks for what changes by itself, and changes nothing
};

using Units = std::vector<const Unit *>; // in their order

// Numbers for texts, the same for both recordings.
using Contents = std::unordered_map<std::string, uint32_t>;

// How many events one such call hands on is a matter of time, and so is how many of them there are.
bool onlyHandsOn(const Recording &recording, const Call &call)
{
    const Function &function = recording.functionOf(call);
    return function.kind == "notifies" && function.name.ends_with("_process_notification") &&
           !recording.failed(call) && call.exit;
}

bool onlyReads(const Recording &recording, uint32_t place)
{
    for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
        if (recording.functionOf(recording.calls()[i]).kind != "reads")
            return false;
    return true;
}

bool polls(const Recording &recording, uint32_t place)
{
    const Call &call = recording.calls()[place];
    const Function &function = recording.functionOf(call);
    bool tells = false;
    for (const trace::Argument &argument : function.arguments) {
        if (argument.output && !argument.changes)
            return false;
        tells |= argument.output;
    }
    return tells && function.layer == Layer::operation && call.exit && !recording.failed(call) &&
           onlyReads(recording, place);
}

std::vector<Unit> unitsOf(const Recording &recording, Contents &contents)
{
    std::vector<Unit> units;
    const auto add = [&](uint32_t place) {
        const Call &call = recording.calls()[place];
        std::string text;
        for (const std::string &line : linesOf(recording, place, Detail::steady))
            text += line + "\n";
        const auto object = recording.objectOf(call, recording.content(call));
        units.push_back(
            {place, call.thread,
             contents.try_emplace(text, static_cast<uint32_t>(contents.size())).first->second,
             object ? textOf(*object) : "", call.clock(), polls(recording, place)});
    };
    for (const uint32_t root : recording.roots()) {
        if (!onlyHandsOn(recording, recording.calls()[root])) {
            add(root);
            continue;
        }
        for (uint32_t i = recording.firstWithin(root); i != NONE; i = recording.calls()[i].next)
            if (recording.functionOf(recording.calls()[i]).layer == Layer::handler)
                add(i);
    }
    return units;
}

// How often an agent asks for what changes by itself is a matter of time: between other calls each
// of these stands once.
Units withoutRepeats(const Units &all)
{
    Units kept;
    std::vector<uint32_t> asked;
    for (const Unit *unit : all) {
        if (!unit->polls)
            asked.clear();
        else if (std::ranges::find(asked, unit->content) != asked.end())
            continue;
        else
            asked.push_back(unit->content);
        kept.push_back(unit);
    }
    return kept;
}

struct Side {
    const Recording &recording;
    std::vector<Unit> units;
    std::map<std::string, Units> byObject;

    Side(const Recording &from, Contents &contents)
        : recording{from}, units{unitsOf(from, contents)}
    {
        for (const Unit &unit : units)
            byObject[unit.object].push_back(&unit);
    }

    Units ofObject(const std::string &object) const
    {
        const auto found = byObject.find(object);
        return found == byObject.end() ? Units{} : found->second;
    }

    Units ofThread(uint32_t thread) const
    {
        Units found;
        for (const Unit &unit : units)
            if (unit.thread == thread)
                found.push_back(&unit);
        return found;
    }

    std::string threadOf(const Unit &unit) const
    {
        const trace::ThreadOf &thread = recording.threads()[unit.thread];
        return std::to_string(thread.id) + " (" + thread.name + ")";
    }
};

bool areSame(const Units &a, const Units &b)
{
    return std::ranges::equal(a, b, {}, &Unit::content, &Unit::content);
}

Units ofThread(const Units &all, uint32_t thread)
{
    Units found;
    std::ranges::copy_if(all, std::back_inserter(found),
                         [=](const Unit *unit) { return unit->thread == thread; });
    return found;
}

// The thread of B's that is each one of A's; NONE: there is none. Their numbers say nothing: it is
// the one that does the same; or else begins with the same; or else is left.
std::vector<uint32_t> match(const Side &a, const Side &b)
{
    const auto countA = static_cast<uint32_t>(a.recording.threads().size());
    const auto countB = static_cast<uint32_t>(b.recording.threads().size());
    std::vector<uint32_t> matched(countA, NONE);
    std::vector<bool> taken(countB);
    std::vector<Units> ofA, ofB;
    for (uint32_t i = 0; i < countA; ++i)
        ofA.push_back(withoutRepeats(a.ofThread(i)));
    for (uint32_t i = 0; i < countB; ++i)
        ofB.push_back(withoutRepeats(b.ofThread(i)));
    const auto take = [&](const auto &fits) {
        for (uint32_t i = 0; i < countA; ++i)
            for (uint32_t k = 0; k < countB && matched[i] == NONE; ++k)
                if (!taken[k] && fits(ofA[i], ofB[k])) {
                    matched[i] = k;
                    taken[k] = true;
                }
    };
    const auto nameOf = [](const Side &side, const Unit *unit) {
        return side.recording.functionOf(side.recording.calls()[unit->place]).name;
    };
    take(areSame);
    take([](const Units &one, const Units &other) {
        return !one.empty() && !other.empty() && one[0]->content == other[0]->content;
    });
    take([&](const Units &one, const Units &other) {
        return !one.empty() && !other.empty() && nameOf(a, one[0]) == nameOf(b, other[0]);
    });
    take([](const Units &, const Units &) { return true; });
    return matched;
}

// Where units are others than there.
struct Difference {
    std::string object;
    Units a, b;
};

// How far after a difference the same is looked for.
constexpr size_t FARTHEST = 2000;

void compare(const std::string &object, const Units &a, const Units &b,
             std::vector<Difference> &found)
{
    for (size_t i = 0, k = 0; i < a.size() || k < b.size();) {
        if (i < a.size() && k < b.size() && a[i]->content == b[k]->content) {
            ++i;
            ++k;
            continue;
        }
        // The least that is to be left out on both sides.
        size_t skipA = a.size() - i, skipB = b.size() - k;
        for (size_t all = 1; all <= std::min(FARTHEST, skipA + skipB); ++all) {
            const size_t first = all > b.size() - k ? all - (b.size() - k) : 0;
            size_t n = first;
            while (n <= all && i + n < a.size() &&
                   (k + all - n >= b.size() || a[i + n]->content != b[k + all - n]->content))
                ++n;
            if (n <= all && i + n < a.size()) {
                skipA = n;
                skipB = all - n;
                break;
            }
        }
        const auto from = [](const Units &units, size_t at, size_t count) {
            const auto begin = units.begin() + static_cast<std::ptrdiff_t>(at);
            return Units(begin, begin + static_cast<std::ptrdiff_t>(count));
        };
        found.push_back({object, from(a, i, skipA), from(b, k, skipB)});
        i += skipA;
        k += skipB;
    }
}

std::vector<Difference> differencesOf(const Side &a, const Side &b)
{
    std::vector<Difference> found;
    std::vector<uint32_t> matched;
    std::set<std::string> objects;
    for (const Side *side : {&a, &b})
        for (const auto &[object, units] : side->byObject)
            objects.insert(object);
    for (const std::string &object : objects) {
        const Units ofA = a.ofObject(object), ofB = b.ofObject(object);
        // Whichever threads made them.
        if (areSame(withoutRepeats(ofA), withoutRepeats(ofB)))
            continue;
        if (matched.empty())
            matched = match(a, b);
        const auto compareThreads = [&](const Units &one, const Units &other) {
            compare(object, withoutRepeats(one), withoutRepeats(other), found);
        };
        for (uint32_t i = 0; i < matched.size(); ++i)
            compareThreads(ofThread(ofA, i),
                           matched[i] == NONE ? Units{} : ofThread(ofB, matched[i]));
        for (uint32_t k = 0; k < b.recording.threads().size(); ++k)
            if (std::ranges::find(matched, k) == matched.end())
                compareThreads({}, ofThread(ofB, k));
    }
    return found;
}

// ---- What is said of them ----

struct Around {
    const Side &side;
    Units before, after;
};

// The neighbours in its thread: of A, unless it is in B only.
Around aroundOf(const Difference &difference, const Side &a, const Side &b)
{
    constexpr size_t COUNT = 3;
    const Side &side = difference.a.empty() ? b : a;
    const Units &here = difference.a.empty() ? difference.b : difference.a;
    Around around{side, {}, {}};
    const Units thread = side.ofThread(here[0]->thread);
    const auto begin =
        static_cast<size_t>(std::ranges::find(thread, here.front()) - thread.begin());
    const auto end = static_cast<size_t>(std::ranges::find(thread, here.back()) - thread.begin());
    for (size_t i = begin - std::min(begin, COUNT); i < begin; ++i)
        around.before.push_back(thread[i]);
    for (size_t i = end + 1; i < std::min(end + 1 + COUNT, thread.size()); ++i)
        around.after.push_back(thread[i]);
    return around;
}

uint64_t timeOf(const Difference &difference, const Side &a, const Side &b)
{
    const bool inA = !difference.a.empty();
    const Unit &unit = inA ? *difference.a[0] : *difference.b[0];
    return unit.begin - (inA ? a : b).recording.head().startClock;
}

std::string nameOf(const Side &side, const Unit &unit)
{
    return std::string{side.recording.functionOf(side.recording.calls()[unit.place]).shortName()};
}

struct Sum {
    uint64_t changed = 0, onlyInA = 0, onlyInB = 0;
};

// By name and object. Two that stand in the same place and have the same name are one that changed.
std::map<std::pair<std::string, std::string>, Sum>
sumsOf(const std::vector<Difference> &differences, const Side &a, const Side &b)
{
    std::map<std::pair<std::string, std::string>, Sum> sums;
    for (const Difference &difference : differences)
        for (size_t i = 0; i < std::max(difference.a.size(), difference.b.size()); ++i) {
            const std::string inA = i < difference.a.size() ? nameOf(a, *difference.a[i]) : "";
            const std::string inB = i < difference.b.size() ? nameOf(b, *difference.b[i]) : "";
            if (inA == inB) {
                ++sums[{inA, difference.object}].changed;
                continue;
            }
            if (!inA.empty())
                ++sums[{inA, difference.object}].onlyInA;
            if (!inB.empty())
                ++sums[{inB, difference.object}].onlyInB;
        }
    return sums;
}

std::vector<std::string> linesOf(const Side &side, const Units &units, size_t most)
{
    std::vector<std::string> lines;
    for (const Unit *unit : units) {
        if (most-- == 0) {
            lines.push_back("...");
            break;
        }
        const auto more = vexotrace::linesOf(side.recording, unit->place, Detail::steady);
        lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
}

constexpr size_t MOST_SHOWN = 5;

void print(const Difference &first, const Side &a, const Side &b)
{
    const Around around = aroundOf(first, a, b);
    const Unit &unit = first.a.empty() ? *first.b[0] : *first.a[0];
    printf("First difference: thread %s%s%s, %s after the begin\n",
           around.side.threadOf(unit).c_str(), first.object.empty() ? "" : ", ",
           first.object.c_str(), durationText(timeOf(first, a, b)).c_str());
    for (const Unit *before : around.before)
        printf("    %s\n", lineOf(around.side.recording,
                                  around.side.recording.calls()[before->place], Detail::steady)
                               .c_str());
    const auto inA = linesOf(a, first.a, MOST_SHOWN), inB = linesOf(b, first.b, MOST_SHOWN);
    const auto [fromA, fromB] = std::ranges::mismatch(inA, inB);
    for (auto line = inA.begin(); line != fromA; ++line)
        printf("    %s\n", line->c_str());
    for (auto line = fromA; line != inA.end(); ++line)
        printf("  - %s\n", line->c_str());
    for (auto line = fromB; line != inB.end(); ++line)
        printf("  + %s\n", line->c_str());
    for (const Unit *after : around.after)
        printf("    %s\n", lineOf(around.side.recording,
                                  around.side.recording.calls()[after->place], Detail::steady)
                               .c_str());
}

Json documentsOf(const Side &side, const Units &units)
{
    Json documents = Json::array();
    for (const Unit *unit : units)
        documents.push_back(documentOf(side.recording, unit->place, Detail::usual));
    return documents;
}

Json documentOf(const Difference &first, const Side &a, const Side &b)
{
    const Around around = aroundOf(first, a, b);
    return {{"object", first.object},
            {"a", documentsOf(a, first.a)},
            {"b", documentsOf(b, first.b)},
            {"before", documentsOf(around.side, around.before)},
            {"after", documentsOf(around.side, around.after)}};
}

} // namespace

int diff(const DiffOptions &options)
{
    const Recording inA{options.a}, inB{options.b};
    Contents contents;
    const Side a{inA, contents}, b{inB, contents};
    const std::vector<Difference> differences = differencesOf(a, b);
    const auto first = std::ranges::min_element(
        differences, {}, [&](const Difference &one) { return timeOf(one, a, b); });
    if (options.json) {
        Json json{{"same", differences.empty()}};
        json["first"] = differences.empty() ? Json{} : documentOf(*first, a, b);
        Json &summary = json["summary"] = Json::array();
        for (const auto &[key, sum] : sumsOf(differences, a, b))
            summary.push_back({{"name", key.first},
                               {"object", key.second},
                               {"changed", sum.changed},
                               {"onlyInA", sum.onlyInA},
                               {"onlyInB", sum.onlyInB}});
        puts(dump(json).c_str());
    } else if (!differences.empty()) {
        print(*first, a, b);
        puts("\n changed  only -  only +");
        for (const auto &[key, sum] : sumsOf(differences, a, b))
            printf("%8llu%8llu%8llu  %s%s%s\n", static_cast<unsigned long long>(sum.changed),
                   static_cast<unsigned long long>(sum.onlyInA),
                   static_cast<unsigned long long>(sum.onlyInB), key.first.c_str(),
                   key.second.empty() ? "" : " ", key.second.c_str());
    }
    fflush(stdout);
    warn(options.a, inA);
    warn(options.b, inB);
    return differences.empty() ? SUCCESS : DIFFERENT;
}

} // namespace vexotrace
