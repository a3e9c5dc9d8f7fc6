#include "manner.h"

#include <command_line.h>

#include <algorithm>

namespace vexoctl
{

void addOptions(CLI::App &app, Manner &manner)
{
    app.add_flag("--json", manner.json, "Print one JSON document per command");
    app.add_flag("--force", manner.force,
                 "Send numbers also where they are no members of their enumeration");
    app.add_flag("--yes", manner.yes, "Do what ends service without asking");
    app.add_option("--change", manner.changes,
                   "Read what is set, change this field, and write it all")
        ->type_name("FIELD=VALUE")
        ->allow_extra_args(false);
    app.add_option("--fields", manner.fields, "Show these fields, in this order")
        ->type_name("FIELD,...");
    app.add_flag("--values", manner.values, "Show bare values, a line for each object");
    app.add_option("--timeout", manner.timeout, "End, with status 3, when a call takes longer")
        ->type_name("SECONDS")
        ->check(between(0.001, 1e6));
    app.add_option("--time", manner.zone, "Show when things came, by the device's clock")
        ->type_name("local|utc")
        ->check(CLI::IsMember({"local", "utc"}));
    app.add_option("--ip-order", manner.ipOrder, "How the device keeps IPv4 addresses")
        ->type_name("host|network")
        ->check(CLI::IsMember({"host", "network"}));
}

Names takeOptions(const Names &words, Manner &manner)
{
    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    addOptions(app, manner);
    try {
        app.parse(Names{words.rbegin(), words.rend()});
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what());
    }
    return app.remaining();
}

Names optionNames()
{
    CLI::App app;
    Manner manner;
    addOptions(app, manner);
    Names names;
    for (const CLI::Option *option : app.get_options())
        names.push_back("--" + option->get_lnames().front());
    return names;
}

} // namespace vexoctl
