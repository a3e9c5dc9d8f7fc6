#include "commands.h"

#include <recording.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace vexotrace
{

namespace fs = std::filesystem;

namespace
{

// An earlier recording makes room; nothing else does.
void makeRoom(const std::string &file)
{
    std::error_code error;
    if (!fs::exists(file, error))
        return;
    if (!fs::is_regular_file(file))
        throw UsageError(file + ": is no file");
    if (fs::file_size(file) > 0 && trace::Recording{file}.isAlive())
        throw UsageError(file + ": a process is being recorded into it");
    if (!fs::remove(file, error))
        throw UsageError(file + ": " + error.message());
}

void checkDevice()
{
    const char *device = getenv(trace::DEVICE_VARIABLE);
    if (!device || !*device)
        throw UsageError("--snapshot: KV_SIM_DEVICE names no device file to take");
    if (access(device, R_OK) != 0)
        throw UsageError("--snapshot: " + std::string{device} + ": " + strerror(errno));
}

void set(const char *variable, const std::string &value)
{
    if (value.empty())
        unsetenv(variable);
    else
        setenv(variable, value.c_str(), 1);
}

} // namespace

void prepend(const char *variable, const std::string &path)
{
    const char *others = getenv(variable);
    set(variable, path + (others && *others ? std::string{":"} + others : ""));
}

std::string preloaded(std::initializer_list<const char *> ways, const char *does)
{
    std::string file = beside(ways);
    if (file.empty())
        throw UsageError(fs::path{*ways.begin()}.filename().string() + " isn't there, which " +
                         does);
    if (file.find_first_of(": ") != std::string::npos)
        throw UsageError(file + ": can't be preloaded from a path with a blank or colon");
    return file;
}

std::string recorder()
{
    return preloaded({RECORDERS}, "records");
}

std::string beside(std::initializer_list<const char *> ways)
{
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char *way : ways)
        if (const fs::path file = (folder / way).lexically_normal(); fs::exists(file))
            return file;
    return {};
}

int become(const std::vector<std::string> &command)
{
    std::vector<char *> words;
    words.reserve(command.size() + 1);
    for (const std::string &word : command)
        words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    constexpr int NOT_FOUND = 127, NOT_EXECUTABLE = 126; // as a shell has it
    const int status = errno == ENOENT ? NOT_FOUND : NOT_EXECUTABLE;
    fprintf(stderr, "vexotrace: %s: %s\n", words[0], strerror(errno));
    return status;
}

int record(const RecordOptions &options)
{
    // A negative number is a huge one here.
    if (options.size && (*options.size < trace::LEAST_SIZE || *options.size > trace::MOST_SIZE))
        throw UsageError("--size: from " + std::to_string(trace::LEAST_SIZE) + " to " +
                         std::to_string(trace::MOST_SIZE) + " bytes");
    if (options.snapshot && options.redact)
        throw UsageError("--redact: a snapshot would have the addresses all the same");
    if (options.snapshot)
        checkDevice();
    const std::string file = fs::absolute(options.output);
    if (access(fs::path{file}.parent_path().c_str(), W_OK) != 0)
        throw UsageError(options.output + ": " + strerror(errno));
    const std::string preloaded = recorder();
    makeRoom(file);
    prepend("LD_PRELOAD", preloaded);
    set(trace::FILE_VARIABLE, file);
    set(trace::SIZE_VARIABLE, options.size ? std::to_string(*options.size) : "");
    set(trace::SNAPSHOT_VARIABLE, options.snapshot ? "1" : "");
    set(trace::REDACT_VARIABLE, options.redact ? "1" : "");
    set(trace::SESSION_VARIABLE, "");
    return become(options.command);
}

} // namespace vexotrace
