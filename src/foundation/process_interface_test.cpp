#include "foundation/process_interface.h"

#include <gtest/gtest.h>

#include <chrono>

#include "foundation/testing_process.h"

using namespace std::chrono_literals;
using Kind = LTestProcessRecorder::Kind;

TEST(ProcessInterfaceSubProcess, MapsProgressIntoItsSliceAndShiftsStatusLines) {
  LTestProcessRecorder outer;
  LProcessInterfaceSubProcess sub(outer, 0.5, 0.25);
  sub.SetProgress(1.0);
  sub.SetProgress(0.0);
  sub.SetProgress(0.5);
  EXPECT_EQ(outer.Progress(), (std::vector<double>{0.75, 0.5, 0.625}));

  sub.SetStatus("Sub-job", 0);
  sub.SetStatus("Detail", 1);
  ASSERT_EQ(outer.reports.size(), 5u);
  EXPECT_EQ(outer.reports[3].text, "Sub-job");
  EXPECT_EQ(outer.reports[3].line, 1);
  EXPECT_EQ(outer.reports[4].line, 2);

  // The outer job owns the bar's mode.
  sub.SetProgressIndeterminateOn();
  sub.SetProgressIndeterminateOff();
  EXPECT_EQ(outer.Count(Kind::IndeterminateOn) + outer.Count(Kind::IndeterminateOff), 0u);

  // Stop and errors pass straight through.
  sub.SetError("broken");
  EXPECT_EQ(outer.Errors(), std::vector<std::string>{"broken"});
  EXPECT_FALSE(sub.IsToStop());
  outer.soStop.Set();
  EXPECT_TRUE(sub.IsToStop());

  sub.SetSlice(0.0, 0.5);
  sub.SetProgress(1.0);
  EXPECT_EQ(outer.Progress().back(), 0.5);
}

TEST(ProcessInterfaceNested, ForwardsAllNine) {
  LTestProcessRecorder outer;
  LProcessInterfaceNested nested(outer);
  nested.SetError("e");
  nested.SetStatus("s", 1);
  nested.SetProgress(0.25);
  nested.SetProgressIndeterminateOn();
  nested.SetProgressIndeterminateOff();
  ASSERT_EQ(outer.reports.size(), 5u);
  EXPECT_EQ(outer.reports[0].kind, Kind::Error);
  EXPECT_EQ(outer.reports[1].line, 1);
  EXPECT_EQ(outer.reports[2].value, 0.25);
  EXPECT_EQ(outer.reports[3].kind, Kind::IndeterminateOn);
  EXPECT_EQ(outer.reports[4].kind, Kind::IndeterminateOff);

  LSignalObject signal;
  LSignalObjectGroup group;
  group.Add(signal.GetRef());
  EXPECT_EQ(nested.ProcessWaitSignal(signal, 0), LProcessWaitTimedOut);
  signal.Set();
  EXPECT_EQ(nested.ProcessWaitSignal(signal, LSignalWaitForever), LProcessWaitSignaled);
  EXPECT_EQ(nested.ProcessWaitSignalObjectGroup(group, LSignalWaitForever), LProcessWaitSignaled);
  signal.Reset();
  outer.soStop.Set();
  EXPECT_TRUE(nested.IsToStop());
  EXPECT_EQ(nested.ProcessWait(LSignalWaitForever), LProcessWaitStopped);
  EXPECT_EQ(nested.ProcessWaitSignal(signal, LSignalWaitForever), LProcessWaitStopped);
  EXPECT_EQ(nested.ProcessWaitSignalObjectGroup(group, LSignalWaitForever), LProcessWaitStopped);
}

TEST(ProcessInterfaceVoid, NeverStopsAndWaitsOnlyForWhatItIsTold) {
  LProcessInterfaceVoid none;
  EXPECT_FALSE(none.IsToStop());
  auto const t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(none.ProcessWait(30), LProcessWaitSignaled);
  EXPECT_GE(std::chrono::steady_clock::now() - t0, 29ms);

  LSignalObject a, b;
  EXPECT_EQ(none.ProcessWaitSignal(a, 5), LProcessWaitTimedOut);
  a.Set();
  EXPECT_EQ(none.ProcessWaitSignal(a, LSignalWaitForever), LProcessWaitSignaled);
  LSignalObjectGroup group;
  group.Add(b.GetRef());
  EXPECT_EQ(none.ProcessWaitSignalObjectGroup(group, 5), LProcessWaitTimedOut);
  b.Set();
  EXPECT_EQ(none.ProcessWaitSignalObjectGroup(group, LSignalWaitForever), LProcessWaitSignaled);
  // The reports go nowhere and do no harm.
  none.SetError("x");
  none.SetStatus("x", 5);
  none.SetProgress(2.0);
}

TEST(ProcessWaitOrStop, AFiredSignalWinsOverAStop) {
  LSignalObject signal, stop;
  EXPECT_EQ(LProcessWaitSignalOrStop(signal, stop, 0), LProcessWaitTimedOut);
  stop.Set();
  EXPECT_EQ(LProcessWaitSignalOrStop(signal, stop, LSignalWaitForever), LProcessWaitStopped);
  signal.Set();
  EXPECT_EQ(LProcessWaitSignalOrStop(signal, stop, LSignalWaitForever), LProcessWaitSignaled);

  LSignalObject a, b;
  LSignalObjectGroup group;
  group.Add(a.GetRef());
  group.Add(b.GetRef());
  EXPECT_EQ(LProcessWaitGroupOrStop(group, stop, LSignalWaitForever), LProcessWaitStopped);
  b.Set();
  EXPECT_EQ(LProcessWaitGroupOrStop(group, stop, LSignalWaitForever), LProcessWaitSignaled);
  stop.Reset();
  b.Reset();
  EXPECT_EQ(LProcessWaitGroupOrStop(group, stop, 0), LProcessWaitTimedOut);
  EXPECT_EQ(group.SelectWith(stop, 0), -1);
  stop.Set();
  EXPECT_EQ(group.SelectWith(stop, 0), 2);  // only the extra: the count of members
}
