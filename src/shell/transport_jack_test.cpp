// The project played through the whole road a user's play takes: the controller's
// commands, the project's mix opener, the engine, RtAudio and a JACK server of the
// test's own (dummy driver), recorded by a JACK client wired to the player's ports.
// What is heard is held against the mix the export makes, at the server's rate;
// times are measured against what was recorded, never against the wall clock.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "project/audio_cut_tank.h"
#include "shell/main_dialog.h"
#include "shell/main_dialog_test_fakes.h"
#include "shell/project_sound_opener.h"
#include "shell/sound_engine_state.h"
#include "shell/user_settings.h"
#include "sound/device/testing_jack.h"
#include "sound/wave_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kServerRate = 48000;
constexpr int kPeriod = 1024;
constexpr char kDevice[] = "tdplay (JACK)";
// A frame is loud above this; the noise clips never stay under it for long.
constexpr float kLoud = 0.01f;
// Frames after a start, a seam or a restart where the rate converter's filter
// still reaches across it.
constexpr int kFilterReach = 64;

int MsToFrames(LSoundTime ms) { return static_cast<int>(std::int64_t{ms} * kServerRate / 1000); }

// What the window would hear of the transport, with how much the recording had
// at each time notification and the tracks' levels due at each level one.
struct Heard : LSoundPlayerNotify {
  struct Tick {
    LSoundTime time;
    int filled;
  };
  LTestJackCapture* capture = nullptr;
  MainDialog* dialog = nullptr;
  std::vector<Tick> ticks;
  int plays = 0, stops = 0;
  int levelNotes = 0, silentAtStop = 0;
  int trackRecords = 0;
  signed char loudestTrack[4] = {-127, -127, -127, -127};
  void spntfPlay(long) override { ++plays; }
  void spntfStop(long) override { ++stops; }
  void spntfTime(LSoundTime t, long) override { ticks.push_back({t, capture ? capture->GetFilled() : 0}); }
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long) override {
    ++levelNotes;
    if (levels.GetChannels() > 0 && levels[0].IsSilence()) ++silentAtStop;
    if (TDTracksDB const* db = dialog->TakeTracksDB()) {
      ++trackRecords;
      for (int t = 0; t < 4; ++t)
        for (int c = 0; c < db->Tracks[t].GetChannels(); ++c)
          loudestTrack[t] = std::max(loudestTrack[t], db->Tracks[t][c].Get());
    }
  }
};

class TransportJack : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.IsUp()) << "no JACK server: is jackd (Debian's jackd2) installed?";
    scratch = fs::path(TANDREL_BINARY_DIR) / "shell-test-scratch" /
              ("jack-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    LUserSettingsStore::Global().UseFile((scratch / "settings.conf").string());
    LAudioCutTank::Instance().Reset();
    ASSERT_TRUE(OpenCapture());
    opener.SetProject(&dialog.GetProject());
    engine.SetPlayDevice(kDevice);
    heard.dialog = &dialog;
    dialog.SetPlayerNotify(&heard);
    dialog.InitDialog();
  }
  void TearDown() override {
    dialog.CmStop();
    dialog.SetPlayerNotify(nullptr);
    LAudioCutTank::Instance().Reset();
  }

  // The recording client, made again after a server came back.
  bool OpenCapture() {
    capture.reset();
    capture = std::make_unique<LTestJackCapture>("tdplay", 2, 20 * kServerRate);
    heard.capture = capture.get();
    return capture->IsActive() && FindPlayDevice(kDevice) > 0;
  }

  TDProject& Project() { return dialog.GetProject(); }

  // Noise of `seconds` at `rate` into a 16-bit WAV: no stretch of it looks like
  // another, so a recording lines up with the mix at one offset only.
  std::string Noise(std::string const& name, int rate, double seconds, unsigned seed) {
    std::string const path = (scratch / name).string();
    int const frames = static_cast<int>(seconds * rate);
    std::vector<float> samples(static_cast<std::size_t>(frames) * 2);
    std::uint32_t x = seed * 2654435761u + 1;
    for (float& v : samples) {
      x = x * 1664525u + 1013904223u;
      v = 0.25f * (static_cast<float>(x >> 8) / 8388608.0f - 1.0f);
    }
    LSoundSink sink = LWaveFile::OpenSinkPCM(path, rate, 2, 16);
    sink->Write(samples.data(), frames);
    sink.Close();
    return path;
  }

  void Place(std::string const& file, int track, LSoundTime at) {
    Project().Tracks.SetCurrentTrackIndex(track);
    dialog.SetCursorPosition(at);
    ASSERT_TRUE(dialog.AddClip(file)) << file << ": " << view.LastAlert();
  }

  // The mix the export makes of the project as it stands, at the server's rate.
  std::vector<float> ExportMix() { return LTestReadAll(Project().OpenSourceForExport(kServerRate, 2, nullptr, false)); }

  static std::vector<float> LTestReadAll(LSoundSource const& s) {
    std::vector<float> out(static_cast<std::size_t>(std::max(0, s->GetEndSample())) * 2);
    for (int done = 0; done < s->GetEndSample();) {
      int const n = std::min(LSoundMaxReadFrames, s->GetEndSample() - done);
      s->Read(out.data() + static_cast<std::size_t>(done) * 2, n);
      done += n;
    }
    return out;
  }

  // The first loud recorded frame from `from` on, or -1.
  int FirstLoud(int from) const {
    int const filled = capture->GetFilled();
    for (int f = std::max(from, 0); f < filled; ++f)
      if (std::fabs(capture->Sample(f, 0)) > kLoud || std::fabs(capture->Sample(f, 1)) > kLoud) return f;
    return -1;
  }
  // Runs the main thread until `frames` have been recorded since the first loud
  // frame from `from` on, which it gives.
  int WaitHeard(int from, int frames, int ms = 15000) {
    int first = -1;
    PumpUntil(
        queue,
        [&] {
          if (first < 0) first = FirstLoud(from);
          return first >= 0 && capture->GetFilled() - first >= frames;
        },
        ms);
    return first;
  }
  void Wait(int ms) { PumpUntil(queue, [] { return false; }, ms); }

  // Which reference frame the recorded frame `first` is: the one near `guess` where
  // a stretch of the recording matches best.
  int Align(int first, std::vector<float> const& ref, int guess) const {
    int best = guess;
    double bestError = 1e30;
    for (int o = guess - 2 * kFilterReach; o <= guess + 2 * kFilterReach; ++o) {
      double e = 0;
      for (int k = kFilterReach; k < kFilterReach + 2048; ++k) {
        std::size_t const at = static_cast<std::size_t>(o + k) * 2;
        if (o + k < 0 || at + 1 >= ref.size()) {
          e = 1e30;
          break;
        }
        double const d0 = capture->Sample(first + k, 0) - ref[at];
        double const d1 = capture->Sample(first + k, 1) - ref[at + 1];
        e += d0 * d0 + d1 * d1;
      }
      if (e < bestError) {
        bestError = e;
        best = o;
      }
    }
    return best;
  }

  // The largest difference between recorded frames [from, to) and the reference
  // frames `refOf` names; frames for which `skip` is true are left out.
  double MaxError(int from, int to, std::vector<float> const& ref, std::function<std::int64_t(int)> const& refOf,
                  std::function<bool(int)> const& skip = nullptr) const {
    double worst = 0;
    for (int r = from; r < to; ++r) {
      if (skip && skip(r)) continue;
      std::int64_t const f = refOf(r);
      for (int c = 0; c < 2; ++c) {
        float const want = f >= 0 && static_cast<std::size_t>(f) * 2 + 1 < ref.size() ? ref[static_cast<std::size_t>(f) * 2 + c] : 0.0f;
        worst = std::max(worst, static_cast<double>(std::fabs(capture->Sample(r, c) - want)));
      }
    }
    return worst;
  }

  // The longest run of silent frames in [from, to): a gap in the sound.
  int LongestSilence(int from, int to) const {
    int longest = 0, run = 0;
    for (int r = from; r < to; ++r) {
      bool const silent = std::fabs(capture->Sample(r, 0)) < 1e-4f && std::fabs(capture->Sample(r, 1)) < 1e-4f;
      run = silent ? run + 1 : 0;
      longest = std::max(longest, run);
    }
    return longest;
  }

  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
  // Periods of 1024 frames: a test machine is busy, and a late cycle loses frames.
  LTestJackServer server{kServerRate, kPeriod};
  std::unique_ptr<LTestJackCapture> capture;
  fs::path scratch;
  Heard heard;
  FakeView view;
  FakeLoop loop;
  TDProjectSoundOpener opener;
  TDEngine transport{opener};
  TDSoundEngineState engine{transport};
  MainDialog dialog{view, loop, engine};
};

TEST_F(TransportJack, TheProjectPlaysAsItExportsAtTheServersRateAndTheTimeFollowsTheSound) {
  // Two tracks at 44100 into a server at 48000, the second quieter and later; the
  // play starts inside the first clip and ends by itself with the second.
  Project().PreferSampleRate.SetPreferSampleRate(44100);
  Place(Noise("a.wav", 44100, 1.2, 1), 0, 0);
  Place(Noise("b.wav", 44100, 1.0, 2), 1, 500);
  dialog.CmTrackSetVolume(1, -6);
  std::vector<float> const ref = ExportMix();
  int const end = static_cast<int>(ref.size() / 2);
  ASSERT_EQ(end, MsToFrames(1500));

  dialog.SetCursorPosition(200);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  ASSERT_TRUE(PumpUntil(queue, [&] { return heard.stops > 0; }, 15000)) << "the play never ended";
  EXPECT_EQ(heard.plays, 1);
  EXPECT_FALSE(dialog.IsPlaying());
  Wait(100);  // a little of what follows the end

  int const first = FirstLoud(before);
  ASSERT_GE(first, 0) << "nothing was heard";
  int const offset = Align(first, ref, MsToFrames(200)) - first;
  EXPECT_NEAR(first + offset, MsToFrames(200), kFilterReach) << "the play began elsewhere";
  // Every frame as the export mixes it. The export converts each clip to 48000 and
  // the player the mix of them: the two agree to the converter's accuracy, but for
  // where its filter reaches across a clip's edge, which the clip's own conversion
  // cannot see past.
  int const last = end - offset;
  ASSERT_LE(last, capture->GetFilled());
  auto const atEdge = [&](int r) {
    for (LSoundTime edge : {200, 500, 1200, 1500})
      if (std::abs(r + offset - MsToFrames(edge)) < kFilterReach) return true;
    return false;
  };
  EXPECT_LT(MaxError(first, last, ref, [&](int r) { return r + offset; }, atEdge), 1e-4);
  // And nothing after the end.
  EXPECT_LT(MaxError(last + kFilterReach, capture->GetFilled(), ref, [](int) { return -1; }), 1e-6);

  // The time shown is the time heard: at each notification what the recording had
  // then, counted from where the play began, within a few periods of the device.
  int compared = 0;
  for (std::size_t i = 0; i < heard.ticks.size(); ++i) {
    if (i > 0) {
      EXPECT_GE(heard.ticks[i].time, heard.ticks[i - 1].time) << "the time went back";
    }
    if (heard.ticks[i].filled <= first || i + 1 == heard.ticks.size()) continue;
    LSoundTime const atRecording =
        LFramesToSoundTime(std::min(heard.ticks[i].filled - first + MsToFrames(200), end), kServerRate);
    EXPECT_NEAR(heard.ticks[i].time, atRecording, 100) << "notification " << i;
    ++compared;
  }
  EXPECT_GT(compared, 20);
  ASSERT_FALSE(heard.ticks.empty());
  EXPECT_EQ(heard.ticks.back().time, 1500);
  // The cursor waits where the play ended; the meters fell at the stop.
  EXPECT_EQ(dialog.GetCursorPosition(), 1500);
  EXPECT_GT(heard.silentAtStop, 0);
  // The tracks' meters came with the sound, and only for tracks that have some.
  EXPECT_GT(heard.trackRecords, 10);
  EXPECT_GT(heard.loudestTrack[0], -30);
  EXPECT_GT(heard.loudestTrack[1], -30);
  EXPECT_LT(heard.loudestTrack[1], heard.loudestTrack[0]);
  EXPECT_EQ(heard.loudestTrack[2], -127);
}

TEST_F(TransportJack, AnEditWhilePlayingTakesOverInPlaceWithoutAGapAndAStopIsQuietAtOnce) {
  Project().PreferSampleRate.SetPreferSampleRate(kServerRate);
  Place(Noise("a.wav", kServerRate, 3.0, 3), 0, 0);
  std::vector<float> const loud = ExportMix();
  dialog.SetCursorPosition(0);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  int const first = WaitHeard(before, MsToFrames(800));
  ASSERT_GE(first, 0) << "nothing was heard";
  int const editAt = capture->GetFilled();
  dialog.CmTrackSetVolume(0, -6);  // restarts the mix where it is
  std::vector<float> const quiet = ExportMix();
  ASSERT_TRUE(dialog.IsPlaying());
  WaitHeard(before, MsToFrames(1600));
  int const stopAt = capture->GetFilled();
  dialog.CmStop();
  int const stopped = capture->GetFilled();
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(heard.stops, 1);
  PumpUntil(queue, [&] { return capture->GetFilled() > stopped + MsToFrames(300); }, 10000);

  int const offset = Align(first, loud, 0) - first;
  EXPECT_NEAR(first + offset, 0, kFilterReach);
  auto const refOf = [&](int r) { return std::int64_t{r} + offset; };
  // Before the edit, the mix as it was, frame for frame.
  EXPECT_LT(MaxError(first, editAt - 2 * kPeriod, loud, refOf), 1e-5);
  // From the edit on, each frame lies between the old mix and the new one at the
  // same place: the new one took over without moving a frame.
  double worst = 0;
  int lastOld = editAt;
  for (int r = editAt - 2 * kPeriod; r < stopAt - 2 * kPeriod; ++r) {
    for (int c = 0; c < 2; ++c) {
      std::size_t const at = static_cast<std::size_t>(r + offset) * 2 + static_cast<std::size_t>(c);
      float const got = capture->Sample(r, c);
      float const lo = std::min(loud[at], quiet[at]), hi = std::max(loud[at], quiet[at]);
      worst = std::max(worst, static_cast<double>(std::max({lo - got, got - hi, 0.0f})));
      if (std::fabs(got - loud[at]) < 1e-5f && std::fabs(loud[at] - quiet[at]) > 0.01f) lastOld = r;
    }
  }
  EXPECT_LT(worst, 1e-4) << "a frame off both mixes: the restart moved the sound";
  // The old mix went on for a short stretch at most, then the new one alone.
  EXPECT_LT(lastOld - editAt, MsToFrames(400));
  EXPECT_LT(MaxError(lastOld + 8192, stopAt - 2 * kPeriod, quiet, refOf), 1e-5);
  // No gap anywhere: noise is never silent for more than a frame or two.
  EXPECT_LT(LongestSilence(first, stopAt - 2 * kPeriod), 4);

  // The stop: silence within two periods of the moment it was asked, and the
  // cursor where the sound was then.
  int lastLoud = stopped;
  while (lastLoud > first && std::fabs(capture->Sample(lastLoud - 1, 0)) < kLoud) --lastLoud;
  EXPECT_GE(lastLoud, stopAt - 2 * kPeriod) << "the sound stopped before the stop";
  EXPECT_LT(MaxError(stopped + 2 * kPeriod, capture->GetFilled(), loud, [](int) { return -1; }), 1e-9)
      << "sound after the stop";
  EXPECT_NEAR(dialog.GetCursorPosition(), LFramesToSoundTime(lastLoud + offset, kServerRate), 60);
}

TEST_F(TransportJack, PlayInsideALoopedRegionNeverEnds) {
  // At 44100 into 48000: the position comes through the rate converter and the loop.
  Project().PreferSampleRate.SetPreferSampleRate(44100);
  Place(Noise("a.wav", 44100, 2.0, 4), 0, 0);
  std::vector<float> const ref = ExportMix();
  Project().WorkRegion.Set(1000, 1500);
  ASSERT_TRUE(dialog.IsLoopPlay());
  dialog.SetCursorPosition(1200);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  // Three turns of the loop and more.
  int const first = WaitHeard(before, MsToFrames(1700));
  ASSERT_GE(first, 0);
  EXPECT_TRUE(dialog.IsPlaying()) << "a looped play ended";
  EXPECT_EQ(heard.stops, 0);
  int const upTo = capture->GetFilled() - 2 * kPeriod;
  dialog.CmStop();

  int const start = Align(first, ref, MsToFrames(1200));
  EXPECT_NEAR(start, MsToFrames(1200), kFilterReach);
  int const loopStart = MsToFrames(1000), loopEnd = MsToFrames(1500), length = loopEnd - loopStart;
  auto const unrolled = [&](int r) { return std::int64_t{start} + (r - first); };
  auto const folded = [&](int r) {
    std::int64_t const u = unrolled(r);
    return u < loopEnd ? u : loopStart + (u - loopEnd) % length;
  };
  // The converter's filter smooths each seam; away from them the frames are the mix's.
  auto const nearSeam = [&](int r) {
    std::int64_t const u = unrolled(r);
    if (r - first < kFilterReach) return true;
    if (u < loopEnd - kFilterReach) return false;
    std::int64_t const into = (u - loopEnd) % length;
    return into < kFilterReach || into > length - kFilterReach;
  };
  EXPECT_LT(MaxError(first, upTo, ref, folded, nearSeam), 2e-3);
  EXPECT_LT(LongestSilence(first, upTo), 4);
  // The time shown stays in the loop.
  int inLoop = 0;
  for (Heard::Tick const& t : heard.ticks) {
    EXPECT_GE(t.time, 1000);
    EXPECT_LE(t.time, 1500);
    inLoop += t.filled > first + loopEnd - start + MsToFrames(100);
  }
  EXPECT_GT(inLoop, 10) << "too few notifications after the first turn";
}

TEST_F(TransportJack, PlayBeforeALoopedRegionRunsInThenLoops) {
  Project().PreferSampleRate.SetPreferSampleRate(kServerRate);
  Place(Noise("a.wav", kServerRate, 2.0, 5), 0, 0);
  std::vector<float> const ref = ExportMix();
  Project().WorkRegion.Set(1000, 1500);
  dialog.SetCursorPosition(600);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  // The run-in of 0.9 s and two turns.
  int const first = WaitHeard(before, MsToFrames(2000));
  ASSERT_GE(first, 0);
  EXPECT_TRUE(dialog.IsPlaying());
  int const upTo = capture->GetFilled() - 2 * kPeriod;
  dialog.CmStop();

  int const start = Align(first, ref, MsToFrames(600));
  EXPECT_EQ(start, MsToFrames(600));
  int const loopStart = MsToFrames(1000), loopEnd = MsToFrames(1500);
  auto const played = [&](int r) {
    std::int64_t const u = std::int64_t{start} + (r - first);
    return u < loopEnd ? u : loopStart + (u - loopEnd) % (loopEnd - loopStart);
  };
  EXPECT_LT(MaxError(first, upTo, ref, played), 1e-5);
  ASSERT_GT(upTo - first, loopEnd - start + (loopEnd - loopStart)) << "not even one turn was heard";
  // The time runs from the start into the loop and stays there.
  bool looped = false;
  for (std::size_t i = 1; i < heard.ticks.size(); ++i) {
    EXPECT_GE(heard.ticks[i].time, 600);
    EXPECT_LE(heard.ticks[i].time, 1500);
    looped = looped || heard.ticks[i].time < heard.ticks[i - 1].time;
  }
  EXPECT_TRUE(looped) << "the time never went round";
}

TEST_F(TransportJack, WithoutLoopTheRegionsEndEndsThePlayAndPastTheEndItStopsAtOnce) {
  Project().PreferSampleRate.SetPreferSampleRate(kServerRate);
  Place(Noise("a.wav", kServerRate, 2.0, 6), 0, 0);
  Project().WorkRegion.Set(500, 1000);
  dialog.CmLoopPlayToggle();
  ASSERT_FALSE(dialog.IsLoopPlay());
  dialog.SetCursorPosition(300);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(PumpUntil(queue, [&] { return heard.stops > 0; }, 15000)) << "the play went past the region";
  Wait(100);
  int const first = FirstLoud(before);
  ASSERT_GE(first, 0);
  int last = capture->GetFilled();
  while (last > first && std::fabs(capture->Sample(last - 1, 0)) < kLoud) --last;
  EXPECT_NEAR(last - first, MsToFrames(700), 16);
  EXPECT_EQ(dialog.GetCursorPosition(), 1000);

  // From past the clips' end there is nothing to play: the stop comes at once and
  // nothing is heard; a play that ended at once leaves the cursor at the start.
  dialog.SetCursorPosition(2500);
  int const again = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(PumpUntil(queue, [&] { return heard.stops > 1; }, 5000));
  EXPECT_FALSE(dialog.IsPlaying());
  Wait(100);
  EXPECT_EQ(FirstLoud(again), -1);
  EXPECT_EQ(dialog.GetCursorPosition(), 0);
  EXPECT_TRUE(view.alerts.empty());
}

TEST_F(TransportJack, AServerThatDiesStopsThePlayWithAMessageAndOneBackPlaysAgain) {
  Project().PreferSampleRate.SetPreferSampleRate(kServerRate);
  Place(Noise("a.wav", kServerRate, 3.0, 7), 0, 0);
  dialog.SetCursorPosition(0);
  int const before = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  ASSERT_GE(WaitHeard(before, MsToFrames(500)), 0);
  // The recording client goes first: jackd's library can neither close a client
  // whose server died nor keep its threads from waking with a new client of the
  // same name on a server of the same name.
  capture.reset();
  heard.capture = nullptr;

  server.Kill(SIGKILL);
  ASSERT_TRUE(PumpUntil(queue, [&] { return !dialog.IsPlaying(); }, 10000)) << "the play waits for a dead server";
  EXPECT_EQ(heard.stops, 1);
  EXPECT_EQ(view.LastAlert(), "Cannot open sound device for playing.");
  // The cursor stays about where the sound stopped, not back at the start.
  EXPECT_GE(dialog.GetCursorPosition(), 300);
  // No server: a play says so and nothing plays.
  view.alerts.clear();
  dialog.CmPlay();
  EXPECT_FALSE(dialog.IsPlaying());
  EXPECT_EQ(view.LastAlert(), "Cannot open sound device for playing.");

  // The server back under its name, and the same device in it: the next play plays.
  ASSERT_TRUE(server.Restart());
  ASSERT_TRUE(OpenCapture());
  view.alerts.clear();
  dialog.SetCursorPosition(0);
  int const back = capture->GetFilled();
  dialog.CmPlay();
  ASSERT_TRUE(dialog.IsPlaying()) << view.LastAlert();
  EXPECT_GE(WaitHeard(back, MsToFrames(300)), 0) << "nothing was heard after the server came back";
  dialog.CmStop();
  EXPECT_TRUE(view.alerts.empty());
}

}  // namespace
