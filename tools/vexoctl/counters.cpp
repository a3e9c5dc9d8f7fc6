#include "counters.h"

#include "codec.h"

#include <kv_sim.h>

#include <algorithm>
#include <optional>

namespace vexoctl
{

namespace
{

using Numbers = std::vector<uint32_t>;

// A counter, or as many as there are words: '#' stands for the index, from 0.
struct Row {
    Counters set;
    uint32_t type;
    std::string name;
    Numbers words;
    std::optional<uint32_t> kind = {}; // of the objects that have it, if not all do
};

Numbers from(uint32_t first, uint32_t count, uint32_t step = 1)
{
    Numbers numbers(count);
    for (uint32_t i = 0; i < count; ++i)
        numbers[i] = first + i * step;
    return numbers;
}

constexpr Counters PM = Counters::pm;
constexpr Counters OM = Counters::om;

const Row ROWS[] = {
    {PM, KV_SIM_PDH, "layout0.counters.#", {1, 2, 3, 4, 5, 6, 7, 10, 8, 9, 11, 12}, 0},
    {PM, KV_SIM_PDH, "layout0.intervalFlag", {13}, 0},
    {PM, KV_SIM_PDH, "layout1.counters.#", from(2, 7), 1},
    {PM, KV_SIM_PDH, "layout1.intervalFlag", {9}, 1},
    {PM, KV_SIM_PDH, "commonCounters.#", from(14, 5)},
    {PM, KV_SIM_PW, "generic.counters.#", from(1, 13), 0},
    {PM, KV_SIM_PW, "generic.valid", {14}, 0},
    {PM, KV_SIM_PW, "atm.counters.#", from(1, 4), 1},
    {PM, KV_SIM_PW, "atm.valid", {5}, 1},
    {PM, KV_SIM_GROUP, "counters.#", {2, 0, 1}},
    {PM, KV_SIM_GROUP, "intervalFlag", {3}},
    {PM, KV_SIM_LINK, "counters.#", {0, 2, 3, 4, 5, 6, 7, 1, 8, 9, 10, 11, 12, 13, 14, 15}},
    {PM, KV_SIM_LINK, "intervalFlag", {16}},
    {OM, KV_SIM_SYSTEM, "om.#", from(0, 74)},
    {OM, KV_SIM_PW, "tdmCounters.#", {2, 1}, 0},
    {OM, KV_SIM_PW, "atmCounters.#", from(1, 4), 1},
    {OM, KV_SIM_PW, "entries.#.counters.0", from(5, 20, 2), 1},
    {OM, KV_SIM_PW, "entries.#.counters.1", from(6, 20, 2), 1},
    {OM, KV_SIM_GROUP, "counters.#", from(0, 2)},
    {OM, KV_SIM_LINK, "counters.#", from(0, 8)},
};

std::string nameOf(const Row &row, size_t index)
{
    std::string name = row.name;
    if (const size_t sign = name.find('#'); sign != std::string::npos)
        name.replace(sign, 1, std::to_string(index));
    return name;
}

bool isOf(const Row &row, Counters set, uint32_t type, uint32_t kind)
{
    return row.set == set && row.type == type && (!row.kind || *row.kind == kind);
}

} // namespace

std::string counterName(Counters set, uint32_t type, uint32_t kind, uint32_t word)
{
    for (const Row &row : ROWS)
        for (size_t i = 0; isOf(row, set, type, kind) && i < row.words.size(); ++i)
            if (row.words[i] == word)
                return nameOf(row, i);
    return std::to_string(word);
}

uint32_t counterWord(Counters set, uint32_t type, uint32_t kind, const std::string &name)
{
    if (!name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return isdigit(c); })) {
        uint32_t word;
        parse(describe::typeOf<uint32_t>(), "counter", name, {}, &word);
        return word;
    }
    Names known;
    for (const Row &row : ROWS) {
        if (!isOf(row, set, type, kind))
            continue;
        for (size_t i = 0; i < row.words.size(); ++i)
            if (nameOf(row, i) == name)
                return row.words[i];
        const size_t last = row.words.size() - 1;
        known.push_back(nameOf(row, 0) + (last ? " to " + nameOf(row, last) : ""));
    }
    if (known.empty())
        throw UsageError("counter: an object of this type has none of this set");
    known.push_back("the number of a word");
    throw UsageError("counter: expected " + inWords(known) + ", not '" + name + "'");
}

} // namespace vexoctl
