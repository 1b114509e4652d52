// Files through FFmpeg and through encoder programs: three minutes of stereo at
// 44.1 kHz read whole as FLAC and as Ogg Vorbis, random seeks in both (each seek
// followed by a read of 4096 frames), and the same three minutes exported through
// the flac and lame programs. Times per run; a run of the reads covers the whole file,
// so 180 s divided by the time is the speed against real time.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "foundation/process_interface.h"
#include "sound/encoder_sinks.h"
#include "sound/ffmpeg_source.h"
#include "sound/source_to_sink.h"
#include "sound/wave_file.h"

namespace {

constexpr int kRate = 44100;
constexpr int kSeconds = 180;

struct ScratchFolder {
  std::string path;
  ScratchFolder() {
    char name[] = "/tmp/tandrel-ffmpeg-bench-XXXXXX";
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

// Two quiet tones, one a channel.
class ToneSource : public LSoundSourceBase {
 public:
  explicit ToneSource(int frames) : LSoundSourceBase(kRate, 2, LSoundPeakInRange), iEnd(frames) {}
  void Read(float* buffer, int frames) override {
    for (int i = 0; i < frames; ++i, ++iPos) {
      float const t = static_cast<float>(iPos) / kRate;
      buffer[2 * i] = iPos < iEnd ? 0.3f * std::sin(2 * 3.14159265f * 440 * t) : 0.0f;
      buffer[2 * i + 1] = iPos < iEnd ? 0.3f * std::sin(2 * 3.14159265f * 660 * t) : 0.0f;
    }
  }
  int GetPositionSample() const override { return iPos; }
  int GetEndSample() const override { return iEnd; }
  void Seek(int frame) override { iPos = frame; }

 private:
  int iPos = 0;
  int iEnd;
};

bool Encode(LSoundSink sink) {
  LPRSourceToSink copy;
  copy.lssSource = LSoundSource(new ToneSource(kRate * kSeconds));
  copy.lsnkSink = sink;
  LProcessInterfaceVoid quiet;
  return Process(quiet, copy) == LProcessFinished && sink->Finish();
}

std::string const& File(char const* ext) {
  static std::string const flac = [] {
    std::string p = Folder() + "/tones.flac";
    return Encode(OpenFlacSink(p, kRate, 2, {}, nullptr)) ? p : std::string();
  }();
  static std::string const ogg = [] {
    std::string p = Folder() + "/tones.ogg";
    return Encode(OpenOggSink(p, kRate, 2, {}, nullptr)) ? p : std::string();
  }();
  return std::string(ext) == ".flac" ? flac : ogg;
}

void ReadWhole(benchmark::State& state, char const* ext) {
  std::string const& path = File(ext);
  if (path.empty()) {
    state.SkipWithError("the encoder program is missing");
    return;
  }
  std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * 2);
  for (auto _ : state) {
    LSoundSource s = LFFMPEGSourceManager::GetSoundSource(path);
    while (s->GetPositionSample() < s->GetEndSample()) {
      s->Read(block.data(), std::min(LSoundMaxReadFrames, s->GetEndSample() - s->GetPositionSample()));
    }
    benchmark::DoNotOptimize(block.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRate) * kSeconds);
}

void RandomSeeks(benchmark::State& state, char const* ext) {
  std::string const& path = File(ext);
  if (path.empty()) {
    state.SkipWithError("the encoder program is missing");
    return;
  }
  LSoundSource s = LFFMPEGSourceManager::GetSoundSource(path);
  std::mt19937 gen(7);
  std::uniform_int_distribution<int> where(0, s->GetEndSample() - 4096);
  std::vector<float> block(4096 * 2);
  for (auto _ : state) {
    s->Seek(where(gen));
    s->Read(block.data(), 4096);
    benchmark::DoNotOptimize(block.data());
  }
}

void Export(benchmark::State& state, char const* ext) {
  for (auto _ : state) {
    std::string const p = Folder() + "/out" + ext;
    LSoundSink sink = std::string(ext) == ".flac" ? OpenFlacSink(p, kRate, 2, {}, nullptr) : OpenMp3Sink(p, kRate, 2, {});
    if (sink->IsError() || !Encode(sink)) {
      state.SkipWithError("the encoder program failed or is missing");
      return;
    }
  }
}

BENCHMARK_CAPTURE(ReadWhole, flac, ".flac")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadWhole, ogg, ".ogg")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RandomSeeks, flac, ".flac")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RandomSeeks, ogg, ".ogg")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Export, flac, ".flac")->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_CAPTURE(Export, mp3, ".mp3")->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
