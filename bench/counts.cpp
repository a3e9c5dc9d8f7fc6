// Runs every operation once through the library and once by hand, each between two marks for
// callgrind, which counts the instructions in between. counts.py evaluates them.
#include "operations.h"

#include "bare.h"

#include <kv_config.h>

#include <atomic>
#include <string>

#include <unistd.h>
#include <valgrind/callgrind.h>

using namespace bench;

namespace
{

// Not before the second run: the first one binds the functions.
template <class Run>
void count(const std::string &name, Run run)
{
    run();
    run();
    CALLGRIND_ZERO_STATS;
    run();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

void count(const std::string &kind, const std::string &name, void (*library)(), void (*bare)())
{
    count("library|" + kind + "|" + name, library);
    count("bare|" + kind + "|" + name, bare);
}

void ignoreAlarm(vexoAlarmNotification *) {}

// On the service's own thread, which otherwise would be counted with what it does meanwhile.
std::atomic<bool> replaced;
void countReplacement(vexoAlarmNotification *)
{
    CALLGRIND_DUMP_STATS; // what came before doesn't count here
    count(
        "callback", "callback replaced", [] { vexo_cmi_alarm_callback_register(ignoreAlarm); },
        [] {});
    replaced = true;
}

void ignorePm(vexoPmNotification *) {}

constexpr alarmEvent PW_EVENT{OBJ_PWE, 1, 3, 1};
constexpr alarmEvent LINK_EVENT{OBJ_IMA_LINK, 1, 3, 1};

constexpr struct {
    const char *kind, *name;
    BareObjects objects;
} REPORTS[] = {
    {"report, part", "PM report: 16 ports", {16, 0, 0}},
    {"report, part", "PM report: 8 groups of 8 links", {0, 0, 8}},
    {"report", "PM report", {16, PW_PROV_MAX, 8}},
};

void countNotifications()
{
    vexo_cmi_alarm_callback_register(countReplacement);
    vexo_cmi_pm_callback_register(ignorePm);
    while (!bareAlarmSubscribed() || !barePmSubscribed())
        usleep(1000);
    bareAlarmSend(&PW_EVENT);
    while (!replaced)
        usleep(1000);
    // What the threads do doesn't count here.
    vexo_cmi_fini();
    CALLGRIND_DUMP_STATS;
    count(
        "alarm", "alarm event: pseudowire", [] { bareAlarmDeliver(&PW_EVENT); },
        [] { bareAlarm(&PW_EVENT, ignoreAlarm); });
    count(
        "alarm", "alarm event: IMA link", [] { bareAlarmDeliver(&LINK_EVENT); },
        [] { bareAlarm(&LINK_EVENT, ignoreAlarm); });
    for (const auto &[kind, name, objects] : REPORTS) {
        bareObjects = objects;
        count(
            kind, name, [] { barePmDeliver(pmInterval{1}); }, [] { bareReport(ignorePm); });
    }
    vexo_cmi_fini();
}

void countAll()
{
    setUp();
    for (const Operation &operation : operations())
        count(nameOf(operation.kind), nameOf(operation), operation.library, operation.bare.run);
    countNotifications();
}

} // namespace

int main()
{
    // The stack lies the same in its page whatever the environment.
    alignas(4096) char boundary[4096];
    asm volatile("" ::"r"(boundary));
    countAll();
}
