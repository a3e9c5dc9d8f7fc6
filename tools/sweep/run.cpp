#include "run.h"

#include <file.h>
#include <simulator.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep
{

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace
{

constexpr size_t MOST_OUTPUT = 1 << 20; // what comes after is passed over
constexpr uint32_t RECORDING_SIZE = 16 << 20;
// Whoever has not ended by then, and calls nothing, doesn't end by itself.
constexpr milliseconds PATIENCE{2000};
constexpr milliseconds TICK{2};

Clock::duration durationOf(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>{seconds});
}

std::vector<pid_t> childrenOf(const fs::path &process)
{
    std::vector<pid_t> children;
    std::error_code error;
    for (const auto &task : fs::directory_iterator{process / "task", error}) {
        std::ifstream stream{task.path() / "children"};
        for (pid_t child; stream >> child;)
            children.push_back(child);
    }
    return children;
}

// Whether a thread of these processes, or of those that they have started, runs or waits for its
// turn: a machine that is busy must not make an agent look idle.
bool isBusy(const std::vector<pid_t> &processes)
{
    return std::ranges::any_of(processes, [](pid_t process) {
        const fs::path folder = "/proc/" + std::to_string(process);
        std::error_code error;
        for (const auto &task : fs::directory_iterator{folder / "task", error}) {
            std::ifstream stream{task.path() / "stat"};
            std::string text;
            std::getline(stream, text);
            const size_t name = text.rfind(')');
            if (name != text.npos && name + 2 < text.size() &&
                (text[name + 2] == 'R' || text[name + 2] == 'D'))
                return true;
        }
        return isBusy(childrenOf(folder));
    });
}

void set(const char *variable, const std::string &value)
{
    if (value.empty())
        unsetenv(variable);
    else
        setenv(variable, value.c_str(), 1);
}

void prepend(const char *variable, const std::string &path)
{
    const char *others = getenv(variable);
    set(variable, path + (others && *others ? std::string{":"} + others : ""));
}

void setEnvironment(const Agent &agent, const Order &order)
{
    set(trace::DEVICE_VARIABLE, order.device());
    set("TMPDIR", order.temporary());
    if (order.records)
        prepend("LD_PRELOAD", agent.recorder);
    set(trace::FILE_VARIABLE, order.records ? order.recording() : "");
    set(trace::SIZE_VARIABLE, std::to_string(RECORDING_SIZE));
    for (const char *other :
         {trace::SNAPSHOT_VARIABLE, trace::REDACT_VARIABLE, trace::SESSION_VARIABLE})
        unsetenv(other);
}

// Starts it in a session of its own, without an input; `output` -1: nobody reads what it writes.
pid_t start(const std::vector<std::string> &command, const Agent &agent, const Order &order,
            int output)
{
    int failed[2];
    if (pipe2(failed, O_CLOEXEC) != 0)
        throw Trouble(std::string{"no pipe: "} + strerror(errno));
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(EXIT_FAILURE);
        setsid();
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        signal(SIGPIPE, SIG_DFL);
        mkdir(order.temporary().c_str(), 0700);
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDIN_FILENO);
        dup2(output < 0 ? null : output, STDOUT_FILENO);
        dup2(output < 0 ? null : output, STDERR_FILENO);
        setEnvironment(agent, order);
        std::vector<char *> words;
        words.reserve(command.size() + 1);
        for (const std::string &word : command)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        execvp(words[0], words.data());
        const int why = errno;
        static_cast<void>(!write(failed[1], &why, sizeof why));
        _exit(EXIT_FAILURE);
    }
    close(failed[1]);
    int why = process < 0 ? errno : 0;
    static_cast<void>(!read(failed[0], &why, sizeof why));
    close(failed[0]);
    if (why)
        throw Trouble(command[0] + ": " + strerror(why));
    return process;
}

std::vector<std::string> shell(const std::string &command)
{
    return {"sh", "-c", command};
}

// A descriptor that is closed at the end.
struct Descriptor {
    int number;
    explicit Descriptor(int opened) : number{opened} {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    void reset()
    {
        if (number >= 0)
            close(number);
        number = -1;
    }
};

bool isCrash(int status)
{
    constexpr int CRASHES[] = {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP};
    constexpr int SHELLS = 128; // and the signal that the last command ended by
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status) - SHELLS;
    return std::ranges::find(CRASHES, signal) != std::end(CRASHES);
}

class Running
{
  public:
    Running(const Agent &agent, const Order &order) : agent_{agent}, order_{order}
    {
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        sigprocmask(SIG_BLOCK, &child, nullptr);
        children_.number = signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);
        int ends[2];
        if (children_.number < 0 || pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            throw Trouble(std::string{"no descriptors: "} + strerror(errno));
        output_.number = ends[0];
        Descriptor input{ends[1]};
        fcntl(ends[1], F_SETFL, 0);
        called_ = SIM(kv_sim_journal_last)();
        process_ = start(agent.command, agent, order, ends[1]);
    }

    Ran wait()
    {
        const auto patience = durationOf(order_.seconds);
        const auto holds = durationOf(order_.holds.value_or(order_.seconds));
        bool releases = order_.holds.has_value();
        auto deadline = begin_ + holds;
        while (!hasEnded()) {
            const auto now = Clock::now();
            if (now >= deadline && releases) {
                SIM(kv_sim_fault_clear)();
                releases = false;
            } else if (now >= deadline) {
                ran_.hung = true;
                break;
            } else if (!ran_.wasTold && isDone()) {
                tell();
            } else {
                pause(deadline);
                continue;
            }
            deadline = Clock::now() + (releases ? holds : patience);
        }
        ran_.seconds = std::chrono::duration<double>{Clock::now() - begin_}.count();
        killAll();
        drain();
        return std::move(ran_);
    }

  private:
    bool hasEnded()
    {
        drain();
        reap();
        return !hasChildren_;
    }

    void pause(Clock::time_point deadline)
    {
        const bool looks = !ran_.wasTold && !order_.ends.value_or(false);
        const auto left =
            std::max(milliseconds{0}, std::chrono::ceil<milliseconds>(deadline - Clock::now()));
        pollfd descriptors[] = {{children_.number, POLLIN, 0}, {output_.number, POLLIN, 0}};
        poll(descriptors, output_.number < 0 ? 1 : 2,
             static_cast<int>((looks ? std::min(left, TICK) : left).count()));
    }

    void drain()
    {
        char part[4096];
        ssize_t count = 0;
        while (output_.number >= 0 && (count = read(output_.number, part, sizeof part)) > 0)
            if (ran_.output.size() < MOST_OUTPUT)
                ran_.output.append(part, static_cast<size_t>(count));
        if (count == 0)
            output_.reset();
    }

    void reap()
    {
        signalfd_siginfo info;
        while (read(children_.number, &info, sizeof info) > 0) {
        }
        int status;
        pid_t ended;
        while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
            if (ended == until_) {
                until_ = 0;
                untilSucceeded_ = WIFEXITED(status) && WEXITSTATUS(status) == 0;
                continue;
            }
            ran_.crashed |= isCrash(status);
            if (ended != process_)
                continue;
            ran_.crashed |= WIFSIGNALED(status) && !ran_.wasTold;
            process_ = 0;
            ran_.end = WIFSIGNALED(status)
                           ? std::string{"signal "} + std::to_string(WTERMSIG(status))
                           : "status " + std::to_string(WEXITSTATUS(status));
            if (until_)
                kill(-until_, SIGKILL);
        }
        hasChildren_ = ended == 0;
    }

    // Whether the agent has done what it does, and now waits.
    bool isDone()
    {
        if (order_.ends.value_or(false))
            return false;
        if (agent_.until.empty())
            return isIdle() && (order_.ends || Clock::now() - begin_ >= PATIENCE);
        if (untilSucceeded_)
            return true;
        if (!until_ && process_ && Clock::now() >= nextUntil_) {
            until_ = start(shell(agent_.until), agent_, {order_.folder, false, 0, {}}, -1);
            nextUntil_ = Clock::now() + milliseconds{agent_.idle};
        }
        return false;
    }

    bool isIdle()
    {
        const uint64_t called = SIM(kv_sim_journal_last)();
        const auto now = Clock::now();
        if (called != called_ || isWorking()) {
            hasCalled_ |= called != called_;
            called_ = called;
            quietSince_ = now;
        }
        if (!hasCalled_ || now - quietSince_ < milliseconds{agent_.idle})
            return false;
        if (!isBusy(childrenOf("/proc/self")))
            return true;
        quietSince_ = now;
        return false;
    }

    // Whether something is under way that has called, or will: a call that has not returned, a
    // notification that nobody has dealt with or that a fault keeps.
    bool isWorking() const
    {
        uint32_t waiting = 0;
        uint64_t lost;
        SIM(kv_sim_pending)(&waiting, &lost);
        kvSimFault fault;
        for (unsigned i = 0; SIM(kv_sim_fault_get)(i, &fault) == 0; ++i)
            waiting += fault.waiting;
        constexpr uint64_t MOST_THREADS = 64;
        kvSimCall call;
        const uint64_t last = called_;
        for (uint64_t n = last; n > 0 && n + MOST_THREADS > last && !waiting; --n)
            waiting += SIM(kv_sim_journal_get)(n, &call) == 0 && call.pending;
        return waiting > 0;
    }

    void tell()
    {
        ran_.wasTold = true;
        if (until_)
            kill(-until_, SIGKILL);
        if (process_)
            kill(-process_, SIGTERM);
        for (const pid_t child : childrenOf("/proc/self"))
            if (child != process_ && child != until_)
                kill(child, SIGTERM);
    }

    const Agent &agent_;
    const Order &order_;
    Descriptor children_{-1}, output_{-1};
    pid_t process_ = 0, until_ = 0;
    bool hasChildren_ = true, untilSucceeded_ = false, hasCalled_ = false;
    uint64_t called_ = 0;
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point quietSince_{}, nextUntil_{};
    Ran ran_{"", false, false, false, "", 0};
};

} // namespace

Ran run(const Agent &agent, const Order &order)
{
    return Running{agent, order}.wait();
}

Ran runShell(const std::string &command, const Order &order)
{
    Agent checker;
    checker.command = shell(command);
    Order plain = order;
    plain.records = false;
    plain.holds.reset();
    plain.ends = true;
    return Running{checker, plain}.wait();
}

bool succeeded(const Ran &ran)
{
    return !ran.hung && ran.end == "status 0";
}

void killAll()
{
    for (;;) {
        for (const pid_t child : childrenOf("/proc/self"))
            kill(child, SIGKILL);
        if (waitpid(-1, nullptr, 0) < 0 && errno == ECHILD)
            return;
    }
}

void removeAll(const std::string &folder)
{
    std::error_code error;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, error);
    for (const auto &entry : fs::directory_iterator{folder, error})
        if (entry.symlink_status(error).type() == fs::file_type::directory)
            removeAll(entry.path());
    fs::remove_all(folder, error);
}

} // namespace sweep
