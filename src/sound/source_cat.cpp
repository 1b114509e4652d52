#include "sound/source_cat.h"

#include <algorithm>
#include <climits>

#include "sound/audio_buffer.h"
#include "sound/source_format.h"

LSoundSource LSoundSourceCat::OpenSource() const {
  int rate = 0;
  int channels = 0;
  for (Item const& item : items) {
    if (item.lss->IsError()) continue;
    rate = std::max(rate, item.lss->GetSampleRate());
    channels = std::max(channels, item.lss->GetChannels());
  }
  if (rate == 0) {
    rate = 8000;
    channels = 1;
  }
  return OpenSource(rate, channels);
}

LSoundSource LSoundSourceCat::OpenSource(int rate, int channels) const {
  return LSoundSource::Make<LSSRCCat>(*this, rate, channels);
}

LSSRCCat::LSSRCCat(LSoundSourceCat const& cat, int rate, int channels)
    : LSoundSourceBase(rate, channels, LSoundPeakInRange) {
  pieces.reserve(cat.GetItems().size());
  for (LSoundSourceCat::Item const& item : cat.GetItems()) {
    Piece piece;
    if (item.lss->IsError()) {
      piece.bSilence = true;
      piece.silentFrames = static_cast<int>(
          std::clamp<std::int64_t>(LSoundTimeToFrames(item.silence, sSampleRate), 0, INT_MAX));
    } else {
      piece.lss = item.lss;
      LSPConvertSourceRateChannels(sSampleRate, nChans, piece.lss);
      if (piece.lss->IsError()) {
        uErrorState = LSoundErrorBelow;
      } else {
        fPeakBound = std::max(fPeakBound, piece.lss->GetPeakBound());
      }
    }
    pieces.push_back(piece);
  }
  Open();
}

bool LSSRCCat::Open() {
  iCurrent = -1;
  sSilentLeft = 0;
  if (uCursor >= pieces.size()) return false;
  Piece& piece = pieces[uCursor];
  if (piece.bSilence) {
    sSilentLeft = piece.silentFrames;
  } else {
    piece.lss->Seek(0);
    iCurrent = static_cast<int>(uCursor);
  }
  ++uCursor;
  return true;
}

int LSSRCCat::PieceLength(Piece const& piece) const {
  return piece.bSilence ? piece.silentFrames : std::max(0, piece.lss->GetEndSample());
}

std::int64_t LSSRCCat::LeftInCurrent() const {
  if (iCurrent < 0) return sSilentLeft;
  LSoundSourceBase const& s = *pieces[static_cast<std::size_t>(iCurrent)].lss;
  return std::max<std::int64_t>(0, std::int64_t{s.GetEndSample()} - s.GetPositionSample());
}

void LSSRCCat::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const ch = nChans;
  auto advance = [&](int n) {
    buffer += static_cast<std::ptrdiff_t>(n) * ch;
    frames -= n;
    sPosition = static_cast<int>(std::min<std::int64_t>(std::int64_t{sPosition} + n, INT_MAX));
  };

  if (sPosition < 0) {
    int const lead = static_cast<int>(std::min<std::int64_t>(frames, -std::int64_t{sPosition}));
    LZeroFrames(buffer, lead, ch);
    advance(lead);
  }
  while (frames > 0) {
    int const n = static_cast<int>(std::min<std::int64_t>(frames, LeftInCurrent()));
    if (n > 0) {
      if (iCurrent >= 0) {
        pieces[static_cast<std::size_t>(iCurrent)].lss->Read(buffer, n);
      } else {
        LZeroFrames(buffer, n, ch);
        sSilentLeft -= n;
      }
      advance(n);
    } else if (!Open()) {
      LZeroFrames(buffer, frames, ch);
      advance(frames);
    }
  }
}

void LSSRCCat::Seek(int frame) {
  uCursor = 0;
  sPosition = frame;
  if (frame < 0) {
    Open();
    return;
  }
  std::int64_t rest = frame;
  while (Open()) {
    Piece const& piece = pieces[uCursor - 1];
    int const length = PieceLength(piece);
    if (rest < length) {
      if (piece.bSilence) {
        sSilentLeft = static_cast<int>(length - rest);
      } else {
        piece.lss->Seek(static_cast<int>(rest));
      }
      return;
    }
    rest -= length;
  }
  // Past the last item: a second of silence lets a player run out gently.
  iCurrent = -1;
  sSilentLeft = sSampleRate;
}

int LSSRCCat::GetEndSample() const {
  std::int64_t end = std::max(0, sPosition) + LeftInCurrent();
  for (std::size_t i = uCursor; i < pieces.size(); ++i) end += PieceLength(pieces[i]);
  return static_cast<int>(std::min<std::int64_t>(end, INT_MAX));
}

bool LSSRCCat::IsStreaming() const {
  if (iCurrent >= 0 && pieces[static_cast<std::size_t>(iCurrent)].lss->IsStreaming()) return true;
  for (std::size_t i = uCursor; i < pieces.size(); ++i) {
    if (!pieces[i].bSilence && pieces[i].lss->IsStreaming()) return true;
  }
  return false;
}

void LSSRCCat::WaitForStreamingData(int ms) {
  if (iCurrent >= 0 && pieces[static_cast<std::size_t>(iCurrent)].lss->IsStreaming()) {
    pieces[static_cast<std::size_t>(iCurrent)].lss->WaitForStreamingData(ms);
    return;
  }
  for (std::size_t i = uCursor; i < pieces.size(); ++i) {
    if (!pieces[i].bSilence && pieces[i].lss->IsStreaming()) {
      pieces[i].lss->WaitForStreamingData(ms);
      return;
    }
  }
  LSoundSourceBase::WaitForStreamingData(ms);
}
