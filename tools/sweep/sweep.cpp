#include "sweep.h"

#include "judged.h"
#include "keeper.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>

#include <fnmatch.h>
#include <poll.h>
#include <unistd.h>

namespace sweep
{

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace
{

bool contains(const std::vector<Place> &places, const Point &point)
{
    return std::ranges::binary_search(places, point, {}, &Place::point);
}

std::vector<std::string> namesOf(const std::vector<const Effect *> &effects)
{
    std::vector<std::string> names(effects.size());
    std::ranges::transform(effects, names.begin(), &Effect::name);
    return names;
}

// FNV-1a of texts.
class Fingerprint
{
  public:
    void add(const std::string &text)
    {
        for (const char c : text + '\0') // as another text may go on
            hash_ = (hash_ ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    std::string text() const
    {
        char text[17];
        snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash_));
        return text;
    }

  private:
    uint64_t hash_ = 0xCBF29CE484222325;
};

// What the command names, its program and files that it is given; with the times of their changes.
using Files = std::map<std::string, std::pair<std::string, fs::file_time_type>>;

Files filesOf(const std::vector<std::string> &command)
{
    Files files;
    const auto add = [&](const fs::path &path) {
        std::error_code error;
        if (!fs::is_regular_file(path, error))
            return false;
        std::ifstream stream{path, std::ios::binary};
        Fingerprint content;
        content.add({std::istreambuf_iterator{stream}, {}});
        files[path] = {content.text(), fs::last_write_time(path, error)};
        return true;
    };
    const char *searched = getenv("PATH");
    std::istringstream folders{searched ? searched : ""};
    if (command[0].find('/') == std::string::npos)
        for (std::string folder;
             std::getline(folders, folder, ':') && !add(folder / fs::path{command[0]});) {
        }
    for (const std::string &word : command)
        if (&word != command.data() || word.find('/') != std::string::npos)
            add(word);
    return files;
}

// Of those that the runs between haven't changed: a log, say, is nothing that makes the agent
// another.
std::string sameIn(const Files &before, const Files &after)
{
    Fingerprint fingerprint;
    for (const auto &[path, state] : before)
        if (const auto found = after.find(path); found != after.end() && found->second == state)
            fingerprint.add(path + ' ' + state.first);
    return fingerprint.text();
}

class Progress
{
  public:
    // `before`: how many had been done when this began.
    void show(size_t before, size_t done, size_t all, const std::map<std::string, size_t> &bad)
    {
        if (!isShown_ || (done < all && Clock::now() < next_))
            return;
        const auto now = Clock::now();
        next_ = now + std::chrono::milliseconds{200};
        std::string text = std::to_string(done) + " of " + std::to_string(all);
        const std::chrono::duration<double> spent = now - begin_;
        if (done > before && done < all)
            text += ", about " +
                    std::to_string(std::lround(
                        std::ceil(spent.count() / double(done - before) * double(all - done)))) +
                    " s left";
        for (const auto &[verdict, count] : bad)
            text += ", " + std::to_string(count) + " " + verdict;
        std::cerr << "\r\033[K" << text << std::flush;
    }
    ~Progress()
    {
        if (isShown_)
            std::cerr << "\r\033[K" << std::flush;
    }

  private:
    const bool isShown_ = isatty(STDERR_FILENO);
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point next_{};
};

class Sweep
{
  public:
    explicit Sweep(const Options &options) : options_{options}, judged_{options.resume} {}

    Report all()
    {
        const Files before = filesOf(options_.task.agent.command);
        const Json first = good(std::nullopt);
        const bool ends = !first["wasTold"];
        const Json second = good(ends);
        if (first["places"].empty())
            throw Trouble(options_.task.agent.command[0] + " has called nothing of the platform's");
        const auto document = [](const Json &json) {
            return config::readDocument("the device", json.dump());
        };
        good_.emplace(Good{document(first["before"]),
                           document(first["after"]),
                           {first["end"], first["wasTold"], false, false, "", first["seconds"]},
                           {first["output"], second["output"]}});
        const auto different = differences(good_->after, document(second["after"]));
        if (!different.empty() || first["end"] != second["end"] ||
            first["wasTold"] != second["wasTold"])
            return {sweep_, {unstable(config::toJson(different))}};
        order_.ends = ends;
        // A machine that is busy must not make an agent look hung; a call that hangs only has to
        // do so for longer than a run takes.
        constexpr double LEAST = 5, LEAST_HELD = 1;
        // The first of one that doesn't end is as long as it takes to find that out.
        const double usual =
            10 * (ends ? std::max(first["seconds"].get<double>(), second["seconds"].get<double>())
                       : second["seconds"].get<double>());
        order_.seconds = options_.timeout.value_or(std::max(LEAST, usual));
        held_ = options_.timeout.value_or(std::max(LEAST_HELD, usual));
        met_ = placesOf(first["places"]);
        const std::vector<Place> again = placesOf(second["places"]);
        std::erase_if(met_, [&](const Place &place) { return !contains(again, place.point); });
        const std::string files = sameIn(before, filesOf(options_.task.agent.command));
        sweep_["files"] = files;
        Fingerprint good;
        good.add(first["after"].dump());
        for (const Place &place : met_)
            if (place.point.call == 1)
                good.add(place.point.name());
        judged_.begin({{"command", sweep_["command"]},
                       {"until", sweep_["until"]},
                       {"check", sweep_["check"]},
                       {"files", files},
                       {"good", good.text()}});
        plan({}, met_);
        sweep_["faults"] = planned_.text();
        if (!options_.only.empty() && waiting_.empty())
            throw Trouble("without a fault, there is no " + options_.only);
        if (!options_.points.empty() && count_ == 0)
            throw Trouble("--points: nothing that can fail is named " + options_.points);
        work();
        return {sweep_, entries()};
    }

  private:
    Order order()
    {
        Order made = order_;
        made.folder = options_.folder + "/" + std::to_string(++runs_);
        return made;
    }

    Json good(std::optional<bool> ends)
    {
        Order made = order();
        made.records = true;
        made.ends = options_.task.agent.until.empty() ? ends : false;
        // How long it takes is what is to be found out.
        constexpr double LONG = 60;
        made.seconds = options_.timeout.value_or(LONG);
        Keeper keeper{made.folder, [&] { return goodRun(options_.task, made); }};
        pollfd descriptors[] = {{options_.signals, POLLIN, 0}, {keeper.output(), POLLIN, 0}};
        do {
            wait(descriptors);
        } while (descriptors[1].revents == 0 || !keeper.read());
        return keeper.told();
    }

    static Json unstable(Json difference)
    {
        return {{"id", "-"}, {"function", ""},      {"object", ""},
                {"call", 0}, {"effect", ""},        {"operation", ""},
                {"step", 0}, {"verdict", UNSTABLE}, {"difference", std::move(difference)}};
    }

    template <size_t count>
    static void wait(pollfd (&descriptors)[count])
    {
        wait(descriptors, count);
    }

    static void wait(pollfd *descriptors, size_t count)
    {
        if (poll(descriptors, count, -1) < 0 && errno != EINTR)
            throw Trouble(strerror(errno));
        if (descriptors[0].revents)
            throw Trouble("interrupted");
    }

    // ---- What is to be done ----

    bool takes(const Faults &faults, const std::string &id) const
    {
        if (!options_.only.empty())
            return id == options_.only || options_.only.starts_with(id + "+");
        const Point &point = faults[0].point;
        const auto fits = [&](const std::string &name) {
            return fnmatch(options_.points.c_str(), name.c_str(), 0) == 0;
        };
        return options_.points.empty() || fits(point.name()) || fits(point.function) ||
               fits(point.operation);
    }

    struct Job {
        Faults faults{};
        std::vector<size_t> order{}; // in the report: where each of the faults comes among its like
        int tries = 0;
    };

    void plan(const Job &before, const std::vector<Place> &places)
    {
        size_t count = 0;
        for (const Place &place : places)
            for (const Effect *effect : place.effects) {
                Job job = before;
                job.faults.push_back({place.point, effect});
                job.order.push_back(count);
                const std::string id = idOf(job.faults);
                if (std::ranges::find(options_.task.effects, effect) ==
                        options_.task.effects.end() ||
                    !takes(job.faults, id))
                    continue;
                ++count;
                if (before.faults.empty()) {
                    planned_.add(id);
                    if (count_++ % options_.shards + 1 != options_.shard)
                        continue;
                }
                ids_[job.order] = id;
                const Json *const told = judged_.find(id);
                if (told && (job.faults.size() >= options_.depth || told->contains("places")))
                    take(job, *told);
                else
                    waiting_.push_back(std::move(job));
            }
    }

    void work()
    {
        const size_t before = told_.size();
        while (!waiting_.empty() || !running_.empty()) {
            while (!waiting_.empty() && running_.size() < options_.jobs) {
                Job job = std::move(waiting_.front());
                waiting_.pop_front();
                start(std::move(job));
            }
            std::vector<pollfd> descriptors{{options_.signals, POLLIN, 0}};
            for (const auto &[job, keeper] : running_)
                descriptors.push_back({keeper->output(), POLLIN, 0});
            wait(descriptors.data(), descriptors.size());
            size_t place = 0;
            for (auto one = running_.begin(); one != running_.end();) {
                if (descriptors[++place].revents == 0 || !one->second->read()) {
                    ++one;
                    continue;
                }
                end(one->first, one->second->told());
                one = running_.erase(one);
            }
            progress_.show(before, told_.size(), told_.size() + waiting_.size() + running_.size(),
                           bad_);
        }
    }

    void start(Job job)
    {
        Order made = order();
        made.records = job.faults.size() < options_.depth;
        if (std::ranges::any_of(job.faults, [](const Fault &fault) {
                return fault.effect->simulators == KV_SIM_HANG;
            }))
            made.holds = held_;
        const Faults faults = job.faults;
        auto keeper = std::make_unique<Keeper>(
            made.folder, [&] { return faultyRun(options_.task, made, faults, *good_); });
        running_.emplace_back(std::move(job), std::move(keeper));
    }

    void end(Job &job, const Json &told)
    {
        constexpr int TRIES = 3;
        if (told["judged"]["verdict"] == UNMET && ++job.tries < TRIES)
            return waiting_.push_back(std::move(job));
        const Fault &last = job.faults.back();
        const Point &point = last.point;
        Json entry{{"id", idOf(job.faults)},      {"function", point.function},
                   {"object", point.object},      {"call", point.call},
                   {"effect", last.effect->name}, {"operation", point.operation},
                   {"step", point.step}};
        entry.update(told["judged"]);
        Json line{{"entry", std::move(entry)}};
        if (told.contains("places"))
            line["places"] = told["places"];
        judged_.add(line);
        take(job, line);
    }

    // Of what was met after the fault, that which isn't met without it is part of the recovery.
    void take(const Job &job, const Json &line)
    {
        const Json &entry = line.at("entry");
        const std::string id = entry.at("id"), verdict = entry.at("verdict");
        told_[id] = entry;
        if (isBad(verdict))
            ++bad_[verdict];
        if (job.faults.size() >= options_.depth || !line.contains("places"))
            return;
        std::vector<Place> more = placesOf(line["places"]);
        std::erase_if(more, [&](const Place &place) {
            return contains(met_, place.point) ||
                   std::ranges::any_of(
                       job.faults, [&](const Fault &fault) { return fault.point == place.point; });
        });
        plan(job, more);
    }

    std::vector<Json> entries() const
    {
        std::vector<Json> all;
        for (const auto &[order, id] : ids_)
            if (options_.only.empty() || id == options_.only)
                all.push_back(told_.at(id));
        return all;
    }

    const Options &options_;
    Judged judged_;
    Json sweep_{{"command", options_.task.agent.command},
                {"until", options_.task.agent.until},
                {"check", options_.task.check},
                {"effects", namesOf(options_.task.effects)},
                {"points", options_.points},
                {"only", options_.only},
                {"depth", options_.depth},
                {"shards", options_.shards},
                {"shard", options_.shard},
                {"files", ""},
                {"faults", ""}};
    Order order_{"", false, 0, {}};
    double held_ = 0;
    std::optional<Good> good_;
    std::vector<Place> met_;
    size_t runs_ = 0, count_ = 0;
    Fingerprint planned_;
    std::map<std::vector<size_t>, std::string> ids_; // in the order of the report
    std::deque<Job> waiting_;
    std::vector<std::pair<Job, std::unique_ptr<Keeper>>> running_;
    std::map<std::string, Json> told_;
    std::map<std::string, size_t> bad_;
    Progress progress_;
};

} // namespace

Report sweep(const Options &options)
{
    return Sweep{options}.all();
}

} // namespace sweep
