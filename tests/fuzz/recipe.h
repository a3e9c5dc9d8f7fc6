// An input of a fuzzer as a way to damage a file.
#ifndef FUZZ_RECIPE_H
#define FUZZ_RECIPE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

// What an input is read as: the size of the file, negative by how much it is too long; then places,
// each a part and how far behind its beginning, and what is there instead. Zeros, and an input that
// ends early, change nothing.
class Recipe
{
  public:
    Recipe(const uint8_t *data, size_t size) : at_{data}, end_{data + size} {}

    std::vector<char> applied(const std::vector<char> &sound, std::span<const size_t> parts)
    {
        std::vector<char> bytes = sound;
        if (const auto size = static_cast<int32_t>(word()); size < 0)
            bytes.resize(sound.size() + static_cast<size_t>(-int64_t{size}) % 4096);
        else if (size > 0)
            bytes.resize(static_cast<size_t>(size) % sound.size());
        while (at_ < end_ && !bytes.empty()) {
            const size_t part = parts[word() % parts.size()];
            const size_t place = (part + word()) % bytes.size();
            const size_t count = std::min<size_t>(word() % 64, static_cast<size_t>(end_ - at_));
            const size_t room = std::min(count, bytes.size() - place);
            memcpy(&bytes[place], at_, room);
            at_ += count;
        }
        return bytes;
    }

  private:
    uint32_t word()
    {
        uint32_t value = 0;
        const size_t count = std::min(sizeof value, static_cast<size_t>(end_ - at_));
        memcpy(&value, at_, count);
        at_ += count;
        return value;
    }

    const uint8_t *at_;
    const uint8_t *end_;
};

#endif
