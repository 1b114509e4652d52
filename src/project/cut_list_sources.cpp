#include "project/cut_list_sources.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "sound/audio_buffer.h"

namespace {

// Reads frames [first, first + frames) of an .aud into `out`, zeros where the file
// has none; applies the gain unless it is exactly 1.
void ReadAudFrames(LFile const& file, std::int64_t first, int frames, int channels, float gain, float* out) {
  std::size_t const frameBytes = static_cast<std::size_t>(channels) * sizeof(float);
  int got = 0;
  if (first < 0) {
    int const lead = static_cast<int>(std::min<std::int64_t>(-first, frames));
    LZeroFrames(out, lead, channels);
    got = lead;
  }
  if (got < frames && file.IsOpen()) {
    std::int64_t const bytes = file.ReadAt(out + static_cast<std::size_t>(got) * channels,
                                           static_cast<std::size_t>(frames - got) * frameBytes,
                                           (first + got) * static_cast<std::int64_t>(frameBytes));
    int const read = bytes > 0 ? static_cast<int>(bytes / static_cast<std::int64_t>(frameBytes)) : 0;
    if (gain != 1.0f) {
      float* p = out + static_cast<std::size_t>(got) * channels;
      for (std::size_t i = 0, n = static_cast<std::size_t>(read) * channels; i < n; ++i) p[i] *= gain;
    }
    got += read;
  }
  if (got < frames) LZeroFrames(out + static_cast<std::size_t>(got) * channels, frames - got, channels);
}

}  // namespace

// ---- one file ----

LCutListAudioCutSource::LCutListAudioCutSource(LAudioCutRef cut, int sampleRate, int channels, float gain)
    : LSoundSourceBase(sampleRate, channels, LSoundPeakUnknown), fGain(gain) {
  if (cut != LAudioCutRefNull) fAud.OpenRead(LAudioCutTank::Instance().GetFilePath(cut, ".aud"));
}

void LCutListAudioCutSource::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  ReadAudFrames(fAud, iPosition, frames, nChans, fGain, buffer);
  iPosition += frames;
}

int LCutListAudioCutSource::GetEndSample() const {
  if (!fAud.IsOpen()) return 0;
  std::int64_t const size = fAud.Size();
  return size > 0 ? static_cast<int>(size / (static_cast<std::int64_t>(nChans) * 4)) : 0;
}

// ---- one segment ----

LCutListSegmentSource::LCutListSegmentSource(LCutListSegment const& segment, int sampleRate, int channels)
    : LSoundSourceBase(sampleRate, channels, LSoundPeakUnknown), iStart(segment.iStart), iLength(segment.iLength) {
  if (segment.IsSilence()) {
    iStart = 0;
    lssInner = LSoundSource::Make<LSilenceSourceBase>(sampleRate, channels, segment.iLength);
  } else {
    lssInner = LSoundSource::Make<LCutListAudioCutSource>(segment.GetCut(), sampleRate, channels, segment.fGain);
    lssInner->Seek(iStart);
  }
  if (lssInner->IsError()) uErrorState = LSoundErrorBelow;
}

// ---- a whole list ----

LCutListAudioSource::LCutListAudioSource(LCutListAudio const& list)
    : LSoundSourceBase(list.GetSampleRate(), list.GetChannels(), LSoundPeakUnknown), clList(list) {
  if (clList.IsEmpty()) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  LAudioCutTank const& tank = LAudioCutTank::Instance();
  std::map<LAudioCutRef, int> files;
  vPieces.reserve(static_cast<std::size_t>(clList.GetSegmentCount()));
  std::int64_t at = 0;
  clList.ForEachSegment([&](LCutListSegment const& s) {
    int file = -1;
    if (!s.IsSilence()) {
      auto const [it, added] = files.try_emplace(s.GetCut(), static_cast<int>(vFiles.size()));
      if (added) {
        vFiles.emplace_back();
        vFiles.back().OpenRead(tank.GetFilePath(s.GetCut(), ".aud"));
      }
      file = it->second;
    }
    if (s.iLength > 0) vPieces.push_back(Piece{at, s.iStart, s.iLength, s.fGain, file});
    at += s.iLength;
  });
}

std::size_t LCutListAudioSource::FindPiece(std::int64_t position) const {
  if (position < 0) return vPieces.size();
  // The last piece that starts at or before the position.
  auto const it = std::upper_bound(vPieces.begin(), vPieces.end(), position,
                                   [](std::int64_t p, Piece const& piece) { return p < piece.iListStart; });
  if (it == vPieces.begin()) return vPieces.size();
  std::size_t const index = static_cast<std::size_t>(it - vPieces.begin()) - 1;
  Piece const& piece = vPieces[index];
  return position < piece.iListStart + piece.iLength ? index : vPieces.size();
}

void LCutListAudioSource::Seek(int frame) {
  iPosition = frame;
  iCurrent = FindPiece(iPosition);
}

void LCutListAudioSource::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  int const channels = nChans;
  while (frames > 0) {
    if (iCurrent >= vPieces.size()) {
      // Before the first frame or past the last: zeros up to where a piece begins.
      int n = frames;
      if (iPosition < 0 && !vPieces.empty()) n = static_cast<int>(std::min<std::int64_t>(frames, -iPosition));
      LZeroFrames(buffer, n, channels);
      buffer += static_cast<std::size_t>(n) * channels;
      frames -= n;
      iPosition += n;
      if (iPosition == 0) iCurrent = FindPiece(0);
      continue;
    }
    Piece const& piece = vPieces[iCurrent];
    std::int64_t const offset = iPosition - piece.iListStart;
    int const n = static_cast<int>(std::min<std::int64_t>(frames, piece.iLength - offset));
    if (piece.iFile < 0) {
      LZeroFrames(buffer, n, channels);
    } else {
      ReadAudFrames(vFiles[static_cast<std::size_t>(piece.iFile)], piece.iFileStart + offset, n, channels,
                    piece.fGain, buffer);
    }
    buffer += static_cast<std::size_t>(n) * channels;
    frames -= n;
    iPosition += n;
    if (offset + n >= piece.iLength) ++iCurrent;  // pieces are contiguous
  }
}

LSoundSource LCutListAudio::OpenSource() const { return LSoundSource::Make<LCutListAudioSource>(*this); }
