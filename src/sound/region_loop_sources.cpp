#include "sound/region_loop_sources.h"

#include <algorithm>
#include <climits>

#include "sound/audio_buffer.h"

namespace {

int ClampToInt(std::int64_t v) {
  return static_cast<int>(std::clamp<std::int64_t>(v, INT_MIN, INT_MAX));
}

}  // namespace

LRegionSourceBase::LRegionSourceBase(LSoundSource const& source, int start, int end)
    : LSoundProcessBase(source, source->GetChannels(), LSoundPeakUnknown),
      sStart(std::min(start, end)),
      sEnd(std::max(start, end)),
      sPosition(sStart) {
  lssSource->Seek(std::clamp(sStart, 0, std::max(0, lssSource->GetEndSample())));
}

void LRegionSourceBase::Seek(int frame) {
  sPosition = std::clamp(frame, sStart, sEnd);
  lssSource->Seek(std::clamp(sPosition, 0, std::max(0, lssSource->GetEndSample())));
}

void LRegionSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  int done = 0;
  // A region may begin before the source's frame 0: the source waits at 0 while
  // zeros are played up to it.
  if (sPosition < 0 && sPosition < sEnd) {
    std::int64_t const lead = std::min<std::int64_t>({frames, -std::int64_t{sPosition}, std::int64_t{sEnd} - sPosition});
    LZeroFrames(buffer, static_cast<int>(lead), ch);
    done = static_cast<int>(lead);
  }
  std::int64_t const here = std::int64_t{sPosition} + done;
  if (done < frames && here < sEnd) {
    int const fromSource = static_cast<int>(std::min<std::int64_t>(frames - done, sEnd - here));
    lssSource->Read(buffer + static_cast<std::ptrdiff_t>(done) * ch, fromSource);
    done += fromSource;
  }
  LZeroFrames(buffer + static_cast<std::ptrdiff_t>(done) * ch, frames - done, ch);
  sPosition = ClampToInt(std::int64_t{sPosition} + frames);
}

LLoopSourceBase::LLoopSourceBase(LSoundSource const& source, int start, int end)
    : LSoundProcessBase(source, source->GetChannels(), LSoundPeakUnknown) {
  // A loop given backwards covers the same span.
  std::int64_t s = std::min(start, end);
  std::int64_t e = std::max(start, end);
  std::int64_t const sourceEnd = std::max(0, lssSource->GetEndSample());
  std::int64_t length = e - s;
  // Fit the loop into the source, keeping its length when it lies past the end.
  if (s < 0) {
    s = 0;
  } else if (s > sourceEnd) {
    s = std::max<std::int64_t>(0, sourceEnd - length);
  }
  length = e - s;
  if (e < 0) {
    e = 0;
  } else if (e > sourceEnd) {
    e = sourceEnd;
  }
  if (e < s) e = s;
  length = e - s;
  sStart = static_cast<int>(s);
  sEnd = static_cast<int>(e);
  sLength = static_cast<int>(length);
}

std::int64_t LLoopSourceBase::Fold(std::int64_t t) const {
  if (sLength <= 0) return t;
  if (t < sStart) t = sEnd - ((sStart - t) % sLength);
  if (t > sEnd) t = sStart + ((t - sEnd) % sLength);
  return t;
}

void LLoopSourceBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  if (sLength <= 0) {
    LZeroFrames(buffer, frames, ch);
    return;
  }
  while (frames > 0) {
    std::int64_t left = std::int64_t{sEnd} - lssSource->GetPositionSample();
    if (left < 1) {
      lssSource->Seek(sStart);
      left = std::int64_t{sEnd} - lssSource->GetPositionSample();
      // A source that cannot seek back would spin here for good.
      if (left < 1) {
        LZeroFrames(buffer, frames, ch);
        return;
      }
    }
    int const n = static_cast<int>(std::min<std::int64_t>(frames, left));
    lssSource->Read(buffer, n);
    buffer += static_cast<std::ptrdiff_t>(n) * ch;
    frames -= n;
  }
}

void LLoopSourceBase::Seek(int frame) { lssSource->Seek(static_cast<int>(Fold(frame))); }

int LLoopSourceBase::AdjustRelativeOffset(int offset, int position) {
  int const below = lssSource->AdjustRelativeOffset(offset, position);
  std::int64_t const t = Fold(std::int64_t{position} + below);
  return ClampToInt(t - position);
}

bool LLoopSourceBase::ControlMessage(int code, long* value) {
  if (value == nullptr) return lssSource->ControlMessage(code, value);
  if (code == LSoundControl::TranslateOffset) {
    lssSource->ControlMessage(code, value);
    std::int64_t const here = lssSource->GetPositionSample();
    std::int64_t const t = Fold(here + std::clamp<long>(*value, INT_MIN, INT_MAX));
    *value = static_cast<long>(t - here);
    return true;
  }
  if (code == LSoundControl::FoldIntoLoop) {
    if (sLength > 0) {
      std::int64_t const v = std::clamp<long>(*value, INT_MIN, INT_MAX);
      if (v < sStart) *value = static_cast<long>(sEnd - ((sStart - v) % sLength));
    }
    lssSource->ControlMessage(code, value);
    return true;
  }
  return lssSource->ControlMessage(code, value);
}

LLoopSourcePrerollBase::LLoopSourcePrerollBase(LSoundSource const& source, int preStart, int loopStart, int loopEnd)
    : LSoundProcessBase(source, source->GetChannels(), LSoundPeakUnknown),
      lssLoop(new LLoopSourceBase(source, loopStart, loopEnd)) {
  Seek(preStart);
}

void LLoopSourcePrerollBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  if (!bLooping) {
    std::int64_t const left = std::int64_t{lssLoop->GetLoopEnd()} - lssSource->GetPositionSample();
    if (left >= frames) {
      lssSource->Read(buffer, frames);
      return;
    }
    if (left > 0) {
      int const n = static_cast<int>(left);
      lssSource->Read(buffer, n);
      buffer += static_cast<std::ptrdiff_t>(n) * ch;
      frames -= n;
    }
    bLooping = true;
  }
  lssLoop->Read(buffer, frames);
}

void LLoopSourcePrerollBase::Seek(int frame) {
  bLooping = frame >= lssLoop->GetLoopEnd();
  if (bLooping) {
    lssLoop->Seek(frame);
  } else {
    lssSource->Seek(frame);
  }
}

int LLoopSourcePrerollBase::AdjustRelativeOffset(int offset, int position) {
  if (bLooping) return lssLoop->AdjustRelativeOffset(offset, position);
  int const below = lssSource->AdjustRelativeOffset(offset, position);
  std::int64_t t = std::int64_t{position} + below;
  // Frames of the run-in stand where they are; only those past the loop's end
  // have come round again.
  if (t > lssLoop->GetLoopEnd()) t = lssLoop->Fold(t);
  return ClampToInt(t - position);
}

bool LLoopSourcePrerollBase::ControlMessage(int code, long* value) {
  if (bLooping || value == nullptr) return lssLoop->ControlMessage(code, value);
  if (code == LSoundControl::TranslateOffset) {
    lssSource->ControlMessage(code, value);
    std::int64_t const here = lssSource->GetPositionSample();
    std::int64_t t = here + std::clamp<long>(*value, INT_MIN, INT_MAX);
    if (t > lssLoop->GetLoopEnd()) t = lssLoop->Fold(t);
    *value = static_cast<long>(t - here);
    return true;
  }
  if (code == LSoundControl::FoldIntoLoop) {
    // In the run-in a position before the loop is where the sound really is.
    lssSource->ControlMessage(code, value);
    return true;
  }
  return lssSource->ControlMessage(code, value);
}
