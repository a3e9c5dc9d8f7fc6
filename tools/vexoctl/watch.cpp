#include "session.h"

#include "catalog.h"
#include "print.h"

#include <meaning.h>
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
#include <sstream>
#include <utility>

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

// What is shown of all that comes: everything where nothing is named.
struct Filter {
    Names kinds{};
    std::vector<uint32_t> numbers{};
    uint32_t bits = UNLIMITED; // one of which an alarm event changes

    bool has(const char *kind) const
    {
        return kinds.empty() || std::ranges::count(kinds, kind) > 0;
    }
    bool has(uint32_t number) const
    {
        return numbers.empty() || std::ranges::count(numbers, number) > 0;
    }
} filter;

Filter filterOf(const Options &options)
{
    Filter wanted;
    std::istringstream kinds{options.text("kind", "")};
    for (std::string kind; std::getline(kinds, kind, ',');) {
        const Names known{"system", "pdh", "pwe", "ima-group", "ima-link"};
        if (std::ranges::count(known, kind) == 0)
            throw UsageError("kind: expected " + inWords(known) + ", not " + vexoctl::quoted(kind) +
                             hint(kind, known));
        wanted.kinds.push_back(kind);
    }
    if (options.has("object"))
        wanted.numbers = numbersOf("object", options.text("object", ""));
    if (options.has("bits"))
        parse(describe::HEXADECIMAL, "bits", options.text("bits", ""), {}, &wanted.bits);
    return wanted;
}

// An object with alarms.
struct Subject {
    const char *kind;
    const char *title;
    uint32_t number;
    const char *of; // as the description of what bits mean has it
};

// What the bits mean, where the device's are known.
std::string meaningOf(const Subject &subject, uint32_t bits)
{
    const bool isSystem = !*subject.of;
    Names known;
    for (const auto &[of, value, meaning] : describe::meaningsOf(isSystem ? "bits" : "alarmBits")) {
        unsigned bit = 32;
        const bool isOne = sscanf(std::string{value}.c_str(), "bit %u", &bit) == 1 && bit < 32;
        if (isSimulated() && isOne && (bits >> bit & 1) && meaning.starts_with(subject.of)) {
            const std::string_view own = meaning.substr(strlen(subject.of));
            known.emplace_back(own.substr(0, own.find(", if ")));
        }
    }
    return known.empty() ? "" : " (" + joined(known, "; ") + ")";
}

// On a terminal, and where nobody has said otherwise.
std::string coloured(const std::string &text, const char *colour, bool isMarked)
{
    const char *const none = getenv("NO_COLOR");
    const bool hasColours = isMarked && isatty(STDOUT_FILENO) && !(none && *none);
    return hasColours ? std::string{"\x1b["} + colour + "m" + text + "\x1b[0m" : text;
}

Subject subjectOf(const vexoAlarmNotification &alarm)
{
    switch (alarm.objType) {
    case VEXO_OBJ_TYPE_SYSTEM:
        return {"system", "system", alarm.object.objId, ""};
    case VEXO_OBJ_TYPE_PDH:
        return {"pdh", "PDH port", alarm.object.objId, "of a port: "};
    case VEXO_OBJ_TYPE_PWE:
        return {"pwe", "pseudowire", alarm.object.objId, "of a pseudowire: "};
    case VEXO_OBJ_TYPE_IMA:
        if (alarm.ima.imaType == VEXO_IMA_TYPE_GROUP)
            return {"ima-group", "IMA group", alarm.ima.groupId, "of a group: "};
        return {"ima-link", "IMA link", alarm.ima.groupId, "of a link: "};
    }
    return {"", "object of type", alarm.objType, "of an unknown object: "};
}

void onAlarm(vexoAlarmNotification *alarm)
{
    Json document{{"notification", "alarm"}};
    document.update(toJson(describe::typeOf<vexoAlarmNotification>(), alarm));
    const bool isIma = alarm->objType == VEXO_OBJ_TYPE_IMA;
    const uint32_t status = isIma ? alarm->ima.status : alarm->object.status;
    const uint32_t delta = isIma ? alarm->ima.delta : alarm->object.delta;
    const Subject subject = subjectOf(*alarm);
    if (!filter.has(subject.kind) || !filter.has(subject.number) ||
        !(filter.bits == UNLIMITED || (filter.bits & delta)))
        return;
    const auto shown = [&](uint32_t bits, const char *colour) {
        return coloured(hex(bits) + meaningOf(subject, bits), colour, bits != 0);
    };
    printLine(document, std::string{"alarm "} + subject.title + " " +
                            std::to_string(subject.number) + ": active " + hex(status) +
                            ", raised " + shown(status & delta, "31") + ", cleared " +
                            shown(~status & delta, "32"));
}

// The alarms of an object, unless there are none or the object is not there.
template <class... Parameters, class... Given>
void showActive(const Subject &subject, void (*read)(Parameters...), Given... given)
{
    if (!filter.has(subject.kind) || !filter.has(subject.number))
        return;
    uint32_t bits = 0;
    vexoResult result;
    makeCallOrEnd([&] { read(&bits, given..., &result); });
    if (result.rc != VEXO_RC_OK || (bits & filter.bits) == 0)
        return;
    printLine(Json{{"notification", "active"},
                   {"objType", subject.kind},
                   {"objId", subject.number},
                   {"status", bits}},
              std::string{"active "} + subject.title + " " + std::to_string(subject.number) + ": " +
                  coloured(hex(bits) + meaningOf(subject, bits), "31", true));
}

void showActive()
{
    showActive({"system", "system", 1, ""}, vexo_cmi_sys_alarm_get);
    for (uint32_t port = 1; port <= VEXO_PM_PDH_MAX; ++port)
        showActive({"pdh", "PDH port", port, "of a port: "}, vexo_cmi_pdh_alarms_get, port);
    for (uint32_t pwId = 1; pwId <= 1024; ++pwId)
        showActive({"pwe", "pseudowire", pwId, "of a pseudowire: "}, vexo_cmi_pwe_alarms_get, pwId);
    for (uint32_t groupId = 1; groupId <= 8; ++groupId) {
        showActive({"ima-group", "IMA group", groupId, "of a group: "}, vexo_cmi_ima_alarms_get,
                   VEXO_IMA_TYPE_GROUP, groupId);
        uint32_t linkIds[VEXO_IMA_LINK_MAX];
        uint32_t count = 0;
        vexoResult result;
        vexo_cmi_ima_lnk_get(linkIds, &count, groupId, &result);
        for (uint32_t i = 0; result.rc == VEXO_RC_OK && i < count; ++i)
            showActive({"ima-link", "IMA link", linkIds[i], "of a link: "}, vexo_cmi_ima_alarms_get,
                       VEXO_IMA_TYPE_LINK, linkIds[i]);
    }
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
        if (slot.pmType == 0 || !filter.has(i + 1))
            continue; // not read, or not there, or not wanted
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
    if (pm->objType == VEXO_OBJ_TYPE_PDH && filter.has("pdh"))
        onPorts(*pm);
    else if ((pm->objType == VEXO_OBJ_TYPE_PWE && filter.has("pwe") && filter.has(pm->pwe.pwId)) ||
             (pm->objType == VEXO_OBJ_TYPE_IMA && filter.has("ima-group") &&
              filter.has(pm->ima.groupId)))
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
    // Whether there are new ones.
    bool look()
    {
        const uint64_t lost = lostEvents();
        // Not std::cerr: that one flushes std::cout first, and waits while nobody reads it.
        if (lost > told_)
            std::clog << "vexoctl: watch: " << lost - told_ << " events were lost" << std::endl;
        return std::exchange(told_, std::max(told_, lost)) < lost;
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
    const std::string time = zone() == Zone::none ? "" : timeText(deviceClock(), zone());
    Json dated{{"time", time}};
    dated.update(document);
    if (asJson)
        std::cout << (time.empty() || document.contains("deviceTime") ? document : dated)
                         .dump(-1, ' ', false, Json::error_handler_t::replace)
                  << std::endl;
    else
        std::cout << (time.empty() || document.contains("deviceTime") ? "" : time + " ") << line
                  << std::endl;
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

void watch(const Words &words, const Manner &manner)
{
    const Options options{words};
    const Limits limits = limitsOf(options);
    const bool alarms = options.has("alarms");
    const bool pm = options.has("pm");
    filter = filterOf(options);
    bool showsActive = options.has("active");
    printAs(manner.json);
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
            showsActive |= losses.look() && options.has("active");
        }
        // The services subscribe on their own threads: nothing tells when they have.
        if (showsActive && Clock::now() - start >= std::chrono::milliseconds{200}) {
            showActive();
            showsActive = false;
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

void follow(const Words &words, const Manner &manner)
{
    const Limits limits = limitsOf(Options{words});
    printAs(manner.json);
    allowed = limits.count;

    Signals signals;
    const auto start = Clock::now();
    vexoUpgradeInfo info{};
    uint32_t shown = 0;
    do {
        vexoResult result;
        makeCallOrEnd([&] { vexo_cmi_misc_upgrade_info_get(&info, &result); });
        if (result.rc != VEXO_RC_OK)
            throw Failure{"follow upgrade", result};
        if (info.state != shown) {
            turnWheel(false);
            const Json document = toJson(describe::typeOf<vexoUpgradeInfo>(), &info);
            const std::string file = printable(document["fileName"]);
            printLine(document, "upgrade" + (file.empty() ? "" : " " + file) + ": state " +
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

void await(const Words &words, const Manner &manner)
{
    const Words behind{words.begin() + 1, words.end()};
    size_t count = 0;
    const describe::Operation &operation = operationOf(behind, count);
    Names asked, paths;
    Fields wanted;
    uint32_t seconds = 0;
    const std::vector<Assignable> taken = assignable(operation);
    for (const std::string &word : std::span{behind}.subspan(count)) {
        const std::string name = word.substr(0, word.find('='));
        const std::string value = word.substr(std::min(name.size() + 1, word.size()));
        if (std::ranges::any_of(taken, [&](const Assignable &one) { return one.name == name; })) {
            asked.push_back(word);
        } else if (name == "for") {
            parse(describe::typeOf<uint32_t>(), name, value, {}, &seconds);
        } else {
            if (name.size() == word.size())
                throw UsageError("expected field=value, not " + vexoctl::quoted(word));
            if (!tells(operation, name)) {
                const Names told = fieldNames(operation);
                throw UsageError("nothing tells " + vexoctl::quoted(name) + hint(name, told) +
                                 "; what can be waited for: " + joined(told, ", "));
            }
            wanted.emplace_back(name, valueOf(operation, name, value));
            paths.push_back(name);
        }
    }
    if (wanted.empty())
        throw UsageError("expected a field=value that is waited for");
    const auto start = Clock::now();
    for (;; usleep(100000)) {
        Invocation invocation{operation, asked, {}};
        if (const vexoResult &result = invocation.call(); result.rc != VEXO_RC_OK)
            throw Failure{"wait " + spoken(operation.name), result};
        const Fields now =
            choose({&operation}, invocation.outputs(Style::json), joined(paths, ","));
        if (now == wanted) {
            Json document{{"operation", "wait"}, {"rc", 0}, {"message", ""}};
            document.update(asObject(now));
            std::cout << (manner.json ? document.dump() + "\n" : readable(asObject(now)));
            return;
        }
        if (seconds && Clock::now() - start >= std::chrono::seconds{seconds}) {
            Names still;
            for (const auto &[path, value] : now)
                still.push_back(path + " is " + cell(value));
            throw Stopped{UNMET, "not within " + std::to_string(seconds) +
                                     " seconds: " + inWords(still, "and")};
        }
    }
}

} // namespace vexoctl
