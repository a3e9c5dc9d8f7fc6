#include "commands.h"

#include <recording.h>

#include <cstdio>
#include <ctime>
#include <iostream>

namespace vexotrace
{

using trace::Call;
using trace::Content;
using trace::Function;
using trace::Json;
using trace::NONE;
using trace::Recording;

namespace
{

constexpr uint64_t SECOND = 1000000000;

std::string timeText(uint64_t time, bool withDay)
{
    const auto seconds = static_cast<time_t>(time / SECOND);
    tm parts;
    if (withDay)
        gmtime_r(&seconds, &parts);
    else
        localtime_r(&seconds, &parts);
    char text[64];
    const size_t length =
        strftime(text, sizeof text, withDay ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S", &parts);
    if (withDay)
        snprintf(text + length, sizeof text - length, ".%06uZ",
                 static_cast<unsigned>(time % SECOND / 1000));
    else
        snprintf(text + length, sizeof text - length, ".%03u",
                 static_cast<unsigned>(time % SECOND / 1000000));
    return text;
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

// "name=value", of records "field=value" and "record.field=value".
void flatten(const std::string &name, const Json &value, std::string &text)
{
    if (value.is_object()) {
        for (const auto &[field, element] : value.items())
            flatten(name.empty() ? field : name + "." + field, element, text);
        return;
    }
    text += (text.empty() ? "" : ", ") + name + "=" +
            value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string listed(const Recording &recording, const Call &call, const Content &content,
                   bool outputs)
{
    std::string text;
    const Function &function = recording.functionOf(call);
    for (size_t i = 0; i < function.arguments.size(); ++i) {
        const trace::Argument &argument = function.arguments[i];
        if (argument.output != outputs || (outputs && !content.arguments[i].isThere))
            continue;
        const Json value = toJson(argument, content.arguments[i]);
        flatten(value.is_object() ? "" : argument.name, value, text);
    }
    return text;
}

std::string resultText(const Recording &recording, const Call &call, const Content &content)
{
    std::string text;
    if (content.code)
        text = recording.functionOf(call).returns == trace::Returns::code && *content.code > 9
                   ? [&] {
                         char hex[16];
                         snprintf(hex, sizeof hex, "0x%x", *content.code);
                         return std::string{hex};
                     }()
                   : std::to_string(static_cast<int>(*content.code));
    if (content.text)
        text += (text.empty() ? "" : " ") +
                Json(*content.text).dump(-1, ' ', false, Json::error_handler_t::replace);
    return text.empty() ? "" : " = " + text;
}

// A call still running has lasted until now, as far as the file tells.
void print(const Recording &recording, uint32_t place, size_t depth)
{
    const Call &call = recording.calls()[place];
    const Content content = recording.content(call);
    const uint64_t time = recording.timeOf(call.begin ? call.begin : call.end);
    std::string line = depth == 0 ? timeText(time, false) : std::string(12, ' ');
    line += std::string(1 + 2 * depth, ' ');
    line += recording.functionOf(call).shortName();
    line += call.enter ? "(" + listed(recording, call, content, false) + ")" : "(...)";
    if (call.exit) {
        line += resultText(recording, call, content);
        if (const std::string outputs = listed(recording, call, content, true); !outputs.empty())
            line += " {" + outputs + "}";
        if (call.begin)
            line += " <" + durationText(call.end - call.begin) + ">";
    } else {
        const bool running = call.isRunning(recording);
        line += running ? " still running <" : " did not return <";
        line += durationText(recording.lastClock() - call.begin) + ">";
    }
    puts(line.c_str());
    for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
        print(recording, i, depth + 1);
}

Json document(const Recording &recording, uint32_t place)
{
    const Call &call = recording.calls()[place];
    const Function &function = recording.functionOf(call);
    const Content content = recording.content(call);
    Json json;
    json["time"] = timeText(recording.timeOf(call.begin ? call.begin : call.end), true);
    json["thread"] = recording.threads()[call.thread].id;
    json["layer"] = nameOf(function.layer);
    json["name"] = function.shortName();
    Json arguments = Json::object(), result = Json::object();
    for (size_t i = 0; i < function.arguments.size(); ++i) {
        const trace::Argument &argument = function.arguments[i];
        if (!argument.output)
            arguments[argument.name] = toJson(argument, content.arguments[i]);
        else if (content.arguments[i].isThere)
            result[argument.name] = toJson(argument, content.arguments[i]);
    }
    json["arguments"] = std::move(arguments);
    if (call.exit) {
        Json all = Json::object();
        if (content.code)
            all["code"] = *content.code;
        if (content.text)
            all["text"] = *content.text;
        all.update(result);
        json["result"] = std::move(all);
        if (call.begin)
            json["duration"] = static_cast<double>(call.end - call.begin) / 1e9;
    }
    Json children = Json::array();
    for (uint32_t i = recording.firstWithin(place); i != NONE; i = recording.calls()[i].next)
        children.push_back(document(recording, i));
    json["children"] = std::move(children);
    return json;
}

// What the file doesn't have, or tells otherwise than it was.
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

} // namespace

int show(const ShowOptions &options)
{
    for (const std::string &file : options.files) {
        const Recording recording{file};
        if (options.files.size() > 1 && !options.json)
            printf("%s:\n", file.c_str());
        for (const uint32_t root : recording.roots()) {
            if (options.json)
                puts(document(recording, root)
                         .dump(-1, ' ', false, Json::error_handler_t::replace)
                         .c_str());
            else
                print(recording, root, 0);
        }
        fflush(stdout);
        warn(file, recording);
    }
    return SUCCESS;
}

} // namespace vexotrace
