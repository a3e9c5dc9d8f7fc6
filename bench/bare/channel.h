// One notification service: a pipe that carries the events, and the handler that takes them.
#ifndef CHANNEL_H
#define CHANNEL_H

#include <atomic>

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
    // The latest subscriber's, also after it has gone.
    Handler handler() const { return handler_; }

    bool send(const Event &event) { return write(ends_[1], &event, sizeof event) == sizeof event; }
    bool take(Event &event) { return read(ends_[0], &event, sizeof event) == sizeof event; }

  private:
    int ends_[2]{};
    Handler handler_{};
    std::atomic<bool> subscribed_{};
};

} // namespace bare

#endif
