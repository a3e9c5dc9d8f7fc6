// The commands of vexotrace. They return its exit status.
#ifndef VEXOTRACE_COMMANDS_H
#define VEXOTRACE_COMMANDS_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexotrace
{

enum Status { SUCCESS = 0, DIFFERENT = 1, TOO_LITTLE = 1, TROUBLE = 2 };

// What is wrong with a command; nothing has been done.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct RecordOptions {
    std::string output = "vexo.trace";
    std::optional<uint64_t> size; // none: as the recorder likes
    bool snapshot = false;
    bool redact = false;
    std::vector<std::string> command;
};

// Becomes the command; returns only when that can't be started.
int record(const RecordOptions &options);

struct ShowOptions {
    bool json = false;
    bool failed = false;
    std::string operation; // a pattern; empty: any
    std::string object;    // KIND=N; empty: any
    double slow = 0;       // milliseconds
    bool follow = false;
    bool all = false;
    std::vector<std::string> files;
};

int show(const ShowOptions &options);

struct DiffOptions {
    bool json = false;
    std::string a, b;
};

int diff(const DiffOptions &options);

struct CoverOptions {
    bool json = false;
    std::optional<double> least; // percent
    std::string lcov;            // the file to be written; empty: none
    std::vector<std::string> files;
};

int cover(const CoverOptions &options);

struct ReplayOptions {
    bool goesOn = false;
    bool isLoose = false;
    bool looks = false; // the command only looks at the device
    std::string file;
    std::vector<std::string> command;
};

int replay(const ReplayOptions &options);

int exportChrome(const std::string &file);

// Becomes the program that sweeps, which reads the words itself.
int sweep(const std::vector<std::string> &words);

// Becomes a program; returns only when it can't be started.
int become(const std::vector<std::string> &command);

// Puts a path before those that a variable of the environment has.
void prepend(const char *variable, const std::string &path);

// The library that records.
std::string recorder();

// The first of these that is there, by their ways from the folder of this program, as it was built
// or installed; empty: none is.
std::string beside(std::initializer_list<const char *> ways);
// The same of what is to be preloaded, for what it does.
std::string preloaded(std::initializer_list<const char *> ways, const char *does);

} // namespace vexotrace

#endif
