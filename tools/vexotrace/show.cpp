#include "commands.h"
#include "text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <thread>

#include <fnmatch.h>

namespace vexotrace
{

using trace::Call;
using trace::NONE;
using trace::Object;
using trace::Recording;

namespace
{

// "pwe=17".
Object objectNamed(const std::string &text)
{
    constexpr std::string_view KINDS[] = {"system", "port", "pwe", "group", "link"};
    const size_t sign = text.find('=');
    const std::string kind = text.substr(0, sign);
    const auto known = std::ranges::find(KINDS, kind);
    const std::string number = sign == text.npos ? "" : text.substr(sign + 1);
    constexpr size_t MOST_DIGITS = 9;
    if (known == std::end(KINDS) || number.empty() || number.size() > MOST_DIGITS ||
        number.find_first_not_of("0123456789") != number.npos)
        throw UsageError("--object: " + text +
                         ": is to be system, port, pwe, group or link, = and a number");
    return {*known == "pwe" ? "pw" : *known, static_cast<uint32_t>(std::stoul(number))};
}

// Shows the trees that have a call which meets all that was asked for.
class Filter
{
  public:
    explicit Filter(const ShowOptions &options) : options_{options}
    {
        if (!options.object.empty())
            object_ = objectNamed(options.object);
        asked_ = options.failed || object_ || !options.operation.empty() || options.slow > 0;
    }

    bool takes(const Recording &recording, uint32_t place) const
    {
        if (!asked_ || meets(recording, recording.calls()[place]))
            return true;
        for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
            if (takes(recording, i))
                return true;
        return false;
    }

  private:
    bool meets(const Recording &recording, const Call &call) const
    {
        if (options_.failed && !recording.failed(call))
            return false;
        const trace::Function &function = recording.functionOf(call);
        if (!options_.operation.empty() &&
            fnmatch(options_.operation.c_str(), std::string{function.shortName()}.c_str(), 0) !=
                0 &&
            fnmatch(options_.operation.c_str(), function.name.c_str(), 0) != 0)
            return false;
        constexpr double MILLISECOND = 1e6;
        if (options_.slow > 0 && static_cast<double>(durationOf(recording, call).value_or(0)) <
                                     options_.slow * MILLISECOND)
            return false;
        return !object_ || recording.objectOf(call, recording.content(call)) == object_;
    }

    const ShowOptions &options_;
    std::optional<Object> object_;
    bool asked_;
};

// A call with all that is within it.
struct Tree {
    const Recording *recording;
    uint32_t root;

    uint64_t time() const { return recording->timeOf(recording->calls()[root].clock()); }
};

// Of several processes each line begins with whose it is.
void print(const Tree &tree, const ShowOptions &options)
{
    const auto detail = options.all ? trace::Detail::all : trace::Detail::usual;
    if (options.json) {
        puts(dump(documentOf(*tree.recording, tree.root, detail)).c_str());
        return;
    }
    std::string process;
    if (options.files.size() > 1)
        process = "[" + std::to_string(tree.recording->head().process) + "] ";
    std::string margin = timeText(tree.time()) + " ";
    for (const std::string &line : linesOf(*tree.recording, tree.root, detail)) {
        printf("%s%s%s\n", process.c_str(), margin.c_str(), line.c_str());
        margin.assign(margin.size(), ' ');
    }
}

// Files that are read together, and what of them has been shown.
class Shown
{
  public:
    explicit Shown(const ShowOptions &options)
        : options_{options}, filter_{options}, shownUpTo_(options.files.size())
    {
    }

    // What is new, by the time at which it began; of a process that goes on, what has returned.
    // Whether there is one.
    bool showMore()
    {
        recordings_.clear();
        std::vector<Tree> trees;
        bool goesOn = false;
        for (size_t i = 0; i < options_.files.size(); ++i) {
            const Recording &recording = recordings_.emplace_back(options_.files[i]);
            const bool isFollowed = options_.follow && recording.isAlive();
            goesOn |= isFollowed;
            ByThreads upTo = shownUpTo_[i];
            for (const uint32_t root : recording.roots()) {
                const Call &call = recording.calls()[root];
                const uint32_t thread = recording.threads()[call.thread].id;
                if (call.clock() <= shownUpTo_[i][thread] || (isFollowed && !call.end))
                    continue;
                upTo[thread] = call.clock();
                if (filter_.takes(recording, root))
                    trees.push_back({&recording, root});
            }
            shownUpTo_[i] = std::move(upTo);
        }
        std::ranges::stable_sort(trees, {}, &Tree::time);
        for (const Tree &tree : trees)
            print(tree, options_);
        fflush(stdout);
        return goesOn;
    }

    void warnOfAll() const
    {
        for (size_t i = 0; i < options_.files.size(); ++i)
            warn(options_.files[i], recordings_[i]);
    }

  private:
    using ByThreads = std::map<uint32_t, uint64_t>;

    const ShowOptions &options_;
    const Filter filter_;
    std::deque<Recording> recordings_;
    std::vector<ByThreads> shownUpTo_;
};

} // namespace

int show(const ShowOptions &options)
{
    using namespace std::chrono;
    Shown shown{options};
    auto begin = steady_clock::now();
    while (shown.showMore()) {
        // A long file is not read all the time.
        std::this_thread::sleep_for(
            std::max<steady_clock::duration>(milliseconds{100}, 3 * (steady_clock::now() - begin)));
        begin = steady_clock::now();
    }
    shown.warnOfAll();
    return SUCCESS;
}

} // namespace vexotrace
