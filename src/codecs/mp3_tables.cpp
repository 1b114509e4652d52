#include "codecs/mp3_tables.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace {

constexpr double kPi = 3.14159265358979323846;

// Band edges by rate. Short bands repeat in each of the three windows.
constexpr LMP3BandEdges kBands[9] = {
    // 44100
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},
     {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192}},
    // 48000
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},
     {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192}},
    // 32000
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},
     {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192}},
    // 22050
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192}},
    // 24000
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192}},
    // 16000
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 11025
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 12000
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 8000
    {{0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576},
     {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192}},
};

// The quadruple tables: words for v w x y = 0..15 in the order v*8 + w*4 + x*2 + y.
// Table A varies in length; table B is four bits, the complement of the value.
constexpr std::uint32_t kQuadA[16] = {
    0x01000001, 0x04000005, 0x04000004, 0x05000005, 0x04000006, 0x06000005, 0x05000004, 0x06000004,
    0x04000007, 0x05000003, 0x05000006, 0x06000000, 0x05000007, 0x06000002, 0x06000003, 0x06000001,
};

}  // namespace

LMP3BandEdges const& LMP3Bands(int rateTableIndex) {
  if (rateTableIndex < 0 || rateTableIndex > 8) rateTableIndex = 0;
  return kBands[rateTableIndex];
}

LMP3LookupTables const& LMP3LookupTables::Get() {
  static LMP3LookupTables const* const tables = new LMP3LookupTables();  // lives as long as the process
  return *tables;
}

LMP3LookupTables::LMP3LookupTables() { InitTables(); }

void LMP3LookupTables::InitTables() {
  for (int i = 0; i < kPowCount; ++i) aPow43[i] = static_cast<float>(std::pow(static_cast<double>(i), 4.0 / 3.0));

  constexpr double kAliasC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
  for (int i = 0; i < 8; ++i) {
    double const root = std::sqrt(1.0 + kAliasC[i] * kAliasC[i]);
    aAliasCs[i] = static_cast<float>(1.0 / root);
    aAliasCa[i] = static_cast<float>(kAliasC[i] / root);
  }

  for (int p = 0; p < 7; ++p) {
    if (p == 6) {
      aIntensityLeft[p] = 1;
      aIntensityRight[p] = 0;
      continue;
    }
    double const ratio = std::tan(p * kPi / 12);
    aIntensityLeft[p] = static_cast<float>(ratio / (1 + ratio));
    aIntensityRight[p] = static_cast<float>(1 / (1 + ratio));
  }
  for (int s = 0; s < 2; ++s) {
    for (int p = 0; p < 32; ++p) {
      // Each step of position halves the power by 2^-1/4 or 2^-1/2 of amplitude,
      // applied to the channel the odd or even positions name.
      aIntensityLsf[s][p] = static_cast<float>(std::pow(2.0, -(s == 0 ? 0.25 : 0.5) * ((p + 1) / 2)));
    }
  }
  for (int n = -512; n < 64; ++n) aGain[n + 512] = static_cast<float>(std::pow(2.0, n / 4.0));

  for (int r = 0; r < 16; ++r) {
    for (int j = 0; j < 32; ++j) aSynthWindow[r][j] = static_cast<float>(kMP3SynthesisWindow[32 * r + j] / 65536.0);
  }
  // Lee's factorisation: each halving of the transform scales its odd part by
  // 1 / (2 cos((2k + 1) pi / 2N)).
  int at = 0;
  for (int n = 32; n >= 2; n /= 2) {
    for (int k = 0; k < n / 2; ++k) aDct32[at++] = static_cast<float>(0.5 / std::cos((2 * k + 1) * kPi / (2 * n)));
  }

  for (int rate = 0; rate < 9; ++rate) {
    LMP3BandEdges const& b = kBands[rate];
    for (int mixed = 0; mixed < 2; ++mixed) {
      std::uint16_t* order = aShortOrder[rate][mixed];
      for (int i = 0; i < 576; ++i) order[i] = mixed && i < 36 ? static_cast<std::uint16_t>(i) : kDropLine;
      int first = 0;  // a mixed block's short part starts with the first band wholly above line 36
      while (mixed && 3 * b.aShort[first] < 36) ++first;
      for (int sb = first; sb < 13; ++sb) {
        int const start = b.aShort[sb];
        int const width = b.aShort[sb + 1] - start;
        for (int w = 0; w < 3; ++w) {
          for (int j = 0; j < width; ++j) {
            int const f = start + j;
            order[3 * start + w * width + j] = static_cast<std::uint16_t>((f / 6) * 18 + w * 6 + f % 6);
          }
        }
      }
    }
  }

  // Decoding trees. Pair tables that share words and linbits share a tree; those
  // that differ in linbits only get a tree each, as a leaf's length counts them.
  std::uint8_t symbols[256];
  for (int t = 0; t < 32; ++t) {
    LMP3PairCodeTable const* codes = LMP3PairCodes(t);
    if (codes == nullptr) {
      // An unused table number decodes as table 0 would: all zeros, no bits. The
      // side information check refuses frames that name one for a non-empty region.
      continue;
    }
    int same = -1;
    for (int u = 0; u < t; ++u) {
      LMP3PairCodeTable const* other = LMP3PairCodes(u);
      if (other != nullptr && other->pWords == codes->pWords && other->iLinBits == codes->iLinBits) same = u;
    }
    if (same >= 0) {
      aTrees[t] = aTrees[same];
      continue;
    }
    int const n = codes->iSize * codes->iSize;
    for (int i = 0; i < n; ++i) {
      symbols[i] = static_cast<std::uint8_t>(((i / codes->iSize) << 4) | (i % codes->iSize));
    }
    // A first look-up as wide as the longest word, up to 10 bits: the short tables
    // decode in one step, the large ones nearly always.
    int longestWord = 1;
    for (int i = 0; i < n; ++i) longestWord = std::max(longestWord, static_cast<int>(codes->pWords[i] >> 24));
    int const rootBits = std::min(longestWord, 10);
    aTrees[t].pEntries = aTreeStore + BuildTree(codes->pWords, symbols, n, rootBits, {false, codes->iLinBits});
    aTrees[t].iRootBits = rootBits;
    aTrees[t].iLinBits = codes->iLinBits;
  }
  for (int i = 0; i < 16; ++i) symbols[i] = static_cast<std::uint8_t>(i);
  aTrees[32].pEntries = aTreeStore + BuildTree(kQuadA, symbols, 16, 6, {true, 0});
  aTrees[32].iRootBits = 6;
  std::uint32_t quadB[16];
  for (int i = 0; i < 16; ++i) quadB[i] = (4u << 24) | static_cast<std::uint32_t>(15 - i);
  aTrees[33].pEntries = aTreeStore + BuildTree(quadB, symbols, 16, 4, {true, 0});
  aTrees[33].iRootBits = 4;
}

int LMP3LookupTables::BuildTree(std::uint32_t const* words, std::uint8_t const* symbols, int count, int rootBits,
                                TreeKind kind) {
  int const start = iTreeUsed;
  BuildLevel(words, symbols, count, 0, 0, rootBits, kind);
  // Offsets of further levels are stored relative to the root.
  for (int i = start; i < iTreeUsed; ++i) {
    if (aTreeStore[i] & LMP3HuffmanTree::kSub) {
      std::uint32_t const offset = (aTreeStore[i] & 0xFFFF) - static_cast<std::uint32_t>(start);
      aTreeStore[i] = (aTreeStore[i] & 0xFFFF0000u) | offset;
    }
  }
  return start;
}

// A leaf of a tree (see LMP3HuffmanTree).
std::uint32_t LMP3LookupTables::Leaf(int length, std::uint8_t symbol, TreeKind kind) {
  int taken = length;
  std::uint32_t escapes = 0;
  if (kind.bQuads) {
    taken += std::popcount(static_cast<unsigned>(symbol & 15));
  } else {
    int const x = symbol >> 4;
    int const y = symbol & 15;
    taken += (x != 0) + (y != 0);
    if (kind.iLinBits > 0) {
      if (x == 15) {
        escapes |= LMP3HuffmanTree::kEscapeX;
        taken += kind.iLinBits;
      }
      if (y == 15) {
        escapes |= LMP3HuffmanTree::kEscapeY;
        taken += kind.iLinBits;
      }
    }
  }
  return static_cast<std::uint32_t>(taken) | static_cast<std::uint32_t>(length << LMP3HuffmanTree::kLengthShift) |
         static_cast<std::uint32_t>(symbol << LMP3HuffmanTree::kSymbolShift) | escapes;
}

// One level of a tree: the words that begin with `prefix` (prefixBits long), looked up
// by their next `levelBits` bits. Longer words get a level of their own.
int LMP3LookupTables::BuildLevel(std::uint32_t const* words, std::uint8_t const* symbols, int count,
                                 std::uint32_t prefix, int prefixBits, int levelBits, TreeKind kind) {
  int const size = 1 << levelBits;
  int const at = iTreeUsed;
  if (at + size > kTreeEntries) std::abort();  // the sizes are fixed: cannot happen once built right
  iTreeUsed += size;
  // Not reached by a complete code: one bit of nothing.
  for (int i = 0; i < size; ++i) aTreeStore[at + i] = Leaf(1, 0, kind);
  int longest[1 << 10] = {};
  for (int c = 0; c < count; ++c) {
    int const len = static_cast<int>(words[c] >> 24);
    std::uint32_t const word = words[c] & 0xFFFFFF;
    if (len <= prefixBits || (word >> (len - prefixBits)) != prefix) continue;
    int const rest = len - prefixBits;
    std::uint32_t const tail = word & ((1u << rest) - 1);
    if (rest <= levelBits) {
      int const first = static_cast<int>(tail << (levelBits - rest));
      for (int i = 0; i < (1 << (levelBits - rest)); ++i) {
        aTreeStore[at + first + i] = Leaf(len, symbols[c], kind);
      }
    } else {
      int const index = static_cast<int>(tail >> (rest - levelBits));
      if (rest - levelBits > longest[index]) longest[index] = rest - levelBits;
    }
  }
  for (int index = 0; index < size; ++index) {
    if (longest[index] == 0) continue;
    int const bits = longest[index] < 8 ? longest[index] : 8;
    int const sub = BuildLevel(words, symbols, count, (prefix << levelBits) | static_cast<std::uint32_t>(index),
                               prefixBits + levelBits, bits, kind);
    aTreeStore[at + index] = LMP3HuffmanTree::kSub | (static_cast<std::uint32_t>(bits) << 16) |
                             static_cast<std::uint32_t>(sub);
  }
  return at;
}
