#include "spelling.h"

#include <algorithm>
#include <numeric>

namespace vexoctl
{

std::string quoted(const std::string &text)
{
    constexpr size_t LONGEST = 60;
    return "'" + (text.size() > LONGEST ? text.substr(0, LONGEST) + "..." : text) + "'";
}

std::string joined(const Names &names, const std::string &separator)
{
    std::string text;
    for (const std::string &name : names)
        text += (&name == names.data() ? "" : separator) + name;
    return text;
}

std::string inWords(const Names &names, const std::string &last)
{
    if (names.size() < 2)
        return joined(names, "");
    return joined({names.begin(), names.end() - 1}, ", ") + " " + last + " " + names.back();
}

std::string hint(const std::string &name, const Names &names)
{
    constexpr size_t LONGEST = 64;
    constexpr size_t SHORTEST_BEGINNING = 3;
    if (name.size() > LONGEST)
        return "";
    std::string best;
    // One letter in three may be wrong; but whoever stopped before the end has none wrong.
    size_t bestDistance = (name.size() + 2) / 3 + 1;
    for (const std::string &candidate : names) {
        if (name.size() >= SHORTEST_BEGINNING && candidate.starts_with(name)) {
            best = candidate;
            break;
        }
        std::vector<size_t> row(candidate.size() + 1);
        std::iota(row.begin(), row.end(), 0);
        for (size_t i = 0; i < name.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i + 1;
            for (size_t k = 0; k < candidate.size(); ++k) {
                const size_t replaced = diagonal + (name[i] != candidate[k]);
                diagonal = row[k + 1];
                row[k + 1] = std::min({replaced, row[k] + 1, row[k + 1] + 1});
            }
        }
        if (row.back() < bestDistance) {
            bestDistance = row.back();
            best = candidate;
        }
    }
    return best.empty() ? "" : "; did you mean '" + best + "'?";
}

} // namespace vexoctl
