#include "sound/convert_rate_kernels.h"

#if defined(__x86_64__) && defined(__SSE2__)
#define TANDREL_RATE_X86 1
#include <immintrin.h>
#endif

// Every clip whose rate differs from the mix's runs through these loops on the
// player thread, 63 multiply-adds per channel per output frame, so they are the
// hottest code of the program. Each works on whole vectors of taps (the table pads
// a phase to a multiple of 8 with zero taps) and keeps several partial sums, so
// the adds of one sum do not wait on each other. Stereo shares the tap loads
// between its two channels.

namespace {

// Moves to the next output frame: M / L whole input frames, and the rest as phase.
inline void Advance(LRateKernelArgs const& a, int& index, int& phase) {
  index += a.downWhole;
  phase += a.downRest;
  if (phase >= a.up) {
    phase -= a.up;
    ++index;
  }
}

// Portable: eight independent sums, which a compiler may put in vector registers of
// any width without reordering a single sum.
template <int S>
inline float DotPlain(float const* t, float const* x) {
  float acc[8] = {};
  for (int j = 0; j < S; j += 8) {
    for (int k = 0; k < 8; ++k) acc[k] += t[j + k] * x[j + k];
  }
  return ((acc[0] + acc[4]) + (acc[1] + acc[5])) + ((acc[2] + acc[6]) + (acc[3] + acc[7]));
}

struct PlainOps {
  template <int S>
  static float Dot(float const* t, float const* x) {
    return DotPlain<S>(t, x);
  }
  template <int S>
  static void Dot2(float const* t, float const* x0, float const* x1, float* out) {
    out[0] = DotPlain<S>(t, x0);
    out[1] = DotPlain<S>(t, x1);
  }
};

#ifdef TANDREL_RATE_X86

inline float HSum(__m128 v) {
  __m128 const high = _mm_movehl_ps(v, v);
  v = _mm_add_ps(v, high);
  return _mm_cvtss_f32(_mm_add_ss(v, _mm_shuffle_ps(v, v, 1)));
}

struct Sse2Ops {
  template <int S>
  static float Dot(float const* t, float const* x) {
    __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps(), a2 = _mm_setzero_ps(), a3 = _mm_setzero_ps();
    for (int j = 0; j < S; j += 16) {
      a0 = _mm_add_ps(a0, _mm_mul_ps(_mm_loadu_ps(t + j), _mm_loadu_ps(x + j)));
      a1 = _mm_add_ps(a1, _mm_mul_ps(_mm_loadu_ps(t + j + 4), _mm_loadu_ps(x + j + 4)));
      a2 = _mm_add_ps(a2, _mm_mul_ps(_mm_loadu_ps(t + j + 8), _mm_loadu_ps(x + j + 8)));
      a3 = _mm_add_ps(a3, _mm_mul_ps(_mm_loadu_ps(t + j + 12), _mm_loadu_ps(x + j + 12)));
    }
    return HSum(_mm_add_ps(_mm_add_ps(a0, a1), _mm_add_ps(a2, a3)));
  }
  template <int S>
  static void Dot2(float const* t, float const* x0, float const* x1, float* out) {
    __m128 l0 = _mm_setzero_ps(), l1 = _mm_setzero_ps(), r0 = _mm_setzero_ps(), r1 = _mm_setzero_ps();
    for (int j = 0; j < S; j += 8) {
      __m128 const ta = _mm_loadu_ps(t + j);
      __m128 const tb = _mm_loadu_ps(t + j + 4);
      l0 = _mm_add_ps(l0, _mm_mul_ps(ta, _mm_loadu_ps(x0 + j)));
      l1 = _mm_add_ps(l1, _mm_mul_ps(tb, _mm_loadu_ps(x0 + j + 4)));
      r0 = _mm_add_ps(r0, _mm_mul_ps(ta, _mm_loadu_ps(x1 + j)));
      r1 = _mm_add_ps(r1, _mm_mul_ps(tb, _mm_loadu_ps(x1 + j + 4)));
    }
    __m128 const l = _mm_add_ps(l0, l1);
    __m128 const r = _mm_add_ps(r0, r1);
    // Both sums at once: (l0+l2, r0+r2, l1+l3, r1+r3), then the halves.
    __m128 const lr = _mm_add_ps(_mm_unpacklo_ps(l, r), _mm_unpackhi_ps(l, r));
    _mm_storel_pi(reinterpret_cast<__m64*>(out), _mm_add_ps(lr, _mm_movehl_ps(lr, lr)));
  }
};

#endif

// The loop of every set but AVX2: C channels, or any number when C is 0.
template <class Ops, int S, int C>
void Run(LRateKernelArgs const& a, float* out, int frames, int& index, int& phase) {
  int idx = index;
  int ph = phase;
  int const channels = C != 0 ? C : a.channels;
  for (int f = 0; f < frames; ++f) {
    float const* t = a.table + static_cast<std::size_t>(ph) * S;
    float const* x = a.input + idx;
    if constexpr (C == 2) {
      Ops::template Dot2<S>(t, x, x + a.planeStride, out);
      out += 2;
    } else {
      for (int c = 0; c < channels; ++c) *out++ = Ops::template Dot<S>(t, x + c * a.planeStride);
    }
    Advance(a, idx, ph);
  }
  index = idx;
  phase = ph;
}

}  // namespace

#ifdef TANDREL_RATE_X86

// Built for AVX2 and FMA whatever the build's baseline; only reached after the
// processor said it has them. Everything it calls is defined in this region, so no
// AVX instruction leaks into code that runs on an older processor.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,fma"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma")
#endif

namespace {
namespace avx2 {

inline float HSum(__m256 v) {
  __m128 s = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
  s = _mm_add_ps(s, _mm_movehl_ps(s, s));
  return _mm_cvtss_f32(_mm_add_ss(s, _mm_shuffle_ps(s, s, 1)));
}

template <int S>
inline float Dot(float const* t, float const* x) {
  __m256 a0 = _mm256_setzero_ps(), a1 = _mm256_setzero_ps();
  if constexpr (S % 32 == 0) {
    __m256 a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    for (int j = 0; j < S; j += 32) {
      a0 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j), _mm256_loadu_ps(x + j), a0);
      a1 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j + 8), _mm256_loadu_ps(x + j + 8), a1);
      a2 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j + 16), _mm256_loadu_ps(x + j + 16), a2);
      a3 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j + 24), _mm256_loadu_ps(x + j + 24), a3);
    }
    a0 = _mm256_add_ps(a0, a2);
    a1 = _mm256_add_ps(a1, a3);
  } else {
    for (int j = 0; j < S; j += 16) {
      a0 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j), _mm256_loadu_ps(x + j), a0);
      a1 = _mm256_fmadd_ps(_mm256_loadu_ps(t + j + 8), _mm256_loadu_ps(x + j + 8), a1);
    }
  }
  return HSum(_mm256_add_ps(a0, a1));
}

template <int S>
inline void Dot2(float const* t, float const* x0, float const* x1, float* out) {
  __m256 l0 = _mm256_setzero_ps(), l1 = _mm256_setzero_ps(), r0 = _mm256_setzero_ps(), r1 = _mm256_setzero_ps();
  for (int j = 0; j < S; j += 16) {
    __m256 const ta = _mm256_loadu_ps(t + j);
    __m256 const tb = _mm256_loadu_ps(t + j + 8);
    l0 = _mm256_fmadd_ps(ta, _mm256_loadu_ps(x0 + j), l0);
    l1 = _mm256_fmadd_ps(tb, _mm256_loadu_ps(x0 + j + 8), l1);
    r0 = _mm256_fmadd_ps(ta, _mm256_loadu_ps(x1 + j), r0);
    r1 = _mm256_fmadd_ps(tb, _mm256_loadu_ps(x1 + j + 8), r1);
  }
  // (l01, l23, r01, r23 | l45, l67, r45, r67), the two halves added, then once more.
  __m256 const h = _mm256_hadd_ps(_mm256_add_ps(l0, l1), _mm256_add_ps(r0, r1));
  __m128 q = _mm_add_ps(_mm256_castps256_ps128(h), _mm256_extractf128_ps(h, 1));
  q = _mm_hadd_ps(q, q);
  _mm_storel_pi(reinterpret_cast<__m64*>(out), q);
}

template <int S, int C>
void Run(LRateKernelArgs const& a, float* out, int frames, int& index, int& phase) {
  int idx = index;
  int ph = phase;
  int const channels = C != 0 ? C : a.channels;
  for (int f = 0; f < frames; ++f) {
    float const* t = a.table + static_cast<std::size_t>(ph) * S;
    float const* x = a.input + idx;
    if constexpr (C == 2) {
      Dot2<S>(t, x, x + a.planeStride, out);
      out += 2;
    } else {
      for (int c = 0; c < channels; ++c) *out++ = Dot<S>(t, x + c * a.planeStride);
    }
    idx += a.downWhole;
    ph += a.downRest;
    if (ph >= a.up) {
      ph -= a.up;
      ++idx;
    }
  }
  index = idx;
  phase = ph;
}

}  // namespace avx2
}  // namespace

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif

namespace {

template <int S>
LRateKernel PickChannels(LRateKernelSet set, int channels) {
  switch (set) {
    case LRateKernelSet::Plain:
      return channels == 1 ? Run<PlainOps, S, 1> : channels == 2 ? Run<PlainOps, S, 2> : Run<PlainOps, S, 0>;
#ifdef TANDREL_RATE_X86
    case LRateKernelSet::Sse2:
      return channels == 1 ? Run<Sse2Ops, S, 1> : channels == 2 ? Run<Sse2Ops, S, 2> : Run<Sse2Ops, S, 0>;
    case LRateKernelSet::Avx2:
      return channels == 1 ? avx2::Run<S, 1> : channels == 2 ? avx2::Run<S, 2> : avx2::Run<S, 0>;
#endif
    default: return nullptr;
  }
}

}  // namespace

bool LRateKernelAvailable(LRateKernelSet set) {
  switch (set) {
    case LRateKernelSet::Plain: return true;
#ifdef TANDREL_RATE_X86
    case LRateKernelSet::Sse2: return true;
    case LRateKernelSet::Avx2: {
      static bool const has = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
      return has;
    }
#endif
    default: return false;
  }
}

LRateKernelSet LRateKernelBest() {
  if (LRateKernelAvailable(LRateKernelSet::Avx2)) return LRateKernelSet::Avx2;
  if (LRateKernelAvailable(LRateKernelSet::Sse2)) return LRateKernelSet::Sse2;
  return LRateKernelSet::Plain;
}

LRateKernel LRateKernelFor(LRateKernelSet set, int channels, int stride) {
  if (!LRateKernelAvailable(set) || channels < 1) return nullptr;
  if (stride == 64) return PickChannels<64>(set, channels);
  if (stride == 16) return PickChannels<16>(set, channels);
  return nullptr;
}
