#pragma once
// Counts the allocations that code makes on the calling thread, for tests that
// show an audio path allocates nothing. This header replaces the global operator
// new and delete, so it goes into exactly one test file of a test program.
//
//   LAllocationWatch watch;
//   source->Read(buffer, frames);
//   EXPECT_EQ(watch.Count(), 0);
#include <cstdlib>
#include <new>

namespace LTestAllocations {
// Per thread, so that work another thread happens to do does not count.
inline thread_local bool tWatching = false;
inline thread_local long tCount = 0;

inline void* Allocate(std::size_t size, std::size_t align) {
  if (tWatching) ++tCount;
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

// Both sides are malloc and free, which GCC cannot see through the replacement.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) { return LTestAllocations::Allocate(size, 0); }
void* operator new(std::size_t size, std::align_val_t align) {
  return LTestAllocations::Allocate(size, static_cast<std::size_t>(align));
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
