#include "report.h"

#include "run.h"
#include "verdict.h"

#include <junit.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

namespace sweep
{

namespace
{

std::string verdictIn(const Json &entry)
{
    return entry.at("verdict");
}

std::string dump(const Json &json)
{
    return json.is_string() ? json.get<std::string>()
                            : json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// "pwe 17 size: - 256 + 512", each on a line.
std::vector<std::string> differencesIn(const Json &entry)
{
    std::vector<std::string> lines;
    for (const Json &difference : entry.at("difference")) {
        std::string line = difference.at("object");
        const bool isWhole = difference.at("field").is_null();
        if (!isWhole)
            line += " " + dump(difference["field"]);
        line += ":";
        for (const auto &[sign, side] : {std::pair{" - ", "a"}, {" + ", "b"}})
            if (const Json &value = difference.at(side); !value.is_null())
                line += sign + (isWhole ? value.value("pweType", "provisioned") : dump(value));
        lines.push_back(std::move(line));
    }
    return lines;
}

// What else there is to say of a bad verdict, each on a line.
std::vector<std::string> reasonsIn(const Json &entry)
{
    std::vector<std::string> lines;
    std::string unnamed;
    for (const std::string name : entry.value("unnamed", Json::array()))
        unnamed += (unnamed.empty() ? "not named: " : ", ") + name;
    if (!unnamed.empty())
        lines.push_back(unnamed);
    if (!entry.value("check", true))
        lines.emplace_back("the check failed");
    const Json output = entry.value("output", Json::array());
    if (entry.contains("end"))
        lines.push_back(dump(entry["end"]) + (output.empty() ? "" : ", having written:"));
    for (const Json &line : output)
        lines.push_back("    " + dump(line));
    return lines;
}

// A report, in which everything is that is looked for in one.
Json readReport(const std::string &file)
{
    std::ifstream stream{file};
    if (!stream)
        throw Trouble(file + ": " + strerror(errno));
    try {
        Json report = Json::parse(stream);
        const unsigned shard = report.at("sweep").at("shard"), count = report["sweep"].at("shards");
        for (const Json &entry : report.at("points"))
            static_cast<void>(asText({entry}) + asJunit({entry}));
        if (shard >= 1 && shard <= count)
            return report;
    } catch (const Json::exception &) {
    }
    throw Trouble(file + ": is no report of a sweep's");
}

std::map<std::string, size_t> countsOf(const std::vector<Json> &entries)
{
    std::map<std::string, size_t> counts;
    for (const Json &entry : entries)
        ++counts[verdictIn(entry)];
    return counts;
}

} // namespace

Json toJson(const Report &report)
{
    return {{"sweep", report.sweep},
            {"points", report.entries},
            {"verdicts", countsOf(report.entries)}};
}

Report merged(const std::vector<std::string> &files, std::vector<std::string> &notes)
{
    struct Position {
        size_t first, within; // among the faults that come first; among those of greater depth
        std::string id;
        bool operator<(const Position &other) const
        {
            return std::tie(first, within, id) < std::tie(other.first, other.within, other.id);
        }
    };
    std::map<std::string, Position> places;
    std::map<Position, Json> entries;
    std::set<unsigned> shards;
    Report whole;
    for (const std::string &file : files) {
        const Json report = readReport(file);
        const Json &sweep = report["sweep"];
        const unsigned shard = sweep["shard"], count = sweep["shards"];
        if (whole.sweep.is_null())
            whole.sweep = sweep;
        for (const char *name :
             {"command", "until", "check", "effects", "points", "only", "depth", "shards"})
            if (whole.sweep.at(name) != sweep.at(name))
                throw Trouble(file + ": is of another sweep than " + files[0] + ": " + name +
                              " is " + dump(sweep[name]) + ", not " + dump(whole.sweep[name]));
        for (const char *name : {"files", "faults"})
            if (whole.sweep.at(name) != sweep.at(name))
                notes.push_back(file + ": the agent's " + name + " are others than in " + files[0]);
        if (!shards.insert(shard).second)
            notes.push_back(file + ": shard " + std::to_string(shard) + "/" +
                            std::to_string(count) + " again: the bad verdicts count");
        Position place{shard - 1, 0, ""};
        for (const Json &entry : report["points"]) {
            const bool isFirst = entry["id"].get<std::string>().find('+') == std::string::npos;
            if (isFirst && !place.id.empty())
                place.first += count;
            place.within = isFirst ? 0 : place.within + 1;
            place.id = entry["id"];
            Json &known = entries[places.try_emplace(place.id, place).first->second];
            if (known.is_null() || (isBad(verdictIn(entry)) && !isBad(verdictIn(known))))
                known = entry;
        }
    }
    std::string missing;
    for (unsigned shard = 1; shard <= whole.sweep["shards"]; ++shard)
        if (!shards.contains(shard))
            missing += (missing.empty() ? "" : ", ") + std::to_string(shard) + "/" +
                       dump(whole.sweep["shards"]);
    if (!missing.empty())
        throw Trouble("--merge: of the shards there lack " + missing);
    whole.sweep["shards"] = whole.sweep["shard"] = 1;
    for (auto &[place, entry] : entries)
        whole.entries.push_back(std::move(entry));
    return whole;
}

bool isGood(const std::vector<Json> &entries)
{
    return std::ranges::none_of(entries, [](const Json &entry) { return isBad(verdictIn(entry)); });
}

std::string asText(const std::vector<Json> &entries)
{
    std::string text;
    for (const Json &entry : entries) {
        if (!isBad(verdictIn(entry)))
            continue;
        const std::string operation = entry.at("operation");
        text += entry.at("id").get<std::string>() + ": " + verdictIn(entry) +
                (operation.empty() ? "" : ", in " + operation) + "\n";
        for (const auto &lines : {differencesIn(entry), reasonsIn(entry)})
            for (const std::string &line : lines)
                text += "    " + line + "\n";
    }
    text += std::to_string(entries.size()) + (entries.size() == 1 ? " fault" : " faults");
    const char *sign = ": ";
    for (const auto &[verdict, count] : countsOf(entries)) {
        text += sign + std::to_string(count) + " " + verdict;
        sign = ", ";
    }
    return text + "\n";
}

std::string asTap(const std::vector<Json> &entries)
{
    std::string text = "TAP version 13\n1.." + std::to_string(entries.size()) + "\n";
    size_t number = 0;
    for (const Json &entry : entries) {
        const std::string verdict = verdictIn(entry);
        const bool bad = isBad(verdict);
        text += (bad ? "not ok " : "ok ") + std::to_string(++number) + " - " +
                entry.at("id").get<std::string>() + (verdict == UNMET ? " # SKIP " : " ") +
                verdict + "\n";
        if (!bad)
            continue;
        text += "  ---\n  verdict: " + verdict + "\n";
        for (const auto &[name, lines] :
             {std::pair{"difference", differencesIn(entry)}, {"reasons", reasonsIn(entry)}}) {
            text += std::string{"  "} + name + ":\n";
            for (const std::string &line : lines)
                text += "    - " + Json(line).dump(-1, ' ', false, Json::error_handler_t::replace) +
                        "\n";
        }
        text += "  ...\n";
    }
    return text;
}

std::string asJunit(const std::vector<Json> &entries)
{
    std::vector<vexoctl::junit::Case> cases;
    for (const Json &entry : entries) {
        auto &one = cases.emplace_back(vexoctl::junit::Case{entry.at("function"), entry.at("id")});
        const std::string verdict = verdictIn(entry);
        if (verdict == UNMET)
            one.skipped = verdict;
        if (!isBad(verdict))
            continue;
        one.failure = verdict;
        const std::string operation = entry.at("operation");
        one.message = verdict + (operation.empty() ? "" : ", in " + operation);
        for (const auto &lines : {differencesIn(entry), reasonsIn(entry)})
            for (const std::string &line : lines)
                one.text += line + "\n";
    }
    return vexoctl::junit::suite("vexotrace sweep", cases);
}

} // namespace sweep
