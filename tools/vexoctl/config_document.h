// What a device is set to, as a document that can be kept, compared and given back.
#ifndef VEXOCTL_CONFIG_DOCUMENT_H
#define VEXOCTL_CONFIG_DOCUMENT_H

#include "config_settings.h"

#include <cstring>

namespace vexoctl::config
{

// The objects that a device is asked for, from 1; no operation lists them.
struct Ranges {
    uint32_t ports = 16;
    uint32_t pwes = 1024;
    uint32_t groups = 8;
};

// The number of the last object; 0 for what has none.
uint32_t lastOf(const Kind &kind, const Ranges &ranges);

// "pdh 2" before "pdh 10".
struct ByNumber {
    bool operator()(const std::string &a, const std::string &b) const
    {
        return strverscmp(a.c_str(), b.c_str()) < 0;
    }
};

struct Document {
    // Null: the device tells nothing of it; nothing: it was asked for, and isn't there.
    std::map<Key, Settings> objects{};
    std::map<std::string, std::string, ByNumber> reasons{}; // by object, or by object and field
    Json state = nullptr;                                   // what changes by itself
    // Of a document that is a file: what stands in none of these isn't named.
    std::set<std::string> sections{};

    // Of an object that isn't among the others: null where that says nothing.
    Settings find(const Key &key) const;
};

// With `state`, also what changes by itself.
Document save(Device &device, const Ranges &ranges = {}, bool state = false);
// Of the device, what the other document names.
Document saveNamed(Device &device, const Document &other);
// Adds what the other document names and this one of the device does not have.
void addNamed(Device &device, const Document &other, Document &document);

Json toJson(const Document &document);

// Throws UsageError at a document that can't be one: of another format, with names that nothing
// has, values that nothing takes. `what` names it in messages.
Document readDocument(const std::string &what, const std::string &text);

struct Difference {
    Key key;
    std::string field; // empty: the whole object
    Json a, b;         // null: there is none
};

// What both tell otherwise, and objects that one of them says aren't there. What either of them
// doesn't know or doesn't name makes none.
std::vector<Difference> differences(const Document &a, const Document &b);
std::vector<Difference> differences(const Key &key, const Settings &a, const Settings &b);

Json toJson(const std::vector<Difference> &differences);

// A field's value as people read it.
std::string readable(const Key &key, const std::string &field, const Json &value);

} // namespace vexoctl::config

#endif
