#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "project/audio_cut_tank.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

class ExportCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("export-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LUserSettingSetString("Settings", "SaveDir", scratch.c_str());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  // One second of a tone at 44.1 kHz, placed at `at` ms on track 0.
  void PlaceTone(LSoundTime at) {
    std::string const wav = (scratch / "tone.wav").string();
    {
      LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 44100, 2, 16);
      std::vector<float> tone(2 * 44100);
      for (int i = 0; i < 44100; ++i) tone[2 * i] = tone[2 * i + 1] = 0.5f * std::sin(i * 0.0627f);
      sink->Write(tone.data(), 44100);
    }
    dialog.GetProject().Tracks.SetCurrentTrackIndex(0);
    dialog.SetCursorPosition(at);
    ASSERT_TRUE(dialog.AddClip(wav));
  }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};

TEST_F(ExportCommandTest, TheMixGoesWhereTheUserSaysAndAFailureLeavesNothing) {
  PlaceTone(500);
  std::string const out = (scratch / "mix.wav").string();
  view.fileAnswers = {out};
  engine.playing = true;
  dialog.Command(CM_PROJECT_EXPORT);
  EXPECT_FALSE(engine.playing);  // an export stops playback first
  ASSERT_EQ(view.fileTitles.back(), "Export Project");
  EXPECT_EQ(view.fileFolders.back(), scratch.string());
  ASSERT_EQ(view.jobs.back(), "Exporting audio");
  LSoundSource mix = LWaveFile::OpenSource(out);
  ASSERT_TRUE(mix.IsGood());
  // Half a second of silence, then the second of tone.
  EXPECT_NEAR(mix->GetEndSample(), 66150, 2);
  std::vector<float> frames(2 * 66150);
  mix->Read(frames.data(), 66150);
  EXPECT_EQ(frames[2 * 1000], 0.0f);
  float peak = 0;
  for (int i = 22050; i < 66150; ++i) peak = std::max(peak, std::fabs(frames[2 * static_cast<std::size_t>(i)]));
  EXPECT_NEAR(peak, 0.5f, 0.01f);

  // A cancelled chooser does nothing.
  std::size_t const jobs = view.jobs.size();
  dialog.Command(CM_PROJECT_EXPORT);
  EXPECT_EQ(view.jobs.size(), jobs);

  // A stopped export leaves no file.
  std::string const stopped = (scratch / "stopped.wav").string();
  view.stopNextJob = true;
  EXPECT_FALSE(dialog.ExportProjectTo(stopped));
  EXPECT_FALSE(fs::exists(stopped));
  // A place that can't be written to is said, and nothing is left.
  std::string const nowhere = (scratch / "no such folder" / "mix.wav").string();
  std::size_t const said = view.alerts.size() + view.jobErrors.size();
  EXPECT_FALSE(dialog.ExportProjectTo(nowhere));
  EXPECT_GT(view.alerts.size() + view.jobErrors.size(), said);
  EXPECT_FALSE(fs::exists(nowhere));
}

TEST_F(ExportCommandTest, DroppedFilesFollowOneAnotherAndNothingOpensWhileRecording) {
  PlaceTone(0);  // makes tone.wav and a first clip
  std::string const tone = (scratch / "tone.wav").string();
  dialog.SetCursorPosition(2000);
  dialog.EvDropFiles({tone, tone});
  auto const& clips = dialog.GetProject().Clips.GetClips();
  ASSERT_EQ(clips.size(), 3u);
  EXPECT_EQ(clips[1]->iPosition, 2000);
  EXPECT_EQ(clips[2]->iPosition, clips[1]->GetEndTime());  // the second after the first
  engine.recording = true;
  dialog.EvDropFiles({tone});
  EXPECT_EQ(dialog.GetProject().Clips.GetCount(), 3);
  ASSERT_FALSE(view.alerts.empty());
  EXPECT_EQ(view.alerts.back().text,
            "Tandrel can't open clips when it is recording. Please stop recording, then try loading clips.");
}

}  // namespace
