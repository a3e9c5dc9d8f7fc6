// Faults: what is armed, and what they keep waiting.
#ifndef SIM_FAULT_H
#define SIM_FAULT_H

#include "device.h"

#include <platform.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim
{

constexpr uint32_t ANY_FUNCTION = describe::platform::FUNCTION_COUNT;
constexpr uint32_t NOTIFICATIONS = ANY_FUNCTION + 1; // plus the service

// What faults are tried on: a call, or a notification.
struct Subject {
    uint32_t about;                          // as in ArmedFault
    const describe::platform::Function *row; // null: of a notification
    std::optional<uint32_t> type, object;
    // A number among its arguments.
    std::optional<uint64_t> (*argument)(const void *of, std::string_view name);
    const void *of;
};

// The fault that meets it, if any, with its place; counted already. Its counters are not part of
// the transaction.
ArmedFault *meet(Transaction &device, const Subject &subject);

// Takes faults that are no longer armed out of the order.
void forgetLapsed(Transaction &device);

// Where a function's calls have what a kvSimArgument names: among the numbers, or in the bytes of
// the record that is given.
struct NumberPlace {
    bool inRecord;
    uint32_t at;   // the index, or the offset
    uint32_t size; // in the record
};
std::optional<NumberPlace> placeOf(const describe::platform::Function &row, std::string_view name);
// All such names; of an array's elements the first.
std::vector<std::string> argumentsOf(const describe::platform::Function &row);

uint32_t arm(Transaction &device, const kvSimFault &fault); // 0, and fail()ed, when it can't be
kvRc endAllFaults(Transaction &device);
kvRc endFault(Transaction &device, uint32_t id);
kvRc releaseFault(Transaction &device, uint32_t id);
// Null, and fail()ed, when there is none.
ArmedFault *faultOf(Transaction &device, uint32_t id);
// By an index among those that are armed; null when there are no more.
ArmedFault *armedFault(Transaction &device, unsigned index);

// Words that look random, and are the same for the same numbers.
uint64_t mixed(uint32_t seed, uint32_t count);

} // namespace sim

#endif
