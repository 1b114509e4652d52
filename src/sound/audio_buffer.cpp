#include "sound/audio_buffer.h"

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
