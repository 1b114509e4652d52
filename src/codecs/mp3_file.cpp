#include "codecs/mp3_file.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <type_traits>

#include "foundation/byte_order.h"
#include "sound/pcm_file.h"

namespace {

// The integers Read hands out, back to the float scale of sources.
constexpr float kFromInteger = 1.0f / LMP3IntegerScale;

// A frame's bytes after its header: the largest frame is 1441 bytes.
constexpr int kFrameBytes = 2048;

}  // namespace

// ---------------------------------------------------------------------------
// LMP3FrameCache

void LMP3FrameCache::Init(std::int64_t totalSamples, int samplesPerFrame) {
  vSlots.clear();
  iStride = 1;
  iHighest = -1;
  if (samplesPerFrame <= 0 || totalSamples <= 0) return;
  std::int64_t slots = totalSamples / samplesPerFrame;
  if (slots > kMaxSlots) {
    // The stride is taken from the sample total, not the slot count: larger than it
    // need be, which only makes the cache coarser.
    iStride = static_cast<int>(std::min<std::int64_t>(totalSamples / kMaxSlots, INT_MAX));
    slots = kMaxSlots;
  }
  // A few slots at least, so that a file far longer than its estimate still gets
  // a cache when the stride grows.
  slots = std::max<std::int64_t>(slots, 64);
  try {
    vSlots.assign(static_cast<std::size_t>(slots), LMP3FramePosition{});
  } catch (std::bad_alloc const&) {
    vSlots.clear();
    vSlots.shrink_to_fit();
    iStride = 1;
  }
}

bool LMP3FrameCache::Store(int frame, std::uint32_t offset) {
  if (vSlots.empty() || frame < 0) return false;
  std::size_t slot = static_cast<std::size_t>(frame / iStride);
  while (slot >= vSlots.size()) {
    // Full: rather than grow (this runs under Read, which must not allocate),
    // double the stride and keep one frame of every two slots.
    std::size_t const half = vSlots.size() / 2;
    for (std::size_t i = 0; i < half; ++i) {
      vSlots[i] = vSlots[2 * i].iFrame >= 0 ? vSlots[2 * i] : vSlots[2 * i + 1];
    }
    for (std::size_t i = half; i < vSlots.size(); ++i) vSlots[i] = LMP3FramePosition{};
    iStride = iStride > INT_MAX / 2 ? INT_MAX : iStride * 2;
    iHighest = iHighest < 0 ? -1 : iHighest / 2;
    slot = static_cast<std::size_t>(frame / iStride);
  }
  if (vSlots[slot].iFrame >= 0) return false;
  vSlots[slot].iFrame = frame;
  vSlots[slot].uOffset = offset;
  iHighest = std::max(iHighest, static_cast<int>(slot));
  return true;
}

bool LMP3FrameCache::GetNearestPreviousFrame(int frame, int& outFrame, std::uint32_t& outOffset) const {
  if (vSlots.empty() || iHighest < 0 || frame < 0) return false;
  std::int64_t slot = frame / iStride;
  slot = std::min<std::int64_t>(slot, static_cast<std::int64_t>(vSlots.size()) - 1);
  slot = std::min<std::int64_t>(slot, iHighest);
  for (; slot >= 0; --slot) {
    LMP3FramePosition const& p = vSlots[static_cast<std::size_t>(slot)];
    if (p.iFrame >= 0) {
      outFrame = p.iFrame;
      outOffset = p.uOffset;
      return true;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------
// LMP3Source

LMP3Source::LMP3Source(std::string const& path, bool scanWholeFile, bool gapless)
    : LSoundSourceBase(44100, 1, LSoundPeakUnknown),
      bGapless(gapless),
      aFrameBuffer(1152 * 2),
      aFrameBytes(kFrameBytes + LMP3BitReader::kPadBytes) {
  if (!lrfFile.Open(path)) {
    uErrorState = LSoundErrorCannotOpen;
    return;
  }
  if (!DecodeInitialHeader()) {
    uErrorState = LSoundErrorParameters;
    return;
  }
  sSampleRate = lhFirst.GetSampleRate();
  nChans = static_cast<std::uint8_t>(lhFirst.GetChannels());
  iFrameSamples = lhFirst.GetFrameSamples();
  iNextEstimateFrame = iFrames / 50;
  if (bVBR) {
    std::int64_t total = static_cast<std::int64_t>(iFrames) * iFrameSamples;
    if (!bFrameCountFromTag) total *= 2;  // an estimate may fall short
    lfcCache.Init(total, iFrameSamples);
  }
  if (scanWholeFile && bVBR) {
    lrfFile.Seek(iFirstAudioOffset);
    iReadPosition = iFirstAudioOffset;
    iCurrentFrame = 0;
    while (SkipFrame()) {
    }
  }
  // Settle the decoder: the second seek also fills the first slots of the cache.
  iCurrentFrame = 0;
  iIndex = 0;
  iBuffered = 0;
  Seek(0);
  Seek(22 * iFrameSamples);
  Seek(0);
}

bool LMP3Source::DecodeHeader(LMP3Header& header, std::int64_t& frameStart) {
  // A header of another version, rate or channel mode is a false sync or a foreign
  // stream; the search goes on past it, eleven times at most.
  for (int tries = 0; tries < 11; ++tries) {
    std::int64_t const before = lrfFile.Tell();
    LMP3Header h;
    if (!h.ReadHeader(lrfFile)) return false;
    frameStart = before + h.iSkipped;
    if (h.IsSameStream(lhFirst)) {
      header = h;
      return true;
    }
    lrfFile.Seek(frameStart + 1);
  }
  return false;
}

bool LMP3Source::DecodeInitialHeader() {
  LMP3ReadFile& f = lrfFile;
  f.Seek(f.GetFirstAudioByte());
  std::int64_t const before = f.Tell();
  if (!lhFirst.ReadHeader(f)) return false;
  std::int64_t const headerOffset = before + lhFirst.iSkipped;
  iFirstAudioOffset = headerOffset;
  iFirstBitRate = lhFirst.iBitRate / 1000;
  int const frameLength = lhFirst.GetFrameLength();
  std::int64_t const nextFrame = headerOffset + frameLength;

  // The side information of the first frame: all zero in a frame that only carries
  // a tag.
  int const sideSize = lhFirst.GetSideInfoSize();
  int const crc = lhFirst.bProtected ? 2 : 0;
  f.Skip(crc);
  std::uint8_t sideInfo[32] = {};
  bool sideNonZero = false;
  if (f.ReadExact(sideInfo, sideSize)) {
    for (int i = 0; i < sideSize; ++i) sideNonZero = sideNonZero || sideInfo[i] != 0;
  }
  int const rest = frameLength - 4 - crc - sideSize;

  bool tagDone = false;
  std::uint8_t id[4] = {};
  if (f.ReadExact(id, 4)) {
    if (std::memcmp(id, "Xing", 4) == 0) {
      std::uint8_t fields[8];
      if (f.ReadExact(fields, 8)) {
        std::uint32_t const flags = LReadBE32(fields);
        std::uint32_t const count = LReadBE32(fields + 4);
        DecodeLameTag(f.Tell() + 108);
        if (flags & 1) {
          iFrames = static_cast<int>(std::min<std::uint32_t>(count, INT_MAX));
          bVBR = true;
          bFrameCountFromTag = true;
          iFirstAudioOffset = nextFrame;
          tagDone = true;
        }
      }
    } else if (std::memcmp(id, "VBRI", 4) == 0) {
      std::uint8_t fields[14];
      if (f.ReadExact(fields, 14)) {
        std::uint32_t const count = LReadBE32(fields + 10);
        iFrames = static_cast<int>(std::min<std::uint32_t>(count, INT_MAX));
        bVBR = true;
        bFrameCountFromTag = true;
        f.Skip(rest - 18);
        iFirstAudioOffset = f.Tell();
        tagDone = true;
      }
    } else if (std::memcmp(id, "Info", 4) == 0) {
      DecodeLameTag(f.Tell() + 116);
    }
  }
  if (tagDone) return iFrames >= 0;

  f.Seek(nextFrame);
  if (!sideNonZero) iFirstAudioOffset = nextFrame;

  // Up to 50 frames tell the bit rate; a change after the first four means VBR.
  f.Seek(iFirstAudioOffset);
  iReadPosition = iFirstAudioOffset;
  long long rateSum = 0;
  int found = 0;
  int lastRate = 0;
  for (int i = 0; i < 50; ++i) {
    LMP3Header h;
    std::int64_t start = 0;
    if (!DecodeHeader(h, start)) break;
    rateSum += h.iBitRate;
    if (h.iPadding) bPaddedFrames = true;
    if (found >= 4 && h.iBitRate != lastRate) bVBR = true;
    lastRate = h.iBitRate;
    ++found;
    f.Seek(start + h.GetFrameLength());
  }
  if (found == 0) return false;

  int const rate = lhFirst.GetSampleRate();
  double const span = static_cast<double>(f.GetEndOfAudio() - iFirstAudioOffset);
  if (bVBR) {
    bPaddedFrames = false;
    double const average = static_cast<double>(rateSum) / found;
    dBytesPerFrame = average * lhFirst.GetFactor() / rate;
    iFrames = dBytesPerFrame > 0 ? static_cast<int>(std::min(span / dBytesPerFrame, static_cast<double>(INT_MAX))) : -1;
  } else {
    dBytesPerFrame = static_cast<double>(iFirstBitRate) * 1000.0 * lhFirst.GetFactor() / rate;
    if (!bPaddedFrames) dBytesPerFrame = std::floor(dBytesPerFrame);
    iFrames = dBytesPerFrame > 0 ? static_cast<int>(std::min(std::round(span / dBytesPerFrame), static_cast<double>(INT_MAX)))
                                 : -1;
  }
  if (iFrames < 0) iFrames = -1;
  return true;
}

void LMP3Source::DecodeLameTag(std::int64_t o) {
  if (o <= 119) return;
  std::uint8_t tag[28];
  std::uint8_t quality = 0;
  if (!lrfFile.ReadAt(tag, 28, o) || std::memcmp(tag, "LAME", 4) != 0) return;
  if (!lrfFile.ReadAt(&quality, 1, o - 1)) return;
  int q = quality;
  if (q < 1 || q > 100) q = 57;
  int const v = 100 - q;
  iQualityA = v % 10;
  iQualityB = v / 10;
  szEncoderVersion.assign(reinterpret_cast<char const*>(tag), 9);
  iEncoderPreset = ((tag[26] << 8) | tag[27]) & 0x7FF;
  iEncoderDelay = (tag[21] << 4) | (tag[22] >> 4);
  iEndPadding = ((tag[22] & 15) << 8) | tag[23];
}

template <class Sample>
bool LMP3Source::ReadFrameAndDecode(Sample* out, int& tries, std::int64_t& frameStart) {
  tries = 0;
  for (;;) {
    ++tries;
    LMP3Header h;
    if (!DecodeHeader(h, frameStart)) return false;
    if (frameStart < iReadPosition) return false;  // the stream went backwards
    int const body = h.GetFrameLength() - 4;
    if (body > kFrameBytes || lrfFile.Read(aFrameBytes.data(), body) != body) return false;
    int const crc = h.bProtected ? 2 : 0;
    int const mainBytes = body - crc - h.GetSideInfoSize();
    if (mainBytes >= 0 && ldDecoder.DecodeSideInformation(h, aFrameBytes.data() + crc, mainBytes)) {
      ldDecoder.DecodeFrame(h, aFrameBytes.data() + crc + h.GetSideInfoSize(), mainBytes, out);
      iReadPosition = frameStart + body + 4;
      return true;
    }
  }
}

template <class Sample>
bool LMP3Source::BufferAudio(Sample* out) {
  int tries = 0;
  std::int64_t start = 0;
  bool const decoded = out != nullptr ? ReadFrameAndDecode(out, tries, start)
                                      : ReadFrameAndDecode(aFrameBuffer.data(), tries, start);
  if (!decoded) {
    iFrames = iSkippedFrames + iCurrentFrame;
    iBuffered = 0;
    return false;
  }
  int const dropped = tries - 1;
  if (dropped > 0) {
    // Frames that did not decode still took their time, unless they came before the
    // stream's first true sample: then the stream simply starts later.
    if (InternalPosition() > kDecoderDelay) iCurrentFrame += dropped;
    else iSkippedFrames += dropped;
  }
  FrameFound(iCurrentFrame, start, iReadPosition);
  iBuffered = out != nullptr ? 0 : iFrameSamples;
  return true;
}

bool LMP3Source::SkipFrame() {
  LMP3Header h;
  std::int64_t start = 0;
  if (!DecodeHeader(h, start)) {
    iFrames = iSkippedFrames + iCurrentFrame;
    return false;
  }
  std::int64_t const next = start + h.GetFrameLength();
  FrameFound(iCurrentFrame, start, next);
  lrfFile.Seek(next);
  iReadPosition = next;
  ++iCurrentFrame;
  return true;
}

void LMP3Source::FrameFound(int frame, std::int64_t offset, std::int64_t nextOffset) {
  if (!bVBR) return;
  bool const stored = lfcCache.Store(frame, static_cast<std::uint32_t>(offset));
  if (!stored && lfcCache.GetSlots() > 0) return;  // seen before: nothing to learn
  if (bFrameCountFromTag || frame < iNextEstimateFrame || nextOffset == iFirstAudioOffset) return;
  // The length of a file without a tag: the bytes per frame so far, applied to the
  // bytes left. It sharpens as play goes on, every 2% of what remains.
  double const perFrame = static_cast<double>(nextOffset - iFirstAudioOffset) / (frame + iSkippedFrames + 1);
  if (!(perFrame > 0)) return;
  std::int64_t const left = lrfFile.GetEndOfAudio() - nextOffset;
  std::int64_t remaining = static_cast<std::int64_t>(static_cast<double>(std::max<std::int64_t>(left, 0)) / perFrame);
  if (remaining != 0 || left > 0) ++remaining;
  std::int64_t const count = remaining + frame + iSkippedFrames + 1;
  iFrames = static_cast<int>(std::min<std::int64_t>(count, INT_MAX));
  iNextEstimateFrame = static_cast<int>(std::min<std::int64_t>(frame + remaining / 50, INT_MAX));
}

void LMP3Source::GetNearestPreviousFrame(int frame, int& outFrame, std::int64_t& outOffset) const {
  outFrame = 0;
  outOffset = iFirstAudioOffset;
  if (frame <= 0) return;
  if (bVBR) {
    int f = 0;
    std::uint32_t offset = 0;
    if (lfcCache.GetNearestPreviousFrame(frame, f, offset)) {
      outFrame = f;
      outOffset = offset;
    }
    return;
  }
  // Constant rate: the frame lies near its share of the bytes; the search starts a
  // byte early so that rounding down cannot land past its header.
  double const product = frame * dBytesPerFrame;
  outFrame = frame;
  outOffset = static_cast<std::int64_t>(product) + iFirstAudioOffset - (product != 0 ? 1 : 0);
}

void LMP3Source::ResetDecoder() {
  ldDecoder.Reset();
  iBuffered = 0;
}

void LMP3Source::Seek(int position) {
  if (uErrorState != LSoundErrorNone) return;
  if (position == GetPositionSample() || iFrames == 0) return;
  std::int64_t const target =
      static_cast<std::int64_t>(position) + kDecoderDelay + (bGapless ? iEncoderDelay : 0);
  // A failure on the way has cut the frame count to what exists; the seek then
  // starts over with the same target, a few times at most.
  for (int attempt = 0; attempt < 8; ++attempt) {
    ResetDecoder();
    if (iFrames >= 0 && target >= static_cast<std::int64_t>(iFrames - iSkippedFrames) * iFrameSamples) {
      iCurrentFrame = static_cast<int>(std::min<std::int64_t>(target / iFrameSamples, INT_MAX));
      iIndex = static_cast<int>(target % iFrameSamples);
      return;
    }
    if (target < 1) {
      iCurrentFrame = static_cast<int>(target / iFrameSamples);
      iIndex = static_cast<int>(target % iFrameSamples);
      lrfFile.Seek(iFirstAudioOffset);
      iReadPosition = iFirstAudioOffset;
      return;
    }
    int const frame = static_cast<int>(target / iFrameSamples);
    int const warmFrom = std::max(0, frame - kSeekRunIn);
    int from = 0;
    std::int64_t offset = 0;
    GetNearestPreviousFrame(warmFrom, from, offset);
    lrfFile.Seek(offset);
    iReadPosition = offset;
    iCurrentFrame = from;
    iIndex = 0;
    bool ok = true;
    while (ok && iCurrentFrame < warmFrom) ok = SkipFrame();
    // Decoding for real from here refills the bit reservoir and the overlap.
    while (ok && iCurrentFrame < frame) {
      ok = BufferAudio<std::int32_t>(nullptr);
      if (ok) {
        ++iCurrentFrame;
        iBuffered = 0;
      }
    }
    if (ok) ok = BufferAudio<std::int32_t>(nullptr);
    if (!ok) continue;
    std::int64_t const index = target - static_cast<std::int64_t>(iCurrentFrame) * iFrameSamples;
    iIndex = static_cast<int>(std::clamp<std::int64_t>(index, 0, iFrameSamples - 1));
    return;
  }
}

int LMP3Source::GetPositionSample() const {
  std::int64_t const p = InternalPosition() - kDecoderDelay - (bGapless ? iEncoderDelay : 0);
  return static_cast<int>(std::clamp<std::int64_t>(p, INT_MIN, INT_MAX));
}

int LMP3Source::GetEndSample() const {
  if (uErrorState != LSoundErrorNone || iFrames < 0) return 0;
  std::int64_t end = static_cast<std::int64_t>(iFrames - iSkippedFrames) * iFrameSamples;
  if (bGapless) end -= iEncoderDelay + iEndPadding;
  return static_cast<int>(std::clamp<std::int64_t>(end, 0, INT_MAX));
}

void LMP3Source::Read(std::int32_t* buffer, int frames) { ReadSamples(buffer, frames); }

// Floats are the integers times 2^-27, whichever way they are made: whole frames are
// decoded straight to floats, and what a frame left over goes through the integers.
void LMP3Source::Read(float* buffer, int frames) { ReadSamples(buffer, frames); }

template <class Sample>
void LMP3Source::ReadSamples(Sample* buffer, int frames) {
  int const ch = nChans;
  auto moveTo = [&](std::int64_t p) {
    // Floor division, so that a negative position keeps a non-negative index.
    std::int64_t f = p / iFrameSamples;
    if (p < 0 && f * iFrameSamples != p) --f;
    iCurrentFrame = static_cast<int>(std::clamp<std::int64_t>(f, INT_MIN, INT_MAX));
    iIndex = static_cast<int>(p - f * iFrameSamples);
  };
  auto zeros = [&](int n) {
    std::memset(buffer, 0, static_cast<std::size_t>(n) * ch * sizeof(Sample));
    buffer += static_cast<std::size_t>(n) * ch;
    frames -= n;
  };
  if (uErrorState != LSoundErrorNone) {
    zeros(std::max(frames, 0));
    return;
  }
  while (frames > 0) {
    std::int64_t const p = InternalPosition();
    if (p < 0) {
      int const n = static_cast<int>(std::min<std::int64_t>(frames, -p));
      zeros(n);
      iBuffered = 0;
      moveTo(p + n);
      continue;
    }
    if (PastEnd()) {
      int const n = frames;
      zeros(n);
      moveTo(p + n);
      return;
    }
    if (iBuffered > 0) {
      int const n = std::min(frames, iBuffered - iIndex);
      std::int32_t const* from = aFrameBuffer.data() + static_cast<std::size_t>(iIndex) * ch;
      if constexpr (std::is_same_v<Sample, float>) {
        for (int i = 0; i < n * ch; ++i) buffer[i] = static_cast<float>(from[i]) * kFromInteger;
      } else {
        std::memcpy(buffer, from, static_cast<std::size_t>(n) * ch * sizeof(std::int32_t));
      }
      buffer += static_cast<std::size_t>(n) * ch;
      frames -= n;
      iIndex += n;
      if (iIndex >= iBuffered) {
        ++iCurrentFrame;
        iIndex = 0;
        iBuffered = 0;
      }
      continue;
    }
    if (iIndex == 0 && frames >= iFrameSamples) {
      // A whole frame goes straight to the caller.
      if (BufferAudio(buffer)) {
        buffer += static_cast<std::size_t>(iFrameSamples) * ch;
        frames -= iFrameSamples;
        ++iCurrentFrame;
      }
      continue;
    }
    BufferAudio<std::int32_t>(nullptr);  // on failure the end has moved here, and zeros follow
  }
}

LSoundSource LMP3File::OpenSource(char const* path, bool scanWholeFile) {
  return LSoundSource::Make<LMP3Source>(std::string(path != nullptr ? path : ""), scanWholeFile, true);
}
