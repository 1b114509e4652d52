#include "codecs/mp3_synthesis.h"

#include <atomic>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "codecs/mp3_simd.h"
#include "codecs/mp3_tables.h"

// Each time slot's 32 sub-band samples S[k] give the 64 values
// V[i] = sum over k of S[k] cos((16 + i)(2k + 1) pi / 64), and output j of the slot
// sums 16 windowed values: V[j] of the even-aged slots and V[32 + j] of the odd-aged
// ones, for ages 0 to 15. V is a 32-point DCT-II y folded by the symmetries of the
// cosine (V[i] = y[16 + i] below 16, V[16] = 0, -y[48 - i] up to 47, -y[i - 48]
// above), so only y is kept, and each output reads one row of y for the even ages
// and one for the odd ones, the folding's sign going into the window.
//
// Four consecutive time slots run side by side in one vector (eight with AVX2): the
// transform takes the four slots of each sub-band at once, its outputs are stored
// along time, and a window step reads four slots of one row of y, a slot's age apart
// from the next. The compiler may fuse multiplies and adds in the AVX2 code; the
// difference is far below what the output's rounding keeps.

namespace {

using V = LMP3Vec4;

// Unnormalised DCT-II, y[m] = sum of x[k] cos(pi (2k + 1) m / 2N), by halving: the
// even outputs are the transform of the folded sums, the odd ones come from the
// transform of the scaled differences, each added to its neighbour. `c` holds the
// scale factors of this size followed by those of every smaller one.
template <int N, class T>
inline __attribute__((always_inline)) void Dct(T const* x, T* y, float const* c) {
  if constexpr (N == 1) {
    y[0] = x[0];
  } else {
    constexpr int H = N / 2;
    T sum[H];
    T diff[H];
    for (int k = 0; k < H; ++k) {
      sum[k] = x[k] + x[N - 1 - k];
      diff[k] = (x[k] - x[N - 1 - k]) * c[k];
    }
    T even[H];
    T odd[H];
    Dct<H>(sum, even, c + H);
    Dct<H>(diff, odd, c + H);
    for (int m = 0; m < H; ++m) y[2 * m] = even[m];
    for (int m = 0; m < H - 1; ++m) y[2 * m + 1] = odd[m] + odd[m + 1];
    y[N - 1] = odd[H - 1];
  }
}

struct Window {
  // Output j reads row aEven[j] of y for the even ages and aOdd[j] for the odd ones
  // (row 32 is zero), weighted by aWeight[j][age], the folding's sign included;
  // aWeight4 holds the same spread over four lanes.
  int aEven[32];
  int aOdd[32];
  float aWeight[32][16];
  V aWeight4[32][16];

  Window() {
    LMP3LookupTables const& t = LMP3LookupTables::Get();
    for (int j = 0; j < 32; ++j) {
      float evenSign = 1;
      if (j < 16) {
        aEven[j] = j + 16;
      } else if (j == 16) {
        aEven[j] = 32;
      } else {
        aEven[j] = 48 - j;
        evenSign = -1;
      }
      aOdd[j] = j < 16 ? 16 - j : j - 16;
      for (int age = 0; age < 16; ++age) {
        float const sign = (age & 1) ? -1.0f : evenSign;
        aWeight[j][age] = sign * t.aSynthWindow[age][j];
        aWeight4[j][age] = LMP3Splat4(aWeight[j][age]);
      }
    }
  }
};

Window const& GetWindow() {
  static Window const window;
  return window;
}

// Ages 2 to 15 of one output, spelt out rather than looped so that they become fixed
// offsets.
template <int... K>
inline __attribute__((always_inline)) void Taps4(V& a, V& b, float const* even, float const* odd, V const* weight,
                                                 std::integer_sequence<int, K...>) {
  ((a += LMP3Load4(even - 2 * K - 2) * weight[2 * K + 2], b += LMP3Load4(odd - 2 * K - 3) * weight[2 * K + 3]),
   ...);
}

// Time slots t0 .. t0 + 3 of the frame, each vector lane a slot.
inline __attribute__((always_inline)) void FourSlots(float (*y)[LMP3PolyphaseSynth::kRow],
                                                     float const (*subbands)[LMP3SlotStride], int t0, float* pcm,
                                                     Window const& w, float const* dct) {
  int const t = LMP3PolyphaseSynth::kFirst + t0;
  V x[32];
  for (int k = 0; k < 32; ++k) x[k] = LMP3Load4(&subbands[k][t0]);
  V d[32];
  Dct<32>(x, d, dct);
  for (int m = 0; m < 32; ++m) LMP3Store4(&y[m][t], d[m]);
  for (int j0 = 0; j0 < 32; j0 += 4) {
    V acc[4];
    for (int n = 0; n < 4; ++n) {
      int const j = j0 + n;
      float const* even = &y[w.aEven[j]][t];
      float const* odd = &y[w.aOdd[j]][t];
      V const* weight = w.aWeight4[j];
      V a = LMP3Load4(even) * weight[0];
      V b = LMP3Load4(odd - 1) * weight[1];
      Taps4(a, b, even, odd, weight, std::make_integer_sequence<int, 7>{});
      acc[n] = a + b;
    }
    // acc[n] holds output j0 + n of four slots; the slots' outputs go out in turn.
    LMP3Transpose4(acc[0], acc[1], acc[2], acc[3]);
    for (int n = 0; n < 4; ++n) LMP3Store4(pcm + (t0 + n) * 32 + j0, acc[n]);
  }
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define TANDREL_MP3_SYNTH_AVX2 1

// Eight time slots at once in the 256-bit registers of AVX2, the window summed with
// fused multiply-adds, for the processors that have both.
typedef float V8 __attribute__((vector_size(32)));

__attribute__((target("avx2,fma"))) inline V8 Load8(float const* p) {
  V8 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <int... K>
__attribute__((target("avx2,fma"), always_inline)) inline void Taps8(__m256& a, __m256& b, float const* even, float const* odd,
                                                      float const* weight, std::integer_sequence<int, K...>) {
  ((a = _mm256_fmadd_ps(_mm256_loadu_ps(even - 2 * K - 2), _mm256_broadcast_ss(weight + 2 * K + 2), a),
    b = _mm256_fmadd_ps(_mm256_loadu_ps(odd - 2 * K - 3), _mm256_broadcast_ss(weight + 2 * K + 3), b)),
   ...);
}

__attribute__((target("avx2,fma"))) void SynthesizeAvx2(float (*y)[LMP3PolyphaseSynth::kRow],
                                                         float const (*subbands)[LMP3SlotStride], int slots,
                                                         float* pcm, Window const& w, float const* dct) {
  int t0 = 0;
  for (; t0 + 8 <= slots; t0 += 8) {
    int const t = LMP3PolyphaseSynth::kFirst + t0;
    V8 x[32];
    for (int k = 0; k < 32; ++k) x[k] = Load8(&subbands[k][t0]);
    V8 d[32];
    Dct<32>(x, d, dct);
    for (int m = 0; m < 32; ++m) std::memcpy(&y[m][t], &d[m], sizeof d[m]);
    for (int j0 = 0; j0 < 32; j0 += 4) {
      V8 acc[4];
      for (int n = 0; n < 4; ++n) {
        int const j = j0 + n;
        float const* even = &y[w.aEven[j]][t];
        float const* odd = &y[w.aOdd[j]][t];
        float const* weight = w.aWeight[j];
        __m256 a = _mm256_mul_ps(_mm256_loadu_ps(even), _mm256_broadcast_ss(weight));
        __m256 b = _mm256_mul_ps(_mm256_loadu_ps(odd - 1), _mm256_broadcast_ss(weight + 1));
        Taps8(a, b, even, odd, weight, std::make_integer_sequence<int, 7>{});
        acc[n] = (V8)_mm256_add_ps(a, b);
      }
      // Slots 0..3 in the low halves, 4..7 in the high ones.
      V lo[4];
      V hi[4];
      for (int n = 0; n < 4; ++n) {
        lo[n] = __builtin_shufflevector(acc[n], acc[n], 0, 1, 2, 3);
        hi[n] = __builtin_shufflevector(acc[n], acc[n], 4, 5, 6, 7);
      }
      LMP3Transpose4(lo[0], lo[1], lo[2], lo[3]);
      LMP3Transpose4(hi[0], hi[1], hi[2], hi[3]);
      for (int n = 0; n < 4; ++n) {
        LMP3Store4(pcm + (t0 + n) * 32 + j0, lo[n]);
        LMP3Store4(pcm + (t0 + 4 + n) * 32 + j0, hi[n]);
      }
    }
  }
  for (; t0 < slots; t0 += 4) FourSlots(y, subbands, t0, pcm, w, dct);
}

bool HaveAvx2() {
  static bool const have = [] {
    __builtin_cpu_init();  // in case this runs before the program's constructors have
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  }();
  return have;
}
#endif

std::atomic<bool> gAllowWide{true};

}  // namespace

void LMP3PolyphaseSynth::AllowWideVectors(bool allow) { gAllowWide.store(allow, std::memory_order_relaxed); }

void LMP3PolyphaseSynth::Reset() { std::memset(aY, 0, sizeof aY); }

void LMP3PolyphaseSynth::Synthesize(float const (*subbands)[LMP3SlotStride], int slots, float* pcm) {
  Window const& w = GetWindow();
  float const* dct = LMP3LookupTables::Get().aDct32;
#ifdef TANDREL_MP3_SYNTH_AVX2
  if (HaveAvx2() && gAllowWide.load(std::memory_order_relaxed)) {
    SynthesizeAvx2(aY, subbands, slots, pcm, w, dct);
  } else
#endif
  {
    for (int t0 = 0; t0 < slots; t0 += 4) FourSlots(aY, subbands, t0, pcm, w, dct);
  }
  // The last 15 slots are the history of the next frame.
  for (int m = 0; m < 32; ++m) std::memmove(&aY[m][1], &aY[m][kFirst + slots - 15], 15 * sizeof(float));
}

namespace {

// Rounds to the integer scale, halves away from zero, and holds the result in the
// 32-bit range; NaN compares false and takes the lower bound.
inline LMP3Int4 ToIntegers(V x) {
  V const lo = LMP3Splat4(-2147483520.0f);
  V const hi = LMP3Splat4(2147483520.0f);
  V v = x * LMP3IntegerScale;
  v = LMP3Select4(v > lo, v, lo);
  v = LMP3Select4(v > hi, hi, v);
  v += LMP3Select4(v >= LMP3Splat4(0), LMP3Splat4(0.5f), LMP3Splat4(-0.5f));
  return __builtin_convertvector(v, LMP3Int4);
}

// The integers back as floats: exact, as every integer the rounding gives is a float
// (it comes from one) and 2^-27 is a power of two.
inline V Steps(LMP3Int4 i) { return __builtin_convertvector(i, V) * (1.0f / LMP3IntegerScale); }

template <class Out, class Convert>
void Interleave(float const* left, float const* right, int samples, Out* out, Convert convert) {
  int i = 0;
  if (right == nullptr) {
    for (; i + 4 <= samples; i += 4) {
      auto const v = convert(LMP3Load4(left + i));
      std::memcpy(out + i, &v, sizeof v);
    }
  } else {
    for (; i + 4 <= samples; i += 4) {
      auto const l = convert(LMP3Load4(left + i));
      auto const r = convert(LMP3Load4(right + i));
      auto const first = __builtin_shufflevector(l, r, 0, 4, 1, 5);
      auto const second = __builtin_shufflevector(l, r, 2, 6, 3, 7);
      std::memcpy(out + 2 * i, &first, sizeof first);
      std::memcpy(out + 2 * i + 4, &second, sizeof second);
    }
  }
}

}  // namespace

void LMP3ToIntegers(float const* left, float const* right, int samples, std::int32_t* out) {
  Interleave(left, right, samples, out, ToIntegers);
}

void LMP3ToIntegerSteps(float const* left, float const* right, int samples, float* out) {
  Interleave(left, right, samples, out, [](V x) { return Steps(ToIntegers(x)); });
}
