#include "sound/channels_mapping_source.h"

#include <algorithm>
#include <cstddef>

#include "sound/audio_buffer.h"

namespace {

// The most inputs that meet on one output: the factor by which the peak may grow.
int MostOnOneOutput(std::vector<int> const& mapping, int outputs) {
  std::vector<int> count(static_cast<std::size_t>(outputs), 0);
  int most = 1;
  for (int out : mapping) {
    if (out >= 0) most = std::max(most, ++count[static_cast<std::size_t>(out)]);
  }
  return most;
}

}  // namespace

LChannelsMappingSourceBase::LChannelsMappingSourceBase(LSoundSource const& source, int channels,
                                                       std::span<int const> mapping)
    : LSoundProcessBase(source, channels, source->GetPeakBound()),
      iMapping(static_cast<std::size_t>(source->GetChannels()), -1),
      pBuffer(new float[static_cast<std::size_t>(LSoundMaxReadFrames) *
                        static_cast<std::size_t>(source->GetChannels())]) {
  for (std::size_t c = 0; c < iMapping.size() && c < mapping.size(); ++c) {
    int const out = mapping[c];
    if (out >= nChans) {
      uErrorState = LSoundErrorParameters;
    } else {
      iMapping[c] = out < 0 ? -1 : out;
    }
  }
  fPeakBound *= static_cast<float>(MostOnOneOutput(iMapping, nChans));
}

void LChannelsMappingSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const outCh = nChans;
  int const inCh = static_cast<int>(iMapping.size());
  LZeroFrames(buffer, frames, outCh);
  while (frames > 0) {
    int const n = std::min(frames, LSoundMaxReadFrames);
    lssSource->Read(pBuffer.get(), n);
    for (int c = 0; c < inCh; ++c) {
      int const out = iMapping[static_cast<std::size_t>(c)];
      if (out < 0) continue;
      float const* in = pBuffer.get() + c;
      float* o = buffer + out;
      for (int f = 0; f < n; ++f, in += inCh, o += outCh) *o += *in;
    }
    buffer += static_cast<std::ptrdiff_t>(n) * outCh;
    frames -= n;
  }
}
