#include <gtest/gtest.h>

#include <string>

#include "project/tracks_manager.h"

namespace {

// Tracks named "0".."n-1" by their original place, to follow them as they move.
void AddNamed(TDTracksManager& tracks, int count) {
  for (int n = 0; n < count; ++n) tracks.AddTrack()->SetName(std::to_string(n));
}

std::string Order(const TDTracksManager& tracks) {
  std::string order;
  for (int n = 0; n < tracks.GetTrackCount(); ++n) {
    const TDTrack* track = tracks.GetTrack(n);
    EXPECT_EQ(track->iIndex, n);
    order += track->GetName() + ' ';
  }
  return order;
}

}  // namespace

TEST(TDTracksManager, SoloAndMuteRules) {
  TDTracksManager tracks;
  AddNamed(tracks, 3);
  EXPECT_FALSE(tracks.IsTrackSilent(7));
  EXPECT_FALSE(tracks.SetTrackSolo(7, true));

  // Solo on a muted track unmutes it and silences the others.
  tracks.SetTrackMute(0, true);
  EXPECT_TRUE(tracks.IsTrackSilent(0));
  tracks.SetTrackSolo(0, true);
  EXPECT_FALSE(tracks.GetTrack(0)->bMute);
  EXPECT_FALSE(tracks.IsTrackSilent(0));
  EXPECT_TRUE(tracks.IsTrackSilent(1));
  EXPECT_TRUE(tracks.GetTrack(1)->bSilencedBySolo);
  EXPECT_FALSE(tracks.GetTrack(0)->bSilencedBySolo);

  // With two solo tracks, turning one off leaves it silenced by the other.
  tracks.SetTrackSolo(1, true);
  EXPECT_FALSE(tracks.GetTrack(1)->bSilencedBySolo);
  tracks.SetTrackSolo(1, false);
  EXPECT_TRUE(tracks.GetTrack(1)->bSilencedBySolo);
  EXPECT_TRUE(tracks.IsTrackSilent(1));

  // A track added now joins the silenced ones.
  EXPECT_TRUE(tracks.AddTrack()->bSilencedBySolo);

  // Muting the last solo track drops its solo and releases everyone else.
  tracks.SetTrackMute(0, true);
  EXPECT_FALSE(tracks.GetTrack(0)->bSolo);
  EXPECT_FALSE(tracks.IsAnyTrackSolo());
  EXPECT_TRUE(tracks.IsTrackSilent(0));
  for (int n = 1; n < tracks.GetTrackCount(); ++n) {
    EXPECT_FALSE(tracks.IsTrackSilent(n));
    EXPECT_FALSE(tracks.GetTrack(n)->bSilencedBySolo);
  }

  // Deleting the only solo track releases the others too.
  tracks.SetTrackSolo(2, true);
  tracks.DeleteTrack(2);
  EXPECT_FALSE(tracks.GetTrack(1)->bSilencedBySolo);
}

TEST(TDTracksManager, InsertDeleteAndExchangeKeepIndicesInOrder) {
  TDTracksManager tracks;
  AddNamed(tracks, 3);
  EXPECT_EQ(Order(tracks), "0 1 2 ");

  EXPECT_EQ(tracks.AddTrackAfter(3), nullptr);
  EXPECT_EQ(tracks.AddTrackAfter(-2), nullptr);
  tracks.AddTrackAfter(0)->SetName("a");
  tracks.AddTrackAfter(3)->SetName("b");
  tracks.AddTrackAfter(-1)->SetName("c");
  EXPECT_EQ(Order(tracks), "c 0 a 1 2 b ");

  EXPECT_FALSE(tracks.ExchangeTracks(0, 6));
  EXPECT_TRUE(tracks.ExchangeTracks(0, 5));
  EXPECT_EQ(Order(tracks), "b 0 a 1 2 c ");

  EXPECT_FALSE(tracks.DeleteTrack(6));
  EXPECT_TRUE(tracks.DeleteTrack(2));
  EXPECT_EQ(Order(tracks), "b 0 1 2 c ");
}

TEST(TDTracksManager, CurrentTrackStaysOnAnExistingTrack) {
  TDTracksManager tracks;
  tracks.SetCurrentTrackIndex(3);
  EXPECT_EQ(tracks.GetCurrentTrackIndex(), 0);

  AddNamed(tracks, 5);
  tracks.SetCurrentTrackIndex(4);
  tracks.DeleteTrack(2);
  EXPECT_EQ(tracks.GetCurrentTrackIndex(), 3);
  tracks.SetCurrentTrackIndex(-4);
  EXPECT_EQ(tracks.GetCurrentTrackIndex(), 0);

  while (tracks.GetTrackCount() > 0) tracks.DeleteTrack(0);
  EXPECT_EQ(tracks.GetCurrentTrackIndex(), 0);
  EXPECT_EQ(tracks.GetTrack(0), nullptr);
}

TEST(TDTracksManager, NewTracksAskTheProviderEachTime) {
  TDTracksManager tracks;
  int channels = 1;
  tracks.SetNewTrackDefaultsProvider([&] { return TDTrackDefaults{channels, 0, 2}; });
  EXPECT_EQ(tracks.AddTrack()->byRecordChannels[1], 1);
  channels = 2;
  EXPECT_EQ(tracks.AddTrackAfter(0)->byRecordChannels[1], 2);
}

TEST(TDTracksManager, PanVolumeRecordStateAndIds) {
  TDTracksManager tracks;
  AddNamed(tracks, 2);

  EXPECT_TRUE(tracks.SetTrackVolume(0, -6.0f));
  EXPECT_TRUE(tracks.SetTrackPan(0, 3.0));
  const TDPannedVolume& v = tracks.GetTrack(0)->PannedVolume;
  EXPECT_DOUBLE_EQ(v.dPan, 1.0);
  EXPECT_FLOAT_EQ(v.fFirstChannelGain, -6.0f);
  EXPECT_NEAR(v.fSecondChannelGain, -48.0f, 1e-4);
  EXPECT_FALSE(tracks.SetTrackPan(2, 0.0));

  EXPECT_FALSE(tracks.IsAnyTrackRecordAudio());
  tracks.GetTrack(1)->SetRecordMode(true);
  tracks.GetTrack(1)->bRecordMidi = true;
  EXPECT_TRUE(tracks.IsAnyTrackRecordMidi());
  EXPECT_FALSE(tracks.IsAnyTrackRecordAudio());
  tracks.GetTrack(0)->SetRecordMode(true);
  EXPECT_TRUE(tracks.IsAnyTrackRecordAudio());

  EXPECT_EQ(tracks.GetTrackById(0), nullptr);
  tracks.EnsureAllTrackIds();
  TDTrack* second = tracks.GetTrack(1);
  tracks.ExchangeTracks(0, 1);
  EXPECT_EQ(tracks.GetTrackById(second->uTrackId), second);
  EXPECT_EQ(second->iIndex, 0);
}
