#pragma once
#include <deque>
#include <functional>
#include <mutex>

#include "foundation/signal_object.h"

// The main thread's event queue, as the layers below the windows see it. Whoever
// runs the main loop (the Qt layer, a command-line tool, a test) implements it and
// registers it for the process.
class LMainThreadQueue {
 public:
  virtual ~LMainThreadQueue() = default;
  // Runs `work` later on the main thread, in the order of posting. Any thread may post.
  virtual void PostToMainThread(std::function<void()> work) = 0;
  // False once the main loop has ended for good; work posted then would never run.
  virtual bool IsMainLoopRunning() const { return true; }
};

// The process's main-thread queue. Registering replaces the one before; unregistering
// a queue that is no longer the registered one does nothing, so that two loops made
// one after the other (tests) do not unregister each other.
void LRegisterMainThreadQueue(LMainThreadQueue* queue);
void LUnregisterMainThreadQueue(LMainThreadQueue* queue);

// Posts `work` to the registered queue when there is one and its loop still runs.
// False when the work was not posted (it has been destroyed here). Registration and
// posting exclude each other, so no post reaches a queue after its unregistration.
bool LPostToMainThread(std::function<void()> work);
bool LIsMainLoopRunning();

// Registers a queue for a scope.
class LMainThreadQueueRegistration {
 public:
  explicit LMainThreadQueueRegistration(LMainThreadQueue& queue) : pQueue(&queue) { LRegisterMainThreadQueue(pQueue); }
  ~LMainThreadQueueRegistration() { LUnregisterMainThreadQueue(pQueue); }
  LMainThreadQueueRegistration(LMainThreadQueueRegistration const&) = delete;
  LMainThreadQueueRegistration& operator=(LMainThreadQueueRegistration const&) = delete;

 private:
  LMainThreadQueue* pQueue;
};

// A main-thread queue for a program without an event loop of its own: the main thread
// runs what was posted when it calls RunPending, or while it waits in WaitPumping.
// Its signal is set by every post, so a waiter can include it in a select.
class LPumpedMainThreadQueue : public LMainThreadQueue {
 public:
  void PostToMainThread(std::function<void()> work) override;
  bool IsMainLoopRunning() const override;

  // Runs what has been posted so far, in order, and returns how many ran. Work posted
  // while this runs waits for the next call. Only from the main thread.
  int RunPending();
  // Waits for `awaited` or `stop` (either may be invalid), running posted work as it
  // arrives: 0 awaited, 1 stop, 2 time-out, as the waits of LProcessInterface. Work
  // posted before `awaited` was set has run when this returns 0.
  int WaitPumping(LSignalObjectRef awaited, LSignalObjectRef stop, unsigned int ms);
  // Ends the loop: later posts are refused, and what is queued is dropped unrun.
  void Close();

  LSignalObjectRef GetPostedSignal() const { return soPosted.GetRef(); }
  std::size_t GetPendingCount() const;

 private:
  mutable std::mutex mtx;
  std::deque<std::function<void()>> queue;
  bool bClosed = false;
  LSignalObject soPosted;
};
