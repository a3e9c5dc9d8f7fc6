#include "commands.h"
#include "text.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
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
        if (options_.slow > 0 &&
            static_cast<double>(durationOf(recording, call)) < options_.slow * MILLISECOND)
            return false;
        return !object_ || recording.objectOf(call, recording.content(call)) == object_;
    }

    const ShowOptions &options_;
    std::optional<Object> object_;
    bool asked_;
};

void print(const Recording &recording, uint32_t root, const ShowOptions &options)
{
    const auto detail = options.all ? trace::Detail::all : trace::Detail::usual;
    if (options.json) {
        puts(dump(documentOf(recording, root, detail)).c_str());
        return;
    }
    const Call &call = recording.calls()[root];
    std::string margin = timeText(recording.timeOf(call.begin ? call.begin : call.end)) + " ";
    for (const std::string &line : linesOf(recording, root, detail)) {
        printf("%s%s\n", margin.c_str(), line.c_str());
        margin.assign(margin.size(), ' ');
    }
}

// What has returned, as it comes; what hasn't, when the process has ended.
void follow(const std::string &file, const Filter &filter, const ShowOptions &options)
{
    using namespace std::chrono;
    std::map<uint32_t, uint64_t> shownUpTo; // by threads
    for (bool more = true; more;) {
        const auto begin = steady_clock::now();
        const Recording recording{file};
        more = recording.isAlive();
        for (const uint32_t root : recording.roots()) {
            const Call &call = recording.calls()[root];
            const uint64_t clock = call.begin ? call.begin : call.end;
            uint64_t &shown = shownUpTo[recording.threads()[call.thread].id];
            if (clock <= shown || (more && !call.end))
                continue;
            shown = clock;
            if (filter.takes(recording, root))
                print(recording, root, options);
        }
        fflush(stdout);
        if (!more)
            return warn(file, recording);
        // A long file is not read all the time.
        std::this_thread::sleep_for(
            std::max<steady_clock::duration>(milliseconds{100}, 3 * (steady_clock::now() - begin)));
    }
}

} // namespace

int show(const ShowOptions &options)
{
    const Filter filter{options};
    if (options.follow && options.files.size() != 1)
        throw UsageError("--follow: of one file");
    if (options.follow) {
        follow(options.files[0], filter, options);
        return SUCCESS;
    }
    for (const std::string &file : options.files) {
        const Recording recording{file};
        if (options.files.size() > 1 && !options.json)
            printf("%s:\n", file.c_str());
        for (const uint32_t root : recording.roots())
            if (filter.takes(recording, root))
                print(recording, root, options);
        fflush(stdout);
        warn(file, recording);
    }
    return SUCCESS;
}

} // namespace vexotrace
