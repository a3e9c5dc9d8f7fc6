// Access to the device's state: one process at a time, and a change happens whole or not at all.
#ifndef SIM_DEVICE_H
#define SIM_DEVICE_H

#include "state.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace sim
{

// Why a call failed, for the calling thread: with which code, and what config_get_error_string
// returns.
__attribute__((format(printf, 2, 3))) kvRc fail(kvRc code, const char *format, ...);
kvRc failureCode();
const char *failureText();

// The codes with which this device refuses.
constexpr kvRc BAD_VALUE = 2;
constexpr kvRc NO_OBJECT = 4;
constexpr kvRc FULL = 128;
constexpr kvRc EXISTS = 256;
constexpr kvRc WRONG_STATE = 512;
constexpr kvRc NO_DEVICE = 1;

// The next transaction opens a device. False, and fail()ed, when this process listens to this one.
bool letGo();

// The thread that has locked it; 0: none.
uint32_t holder();

// An entry of the undo is its bytes, then where they belong; read from the end.
struct Mark {
    uint32_t offset;
    uint32_t size;
};

// A change of the device, with its lock. What modify() returned may be written; what was not
// committed is rolled back at the end, and when the process dies meanwhile.
class Transaction
{
  public:
    Transaction();
    ~Transaction();
    Transaction(const Transaction &) = delete;

    // False when the device can't be used; failureText() tells why.
    explicit operator bool() const { return state_ != nullptr; }
    State *operator->() const { return state_; }
    State &operator*() const { return *state_; }

    template <class Field>
    Field &modify(Field &field)
    {
        save(&field, sizeof field);
        return field;
    }

    // Calls visit(offset, size) for what was modified and not committed, also for what is modified
    // by that, until it is nothing.
    template <class Visit>
    void eachChange(Visit visit)
    {
        for (uint32_t seen = 0; seen < used_;) {
            const uint32_t end = used_;
            for (uint32_t at = end; at >= seen + sizeof(Mark);) {
                Mark mark;
                at -= static_cast<uint32_t>(sizeof mark);
                memcpy(&mark, state_->undo.bytes + at, sizeof mark);
                at -= std::min(at, mark.size);
                visit(mark.offset, mark.size);
            }
            seen = end;
        }
    }

    void modify(std::span<uint8_t> bytes)
    {
        save(bytes.data(), static_cast<uint32_t>(bytes.size()));
    }

    void commit();
    void rollback();

    // Lets others in for a while. When the device can't be had back the transaction is false.
    void release();
    void regain();

  private:
    void save(void *field, uint32_t size);

    State *state_;
    // Of the undo's bytes. The count in the device is for those who come after this process.
    uint32_t used_ = 0;
};

// Writes the factory defaults into a state that is all zeros.
void initialise(State &state);
// The same for any state. Keeps what belongs to the processes: their lock and their subscriptions;
// calls that hang go on.
void factoryReset(State &state);

// The device's clock, and what it showed when it was last looked at.
uint64_t deviceTime(State &state);
uint64_t seenTime(const State &state);

} // namespace sim

#endif
