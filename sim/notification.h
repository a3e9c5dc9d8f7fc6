// Notifications to the processes that listen to the device.
#ifndef SIM_NOTIFICATION_H
#define SIM_NOTIFICATION_H

#include "entry.h"

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace sim
{

// Queues an event for all subscribers of a service and rings their doorbells, unless a fault does
// otherwise. Fails, and queues nothing, when one of them can't be woken.
kvRc notify(Transaction &device, Service service, const alarmEvent &event);

// A number of a notification, by its name.
std::optional<uint64_t> argumentOf(Service service, const alarmEvent &event, std::string_view name);

// The notifications that faults keep and that match are sent after all, in the order in which they
// are due.
kvRc sendKept(Transaction &device, const std::function<bool(const Kept &)> &matches);

// Rings the doorbells of a service's subscribers without an event, so that they look at the clock.
kvRc wake(Transaction &device, Service service);

// How many events a subscriber has not taken yet, and how many it has lost.
uint32_t waiting(const Notifications &all, const Subscriber &subscriber);
uint64_t lost(const Notifications &all, const Subscriber &subscriber);

inline bool isListening(const Subscriber &subscriber)
{
    return subscriber.used && !subscriber.ending;
}

// Ends those of a process (0: of all); false when there is none.
bool endSubscriptions(State &state, Service service, uint32_t process, kvSimEnding ending);

// The notifications that were lost since the last factory reset.
uint64_t lost(Transaction &device);

// Whether a process (0: any) that is still there has subscribed to services, a bit for each;
// without any bit, to one at all.
bool isSubscribed(const State &state, uint32_t process, uint32_t services);

// The subscribers that have not dealt with all of their notifications, and how many those are, the
// one in their hands included.
struct Backlog {
    uint32_t process;
    uint32_t count;
};
std::vector<Backlog> backlogs(Transaction &device, Service service);
// How many notifications wait for their time to be sent.
uint32_t lateOnes(const State &state);

// Whether the calling thread is in a handler of the service's.
bool isHandling(Service service);

// One service's subscription of this process.
class Subscription
{
  public:
    explicit Subscription(Service service) : service_{service} {}

    // A descriptor that is readable while events wait; -1 when there is none to be had.
    int descriptor();
    kvRc subscribe(Transaction &device);
    void unsubscribe(Transaction &device);

    // Hands the events that wait to the handler, with the device let go meanwhile. Those that come
    // in the meantime are for the next time, so that a stream of them does not keep the caller.
    template <class Handler>
    kvRc handOver(Transaction &device, Handler handler)
    {
        if (hasEnded(device))
            return fail(NO_DEVICE, "the subscription has ended: unsubscribe, then subscribe anew");
        alarmEvent event;
        for (uint32_t left = waiting(device); device && left > 0 && take(device, event); --left) {
            device.release();
            setHandling(true);
            handler(event);
            setHandling(false);
            device.regain();
        }
        if (!device)
            return failureCode();
        listenOn(device);
        return KV_OK;
    }

    // At the library's end, and in a forked child, where the descriptors are its parent's.
    void close();

  private:
    Subscriber *subscriber(Transaction &device) const;
    bool hasEnded(Transaction &device);
    uint32_t waiting(Transaction &device) const;
    bool take(Transaction &device, alarmEvent &event);
    void listenOn(Transaction &device);
    void setHandling(bool on);
    void setTimer(Transaction &device);

    const Service service_;
    int doorbell_ = -1;
    int timer_ = -1;
    int poll_ = -1;
    bool ended_ = false; // so that the descriptor tells it
    uint32_t slot_ = SUBSCRIBERS;
};

} // namespace sim

#endif
