// The commands about what a device is set to as a whole.
#include "config_apply.h"
#include "print.h"
#include "session.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include <sys/stat.h>
#include <unistd.h>

namespace vexoctl
{

using namespace config;

namespace
{

constexpr const char *DEVICE = ".";
constexpr const char *STANDARD = "-"; // input or output

// What stands behind the name of a command.
struct Given {
    Names files;
    std::set<std::string> flags;
    Ranges ranges;

    bool has(const std::string &flag) const { return flags.contains(flag); }
};

Given given(const Words &words, size_t files, const Names &flags, const Names &numbers)
{
    Given given;
    const std::map<std::string, uint32_t Ranges::*> ranges{
        {"ports", &Ranges::ports}, {"pwes", &Ranges::pwes}, {"groups", &Ranges::groups}};
    for (size_t i = 2; i < words.size(); ++i) {
        const std::string &word = words[i];
        const std::string name = word.substr(0, word.find('='));
        if (std::ranges::count(flags, word)) {
            given.flags.insert(word);
        } else if (std::ranges::count(numbers, name) && name != word) {
            parse(describe::typeOf<uint32_t>(), name, word.substr(name.size() + 1), {},
                  &(given.ranges.*ranges.at(name)));
        } else if (word.starts_with("--")) {
            throw UsageError("there is no option '" + word + "' here" + hint(word, flags));
        } else if (given.files.size() == files) {
            throw UsageError("expected nothing more, not '" + word + "'");
        } else {
            given.files.push_back(word);
        }
    }
    return given;
}

const Names RANGES{"ports", "pwes", "groups"};

std::string textOf(const Json &document, int indent)
{
    return document.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

void show(const Json &document)
{
    std::cout << textOf(document, -1);
}

Failure failure(const std::string &command, const std::string &text, Json details,
                uint32_t rc = VEXO_RC_GENERAL)
{
    Failure failure{command, {static_cast<vexoRc>(rc), ""}, std::move(details)};
    strcpy_n(failure.result.message, text.c_str(), sizeof failure.result.message);
    return failure;
}

// "1 to 3, 7", of numbers in their order.
std::string rangesOf(const std::vector<uint32_t> &numbers)
{
    std::string text;
    for (size_t i = 0; i < numbers.size(); ++i) {
        const size_t first = i;
        while (i + 1 < numbers.size() && numbers[i + 1] == numbers[i] + 1)
            ++i;
        text += (text.empty() ? "" : ", ") + std::to_string(numbers[first]) +
                (i == first ? "" : " to " + std::to_string(numbers[i]));
    }
    return text;
}

void tell(const std::string &command, const std::string &text)
{
    std::cerr << "vexoctl: " << command << ": " << printable(text) << std::endl;
}

// What was refused, by name and reason; one line for all objects of a kind that have the same
// reason: a device that is away refuses hundreds.
void tellRefused(const std::string &command, const Json &refused)
{
    struct Line {
        std::string kind, field, reason; // of "pdh 3 frameMode": "pdh", " frameMode"
        std::vector<uint32_t> numbers{};
    };
    std::vector<Line> lines;
    for (const auto &[name, reason] : refused.items()) {
        const size_t blank = name.find(' ');
        char *end = nullptr;
        const auto number =
            static_cast<uint32_t>(std::strtoul(name.c_str() + blank, &end, 10)); // 0: none
        Line line{number ? name.substr(0, blank) : name, number ? end : "", reason};
        const auto same = std::ranges::find_if(lines, [&](const Line &other) {
            return number && other.kind == line.kind && other.field == line.field &&
                   other.reason == line.reason;
        });
        Line &place = same == lines.end() ? lines.emplace_back(std::move(line)) : *same;
        if (number)
            place.numbers.push_back(number);
    }
    for (const auto &[kind, field, reason, numbers] : lines)
        tell(command,
             kind + (numbers.empty() ? "" : " " + rangesOf(numbers)) + field + ": " + reason);
}

Document readFile(const std::string &file)
{
    std::ifstream opened;
    errno = 0;
    if (file != STANDARD)
        opened.open(file);
    std::istream &stream = file == STANDARD ? std::cin : opened;
    std::ostringstream text;
    // Of a folder it is the first read that fails.
    if (stream && stream.peek() != EOF)
        text << stream.rdbuf();
    if (!stream || !text || isBroken(stream))
        throw UsageError("cannot read " + file + ": " + strerror(errno));
    return readDocument(file, text.str());
}

// ---- save ----

[[noreturn]] void refuseFile(const std::string &file)
{
    throw UsageError("cannot write " + file + ": " + strerror(errno));
}

void writeAll(int descriptor, const std::string &text, const std::string &file)
{
    for (size_t written = 0; written < text.size();) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            refuseFile(file);
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

} // namespace

void replaceFile(const std::string &file, const std::string &text)
{
    struct stat before {
    };
    const bool exists = stat(file.c_str(), &before) == 0;
    if (exists && !S_ISREG(before.st_mode)) {
        std::ofstream stream{file};
        if (!(stream << text << std::flush))
            refuseFile(file);
        return;
    }
    const mode_t mask = umask(0);
    umask(mask);
    std::string name = file + ".XXXXXX";
    const int descriptor = mkstemp(name.data());
    if (descriptor < 0)
        refuseFile(file);
    try {
        writeAll(descriptor, text, file);
        if (fchmod(descriptor, exists ? before.st_mode & 07777 : 0666 & ~mask) != 0 ||
            fsync(descriptor) != 0 || rename(name.c_str(), file.c_str()) != 0)
            refuseFile(file);
        close(descriptor);
    } catch (...) {
        close(descriptor);
        unlink(name.c_str());
        throw;
    }
}

void configSave(const Words &words, const Manner &manner)
{
    const Given options = given(words, 1, {"--state"}, RANGES);
    Device device;
    const Document document = save(device, options.ranges, options.has("--state"));
    const Json form = toJson(document);
    const std::string text = textOf(form, 2);
    const bool isFile = !options.files.empty() && options.files[0] != STANDARD;
    if (!isFile)
        std::cout << text;
    else
        replaceFile(options.files[0], text);
    const Json &refused = form["refused"];
    if (isFile && refused.empty() && manner.json)
        show({{"operation", "config save"}, {"rc", 0}, {"message", ""}});
    if (refused.empty())
        return;
    if (!manner.json)
        tellRefused("config save", refused);
    if (!manner.json || !isFile)
        throw Status{FAILURE};
    throw failure("config save", "the device did not tell all", {{"refused", refused}});
}

// ---- diff ----

namespace
{

std::string differenceLine(const Difference &difference)
{
    const bool isWhole = difference.field.empty();
    const auto value = [&](const char *sign, const Json &side) {
        if (side.is_null())
            return std::string{};
        const bool hasType = isWhole && side.contains("pweType");
        return std::string{" "} + sign + " " +
               (hasType   ? readable(difference.key, "pweType", side["pweType"])
                : isWhole ? "provisioned"
                          : readable(difference.key, difference.field, side));
    };
    return nameOf(difference.key) + (isWhole ? "" : " " + difference.field) + ":" +
           value("-", difference.a) + value("+", difference.b);
}

} // namespace

void configDiff(const Words &words, const Manner &manner)
{
    const Given options = given(words, 2, {}, RANGES);
    if (options.files.empty())
        throw UsageError("expected a file, or '.' for the device");
    const std::string files[] = {options.files[0],
                                 options.files.size() > 1 ? options.files[1] : DEVICE};
    Document documents[2];
    for (int i : {0, 1})
        if (files[i] != DEVICE)
            documents[i] = readFile(files[i]);
    Device device;
    for (int i : {0, 1})
        if (files[i] == DEVICE) {
            documents[i] = save(device, options.ranges);
            addNamed(device, documents[1 - i], documents[i]);
            const Json refused = toJson(documents[i])["refused"];
            if (refused.empty())
                continue;
            tellRefused("config diff", refused);
            if (std::ranges::none_of(documents[i].objects, [](const auto &object) {
                    return object.second && !object.second->is_null();
                }))
                throw Status{USAGE};
        }
    const auto found = differences(documents[0], documents[1]);
    if (manner.json)
        show(toJson(found));
    else
        for (const Difference &difference : found)
            std::cout << differenceLine(difference) << "\n";
    if (!found.empty())
        throw Status{FAILURE};
}

// ---- apply ----

void configApply(const Words &words, const Manner &manner)
{
    const Given options = given(words, 1, {"--dry-run", "--prune", "--keep-going"}, RANGES);
    if (options.files.empty())
        throw UsageError("expected a file");
    const Document wanted = readFile(options.files[0]);
    const Interruptible interruptible;
    Device device;
    Document now =
        options.has("--prune") ? save(device, options.ranges) : saveNamed(device, wanted);
    addNamed(device, wanted, now);
    const Plan steps = plan(now, wanted, options.has("--prune"));
    Report report;
    if (options.has("--dry-run")) {
        for (const Step &step : steps.steps)
            report.done.push_back(commandOf(step));
        for (const auto &[key, reason] : steps.untold)
            report.failed.push_back({nameOf(key), reason});
    } else {
        report = apply(device, steps, options.has("--keep-going"));
    }
    Json details{{"done", report.done},
                 {"failed", listOf(report.failed)},
                 {"undone", report.undone},
                 {"notUndone", listOf(report.notUndone)}};
    if (!manner.json) {
        if (options.has("--dry-run"))
            for (const std::string &command : report.done)
                std::cout << command << "\n";
        for (const auto &[what, text, rc] : report.failed)
            tell("config apply",
                 what + ": " + (rc ? "failure " + std::to_string(rc) + ": " : "") + text);
        for (const std::string &line : undoLines(report))
            tell("config apply", line);
    }
    if (report.failed.empty() && manner.json)
        show(
            Json{{"operation", "config apply"}, {"rc", 0}, {"message", ""}, {"done", report.done}});
    if (report.failed.empty())
        return;
    if (!manner.json)
        throw report.status;
    const Trouble &first = report.failed.front();
    Failure failed = failure("config apply", (first.rc ? "" : first.what + ": ") + first.text,
                             details, first.rc ? first.rc : VEXO_RC_GENERAL);
    failed.status = report.status;
    throw failed;
}

// ---- What is provisioned ----

namespace
{

// All that is told of each object that is there, and on a line some of it.
void listObjects(const Words &words, const Manner &manner, const std::string &section,
                 const Names &usual)
{
    const Given options = given(words, 0, {}, {section == "pwe" ? "pwes" : "groups"});
    const Kind &kind = *numberedKind(section);
    choose(kind.getters, Json::object(), manner.fields);
    Device device;
    std::vector<std::pair<uint32_t, Fields>> rows;
    Json list = Json::array();
    Json refused = Json::object();
    for (uint32_t number = 1; number <= lastOf(kind, options.ranges); ++number) {
        const Key key{&kind, number};
        const Reading reading = read(device, key);
        if (!reading.settings)
            continue;
        if (reading.settings->is_null()) {
            refused[nameOf(key)] = reading.reason;
            continue;
        }
        Json told;
        device.call(*kind.getters.front(), wordsOf(key), told);
        Json object = *reading.settings;
        for (const auto &[name, value] : told.items())
            object.update(value);
        const Fields fields = choose(kind.getters, object, manner.fields);
        list.push_back({{kind.number, number}});
        list.back().update(manner.fields.empty() ? object : asObject(fields));
        rows.emplace_back(number, fields);
    }
    const auto lineOfUsual = [&](const Fields &fields) {
        std::string line;
        for (const std::string &wanted : usual)
            for (const auto &[name, value] : fields)
                if (name == wanted || name.ends_with("." + wanted))
                    line += (line.empty() ? "" : ", ") + wanted + " " +
                            readable({&kind, 0}, name, value);
        return line;
    };
    if (manner.json) {
        show(list);
    } else if (!manner.fields.empty() && !manner.values) {
        std::cout << table(kind.number, rows);
    } else {
        for (const auto &[number, fields] : rows)
            if (manner.values)
                std::cout << number << "\t" << lineOf(fields);
            else
                std::cout << section << " " << number << ": " << lineOfUsual(fields) << "\n";
    }
    if (!manner.json)
        tellRefused(section + " list", refused);
    if (!refused.empty())
        throw Status{FAILURE};
}

} // namespace

void pweList(const Words &words, const Manner &manner)
{
    listObjects(words, manner, "pwe",
                {"pweType", "adminStatus", "operState", "dstMac", "vlan.mode", "vlan.vlanId",
                 "psn.psnType", "circuit"});
}

void imaList(const Words &words, const Manner &manner)
{
    listObjects(words, manner, "ima", {"groupParam1", "groupParam2", "groupParam3", "linkIds"});
}

} // namespace vexoctl
