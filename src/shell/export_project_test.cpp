// The project's mix exported to every format a user is offered, from clips of
// every kind a user brings; the empty, solo and failing cases; and the encoder
// programs gone once an export ends, whichever way it ends.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "foundation/testing_process.h"
#include "project/audio_cut_tank.h"
#include "shell/export.h"
#include "shell/gen_source_open.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/user_settings.h"
#include "sound/testing_programs.h"
#include "sound/testing_tones.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 44100;

// True when this process has no child at all, not even one that has ended and was
// never waited for.
bool NoChildLeft() {
  int status = 0;
  return ::waitpid(-1, &status, WNOHANG) < 0 && errno == ECHILD;
}

class ExportProjectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("export-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    dialog.InitDialog();
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  TDProject& Project() { return dialog.GetProject(); }

  // A stereo tone of `seconds` at `hz` made by ffmpeg into `name`, with `codec`
  // arguments; `picture` is a second input of ffmpeg's, for a video.
  std::string Make(std::string const& name, double hz, double seconds, std::string const& codec,
                   std::string const& picture = "") {
    std::string const path = (scratch / name).string();
    std::string const cmd = "ffmpeg -nostdin -y -f lavfi -i \"sine=frequency=" + std::to_string(hz) +
                            ":duration=" + std::to_string(seconds) + ":sample_rate=44100\" " + picture +
                            " -ac 2 " + codec + " \"" + path + "\"";
    EXPECT_TRUE(LTestRunTool(cmd)) << cmd;
    return path;
  }

  void Place(std::string const& file, int track, LSoundTime at) {
    Project().Tracks.SetCurrentTrackIndex(track);
    dialog.SetCursorPosition(at);
    ASSERT_TRUE(dialog.AddClip(file)) << file << ": " << view.LastAlert();
  }

  LProcessResult Export(std::string const& path, LTestProcessRecorder& pi) {
    TDExportProjectNormal job;
    job.pProject = &Project();
    job.szPath = path;
    job.iSampleRate = kRate;
    return Process(pi, job);
  }

  // The export's file read back through our own opener.
  std::vector<float> ReadBack(std::string const& path, int& rate, int& channels) {
    LTestProcessRecorder pi;
    LGenSourceOpenInterfaceProcess face(pi);
    LSoundSource back;
    EXPECT_EQ(ProcessGenSourceOpenSource(back, path.c_str(), face), LProcessFinished)
        << path << ": " << (pi.Errors().empty() ? "" : pi.Errors()[0]);
    if (back->IsError()) return {};
    rate = back->GetSampleRate();
    channels = back->GetChannels();
    return LTestReadToEnd(back);
  }

  fs::path scratch;
  FakeView view;
  FakeLoop loop;
  FakeEngine engine;
  MainDialog dialog{view, loop, engine};
};

// Five clips, each from a different kind of file and each on its own track at its
// own offset, mixed out to every format: the lossless files hold the mix itself,
// and every file lasts as long as the mix, give or take the codec's own padding.
TEST_F(ExportProjectTest, ClipsOfEveryKindExportToEveryFormat) {
  struct Input {
    std::string file;
    LSoundTime at;
  };
  std::vector<Input> const inputs = {
      {Make("in.wav", 220, 1.5, "-c:a pcm_s16le"), 0},
      {Make("in.aiff", 330, 1.0, "-c:a pcm_s16be"), 400},
      {Make("in.flac", 440, 1.2, "-c:a flac"), 900},
      {Make("in.ogg", 550, 1.0, "-c:a libvorbis"), 1300},
      {Make("in.mp4", 660, 1.0, "-map 0:a -map 1:v -c:v mpeg4 -c:a aac",
            "-f lavfi -i \"testsrc=size=64x48:rate=10:duration=1\""),
       1700},
  };
  for (std::size_t i = 0; i < inputs.size(); ++i) Place(inputs[i].file, static_cast<int>(i), inputs[i].at);
  ASSERT_EQ(Project().Clips.GetCount(), 5);

  // The mix as the export sees it: the reference for the lossless files.
  int const end = Project().GetProjectExportEnd(kRate);
  ASSERT_GE(end, kRate * 27 / 10);  // the video's sound ends last, at 2.7 s
  std::vector<float> mix;
  {
    LSoundSource source = Project().OpenSourceForExport(kRate, 2, nullptr, false);
    ASSERT_FALSE(source->IsError());
    ASSERT_EQ(source->GetEndSample(), end);
    mix = LTestReadToEnd(source);
  }
  ASSERT_EQ(mix.size(), static_cast<std::size_t>(end) * 2);
  float peak = 0;
  for (float v : mix) peak = std::max(peak, std::fabs(v));
  ASSERT_GT(peak, 0.1f);
  ASSERT_LT(peak, 0.9f);  // the limiter has nothing to do, so what goes out is the mix

  struct Format {
    char const* ext;
    bool lossless;
    int rate;         // of the file the encoder makes
    int slackFrames;  // the codec's padding, at the file's rate
  };
  // The padding each codec may leave at the end, up to a whole frame: MP3 (1152,
  // though lame's gapless head lets a decoder trim it), Musepack (1152), Speex's
  // ultra-wide band (640) and AAC (1024).
  Format const formats[] = {{".wav", true, kRate, 0},     {".aiff", true, kRate, 0},    {".au", true, kRate, 0},
                            {".flac", true, kRate, 0},    {".ogg", false, kRate, 0},    {".mp3", false, kRate, 1152},
                            {".mpc", false, kRate, 1152}, {".spx", false, 32000, 640}, {".m4a", false, kRate, 1024}};
  for (Format const& f : formats) {
    SCOPED_TRACE(f.ext);
    std::string const out = (scratch / (std::string("mix") + f.ext)).string();
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(out, pi), LProcessFinished) << (pi.Errors().empty() ? "" : pi.Errors()[0]);
    int rate = 0;
    int channels = 0;
    std::vector<float> const back = ReadBack(out, rate, channels);
    EXPECT_EQ(rate, f.rate);
    ASSERT_EQ(channels, 2);
    long long const frames = static_cast<long long>(back.size()) / 2;
    long long const expected = static_cast<long long>(end) * f.rate / kRate;
    EXPECT_GE(frames, expected - (f.lossless ? 0 : 1)) << "cut short";
    EXPECT_LE(frames, expected + f.slackFrames) << "longer than the mix and its padding";

    // An independent reader agrees on the length.
    ASSERT_TRUE(LTestRunTool("ffmpeg -nostdin -v error -i \"" + out + "\" -f s16le -ac 2 \"" +
                             (scratch / "decoded.raw").string() + "\" -y"));
    long long const ffFrames = static_cast<long long>(fs::file_size(scratch / "decoded.raw")) / 4;
    EXPECT_GE(ffFrames, expected - (f.lossless ? 0 : 1)) << "ffmpeg: cut short";
    EXPECT_LE(ffFrames, expected + f.slackFrames) << "ffmpeg: longer than the mix and its padding";

    if (f.lossless) {
      ASSERT_EQ(back.size(), mix.size());
      // Sixteen bits: within a step of the mix everywhere.
      for (std::size_t i = 0; i < mix.size(); ++i) {
        ASSERT_NEAR(back[i], mix[i], 1.0 / 32768 + 1e-6) << "frame " << i / 2;
      }
    } else {
      // The lossy files still carry the mix: the same loudness, near enough.
      double a = 0;
      double b = 0;
      for (float v : mix) a += static_cast<double>(v) * v;
      for (float v : back) b += static_cast<double>(v) * v;
      double const mixRms = std::sqrt(a / static_cast<double>(mix.size()));
      // Over the mix's length: padding is silence and must not dilute the measure.
      double const backRms = std::sqrt(b / (static_cast<double>(expected) * 2));
      EXPECT_NEAR(LTestDb(backRms / mixRms), 0.0, f.rate == kRate ? 1.0 : 3.0);
    }
  }
}

// An empty project is an empty file with a valid head; an unknown type fails at
// once with nothing made; a solo export ends with the solo tracks, and one with a
// muted last track before it; and the metronome's setting is what it was.
TEST_F(ExportProjectTest, EmptySoloUnknownAndTheMetronome) {
  {
    std::string const out = (scratch / "empty.wav").string();
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(out, pi), LProcessFinished);
    std::ifstream in(out, std::ios::binary);
    std::vector<char> head((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GE(head.size(), 44u);
    auto le = [&](std::size_t at, int bytes) {
      std::uint32_t v = 0;
      for (int i = bytes - 1; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(head[at + static_cast<std::size_t>(i)]);
      return v;
    };
    EXPECT_EQ(std::string(head.data(), 4), "RIFF");
    EXPECT_EQ(le(4, 4), head.size() - 8);
    EXPECT_EQ(std::string(head.data() + 8, 4), "WAVE");
    ASSERT_EQ(std::string(head.data() + 12, 4), "fmt ");
    EXPECT_EQ(le(20, 2), 1u);      // PCM
    EXPECT_EQ(le(22, 2), 2u);      // stereo
    EXPECT_EQ(le(24, 4), 44100u);
    EXPECT_EQ(le(34, 2), 16u);
    // The format chunk's own size leads to the sound's, which is empty and last.
    std::size_t const data = 20 + le(16, 4);
    ASSERT_EQ(head.size(), data + 8);
    EXPECT_EQ(std::string(head.data() + data, 4), "data");
    EXPECT_EQ(le(data + 4, 4), 0u);
    int rate = 0;
    int channels = 0;
    EXPECT_TRUE(ReadBack(out, rate, channels).empty());
    EXPECT_EQ(rate, kRate);
    EXPECT_EQ(channels, 2);
    EXPECT_TRUE(LTestRunTool("ffprobe -v error \"" + out + "\""));
  }

  // Every other format, too, makes a file with a stream of sound and nothing in it
  // but, for some codecs, a frame of padding. Two readers look: ffprobe (which
  // takes lame's file of nothing but its info frame for broken) and our opener.
  struct Empty {
    char const* ext;
    int rate;
    bool probe;
    bool ours;
  };
  for (Empty const e : {Empty{".aiff", kRate, true, true}, Empty{".au", kRate, true, true},
                        Empty{".flac", kRate, true, true}, Empty{".ogg", kRate, true, true},
                        Empty{".mp3", kRate, false, true}, Empty{".mpc", kRate, true, true},
                        Empty{".spx", 32000, true, true}, Empty{".m4a", kRate, true, true}}) {
    SCOPED_TRACE(e.ext);
    std::string const out = (scratch / (std::string("empty") + e.ext)).string();
    LTestProcessRecorder pi;
    EXPECT_EQ(Export(out, pi), LProcessFinished) << (pi.Errors().empty() ? "" : pi.Errors()[0]);
    ASSERT_TRUE(fs::exists(out));
    if (e.probe) {
      std::string const said = (scratch / "probe.txt").string();
      ASSERT_TRUE(LTestRunTool("ffprobe -v error -select_streams a -show_entries stream=sample_rate -of csv=p=0 -o \"" +
                               said + "\" \"" + out + "\""));
      std::ifstream in(said);
      int probed = 0;
      in >> probed;
      EXPECT_EQ(probed, e.rate);
    }
    if (e.ours) {
      int rate = 0;
      int channels = 0;
      EXPECT_LE(ReadBack(out, rate, channels).size(), 2u * 1152);
      EXPECT_EQ(rate, e.rate);
    }
  }

  std::string const longer = Make("long.wav", 300, 2.0, "-c:a pcm_s16le");
  std::string const shorter = Make("short.wav", 500, 1.0, "-c:a pcm_s16le");
  Place(shorter, 0, 250);
  Place(longer, 1, 1000);
  Place(shorter, 2, 0);
  Project().Tracks.GetTrack(0)->bSolo = true;
  Project().Tracks.GetTrack(2)->bSolo = true;
  Project().Metronome.bMetronomeOn = true;
  LUserSettingSet("Settings", "MetronomeMode", 2);
  {
    std::string const out = (scratch / "solo.wav").string();
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(out, pi), LProcessFinished);
    int rate = 0;
    int channels = 0;
    std::vector<float> const back = ReadBack(out, rate, channels);
    EXPECT_EQ(back.size(), static_cast<std::size_t>(kRate * 5 / 4) * 2);  // 0.25 s and one second
    EXPECT_TRUE(Project().Metronome.bMetronomeOn);
    EXPECT_EQ(LUserSettingGet("Settings", "MetronomeMode", 0), 2);
  }
  // With no track solo the longer clip is heard, and the file is longer too.
  Project().Tracks.GetTrack(0)->bSolo = false;
  Project().Tracks.GetTrack(2)->bSolo = false;
  {
    std::string const out = (scratch / "all.wav").string();
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(out, pi), LProcessFinished);
    int rate = 0;
    int channels = 0;
    EXPECT_EQ(ReadBack(out, rate, channels).size(), static_cast<std::size_t>(kRate * 3) * 2);
  }
  // A muted track is not heard, so its clip, the last, does not lengthen the file.
  Project().Tracks.GetTrack(1)->bMute = true;
  {
    std::string const out = (scratch / "muted.wav").string();
    LTestProcessRecorder pi;
    ASSERT_EQ(Export(out, pi), LProcessFinished);
    int rate = 0;
    int channels = 0;
    EXPECT_EQ(ReadBack(out, rate, channels).size(), static_cast<std::size_t>(kRate * 5 / 4) * 2);
  }
  for (char const* name : {"mix.xyz", "mix", "mix.m3u"}) {
    std::string const out = (scratch / name).string();
    LTestProcessRecorder pi;
    EXPECT_EQ(Export(out, pi), LProcessFailed) << name;
    EXPECT_TRUE(pi.Statuses(0).empty()) << name << ": it went as far as mixing";
    EXPECT_FALSE(fs::exists(out)) << name;
  }
  EXPECT_TRUE(Project().Metronome.bMetronomeOn);
  EXPECT_EQ(LUserSettingGet("Settings", "MetronomeMode", 0), 2);
}

// A stop in the middle and an encoder that dies at once both end the export with
// its message, promptly, with no encoder left running or unreaped.
TEST_F(ExportProjectTest, AStopAndADeadEncoderEndCleanly) {
  std::string const tone = Make("tone.wav", 440, 2.0, "-c:a pcm_s16le");
  Place(tone, 0, 0);
  Place(tone, 1, 30000);  // half a minute of mix: far more than a pipe holds
  ASSERT_TRUE(NoChildLeft());

  for (char const* ext : {".mp3", ".ogg", ".spx"}) {
    SCOPED_TRACE(ext);
    std::string const out = (scratch / (std::string("stopped") + ext)).string();
    LTestProcessRecorder pi;
    int polls = 0;
    pi.onIsToStop = [&] {
      if (++polls == 5) pi.soStop.Set();
    };
    auto const start = std::chrono::steady_clock::now();
    EXPECT_EQ(Export(out, pi), LProcessStopped);
    EXPECT_TRUE(pi.Errors().empty()) << "a stop is no failure: " << pi.Errors()[0];
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_TRUE(NoChildLeft());
  }

  std::string const bin = (scratch / "bin").string();
  fs::create_directories(bin);
  LTestFakePrograms fake(bin, true);
  fake.Add("lame", "exit 1");
  std::string const out = (scratch / "dead.mp3").string();
  LTestProcessRecorder pi;
  auto const start = std::chrono::steady_clock::now();
  EXPECT_EQ(Export(out, pi), LProcessFailed);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  ASSERT_EQ(pi.Errors().size(), 1u);
  EXPECT_EQ(pi.Errors()[0], TDExportFailedText(out));
  EXPECT_TRUE(NoChildLeft());
}

}  // namespace
