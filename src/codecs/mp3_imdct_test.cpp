// The fast inverse MDCT against its defining sums worked out in double precision,
// for every block type, over granules that hand their overlap on.
#include "codecs/mp3_imdct.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

// The window of one of the 36 points of a long block of the given type.
double LongWindow(int type, int i) {
  double const sine = std::sin(kPi / 36 * (i + 0.5));
  if (type == 1) {
    if (i < 18) return sine;
    if (i < 24) return 1;
    if (i < 30) return std::sin(kPi / 12 * (i - 18 + 0.5));
    return 0;
  }
  if (type == 3) {
    if (i < 6) return 0;
    if (i < 12) return std::sin(kPi / 12 * (i - 6 + 0.5));
    if (i < 18) return 1;
    return sine;
  }
  return sine;
}

// One granule by the sums: 36 windowed outputs per sub-band, the first half added
// to the overlap, the second half kept.
void Reference(std::vector<float> const& spectrum, int blockType, bool mixed, double (*overlap)[32],
               double (*out)[32]) {
  for (int sb = 0; sb < 32; ++sb) {
    float const* x = spectrum.data() + 18 * sb;
    int const type = mixed && sb < 2 ? 0 : blockType;
    double z[36] = {};
    if (type != 2) {
      for (int i = 0; i < 36; ++i) {
        double sum = 0;
        for (int k = 0; k < 18; ++k) sum += x[k] * std::cos(kPi / 72 * (2 * i + 19) * (2 * k + 1));
        z[i] = sum * LongWindow(type, i);
      }
    } else {
      for (int w = 0; w < 3; ++w) {
        for (int i = 0; i < 12; ++i) {
          double sum = 0;
          for (int k = 0; k < 6; ++k) sum += x[6 * w + k] * std::cos(kPi / 24 * (2 * i + 7) * (2 * k + 1));
          z[6 + 6 * w + i] += sum * std::sin(kPi / 12 * (i + 0.5));
        }
      }
    }
    for (int i = 0; i < 18; ++i) {
      double const v = z[i] + overlap[i][sb];
      out[i][sb] = (sb & 1) && (i & 1) ? -v : v;
      overlap[i][sb] = z[18 + i];
    }
  }
}

struct Kind {
  int iBlockType;
  bool bMixed;
  int iUsed = 32;  // sub-bands from this one on are empty
};

// Largest difference from the reference over a run of granules of random lines
// in [-1, 1].
double LargestError(std::vector<Kind> const& kinds, std::mt19937& random) {
  std::uniform_real_distribution<float> line(-1.0f, 1.0f);
  float overlap[18][32] = {};
  float out[32][LMP3SlotStride];
  double refOverlap[18][32] = {};
  double refOut[18][32];
  double worst = 0;
  for (Kind const& k : kinds) {
    std::vector<float> spectrum(576, 0.0f);
    for (int i = 0; i < 18 * k.iUsed; ++i) spectrum[static_cast<std::size_t>(i)] = line(random);
    int const first = static_cast<int>(random() % 19);
    LMP3InverseMdct(spectrum.data(), k.iBlockType, k.bMixed, k.iUsed, overlap, out, first);
    Reference(spectrum, k.iBlockType, k.bMixed, refOverlap, refOut);
    for (int i = 0; i < 18; ++i) {
      for (int sb = 0; sb < 32; ++sb) {
        worst = std::max(worst, std::fabs(out[sb][first + i] - refOut[i][sb]));
        worst = std::max(worst, std::fabs(overlap[i][sb] - refOverlap[i][sb]));
      }
    }
    // The two slots after the granule's are zero, as promised.
    for (int sb = 0; sb < 32; ++sb) {
      worst = std::max({worst, std::fabs(double{out[sb][first + 18]}), std::fabs(double{out[sb][first + 19]})});
    }
  }
  return worst;
}

// Lines of at most 1 give outputs of up to about 6 here, which single precision
// holds to 2.4e-7 to 4.8e-7: the transform may lose a few roundings' worth, never
// more. (A factoring through divisions by small cosines misses this by some 4e-6.)
constexpr double kBound = 2.5e-6;

}  // namespace

TEST(Mp3Imdct, EveryBlockTypeMatchesTheDefiningSums) {
  std::mt19937 random(11);
  for (Kind const k : {Kind{0, false}, Kind{1, false}, Kind{2, false}, Kind{3, false}, Kind{2, true},
                       Kind{1, true}, Kind{3, true}}) {
    SCOPED_TRACE(std::to_string(k.iBlockType) + (k.bMixed ? " mixed" : ""));
    // The same kind over and over, so that each overlaps with itself.
    double const e = LargestError(std::vector<Kind>(6, k), random);
    std::printf("  block type %d%s: largest error %.3g\n", k.iBlockType, k.bMixed ? " mixed" : "", e);
    EXPECT_LT(e, kBound);
  }
}

TEST(Mp3Imdct, BlockTypesFollowingEachOtherOverlapRightly) {
  std::mt19937 random(12);
  // Normal, start, short, stop, normal, as an encoder switches; then mixed ones.
  std::vector<Kind> const run = {{0, false}, {1, false}, {2, false}, {2, false}, {3, false}, {0, false},
                                 {1, false}, {2, true},  {3, false}, {1, true},  {2, false}, {3, true}};
  EXPECT_LT(LargestError(run, random), kBound);
}

TEST(Mp3Imdct, EmptyUpperSubbandsOnlyPassTheOverlapOn) {
  std::mt19937 random(13);
  for (int used : {0, 1, 3, 4, 5, 17, 31}) {
    SCOPED_TRACE(used);
    // Each full granule leaves an overlap in every sub-band for the sparse one after.
    std::vector<Kind> const run = {{0, false}, {0, false, used}, {1, false}, {2, false, used},
                                   {2, false}, {3, false, used}, {2, true},  {0, false, used}};
    EXPECT_LT(LargestError(run, random), kBound);
  }
}
