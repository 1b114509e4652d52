#include "sound/gsm610.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// A voiced-speech stand-in in integers only, so every machine computes the same
// samples: a pulse train of drifting pitch plus noise through a two-pole resonance,
// under a rising and falling envelope.
std::vector<std::int16_t> IntegerSpeech(int n) {
  std::uint32_t seed = 12345;
  int y1 = 0, y2 = 0;
  std::vector<std::int16_t> out(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    seed = seed * 1664525u + 1013904223u;
    int const noise = static_cast<int>((seed >> 16) & 0x1FF) - 256;
    int const period = 45 + (i / 320) % 40;
    int const y = ((1700 * y1 - 800 * y2) >> 10) + (i % period == 0 ? 3000 : 0) + noise;
    y2 = y1;
    y1 = y;
    int const phase = i % 800;
    int const env = phase < 400 ? phase : 800 - phase;
    out[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(std::clamp((y * env) >> 7, -32768, 32767));
  }
  return out;
}

// Frames of random bits behind a correct signature.
std::vector<std::uint8_t> RandomFrames(int frames) {
  std::uint32_t seed = 777;
  std::vector<std::uint8_t> out(static_cast<std::size_t>(33 * frames));
  for (auto& b : out) {
    seed = seed * 1664525u + 1013904223u;
    b = static_cast<std::uint8_t>(seed >> 24);
  }
  for (int f = 0; f < frames; ++f) out[33 * f] = static_cast<std::uint8_t>(0xD0 | (out[33 * f] & 0x0F));
  return out;
}

// IntegerSpeech() doubled with clipping, its last 10 frames under full-scale noise:
// the saturating paths of the arithmetic get their turn.
std::vector<std::int16_t> LoudSpeech() {
  std::vector<std::int16_t> out = IntegerSpeech(8000);
  std::uint32_t seed = 99;
  for (std::size_t i = 0; i < out.size(); ++i) {
    seed = seed * 1664525u + 1013904223u;
    int const noise = i < 6400 ? 0 : static_cast<int>(seed >> 16) - 32768;
    out[i] = static_cast<std::int16_t>(std::clamp(2 * out[i] + noise, -32768, 32767));
  }
  return out;
}

// Reference material from an independent GSM 06.10 coder (the one in sox): the first
// four frames of IntegerSpeech(), in both packings, the hashes of its decoding, and
// the hash of its coding of LoudSpeech().
std::vector<std::uint8_t> const kReferenceFrames = {
    0xD4, 0x24, 0xBB, 0x69, 0xE3, 0x50, 0x21, 0xDA, 0x82, 0xDE, 0xB4, 0xD5, 0x58, 0xC8, 0xBF, 0x1C, 0x8D, 0xC9, 0x23,
    0x5B, 0xA5, 0xC8, 0xFA, 0x88, 0xCA, 0x9B, 0x5B, 0x89, 0xB8, 0xDC, 0xF1, 0xC8, 0x9C, 0xD4, 0x64, 0xBB, 0x25, 0xA2,
    0x5B, 0xCA, 0x39, 0x24, 0x7D, 0xA7, 0x2D, 0x5B, 0xC7, 0x12, 0x6D, 0x57, 0xD1, 0x58, 0xB5, 0x8B, 0x48, 0xE5, 0x6E,
    0x39, 0xE4, 0x5B, 0xC8, 0x38, 0x23, 0x39, 0x0B, 0x70, 0xD4, 0xE3, 0xBB, 0xA9, 0xA2, 0x69, 0xCA, 0x38, 0xA4, 0xBA,
    0xA6, 0x67, 0x6B, 0x50, 0xC5, 0xE9, 0x69, 0xC8, 0xDB, 0x5D, 0x6C, 0x37, 0x37, 0xA4, 0xB7, 0x25, 0xB9, 0x6C, 0xB9,
    0x24, 0xBE, 0xA2, 0xE2, 0xD4, 0x63, 0xBB, 0x29, 0xE2, 0x5D, 0x4C, 0xC6, 0xD2, 0x4A, 0x70, 0xDD, 0xB9, 0x29, 0x1A,
    0xB4, 0xA9, 0x2B, 0x42, 0xB9, 0x48, 0xCD, 0x35, 0x29, 0xCF, 0x5C, 0xE8, 0x0A, 0x30, 0x9A, 0x6D, 0xB6, 0xDC};
std::vector<std::uint8_t> const kReferenceWav49 = {
    0x10, 0x79, 0x9B, 0x1E, 0x87, 0xA2, 0xA1, 0x15, 0xE4, 0x77, 0x9A, 0xCA, 0xCA, 0x68, 0xE7, 0xC8, 0x8D, 0x24, 0xD7,
    0xBA, 0x85, 0xDC, 0x45, 0x85, 0xD5, 0xD6, 0x9A, 0x69, 0xDC, 0x78, 0x8E, 0xD4, 0x18, 0x91, 0x97, 0xA5, 0x51, 0xAD,
    0xA5, 0x46, 0x92, 0xFB, 0x34, 0xB6, 0xAD, 0x75, 0x92, 0xB4, 0xEA, 0x8B, 0x0E, 0xDA, 0xB1, 0xC8, 0xB1, 0x1B, 0xC7,
    0x93, 0xAD, 0x85, 0x46, 0x70, 0xB1, 0xD0, 0x1A, 0xD3, 0x78, 0x9D, 0x1A, 0x45, 0x5B, 0x6A, 0x14, 0x59, 0x57, 0x0B,
    0x5F, 0xD3, 0x90, 0x7A, 0x33, 0x8D, 0xDC, 0xE6, 0x72, 0x6C, 0xA3, 0xDF, 0x64, 0x23, 0xCB, 0xF5, 0x6C, 0x24, 0xD9,
    0x57, 0x19, 0x15, 0x8D, 0x97, 0xE9, 0x51, 0x2E, 0xCD, 0xB8, 0x49, 0x12, 0x8F, 0xAD, 0x5C, 0x93, 0x52, 0x99, 0x95,
    0xD4, 0x42, 0x5C, 0x8D, 0x68, 0xBA, 0xD1, 0xF8, 0x8E, 0x74, 0xA0, 0x06, 0x4D, 0xDB, 0xB6, 0x8D};
constexpr std::uint64_t kReferenceSpeechDecodeHash = 0x06ed7f853459bc1full;  // the 640 samples of kReferenceFrames
constexpr std::uint64_t kReferenceLoudEncodeHash = 0x8c252566c4d99f19ull;    // 50 frames, 1650 bytes
constexpr std::uint64_t kReferenceRandomDecodeHash = 0xc2eb4b297f252dc0ull;  // RandomFrames(50), 8000 samples

// FNV-1a over the bytes of the values, least significant first.
template <class T>
std::uint64_t Hash(std::vector<T> const& v) {
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (T x : v) {
    for (std::size_t b = 0; b < sizeof(T); ++b) {
      h ^= (static_cast<std::make_unsigned_t<T>>(x) >> (8 * b)) & 0xFF;
      h *= 0x100000001b3ull;
    }
  }
  return h;
}

std::vector<std::uint8_t> EncodeFrames(std::vector<std::int16_t> const& pcm) {
  LGsm610Encoder enc;
  std::vector<std::uint8_t> out(pcm.size() / 160 * 33);
  for (std::size_t f = 0; f < pcm.size() / 160; ++f) enc.EncodeFrame(pcm.data() + 160 * f, out.data() + 33 * f);
  return out;
}

std::vector<std::int16_t> DecodeFrames(std::vector<std::uint8_t> const& gsm) {
  LGsm610Decoder dec;
  std::vector<std::int16_t> out(gsm.size() / 33 * 160);
  for (std::size_t f = 0; f < gsm.size() / 33; ++f) dec.DecodeFrame(gsm.data() + 33 * f, out.data() + 160 * f);
  return out;
}

std::vector<std::int16_t> DecodeWav49(std::vector<std::uint8_t> const& blocks) {
  LGsm610Decoder dec;
  std::vector<std::int16_t> out(blocks.size() / 65 * 320);
  for (std::size_t b = 0; b < blocks.size() / 65; ++b)
    dec.DecodeWav49Block(blocks.data() + 65 * b, out.data() + 320 * b);
  return out;
}

bool SameFrame(LGsm610Frame const& a, LGsm610Frame const& b) {
  return std::equal(std::begin(a.LARc), std::end(a.LARc), b.LARc) && std::equal(a.Nc, a.Nc + 4, b.Nc) &&
         std::equal(a.bc, a.bc + 4, b.bc) && std::equal(a.Mc, a.Mc + 4, b.Mc) &&
         std::equal(a.xmaxc, a.xmaxc + 4, b.xmaxc) && std::equal(&a.xMc[0][0], &a.xMc[0][0] + 52, &b.xMc[0][0]);
}

// Every field of a frame, in transmission order, with its width.
std::vector<std::pair<std::uint8_t*, int>> Fields(LGsm610Frame& f) {
  static constexpr int kLarWidths[8] = {6, 6, 5, 5, 4, 4, 3, 3};
  std::vector<std::pair<std::uint8_t*, int>> v;
  for (int i = 0; i < 8; ++i) v.emplace_back(&f.LARc[i], kLarWidths[i]);
  for (int j = 0; j < 4; ++j) {
    v.emplace_back(&f.Nc[j], 7);
    v.emplace_back(&f.bc[j], 2);
    v.emplace_back(&f.Mc[j], 2);
    v.emplace_back(&f.xmaxc[j], 6);
    for (int i = 0; i < 13; ++i) v.emplace_back(&f.xMc[j][i], 3);
  }
  return v;
}

LGsm610Frame RandomFrame(std::mt19937& rng) {
  LGsm610Frame f;
  for (auto [p, width] : Fields(f)) *p = static_cast<std::uint8_t>(rng() & ((1u << width) - 1));
  return f;
}

// Speech-like test tone: harmonics of a gliding 110..190 Hz voice, shaped by three
// formant-like peaks, under a syllable envelope of four per second.
std::vector<std::int16_t> SineSpeech(int n) {
  std::vector<std::int16_t> out(static_cast<std::size_t>(n));
  double phase = 0;
  for (int i = 0; i < n; ++i) {
    double const t = i / 8000.0;
    double const f0 = 150 + 40 * std::sin(2 * std::numbers::pi * 0.7 * t);
    phase += 2 * std::numbers::pi * f0 / 8000.0;
    double sum = 0;
    for (int h = 1; h * f0 < 3600; ++h) {
      double const f = h * f0;
      double const weight = std::exp(-std::pow((f - 500) / 200, 2)) + 0.5 * std::exp(-std::pow((f - 1500) / 250, 2)) +
                            0.25 * std::exp(-std::pow((f - 2500) / 300, 2)) + 0.02;
      sum += weight * std::sin(h * phase);
    }
    double const env = 0.15 + 0.85 * std::pow(std::sin(std::numbers::pi * 4 * t), 2);
    out[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(std::lround(9000 * env * sum));
  }
  return out;
}

}  // namespace

TEST(Gsm610, EncoderMatchesAnIndependentCoderBitForBit) {
  std::vector<std::int16_t> const pcm = IntegerSpeech(640);
  EXPECT_EQ(EncodeFrames(pcm), kReferenceFrames);

  LGsm610Encoder enc;
  std::vector<std::uint8_t> blocks(130);
  enc.EncodeWav49Block(pcm.data(), blocks.data());
  enc.EncodeWav49Block(pcm.data() + 320, blocks.data() + 65);
  EXPECT_EQ(blocks, kReferenceWav49);

  std::vector<std::uint8_t> const loud = EncodeFrames(LoudSpeech());
  EXPECT_EQ(loud.size(), 1650u);
  EXPECT_EQ(Hash(loud), kReferenceLoudEncodeHash);
}

TEST(Gsm610, DecoderMatchesAnIndependentCoderBitForBit) {
  EXPECT_EQ(Hash(DecodeFrames(kReferenceFrames)), kReferenceSpeechDecodeHash);
  EXPECT_EQ(Hash(DecodeWav49(kReferenceWav49)), kReferenceSpeechDecodeHash);
  // Random bits reach the paths a coder never takes: lags outside 40..120, every gain,
  // grid and amplitude, log-area ratios at their extremes.
  EXPECT_EQ(Hash(DecodeFrames(RandomFrames(50))), kReferenceRandomDecodeHash);
}

TEST(Gsm610, SpeechLikeSignalSurvivesTheRoundTrip) {
  // Two seconds. The codec has no look-ahead, so the best alignment is at zero delay.
  std::vector<std::int16_t> const pcm = SineSpeech(16000);
  std::vector<std::int16_t> const out = DecodeFrames(EncodeFrames(pcm));
  ASSERT_EQ(out.size(), pcm.size());
  int bestLag = 0;
  double bestSnr = -1e9;
  for (int lag = 0; lag <= 40; ++lag) {
    double signal = 0, noise = 0;
    // Skip the first frame while the filters settle.
    for (std::size_t i = 160; i + static_cast<std::size_t>(lag) < out.size(); ++i) {
      double const d = out[i + static_cast<std::size_t>(lag)] - static_cast<double>(pcm[i]);
      signal += static_cast<double>(pcm[i]) * pcm[i];
      noise += d * d;
    }
    double const snr = 10 * std::log10(signal / noise);
    if (snr > bestSnr) {
      bestSnr = snr;
      bestLag = lag;
    }
  }
  RecordProperty("snr_db", std::to_string(bestSnr));
  RecordProperty("lag", bestLag);
  // Measured: 9.9 dB at lag 0. Waveform SNR is a harsh measure for a vocoder-like
  // coder; a fault in the long-term predictor or the pulse coding drops it to a few dB.
  EXPECT_EQ(bestLag, 0);
  EXPECT_GT(bestSnr, 8.5);
}

TEST(Gsm610, BothPackingsCarryTheSameParametersInTheirOwnBitOrder) {
  std::mt19937 rng(99);
  for (int trial = 0; trial < 200; ++trial) {
    LGsm610Frame const a = RandomFrame(rng), b = RandomFrame(rng);
    std::uint8_t frame[33], block[65];
    LGsm610Frame back, back2;
    LGsm610Pack(a, frame);
    EXPECT_EQ(frame[0] >> 4, 0xD);
    ASSERT_TRUE(LGsm610Unpack(frame, back));
    ASSERT_TRUE(SameFrame(a, back));
    LGsm610PackWav49(a, b, block);
    LGsm610UnpackWav49(block, back, back2);
    ASSERT_TRUE(SameFrame(a, back));
    ASSERT_TRUE(SameFrame(b, back2));
  }

  // One field at a time at its largest value: exactly its bits are set, contiguous, right
  // after those of the field before; most significant first after the signature in the
  // 33-byte form, least significant first from bit 0 in WAV49, the second frame from
  // bit 260.
  LGsm610Frame zero{};
  int offset = 0;
  for (std::size_t n = 0; n < Fields(zero).size(); ++n) {
    LGsm610Frame one{};
    auto [p, width] = Fields(one)[n];
    *p = static_cast<std::uint8_t>((1 << width) - 1);
    std::uint8_t frame[33], block[65];
    LGsm610Pack(one, frame);
    LGsm610PackWav49(zero, one, block);
    for (int bit = 0; bit < 264; ++bit) {
      bool const inField = bit >= 4 + offset && bit < 4 + offset + width;
      bool const signature = bit < 4 && bit != 2;  // 1101
      ASSERT_EQ(((frame[bit / 8] >> (7 - bit % 8)) & 1) != 0, inField || signature) << "field " << n << " bit " << bit;
    }
    for (int bit = 0; bit < 520; ++bit) {
      bool const inField = bit >= 260 + offset && bit < 260 + offset + width;
      ASSERT_EQ(((block[bit / 8] >> (bit % 8)) & 1) != 0, inField) << "field " << n << " bit " << bit;
    }
    offset += width;
  }
  EXPECT_EQ(offset, 260);
}

TEST(Gsm610, Wav49BlockDecodesLikeTheTwoStandardFramesItHolds) {
  std::vector<std::int16_t> const pcm = SineSpeech(3200);
  std::vector<std::uint8_t> const frames = EncodeFrames(pcm);
  LGsm610Encoder enc;
  std::vector<std::uint8_t> blocks(65 * 10);
  for (int b = 0; b < 10; ++b) enc.EncodeWav49Block(pcm.data() + 320 * b, blocks.data() + 65 * b);
  for (int b = 0; b < 10; ++b) {
    LGsm610Frame first, second, f1, f2;
    LGsm610UnpackWav49(blocks.data() + 65 * b, first, second);
    LGsm610Unpack(frames.data() + 33 * (2 * b), f1);
    LGsm610Unpack(frames.data() + 33 * (2 * b + 1), f2);
    EXPECT_TRUE(SameFrame(first, f1)) << "block " << b;
    EXPECT_TRUE(SameFrame(second, f2)) << "block " << b;
  }
  EXPECT_EQ(DecodeWav49(blocks), DecodeFrames(frames));
}

TEST(Gsm610, DecoderIsDeterministicAndCarriesStateAcrossFrames) {
  std::vector<std::uint8_t> const frames = EncodeFrames(SineSpeech(1600));
  std::vector<std::int16_t> const once = DecodeFrames(frames);
  EXPECT_EQ(DecodeFrames(frames), once);

  // The same third frame decoded without the two before it comes out different...
  LGsm610Decoder dec;
  std::int16_t alone[160];
  dec.DecodeFrame(frames.data() + 66, alone);
  EXPECT_FALSE(std::equal(alone, alone + 160, once.begin() + 320));
  // ...and Reset() forgets everything: the stream from the start again matches.
  dec.Reset();
  std::vector<std::int16_t> again(160 * 3);
  for (int f = 0; f < 3; ++f) dec.DecodeFrame(frames.data() + 33 * f, again.data() + 160 * f);
  EXPECT_TRUE(std::equal(again.begin(), again.end(), once.begin()));

  // The encoder too: after Reset it codes the same input into the same bytes.
  LGsm610Encoder enc;
  std::vector<std::int16_t> const pcm = SineSpeech(480);
  std::uint8_t a[33], b[33];
  for (int f = 0; f < 3; ++f) enc.EncodeFrame(pcm.data() + 160 * f, a);
  enc.Reset();
  enc.EncodeFrame(pcm.data(), b);
  EXPECT_TRUE(std::equal(b, b + 33, frames.begin()));
}

TEST(Gsm610, WrongSignatureIsReportedButStillDecoded) {
  std::vector<std::uint8_t> frame(kReferenceFrames.begin() + 33, kReferenceFrames.begin() + 66);
  LGsm610Decoder good, bad;
  std::int16_t a[160], b[160];
  EXPECT_TRUE(good.DecodeFrame(frame.data(), a));
  frame[0] = static_cast<std::uint8_t>(0x20 | (frame[0] & 0x0F));
  EXPECT_FALSE(bad.DecodeFrame(frame.data(), b));
  EXPECT_TRUE(std::equal(a, a + 160, b));
}

TEST(Gsm610, AnyBytesDecodeSafelyToThirteenBitSamples) {
  std::mt19937 rng(4242);
  LGsm610Decoder dec;
  std::vector<std::uint8_t> bytes(65);
  std::vector<std::int16_t> out(320 + 8, 0x1234);
  for (int trial = 0; trial < 3000; ++trial) {
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng());
    if (trial % 2) {
      dec.DecodeFrame(bytes.data(), out.data());
      ASSERT_TRUE(std::all_of(out.begin(), out.begin() + 160, [](std::int16_t s) { return (s & 7) == 0; }));
    } else {
      dec.DecodeWav49Block(bytes.data(), out.data());
      ASSERT_TRUE(std::all_of(out.begin(), out.begin() + 320, [](std::int16_t s) { return (s & 7) == 0; }));
    }
    for (int i = 320; i < 328; ++i) ASSERT_EQ(out[static_cast<std::size_t>(i)], 0x1234);
  }
  // Parameters handed over directly may be wider than their fields: they are masked.
  LGsm610Frame wild;
  std::fill(reinterpret_cast<std::uint8_t*>(&wild), reinterpret_cast<std::uint8_t*>(&wild) + sizeof wild, 0xFF);
  LGsm610Frame masked;
  for (auto [p, width] : Fields(masked)) *p = static_cast<std::uint8_t>((1 << width) - 1);
  LGsm610Decoder d1, d2;
  std::int16_t a[160], b[160];
  d1.Decode(wild, a);
  d2.Decode(masked, b);
  EXPECT_TRUE(std::equal(a, a + 160, b));
}
