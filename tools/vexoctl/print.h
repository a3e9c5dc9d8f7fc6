// Text for people.
#ifndef VEXOCTL_PRINT_H
#define VEXOCTL_PRINT_H

#include "codec.h"

namespace vexoctl
{

// Breaks a text that is wider than the terminal, between words; lines after the first are indented.
// Elsewhere, as in a pipe, a text stays one line.
std::string folded(const std::string &text, size_t indent = 0);

// A name and, from a column on, what it is; on the next line when the name is too long.
std::string aligned(const std::string &name, const std::string &text, size_t column);

// A text without what would lead a terminal astray.
std::string printable(const std::string &text);

// A document without JSON's marks.
std::string readable(const Json &document, size_t indent = 0);

} // namespace vexoctl

#endif
