#include "sound/device/sound_devices.h"

#include <gtest/gtest.h>

#include "sound/device/asio_map_data.h"
#include "sound/device/ca_ring_buffer.h"
#include "sound/device/testing_devices.h"

namespace {

TEST(SoundDevices, OutputPairClashMovesTheSecondDown) {
  struct Case {
    int outputs, left, right, wantLeft, wantRight;
  };
  Case const cases[] = {
      {2, 0, 1, 0, 1},  // as chosen
      {4, 2, 3, 2, 3},  // another pair
      {4, 3, 0, 3, 0},  // any order
      {4, 2, 2, 2, 1},  // clash: the second goes to the output before
      {4, 0, 0, 0, 1},  // clash on output 0: the second goes to output 1
      {2, 5, 1, 0, 1},  // past the device: back to its first output
      {2, 1, 7, 1, 0},  // second past the device, first on 1
      {1, 0, 1, 0, 0},  // one output: both on it, the source is mono there
  };
  for (Case const& c : cases) {
    int left = c.left, right = c.right;
    LSoundResolveOutputPair(c.outputs, left, right);
    EXPECT_EQ(left, c.wantLeft) << c.outputs << " outputs, " << c.left << "/" << c.right;
    EXPECT_EQ(right, c.wantRight) << c.outputs << " outputs, " << c.left << "/" << c.right;
  }
}

TEST(SoundDevices, ChannelsMapToOutputs) {
  LSoundPlayDevice d;
  d.iOutputChannelLeft = 3;
  d.iOutputChannelRight = 2;
  EXPECT_EQ(LSoundMapChannelsToOutputs(2, 4, d), (std::vector<int>{3, 2}));
  EXPECT_EQ(LSoundMapChannelsToOutputs(1, 4, d), (std::vector<int>{3}));
  // Surround: channel i to output i, or by the speaker map; outputs past the device
  // are not played rather than played somewhere wrong.
  EXPECT_EQ(LSoundMapChannelsToOutputs(6, 8, d), (std::vector<int>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(LSoundMapChannelsToOutputs(6, 4, d), (std::vector<int>{0, 1, 2, 3, -1, -1}));
  LASIOMapData map;
  map.iNumberSpeakers = 6;
  map.SetSpeakerOutput(0, 5);
  map.SetSpeakerOutput(5, 0);
  map.SetSpeakerOutput(3, -7);
  std::vector<int> const outputs = map.GetOutputs();
  EXPECT_EQ(LSoundMapChannelsToOutputs(6, 8, d, &outputs), (std::vector<int>{5, 1, 2, -1, 4, 0}));
}

TEST(SoundDevices, SpeakerMapSurvivesItsText) {
  LASIOMapData map;
  map.SetSpeakerOutput(0, 7);
  map.SetSpeakerOutput(4, -1);
  LASIOMapData back;
  ASSERT_TRUE(back.FromText(map.ToText()));
  for (int i = 0; i < LASIOMapData::MaxSpeakers; ++i) EXPECT_EQ(back.GetSpeakerOutput(i), map.GetSpeakerOutput(i));
  // Damaged text changes nothing.
  for (char const* bad : {"", "1,,2", "1,x", "3,", "-5", "1 2"}) {
    EXPECT_FALSE(back.FromText(bad)) << bad;
    EXPECT_EQ(back.GetSpeakerOutput(0), 7) << bad;
  }
  back.ResetMapping();
  EXPECT_EQ(back.GetSpeakerOutput(0), 0);
  EXPECT_EQ(back.GetSpeakerOutput(29), 29);
  EXPECT_EQ(back.GetSpeakerOutput(30), -1);
}

TEST(SoundDevices, DeviceRateForASource) {
  LSoundDeviceEntry jack = TestDevice("system", 2, 2, 48000, true);
  EXPECT_EQ(LSoundDeviceRateFor(jack, 44100), 48000);  // a JACK server has one rate
  LSoundDeviceEntry any = TestDevice("pulse", 2, 2, 44100, false);
  EXPECT_EQ(LSoundDeviceRateFor(any, 22050), 22050);
  LSoundDeviceEntry card = TestDevice("card", 2, 2, 0, false);
  card.rates = {44100, 48000, 96000};
  EXPECT_EQ(LSoundDeviceRateFor(card, 48000), 48000);
  EXPECT_EQ(LSoundDeviceRateFor(card, 88200), 96000);   // the nearest above
  EXPECT_EQ(LSoundDeviceRateFor(card, 192000), 96000);  // else the highest
  card.iPreferredRate = 44100;
  EXPECT_EQ(LSoundDeviceRateFor(card, 32000), 44100);   // else what it prefers
}

TEST(SoundDevices, SettingsNameDevicesByName) {
  LSoundDeviceEntry const jack = TestDevice("system (JACK)", 2, 2, 48000, true);
  LSoundPlayDeviceList list(jack, {jack, TestDevice("HDA Intel PCH (ALSA)", 8, 2, 0, false)});
  ASSERT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.GetName(0), "Default Playback Device");
  EXPECT_EQ(list.GetEntry(0).szServiceName, "system (JACK)");  // the default stands for a real device
  EXPECT_EQ(list.GetChannels(2), 8);

  EXPECT_EQ(list.IndexFromSetting("[Default Sound Out]"), 0);
  EXPECT_EQ(list.IndexFromSetting(""), 0);
  EXPECT_EQ(list.IndexFromSetting("HDA Intel PCH (ALSA)"), 2);
  EXPECT_EQ(list.IndexFromSetting("  hda intel pch (alsa) "), 2);  // typed by hand
  EXPECT_EQ(list.IndexFromSetting("USB Headset (ALSA)"), 0);       // unplugged: the default
  EXPECT_EQ(list.FindByName("USB Headset (ALSA)"), -1);
  EXPECT_EQ(list.SettingFromIndex(0), "[Default Sound Out]");
  EXPECT_EQ(list.SettingFromIndex(2), "HDA Intel PCH (ALSA)");
  EXPECT_EQ(list.SettingFromIndex(9), "[Default Sound Out]");
  // Out of range is the default, never a crash.
  EXPECT_EQ(list.GetName(-1), "Default Playback Device");

  // An exact name wins over one that only matches without case.
  LSoundPlayDeviceList twins(jack, {TestDevice("Out", 2, 0, 0, false), TestDevice("OUT", 2, 0, 0, false)});
  EXPECT_EQ(twins.FindByName("OUT"), 2);
}

TEST(SoundDevices, NoServiceGivesADefaultThatCannotOpen) {
  LSoundPlayDeviceList list(LSoundDeviceEntry{}, {});
  EXPECT_EQ(list.GetCount(), 1);
  EXPECT_EQ(list.GetEntry(0).iApi, LSoundServiceNone);
}

TEST(CARingBuffer, KeepsOrderAcrossTheWrapAndFillsToItsHalf) {
  LCARingBuffer ring(64, 8);  // 32 frames of stereo, half point 16
  ring.Configure(2);
  EXPECT_EQ(ring.GetHalfPointFrames(), 16u);
  std::vector<float> in(2 * 16), out(2 * 16);
  float next = 0, expect = 0;
  for (int round = 0; round < 10; ++round) {
    ASSERT_TRUE(ring.IsNextBufferReady());
    std::uint32_t const n = round % 2 ? 5 : 11;
    for (std::uint32_t i = 0; i < 2 * n; ++i) in[i] = next++;
    ring.Write(in.data(), n);
    EXPECT_EQ(ring.GetFilledFrames(), n);
    ring.Read(out.data(), n);
    for (std::uint32_t i = 0; i < 2 * n; ++i) ASSERT_EQ(out[i], expect++) << "round " << round;
  }
  ring.Write(in.data(), 9);
  EXPECT_EQ(ring.GetRoomFrames(), 7u);
  EXPECT_FALSE(ring.IsNextBufferReady());  // a block of 8 would pass the half point
  ring.DropNewest(4);
  EXPECT_EQ(ring.GetFilledFrames(), 5u);
  ring.Read(out.data(), 5);
  EXPECT_EQ(out[0], in[0]);  // the oldest stay
  ring.Reset();
  EXPECT_EQ(ring.GetFilledFrames(), 0u);
}

}  // namespace
