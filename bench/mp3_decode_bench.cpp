// Decoding MP3 files to the end, beside mpg123 decoding the same files in the same
// run: the files of the shared performance folder, and ten minutes of 320 kbit/s
// stereo that lame makes here. Each benchmark times our source read to its end as
// 32-bit floats (what the mix reads); its counter "ratio" is that time over the
// best of three runs of `mpg123 -s` writing 16-bit samples to /dev/null, so below 1
// is faster than mpg123.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "codecs/mp3_file.h"

namespace {

struct ScratchFolder {
  std::string path;
  ScratchFolder() {
    char name[] = "/tmp/tandrel-mp3-bench-XXXXXX";
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

// Ten minutes of stereo at 320 kbit/s: a slow sweep on one side, pink noise on
// the other, which keeps the encoder busy on every band.
const std::string& LongFile() {
  static const std::string path = [] {
    std::string const wav = Folder() + "/long.wav";
    std::string const mp3 = Folder() + "/long320.mp3";
    std::string const cmd = "sox -q -n -r 44100 -c 2 -b 16 '" + wav +
                            "' synth 600 sine 220-3520 pinknoise vol 0.3 2>/dev/null && "
                            "lame --quiet -b 320 '" + wav + "' '" + mp3 + "'";
    if (std::system(cmd.c_str()) != 0) return std::string();
    std::filesystem::remove(wav);
    return mp3;
  }();
  return path;
}

double Seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

// Best of three: the fairest single number for a program that starts, reads and exits.
double Mpg123Seconds(std::string const& path) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    auto const start = std::chrono::steady_clock::now();
    if (std::system(("mpg123 -q -s '" + path + "' > /dev/null 2>&1").c_str()) != 0) return -1;
    best = std::min(best, Seconds(std::chrono::steady_clock::now() - start));
  }
  return best;
}

long long DecodeToEnd(std::string const& path) {
  LSoundSource source = LMP3File::OpenSource(path.c_str());
  if (source->IsError()) return -1;
  std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * source->GetChannels());
  long long frames = 0;
  while (source->GetPositionSample() < source->GetEndSample()) {
    source->Read(buffer.data(), LSoundMaxReadFrames);
    frames += LSoundMaxReadFrames;
  }
  benchmark::DoNotOptimize(buffer.data());
  return frames;
}

void DecodeBeside(benchmark::State& state, std::string const& path) {
  if (path.empty() || !std::filesystem::exists(path)) {
    state.SkipWithError("input missing (sox and lame make the long file)");
    return;
  }
  double const theirs = Mpg123Seconds(path);
  double ours = 1e9;
  long long frames = 0;
  for (auto _ : state) {
    auto const start = std::chrono::steady_clock::now();
    frames = DecodeToEnd(path);
    double const t = Seconds(std::chrono::steady_clock::now() - start);
    state.SetIterationTime(t);
    ours = std::min(ours, t);
    if (frames < 0) state.SkipWithError("the file did not open");
  }
  state.counters["frames"] = static_cast<double>(frames);
  if (theirs > 0) {
    state.counters["mpg123_s"] = theirs;
    state.counters["ratio"] = ours / theirs;
  }
}

void RegisterAll() {
  std::string const perf = std::string(TANDREL_TESTDATA_DIR) + "/mp3/performance";
  std::vector<std::string> files;
  if (std::filesystem::is_directory(perf)) {
    for (auto const& e : std::filesystem::directory_iterator(perf)) {
      if (e.path().extension() == ".mp3") files.push_back(e.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  for (std::string const& f : files) {
    benchmark::RegisterBenchmark(("Mp3Decode/" + std::filesystem::path(f).filename().string()).c_str(),
                                 [f](benchmark::State& s) { DecodeBeside(s, f); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3);
  }
  benchmark::RegisterBenchmark("Mp3Decode/lame_600s_320k_stereo",
                               [](benchmark::State& s) { DecodeBeside(s, LongFile()); })
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond)
      ->Iterations(3);
}

[[maybe_unused]] int const kRegistered = (RegisterAll(), 0);

}  // namespace
