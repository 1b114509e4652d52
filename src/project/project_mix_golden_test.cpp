// The whole project mix against a reference worked out here, sample by sample,
// from the same inputs: the clips' samples, their volume and pan lines, the
// tracks' volume and pan in dB, an Amplify on one track and a volume line under
// another. The reference follows the rules each stage states in its header and
// calls none of them, so a fault in any stage (a line a frame off, a dB rounded
// the wrong way, a pan on the wrong side, a muted or non-solo track heard) shows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "effects/table_effects.h"
#include "project/clip_audio.h"
#include "project/project.h"
#include "project/testing_cut_lists.h"

namespace {

constexpr int kRate = 44100;
constexpr int kTracks = 4;
constexpr int kRender = 7000;  // past the last clip's end, so the tail is checked as silence
constexpr double kTolerance = 1e-6;

// The audio of clip `tag`: loud enough (up to 0.25) that a gain off by a
// fraction of a dB is far above the tolerance, yet small enough that the mix
// stays below 1, where float rounding is well inside it. Different on the two
// sides and per clip.
float Signal(int tag, int frame, int channel) {
  return static_cast<float>(0.25 * std::sin(0.013 * (frame + 1) * (tag + 1) + 0.7 * channel + tag));
}

// A point of a line: ms and value.
struct Point {
  LSoundTime ms;
  double value;
};

struct ClipPlan {
  int tag;
  int frames;
  int channels;
  LSoundTime position;
  int track;
  std::vector<Point> volume;  // empty: the two flat anchors a new clip gets
  std::vector<Point> pan;
};

struct TrackPlan {
  float volumeDB = 0.0f;
  double pan = 0.0;
  bool muted = false;
  bool solo = false;
  float amplify = 1.0f;           // 1: no effect on the track
  std::vector<Point> automation;  // the track's volume line on the timeline; empty: none
};

// ---- the reference: the rules, written out ----

// Frames from ms: whole seconds and the rest apart, each truncated.
std::int64_t Frames(LSoundTime ms) {
  return static_cast<std::int64_t>(kRate) * (ms / 1000) + static_cast<std::int64_t>(kRate) * (ms % 1000) / 1000;
}

// Whole dB, half away from zero, held to -127..127.
int WholeDB(double dB) { return static_cast<int>(std::clamp(std::round(dB), -127.0, 127.0)); }

// The amplitude of a whole dB level; -127 and below is silence.
double AmplitudeOfWholeDB(int dB) { return dB <= -127 ? 0.0 : std::pow(10.0, dB / 20.0); }

// A volume point: exactly -1 is silence; below unity the scale spans 48 dB,
// above it 12 dB; the level is taken in whole dB.
double VolumePointAmplitude(double v) {
  if (v == -1.0) return 0.0;
  return AmplitudeOfWholeDB(WholeDB(v <= 0.0 ? v * 48.0 : v * 12.0));
}

// A pan point lowers the side it points away from by |v| x 48 dB (whole dB); a
// full pan silences it. Positive values lower the second side.
double PanPointAmplitude(double v, int channel) {
  bool const lowers = (v > 0.0 && channel == 1) || (v < 0.0 && channel == 0);
  if (!lowers) return 1.0;
  if (std::fabs(v) == 1.0) return 0.0;
  return AmplitudeOfWholeDB(WholeDB(-std::fabs(v) * 48.0));
}

// A line's gain at `frame` (frames from the line's zero): straight in amplitude
// between the levels of neighbouring points, the point's own level on its
// frame, and unity before the first point and after the last.
template <class AmplitudeOf>
double LineGain(std::vector<Point> const& points, std::int64_t frame, AmplitudeOf amplitudeOf) {
  if (points.empty()) return 1.0;
  std::int64_t const first = Frames(points.front().ms);
  std::int64_t const last = Frames(points.back().ms);
  if (frame < first || frame > last) return 1.0;
  if (frame == last) return amplitudeOf(points.back().value);
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    std::int64_t const a = Frames(points[i].ms);
    std::int64_t const b = Frames(points[i + 1].ms);
    if (frame < a || frame >= b) continue;
    double const ga = amplitudeOf(points[i].value);
    double const gb = amplitudeOf(points[i + 1].value);
    return ga + (gb - ga) * static_cast<double>(frame - a) / static_cast<double>(b - a);
  }
  return 1.0;
}

// A fader level in dB (maybe fractional) as a gain: straight between the
// amplitudes of the whole dB below and above.
double FaderAmplitude(double dB) {
  double const below = std::floor(dB);
  double const a = AmplitudeOfWholeDB(static_cast<int>(below));
  double const b = AmplitudeOfWholeDB(static_cast<int>(below) + 1);
  return a + (b - a) * (dB - below);
}

// A track's gain for `channel` from its volume and pan: the pan moves the side
// it points away from, in amplitude, from the volume's level towards -48 dB,
// |pan| of the way; that level in dB is then taken as a fader level.
double TrackGain(TrackPlan const& t, int channel) {
  bool const lowered = (t.pan > 0.0 && channel == 1) || (t.pan < 0.0 && channel == 0);
  if (!lowered) return FaderAmplitude(t.volumeDB);
  double const centre = std::pow(10.0, t.volumeDB / 20.0);
  double const x = (std::pow(10.0, -48.0 / 20.0) - centre) * std::fabs(t.pan) + centre;
  return FaderAmplitude(std::clamp(20.0 * std::log10(x), -127.0, 127.0));
}

// The mix at timeline frame `frame`, channel `c`.
double Reference(std::vector<ClipPlan> const& clips, std::vector<TrackPlan> const& tracks, std::int64_t frame, int c) {
  if (frame < 0) return 0.0;
  bool const anySolo = std::any_of(tracks.begin(), tracks.end(), [](TrackPlan const& t) { return t.solo; });
  double mix = 0.0;
  for (std::size_t t = 0; t < tracks.size(); ++t) {
    TrackPlan const& track = tracks[t];
    if (track.muted || (anySolo && !track.solo)) continue;
    double sum = 0.0;
    for (ClipPlan const& clip : clips) {
      if (clip.track != static_cast<int>(t)) continue;
      std::int64_t const k = frame - Frames(clip.position);
      if (k < 0 || k >= clip.frames) continue;
      double x = Signal(clip.tag, static_cast<int>(k), clip.channels == 1 ? 0 : c);
      x *= LineGain(clip.volume, k, VolumePointAmplitude);
      x *= LineGain(clip.pan, k, [c](double v) { return PanPointAmplitude(v, c); });
      sum += x;
    }
    sum *= TrackGain(track, c);
    sum *= track.amplify;
    sum *= LineGain(track.automation, frame, VolumePointAmplitude);
    mix += sum;
  }
  return mix;
}

// ---- the project under test ----

std::vector<float> ReadAll(LSoundSource const& s, int frames, std::vector<int> const& sizes) {
  std::vector<float> out(static_cast<std::size_t>(frames) * 2);
  std::size_t k = 0;
  for (int done = 0; done < frames;) {
    int const n = std::min(sizes[k++ % sizes.size()], frames - done);
    s->Read(out.data() + static_cast<std::size_t>(done) * 2, n);
    done += n;
  }
  return out;
}

class ProjectMixGoldenTest : public CutListTest {
 protected:
  void SetUp() override {
    CutListTest::SetUp();
    // Clip 0 rises out of silence, swells above unity and falls; its pan swings
    // right then left. Values are picked where the whole-dB rounding decides:
    // 0.3 is +3.6 dB, so +4; -0.35 is -16.8, so -17; -0.21875 is -10.5, which
    // goes away from zero to -11. Clip 1 is mono, on the same track, overlapping it. The
    // other tracks each have one clip, at their own offsets.
    clips = {
        {0, 6000, 2, 10, 0, {{0, -1.0}, {40, 0.0}, {70, 0.3}, {136, -0.35}}, {{0, 0.0}, {60, 0.5}, {136, -0.21875}}},
        {1, 3000, 1, 50, 0, {}, {}},
        {2, 5000, 2, 0, 1, {}, {{0, 0.0}, {113, -1.0}}},
        {3, 4000, 2, 30, 2, {{0, 0.0}, {91, -0.5}}, {}},
        {4, 4000, 2, 5, 3, {}, {}},
    };
    tracks.resize(kTracks);
    tracks[0].volumeDB = -4.5f;
    tracks[0].pan = 0.3;
    tracks[1].volumeDB = 2.3f;
    tracks[1].pan = -0.6;
    tracks[1].amplify = 1.5f;
    tracks[1].automation = {{20, 0.0}, {60, -0.5}, {90, 0.4}, {200, 0.0}};
    tracks[2].muted = true;
    tracks[3].volumeDB = -10.0f;
  }
  void TearDown() override {
    project.Close();
    CutListTest::TearDown();
  }

  void Build() {
    for (int t = 0; t < kTracks; ++t) project.Tracks.AddTrack();
    for (ClipPlan const& plan : clips) {
      LCutListAudio list;
      {
        LSoundSink sink = list.OpenSink(kRate, plan.channels);
        std::vector<float> block(static_cast<std::size_t>(plan.frames) * plan.channels);
        for (int f = 0; f < plan.frames; ++f) {
          for (int c = 0; c < plan.channels; ++c) {
            block[static_cast<std::size_t>(f) * plan.channels + c] = Signal(plan.tag, f, c);
          }
        }
        sink->Write(block.data(), plan.frames);
      }
      auto clip = std::make_unique<TDClipAudio>(list);
      clip->iPosition = plan.position;
      clip->InitFadePoints();
      for (FadeType type : {FadeTypeVolume, FadeTypePan}) {
        std::vector<Point> const& line = type == FadeTypeVolume ? plan.volume : plan.pan;
        if (line.empty()) continue;
        TDClipFadePoints& list = clip->GetFadeListByType(type);
        list.clear();
        for (Point const& p : line) list.push_back(TDClipFadePoint{p.value, p.ms, type});
      }
      ASSERT_NE(project.AddClip(std::move(clip), plan.track, false), nullptr);
    }
    for (int t = 0; t < kTracks; ++t) {
      TrackPlan const& plan = tracks[static_cast<std::size_t>(t)];
      project.Tracks.SetTrackVolume(t, plan.volumeDB);
      project.Tracks.SetTrackPan(t, plan.pan);
      if (plan.solo) project.Tracks.SetTrackSolo(t, true);
      if (plan.muted) project.Tracks.SetTrackMute(t, true);
      TDTrack* track = project.Tracks.GetTrack(t);
      if (plan.amplify != 1.0f) track->EffectChain.Append(std::make_unique<LSPGain>(plan.amplify));
      if (!plan.automation.empty()) {
        TDTrackAutomation* row = track->Automation.GetAutomationTrack(
            track->Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0));
        row->vPoints.clear();
        for (Point const& p : plan.automation) row->vPoints.push_back({p.value, p.ms});
      }
    }
  }

  // Every sample of `got` (starting at timeline frame `from`) against the reference.
  void ExpectReference(std::vector<float> const& got, std::int64_t from, char const* what) {
    int const frames = static_cast<int>(got.size() / 2);
    for (int i = 0; i < frames; ++i) {
      for (int c = 0; c < 2; ++c) {
        ASSERT_NEAR(got[static_cast<std::size_t>(2 * i + c)], Reference(clips, tracks, from + i, c), kTolerance)
            << what << ": frame " << from + i << " channel " << c;
      }
    }
  }

  // A seek to each frame, then a read, gives what reading straight through gave.
  void ExpectSeeksMatch(LSoundSource const& mix, std::vector<float> const& straight) {
    for (int at : {3000, 441, 0, 2205, 1763, 6440, 2646, 4409, 5000, 1}) {
      mix->Seek(at);
      ASSERT_EQ(mix->GetPositionSample(), at);
      int const n = std::min(1500, kRender - at);
      std::vector<float> const got = ReadAll(mix, n, {257, 1000, 31});
      for (int i = 0; i < 2 * n; ++i) {
        ASSERT_EQ(got[static_cast<std::size_t>(i)], straight[static_cast<std::size_t>(2 * at + i)])
            << "after a seek to " << at << ", sample " << i;
      }
    }
  }

  std::vector<ClipPlan> clips;
  std::vector<TrackPlan> tracks;
  TDProject project;
};

TEST_F(ProjectMixGoldenTest, ExportAndPlaybackMatchTheReferenceAndSeeksLandOnIt) {
  Build();
  LSoundSource const exported = project.OpenSourceForExport(kRate, 2, nullptr, false);
  ASSERT_TRUE(exported.IsGood());
  ASSERT_EQ(exported->GetChannels(), 2);
  // The muted track plays no part, so the end is the last heard clip's: clip 0 at frame 441.
  EXPECT_EQ(exported->GetEndSample(), 441 + 6000);
  std::vector<float> const straight = ReadAll(exported, kRender, {700, 2205, 333, 8192, 1});
  ExpectReference(straight, 0, "export");
  ExpectSeeksMatch(exported, straight);

  // Playback without the metronome is the same mix; before frame 0 it is silent.
  LSoundSource const played = project.OpenNonLoopSource(kRate, 2, nullptr);
  ASSERT_TRUE(played.IsGood());
  played->Seek(-3000);
  std::vector<float> const early = ReadAll(played, 3000 + kRender, {2205, 999});
  for (int i = 0; i < 2 * 3000; ++i) ASSERT_EQ(early[static_cast<std::size_t>(i)], 0.0f) << "before 0, sample " << i;
  ExpectReference(std::vector<float>(early.begin() + 2 * 3000, early.end()), 0, "playback from -3000");
}

TEST_F(ProjectMixGoldenTest, ASoloSilencesTheOtherTracksAndTheMetronomeAloneSoundsBeforeZero) {
  tracks[0].solo = true;
  tracks[1].solo = true;  // track 3 is now silent, track 2 stays muted
  Build();
  project.Metronome.bMetronomeOn = true;
  // Let it count in: at 120 BPM a beat falls every 22050 frames, two of them
  // before frame 0.
  constexpr int kCountIn = 50000;
  project.Metronome.SetMetronomeBoundary(-kCountIn, TDProjectMetronomeFeature::kDefaultBoundaryEnd);

  // The metronome on its own: the same project with every track muted.
  auto metronomeAlone = [&] {
    std::vector<std::pair<bool, bool>> kept;
    for (int t = 0; t < kTracks; ++t) {
      TDTrack const* track = project.Tracks.GetTrack(t);
      kept.emplace_back(track->bMute, track->bSolo);
      project.Tracks.SetTrackMute(t, true);
    }
    LSoundSource const alone = project.OpenNonLoopSource(kRate, 2, nullptr);
    for (int t = 0; t < kTracks; ++t) {
      project.Tracks.SetTrackMute(t, kept[static_cast<std::size_t>(t)].first);
      if (kept[static_cast<std::size_t>(t)].second) project.Tracks.SetTrackSolo(t, true);
    }
    return alone;
  };

  LSoundSource const mix = project.OpenNonLoopSource(kRate, 2, nullptr);
  LSoundSource const ticks = metronomeAlone();
  ASSERT_TRUE(mix.IsGood());
  ASSERT_TRUE(ticks.IsGood());
  mix->Seek(-kCountIn);
  ticks->Seek(-kCountIn);
  int const frames = kCountIn + kRender;
  std::vector<float> const got = ReadAll(mix, frames, {700, 2205, 333});
  std::vector<float> const click = ReadAll(ticks, frames, {2205, 999});

  // Before frame 0 the tracks add nothing: what sounds is the metronome alone,
  // and it does sound.
  double heard = 0.0;
  for (int i = 0; i < 2 * kCountIn; ++i) {
    std::size_t const k = static_cast<std::size_t>(i);
    ASSERT_EQ(got[k], click[k]) << "before 0, frame " << i / 2 - kCountIn;
    heard = std::max(heard, std::fabs(static_cast<double>(got[k])));
  }
  EXPECT_GT(heard, 0.01);

  // From frame 0 on, the mix less the metronome is the solo tracks' reference.
  std::vector<float> tracksOnly(2 * kRender);
  for (std::size_t k = 0; k < tracksOnly.size(); ++k) {
    tracksOnly[k] = got[2 * kCountIn + k] - click[2 * kCountIn + k];
  }
  ExpectReference(tracksOnly, 0, "solo");

  // The metronome follows the mix's seeks, so seeking the whole mix anywhere
  // gives what reading through gave.
  ExpectSeeksMatch(mix, std::vector<float>(got.begin() + 2 * kCountIn, got.end()));
}

}  // namespace
