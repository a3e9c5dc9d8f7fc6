#include "judged.h"

#include "run.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace sweep
{

namespace
{

// What a sweep's verdicts depend on.
constexpr std::pair<const char *, const char *> PARTS[] = {
    {"command", "the command is another"},
    {"until", "--until is another"},
    {"check", "--check is another"},
    {"files", "a file that the command names has changed"},
    {"good", "without a fault the agent does something else"},
};

} // namespace

Judged::Judged(const std::string &file) : file_{file}
{
    if (file.empty())
        return;
    output_ = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (output_ < 0)
        throw Trouble(file + ": " + strerror(errno));
    if (flock(output_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Trouble(file + ": another sweep is keeping its verdicts there");
    std::ifstream stream{file};
    if (!stream)
        throw Trouble(file + ": " + strerror(errno));
    std::string text{std::istreambuf_iterator{stream}, {}};
    // The last line may have been cut off.
    const size_t whole = text.rfind('\n') + 1;
    if (whole == 0 && !text.empty())
        throw Trouble(file + ": is none of a sweep's");
    text.resize(whole);
    std::istringstream lines{text};
    std::string line;
    if (std::getline(lines, line)) {
        sweep_ = Json::parse(line, nullptr, false);
        if (!sweep_.is_object() || !sweep_.contains("command"))
            throw Trouble(file + ": is none of a sweep's");
    }
    while (std::getline(lines, line)) {
        const Json told = Json::parse(line, nullptr, false);
        if (told.is_discarded() || !told.contains("entry"))
            throw Trouble(file + ": is damaged");
        lines_[told["entry"].at("id")] = told;
    }
    if (ftruncate(output_, static_cast<off_t>(whole)) != 0)
        throw Trouble(file + ": " + strerror(errno));
}

Judged::~Judged()
{
    if (output_ >= 0)
        close(output_);
}

void Judged::begin(const Json &sweep)
{
    if (sweep_.is_null())
        return add(sweep);
    for (const auto &[name, change] : PARTS)
        if (sweep_.value(name, Json{}) != sweep.at(name))
            throw Trouble(file_ + ": " + change + " since; to begin anew, remove it");
}

const Json *Judged::find(const std::string &id) const
{
    const auto found = lines_.find(id);
    return found == lines_.end() ? nullptr : &found->second;
}

void Judged::add(const Json &line)
{
    const std::string text = line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    if (output_ >= 0 &&
        write(output_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw Trouble(file_ + ": " + strerror(errno));
}

} // namespace sweep
