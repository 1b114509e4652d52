#include "sound/gain_sources.h"

#include <algorithm>
#include <cmath>

#include "sound/audio_buffer.h"

float LdBAmplitudeInterpolated(float dB) {
  if (!(dB > -127.0f)) return 0.0f;  // NaN is silence too
  if (dB >= 127.0f) return LdBAmplitudeOf(127);
  float const whole = std::floor(dB);
  int const i = static_cast<int>(whole);
  float const a = LdBAmplitudeOf(static_cast<signed char>(i));
  float const frac = dB - whole;
  if (frac == 0.0f) return a;
  float const b = LdBAmplitudeOf(static_cast<signed char>(i + 1));
  return a + (b - a) * frac;
}

LSRCGain::LSRCGain(LSoundSource const& source, float gain)
    : LSoundProcessBase(source, source->GetChannels(),
                        std::fabs(gain) > 1.0f ? LSoundPeakUnknown : source->GetPeakBound()),
      fGain(gain) {}

void LSRCGain::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  lssSource->Read(buffer, frames);
  GainAudioBufferQuick(buffer, frames * nChans, fGain);
}

LSRCGainMultiChannels::LSRCGainMultiChannels(LSoundSource const& source, std::span<float const> gains)
    : LSoundProcessBase(source) {
  std::fill(std::begin(fGains), std::end(fGains), 1.0f);
  std::size_t const n = std::min<std::size_t>(gains.size(), MaxGains);
  std::copy_n(gains.begin(), n, fGains);
}

LSRCGainMultiChannels::LSRCGainMultiChannels(LSoundSource const& source, LDBMultiChannel<float> const& levels)
    : LSoundProcessBase(source) {
  std::fill(std::begin(fGains), std::end(fGains), 1.0f);
  for (int c = 0; c < levels.GetChannels(); ++c) fGains[c] = LdBAmplitudeInterpolated(levels[c]);
}

void LSRCGainMultiChannels::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  lssSource->Read(buffer, frames);
  int const ch = nChans;
  if (ch == 2) {
    // The track's stereo pair: the common case, kept simple for the vectoriser.
    float const l = fGains[0];
    float const r = fGains[1];
    for (int f = 0; f < frames; ++f) {
      buffer[2 * f] *= l;
      buffer[2 * f + 1] *= r;
    }
    return;
  }
  for (int f = 0; f < frames; ++f) {
    float* frame = buffer + static_cast<std::size_t>(f) * ch;
    for (int c = 0; c < ch; ++c) frame[c] *= fGains[c];
  }
}
