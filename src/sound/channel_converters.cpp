#include "sound/channel_converters.h"

#include <cstddef>

#include "sound/audio_buffer.h"

namespace {

constexpr float kHalf = 0.5f;
constexpr float kRoot = 0.7071f;  // -3 dB

}  // namespace

LSRCConvChannels::LSRCConvChannels(LSoundSource const& source, int channels, int inputChannels, float gain)
    : LSoundProcessBase(source, channels, source->GetPeakBound() * gain),
      nInChans(source->GetChannels()),
      pBuffer(new float[static_cast<std::size_t>(LSoundMaxReadFrames) * static_cast<std::size_t>(nInChans)]) {
  if (inputChannels != 0 && nInChans != inputChannels) uErrorState = LSoundErrorParameters;
}

void LSRCConvChannels::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  if (uErrorState == LSoundErrorParameters) {
    LZeroFrames(buffer, frames, nChans);
    return;
  }
  // Blocks, so that even a caller that breaks the size rule gets a full buffer.
  while (frames > 0) {
    int const n = frames < LSoundMaxReadFrames ? frames : LSoundMaxReadFrames;
    lssSource->Read(pBuffer.get(), n);
    Convert(pBuffer.get(), buffer, n);
    buffer += static_cast<std::ptrdiff_t>(n) * nChans;
    frames -= n;
  }
}

LSRCConvMonoStereo::LSRCConvMonoStereo(LSoundSource const& source) : LSRCConvChannels(source, 2, 1, 1.0f) {}

void LSRCConvMonoStereo::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f) {
    out[2 * f] = in[f];
    out[2 * f + 1] = in[f];
  }
}

LSRCConvChannelsQuadStereo::LSRCConvChannelsQuadStereo(LSoundSource const& source)
    : LSRCConvChannels(source, 2, 4, 1.0f) {}

void LSRCConvChannelsQuadStereo::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 4, out += 2) {
    out[0] = (in[0] + in[2]) * kHalf;
    out[1] = (in[1] + in[3]) * kHalf;
  }
}

LSRCConvChannels51Stereo::LSRCConvChannels51Stereo(LSoundSource const& source)
    : LSRCConvChannels(source, 2, 6, 1.0f + 2 * kRoot + kHalf) {}

void LSRCConvChannels51Stereo::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 6, out += 2) {
    out[0] = in[0] + (in[2] + in[4]) * kRoot + in[3] * kHalf;
    out[1] = in[1] + (in[2] + in[5]) * kRoot + in[3] * kHalf;
  }
}

LSRCConvChannels71Stereo::LSRCConvChannels71Stereo(LSoundSource const& source)
    : LSRCConvChannels(source, 2, 8, 1.0f + 2 * kRoot + 2 * kHalf) {}

void LSRCConvChannels71Stereo::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 8, out += 2) {
    out[0] = in[0] + (in[2] + in[4]) * kRoot + (in[3] + in[6]) * kHalf;
    out[1] = in[1] + (in[2] + in[5]) * kRoot + (in[3] + in[7]) * kHalf;
  }
}

LSRCConvChannels71To51::LSRCConvChannels71To51(LSoundSource const& source)
    : LSRCConvChannels(source, 6, 8, 2 * kRoot) {}

void LSRCConvChannels71To51::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 8, out += 6) {
    out[0] = in[0];
    out[1] = in[1];
    out[2] = in[2];
    out[3] = in[3];
    out[4] = (in[4] + in[6]) * kRoot;
    out[5] = (in[5] + in[7]) * kRoot;
  }
}

LSRCConvStereoMono::LSRCConvStereoMono(LSoundSource const& source) : LSRCConvChannels(source, 1, 2, 1.0f) {}

void LSRCConvStereoMono::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 2) out[f] = (in[0] + in[1]) * kHalf;
}

LSRCConvChannels51Mono::LSRCConvChannels51Mono(LSoundSource const& source)
    : LSRCConvChannels(source, 1, 6, (3.0f + 2 * kRoot) * kHalf + kRoot) {}

void LSRCConvChannels51Mono::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 6) {
    out[f] = (in[0] + in[1] + in[3] + (in[4] + in[5]) * kRoot) * kHalf + in[2] * kRoot;
  }
}

LSRCConvChannels71Mono::LSRCConvChannels71Mono(LSoundSource const& source)
    : LSRCConvChannels(source, 1, 8, (3.0f + 2 * kHalf + 2 * kRoot) * kHalf + kRoot) {}

void LSRCConvChannels71Mono::Convert(float const* in, float* out, int frames) const {
  for (int f = 0; f < frames; ++f, in += 8) {
    out[f] = (in[0] + in[1] + in[3] + (in[6] + in[7]) * kHalf + (in[4] + in[5]) * kRoot) * kHalf + in[2] * kRoot;
  }
}

LSRCConvChannelsNMono::LSRCConvChannelsNMono(LSoundSource const& source) : LSRCConvChannels(source, 1, 0, 1.0f) {}

void LSRCConvChannelsNMono::Convert(float const* in, float* out, int frames) const {
  int const ch = nInChans;
  float const share = 1.0f / static_cast<float>(ch);
  for (int f = 0; f < frames; ++f, in += ch) {
    float sum = 0.0f;
    for (int c = 0; c < ch; ++c) sum += in[c] * share;
    out[f] = sum;
  }
}

LSRCConvChannelsN::LSRCConvChannelsN(LSoundSource const& source, int channels)
    : LSRCConvChannels(source, channels, 0, 1.0f) {}

void LSRCConvChannelsN::Convert(float const* in, float* out, int frames) const {
  int const inCh = nInChans;
  int const outCh = nChans;
  for (int f = 0; f < frames; ++f, in += inCh, out += outCh) {
    for (int c = 0; c < outCh; ++c) out[c] = in[c % inCh];
  }
}

LSoundSource LSPConvChannels::OpenSource(LSoundSource const& source) const {
  int const from = source->GetChannels();
  int const to = nChans;
  if (source->IsError() || from == 0 || to <= 0 || from == to) return source;
  if (to == 2) {
    switch (from) {
      case 1: return LSoundSource::Make<LSRCConvMonoStereo>(source);
      case 4: return LSoundSource::Make<LSRCConvChannelsQuadStereo>(source);
      case 6: return LSoundSource::Make<LSRCConvChannels51Stereo>(source);
      case 8: return LSoundSource::Make<LSRCConvChannels71Stereo>(source);
      default: break;
    }
  } else if (to == 6 && from == 8) {
    return LSoundSource::Make<LSRCConvChannels71To51>(source);
  } else if (to == 1) {
    switch (from) {
      case 2: return LSoundSource::Make<LSRCConvStereoMono>(source);
      case 6: return LSoundSource::Make<LSRCConvChannels51Mono>(source);
      case 8: return LSoundSource::Make<LSRCConvChannels71Mono>(source);
      default: return LSoundSource::Make<LSRCConvChannelsNMono>(source);
    }
  }
  return LSoundSource::Make<LSRCConvChannelsN>(source, to);
}
