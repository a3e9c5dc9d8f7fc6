#include "notification.h"

#include "clock.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim
{

namespace
{

// False when nobody is behind the doorbell any more.
bool ring(const Subscriber &subscriber)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, subscriber.name, sizeof subscriber.name);
    const int from = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (from < 0)
        return true;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + subscriber.nameSize);
    const ssize_t sent = sendto(from, "!", 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), size);
    const bool gone = sent < 0 && errno == ECONNREFUSED;
    ::close(from);
    return !gone;
}

uint32_t queued(const Subscriber &subscriber)
{
    return (subscriber.head - subscriber.tail) % EVENTS;
}

void ringOrForget(Subscriber &subscriber)
{
    if (!ring(subscriber))
        subscriber.service = Service::none;
}

} // namespace

void notify(Hold &hold, Service service, const alarmEvent &event)
{
    for (Subscriber &subscriber : hold->subscribers) {
        if (subscriber.service != service)
            continue;
        const bool wasEmpty = queued(subscriber) == 0;
        if (queued(subscriber) == EVENTS - 1) {
            ++hold->lost;
            ringOrForget(subscriber);
            continue;
        }
        subscriber.events[subscriber.head % EVENTS] = event;
        subscriber.head = (subscriber.head + 1) % EVENTS;
        if (wasEmpty)
            ringOrForget(subscriber);
    }
}

void wake(Hold &hold, Service service)
{
    for (Subscriber &subscriber : hold->subscribers)
        if (subscriber.service == service)
            ringOrForget(subscriber);
}

uint32_t pending(Hold &hold)
{
    uint32_t count = 0;
    for (Subscriber &subscriber : hold->subscribers) {
        if (subscriber.service == Service::none)
            continue;
        if (queued(subscriber) || subscriber.busy)
            ringOrForget(subscriber);
        if (subscriber.service != Service::none)
            count += queued(subscriber) + (subscriber.busy ? 1 : 0);
    }
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

void Subscription::forgetAfterFork()
{
    if (process_ != getpid())
        close();
    process_ = getpid();
}

// A doorbell, and for the PM service a timer beside it, seen as one descriptor.
int Subscription::descriptor()
{
    forgetAfterFork();
    if (poll_ >= 0)
        return poll_;
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

Subscriber *Subscription::subscriber(Hold &hold) const
{
    if (slot_ >= SUBSCRIBERS || process_ != getpid())
        return nullptr;
    Subscriber &mine = hold->subscribers[slot_];
    const bool still = mine.service == service_ && mine.process == static_cast<uint32_t>(process_);
    return still ? &mine : nullptr;
}

kvRc Subscription::subscribe(Hold &hold)
{
    if (descriptor() < 0)
        return fail(NO_DEVICE, "no descriptor for notifications: %s", strerror(errno));
    if (subscriber(hold))
        return KV_OK;
    for (Subscriber &subscriber : hold->subscribers)
        if (subscriber.service != Service::none)
            ringOrForget(subscriber);
    for (uint32_t i = 0; i < SUBSCRIBERS; ++i) {
        Subscriber &free = hold->subscribers[i];
        if (free.service != Service::none)
            continue;
        sockaddr_un name{};
        socklen_t size = sizeof name;
        if (getsockname(doorbell_, reinterpret_cast<sockaddr *>(&name), &size) != 0)
            return fail(NO_DEVICE, "no name for notifications: %s", strerror(errno));
        free.nameSize = static_cast<uint32_t>(size - offsetof(sockaddr_un, sun_path));
        memcpy(free.name, name.sun_path, sizeof free.name);
        free.process = static_cast<uint32_t>(process_);
        free.head = free.tail = free.busy = 0;
        free.service = service_;
        slot_ = i;
        setTimer(hold);
        return KV_OK;
    }
    return fail(FULL, "%u processes listen already, no more can", SUBSCRIBERS);
}

void Subscription::unsubscribe(Hold &hold)
{
    if (Subscriber *mine = subscriber(hold))
        mine->service = Service::none;
    close();
}

bool Subscription::take(Hold &hold, alarmEvent &event)
{
    Subscriber *mine = subscriber(hold);
    if (!mine)
        return false;
    mine->busy = queued(*mine) != 0;
    if (!mine->busy)
        return false;
    event = mine->events[mine->tail % EVENTS];
    mine->tail = (mine->tail + 1) % EVENTS;
    return true;
}

void Subscription::answerDoorbell()
{
    char bytes[16];
    while (recv(doorbell_, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
    uint64_t expirations;
    if (timer_ >= 0)
        while (read(timer_, &expirations, sizeof expirations) > 0) {
        }
}

void Subscription::setTimer(Hold &hold)
{
    if (timer_ < 0)
        return;
    itimerspec next{};
    if (const uint64_t wait = untilNextEnd(*hold)) {
        next.it_value.tv_sec = static_cast<time_t>(wait / 1000000);
        next.it_value.tv_nsec = static_cast<long>(wait % 1000000) * 1000;
    }
    timerfd_settime(timer_, 0, &next, nullptr);
}

} // namespace sim
