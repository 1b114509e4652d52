// Drawing the lanes of 64 tracks full of long clips, into an image the size of a
// large window's track area, as a repaint does. The goal is under 8 ms a frame,
// so that scrolling and playback cursors stay smooth.
//
//   build/bench/track_area_draw_bench
//
// Cases: the whole project in view (outlines from the .grf summaries), two
// seconds in view (outlines from the samples), each both redrawn in place (the
// outlines are kept, no audio is read) and scrolled a little every frame (every
// visible clip builds its outline again).
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <unistd.h>

#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "shell/engine_state.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"
#include "ui/main_window.h"
#include "ui/qt_main_loop.h"
#include "ui/track_area.h"

namespace {

constexpr int kTracks = 64;
constexpr int kWidth = 1600;
constexpr int kHeight = 900;

struct Scene {
  std::string folder;
  std::unique_ptr<TDQtMainWindow> window;
  std::unique_ptr<TDQtMainLoop> loop;
  TDIdleEngine engine;
  std::unique_ptr<MainDialog> controller;
  TDTrackArea* area = nullptr;

  Scene() {
    folder = (std::filesystem::temp_directory_path() / ("tandrel-draw-bench-" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(folder);
    setenv("TMPDIR", folder.c_str(), 1);
    LUserSettingsStore::Global().UseFile(folder + "/settings.conf");
    window = std::make_unique<TDQtMainWindow>();
    loop = std::make_unique<TDQtMainLoop>();
    controller = std::make_unique<MainDialog>(*window, *loop, engine);
    window->SetController(controller.get());
    controller->InitDialog();
    TDProject& project = controller->GetProject();
    while (project.Tracks.GetTrackCount() < kTracks) project.Tracks.AddTrack();

    // Five minutes of stereo music-like sound in one file, which every clip plays
    // a part of, four clips to a track.
    LCutListAudio list;
    {
      LSoundSink sink = list.OpenSink(44100, 2);
      std::vector<float> block(2 * 44100);
      for (int second = 0; second < 300; ++second) {
        for (int i = 0; i < 44100; ++i) {
          double const t = second + i / 44100.0;
          float const v = static_cast<float>(0.6 * std::sin(t * 2 * M_PI * 220) * (0.5 + 0.5 * std::sin(t * 1.7)));
          block[2 * i] = v;
          block[2 * i + 1] = 0.8f * v;
        }
        sink->Write(block.data(), 44100);
      }
    }
    for (int t = 0; t < kTracks; ++t) {
      for (int c = 0; c < 4; ++c) {
        auto clip = std::make_unique<TDClipAudio>(list);
        clip->TrimOutSide(0, 70000);  // 70 s each
        clip->iPosition = c * 75000 + t * 37;
        clip->szName = "Take " + std::to_string(c + 1);
        project.AddClip(std::move(clip), t, false);
      }
    }
    project.ResetEnd();
    window->resize(kWidth + 320, kHeight + 100);
    area = window->TrackArea();
    area->resize(kWidth, project.Tracks.GetTrackCount() * 98);
  }
  ~Scene() {
    window->SetController(nullptr);
    controller.reset();
    LAudioCutTank::Instance().Reset();
    std::filesystem::remove_all(folder);
  }
};

Scene& TheScene() {
  static Scene scene;
  return scene;
}

void Draw(benchmark::State& state, LSoundTime span, bool scroll) {
  Scene& s = TheScene();
  LTimeLine& line = s.window->GetTimeLine();
  line.SetViewRegion(1000, 1000 + span);
  QImage image(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied);
  QRect const visible(0, 0, kWidth, kHeight);
  {
    QPainter warm(&image);
    s.area->Draw(warm, visible);  // the first frame builds the outlines
  }
  LSoundTime offset = 0;
  for (auto _ : state) {
    if (scroll) {
      offset = (offset + span / 100) % (span * 4);
      line.SetViewRegion(1000 + offset, 1000 + offset + span);
    }
    QPainter painter(&image);
    s.area->Draw(painter, visible);
  }
}

}  // namespace

BENCHMARK_CAPTURE(Draw, whole_project_redraw, 300000, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Draw, four_minutes_scrolling, 240000, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Draw, two_seconds_redraw, 2000, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Draw, two_seconds_scrolling, 2000, true)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  // Drawing needs no screen.
  if (std::getenv("QT_QPA_PLATFORM") == nullptr) setenv("QT_QPA_PLATFORM", "offscreen", 1);
  QApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
