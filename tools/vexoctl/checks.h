// What a given record must, and may not, have.
#ifndef VEXOCTL_CHECKS_H
#define VEXOCTL_CHECKS_H

#include "codec.h"

namespace vexoctl
{

// Refuses fields that were given though the record doesn't have them, being what it is, and numbers
// and texts that would be cut.
void check(const describe::Type &record, const Paths &given, const void *value,
           const std::string &prefix = "");

// The fields that were not given though the record, being what it is, can't do without.
Names missing(const describe::Type &record, const Paths &given, const void *value,
              const std::string &prefix = "");

// Which numbers aren't cut: "from 0 to 255", or "made of the bits 0x30f".
std::string rangeOf(uint32_t limit);

// Refuses a number that would be cut.
void checkLimit(const std::string &what, uint32_t number, uint32_t limit);

// Refuses a text that would be cut.
void checkLength(const std::string &what, size_t length, uint32_t limit);

constexpr uint32_t UNLIMITED = 0xFFFFFFFF;

struct Leaf {
    std::string path;
    const describe::Type *record; // that the field is in
    const describe::Field *field;
    std::string condition; // "pweType=tdm-1", where the field isn't always there
    uint32_t limit;        // where it is always the same, else UNLIMITED
};
// The fields that are no records, of a record and of those in it.
std::vector<Leaf> leaves(const describe::Type &record, const std::string &prefix = "",
                         const std::string &condition = "");

} // namespace vexoctl

#endif
