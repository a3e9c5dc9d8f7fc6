#include "notification.h"

#include "clock.h"
#include "fault.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>

#include <fcntl.h>
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

kvRc send(Transaction &device, Service service, const alarmEvent &event)
{
    if (const kvRc code = wake(device, service))
        return code;
    Notifications &all = of(device, service);
    const uint64_t number = all.last + 1;
    device.modify(all.events[number % EVENTS]) = event;
    device.modify(all.last) = number;
    return KV_OK;
}

// Who listens sets its timer by what is due.
kvRc keep(Transaction &device, ArmedFault &by, Service service, const alarmEvent &event)
{
    const uint32_t index = device->keptCount;
    if (index >= KEPT) {
        ++device.modify(device->lost);
        return KV_OK;
    }
    const kvSimFault &fault = by.fault;
    const bool late = fault.effect == KV_SIM_LATE;
    device.modify(device->kept[index]) = {late ? uptime(*device) + fault.value * uint64_t{1000} : 0,
                                          static_cast<uint32_t>(&by - device->faults),
                                          static_cast<uint32_t>(service),
                                          fault.effect == KV_SIM_SWAP, event};
    device.modify(device->keptCount) = index + 1;
    ++device.modify(by.fault.waiting);
    return late ? wake(device, service) : KV_OK;
}

template <Service service>
std::optional<uint64_t> argument(const void *event, std::string_view name)
{
    return argumentOf(service, *static_cast<const alarmEvent *>(event), name);
}

ArmedFault *meet(Transaction &device, Service service, const alarmEvent &event)
{
    const uint32_t about = NOTIFICATIONS + static_cast<uint32_t>(service);
    if (service == Service::pm)
        return meet(device, {about, nullptr, {}, {}, argument<Service::pm>, &event});
    return meet(device,
                {about, nullptr, event.objType, event.objId, argument<Service::alarm>, &event});
}

// Replaces what the descriptor stands for by an end of a pipe or a connection whose other is
// closed, which it tells to whoever waits for it.
void breakOff(int descriptor, kvSimEnding ending)
{
    int ends[2];
    const int made = ending == KV_SIM_ERROR
                         ? pipe2(ends, O_CLOEXEC)
                         : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    if (made != 0)
        return; // it stays readable
    ::close(ends[0]);
    dup3(ends[1], descriptor, O_CLOEXEC);
    ::close(ends[1]);
}

} // namespace

std::optional<uint64_t> argumentOf(Service service, const alarmEvent &event, std::string_view name)
{
    if (service == Service::pm)
        return name == "interval" ? std::optional<uint64_t>{event.objType} : std::nullopt;
    return name == "type"     ? std::optional<uint64_t>{event.objType}
           : name == "number" ? std::optional<uint64_t>{event.objId}
           : name == "status" ? std::optional<uint64_t>{event.status}
           : name == "delta"  ? std::optional<uint64_t>{event.delta}
                              : std::nullopt;
}

kvRc wake(Transaction &device, Service service)
{
    for (Subscriber &subscriber : of(device, service).subscribers)
        if (isListening(subscriber) && !subscriber.rung && !ring(subscriber))
            return fail(NO_DEVICE, "process %u can't be notified: %s", subscriber.process,
                        strerror(errno));
    return KV_OK;
}

kvRc notify(Transaction &device, Service service, const alarmEvent &event)
{
    const auto isSwapped = [=](const Kept &kept) {
        return kept.swapped && kept.service == static_cast<uint32_t>(service);
    };
    if (std::any_of(device->kept, device->kept + std::min(device->keptCount, KEPT), isSwapped)) {
        const kvRc code = send(device, service, event);
        return code ? code : sendKept(device, isSwapped);
    }
    ArmedFault *met = device->faultCount ? meet(device, service, event) : nullptr;
    if (!met)
        return send(device, service, event);
    switch (met->fault.effect) {
    case KV_SIM_DROP:
        return KV_OK;
    case KV_SIM_DOUBLE: {
        const kvRc code = send(device, service, event);
        return code ? code : send(device, service, event);
    }
    default:
        return keep(device, *met, service, event);
    }
}

kvRc sendKept(Transaction &device, const std::function<bool(const Kept &)> &matches)
{
    Kept *const begin = device->kept;
    Kept *end = begin + std::min(device->keptCount, KEPT);
    if (std::none_of(begin, end, matches))
        return KV_OK;
    device.modify(device->kept);
    device.modify(device->keptCount);
    for (;;) {
        Kept *first = nullptr;
        for (Kept *kept = begin; kept != end; ++kept)
            if (matches(*kept) && (!first || kept->due < first->due))
                first = kept;
        if (!first)
            return KV_OK;
        const Kept next = *first;
        std::move(first + 1, end--, first);
        device->keptCount = static_cast<uint32_t>(end - begin);
        uint32_t &waiting = device->faults[next.fault % FAULTS].fault.waiting;
        device.modify(waiting) -= waiting > 0;
        const auto service = static_cast<Service>(next.service % SERVICES);
        if (const kvRc code = send(device, service, next.event))
            return code;
    }
}

bool endSubscriptions(State &state, Service service, uint32_t process, kvSimEnding ending)
{
    bool any = false;
    for (Subscriber &subscriber : state.services[static_cast<uint32_t>(service)].subscribers) {
        if (!isListening(subscriber) || (process && subscriber.process != process))
            continue;
        any = true;
        if (ending == KV_SIM_SILENCE) {
            subscriber.used = 0;
            continue;
        }
        subscriber.ending = ending;
        ring(subscriber);
    }
    return any;
}

uint32_t waiting(const Notifications &all, const Subscriber &subscriber)
{
    return static_cast<uint32_t>(std::min<uint64_t>(behind(all, subscriber), EVENTS));
}

uint64_t lost(const Notifications &all, const Subscriber &subscriber)
{
    return subscriber.lost + overwritten(all, subscriber);
}

uint32_t lateOnes(const State &state)
{
    return static_cast<uint32_t>(std::count_if(state.kept,
                                               state.kept + std::min(state.keptCount, KEPT),
                                               [](const Kept &kept) { return kept.due != 0; }));
}

std::vector<Backlog> backlogs(Transaction &device, Service service)
{
    Notifications &all = of(device, service);
    std::vector<Backlog> found;
    for (Subscriber &subscriber : all.subscribers) {
        const uint32_t count = waiting(all, subscriber) + (subscriber.busy ? 1 : 0);
        if (!isListening(subscriber) || count == 0)
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
            if (isListening(subscriber) && (!process || subscriber.process == process) &&
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
    ended_ = false;
}

// A doorbell, and a timer beside it, seen as one descriptor. It is made anew for
// each subscription, so that a caller that couldn't use the number gets another.
int Subscription::descriptor()
{
    if (slot_ < SUBSCRIBERS && !ended_)
        return poll_;
    close();
    doorbell_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    poll_ = epoll_create1(EPOLL_CLOEXEC);
    epoll_event readable{};
    readable.events = EPOLLIN;
    timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    const bool made =
        doorbell_ >= 0 && poll_ >= 0 && timer_ >= 0 &&
        bind(doorbell_, reinterpret_cast<sockaddr *>(&address), sizeof(sa_family_t)) == 0 &&
        epoll_ctl(poll_, EPOLL_CTL_ADD, doorbell_, &readable) == 0 &&
        epoll_ctl(poll_, EPOLL_CTL_ADD, timer_, &readable) == 0;
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

// What it was subscribed with tells that from now on.
bool Subscription::hasEnded(Transaction &device)
{
    Subscriber *mine = subscriber(device);
    if (mine && mine->ending) {
        breakOff(poll_, static_cast<kvSimEnding>(mine->ending));
        mine->used = 0;
        ended_ = true;
    }
    return ended_;
}

kvRc Subscription::subscribe(Transaction &device)
{
    const bool anew = hasEnded(device) || poll_ < 0;
    if (subscriber(device))
        return KV_OK;
    if (anew && descriptor() < 0)
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
        free.rung = free.busy = free.ending = 0;
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
    constexpr uint64_t LONGEST_WAIT = 86400 * SECOND; // after that it is set again
    itimerspec next{};
    if (const uint64_t wait = std::min(untilNext(*device, service_), LONGEST_WAIT)) {
        next.it_value.tv_sec = static_cast<time_t>(wait / SECOND);
        next.it_value.tv_nsec = static_cast<long>(wait % SECOND) * 1000;
    }
    timerfd_settime(timer_, 0, &next, nullptr);
}

} // namespace sim
