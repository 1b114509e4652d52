// Damaged files: every reader is given cut-off and scrambled versions of good files
// of every kind, and must answer with a clean error state or a source that reads
// within the file. Under the sanitizer build this is what proves no reader looks
// outside what it holds.
#include <gtest/gtest.h>

#include <cmath>

#include "foundation/byte_order.h"
#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/compressed_wave.h"
#include "sound/ima_adpcm.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/wave_file.h"

namespace {

std::vector<std::uint8_t> Written(std::string const& path, LSoundSink sink, int frames) {
  std::vector<float> v(static_cast<std::size_t>(frames * sink->GetChannels()));
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = std::sin(static_cast<float>(i) * 0.1f) * 0.7f;
  sink->Write(v.data(), frames);
  sink.Close();
  return ReadFileBytes(path);
}

std::vector<std::vector<std::uint8_t>> Seeds(std::string const& dir) {
  std::string const p = dir + "/seed";
  std::vector<std::vector<std::uint8_t>> seeds = {
      Written(p, LWaveFile::OpenSinkPCM(p, 8000, 2, 16), 40), Written(p, LWaveFile::OpenSinkPCM(p, 8000, 3, 24), 30),
      Written(p, LWaveFile::OpenSinkG711(p, 8000, 1, 7), 50), Written(p, LWaveFile::OpenSinkFloat(p, 8000, 1), 20),
      Written(p, LGSMWaveOpenSink(p, 8000, 1), 400),          Written(p, LAifFile::OpenSinkPCM16AIFC(p, 8000, 2), 40),
      Written(p, LAifFile::OpenSinkPCM24(p, 8000, 1), 40),    Written(p, LAuFile::OpenSinkPCM16(p, 8000, 2), 40),
      ReadFileBytes(TestDataPcm("aif/Pmiscck.aif")),          ReadFileBytes(TestDataPcm("aif/Porder.aif")),
  };
  // An IMA ADPCM WAV with a fact chunk, stereo, two blocks of 64 bytes.
  std::vector<std::int16_t> pcm(2 * 57 * 2, 1000);
  ByteImage ima;
  ima.Tag("RIFF").LE32(0).Tag("WAVE").Tag("fmt ").LE32(20).LE16(17).LE16(2).LE32(8000).LE32(8000);
  ima.LE16(64).LE16(4).LE16(2).LE16(57).Tag("fact").LE32(4).LE32(100).Tag("data").LE32(128);
  for (int b = 0; b < 2; ++b) {
    std::uint8_t block[64];
    LImaAdpcmEncodeBlock(pcm.data() + 2 * 57 * b, 57, 2, 64, block);
    ima.b.insert(ima.b.end(), block, block + 64);
  }
  seeds.push_back(ima.b);
  return seeds;
}

// Opens `path` with every reader and uses whatever opens.
void Exercise(std::string const& path) {
  LSoundSource const sources[] = {LWaveFile::OpenSource(path), LAifFile::OpenSource(path), LAuFile::OpenSource(path),
                                  LGSMFile::OpenSource(path)};
  static std::vector<float> buf(static_cast<std::size_t>(LSoundMaxReadFrames) * 255);
  for (LSoundSource const& s : sources) {
    int const state = s->GetErrorState();
    ASSERT_TRUE(state == 0 || state == 3 || state == 5 || state == 7) << "state " << state;
    if (state != 0) {
      ASSERT_EQ(s->GetEndSample(), 0);
      continue;
    }
    ASSERT_GE(s->GetSampleRate(), 1);
    ASSERT_LE(s->GetSampleRate(), 196000);
    ASSERT_GE(s->GetChannels(), 1);
    int const end = s->GetEndSample();
    ASSERT_GE(end, 0);
    s->Read(buf.data(), 1000);
    s->Seek(end / 2);
    s->Read(buf.data(), LSoundMaxReadFrames);
    s->Seek(end > 0 ? end - 1 : 0);
    s->Read(buf.data(), 3);
    ASSERT_GE(s->GetPositionSample(), end > 0 ? end + 2 : 3);
  }
}

}  // namespace

TEST(FileRobustness, CutOffFilesFailCleanlyOrReadWhatIsThere) {
  std::string const dir = ScratchFolder();
  int file = 0;
  for (std::vector<std::uint8_t> const& seed : Seeds(dir)) {
    for (std::size_t n = 0; n <= seed.size(); n += n < 128 ? 1 : 37) {
      // A new file each time: truncating files over and over is slow on some disks.
      std::string const path = dir + "/cut" + std::to_string(file++);
      WriteFileBytes(path, std::vector<std::uint8_t>(seed.begin(), seed.begin() + static_cast<std::ptrdiff_t>(n)));
      Exercise(path);
      if (HasFatalFailure()) FAIL() << "cut to " << n << " bytes";
    }
  }
}

TEST(FileRobustness, ScrambledHeadersFailCleanlyOrReadWhatIsThere) {
  std::string const dir = ScratchFolder();
  int file = 0;
  std::uint32_t random = 2463534242u;
  auto next = [&random] {
    random ^= random << 13;
    random ^= random >> 17;
    random ^= random << 5;
    return random;
  };
  // Sizes and counts made extreme, as hostile files make them.
  std::uint8_t const extremes[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};
  for (std::vector<std::uint8_t> const& seed : Seeds(dir)) {
    for (int round = 0; round < 300; ++round) {
      std::vector<std::uint8_t> m = seed;
      std::size_t const header = std::min<std::size_t>(m.size(), 96);
      int const changes = 1 + static_cast<int>(next() % 4);
      for (int c = 0; c < changes && header > 0; ++c) {
        std::size_t const at = next() % header;
        m[at] = (next() & 1) != 0 ? extremes[next() % sizeof extremes] : static_cast<std::uint8_t>(next());
      }
      std::string const path = dir + "/mutant" + std::to_string(file++);
      WriteFileBytes(path, m);
      Exercise(path);
      if (HasFatalFailure()) FAIL() << "round " << round;
    }
  }
}
