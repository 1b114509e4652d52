#include "codecs/mp3_imdct.h"

#include <cmath>

#include "codecs/mp3_simd.h"

// A long block's 36 outputs are x[i] = sum over k of X[k] cos(pi/72 (2i + 19)(2k + 1)).
// With C[n] = sum over k of X[k] cos(pi/72 (2n + 1)(2k + 1)), an 18-point DCT-IV,
// the cosine's symmetries give x[i] = C[i + 9] for i < 9, -C[26 - i] for i < 27 and
// -C[i - 27] above. The DCT-IV is worked out through a 9-point complex DFT between
// two sets of rotations (see Dct4Of18): some 110 multiplications instead of 324,
// done for four sub-bands at once, as accurate as the plain sums.
//
// A short block is three 12-point IMDCTs, each a 6-point DCT-IV mapped the same way:
// x[i] = C[i + 3] for i < 3, -C[8 - i] for i < 9 and -C[i - 9] above; the 6-point
// transform is done by its 36 products, which for four sub-bands at once is cheap.

namespace {

using V = LMP3Vec4;

constexpr double kPi = 3.14159265358979323846;

struct Constants {
  // Rotations of the 18-point DCT-IV: before the DFT by pi (4j + 1) / 72, inside it
  // by 2 pi n / 9 (n = 1, 2, 4 at [0], [1], [3]), after it by pi m / 18.
  float aPreCos[9];
  float aPreSin[9];
  float aTwiddleCos[4];
  float aTwiddleSin[4];
  float aPostCos[9];
  float aPostSin[9];
  float halfRoot3;
  // Long windows by block type, with the signs of the output mapping: a time slot's
  // output i takes aOut[type][i] times one C, and the overlap aKeep[type][i] times
  // another.
  V aOut[4][18];
  V aKeep[4][18];
  // The 6-point DCT-IV, and the short window with the mapping's signs for the first
  // six and the last six of each window's twelve outputs.
  float aShortDct[6][6];
  float aShortFirst[6];
  float aShortSecond[6];

  Constants() {
    for (int j = 0; j < 9; ++j) {
      aPreCos[j] = static_cast<float>(std::cos(kPi * (4 * j + 1) / 72));
      aPreSin[j] = static_cast<float>(std::sin(kPi * (4 * j + 1) / 72));
      aPostCos[j] = static_cast<float>(std::cos(kPi * j / 18));
      aPostSin[j] = static_cast<float>(std::sin(kPi * j / 18));
    }
    for (int n = 1; n <= 4; ++n) {
      aTwiddleCos[n - 1] = static_cast<float>(std::cos(2 * kPi * n / 9));
      aTwiddleSin[n - 1] = static_cast<float>(std::sin(2 * kPi * n / 9));
    }
    halfRoot3 = static_cast<float>(std::sqrt(3.0) / 2);
    for (int type = 0; type < 4; ++type) {
      for (int i = 0; i < 36; ++i) {
        double const longSine = std::sin(kPi / 36 * (i + 0.5));
        double w = longSine;  // normal
        if (type == 1) {
          // Start block: half a long sine, flat, half a short sine, zeros.
          if (i >= 30) w = 0;
          else if (i >= 24) w = std::sin(kPi / 12 * (i - 18 + 0.5));
          else if (i >= 18) w = 1;
        } else if (type == 3) {
          // Stop block: the mirror image.
          if (i < 6) w = 0;
          else if (i < 12) w = std::sin(kPi / 12 * (i - 6 + 0.5));
          else if (i < 18) w = 1;
        }
        float const f = static_cast<float>(w);
        if (i < 18) aOut[type][i] = LMP3Splat4(i < 9 ? f : -f);
        else aKeep[type][i - 18] = LMP3Splat4(-f);
      }
    }
    for (int n = 0; n < 6; ++n) {
      for (int k = 0; k < 6; ++k) aShortDct[n][k] = static_cast<float>(std::cos(kPi / 24 * (2 * n + 1) * (2 * k + 1)));
    }
    for (int i = 0; i < 6; ++i) {
      float const first = static_cast<float>(std::sin(kPi / 12 * (i + 0.5)));
      float const second = static_cast<float>(std::sin(kPi / 12 * (i + 6 + 0.5)));
      aShortFirst[i] = i < 3 ? first : -first;
      aShortSecond[i] = -second;
    }
  }
};

Constants const& K() {
  static Constants const constants;
  return constants;
}

// A 3-point DFT with e^(+2 pi i / 3), in place on (re, im) pairs.
inline void Dft3(V& ar, V& ai, V& br, V& bi, V& cr, V& ci, float halfRoot3) {
  V const sr = br + cr;
  V const si = bi + ci;
  V const dr = (br - cr) * halfRoot3;
  V const di = (bi - ci) * halfRoot3;
  V const tr = ar - sr * 0.5f;
  V const ti = ai - si * 0.5f;
  ar += sr;
  ai += si;
  br = tr - di;
  bi = ti + dr;
  cr = tr + di;
  ci = ti - dr;
}

inline void Rotate(V& re, V& im, float cosine, float sine) {
  V const r = re * cosine - im * sine;
  im = re * sine + im * cosine;
  re = r;
}

// C[n] = sum over k < 18 of x[k] cos(pi (2n + 1)(2k + 1) / 72), through a 9-point
// complex DFT: w[j] = (x[2j] - i x[17 - 2j]) e^(i pi (4j + 1) / 72), Z = its DFT with
// e^(+2 pi i m j / 9), and Z[m] e^(i pi m / 18) holds C[2m] as its real part and
// C[17 - 2m] as its imaginary part. Only rotations: no step magnifies rounding.
inline void Dct4Of18(V const* x, V* out, Constants const& c) {
  V re[9];
  V im[9];
  for (int j = 0; j < 9; ++j) {
    re[j] = x[2 * j] * c.aPreCos[j] + x[17 - 2 * j] * c.aPreSin[j];
    im[j] = x[2 * j] * c.aPreSin[j] - x[17 - 2 * j] * c.aPreCos[j];
  }
  // Nine points as three by three: 3-point DFTs over j / 3, twiddles, 3-point DFTs
  // over j % 3. Slot 3 m1 + j2 ends holding Z[m1 + 3 m2] at 3 m1 + m2.
  for (int j2 = 0; j2 < 3; ++j2) Dft3(re[j2], im[j2], re[3 + j2], im[3 + j2], re[6 + j2], im[6 + j2], c.halfRoot3);
  Rotate(re[4], im[4], c.aTwiddleCos[0], c.aTwiddleSin[0]);
  Rotate(re[5], im[5], c.aTwiddleCos[1], c.aTwiddleSin[1]);
  Rotate(re[7], im[7], c.aTwiddleCos[1], c.aTwiddleSin[1]);
  Rotate(re[8], im[8], c.aTwiddleCos[3], c.aTwiddleSin[3]);
  for (int m1 = 0; m1 < 3; ++m1) {
    Dft3(re[3 * m1], im[3 * m1], re[3 * m1 + 1], im[3 * m1 + 1], re[3 * m1 + 2], im[3 * m1 + 2], c.halfRoot3);
  }
  for (int m = 0; m < 9; ++m) {
    int const slot = 3 * (m % 3) + m / 3;
    out[2 * m] = re[slot] * c.aPostCos[m] - im[slot] * c.aPostSin[m];
    out[17 - 2 * m] = re[slot] * c.aPostSin[m] + im[slot] * c.aPostCos[m];
  }
}

// One long block for four sub-bands: out[i] and the new overlap from C.
inline void LongBlock(V const* x, V const* outWindow, V const* keepWindow, V* ov, V* out, Constants const& c) {
  V d[18];
  Dct4Of18(x, d, c);
  for (int i = 0; i < 9; ++i) {
    out[i] = d[i + 9] * outWindow[i] + ov[i];
    out[i + 9] = d[17 - i] * outWindow[i + 9] + ov[i + 9];
    ov[i] = d[8 - i] * keepWindow[i];
    ov[i + 9] = d[i] * keepWindow[i + 9];
  }
}

// Three short blocks for four sub-bands; x holds each window's six lines in turn.
inline void ShortBlocks(V const* x, V* ov, V* out, Constants const& c) {
  // first[w][i]: window w's outputs 0..5 with the window applied; second[w][i]: 6..11.
  V first[3][6];
  V second[3][6];
  for (int w = 0; w < 3; ++w) {
    V d[6];
    for (int n = 0; n < 6; ++n) {
      V acc = x[6 * w] * c.aShortDct[n][0];
      for (int k = 1; k < 6; ++k) acc += x[6 * w + k] * c.aShortDct[n][k];
      d[n] = acc;
    }
    for (int i = 0; i < 6; ++i) {
      first[w][i] = d[i < 3 ? i + 3 : 8 - i] * c.aShortFirst[i];
      second[w][i] = d[i < 3 ? 2 - i : i - 3] * c.aShortSecond[i];
    }
  }
  // The windows sit at 6, 12 and 18 of the 36 points and overlap by half.
  for (int i = 0; i < 6; ++i) {
    out[i] = ov[i];
    out[i + 6] = ov[i + 6] + first[0][i];
    out[i + 12] = ov[i + 12] + (second[0][i] + first[1][i]);
    ov[i] = second[1][i] + first[2][i];
    ov[i + 6] = second[2][i];
    ov[i + 12] = LMP3Splat4(0);
  }
}

// The 18 lines of sub-bands 4g .. 4g + 3, one vector per line.
inline void LoadLines(float const* spectrum, int g, V* x) {
  float const* p = spectrum + 72 * g;
  for (int k = 0; k < 16; k += 4) {
    V a = LMP3Load4(p + k);
    V b = LMP3Load4(p + 18 + k);
    V c = LMP3Load4(p + 36 + k);
    V d = LMP3Load4(p + 54 + k);
    LMP3Transpose4(a, b, c, d);
    x[k] = a;
    x[k + 1] = b;
    x[k + 2] = c;
    x[k + 3] = d;
  }
  for (int k = 16; k < 18; ++k) x[k] = V{p[k], p[18 + k], p[36 + k], p[54 + k]};
}

}  // namespace

void LMP3InverseMdct(float const* spectrum, int blockType, bool mixed, int usedSubbands, float (*overlap)[32],
                     float (*out)[LMP3SlotStride], int firstSlot) {
  Constants const& c = K();
  // Odd sub-bands come out of the filter bank inverted in frequency: every other
  // time slot of them changes sign.
  V const invert = {1.0f, -1.0f, 1.0f, -1.0f};
  for (int g = 0; g < 8; ++g) {
    V ov[18];
    V o[18];
    for (int i = 0; i < 18; ++i) ov[i] = LMP3Load4(&overlap[i][4 * g]);
    if (4 * g >= usedSubbands) {
      for (int i = 0; i < 18; ++i) {
        o[i] = ov[i];
        ov[i] = LMP3Splat4(0);
      }
    } else {
      V x[18];
      LoadLines(spectrum, g, x);
      if (g == 0 && mixed) {
        // The two lowest sub-bands are normal long blocks, the other two of the
        // four follow the block type.
        LMP3Int4 const low = {-1, -1, 0, 0};
        if (blockType == 2) {
          V ovLong[18];
          V oLong[18];
          for (int i = 0; i < 18; ++i) ovLong[i] = ov[i];
          LongBlock(x, c.aOut[0], c.aKeep[0], ovLong, oLong, c);
          ShortBlocks(x, ov, o, c);
          for (int i = 0; i < 18; ++i) {
            o[i] = LMP3Select4(low, oLong[i], o[i]);
            ov[i] = LMP3Select4(low, ovLong[i], ov[i]);
          }
        } else {
          V outWindow[18];
          V keepWindow[18];
          for (int i = 0; i < 18; ++i) {
            outWindow[i] = LMP3Select4(low, c.aOut[0][i], c.aOut[blockType][i]);
            keepWindow[i] = LMP3Select4(low, c.aKeep[0][i], c.aKeep[blockType][i]);
          }
          LongBlock(x, outWindow, keepWindow, ov, o, c);
        }
      } else if (blockType == 2) {
        ShortBlocks(x, ov, o, c);
      } else {
        LongBlock(x, c.aOut[blockType], c.aKeep[blockType], ov, o, c);
      }
    }
    for (int i = 0; i < 18; ++i) {
      LMP3Store4(&overlap[i][4 * g], ov[i]);
      if (i & 1) o[i] *= invert;
    }
    // Out by sub-band: each four time slots of the four sub-bands turned around.
    V tail[4] = {o[16], o[17], LMP3Splat4(0), LMP3Splat4(0)};
    for (int i = 0; i < 20; i += 4) {
      V* v = i < 16 ? o + i : tail;
      LMP3Transpose4(v[0], v[1], v[2], v[3]);
      for (int n = 0; n < 4; ++n) LMP3Store4(&out[4 * g + n][firstSlot + i], v[n]);
    }
  }
}
