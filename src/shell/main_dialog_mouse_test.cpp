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
#include "timeline/project_control.h"

namespace fs = std::filesystem;

namespace {

// The window's half of a gesture is TDProjectControl; these check what the
// release commits: one undo step, one restart, and the rules on locked clips.
class MouseGestureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("mouse-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
    wav = (scratch / "two seconds.wav").string();
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 8000, 1, 16);
    std::vector<float> tone(16000);
    for (int i = 0; i < 16000; ++i) tone[static_cast<std::size_t>(i)] = 0.25f * std::sin(i * 0.05f);
    sink->Write(tone.data(), 16000);
    sink.Close();
    TDTrackPixelMapping::dZoomFactorV = 1.0;
    control.SetView(TDPixelSoundTimeMapper(0, 1000, 0, 20000), 1000);  // 20 ms a column
    engine.playing = true;
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  TDProject& Project() { return dialog.GetProject(); }

  TDClip* Place(int track, LSoundTime at) {
    Project().Tracks.SetCurrentTrackIndex(track);
    dialog.SetCursorPosition(at);
    EXPECT_TRUE(dialog.AddClip(wav));
    TDClip* added = nullptr;
    for (auto const& c : Project().Clips.GetClips()) {
      if (c->iTrackIndex == track && c->iPosition == at) added = c.get();
    }
    Project().Clips.DeselectAllClips();
    added->bSelected = true;
    return added;
  }

  fs::path scratch;
  std::string wav;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
  TDProjectControl control{dialog.GetProject()};
};

TEST_F(MouseGestureTest, ADragIsOneStepAndACopyingDragMakesSelectedCopies) {
  TDClip* clip = Place(0, 1000);
  int const points = dialog.GetUndoPointCount();
  int const restarts = engine.restarts;
  control.BeginDrag(50, 40);
  for (int x = 60; x <= 150; x += 10) control.DragClip(x, 140, false);  // a track down, 2 s on
  EXPECT_EQ(engine.restarts, restarts);  // nothing rebuilt while the button is down
  dialog.EvClipsDragEnd(true);
  EXPECT_EQ(clip->iPosition, 3000);
  EXPECT_EQ(clip->iTrackIndex, 1);
  EXPECT_EQ(dialog.GetUndoPointCount(), points + 1);
  EXPECT_EQ(dialog.GetUndoPointName(), "Clip Moved");
  EXPECT_EQ(engine.restarts, restarts + 1);
  dialog.EvClipsDragEnd(false);  // a click without a move is no step
  EXPECT_EQ(dialog.GetUndoPointCount(), points + 1);

  clip->uTakeGroupId = 7;  // a take's copy is a plain clip
  clip->bLocked = true;
  control.BeginDrag(150, 140);
  EXPECT_EQ(control.DragClip(400, 240, false, true), TDProjectControl::TDDragResult::CopyPending);
  ASSERT_EQ(dialog.EvClipsDragCopy(control.GetDragTimeOffset(), control.GetDragRowOffset()), 1);
  EXPECT_EQ(Project().Clips.GetCount(), 2);
  TDClip* copy = Project().Clips.GetSelectedClip();
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, clip);
  EXPECT_NE(copy->uClipId, clip->uClipId);
  EXPECT_EQ(copy->iPosition, 8000);
  EXPECT_EQ(copy->iTrackIndex, 2);
  EXPECT_EQ(copy->uTakeGroupId, 0u);
  EXPECT_FALSE(copy->bLocked);
  EXPECT_FALSE(clip->bSelected);
  EXPECT_EQ(dialog.GetUndoPointName(), "Clip Pasted");
}

TEST_F(MouseGestureTest, ATrimCommitsAtTheReleaseAndALockedClipKeepsItsLength) {
  TDClip* clip = Place(0, 2000);  // 2000..4000
  ASSERT_TRUE(control.TrimOrExpandClip(175, 50, *clip, false, false));  // end to 3500
  EXPECT_EQ(clip->GetEnd(), 2000);  // pending only
  dialog.EvClipEndTrimOrExpand(clip->uClipId, false);
  EXPECT_EQ(clip->GetEnd(), 1500);
  EXPECT_EQ(dialog.GetUndoPointName(), "Clip Trimmed or Expanded");
  ASSERT_TRUE(control.TrimOrExpandClip(90, 50, *clip, true, false));  // start to 1800
  dialog.EvClipEndTrimOrExpand(clip->uClipId, true);
  EXPECT_EQ(clip->iPosition, 1800);
  EXPECT_EQ(clip->GetEndTime(), 3500);

  // Locked after the drag began: the release drops what was pending.
  ASSERT_TRUE(control.TrimOrExpandClip(250, 50, *clip, false, false));
  clip->bLocked = true;
  int const points = dialog.GetUndoPointCount();
  dialog.EvClipEndTrimOrExpand(clip->uClipId, false);
  EXPECT_EQ(clip->GetEndTime(), 3500);
  EXPECT_EQ(clip->iPendingTrimEnd, 0);
  EXPECT_EQ(dialog.GetUndoPointCount(), points);
  EXPECT_FALSE(view.infoBar.empty());
}

TEST_F(MouseGestureTest, SpacePlaysFromTheCursorOrStopsAndSaysWhenNoDeviceOpens) {
  engine.playing = false;
  dialog.Command(CM_PLAY_STOP);
  EXPECT_EQ(engine.plays, 0);  // nothing to play in an empty project
  Place(0, 1000);              // 1000..3000
  Project().WorkRegion.Clear();
  dialog.SetCursorPosition(1500);
  dialog.Command(CM_PLAY_STOP);
  EXPECT_EQ(engine.playedFrom, 1500);
  EXPECT_TRUE(engine.playing);
  int const stops = engine.stops;
  dialog.Command(CM_PLAY_STOP);
  EXPECT_EQ(engine.stops, stops + 1);
  // At the end of the clips a play starts the song again.
  engine.playing = false;
  dialog.SetCursorPosition(2998);
  dialog.CmPlay();
  EXPECT_EQ(engine.playedFrom, 0);
  // A loop behind the last clip goes; a start at a loop's end goes to its start.
  engine.playing = false;
  Project().WorkRegion.Set(5000, 8000);
  dialog.CmPlay();
  EXPECT_TRUE(Project().WorkRegion.IsEmpty());
  engine.playing = false;
  Project().WorkRegion.Set(1200, 2000);
  dialog.SetCursorPosition(1950);
  dialog.CmPlay();
  EXPECT_EQ(engine.playedFrom, 1200);
  // The metronome clicks over this play, in frames at the project's rate.
  int const rate = Project().PreferSampleRate.GetPreferredSampleRate();
  EXPECT_EQ(Project().Metronome.GetMetronomeBoundaryStart(), LSoundTimeToFrames(1200, rate));
  EXPECT_EQ(Project().Metronome.GetMetronomeBoundaryEnd(), LSoundTimeToFrames(3000, rate));
  // While recording the key does nothing.
  engine.recording = true;
  int const plays = engine.plays;
  dialog.Command(CM_PLAY_STOP);
  EXPECT_EQ(engine.plays, plays);
  engine.recording = false;
  engine.deviceOpens = false;
  engine.playing = false;
  dialog.Command(CM_PLAY_STOP);
  ASSERT_FALSE(view.alerts.empty());
  EXPECT_EQ(view.alerts.back().text, "Cannot open sound device for playing.");
}

}  // namespace
