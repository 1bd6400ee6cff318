#include "platform/LargeMemory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace tarnbridge::platform {

namespace {
std::size_t rounded(std::size_t bytes) { return (bytes + kHugePage - 1) & ~(kHugePage - 1); }
} // namespace

void* allocateLarge(std::size_t bytes, bool hugePages)
{
    const std::size_t size = rounded(bytes);
    // Map one huge page more than needed and cut the ends so the block is 2 MiB aligned.
    void* mapped = ::mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    auto* start = static_cast<char*>(mapped);
    auto* aligned = reinterpret_cast<char*>(
        (reinterpret_cast<std::uintptr_t>(start) + kHugePage - 1) & ~std::uintptr_t(kHugePage - 1));
    if (aligned > start)
        ::munmap(start, std::size_t(aligned - start));
    char* end = start + size + kHugePage;
    if (end > aligned + size)
        ::munmap(aligned + size, std::size_t(end - (aligned + size)));
    if (hugePages)
        ::madvise(aligned, size, MADV_HUGEPAGE);
    return aligned;
}

void freeLarge(void* block, std::size_t bytes) noexcept
{
    if (block)
        ::munmap(block, rounded(bytes));
}

} // namespace tarnbridge::platform

// Every big `new` of the process (a vector of millions of records, a JSON parser's index) goes
// through huge pages too. The blocks are 2 MiB aligned, which no malloc pointer is on its own
// (glibc puts a header in front of its mapped chunks); a small table tells them apart for
// certain. Sanitizer builds keep the sanitizer's own allocator.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

#include <cstdlib>
#include <mutex>

namespace {

constexpr std::size_t kLargeNew = tarnbridge::platform::kHugePage;
constexpr std::size_t kTableSize = 1024;

struct LargeBlocks {
    std::mutex mutex;
    void* blocks[kTableSize] = {};
    std::size_t sizes[kTableSize] = {};

    bool add(void* block, std::size_t size)
    {
        std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < kTableSize; ++i) {
            if (!blocks[i]) {
                blocks[i] = block;
                sizes[i] = size;
                return true;
            }
        }
        return false;
    }
    // The size of a block we mapped, or 0.
    std::size_t remove(void* block)
    {
        std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < kTableSize; ++i) {
            if (blocks[i] == block) {
                blocks[i] = nullptr;
                return sizes[i];
            }
        }
        return 0;
    }
};

LargeBlocks& largeBlocks()
{
    static LargeBlocks* table = new (std::malloc(sizeof(LargeBlocks))) LargeBlocks;
    return *table;
}

void* allocate(std::size_t size)
{
    if (size >= kLargeNew) {
        try {
            void* block = tarnbridge::platform::allocateLarge(size);
            if (largeBlocks().add(block, size))
                return block;
            tarnbridge::platform::freeLarge(block, size);
        } catch (const std::bad_alloc&) {
        }
    }
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void release(void* p) noexcept
{
    if (!p)
        return;
    if ((reinterpret_cast<std::uintptr_t>(p) & (kLargeNew - 1)) == 0) {
        if (const std::size_t size = largeBlocks().remove(p)) {
            tarnbridge::platform::freeLarge(p, size);
            return;
        }
    }
    std::free(p);
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }

#endif
