// vexotrace: what an agent asked of the library, and that of the platform.
#include "commands.h"

#include <command_line.h>
#include <recording.h>

#include <cstdio>

using namespace vexotrace;

namespace
{

// What can't be written is no success.
int finish(int status)
{
    if (fflush(stdout) == 0 && !ferror(stdout))
        return status;
    fputs("vexotrace: the output can't be written\n", stderr);
    return TROUBLE;
}

} // namespace

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
    showCommand->add_flag("--failed", showOptions.failed, "Only trees with a call that failed");
    showCommand
        ->add_option("--operation", showOptions.operation,
                     "Only trees with a call of such a name, as 'pwe_*'")
        ->type_name("GLOB");
    showCommand
        ->add_option("--object", showOptions.object,
                     "Only trees with a call about it: system, port, pwe, group or link")
        ->type_name("KIND=N");
    showCommand
        ->add_option("--slow", showOptions.slow, "Only trees with a call that took so long or more")
        ->type_name("MS")
        ->check(between(0, 1e9));
    showCommand->add_flag("--follow", showOptions.follow,
                          "Go on with what comes, until the process ends");
    showCommand->add_flag("--all", showOptions.all, "All fields, those that don't count, too");
    showCommand->add_option("file", showOptions.files, "Recordings")
        ->required()
        ->type_name("FILE...");

    DiffOptions diffOptions;
    CLI::App *const diffCommand =
        app.add_subcommand("diff", "Compare what two runs did; 1 where it isn't the same");
    diffCommand->add_flag("--json", diffOptions.json, "A JSON document");
    diffCommand->add_option("a", diffOptions.a, "A recording")->required()->type_name("A");
    diffCommand->add_option("b", diffOptions.b, "Another")->required()->type_name("B");

    CoverOptions coverOptions;
    CLI::App *const coverCommand =
        app.add_subcommand("cover", "Tell what of the interface recordings have met");
    coverCommand->add_flag("--json", coverOptions.json, "A JSON document, with every item");
    coverCommand->add_option("--min", coverOptions.least, "Exit with 1 below that")
        ->type_name("PERCENT")
        ->check(between(0, 100));
    coverCommand
        ->add_option("--lcov", coverOptions.lcov, "Write it as lcov has it, by the header's lines")
        ->type_name("FILE");
    coverCommand->add_option("file", coverOptions.files, "Recordings, which are merged")
        ->required()
        ->type_name("FILE...");

    ReplayOptions replayOptions;
    CLI::App *const replayCommand = app.add_subcommand(
        "replay",
        "Run a command on what a recording answers in the platform's place; 3 where it goes\n"
        "another way");
    replayCommand->add_flag("--continue", replayOptions.goesOn,
                            "Go on where it goes another way, and count");
    replayCommand->add_flag("--loose", replayOptions.isLoose,
                            "Take any call whose function and object the recording has");
    // What `vexoctl --device trace:FILE` is.
    replayCommand->add_flag("--look", replayOptions.looks)->group("");
    replayCommand->add_option("file", replayOptions.file, "A recording")
        ->required()
        ->type_name("FILE");
    replayCommand->add_option("command", replayOptions.command, "The command, behind --")
        ->required()
        ->type_name("COMMAND...");
    replayCommand->positionals_at_end();

    std::string exported;
    CLI::App *const exportCommand = app.add_subcommand("export", "Write a recording otherwise");
    exportCommand->require_subcommand(1);
    exportCommand->add_subcommand("chrome", "For a browser's trace viewer, as JSON")
        ->add_option("file", exported, "A recording")
        ->required()
        ->type_name("FILE");

    CLI::App *const sweepCommand = app.add_subcommand(
        "sweep", "Let each call that a command makes fail in turn, and tell what comes of it");

    std::string switched;
    CLI::App *const onCommand = app.add_subcommand("on", "Record again, in a running agent");
    CLI::App *const offCommand = app.add_subcommand("off", "Record nothing, in a running agent");
    for (CLI::App *command : {onCommand, offCommand})
        command->add_option("file", switched, "The agent's recording")
            ->required()
            ->type_name("FILE");

    // It takes its words itself.
    const bool sweeps = argc > 1 && argv[1] == sweepCommand->get_name();
    try {
        app.parse(sweeps ? 2 : argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return finish(app.exit(error));
        fprintf(stderr, "vexotrace: %s\n", reasonOf(app, error).c_str());
        return TROUBLE;
    }
    try {
        if (recordCommand->parsed())
            return record(recordOptions);
        if (showCommand->parsed())
            return finish(show(showOptions));
        if (diffCommand->parsed())
            return finish(diff(diffOptions));
        if (coverCommand->parsed())
            return finish(cover(coverOptions));
        if (replayCommand->parsed()) {
            // Behind another word it is taken for one.
            if (replayOptions.command[0] == "--")
                replayOptions.command.erase(replayOptions.command.begin());
            if (replayOptions.command.empty())
                throw UsageError("replay: behind -- is to be a command");
            return replay(replayOptions);
        }
        if (exportCommand->parsed())
            return finish(exportChrome(exported));
        if (sweepCommand->parsed())
            return sweep({argv + 2, argv + argc});
        trace::switchRecording(switched, onCommand->parsed());
        return SUCCESS;
    } catch (const std::exception &error) {
        fprintf(stderr, "vexotrace: %s\n", error.what());
        return TROUBLE;
    }
}
