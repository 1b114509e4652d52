#pragma once
#include <atomic>

#include "foundation/process_interface.h"
#include "foundation/run_on_main_thread.h"
#include "foundation/thread.h"

// Wraps a job record to run it on a thread of its own: Process(outer, LProcessThreadData<X>&)
// runs Process(face, X&) on a new thread while the calling (main) thread stays in
// `outer`, so the window behind `outer` keeps handling its events.
template <class X>
class LProcessThreadData {
 public:
  explicit LProcessThreadData(X& data) : rData(data) {}
  X& GetData() const { return rData; }

 private:
  X& rData;
};

// The thread that runs one job for Process(outer, LProcessThreadData<X>&). Its reports
// travel to the main thread as queued notifications and reach `outer` there.
class LProcessThreadBase : public LThread, public LQueuedNotifyDataHandler {
 public:
  // The codes of the reports posted to the main thread.
  enum : unsigned int { kSetError = 0, kSetStatus = 1, kSetProgress = 2, kIndeterminateOn = 3, kIndeterminateOff = 4 };
  // The text of a status report is cut to fit this many bytes with its terminator.
  static constexpr int kStatusTextSize = 260;

  explicit LProcessThreadBase(LProcessInterface& outer) : LThread("tandrel job"), piOuter(outer) {}
  ~LProcessThreadBase() override;

  // The job's result once the thread has finished; 2 before.
  LProcessResult GetResult() const { return iResult.load(std::memory_order_acquire); }

 protected:
  virtual LProcessResult RunJob(LProcessInterface& face) = 0;
  void EvQueuedNotifyData(unsigned int code, void const* data, unsigned long size) override;

 private:
  void ThreadFunction() override;

  LProcessInterface& piOuter;
  std::atomic<LProcessResult> iResult{LProcessFailed};
};

// Runs `thread` as the caller's job: starts it at the caller's own priority, stays in
// `outer` until it ends or the user stops it, and then flushes the reports still
// queued, so that nothing reaches `outer` after this returns. On the main thread only.
LProcessResult LProcessRunOnThread(LProcessInterface& outer, LProcessThreadBase& thread);

// The face that a job sees inside LProcessThread: stop and waits are the thread's
// own; every report is posted to the main thread, in order.
class LProcessThreadInterface : public LProcessInterface {
 public:
  explicit LProcessThreadInterface(LProcessThreadBase& thread) : pThread(&thread) {}

  bool IsToStop() override;
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;
  void SetError(char const* text) override;
  void SetStatus(char const* text, int line) override;
  void SetProgress(double done) override;
  void SetProgressIndeterminateOn() override;
  void SetProgressIndeterminateOff() override;

  // Cuts the link to the thread once the job has returned: a job that kept the
  // interface then sees a stop and its reports go nowhere.
  void Unlink() { pThread = nullptr; }

 private:
  LProcessThreadBase* pThread;
};

template <class X>
class LProcessThread : public LProcessThreadBase {
 public:
  LProcessThread(LProcessInterface& outer, X& data) : LProcessThreadBase(outer), rData(data) {}
  // RunJob belongs to this class: the thread must be gone before this part is.
  ~LProcessThread() override { StopThreadNow(); }

 protected:
  LProcessResult RunJob(LProcessInterface& face) override { return Process(face, rData); }

 private:
  X& rData;
};

template <class X>
LProcessResult Process(LProcessInterface& outer, LProcessThreadData<X>& data) {
  LProcessThread<X> thread(outer, data.GetData());
  return LProcessRunOnThread(outer, thread);
}
