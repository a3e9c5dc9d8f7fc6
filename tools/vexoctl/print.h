// Text for people.
#ifndef VEXOCTL_PRINT_H
#define VEXOCTL_PRINT_H

#include "value.h"

namespace vexoctl
{

// How many columns there are to print on.
size_t width();

// Breaks a text that is longer than the width, between words; lines after the first are indented.
std::string folded(const std::string &text, size_t indent = 0);

// A text without what would lead a terminal astray.
std::string printable(const std::string &text);

// A document without JSON's marks.
std::string readable(const Json &document, size_t indent = 0);

} // namespace vexoctl

#endif
