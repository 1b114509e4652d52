#include "sound/gsm610.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <limits>

// Every operation below works on 16-bit words and 32-bit longs with the saturating,
// rounding primitives the standard defines, in the order it defines them: any other
// order changes the low bits, and the codec is only interoperable when bit-exact.

namespace {

using Word = std::int16_t;
using Long = std::int32_t;

constexpr Word kWordMax = std::numeric_limits<Word>::max();
constexpr Word kWordMin = std::numeric_limits<Word>::min();

Word Sat(Long x) {
  return static_cast<Word>(std::clamp<Long>(x, kWordMin, kWordMax));
}
Long LSat(std::int64_t x) {
  return static_cast<Long>(
      std::clamp<std::int64_t>(x, std::numeric_limits<Long>::min(), std::numeric_limits<Long>::max()));
}

Word Add(Word a, Word b) {
  return Sat(Long{a} + b);
}
Word Sub(Word a, Word b) {
  return Sat(Long{a} - b);
}
Word Abs(Word a) {
  return a == kWordMin ? kWordMax : static_cast<Word>(a < 0 ? -a : a);
}
// Q15 products: truncating, and rounding. -1 * -1 is the one product that overflows.
Word Mult(Word a, Word b) {
  if (a == kWordMin && b == kWordMin) return kWordMax;
  return static_cast<Word>((Long{a} * b) >> 15);
}
Word MultR(Word a, Word b) {
  if (a == kWordMin && b == kWordMin) return kWordMax;
  return static_cast<Word>((Long{a} * b + 16384) >> 15);
}
// The doubled long product.
Long LMult(Word a, Word b) {
  if (a == kWordMin && b == kWordMin) return std::numeric_limits<Long>::max();
  return Long{a} * b * 2;
}
Long LAdd(Long a, Long b) {
  return LSat(std::int64_t{a} + b);
}
// Left shifts that may reach the sign bit are done unsigned, so they wrap as the
// 32-bit arithmetic of the standard does rather than being undefined.
Long LShl(Long a, int n) {
  return static_cast<Long>(static_cast<std::uint32_t>(a) << n);
}
Word Shl(Word a, int n) {
  return static_cast<Word>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(a)) << n);
}
// Left shifts that bring a positive long to [2^30, 2^31).
int Norm(Long a) {
  return a <= 0 ? 0 : std::countl_zero(static_cast<std::uint32_t>(a)) - 1;
}
// a / b in Q15 for 0 <= a <= b, b > 0, bit by bit.
Word Div(Word num, Word denom) {
  if (num <= 0 || denom <= 0) return 0;
  Long n = num;
  Long const d = denom;
  Word q = 0;
  for (int k = 0; k < 15; ++k) {
    q = static_cast<Word>(q << 1);
    n <<= 1;
    if (n >= d) {
      n -= d;
      ++q;
    }
  }
  return q;
}

// Log-area ratio coding: scale A, offset B, range MIC..MAC, and the inverse of A.
constexpr Word kA[8] = {20480, 20480, 20480, 20480, 13964, 15360, 8534, 9036};
constexpr Word kB[8] = {0, 0, 2048, -2560, 94, -1792, -341, -1144};
constexpr Word kMic[8] = {-32, -32, -16, -16, -8, -8, -4, -4};
constexpr Word kMac[8] = {31, 31, 15, 15, 7, 7, 3, 3};
constexpr Word kInvA[8] = {13107, 13107, 13107, 13107, 19223, 17476, 31454, 29708};
constexpr int kLarBits[8] = {6, 6, 5, 5, 4, 4, 3, 3};

// Long-term gain: decision levels and the quantized gains.
constexpr Word kDlb[4] = {6554, 16384, 26214, 32767};
constexpr Word kQlb[4] = {3277, 11469, 21299, 32767};

// Weighting filter impulse response (its centre, 8192, is 1.0 in Q13).
constexpr Word kH[11] = {-134, -374, 0, 2054, 5741, 8192, 5741, 2054, 0, -374, -134};

// Normalised inverse mantissas for quantizing pulses, and the mantissas for dequantizing.
constexpr Word kNrFac[8] = {29128, 26215, 23832, 21846, 20165, 18725, 17476, 16384};
constexpr Word kFac[8] = {18431, 20479, 22527, 24575, 26623, 28671, 30719, 32767};

// ---- parts both directions share ----

void DecodeLar(std::uint8_t const LARc[8], Word LARpp[8]) {
  for (int i = 0; i < 8; ++i) {
    Word const code = static_cast<Word>((LARc[i] & ((1 << kLarBits[i]) - 1)) + kMic[i]);
    Word temp = Sub(Shl(code, 10), Shl(kB[i], 1));
    temp = MultR(kInvA[i], temp);
    LARpp[i] = Add(temp, temp);
  }
}

// The frame is filtered in four segments with the log-area ratios moving from the
// previous frame's towards this one's, so the filter does not jump at frame edges.
constexpr int kSegmentStart[5] = {0, 13, 27, 40, 160};

void InterpolateLar(int segment, Word const prev[8], Word const cur[8], Word LARp[8]) {
  for (int i = 0; i < 8; ++i) {
    switch (segment) {
      case 0: LARp[i] = Add(Add(prev[i] >> 2, cur[i] >> 2), prev[i] >> 1); break;
      case 1: LARp[i] = Add(prev[i] >> 1, cur[i] >> 1); break;
      case 2: LARp[i] = Add(Add(prev[i] >> 2, cur[i] >> 2), cur[i] >> 1); break;
      default: LARp[i] = cur[i]; break;
    }
  }
}

// Log-area ratios back to reflection coefficients, by the same three-piece line the
// analysis used the other way.
void LarToReflection(Word LARp[8]) {
  for (int i = 0; i < 8; ++i) {
    Word temp = Abs(LARp[i]);
    if (temp < 11059) {
      temp = static_cast<Word>(temp << 1);
    } else if (temp < 20070) {
      temp = static_cast<Word>(temp + 11059);
    } else {
      temp = Add(static_cast<Word>(temp >> 2), 26112);
    }
    LARp[i] = LARp[i] < 0 ? static_cast<Word>(-temp) : temp;
  }
}

// Exponent and mantissa of a coded block amplitude; the mantissa is normalised to
// 8..15 and returned less 8.
void XmaxcToExpMant(Word xmaxc, Word& exp, Word& mant) {
  exp = 0;
  if (xmaxc > 15) exp = static_cast<Word>((xmaxc >> 3) - 1);
  mant = static_cast<Word>(xmaxc - (exp << 3));
  if (mant == 0) {
    exp = -4;
    mant = 7;
  } else {
    while (mant <= 7) {
      mant = static_cast<Word>(mant << 1 | 1);
      --exp;
    }
    mant = static_cast<Word>(mant - 8);
  }
}

// The 13 pulses back to their amplitudes, placed on their grid in a 40-sample
// subframe of zeros.
void DecodeRpe(Word xmaxc, Word Mc, std::uint8_t const xMc[13], Word ep[40]) {
  Word exp, mant;
  XmaxcToExpMant(xmaxc, exp, mant);
  Word const fac = kFac[mant];
  Word const shift = static_cast<Word>(6 - exp);  // 0..10
  Word const round = shift >= 1 ? static_cast<Word>(1 << (shift - 1)) : Word{0};
  std::fill(ep, ep + 40, Word{0});
  for (int i = 0; i < 13; ++i) {
    Word temp = static_cast<Word>(((xMc[i] & 7) << 1) - 7);  // odd levels -7..7
    temp = static_cast<Word>(temp << 12);
    temp = MultR(fac, temp);
    temp = Add(temp, round);
    ep[Mc + 3 * i] = static_cast<Word>(temp >> shift);
  }
}

// ---- bit packing ----

// Writes fields most significant bit first (the .gsm layout) or least significant bit
// first (WAV49). Never writes past `size` bytes.
class BitWriter {
 public:
  BitWriter(std::uint8_t* out, int size, bool lsbFirst) : p(out), n(size), lsb(lsbFirst) { std::memset(out, 0, size); }
  void Put(unsigned value, int width) {
    for (int b = 0; b < width; ++b) {
      unsigned const bit = lsb ? (value >> b) & 1 : (value >> (width - 1 - b)) & 1;
      int const byte = pos >> 3;
      if (byte < n && bit) p[byte] |= static_cast<std::uint8_t>(lsb ? 1 << (pos & 7) : 0x80 >> (pos & 7));
      ++pos;
    }
  }

 private:
  std::uint8_t* p;
  int n;
  bool lsb;
  int pos = 0;
};

class BitReader {
 public:
  BitReader(std::uint8_t const* in, int size, bool lsbFirst) : p(in), n(size), lsb(lsbFirst) {}
  std::uint8_t Get(int width) {
    unsigned value = 0;
    for (int b = 0; b < width; ++b) {
      int const byte = pos >> 3;
      unsigned bit = 0;
      if (byte < n) bit = lsb ? (p[byte] >> (pos & 7)) & 1 : (p[byte] >> (7 - (pos & 7))) & 1;
      value |= lsb ? bit << b : bit << (width - 1 - b);
      ++pos;
    }
    return static_cast<std::uint8_t>(value);
  }

 private:
  std::uint8_t const* p;
  int n;
  bool lsb;
  int pos = 0;
};

// The same field order for both layouts.
void PutFrame(BitWriter& w, LGsm610Frame const& f) {
  for (int i = 0; i < 8; ++i) w.Put(f.LARc[i], kLarBits[i]);
  for (int j = 0; j < 4; ++j) {
    w.Put(f.Nc[j], 7);
    w.Put(f.bc[j], 2);
    w.Put(f.Mc[j], 2);
    w.Put(f.xmaxc[j], 6);
    for (int i = 0; i < 13; ++i) w.Put(f.xMc[j][i], 3);
  }
}

void GetFrame(BitReader& r, LGsm610Frame& f) {
  for (int i = 0; i < 8; ++i) f.LARc[i] = r.Get(kLarBits[i]);
  for (int j = 0; j < 4; ++j) {
    f.Nc[j] = r.Get(7);
    f.bc[j] = r.Get(2);
    f.Mc[j] = r.Get(2);
    f.xmaxc[j] = r.Get(6);
    for (int i = 0; i < 13; ++i) f.xMc[j][i] = r.Get(3);
  }
}

constexpr unsigned kSignature = 0xD;

}  // namespace

void LGsm610Pack(LGsm610Frame const& frame, std::uint8_t out[33]) {
  BitWriter w(out, 33, false);
  w.Put(kSignature, 4);
  PutFrame(w, frame);
}

bool LGsm610Unpack(std::uint8_t const in[33], LGsm610Frame& frame) {
  BitReader r(in, 33, false);
  bool const ok = r.Get(4) == kSignature;
  GetFrame(r, frame);
  return ok;
}

void LGsm610PackWav49(LGsm610Frame const& first, LGsm610Frame const& second, std::uint8_t out[65]) {
  BitWriter w(out, 65, true);
  PutFrame(w, first);
  PutFrame(w, second);
}

void LGsm610UnpackWav49(std::uint8_t const in[65], LGsm610Frame& first, LGsm610Frame& second) {
  BitReader r(in, 65, true);
  GetFrame(r, first);
  GetFrame(r, second);
}

// ---- encoder ----

namespace {

// Autocorrelation lags 0..8 of the frame, computed on a copy scaled down far enough
// that the sums cannot overflow. The frame itself comes back having lost the bits that
// scaling dropped, as the standard's filter downstream expects.
void Autocorrelation(Word s[160], Long L_ACF[9]) {
  Word smax = 0;
  for (int k = 0; k < 160; ++k) smax = std::max(smax, Abs(s[k]));
  Word const scalauto = smax == 0 ? Word{0} : static_cast<Word>(4 - Norm(Long{smax} << 16));
  if (scalauto > 0) {
    Word const factor = static_cast<Word>(16384 >> (scalauto - 1));
    for (int k = 0; k < 160; ++k) s[k] = MultR(s[k], factor);
  }
  for (int k = 0; k <= 8; ++k) {
    Long acc = 0;
    for (int i = k; i < 160; ++i) acc = LAdd(acc, LMult(s[i], s[i - k]));
    L_ACF[k] = acc;
  }
  if (scalauto > 0) {
    for (int k = 0; k < 160; ++k) s[k] = Shl(s[k], scalauto);
  }
}

// Schur recursion from the autocorrelation to eight reflection coefficients (Q15).
void ReflectionCoefficients(Long const L_ACF[9], Word r[8]) {
  if (L_ACF[0] == 0) {
    std::fill(r, r + 8, Word{0});
    return;
  }
  int const temp = Norm(L_ACF[0]);
  Word ACF[9];
  for (int k = 0; k <= 8; ++k) ACF[k] = static_cast<Word>(LShl(L_ACF[k], temp) >> 16);

  Word P[9], K[9];
  for (int i = 1; i <= 7; ++i) K[i] = ACF[i];
  for (int i = 0; i <= 8; ++i) P[i] = ACF[i];

  for (int n = 1; n <= 8; ++n) {
    if (P[0] < Abs(P[1])) {
      // The recursion has become unstable: no further reflection is trusted.
      std::fill(r + n - 1, r + 8, Word{0});
      return;
    }
    Word rn = Div(Abs(P[1]), P[0]);
    if (P[1] > 0) rn = static_cast<Word>(-rn);
    r[n - 1] = rn;
    if (n == 8) return;

    P[0] = Add(P[0], MultR(P[1], rn));
    for (int m = 1; m <= 8 - n; ++m) {
      P[m] = Add(P[m + 1], MultR(K[m], rn));
      K[m] = Add(K[m], MultR(P[m + 1], rn));
    }
  }
}

// Reflection coefficients to coded log-area ratios, by a piecewise-linear stand-in
// for the logarithm.
void QuantizeLar(Word const r[8], std::uint8_t LARc[8]) {
  for (int i = 0; i < 8; ++i) {
    Word temp = Abs(r[i]);
    if (temp < 22118) {
      temp = static_cast<Word>(temp >> 1);
    } else if (temp < 31130) {
      temp = static_cast<Word>(temp - 11059);
    } else {
      temp = static_cast<Word>((temp - 26112) << 2);
    }
    Word const LAR = r[i] < 0 ? static_cast<Word>(-temp) : temp;

    Word c = Mult(kA[i], LAR);
    c = Add(c, kB[i]);
    c = Add(c, 256);  // rounding
    c = static_cast<Word>(c >> 9);
    c = std::clamp(c, kMic[i], kMac[i]);
    LARc[i] = static_cast<std::uint8_t>(c - kMic[i]);
  }
}

// Long-term predictor search: the lag in 40..120 whose past residual correlates best
// with this subframe, and the gain to apply to it.
void LtpParameters(Word const d[40], Word const dp[120], Word& Nc, Word& bc) {
  Word dmax = 0;
  for (int k = 0; k < 40; ++k) dmax = std::max(dmax, Abs(d[k]));
  int temp = dmax == 0 ? 0 : Norm(Long{dmax} << 16);
  int const scal = temp > 6 ? 0 : 6 - temp;

  Word wt[40];
  for (int k = 0; k < 40; ++k) wt[k] = static_cast<Word>(d[k] >> scal);

  Long L_max = 0;
  Nc = 40;
  for (int lambda = 40; lambda <= 120; ++lambda) {
    Word const* past = dp + 120 - lambda;
    Long acc = 0;
    for (int k = 0; k < 40; ++k) acc = LAdd(acc, LMult(wt[k], past[k]));
    if (acc > L_max) {
      Nc = static_cast<Word>(lambda);
      L_max = acc;
    }
  }
  L_max >>= 6 - scal;

  Word const* best = dp + 120 - Nc;
  Long L_power = 0;
  for (int k = 0; k < 40; ++k) {
    Word const w = static_cast<Word>(best[k] >> 3);
    L_power = LAdd(L_power, LMult(w, w));
  }

  if (L_max <= 0) {
    bc = 0;
    return;
  }
  if (L_max >= L_power) {
    bc = 3;
    return;
  }
  temp = Norm(L_power);
  Word const R = static_cast<Word>(LShl(L_max, temp) >> 16);
  Word const S = static_cast<Word>(LShl(L_power, temp) >> 16);
  for (bc = 0; bc <= 2; ++bc) {
    if (R <= Mult(S, kDlb[bc])) break;
  }
}

// Block-adaptive quantizing of the 13 chosen pulses: a 6-bit block amplitude, then
// 3 bits a pulse relative to it.
void QuantizeRpe(Word const xM[13], Word& xmaxc, std::uint8_t xMc[13]) {
  Word xmax = 0;
  for (int i = 0; i < 13; ++i) xmax = std::max(xmax, Abs(xM[i]));

  Word exp = 0;
  Word temp = static_cast<Word>(xmax >> 9);
  bool reached = false;
  for (int i = 0; i <= 5; ++i) {
    reached = reached || temp <= 0;
    temp = static_cast<Word>(temp >> 1);
    if (!reached) ++exp;
  }
  xmaxc = Add(static_cast<Word>(xmax >> (exp + 5)), static_cast<Word>(exp << 3));

  // The pulses are scaled by the amplitude as the decoder will see it, not the exact one.
  Word mant;
  XmaxcToExpMant(xmaxc, exp, mant);
  int const up = 6 - exp;
  for (int i = 0; i < 13; ++i) {
    Word t = Shl(xM[i], up);
    t = Mult(t, kNrFac[mant]);
    xMc[i] = static_cast<std::uint8_t>((t >> 12) + 4);
  }
}

}  // namespace

void LGsm610Encoder::Reset() {
  z1 = 0;
  L_z2 = 0;
  mp = 0;
  std::fill(std::begin(LARppPrev), std::end(LARppPrev), Word{0});
  std::fill(std::begin(u), std::end(u), Word{0});
  std::fill(std::begin(dp), std::end(dp), Word{0});
}

void LGsm610Encoder::Encode(std::int16_t const in[160], LGsm610Frame& frame) {
  // Pre-processing: down to 13 bits, a high-pass to remove any offset, pre-emphasis.
  Word s[160];
  for (int k = 0; k < 160; ++k) {
    Word const so = static_cast<Word>((in[k] >> 3) * 4);
    Word const s1 = Sub(so, z1);
    z1 = so;
    Long L_s2 = Long{s1} * 32768;
    Word const msp = static_cast<Word>(L_z2 >> 15);
    Word const lsp = static_cast<Word>(L_z2 - Long{msp} * 32768);
    L_s2 = LAdd(L_s2, MultR(lsp, 32735));
    L_z2 = LAdd(Long{msp} * 32735, L_s2);
    Word const sof = Sat(LAdd(L_z2, 16384) >> 15);
    s[k] = Add(sof, MultR(mp, -28180));
    mp = sof;
  }

  // Short-term (LPC) analysis.
  Long L_ACF[9];
  Autocorrelation(s, L_ACF);
  Word r[8];
  ReflectionCoefficients(L_ACF, r);
  QuantizeLar(r, frame.LARc);

  // Short-term analysis filtering with the coefficients the decoder will reconstruct.
  Word LARpp[8];
  DecodeLar(frame.LARc, LARpp);
  for (int seg = 0; seg < 4; ++seg) {
    Word rp[8];
    InterpolateLar(seg, LARppPrev, LARpp, rp);
    LarToReflection(rp);
    for (int k = kSegmentStart[seg]; k < kSegmentStart[seg + 1]; ++k) {
      Word di = s[k];
      Word sav = di;
      for (int i = 0; i < 8; ++i) {
        Word const ui = u[i];
        u[i] = sav;
        sav = Add(ui, MultR(rp[i], di));
        di = Add(di, MultR(rp[i], ui));
      }
      s[k] = di;
    }
  }
  std::copy(LARpp, LARpp + 8, LARppPrev);

  // Long-term prediction and regular-pulse excitation, a 40-sample subframe at a time.
  for (int j = 0; j < 4; ++j) {
    Word const* d = s + 40 * j;
    Word Nc, bc;
    LtpParameters(d, dp, Nc, bc);
    frame.Nc[j] = static_cast<std::uint8_t>(Nc);
    frame.bc[j] = static_cast<std::uint8_t>(bc);

    Word dpp[40], e[40];
    for (int k = 0; k < 40; ++k) {
      dpp[k] = MultR(kQlb[bc], dp[120 - Nc + k]);
      e[k] = Sub(d[k], dpp[k]);
    }

    // Weighting filter: a low-pass centred on each sample, e taken as 0 outside the
    // subframe.
    Word x[40];
    for (int k = 0; k < 40; ++k) {
      Long acc = 8192;  // rounding
      for (int i = 0; i <= 10; ++i) {
        int const n = k + i - 5;
        if (n >= 0 && n < 40) acc = LAdd(acc, LMult(e[n], kH[i]));
      }
      acc = LAdd(acc, acc);
      acc = LAdd(acc, acc);
      x[k] = static_cast<Word>(acc >> 16);
    }

    // Of the four decimations by 3, keep the one with the most energy.
    Long EM = 0;
    Word Mc = 0;
    for (int m = 0; m <= 3; ++m) {
      Long acc = 0;
      for (int i = 0; i <= 12; ++i) {
        Word const t = static_cast<Word>(x[m + 3 * i] >> 2);
        acc = LAdd(acc, LMult(t, t));
      }
      if (acc > EM) {
        Mc = static_cast<Word>(m);
        EM = acc;
      }
    }
    frame.Mc[j] = static_cast<std::uint8_t>(Mc);

    Word xM[13];
    for (int i = 0; i < 13; ++i) xM[i] = x[Mc + 3 * i];
    Word xmaxc;
    QuantizeRpe(xM, xmaxc, frame.xMc[j]);
    frame.xmaxc[j] = static_cast<std::uint8_t>(xmaxc);

    // Reconstruct the residual exactly as the decoder will, for the next subframes'
    // long-term search.
    Word ep[40];
    DecodeRpe(xmaxc, Mc, frame.xMc[j], ep);
    std::copy(dp + 40, dp + 120, dp);
    for (int k = 0; k < 40; ++k) dp[80 + k] = Add(ep[k], dpp[k]);
  }
}

void LGsm610Encoder::EncodeFrame(std::int16_t const in[160], std::uint8_t out[33]) {
  LGsm610Frame frame;
  Encode(in, frame);
  LGsm610Pack(frame, out);
}

void LGsm610Encoder::EncodeWav49Block(std::int16_t const in[320], std::uint8_t out[65]) {
  LGsm610Frame first, second;
  Encode(in, first);
  Encode(in + 160, second);
  LGsm610PackWav49(first, second, out);
}

// ---- decoder ----

void LGsm610Decoder::Reset() {
  std::fill(std::begin(LARppPrev), std::end(LARppPrev), Word{0});
  std::fill(std::begin(v), std::end(v), Word{0});
  msr = 0;
  nrp = 40;
  std::fill(std::begin(drp), std::end(drp), Word{0});
}

void LGsm610Decoder::Decode(LGsm610Frame const& frame, std::int16_t out[160]) {
  // Excitation and long-term synthesis, a subframe at a time.
  Word wt[160];
  for (int j = 0; j < 4; ++j) {
    Word erp[40];
    DecodeRpe(frame.xmaxc[j] & 63, frame.Mc[j] & 3, frame.xMc[j], erp);

    // A lag outside 40..120 cannot come from a coder; reuse the last good one.
    int const Nc = frame.Nc[j] & 127;
    int const Nr = Nc < 40 || Nc > 120 ? nrp : Nc;
    nrp = Nr;
    Word const brp = kQlb[frame.bc[j] & 3];
    Word* cur = wt + 40 * j;
    // With Nr >= 40 the lag always reaches back into the 120 samples of history.
    for (int k = 0; k < 40; ++k) cur[k] = Add(erp[k], MultR(brp, drp[120 + k - Nr]));
    std::copy(drp + 40, drp + 120, drp);
    std::copy(cur, cur + 40, drp + 80);
  }

  // Short-term synthesis through the interpolated lattice.
  Word LARpp[8];
  DecodeLar(frame.LARc, LARpp);
  for (int seg = 0; seg < 4; ++seg) {
    Word rrp[8];
    InterpolateLar(seg, LARppPrev, LARpp, rrp);
    LarToReflection(rrp);
    for (int k = kSegmentStart[seg]; k < kSegmentStart[seg + 1]; ++k) {
      Word sri = wt[k];
      for (int i = 7; i >= 0; --i) {
        sri = Sub(sri, MultR(rrp[i], v[i]));
        v[i + 1] = Add(v[i], MultR(rrp[i], sri));
      }
      v[0] = sri;
      wt[k] = sri;
    }
  }
  std::copy(LARpp, LARpp + 8, LARppPrev);

  // Post-processing: de-emphasis, back to 16-bit scale, and the low 3 bits cleared.
  for (int k = 0; k < 160; ++k) {
    msr = Add(wt[k], MultR(msr, 28180));
    out[k] = static_cast<std::int16_t>(Add(msr, msr) & ~7);
  }
}

bool LGsm610Decoder::DecodeFrame(std::uint8_t const in[33], std::int16_t out[160]) {
  LGsm610Frame frame;
  bool const ok = LGsm610Unpack(in, frame);
  Decode(frame, out);
  return ok;
}

void LGsm610Decoder::DecodeWav49Block(std::uint8_t const in[65], std::int16_t out[320]) {
  LGsm610Frame first, second;
  LGsm610UnpackWav49(in, first, second);
  Decode(first, out);
  Decode(second, out + 160);
}
