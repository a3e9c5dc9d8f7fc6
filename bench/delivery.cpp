// The time from an alarm event at the platform's descriptor to the agent's callback: through the
// library's service, and for an agent that waits and reads by itself. Prints the medians.
#include "operations.h"

#include "bare.h"

#include <kv_common.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/select.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int EVENTS = 20000;
constexpr int TURN = 100; // events of one kind before it is the other's turn
constexpr alarmEvent EVENT{OBJ_PWE, 1, 3, 1};

std::binary_semaphore taken{0};
Clock::time_point arrival;

void onAlarm(vexoAlarmNotification *)
{
    arrival = Clock::now();
    taken.release();
}

// The least that an agent can do without the library.
void waitAndRead(int descriptor)
{
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(descriptor, &ready);
        timeval timeOut{30, 0};
        if (select(descriptor + 1, &ready, nullptr, nullptr, &timeOut) != 1)
            continue;
        alarmEvent event;
        if (read(descriptor, &event, sizeof event) != sizeof event)
            return;
        bench::bareAlarm(&event, onAlarm);
    }
}

template <class Send>
void measure(std::vector<double> &times, Send send)
{
    for (int i = 0; i < TURN; ++i) {
        const Clock::time_point start = Clock::now();
        send();
        taken.acquire();
        times.push_back(std::chrono::duration<double, std::micro>(arrival - start).count());
    }
}

double median(std::vector<double> &times)
{
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

// Waking a thread on another processor takes up to ten times as long as on the same one, and which
// of them runs where is left to chance: all stay on one.
bool stayOnOneProcessor()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &processors);
    return sched_setaffinity(0, sizeof processors, &processors) == 0;
}

} // namespace

int main()
{
    if (!stayOnOneProcessor())
        return 1;
    vexo_cmi_alarm_callback_register(onAlarm);
    while (!bareAlarmSubscribed())
        usleep(1000);
    int ends[2];
    if (pipe(ends) != 0)
        return 1;
    std::thread agent{waitAndRead, ends[0]};

    std::vector<double> library, bare;
    for (int i = 0; i < EVENTS; i += TURN) {
        measure(library, [] { bareAlarmSend(&EVENT); });
        measure(bare, [&] {
            if (write(ends[1], &EVENT, sizeof EVENT) != sizeof EVENT)
                abort();
        });
    }
    close(ends[1]);
    agent.join();
    vexo_cmi_fini();
    printf("{\"library_us\": %.3f, \"bare_us\": %.3f}\n", median(library), median(bare));
}
