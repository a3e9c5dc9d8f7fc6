// Words for people: lists of them, and what a misspelt one was meant to be.
#ifndef VEXOCTL_SPELLING_H
#define VEXOCTL_SPELLING_H

#include <stdexcept>
#include <string>
#include <vector>

namespace vexoctl
{

using Names = std::vector<std::string>;

// What is wrong with a command; nothing has been called.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What was given, for a message; shortened when it is long.
std::string quoted(const std::string &text);

std::string joined(const Names &names, const std::string &separator);

// "1, 2 or 3"
std::string inWords(const Names &names, const std::string &last = "or");

// "; did you mean '...'?" when one of the names is close to a misspelt one, else nothing.
std::string hint(const std::string &name, const Names &names);

} // namespace vexoctl

#endif
