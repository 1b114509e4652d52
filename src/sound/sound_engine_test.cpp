// The transport over a real JACK server (dummy driver), with a source opener of the
// test's own standing in for the project's mix.
#include "sound/sound_engine.h"

#include <gtest/gtest.h>

#include "sound/device/testing_jack.h"
#include "sound/testing_sources.h"

namespace {

constexpr int kRate = 48000;

// Every sample says its frame: frame + 1 on the left, its negative on the right.
float FrameValue(int frame, int channel) { return static_cast<float>(frame + 1) * (channel ? -1.0f : 1.0f); }

struct Opener : TDSoundSourceOpener {
  int frames = 4 * kRate;
  int opened = 0;
  bool scrubbing = false;
  bool fail = false;  // nothing to play
  LSoundSource OpenProjectSource(LSoundTime, bool scrub) override {
    ++opened;
    scrubbing = scrub;
    if (fail) return LSoundSource();
    return LSoundSource::Make<LTestFunctionSource>(kRate, 2, frames, FrameValue);
  }
};

struct Upward : LSoundPlayerNotify {
  int plays = 0, stops = 0;
  std::vector<LSoundTime> times;
  void spntfPlay(long) override { ++plays; }
  void spntfStop(long) override { ++stops; }
  void spntfTime(LSoundTime t, long) override { times.push_back(t); }
};

class Engine : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.IsUp()) << "no JACK server: is jackd (Debian's jackd2) installed?";
    ASSERT_TRUE(capture.IsActive());
    LSoundPlayDevice device;
    device.no = FindPlayDevice("tdeng (JACK)");
    ASSERT_GT(device.no, 0);
    engine.UpdateSoundPlayDevice(device);
    engine.SetPlayerNotify(&upward);
  }
  void Wait(int ms) { PumpUntil(queue, [] { return false; }, ms); }

  // The frame numbers heard, from the first frame that is not silent.
  std::vector<int> HeardFrames() {
    std::vector<float> const all = capture.Frames();
    std::vector<int> frames;
    for (std::size_t i = 0; i + 1 < all.size(); i += 2)
      if (all[i] != 0.0f) frames.push_back(static_cast<int>(all[i]) - 1);
    return frames;
  }

  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
  LTestJackServer server{kRate, 1024};
  LTestJackCapture capture{"tdeng", 2, 12 * kRate};
  Opener opener;
  Upward upward;
  TDEngine engine{opener};
};

TEST_F(Engine, PlaysFromATimeRestartsInPlaceAndJumps) {
  ASSERT_TRUE(engine.Play(1000));
  EXPECT_TRUE(engine.IsPlaying());
  EXPECT_FALSE(engine.IsStopped());
  EXPECT_EQ(upward.plays, 1);
  EXPECT_GE(engine.GetSoundEngine().GetCurrentPlayingTime(), 1000);
  Wait(1000);
  LSoundTime const before = engine.GetSoundEngine().GetCurrentPlayingTime();
  ASSERT_TRUE(engine.Restart());  // an edit: same place
  EXPECT_NEAR(engine.GetSoundEngine().GetCurrentPlayingTime(), before, 30);
  Wait(300);
  ASSERT_TRUE(engine.Restart(500));  // a jump back
  EXPECT_NEAR(engine.GetSoundEngine().GetCurrentPlayingTime(), 500, 5);
  Wait(300);
  LSoundTime const heardAt = engine.GetPosition();
  engine.Stop();
  EXPECT_EQ(upward.stops, 1);
  EXPECT_TRUE(engine.IsStopped());
  EXPECT_FALSE(engine.IsDeviceLost());
  // A stop by hand leaves the cursor where the sound was, not at the last tick.
  EXPECT_GE(engine.GetStopPosition(), heardAt);
  EXPECT_LE(engine.GetStopPosition(), heardAt + 20);
  EXPECT_EQ(engine.GetPosition(), engine.GetStopPosition());
  EXPECT_EQ(opener.opened, 3);

  // What was heard: from 1 s on, the same frames again after the restart, then the
  // jump back to 0.5 s, never a frame skipped or doubled in between.
  std::vector<int> const heard = HeardFrames();
  ASSERT_FALSE(heard.empty());
  EXPECT_GE(heard.front(), kRate) << "play began at 1 s";
  EXPECT_LT(heard.front(), kRate + kRate / 5) << "play began at 1 s";
  std::size_t i = 1;
  while (i < heard.size() && heard[i] == heard[i - 1] + 1) ++i;
  ASSERT_LT(i, heard.size()) << "the jump was not heard";
  EXPECT_GT(heard[i - 1], kRate + kRate) << "the restart in place broke the run";
  // The jump fades in over a block: the first frame after the kept stretch is a mix.
  bool reached = false;  // frames of 0.5 s and on
  for (std::size_t k = i; k < heard.size() && !reached; ++k) reached = heard[k] >= kRate / 2 + 1600 && heard[k] < kRate;
  EXPECT_TRUE(reached) << "the jump to 0.5 s never played";
}

TEST_F(Engine, APlayOverAPlayIsOnePlayForTheOwner) {
  ASSERT_TRUE(engine.Play(0));
  Wait(200);
  // Playing from elsewhere while playing: the owner hears of no stop in between.
  ASSERT_TRUE(engine.Play(2000));
  EXPECT_EQ(upward.stops, 0);
  EXPECT_TRUE(engine.IsPlaying());
  EXPECT_GE(engine.GetPosition(), 2000);
  // One that cannot start after one that played: the owner hears the stop.
  opener.frames = 0;
  opener.fail = true;
  EXPECT_FALSE(engine.Play(0));
  EXPECT_EQ(upward.stops, 1);
  EXPECT_FALSE(engine.IsPlaying());
}

TEST_F(Engine, APlayThatEndsAtOnceSendsTheCursorHome) {
  opener.frames = kRate / 10;  // a tenth of a second
  ASSERT_TRUE(engine.Play(0));
  ASSERT_TRUE(PumpUntil(queue, [&] { return upward.stops > 0; }, 20000));
  EXPECT_EQ(engine.GetStopPosition(), 0);
  EXPECT_FALSE(engine.IsPlaying());
  // Play past the end: nothing to hear, the stop comes at once, the cursor goes home.
  opener.frames = kRate;
  ASSERT_TRUE(engine.Play(5000));
  ASSERT_TRUE(PumpUntil(queue, [&] { return upward.stops > 1; }, 20000));
  EXPECT_EQ(engine.GetStopPosition(), 0);
  // A play of a second that ends by itself leaves the cursor at the end.
  ASSERT_TRUE(engine.Play(0));
  ASSERT_TRUE(PumpUntil(queue, [&] { return upward.stops > 2; }, 20000));
  EXPECT_EQ(engine.GetStopPosition(), 1000);
  ASSERT_FALSE(upward.times.empty());
  EXPECT_EQ(upward.times.back(), 1000);
  // A jump to just before the end: the play was moved, not empty, and the cursor
  // stays at the end.
  ASSERT_TRUE(engine.Play(0));
  ASSERT_TRUE(engine.Restart(950));
  ASSERT_TRUE(PumpUntil(queue, [&] { return upward.stops > 3; }, 20000));
  EXPECT_EQ(engine.GetStopPosition(), 1000);
}

TEST_F(Engine, ScrubRepeatsTheSpotUnderTheCursor) {
  ASSERT_TRUE(engine.Scrub(1000));
  EXPECT_TRUE(engine.IsScrubbing());
  EXPECT_FALSE(engine.IsPlaying());
  EXPECT_TRUE(opener.scrubbing);
  Wait(600);
  std::size_t const firstPart = HeardFrames().size();
  engine.SetScrubPoint(3000);
  Wait(600);
  // The time shown is the scrub point, not the window's turns.
  ASSERT_FALSE(upward.times.empty());
  EXPECT_EQ(upward.times.back(), 3000);
  engine.StopScrub();
  EXPECT_FALSE(engine.IsScrubbing());

  std::vector<int> const heard = HeardFrames();
  ASSERT_GT(firstPart, static_cast<std::size_t>(kRate / 4));
  // A window of a tenth of a second around each point, and nothing else; the
  // frame values of a fade lie between those of the window's ends.
  int const half = kRate / 20;
  int inFirst = 0, inSecond = 0;
  for (std::size_t k = 0; k < heard.size(); ++k) {
    int const f = heard[k];
    bool const first = f >= kRate - half && f <= kRate + half;
    bool const second = f >= 3 * kRate - half && f <= 3 * kRate + half;
    ASSERT_TRUE(first || second) << "frame " << f << " heard while scrubbing";
    inFirst += first;
    inSecond += second;
  }
  EXPECT_GT(inFirst, kRate / 4);
  EXPECT_GT(inSecond, kRate / 4);
}

}  // namespace
