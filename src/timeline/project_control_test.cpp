#include "timeline/project_control.h"

#include <gtest/gtest.h>

#include "project/clip_audio.h"
#include "project/testing_cut_lists.h"

namespace {

// Four tracks of 98 pixels, and a view of 1000 columns over 20 s: 20 ms a column.
class ProjectControlTest : public CutListTest {
 protected:
  void SetUp() override {
    CutListTest::SetUp();
    TDTrackPixelMapping::dZoomFactorV = 1.0;
    for (int i = 0; i < 4; ++i) project.Tracks.AddTrack();
    MakeKnownFile(second, 1, 2000, 1, 1000);  // 2 s
    control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 20000), 1000);
  }

  TDClip* Add(int track, LSoundTime position, bool selected = true) {
    auto clip = std::make_unique<TDClipAudio>(second);
    clip->iPosition = position;
    TDClip* c = project.AddClip(std::move(clip), track, false);
    c->bSelected = selected;
    return c;
  }
  static int Row(int track) { return track * 98 + 50; }

  TDProject project;
  LCutListAudio second;
  TDProjectControl control{project};
};

TEST_F(ProjectControlTest, GridsFollowTheZoomInTimeAndInBeats) {
  EXPECT_DOUBLE_EQ(control.GetBestGridInterval(), 500.0);  // 400 ms wanted: 5 x 100
  EXPECT_EQ(control.MapToGridSnapPointRound(1249), 1000);
  EXPECT_EQ(control.MapToGridSnapPointRound(1250), 1500);
  EXPECT_EQ(control.MapToGridSnapPointFloor(1499), 1000);
  EXPECT_EQ(control.MapToGridSnapPointCeil(1001), 1500);
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 1000), 1000);
  EXPECT_DOUBLE_EQ(control.GetBestGridInterval(), 20.0);  // exactly what is wanted
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 45000), 1000);
  EXPECT_DOUBLE_EQ(control.GetBestGridInterval(), 1000.0);  // 900 wanted: 10 x 100

  control.iTimelineMode = TDProjectControl::kTimelineModeBeats;
  // 120 BPM over 20 s on 1000 columns: 25 pixels a beat, one beat a line.
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 20000), 1000);
  EXPECT_DOUBLE_EQ(control.CalculateBeatGroup(), 1.0);
  EXPECT_EQ(control.MapToGridSnapPointRound(1240), 1000);
  // Zoomed to 2 s: 250 pixels a beat, halved down to 31.25 pixels.
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 2000), 1000);
  EXPECT_DOUBLE_EQ(control.CalculateBeatGroup(), 0.125);
  // Zoomed out to 10 minutes: under a pixel a beat, whole bars doubled until 20 pixels.
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 600000), 1000);
  EXPECT_DOUBLE_EQ(control.CalculateBeatGroup(), 32.0);  // 0.833 px a beat
  // At a tempo change to 60 BPM from beat 4 (2 s), beats lie a second apart.
  project.Metronome.SetTempoChanges({{-32768.0, 120.0}, {4.0, 60.0}});
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 20000), 1000);
  EXPECT_EQ(control.MapToGridSnapPointRound(3400), 3000);
  control.iTimelineMode = 1;  // no grid
  EXPECT_EQ(control.MapToGridSnapPointRound(3400), 3400);
}

TEST_F(ProjectControlTest, SnapsPreferClipsThenGridThenBookmarks) {
  TDClip* fixed = Add(0, 5030, false);
  TDClip* moving = Add(1, 0);
  // Moving 2 s: ends meet the fixed clip's start (5030 - 2000) or end (7030).
  EXPECT_EQ(control.MapSoundTimeToNearestClipSnapPoint(*moving, 3100, 5100, false), 3030);
  EXPECT_EQ(control.MapSoundTimeToNearestClipSnapPoint(*moving, 7000, 9000, false), 7030);
  EXPECT_EQ(control.MapSoundTimeToNearestClipSnapPoint(*moving, 7000, 9000, true), -1);  // no other selected
  // Clip at 30 ms away beats a grid point 40 ms away...
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(3060, moving), 3030);
  // ...and the grid wins where it is nearer; without a clip only the grid counts.
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(2520, moving), 2500);
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(3060, nullptr), 3000);
  // A bookmark that puts the clip's end at 12010 is nearer than any grid point.
  LTimeLineBookmark mark;
  mark.iPosition = 12010;
  project.AddBookmark(mark);
  EXPECT_EQ(control.MapToBookmarkSnapPoint(9990, 11990), 10010);
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(10008, moving), 10010);
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(10005, moving), 10000);  // a tie: grid first
  // A tie between clip and grid goes to the clip.
  fixed->iPosition = 6050;
  EXPECT_EQ(control.MapSoundTimeToNearestSnapPoint(4025, moving), 4050);
}

TEST_F(ProjectControlTest, DraggingMovesTheGroupByItsClosestSnapAndStopsEachAtZero) {
  TDClip* a = Add(0, 1000);
  TDClip* b = Add(1, 4000);
  Add(2, 9020, false);  // b's end, dragged to 7000, would snap 20 ms to it
  control.BeginDrag(500, Row(1));
  // 3 s right and a track down with the grid off: b comes within 15 columns of the
  // clip at 9020 and snaps its end to it, so the group moves 3020.
  EXPECT_EQ(control.DragClip(650, Row(2), false), TDProjectControl::TDDragResult::Moved);
  EXPECT_EQ(a->iPosition, 4020);
  EXPECT_EQ(b->iPosition, 7020);
  EXPECT_EQ(a->iTrackIndex, 1);
  EXPECT_EQ(b->iTrackIndex, 2);
  EXPECT_EQ(b->pTrack, project.Tracks.GetTrack(2));
  EXPECT_EQ(control.GetDragTimeOffset(), 3020);

  // Down past the last track: the lowest clip stops on it, and the group with it.
  control.DragClip(650, Row(3) + 500, false);
  EXPECT_EQ(b->iTrackIndex, 3);
  EXPECT_EQ(a->iTrackIndex, 2);
  // Far left past zero: each clip stops at 0 by itself.
  control.DragClip(-400, Row(3), false);
  EXPECT_EQ(a->iPosition, 0);
  EXPECT_EQ(b->iPosition, 0);

  // A locked member holds everything.
  a->iPosition = 1000;
  b->bLocked = true;
  control.BeginDrag(100, Row(2));
  EXPECT_EQ(control.DragClip(300, Row(2), false), TDProjectControl::TDDragResult::Locked);
  EXPECT_EQ(a->iPosition, 1000);
  // A copying drag only follows the offset.
  b->bLocked = false;
  EXPECT_EQ(control.DragClip(300, Row(3), false, true), TDProjectControl::TDDragResult::CopyPending);
  EXPECT_EQ(a->iPosition, 1000);
  EXPECT_EQ(control.GetDragTimeOffset(), 4000);
  EXPECT_EQ(control.GetDragRowOffset(), 1);
}

TEST_F(ProjectControlTest, TrimmingKeepsTenPixelsAndSnapsPastTheOtherEdge) {
  TDClip* clip = Add(0, 2000);  // 2000..4000, columns 100..200
  // Only below the top strip and on the clip's own track do the edges trim.
  EXPECT_TRUE(control.IsPixelAtClipLeftEdge(*clip, 102, 20, 3));
  EXPECT_FALSE(control.IsPixelAtClipLeftEdge(*clip, 102, 10, 3));
  EXPECT_FALSE(control.IsPixelAtClipLeftEdge(*clip, 102, Row(1), 3));
  EXPECT_TRUE(control.IsPixelAtClipRightEdge(*clip, 197, 60, 3));
  EXPECT_FALSE(control.IsPixelAtClipRightEdge(*clip, 190, 60, 3));

  // The right edge dragged onto the left one stops ten columns from it.
  ASSERT_TRUE(control.TrimOrExpandClip(100, 50, *clip, false, false));
  EXPECT_EQ(clip->iPendingTrimEnd, 2200 - 4000);
  // The left edge dragged left expands, not before the timeline's start.
  ASSERT_TRUE(control.TrimOrExpandClip(-50, 50, *clip, true, false));
  EXPECT_EQ(clip->iPendingTrimStart, -2000);
  // With the grid, an edge that would land on the other goes one grid step on.
  clip->iPendingTrimStart = 0;
  clip->iPendingTrimEnd = 0;
  control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 200000), 1000);  // 200 ms a column, 5 s grid
  clip->iPosition = 5000;
  clip->SetTrimOrExpandEnd(0);
  ASSERT_TRUE(control.TrimOrExpandClip(26, 50, *clip, false, true));  // 5200 ms: grid says 5000, the start
  EXPECT_EQ(clip->iPosition + clip->GetEnd() + clip->iPendingTrimEnd, 10000);
  clip->bLocked = true;
  EXPECT_FALSE(control.TrimOrExpandClip(200, 50, *clip, false, false));
}

TEST_F(ProjectControlTest, LevelsAndTheSelectedRegion) {
  // A body of 98 from 100: the title strip is 14, half the rest 42.
  EXPECT_EQ(TDProjectControl::MapAmplitudeToPixelY(1.0, 100, 98), 114);
  EXPECT_EQ(TDProjectControl::MapAmplitudeToPixelY(0.0, 100, 98), 156);
  EXPECT_EQ(TDProjectControl::MapAmplitudeToPixelY(-1.0, 100, 98), 198);
  EXPECT_EQ(TDProjectControl::MapPixelYToAmplitude(105, 100, 98), 1.0);
  EXPECT_EQ(TDProjectControl::MapPixelYToAmplitude(198, 100, 98), -1.0);
  EXPECT_DOUBLE_EQ(TDProjectControl::MapPixelYToAmplitude(135, 100, 98), 0.5);
  for (double a : {-0.75, -0.25, 0.25, 0.75}) {
    EXPECT_NEAR(TDProjectControl::MapPixelYToAmplitude(TDProjectControl::MapAmplitudeToPixelY(a, 100, 98), 100, 98), a,
                1.0 / 42);
  }

  project.SetEditRegion(4000, 6000, 0, 1);
  control.ResizeEditArea(150, 0, false);  // the end dragged before the start
  EXPECT_EQ(project.GetEditRegion(), (TDEditRegion{3000, 4000, 0, 1}));
  control.ResizeEditArea(400, 0, true);
  EXPECT_EQ(project.GetEditRegion(), (TDEditRegion{4000, 8000, 0, 1}));
  control.ResizeEditArea(1200, 0, true);  // outside the control: ignored
  EXPECT_EQ(project.GetEditRegion().iEnd, 8000);
}

TEST_F(ProjectControlTest, FadePointsAreGrabbedNearAndDraggedBetweenTheirNeighbours) {
  TDClip* clip = Add(0, 2000);  // 2000..4000 on columns 100..200, track 0 at the top
  clip->GetFadeListByType(FadeTypeVolume) = {{0.0, 0, FadeTypeVolume},
                                             {-0.5, 500, FadeTypeVolume},
                                             {0.0, 600, FadeTypeVolume},
                                             {0.0, 2000, FadeTypeVolume}};
  // The point at 500 ms stands on column 125, a quarter of the way down the level span.
  TDPixelPoint const at = control.FadePointPixel(*clip, clip->GetFadeListByType(FadeTypeVolume)[1]);
  EXPECT_EQ(at.x, 125);
  EXPECT_EQ(at.y, TDProjectControl::MapAmplitudeToPixelY(-0.5, 0, 98));
  EXPECT_EQ(control.MapPixelToNearestFadePoint(at.x + 3, at.y + 4, *clip), 1);
  EXPECT_EQ(control.MapPixelToNearestFadePoint(at.x + 3, at.y + 5, *clip), -1);  // 5 up or down is out
  EXPECT_EQ(control.MapPixelToNearestFadePoint(at.x + 11, at.y, *clip), -1);
  // Between two close points, the closer across wins.
  TDPixelPoint const next = control.FadePointPixel(*clip, clip->GetFadeListByType(FadeTypeVolume)[2]);
  EXPECT_EQ(control.MapPixelToNearestFadePoint(next.x - 1, next.y, *clip), 2);

  // Dragged far right it stops a millisecond before its neighbour; its level follows.
  ASSERT_TRUE(control.DragFadePoint(190, TDProjectControl::MapAmplitudeToPixelY(0.5, 0, 98), *clip, 1));
  TDClipFadePoint const& moved = clip->GetFadeListByType(FadeTypeVolume)[1];
  EXPECT_EQ(moved.iPosition, 599);
  EXPECT_NEAR(moved.dValue, 0.5, 1.0 / 42);
  // The end points keep their times; levels past the body clamp.
  ASSERT_TRUE(control.DragFadePoint(150, 500, *clip, 3));
  EXPECT_EQ(clip->GetFadeListByType(FadeTypeVolume)[3].iPosition, 2000);
  EXPECT_EQ(clip->GetFadeListByType(FadeTypeVolume)[3].dValue, -1.0);
  // A pan track shows, and drags, the pan line.
  project.Tracks.GetTrack(0)->iFadeTypeShown = FadeTypePan;
  clip->GetFadeListByType(FadeTypePan) = {{0.0, 0, FadeTypePan}, {0.0, 2000, FadeTypePan}};
  EXPECT_EQ(control.MapPixelToNearestFadePoint(at.x, at.y, *clip), -1);
  EXPECT_FALSE(control.DragFadePoint(150, 20, *clip, 2));  // no third pan point
  clip->bLocked = true;
  EXPECT_FALSE(control.DragFadePoint(150, 20, *clip, 0));
  EXPECT_EQ(clip->GetFadeListByType(FadeTypePan)[0].dValue, 0.0);
}

}  // namespace
