// Delivery of notifications to the processes that listen to the device.
#ifndef SIM_NOTIFICATION_H
#define SIM_NOTIFICATION_H

#include "entry.h"

namespace sim
{

// Queues an event for all subscribers of a service and rings their doorbells.
void notify(Hold &hold, Service service, const alarmEvent &event);

// Rings the doorbells of a service's subscribers without an event, so that they look at the clock.
void wake(Hold &hold, Service service);

// The notifications that nobody has taken yet.
uint32_t pending(Hold &hold);

// One service's subscription of this process.
class Subscription
{
  public:
    explicit Subscription(Service service) : service_{service} {}

    // The descriptor that becomes readable; -1 when there is none to be had.
    int descriptor();
    kvRc subscribe(Hold &hold);
    void unsubscribe(Hold &hold);
    // The next event, if there is one.
    bool take(Hold &hold, alarmEvent &event);
    // Before events are taken: empties the doorbell; and after: sets the alarm clock.
    void answerDoorbell();
    void setTimer(Hold &hold);

    void close();

  private:
    void forgetAfterFork();
    Subscriber *subscriber(Hold &hold) const;

    const Service service_;
    int process_ = 0;
    int doorbell_ = -1;
    int timer_ = -1;
    int poll_ = -1;
    uint32_t slot_ = SUBSCRIBERS;
};

} // namespace sim

#endif
