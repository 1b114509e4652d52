#pragma once
#include <cstddef>
#include <memory>

// One piece of work that another thread hands to the main thread.
class LThreadRunOnMainThreadData {
 public:
  virtual ~LThreadRunOnMainThreadData() = default;
  // On the main thread, only while the owner that posted it is valid.
  virtual void Run() = 0;
};

// Carries work from any thread to the main thread on behalf of an owner, and makes
// sure none of it runs once the owner is gone.
//
// The owner's validity flag and its mutex live in a small shared block rather than in
// the owner itself: the main thread's queue may still hold an item when the owner is
// destroyed, and that item must be able to find out, without touching the dead owner,
// that it is not to run.
class LThreadRunOnMainThread {
 public:
  LThreadRunOnMainThread();
  virtual ~LThreadRunOnMainThread();
  LThreadRunOnMainThread(LThreadRunOnMainThread const&) = delete;
  LThreadRunOnMainThread& operator=(LThreadRunOnMainThread const&) = delete;

  // Takes ownership of `data`. Posts it to the main thread when the main loop runs and
  // this owner is valid; otherwise deletes it at once. From any thread.
  void RunOnMainThread(LThreadRunOnMainThreadData* data);
  // Flushes every item of this owner that has not run yet (they are deleted unrun)
  // and refuses later posts. Call it on the main thread at the start of the owner's
  // destructor, before the parts that the items use are destroyed; the base
  // destructor calls it again as a last resort.
  void ThreadRunOnMainThreadDestroy();

  bool IsRunOnMainThreadValid() const;
  // Items posted and neither run nor flushed yet.
  std::size_t GetPendingCount() const;

 private:
  friend struct LThreadRunOnMainThreadTicket;
  struct State;
  std::shared_ptr<State> pState;
};

// A callback on the main thread with no data: the sender leaves its news in flags of
// the object and posts; EvNotify reads them.
class LThreadQueuedNotify : public LThreadRunOnMainThread {
 public:
  void PostQueueNotify();

 protected:
  virtual void EvNotify() = 0;

 private:
  friend class LThreadQueuedNotifyData;
};

// A callback on the main thread that carries a code and a copy of a block of bytes.
class LQueuedNotifyDataHandler : public LThreadRunOnMainThread {
 public:
  // Copies `size` bytes from `data` (null for none) and posts them with `code`.
  void PostNotifyFromSender(unsigned int code, void const* data, unsigned long size);

 protected:
  // On the main thread: the code and the copied bytes, which live for the call only.
  virtual void EvQueuedNotifyData(unsigned int code, void const* data, unsigned long size) = 0;

 private:
  friend class LQueuedNotifyData;
};
