#include "codecs/mp3_synthesis.h"

#include <cstring>

#include "codecs/mp3_tables.h"

namespace {

// Unnormalised DCT-II, y[m] = sum of x[k] cos(pi (2k + 1) m / 2N), by halving: the
// even outputs are the transform of the folded sums, the odd ones come from the
// transform of the scaled differences, each added to its neighbour. `c` holds the
// scale factors of this size followed by those of every smaller one.
template <int N>
inline void Dct(float const* x, float* y, float const* c) {
  if constexpr (N == 1) {
    y[0] = x[0];
  } else {
    constexpr int H = N / 2;
    float sum[H];
    float diff[H];
    for (int k = 0; k < H; ++k) {
      sum[k] = x[k] + x[N - 1 - k];
      diff[k] = (x[k] - x[N - 1 - k]) * c[k];
    }
    float even[H];
    float odd[H];
    Dct<H>(sum, even, c + H);
    Dct<H>(diff, odd, c + H);
    for (int m = 0; m < H; ++m) y[2 * m] = even[m];
    for (int m = 0; m < H - 1; ++m) y[2 * m + 1] = odd[m] + odd[m + 1];
    y[N - 1] = odd[H - 1];
  }
}

inline std::int32_t ToInteger(float x) {
  float v = x * LMP3IntegerScale;
  // Keeps the conversion defined for any value, NaN included (it compares false and
  // takes the lower bound).
  if (!(v > -2147483520.0f)) v = -2147483520.0f;
  if (v > 2147483520.0f) v = 2147483520.0f;
  return static_cast<std::int32_t>(v + (v >= 0 ? 0.5f : -0.5f));
}

}  // namespace

void LMP3PolyphaseSynth::Reset() {
  std::memset(aHistory, 0, sizeof aHistory);
  iHead = 0;
}

void LMP3PolyphaseSynth::MatrixMultiply(float const* s, float* v) {
  float y[32];
  Dct<32>(s, y, LMP3LookupTables::Get().aDct32);
  // V[i] is y at 16 + i, folded back into 0..31 by the symmetries of the cosine:
  // y(32) = 0, y(64 - m) = -y(m), y(64 + m) = -y(m).
  for (int i = 0; i < 16; ++i) v[i] = y[i + 16];
  v[16] = 0;
  for (int i = 17; i < 48; ++i) v[i] = -y[48 - i];
  for (int i = 48; i < 64; ++i) v[i] = -y[i - 48];
}

void LMP3PolyphaseSynth::Synthesize(float const (*subbands)[32], std::int32_t* out, int stride) {
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  for (int slot = 0; slot < 18; ++slot) {
    iHead = (iHead + 15) & 15;
    MatrixMultiply(subbands[slot], aHistory[iHead]);
    // Output j sums 16 windowed history values: the first half of the even-aged
    // vectors and the second half of the odd-aged ones.
    float acc[32] = {};
    for (int r = 0; r < 16; ++r) {
      float const* v = aHistory[(iHead + r) & 15] + ((r & 1) ? 32 : 0);
      float const* d = t.aSynthWindow[r];
      for (int j = 0; j < 32; ++j) acc[j] += v[j] * d[j];
    }
    for (int j = 0; j < 32; ++j) out[(slot * 32 + j) * stride] = ToInteger(acc[j]);
  }
}
