#pragma once
#include <cstdint>

// Constant data of the Layer III decoder: the code words, the scale factor bands of
// the nine sample rates, and the numbers computed once at start-up (powers, windows,
// cosines, the decoding trees of the code words).

// One set of pair code words (see mp3_huffman_codes.cpp) and its linbits.
struct LMP3PairCodeTable {
  std::uint32_t const* pWords;  // length << 24 | word, by x * iSize + y
  int iSize;                    // values 0 .. iSize-1 of x and y
  int iLinBits;
};

// Table 0 .. 31, or null for the numbers the format leaves unused (0, 4, 14).
LMP3PairCodeTable const* LMP3PairCodes(int table);

// Scale factor band edges in spectral lines: 22 long bands (23 edges) and 13 short
// bands per window (14 edges).
struct LMP3BandEdges {
  std::uint16_t aLong[23];
  std::uint16_t aShort[14];
};

// By rate: MPEG-1 44100, 48000, 32000; MPEG-2 22050, 24000, 16000; MPEG-2.5 11025,
// 12000, 8000. The index is version * 3 + rate index.
LMP3BandEdges const& LMP3Bands(int rateTableIndex);

// A decoding table for one set of code words: entries indexed by the next few bits of
// the stream. An entry with kSub set points at a further table for the bits after:
// its offset from the first table in the low 16 bits, the further table's index bits
// above. Other entries are leaves: in the low bits (kTakenMask) all the bits the
// symbol takes, its word with the sign bits after it and, in a table with linbits,
// the linbits of each 15; the word's own length at kLengthShift; the symbol at
// kSymbolShift (x << 4 | y of a pair, the four bits of a quadruple); and kEscapeX /
// kEscapeY where a value of 15 takes linbits. A pair's length is then one mask away,
// which is what the decoding waits on from one pair to the next.
struct LMP3HuffmanTree {
  static constexpr std::uint32_t kSub = 0x80000000u;
  static constexpr std::uint32_t kTakenMask = 63;
  static constexpr int kLengthShift = 6;
  static constexpr int kSymbolShift = 11;
  static constexpr std::uint32_t kEscapeX = 1u << 19;
  static constexpr std::uint32_t kEscapeY = 1u << 20;
  std::uint32_t const* pEntries = nullptr;
  int iRootBits = 0;
  int iLinBits = 0;
};

class LMP3LookupTables {
 public:
  // The one instance, made on first use; safe to call from any thread.
  static LMP3LookupTables const& Get();

  // |i|^(4/3) for the magnitudes a spectral value can carry (15 plus 13 linbits).
  static constexpr int kPowCount = 8207;
  float aPow43[kPowCount];

  // Alias reduction butterflies.
  float aAliasCs[8];
  float aAliasCa[8];
  // Intensity stereo of MPEG-1: left and right factors by position 0..6.
  float aIntensityLeft[7];
  float aIntensityRight[7];
  // Intensity stereo of MPEG-2: by scale (0: 2^-1/4 per step, 1: 2^-1/2) and
  // position, the factor of the attenuated channel.
  float aIntensityLsf[2][32];
  // 2^(n/4) for n = -512 .. 63, the gain of a band; index n + 512.
  float aGain[576];

  // The synthesis window in the order the filter bank reads it (see
  // mp3_synthesis.cpp), 16 rows of 32.
  float aSynthWindow[16][32];
  // Multipliers of the fast 32-point cosine transform.
  float aDct32[31];

  // Short blocks are stored band by band and window by window; the IMDCT wants each
  // sub-band's three windows of six lines together. Where stream line i goes, by rate
  // table index and whether the block is mixed (the first 36 lines are then long and
  // stay), or kDropLine for lines of a mixed block that belong to no band.
  static constexpr std::uint16_t kDropLine = 0xFFFF;
  std::uint16_t aShortOrder[9][2][576];

  // Decoding trees of the pair tables 0..31 (empty for unused numbers) and of the two
  // quadruple tables (32: table A, 33: table B).
  LMP3HuffmanTree aTrees[34];

 private:
  LMP3LookupTables();
  void InitTables();
  static constexpr int kTreeEntries = 32768;  // some 30000 used
  std::uint32_t aTreeStore[kTreeEntries];
  int iTreeUsed = 0;
  // A tree of pairs with the given linbits, or of quadruples.
  struct TreeKind {
    bool bQuads;
    int iLinBits;
  };
  static std::uint32_t Leaf(int length, std::uint8_t symbol, TreeKind kind);
  int BuildTree(std::uint32_t const* words, std::uint8_t const* symbols, int count, int rootBits, TreeKind kind);
  int BuildLevel(std::uint32_t const* words, std::uint8_t const* symbols, int count, std::uint32_t prefix,
                 int prefixBits, int levelBits, TreeKind kind);
};

// The synthesis window as integers in units of 2^-16: entry i of the 512-point
// window of the filter bank. Used by the lookup tables and by the tests.
extern std::int32_t const kMP3SynthesisWindow[512];
