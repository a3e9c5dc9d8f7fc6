// vexotrace-sweep: what `vexotrace sweep` becomes, with the recorder's library before its
// arguments.
#include "report.h"
#include "sweep.h"

#include <command_line.h>
#include <simulator.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace sweep;
namespace fs = std::filesystem;

// What the library takes from the software that hosts it.
extern "C" int gorvGetVersion(char *buffer, int size)
{
    const int length = snprintf(buffer, static_cast<size_t>(size), "vexotrace " VEXO_CMI_VERSION);
    return length < size ? 0 : -1;
}

namespace
{

enum Status { GOOD = 0, BAD = 1, TROUBLE = 2 };

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

struct Given {
    Options options;
    std::string effects;
    std::string shard;
    std::vector<std::string> merge;
    bool json = false;
    bool tap = false;
    std::string junit;
};

void declare(CLI::App &app, Given &given)
{
    Options &options = given.options;
    std::string names;
    for (const Effect &effect : effects())
        names += (names.empty() ? "" : ", ") + std::string{effect.name};
    const CLI::Validator something{
        [](const std::string &text) { return text.empty() ? "is empty" : ""; }, ""};
    app.set_help_flag("-h,--help", "Print this");
    app.add_option("--effects", given.effects,
                   "What befalls each point, with commas, of " + names +
                       "; or all (code,lost,hang,drop)")
        ->type_name("LIST")
        ->check(something);
    app.add_option("--points", options.points,
                   "Only where the point, its function or operation has such a name, as 'pwe_*'")
        ->type_name("GLOB")
        ->check(something);
    app.add_option("--check", options.task.check,
                   "Is to succeed, with the device named, after a run")
        ->type_name("COMMAND");
    app.add_option("--until", options.task.agent.until,
                   "Tell the agent to end when this succeeds (when it calls nothing any more)")
        ->type_name("COMMAND");
    app.add_option("--idle", options.task.agent.idle, "How long it calls nothing then (20)")
        ->type_name("MS")
        ->check(between(1, 60000));
    app.add_option("--timeout", options.timeout,
                   "After which a run hangs (ten times what it takes without a fault, at least 5)")
        ->type_name("SECONDS")
        ->check(between(0.01, 86400));
    app.add_option("--jobs", options.jobs, "How many runs at once (one for each processor)")
        ->type_name("N")
        ->check(between(1, 1024));
    app.add_option("--depth", options.depth,
                   "How many faults a run has: those met while it recovers from others, too (1)")
        ->type_name("N")
        ->check(between(1, 8));
    app.add_option("--only", options.only, "Only the fault with this ID")
        ->type_name("ID")
        ->check(something);
    app.add_option("--resume", options.resume,
                   "Keep in this file what has been judged, and go on from there")
        ->type_name("FILE")
        ->check(something);
    app.add_option("--shard", given.shard, "Only every N-th fault, from the I-th on")
        ->type_name("I/N")
        ->check(something);
    CLI::Option *const merge =
        app.add_option("--merge", given.merge, "Join the JSON reports of a sweep's shards into one")
            ->type_name("FILE...");
    CLI::Option *const json = app.add_flag("--json", given.json, "A JSON document");
    app.add_option("--junit", given.junit, "Write it as JUnit does, too")
        ->type_name("FILE")
        ->check(something);
    app.add_flag("--tap", given.tap, "As the Test Anything Protocol has it")->excludes(json);
    app.add_option("command", options.task.agent.command, "The command, behind --")
        ->type_name("COMMAND...");
    for (CLI::Option *option : app.get_options())
        if (option != merge && option != app.get_help_ptr() && option != json &&
            !option->check_name("--junit") && !option->check_name("--tap"))
            merge->excludes(option);
    app.positionals_at_end();
}

void readEffects(Given &given)
{
    std::set<std::string> names;
    std::istringstream stream{given.effects};
    for (std::string name; std::getline(stream, name, ',');) {
        if (name != "all" && std::ranges::find(effects(), name, &Effect::name) == effects().end())
            throw Trouble("--effects: there is no '" + name + "'");
        names.insert(name);
    }
    // An ID names its effect itself.
    const bool all = names.contains("all") || (names.empty() && !given.options.only.empty());
    for (const Effect &effect : effects())
        if (all || (names.empty() ? effect.isDefault : names.contains(effect.name)))
            given.options.task.effects.push_back(&effect);
}

void readShard(Given &given)
{
    Options &options = given.options;
    char more = 0;
    if (!given.shard.empty() &&
        (sscanf(given.shard.c_str(), "%u/%u%c", &options.shard, &options.shards, &more) != 2 ||
         options.shard < 1 || options.shard > options.shards))
        throw Trouble("--shard: is to be I/N, from 1/N to N/N, not " + given.shard);
}

// Before a sweep that may take hours, and so that a word too many costs nobody a file.
void checkJunit(const std::string &file)
{
    const fs::path path{file}, folder = path.has_parent_path() ? path.parent_path() : ".";
    if (fs::is_directory(path))
        throw Trouble(file + ": " + strerror(EISDIR));
    if (access((fs::exists(path) ? path : folder).c_str(), W_OK) != 0)
        throw Trouble(file + ": " + strerror(errno));
    if (!fs::is_regular_file(path))
        return;
    std::ifstream stream{file};
    const std::string text{std::istreambuf_iterator{stream}, {}};
    if (!text.empty() && (text[0] != '<' || text.find("<testsuite") == text.npos))
        throw Trouble("--junit: " + file + " is another file than a report, and stays as it is");
}

int write(const Given &given, const Report &report)
{
    const auto &entries = report.entries;
    const std::string text =
        given.json  ? toJson(report).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"
        : given.tap ? asTap(entries)
                    : asText(entries);
    fputs(text.c_str(), stdout);
    if (fflush(stdout) != 0)
        throw Trouble("the report can't be written");
    if (!given.junit.empty()) {
        std::ofstream stream{given.junit};
        if (!(stream << asJunit(entries) << std::flush))
            throw Trouble(given.junit + ": can't be written");
    }
    return isGood(entries) ? GOOD : BAD;
}

int merge(const Given &given)
{
    std::vector<std::string> notes;
    const Report whole = merged(given.merge, notes);
    for (const std::string &note : notes)
        fprintf(stderr, "vexotrace sweep: %s\n", note.c_str());
    return write(given, whole);
}

template <class Work>
int guarded(Work work)
{
    try {
        return work();
    } catch (const std::exception &error) {
        fprintf(stderr, "vexotrace sweep: %s\n", error.what());
        return TROUBLE;
    }
}

// In memory where there is room, since a device for each run would keep a disk busy.
fs::path folderFor(unsigned jobs)
{
    constexpr uint64_t RECORDINGS = 64 << 20, RUN = 8 << 20;
    fs::path memory = "/dev/shm";
    std::error_code error;
    const bool fits = fs::space(memory, error).available >= RECORDINGS + jobs * RUN && !error;
    const char *chosen = getenv("TMPDIR");
    if (!chosen && fits && access(memory.c_str(), W_OK) == 0)
        return memory;
    fs::path folder = fs::temp_directory_path(error);
    if (folder.empty())
        throw Trouble(std::string{"TMPDIR, "} + (chosen ? chosen : "/tmp") + ": " +
                      error.message());
    return folder;
}

// Runs it in a process of its own, so that of the two, one cleans up after whichever is killed.
int runWatched(Given &given)
{
    std::string folder = folderFor(given.options.jobs) / "vexotrace-XXXXXX";
    if (!mkdtemp(folder.data()))
        throw Trouble(folder + ": " + strerror(errno));
    given.options.folder = folder;
    const auto cleanUp = [&] {
        killAll();
        removeAll(folder);
    };
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : SIGNALS)
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    given.options.signals = signalfd(-1, &signals, SFD_CLOEXEC);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t guard = getpid();
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        setpgid(0, 0);
        const int status = guarded([&] {
            if (getppid() != guard)
                throw Trouble("interrupted");
            return write(given, sweep::sweep(given.options));
        });
        cleanUp();
        _exit(status);
    }
    int status = 0;
    sigaddset(&signals, SIGCHLD);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    while (process > 0 && waitpid(process, &status, WNOHANG) == 0)
        if (const int signal = sigwaitinfo(&signals, nullptr); signal > 0 && signal != SIGCHLD)
            kill(process, signal);
    cleanUp();
    if (process < 0 || !WIFEXITED(status))
        throw Trouble("ended from outside");
    return WEXITSTATUS(status);
}

int run(int argc, char **argv)
{
    Given given;
    CLI::App app{"Runs a command on a simulated device of its own; then once for each call of the "
                 "platform's\nthat it has made, with that call failing, and tells what came of it.",
                 "vexotrace sweep"};
    declare(app, given);
    given.options.task.agent.recorder = argc > 1 ? argv[1] : "";
    given.options.jobs = std::max(1U, std::thread::hardware_concurrency());
    try {
        app.parse(argc - 1, argv + 1);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        fprintf(stderr, "vexotrace sweep: %s\n", reasonOf(app, error).c_str());
        return TROUBLE;
    }
    return guarded([&] {
        if (!given.junit.empty())
            checkJunit(given.junit);
        if (!given.merge.empty())
            return merge(given);
        if (given.options.task.agent.command.empty())
            throw Trouble("there is no command, behind --");
        if (!SIM(kv_sim_open))
            throw Trouble("the simulated device isn't there: the platform is another one");
        readEffects(given);
        readShard(given);
        given.options.depth =
            std::max(given.options.depth,
                     static_cast<unsigned>(std::ranges::count(given.options.only, '+')) + 1);
        return runWatched(given);
    });
}

} // namespace

int main(int argc, char **argv)
{
    return run(argc, argv);
}
