// One notification service: a pipe that carries the events, and the handler that takes them.
#ifndef CHANNEL_H
#define CHANNEL_H

#include <atomic>
#include <cstdlib>
#include <optional>
#include <type_traits>

#include <unistd.h>

namespace bare
{

template <class Event, class Handler>
class Channel
{
  public:
    int descriptor()
    {
        if (ends_[0] == 0 && pipe(ends_) != 0)
            return -1;
        return ends_[0];
    }

    void subscribe(Handler to)
    {
        handler_ = to;
        subscribed_.store(true);
    }
    void unsubscribe() { subscribed_.store(false); }
    bool subscribed() const { return subscribed_.load(); }

    // To the latest subscriber, also after it has gone.
    void deliver(const Event &event)
    {
        if constexpr (std::is_invocable_v<Handler, const Event *>)
            handler_(&event);
        else
            handler_(event);
    }

    void send(const Event &event)
    {
        if (write(ends_[1], &event, sizeof event) != sizeof event)
            abort();
    }

    std::optional<Event> take()
    {
        Event event;
        if (read(ends_[0], &event, sizeof event) != sizeof event)
            return {};
        return event;
    }

  private:
    int ends_[2]{};
    Handler handler_{};
    std::atomic<bool> subscribed_{};
};

} // namespace bare

#endif
