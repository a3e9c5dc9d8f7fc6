// All runs of a sweep.
#ifndef SWEEP_SWEEP_H
#define SWEEP_SWEEP_H

#include "report.h"
#include "trial.h"

namespace sweep
{

struct Options {
    Task task;
    std::string points;              // a pattern; empty: all
    std::optional<double> timeout{}; // seconds
    unsigned jobs = 1;
    unsigned depth = 1;
    std::string resume; // the file of what has been judged; empty: none
    std::string only;   // an id; empty: all
    unsigned shard = 1, shards = 1;
    std::string folder; // where everything is made that goes afterwards
    int signals = -1;   // tells that it is to stop
};

// Throws a Trouble.
Report sweep(const Options &options);

} // namespace sweep

#endif
