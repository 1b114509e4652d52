#include "sound/ima_adpcm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace {

// One mono block: predictor 100, step index 0 (step 7), then the codes
// 7 F 0 8 4 3 9 2, packed low nibble first.
std::vector<std::uint8_t> const kMonoBlock = {100, 0, 0, 0, 0xF7, 0x80, 0x34, 0x29};

// Worked through by hand, sample by sample: step, difference, new predictor, new index.
//   7: 7  -> 0+7+3+1   = 11 -> 111, index 8 (step 16)
//   F: 16 -> 2+16+8+4  = 30 -> 81 (sign), index 16 (34)
//   0: 34 -> 4         = 4  -> 85, index 15 (31)
//   8: 31 -> 3         = 3  -> 82 (sign), index 14 (28)
//   4: 28 -> 3+28      = 31 -> 113, index 16 (34)
//   3: 34 -> 4+17+8    = 29 -> 142, index 15 (31)
//   9: 31 -> 3+7       = 10 -> 132 (sign), index 14 (28)
//   2: 28 -> 3+14      = 17 -> 149, index 13
std::vector<std::int16_t> const kMonoDecoded = {100, 111, 81, 85, 82, 113, 142, 132, 149};

std::vector<std::int16_t> Decode(std::vector<std::uint8_t> const& block, int channels) {
  int const bytes = static_cast<int>(block.size());
  std::vector<std::int16_t> out(static_cast<std::size_t>(LImaAdpcmFramesPerBlock(bytes, channels) * channels));
  int const frames = LImaAdpcmDecodeBlock(block.data(), bytes, channels, out.data());
  out.resize(static_cast<std::size_t>(frames * channels));
  return out;
}

double SnrDb(std::vector<std::int16_t> const& ref, std::vector<std::int16_t> const& got, std::size_t first,
             std::size_t stride, std::size_t offset) {
  double signal = 0, noise = 0;
  for (std::size_t i = first * stride + offset; i < ref.size() && i < got.size(); i += stride) {
    double const d = static_cast<double>(got[i]) - ref[i];
    signal += static_cast<double>(ref[i]) * ref[i];
    noise += d * d;
  }
  return 10.0 * std::log10(signal / std::max(noise, 1e-9));
}

}  // namespace

TEST(ImaAdpcm, FramesPerBlockFollowsTheBlockLayout) {
  EXPECT_EQ(LImaAdpcmFramesPerBlock(256, 1), 505);
  EXPECT_EQ(LImaAdpcmFramesPerBlock(512, 2), 505);
  EXPECT_EQ(LImaAdpcmFramesPerBlock(2048, 2), 2041);
  EXPECT_EQ(LImaAdpcmFramesPerBlock(4, 1), 1);  // header only
  EXPECT_EQ(LImaAdpcmFramesPerBlock(7, 2), 0);  // not even the headers
  EXPECT_EQ(LImaAdpcmFramesPerBlock(512, 0), 0);
  EXPECT_EQ(LImaAdpcmFramesPerBlock(512, -1), 0);
  EXPECT_EQ(LImaAdpcmFramesPerBlock(1 << 20, 256), 0);
}

TEST(ImaAdpcm, DecodesAHandWorkedMonoBlock) {
  EXPECT_EQ(Decode(kMonoBlock, 1), kMonoDecoded);
}

TEST(ImaAdpcm, PredictorSaturatesAndStepIndexStaysInTheTable) {
  // Predictor 32760 at the largest step (32767), codes 7 F F 7 0 0 0 0. Each code 7 or F
  // moves by 4095+32767+16383+8191 = 61436, which must clip at either end, and the index
  // must stay at 88 although those codes raise it by 8.
  std::vector<std::uint8_t> block = {0xF8, 0x7F, 88, 0, 0xF7, 0x7F, 0x00, 0x00};
  std::vector<std::int16_t> const got = Decode(block, 1);
  std::vector<std::int16_t> const expected = {32760,
                                              32767,   // 32760 + 61436, clipped
                                              -28669,  // 32767 - 61436
                                              -32768,  // clipped
                                              28668,   // -32768 + 61436: still at the largest step
                                              32763,   // code 0 adds 32767/8 = 4095, and the step shrinks to 29794
                                              32767,   // + 29794/8, clipped; step 27086
                                              32767,  32767};
  EXPECT_EQ(got, expected);

  // A corrupt step index above 88 decodes as 88 instead of reading past the table.
  std::vector<std::uint8_t> bad = block;
  bad[2] = 200;
  EXPECT_EQ(Decode(bad, 1), got);
  bad[2] = 255;
  EXPECT_EQ(Decode(bad, 1), got);
}

TEST(ImaAdpcm, StereoInterleavesFourByteChannelWords) {
  // Two groups: each channel word carries 8 samples of its own channel, so channel 0
  // decodes like a mono block made of its words alone.
  std::vector<std::uint8_t> const left = {100, 0, 0, 0, 0xF7, 0x80, 0x34, 0x29, 0x12, 0x9A, 0x77, 0x00};
  std::vector<std::uint8_t> const right = {0x18, 0xFC, 40, 0, 0x0F, 0xF0, 0x5D, 0x6C, 0xC3, 0x4B, 0x88, 0x1E};
  std::vector<std::uint8_t> stereo;
  stereo.insert(stereo.end(), left.begin(), left.begin() + 4);
  stereo.insert(stereo.end(), right.begin(), right.begin() + 4);
  for (int g = 0; g < 2; ++g) {
    stereo.insert(stereo.end(), left.begin() + 4 + 4 * g, left.begin() + 8 + 4 * g);
    stereo.insert(stereo.end(), right.begin() + 4 + 4 * g, right.begin() + 8 + 4 * g);
  }

  std::vector<std::int16_t> const l = Decode(left, 1);
  std::vector<std::int16_t> const r = Decode(right, 1);
  std::vector<std::int16_t> const lr = Decode(stereo, 2);
  ASSERT_EQ(l.size(), 17u);
  ASSERT_EQ(lr.size(), 34u);
  EXPECT_EQ(std::vector<std::int16_t>(l.begin(), l.begin() + 9), kMonoDecoded);
  EXPECT_EQ(r[0], -1000);
  for (std::size_t f = 0; f < 17; ++f) {
    EXPECT_EQ(lr[2 * f], l[f]) << "frame " << f;
    EXPECT_EQ(lr[2 * f + 1], r[f]) << "frame " << f;
  }
}

TEST(ImaAdpcm, ShortLastBlockDecodesOnlyWholeFrames) {
  // Mono: every byte is two more frames.
  std::vector<std::uint8_t> cut(kMonoBlock.begin(), kMonoBlock.begin() + 6);
  EXPECT_EQ(Decode(cut, 1), std::vector<std::int16_t>(kMonoDecoded.begin(), kMonoDecoded.begin() + 5));

  // Stereo, full block of 8 + 16 bytes = 17 frames; cut in the second group inside the
  // right channel's word: only the 2 bytes (4 frames) it still has are whole for both.
  std::mt19937 rng(7);
  std::vector<std::uint8_t> full(24);
  for (auto& b : full) b = static_cast<std::uint8_t>(rng());
  full[2] = 30;
  full[6] = 50;
  std::vector<std::int16_t> const all = Decode(full, 2);
  ASSERT_EQ(all.size(), 34u);
  for (int bytes : {8, 9, 12, 15, 16, 18, 19, 20, 22, 23}) {
    int const r = (bytes - 8) % 8;
    int const expectFrames = 1 + 8 * ((bytes - 8) / 8) + 2 * std::clamp(r - 4, 0, 4);
    std::vector<std::int16_t> const part = Decode(std::vector<std::uint8_t>(full.begin(), full.begin() + bytes), 2);
    ASSERT_EQ(part.size(), static_cast<std::size_t>(expectFrames * 2)) << bytes << " bytes";
    EXPECT_TRUE(std::equal(part.begin(), part.end(), all.begin())) << bytes << " bytes";
  }
  // Less than the headers: nothing.
  std::int16_t dummy[4] = {};
  EXPECT_EQ(LImaAdpcmDecodeBlock(full.data(), 7, 2, dummy), 0);
  EXPECT_EQ(LImaAdpcmDecodeBlock(full.data(), 3, 1, dummy), 0);
}

TEST(ImaAdpcm, EncodeThenDecodeKeepsASineWithinTheQuantizingError) {
  // Stereo, two tones at different levels over several blocks of the common 2048-byte
  // layout, plus a short last block.
  int const channels = 2, blockAlign = 2048;
  int const perBlock = LImaAdpcmFramesPerBlock(blockAlign, channels);
  int const total = perBlock * 3 + 500;
  std::vector<std::int16_t> in(static_cast<std::size_t>(total * channels));
  for (int f = 0; f < total; ++f) {
    double const t = f / 44100.0;
    in[2 * f] = static_cast<std::int16_t>(std::lround(20000 * std::sin(2 * std::numbers::pi * 440 * t)));
    in[2 * f + 1] = static_cast<std::int16_t>(std::lround(3000 * std::sin(2 * std::numbers::pi * 1234.5 * t + 1)));
  }

  std::vector<std::int16_t> decoded;
  std::vector<std::uint8_t> block(blockAlign);
  std::vector<std::int16_t> frames(static_cast<std::size_t>(perBlock * channels));
  for (int start = 0; start < total; start += perBlock) {
    int const n = std::min(perBlock, total - start);
    ASSERT_EQ(LImaAdpcmEncodeBlock(in.data() + start * channels, n, channels, blockAlign, block.data()), blockAlign);
    ASSERT_EQ(LImaAdpcmDecodeBlock(block.data(), blockAlign, channels, frames.data()), perBlock);
    // The header carries the first frame exactly.
    EXPECT_EQ(frames[0], in[static_cast<std::size_t>(start * channels)]);
    EXPECT_EQ(frames[1], in[static_cast<std::size_t>(start * channels + 1)]);
    decoded.insert(decoded.end(), frames.begin(), frames.begin() + n * channels);
  }
  double const snrLeft = SnrDb(in, decoded, 0, 2, 0);
  double const snrRight = SnrDb(in, decoded, 0, 2, 1);
  RecordProperty("snr_left_db", std::to_string(snrLeft));
  RecordProperty("snr_right_db", std::to_string(snrRight));
  EXPECT_GT(snrLeft, 25.0);
  EXPECT_GT(snrRight, 25.0);
}

TEST(ImaAdpcm, EncoderRefusesLayoutsItCannotFill) {
  std::vector<std::int16_t> in(64, 0);
  std::vector<std::uint8_t> out(64, 0xAA);
  EXPECT_EQ(LImaAdpcmEncodeBlock(in.data(), 8, 1, 3, out.data()), 0);
  EXPECT_EQ(LImaAdpcmEncodeBlock(in.data(), 0, 1, 36, out.data()), 0);
  EXPECT_EQ(LImaAdpcmEncodeBlock(in.data(), 8, 0, 36, out.data()), 0);
  // Stereo data that is not whole 8-byte groups would leave the right channel short.
  EXPECT_EQ(LImaAdpcmEncodeBlock(in.data(), 8, 2, 20, out.data()), 0);
  EXPECT_EQ(out[0], 0xAA);
  // Mono may end in the middle of a word: 4 header + 5 data bytes hold 11 frames.
  EXPECT_EQ(LImaAdpcmEncodeBlock(in.data(), 11, 1, 9, out.data()), 9);
  EXPECT_EQ(out[9], 0xAA);
}

TEST(ImaAdpcm, GarbageBlocksStayInsideTheirBuffers) {
  std::mt19937 rng(12345);
  for (int trial = 0; trial < 2000; ++trial) {
    int const channels = 1 + static_cast<int>(rng() % 8);
    int const bytes = static_cast<int>(rng() % 600);
    std::vector<std::uint8_t> block(static_cast<std::size_t>(bytes));
    for (auto& b : block) b = static_cast<std::uint8_t>(rng());
    int const room = LImaAdpcmFramesPerBlock(bytes, channels) * channels;
    // Guard samples after the room the caller was told to give.
    std::vector<std::int16_t> out(static_cast<std::size_t>(room + 16), 0x5A5A);
    int const frames = LImaAdpcmDecodeBlock(block.data(), bytes, channels, out.data());
    ASSERT_GE(frames, bytes >= 4 * channels ? 1 : 0);
    ASSERT_LE(frames * channels, room);
    for (int i = room; i < room + 16; ++i) ASSERT_EQ(out[static_cast<std::size_t>(i)], 0x5A5A);
  }
}
