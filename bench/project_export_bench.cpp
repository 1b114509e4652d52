// Exporting a ten-minute project of eight tracks, one ten-minute clip on each, to
// WAV and to MP3 (through lame), timed beside the same eight files mixed by
// `sox -m` and, for MP3, piped into the same lame. The counter "realtime" says how
// many times faster than real time each runs; "vs_sox" is sox's time over ours, so
// above 1 means the export is the faster of the two.
//
//   build/bench/project_export_bench
//
// The input files are made once with sox into /tmp/tandrel-export-bench and kept
// for the next run; the project's own copy of them is made once per run and is not
// timed.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/cut_list_load_save.h"
#include "project/project.h"
#include "shell/export.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 44100;
constexpr int kTracks = 8;
constexpr int kSeconds = 600;
std::string const kInputs = "/tmp/tandrel-export-bench";

std::string Input(int track) { return kInputs + "/in" + std::to_string(track) + ".wav"; }

bool Run(std::string const& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// Eight stereo files, each a quiet tone of its own pitch on the left and noise on
// the right, so that the encoder has real work.
bool MakeInputs() {
  fs::create_directories(kInputs);
  std::uintmax_t const bytes = 44 + static_cast<std::uintmax_t>(kSeconds) * kRate * 4;
  for (int t = 0; t < kTracks; ++t) {
    std::error_code ec;
    if (fs::file_size(Input(t), ec) == bytes) continue;
    std::string const cmd = "sox -n -r 44100 -c 2 -b 16 " + Input(t) + " synth " + std::to_string(kSeconds) +
                            " sine " + std::to_string(110 * (t + 2)) + " whitenoise vol 0.05";
    if (!Run(cmd)) return false;
  }
  return true;
}

struct Fixture {
  std::string folder;
  TDProject project;
  bool ok = false;

  Fixture() {
    folder = kInputs + "/project-" + std::to_string(::getpid());
    fs::create_directories(folder);
    // The user's own export settings play no part in the timing.
    ::setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
    LUserSettingsStore::Global().UseFile(folder + "/settings.conf");
    LAudioCutTank::Instance().SetWorkingFolder(folder);
    project.szDataFolderPath = folder;
    project.PreferSampleRate.SetPreferSampleRate(kRate);
    if (!MakeInputs()) return;
    LProcessInterfaceVoid pi;
    for (int t = 0; t < kTracks; ++t) {
      LCutListAudio list;
      LCutListAudioLoadSource load{"", &list, LWaveFile::OpenSource(Input(t))};
      if (Process(pi, load) != LProcessFinished) return;
      project.Tracks.AddTrack();
      auto clip = std::make_unique<TDClipAudio>(list);
      clip->iPosition = 0;
      project.AddClip(std::move(clip), t, false);
    }
    ok = project.GetProjectExportEnd(kRate) == kSeconds * kRate;
  }
  ~Fixture() {
    project.Close();
    fs::remove_all(folder);
  }
};

Fixture& Project() {
  static Fixture f;
  return f;
}

// Seconds per run of the sox pipelines, for the exports to be set against.
double soxWavSeconds = 0;
double soxMp3Seconds = 0;

std::string SoxMix() {
  std::string cmd = "sox -m";
  for (int t = 0; t < kTracks; ++t) cmd += " -v 1 " + Input(t);
  return cmd;
}

void Timed(benchmark::State& state, std::string const& command, double& seconds) {
  if (!MakeInputs()) {
    state.SkipWithError("sox could not make the inputs");
    return;
  }
  double total = 0;
  for (auto _ : state) {
    auto const start = std::chrono::steady_clock::now();
    if (!Run(command)) {
      state.SkipWithError(("failed: " + command).c_str());
      return;
    }
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  seconds = total / static_cast<double>(state.iterations());
  state.counters["realtime"] = kSeconds / seconds;
}

void SoxMixToWav(benchmark::State& state) {
  Timed(state, SoxMix() + " -b 16 " + kInputs + "/sox.wav", soxWavSeconds);
}

void SoxMixToLame(benchmark::State& state) {
  Timed(state, SoxMix() + " -b 16 -t wav - | lame --cbr -b 128 -S - " + kInputs + "/sox.mp3", soxMp3Seconds);
}

void Export(benchmark::State& state, char const* extension, double soxSeconds) {
  Fixture& f = Project();
  if (!f.ok) {
    state.SkipWithError("the project could not be made");
    return;
  }
  std::string const target = kInputs + "/export" + extension;
  double total = 0;
  for (auto _ : state) {
    TDExportProjectNormal job;
    job.pProject = &f.project;
    job.szPath = target;
    job.iSampleRate = kRate;
    LProcessInterfaceVoid pi;
    auto const start = std::chrono::steady_clock::now();
    if (Process(pi, job) != LProcessFinished) {
      state.SkipWithError("the export failed");
      return;
    }
    total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  double const seconds = total / static_cast<double>(state.iterations());
  state.counters["realtime"] = kSeconds / seconds;
  if (soxSeconds > 0) state.counters["vs_sox"] = soxSeconds / seconds;
  fs::remove(target);
}

void ExportToWav(benchmark::State& state) { Export(state, ".wav", soxWavSeconds); }
void ExportToMp3(benchmark::State& state) { Export(state, ".mp3", soxMp3Seconds); }

}  // namespace

// The sox runs come first: each export compares itself with the time just taken.
BENCHMARK(SoxMixToWav)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ExportToWav)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(SoxMixToLame)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ExportToMp3)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
