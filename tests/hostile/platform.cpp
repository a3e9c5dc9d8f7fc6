#include "hostile.h"

#include "chance.h"
#include "guarded.h"

#include <platform.h>

#include <climits>
#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

namespace hostile
{

namespace
{

std::atomic<uint64_t> currentSeed, currentRound;

void complain(const char *about)
{
    complaint = about;
    ++complaints;
}

// ---- Answers ----

kvRc code()
{
    ++calls();
    if (willing || !chance().fails())
        return KV_OK;
    switch (chance().below(4)) {
    case 0:
        return KV_NO_COUNTERS;
    case 1:
        return KV_NOT_PROVISIONED;
    default:
        return chance().word();
    }
}

// What is done with each argument: an answer is filled, what is given is looked at.
template <class Record>
void treat(Record *out)
{
    chance().fill(out, sizeof *out);
}

template <class Record>
void treat(const Record *in)
{
    Record copy;
    memcpy(&copy, in, sizeof copy);
}

void treat(const unsigned char *mac)
{
    unsigned char copy[6];
    memcpy(copy, mac, sizeof copy);
}

void treat(uint32_t) {}

// As many bytes of a text as the library may look at: a message less its terminator.
constexpr uint32_t TEXT_READ = 127;

struct Texts {
    Guarded terminated, unterminated;

    Texts()
    {
        for (const Guarded *page : {&terminated, &unterminated})
            for (uint8_t *at = page->begin(); at < page->end(); ++at)
                *at = static_cast<uint8_t>(1 + (at - page->begin()) % 255);
        terminated.end()[-1] = '\0';
    }
};

const char *text()
{
    static const Texts texts;
    ++calls();
    uint8_t *start = nullptr;
    switch (chance().below(3)) {
    case 0:
        start = texts.terminated.end() - 1 - chance().below(300);
        break;
    case 1:
        start = texts.unterminated.end() - TEXT_READ;
        break;
    }
    return reinterpret_cast<const char *>(start);
}

// ---- Notifications ----

struct Descriptors {
    int first = -1, second = -1;

    ~Descriptors() { closeAll(); }

    void closeAll()
    {
        for (int *descriptor : {&first, &second}) {
            if (*descriptor >= 0)
                close(*descriptor);
            *descriptor = -1;
        }
    }

    int open()
    {
        constexpr int IMPOSSIBLE[] = {-1, INT_MIN, FD_SETSIZE, INT_MAX};
        closeAll();
        int ends[2];
        switch (chance().below(6)) {
        case 0: // ready without end
            return first = eventfd(1, EFD_CLOEXEC);
        case 1:
            return first = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
        case 2: // never ready
            if (pipe2(ends, O_CLOEXEC) != 0)
                return -1;
            first = ends[0];
            second = ends[1];
            return first;
        case 3: // ready, with nothing behind it
            if (pipe2(ends, O_CLOEXEC) != 0)
                return -1;
            close(ends[1]);
            return first = ends[0];
        case 4: { // closed
            const int gone = eventfd(1, EFD_CLOEXEC);
            close(gone);
            return gone;
        }
        default:
            return IMPOSSIBLE[chance().below(4)];
        }
    }
};

thread_local Descriptors descriptors;

// The first of the platform's calls on a service's thread.
int sock(uint64_t service)
{
    chance().start(currentSeed ^ service, currentRound);
    ++calls();
    return descriptors.open();
}

using AlarmHandler = void (*)(const alarmEvent *);
using PmHandler = void (*)(pmInterval);
thread_local AlarmHandler alarmHandler;
thread_local PmHandler pmHandler;

void notifyAlarms()
{
    constexpr uint32_t TYPES[] = {OBJ_SYSTEM, OBJ_PDH, OBJ_IMA_GROUP, OBJ_PWE, OBJ_IMA_LINK};
    for (uint32_t left = chance().below(4); alarmHandler && left > 0; --left) {
        alarmEvent event;
        chance().fill(&event, sizeof event);
        if (chance().one(2))
            event.objType = objType{TYPES[chance().below(5)]};
        alarmHandler(&event);
    }
}

void notifyPm()
{
    for (uint32_t left = willing ? 1 : chance().below(3); pmHandler && left > 0; --left)
        pmHandler(pmInterval{chance().word()});
}

kvRc process(void (*notifyAll)())
{
    if (willing)
        return KV_OK;
    notifyAll();
    if (chance().one(16))
        descriptors.closeAll();
    return code();
}

kvRc unsubscribe(void (*notifyAll)())
{
    if (!willing)
        notifyAll();
    descriptors.closeAll();
    return code();
}

} // namespace

void start(uint64_t seed, uint64_t round)
{
    currentSeed = seed;
    currentRound = round;
    chance().start(seed, round);
}

uint64_t &calls()
{
    thread_local uint64_t count;
    return count;
}

bool hasTheClock()
{
    return dlsym(RTLD_DEFAULT, "settimeofday") == reinterpret_cast<void *>(&settimeofday) &&
           dlsym(RTLD_NEXT, "settimeofday") != reinterpret_cast<void *>(&settimeofday);
}

} // namespace hostile

using namespace hostile;

// What a function does that has no body of its own.
template <class Function>
struct Generic;

template <class... Arguments>
struct Generic<kvRc (*)(Arguments...)> {
    static kvRc call(Arguments... arguments)
    {
        (treat(arguments), ...);
        return code();
    }
};

template <class... Arguments>
struct Generic<const char *(*)(Arguments...)> {
    static const char *call(Arguments...) { return text(); }
};

template <auto function>
struct Body : Generic<decltype(function)> {
};

template <>
struct Body<&GetObjectCount> {
    static uint32_t call(objType)
    {
        ++calls();
        return objects ? objects.load() : chance().below(32);
    }
};

template <>
struct Body<&alarm_notification_sock> {
    static int call() { return sock(1); }
};

template <>
struct Body<&alarm_subscribe> {
    static kvRc call(uint32_t, uint32_t, AlarmHandler handler)
    {
        alarmHandler = handler;
        notifyAlarms();
        return code();
    }
};

template <>
struct Body<&alarm_process_notification> {
    static kvRc call() { return process(notifyAlarms); }
};

template <>
struct Body<&alarm_unsubscribe> {
    static kvRc call() { return unsubscribe(notifyAlarms); }
};

template <>
struct Body<&pmom_notification_sock> {
    static int call() { return sock(2); }
};

template <>
struct Body<&pmom_subscribe> {
    static kvRc call(PmHandler handler)
    {
        pmHandler = handler;
        notifyPm();
        return code();
    }
};

template <>
struct Body<&pmom_process_notification> {
    static kvRc call() { return process(notifyPm); }
};

template <>
struct Body<&pmom_unsubscribe> {
    static kvRc call() { return unsubscribe(notifyPm); }
};

extern "C" {

#define STAND_IN(library, kind, returns, function, ...)                                            \
    PLATFORM_DEFINE(Body<&function>::call, function, __VA_ARGS__)
LIBRARY_FUNCTIONS(STAND_IN)

int settimeofday(const timeval *in, const struct timezone *)
{
    treat(in);
    return code() == KV_OK ? 0 : -1;
}

int gettimeofday(timeval *out, void *) noexcept
{
    *out = {static_cast<time_t>(chance().word()), static_cast<suseconds_t>(chance().word())};
    return code() == KV_OK ? 0 : -1;
}

int gorvGetVersion(char *buffer, int size)
{
    chance().fill(buffer, static_cast<size_t>(size));
    return static_cast<int>(code());
}

// Looks at the arguments as the format has them, but not into the texts: these are the platform's
// own, and it knows what they are.
int kv_log(int, int, const char *file, const char *function, int, const char *format, ...)
{
    if (!file || !function)
        complain("a log record of no file or no function");
    va_list arguments;
    va_start(arguments, format);
    for (const char *at = strchr(format, '%'); at; at = strchr(at + 1, '%')) {
        if (at[1] == 's') {
            if (!va_arg(arguments, const char *))
                complain("a null text in the log");
        } else {
            va_arg(arguments, int);
        }
    }
    va_end(arguments);
    return static_cast<int>(code());
}

} // extern "C"
