#include "sound/device/sound_player_llca.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "sound/device/testing_devices.h"
#include "sound/region_loop_sources.h"
#include "sound/testing_sources.h"

namespace {

// The device layer alone, driven by hand: the test writes the ring as the pump
// would and pulls buffers as the device would.
class PlayerLLCA : public ::testing::Test {
 protected:
  LTestManualService service;
  LSignalObject fillStarted, fillFinished;
  LSoundPlayerLLCA spll{fillStarted.GetRef(), fillFinished.GetRef()};

  LTestManualStream& Open(LSoundSource source, LSoundPlayDevice device = {}) {
    spll.SetDevice(device);
    EXPECT_TRUE(spll.Init(source, 0, nullptr));
    fillStarted.Set();  // as the pump does after its first block
    EXPECT_TRUE(spll.Start());
    return *LTestManualStream::Last();
  }
  void Fill(int frames) {
    for (int done = 0; done < frames; done += 1000) spll.WriteBuffer(std::min(1000, frames - done));
  }
};

LSoundSource Sine(int rate, int channels, int frames, float amplitude, double hz = 1000.0) {
  return LSoundSource::Make<LTestFunctionSource>(rate, channels, frames, [=](int f, int) {
    return amplitude * static_cast<float>(std::sin(2.0 * std::numbers::pi * hz * f / rate));
  });
}

TEST_F(PlayerLLCA, PlaysTheRingInOrderOnTheChosenOutputs) {
  // Outputs 3 and 1 of a four-output device: the stream spans outputs 1..3 and the
  // left channel lands on its last, the right on its first, the middle stays silent.
  LSoundPlayDevice d;
  d.no = 2;
  d.iOutputChannelLeft = 3;
  d.iOutputChannelRight = 1;
  LTestManualStream& s = Open(MakeRampSource(48000, 2, 100000), d);
  EXPECT_EQ(s.req.iFirstChannel, 1);
  EXPECT_EQ(s.req.nChannels, 3);
  Fill(3000);
  int frame = 0;
  for (int pull : {256, 1500, 7}) {
    std::vector<float> out = s.Pull(pull);
    for (int f = 0; f < pull; ++f, ++frame) {
      ASSERT_EQ(out[3 * f + 2], TestRamp(frame, 0)) << frame;
      ASSERT_EQ(out[3 * f + 0], TestRamp(frame, 1)) << frame;
      ASSERT_EQ(out[3 * f + 1], 0.0f) << frame;
    }
  }
  EXPECT_EQ(spll.GetUnderrunCount(), 0u);
}

TEST_F(PlayerLLCA, ConformsChannelsAndRateToTheDevice) {
  // The quad device runs at 48000 only: a 44100 mono source is spread on the pair
  // and converted; a mono device takes a stereo source mixed down.
  LSoundPlayDevice quad;
  quad.no = 2;
  spll.SetDevice(quad);
  LSoundSource conformed = spll.ConformSource(Sine(44100, 1, 44100, 0.5f));
  EXPECT_EQ(conformed->GetSampleRate(), 48000);
  EXPECT_EQ(conformed->GetChannels(), 2);
  EXPECT_EQ(conformed->GetEndSample(), 48000);
  LSoundPlayDevice mono;
  mono.no = 3;
  spll.SetDevice(mono);
  conformed = spll.ConformSource(Sine(44100, 2, 100, 0.5f));
  EXPECT_EQ(conformed->GetChannels(), 1);
  EXPECT_EQ(conformed->GetSampleRate(), 44100);
  LSoundSource source = Sine(44100, 6, 100, 0.5f);
  ASSERT_TRUE(spll.Init(source, 0, nullptr));
  EXPECT_EQ(LTestManualStream::Last()->req.nChannels, 1);
}

TEST_F(PlayerLLCA, LevelsTickThirtyTimesASecondBeforeTheVolume) {
  LTestManualStream& s = Open(Sine(48000, 2, 480000, 1.0f));
  spll.SetPlayVolumeStandard(LdB<signed char>(-6));
  std::uint64_t const ticks = spll.GetTickCount();
  float peak = 0;
  // One second of 256-frame callbacks, the pump keeping the ring full.
  for (int pulled = 0; pulled < 48000; pulled += 256) {
    Fill(256);
    for (float v : s.Pull(256)) peak = std::max(peak, std::fabs(v));
  }
  EXPECT_NEAR(static_cast<double>(spll.GetTickCount() - ticks), 30.0, 1.0);
  // The meter reads the full-scale sine as 0 dB; the listener gets it 6 dB down.
  LDBMultiChannel<LdB<signed char>> levels = spll.GetLevels();
  ASSERT_EQ(levels.GetChannels(), 2);
  EXPECT_EQ(levels[0].Get(), 0);
  EXPECT_EQ(levels[1].Get(), 0);
  EXPECT_NEAR(peak, 0.501f, 0.01f);
}

TEST_F(PlayerLLCA, LevelsFollowTheSignal) {
  // Mono, spread on the pair; whole periods in each callback, so each reads alike.
  LTestManualStream& s = Open(Sine(48000, 1, 48000, 0.25f, 375.0));
  for (int i = 0; i < 8; ++i) {
    Fill(256);
    s.Pull(256);
  }
  EXPECT_EQ(spll.GetLevels()[0].Get(), -12);  // a quarter of full scale
  // Silence reads -127, not a number near it.
  LTestManualStream& quiet = Open(LSoundSource::Make<LSilenceSourceBase>(48000, 2, 48000));
  for (int i = 0; i < 8; ++i) {
    Fill(256);
    quiet.Pull(256);
  }
  EXPECT_EQ(spll.GetLevels()[0].Get(), -127);
}

TEST_F(PlayerLLCA, AnUnderrunIsSilenceAndTimeGoesOn) {
  LTestManualStream& s = Open(Sine(48000, 2, 48000, 0.5f));
  Fill(1600);
  for (int i = 0; i < 6; ++i) s.Pull(256);  // 1536 of the 1600
  std::uint64_t const ticks = spll.GetTickCount();
  std::vector<float> out = s.Pull(256);  // 64 frames left, then nothing
  EXPECT_NE(out[2 * 63], 0.0f);
  for (std::size_t i = 2 * 64; i < out.size(); ++i) ASSERT_EQ(out[i], 0.0f) << i;
  out = s.Pull(256);
  for (float v : out) ASSERT_EQ(v, 0.0f);
  EXPECT_EQ(spll.GetUnderrunCount(), 2u);
  // A short buffer ticks at once, so the pump hears of it; the level is silence.
  EXPECT_EQ(spll.GetTickCount(), ticks + 2);
  EXPECT_EQ(spll.GetLevels()[0].Get(), -127);
  // Once the pump catches up the sound goes on where it stopped.
  Fill(256);
  out = s.Pull(256);
  float const expected = 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * 1000.0 * 1600 / 48000));
  EXPECT_NEAR(out[0], expected, 1e-6f);
}

TEST_F(PlayerLLCA, PositionIsWhatTheListenerHearsFoldedIntoALoop) {
  LTestManualStream& s = Open(MakeRampSource(48000, 2, 100000));
  Fill(3000);
  s.Pull(1000);
  EXPECT_EQ(spll._GetPositionSample(), 1000);
  EXPECT_EQ(spll.GetLagToPlayCursor(), 2000);
  EXPECT_EQ(spll.GetLagToWriteCursor(), 2000 - 256);
  // A loop of [1000, 2000): the ring holds frames that came after a jump back.
  LSoundSource loop = LSoundSource::Make<LLoopSourceBase>(MakeRampSource(48000, 2, 100000), 1000, 2000);
  LTestManualStream& l = Open(loop);
  loop->Seek(1500);
  ASSERT_TRUE(spll.SetSoundSource(loop));
  Fill(1000);  // 1500..1999, then 1000..1499
  l.Pull(700);
  EXPECT_EQ(spll._GetPositionSample(), 1200);
}

TEST_F(PlayerLLCA, AResyncKeepsAShortStretchAndDropsTheRest) {
  LTestManualStream& s = Open(MakeRampSource(48000, 2, 100000));
  Fill(10000);
  s.Pull(1000);
  int const drop = spll.ResyncStart(true);
  int const keep = std::max(2 * 256, 48000 / 20);
  EXPECT_EQ(drop, 9000 - keep);
  spll.GetSoundSource()->Seek(50000);  // the jump
  spll.ResyncBuffer(true);
  spll.ResyncFinish();
  // The position is the new place at once: the kept stretch does not count.
  EXPECT_EQ(spll._GetPositionSample(), 50000);
  std::vector<float> out = s.Pull(keep + 10);
  EXPECT_EQ(out[0], TestRamp(1000, 0));
  EXPECT_EQ(out[2 * (keep - 1)], TestRamp(1000 + keep - 1, 0));
  EXPECT_EQ(out[2 * keep], TestRamp(50000, 0));
  EXPECT_EQ(spll._GetPositionSample(), 50010);
}

TEST_F(PlayerLLCA, NoDeviceNoPlay) {
  LSoundPlayDeviceList::Install(std::make_shared<LSoundPlayDeviceList const>(LSoundDeviceEntry{},
                                                                            std::vector<LSoundDeviceEntry>{}));
  LSoundSource source = Sine(48000, 2, 100, 0.5f);
  EXPECT_FALSE(spll.Init(source, 0, nullptr));
  LSoundSource bad;
  EXPECT_FALSE(spll.Init(bad, 0, nullptr));
}

TEST_F(PlayerLLCA, ModeOneOpensPaused) {
  LSoundSource source = Sine(48000, 2, 100, 0.5f);
  fillStarted.Reset();
  EXPECT_TRUE(spll.Init(source, 1, nullptr));
  EXPECT_TRUE(spll.Start());  // mode 1: paused, no wait
  EXPECT_TRUE(spll.GetStatus() & LSoundPlayerLLCA::StatusPaused);
  EXPECT_FALSE(LTestManualStream::Last()->bRunning);
}

TEST_F(PlayerLLCA, TheChosenDeviceIsFoundByNameWhenTheListChanges) {
  LSoundPlayDevice d;
  d.no = 2;  // "Quad Out"
  spll.SetDevice(d);
  // The list read again: a device came before it, and index 2 is another now.
  LSoundDeviceEntry const stereo = TestDevice("Stereo Out", 2, 2, 44100, false);
  LSoundPlayDeviceList::Install(std::make_shared<LSoundPlayDeviceList const>(
      stereo, std::vector<LSoundDeviceEntry>{stereo, TestDevice("USB Out", 2, 0, 44100, false),
                                             TestDevice("Quad Out", 4, 0, 48000, true)}));
  LSoundSource source = MakeRampSource(44100, 2, 1000);
  ASSERT_TRUE(spll.Init(source, 0, nullptr));
  EXPECT_EQ(LTestManualStream::Last()->entry.szName, "Quad Out");
  // Its fixed rate still rules what is played.
  EXPECT_EQ(spll.GetSampleRate(), 48000);
  // Gone altogether: the index stands.
  LSoundPlayDeviceList::Install(std::make_shared<LSoundPlayDeviceList const>(
      stereo, std::vector<LSoundDeviceEntry>{stereo, TestDevice("USB Out", 2, 0, 44100, false)}));
  spll.Stop();
  source = MakeRampSource(44100, 2, 1000);
  ASSERT_TRUE(spll.Init(source, 0, nullptr));
  EXPECT_EQ(LTestManualStream::Last()->entry.szName, "USB Out");
}

}  // namespace
