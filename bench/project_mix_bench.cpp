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
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <vector>

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

}  // namespace

BENCHMARK(MixProjectSameRate)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MixProjectConvertingRate)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(OpenProjectMix)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
