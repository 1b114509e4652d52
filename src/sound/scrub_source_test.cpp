#include "sound/scrub_source.h"

#include <gtest/gtest.h>

#include "sound/testing_sources.h"
#include "sound/tracks_db.h"

namespace {

// A source whose sample is its frame number, so what the window plays can be read
// back as frame numbers.
LSoundSource Frames(int rate) {
  return LSoundSource::Make<LTestFunctionSource>(rate, 1, 1000000, [](int f, int) { return static_cast<float>(f); });
}

TEST(ScrubSource, RepeatsTheWindowAroundThePointFadingEachTurnIn) {
  // At 1000 Hz: a window of 100 frames around 5000, a fade of 50, so [4950, 5000)
  // plays straight and each later turn's first 50 frames fade from 5000.. into 4950..
  LScrubSourceBase scrub(Frames(1000), 5000);
  EXPECT_EQ(scrub.GetWindowFrames(), 100);
  EXPECT_EQ(scrub.GetFadeFrames(), 50);
  EXPECT_EQ(scrub.GetLoopStart(), 4950);
  EXPECT_EQ(scrub.GetLoopEnd(), 5000);
  EXPECT_EQ(scrub.GetEndSample(), 0x7FFFFFFF);
  std::vector<float> out(300);
  scrub.Read(out.data(), 37);
  scrub.Read(out.data() + 37, 263);
  // The first turn has nothing to fade from.
  for (int f = 0; f < 50; ++f) ASSERT_EQ(out[f], 4950.0f + f);
  for (int turn = 1; turn < 6; ++turn) {
    for (int f = 0; f < 50; ++f) {
      float const w = f / 50.0f;
      float const want = (5000.0f + f) * (1 - w) + (4950.0f + f) * w;
      ASSERT_NEAR(out[turn * 50 + f], want, 1e-2f) << "turn " << turn << " frame " << f;
    }
  }
  // Each turn starts where the last one would have gone on: no step at the seam.
  EXPECT_EQ(out[49], 4999.0f);
  EXPECT_EQ(out[50], 5000.0f);
}

TEST(ScrubSource, AMovedPointFadesOnlyWhenComingFromAhead) {
  LScrubSourceBase scrub(Frames(1000), 5000);
  std::vector<float> out(60);
  scrub.Read(out.data(), 60);
  // Ahead of where it stands: the new window starts plain.
  scrub.SetPoint(8000);
  EXPECT_EQ(scrub.GetLoopStart(), 7950);
  scrub.Read(out.data(), 10);
  EXPECT_EQ(out[0], 7950.0f);
  // Back behind it: the turn fades in as any later turn does.
  scrub.Read(out.data(), 50);
  scrub.SetPoint(3000);
  EXPECT_EQ(scrub.GetLoopStart(), 2950);
  scrub.Read(out.data(), 10);
  EXPECT_EQ(out[0], 3000.0f);
  EXPECT_NEAR(out[5], 3005.0f * 0.9f + 2955.0f * 0.1f, 1e-2f);
  scrub.SetPoint(20);          // near 0 the window does not reach before the start
  EXPECT_EQ(scrub.GetLoopStart(), 0);
  EXPECT_EQ(scrub.GetLoopEnd(), 50);
  scrub.Seek(400);  // outside: the turn starts over
  EXPECT_EQ(scrub.GetPositionSample(), 0);
}

TEST(TracksDBHistory, TheMetersShowTheLatestLevelsThatAreDue) {
  TDTracksDBHistory history;
  auto record = std::make_unique<TDTracksDB>();
  for (LSoundTime t : {0, 30, 60, 90}) {
    record->iCurrentTime = t;
    record->Tracks[0].SetChannels(2);
    record->Tracks[0][0] = LdB<signed char>(static_cast<signed char>(-t / 10));
    ASSERT_TRUE(history.Add(*record));
  }
  EXPECT_EQ(history.Take(-5), nullptr);  // nothing heard yet
  TDTracksDB const* due = history.Take(65);
  ASSERT_NE(due, nullptr);
  EXPECT_EQ(due->iCurrentTime, 60);
  EXPECT_EQ(due->Tracks[0][0].Get(), -6);
  EXPECT_EQ(history.GetCount(), 2u);  // 60 held until the next look, and 90
  EXPECT_EQ(history.Take(70), nullptr);
  EXPECT_EQ(history.Take(1000)->iCurrentTime, 90);
  // The pump is never held up: a full history drops what does not fit.
  history.Clear();
  for (std::uint32_t i = 0; i < TDTracksDBHistory::Capacity; ++i) ASSERT_TRUE(history.Add(*record));
  EXPECT_FALSE(history.Add(*record));
  history.Clear();
  EXPECT_EQ(history.GetCount(), 0u);
  EXPECT_TRUE(history.Add(*record));
}

}  // namespace
