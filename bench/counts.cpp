// Runs every operation once through the library and once by hand, each between two marks for
// callgrind, which counts the instructions in between. counts.py evaluates them.
#include "operations.h"

#include "bare.h"

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
void ignorePm(vexoPmNotification *) {}

constexpr alarmEvent PW_EVENT{OBJ_PWE, 1, 3, 1};
constexpr alarmEvent LINK_EVENT{OBJ_IMA_LINK, 1, 3, 1};

void countNotifications()
{
    vexo_cmi_alarm_callback_register(ignoreAlarm);
    vexo_cmi_pm_callback_register(ignorePm);
    while (!bareAlarmSubscribed() || !barePmSubscribed())
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
    count(
        "report", "PM report", [] { barePmDeliver(pmInterval{1}); }, [] { bareReport(ignorePm); });
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
