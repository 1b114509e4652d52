#include "sound/compressed_wave.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "foundation/byte_order.h"
#include "sound/gsm610.h"
#include "sound/ima_adpcm.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"
#include "sound/wave_file.h"

namespace {

std::vector<std::int16_t> Tone(int frames, int channels) {
  std::vector<std::int16_t> v(static_cast<std::size_t>(frames * channels));
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) {
      double const x = std::sin(0.031 * f * (c + 1)) * 0.6 + std::sin(0.17 * f) * 0.2;
      v[static_cast<std::size_t>(f * channels + c)] = static_cast<std::int16_t>(x * 32767);
    }
  }
  return v;
}

// An IMA ADPCM WAV as other programs write it: fmt with samples per block, an
// optional fact count, and the blocks; the last one may be cut short.
ByteImage ImaWav(std::vector<std::int16_t> const& pcm, int channels, int blockAlign, int blocks, int lastBytes,
                 std::int64_t fact, int bits = 4) {
  int const perBlock = LImaAdpcmFramesPerBlock(blockAlign, channels);
  ByteImage body;
  std::vector<std::uint8_t> block(static_cast<std::size_t>(blockAlign));
  for (int b = 0; b < blocks; ++b) {
    int const first = b * perBlock;
    int const frames = std::min(perBlock, static_cast<int>(pcm.size()) / channels - first);
    LImaAdpcmEncodeBlock(pcm.data() + static_cast<std::size_t>(first * channels), frames, channels, blockAlign,
                         block.data());
    int const n = b + 1 == blocks && lastBytes > 0 ? lastBytes : blockAlign;
    body.b.insert(body.b.end(), block.begin(), block.begin() + n);
  }
  ByteImage w;
  std::uint32_t const factBytes = fact >= 0 ? 12 : 0;
  w.Tag("RIFF").LE32(static_cast<std::uint32_t>(4 + 28 + factBytes + 8 + body.Size())).Tag("WAVE");
  w.Tag("fmt ").LE32(20).LE16(17).LE16(static_cast<std::uint32_t>(channels)).LE32(22050).LE32(11100);
  w.LE16(static_cast<std::uint32_t>(blockAlign)).LE16(static_cast<std::uint32_t>(bits)).LE16(2);
  w.LE16(static_cast<std::uint32_t>(perBlock));
  if (fact >= 0) w.Tag("fact").LE32(4).LE32(static_cast<std::uint32_t>(fact));
  w.Tag("data").LE32(static_cast<std::uint32_t>(body.Size()));
  w.b.insert(w.b.end(), body.b.begin(), body.b.end());
  return w;
}

// What a direct decode of the image's blocks gives, as floats.
std::vector<float> DecodeDirect(ByteImage const& wav, std::size_t dataAt, int channels, int blockAlign) {
  std::vector<float> out;
  std::vector<std::int16_t> pcm(static_cast<std::size_t>(LImaAdpcmFramesPerBlock(blockAlign, channels) * channels));
  for (std::size_t at = dataAt; at < wav.Size(); at += static_cast<std::size_t>(blockAlign)) {
    int const bytes = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(blockAlign), wav.Size() - at));
    int const frames = LImaAdpcmDecodeBlock(wav.b.data() + at, bytes, channels, pcm.data());
    for (int i = 0; i < frames * channels; ++i) out.push_back(pcm[static_cast<std::size_t>(i)] * 3.051851e-5f);
  }
  return out;
}

bool HaveSox() {
  return std::system("command -v sox >/dev/null 2>&1") == 0;
}

std::vector<float> SoxDecode(std::string const& path) {
  std::vector<float> out;
  std::string const command = "sox -V1 '" + path + "' -t raw -e floating-point -b 32 -L - 2>/dev/null";
  if (FILE* p = popen(command.c_str(), "r")) {
    float buf[1024];
    std::size_t n;
    while ((n = fread(buf, sizeof(float), 1024, p)) > 0) out.insert(out.end(), buf, buf + n);
    pclose(p);
  }
  return out;
}

double Correlation(std::vector<float> const& a, std::vector<float> const& b) {
  double ab = 0, aa = 0, bb = 0;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    ab += a[i] * b[i];
    aa += a[i] * a[i];
    bb += b[i] * b[i];
  }
  return ab / std::sqrt(aa * bb + 1e-30);
}

}  // namespace

TEST(CompressedWave, ImaAdpcmDecodesBlockByBlockAndEndsAtTheFactCount) {
  std::string const dir = ScratchFolder();
  int const channels = 2;
  int const align = 512;  // 505 frames a block
  std::vector<std::int16_t> const pcm = Tone(2000, channels);
  ByteImage const wav = ImaWav(pcm, channels, align, 4, 0, 2000);
  wav.SaveTo(dir + "/ima.wav");
  std::vector<float> const direct = DecodeDirect(wav, 60, channels, align);

  LSoundSource s = LWaveFile::OpenSource(dir + "/ima.wav");
  ASSERT_TRUE(s.IsGood()) << int(s->GetErrorState());
  EXPECT_EQ(s->GetSampleRate(), 22050);
  EXPECT_EQ(s->GetChannels(), 2);
  EXPECT_EQ(s->GetEndSample(), 2000);  // four blocks hold 2020; the rest is padding
  EXPECT_EQ(s->GetPeakBound(), LSoundPeakInRange);
  std::vector<float> const got = ReadAll(s, 2010, 333);
  for (std::size_t i = 0; i < 4000; ++i) ASSERT_EQ(got[i], direct[i]) << i;
  for (std::size_t i = 4000; i < got.size(); ++i) ASSERT_EQ(got[i], 0.0f) << i;
  // The coder follows the tone closely.
  for (std::size_t i = 0; i < 4000; i += 7) ASSERT_NEAR(got[i], pcm[i] / 32767.0f, 0.05) << i;

  // Seeking into the middle of a block gives the same as reading through.
  s->Seek(1234);
  std::vector<float> const mid = ReadAll(s, 300);
  for (std::size_t i = 0; i < mid.size(); ++i) ASSERT_EQ(mid[i], direct[2 * 1234 + i]);

  if (HaveSox()) {
    std::vector<float> const sox = SoxDecode(dir + "/ima.wav");
    ASSERT_GE(sox.size(), 4000u);  // sox plays the padding of the last block too
    for (std::size_t i = 0; i < 4000; ++i) ASSERT_NEAR(sox[i], direct[i], 2e-4) << i;
  }
}

TEST(CompressedWave, ImaAdpcmWithoutFactEndsWithTheLastWholeFrameOfAShortBlock) {
  std::string const dir = ScratchFolder();
  std::vector<std::int16_t> const pcm = Tone(1200, 1);
  // Mono, 256-byte blocks of 505 frames; the third block is cut to 100 bytes (193 frames).
  ByteImage const wav = ImaWav(pcm, 1, 256, 3, 100, -1);
  wav.SaveTo(dir + "/short.wav");
  LSoundSource s = LWaveFile::OpenSource(dir + "/short.wav");
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetEndSample(), 2 * 505 + 193);
  std::vector<float> const direct = DecodeDirect(wav, 48, 1, 256);
  ASSERT_EQ(direct.size(), 1203u);
  EXPECT_EQ(ReadAll(s, 1203), direct);
}

TEST(CompressedWave, DamagedImaAndGsmHeadersGiveTheirErrorStates) {
  std::string const dir = ScratchFolder();
  std::vector<std::int16_t> const pcm = Tone(600, 2);
  struct Case {
    char const* name;
    ByteImage image;
    int state;
  } const cases[] = {
      {"zeroalign", ImaWav(pcm, 2, 0, 0, 0, -1), 3},
      {"tinyalign", ImaWav(pcm, 2, 7, 0, 0, -1), 3},
      {"raggedstereo", ImaWav(pcm, 2, 514, 1, 0, -1), 3},  // 506 bytes behind the headers: not whole groups
      {"threebit", ImaWav(pcm, 2, 512, 1, 0, -1, 3), 5},
      {"gsmstereo", PlainWav(49, 2, 8000, 65, 0, std::vector<std::uint8_t>(65, 0)), 3},
      {"gsmalign", PlainWav(49, 1, 8000, 33, 0, std::vector<std::uint8_t>(66, 0)), 3},
  };
  for (Case const& c : cases) {
    c.image.SaveTo(dir + "/" + c.name + ".wav");
    LSoundSource s = LWaveFile::OpenSource(dir + "/" + c.name + ".wav");
    EXPECT_EQ(s->GetErrorState(), c.state) << c.name;
  }
  // A body promised but cut off reads as far as it goes, then silence.
  ByteImage cut = ImaWav(pcm, 2, 512, 1, 0, -1);
  LWriteLE32(cut.b.data() + cut.Size() - 512 - 4, 0x7FFFFFF0);
  cut.SaveTo(dir + "/cut.wav");
  LSoundSource s = LWaveFile::OpenSource(dir + "/cut.wav");
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetEndSample(), 505);
}

TEST(CompressedWave, GsmInWavWritesTwoFramesABlockWithTheTrueLength) {
  std::string const dir = ScratchFolder();
  std::string const path = dir + "/gsm.wav";
  std::vector<std::int16_t> const pcm = Tone(1000, 1);
  std::vector<float> in(pcm.size());
  for (std::size_t i = 0; i < pcm.size(); ++i) in[i] = pcm[i] / 32767.0f;
  {
    LWaveFileFormat f;
    f.wFormatTag = LWavTagGSM610;
    f.nChannels = 1;
    f.nSamplesPerSec = 8000;
    LSoundSink sink = LWaveFile::OpenSink(path, f);
    ASSERT_TRUE(sink.IsGood());
    std::vector<std::uint8_t> const open = ReadFileBytes(path);
    ASSERT_EQ(open.size(), 60u);
    EXPECT_EQ(LReadLE32(open.data() + 4), 0xFFFFFFFFu);
    EXPECT_EQ(LReadLE32(open.data() + 56), 0xFFFFFFD9u);
    sink->Write(in.data(), 777);
    sink->Write(in.data() + 777, 223);
  }
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  ASSERT_EQ(b.size(), 60u + 4 * 65u);  // 1000 samples fill three blocks and part of a fourth
  EXPECT_EQ(LReadLE16(b.data() + 20), 49);
  EXPECT_EQ(LReadLE16(b.data() + 32), 65);
  EXPECT_EQ(LReadLE16(b.data() + 38), 320);
  EXPECT_EQ(LReadLE32(b.data() + 28), 1625u);
  EXPECT_EQ(LReadLE32(b.data() + 48), 1000u);
  EXPECT_EQ(LReadLE32(b.data() + 56), 260u);
  EXPECT_EQ(LReadLE32(b.data() + 4), b.size() - 8);

  // The reader gives what the codec decodes from those blocks, and the tone survives.
  LGsm610Decoder dec;
  std::vector<std::int16_t> decoded(1280);
  for (int k = 0; k < 4; ++k) dec.DecodeWav49Block(b.data() + 60 + 65 * k, decoded.data() + 320 * k);
  LSoundSource s = LWaveFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood()) << int(s->GetErrorState());
  EXPECT_EQ(s->GetEndSample(), 1000);
  std::vector<float> const got = ReadAll(s, 1000, 100);
  for (std::size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i], decoded[i] * 3.051851e-5f) << i;
  EXPECT_GT(Correlation(got, in), 0.9);

  // Back to the start decodes from a fresh state again: the same samples.
  s->Seek(0);
  EXPECT_EQ(ReadAll(s, 400), std::vector<float>(got.begin(), got.begin() + 400));
  // Into a later block: the state is rebuilt from the block before, so it is close.
  s->Seek(700);
  std::vector<float> const later = ReadAll(s, 300);
  EXPECT_GT(Correlation(later, std::vector<float>(got.begin() + 700, got.end())), 0.99);

  if (HaveSox()) {
    std::vector<float> const sox = SoxDecode(path);
    ASSERT_GE(sox.size(), 1000u);
    for (std::size_t i = 0; i < 1000; ++i) ASSERT_NEAR(sox[i], got[i], 2e-4) << i;
  }

  // The codec is mono and made for 8 kHz, but a file may state any rate.
  for (int rate : {8, 11025, 44100, 96000, 192000}) {
    { LGSMWaveOpenSink(path, rate, 1)->Write(in.data(), 321); }
    LSoundSource r = LWaveFile::OpenSource(path);
    EXPECT_EQ(r->GetSampleRate(), rate);
    EXPECT_EQ(r->GetEndSample(), 321);
    EXPECT_GT(Correlation(ReadAll(r, 321), in), 0.9) << rate;
    for (int channels = 2; channels <= 8; ++channels) {
      EXPECT_FALSE(LGSMWaveOpenSink(dir + "/st.wav", rate, channels).IsGood());
    }
  }
}

TEST(CompressedWave, RawGsmFilesAreFramesOf33Bytes) {
  std::string const dir = ScratchFolder();
  std::string const path = dir + "/a.gsm";
  std::vector<std::int16_t> const pcm = Tone(500, 1);
  std::vector<float> in(pcm.size());
  for (std::size_t i = 0; i < pcm.size(); ++i) in[i] = pcm[i] / 32767.0f;
  {
    LSoundSink sink = LGSMFile::OpenSink(path);
    ASSERT_TRUE(sink.IsGood());
    EXPECT_EQ(sink->GetSampleRate(), 8000);
    sink->Write(in.data(), 500);
  }
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  ASSERT_EQ(b.size(), 4u * 33u);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(b[static_cast<std::size_t>(33 * k)] >> 4, 0xD);  // frame signature

  LSoundSource s = LGSMFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_EQ(s->GetSampleRate(), 8000);
  EXPECT_EQ(s->GetChannels(), 1);
  EXPECT_EQ(s->GetEndSample(), 640);  // a raw file cannot say where the padding starts
  std::vector<float> const got = ReadAll(s, 640);
  EXPECT_GT(Correlation(std::vector<float>(got.begin(), got.begin() + 500), in), 0.9);
  if (HaveSox()) {
    std::vector<float> const sox = SoxDecode(path);
    ASSERT_EQ(sox.size(), 640u);
    for (std::size_t i = 0; i < sox.size(); ++i) ASSERT_NEAR(sox[i], got[i], 2e-4) << i;
  }

  WriteFileBytes(dir + "/short.gsm", std::vector<std::uint8_t>(b.begin(), b.begin() + 40));
  s = LGSMFile::OpenSource(dir + "/short.gsm");
  EXPECT_EQ(s->GetEndSample(), 160);
  EXPECT_EQ(LGSMFile::OpenSource(dir + "/missing.gsm")->GetErrorState(), 4);
}
