#include "foundation/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace {

// Counts its runs, says it has begun, and waits for its stop signal. It touches only
// what outlives it and the base's signals, so the base destructor may stop it.
class WaitingThread : public LThread {
 public:
  WaitingThread(std::atomic<int>& runs, std::atomic<int>& ends, LSignalObjectRef begun)
      : LThread("test waiter"), pRuns(&runs), pEnds(&ends), begun(begun) {}

 protected:
  void ThreadFunction() override {
    pRuns->fetch_add(1);
    priorityInside.store(LThreadGetCurrentPriority());
    // After the stop, only locals: when the base destructor stops this thread, the
    // derived part is already gone.
    std::atomic<int>* ends = pEnds;
    LSignalObjectRef const stop = GetStopSignal();
    begun.Set();
    stop.WaitSignal(LSignalWaitForever);
    ends->fetch_add(1);
  }

 public:
  std::atomic<int> priorityInside{-2};

 private:
  std::atomic<int>* pRuns;
  std::atomic<int>* pEnds;
  LSignalObjectRef begun;
};

// Runs a caller's function as its work.
class FunctionThread : public LThread {
 public:
  explicit FunctionThread(std::function<void(LThread&)> fn) : fn(std::move(fn)) {}
  ~FunctionThread() override { StopThreadNow(); }

 protected:
  void ThreadFunction() override { fn(*this); }

 private:
  std::function<void(LThread&)> fn;
};

}  // namespace

TEST(Thread, StartWhileRunningDoesNothingAndARestartRunsAgain) {
  std::atomic<int> runs{0}, ends{0};
  LSignalObject begun;
  WaitingThread t(runs, ends, begun);
  EXPECT_FALSE(t.IsRunning());
  EXPECT_EQ(t.GetTid(), -1);
  ASSERT_TRUE(t.Start());
  EXPECT_TRUE(t.IsRunning());  // Start returns once the thread runs
  EXPECT_GT(t.GetTid(), 0);
  EXPECT_TRUE(begun.WaitSignal(LSignalWaitForever));
  EXPECT_FALSE(t.Start());
  EXPECT_FALSE(t.Start(LThreadPriorityRealTime));
  EXPECT_EQ(runs.load(), 1);

  t.StopThreadNow();
  EXPECT_FALSE(t.IsRunning());
  EXPECT_EQ(ends.load(), 1);
  EXPECT_TRUE(t.GetCompletedSignal().IsSignaled());

  // A finished thread starts again, with the stop of the last run forgotten.
  begun.Reset();
  ASSERT_TRUE(t.Start());
  EXPECT_TRUE(begun.WaitSignal(LSignalWaitForever));
  EXPECT_FALSE(t.IsToStop());
  EXPECT_FALSE(t.GetCompletedSignal().IsSignaled());
  EXPECT_EQ(runs.load(), 2);
}

TEST(Thread, DestructorStopsTheThreadAndWaitsForIt) {
  std::atomic<int> runs{0}, ends{0};
  LSignalObject begun;
  auto t = std::make_unique<WaitingThread>(runs, ends, begun);
  ASSERT_TRUE(t->Start());
  ASSERT_TRUE(begun.WaitSignal(LSignalWaitForever));
  EXPECT_EQ(ends.load(), 0);
  t.reset();
  EXPECT_EQ(ends.load(), 1);
}

TEST(Thread, NormalPriorityIsAPlainThreadAndRealTimeNeverFails) {
  std::atomic<int> runs{0}, ends{0};
  LSignalObject begun;
  {
    WaitingThread t(runs, ends, begun);
    ASSERT_TRUE(t.Start(LThreadPriorityNormal));
    ASSERT_TRUE(begun.WaitSignal(LSignalWaitForever));
    EXPECT_EQ(t.priorityInside.load(), LThreadPriorityNormal);
  }
  begun.Reset();
  {
    // Where the user may not have real time, the thread runs all the same.
    WaitingThread t(runs, ends, begun);
    ASSERT_TRUE(t.Start(LThreadPriorityRealTime));
    ASSERT_TRUE(begun.WaitSignal(LSignalWaitForever));
    int const got = t.priorityInside.load();
    EXPECT_TRUE(got == LThreadPriorityRealTime || got == LThreadPriorityNormal) << got;
    t.SetPriority(LThreadPriorityNormal);  // back from real time, as playback does
  }
  EXPECT_EQ(ends.load(), 2);
}

TEST(Thread, IsAJobInterfaceWhoseStopIsItsStopSignal) {
  LSignalObject go, waitResult, wentOn;
  std::atomic<int> first{-1}, second{-1};
  FunctionThread t([&](LThread& self) {
    first.store(self.ProcessWaitSignal(go, LSignalWaitForever));
    wentOn.Set();
    second.store(self.ProcessWaitSignal(waitResult, LSignalWaitForever));
  });
  ASSERT_TRUE(t.Start());
  go.Set();
  ASSERT_TRUE(wentOn.WaitSignal(LSignalWaitForever));
  EXPECT_EQ(first.load(), LProcessWaitSignaled);
  t.StopThreadSoon();
  EXPECT_TRUE(t.GetCompletedSignal().WaitSignal(LSignalWaitForever));
  EXPECT_EQ(second.load(), LProcessWaitStopped);
  EXPECT_TRUE(t.IsToStop());
  EXPECT_EQ(t.ProcessWait(LSignalWaitForever), LProcessWaitStopped);
}

namespace {

class CountedDetached : public LDetachedThread {
 public:
  CountedDetached(std::atomic<int>& destroyed, LSignalObjectRef gone, bool waitForStop)
      : pDestroyed(&destroyed), gone(gone), bWaitForStop(waitForStop) {}
  ~CountedDetached() override {
    pDestroyed->fetch_add(1);
    gone.Set();
  }

 protected:
  void ThreadFunction() override {
    if (bWaitForStop) GetStopSignal().WaitSignal(LSignalWaitForever);
  }

 private:
  std::atomic<int>* pDestroyed;
  LSignalObjectRef gone;
  bool bWaitForStop;
};

}  // namespace

TEST(DetachedThread, AFinishedThreadLeavesItsOwnerAndDeletesItself) {
  std::atomic<int> destroyed{0};
  LSignalObject gone;
  LDetachedThreadsOwner owner;
  ASSERT_TRUE((new CountedDetached(destroyed, gone, false))->StartDetached(owner));
  ASSERT_TRUE(gone.WaitSignal(LSignalWaitForever));
  EXPECT_EQ(destroyed.load(), 1);
  EXPECT_EQ(owner.GetCount(), 0u);
}

TEST(DetachedThread, OwnerStopsAndDestroysThoseStillRunning) {
  std::atomic<int> destroyed{0};
  LSignalObject gone;
  auto owner = std::make_unique<LDetachedThreadsOwner>();
  for (int i = 0; i < 4; ++i) ASSERT_TRUE((new CountedDetached(destroyed, gone, true))->StartDetached(*owner));
  EXPECT_EQ(owner->GetCount(), 4u);
  EXPECT_EQ(destroyed.load(), 0);
  owner->StopThreadsNow();
  EXPECT_EQ(destroyed.load(), 4);
  EXPECT_EQ(owner->GetCount(), 0u);

  // The destructor does the same for threads started after.
  ASSERT_TRUE((new CountedDetached(destroyed, gone, true))->StartDetached(*owner));
  owner.reset();
  EXPECT_EQ(destroyed.load(), 5);
}
