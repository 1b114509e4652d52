#pragma once
#include <mutex>

// A recursive mutex: a thread that holds it may take it again, so an operation that
// locks may call another that locks the same object. Usable with std::lock_guard.
class LLockObject : public std::recursive_mutex {
 public:
  void Lock() { lock(); }
  void Unlock() { unlock(); }
  bool TryLock() { return try_lock(); }
};

// Holds an LLockObject for a scope.
using LLockObjectHold = std::lock_guard<LLockObject>;
