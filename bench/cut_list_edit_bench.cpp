// Cost of cut list edits as the list grows. An edit must cost the same, or grow
// with the logarithm of the segment count, however long the list and the audio:
// a user cutting a long, much-edited recording waits for nothing.
//
//   build/bench/cut_list_edit_bench
//
// Each list has N segments of 1000 frames over one audio file (no file is read).
#include <benchmark/benchmark.h>

#include <random>

#include "project/audio_cut_tank.h"
#include "project/cut_list_audio.h"

namespace {

constexpr int kSegmentFrames = 1000;

LCutListAudio MakeList(int segments) {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  // No working folder: nothing is ever deleted, and no file is touched.
  tank.SetWorkingFolder("");
  LAudioCutRef const cut = tank.CreateNewRefAndIncRef();
  LCutListAudio list;
  for (int i = 0; i < segments; ++i) {
    if (i % 2 == 0) {
      list.AppendSegment(LCutListSegment(cut, i * kSegmentFrames, kSegmentFrames));
    } else {
      list.AppendSegment(LCutListSegment(LAudioCutRefNull, 0, kSegmentFrames));
    }
  }
  return list;
}

// Cut three segments out and paste them back where they were: two edits that
// leave the list as it was, so the size stays N through the run.
void CutAndPasteBack(benchmark::State& state) {
  int const segments = static_cast<int>(state.range(0));
  LCutListAudio list = MakeList(segments);
  LCutListAudio clip;
  std::mt19937 rng(1);
  std::uniform_int_distribution<int> at(0, segments - 4);
  for (auto _ : state) {
    int const p = at(rng) * kSegmentFrames;
    list.EfCopy(p, p + 3 * kSegmentFrames, clip);
    list.EfDelete(p, p + 3 * kSegmentFrames);
    list.EfInsert(p, clip);
  }
  if (list.GetSegmentCount() != segments) state.SkipWithError("the list changed size");
  state.counters["segments"] = segments;
}

// Silence a short span anywhere, cutting segments in two: the list grows by a
// few segments per edit, as a real editing session's does.
void SilenceAnywhere(benchmark::State& state) {
  int const segments = static_cast<int>(state.range(0));
  LCutListAudio list = MakeList(segments);
  std::mt19937 rng(2);
  std::uniform_int_distribution<int> at(0, segments * kSegmentFrames - 500);
  for (auto _ : state) {
    int const p = at(rng);
    list.EfSilence(p, p + 300);
  }
  state.counters["segments"] = segments;
}

// Copying a span out of the list, as a split or a copy to the clipboard does.
void CopySpan(benchmark::State& state) {
  int const segments = static_cast<int>(state.range(0));
  LCutListAudio const list = MakeList(segments);
  LCutListAudio out;
  std::mt19937 rng(3);
  std::uniform_int_distribution<int> at(0, segments * kSegmentFrames - 5000);
  for (auto _ : state) {
    int const p = at(rng);
    list.EfCopy(p, p + 4321, out);
    benchmark::DoNotOptimize(out.GetEndSample());
  }
  state.counters["segments"] = segments;
}

// For comparison: a whole copy of the list (an undo snapshot), which is linear.
void CopyWholeList(benchmark::State& state) {
  int const segments = static_cast<int>(state.range(0));
  LCutListAudio const list = MakeList(segments);
  for (auto _ : state) {
    LCutListAudio copy = list;
    benchmark::DoNotOptimize(copy.GetEndSample());
  }
  state.counters["segments"] = segments;
}

}  // namespace

BENCHMARK(CutAndPasteBack)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(SilenceAnywhere)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(CopySpan)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(CopyWholeList)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);
