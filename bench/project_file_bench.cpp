// Saving and loading a large project: 250 tracks and 10,000 clips, each clip a
// few segments over the data folder's files. The goal is under half a second for
// each on an ordinary machine, so that saving never interrupts work.
//
//   build/bench/project_file_bench
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>

#include "foundation/process_interface.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/project_file.h"

namespace {

struct Fixture {
  std::string folder;
  std::string path;
  TDProject project;

  Fixture() {
    folder = (std::filesystem::temp_directory_path() / ("tandrel-project-bench-" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(folder);
    path = folder + "/big.tdpj";
    std::filesystem::create_directories(path + ".ProjectData");
    LAudioCutTank::Instance().SetWorkingFolder(path + ".ProjectData");
    project.szFilePath = path;
    project.szDataFolderPath = path + ".ProjectData";
    for (int t = 0; t < 250; ++t) project.Tracks.AddTrack();
    LCutListAudio list;
    list.SetSampleRate(44100);
    list.SetChannels(2);
    LAudioCutRef const cut = LAudioCutTank::Instance().CreateNewRefAndIncRef();
    for (int s = 0; s < 4; ++s) list.AppendSegment(LCutListSegment(cut, s * 10000, 8000, 0.9f));
    for (int i = 0; i < 10000; ++i) {
      auto clip = std::make_unique<TDClipAudio>(list);
      clip->iPosition = (i / 250) * 5000;
      clip->szName = "Clip " + std::to_string(i);
      project.AddClip(std::move(clip), i % 250, false);
    }
  }
  ~Fixture() {
    project.Close();
    std::filesystem::remove_all(folder);
  }
};

Fixture& Big() {
  static Fixture fixture;
  return fixture;
}

void SaveBigProject(benchmark::State& state) {
  Fixture& f = Big();
  LProcessInterfaceVoid quiet;
  for (auto _ : state) {
    TDSaveProject job{&f.project, f.path, {}};
    if (Process(quiet, job) != LProcessFinished) state.SkipWithError("save failed");
  }
  state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(f.path));
}

void LoadBigProject(benchmark::State& state) {
  Fixture& f = Big();
  LProcessInterfaceVoid quiet;
  {
    TDSaveProject job{&f.project, f.path, {}};
    Process(quiet, job);
  }
  for (auto _ : state) {
    TDProject loaded;
    TDLoadProject job;
    job.pProject = &loaded;
    job.szPath = f.path;
    if (Process(quiet, job) != LProcessFinished || loaded.Clips.GetCount() != 10000) {
      state.SkipWithError("load failed");
    }
    state.PauseTiming();
    loaded.Close();  // the clips' release is not the load's cost
    state.ResumeTiming();
  }
}

}  // namespace

BENCHMARK(SaveBigProject)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(LoadBigProject)->Unit(benchmark::kMillisecond)->UseRealTime();
