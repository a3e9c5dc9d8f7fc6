// A command's calls: of one object, or of each of a list; with what was read before, where only
// changes are given.
#ifndef VEXOCTL_REQUEST_H
#define VEXOCTL_REQUEST_H

#include "invocation.h"
#include "manner.h"
#include "stop.h"

#include <functional>
#include <optional>

namespace vexoctl
{

// What the device or the system has refused.
struct Failure {
    std::string operation;
    vexoResult result;
    Json details = Json::object(); // for the JSON document only
    Status status = FAILURE;       // any other: the result has no code of the device's
};

// The objects that a word names: "pwId=1-50,60", "port=all".
struct Objects {
    std::string name; // of the argument
    std::vector<uint32_t> numbers;
};
// Of "1-50,60", which is named in messages.
std::vector<uint32_t> numbersOf(const std::string &name, const std::string &list);

// Takes the word out of the others; nothing when they name one object, or none.
std::optional<Objects> takeObjects(const describe::Operation &operation, Names &words);

// Reads files and standard input into the words that name them: they are read once.
void takeFiles(const describe::Operation &operation, Names &words);

// What the call ends, or empty when it ends nothing: "shuts the device down".
std::string endOf(const describe::Operation &operation, const Invocation &invocation);

// One call; changes are made in what the getter tells. Throws UsageError, and Failure when that
// can't be read. `before` is told of the call before it is made.
struct Answer {
    vexoResult result;
    Json outputs;
};
Answer request(const describe::Operation &operation, const Names &words, const Manner &manner,
               Style style, const std::function<void(const Invocation &)> &before);

// ---- Fields of the outputs ----

// Their value is given by name or number, as an argument's.
Json valueOf(const describe::Operation &operation, const std::string &path,
             const std::string &text);

using Fields = std::vector<std::pair<std::string, Json>>;

// The chosen ones ("vlan.vlanId,adminStatus"), null where an object doesn't have one; all of them
// that hold a value or a list of values, when none is chosen. Throws UsageError at one that none of
// the operations tells.
Fields choose(const std::vector<const describe::Operation *> &operations, const Json &outputs,
              const std::string &chosen);
// What an operation tells: "adminStatus", "vlan.vlanId". Empty where no row says it.
Names fieldNames(const describe::Operation &operation);
// Whether some object could have the field; an element goes by its index.
bool tells(const describe::Operation &operation, const std::string &path);

Json asObject(const Fields &fields);

// The fields of objects, a line each, under their names and that of the objects.
std::string table(const std::string &name, const std::vector<std::pair<uint32_t, Fields>> &objects);

// A value on one line: "-" when there is none.
std::string cell(const Json &value);

// Bare values on one line, with tabs between them.
std::string lineOf(const Fields &fields);

} // namespace vexoctl

#endif
