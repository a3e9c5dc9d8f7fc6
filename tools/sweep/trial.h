// One run and what comes of it, in a process of its own: none can have more than one device.
#ifndef SWEEP_TRIAL_H
#define SWEEP_TRIAL_H

#include "point.h"
#include "verdict.h"

namespace sweep
{

struct Task {
    Agent agent;
    std::vector<const Effect *> effects;
    std::string check; // a command; empty: none
};

// A point that was met, with the effects that a fault there can have.
struct Place {
    Point point;
    std::vector<const Effect *> effects;
};

// Sorted by their points.
std::vector<Place> placesOf(const Json &told);

// Without a fault: before, after, end, wasTold, output, seconds, places. Throws Trouble when all
// did not go well.
Json goodRun(const Task &task, const Order &order);

// judged: the verdict, the difference, and what explains a bad one. With a recording also the
// places.
Json faultyRun(const Task &task, const Order &order, const Faults &faults, const Good &good);

} // namespace sweep

#endif
