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
#include "ui/level_meter.h"
#include "ui/navigator_strip.h"
#include "ui/time_ruler.h"
#include "ui/track_area.h"
#include "ui/track_control.h"
#include <QImage>
#include <QInputDialog>
#include <QLabel>
#include <QTimer>
#include <QToolBar>
#include "timeline/track_pixel_mapping.h"

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

TEST_F(MainWindowTest, TheTransportBarShowsWhereAndHowLoudAndTheViewMenuZooms) {
  window.resize(1200, 700);
  window.show();
  QApplication::processEvents();
  auto* bar = window.findChild<QToolBar*>(QStringLiteral("transportBar"));
  ASSERT_NE(bar, nullptr);
  EXPECT_TRUE(bar->actions().contains(window.CommandAction(CM_PLAY_STOP)));
  EXPECT_TRUE(bar->actions().contains(window.CommandAction(CM_PROJECT_EXPORT)));

  // A click on the ruler moves the cursor and the display: 2.5 s at 120 BPM in 4/4
  // is the second beat of bar 2.
  window.GetTimeLine().SetViewRegion(0, 10000);
  TDPixelSoundTimeMapper const map = window.TrackArea()->Mapper();
  QTest::mouseClick(window.Ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(map.MapSoundTimeToPixel(2500), 20));
  LSoundTime const at = controller.GetCursorPosition();
  ASSERT_NEAR(at, 2500, map.GetMSPerPixel());
  EXPECT_TRUE(window.PositionDisplay()->text().startsWith(TDTimeRuler::TimeLabel(at, 1)))
      << window.PositionDisplay()->text().toStdString();
  EXPECT_TRUE(window.PositionDisplay()->text().contains(QStringLiteral("2.2."))) << window.PositionDisplay()->text().toStdString();
  // While playing it follows the play position instead; a stop brings the cursor back.
  window.spntfPlay(0);
  EXPECT_EQ(window.CommandAction(CM_PLAY_STOP)->text(), QStringLiteral("&Stop"));
  window.spntfTime(61000, 0);
  EXPECT_TRUE(window.PositionDisplay()->text().startsWith(QStringLiteral("1:01.000")));
  LDBMultiChannel<LdB<signed char>> loud(2);
  loud[0] = LdB<signed char>(-1);
  loud[1] = LdB<signed char>(-20);
  // The tracks' levels come with the mix's tick; only track 3 sounds here.
  auto tracks = std::make_unique<TDTracksDB>();
  for (auto& t : tracks->Tracks) {
    t.SetChannels(2);
    t.SetAll(LdB<signed char>::Silence);
  }
  tracks->Tracks[2][0] = LdB<signed char>(-6);
  tracks->Tracks[2][1] = LdB<signed char>(-9);
  window.SetTrackLevelSource([&] { return tracks.get(); });
  window.spntfLevel(loud, 0);
  EXPECT_FLOAT_EQ(window.TrackControlAt(2)->Meter()->Shown(0), -6.0f);
  EXPECT_FLOAT_EQ(window.TrackControlAt(2)->Meter()->Shown(1), -9.0f);
  EXPECT_LE(window.TrackControlAt(1)->Meter()->Shown(0), TDLevelMeter::kFloorDB);
  EXPECT_FLOAT_EQ(window.MasterMeter()->Shown(0), -1.0f);
  EXPECT_FLOAT_EQ(window.MasterMeter()->Shown(1), -20.0f);
  QImage const lit = window.MasterMeter()->grab().toImage();
  int red = 0;
  for (int x = 0; x < lit.width(); ++x) red += lit.pixelColor(x, 3) == QColor(231, 76, 60) ? 1 : 0;
  EXPECT_GT(red, 0) << "a level near 0 dB shows red";
  window.spntfStop(0);
  EXPECT_EQ(window.CommandAction(CM_PLAY_STOP)->text(), QStringLiteral("&Play"));
  EXPECT_LE(window.MasterMeter()->Shown(0), TDLevelMeter::kFloorDB);
  EXPECT_LE(window.TrackControlAt(2)->Meter()->Shown(0), TDLevelMeter::kFloorDB);
  window.SetTrackLevelSource(nullptr);
  EXPECT_TRUE(window.PositionDisplay()->text().startsWith(TDTimeRuler::TimeLabel(at, 1)));

  // Loop playback and the master volume are the controller's; the bar follows it.
  bool const looping = controller.IsLoopPlay();
  window.CommandAction(CM_LOOP_PLAY_TOGGLE)->trigger();
  EXPECT_NE(controller.IsLoopPlay(), looping);
  EXPECT_EQ(window.CommandAction(CM_LOOP_PLAY_TOGGLE)->isChecked(), controller.IsLoopPlay());
  window.CommandAction(CM_PAUSE)->trigger();  // nothing plays: no pause to show
  EXPECT_EQ(window.CommandAction(CM_PAUSE)->isChecked(), controller.IsPaused());
  auto* volume = window.findChild<QSlider*>(QStringLiteral("masterVolume"));
  ASSERT_NE(volume, nullptr);
  volume->setValue(-9);
  EXPECT_EQ(controller.GetMasterVolume(), -9);
  controller.CmAdjustMasterVolume(3);
  EXPECT_EQ(volume->value(), 3);

  // The View menu: zoom in halves what the lanes show, about the cursor; taller
  // tracks make every row taller.
  auto action = [&](const char* name) { return window.findChild<QAction*>(QString::fromLatin1(name)); };
  window.GetTimeLine().SetViewRegion(0, 10000);  // the play had scrolled on to 1:01
  action("zoomIn")->trigger();
  EXPECT_EQ(window.GetTimeLine().GetViewEnd() - window.GetTimeLine().GetViewStart(), 5000);
  EXPECT_LE(window.GetTimeLine().GetViewStart(), at);
  EXPECT_GE(window.GetTimeLine().GetViewEnd(), at);
  action("zoomAll")->trigger();
  EXPECT_EQ(window.GetTimeLine().GetViewStart(), 0);
  EXPECT_EQ(window.GetTimeLine().GetViewEnd(), window.GetTimeLine().GetEnd());
  int const before = window.TrackControlAt(0)->height();
  action("tallerTracks")->trigger();
  EXPECT_GT(window.TrackControlAt(0)->height(), before);
  action("shorterTracks")->trigger();
  action("shorterTracks")->trigger();  // never below the standard height
  EXPECT_EQ(window.TrackControlAt(0)->height(), before);
  EXPECT_DOUBLE_EQ(TDTrackPixelMapping::dZoomFactorV, 1.0);

  // The navigator strip: a click centres the view there, keeping its width.
  window.GetTimeLine().SetViewRegion(0, 10000);
  TDNavigatorStrip* nav = window.Navigator();
  ASSERT_NE(nav, nullptr);
  QTest::mouseClick(nav, Qt::LeftButton, Qt::NoModifier, QPoint(nav->PixelOf(60000), 10));
  EXPECT_EQ(window.GetTimeLine().GetViewEnd() - window.GetTimeLine().GetViewStart(), 10000);
  EXPECT_NEAR((window.GetTimeLine().GetViewStart() + window.GetTimeLine().GetViewEnd()) / 2, 60000,
              2 * (nav->TimeOf(1) - nav->TimeOf(0)) + 1);
}

TEST_F(MainWindowTest, BookmarksAndTheLoopAreMadeOnTheRuler) {
  window.resize(1200, 700);
  window.show();
  window.GetTimeLine().SetViewRegion(0, 10000);
  QApplication::processEvents();
  TDTimeRuler* ruler = window.Ruler();
  TDPixelSoundTimeMapper const map = window.TrackArea()->Mapper();
  controller.SetCursorPosition(2000);
  window.CommandAction(CM_BOOKMARK_ADD)->trigger();
  ASSERT_EQ(controller.GetProject().GetBookmarks().size(), 1u);
  // The flag, grabbed and pulled to 6 s; the cursor stays where it was.
  QPoint const flag(map.MapSoundTimeToPixel(2000) + 2, 4);
  EXPECT_EQ(ruler->BookmarkAt(flag.x()), 2000);
  QTest::mousePress(ruler, Qt::LeftButton, Qt::NoModifier, flag);
  QTest::mouseMove(ruler, QPoint(map.MapSoundTimeToPixel(6000), 4));
  QTest::mouseRelease(ruler, Qt::LeftButton, Qt::NoModifier, QPoint(map.MapSoundTimeToPixel(6000), 4));
  ASSERT_EQ(controller.GetProject().GetBookmarks().size(), 1u);
  LSoundTime const moved = controller.GetProject().GetBookmarks().front().iPosition;
  EXPECT_NEAR(moved, 6000, map.GetMSPerPixel());
  EXPECT_EQ(controller.GetCursorPosition(), 2000);
  // A double click on it asks for a name.
  QTimer::singleShot(0, [] {
    auto* ask = qobject_cast<QInputDialog*>(QApplication::activeModalWidget());
    ASSERT_NE(ask, nullptr);
    ask->setTextValue(QStringLiteral("  Verse 2 "));
    ask->accept();
  });
  QTest::mouseDClick(ruler, Qt::LeftButton, Qt::NoModifier, QPoint(map.MapSoundTimeToPixel(moved) + 2, 4));
  EXPECT_EQ(controller.GetProject().GetBookmarks().front().GetName(), "Verse 2");
  // A drag along the ruler makes the loop; a click only moves the cursor.
  QPoint const from(map.MapSoundTimeToPixel(1000), 20), to(map.MapSoundTimeToPixel(3000), 20);
  QTest::mousePress(ruler, Qt::LeftButton, Qt::NoModifier, from);
  for (int step = 1; step <= 3; ++step) QTest::mouseMove(ruler, from + (to - from) * step / 3);
  QTest::mouseRelease(ruler, Qt::LeftButton, Qt::NoModifier, to);
  EXPECT_NEAR(controller.GetProject().WorkRegion.GetStart(), 1000, map.GetMSPerPixel());
  EXPECT_NEAR(controller.GetProject().WorkRegion.GetEnd(), 3000, map.GetMSPerPixel());
  QTest::mouseClick(ruler, Qt::LeftButton, Qt::NoModifier, QPoint(map.MapSoundTimeToPixel(2000), 20));
  EXPECT_FALSE(controller.GetProject().WorkRegion.IsEmpty());
  // Ctrl+Left / Ctrl+Right jump to it.
  window.CommandAction(CM_GOTO_NEXT_BOOKMARK)->trigger();
  EXPECT_EQ(controller.GetCursorPosition(), moved);
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
