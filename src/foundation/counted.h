#pragma once
#include <atomic>
#include <concepts>
#include <cstdint>
#include <utility>

// Base of objects shared through LCountedPtr; the count lives in the object.
// The count is atomic: the main thread and the player thread both take and drop
// handles on the same sound graph, and a lost update would free a graph in use.
class LCountedObject {
 public:
  LCountedObject() = default;
  // A copy is a new object that nobody holds yet.
  LCountedObject(LCountedObject const&) noexcept {}
  LCountedObject& operator=(LCountedObject const&) noexcept { return *this; }
  virtual ~LCountedObject() = default;

  void AddRef() const noexcept { uRefCount.fetch_add(1, std::memory_order_relaxed); }
  // acq_rel so that every holder's writes are visible to the thread that deletes.
  void Release() const noexcept {
    if (uRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  std::uint32_t GetRefCount() const noexcept { return uRefCount.load(std::memory_order_relaxed); }

 private:
  mutable std::atomic<std::uint32_t> uRefCount{0};
};

// A counted handle on an LCountedObject; may be empty.
template <class T>
class LCountedPtr {
 public:
  LCountedPtr() noexcept = default;
  // Takes a share of `object`, which may be fresh (count 0) or already held.
  explicit LCountedPtr(T* object) noexcept : p(object) {
    if (p) p->AddRef();
  }
  LCountedPtr(LCountedPtr const& other) noexcept : p(other.p) {
    if (p) p->AddRef();
  }
  LCountedPtr(LCountedPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
  template <class U>
    requires std::convertible_to<U*, T*>
  LCountedPtr(LCountedPtr<U> const& other) noexcept : LCountedPtr(static_cast<T*>(other.Get())) {}
  ~LCountedPtr() {
    if (p) p->Release();
  }

  LCountedPtr& operator=(LCountedPtr const& other) noexcept {
    Reset(other.p);
    return *this;
  }
  LCountedPtr& operator=(LCountedPtr&& other) noexcept {
    if (this != &other) {
      T* old = std::exchange(p, std::exchange(other.p, nullptr));
      if (old) old->Release();
    }
    return *this;
  }

  // The new object is counted before the old one is released, so that assigning
  // a handle to a part of the graph it holds never frees that part.
  void Reset(T* object = nullptr) noexcept {
    if (object) object->AddRef();
    T* old = std::exchange(p, object);
    if (old) old->Release();
  }

  T* Get() const noexcept { return p; }
  T* operator->() const noexcept { return p; }
  T& operator*() const noexcept { return *p; }
  explicit operator bool() const noexcept { return p != nullptr; }

 private:
  T* p = nullptr;
};
