// The shared AFsp set: one short stereo signal at 8 kHz in every body format. Each
// file must read to the samples of the 16-bit WAV, by the relation its format has
// to 16 bits.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>

#include "foundation/byte_order.h"
#include "sound/aif_file.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/testing_sources.h"
#include "sound/wave_file.h"

namespace {

constexpr int kFrames = 23493;

enum class Body {
  Int16,      // the same codes: exactly as LSF16 reads them
  Int24Or32,  // the codes shifted up: exactly the 32-bit scale of v << 16
  Float,      // v / 32768, exactly
  EightBit,   // written at twice the level (v / 128), within one 8-bit code
  ALaw,       // companded: as G.711 compresses v
  ULaw,
};

struct Reference {
  std::vector<std::int16_t> v;
};

// The 16-bit reference, parsed by hand rather than through the reader under test.
std::vector<std::int16_t> const& Int16Reference() {
  static std::vector<std::int16_t> const ref = [] {
    std::vector<std::uint8_t> const b = ReadFileBytes(TestDataPcm("wav/M1F1-int16-AFsp.wav"));
    std::vector<std::int16_t> v;
    if (b.size() < 44 || std::memcmp(b.data() + 36, "data", 4) != 0) return v;
    std::uint32_t const n = LReadLE32(b.data() + 40);
    for (std::uint32_t i = 0; i + 1 < n && 44 + i + 1 < b.size(); i += 2) {
      v.push_back(static_cast<std::int16_t>(LReadLE16(b.data() + 44 + i)));
    }
    return v;
  }();
  return ref;
}

void ExpectMatchesReference(LSoundSource const& s, Body body, std::string const& name) {
  std::vector<std::int16_t> const& ref = Int16Reference();
  ASSERT_EQ(ref.size(), 2u * kFrames);
  ASSERT_TRUE(s.IsGood()) << name << " state " << int(s->GetErrorState());
  EXPECT_EQ(s->GetSampleRate(), 8000) << name;
  ASSERT_EQ(s->GetChannels(), 2) << name;
  EXPECT_EQ(s->GetEndSample(), kFrames) << name;
  std::vector<float> const got = ReadAll(s, kFrames, 5000);
  for (std::size_t i = 0; i < ref.size(); ++i) {
    int const v = ref[i];
    float const g = got[i];
    switch (body) {
      case Body::Int16: ASSERT_EQ(g, static_cast<float>(v) * 3.051851e-5f) << name << " sample " << i; break;
      case Body::Int24Or32:
        ASSERT_EQ(g, static_cast<float>(static_cast<double>(v * 65536) * 4.656612875e-10)) << name << " " << i;
        ASSERT_NEAR(g * 32767.0f, v, 1.0f) << name << " " << i;  // within one 16-bit step
        break;
      case Body::Float: ASSERT_EQ(g, static_cast<float>(v) / 32768.0f) << name << " sample " << i; break;
      case Body::EightBit: ASSERT_NEAR(g * 127.0f, v / 128.0, 1.0) << name << " sample " << i; break;
      case Body::ALaw: ASSERT_EQ(g, LSFALAW{LSFALAW::CompressLinear(v)}.Get()) << name << " sample " << i; break;
      case Body::ULaw: ASSERT_EQ(g, LSFULAW{LSFULAW::CompressLinear(v)}.Get()) << name << " sample " << i; break;
    }
  }
  std::vector<float> tail(4, 1.0f);
  s->Read(tail.data(), 2);
  EXPECT_EQ(tail, std::vector<float>(4, 0.0f)) << name;
}

struct Sample {
  char const* file;
  Body body;
};

Sample const kWav[] = {
    {"M1F1-Alaw-AFsp.wav", Body::ALaw},       {"M1F1-AlawWE-AFsp.wav", Body::ALaw},
    {"M1F1-float32-AFsp.wav", Body::Float},   {"M1F1-float32WE-AFsp.wav", Body::Float},
    {"M1F1-float64-AFsp.wav", Body::Float},   {"M1F1-float64WE-AFsp.wav", Body::Float},
    {"M1F1-int12-AFsp.wav", Body::Int16},     {"M1F1-int12WE-AFsp.wav", Body::Int16},
    {"M1F1-int16-AFsp.wav", Body::Int16},     {"M1F1-int16WE-AFsp.wav", Body::Int16},
    {"M1F1-int24-AFsp.wav", Body::Int24Or32}, {"M1F1-int24WE-AFsp.wav", Body::Int24Or32},
    {"M1F1-int32-AFsp.wav", Body::Int24Or32}, {"M1F1-int32WE-AFsp.wav", Body::Int24Or32},
    {"M1F1-mulaw-AFsp.wav", Body::ULaw},      {"M1F1-mulawWE-AFsp.wav", Body::ULaw},
    {"M1F1-uint8-AFsp.wav", Body::EightBit},  {"M1F1-uint8WE-AFsp.wav", Body::EightBit},
};

Sample const kAif[] = {
    {"M1F1-AlawC-AFsp.aif", Body::ALaw},      {"M1F1-float32C-AFsp.aif", Body::Float},
    {"M1F1-float64C-AFsp.aif", Body::Float},  {"M1F1-int12-AFsp.aif", Body::Int16},
    {"M1F1-int12C-AFsp.aif", Body::Int16},    {"M1F1-int16-AFsp.aif", Body::Int16},
    {"M1F1-int16C-AFsp.aif", Body::Int16},    {"M1F1-int16s-AFsp.aif", Body::Int16},
    {"M1F1-int24-AFsp.aif", Body::Int24Or32}, {"M1F1-int24C-AFsp.aif", Body::Int24Or32},
    {"M1F1-int32-AFsp.aif", Body::Int24Or32}, {"M1F1-int32C-AFsp.aif", Body::Int24Or32},
    {"M1F1-int8-AFsp.aif", Body::EightBit},   {"M1F1-int8C-AFsp.aif", Body::EightBit},
    {"M1F1-mulawC-AFsp.aif", Body::ULaw},
};

std::set<std::string> FilesIn(std::string const& folder) {
  std::set<std::string> names;
  for (auto const& e : std::filesystem::directory_iterator(TestDataPcm(folder))) {
    names.insert(e.path().filename().string());
  }
  return names;
}

}  // namespace

TEST(PcmTestData, EveryWavBodyReadsToTheSixteenBitSignal) {
  std::set<std::string> left = FilesIn("wav");
  for (Sample const& c : kWav) {
    ExpectMatchesReference(LWaveFile::OpenSource(TestDataPcm(std::string("wav/") + c.file)), c.body, c.file);
    left.erase(c.file);
  }
  left.erase("cl_F1_2b_egg.wav");
  EXPECT_TRUE(left.empty()) << "a new file in the set is not covered: " << *left.begin();
}

TEST(PcmTestData, WavWithAnUnfinishedSizeReadsToTheEndOfTheFile) {
  // Its data chunk states 0xFFFFFFD4 bytes: a recording that was never finished.
  std::string const path = TestDataPcm("wav/cl_F1_2b_egg.wav");
  std::vector<std::uint8_t> const b = ReadFileBytes(path);
  LSoundSource s = LWaveFile::OpenSource(path);
  ASSERT_TRUE(s.IsGood());
  EXPECT_TRUE(s->IsStreaming());
  EXPECT_EQ(s->GetSampleRate(), 44100);
  EXPECT_EQ(s->GetChannels(), 1);
  int const frames = static_cast<int>((b.size() - 44) / 2);
  EXPECT_EQ(s->GetEndSample(), frames);
  std::vector<float> const got = ReadAll(s, frames);
  for (int i = 0; i < frames; i += 101) {
    ASSERT_EQ(got[static_cast<std::size_t>(i)],
              static_cast<std::int16_t>(LReadLE16(b.data() + 44 + 2 * i)) * 3.051851e-5f);
  }
  EXPECT_EQ(s->GetPositionSample(), frames);
}

TEST(PcmTestData, EveryAiffAndAifcBodyReadsToTheSixteenBitSignal) {
  std::set<std::string> left = FilesIn("aif");
  for (Sample const& c : kAif) {
    ExpectMatchesReference(LAifFile::OpenSource(TestDataPcm(std::string("aif/") + c.file)), c.body, c.file);
    left.erase(c.file);
  }
  for (char const* odd : {"Pmiscck.aif", "Poffset.aif", "Porder.aif", "Ptjunk.aif", "Pnossnd.aif"}) left.erase(odd);
  EXPECT_TRUE(left.empty()) << "a new file in the set is not covered: " << *left.begin();
}

TEST(PcmTestData, OddAifcFilesReadTheirNineFrames) {
  // Chunks out of order, an odd-sized foreign chunk, a sound chunk with an offset and
  // more bytes than frames, junk behind the FORM: all hold the same nine mu-law codes.
  std::uint8_t const codes[9] = {0x43, 0x2F, 0x26, 0x2C, 0x35, 0x3A, 0xDF, 0xC7, 0xBE};
  for (char const* name : {"Pmiscck.aif", "Poffset.aif", "Porder.aif", "Ptjunk.aif"}) {
    LSoundSource s = LAifFile::OpenSource(TestDataPcm(std::string("aif/") + name));
    ASSERT_TRUE(s.IsGood()) << name << " state " << int(s->GetErrorState());
    EXPECT_EQ(s->GetChannels(), 1) << name;
    EXPECT_EQ(s->GetSampleRate(), 8000) << name;
    EXPECT_EQ(s->GetEndSample(), 9) << name;
    EXPECT_EQ(s->GetPeakBound(), 1.0f) << name;
    std::vector<float> const got = ReadAll(s, 10);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(got[static_cast<std::size_t>(i)], LSFULAW{codes[i]}.Get()) << name << i;
    EXPECT_EQ(got[9], 0.0f) << name;
  }
  LSoundSource none = LAifFile::OpenSource(TestDataPcm("aif/Pnossnd.aif"));
  EXPECT_EQ(none->GetErrorState(), LSoundErrorParameters);
  EXPECT_EQ(none->GetEndSample(), 0);
}
