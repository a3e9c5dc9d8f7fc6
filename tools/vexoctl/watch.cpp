#include "session.h"

#include "invocation.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <mutex>

#include <unistd.h>

namespace vexoctl
{

namespace
{

using Clock = std::chrono::steady_clock;

struct Limits {
    uint32_t count = 0; // 0: none
    uint32_t seconds = 0;
};

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

bool takeLimit(const std::string &word, Limits &limits)
{
    const size_t sign = word.find('=');
    const std::string name = word.substr(0, sign);
    if (sign == std::string::npos || (name != "count" && name != "for"))
        return false;
    parse(describe::typeOf<uint32_t>(), name, word.substr(sign + 1),
          name == "count" ? &limits.count : &limits.seconds);
    return true;
}

// What the callbacks print, one line each.
std::mutex printing;
bool asJson;
std::atomic<uint32_t> printed;
std::atomic<uint32_t> allowed;

void print(const Json &document, const std::string &line)
{
    const std::lock_guard guard{printing};
    if (allowed && printed >= allowed)
        return;
    if (asJson)
        std::cout << document.dump() << std::endl;
    else
        std::cout << line << std::endl;
    ++printed;
}

std::string hex(uint32_t bits)
{
    char text[11];
    snprintf(text, sizeof text, "0x%08x", bits);
    return text;
}

std::string words(const Json &numbers)
{
    std::string text;
    for (const Json &number : numbers)
        text += " " + number.dump();
    return text;
}

void onAlarm(vexoAlarmNotification *alarm)
{
    Json document{{"notification", "alarm"}};
    document.update(toJson(describe::typeOf<vexoAlarmNotification>(), alarm));
    const std::string type = document["objType"].dump();
    std::string object;
    uint32_t status;
    uint32_t delta;
    if (alarm->objType == VEXO_OBJ_TYPE_IMA) {
        object = alarm->ima.imaType == VEXO_IMA_TYPE_GROUP ? "IMA group " : "IMA link ";
        object += std::to_string(alarm->ima.groupId);
        status = alarm->ima.status;
        delta = alarm->ima.delta;
    } else {
        object = alarm->objType == VEXO_OBJ_TYPE_SYSTEM ? "system "
                 : alarm->objType == VEXO_OBJ_TYPE_PDH  ? "PDH port "
                                                        : "pseudowire ";
        object += std::to_string(alarm->object.objId);
        status = alarm->object.status;
        delta = alarm->object.delta;
    }
    print(document, "alarm " + object + ": active " + hex(status) + ", raised " +
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

void onPorts(const vexoPmNotification &pm)
{
    Json ports = Json::array();
    std::string line;
    for (uint32_t i = 0; i < VEXO_PM_PDH_MAX; ++i) {
        vexoPdhPm slot = pm.pdh[i];
        if (slot.pmType == 0)
            continue; // not read, or not there
        markUnwritten(slot, i + 1);
        Json port{{"port", i + 1}};
        port.update(toJson(describe::typeOf<vexoPdhPm>(), &slot));
        line += " " + std::to_string(i + 1);
        ports.push_back(port);
    }
    const Json interval = ports.empty() ? Json{} : ports[0]["pmType"];
    print(Json{{"notification", "pm"}, {"objType", "pdh"}, {"interval", interval}, {"pdh", ports}},
          "pm interval " + interval.dump() + " PDH ports:" + (line.empty() ? " none" : line));
}

void onPm(vexoPmNotification *pm)
{
    if (pm->objType == VEXO_OBJ_TYPE_PDH)
        return onPorts(*pm);
    Json document{{"notification", "pm"}};
    document.update(toJson(describe::typeOf<vexoPmNotification>(), pm));
    if (pm->objType == VEXO_OBJ_TYPE_PWE) {
        const Json &pwe = document["pwe"];
        const char *kind = pwe.contains("atm") ? "atm" : "generic";
        print(document, "pm interval " + pwe["interval"].dump() + " pseudowire " +
                            pwe["pwId"].dump() + " (" + kind + "):" + words(pwe[kind]["counters"]));
    } else {
        const Json &ima = document["ima"];
        print(document, "pm interval " + ima["interval"].dump() + " IMA group " +
                            ima["groupId"].dump() + ":" + words(ima["group"]["counters"]) + ", " +
                            ima["group"]["linkCount"].dump() + " links");
    }
}

bool isOver(const Limits &limits, Clock::time_point start)
{
    if (limits.count && printed >= limits.count)
        return true;
    return limits.seconds && Clock::now() - start >= std::chrono::seconds{limits.seconds};
}

} // namespace

Status watch(const Words &given, bool json)
{
    Limits limits;
    bool alarms = false;
    bool pm = false;
    for (size_t i = 1; i < given.size(); ++i) {
        if (given[i] == "alarms")
            alarms = true;
        else if (given[i] == "pm")
            pm = true;
        else if (!takeLimit(given[i], limits))
            throw UsageError("watch: expected alarms, pm, count=N or for=SECONDS, not '" +
                             given[i] + "'");
    }
    asJson = json;
    printed = 0;
    allowed = limits.count;

    Signals signals;
    if (alarms || !pm)
        vexo_cmi_alarm_callback_register(onAlarm);
    if (pm || !alarms)
        vexo_cmi_pm_callback_register(onPm);
    const auto start = Clock::now();
    while (!isOver(limits, start) && !signals.wait(std::chrono::milliseconds{50})) {
    }
    vexo_cmi_fini();
    return SUCCESS;
}

namespace
{

constexpr uint32_t STATES_UNDER_WAY[] = {VEXO_UPGRADE_STATE_2, VEXO_UPGRADE_STATE_3,
                                         VEXO_UPGRADE_STATE_4};

bool isUnderWay(uint32_t state)
{
    return std::find(std::begin(STATES_UNDER_WAY), std::end(STATES_UNDER_WAY), state) !=
           std::end(STATES_UNDER_WAY);
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

Status follow(const Words &given, bool json)
{
    Limits limits;
    for (size_t i = 1; i < given.size(); ++i)
        if (!(i == 1 && given[i] == "upgrade") && !takeLimit(given[i], limits))
            throw UsageError("follow: expected upgrade, count=N or for=SECONDS, not '" + given[i] +
                             "'");
    if (given.size() < 2 || given[1] != "upgrade")
        throw UsageError("follow: only 'upgrade' can be followed");
    asJson = json;
    printed = 0;
    allowed = limits.count;

    Signals signals;
    const auto start = Clock::now();
    uint32_t shown = 0;
    for (;;) {
        vexoUpgradeInfo info{};
        vexoResult result;
        vexo_cmi_misc_upgrade_info_get(&info, &result);
        if (result.rc != VEXO_RC_OK) {
            std::cerr << "vexoctl: follow upgrade: failure " << static_cast<uint32_t>(result.rc)
                      << ": " << result.message << std::endl;
            return FAILURE;
        }
        if (info.state != shown) {
            turnWheel(false);
            const Json document = toJson(describe::typeOf<vexoUpgradeInfo>(), &info);
            print(document, "upgrade of " + document["fileName"].get<std::string>() + ": state " +
                                document["state"].dump());
            shown = info.state;
        }
        turnWheel(true);
        if (!isUnderWay(info.state) || isOver(limits, start) ||
            signals.wait(std::chrono::milliseconds{100}))
            break;
    }
    turnWheel(false);
    return SUCCESS;
}

} // namespace vexoctl
