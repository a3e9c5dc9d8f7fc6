// What a sweep has found, for people and programs.
#ifndef SWEEP_REPORT_H
#define SWEEP_REPORT_H

#include "point.h"

#include <map>

namespace sweep
{

struct Report {
    Json sweep; // what it is of: what was run, with which options, and which shard this is
    std::vector<Json> entries; // in the order of their points; after each, those of greater depth
};

// {"sweep": {...}, "points": [...], "verdicts": {...}}
Json toJson(const Report &report);
// Of all shards of a sweep; of a fault that is in more than one, the worse. What else there is to
// be said of them is put into the notes.
Report merged(const std::vector<std::string> &files, std::vector<std::string> &notes);

bool isGood(const std::vector<Json> &entries);

std::string asText(const std::vector<Json> &entries);
std::string asTap(const std::vector<Json> &entries);
std::string asJunit(const std::vector<Json> &entries);

} // namespace sweep

#endif
