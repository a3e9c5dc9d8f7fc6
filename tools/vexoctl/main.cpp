#include "session.h"

#include <gorv.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include <unistd.h>

using namespace vexoctl;

// The library takes this from its host.
int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "vexoctl %s", VEXO_CMI_VERSION);
}

namespace
{

Status runScript(Session &session, const std::string &file)
{
    session.setCompact(true);
    if (file == "-")
        return session.script(std::cin);
    std::ifstream stream{file};
    if (!stream) {
        std::cerr << "vexoctl: cannot read " << file << ": " << strerror(errno) << std::endl;
        return USAGE;
    }
    return session.script(stream);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{
        "Looks into a TDM-over-packet gateway, and configures it, through the CMI library.\n"
        "Without a command it takes commands from standard input, with a prompt on a "
        "terminal.\nExit status: 0 success, 1 the operation failed, 2 the command is wrong.",
        "vexoctl"};
    bool json = false;
    std::string device;
    std::string scriptFile;
    app.add_flag("--json", json, "Print one JSON document per command");
    app.add_option("--device", device, "File of the simulated device")->type_name("FILE");
    app.add_option("--script", scriptFile, "Run the commands of a file ('-': standard input)")
        ->type_name("FILE");
    app.set_version_flag("--version", "vexoctl " VEXO_CMI_VERSION);
    app.set_help_flag("--help", "Print this and the commands");
    app.footer("Commands ('help' tells more):\n"
               "  AREA OBJECT VERB name=value ...   one operation of the library\n"
               "  list, help, watch, follow, metrics, sim");
    app.prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? SUCCESS : USAGE;
    }

    Session session{json, false};
    try {
        if (!device.empty())
            useDevice(device);
    } catch (const UsageError &error) {
        std::cerr << "vexoctl: " << error.what() << std::endl;
        return USAGE;
    }
    const Words words = app.remaining();
    if (!words.empty() && !scriptFile.empty()) {
        std::cerr << "vexoctl: either a command or --script, not both" << std::endl;
        return USAGE;
    }
    if (!words.empty())
        return session.execute(words);
    if (!scriptFile.empty())
        return runScript(session, scriptFile);
    return isatty(STDIN_FILENO) ? session.prompt() : runScript(session, "-");
}
