// How many tracks play in real time on one core: a minute of N tracks, each of six
// ten-second clips and an effect chain of Amplify, High Pass and Low Pass, at 48000
// Hz into a device that takes 512 frames a buffer.
//
//   build/bench/transport_tracks_bench
//
// TrackCapacity: the chain is built as the player builds it for a device at the
// project's rate (the project's mix as the transport's opener opens it, handing its
// track levels to the engine's history, then the player's limiter and cross-fade)
// and read a buffer of 512 frames at a time for the whole minute, on the one core
// the benchmark is pinned to. Each buffer is timed twice: by the thread's own CPU
// time, which is the work, and by the wall clock, which also holds whatever else
// the machine ran on that core meanwhile. A count of tracks plays when 999 buffers
// in 1000 took at most three quarters of a buffer's length (8 of its 10.7 ms) of
// CPU time: the ring ahead of the device holds 1.4 s, so a rare slow buffer is
// absorbed, but the pump must keep up with a quarter of the time to spare for the
// device's own thread and the rest of the program. The slowest buffers are the
// first (the limiter reads ahead) and those where every track's next clip begins
// at once, every ten seconds. A count that fails is tried once more, since other
// work on a shared machine can slow a stretch of buffers down. Counts are tried
// doubling from 16, then halved down to within 4 tracks of the limit. The search goes past the
// 250 tracks a project may have, up to 512, to show the capacity rather than the
// program's limit. Counters: "tracks", the largest count that plays, and for it
// the mean, the 99.9th percentile and the slowest buffer's CPU time in ms, the same
// by the wall clock, and the load (the mean CPU time over a buffer's length);
// "load_at_N" for every count tried.
//
// PlayOnJackForAMinute: the found count, held to the program's 250, played for a
// minute by the real player (engine, RtAudio) into a JACK server of its own with
// the dummy driver at 512-frame periods, the whole process and the server on that
// one core. Counters: the player's underruns (callbacks that found the ring short)
// before the end of the mix, the server's xruns, how far the play got, and the
// tracks played.
//
// The clips are windows of four files of twenty seconds of quiet noise in a data
// folder under the system's temporary folder, removed at exit; they are read from
// the page cache, as recent recordings are.
#include <benchmark/benchmark.h>

#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "effects/table_effects.h"
#include "project/audio_cut_tank.h"
#include "project/clip_audio.h"
#include "project/project.h"
#include "shell/project_sound_opener.h"
#include "sound/cross_fade_source.h"
#include "sound/device/testing_jack.h"
#include "sound/peak_limit.h"
#include "sound/sound_engine.h"

namespace {

constexpr int kRate = 48000;
constexpr int kBufferFrames = 512;
constexpr int kSeconds = 60;
constexpr int kClipsPerTrack = 6;
constexpr LSoundTime kClipLength = 10000;
constexpr int kSearchTracks = 512;
constexpr int kProgramTracks = 250;
constexpr double kBufferMs = 1000.0 * kBufferFrames / kRate;
constexpr double kBudgetMs = 0.75 * kBufferMs;

// Every thread made from here on, the JACK server's included, runs on the core the
// benchmark started on.
void PinToOneCore() {
  static bool pinned = false;
  if (pinned) return;
  int const cpu = sched_getcpu();
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu < 0 ? 0 : cpu, &set);
  sched_setaffinity(0, sizeof(set), &set);
  pinned = true;
}

// The four recordings every clip is a window of.
struct Recordings {
  std::string folder;
  std::vector<LCutListAudio> files{4};

  Recordings() {
    folder = (std::filesystem::temp_directory_path() / ("tandrel-transport-bench-" + std::to_string(::getpid())))
                 .string();
    std::filesystem::create_directories(folder);
    LAudioCutTank::Instance().SetWorkingFolder(folder);
    std::uint32_t noise = 12345;
    std::vector<float> block(2 * 8192);
    int const frames = 20 * kRate;
    for (LCutListAudio& file : files) {
      LSoundSink sink = file.OpenSink(kRate, 2);
      for (int done = 0; done < frames; done += 8192) {
        int const n = std::min(8192, frames - done);
        for (int i = 0; i < 2 * n; ++i) {
          noise = noise * 1664525u + 1013904223u;
          block[static_cast<std::size_t>(i)] = (static_cast<float>(noise >> 8) / 16777216.0f - 0.5f) * 0.05f;
        }
        sink->Write(block.data(), n);
      }
    }
  }
  ~Recordings() {
    files.clear();
    std::filesystem::remove_all(folder);
  }
};

Recordings& TheRecordings() {
  static Recordings recordings;
  return recordings;
}

// A project of `tracks` tracks, each a minute of clips through three effects.
std::unique_ptr<TDProject> MakeProject(int tracks) {
  Recordings& r = TheRecordings();
  auto project = std::make_unique<TDProject>();
  project->szDataFolderPath = r.folder;
  project->PreferSampleRate.SetPreferSampleRate(kRate);
  int const fileFrames = 20 * kRate;
  int const clipFrames = TDTimeToFrames(kClipLength, kRate);
  for (int t = 0; t < tracks; ++t) {
    project->Tracks.AddTrack();
    project->Tracks.SetTrackVolume(t, static_cast<float>(-(t % 7)));
    project->Tracks.SetTrackPan(t, (t % 5 - 2) * 0.3);
    for (int c = 0; c < kClipsPerTrack; ++c) {
      LCutListAudio window;
      int const from = (t * 7919 + c * 104729) % (fileFrames - clipFrames);
      r.files[static_cast<std::size_t>((t + c) % 4)].EfCopy(from, from + clipFrames, window);
      auto clip = std::make_unique<TDClipAudio>(window);
      clip->iPosition = c * kClipLength;
      project->AddClip(std::move(clip), t, false);
    }
    TDTrack* track = project->Tracks.GetTrack(t);
    track->EffectChain.Append(std::make_unique<LSPGain>(1.2f));
    track->EffectChain.Append(std::make_unique<LSPHighPass>(80));
    track->EffectChain.Append(std::make_unique<LSPLowPass>(12000));
  }
  return project;
}

struct Times {
  double meanMs = 0, p999Ms = 0, maxMs = 0;
};

Times Summary(std::vector<double> times) {
  Times t;
  if (times.empty()) return t;
  double sum = 0;
  for (double ms : times) sum += ms;
  t.meanMs = sum / static_cast<double>(times.size());
  std::sort(times.begin(), times.end());
  t.maxMs = times.back();
  t.p999Ms = times[std::min(times.size() - 1, times.size() * 999 / 1000)];
  return t;
}

struct Pass {
  bool plays = false;
  Times cpu, wall;
};

double ThreadCpuMs() {
  timespec ts{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1000.0 + static_cast<double>(ts.tv_nsec) / 1e6;
}

// The minute of `tracks` tracks read as the player's pump reads it, buffer by
// buffer. A pass that is past hope stops early.
Pass Render(int tracks) {
  std::unique_ptr<TDProject> project = MakeProject(tracks);
  TDProjectSoundOpener opener(*project);
  TDTracksDBHistory levels;
  opener.SetTracksDBHistory(&levels);
  LCrossFadeSource fade;
  LSoundSource mix = opener.OpenProjectSource(0, false);
  mix->Seek(0);
  if (mix->GetPeakBound() > LSoundPeakInRange) mix = LSPPeakLimit().OpenSource(mix);
  LSoundSource const chain = fade.OpenSource(mix);

  int const buffers = kSeconds * kRate / kBufferFrames;
  int const allowedSlow = buffers / 1000;
  std::vector<float> out(2 * kBufferFrames);
  std::vector<double> cpu, wall;
  cpu.reserve(static_cast<std::size_t>(buffers));
  wall.reserve(static_cast<std::size_t>(buffers));
  int slow = 0;
  for (int b = 0; b < buffers; ++b) {
    auto const start = std::chrono::steady_clock::now();
    double const cpuStart = ThreadCpuMs();
    chain->Read(out.data(), kBufferFrames);
    double const cpuMs = ThreadCpuMs() - cpuStart;
    wall.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    cpu.push_back(cpuMs);
    benchmark::DoNotOptimize(out.data());
    // The main thread takes the track levels 30 times a second.
    if (b % 3 == 0) levels.Clear();
    if (cpuMs > kBudgetMs && ++slow > allowedSlow) break;
  }
  Pass p;
  p.cpu = Summary(cpu);
  p.wall = Summary(wall);
  p.plays = static_cast<int>(cpu.size()) == buffers && slow <= allowedSlow;
  return p;
}

int gFoundTracks = 0;

void TrackCapacity(benchmark::State& state) {
  PinToOneCore();
  for (auto _ : state) {
    int good = 0, bad = kSearchTracks + 1;
    Pass best;
    auto tryCount = [&](int n) {
      // The machine is shared: a burst of other work on the same core slows a
      // stretch of buffers down. A count that fails gets a second pass.
      Pass p = Render(n);
      if (!p.plays) p = Render(n);
      state.counters["load_at_" + std::to_string(n)] = p.cpu.meanMs / kBufferMs;
      if (p.plays) {
        good = n;
        best = p;
      } else {
        bad = n;
      }
      return p.plays;
    };
    for (int n = 16; n <= kSearchTracks && tryCount(n);) {
      if (n == kSearchTracks) break;
      n = std::min(2 * n, kSearchTracks);
    }
    while (bad - good > 4) tryCount((good + bad) / 2);
    gFoundTracks = good;
    state.counters["tracks"] = good;
    state.counters["cpu_mean_ms"] = best.cpu.meanMs;
    state.counters["cpu_p999_ms"] = best.cpu.p999Ms;
    state.counters["cpu_max_ms"] = best.cpu.maxMs;
    state.counters["wall_mean_ms"] = best.wall.meanMs;
    state.counters["wall_p999_ms"] = best.wall.p999Ms;
    state.counters["wall_max_ms"] = best.wall.maxMs;
    state.counters["load"] = best.cpu.meanMs / kBufferMs;
    state.counters["buffer_ms"] = kBufferMs;
  }
}

// Runs the main thread's queue until `done` or `ms` passed.
bool Pump(LPumpedMainThreadQueue& queue, std::function<bool()> const& done, int ms) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    queue.WaitPumping(LSignalObjectRef(), LSignalObjectRef(), 10);
  }
  return true;
}

void PlayOnJackForAMinute(benchmark::State& state) {
  PinToOneCore();
  int const tracks = std::min(gFoundTracks > 0 ? gFoundTracks : 64, kProgramTracks);
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
  LTestJackServer server(kRate, kBufferFrames);
  if (!server.IsUp()) {
    state.SkipWithError("no JACK server (Debian's jackd2)");
    return;
  }
  // A client that takes the player's output and counts the server's late cycles.
  LTestJackCapture listener("tdbench", 2, 1);
  int const device = FindPlayDevice("tdbench (JACK)");
  if (!listener.IsActive() || device <= 0) {
    state.SkipWithError("the listening client did not start");
    return;
  }
  std::unique_ptr<TDProject> project = MakeProject(tracks);
  TDProjectSoundOpener opener(*project);
  TDEngine engine(opener);
  LSoundPlayDevice chosen;
  chosen.no = device;
  engine.UpdateSoundPlayDevice(chosen);
  LSoundPlayerLLCA& spll = engine.GetSoundEngine().GetPlayer().GetDeviceLayer();
  for (auto _ : state) {
    if (!engine.Play(0)) {
      state.SkipWithError("the player did not start");
      return;
    }
    std::uint64_t const before = spll.GetUnderrunCount();
    int const xruns = listener.GetXruns();
    // Until a second before the end: past it the ring runs dry, as it should.
    Pump(
        queue,
        [&] {
          engine.TakeTracksDB();
          return engine.GetPosition() >= (kSeconds - 1) * 1000 || !engine.IsPlaying();
        },
        (kSeconds + 30) * 1000);
    state.counters["underruns"] = static_cast<double>(spll.GetUnderrunCount() - before);
    state.counters["server_xruns"] = listener.GetXruns() - xruns;
    state.counters["reached_s"] = engine.GetPosition() / 1000.0;
    state.counters["device_lost"] = engine.IsDeviceLost() ? 1 : 0;
    engine.Stop();
  }
  state.counters["tracks"] = tracks;
}

}  // namespace

BENCHMARK(TrackCapacity)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(PlayOnJackForAMinute)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
