#include "sound/audio_buffer.h"

#include <gtest/gtest.h>

namespace {

TEST(AudioBuffer, PeakOfOneChannel) {
  float const frames[] = {0.1f, -0.9f, 0.0f, -0.2f, 0.5f, 0.3f};
  EXPECT_EQ(GetBufferPeakChan(frames, 3, 2, 0), 0.5f);
  EXPECT_EQ(GetBufferPeakChan(frames, 3, 2, 1), 0.9f);
  EXPECT_EQ(GetBufferPeakChan(frames, 2, 3, 2), 0.3f);
  EXPECT_EQ(GetBufferPeakChan(frames, 0, 2, 0), 0.0f);
  EXPECT_EQ(GetBufferPeakChan(frames, 3, 2, 2), 0.0f);  // no such channel
}

TEST(AudioBuffer, MeterLevelsRoundHalvesAwayFromZeroDB) {
  struct {
    float peak;
    int dB;
  } const cases[] = {
      {1.0f, 0},        {0.5f, -6},          {2.0f, 6},          {16.0f, 24},
      {0.94406f, -1},   // -0.5 dB: a half goes down, away from 0
      {1.0593f, 1},     // +0.502 dB: up to 1
      {0.95f, 0},       // -0.446 dB
      {4.467e-7f, -127}, {4.4e-7f, -127},   {0.0f, -127},       {1e30f, 127},
  };
  for (auto const& c : cases) EXPECT_EQ(LPeakToMeterDB(c.peak), c.dB) << c.peak;
}

}  // namespace
