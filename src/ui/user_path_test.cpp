// A user's first session, end to end through the window: two files dropped in,
// the second moved to another track, the first split and faded, a second of
// playing through a sound device (a JACK server of the test's own), and an export
// through the export form. What was played and what was exported are checked
// against the project the user built.
#include <QApplication>
#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <numbers>

#include "project/audio_cut_tank.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/project_sound_opener.h"
#include "shell/sound_engine_state.h"
#include "shell/user_settings.h"
#include "sound/device/testing_jack.h"
#include "sound/wave_file.h"
#include "ui/export_options_dialog.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"
#include "ui/time_ruler.h"
#include "ui/track_area.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 44100;

float ToneA(int f) { return 0.5f * static_cast<float>(std::sin(2 * std::numbers::pi * 440.0 * f / kRate)); }
float ToneB(int f) { return 0.3f * static_cast<float>(std::sin(2 * std::numbers::pi * 660.0 * f / kRate)); }

double Rms(std::vector<float> const& stereo, int from, int to) {
  double sum = 0;
  for (int f = from; f < to; ++f) sum += double(stereo[2 * std::size_t(f)]) * stereo[2 * std::size_t(f)];
  return std::sqrt(sum / std::max(1, to - from));
}

class UserPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.IsUp()) << "no JACK server: is jackd (Debian's jackd2) installed?";
    scratch = std::string(TANDREL_BINARY_DIR) + "/ui-test-scratch/user-path";
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile(scratch + "/settings.conf");
    LUserSettingSetString("Settings", "SaveDir", scratch.c_str());
    LAudioCutTank::Instance().Reset();
    ear = std::make_unique<LTestJackCapture>("tdear", 2, 20 * 48000);
    ASSERT_TRUE(ear->IsActive());
    int const device = FindPlayDevice("tdear (JACK)");
    ASSERT_GT(device, 0);
    engine.SetPlayDevice(LSoundPlayDeviceList::Get()->SettingFromIndex(device));
    opener.SetProject(&controller.GetProject());
    controller.SetPlayerNotify(&window);
    loop.SetTimerHandler([this](int id) { controller.OnTimer(id); });
    window.SetController(&controller);
    controller.InitDialog();
    window.resize(1300, 800);
    window.show();
    QApplication::processEvents();
  }
  void TearDown() override {
    transport.Stop();
    controller.SetPlayerNotify(nullptr);
    window.SetController(nullptr);
    LAudioCutTank::Instance().Reset();
  }

  std::string Tone(char const* name, int frames, float (*tone)(int)) {
    std::string const path = scratch + "/" + name;
    LSoundSink sink = LWaveFile::OpenSinkPCM(path, kRate, 1, 16);
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (int f = 0; f < frames; ++f) v[std::size_t(f)] = tone(f);
    sink->Write(v.data(), frames);
    sink.Close();
    return path;
  }

  std::string scratch;
  LTestJackServer server{48000, 1024};
  std::unique_ptr<LTestJackCapture> ear;
  TDQtMainWindow window;
  TDQtMainLoop loop;
  TDProjectSoundOpener opener;
  TDEngine transport{opener};
  TDSoundEngineState engine{transport};
  MainDialog controller{window, loop, engine};
};

TEST_F(UserPathTest, DropMoveSplitFadePlayAndExport) {
  std::string const a = Tone("a.wav", 2 * kRate, ToneA);
  std::string const b = Tone("b.wav", kRate, ToneB);

  // Two files dropped onto the window land one after the other on track 1.
  QMimeData dropped;
  dropped.setUrls({QUrl::fromLocalFile(QString::fromStdString(a)), QUrl::fromLocalFile(QString::fromStdString(b))});
  // Qt takes a drop only where the drag entered first.
  QDragEnterEvent enter(QPoint(500, 300), Qt::CopyAction, &dropped, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(&window, &enter);
  ASSERT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(500, 300), Qt::CopyAction, &dropped, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(&window, &drop);
  auto const& clips = controller.GetProject().Clips.GetClips();
  ASSERT_EQ(clips.size(), 2u);
  TDClip* first = clips[0].get();
  TDClip* second = clips[1].get();
  EXPECT_EQ(first->iPosition, 0);
  EXPECT_EQ(second->iPosition, 2000);

  window.GetTimeLine().SetViewRegion(0, 10000);
  QApplication::processEvents();
  TDTrackArea* area = window.TrackArea();
  TDPixelSoundTimeMapper const map = area->Mapper();
  auto x = [&](LSoundTime t) { return map.MapSoundTimeToPixel(t); };
  LSoundTime const slack = 2 * map.GetMSPerPixel();

  // The second clip, dragged by its middle, goes to track 2 at 5 s.
  QRect const r = area->ClipRect(*second);
  QPoint const grab(r.center().x(), r.top() + 30);
  QPoint const to = grab + QPoint(x(5000) - x(2000), TDTrackPixelMapping::GetTrackBodyHeight());
  QTest::mousePress(area, Qt::LeftButton, Qt::NoModifier, grab);
  for (int step = 1; step <= 4; ++step) QTest::mouseMove(area, grab + (to - grab) * step / 4);
  QTest::mouseRelease(area, Qt::LeftButton, Qt::NoModifier, to);
  ASSERT_EQ(second->iTrackIndex, 1);
  ASSERT_NEAR(second->iPosition, 5000, slack);
  // Where it landed, to the pixel; the export below is checked against that.
  LSoundTime const secondAt = second->iPosition;

  // The first clip: the cursor set on the ruler at 1 s, the clip clicked, S.
  QTest::mouseClick(window.Ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(x(1000), 10));
  LSoundTime const cut = controller.GetCursorPosition();
  ASSERT_NEAR(cut, 1000, slack);
  QRect const f = area->ClipRect(*first);
  QTest::mouseClick(area, Qt::LeftButton, Qt::NoModifier, QPoint(x(300), f.top() + 40));
  ASSERT_TRUE(first->bSelected);
  window.CommandAction(CM_CLIP_SPLIT)->trigger();
  ASSERT_EQ(controller.GetProject().Clips.GetNumClipsOnTrack(0), 2);
  // Its end fades from the middle: the cursor at half its length, Fade Out.
  TDClip* left = nullptr;
  for (auto const& c : clips) {
    if (c->iTrackIndex == 0 && c->iPosition == 0) left = c.get();
  }
  ASSERT_NE(left, nullptr);
  controller.GetProject().Clips.DeselectAllClips();
  QTest::mouseClick(area, Qt::LeftButton, Qt::NoModifier, QPoint(x(200), f.top() + 40));
  ASSERT_TRUE(left->bSelected);
  QTest::mouseClick(window.Ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(x(cut / 2), 10));
  LSoundTime const fadeFrom = controller.GetCursorPosition();
  window.CommandAction(CM_CLIP_FADE_OUT)->trigger();
  EXPECT_EQ(controller.GetUndoPointName(), "Fade out");

  // A second of playing from the start, through the device.
  QTest::mouseClick(window.Ruler(), Qt::LeftButton, Qt::NoModifier, QPoint(x(0), 10));
  window.CommandAction(CM_PLAY_STOP)->trigger();
  ASSERT_TRUE(transport.IsPlaying());
  QTest::qWait(1200);
  EXPECT_GT(area->PlayPosition(), 300) << "the play cursor did not follow";
  window.CommandAction(CM_PLAY_STOP)->trigger();
  EXPECT_FALSE(transport.IsPlaying());
  int const heardAtStop = ear->GetFilled();
  QTest::qWait(300);
  std::vector<float> const heard = ear->Frames();
  // The tone arrived at its level (0.5 peak: RMS 0.35) at the device's rate...
  std::size_t start = 0;
  while (start < heard.size() && std::fabs(heard[start]) < 1e-3f) ++start;
  int const first48 = static_cast<int>(start / 2);
  ASSERT_LT(first48 + 24000, heardAtStop) << "less than half a second was heard";
  EXPECT_NEAR(Rms(heard, first48 + 2400, first48 + 19200), 0.354, 0.02);
  // ...and a stop is quiet at once: nothing after the next two periods.
  int const quietFrom = std::min<int>(heardAtStop + 2 * 1024, ear->GetFilled());
  EXPECT_LT(Rms(heard, quietFrom, ear->GetFilled()), 1e-4);

  // Export through the form: the path typed, Export pressed.
  std::string const out = scratch + "/first mix.wav";
  QTimer::singleShot(0, [&] {
    auto* form = qobject_cast<TDExportOptionsDlg*>(QApplication::activeModalWidget());
    ASSERT_NE(form, nullptr);
    form->PathEdit()->setText(QString::fromStdString(out));
    form->accept();
  });
  window.CommandAction(CM_PROJECT_EXPORT)->trigger();
  LSoundSource mix = LWaveFile::OpenSource(out);
  ASSERT_TRUE(mix.IsGood()) << "no export at " << out;
  int const end = static_cast<int>(LSoundTimeToFrames(secondAt + 1000, kRate));
  ASSERT_NEAR(mix->GetEndSample(), end, 1);
  std::vector<float> all(2 * std::size_t(mix->GetEndSample()));
  mix->Read(all.data(), mix->GetEndSample());
  int const cutF = static_cast<int>(LSoundTimeToFrames(cut, kRate));
  int const fadeF = static_cast<int>(LSoundTimeToFrames(fadeFrom, kRate));
  int const bF = static_cast<int>(LSoundTimeToFrames(secondAt, kRate));
  constexpr float kLsb = 2.0f / 32768;
  // Before the fade, and the split's right half: tone A as it was in the file.
  for (int i = 0; i < fadeF; ++i) ASSERT_NEAR(all[2 * std::size_t(i)], ToneA(i), kLsb) << i;
  for (int i = cutF; i < 2 * kRate; ++i) ASSERT_NEAR(all[2 * std::size_t(i) + 1], ToneA(i), kLsb) << i;
  // The fade takes the level down to nothing at the cut.
  EXPECT_GT(Rms(all, fadeF, fadeF + 2205), 0.25);
  EXPECT_LT(Rms(all, cutF - 441, cutF), 0.02);
  EXPECT_GT(Rms(all, fadeF, fadeF + 2205), 3 * Rms(all, cutF - 4410, cutF - 2205));
  // Silence until the moved clip, then tone B.
  EXPECT_EQ(Rms(all, 2 * kRate, bF), 0.0);
  for (int i = bF; i < end; ++i) ASSERT_NEAR(all[2 * std::size_t(i)], ToneB(i - bF), kLsb) << i;
}

}  // namespace
