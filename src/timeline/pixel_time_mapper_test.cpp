#include "timeline/pixel_time_mapper.h"

#include <gtest/gtest.h>

namespace {

TEST(PixelSoundTimeMapper, ColumnsShowTheTimeAtTheirLeftEdgeBothWays) {
  // 1000 columns over 10 s starting at 2 s: 10 ms a column.
  TDPixelSoundTimeMapper const map(0, 1000, 2000, 12000);
  EXPECT_DOUBLE_EQ(map.GetMSPerPixel(), 10.0);
  EXPECT_EQ(map.MapPixelToSoundTime(0), 2000);
  EXPECT_EQ(map.MapPixelToSoundTime(37), 2370);
  EXPECT_EQ(map.MapSoundTimeToPixel(2379), 37);  // inside column 37
  EXPECT_EQ(map.MapSoundTimeToPixel(1990), -1);  // left of the view
  for (int p = 0; p <= 1000; p += 7) EXPECT_EQ(map.MapSoundTimeToPixel(map.MapPixelToSoundTime(p)), p);

  // Zoomed in past a millisecond a column, and a view not starting at pixel 0.
  TDPixelSoundTimeMapper const close(100, 900, 0, 200);
  EXPECT_DOUBLE_EQ(close.GetMSPerPixel(), 0.25);
  EXPECT_EQ(close.MapPixelToSoundTime(3), 0);  // 0.75 ms truncates
  EXPECT_EQ(close.MapSoundTimeToPixel(50), 300);
}

TEST(PixelSoundTimeMapper, DegenerateAndFarOffValuesStayInRange) {
  TDPixelSoundTimeMapper const flat(10, 10, 0, 5000);
  EXPECT_EQ(flat.GetMSPerPixel(), 0.0);
  EXPECT_EQ(flat.MapSoundTimeToPixel(4000), 10);
  TDPixelSoundTimeMapper const close(0, 2000, 0, 10);
  // Hours away while zoomed to 5 microseconds a column: clamped, not overflowed.
  EXPECT_GT(close.MapSoundTimeToPixel(2000000000), 1000000);
  EXPECT_LT(close.MapSoundTimeToPixel(-2000000000), -1000000);
  TDPixelSoundTimeMapper const wide(0, 1, 0, 2000000000);
  EXPECT_EQ(wide.MapPixelToSoundTime(5), 2147483647);
}

}  // namespace
