#include "sound/cross_fade_source.h"

#include <gtest/gtest.h>

#include "sound/testing_sources.h"

namespace {

TEST(CrossFade, PassesThroughAndRemembers) {
  LCrossFadeSource cfs;
  LSoundSource s = cfs.OpenSource(MakeRampSource(48000, 2, 10000));
  std::vector<float> const out = ReadAll(s, 3000, 700);
  for (int f = 0; f < 3000; ++f) ASSERT_EQ(out[2 * f], TestRamp(f, 0));
  EXPECT_EQ(cfs.GetIndex(), 6000);
  EXPECT_FALSE(cfs.IsFadeArmed());
  EXPECT_EQ(s->GetEndSample(), 10000);  // the rest passes down
  s->Seek(50);
  EXPECT_EQ(s->GetPositionSample(), 50);
}

TEST(CrossFade, ASwapStartsWhereTheOldSourceWouldHaveGoneOn) {
  // The player read frames 0..3999 of A; 1000 of them were dropped from its ring
  // unheard, so B takes over at frame 3000. Its first read starts exactly on A's
  // frame 3000 and ends on B, in a straight line between them.
  auto a = [](int f, int c) { return 1000.0f + static_cast<float>(f) + static_cast<float>(c) * 0.5f; };
  auto b = [](int f, int c) { return -static_cast<float>(f) - static_cast<float>(c) * 0.5f; };
  LCrossFadeSource cfs;
  LSoundSource sa = cfs.OpenSource(LSoundSource::Make<LTestFunctionSource>(48000, 2, 100000, a));
  ReadAll(sa, 4000, 1000);
  cfs.ArmFade(1000);
  LSoundSource sb = cfs.OpenSource(LSoundSource::Make<LTestFunctionSource>(48000, 2, 100000, b));
  sb->Seek(3000);
  int const n = 400;
  std::vector<float> const out = ReadAll(sb, n);
  for (int f = 0; f < n; ++f) {
    for (int c = 0; c < 2; ++c) {
      float const ramp = static_cast<float>(f) / n;
      float const want = b(3000 + f, c) * ramp + a(3000 + f, c) * (1.0f - ramp);
      ASSERT_NEAR(out[2 * f + c], want, 1e-2f) << f << "/" << c;
    }
  }
  EXPECT_EQ(out[0], a(3000, 0));
  EXPECT_FALSE(cfs.IsFadeArmed());
  // After the one read it is B alone, and what it delivered is the history now.
  std::vector<float> const after = ReadAll(sb, 10);
  EXPECT_EQ(after[0], b(3000 + n, 0));
}

TEST(CrossFade, NoFadeFromNothingOrAcrossChannelCounts) {
  LCrossFadeSource cfs;
  cfs.ArmFade(100);  // nothing played yet
  EXPECT_FALSE(cfs.IsFadeArmed());
  LSoundSource mono = cfs.OpenSource(MakeRampSource(48000, 1, 1000));
  ReadAll(mono, 500);
  cfs.ArmFade(10000);  // more than was ever kept: the fade starts from the oldest kept
  EXPECT_TRUE(cfs.IsFadeArmed());
  EXPECT_EQ(cfs.GetIndex(), 0);
  LSoundSource stereo = cfs.OpenSource(MakeRampSource(48000, 2, 1000));
  std::vector<float> const out = ReadAll(stereo, 100);
  EXPECT_EQ(out[2], TestRamp(1, 0));  // another channel count plays as it is
  cfs.Clear();
  EXPECT_FALSE(cfs.IsFadeArmed());
  EXPECT_EQ(cfs.GetIndex(), 0);
  // A bad source stays bad and unwrapped.
  LSoundSource bad;
  EXPECT_EQ(cfs.OpenSource(bad).Get(), bad.Get());
}

}  // namespace
