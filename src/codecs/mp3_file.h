#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "codecs/mp3_header.h"
#include "codecs/mp3_layer3.h"
#include "sound/sound_source.h"

// Where a frame starts in the file.
struct LMP3FramePosition {
  std::int32_t iFrame = -1;   // -1: empty
  std::uint32_t uOffset = 0;
};

// Frame numbers and offsets seen so far in a VBR file, so that a seek can start
// near its target instead of at the beginning. One slot covers `stride` frames and
// keeps the first frame seen in it.
class LMP3FrameCache {
 public:
  static constexpr std::int64_t kMaxSlots = 7456540;

  // Sized for `totalSamples` at `samplesPerFrame` a frame. The stride of a larger file
  // comes from the sample total, which makes it larger than needed. Without memory
  // the cache stays empty and seeks work without it.
  void Init(std::int64_t totalSamples, int samplesPerFrame);
  // Keeps the frame unless its slot is filled. Gives false when the cache cannot
  // hold it.
  bool Store(int frame, std::uint32_t offset);
  // The nearest filled slot at or below `frame`'s; false if there is none.
  bool GetNearestPreviousFrame(int frame, int& outFrame, std::uint32_t& outOffset) const;

  int GetStride() const { return iStride; }
  std::size_t GetSlots() const { return vSlots.size(); }
  int GetHighestSlot() const { return iHighest; }

 private:
  std::vector<LMP3FramePosition> vSlots;
  int iStride = 1;
  int iHighest = -1;
};

// A seekable source over an MPEG-1, 2 or 2.5 Layer III file.
//
// The frame count comes from a Xing or VBRI tag, from the bit rate of a constant
// rate file, or from an estimate over the first 50 frames that is refined as the
// file plays. The decoder's own delay of 529 samples is removed in every file; with
// gapless set the encoder's delay and padding from a LAME tag are removed too.
// A damaged frame is dropped and play goes on at the next sound one, with its time
// kept. Integer samples are at full scale 2^27 (LMP3IntegerScale).
class LMP3Source : public LSoundSourceBase {
 public:
  static constexpr int kDecoderDelay = 529;
  // Frames decoded before a seek target to fill the bit reservoir and the overlap.
  static constexpr int kSeekRunIn = 23;

  LMP3Source(std::string const& path, bool scanWholeFile, bool gapless);

  void Read(float* buffer, int frames) override;
  void Read(std::int32_t* buffer, int frames);
  int GetPositionSample() const override;
  int GetEndSample() const override;
  void Seek(int frame) override;

  // What the file told about itself, for tests and the info command.
  int GetFrameCount() const { return iFrames; }
  int GetSkippedFrames() const { return iSkippedFrames; }
  bool IsVBR() const { return bVBR; }
  bool IsFrameCountFromTag() const { return bFrameCountFromTag; }
  int GetEncoderDelay() const { return iEncoderDelay; }
  int GetEndPadding() const { return iEndPadding; }
  int GetFirstBitRate() const { return iFirstBitRate; }
  std::string const& GetEncoderVersion() const { return szEncoderVersion; }
  int GetQualityA() const { return iQualityA; }
  int GetQualityB() const { return iQualityB; }
  int GetEncoderPreset() const { return iEncoderPreset; }
  std::int64_t GetFirstAudioOffset() const { return iFirstAudioOffset; }
  LMP3FrameCache const& GetFrameCache() const { return lfcCache; }

 private:
  bool DecodeInitialHeader();
  void DecodeLameTag(std::int64_t offset);
  bool DecodeHeader(LMP3Header& header, std::int64_t& frameStart);
  // Sample is std::int32_t or float; a null `out` decodes into aFrameBuffer.
  template <class Sample>
  bool ReadFrameAndDecode(Sample* out, int& tries, std::int64_t& frameStart);
  template <class Sample>
  bool BufferAudio(Sample* out);
  template <class Sample>
  void ReadSamples(Sample* buffer, int frames);
  bool SkipFrame();
  void FrameFound(int frame, std::int64_t offset, std::int64_t nextOffset);
  void GetNearestPreviousFrame(int frame, int& outFrame, std::int64_t& outOffset) const;
  void ResetDecoder();
  std::int64_t InternalPosition() const {
    return static_cast<std::int64_t>(iCurrentFrame) * iFrameSamples + iIndex;
  }
  bool PastEnd() const { return iFrames >= 0 && iCurrentFrame >= iFrames - iSkippedFrames; }

  LMP3ReadFile lrfFile;
  LMP3Header lhFirst;
  LMP3Layer3Decoder ldDecoder;
  LMP3FrameCache lfcCache;

  int iFrames = -1;          // -1 while unknown
  int iSkippedFrames = 0;    // dropped before the stream's first true sample
  int iCurrentFrame = 0;
  int iIndex = 0;            // into the current frame's samples
  int iBuffered = 0;         // samples per channel of the current frame in aFrameBuffer
  int iFrameSamples = 1152;
  bool bGapless;
  int iEncoderDelay = 0;
  int iEndPadding = 0;
  double dBytesPerFrame = 0;
  bool bVBR = false;
  bool bFrameCountFromTag = false;
  bool bPaddedFrames = false;
  int iFirstBitRate = 160;   // kbit/s
  std::string szEncoderVersion;
  int iQualityA = 4;
  int iQualityB = 3;
  int iEncoderPreset = 0;
  int iNextEstimateFrame = 0;
  std::int64_t iFirstAudioOffset = 0;
  std::int64_t iReadPosition = 0;  // where the frame after the last one read starts

  std::vector<std::int32_t> aFrameBuffer;  // one frame, interleaved
  std::vector<std::uint8_t> aFrameBytes;   // the frame being decoded
};

namespace LMP3File {
// The source for the file opener: `scanWholeFile` walks a VBR file at once for its
// exact length; gapless is always on. State 4: cannot open; 3: no frame found.
LSoundSource OpenSource(char const* path, bool scanWholeFile = false);
}  // namespace LMP3File
