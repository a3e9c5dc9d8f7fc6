// What a test has in place of the device's functions, for answers that no device gives.
#ifndef TESTS_INSTEAD_H
#define TESTS_INSTEAD_H

#include "device.h"

#include <atomic>

// Called by the library instead of the device's function, until the test ends.
template <auto function>
inline std::atomic<decltype(function)> instead{nullptr};

// Puts the device's functions back.
void insteadOfNothing();

// Has a function answer this record.
template <auto function, class Record>
void answer(const Record &record)
{
    static Record answered;
    answered = record;
    instead<function> = [](Record *out, auto...) {
        *out = answered;
        return KV_OK;
    };
}

// A device, and functions instead of its own.
class Twisted : public Device
{
  protected:
    void TearDown() override { insteadOfNothing(); }
};

#endif
