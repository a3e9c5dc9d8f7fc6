// The commands of vexotrace. They return its exit status.
#ifndef VEXOTRACE_COMMANDS_H
#define VEXOTRACE_COMMANDS_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexotrace
{

enum Status { SUCCESS = 0, TROUBLE = 2 };

// What is wrong with a command; nothing has been done.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct RecordOptions {
    std::string output = "vexo.trace";
    uint64_t size = 0; // 0: as the recorder likes
    bool snapshot = false;
    bool redact = false;
    std::vector<std::string> command;
};

// Becomes the command; returns only when that can't be started.
int record(const RecordOptions &options);

struct ShowOptions {
    bool json = false;
    std::vector<std::string> files;
};

int show(const ShowOptions &options);

} // namespace vexotrace

#endif
