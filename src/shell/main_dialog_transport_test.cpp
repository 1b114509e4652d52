// The transport's commands against a scripted engine: where a play starts, where
// the cursor goes after each kind of stop, and how winding, scrubbing and the jog
// wheel run on the controller's timers.
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

constexpr char kCannotPlay[] = "Cannot open sound device for playing.";

class TransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("transport-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
    dialog.SetPlayerNotify(&window);
    engine.tellsStops = true;
    // One clip of two seconds from 1 s to 3 s.
    std::string const wav = (scratch / "two seconds.wav").string();
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 8000, 1, 16);
    std::vector<float> tone(16000);
    for (int i = 0; i < 16000; ++i) tone[static_cast<std::size_t>(i)] = 0.25f * std::sin(i * 0.05f);
    sink->Write(tone.data(), 16000);
    sink.Close();
    dialog.SetCursorPosition(1000);
    ASSERT_TRUE(dialog.AddClip(wav));
    dialog.SetCursorPosition(0);
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  TDProject& Project() { return dialog.GetProject(); }
  // The play has gone on to `ms`.
  void Heard(LSoundTime ms) { engine.position = ms; }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  FakePlayerView window;
  MainDialog dialog{view, loop, engine};
};

TEST_F(TransportTest, PlayStartsAtTheCursorAndWhilePlayingGoesBackOrToTheCursor) {
  dialog.SetCursorPosition(1500);
  dialog.Command(CM_PLAY);
  EXPECT_EQ(engine.playedFrom, 1500);
  EXPECT_TRUE(dialog.IsPlaying());
  EXPECT_EQ(dialog.GetPlayReturnPosition(), 1500);
  EXPECT_GT(view.transportApplies, 0);
  // Play again while playing: back to where this play began, without a stop.
  Heard(2200);
  dialog.Command(CM_PLAY);
  EXPECT_EQ(engine.plays, 1);
  EXPECT_EQ(engine.jumps, std::vector<LSoundTime>{1500});
  EXPECT_EQ(window.stops, 0);
  // From the cursor while playing: there, and that is where it returns to now.
  dialog.SetCursorPosition(2000);
  dialog.Command(CM_PLAY_FROM_CURSOR);
  EXPECT_EQ(engine.jumps, (std::vector<LSoundTime>{1500, 2000}));
  EXPECT_EQ(dialog.GetPlayReturnPosition(), 2000);
  // Space stops; the cursor waits where the sound was.
  Heard(2400);
  dialog.Command(CM_PLAY_STOP);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(dialog.GetCursorPosition(), 2400);
  EXPECT_EQ(window.stops, 1);

  // Recording: neither plays.
  engine.recording = true;
  dialog.Command(CM_PLAY);
  dialog.Command(CM_PLAY_FROM_CURSOR);
  EXPECT_EQ(engine.plays, 1);
  engine.recording = false;
  // A device that won't open says so, and nothing plays.
  engine.deviceOpens = false;
  dialog.Command(CM_PLAY_FROM_CURSOR);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(view.LastAlert(), kCannotPlay);
}

TEST_F(TransportTest, PauseStopAndStopAndReturnPutTheCursorWhereEachSays) {
  dialog.SetCursorPosition(1200);
  dialog.CmPlay();
  Heard(1800);
  dialog.Command(CM_PAUSE);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_TRUE(dialog.IsPaused());
  EXPECT_EQ(dialog.GetCursorPosition(), 1800);
  // The window was told of the stop, and the meters fell to silence first.
  EXPECT_EQ(window.stops, 1);
  ASSERT_FALSE(window.levels.empty());
  EXPECT_EQ(window.levels.back()[0].Get(), -127);
  // Pause again: on from there.
  dialog.Command(CM_PAUSE);
  EXPECT_EQ(engine.playedFrom, 1800);
  EXPECT_TRUE(dialog.IsPlaying());
  EXPECT_FALSE(dialog.IsPaused());
  // Stop: the cursor stays where the sound was.
  Heard(2100);
  dialog.Command(CM_STOP);
  EXPECT_EQ(dialog.GetCursorPosition(), 2100);
  EXPECT_FALSE(dialog.IsPaused());
  // Stop and return, stopped already: back to where the last play began.
  dialog.Command(CM_STOP_AND_RETURN);
  EXPECT_EQ(dialog.GetCursorPosition(), 1800);
  // And while playing.
  dialog.SetCursorPosition(1300);
  dialog.CmPlay();
  Heard(2500);
  dialog.Command(CM_STOP_AND_RETURN);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(dialog.GetCursorPosition(), 1300);
  // Pause with nothing playing and nothing paused does nothing; a stop ends a pause.
  int const plays = engine.plays;
  dialog.Command(CM_PAUSE);
  EXPECT_EQ(engine.plays, plays);
  dialog.CmPlay();
  dialog.Command(CM_PAUSE);
  dialog.Command(CM_STOP);
  EXPECT_FALSE(dialog.IsPaused());
  dialog.Command(CM_PAUSE);
  EXPECT_FALSE(dialog.IsPlaying());
  // A play that reaches the end by itself leaves the cursor at the engine's word.
  dialog.SetCursorPosition(1000);
  dialog.CmPlay();
  engine.EndPlay(3000);
  EXPECT_EQ(dialog.GetCursorPosition(), 3000);
  EXPECT_TRUE(view.alerts.empty());
}

TEST_F(TransportTest, ADeviceThatGoesAwayStopsThePlayWithAMessage) {
  dialog.SetCursorPosition(1200);
  dialog.CmPlay();
  dialog.Command(CM_PAUSE);
  dialog.Command(CM_PAUSE);
  Heard(1700);
  engine.LoseDevice();
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_FALSE(dialog.IsPaused());
  EXPECT_EQ(view.LastAlert(), kCannotPlay);
  EXPECT_EQ(dialog.GetCursorPosition(), 1700);
  EXPECT_EQ(window.stops, 2);
}

TEST_F(TransportTest, WindingJumpsByStepsAndGoesBackToWhatRanBefore) {
  // From a stop: the play starts at the cursor and moves on a step at once.
  dialog.SetCursorPosition(1200);
  dialog.Command(CM_FAST_FORWARD);
  EXPECT_EQ(engine.playedFrom, 1200);
  EXPECT_EQ(engine.jumps, std::vector<LSoundTime>{1700});
  EXPECT_EQ(dialog.GetWindDirection(), 1);
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_WIND));
  // A key's repeat changes nothing.
  dialog.Command(CM_FAST_FORWARD);
  EXPECT_EQ(engine.plays, 1);
  EXPECT_EQ(engine.jumps.size(), 1u);
  // Each tick a step on from what is heard.
  Heard(1800);
  dialog.OnTimer(MainDialog::TIMER_WIND);
  EXPECT_EQ(engine.jumps.back(), 2300);
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_WIND));
  // The key released: a moment later back to the stop, the cursor where it got to.
  dialog.Command(CM_WIND_END);
  ASSERT_TRUE(loop.IsArmed(MainDialog::TIMER_WIND_END));
  EXPECT_EQ(loop.armed[MainDialog::TIMER_WIND_END], MainDialog::kWindEndMs);
  EXPECT_EQ(dialog.GetWindDirection(), 1);
  dialog.OnTimer(MainDialog::TIMER_WIND_END);
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_WIND));
  EXPECT_EQ(dialog.GetCursorPosition(), 2300);

  // While playing: rewind steps back, and at the start it ends and the play goes on.
  engine.jumps.clear();
  dialog.SetCursorPosition(1000);
  dialog.CmPlay();
  Heard(2500);
  dialog.Command(CM_REWIND);
  EXPECT_EQ(dialog.GetWindDirection(), -1);
  for (LSoundTime at : {1900, 1300, 700}) {
    Heard(at);
    dialog.OnTimer(MainDialog::TIMER_WIND);
  }
  EXPECT_EQ(engine.jumps, (std::vector<LSoundTime>{1800, 1200, 600, 0}));
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_WIND));
  EXPECT_TRUE(dialog.IsPlaying());
  // Another way at once: the first ends, the other begins.
  dialog.Command(CM_REWIND);
  dialog.Command(CM_FAST_FORWARD);
  EXPECT_EQ(dialog.GetWindDirection(), 1);
  // Fast-forward goes no further than the clips; the play then ends by itself, and
  // so does the winding, the cursor at the end.
  Heard(2800);
  dialog.OnTimer(MainDialog::TIMER_WIND);
  EXPECT_EQ(engine.jumps.back(), 3000);
  engine.EndPlay(3000);
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_WIND));
  EXPECT_EQ(dialog.GetCursorPosition(), 3000);
  // A play ends the winding and plays on from where it is asked.
  dialog.SetCursorPosition(1500);
  dialog.Command(CM_FAST_FORWARD);
  dialog.Command(CM_PLAY_FROM_CURSOR);
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_TRUE(dialog.IsPlaying());
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_WIND));
  dialog.Command(CM_STOP);
  // Recording: both are ignored without a word.
  engine.recording = true;
  int const plays = engine.plays;
  dialog.Command(CM_REWIND);
  dialog.Command(CM_FAST_FORWARD);
  EXPECT_EQ(engine.plays, plays);
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_TRUE(view.alerts.empty());
}

TEST_F(TransportTest, ScrubbingFollowsTheSpotAndAScrubAKeyBeganEndsWithTheKey) {
  dialog.SetCursorPosition(1500);
  dialog.Command(CM_SCRUB_TOGGLE);
  EXPECT_TRUE(dialog.IsScrubbing());
  EXPECT_EQ(engine.scrubs, std::vector<LSoundTime>{1500});
  dialog.CmScrub(2000);
  EXPECT_EQ(dialog.GetCursorPosition(), 2000);
  EXPECT_EQ(engine.scrubs.back(), 2000);
  // Kept within the project.
  dialog.CmScrub(-50);
  EXPECT_EQ(engine.scrubs.back(), 0);
  dialog.CmScrub(2000);
  dialog.Command(CM_SCRUB_TOGGLE);
  EXPECT_FALSE(dialog.IsScrubbing());
  EXPECT_EQ(dialog.GetCursorPosition(), 2000);

  // A held key begins a scrub at the cursor and moves it at every tick.
  dialog.Command(CM_SCRUB_FAST_FORWARD_BEGIN);
  EXPECT_TRUE(dialog.IsScrubbing());
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_SCRUB_FAST_FORWARD));
  dialog.OnTimer(MainDialog::TIMER_SCRUB_FAST_FORWARD);
  dialog.OnTimer(MainDialog::TIMER_SCRUB_FAST_FORWARD);
  EXPECT_EQ(engine.scrubs.back(), 2000 + 2 * MainDialog::kScrubStepMs);
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_SCRUB_FAST_FORWARD));
  // Released: the motion stops, and a moment later the scrub it began.
  dialog.Command(CM_SCRUB_FAST_FORWARD_END);
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_SCRUB_FAST_FORWARD));
  EXPECT_TRUE(dialog.IsScrubbing());
  dialog.OnTimer(MainDialog::TIMER_WIND_END);
  EXPECT_FALSE(dialog.IsScrubbing());
  EXPECT_EQ(dialog.GetCursorPosition(), 2000 + 2 * MainDialog::kScrubStepMs);

  // A scrub turned on by hand outlives the keys.
  dialog.Command(CM_SCRUB_TOGGLE);
  dialog.Command(CM_SCRUB_REWIND_BEGIN);
  dialog.OnTimer(MainDialog::TIMER_SCRUB_REWIND);
  EXPECT_EQ(engine.scrubs.back(), 2000 + MainDialog::kScrubStepMs);
  dialog.Command(CM_SCRUB_REWIND_END);
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_WIND_END));
  EXPECT_TRUE(dialog.IsScrubbing());
  // A play ends the scrub and starts at its spot.
  dialog.Command(CM_PLAY);
  EXPECT_FALSE(dialog.IsScrubbing());
  EXPECT_EQ(engine.playedFrom, 2000 + MainDialog::kScrubStepMs);
  dialog.Command(CM_STOP);
  // Recording: no scrub.
  engine.recording = true;
  dialog.Command(CM_SCRUB_TOGGLE);
  dialog.Command(CM_SCRUB_FAST_FORWARD_BEGIN);
  EXPECT_FALSE(dialog.IsScrubbing());
}

TEST_F(TransportTest, AJogWheelWindsOrMovesTheScrubAndRestsAfterHalfASecond) {
  dialog.SetCursorPosition(1200);
  dialog.CmJogWheel(0);
  EXPECT_EQ(engine.plays, 0);
  dialog.CmJogWheel(3);
  EXPECT_EQ(dialog.GetWindDirection(), 1);
  ASSERT_TRUE(loop.IsArmed(MainDialog::TIMER_WIND_END));
  EXPECT_EQ(loop.armed[MainDialog::TIMER_WIND_END], MainDialog::kJogEndMs);
  // More turns keep it going; then the wheel rests.
  loop.KillTimer(MainDialog::TIMER_WIND_END);
  dialog.CmJogWheel(1);
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_WIND_END));
  EXPECT_EQ(engine.plays, 1);
  dialog.OnTimer(MainDialog::TIMER_WIND_END);
  EXPECT_EQ(dialog.GetWindDirection(), 0);
  EXPECT_FALSE(dialog.IsPlaying());
  // Backwards while scrubbing: the spot moves back until the wheel rests; the
  // scrub itself stays.
  dialog.SetCursorPosition(2000);
  dialog.Command(CM_SCRUB_TOGGLE);
  dialog.CmJogWheel(-2);
  EXPECT_TRUE(loop.IsArmed(MainDialog::TIMER_SCRUB_REWIND));
  dialog.OnTimer(MainDialog::TIMER_SCRUB_REWIND);
  EXPECT_EQ(engine.scrubs.back(), 2000 - MainDialog::kScrubStepMs);
  dialog.OnTimer(MainDialog::TIMER_WIND_END);
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_SCRUB_REWIND));
  EXPECT_TRUE(dialog.IsScrubbing());
}

TEST_F(TransportTest, LoopVolumeAndTheEndsOfTheTimeline) {
  // Looping: the playing mix is rebuilt at once; a stopped one waits for the play.
  bool const loop0 = dialog.IsLoopPlay();
  int const undoPoints = dialog.GetUndoPointCount();
  dialog.Command(CM_LOOP_PLAY_TOGGLE);
  EXPECT_NE(dialog.IsLoopPlay(), loop0);
  EXPECT_EQ(engine.restarts, 0);
  dialog.CmPlay();
  dialog.Command(CM_LOOP_PLAY_TOGGLE);
  EXPECT_EQ(dialog.IsLoopPlay(), loop0);
  EXPECT_EQ(engine.restarts, 1);
  EXPECT_EQ(dialog.GetUndoPointCount(), undoPoints) << "a setting, not an edit";

  // Start while playing plays on from 0; end while playing stops at the end.
  Heard(2200);
  dialog.Command(CM_GO_TO_START);
  EXPECT_EQ(engine.jumps.back(), 0);
  EXPECT_EQ(dialog.GetCursorPosition(), 0);
  EXPECT_TRUE(dialog.IsPlaying());
  dialog.Command(CM_GO_TO_END);
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(dialog.GetCursorPosition(), 3000);
  // Neither moves anything while recording.
  engine.recording = true;
  dialog.Command(CM_GO_TO_START);
  EXPECT_EQ(dialog.GetCursorPosition(), 3000);
  engine.recording = false;

  // The master volume: clamped, given to the engine, kept when the window closes
  // and given to the engine again by the next start.
  dialog.CmAdjustMasterVolume(-10);
  EXPECT_EQ(engine.volume, -10);
  dialog.CmAdjustMasterVolume(50);
  EXPECT_EQ(dialog.GetMasterVolume(), MainDialog::kMaxMasterVolume);
  EXPECT_EQ(engine.volume, MainDialog::kMaxMasterVolume);
  dialog.CmAdjustMasterVolume(-300);
  EXPECT_EQ(engine.volume, -127);
  dialog.CmAdjustMasterVolume(-7);
  view.answers.push_back({2, false});  // "Do Not Save"
  ASSERT_TRUE(dialog.CmCancel());
  FakeEngine nextEngine;
  MainDialog next{view, loop, nextEngine};
  next.InitDialog();
  EXPECT_EQ(next.GetMasterVolume(), -7);
  EXPECT_EQ(nextEngine.volume, -7);
}

}  // namespace
