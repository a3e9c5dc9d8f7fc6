#include "point.h"

#include <platform.h>
#include <recording.h>

#include <algorithm>
#include <map>
#include <memory>

namespace sweep
{

namespace
{

// The platform's general failure, of which nobody can make more than that.
constexpr uint32_t FAILURE = 1;
constexpr uint32_t MILLISECONDS = 100;

constexpr Effect EFFECTS[] = {
    {"code", KV_SIM_CODE, FAILURE, false, true},
    {"stuck", KV_SIM_CODE, FAILURE, true, false},
    {"hang", KV_SIM_HANG, 0, false, true},
    {"slow", KV_SIM_DELAY, MILLISECONDS, false, false},
    {"garbage", KV_SIM_GARBAGE, 1, false, false},
    {"lost", KV_SIM_LOST, FAILURE, false, true},
    {"noop", KV_SIM_NOTHING, 0, false, false},
    {"drop", KV_SIM_DROP, 0, false, true},
    {"double", KV_SIM_DOUBLE, 0, false, false},
    {"late", KV_SIM_LATE, MILLISECONDS, false, false},
};

// How the recording names what is handed to a service, and the simulated device what it sends.
struct Notification {
    const char *handler;
    uint32_t service;
    const char *fields[2];    // of what is handed over; null: it is a number itself
    const char *arguments[2]; // the same of a fault's
};
constexpr Notification NOTIFICATIONS[] = {
    {"alarm_notification_handler", KV_SIM_ALARMS, {"objType", "objId"}, {"type", "number"}},
    {"pm_notification_handler", KV_SIM_REPORTS, {}, {"interval"}},
};

const Notification *notificationOf(std::string_view handler)
{
    const auto found = std::ranges::find(NOTIFICATIONS, handler, &Notification::handler);
    return found == std::end(NOTIFICATIONS) ? nullptr : found;
}

std::string textOf(const trace::Object &object)
{
    return (object.kind == "pw" ? "pwe" : std::string{object.kind}) + "=" +
           std::to_string(object.number);
}

// Which object a call is about, and its name.
void putObject(const trace::Recording &recording, const trace::Call &call, Point &point)
{
    const trace::Function &function = recording.functionOf(call);
    const trace::Content content = recording.content(call);
    const auto given = [&](size_t place) {
        return static_cast<uint32_t>(content.arguments[place].number);
    };
    const Notification *const notification = notificationOf(function.name);
    if (notification && notification->fields[0]) {
        const trace::Type &record = *function.arguments[0].type;
        for (size_t i = 0; i < std::size(notification->fields); ++i)
            if (const trace::Field *field = record.find(notification->fields[i]))
                point.where.emplace_back(
                    notification->arguments[i],
                    static_cast<uint32_t>(trace::wordAt(
                        content.arguments[0].bytes.data() + field->offset, field->type->size)));
    } else if (notification) {
        point.where.emplace_back(notification->arguments[0], given(0));
    } else if (function.object >= 0) {
        const auto place = static_cast<size_t>(function.object);
        if (function.objectKind == "alarm" && place > 0)
            point.where.emplace_back(function.arguments[place - 1].name, given(place - 1));
        point.where.emplace_back(function.arguments[place].name, given(place));
    }
    const auto object = recording.objectOf(call, content);
    point.object = point.where.size() == 2 && object ? textOf(*object) : "";
    if (point.object.empty())
        for (const auto &[name, value] : point.where)
            point.object += (point.object.empty() ? "" : "=") + std::to_string(value);
    if (point.object.empty())
        point.object = "-";
}

void putOperation(const trace::Recording &recording, const trace::Call &call, Point &point)
{
    if (call.parent == trace::NONE)
        return;
    const trace::Function &around = recording.functionOf(recording.calls()[call.parent]);
    if (around.layer != trace::Layer::operation)
        return;
    point.operation = around.shortName();
    for (uint32_t i = recording.firstWithin(call.parent); i != trace::NONE;
         i = recording.calls()[i].next) {
        point.step += recording.calls()[i].function == call.function;
        if (&recording.calls()[i] == &call)
            return;
    }
}

bool isPoint(const trace::Function &function)
{
    if (function.layer == trace::Layer::handler)
        return notificationOf(function.name) != nullptr;
    const auto *row = describe::platform::find(function.name);
    return function.layer == trace::Layer::platform && row && describe::platform::canFail(*row);
}

} // namespace

std::span<const Effect> effects()
{
    return EFFECTS;
}

std::string idOf(const Faults &faults)
{
    std::string id;
    for (const Fault &fault : faults)
        id += (id.empty() ? "" : "+") + fault.point.name() + ":" + fault.effect->name;
    return id;
}

std::vector<Point> pointsOf(const std::vector<std::string> &files)
{
    struct Met {
        uint64_t clock;
        size_t recording;
        const trace::Call *call;
    };
    std::vector<std::unique_ptr<trace::Recording>> recordings;
    std::vector<Met> met;
    for (const std::string &file : files) {
        recordings.push_back(std::make_unique<trace::Recording>(file));
        const trace::Recording &recording = *recordings.back();
        if (recording.head().droppedEvents || recording.head().lostCalls)
            throw std::runtime_error("more calls than a sweep can record");
        for (const trace::Call &call : recording.calls())
            if (call.enter && isPoint(recording.functionOf(call)))
                met.push_back({call.begin, recordings.size() - 1, &call});
    }
    std::ranges::stable_sort(met, {}, &Met::clock);
    std::vector<Point> points;
    // Each process is told of a notification.
    std::map<std::pair<Point, size_t>, uint32_t> calls;
    for (const auto &[clock, place, call] : met) {
        const trace::Recording &recording = *recordings[place];
        Point point{};
        point.function = recording.functionOf(*call).name;
        putObject(recording, *call, point);
        const bool notifies = notificationOf(point.function) != nullptr;
        point.call = ++calls[{point, notifies ? place : 0}];
        putOperation(recording, *call, point);
        if (!notifies || std::ranges::find(points, point) == points.end())
            points.push_back(std::move(point));
    }
    return points;
}

kvSimFault armed(const Fault &fault)
{
    const auto &[point, effect] = fault;
    kvSimFault made{};
    const Notification *const notification = notificationOf(point.function);
    if (notification)
        made.service = notification->service;
    else
        point.function.copy(made.function, sizeof made.function - 1);
    for (size_t i = 0; i < point.where.size(); ++i) {
        point.where[i].first.copy(made.where[i].name, sizeof made.where[i].name - 1);
        made.where[i].value = point.where[i].second;
    }
    made.effect = effect->simulators;
    made.value = effect->value;
    (effect->stays ? made.skip : made.nth) = effect->stays ? point.call - 1 : point.call;
    return made;
}

Json toJson(const Point &point)
{
    return {{"function", point.function}, {"where", point.where},         {"object", point.object},
            {"call", point.call},         {"operation", point.operation}, {"step", point.step}};
}

Point pointOf(const Json &json)
{
    return {json.at("function"), json.at("where"),     json.at("object"),
            json.at("call"),     json.at("operation"), json.at("step")};
}

} // namespace sweep
