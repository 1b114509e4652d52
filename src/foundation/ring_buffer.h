#pragma once
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

// A ring of trivially copyable items. It does not check room or data: the caller
// asks GetFreeRoom()/GetFilled() first and moves no more than that. One slot stays
// unused so that a full ring and an empty one differ. Not for two threads; see
// LSinkToSourceBase for the cross-thread ring.
template <class T>
class LRingBufferThreadUnsafe {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  // A capacity below 2 is raised to 2, the least that can hold one item.
  explicit LRingBufferThreadUnsafe(std::uint32_t capacity)
      : uCapacity(capacity < 2 ? 2 : capacity), pItems(new T[uCapacity]()) {}
  LRingBufferThreadUnsafe(LRingBufferThreadUnsafe const&) = delete;
  LRingBufferThreadUnsafe& operator=(LRingBufferThreadUnsafe const&) = delete;

  std::uint32_t GetCapacity() const { return uCapacity; }

  std::uint32_t GetFreeRoom() const {
    std::int64_t room = std::int64_t{uReadIndex} - uWriteIndex - 1;
    if (room < 0) room += uCapacity;
    return static_cast<std::uint32_t>(room);
  }
  std::uint32_t GetFilled() const {
    std::int64_t filled = std::int64_t{uWriteIndex} - uReadIndex;
    if (filled < 0) filled += uCapacity;
    return static_cast<std::uint32_t>(filled);
  }

  void Write(T const* items, std::uint32_t count) {
    uWriteIndex = CopyIn(uWriteIndex, items, count);
  }
  void Read(T* items, std::uint32_t count) {
    uReadIndex = CopyOut(uReadIndex, items, count);
  }
  void Reset() { uReadIndex = uWriteIndex = 0; }

 private:
  std::uint32_t CopyIn(std::uint32_t at, T const* items, std::uint32_t count) {
    std::uint32_t const first = count < uCapacity - at ? count : uCapacity - at;
    if (first > 0) std::memcpy(pItems.get() + at, items, first * sizeof(T));
    if (count > first) std::memcpy(pItems.get(), items + first, (count - first) * sizeof(T));
    return static_cast<std::uint32_t>((std::uint64_t{at} + count) % uCapacity);
  }
  std::uint32_t CopyOut(std::uint32_t at, T* items, std::uint32_t count) const {
    std::uint32_t const first = count < uCapacity - at ? count : uCapacity - at;
    if (first > 0) std::memcpy(items, pItems.get() + at, first * sizeof(T));
    if (count > first) std::memcpy(items + first, pItems.get(), (count - first) * sizeof(T));
    return static_cast<std::uint32_t>((std::uint64_t{at} + count) % uCapacity);
  }

  std::uint32_t uCapacity;
  std::unique_ptr<T[]> pItems;
  std::uint32_t uReadIndex = 0;
  std::uint32_t uWriteIndex = 0;
};
