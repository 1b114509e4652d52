#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "sound/sound_source.h"

// A tempo that holds from a beat position on.
struct LTempoChange {
  double dBeatPosition = 0.0;
  double dBPM = 120.0;

  friend bool operator==(const LTempoChange&, const LTempoChange&) = default;
};

// The project's tempo list and the metronome that plays against it.
class TDProjectMetronomeFeature {
 public:
  // The first tempo starts far before zero so that times before zero (pre-roll)
  // map through it too.
  static constexpr double kFirstTempoPosition = -32768.0;
  static constexpr double kDefaultBPM = 120.0;
  static constexpr int kMinMetronomeVolume = -127;  // silence
  static constexpr int kMaxMetronomeVolume = 7;
  static constexpr std::int32_t kDefaultBoundaryEnd = 0x7FFFFFFF;

  TDProjectMetronomeFeature();

  void SetMetronomeVolume(int dB);
  int GetMetronomeVolume() const { return iMetronomeVolume; }
  void SetMetronomePlayingPreroll(int beats);
  void SetMetronomeRecordingPreroll(int beats);
  int GetMetronomePlayingPreroll() const { return iPlayingPrerollBeats; }
  int GetMetronomeRecordingPreroll() const { return iRecordingPrerollBeats; }
  // In sample frames at the engine's rate: the metronome clicks only in here.
  void SetMetronomeBoundary(std::int32_t start, std::int32_t end);
  std::int32_t GetMetronomeBoundaryStart() const { return iBoundaryStart; }
  std::int32_t GetMetronomeBoundaryEnd() const { return iBoundaryEnd; }
  void SetMetronomeAccentSound(const std::string& path) { szAccentSound = path; }
  void SetMetronomeBeatSound(const std::string& path) { szBeatSound = path; }
  const std::string& GetMetronomeAccentSound() const { return szAccentSound; }
  const std::string& GetMetronomeBeatSound() const { return szBeatSound; }

  // Back to one tempo of 120 BPM for all time.
  void ResetTempoChanges();
  // Changes the tempo the song starts with, creating it in an empty list.
  void SetFirstBPM(double bpm);
  // Replaces the list, putting it in order of position. A project always has a
  // tempo, so an empty list gets one of 120 BPM from position 0, as a file
  // without tempo changes is read.
  void SetTempoChanges(std::vector<LTempoChange> changes);
  const std::vector<LTempoChange>& GetTempoChanges() const { return TempoChanges; }

  // The metronome's clicks as the mix opener made them for the mix it opened
  // last (the error source before that, and whenever the metronome is off).
  void SetMetronomeSource(LSoundSource const& source) { lssMetronome = source; }
  LSoundSource const& GetMetronomeSource() const { return lssMetronome; }
  // The level of the clicks in the mix, from the metronome volume.
  float GetMetronomeGain() const;

  // The pre-roll time through the tempo map (GetPrerollRecordTime and its
  // pre-roll-off variant) arrives with the tempo map.

  bool bPreroll = false;
  // Whether the metronome clicks in the mix; the controller keeps it in step with
  // the setting "MetronomeMode", and an export leaves it out whatever it says.
  bool bMetronomeOn = false;

 private:
  int iMetronomeVolume = 0;
  int iPlayingPrerollBeats = 4;
  int iRecordingPrerollBeats = 4;
  std::int32_t iBoundaryStart = 0;
  std::int32_t iBoundaryEnd = kDefaultBoundaryEnd;
  std::string szAccentSound;
  std::string szBeatSound;
  std::vector<LTempoChange> TempoChanges;
  LSoundSource lssMetronome;
};
