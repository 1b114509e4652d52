// The player and the recorder against a real JACK server with the dummy driver: what
// the player sends is captured by a JACK client of the test's own, frame by frame.
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <new>
#include <numbers>
#include <thread>

// audio_mixer_test.cpp, in the same program, replaces the global operators.
#define LTEST_ALLOCATIONS_COUNTERS_ONLY
#include "foundation/testing_allocations.h"
#include "sound/device/sound_player_llca.h"
#include "sound/device/sound_rec_llca.h"
#include "sound/device/testing_jack.h"
#include "sound/sink_to_source.h"
#include "sound/sound_player.h"
#include "sound/testing_sources.h"


namespace {

using LPlayer = LSoundPlayerTemplate<LSoundPlayerLLCA>;

struct Collector : LSoundPlayerNotify {
  int plays = 0, stops = 0;
  std::vector<LSoundTime> times;
  std::vector<LDBMultiChannel<LdB<signed char>>> levels;
  void spntfPlay(long) override { ++plays; }
  void spntfStop(long) override { ++stops; }
  void spntfTime(LSoundTime t, long) override { times.push_back(t); }
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& l, long) override { levels.push_back(l); }
};

constexpr int kRate = 48000;
// Frames of silence before the signal: the player's ports are wired to the capture
// as its stream starts, and on a busy machine that can take a while.
constexpr int kLeadIn = kRate / 2;

float Marker(int frame, int channel) {
  // Distinct, exact in float, never zero: 1 .. 2^20 and its negative.
  return static_cast<float>((frame % 1048576) + 1) * (channel ? -1.0f : 1.0f);
}

class JackDevices : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.IsUp()) << "no JACK server: is jackd (Debian's jackd2) installed?";
    capture = std::make_unique<LTestJackCapture>("tdcap", 2, 10 * kRate);
    ASSERT_TRUE(capture->IsActive());
    device.no = FindPlayDevice("tdcap (JACK)");
    ASSERT_GT(device.no, 0) << "the capture client is not a device";
    player.SetNotify(&notify, 7);
    player.GetDeviceLayer().SetDevice(device);
  }
  void TearDown() override { player.Stop(); }

  ::testing::AssertionResult StartPlayer(LSoundSource const& source) {
    if (player.Start(source)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the player did not start, error " << player.GetDeviceLayer().GetError();
  }

  // The captured frames from the first that is not silent.
  std::vector<float> Heard() {
    std::vector<float> all = capture->Frames();
    std::size_t first = 0;
    while (first < all.size() && all[first] == 0.0f) ++first;
    first -= first % 2;
    return std::vector<float>(all.begin() + static_cast<std::ptrdiff_t>(first), all.end());
  }

  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
  // Periods of 1024 frames: a test machine is busy, and a late cycle loses frames.
  LTestJackServer server{kRate, 1024};
  std::unique_ptr<LTestJackCapture> capture;
  LSoundPlayDevice device;
  Collector notify;
  LPlayer player;
};

TEST_F(JackDevices, APlayedSourceArrivesCompleteAndInOrderAndTheCallbackAllocatesNothing) {
  int const frames = kRate;  // one second
  LSoundSource source = LSoundSource::Make<LTestFunctionSource>(
      kRate, 2, kLeadIn + frames, [](int f, int c) { return f < kLeadIn ? 0.0f : Marker(f - kLeadIn, c); });
  ASSERT_TRUE(StartPlayer(source));
  EXPECT_EQ(notify.plays, 1);
  ASSERT_TRUE(PumpUntil(queue, [&] { return player.GetDeviceLayer().GetRenderThreadId() > 0; }, 2000));
  LTestAllocations::gWatchedTid = player.GetDeviceLayer().GetRenderThreadId();
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 0; }, 5000)) << "the end never came";
  LTestAllocations::gWatchedTid = -1;
  EXPECT_EQ(LTestAllocations::gWatchedCount.load(), 0) << "the render callback allocated";

  std::vector<float> const heard = Heard();
  ASSERT_GE(heard.size(), 2u * frames);
  for (int f = 0; f < frames; ++f) {
    ASSERT_EQ(heard[2 * f], Marker(f, 0)) << "frame " << f << ", server xruns " << capture->GetXruns();
    ASSERT_EQ(heard[2 * f + 1], Marker(f, 1)) << "frame " << f;
  }
  for (std::size_t i = 2u * frames; i < heard.size(); ++i) ASSERT_EQ(heard[i], 0.0f) << "after the end";
  // The time went forward and ended on the source's end.
  ASSERT_FALSE(notify.times.empty());
  for (std::size_t i = 1; i < notify.times.size(); ++i) EXPECT_GE(notify.times[i], notify.times[i - 1]);
  EXPECT_EQ(notify.times.back(), LFramesToSoundTime(kLeadIn + frames, kRate));
  EXPECT_FALSE(player.IsPlaying());
}

TEST_F(JackDevices, ASourceAtAnotherRateIsConvertedToTheServers) {
  // 44100 Hz into a server that runs at 48000: a second of 1 kHz must last a second
  // and stay at 1 kHz.
  int const rate = 44100;
  LSoundSource source = LSoundSource::Make<LTestFunctionSource>(rate, 1, rate + 4410, [](int f, int) {
    return f < 4410 ? 0.0f : 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 1000.0 * (f - 4410) / 44100));
  });
  ASSERT_TRUE(StartPlayer(source));
  EXPECT_EQ(player.GetSampleRate(), kRate);
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 0; }, 5000));
  std::vector<float> const heard = Heard();
  std::size_t last = heard.size();
  while (last > 0 && std::fabs(heard[last - 1]) < 1e-3f) --last;
  int const length = static_cast<int>(last / 2);
  EXPECT_NEAR(length, kRate, 60);
  // The frequency away from the ends, where the filter rings on the onset.
  int crossings = 0;
  float peak = 0;
  int const from = 480, to = length - 480;
  for (int f = from; f < to; ++f) {
    if ((heard[2 * f - 2] < 0) != (heard[2 * f] < 0)) ++crossings;
    peak = std::max(peak, std::fabs(heard[2 * f]));
    ASSERT_EQ(heard[2 * f], heard[2 * f + 1]);  // mono on both outputs
  }
  EXPECT_NEAR(crossings / 2.0 * kRate / (to - from), 1000.0, 3.0);
  EXPECT_NEAR(peak, 0.5f, 0.01f);
}

TEST_F(JackDevices, LevelsTickThirtyTimesASecond) {
  // Two seconds of a sine at half of full scale: -6 dB.
  LSoundSource source = LSoundSource::Make<LTestFunctionSource>(kRate, 2, 2 * kRate, [](int f, int) {
    return 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 375.0 * f / kRate));
  });
  ASSERT_TRUE(StartPlayer(source));
  auto const start = std::chrono::steady_clock::now();
  std::uint64_t const ticks0 = player.GetDeviceLayer().GetTickCount();
  ASSERT_TRUE(PumpUntil(queue, [&] { return player.GetDeviceLayer().GetTickCount() - ticks0 >= 45; }, 5000));
  double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  double const rate = static_cast<double>(player.GetDeviceLayer().GetTickCount() - ticks0) / seconds;
  EXPECT_NEAR(rate, 30.0, 4.0);
  ASSERT_FALSE(notify.levels.empty());
  LDBMultiChannel<LdB<signed char>> const& l = notify.levels.back();
  ASSERT_EQ(l.GetChannels(), 2);
  EXPECT_EQ(l[0].Get(), -6);
  EXPECT_EQ(l[1].Get(), -6);
}

// A source still being written: its end is what has come so far, and it says it
// streams until told that all has come.
class StreamingMarkers : public LSoundSourceBase {
 public:
  StreamingMarkers() : LSoundSourceBase(kRate, 2, LSoundPeakInRange) {}
  void Read(float* buffer, int frames) override {
    for (int f = 0; f < frames; ++f, ++sPosition) {
      bool const there = sPosition < iAvailable.load();
      *buffer++ = there ? Marker(sPosition, 0) : 0.0f;
      *buffer++ = there ? Marker(sPosition, 1) : 0.0f;
    }
  }
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return iAvailable.load(); }
  bool IsStreaming() const override { return bStreaming.load(); }
  void WaitForStreamingData(int ms) override { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

  int sPosition = 0;
  std::atomic<int> iAvailable{0};
  std::atomic<bool> bStreaming{true};
};

TEST_F(JackDevices, AnUnderrunIsSilenceAndThePlayGoesOnAfterIt) {
  // A third of a second now, the rest after a pause longer than the ring holds. The
  // device plays silence in between, then the rest, in order, nothing lost or
  // played twice.
  auto* stream = new StreamingMarkers;
  LSoundSource source(stream);
  stream->iAvailable = 16000;
  ASSERT_TRUE(StartPlayer(source));
  std::uint64_t const underruns = player.GetDeviceLayer().GetUnderrunCount();
  PumpUntil(queue, [] { return false; }, 800);
  EXPECT_GT(player.GetDeviceLayer().GetUnderrunCount(), underruns);
  ASSERT_FALSE(notify.levels.empty());
  EXPECT_EQ(notify.levels.back()[0].Get(), -127);
  EXPECT_TRUE(player.IsPlaying()) << "an underrun is no reason to stop";
  int const written = 32000;
  stream->iAvailable = written;
  stream->bStreaming = false;
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 0; }, 5000));

  std::vector<float> const heard = Heard();
  int next = 0, silent = 0;
  for (std::size_t i = 0; i + 1 < heard.size(); i += 2) {
    if (heard[i] == 0.0f && heard[i + 1] == 0.0f) {
      ++silent;
      continue;
    }
    ASSERT_EQ(heard[i], Marker(next, 0)) << "frame " << next << ", server xruns " << capture->GetXruns();
    ASSERT_EQ(heard[i + 1], Marker(next, 1)) << "frame " << next;
    ++next;
  }
  EXPECT_EQ(next, written);
  EXPECT_GT(silent, kRate / 4);
}

TEST_F(JackDevices, ARestartCrossFadesWithoutAClickAndKeepsThePosition) {
  // A sine; a restart with the same sine must go on to the frame, as though nothing
  // happened; a restart with another sine and a jump must fade, never step.
  auto sine = [](float amplitude, double hz) {
    return [=](int f, int) {
      return f < kLeadIn ? 0.0f
                         : amplitude * static_cast<float>(std::sin(2.0 * std::numbers::pi * hz * (f - kLeadIn) / kRate));
    };
  };
  int const length = 4 * kRate;
  ASSERT_TRUE(StartPlayer(LSoundSource::Make<LTestFunctionSource>(kRate, 2, length, sine(0.5f, 440.0))));
  PumpUntil(queue, [] { return false; }, 1000);
  int const before = player.GetPositionSample();
  ASSERT_TRUE(player.ReplaceSource(LSoundSource::Make<LTestFunctionSource>(kRate, 2, length, sine(0.5f, 440.0))));
  int const after = player.GetPositionSample();
  EXPECT_LE(after - before, kRate / 50) << "the restart moved the position";
  PumpUntil(queue, [] { return false; }, 400);
  ASSERT_TRUE(player.JumpTo(LSoundSource::Make<LTestFunctionSource>(kRate, 2, length, sine(0.25f, 660.0)), 3000));
  EXPECT_NEAR(player.GetPositionTime(), 3000, 2);
  PumpUntil(queue, [] { return false; }, 400);
  player.Stop();
  EXPECT_EQ(notify.stops, 1);

  std::vector<float> const heard = Heard();
  std::size_t end = heard.size();
  while (end > 0 && heard[end - 1] == 0.0f) --end;
  // Up to the jump, exactly the one sine: the restart lost and doubled nothing.
  // The first frame heard is the sine's second: its first is 0.
  int exact = 0;
  for (std::size_t i = 0; i < end; i += 2, ++exact) {
    float const want = sine(0.5f, 440.0)(kLeadIn + 1 + exact, 0);
    if (std::fabs(heard[i] - want) > 1e-5f) break;
  }
  // The restart came half a second into the sine, the jump nearly a second.
  EXPECT_GT(exact, kRate * 7 / 10) << "the same source after a restart went off the sine";
  // Nowhere a step larger than the steepest of the sines allows, fade included;
  // the stop at the end cuts and is not looked at.
  double const steepest = 2.0 * std::numbers::pi * 660.0 / kRate * 0.5 + 2e-3;
  for (std::size_t i = 2; i + 4096 < end; i += 2)
    ASSERT_LE(std::fabs(heard[i] - heard[i - 2]), steepest) << "a click at frame " << i / 2;
}

TEST_F(JackDevices, AStreamTheServerDropsStopsThePlayerAsALostDevice) {
  // A period changed under a running stream: RtAudio reports it to its error
  // callback and the stream never calls back again. The player must not wait for
  // ever with a full ring: the stop reaches the main thread, as a lost device.
  LSoundSource source = LSoundSource::Make<LTestFunctionSource>(kRate, 2, 20 * kRate, Marker);
  ASSERT_TRUE(StartPlayer(source));
  ASSERT_TRUE(PumpUntil(queue, [&] { return capture->GetFilled() > kRate / 2; }, 5000));
  ASSERT_TRUE(capture->SetServerPeriod(2048));
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 0; }, 8000)) << "the player still waits";
  EXPECT_FALSE(player.IsPlaying());
  EXPECT_TRUE(player.IsDeviceLost());
  EXPECT_EQ(player.GetDeviceLayer().GetError(), LSoundPlayerLLCA::ErrorDeviceLost);

  // The device is still there: the next play opens it anew and plays to the end,
  // and that stop is no loss.
  int const before = capture->GetFilled();
  ASSERT_TRUE(StartPlayer(LSoundSource::Make<LTestFunctionSource>(kRate, 2, kRate / 2, Marker)));
  EXPECT_FALSE(player.IsDeviceLost());
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 1; }, 8000));
  EXPECT_FALSE(player.IsDeviceLost());
  EXPECT_GT(capture->GetFilled() - before, kRate / 2);
}

TEST_F(JackDevices, TheInputSideRecordsWhatThePlayerSends) {
  // The player's own JACK client is a device to record from: its outputs loop back
  // into the input side, through the ring of 20 ms buffers, into a sink.
  // A second of silence first: the recorder opens while it plays.
  int const frames = kRate / 2;
  LSoundSource source = LSoundSource::Make<LTestFunctionSource>(
      kRate, 2, kRate + frames, [](int f, int c) { return f < kRate ? 0.0f : Marker(f - kRate, c); });
  ASSERT_TRUE(StartPlayer(source));
  LSoundRecordDevice in;
  in.no = -1;
  for (int tries = 0; tries < 20 && in.no < 0; ++tries) {
    LSoundRecordDeviceList::Refresh();
    in.no = LSoundRecordDeviceList::Get()->FindByName("Tandrel (JACK)");
    if (in.no < 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_GT(in.no, 0) << "the player's client is not an input device";

  struct RecorderThread : LThread {
    LSoundRecLLCA rec;
    void ThreadFunction() override {
      while (rec.ProcessBuffer(1000) >= 0) {
      }
    }
    ~RecorderThread() override { StopThreadNow(); }
  } recorder;
  auto* memory = new LTestMemorySink(kRate, 2);
  LSoundSink sink(memory);
  recorder.rec.SetDevice(in);
  ASSERT_TRUE(recorder.rec.Open(sink, &recorder));
  EXPECT_EQ(recorder.rec.GetBufferFrames(), 960);
  EXPECT_EQ(recorder.rec.GetBufferCount(), 200);
  ASSERT_TRUE(recorder.Start());
  ASSERT_TRUE(recorder.rec.Start());
  ASSERT_TRUE(PumpUntil(queue, [&] { return notify.stops > 0; }, 5000));
  recorder.rec.Stop();
  recorder.StopThreadNow();
  recorder.rec.Flush();
  EXPECT_GT(recorder.rec.GetFirstCallbackTick(), 0);
  EXPECT_EQ(recorder.rec.GetOverrunCount(), 0u);

  std::vector<float> const& got = memory->data;
  std::size_t first = 0;
  while (first < got.size() && got[first] == 0.0f) ++first;
  ASSERT_LT(first + 2u * frames, got.size() + 1) << "the recording missed the signal";
  for (int f = 0; f < frames; ++f) {
    ASSERT_EQ(got[first + 2 * f], Marker(f, 0)) << "frame " << f;
    ASSERT_EQ(got[first + 2 * f + 1], Marker(f, 1)) << "frame " << f;
  }
}

}  // namespace
