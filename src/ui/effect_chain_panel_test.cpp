// The effect chain panel over the real controller, drawn off screen.
#include "ui/effect_chain_panel.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QListWidget>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>
#include <cstdlib>

#include "effects/table_effects.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"
#include "ui/track_control.h"

namespace {

class EffectChainPanelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = std::string(TANDREL_BINARY_DIR) + "/ui-test-scratch/" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile(scratch + "/settings.conf");
    loop.SetTimerHandler([this](int id) { controller.OnTimer(id); });
    window.SetController(&controller);
    controller.InitDialog();
  }
  void TearDown() override { window.SetController(nullptr); }

  LSoundProcessMulti& Chain(int track) { return controller.GetProject().Tracks.GetTrack(track)->EffectChain; }

  // Chooses an available effect by its name and presses Add.
  void Add(TDEffectChainPanel& panel, QString const& name) {
    QList<QTreeWidgetItem*> found = panel.AvailableTree()->findItems(name, Qt::MatchExactly | Qt::MatchRecursive);
    ASSERT_EQ(found.size(), 1);
    panel.AvailableTree()->setCurrentItem(found.front());
    QTest::mouseClick(panel.AddButton(), Qt::LeftButton);
  }

  std::string scratch;
  TDQtMainWindow window;
  TDQtMainLoop loop;
  TDIdleEngine engine;
  MainDialog controller{window, loop, engine};
};

TEST_F(EffectChainPanelTest, BuildsAChainFromTheRowAndEditsIt) {
  window.show();
  QTest::mouseClick(window.TrackControlAt(1)->EffectsButton(), Qt::LeftButton);
  auto panels = window.findChildren<TDEffectChainPanel*>();
  ASSERT_EQ(panels.size(), 1);
  TDEffectChainPanel& panel = *panels.front();
  // Only effects that play are offered.
  EXPECT_EQ(panel.AvailableTree()->topLevelItem(0)->text(0), QStringLiteral("Tandrel Effects"));
  EXPECT_EQ(panel.AvailableTree()->topLevelItem(0)->childCount(), 3);

  // The root adds nothing; Amplify and High Pass go to the end of track 2's chain.
  panel.AvailableTree()->setCurrentItem(panel.AvailableTree()->topLevelItem(0));
  QTest::mouseClick(panel.AddButton(), Qt::LeftButton);
  EXPECT_TRUE(Chain(1).IsEmpty());
  Add(panel, QStringLiteral("Amplify"));
  Add(panel, QStringLiteral("High Pass"));
  ASSERT_EQ(Chain(1).GetCount(), 2);
  EXPECT_EQ(controller.GetUndoPointName(), "Add Effect");
  ASSERT_EQ(panel.ChainList()->count(), 2);
  EXPECT_EQ(panel.ChainList()->item(1)->text(), QStringLiteral("High Pass"));
  EXPECT_TRUE(window.TrackControlAt(1)->EffectsButton()->isChecked());

  // The high pass is selected: its presets, then its frequency slider.
  ASSERT_EQ(panel.PresetBox()->count(), 3);
  EXPECT_EQ(panel.PresetBox()->itemText(0), QStringLiteral("--- Select Preset ---"));
  panel.PresetBox()->setCurrentIndex(1);
  emit panel.PresetBox()->activated(1);
  EXPECT_EQ(static_cast<LSPHighPass*>(Chain(1).GetAt(1))->GetFrequency(), 200);
  EXPECT_TRUE(loop.IsTimerActive(MainDialog::TIMER_EFFECT_UNDO));
  QSlider* frequency = panel.ParameterEditor()->findChild<QSlider*>();
  ASSERT_NE(frequency, nullptr);
  EXPECT_EQ(frequency->value(), 200);
  frequency->setValue(1000);
  EXPECT_EQ(static_cast<LSPHighPass*>(Chain(1).GetAt(1))->GetFrequency(), 1000);
  EXPECT_EQ(panel.PresetBox()->currentIndex(), 0);  // no preset has this frequency

  // Unticking a row bypasses its effect.
  panel.ChainList()->item(0)->setCheckState(Qt::Unchecked);
  EXPECT_TRUE(Chain(1).GetAt(0)->bBypass);

  if (const char* shot = std::getenv("TANDREL_EFFECTS_SCREENSHOT")) {
    QApplication::processEvents();  // new editor rows show once the loop runs
    panel.grab().save(QString::fromUtf8(shot));
  }

  // Removing the selected effect.
  panel.ChainList()->item(0)->setSelected(false);
  panel.ChainList()->item(1)->setSelected(true);
  QTest::mouseClick(panel.RemoveButton(), Qt::LeftButton);
  ASSERT_EQ(Chain(1).GetCount(), 1);
  EXPECT_EQ(Chain(1).GetAt(0)->GetSoundProcessType(), LSPT_Gain);
  EXPECT_EQ(panel.ChainList()->count(), 1);
  EXPECT_EQ(controller.GetUndoPointName(), "Delete Effect");
}

TEST_F(EffectChainPanelTest, TheTrackMenuAddsAndOpensAndAMoveInTheListReordersTheChain) {
  controller.CmTrackSelect(3);
  window.CommandAction(CM_TRACK_LIVE_EFFECTS_ADD_LOWPASS)->trigger();
  window.CommandAction(CM_TRACK_LIVE_EFFECTS_ADD_AMPLIFY)->trigger();
  ASSERT_EQ(Chain(3).GetCount(), 2);
  window.findChild<QAction*>(QStringLiteral("liveEffects"))->trigger();
  auto panels = window.findChildren<TDEffectChainPanel*>();
  ASSERT_EQ(panels.size(), 1);
  TDEffectChainPanel& panel = *panels.front();
  ASSERT_EQ(panel.ChainList()->count(), 2);
  // A menu command while the panel is open shows in it.
  window.CommandAction(CM_TRACK_LIVE_EFFECTS_ADD_HIGHPASS)->trigger();
  EXPECT_EQ(panel.ChainList()->count(), 3);

  // A drag of the last row to the top, as the list view reports it.
  QAbstractItemModel* model = panel.ChainList()->model();
  ASSERT_TRUE(model->moveRow(QModelIndex(), 2, QModelIndex(), 0));
  QApplication::processEvents();
  EXPECT_EQ(Chain(3).GetAt(0)->GetSoundProcessType(), LSPT_HighPass);
  EXPECT_EQ(Chain(3).GetAt(1)->GetSoundProcessType(), LSPT_LowPass);
  EXPECT_EQ(panel.ChainList()->item(0)->text(), QStringLiteral("High Pass"));
}

}  // namespace
