#include "sound/au_file.h"

#include <algorithm>
#include <cstring>

#include "foundation/byte_order.h"
#include "foundation/file.h"
#include "sound/pcm_file.h"

namespace {

constexpr std::uint32_t kHeader = 24;
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFFu;

constexpr std::uint32_t kEncodingULaw = 1;
constexpr std::uint32_t kEncodingPCM8 = 2;
constexpr std::uint32_t kEncodingPCM16 = 3;
constexpr std::uint32_t kEncodingALaw = 27;

int WriteHeaderAU(LSNKPCMFileBase& sink, bool final) {
  std::uint8_t h[kHeader];
  std::int64_t const data = sink.GetDataBytes();
  std::memcpy(h, ".snd", 4);
  LWriteBE32(h + 4, kHeader);
  LWriteBE32(h + 8, final && data < kUnknownSize ? static_cast<std::uint32_t>(data) : kUnknownSize);
  LWriteBE32(h + 12, sink.GetFormatCode());
  LWriteBE32(h + 16, static_cast<std::uint32_t>(sink.GetSampleRate()));
  LWriteBE32(h + 20, static_cast<std::uint32_t>(sink.GetChannels()));
  return sink.File().WriteAt(h, kHeader, 0) == kHeader ? static_cast<int>(kHeader) : -1;
}

template <class F>
LSoundSource Make(LFile& file, int rate, int channels, float peak, std::int64_t start, std::int64_t bytes) {
  return LMakePCMSource<F>(std::move(file), rate, channels, peak, start, bytes, -1, nullptr);
}

}  // namespace

namespace LAuFile {

LSoundSource OpenSource(std::string const& path) {
  LFile file;
  if (!file.OpenRead(path)) return LMakeErrorSource(LSoundErrorCannotOpen);
  std::uint8_t h[kHeader];
  if (!file.ReadExactAt(h, kHeader, 0) || std::memcmp(h, ".snd", 4) != 0) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  std::uint32_t const offset = LReadBE32(h + 4);
  std::uint32_t const size = LReadBE32(h + 8);
  std::uint32_t const encoding = LReadBE32(h + 12);
  std::uint32_t const rate = LReadBE32(h + 16);
  std::uint32_t const channels = LReadBE32(h + 20);
  if (!LPCMFormatInRange(rate, channels)) return LMakeErrorSource(LSoundErrorParameters);

  // Writers put an annotation between the header and the body (sox: "Processed by
  // SoX"); the offset says where the body starts. One that points into the header
  // or past the file is not believed.
  std::int64_t const fileSize = file.Size();
  std::int64_t start = offset;
  if (start < kHeader || start > fileSize) start = kHeader;
  std::int64_t const there = std::max<std::int64_t>(fileSize - start, 0);
  std::int64_t const bytes = size == kUnknownSize ? there : std::min<std::int64_t>(size, there);

  int const r = static_cast<int>(rate);
  int const ch = static_cast<int>(channels);
  switch (encoding) {
    case kEncodingULaw: return Make<LSFULAW>(file, r, ch, 1.0f, start, bytes);
    case kEncodingPCM8: return Make<LSFS8>(file, r, ch, LSoundPeakInRange, start, bytes);
    case kEncodingPCM16: return Make<LSF16BE>(file, r, ch, LSoundPeakInRange, start, bytes);
    case kEncodingALaw: return Make<LSFALAW>(file, r, ch, 1.0f, start, bytes);
    default: return LMakeErrorSource(LSoundErrorNoDecoder);
  }
}

LSoundSink OpenSinkPCM8(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFS8>(path, rate, channels, 8, kEncodingPCM8, WriteHeaderAU);
}
LSoundSink OpenSinkPCM16(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSF16BE>(path, rate, channels, 16, kEncodingPCM16, WriteHeaderAU);
}
LSoundSink OpenSinkULaw(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFULAW>(path, rate, channels, 8, kEncodingULaw, WriteHeaderAU);
}
LSoundSink OpenSinkALaw(std::string const& path, int rate, int channels) {
  return LMakePCMSink<LSFALAW>(path, rate, channels, 8, kEncodingALaw, WriteHeaderAU);
}

}  // namespace LAuFile
