// Values of the interface as people write them, and as JSON.
#ifndef VEXOCTL_VALUE_H
#define VEXOCTL_VALUE_H

#include <describe.h>

#include <nlohmann/json.hpp>

#include <set>
#include <stdexcept>
#include <string>

namespace vexoctl
{

using Json = nlohmann::ordered_json;
using Names = std::vector<std::string>;

// What is wrong with a command; nothing has been called.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// For a person, what is better read in hexadecimal is given as text.
enum class Style { json, human };

// What is shown of a value: fields that are there, enumerations by name where they have one.
Json toJson(const describe::Type &type, const void *value, Style style = Style::json);
Json toJson(const describe::Type &type, const void *value, uint32_t count, Style style);

// What is taken though it would else be refused.
struct Leniency {
    bool fields = false;  // that the record doesn't have are passed over
    bool members = false; // numbers that are no members of their enumeration
};

// Writes a value given as text. `what` names it in messages.
void parse(const describe::Type &type, const std::string &what, const std::string &text,
           Leniency leniency, void *value);

// The paths of the fields that were given ("psn.param1").
using Paths = std::set<std::string>;

// Sets a field of a record by its path, and with it the flag that makes it count.
void setField(const describe::Type &record, const std::string &path, const std::string &text,
              Leniency leniency, void *value);

// Reads a JSON document; one that repeats a name or is nested deeper than any record is refused.
Json readJson(const std::string &what, const std::string &text);

// Fills a record from JSON.
void fromJson(const describe::Type &record, const Json &json, Leniency leniency, void *value,
              Paths &given);

// Refuses fields that were given though the record doesn't have them, being what it is, and numbers
// and texts that would be cut.
void check(const describe::Type &record, const Paths &given, const void *value);

// The fields that were not given though the record, being what it is, can't do without.
Names missing(const describe::Type &record, const Paths &given, const void *value);

// Which numbers aren't cut: "from 0 to 255", or "made of the bits 0x30f".
std::string rangeOf(uint32_t limit);

// Refuses a number that would be cut.
void checkLimit(const std::string &what, uint32_t number, uint32_t limit);

// Refuses a text that would be cut.
void checkLength(const std::string &what, size_t length, uint32_t limit);

// "1, 2 or 3"
std::string inWords(const Names &names, const std::string &last = "or");

constexpr uint32_t UNLIMITED = 0xFFFFFFFF;

struct Leaf {
    std::string path;
    const describe::Type *record; // that the field is in
    const describe::Field *field;
    std::string condition; // "pweType=tdm-1", where the field isn't always there
    uint32_t limit;        // where it is always the same, else UNLIMITED
};
// The fields that are no records, of a record and of those in it.
std::vector<Leaf> leaves(const describe::Type &record);

// What an enumeration's value can be written as.
Names valuesOf(const describe::Type &type);

// "; did you mean '...'?" when one of the names is close to a misspelt one, else nothing.
std::string hint(const std::string &name, const Names &names);

} // namespace vexoctl

#endif
