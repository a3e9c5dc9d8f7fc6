// The file, its blocks and who has them.
#include "recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trace
{

constinit thread_local Thread thread __attribute__((tls_model("initial-exec"))){};
bool redacting;

namespace
{

std::atomic<uint32_t> never{OFF}, notYet{NOT_YET};

Head *head;
uint8_t *blocks;

// What the environment said when the process began: it may overwrite it.
char path[4096];
char device[4096];
char session[sizeof Head::session];
size_t wantedSize;
bool withSnapshot;
bool startsOff; // as its parent was when it was forked

pthread_mutex_t starting = PTHREAD_MUTEX_INITIALIZER;
pthread_key_t threadKey;
std::atomic<uint32_t> threads;
const char *noOperation; // what is set where there is no simulated device

// Blocks with room in them, by their places from 1: left by threads that have ended.
std::atomic<uint32_t> leftBlocks[32];
constexpr size_t WORTHWHILE = 1024;

// Leaves the caller's errno as it was.
struct KeptErrno {
    const int value = errno;
    ~KeptErrno() { errno = value; }
};

uint64_t timeOfDay()
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

Block *blockAt(uint64_t place)
{
    return reinterpret_cast<Block *>(blocks + place * BLOCK_SIZE);
}

// ---- Which file ----

void copyAbsolute(char *to, const char *from)
{
    char folder[sizeof path] = "";
    if (from[0] != '/' && !getcwd(folder, sizeof folder))
        folder[0] = '\0';
    const bool relative = folder[0] != '\0';
    if (snprintf(to, sizeof path, "%s%s%s", folder, relative ? "/" : "", from) >=
        static_cast<int>(sizeof path))
        to[0] = '\0';
}

void say(const char *file, const char *why)
{
    dprintf(STDERR_FILENO, "libvexo_trace: %s: %s; nothing is recorded\n", file, why);
}

bool tryLock(int descriptor)
{
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

enum class Candidate { taken, ours, refused };

// Whether the file may be written: it is new, or left by another recording. Its lock stays as long
// as it is mapped.
Candidate look(int descriptor, const char *name)
{
    struct stat state;
    if (fstat(descriptor, &state) != 0 || !S_ISREG(state.st_mode)) {
        say(name, "is no file");
        return Candidate::refused;
    }
    if (!tryLock(descriptor))
        return Candidate::taken;
    Head other;
    if (state.st_size == 0)
        return Candidate::ours;
    if (pread(descriptor, &other, sizeof other, 0) != static_cast<ssize_t>(sizeof other) ||
        memcmp(other.magic, MAGIC, sizeof MAGIC) != 0) {
        say(name, "is there and is no recording");
        return Candidate::refused;
    }
    return memcmp(other.session, session, sizeof session) == 0 ? Candidate::taken : Candidate::ours;
}

// FILE or, where another process of this recording has it, FILE.PID; -1: none.
int openFile()
{
    char name[sizeof path + 32];
    for (unsigned i = 0; i < 1000; ++i) {
        if (i == 0)
            snprintf(name, sizeof name, "%s", path);
        else if (i == 1)
            snprintf(name, sizeof name, "%s.%d", path, getpid());
        else
            snprintf(name, sizeof name, "%s.%d.%u", path, getpid(), i);
        const int descriptor = open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (descriptor < 0) {
            say(name, strerror(errno));
            return -1;
        }
        const Candidate candidate = look(descriptor, name);
        if (candidate == Candidate::ours)
            return descriptor;
        close(descriptor);
        if (candidate == Candidate::refused)
            return -1;
    }
    return -1;
}

// ---- Making it ----

size_t sizeOfDevice(int &descriptor)
{
    descriptor = withSnapshot && device[0] ? open(device, O_RDONLY | O_CLOEXEC) : -1;
    struct stat state;
    return descriptor >= 0 && fstat(descriptor, &state) == 0 ? static_cast<size_t>(state.st_size)
                                                             : 0;
}

// Beyond its limit the process would get a signal.
rlim_t mostBytes()
{
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

// Room on the disk, so that a write into the mapped file never finds none: as much as there is.
size_t reserve(int descriptor, size_t size, size_t extra)
{
    if (const rlim_t most = mostBytes(); most < size + extra)
        size = most > extra ? static_cast<size_t>(most - extra) / PAGE * PAGE : 0;
    for (; size >= LEAST_SIZE; size = size / 2 / PAGE * PAGE) {
        if (ftruncate(descriptor, 0) == 0 &&
            posix_fallocate(descriptor, 0, static_cast<off_t>(size + extra)) == 0)
            return size + extra;
    }
    return 0;
}

void fillHead(Head &to, uint64_t size)
{
    to.byteOrder = BYTE_ORDER_MARK;
    to.version = VERSION;
    to.size = size;
    to.wantedSize = wantedSize;
    to.blockSize = BLOCK_SIZE;
    to.startTime = timeOfDay();
    to.startClock = now();
    to.process = static_cast<uint32_t>(getpid());
    memcpy(to.session, session, sizeof session);
    to.on = startsOff ? OFF : ON;
    if (redacting)
        to.flags = REDACTED;
}

// A file that says that there was no room for more.
void writeHeadAlone(int descriptor)
{
    alignas(Head) char page[PAGE]{};
    Head &alone = *new (page) Head{};
    fillHead(alone, PAGE);
    alone.on = OFF;
    alone.flags |= DISK_FULL;
    memcpy(alone.magic, MAGIC, sizeof MAGIC);
    if (mostBytes() < sizeof page || ftruncate(descriptor, 0) != 0 ||
        pwrite(descriptor, page, sizeof page, 0) != static_cast<ssize_t>(sizeof page))
        return;
}

bool makeFile(int descriptor)
{
    fchmod(descriptor, 0600);
    int snapshot;
    const size_t snapshotSize = sizeOfDevice(snapshot);
    const size_t extra = roundUp(snapshotSize, PAGE);
    const size_t size = reserve(descriptor, wantedSize, extra);
    void *memory = size == 0
                       ? MAP_FAILED
                       : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        writeHeadAlone(descriptor);
        if (snapshot >= 0)
            close(snapshot);
        return false;
    }
    head = static_cast<Head *>(memory);
    fillHead(*head, size);
    if (size < wantedSize + extra)
        head->flags |= DISK_FULL;
    auto *begin = static_cast<char *>(memory);
    char *at = begin + PAGE;
    head->descriptionOffset = PAGE;
    char *described = writeDescription(at, begin + size);
    const size_t descriptionSize = described ? static_cast<size_t>(described - at) : 0;
    head->descriptionSize = descriptionSize;
    size_t offset = roundUp(PAGE + descriptionSize, PAGE);
    if (snapshotSize > 0 &&
        read(snapshot, begin + offset, snapshotSize) == static_cast<ssize_t>(snapshotSize)) {
        head->snapshotOffset = offset;
        head->snapshotSize = snapshotSize;
        offset += extra;
    } else if (withSnapshot) {
        head->flags |= NO_SNAPSHOT;
    }
    if (snapshot >= 0)
        close(snapshot);
    head->blocksOffset = offset;
    head->blockCount = static_cast<uint32_t>((size - offset) / BLOCK_SIZE);
    blocks = reinterpret_cast<uint8_t *>(begin + offset);
    std::atomic_thread_fence(std::memory_order_release);
    memcpy(head->magic, MAGIC, sizeof MAGIC);
    return true;
}

// ---- Threads ----

void leaveBlock(void *)
{
    Thread &self = thread;
    if (!self.block)
        return;
    Block *const block = self.block;
    self.block = nullptr;
    const bool hasRoom = static_cast<size_t>(self.end - self.at) >= WORTHWHILE;
    self.at = self.end = nullptr;
    block->state.store(hasRoom ? LEFT : FREE, std::memory_order_release);
    if (!hasRoom)
        return;
    const auto place =
        static_cast<uint32_t>((reinterpret_cast<uint8_t *>(block) - blocks) / BLOCK_SIZE);
    for (auto &left : leftBlocks) {
        uint32_t none = 0;
        if (left.load(std::memory_order_relaxed) == 0 &&
            left.compare_exchange_strong(none, place + 1))
            return;
    }
}

void occupy(Thread &self, Block *block, uint64_t used)
{
    auto *bytes = reinterpret_cast<uint8_t *>(block);
    self.block = block;
    self.filled = used;
    self.at = bytes + sizeof(Block) + static_cast<uint32_t>(used);
    self.end = bytes + BLOCK_SIZE;
}

bool occupyLeft(Thread &self)
{
    for (auto &left : leftBlocks) {
        const uint32_t place = left.exchange(0);
        uint32_t state = LEFT;
        if (place && blockAt(place - 1)->state.compare_exchange_strong(state, OCCUPIED)) {
            occupy(self, blockAt(place - 1), blockAt(place - 1)->filled);
            return true;
        }
    }
    return false;
}

// Pages of blocks that are written for the first time: several at once cost less than one by one.
void makeReady(uint64_t number)
{
#ifdef MADV_POPULATE_WRITE
    constexpr uint64_t AT_ONCE = 8;
    if (number > head->blockCount || (number - 1) % AT_ONCE != 0)
        return;
    const uint64_t left = head->blockCount - (number - 1);
    madvise(blockAt(number - 1), static_cast<size_t>(left < AT_ONCE ? left : AT_ONCE) * BLOCK_SIZE,
            MADV_POPULATE_WRITE);
#endif
}

// The one that was taken longest ago of those that no thread has.
bool occupyNext(Thread &self)
{
    for (uint32_t i = 0; i < head->blockCount; ++i) {
        const uint64_t number = ++head->taken;
        Block *const block = blockAt((number - 1) % head->blockCount);
        makeReady(number);
        uint32_t state = block->state;
        if (state == OCCUPIED || !block->state.compare_exchange_strong(state, OCCUPIED))
            continue;
        head->droppedEvents += block->filled >> 32;
        // Whoever reads it now sees that it changes.
        block->number = 0;
        block->filled = 0;
        block->number = number;
        occupy(self, block, 0);
        return true;
    }
    return false;
}

void sayThread(Thread &self)
{
    ThreadEvent event{static_cast<uint32_t>(gettid()), self.number, ""};
    pthread_getname_np(pthread_self(), event.name, sizeof event.name);
    memcpy(self.at + sizeof(Event), &event, sizeof event);
    endEvent(self, EventKind::thread, 0, 0, now(), self.at + sizeof(Event) + sizeof event);
}

const char **placeOfOperation()
{
    const KeptErrno kept;
    static const char **(*const place)() =
        reinterpret_cast<const char **(*)()>(findSimulators("kv_sim_operation"));
    return place ? place() : &noOperation;
}

} // namespace

std::atomic<std::atomic<uint32_t> *> recording{&notYet};

uint8_t *takeBlock(Thread &self, size_t room)
{
    const KeptErrno kept;
    Block *const full = self.block;
    if (!self.number) {
        self.number = ++threads;
        self.operation = placeOfOperation();
    }
    if (full)
        full->state.store(FREE, std::memory_order_release);
    else
        pthread_setspecific(threadKey, &self);
    self.block = nullptr;
    self.at = self.end = nullptr;
    if ((full || !occupyLeft(self)) && !occupyNext(self))
        return nullptr;
    if (static_cast<size_t>(self.end - self.at) < room + sizeof(Event) + sizeof(ThreadEvent)) {
        leaveBlock(nullptr);
        if (!occupyNext(self))
            return nullptr;
    }
    sayThread(self);
    return self.at;
}

void countLost()
{
    if (head)
        ++head->lostCalls;
}

void setFlag(Flag flag)
{
    if (head)
        head->flags |= flag;
}

bool start()
{
    const uint32_t state = isRecording();
    if (state != NOT_YET)
        return state == ON;
    if (thread.busy) // in a signal handler
        return false;
    const KeptErrno kept;
    thread.busy = true;
    pthread_mutex_lock(&starting);
    if (isRecording() == NOT_YET) {
        const int descriptor = path[0] ? openFile() : -1;
        const bool made = descriptor >= 0 && makeFile(descriptor);
        if (descriptor >= 0)
            close(descriptor);
        recording = made ? &head->on : &never;
    }
    pthread_mutex_unlock(&starting);
    thread.busy = false;
    return isRecording() == ON;
}

// ---- The process ----

namespace
{

void beforeFork()
{
    pthread_mutex_lock(&starting);
}

void afterFork()
{
    pthread_mutex_unlock(&starting);
}

// The child's calls go into a file of its own.
void inChild()
{
    pthread_mutex_init(&starting, nullptr);
    thread.block = nullptr;
    thread.at = thread.end = nullptr;
    if (!head)
        return;
    startsOff = head->on == OFF;
    munmap(head, static_cast<size_t>(head->size));
    head = nullptr;
    for (auto &left : leftBlocks)
        left = 0;
    threads = thread.number = 0;
    recording = &notYet;
}

[[gnu::constructor]] void load()
{
    describeFunctions();
    const char *file = getenv(FILE_VARIABLE);
    if (!file || !*file) {
        recording = &never;
        return;
    }
    copyAbsolute(path, file);
    if (const char *named = getenv(DEVICE_VARIABLE); named && *named)
        copyAbsolute(device, named);
    withSnapshot = getenv(SNAPSHOT_VARIABLE) != nullptr;
    redacting = getenv(REDACT_VARIABLE) != nullptr;
    const char *size = getenv(SIZE_VARIABLE);
    const uint64_t wanted = size ? strtoull(size, nullptr, 10) : DEFAULT_SIZE;
    wantedSize =
        static_cast<size_t>(std::clamp<uint64_t>(wanted, LEAST_SIZE, MOST_SIZE)) / PAGE * PAGE;
    if (const char *running = getenv(SESSION_VARIABLE))
        snprintf(session, sizeof session, "%s", running);
    else
        snprintf(session, sizeof session, "%d-%llx", getpid(),
                 static_cast<unsigned long long>(timeOfDay()));
    setenv(SESSION_VARIABLE, session, 1);
    if (pthread_key_create(&threadKey, leaveBlock) != 0 ||
        pthread_atfork(beforeFork, afterFork, inChild) != 0)
        recording = &never;
}

[[gnu::destructor]] void unload()
{
    setFlag(ENDED);
}

} // namespace

} // namespace trace
