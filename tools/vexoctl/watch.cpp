#include "session.h"

#include "limit.h"
#include "print.h"

#include <records.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <set>

#include <unistd.h>

namespace vexoctl
{

namespace
{

using Clock = std::chrono::steady_clock;

struct Limits {
    const uint32_t count; // 0: none
    const uint32_t seconds;
};

Limits limitsOf(const Options &options)
{
    return {options.number("count", 0), options.number("for", 0)};
}

// SIGINT and SIGTERM end a watch: blocked in all threads, and waited for by this one.
class Signals
{
  public:
    Signals()
    {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        sigaddset(&set_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set_, &before_);
    }
    ~Signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    Signals(const Signals &) = delete;

    // Whether one came within the time.
    bool wait(std::chrono::milliseconds time)
    {
        const timespec limit{static_cast<time_t>(time.count() / 1000),
                             static_cast<long>(time.count() % 1000) * 1000000};
        return sigtimedwait(&set_, nullptr, &limit) >= 0;
    }

  private:
    sigset_t set_;
    sigset_t before_;
};

// What comes is printed as it comes, one line each.
std::mutex printing;
bool asJson;
std::atomic<uint32_t> printed;
std::atomic<uint32_t> allowed;

Failure failureOf(const char *command, const std::string &text)
{
    Failure failure{command, {VEXO_RC_GENERAL, {}}};
    strcpy_n(failure.result.message, text.c_str(), sizeof failure.result.message);
    return failure;
}

std::string hex(uint32_t bits)
{
    const std::string digits = hexadecimal(bits).substr(2);
    return "0x" + std::string(8 - digits.size(), '0') + digits;
}

std::string listed(const Json &numbers)
{
    std::string text;
    for (const Json &number : numbers)
        text += " " + number.dump();
    return text;
}

std::string objectOf(const vexoAlarmNotification &alarm)
{
    switch (alarm.objType) {
    case VEXO_OBJ_TYPE_SYSTEM:
        return "system " + std::to_string(alarm.object.objId);
    case VEXO_OBJ_TYPE_PDH:
        return "PDH port " + std::to_string(alarm.object.objId);
    case VEXO_OBJ_TYPE_PWE:
        return "pseudowire " + std::to_string(alarm.object.objId);
    case VEXO_OBJ_TYPE_IMA:
        return (alarm.ima.imaType == VEXO_IMA_TYPE_GROUP ? "IMA group " : "IMA link ") +
               std::to_string(alarm.ima.groupId);
    }
    return "object of type " + std::to_string(alarm.objType);
}

void onAlarm(vexoAlarmNotification *alarm)
{
    Json document{{"notification", "alarm"}};
    document.update(toJson(describe::typeOf<vexoAlarmNotification>(), alarm));
    const bool isIma = alarm->objType == VEXO_OBJ_TYPE_IMA;
    const uint32_t status = isIma ? alarm->ima.status : alarm->object.status;
    const uint32_t delta = isIma ? alarm->ima.delta : alarm->object.delta;
    printLine(document, "alarm " + objectOf(*alarm) + ": active " + hex(status) + ", raised " +
                            hex(status & delta) + ", cleared " + hex(~status & delta));
}

// The record of a report does not say which arrangement a port has; the port's own counters do,
// by the words that are left alone.
void markUnwritten(vexoPdhPm &pm, uint32_t port)
{
    vexoPdhPm probe;
    memset(&probe, 0xFF, sizeof probe);
    vexoResult result;
    vexo_cmi_pdh_pm_get(&probe, VEXO_PM_TYPE_1, port, &result);
    for (size_t i = 0; i < std::size(probe.lineCounters) && result.rc == VEXO_RC_OK; ++i)
        if (probe.lineCounters[i] == describe::UNTOUCHED)
            pm.lineCounters[i] = describe::UNTOUCHED;
}

// "generic, no data"
std::string kindOf(const std::string &kind, const Json &flag)
{
    return " (" + kind + (flag == 1 ? ")" : ", no data)");
}

// What a port counted; empty when that is nothing.
std::string countsOf(const Json &port)
{
    std::string line = " (no line counters)";
    for (const char *layout : {"layout0", "layout1"})
        if (port.contains(layout))
            line = kindOf(layout, port[layout]["intervalFlag"]) + " line" +
                   listed(port[layout]["counters"]);
    const std::string common = " common" + listed(port["commonCounters"]);
    const std::string counters = line.substr(line.find(')')) + common;
    return counters.find_first_of("123456789") == counters.npos
               ? ""
               : "port " + port["port"].dump() + line + common;
}

void onPorts(const vexoPmNotification &pm)
{
    Json ports = Json::array();
    std::string counts;
    for (uint32_t i = 0; i < VEXO_PM_PDH_MAX; ++i) {
        vexoPdhPm slot = pm.pdh[i];
        if (slot.pmType == 0)
            continue; // not read, or not there
        markUnwritten(slot, i + 1);
        Json port{{"port", i + 1}};
        port.update(toJson(describe::typeOf<vexoPdhPm>(), &slot));
        const std::string own = countsOf(port);
        counts += own.empty() ? "" : "; " + own;
        ports.push_back(port);
    }
    const Json interval = ports.empty() ? Json{} : ports[0]["pmType"];
    printLine(
        Json{{"notification", "pm"}, {"objType", "pdh"}, {"interval", interval}, {"pdh", ports}},
        "pm interval " + interval.dump() + " PDH: " + std::to_string(ports.size()) + " ports" +
            (counts.empty() ? ", nothing counted" : counts));
}

void onPwOrGroup(const vexoPmNotification &pm)
{
    Json document{{"notification", "pm"}};
    document.update(toJson(describe::typeOf<vexoPmNotification>(), &pm));
    if (pm.objType == VEXO_OBJ_TYPE_PWE) {
        const Json &pwe = document["pwe"];
        const char *kind = pwe.contains("atm") ? "atm" : "generic";
        printLine(document, "pm interval " + pwe["interval"].dump() + " pseudowire " +
                                pwe["pwId"].dump() + kindOf(kind, pwe[kind]["valid"]) + ":" +
                                listed(pwe[kind]["counters"]));
    } else if (pm.objType == VEXO_OBJ_TYPE_IMA) {
        const Json &ima = document["ima"];
        std::string line = "pm interval " + ima["interval"].dump() + " IMA group " +
                           ima["groupId"].dump() +
                           (ima["group"]["intervalFlag"] == 1 ? ":" : " (no data):") +
                           listed(ima["group"]["counters"]);
        for (const Json &link : ima["group"]["links"])
            line += "; link " + link["linkId"].dump() +
                    (link["intervalFlag"] == 1 ? ":" : " (no data):") + listed(link["counters"]);
        printLine(document, line);
    }
}

void onPm(vexoPmNotification *pm)
{
    if (pm->objType == VEXO_OBJ_TYPE_PDH)
        onPorts(*pm);
    else
        onPwOrGroup(*pm);
    // The record is used again: which kind of counters the next pseudowire has shows in what is
    // written then.
    memset(pm, 0xFF, sizeof *pm);
}

// The threads of this process.
std::set<std::string> threads()
{
    std::set<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator{"/proc/self/task"})
        found.insert(entry.path().filename());
    return found;
}

// One of the library's notification services. Registering says nothing of a subscription that the
// platform refuses: the service's thread is gone then.
class Service
{
  public:
    template <class Callback>
    Service(const char *name, void (*registration)(Callback), Callback callback) : name_{name}
    {
        const auto before = threads();
        registration(callback);
        for (const std::string &thread : threads())
            if (!before.contains(thread))
                threads_.insert(thread);
    }

    void check() const
    {
        const auto running = threads();
        if (std::ranges::none_of(threads_, [&](const auto &own) { return running.contains(own); }))
            throw failureOf("watch",
                            std::string{"the platform refused or ended the subscription to "} +
                                name_ + "; its log tells why");
    }

  private:
    const char *const name_;
    std::set<std::string> threads_; // the service's own and those that the platform starts with it
};

// Tells of events that were lost, when that is noticed.
class Losses
{
  public:
    void look()
    {
        const uint64_t lost = lostEvents();
        // Not std::cerr: that one flushes std::cout first, and waits while nobody reads it.
        if (lost > told_)
            std::clog << "vexoctl: watch: " << lost - told_ << " events were lost" << std::endl;
        told_ = std::max(told_, lost);
    }
    void check() const
    {
        if (told_ > 0)
            throw failureOf("watch", std::to_string(told_) + " events were lost");
    }

  private:
    uint64_t told_ = 0;
};

// Whatever ends a watch, no callback comes after it.
struct Stop {
    ~Stop() { vexo_cmi_fini(); }
};

bool isOver(const Limits &limits, Clock::time_point start)
{
    if (limits.count && printed >= limits.count)
        return true;
    if (!std::cout) // nobody reads it
        return true;
    return limits.seconds && Clock::now() - start >= std::chrono::seconds{limits.seconds};
}

} // namespace

void printAs(bool json)
{
    asJson = json;
    printed = 0;
}

bool printsDocuments()
{
    return asJson;
}

void printLine(const Json &document, const std::string &line)
{
    const std::lock_guard guard{printing};
    if (allowed && printed >= allowed)
        return;
    if (asJson)
        std::cout << document.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    else
        std::cout << line << std::endl;
    ++printed;
}

void stream(uint32_t count, uint32_t seconds, const std::function<bool()> &more)
{
    const Limits limits{count, seconds};
    allowed = count;
    Signals signals;
    const auto start = Clock::now();
    bool over;
    do {
        const bool any = more();
        over = isOver(limits, start) || signals.wait(std::chrono::milliseconds{any ? 0 : 5});
    } while (!over);
}

void watch(const Words &words, bool json)
{
    const Options options{words};
    const Limits limits = limitsOf(options);
    const bool alarms = options.has("alarms");
    const bool pm = options.has("pm");
    printAs(json);
    allowed = limits.count;

    Signals signals;
    const Stop stop;
    std::vector<Service> services;
    if (alarms || !pm)
        services.emplace_back("alarms", vexo_cmi_alarm_callback_register, onAlarm);
    if (pm || !alarms)
        services.emplace_back("PM reports", vexo_cmi_pm_callback_register, onPm);
    Losses losses;
    const auto start = Clock::now();
    uint32_t seen = 0;
    bool over;
    do {
        over = isOver(limits, start) || signals.wait(std::chrono::milliseconds{50});
        // Events that wait follow every loss: where none came, nothing was lost.
        if (const uint32_t now = printed; now != seen || over) {
            seen = now;
            losses.look();
        }
        for (const Service &service : services)
            service.check();
    } while (!over);
    losses.check();
}

namespace
{

bool isUnderWay(vexoUpgradeState state)
{
    return state == VEXO_UPGRADE_STATE_2 || state == VEXO_UPGRADE_STATE_3 ||
           state == VEXO_UPGRADE_STATE_4;
}

// Shows on a terminal that the load is still being followed.
void turnWheel(bool on)
{
    static constexpr char wheel[] = "|/-\\";
    static unsigned position;
    if (isatty(STDERR_FILENO))
        std::cerr << (on ? wheel[position++ % 4] : ' ') << '\r' << std::flush;
}

} // namespace

void follow(const Words &words, bool json)
{
    const Limits limits = limitsOf(Options{words});
    printAs(json);
    allowed = limits.count;

    Signals signals;
    const auto start = Clock::now();
    vexoUpgradeInfo info{};
    uint32_t shown = 0;
    do {
        vexoResult result;
        {
            const CallLimit limit;
            vexo_cmi_misc_upgrade_info_get(&info, &result);
        }
        if (result.rc != VEXO_RC_OK)
            throw Failure{"follow upgrade", result};
        if (info.state != shown) {
            turnWheel(false);
            const Json document = toJson(describe::typeOf<vexoUpgradeInfo>(), &info);
            printLine(document, "upgrade " + printable(document["fileName"]) + ": state " +
                                    document["state"].dump());
            shown = info.state;
        }
        turnWheel(true);
    } while (isUnderWay(info.state) && !isOver(limits, start) &&
             !signals.wait(std::chrono::milliseconds{100}));
    turnWheel(false);
    if (info.state == VEXO_UPGRADE_STATE_6)
        throw failureOf("follow upgrade", "the load failed");
}

} // namespace vexoctl
