// The decoder against the compliance streams of MPEG-1 and MPEG-2 Layer III, and
// MPEG-2.5 against mpg123.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "codecs/mp3_file.h"
#include "codecs/testing_mp3.h"

namespace {

struct Accuracy {
  double dRmsLsb = 0;   // root mean square difference in 16-bit steps
  int iMaxLsb = 0;
  std::size_t uCompared = 0;
};

// Compares decoded integers, rounded to 16 bits, with 16-bit reference samples.
// Full accuracy asks for an RMS error under 2^-15 / sqrt(12) of full scale: one
// 16-bit step / sqrt(12), which is the error of rounding itself. So both sides are
// compared after rounding, where a faithful decoder differs from the reference by
// a step only at the few samples whose exact value lies near a rounding edge.
Accuracy Compare(std::vector<std::int32_t> const& ours, std::vector<std::int16_t> const& reference) {
  Accuracy a;
  std::size_t const n = std::min(ours.size(), reference.size());
  double sum = 0;
  for (std::size_t i = 0; i < n; ++i) {
    int const d = Mp3To16(ours[i]) - reference[i];
    sum += static_cast<double>(d) * d;
    a.iMaxLsb = std::max(a.iMaxLsb, std::abs(d));
  }
  a.uCompared = n;
  a.dRmsLsb = n > 0 ? std::sqrt(sum / static_cast<double>(n)) : 0;
  return a;
}

std::vector<std::int16_t> ReadPcm16(std::string const& path) {
  std::vector<std::uint8_t> const bytes = Mp3ReadBytes(path);
  std::vector<std::int16_t> out(bytes.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    out[i] = static_cast<std::int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return out;
}

// The whole decoder output of a file from its very first sample: the references
// start where the decoder starts, so the 529 samples of the decoder's own delay are
// kept by seeking to -529 (these streams carry no encoder delay).
std::vector<std::int32_t> DecodeFromFirstSample(LMP3Source& source) {
  source.Seek(-LMP3Source::kDecoderDelay - source.GetEncoderDelay());
  std::vector<std::int32_t> out;
  // The length of a file without a tag is known for sure only once it has played.
  while (source.GetPositionSample() < source.GetEndSample()) {
    std::vector<std::int32_t> const block = Mp3ReadInts(source, 4096);
    out.insert(out.end(), block.begin(), block.end());
  }
  int const frameSamples = source.GetSampleRate() > 24000 ? 1152 : 576;
  std::size_t const total = static_cast<std::size_t>(source.GetFrameCount() - source.GetSkippedFrames()) *
                            frameSamples * source.GetChannels();
  if (out.size() > total) out.resize(total);
  return out;
}

// Frames at the start whose main data begins before the stream does. The reference
// decoder gave no output for them, so its first sample is the first of the first
// frame it could decode; ours plays them as silence to keep time.
int LeadingFramesWithoutMainData(std::string const& path) {
  std::vector<std::uint8_t> const d = Mp3ReadBytes(path);
  std::size_t pos = 0;
  LMP3Header h;
  while (pos + 4 <= d.size() && !h.Parse(&d[pos])) ++pos;
  int frames = 0;
  long held = 0;
  while (pos + 40 <= d.size() && h.Parse(&d[pos])) {
    std::size_t const side = pos + 4 + (h.bProtected ? 2 : 0);
    int const begin = h.iVersion == 0 ? (d[side] << 1) | (d[side + 1] >> 7) : d[side];
    if (begin <= held) break;
    held += h.GetFrameLength() - static_cast<int>(side - pos) - h.GetSideInfoSize();
    pos += static_cast<std::size_t>(h.GetFrameLength());
    ++frames;
  }
  return frames;
}

constexpr double kFullAccuracyLsb = 0.28867513459481287;  // 1 / sqrt(12)

}  // namespace

TEST(Mp3Conformance, EveryLayer3StreamDecodesWithinFullAccuracy) {
  char const* const streams[] = {
      "l3-compl",       "l3-he_32khz", "l3-he_44khz", "l3-he_48khz", "l3-hecommon",
      "l3-si",          "l3-si_block", "l3-si_huff",  "l3-sin1k0db", "l3-test46",
      "M2L3_bitrate_16_all", "M2L3_bitrate_22_all", "M2L3_bitrate_24_all", "M2L3_compl24", "M2L3_noise",
  };
  for (char const* name : streams) {
    SCOPED_TRACE(name);
    LMP3Source source(Mp3TestData(std::string(name) + ".bit"), false, true);
    ASSERT_FALSE(source.IsError());
    std::vector<std::int32_t> ours = DecodeFromFirstSample(source);
    int const lead = LeadingFramesWithoutMainData(Mp3TestData(std::string(name) + ".bit"));
    ours.erase(ours.begin(), ours.begin() + static_cast<long>(lead) * (source.GetSampleRate() > 24000 ? 1152 : 576) *
                                               source.GetChannels());
    std::vector<std::int16_t> const reference = ReadPcm16(Mp3TestData(std::string(name) + ".pcm"));
    // The references end at or before the last whole frame the stream holds.
    ASSERT_GE(ours.size(), reference.size());
    ASSERT_LE(ours.size() - reference.size(), static_cast<std::size_t>(2 * 1152 * source.GetChannels()));
    Accuracy const a = Compare(ours, reference);
    if (lead > 0) std::printf("  %-22s %d frame(s) without main data left out\n", name, lead);
    std::printf("  %-22s %d Hz %d ch: rms %.4f LSB, max %d LSB over %zu samples\n", name, source.GetSampleRate(),
                source.GetChannels(), a.dRmsLsb, a.iMaxLsb, a.uCompared);
    EXPECT_LT(a.dRmsLsb, kFullAccuracyLsb);
    EXPECT_LE(a.iMaxLsb, 2);  // 2^-14 of full scale
  }
}

// A stream that turns from mono to stereo is, to this reader, another stream: the
// frames of the second kind are passed over as foreign and the file ends where they
// begin. What comes before decodes as exactly as any other stream.
TEST(Mp3Conformance, StreamChangingFromMonoToStereoEndsAtTheChange) {
  LMP3Source source(Mp3TestData("l3-he_mode.bit"), false, true);
  ASSERT_FALSE(source.IsError());
  ASSERT_EQ(source.GetChannels(), 1);
  std::vector<std::int32_t> const ours = DecodeFromFirstSample(source);
  EXPECT_EQ(source.GetFrameCount(), 10);
  ASSERT_EQ(ours.size(), 10u * 1152u);
  std::vector<std::int16_t> reference = ReadPcm16(Mp3TestData("l3-he_mode.pcm"));
  reference.resize(ours.size());
  Accuracy const a = Compare(ours, reference);
  std::printf("  l3-he_mode (mono part)  rms %.4f LSB, max %d LSB\n", a.dRmsLsb, a.iMaxLsb);
  EXPECT_LT(a.dRmsLsb, kFullAccuracyLsb);
}

// This stream changes its bit rate after 455 frames. Its first 50 frames all have
// the same rate, so the file is taken as constant rate and its length told by its
// size at that rate: 749 frames, where play ends. Up to there it is exact.
TEST(Mp3Conformance, StreamChangingItsRateLateEndsWhereItsFirstRateSays) {
  LMP3Source source(Mp3TestData("l3-test45.bit"), false, true);
  ASSERT_FALSE(source.IsError());
  EXPECT_FALSE(source.IsVBR());
  std::vector<std::int32_t> const ours = DecodeFromFirstSample(source);
  EXPECT_EQ(source.GetFrameCount(), 749);
  std::vector<std::int16_t> const reference = ReadPcm16(Mp3TestData("l3-test45.pcm"));
  ASSERT_EQ(ours.size(), 749u * 576u * 2u);
  ASSERT_GT(reference.size(), ours.size());
  Accuracy const a = Compare(ours, reference);
  std::printf("  l3-test45 (749 frames)  rms %.4f LSB, max %d LSB\n", a.dRmsLsb, a.iMaxLsb);
  EXPECT_LT(a.dRmsLsb, kFullAccuracyLsb);
  EXPECT_LE(a.iMaxLsb, 2);
}
