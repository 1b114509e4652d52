#include "sound/source_cat.h"

#include <gtest/gtest.h>

#include "sound/testing_sources.h"

namespace {

// Source `id` gives id * 100000 + frame * 4 + channel: each sample tells which
// source and which frame it came from.
LSoundSource Tagged(int id, int rate, int channels, int end, float peak = LSoundPeakInRange) {
  return LSoundSource::Make<LTestFunctionSource>(
      rate, channels, end,
      [id](int f, int c) { return static_cast<float>(id * 100000 + f * 4 + c); }, peak);
}

float Tag(int id, int frame, int channel) { return static_cast<float>(id * 100000 + frame * 4 + channel); }

// A at 1000 Hz, 1000 frames; 10 ms of silence (10 frames); B, 500 frames. Total 1510.
LSoundSourceCat MakeCat(int channels = 2) {
  LSoundSourceCat cat;
  cat.AddSource(Tagged(1, 1000, channels, 1000));
  cat.AddSilence(10);
  cat.AddSource(Tagged(2, 1000, channels, 500));
  return cat;
}

// Expected sample of the cat above at output frame f (any f), channel c.
float Expected(int f, int c) {
  if (f < 0) return 0.0f;
  if (f < 1000) return Tag(1, f, c);
  if (f < 1010) return 0.0f;
  if (f < 1510) return Tag(2, f - 1010, c);
  return 0.0f;
}

void ExpectFromFrame(std::vector<float> const& data, int first, int channels) {
  for (std::size_t i = 0; i < data.size(); ++i) {
    int const f = first + static_cast<int>(i / static_cast<std::size_t>(channels));
    int const c = static_cast<int>(i % static_cast<std::size_t>(channels));
    ASSERT_EQ(data[i], Expected(f, c)) << "frame " << f << " channel " << c;
  }
}

}  // namespace

TEST(SourceCat, PlaysItemsAndSilencesInOrderThenZeros) {
  LSoundSource s = MakeCat().OpenSource();
  EXPECT_FALSE(s->IsError());
  EXPECT_EQ(s->GetSampleRate(), 1000);
  EXPECT_EQ(s->GetChannels(), 2);
  EXPECT_EQ(s->GetEndSample(), 1510);
  ExpectFromFrame(ReadAll(s, 1600, 333), 0, 2);  // blocks straddle both joins
  EXPECT_EQ(s->GetPositionSample(), 1600);
  EXPECT_GE(s->GetPositionSample(), s->GetEndSample());
}

TEST(SourceCat, SeekBeforeTheStartPlaysZerosFirst) {
  LSoundSource s = MakeCat().OpenSource();
  ReadAll(s, 1200);
  s->Seek(-1000);
  EXPECT_EQ(s->GetPositionSample(), -1000);
  EXPECT_EQ(s->GetEndSample(), 1510);
  ExpectFromFrame(ReadAll(s, 1100, 300), -1000, 2);
}

TEST(SourceCat, SeekLandsInsideAnyItem) {
  LSoundSource s = MakeCat().OpenSource();
  for (int at : {0, 999, 1000, 1005, 1010, 1200, 1509}) {
    s->Seek(at);
    EXPECT_EQ(s->GetPositionSample(), at);
    EXPECT_EQ(s->GetEndSample(), 1510) << at;
    ExpectFromFrame(ReadAll(s, 30), at, 2);
  }
}

TEST(SourceCat, SeekPastTheLastItemLeavesOneSecondOfSilence) {
  LSoundSource s = MakeCat().OpenSource();
  s->Seek(5000);
  EXPECT_EQ(s->GetPositionSample(), 5000);
  EXPECT_EQ(s->GetEndSample(), 5000 + 1000);
  ExpectFromFrame(ReadAll(s, 1500), 5000, 2);
  EXPECT_EQ(s->GetPositionSample(), 6500);
  s->Seek(10);  // and back again
  ExpectFromFrame(ReadAll(s, 20), 10, 2);
}

TEST(SourceCat, FormatIsTheGreatestAmongGoodSources) {
  LSoundSourceCat cat;
  cat.AddSource(Tagged(1, 8000, 1, 4));
  cat.AddSource(LSoundSource());  // a failed source does not count
  cat.AddSource(Tagged(2, 8000, 2, 4, 16.0f));
  LSoundSource s = cat.OpenSource();
  EXPECT_FALSE(s->IsError());
  EXPECT_EQ(s->GetChannels(), 2);
  EXPECT_EQ(s->GetPeakBound(), 16.0f);
  std::vector<float> d = ReadAll(s, 8);
  // The mono source is widened to both sides.
  EXPECT_EQ(d[0], Tag(1, 0, 0));
  EXPECT_EQ(d[1], Tag(1, 0, 0));
  EXPECT_EQ(d[8], Tag(2, 0, 0));
  EXPECT_EQ(d[9], Tag(2, 0, 1));

  LSoundSource plain = MakeCat().OpenSource();
  EXPECT_EQ(plain->GetPeakBound(), LSoundPeakInRange);

  LSoundSource none = LSoundSourceCat().OpenSource();
  EXPECT_EQ(none->GetSampleRate(), 8000);
  EXPECT_EQ(none->GetChannels(), 1);
  EXPECT_EQ(none->GetEndSample(), 0);
  EXPECT_FALSE(none->IsError());
}

TEST(SourceCat, AtAGivenFormat) {
  LSoundSource mono = MakeCat().OpenSource(1000, 1);
  EXPECT_EQ(mono->GetChannels(), 1);
  std::vector<float> d = ReadAll(mono, 2);
  EXPECT_EQ(d[1], (Tag(1, 1, 0) + Tag(1, 1, 1)) * 0.5f);
  // Silence is measured at the result's rate.
  LSoundSourceCat quiet;
  quiet.AddSilence(1500);
  EXPECT_EQ(quiet.OpenSource(44100, 2)->GetEndSample(), 66150);
}

TEST(SourceCat, ItemsAtAnotherRateAreConverted) {
  LSoundSourceCat cat;
  cat.AddSource(Tagged(1, 44100, 2, 441));
  cat.AddSource(Tagged(2, 48000, 2, 10));
  LSoundSource s = cat.OpenSource();
  EXPECT_FALSE(s->IsError());
  EXPECT_EQ(s->GetSampleRate(), 48000);
  EXPECT_EQ(s->GetEndSample(), 480 + 10);  // 10 ms of the first item at 48000
  std::vector<float> d = ReadAll(s, 490);
  EXPECT_EQ(d[2 * 480], Tag(2, 0, 0));  // the second item needs no conversion
}

TEST(SourceCat, ASourceThatCannotBeConvertedMakesItAnError) {
  LSoundSourceCat cat;
  cat.AddSource(Tagged(1, 3000000, 2, 10));  // a step down too large for the converter
  EXPECT_EQ(cat.OpenSource(8000, 2)->GetErrorState(), LSoundErrorBelow);
}

TEST(SourceCat, StreamingIfAnyItemStillStreams) {
  LSoundSourceCat cat;
  cat.AddSource(Tagged(1, 1000, 1, 10));
  auto* streaming = new LTestFunctionSource(1000, 1, 10, TestRamp);
  streaming->bStreaming = true;
  cat.AddSource(LSoundSource(streaming));
  LSoundSource s = cat.OpenSource();
  EXPECT_TRUE(s->IsStreaming());
  s->Seek(100);  // past both
  EXPECT_FALSE(s->IsStreaming());
}
