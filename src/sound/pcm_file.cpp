#include "sound/pcm_file.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "foundation/byte_order.h"
#include "sound/audio_buffer.h"

namespace {

class LSoundSourceErrorState final : public LSoundSourceError {
 public:
  explicit LSoundSourceErrorState(std::uint8_t state) { uErrorState = state; }
};

int FramesOf(std::int64_t bytes, int bytesPerFrame) {
  if (bytes <= 0 || bytesPerFrame <= 0) return 0;
  return static_cast<int>(std::min<std::int64_t>(bytes / bytesPerFrame, INT_MAX));
}

}  // namespace

LSoundSource LMakeErrorSource(std::uint8_t state) {
  return LSoundSource(new LSoundSourceErrorState(state));
}

bool LPCMFormatInRange(std::uint32_t rate, std::uint32_t channels) {
  return rate >= 1 && rate <= LPCMMaxSampleRate && channels >= 1 && channels <= LPCMMaxChannels;
}

LSRCPCMFileBase::LSRCPCMFileBase(LFile file, int sampleRate, int channels, float peakBound, int bytesPerFrame,
                                 std::int64_t dataStart, std::int64_t dataBytes, std::int64_t sizeFieldOffset)
    : LSoundSourceBase(sampleRate, channels, peakBound),
      lfFile(std::move(file)),
      iDataStart(dataStart < 0 ? 0 : dataStart),
      sEnd(0),
      iBytesPerFrame(bytesPerFrame),
      iSizeFieldOffset(sizeFieldOffset) {
  if (iBytesPerFrame <= 0) {
    uErrorState = LSoundErrorParameters;
    iBytesPerFrame = 2;
  }
  if (!lfFile.IsOpen()) {
    uErrorState = LSoundErrorCannotOpen;
    return;
  }
  if (dataBytes < 0) {
    sEnd = -1;
  } else {
    // A header may promise more than a cut-off file holds; the end is what is there.
    std::int64_t const there = std::max<std::int64_t>(lfFile.Size() - iDataStart, 0);
    sEnd = FramesOf(std::min(dataBytes, there), iBytesPerFrame);
  }
}

LSRCPCMFileBase::~LSRCPCMFileBase() {
  lfFile.Close();
  if (!szDeletePath.empty()) LFile::Remove(szDeletePath);
}

int LSRCPCMFileBase::GetEndSample() const {
  if (sEnd >= 0) return sEnd;
  if (!lfFile.IsOpen()) return 0;
  // The writer may have finished since: its size field is then a plausible count.
  std::uint8_t field[4];
  if (iSizeFieldOffset >= 0 && lfFile.ReadExactAt(field, 4, iSizeFieldOffset)) {
    std::uint32_t const size = LReadLE32(field);
    if (size < LPCMUnknownSizeFrom) {
      std::int64_t const there = std::max<std::int64_t>(lfFile.Size() - iDataStart, 0);
      sEnd = FramesOf(std::min<std::int64_t>(size, there), iBytesPerFrame);
      return sEnd;
    }
  }
  return FramesOf(lfFile.Size() - iDataStart, iBytesPerFrame);
}

void LSRCPCMFileBase::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  if (sPosition < 0) {
    int const zeros = std::min(frames, -sPosition);
    LZeroFrames(buffer, zeros, nChans);
    buffer += static_cast<std::size_t>(zeros) * nChans;
    frames -= zeros;
    sPosition += zeros;
  }
  while (frames > 0) {
    int want = std::min(frames, LSoundMaxReadFrames);
    if (sEnd >= 0) {
      if (sPosition >= sEnd) break;
      want = std::min(want, sEnd - sPosition);
    }
    std::int64_t const got = uErrorState == LSoundErrorNone
                                 ? lfFile.ReadAt(FrameBuffer(), static_cast<std::size_t>(want) * iBytesPerFrame,
                                                 iDataStart + static_cast<std::int64_t>(sPosition) * iBytesPerFrame)
                                 : 0;
    int const whole = got > 0 ? static_cast<int>(got / iBytesPerFrame) : 0;
    ConvertFrames(buffer, whole);
    buffer += static_cast<std::size_t>(whole) * nChans;
    frames -= whole;
    sPosition += whole;
    if (whole < want) {
      if (sEnd < 0) {
        // Still being written: what is not there yet stays to be read later.
        LZeroFrames(buffer, frames, nChans);
        return;
      }
      break;
    }
  }
  // At or past a known end, or the file gave less than it promised: silence, counted.
  LZeroFrames(buffer, frames, nChans);
  sPosition += frames;
}

LSNKPCMFileBase::LSNKPCMFileBase(std::string const& path, int sampleRate, int channels, int bytesPerSample, int bits,
                                 std::uint32_t formatCode, HeaderWriter writer, int startFrame)
    : LSoundSinkBase(sampleRate, channels),
      pWriteHeader(writer),
      iBytesPerSample(bytesPerSample),
      iBytesPerFrame(bytesPerSample * nChans),
      iBits(bits),
      uFormatCode(formatCode) {
  if (IsError()) return;  // no file for a sink that cannot be right
  if (!lfFile.OpenCreate(path)) {
    uErrorFlags |= LSoundSinkErrorFailed;
    return;
  }
  iHeaderBytes = pWriteHeader(*this, false);
  if (iHeaderBytes < 0) {
    iHeaderBytes = 0;
    uErrorFlags |= LSoundSinkErrorFailed;
    return;
  }
  if (startFrame > 0) {
    sPosition = startFrame;
    iStartFrame = startFrame;
    std::int64_t const there = std::max<std::int64_t>(lfFile.Size() - iHeaderBytes, 0);
    iDataBytes = std::min<std::int64_t>(static_cast<std::int64_t>(startFrame) * iBytesPerFrame, there);
    lfFile.Truncate(iHeaderBytes + iDataBytes);
  }
}

LSNKPCMFileBase::~LSNKPCMFileBase() {
  if (!lfFile.IsOpen()) return;
  pWriteHeader(*this, true);
  lfFile.Close();
}

void LSNKPCMFileBase::WriteBody(void const* data, std::size_t bytes) {
  std::int64_t const put = lfFile.WriteAt(data, bytes, iHeaderBytes + iDataBytes);
  if (put > 0) iDataBytes += put;
  if (put != static_cast<std::int64_t>(bytes)) uErrorFlags |= LSoundSinkErrorFailed;
}

void LSNKPCMFileBase::Seek(int frame) {
  if (!lfFile.IsOpen() || frame > sPosition) return;
  if (frame < 0) frame = 0;
  std::int64_t const bytes =
      std::clamp<std::int64_t>(static_cast<std::int64_t>(frame - iStartFrame) * iBytesPerFrame, 0, iDataBytes);
  if (!lfFile.Truncate(iHeaderBytes + bytes)) uErrorFlags |= LSoundSinkErrorFailed;
  iDataBytes = bytes;
  sPosition = frame;
}

int WriteHeaderRAW(LSNKPCMFileBase&, bool) {
  return 0;
}
