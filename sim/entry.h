// The one entry of every stand-in: journal, fault, body.
#ifndef SIM_ENTRY_H
#define SIM_ENTRY_H

#include "behaviour.h"
#include "clock.h"
#include "fault.h"

#include <span>

namespace sim
{

using describe::platform::Arguments;
using describe::platform::Function;
using describe::platform::Index;

class Call
{
  public:
    template <class... Given>
    explicit Call(Index function, Given... given) : function_{function}, arguments_{given...}
    {
    }
    ~Call();

    // Whether the body is to run; when not, code() is what the call returns.
    bool enter();
    kvRc code() const { return code_; }

    // What a function that returns a text has returned, which the journal takes for filled.
    void filled(const char *text) { text_ = text; }
    // Whether a fault met it.
    bool isMet() const { return record_.fault != 0; }

    // Runs a body that returns a code: what it changed is kept when that is a success.
    template <class Body>
    kvRc run(Body body)
    {
        if (enter())
            answer(isTaken() ? body(device) : failureCode());
        return code_;
    }

    Transaction device;

  private:
    // The number of the object that the call is about; none without one.
    std::optional<uint32_t> object() const;
    std::optional<uint32_t> type() const;
    void growCounters();
    ArmedFault *meet();
    std::optional<uint64_t> argument(std::string_view name) const;
    // Whether the device can't take the call now.
    bool isAway();
    // Whether the device that this one is told to be like would look at it.
    bool isTaken();
    void answer(kvRc code);
    void wait(ArmedFault &fault);
    // Adds the call to the journal.
    JournalRecord &record();
    // Tells the journal what it returned.
    void finish();

    const Index function_;
    const Arguments arguments_;
    kvRc code_ = KV_OK;
    const char *text_ = nullptr;
    uint64_t begun_ = 0; // by the host's clock, in nanoseconds
    JournalRecord record_{};
    kvRc lost_ = KV_OK; // what it returns in place of its answer
    bool keeps_ = true; // what the body changed
};

void sleepMs(uint32_t milliseconds);

// Ends the PM intervals and reaches the states that are due by the device clock. Fails, and leaves
// them to the next call, when a subscriber can't be told.
kvRc tick(Transaction &device, uint64_t monotonic = hostMonotonic());

} // namespace sim

#endif
