// The main window over the real controller, drawn off screen.
#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QSlider>
#include <QTest>
#include <QToolButton>
#include <cstdlib>
#include <gtest/gtest.h>

#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"
#include "ui/track_control.h"

namespace {

class MainWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = std::string(TANDREL_BINARY_DIR) + "/ui-test-scratch/" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile(scratch + "/settings.conf");
    std::remove((scratch + "/settings.conf").c_str());
    loop.SetTimerHandler([this](int id) { controller.OnTimer(id); });
    window.SetController(&controller);
    controller.InitDialog();
  }
  void TearDown() override { window.SetController(nullptr); }

  std::string scratch;
  TDQtMainWindow window;
  TDQtMainLoop loop;
  TDIdleEngine engine;
  MainDialog controller{window, loop, engine};
};

TEST_F(MainWindowTest, ShowsTheDefaultProjectsTwelveTracks) {
  window.show();
  ASSERT_EQ(window.TrackControlCount(), 12);
  EXPECT_EQ(window.TrackControlAt(0)->NameEdit()->text(), QStringLiteral("Untitled Track"));
  EXPECT_EQ(window.TrackControlAt(11)->findChild<QLineEdit*>()->text(), QStringLiteral("Untitled Track"));
  if (const char* shot = std::getenv("TANDREL_SCREENSHOT")) window.grab().save(QString::fromUtf8(shot));
}

TEST_F(MainWindowTest, MenuCommandsReachTheProjectAndTheRowsFollow) {
  window.CommandAction(CM_TRACK_ADD)->trigger();
  EXPECT_EQ(controller.GetProject().Tracks.GetTrackCount(), 13);
  EXPECT_EQ(window.TrackControlCount(), 13);

  // Deleting asks first; with the question turned off it goes straight through.
  LUserSettingSet("Settings", "bWarnTrackDelete", false);
  window.CommandAction(CM_TRACK_DELETE)->trigger();
  EXPECT_EQ(window.TrackControlCount(), 12);
  EXPECT_EQ(controller.GetUndoPointName(), "Delete Track");
}

TEST_F(MainWindowTest, TrackRowControlsDriveTheController) {
  TDTrackControl* row = window.TrackControlAt(2);
  QTest::mouseClick(row->MuteButton(), Qt::LeftButton);
  EXPECT_TRUE(controller.GetProject().Tracks.GetTrack(2)->bMute);
  EXPECT_TRUE(row->MuteButton()->isChecked());

  // Solo on another track silences this one's neighbours and shows on its row.
  QTest::mouseClick(window.TrackControlAt(3)->SoloButton(), Qt::LeftButton);
  EXPECT_TRUE(controller.GetProject().Tracks.GetTrack(3)->bSolo);
  EXPECT_TRUE(controller.GetProject().Tracks.IsTrackSilent(4));

  row->VolumeSlider()->setValue(-6);
  EXPECT_FLOAT_EQ(controller.GetProject().Tracks.GetTrack(2)->PannedVolume.fCentre, -6.0f);
  EXPECT_TRUE(loop.IsTimerActive(MainDialog::TIMER_VOLUME_UNDO));

  row->PanSlider()->setValue(0);  // all the way left
  EXPECT_DOUBLE_EQ(controller.GetProject().Tracks.GetTrack(2)->PannedVolume.dPan, 1.0);

  row->NameEdit()->setText(QStringLiteral("Lead Vocal"));
  emit row->NameEdit()->editingFinished();
  EXPECT_EQ(controller.GetProject().Tracks.GetTrack(2)->GetName(), "Lead Vocal");
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
