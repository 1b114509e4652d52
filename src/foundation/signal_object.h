#pragma once
#include <cstddef>
#include <vector>

// Passed as a time to wait: no time-out.
inline constexpr unsigned int LSignalWaitForever = 0xFFFFFFFFu;

// A non-owning view of a signal: the read and write ends of its pipe. Copyable, so a
// waiter can be handed a signal without owning it; the LSignalObject must outlive
// every ref to it.
//
// A set signal stays set until reset, so one Set wakes every waiter. A waiting loop
// must Reset first and then re-check its condition before it waits; that order is
// what keeps a Set between the check and the wait from being lost.
class LSignalObjectRef {
 public:
  LSignalObjectRef() = default;
  LSignalObjectRef(int readFd, int writeFd) : fdRead(readFd), fdWrite(writeFd) {}

  // False when the pipe could not be made (out of descriptors); such a signal never
  // fires, and its waits return at once instead of blocking for good.
  bool IsValid() const { return fdRead >= 0 && fdWrite >= 0; }

  void Set() const;
  void Reset() const;
  bool IsSignaled() const;
  // True when the signal was set within `ms` (LSignalWaitForever: no limit).
  bool WaitSignal(unsigned int ms) const;
  // Waits for this or `other`. Returns a mask: bit 0 this one is set, bit 1 `other`
  // is set; 0 after the time-out.
  int WaitSignalDual(LSignalObjectRef other, unsigned int ms) const;

  int GetReadFd() const { return fdRead; }
  int GetWriteFd() const { return fdWrite; }

 protected:
  int fdRead = -1;
  int fdWrite = -1;
};

// A signal that owns its pipe; both ends non-blocking and closed on exec.
class LSignalObject : public LSignalObjectRef {
 public:
  LSignalObject();
  ~LSignalObject();
  LSignalObject(LSignalObject const&) = delete;
  LSignalObject& operator=(LSignalObject const&) = delete;

  LSignalObjectRef GetRef() const { return *this; }
};

// Waits for any of several signals. Not thread-safe: one owner adds and selects.
class LSignalObjectGroup {
 public:
  void Add(LSignalObjectRef signal);
  std::size_t GetCount() const { return vSignals.size(); }

  // Index of the first member that is set, or -1 after `ms` without any.
  int Select(unsigned int ms) const;
  // Whether any member is set now.
  bool IsSignaled() const { return Select(0) >= 0; }
  bool IsSignaled(std::size_t index) const;
  // Select over the members and `extra` (a stop signal, say) without adding it:
  // the index of the first member set, GetCount() when only `extra` is, -1 after `ms`.
  int SelectWith(LSignalObjectRef extra, unsigned int ms) const;

 private:
  std::vector<LSignalObjectRef> vSignals;
};
