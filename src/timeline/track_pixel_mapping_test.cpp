#include "timeline/track_pixel_mapping.h"

#include <gtest/gtest.h>

namespace {

class TrackPixelMappingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TDTrackPixelMapping::dZoomFactorV = 1.0;
    for (int i = 0; i < 3; ++i) tracks.AddTrack();
  }
  void TearDown() override { TDTrackPixelMapping::dZoomFactorV = 1.0; }

  TDTrack& Track(int i) { return *tracks.GetTrack(i); }

  TDTracksManager tracks;
  TDTrackPixelMapping map{tracks};
};

TEST_F(TrackPixelMappingTest, HeightsFollowZoomCollapseAndShownRows) {
  TDTrackPixelMapping::dZoomFactorV = 0.5;  // below 1 the body keeps its size
  EXPECT_EQ(map.GetTrackHeight(0), 98);
  TDTrackPixelMapping::dZoomFactorV = 1.55;
  EXPECT_EQ(map.GetTrackHeight(0), 151);  // 151.9 truncated
  TDTrackPixelMapping::dZoomFactorV = 1.0;

  Track(0).bCollapsed = true;
  Track(1).Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0);
  Track(1).EffectAutomation.AddTrackAutomation(LCountedPtr<TDSPAutomation>(new TDSPVSTAutomation("Mix")), 0);
  Track(1).EffectAutomation.GetAutomationTrack(0)->iHeightDialogUnits = 10;
  EXPECT_EQ(map.GetTrackHeight(0), 24);
  EXPECT_EQ(map.GetTrackHeight(1), 98 + 2 * (25 + 10));
  EXPECT_EQ(map.GetAllTracksHeightPixels(), 24 + 168 + 98);
  Track(1).bAutomationHidden = true;
  EXPECT_EQ(map.GetTrackHeight(1), 98);
  Track(1).bAutomationHidden = false;
  Track(1).bCollapsed = true;  // a collapsed track hides its rows too
  EXPECT_EQ(map.GetTrackHeight(1), 24);
}

TEST_F(TrackPixelMappingTest, PixelsMapToTracksAndRowsAndBack) {
  Track(1).Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0);
  Track(1).Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypePan), 0);
  // Track 0: 0..97; track 1: body 98..195, rows 196..245 and 246..295; track 2: 296..393.
  EXPECT_EQ(map.GetTrackYPixel(1), 98);
  EXPECT_EQ(map.MapTrackIndexToPixelY(1), 100);
  EXPECT_EQ(map.MapTrackIndexToPixelY(2), 298);
  EXPECT_EQ(map.MapPixelYToTrackIndex(97), 0);
  EXPECT_EQ(map.MapPixelYToTrackIndex(98), 1);
  EXPECT_EQ(map.MapPixelYToTrackIndex(295), 1);
  EXPECT_EQ(map.MapPixelYToTrackIndex(296), 2);
  EXPECT_EQ(map.MapPixelYToTrackIndex(5000), 2);  // past the last: the last
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(150), -1);
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(196), 0);
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(245), 0);
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(246), 1);
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(300), -1);
  EXPECT_EQ(map.MapPixelYToSubTrackIndex(5000), -1);
  EXPECT_EQ(map.MapSubTrackIndexToPixelY(1, 1), 246);
  for (int row = 0; row < 2; ++row) EXPECT_EQ(map.MapPixelYToSubTrackIndex(map.MapSubTrackIndexToPixelY(1, row)), row);
  EXPECT_TRUE(map.IsPixelYInAnyTrack(393));
  EXPECT_FALSE(map.IsPixelYInAnyTrack(394));
  EXPECT_FALSE(map.IsPixelYInAnyTrack(-1));

  TDTracksManager none;
  TDTrackPixelMapping empty(none);
  EXPECT_EQ(empty.MapPixelYToTrackIndex(40), 0);
  EXPECT_EQ(empty.GetAllTracksHeightPixels(), 0);
}

}  // namespace
