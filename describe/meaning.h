// What the simulated device takes values to mean where their meaning is the platform's. Another
// device may take them differently.
#ifndef DESCRIBE_MEANING_H
#define DESCRIBE_MEANING_H

#include <span>
#include <string_view>
#include <vector>

namespace describe
{

struct Meaning {
    std::string_view of; // an enumeration, a record's field, or an argument of whichever operation
    std::string_view value;
    std::string_view meaning;
};

// The meaning of a value that the device never has by itself, and can't be given.
constexpr std::string_view NEVER = "never";

std::span<const Meaning> meanings();
// Those of one of them.
std::vector<Meaning> meaningsOf(std::string_view of);

// What a number of this name is counted in: "seconds", or "the platform's unit" where the interface
// leaves that to it; empty where it is a mere number.
std::string_view unitOf(std::string_view name);

} // namespace describe

#endif
