#include "sound/peak_limit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "sound/audio_buffer.h"

namespace {

// A step this small would take longer than a block to matter; making it a little
// larger keeps a falling gain from creeping down for ever on rounding alone.
constexpr float kSmallestFall = -0.0000001f;

int BlockFramesFor(int rate, bool streaming) {
  int const b = streaming ? rate / 70 : rate / 35;
  return std::clamp(b, 16, LSoundMaxReadFrames);
}

}  // namespace

LSoundSource LSPPeakLimit::OpenSource(LSoundSource const& source) const {
  if (source->IsError() || source->GetPeakBound() <= fLimit) return source;
  return LSoundSource::Make<LSRCPeakLimit>(source, fLimit);
}

LSRCPeakLimit::LSRCPeakLimit(LSoundSource const& source, float limit)
    : LSoundProcessBase(source, source->GetChannels(), limit),
      fLimit(limit),
      iBlock(BlockFramesFor(source->GetSampleRate(), source->IsStreaming())) {
  iIndex = 3 * iBlock;
  if (!(limit > 0.0f)) uErrorState = LSoundErrorParameters;
  std::size_t const blockFloats = static_cast<std::size_t>(iBlock) * nChans;
  pStore.reset(new (std::nothrow) float[3 * blockFloats]());
  if (!pStore) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  pPlay = pStore.get();
  pNext = pPlay + blockFloats;
  pLast = pNext + blockFloats;
}

float LSRCPeakLimit::ReadBlock(float* block) {
  lssSource->Read(block, iBlock);
  int const count = iBlock * nChans;
  float peak = 0.0f;
  for (int i = 0; i < count; ++i) peak = std::max(peak, std::fabs(block[i]));
  if (!(peak > fLimit)) return 1.0f;
  bClipped = true;
  // limit / peak rounded may come out a hair too large; the product with the peak,
  // rounded the way the output will be, must not exceed the ceiling.
  float g = fLimit / peak;
  while (g > 0.0f && g * peak > fLimit) g = std::nextafter(g, 0.0f);
  return g;
}

void LSRCPeakLimit::SetStep() {
  float const target =
      std::min(std::min(fGains[1], fGains[2]), (fGains[0] + fGains[1] + fGains[2] + fGains[3]) * 0.25f);
  // The ramp ends where the next block may begin: never above that block's gain.
  fStart = std::min(fGain, fGains[1]);
  fStep = (target - fStart) / static_cast<float>(iBlock);
  fEnd = target;
  if (fStep < 0.0f && fStep > kSmallestFall) {
    fStep = kSmallestFall;
    fEnd = fStart + fStep * static_cast<float>(iBlock);
  }
}

void LSRCPeakLimit::Restart() {
  pPlay = pStore.get();
  std::size_t const blockFloats = static_cast<std::size_t>(iBlock) * nChans;
  pNext = pPlay + blockFloats;
  pLast = pNext + blockFloats;
  fGains[1] = ReadBlock(pPlay);
  fGains[0] = fGains[1];
  fGains[2] = ReadBlock(pNext);
  fGains[3] = ReadBlock(pLast);
  fGain = fGains[1];
  SetStep();
  iIndex = 0;
}

void LSRCPeakLimit::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  if (IsError()) {
    LZeroFrames(buffer, frames, nChans);
    return;
  }
  if (iIndex >= 3 * iBlock) Restart();
  int const ch = nChans;
  while (frames > 0) {
    int const n = std::min(frames, iBlock - iIndex);
    float const* in = pPlay + static_cast<std::size_t>(iIndex) * ch;
    if (fStep == 0.0f && fStart >= 1.0f) {
      std::memcpy(buffer, in, sizeof(float) * static_cast<std::size_t>(n) * ch);
    } else {
      // The gain of frame i is computed from the block's start rather than summed
      // step by step, so no rounding builds up; the clamp to this block's gain holds
      // the output under the ceiling whatever the last bit of the ramp does.
      float const cap = fGains[1];
      for (int f = 0; f < n; ++f) {
        float g = fStart + fStep * static_cast<float>(iIndex + f);
        g = std::clamp(g, 0.0f, cap);
        for (int c = 0; c < ch; ++c) buffer[f * ch + c] = in[f * ch + c] * g;
      }
    }
    buffer += static_cast<std::size_t>(n) * ch;
    frames -= n;
    iIndex += n;
    if (iIndex >= iBlock) {
      // The played block's buffer takes the block three ahead. The next ramp starts
      // from the exact end of this one, so a gain that comes back reaches exactly 1
      // and the blocks after it are copied untouched.
      fGain = fEnd;
      float* freed = pPlay;
      pPlay = pNext;
      pNext = pLast;
      pLast = freed;
      fGains[0] = fGains[1];
      fGains[1] = fGains[2];
      fGains[2] = fGains[3];
      fGains[3] = ReadBlock(pLast);
      SetStep();
      iIndex = 0;
    }
  }
}

int LSRCPeakLimit::GetPositionSample() const {
  int const below = lssSource->GetPositionSample();
  return below + lssSource->AdjustRelativeOffset(-GetLookAheadFrames(), below);
}

int LSRCPeakLimit::GetEndSample() const {
  int const end = lssSource->GetEndSample();
  return lssSource->IsStreaming() ? end - 3 * iBlock : end;
}

void LSRCPeakLimit::Seek(int frame) {
  lssSource->Seek(frame);
  if (!IsError()) Restart();
}

bool LSRCPeakLimit::ControlMessage(int code, long* value) {
  if (value == nullptr) return lssSource->ControlMessage(code, value);
  switch (code) {
    case LSoundControl::GetLookAhead: *value = GetLookAheadFrames(); return true;
    case LSoundControl::GetLimitingFlag:
      *value = bClipped ? 1 : 0;
      bClipped = false;
      return true;
    case LSoundControl::PositionCorrection: {
      // The frames read ahead, as an offset below this stage: a loop or a speed
      // change under the limiter changes what they amount to.
      long back = -static_cast<long>(GetLookAheadFrames());
      lssSource->ControlMessage(LSoundControl::TranslateOffset, &back);
      *value += back;
      lssSource->ControlMessage(code, value);
      return true;
    }
    default: return lssSource->ControlMessage(code, value);
  }
}
