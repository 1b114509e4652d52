#include "sound/dialogic_adpcm.h"

#include <gtest/gtest.h>

#include "sound/raw_file.h"
#include "sound/testing_files.h"
#include "sound/testing_tones.h"

namespace {

// The first steps of the published algorithm, worked by hand: at step index 0 the
// step is 16, and nibble 7 adds 16/8 + 16/4 + 16/2 + 16 = 30 and moves the index by
// 8, to a step of 34; nibble 15 is the same downwards.
TEST(DialogicADPCM, NibblesFollowThePublishedSteps) {
  LDialogicADPCMState s;
  EXPECT_EQ(LDialogicADPCMDecode(s, 7), 30);
  EXPECT_EQ(s.iStepIndex, 8);
  EXPECT_EQ(LDialogicADPCMDecode(s, 7), 30 + 4 + 8 + 17 + 34);
  EXPECT_EQ(s.iStepIndex, 16);
  EXPECT_EQ(LDialogicADPCMDecode(s, 15), 93 - (9 + 18 + 36 + 73));
  EXPECT_EQ(s.iStepIndex, 24);
  EXPECT_EQ(LDialogicADPCMDecode(s, 0), -43 + 157 / 8);  // the smallest move: step/8 upwards
  EXPECT_EQ(s.iStepIndex, 23);
  // Far out the samples stop at the 12-bit range and the index at the table's end.
  for (int i = 0; i < 100; ++i) LDialogicADPCMDecode(s, 7);
  EXPECT_EQ(s.iPredictor, 2047);
  EXPECT_EQ(s.iStepIndex, 48);
  for (int i = 0; i < 100; ++i) LDialogicADPCMDecode(s, 15);
  EXPECT_EQ(s.iPredictor, -2048);
}

// A tone written as ".vox" and read back: the codec keeps it within its 12-bit,
// 4-bit-step means; the file holds half a byte a sample; reads after seeks in any
// direction give what reading from the start gives.
TEST(DialogicADPCM, ToneGoesThroughAFileAndSeeksLandOnTheSample) {
  std::string const dir = ScratchFolder();
  LRawSettings s;
  s.iCodec = LRawCodec::DialogicADPCM;
  s.iSampleRate = 8000;
  s.iChannels = 2;
  int const frames = 8001;  // an odd count of nibbles is completed by the sink
  {
    LSoundSink sink = LRawFile::OpenSink(dir + "/t.vox", s);
    ASSERT_TRUE(sink.IsGood());
    std::vector<float> tone(static_cast<std::size_t>(frames) * 2);
    for (int f = 0; f < frames; ++f) {
      tone[static_cast<std::size_t>(2 * f)] = 0.5f * static_cast<float>(std::sin(2 * M_PI * 300.0 * f / 8000));
      tone[static_cast<std::size_t>(2 * f + 1)] = 0.25f * static_cast<float>(std::sin(2 * M_PI * 700.0 * f / 8000));
    }
    sink->Write(tone.data(), frames);
    EXPECT_TRUE(sink->Finish());
  }
  EXPECT_EQ(ReadFileBytes(dir + "/t.vox").size(), static_cast<std::size_t>(frames));  // 4 bits x 2 channels

  LSoundSource back = LRawFile::OpenSource(dir + "/t.vox", s);
  ASSERT_TRUE(back.IsGood());
  EXPECT_EQ(back->GetEndSample(), frames);
  std::vector<float> const all = LTestReadToEnd(back);
  LTestTone const left = LTestMeasureTone(all, 2, 0, 8000, 400, 7600);
  LTestTone const right = LTestMeasureTone(all, 2, 1, 8000, 400, 7600);
  EXPECT_NEAR(left.dFrequency, 300.0, 1.0);
  EXPECT_NEAR(right.dFrequency, 700.0, 2.0);
  EXPECT_NEAR(LTestDb(left.dRms / (0.5 / std::sqrt(2.0))), 0.0, 1.0);
  EXPECT_NEAR(LTestDb(right.dRms / (0.25 / std::sqrt(2.0))), 0.0, 1.0);

  for (int const at : {4000, 10, 7990, 0, 5000, 2500}) {
    back->Seek(at);
    std::vector<float> got(64 * 2);
    back->Read(got.data(), 64);
    for (int i = 0; i < 64 * 2; ++i) {
      std::size_t const k = static_cast<std::size_t>(at) * 2 + static_cast<std::size_t>(i);
      ASSERT_EQ(got[static_cast<std::size_t>(i)], k < all.size() ? all[k] : 0.0f) << "at " << at;
    }
  }
}

}  // namespace
