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

void LAddBuffer(float* to, float const* from, int count) {
  // Unrolled by hand: at -O2 the compiler leaves a loop of unknown length scalar.
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    to[i] += from[i];
    to[i + 1] += from[i + 1];
    to[i + 2] += from[i + 2];
    to[i + 3] += from[i + 3];
    to[i + 4] += from[i + 4];
    to[i + 5] += from[i + 5];
    to[i + 6] += from[i + 6];
    to[i + 7] += from[i + 7];
  }
  for (; i < count; ++i) to[i] += from[i];
}

float GetBufferPeakChan(float const* buffer, int frames, int channels, int channel) {
  if (channels <= 0 || channel < 0 || channel >= channels) return 0.0f;
  // Four running maxima, so that each comparison waits on the one four frames
  // back rather than the one before: the meters read every block of every track.
  auto max = [](float a, float b) { return a > b ? a : b; };
  float m0 = 0.0f, m1 = 0.0f, m2 = 0.0f, m3 = 0.0f;
  float const* p = buffer + channel;
  std::size_t const step = static_cast<std::size_t>(channels);
  int f = 0;
  for (; f + 4 <= frames; f += 4, p += 4 * step) {
    m0 = max(m0, std::fabs(p[0]));
    m1 = max(m1, std::fabs(p[step]));
    m2 = max(m2, std::fabs(p[2 * step]));
    m3 = max(m3, std::fabs(p[3 * step]));
  }
  for (; f < frames; ++f, p += step) m0 = max(m0, std::fabs(*p));
  return max(max(m0, m1), max(m2, m3));
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
