// Memory that ends, or begins, where nothing can be read or written. What is left of its page is a
// red zone.
#ifndef HOSTILE_GUARDED_H
#define HOSTILE_GUARDED_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

namespace hostile
{

class Guarded
{
  public:
    Guarded() : page_{static_cast<size_t>(sysconf(_SC_PAGESIZE))}
    {
        void *memory =
            mmap(nullptr, 3 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED)
            abort();
        begin_ = static_cast<uint8_t *>(memory) + page_;
        if (mprotect(begin_, page_, PROT_READ | PROT_WRITE) != 0)
            abort();
    }
    ~Guarded() { munmap(begin_ - page_, 3 * page_); }
    Guarded(const Guarded &) = delete;

    uint8_t *begin() const { return begin_; }
    uint8_t *end() const { return begin_ + page_; }

    // Room for an object, with a red zone on one side and nothing on the other.
    uint8_t *place(size_t size, bool atEnd)
    {
        std::fill(begin(), end(), RED);
        first_ = atEnd ? end() - size : begin();
        last_ = first_ + size;
        return first_;
    }

    bool isRedZoneWhole() const
    {
        const auto isRed = [](uint8_t byte) { return byte == RED; };
        return std::all_of(begin(), first_, isRed) && std::all_of(last_, end(), isRed);
    }

  private:
    static constexpr uint8_t RED = 0xA5;

    const size_t page_;
    uint8_t *begin_;
    uint8_t *first_ = nullptr;
    uint8_t *last_ = nullptr;
};

} // namespace hostile

#endif
