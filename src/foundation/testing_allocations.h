#pragma once
// Counts the allocations that code makes on the calling thread, for tests that
// show an audio path allocates nothing. This header replaces the global operator
// new and delete, so it goes plainly into exactly one test file of a test program (see below).
//
//   LAllocationWatch watch;
//   source->Read(buffer, frames);
//   EXPECT_EQ(watch.Count(), 0);
//
// A thread the test does not run on (a device's callback thread) is watched by
// its kernel thread id instead: set LTestAllocations::gWatchedTid, read
// gWatchedCount.
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace LTestAllocations {
// Per thread, so that work another thread happens to do does not count.
inline thread_local bool tWatching = false;
inline thread_local long tCount = 0;
inline std::atomic<pid_t> gWatchedTid{-1};
inline std::atomic<long> gWatchedCount{0};
inline thread_local pid_t tTid = 0;

inline void CountOtherThread() {
  pid_t const watched = gWatchedTid.load(std::memory_order_relaxed);
  if (watched <= 0) return;
  if (tTid == 0) tTid = static_cast<pid_t>(::syscall(SYS_gettid));
  if (tTid == watched) gWatchedCount.fetch_add(1, std::memory_order_relaxed);
}

inline void* Allocate(std::size_t size, std::size_t align) {
  if (tWatching) ++tCount;
  CountOtherThread();
  if (size == 0) size = 1;
  void* p = align > alignof(std::max_align_t) ? std::aligned_alloc(align, (size + align - 1) / align * align)
                                              : std::malloc(size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
}  // namespace LTestAllocations

// Watches the calling thread from construction to destruction.
class LAllocationWatch {
 public:
  LAllocationWatch() {
    LTestAllocations::tCount = 0;
    LTestAllocations::tWatching = true;
  }
  ~LAllocationWatch() { LTestAllocations::tWatching = false; }
  LAllocationWatch(LAllocationWatch const&) = delete;
  LAllocationWatch& operator=(LAllocationWatch const&) = delete;

  long Count() const { return LTestAllocations::tCount; }
};

// One test file of a test program includes this plainly and so replaces the
// global operators; any other file of that program that watches too defines
// LTEST_ALLOCATIONS_COUNTERS_ONLY first, and shares the same counters.
#ifndef LTEST_ALLOCATIONS_COUNTERS_ONLY
// Both sides are malloc and free, which GCC cannot see through the replacement.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) { return LTestAllocations::Allocate(size, 0); }
void* operator new(std::size_t size, std::align_val_t align) {
  return LTestAllocations::Allocate(size, static_cast<std::size_t>(align));
}
// Every form is replaced, the array and the non-throwing ones too: a form left to
// the runtime (a sanitizer's, say) would allocate with its own allocator what these
// deletes give to free. The library's temporary buffers use the non-throwing form.
void* operator new[](std::size_t size) { return LTestAllocations::Allocate(size, 0); }
void* operator new[](std::size_t size, std::align_val_t align) {
  return LTestAllocations::Allocate(size, static_cast<std::size_t>(align));
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  try {
    return LTestAllocations::Allocate(size, 0);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept { return operator new(size, std::nothrow); }
void* operator new(std::size_t size, std::align_val_t align, std::nothrow_t const&) noexcept {
  try {
    return LTestAllocations::Allocate(size, static_cast<std::size_t>(align));
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, std::align_val_t align, std::nothrow_t const&) noexcept {
  return operator new(size, align, std::nothrow);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t, std::nothrow_t const&) noexcept { std::free(p); }
#endif  // LTEST_ALLOCATIONS_COUNTERS_ONLY
