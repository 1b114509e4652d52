#include "timeline/time_line.h"

#include <gtest/gtest.h>

namespace {

struct Counter : LTimeLineNotify {
  int calls = 0;
  void TimeLineChanged(LTimeLine&) override { ++calls; }
};

TEST(TimeLine, ViewZoomKeepsTheAnchorAndStaysInsideTheProject) {
  LTimeLine line;
  line.SetEnd(100000);
  line.SetViewRegion(20000, 60000);
  line.SetViewRegionZoom(0.5, 30000);  // 30 s stays a quarter of the way in
  EXPECT_EQ(line.GetViewStart(), 25000);
  EXPECT_EQ(line.GetViewEnd(), 45000);
  line.SetViewRegionZoom(100.0, 30000);  // no wider than the project
  EXPECT_EQ(line.GetViewStart(), 0);
  EXPECT_EQ(line.GetViewEnd(), 100000);
  line.SetViewRegionZoom(1e-9, 500);
  EXPECT_EQ(line.GetViewEnd() - line.GetViewStart(), LTimeLine::kMinViewSpan);
  line.SetViewRegion(99000, 130000);  // slid back inside
  EXPECT_EQ(line.GetViewEnd(), 100000);
  EXPECT_EQ(line.GetViewStart(), 69000);
  line.SetEnd(50000);  // a shorter project pulls the view and position in
  line.SetPosition(70000);
  EXPECT_EQ(line.GetViewEnd(), 50000);
  EXPECT_EQ(line.GetPosition(), 50000);
}

TEST(TimeLine, ListenersHearChangesExceptTheOneWhoMadeThem) {
  LTimeLine line;
  Counter ruler, area;
  line.AddNotify(&ruler);
  line.AddNotify(&area);
  line.AddNotify(&area);  // once only
  line.SetPosition(1000);
  EXPECT_EQ(ruler.calls, 1);
  EXPECT_EQ(area.calls, 1);
  line.SetPositionNoNotify(2000, &area);
  EXPECT_EQ(ruler.calls, 2);
  EXPECT_EQ(area.calls, 1);
  line.SetPosition(2000);  // no change, no news
  EXPECT_EQ(ruler.calls, 2);
  line.RemoveNotify(&ruler);
  line.SetPosition(0);
  EXPECT_EQ(ruler.calls, 2);
  EXPECT_EQ(area.calls, 2);
}

TEST(TimeLine, TemposAndBookmarksKeepTheirRules) {
  LTimeLine line;
  line.SetBPM(8.0, 90.0);
  line.SetBPM(4.0, 100.0);
  line.SetBPM(8.0, 95.0);  // same beat: replaced
  line.SetBPM(2.0, 0.0);   // no tempo of zero
  ASSERT_EQ(line.GetTempoChanges().size(), 3u);
  EXPECT_EQ(line.GetTempoChanges()[1], (LTempoChange{4.0, 100.0}));
  EXPECT_EQ(line.GetTempoChanges()[2], (LTempoChange{8.0, 95.0}));
  line.RemoveBPM(-32768.0);  // the first stays
  line.RemoveBPM(4.0);
  EXPECT_EQ(line.GetTempoChanges().size(), 2u);
  line.SetTempoChanges({});
  EXPECT_EQ(line.GetTempoChanges().size(), 1u);

  LTimeLineBookmark verse;
  verse.iPosition = 5000;
  verse.SetName("Verse");
  line.SetBookmark(verse);
  verse.SetName("Verse 1");
  line.SetBookmark(verse);
  LTimeLineBookmark chorus;
  chorus.iPosition = 9000;
  line.SetBookmark(chorus);
  ASSERT_EQ(line.GetBookmarks().size(), 2u);
  EXPECT_EQ(line.GetBookmarks().back().GetName(), "Verse 1");
  EXPECT_FALSE(line.RemoveBookmark(1234));
  EXPECT_TRUE(line.RemoveBookmark(9000));
  line.ClearBookmarks();
  EXPECT_TRUE(line.GetBookmarks().empty());
}

}  // namespace
