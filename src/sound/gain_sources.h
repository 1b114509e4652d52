#pragma once
#include <span>

#include "foundation/db.h"
#include "sound/sound_source.h"

// The amplitude of a level in dB as the faders give it: a whole dB takes its entry of
// the LdB amplitude table, and a fraction interpolates in amplitude between the two
// whole entries around it, so that a fader moved by a tenth of a dB moves the level
// smoothly and 0 dB stays exactly 1. Levels at or below -127 dB are silence, and
// levels above 127 dB take the top entry.
float LdBAmplitudeInterpolated(float dB);

// Multiplies every sample by one gain. A gain of exactly 1 reads straight through.
// A gain above 1 may push samples past full scale, so the peak bound becomes 16;
// otherwise it stays that of the source.
class LSRCGain : public LSoundProcessBase {
 public:
  LSRCGain(LSoundSource const& source, float gain);

  void Read(float* buffer, int frames) override;
  float GetGain() const { return fGain; }

 private:
  float fGain;
};

// Multiplies each channel by its own gain: the track's volume and pan. Channels
// beyond the gains given keep their level. The peak bound stays that of the source:
// whoever sets the gains above 1 knows the limiter will follow.
class LSRCGainMultiChannels : public LSoundProcessBase {
 public:
  static constexpr int MaxGains = 256;

  // Linear gains, one per channel.
  LSRCGainMultiChannels(LSoundSource const& source, std::span<float const> gains);
  // Levels in dB, one per channel, fractional dB interpolated by
  // LdBAmplitudeInterpolated.
  LSRCGainMultiChannels(LSoundSource const& source, LDBMultiChannel<float> const& levels);

  void Read(float* buffer, int frames) override;
  float GetGain(int channel) const { return fGains[channel]; }

 private:
  float fGains[MaxGains];
};
