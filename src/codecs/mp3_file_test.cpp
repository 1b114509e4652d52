// The MP3 source: damaged input, seeking, lengths and gapless trimming, and MPEG-2.5
// against mpg123 on files lame makes here.
#include "codecs/mp3_file.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "codecs/testing_mp3.h"
#include "sound/pcm_file.h"

namespace {

// Plays a source to its end (and a little past), then seeks about and reads again.
// What counts is that it ends: no crash, no hang, nothing read out of bounds (the
// sanitizer build watches the last).
void PlayAndSeekAbout(LSoundSource const& s) {
  if (s->IsError()) return;
  ASSERT_GE(s->GetChannels(), 1);
  ASSERT_LE(s->GetChannels(), 2);
  std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 2);
  int guard = 0;
  while (s->GetPositionSample() < s->GetEndSample() && guard++ < 2000) s->Read(buffer.data(), 4000);
  s->Read(buffer.data(), 100);
  int const end = s->GetEndSample();
  for (int target : {end / 2, end / 3, 0, end + 5000, end - 1, -700}) {
    s->Seek(target);
    s->Read(buffer.data(), 1500);
  }
  for (float v : buffer) ASSERT_TRUE(std::isfinite(v));
}

std::vector<std::string> RobustnessInputs() {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(std::string(TANDREL_TESTDATA_DIR) + "/mp3")) {
    std::string const name = entry.path().filename().string();
    if (entry.path().extension() != ".bit") continue;
    if (name.rfind("ILL", 0) == 0 || name.find("-nonstandard-") != std::string::npos || name == "l3-he_free.bit") {
      names.push_back(entry.path().string());
    }
  }
  return names;
}

// A signal with some of everything: two tones, a sweep and bursts of noise, so that
// lame changes block types and, in VBR, bit rates.
std::string MakeWav(std::string const& folder, int rate, int channels, double seconds) {
  std::string const wav = folder + "/in.wav";
  std::string const cmd = "sox -q -n -r " + std::to_string(rate) + " -c " + std::to_string(channels) + " -b 16 '" +
                          wav + "' synth " + std::to_string(seconds) +
                          " sine 300 sine 1200-5000 vol 0.4 : synth 0.3 whitenoise vol 0.3 : synth " +
                          std::to_string(seconds - 0.3) + " sine 700 vol 0.2 2>/dev/null";
  return Mp3Run(cmd) ? wav : std::string();
}

std::string Lame(std::string const& wav, std::string const& out, std::string const& options) {
  return Mp3Run("lame --quiet " + options + " '" + wav + "' '" + out + "'") ? out : std::string();
}

// mpg123's own decoding as 32-bit floats, gapless as it does by default.
std::vector<float> Mpg123(std::string const& mp3, std::string const& folder) {
  std::string const raw = folder + "/mpg123.f32";
  std::vector<float> out;
  if (!Mp3Run("mpg123 -q -e f32 -s '" + mp3 + "' > '" + raw + "'")) return out;
  std::vector<std::uint8_t> const bytes = Mp3ReadBytes(raw);
  out.resize(bytes.size() / 4);
  std::memcpy(out.data(), bytes.data(), out.size() * 4);
  return out;
}

int WavFrames(std::string const& wav) {
  std::FILE* p = ::popen(("soxi -s '" + wav + "'").c_str(), "r");
  int frames = -1;
  if (p != nullptr) {
    if (std::fscanf(p, "%d", &frames) != 1) frames = -1;
    ::pclose(p);
  }
  return frames;
}

bool HaveReferencePrograms() { return Mp3HaveProgram("lame") && Mp3HaveProgram("mpg123") && Mp3HaveProgram("sox"); }

std::vector<float> ReadAll(LMP3Source& s) {
  std::vector<float> out(static_cast<std::size_t>(s.GetEndSample()) * s.GetChannels());
  std::size_t at = 0;
  for (int left = s.GetEndSample(); left > 0;) {
    int const n = std::min(left, 3000);
    s.Read(out.data() + at, n);
    at += static_cast<std::size_t>(n) * s.GetChannels();
    left -= n;
  }
  return out;
}

}  // namespace

TEST(Mp3File, DamagedAndOddStreamsGiveSoundOrACleanError) {
  std::vector<std::string> const inputs = RobustnessInputs();
  ASSERT_GE(inputs.size(), 30u);
  auto const start = std::chrono::steady_clock::now();
  for (std::string const& path : inputs) {
    SCOPED_TRACE(path);
    LSoundSource const s = LMP3File::OpenSource(path.c_str());
    if (s->IsError()) {
      EXPECT_EQ(s->GetErrorState(), LSoundErrorParameters);
      continue;
    }
    PlayAndSeekAbout(s);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(Mp3File, EveryTruncationOfAStreamPlaysOrFailsCleanly) {
  // Cuts through headers, side information, main data and the reservoir's reach.
  std::string const folder = Mp3ScratchFolder();
  for (char const* name : {"l3-si_block.bit", "M2L3_compl24.bit", "l3-nonstandard-sin1k0db_lame_vbrtag.bit"}) {
    std::vector<std::uint8_t> const bytes = Mp3ReadBytes(Mp3TestData(name));
    ASSERT_GT(bytes.size(), 4000u);
    std::string const path = folder + "/cut.mp3";
    std::vector<std::size_t> cuts;
    for (std::size_t n = 0; n < 2200; n += 41) cuts.push_back(n);
    for (std::size_t n = 2200; n < bytes.size(); n += bytes.size() / 17) cuts.push_back(n);
    for (std::size_t cut : cuts) {
      SCOPED_TRACE(std::string(name) + " cut at " + std::to_string(cut));
      Mp3WriteBytes(path, bytes.data(), cut);
      LSoundSource const s = LMP3File::OpenSource(path.c_str());
      if (s->IsError()) {
        EXPECT_EQ(s->GetErrorState(), LSoundErrorParameters);
        continue;
      }
      PlayAndSeekAbout(s);
    }
  }
}

TEST(Mp3File, MissingFileAndNonAudioGiveTheirStates) {
  std::string const folder = Mp3ScratchFolder();
  EXPECT_EQ(LMP3File::OpenSource((folder + "/none.mp3").c_str())->GetErrorState(), LSoundErrorCannotOpen);
  std::vector<std::uint8_t> text(70000, 'a');
  Mp3WriteBytes(folder + "/text.mp3", text.data(), text.size());
  EXPECT_EQ(LMP3File::OpenSource((folder + "/text.mp3").c_str())->GetErrorState(), LSoundErrorParameters);
}

TEST(Mp3File, TagsAroundTheAudioAreSkipped) {
  // The same frame with ID3v2 before it, with ID3v1 after it, and with both.
  for (char const* name : {"l3-nonstandard-id3v2.bit", "l3-nonstandard-id3v1.bit", "l3-nonstandard-id3v1-apetag.bit"}) {
    SCOPED_TRACE(name);
    LMP3Source s(Mp3TestData(name), false, true);
    ASSERT_FALSE(s.IsError());
    EXPECT_EQ(s.GetFrameCount(), 1);
    EXPECT_EQ(s.GetEndSample(), 1152 - LMP3Source::kDecoderDelay + 529);  // one frame, no LAME tag
  }
}

TEST(Mp3File, JunkOfTheSearchLimitEndsThePlay) {
  // Ten frames, 70000 bytes of junk, ten more: the search gives up in the junk.
  std::vector<std::uint8_t> const bytes = Mp3ReadBytes(Mp3TestData("l3-si.bit"));
  LMP3Header h;
  ASSERT_TRUE(h.Parse(bytes.data()));
  std::size_t tenFrames = 0;
  for (int i = 0; i < 10; ++i) {
    LMP3Header f;
    ASSERT_TRUE(f.Parse(bytes.data() + tenFrames));
    tenFrames += static_cast<std::size_t>(f.GetFrameLength());
  }
  std::vector<std::uint8_t> file(bytes.begin(), bytes.begin() + static_cast<long>(tenFrames));
  file.insert(file.end(), 70000, 0x11);
  file.insert(file.end(), bytes.begin() + static_cast<long>(tenFrames), bytes.begin() + static_cast<long>(2 * tenFrames));
  std::string const path = Mp3ScratchFolder() + "/junk.mp3";
  Mp3WriteBytes(path, file.data(), file.size());
  LMP3Source s(path, false, true);
  ASSERT_FALSE(s.IsError());
  std::vector<float> buffer(4096);
  for (int i = 0; i < 100 && s.GetPositionSample() < s.GetEndSample(); ++i) s.Read(buffer.data(), 4096);
  EXPECT_EQ(s.GetFrameCount() - s.GetSkippedFrames(), 10);
}

TEST(Mp3File, GaplessTrimsTheLameDelayAndPadding) {
  if (!HaveReferencePrograms()) GTEST_SKIP() << "lame, mpg123 and sox are in tools/debian-packages.txt";
  std::string const folder = Mp3ScratchFolder();
  std::string const wav = MakeWav(folder, 44100, 2, 2.0);
  std::string const mp3 = Lame(wav, folder + "/cbr.mp3", "-b 128");
  ASSERT_FALSE(mp3.empty());
  LMP3Source on(mp3, false, true);
  LMP3Source off(mp3, false, false);
  ASSERT_FALSE(on.IsError());
  EXPECT_EQ(on.GetEncoderVersion().substr(0, 4), "LAME");
  EXPECT_GT(on.GetEncoderDelay(), 0);
  EXPECT_GT(on.GetEndPadding(), LMP3Source::kDecoderDelay);
  EXPECT_EQ(on.GetEndSample(), WavFrames(wav));  // the input's own length
  EXPECT_EQ(off.GetEndSample(), on.GetEndSample() + on.GetEncoderDelay() + on.GetEndPadding());
  // Position 0 with gapless off is the same sample as position `delay` with it on.
  std::vector<std::int32_t> a(2000);
  std::vector<std::int32_t> b(2000);
  on.Seek(0);
  on.Read(a.data(), 1000);
  off.Seek(on.GetEncoderDelay());
  off.Read(b.data(), 1000);
  EXPECT_EQ(a, b);
}

TEST(Mp3File, Mpeg25DecodesAsMpg123Does) {
  if (!HaveReferencePrograms()) GTEST_SKIP() << "lame, mpg123 and sox are in tools/debian-packages.txt";
  std::string const folder = Mp3ScratchFolder();
  for (int rate : {8000, 11025, 12000}) {
    for (int channels : {1, 2}) {
      SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(channels) + " channels");
      std::string const wav = MakeWav(folder, rate, channels, 3.0);
      std::string const mp3 = Lame(wav, folder + "/m25.mp3", channels == 1 ? "-m m -b 24" : "-b 32");
      ASSERT_FALSE(mp3.empty());
      LMP3Source s(mp3, false, true);
      ASSERT_FALSE(s.IsError());
      ASSERT_EQ(s.GetSampleRate(), rate);
      std::vector<float> const ours = ReadAll(s);
      std::vector<float> const theirs = Mpg123(mp3, folder);
      // mpg123 trims the decoder's delay only together with a LAME tag's. At the
      // lowest bit rates lame has no room for the tag, and mpg123 then starts 529
      // samples before our position 0.
      std::size_t const shift =
          s.GetEncoderVersion().empty() ? static_cast<std::size_t>(LMP3Source::kDecoderDelay) * channels : 0;
      ASSERT_GE(theirs.size(), ours.size() / 2 + shift);
      std::size_t const n = std::min(ours.size(), theirs.size() - shift);
      ASSERT_GE(n, ours.size() - shift);
      double sum = 0;
      double peak = 0;
      for (std::size_t i = 0; i < n; ++i) {
        double const d = static_cast<double>(ours[i]) - theirs[i + shift];
        sum += d * d;
        peak = std::max(peak, std::fabs(static_cast<double>(theirs[i + shift])));
      }
      double const rms = std::sqrt(sum / static_cast<double>(n));
      std::printf("  MPEG-2.5 %5d Hz %d ch: rms difference %.3g of full scale (signal peak %.2f)\n", rate, channels,
                  rms, peak);
      EXPECT_GT(peak, 0.1);
      EXPECT_LT(rms, std::pow(2.0, -15) / std::sqrt(12.0));
    }
  }
}

// Seeks to random places must give exactly what reading from the start gives there.
TEST(Mp3File, SeeksLandOnTheSamplesOfAPlainRead) {
  if (!HaveReferencePrograms()) GTEST_SKIP() << "lame, mpg123 and sox are in tools/debian-packages.txt";
  std::string const folder = Mp3ScratchFolder();
  std::string const wav = MakeWav(folder, 44100, 2, 8.0);
  struct Kind {
    char const* name;
    char const* options;
    bool vbr;
    bool tagged;
  };
  for (Kind const& k : {Kind{"cbr", "-b 160", false, true}, Kind{"xing", "-V 2", true, true},
                        Kind{"tagless", "-V 2 -t", true, false}}) {
    SCOPED_TRACE(k.name);
    std::string const mp3 = Lame(wav, folder + "/" + k.name + ".mp3", k.options);
    ASSERT_FALSE(mp3.empty());
    LMP3Source whole(mp3, false, true);
    ASSERT_FALSE(whole.IsError());
    EXPECT_EQ(whole.IsVBR(), k.vbr);
    EXPECT_EQ(whole.IsFrameCountFromTag(), k.vbr && k.tagged);
    std::vector<std::int32_t> all;
    while (whole.GetPositionSample() < whole.GetEndSample()) {
      std::vector<std::int32_t> const block = Mp3ReadInts(whole, 4096);
      all.insert(all.end(), block.begin(), block.end());
    }
    int const end = whole.GetEndSample();
    ASSERT_GT(end, 44100 * 7);
    all.resize(static_cast<std::size_t>(end) * 2);

    LMP3Source s(mp3, false, true);
    std::mt19937 random(7);
    for (int i = 0; i < 25; ++i) {
      int const at = static_cast<int>(random() % static_cast<unsigned>(end - 1200));
      s.Seek(at);
      ASSERT_EQ(s.GetPositionSample(), at);
      std::vector<std::int32_t> const got = Mp3ReadInts(s, 1200);
      ASSERT_TRUE(std::equal(got.begin(), got.end(), all.begin() + 2L * at)) << "seek to " << at;
    }
    // Past the end: silence, and the source still seeks back.
    s.Seek(end + 100000);
    std::vector<std::int32_t> const past = Mp3ReadInts(s, 500);
    EXPECT_TRUE(std::all_of(past.begin(), past.end(), [](std::int32_t v) { return v == 0; }));
    s.Seek(1000);
    std::vector<std::int32_t> const back = Mp3ReadInts(s, 500);
    EXPECT_TRUE(std::equal(back.begin(), back.end(), all.begin() + 2000));
  }
}

TEST(Mp3File, TaglessVbrLengthSharpensWhilePlaying) {
  if (!HaveReferencePrograms()) GTEST_SKIP() << "lame, mpg123 and sox are in tools/debian-packages.txt";
  std::string const folder = Mp3ScratchFolder();
  std::string const wav = MakeWav(folder, 44100, 2, 20.0);
  std::string const mp3 = Lame(wav, folder + "/tagless.mp3", "-V 0 -t");
  ASSERT_FALSE(mp3.empty());
  LMP3Source s(mp3, false, true);
  ASSERT_TRUE(s.IsVBR());
  ASSERT_FALSE(s.IsFrameCountFromTag());
  std::vector<int> seen{s.GetFrameCount()};
  std::vector<float> buffer(8192);
  while (s.GetPositionSample() < s.GetEndSample()) {
    s.Read(buffer.data(), 4096);
    if (s.GetFrameCount() != seen.back()) seen.push_back(s.GetFrameCount());
  }
  LMP3Source scanned(mp3, true, true);
  int const truth = scanned.GetFrameCount();
  EXPECT_GE(seen.size(), 3u);  // it moved more than once
  EXPECT_EQ(seen.back(), truth);
  EXPECT_EQ(s.GetFrameCount(), truth);
}

// Whole frames are decoded straight to floats and the rest of a frame goes through
// the integers: either way a float must be its integer times 2^-27, exactly.
TEST(Mp3File, FloatReadGivesTheIntegersScaled) {
  for (char const* name : {"l3-sin1k0db.bit", "l3-si_block.bit", "M2L3_noise.bit"}) {
    SCOPED_TRACE(name);
    LMP3Source ints(Mp3TestData(name), false, true);
    LMP3Source floats(Mp3TestData(name), false, true);
    ASSERT_FALSE(ints.IsError());
    int const end = ints.GetEndSample();
    int const ch = ints.GetChannels();
    ASSERT_GT(end, 20000);
    std::vector<std::int32_t> const expected = Mp3ReadInts(ints, end);
    // Reads that start and stop inside frames, span several whole ones, or both.
    std::vector<float> got(expected.size());
    int const sizes[] = {1000, 1152 * 3, 7, 8192, 577, 2304};
    std::size_t at = 0;
    for (int k = 0; at < got.size(); ++k) {
      int const n = std::min(sizes[k % 6], static_cast<int>((got.size() - at) / ch));
      floats.Read(got.data() + at, n);
      at += static_cast<std::size_t>(n) * ch;
    }
    std::size_t loud = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(got[i], static_cast<float>(expected[i]) * (1.0f / LMP3IntegerScale)) << "sample " << i;
      if (std::fabs(got[i]) > 0.01f) ++loud;
    }
    EXPECT_GT(loud, got.size() / 10);
  }
}
