#include "codecs/mp3_layer3.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "codecs/mp3_imdct.h"
#include "codecs/mp3_simd.h"
#include "codecs/mp3_tables.h"

namespace {

// MPEG-1 scale factor lengths by scalefac_compress: bands 0..10 and 11..20 of a long
// block, 0..5 and 6..11 of a short one.
constexpr int kSlen[2][16] = {
    {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4},
    {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3},
};

// Extra amplification of the upper long bands when preflag is set.
constexpr int kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

// MPEG-2: how many scale factors each of the four length classes covers, by the
// class of scalefac_compress and by block kind (long, short, mixed). Short entries
// count band-windows.
constexpr int kLsfPartitions[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},
    {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}},
    {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},
    {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}},
};

constexpr float kInvSqrt2 = 0.70710678118654752f;

// The main data as the spectrum reads it: a 64-bit buffer whose top `iAvail` bits
// are the stream's next ones, topped up to at least 56 before each pair of values,
// enough for the longest pair with both linbits and signs (45 bits). The top-up reads
// whole bytes ahead of the position; the buffer's padding makes that safe.
class SpectrumBits {
 public:
  SpectrumBits(std::uint8_t const* data, std::size_t pos) : pNext(data + (pos >> 3)) {
    Refill();
    int const skip = static_cast<int>(pos & 7);
    uBuf <<= skip;
    iAvail -= skip;
  }
  // The bits a top-up adds past the valid ones are the stream's own, as are those
  // already there from the last top-up; or-ing them in again changes nothing.
  void Refill() {
    std::uint64_t v;
    std::memcpy(&v, pNext, sizeof v);
    if constexpr (std::endian::native == std::endian::little) v = __builtin_bswap64(v);
    uBuf |= v >> iAvail;
    pNext += (63 - iAvail) >> 3;
    iAvail |= 56;
  }
  std::uint64_t Peek() const { return uBuf; }
  void Take(int bits) {
    uBuf <<= bits;
    iAvail -= bits;
    lUsed += bits;
  }
  long Used() const { return lUsed; }

 private:
  std::uint8_t const* pNext;
  std::uint64_t uBuf = 0;
  int iAvail = 0;
  long lUsed = 0;
};

// The leaf for the word at the top of `w`, past the first look-up's entry `e`.
inline std::uint32_t FindLeaf(LMP3HuffmanTree const& t, std::uint32_t e, std::uint64_t w) {
  int taken = t.iRootBits;
  while (e & LMP3HuffmanTree::kSub) {
    int const bits = static_cast<int>((e >> 16) & 31);
    e = t.pEntries[(e & 0xFFFF) + ((w << taken) >> (64 - bits))];
    taken += bits;
  }
  return e;
}

// |value|^(4/3) times the band's gain, with the sign bit from the stream.
inline float Requantized(float const* pow43, int magnitude, std::uint32_t negative, float gain) {
  return std::bit_cast<float>(std::bit_cast<std::uint32_t>(pow43[magnitude] * gain) | (negative << 31));
}

inline bool IsShort(LMP3GranuleInfo const& g) { return g.bWindowSwitching && g.iBlockType == 2; }

// Lines below this belong to the long part of a mixed block.
constexpr int kMixedLongLines = 36;

int MixedLongBands(LMP3BandEdges const& b) {
  int n = 0;
  while (n < 22 && b.aLong[n + 1] <= kMixedLongLines) ++n;
  return n;
}

int MixedFirstShortBand(LMP3BandEdges const& b) {
  int s = 0;
  while (s < 13 && 3 * b.aShort[s] < kMixedLongLines) ++s;
  return s;
}

}  // namespace

LMP3Layer3Decoder::LMP3Layer3Decoder() {
  // The shared tables are made here, when a source opens, rather than in its first Read.
  LMP3LookupTables::Get();
  Reset();
}

void LMP3Layer3Decoder::Reset() {
  for (auto& c : aChannel) {
    std::memset(c.aOverlap, 0, sizeof c.aOverlap);
    std::memset(c.aScaleLong, 0, sizeof c.aScaleLong);
    std::memset(c.aScaleShort, 0, sizeof c.aScaleShort);
  }
  for (auto& s : aSynth) s.Reset();
  std::memset(aMain, 0, sizeof aMain);
  iMainBytes = 0;
  iMainStart = -1;
}

bool LMP3Layer3Decoder::DecodeSideInformation(LMP3Header const& h, std::uint8_t const* data, int mainBytes) {
  std::uint8_t padded[32 + LMP3BitReader::kPadBytes] = {};
  std::memcpy(padded, data, static_cast<std::size_t>(h.GetSideInfoSize()));
  LMP3BitReader b(padded, 0);
  int const channels = h.GetChannels();
  bool const lsf = h.iVersion != 0;
  int const granules = lsf ? 1 : 2;
  LMP3BandEdges const& bands = LMP3Bands(h.GetRateTableIndex());

  LMP3SideInfo s;
  if (lsf) {
    s.iMainDataBegin = static_cast<int>(b.Read(8));
    b.Skip(channels == 1 ? 1 : 2);
  } else {
    s.iMainDataBegin = static_cast<int>(b.Read(9));
    b.Skip(channels == 1 ? 5 : 3);
    for (int ch = 0; ch < channels; ++ch) {
      for (int g = 0; g < 4; ++g) s.aScfsi[ch][g] = static_cast<int>(b.ReadBit());
    }
  }
  long totalBits = 0;
  for (int gr = 0; gr < granules; ++gr) {
    for (int ch = 0; ch < channels; ++ch) {
      LMP3GranuleInfo& g = s.aGranule[gr][ch];
      g.iPart23Length = static_cast<int>(b.Read(12));
      g.iBigValues = static_cast<int>(b.Read(9));
      g.iGlobalGain = static_cast<int>(b.Read(8));
      g.iScalefacCompress = static_cast<int>(b.Read(lsf ? 9 : 4));
      g.bWindowSwitching = b.ReadBit() != 0;
      if (g.bWindowSwitching) {
        g.iBlockType = static_cast<int>(b.Read(2));
        g.bMixedBlock = b.ReadBit() != 0;
        for (int r = 0; r < 2; ++r) g.aTableSelect[r] = static_cast<int>(b.Read(5));
        g.aTableSelect[2] = 0;
        for (int w = 0; w < 3; ++w) g.aSubblockGain[w] = static_cast<int>(b.Read(3));
        // Fixed region split: the first 8 long bands, or 9 band-windows of a short block.
        g.iRegion1Start = (g.iBlockType == 2 && !g.bMixedBlock) ? 3 * bands.aShort[3] : bands.aLong[8];
        g.iRegion2Start = 576;
        if (g.iBlockType == 0) return false;  // switching to a normal block is not a switch
      } else {
        g.iBlockType = 0;
        g.bMixedBlock = false;
        for (int r = 0; r < 3; ++r) g.aTableSelect[r] = static_cast<int>(b.Read(5));
        int const region0 = static_cast<int>(b.Read(4));
        int const region1 = static_cast<int>(b.Read(3));
        g.iRegion1Start = bands.aLong[region0 + 1];
        g.iRegion2Start = bands.aLong[std::min(region0 + region1 + 2, 22)];
      }
      g.bPreflag = lsf ? false : b.ReadBit() != 0;
      g.bScalefacScale = b.ReadBit() != 0;
      g.iCount1Table = static_cast<int>(b.ReadBit());

      if (g.iBigValues > 288) return false;
      int const bigEnd = 2 * g.iBigValues;
      int const ends[3] = {std::min(g.iRegion1Start, bigEnd), std::min(g.iRegion2Start, bigEnd), bigEnd};
      int from = 0;
      for (int r = 0; r < 3; ++r) {
        if (ends[r] > from && LMP3PairCodes(g.aTableSelect[r]) == nullptr && g.aTableSelect[r] != 0) return false;
        from = std::max(from, ends[r]);
      }
      totalBits += g.iPart23Length;
    }
  }
  // All main data must lie in the reservoir's reach and this frame.
  if (totalBits > static_cast<long>(s.iMainDataBegin + mainBytes) * 8) return false;
  side = s;
  return true;
}

void LMP3Layer3Decoder::DecodeFrame(LMP3Header const& h, std::uint8_t const* main, int mainBytes,
                                    std::int32_t* out) {
  int const samples = DecodeToPcm(h, main, mainBytes);
  LMP3ToIntegers(aPcm[0], iChannels == 2 ? aPcm[1] : nullptr, samples, out);
}

void LMP3Layer3Decoder::DecodeFrame(LMP3Header const& h, std::uint8_t const* main, int mainBytes, float* out) {
  int const samples = DecodeToPcm(h, main, mainBytes);
  LMP3ToIntegerSteps(aPcm[0], iChannels == 2 ? aPcm[1] : nullptr, samples, out);
}

int LMP3Layer3Decoder::DecodeToPcm(LMP3Header const& h, std::uint8_t const* main, int mainBytes) {
  iChannels = h.GetChannels();
  // The reservoir needs at most the last 511 bytes of earlier frames.
  int const keep = std::min(iMainBytes, 511);
  if (keep < iMainBytes) std::memmove(aMain, aMain + (iMainBytes - keep), static_cast<std::size_t>(keep));
  iMainBytes = keep;
  mainBytes = std::clamp(mainBytes, 0, static_cast<int>(sizeof aMain) - LMP3BitReader::kPadBytes - iMainBytes);
  iMainStart = side.iMainDataBegin <= iMainBytes ? iMainBytes - side.iMainDataBegin : -1;
  std::memcpy(aMain + iMainBytes, main, static_cast<std::size_t>(mainBytes));
  iMainBytes += mainBytes;
  std::memset(aMain + iMainBytes, 0, LMP3BitReader::kPadBytes);

  int const granules = h.iVersion == 0 ? 2 : 1;
  std::size_t pos = iMainStart >= 0 ? static_cast<std::size_t>(iMainStart) * 8 : 0;
  bits = LMP3BitReader(aMain, pos);
  for (int gr = 0; gr < granules; ++gr) {
    for (int ch = 0; ch < iChannels; ++ch) {
      Channel& c = aChannel[ch];
      if (iMainStart < 0) {
        // Data from before the jump: play the granule as silence, letting the
        // overlap of the last good one fade out.
        c.iNonZero = 0;
        std::memset(c.aSpectrum, 0, sizeof c.aSpectrum);
        continue;
      }
      std::size_t const end = pos + static_cast<std::size_t>(side.aGranule[gr][ch].iPart23Length);
      bits.SetPosition(pos);
      DecodeScaleFactors(h, gr, ch);
      DecodeSpectrum(h, gr, ch, end);
      pos = end;
    }
    DecodeGranule(h, gr);
  }
  for (int ch = 0; ch < iChannels; ++ch) aSynth[ch].Synthesize(aChannel[ch].aSlots, 18 * granules, aPcm[ch]);
  return 576 * granules;
}

void LMP3Layer3Decoder::DecodeGranule(LMP3Header const& h, int gr) {
  JointStereoProcessing(h, gr);
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  for (int ch = 0; ch < iChannels; ++ch) {
    Channel& c = aChannel[ch];
    LMP3GranuleInfo const& g = side.aGranule[gr][ch];
    if (IsShort(g)) {
      // Short blocks are stored band by band, window by window; the IMDCT wants
      // each sub-band's three windows of six lines together.
      std::uint16_t const* order = t.aShortOrder[h.GetRateTableIndex()][g.bMixedBlock ? 1 : 0];
      float reordered[576];
      int const from = g.bMixedBlock ? kMixedLongLines : 0;
      std::memcpy(reordered, c.aSpectrum, static_cast<std::size_t>(from) * sizeof(float));
      std::memset(reordered + from, 0, static_cast<std::size_t>(576 - from) * sizeof(float));
      for (int i = from; i < c.iNonZero; ++i) {
        if (order[i] != LMP3LookupTables::kDropLine) reordered[order[i]] = c.aSpectrum[i];
      }
      std::memcpy(c.aSpectrum, reordered, sizeof reordered);
      int nz = 576;
      while (nz > 0 && c.aSpectrum[nz - 1] == 0) --nz;
      c.iNonZero = nz;
    }
    AliasReduction(gr, ch);
    InverseMdct(gr, ch);
  }
}

void LMP3Layer3Decoder::DecodeScaleFactors(LMP3Header const& h, int gr, int ch) {
  Channel& c = aChannel[ch];
  LMP3GranuleInfo const& g = side.aGranule[gr][ch];
  if (h.iVersion == 0) {
    int const slen1 = kSlen[0][g.iScalefacCompress];
    int const slen2 = kSlen[1][g.iScalefacCompress];
    for (auto& m : c.aMaxLong) m = 7;
    for (auto& row : c.aMaxShort) row[0] = row[1] = row[2] = 7;
    if (IsShort(g)) {
      int s = 0;
      if (g.bMixedBlock) {
        for (int sfb = 0; sfb < 8; ++sfb) c.aScaleLong[sfb] = static_cast<int>(bits.Read(slen1));
        s = 3;
      }
      for (; s < 12; ++s) {
        int const len = s < 6 ? slen1 : slen2;
        for (int w = 0; w < 3; ++w) c.aScaleShort[s][w] = static_cast<int>(bits.Read(len));
      }
      c.aScaleShort[12][0] = c.aScaleShort[12][1] = c.aScaleShort[12][2] = 0;
    } else {
      // The second granule may take a group of bands from the first.
      constexpr int kGroups[5] = {0, 6, 11, 16, 21};
      for (int grp = 0; grp < 4; ++grp) {
        if (gr == 1 && side.aScfsi[ch][grp]) continue;
        int const len = grp < 2 ? slen1 : slen2;
        for (int sfb = kGroups[grp]; sfb < kGroups[grp + 1]; ++sfb) c.aScaleLong[sfb] = static_cast<int>(bits.Read(len));
      }
      c.aScaleLong[21] = 0;
    }
    return;
  }

  // MPEG-2: the lengths come from scalefac_compress by one of two schemes, the
  // second for the intensity-coded right channel.
  int sfc = g.iScalefacCompress;
  int slen[4] = {};
  int kind = 0;
  bool const intensityRight = ch == 1 && h.iMode == 1 && (h.iModeExtension & 1);
  if (!intensityRight) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5;
      slen[1] = (sfc >> 4) % 5;
      slen[2] = (sfc & 15) >> 2;
      slen[3] = sfc & 3;
      kind = 0;
    } else if (sfc < 500) {
      sfc -= 400;
      slen[0] = (sfc >> 2) / 5;
      slen[1] = (sfc >> 2) % 5;
      slen[2] = sfc & 3;
      kind = 1;
    } else {
      sfc -= 500;
      slen[0] = sfc / 3;
      slen[1] = sfc % 3;
      kind = 2;
      side.aGranule[gr][ch].bPreflag = true;
    }
  } else {
    int const half = sfc >> 1;
    if (half < 180) {
      slen[0] = half / 36;
      slen[1] = (half % 36) / 6;
      slen[2] = half % 6;
      kind = 3;
    } else if (half < 244) {
      int const v = half - 180;
      slen[0] = (v & 63) >> 4;
      slen[1] = (v & 15) >> 2;
      slen[2] = v & 3;
      kind = 4;
    } else {
      int const v = half - 244;
      slen[0] = v / 3;
      slen[1] = v % 3;
      kind = 5;
    }
  }
  int const blockKind = IsShort(g) ? (g.bMixedBlock ? 2 : 1) : 0;
  int const* counts = kLsfPartitions[kind][blockKind];
  // Walk the scale factors in stream order: long bands, then band-windows.
  int longDone = 0;
  int shortBand = 0;
  int window = 0;
  int longCount = blockKind == 0 ? 21 : (blockKind == 2 ? 6 : 0);
  if (blockKind == 2) shortBand = 3;
  for (auto& row : c.aScaleShort) row[0] = row[1] = row[2] = 0;
  std::memset(c.aScaleLong, 0, sizeof c.aScaleLong);
  for (auto& m : c.aMaxLong) m = 0;
  for (auto& row : c.aMaxShort) row[0] = row[1] = row[2] = 0;
  for (int part = 0; part < 4; ++part) {
    int const len = slen[part];
    int const max = (1 << len) - 1;
    for (int n = 0; n < counts[part]; ++n) {
      int const v = static_cast<int>(bits.Read(len));
      if (longDone < longCount) {
        c.aScaleLong[longDone] = v;
        c.aMaxLong[longDone] = max;
        ++longDone;
      } else if (shortBand < 12) {
        c.aScaleShort[shortBand][window] = v;
        c.aMaxShort[shortBand][window] = max;
        if (++window == 3) {
          window = 0;
          ++shortBand;
        }
      }
    }
  }
}

int LMP3Layer3Decoder::BandGains(LMP3Header const& h, int gr, int ch, int* ends, float* gains) const {
  Channel const& c = aChannel[ch];
  LMP3GranuleInfo const& g = side.aGranule[gr][ch];
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  LMP3BandEdges const& bands = LMP3Bands(h.GetRateTableIndex());
  int const shift = g.bScalefacScale ? 4 : 2;  // quarter powers of two per scale factor step
  int const base = g.iGlobalGain - 210;
  int n = 0;
  auto add = [&](int end, int exponent) {
    exponent = std::clamp(exponent, -512, 63);
    ends[n] = end;
    gains[n] = t.aGain[exponent + 512];
    ++n;
  };
  if (!IsShort(g)) {
    for (int sfb = 0; sfb < 22; ++sfb) {
      add(bands.aLong[sfb + 1], base - shift * (c.aScaleLong[sfb] + (g.bPreflag ? kPretab[sfb] : 0)));
    }
    return n;
  }
  int first = 0;
  if (g.bMixedBlock) {
    int const longBands = MixedLongBands(bands);
    for (int sfb = 0; sfb < longBands; ++sfb) {
      add(bands.aLong[sfb + 1], base - shift * (c.aScaleLong[sfb] + (g.bPreflag ? kPretab[sfb] : 0)));
    }
    first = MixedFirstShortBand(bands);
    // Lines between the long part and the first whole short band belong to no band
    // (only at 8000 Hz): they count as nothing.
    if (3 * bands.aShort[first] > bands.aLong[longBands]) {
      ends[n] = 3 * bands.aShort[first];
      gains[n] = 0;
      ++n;
    }
  }
  for (int s = first; s < 13; ++s) {
    int const start = bands.aShort[s];
    int const width = bands.aShort[s + 1] - start;
    for (int w = 0; w < 3; ++w) {
      add(3 * start + (w + 1) * width, base - 8 * g.aSubblockGain[w] - shift * c.aScaleShort[s][w]);
    }
  }
  return n;
}

namespace {

// Where the spectrum's decoding has got to: the line, the band it is in and that
// band's gain.
struct SpectrumCursor {
  int i = 0;
  int iBand = 0;
  int iBandEnd = 0;
  float fGain = 0;
  int const* pEnds = nullptr;
  float const* pGains = nullptr;

  void NextBand() {
    ++iBand;
    iBandEnd = pEnds[iBand];
    fGain = pGains[iBand];
  }
};

// Pairs of values up to line `limit` from one table, requantised as they come. False
// when the granule's bits run out first. With kEscapes, a 15 takes linbits.
template <bool kEscapes>
bool DecodePairs(SpectrumBits& bits, long budget, LMP3HuffmanTree const& tree, int limit, SpectrumCursor& at,
                 float const* pow43, float* xr) {
  std::uint32_t const* entries = tree.pEntries;
  int const rootShift = 64 - tree.iRootBits;
  int const linbits = tree.iLinBits;
  int i = at.i;
  for (; i < limit; i += 2) {
    if (bits.Used() >= budget) {
      at.i = i;
      return false;
    }
    // Band edges are even: a pair never straddles one.
    if (i >= at.iBandEnd) at.NextBand();
    bits.Refill();
    std::uint64_t const w = bits.Peek();
    std::uint32_t e = entries[w >> rootShift];
    if (e & LMP3HuffmanTree::kSub) [[unlikely]] e = FindLeaf(tree, e, w);
    bits.Take(static_cast<int>(e & LMP3HuffmanTree::kTakenMask));
    // The values' linbits and signs follow the word, each sign after its value.
    int const length = static_cast<int>((e >> LMP3HuffmanTree::kLengthShift) & 31);
    int x = static_cast<int>((e >> (LMP3HuffmanTree::kSymbolShift + 4)) & 15);
    int y = static_cast<int>((e >> LMP3HuffmanTree::kSymbolShift) & 15);
    std::uint64_t rest = w << length;
    if constexpr (kEscapes) {
      if (e & LMP3HuffmanTree::kEscapeX) {
        x += static_cast<int>(rest >> (64 - linbits));
        rest <<= linbits;
      }
    }
    unsigned const xSigned = x != 0;
    std::uint32_t const xNegative = static_cast<std::uint32_t>(rest >> 63) & xSigned;
    rest <<= xSigned;
    if constexpr (kEscapes) {
      if (e & LMP3HuffmanTree::kEscapeY) {
        y += static_cast<int>(rest >> (64 - linbits));
        rest <<= linbits;
      }
    }
    std::uint32_t const yNegative = static_cast<std::uint32_t>(rest >> 63) & (y != 0);
    xr[i] = Requantized(pow43, x, xNegative, at.fGain);
    xr[i + 1] = Requantized(pow43, y, yNegative, at.fGain);
  }
  at.i = i;
  return true;
}

}  // namespace

void LMP3Layer3Decoder::DecodeSpectrum(LMP3Header const& h, int gr, int ch, std::size_t end) {
  Channel& c = aChannel[ch];
  LMP3GranuleInfo const& g = side.aGranule[gr][ch];
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  float const* pow43 = t.aPow43;
  float* xr = c.aSpectrum;

  // The gain of each band, by the line where the band ends, in stream order.
  int ends[kMaxBands + 1];
  float gains[kMaxBands + 1];
  int const bandCount = BandGains(h, gr, ch, ends, gains);
  ends[bandCount] = 576 + 4;  // never reached
  gains[bandCount] = 0;
  SpectrumCursor at;
  at.pEnds = ends;
  at.pGains = gains;
  at.iBandEnd = ends[0];
  at.fGain = gains[0];

  std::size_t const start = bits.Position();
  long const budget = end > start ? static_cast<long>(end - start) : 0;
  SpectrumBits b(aMain, start);
  int const bigEnd = 2 * g.iBigValues;
  int const limits[3] = {std::min(g.iRegion1Start, bigEnd), std::min(g.iRegion2Start, bigEnd), bigEnd};
  bool broken = false;
  for (int r = 0; r < 3 && !broken; ++r) {
    int const limit = limits[r];
    if (at.i >= limit) continue;
    int const table = g.aTableSelect[r];
    if (table == 0) {
      for (; at.i < limit; ++at.i) xr[at.i] = 0;
      while (at.iBandEnd <= at.i) at.NextBand();
      continue;
    }
    LMP3HuffmanTree const& tree = t.aTrees[table];
    bool const ok = tree.iLinBits > 0 ? DecodePairs<true>(b, budget, tree, limit, at, pow43, xr)
                                      : DecodePairs<false>(b, budget, tree, limit, at, pow43, xr);
    broken = !ok;
  }
  int i = at.i;
  if (broken) {
    // The granule's bits ran out inside the big values: what is left is unknown.
    std::memset(xr + i, 0, static_cast<std::size_t>(576 - i) * sizeof *xr);
    c.iNonZero = bigEnd < 576 ? bigEnd : 576;
    return;
  }
  // Quadruples of values -1..1 until the granule's bits are used up.
  LMP3HuffmanTree const& quad = t.aTrees[32 + g.iCount1Table];
  int const quadShift = 64 - quad.iRootBits;  // the first look-up holds every word
  while (i + 4 <= 576 && b.Used() < budget) {
    b.Refill();
    std::uint64_t const w = b.Peek();
    std::uint32_t const e = quad.pEntries[w >> quadShift];
    b.Take(static_cast<int>(e & LMP3HuffmanTree::kTakenMask));
    // A quadruple that ends past the granule's bits was never meant: drop it.
    if (b.Used() > budget) break;
    std::uint64_t rest = w << ((e >> LMP3HuffmanTree::kLengthShift) & 31);
    for (int k = 0; k < 4; ++k, ++i) {
      unsigned const nonZero = (e >> (LMP3HuffmanTree::kSymbolShift + 3 - k)) & 1;
      std::uint32_t const negative = static_cast<std::uint32_t>(rest >> 63) & nonZero;
      rest <<= nonZero;
      // Bands here may be four lines wide or six: one can end inside a quadruple.
      while (i >= at.iBandEnd) at.NextBand();
      xr[i] = std::bit_cast<float>(std::bit_cast<std::uint32_t>(static_cast<float>(nonZero) * at.fGain) | (negative << 31));
    }
  }
  c.iNonZero = i;
  std::memset(xr + i, 0, static_cast<std::size_t>(576 - i) * sizeof *xr);
}

void LMP3Layer3Decoder::JointStereoProcessing(LMP3Header const& h, int gr) {
  if (iChannels != 2 || h.iMode != 1 || iMainStart < 0) return;
  bool const ms = (h.iModeExtension & 2) != 0;
  bool const intensity = (h.iModeExtension & 1) != 0;
  Channel& L = aChannel[0];
  Channel& R = aChannel[1];
  float* l = L.aSpectrum;
  float* r = R.aSpectrum;
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  LMP3BandEdges const& bands = LMP3Bands(h.GetRateTableIndex());
  LMP3GranuleInfo const& g = side.aGranule[gr][1];
  bool const lsf = h.iVersion != 0;
  int const lsfScale = g.iScalefacCompress & 1;

  auto midSide = [&](int from, int to) {
    if (!ms) return;
    for (int i = from; i < to; ++i) {
      float const m = l[i];
      float const s = r[i];
      l[i] = (m + s) * kInvSqrt2;
      r[i] = (m - s) * kInvSqrt2;
    }
  };
  // One band of intensity stereo at `pos`, or mid/side if the position is the
  // one that means "not intensity coded".
  auto intensityBand = [&](int from, int to, int pos, int max) {
    if (lsf ? pos == max : pos >= 7) {
      midSide(from, to);
      return;
    }
    float kl = 1;
    float kr = 1;
    if (lsf) {
      if (pos & 1) kl = t.aIntensityLsf[lsfScale][pos];
      else if (pos != 0) kr = t.aIntensityLsf[lsfScale][pos];
    } else {
      kl = t.aIntensityLeft[pos];
      kr = t.aIntensityRight[pos];
    }
    for (int i = from; i < to; ++i) {
      float const x = l[i];
      l[i] = x * kl;
      r[i] = x * kr;
    }
  };
  // A line of the right channel is zero exactly when its coded value is: no band's
  // gain comes near the smallest float.
  auto anyNonZero = [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      if (r[i] != 0) return true;
    }
    return false;
  };

  if (!intensity) {
    midSide(0, std::max(L.iNonZero, R.iNonZero));
  } else if (!IsShort(g)) {
    // Intensity coding starts above the right channel's last non-zero line.
    int bound = 22;
    while (bound > 0 && !anyNonZero(bands.aLong[bound - 1], bands.aLong[bound])) --bound;
    midSide(0, bands.aLong[bound]);
    // The top band has no position of its own: it keeps the one of the band below
    // when that band is intensity coded, else position 0.
    int pos = 0;
    int max = -1;
    for (int sfb = bound; sfb < 22; ++sfb) {
      if (sfb < 21) {
        pos = R.aScaleLong[sfb];
        max = R.aMaxLong[sfb];
      }
      intensityBand(bands.aLong[sfb], bands.aLong[sfb + 1], pos, max);
    }
  } else {
    int const first = g.bMixedBlock ? MixedFirstShortBand(bands) : 0;
    bool shortPartEmpty = true;
    for (int w = 0; w < 3; ++w) {
      int bound = 13;
      auto windowRange = [&](int s, int& from, int& to) {
        int const width = bands.aShort[s + 1] - bands.aShort[s];
        from = 3 * bands.aShort[s] + w * width;
        to = from + width;
      };
      while (bound > first) {
        int from = 0;
        int to = 0;
        windowRange(bound - 1, from, to);
        if (anyNonZero(from, to)) break;
        --bound;
      }
      if (bound > first) shortPartEmpty = false;
      int pos = 0;
      int max = -1;
      for (int s = first; s < 13; ++s) {
        int from = 0;
        int to = 0;
        windowRange(s, from, to);
        if (s < bound) {
          midSide(from, to);
          continue;
        }
        if (s < 12) {
          pos = R.aScaleShort[s][w];
          max = R.aMaxShort[s][w];
        }
        intensityBand(from, to, pos, max);
      }
    }
    if (g.bMixedBlock) {
      int const longBands = MixedLongBands(bands);
      int bound = longBands;
      if (shortPartEmpty) {
        while (bound > 0 && !anyNonZero(bands.aLong[bound - 1], bands.aLong[bound])) --bound;
      }
      midSide(0, bands.aLong[bound]);
      for (int sfb = bound; sfb < longBands; ++sfb) {
        intensityBand(bands.aLong[sfb], bands.aLong[sfb + 1], R.aScaleLong[sfb], R.aMaxLong[sfb]);
      }
    }
  }
  // Either channel may now hold sound where only the other did.
  for (Channel* c : {&L, &R}) {
    int nz = 576;
    while (nz > 0 && c->aSpectrum[nz - 1] == 0) --nz;
    c->iNonZero = nz;
  }
}

void LMP3Layer3Decoder::AliasReduction(int gr, int ch) {
  Channel& c = aChannel[ch];
  LMP3GranuleInfo const& g = side.aGranule[gr][ch];
  if (IsShort(g) && !g.bMixedBlock) return;
  LMP3LookupTables const& t = LMP3LookupTables::Get();
  float* x = c.aSpectrum;
  int const used = (c.iNonZero + 17) / 18;
  int const boundaries = IsShort(g) ? 1 : std::min(31, used);
  // Each butterfly joins line 17 - i of a sub-band with line i of the next, i < 8:
  // four of them at once, the lower sub-band's lines turned around to meet.
  LMP3Vec4 const cs[2] = {LMP3Load4(t.aAliasCs), LMP3Load4(t.aAliasCs + 4)};
  LMP3Vec4 const ca[2] = {LMP3Load4(t.aAliasCa), LMP3Load4(t.aAliasCa + 4)};
  for (int b = 1; b <= boundaries; ++b) {
    for (int h = 0; h < 2; ++h) {
      float* const below = x + 18 * b - 4 - 4 * h;  // lines 17 - 4h - 3 .. 17 - 4h
      float* const above = x + 18 * b + 4 * h;      // lines 4h .. 4h + 3
      LMP3Vec4 const lo = LMP3Reverse4(LMP3Load4(below));
      LMP3Vec4 const hi = LMP3Load4(above);
      LMP3Store4(below, LMP3Reverse4(lo * cs[h] - hi * ca[h]));
      LMP3Store4(above, hi * cs[h] + lo * ca[h]);
    }
  }
  if (boundaries > 0) c.iNonZero = std::max(c.iNonZero, std::min(576, 18 * (boundaries + 1)));
}

void LMP3Layer3Decoder::InverseMdct(int gr, int ch) {
  Channel& c = aChannel[ch];
  LMP3GranuleInfo const& g = side.aGranule[gr][ch];
  int const used = (c.iNonZero + 17) / 18;
  int const blockType = g.bWindowSwitching ? g.iBlockType : 0;
  LMP3InverseMdct(c.aSpectrum, blockType, g.bMixedBlock, used, c.aOverlap, c.aSlots, 18 * gr);
}
