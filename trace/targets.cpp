// Finds the functions that are behind the recorder's, wherever the library and the platform's were
// loaded from, and stands before those of the loader by which a host finds operations itself.
#include "recorder.h"

#include <cerrno>
#include <cstdlib>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace trace
{

std::atomic<void *> targets[FUNCTIONS];

namespace
{

using Symbols = void *(void *, const char *);

Symbols *findSymbols()
{
    // Where the C library is older, or another machine's, it has another version.
    for (const char *version : {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17", "GLIBC_2.4", "GLIBC_2.0",
                                "GLIBC_2.27", "GLIBC_2.36"})
        if (void *found = dlvsym(RTLD_NEXT, "dlsym", version))
            return reinterpret_cast<Symbols *>(found);
    static constexpr char WHY[] = "libvexo_trace: the C library has no dlsym() that is known\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, WHY, sizeof WHY - 1);
    abort();
}

Symbols *symbols()
{
    static std::atomic<Symbols *> found;
    Symbols *known = found.load(std::memory_order_relaxed);
    if (!known)
        found = known = findSymbols();
    return known;
}

int closeLibrary(void *library)
{
    static std::atomic<int (*)(void *)> found;
    auto *known = found.load(std::memory_order_relaxed);
    if (!known)
        found = known = reinterpret_cast<int (*)(void *)>(symbols()(RTLD_NEXT, "dlclose"));
    return known(library);
}

// The library as it is loaded, and where its code is: a host may unload it and load it again.
std::atomic<uintptr_t> libraryBegin, libraryEnd;

struct Extent {
    uintptr_t base, begin, end;
};

int findExtent(dl_phdr_info *object, size_t, void *data)
{
    auto &extent = *static_cast<Extent *>(data);
    if (object->dlpi_addr != extent.base)
        return 0;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto &part = object->dlpi_phdr[i];
        if (part.p_type != PT_LOAD)
            continue;
        const uintptr_t begin = extent.base + part.p_vaddr;
        extent.begin = extent.begin && extent.begin < begin ? extent.begin : begin;
        const uintptr_t end = begin + part.p_memsz;
        extent.end = extent.end > end ? extent.end : end;
    }
    return 1;
}

// First what comes next among what the whole process sees; else what the library itself sees, which
// was loaded for a part of the process.
void *look(void *library, const char *name)
{
    if (void *found = symbols()(RTLD_NEXT, name))
        return found;
    return library ? symbols()(library, name) : nullptr;
}

// All at once: a service's thread, which calls functions of the platform, must not wait for the
// loader's lock, which whoever unloads the library holds.
void findAll()
{
    void *library = dlopen(LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
    Extent extent{};
    if (library) {
        extent.base = static_cast<link_map *>(library)->l_addr;
        dl_iterate_phdr(findExtent, &extent);
    }
    libraryBegin = extent.begin;
    libraryEnd = extent.end;
    for (uint16_t i = 0; i < placeOf(Callback{}); ++i)
        targets[i] = look(library, shapes[i].name);
    if (library)
        closeLibrary(library);
    dlerror();
}

#define TRACED(name, count) #name,
constexpr const char *NAMES[] = {
#include "operations.inc"
};
#undef TRACED

// The wrapper, where a host has asked for an operation.
void *wrapped(const char *name, void *found)
{
    for (uint16_t i = 0; i < OPERATION_COUNT; ++i) {
        if (strcmp(name, NAMES[i]) != 0)
            continue;
        void *const wrapper = wrapperOf(i);
        if (found == wrapper)
            return wrapper;
        if (targets[i] != found) {
            findAll();
            targets[i] = found;
        }
        return wrapper;
    }
    return found;
}

// Finds it anew; null where there is none.
void *lookBehind(uint16_t place)
{
    const int kept = errno;
    describeFunctions();
    findAll();
    errno = kept;
    return targets[place];
}

bool isOperation(const char *name)
{
    constexpr char PREFIX[] = "vexo_cmi_";
    return name && strncmp(name, PREFIX, sizeof PREFIX - 1) == 0;
}

} // namespace

void *findTarget(uint16_t place)
{
    if (void *found = lookBehind(place))
        return found;
    dprintf(STDERR_FILENO, "libvexo_trace: there is no %s() behind the recorder\n",
            shapes[place].name);
    abort();
}

void *findSimulators(const char *name)
{
    if (void *found = symbols()(RTLD_NEXT, name))
        return found;
    void *const library = dlopen("libkv_sim.so", RTLD_LAZY | RTLD_NOLOAD);
    void *const found = library ? symbols()(library, name) : nullptr;
    if (library)
        closeLibrary(library);
    return found;
}

bool isInLibrary(const void *address)
{
    const auto place = reinterpret_cast<uintptr_t>(address);
    return place >= libraryBegin.load(std::memory_order_relaxed) &&
           place < libraryEnd.load(std::memory_order_relaxed);
}

} // namespace trace

using namespace trace;

extern "C" {

// Leaves by a jump: what the loader finds may depend on who asks.
[[gnu::visibility("default")]] void *dlsym(void *library, const char *name) noexcept
{
    Symbols *const behind = symbols();
    if (library == RTLD_NEXT || library == RTLD_DEFAULT || !isOperation(name))
        return behind(library, name);
    void *const found = behind(library, name);
    return found ? wrapped(name, found) : nullptr;
}

// A host may ask for the library's file by the address of an operation.
[[gnu::visibility("default")]] int dladdr(const void *address, Dl_info *info) noexcept
{
    static std::atomic<int (*)(const void *, Dl_info *)> found;
    auto *behind = found.load(std::memory_order_relaxed);
    if (!behind)
        found = behind =
            reinterpret_cast<int (*)(const void *, Dl_info *)>(symbols()(RTLD_NEXT, "dladdr"));
    for (uint16_t i = 0; i < placeOf(Callback{}); ++i)
        if (address == wrapperOf(i)) {
            void *const known = targets[i];
            const void *const actual = known ? known : lookBehind(i);
            return behind(actual ? actual : address, info);
        }
    return behind(address, info);
}

[[gnu::visibility("default")]] int dlclose(void *library) noexcept
{
    const int result = closeLibrary(library);
    const int kept = errno;
    void *const still = dlopen(LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
    const bool stays = still && static_cast<link_map *>(still)->l_addr <= libraryBegin &&
                       libraryBegin != 0 && isInLibrary(static_cast<link_map *>(still)->l_ld);
    if (still)
        closeLibrary(still);
    if (!stays && libraryBegin != 0)
        findAll();
    errno = kept;
    return result;
}
}
