// Large blocks on huge pages. A 5,000,000-sample record takes some 160 MB of
// sample arrays, all touched for the first time while loading; with 4 KiB
// pages that is some 40,000 page faults, which on a virtual machine cost more
// than parsing the file. Blocks of at least kHugeBlock bytes are placed on
// 2 MiB boundaries and advised for transparent huge pages (where the system
// leaves them to the program's advice), so the same record takes a few
// hundred faults. Everything else goes to malloc as before.
//
// This replaces the global operator new of the programs that link it, so it
// stays out of sanitizer builds (their allocators track new and delete) and
// off systems without madvise.

#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define MERVASTO_HUGE_BLOCKS 1
#endif

#ifdef MERVASTO_HUGE_BLOCKS
#include <sys/mman.h>

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Sample arrays of a long record; below it blocks come and go often (a
// reader's buffer per file), and mapping and unmapping huge pages for each
// would cost more than it saves.
constexpr std::size_t kHugeBlock = std::size_t{8} << 20;

void* allocate(std::size_t size) {
    if (size < kHugeBlock) return std::malloc(size == 0 ? 1 : size);
    const std::size_t rounded = (size + kHugePage - 1) / kHugePage * kHugePage;
    void* p = std::aligned_alloc(kHugePage, rounded);
    // Only advice: without it the block still works, on small pages.
    if (p) (void)madvise(p, rounded, MADV_HUGEPAGE);
    return p;
}

void* allocateOrThrow(std::size_t size) {
    while (true) {
        if (void* p = allocate(size)) return p;
        std::new_handler handler = std::get_new_handler();
        if (!handler) throw std::bad_alloc();
        handler();
    }
}

}  // namespace

// aligned_alloc and malloc blocks both go back through free.
void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

#endif
