#include "sound/audio_buffer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

void LZeroFrames(float* buffer, int frames, int channels) {
  if (frames <= 0 || channels <= 0) return;
  std::memset(buffer, 0,
              sizeof(float) * static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels));
}

void GainAudioBufferQuick(float* buffer, int count, float gain) {
  if (count <= 0 || gain == 1.0f) return;
  // A plain loop: the compiler vectorises it as well as a hand-unrolled one.
  for (int i = 0; i < count; ++i) buffer[i] *= gain;
}

float GetBufferPeakChan(float const* buffer, int frames, int channels, int channel) {
  float peak = 0.0f;
  if (channels <= 0 || channel < 0 || channel >= channels) return peak;
  float const* p = buffer + channel;
  for (int f = 0; f < frames; ++f, p += channels) peak = std::max(peak, std::fabs(*p));
  return peak;
}

signed char LPeakToMeterDB(float peak) {
  if (!(peak >= 4.467e-7f)) return -127;  // NaN reads as silence too
  double const dB = 20.0 * std::log10(static_cast<double>(peak));
  // Truncation after moving half a dB away from zero rounds halves outwards.
  double const rounded = dB + (peak >= 1.0f ? 0.5 : -0.5);
  if (rounded >= 127.0) return 127;
  if (rounded <= -127.0) return -127;
  return static_cast<signed char>(static_cast<int>(rounded));
}
