#include "verdict.h"

#include <vexo_cmi.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace sweep
{

using config::Difference;
using config::Document;
using config::Key;

namespace
{

constexpr const char *PWE = "pwe";

// How lines name the objects of a section, in lower case.
std::vector<std::string_view> wordsFor(const std::string &section)
{
    if (section == PWE)
        return {"pw", "pseudowire", "pseudo-wire"};
    if (section == "pdh")
        return {"port", "pdh", "e1", "t1", "ds1"};
    return {"ima", "group"};
}

std::set<std::string> linesOf(const std::string &text)
{
    std::set<std::string> lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);)
        if (line.find_first_not_of(" \t\r") != line.npos)
            lines.insert(line);
    return lines;
}

// Without its numbers.
std::string shapeOf(const std::string &line)
{
    std::string shape;
    for (const char c : line)
        if (!isdigit(static_cast<unsigned char>(c)))
            shape += c;
        else if (!shape.ends_with('#'))
            shape += '#';
    return shape;
}

bool hasNumber(const std::string &line, uint32_t number)
{
    const std::string digits = std::to_string(number);
    const auto isDigit = [&](size_t at) {
        return at < line.size() && isdigit(static_cast<unsigned char>(line[at]));
    };
    for (size_t at = line.find(digits); at != line.npos; at = line.find(digits, at + 1))
        if (!(at > 0 && isDigit(at - 1)) && !isDigit(at + digits.size()))
            return true;
    return false;
}

std::set<Key> keysOf(const std::vector<Difference> &differences)
{
    std::set<Key> keys;
    for (const Difference &difference : differences)
        keys.insert(difference.key);
    return keys;
}

// Most are not: to ask for all of them in words would take longer than everything else.
bool isThere(uint32_t pwId)
{
    vexoPweParamsInfo info;
    vexoResult result;
    vexo_cmi_pwe_params_get(&info, pwId, &result);
    return result.rc != VEXO_RC_OK || info.pweAction == VEXO_PWE_ACTION_CREATE;
}

} // namespace

Document deviceNow()
{
    const config::Ranges ranges;
    Document named, empty;
    for (const config::Kind &kind : config::kinds()) {
        empty.sections.insert(kind.section);
        for (uint32_t number = kind.number ? 1 : 0; number <= lastOf(kind, ranges); ++number)
            if (kind.section != PWE || isThere(number))
                named.objects[{&kind, number}];
    }
    config::Device device;
    Document now = saveNamed(device, named);
    now.sections = empty.sections;
    return now;
}

Lines::Lines(const std::string &a, const std::string &b) : known_{linesOf(a)}
{
    std::set<std::string> changing;
    std::ranges::set_symmetric_difference(known_, linesOf(b),
                                          std::inserter(changing, changing.end()));
    for (const std::string &line : changing)
        changing_.insert(shapeOf(line));
    known_.merge(changing);
}

std::vector<std::string> Lines::newIn(const std::string &output) const
{
    std::vector<std::string> found;
    for (const std::string &line : linesOf(output))
        if (!known_.contains(line) && !changing_.contains(shapeOf(line)))
            found.push_back(line);
    return found;
}

bool isNamed(const Key &key, const std::string &given)
{
    std::string line = given;
    std::ranges::transform(line, line.begin(), [](unsigned char c) { return tolower(c); });
    const auto has = [&](std::string_view word) { return line.find(word) != line.npos; };
    if (!key.kind->number)
        return has(key.kind->setting);
    return hasNumber(line, key.number) && std::ranges::any_of(wordsFor(key.kind->section), has);
}

bool isBad(const std::string &verdict)
{
    return verdict != RECOVERED && verdict != REPORTED && verdict != UNMET;
}

Judgement judge(const Good &good, const Outcome &outcome, const std::vector<Difference> &different)
{
    if (outcome.ran.crashed)
        return {CRASHED};
    if (outcome.ran.hung)
        return {HUNG};
    const bool failed = outcome.ran.end != good.ran.end || outcome.ran.wasTold != good.ran.wasTold;
    const bool asIntended = different.empty() && outcome.passed;
    if (!outcome.met)
        return {!failed && asIntended ? UNMET : UNSTABLE};
    if (!failed && asIntended)
        return {RECOVERED};
    const std::vector<std::string> said = good.lines.newIn(outcome.ran.output);
    const auto isSaid = [&](const Key &key) {
        return std::ranges::any_of(said,
                                   [&](const std::string &line) { return isNamed(key, line); });
    };
    const std::set<Key> wrong = keysOf(different),
                        changed = keysOf(differences(good.before, outcome.after));
    // Who names what went wrong has told that what should have come after it wasn't begun.
    const bool names = std::ranges::any_of(wrong, isSaid) ||
                       (failed && std::ranges::any_of(outcome.befallen, isSaid));
    std::vector<std::string> unnamed;
    for (const Key &key : wrong)
        if (!isSaid(key) && (!names || changed.contains(key)))
            unnamed.push_back(nameOf(key));
    if ((failed || !said.empty()) && (std::ranges::all_of(changed, isSaid) ||
                                      (unnamed.empty() && (outcome.passed || !wrong.empty()))))
        return {REPORTED};
    return failed ? Judgement{HALF, unnamed} : Judgement{SILENT};
}

} // namespace sweep
