#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "project/bookmark.h"
#include "project/identity.h"
#include "project/panned_volume.h"
#include "project/track.h"

TEST(TDTrack, NewTrackTakesPreferenceAndDeviceDefaults) {
  TDTrack plain;
  EXPECT_EQ(plain.GetName(), "Untitled Track");
  EXPECT_EQ(plain.Colour, (TDRGB16{0x3A00, 0x5100, 0x5800}));
  EXPECT_EQ(plain.byRecordChannels[0], 2);
  EXPECT_EQ(plain.byRecordChannels[1], 1);
  EXPECT_EQ(plain.RecordDevice, (TDTrackRecordDevice{0, 0, 1}));
  EXPECT_EQ(plain.uTrackId, 0u);

  TDTrack fromMono(TDTrackDefaults{2, 3, 1});
  EXPECT_EQ(fromMono.byRecordChannels[1], 2);
  EXPECT_EQ(fromMono.RecordDevice, (TDTrackRecordDevice{3, 0, 0}));
}

TEST(TDTrack, NameIsCutAt259BytesOnACharacterBoundary) {
  TDTrack track;
  const std::string fits(259, 'a');
  track.SetName(fits);
  EXPECT_EQ(track.GetName(), fits);

  track.SetName(fits + "b");
  EXPECT_EQ(track.GetName(), fits);

  // A two-byte, three-byte and four-byte character straddling the limit is
  // dropped whole.
  track.SetName(std::string(258, 'a') + "\xC3\xA9");
  EXPECT_EQ(track.GetName(), std::string(258, 'a'));
  track.SetName(std::string(257, 'a') + "\xE2\x82\xAC" + "z");
  EXPECT_EQ(track.GetName(), std::string(257, 'a'));
  track.SetName(std::string(256, 'a') + "\xF0\x9F\x8E\xB5");
  EXPECT_EQ(track.GetName(), std::string(256, 'a'));
  // A character ending exactly at the limit stays.
  track.SetName(std::string(257, 'a') + "\xC3\xA9" + "z");
  EXPECT_EQ(track.GetName(), std::string(257, 'a') + "\xC3\xA9");

  // Not UTF-8: a run of continuation bytes is cut at the byte limit.
  const std::string junk(300, '\x80');
  track.SetName(junk);
  EXPECT_EQ(track.GetName(), junk.substr(0, 259));

  LTimeLineBookmark mark;
  mark.SetName(fits + "b");
  EXPECT_EQ(mark.GetName(), fits);
}

TEST(TDTrack, CopyTakesSettingsButNotIdentityOrPlace) {
  TDTrack source;
  source.SetName("Bass");
  source.Colour = {1, 2, 3};
  source.bMute = true;
  source.bRecordMidi = true;
  source.iRecordSampleRate = 96000;
  source.byRecordChannels[1] = 2;
  source.RecordDevice = {4, 2, 3};
  source.szRecordDeviceName = "USB Audio";
  source.iMidiRecordDevice = 5;
  source.PannedVolume.fCentre = -6.0f;
  source.uTrackId = 77;
  source.iIndex = 9;
  source.bCollapsed = true;

  TDTrack copy;
  copy.iIndex = 2;
  copy.CopyFromAnotherTrack(source);
  EXPECT_EQ(copy.GetName(), "Bass");
  EXPECT_EQ(copy.Colour, source.Colour);
  EXPECT_TRUE(copy.bMute);
  EXPECT_TRUE(copy.bRecordMidi);
  EXPECT_EQ(copy.iRecordSampleRate, 96000);
  EXPECT_EQ(copy.byRecordChannels[1], 2);
  EXPECT_EQ(copy.RecordDevice, source.RecordDevice);
  EXPECT_EQ(copy.szRecordDeviceName, "USB Audio");
  EXPECT_EQ(copy.iMidiRecordDevice, 5);
  EXPECT_FLOAT_EQ(copy.PannedVolume.fCentre, -6.0f);
  EXPECT_EQ(copy.uTrackId, 0u);
  EXPECT_EQ(copy.iIndex, 2);
  EXPECT_FALSE(copy.bCollapsed);
}

TEST(TDIdentity, IdsAreStableUniqueAndNeverZero) {
  const auto savedTrackNext = TDID::uIdNext;
  const auto savedClipNext = TDClipID::uIdNext;

  TDTrack a, b;
  const std::uint64_t idA = a.EnsureTrackId();
  EXPECT_NE(idA, 0u);
  EXPECT_EQ(a.EnsureTrackId(), idA);
  EXPECT_NE(b.EnsureTrackId(), idA);

  // A saved counter of 0 carries nothing and must not let 0 be handed out.
  TDID::SetNextFromLoad(500);
  TDID::SetNextFromLoad(0);
  EXPECT_EQ(TDID::GetNewId(), 500u);
  TDClipID::SetNextFromLoad(0);
  EXPECT_NE(TDClipID::GetNewId(), 0u);

  // Running past the top wraps to 1, not 0.
  TDClipID::uIdNext = 0xFFFFFFFFu;
  EXPECT_EQ(TDClipID::GetNewId(), 0xFFFFFFFFu);
  EXPECT_EQ(TDClipID::GetNewId(), 1u);

  TDID::uIdNext = savedTrackNext;
  TDClipID::uIdNext = savedClipNext;
}

TEST(TDPannedVolume, PanLowersTheFarSideTowardsMinus48dB) {
  TDPannedVolume v;
  v.ApplyCentreToLeftAndRight();
  EXPECT_FLOAT_EQ(v.fFirstChannelGain, 0.0f);
  EXPECT_FLOAT_EQ(v.fSecondChannelGain, 0.0f);

  v.dPan = 1.0;
  v.ApplyCentreToLeftAndRight();
  EXPECT_FLOAT_EQ(v.fFirstChannelGain, 0.0f);
  EXPECT_NEAR(v.fSecondChannelGain, -48.0f, 1e-4);

  v.dPan = 0.5;
  v.ApplyCentreToLeftAndRight();
  EXPECT_NEAR(v.fSecondChannelGain, -5.98609f, 1e-4);

  v.fCentre = -6.0f;
  v.dPan = -0.25;
  v.ApplyCentreToLeftAndRight();
  EXPECT_NEAR(v.fFirstChannelGain, -8.47581f, 1e-4);
  EXPECT_FLOAT_EQ(v.fSecondChannelGain, -6.0f);

  // The lowered side is kept within -127..127; the other side is the centre.
  v.fCentre = 150.0f;
  v.dPan = 0.01;
  v.ApplyCentreToLeftAndRight();
  EXPECT_FLOAT_EQ(v.fSecondChannelGain, 127.0f);
  EXPECT_FLOAT_EQ(v.fFirstChannelGain, 150.0f);
}
