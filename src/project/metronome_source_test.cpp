#include "project/metronome_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <utility>
#include <vector>

#include "foundation/file.h"
#include "project/clip_audio.h"
#include "project/project.h"
#include "project/project_source.h"
#include "project/testing_cut_lists.h"
#include "sound/region_loop_sources.h"
#include "sound/wave_file.h"

namespace {

constexpr double kFirst = TDProjectMetronomeFeature::kFirstTempoPosition;

// Stereo clicks that tell themselves apart: a beat starts 0.25, an accent 0.5,
// each followed by a frame at half that.
std::vector<float> Click(float level) { return {level, level, level / 2, level / 2}; }

LSRCMetronomeMultiTempo Metronome(int rate, std::vector<LTempoChange> tempos, int beatsPerBar, int start = 0,
                                  int boundaryStart = INT32_MIN, int boundaryEnd = INT32_MAX) {
  return LSRCMetronomeMultiTempo(rate, 2, tempos, beatsPerBar, Click(0.25f), Click(0.5f), start, boundaryStart,
                                 boundaryEnd);
}

// Every frame whose left sample is not zero, with that sample, from `from` on.
std::vector<std::pair<std::int64_t, float>> Sounding(LSoundSourceBase& s, int from, int frames) {
  std::vector<std::pair<std::int64_t, float>> out;
  std::vector<float> buffer(2 * 4000);
  int const sizes[] = {4000, 17, 2205, 999};
  for (int done = 0, k = 0; done < frames; ++k) {
    int const n = std::min(sizes[k % 4], frames - done);
    s.Read(buffer.data(), n);
    for (int f = 0; f < n; ++f) {
      if (buffer[static_cast<std::size_t>(2 * f)] != 0.0f) {
        out.emplace_back(from + done + f, buffer[static_cast<std::size_t>(2 * f)]);
      }
    }
    done += n;
  }
  return out;
}

// The clicks expected at the beat frames given, an accent where marked.
std::vector<std::pair<std::int64_t, float>> Clicks(std::vector<std::pair<std::int64_t, bool>> const& beats) {
  std::vector<std::pair<std::int64_t, float>> out;
  for (auto const& [frame, accent] : beats) {
    float const level = accent ? 0.5f : 0.25f;
    out.emplace_back(frame, level);
    out.emplace_back(frame + 1, level / 2);
  }
  return out;
}

TEST(Metronome, BeatsFallOnTheirFramesAcrossATempoChangeWithAccentsOnBarStarts) {
  // 120 BPM at 48 kHz is 24000 frames a beat; from beat 8 on, 60 BPM is 48000.
  auto m = Metronome(48000, {{kFirst, 120.0}, {8.0, 60.0}}, 4);
  EXPECT_EQ(m.GetEndSample(), 0x7FFFFFFF);
  auto const got = Sounding(m, 0, 400000);
  EXPECT_EQ(got, Clicks({{0, true},
                         {24000, false},
                         {48000, false},
                         {72000, false},
                         {96000, true},
                         {120000, false},
                         {144000, false},
                         {168000, false},
                         {192000, true},
                         {240000, false},
                         {288000, false},
                         {336000, false},
                         {384000, true}}));
}

TEST(Metronome, CountsInBeforeZeroAndClicksOnlyWithinItsBoundary) {
  // Bars run back from beat 0 too: beat -4 starts a bar.
  auto pre = Metronome(48000, {{kFirst, 120.0}}, 4, -96000);
  EXPECT_EQ(pre.GetPositionSample(), -96000);
  EXPECT_EQ(Sounding(pre, -96000, 96010),
            Clicks({{-96000, true}, {-72000, false}, {-48000, false}, {-24000, false}, {0, true}}));

  auto bounded = Metronome(48000, {{kFirst, 120.0}}, 4, 0, 24000, 96000);
  EXPECT_EQ(Sounding(bounded, 0, 200000), Clicks({{24000, false}, {48000, false}, {72000, false}}));
  // A time signature of 3 puts the accents three beats apart.
  auto waltz = Metronome(48000, {{kFirst, 120.0}}, 3);
  EXPECT_EQ(Sounding(waltz, 0, 96002), Clicks({{0, true}, {24000, false}, {48000, false}, {72000, true}, {96000, false}}));
}

TEST(Metronome, FractionalTempiRoundEachBeatToItsNearestFrame) {
  // 137 BPM at 44100 Hz: 19313.87 frames a beat, never accumulated into drift.
  auto m = Metronome(44100, {{kFirst, 137.0}}, 4);
  for (std::int64_t k = -50; k <= 5000; k += 7) {
    std::int64_t const exact2 = 2 * k * 44100 * 60;  // twice the beat's frame, times 137
    std::int64_t const nearest = k >= 0 ? (exact2 + 137) / 274 : -((-exact2 + 137) / 274);
    ASSERT_EQ(m.GetBeatFrame(k), nearest) << k;
    ASSERT_EQ(m.GetFirstBeatAtOrAfter(nearest), k);
    ASSERT_EQ(m.GetFirstBeatAtOrAfter(nearest + 1), k + 1);
  }
  // Tempi beyond the range the buffers are made for are held to it.
  auto fast = Metronome(48000, {{kFirst, 1000.0}}, 4);
  EXPECT_EQ(fast.GetBeatFrame(1), 10286);  // 280 BPM
  auto slow = Metronome(48000, {{kFirst, 1.0}}, 4);
  EXPECT_EQ(slow.GetBeatFrame(1), 288000);  // 10 BPM
}

TEST(Metronome, AClickIsCutByTheNextBeatAndASeekResumesIt) {
  // A click longer than any beat at 280 BPM: kept to one beat of the slowest
  // tempo in the list, and cut short by each next beat.
  std::vector<float> longClick;
  for (int i = 0; i < 20000; ++i) longClick.insert(longClick.end(), 2, static_cast<float>(i + 1) / 65536.0f);
  LSRCMetronomeMultiTempo m(48000, 2, {{kFirst, 280.0}}, 4, longClick, longClick, 0, INT32_MIN, INT32_MAX);
  EXPECT_EQ(m.GetBeatSoundFrames(), 10286);
  std::vector<float> out(2 * 20000);
  m.Read(out.data(), 20000);
  EXPECT_EQ(out[2 * 10285], 10286.0f / 65536.0f);  // the click's last frame before beat 1
  EXPECT_EQ(out[2 * 10286], 1.0f / 65536.0f);      // beat 1 starts it over

  m.Seek(10286 + 37);
  m.Read(out.data(), 1);
  EXPECT_EQ(out[0], 38.0f / 65536.0f);
  // A seek past a click's end is silent until the next beat.
  LSRCMetronomeMultiTempo shortOne(48000, 2, {{kFirst, 120.0}}, 4, Click(0.25f), Click(0.5f), 0, INT32_MIN,
                                   INT32_MAX);
  shortOne.Seek(24001);
  shortOne.Read(out.data(), 2);
  EXPECT_EQ(out[0], 0.125f);
  EXPECT_EQ(out[2], 0.0f);
}

TEST(Metronome, TheShippedClicksAreShortAudibleAndTheAccentStandsOut) {
  std::string const beatPath = TDDefaultMetronomeSoundPath("beat.wav");
  std::string const accentPath = TDDefaultMetronomeSoundPath("accent.wav");
  ASSERT_TRUE(LFile::Exists(beatPath)) << beatPath;
  ASSERT_TRUE(LFile::Exists(accentPath)) << accentPath;
  std::vector<float> const beat = TDLoadClickSound(beatPath, 48000, 1, 48000);
  std::vector<float> const accent = TDLoadClickSound(accentPath, 48000, 1, 48000);
  auto peak = [](std::vector<float> const& v) {
    float p = 0.0f;
    for (float s : v) p = std::max(p, std::fabs(s));
    return p;
  };
  // Under a tenth of a second, clearly heard, well within full scale.
  EXPECT_GT(beat.size(), 480u);
  EXPECT_LT(beat.size(), 4800u);
  EXPECT_LT(accent.size(), 4800u);
  EXPECT_GT(peak(beat), 0.1f);
  EXPECT_LT(peak(accent), 0.9f);
  EXPECT_GT(peak(accent), 1.2f * peak(beat));
  // Each dies away: the last hundredth of a second is far quieter than the peak.
  std::vector<float> const tail(beat.end() - 480, beat.end());
  EXPECT_LT(peak(tail), 0.05f * peak(beat));
  EXPECT_TRUE(TDLoadClickSound("/nonexistent/beat.wav", 48000, 1, 48000).empty());
}

// A project whose clicks and clips the tests write themselves.
class MetronomeInTheMix : public CutListTest {
 protected:
  static constexpr int kRate = 44100;  // 120 BPM: 22050 frames a beat

  void SetUp() override {
    CutListTest::SetUp();
    for (int i = 0; i < 2; ++i) project.Tracks.AddTrack();
    project.Metronome.SetMetronomeBeatSound(WriteClick("own-beat.wav", 0.25f));
    project.Metronome.SetMetronomeAccentSound(WriteClick("own-accent.wav", 0.5f));
    project.Metronome.bMetronomeOn = true;
  }
  void TearDown() override {
    project.Close();
    CutListTest::TearDown();
  }

  // A mono click file: `level`, then half of it.
  std::string WriteClick(char const* name, float level) {
    std::string const path = folder + "/" + name;
    LSoundSink sink = LWaveFile::OpenSinkFloat(path, kRate, 1);
    float const frames[] = {level, level / 2};
    sink->Write(frames, 2);
    return path;
  }

  void AddClipOfOnes(LSoundTime ms, int frames, int track) {
    LCutListAudio list;
    LSoundSink sink = list.OpenSink(kRate, 2);
    std::vector<float> ones(static_cast<std::size_t>(frames) * 2, 1.0f / 1024);
    sink->Write(ones.data(), frames);
    sink.Close();
    auto clip = std::make_unique<TDClipAudio>(list);
    clip->iPosition = ms;
    project.AddClip(std::move(clip), track, false);
  }

  std::vector<std::pair<std::int64_t, float>> ClicksOf(LSoundSource const& mix, int from, int frames) {
    return Sounding(*mix, from, frames);
  }

  TDProject project;
};

TEST_F(MetronomeInTheMix, ClicksAtItsVolumeInPlayButNeverInAnExport) {
  project.Metronome.SetMetronomeVolume(-6);
  project.iTimeSignatureBeats = 3;
  project.Metronome.SetTempoChanges({{kFirst, 120.0}, {4.0, 60.0}});
  LSoundSource const mix = project.OpenNonLoopSource(kRate, 2, nullptr);
  ASSERT_TRUE(project.Metronome.GetMetronomeSource().IsGood());
  auto* source = dynamic_cast<TDProjectSource*>(mix.Get());
  ASSERT_NE(source, nullptr);
  float const half = static_cast<float>(std::pow(10.0, -6.0 / 20.0));
  // The mix has no clips: only the metronome sounds, ahead of any end.
  auto const got = ClicksOf(mix, 0, 200000);
  std::vector<std::pair<std::int64_t, bool>> const beats = {
      {0, true}, {22050, false}, {44100, false}, {66150, true}, {88200, false}, {132300, false}, {176400, true}};
  auto const want = Clicks(beats);
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].first, want[i].first);
    EXPECT_NEAR(got[i].second, want[i].second * half, 1e-4f);
  }

  LSoundSource const exported = project.OpenSourceForExport(kRate, 2, nullptr, false);
  exported->Seek(0);
  EXPECT_TRUE(ClicksOf(exported, 0, 100000).empty());
  project.Metronome.bMetronomeOn = false;
  EXPECT_TRUE(ClicksOf(project.OpenNonLoopSource(kRate, 2, nullptr), 0, 100000).empty());
}

TEST_F(MetronomeInTheMix, CountsInBeforeZeroWhileTheTracksWaitAndIgnoresSolo) {
  AddClipOfOnes(0, 50000, 0);
  AddClipOfOnes(0, 50000, 1);
  project.Tracks.SetTrackSolo(1, true);
  // Play starts a bar of 2/4 early; the metronome may click from there.
  project.iTimeSignatureBeats = 2;
  project.Metronome.SetMetronomeBoundary(-2 * 22050, INT32_MAX);
  LSoundSource const mix = project.OpenNonLoopSource(kRate, 2, nullptr);
  mix->Seek(-2 * 22050);
  std::vector<float> out(2 * 4 * 22050);
  for (int done = 0; done < 4 * 22050; done += 2205) mix->Read(out.data() + 2 * done, 2205);
  auto at = [&](int frame) { return out[static_cast<std::size_t>(2 * (frame + 2 * 22050))]; };
  EXPECT_EQ(at(-44100), 0.5f);  // beat -2 starts the bar of the count-in; nothing else plays yet
  EXPECT_EQ(at(-22050), 0.25f);
  EXPECT_EQ(at(-1), 0.0f);
  // From frame 0 the solo track plays (the other is silenced) and the accent clicks on top.
  EXPECT_EQ(at(0), 0.5f + 1.0f / 1024);
  EXPECT_EQ(at(2), 1.0f / 1024);
  EXPECT_EQ(at(22050), 0.25f + 1.0f / 1024);
}

TEST_F(MetronomeInTheMix, StaysOnTheBeatWhenALoopWraps) {
  AddClipOfOnes(0, 200000, 0);
  std::vector<float> straight(2 * 150000);
  LSoundSource const plain = project.OpenNonLoopSource(kRate, 2, nullptr);
  for (int done = 0; done < 150000; done += 5000) plain->Read(straight.data() + 2 * done, 5000);

  // A loop of 1.3 beats from 0.5 s (22050 frames): it wraps inside a click and
  // between clicks, and must sound as the timeline does at every frame.
  project.WorkRegion.Set(500, 1150);
  LSoundSource const loop = project.OpenLoopSource(kRate, 2, LSoundSource(), LSoundSource(), nullptr);
  loop->Seek(22050);
  int const length = 50715 - 22050;
  std::vector<float> out(2 * 3 * length);
  for (int done = 0; done < 3 * length; done += 1000) loop->Read(out.data() + 2 * done, std::min(1000, 3 * length - done));
  for (int i = 0; i < 3 * length; ++i) {
    int const t = 22050 + i % length;
    ASSERT_EQ(out[static_cast<std::size_t>(2 * i)], straight[static_cast<std::size_t>(2 * t)]) << i;
  }
}

TEST_F(MetronomeInTheMix, WhenRecordingItMayOnlyCountIn) {
  project.SetMixSettingsProvider([] {
    TDMixSettings s;
    s.bMetronomePrerollOnly = true;
    return s;
  });
  project.Metronome.bPreroll = true;
  project.Metronome.SetMetronomeRecordingPreroll(2);
  // Recording at 1 s, with two beats of pre-roll: the mix starts at 0 s.
  LSoundSource const mix = project.OpenNonLoopSource(kRate, 2, LSoundSource(), LSoundSource(), 0, nullptr);
  EXPECT_EQ(mix->GetPositionSample(), 0);
  EXPECT_EQ(ClicksOf(mix, 0, 200000), Clicks({{0, true}, {22050, false}}));

  project.SetMixSettingsProvider(nullptr);
  EXPECT_EQ(ClicksOf(project.OpenNonLoopSource(kRate, 2, LSoundSource(), LSoundSource(), 0, nullptr), 0, 50000).size(),
            6u);
}

TEST_F(MetronomeInTheMix, MissingOwnSoundsFallBackToTheShippedOnes) {
  project.Metronome.SetMetronomeBeatSound(folder + "/gone.wav");
  project.Metronome.SetMetronomeAccentSound("");
  LSoundSource const m = project.OpenMetronomeSource(kRate, 2, 0);
  ASSERT_TRUE(m.IsGood());
  auto* typed = dynamic_cast<LSRCMetronomeMultiTempo*>(m.Get());
  ASSERT_NE(typed, nullptr);
  EXPECT_GT(typed->GetBeatSoundFrames(), 400);
  EXPECT_GT(typed->GetAccentSoundFrames(), 400);
}

}  // namespace
