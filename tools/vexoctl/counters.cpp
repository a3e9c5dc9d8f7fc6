#include "counters.h"

#include "codec.h"

#include <kv_sim.h>

#include <algorithm>
#include <numeric>
#include <optional>

namespace vexoctl
{

namespace
{

using Numbers = std::vector<uint32_t>;

// A counter, or as many as there are words: '#' stands for the index, from 0.
struct Row {
    uint32_t type;
    std::string name;
    Numbers words;
    std::optional<uint32_t> kind = {}; // of the objects that have it, if not all do
};

Numbers from(uint32_t first, uint32_t count)
{
    Numbers numbers(count);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

Numbers everySecond(uint32_t first, uint32_t count)
{
    Numbers numbers = from(0, count);
    for (uint32_t &number : numbers)
        number = first + 2 * number;
    return numbers;
}

const std::vector<Row> &pmRows()
{
    static const std::vector<Row> rows = {
        {KV_SIM_PDH, "layout0.counters.#", {1, 2, 3, 4, 5, 6, 7, 10, 8, 9, 11, 12}, 0},
        {KV_SIM_PDH, "layout0.intervalFlag", {13}, 0},
        {KV_SIM_PDH, "layout1.counters.#", from(2, 7), 1},
        {KV_SIM_PDH, "layout1.intervalFlag", {9}, 1},
        {KV_SIM_PDH, "commonCounters.#", from(14, 5)},
        {KV_SIM_PW, "generic.counters.#", from(1, 13), 0},
        {KV_SIM_PW, "generic.valid", {14}, 0},
        {KV_SIM_PW, "atm.counters.#", from(1, 4), 1},
        {KV_SIM_PW, "atm.valid", {5}, 1},
        {KV_SIM_GROUP, "counters.#", {2, 0, 1}},
        {KV_SIM_GROUP, "intervalFlag", {3}},
        {KV_SIM_LINK, "counters.#", {0, 2, 3, 4, 5, 6, 7, 1, 8, 9, 10, 11, 12, 13, 14, 15}},
        {KV_SIM_LINK, "intervalFlag", {16}},
    };
    return rows;
}

const std::vector<Row> &omRows()
{
    static const std::vector<Row> rows = {
        {KV_SIM_SYSTEM, "om.#", from(0, 74)},
        {KV_SIM_PW, "tdmCounters.#", {2, 1}, 0},
        {KV_SIM_PW, "atmCounters.#", from(1, 4), 1},
        {KV_SIM_PW, "entries.#.counters.0", everySecond(5, 20), 1},
        {KV_SIM_PW, "entries.#.counters.1", everySecond(6, 20), 1},
        {KV_SIM_GROUP, "counters.#", from(0, 2)},
        {KV_SIM_LINK, "counters.#", from(0, 8)},
    };
    return rows;
}

std::string nameOf(const Row &row, size_t index)
{
    std::string name = row.name;
    if (const size_t sign = name.find('#'); sign != std::string::npos)
        name.replace(sign, 1, std::to_string(index));
    return name;
}

uint32_t wordOf(const std::vector<Row> &rows, uint32_t type, uint32_t kind, const std::string &name)
{
    if (!name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return isdigit(c); })) {
        uint32_t word;
        parse(describe::typeOf<uint32_t>(), "counter", name, {}, &word);
        return word;
    }
    Names known;
    for (const Row &row : rows) {
        if (row.type != type || (row.kind && *row.kind != kind))
            continue;
        for (size_t i = 0; i < row.words.size(); ++i)
            if (nameOf(row, i) == name)
                return row.words[i];
        const size_t last = row.words.size() - 1;
        known.push_back(nameOf(row, 0) + (last ? " to " + nameOf(row, last) : ""));
    }
    known.push_back("the number of a word");
    throw UsageError("counter: expected " + inWords(known) + ", not '" + name + "'");
}

} // namespace

uint32_t pmWord(uint32_t type, uint32_t kind, const std::string &name)
{
    return wordOf(pmRows(), type, kind, name);
}

uint32_t omWord(uint32_t type, uint32_t kind, const std::string &name)
{
    return wordOf(omRows(), type, kind, name);
}

} // namespace vexoctl
