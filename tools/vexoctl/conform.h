// What a device answers to questions that the description of the operations asks by itself.
#ifndef VEXOCTL_CONFORM_H
#define VEXOCTL_CONFORM_H

#include "config_document.h"
#include "stop.h"

#include <functional>

namespace vexoctl::conformance
{

// By what it is about (an argument, a field, a type of pseudowire), what was found: all that
// differs among the objects asked. Free of what depends on how the device is set up.
using Findings = std::map<std::string, std::set<std::string>>;

struct Reply {
    std::string question;
    Findings findings{};
    std::string why{}; // it was not tried
};

// Of an answer to a value that was set, or to an object that isn't there.
constexpr std::string_view REFUSED = "refused with ";
std::string_view constexpr ANSWERS = "answers";

// Questions that others are made of.
constexpr const char *HOW_MANY = "how many there are";
constexpr const char *ABSENT = "one that isn't there";
constexpr const char *TAKES = "what is set is read back";

struct Asked {
    std::vector<Reply> answers{};
    std::map<std::string, double> milliseconds{}; // of the quickest call of each operation
    std::optional<Stopped> stopped{};             // before its end
};

// Told of each question before it is asked.
using Progress = std::function<void(const std::string &question)>;
// Told of the objects that are to be made, before anything is changed.
using BeforeWriting = std::function<void(const std::vector<config::Key> &toBeMade)>;

// Without the latter nothing is changed, and what would is not tried. With it system and one port
// are set, and pseudowires and a group that are made for it; each question puts back what it set.
// When it is interrupted the rest isn't tried; so it is when a call that changes something takes
// too long.
Asked ask(const Progress &progress, const BeforeWriting &beforeWriting);

// What the simulated device answers, as it was recorded: findings by question.
extern const char *const SIMULATED;

// The page of what was asked, but for what it is compared with.
Json pageOf(const Asked &asked, bool writes);

// A page that was kept. Throws UsageError at anything else.
Json readPage(const std::string &file);
// When a document was made.
std::string dateNow();
// The versions and the inventory that a device tells.
Json deviceOf();

// Bits of the system's alarms that are raised and cleared again to see events come.
std::optional<uint32_t> systemAlarms();
bool setSystemAlarms(uint32_t bits);

} // namespace vexoctl::conformance

#endif
