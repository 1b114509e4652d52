#include "sound/region_loop_sources.h"

#include <gtest/gtest.h>

#include "sound/testing_sources.h"

namespace {

// Checks that `data` (channel 0 of a mono or multi-channel block) holds the source
// frames first, first+1, ...; a negative number in `frames` stands for a zero.
void ExpectFrames(std::vector<float> const& data, int channels, std::vector<int> const& frames) {
  ASSERT_EQ(data.size(), frames.size() * static_cast<std::size_t>(channels));
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (int c = 0; c < channels; ++c) {
      float const want = frames[f] < 0 ? 0.0f : TestRamp(frames[f], c);
      ASSERT_EQ(data[f * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)], want)
          << "output frame " << f << " channel " << c;
    }
  }
}

std::vector<int> Span(int from, int count) {
  std::vector<int> v;
  for (int i = 0; i < count; ++i) v.push_back(from < 0 ? -1 : from + i);
  return v;
}

std::vector<int> Cat(std::vector<int> a, std::vector<int> const& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace

TEST(RegionSource, PlaysTheRegionThenZerosAndSwapsReversedBounds) {
  LSoundSource region = LSoundSource::Make<LRegionSourceBase>(MakeRampSource(48000, 2, 1000), 200, 100);
  EXPECT_EQ(region->GetPositionSample(), 100);
  EXPECT_EQ(region->GetEndSample(), 200);
  EXPECT_EQ(region->GetPeakBound(), 16.0f);
  // Crosses the end inside one read.
  ExpectFrames(ReadAll(region, 150, 150), 2, Cat(Span(100, 100), Span(-1, 50)));
  EXPECT_EQ(region->GetPositionSample(), 250);
  ExpectFrames(ReadAll(region, 10), 2, Span(-1, 10));
  EXPECT_EQ(region->GetPositionSample(), 260);
}

TEST(RegionSource, SeekClampsToTheRegionAndTheSource) {
  LSoundSource region = LSoundSource::Make<LRegionSourceBase>(MakeRampSource(48000, 1, 1000), 100, 200);
  region->Seek(150);
  ExpectFrames(ReadAll(region, 10), 1, Span(150, 10));
  region->Seek(50);
  EXPECT_EQ(region->GetPositionSample(), 100);
  ExpectFrames(ReadAll(region, 3), 1, Span(100, 3));
  region->Seek(5000);
  EXPECT_EQ(region->GetPositionSample(), 200);
  ExpectFrames(ReadAll(region, 3), 1, Span(-1, 3));

  // A region reaching past both ends of its source: zeros outside the source.
  LSoundSource wide = LSoundSource::Make<LRegionSourceBase>(MakeRampSource(48000, 1, 10), -5, 20);
  ExpectFrames(ReadAll(wide, 30, 7), 1, Cat(Cat(Span(-1, 5), Span(0, 10)), Span(-1, 15)));
}

TEST(RegionSource, OverASourceInError) {
  LRegionSourceBase region(LSoundSource(), 0, 10);
  EXPECT_EQ(region.GetErrorState(), LSoundErrorBelow);
}

TEST(LoopSource, WrapsAtTheEndWithoutEnd) {
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(MakeRampSource(48000, 2, 1000), 100, 200);
  EXPECT_EQ(loop->GetEndSample(), 0x7FFFFFFF);
  // Plays from where the source stands, before the loop, and folds on its end.
  ExpectFrames(ReadAll(loop, 250, 250), 2, Cat(Cat(Span(0, 200), Span(100, 50)), {}));
  EXPECT_EQ(loop->GetPositionSample(), 150);
  ExpectFrames(ReadAll(loop, 120, 7), 2, Cat(Span(150, 50), Span(100, 70)));
}

TEST(LoopSource, SeekFoldsIntoTheLoop) {
  auto* raw = new LTestFunctionSource(48000, 1, 1000, TestRamp);
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(LSoundSource(raw), 100, 200);
  struct {
    int seek, lands;
  } const cases[] = {{150, 150}, {250, 150}, {50, 150}, {-150, 150}, {100, 100}, {200, 200}, {520, 120}, {0, 200}};
  for (auto const& c : cases) {
    loop->Seek(c.seek);
    EXPECT_EQ(raw->sPosition, c.lands) << "seek " << c.seek;
  }
  loop->Seek(200);  // at the loop end the next read starts over
  ExpectFrames(ReadAll(loop, 2), 1, Span(100, 2));
}

TEST(LoopSource, OffsetsAndControlMessagesFold) {
  auto* raw = new LTestFunctionSource(48000, 1, 1000, TestRamp);
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(LSoundSource(raw), 100, 200);
  EXPECT_EQ(loop->AdjustRelativeOffset(30, 190), -70);   // 220 -> 120
  EXPECT_EQ(loop->AdjustRelativeOffset(-100, 150), 0);   // 50 -> 150
  EXPECT_EQ(loop->AdjustRelativeOffset(20, 120), 20);    // inside: unchanged

  raw->sPosition = 190;
  long v = 30;
  EXPECT_TRUE(loop->ControlMessage(LSoundControl::TranslateOffset, &v));
  EXPECT_EQ(v, -70);
  v = 50;
  EXPECT_TRUE(loop->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 150);
  v = 150;
  EXPECT_TRUE(loop->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 150);
  // Codes a loop does not know go down unchanged; all codes reach the source.
  raw->iTakeCode = 4;
  v = 1;
  EXPECT_TRUE(loop->ControlMessage(4, &v));
  EXPECT_EQ(v, 1001);
  EXPECT_EQ(raw->codes, (std::vector<int>{6, 5, 5, 4}));
}

TEST(LoopSource, IsFittedIntoTheSource) {
  LLoopSourceBase beforeZero(MakeRampSource(48000, 1, 1000), -10, 100);
  EXPECT_EQ(beforeZero.GetLoopStart(), 0);
  EXPECT_EQ(beforeZero.GetLoopEnd(), 100);
  LLoopSourceBase pastEnd(MakeRampSource(48000, 1, 1000), 500, 1200);
  EXPECT_EQ(pastEnd.GetLoopStart(), 500);
  EXPECT_EQ(pastEnd.GetLoopEnd(), 1000);
  // Wholly past the end: moved back to end at the source's end, keeping its length.
  LLoopSourceBase beyond(MakeRampSource(48000, 1, 1000), 1500, 1600);
  EXPECT_EQ(beyond.GetLoopStart(), 900);
  EXPECT_EQ(beyond.GetLoopEnd(), 1000);
  LLoopSourceBase reversed(MakeRampSource(48000, 1, 1000), 300, 200);
  EXPECT_EQ(reversed.GetLoopStart(), 200);
  EXPECT_EQ(reversed.GetLoopEnd(), 300);
}

TEST(LoopSource, EmptyLoopIsSilentAndNeverDividesByZero) {
  auto* raw = new LTestFunctionSource(48000, 2, 1000, TestRamp);
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(LSoundSource(raw), 300, 300);
  ExpectFrames(ReadAll(loop, 20), 2, Span(-1, 20));
  loop->Seek(5000);
  EXPECT_EQ(raw->sPosition, 5000);
  loop->Seek(-20);
  EXPECT_EQ(raw->sPosition, -20);
  EXPECT_EQ(loop->AdjustRelativeOffset(77, 10), 77);
  long v = 12;
  EXPECT_TRUE(loop->ControlMessage(LSoundControl::TranslateOffset, &v));
  EXPECT_EQ(v, 12);
  v = 12;
  EXPECT_TRUE(loop->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 12);
  // A source with nothing in it gives an empty loop, too.
  LLoopSourceBase onEmpty(MakeRampSource(48000, 1, 0), 0, 100);
  float buf[4] = {1, 1, 1, 1};
  onEmpty.Read(buf, 4);
  EXPECT_EQ(buf[0] + buf[1] + buf[2] + buf[3], 0.0f);
}

TEST(LoopSourcePreroll, RunsInOnceThenLoopsOnTheExactFrame) {
  auto* raw = new LTestFunctionSource(48000, 2, 1000, TestRamp);
  LSoundSource pre = LSoundSource::Make<LLoopSourcePrerollBase>(LSoundSource(raw), 20, 100, 200);
  EXPECT_EQ(pre->GetEndSample(), 0x7FFFFFFF);
  EXPECT_EQ(raw->sPosition, 20);  // made standing at the run-in's start
  // 20..199 once, then 100..199 round and round, whatever the read sizes.
  ExpectFrames(ReadAll(pre, 400, 33), 2,
               Cat(Cat(Cat(Span(20, 180), Span(100, 100)), Span(100, 100)), Span(100, 20)));
  EXPECT_TRUE(dynamic_cast<LLoopSourcePrerollBase*>(pre.Get())->IsLooping());

  // A seek before the loop plays the run-in again from there; one at or past the
  // loop's end goes into the loop.
  pre->Seek(60);
  ExpectFrames(ReadAll(pre, 150, 64), 2, Cat(Span(60, 140), Span(100, 10)));
  pre->Seek(230);
  EXPECT_EQ(raw->sPosition, 130);
  ExpectFrames(ReadAll(pre, 80), 2, Cat(Span(130, 70), Span(100, 10)));
  // A run-in that starts inside the loop is a plain loop from there.
  LSoundSource inside = LSoundSource::Make<LLoopSourcePrerollBase>(MakeRampSource(48000, 1, 1000), 150, 100, 200);
  ExpectFrames(ReadAll(inside, 100), 1, Cat(Span(150, 50), Span(100, 50)));
}

TEST(LoopSourcePreroll, OffsetsFoldOnlyWhatCameRound) {
  auto* raw = new LTestFunctionSource(48000, 1, 1000, TestRamp);
  LSoundSource pre = LSoundSource::Make<LLoopSourcePrerollBase>(LSoundSource(raw), 20, 100, 200);
  // In the run-in a frame before the loop is really there; one past its end has
  // come round into the loop.
  EXPECT_EQ(pre->AdjustRelativeOffset(-40, 60), -40);
  EXPECT_EQ(pre->AdjustRelativeOffset(30, 190), -70);
  long v = 50;
  EXPECT_TRUE(pre->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 50);
  raw->sPosition = 190;
  v = 30;
  EXPECT_TRUE(pre->ControlMessage(LSoundControl::TranslateOffset, &v));
  EXPECT_EQ(v, -70);
  // Once looping, positions before the loop fold like a plain loop's.
  pre->Seek(250);
  EXPECT_EQ(pre->AdjustRelativeOffset(-100, 150), 0);
  v = 50;
  EXPECT_TRUE(pre->ControlMessage(LSoundControl::FoldIntoLoop, &v));
  EXPECT_EQ(v, 150);
}
