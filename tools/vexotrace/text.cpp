#include "text.h"

#include <cstdio>
#include <ctime>

namespace vexotrace
{

using trace::Call;
using trace::Content;
using trace::Detail;
using trace::Function;
using trace::NONE;
using trace::Recording;

namespace
{

constexpr uint64_t SECOND = 1000000000;

// With so many digits of a second.
std::string timeText(uint64_t time, const char *format, tm *(*partsOf)(const time_t *, tm *),
                     size_t digits)
{
    const auto seconds = static_cast<time_t>(time / SECOND);
    tm parts;
    partsOf(&seconds, &parts);
    char text[32], fraction[16];
    strftime(text, sizeof text, format, &parts);
    snprintf(fraction, sizeof fraction, ".%09u", static_cast<unsigned>(time % SECOND));
    return text + std::string{fraction, 1 + digits};
}

std::string worldTime(uint64_t time)
{
    return timeText(time, "%Y-%m-%dT%H:%M:%S", gmtime_r, 6) + "Z";
}

bool isShown(const trace::Argument &argument, Detail detail)
{
    return detail != Detail::steady || !argument.changes;
}

std::string listed(const Function &function, const Content &content, bool outputs, Detail detail)
{
    std::string text;
    for (size_t i = 0; i < function.arguments.size(); ++i) {
        const trace::Argument &argument = function.arguments[i];
        if (argument.output != outputs || (outputs && !content.arguments[i].isThere) ||
            !isShown(argument, detail))
            continue;
        const Json value = toJson(argument, content.arguments[i], detail);
        for (const auto &[name, shown] : valuesOf(value.is_object() ? "" : argument.name, value))
            text += (text.empty() ? "" : ", ") + name + "=" + shown;
    }
    return text;
}

std::string codeText(const Function &function, uint32_t code, Detail detail)
{
    if (function.returns == trace::Returns::descriptor && detail == Detail::steady)
        return static_cast<int>(code) < 0 ? "-1" : "a descriptor";
    if (function.returns != trace::Returns::code || code < 10)
        return std::to_string(static_cast<int>(code));
    char hex[16];
    snprintf(hex, sizeof hex, "0x%x", code);
    return hex;
}

std::string resultText(const Function &function, const Content &content, Detail detail)
{
    std::string text;
    if (content.code)
        text = codeText(function, *content.code, detail);
    if (content.text)
        text += (text.empty() ? "" : " ") + dump(*content.text);
    return text.empty() ? "" : " = " + text;
}

void addLines(const Recording &recording, uint32_t place, Detail detail, size_t depth,
              std::vector<std::string> &lines)
{
    lines.push_back(std::string(2 * depth, ' ') +
                    lineOf(recording, recording.calls()[place], detail));
    for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
        addLines(recording, i, detail, depth + 1, lines);
}

} // namespace

std::string timeText(uint64_t time)
{
    return timeText(time, "%H:%M:%S", localtime_r, 3);
}

std::string durationText(uint64_t nanoseconds)
{
    char text[32];
    if (nanoseconds < 1000000)
        snprintf(text, sizeof text, "%.3g µs", static_cast<double>(nanoseconds) / 1e3);
    else if (nanoseconds < SECOND)
        snprintf(text, sizeof text, "%.3g ms", static_cast<double>(nanoseconds) / 1e6);
    else
        snprintf(text, sizeof text, "%.3f s", static_cast<double>(nanoseconds) / 1e9);
    return text;
}

std::string dump(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<uint64_t> durationOf(const Recording &recording, const Call &call)
{
    if (!call.begin || (!call.end && !call.isOpen(recording)))
        return {};
    uint64_t end = call.end ? call.end : recording.lastClock();
    if (call.isRunning(recording)) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        end = static_cast<uint64_t>(now.tv_sec) * SECOND + static_cast<uint64_t>(now.tv_nsec);
    }
    return end > call.begin ? end - call.begin : 0;
}

std::vector<std::pair<std::string, std::string>> valuesOf(const std::string &name,
                                                          const Json &value)
{
    if (!value.is_object())
        return {{name, dump(value)}};
    std::vector<std::pair<std::string, std::string>> values;
    for (const auto &[field, element] : value.items())
        for (auto &one : valuesOf(name.empty() ? field : name + "." + field, element))
            values.push_back(std::move(one));
    return values;
}

std::string askedOf(const Function &function, const Content &content, Detail detail)
{
    return std::string{function.shortName()} + "(" + listed(function, content, false, detail) + ")";
}

std::string lineOf(const Recording &recording, const Call &call, Detail detail)
{
    const Content content = recording.content(call);
    const Function &function = recording.functionOf(call);
    std::string line = call.enter ? askedOf(function, content, detail)
                                  : std::string{function.shortName()} + "(...)";
    if (call.exit) {
        line += resultText(function, content, detail);
        if (const std::string outputs = listed(function, content, true, detail); !outputs.empty())
            line += " {" + outputs + "}";
    } else {
        line += call.isRunning(recording) ? " still running" : " did not return";
    }
    if (const auto duration = durationOf(recording, call); duration && detail != Detail::steady)
        line += " <" + durationText(*duration) + ">";
    return line;
}

std::vector<std::string> linesOf(const Recording &recording, uint32_t place, Detail detail)
{
    std::vector<std::string> lines;
    addLines(recording, place, detail, 0, lines);
    return lines;
}

Json argumentsOf(const Recording &recording, const Call &call, Detail detail)
{
    const Function &function = recording.functionOf(call);
    const Content content = recording.content(call);
    Json json;
    Json &arguments = json["arguments"] = Json::object();
    Json result = Json::object();
    if (content.code)
        result["code"] = *content.code;
    if (content.text)
        result["text"] = *content.text;
    for (size_t i = 0; i < function.arguments.size(); ++i) {
        const trace::Argument &argument = function.arguments[i];
        if (!isShown(argument, detail))
            continue;
        if (!argument.output)
            arguments[argument.name] = toJson(argument, content.arguments[i], detail);
        else if (content.arguments[i].isThere)
            result[argument.name] = toJson(argument, content.arguments[i], detail);
    }
    if (call.exit)
        json["result"] = std::move(result);
    return json;
}

Json documentOf(const Recording &recording, uint32_t place, Detail detail)
{
    const Call &call = recording.calls()[place];
    const Function &function = recording.functionOf(call);
    Json json;
    json["time"] = worldTime(recording.timeOf(call.clock()));
    json["thread"] = recording.threads()[call.thread].id;
    json["layer"] = nameOf(function.layer);
    json["name"] = function.shortName();
    json.update(argumentsOf(recording, call, detail));
    if (const auto duration = durationOf(recording, call))
        json["duration"] = static_cast<double>(*duration) / 1e9;
    if (call.isRunning(recording))
        json["running"] = true;
    Json &children = json["children"] = Json::array();
    for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
        children.push_back(documentOf(recording, i, detail));
    return json;
}

std::string textOf(const trace::Object &object)
{
    return (object.kind == "pw" ? "pwe" : std::string{object.kind}) + "=" +
           std::to_string(object.number);
}

void warn(const std::string &file, const Recording &recording)
{
    const auto say = [&](const std::string &what) {
        fprintf(stderr, "vexotrace: %s: %s\n", file.c_str(), what.c_str());
    };
    const trace::Head &head = recording.head();
    if (recording.has(trace::DISK_FULL))
        say("the disk was full: " + std::to_string(head.size) + " bytes in place of " +
            std::to_string(head.wantedSize));
    if (head.droppedEvents)
        say(std::to_string(head.droppedEvents) +
            " events were dropped, the oldest: the file was full");
    if (head.lostCalls)
        say(std::to_string(head.lostCalls) +
            " calls were not recorded: made by too many threads, or in a signal handler");
    if (recording.has(trace::MORE_CALLBACKS))
        say("more callbacks were registered than can be told apart: some were not recorded");
    if (recording.has(trace::MORE_ADDRESSES))
        say("more addresses than there are stand-ins: the others share one");
    if (recording.has(trace::NO_SNAPSHOT))
        say("there was no device file for a snapshot");
    if (recording.unknownEvents())
        say(std::to_string(recording.unknownEvents()) +
            " events are of kinds that this vexotrace does not know");
    if (recording.damagedBlocks())
        say(std::to_string(recording.damagedBlocks()) + " blocks are damaged, and left out");
}

} // namespace vexotrace
