// Mixing a large project: 64 tracks of 30 overlapping ten-second clips each,
// every track with its own volume and pan, read in the player's blocks of 8192
// frames. The counter "realtime" says how many times faster than real time the
// mix runs; the player needs well over 1 with room for effects, so the goal is
// above 20 on an ordinary machine for the plain mix.
//
//   build/bench/project_mix_bench
//
// Variants: the track count (8 or 64), and clips recorded at 48 kHz in a
// 44.1 kHz project, so that every clip goes through the rate converter.
//
// MixWithEffectsBesideEcasound: 64 stereo tracks of one three-minute clip each,
// every track with an Amplify and a High Pass, mixed from start to end; then, in
// the same run, ecasound (Debian's ecasound, found on PATH) mixes the same 64
// recordings through the same chain per input (-ea: amplify, -efh: high pass,
// same gain and corner; the filters are not built alike, ours being one-pole)
// into its null output, timed by the wall clock. The 64 recordings are written
// once as float WAV files under /tmp/tandrel-mix-bench-wav/ (about 4 GB) and
// kept there for later runs; the project's own copies go to its data folder and
// are removed at exit. Counters: frames per second and the multiple of real time
// of the mix, ecasound's seconds and multiple of real time, and
// "ecasound_time_ratio", ecasound's time over ours (above 1: we are faster).
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "effects/table_effects.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/project.h"

namespace {

constexpr int kMixRate = 44100;
constexpr int kClipsPerTrack = 30;
constexpr LSoundTime kClipLength = 10000;
constexpr LSoundTime kClipSpacing = 8000;  // two seconds of overlap with the next

struct Fixture {
  std::string folder;
  TDProject project;

  Fixture(int tracks, int fileRate) {
    folder = (std::filesystem::temp_directory_path() /
              ("tandrel-mix-bench-" + std::to_string(::getpid()) + "-" + std::to_string(tracks) + "-" +
               std::to_string(fileRate)))
                 .string();
    std::filesystem::create_directories(folder);
    LAudioCutTank::Instance().SetWorkingFolder(folder);
    project.szDataFolderPath = folder;

    // Four files of twenty seconds of quiet noise; the clips are windows of them.
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-0.05f, 0.05f);
    std::vector<LCutListAudio> files(4);
    int const frames = 20 * fileRate;
    std::vector<float> block(2 * 8192);
    for (LCutListAudio& file : files) {
      LSoundSink sink = file.OpenSink(fileRate, 2);
      for (int done = 0; done < frames; done += 8192) {
        int const n = std::min(8192, frames - done);
        for (int i = 0; i < 2 * n; ++i) block[static_cast<std::size_t>(i)] = noise(random);
        sink->Write(block.data(), n);
      }
    }

    std::uniform_real_distribution<float> volume(-12.0f, 3.0f);
    std::uniform_real_distribution<double> pan(-1.0, 1.0);
    int const clipFrames = TDTimeToFrames(kClipLength, fileRate);
    for (int t = 0; t < tracks; ++t) {
      project.Tracks.AddTrack();
      project.Tracks.SetTrackVolume(t, volume(random));
      project.Tracks.SetTrackPan(t, pan(random));
      for (int c = 0; c < kClipsPerTrack; ++c) {
        LCutListAudio window;
        int const from = (t * 7919 + c * 104729) % (frames - clipFrames);
        files[static_cast<std::size_t>((t + c) % 4)].EfCopy(from, from + clipFrames, window);
        auto clip = std::make_unique<TDClipAudio>(window);
        clip->iPosition = c * kClipSpacing + t * 37;  // tracks a little apart, as played parts are
        project.AddClip(std::move(clip), t, false);
      }
    }
  }
  ~Fixture() {
    project.Close();
    std::filesystem::remove_all(folder);
  }
};

Fixture& Project(int tracks, int fileRate) {
  static std::map<std::pair<int, int>, std::unique_ptr<Fixture>> made;
  auto& f = made[{tracks, fileRate}];
  if (!f) f = std::make_unique<Fixture>(tracks, fileRate);
  return *f;
}

// Reads ten seconds of the mix per iteration, walking through the project and
// starting over at its end, so every part of it is timed.
void MixProject(benchmark::State& state, int fileRate) {
  Fixture& f = Project(static_cast<int>(state.range(0)), fileRate);
  LSoundSource const mix = f.project.OpenNonLoopSource(kMixRate, 2, nullptr);
  if (!mix.IsGood() || mix->GetEndSample() <= 0) {
    state.SkipWithError("the mix did not open");
    return;
  }
  int const end = mix->GetEndSample();
  int const perIteration = 10 * kMixRate;
  std::vector<float> buffer(2 * 8192);
  for (auto _ : state) {
    if (mix->GetPositionSample() + perIteration > end) mix->Seek(0);
    for (int done = 0; done < perIteration; done += 8192) {
      mix->Read(buffer.data(), std::min(8192, perIteration - done));
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.counters["realtime"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * perIteration / kMixRate, benchmark::Counter::kIsRate);
}

void MixProjectSameRate(benchmark::State& state) { MixProject(state, kMixRate); }
void MixProjectConvertingRate(benchmark::State& state) { MixProject(state, 48000); }

// Opening the mix is on the path of every play and every edit while playing.
void OpenProjectMix(benchmark::State& state) {
  Fixture& f = Project(static_cast<int>(state.range(0)), kMixRate);
  for (auto _ : state) {
    LSoundSource mix = f.project.OpenNonLoopSource(kMixRate, 2, nullptr);
    benchmark::DoNotOptimize(mix.Get());
  }
}

// ---- 64 tracks with effects, beside ecasound ----

constexpr int kEffectTracks = 64;
constexpr int kEffectSeconds = 180;
constexpr float kAmplify = 1.5f;  // ecasound's -ea:150
constexpr int kHighPassHz = 100;  // and -efh:100

std::string const kWavFolder = "/tmp/tandrel-mix-bench-wav";

std::string WavPath(int track) { return kWavFolder + "/track" + std::to_string(track) + ".wav"; }

// A plain float WAV (format tag 3) of `frames` stereo frames at 44.1 kHz.
std::uint64_t WavBytes(std::int64_t frames) { return 44 + static_cast<std::uint64_t>(frames) * 8; }

void PutLE(std::ofstream& out, std::uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) out.put(static_cast<char>((v >> (8 * i)) & 0xFF));
}

void WriteWavHeader(std::ofstream& out, std::int64_t frames) {
  std::uint32_t const data = static_cast<std::uint32_t>(frames * 8);
  out.write("RIFF", 4);
  PutLE(out, 36 + data, 4);
  out.write("WAVEfmt ", 8);
  PutLE(out, 16, 4);
  PutLE(out, 3, 2);  // IEEE float
  PutLE(out, 2, 2);
  PutLE(out, kMixRate, 4);
  PutLE(out, kMixRate * 8, 4);
  PutLE(out, 8, 2);
  PutLE(out, 32, 2);
  out.write("data", 4);
  PutLE(out, data, 4);
}

// Quiet noise, different on every track, cheap to make: four billion samples
// would take a while through a library distribution.
struct Noise {
  std::uint32_t state;
  float Next() {
    state = state * 1664525u + 1013904223u;
    return (static_cast<float>(state >> 8) / 16777216.0f - 0.5f) * 0.1f;
  }
};

struct EffectsFixture {
  std::string folder;
  TDProject project;
  bool ready = false;

  EffectsFixture() {
    folder = (std::filesystem::temp_directory_path() / ("tandrel-mix-fx-bench-" + std::to_string(::getpid())))
                 .string();
    std::filesystem::create_directories(folder);
    std::filesystem::create_directories(kWavFolder);
    LAudioCutTank::Instance().SetWorkingFolder(folder);
    project.szDataFolderPath = folder;

    int const frames = kEffectSeconds * kMixRate;
    std::vector<float> block(2 * 8192);
    for (int t = 0; t < kEffectTracks; ++t) {
      std::string const wav = WavPath(t);
      std::error_code error;
      bool const haveWav = std::filesystem::file_size(wav, error) == WavBytes(frames);
      std::ofstream out;
      if (!haveWav) {
        out.open(wav, std::ios::binary | std::ios::trunc);
        WriteWavHeader(out, frames);
      }
      LCutListAudio list;
      {
        LSoundSink sink = list.OpenSink(kMixRate, 2);
        Noise noise{static_cast<std::uint32_t>(t * 2654435761u + 1)};
        for (int done = 0; done < frames; done += 8192) {
          int const n = std::min(8192, frames - done);
          for (int i = 0; i < 2 * n; ++i) block[static_cast<std::size_t>(i)] = noise.Next();
          sink->Write(block.data(), n);
          if (!haveWav) out.write(reinterpret_cast<char const*>(block.data()), static_cast<std::streamsize>(n) * 8);
        }
      }
      if (!haveWav && !out) return;
      project.Tracks.AddTrack();
      auto clip = std::make_unique<TDClipAudio>(list);
      clip->iPosition = 0;
      project.AddClip(std::move(clip), t, false);
      TDTrack* track = project.Tracks.GetTrack(t);
      track->EffectChain.Append(std::make_unique<LSPGain>(kAmplify));
      track->EffectChain.Append(std::make_unique<LSPHighPass>(kHighPassHz));
    }
    ready = true;
  }
  ~EffectsFixture() {
    project.Close();
    std::filesystem::remove_all(folder);
  }
};

// Wall-clock seconds of ecasound mixing the WAV files through the same chains;
// negative when it could not be run.
double TimeEcasound() {
  std::string command = "ecasound -q -b:8192 -z:mixmode,sum";
  for (int t = 0; t < kEffectTracks; ++t) {
    command += " -a:" + std::to_string(t + 1) + " -i:" + WavPath(t) + " -ea:" + std::to_string(static_cast<int>(kAmplify * 100.0f)) +
               " -efh:" + std::to_string(kHighPassHz);
  }
  command += " -a:all -o:null > /dev/null 2>&1";
  auto const start = std::chrono::steady_clock::now();
  int const status = std::system(command.c_str());
  auto const end = std::chrono::steady_clock::now();
  if (status != 0) return -1.0;
  return std::chrono::duration<double>(end - start).count();
}

void MixWithEffectsBesideEcasound(benchmark::State& state) {
  static EffectsFixture f;
  if (!f.ready) {
    state.SkipWithError("the recordings could not be written");
    return;
  }
  int const frames = kEffectSeconds * kMixRate;
  std::vector<float> buffer(2 * 8192);
  double ours = 0.0;
  for (auto _ : state) {
    // The whole three minutes, opened as export opens it, per iteration.
    auto const start = std::chrono::steady_clock::now();
    LSoundSource const mix = f.project.OpenSourceForExport(kMixRate, 2, nullptr, false);
    if (!mix.IsGood() || mix->GetEndSample() < frames) {
      state.SkipWithError("the mix did not open");
      return;
    }
    for (int done = 0; done < frames; done += 8192) mix->Read(buffer.data(), std::min(8192, frames - done));
    benchmark::DoNotOptimize(buffer.data());
    ours += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  double const perMix = ours / static_cast<double>(state.iterations());
  state.counters["frames_per_second"] = frames / perMix;
  state.counters["realtime"] = kEffectSeconds / perMix;

  double const ecasound = TimeEcasound();
  if (ecasound < 0.0) {
    state.SkipWithError("ecasound did not run (Debian package ecasound)");
    return;
  }
  state.counters["ecasound_seconds"] = ecasound;
  state.counters["ecasound_realtime"] = kEffectSeconds / ecasound;
  state.counters["ecasound_time_ratio"] = ecasound / perMix;
}

}  // namespace

BENCHMARK(MixProjectSameRate)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MixProjectConvertingRate)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenProjectMix)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
// Each iteration mixes three minutes of 64 tracks; three are plenty.
BENCHMARK(MixWithEffectsBesideEcasound)->Iterations(3)->Unit(benchmark::kSecond)->UseRealTime();
