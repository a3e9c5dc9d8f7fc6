// A host that loads the library, has both services running and then unloads the library or ends:
//
//   notify_host LIBRARY unload|end idle|busy
//   notify_host LIBRARY clock alone|first|again
//
// After unloading it forks: the library had registered for that. With "busy" both callbacks are in
// progress when it unloads or ends, that of the alarm service for longer. A process of its own, in
// which the services' threads are the first that end. The second form instead sets the clock
// without the right to: with all stand-ins loaded before the library, or with the library loaded
// again while they stay.
#include <vexo_cmi.h>

#include <kv_sim.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

struct Callback {
    std::atomic<bool> begun, ended;

    void takeTime(unsigned milliseconds)
    {
        begun = true;
        usleep(milliseconds * 1000);
        ended = true;
    }
};

Callback alarmCallback, pmCallback;
bool checkAtEnd;
long descriptorsBefore;
decltype(&kv_sim_log_get) logGet;

void onAlarm(vexoAlarmNotification *)
{
    alarmCallback.takeTime(300);
}

void onPm(vexoPmNotification *)
{
    pmCallback.takeTime(100);
}

long descriptors()
{
    return std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {});
}

// The number of the log record of a thread's end; 0: there is none.
uint64_t endOf(const char *function)
{
    kvSimLog record;
    for (uint64_t number = 1; logGet(number, &record) == 0; ++number)
        if (strcmp(record.text, "pthread_exit") == 0 && strcmp(record.function, function) == 0)
            return number;
    return 0;
}

bool check(const char *claim, bool holds)
{
    if (!holds)
        fprintf(stderr, "notify_host: not so: %s\n", claim);
    return holds;
}

bool isOver()
{
    const uint64_t alarmEnd = endOf("thread_alarm_notification_handler");
    const uint64_t pmEnd = endOf("thread_pm_notification_handler");
    return check("both threads have ended", alarmEnd && pmEnd) &&
           check("the alarm service ended first", alarmEnd < pmEnd) &&
           check("callbacks in progress went to their end",
                 alarmCallback.begun == alarmCallback.ended &&
                     pmCallback.begun == pmCallback.ended) &&
           check("no descriptor is left", descriptors() == descriptorsBefore);
}

void atEnd()
{
    if (checkAtEnd)
        _exit(isOver() ? 0 : 1);
}

template <class F>
F *find(void *library, const char *name)
{
    return reinterpret_cast<F *>(dlsym(library, name));
}

#define FIND(name) const auto name = find<decltype(::name)>(library, #name)

bool loadStandIns()
{
    for (const char *name : {"alarm", "common", "config", "forker", "pmom", "upgrade"})
        if (!dlopen((std::string{"libkv_"} + name + ".so").c_str(), RTLD_NOW))
            return check(dlerror(), false);
    return true;
}

bool clockIsTheDevices(const char *path, const std::string &order)
{
    if (order == "again") {
        void *library = dlopen(path, RTLD_NOW);
        if (!loadStandIns() || !library || dlclose(library) != 0 ||
            dlopen(path, RTLD_NOW | RTLD_NOLOAD))
            return check("the library can be unloaded", false);
    } else if (order == "first" && !loadStandIns()) {
        return false;
    }
    void *library = dlopen(path, RTLD_NOW);
    if (!library)
        return check(dlerror(), false);
    FIND(vexo_cmi_sys_tod_set);
    FIND(vexo_cmi_sys_kato_send);
    FIND(kv_sim_clock_get);
    if (geteuid() == 0 && setuid(65534) != 0)
        return check("rights can be given up", false);
    vexoResult result{};
    vexo_cmi_sys_tod_set(1000000000, 5, &result);
    const bool set = check(result.message, result.rc == VEXO_RC_OK);
    vexo_cmi_sys_kato_send(2000000000, 5, &result);
    return check(result.message, result.rc == VEXO_RC_OK) && set &&
           check("the device's clock was set", kv_sim_clock_get() / 1000000 == 2000000000);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    if (argv[2] == std::string{"clock"})
        return clockIsTheDevices(argv[1], argv[3]) ? 0 : 1;
    const bool unload = argv[2] == std::string{"unload"};
    const bool busy = argv[3] == std::string{"busy"};
    // Registered before the library is loaded: runs after the library's own end.
    atexit(atEnd);

    void *library = dlopen(argv[1], RTLD_LAZY);
    if (!library) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    FIND(vexo_cmi_alarm_callback_register);
    FIND(vexo_cmi_pm_callback_register);
    FIND(kv_sim_open);
    FIND(kv_sim_alarm_send);
    FIND(kv_sim_interval_end);
    FIND(kv_sim_journal_get);
    logGet = find<decltype(kv_sim_log_get)>(library, "kv_sim_log_get");

    // The device is to stay when the library goes.
    Dl_info device;
    if (!dladdr(reinterpret_cast<void *>(kv_sim_open), &device) ||
        !dlopen(device.dli_fname, RTLD_LAZY) || kv_sim_open() != 0)
        return 2;
    descriptorsBefore = descriptors();

    vexo_cmi_alarm_callback_register(onAlarm);
    vexo_cmi_pm_callback_register(onPm);
    int subscriptions = 0;
    for (uint64_t number = 1; subscriptions < 2;) {
        kvSimCall call;
        if (kv_sim_journal_get(number, &call) == 0)
            subscriptions += strstr(call.function, "_subscribe") != nullptr, ++number;
        else
            usleep(1000);
    }
    if (busy) {
        kv_sim_alarm_send(KV_SIM_PDH, 1, 1, 1);
        kv_sim_interval_end(1);
        while (!alarmCallback.begun || !pmCallback.begun)
            usleep(1000);
    }

    if (!unload) {
        checkAtEnd = true;
        return 0;
    }
    dlclose(library);
    const bool gone = !dlopen(argv[1], RTLD_LAZY | RTLD_NOLOAD);
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    int status = -1;
    waitpid(child, &status, 0);
    return check("the library is unloaded", gone) && isOver() && check("a child lives", status == 0)
               ? 0
               : 1;
}
