// The notification machine: one thread that waits for the platform's notifications until it is told
// to stop. A service holds what the two kinds of notification differ in.
//
// The stop pipe is open exactly as long as there is a thread to be joined.
#ifndef NOTIFY_SERVICE_H
#define NOTIFY_SERVICE_H

#include "frame/log.h"
#include "frame/outcome.h"

#include <algorithm>
#include <atomic>
#include <concepts>

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

namespace notify
{

// clang-format 14 makes concepts unreadable.
// clang-format off
template <class T>
concept IsService = requires {
    // What the outside may see by name, all zero at load.
    requires std::same_as<decltype(T::callback), std::atomic<typename T::Callback> &>;
    requires std::same_as<decltype(T::thread), pthread_t &>;
    requires std::same_as<decltype(T::stopPipe), int (&)[2]>;
    // The platform's calls.
    { T::socket() } -> std::same_as<int>;
    { T::subscribe() } -> std::same_as<kvRc>;
    { T::process() } -> std::same_as<kvRc>;
    { T::unsubscribe() } -> std::same_as<void>;
    // The thread's function, which runs serve<T>().
    requires std::same_as<decltype(T::body), void *(&)(void *)>;
    // For the log.
    { T::BODY_NAME } -> std::convertible_to<const char *>;
    { T::REGISTER_NAME } -> std::convertible_to<const char *>;
    { T::PIPE_FAILURE } -> std::convertible_to<const char *>;
    { T::THREAD_FAILURE } -> std::convertible_to<const char *>;
};
// clang-format on

constexpr int WAIT_SECONDS = 30;
constexpr char STOP_BYTE = 'e';
// Notifications that are still taken when the service is to stop: those that are pending, but not a
// stream that never ends.
constexpr int LAST_NOTIFICATIONS = 1000;
// Between calls that fail in a row, in milliseconds: doubled each time.
constexpr int PAUSE_FIRST = 10, PAUSE_LONGEST = 1000;

inline bool selectable(int descriptor)
{
    return descriptor >= 0 && descriptor < FD_SETSIZE;
}

// Moves a descriptor away from those of standard input and output, which a host may have closed:
// 0 stands for 'no pipe' here, and what a host prints must not stop a service.
inline int moved(int descriptor)
{
    if (descriptor > STDERR_FILENO)
        return descriptor;
    const int other = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    return other;
}

template <IsService Service>
void closeStopPipe()
{
    close(Service::stopPipe[0]);
    close(Service::stopPipe[1]);
    Service::stopPipe[0] = 0;
    Service::stopPipe[1] = 0;
}

template <IsService Service>
bool openStopPipe()
{
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    for (int i = 0; i < 2; ++i) {
        fcntl(ends[i], F_SETFD, FD_CLOEXEC);
        Service::stopPipe[i] = moved(ends[i]);
    }
    if (selectable(Service::stopPipe[0]) && Service::stopPipe[1] >= 0)
        return true;
    closeStopPipe<Service>();
    return false;
}

// A forked child has the state of its parent's service, but not its thread. The inherited pipe is
// left alone: the child may have closed it along with all else, and be using its numbers for
// something else.
template <IsService Service>
void forgetInChild()
{
    Service::thread = 0;
    Service::stopPipe[0] = 0;
    Service::stopPipe[1] = 0;
}

// Once and for all; the C library forgets it when this library is unloaded.
template <IsService Service>
bool watchForks()
{
    static bool watching;
    if (!watching)
        watching = pthread_atfork(nullptr, nullptr, forgetInChild<Service>) == 0;
    return watching;
}

// May run on the service's own thread, which can be there before its handle is: so it is the pipe
// that tells whether the service runs.
template <IsService Service>
void registerCallback(typename Service::Callback callback)
{
    Service::callback.store(callback);
    if (!callback)
        return;
    if (Service::stopPipe[0] != 0)
        return;
    // Before there is a pipe: another thread may fork as soon as there is.
    const bool watching = watchForks<Service>();
    if (!openStopPipe<Service>()) {
        CMI_LOG_AS(Service::REGISTER_NAME, frame::LOG_ERROR, Service::PIPE_FAILURE);
        return;
    }
    if (!watching || pthread_create(&Service::thread, nullptr, Service::body, nullptr) != 0) {
        CMI_LOG_AS(Service::REGISTER_NAME, frame::LOG_ERROR, Service::THREAD_FAILURE);
        Service::thread = 0;
        closeStopPipe<Service>();
    }
}

template <IsService Service>
void unregisterCallback()
{
    if (Service::stopPipe[0] == 0)
        return;
    // A byte in an empty pipe always finds room.
    [[maybe_unused]] const ssize_t written = write(Service::stopPipe[1], &STOP_BYTE, 1);
    pthread_join(Service::thread, nullptr);
    Service::thread = 0;
    closeStopPipe<Service>();
}

struct Ready {
    int count;
    bool socket, stop;
};

// Not inlined, so that its set does not lie on the stack while a report is made. Takes
// from `left` the time that has passed.
[[gnu::noinline]] inline Ready waitFor(int socket, int stop, timeval &left)
{
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(stop, &ready);
    FD_SET(socket, &ready);
    const int count = select((stop > socket ? stop : socket) + 1, &ready, nullptr, nullptr, &left);
    return {count, count > 0 && FD_ISSET(socket, &ready), count > 0 && FD_ISSET(stop, &ready)};
}

// Whether the service is told to stop within that time.
inline bool stopsWithin(int milliseconds, int stop)
{
    timeval left{milliseconds / 1000, milliseconds % 1000 * 1000};
    for (;;) {
        const Ready ready = waitFor(stop, stop, left);
        if (ready.count >= 0 || errno != EINTR)
            return ready.stop;
    }
}

// Hands notifications on until the stop pipe becomes readable and nothing is pending.
template <IsService Service>
void waitForStop(int socket)
{
    const int stop = Service::stopPipe[0];
    int left = LAST_NOTIFICATIONS;
    int pause = 0;
    for (;;) {
        timeval wait{WAIT_SECONDS, 0};
        const Ready ready = waitFor(socket, stop, wait);
        if (ready.count == 0 || (ready.count < 0 && errno == EINTR))
            continue;
        if (ready.count < 0) {
            CMI_LOG_AS(Service::BODY_NAME, frame::LOG_ERROR, "select(): %s", strerror(errno));
            return;
        }
        if (ready.socket && !(ready.stop && left-- == 0)) {
            const kvRc code = Service::process();
            if (code == KV_OK) {
                pause = 0;
                continue;
            }
            CMI_LOG_AS(Service::BODY_NAME, frame::LOG_ERROR, "process event fails: %s",
                       frame::codeText(code));
            if (pause > 0 && stopsWithin(pause, stop))
                return;
            pause = pause > 0 ? std::min(2 * pause, PAUSE_LONGEST) : PAUSE_FIRST;
        } else if (ready.stop) {
            return;
        } else {
            CMI_LOG_AS(Service::BODY_NAME, frame::LOG_ERROR, "select fail: unknown socket");
        }
    }
}

template <IsService Service>
void serve()
{
    const int socket = Service::socket();
    if (const kvRc code = Service::subscribe()) {
        CMI_LOG_AS(Service::BODY_NAME, frame::LOG_ERROR, "CMI fail %s(%d)", frame::codeText(code),
                   static_cast<int>(code));
    } else {
        if (selectable(socket))
            waitForStop<Service>(socket);
        else
            CMI_LOG_AS(Service::BODY_NAME, frame::LOG_ERROR,
                       "select(): descriptor %d is not one of 0 to %d", socket, FD_SETSIZE - 1);
        Service::unsubscribe();
    }
    // By returning, not by pthread_exit(): its first call loads a library, and waits for the
    // loader's lock, which whoever unloads this library holds while it waits for this thread.
    CMI_LOG_AS(Service::BODY_NAME, frame::LOG_DEBUG, "pthread_exit");
}

} // namespace notify

#endif
