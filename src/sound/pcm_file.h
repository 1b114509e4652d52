#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "foundation/file.h"
#include "sound/sample_formats.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Error states of file sources, beyond the first three that every source knows.
// State 3 (LSoundErrorParameters) also stands for a bad or truncated header.
inline constexpr std::uint8_t LSoundErrorCannotOpen = 4;  // the file cannot be opened
inline constexpr std::uint8_t LSoundErrorNoDecoder = 5;   // no decoder for this format
inline constexpr std::uint8_t LSoundErrorRefused = 7;     // the format is known but refused

// An error source (mono, 11025 Hz, silent) carrying `state`.
LSoundSource LMakeErrorSource(std::uint8_t state);

// The largest rate and channel count a file may state; anything outside is a
// damaged header, not a format to play.
inline constexpr std::uint32_t LPCMMaxSampleRate = 196000;
inline constexpr int LPCMMaxChannels = 255;
bool LPCMFormatInRange(std::uint32_t rate, std::uint32_t channels);

// A 32-bit data size at or above this stands for "not known yet": the writer has
// not finished (our own unfinished files say 0xFFFFFFD9).
inline constexpr std::uint32_t LPCMUnknownSizeFrom = 0xFFFFFF01u;

// Source over an uncompressed or companded body of interleaved fixed-size frames.
//
// The end is the body's size in frames, or unknown (negative) while the file is
// still being written: then GetEndSample looks again at the header's size field and
// otherwise at the file's size, so a recording in progress can be followed. Reads
// go by absolute offset, so the file position means nothing here.
class LSRCPCMFileBase : public LSoundSourceBase {
 public:
  // Takes over `file`; a closed one gives error state 4. `dataBytes` negative: the
  // size is not known yet, and `sizeFieldOffset` (if not negative) is where a 32-bit
  // little-endian size may appear later. A known size beyond the end of the file is
  // cut to what the file holds.
  LSRCPCMFileBase(LFile file, int sampleRate, int channels, float peakBound, int bytesPerFrame, std::int64_t dataStart,
                  std::int64_t dataBytes, std::int64_t sizeFieldOffset);
  ~LSRCPCMFileBase() override;

  void Read(float* buffer, int frames) final;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override;
  void Seek(int frame) override { sPosition = frame; }
  bool IsStreaming() const override { return sEnd < 0; }

  // The file goes when the source does (temporary files of decoders).
  void DeleteFileWhenClosed(std::string path) { szDeletePath = std::move(path); }
  int GetBytesPerFrame() const { return iBytesPerFrame; }

 protected:
  // A buffer of LSoundMaxReadFrames frames, and its conversion to float.
  virtual void* FrameBuffer() = 0;
  virtual void ConvertFrames(float* out, int frames) = 0;

 private:
  LFile lfFile;
  std::int64_t iDataStart;
  int sPosition = 0;
  mutable int sEnd;  // frames; negative while unknown
  int iBytesPerFrame;
  std::int64_t iSizeFieldOffset;
  std::string szDeletePath;
};

template <class F>
class LSRCPCMFile final : public LSRCPCMFileBase {
 public:
  LSRCPCMFile(LFile file, int sampleRate, int channels, float peakBound, std::int64_t dataStart, std::int64_t dataBytes,
              std::int64_t sizeFieldOffset = -1)
      : LSRCPCMFileBase(std::move(file), sampleRate, channels, peakBound,
                        static_cast<int>(sizeof(F)) * (channels >= 1 && channels <= 255 ? channels : 1), dataStart,
                        dataBytes, sizeFieldOffset),
        vBuffer(static_cast<std::size_t>(LSoundMaxReadFrames) * nChans) {}

 protected:
  void* FrameBuffer() override { return vBuffer.data(); }
  void ConvertFrames(float* out, int frames) override { ConvertSamplesIn(out, vBuffer.data(), frames * nChans); }

 private:
  std::vector<F> vBuffer;
};

// Sink writing a header and then a body of interleaved frames. The header comes
// from a function that is called at open (final false: sizes unknown, so that a
// crash leaves a recognisably unfinished file) and again when the sink goes (final
// true). It writes at offset 0 and returns the header's size, or -1 on failure.
class LSNKPCMFileBase : public LSoundSinkBase {
 public:
  using HeaderWriter = int (*)(LSNKPCMFileBase& sink, bool final);

  // Rewrites the header with the final sizes and closes.
  ~LSNKPCMFileBase() override;

  // Only backwards: the body is cut at `frame` (0 if negative), dropping what lay
  // behind; a frame ahead of the position is ignored.
  void Seek(int frame) override;

  // For header writers.
  LFile& File() { return lfFile; }
  std::int64_t GetDataBytes() const { return iDataBytes; }
  int GetBytesPerSample() const { return iBytesPerSample; }
  int GetBytesPerFrame() const { return iBytesPerFrame; }
  // Bits per sample as the header states them.
  int GetBits() const { return iBits; }
  // Format tag, encoding or compression type, as the header writer understands it.
  std::uint32_t GetFormatCode() const { return uFormatCode; }

 protected:
  // Creates or truncates `path`. A start frame above 0 starts the position there;
  // the body still begins right after the header.
  LSNKPCMFileBase(std::string const& path, int sampleRate, int channels, int bytesPerSample, int bits,
                  std::uint32_t formatCode, HeaderWriter writer, int startFrame);
  // Appends to the body; a short write sets the error bit.
  void WriteBody(void const* data, std::size_t bytes);

 private:
  LFile lfFile;
  HeaderWriter pWriteHeader;
  int iBytesPerSample;
  int iBytesPerFrame;
  int iBits;
  std::uint32_t uFormatCode;
  int iHeaderBytes = 0;
  int iStartFrame = 0;
  std::int64_t iDataBytes = 0;
};

template <LSampleFormatWritable F>
class LSNKPCMFile final : public LSNKPCMFileBase {
 public:
  LSNKPCMFile(std::string const& path, int sampleRate, int channels, int bits, std::uint32_t formatCode,
              HeaderWriter writer, int startFrame = 0)
      : LSNKPCMFileBase(path, sampleRate, channels, static_cast<int>(sizeof(F)), bits, formatCode, writer, startFrame),
        vBuffer(static_cast<std::size_t>(LSoundMaxReadFrames) * nChans) {}

  void Write(float const* buffer, int frames) override {
    if (frames <= 0 || IsError()) return;
    sPosition += frames;
    while (frames > 0 && !IsError()) {
      int const n = frames < LSoundMaxReadFrames ? frames : LSoundMaxReadFrames;
      int const samples = n * nChans;
      ConvertSamplesOut(vBuffer.data(), buffer, samples);
      WriteBody(vBuffer.data(), static_cast<std::size_t>(samples) * sizeof(F));
      buffer += samples;
      frames -= n;
    }
  }

 private:
  std::vector<F> vBuffer;
};

// One family serves every body of fixed-size frames, whatever writes its header; these
// are its names where the header comes from a function of the file type (raw, AU,
// AIFF, G.711 WAV).
using LRawFileDataSoundSourceBase = LSRCPCMFileBase;
template <class F>
using LRawFileDataSoundSource = LSRCPCMFile<F>;
using LRawFileDataSoundSinkBase = LSNKPCMFileBase;
template <LSampleFormatWritable F>
using LRawFileDataSoundSink = LSNKPCMFile<F>;

// The header of headerless files: nothing.
int WriteHeaderRAW(LSNKPCMFileBase& sink, bool final);

// Opens a body source of format F over `file`, or, for a sink, the sink; helpers of
// the file type openers.
template <class F>
LSoundSource LMakePCMSource(LFile file, int rate, int channels, float peak, std::int64_t dataStart,
                            std::int64_t dataBytes, std::int64_t sizeFieldOffset, std::string const* deletePath) {
  auto* s = new LSRCPCMFile<F>(std::move(file), rate, channels, peak, dataStart, dataBytes, sizeFieldOffset);
  if (deletePath != nullptr) s->DeleteFileWhenClosed(*deletePath);
  return LSoundSource(s);
}

template <LSampleFormatWritable F>
LSoundSink LMakePCMSink(std::string const& path, int rate, int channels, int bits, std::uint32_t formatCode,
                        LSNKPCMFileBase::HeaderWriter writer, int startFrame = 0) {
  return LSoundSink::Make<LSNKPCMFile<F>>(path, rate, channels, bits, formatCode, writer, startFrame);
}
