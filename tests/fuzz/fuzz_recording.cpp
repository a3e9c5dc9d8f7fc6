// Recordings: a kept one, cut or grown, with other bytes in places, through all that reads them.
#include "recipe.h"

#include <commands.h>
#include <recording.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

using namespace vexotrace;

namespace
{

std::string folder, path;
std::vector<char> sound;

// Where the parts of a recording begin: the head, its description, each used block.
std::vector<size_t> parts;

std::vector<size_t> partsOf(const trace::Head &head)
{
    std::vector<size_t> found{0, offsetof(trace::Head, size),
                              static_cast<size_t>(head.descriptionOffset)};
    for (uint64_t i = 0; i < std::min<uint64_t>(head.taken, head.blockCount); ++i)
        for (const size_t within : {size_t{0}, sizeof(trace::Block)})
            found.push_back(static_cast<size_t>(head.blocksOffset + i * head.blockSize) + within);
    return found;
}

void tryCommand(const std::function<int()> &command)
{
    try {
        command();
    } catch (const trace::FileError &error) {
        if (std::string_view{error.what()}.starts_with(path + ": "))
            return;
        fprintf(stderr, "%s\n", error.what());
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    std::string made = std::filesystem::temp_directory_path() / "recording-XXXXXX";
    if (!mkdtemp(made.data()))
        return 1;
    folder = made;
    path = folder + "/vexo.trace";
    std::ifstream stream{RECORDING, std::ios::binary};
    sound.assign(std::istreambuf_iterator<char>{stream}, {});
    trace::Head head;
    if (sound.size() < sizeof head)
        abort();
    memcpy(static_cast<void *>(&head), sound.data(), sizeof head);
    parts = partsOf(head);
    stdout = fopen("/dev/null", "w");
    atexit([] { std::filesystem::remove_all(folder); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::vector<char> bytes = Recipe{data, size}.applied(sound, parts);
    std::ofstream{path, std::ios::binary}.write(bytes.data(),
                                                static_cast<std::streamsize>(bytes.size()));
    FILE *const said = stderr;
    static FILE *const nowhere = fopen("/dev/null", "w");
    stderr = nowhere;
    ShowOptions shown;
    shown.all = true;
    shown.files = {path, RECORDING};
    tryCommand([&] { return show(shown); });
    shown.json = true;
    shown.files = {path};
    tryCommand([&] { return show(shown); });
    shown.object = "pwe=17";
    shown.all = false;
    tryCommand([&] { return show(shown); });
    CoverOptions covered;
    covered.files = {path};
    tryCommand([&] { return cover(covered); });
    DiffOptions compared;
    compared.a = RECORDING;
    compared.b = path;
    tryCommand([&] { return diff(compared); });
    tryCommand([] { return exportChrome(path); });
    stderr = said;
    return 0;
}
