#include "notify.h"

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

#include <fcntl.h>

namespace
{

std::mutex pausesMutex;
std::vector<int> pauses;

} // namespace

std::vector<int> pausesSoFar()
{
    const std::lock_guard guard{pausesMutex};
    return pauses;
}

static kvRc process(kvRc (*real)())
{
    ++twist.processCalls;
    if (twist.processFails > 0) {
        --twist.processFails;
        return 16;
    }
    if (twist.processStuck)
        return KV_OK;
    if (!twist.processHeld)
        return real();
    ++twist.holding;
    while (twist.processHeld)
        std::this_thread::sleep_for(1ms);
    --twist.holding;
    return KV_OK;
}

void untwist()
{
    std::construct_at(&twist);
    pauses.clear();
    insteadOfNothing();
    instead<alarm_process_notification> = [] {
        return process(DEVICES(alarm_process_notification));
    };
    instead<pmom_process_notification> = [] { return process(DEVICES(pmom_process_notification)); };
}

// The executable's functions come first.
int select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *left)
{
    if (!left || left->tv_sec >= 30 || twist.processCalls == 0)
        return DEVICES(select)(count, reading, writing, failing, left);
    {
        const std::lock_guard guard{pausesMutex};
        pauses.push_back(static_cast<int>(left->tv_sec * 1000 + left->tv_usec / 1000));
        *left = {};
    }
    return DEVICES(select)(count, reading, writing, failing,
                           pauses.size() > PAUSES.size() ? nullptr : left);
}

int fcntl(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    void (*const also)() = twist.atMark;
    if (also && command == F_SETFD)
        also();
    return DEVICES(fcntl)(descriptor, command, argument);
}

int kv_log(int level, int module, const char *file, const char *function, int line,
           const char *format, ...)
{
    void (*const also)() = twist.atAlarmLog;
    if (also && strcmp(function, "alarm_notification_handler") == 0)
        also();
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return DEVICES(kv_log)(level, module, file, function, line, "%s", text);
}

static std::set<std::string> namesIn(const char *folder)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator{folder})
        names.insert(entry.path().filename());
    return names;
}

std::set<std::string> descriptors()
{
    return namesIn("/proc/self/fd");
}

// ThreadSanitizer's own comes with the first.
[[maybe_unused]] const bool firstThread = UNDER_TSAN && (std::thread{[] {}}.join(), true);

// One that has been joined is listed a moment longer; its flags say that it is at its end.
size_t threads()
{
    constexpr unsigned EXITING = 4;
    size_t count = 0;
    for (const std::string &id : namesIn("/proc/self/task")) {
        std::string line;
        std::getline(std::ifstream{"/proc/self/task/" + id + "/stat"}, line);
        const size_t behindName = line.rfind(')');
        unsigned flags;
        if (behindName != line.npos &&
            sscanf(&line[behindName], ") %*c %*d %*d %*d %*d %*d %u", &flags) == 1)
            count += !(flags & EXITING);
    }
    return count - UNDER_TSAN; // which has one of its own
}

std::set<int> pipes()
{
    std::set<int> found;
    std::error_code failure;
    for (const std::string &name : descriptors())
        if (read_symlink(std::filesystem::path{"/proc/self/fd"} / name, failure)
                .string()
                .starts_with("pipe:"))
            found.insert(stoi(name));
    return found;
}

int callsOf(const std::string &function)
{
    int count = 0;
    const uint64_t last = kv_sim_journal_last();
    kvSimCall call;
    for (uint64_t number = last > 1024 ? last - 1023 : 1; number <= last; ++number)
        count += kv_sim_journal_get(number, &call) == 0 && call.function == function;
    return count;
}

void settle()
{
    ASSERT_TRUE(until([] {
        uint32_t waiting;
        uint64_t lost;
        return kv_sim_pending(&waiting, &lost) == 0 && waiting == 0;
    }));
}
