#pragma once
#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <vector>

#include "foundation/lock_object.h"
#include "foundation/process_interface.h"
#include "foundation/signal_object.h"

// Thread priorities as the program names them. Real time is SCHED_FIFO where the
// user's rtprio limit allows it; otherwise the thread runs at normal priority and
// nothing fails. The others are plain threads; high tries a lower nice value.
inline constexpr int LThreadPriorityNormal = 20;
inline constexpr int LThreadPriorityHigh = 40;
inline constexpr int LThreadPriorityRealTime = 91;

// The calling thread's priority in the scale above (91 under a real-time policy,
// 40 with a nice value below the process's, else 20), or -1 when it cannot be read.
int LThreadGetCurrentPriority();

// A thread that is itself a job interface: IsToStop is its stop signal, so the
// thread's work can be a plain job run with the thread as its interface.
//
// A derived class must stop the thread in its own destructor (StopThreadNow): by the
// time this destructor runs, the derived part that ThreadFunction uses is gone.
class LThread : public LProcessInterface {
 public:
  LThread();
  // At most 15 characters of `name` show in tools that list threads.
  explicit LThread(char const* name);

  bool IsToStop() override;
  // 1 when the stop signal came within `ms`, else 2.
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;

  // Stops the thread soon and waits for it.
  ~LThread() override;

 protected:
  // The thread's work. It should poll IsToStop, or wait through the operations above.
  virtual void ThreadFunction() = 0;

 public:
  // Starts the thread at `priority` and returns once it runs. A call while the thread
  // is still running does nothing and returns false; false also when no thread could
  // be made.
  bool Start(int priority = LThreadPriorityNormal);
  // Asks the thread to end; returns at once, from any thread, without a lock.
  void StopThreadSoon();
  // Asks the thread to end and waits until it has. Not from the thread itself.
  void StopThreadNow();
  // Whether ThreadFunction has begun and not yet returned.
  bool IsRunning() const { return bActive.load(std::memory_order_acquire); }
  // Changes the running thread's priority, and that of later starts.
  void SetPriority(int priority);

  LSignalObjectRef GetStopSignal() const { return soStop.GetRef(); }
  // Set when ThreadFunction has returned; reset by Start.
  LSignalObjectRef GetCompletedSignal() const { return soCompleted.GetRef(); }
  // The kernel's id of the running thread, -1 when none runs.
  pid_t GetTid() const { return tid.load(std::memory_order_acquire); }

 private:
  friend class LDetachedThread;
  friend class LDetachedThreadsOwner;

  static void* Entry(void* self);
  void ApplyPriority(int priority);
  // Reaps a finished thread. Under loStart.
  void Join();

  pthread_t tThread{};
  bool bHasThread = false;  // tThread is a thread that nobody has joined or detached yet
  std::atomic<pid_t> tid{-1};
  std::atomic<int> iStartPriority{LThreadPriorityNormal};
  std::atomic<bool> bActive{false};
  LSignalObject soStop;
  LSignalObject soCompleted;
  LSignalObject soStarted;
  LLockObject loStart;
  char szName[16] = {};
  int iBaseNice = 0;  // the nice value the thread started with
  class LDetachedThreadsOwner* pDetachedOwner = nullptr;
};

class LDetachedThreadsOwner;

// A thread that owns itself: once its work is done it leaves its owner's list and
// deletes itself. Make it with new and hand it to StartDetached.
class LDetachedThread : public LThread {
 public:
  using LThread::LThread;
  // Starts the thread under `owner`. When no thread can be made, the object is
  // deleted right here and false is returned.
  bool StartDetached(LDetachedThreadsOwner& owner, int priority = LThreadPriorityNormal);
};

// Keeps the detached threads that are running, so that they can be stopped together.
class LDetachedThreadsOwner {
 public:
  LDetachedThreadsOwner() = default;
  LDetachedThreadsOwner(LDetachedThreadsOwner const&) = delete;
  LDetachedThreadsOwner& operator=(LDetachedThreadsOwner const&) = delete;
  // Stops every thread and waits for each.
  ~LDetachedThreadsOwner();

  // Asks every thread to end; returns at once.
  void StopThreadsSoon();
  // Asks every thread to end, then waits for each and destroys it.
  void StopThreadsNow();
  std::size_t GetCount();

 private:
  friend class LDetachedThread;
  friend class LThread;

  // From a thread whose work is done: true when it was still listed and has been
  // removed, so that it deletes itself; false when StopThreadsNow took it already.
  bool Leave(LDetachedThread* thread);
  // From a thread that has deleted itself, as its last act.
  void Gone();

  LLockObject loThreads;
  std::vector<LDetachedThread*> threads;
  // Threads started and not yet destroyed, listed or not: one that has left the list
  // may still be deleting itself, and StopThreadsNow waits for that too.
  int iLive = 0;
  std::condition_variable_any cvGone;
};
