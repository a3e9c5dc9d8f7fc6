#include "notification.h"

#include "clock.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim
{

namespace
{

Notifications &of(Transaction &device, Service service)
{
    return device->services[static_cast<uint32_t>(service)];
}

// The events that a subscriber has not taken, those that are gone included.
uint64_t behind(const Notifications &all, const Subscriber &subscriber)
{
    return all.last > subscriber.taken ? all.last - subscriber.taken : 0;
}

uint64_t overwritten(const Notifications &all, const Subscriber &subscriber)
{
    const uint64_t events = behind(all, subscriber);
    return events > EVENTS ? events - EVENTS : 0;
}

// The services in whose handlers the thread is. Initial-exec: the notification threads must not
// need the loader's lock for it.
__attribute__((tls_model("initial-exec"))) thread_local bool handled[SERVICES];

// Where its doorbell is.
sockaddr_un addressOf(const Subscriber &subscriber, socklen_t &size)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t nameSize = std::min<size_t>(subscriber.nameSize, sizeof subscriber.name);
    memcpy(address.sun_path, subscriber.name, nameSize);
    address.sun_path[0] = '\0';
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + nameSize);
    return address;
}

// Without ringing.
bool isThere(const Subscriber &subscriber)
{
    const int from = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    socklen_t size;
    const sockaddr_un address = addressOf(subscriber, size);
    const bool there = connect(from, reinterpret_cast<const sockaddr *>(&address), size) == 0;
    ::close(from);
    return there;
}

// Rings the doorbell from a socket, or forgets the subscriber when nobody is behind it any more.
// False when it can't be rung.
bool ring(Subscriber &subscriber, int from)
{
    socklen_t size;
    const sockaddr_un address = addressOf(subscriber, size);
    const ssize_t sent = sendto(from, "!", 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), size);
    if (sent != 1 && (errno == ENOBUFS || errno == ENOMEM))
        return false;
    if (sent == 1 || errno == EAGAIN)
        subscriber.rung = 1;
    else
        subscriber.used = 0;
    return true;
}

bool ring(Subscriber &subscriber)
{
    const int from = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (from < 0)
        return false;
    const bool rung = ring(subscriber, from);
    const int error = errno;
    ::close(from);
    errno = error;
    return rung;
}

} // namespace

kvRc wake(Transaction &device, Service service)
{
    for (Subscriber &subscriber : of(device, service).subscribers)
        if (subscriber.used && !subscriber.rung && !ring(subscriber))
            return fail(NO_DEVICE, "process %u can't be notified: %s", subscriber.process,
                        strerror(errno));
    return KV_OK;
}

kvRc notify(Transaction &device, Service service, const alarmEvent &event)
{
    if (const kvRc code = wake(device, service))
        return code;
    Notifications &all = of(device, service);
    const uint64_t number = all.last + 1;
    device.modify(all.events[number % EVENTS]) = event;
    device.modify(all.last) = number;
    return KV_OK;
}

uint32_t waiting(const Notifications &all, const Subscriber &subscriber)
{
    return static_cast<uint32_t>(std::min<uint64_t>(behind(all, subscriber), EVENTS));
}

uint64_t lost(const Notifications &all, const Subscriber &subscriber)
{
    return subscriber.lost + overwritten(all, subscriber);
}

std::vector<Backlog> backlogs(Transaction &device, Service service)
{
    Notifications &all = of(device, service);
    std::vector<Backlog> found;
    for (Subscriber &subscriber : all.subscribers) {
        const uint32_t count = waiting(all, subscriber) + (subscriber.busy ? 1 : 0);
        if (!subscriber.used || count == 0)
            continue;
        ring(subscriber);
        if (subscriber.used)
            found.push_back({subscriber.process, count});
    }
    return found;
}

bool isSubscribed(const State &state, uint32_t process, uint32_t services)
{
    std::map<uint32_t, uint32_t> found; // services of each process
    for (uint32_t i = 0; i < SERVICES; ++i)
        for (const Subscriber &subscriber : state.services[i].subscribers)
            if (subscriber.used && (!process || subscriber.process == process) &&
                isThere(subscriber))
                found[subscriber.process] |= 1U << i;
    return std::ranges::any_of(
        found, [=](const auto &one) { return (one.second & services) == services; });
}

bool isHandling(Service service)
{
    return handled[static_cast<uint32_t>(service)];
}

uint64_t lost(Transaction &device)
{
    uint64_t count = device->lost;
    for (const Notifications &all : device->services)
        for (const Subscriber &subscriber : all.subscribers)
            if (subscriber.used)
                count += overwritten(all, subscriber);
    return count;
}

void Subscription::close()
{
    for (int *descriptor : {&doorbell_, &timer_, &poll_}) {
        if (*descriptor >= 0)
            ::close(*descriptor);
        *descriptor = -1;
    }
    slot_ = SUBSCRIBERS;
}

// A doorbell, and for the PM service a timer beside it, seen as one descriptor. It is made anew for
// each subscription, so that a caller that couldn't use the number gets another.
int Subscription::descriptor()
{
    if (slot_ < SUBSCRIBERS)
        return poll_;
    close();
    doorbell_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    poll_ = epoll_create1(EPOLL_CLOEXEC);
    epoll_event readable{};
    readable.events = EPOLLIN;
    bool made = doorbell_ >= 0 && poll_ >= 0 &&
                bind(doorbell_, reinterpret_cast<sockaddr *>(&address), sizeof(sa_family_t)) == 0 &&
                epoll_ctl(poll_, EPOLL_CTL_ADD, doorbell_, &readable) == 0;
    if (made && service_ == Service::pm) {
        timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        made = timer_ >= 0 && epoll_ctl(poll_, EPOLL_CTL_ADD, timer_, &readable) == 0;
    }
    if (!made)
        close();
    return poll_;
}

Subscriber *Subscription::subscriber(Transaction &device) const
{
    if (slot_ >= SUBSCRIBERS)
        return nullptr;
    Subscriber &mine = of(device, service_).subscribers[slot_];
    const bool still = mine.used && mine.process == static_cast<uint32_t>(getpid());
    return still ? &mine : nullptr;
}

kvRc Subscription::subscribe(Transaction &device)
{
    if (subscriber(device))
        return KV_OK;
    if (poll_ < 0 && descriptor() < 0)
        return fail(NO_DEVICE, "no descriptor for notifications: %s", strerror(errno));
    Notifications &all = of(device, service_);
    // Places of those who are gone are free.
    for (Subscriber &subscriber : all.subscribers)
        if (subscriber.used)
            ring(subscriber, doorbell_);
    for (uint32_t i = 0; i < SUBSCRIBERS; ++i) {
        Subscriber &free = all.subscribers[i];
        if (free.used)
            continue;
        sockaddr_un name{};
        socklen_t size = sizeof name;
        if (getsockname(doorbell_, reinterpret_cast<sockaddr *>(&name), &size) != 0)
            return fail(NO_DEVICE, "no name for notifications: %s", strerror(errno));
        free.nameSize = static_cast<uint32_t>(size - offsetof(sockaddr_un, sun_path));
        memcpy(free.name, name.sun_path, sizeof free.name);
        free.process = static_cast<uint32_t>(getpid());
        free.rung = free.busy = 0;
        free.taken = all.last;
        free.lost = 0;
        device.modify(free.used) = 1;
        slot_ = i;
        setTimer(device);
        return KV_OK;
    }
    return fail(FULL, "%u processes are subscribed to this already, no more can be", SUBSCRIBERS);
}

void Subscription::unsubscribe(Transaction &device)
{
    if (Subscriber *mine = subscriber(device)) {
        device->lost += overwritten(of(device, service_), *mine);
        mine->used = 0;
    }
    close();
}

bool Subscription::take(Transaction &device, alarmEvent &event)
{
    Subscriber *mine = subscriber(device);
    const Notifications &all = of(device, service_);
    if (waiting(device) == 0)
        return false;
    const uint64_t gone = overwritten(all, *mine);
    mine->lost += gone;
    device->lost += gone;
    const uint64_t number = mine->taken + gone + 1;
    event = all.events[number % EVENTS];
    mine->taken = number;
    mine->busy = 1;
    return true;
}

uint32_t Subscription::waiting(Transaction &device) const
{
    const Subscriber *mine = subscriber(device);
    return mine ? sim::waiting(of(device, service_), *mine) : 0;
}

// The doorbell is silent from now on only if nothing waits: who could not come this far comes
// again.
void Subscription::listenOn(Transaction &device)
{
    Subscriber *mine = subscriber(device);
    if (mine)
        mine->busy = 0;
    if (waiting(device) == 0) {
        char bytes[16];
        while (recv(doorbell_, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
        if (mine)
            mine->rung = 0;
    }
    setTimer(device);
}

void Subscription::setHandling(bool on)
{
    handled[static_cast<uint32_t>(service_)] = on;
}

void Subscription::setTimer(Transaction &device)
{
    if (timer_ < 0)
        return;
    constexpr uint64_t LONGEST = 86400 * SECOND; // after that it is set again
    itimerspec next{};
    if (const uint64_t wait = std::min(untilNextEnd(*device), LONGEST)) {
        next.it_value.tv_sec = static_cast<time_t>(wait / SECOND);
        next.it_value.tv_nsec = static_cast<long>(wait % SECOND) * 1000;
    }
    timerfd_settime(timer_, 0, &next, nullptr);
}

} // namespace sim
