// What the public header says of each operation.
#ifndef DESCRIBE_HELP_H
#define DESCRIBE_HELP_H

#include <map>
#include <string_view>

namespace describe
{

extern const std::map<std::string_view, std::string_view> help;

} // namespace describe

#endif
