#include "sound/scrub_source.h"

#include <algorithm>

LScrubSourceBase::LScrubSourceBase(LSoundSource const& source, int point)
    : LSoundProcessBase(source, source->GetChannels(), source->GetPeakBound()),
      iWindow(std::max(source->GetSampleRate() / 10, 20)),
      iFade(std::max(source->GetSampleRate() / 20, 1)),
      fFadeStep(1.0f / static_cast<float>(iFade)),
      pHead(new float[static_cast<std::size_t>(LSoundMaxReadFrames) * source->GetChannels()]),
      pTail(new float[static_cast<std::size_t>(LSoundMaxReadFrames) * source->GetChannels()]) {
  // The fade must leave something of the window to play.
  if (iFade >= iWindow) iFade = iWindow / 2;
  fFadeStep = 1.0f / static_cast<float>(std::max(iFade, 1));
  SetPoint(point);
  bNoFade = true;  // the first turn has nothing before it
}

void LScrubSourceBase::SetPoint(int point) {
  iStart = std::max(0, point - iWindow / 2);
  iEnd = iStart + iWindow - iFade;
  int const at = lssSource->GetPositionSample();
  if (at < iStart + iFade || at >= iEnd) {
    bNoFade = at < iStart + iFade;
    lssSource->Seek(iStart);
  }
}

void LScrubSourceBase::SetSource(LSoundSource const& source) {
  int const at = lssSource->GetPositionSample();
  lssSource = source;
  lssSource->Seek(at);
}

void LScrubSourceBase::Seek(int frame) {
  if (frame < iStart || frame >= iEnd) frame = iStart;
  lssSource->Seek(frame);
}

void LScrubSourceBase::Read(float* buffer, int frames) {
  if (IsError()) {
    std::fill(buffer, buffer + static_cast<std::size_t>(frames) * nChans, 0.0f);
    return;
  }
  std::size_t const ch = static_cast<std::size_t>(nChans);
  while (frames > 0) {
    int pos = lssSource->GetPositionSample();
    if (pos >= iEnd || pos < iStart) {
      lssSource->Seek(iStart);
      pos = iStart;
    }
    int const turn = pos - iStart;  // frames into this turn
    int k = std::min(frames, iEnd - pos);
    if (turn < iFade && !bNoFade) {
      // The head of the turn, faded in over what would have followed the last turn.
      k = std::min(k, iFade - turn);
      lssSource->Read(pHead.get(), k);
      lssSource->Seek(iEnd + turn);
      lssSource->Read(pTail.get(), k);
      lssSource->Seek(pos + k);
      for (int f = 0; f < k; ++f) {
        float const w = static_cast<float>(turn + f) * fFadeStep;
        for (std::size_t c = 0; c < ch; ++c) {
          std::size_t const i = static_cast<std::size_t>(f) * ch + c;
          buffer[i] = pTail[i] * (1.0f - w) + pHead[i] * w;
        }
      }
    } else {
      lssSource->Read(buffer, k);
      if (turn + k >= iFade) bNoFade = false;
    }
    buffer += static_cast<std::size_t>(k) * ch;
    frames -= k;
  }
}
