#include "timeline/time_beat_mapper.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::vector<LTempoChange> Song() {
  // 120 BPM, 60 from beat 2, 180 from beat 10.
  return {{-32768.0, 120.0}, {2.0, 60.0}, {10.0, 180.0}};
}

TEST(TimeBeatMapper, TimesOfBeatsAcrossTempoChanges) {
  std::vector<LTempoChange> const one{{-32768.0, 120.0}};
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(4.0, one, 0.0, 0), 2000);
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(-1.0, one, 0.0, 0), -500);
  std::vector<LTempoChange> const song = Song();
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(4.0, song, 0.0, 0), 3000);
  // 2 beats at 120, 8 at 60, 2 at 180.
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(12.0, song, 0.0, 0), 1000 + 8000 + 667);
  // From a known point backwards: beat 0 seen from beat 12.
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(0.0, song, 12.0, 9667), 0);
  // Before the first change its tempo holds.
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(-40000.0, song, 0.0, 0), -20000000);
  // Halves round away from zero: a third of a beat at 180 BPM is 111.1 ms, a
  // quarter beat at 120 is exactly 125, 0.001 beat at 60 is exactly 1 ms.
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(2.001, song, 2.0, 0), 1);
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(0.0025, one, 0.0, 0), 1);    // 1.25 ms
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(0.003, one, 0.0, 0), 2);     // 1.5 ms
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(-0.003, one, 0.0, 0), -2);   // -1.5 ms
  EXPECT_EQ(LTimeBeatMapper::GetTimeFromBeat(7.0, song, 7.0 + 1e-17, 55), 55);
}

TEST(TimeBeatMapper, BeatsOfTimesInvertTheTimesBothWays) {
  std::vector<LTempoChange> const song = Song();
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(3000, song, 0, 0.0), 4.0);
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(9000, song, 0, 0.0), 10.0);
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(10000, song, 0, 0.0), 13.0);
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(0, song, 10000, 13.0), 0.0);
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(-1000, song, 0, 0.0), -2.0);
  EXPECT_DOUBLE_EQ(LTimeBeatMapper::GetBeatFromTime(500, song, 500, 7.5), 7.5);

  // From any known pair, time → beat → time comes back to the ms.
  std::mt19937 random(7);
  std::uniform_int_distribution<int> time(-5000, 60000);
  for (int i = 0; i < 500; ++i) {
    LSoundTime const from = time(random);
    double const fromBeat = LTimeBeatMapper::GetBeatFromTime(from, song, 0, 0.0);
    LSoundTime const t = time(random);
    double const beat = LTimeBeatMapper::GetBeatFromTime(t, song, from, fromBeat);
    ASSERT_EQ(LTimeBeatMapper::GetTimeFromBeat(beat, song, 0.0, 0), t) << from << " " << t;
  }
}

}  // namespace
