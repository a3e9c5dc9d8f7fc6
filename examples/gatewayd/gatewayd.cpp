// Keeps a gateway as a document says, and writes alarms and PM reports to standard output.
//
//   c++ -std=c++20 gatewayd.cpp -o gatewayd $(pkg-config --cflags --libs vexo_cmi)
//   ./gatewayd [--once] [--period SECONDS] [--patience SECONDS] SITE.json
#include "objects.h"

#include <condition_variable>
#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <getopt.h>
#include <unistd.h>

using namespace std::chrono;

// What the library takes from the software that hosts it.
extern "C" int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "gatewayd 1.0");
}

// So often is looked at what isn't as wanted: again at once, then after pauses that double.
constexpr unsigned LOOKS = 8;
constexpr milliseconds PAUSE{1};
constexpr seconds SILENCE{930}; // more than the shortest PM interval

class Agent
{
  public:
    Agent(Json document, double period) : period_{period}
    {
        if (document.at("format") != 1)
            throw Failure{"no document of format 1"};
        add<Port>("pdh", document);
        add<Pseudowire>("pwe", document);
        add<Group>("ima", document);
        agent = this;
    }

    // Once, or until it is to stop. The exit status is that of what the device has then.
    int run(const std::stop_token &stop, bool once)
    {
        stop_ = stop;
        bring(true);
        if (!once) {
            for (attend(); pause(period_); attend())
                bring(true);
            work(vexo_cmi_fini);
            bring(false);
        }
        return tell(true) ? EXIT_SUCCESS : EXIT_FAILURE;
    }

    // What isn't as wanted, if it is other than before; true when all is.
    bool tell(bool always)
    {
        const std::lock_guard lock{mutex_};
        if (ferror(stdout))
            problems_["log"] = "can't be written";
        for (const auto &[name, problem] : problems_)
            if (always || problems_ != told_)
                fprintf(stderr, "gatewayd: %s: %s\n", name.c_str(), problem.c_str());
        if (problems_.empty() && !told_.empty())
            puts("all is as wanted again");
        told_ = problems_;
        return told_.empty();
    }

  private:
    template <class Kind>
    void add(const std::string &kind, Json &document)
    {
        for (const auto &[key, wanted] : document[kind].items()) {
            Json known = wanted.template get<typename Kind::Params>();
            known[Kind::BESIDE] = wanted.at(Kind::BESIDE).template get<typename Kind::Beside>();
            const std::string unknown = difference(known, wanted, kind + ' ' + key);
            if (!unknown.empty())
                throw Failure{"it is not known what this is: " + unknown};
            objects_.push_back(std::make_unique<Kind>(kind + ' ' + key, Json::parse(key), wanted));
        }
    }

    void bring(bool mayChange)
    {
        std::vector<Object *> open;
        for (const auto &object : objects_) {
            open.push_back(object.get());
            note(object->name, "hasn't been looked at");
        }
        // What was wrong before gets a look, and another that tells whether it came right.
        for (unsigned looks = 0; looks < (open == wrong_ ? 2 : LOOKS) && !open.empty(); ++looks) {
            if (looks > 1)
                pause(PAUSE * (1 << looks));
            std::erase_if(open, [&](Object *object) {
                const std::string wrong = object->look(mayChange && !stop_.stop_requested());
                note(object->name, wrong);
                return wrong.empty();
            });
            // A device that has lost something, or got it back, may have forgotten who listens.
            deaf_ = deaf_ || (looks == 0 && open != wrong_);
        }
        deaf_ = deaf_ || open != wrong_;
        wrong_ = open;
    }

    void attend()
    {
        const auto now = system_clock::now().time_since_epoch() / microseconds{1};
        attempt("keep-alive",
                [=] { call("sending", vexo_cmi_sys_kato_send, now / 1000000, now % 1000000); });
        readAlarms("system", [](uint32_t *bits) { call("reading", vexo_cmi_sys_alarm_get, bits); });
        for (const auto &object : objects_)
            readAlarms(object->name, [&](uint32_t *bits) { object->alarms(bits); });
        if (deaf_ || Clock::now() - heard_.load() > SILENCE)
            listen();
        tell(false);
    }

    // What no event has told of alarms the second time that they are read, none will.
    void readAlarms(const std::string &name, auto read)
    {
        attempt("alarms of " + name, [&] {
            uint32_t bits;
            read(&bits);
            const std::lock_guard lock{mutex_};
            const bool isNew = !alarms_.contains(name);
            auto &[active, before] = alarms_[name];
            deaf_ = deaf_ || (bits != active && bits == before);
            if (isNew || bits == before)
                setAlarms(name, active, bits);
            before = bits;
        });
    }

    static void setAlarms(const std::string &name, uint32_t &active, uint32_t bits)
    {
        if (active != bits) // else it came twice
            printf("alarm %s: active 0x%08X, changed 0x%08X\n", name.c_str(), bits, active ^ bits);
        active = bits;
    }

    // Only a service that was stopped subscribes anew; whether the device agreed isn't told.
    void listen()
    {
        work(vexo_cmi_fini);
        vexo_cmi_alarm_callback_register(onAlarm);
        vexo_cmi_pm_callback_register(onPm);
        heard_ = Clock::now();
        deaf_ = false;
        puts("listening");
    }

    // The callbacks run on threads of the library's.
    static void onAlarm(vexoAlarmNotification *alarm)
    {
        static constexpr const char *KINDS[] = {"", "system", "pdh ", "pwe ", "ima ", "ima link "};
        const vexoAlarmIma &ima = alarm->ima;
        if (alarm->objType == VEXO_OBJ_TYPE_SYSTEM)
            agent->hear(KINDS[alarm->objType], alarm->object.status);
        else if (alarm->objType == VEXO_OBJ_TYPE_IMA)
            agent->hear(KINDS[3 + ima.imaType] + std::to_string(ima.groupId), ima.status);
        else
            agent->hear(KINDS[alarm->objType] + std::to_string(alarm->object.objId),
                        alarm->object.status);
    }

    void hear(const std::string &name, uint32_t bits)
    {
        const std::lock_guard lock{mutex_};
        auto &[active, before] = alarms_[name];
        setAlarms(name, active, before = bits);
    }

    static void onPm(vexoPmNotification *pm)
    {
        agent->heard_ = Clock::now();
        for (uint32_t i = 0; pm->objType == VEXO_OBJ_TYPE_PDH && i < VEXO_PM_PDH_MAX; ++i)
            if (const vexoPdhPm &port = pm->pdh[i]; port.pmType)
                logPm("pdh", i + 1, port.pmType, port.lineCounters);
        if (pm->objType == VEXO_OBJ_TYPE_PWE)
            logPm("pwe", pm->pwe.pwId, pm->pwe.interval, pm->pwe.body.generic.counters);
        if (pm->objType == VEXO_OBJ_TYPE_IMA)
            logPm("ima", pm->ima.groupId, pm->ima.interval, pm->ima.group.counters);
    }

    static void logPm(const char *kind, uint32_t number, uint32_t interval, const auto &counters)
    {
        std::string text;
        for (const uint32_t counter : counters)
            text += ' ' + std::to_string(counter);
        printf("pm %s %u: interval %u:%s\n", kind, number, interval, text.c_str());
    }

    void note(const std::string &name, const std::string &problem)
    {
        const std::lock_guard lock{mutex_};
        if (problem.empty())
            problems_.erase(name);
        else
            problems_[name] = problem;
    }

    void attempt(const std::string &name, auto act)
    try {
        act();
        note(name, "");
    } catch (const Failure &failure) {
        note(name, failure.what());
    }

    // False when it is to stop.
    bool pause(duration<double> length)
    {
        std::unique_lock lock{mutex_};
        paused_.wait_for(lock, stop_, length, [] { return false; });
        return !stop_.stop_requested();
    }

    static inline Agent *agent; // the callbacks'
    const duration<double> period_;
    std::vector<std::unique_ptr<Object>> objects_;
    std::vector<Object *> wrong_; // when they were last looked at
    bool deaf_ = true;
    std::atomic<Clock::time_point> heard_;
    std::stop_token stop_;
    std::condition_variable_any paused_;
    std::mutex mutex_;                                            // for what follows
    std::map<std::string, std::pair<uint32_t, uint32_t>> alarms_; // active, last read
    std::map<std::string, std::string> problems_, told_;
};

// A call may hang. It can't be ended, but the process can: the work is done on a thread of its own.
static int serve(Agent &agent, bool once, double patience)
{
    sigset_t signals; // taken here alone: threads inherit the mask
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    static constexpr timespec MOMENT{0, 100000000};
    int status = EXIT_FAILURE;
    std::jthread worker{[&](const std::stop_token &stop) {
        status = agent.run(stop, once);
        kill(getpid(), SIGUSR1);
    }};
    for (int taken = 0; taken != SIGUSR1;) {
        taken = sigtimedwait(&signals, nullptr, &MOMENT);
        if (taken == SIGINT || taken == SIGTERM)
            worker.request_stop();
        if (Clock::now() - duration<double>{patience} > workingSince.load()) {
            fprintf(stderr, "gatewayd: a call hasn't returned for %g seconds\n", patience);
            agent.tell(true);
            _exit(EXIT_FAILURE);
        }
    }
    worker.join();
    return status;
}

int main(int argc, char **argv)
{
    signal(SIGPIPE, SIG_IGN); // who reads the log may end
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    int once = 0;
    double period = 1, patience = 10;
    const option options[] = {
        {"once", 0, &once, 1}, {"period", 1, nullptr, 'e'}, {"patience", 1, nullptr, 'p'}, {}};
    for (int given; (given = getopt_long(argc, argv, "", options, nullptr)) >= 0;)
        if (given)
            (given == 'e' ? period : patience) = given == '?' ? 0 : strtod(optarg, nullptr);
    if (optind != argc - 1 || !(period > 0) || !(patience > 0)) {
        fputs("usage: gatewayd [--once] [--period S] [--patience S] SITE.json\n", stderr);
        return 2;
    }
    try {
        std::ifstream file{argv[optind]};
        if (!file)
            throw Failure{"can't be opened"};
        Agent agent{Json::parse(file), period};
        return serve(agent, once, patience);
    } catch (const std::exception &error) {
        fprintf(stderr, "gatewayd: %s: %s\n", argv[optind], error.what());
        return 2;
    }
}
