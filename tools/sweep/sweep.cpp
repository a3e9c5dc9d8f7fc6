#include "sweep.h"

#include "verdict.h"

#include <platform.h>
#include <simulator.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include <fcntl.h>
#include <fnmatch.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep
{

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace
{

// A point that was met when all went well, with the effects that a fault there can have.
struct Place {
    Point point;
    std::vector<const Effect *> effects;
};

// ---- In the process of one run ----

std::vector<std::string> recordingsIn(const Order &order)
{
    std::vector<std::string> files;
    for (const auto &file : fs::directory_iterator{order.folder})
        if (file.path().string().starts_with(order.recording()))
            files.push_back(file.path());
    return files;
}

uint32_t arm(const kvSimFault &fault)
{
    return SIM(kv_sim_fault_arm)(&fault);
}

bool hasOutputs(const std::string &function)
{
    const auto *row = describe::platform::find(function);
    return row && std::ranges::any_of(row->arguments, [](const auto &argument) {
               return argument.isPointer && argument.type &&
                      argument.direction == describe::Direction::out;
           });
}

// The simulated device says what it can do to a call.
bool canHave(const Point &point, const Effect &effect)
{
    const bool isCall = describe::platform::find(point.function) != nullptr;
    return isCall == (effect.simulators < KV_SIM_DROP) &&
           (effect.simulators != KV_SIM_GARBAGE || hasOutputs(point.function)) &&
           arm(armed({point, &effect})) != 0;
}

Json placesOf(const Order &order, const std::vector<const Effect *> &effects)
{
    Json places = Json::array();
    for (const Point &point : pointsOf(recordingsIn(order))) {
        Json names = Json::array();
        for (const Effect *effect : effects)
            if (canHave(point, *effect))
                names.push_back(effect->name);
        SIM(kv_sim_fault_clear)();
        places.push_back({{"point", toJson(point)}, {"effects", names}});
    }
    return places;
}

void openDevice(const Order &order)
{
    setenv("KV_SIM_DEVICE", order.device().c_str(), 1);
    if (SIM(kv_sim_open)() != 0)
        throw Trouble(SIM(kv_sim_error)());
}

// The lines of what went wrong without a fault.
std::string quoted(const std::string &output)
{
    std::istringstream stream{output};
    std::string text;
    for (std::string line; std::getline(stream, line);)
        text += "\n    " + line;
    return text;
}

Json goodRun(const Options &options, const Order &order)
{
    openDevice(order);
    Json told;
    told["before"] = config::toJson(deviceNow());
    const Ran ran = run(options.agent, order);
    const std::string command = options.agent.command[0];
    if (ran.crashed)
        throw Trouble("without a fault, " + command + " crashed" + quoted(ran.output));
    if (ran.hung)
        throw Trouble("without a fault, " + command + " did not " +
                      (ran.wasTold ? "end when it was told to" : "come to an end or to rest") +
                      " in time: see --timeout, --until and --idle" + quoted(ran.output));
    if (!ran.wasTold && ran.end != "status 0")
        throw Trouble("without a fault, " + command + " ended with " + ran.end +
                      quoted(ran.output));
    told["after"] = config::toJson(deviceNow());
    told["end"] = ran.end;
    told["wasTold"] = ran.wasTold;
    told["output"] = ran.output;
    told["seconds"] = ran.seconds;
    told["places"] = placesOf(order, options.effects);
    if (!options.check.empty() && !succeeds(options.check, order))
        throw Trouble("without a fault, the check failed: " + options.check);
    return told;
}

Json faultyRun(const Options &options, const Order &order, const Faults &faults, const Good &good)
{
    openDevice(order);
    uint32_t last = 0;
    for (const Fault &fault : faults)
        if ((last = arm(armed(fault))) == 0)
            throw Trouble(idOf(faults) + ": " + SIM(kv_sim_error)());
    const Ran ran = run(options.agent, order);
    kvSimFault fault{};
    SIM(kv_sim_fault_find)(last, &fault);
    SIM(kv_sim_fault_clear)();
    const config::Document after = deviceNow();
    const auto different = differences(good.after, after);
    const bool passed = options.check.empty() || succeeds(options.check, order);
    Json told{{"verdict", verdictOf(good, {ran, after, passed, fault.met > 0}, different)},
              {"difference", config::toJson(different)}};
    if (order.records && fault.met > 0)
        told["places"] = placesOf(order, options.effects);
    return told;
}

// ---- In the process of the sweep ----

// What one run tells, by a process of its own: none can have more than one device.
class Keeper
{
  public:
    template <class Work>
    Keeper(const Order &order, Work work) : folder_{order.folder}
    {
        int ends[2];
        if (mkdir(folder_.c_str(), 0700) != 0 || pipe2(ends, O_CLOEXEC) != 0)
            throw Trouble(folder_ + ": " + strerror(errno));
        const pid_t sweep = getpid();
        process_ = fork();
        if (process_ < 0)
            throw Trouble(std::string{"no process: "} + strerror(errno));
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_CHILD_SUBREAPER, 1);
            if (getppid() == sweep)
                tell(ends[1], work);
            _exit(EXIT_FAILURE);
        }
        close(ends[1]);
        output_ = ends[0];
    }
    Keeper(const Keeper &) = delete;
    ~Keeper()
    {
        close(output_);
        std::error_code error;
        fs::remove_all(folder_, error);
    }

    int output() const { return output_; }

    // Whether it has ended; throws what it has thrown.
    bool read()
    {
        char part[65536];
        const ssize_t count = ::read(output_, part, sizeof part);
        if (count > 0)
            text_.append(part, static_cast<size_t>(count));
        if (count > 0 || (count < 0 && errno == EINTR))
            return false;
        waitpid(process_, nullptr, 0);
        if (text_.empty())
            throw Trouble("a run was ended from outside, or its device failed");
        told_ = Json::parse(text_);
        if (told_.contains("trouble"))
            throw Trouble(told_["trouble"].get<std::string>());
        return true;
    }

    Json &told() { return told_; }

  private:
    template <class Work>
    static void tell(int output, Work work)
    {
        Json told;
        try {
            told = work();
        } catch (const std::exception &error) {
            killAll();
            told = {{"trouble", error.what()}};
        }
        const std::string text = told.dump(-1, ' ', false, Json::error_handler_t::replace);
        for (size_t at = 0; at < text.size();) {
            const ssize_t count = write(output, text.data() + at, text.size() - at);
            if (count < 0)
                return;
            at += static_cast<size_t>(count);
        }
    }

    const std::string folder_;
    pid_t process_;
    int output_;
    std::string text_;
    Json told_;
};

const Effect *effectNamed(const std::string &name)
{
    return &*std::ranges::find(effects(), name, &Effect::name);
}

std::vector<Place> placesOf(const Json &told)
{
    std::vector<Place> places;
    for (const Json &json : told) {
        Place &place = places.emplace_back(Place{pointOf(json.at("point")), {}});
        for (const Json &name : json.at("effects"))
            place.effects.push_back(effectNamed(name));
    }
    std::ranges::sort(places, {}, &Place::point);
    return places;
}

bool contains(const std::vector<Place> &places, const Point &point)
{
    return std::ranges::binary_search(places, point, {}, &Place::point);
}

// What has been judged, in a file that is added to: a line for what is swept, then one for each.
class Journal
{
  public:
    explicit Journal(const Options &options) : file_{options.resume}
    {
        if (file_.empty())
            return;
        const Json swept{{"command", options.agent.command},
                         {"until", options.agent.until},
                         {"check", options.check}};
        std::ifstream stream{file_};
        std::string line;
        if (std::getline(stream, line) && Json::parse(line, nullptr, false) != swept)
            throw Trouble(file_ + ": is no file of this sweep, which runs the same commands");
        const bool isNew = line.empty();
        while (std::getline(stream, line)) {
            // The last one may have been cut off.
            const Json told = Json::parse(line, nullptr, false);
            if (!told.is_discarded() && !stream.eof())
                told_[told.at("entry").at("id")] = told;
        }
        stream.close();
        stream.open(file_, std::ios::ate);
        const bool isCut = stream && !isNew && endsWithin(stream);
        output_ = open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (output_ < 0)
            throw Trouble(file_ + ": " + strerror(errno));
        if (isCut)
            put("\n");
        if (isNew)
            put(swept.dump() + "\n");
    }
    Journal(const Journal &) = delete;
    ~Journal()
    {
        if (output_ >= 0)
            close(output_);
    }

    const Json *find(const std::string &id) const
    {
        const auto found = told_.find(id);
        return found == told_.end() ? nullptr : &found->second;
    }

    void add(const Json &told)
    {
        if (output_ >= 0)
            put(told.dump() + "\n");
    }

  private:
    static bool endsWithin(std::ifstream &stream)
    {
        stream.seekg(-1, std::ios::end);
        return stream.get() != '\n';
    }

    void put(const std::string &text)
    {
        if (write(output_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw Trouble(file_ + ": " + strerror(errno));
    }

    const std::string file_;
    int output_ = -1;
    std::map<std::string, Json> told_;
};

class Progress
{
  public:
    void show(size_t done, size_t all, const std::map<std::string, size_t> &bad)
    {
        if (!isShown_ || (done < all && Clock::now() < next_))
            return;
        const auto now = Clock::now();
        next_ = now + std::chrono::milliseconds{200};
        const double seconds = std::chrono::duration<double>{now - begin_}.count();
        std::string text = std::to_string(done) + " of " + std::to_string(all);
        if (done > 0 && done < all)
            text +=
                ", about " +
                std::to_string(static_cast<uint64_t>(
                    seconds / static_cast<double>(done) * static_cast<double>(all - done) + 1)) +
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
    explicit Sweep(const Options &options) : options_{options}, journal_{options} {}

    std::vector<Json> all()
    {
        const Json first = good(std::nullopt);
        const bool ends = !first["wasTold"];
        const Json second = good(ends);
        if (first["places"].empty())
            throw Trouble(options_.agent.command[0] + " has called nothing of the platform's");
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
            return {unstable(config::toJson(different))};
        order_.ends = ends;
        order_.seconds = options_.timeout.value_or(std::max(
            1.0, 10 * std::max(first["seconds"].get<double>(), second["seconds"].get<double>())));
        std::vector<Place> met = placesOf(first["places"]);
        const std::vector<Place> again = placesOf(second["places"]);
        std::erase_if(met, [&](const Place &place) { return !contains(again, place.point); });
        good_places_ = met;
        plan({}, met);
        if (!options_.only.empty() && waiting_.empty())
            throw Trouble("without a fault, there is no " + options_.only);
        work();
        return entries();
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
        made.ends = options_.agent.until.empty() ? ends : false;
        // How long it takes is what is to be found out.
        constexpr double LONG = 60;
        made.seconds = options_.timeout.value_or(LONG);
        Keeper keeper{made, [&] { return goodRun(options_, made); }};
        pollfd descriptors[] = {{options_.signals, POLLIN, 0}, {keeper.output(), POLLIN, 0}};
        do {
            wait(descriptors);
        } while (descriptors[1].revents == 0 || !keeper.read());
        return std::move(keeper.told());
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

    void plan(const Faults &before, const std::vector<Place> &places)
    {
        for (const Place &place : places)
            for (const Effect *effect : place.effects) {
                Faults faults = before;
                faults.push_back({place.point, effect});
                const std::string id = idOf(faults);
                if (!takes(faults, id) ||
                    (before.empty() && count_++ % options_.shards + 1 != options_.shard))
                    continue;
                ids_.push_back(id);
                if (const Json *told = journal_.find(id))
                    take({faults}, *told);
                else
                    waiting_.push_back({std::move(faults)});
            }
    }

    struct Job {
        Faults faults;
        int tries = 0;
    };

    void work()
    {
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
            progress_.show(told_.size(), told_.size() + waiting_.size() + running_.size(), bad_);
        }
    }

    void start(Job job)
    {
        Order made = order();
        made.records = job.faults.size() < options_.depth;
        made.releases = std::ranges::any_of(
            job.faults, [](const Fault &fault) { return fault.effect->simulators == KV_SIM_HANG; });
        const Faults faults = job.faults;
        auto keeper = std::make_unique<Keeper>(
            made, [&] { return faultyRun(options_, made, faults, *good_); });
        running_.emplace_back(std::move(job), std::move(keeper));
    }

    void end(Job &job, Json &told)
    {
        constexpr int TRIES = 3;
        if (told["verdict"] == UNMET && ++job.tries < TRIES)
            return waiting_.push_back(std::move(job));
        const Fault &last = job.faults.back();
        const Point &point = last.point;
        Json entry{{"id", idOf(job.faults)},
                   {"function", point.function},
                   {"object", point.object},
                   {"call", point.call},
                   {"effect", last.effect->name},
                   {"operation", point.operation},
                   {"step", point.step},
                   {"verdict", told["verdict"]},
                   {"difference", told["difference"]}};
        Json line{{"entry", std::move(entry)}};
        if (told.contains("places"))
            line["places"] = std::move(told["places"]);
        journal_.add(line);
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
            return contains(good_places_, place.point) ||
                   std::ranges::any_of(
                       job.faults, [&](const Fault &fault) { return fault.point == place.point; });
        });
        plan(job.faults, more);
    }

    std::vector<Json> entries() const
    {
        std::vector<Json> all;
        for (const std::string &id : ids_)
            if (options_.only.empty() || id == options_.only)
                all.push_back(told_.at(id));
        return all;
    }

    const Options &options_;
    Journal journal_;
    Order order_{"", false, 0, false};
    std::optional<Good> good_;
    std::vector<Place> good_places_;
    size_t runs_ = 0, count_ = 0;
    std::vector<std::string> ids_; // in the order of the report
    std::deque<Job> waiting_;
    std::vector<std::pair<Job, std::unique_ptr<Keeper>>> running_;
    std::map<std::string, Json> told_;
    std::map<std::string, size_t> bad_;
    Progress progress_;
};

} // namespace

std::vector<Json> sweep(const Options &options)
{
    return Sweep{options}.all();
}

} // namespace sweep
