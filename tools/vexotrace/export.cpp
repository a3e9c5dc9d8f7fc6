#include "commands.h"
#include "text.h"

#include <cstdio>

namespace vexotrace
{

using trace::Call;
using trace::Recording;

// Each call is a complete event, one that has not returned a begin alone, one whose end is lost a
// point; times are microseconds.
int exportChrome(const std::string &file)
{
    const Recording recording{file};
    const uint32_t process = recording.head().process;
    const char *separator = "";
    const auto print = [&](const Json &event) {
        printf("%s\n%s", separator, dump(event).c_str());
        separator = ",";
    };
    const auto name = [&](const char *what, uint32_t thread, const std::string &text) {
        print({{"name", what},
               {"ph", "M"},
               {"pid", process},
               {"tid", thread},
               {"args", {{"name", text}}}});
    };
    printf("{\"displayTimeUnit\":\"ns\",\"traceEvents\":[");
    if (!recording.command().empty())
        name("process_name", process, recording.command()[0]);
    for (const trace::ThreadOf &thread : recording.threads())
        name("thread_name", thread.id, thread.name);
    for (const Call &call : recording.calls()) {
        if (!call.begin)
            continue;
        const trace::Function &function = recording.functionOf(call);
        const auto microseconds = [](uint64_t time) { return static_cast<double>(time) / 1e3; };
        const char *const phase = call.end ? "X" : call.isOpen(recording) ? "B" : "i";
        Json event{{"name", function.shortName()},
                   {"cat", nameOf(function.layer)},
                   {"ph", phase},
                   {"ts", microseconds(call.begin - recording.head().startClock)},
                   {"pid", process},
                   {"tid", recording.threads()[call.thread].id}};
        if (call.end)
            event["dur"] = microseconds(call.end - call.begin);
        event["args"] = argumentsOf(recording, call, trace::Detail::usual);
        print(event);
    }
    puts("\n]}");
    fflush(stdout);
    warn(file, recording);
    return SUCCESS;
}

} // namespace vexotrace
