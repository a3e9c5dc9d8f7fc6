// All operations by the words that a person says: the library's, and those of the simulated device
// where there is one.
#ifndef VEXOCTL_CATALOG_H
#define VEXOCTL_CATALOG_H

#include "session.h"

#include <span>

namespace vexoctl
{

// A command that is no operation.
struct Command {
    const char *name;
    const char *usage;
    const char *purpose;
    const char *more;
    // Of those in files of their own.
    void (*run)(const Words &words, const Manner &manner) = nullptr;
    bool showsFields = false; // those that are chosen
};

std::span<const Command> commands();
// The one that the words begin with; null when there is none.
const Command *commandOf(const Words &words);
Names commandNames();

// The operation that the words begin with; `count` is how many of them name it. Throws UsageError
// when there is none.
const describe::Operation &operationOf(const Words &words, size_t &count);

// Whether the words are the name of one.
bool isOperation(const Words &words);

// Those whose names begin with the words.
std::vector<const describe::Operation *> operationsUnder(const Words &words);

// What can stand next after these words, the last of which may be unfinished.
Names completions(const Words &words);

} // namespace vexoctl

#endif
