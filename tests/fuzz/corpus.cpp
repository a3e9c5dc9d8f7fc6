// Goes over the files of a folder once, as a fuzzer does before it makes up inputs of its own.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator{argv[1]}) {
        std::ifstream stream{entry.path(), std::ios::binary};
        const std::string input{std::istreambuf_iterator<char>{stream}, {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
        ++count;
    }
    fprintf(stderr, "%zu inputs\n", count);
    return count == 0;
}
