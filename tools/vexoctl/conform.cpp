// The page of a device's differences from the simulated one.
#include "conform.h"

#include "config_apply.h"
#include "config_state.h"
#include "junit.h"
#include "print.h"
#include "session.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace vexoctl
{

using namespace conformance;

namespace
{

constexpr uint32_t FORMAT = 1;
constexpr const char *RESULTS[] = {"same", "other value", "other refusal", "not tried"};

// ---- The page ----

Json toJson(const Findings &findings)
{
    Json json = Json::object();
    for (const auto &[what, found] : findings)
        json[what] = found;
    return json;
}

// What of the given findings the others don't have.
Json othersOf(const Json &given, const Json &others)
{
    Json own = Json::object();
    for (const auto &[what, found] : given.items())
        for (const Json &one : found)
            if (!others.contains(what) || !std::ranges::count(others[what], one))
                own[what].push_back(one);
    return own;
}

bool isRefused(const Json &findings)
{
    return std::ranges::any_of(findings, [](const Json &found) {
        return std::ranges::any_of(found, [](const Json &one) {
            return one.get_ref<const std::string &>().find(REFUSED) != std::string::npos;
        });
    });
}

Json rowOf(const Reply &answer, const Json &simulated)
{
    if (!answer.why.empty())
        return {{"question", answer.question}, {"result", RESULTS[3]}, {"why", answer.why}};
    const Json given = toJson(answer.findings);
    const Json expected = simulated.value(answer.question, Json::object());
    // Of objects that this device doesn't have nothing is expected.
    const Json differing = othersOf(given, expected);
    Json instead = Json::object();
    for (const auto &[what, found] : differing.items())
        if (expected.contains(what))
            instead[what] = expected[what];
    Json row{{"question", answer.question},
             {"result", differing.empty()                            ? RESULTS[0]
                        : isRefused(differing) || isRefused(instead) ? RESULTS[2]
                                                                     : RESULTS[1]}};
    if (!differing.empty())
        row.update(Json{{"differing", differing}, {"simulated", instead}});
    row["answer"] = given;
    return row;
}

} // namespace

Json conformance::deviceOf()
{
    config::Device device;
    Json about = Json::object();
    for (const char *name : {"vexo_cmi_sys_version_get", "vexo_cmi_sys_inventory_get"}) {
        Json outputs;
        if (device.call(*describe::find(name), {}, outputs).rc == VEXO_RC_OK)
            about.update(outputs);
    }
    return about;
}

std::string conformance::dateNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    return timeText(static_cast<uint64_t>(seconds) * 1000000, Zone::utc).substr(0, 19) + "Z";
}

Json conformance::pageOf(const Asked &asked, bool writes)
{
    Json simulated;
    simulated = readJson("the simulated device's answers", SIMULATED);
    Json page{{"format", FORMAT},     {"date", dateNow()}, {"library", VEXO_CMI_VERSION},
              {"device", deviceOf()}, {"write", writes},   {"questions", asked.answers.size()}};
    for (const char *result : RESULTS)
        page[result] = 0;
    Json rows = Json::array();
    for (const Reply &answer : asked.answers) {
        rows.push_back(rowOf(answer, simulated));
        Json &count = page[rows.back()["result"].get<std::string>()];
        count = count.get<uint32_t>() + 1;
    }
    page["answers"] = std::move(rows);
    page["milliseconds"] = asked.milliseconds;
    return page;
}

Json conformance::readPage(const std::string &file)
{
    Json page = readJson(file, readWhole("page", file));
    const auto areFindings = [](const Json &findings) {
        return findings.is_object() && std::ranges::all_of(findings, [](const Json &found) {
                   return found.is_array() && std::ranges::all_of(found, &Json::is_string);
               });
    };
    const auto isRow = [&](const Json &row) {
        return row.is_object() && row.value("question", Json{}).is_string() &&
               areFindings(row.value("answer", Json::object()));
    };
    if (!page.is_object() || page.value("format", Json{}) != FORMAT ||
        !page.value("date", Json{}).is_string() || !page.value("answers", Json{}).is_array() ||
        !std::ranges::all_of(page["answers"], isRow))
        throw UsageError(file + ": not a page of conform, or of another version of it");
    return page;
}

namespace
{

const Json *answerTo(const Json &page, const Json &question)
{
    const auto found = std::ranges::find_if(
        page["answers"], [&](const Json &row) { return row.at("question") == question; });
    return found == page["answers"].end() ? nullptr : &*found;
}

// Where two devices, or the same at two times, answered otherwise. What one of them wasn't asked
// makes no difference.
Json changesOf(const Json &before, const Json &page)
{
    Json changes = Json::array();
    for (const Json &row : page["answers"]) {
        const Json *old = answerTo(before, row["question"]);
        if (!old || !old->contains("answer") || !row.contains("answer"))
            continue;
        Json then = othersOf((*old)["answer"], row["answer"]),
             now = othersOf(row["answer"], (*old)["answer"]);
        if (!then.empty() || !now.empty())
            changes.push_back({{"question", row["question"]},
                               {"before", std::move(then)},
                               {"now", std::move(now)}});
    }
    return changes;
}

// ---- How it is shown ----

// "port frameMode: 7 refused with 2, 8 refused with 2"
std::string lineOf(const Json &findings)
{
    std::string text;
    for (const auto &[what, found] : findings.items()) {
        std::string values;
        for (const Json &one : found)
            values += (values.empty() ? "" : ", ") + one.get<std::string>();
        text += (text.empty() ? "" : "; ") + what + (what.empty() ? "" : ": ") + values;
    }
    return text.empty() ? "nothing" : text;
}

void showFindings(const Json &page)
{
    for (const Json &row : page["answers"])
        if (row.contains("differing"))
            std::cout << row["result"].get<std::string>() << ": "
                      << printable(row["question"].get<std::string>())
                      << "\n  device:    " << printable(lineOf(row["differing"]))
                      << "\n  simulated: " << printable(lineOf(row["simulated"])) << "\n";
    std::map<std::string, uint32_t> reasons;
    for (const Json &row : page["answers"])
        if (row.contains("why"))
            ++reasons[row["why"].get<std::string>()];
    for (const auto &[why, count] : reasons)
        std::cout << "not tried: " << count << ": " << why << "\n";
    std::cout << page["questions"] << " questions";
    for (const char *result : RESULTS)
        std::cout << ", " << page[result] << " " << result;
    std::cout << "\n";
    if (!page.contains("against"))
        return;
    const Json &against = page["against"];
    for (const Json &change : against["changes"])
        std::cout << "changed: " << printable(change["question"].get<std::string>())
                  << "\n  before:    " << printable(lineOf(change["before"]))
                  << "\n  now:       " << printable(lineOf(change["now"])) << "\n";
    std::cout << against["changes"].size() << " changed since "
              << against["date"].get<std::string>() << "\n";
}

std::string junitOf(const Json &page)
{
    std::vector<junit::Case> cases;
    for (const Json &row : page["answers"]) {
        const auto question = row["question"].get<std::string>();
        const size_t colon = question.find(": ");
        auto &one =
            cases.emplace_back(junit::Case{question.substr(0, colon), question.substr(colon + 2)});
        if (row.contains("why")) {
            one.skipped = row["why"];
        } else if (row.contains("differing")) {
            one.failure = row["result"];
            one.message =
                "device: " + lineOf(row["differing"]) + "; simulated: " + lineOf(row["simulated"]);
        }
    }
    return junit::suite("vexoctl conform", cases, page["date"].get<std::string>().substr(0, 19));
}

// ---- Progress ----

class ProgressLine
{
  public:
    explicit ProgressLine(size_t questions) : questions_{questions} {}
    ~ProgressLine()
    {
        if (isShown_)
            std::cerr << "\r\033[K" << std::flush;
    }
    ProgressLine(const ProgressLine &) = delete;

    void tell(const std::string &question)
    {
        ++asked_;
        if (isShown_)
            std::cerr << "\r\033[K" << asked_ << " of " << questions_ << ": "
                      << question.substr(0, 60) << std::flush;
    }

  private:
    const bool isShown_ = isatty(STDERR_FILENO);
    const size_t questions_;
    size_t asked_ = 0;
};

// ---- What is put back ----

config::Document savedOf(const Json &saved, const std::string &file)
{
    for (const char *part : {"device", "alarms", "made", "settings"})
        if (!saved.is_object() || !saved.contains(part))
            throw UsageError(file + ": not what conform --write saves");
    config::Document document = config::readDocument(file, saved["settings"].dump());
    for (const auto &[section, numbers] : saved["made"].items())
        for (const Json &number : numbers)
            if (const config::Kind *kind = config::numberedKind(section);
                kind && number.is_number_unsigned())
                document.objects[{kind, number.get<uint32_t>()}] = {};
    return document;
}

// Leads the device back; what can't be is told.
Names putBack(const config::Document &before, const Json &alarms)
{
    config::Device device;
    const config::Document now = config::saveNamed(device, before);
    Names troubles;
    const auto add = [&](const std::string &what, const std::string &text) {
        troubles.push_back(what + ": " + text);
    };
    try {
        const config::Plan plan = config::plan(now, before, true);
        const config::Report report = config::apply(device, plan, true);
        for (const auto &[key, reason] : plan.untold)
            add(nameOf(key), reason);
        for (const auto &[what, text, rc] : report.failed)
            add(what, text);
    } catch (const UsageError &error) {
        add("settings", error.what());
    }
    const auto areBack = [&] { return systemAlarms() == alarms.get<uint32_t>(); };
    if (alarms.is_number() && !areBack() && !(setSystemAlarms(alarms.get<uint32_t>()) && areBack()))
        add("alarms of the system", "are not read as they were");
    return troubles;
}

// What the device is set to, in a file as long as that may be otherwise.
class Saved
{
  public:
    explicit Saved(std::string file) : file_{std::move(file)}
    {
        std::error_code error; // where the name can't be one, writing it tells
        if (std::filesystem::exists(file_, error))
            takeUp();
    }

    void begin(const std::vector<config::Key> &toBeMade)
    {
        config::Device device;
        before_ = config::save(device, {.pwes = 0, .groups = 0});
        for (const config::Key &key : toBeMade)
            before_.objects[key] = {};
        const std::optional<uint32_t> alarms = systemAlarms();
        alarms_ = alarms ? Json(*alarms) : Json{};
        Json made = Json::object();
        for (const auto &[kind, number] : toBeMade)
            made[kind->section].push_back(number);
        const Json saved{{"device", deviceOf()},
                         {"date", dateNow()},
                         {"alarms", alarms_},
                         {"made", made},
                         {"settings", config::toJson(before_)}};
        replaceFile(file_, saved.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
        isBegun_ = true;
    }

    // Puts it back, and takes the file away when that is done.
    void end()
    {
        if (!isBegun_)
            return;
        try {
            finish(putBack(before_, alarms_));
        } catch (const Stopped &) {
            Interruptible::goOn();
            finish(putBack(before_, alarms_));
        }
    }

  private:
    void takeUp()
    {
        const Json saved = readJson(file_, readWhole("saved", file_));
        before_ = savedOf(saved, file_);
        if (saved["device"] != deviceOf())
            throw UsageError(
                file_ +
                " tells what another device was set to, which a run that was ended has not put "
                "back: run conform --write on that one, or remove the file");
        std::cerr << "vexoctl: conform: putting back what a run that was ended has left, from "
                  << file_ << std::endl;
        finish(putBack(before_, saved["alarms"]));
    }

    void finish(const Names &troubles)
    {
        if (troubles.empty()) {
            std::error_code error;
            std::filesystem::remove(file_, error);
            if (error)
                throw UsageError("all is put back, but " + file_ +
                                 " can't be removed: " + error.message());
            return;
        }
        throw Failure{"conform",
                      {VEXO_RC_GENERAL, "not all could be put back"},
                      {{"saved", file_}, {"notPutBack", troubles}}};
    }

    const std::string file_;
    bool isBegun_ = false;
    config::Document before_;
    Json alarms_;
};

// While it lives no other run on this host sets the same device: they would read each other's
// settings. A name of the kernel's own needs no file, is free for every user, and ends with the
// run.
class Alone
{
  public:
    Alone()
    {
        sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
        const char *const file = getenv("KV_SIM_DEVICE");
        struct stat device {
        };
        // A simulated device is a file, or this process's own.
        const uint64_t id = !isSimulated()                     ? 0
                            : file && stat(file, &device) == 0 ? device.st_ino
                                                               : static_cast<uint64_t>(getpid());
        const int length = snprintf(
            name.sun_path + 1, sizeof name.sun_path - 1, "vexoctl-conform %llx %llx",
            static_cast<unsigned long long>(device.st_dev), static_cast<unsigned long long>(id));
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                                 static_cast<size_t>(length));
        if (bind(socket_, reinterpret_cast<const sockaddr *>(&name), size) == 0)
            return;
        const int error = errno;
        close(socket_);
        throw UsageError(error == EADDRINUSE
                             ? "another conform --write runs on this device: wait for its end"
                             : "can't tell whether another conform --write runs on this device: " +
                                   std::string{strerror(error)});
    }
    ~Alone() { close(socket_); }
    Alone(const Alone &) = delete;

  private:
    const int socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

// What stands behind the name of the command.
struct Wanted {
    bool writes = false;
    std::map<std::string, std::string> files{};

    bool has(const std::string &option) const { return files.contains(option); }
};

Wanted wantedBy(const Words &words)
{
    const Names known{"--write", "--junit", "--against", "--saved"};
    Wanted wanted;
    for (size_t i = 1; i < words.size(); ++i) {
        const size_t sign = words[i].find('=');
        const std::string name = words[i].substr(0, sign);
        if (words[i] == known[0]) {
            wanted.writes = true;
            continue;
        }
        if (!std::ranges::count(known, name) || name == known[0])
            throw UsageError("expected " + inWords(known) + ", not '" + words[i] + "'" +
                             hint(name, known));
        if (sign == std::string::npos && i + 1 == words.size())
            throw UsageError(name + ": expected a file behind it");
        const std::string file = sign == std::string::npos ? words[++i] : words[i].substr(sign + 1);
        if (!wanted.files.emplace(name, file).second)
            throw UsageError(name + ": given twice");
    }
    if (wanted.has("--saved") && !wanted.writes)
        throw UsageError("--saved: only with --write");
    return wanted;
}

} // namespace

void conform(const Words &words, const Manner &manner)
{
    const Wanted options = wantedBy(words);
    const bool writes = options.writes;
    const Json before = options.has("--against") ? readPage(options.files.at("--against")) : Json{};
    const Interruptible interruptible;
    std::optional<Alone> alone;
    std::optional<Saved> saved;
    Asked asked;
    if (writes) {
        alone.emplace();
        saved.emplace(options.has("--saved") ? options.files.at("--saved")
                                             : "vexoctl-conform.saved");
    }
    {
        ProgressLine line{readJson("answers", SIMULATED).size()};
        const auto begin = [&](const auto &toBeMade) { saved->begin(toBeMade); };
        try {
            asked = ask([&](const std::string &question) { line.tell(question); },
                        writes ? BeforeWriting{begin} : BeforeWriting{});
        } catch (const std::exception &) {
            if (saved)
                saved->end();
            throw;
        }
    }
    if (saved)
        saved->end();
    Json page = pageOf(asked, writes);
    if (!before.is_null())
        page["against"] = {{"date", before["date"]},
                           {"device", before.value("device", Json{})},
                           {"changes", changesOf(before, page)}};
    if (options.has("--junit"))
        replaceFile(options.files.at("--junit"), junitOf(page));
    if (manner.json)
        std::cout << page.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
    else
        showFindings(page);
    if (asked.stopped) {
        std::cerr << "vexoctl: conform: " << asked.stopped->what() << std::endl;
        throw asked.stopped->status;
    }
    const bool differs = before.is_null() ? page[RESULTS[1]] != 0 || page[RESULTS[2]] != 0
                                          : !page["against"]["changes"].empty();
    if (differs)
        throw Status{FAILURE};
}

} // namespace vexoctl
