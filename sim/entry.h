// The one entry of every stand-in: journal, fault, body.
#ifndef SIM_ENTRY_H
#define SIM_ENTRY_H

#include "device.h"

#include <initializer_list>

namespace sim
{

// What a call was given besides its scalars, and where it answers.
struct Bytes {
    const void *start = nullptr;
    uint32_t size = 0;
};

template <class Record>
Bytes bytesOf(const Record *record)
{
    return {record, sizeof(Record)};
}

class Call
{
  public:
    // The first of the arguments is the object, where the function has one.
    Call(Function function, std::initializer_list<uint32_t> arguments, Bytes in = {});
    ~Call();

    // Whether the body is to run; when not, code() is what the call returns.
    bool enter(Bytes out = {});
    kvRc code() const { return code_; }
    kvRc finish(kvRc code);

    Transaction device;

  private:
    ArmedFault *meet();
    void wait(const kvSimFault &fault);
    // Adds the call to the journal, as pending in a thread or (0) with what it returned.
    uint64_t record(uint32_t thread);

    const Function function_;
    uint32_t arguments_[4]{};
    uint32_t count_ = 0;
    const Bytes in_;
    kvRc code_ = KV_OK;
    uint64_t pending_ = 0; // its number, when it came into the journal before it returned
};

// Runs a stand-in's body as a transaction: it returns a code, and what it changed is kept when that
// is a success.
template <class Body>
kvRc call(Function function, std::initializer_list<uint32_t> arguments, Bytes in, Bytes out,
          Body body)
{
    Call entry{function, arguments, in};
    if (!entry.enter(out))
        return entry.code();
    return entry.finish(body(entry.device));
}

// The usual kinds: a getter fills a record, a setter is given one, an action neither.
template <class Record, class Body>
kvRc getter(Function function, std::initializer_list<uint32_t> arguments, Record *out, Body body)
{
    return call(function, arguments, {}, bytesOf(out), body);
}

template <class Record, class Body>
kvRc setter(Function function, std::initializer_list<uint32_t> arguments, const Record *in,
            Body body)
{
    return call(function, arguments, bytesOf(in), {}, body);
}

template <class Body>
kvRc action(Function function, std::initializer_list<uint32_t> arguments, Body body)
{
    return call(function, arguments, {}, {}, body);
}

void sleepMs(uint32_t milliseconds);

// The name of a function; null when there is none.
const char *nameOf(Function function);

// Ends the PM intervals and reaches the states that are due by the device clock. Fails, and leaves
// them to the next call, when a subscriber can't be told.
kvRc tick(Transaction &device);

} // namespace sim

#endif
