#include "shell/cli.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "foundation/process_interface.h"
#include "codecs/mp3_file.h"
#include "sound/aif_file.h"
#include "shell/user_settings.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

const std::string kPcm = std::string(TANDREL_TESTDATA_DIR) + "/pcm";

struct CliRun {
  int code = 0;
  std::string out, err;
};

// A progress that asks to stop at its first look.
struct StopAtOnce : LProcessInterfaceVoid {
  bool IsToStop() override { return true; }
};

CliRun Cli(std::vector<std::string> args, LProcessInterface* progress = nullptr) {
  char* outText = nullptr;
  char* errText = nullptr;
  std::size_t outSize = 0, errSize = 0;
  std::FILE* out = open_memstream(&outText, &outSize);
  std::FILE* err = open_memstream(&errText, &errSize);
  LProcessInterfaceVoid quiet;
  CliRun r;
  r.code = TDCliMain(args, out, err, progress ? *progress : quiet);
  std::fclose(out);
  std::fclose(err);
  r.out.assign(outText, outSize);
  r.err.assign(errText, errSize);
  std::free(outText);
  std::free(errText);
  return r;
}

// Every frame of both files, as floats.
std::vector<float> ReadAll(LSoundSource source) {
  std::vector<float> all;
  std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * source->GetChannels());
  while (source->GetPositionSample() < source->GetEndSample()) {
    int n = std::min(LSoundMaxReadFrames, source->GetEndSample() - source->GetPositionSample());
    source->Read(block.data(), n);
    all.insert(all.end(), block.begin(), block.begin() + static_cast<long>(n) * source->GetChannels());
  }
  return all;
}

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "cli-scratch" /
              ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(scratch);
    fs::create_directories(scratch);
  }
  std::string Scratch(const char* name) const { return (scratch / name).string(); }
  fs::path scratch;
};

TEST_F(CliTest, InfoDescribesAWaveFileAndItsChunks) {
  CliRun r = Cli({"info", kPcm + "/wav/M1F1-int24WE-AFsp.wav"});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("Format:    WAV\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Rate:      8000 Hz\n"), std::string::npos);
  EXPECT_NE(r.out.find("Channels:  2\n"), std::string::npos);
  EXPECT_NE(r.out.find("Frames:    23493\n"), std::string::npos);
  EXPECT_NE(r.out.find("Duration:  0:00:02.936\n"), std::string::npos);
  // Extensible format resolved to its sub-format, and chunks after the data listed too.
  EXPECT_NE(r.out.find("Codec:     PCM (tag 1), 24 bits"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Chunks:    fmt  (40), data (140958), afsp (73), LIST (76)"), std::string::npos) << r.out;
}

TEST_F(CliTest, FilesThatCannotBeReadSayWhyAndFail) {
  CliRun missing = Cli({"info", Scratch("gone.wav")});
  EXPECT_EQ(missing.code, 3);
  EXPECT_NE(missing.err.find("Cannot open the file \"" + Scratch("gone.wav") +
                             "\". Check it exists and you have read access."),
            std::string::npos)
      << missing.err;

  std::FILE* f = std::fopen(Scratch("junk.wav").c_str(), "w");
  std::fputs("this is not a wave file at all", f);
  std::fclose(f);
  CliRun corrupt = Cli({"info", Scratch("junk.wav")});
  EXPECT_EQ(corrupt.code, 3);
  EXPECT_NE(corrupt.err.find("because it is corrupt."), std::string::npos) << corrupt.err;

  CliRun unknown = Cli({"info", "/etc/hostname"});
  EXPECT_EQ(unknown.code, 3);
  EXPECT_NE(unknown.err.find("It is possible the file format is not supported by this program."), std::string::npos);

  CliRun noHeader = Cli({"info", Scratch("body.raw")});
  EXPECT_EQ(noHeader.code, 3);
  EXPECT_NE(noHeader.err.find("--raw RATE,CHANNELS,CODEC"), std::string::npos);
}

TEST_F(CliTest, BadArgumentsAreUsageErrors) {
  EXPECT_EQ(Cli({}).code, 2);
  EXPECT_EQ(Cli({"frobnicate"}).code, 2);
  EXPECT_EQ(Cli({"info"}).code, 2);
  EXPECT_EQ(Cli({"convert", "a.wav"}).code, 2);
  CliRun bits = Cli({"convert", "a.wav", "b.wav", "--bits", "12"});
  EXPECT_EQ(bits.code, 2);
  EXPECT_NE(bits.err.find("--bits takes 8, 16, 24 or 32"), std::string::npos);
  EXPECT_EQ(Cli({"convert", "a.wav", "b.wav", "--rate"}).code, 2);
  EXPECT_EQ(Cli({"info", "x.raw", "--raw", "44100,2"}).code, 2);
  EXPECT_EQ(Cli({"info", "x.raw", "--raw", "44100,2,s17le"}).code, 2);
  CliRun help = Cli({"--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_NE(help.out.find("convert IN OUT"), std::string::npos);
}

TEST_F(CliTest, ConvertWritesEveryKindThatReadsBackTheSame) {
  const std::string in = kPcm + "/wav/M1F1-int16-AFsp.wav";
  const std::vector<float> original = ReadAll(LWaveFile::OpenSource(in));
  ASSERT_FALSE(original.empty());

  struct Case {
    const char* name;
    std::vector<std::string> options;
    // 16-bit samples survive every wider body to within the rounding of the
    // different full-scale factors; narrower bodies lose their own step.
    float tolerance;
  };
  const Case cases[] = {
      {"out.aifc", {"--bits", "24"}, 1e-6f},
      {"out.aif", {}, 0.0f},
      {"out.wav", {"--float"}, 0.0f},
      {"out32.wav", {"--bits", "32"}, 1e-6f},
      {"out.au", {}, 0.0f},
      {"out8.wav", {"--bits", "8"}, 1.0f / 120},
      {"outmu.wav", {"--format", "ulaw"}, 0.02f},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"convert", in, Scratch(c.name)};
    args.insert(args.end(), c.options.begin(), c.options.end());
    CliRun r = Cli(args);
    ASSERT_EQ(r.code, 0) << c.name << ": " << r.err;
    CliRun info = Cli({"info", Scratch(c.name)});
    ASSERT_EQ(info.code, 0) << c.name << ": " << info.err;
    EXPECT_NE(info.out.find("Frames:    23493\n"), std::string::npos) << c.name;

    std::string ext = fs::path(c.name).extension();
    LSoundSource back = ext == ".wav" ? LWaveFile::OpenSource(Scratch(c.name))
                        : ext == ".au" ? LSoundSource()
                                       : LAifFile::OpenSource(Scratch(c.name));
    if (ext == ".au") continue;  // read back through info above; the AU reader has its own tests
    std::vector<float> got = ReadAll(back);
    ASSERT_EQ(got.size(), original.size()) << c.name;
    float worst = 0;
    for (std::size_t i = 0; i < got.size(); ++i) worst = std::max(worst, std::abs(got[i] - original[i]));
    EXPECT_LE(worst, c.tolerance) << c.name;
  }
}

TEST_F(CliTest, HeaderlessFilesGoBothWays) {
  const std::string in = kPcm + "/wav/M1F1-int16-AFsp.wav";
  ASSERT_EQ(Cli({"convert", in, Scratch("body.raw"), "--raw-codec", "s24be"}).code, 0);
  EXPECT_EQ(fs::file_size(Scratch("body.raw")), 23493u * 2 * 3);
  CliRun info = Cli({"info", Scratch("body.raw"), "--raw", "8000,2,s24be"});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Body:      s24be\n"), std::string::npos);
  EXPECT_NE(info.out.find("Frames:    23493\n"), std::string::npos);
  ASSERT_EQ(Cli({"convert", Scratch("body.raw"), Scratch("back.wav"), "--raw", "8000,2,s24be"}).code, 0);
  EXPECT_EQ(ReadAll(LWaveFile::OpenSource(Scratch("back.wav"))), ReadAll(LWaveFile::OpenSource(in)));
}

TEST_F(CliTest, AStoppedOrImpossibleConversionLeavesNoFile) {
  const std::string in = kPcm + "/wav/M1F1-int16-AFsp.wav";
  StopAtOnce stop;
  CliRun stopped = Cli({"convert", in, Scratch("stopped.wav")}, &stop);
  EXPECT_EQ(stopped.code, 1);
  EXPECT_FALSE(fs::exists(Scratch("stopped.wav")));

  CliRun noFolder = Cli({"convert", in, Scratch("no/such/folder/out.wav")});
  EXPECT_EQ(noFolder.code, 3);
  EXPECT_NE(noFolder.err.find("check the folder exists"), std::string::npos) << noFolder.err;

  CliRun gsm = Cli({"convert", in, Scratch("out.gsm")});
  EXPECT_EQ(gsm.code, 3);
  EXPECT_NE(gsm.err.find("8000 Hz mono"), std::string::npos);
  EXPECT_FALSE(fs::exists(Scratch("out.gsm")));

  CliRun aiffFloat = Cli({"convert", in, Scratch("f.aif"), "--float"});
  EXPECT_EQ(aiffFloat.code, 3);
}

}  // namespace

namespace {

// A project made from files on the command line holds them as clips where the
// arguments put them, and info tells what its data folder lacks.
TEST_F(CliTest, NewMakesAProjectOfTheFilesAndInfoDescribesIt) {
  std::string const wav = Scratch("tone.wav");
  {
    LSoundSink sink = LWaveFile::OpenSinkPCM(wav, 8000, 1, 16);
    std::vector<float> tone(16000, 0.25f);
    sink->Write(tone.data(), 16000);
  }
  std::string const song = Scratch("song.tdpj");
  CliRun made = Cli({"new", song, "--rate", "48000", "--add", wav, "--add", wav + "@2.5:13"});
  ASSERT_EQ(made.code, 0) << made.err;
  EXPECT_TRUE(fs::exists(song + ".ProjectData/0.aud"));
  EXPECT_TRUE(fs::exists(song + ".ProjectData/1.grf"));

  CliRun info = Cli({"info", song});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Rate:      48000 Hz"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Tracks:    13"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Clips:     2"), std::string::npos);
  EXPECT_NE(info.out.find("clips end at 0:00:04.500"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Missing:   nothing"), std::string::npos);
  // Looking at a project leaves its audio alone.
  EXPECT_TRUE(fs::exists(song + ".ProjectData/0.aud"));

  fs::remove(song + ".ProjectData/1.aud");
  EXPECT_NE(Cli({"info", song}).out.find("Missing:   1.aud"), std::string::npos);

  EXPECT_EQ(Cli({"new", song}).code, 3);  // never over an existing project
  EXPECT_EQ(Cli({"new", Scratch("x.tdpj"), "--add", wav + ":251"}).code, 2);
  EXPECT_EQ(Cli({"new", Scratch("y.tdpj"), "--add", Scratch("absent.wav")}).code, 3);
  EXPECT_FALSE(fs::exists(Scratch("y.tdpj")));
  fs::rename(song + ".ProjectData", Scratch("elsewhere"));
  CliRun lost = Cli({"info", song});
  EXPECT_EQ(lost.code, 3);
  EXPECT_NE(lost.err.find("is missing"), std::string::npos) << lost.err;
}

}  // namespace
TEST_F(CliTest, RenderMixesAProjectDownAsAnExportDoes) {
  // Two mono files of steps that add without rounding: one at 0.5 s on track 1,
  // one from the start on track 2.
  auto write = [&](const char* name, int frames, int period, float step) {
    LSoundSink sink = LWaveFile::OpenSinkFloat(Scratch(name), 8000, 1);
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (int f = 0; f < frames; ++f) v[static_cast<std::size_t>(f)] = step * static_cast<float>(f % period);
    sink->Write(v.data(), frames);
  };
  write("a.wav", 6000, 7, 1.0f / 32);
  write("b.wav", 3000, 5, 1.0f / 64);
  const std::string song = Scratch("song.tdpj");
  CliRun made = Cli({"new", song, "--rate", "8000", "--add", Scratch("a.wav") + "@0.5:1", "--add", Scratch("b.wav") + ":2"});
  ASSERT_EQ(made.code, 0) << made.err;

  CliRun r = Cli({"render", song, Scratch("mix.wav"), "--float"});
  ASSERT_EQ(r.code, 0) << r.err;
  LSoundSource mix = LWaveFile::OpenSource(Scratch("mix.wav"));
  ASSERT_TRUE(mix.IsGood());
  EXPECT_EQ(mix->GetSampleRate(), 8000);
  ASSERT_EQ(mix->GetChannels(), 2);
  ASSERT_EQ(mix->GetEndSample(), 4000 + 6000);  // to the end of the last clip heard
  std::vector<float> const all = ReadAll(mix);
  for (int f = 0; f < 10000; ++f) {
    float const a = f >= 4000 ? static_cast<float>((f - 4000) % 7) / 32 : 0.0f;
    float const b = f < 3000 ? static_cast<float>(f % 5) / 64 : 0.0f;
    ASSERT_EQ(all[static_cast<std::size_t>(2 * f)], a + b) << f;
    ASSERT_EQ(all[static_cast<std::size_t>(2 * f + 1)], a + b) << f;
  }

  // Stopped (Ctrl-C) it leaves no file; an empty project has nothing to write.
  StopAtOnce stop;
  CliRun stopped = Cli({"render", song, Scratch("stopped.wav")}, &stop);
  EXPECT_EQ(stopped.code, 1);
  EXPECT_FALSE(fs::exists(Scratch("stopped.wav")));
  ASSERT_EQ(Cli({"new", Scratch("empty.tdpj")}).code, 0);
  CliRun empty = Cli({"render", Scratch("empty.tdpj"), Scratch("empty.wav")});
  EXPECT_EQ(empty.code, 3);
  EXPECT_NE(empty.err.find("nothing in the project is heard"), std::string::npos) << empty.err;
  EXPECT_FALSE(fs::exists(Scratch("empty.wav")));
  EXPECT_EQ(Cli({"render", song}).code, 2);
  EXPECT_EQ(Cli({"render", Scratch("a.wav"), Scratch("x.wav")}).code, 2);
  EXPECT_EQ(Cli({"render", Scratch("absent.tdpj"), Scratch("x.wav")}).code, 3);
}

TEST_F(CliTest, Mp3FilesAreReadByTheirOwnDecoder) {
  const std::string mp3 = std::string(TANDREL_TESTDATA_DIR) + "/mp3/l3-sin1k0db.bit";
  fs::copy_file(mp3, Scratch("sine.mp3"));
  CliRun info = Cli({"info", Scratch("sine.mp3")});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Format:    MPEG Layer 3\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Rate:      44100 Hz\n"), std::string::npos);
  EXPECT_NE(info.out.find("Channels:  2\n"), std::string::npos);
  CliRun convert = Cli({"convert", Scratch("sine.mp3"), Scratch("sine.wav")});
  ASSERT_EQ(convert.code, 0) << convert.err;
  LSoundSource wav = LWaveFile::OpenSource(Scratch("sine.wav"));
  ASSERT_TRUE(wav.IsGood());
  // A 1 kHz sine at full scale: the 16-bit copy peaks near full scale.
  std::vector<float> const all = ReadAll(wav);
  float peak = 0;
  for (float v : all) peak = std::max(peak, std::fabs(v));
  EXPECT_GT(peak, 0.9f);
  EXPECT_EQ(static_cast<int>(all.size()) / 2, LMP3File::OpenSource(Scratch("sine.mp3").c_str())->GetEndSample());
}

TEST_F(CliTest, WaveFileHoldingMp3IsReadAsMp3) {
  // A RIFF head with format tag 85 in front of MP3 frames, as some programs write.
  const std::vector<char> body = [] {
    std::FILE* f = std::fopen((std::string(TANDREL_TESTDATA_DIR) + "/mp3/l3-si.bit").c_str(), "rb");
    std::vector<char> b(24659);
    if (f == nullptr) return std::vector<char>();  // the shared test material is missing
    b.resize(std::fread(b.data(), 1, b.size(), f));
    std::fclose(f);
    return b;
  }();
  ASSERT_FALSE(body.empty()) << "no " << TANDREL_TESTDATA_DIR << "/mp3/l3-si.bit";
  std::vector<unsigned char> h = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 30, 0, 0, 0,
                                  85, 0, 1, 0, 0x44, 0xAC, 0, 0, 0x80, 0x3E, 0, 0, 1, 0, 0, 0, 12, 0,
                                  1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'd', 'a', 't', 'a'};
  const std::uint32_t size = static_cast<std::uint32_t>(body.size());
  for (int i = 0; i < 4; ++i) h.push_back(static_cast<unsigned char>(size >> (8 * i)));
  std::FILE* f = std::fopen(Scratch("mp3.wav").c_str(), "wb");
  std::fwrite(h.data(), 1, h.size(), f);
  std::fwrite(body.data(), 1, body.size(), f);
  std::fclose(f);
  CliRun info = Cli({"info", Scratch("mp3.wav")});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Codec:     MPEG Layer 3 (tag 85)"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Channels:  1\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Frames:    " + std::to_string(LMP3File::OpenSource((std::string(TANDREL_TESTDATA_DIR) +
                                                                                   "/mp3/l3-si.bit").c_str())
                                                              ->GetEndSample())),
            std::string::npos)
      << info.out;
}

TEST_F(CliTest, DamagedMp3SaysItIsCorrupt) {
  std::FILE* f = std::fopen(Scratch("bad.mp3").c_str(), "wb");
  std::vector<char> junk(100000, 'x');
  std::fwrite(junk.data(), 1, junk.size(), f);
  std::fclose(f);
  CliRun r = Cli({"info", Scratch("bad.mp3")});
  EXPECT_EQ(r.code, 3);
  EXPECT_NE(r.err.find("because it is corrupt"), std::string::npos) << r.err;
}

namespace {

// export writes whatever Tandrel reads into any format it exports, with the encoder
// settings of the preferences (a scratch store here).
class CliExportTest : public CliTest {
 protected:
  void SetUp() override {
    CliTest::SetUp();
    fs::create_directories(scratch / "data");
    setenv("XDG_DATA_HOME", (scratch / "data").c_str(), 1);
    LUserSettingsStore::Global().UseFile(Scratch("settings.conf"));
  }
};

TEST_F(CliExportTest, ExportWritesEveryKindAndInfoReadsItBack) {
  const std::string in = kPcm + "/wav/M1F1-int16-AFsp.wav";  // 8000 Hz, stereo, 23493 frames
  CliRun flac = Cli({"export", in, Scratch("out.flac")});
  ASSERT_EQ(flac.code, 0) << flac.err;
  CliRun info = Cli({"info", Scratch("out.flac")});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Format:    flac, FLAC (Free Lossless Audio Codec) (through FFmpeg)\n"), std::string::npos)
      << info.out;
  EXPECT_NE(info.out.find("Frames:    23493\n"), std::string::npos) << info.out;
  // Lossless: converting it back gives the samples that went in.
  ASSERT_EQ(Cli({"convert", Scratch("out.flac"), Scratch("back.wav")}).code, 0);
  std::vector<float> const original = ReadAll(LWaveFile::OpenSource(in));
  std::vector<float> const back = ReadAll(LWaveFile::OpenSource(Scratch("back.wav")));
  ASSERT_EQ(back.size(), original.size());
  float worst = 0;
  for (std::size_t i = 0; i < back.size(); ++i) worst = std::max(worst, std::abs(back[i] - original[i]));
  EXPECT_LE(worst, 1.0f / 16384);

  CliRun mp3 = Cli({"export", Scratch("out.flac"), Scratch("mono.mp3"), "--rate", "44100", "--channels", "1"});
  ASSERT_EQ(mp3.code, 0) << mp3.err;
  CliRun mp3Info = Cli({"info", Scratch("mono.mp3")});
  EXPECT_NE(mp3Info.out.find("Rate:      44100 Hz\n"), std::string::npos) << mp3Info.out;
  EXPECT_NE(mp3Info.out.find("Channels:  1\n"), std::string::npos) << mp3Info.out;
  EXPECT_NE(mp3Info.out.find("Duration:  0:00:02.936\n"), std::string::npos) << mp3Info.out;
}

TEST_F(CliExportTest, AProjectExportsItsMix) {
  {
    LSoundSink sink = LWaveFile::OpenSinkFloat(Scratch("a.wav"), 8000, 1);
    std::vector<float> v(6000);
    for (int f = 0; f < 6000; ++f) v[static_cast<std::size_t>(f)] = static_cast<float>(f % 7) / 32;
    sink->Write(v.data(), 6000);
  }
  const std::string song = Scratch("song.tdpj");
  ASSERT_EQ(Cli({"new", song, "--rate", "8000", "--add", Scratch("a.wav") + "@0.5:3"}).code, 0);
  CliRun r = Cli({"export", song, Scratch("mix.flac")});
  ASSERT_EQ(r.code, 0) << r.err;
  CliRun info = Cli({"info", Scratch("mix.flac")});
  EXPECT_NE(info.out.find("Rate:      8000 Hz\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Channels:  2\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("Frames:    10000\n"), std::string::npos) << info.out;
  ASSERT_EQ(Cli({"convert", Scratch("mix.flac"), Scratch("mix.wav"), "--float"}).code, 0);
  std::vector<float> const all = ReadAll(LWaveFile::OpenSource(Scratch("mix.wav")));
  ASSERT_EQ(all.size(), 20000u);
  for (int f = 0; f < 10000; ++f) {
    float const want = f >= 4000 ? static_cast<float>((f - 4000) % 7) / 32 : 0.0f;
    ASSERT_NEAR(all[static_cast<std::size_t>(2 * f)], want, 1.0f / 16384) << f;
  }
  EXPECT_EQ(Cli({"export", song, Scratch("x.wav"), "--channels", "1"}).code, 2);
  // A stretch of it: 0.75 s to 1 s is frames 6000 to 8000 of the mix.
  r = Cli({"export", song, Scratch("part.wav"), "--selection", "0.75-1"});
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<float> const part = ReadAll(LWaveFile::OpenSource(Scratch("part.wav")));
  ASSERT_EQ(part.size(), 2u * 2000u);
  for (int f = 0; f < 2000; ++f) {
    ASSERT_NEAR(part[static_cast<std::size_t>(2 * f)], all[static_cast<std::size_t>(2 * (f + 6000))], 1.0f / 16384) << f;
  }
  for (char const* bad : {"1-0.5", "x-2", "3", "-1-2"}) {
    EXPECT_EQ(Cli({"export", song, Scratch("bad.wav"), "--selection", bad}).code, 2) << bad;
  }
  EXPECT_EQ(Cli({"export", Scratch("a.wav"), Scratch("bad.wav"), "--selection", "0-1"}).code, 2);
  EXPECT_NE(Cli({"export", song, Scratch("late.wav"), "--selection", "9999-10000"}).code, 0);
  EXPECT_FALSE(std::filesystem::exists(Scratch("bad.wav")));
  EXPECT_FALSE(std::filesystem::exists(Scratch("late.wav")));
  // An empty project gives an empty file with a valid header.
  ASSERT_EQ(Cli({"new", Scratch("empty.tdpj")}).code, 0);
  ASSERT_EQ(Cli({"export", Scratch("empty.tdpj"), Scratch("empty.wav")}).code, 0);
  EXPECT_NE(Cli({"info", Scratch("empty.wav")}).out.find("Frames:    0\n"), std::string::npos);
}

TEST_F(CliExportTest, ExportThatCannotBeDoneSaysWhyAndLeavesNoFile) {
  const std::string in = kPcm + "/wav/M1F1-int16-AFsp.wav";
  CliRun unknown = Cli({"export", in, Scratch("out.xyz")});
  EXPECT_EQ(unknown.code, 3);
  EXPECT_NE(unknown.err.find("unknown kind of file (use .wav .mov .aifc .mp3"), std::string::npos) << unknown.err;
  EXPECT_EQ(Cli({"export", in, Scratch("out.wav"), "--bits", "24"}).code, 2);
  EXPECT_EQ(Cli({"export", in}).code, 2);

  StopAtOnce stop;
  CliRun stopped = Cli({"export", in, Scratch("stopped.ogg")}, &stop);
  EXPECT_EQ(stopped.code, 1);
  EXPECT_FALSE(fs::exists(Scratch("stopped.ogg")));
  // A file that was there survives an export over it that is stopped, and no
  // passing file is left beside it.
  { std::ofstream(Scratch("kept.wav")) << "the user's take"; }
  EXPECT_EQ(Cli({"export", in, Scratch("kept.wav")}, &stop).code, 1);
  ASSERT_TRUE(fs::exists(Scratch("kept.wav")));
  EXPECT_EQ(fs::file_size(Scratch("kept.wav")), 15u);
  for (auto const& e : fs::directory_iterator(fs::path(Scratch("kept.wav")).parent_path())) {
    EXPECT_EQ(e.path().string().find(".exporting"), std::string::npos) << e.path();
  }

  CliRun missingInput = Cli({"export", Scratch("absent.ogg"), Scratch("x.wav")});
  EXPECT_EQ(missingInput.code, 3);
  EXPECT_NE(missingInput.err.find("Check it exists and you have read access."), std::string::npos);

  const std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
  setenv("PATH", "", 1);
  CliRun noEncoder = Cli({"export", in, Scratch("out.ogg")});
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(noEncoder.code, 3);
  EXPECT_NE(noEncoder.err.find("tandrel-cli: Tandrel Multitrack Recorder could not locate a plugin for the file with "
                               "extension \".ogg\". Install the Debian package \"vorbis-tools\" and try again."),
            std::string::npos)
      << noEncoder.err;
  EXPECT_FALSE(fs::exists(Scratch("out.ogg")));
}

}  // namespace
