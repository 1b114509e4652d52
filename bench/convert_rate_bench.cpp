// How fast the rate converter is beside two resamplers of good name: every clip
// whose rate differs from the mix's runs through it on the player thread, and the
// copy job runs whole files through it. Each program converts the same 10 minutes
// of stereo from 44100 to 48000, in blocks of 8192 frames, single-threaded; the
// "audio_s_per_s" counter is the seconds of sound converted in a second of time.
//
// libsoxr (high quality) and libsamplerate (best sinc) are linked only into this
// program, when pkg-config finds them.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "sound/convert_rate.h"
#include "sound/convert_rate_kernels.h"
#include "sound/sound_source.h"

#ifdef TANDREL_BENCH_SOXR
#include <soxr.h>
#endif
#ifdef TANDREL_BENCH_SAMPLERATE
#include <samplerate.h>
#endif

namespace {

constexpr int kInRate = 44100;
constexpr int kOutRate = 48000;
constexpr int kChannels = 2;
constexpr long kTotalFrames = 10L * 60 * kInRate;  // 10 minutes
constexpr int kBlock = LSoundMaxReadFrames;

// One second of a busy signal (a chord, a sweep and noise), repeated: every
// converter reads the same frames from the same memory.
std::vector<float> const& Material() {
  static std::vector<float> const m = [] {
    std::vector<float> v(static_cast<std::size_t>(kInRate) * kChannels);
    unsigned noise = 12345;
    for (int f = 0; f < kInRate; ++f) {
      double const t = static_cast<double>(f) / kInRate;
      double const chord = 0.2 * std::sin(2 * std::numbers::pi * 220 * t) +
                           0.15 * std::sin(2 * std::numbers::pi * 277.2 * t) +
                           0.1 * std::sin(2 * std::numbers::pi * 329.6 * t);
      double const sweep = 0.1 * std::sin(2 * std::numbers::pi * (100 + 10000 * t) * t);
      for (int c = 0; c < kChannels; ++c) {
        noise = noise * 1664525u + 1013904223u;
        double const n = 0.02 * (static_cast<double>(noise >> 8) / (1 << 24) - 0.5);
        v[static_cast<std::size_t>(f) * kChannels + c] = static_cast<float>(chord + (c ? -sweep : sweep) + n);
      }
    }
    return v;
  }();
  return m;
}

// Copies `frames` frames of the material from `at` on, going round the second.
void CopyMaterial(long at, float* out, int frames) {
  std::vector<float> const& m = Material();
  while (frames > 0) {
    long const inSecond = at % kInRate;
    int const n = static_cast<int>(std::min<long>(frames, kInRate - inSecond));
    std::memcpy(out, m.data() + inSecond * kChannels, sizeof(float) * static_cast<std::size_t>(n) * kChannels);
    out += static_cast<std::size_t>(n) * kChannels;
    at += n;
    frames -= n;
  }
}

// The material as a source of 10 minutes.
class MaterialSource : public LSoundSourceBase {
 public:
  MaterialSource() : LSoundSourceBase(kInRate, kChannels, LSoundPeakInRange) {}
  void Read(float* buffer, int frames) override {
    CopyMaterial(lPosition, buffer, frames);
    lPosition += frames;
  }
  int GetPositionSample() const override { return static_cast<int>(lPosition); }
  int GetEndSample() const override { return static_cast<int>(kTotalFrames); }
  void Seek(int frame) override { lPosition = frame; }

 private:
  long lPosition = 0;
};

void Report(benchmark::State& state, long outFrames) {
  state.SetItemsProcessed(state.iterations() * kTotalFrames);
  state.counters["audio_s_per_s"] =
      benchmark::Counter(static_cast<double>(kTotalFrames) / kInRate * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
  state.counters["out_frames"] = static_cast<double>(outFrames);
}

void Tandrel_LSRCConvertRate(benchmark::State& state) {
  std::vector<float> out(static_cast<std::size_t>(kBlock) * kChannels);
  long produced = 0;
  for (auto _ : state) {
    LSoundSource s = LSPConvertRate(kOutRate).OpenSource(LSoundSource::Make<MaterialSource>());
    int const end = s->GetEndSample();
    produced = 0;
    while (produced < end) {
      int const n = static_cast<int>(std::min<long>(kBlock, end - produced));
      s->Read(out.data(), n);
      benchmark::DoNotOptimize(out.data());
      produced += n;
    }
  }
  Report(state, produced);
}
BENCHMARK(Tandrel_LSRCConvertRate)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

#ifdef TANDREL_BENCH_SOXR
void Soxr_HQ(benchmark::State& state) {
  std::vector<float> in(static_cast<std::size_t>(kBlock) * kChannels);
  std::vector<float> out(static_cast<std::size_t>(kBlock) * 2 * kChannels);
  long produced = 0;
  for (auto _ : state) {
    soxr_error_t error = nullptr;
    soxr_io_spec_t const io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    soxr_quality_spec_t const quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_runtime_spec_t const runtime = soxr_runtime_spec(1);  // one thread, as the others
    soxr_t soxr = soxr_create(kInRate, kOutRate, kChannels, &error, &io, &quality, &runtime);
    if (error != nullptr) {
      state.SkipWithError(error);
      return;
    }
    produced = 0;
    for (long at = 0; at < kTotalFrames;) {
      int const n = static_cast<int>(std::min<long>(kBlock, kTotalFrames - at));
      CopyMaterial(at, in.data(), n);
      at += n;
      std::size_t used = 0;
      while (used < static_cast<std::size_t>(n)) {
        std::size_t idone = 0;
        std::size_t odone = 0;
        soxr_process(soxr, in.data() + used * kChannels, n - used, &idone, out.data(), out.size() / kChannels, &odone);
        benchmark::DoNotOptimize(out.data());
        used += idone;
        produced += static_cast<long>(odone);
      }
    }
    for (std::size_t odone = 1; odone > 0;) {  // the tail
      soxr_process(soxr, nullptr, 0, nullptr, out.data(), out.size() / kChannels, &odone);
      produced += static_cast<long>(odone);
    }
    soxr_delete(soxr);
  }
  Report(state, produced);
}
BENCHMARK(Soxr_HQ)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
#endif

#ifdef TANDREL_BENCH_SAMPLERATE
void Libsamplerate_SincBest(benchmark::State& state) {
  std::vector<float> in(static_cast<std::size_t>(kBlock) * kChannels);
  std::vector<float> out(static_cast<std::size_t>(kBlock) * 2 * kChannels);
  long produced = 0;
  for (auto _ : state) {
    int error = 0;
    SRC_STATE* src = src_new(SRC_SINC_BEST_QUALITY, kChannels, &error);
    if (src == nullptr) {
      state.SkipWithError(src_strerror(error));
      return;
    }
    produced = 0;
    for (long at = 0; at < kTotalFrames;) {
      int const n = static_cast<int>(std::min<long>(kBlock, kTotalFrames - at));
      CopyMaterial(at, in.data(), n);
      at += n;
      SRC_DATA d{};
      d.data_in = in.data();
      d.input_frames = n;
      d.src_ratio = static_cast<double>(kOutRate) / kInRate;
      d.end_of_input = at >= kTotalFrames;
      do {
        d.data_out = out.data();
        d.output_frames = static_cast<long>(out.size() / kChannels);
        src_process(src, &d);
        benchmark::DoNotOptimize(out.data());
        produced += d.output_frames_gen;
        d.data_in += d.input_frames_used * kChannels;
        d.input_frames -= d.input_frames_used;
      } while (d.input_frames > 0 || (d.end_of_input && d.output_frames_gen > 0));
    }
    src_delete(src);
  }
  Report(state, produced);
}
BENCHMARK(Libsamplerate_SincBest)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
#endif

// The inner loop alone, one instruction set at a time, on the converter's own
// table: 8192 stereo output frames a run.
void Tandrel_RateKernel(benchmark::State& state) {
  auto const set = static_cast<LRateKernelSet>(state.range(0));
  if (!LRateKernelAvailable(set)) {
    state.SkipWithError("not available on this processor");
    return;
  }
  LSRCConvertRate conv(LSoundSource::Make<MaterialSource>(), kOutRate);
  LRateKernel kernel = LRateKernelFor(set, kChannels, conv.GetStride());
  std::size_t const planeStride = 16384;
  std::vector<float> input(planeStride * kChannels);
  std::memcpy(input.data(), Material().data(), sizeof(float) * input.size());
  std::vector<float> out(static_cast<std::size_t>(kBlock) * kChannels);
  LRateKernelArgs const args{
      conv.GetPhaseTaps(0),         input.data(), planeStride, kChannels, conv.GetUp(), conv.GetDown() / conv.GetUp(),
      conv.GetDown() % conv.GetUp()};
  for (auto _ : state) {
    int index = 0;
    int phase = 0;
    kernel(args, out.data(), kBlock, index, phase);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlock);
  state.SetLabel(set == LRateKernelSet::Plain ? "plain" : set == LRateKernelSet::Sse2 ? "sse2" : "avx2+fma");
}
BENCHMARK(Tandrel_RateKernel)->DenseRange(0, 2);

}  // namespace
