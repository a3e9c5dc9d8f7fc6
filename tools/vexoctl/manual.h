// What `help` tells of an operation.
#ifndef VEXOCTL_MANUAL_H
#define VEXOCTL_MANUAL_H

#include "codec.h"

namespace vexoctl
{

// "pwe params get pwId=..."
std::string usage(const describe::Operation &operation);

Json manualDocument(const describe::Operation &operation);
std::string manualText(const describe::Operation &operation);

// The platform's functions that an operation calls, case by case.
Json callsOf(const describe::Operation &operation);

} // namespace vexoctl

#endif
