// What a sweep has found, for people and programs.
#ifndef SWEEP_REPORT_H
#define SWEEP_REPORT_H

#include "point.h"

#include <map>

namespace sweep
{

// {"points": [...], "verdicts": {...}}
Json reportOf(const std::vector<Json> &entries);
// The entries of several reports; of a point that is in more than one, the worse.
std::vector<Json> merged(const std::vector<std::string> &files);

bool isGood(const std::vector<Json> &entries);

std::string asText(const std::vector<Json> &entries);
std::string asTap(const std::vector<Json> &entries);
std::string asJunit(const std::vector<Json> &entries);

} // namespace sweep

#endif
