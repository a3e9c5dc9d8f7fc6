// Where the public header declares what is covered.
#ifndef VEXOTRACE_HEADER_LINES_H
#define VEXOTRACE_HEADER_LINES_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace vexotrace
{

struct HeaderLine {
    std::string_view file;
    unsigned line;
    std::string_view enumeration; // empty: of an operation or a callback
    std::string_view name;
    uint32_t value;
};

extern const std::vector<HeaderLine> headerLines;

} // namespace vexotrace

#endif
