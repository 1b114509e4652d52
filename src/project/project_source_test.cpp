#include "project/project_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/table_effects.h"
#include "foundation/testing_allocations.h"
#include "project/clip_audio.h"
#include "project/clip_mixer.h"
#include "project/project.h"
#include "project/testing_cut_lists.h"
#include "sound/audio_buffer.h"
#include "sound/region_loop_sources.h"

namespace {

constexpr int kRate = 44100;

// A clip as the test knows it: which known file, how long, where.
struct Placed {
  int tag;
  int frames;
  int channels;
  int startFrame;  // worked out by hand from the clip's position in ms
  int track;
};

// What the mix must give at `frame`, channel `c`, from the clips alone: each
// clip's file sample where the clip covers the frame, a mono clip on both sides,
// each track's clips times that track's gain for the channel.
float Expected(std::vector<Placed> const& clips, int frame, int c, std::vector<float> const& leftGain = {},
               std::vector<float> const& rightGain = {}) {
  float sum = 0.0f;
  for (int track = 0; track < 8; ++track) {
    float trackSum = 0.0f;
    for (Placed const& p : clips) {
      if (p.track != track || frame < p.startFrame || frame >= p.startFrame + p.frames) continue;
      trackSum += KnownSample(p.tag, frame - p.startFrame, p.channels == 1 ? 0 : c);
    }
    std::vector<float> const& gains = c == 0 ? leftGain : rightGain;
    if (static_cast<std::size_t>(track) < gains.size()) trackSum *= gains[static_cast<std::size_t>(track)];
    sum += trackSum;
  }
  return sum;
}

// Reads `frames` frames in the block sizes given, round and round, so that reads
// start and end off the mix's 50 ms blocks.
std::vector<float> ReadInBlocks(LSoundSource const& s, int frames, std::vector<int> const& sizes = {700, 2205, 333,
                                                                                                       8192, 1}) {
  int const ch = s->GetChannels();
  std::vector<float> out(static_cast<std::size_t>(frames) * ch);
  std::size_t k = 0;
  for (int done = 0; done < frames;) {
    int const n = std::min(sizes[k++ % sizes.size()], frames - done);
    s->Read(out.data() + static_cast<std::size_t>(done) * ch, n);
    done += n;
  }
  return out;
}

class ProjectSourceTest : public CutListTest {
 protected:
  void SetUp() override {
    CutListTest::SetUp();
    for (int i = 0; i < 4; ++i) project.Tracks.AddTrack();
  }
  void TearDown() override {
    project.Close();
    CutListTest::TearDown();
  }

  TDClip* AddKnownClip(int tag, int frames, int channels, LSoundTime ms, int track, int rate = kRate) {
    LCutListAudio list;
    MakeKnownFile(list, tag, frames, channels, rate);
    auto clip = std::make_unique<TDClipAudio>(list);
    clip->iPosition = ms;
    return project.AddClip(std::move(clip), track, false);
  }

  // Three clips on tracks 0 and 2, one of them mono, two of them overlapping;
  // track 1 is empty. Positions 10 ms and 25 ms fall on frames 441 and 1102.
  std::vector<Placed> AddThreeClips() {
    AddKnownClip(1, 3000, 2, 10, 0);
    AddKnownClip(2, 2000, 1, 25, 0);
    AddKnownClip(3, 5000, 2, 0, 2);
    return {{1, 3000, 2, 441, 0}, {2, 2000, 1, 1102, 0}, {3, 5000, 2, 0, 2}};
  }

  LSoundSource OpenPlain(TDProjectSourceNotify* notify = nullptr, int channels = 2) {
    return project.OpenNonLoopSource(kRate, channels, notify);
  }

  TDProject project;
};

TEST_F(ProjectSourceTest, ClipsAtKnownPlacesMixToExactlyTheirSum) {
  std::vector<Placed> const clips = AddThreeClips();
  LSoundSource const mix = OpenPlain();
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetSampleRate(), kRate);
  EXPECT_EQ(mix->GetChannels(), 2);
  EXPECT_EQ(mix->GetPeakBound(), LSoundPeakUnknown);  // the limiter after the mix decides
  EXPECT_EQ(mix->GetEndSample(), 5000);
  EXPECT_EQ(project.GetProjectSoundSourceEnd(kRate), 5000);

  int const frames = 6000;  // past the end: silence
  std::vector<float> const out = ReadInBlocks(mix, frames);
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < 2; ++c) {
      ASSERT_EQ(out[static_cast<std::size_t>(2 * f + c)], Expected(clips, f, c)) << "frame " << f << " channel " << c;
    }
  }
  EXPECT_EQ(mix->GetPositionSample(), frames);
  auto* source = dynamic_cast<TDProjectSource*>(mix.Get());
  ASSERT_NE(source, nullptr);
  // Only tracks with clips are opened.
  ASSERT_EQ(source->GetOpenSources().size(), 2u);
  EXPECT_EQ(source->GetOpenSources()[0].iTrackIndex, 0);
  EXPECT_EQ(source->GetOpenSources()[1].iTrackIndex, 2);
  EXPECT_EQ(source->GetMixBlockFrames(), kRate / 20);
  // At the highest rates a 50 ms block would be more than a track may be asked for.
  LSoundSource const fast = project.OpenNonLoopSource(192000, 2, nullptr);
  EXPECT_EQ(dynamic_cast<TDProjectSource*>(fast.Get())->GetMixBlockFrames(), LSoundMaxReadFrames);
}

TEST_F(ProjectSourceTest, MuteAndSoloDecideWhichTracksAreHeardAndRead) {
  std::vector<Placed> const clips = AddThreeClips();
  std::vector<Placed> const track0(clips.begin(), clips.begin() + 2);
  std::vector<Placed> const track2(clips.begin() + 2, clips.end());

  project.Tracks.SetTrackMute(2, true);
  {
    LSoundSource const mix = OpenPlain();
    auto* source = dynamic_cast<TDProjectSource*>(mix.Get());
    ASSERT_EQ(source->GetOpenSources().size(), 1u);  // a muted track is not even opened
    std::vector<float> const out = ReadInBlocks(mix, 5000);
    for (int f = 0; f < 5000; ++f) ASSERT_EQ(out[static_cast<std::size_t>(2 * f)], Expected(track0, f, 0)) << f;
    // Playing still runs to the last clip; the export stops with the last one heard.
    EXPECT_EQ(mix->GetEndSample(), 5000);
    EXPECT_EQ(project.GetProjectExportEnd(kRate), 3441);
    EXPECT_EQ(project.OpenSourceForExport(kRate, 2, nullptr, false)->GetEndSample(), 3441);
  }

  project.Tracks.SetTrackSolo(2, true);  // also takes the mute off
  LSoundSource const mix = OpenPlain();
  auto* source = dynamic_cast<TDProjectSource*>(mix.Get());
  ASSERT_EQ(source->GetOpenSources().size(), 2u);
  EXPECT_TRUE(source->IsAnyTrackSolo());
  std::vector<float> const out = ReadInBlocks(mix, 5000);
  for (int f = 0; f < 5000; ++f) {
    ASSERT_EQ(out[static_cast<std::size_t>(2 * f + 1)], Expected(track2, f, 1)) << f;
  }
  // The track silenced by the solo was never read: it stands where it started.
  EXPECT_EQ(source->GetOpenSources()[0].lssSource->GetPositionSample(), 0);
  EXPECT_EQ(source->GetOpenSources()[1].lssSource->GetPositionSample(), 5000);
  EXPECT_FALSE(source->DoesTrackNeedPlaying(source->GetOpenSources()[0]));
  // Past its end a track needs no reading either.
  EXPECT_FALSE(source->DoesTrackNeedPlaying(source->GetOpenSources()[1]));
  // A seek reaches the silenced track too, so an un-solo after a reopen and a
  // seek finds it in step.
  mix->Seek(1234);
  EXPECT_EQ(source->GetOpenSources()[0].lssSource->GetPositionSample(), 1234);
}

TEST_F(ProjectSourceTest, TrackVolumePanAndEffectsShapeOnlyTheirTrack) {
  std::vector<Placed> const clips = AddThreeClips();
  project.Tracks.SetTrackVolume(0, -6.0f);
  project.Tracks.SetTrackPan(2, 0.5);  // leans left by lowering the right side
  project.Tracks.GetTrack(2)->EffectChain.Append(std::make_unique<LSPGain>(2.0f));

  float const minus6 = static_cast<float>(std::pow(10.0, -6.0 / 20.0));
  // Half-way pan lowers the right side to half-way, in amplitude, between unity
  // and the -48 dB of a full pan.
  double const halfPan = (std::pow(10.0, -48.0 / 20.0) - 1.0) * 0.5 + 1.0;
  std::vector<float> const left = {minus6, 1.0f, 2.0f};
  std::vector<float> const right = {minus6, 1.0f, static_cast<float>(2.0 * halfPan)};

  std::vector<float> const out = ReadInBlocks(OpenPlain(), 5000);
  for (int f = 0; f < 5000; f += 7) {
    for (int c = 0; c < 2; ++c) {
      float const want = Expected(clips, f, c, left, right);
      // The pan goes through the whole-dB table, interpolated: within a tenth of a percent.
      ASSERT_NEAR(out[static_cast<std::size_t>(2 * f + c)], want, 1e-3f * std::fabs(want) + 1e-9f)
          << "frame " << f << " channel " << c;
    }
  }
}

TEST_F(ProjectSourceTest, SeekLandsOnTheExactFrameFromAnywhere) {
  AddThreeClips();
  std::vector<float> const straight = ReadInBlocks(OpenPlain(), 5000);
  LSoundSource const mix = OpenPlain();
  ReadInBlocks(mix, 4000);  // seeks from a mix that has run, backwards and forwards
  for (int at : {1000, 0, 441, 1102, 2205 * 2 + 7, 4999, 3440}) {
    mix->Seek(at);
    EXPECT_EQ(mix->GetPositionSample(), at);
    int const n = std::min(900, 5000 - at);
    std::vector<float> const got = ReadInBlocks(mix, n, {123, 456});
    for (int i = 0; i < 2 * n; ++i) {
      ASSERT_EQ(got[static_cast<std::size_t>(i)], straight[static_cast<std::size_t>(2 * at + i)]) << "seek " << at;
    }
  }
}

TEST_F(ProjectSourceTest, BeforeTheStartOnlySilenceAndTheTracksComeInOnTime) {
  AddThreeClips();
  std::vector<float> const straight = ReadInBlocks(OpenPlain(), 3000);
  LSoundSource const mix = OpenPlain();
  // 1000 frames before the start: the mix's 50 ms block reaches across frame 0.
  mix->Seek(-1000);
  std::vector<float> const got = ReadInBlocks(mix, 4000, {2205});
  for (int f = 0; f < 1000; ++f) ASSERT_EQ(got[static_cast<std::size_t>(2 * f)], 0.0f) << f;
  for (int i = 0; i < 2 * 3000; ++i) ASSERT_EQ(got[static_cast<std::size_t>(2000 + i)], straight[static_cast<std::size_t>(i)]);
}

TEST_F(ProjectSourceTest, LoopsWrapOnTheExactFrame) {
  AddThreeClips();
  std::vector<float> const straight = ReadInBlocks(OpenPlain(), 5000);
  project.WorkRegion.Set(20, 60);  // frames 882 to 2646
  int const start = 882;
  int const length = 2646 - 882;

  LSoundSource const loop = project.OpenLoopSource(kRate, 2, LSoundSource(), LSoundSource(), nullptr);
  EXPECT_NE(dynamic_cast<LLoopSourceBase*>(loop.Get()), nullptr);
  loop->Seek(start + 100);
  int const frames = 3 * length + 500;
  std::vector<float> const got = ReadInBlocks(loop, frames);
  for (int i = 0; i < frames; ++i) {
    int const want = start + (100 + i) % length;
    ASSERT_EQ(got[static_cast<std::size_t>(2 * i)], straight[static_cast<std::size_t>(2 * want)]) << i;
    ASSERT_EQ(got[static_cast<std::size_t>(2 * i + 1)], straight[static_cast<std::size_t>(2 * want + 1)]) << i;
  }

  // Recording into the loop from before it: the run-in from 5 ms (frame 220),
  // then round the loop.
  LSoundSource const preroll = project.OpenPrerollLoopSource(kRate, 2, 5, LSoundSource(), LSoundSource(), nullptr);
  std::vector<float> const run = ReadInBlocks(preroll, 2 * length);
  for (int i = 0; i < 2 * length; ++i) {
    int const want = 220 + i < 2646 ? 220 + i : start + (220 + i - 2646) % length;
    ASSERT_EQ(run[static_cast<std::size_t>(2 * i)], straight[static_cast<std::size_t>(2 * want)]) << i;
  }

  // An empty region, or one past the mix's end, plays plainly.
  project.WorkRegion.Set(200, 300);
  EXPECT_EQ(dynamic_cast<LLoopSourceBase*>(
                project.OpenLoopSource(kRate, 2, LSoundSource(), LSoundSource(), nullptr).Get()),
            nullptr);
}

struct MeterLog : TDProjectSourceNotify {
  void mpSRCntfTrackLevel(TDTracksDB const& levels) override { records.push_back(levels); }
  std::vector<TDTracksDB> records;
};

TEST_F(ProjectSourceTest, MetersShowEachTracksLastBlockAndReachTheNotify) {
  AddThreeClips();
  MeterLog log;
  LSoundSource const mix = OpenPlain(&log);
  std::vector<float> buffer(2 * 4410);
  mix->Read(buffer.data(), 4410);  // two blocks of 50 ms
  ASSERT_EQ(log.records.size(), 1u);
  TDTracksDB const& db = log.records[0];
  EXPECT_EQ(db.iCurrentTime, 100);
  // The files rise frame by frame, so a block's peak is at its end. What stands
  // is the second block's: track 2's peak there is its frame 4409, at
  // (300000 + 4 * 4409 + c) / 2^24, -34.46 dB, where the first block's would
  // have been -34.7, shown as -35.
  EXPECT_EQ(db.Tracks[2].GetChannels(), 2);
  EXPECT_EQ(db.Tracks[2][0], -34);
  EXPECT_EQ(db.Tracks[2][1], -34);
  // Track 0's two clips overlap up to frame 3101: -34.43 dB there (-34.63 in the first block).
  EXPECT_EQ(db.Tracks[0][0], -34);
  EXPECT_EQ(db.Tracks[1][0], -127);
  EXPECT_EQ(db.Tracks[200][1], -127);

  // A block where a track plays nothing leaves it at silence.
  mix->Seek(4410);
  mix->Read(buffer.data(), 2205);
  EXPECT_EQ(log.records.back().Tracks[0][0], -127);
  EXPECT_EQ(log.records.back().Tracks[2][0], -34);
}

TEST_F(ProjectSourceTest, ExportEndsWithTheSelectionOrTheLastAudibleClip) {
  AddThreeClips();
  AddKnownClip(4, 1000, 2, 1000, 3);  // ends at 45100
  project.Tracks.SetTrackSolo(0, true);
  // The first clip's 3000 frames are 68 ms, rounded, from 10 ms.
  EXPECT_EQ(project.GetAudibleEnd(), 78);
  EXPECT_EQ(project.GetProjectExportEnd(kRate), 3441);
  EXPECT_EQ(project.GetProjectSoundSourceEnd(kRate), 45100);

  project.WorkRegion.Set(20, 60);
  LSoundSource const selection = project.OpenSourceForExport(kRate, 2, nullptr, true);
  EXPECT_EQ(selection->GetPositionSample(), 882);
  EXPECT_EQ(selection->GetEndSample(), 2646);
  EXPECT_EQ(project.dPlaybackSpeed, 1.0);
}

TEST_F(ProjectSourceTest, AnEmptyProjectIsAGoodSilentMixOfLengthZero) {
  LSoundSource const mix = OpenPlain();
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetEndSample(), 0);
  std::vector<float> out(2 * 100, 1.0f);
  mix->Read(out.data(), 100);
  for (float v : out) ASSERT_EQ(v, 0.0f);
  EXPECT_EQ(project.GetAudibleEnd(), 0);
}

TEST_F(ProjectSourceTest, TracksGoToTheirOutputChannelsAndAMonoMixTakesBothSides) {
  std::vector<Placed> const clips = AddThreeClips();
  std::vector<Placed> const track0(clips.begin(), clips.begin() + 2);
  std::vector<Placed> const track2(clips.begin() + 2, clips.end());

  LSoundSource const quad = OpenPlain(nullptr, 4);
  auto* source = dynamic_cast<TDProjectSource*>(quad.Get());
  EXPECT_TRUE(source->SetTrackOutputChannels(2, 2, 7));  // 7 wraps onto channel 3
  EXPECT_FALSE(source->SetTrackOutputChannels(1, 2, 3));
  std::vector<float> const out = ReadInBlocks(quad, 5000);
  for (int f = 0; f < 5000; ++f) {
    for (int c = 0; c < 2; ++c) {
      ASSERT_EQ(out[static_cast<std::size_t>(4 * f + c)], Expected(track0, f, c)) << f;
      ASSERT_EQ(out[static_cast<std::size_t>(4 * f + 2 + c)], Expected(track2, f, c)) << f;
    }
  }

  std::vector<float> const mono = ReadInBlocks(OpenPlain(nullptr, 1), 5000);
  for (int f = 0; f < 5000; f += 3) {
    float const both = Expected(clips, f, 0) + Expected(clips, f, 1);
    ASSERT_FLOAT_EQ(mono[static_cast<std::size_t>(f)], both * 0.5f) << f;
  }
}

TEST_F(ProjectSourceTest, AClipAtAnotherRateIsConvertedAndCountsAtTheMixRate) {
  AddKnownClip(1, 48000, 2, 100, 1, 48000);  // one second at 48 kHz from 4410
  EXPECT_EQ(project.GetProjectSoundSourceEnd(kRate), 4410 + 44100);
  LSoundSource const mix = OpenPlain();
  EXPECT_EQ(mix->GetEndSample(), 4410 + 44100);
  auto* source = dynamic_cast<TDProjectSource*>(mix.Get());
  EXPECT_EQ(source->GetOpenSources().at(0).iEnd, 4410 + 44100);
  std::vector<float> const out = ReadInBlocks(mix, 8000);
  EXPECT_EQ(out[2 * 4409], 0.0f);
  EXPECT_GT(out[2 * 7000], 0.0f);
}

// A live input: `ready` frames of 0.25 on every channel to be had at once.
class LiveInput : public LSoundSourceBase {
 public:
  LiveInput(int channels, int ready) : LSoundSourceBase(kRate, channels, LSoundPeakInRange), iReady(ready) {}
  void Read(float* buffer, int frames) override {
    std::fill(buffer, buffer + static_cast<std::size_t>(frames) * nChans, 0.25f);
    iReady -= frames;
  }
  int GetPositionSample() const override { return 0; }
  int GetEndSample() const override { return std::max(0, iReady); }

 private:
  int iReady;
};

TEST_F(ProjectSourceTest, TheMonitorAndTheMIDIStreamAddWhatTheyHaveReady) {
  std::vector<Placed> const clips = AddThreeClips();
  LSoundSource const monitor = LSoundSource::Make<LiveInput>(2, 300);
  LSoundSource const stream = LSoundSource::Make<LiveInput>(3, 5000);
  LSoundSource const mix = project.OpenNonLoopSource(kRate, 2, monitor, stream, 0, nullptr);
  // Live input makes the mix endless.
  EXPECT_EQ(mix->GetEndSample(), 0x7FFFFFFF);
  std::vector<float> const out = ReadInBlocks(mix, 6000, {6000});
  for (int f = 0; f < 6000; f += 5) {
    for (int c = 0; c < 2; ++c) {
      // The monitor had 300 frames; the stream had all 5000 at once, and only its
      // first two channels reach the output.
      float const live = (f < 300 ? 0.25f : 0.0f) + (f < 5000 ? 0.25f : 0.0f);
      ASSERT_FLOAT_EQ(out[static_cast<std::size_t>(2 * f + c)], Expected(clips, f, c) + live) << f;
    }
  }
}

struct ClipLevelLog : TDSrcMixerNotify {
  struct Entry {
    long id;
    LSoundTime time;
    signed char left;
  };
  void mpSRCntfClipLevel(LDBMultiChannel<LdB<signed char>> const& levels, long clipId, LSoundTime time) override {
    entries.push_back({clipId, time, levels[0]});
  }
  std::vector<Entry> entries;
};

// A constant level on every channel for `frames` frames.
class Constant : public LSoundSourceBase {
 public:
  Constant(float value, int frames) : LSoundSourceBase(kRate, 2, LSoundPeakInRange), fValue(value), iEnd(frames) {}
  void Read(float* buffer, int frames) override {
    for (int f = 0; f < frames; ++f, ++iPosition) {
      float const v = iPosition >= 0 && iPosition < iEnd ? fValue : 0.0f;
      buffer[2 * f] = buffer[2 * f + 1] = v;
    }
  }
  int GetPositionSample() const override { return iPosition; }
  int GetEndSample() const override { return iEnd; }
  void Seek(int frame) override { iPosition = frame; }

 private:
  float fValue;
  int iEnd;
  int iPosition = 0;
};

TEST(ClipMixer, SumsClipsAtTheirStartsAndTellsEachClipsLevel) {
  TDClipMixer builder;
  EXPECT_FALSE(builder.OpenSource(nullptr).IsGood());  // nothing to mix
  builder.AddSource(LSoundSource::Make<Constant>(0.5f, 1000), 100, 7);  // frame 4410
  builder.AddSource(LSoundSource::Make<Constant>(0.25f, 1000), 0, 8);
  // Far more clips than the builder's first room, all after the others.
  for (long id = 9; id < 300; ++id) builder.AddSource(LSoundSource::Make<Constant>(0.0f, 10), 200, id);
  EXPECT_EQ(builder.GetCount(), 293);
  ClipLevelLog log;
  LSoundSource const mix = builder.OpenSource(&log);
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetEndSample(), 8820 + 10);

  std::vector<float> out(2 * 4000);
  mix->Seek(4000);
  mix->Read(out.data(), 4000);
  for (int f = 0; f < 4000; ++f) {
    ASSERT_EQ(out[static_cast<std::size_t>(2 * f)], 4000 + f >= 4410 && 4000 + f < 5410 ? 0.5f : 0.0f) << f;
  }
  // Only the clip that sounded in the block was reported, at the block's time,
  // with its own level: 0.5 is -6 dB.
  ASSERT_EQ(log.entries.size(), 1u);
  EXPECT_EQ(log.entries[0].id, 7);
  EXPECT_EQ(log.entries[0].time, 90);
  EXPECT_EQ(log.entries[0].left, -6);

  mix->Seek(0);
  mix->Read(out.data(), 10);
  EXPECT_EQ(out[0], 0.25f);
  EXPECT_EQ(log.entries.back().id, 8);
}

TEST_F(ProjectSourceTest, ReadAllocatesNothing) {
  AddThreeClips();
  AddKnownClip(5, 30000, 1, 0, 3, 48000);  // through the rate converter
  TDTrack* track = project.Tracks.GetTrack(0);
  track->EffectChain.Append(std::make_unique<LSPGain>(0.5f));
  track->EffectChain.Append(std::make_unique<LSPLowPass>(2000));
  TDTrackAutomation* line =
      track->Automation.GetAutomationTrack(track->Automation.AddTrackAutomation(TDMakeAutomation(TDAutomationTypeGain), 0));
  line->vPoints = {{-1.0, 0}, {0.0, 40}};
  project.Tracks.SetTrackPan(2, -0.3);
  project.Metronome.bMetronomeOn = true;
  project.WorkRegion.Set(20, 600);
  MeterLog log;
  log.records.reserve(64);
  LSoundSource const loop =
      project.OpenLoopSource(kRate, 2, LSoundSource::Make<LiveInput>(2, 100000), LSoundSource(), &log);
  std::vector<float> buffer(2 * LSoundMaxReadFrames);
  loop->Read(buffer.data(), 16);  // first use of everything

  LAllocationWatch watch;
  for (int i = 0; i < 40; ++i) {
    loop->Read(buffer.data(), i % 2 == 0 ? LSoundMaxReadFrames : 1000 + i);
    if (i == 20) loop->Seek(900 + i);
  }
  EXPECT_EQ(watch.Count(), 0);
  // Every read reached the mix, and the meters went out each time (more reads
  // than asked, where the loop wrapped inside one).
  EXPECT_GE(log.records.size(), 41u);
  EXPECT_LE(log.records.size(), log.records.capacity());
}

}  // namespace
