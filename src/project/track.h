#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/sdf.h"
#include "effects/sound_process_multi.h"
#include "project/automation.h"
#include "project/panned_volume.h"
#include "project/rgb16.h"

// What a new track takes from the user's preferences and the sound devices. The
// preference store and the device list are owned by the shell and the sound layer,
// which fill this in; the values here are what a new track gets without them.
struct TDTrackDefaults {
  // Setting "TrackInputChannels0": the second record channels byte.
  int iInputChannelsSetting = 1;
  // The default record device, as an index into the record device list, and how
  // many input channels it has.
  int iRecordDeviceIndex = 0;
  int iRecordDeviceChannels = 2;
};

// Where a track records sound from: a device of the record device list and the
// device's input channels feeding the track's two sides.
struct TDTrackRecordDevice {
  int iDeviceIndex = 0;
  int iLeftInput = 0;
  int iRightInput = 1;

  friend bool operator==(const TDTrackRecordDevice&, const TDTrackRecordDevice&) = default;
};

class TDTrack {
 public:
  static constexpr std::string_view kDefaultName = "Untitled Track";
  static constexpr TDRGB16 kDefaultColour{0x3A00, 0x5100, 0x5800};

  explicit TDTrack(const TDTrackDefaults& defaults = {});
  virtual ~TDTrack() = default;

  virtual void ToggleRecordMode();
  virtual void SetRecordMode(bool on);
  virtual bool IsRecordMode() const;

  // Gives the track its stable id the first time something needs one (a clip
  // binding to it, a save) and returns it.
  std::uint64_t EnsureTrackId();

  const std::string& GetName() const { return szName; }
  // Names longer than 259 bytes are cut, never inside a UTF-8 character.
  void SetName(std::string_view name);

  // Takes over the user's settings of another track, as when a track is
  // duplicated: not its identity, place, view state or surround position.
  void CopyFromAnotherTrack(const TDTrack& other);

  std::uint64_t uTrackId = 0;  // 0: no id given yet
  TDPannedVolume PannedVolume;
  // Dynamic surround positions arrive with surround panning.
  float fStaticSurroundX = 0.0f;
  float fStaticSurroundY = 0.0f;
  TDRGB16 Colour = kDefaultColour;

  bool bRecordMode = false;
  bool bRecordMidi = false;  // records from a MIDI device rather than sound
  bool bMute = false;
  bool bSolo = false;
  bool bSilencedBySolo = false;  // kept by the tracks manager: another track is solo
  bool bCollapsed = false;
  bool bAutomationHidden = false;
  bool bPanEnvelopeOn = true;     // the clips' pan fade points apply
  bool bVolumeEnvelopeOn = true;  // the clips' volume fade points apply
  bool bMonitor = false;
  bool bTrackFlag = false;  // meaning unknown; carried through load and save

  int iFadeTypeShown = 1;  // the clip line drawn on this track: 1 volume, 2 pan
  int iRecordSampleRate = 44100;
  std::uint8_t byRecordChannels[2] = {2, 1};

  int iMidiPlayDevice = 0;
  int iMidiRecordDevice = 0;
  TDTrackRecordDevice RecordDevice;
  std::string szRecordDeviceName;  // resolved to a device index at load

  bool bEffectChainFlag = false;  // meaning unknown; carried through load and save
  // The live effects, top first in the order of the signal. Copying a track
  // clones each effect.
  LSoundProcessMulti EffectChain;

  // The rows beneath the track: its volume and pan lines, and the lines of its
  // effects' parameters. Kept apart because a save writes the two groups in turn
  // and an effect's lines go with the effect.
  TDAutomationTracksManager Automation;
  TDAutomationTracksManager EffectAutomation;

  int iIndex = 0;  // place in the track list, 0 based; the list's sort key

  // Kept through a load and a save without being understood: a word of track
  // state, the chunks of an older file's 0x1003/0x1004 record, and every chunk
  // this version does not know, each in its place.
  std::int32_t iTrackStateWord = 0;
  LSDFUnknownChunkList lOlderRecord;
  LSDFUnknownChunkList lUnknown;

 private:
  std::string szName{kDefaultName};
};
