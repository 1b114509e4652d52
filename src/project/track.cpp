#include "project/track.h"

#include "project/identity.h"
#include "project/name_limit.h"

TDTrack::TDTrack(const TDTrackDefaults& defaults) {
  byRecordChannels[1] = static_cast<std::uint8_t>(defaults.iInputChannelsSetting);
  RecordDevice.iDeviceIndex = defaults.iRecordDeviceIndex;
  RecordDevice.iLeftInput = 0;
  // A mono device feeds its one input to both sides.
  RecordDevice.iRightInput = defaults.iRecordDeviceChannels >= 2 ? 1 : 0;
}

void TDTrack::ToggleRecordMode() {
  SetRecordMode(!IsRecordMode());
}

void TDTrack::SetRecordMode(bool on) {
  bRecordMode = on;
}

bool TDTrack::IsRecordMode() const {
  return bRecordMode;
}

std::uint64_t TDTrack::EnsureTrackId() {
  if (uTrackId == 0) uTrackId = TDID::GetNewId();
  return uTrackId;
}

void TDTrack::SetName(std::string_view name) {
  szName = TDCutName(name);
}

void TDTrack::CopyFromAnotherTrack(const TDTrack& other) {
  if (&other == this) return;
  PannedVolume = other.PannedVolume;
  RecordDevice = other.RecordDevice;
  bMute = other.bMute;
  bSolo = other.bSolo;
  szName = other.szName;
  szRecordDeviceName = other.szRecordDeviceName;
  bRecordMode = other.bRecordMode;
  bRecordMidi = other.bRecordMidi;
  Colour = other.Colour;
  iRecordSampleRate = other.iRecordSampleRate;
  byRecordChannels[0] = other.byRecordChannels[0];
  byRecordChannels[1] = other.byRecordChannels[1];
  iMidiPlayDevice = other.iMidiPlayDevice;
  iMidiRecordDevice = other.iMidiRecordDevice;
  EffectChain = other.EffectChain;
  Automation = other.Automation;
  EffectAutomation = other.EffectAutomation;
}
