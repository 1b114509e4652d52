#include "sound/cross_fade_source.h"

#include <algorithm>

LCrossFadeSource::LCrossFadeSource() : CrossFadeBuffer(new float[BufferFloats]()) {}

LSoundSource LCrossFadeSource::OpenSource(LSoundSource const& source) {
  if (source->IsError()) return source;
  lss = LSoundSource::Make<LSRCCrossFade>(source, *this);
  return lss;
}

void LCrossFadeSource::Clear() {
  // Nothing is faded from unless it was written since: the floats may stay.
  iCrossFadeIdx = 0;
  iHeldFloats = 0;
  nChans = 0;
  bDoCrossFade = false;
  lss.Close();
}

void LCrossFadeSource::ArmFade(int frames) {
  if (nChans <= 0) return;  // nothing played yet to fade from
  int const floats = std::clamp(frames, 0, iHeldFloats / nChans) * nChans;
  iCrossFadeIdx = (iCrossFadeIdx - floats) & IndexMask;
  iHeldFloats -= floats;
  bDoCrossFade = true;
}

LSRCCrossFade::LSRCCrossFade(LSoundSource const& source, LCrossFadeSource& owner)
    : LSoundProcessBase(source), rOwner(owner) {}

void LSRCCrossFade::Read(float* buffer, int frames) {
  lssSource->Read(buffer, frames);
  if (frames <= 0) return;
  LCrossFadeSource& o = rOwner;
  int const ch = nChans;
  float* history = o.CrossFadeBuffer.get();
  if (o.bDoCrossFade && o.nChans == ch && ch <= LCrossFadeSource::MaxChannels) {
    float const step = 1.0f / static_cast<float>(frames);
    int idx = o.iCrossFadeIdx;
    for (int f = 0; f < frames; ++f) {
      float const ramp = static_cast<float>(f) * step;
      float* frame = buffer + static_cast<std::size_t>(f) * ch;
      for (int c = 0; c < ch; ++c) {
        float const old = history[idx];
        frame[c] = frame[c] * ramp + old * (1.0f - ramp);
        idx = (idx + 1) & LCrossFadeSource::IndexMask;
      }
    }
  }
  o.bDoCrossFade = false;
  if (o.nChans != ch) {
    o.nChans = ch;
    o.iHeldFloats = 0;
  }
  int idx = o.iCrossFadeIdx;
  int const floats = frames * ch;
  for (int i = 0; i < floats; ++i) {
    history[idx] = buffer[i];
    idx = (idx + 1) & LCrossFadeSource::IndexMask;
  }
  o.iCrossFadeIdx = idx;
  o.iHeldFloats = std::min(o.iHeldFloats + floats, LCrossFadeSource::BufferFloats - (LCrossFadeSource::BufferFloats % ch));
}
