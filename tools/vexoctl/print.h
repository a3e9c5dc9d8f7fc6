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

// ISO 8601, of microseconds since the epoch: "2026-01-01T00:00:00.000000Z", or local time with its
// distance from UTC.
enum class Zone { none, utc, local };
std::string timeText(uint64_t microseconds, Zone zone);
// That of times that are shown; none when nobody has asked for them.
void setZone(Zone zone);
Zone zone();

// A document without JSON's marks.
std::string readable(const Json &document, size_t indent = 0);

} // namespace vexoctl

#endif
