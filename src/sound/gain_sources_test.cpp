#include "sound/gain_sources.h"

#include <gtest/gtest.h>

#include <cmath>
#include <typeinfo>
#include <vector>

#include "sound/testing_sources.h"

namespace {

float Sample(int frame, int channel) {
  return 0.001f * static_cast<float>(frame - 50) + 0.25f * channel;
}

LSoundSource Source(int channels, float peak = LSoundPeakInRange) {
  return LSoundSource::Make<LTestFunctionSource>(44100, channels, 1000, Sample, peak);
}

}  // namespace

TEST(GainSources, PlainGainScalesAndStatesItsPeakBound) {
  LSoundSource half = LSoundSource::Make<LSRCGain>(Source(2), 0.5f);
  EXPECT_EQ(half->GetPeakBound(), LSoundPeakInRange);
  half->Seek(10);
  std::vector<float> out = ReadAll(half, 100, 33);
  for (int f = 0; f < 100; ++f) {
    for (int c = 0; c < 2; ++c) EXPECT_EQ(out[2 * f + c], Sample(10 + f, c) * 0.5f);
  }

  LSoundSource up = LSoundSource::Make<LSRCGain>(Source(1), 2.0f);
  EXPECT_EQ(up->GetPeakBound(), LSoundPeakUnknown);
  EXPECT_EQ(ReadAll(up, 3)[2], Sample(2, 0) * 2.0f);
  EXPECT_EQ(LSRCGain(Source(1), -3.0f).GetPeakBound(), LSoundPeakUnknown);

  // Unity reads through bit for bit, values that a multiply would not change
  // included: a gain that is not quite 1 must still multiply.
  LSoundSource unity = LSoundSource::Make<LSRCGain>(Source(2), 1.0f);
  EXPECT_EQ(ReadAll(unity, 1000), ReadAll(Source(2), 1000));
  float const nearOne = std::nextafter(1.0f, 0.0f);
  EXPECT_NE(ReadAll(LSoundSource::Make<LSRCGain>(Source(2), nearOne), 1000), ReadAll(Source(2), 1000));

  EXPECT_EQ(LSRCGain(LSoundSource(), 0.5f).GetErrorState(), LSoundErrorBelow);
}

TEST(GainSources, FractionalDecibelsInterpolateInTheAmplitudeTable) {
  for (int dB = -126; dB <= 127; ++dB) {
    ASSERT_EQ(LdBAmplitudeInterpolated(static_cast<float>(dB)), LdBAmplitudeOf(static_cast<signed char>(dB)));
  }
  EXPECT_EQ(LdBAmplitudeInterpolated(0.0f), 1.0f);
  float const a = LdBAmplitudeOf(-7);
  float const b = LdBAmplitudeOf(-6);
  EXPECT_FLOAT_EQ(LdBAmplitudeInterpolated(-6.5f), a + (b - a) * 0.5f);
  EXPECT_FLOAT_EQ(LdBAmplitudeInterpolated(-6.75f), a + (b - a) * 0.25f);
  // The straight line in amplitude stays within 0.02 dB of the true level.
  for (float dB = -60.0f; dB < 24.0f; dB += 0.1f) {
    float const got = 20.0f * std::log10(LdBAmplitudeInterpolated(dB));
    ASSERT_NEAR(got, dB, 0.02f) << dB;
  }
  EXPECT_EQ(LdBAmplitudeInterpolated(-127.0f), 0.0f);
  EXPECT_EQ(LdBAmplitudeInterpolated(-300.0f), 0.0f);
  EXPECT_EQ(LdBAmplitudeInterpolated(std::nanf("")), 0.0f);
  EXPECT_GT(LdBAmplitudeInterpolated(-126.5f), 0.0f);
  EXPECT_LT(LdBAmplitudeInterpolated(-126.5f), LdBAmplitudeOf(-126));
  EXPECT_EQ(LdBAmplitudeInterpolated(200.0f), LdBAmplitudeOf(127));
}

TEST(GainSources, EachChannelTakesItsOwnLevel) {
  // Whole and fractional dB, on the stereo path and on the general one.
  for (int channels : {2, 3}) {
    LDBMultiChannel<float> levels(channels);
    levels[0] = -6.0f;
    levels[1] = -3.5f;
    if (channels > 2) levels[2] = 0.0f;
    LSoundSource g = LSoundSource::Make<LSRCGainMultiChannels>(Source(channels, 0.75f), levels);
    EXPECT_EQ(g->GetPeakBound(), 0.75f);
    // -3.5 dB lies halfway between the entries of -4 and -3 dB.
    float const half = LdBAmplitudeOf(-4) + (LdBAmplitudeOf(-3) - LdBAmplitudeOf(-4)) * 0.5f;
    float const want[3] = {LdBAmplitudeOf(-6), half, 1.0f};
    std::vector<float> out = ReadAll(g, 1000, 300);
    for (int f = 0; f < 1000; ++f) {
      for (int c = 0; c < channels; ++c) {
        ASSERT_EQ(out[static_cast<std::size_t>(f * channels + c)], Sample(f, c) * want[c]) << f << " " << c;
      }
    }
  }

  // Fewer gains than channels: the rest keep their level.
  float const gains[] = {0.5f, 0.0f};
  LSoundSource four = LSoundSource::Make<LSRCGainMultiChannels>(Source(4), std::span<float const>(gains));
  std::vector<float> out = ReadAll(four, 5);
  for (int f = 0; f < 5; ++f) {
    EXPECT_EQ(out[4 * f], Sample(f, 0) * 0.5f);
    EXPECT_EQ(out[4 * f + 1], 0.0f);
    EXPECT_EQ(out[4 * f + 2], Sample(f, 2));
    EXPECT_EQ(out[4 * f + 3], Sample(f, 3));
  }
}
