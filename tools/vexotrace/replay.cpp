#include "commands.h"
#include "replay_plan.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vexotrace
{

namespace fs = std::filesystem;

using trace::Call;
using trace::Content;
using trace::Difference;
using trace::DifferenceKind;
using trace::NO_STEP;
using trace::Plan;
using trace::Recording;
using trace::Step;
using trace::StepKind;

namespace
{

constexpr uint64_t MILLISECOND = 1000000, SECOND = 1000 * MILLISECOND;

// Removed at the end.
class TemporaryFile
{
  public:
    explicit TemporaryFile(std::span<const uint8_t> bytes)
    {
        const char *folder = getenv("TMPDIR");
        name_ = std::string{folder && *folder ? folder : "/tmp"} + "/vexotrace.XXXXXX";
        const int file = mkostemp(name_.data(), O_CLOEXEC);
        if (file < 0)
            throw UsageError(name_ + ": " + strerror(errno));
        while (!bytes.empty()) {
            const ssize_t written = write(file, bytes.data(), bytes.size());
            if (written < 0) {
                const std::string why = strerror(errno);
                close(file);
                unlink(name_.c_str());
                throw UsageError(name_ + ": " + why);
            }
            bytes = bytes.subspan(static_cast<size_t>(written));
        }
        close(file);
    }
    ~TemporaryFile() { unlink(name_.c_str()); }
    TemporaryFile(const TemporaryFile &) = delete;

    const std::string &name() const { return name_; }

  private:
    std::string name_;
};

Plan &mapped(const std::string &name)
{
    const int file = open(name.c_str(), O_RDWR | O_CLOEXEC);
    const auto size = static_cast<size_t>(fs::file_size(name));
    void *const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    const std::string why = strerror(errno);
    close(file);
    if (memory == MAP_FAILED)
        throw UsageError(name + ": " + why);
    return *static_cast<Plan *>(memory);
}

uint64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * SECOND + static_cast<uint64_t>(time.tv_nsec);
}

// ---- What was different, in words ----

class Report
{
  public:
    Report(std::string file, const Recording &recording, Plan &plan)
        : file_{std::move(file)}, recording_{recording}, plan_{plan}
    {
    }

    void print(const Difference &difference) const
    {
        const Step *const expected =
            difference.expected == NO_STEP ? nullptr : &plan_.step(difference.expected);
        if (difference.kind != DifferenceKind::missing)
            say(headline(difference));
        if (expected)
            line("expected", textOf(*expected));
        else
            line("expected", "no more such calls: the recording has none");
        const trace::Function *const function = functionOf(difference);
        if (difference.kind == DifferenceKind::missing) {
            line("actual", "none came");
        } else if (!function) {
            line("actual", describe::platform::functions()[difference.function].name);
        } else {
            const Content actual = contentOf(*function, difference);
            line("actual", askedOf(*function, actual, trace::Detail::usual));
            if (expected && expected->function == difference.function)
                printFields(*function, recording_.content(callOf(*expected)), actual);
        }
        for (const uint32_t before : difference.before)
            if (before != NO_STEP)
                line("before", shortened(textOf(plan_.step(before))));
        if (function && difference.kind != DifferenceKind::missing)
            printLater(difference, *function);
    }

    // What did not come, if anything: the first of it.
    bool printMissing(const std::string &why) const
    {
        Difference missing{};
        uint32_t count = 0;
        for (uint32_t i = plan_.stepCount; i-- > 0;)
            if (isNeeded(plan_.step(i))) {
                missing.expected = i;
                ++count;
            }
        if (count == 0)
            return false;
        missing.kind = DifferenceKind::missing;
        missing.function = plan_.step(missing.expected).function;
        std::ranges::fill(missing.before, NO_STEP);
        missing.before[0] = plan_.latest;
        say(why + ", and this had not come" +
            (count == 1 ? "" : ", nor " + std::to_string(count - 1) + " more") + ":");
        print(missing);
        return true;
    }

    void say(const std::string &text) const
    {
        fprintf(stderr, "vexotrace: %s: %s\n", file_.c_str(), text.c_str());
    }

    // What the command has to do, for the recording to be at its end.
    bool isNeeded(const Step &step) const
    {
        const auto &row = describe::platform::functions()[step.function];
        return !step.done &&
               (step.kind == StepKind::change || (step.kind == StepKind::read && !step.repeats) ||
                (step.kind == StepKind::event && step.result == KV_OK) ||
                (step.kind == StepKind::service &&
                 row.returns != describe::platform::Returns::descriptor));
    }

  private:
    static void line(const char *what, const std::string &text)
    {
        fprintf(stderr, "  %-9s %s\n", what, text.c_str());
    }

    // The begin and the end.
    static std::string shortened(const std::string &text)
    {
        constexpr size_t MOST = 120;
        return text.size() <= MOST
                   ? text
                   : text.substr(0, MOST / 2) + "..." + text.substr(text.size() - MOST / 2);
    }

    const Call &callOf(const Step &step) const { return recording_.calls()[step.call]; }

    std::string textOf(const Step &step) const
    {
        const Call &call = callOf(step);
        const trace::Function &function = recording_.functionOf(call);
        std::string text = lineOf(recording_, call, trace::Detail::steady);
        if (step.kind != StepKind::event)
            text = askedOf(function, recording_.content(call), trace::Detail::usual);
        text += "  at " + timeText(recording_.timeOf(call.begin));
        for (uint32_t i = call.parent; i != trace::NONE; i = recording_.calls()[i].parent) {
            const trace::Function &around = recording_.functionOf(recording_.calls()[i]);
            if (around.layer == trace::Layer::operation)
                return text + " in " + std::string{around.shortName()};
        }
        return text;
    }

    std::string headline(const Difference &difference) const
    {
        const char *const name = describe::platform::functions()[difference.function].name;
        if (difference.kind == DifferenceKind::process)
            return "another process called " + std::string{name} +
                   ": each has a recording of its own";
        return "the command went another way after " + std::to_string(difference.answered) +
               " calls, in thread " + std::to_string(difference.thread) + ":";
    }

    const trace::Function *functionOf(const Difference &difference) const
    {
        const char *const name = describe::platform::functions()[difference.function].name;
        const auto found = std::ranges::find(recording_.functions(), name, &trace::Function::name);
        return found == recording_.functions().end() ? nullptr : &*found;
    }

    static void printFields(const trace::Function &function, const Content &expected,
                            const Content &actual)
    {
        for (size_t i = 0; i < function.arguments.size(); ++i) {
            const trace::Argument &argument = function.arguments[i];
            if (argument.output || argument.changes)
                continue;
            const auto values = [&](const Content &content) {
                return valuesOf(argument.name, toJson(argument, content.arguments[i]));
            };
            const auto was = values(expected), is = values(actual);
            for (const auto &[name, value] : is) {
                const auto same = std::ranges::find(was, name, [](auto &one) { return one.first; });
                if (same == was.end())
                    line("field", name + ": " + value + " in place of none");
                else if (same->second != value)
                    line("field", name + ": " + value + " in place of " + same->second);
            }
            for (const auto &[name, value] : was)
                if (std::ranges::find(is, name, [](auto &one) { return one.first; }) == is.end())
                    line("field", name + ": none in place of " + value);
        }
    }

    void printLater(const Difference &difference, const trace::Function &function) const
    {
        const uint32_t from = difference.expected != NO_STEP    ? difference.expected + 1
                              : difference.before[0] != NO_STEP ? difference.before[0] + 1
                                                                : 0;
        const std::string wanted =
            askedOf(function, contentOf(function, difference), trace::Detail::steady);
        for (uint32_t i = from; i < plan_.stepCount; ++i) {
            const Step &step = plan_.step(i);
            if (step.function == difference.function && step.kind != StepKind::event &&
                askedOf(function, recording_.content(callOf(step)), trace::Detail::steady) ==
                    wanted) {
                line("later", "the same call comes " + std::to_string(i - from + 1) +
                                  " calls later: " + textOf(step));
                return;
            }
        }
    }

    const std::string file_;
    const Recording &recording_;
    Plan &plan_;
};

// ---- The command ----

constexpr int FORWARDED[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};

// What of its environment is the replay's.
[[noreturn]] void start(const ReplayOptions &options, const std::string &plan,
                        const std::string &device)
{
    setenv(trace::PLAN_VARIABLE, plan.c_str(), 1);
    if (device.empty())
        unsetenv(trace::DEVICE_VARIABLE);
    else
        setenv(trace::DEVICE_VARIABLE, device.c_str(), 1);
    // So that nothing of a real platform is touched, nor needed.
    if (const std::string simulator = beside({SIMULATORS}); !simulator.empty())
        prepend("LD_LIBRARY_PATH", fs::path{simulator}.parent_path());
    prepend("LD_PRELOAD", preloaded({REPLAYERS}, "replays"));
    _exit(become(options.command));
}

bool isThere(pid_t process)
{
    return process > 0 && (kill(process, 0) == 0 || errno == EPERM);
}

// Whether it handles SIGTERM, or waits for it: a thread that does the latter is seen to block it
// only until then, but has others, the library's, that do.
bool endsWhenTold(pid_t process)
{
    constexpr uint64_t TERM = uint64_t{1} << (SIGTERM - 1);
    uint64_t handled = 0;
    std::error_code error;
    for (const auto &task :
         fs::directory_iterator{"/proc/" + std::to_string(process) + "/task", error}) {
        std::ifstream status{task.path() / "status"};
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("SigBlk:") || line.starts_with("SigCgt:"))
                handled |= strtoull(line.c_str() + 7, nullptr, 16);
    }
    return (handled & TERM) != 0;
}

class Watch
{
  public:
    Watch(const ReplayOptions &options, Plan &plan, const Report &report)
        : options_{options}, plan_{plan}, report_{report}
    {
        // A daemon outlives the process that started it.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGCHLD);
        for (const int signal : FORWARDED)
            sigaddset(&signals_, signal);
        sigprocmask(SIG_BLOCK, &signals_, &before_);
    }

    // The command's exit status, as a shell has it.
    int run(const std::string &plan, const std::string &device)
    {
        child_ = fork();
        if (child_ < 0)
            throw UsageError(std::string{"fork(): "} + strerror(errno));
        if (child_ == 0) {
            sigprocmask(SIG_SETMASK, &before_, nullptr);
            start(options_, plan, device);
        }
        constexpr timespec TURN{0, 50 * MILLISECOND};
        while (!hasEnded()) {
            siginfo_t info;
            const int signal = sigtimedwait(&signals_, &info, &TURN);
            // The terminal's go to the command, too.
            if (signal > 0 && signal != SIGCHLD && info.si_code != SI_KERNEL)
                kill(process(), signal);
            look();
        }
        if (WIFSIGNALED(status_))
            return 128 + WTERMSIG(status_);
        return WEXITSTATUS(status_);
    }

  private:
    pid_t process() const
    {
        const auto follower = static_cast<pid_t>(plan_.process.load());
        return isThere(follower) ? follower : child_;
    }

    bool hasEnded()
    {
        int status;
        pid_t ended;
        while ((ended = waitpid(-1, &status, WNOHANG)) > 0)
            if (ended == child_) {
                status_ = status;
                childEnded_ = true;
            }
        // A daemon may not have called yet.
        const auto follower = static_cast<pid_t>(plan_.process.load());
        const bool isLeft = follower == 0 ? ended == 0 : isThere(follower);
        return childEnded_ && !isLeft;
    }

    // Whether it is at the end, or stuck.
    void look()
    {
        const uint64_t answered = plan_.answered;
        if (answered != answered_ || answered == 0) {
            answered_ = answered;
            since_ = now();
            return;
        }
        if (options_.looks)
            return;
        if (plan_.differenceCount > 0 && !options_.goesOn)
            kill(process(), SIGKILL); // it was another process that differed
        const uint64_t quiet = now() - since_;
        constexpr uint64_t SHORT = 500 * MILLISECOND, LONG = 10 * SECOND;
        if (quiet < SHORT || told_ || plan_.subscribed == 0)
            return;
        const Step *next = nullptr, *needed = nullptr;
        for (uint32_t i = 0; i < plan_.stepCount && !needed; ++i) {
            const Step &step = plan_.step(i);
            if (!next && !step.done && step.kind != StepKind::text &&
                step.kind != StepKind::service)
                next = &step;
            if (report_.isNeeded(step))
                needed = &step;
        }
        bool waits = false;
        for (const uint32_t events : plan_.events)
            waits |= plan_.queue(events).at != NO_STEP;
        // What took its time then may do so now.
        const uint32_t latest = plan_.latest;
        const uint64_t gap = next && latest != NO_STEP && next->clock > plan_.step(latest).clock
                                 ? 2 * (next->clock - plan_.step(latest).clock)
                                 : 0;
        // Where something else comes first it may be about to do that by itself.
        const bool isAtEnd = !needed || isUnsubscribing(*needed);
        if (!waits && quiet >= (isAtEnd ? SHORT : LONG) + gap && endsWhenTold(process())) {
            told_ = true;
            kill(process(), SIGTERM);
        } else if (!isAtEnd && waits && !options_.isLoose && quiet >= LONG + gap) {
            told_ = true;
            report_.say("the command waits for a notification that comes after what it has not "
                        "done; it is ended");
            kill(process(), SIGKILL);
        }
    }

    static bool isUnsubscribing(const Step &step)
    {
        return step.kind == StepKind::service &&
               strstr(describe::platform::functions()[step.function].name, "_unsubscribe");
    }

    const ReplayOptions &options_;
    Plan &plan_;
    const Report &report_;
    sigset_t signals_, before_;
    pid_t child_ = 0;
    bool childEnded_ = false;
    int status_ = 0;
    uint64_t answered_ = 0, since_ = now();
    bool told_ = false; // to end
};

uint32_t flagsOf(const ReplayOptions &options, const Recording &recording)
{
    return (options.goesOn ? trace::CONTINUES : 0U) | (options.isLoose ? trace::LOOSE : 0U) |
           (options.looks ? trace::LOOKS : 0U) |
           (recording.snapshot().empty() ? 0U : trace::SIMULATED) |
           (recording.has(trace::REDACTED) ? trace::STAND_INS : 0U) |
           (recording.has(trace::ENDED) ? 0U : trace::CUT);
}

} // namespace

int replay(const ReplayOptions &options)
{
    const Recording recording{options.file};
    if (recording.head().droppedEvents && !options.isLoose && !options.looks)
        throw UsageError(options.file + ": its oldest calls were dropped, so it does not begin "
                                        "where the command does; --loose replays what is there");
    if (!options.looks)
        warn(options.file, recording);
    const TemporaryFile plan{planOf(recording, flagsOf(options, recording))};
    std::optional<TemporaryFile> device;
    if (!recording.snapshot().empty())
        device.emplace(recording.snapshot());
    Plan &followed = mapped(plan.name());
    const Report report{options.file, recording, followed};
    const int status =
        Watch{options, followed, report}.run(plan.name(), device ? device->name() : "");
    if (options.looks)
        return status;

    const uint32_t count = followed.differenceCount;
    const uint32_t kept = std::min(count, trace::KEPT_DIFFERENCES);
    for (uint32_t i = 0; i < kept; ++i)
        report.print(followed.differences[i]);
    bool isSame = count == 0;
    if (!options.isLoose && (count == 0 || options.goesOn) &&
        report.printMissing("the command has ended"))
        isSame = false;
    if (followed.process == 0 && followed.stepCount > 0 && count == 0) {
        report.say("the command called nothing of the platform's");
        isSame = false;
    }
    if (options.goesOn)
        report.say(std::to_string(count) + (count == 1 ? " difference in " : " differences in ") +
                   std::to_string(followed.answered) + " calls");
    return isSame ? status : trace::WENT_ANOTHER_WAY;
}

} // namespace vexotrace
