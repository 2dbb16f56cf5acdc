#include "AllocationGuard.h"

#include <cerrno>
#include <cstdlib>
#include <new>

// glibc's own allocator under its internal names, which the replacements below forward to.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

// Plain thread-locals of trivial types: reading them never calls back into the allocator.
thread_local bool armed = false;
thread_local std::size_t allocated = 0, released = 0;

void* obtained(void* p) noexcept {
    if (armed) ++allocated;
    return p;
}

void* counted(std::size_t size) noexcept { return obtained(__libc_malloc(size ? size : 1)); }

void* countedAligned(std::size_t alignment, std::size_t size) noexcept {
    return obtained(__libc_memalign(alignment, size ? size : 1));
}

void give(void* p) noexcept {
    if (p && armed) ++released;
    __libc_free(p);
}

void* orThrow(void* p) {
    if (!p) throw std::bad_alloc();
    return p;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) { return counted(size); }
void* calloc(std::size_t n, std::size_t size) { return obtained(__libc_calloc(n, size)); }
void* realloc(void* p, std::size_t size) {
    if (armed) ++allocated, released += p != nullptr;
    return __libc_realloc(p, size);
}
void free(void* p) { give(p); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return countedAligned(alignment, size); }
void* memalign(std::size_t alignment, std::size_t size) { return countedAligned(alignment, size); }
int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
    void* p = countedAligned(alignment, size);
    if (!p) return ENOMEM;
    *out = p;
    return 0;
}

}  // extern "C"

void* operator new(std::size_t size) { return orThrow(counted(size)); }
void* operator new[](std::size_t size) { return orThrow(counted(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return counted(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return counted(size); }
void* operator new(std::size_t size, std::align_val_t a) { return orThrow(countedAligned(std::size_t(a), size)); }
void* operator new[](std::size_t size, std::align_val_t a) { return orThrow(countedAligned(std::size_t(a), size)); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return countedAligned(std::size_t(a), size);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
    return countedAligned(std::size_t(a), size);
}

void operator delete(void* p) noexcept { give(p); }
void operator delete[](void* p) noexcept { give(p); }
void operator delete(void* p, std::size_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t) noexcept { give(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete(void* p, std::align_val_t) noexcept { give(p); }
void operator delete[](void* p, std::align_val_t) noexcept { give(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { give(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { give(p); }

namespace velmora::test {

AllocationGuard::AllocationGuard() noexcept
    : wasArmed_(armed), allocationsAtStart_(allocated), releasesAtStart_(released) {
    armed = true;
}

AllocationGuard::~AllocationGuard() { armed = wasArmed_; }

std::size_t AllocationGuard::allocations() const noexcept { return allocated - allocationsAtStart_; }
std::size_t AllocationGuard::releases() const noexcept { return released - releasesAtStart_; }

}  // namespace velmora::test
