#include "model/LargeMemory.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace tarnbridge {

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

} // namespace tarnbridge
