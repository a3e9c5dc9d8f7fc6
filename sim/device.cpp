#include "device.h"

#include "clock.h"
#include "entry.h"
#include "rebind.h"
#include "restart.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
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
uint32_t callsKept; // by the opened device's journal, whatever the file says later
bool inFile;
bool heldForFork;

// The file's bytes that are locked: one while a process opens it, one as long as it uses it. Locks
// of the opening, not of the process: they end with the last mapping that came of it.
constexpr off_t GATE = 0;
constexpr off_t USE = 1;

bool tryLock(int descriptor, short type, off_t byte)
{
    struct flock lock {
    };
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

// Who may only read the file can lock it as well, so this is not waited for without end.
bool lockByte(int descriptor, short type, off_t byte)
{
    for (int left = PATIENCE_SECONDS * 1000; !tryLock(descriptor, type, byte); --left) {
        if (left == 0 || (errno != EAGAIN && errno != EACCES))
            return false;
        sleepMs(1);
    }
    return true;
}

size_t deviceSize()
{
    return sizeof(State) + journalSize(callsKept);
}

void putBack(State &state, uint32_t used)
{
    auto *base = reinterpret_cast<uint8_t *>(&state);
    if (used > UNDO_SIZE)
        used = 0;
    while (used >= sizeof(Mark)) {
        Mark mark;
        used -= static_cast<uint32_t>(sizeof mark);
        memcpy(&mark, state.undo.bytes + used, sizeof mark);
        if (mark.size > used || mark.offset < offsetof(State, faultGeneration) ||
            mark.offset > deviceSize() || mark.size > deviceSize() - mark.offset)
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
    for (Notifications &service : state.services)
        for (Subscriber &subscriber : service.subscribers)
            subscriber.used = 0;
    state.hanging = 0;
    for (ArmedFault &armed : state.faults)
        if (armed.fault.effect == KV_SIM_HANG)
            armed.fault.waiting = 0;
}

State *map(int flags, int descriptor)
{
    void *memory = mmap(nullptr, deviceSize(), PROT_READ | PROT_WRITE, flags, descriptor, 0);
    return memory == MAP_FAILED ? nullptr : static_cast<State *>(memory);
}

// KV_SIM_JOURNAL: how many calls the journal of a device that is being made holds.
bool readCalls()
{
    const char *given = getenv("KV_SIM_JOURNAL");
    callsKept = JOURNAL_CALLS;
    if (!given || !*given)
        return true;
    const char *end = given + strlen(given);
    const auto [stopped, error] = std::from_chars(given, end, callsKept);
    if (error == std::errc{} && stopped == end && callsKept > 0 && callsKept <= JOURNAL_LARGEST)
        return true;
    fail(NO_DEVICE, "KV_SIM_JOURNAL is '%.20s', not a number of calls from 1 to %u", given,
         JOURNAL_LARGEST);
    return false;
}

State *openPrivate()
{
    if (!readCalls())
        return nullptr;
    State *state = map(MAP_PRIVATE | MAP_ANONYMOUS, -1);
    if (!state) {
        fail(NO_DEVICE, "no memory for the simulated device: %s", strerror(errno));
        return nullptr;
    }
    initialise(*state);
    return state;
}

// The reason comes first, and the end of the path tells more than its beginning: the message of a
// result holds 127 characters.
__attribute__((format(printf, 2, 3))) bool refuse(const char *path, const char *format, ...)
{
    constexpr size_t MESSAGE = 127;
    char reason[MESSAGE - 20];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(reason, sizeof reason, format, arguments);
    va_end(arguments);
    const size_t room = MESSAGE - strlen(reason) - strlen(": ");
    const size_t length = strlen(path);
    const char *shown = path;
    if (length > room)
        shown += length - room + strlen("...");
    while ((*shown & 0xC0) == 0x80) // in the middle of a character
        ++shown;
    fail(NO_DEVICE, "%s: %s%s", reason, shown == path ? "" : "...", shown);
    return false;
}

constexpr Head UNFINISHED{MAGIC, VERSION, 0};
constexpr Head HEAD{MAGIC, VERSION, sizeof(State)};

bool writeHead(int descriptor, const Head &head)
{
    return pwrite(descriptor, &head, sizeof head, 0) == sizeof head;
}

// Whether the file can be a device; refuse()s when it can't. `blank` tells whether it has yet to
// become one.
bool isDevice(const char *path, int descriptor, bool inUse, bool &blank)
{
    struct stat status;
    Head head = UNFINISHED;
    if (fstat(descriptor, &status) != 0)
        return refuse(path, "%s", strerror(errno));
    if (!S_ISREG(status.st_mode))
        return refuse(path, "not a regular file, so no device of this simulator");
    if (status.st_size > 0 && pread(descriptor, &head, sizeof head, 0) != sizeof head)
        return refuse(path, "too short for a device of this simulator");
    if (head.magic != MAGIC)
        return refuse(path, "no device of this simulator, it begins with something else");
    if (head.version != VERSION)
        return refuse(
            path, "made by version %u, this is %u: remove it to begin anew, or keep to that one",
            head.version, VERSION);
    blank = head.size == 0;
    if (blank && inUse)
        return refuse(path, "others use it, and it has been emptied");
    if (blank)
        return true;
    if (head.size != sizeof(State))
        return refuse(path, "made by another build: remove it to begin anew, or keep to that one");
    const bool known =
        pread(descriptor, &callsKept, sizeof callsKept, offsetof(State, calls)) == sizeof callsKept;
    if (!known || callsKept == 0 || callsKept > JOURNAL_LARGEST ||
        status.st_size != static_cast<off_t>(deviceSize()))
        return refuse(path, "cut off or grown: remove it to begin anew");
    return true;
}

// A page of the mapping for which there is no space would end the process. A limit to the size of
// files would, too.
int reserve(int descriptor)
{
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < deviceSize())
        return EFBIG;
    int error;
    while ((error = posix_fallocate(descriptor, 0, static_cast<off_t>(deviceSize()))) == EINTR) {
    }
    return error;
}

// Leaves nothing behind of a device that couldn't be made.
void takeBack(const char *path, int descriptor, bool missing)
{
    char *file = missing ? realpath(path, nullptr) : nullptr;
    if (!file || unlink(file) != 0)
        static_cast<void>(!ftruncate(descriptor, 0));
    free(file);
}

State *mapDevice(const char *path, int descriptor, bool missing)
{
    const bool inUse = !tryLock(descriptor, F_WRLCK, USE);
    bool blank = false;
    if (!isDevice(path, descriptor, inUse, blank))
        return nullptr;
    if (blank && !readCalls()) {
        takeBack(path, descriptor, missing);
        return nullptr;
    }
    const bool begun =
        !blank || (ftruncate(descriptor, 0) == 0 && writeHead(descriptor, UNFINISHED));
    const int error = !begun ? errno : inUse ? 0 : reserve(descriptor);
    State *state = error ? nullptr : map(MAP_SHARED, descriptor);
    if (!state) {
        const char *why = strerror(error ? error : errno);
        if (blank)
            takeBack(path, descriptor, missing);
        refuse(path, "cannot %s the device: %s", blank ? "make" : "use", why);
        return nullptr;
    }
    // What processes left there that are gone is cleaned up.
    if (!inUse) {
        state->lock = {};
        putBack(*state, state->undo.used);
        forgetProcesses(*state);
        if (blank)
            initialise(*state);
        else if (!state->initialised)
            factoryReset(*state);
        else
            resumeClock(*state);
        state->head = HEAD;
    }
    lockByte(descriptor, F_RDLCK, USE);
    return state;
}

State *openFile(const char *path)
{
    for (;;) {
        const bool missing = access(path, F_OK) != 0 && errno == ENOENT;
        const int descriptor = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
        if (descriptor < 0) {
            refuse(path, "cannot open the device: %s", strerror(errno));
            return nullptr;
        }
        State *state = nullptr;
        struct stat status {
        };
        bool removed = false;
        if (lockByte(descriptor, F_WRLCK, GATE)) {
            // While this waited, by one who could not make it.
            removed = fstat(descriptor, &status) == 0 && status.st_nlink == 0;
            if (!removed)
                state = mapDevice(path, descriptor, missing);
            tryLock(descriptor, F_UNLCK, GATE);
        } else if (errno == EAGAIN || errno == EACCES) {
            refuse(path, "another process has kept the device's file locked for %d seconds",
                   PATIENCE_SECONDS);
        } else {
            refuse(path, "cannot lock the device: %s", strerror(errno));
        }
        close(descriptor);
        if (!removed)
            return state;
    }
}

bool lock(State &state)
{
    if (!acquire(state.lock))
        return false;
    // Whoever held it before has died in the middle of a change.
    if (state.undo.used)
        putBack(state, state.undo.used);
    if (!state.initialised)
        factoryReset(state);
    else if (state.restart.underWay)
        completeRestart(state);
    return true;
}

// A fork copies a private device; its lock is taken meanwhile, so that the copy is whole.
void beforeFork()
{
    openMutex.lock();
    heldForFork = opened && !inFile && lock(*opened);
}

void afterForkInParent()
{
    if (heldForFork)
        release(opened->lock);
    openMutex.unlock();
}

void afterForkInChild()
{
    forgetThread();
    if (heldForFork)
        forgetProcesses(*opened);
    afterForkInParent();
}

State *device()
{
    if (*mixture()) {
        fail(NO_DEVICE, "%s", mixture());
        return nullptr;
    }
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

bool letGo()
{
    const std::lock_guard guard{openMutex};
    const auto isMine = [](const Subscriber &subscriber) {
        return subscriber.used && subscriber.process == thisProcess();
    };
    for (const Notifications &all :
         opened ? std::span{opened->services} : std::span<Notifications>{})
        if (std::ranges::any_of(all.subscribers, isMine)) {
            fail(WRONG_STATE, "the process listens to the device, so it can't let it go");
            return false;
        }
    if (opened)
        munmap(opened, deviceSize());
    opened = nullptr;
    return true;
}

uint32_t holder()
{
    State *const state = device();
    return state ? holder(state->lock) : 0;
}

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

uint32_t journalCalls()
{
    return callsKept;
}

Transaction::Transaction() : state_{device()}
{
    if (state_)
        regain();
}

Transaction::~Transaction()
{
    if (state_)
        release();
}

void Transaction::save(void *field, uint32_t size)
{
    Undo &undo = state_->undo;
    const Mark mark{
        static_cast<uint32_t>(static_cast<uint8_t *>(field) - reinterpret_cast<uint8_t *>(state_)),
        size};
    if (size + sizeof mark > UNDO_SIZE - used_)
        abort(); // a change larger than any that this device knows
    memcpy(undo.bytes + used_, field, size);
    memcpy(undo.bytes + used_ + size, &mark, sizeof mark);
    used_ += size + static_cast<uint32_t>(sizeof mark);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    undo.used = used_;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void Transaction::commit()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state_->undo.used = used_ = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

void Transaction::rollback()
{
    if (used_)
        putBack(*state_, used_);
    used_ = 0;
}

void Transaction::release()
{
    rollback();
    sim::release(state_->lock);
}

void Transaction::regain()
{
    if (!lock(*state_))
        state_ = nullptr;
}

} // namespace sim
