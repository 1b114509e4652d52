#include "sound/compressed_wave.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "foundation/byte_order.h"
#include "sound/audio_buffer.h"
#include "sound/gsm610.h"
#include "sound/ima_adpcm.h"
#include "sound/pcm_file.h"
#include "sound/sample_formats.h"

namespace {

constexpr int kGsmFrameBytes = 33;
constexpr int kGsmFrameSamples = 160;
constexpr int kWav49BlockBytes = 65;
constexpr int kWav49BlockSamples = 320;
constexpr int kGsmRate = 8000;

constexpr float kInt16Scale = 3.051851e-5f;  // as LSF16 reads

// Source over a body of equal blocks, each decoding to a fixed number of frames of
// 16-bit samples. A derived class decodes; this one finds, caches and converts.
class LSRCBlockFile : public LSoundSourceBase {
 public:
  ~LSRCBlockFile() override {
    lfFile.Close();
    if (!szDeletePath.empty()) LFile::Remove(szDeletePath);
  }

  void Read(float* buffer, int frames) final {
    while (frames > 0) {
      if (sPosition < 0 || sPosition >= sEnd || uErrorState != LSoundErrorNone) {
        int const zeros = sPosition < 0 ? std::min(frames, -sPosition) : frames;
        LZeroFrames(buffer, zeros, nChans);
        buffer += static_cast<std::size_t>(zeros) * nChans;
        frames -= zeros;
        sPosition += zeros;
        continue;
      }
      int const block = sPosition / iBlockFrames;
      int const within = sPosition - block * iBlockFrames;
      int const decoded = Load(block);
      int const n = std::min({frames, sEnd - sPosition, decoded - within});
      if (n <= 0) {  // the file gave less than it promised: the rest is silence
        sEnd = sPosition;
        continue;
      }
      std::int16_t const* in = vSamples.data() + static_cast<std::size_t>(within) * nChans;
      int const samples = n * nChans;
      for (int i = 0; i < samples; ++i) buffer[i] = static_cast<float>(in[i]) * kInt16Scale;
      buffer += samples;
      frames -= n;
      sPosition += n;
    }
  }

  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  void Seek(int frame) override { sPosition = frame; }

  void DeleteFileWhenClosed(std::string const* path) {
    if (path != nullptr) szDeletePath = *path;
  }

 protected:
  // `bodyBytes` from `dataStart` hold the blocks; a partial block at the end is
  // decoded for what it holds when `partialBlocks` says so.
  LSRCBlockFile(LFile file, int rate, int channels, int blockBytes, int blockFrames, std::int64_t dataStart,
                std::int64_t bodyBytes)
      : LSoundSourceBase(rate, channels, LSoundPeakInRange),
        lfFile(std::move(file)),
        iDataStart(dataStart),
        iBodyBytes(std::max<std::int64_t>(bodyBytes, 0)),
        iBlockBytes(blockBytes),
        iBlockFrames(blockFrames),
        vBlock(static_cast<std::size_t>(std::max(blockBytes, 1))),
        vSamples(static_cast<std::size_t>(std::max(blockFrames, 1)) * nChans) {
    if (!lfFile.IsOpen()) uErrorState = LSoundErrorCannotOpen;
    if (iBlockBytes <= 0 || iBlockFrames <= 0) {
      uErrorState = LSoundErrorParameters;
      iBlockBytes = 1;
      iBlockFrames = 1;
    }
  }

  // Frames that block `index` holds (`bytes` of it are there); fills vSamples.
  virtual int DecodeBlock(std::uint8_t const* block, int bytes, std::int16_t* out) = 0;
  // Called before a block that does not follow the one decoded last.
  virtual void Restart(int /*block*/) {}

  // The end: whole blocks, a partial one as far as it decodes, and no more than
  // `stated` (the "fact" count) when that is not negative.
  void SetEnd(std::int64_t stated, bool decodePartial) {
    std::int64_t const whole = iBodyBytes / iBlockBytes;
    std::int64_t frames = whole * iBlockFrames;
    int const rest = static_cast<int>(iBodyBytes - whole * iBlockBytes);
    if (decodePartial && rest > 0 && whole < INT_MAX / iBlockFrames) {
      frames += Load(static_cast<int>(whole));
      iLoaded = -1;
    }
    if (stated >= 0) frames = std::min(frames, stated);
    sEnd = static_cast<int>(std::min<std::int64_t>(frames, INT_MAX));
  }

  // Decodes block `index` into vSamples unless it is there already; gives its frames.
  int Load(int index) {
    if (index == iLoaded) return iLoadedFrames;
    if (index != iLoaded + 1) Restart(index);
    std::int64_t const at = static_cast<std::int64_t>(index) * iBlockBytes;
    std::int64_t const bytes = std::min<std::int64_t>(iBlockBytes, iBodyBytes - at);
    std::int64_t const got =
        bytes > 0 ? lfFile.ReadAt(vBlock.data(), static_cast<std::size_t>(bytes), iDataStart + at) : 0;
    iLoadedFrames =
        got > 0 ? std::min(DecodeBlock(vBlock.data(), static_cast<int>(got), vSamples.data()), iBlockFrames) : 0;
    iLoaded = index;
    return iLoadedFrames;
  }

  LFile lfFile;
  std::int64_t iDataStart;
  std::int64_t iBodyBytes;
  int iBlockBytes;
  int iBlockFrames;

 private:
  std::vector<std::uint8_t> vBlock;
  std::vector<std::int16_t> vSamples;
  int iLoaded = -2;
  int iLoadedFrames = 0;
  int sPosition = 0;
  int sEnd = 0;
  std::string szDeletePath;
};

class LSRCIMAWave final : public LSRCBlockFile {
 public:
  LSRCIMAWave(LFile file, int rate, int channels, int blockAlign, std::int64_t dataStart, std::int64_t bodyBytes,
              std::int64_t stated)
      : LSRCBlockFile(std::move(file), rate, channels, blockAlign, LImaAdpcmFramesPerBlock(blockAlign, channels),
                      dataStart, bodyBytes) {
    if (uErrorState == LSoundErrorNone) SetEnd(stated, true);
  }

 protected:
  // Every block starts from a stored state: no history to keep.
  int DecodeBlock(std::uint8_t const* block, int bytes, std::int16_t* out) override {
    return LImaAdpcmDecodeBlock(block, bytes, nChans, out);
  }
};

// GSM frames carry the decoder's state from one to the next; after a jump the block
// before the target is decoded first, so the target starts from nearly the state a
// reader from the start would have had.
class LSRCGSM final : public LSRCBlockFile {
 public:
  LSRCGSM(LFile file, int rate, bool wav49, std::int64_t dataStart, std::int64_t bodyBytes, std::int64_t stated)
      : LSRCBlockFile(std::move(file), rate, 1, wav49 ? kWav49BlockBytes : kGsmFrameBytes,
                      wav49 ? kWav49BlockSamples : kGsmFrameSamples, dataStart, bodyBytes),
        bWav49(wav49) {
    if (uErrorState == LSoundErrorNone) SetEnd(stated, false);
  }

 protected:
  int DecodeBlock(std::uint8_t const* block, int bytes, std::int16_t* out) override {
    if (bytes < iBlockBytes) return 0;
    if (bWav49) {
      dec.DecodeWav49Block(block, out);
    } else {
      dec.DecodeFrame(block, out);
    }
    return iBlockFrames;
  }

  void Restart(int block) override {
    dec.Reset();
    if (block <= 0) return;
    std::int64_t const at = static_cast<std::int64_t>(block - 1) * iBlockBytes;
    if (lfFile.ReadExactAt(aWarmBlock, static_cast<std::size_t>(iBlockBytes), iDataStart + at)) {
      DecodeBlock(aWarmBlock, iBlockBytes, aWarmSamples);
    }
  }

 private:
  bool bWav49;
  LGsm610Decoder dec;
  std::uint8_t aWarmBlock[kWav49BlockBytes];
  std::int16_t aWarmSamples[kWav49BlockSamples];
};

// The frame count of a WAV's "fact" chunk, or -1.
std::int64_t FactFrames(LFile const& file, LWavHeader const& h) {
  std::int64_t body = 0;
  std::uint32_t size = 0;
  std::uint8_t count[4];
  if (!LWavFindChunk(file, h.iRiffBody, "fact", body, size) || size < 4 || !file.ReadExactAt(count, 4, body)) {
    return -1;
  }
  return LReadLE32(count);
}

std::int64_t BodyBytes(LFile const& file, LWavHeader const& h) {
  std::int64_t const there = std::max<std::int64_t>(file.Size() - h.iDataStart, 0);
  return h.uDataSize < LPCMUnknownSizeFrom ? std::min<std::int64_t>(h.uDataSize, there) : there;
}

// Sink encoding GSM 06.10, either in WAV (65-byte blocks of two frames behind a header
// with a "fact" count) or raw (33-byte frames). Samples wait in a block buffer; the last
// block is filled with silence when the sink goes.
class LSNKGSM final : public LSoundSinkBase {
 public:
  LSNKGSM(std::string const& path, int rate, int channels, bool wav49)
      : LSoundSinkBase(rate, channels),
        bWav49(wav49),
        iBlockSamples(wav49 ? kWav49BlockSamples : kGsmFrameSamples),
        iBlockBytes(wav49 ? kWav49BlockBytes : kGsmFrameBytes) {
    if (nChans != 1) uErrorFlags |= LSoundSinkErrorFailed;
    if (IsError()) return;
    if (!lfFile.OpenCreate(path) || (bWav49 && !WriteHeader(false))) uErrorFlags |= LSoundSinkErrorFailed;
  }

  ~LSNKGSM() override {
    if (!lfFile.IsOpen()) return;
    if (iPending > 0 && !IsError()) {
      std::fill(aPending + iPending, aPending + iBlockSamples, std::int16_t{0});
      EncodeAndWrite();
    }
    if (bWav49) WriteHeader(true);
  }

  void Write(float const* buffer, int frames) override {
    if (frames <= 0 || IsError()) return;
    sPosition += frames;
    iFrames += frames;
    for (int i = 0; i < frames && !IsError(); ++i) {
      LSF16 s;
      s.Set(buffer[i]);
      aPending[iPending++] = static_cast<std::int16_t>(LHostFromLE(s.v));
      if (iPending == iBlockSamples) EncodeAndWrite();
    }
  }

 private:
  static constexpr int kHeader = 60;

  void EncodeAndWrite() {
    if (bWav49) {
      enc.EncodeWav49Block(aPending, aBlock);
    } else {
      enc.EncodeFrame(aPending, aBlock);
    }
    std::int64_t const at = (bWav49 ? kHeader : 0) + iDataBytes;
    std::int64_t const put = lfFile.WriteAt(aBlock, static_cast<std::size_t>(iBlockBytes), at);
    if (put > 0) iDataBytes += put;
    if (put != iBlockBytes) uErrorFlags |= LSoundSinkErrorFailed;
    iPending = 0;
  }

  // WAV with the GSM format (cbSize 2: samples per block), "fact" and "data". While
  // unfinished the sizes carry the same markers as PCM files.
  bool WriteHeader(bool final) {
    std::uint8_t h[kHeader];
    bool const sized = final && iDataBytes + kHeader - 8 <= 0xFFFFFFFFll;
    std::uint32_t const rate = static_cast<std::uint32_t>(sSampleRate);
    std::memcpy(h, "RIFF", 4);
    LWriteLE32(h + 4, sized ? static_cast<std::uint32_t>(iDataBytes + kHeader - 8) : 0xFFFFFFFFu);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    LWriteLE32(h + 16, 20);
    LWriteLE16(h + 20, LWavTagGSM610);
    LWriteLE16(h + 22, 1);
    LWriteLE32(h + 24, rate);
    LWriteLE32(h + 28,
               static_cast<std::uint32_t>(static_cast<std::uint64_t>(rate) * kWav49BlockBytes / kWav49BlockSamples));
    LWriteLE16(h + 32, kWav49BlockBytes);
    LWriteLE16(h + 34, 0);
    LWriteLE16(h + 36, 2);
    LWriteLE16(h + 38, kWav49BlockSamples);
    std::memcpy(h + 40, "fact", 4);
    LWriteLE32(h + 44, 4);
    LWriteLE32(h + 48, static_cast<std::uint32_t>(std::min<std::int64_t>(iFrames, 0xFFFFFFFFll)));
    std::memcpy(h + 52, "data", 4);
    LWriteLE32(h + 56, sized ? static_cast<std::uint32_t>(iDataBytes) : 0xFFFFFFD9u);
    return lfFile.WriteAt(h, kHeader, 0) == kHeader;
  }

  LFile lfFile;
  LGsm610Encoder enc;
  bool bWav49;
  int iBlockSamples;
  int iBlockBytes;
  int iPending = 0;
  std::int64_t iFrames = 0;
  std::int64_t iDataBytes = 0;
  std::int16_t aPending[kWav49BlockSamples];
  std::uint8_t aBlock[kWav49BlockBytes];
};

}  // namespace

LSoundSource LIMAWaveOpenSource(LFile file, LWavHeader const& h, std::string const* deletePath) {
  int const channels = h.iChannels;
  int const align = h.iBlockAlign;
  // Blocks of several channels hold whole groups of 4 bytes a channel, or the channels
  // would end at different frames. Only 4-bit codes are decoded.
  if (LImaAdpcmFramesPerBlock(align, channels) == 0 || (align - 4 * channels) % (4 * channels) != 0) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  if (h.iBits != 4) return LMakeErrorSource(LSoundErrorNoDecoder);
  std::int64_t const stated = FactFrames(file, h);
  std::int64_t const bytes = BodyBytes(file, h);
  auto* s =
      new LSRCIMAWave(std::move(file), static_cast<int>(h.uSampleRate), channels, align, h.iDataStart, bytes, stated);
  s->DeleteFileWhenClosed(deletePath);
  return LSoundSource(s);
}

LSoundSource LGSMWaveOpenSource(LFile file, LWavHeader const& h, std::string const* deletePath) {
  if (h.iChannels != 1 || h.iBlockAlign != kWav49BlockBytes) return LMakeErrorSource(LSoundErrorParameters);
  std::int64_t const stated = FactFrames(file, h);
  std::int64_t const bytes = BodyBytes(file, h);
  auto* s = new LSRCGSM(std::move(file), static_cast<int>(h.uSampleRate), true, h.iDataStart, bytes, stated);
  s->DeleteFileWhenClosed(deletePath);
  return LSoundSource(s);
}

LSoundSink LGSMWaveOpenSink(std::string const& path, int rate, int channels) {
  return LSoundSink::Make<LSNKGSM>(path, rate, channels, true);
}

namespace LGSMFile {

LSoundSource OpenSource(std::string const& path) {
  LFile file;
  if (!file.OpenRead(path)) return LMakeErrorSource(LSoundErrorCannotOpen);
  std::int64_t const size = std::max<std::int64_t>(file.Size(), 0);
  return LSoundSource(new LSRCGSM(std::move(file), kGsmRate, false, 0, size, -1));
}

LSoundSink OpenSink(std::string const& path) {
  return LSoundSink::Make<LSNKGSM>(path, kGsmRate, 1, false);
}

}  // namespace LGSMFile
