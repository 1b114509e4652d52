// Every format the program writes goes out through the sink factory and comes back
// through the one opener; what cannot be opened says why in the program's words.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "foundation/testing_process.h"
#include "shell/export.h"
#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"
#include "shell/user_settings.h"
#include "sound/encoder_sinks.h"
#include "sound/pcm_file.h"
#include "sound/testing_files.h"
#include "sound/testing_programs.h"
#include "sound/testing_sources.h"
#include "sound/testing_tones.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 44100;
constexpr int kFrames = 44100;  // one second
constexpr double kHz = 440.0;

float Tone(int frame, int channel) {
  // The right channel a little quieter, so that a swap would show.
  return (channel == 0 ? 0.5f : 0.25f) * static_cast<float>(std::sin(2 * M_PI * kHz * frame / kRate));
}

LSoundSource ToneSource() { return LSoundSource::Make<LTestFunctionSource>(kRate, 2, kFrames, Tone); }

class GenOpenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("gen-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch / "tmp");
    fs::create_directories(scratch / "data");
    fs::create_directories(scratch / "bin");
    setenv("TMPDIR", (scratch / "tmp").c_str(), 1);
    setenv("XDG_DATA_HOME", (scratch / "data").c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
  }

  std::string Path(std::string const& name) const { return (scratch / name).string(); }

  // What the temporary folder holds now.
  std::size_t TemporaryFiles() const {
    std::size_t n = 0;
    for ([[maybe_unused]] auto const& e : fs::directory_iterator(scratch / "tmp")) ++n;
    return n;
  }

  LProcessResult Export(LSoundSource const& source, std::string const& path, LTestProcessRecorder& pi) {
    TDExportSource job;
    job.lssSource = source;
    job.szPath = path;
    return Process(pi, job);
  }

  LProcessResult Open(std::string const& path, LSoundSource& out, LTestProcessRecorder& pi) {
    LGenSourceOpenInterfaceProcess face(pi);
    return ProcessGenSourceOpenSource(out, path.c_str(), face);
  }

  fs::path scratch;
};

struct RoundTrip {
  char const* ext;
  int rate;          // what the file holds
  int channels;
  int extraFrames;   // the most a codec's delay and padding may add
  int shortFrames;   // the most a decoder may leave out at the end
  double levelDb;    // how far the level may move
  bool exact;        // lossless: every sample back within 16-bit steps
};

TEST_F(GenOpenTest, EveryFormatGoesOutAndComesBack) {
  std::vector<RoundTrip> const cases = {
      {".wav", 44100, 2, 0, 0, 0.01, true},     {".mov", 44100, 2, 0, 0, 0.01, true},
      {".aifc", 44100, 2, 0, 0, 0.01, true},    {".mp3", 44100, 2, 0, 0, 0.5, false},
      {".m4a", 44100, 2, 0, 0, 0.5, false},     {".m4r", 44100, 2, 0, 0, 0.5, false},
      {".aac", 44100, 2, 3072, 0, 0.5, false},  {".amr", 8000, 1, 320, 0, 3.0, false},
      {".flac", 44100, 2, 0, 0, 0.01, true},    {".mpc", 44100, 2, 2304, 0, 0.5, false},
      // FFmpeg leaves out the last 128 samples of what oggenc writes (oggdec gives them).
      {".ogg", 44100, 2, 0, 128, 0.5, false},
      {".spx", 32000, 2, 1024, 0, 3.0, false},  {".aiff", 44100, 2, 0, 0, 0.01, true},
      {".aif", 44100, 2, 0, 0, 0.01, true},     {".au", 44100, 2, 0, 0, 0.01, true},
      {".gsm", 8000, 1, 0, 0, 3.0, false},      {".raw", 44100, 2, 0, 0, 0.01, true},
      {".caf", 44100, 2, 0, 0, 0.01, true},     {".vox", 8000, 1, 0, 0, 1.0, false},
  };
  std::vector<float> const original = LTestReadToEnd(ToneSource());
  for (RoundTrip const& c : cases) {
    SCOPED_TRACE(c.ext);
    std::string const path = Path(std::string("tone") + c.ext);
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(ToneSource(), path, pi), LProcessFinished) << (pi.Errors().empty() ? "" : pi.Errors()[0]);
    LSoundSource back;
    ASSERT_EQ(Open(path, back, pi), LProcessFinished) << (pi.Errors().empty() ? "" : pi.Errors()[0]);
    EXPECT_FALSE(back->IsStreaming());
    EXPECT_EQ(back->GetSampleRate(), c.rate);
    ASSERT_EQ(back->GetChannels(), c.channels);
    int const expected = static_cast<int>(static_cast<std::int64_t>(kFrames) * c.rate / kRate);
    EXPECT_GE(back->GetEndSample(), expected - c.shortFrames);
    EXPECT_LE(back->GetEndSample(), expected + c.extraFrames);

    std::vector<float> const got = LTestReadToEnd(back);
    std::size_t const from = static_cast<std::size_t>(c.rate / 10), to = static_cast<std::size_t>(expected - c.rate / 10);
    for (int ch = 0; ch < c.channels; ++ch) {
      LTestTone const tone = LTestMeasureTone(got, c.channels, ch, c.rate, from, to);
      // A mono file holds the mix of both channels.
      double const amplitude = c.channels == 1 ? 0.375 : (ch == 0 ? 0.5 : 0.25);
      EXPECT_NEAR(tone.dFrequency, kHz, kHz * 0.01) << "channel " << ch;
      EXPECT_NEAR(LTestDb(tone.dRms / (amplitude / std::sqrt(2.0))), 0.0, c.levelDb) << "channel " << ch;
    }
    if (c.exact) {
      float worst = 0;
      for (std::size_t i = 0; i < got.size() && i < original.size(); ++i) {
        worst = std::max(worst, std::fabs(got[i] - original[i]));
      }
      EXPECT_LT(worst, 2.0f / 32768.0f);
    }
  }
  // A podcast is an MP3 beside its feed, whose enclosure names it with its size.
  LUserSettingSetString("RSSEncode", "RootURL", "https://example.org/casts");
  LTestProcessRecorder pi;
  ASSERT_EQ(Export(ToneSource(), Path("episode.rss"), pi), LProcessFinished);
  std::ifstream feed(Path("episode.rss"));
  std::string const xml((std::istreambuf_iterator<char>(feed)), std::istreambuf_iterator<char>());
  EXPECT_NE(xml.find("<enclosure url=\"https://example.org/casts/episode.mp3\" length=\"" +
                     std::to_string(fs::file_size(Path("episode.mp3"))) + "\" type=\"audio/mpeg\" />"),
            std::string::npos)
      << xml;
  LSoundSource mp3;
  ASSERT_EQ(Open(Path("episode.mp3"), mp3, pi), LProcessFinished);
  EXPECT_EQ(mp3->GetEndSample(), kFrames);
  EXPECT_EQ(TemporaryFiles(), 0u);
}

// The settings of a format reach its encoder.
TEST_F(GenOpenTest, FormatSettingsChooseWhatIsWritten) {
  LUserSettingSet("M4AEncoder", "CodecType", 1);  // Apple Lossless
  LUserSettingSet("ALACSettings", "BitDepth", 24);
  LUserSettingSet("AuEncoder", "CodecIndex", 2);  // mu-law
  LUserSettingSet("AuEncoder", "SampleRate", 8000);
  LUserSettingSet("AuEncoder", "Channels", 1);
  LUserSettingSet("AIFFEncode", "SampleSize", 24);
  LTestProcessRecorder pi;
  for (char const* name : {"alac.m4a", "law.au", "deep.aiff"}) ASSERT_EQ(Export(ToneSource(), Path(name), pi), 0);

  LSoundSource alac, law, deep;
  ASSERT_EQ(Open(Path("alac.m4a"), alac, pi), LProcessFinished);
  std::vector<float> const original = LTestReadToEnd(ToneSource());
  std::vector<float> const lossless = LTestReadToEnd(alac);
  ASSERT_EQ(lossless.size(), original.size());
  float worst = 0;
  for (std::size_t i = 0; i < original.size(); ++i) worst = std::max(worst, std::fabs(lossless[i] - original[i]));
  EXPECT_LT(worst, 1e-6f);  // 24 bits

  ASSERT_EQ(Open(Path("law.au"), law, pi), LProcessFinished);
  EXPECT_EQ(law->GetSampleRate(), 8000);
  EXPECT_EQ(law->GetChannels(), 1);
  EXPECT_EQ(fs::file_size(Path("law.au")), 24u + 8000u);  // a byte a sample

  ASSERT_EQ(Open(Path("deep.aiff"), deep, pi), LProcessFinished);
  EXPECT_GT(fs::file_size(Path("deep.aiff")), static_cast<std::uintmax_t>(kFrames) * 2 * 3);
}

TEST_F(GenOpenTest, AMissingEncoderSaysWhichPackageAndMakesNoFile) {
  LTestFakePrograms none((scratch / "bin").string());
  struct Case {
    char const* ext;
    char const* package;
  };
  for (Case const& c : {Case{".mp3", "lame"}, Case{".ogg", "vorbis-tools"}, Case{".flac", "flac"},
                        Case{".mpc", "musepack-tools"}, Case{".spx", "speex"}, Case{".rss", "lame"}}) {
    std::string const path = Path(std::string("out") + c.ext);
    LTestProcessRecorder pi;
    EXPECT_EQ(Export(ToneSource(), path, pi), LProcessFailed) << c.ext;
    ASSERT_EQ(pi.Errors().size(), 1u) << c.ext;
    EXPECT_EQ(pi.Errors()[0], std::string("Tandrel Multitrack Recorder could not locate a plugin for the file with "
                                          "extension \"") +
                                  c.ext + "\". Install the Debian package \"" + c.package + "\" and try again.");
    EXPECT_FALSE(fs::exists(path)) << c.ext;
  }
  // What FFmpeg or the program itself writes needs no program.
  LTestProcessRecorder pi;
  EXPECT_EQ(Export(ToneSource(), Path("fine.m4a"), pi), LProcessFinished);
  EXPECT_EQ(Export(ToneSource(), Path("fine.wav"), pi), LProcessFinished);
}

TEST_F(GenOpenTest, UnknownTargetsFailAtOnceAndMakeNothing) {
  for (char const* name : {"out.xyz", "out", "list.m3u", "list.pls"}) {
    LTestProcessRecorder pi;
    EXPECT_EQ(Export(ToneSource(), Path(name), pi), LProcessFailed) << name;
    EXPECT_FALSE(fs::exists(Path(name))) << name;
  }
  EXPECT_TRUE(LGenSinkIsSupported(".M3U"));
  EXPECT_TRUE(LGenSinkIsSupported(".FLAC"));
  EXPECT_FALSE(LGenSinkIsSupported(".xyz"));
  // A folder that cannot be written to is the export's failure, in its words.
  LTestProcessRecorder pi;
  std::string const nowhere = Path("no/such/folder/out.wav");
  EXPECT_EQ(Export(ToneSource(), nowhere, pi), LProcessFailed);
  ASSERT_EQ(pi.Errors().size(), 1u);
  EXPECT_EQ(pi.Errors()[0], TDExportFailedText(nowhere));
  EXPECT_EQ(Export(ToneSource(), Path("no/such/folder/out.mp3"), pi), LProcessFailed);
}

TEST_F(GenOpenTest, AnEncoderThatDiesFailsTheExport) {
  LTestFakePrograms fake((scratch / "bin").string());
  fake.Add("lame", "head -c 5000 >/dev/null; exit 1");
  LSoundSource const long_ = LSoundSource::Make<LTestFunctionSource>(kRate, 2, kRate * 300, Tone);
  LTestProcessRecorder pi;
  auto const start = std::chrono::steady_clock::now();
  EXPECT_EQ(Export(long_, Path("dies.mp3"), pi), LProcessFailed);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  ASSERT_FALSE(pi.Errors().empty());
  EXPECT_EQ(pi.Errors().back(), TDExportFailedText(Path("dies.mp3")));
}

TEST_F(GenOpenTest, FilesThatCannotBeOpenedSayWhy) {
  auto message = [&](std::string const& path) {
    LTestProcessRecorder pi;
    LSoundSource s;
    EXPECT_EQ(Open(path, s, pi), LProcessFailed) << path;
    EXPECT_FALSE(s.IsGood());
    return pi.Errors().empty() ? std::string() : pi.Errors()[0];
  };
  auto write = [&](std::string const& name, std::string const& text) {
    std::ofstream(Path(name)) << text;
    return Path(name);
  };
  std::string const text = "these are plain words and no sound at all, repeated. " + std::string(2000, 'x');

  EXPECT_EQ(message(Path("absent.flac")),
            "Cannot open the file \"" + Path("absent.flac") + "\". Check it exists and you have read access.");
  EXPECT_EQ(message(write("junk.wav", "RIFF....WAVEjunk")),
            "Cannot open the file \"" + Path("junk.wav") + "\" because it is corrupt.");
  std::string const invalidFlac = std::string(TANDREL_TESTDATA_DIR) + "/tags/invalid_file.flac";
  EXPECT_EQ(message(invalidFlac), "Cannot open the file \"" + invalidFlac + "\" because it is corrupt.");
  std::string const midi = std::string(TANDREL_TESTDATA_DIR) + "/midi/test-c-major-scale.mid";
  EXPECT_EQ(message(midi), "MIDI decoding is not currently supported in our products on Linux.");
  // FFmpeg knows no such format, and oggdec fails on it too.
  EXPECT_EQ(message(write("words.ogg", text)),
            "The decoder process failed when decompressing the file \"" + Path("words.ogg") +
                "\" to wave format. It is possible your logon account does not have write access to the folder \"" +
                (scratch / "tmp").string() + "\"");
  EXPECT_EQ(message(write("words.wma", text)).rfind("Cannot open file \"" + Path("words.wma") +
                                                        "\". It is possible that the file is protected with Digital "
                                                        "Rights Management (DRM).",
                                                    0),
            0u);
  EXPECT_EQ(message(write("words.m4a", text)),
            "FFmpeg was unable to decode the file \"" + Path("words.m4a") +
                "\". Please load the file into the Quicktime Player and verify it plays correctly.");
  EXPECT_EQ(message(write("words.dvf", text)),
            "Cannot open the file \"" + Path("words.dvf") + "\" because this format is not supported on Linux.");
  EXPECT_EQ(message(write("words.txt", text))
                .rfind("Cannot open the file \"" + Path("words.txt") +
                           "\". It is possible the file format is not supported by this program.",
                       0),
            0u);
  // A WAV of a codec nobody here knows, and one whose codec has a name.
  ByteImage odd;
  odd.Tag("RIFF").LE32(40).Tag("WAVE").Tag("fmt ").LE32(16).LE16(0x7A7A).LE16(1).LE32(8000).LE32(8000).LE16(1);
  odd.LE16(8).Tag("data").LE32(4).LE32(0);
  odd.SaveTo(Path("odd.wav"));
  EXPECT_EQ(message(Path("odd.wav")), "Cannot open the file \"" + Path("odd.wav") +
                                          "\" because it is using an unknown codec or is possibly not a real wave file.");
  std::string const adpcm = std::string(TANDREL_TESTDATA_DIR) + "/tags/adpcm.wav";
  EXPECT_EQ(LGenSourceGetErrorText(LMakeErrorSource(LSoundErrorNoDecoder), adpcm.c_str(), ".wav")
                .rfind("Cannot open the file \"" + adpcm + "\" because the required codec (\"adpcm_ms\") is not installed.",
                       0),
            0u);
  EXPECT_EQ(LGenSourceGetErrorText(LMakeErrorSource(LSoundErrorFailed), "x.mp3", ".mp3"),
            "Cannot open the file \"x.mp3\". It is possibly either corrupt or not a true layer-3 MPEG file.");
  EXPECT_EQ(LGenSourceGetErrorText(LMakeErrorSource(6), "x.ds2", ".ds2").rfind(
                "Cannot open the file \"x.ds2\" because it is encrypted.", 0),
            0u);
  EXPECT_EQ(TemporaryFiles(), 0u);
}

TEST_F(GenOpenTest, WhatOurReadersLackFFmpegReads) {
  // Upper-case extensions are the same extensions.
  fs::copy_file(std::string(TANDREL_TESTDATA_DIR) + "/pcm/wav/M1F1-int16-AFsp.wav", Path("LOUD.WAV"));
  LTestProcessRecorder pi;
  LSoundSource wav;
  ASSERT_EQ(Open(Path("LOUD.WAV"), wav, pi), LProcessFinished);
  EXPECT_EQ(wav->GetEndSample(), 23493);

  // Microsoft ADPCM in a WAV file: not ours to decode, but FFmpeg's.
  LSoundSource adpcm;
  ASSERT_EQ(Open(std::string(TANDREL_TESTDATA_DIR) + "/tags/adpcm_no_byterate.wav", adpcm, pi), LProcessFinished);
  EXPECT_EQ(adpcm->GetChannels(), 2);
  EXPECT_EQ(adpcm->GetSampleRate(), 8000);
  EXPECT_GT(adpcm->GetEndSample(), 0);

  // A stream FFmpeg cannot tell the length of becomes a temporary WAV file, which
  // goes with the source.
  ASSERT_EQ(Export(ToneSource(), Path("stream.aac"), pi), LProcessFinished);
  LSoundSource aac;
  ASSERT_EQ(Open(Path("stream.aac"), aac, pi), LProcessFinished);
  EXPECT_FALSE(aac->IsStreaming());
  EXPECT_EQ(TemporaryFiles(), 1u);
  std::vector<std::string> const lines = pi.Statuses(1);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "Opening source file..."), lines.end());
  aac.Close();
  EXPECT_EQ(TemporaryFiles(), 0u);
}

// When FFmpeg gives up, the format's own decoder program may still get through; the
// WAV it writes lives as long as the source, and a stop kills it.
TEST_F(GenOpenTest, ADecoderProgramStandsBehindFFmpeg) {
  std::string const prepared = Path("prepared.wav");
  {
    LSoundSink sink = LWaveFile::OpenSinkPCM(prepared, 22050, 1, 16);
    std::vector<float> quiet(2205, 0.1f);
    sink->Write(quiet.data(), 2205);
  }
  std::ofstream(Path("broken.flac")) << "fLaC but nothing a decoder could use";
  LTestFakePrograms fake((scratch / "bin").string());
  // flac --silent -f -d -o TARGET -F SOURCE
  fake.Add("flac", "cp '" + prepared + "' \"$5\"");

  LTestProcessRecorder pi;
  LSoundSource decoded;
  ASSERT_EQ(Open(Path("broken.flac"), decoded, pi), LProcessFinished);
  EXPECT_EQ(decoded->GetEndSample(), 2205);
  EXPECT_EQ(decoded->GetSampleRate(), 22050);
  EXPECT_EQ(TemporaryFiles(), 1u);
  decoded.Close();
  EXPECT_EQ(TemporaryFiles(), 0u);

  fake.Add("flac", "echo $$ > '" + Path("pid") + "'; exec sleep 30");
  LTestProcessRecorder stopper;
  std::thread press([&] {
    for (int i = 0; i < 500 && !fs::exists(Path("pid")); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    stopper.soStop.Set();
  });
  auto const start = std::chrono::steady_clock::now();
  LSoundSource stopped;
  EXPECT_EQ(Open(Path("broken.flac"), stopped, stopper), LProcessStopped);
  press.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_FALSE(stopped.IsGood());
  pid_t pid = 0;
  std::ifstream(Path("pid")) >> pid;
  ASSERT_GT(pid, 0);
  EXPECT_NE(::kill(pid, 0), 0);  // the decoder is gone
  EXPECT_EQ(TemporaryFiles(), 0u);
}

}  // namespace
