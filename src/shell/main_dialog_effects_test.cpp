#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "effects/multi_effect_window.h"
#include "effects/table_effects.h"
#include "project/audio_cut_tank.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"

namespace fs = std::filesystem;

namespace {

class EffectCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("effects-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
    loop.armed.clear();  // the start's own timers are not what these tests watch
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  // The loop fires the effect timers that are armed, as the clock would once
  // 100 ms have passed; the recovery save's own timer is not watched here.
  void Elapse() {
    std::map<int, unsigned> due = loop.armed;
    loop.armed.clear();
    due.erase(MainDialog::TIMER_RECOVERY_SAVE_SOON);
    for (auto const& [id, ms] : due) {
      EXPECT_EQ(ms, MainDialog::kEffectChangeDelayMs) << id;
      dialog.OnTimer(id);
    }
  }

  TDTrack& Current() {
    TDProject& p = dialog.GetProject();
    return *p.Tracks.GetTrack(p.Tracks.GetCurrentTrackIndex());
  }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};

TEST_F(EffectCommandsTest, ABurstOfChangesMakesOneRestartAndOneUndoStep) {
  engine.playing = true;
  int const points = dialog.GetUndoPointCount();
  for (int i = 0; i < 3; ++i) dialog.EvEffectWindowMessage(LSPMessage::ParametersChanged, 0);
  EXPECT_TRUE(dialog.IsProjectDirty());
  EXPECT_EQ(engine.restarts, 0);  // not before the changes rest
  Elapse();
  EXPECT_EQ(engine.restarts, 1);
  EXPECT_EQ(dialog.GetUndoPointName(), "Effect Changed");
  EXPECT_EQ(dialog.GetUndoPointCount(), points + 1);

  // A second burst right after replaces the step rather than adding one.
  for (int i = 0; i < 3; ++i) dialog.EvEffectParametersChanged(false);
  Elapse();
  EXPECT_EQ(engine.restarts, 2);
  EXPECT_EQ(dialog.GetUndoPointCount(), points + 1);

  // After another kind of step, a change is a step of its own again.
  dialog.SetUndoPoint("Volume Change");
  dialog.EvEffectParametersChanged(true);
  EXPECT_EQ(engine.restarts, 3);  // at once
  EXPECT_FALSE(loop.IsArmed(MainDialog::TIMER_RESTART));
  Elapse();
  EXPECT_EQ(engine.restarts, 3);
  EXPECT_EQ(dialog.GetUndoPointCount(), points + 3);
  EXPECT_EQ(dialog.GetUndoPointName(), "Effect Changed");
}

TEST_F(EffectCommandsTest, AddingDeletingAndReorderingFromTheEditor) {
  engine.playing = true;
  ASSERT_TRUE(dialog.Command(CM_TRACK_LIVE_EFFECTS_ADD_HIGHPASS));
  ASSERT_EQ(Current().EffectChain.GetCount(), 1);
  EXPECT_EQ(Current().EffectChain.GetAt(0)->GetSoundProcessType(), LSPT_HighPass);
  EXPECT_EQ(static_cast<LSPHighPass*>(Current().EffectChain.GetAt(0))->GetFrequency(), 50);
  EXPECT_EQ(dialog.GetUndoPointName(), "Add Effect");
  EXPECT_EQ(engine.restarts, 1);
  dialog.CmTrackLiveEffectsAddAmplify();
  dialog.CmTrackLiveEffectsAddLowpass();
  EXPECT_EQ(Current().EffectChain.GetCount(), 3);

  // The editor removes an effect: a step without a restart, then the restart.
  struct Forward : LMultiEffectWindowNotify {
    MainDialog* dialog;
    void EffectMessage(int message, int argument) override { dialog->EvEffectWindowMessage(message, argument); }
    void Alert(std::string const&, std::string const&) override {}
  } forward;
  forward.dialog = &dialog;
  LMultiEffectWindow editor(Current().EffectChain, forward, "Tandrel");
  editor.SelectEffect(0);
  int const restarts = engine.restarts;
  editor.RemoveSelectedEffect();
  EXPECT_EQ(Current().EffectChain.GetCount(), 2);
  EXPECT_EQ(engine.restarts, restarts + 1);
  EXPECT_EQ(dialog.GetUndoPointName(), "Delete Effect");

  int const applies = view.stateApplies;
  editor.Reorder(1, 0);
  EXPECT_EQ(Current().EffectChain.GetAt(0)->GetSoundProcessType(), LSPT_LowPass);
  EXPECT_EQ(engine.restarts, restarts + 2);
  EXPECT_EQ(view.stateApplies, applies + 1);

  // Stopped, nothing restarts.
  engine.playing = false;
  dialog.EvEffectAdd(0);
  dialog.EvEffectListChanged();
  EXPECT_EQ(engine.restarts, restarts + 2);
}

TEST_F(EffectCommandsTest, NewDistortionsStartFromTheUsersSettings) {
  LUserSettingSetString("Settings", "DistortionDegree", "0.2");
  LUserSettingSetString("Settings", "DistortionLevel", "0.5");
  LUserSettingSet("Settings", "DistortionGain", 90);
  LSPDistortion d;
  EXPECT_NEAR(d.GetShown(0), 20.0, 1e-5);
  EXPECT_EQ(d.GetShown(1), -6);
  EXPECT_EQ(d.iGain, 90);

  EXPECT_EQ(MainDialog::GetEffectChainFolder(), std::string(std::getenv("HOME") ? std::getenv("HOME") : "") + "/Music");
  MainDialog::SetEffectChainFolder("/tmp/chains");
  EXPECT_EQ(MainDialog::GetEffectChainFolder(), "/tmp/chains");
}

}  // namespace
