// Calls as people and programs read them.
#ifndef VEXOTRACE_TEXT_H
#define VEXOTRACE_TEXT_H

#include <recording.h>

namespace vexotrace
{

using trace::Json;

// Of the day; of the JSON documents with the day, in UTC.
std::string timeText(uint64_t time);
std::string durationText(uint64_t nanoseconds);
std::string dump(const Json &json);

// How long it took or, when it hasn't returned, has taken until now, as far as the file tells.
std::optional<uint64_t> durationOf(const trace::Recording &recording, const trace::Call &call);

// "name(arguments)".
std::string askedOf(const trace::Function &function, const trace::Content &content,
                    trace::Detail detail);
// "name(arguments) = result {outputs}". Steady: what two runs of the same agent have in common.
std::string lineOf(const trace::Recording &recording, const trace::Call &call,
                   trace::Detail detail);
// The same, with all calls within it, each deeper by two blanks.
std::vector<std::string> linesOf(const trace::Recording &recording, uint32_t place,
                                 trace::Detail detail);

// With all within it.
Json documentOf(const trace::Recording &recording, uint32_t place, trace::Detail detail);
// What is not of the calls within it.
Json argumentsOf(const trace::Recording &recording, const trace::Call &call, trace::Detail detail);

// Values by their names, as "field=2" and "record.field=2".
std::vector<std::pair<std::string, std::string>> valuesOf(const std::string &name,
                                                          const Json &value);

// "port 3" as "port=3", as it is typed.
std::string textOf(const trace::Object &object);

// Says on standard error what the file doesn't have, or tells otherwise than it was.
void warn(const std::string &file, const trace::Recording &recording);

} // namespace vexotrace

#endif
