// Values of the interface from and to text and JSON.
#ifndef VEXOCTL_CODEC_H
#define VEXOCTL_CODEC_H

#include "spelling.h"

#include <describe.h>

#include <nlohmann/json.hpp>

#include <set>

namespace vexoctl
{

using Json = nlohmann::ordered_json;

// For a person, what is better read in hexadecimal is given as text.
enum class Style { json, human };

// How the device keeps an IPv4 address in a word; where that isn't known, it is shown as a number.
enum class AddressOrder { unknown, host, network };
void setAddressOrder(AddressOrder order);

// What is shown of a value: fields that are there, enumerations by name where they have one.
Json toJson(const describe::Type &type, const void *value, Style style = Style::json);
Json toJson(const describe::Type &type, const void *value, uint32_t count, Style style);

// What is taken though it would else be refused.
struct Leniency {
    bool fields = false;  // that the record doesn't have are passed over
    bool members = false; // numbers that are no members of their enumeration
    bool stale = false;   // fields of a document that the record, being what it is, doesn't have
};

// Writes a value given as text. `what` names it in messages.
void parse(const describe::Type &type, const std::string &what, const std::string &text,
           Leniency leniency, void *value);

// The paths of the fields that were given ("psn.param1").
using Paths = std::set<std::string>;

// Reads a JSON document; one that repeats a name or is nested deeper than any record is refused.
Json readJson(const std::string &what, const std::string &text);

// {"psn": {"param1": "7"}} of "psn.param1" and "7".
Json nested(std::string path, Json value);

// Fills a record, or another value, from JSON, and the flags that make its fields count. The path
// is where it is in the whole.
void fromJson(const describe::Type &type, const Json &json, Leniency leniency, void *value,
              Paths &given, const std::string &path = "");

// What an enumeration's value can be written as.
Names valuesOf(const describe::Type &type);
// Its name, or the number where it has none.
std::string valueText(const describe::Type &type, uint32_t value);
std::string hexadecimal(uint32_t word);

// The field with this name; null when there is none.
const describe::Field *fieldOf(const describe::Type &record, std::string_view name);
const void *at(const void *record, const describe::Field &field);
void *at(void *record, const describe::Field &field);
uint32_t wordAt(const void *at);
void putWord(void *at, uint32_t word);

} // namespace vexoctl

#endif
