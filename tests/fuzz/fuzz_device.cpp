// Files of the simulated device: a used one, cut or grown, with other bytes in places.
#include "../hostile/device_use.h"

#include <state.h>

#include <cstddef>
#include <cstring>

namespace
{

using namespace hostile;

std::string folder, path;
Bytes sound;

// Where the parts of a device begin, so that an input means the same whatever the layout; only ever
// added to.
constexpr size_t PARTS[] = {
    offsetof(sim::State, head),
    offsetof(sim::State, lock),
    offsetof(sim::State, undo),
    offsetof(sim::State, initialised),
    offsetof(sim::State, system),
    offsetof(sim::State, ports),
    offsetof(sim::State, pws),
    offsetof(sim::State, groups),
    offsetof(sim::State, links),
    offsetof(sim::State, pmEpoch),
    offsetof(sim::State, upgrade),
    offsetof(sim::State, clock),
    offsetof(sim::State, services),
    offsetof(sim::State, faultCount),
    offsetof(sim::State, faults),
    offsetof(sim::State, journal),
    offsetof(sim::State, logLast),
    offsetof(sim::State, log),
    sizeof(sim::State), // the journal's places, and then its records
    sizeof(sim::State) + sim::JOURNAL_CALLS * sizeof(uint64_t),
    offsetof(sim::State, restart), // what follows in the corpus keeps its number
    offsetof(sim::State, faultOrder),
    offsetof(sim::State, keptCount),
    offsetof(sim::State, kept),
};

// What an input is read as: the size of the file, negative by how much it is too long; then places,
// each a part and how far behind its beginning, and what is there instead. Zeros, and an input that
// ends early, change nothing.
class Recipe
{
  public:
    Recipe(const uint8_t *data, size_t size) : at_{data}, end_{data + size} {}

    Bytes applied()
    {
        Bytes bytes = sound;
        if (const auto size = static_cast<int32_t>(word()); size < 0)
            bytes.resize(sound.size() + static_cast<size_t>(-int64_t{size}) % 4096);
        else if (size > 0)
            bytes.resize(static_cast<size_t>(size) % sound.size());
        while (at_ < end_ && !bytes.empty()) {
            const size_t part = PARTS[word() % std::size(PARTS)];
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

[[noreturn]] void fail(const char *what, int ending)
{
    fprintf(stderr, "%s (%d)\n", what, ending);
    abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    std::string made = std::filesystem::temp_directory_path() / "device-XXXXXX";
    if (!mkdtemp(made.data()))
        return 1;
    folder = made;
    path = folder + "/device";
    if (makeUsed(path) != 0)
        abort();
    sound = contentOf(path);
    atexit([] { std::filesystem::remove_all(folder); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const Bytes bytes = Recipe{data, size}.applied();
    write(path, bytes);
    const int ending = inAProcess([] { return use(path.c_str(), 1, 0); });
    if (ending != USED && ending != REFUSED)
        fail("neither used nor refused", ending);
    if (ending == REFUSED && contentOf(path) != bytes)
        fail("refused, but written to", ending);
    return 0;
}
