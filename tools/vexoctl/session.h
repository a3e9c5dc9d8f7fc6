// Runs commands, one after the other, and shows what came of them.
#ifndef VEXOCTL_SESSION_H
#define VEXOCTL_SESSION_H

#include "codec.h"
#include "config_apply.h"
#include "manner.h"
#include "request.h"
#include "stop.h"

#include <functional>
#include <map>
#include <optional>

namespace vexoctl
{

using Words = Names;

// Ends a command's output: FAILURE, and a message, when it could not be written.
Status finish(Status status);

class Session
{
  public:
    // JSON documents are printed on one line each with `compact`, and by scripts and the prompt.
    explicit Session(Manner manner, bool compact = false)
        : manner_{std::move(manner)}, compact_{compact}
    {
    }

    Status execute(const Words &words);
    // A line of a script, which may be empty.
    Status execute(const std::string &line);
    // Commands line by line, up to the first that doesn't succeed; of standard input when the file
    // is '-'.
    Status script(const std::string &file);
    // Commands from the terminal.
    Status prompt();
    // What fails in a script is counted, and doesn't end it.
    void setKeepsGoing(bool keepsGoing) { keepsGoing_ = keepsGoing; }
    // When a line of a script fails, what the lines before it set is undone.
    void setAtomic(bool atomic) { atomic_ = atomic; }
    // Says what is wrong with the command.
    Status refuse(const std::string &text) const;

  private:
    Status dispatch(const Words &words);
    Status operate(const Words &words);
    Status operateOnEach(const describe::Operation &operation, const Objects &objects, Names words);
    void agree(const std::string &end) const;
    void remember(const describe::Operation &operation, const Invocation &invocation);
    void checkUndoable(const std::string &line) const;
    void undo();
    void limitCalls() const;
    void leave(const Words &words);
    void list(const Words &words) const;
    void help(const Words &words) const;
    std::string text(const Json &document) const;
    void show(const Json &document) const;
    Status run(Words words);
    // Every error is told here; without a code when nothing was called.
    std::string error(std::optional<uint32_t> code, const std::string &message,
                      const Json &details = Json::object()) const;
    Status tell(std::optional<uint32_t> code, const std::string &message,
                const Json &details = Json::object()) const;

    Manner manner_;
    bool compact_;
    bool keepsGoing_ = false;
    bool atomic_ = false;
    config::Device device_;
    config::Undo undo_{device_};
    bool isOver_ = false;   // by the command that ends a session
    std::string operation_; // that is under way, or the command
    std::string file_;      // of the script, and the line in it
    size_t line_ = 0;
};

// A line as a shell reads it: blanks part the words, quotes and backslashes keep them together, a
// '#' at the beginning of a word begins a comment.
struct Lexed {
    Words words;
    bool isWordOpen; // no blank behind the last one
    bool isQuoteOpen;
    bool isContinued; // by a backslash at the end, with the next line in its place
};
Lexed lex(const std::string &line);

// What a command of those below is given: words, and name=VALUE, also as --name VALUE and
// --name=VALUE, as its usage has them. Throws UsageError at anything else.
class Options
{
  public:
    explicit Options(const Words &words);

    bool has(const std::string &name) const { return given_.contains(name); }
    std::string text(const std::string &name, const std::string &otherwise) const;
    // From 1.
    uint32_t number(const std::string &name, uint32_t otherwise) const;

  private:
    std::map<std::string, std::string> given_;
};

// ---- Commands of their own files ----
// One that has told what came of it itself throws its status.

void watch(const Words &words, const Manner &manner);
void follow(const Words &words, const Manner &manner);

void await(const Words &words, const Manner &manner);

void metrics(const Words &words, const Manner &manner);
void simCreate(const Words &words, const Manner &manner);
void report(const Words &words, const Manner &manner);
void conform(const Words &words, const Manner &manner);
void configSave(const Words &words, const Manner &manner);
void configDiff(const Words &words, const Manner &manner);
void configApply(const Words &words, const Manner &manner);
void pweList(const Words &words, const Manner &manner);
void imaList(const Words &words, const Manner &manner);
// Whole or not at all; the file of before stays until then. Throws UsageError.
void replaceFile(const std::string &file, const std::string &text);
// Which there are, and all of them.
Names metricFamilies();
std::string metricFamiliesHelp();

// ---- What is shown as it comes ----

// How, from now on; and one line of it.
void printAs(bool json);
bool printsDocuments();
void printLine(const Json &document, const std::string &line);
// Lets `more` print what there is, and say whether that was anything, until `count` lines are
// printed, the seconds are over (0: no limit) or a signal comes.
void stream(uint32_t count, uint32_t seconds, const std::function<bool()> &more);

// ---- The simulated device ----

// Set where what is looked into is a recording, in which there is no device.
constexpr char RECORDING_VARIABLE[] = "VEXOCTL_RECORDING";

bool isSimulated();
// Whether it is of this process alone.
bool isPrivateDevice();
// Alarm events and PM reports that this process has lost; a device of its own platform's tells
// nothing of it, and 0 is given.
uint64_t lostEvents();
// Microseconds since the epoch by the device's clock, which is the host's on a real one.
uint64_t deviceClock();
// Names the device's file; before anything else.
void useDevice(const std::string &file);
// The names of its settings, and some of its commands. They throw UsageError.
Names simSettings();
void simReset();
void simSet(const std::string &name, uint32_t value);
// All of its log; null of a device of its own platform's.
Json simLog();
void simRefuse(const std::string &function, uint32_t code);
struct SimCommand {
    describe::Operation operation;
    const char *help;
};
std::span<const SimCommand> simCommands();

} // namespace vexoctl

#endif
