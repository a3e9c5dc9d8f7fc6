// What is kept on a device, by the rows that describe its operations: which kinds of objects there
// are, and what each object is set to.
#ifndef VEXOCTL_CONFIG_SETTINGS_H
#define VEXOCTL_CONFIG_SETTINGS_H

#include "invocation.h"

#include <compare>
#include <map>
#include <optional>

namespace vexoctl::config
{

// Fields by their names; null where the device doesn't tell. Nothing: the object isn't there.
using Settings = std::optional<Json>;

// A field of an object, of which a record's own fields are parts.
struct Field {
    const describe::Type *type;
    uint32_t limit = UNLIMITED;
    const char *with = nullptr; // the part that the object must have for it
    // Of a list, how many there can be, and what adds to it and removes from it.
    uint32_t most = 0;
    const describe::Operation *adds = nullptr;
    const describe::Operation *removes = nullptr;

    bool isList() const { return adds != nullptr; }
};

struct Setter {
    const describe::Operation *operation;
    const describe::Type *record; // that it is given; null: single values
    Names fields;
};

// Ports, pseudowires and groups are one kind each, every setting of the system is one.
struct Kind {
    std::string section;          // of the document: "system", "pdh", "pwe", "ima"
    std::string setting;          // of the system: "tpid"
    const char *number = nullptr; // the argument that is the number of an object
    std::vector<const describe::Operation *> getters{};
    std::vector<Setter> setters{};
    std::map<std::string, Field> fields{};
    // Of objects that are created and deleted, the setter that does so, and its field that says it.
    std::string action{};
    size_t maker = SIZE_MAX;

    bool isMade() const { return maker != SIZE_MAX; }
};

// Sections in the order of the document, settings of the system by their names.
const std::vector<Kind> &kinds();
const Kind *numberedKind(const std::string &section);
bool isGetter(const describe::Operation &operation);

struct Key {
    const Kind *kind;
    uint32_t number = 0;

    // NOLINTNEXTLINE(modernize-use-nullptr): the comparison of the standard library
    auto operator<=>(const Key &) const = default;
};

// What the operation sets a part of, of the object with this number, and its getter tells; nothing
// when there is no such setting.
std::optional<Key> settingOf(const describe::Operation &operation, uint32_t number);

std::string nameOf(const Key &key);
// The argument that says which object is meant: "pwId=17"; none for the system.
Names wordsOf(const Key &key);
// The part of an operation's name that says what it is about: "lnk_state".
std::string subjectOf(const describe::Operation &operation);

// What is called; whoever has to come in between puts a device of its own in front.
class Device
{
  public:
    virtual ~Device() = default;
    // With words as a command has them. The outputs by their names; none after a failure.
    virtual vexoResult call(const describe::Operation &operation, const Names &words,
                            Json &outputs);
};

std::string textOf(const vexoResult &failure);

struct Reading {
    Settings settings;
    std::string reason{};                         // why the object isn't there, or isn't told
    std::map<std::string, std::string> refused{}; // why a field isn't
};

// Calls no operation that changes anything. What several operations tell was true at one moment.
Reading read(Device &device, const Key &key);

// "vlan.vlanId" and the like, with their values; a list is one value.
std::vector<std::pair<std::string, Json>> flat(const Json &fields, const std::string &prefix = "");

} // namespace vexoctl::config

#endif
