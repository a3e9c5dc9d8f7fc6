#include "report.h"

#include "run.h"
#include "verdict.h"

#include <junit.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

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

std::map<std::string, size_t> countsOf(const std::vector<Json> &entries)
{
    std::map<std::string, size_t> counts;
    for (const Json &entry : entries)
        ++counts[verdictIn(entry)];
    return counts;
}

} // namespace

Json reportOf(const std::vector<Json> &entries)
{
    return {{"points", entries}, {"verdicts", countsOf(entries)}};
}

std::vector<Json> merged(const std::vector<std::string> &files)
{
    std::vector<Json> all;
    for (const std::string &file : files) {
        std::ifstream stream{file};
        if (!stream)
            throw Trouble(file + ": " + strerror(errno));
        try {
            const Json report = Json::parse(stream);
            for (const Json &entry : report.at("points")) {
                static_cast<void>(verdictIn(entry));
                static_cast<void>(differencesIn(entry));
                const auto known = std::ranges::find_if(
                    all, [&](const Json &other) { return other.at("id") == entry.at("id"); });
                if (known == all.end())
                    all.push_back(entry);
                else if (isBad(verdictIn(entry)) && !isBad(verdictIn(*known)))
                    *known = entry;
            }
        } catch (const Json::exception &) {
            throw Trouble(file + ": is no report of a sweep's");
        }
    }
    return all;
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
