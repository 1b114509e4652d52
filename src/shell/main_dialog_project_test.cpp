#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "foundation/byte_order.h"
#include "project/audio_cut_tank.h"
#include "project/project_file.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

class ProjectCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("project-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch / "tmp");
    setenv("TMPDIR", (scratch / "tmp").c_str(), 1);
    setenv("HOME", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    wav = (scratch / "one second.wav").string();
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 8000, 1, 16);
    std::vector<float> tone(8000);
    for (int i = 0; i < 8000; ++i) tone[static_cast<std::size_t>(i)] = 0.25f * std::sin(i * 0.05f);
    sink->Write(tone.data(), 8000);
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  // A saved project with one clip, at scratch/songs/song.tdpj.
  std::string SavedSong(MainDialog& dialog, FakeView& view) {
    fs::create_directories(scratch / "songs");
    std::string const song = (scratch / "songs" / "song.tdpj").string();
    EXPECT_TRUE(dialog.AddClip(wav));
    view.fileAnswers.push_back(song);
    EXPECT_TRUE(dialog.CmProjectSave());
    return song;
  }

  fs::path scratch;
  std::string wav;
};

TEST_F(ProjectCommandsTest, TheFirstSaveAsksForAPlaceAndAfterThatSavesInPlace) {
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  dialog.InitDialog();
  EXPECT_TRUE(dialog.CmProjectSave());  // clean: nothing to write
  EXPECT_TRUE(view.fileTitles.empty());

  std::string const song = SavedSong(dialog, view);
  EXPECT_EQ(view.fileTitles.back(), "Save Project");
  EXPECT_EQ(view.fileFolders.back(), (scratch / "Documents" / "Tandrel Projects").string());
  EXPECT_TRUE(fs::is_directory(scratch / "Documents" / "Tandrel Projects"));
  EXPECT_TRUE(fs::exists(song));
  EXPECT_TRUE(fs::exists(song + ".ProjectData/0.aud"));  // the audio went with it
  EXPECT_FALSE(dialog.IsProjectDirty());
  EXPECT_EQ(view.caption, "song - Tandrel");
  EXPECT_EQ(dialog.GetProject().szDataFolderPath, song + ".ProjectData");
  EXPECT_EQ(LAudioCutTank::Instance().GetWorkingFolder(), song + ".ProjectData");
  std::string saveDir;
  LUserSettingGetString("Settings", "SaveDir", "", saveDir);
  EXPECT_EQ(saveDir, (scratch / "songs").string());

  dialog.Command(CM_TRACK_ADD);
  EXPECT_EQ(view.caption, "song* - Tandrel");
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_RECOVERY_SAVE_SOON));
  std::size_t const asked = view.fileTitles.size();
  EXPECT_TRUE(dialog.CmProjectSave());
  EXPECT_EQ(view.fileTitles.size(), asked);  // in place, no question
  EXPECT_EQ(dialog.GetUndoPointName(), "Save Project");

  // Saved audio survives the end of its clip: the file must stay for the project.
  dialog.GetProject().Clips.SelectAllClips();
  view.answers.push_back({0, false});
  dialog.Command(CM_CLIP_DELETE);
  EXPECT_TRUE(fs::exists(song + ".ProjectData/0.aud"));
}

TEST_F(ProjectCommandsTest, TheClosePromptSavesStaysOrDiscards) {
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  dialog.InitDialog();
  std::string const song = SavedSong(dialog, view);
  dialog.Command(CM_TRACK_ADD);
  dialog.AutoProjectSaveForCrash();
  EXPECT_TRUE(fs::exists(dialog.GetRecoveryFilePath()));

  view.answers.push_back({1, false});  // "Cancel"
  dialog.Command(CM_PROJECT_CLOSE);
  EXPECT_EQ(view.questions.back().text, "The current project has been changed. Do you want to save the changes?");
  EXPECT_EQ(dialog.GetProject().szFilePath, song);
  EXPECT_EQ(dialog.GetProject().Tracks.GetTrackCount(), 13);

  std::string const recovery = dialog.GetRecoveryFilePath();
  view.answers.push_back({2, false});  // "Do Not Save"
  dialog.Command(CM_PROJECT_CLOSE);
  EXPECT_FALSE(fs::exists(recovery));
  EXPECT_EQ(dialog.GetProject().szFilePath, MainDialog::DefaultProjectPath());
  EXPECT_EQ(dialog.GetProject().Tracks.GetTrackCount(), 12);

  // Opening it again shows what was saved, not the discarded track.
  ASSERT_TRUE(dialog.ProjectLoad(song));
  EXPECT_EQ(dialog.GetProject().Tracks.GetTrackCount(), 12);
  EXPECT_EQ(dialog.GetProject().Clips.GetCount(), 1);
  EXPECT_EQ(dialog.GetUndoPointName(), "Open Project");
  EXPECT_FALSE(dialog.IsProjectDirty());
  // It heads the recent projects, once; a project that went away drops out.
  EXPECT_EQ(dialog.GetRecentProjects(), std::vector<std::string>{song});
  fs::rename(song, song + ".bak");
  EXPECT_TRUE(dialog.GetRecentProjects().empty());
}

TEST_F(ProjectCommandsTest, AFailedLoadSaysWhyAndLeavesADefaultProject) {
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  dialog.InitDialog();
  std::string const song = SavedSong(dialog, view);
  std::ifstream in(song, std::ios::binary);
  std::vector<std::uint8_t> good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

  auto load = [&](std::vector<std::uint8_t> const& bytes, std::string const& name) {
    std::string const file = (scratch / "songs" / name).string();
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<char const*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
    fs::create_directories(file + ".ProjectData");
    bool const ok = dialog.ProjectLoad(file);
    EXPECT_EQ(dialog.GetProject().szFilePath, MainDialog::DefaultProjectPath()) << name;
    EXPECT_EQ(dialog.GetProject().Tracks.GetTrackCount(), 12) << name;
    return ok;
  };
  std::vector<std::uint8_t> newer = good;
  LWriteLE16(newer.data() + 10, 30);
  EXPECT_FALSE(load(newer, "newer.tdpj"));
  EXPECT_EQ(view.jobErrors.back(),
            "This project file was created with a newer version of Tandrel. Please upgrade to the latest version of "
            "Tandrel to open this project.");
  EXPECT_EQ(view.alerts.back().caption, "Unable to open project");
  EXPECT_FALSE(load(std::vector<std::uint8_t>(good.begin(), good.begin() + static_cast<long>(good.size() / 2)),
                    "half.tdpj"));
  EXPECT_FALSE(load({'h', 'e', 'l', 'l', 'o'}, "hello.tdpj"));
  EXPECT_NE(view.jobErrors.back().find("is not a correct Tandrel project file"), std::string::npos);

  fs::rename(song + ".ProjectData", scratch / "moved");
  EXPECT_FALSE(dialog.ProjectLoad(song));
  EXPECT_EQ(view.alerts.back().text, "Tandrel can't open the project data folder (" + song +
                                         ".ProjectData). Has this folder been deleted or moved?");
  EXPECT_EQ(dialog.GetProject().szFilePath, MainDialog::DefaultProjectPath());

  EXPECT_FALSE(dialog.ProjectLoad((scratch / "absent.tdpj").string()));
  EXPECT_EQ(view.alerts.back().caption, "Project Load Error");
}

// A Tandrel killed after edits: at the next start the user is asked, and
// "Recover" brings the edits back as far as the last recovery save.
TEST_F(ProjectCommandsTest, EditsComeBackAfterACrash) {
  std::string song;
  {
    FakeView view;
    FakeLoop loop;
    FakeEngine engine;
    MainDialog dialog{view, loop, engine};
    dialog.InitDialog();
    song = SavedSong(dialog, view);
    dialog.GetProject().Clips.SelectAllClips();
    dialog.Command(CM_PROJECT_SAVE);  // clean: nothing
  }
  pid_t const child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    FakeView view;
    FakeLoop loop;
    FakeEngine engine;
    MainDialog dialog{view, loop, engine};
    dialog.InitDialog();
    if (!dialog.ProjectLoad(song)) ::_exit(2);
    dialog.Command(CM_TRACK_ADD);
    dialog.CmTrackRename(12, "after the save");
    dialog.OnTimer(MainDialog::TIMER_RECOVERY_SAVE_SOON);  // the recovery save a second later
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));

  LAudioCutTank::Instance().Reset();
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  view.answers.push_back({0, false});  // "Recover"
  dialog.InitDialog();
  ASSERT_FALSE(view.questions.empty());
  EXPECT_EQ(view.questions.back().text,
            "The project :\n " + song + " \n was not saved properly, do you want Tandrel to recover it?");
  EXPECT_EQ(dialog.GetProject().szFilePath, song);
  ASSERT_EQ(dialog.GetProject().Tracks.GetTrackCount(), 13);
  EXPECT_EQ(dialog.GetProject().Tracks.GetTrack(12)->GetName(), "after the save");
  EXPECT_EQ(dialog.GetProject().Clips.GetCount(), 1);
  EXPECT_TRUE(dialog.IsProjectDirty());

  // Declined, or with no recovery file, a start opens the default project.
  FakeView view2;
  MainDialog again{view2, loop, engine};
  view2.answers.push_back({1, false});  // "No"
  again.InitDialog();
  EXPECT_EQ(again.GetProject().szFilePath, MainDialog::DefaultProjectPath());
  fs::remove(fs::path(song + ".ProjectData") / TDRecoveryFileName);
  FakeView view3;
  MainDialog third{view3, loop, engine};
  third.InitDialog();
  EXPECT_TRUE(view3.questions.empty());
}

}  // namespace

namespace {

// A file may hold lines that don't fit their clips; an opened project has them
// fitted before anything plays or is drawn.
TEST_F(ProjectCommandsTest, AnOpenedProjectHasItsClipLinesFitted) {
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  dialog.InitDialog();
  std::string const song = SavedSong(dialog, view);
  TDClip& clip = *dialog.GetProject().Clips.GetClips()[0];
  clip.GetFadeListByType(FadeTypeVolume) = {{-1.0, 0, FadeTypeVolume}, {0.0, 400, FadeTypeVolume},
                                            {0.5, 1500, FadeTypeVolume}};
  ASSERT_TRUE(dialog.ProjectSave(song, "Save Project", false));

  ASSERT_TRUE(dialog.ProjectLoad(song));
  TDClip const& loaded = *dialog.GetProject().Clips.GetClips()[0];
  ASSERT_EQ(loaded.GetEnd(), 1000);
  std::vector<std::pair<LSoundTime, double>> line;
  for (TDClipFadePoint const& p : loaded.GetFadeListByType(FadeTypeVolume)) line.emplace_back(p.iPosition, p.dValue);
  EXPECT_EQ(line, (std::vector<std::pair<LSoundTime, double>>{{0, -1.0}, {400, 0.0}, {1000, 0.0}}));
}

}  // namespace
