// Where a fault can befall an agent, and which.
#ifndef SWEEP_POINT_H
#define SWEEP_POINT_H

#include <kv_sim.h>

#include <nlohmann/json.hpp>

#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace sweep
{

using Json = nlohmann::ordered_json;

// What befalls the call or the notification.
struct Effect {
    const char *name;
    uint32_t simulators; // a kvSimEffect
    uint32_t value;
    bool stays;     // from then on, else once
    bool isDefault; // where none are asked for
};

std::span<const Effect> effects();

// The n-th call of a function about an object, or the n-th notification about one.
struct Point {
    std::string function;
    std::vector<std::pair<std::string, uint32_t>> where; // the arguments that say which object
    std::string object;                                  // "17", "pwe=17"; "-": none
    uint32_t call;
    std::string operation; // of the library's, within which it is; empty: none
    uint32_t step;         // which call of that function within the operation

    std::string name() const { return function + "/" + object + "/" + std::to_string(call); }
    auto key() const { return std::tie(function, where, call); }
    auto operator<=>(const Point &other) const { return key() <=> other.key(); }
    bool operator==(const Point &other) const { return key() == other.key(); }
};

struct Fault {
    Point point;
    const Effect *effect;
};

// One after the other: what is met while the agent recovers from those before.
using Faults = std::vector<Fault>;

// "config_add_pw/17/1:code", joined by +.
std::string idOf(const Faults &faults);

// What these recordings of one run have met, in its order.
std::vector<Point> pointsOf(const std::vector<std::string> &recordings);

// As the simulated device takes it.
kvSimFault armed(const Fault &fault);

Json toJson(const Point &point);
Point pointOf(const Json &json);

} // namespace sweep

#endif
