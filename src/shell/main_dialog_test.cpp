#include "shell/main_dialog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "shell/commands.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"

namespace fs = std::filesystem;

namespace {

class MainDialogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    dialog.InitDialog();
  }

  TDTracksManager& Tracks() { return dialog.GetProject().Tracks; }
  void ResetViewLog() { view = FakeView{}; }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};

TEST_F(MainDialogTest, StartsInACleanDefaultProjectOfTwelveTracks) {
  EXPECT_EQ(Tracks().GetTrackCount(), 12);
  EXPECT_FALSE(dialog.IsProjectDirty());
  EXPECT_EQ(dialog.GetUndoPointName(), "Default Empty Project");
  EXPECT_EQ(dialog.GetProject().szFilePath, (scratch / "Default Project.tdpj").string());
  EXPECT_EQ(dialog.GetProject().GetEnd(), 120000);
  EXPECT_TRUE(fs::is_directory(scratch / "Default Project.tdpj.ProjectData"));
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_NAVIGATOR));
}

TEST_F(MainDialogTest, TheMixOpenersReadThePlaybackSpeedEachTime) {
  // A speed other than 100 % is kept, though the mix still plays at normal speed.
  LUserSettingSet("Settings", "PlaybackSpeed", 50);
  dialog.GetProject().OpenNonLoopSource(44100, 2, nullptr);
  EXPECT_EQ(dialog.GetProject().dPlaybackSpeed, 0.5);
  LUserSettingSet("Settings", "PlaybackSpeed", 125);
  dialog.GetProject().OpenSourceForExport(44100, 2, nullptr, false);
  EXPECT_EQ(dialog.GetProject().dPlaybackSpeed, 1.25);
}

TEST_F(MainDialogTest, DefaultProjectDropsAStaleRecoveryFile) {
  fs::path recovery = scratch / "Default Project.tdpj.ProjectData" / "Recover.tdpj-recover";
  { std::FILE* f = std::fopen(recovery.c_str(), "w"); ASSERT_NE(f, nullptr); std::fclose(f); }
  dialog.ProjectDefault();
  EXPECT_FALSE(fs::exists(recovery));
  EXPECT_EQ(Tracks().GetTrackCount(), 12);
}

TEST_F(MainDialogTest, TrackAddRefusesWhileRecordingAndPastTwoHundredFifty) {
  engine.recording = true;
  dialog.Command(CM_TRACK_ADD);
  EXPECT_EQ(view.LastAlert(),
            "Tandrel can't add a track when it is recording. Please stop recording, then try adding the track.");
  EXPECT_EQ(Tracks().GetTrackCount(), 12);
  EXPECT_FALSE(dialog.IsProjectDirty());
  engine.recording = false;

  while (Tracks().GetTrackCount() < 249) Tracks().AddTrack();
  view.alerts.clear();
  dialog.Command(CM_TRACK_ADD);
  EXPECT_TRUE(view.alerts.empty());
  EXPECT_EQ(Tracks().GetTrackCount(), 250);
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 249);
  EXPECT_EQ(dialog.GetUndoPointName(), "Add Track");
  EXPECT_TRUE(dialog.IsProjectDirty());

  dialog.Command(CM_TRACK_ADD);
  ASSERT_EQ(view.alerts.size(), 1u);
  EXPECT_EQ(view.alerts[0].text, "Only 250 tracks supported.");
  EXPECT_EQ(view.alerts[0].caption, "Warning");
  EXPECT_EQ(Tracks().GetTrackCount(), 250);
}

TEST_F(MainDialogTest, EditsWhilePlayingRestartTheMix) {
  engine.playing = true;
  dialog.Command(CM_TRACK_ADD);
  dialog.CmTrackSetMute(0, true);
  dialog.CmTrackSetVolume(1, -6);
  EXPECT_EQ(engine.restarts, 3);
  // Selecting is no edit of the sound.
  dialog.Command(CM_SELECT_NEXT_TRACK);
  EXPECT_EQ(engine.restarts, 3);
}

TEST_F(MainDialogTest, TrackInsertPutsTheNewTrackBelowTheCurrentOne) {
  engine.playing = true;
  dialog.Command(CM_TRACK_INSERT);
  EXPECT_EQ(view.LastAlert(),
            "Tandrel can't insert a track when it is playing or recording. Please stop playing or recording, then try "
            "inserting the track.");
  EXPECT_EQ(Tracks().GetTrackCount(), 12);
  engine.playing = false;

  Tracks().GetTrack(3)->SetName("Drums");
  Tracks().GetTrack(4)->SetName("Bass");
  dialog.CmTrackSelect(3);
  dialog.Command(CM_TRACK_INSERT);
  ASSERT_EQ(Tracks().GetTrackCount(), 13);
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 4);
  EXPECT_EQ(Tracks().GetTrack(3)->GetName(), "Drums");
  EXPECT_EQ(Tracks().GetTrack(4)->GetName(), "Untitled Track");
  EXPECT_EQ(Tracks().GetTrack(5)->GetName(), "Bass");
  EXPECT_EQ(dialog.GetUndoPointName(), "Insert Track");
}

TEST_F(MainDialogTest, TrackDeleteGuardsInTheirOrder) {
  while (Tracks().GetTrackCount() > 1) Tracks().DeleteTrack(0);
  engine.playing = true;  // the one-track rule comes first
  dialog.Command(CM_TRACK_DELETE);
  EXPECT_EQ(view.infoBar, std::vector<std::string>{"At least one track is needed."});
  EXPECT_TRUE(view.alerts.empty());
  EXPECT_EQ(Tracks().GetTrackCount(), 1);
  EXPECT_FALSE(dialog.IsProjectDirty());

  Tracks().AddTrack();
  for (auto state : {&FakeEngine::playing, &FakeEngine::recording, &FakeEngine::scrubbing}) {
    engine.playing = engine.recording = engine.scrubbing = false;
    engine.*state = true;
    view.alerts.clear();
    dialog.Command(CM_TRACK_DELETE);
    EXPECT_EQ(view.LastAlert(),
              "Tandrel can't delete a track when it is playing, recording or scrubbing. Please stop and then try "
              "deleting the track again.");
    EXPECT_EQ(Tracks().GetTrackCount(), 2);
  }
  EXPECT_TRUE(view.questions.empty());
}

TEST_F(MainDialogTest, TrackDeleteAsksUntilToldNotTo) {
  dialog.CmTrackSelect(5);
  view.answers = {{1, false}};  // "No"
  dialog.Command(CM_TRACK_DELETE);
  ASSERT_EQ(view.questions.size(), 1u);
  EXPECT_EQ(view.questions[0].text, "Are you sure you want to delete this track from the project?");
  EXPECT_EQ(view.questions[0].caption, "Confirm Delete");
  EXPECT_EQ(Tracks().GetTrackCount(), 12);
  EXPECT_FALSE(dialog.IsProjectDirty());

  view.answers = {{0, true}};  // "Yes", and do not ask again
  dialog.Command(CM_TRACK_DELETE);
  EXPECT_EQ(Tracks().GetTrackCount(), 11);
  EXPECT_EQ(dialog.GetUndoPointName(), "Delete Track");
  EXPECT_FALSE(LUserSettingGet("Settings", "bWarnTrackDelete", true));

  dialog.Command(CM_TRACK_DELETE);
  EXPECT_EQ(view.questions.size(), 2u);
  EXPECT_EQ(Tracks().GetTrackCount(), 10);
}

TEST_F(MainDialogTest, MovingTracksIsSilentlyIgnoredWhilePlayingOrRecording) {
  Tracks().GetTrack(0)->SetName("A");
  Tracks().GetTrack(1)->SetName("B");
  dialog.CmTrackSelect(1);
  engine.recording = true;
  dialog.Command(CM_TRACK_MOVE_UP);
  engine.recording = false;
  engine.playing = true;
  dialog.Command(CM_TRACK_MOVE_UP);
  EXPECT_TRUE(view.alerts.empty());
  EXPECT_EQ(Tracks().GetTrack(0)->GetName(), "A");
  engine.playing = false;

  dialog.Command(CM_TRACK_MOVE_UP);
  EXPECT_EQ(Tracks().GetTrack(0)->GetName(), "B");
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 0);
  dialog.Command(CM_TRACK_MOVE_UP);  // already at the top
  EXPECT_EQ(Tracks().GetTrack(0)->GetName(), "B");
  dialog.Command(CM_TRACK_MOVE_DOWN);
  EXPECT_EQ(Tracks().GetTrack(1)->GetName(), "B");
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 1);
  EXPECT_EQ(dialog.GetUndoPointName(), "Move Track Down");

  dialog.Command(CM_TRACK_SELECT_LAST);
  dialog.Command(CM_TRACK_MOVE_DOWN);  // already at the bottom
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 11);
}

TEST_F(MainDialogTest, SoloAndMuteCommandsKeepTheRules) {
  dialog.CmTrackSetMute(2, true);
  dialog.CmTrackSetSolo(2, true);  // solo unmutes
  EXPECT_FALSE(Tracks().GetTrack(2)->bMute);
  EXPECT_TRUE(Tracks().IsTrackSilent(3));
  EXPECT_EQ(dialog.GetUndoPointName(), "Solo Track");
  // Every row is refreshed: the others' silenced state changed.
  EXPECT_GE(view.changedTracks.size(), 12u);

  dialog.CmTrackSoloToggle(2);
  EXPECT_FALSE(Tracks().IsTrackSilent(3));
  dialog.CmTrackMuteToggle(3);
  EXPECT_TRUE(Tracks().IsTrackSilent(3));
}

TEST_F(MainDialogTest, ArmingIsRefusedWhileRecordingAndTipsWhenArmed) {
  engine.recording = true;
  dialog.Command(CM_TRACK_RECORD_TOGGLE);
  EXPECT_EQ(view.LastAlert(),
            "You cannot change the record mode of a track while Tandrel is recording.\nPlease stop the recording "
            "first.");
  EXPECT_FALSE(Tracks().GetTrack(0)->IsRecordMode());
  engine.recording = false;

  dialog.Command(CM_TRACK_RECORD_TOGGLE);
  EXPECT_TRUE(Tracks().GetTrack(0)->IsRecordMode());
  EXPECT_EQ(dialog.GetUndoPointName(), "Track recording armed");
  EXPECT_EQ(view.tips, std::vector<std::string>{"Click the record button to start recording."});
  EXPECT_EQ(loop.armed[MainDialog::TIMER_HIDE_HINT], 5000u);
  int hides = view.hideTips;
  dialog.OnTimer(MainDialog::TIMER_HIDE_HINT);
  EXPECT_EQ(view.hideTips, hides + 1);

  dialog.Command(CM_TRACK_RECORD_TOGGLE);
  EXPECT_FALSE(Tracks().GetTrack(0)->IsRecordMode());
  EXPECT_EQ(dialog.GetUndoPointName(), "Track recording disarmed");
}

TEST_F(MainDialogTest, OnlyOneTrackMonitorsAtATime) {
  dialog.CmTrackMonitorToggle(1);
  EXPECT_TRUE(Tracks().GetTrack(1)->bMonitor);

  dialog.CmTrackMonitorToggle(4);
  ASSERT_EQ(view.alerts.size(), 1u);
  EXPECT_EQ(view.alerts[0].text,
            "You can only monitor one track at a time. Please turn off monitoring on other tracks first.");
  EXPECT_EQ(view.alerts[0].caption, "Monitoring Not Available");
  EXPECT_FALSE(Tracks().GetTrack(4)->bMonitor);

  engine.recording = true;
  dialog.CmTrackMonitorToggle(1);
  EXPECT_TRUE(Tracks().GetTrack(1)->bMonitor);
  EXPECT_EQ(view.LastAlert(),
            "You can't change the monitoring state of a track if recording is in progress. Please stop recording "
            "first, then click the monitor button.");
  engine.recording = false;

  // Playback stops for the switch and comes back.
  engine.playing = true;
  dialog.CmTrackMonitorToggle(1);
  EXPECT_FALSE(Tracks().GetTrack(1)->bMonitor);
  EXPECT_EQ(engine.stops, 1);
  EXPECT_EQ(engine.restarts, 1);
}

TEST_F(MainDialogTest, FadersClampAndMakeOneUndoStepAfterTheyStop) {
  dialog.CmTrackSetVolume(0, -3);
  dialog.CmTrackSetVolume(0, 40);
  EXPECT_FLOAT_EQ(Tracks().GetTrack(0)->PannedVolume.fCentre, 12.0f);
  dialog.CmTrackSetVolume(0, -200);
  EXPECT_FLOAT_EQ(Tracks().GetTrack(0)->PannedVolume.fCentre, -48.0f);
  EXPECT_TRUE(dialog.IsProjectDirty());
  EXPECT_EQ(loop.armed[MainDialog::TIMER_VOLUME_UNDO], 1000u);
  EXPECT_EQ(dialog.GetUndoPointName(), "Default Empty Project");
  dialog.OnTimer(MainDialog::TIMER_VOLUME_UNDO);
  EXPECT_EQ(dialog.GetUndoPointName(), "Volume Change");

  const std::pair<int, double> pans[] = {{50, 0.0}, {0, 1.0}, {25, 0.5}, {100, -1.0}, {75, -0.5}, {-10, 1.0}};
  for (auto [position, pan] : pans) {
    dialog.CmTrackSetPan(0, position);
    EXPECT_DOUBLE_EQ(Tracks().GetTrack(0)->PannedVolume.dPan, pan) << "position " << position;
  }
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_PAN_UNDO));
  dialog.OnTimer(MainDialog::TIMER_PAN_UNDO);
  EXPECT_EQ(dialog.GetUndoPointName(), "Pan Change");
}

TEST_F(MainDialogTest, RenameKeepsTheNameWhenTheFieldIsEmptied) {
  dialog.CmTrackRename(0, "Guitar");
  EXPECT_EQ(Tracks().GetTrack(0)->GetName(), "Guitar");
  EXPECT_EQ(dialog.GetUndoPointName(), "Rename Track");
  dialog.CmTrackRename(0, "");
  EXPECT_EQ(Tracks().GetTrack(0)->GetName(), "Guitar");
  dialog.CmTrackRename(0, std::string(300, 'x'));
  EXPECT_EQ(Tracks().GetTrack(0)->GetName().size(), 259u);
}

TEST_F(MainDialogTest, ColourChangesOnlyWhenPicked) {
  dialog.SetProjectClean();
  view.colourAnswer = false;
  dialog.Command(CM_TRACK_PICK_COLOR);
  EXPECT_FALSE(dialog.IsProjectDirty());
  view.colourAnswer = true;
  view.colour[0] = 0xFFFF;
  dialog.Command(CM_TRACK_PICK_COLOR);
  EXPECT_EQ(Tracks().GetTrack(0)->Colour.uRed, 0xFFFF);
  EXPECT_EQ(dialog.GetUndoPointName(), "Track Color");
}

TEST_F(MainDialogTest, CollapseMarksTheProjectChangedWithoutAnUndoStep) {
  dialog.Command(CM_TRACK_COLLAPSE_ALL);
  for (int i = 0; i < 12; ++i) EXPECT_TRUE(Tracks().GetTrack(i)->bCollapsed);
  EXPECT_TRUE(dialog.IsProjectDirty());
  EXPECT_EQ(dialog.GetUndoPointName(), "Default Empty Project");
  dialog.Command(CM_TRACK_EXPAND);
  EXPECT_FALSE(Tracks().GetTrack(0)->bCollapsed);
  EXPECT_TRUE(Tracks().GetTrack(1)->bCollapsed);
}

TEST_F(MainDialogTest, CommandsHideTheTipAndUnknownOnesAreNotTaken) {
  int hides = view.hideTips;
  EXPECT_TRUE(dialog.Command(CM_SELECT_NEXT_TRACK));
  EXPECT_EQ(view.hideTips, hides + 1);
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 1);
  EXPECT_FALSE(dialog.Command(99999));
  dialog.Command(CM_TRACK_SELECT_FIRST);
  dialog.Command(CM_SELECT_PREV_TRACK);
  EXPECT_EQ(Tracks().GetCurrentTrackIndex(), 0);
}

TEST_F(MainDialogTest, RunArgumentsSkipsMarkersAndReportsMissingProjects) {
  const std::string missing = (scratch / "gone.tdpj").string();
  dialog.EvRunArguments({"tandrel", "-psn_0_12345", "-block", missing});
  ASSERT_EQ(view.alerts.size(), 1u);
  EXPECT_EQ(view.alerts[0].text, "The project file \" " + missing + " \" does not exist, please load another project.");
  EXPECT_EQ(view.alerts[0].caption, "Project Load Error");
  EXPECT_EQ(Tracks().GetTrackCount(), 12);

  // "-refreshfiles" first with others behind it ends the handling.
  dialog.EvRunArguments({"tandrel", "-refreshfiles", missing});
  EXPECT_EQ(view.alerts.size(), 1u);
}

TEST_F(MainDialogTest, SoundCloudReturnStoresTheTokenAndNothingElse) {
  dialog.EvRunArguments({"tandrel", "orvane.tandrel://authsoundcloud?access_token=abc123&scope=x"});
  std::string token;
  EXPECT_TRUE(LUserSettingGetString("SoundCloud", "Token", "", token));
  EXPECT_EQ(token, "abc123");
  EXPECT_TRUE(view.alerts.empty());
}

TEST(MainDialogBeforeInit, ArgumentsWaitForTheWindow) {
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog(view, loop, engine);
  dialog.EvRunArguments({"tandrel", "/nowhere/song.tdpj"});
  EXPECT_TRUE(view.alerts.empty());
}

}  // namespace
