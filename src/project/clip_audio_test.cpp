#include "project/clip_audio.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "project/testing_cut_lists.h"

namespace {

using ClipAudioTest = CutListTest;

using Segs = std::vector<std::tuple<int, int, int>>;

Segs Segments(LCutListAudio const& list) {
  Segs out;
  list.ForEachSegment([&](LCutListSegment const& s) { out.emplace_back(s.GetCut(), s.iStart, s.iLength); });
  return out;
}

// The file frame each frame of the list plays, -1 for silence.
std::vector<int> FileFrames(LCutListAudio const& list) {
  std::vector<int> out;
  list.ForEachSegment([&](LCutListSegment const& s) {
    for (int i = 0; i < s.iLength; ++i) out.push_back(s.IsSilence() ? -1 : s.iStart + i);
  });
  return out;
}

std::unique_ptr<TDClipAudio> KnownClip(int seconds, int rate, LSoundTime position = 0) {
  LCutListAudio list;
  MakeKnownFile(list, 1, seconds * rate, 1, rate);
  auto clip = std::make_unique<TDClipAudio>(list);
  clip->iPosition = position;
  return clip;
}

TEST_F(ClipAudioTest, ExpandingRepeatsTheBaseAndTrimmingBackRestoresIt) {
  auto clip = KnownClip(10, 44100, 5000);
  Segs const before = Segments(clip->GetCutListAudio());
  LAudioCutRef const cut = static_cast<LAudioCutRef>(std::get<0>(before[0]));
  EXPECT_EQ(clip->GetEnd(), 10000);

  clip->SetTrimOrExpandEnd(25000);
  clip->TrimOrExpandEnd();
  EXPECT_EQ(clip->GetEnd(), 35000);
  int const l = 441000;
  EXPECT_EQ(Segments(clip->GetCutListAudio()), (Segs{{cut, 0, l}, {cut, 0, l}, {cut, 0, l}, {cut, 0, l / 2}}));
  EXPECT_EQ(clip->iPosition, 5000);

  clip->SetTrimOrExpandEnd(-25000);
  clip->TrimOrExpandEnd();
  EXPECT_EQ(Segments(clip->GetCutListAudio()), before);

  // Expanding at the head goes back into the loop: the clip moves left and starts
  // with the tail of the base.
  clip->SetTrimOrExpandStart(-2500);
  clip->TrimOrExpandStart();
  EXPECT_EQ(clip->iPosition, 2500);
  EXPECT_EQ(Segments(clip->GetCutListAudio()), (Segs{{cut, l - l / 4, l / 4}, {cut, 0, l}}));
  // Not before the timeline's start.
  clip->SetTrimOrExpandStart(-9000);
  clip->TrimOrExpandStart();
  EXPECT_EQ(clip->iPosition, 0);
  EXPECT_EQ(clip->GetEnd(), 15000);
}

// Random trims and expansions at both ends, going negative too: the clip always
// plays exactly the window of the base repeated for ever, computed here frame by
// frame from the totals alone.
TEST_F(ClipAudioTest, TheWindowOverTheRepeatedBaseIsAlwaysExact) {
  constexpr int kRate = 1000;
  constexpr int kBase = 3000;  // 3 s at 1 frame per ms
  auto clip = KnownClip(3, kRate, 100000);
  std::mt19937 rng(99);
  std::uniform_int_distribution<int> delta(-7000, 7000);
  for (int step = 0; step < 300; ++step) {
    if (rng() % 2 == 0) {
      clip->SetTrimOrExpandStart(delta(rng));
      clip->TrimOrExpandStart();
    } else {
      clip->SetTrimOrExpandEnd(delta(rng));
      clip->TrimOrExpandEnd();
    }
    long const from = clip->iTrimStartTotal;  // one frame per ms
    long const to = kBase + clip->iTrimEndTotal;
    std::vector<int> expected;
    for (long f = from; f < to; ++f) expected.push_back(static_cast<int>(((f % kBase) + kBase) % kBase));
    ASSERT_EQ(FileFrames(clip->GetCutListAudio()), expected) << "step " << step;
    ASSERT_EQ(clip->GetEnd(), to - from);
    ASSERT_GE(clip->GetEnd(), 1);
  }
}

TEST_F(ClipAudioTest, SilenceStaysInTheFirstRepeatAndCutsMoveOrRebase) {
  auto clip = KnownClip(2, 1000, 1000);  // 2000 frames at 1000..3000 ms
  clip->SilenceRegion(1500, 1600);
  clip->SetTrimOrExpandEnd(2000);
  clip->TrimOrExpandEnd();
  std::vector<int> const f = FileFrames(clip->GetCutListAudio());
  ASSERT_EQ(f.size(), 4000u);
  EXPECT_EQ(f[550], -1);   // silenced in what played
  EXPECT_EQ(f[2550], 550);  // the repeat comes from the untouched base

  // A cut at the clip's start is a trim of its head: the clip moves.
  auto head = KnownClip(2, 1000, 1000);
  head->CutFromMiddle(500, 1300);  // clamped to the clip: 1000..1300
  EXPECT_EQ(head->iPosition, 1300);
  EXPECT_EQ(head->GetEnd(), 1700);
  EXPECT_EQ(FileFrames(head->GetCutListAudio()).front(), 300);
  // One in the middle removes the frames and makes the rest the new base.
  head->CutFromMiddle(1500, 1600);
  EXPECT_EQ(head->GetEnd(), 1600);
  EXPECT_EQ(head->iTrimStartTotal, 0);
  EXPECT_EQ(Segments(head->GetBaseCutListAudio()), Segments(head->GetCutListAudio()));
  // One that reaches the end trims the tail.
  head->CutFromMiddle(2800, 9999);
  EXPECT_EQ(head->GetEndTime(), 2800);
  // Restore brings back the file as it came.
  LProcessInterfaceVoid quiet;
  head->RestoreToOriginal(quiet);
  EXPECT_EQ(head->GetEnd(), 2000);
}

TEST_F(ClipAudioTest, SplitAndJoinGiveBackTheSameSound) {
  auto clip = KnownClip(2, 1000, 500);
  std::vector<int> const whole = FileFrames(clip->GetCutListAudio());
  EXPECT_EQ(clip->Split(500), nullptr);  // at the edge: nothing to split
  std::unique_ptr<TDClipAudio> right = clip->Split(1200);
  ASSERT_NE(right, nullptr);
  EXPECT_EQ(clip->GetEnd(), 700);
  EXPECT_EQ(right->GetEnd(), 1300);
  EXPECT_EQ(right->iPosition, 500);  // placing it is the caller's business
  EXPECT_EQ(FileFrames(right->GetCutListAudio()).front(), 700);
  ASSERT_TRUE(clip->Join(*right, false));
  EXPECT_EQ(FileFrames(clip->GetCutListAudio()), whole);

  LCutListAudio stereo;
  MakeKnownFile(stereo, 2, 100, 2, 1000);
  TDClipAudio other(stereo);
  EXPECT_FALSE(clip->Join(other, true));  // another channel count
}

// Without a phase vocoder a stretch changes speed by the rate converter: the
// length is the one asked for and the pitch goes with it.
TEST_F(ClipAudioTest, StretchRendersANewFileOfTheNewLength) {
  LCutListAudio list;
  {
    LSoundSink sink = list.OpenSink(8000, 1);
    std::vector<float> tone(16000);
    for (int i = 0; i < 16000; ++i) tone[static_cast<std::size_t>(i)] = 0.5f * std::sin(2 * M_PI * 200.0 * i / 8000);
    sink->Write(tone.data(), 16000);
  }
  TDClipAudio clip(list);
  LProcessInterfaceVoid quiet;
  ASSERT_EQ(clip.Stretch(quiet, 4000, false), LProcessFinished);
  EXPECT_NEAR(clip.GetEnd(), 4000, 2);
  EXPECT_EQ(Segments(clip.GetOriginalCutListAudio()), Segments(clip.GetCutListAudio()));
  // Count zero crossings in the middle: half the frequency over twice the time.
  LSoundSource s = clip.OpenSourceNoFades(8000, 1);
  std::vector<float> buf(32000);
  s->Read(buf.data(), 32000);
  int crossings = 0;
  for (int i = 8000; i < 24000; ++i) crossings += (buf[static_cast<std::size_t>(i - 1)] < 0) != (buf[static_cast<std::size_t>(i)] < 0);
  EXPECT_NEAR(crossings, 400, 4);  // 100 Hz over 2 s

  TDClipAudio again(list);
  EXPECT_EQ(again.Stretch(quiet, 1000, true), LProcessFailed);  // keeping pitch needs the vocoder
  EXPECT_EQ(again.GetEnd(), 2000);
}

// Zoomed out the outline comes from the .grf, zoomed in from the samples; where
// both can draw it they draw the same.
TEST_F(ClipAudioTest, LowAndHighResolutionProfilesAgree) {
  constexpr int kFrames = 256 * 400;
  std::vector<float> samples(static_cast<std::size_t>(kFrames) * 2);
  std::mt19937 rng(4);
  std::uniform_real_distribution<float> level(0.05f, 0.95f);
  for (int block = 0; block < kFrames / 256; ++block) {
    float const l = block % 7 == 0 ? 0.0f : level(rng);
    for (int i = 0; i < 256; ++i) {
      std::size_t const at = static_cast<std::size_t>(block * 256 + i) * 2;
      samples[at] = (i == 17) ? l : -l * 0.5f;
      samples[at + 1] = (i == 200) ? -l : 0.0f;
    }
  }
  LCutListAudio list;
  {
    LSoundSink sink = list.OpenSink(44100, 2);
    sink->Write(samples.data(), kFrames);
  }
  list.EfSilence(256 * 50, 256 * 60);
  LCutListAudio half;
  list.EfCopy(256 * 100, 256 * 120, half);
  half.EfGainAll(0.5f);
  list.EfPasteOver(256 * 200, 256 * 220, half);

  int const pixels = kFrames / 512;
  std::vector<std::uint8_t> hiUp(pixels), hiDown(pixels), loUp(pixels), loDown(pixels);
  TDProfileHighRes(list, 0, kFrames, pixels, hiUp.data(), hiDown.data());
  TDProfileLowRes(list, 0, kFrames, pixels, loUp.data(), loDown.data());
  for (int p = 0; p < pixels; ++p) {
    // The summary holds bytes that were already truncated; scaling by a gain then
    // truncates once more, so a scaled stretch may be one step lower.
    ASSERT_NEAR(loUp[static_cast<std::size_t>(p)], hiUp[static_cast<std::size_t>(p)], 1) << p;
    ASSERT_NEAR(loDown[static_cast<std::size_t>(p)], hiDown[static_cast<std::size_t>(p)], 1) << p;
  }
  EXPECT_EQ(hiUp[27], 0);  // silenced
  EXPECT_EQ(loUp[27], 0);
  EXPECT_GT(hiUp[1], 0);

  // The clip builds once per key and chooses by the frames per pixel.
  TDClipAudio clip(list);
  EXPECT_TRUE(clip.CreateWaveProfileIfChanged(0, 0, clip.GetEnd(), 200));
  EXPECT_FALSE(clip.CreateWaveProfileIfChanged(0, 0, clip.GetEnd(), 200));
  EXPECT_EQ(clip.GetProfilePixels(), 200);
  EXPECT_FALSE(clip.CreateWaveProfileIfChanged(0, 10, clip.GetEnd(), 10));
}

// Scrolling keeps the columns already made: each step reads only what came into
// view, and the result is the outline made afresh at that place.
TEST_F(ClipAudioTest, ScrolledColumnsMatchColumnsMadeAfresh) {
  constexpr int kFrames = 44100 * 4;
  std::vector<float> samples(static_cast<std::size_t>(kFrames));
  for (int i = 0; i < kFrames; ++i) {
    // A slow swell under a tone: every column has its own peak.
    samples[static_cast<std::size_t>(i)] = 0.9f * std::sin(i * 0.07f) * (0.5f + 0.5f * std::sin(i * 0.0003f));
  }
  LCutListAudio list;
  {
    LSoundSink sink = list.OpenSink(44100, 1);
    sink->Write(samples.data(), kFrames);
  }
  TDClipAudio scrolled(list);
  TDClipAudio fresh(list);
  double const spp = 55.125;  // 1.25 ms a column: read from the samples
  ASSERT_TRUE(scrolled.CreateWaveProfileColumns(spp, 0, 800));
  EXPECT_FALSE(scrolled.CreateWaveProfileColumns(spp, 0, 800));  // nothing new
  for (int first : {17, 40, 400, 390, 2500, 3000}) {
    ASSERT_TRUE(scrolled.CreateWaveProfileColumns(spp, first, 800));
    ASSERT_TRUE(fresh.CreateWaveProfileColumns(spp * 2, 0, 1));  // forget the grid
    ASSERT_TRUE(fresh.CreateWaveProfileColumns(spp, first, 800));
    int const columns = scrolled.GetProfileColumns();
    ASSERT_EQ(columns, 800);
    for (int c = 0; c < columns; ++c) {
      ASSERT_EQ(scrolled.GetUpperProfile()[c], fresh.GetUpperProfile()[c]) << first << " " << c;
      ASSERT_EQ(scrolled.GetLowerProfile()[c], fresh.GetLowerProfile()[c]) << first << " " << c;
    }
    // The columns hold the peaks of their own frames.
    int const c = 123;
    float peak = 0;
    for (int f = static_cast<int>(std::floor((first + c) * spp)); f < static_cast<int>(std::floor((first + c + 1) * spp)) && f < kFrames; ++f) {
      peak = std::max(peak, samples[static_cast<std::size_t>(f)]);
    }
    EXPECT_NEAR(scrolled.GetUpperProfile()[c], peak * 255, 1.5) << first;
    // Past the clip's end the columns are empty.
    if (first + columns > kFrames / spp) {
      EXPECT_EQ(scrolled.GetUpperProfile()[columns - 1], 0);
    }
  }
  EXPECT_FALSE(scrolled.CreateWaveProfileColumns(spp, -1, 10));
}

}  // namespace
