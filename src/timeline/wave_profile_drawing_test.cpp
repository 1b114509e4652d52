#include "timeline/wave_profile_drawing.h"

#include <gtest/gtest.h>

namespace {

TEST(WaveProfileDrawing, ColumnsReachTheirPeaksAroundTheMiddle) {
  std::uint8_t const upper[4] = {0, 255, 128, 51};
  std::uint8_t const lower[4] = {0, 255, 64, 255};
  TDWaveProfileGeometry g;
  TDLayoutWaveProfile(upper, lower, 4, 100, 61, 0, 0, g);
  ASSERT_EQ(g.vLines.size(), 4u);
  // Half height 30, middle at 130.
  EXPECT_EQ(g.vLines[0].iTop, 130);
  EXPECT_EQ(g.vLines[0].iBottom, 130);  // silence still shows as the zero line
  EXPECT_EQ(g.vLines[1].iTop, 100);
  EXPECT_EQ(g.vLines[1].iBottom, 160);
  EXPECT_EQ(g.vLines[2].iTop, 130 - 15);  // 128/255 x 30 = 15.06
  EXPECT_EQ(g.vLines[2].iBottom, 130 + 7);
  EXPECT_EQ(g.vLines[3].iTop, 130 - 6);
  for (auto const& line : g.vLines) {
    EXPECT_GE(line.iTop, 100);
    EXPECT_LT(line.iBottom, 161);
  }
  // Without a selection every column is in the first stretch.
  EXPECT_EQ(g.aStretches[0].iTo, 4);
  EXPECT_EQ(g.aStretches[1].iFrom, g.aStretches[1].iTo);
}

TEST(WaveProfileDrawing, SelectionIsClampedOrderedAndSplitsTheColumns) {
  std::vector<std::uint8_t> flat(200, 10);
  TDWaveProfileGeometry g;
  TDLayoutWaveProfile(flat.data(), flat.data(), 200, 0, 50, 150, 40, g);
  EXPECT_EQ(g.aStretches[0].iFrom, 0);
  EXPECT_EQ(g.aStretches[0].iTo, 40);
  EXPECT_TRUE(g.aStretches[1].bSelected);
  EXPECT_EQ(g.aStretches[1].iTo, 150);
  EXPECT_EQ(g.aStretches[2].iTo, 200);
  // A selection reaching past the clip on both sides keeps the edge columns out.
  TDLayoutWaveProfile(flat.data(), flat.data(), 200, 0, 50, -500, 9000, g);
  EXPECT_EQ(g.aStretches[1].iFrom, 1);
  EXPECT_EQ(g.aStretches[1].iTo, 199);
  // The buffer is kept for the next, narrower clip.
  auto const* data = g.vLines.data();
  TDLayoutWaveProfile(flat.data(), flat.data(), 20, 0, 50, 0, 0, g);
  EXPECT_EQ(g.vLines.data(), data);
  EXPECT_EQ(g.vLines.size(), 20u);
}

}  // namespace
