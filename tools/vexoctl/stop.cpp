#include "stop.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <future>
#include <iostream>
#include <thread>
#include <utility>

#include <unistd.h>

namespace vexoctl
{

namespace
{

std::chrono::duration<double> limit;
std::function<void(const Stopped &)> tellOf;
std::atomic<bool> hangs;

std::atomic<bool> wasInterrupted; // since the command began
std::atomic<bool> isInterrupted;  // and nothing has been made of it so far
std::atomic<bool> isWatched;      // by a person

void interrupt(int signal)
{
    constexpr char NOTE[] = "vexoctl: stops after the call that runs; once more ends it at once\n";
    if (wasInterrupted.exchange(true)) {
        std::signal(signal, SIG_DFL);
        raise(signal);
        return;
    }
    isInterrupted = true;
    const int error = errno;
    if (isWatched && write(STDERR_FILENO, NOTE, sizeof NOTE - 1) < 0)
        isWatched = false;
    errno = error;
}

} // namespace

void setCallLimit(double seconds, std::function<void(const Stopped &)> tell)
{
    limit = std::chrono::duration<double>{seconds};
    tellOf = std::move(tell);
}

void makeCall(std::function<void()> call)
{
    Interruptible::check();
    std::cout.flush();
    if (limit.count() <= 0)
        return call();
    std::packaged_task<void()> task{std::move(call)};
    const std::future<void> end = task.get_future();
    std::thread{std::move(task)}.detach();
    if (end.wait_for(limit) == std::future_status::ready)
        return;
    hangs = true;
    char text[64];
    snprintf(text, sizeof text, "no answer within %g seconds", limit.count());
    throw Stopped{TIMEOUT, text};
}

void makeCallOrEnd(std::function<void()> call)
{
    try {
        makeCall(std::move(call));
    } catch (const Stopped &stopped) {
        tellOf(stopped);
        _exit(stopped.status);
    }
}

bool isCallHanging()
{
    return hangs;
}

Interruptible::Interruptible()
{
    isWatched = isatty(STDERR_FILENO) == 1;
    for (size_t i = 0; i < std::size(SIGNALS); ++i) {
        struct sigaction action {
        };
        action.sa_handler = SIGNALS[i] == SIGPIPE ? SIG_IGN : interrupt;
        action.sa_flags = SA_RESTART;
        sigaction(SIGNALS[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) // as by nohup(1)
            sigaction(SIGNALS[i], &action, nullptr);
    }
}

Interruptible::~Interruptible()
{
    for (size_t i = 0; i < std::size(SIGNALS); ++i)
        sigaction(SIGNALS[i], &before_[i], nullptr);
    wasInterrupted = false;
    isInterrupted = false;
}

void Interruptible::check()
{
    if (isInterrupted)
        throw Stopped{INTERRUPTED, "interrupted"};
}

void Interruptible::goOn()
{
    isInterrupted = false;
}

} // namespace vexoctl
