#include "project/cut_list_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "project/cut_list_load_save.h"
#include "project/cut_list_sources.h"
#include "project/testing_cut_lists.h"
#include "sound/wave_file.h"

namespace {

using CutListFilesTest = CutListTest;

std::vector<std::uint8_t> Bytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The waveform byte of a peak, from its description: silence is 0, full scale or
// more 255, anything audible at least 1.
int ExpectedPeakByte(float p) {
  if (!(p > 0.0f)) return 0;
  if (p >= 1.0f) return 255;
  return std::max(1, static_cast<int>(std::floor(static_cast<double>(p) * 255.0)));
}

TEST(GrfPeakByte, FollowsThePeakRule) {
  EXPECT_EQ(LGrfPeakByte(0.0f), 0);
  EXPECT_EQ(LGrfPeakByte(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(LGrfPeakByte(1e-9f), 1);
  EXPECT_EQ(LGrfPeakByte(0.001f), 1);
  EXPECT_EQ(LGrfPeakByte(0.5f), 127);
  EXPECT_EQ(LGrfPeakByte(1.0f), 255);
  EXPECT_EQ(LGrfPeakByte(1.5f), 255);
  EXPECT_EQ(LGrfPeakByte(std::numeric_limits<float>::infinity()), 255);
}

// 300 stereo frames: the sink writes a record for the last 44 frames too, the
// rebuild drops them. Both agree on the whole group.
TEST_F(CutListFilesTest, SinkKeepsTheLastPartialRecordAndTheRebuildDropsIt) {
  std::vector<float> frames(600);
  for (int f = 0; f < 300; ++f) {
    frames[static_cast<std::size_t>(f) * 2] = f < 256 ? 0.5f * std::sin(f * 0.1f) : 0.0f;
    frames[static_cast<std::size_t>(f) * 2 + 1] = f < 256 ? 0.0f : -0.25f;
  }
  LCutListAudio list;
  LSoundSink sink = list.OpenSink(48000, 2);
  ASSERT_FALSE(sink->IsError());
  sink->Write(frames.data(), 100);  // records cross the writes
  sink->Write(frames.data() + 200, 200);
  sink.Close();
  ASSERT_EQ(list.GetSegmentCount(), 1);
  EXPECT_EQ(list.GetEndSample(), 300);
  EXPECT_EQ(list.GetSampleRate(), 48000);
  EXPECT_EQ(list.GetChannels(), 2);
  LAudioCutRef const n = list.GetSegments()[0].GetCut();
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(n), 1);  // the list's own; the sink's is gone

  std::vector<std::uint8_t> const aud = Bytes(AudPath(n));
  ASSERT_EQ(aud.size(), 300u * 2 * 4);
  EXPECT_EQ(std::memcmp(aud.data(), frames.data(), aud.size()), 0);

  float maxL = 0, minL = 0;
  for (int f = 0; f < 256; ++f) {
    maxL = std::max(maxL, frames[static_cast<std::size_t>(f) * 2]);
    minL = std::min(minL, frames[static_cast<std::size_t>(f) * 2]);
  }
  std::vector<std::uint8_t> const expectedFirst = {static_cast<std::uint8_t>(ExpectedPeakByte(maxL)),
                                                   static_cast<std::uint8_t>(ExpectedPeakByte(-minL)), 0, 0};
  std::vector<std::uint8_t> const written = Bytes(GrfPath(n));
  ASSERT_EQ(written.size(), 2u * 4);
  EXPECT_EQ(std::vector<std::uint8_t>(written.begin(), written.begin() + 4), expectedFirst);
  EXPECT_EQ(std::vector<std::uint8_t>(written.begin() + 4, written.end()),
            (std::vector<std::uint8_t>{0, 0, 0, static_cast<std::uint8_t>(ExpectedPeakByte(0.25f))}));

  LCLACreateGrfFromAud rebuild{AudPath(n), 2};
  LProcessInterfaceVoid quiet;
  EXPECT_EQ(Process(quiet, rebuild), LProcessFinished);
  EXPECT_EQ(Bytes(GrfPath(n)), expectedFirst);

  LCLACreateGrfFromAud missing{folder + "/404.aud", 2};
  EXPECT_EQ(Process(quiet, missing), LProcessFailed);
}

// A ten-minute file enters the data folder as one pair: the .aud holds exactly
// the floats the file reads as, and the .grf follows the peak rule group by group.
TEST_F(CutListFilesTest, TenMinuteFileImportsAsOnePair) {
  constexpr int kRate = 44100;
  constexpr int kFrames = kRate * 600;
  std::string const wav = folder + "/ten minutes.wav";
  {
    LSoundSink out = LWaveFile::OpenSinkPCM(wav, kRate, 1, 16);
    ASSERT_FALSE(out->IsError());
    std::vector<float> block(8192);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    for (int done = 0; done < kFrames;) {
      int const n = std::min(8192, kFrames - done);
      for (int i = 0; i < n; ++i) {
        int const second = (done + i) / kRate;
        // Silence, quiet, loud and clipped stretches in turn.
        float const level = second % 4 == 0 ? 0.0f : second % 4 == 1 ? 0.002f : second % 4 == 2 ? 0.6f : 1.5f;
        block[static_cast<std::size_t>(i)] = std::clamp(noise(rng) * level, -1.0f, 1.0f);
      }
      out->Write(block.data(), n);
      done += n;
    }
  }

  LCutListAudio list;
  LCutListAudioLoadSource job{"Importing...", &list, LWaveFile::OpenSource(wav)};
  LProcessInterfaceVoid quiet;
  ASSERT_EQ(Process(quiet, job), LProcessFinished);
  job.lssSource.Close();
  ASSERT_EQ(list.GetSegmentCount(), 1);
  EXPECT_EQ(list.GetEndSample(), kFrames);
  EXPECT_EQ(list.GetChannels(), 1);
  EXPECT_EQ(list.GetSampleRate(), kRate);
  LAudioCutRef const n = list.GetSegments()[0].GetCut();

  LSoundSource reference = LWaveFile::OpenSource(wav);
  LFile aud;
  ASSERT_TRUE(aud.OpenRead(AudPath(n)));
  ASSERT_EQ(aud.Size(), static_cast<std::int64_t>(kFrames) * 4);
  std::vector<std::uint8_t> const grf = Bytes(GrfPath(n));
  ASSERT_EQ(grf.size(), static_cast<std::size_t>((kFrames + 255) / 256) * 2);

  std::vector<float> want(8192);
  std::vector<float> got(8192);
  std::size_t mismatches = 0;
  std::size_t grfMismatches = 0;
  for (int done = 0; done < kFrames; done += 8192) {
    int const count = std::min(8192, kFrames - done);
    reference->Read(want.data(), count);
    ASSERT_TRUE(aud.ReadExactAt(got.data(), static_cast<std::size_t>(count) * 4, static_cast<std::int64_t>(done) * 4));
    if (std::memcmp(want.data(), got.data(), static_cast<std::size_t>(count) * 4) != 0) ++mismatches;
    for (int g = 0; g < count; g += 256) {
      float hi = 0.0f;
      float lo = 0.0f;
      for (int i = g; i < std::min(g + 256, count); ++i) {
        hi = std::max(hi, want[static_cast<std::size_t>(i)]);
        lo = std::min(lo, want[static_cast<std::size_t>(i)]);
      }
      std::size_t const record = static_cast<std::size_t>((done + g) / 256) * 2;
      if (grf[record] != ExpectedPeakByte(hi) || grf[record + 1] != ExpectedPeakByte(-lo)) ++grfMismatches;
    }
  }
  EXPECT_EQ(mismatches, 0u);
  EXPECT_EQ(grfMismatches, 0u);
  // The signal has true silence, quiet sound and full scale: all three kinds of byte.
  EXPECT_NE(std::find(grf.begin(), grf.end(), 0), grf.end());
  EXPECT_NE(std::find(grf.begin(), grf.end(), 1), grf.end());
  EXPECT_NE(std::find(grf.begin(), grf.end(), 255), grf.end());
}

struct StopAtFirstProgress : LProcessInterfaceVoid {
  bool seen = false;
  bool IsToStop() override { return seen; }
  void SetProgress(double done) override { seen = seen || done > 0.0; }
};

TEST_F(CutListFilesTest, ImportFailuresSayWhyAndAStopKeepsThePartForTheCaller) {
  LProcessInterfaceVoid quiet;
  LCutListAudio list;
  // Far more than any disk here: 255 channels for 2^31 frames.
  LCutListAudioLoadSource huge{"", &list, LSoundSource::Make<LSilenceSourceBase>(44100, 255, INT_MAX)};
  EXPECT_EQ(Process(quiet, huge), LProcessFailed);
  EXPECT_EQ(list.GetErrorText(), "Insufficient hard drive space to store the audio.");
  EXPECT_TRUE(std::filesystem::is_empty(folder));

  LAudioCutTank::Instance().SetWorkingFolder(folder + "/gone");
  LCutListAudioLoadSource denied{"", &list, LSoundSource::Make<LSilenceSourceBase>(44100, 1, 1000)};
  EXPECT_EQ(Process(quiet, denied), LProcessFailed);
  EXPECT_EQ(list.GetErrorText(),
            "Accessed to working folder denied. Please check the permissions on your working folder.");

  LAudioCutTank::Instance().SetWorkingFolder(folder);
  StopAtFirstProgress stopper;
  LCutListAudioLoadSource stopped{"", &list, LSoundSource::Make<LSilenceSourceBase>(44100, 2, 10'000'000)};
  EXPECT_EQ(Process(stopper, stopped), LProcessStopped);
  EXPECT_EQ(list.GetErrorText(), "");
  EXPECT_GT(list.GetEndSample(), 0);
  EXPECT_LT(list.GetEndSample(), 10'000'000);
  LAudioCutRef const n = list.GetSegments()[0].GetCut();
  EXPECT_TRUE(HasFiles(n));
  list.Clear();  // the caller drops the part, and with it the files
  EXPECT_FALSE(std::filesystem::exists(AudPath(n)));
}

TEST_F(CutListFilesTest, OneFileReadsZerosAroundItsFramesAndSilenceWhenMissing) {
  LCutListAudio list;
  LAudioCutRef const n = MakeKnownFile(list, 3, 100, 2);
  LCutListAudioCutSource src(n, 44100, 2, 0.5f);
  EXPECT_EQ(src.GetEndSample(), 100);
  std::vector<float> buf(20);
  src.Seek(-5);
  src.Read(buf.data(), 10);
  for (int f = 0; f < 10; ++f) {
    float const want = f < 5 ? 0.0f : 0.5f * KnownSample(3, f - 5, 1);
    EXPECT_EQ(buf[static_cast<std::size_t>(f) * 2 + 1], want) << f;
  }
  src.Seek(95);
  src.Read(buf.data(), 10);
  EXPECT_EQ(buf[8], 0.5f * KnownSample(3, 99, 0));
  EXPECT_EQ(buf[10], 0.0f);
  EXPECT_EQ(src.GetPositionSample(), 105);

  LCutListSegment seg(n, 40, 20, 2.0f);
  LCutListSegmentSource part(seg, 44100, 2);
  EXPECT_EQ(part.GetEndSample(), 20);
  part.Seek(3);
  EXPECT_EQ(part.GetPositionSample(), 3);
  part.Read(buf.data(), 1);
  EXPECT_EQ(buf[0], 2.0f * KnownSample(3, 43, 0));

  std::filesystem::remove(AudPath(n));  // deleted by hand behind the program's back
  LCutListAudioCutSource lost(n, 44100, 2);
  EXPECT_FALSE(lost.IsError());
  std::fill(buf.begin(), buf.end(), 9.0f);
  lost.Read(buf.data(), 10);
  for (float v : buf) EXPECT_EQ(v, 0.0f);
  LSoundSource whole = list.OpenSource();
  EXPECT_TRUE(whole.IsGood());
  std::fill(buf.begin(), buf.end(), 9.0f);
  whole->Read(buf.data(), 10);
  for (float v : buf) EXPECT_EQ(v, 0.0f);

  EXPECT_FALSE(LCutListAudio().OpenSource().IsGood());

  // Segments that all have no length (a damaged file can say so) read as zeros
  // from anywhere, before the start too.
  LCutListAudio hollow;
  hollow.SetChannels(2);
  hollow.AppendSegment(LCutListSegment(n, 0, 0));
  LSoundSource empty = hollow.OpenSource();
  EXPECT_EQ(empty->GetEndSample(), 0);
  empty->Seek(-100);
  std::fill(buf.begin(), buf.end(), 9.0f);
  empty->Read(buf.data(), 10);
  for (float v : buf) EXPECT_EQ(v, 0.0f);
  EXPECT_EQ(empty->GetPositionSample(), -90);
}

// A fragmented list read in odd blocks from random places plays exactly what its
// segments say, and stays as it was when opened whatever happens to the list.
TEST_F(CutListFilesTest, ListSourcePlaysItsSegmentsAndKeepsItsOwnCopy) {
  std::map<LAudioCutRef, int> tagOf;
  LCutListAudio a;
  LCutListAudio b;
  tagOf[MakeKnownFile(a, 1, 5000, 2)] = 1;
  tagOf[MakeKnownFile(b, 2, 3000, 2)] = 2;
  a.EfInsert(1000, b);
  a.EfSilence(2500, 2600);
  b.EfGainAll(0.25f);
  a.EfPasteOver(4000, 4100, b);
  a.EfDelete(10, 17);
  a.EfInsertSilence(-20, 50);

  // What each frame should be, from the segments.
  std::vector<float> expected;
  a.ForEachSegment([&](LCutListSegment const& s) {
    for (int i = 0; i < s.iLength; ++i) {
      for (int c = 0; c < 2; ++c) {
        expected.push_back(s.IsSilence() ? 0.0f : s.fGain * KnownSample(tagOf[s.GetCut()], s.iStart + i, c));
      }
    }
  });
  int const end = a.GetEndSample();
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(end) * 2);

  LSoundSource src = a.OpenSource();
  ASSERT_TRUE(src.IsGood());
  EXPECT_EQ(src->GetEndSample(), end);
  a.Clear();  // the source holds its own copy, and with it the files
  b.Clear();
  std::mt19937 rng(5);
  std::vector<float> buf(2 * 3000);
  for (int trial = 0; trial < 200; ++trial) {
    int const start = std::uniform_int_distribution<int>(-100, end + 100)(rng);
    int const count = std::uniform_int_distribution<int>(1, 3000)(rng);
    src->Seek(start);
    src->Read(buf.data(), count);
    for (int f = 0; f < count; ++f) {
      long const at = static_cast<long>(start) + f;
      for (int c = 0; c < 2; ++c) {
        float const want = at >= 0 && at < end ? expected[static_cast<std::size_t>(at) * 2 + c] : 0.0f;
        ASSERT_EQ(buf[static_cast<std::size_t>(f) * 2 + c], want) << "frame " << at << " trial " << trial;
      }
    }
    ASSERT_EQ(src->GetPositionSample(), start + count);
  }
  src.Close();
  EXPECT_TRUE(std::filesystem::is_empty(folder));  // the last holder gone, the files went
}

// The recorder writes on its thread while the main thread copies the list: every
// copy is a whole, valid list of what was written so far.
TEST_F(CutListFilesTest, ARecordingIsAValidListAfterEveryBlock) {
  TDCutListShared shared;
  constexpr int kBlock = 1000;
  constexpr int kBlocks = 200;
  std::atomic<bool> done{false};
  std::atomic<int> seen{0};  // the longest list the reader has checked
  std::thread recorder([&] {
    LSoundSink sink = LSoundSink::Make<TDCutListSinkShared>(shared, 44100, 1);
    std::vector<float> block(kBlock);
    for (int b = 0; b < kBlocks; ++b) {
      for (int i = 0; i < kBlock; ++i) block[static_cast<std::size_t>(i)] = KnownSample(1, b * kBlock + i, 0);
      sink->Write(block.data(), kBlock);
      // Now and then wait for the reader to see this block, so that reads and
      // writes surely interleave however the threads are scheduled.
      if (b % 20 == 0) {
        for (int spin = 0; spin < 20000 && seen < (b + 1) * kBlock; ++spin) std::this_thread::yield();
      }
    }
    sink.Close();
    done = true;
  });
  int last = 0;
  int copies = 0;
  std::vector<float> buf(kBlock);
  while (!done) {
    LCutListAudio now;
    shared.GetCutListAudio(now);
    int const length = now.GetEndSample();
    EXPECT_EQ(length % kBlock, 0);
    EXPECT_GE(length, last);
    last = length;
    if (length > 0) {
      ++copies;
      LSoundSource src = now.OpenSource();
      src->Seek(length - kBlock);
      src->Read(buf.data(), kBlock);
      EXPECT_EQ(buf[kBlock - 1], KnownSample(1, length - 1, 0));
      seen = length;
    }
    if (HasFailure()) break;  // and still join the recorder below
  }
  recorder.join();
  LCutListAudio final;
  shared.GetCutListAudio(final);
  EXPECT_EQ(final.GetEndSample(), kBlock * kBlocks);
  EXPECT_EQ(final.GetSegmentCount(), 1);
  EXPECT_GE(copies, kBlocks / 20);
}

}  // namespace
