// vexotrace: what an agent asked of the library, and that of the platform.
#include "commands.h"

#include <recording.h>

#include <CLI/CLI.hpp>

#include <cstdio>

using namespace vexotrace;

int main(int argc, char **argv)
{
    CLI::App app{"Records what an agent asks of the CMI library, and that of the platform, and "
                 "shows it.\nThe agent is left as it is.",
                 "vexotrace"};
    app.set_version_flag("--version", "vexotrace " VEXO_CMI_VERSION);
    app.set_help_flag("-h,--help", "Print this or, behind a command, what it does and takes");
    app.require_subcommand(1);

    RecordOptions recordOptions;
    CLI::App *const recordCommand = app.add_subcommand(
        "record", "Run a command and record it; its exit status is the command's");
    recordCommand
        ->add_option("-o,--output", recordOptions.output, "File to be written (vexo.trace)")
        ->type_name("FILE");
    recordCommand->add_option("--size", recordOptions.size, "Of the file: the oldest goes (64M)")
        ->transform(CLI::AsSizeValue(false));
    recordCommand->add_flag("--snapshot", recordOptions.snapshot,
                            "Keep the simulated device's file as it was at the begin, too");
    recordCommand->add_flag("--redact", recordOptions.redact,
                            "Write stand-ins for MAC and IP addresses");
    recordCommand->add_option("command", recordOptions.command, "The command, behind --")
        ->required()
        ->type_name("COMMAND...");
    recordCommand->positionals_at_end();

    ShowOptions showOptions;
    CLI::App *const showCommand = app.add_subcommand("show", "Show the calls of a recording");
    showCommand->add_flag("--json", showOptions.json, "One JSON document per line");
    showCommand->add_option("file", showOptions.files, "Recordings")
        ->required()
        ->type_name("FILE...");

    std::string switched;
    CLI::App *const onCommand = app.add_subcommand("on", "Record again, in a running agent");
    CLI::App *const offCommand = app.add_subcommand("off", "Record nothing, in a running agent");
    for (CLI::App *command : {onCommand, offCommand})
        command->add_option("file", switched, "The agent's recording")
            ->required()
            ->type_name("FILE");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? SUCCESS : TROUBLE;
    }
    try {
        if (recordCommand->parsed())
            return record(recordOptions);
        if (showCommand->parsed())
            return show(showOptions);
        trace::switchRecording(switched, onCommand->parsed());
        return SUCCESS;
    } catch (const std::exception &error) {
        fprintf(stderr, "vexotrace: %s\n", error.what());
        return TROUBLE;
    }
}
