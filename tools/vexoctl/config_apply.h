// Performs a plan, and takes it back when a part of it fails.
#ifndef VEXOCTL_CONFIG_APPLY_H
#define VEXOCTL_CONFIG_APPLY_H

#include "config_plan.h"
#include "stop.h"

namespace vexoctl::config
{

// What went wrong, and with which command, or object.
struct Trouble {
    std::string what;
    std::string text;
    uint32_t rc = 0; // of an operation that failed
};

struct Report {
    std::vector<std::string> done{}; // commands
    std::vector<Trouble> failed{};
    std::vector<std::string> undone{}; // commands that took back what had been done
    std::vector<Trouble> notUndone{};
    // Of the command, where anything failed; when it was stopped, why.
    Status status = FAILURE;
};

// Each with its members: what, text, rc.
Json listOf(const std::vector<Trouble> &troubles);
// What became of the undo, a line each.
Names undoLines(const Report &report);

// What objects were set to before they were changed, so that they can be led back.
class Undo
{
  public:
    explicit Undo(Device &device) : device_{device} {}

    void remember(const Key &key, Settings before) { steps_.emplace_back(key, std::move(before)); }

    // From the last to the first. Each object is read before, since also what failed may have been
    // carried out. What was interrupted is undone all the same.
    void run(Report &report);

  private:
    Device &device_;
    std::vector<std::pair<Key, Settings>> steps_;
};

// With `keepGoing` nothing is taken back, and only what stops the command ends it before the end.
// Objects are read afterwards: what a device took otherwise than it was told has failed, too.
Report apply(Device &device, const Plan &plan, bool keepGoing);

} // namespace vexoctl::config

#endif
