#include "sound/sample_formats.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

template <class F>
F Stored(float f) {
  F s{};
  s.Set(f);
  return s;
}

template <class F>
std::vector<std::uint8_t> Bytes(F const& s) {
  std::vector<std::uint8_t> b(sizeof(F));
  std::memcpy(b.data(), &s, sizeof(F));
  return b;
}

template <class F>
F FromBytes(std::vector<std::uint8_t> const& b) {
  F s{};
  std::memcpy(&s, b.data(), sizeof(F));
  return s;
}

using B = std::vector<std::uint8_t>;

std::int16_t Int16Of(float f) {
  LSF16 s = Stored<LSF16>(f);
  return static_cast<std::int16_t>(s.v);  // little-endian host
}

}  // namespace

TEST(SampleFormats, Int16ScalesRoundsAndWrapsWithoutClipping) {
  EXPECT_EQ(Int16Of(1.0f), 32767);
  EXPECT_EQ(Int16Of(-1.0f), -32767);
  EXPECT_EQ(Int16Of(0.0f), 0);
  EXPECT_EQ(Int16Of(2.0f), -2);  // 65534 in a 16-bit store
  EXPECT_EQ(Int16Of(-2.0f), 2);
  EXPECT_EQ(Int16Of(0.4f / 32767.0f), 0);
  EXPECT_EQ(Int16Of(0.6f / 32767.0f), 1);
  EXPECT_EQ(Int16Of(-0.6f / 32767.0f), -1);
  // Values no integer can hold store 0, and stay defined behaviour.
  EXPECT_EQ(Int16Of(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(Int16Of(std::numeric_limits<float>::infinity()), 0);
  EXPECT_EQ(Int16Of(1e30f), 0);

  EXPECT_EQ(Bytes(Stored<LSF16>(1.0f)), (B{0xFF, 0x7F}));
  EXPECT_EQ(Bytes(Stored<LSF16BE>(1.0f)), (B{0x7F, 0xFF}));
  EXPECT_EQ(Bytes(Stored<LSF16BE>(-1.0f)), (B{0x80, 0x01}));
  EXPECT_EQ(FromBytes<LSF16>(B{0x01, 0x80}).Get(), -32767 * 3.051851e-5f);
  EXPECT_EQ(FromBytes<LSF16BE>(B{0x80, 0x00}).Get(), -32768 * 3.051851e-5f);
}

TEST(SampleFormats, EveryInt16CodeSurvivesTheTripThroughFloat) {
  for (int c = -32768; c <= 32767; ++c) {
    LSF16 s{static_cast<std::uint16_t>(c)};
    LSF16BE be{};
    be.Set(s.Get());
    ASSERT_EQ(Int16Of(s.Get()), c);
    ASSERT_EQ(be.Get(), s.Get()) << c;
  }
}

TEST(SampleFormats, EightBitTruncatesAndStaysWithinOneCode) {
  EXPECT_EQ(Stored<LSFU8>(-1.0f).v, 1);
  EXPECT_EQ(Stored<LSFU8>(0.0f).v, 128);
  EXPECT_EQ(Stored<LSFU8>(1.0f).v, 255);
  EXPECT_EQ(Stored<LSFU8>(0.9f / 127.0f).v, 128);  // truncated, not rounded
  EXPECT_EQ(Stored<LSFU8>(-1.2f).v, static_cast<std::uint8_t>(static_cast<int>(-1.2f * 127.0f + 128.0f)));
  EXPECT_EQ(Stored<LSFS8>(-1.0f).v, 0x81);
  EXPECT_EQ(Stored<LSFS8>(0.0f).v, 0x00);
  EXPECT_EQ(Stored<LSFS8>(1.0f).v, 0x7F);
  EXPECT_FLOAT_EQ(LSFU8{0}.Get(), -128.0f / 127.0f);
  EXPECT_FLOAT_EQ(LSFS8{0x80}.Get(), -128.0f / 127.0f);
  for (int c = 0; c < 256; ++c) {
    LSFU8 u{static_cast<std::uint8_t>(c)};
    ASSERT_LE(std::abs(Stored<LSFU8>(u.Get()).v - c), 1) << c;
    LSFS8 s{static_cast<std::uint8_t>(c)};
    ASSERT_EQ(s.Get(), LSFU8{static_cast<std::uint8_t>(c ^ 0x80)}.Get());
    ASSERT_EQ(Stored<LSFS8>(s.Get()).v, Stored<LSFU8>(s.Get()).v ^ 0x80);
  }
}

TEST(SampleFormats, TwentyFourAndThirtyTwoBitAreOneScaleInBothByteOrders) {
  EXPECT_EQ(Bytes(Stored<LSFLE24>(1.0f)), (B{0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(Bytes(Stored<LSFBE24>(1.0f)), (B{0x7F, 0xFF, 0xFF}));
  EXPECT_EQ(Bytes(Stored<LSFLE24>(-1.0f)), (B{0x00, 0x00, 0x80}));  // -2^31+1 keeps its top bytes
  EXPECT_EQ(Bytes(Stored<LSFLE24>(0.5f)), (B{0x00, 0x00, 0x40}));
  EXPECT_EQ(Bytes(Stored<LSF32>(1.0f)), (B{0xFF, 0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(Bytes(Stored<LSF32BE>(-1.0f)), (B{0x80, 0x00, 0x00, 0x01}));
  EXPECT_EQ(Bytes(Stored<LSF32>(2.0f)), (B{0xFE, 0xFF, 0xFF, 0xFF}));  // wraps to -2

  // In: the three bytes are the top of a 32-bit word scaled by 1/(2^31-1) in double.
  EXPECT_EQ(FromBytes<LSFLE24>(B{0x01, 0x00, 0x00}).Get(), static_cast<float>(256.0 * 4.656612875e-10));
  EXPECT_EQ(FromBytes<LSFBE24>(B{0x80, 0x00, 0x00}).Get(), static_cast<float>(-2147483648.0 * 4.656612875e-10));
  EXPECT_EQ(FromBytes<LSF32>(B{0xFF, 0xFF, 0xFF, 0x7F}).Get(), 1.0f);
  EXPECT_EQ(FromBytes<LSF32BE>(B{0x00, 0x00, 0x01, 0x00}).Get(), static_cast<float>(256.0 * 4.656612875e-10));

  // A 24-bit code comes back within one code (the float in between has 24 bits).
  for (int c = -(1 << 23); c < (1 << 23); c += 997) {
    std::uint32_t const u = static_cast<std::uint32_t>(c);
    LSFLE24 s{{static_cast<std::uint8_t>(u), static_cast<std::uint8_t>(u >> 8), static_cast<std::uint8_t>(u >> 16)}};
    LSFLE24 back = Stored<LSFLE24>(s.Get());
    int const got = static_cast<std::int32_t>((std::uint32_t{back.b[0]} << 8) | (std::uint32_t{back.b[1]} << 16) |
                                              (std::uint32_t{back.b[2]} << 24)) >>
                    8;
    ASSERT_LE(std::abs(got - c), 1) << c;
    ASSERT_EQ(Stored<LSFBE24>(s.Get()).b[0], back.b[2]);
  }
  EXPECT_FLOAT_EQ(LSF20{524287}.Get(), 1.0f);
  EXPECT_FLOAT_EQ(LSF20{static_cast<std::uint32_t>(-524287)}.Get(), -1.0f);
}

TEST(SampleFormats, FloatsAreCopiedAndDoublesNarrowed) {
  for (float f : {0.0f, -0.0f, 1.0f, -3.5f, 1e-40f, 123456.78f}) {
    EXPECT_EQ(Stored<LSFF32>(f).Get(), f);
    EXPECT_EQ(Stored<LSFF32BE>(f).Get(), f);
  }
  EXPECT_EQ(Bytes(Stored<LSFF32BE>(1.0f)), (B{0x3F, 0x80, 0x00, 0x00}));
  EXPECT_EQ(Bytes(Stored<LSFF32>(1.0f)), (B{0x00, 0x00, 0x80, 0x3F}));
  EXPECT_EQ(FromBytes<LSFF64>(B{0, 0, 0, 0, 0, 0, 0xE0, 0x3F}).Get(), 0.5f);
  EXPECT_EQ(FromBytes<LSFF64BE>(B{0xBF, 0xF0, 0, 0, 0, 0, 0, 0}).Get(), -1.0f);
  EXPECT_EQ(FromBytes<LSFF64>(B{0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}).Get(), 0.1f);
}

TEST(SampleFormats, G711ExpansionFollowsTheLawsTables) {
  // mu-law: inverted codes, 0x80 the positive peak, 0xFF and 0x7F both zero.
  EXPECT_EQ(LSFULAW::Expand(0x80), 32124);
  EXPECT_EQ(LSFULAW::Expand(0x00), -32124);
  EXPECT_EQ(LSFULAW::Expand(0xFF), 0);
  EXPECT_EQ(LSFULAW::Expand(0x7F), 0);
  EXPECT_EQ(LSFULAW::Expand(0xFE), 8);
  EXPECT_EQ(LSFULAW::Expand(0xEF), 132);   // first code of segment 1
  EXPECT_EQ(LSFULAW::Expand(0xAF), 4092);  // first code of segment 5
  EXPECT_EQ(LSFULAW::Expand(0xA0), 7932);  // last code of segment 5
  EXPECT_EQ(LSFULAW::Expand(0x9F), 8316);  // first code of segment 6
  // A-law: even bits inverted, the sign bit set for positive.
  EXPECT_EQ(LSFALAW::Expand(0xD5), 8);
  EXPECT_EQ(LSFALAW::Expand(0x55), -8);
  EXPECT_EQ(LSFALAW::Expand(0xAA), 32256);
  EXPECT_EQ(LSFALAW::Expand(0x2A), -32256);
  EXPECT_EQ(LSFALAW::Expand(0xC5), 264);  // first code of segment 1

  for (int c = 0; c < 256; ++c) {
    auto const code = static_cast<std::uint8_t>(c);
    ASSERT_EQ(LSFULAW{code}.Get(), static_cast<float>(LSFULAW::Expand(code) * 16) * 1.9376241e-6f);
    ASSERT_EQ(LSFALAW{code}.Get(), static_cast<float>(LSFALAW::Expand(code) * 16) * 1.9376241e-6f);
    ASSERT_LE(std::abs(LSFULAW{code}.Get()), 1.0f);
    ASSERT_LE(std::abs(LSFALAW{code}.Get()), 1.0f);
    // Every code but mu-law's negative zero survives compression of its own expansion.
    if (code != 0x7F) {
      ASSERT_EQ(LSFULAW::CompressLinear(LSFULAW::Expand(code)), code);
    }
    ASSERT_EQ(LSFALAW::CompressLinear(LSFALAW::Expand(code)), code);
    ASSERT_EQ(Stored<LSFALAW>(LSFALAW{code}.Get()).v, code);
  }
}

TEST(SampleFormats, G711CompressionPicksTheLevelOfItsInterval) {
  // Each code stands for an interval of inputs with the expansion in its middle: an
  // input lies within half a step of the level it gets, up to the low bits the law
  // drops at its input (2 for mu-law, 3 for A-law).
  for (int v = -32768; v <= 32767; ++v) {
    std::uint8_t const mc = LSFULAW::CompressLinear(v);
    int const mExponent = ((~mc) >> 4) & 7;
    if (std::abs(v) <= 32124) {
      ASSERT_LE(std::abs(LSFULAW::Expand(mc) - v), (4 << mExponent) + 3) << v;
    }
    std::uint8_t const ac = LSFALAW::CompressLinear(v);
    int const aSegment = ((ac ^ 0x55) >> 4) & 7;
    if (std::abs(v) <= 32256) {
      ASSERT_LE(std::abs(LSFALAW::Expand(ac) - v), (aSegment < 2 ? 8 : 8 << (aSegment - 1)) + 7) << v;
    }
    ASSERT_EQ(LSFALAW::Expand(ac) < 0, v < 0) << v;
  }
  EXPECT_EQ(Stored<LSFULAW>(2.0f).v, 0x80);
  EXPECT_EQ(Stored<LSFULAW>(-2.0f).v, 0x00);
  EXPECT_EQ(Stored<LSFALAW>(5.0f).v, 0xAA);
  EXPECT_EQ(Stored<LSFALAW>(-5.0f).v, 0x2A);
  EXPECT_EQ(Stored<LSFULAW>(0.0f).v, 0xFF);
  EXPECT_EQ(Stored<LSFALAW>(0.0f).v, 0xD5);
  EXPECT_EQ(Stored<LSFULAW>(std::numeric_limits<float>::quiet_NaN()).v, 0xFF);
}

TEST(SampleFormats, BulkConversionsMatchOneByOneAtEveryTailLength) {
  for (int count : {0, 1, 7, 8, 9, 23}) {
    std::vector<float> in(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) in[static_cast<std::size_t>(i)] = std::sin(static_cast<float>(i)) * 0.9f;
    std::vector<LSFBE24> stored(in.size() + 1);
    std::memset(stored.data(), 0xAB, stored.size() * sizeof(LSFBE24));
    ConvertSamplesOut(stored.data(), in.data(), count);
    EXPECT_EQ(stored.back().b[0], 0xAB) << "wrote past the count";
    std::vector<float> back(in.size() + 1, 42.0f);
    ConvertSamplesIn(back.data(), stored.data(), count);
    EXPECT_EQ(back.back(), 42.0f);
    for (int i = 0; i < count; ++i) {
      auto const k = static_cast<std::size_t>(i);
      EXPECT_EQ(back[k], Stored<LSFBE24>(in[k]).Get());
      EXPECT_NEAR(back[k], in[k], 1.0 / (1 << 22));
    }
  }
}
