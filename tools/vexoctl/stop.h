// What stops a command before its end: a call that takes too long, or whoever interrupts it.
#ifndef VEXOCTL_STOP_H
#define VEXOCTL_STOP_H

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>

namespace vexoctl
{

// What a command ends with.
enum Status { SUCCESS = 0, FAILURE = 1, USAGE = 2, TIMEOUT = 3, UNMET = 4, INTERRUPTED = 5 };

struct Stopped : std::runtime_error {
    Stopped(Status why, const std::string &text) : std::runtime_error{text}, status{why} {}

    Status status;
};

// How long each of the calls that follow may take; 0 seconds: as long as it wants. A call that
// can't be given up ends the program, when `tell` has been told of it.
void setCallLimit(double seconds, std::function<void(const Stopped &)> tell);

// Makes a call of the library. Throws Stopped, instead, when the command is interrupted; and when
// it takes too long: the platform's calls can hang, and nothing but the end of the process frees a
// thread from them. What the call uses must then outlive the command.
void makeCall(std::function<void()> call);
// So it is with a call that uses what its caller has; but when it takes too long, the program ends.
void makeCallOrEnd(std::function<void()> call);

// Whether there are calls that have been given up: the process can't be left but by _exit(2).
bool isCallHanging();

// While it lives, SIGINT, SIGTERM and SIGHUP don't end the program but stop the command after the
// call that runs; a second one ends it. Output that nobody reads is a failure, no signal.
class Interruptible
{
  public:
    Interruptible();
    ~Interruptible();
    Interruptible(const Interruptible &) = delete;

    // Throws Stopped.
    static void check();
    // For calls that undo what was done.
    static void goOn();

  private:
    static constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

    struct sigaction before_[std::size(SIGNALS)] = {};
};

} // namespace vexoctl

#endif
