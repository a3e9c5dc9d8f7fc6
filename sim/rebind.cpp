// When a stand-in is loaded, imports of the library are bound anew. It asks the C library for the
// time of day, and sets it there: both become the device's. What a host program puts in their place
// stays. And where a device's own platform libraries were loaded beside stand-ins, whatever the
// library would call of either becomes a refusal.
#include "rebind.h"

#include "clock.h"
#include "entry.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <dlfcn.h>
#include <gnu/lib-names.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

using namespace sim;

namespace
{

int deviceSetTimeOfDay(const timeval *time, const struct timezone *)
{
    Call call{Index::settimeofday, time};
    const kvRc code = call.run([=](Transaction &device) {
        const uint32_t seconds = static_cast<uint32_t>(time->tv_sec);
        const uint32_t microseconds = static_cast<uint32_t>(time->tv_usec);
        if (microseconds >= SECOND)
            return fail(BAD_VALUE, "%u microseconds are not less than a second", microseconds);
        return setClock(device, seconds * SECOND + microseconds);
    });
    if (code != KV_OK)
        errno = EINVAL;
    return code == KV_OK ? 0 : -1;
}

int deviceGetTimeOfDay(timeval *time, void *)
{
    Call call{Index::gettimeofday, time};
    if (!call.enter()) {
        errno = EINVAL;
        return call.code() == KV_OK ? 0 : -1;
    }
    const uint64_t now = deviceTime(*call.device);
    time->tv_sec = static_cast<time_t>(now / SECOND);
    time->tv_usec = static_cast<suseconds_t>(now % SECOND);
    return 0;
}

constexpr const char *PLATFORM[] = {"libkv_alarm.so",  "libkv_common.so", "libkv_config.so",
                                    "libkv_forker.so", "libkv_pmom.so",   "libkv_upgrade.so"};

char mixtureText[128];

// The loader knows them by these names, wherever they are; a stand-in brings the device along.
void lookForMixture()
{
    const char *simulated = nullptr;
    const char *real = nullptr;
    for (const char *name : PLATFORM) {
        void *library = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
        if (!library)
            continue;
        (dlsym(library, "kv_sim_open") ? simulated : real) = name;
        dlclose(library);
    }
    mixtureText[0] = '\0';
    if (simulated && real)
        snprintf(mixtureText, sizeof mixtureText,
                 "simulated and real platform libraries are mixed: %s is simulated, %s is not",
                 simulated, real);
}

// In place of functions that have parameters, which clang's sanitizer takes for a mistake.
__attribute__((no_sanitize("undefined"))) kvRc refuse()
{
    return NO_DEVICE;
}

__attribute__((no_sanitize("undefined"))) int refuseDescriptor()
{
    return -1;
}

void *refusalOf(const Function &function)
{
    switch (function.returns) {
    case describe::platform::Returns::text:
        return reinterpret_cast<void *>(mixture);
    case describe::platform::Returns::descriptor:
        return reinterpret_cast<void *>(refuseDescriptor);
    default:
        return reinterpret_cast<void *>(refuse);
    }
}

constexpr char LIBRARY[] = "libvexo_cmi.so";

// ThreadSanitizer has a gettimeofday of its own, which is none of the host's.
#ifdef __SANITIZE_THREAD__
constexpr bool INTERCEPTED = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool INTERCEPTED = true;
#else
constexpr bool INTERCEPTED = false;
#endif
#else
constexpr bool INTERCEPTED = false;
#endif

struct Binding {
    const char *name;
    void *of; // null: whatever it is bound to
    void *to;
};
using Bindings = std::vector<Binding>;

#if __SIZEOF_POINTER__ == 8
#define RELOCATION_SYMBOL ELF64_R_SYM
#else
#define RELOCATION_SYMBOL ELF32_R_SYM
#endif

// The parts of an object's dynamic section that are needed here.
struct Dynamic {
    const ElfW(Sym) *symbols = nullptr;
    const char *names = nullptr;
    size_t soname = 0;     // among the names
    uintptr_t tables[2]{}; // of data and of functions
    size_t sizes[2]{};
    bool withAddend = false;
};

// The loader relocates these addresses in place on some machines and not on others.
uintptr_t absolute(uintptr_t base, uintptr_t address)
{
    return address < base ? base + address : address;
}

Dynamic dynamicOf(uintptr_t base, const ElfW(Dyn) * entry)
{
    Dynamic dynamic;
    for (; entry->d_tag != DT_NULL; ++entry) {
        switch (entry->d_tag) {
        case DT_SYMTAB:
            dynamic.symbols =
                reinterpret_cast<const ElfW(Sym) *>(absolute(base, entry->d_un.d_ptr));
            break;
        case DT_STRTAB:
            dynamic.names = reinterpret_cast<const char *>(absolute(base, entry->d_un.d_ptr));
            break;
        case DT_SONAME:
            dynamic.soname = entry->d_un.d_val;
            break;
        case DT_RELA:
            dynamic.withAddend = true;
            [[fallthrough]];
        case DT_REL:
            dynamic.tables[0] = absolute(base, entry->d_un.d_ptr);
            break;
        case DT_RELASZ:
        case DT_RELSZ:
            dynamic.sizes[0] = entry->d_un.d_val;
            break;
        case DT_JMPREL:
            dynamic.tables[1] = absolute(base, entry->d_un.d_ptr);
            break;
        case DT_PLTRELSZ:
            dynamic.sizes[1] = entry->d_un.d_val;
            break;
        case DT_PLTREL:
            dynamic.withAddend |= entry->d_un.d_val == DT_RELA;
            break;
        }
    }
    return dynamic;
}

bool isLibrary(const Dynamic &dynamic)
{
    return dynamic.names && dynamic.symbols &&
           strncmp(dynamic.names + dynamic.soname, LIBRARY, sizeof LIBRARY - 1) == 0;
}

void write(void **slot, void *value)
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    auto *start = reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(slot) & ~(page - 1));
    mprotect(start, page, PROT_READ | PROT_WRITE);
    *slot = value;
}

int rebind(dl_phdr_info *object, size_t, void *bindings)
{
    const ElfW(Dyn) *entry = nullptr;
    for (int i = 0; i < object->dlpi_phnum; ++i)
        if (object->dlpi_phdr[i].p_type == PT_DYNAMIC)
            entry = reinterpret_cast<const ElfW(Dyn) *>(object->dlpi_addr +
                                                        object->dlpi_phdr[i].p_vaddr);
    if (!entry)
        return 0;
    const Dynamic dynamic = dynamicOf(object->dlpi_addr, entry);
    if (!isLibrary(dynamic))
        return 0;
    const size_t step = dynamic.withAddend ? sizeof(ElfW(Rela)) : sizeof(ElfW(Rel));
    for (int t = 0; t < 2; ++t) {
        for (size_t at = 0; at < dynamic.sizes[t]; at += step) {
            const auto *relocation = reinterpret_cast<const ElfW(Rel) *>(dynamic.tables[t] + at);
            const auto symbol = RELOCATION_SYMBOL(relocation->r_info);
            if (symbol == 0)
                continue;
            const char *name = dynamic.names + dynamic.symbols[symbol].st_name;
            auto **slot = reinterpret_cast<void **>(object->dlpi_addr + relocation->r_offset);
            for (const Binding &binding : *static_cast<const Bindings *>(bindings))
                if (strcmp(name, binding.name) == 0 &&
                    (INTERCEPTED || !binding.of || dlsym(RTLD_DEFAULT, name) == binding.of))
                    write(slot, binding.to);
        }
    }
    return 0;
}

// How many objects have been loaded so far.
unsigned long long loads()
{
    unsigned long long count = 0;
    dl_iterate_phdr(
        [](dl_phdr_info *object, size_t, void *to) {
            *static_cast<unsigned long long *>(to) = object->dlpi_adds;
            return 1;
        },
        &count);
    return count;
}

} // namespace

const char *sim::mixture()
{
    return mixtureText;
}

void sim::bindLibrary()
{
    // All stand-ins that come at once find the same, and the loader's lock is held.
    static unsigned long long latest;
    if (latest == loads())
        return;
    latest = loads();
    void *libc = dlopen(LIBC_SO, RTLD_LAZY | RTLD_NOLOAD);
    if (!libc)
        return;
    // A recorder that stands before the C library gives what passes the library's calls on.
    const auto recorders = reinterpret_cast<void *(*)(const char *, void *, void *, void *)>(
        dlsym(RTLD_DEFAULT, "vexo_trace_clock"));
    const auto bound = [=](const char *name, auto *function) {
        void *const hosts = dlsym(libc, name);
        void *const to = reinterpret_cast<void *>(function);
        void *const front = dlsym(RTLD_DEFAULT, name);
        if (void *recorded = recorders ? recorders(name, front, hosts, to) : nullptr)
            return Binding{name, front, recorded};
        return Binding{name, hosts, to};
    };
    Bindings bindings{
        bound("settimeofday", deviceSetTimeOfDay),
        bound("gettimeofday", deviceGetTimeOfDay),
        // Of 32-bit machines with times of 64 bits.
        bound("__settimeofday64", deviceSetTimeOfDay),
        bound("__gettimeofday64", deviceGetTimeOfDay),
    };
    dlclose(libc);
    lookForMixture();
    if (*mixture()) {
        for (const Function &function : describe::platform::functions())
            if (function.library != describe::platform::Library::clock)
                bindings.push_back({function.name, nullptr, refusalOf(function)});
    }
    dl_iterate_phdr(rebind, &bindings);
}

// What begins an object's life is the C runtime's part of it, which calls this function where there
// is one. So the library comes here when it is loaded or loaded again, however long the stand-ins
// have been there: nothing of theirs would run then before it is called. (A host that is profiled
// has such a function of its own.)
extern "C" void __gmon_start__()
{
    Dl_info info;
    link_map *caller = nullptr;
    if (dladdr1(__builtin_return_address(0), &info, reinterpret_cast<void **>(&caller),
                RTLD_DL_LINKMAP) != 0 &&
        isLibrary(dynamicOf(caller->l_addr, caller->l_ld)))
        bindLibrary();
}
