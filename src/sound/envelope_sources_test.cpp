#include "sound/envelope_sources.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>
#include <vector>

#include "sound/testing_sources.h"

namespace {

// The levels of the line, written out from the scale: silence at exactly -1.0,
// 48 dB below unity, 12 dB above, whole dB rounded half away from zero.
double RefVolumeDB(double v) {
  if (v == -1.0) return -127.0;
  double const dB = std::round(v <= 0.0 ? v * 48.0 : v * 12.0);
  return std::clamp(dB, -127.0, 127.0);
}

// Pan lowers the side it points away from; a full pan silences it.
double RefPanDB(double v, int channel) {
  bool const lowered = channel == 0 ? v < 0.0 : v > 0.0;
  if (!lowered) return 0.0;
  if (std::fabs(v) == 1.0) return -127.0;
  return std::max(-127.0, -std::round(std::fabs(v) * 48.0));
}

double RefAmplitude(double dB) {
  return dB <= -127.0 ? 0.0 : std::pow(10.0, dB / 20.0);
}

struct RefPoint {
  LSoundTime ms;
  double value;
};

constexpr int kRate = 44100;  // 44.1 frames a millisecond: positions truncate
constexpr int kEnd = kRate;

// The gain at `frame` from scratch: find the points around the frame, take their
// whole-dB amplitudes and go in a straight line between them. Points are in time
// order; among points on one frame the last one leads. nullopt before the first
// point and after the last, where frames are to be left alone.
std::optional<double> RefGain(std::vector<RefPoint> const& pts, std::int64_t frame,
                              std::function<double(double)> const& levelOf) {
  auto frameOf = [](RefPoint const& p) { return static_cast<std::int64_t>(p.ms) * kRate / 1000; };
  if (pts.empty() || frame < frameOf(pts.front()) || frame > frameOf(pts.back())) return std::nullopt;
  std::size_t i = 0;
  for (std::size_t k = 0; k < pts.size(); ++k) {
    if (frameOf(pts[k]) <= frame) i = k;
  }
  double const a = RefAmplitude(levelOf(pts[i].value));
  if (i + 1 == pts.size()) return a;
  double const b = RefAmplitude(levelOf(pts[i + 1].value));
  double const f0 = static_cast<double>(frameOf(pts[i]));
  double const f1 = static_cast<double>(frameOf(pts[i + 1]));
  return a + (b - a) * (static_cast<double>(frame) - f0) / (f1 - f0);
}

float Signal(int frame, int channel) {
  return static_cast<float>(0.9 * std::sin(0.0123 * frame + 1.7 * channel));
}

LSoundSource SignalSource(int channels) {
  return LSoundSource::Make<LTestFunctionSource>(kRate, channels, kEnd, Signal);
}

using GainOf = std::function<std::optional<double>(std::int64_t frame, int channel)>;

struct Tally {
  int shaped = 0;
  int untouched = 0;
};

// Reads `frames` frames from where `s` stands, in blocks cycling through
// `blocks`, and holds every sample to the reference: within 1e-6 where the line
// applies, bit for bit where it does not.
void ExpectLine(LSoundSource const& s, int frames, std::vector<int> const& blocks, GainOf const& gainOf, Tally& tally) {
  int const ch = s->GetChannels();
  std::vector<float> buf(static_cast<std::size_t>(LSoundMaxReadFrames) * ch);
  int done = 0;
  int failures = 0;
  for (std::size_t b = 0; done < frames; ++b) {
    int const n = std::min(blocks[b % blocks.size()], frames - done);
    int const at = s->GetPositionSample();
    s->Read(buf.data(), n);
    for (int f = 0; f < n; ++f) {
      for (int c = 0; c < ch; ++c) {
        float const in = Signal(at + f, c);
        float const out = buf[static_cast<std::size_t>(f) * ch + c];
        std::optional<double> const g = gainOf(at + f, c);
        bool ok;
        if (g) {
          ++tally.shaped;
          ok = std::fabs(static_cast<double>(out) - static_cast<double>(in) * *g) <= 1e-6;
        } else {
          ++tally.untouched;
          ok = out == in;
        }
        if (!ok && ++failures <= 5) {
          ADD_FAILURE() << "frame " << at + f << " channel " << c << ": got " << out << ", input " << in << ", gain "
                        << (g ? *g : 1.0);
        }
      }
    }
    done += n;
  }
  EXPECT_EQ(failures, 0);
}

}  // namespace

TEST(EnvelopePoints, VolumeLevelsOfTheScale) {
  auto dB = [](double v) { return static_cast<int>(LEnvelopePointVol(v, 0).GetDB().Get()); };
  EXPECT_EQ(dB(-1.0), -127);
  EXPECT_EQ(LEnvelopePointVol(-1.0, 0).GetDB().GetAmplitude(), 0.0f);
  EXPECT_EQ(dB(-0.99), -48);  // the foot of the line proper: only -1.0 itself is silence
  EXPECT_EQ(dB(0.0), 0);
  EXPECT_EQ(LEnvelopePointVol(0.0, 0).GetDB().GetAmplitude(), 1.0f);
  EXPECT_EQ(dB(0.5), 6);
  EXPECT_EQ(dB(1.0), 12);
  EXPECT_EQ(dB(-0.5), -24);
  // Halves round away from zero on both sides: -1.5 dB and +1.5 dB.
  EXPECT_EQ(dB(-0.03125), -2);
  EXPECT_EQ(dB(0.125), 2);
  // Out of range values are held to the level range; below -1.0 is far down
  // but only silent once the range runs out.
  EXPECT_EQ(dB(-1.5), -72);
  EXPECT_EQ(dB(-3.0), -127);
  EXPECT_EQ(dB(20.0), 127);
  EXPECT_EQ(dB(std::nan("")), -127);
}

TEST(EnvelopePoints, PanLowersOneSide) {
  auto pan = [](double v) {
    LDBMultiChannel<signed char> const l = LEnvelopePointPan(v, 0).GetPanDB();
    EXPECT_EQ(l.GetChannels(), 2);
    return std::pair<int, int>(l[0], l[1]);
  };
  EXPECT_EQ(pan(0.0), std::make_pair(0, 0));
  EXPECT_EQ(pan(0.5), std::make_pair(0, -24));
  EXPECT_EQ(pan(0.99), std::make_pair(0, -48));
  EXPECT_EQ(pan(1.0), std::make_pair(0, -127));
  EXPECT_EQ(pan(-0.25), std::make_pair(-12, 0));
  EXPECT_EQ(pan(-1.0), std::make_pair(-127, 0));
  EXPECT_EQ(pan(1.5), std::make_pair(0, -72));
  EXPECT_EQ(pan(-4.0), std::make_pair(-127, 0));
}

TEST(EnvelopePoints, ValueAtPositionIsAStraightLineHeldAtTheEnds) {
  LEnvelopeLine line;
  EXPECT_EQ(GetAmplitudeAtPos(line, 5), 0.0);
  line = {{0.5, 100}};
  EXPECT_EQ(GetAmplitudeAtPos(line, -50), 0.5);
  EXPECT_EQ(GetAmplitudeAtPos(line, 500), 0.5);
  line = {{-1.0, 100}, {0.0, 200}, {1.0, 200}, {0.5, 300}};
  EXPECT_EQ(GetAmplitudeAtPos(line, 0), -1.0);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(line, 125), -0.75);
  EXPECT_EQ(GetAmplitudeAtPos(line, 200), 1.0);  // a step: the later point leads on from its time
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(line, 280), 0.6);
  EXPECT_EQ(GetAmplitudeAtPos(line, 301), 0.5);
}

// The gain line against a computation from the points, read in blocks of many
// sizes so that stretches start and end inside and across blocks, then after
// seeks into the middle of a stretch and back before the first point.
TEST(EnvelopeSources, GainFollowsTheLineInAmplitudeBetweenWholeDecibels) {
  std::vector<RefPoint> const pts = {{100, -1.0}, {250, 0.0}, {250, 0.5},  {400, -0.3},
                                     {401, -0.3}, {700, 1.0}, {900, -0.99}};
  // Given out of order: the source sorts its copy, keeping the order of the two at 250.
  std::vector<LEnvelopePointVol> given;
  for (int k : {3, 0, 1, 6, 2, 4, 5}) given.emplace_back(pts[k].value, pts[k].ms);
  LSoundSource env = LSoundSource::Make<LSRCGainEnvelope>(SignalSource(2), given);
  given.clear();                                      // the source holds its own copy
  EXPECT_EQ(env->GetPeakBound(), LSoundPeakUnknown);  // +12 dB at 700 ms

  GainOf const gainOf = [&](std::int64_t frame, int) { return RefGain(pts, frame, RefVolumeDB); };
  Tally tally;
  ExpectLine(env, kEnd, {1000, 37, 8192, 1, 4410, 2999}, gainOf, tally);
  env->Seek(20000);
  ExpectLine(env, 9000, {333}, gainOf, tally);
  env->Seek(4000);
  ExpectLine(env, 8000, {8192}, gainOf, tally);
  EXPECT_GT(tally.shaped, 2 * 35000);
  EXPECT_GT(tally.untouched, 2 * 8000);

  // Below unity throughout: the source's own bound stands.
  std::vector<LEnvelopePointVol> const low = {{0.0, 0}, {-0.5, 10}};
  EXPECT_EQ(LSRCGainEnvelope(SignalSource(1), low).GetPeakBound(), LSoundPeakInRange);
}

TEST(EnvelopeSources, PanShapesEachOfTheFirstTwoChannels) {
  std::vector<RefPoint> const pts = {{50, 0.0}, {300, 1.0}, {450, -0.5}, {451, -1.0}, {800, 0.25}};
  std::vector<LEnvelopePointPan> given;
  for (RefPoint const& p : pts) given.emplace_back(p.value, p.ms);

  LSoundSource env = LSoundSource::Make<LSRCPanEnvelope>(SignalSource(3), given);
  EXPECT_EQ(env->GetPeakBound(), LSoundPeakInRange);
  GainOf const gainOf = [&](std::int64_t frame, int channel) -> std::optional<double> {
    if (channel >= 2) return std::nullopt;  // a third channel has no side
    return RefGain(pts, frame, [channel](double v) { return RefPanDB(v, channel); });
  };
  Tally tally;
  ExpectLine(env, kEnd, {4096, 77, 8192}, gainOf, tally);
  env->Seek(13000);
  ExpectLine(env, 7000, {1500, 8}, gainOf, tally);
  EXPECT_GT(tally.shaped, 2 * 30000);

  // A mono source follows the first channel's side.
  LSoundSource mono = LSoundSource::Make<LSRCPanEnvelope>(SignalSource(1), given);
  Tally monoTally;
  ExpectLine(mono, kEnd, {5000}, gainOf, monoTally);
}

TEST(EnvelopeSources, WithoutPointsOrOutsideThemNothingChanges) {
  LSoundSource none = LSoundSource::Make<LSRCGainEnvelope>(SignalSource(2), std::span<LEnvelopePointVol const>());
  EXPECT_EQ(ReadAll(none, kEnd, 1000), ReadAll(SignalSource(2), kEnd, 1000));

  // One point shapes exactly its own frame.
  std::vector<LEnvelopePointVol> const one = {{-1.0, 500}};
  LSoundSource single = LSoundSource::Make<LSRCGainEnvelope>(SignalSource(1), one);
  std::vector<float> out = ReadAll(single, kEnd, 999);
  std::vector<float> in = ReadAll(SignalSource(1), kEnd, 999);
  int const at = 500 * kRate / 1000;
  EXPECT_EQ(out[at], 0.0f);
  in[at] = 0.0f;
  EXPECT_EQ(out, in);

  // A source in error below passes its state up.
  EXPECT_EQ(LSRCPanEnvelope(LSoundSource(), std::span<LEnvelopePointPan const>()).GetErrorState(), LSoundErrorBelow);
}
