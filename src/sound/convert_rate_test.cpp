#include "sound/convert_rate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "sound/convert_rate_kernels.h"
#include "sound/region_loop_sources.h"
#include "sound/testing_sources.h"

namespace {

constexpr double kPi = std::numbers::pi;

// Channel c is a 1 kHz sine of amplitude 0.5 / (c + 1), each channel at its own
// phase, so that a channel mixed up with another shows.
double ToneAmplitude(int channel) {
  return 0.5 / (channel + 1);
}
float Tone(int rate, int frame, int channel) {
  return static_cast<float>(ToneAmplitude(channel) * std::sin(2.0 * kPi * 1000.0 * frame / rate + 0.7 * channel));
}

LSoundSource ToneSource(int rate, int channels, int frames) {
  return LSoundSource::Make<LTestFunctionSource>(rate, channels, frames,
                                                 [rate](int f, int c) { return Tone(rate, f, c); });
}

struct SineFit {
  double amplitude;
  double phase;        // of sin(w n + phase) at n = 0 of the range
  double residualRms;  // what is left after the sine and any offset are taken away
};

// Least squares fit of a + b sin(w n) + c cos(w n) to one channel of frames
// [from, to), w being 2 pi freq / rate.
SineFit FitSine(std::vector<float> const& v, int channels, int channel, int from, int to, double freq, double rate) {
  double const w = 2.0 * kPi * freq / rate;
  double m[3][3] = {};
  double y[3] = {};
  for (int n = from; n < to; ++n) {
    double const basis[3] = {1.0, std::sin(w * (n - from)), std::cos(w * (n - from))};
    double const x = v[static_cast<std::size_t>(n) * channels + channel];
    for (int i = 0; i < 3; ++i) {
      y[i] += basis[i] * x;
      for (int j = 0; j < 3; ++j) m[i][j] += basis[i] * basis[j];
    }
  }
  // Gaussian elimination; the matrix is well conditioned over many periods.
  for (int i = 0; i < 3; ++i) {
    for (int k = i + 1; k < 3; ++k) {
      double const f = m[k][i] / m[i][i];
      for (int j = i; j < 3; ++j) m[k][j] -= f * m[i][j];
      y[k] -= f * y[i];
    }
  }
  double s[3];
  for (int i = 2; i >= 0; --i) {
    double acc = y[i];
    for (int j = i + 1; j < 3; ++j) acc -= m[i][j] * s[j];
    s[i] = acc / m[i][i];
  }
  double sq = 0.0;
  for (int n = from; n < to; ++n) {
    double const fit = s[0] + s[1] * std::sin(w * (n - from)) + s[2] * std::cos(w * (n - from));
    double const e = v[static_cast<std::size_t>(n) * channels + channel] - fit;
    sq += e * e;
  }
  return {std::hypot(s[1], s[2]), std::atan2(s[2], s[1]), std::sqrt(sq / (to - from))};
}

struct ToneResult {
  double levelErrorDb;
  double thdnDb;
  double frequency;
};

// Converts one second of tone and measures channel `channel` of the middle of it.
ToneResult MeasureTone(LSoundSource const& converted, int channel) {
  int const rate = converted->GetSampleRate();
  int const channels = converted->GetChannels();
  int const frames = converted->GetEndSample();
  std::vector<float> out = ReadAll(converted, frames, 1000);
  // Leave out the ends, where the filter reaches into the silence around the tone.
  int const from = rate / 10;
  int const to = frames - rate / 10;
  SineFit const all = FitSine(out, channels, channel, from, to, 1000.0, rate);
  // The frequency from the phase that each half has gathered at its start.
  int const mid = (from + to) / 2;
  SineFit const first = FitSine(out, channels, channel, from, mid, 1000.0, rate);
  SineFit const second = FitSine(out, channels, channel, mid, to, 1000.0, rate);
  double drift = second.phase - first.phase - 2.0 * kPi * 1000.0 * (mid - from) / rate;
  drift = std::remainder(drift, 2.0 * kPi);
  double const frequency = 1000.0 + drift / (2.0 * kPi * (mid - from) / rate);
  return {20.0 * std::log10(all.amplitude / ToneAmplitude(channel)),
          20.0 * std::log10(all.residualRms / (all.amplitude / std::sqrt(2.0))), frequency};
}

}  // namespace

TEST(ConvertRate, ToneKeepsItsFrequencyAndLevel) {
  struct Case {
    int from;
    int to;
    int channels;
    double maxThdn;
  };
  Case const cases[] = {
      {44100, 48000, 2, -60.0}, {48000, 44100, 2, -60.0}, {96000, 22050, 2, -60.0},
      {8000, 44100, 2, -60.0},  {44100, 48000, 1, -60.0}, {22050, 44100, 3, -60.0},
  };
  for (Case const& k : cases) {
    LSoundSource s = LSPConvertRate(k.to).OpenSource(ToneSource(k.from, k.channels, k.from));
    ASSERT_FALSE(s->IsError());
    ASSERT_EQ(s->GetSampleRate(), k.to);
    ASSERT_EQ(s->GetEndSample(), k.to);  // one second stays one second
    for (int c = 0; c < k.channels; ++c) {
      ToneResult const r = MeasureTone(s, c);
      std::string const name = std::to_string(k.from) + "->" + std::to_string(k.to) + " ch" + std::to_string(c) +
                               " of " + std::to_string(k.channels);
      std::printf("%s: level %+.4f dB, THD+N %.1f dB, frequency %.4f Hz\n", name.c_str(), r.levelErrorDb, r.thdnDb,
                  r.frequency);
      RecordProperty(name + " THD+N dB", std::to_string(r.thdnDb));
      EXPECT_NEAR(r.levelErrorDb, 0.0, 0.1) << name;
      EXPECT_LT(r.thdnDb, k.maxThdn) << name;
      EXPECT_NEAR(r.frequency, 1000.0, 0.01) << name;
      s->Seek(0);
    }
  }
}

TEST(ConvertRate, AFourfoldStepDownGoesThroughTwiceTheTarget) {
  LSoundSource s = LSPConvertRate(22050).OpenSource(ToneSource(96000, 2, 1000));
  auto* last = dynamic_cast<LSRCConvertRate*>(s.Get());
  ASSERT_NE(last, nullptr);
  auto* first = dynamic_cast<LSRCConvertRate*>(last->GetSource().Get());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->GetSampleRate(), 44100);
  EXPECT_EQ(first->GetUp(), 147);
  EXPECT_EQ(first->GetDown(), 320);
  EXPECT_EQ(last->GetUp(), 1);
  EXPECT_EQ(last->GetDown(), 2);

  // Exactly four times the target is one stage.
  LSoundSource one = LSPConvertRate(22050).OpenSource(ToneSource(88200, 2, 1000));
  auto* only = dynamic_cast<LSRCConvertRate*>(one.Get());
  ASSERT_NE(only, nullptr);
  EXPECT_EQ(dynamic_cast<LSRCConvertRate*>(only->GetSource().Get()), nullptr);
}

TEST(ConvertRate, SameRateOrBadSourceComesBackAsItWas) {
  LSoundSource same = ToneSource(48000, 2, 100);
  EXPECT_EQ(LSPConvertRate(48000).OpenSource(same).Get(), same.Get());
  LSoundSource bad;
  EXPECT_EQ(LSPConvertRate(48000).OpenSource(bad).Get(), bad.Get());

  LSRCConvertRate noRate(ToneSource(48000, 2, 100), 0);
  EXPECT_EQ(noRate.GetErrorState(), LSoundErrorParameters);
  EXPECT_EQ(noRate.GetSampleRate(), 44100);
  float buf[4] = {1, 1, 1, 1};
  noRate.Read(buf, 2);
  EXPECT_EQ(buf[0] + buf[1] + buf[2] + buf[3], 0.0f);
}

TEST(ConvertRate, RatiosInLowestTermsOrApproximated) {
  auto ratio = [](int in, int out, bool approximate) {
    int up = 0;
    int down = 0;
    LConvertRateBase::ChooseRatio(in, out, approximate, up, down);
    return std::pair(up, down);
  };
  EXPECT_EQ(ratio(44100, 48000, false), std::pair(160, 147));
  EXPECT_EQ(ratio(48000, 44100, false), std::pair(147, 160));
  EXPECT_EQ(ratio(8000, 44100, false), std::pair(441, 80));
  EXPECT_EQ(ratio(11025, 48000, false), std::pair(640, 147));
  EXPECT_EQ(ratio(44100, 48000, true), std::pair(160, 147));  // exact and small: no need to approximate
  // Too many phases for an exact table, asked for or not.
  for (bool approximate : {false, true}) {
    auto const [up, down] = ratio(44100, 47993, approximate);
    EXPECT_LE(up, 255);
    EXPECT_NEAR(static_cast<double>(down) / up, 44100.0 / 47993.0, 1e-4);
  }
  // Asked for, the approximation takes the place of an exact table of 640 phases.
  auto const [up, down] = ratio(11025, 48000, true);
  EXPECT_LE(up, 255);
  EXPECT_NEAR(static_cast<double>(down) / up, 11025.0 / 48000.0, 1e-4);
}

TEST(ConvertRate, SeekLandsOnTheFrameAReadWouldReach) {
  struct Case {
    int from;
    int to;
  };
  for (Case const k :
       {Case{44100, 48000}, Case{48000, 44100}, Case{96000, 22050}, Case{8000, 44100}, Case{44100, 47993}}) {
    int const inFrames = k.from * 2 / 3;
    std::string const name = std::to_string(k.from) + "->" + std::to_string(k.to);
    LSoundSource straight = LSPConvertRate(k.to).OpenSource(ToneSource(k.from, 2, inFrames));
    int const end = straight->GetEndSample();
    std::vector<float> all = ReadAll(straight, end, 999);
    EXPECT_EQ(straight->GetPositionSample(), end) << name;

    LSoundSource s = LSPConvertRate(k.to).OpenSource(ToneSource(k.from, 2, inFrames));
    for (int at : {end / 2, 1, 0, 12345, 777, end - 50}) {
      s->Seek(at);
      EXPECT_EQ(s->GetPositionSample(), at) << name;
      std::vector<float> got = ReadAll(s, 50);
      EXPECT_EQ(s->GetPositionSample(), at + 50) << name;
      for (int i = 0; i < 100; ++i) ASSERT_EQ(got[i], all[2 * at + i]) << name << " at " << at << " + " << i / 2;
    }
    // Before the start the input is silence, and the first frames are as ever.
    s->Seek(-400);
    EXPECT_EQ(s->GetPositionSample(), -400);
    std::vector<float> early = ReadAll(s, 450);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(early[800 + i], all[i]) << name;
    EXPECT_EQ(early[0], 0.0f) << name;
  }
}

TEST(ConvertRate, EndAndPositionConvertAndTheSourceIsReadNoFurtherThanNeeded) {
  EXPECT_EQ(LSPConvertRate(48000).OpenSource(ToneSource(44100, 1, 1000))->GetEndSample(), 1089);  // 1088.4
  EXPECT_EQ(LSPConvertRate(44100).OpenSource(ToneSource(48000, 1, 1000))->GetEndSample(), 919);   // 918.75
  EXPECT_EQ(LSPConvertRate(22050).OpenSource(ToneSource(96000, 1, 1000))->GetEndSample(), 230);   // 229.7
  EXPECT_EQ(LSPConvertRate(44100).OpenSource(ToneSource(8000, 1, 8000))->GetEndSample(), 44100);

  auto* src = new LTestFunctionSource(44100, 2, 1000, TestRamp);
  LSoundSource s = LSPConvertRate(48000).OpenSource(LSoundSource(src));
  std::vector<float> buf(2 * 480);
  s->Read(buf.data(), 480);
  // Frame 479 lies at input time 479 * 147 / 160 = 440.07; its filter ends at 471.
  EXPECT_EQ(src->GetPositionSample(), 472);
  EXPECT_EQ(s->GetPositionSample(), 480);
  // A growing source: the end leaves out the frames whose filter would reach past
  // what is there.
  src->bStreaming = true;
  EXPECT_EQ(s->GetEndSample(), 1055);  // (1000 - 31) * 160 / 147 = 1054.7

  // A converter made over a source that has moved on starts there.
  auto* moved = new LTestFunctionSource(48000, 1, 100000, TestRamp);
  moved->Seek(4800);
  LSoundSource late = LSPConvertRate(44100).OpenSource(LSoundSource(moved));
  EXPECT_EQ(late->GetPositionSample(), 4410);
  EXPECT_EQ(moved->GetPositionSample(), 4800);  // not sought back
}

TEST(ConvertRate, ALoopBelowFoldsOffsetsAtTheOutputsRate) {
  // A loop over input frames [4410, 8820) (0.1 s to 0.2 s at 44100) played at
  // 48000: a player asks where the sound it wrote `lag` frames ago lies, counted
  // from the converter's running position, which knows nothing of the loop.
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(ToneSource(44100, 2, 44100), 4410, 8820);
  loop->Seek(6615);  // 0.15 s
  LSoundSource s = LSPConvertRate(48000).OpenSource(loop);
  ASSERT_EQ(s->GetPositionSample(), 7200);
  // Nothing folds: an offset comes back exactly, at any position.
  EXPECT_EQ(s->AdjustRelativeOffset(-1000, 7200), -1000);
  EXPECT_EQ(s->AdjustRelativeOffset(-1, 7201), -1);
  // Read 0.2 s: the loop went round once, 0.1 s after the start it is at 0.15 s
  // again, while the converter counts on to 0.35 s.
  ReadAll(s, 9600, 512);
  int const here = s->GetPositionSample();
  EXPECT_EQ(here, 16800);
  // What played 0.1 s ago lies at 0.15 + 0.1 = 0.25 s, folded to 0.15 s: 7200.
  EXPECT_EQ(here + s->AdjustRelativeOffset(-4800, here), 7200);
  // Just now: 0.35 s folded twice over a loop of 0.1 s, 0.15 s.
  EXPECT_EQ(here + s->AdjustRelativeOffset(0, here), 7200);
  // 0.04 s ago: 0.31 s, folded to 0.11 s.
  EXPECT_EQ(here + s->AdjustRelativeOffset(-1920, here), 5280);
}

TEST(ConvertRate, ControlMessagesPassDownOnlyWithAValue) {
  auto* src = new LTestFunctionSource(44100, 2, 1000, TestRamp);
  src->iTakeCode = LSoundControl::FoldIntoLoop;
  LSoundSource s = LSPConvertRate(48000).OpenSource(LSoundSource(src));
  long v = 1;
  EXPECT_TRUE(s->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 1001);
  EXPECT_FALSE(s->ControlMessage(LSoundControl::FoldIntoLoop, nullptr));
  EXPECT_EQ(src->codes, std::vector<int>{LSoundControl::FoldIntoLoop});
}

TEST(ConvertRate, PeakBoundCoversTheOvershoot) {
  // A full-scale square wave rings past full scale after the filter.
  for (int to : {48000, 32000}) {
    LSoundSource s = LSPConvertRate(to).OpenSource(LSoundSource::Make<LTestFunctionSource>(
        44100, 1, 44100, [](int f, int) { return (f / 50) % 2 ? LSoundPeakInRange : -LSoundPeakInRange; }));
    std::vector<float> out = ReadAll(s, s->GetEndSample());
    float peak = 0.0f;
    for (float v : out) peak = std::max(peak, std::fabs(v));
    EXPECT_GT(peak, 1.0f) << to;
    EXPECT_LE(peak, s->GetPeakBound()) << to;
    EXPECT_LT(s->GetPeakBound(), LSoundPeakUnknown) << to;
  }
  // Unknown stays unknown.
  LSoundSource loud = LSoundSource::Make<LTestFunctionSource>(44100, 1, 10, TestRamp, LSoundPeakUnknown);
  EXPECT_EQ(LSPConvertRate(48000).OpenSource(loud)->GetPeakBound(), LSoundPeakUnknown);
}

TEST(ConvertRate, EveryKernelAgreesWithAPlainDotProduct) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> uni(-1.0f, 1.0f);
  struct Ratio {
    int up;
    int down;
  };
  for (int stride : {16, 64}) {
    for (Ratio const ratio : {Ratio{7, 5}, Ratio{3, 10}, Ratio{1, 2}}) {
      std::vector<float> table(static_cast<std::size_t>(ratio.up) * stride);
      for (float& t : table) t = uni(rng);
      std::size_t const planeStride = 1024;
      for (int channels : {1, 2, 3}) {
        std::vector<float> input(planeStride * channels);
        for (float& x : input) x = uni(rng);
        int const frames = 100;
        // The reference, in double.
        std::vector<double> want;
        int wantIndex = 2;
        int wantPhase = 1 % ratio.up;
        for (int f = 0; f < frames; ++f) {
          for (int c = 0; c < channels; ++c) {
            double sum = 0.0;
            for (int j = 0; j < stride; ++j) {
              sum += static_cast<double>(table[static_cast<std::size_t>(wantPhase) * stride + j]) *
                     input[c * planeStride + static_cast<std::size_t>(wantIndex + j)];
            }
            want.push_back(sum);
          }
          wantPhase += ratio.down;
          wantIndex += wantPhase / ratio.up;
          wantPhase %= ratio.up;
        }
        for (LRateKernelSet set : {LRateKernelSet::Plain, LRateKernelSet::Sse2, LRateKernelSet::Avx2}) {
          LRateKernel kernel = LRateKernelFor(set, channels, stride);
          if (!LRateKernelAvailable(set)) {
            EXPECT_EQ(kernel, nullptr);
            continue;
          }
          ASSERT_NE(kernel, nullptr);
          LRateKernelArgs const args{table.data(), input.data(),          planeStride,          channels,
                                     ratio.up,     ratio.down / ratio.up, ratio.down % ratio.up};
          std::vector<float> out(static_cast<std::size_t>(frames) * channels, -99.0f);
          int index = 2;
          int phase = 1 % ratio.up;
          kernel(args, out.data(), frames, index, phase);
          EXPECT_EQ(index, wantIndex);
          EXPECT_EQ(phase, wantPhase);
          for (std::size_t i = 0; i < out.size(); ++i) {
            ASSERT_NEAR(out[i], want[i], 1e-5) << "set " << static_cast<int>(set) << " stride " << stride
                                               << " channels " << channels << " sample " << i;
          }
        }
      }
    }
  }
  EXPECT_EQ(LRateKernelFor(LRateKernelSet::Plain, 2, 32), nullptr);
  EXPECT_TRUE(LRateKernelAvailable(LRateKernelBest()));
}

namespace {

// Keeps what is written, where it is written.
class CollectSink : public LSoundSinkBase {
 public:
  CollectSink(int rate, int channels) : LSoundSinkBase(rate, channels) {}
  void Write(float const* buffer, int frames) override {
    std::size_t const at = static_cast<std::size_t>(sPosition) * nChans;
    std::size_t const n = static_cast<std::size_t>(frames) * nChans;
    if (data.size() < at + n) data.resize(at + n);
    std::copy(buffer, buffer + n, data.begin() + static_cast<std::ptrdiff_t>(at));
    sPosition += frames;
  }
  void Seek(int frame) override {
    sPosition = frame;
    seeks.push_back(frame);
  }
  std::vector<float> data;
  std::vector<int> seeks;
};

}  // namespace

TEST(ConvertRate, SinkSideConvertsWhatIsWrittenAndFlushesTheTail) {
  auto* target = new CollectSink(48000, 2);
  LSoundSink sink(target);
  {
    LSoundSink conv = LSinkConvertRate(44100).OpenSink(sink);
    ASSERT_NE(conv.Get(), sink.Get());
    EXPECT_EQ(conv->GetSampleRate(), 44100);
    EXPECT_FALSE(conv->IsError());
    std::vector<float> tone = ReadAll(ToneSource(44100, 2, 44100), 44100);
    for (int at = 0; at < 44100; at += 1000) {
      int const n = std::min(1000, 44100 - at);
      conv->Write(tone.data() + 2 * at, n);
    }
    EXPECT_EQ(conv->GetPositionSample(), 44100);
    // Filtered as it comes: all but the last few frames are out already.
    EXPECT_GT(target->GetPositionSample(), 48000 - 20);
  }  // the last handle goes: the tail is flushed
  ASSERT_EQ(target->GetPositionSample(), 48000);
  for (int c = 0; c < 2; ++c) {
    SineFit const fit = FitSine(target->data, 2, c, 4800, 48000 - 4800, 1000.0, 48000);
    double const level = 20.0 * std::log10(fit.amplitude / ToneAmplitude(c));
    double const thdn = 20.0 * std::log10(fit.residualRms / (fit.amplitude / std::sqrt(2.0)));
    std::printf("sink 44100->48000 ch%d: level %+.4f dB, THD+N %.1f dB\n", c, level, thdn);
    EXPECT_NEAR(level, 0.0, 0.1);
    EXPECT_LT(thdn, -40.0);
  }

  // A seek writes out what is pending and moves the sink to the same time.
  auto* other = new CollectSink(44100, 1);
  LSoundSink conv = LSinkConvertRate(48000).OpenSink(LSoundSink(other));
  std::vector<float> ones(1000, 0.5f);
  conv->Write(ones.data(), 1000);
  conv->Seek(48000);
  EXPECT_EQ(other->seeks, std::vector<int>{44100});
  EXPECT_EQ(conv->GetPositionSample(), 48000);
  EXPECT_EQ(other->data.size(), 919u);  // 918.75 frames' worth

  // A sink at the rate already, or a bad one, is not wrapped.
  LSoundSink same = LSoundSink::Make<CollectSink>(48000, 2);
  EXPECT_EQ(LSinkConvertRate(48000).OpenSink(same).Get(), same.Get());
  LSoundSink bad;
  EXPECT_EQ(LSinkConvertRate(48000).OpenSink(bad).Get(), bad.Get());
}
