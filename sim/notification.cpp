#include "notification.h"

#include "clock.h"

#include <algorithm>
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

// Rings the doorbell, or forgets the subscriber when nobody is behind it any more. When it can't be
// rung, for want of a descriptor, the next event will try again.
void ring(Subscriber &subscriber)
{
    const int from = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (from < 0)
        return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, subscriber.name, sizeof subscriber.name);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + subscriber.nameSize);
    const ssize_t sent = sendto(from, "!", 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), size);
    if (sent == 1 || errno == EAGAIN)
        subscriber.rung = 1;
    else if (errno == ECONNREFUSED)
        subscriber.service = Service::none;
    ::close(from);
}

} // namespace

uint32_t queued(const Subscriber &subscriber)
{
    return (subscriber.head - subscriber.tail) % EVENTS;
}

void notify(Hold &hold, Service service, const alarmEvent &event)
{
    for (Subscriber &subscriber : hold->subscribers) {
        if (subscriber.service != service)
            continue;
        const bool full = queued(subscriber) == EVENTS - 1;
        if (full) {
            ++hold->lost;
            ++subscriber.lost;
        } else {
            subscriber.events[subscriber.head % EVENTS] = event;
            hold.edit(subscriber.head) = (subscriber.head + 1) % EVENTS;
        }
        if (full || !subscriber.rung)
            ring(subscriber);
    }
}

void wake(Hold &hold, Service service)
{
    for (Subscriber &subscriber : hold->subscribers)
        if (subscriber.service == service)
            ring(subscriber);
}

uint32_t pending(Hold &hold, Service service)
{
    uint32_t count = 0;
    for (Subscriber &subscriber : hold->subscribers) {
        if (subscriber.service != service || !(queued(subscriber) || subscriber.busy))
            continue;
        ring(subscriber);
        if (subscriber.service == service)
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

Subscriber *Subscription::subscriber(Hold &hold) const
{
    if (slot_ >= SUBSCRIBERS)
        return nullptr;
    Subscriber &mine = hold->subscribers[slot_];
    const bool still = mine.service == service_ && mine.process == static_cast<uint32_t>(getpid());
    return still ? &mine : nullptr;
}

kvRc Subscription::subscribe(Hold &hold)
{
    if (subscriber(hold))
        return KV_OK;
    if (poll_ < 0 && descriptor() < 0)
        return fail(NO_DEVICE, "no descriptor for notifications: %s", strerror(errno));
    for (Subscriber &subscriber : hold->subscribers)
        if (subscriber.service != Service::none)
            ring(subscriber);
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
        free.process = static_cast<uint32_t>(getpid());
        free.head = free.tail = free.rung = free.busy = 0;
        free.lost = 0;
        hold.edit(free.service) = service_;
        slot_ = i;
        setTimer(hold);
        return KV_OK;
    }
    return fail(FULL, "%u subscriptions to the device's notifications, no more can be",
                SUBSCRIBERS);
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
    if (!mine || queued(*mine) == 0)
        return false;
    event = mine->events[mine->tail % EVENTS];
    mine->tail = (mine->tail + 1) % EVENTS;
    mine->busy = 1;
    return true;
}

uint32_t Subscription::answerDoorbell(Hold &hold)
{
    char bytes[16];
    while (recv(doorbell_, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
    uint64_t expirations;
    if (timer_ >= 0)
        while (read(timer_, &expirations, sizeof expirations) > 0) {
        }
    Subscriber *mine = subscriber(hold);
    if (!mine)
        return 0;
    mine->rung = 0;
    return queued(*mine);
}

void Subscription::listenOn(Hold &hold)
{
    if (Subscriber *mine = subscriber(hold)) {
        mine->busy = 0;
        if (queued(*mine) && !mine->rung)
            ring(*mine);
    }
    setTimer(hold);
}

void Subscription::setTimer(Hold &hold)
{
    if (timer_ < 0)
        return;
    constexpr uint64_t LONGEST = 86400 * SECOND; // after that it is set again
    itimerspec next{};
    if (const uint64_t wait = std::min(untilNextEnd(*hold), LONGEST)) {
        next.it_value.tv_sec = static_cast<time_t>(wait / SECOND);
        next.it_value.tv_nsec = static_cast<long>(wait % SECOND) * 1000;
    }
    timerfd_settime(timer_, 0, &next, nullptr);
}

} // namespace sim
