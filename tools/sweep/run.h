// One run of the agent, on a device of its own.
#ifndef SWEEP_RUN_H
#define SWEEP_RUN_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace sweep
{

// What keeps a sweep from being one.
struct Trouble : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Agent {
    std::vector<std::string> command;
    std::string until;    // the agent is told to end when this command succeeds; empty: when idle
    uint32_t idle = 20;   // milliseconds in which nothing is called
    std::string recorder; // the library to be preloaded
};

struct Order {
    std::string folder; // of its own; the device's and the recording's files are made in it
    bool records;
    double seconds;              // after which it hangs
    std::optional<double> holds; // seconds after which calls that hang go on, where some do
    // Whether the agent ends by itself; unknown: this run is to show it.
    std::optional<bool> ends{};

    std::string device() const { return folder + "/device"; }
    std::string recording() const { return folder + "/recording"; }
    // The agent's, who may do there as it likes.
    std::string temporary() const { return folder + "/tmp"; }
};

struct Ran {
    std::string end; // how: equal for runs that ended in the same way
    bool wasTold;    // to end
    bool crashed, hung;
    std::string output;
    double seconds;
};

// Of this process, whose device must be the order's. Nothing of the agent is left then.
Ran run(const Agent &agent, const Order &order);

// Runs a command with the device named, in a shell.
Ran runShell(const std::string &command, const Order &order);
// Whether it succeeded in time.
bool succeeded(const Ran &ran);

// Ends all processes that this one has started, and those that they have.
void killAll();

// Removes the folder with all that is in it, also where its owner is kept out.
void removeAll(const std::string &folder);

} // namespace sweep

#endif
