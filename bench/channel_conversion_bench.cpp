// How fast the channel converters and the concatenation move frames: every
// clip and every surround fold-down passes through them on the player thread.
#include <benchmark/benchmark.h>

#include <vector>

#include "sound/channel_converters.h"
#include "sound/sound_source.h"
#include "sound/source_cat.h"

namespace {

void ConvertChannels(benchmark::State& state) {
  const int from = static_cast<int>(state.range(0));
  const int to = static_cast<int>(state.range(1));
  LSoundSource source = LSoundSource::Make<LSilenceSourceBase>(48000, from, 0x7FFFFFFF);
  LSoundSource converted = LSPConvChannels(to).OpenSource(source);
  std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * to);
  for (auto _ : state) {
    converted->Read(buffer.data(), LSoundMaxReadFrames);
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetItemsProcessed(state.iterations() * LSoundMaxReadFrames);
  state.SetLabel("frames");
}
BENCHMARK(ConvertChannels)->Args({1, 2})->Args({2, 1})->Args({6, 2})->Args({8, 2})->Args({8, 6})->Args({2, 3});

void ConcatenationRead(benchmark::State& state) {
  LSoundSourceCat cat;
  for (int i = 0; i < 8; ++i) {
    cat.AddSource(LSoundSource::Make<LSilenceSourceBase>(44100, 2, 44100));
    cat.AddSilence(250);
  }
  LSoundSource source = cat.OpenSource();
  std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 2);
  for (auto _ : state) {
    if (source->GetPositionSample() >= source->GetEndSample()) source->Seek(0);
    source->Read(buffer.data(), LSoundMaxReadFrames);
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetItemsProcessed(state.iterations() * LSoundMaxReadFrames);
}
BENCHMARK(ConcatenationRead);

}  // namespace
