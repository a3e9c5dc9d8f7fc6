// Runs commands, one after the other, and shows what came of them.
#ifndef VEXOCTL_SESSION_H
#define VEXOCTL_SESSION_H

#include "value.h"

#include <istream>

namespace vexoctl
{

using Words = std::vector<std::string>;

enum Status { SUCCESS = 0, FAILURE = 1, USAGE = 2 };

class Session
{
  public:
    // JSON documents are printed on one line each with `compact`.
    Session(bool json, bool compact) : json_{json}, compact_{compact} {}

    Status execute(const Words &words);
    // Commands line by line, up to the first that doesn't succeed.
    Status script(std::istream &stream);
    // Commands from the terminal.
    Status prompt();

    void setCompact(bool compact) { compact_ = compact; }

  private:
    Status dispatch(const Words &words);
    Status operate(const Words &words);
    Status list(const Words &words);
    Status help(const Words &words);
    Status simulate(const Words &words);
    void show(const Json &document);

    bool json_;
    bool compact_;
};

// Splits a line into words as a shell does: blanks part them, quotes and backslashes keep them
// together. Throws UsageError when a quote is left open.
Words split(const std::string &line);

// What can stand next after these words, the last of which may be unfinished.
std::vector<std::string> completions(const Words &words);

// Text for people, from a document.
std::string readable(const Json &document, size_t indent = 0);

// ---- Commands of their own files ----

Status watch(const Words &words, bool json);
Status follow(const Words &words, bool json);
Status metrics(const Words &words);

// ---- The simulated device ----

bool isSimulated();
// Names the device's file; before anything else.
void useDevice(const std::string &file);
const std::vector<describe::Operation> &simOperations();
// What the last of them has to show.
Json takeSimOutput();

} // namespace vexoctl

#endif
