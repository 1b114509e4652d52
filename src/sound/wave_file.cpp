#include "sound/wave_file.h"

#include <fcntl.h>

#include <strings.h>
#include <algorithm>
#include <cstring>

#include "foundation/app_paths.h"
#include "foundation/byte_order.h"
#include "sound/compressed_wave.h"
#include "sound/pcm_file.h"

namespace {

// Bounds of the walks, so that a file of zeros or of tiny chunks is given up on
// instead of being stepped through a few bytes at a time.
constexpr int kMaxChunksBeforeRiff = 1024;
constexpr int kMaxChunksInRiff = 65536;

constexpr std::uint32_t kFmtMin = 16;
constexpr std::uint32_t kFmtMax = 8192;

// The fixed tail of the sub-format GUIDs of WAVE_FORMAT_EXTENSIBLE that stand for a
// plain format tag (the tag is the GUID's first field).
constexpr std::uint8_t kGuidTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

constexpr std::uint32_t kUnfinishedRiffSize = 0xFFFFFFFFu;
constexpr std::uint32_t kUnfinishedDataSize = 0xFFFFFFD9u;

std::int64_t Even(std::uint32_t size) {
  return (static_cast<std::int64_t>(size) + 1) & ~std::int64_t{1};
}

// Offset of the first byte behind "RIFF" size "WAVE", or -1. Anything before it is
// skipped chunk by chunk, so a file with a foreign header in front still opens.
std::int64_t FindRiffWave(LFile const& file) {
  std::int64_t offset = 0;
  std::uint8_t h[12];
  for (int i = 0; i < kMaxChunksBeforeRiff; ++i) {
    if (!file.ReadExactAt(h, 12, offset)) return -1;
    if (std::memcmp(h, "RIFF", 4) == 0 && std::memcmp(h + 8, "WAVE", 4) == 0) return offset + 12;
    // Four bytes of this chunk's body were read as if they were a type already.
    offset += 12 + std::max<std::int64_t>(Even(LReadLE32(h + 4)) - 4, 0);
  }
  return -1;
}

std::uint32_t SizeField(std::int64_t bytes) {
  return bytes < 0 || bytes > 0xFFFFFFFFll ? 0xFFFFFFFFu : static_cast<std::uint32_t>(bytes);
}

// The 46-byte header of PCM and float bodies. While unfinished, the sizes are
// 0xFFFFFFFF (RIFF) and 0xFFFFFFD9 (data) so that a crash leaves a file anyone can
// tell apart; our reader then takes the length from the file's size.
int WriteRIFF(LSNKPCMFileBase& sink, bool final) {
  std::uint8_t h[46];
  std::int64_t const data = sink.GetDataBytes();
  bool const sized = final && data + 38 <= 0xFFFFFFFFll;
  std::uint32_t const channels = static_cast<std::uint32_t>(sink.GetChannels());
  std::uint32_t const bytes = static_cast<std::uint32_t>(sink.GetBytesPerSample());
  std::memcpy(h, "RIFF", 4);
  LWriteLE32(h + 4, sized ? SizeField(data + 38) : kUnfinishedRiffSize);
  std::memcpy(h + 8, "WAVEfmt ", 8);
  LWriteLE32(h + 16, 18);
  LWriteLE16(h + 20, sink.GetFormatCode());
  LWriteLE16(h + 22, channels);
  LWriteLE32(h + 24, static_cast<std::uint32_t>(sink.GetSampleRate()));
  LWriteLE32(h + 28, static_cast<std::uint32_t>(sink.GetSampleRate()) * channels * bytes);
  LWriteLE16(h + 32, channels * bytes);
  LWriteLE16(h + 34, bytes * 8);
  LWriteLE16(h + 36, 0);
  std::memcpy(h + 38, "data", 4);
  LWriteLE32(h + 42, sized ? SizeField(data) : kUnfinishedDataSize);
  return sink.File().WriteAt(h, sizeof h, 0) == static_cast<std::int64_t>(sizeof h) ? 46 : -1;
}

// The 58-byte header of G.711 bodies: a non-PCM format, so a "fact" chunk with the
// frame count follows the format.
int WriteHeaderWaveG711(LSNKPCMFileBase& sink, bool final) {
  std::uint8_t h[58];
  std::int64_t const data = sink.GetDataBytes();
  bool const sized = final && data + 50 <= 0xFFFFFFFFll;
  std::uint32_t const channels = static_cast<std::uint32_t>(sink.GetChannels());
  std::memcpy(h, "RIFF", 4);
  LWriteLE32(h + 4, sized ? SizeField(data + 50) : kUnfinishedRiffSize);
  std::memcpy(h + 8, "WAVEfmt ", 8);
  LWriteLE32(h + 16, 18);
  LWriteLE16(h + 20, sink.GetFormatCode());
  LWriteLE16(h + 22, channels);
  LWriteLE32(h + 24, static_cast<std::uint32_t>(sink.GetSampleRate()));
  // One byte per sample: block align and byte rate follow the channel count.
  LWriteLE32(h + 28, static_cast<std::uint32_t>(sink.GetSampleRate()) * channels);
  LWriteLE16(h + 32, channels);
  LWriteLE16(h + 34, 8);
  LWriteLE16(h + 36, 0);
  std::memcpy(h + 38, "fact", 4);
  LWriteLE32(h + 42, 4);
  LWriteLE32(h + 46, SizeField(data / sink.GetBytesPerFrame()));
  std::memcpy(h + 50, "data", 4);
  LWriteLE32(h + 54, sized ? SizeField(data) : kUnfinishedDataSize);
  return sink.File().WriteAt(h, sizeof h, 0) == static_cast<std::int64_t>(sizeof h) ? 58 : -1;
}

LSoundSource OpenWave(std::string const& path, std::string const* deletePath) {
  LFile file;
  if (!file.OpenRead(path)) return LMakeErrorSource(LSoundErrorCannotOpen);
  LWavHeader h;
  if (std::uint8_t const state = LWavReadHeader(file, h); state != 0) return LMakeErrorSource(state);
  if (!LPCMFormatInRange(h.uSampleRate, static_cast<std::uint32_t>(h.iChannels))) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  int const rate = static_cast<int>(h.uSampleRate);
  int const channels = h.iChannels;
  bool const known = h.uDataSize < LPCMUnknownSizeFrom;
  std::int64_t const dataBytes = known ? static_cast<std::int64_t>(h.uDataSize) : -1;
  std::int64_t const sizeField = h.iDataStart - 4;

  switch (h.iTag) {
    case LWavTagPCM:
    case LWavTagFloat:
    case LWavTagALaw:
    case LWavTagULaw:
      // The sample size comes from the bits; a block align of 0 is a broken header,
      // any other is trusted less than the bits, since some writers get it wrong.
      if (h.iBlockAlign == 0) return LMakeErrorSource(LSoundErrorParameters);
      break;
    default: break;
  }

  switch (h.iTag) {
    case LWavTagPCM:
      if (h.iBits <= 8) {
        return LMakePCMSource<LSFU8>(std::move(file), rate, channels, LSoundPeakInRange, h.iDataStart, dataBytes,
                                     sizeField, deletePath);
      }
      if (h.iBits <= 16) {
        return LMakePCMSource<LSF16>(std::move(file), rate, channels, LSoundPeakInRange, h.iDataStart, dataBytes,
                                     sizeField, deletePath);
      }
      if (h.iBits <= 24) {
        return LMakePCMSource<LSFLE24>(std::move(file), rate, channels, LSoundPeakInRange, h.iDataStart, dataBytes,
                                       sizeField, deletePath);
      }
      return LMakePCMSource<LSF32>(std::move(file), rate, channels, LSoundPeakInRange, h.iDataStart, dataBytes,
                                   sizeField, deletePath);
    case LWavTagFloat:
      if (h.iBits == 32) {
        return LMakePCMSource<LSFF32>(std::move(file), rate, channels, LSoundPeakUnknown, h.iDataStart, dataBytes,
                                      sizeField, deletePath);
      }
      if (h.iBits == 64) {
        return LMakePCMSource<LSFF64>(std::move(file), rate, channels, LSoundPeakUnknown, h.iDataStart, dataBytes,
                                      sizeField, deletePath);
      }
      return LMakeErrorSource(LSoundErrorParameters);
    case LWavTagALaw:
      return LMakePCMSource<LSFALAW>(std::move(file), rate, channels, 1.0f, h.iDataStart, dataBytes, sizeField,
                                     deletePath);
    case LWavTagULaw:
      return LMakePCMSource<LSFULAW>(std::move(file), rate, channels, 1.0f, h.iDataStart, dataBytes, sizeField,
                                     deletePath);
    case LWavTagIMAADPCM: return LIMAWaveOpenSource(std::move(file), h, deletePath);
    case LWavTagGSM610: return LGSMWaveOpenSource(std::move(file), h, deletePath);
    case 34:
    case 69: return LMakeErrorSource(LSoundErrorRefused);
    default: return LMakeErrorSource(LSoundErrorNoDecoder);
  }
}

}  // namespace

bool LWavFindChunk(LFile const& file, std::int64_t riffBody, char const id[4], std::int64_t& body,
                   std::uint32_t& size) {
  std::int64_t offset = riffBody;
  std::uint8_t h[8];
  for (int i = 0; i < kMaxChunksInRiff; ++i) {
    if (!file.ReadExactAt(h, 8, offset)) return false;
    std::uint32_t const n = LReadLE32(h + 4);
    if (std::memcmp(h, id, 4) == 0) {
      body = offset + 8;
      size = n;
      return true;
    }
    offset += 8 + Even(n);
  }
  return false;
}

std::uint8_t LWavReadHeader(LFile const& file, LWavHeader& h, bool needData) {
  h = LWavHeader{};
  h.iRiffBody = FindRiffWave(file);
  if (h.iRiffBody < 0) return LSoundErrorParameters;

  std::int64_t fmtBody = 0;
  std::uint32_t fmtSize = 0;
  if (!LWavFindChunk(file, h.iRiffBody, "fmt ", fmtBody, fmtSize)) return LSoundErrorParameters;
  if (fmtSize < kFmtMin || fmtSize > kFmtMax) return LSoundErrorParameters;
  h.vFormatChunk.resize(fmtSize);
  if (!file.ReadExactAt(h.vFormatChunk.data(), fmtSize, fmtBody)) return LSoundErrorParameters;

  std::uint8_t const* f = h.vFormatChunk.data();
  h.iTag = LReadLE16(f);
  h.iChannels = LReadLE16(f + 2);
  h.uSampleRate = LReadLE32(f + 4);
  h.uAvgBytesPerSec = LReadLE32(f + 8);
  h.iBlockAlign = LReadLE16(f + 12);
  h.iBits = LReadLE16(f + 14);
  int const extra = fmtSize >= 18 ? LReadLE16(f + 16) : 0;
  // Extensible: the sub-format GUID at 24 names the real format, when it is one of the
  // GUIDs that stand for a plain tag. The GUID must lie inside the chunk.
  if (h.iTag == LWavTagExtensible && extra >= 22 && fmtSize >= 40 && std::memcmp(f + 28, kGuidTail, 12) == 0) {
    switch (LReadLE32(f + 24)) {
      case 1: h.iTag = LWavTagPCM; break;
      case 2: h.iTag = LWavTagADPCM; break;
      case 3: h.iTag = LWavTagFloat; break;
      case 6: h.iTag = LWavTagALaw; break;
      case 7: h.iTag = LWavTagULaw; break;
      default: break;
    }
  }
  if (!needData) return 0;

  // The RIFF size is not trusted: unfinished files carry a placeholder there.
  std::int64_t dataBody = 0;
  if (!LWavFindChunk(file, h.iRiffBody, "data", dataBody, h.uDataSize)) return LSoundErrorParameters;
  h.iDataStart = dataBody;
  return 0;
}

LWaveFileFormat LWaveFileFormat::PCM(int rate, int channels, int bits) {
  LWaveFileFormat f;
  f.wFormatTag = LWavTagPCM;
  f.nChannels = static_cast<std::uint16_t>(channels);
  f.nSamplesPerSec = static_cast<std::uint32_t>(rate);
  f.wBitsPerSample = static_cast<std::uint16_t>(bits);
  f.nBlockAlign = static_cast<std::uint16_t>(channels * ((bits + 7) / 8));
  f.nAvgBytesPerSec = f.nSamplesPerSec * f.nBlockAlign;
  return f;
}

LWaveFileFormat LWaveFileFormat::Float(int rate, int channels) {
  LWaveFileFormat f = PCM(rate, channels, 32);
  f.wFormatTag = LWavTagFloat;
  return f;
}

LWaveFileFormat LWaveFileFormat::G711(int rate, int channels, int tag) {
  LWaveFileFormat f = PCM(rate, channels, 8);
  f.wFormatTag = static_cast<std::uint16_t>(tag);
  return f;
}

void LWaveFileFormat::ToBytes(std::uint8_t out[kFileBytes]) const {
  LWriteLE16(out, wFormatTag);
  LWriteLE16(out + 2, nChannels);
  LWriteLE32(out + 4, nSamplesPerSec);
  LWriteLE32(out + 8, nAvgBytesPerSec);
  LWriteLE16(out + 12, nBlockAlign);
  LWriteLE16(out + 14, wBitsPerSample);
  std::memcpy(out + 16, abExtra.data(), kExtraBytes);
}

void LWaveFileFormat::FromBytes(std::uint8_t const in[kFileBytes]) {
  wFormatTag = LReadLE16(in);
  nChannels = LReadLE16(in + 2);
  nSamplesPerSec = LReadLE32(in + 4);
  nAvgBytesPerSec = LReadLE32(in + 8);
  nBlockAlign = LReadLE16(in + 12);
  wBitsPerSample = LReadLE16(in + 14);
  std::memcpy(abExtra.data(), in + 16, kExtraBytes);
}

bool LWaveFileFormat::SaveToWavCodecFile(std::string const& path) const {
  LFile file;
  // Not truncated before the lock is held: another process may be reading it.
  if (!file.Open(path, O_CREAT | O_RDWR, 0666) || !file.Lock(true, 100)) return false;
  std::uint8_t bytes[kFileBytes];
  ToBytes(bytes);
  bool const ok = file.Truncate(0) && file.WriteAt(bytes, kFileBytes, 0) == static_cast<std::int64_t>(kFileBytes);
  file.Unlock();
  return ok;
}

bool LWaveFileFormat::LoadFromWavCodecFile(std::string const& path) {
  if (path.size() < 4 || strcasecmp(path.c_str() + path.size() - 4, ".wff") != 0) return false;
  LFile file;
  if (!file.OpenRead(path) || !file.Lock(false, 100)) return false;
  std::uint8_t bytes[kFileBytes];
  bool const read = file.ReadExactAt(bytes, kFileBytes, 0);
  file.Unlock();
  if (!read) return false;
  LWaveFileFormat loaded;
  loaded.FromBytes(bytes);
  if (!loaded.IsValid()) return false;
  *this = loaded;
  return true;
}

std::string GetWavCodecFilePath() {
  return LAppPaths::UserDataFolder() + "/WavCodec.wff";
}

bool LWaveFormatEx::Load(std::string const& path) {
  Destroy();
  LFile file;
  if (!file.OpenRead(path)) return false;
  LWavHeader h;
  if (LWavReadHeader(file, h, false) != 0) return false;
  vChunk = std::move(h.vFormatChunk);
  return true;
}

void LWaveFormatEx::Destroy() {
  std::vector<std::uint8_t>().swap(vChunk);
}

int LWaveFormatEx::GetFormatTag() const {
  return IsLoaded() ? LReadLE16(vChunk.data()) : 0;
}
int LWaveFormatEx::GetChannels() const {
  return IsLoaded() ? LReadLE16(vChunk.data() + 2) : 0;
}
std::uint32_t LWaveFormatEx::GetSampleRate() const {
  return IsLoaded() ? LReadLE32(vChunk.data() + 4) : 0;
}
std::uint32_t LWaveFormatEx::GetAvgBytesPerSec() const {
  return IsLoaded() ? LReadLE32(vChunk.data() + 8) : 0;
}
int LWaveFormatEx::GetBlockAlign() const {
  return IsLoaded() ? LReadLE16(vChunk.data() + 12) : 0;
}
int LWaveFormatEx::GetBitsPerSample() const {
  return IsLoaded() ? LReadLE16(vChunk.data() + 14) : 0;
}
int LWaveFormatEx::GetExtraSize() const {
  return vChunk.size() >= 18 ? LReadLE16(vChunk.data() + 16) : 0;
}

namespace LWaveFile {

LSoundSource OpenSource(std::string const& path) {
  return OpenWave(path, nullptr);
}

LSoundSource OpenSourceDeletingFileWhenClosed(std::string const& path) {
  LSoundSource s = OpenWave(path, &path);
  // A temporary that is not sound is of no use to anyone either.
  if (s->IsError()) LFile::Remove(path);
  return s;
}

LSoundSink OpenSinkPCM(std::string const& path, int rate, int channels, int bits, int startFrame) {
  if (bits <= 8) return LMakePCMSink<LSFU8>(path, rate, channels, 8, LWavTagPCM, WriteRIFF, startFrame);
  if (bits <= 16) return LMakePCMSink<LSF16>(path, rate, channels, 16, LWavTagPCM, WriteRIFF, startFrame);
  if (bits <= 24) return LMakePCMSink<LSFLE24>(path, rate, channels, 24, LWavTagPCM, WriteRIFF, startFrame);
  return LMakePCMSink<LSF32>(path, rate, channels, 32, LWavTagPCM, WriteRIFF, startFrame);
}

LSoundSink OpenSinkFloat(std::string const& path, int rate, int channels, int startFrame) {
  return LMakePCMSink<LSFF32>(path, rate, channels, 32, LWavTagFloat, WriteRIFF, startFrame);
}

LSoundSink OpenSinkG711(std::string const& path, int rate, int channels, int tag, int startFrame) {
  if (tag == LWavTagALaw) {
    return LMakePCMSink<LSFALAW>(path, rate, channels, 8, LWavTagALaw, WriteHeaderWaveG711, startFrame);
  }
  if (tag == LWavTagULaw) {
    return LMakePCMSink<LSFULAW>(path, rate, channels, 8, LWavTagULaw, WriteHeaderWaveG711, startFrame);
  }
  return LSoundSink();
}

LSoundSink OpenSink(std::string const& path, LWaveFileFormat const& format) {
  int const rate = static_cast<int>(std::min<std::uint32_t>(format.nSamplesPerSec, 0x7FFFFFFF));
  switch (format.wFormatTag) {
    case LWavTagPCM: return OpenSinkPCM(path, rate, format.nChannels, format.wBitsPerSample);
    case LWavTagFloat:
      if (format.wBitsPerSample == 32) return OpenSinkFloat(path, rate, format.nChannels);
      return LSoundSink();
    case LWavTagALaw:
    case LWavTagULaw: return OpenSinkG711(path, rate, format.nChannels, format.wFormatTag);
    case LWavTagGSM610: return LGSMWaveOpenSink(path, rate, format.nChannels);
    default: return LSoundSink();
  }
}

}  // namespace LWaveFile
