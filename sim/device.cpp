#include "device.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
__attribute__((tls_model("initial-exec"))) thread_local char lastFailure[256];

std::mutex openMutex;
State *opened;
bool inFile;
char openFailure[256];

// The file's bytes that are locked: one while a process opens it, one as long as it uses it.
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

void initMutex(State &state)
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
        if (mark.size > used || mark.offset > sizeof(State) ||
            mark.size > sizeof(State) - mark.offset)
            break;
        used -= mark.size;
        memcpy(base + mark.offset, state.undo.bytes + used, mark.size);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        state.undo.used = used;
    }
    state.undo.used = 0;
}

State *openPrivate()
{
    void *memory =
        mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        snprintf(openFailure, sizeof openFailure, "no memory for the simulated device: %s",
                 strerror(errno));
        return nullptr;
    }
    auto *state = static_cast<State *>(memory);
    initMutex(*state);
    deliver(*state);
    return state;
}

bool refuse(const char *path, const char *why)
{
    snprintf(openFailure, sizeof openFailure, "%s is no simulated device of this version: %s", path,
             why);
    return false;
}

// Whether the file is a finished device, or one that nobody finished and that may be made anew.
bool recognise(const char *path, int descriptor, bool &fresh)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return refuse(path, "not a regular file");
    fresh = status.st_size == 0;
    if (fresh)
        return true;
    if (status.st_size != static_cast<off_t>(sizeof(State)))
        return refuse(path, "its size is different");
    struct {
        uint64_t magic;
        uint32_t version;
        uint32_t size;
    } head;
    if (pread(descriptor, &head, sizeof head, 0) != static_cast<ssize_t>(sizeof head))
        return refuse(path, strerror(errno));
    fresh = head.magic == 0 && head.version == 0 && head.size == sizeof(State);
    if (fresh)
        return true;
    if (head.magic != MAGIC)
        return refuse(path, "it begins with something else");
    if (head.version != VERSION || head.size != sizeof(State))
        return refuse(path, "it was made by another one");
    return true;
}

State *mapDevice(const char *path, int descriptor)
{
    bool fresh;
    if (!recognise(path, descriptor, fresh))
        return nullptr;
    if (fresh && ftruncate(descriptor, sizeof(State)) != 0) {
        snprintf(openFailure, sizeof openFailure, "cannot make the device %s: %s", path,
                 strerror(errno));
        return nullptr;
    }
    void *memory = mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        snprintf(openFailure, sizeof openFailure, "cannot map the device %s: %s", path,
                 strerror(errno));
        return nullptr;
    }
    auto *state = static_cast<State *>(memory);
    state->size = sizeof(State);
    // Nobody else uses the file: what processes left there that are gone is cleaned up.
    if (lockByte(descriptor, F_WRLCK, USE, false)) {
        initMutex(*state);
        putBack(*state);
        for (Subscriber &subscriber : state->subscribers)
            subscriber.service = Service::none;
        state->hanging = 0;
        if (fresh || !state->delivered)
            deliver(*state);
        state->version = VERSION;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        state->magic = MAGIC;
    }
    return state;
}

State *openFile(const char *path)
{
    const int descriptor = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        snprintf(openFailure, sizeof openFailure, "cannot open the device %s: %s", path,
                 strerror(errno));
        return nullptr;
    }
    lockByte(descriptor, F_WRLCK, GATE, true);
    State *state = mapDevice(path, descriptor);
    if (state)
        lockByte(descriptor, F_RDLCK, USE, true);
    lockByte(descriptor, F_UNLCK, GATE, true);
    if (!state)
        close(descriptor);
    // Else it stays open: its lock tells other processes that the device is in use.
    return state;
}

void lock(State &state)
{
    if (pthread_mutex_lock(&state.mutex) == EOWNERDEAD) {
        putBack(state);
        if (!state.delivered)
            deliver(state);
        pthread_mutex_consistent(&state.mutex);
    }
}

// A fork copies a private device; its lock is taken meanwhile, so that the copy is whole.
void beforeFork()
{
    openMutex.lock();
    if (opened)
        lock(*opened);
}

void afterForkInParent()
{
    if (opened)
        pthread_mutex_unlock(&opened->mutex);
    openMutex.unlock();
}

void afterForkInChild()
{
    if (opened && !inFile)
        initMutex(*opened);
    openMutex.unlock();
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
    vsnprintf(lastFailure, sizeof lastFailure, format, arguments);
    va_end(arguments);
    return code;
}

const char *failureText()
{
    return lastFailure;
}

bool isPrivate()
{
    return !inFile;
}

Hold::Hold() : state_{device()}
{
    if (state_)
        lock(*state_);
    else
        fail(NO_DEVICE, "%s", openFailure);
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
