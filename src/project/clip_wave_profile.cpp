#include "project/clip_wave_profile.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "foundation/file.h"
#include "project/cut_list_files.h"

namespace {

std::int64_t PixelStart(int pixel, double spp) { return static_cast<std::int64_t>(std::floor(pixel * spp)); }

std::uint8_t ToByte(float peak) {
  if (!(peak > 0.0f)) return 0;
  return static_cast<std::uint8_t>(std::min(255.0f, peak * 255.0f));
}

}  // namespace

void TDProfileHighRes(LCutListAudio const& list, std::int64_t startFrame, std::int64_t endFrame, int pixels,
                      std::uint8_t* upper, std::uint8_t* lower) {
  if (pixels <= 0) return;
  std::memset(upper, 0, static_cast<std::size_t>(pixels));
  std::memset(lower, 0, static_cast<std::size_t>(pixels));
  LSoundSource source = list.OpenSource();
  if (!source.IsGood() || endFrame <= startFrame) return;
  int const channels = source->GetChannels();
  double const spp = static_cast<double>(endFrame - startFrame) / pixels;
  std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * channels);
  source->Seek(static_cast<int>(startFrame));
  for (int p = 0; p < pixels; ++p) {
    std::int64_t left = PixelStart(p + 1, spp) - PixelStart(p, spp);
    float hi = 0.0f;
    float lo = 0.0f;
    while (left > 0) {
      int const n = static_cast<int>(std::min<std::int64_t>(left, LSoundMaxReadFrames));
      source->Read(block.data(), n);
      for (std::size_t i = 0, count = static_cast<std::size_t>(n) * channels; i < count; ++i) {
        hi = std::max(hi, block[i]);
        lo = std::min(lo, block[i]);
      }
      left -= n;
    }
    upper[p] = ToByte(hi);
    lower[p] = ToByte(-lo);
  }
}

void TDProfileLowRes(LCutListAudio const& list, std::int64_t startFrame, std::int64_t endFrame, int pixels,
                     std::uint8_t* upper, std::uint8_t* lower) {
  if (pixels <= 0) return;
  std::memset(upper, 0, static_cast<std::size_t>(pixels));
  std::memset(lower, 0, static_cast<std::size_t>(pixels));
  if (endFrame <= startFrame) return;
  int const channels = list.GetChannels();
  if (channels < 1) return;
  struct Piece {
    std::int64_t iListStart;
    std::int64_t iLength;
    std::int64_t iFileStart;
    float fGain;
    LAudioCutRef cut;
  };
  std::vector<Piece> pieces;
  std::int64_t at = 0;
  list.ForEachSegment([&](LCutListSegment const& s) {
    if (s.iLength > 0 && !s.IsSilence() && s.fGain != 0.0f) {
      pieces.push_back(Piece{at, s.iLength, s.iStart, s.fGain, s.GetCut()});
    }
    at += s.iLength;
  });

  std::map<LAudioCutRef, LFile> files;
  int const recordBytes = channels * 2;
  int const recordsPerRead = std::max(1, 512 / channels);
  std::vector<std::uint8_t> records(static_cast<std::size_t>(recordsPerRead) * recordBytes);
  double const spp = static_cast<double>(endFrame - startFrame) / pixels;
  std::size_t first = 0;  // the first piece that may still overlap a pixel
  for (int p = 0; p < pixels; ++p) {
    std::int64_t const a = startFrame + PixelStart(p, spp);
    std::int64_t const b = startFrame + PixelStart(p + 1, spp);
    while (first < pieces.size() && pieces[first].iListStart + pieces[first].iLength <= a) ++first;
    float hi = 0.0f;
    float lo = 0.0f;
    for (std::size_t i = first; i < pieces.size() && pieces[i].iListStart < b; ++i) {
      Piece const& piece = pieces[i];
      std::int64_t const from = piece.iFileStart + std::max(a, piece.iListStart) - piece.iListStart;
      std::int64_t const to = piece.iFileStart + std::min(b, piece.iListStart + piece.iLength) - piece.iListStart;
      if (from >= to) continue;
      auto [it, added] = files.try_emplace(piece.cut);
      if (added) it->second.OpenRead(LAudioCutTank::Instance().GetFilePath(piece.cut, ".grf"));
      if (!it->second.IsOpen()) continue;
      std::uint8_t peakUp = 0;
      std::uint8_t peakDown = 0;
      for (std::int64_t r = from / LGrfFramesPerRecord, last = (to - 1) / LGrfFramesPerRecord; r <= last;) {
        int const want = static_cast<int>(std::min<std::int64_t>(recordsPerRead, last - r + 1));
        std::int64_t const got = it->second.ReadAt(records.data(), static_cast<std::size_t>(want) * recordBytes,
                                                   r * recordBytes);
        int const whole = got > 0 ? static_cast<int>(got / recordBytes) : 0;
        for (int k = 0; k < whole * channels; ++k) {
          peakUp = std::max(peakUp, records[static_cast<std::size_t>(k) * 2]);
          peakDown = std::max(peakDown, records[static_cast<std::size_t>(k) * 2 + 1]);
        }
        if (whole < want) break;  // the summary is shorter than the audio
        r += want;
      }
      hi = std::max(hi, std::min(255.0f, peakUp * piece.fGain));
      lo = std::max(lo, std::min(255.0f, peakDown * piece.fGain));
    }
    upper[p] = static_cast<std::uint8_t>(hi);
    lower[p] = static_cast<std::uint8_t>(lo);
  }
}
