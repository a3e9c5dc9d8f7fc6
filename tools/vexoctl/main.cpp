#include "session.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

using namespace vexoctl;

// The library takes this from its host.
int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "vexoctl %s", VEXO_CMI_VERSION);
}

namespace
{

// A standard descriptor that is closed would be given to the device's file, which then would take
// what is printed.
void occupyStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

// A recording is a device for `vexotrace replay`, which runs this program again.
[[noreturn]] void lookInto(const std::string &recording, int argc, char **argv)
{
    namespace fs = std::filesystem;
    const fs::path self = fs::read_symlink("/proc/self/exe");
    std::string replayer = "vexotrace";
    for (const char *way : {REPLAYERS})
        if (const fs::path file = (self.parent_path() / way).lexically_normal(); fs::exists(file))
            replayer = file;
    const std::string program = self;
    std::vector<const char *> words{replayer.c_str(),  "replay", "--look",
                                    recording.c_str(), "--",     program.c_str()};
    constexpr std::string_view OPTION = "--device";
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == OPTION)
            ++i;
        else if (!word.starts_with(std::string{OPTION} + "="))
            words.push_back(argv[i]);
    }
    words.push_back(nullptr);
    setenv(RECORDING_VARIABLE, recording.c_str(), 1);
    execvp(words[0], const_cast<char **>(words.data()));
    const std::string why =
        errno == ENOENT ? "vexotrace is not installed, which reads recordings" : strerror(errno);
    fprintf(stderr, "vexoctl: --device trace:%s: %s\n", recording.c_str(), why.c_str());
    exit(USAGE);
}

Status run(Session &session, const std::string &device, const std::string &script,
           const Words &words)
{
    try {
        if (!device.empty())
            useDevice(device);
    } catch (const UsageError &error) {
        return session.refuse(error.what());
    }
    if (!words.empty() && !script.empty())
        return session.refuse("either a command or --script, not both");
    if (!words.empty())
        return session.execute(words);
    if (!script.empty())
        return session.script(script);
    return isatty(STDIN_FILENO) ? session.prompt() : session.script("-");
}

} // namespace

int main(int argc, char **argv)
{
    occupyStandardDescriptors();
    CLI::App app{
        "Looks into a TDM-over-packet gateway, and configures it, through the CMI library.\n"
        "Without a command it takes commands from standard input, with a prompt on a terminal.\n"
        "Exit status: 0 success, 1 the operation failed, 2 the command is wrong, 3 it took longer "
        "than\n"
        "--timeout, 4 what was waited for has not come, 5 it was interrupted and undone.",
        "vexoctl"};
    Manner manner;
    std::string device;
    std::string script;
    bool keepsGoing = false;
    bool atomic = false;
    addOptions(app, manner);
    app.add_option("--device", device,
                   "Simulated device's file, in place of KV_SIM_DEVICE; or a recording of a device")
        ->type_name("FILE|trace:FILE");
    app.add_option("--script", script, "Run the commands of a file ('-': standard input)")
        ->type_name("FILE");
    app.add_flag("--keep-going", keepsGoing, "Run a script to its end, and count what fails");
    app.add_flag("--atomic", atomic, "When a line of a script fails, undo those before it")
        ->excludes("--keep-going");
    app.set_version_flag("--version", "vexoctl " VEXO_CMI_VERSION);
    app.set_help_flag("-h,--help", "Print this or, behind a command, what it does and takes");
    app.footer("Commands ('help' tells more):\n"
               "  AREA OBJECT VERB name=value ...   one operation of the library\n"
               "  list, help, config, watch, wait, follow, metrics, exit, sim");
    app.allow_extras();
    // The words to be completed are not looked into.
    if (argc > 1 && strcmp(argv[1], "complete") == 0)
        return Session{{}}.execute(Words{argv + 1, argv + argc});
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &help) {
        Session session{manner};
        Words words = app.remaining();
        if (!words.empty()) {
            words.emplace_back("--help");
            return session.execute(words);
        }
        app.exit(help);
        return finish(SUCCESS);
    } catch (const CLI::Success &version) {
        app.exit(version);
        return finish(SUCCESS);
    } catch (const CLI::ParseError &error) {
        manner.json = std::find(argv, argv + argc, std::string{"--json"}) != argv + argc;
        return Session{manner}.refuse(error.what());
    }
    constexpr std::string_view RECORDING = "trace:";
    if (device.starts_with(RECORDING))
        lookInto(device.substr(RECORDING.size()), argc, argv);
    Words words = app.remaining();
    // Of a command it is the command's own.
    if (keepsGoing && !words.empty())
        words.emplace_back("--keep-going");
    Session session{manner};
    session.setKeepsGoing(keepsGoing);
    session.setAtomic(atomic);
    const bool isScript = words.empty() && (!script.empty() || !isatty(STDIN_FILENO));
    if (atomic && !isScript)
        return session.refuse("--atomic is for scripts only");
    const Status status = run(session, device, script, words);
    if (isCallHanging())
        _exit(status);
    return status;
}
