// What the transport is given to play, by where the play starts, the working
// region and the loop flag; read here directly, without a device.
#include "shell/project_sound_opener.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "foundation/testing_allocations.h"
#include "project/audio_cut_tank.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 44100;

int Frames(LSoundTime ms) { return TDTimeToFrames(ms, kRate); }

class OpenerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("opener-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
    // Two seconds of a ramp that never repeats, at the project's rate.
    std::string const wav = (scratch / "ramp.wav").string();
    std::vector<float> ramp(static_cast<std::size_t>(2 * kRate) * 2);
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<float>(i % 30011) / 40000.0f - 0.375f;
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, kRate, 2, 16);
    sink->Write(ramp.data(), 2 * kRate);
    sink.Close();
    dialog.SetCursorPosition(0);
    ASSERT_TRUE(dialog.AddClip(wav));
    LSoundSource const all = Project().OpenSourceForExport(kRate, 2, nullptr, false);
    ASSERT_EQ(all->GetEndSample(), 2 * kRate);
    mix = Read(all, 2 * kRate);
    opener.SetTracksDBHistory(&history);
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  TDProject& Project() { return dialog.GetProject(); }

  static std::vector<float> Read(LSoundSource const& s, int frames) {
    std::vector<float> out(static_cast<std::size_t>(frames) * 2);
    for (int done = 0; done < frames;) {
      int const n = std::min(4410, frames - done);
      s->Read(out.data() + static_cast<std::size_t>(done) * 2, n);
      done += n;
    }
    return out;
  }
  // The whole mix's frames [from, to), one stretch after another.
  std::vector<float> Stretches(std::vector<std::pair<LSoundTime, LSoundTime>> const& parts) const {
    std::vector<float> out;
    for (auto const& [from, to] : parts)
      out.insert(out.end(), mix.begin() + Frames(from) * 2, mix.begin() + Frames(to) * 2);
    return out;
  }
  // What a play from `time` hears first, `ms` of it.
  std::vector<float> PlayFrom(LSoundTime time, LSoundTime ms, bool scrubbing = false) {
    LSoundSource const s = opener.OpenProjectSource(time, scrubbing);
    EXPECT_FALSE(s->IsError());
    s->Seek(Frames(time));
    return Read(s, Frames(ms));
  }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  TDProjectSoundOpener opener{dialog.GetProject()};
  TDTracksDBHistory history;
  std::vector<float> mix;
};

TEST_F(OpenerTest, WithoutARegionThePlainMixPlaysToTheEndOfTheClips) {
  EXPECT_EQ(opener.OpenProjectSource(500, false)->GetEndSample(), 2 * kRate);
  EXPECT_EQ(PlayFrom(500, 300), Stretches({{500, 800}}));
  // Each read hands the tracks' levels on; the due one is the latest read by then.
  ASSERT_GT(history.GetCount(), 0u);
  TDTracksDB const* due = history.Take(800);
  ASSERT_NE(due, nullptr);
  EXPECT_EQ(due->iCurrentTime, 800);
  EXPECT_GT(due->Tracks[0][0].Get(), -20);
  EXPECT_EQ(due->Tracks[1][0].Get(), -127);
}

TEST_F(OpenerTest, WithLoopOnARegionLoopsFromInsideAndRunsInFromBefore) {
  Project().WorkRegion.Set(1000, 1500);
  Project().bLoopPlay = true;
  // From inside: to the region's end, then round from its start, without end.
  EXPECT_EQ(opener.OpenProjectSource(1200, false)->GetEndSample(), 0x7FFFFFFF);
  EXPECT_EQ(PlayFrom(1200, 1000), Stretches({{1200, 1500}, {1000, 1500}, {1000, 1200}}));
  // At the very ends too.
  EXPECT_EQ(PlayFrom(1000, 600), Stretches({{1000, 1500}, {1000, 1100}}));
  EXPECT_EQ(PlayFrom(1500, 100), Stretches({{1000, 1100}}));
  // From before: the run-in once, then the loop.
  EXPECT_EQ(opener.OpenProjectSource(600, false)->GetEndSample(), 0x7FFFFFFF);
  EXPECT_EQ(PlayFrom(600, 1200), Stretches({{600, 1500}, {1000, 1300}}));
  // From past it: the plain mix, which ends.
  EXPECT_EQ(opener.OpenProjectSource(1600, false)->GetEndSample(), 2 * kRate);
  EXPECT_EQ(PlayFrom(1600, 300), Stretches({{1600, 1900}}));
  // A scrub moves over the timeline itself: never a loop.
  EXPECT_EQ(opener.OpenProjectSource(1200, true)->GetEndSample(), 2 * kRate);
  EXPECT_EQ(PlayFrom(1200, 400, true), Stretches({{1200, 1600}}));
}

TEST_F(OpenerTest, WithLoopOffAPlayBeforeTheRegionsEndStopsThere) {
  Project().WorkRegion.Set(1000, 1500);
  Project().bLoopPlay = false;
  LSoundSource const bounded = opener.OpenProjectSource(600, false);
  EXPECT_EQ(bounded->GetEndSample(), Frames(1500));
  bounded->Seek(Frames(600));
  EXPECT_EQ(Read(bounded, Frames(900)), Stretches({{600, 1500}}));
  EXPECT_GE(bounded->GetPositionSample(), bounded->GetEndSample());
  // From inside it the same end.
  EXPECT_EQ(opener.OpenProjectSource(1200, false)->GetEndSample(), Frames(1500));
  // From past it, the clips' end.
  EXPECT_EQ(opener.OpenProjectSource(1500, false)->GetEndSample(), 2 * kRate);
  // A region reaching past the clips ends with them.
  Project().WorkRegion.Set(1000, 5000);
  EXPECT_EQ(opener.OpenProjectSource(600, false)->GetEndSample(), 2 * kRate);
}

TEST_F(OpenerTest, ReadingWhatItOpensAllocatesNothingLevelsIncluded) {
  // What the pump does with each kind of mix: reads, and the levels go to the history.
  Project().WorkRegion.Set(1000, 1500);
  std::vector<float> block(1600 * 2);
  for (bool loopOn : {true, false}) {
    Project().bLoopPlay = loopOn;
    for (LSoundTime from : {600, 1200, 1600}) {
      LSoundSource const s = opener.OpenProjectSource(from, false);
      s->Seek(Frames(from));
      s->Read(block.data(), 1600);  // the first read may settle buffers
      history.Clear();
      LAllocationWatch watch;
      for (int i = 0; i < 40; ++i) s->Read(block.data(), 1600);
      EXPECT_EQ(watch.Count(), 0) << "from " << from << (loopOn ? " looping" : "");
      EXPECT_GT(history.GetCount(), 0u);
    }
  }
}

TEST_F(OpenerTest, WithoutAProjectThereIsNothingToPlay) {
  TDProjectSoundOpener none;
  EXPECT_TRUE(none.OpenProjectSource(0, false)->IsError());
}

}  // namespace
