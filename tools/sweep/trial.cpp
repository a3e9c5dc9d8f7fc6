#include "trial.h"

#include <platform.h>
#include <simulator.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <sstream>

namespace sweep
{

namespace fs = std::filesystem;

namespace
{

std::vector<std::string> recordingsIn(const Order &order)
{
    std::vector<std::string> files;
    for (const auto &file : fs::directory_iterator{order.folder})
        if (file.path().string().starts_with(order.recording()))
            files.push_back(file.path());
    return files;
}

bool hasOutputs(const describe::platform::Function &row)
{
    return std::ranges::any_of(row.arguments, [](const auto &argument) {
        return argument.isPointer && argument.type &&
               argument.direction == describe::Direction::out;
    });
}

uint32_t arm(const Fault &fault)
{
    const kvSimFault made = armed(fault);
    return SIM(kv_sim_fault_arm)(&made);
}

// Whether the simulated device can do that, and it is of consequence.
bool canHave(const Point &point, const Effect &effect)
{
    const auto *row = describe::platform::find(point.function);
    return (row != nullptr) == (effect.simulators < KV_SIM_DROP) &&
           (effect.simulators != KV_SIM_GARBAGE || hasOutputs(*row)) && arm({point, &effect}) != 0;
}

Json placesIn(const Order &order)
{
    Json places = Json::array();
    for (const Point &point : pointsOf(recordingsIn(order))) {
        Json names = Json::array();
        for (const Effect &effect : effects())
            if (canHave(point, effect))
                names.push_back(effect.name);
        SIM(kv_sim_fault_clear)();
        places.push_back({{"point", toJson(point)}, {"effects", names}});
    }
    return places;
}

std::set<config::Key> befallenBy(const Faults &faults)
{
    using enum describe::platform::Object;
    std::set<config::Key> keys;
    for (const Fault &fault : faults) {
        const auto *row = describe::platform::find(fault.point.function);
        const auto kind = row ? row->objectKind : none;
        const char *const section = kind == port    ? "pdh"
                                    : kind == pw    ? "pwe"
                                    : kind == group ? "ima"
                                                    : nullptr;
        for (const config::Kind &one : config::kinds())
            if (section && one.section == section)
                keys.insert({&one, fault.point.where.front().second});
    }
    return keys;
}

void openDevice(const Order &order)
{
    setenv("KV_SIM_DEVICE", order.device().c_str(), 1);
    if (SIM(kv_sim_open)() != 0)
        throw Trouble(SIM(kv_sim_error)());
}

// What it wrote last, without the lines that it may have gone on writing for ever.
std::vector<std::string> lastLines(const std::string &output)
{
    constexpr size_t LINES = 10, LENGTH = 200;
    std::deque<std::string> lines;
    std::istringstream stream{output};
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line.substr(0, LENGTH));
        if (lines.size() > LINES)
            lines.pop_front();
    }
    return {lines.begin(), lines.end()};
}

std::string indented(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += "\n    " + line;
    return text;
}

void checkGood(const Ran &ran, const std::string &command)
{
    std::string what;
    if (ran.crashed)
        what = "crashed";
    else if (ran.hung && ran.wasTold)
        what = "did not end when it was told to";
    else if (ran.hung)
        what = "came neither to an end nor to rest in time (--timeout, --until and --idle)";
    else if (!ran.wasTold && ran.end != "status 0")
        what = "ended with " + ran.end;
    if (!what.empty())
        throw Trouble("without a fault, " + command + " " + what + indented(lastLines(ran.output)));
}

} // namespace

std::vector<Place> placesOf(const Json &told)
{
    std::vector<Place> places;
    for (const Json &json : told) {
        Place &place = places.emplace_back(Place{pointOf(json.at("point")), {}});
        for (const std::string name : json.at("effects"))
            place.effects.push_back(&*std::ranges::find(effects(), name, &Effect::name));
    }
    std::ranges::sort(places, {}, &Place::point);
    return places;
}

Json goodRun(const Task &task, const Order &order)
{
    openDevice(order);
    Json told;
    told["before"] = config::toJson(deviceNow());
    const Ran ran = run(task.agent, order);
    checkGood(ran, task.agent.command[0]);
    told["after"] = config::toJson(deviceNow());
    told["end"] = ran.end;
    told["wasTold"] = ran.wasTold;
    told["output"] = ran.output;
    told["seconds"] = ran.seconds;
    told["places"] = placesIn(order);
    if (task.check.empty())
        return told;
    if (const Ran check = runShell(task.check, order); !succeeded(check))
        throw Trouble("without a fault, the check failed: " + task.check +
                      indented(lastLines(check.output)));
    return told;
}

Json faultyRun(const Task &task, const Order &order, const Faults &faults, const Good &good)
{
    openDevice(order);
    uint32_t last = 0;
    for (const Fault &fault : faults)
        if ((last = arm(fault)) == 0)
            throw Trouble(idOf(faults) + ": " + SIM(kv_sim_error)());
    const Ran ran = run(task.agent, order);
    kvSimFault fault{};
    SIM(kv_sim_fault_find)(last, &fault);
    SIM(kv_sim_fault_clear)();
    const config::Document after = deviceNow();
    const auto different = differences(good.after, after);
    const bool passed = task.check.empty() || succeeded(runShell(task.check, order));
    const auto [verdict, unnamed] =
        judge(good, {ran, after, passed, fault.met > 0, befallenBy(faults)}, different);
    Json told{{"judged", {{"verdict", verdict}, {"difference", config::toJson(different)}}}};
    if (isBad(verdict))
        told["judged"].update({{"unnamed", unnamed},
                               {"check", passed},
                               {"end", ran.hung ? "did not end" : "ended with " + ran.end},
                               {"output", lastLines(ran.output)}});
    if (order.records)
        told["places"] = fault.met > 0 ? placesIn(order) : Json::array();
    return told;
}

} // namespace sweep
