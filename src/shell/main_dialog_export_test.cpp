#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "project/audio_cut_tank.h"
#include "shell/commands.h"
#include "shell/export_options.h"
#include "shell/main_dialog.h"
#include "shell/testing_controller.h"
#include "shell/user_settings.h"
#include "sound/aif_file.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

class ExportCommandTest : public TDControllerTest {
 protected:
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
};

TEST_F(ExportCommandTest, TheMixGoesWhereTheUserSaysAndAFailureLeavesNothing) {
  // Nothing to export yet: said, and no form.
  dialog.Command(CM_PROJECT_EXPORT);
  EXPECT_EQ(view.LastAlert(), "Your project does not contains any clips, please load some clips and try again.");
  EXPECT_TRUE(view.exportForms.empty());
  PlaceTone(500);
  std::string const out = (scratch / "mix.wav").string();
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = out; });
  engine.playing = true;
  dialog.Command(CM_PROJECT_EXPORT);
  EXPECT_FALSE(engine.playing);  // an export stops playback first
  ASSERT_EQ(view.exportForms.size(), 1u);
  // The form starts in the save folder, named after the project, as WAV.
  EXPECT_EQ(view.exportForms[0].szPath, (scratch / "Default Project.wav").string());
  EXPECT_EQ(view.exportForms[0].szExtension, ".wav");
  EXPECT_FALSE(view.exportForms[0].bHasSelection);
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

  // A cancelled form does nothing.
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
  // Nothing but the one export is left in the folder: no passing files.
  int files = 0;
  for (auto const& e : fs::directory_iterator(scratch)) files += e.path().extension() == ".wav" ? 1 : 0;
  EXPECT_EQ(files, 2);  // tone.wav and mix.wav
}

TEST_F(ExportCommandTest, AnExistingFileIsOverwrittenOnlyWhenTheUserSaysAndSurvivesAFailedExport) {
  PlaceTone(0);
  std::string const out = (scratch / "take.wav").string();
  {
    LSoundSink old = LWaveFile::OpenSinkPCM(out, 8000, 1, 16);
    std::vector<float> one(800, 0.25f);
    old->Write(one.data(), 800);
  }
  auto const before = fs::file_size(out);
  std::size_t const jobs = view.jobs.size();
  // Cancel at the question keeps the form open; a name in another format is
  // taken as that format; a folder that does not exist is refused with a reason.
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = out; });
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = (scratch / "nowhere" / "x.wav").string(); });
  view.answers.push_back({1, false});  // "Cancel"
  dialog.Command(CM_PROJECT_EXPORT);
  ASSERT_EQ(view.questions.size(), 1u);
  EXPECT_EQ(view.questions[0].caption, "File Already Exists");
  ASSERT_EQ(view.exportFormTexts.size(), 2u);
  EXPECT_EQ(view.exportFormTexts[0], "");  // stays open, nothing more to say
  EXPECT_EQ(view.exportFormTexts[1], TDExportInvalidNameText);
  EXPECT_EQ(view.jobs.size(), jobs);
  EXPECT_EQ(fs::file_size(out), before);

  // Overwrite, but the export is stopped: the file that was there stays whole.
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = out; });
  view.answers.push_back({0, false});  // "Overwrite"
  view.stopNextJob = true;
  dialog.Command(CM_PROJECT_EXPORT);
  ASSERT_EQ(view.jobs.size(), jobs + 1);
  ASSERT_TRUE(fs::exists(out));
  EXPECT_EQ(fs::file_size(out), before);
  EXPECT_EQ(LWaveFile::OpenSource(out)->GetSampleRate(), 8000);

  // Overwrite for real: the mix replaces it.
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = out; });
  view.answers.push_back({0, false});
  dialog.Command(CM_PROJECT_EXPORT);
  LSoundSource mix = LWaveFile::OpenSource(out);
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetSampleRate(), 44100);
  EXPECT_NEAR(mix->GetEndSample(), 44100, 2);
}

TEST_F(ExportCommandTest, TheFormRemembersTheFormatAndExportsTheSelectionWhenAsked) {
  PlaceTone(0);
  dialog.GetProject().WorkRegion.Set(250, 750);
  // A name typed without an extension gets the chosen format's.
  view.exportEdits.push_back([&](TDExportOptions& o) {
    o.szExtension = ".aiff";
    o.szPath = TDExportOptionsChangeType((scratch / "part").string(), ".aiff");
    o.bSelectionOnly = true;
  });
  dialog.Command(CM_PROJECT_EXPORT);
  ASSERT_EQ(view.exportForms.size(), 1u);
  EXPECT_TRUE(view.exportForms[0].bHasSelection);
  LSoundSource part = LAifFile::OpenSource((scratch / "part.aiff").string());
  ASSERT_TRUE(part.IsGood());
  EXPECT_NEAR(part->GetEndSample(), 22050, 2);  // the half second selected

  // The next form starts where this one ended, in the same format.
  dialog.Command(CM_PROJECT_EXPORT);
  ASSERT_EQ(view.exportForms.size(), 2u);
  EXPECT_EQ(view.exportForms[1].szExtension, ".aiff");
  EXPECT_EQ(fs::path(view.exportForms[1].szPath).parent_path(), scratch);
  EXPECT_EQ(fs::path(view.exportForms[1].szPath).extension(), ".aiff");
}

TEST_F(ExportCommandTest, AMissingEncoderIsSaidBeforeAnyMixing) {
  PlaceTone(0);
  std::string const path = std::getenv("PATH") ? std::getenv("PATH") : "";
  fs::create_directories(scratch / "empty-bin");
  std::size_t const jobs = view.jobs.size();
  setenv("PATH", (scratch / "empty-bin").c_str(), 1);
  view.exportEdits.push_back([&](TDExportOptions& o) { o.szPath = (scratch / "song.mp3").string(); });
  dialog.Command(CM_PROJECT_EXPORT);
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(view.jobs.size(), jobs);
  ASSERT_FALSE(view.infoBar.empty());
  EXPECT_EQ(view.infoBar.back(), "Could not find a component to export project to a file.");
  EXPECT_NE(view.LastAlert().find("lame"), std::string::npos) << view.LastAlert();
  EXPECT_FALSE(fs::exists(scratch / "song.mp3"));
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
