#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace tarnbridge {

// Big, long-lived buffers (the scan arena, a scan file being read) are mapped on their own and
// marked for transparent huge pages: one fault per 2 MiB instead of one per 4 KiB. On some
// virtual machines a small-page fault costs over 10 µs, and a full-disk scan touches
// gigabytes. Sizes are rounded up to 2 MiB; `hugePages` false keeps small pages (for buffers
// that may stay nearly empty). Throws std::bad_alloc. This memory is the scan's own: the process's
// `new` is left alone, since the app, the tests and anyone embedding the core share it.
void* allocateLarge(std::size_t bytes, bool hugePages = true);
void freeLarge(void* block, std::size_t bytes) noexcept;

inline constexpr std::size_t kHugePage = std::size_t(2) << 20;

// An allocator for the big vectors of one job (a scan file being read): blocks of 2 MiB or
// more come from allocateLarge, smaller ones from the ordinary heap. Handed to a container
// explicitly, so that nothing else in the process is affected.
template <class T>
struct LargeAllocator {
    using value_type = T;
    LargeAllocator() = default;
    template <class U>
    LargeAllocator(const LargeAllocator<U>&) noexcept
    {
    }
    T* allocate(std::size_t n)
    {
        const std::size_t bytes = n * sizeof(T);
        if (bytes >= kHugePage)
            return static_cast<T*>(allocateLarge(bytes));
        return std::allocator<T>().allocate(n);
    }
    void deallocate(T* p, std::size_t n) noexcept
    {
        const std::size_t bytes = n * sizeof(T);
        if (bytes >= kHugePage)
            freeLarge(p, bytes);
        else
            std::allocator<T>().deallocate(p, n);
    }
    template <class U>
    bool operator==(const LargeAllocator<U>&) const noexcept
    {
        return true;
    }
};

template <class T>
using LargeVector = std::vector<T, LargeAllocator<T>>;

} // namespace tarnbridge
