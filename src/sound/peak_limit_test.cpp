#include "sound/peak_limit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "sound/testing_sources.h"

namespace {

constexpr float kCeiling = LSoundPeakInRange;
constexpr int kRate = 44100;

// A 1 kHz sine at 0.5 with, from 0.5 s to 1.5 s, a sustained stretch 12 dB above
// full scale that starts without warning, and single +12 dB spikes after it.
float LoudPassages(int frame, int channel) {
  double const s = std::sin(2.0 * std::numbers::pi * 1000.0 * frame / kRate + channel);
  if (frame >= kRate / 2 && frame < 3 * kRate / 2) return static_cast<float>(3.981 * s);
  if (frame == 2 * kRate || frame == 2 * kRate + 7) return channel == 0 ? 3.981f : -3.981f;
  return static_cast<float>(0.5 * s);
}

LSoundSource Loud(int end = 4 * kRate) {
  return LSoundSource::Make<LTestFunctionSource>(kRate, 2, end, LoudPassages, LSoundPeakUnknown);
}

float PeakOf(std::vector<float> const& v, std::size_t from = 0, std::size_t to = SIZE_MAX) {
  float peak = 0.0f;
  for (std::size_t i = from; i < std::min(to, v.size()); ++i) peak = std::max(peak, std::fabs(v[i]));
  return peak;
}

long Ask(LSoundSource const& s, int code, long value = 0) {
  EXPECT_TRUE(s->ControlMessage(code, &value));
  return value;
}

}  // namespace

TEST(PeakLimit, NothingLeavesAboveTheCeiling) {
  // Odd read sizes, so reads straddle the limiter's blocks in every way.
  for (int readSize : {1, 441, 1260, 8192}) {
    LSoundSource lim = LSPPeakLimit().OpenSource(Loud());
    ASSERT_NE(dynamic_cast<LSRCPeakLimit*>(lim.Get()), nullptr);
    std::vector<float> out = ReadAll(lim, 4 * kRate, readSize);
    EXPECT_LE(PeakOf(out), kCeiling) << "reads of " << readSize;
    // Limiting is not muting: the loud stretch still comes out near the ceiling.
    EXPECT_GT(PeakOf(out, kRate * 2, kRate * 2 + 2000), 0.9f);
  }

  // Another ceiling, and a mono spike of a single sample at the very start.
  LSoundSource spike = LSoundSource::Make<LTestFunctionSource>(
      8000, 1, 1000, [](int f, int) { return f == 0 ? 8.0f : 0.1f; }, LSoundPeakUnknown);
  LSoundSource lim = LSPPeakLimit(0.25f).OpenSource(spike);
  EXPECT_EQ(lim->GetPeakBound(), 0.25f);
  std::vector<float> out = ReadAll(lim, 1000, 100);
  EXPECT_LE(PeakOf(out), 0.25f);
  EXPECT_GT(out[0], 0.2f);
}

TEST(PeakLimit, QuietPassagesComeThroughUntouchedAndInTime) {
  LSoundSource lim = LSPPeakLimit().OpenSource(Loud());
  std::vector<float> out = ReadAll(lim, 4 * kRate, 1000);
  int const b = static_cast<LSRCPeakLimit*>(lim.Get())->GetBlockFrames();
  EXPECT_EQ(b, kRate / 35);
  auto same = [&](int from, int to) {
    for (int f = from; f < to; ++f) {
      for (int c = 0; c < 2; ++c) {
        if (out[2 * f + c] != LoudPassages(f, c)) return false;
      }
    }
    return true;
  };
  // The gain only starts falling three blocks ahead of the loud stretch...
  EXPECT_TRUE(same(0, kRate / 2 - 3 * b));
  // ...and is back to exactly 1 some blocks after the last spike.
  EXPECT_TRUE(same(2 * kRate + 8 * b, 4 * kRate));
  // Frame p of the output is frame p of the source: the look-ahead delays the
  // reading, not the sound. The gain only scales, never flips or shifts.
  for (int f = kRate / 2; f < 3 * kRate / 2; f += 97) {
    float const in = LoudPassages(f, 0);
    if (std::fabs(in) > 0.5f) {
      EXPECT_GT(out[2 * f] * in, 0.0f) << f;
      EXPECT_LT(std::fabs(out[2 * f]), std::fabs(in)) << f;
    }
  }
}

TEST(PeakLimit, LookAheadPositionAndEnd) {
  auto* src = new LTestFunctionSource(kRate, 2, 100000, LoudPassages, LSoundPeakUnknown);
  LSoundSource below(src);
  LSoundSource lim = LSPPeakLimit().OpenSource(below);
  int const b = kRate / 35;

  EXPECT_EQ(Ask(lim, LSoundControl::GetLookAhead), 0);  // nothing read yet
  EXPECT_EQ(lim->GetPositionSample(), 0);
  std::vector<float> buf(2 * 2000);
  lim->Read(buf.data(), 100);
  EXPECT_EQ(src->GetPositionSample(), 3 * b);
  EXPECT_EQ(Ask(lim, LSoundControl::GetLookAhead), 3 * b - 100);
  EXPECT_EQ(lim->GetPositionSample(), 100);
  lim->Read(buf.data(), 2000);
  EXPECT_EQ(lim->GetPositionSample(), 2100);
  EXPECT_EQ(Ask(lim, LSoundControl::GetLookAhead), 4 * b - 2100);

  // Position correction subtracts the look-ahead and passes on down.
  src->codes.clear();
  EXPECT_EQ(Ask(lim, LSoundControl::PositionCorrection, 50000), 50000 - (4 * b - 2100));
  EXPECT_EQ(src->codes, (std::vector<int>{LSoundControl::TranslateOffset, LSoundControl::PositionCorrection}));
  // A stage below that translates offsets changes what the look-ahead amounts to.
  src->iTakeCode = LSoundControl::TranslateOffset;
  EXPECT_EQ(Ask(lim, LSoundControl::PositionCorrection, 50000), 50000 - (4 * b - 2100) + 1000);
  // Codes it does not know go down; a null value is not touched.
  src->iTakeCode = LSoundControl::FoldIntoLoop;
  EXPECT_EQ(Ask(lim, LSoundControl::FoldIntoLoop, 7), 1007);
  EXPECT_FALSE(lim->ControlMessage(LSoundControl::GetLookAhead, nullptr));

  lim->Seek(70000);  // past the loud stretch, where nothing is limited
  EXPECT_EQ(lim->GetPositionSample(), 70000);
  EXPECT_EQ(Ask(lim, LSoundControl::GetLookAhead), 3 * b);
  lim->Read(buf.data(), 10);
  for (int f = 0; f < 10; ++f) EXPECT_EQ(buf[2 * f], LoudPassages(70000 + f, 0));

  EXPECT_EQ(lim->GetEndSample(), 100000);
  src->bStreaming = true;
  EXPECT_EQ(lim->GetEndSample(), 100000 - 3 * b);
}

TEST(PeakLimit, BlockLengthFollowsRateAndStreaming) {
  auto blockFor = [](int rate, bool streaming) {
    auto* src = new LTestFunctionSource(rate, 1, 10, TestRamp, LSoundPeakUnknown);
    src->bStreaming = streaming;
    return LSRCPeakLimit(LSoundSource(src), kCeiling).GetBlockFrames();
  };
  EXPECT_EQ(blockFor(48000, false), 48000 / 35);
  EXPECT_EQ(blockFor(48000, true), 48000 / 70);
  EXPECT_EQ(blockFor(500, false), 16);  // below 560 frames a second
  EXPECT_EQ(blockFor(384000, false), LSoundMaxReadFrames);
}

TEST(PeakLimit, ClipFlagIsSetByLimitingAndClearedByAsking) {
  // In range, but stated as unknown: a limiter stands and has nothing to do.
  LSoundSource quiet = LSPPeakLimit().OpenSource(LSoundSource::Make<LTestFunctionSource>(
      kRate, 2, kRate, [](int f, int) { return (f % 2) ? 0.9f : -0.9f; }, LSoundPeakUnknown));
  std::vector<float> out = ReadAll(quiet, kRate, 4096);
  EXPECT_EQ(Ask(quiet, LSoundControl::GetLimitingFlag, 55), 0);
  EXPECT_EQ(out[0], -0.9f);

  LSoundSource loud = LSPPeakLimit().OpenSource(Loud());
  ReadAll(loud, kRate / 4);
  EXPECT_EQ(Ask(loud, LSoundControl::GetLimitingFlag), 0);
  ReadAll(loud, kRate / 2);
  EXPECT_EQ(Ask(loud, LSoundControl::GetLimitingFlag), 1);
  EXPECT_EQ(Ask(loud, LSoundControl::GetLimitingFlag), 0);
}

TEST(PeakLimit, OpensOnlyWhenThePeakBoundCallsForIt) {
  LSoundSource inRange = MakeRampSource(kRate, 2, 100);  // states 32767/32768
  EXPECT_EQ(LSPPeakLimit().OpenSource(inRange).Get(), inRange.Get());
  LSoundSource atHalf = LSoundSource::Make<LTestFunctionSource>(kRate, 2, 100, TestRamp, 0.5f);
  EXPECT_EQ(LSPPeakLimit(0.5f).OpenSource(atHalf).Get(), atHalf.Get());
  EXPECT_NE(LSPPeakLimit(0.4f).OpenSource(atHalf).Get(), atHalf.Get());

  LSoundSource loud = Loud();
  LSoundSource lim = LSPPeakLimit().OpenSource(loud);
  EXPECT_NE(lim.Get(), loud.Get());
  EXPECT_EQ(lim->GetPeakBound(), kCeiling);
  EXPECT_EQ(lim->GetSampleRate(), kRate);
  EXPECT_EQ(lim->GetChannels(), 2);
  // A limited chain needs no second limiter.
  EXPECT_EQ(LSPPeakLimit().OpenSource(lim).Get(), lim.Get());

  LSoundSource bad;
  EXPECT_EQ(LSPPeakLimit().OpenSource(bad).Get(), bad.Get());
  // Built by hand over a bad source, it says so and gives silence.
  LSRCPeakLimit overBad(bad, kCeiling);
  EXPECT_EQ(overBad.GetErrorState(), LSoundErrorBelow);
  float buf[4] = {1, 2, 3, 4};
  overBad.Read(buf, 4);
  EXPECT_EQ(buf[0] + buf[1] + buf[2] + buf[3], 0.0f);
}
