// What the recorder costs: the operations of bench_million on the bare platform, without it, with
// it and nothing recorded, and recorded.
//
//   bench_recorder          in nanoseconds of a call, as JSON
//   bench_recorder FILE     how many bytes a record of that recording has in the mean
#include "mix.h"
#include "operations.h"

#include <recording.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned OPERATIONS = 1000000;
constexpr size_t TURNS = 9;
constexpr char FOLDER[] = "/dev/shm/bench_recorder.XXXXXX";

// Of the processor's time, which doesn't depend on what the machine does besides.
double nanoseconds()
{
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

// Of each call, operations and platform's.
double timeOfACall()
{
    bench::setUp();
    bench::mix(OPERATIONS / 10, 1);
    const double start = nanoseconds();
    bench::mix(OPERATIONS, 1);
    return (nanoseconds() - start) / (OPERATIONS * bench::RECORDS_OF_AN_OPERATION);
}

double timeOfAClockRead()
{
    constexpr int READS = 1000000;
    timespec time;
    const double start = nanoseconds();
    for (int i = 0; i < READS; ++i)
        clock_gettime(CLOCK_MONOTONIC, &time);
    return (nanoseconds() - start) / READS;
}

enum Mode { WITHOUT, OFF, ON, MODES };

// In a process of its own.
double run(Mode mode, const std::string &file)
{
    int ends[2];
    if (pipe(ends) != 0)
        exit(1);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        if (mode != WITHOUT)
            setenv("LD_PRELOAD", RECORDER, 1);
        if (mode == ON)
            setenv("VEXO_TRACE", file.c_str(), 1);
        execl("/proc/self/exe", "bench_recorder", "--time", nullptr);
        _exit(127);
    }
    close(ends[1]);
    char text[64]{};
    const ssize_t size = read(ends[0], text, sizeof text - 1);
    close(ends[0]);
    int status;
    waitpid(child, &status, 0);
    if (size <= 0 || status != 0)
        exit(1);
    return strtod(text, nullptr);
}

double median(std::array<double, TURNS> values)
{
    std::ranges::sort(values);
    return values[TURNS / 2];
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && strcmp(argv[1], "--time") == 0) {
        printf("%f\n", timeOfACall());
        return 0;
    }
    if (argc > 1) {
        const trace::Recording recording{argv[1]};
        printf("%.1f\n", 2.0 * static_cast<double>(recording.eventBytes()) /
                             static_cast<double>(recording.events()));
        return 0;
    }
    std::string folder = FOLDER;
    if (!mkdtemp(folder.data()))
        return 1;
    const std::string file = folder + "/trace";
    std::array<double, TURNS> times[MODES];
    std::array<double, TURNS> clock;
    for (size_t turn = 0; turn < TURNS; ++turn) {
        for (const Mode mode : {WITHOUT, OFF, ON})
            times[mode][turn] = run(mode, file);
        clock[turn] = timeOfAClockRead();
    }
    unlink(file.c_str());
    rmdir(folder.c_str());
    printf("{\"without\": %.2f, \"off\": %.2f, \"on\": %.2f, \"clock\": %.2f}\n",
           median(times[WITHOUT]), median(times[OFF]), median(times[ON]), median(clock));
}
