// Values of the interface as people write them, and as JSON.
#ifndef VEXOCTL_VALUE_H
#define VEXOCTL_VALUE_H

#include <describe.h>

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace vexoctl
{

using Json = nlohmann::ordered_json;

// What is wrong with a command; nothing has been called.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What is shown of a value: fields that are there, enumerations by name where they have one.
Json toJson(const describe::Type &type, const void *value);
Json toJson(const describe::Type &type, const void *value, uint32_t count);

// Writes a value given as text. `what` names it in messages.
void parse(const describe::Type &type, const std::string &what, const std::string &text,
           void *value);

// Sets a field of a record by its path ("psn.param1"), and with it the flag that makes it count.
void setField(const describe::Type &record, const std::string &path, const std::string &text,
              void *value);

// Fills a record from JSON; with `lenient`, fields that it doesn't have are passed over.
void fromJson(const describe::Type &type, const std::string &what, const Json &json, bool lenient,
              void *value);

// Refuses numbers and texts that would be cut.
void checkLimits(const describe::Type &record, const std::string &path, const void *value);

// The paths of all fields that can be set.
std::vector<std::string> fieldPaths(const describe::Type &record);

const describe::Field *fieldOf(const describe::Type &record, std::string_view name);

// The closest of some names, for a misspelt one; empty when none is close.
std::string closest(const std::string &name, const std::vector<std::string> &names);

std::string hint(const std::string &name, const std::vector<std::string> &names);

} // namespace vexoctl

#endif
