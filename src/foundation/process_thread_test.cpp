#include "foundation/process_thread.h"

#include <gtest/gtest.h>

#include <thread>

#include "foundation/main_thread_queue.h"
#include "foundation/testing_process.h"

namespace {

// A job that reports a few steps and then, if asked, waits to be stopped.
struct CountingJob {
  int iSteps = 4;
  bool bWaitForStop = false;
  LProcessResult iResult = LProcessFinished;
  std::thread::id ranOn;
  bool bSawStop = false;
};

LProcessResult Process(LProcessInterface& pi, CountingJob& job) {
  job.ranOn = std::this_thread::get_id();
  pi.SetStatus("Counting", 0);
  pi.SetProgressIndeterminateOn();
  pi.SetProgressIndeterminateOff();
  for (int i = 1; i <= job.iSteps; ++i) {
    char text[32];
    std::snprintf(text, sizeof text, "Step %d", i);
    pi.SetStatus(text, 1);
    pi.SetProgress(static_cast<double>(i) / job.iSteps);
  }
  if (job.iResult == LProcessFailed) pi.SetError("It went wrong");
  if (job.bWaitForStop) {
    job.bSawStop = pi.ProcessWait(LSignalWaitForever) == LProcessWaitStopped && pi.IsToStop();
    return LProcessStopped;
  }
  return job.iResult;
}

class ProcessThreadTest : public ::testing::Test {
 protected:
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
};

}  // namespace

TEST_F(ProcessThreadTest, ReportsReachTheOuterInterfaceInOrderOnTheCallingThread) {
  LTestProcessRecorder outer(&queue);
  CountingJob job;
  job.iResult = LProcessFailed;
  LProcessThreadData<CountingJob> data(job);
  EXPECT_EQ(Process(outer, data), LProcessFailed);
  EXPECT_NE(job.ranOn, std::this_thread::get_id());

  using K = LTestProcessRecorder::Kind;
  std::vector<K> kinds;
  for (auto const& r : outer.reports) {
    kinds.push_back(r.kind);
    EXPECT_EQ(r.thread, std::this_thread::get_id());
  }
  std::vector<K> const expected{K::Status,   K::IndeterminateOn, K::IndeterminateOff, K::Status, K::Progress, K::Status,
                                K::Progress, K::Status,          K::Progress,         K::Status, K::Progress, K::Error};
  EXPECT_EQ(kinds, expected);
  EXPECT_EQ(outer.Statuses(1), (std::vector<std::string>{"Step 1", "Step 2", "Step 3", "Step 4"}));
  EXPECT_EQ(outer.Progress(), (std::vector<double>{0.25, 0.5, 0.75, 1.0}));
  EXPECT_EQ(outer.Errors(), std::vector<std::string>{"It went wrong"});
}

TEST_F(ProcessThreadTest, ReportsStillQueuedWhenTheJobEndsAreFlushed) {
  // This interface waits without running the queue, as a caller that is busy would.
  LTestProcessRecorder outer;
  CountingJob job;
  LProcessThreadData<CountingJob> data(job);
  EXPECT_EQ(Process(outer, data), LProcessFinished);
  EXPECT_TRUE(outer.reports.empty());
  EXPECT_GT(queue.GetPendingCount(), 0u);  // the posts are there, but dead
  queue.RunPending();
  EXPECT_TRUE(outer.reports.empty());
}

TEST_F(ProcessThreadTest, AStopAtTheOuterInterfaceStopsTheJobAndGivesOne) {
  CountingJob job;
  job.bWaitForStop = true;
  // The user presses stop once the last step shows.
  struct StopOnLastStep : LTestProcessRecorder {
    using LTestProcessRecorder::LTestProcessRecorder;
    void SetProgress(double done) override {
      LTestProcessRecorder::SetProgress(done);
      if (done == 1.0) soStop.Set();
    }
  } stopper(&queue);
  LProcessThreadData<CountingJob> data(job);
  EXPECT_EQ(Process(stopper, data), LProcessStopped);
  EXPECT_TRUE(job.bSawStop);
  EXPECT_EQ(stopper.Statuses(0), (std::vector<std::string>{"Counting", "Waiting for the process to stop"}));
  EXPECT_EQ(stopper.Progress().back(), 1.0);
}
