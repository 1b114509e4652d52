#include "sound/aif_file.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

#include "foundation/byte_order.h"
#include "foundation/file.h"
#include "sound/pcm_file.h"

namespace {

// A chunk walk gives up after this many chunks, so a file of tiny chunks is not
// stepped through eight bytes at a time.
constexpr int kMaxChunks = 65536;
constexpr std::uint32_t kCommMaxAIFC = 282;
constexpr std::uint32_t kCommBase = 18;
constexpr std::uint32_t kFormatVersionAIFC = 0xA2805140u;  // the one AIFC version there is

constexpr std::uint32_t FourCC(char const* s) {
  return (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[0])) << 24) |
         (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[1])) << 16) |
         (static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[2])) << 8) |
         static_cast<std::uint32_t>(static_cast<std::uint8_t>(s[3]));
}

constexpr std::uint32_t kNone = FourCC("NONE");
constexpr std::uint32_t kSowt = FourCC("sowt");
constexpr std::uint32_t kULaw = FourCC("ulaw");
constexpr std::uint32_t kALaw = FourCC("alaw");

std::int64_t Even(std::uint32_t size) {
  return (static_cast<std::int64_t>(size) + 1) & ~std::int64_t{1};
}

// Finds chunk `id` among the FORM's chunks, from the first on, wherever it stands.
bool FindChunk(LFile const& file, char const id[4], std::int64_t& body, std::uint32_t& size) {
  std::int64_t offset = 12;
  std::uint8_t h[8];
  for (int i = 0; i < kMaxChunks; ++i) {
    if (!file.ReadExactAt(h, 8, offset)) return false;
    std::uint32_t const n = LReadBE32(h + 4);
    if (std::memcmp(h, id, 4) == 0) {
      body = offset + 8;
      size = n;
      return true;
    }
    offset += 8 + Even(n);
  }
  return false;
}

template <class F>
LSoundSource Make(LFile& file, int rate, int channels, float peak, std::int64_t start, std::int64_t bytes) {
  return LMakePCMSource<F>(std::move(file), rate, channels, peak, start, bytes, -1, nullptr);
}

// The name the AIFC writer puts beside each compression type.
char const* CompressionName(std::uint32_t code) {
  switch (code) {
    case kNone: return "not compressed";
    case kULaw: return "\xB5Law 2:1";  // MacRoman micro sign
    case kALaw: return "aLaw 2:1";
    default: return "";
  }
}

std::uint32_t SizeField(std::int64_t bytes) {
  return bytes < 0 || bytes > 0xFFFFFFFFll ? 0xFFFFFFFFu : static_cast<std::uint32_t>(bytes);
}

// Chunks are padded to even length; the pad byte follows an odd body once it is final.
bool WritePad(LSNKPCMFileBase& sink, int header) {
  if ((sink.GetDataBytes() & 1) == 0) return true;
  std::uint8_t const zero = 0;
  return sink.File().WriteAt(&zero, 1, header + sink.GetDataBytes()) == 1;
}

void WriteComm(LSNKPCMFileBase& sink, std::uint8_t* p) {
  std::int64_t const frames = sink.GetDataBytes() / sink.GetBytesPerFrame();
  LWriteBE16(p, static_cast<std::uint32_t>(sink.GetChannels()));
  LWriteBE32(p + 2, SizeField(frames));
  LWriteBE16(p + 6, static_cast<std::uint32_t>(sink.GetBits()));
  LConvert32to80(sink.GetSampleRate(), p + 8);
}

// AIFF, 54 bytes. While unfinished the sound chunk's size is 0xFFFFFFFF.
int WriteHeaderAIFF(LSNKPCMFileBase& sink, bool final) {
  constexpr int kHeader = 54;
  std::uint8_t h[kHeader];
  std::int64_t const data = sink.GetDataBytes();
  std::memcpy(h, "FORM", 4);
  LWriteBE32(h + 4, SizeField(data + (data & 1) + 46));
  std::memcpy(h + 8, "AIFFCOMM", 8);
  LWriteBE32(h + 16, kCommBase);
  WriteComm(sink, h + 20);
  std::memcpy(h + 38, "SSND", 4);
  LWriteBE32(h + 42, final ? SizeField(data + 8) : 0xFFFFFFFFu);
  LWriteBE32(h + 46, 0);  // offset
  LWriteBE32(h + 50, 0);  // block size
  if (final && !WritePad(sink, kHeader)) return -1;
  return sink.File().WriteAt(h, kHeader, 0) == kHeader ? kHeader : -1;
}

// AIFC: a version chunk and a COMM chunk that adds the compression type and its name.
int WriteHeaderAIFC(LSNKPCMFileBase& sink, bool final) {
  std::uint8_t h[128];
  char const* name = CompressionName(sink.GetFormatCode());
  int const nameLength = static_cast<int>(std::strlen(name));
  int const nameSize = (nameLength + 2) & ~1;  // count byte, text, pad
  int const header = nameSize + 70;
  std::int64_t const data = sink.GetDataBytes();
  std::memset(h, 0, sizeof h);
  std::memcpy(h, "FORM", 4);
  LWriteBE32(h + 4, SizeField(data + (data & 1) + header - 8));
  std::memcpy(h + 8, "AIFCFVER", 8);
  LWriteBE32(h + 16, 4);
  LWriteBE32(h + 20, kFormatVersionAIFC);
  std::memcpy(h + 24, "COMM", 4);
  LWriteBE32(h + 28, static_cast<std::uint32_t>(22 + nameSize));
  WriteComm(sink, h + 32);
  LWriteBE32(h + 50, sink.GetFormatCode());
  h[54] = static_cast<std::uint8_t>(nameLength);
  std::memcpy(h + 55, name, static_cast<std::size_t>(nameLength));
  std::uint8_t* s = h + 54 + nameSize;
  std::memcpy(s, "SSND", 4);
  LWriteBE32(s + 4, final ? SizeField(data + 8) : 0xFFFFFFFFu);
  LWriteBE32(s + 8, 0);
  LWriteBE32(s + 12, 0);
  if (final && !WritePad(sink, header)) return -1;
  return sink.File().WriteAt(h, static_cast<std::size_t>(header), 0) == header ? header : -1;
}

}  // namespace

int LConvert80to32(std::uint8_t const in[10]) {
  int const exponent = ((in[0] & 0x7F) << 8) | in[1];
  std::uint64_t const mantissa = LReadBE64(in + 2);
  if ((in[0] & 0x80) != 0 || mantissa == 0 || exponent == 0x7FFF) return 0;
  // value = mantissa * 2^(exponent - 16383 - 63)
  int const shift = exponent - 16383;
  if (shift < -1) return 0;
  if (shift > 30) return INT_MAX;
  // Keep one bit below the point to round with.
  std::uint64_t const twice = mantissa >> (62 - shift);
  std::uint64_t const rounded = (twice + 1) >> 1;
  return rounded > static_cast<std::uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(rounded);
}

void LConvert32to80(int value, std::uint8_t out[10]) {
  std::memset(out, 0, 10);
  if (value == 0) return;
  std::uint64_t magnitude =
      value < 0 ? static_cast<std::uint64_t>(-static_cast<std::int64_t>(value)) : static_cast<std::uint64_t>(value);
  int const top = 63 - std::countl_zero(magnitude);
  int const exponent = 16383 + top;
  out[0] = static_cast<std::uint8_t>(((value < 0) ? 0x80 : 0) | (exponent >> 8));
  out[1] = static_cast<std::uint8_t>(exponent);
  LWriteBE64(out + 2, magnitude << (63 - top));
}

namespace LAifFile {

LSoundSource OpenSource(std::string const& path) {
  LFile file;
  if (!file.OpenRead(path)) return LMakeErrorSource(LSoundErrorCannotOpen);
  std::uint8_t form[12];
  if (!file.ReadExactAt(form, 12, 0) || std::memcmp(form, "FORM", 4) != 0) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  bool const aifc = std::memcmp(form + 8, "AIFC", 4) == 0;
  if (!aifc && std::memcmp(form + 8, "AIFF", 4) != 0) return LMakeErrorSource(LSoundErrorParameters);

  std::int64_t commBody = 0;
  std::uint32_t commSize = 0;
  if (!FindChunk(file, "COMM", commBody, commSize)) return LMakeErrorSource(LSoundErrorParameters);
  // AIFF uses only the common part; an AIFC COMM is that, the type and a short name.
  if (commSize < kCommBase || (aifc && commSize > kCommMaxAIFC)) return LMakeErrorSource(LSoundErrorParameters);
  std::uint32_t const commRead = aifc ? commSize : kCommBase;
  std::uint8_t comm[kCommMaxAIFC];
  if (!file.ReadExactAt(comm, commRead, commBody)) return LMakeErrorSource(LSoundErrorParameters);

  std::int64_t ssndBody = 0;
  std::uint32_t ssndSize = 0;
  std::uint8_t ssnd[8];
  if (!FindChunk(file, "SSND", ssndBody, ssndSize) || !file.ReadExactAt(ssnd, 8, ssndBody)) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  std::uint32_t const offset = LReadBE32(ssnd);
  std::int64_t const bodyBytes = ssndSize >= 8 ? static_cast<std::int64_t>(ssndSize) - 8 : 0;

  std::uint32_t const channels = LReadBE16(comm);
  std::uint32_t const frames = LReadBE32(comm + 2);
  int const bits = static_cast<std::int16_t>(LReadBE16(comm + 6));
  int const rateValue = LConvert80to32(comm + 8);
  std::uint32_t const rate = rateValue > 0 ? static_cast<std::uint32_t>(rateValue) : 0;
  if (!LPCMFormatInRange(rate, channels)) return LMakeErrorSource(LSoundErrorParameters);
  std::uint32_t const type = aifc && commRead >= 22 ? LReadBE32(comm + 18) : kNone;

  int const ch = static_cast<int>(channels);
  int const r = static_cast<int>(rate);
  int bytesPerSample = bits <= 8 ? 1 : bits <= 16 ? 2 : bits <= 24 ? 3 : 4;
  switch (type) {
    case FourCC("fl32"):
    case FourCC("FL32"): bytesPerSample = 4; break;
    case FourCC("fl64"):
    case FourCC("FL64"): bytesPerSample = 8; break;
    case FourCC("alaw"):
    case FourCC("ALAW"):
    case FourCC("ulaw"):
    case FourCC("ULAW"): bytesPerSample = 1; break;
    default: break;
  }
  // The sound starts `offset` bytes into the chunk's data and holds as many frames as
  // COMM says, or as fit, whichever is less.
  std::int64_t const start = ssndBody + 8 + offset;
  std::int64_t const bytes = std::min<std::int64_t>(std::max<std::int64_t>(bodyBytes - offset, 0),
                                                    static_cast<std::int64_t>(frames) * ch * bytesPerSample);

  switch (type) {
    case FourCC("NONE"):
    case FourCC("twos"):
      if (bits <= 8) return Make<LSFS8>(file, r, ch, LSoundPeakInRange, start, bytes);
      if (bits <= 16) return Make<LSF16BE>(file, r, ch, LSoundPeakInRange, start, bytes);
      if (bits <= 24) return Make<LSFBE24>(file, r, ch, LSoundPeakInRange, start, bytes);
      return Make<LSF32BE>(file, r, ch, LSoundPeakInRange, start, bytes);
    case kSowt:
      if (bits <= 8) return Make<LSFS8>(file, r, ch, LSoundPeakInRange, start, bytes);
      if (bits <= 16) return Make<LSF16>(file, r, ch, LSoundPeakInRange, start, bytes);
      if (bits <= 24) return Make<LSFLE24>(file, r, ch, LSoundPeakInRange, start, bytes);
      return Make<LSF32>(file, r, ch, LSoundPeakInRange, start, bytes);
    case FourCC("fl32"):
    case FourCC("FL32"): return Make<LSFF32BE>(file, r, ch, LSoundPeakUnknown, start, bytes);
    case FourCC("fl64"):
    case FourCC("FL64"): return Make<LSFF64BE>(file, r, ch, LSoundPeakUnknown, start, bytes);
    case FourCC("alaw"):
    case FourCC("ALAW"): return Make<LSFALAW>(file, r, ch, 1.0f, start, bytes);
    case FourCC("ulaw"):
    case FourCC("ULAW"): return Make<LSFULAW>(file, r, ch, 1.0f, start, bytes);
    default: return LMakeErrorSource(LSoundErrorRefused);
  }
}

LSoundSink OpenSinkPCM8(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFS8>(path, rate, channels, 8, 0, WriteHeaderAIFF);
}
LSoundSink OpenSinkPCM16(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF16BE>(path, rate, channels, 16, 0, WriteHeaderAIFF);
}
LSoundSink OpenSinkPCM24(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFBE24>(path, rate, channels, 24, 0, WriteHeaderAIFF);
}
LSoundSink OpenSinkPCM32(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF32BE>(path, rate, channels, 32, 0, WriteHeaderAIFF);
}

LSoundSink OpenSinkPCM8AIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFS8>(path, rate, channels, 8, kNone, WriteHeaderAIFC);
}
LSoundSink OpenSinkPCM16AIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF16BE>(path, rate, channels, 16, kNone, WriteHeaderAIFC);
}
LSoundSink OpenSinkPCM24AIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFBE24>(path, rate, channels, 24, kNone, WriteHeaderAIFC);
}
LSoundSink OpenSinkPCM32AIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF32BE>(path, rate, channels, 32, kNone, WriteHeaderAIFC);
}
LSoundSink OpenSinkPCM16AIFCLE(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF16>(path, rate, channels, 16, kSowt, WriteHeaderAIFC);
}
// G.711 states 16 bits, the width its codes expand to, as other writers do.
LSoundSink OpenSinkULawAIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFULAW>(path, rate, channels, 16, kULaw, WriteHeaderAIFC);
}
LSoundSink OpenSinkALawAIFC(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFALAW>(path, rate, channels, 16, kALaw, WriteHeaderAIFC);
}

}  // namespace LAifFile
