// The time to load and unload the library, against an empty shared object; the platform libraries
// are loaded already.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

extern "C" int gorvGetVersion(char *buffer, int)
{
    *buffer = '\0';
    return 0;
}

static void load(benchmark::State &state, const char *path)
{
    for (auto _ : state) {
        void *object = dlopen(path, RTLD_NOW);
        if (!object) {
            fprintf(stderr, "%s\n", dlerror());
            exit(1);
        }
        dlclose(object);
    }
}

BENCHMARK_CAPTURE(load, library, LIBRARY);
BENCHMARK_CAPTURE(load, empty, EMPTY);
BENCHMARK_MAIN();
