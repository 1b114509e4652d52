// The lanes drawn off screen over the real controller: clips appear where the
// project puts them, with their outlines, and the mouse edits them.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QDir>
#include <QImage>
#include <QTest>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "project/audio_cut_tank.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"
#include "ui/settings_dialog.h"
#include "ui/testing_ui.h"
#include "ui/time_ruler.h"
#include "ui/track_area.h"

namespace fs = std::filesystem;

namespace {

class TrackAreaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = std::string(TANDREL_BINARY_DIR) + "/ui-test-scratch/" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile(scratch + "/settings.conf");
    LAudioCutTank::Instance().Reset();
    loop.SetTimerHandler([this](int id) { controller.OnTimer(id); });
    window.SetController(&controller);
    controller.InitDialog();
    // Four seconds of a loud tone at 8 kHz, and a quiet one.
    loud = Tone("loud.wav", 0.9f);
    quiet = Tone("quiet.wav", 0.2f);
    window.resize(1300, 800);
    window.show();
    QApplication::processEvents();
  }
  void TearDown() override {
    window.SetController(nullptr);
    LAudioCutTank::Instance().Reset();
  }

  std::string Tone(char const* name, float level) {
    std::string const path = scratch + "/" + name;
    LSoundSink sink = LWaveFile::OpenSinkPCM(path, 8000, 1, 16);
    std::vector<float> tone(32000);
    for (int i = 0; i < 32000; ++i) tone[static_cast<std::size_t>(i)] = level * std::sin(i * 0.3f);
    sink->Write(tone.data(), 32000);
    sink.Close();
    return path;
  }

  TDClip* Place(std::string const& path, int track, LSoundTime at) {
    controller.GetProject().Tracks.SetCurrentTrackIndex(track);
    controller.SetCursorPosition(at);
    EXPECT_TRUE(controller.AddClip(path));
    for (auto const& c : controller.GetProject().Clips.GetClips()) {
      if (c->iTrackIndex == track && c->iPosition == at) return c.get();
    }
    ADD_FAILURE() << "no clip at " << at;
    return nullptr;
  }

  // How many pixels of `image` inside `r` have exactly colour `c`.
  static int Count(QImage const& image, QRect r, QColor c) {
    int n = 0;
    r = r.intersected(image.rect());
    QRgb const want = c.rgb();
    for (int y = r.top(); y <= r.bottom(); ++y) {
      for (int x = r.left(); x <= r.right(); ++x) n += qRgb(qRed(image.pixel(x, y)), qGreen(image.pixel(x, y)), qBlue(image.pixel(x, y))) == want ? 1 : 0;
    }
    return n;
  }

  std::string scratch, loud, quiet;
  TDModalDismisser dialogs;
  TDQtMainWindow window;
  TDQtMainLoop loop;
  TDIdleEngine engine;
  MainDialog controller{window, loop, engine};
};

TEST_F(TrackAreaTest, ClipsAreDrawnWithTheirOutlinesWhereTheProjectPutsThem) {
  TDClip* a = Place(loud, 0, 1000);
  TDClip* b = Place(quiet, 1, 6000);
  TDClip* c = Place(loud, 2, 12000);
  window.GetTimeLine().SetViewRegion(0, 20000);
  TDTrackArea* area = window.TrackArea();
  ASSERT_NE(area, nullptr);
  QApplication::processEvents();
  QImage const shot = area->grab().toImage();
  ASSERT_FALSE(shot.isNull());

  QColor const trackColour(TDTrack::kDefaultColour.uRed >> 8, TDTrack::kDefaultColour.uGreen >> 8,
                           TDTrack::kDefaultColour.uBlue >> 8);
  QColor const wave = trackColour.darker(130);
  QColor const background = area->palette().color(QPalette::Base).darker(104);
  for (TDClip* clip : {a, b, c}) {
    QRect const r = area->ClipRect(*clip);
    EXPECT_GT(r.width(), 100);
    // Below the title strip: the outline fills columns all along the clip.
    QRect const body = r.adjusted(2, 16, -2, -2);
    int const wavePixels = Count(shot, body, wave);
    EXPECT_GT(wavePixels, body.width() * 4) << clip->iPosition;
    // The loud tone reaches near the clip's edges, the quiet one stays near the middle.
    int const nearTop = Count(shot, QRect(body.left(), body.top(), body.width(), body.height() / 5), wave);
    if (clip == b) {
      EXPECT_EQ(nearTop, 0);
    } else {
      EXPECT_GT(nearTop, body.width() / 2);
    }
  }
  // Each clip's volume line runs along it at unity, in its own orange.
  for (TDClip* clip : {a, b, c}) {
    QRect const r = area->ClipRect(*clip);
    int orange = 0;
    for (int y = r.top() + 14; y <= r.bottom(); ++y) {
      for (int x = r.left() + 2; x < r.right() - 2; ++x) {
        QColor const p = shot.pixelColor(x, y);
        orange += p.red() > 180 && p.green() > 100 && p.green() < 190 && p.blue() < 90 ? 1 : 0;
      }
    }
    EXPECT_GT(orange, r.width() - 10) << clip->iPosition;
  }
  // Between and after the clips the lanes are bare.
  QRect const gap(area->ClipRect(*a).right() + 3, area->ClipRect(*a).top(), 40, 60);
  EXPECT_EQ(Count(shot, gap, background), gap.width() * gap.height());
  EXPECT_EQ(Count(shot, QRect(area->width() - 60, 0, 50, 300), wave), 0);

  // The whole window as a picture for whoever looks at the build.
  QDir().mkpath(QStringLiteral(TANDREL_BINARY_DIR "/screenshots"));
  EXPECT_TRUE(window.grab().save(QStringLiteral(TANDREL_BINARY_DIR "/screenshots/three-tracks.png")));
}

TEST_F(TrackAreaTest, TheMouseMovesTrimsAndSelectsAndEachGestureIsOneStep) {
  TDClip* first = Place(loud, 0, 1000);
  TDClip* second = Place(quiet, 0, 6000);
  controller.GetProject().Clips.DeselectAllClips();
  window.GetTimeLine().SetViewRegion(0, 20000);
  TDTrackArea* area = window.TrackArea();
  QApplication::processEvents();
  TDPixelSoundTimeMapper const map = area->Mapper();
  auto x = [&](LSoundTime t) { return map.MapSoundTimeToPixel(t); };

  // Drag the second clip by its middle to track 2 (index 1) at 5 s.
  QRect const r = area->ClipRect(*second);
  QPoint const grab(r.center().x(), r.top() + 30);
  QTest::mousePress(area, Qt::LeftButton, Qt::NoModifier, grab);
  EXPECT_TRUE(second->bSelected);
  int const dx = x(5000) - x(6000);
  int const dy = TDTrackPixelMapping::GetTrackBodyHeight();
  for (int step = 1; step <= 4; ++step) {
    QTest::mouseMove(area, grab + QPoint(dx * step / 4, dy * step / 4));
  }
  int const points = controller.GetUndoPointCount();
  QTest::mouseRelease(area, Qt::LeftButton, Qt::NoModifier, grab + QPoint(dx, dy));
  EXPECT_EQ(second->iTrackIndex, 1);
  EXPECT_NEAR(second->iPosition, 5000, map.GetMSPerPixel());
  EXPECT_EQ(controller.GetUndoPointCount(), points + 1);
  EXPECT_EQ(controller.GetUndoPointName(), "Clip Moved");

  // Trim the first clip's right end in by a second.
  QRect const f = area->ClipRect(*first);
  QPoint const edge(x(first->GetEndTime()), f.top() + 40);
  QTest::mousePress(area, Qt::LeftButton, Qt::NoModifier, edge);
  QTest::mouseMove(area, edge - QPoint(x(1000) - x(0), 0));
  QTest::mouseRelease(area, Qt::LeftButton, Qt::NoModifier, edge - QPoint(x(1000) - x(0), 0));
  EXPECT_NEAR(first->GetEndTime(), 4000, 2 * map.GetMSPerPixel());  // four seconds long before
  EXPECT_EQ(controller.GetUndoPointName(), "Clip Trimmed or Expanded");

  // A click on empty lane sets the cursor and drops the selection; a click on the
  // ruler sets the cursor too, and split cuts the clip selected under it.
  QTest::mouseClick(area, Qt::LeftButton, Qt::NoModifier, QPoint(x(4600), f.top() + 40));
  EXPECT_NEAR(controller.GetCursorPosition(), 4600, map.GetMSPerPixel());
  EXPECT_FALSE(first->bSelected);
  QTest::mouseClick(area, Qt::LeftButton, Qt::NoModifier, QPoint(x(2500), f.top() + 40));
  EXPECT_TRUE(first->bSelected);
  QTest::mouseClick(window.Ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(x(2500), 10));
  EXPECT_NEAR(controller.GetCursorPosition(), 2500, map.GetMSPerPixel());
  window.CommandAction(CM_CLIP_SPLIT)->trigger();
  EXPECT_EQ(controller.GetProject().Clips.GetNumClipsOnTrack(0), 2);
  EXPECT_TRUE(dialogs.seen.empty()) << dialogs.seen.front();

  // A fade-out drawn by the clip's last point: grabbed at its handle and pulled
  // to the bottom, it silences the clip's end.
  TDClip* right = nullptr;
  for (auto const& c : controller.GetProject().Clips.GetClips()) {
    if (c->iTrackIndex == 0 && c.get() != first) right = c.get();
  }
  ASSERT_NE(right, nullptr);
  TDClipFadePoints const& line = right->GetFadeListByType(FadeTypeVolume);
  ASSERT_GE(line.size(), 2u);
  QRect const rr = area->ClipRect(*right);
  QPoint const handle(std::min(x(right->GetEndTime()), rr.right()) - 1,
                      TDProjectControl::MapAmplitudeToPixelY(line.back().dValue, 0, TDTrackPixelMapping::GetTrackBodyHeight()));
  QTest::mousePress(area, Qt::LeftButton, Qt::NoModifier, handle);
  QTest::mouseMove(area, QPoint(handle.x(), rr.bottom() + 5));
  QTest::mouseRelease(area, Qt::LeftButton, Qt::NoModifier, QPoint(handle.x(), rr.bottom() + 5));
  EXPECT_EQ(right->GetFadeListByType(FadeTypeVolume).back().dValue, -1.0);
  EXPECT_EQ(controller.GetUndoPointName(), "Fade Point Moved");

  // A drag across empty lanes of two tracks selects that region.
  QPoint const from(x(9000), 30);
  QTest::mousePress(area, Qt::LeftButton, Qt::NoModifier, from);
  QTest::mouseMove(area, QPoint(x(11000), dy + 30));
  QTest::mouseRelease(area, Qt::LeftButton, Qt::NoModifier, QPoint(x(11000), dy + 30));
  TDEditRegion const region = controller.GetProject().GetEditRegion();
  EXPECT_NEAR(region.iStart, 9000, map.GetMSPerPixel());
  EXPECT_NEAR(region.iEnd, 11000, map.GetMSPerPixel());
  EXPECT_EQ(region.iFirstTrack, 0);
  EXPECT_EQ(region.iLastTrack, 1);
}

TEST_F(TrackAreaTest, ZoomAndScrollMoveTheViewAndTheRulerLabelsTime) {
  window.GetTimeLine().SetViewRegion(0, 60000);
  TDTrackArea* area = window.TrackArea();
  QPoint const at(area->width() / 2, 20);
  LSoundTime const under = area->Mapper().MapPixelToSoundTime(at.x());
  QWheelEvent zoom(at, area->mapToGlobal(at), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::ControlModifier,
                   Qt::NoScrollPhase, false);
  QApplication::sendEvent(area, &zoom);
  EXPECT_EQ(window.GetTimeLine().GetViewEnd() - window.GetTimeLine().GetViewStart(), 48000);
  EXPECT_NEAR(area->Mapper().MapPixelToSoundTime(at.x()), under, 2 * area->Mapper().GetMSPerPixel());
  // The ruler stands exactly over the lanes, so a time is the same column in both.
  EXPECT_EQ(window.Ruler()->mapToGlobal(QPoint(0, 0)).x(), area->mapToGlobal(QPoint(0, 0)).x());
  EXPECT_EQ(window.Ruler()->width(), area->width());
  EXPECT_EQ(TDTimeRuler::TimeLabel(83500, 100), QStringLiteral("1:23.500"));
  EXPECT_EQ(TDTimeRuler::TimeLabel(83500, 5000), QStringLiteral("1:23"));
}

// The settings window shows what the controller holds and hands back what the
// user changed; the project's rate and metronome are edits of the project.
TEST_F(TrackAreaTest, SettingsShowAndChangeTheProjectAndThePreferences) {
  TDSettingsDialog dialog(controller, &window);
  EXPECT_EQ(dialog.RateBox()->currentData().toInt(), 44100);
  EXPECT_EQ(dialog.DeviceBox()->currentIndex(), 0);
  dialog.RateBox()->setCurrentIndex(dialog.RateBox()->findData(48000));
  dialog.MetronomeBox()->setChecked(true);
  dialog.MetronomeVolume()->setValue(-6);
  dialog.FolderEdit()->setText(QString::fromStdString(scratch));
  dialog.accept();
  EXPECT_EQ(dialog.result(), QDialog::Accepted);
  TDProject const& project = controller.GetProject();
  EXPECT_EQ(project.PreferSampleRate.GetPreferredSampleRate(), 48000);
  EXPECT_TRUE(project.Metronome.bMetronomeOn);
  EXPECT_EQ(project.Metronome.GetMetronomeVolume(), -6);
  EXPECT_TRUE(controller.IsProjectDirty());
  EXPECT_EQ(controller.GetSettings().szSaveFolder, scratch);
  EXPECT_TRUE(LUserSettingGet("Settings", "MetronomeMode", false));

  // A rate out of range is refused and changes nothing.
  MainDialog::TDSettings odd = controller.GetSettings();
  odd.iSampleRate = 1000;
  EXPECT_FALSE(controller.ApplySettings(odd));
  EXPECT_EQ(controller.GetProject().PreferSampleRate.GetPreferredSampleRate(), 48000);
  EXPECT_FALSE(dialogs.seen.empty());  // it said why
}

}  // namespace
