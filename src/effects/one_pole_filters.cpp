#include "effects/one_pole_filters.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// Runs `step(x, z)`, which returns y, over each channel with that channel's state.
template <class Step>
void FilterChannels(float* buffer, int frames, int channels, std::vector<float>& state, Step step) {
  for (int c = 0; c < channels; ++c) {
    float z = state[static_cast<std::size_t>(c)];
    float* p = buffer + c;
    for (int f = 0; f < frames; ++f, p += channels) *p = step(*p, z);
    state[static_cast<std::size_t>(c)] = z;
  }
}

}  // namespace

int LSRCOnePoleCoefficient(int frequency, int sampleRate, float peakBound) {
  double const rate = sampleRate > 0 ? sampleRate : 44100;
  int k = static_cast<int>(std::trunc((1.0 - std::exp(-2.0 * std::numbers::pi * frequency / rate)) * 256.0));
  if (peakBound <= 8.0f) k *= 2;
  return k;
}

LSRCHighPass::LSRCHighPass(LSoundSource const& source, int frequency, int strength)
    : LSoundProcessBase(source, source->GetChannels(), source->GetPeakBound() * 2.0f),
      iK(LSRCOnePoleCoefficient(frequency, source->GetSampleRate(), source->GetPeakBound())),
      fFeedback(static_cast<float>(strength) * -0.0000390625f),
      vState(static_cast<std::size_t>(nChans), 0.0f),
      vWarmUp(static_cast<std::size_t>(kWarmUpFrames) * nChans) {}

void LSRCHighPass::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  lssSource->Read(buffer, frames);
  float const k = static_cast<float>(iK);
  float const feedback = fFeedback;
  FilterChannels(buffer, frames, nChans, vState, [k, feedback](float x, float& z) {
    float const y = x + z * feedback;
    z += y * k;
    return y;
  });
}

void LSRCHighPass::Seek(int frame) {
  std::fill(vState.begin(), vState.end(), 0.0f);
  if (frame < 0) {
    lssSource->Seek(frame);
    return;
  }
  int const warm = std::min(frame, kWarmUpFrames);
  lssSource->Seek(frame - warm);
  Read(vWarmUp.data(), warm);
}

LSRCLowPass::LSRCLowPass(LSoundSource const& source, int frequency)
    : LSoundProcessBase(source),
      iK(LSRCOnePoleCoefficient(frequency, source->GetSampleRate(), source->GetPeakBound())),
      vState(static_cast<std::size_t>(nChans), 0.0f) {}

void LSRCLowPass::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  lssSource->Read(buffer, frames);
  float const k = static_cast<float>(iK);
  FilterChannels(buffer, frames, nChans, vState, [k](float x, float& z) {
    z += (z * -0.00390625f + x) * k;
    return z * 0.00390625f;
  });
}

void LSRCLowPass::Seek(int) {
  std::fill(vState.begin(), vState.end(), 0.0f);
}
