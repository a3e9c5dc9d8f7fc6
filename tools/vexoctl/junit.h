// A report as JUnit writes it, for what reads such reports.
#ifndef VEXOCTL_JUNIT_H
#define VEXOCTL_JUNIT_H

#include <string>
#include <vector>

namespace vexoctl::junit
{

struct Case {
    std::string group;
    std::string name;
    std::string skipped{}; // why; empty: it was not
    std::string failure{}; // its kind; empty: there is none
    std::string message{}; // of the failure
    std::string text{};    // of the failure, lines
};

// `date` as ISO 8601 without a zone; empty: none.
std::string suite(const std::string &name, const std::vector<Case> &cases,
                  const std::string &date = "");

} // namespace vexoctl::junit

#endif
