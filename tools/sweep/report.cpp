#include "report.h"

#include "run.h"
#include "verdict.h"

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

std::map<std::string, size_t> countsOf(const std::vector<Json> &entries)
{
    std::map<std::string, size_t> counts;
    for (const Json &entry : entries)
        ++counts[verdictIn(entry)];
    return counts;
}

std::string escaped(const std::string &text)
{
    std::string escaped;
    for (const char c : text)
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += c;
        }
    return escaped;
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
        for (const std::string &line : differencesIn(entry))
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
        text += "  ---\n  verdict: " + verdict + "\n  difference:\n";
        for (const std::string &line : differencesIn(entry))
            text +=
                "    - " + Json(line).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        text += "  ...\n";
    }
    return text;
}

std::string asJunit(const std::vector<Json> &entries)
{
    size_t bad = 0, skipped = 0;
    std::string cases;
    for (const Json &entry : entries) {
        const std::string verdict = verdictIn(entry);
        cases += "  <testcase classname=\"" + escaped(entry.at("function")) + "\" name=\"" +
                 escaped(entry.at("id")) + "\"";
        if (verdict == UNMET) {
            cases += "><skipped message=\"" + verdict + "\"/></testcase>\n";
            ++skipped;
        } else if (isBad(verdict)) {
            cases += "><failure type=\"" + verdict + "\" message=\"" + verdict + "\">";
            for (const std::string &line : differencesIn(entry))
                cases += escaped(line) + "\n";
            cases += "</failure></testcase>\n";
            ++bad;
        } else {
            cases += "/>\n";
        }
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"vexotrace sweep\" "
           "tests=\"" +
           std::to_string(entries.size()) + "\" failures=\"" + std::to_string(bad) +
           "\" errors=\"0\" skipped=\"" + std::to_string(skipped) + "\">\n" + cases +
           "</testsuite>\n";
}

} // namespace sweep
