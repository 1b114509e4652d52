// Reading and writing long PCM files, beside sox doing the same conversion in
// the same run: 10 minutes of stereo 24-bit WAV read and written again as 16-bit
// WAV. Both sides work file to file, so the disk cache treats them alike.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/process_interface.h"
#include "sound/source_to_sink.h"
#include "sound/wave_file.h"

namespace {

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr int kSeconds = 600;

// A scratch folder of a few hundred megabytes, removed when the program ends.
struct ScratchFolder {
  std::string path;
  ScratchFolder() {
    char name[] = "/tmp/tandrel-pcm-bench-XXXXXX";
    if (::mkdtemp(name)) path = name;
  }
  ~ScratchFolder() {
    if (!path.empty()) std::filesystem::remove_all(path);
  }
};

const std::string& Folder() {
  static const ScratchFolder folder;
  return folder.path;
}

// The input: a quiet two-tone signal, so that the limiter on the write has
// nothing to do and only the file work is timed.
const std::string& Input() {
  static const std::string path = [] {
    std::string p = Folder() + "/in24.wav";
    LSoundSink sink = LWaveFile::OpenSinkPCM(p, kRate, kChannels, 24);
    std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * kChannels);
    long long frame = 0;
    const long long total = static_cast<long long>(kRate) * kSeconds;
    while (frame < total) {
      int n = static_cast<int>(std::min<long long>(LSoundMaxReadFrames, total - frame));
      for (int i = 0; i < n; ++i, ++frame) {
        float t = static_cast<float>(frame) / kRate;
        block[2 * i] = 0.3f * std::sin(2 * 3.14159265f * 440 * t);
        block[2 * i + 1] = 0.3f * std::sin(2 * 3.14159265f * 660 * t);
      }
      sink->Write(block.data(), n);
    }
    return p;
  }();
  return path;
}

void TandrelWav24ToWav16(benchmark::State& state) {
  const std::string in = Input();
  const std::string out = Folder() + "/tandrel16.wav";
  for (auto _ : state) {
    LPRSourceToSink job;
    job.lssSource = LWaveFile::OpenSource(in);
    job.lsnkSink = LWaveFile::OpenSinkPCM(out, kRate, kChannels, 16);
    LProcessInterfaceVoid quiet;
    if (Process(quiet, job) != 0) state.SkipWithError("the copy failed");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(kRate) * kSeconds);
}
BENCHMARK(TandrelWav24ToWav16)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void SoxWav24ToWav16(benchmark::State& state) {
  const std::string in = Input();
  // -D: no dither, since the copy job does not dither either.
  const std::string cmd = "sox -q -D \"" + in + "\" -b 16 \"" + Folder() + "/sox16.wav\" 2>/dev/null";
  if (std::system("command -v sox >/dev/null 2>&1") != 0) {
    state.SkipWithError("sox is not installed");
    return;
  }
  for (auto _ : state) {
    if (std::system(cmd.c_str()) != 0) state.SkipWithError("sox failed");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(kRate) * kSeconds);
}
BENCHMARK(SoxWav24ToWav16)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
