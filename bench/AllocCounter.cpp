#include "AllocCounter.h"

#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<U64> allocations{0};
std::atomic<std::int64_t> inUse{0};

// Kept out of line: once operator delete is inlined, g++ sees free() receive a pointer from
// operator new and reports a mismatched pair, although both sides are the replacements below.
[[gnu::noinline]] void release(void* p) noexcept {
   if (p) inUse.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
   std::free(p);
}

void* counted(void* p) noexcept {
   if (p) inUse.fetch_add(static_cast<std::int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
   return p;
}

}  // namespace

void* operator new(std::size_t n) {
   allocations.fetch_add(1, std::memory_order_relaxed);
   if (void* p = std::malloc(n == 0 ? 1 : n)) return counted(p);
   throw std::bad_alloc();
}
void* operator new[](std::size_t n) {
   return operator new(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
   allocations.fetch_add(1, std::memory_order_relaxed);
   return counted(std::malloc(n == 0 ? 1 : n));
}
void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept {
   return operator new(n, t);
}
void operator delete(void* p) noexcept {
   release(p);
}
void operator delete[](void* p) noexcept {
   release(p);
}
void operator delete(void* p, std::size_t) noexcept {
   release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
   release(p);
}

namespace bench {
U64 allocationCount() { return allocations.load(); }
std::int64_t heapInUse() { return inUse.load(); }
}  // namespace bench
