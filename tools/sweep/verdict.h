// What a run comes to, against the one in which all went well.
#ifndef SWEEP_VERDICT_H
#define SWEEP_VERDICT_H

#include "run.h"

#include <config_document.h>

namespace sweep
{

namespace config = vexoctl::config;

// What the device of this process is set to. What can't be told of it is no trouble.
config::Document deviceNow();

// What an agent has written.
class Lines
{
  public:
    // Of two runs in which all went well.
    Lines(const std::string &a, const std::string &b);

    // Those that neither wrote, nor would have: what they wrote in the one and not in the other may
    // have other numbers.
    std::vector<std::string> newIn(const std::string &output) const;

  private:
    std::set<std::string> known_, changing_;
};

// Whether the line names the object, as people and programs do: "pw 17", "port=3", "tpid".
bool isNamed(const config::Key &key, const std::string &line);

struct Good {
    config::Document before, after;
    Ran ran;
    Lines lines;
};

// The names of verdicts.
constexpr const char *RECOVERED = "recovered", *REPORTED = "reported", *SILENT = "silent",
                     *HALF = "half", *CRASHED = "crashed", *HUNG = "hung", *UNSTABLE = "unstable",
                     *UNMET = "unmet";
bool isBad(const std::string &verdict);

struct Outcome {
    const Ran &ran;
    const config::Document &after;
    bool passed;                    // the check
    bool met;                       // the fault was
    std::set<config::Key> befallen; // the objects of what was to fail
};

struct Judgement {
    const char *verdict;
    std::vector<std::string> unnamed{}; // of what is half: the objects that it should have named
};

Judgement judge(const Good &good, const Outcome &outcome,
                const std::vector<config::Difference> &differences);

} // namespace sweep

#endif
