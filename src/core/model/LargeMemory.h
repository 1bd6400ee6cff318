#pragma once

#include <cstddef>

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

} // namespace tarnbridge
