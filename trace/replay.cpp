// Preloaded into a process, it is the platform: it answers as a recording has it, by a plan that is
// made of one. It uses the C library only, and no heap.
#include "plan.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

using namespace trace;
using describe::platform::Arguments;
using describe::platform::Function;
using describe::platform::Index;
using describe::platform::Returns;

namespace
{

constexpr uint64_t SECOND = 1000000000;
// For how long what other threads had done before is waited for.
constexpr uint64_t PATIENCE = SECOND;

// ---- The plan ----

Plan *plan;
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t progress;
uint64_t latestProgress; // nanoseconds
bool isForeign;          // in a process that was forked after the first call

// The first steps that have not been: of all that is read, changed and told; of those that are more
// than another answer to the same question; of changes and notifications.
enum Frontier { ALL, NEEDED, CAUSES, FRONTIERS };
uint32_t frontiers[FRONTIERS];
uint32_t passed;      // what was read before is passed over
uint32_t impatientAt; // a frontier that was waited for in vain
thread_local const char *failureText __attribute__((tls_model("initial-exec")));

struct Service {
    void (*handler)();
    int timer;        // -1: none
    uint32_t handled; // event; NO_STEP: none
    bool isSubscribed, isRung, isSetToRing;
} services[SERVICES]{{nullptr, -1, NO_STEP, false, false, false},
                     {nullptr, -1, NO_STEP, false, false, false}};

uint64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return static_cast<uint64_t>(time.tv_sec) * SECOND + static_cast<uint64_t>(time.tv_nsec);
}

bool has(PlanFlag flag)
{
    return (plan->flags & flag) != 0;
}

const Function &rowOf(const Step &step)
{
    return describe::platform::functions()[step.function];
}

const Function &rowOf(Index function)
{
    return describe::platform::functions()[static_cast<size_t>(function)];
}

bool belongsTo(Frontier frontier, const Step &step)
{
    switch (step.kind) {
    case StepKind::change:
    case StepKind::event:
        return true;
    case StepKind::read:
        return frontier == ALL || (frontier == NEEDED && !step.repeats);
    default:
        return false;
    }
}

uint32_t reached(Frontier frontier)
{
    uint32_t &at = frontiers[frontier];
    if (frontier != CAUSES && at < passed)
        at = passed;
    while (at < plan->stepCount && (plan->step(at).done || !belongsTo(frontier, plan->step(at))))
        ++at;
    return at;
}

bool isSameRecord(const Function &function, const Step &step, const Arguments &given)
{
    if (given.in.empty())
        return true;
    for (const describe::platform::Argument &argument : function.arguments)
        if (argument.type && argument.isPointer && argument.direction == describe::Direction::in)
            return step.in &&
                   isSame(argument, plan->at<uint8_t>(step.in), given.in.data(), has(STAND_INS));
    return true;
}

// Of a question, what is given besides numbers counts, too.
Queue *find(uint32_t what, const uint32_t *numbers, const Arguments *given = nullptr)
{
    const uint32_t *const buckets = plan->at<uint32_t>(plan->buckets);
    for (uint32_t i = hashOf(what, numbers);; ++i) {
        const uint32_t place = buckets[i & (plan->bucketCount - 1)];
        if (place == 0)
            return nullptr;
        Queue &queue = plan->queue(place - 1);
        if (queue.what == what && memcmp(queue.numbers, numbers, sizeof queue.numbers) == 0 &&
            (!given ||
             isSameRecord(rowOf(plan->step(queue.first)), plan->step(queue.first), *given)))
            return &queue;
    }
}

bool isSameCall(Index function, const Step &step, const Arguments &given)
{
    return step.function == static_cast<uint16_t>(function) &&
           memcmp(step.numbers, given.numbers, sizeof step.numbers) == 0 &&
           isSameRecord(rowOf(function), step, given);
}

// ---- Differences ----

// The next call of the function, whatever it is about.
uint32_t nextOf(Index function)
{
    for (uint32_t place = 0; place < plan->stepCount; ++place)
        if (plan->step(place).function == static_cast<uint16_t>(function) &&
            !plan->step(place).done)
            return place;
    return NO_STEP;
}

// Ends the process unless it is to go on.
void differ(DifferenceKind kind, uint32_t expected, Index function, const Arguments &given)
{
    if (kind != DifferenceKind::process && expected == NO_STEP)
        expected = nextOf(function);
    const uint32_t place = plan->differenceCount;
    if (place < KEPT_DIFFERENCES) {
        Difference &difference = plan->differences[place];
        difference.kind = kind;
        difference.expected = expected;
        difference.thread = static_cast<uint32_t>(gettid());
        difference.function = static_cast<uint32_t>(function);
        difference.answered = plan->answered;
        memcpy(difference.before, plan->latests, sizeof difference.before);
        memcpy(difference.numbers, given.numbers, sizeof difference.numbers);
        difference.inSize = static_cast<uint32_t>(
            given.in.size() < sizeof difference.in ? given.in.size() : sizeof difference.in);
        if (difference.inSize > 0)
            memcpy(difference.in, given.in.data(), difference.inSize);
    }
    plan->differenceCount = place + 1;
    if (has(CONTINUES))
        return;
    // What it has printed is not to be lost; what another thread is printing can't be waited for.
    for (FILE *stream : {stdout, stderr})
        if (ftrylockfile(stream) == 0)
            fflush(stream);
    _exit(WENT_ANOTHER_WAY);
}

// ---- Notifications ----

void setTimer(Service &service, uint64_t nanoseconds)
{
    itimerspec when{};
    when.it_value = {static_cast<time_t>(nanoseconds / SECOND),
                     static_cast<long>(nanoseconds % SECOND)};
    timerfd_settime(service.timer, 0, &when, nullptr);
}

// How often something was asked that has long been answered isn't waited for when nothing else
// comes; nor, where that is no reason to end, what may have been left out.
bool isDueInTime(uint32_t event)
{
    return reached(NEEDED) >= event || (plan->flags & (CONTINUES | LOOSE));
}

// Whether a handler is at work that had returned before.
bool isHandling(uint32_t event)
{
    for (const Service &service : services)
        if (service.handled != NO_STEP &&
            plan->step(service.handled).end <= plan->step(event).clock)
            return true;
    return false;
}

// Whether what was called before it has been called.
bool isDue(uint32_t event)
{
    return event != NO_STEP && !isHandling(event) &&
           (reached(ALL) >= event || (isDueInTime(event) && now() >= latestProgress + PATIENCE));
}

void ring()
{
    for (uint32_t i = 0; i < SERVICES; ++i) {
        Service &service = services[i];
        const uint32_t event = plan->queue(plan->events[i]).at;
        if (!service.isSubscribed || service.isRung || event == NO_STEP || isHandling(event))
            continue;
        if (reached(ALL) >= event) {
            service.isRung = true;
            setTimer(service, 1);
        } else if (!service.isSetToRing && isDueInTime(event)) {
            service.isSetToRing = true;
            setTimer(service, PATIENCE);
        }
    }
}

void finish(uint32_t place)
{
    Step &step = plan->step(place);
    step.done = 1;
    plan->answered.fetch_add(1, std::memory_order_relaxed);
    if (step.kind != StepKind::text) {
        memmove(plan->latests + 1, plan->latests, sizeof plan->latests - sizeof *plan->latests);
        plan->latests[0] = place;
        plan->latest.store(place, std::memory_order_relaxed);
    }
    latestProgress = now();
    pthread_cond_broadcast(&progress);
    ring();
}

void forward(Queue &queue, uint32_t to)
{
    queue.latest = to;
    queue.at = plan->step(to).next;
    finish(to);
}

// Hands over what is due; false when nothing is, or it was a failure.
bool handOver(uint32_t number, kvRc &code)
{
    Queue &events = plan->queue(plan->events[number]);
    Service &service = services[number];
    pthread_mutex_lock(&lock);
    if (!service.isSubscribed || !isDue(events.at)) {
        pthread_mutex_unlock(&lock);
        return false;
    }
    const uint32_t place = events.at;
    const Step &step = plan->step(place);
    passed = place;
    code = step.result;
    if (code == KV_OK)
        service.handled = place;
    forward(events, place);
    pthread_mutex_unlock(&lock);
    if (code != KV_OK)
        return false;
    if (number == 0)
        reinterpret_cast<void (*)(const alarmEvent *)>(service.handler)(
            plan->at<alarmEvent>(step.in));
    else
        reinterpret_cast<void (*)(pmInterval)>(service.handler)(pmInterval{step.numbers[0]});
    pthread_mutex_lock(&lock);
    service.handled = NO_STEP;
    ring();
    pthread_mutex_unlock(&lock);
    return true;
}

kvRc process(uint32_t number)
{
    Service &service = services[number];
    kvRc code = KV_OK;
    uint64_t times;
    pthread_mutex_lock(&lock);
    [[maybe_unused]] const ssize_t got =
        service.timer >= 0 ? ::read(service.timer, &times, sizeof times) : 0;
    service.isRung = service.isSetToRing = false;
    pthread_mutex_unlock(&lock);
    while (handOver(number, code)) {
    }
    pthread_mutex_lock(&lock);
    ring();
    pthread_mutex_unlock(&lock);
    return code;
}

// ---- Answers ----

enum class Answered { yes, no, bySimulator };

struct Answer {
    Answered how;
    uint32_t result;
    const char *text;
};

Answer answerBy(const Step &step, const Arguments &given)
{
    for (size_t i = 0; i < std::size(given.out); ++i)
        if (step.out[i] && !given.out[i].empty() && given.out[i].data())
            memcpy(given.out[i].data(), plan->at<uint8_t>(step.out[i]), given.out[i].size());
    const char *const text = step.text ? plan->at<char>(step.text) : nullptr;
    if (rowOf(step).returns == Returns::code && step.result != KV_OK)
        failureText = text;
    return {Answered::yes, step.result, text};
}

Answer refuse()
{
    if (has(SIMULATED))
        return {Answered::bySimulator, 0, nullptr};
    failureText = "the recording has no answer to this";
    return {Answered::no, KV_FAILURE, failureText};
}

// Until it is no longer so, or nothing has come for a while.
template <class Condition>
void waitWhile(Condition condition)
{
    while (condition()) {
        const uint32_t causes = reached(CAUSES);
        if (impatientAt == causes + 1)
            return;
        timespec until;
        clock_gettime(CLOCK_MONOTONIC, &until);
        until.tv_sec += static_cast<time_t>(PATIENCE / SECOND);
        if (pthread_cond_timedwait(&progress, &lock, &until) == ETIMEDOUT &&
            causes == reached(CAUSES))
            impatientAt = causes + 1;
    }
}

// Passes over what was told before a notification that has come, and what the same thread was told
// before a change that it has made by now: it may have asked more often.
void passOver(Queue &queue)
{
    const Queue &changes = plan->queue(queue.about);
    const Step *const changed = changes.latest == NO_STEP ? nullptr : &plan->step(changes.latest);
    const auto isPast = [&](uint32_t place) {
        const Step &step = plan->step(place);
        return place < passed ||
               (changed && place < changes.latest && step.thread == changed->thread);
    };
    while (queue.at != NO_STEP && isPast(queue.at)) {
        queue.latest = queue.at;
        plan->step(queue.at).done = 1;
        queue.at = plan->step(queue.at).next;
    }
}

// What was asked about the same thing with other values, and comes next or, where nothing does,
// came last.
Queue *findLikeIt(Index function, const Arguments &given)
{
    const auto what = static_cast<uint32_t>(function);
    const Thing thing = thingOf(rowOf(function), given.numbers);
    Queue *found = nullptr;
    for (uint32_t i = 0; i < plan->queueCount; ++i) {
        Queue &queue = plan->queue(i);
        if (queue.what == what && (!found || queue.at < found->at) &&
            thingOf(rowOf(function), queue.numbers) == thing)
            found = &queue;
    }
    return found;
}

Answer read(Index function, const Arguments &given)
{
    Queue *queue = find(static_cast<uint32_t>(function), given.numbers, &given);
    if (!queue && has(SIMULATED))
        return refuse();
    if (!queue && !has(LOOKS)) {
        queue = findLikeIt(function, given);
        if (!queue || !has(LOOSE))
            differ(DifferenceKind::unknown, queue ? queue->at : NO_STEP, function, given);
    }
    if (!queue)
        return refuse();
    if (has(LOOKS))
        return answerBy(plan->step(queue->latest), given);
    passOver(*queue);
    const Queue &changes = plan->queue(queue->about);
    if (const uint32_t next = queue->at; next != NO_STEP) {
        // What other threads had done before, and what had been told, comes first. What this one
        // had done may still come: until then nothing changes.
        waitWhile([=] {
            const uint32_t cause = reached(CAUSES);
            return queue->at == next && cause < next &&
                   plan->step(cause).thread != plan->step(next).thread;
        });
        const bool isEarly = changes.at < next && queue->latest != NO_STEP &&
                             plan->step(changes.at).thread == plan->step(next).thread;
        if (queue->at == next && !isEarly)
            forward(*queue, next);
    } else if (has(SIMULATED) && changes.latest != NO_STEP && changes.latest > queue->latest) {
        return refuse();
    }
    return answerBy(plan->step(queue->latest), given);
}

Answer tell(Index function, const Arguments &given)
{
    if (function == Index::config_get_error_string && failureText)
        return {Answered::yes, 0, failureText};
    if (const Queue *const queue = find(static_cast<uint32_t>(function), given.numbers))
        return answerBy(plan->step(queue->first), given);
    if (has(SIMULATED))
        return {Answered::bySimulator, 0, nullptr};
    return {Answered::yes, 0, "not in the recording"};
}

// The same, from a place of the queue on; or, where no more than the function is to be the same,
// that.
uint32_t findStep(uint32_t from, Index function, const Arguments &given, bool withValues)
{
    for (uint32_t place = from; place != NO_STEP; place = plan->step(place).next) {
        const Step &step = plan->step(place);
        if (!step.done && (withValues ? isSameCall(function, step, given)
                                      : step.function == static_cast<uint16_t>(function)))
            return place;
    }
    return NO_STEP;
}

void passOverDone(Queue &queue)
{
    while (queue.at != NO_STEP && plan->step(queue.at).done)
        queue.at = plan->step(queue.at).next;
}

// Whichever of them comes, in whichever order; the last again when all have been.
Answer changeLoosely(Queue *queue, Index function, const Arguments &given)
{
    uint32_t place = NO_STEP;
    if (queue) {
        for (const bool withValues : {true, false})
            if (place == NO_STEP)
                place = findStep(queue->at, function, given, withValues);
        if (place == NO_STEP)
            for (uint32_t i = queue->first; i != NO_STEP; i = plan->step(i).next)
                if (plan->step(i).function == static_cast<uint16_t>(function))
                    place = i;
    }
    if (place == NO_STEP) {
        differ(DifferenceKind::unknown, NO_STEP, function, given);
        return {Answered::yes, KV_OK, nullptr};
    }
    if (!plan->step(place).done) {
        queue->latest = place;
        finish(place);
        passOverDone(*queue);
    }
    return answerBy(plan->step(place), given);
}

Answer change(Queue *queue, Index function, const Arguments &given)
{
    uint32_t expected = queue ? queue->at : NO_STEP;
    if (expected != NO_STEP && !isSameCall(function, plan->step(expected), given)) {
        // Another thread may be about to do it.
        const uint32_t later = findStep(expected, function, given, true);
        if (later != NO_STEP && plan->step(later).thread != plan->step(expected).thread)
            waitWhile([=] { return queue->at != later && queue->at != NO_STEP; });
        expected = queue->at;
    }
    if (expected == NO_STEP || !isSameCall(function, plan->step(expected), given)) {
        differ(queue ? DifferenceKind::other : DifferenceKind::unknown, expected, function, given);
        uint32_t later = findStep(expected, function, given, true);
        if (later == NO_STEP)
            later = findStep(expected, function, given, false);
        const bool instead =
            expected != NO_STEP && plan->step(expected).function == static_cast<uint16_t>(function);
        if (!queue || (later == NO_STEP && !instead)) // it is one more
            return {Answered::yes, KV_OK, nullptr};
        // In place of the expected one; or that, and others, are left out.
        for (const uint32_t to = instead ? expected : later; queue->at != to;) {
            plan->step(queue->at).done = 1;
            queue->at = plan->step(queue->at).next;
        }
        expected = queue->at;
    }
    forward(*queue, expected);
    return answerBy(plan->step(expected), given);
}

Answer serve(Index function, const Arguments &given)
{
    const uint32_t number = serviceOf(rowOf(function));
    Queue &queue = plan->queue(plan->services[number]);
    Service &service = services[number];
    const uint32_t place = findStep(queue.at, function, given, false);
    Answer answer{Answered::yes, KV_OK, nullptr};
    if (place != NO_STEP && (place == queue.at || has(LOOSE) || has(CONTINUES))) {
        queue.latest = place;
        finish(place);
        passOverDone(queue);
        answer = answerBy(plan->step(place), given);
    } else if (!has(LOOSE) && !has(LOOKS) && (queue.at != NO_STEP || !has(CUT))) {
        differ(DifferenceKind::other, queue.at, function, given);
    }
    const bool succeeded = static_cast<int>(answer.result) >= 0 &&
                           (rowOf(function).returns == Returns::descriptor || !answer.result);
    if (rowOf(function).returns == Returns::descriptor) {
        if (succeeded && service.timer < 0)
            service.timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        answer.result = static_cast<uint32_t>(succeeded ? service.timer : -1);
        return answer;
    }
    const bool subscribes = function == Index::alarm_subscribe || function == Index::pmom_subscribe;
    if (subscribes && succeeded) {
        service.isSubscribed = true;
        service.isRung = service.isSetToRing = false;
    } else if (!subscribes && service.timer >= 0) {
        close(service.timer);
        service.timer = -1;
        service.isSubscribed = false;
    }
    plan->subscribed = services[0].isSubscribed + services[1].isSubscribed;
    ring();
    return answer;
}

// ---- The process ----

bool claim()
{
    uint32_t none = 0;
    const auto self = static_cast<uint32_t>(getpid());
    return plan->process == self || plan->process.compare_exchange_strong(none, self);
}

void inChild()
{
    pthread_mutex_init(&lock, nullptr);
    isForeign = plan && plan->process != 0;
}

[[gnu::constructor]] void load()
{
    const char *const path = getenv(PLAN_VARIABLE);
    const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    struct stat state;
    void *memory = MAP_FAILED;
    if (file >= 0 && fstat(file, &state) == 0)
        memory = mmap(nullptr, static_cast<size_t>(state.st_size), PROT_READ | PROT_WRITE,
                      MAP_SHARED, file, 0);
    if (file >= 0)
        close(file);
    if (memory == MAP_FAILED) {
        dprintf(STDERR_FILENO, "libvexo_replay: %s: %s\n", path ? path : PLAN_VARIABLE,
                path ? strerror(errno) : "is not set");
        _exit(WENT_ANOTHER_WAY);
    }
    plan = static_cast<Plan *>(memory);
    isForeign = plan->process != 0 && plan->process != static_cast<uint32_t>(getpid());
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&progress, &attributes);
    pthread_atfork(nullptr, nullptr, inChild);
}

// ---- The platform's functions ----

Answer ask(Index function, const Arguments &given)
{
    const Function &row = rowOf(function);
    pthread_mutex_lock(&lock);
    if (isForeign || !claim()) {
        if (!has(LOOKS))
            differ(DifferenceKind::process, NO_STEP, function, given);
        pthread_mutex_unlock(&lock);
        return refuse();
    }
    Answer answer{Answered::no, KV_FAILURE, nullptr};
    switch (kindOf(row)) {
    case StepKind::read:
        answer = read(function, given);
        break;
    case StepKind::text:
        answer = tell(function, given);
        break;
    case StepKind::service:
        answer = serve(function, given);
        break;
    default: {
        const Thing thing = thingOf(row, given.numbers);
        const uint32_t numbers[NUMBERS]{thing.type, thing.number};
        Queue *const queue = find(CHANGES_OF, numbers);
        if (has(LOOKS)) {
            failureText = "what is recorded can't be changed";
            answer = {Answered::no, KV_FAILURE, failureText};
        } else {
            answer =
                has(LOOSE) ? changeLoosely(queue, function, given) : change(queue, function, given);
        }
    }
    }
    pthread_mutex_unlock(&lock);
    return answer;
}

template <class Function>
Function *behind(Index function)
{
    static std::atomic<void *> found[describe::platform::FUNCTION_COUNT];
    auto &known = found[static_cast<size_t>(function)];
    if (!known)
        known = dlsym(RTLD_NEXT, rowOf(function).name);
    return reinterpret_cast<Function *>(known.load());
}

template <class T>
void keepHandler(Index, T)
{
}

template <class Given>
void keepHandler(Index function, void (*handler)(Given))
{
    services[serviceOf(rowOf(function))].handler = reinterpret_cast<void (*)()>(handler);
}

template <Index function, class Declaration>
struct Replayed;

template <Index function, class Result, class... Given>
struct Replayed<function, Result(Given...)> {
    static Result call(Given... given)
    {
        if constexpr (function == Index::alarm_process_notification ||
                      function == Index::pmom_process_notification) {
            return process(serviceOf(rowOf(function)));
        } else {
            (keepHandler(function, given), ...);
            const Answer answer = ask(function, Arguments{given...});
            if constexpr (std::is_pointer_v<Result>) {
                return answer.how == Answered::bySimulator
                           ? behind<Result(Given...)>(function)(given...)
                           : answer.text;
            } else {
                if (answer.how == Answered::bySimulator)
                    return behind<Result(Given...)>(function)(given...);
                // So that it is as the recording's device is by then.
                if (has(SIMULATED) && kindOf(rowOf(function)) == StepKind::change)
                    behind<Result(Given...)>(function)(given...);
                return static_cast<Result>(answer.result);
            }
        }
    }
};

// Whether it is the library that calls.
bool isLibrary(void *address)
{
    dl_find_object found;
    if (_dl_find_object(address, &found) != 0)
        return false;
    const char *const name = found.dlfo_link_map->l_name;
    const char *const slash = strrchr(name, '/');
    return strncmp(slash ? slash + 1 : name, LIBRARY, sizeof LIBRARY - 1) == 0;
}

} // namespace

#define EXPORT [[gnu::visibility("default")]]

extern "C" {

#define REPLAYED(library, kind, returns, function, ...)                                            \
    EXPORT PLATFORM_DEFINE((Replayed<Index::function, decltype(function)>::call), function,        \
                           __VA_ARGS__)
LIBRARY_FUNCTIONS(REPLAYED)

EXPORT int kv_log(int, int, const char *, const char *, int, const char *, ...)
{
    return 0;
}

EXPORT int settimeofday(const timeval *time, const struct timezone *zone) noexcept
{
    using Behind = int(const timeval *, const struct timezone *);
    if (!isLibrary(__builtin_return_address(0)))
        return behind<Behind>(Index::settimeofday)(time, zone);
    return static_cast<int>(ask(Index::settimeofday, Arguments{time}).result);
}

EXPORT int gettimeofday(timeval *time, void *zone) noexcept
{
    if (!isLibrary(__builtin_return_address(0)))
        return behind<int(timeval *, void *)>(Index::gettimeofday)(time, zone);
    const Answer answer = ask(Index::gettimeofday, Arguments{time});
    if (answer.how != Answered::bySimulator)
        return static_cast<int>(answer.result);
    constexpr uint64_t MICROSECONDS = 1000000;
    const auto clock = reinterpret_cast<uint64_t (*)()>(dlsym(RTLD_DEFAULT, "kv_sim_clock_get"));
    if (!clock)
        return -1;
    *time = {static_cast<time_t>(clock() / MICROSECONDS),
             static_cast<suseconds_t>(clock() % MICROSECONDS)};
    return 0;
}
}
