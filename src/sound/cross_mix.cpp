#include "sound/cross_mix.h"

#include <algorithm>
#include <cstdint>

LSoundSource LSPCrossMix::OpenSource(LSoundSource const& first) const {
  return LSoundSource::Make<LSRCCrossMix>(first, lssSecond, iLength);
}

LSRCCrossMix::LSRCCrossMix(LSoundSource const& first, LSoundSource const& second, int length)
    : LSoundProcessBase(first, first->GetChannels(), std::max(first->GetPeakBound(), second->GetPeakBound())),
      lssSecond(second),
      iLength(std::max(1, length)),
      vRising(static_cast<std::size_t>(iLength)),
      vFalling(static_cast<std::size_t>(iLength)),
      vSecond(static_cast<std::size_t>(LSoundMaxReadFrames) * nChans) {
  if (second->IsError()) uErrorState = LSoundErrorBelow;
  if (second->GetChannels() != first->GetChannels() || second->GetSampleRate() != first->GetSampleRate()) {
    uErrorState = LSoundErrorParameters;
  }
  for (int k = 0; k < iLength; ++k) {
    vRising[static_cast<std::size_t>(k)] = static_cast<float>(k) / static_cast<float>(iLength);
    vFalling[static_cast<std::size_t>(k)] = 1.0f - vRising[static_cast<std::size_t>(k)];
  }
}

void LSRCCrossMix::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  std::int64_t const pos = lssSource->GetPositionSample();
  std::int64_t const end = lssSource->GetEndSample();
  std::int64_t const fadeStart = end - iLength;
  lssSource->Read(buffer, frames);
  // The frames of this read that need the second source.
  std::int64_t const from = std::max(pos, fadeStart);
  std::int64_t const to = pos + frames;
  if (from >= to) return;
  int const count = static_cast<int>(to - from);
  lssSecond->Read(vSecond.data(), count);
  int const channels = nChans;
  for (int j = 0; j < count; ++j) {
    std::int64_t const p = from + j;
    float* out = buffer + static_cast<std::size_t>(p - pos) * channels;
    float const* in = vSecond.data() + static_cast<std::size_t>(j) * channels;
    if (p < end) {
      std::size_t const k = static_cast<std::size_t>(p - fadeStart);
      for (int c = 0; c < channels; ++c) out[c] = out[c] * vFalling[k] + in[c] * vRising[k];
    } else {
      for (int c = 0; c < channels; ++c) out[c] = in[c];
    }
  }
}

void LSRCCrossMix::Seek(int frame) {
  lssSource->Seek(frame);
  std::int64_t const intoSecond = static_cast<std::int64_t>(frame) - (lssSource->GetEndSample() - iLength);
  lssSecond->Seek(static_cast<int>(std::max<std::int64_t>(0, intoSecond)));
}
