// Random values that repeat: a generator per thread, started anew from a seed.
#ifndef HOSTILE_CHANCE_H
#define HOSTILE_CHANCE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace hostile
{

class Chance
{
  public:
    void start(uint64_t seed, uint64_t round)
    {
        state_ = seed;
        state_ = next() ^ round;
        constexpr uint32_t OFTEN_FAILING[] = {0, 0, 1, 8};
        failing_ = OFTEN_FAILING[below(4)];
    }

    // splitmix64
    uint64_t next()
    {
        uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return z ^ z >> 31;
    }

    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(next() % bound); }
    bool one(uint32_t in) { return below(in) == 0; }

    // What counts, codes and numbers are like: often small, often far too large.
    uint32_t word()
    {
        switch (below(4)) {
        case 0:
            return 0xFFFFFFFF;
        case 1:
            return 1u << below(32);
        case 2:
            return static_cast<uint32_t>(next());
        default:
            return below(8);
        }
    }

    void fill(void *to, size_t size)
    {
        const uint32_t kind = below(5);
        auto *bytes = static_cast<uint8_t *>(to);
        for (size_t at = 0; at < size; at += sizeof(uint32_t)) {
            const uint32_t words[] = {0xFFFFFFFF, static_cast<uint32_t>(next()), below(8), word(),
                                      word()};
            memcpy(bytes + at, &words[kind], size - at < 4 ? size - at : 4);
        }
    }

    // Whether a platform call of this round fails: none, few or half of them do.
    bool fails() { return below(16) < failing_; }

  private:
    uint64_t state_ = 0;
    uint32_t failing_ = 0;
};

inline Chance &chance()
{
    thread_local Chance own;
    return own;
}

} // namespace hostile

#endif
