#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "foundation/sound_time.h"
#include "project/track.h"

// The project's tracks, kept in order of their index (a track's iIndex always
// equals its place in the list), and which one is current.
class TDTracksManager {
 public:
  using DefaultsProvider = std::function<TDTrackDefaults()>;

  TDTracksManager();

  // New tracks ask this for their preference- and device-dependent defaults at
  // the moment they are made, so a changed preference applies to the next track.
  void SetNewTrackDefaultsProvider(DefaultsProvider provider);

  // Appends a default track and returns it.
  TDTrack* AddTrack();
  // Inserts a default track at index i + 1 and moves the tracks above i up one.
  // i may be -1 to insert at the top. Returns null, changing nothing, when i is
  // not below the count (or below -1).
  TDTrack* AddTrackAfter(int i);
  // Deletes track i, closes the gap and keeps the current index on a track.
  bool DeleteTrack(int i);
  // Swaps the places of tracks a and b; false when either does not exist.
  bool ExchangeTracks(int a, int b);
  void Clear();

  TDTrack* GetTrack(int i);
  const TDTrack* GetTrack(int i) const;
  TDTrack* GetTrackById(std::uint64_t id);
  int GetTrackCount() const { return static_cast<int>(m_Tracks.size()); }
  bool IsTrackValid(int i) const;

  int GetCurrentTrackIndex() const { return iCurrentTrack; }
  // Clamped to an existing track (0 when there is none).
  void SetCurrentTrackIndex(int i);

  // Muted tracks are silent; a solo track never is; other tracks are silent
  // while any track is solo. An unknown index is not silent.
  bool IsTrackSilent(int i) const;
  // Solo on unmutes the track; mute on drops its solo. Both keep every track's
  // silenced-by-solo flag current. False for an unknown index.
  bool SetTrackSolo(int i, bool on);
  bool SetTrackMute(int i, bool on);
  // Pan is clamped to -1..1; volume is the centre level in dB. Both recompute the
  // channel gains.
  bool SetTrackPan(int i, double pan);
  bool SetTrackVolume(int i, float dB);
  // Rebuilds every silenced-by-solo flag from the solo flags, for callers that set
  // solo directly (a load, a track copy).
  void UpdateSilencedBySolo();

  bool IsAnyTrackSolo() const;
  // Armed for sound, armed for MIDI.
  bool IsAnyTrackRecordAudio() const;
  bool IsAnyTrackRecordMidi() const;
  // Whether any track's input is monitored.
  bool IsAnyTrackRecordMonitored() const;

  // Gives every track its stable id; a save needs them all.
  void EnsureAllTrackIds();

  // Fits every automation line of every track (both groups) to a project from
  // start to end, after the project's length changed
  // (TDTrackAutomation::ValidatePoints).
  void UpdateAutomationEnvLine(LSoundTime start, LSoundTime end);

 private:
  std::unique_ptr<TDTrack> MakeTrack() const;
  void Renumber(std::size_t from);

  std::vector<std::unique_ptr<TDTrack>> m_Tracks;
  DefaultsProvider m_Defaults;
  int iCurrentTrack = 0;
};
