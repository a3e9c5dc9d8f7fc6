// How a command is carried out: by options that may stand anywhere in it, or that hold for all of
// them when vexoctl is started with them.
#ifndef VEXOCTL_MANNER_H
#define VEXOCTL_MANNER_H

#include "spelling.h"

namespace CLI
{
class App;
}

namespace vexoctl
{

struct Manner {
    bool json = false;
    bool force = false;    // numbers are sent also where they are no members of their enumeration
    bool yes = false;      // nobody is asked
    bool values = false;   // values are shown without their names
    Names changes{};       // "field=value" of what is read, changed and written
    std::string fields{};  // those that are shown, with commas between them; empty: all
    double timeout = 0;    // of each call, in seconds; 0: none
    std::string zone{};    // "local" or "utc", of times that are shown
    std::string ipOrder{}; // of a device of which it isn't known
};

void addOptions(CLI::App &app, Manner &manner);

// A command's words without the options, which are taken. Throws UsageError at a wrong one.
Names takeOptions(const Names &words, Manner &manner);

// "--json" and the others.
Names optionNames();

} // namespace vexoctl

#endif
