// Which operations lead a device from what it is set to to what a document says.
#ifndef VEXOCTL_CONFIG_PLAN_H
#define VEXOCTL_CONFIG_PLAN_H

#include "config_document.h"

namespace vexoctl::config
{

// The order in which operations are performed: first what stands in the way goes; links are added
// to groups that are there.
enum class Phase { remove, destroy, set, modify, create, add };

struct Step {
    Key key;
    Phase phase;
    const describe::Operation *operation;
    Names words;
    Settings before, after; // what the object is set to
};

struct Plan {
    std::vector<Step> steps{};
    // Objects that are to be changed, though the device doesn't tell what they are set to: nothing
    // is planned for them, since it could not be undone.
    std::map<Key, std::string> untold{};
};

// With `prune`, objects that only the device has are deleted. Throws UsageError where the document
// can't be right.
Plan plan(const Document &device, const Document &wanted, bool prune);

// For one object, in the order in which it is done; with `anew` by deleting it first. Throws
// Untold.
std::vector<Step> planObject(const Key &key, const Settings &now, const Settings &wanted,
                             bool anew = false);

struct Untold : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A step as a command line, which a script or a shell can run.
std::string commandOf(const Step &step);

} // namespace vexoctl::config

#endif
