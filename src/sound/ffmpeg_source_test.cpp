// Files read through FFmpeg: sample-accurate seeks, streams without a length,
// channel layouts, the sound of video files, and damaged files.
#include <gtest/gtest.h>

#include <filesystem>

#include "sound/ffmpeg_source.h"
#include "sound/pcm_file.h"
#include "sound/source_to_sink.h"
#include "sound/testing_files.h"
#include "sound/testing_tones.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFFmpeg[] = "ffmpeg -nostdin -hide_banner -loglevel error -y";

// A 16-bit sample that names its frame and channel, as FFmpeg scales it to float.
int PatternValue(int frame, int channel) { return (frame * 37 + channel * 1000) % 65536 - 32768; }
float Pattern(int frame, int channel) { return static_cast<float>(PatternValue(frame, channel)) / 32768.0f; }

void WritePatternWav(std::string const& path, int rate, int channels, int frames) {
  std::vector<std::uint8_t> body;
  body.reserve(static_cast<std::size_t>(frames) * channels * 2);
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) {
      auto const v = static_cast<std::uint16_t>(PatternValue(f, c));
      body.push_back(static_cast<std::uint8_t>(v));
      body.push_back(static_cast<std::uint8_t>(v >> 8));
    }
  }
  PlainWav(1, channels, static_cast<std::uint32_t>(rate), channels * 2, 16, body).SaveTo(path);
}

void WriteToneWav(std::string const& path, int rate, int channels, double seconds, double hz) {
  LSoundSink sink = LWaveFile::OpenSinkPCM(path, rate, channels, 16);
  int const frames = static_cast<int>(seconds * rate);
  std::vector<float> all(static_cast<std::size_t>(frames) * channels);
  for (int f = 0; f < frames; ++f)
    for (int c = 0; c < channels; ++c)
      all[static_cast<std::size_t>(f * channels + c)] = 0.5f * static_cast<float>(std::sin(2 * M_PI * hz * f / rate));
  sink->Write(all.data(), frames);
}

std::vector<float> ReadAt(LSoundSource const& s, int position, int frames) {
  s->Seek(position);
  std::vector<float> out(static_cast<std::size_t>(frames) * s->GetChannels());
  s->Read(out.data(), frames);
  return out;
}

class FFmpegSource : public ::testing::Test {
 protected:
  void SetUp() override { dir = ScratchFolder(); }
  std::string Path(char const* name) const { return dir + "/" + name; }
  std::string dir;
};

TEST_F(FFmpegSource, SeeksInALosslessFileLandOnTheSample) {
  int const frames = 132300;
  WritePatternWav(Path("p.wav"), 44100, 2, frames);
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -i " + Path("p.wav") + " " + Path("p.flac")));
  LSoundSource s = LFFMPEGSourceManager::GetSoundSource(Path("p.flac"));
  ASSERT_TRUE(s.IsGood()) << int(s->GetErrorState());
  EXPECT_FALSE(s->IsStreaming());
  EXPECT_EQ(s->GetEndSample(), frames);
  EXPECT_EQ(s->GetSampleRate(), 44100);
  EXPECT_EQ(s->GetChannels(), 2);
  EXPECT_LE(s->GetPeakBound(), 1.0f);

  // Forwards, backwards, across frame boundaries, up to and over the end.
  for (int const at : {0, 1, 4095, 4096, 4608, 77777, 5000, frames - 100, frames - 30, 0, 131072, 3}) {
    std::vector<float> const got = ReadAt(s, at, 100);
    EXPECT_EQ(s->GetPositionSample(), at + 100);
    for (int f = 0; f < 100; ++f) {
      for (int c = 0; c < 2; ++c) {
        float const want = at + f < frames ? Pattern(at + f, c) : 0.0f;
        ASSERT_EQ(got[static_cast<std::size_t>(f * 2 + c)], want) << "seek to " << at << ", frame " << f;
      }
    }
  }
  // Before the start is silence, and the sound begins at 0.
  std::vector<float> const early = ReadAt(s, -10, 20);
  for (int f = 0; f < 10; ++f) EXPECT_EQ(early[static_cast<std::size_t>(f * 2)], 0.0f);
  EXPECT_EQ(early[20], Pattern(0, 0));
  EXPECT_EQ(early[21], Pattern(0, 1));
}

// A lossy decoder needs the frames before the target to rebuild it; after a seek it
// gives what reading from the start gives (to a hair: AAC's noise substitution draws
// from a generator that a seek does not rewind).
TEST_F(FFmpegSource, SeeksInLossyFilesMatchAReadFromTheStart) {
  WriteToneWav(Path("t.wav"), 44100, 2, 3.0, 441.0);
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -i " + Path("t.wav") + " -c:a libvorbis " + Path("t.ogg")));
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -i " + Path("t.wav") + " -c:a aac " + Path("t.m4a")));
  for (char const* name : {"t.ogg", "t.m4a"}) {
    LSoundSource s = LFFMPEGSourceManager::GetSoundSource(Path(name));
    ASSERT_TRUE(s.IsGood()) << name;
    EXPECT_FALSE(s->IsStreaming()) << name;
    // The encoders' own delay is removed: the length is the tone's.
    EXPECT_EQ(s->GetEndSample(), 132300) << name;
    std::vector<float> const all = LTestReadToEnd(s);
    for (int const at : {50000, 1000, 100000, 44100, 131000}) {
      std::vector<float> const got = ReadAt(s, at, 1024);
      float worst = 0;
      for (std::size_t i = 0; i < got.size() && at * 2 + i < all.size(); ++i) {
        worst = std::max(worst, std::fabs(got[i] - all[static_cast<std::size_t>(at) * 2 + i]));
      }
      EXPECT_LT(worst, 1e-3f) << name << " at " << at;
    }
    LTestTone const tone = LTestMeasureTone(all, 2, 1, 44100, 4410, 127890);
    EXPECT_NEAR(tone.dFrequency, 441.0, 1.0) << name;
    EXPECT_NEAR(LTestDb(tone.dRms / (0.5 / std::sqrt(2.0))), 0.0, 0.5) << name;
  }
}

// A raw ADTS stream states no length: the source streams, its end growing as the
// decoder goes, until the end of the file is seen.
TEST_F(FFmpegSource, AStreamWithoutALengthGrowsUntilItsEnd) {
  WriteToneWav(Path("t.wav"), 48000, 1, 2.0, 1000.0);
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -i " + Path("t.wav") + " -c:a aac " + Path("t.aac")));
  LSoundSource s = LFFMPEGSourceManager::GetSoundSource(Path("t.aac"));
  ASSERT_TRUE(s.IsGood());
  EXPECT_TRUE(s->IsStreaming());
  EXPECT_LT(s->GetEndSample(), 96000);
  int lastEnd = s->GetEndSample();
  std::vector<float> block(LSoundMaxReadFrames);
  while (s->IsStreaming()) {
    int const left = s->GetEndSample() - s->GetPositionSample();
    if (left > 0) {
      s->Read(block.data(), std::min(left, LSoundMaxReadFrames));
    } else {
      s->WaitForStreamingData(150);
    }
    ASSERT_GE(s->GetEndSample(), lastEnd);
    lastEnd = s->GetEndSample();
  }
  // The encoder's delay and padding stay in an ADTS stream: a frame or two more.
  EXPECT_GE(s->GetEndSample(), 96000);
  EXPECT_LE(s->GetEndSample(), 96000 + 3 * 1024);

  // The streaming copy follows it to the end from the start.
  LSoundSource again = LFFMPEGSourceManager::GetSoundSource(Path("t.aac"));
  LPRSourceToSinkStreaming copy;
  copy.lssSource = again;
  copy.lsnkSink = LWaveFile::OpenSinkFloat(Path("copy.wav"), 48000, 1);
  LProcessInterfaceVoid pi;
  EXPECT_EQ(Process(pi, copy), LProcessFinished);
  EXPECT_EQ(copy.lsnkSink->GetPositionSample(), s->GetEndSample());
}

TEST_F(FFmpegSource, ChannelsComeThroughInTheirOrderWhateverTheLayout) {
  // Six channels at 24 bits, each its own pitch; and four in the "quad" layout, which
  // is not FFmpeg's default for four and must not be remixed to it.
  std::string const six =
      "aevalsrc='0.5*sin(2*PI*200*t)|0.5*sin(2*PI*300*t)|0.5*sin(2*PI*400*t)|0.5*sin(2*PI*500*t)|"
      "0.5*sin(2*PI*600*t)|0.5*sin(2*PI*700*t)':s=48000:d=1";
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -f lavfi -i \"" + six + "\" -sample_fmt s32 " + Path("six.flac")));
  std::string const quad =
      "aevalsrc='0.5*sin(2*PI*200*t)|0.5*sin(2*PI*300*t)|0.5*sin(2*PI*400*t)|0.5*sin(2*PI*500*t)':s=22050:d=1:"
      "c=quad";
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -f lavfi -i \"" + quad + "\" -c:a pcm_f64le " + Path("quad.w64")));
  struct Case {
    char const* name;
    int channels, rate;
  };
  for (Case const& c : {Case{"six.flac", 6, 48000}, Case{"quad.w64", 4, 22050}}) {
    LSoundSource s = LFFMPEGSourceManager::GetSoundSource(Path(c.name));
    ASSERT_TRUE(s.IsGood()) << c.name;
    ASSERT_EQ(s->GetChannels(), c.channels) << c.name;
    EXPECT_EQ(s->GetSampleRate(), c.rate);
    EXPECT_EQ(s->GetEndSample(), c.rate);
    std::vector<float> const all = LTestReadToEnd(s);
    for (int ch = 0; ch < c.channels; ++ch) {
      LTestTone const t = LTestMeasureTone(all, c.channels, ch, c.rate, 0, static_cast<std::size_t>(c.rate));
      EXPECT_NEAR(t.dFrequency, 200.0 + 100.0 * ch, 1.0) << c.name << " channel " << ch;
      EXPECT_NEAR(t.dRms, 0.5 / std::sqrt(2.0), 0.01) << c.name << " channel " << ch;
    }
  }
}

TEST_F(FFmpegSource, TheSoundOfAVideoFile) {
  std::string const inputs =
      " -f lavfi -i testsrc=size=64x48:rate=10 -f lavfi -i sine=frequency=440:sample_rate=22050 -t 2";
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + inputs + " -c:v mpeg4 -c:a aac " + Path("v.mp4")));
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + inputs + " -c:v mjpeg -c:a pcm_s16le " + Path("v.avi")));
  for (char const* name : {"v.mp4", "v.avi"}) {
    LFFMPEGSourceManager manager(Path(name));
    ASSERT_EQ(manager.GetErrorState(), 0) << name;
    EXPECT_EQ(manager.GetSoundStreamCount(), 1);
    EXPECT_EQ(manager.GetSoundStreamIndex(0, true), 1);  // behind the picture
    LSoundSource s = LFFMPEGSourceManager::GetSoundSource(Path(name));
    ASSERT_TRUE(s.IsGood()) << name;
    EXPECT_EQ(s->GetSampleRate(), 22050);
    EXPECT_EQ(s->GetChannels(), 1);
    std::vector<float> const all = LTestReadToEnd(s);
    EXPECT_NEAR(static_cast<double>(all.size()), 44100.0, 2048.0) << name;
    LTestTone const t = LTestMeasureTone(all, 1, 0, 22050, 2205, 39690);
    EXPECT_NEAR(t.dFrequency, 440.0, 1.0) << name;
  }
}

TEST_F(FFmpegSource, FilesThatAreNotSoundSayWhy) {
  LFFMPEGSourceManager missing(Path("absent.ogg"));
  EXPECT_EQ(missing.GetErrorState(), LSoundErrorCannotOpen);
  WriteFileBytes(Path("empty.ogg"), {});
  EXPECT_EQ(LFFMPEGSourceManager(Path("empty.ogg")).GetErrorState(), LSoundErrorParameters);
  std::vector<std::uint8_t> noise(20000);
  for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<std::uint8_t>((i * 7919u) >> 3);
  WriteFileBytes(Path("noise.bin"), noise);
  EXPECT_NE(LFFMPEGSourceManager::GetSoundSource(Path("noise.bin"))->GetErrorState(), 0);
  // A picture has no sound.
  ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -f lavfi -i testsrc=size=32x32:rate=1 -frames:v 1 " +
                           Path("still.png")));
  EXPECT_EQ(LFFMPEGSourceManager::GetSoundSource(Path("still.png"))->GetErrorState(), LSoundErrorFailed);
  EXPECT_EQ(LFFMPEGWavCodecName(2), "adpcm_ms");
  EXPECT_EQ(LFFMPEGWavCodecName(0x7A7A), "");
}

// Damage anywhere reads as silence or an error, never as a crash or a read past what
// the source promised.
TEST_F(FFmpegSource, DamagedFilesFailCleanlyOrReadWhatIsThere) {
  WriteToneWav(Path("t.wav"), 22050, 2, 2.0, 500.0);
  std::vector<std::string> made;
  for (char const* ext : {".flac", ".ogg", ".m4a", ".aac", ".mka"}) {
    std::string const out = Path("t") + ext;
    ASSERT_TRUE(LTestRunTool(std::string(kFFmpeg) + " -i " + Path("t.wav") + " " + out)) << ext;
    std::vector<std::uint8_t> const bytes = ReadFileBytes(out);
    int n = 0;
    for (double cut : {0.02, 0.5, 0.9}) {
      std::string const name = out + ".cut" + std::to_string(n++) + std::string(ext);
      WriteFileBytes(name, std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + static_cast<long>(cut * bytes.size())));
      made.push_back(name);
    }
    std::vector<std::uint8_t> scrambled = bytes;
    for (std::size_t i = scrambled.size() / 3; i < scrambled.size() / 3 + 2000 && i < scrambled.size(); ++i) {
      scrambled[i] = static_cast<std::uint8_t>(i * 131u);
    }
    made.push_back(out + ".scrambled" + ext);
    WriteFileBytes(made.back(), scrambled);
  }
  std::string const tags = std::string(TANDREL_TESTDATA_DIR) + "/tags";
  for (auto const& entry : fs::directory_iterator(tags)) made.push_back(entry.path().string());

  for (std::string const& path : made) {
    LSoundSource s = LFFMPEGSourceManager::GetSoundSource(path);
    if (!s.IsGood()) continue;
    int const rate = s->GetSampleRate();
    std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * s->GetChannels());
    // At most ten seconds from the start, a seek into the middle and one back.
    for (int read = 0; read < 10 * rate && (s->IsStreaming() || s->GetPositionSample() < s->GetEndSample());
         read += LSoundMaxReadFrames) {
      if (s->IsStreaming() && s->GetEndSample() <= s->GetPositionSample()) s->WaitForStreamingData(0);
      s->Read(block.data(), LSoundMaxReadFrames);
    }
    s->Seek(s->GetEndSample() / 2);
    s->Read(block.data(), LSoundMaxReadFrames);
    s->Seek(0);
    s->Read(block.data(), 100);
    EXPECT_EQ(s->GetPositionSample(), 100) << path;
    for (float v : block) ASSERT_TRUE(std::isfinite(v)) << path;
  }
}

}  // namespace
