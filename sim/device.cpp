#include "device.h"

#include "clock.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim
{

namespace
{

// Initial-exec: the notification threads must not need the loader's lock for it.
__attribute__((tls_model("initial-exec"))) thread_local struct {
    kvRc code;
    char text[256];
} lastFailure;

std::mutex openMutex;
State *opened;
bool inFile;

// The file's bytes that are locked: one while a process opens it, one as long as it uses it. Locks
// of the opening, not of the process: they end with the last mapping that came of it.
constexpr off_t GATE = 0;
constexpr off_t USE = 1;

bool lockByte(int descriptor, short type, off_t byte, bool wait)
{
    struct flock lock {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    int done;
    while ((done = fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock)) != 0 &&
           errno == EINTR) {
    }
    return done == 0;
}

void initSharedMutex(State &state)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&state.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

// An undo entry is its bytes, then where they belong; read from the end.
struct Mark {
    uint32_t offset;
    uint32_t size;
};

void putBack(State &state)
{
    auto *base = reinterpret_cast<uint8_t *>(&state);
    uint32_t used = state.undo.used <= UNDO_SIZE ? state.undo.used : 0;
    while (used >= sizeof(Mark)) {
        Mark mark;
        used -= static_cast<uint32_t>(sizeof mark);
        memcpy(&mark, state.undo.bytes + used, sizeof mark);
        if (mark.size > used || mark.offset < offsetof(State, faultGeneration) ||
            mark.offset > sizeof(State) || mark.size > sizeof(State) - mark.offset)
            break; // nothing that this device wrote
        used -= mark.size;
        memcpy(base + mark.offset, state.undo.bytes + used, mark.size);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        state.undo.used = used;
    }
    state.undo.used = 0;
}

// The listeners and the hanging calls.
void forgetProcesses(State &state)
{
    for (Subscriber &subscriber : state.subscribers)
        subscriber.service = Service::none;
    state.hanging = 0;
}

State *map(int flags, int descriptor)
{
    void *memory = mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, flags, descriptor, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<State *>(memory);
}

State *openPrivate()
{
    State *state = map(MAP_PRIVATE | MAP_ANONYMOUS, -1);
    if (!state) {
        fail(NO_DEVICE, "no memory for the simulated device: %s", strerror(errno));
        return nullptr;
    }
    pthread_mutex_init(&state->mutex, nullptr);
    deliver(*state);
    return state;
}

constexpr Head HEAD{MAGIC, VERSION, sizeof(State)};

// Why the file can't be a device, or null. `blank` tells whether it is yet to become one: nobody
// has written more to it than, at most, the head.
const char *objection(int descriptor, bool inUse, bool &blank)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "it is not a regular file";
    Head head = HEAD;
    if (status.st_size > 0 && pread(descriptor, &head, sizeof head, 0) != sizeof head)
        return "it is too short";
    if (head.magic != MAGIC)
        return "it begins with something else";
    if (head.version != VERSION || head.size != sizeof(State))
        return "it was made by another version or build";
    blank = status.st_size == 0 || status.st_size == sizeof head;
    if (blank)
        return inUse ? "others use it, and it has been emptied" : nullptr;
    return status.st_size == sizeof(State) ? nullptr : "it has been cut off or grown";
}

State *mapDevice(const char *path, int descriptor)
{
    const bool inUse = !lockByte(descriptor, F_WRLCK, USE, false);
    bool blank = false;
    if (const char *why = objection(descriptor, inUse, blank)) {
        fail(NO_DEVICE, "%s is no device of this simulator: %s", path, why);
        return nullptr;
    }
    if (blank && (pwrite(descriptor, &HEAD, sizeof HEAD, 0) != sizeof HEAD ||
                  ftruncate(descriptor, sizeof(State)) != 0)) {
        fail(NO_DEVICE, "cannot make the device %s: %s", path, strerror(errno));
        return nullptr;
    }
    State *state = map(MAP_SHARED, descriptor);
    if (!state) {
        fail(NO_DEVICE, "cannot map the device %s: %s", path, strerror(errno));
        return nullptr;
    }
    // What processes left there that are gone is cleaned up.
    if (!inUse) {
        initSharedMutex(*state);
        putBack(*state);
        forgetProcesses(*state);
        if (blank)
            deliver(*state);
        else if (!state->delivered)
            redeliver(*state);
        else
            resumeClock(*state);
    }
    lockByte(descriptor, F_RDLCK, USE, true);
    return state;
}

State *openFile(const char *path)
{
    const int descriptor = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    if (descriptor < 0) {
        fail(NO_DEVICE, "cannot open the device %s: %s", path, strerror(errno));
        return nullptr;
    }
    State *state = nullptr;
    if (lockByte(descriptor, F_WRLCK, GATE, true)) {
        state = mapDevice(path, descriptor);
        lockByte(descriptor, F_UNLCK, GATE, true);
    } else {
        fail(NO_DEVICE, "cannot lock the device %s: %s", path, strerror(errno));
    }
    close(descriptor);
    return state;
}

// A process that is killed as it is woken to take the lock takes the waking with it, and those who
// wait besides would sleep for ever: they look again by themselves.
int waitForMutex(State &state)
{
    constexpr long LOOK_AGAIN_NS = 100000000;
    int outcome = pthread_mutex_trylock(&state.mutex);
    while (outcome == EBUSY || outcome == ETIMEDOUT) {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += LOOK_AGAIN_NS;
        if (until.tv_nsec >= 1000000000) {
            until.tv_nsec -= 1000000000;
            ++until.tv_sec;
        }
        outcome = pthread_mutex_timedlock(&state.mutex, &until);
    }
    return outcome;
}

void lock(State &state)
{
    if (waitForMutex(state) == EOWNERDEAD) {
        putBack(state);
        if (!state.delivered)
            redeliver(state);
        pthread_mutex_consistent(&state.mutex);
    }
}

// A fork copies a private device; its lock is taken meanwhile, so that the copy is whole.
void beforeFork()
{
    openMutex.lock();
    if (opened && !inFile)
        lock(*opened);
}

void afterForkInParent()
{
    if (opened && !inFile)
        pthread_mutex_unlock(&opened->mutex);
    openMutex.unlock();
}

void afterForkInChild()
{
    if (opened && !inFile)
        forgetProcesses(*opened);
    afterForkInParent();
}

State *device()
{
    const std::lock_guard guard{openMutex};
    if (!opened) {
        static const int forkWatched =
            pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
        static_cast<void>(forkWatched);
        const char *path = getenv("KV_SIM_DEVICE");
        inFile = path && *path;
        opened = inFile ? openFile(path) : openPrivate();
    }
    return opened;
}

} // namespace

kvRc fail(kvRc code, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(lastFailure.text, sizeof lastFailure.text, format, arguments);
    va_end(arguments);
    lastFailure.code = code;
    return code;
}

kvRc failureCode()
{
    return lastFailure.code;
}

const char *failureText()
{
    return lastFailure.text;
}

Hold::Hold() : state_{device()}
{
    if (state_)
        lock(*state_);
}

Hold::~Hold()
{
    if (!state_)
        return;
    revert();
    pthread_mutex_unlock(&state_->mutex);
}

void Hold::save(void *field, uint32_t size)
{
    Undo &undo = state_->undo;
    const Mark mark{
        static_cast<uint32_t>(static_cast<uint8_t *>(field) - reinterpret_cast<uint8_t *>(state_)),
        size};
    if (undo.used + size + sizeof mark > UNDO_SIZE)
        abort(); // a change larger than any that this device knows
    memcpy(undo.bytes + undo.used, field, size);
    memcpy(undo.bytes + undo.used + size, &mark, sizeof mark);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    undo.used += size + static_cast<uint32_t>(sizeof mark);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void Hold::keep()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state_->undo.used = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void Hold::revert()
{
    if (state_->undo.used)
        putBack(*state_);
}

void Hold::release()
{
    pthread_mutex_unlock(&state_->mutex);
}

void Hold::regain()
{
    lock(*state_);
}

} // namespace sim
