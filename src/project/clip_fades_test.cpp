// A clip's volume and pan lines: how they sound through the clip's source, how
// they follow the clip's edits, and how they are put into the sound.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>
#include <vector>

#include "project/clip_audio.h"
#include "project/testing_cut_lists.h"
#include "project/track.h"

namespace {

using ClipFadesTest = CutListTest;
using Line = std::vector<std::pair<LSoundTime, double>>;

// Large enough everywhere that a gain a frame off shows far above 1e-6.
float Signal(int frame, int channel) {
  return (channel == 0 ? 0.8f : -0.6f) * (1.0f - static_cast<float>(frame % 100) / 200.0f);
}

std::unique_ptr<TDClipAudio> SignalClip(int frames, int channels, int rate, LSoundTime position = 0) {
  LCutListAudio list;
  {
    LSoundSink sink = list.OpenSink(rate, channels);
    std::vector<float> block(static_cast<std::size_t>(frames) * channels);
    for (int f = 0; f < frames; ++f) {
      for (int c = 0; c < channels; ++c) block[static_cast<std::size_t>(f) * channels + c] = Signal(f, c);
    }
    sink->Write(block.data(), frames);
  }
  auto clip = std::make_unique<TDClipAudio>(list);
  clip->iPosition = position;
  clip->InitFadePoints();
  return clip;
}

void SetLine(TDClip& clip, FadeType type, Line const& line) {
  TDClipFadePoints& list = clip.GetFadeListByType(type);
  list.clear();
  for (auto const& [t, v] : line) list.push_back(TDClipFadePoint{v, t, type});
}

Line LineOf(TDClip const& clip, FadeType type) {
  Line out;
  for (TDClipFadePoint const& p : clip.GetFadeListByType(type)) out.emplace_back(p.iPosition, p.dValue);
  return out;
}

std::vector<float> ReadFrames(LSoundSource const& s, int frames, int block) {
  std::vector<float> out(static_cast<std::size_t>(frames) * s->GetChannels());
  for (int done = 0; done < frames;) {
    int const n = std::min(block, frames - done);
    s->Read(out.data() + static_cast<std::size_t>(done) * s->GetChannels(), n);
    done += n;
  }
  return out;
}

// ---- the lines as the ear should get them, from the points alone ----

double Amplitude(double dB) { return dB <= -127.0 ? 0.0 : std::pow(10.0, dB / 20.0); }

// Whole dB of a volume value: exactly -1.0 is silence, 48 dB below unity, 12 above.
double VolumeDB(double v) {
  if (v == -1.0) return -127.0;
  return std::clamp(std::round(v <= 0.0 ? v * 48.0 : v * 12.0), -127.0, 127.0);
}

// A pan value lowers the side it points away from; fully over silences it.
double PanDB(double v, int channel) {
  bool const lowered = channel == 0 ? v < 0.0 : v > 0.0;
  if (!lowered) return 0.0;
  if (std::fabs(v) == 1.0) return -127.0;
  return -std::round(std::fabs(v) * 48.0);
}

// The gain of a line at `frame`: straight in amplitude between the whole-dB
// levels of the points around it, 1 (left alone) outside the points.
template <class LevelOf>
double LineGain(Line const& line, int rate, std::int64_t frame, LevelOf levelOf) {
  auto frameOf = [rate](LSoundTime ms) { return static_cast<std::int64_t>(ms) * rate / 1000; };
  if (line.empty() || frame < frameOf(line.front().first) || frame > frameOf(line.back().first)) return 1.0;
  std::size_t k = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (frameOf(line[i].first) <= frame) k = i;
  }
  double const a = Amplitude(levelOf(line[k].second));
  if (k + 1 == line.size()) return a;
  double const b = Amplitude(levelOf(line[k + 1].second));
  double const f0 = static_cast<double>(frameOf(line[k].first));
  double const f1 = static_cast<double>(frameOf(line[k + 1].first));
  return a + (b - a) * (static_cast<double>(frame) - f0) / (f1 - f0);
}

double Expected(Line const& volume, Line const& pan, int rate, std::int64_t frame, int channel) {
  double const v = LineGain(volume, rate, frame, VolumeDB);
  double const p = LineGain(pan, rate, frame, [channel](double value) { return PanDB(value, channel); });
  return Signal(static_cast<int>(frame), channel) * v * p;
}

TEST_F(ClipFadesTest, APlayedClipFollowsItsLinesAsComputedFromThePoints) {
  constexpr int kRate = 44100;
  constexpr int kFrames = 52920;  // 1.2 s
  auto clip = SignalClip(kFrames, 2, kRate);
  ASSERT_EQ(clip->GetEnd(), 1200);
  // A fade in from silence, a lift of 6 dB, a dip and a fade out to silence;
  // points given out of order, as a drag may leave them.
  Line const volume{{0, -1.0}, {250, 0.0}, {700, -0.3}, {400, 0.5}, {1150, -0.99}, {1200, -1.0}};
  Line const pan{{0, 0.0}, {300, 0.7}, {900, -1.0}, {1200, 0.0}};
  SetLine(*clip, FadeTypeVolume, volume);
  SetLine(*clip, FadeTypePan, pan);
  Line sortedVolume = volume;
  std::stable_sort(sortedVolume.begin(), sortedVolume.end(),
                   [](auto const& a, auto const& b) { return a.first < b.first; });

  auto check = [&](LSoundSource const& s, Line const& v, Line const& p, int from, char const* what) {
    std::vector<float> const out = ReadFrames(s, kFrames - from, 1000);
    double worst = 0.0;
    for (int f = from; f < kFrames; ++f) {
      for (int c = 0; c < 2; ++c) {
        double const want = Expected(v, p, kRate, f, c);
        worst = std::max(worst, std::fabs(out[static_cast<std::size_t>(f - from) * 2 + c] - want));
      }
    }
    EXPECT_LE(worst, 1e-6) << what;
  };

  LSoundSource whole = clip->OpenSource(kRate, 2);
  ASSERT_FALSE(whole->IsError());
  EXPECT_EQ(whole->GetEndSample(), kFrames);
  check(whole, sortedVolume, pan, 0, "both lines");
  // A seek lands on the same line.
  whole->Seek(30001);
  check(whole, sortedVolume, pan, 30001, "after a seek");

  // The track's switches decide which lines play, as they stand at opening.
  TDTrack track;
  clip->BindTrack(&track, 0);
  track.bVolumeEnvelopeOn = false;
  LSoundSource panOnly = clip->OpenSource(kRate, 2);
  track.bVolumeEnvelopeOn = true;
  check(panOnly, {}, pan, 0, "pan only");
  track.bVolumeEnvelopeOn = false;
  track.bPanEnvelopeOn = false;
  check(clip->OpenSource(kRate, 2), {}, {}, 0, "neither");
  clip->BindTrack(nullptr, 0);
}

// ---- the lines through the clip's edits ----

// Copies of both lines of a clip, to compare against after an edit.
struct Lines {
  TDClipFadePoints volume, pan;
  explicit Lines(TDClip const& clip)
      : volume(clip.GetFadeListByType(FadeTypeVolume)), pan(clip.GetFadeListByType(FadeTypePan)) {}
  double At(FadeType type, LSoundTime t) const { return GetAmplitudeAtPos(type == FadeTypePan ? pan : volume, t); }
};

// Both lines of `clip` against what `line(t)` says they should be at every
// 10 ms, and the last point of each on the clip's end.
template <class Want>
void ExpectLines(TDClipAudio const& clip, Want want, char const* what) {
  for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
    TDClipFadePoints const& list = clip.GetFadeListByType(type);
    ASSERT_GE(list.size(), 2u) << what;
    EXPECT_EQ(list.front().iPosition, 0) << what;
    EXPECT_EQ(list.back().iPosition, clip.GetEnd()) << what;
    for (LSoundTime t = 0; t <= clip.GetEnd(); t += 10) {
      ASSERT_NEAR(GetAmplitudeAtPos(list, t), want(type, t), 1e-9) << what << " type " << type << " at " << t;
    }
  }
}

TEST_F(ClipFadesTest, LinesFollowSplitTrimCutJoinAndRestore) {
  // One frame per ms, so the expected lines need no rounding.
  auto clip = SignalClip(10000, 1, 1000, 1000);
  Line const volume{{0, 0.0}, {2000, -0.5}, {8000, -0.5}, {10000, -1.0}};
  Line const pan{{0, 0.0}, {5000, 0.5}, {10000, 0.0}};
  SetLine(*clip, FadeTypeVolume, volume);
  SetLine(*clip, FadeTypePan, pan);
  Lines const original(*clip);
  auto was = [&](FadeType type, LSoundTime t) { return original.At(type, t); };

  // A split: each part keeps the line over its own sound, with the level at the
  // cut as its new end.
  std::unique_ptr<TDClipAudio> right = clip->Split(5000);
  ASSERT_NE(right, nullptr);
  ExpectLines(*clip, was, "left part");
  EXPECT_EQ(LineOf(*clip, FadeTypeVolume), (Line{{0, 0.0}, {2000, -0.5}, {4000, -0.5}}));
  ExpectLines(*right, [&](FadeType type, LSoundTime t) { return was(type, t + 4000); }, "right part");
  EXPECT_EQ(LineOf(*right, FadeTypeVolume), (Line{{0, -0.5}, {4000, -0.5}, {6000, -1.0}}));

  // Joined again, the line is the one cut; the equal levels at the joint make
  // one point.
  ASSERT_TRUE(clip->Join(*right, false));
  ExpectLines(*clip, was, "joined");
  EXPECT_EQ(LineOf(*clip, FadeTypeVolume), (Line{{0, 0.0}, {2000, -0.5}, {4000, -0.5}, {8000, -0.5}, {10000, -1.0}}));

  // Trimming the head moves the line with the sound.
  clip->SetTrimOrExpandStart(1500);
  clip->TrimOrExpandStart();
  ASSERT_EQ(clip->GetEnd(), 8500);
  ExpectLines(*clip, [&](FadeType type, LSoundTime t) { return was(type, t + 1500); }, "head trimmed");

  // Trimming the tail keeps the level the line had at the new end.
  clip->SetTrimOrExpandEnd(-3000);
  clip->TrimOrExpandEnd();
  ASSERT_EQ(clip->GetEnd(), 5500);
  ExpectLines(*clip, [&](FadeType type, LSoundTime t) { return was(type, t + 1500); }, "tail trimmed");

  // Expanding the tail carries the end point out to the new end.
  clip->SetTrimOrExpandEnd(2000);
  clip->TrimOrExpandEnd();
  ASSERT_EQ(clip->GetEnd(), 7500);
  EXPECT_EQ(clip->GetFadeListByType(FadeTypeVolume).back().iPosition, 7500);
  EXPECT_DOUBLE_EQ(clip->GetFadeListByType(FadeTypeVolume).back().dValue, was(FadeTypeVolume, 7000));
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(clip->GetFadeListByType(FadeTypeVolume), 3000), was(FadeTypeVolume, 4500));

  // Expanding the head moves every point on by the time added; the new head
  // starts from an anchor of its own.
  clip->SetTrimOrExpandStart(-500);
  clip->TrimOrExpandStart();
  ASSERT_EQ(clip->GetEnd(), 8000);
  EXPECT_EQ(clip->iPosition, 2000);
  Line const panLine = LineOf(*clip, FadeTypePan);
  EXPECT_EQ(panLine[0], (std::pair<LSoundTime, double>{0, 0.0}));
  EXPECT_EQ(panLine[1].first, 500);
  EXPECT_NEAR(panLine[1].second, was(FadeTypePan, 1500), 1e-12);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(clip->GetFadeListByType(FadeTypePan), 3500), was(FadeTypePan, 4500));

  // A cut from the middle (1000..3000 of the clip) closes the line over the gap:
  // the level at the cut's start, then a millisecond on the level at its end, and
  // the later points 2000 ms earlier.
  Lines const beforeCut(*clip);
  clip->CutFromMiddle(clip->iPosition + 1000, clip->iPosition + 3000);
  ASSERT_EQ(clip->GetEnd(), 6000);
  for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
    TDClipFadePoints const& old = type == FadeTypePan ? beforeCut.pan : beforeCut.volume;
    Line want;
    for (TDClipFadePoint const& p : old) {
      if (p.iPosition < 1000) want.emplace_back(p.iPosition, p.dValue);
    }
    want.emplace_back(1000, beforeCut.At(type, 1000));
    if (beforeCut.At(type, 3000) != beforeCut.At(type, 1000)) want.emplace_back(1001, beforeCut.At(type, 3000));
    for (TDClipFadePoint const& p : old) {
      if (p.iPosition > 3000) want.emplace_back(p.iPosition - 2000, p.dValue);
    }
    EXPECT_EQ(LineOf(*clip, type), want) << "cut, type " << type;
  }

  // Restore brings the whole sound back; the lines stay valid for it.
  LProcessInterfaceVoid quiet;
  clip->RestoreToOriginal(quiet);
  ASSERT_EQ(clip->GetEnd(), 10000);
  for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
    TDClipFadePoints const& list = clip->GetFadeListByType(type);
    EXPECT_EQ(list.front().iPosition, 0);
    EXPECT_EQ(list.back().iPosition, 10000);
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end(),
                               [](auto const& a, auto const& b) { return a.iPosition < b.iPosition; }));
  }
}

// At 44100 Hz a part can come out a millisecond longer than the time its line
// was cut to. Its fade out must still reach the last frame rather than leave the
// tail at full level.
TEST_F(ClipFadesTest, AFadeOutReachesTheLastFrameWhateverTheRounding) {
  constexpr int kRate = 44100;
  auto clip = SignalClip(88222, 2, kRate);  // 2000.5 ms, which is 2000
  ASSERT_EQ(clip->GetEnd(), 2000);
  SetLine(*clip, FadeTypeVolume, {{0, 0.0}, {1500, 0.0}, {2000, -1.0}});
  std::unique_ptr<TDClipAudio> right = clip->Split(1001);
  ASSERT_NE(right, nullptr);
  ASSERT_EQ(right->GetEnd(), 1000);  // cut to 999 ms, measured 999.5
  EXPECT_EQ(LineOf(*right, FadeTypeVolume), (Line{{0, 0.0}, {499, 0.0}, {1000, -1.0}}));
  int const frames = right->GetEndSample();
  std::vector<float> const out = ReadFrames(right->OpenSource(kRate, 2), frames, 4096);
  for (int f = frames - 30; f < frames; ++f) {
    ASSERT_LT(std::fabs(out[static_cast<std::size_t>(f) * 2]), 0.01 * std::fabs(Signal(f + 44144, 0))) << f;
  }
}

// The speed change keeps the fades on the sound: a fade out that ended the clip
// still ends it, in proportion.
TEST_F(ClipFadesTest, StretchScalesTheLines) {
  auto clip = SignalClip(16000, 1, 8000);
  SetLine(*clip, FadeTypeVolume, {{0, -1.0}, {500, 0.0}, {1500, 0.0}, {2000, -1.0}});
  LProcessInterfaceVoid quiet;
  ASSERT_EQ(clip->Stretch(quiet, 4000, false), LProcessFinished);
  double const scale = static_cast<double>(clip->GetEndSample()) / 16000.0;
  Line const line = LineOf(*clip, FadeTypeVolume);
  ASSERT_EQ(line.size(), 4u);
  EXPECT_EQ(line[1].first, static_cast<LSoundTime>(500 * scale));
  EXPECT_EQ(line[2].first, static_cast<LSoundTime>(1500 * scale));
  EXPECT_EQ(line[3], (std::pair<LSoundTime, double>{clip->GetEnd(), -1.0}));
  EXPECT_EQ(LineOf(*clip, FadeTypePan).back().first, clip->GetEnd());
}

// ---- putting the lines into the sound ----

std::vector<float> PlayAll(TDClipAudio& clip) {
  return ReadFrames(clip.OpenSource(clip.GetSampleRate(), clip.GetChansRequired()), clip.GetEndSample(), 8192);
}

TEST_F(ClipFadesTest, RenderingPutsTheLinesIntoTheSoundAndFlattensThem) {
  constexpr int kRate = 8000;
  auto clip = SignalClip(16000, 2, kRate, 3000);  // 2 s at 3 s on the timeline
  clip->szName = "Voice";
  // The lift stays below full scale: every write to a file is held under it.
  SetLine(*clip, FadeTypeVolume, {{0, -1.0}, {400, 0.0}, {1200, 0.1}, {2000, -1.0}});
  SetLine(*clip, FadeTypePan, {{0, 0.0}, {1000, 0.6}, {2000, 0.0}});
  std::vector<float> const heard = PlayAll(*clip);

  struct Stopping : LProcessInterfaceVoid {
    std::vector<std::string> titles;
    bool stop = false;
    void SetStatus(char const* text, int) override { titles.push_back(text); }
    bool IsToStop() override { return stop; }
  } pi;
  pi.stop = true;
  Line const volumeBefore = LineOf(*clip, FadeTypeVolume);
  EXPECT_EQ(clip->RenderFadepoints(pi, {{0, 100000}}), LProcessStopped);
  EXPECT_EQ(LineOf(*clip, FadeTypeVolume), volumeBefore);
  EXPECT_EQ(PlayAll(*clip), heard);

  // Over the whole clip: the sound is the same, now in a file of its own, and
  // the lines are flat.
  pi.stop = false;
  auto whole = SignalClip(16000, 2, kRate, 3000);
  whole->szName = "Voice";
  SetLine(*whole, FadeTypeVolume, LineOf(*clip, FadeTypeVolume));
  SetLine(*whole, FadeTypePan, LineOf(*clip, FadeTypePan));
  ASSERT_EQ(whole->RenderFadepoints(pi, {{0, 100000}}), LProcessFinished);
  EXPECT_NE(std::find(pi.titles.begin(), pi.titles.end(), "Applying fade points for Voice"), pi.titles.end());
  EXPECT_EQ(LineOf(*whole, FadeTypeVolume), (Line{{0, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*whole, FadeTypePan), (Line{{0, 0.0}, {2000, 0.0}}));
  EXPECT_NE(whole->GetCutListAudio().GetSegments()[0].GetCut(), clip->GetCutListAudio().GetSegments()[0].GetCut());
  std::vector<float> const after = PlayAll(*whole);
  ASSERT_EQ(after.size(), heard.size());
  for (std::size_t i = 0; i < heard.size(); ++i) ASSERT_NEAR(after[i], heard[i], 1e-6) << i;
  // What plays is the base that trimming repeats.
  EXPECT_EQ(whole->GetBaseCutListAudio().GetEndSample(), whole->GetEndSample());

  // Over a part (3.5 s to 4.2 s on the timeline, given as two that meet; a
  // segment before the clip is passed by): within it the sound is what was heard, but for the millisecond
  // inside each edge where the line turns, and outside it the line keeps its
  // course.
  ASSERT_EQ(clip->RenderFadepoints(pi, {{1000, 2000}, {3800, 4200}, {3800, 3500}}), LProcessFinished);
  TDClipFadePoints const& volume = clip->GetFadeListByType(FadeTypeVolume);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(volume, 800), 0.0);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(volume, 300), -0.25);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(volume, 1600), 0.1 - 1.1 * 400.0 / 800.0);
  EXPECT_DOUBLE_EQ(GetAmplitudeAtPos(clip->GetFadeListByType(FadeTypePan), 1500), 0.3);
  std::vector<float> const partly = PlayAll(*clip);
  ASSERT_EQ(partly.size(), heard.size());
  for (int f = 4008; f <= 9592; ++f) {
    for (int c = 0; c < 2; ++c) {
      std::size_t const i = static_cast<std::size_t>(f) * 2 + c;
      ASSERT_NEAR(partly[i], heard[i], 1e-6) << "frame " << f;
    }
  }
}

}  // namespace
