#pragma once
// The inner loops of the polyphase rate converter, kept apart so that each can be
// built for its instruction set and tested against the others. Only
// sound/convert_rate.cpp and the tests use this header.
#include <cstddef>

// Everything a run of output frames needs. The input is planar: channel c's frame i
// is input[c * planeStride + i]. Phase p's taps are table[p * stride .. + stride),
// the taps past the filter's length being zero, so a kernel can always work in
// whole vectors; it reads input frames index .. index + stride - 1 of each output.
struct LRateKernelArgs {
  float const* table;
  float const* input;
  std::size_t planeStride;
  int channels;
  int up;         // L: phases
  int downWhole;  // M / L: input frames every output frame moves on by
  int downRest;   // M % L: and then this much phase
};

// Makes `frames` output frames, interleaved, into `out`, starting at input frame
// `index` with phase `phase`, and leaves both where the next frame would start.
using LRateKernel = void (*)(LRateKernelArgs const& args, float* out, int frames, int& index, int& phase);

// Instruction sets a kernel may be built for. Plain is portable C++; Sse2 is the
// x86-64 baseline; Avx2 also uses FMA and is only taken when the processor has both.
enum class LRateKernelSet { Plain, Sse2, Avx2 };

// Whether this build and this processor can run a set.
bool LRateKernelAvailable(LRateKernelSet set);
// The fastest available set, decided once.
LRateKernelSet LRateKernelBest();
// The kernel for `channels` channels and `stride` taps a phase (16 or 64), or null
// for another stride or a set that is not available.
LRateKernel LRateKernelFor(LRateKernelSet set, int channels, int stride);
