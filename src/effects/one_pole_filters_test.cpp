#include "effects/one_pole_filters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "effects/table_effects.h"
#include "sound/testing_sources.h"

namespace {

constexpr int kRate = 44100;

LSoundSource Sine(double hz, int channels = 1) {
  return LSoundSource::Make<LTestFunctionSource>(kRate, channels, kRate * 4, [hz](int frame, int) {
    return static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * hz * frame / kRate));
  });
}

// Peak of the output once the filter has settled: a second in, over a second.
double SettledPeak(LSoundSource const& s) {
  ReadAll(s, kRate);
  std::vector<float> const tail = ReadAll(s, kRate);
  double peak = 0.0;
  for (float v : tail) peak = std::max(peak, static_cast<double>(std::fabs(v)));
  return peak;
}

// The filters' coefficient as a fraction, worked out here from the corner:
// 256ths, whole, doubled over a source that stays in range.
double Alpha(int corner) {
  double const k = std::trunc((1.0 - std::exp(-2.0 * std::numbers::pi * corner / kRate)) * 256.0) * 2.0;
  return k / 256.0;
}

// y[n] = x[n] - w[n], w[n+1] = w[n] + a (x[n] - w[n]): H = (1 - z^-1) / (1 - (1 - a) z^-1).
double HighPassGain(int corner, double hz) {
  double const a = Alpha(corner);
  std::complex<double> const zi = std::polar(1.0, -2.0 * std::numbers::pi * hz / kRate);
  return std::abs((1.0 - zi) / (1.0 - (1.0 - a) * zi));
}

// w[n+1] = w[n] + a (x[n] - w[n]), y[n] = w[n+1]: H = a / (1 - (1 - a) z^-1).
double LowPassGain(int corner, double hz) {
  double const a = Alpha(corner);
  std::complex<double> const zi = std::polar(1.0, -2.0 * std::numbers::pi * hz / kRate);
  return std::abs(a / (1.0 - (1.0 - a) * zi));
}

TEST(OnePoleFilters, AmplifyAtTwoHundredPercentDoublesTheSamples) {
  LSPGain amplify;
  int const percent = 200;
  amplify.SetParameterByIndex(0, &percent);
  LSoundSource out = amplify.OpenSource(MakeRampSource(kRate, 2, 1000));
  EXPECT_GT(out->GetPeakBound(), 1.0f);  // may pass full scale: the limiter must know
  std::vector<float> const samples = ReadAll(out, 500, 128);
  for (int f = 0; f < 500; ++f) {
    for (int c = 0; c < 2; ++c) ASSERT_EQ(samples[static_cast<std::size_t>(f * 2 + c)], 2.0f * TestRamp(f, c));
  }
}

TEST(OnePoleFilters, HighPassAtTwoHundredHertzCutsHumAndKeepsTheVoice) {
  LSPHighPass filter(200);
  double const low = SettledPeak(filter.OpenSource(Sine(50)));
  double const high = SettledPeak(filter.OpenSource(Sine(2000)));
  EXPECT_NEAR(low, 0.5 * HighPassGain(200, 50), 0.002);
  EXPECT_NEAR(high, 0.5 * HighPassGain(200, 2000), 0.002);
  EXPECT_LT(low, 0.5 * 0.2);    // well below
  EXPECT_GT(high, 0.5 * 0.98);  // through
}

TEST(OnePoleFilters, LowPassFollowsItsOwnCurve) {
  LSPLowPass filter;  // 1600 Hz
  EXPECT_NEAR(SettledPeak(filter.OpenSource(Sine(100))), 0.5 * LowPassGain(1600, 100), 0.002);
  EXPECT_NEAR(SettledPeak(filter.OpenSource(Sine(8000))), 0.5 * LowPassGain(1600, 8000), 0.002);
}

TEST(OnePoleFilters, TheCoefficientDoublesOnlyOverSourcesThatStayInRange) {
  EXPECT_EQ(LSRCOnePoleCoefficient(200, kRate, LSoundPeakInRange), 14);
  EXPECT_EQ(LSRCOnePoleCoefficient(200, kRate, 16.0f), 7);
  LSoundSource loud = LSoundSource::Make<LTestFunctionSource>(kRate, 1, 10, TestRamp, 16.0f);
  auto* filter = new LSRCHighPass(loud, 200);
  LSoundSource const held(filter);
  EXPECT_EQ(filter->GetK(), 7);
}

TEST(OnePoleFilters, AHighPassSeekWarmsItsStateAndChannelsStayApart) {
  // A tone on the left and a different one on the right.
  auto stereo = [] {
    return LSoundSource::Make<LTestFunctionSource>(kRate, 2, kRate, [](int frame, int channel) {
      double const hz = channel == 0 ? 60.0 : 3000.0;
      return static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * hz * frame / kRate));
    });
  };
  LSoundSource const straight = LSoundSource::Make<LSRCHighPass>(stereo(), 200);
  std::vector<float> const run = ReadAll(straight, 5000);

  auto* sought = new LSRCHighPass(stereo(), 200);
  LSoundSource const s(sought);
  ReadAll(s, 300);
  sought->Seek(4000);
  EXPECT_EQ(sought->GetPositionSample(), 4000);
  std::vector<float> const after = ReadAll(s, 1000);
  for (std::size_t i = 0; i < after.size(); ++i) ASSERT_NEAR(after[i], run[8000 + i], 1e-4) << i;

  // The low pass clears its state and leaves the source where it stands.
  auto* low = new LSRCLowPass(stereo(), 1600);
  LSoundSource const l(low);
  ReadAll(l, 300);
  low->Seek(4000);
  EXPECT_EQ(low->GetPositionSample(), 300);
}

}  // namespace
