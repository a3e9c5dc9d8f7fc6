// Files of the simulated device: a used one, cut or grown, with other bytes in places.
#include "../hostile/device_use.h"
#include "recipe.h"

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
    const Bytes bytes = Recipe{data, size}.applied(sound, PARTS);
    write(path, bytes);
    const int ending = inAProcess([] { return use(path.c_str(), 1, 0); });
    if (ending != USED && ending != REFUSED)
        fail("neither used nor refused", ending);
    if (ending == REFUSED && contentOf(path) != bytes)
        fail("refused, but written to", ending);
    return 0;
}
