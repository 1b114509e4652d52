#include "sound/raw_file.h"

#include <algorithm>

#include "foundation/file.h"
#include "sound/dialogic_adpcm.h"
#include "sound/pcm_file.h"

namespace {

template <class F>
LSoundSource Source(LFile& file, LRawSettings const& s, float peak, std::int64_t start, std::int64_t bytes) {
  return LMakePCMSource<F>(std::move(file), s.iSampleRate, s.iChannels, peak, start, bytes, -1, nullptr);
}

template <class F>
LSoundSink Sink(std::string const& path, LRawSettings const& s) {
  return LMakePCMSink<F>(path, s.iSampleRate, s.iChannels, static_cast<int>(sizeof(F)) * 8,
                         static_cast<std::uint32_t>(s.iCodec), WriteHeaderRAW);
}

}  // namespace

namespace LRawFile {

LSoundSource OpenSource(std::string const& path, LRawSettings const& s) {
  LFile file;
  if (!file.OpenRead(path)) return LMakeErrorSource(LSoundErrorCannotOpen);
  if (s.iSampleRate < 1 || s.iChannels < 1 || s.iOffset < 0 ||
      !LPCMFormatInRange(static_cast<std::uint32_t>(s.iSampleRate), static_cast<std::uint32_t>(s.iChannels))) {
    return LMakeErrorSource(LSoundErrorParameters);
  }
  std::int64_t const size = std::max<std::int64_t>(file.Size(), 0);
  std::int64_t const start = std::min(s.iOffset, size);
  std::int64_t const bytes = size - start;
  float const in = LSoundPeakInRange;
  float const any = LSoundPeakUnknown;
  switch (s.iCodec) {
    case LRawCodec::PCM8Unsigned: return Source<LSFU8>(file, s, in, start, bytes);
    case LRawCodec::PCM8Signed: return Source<LSFS8>(file, s, in, start, bytes);
    case LRawCodec::PCM16LE: return Source<LSF16>(file, s, in, start, bytes);
    case LRawCodec::PCM16BE: return Source<LSF16BE>(file, s, in, start, bytes);
    case LRawCodec::PCM24LE: return Source<LSFLE24>(file, s, in, start, bytes);
    case LRawCodec::PCM24BE: return Source<LSFBE24>(file, s, in, start, bytes);
    case LRawCodec::PCM32LE: return Source<LSF32>(file, s, in, start, bytes);
    case LRawCodec::PCM32BE: return Source<LSF32BE>(file, s, in, start, bytes);
    case LRawCodec::Float32LE: return Source<LSFF32>(file, s, any, start, bytes);
    case LRawCodec::Float32BE: return Source<LSFF32BE>(file, s, any, start, bytes);
    case LRawCodec::Float64LE: return Source<LSFF64>(file, s, any, start, bytes);
    case LRawCodec::Float64BE: return Source<LSFF64BE>(file, s, any, start, bytes);
    case LRawCodec::ULaw: return Source<LSFULAW>(file, s, 1.0f, start, bytes);
    case LRawCodec::ALaw: return Source<LSFALAW>(file, s, 1.0f, start, bytes);
    case LRawCodec::DialogicADPCM:
      return LSoundSource(new LSRCDialogicADPCM(std::move(file), s.iSampleRate, s.iChannels, start, bytes));
    default: return LMakeErrorSource(LSoundErrorNoDecoder);
  }
}

LSoundSink OpenSink(std::string const& path, LRawSettings const& s) {
  switch (s.iCodec) {
    case LRawCodec::PCM8Unsigned: return Sink<LSFU8>(path, s);
    case LRawCodec::PCM8Signed: return Sink<LSFS8>(path, s);
    case LRawCodec::PCM16LE: return Sink<LSF16>(path, s);
    case LRawCodec::PCM16BE: return Sink<LSF16BE>(path, s);
    case LRawCodec::PCM24LE: return Sink<LSFLE24>(path, s);
    case LRawCodec::PCM24BE: return Sink<LSFBE24>(path, s);
    case LRawCodec::PCM32LE: return Sink<LSF32>(path, s);
    case LRawCodec::PCM32BE: return Sink<LSF32BE>(path, s);
    case LRawCodec::Float32LE: return Sink<LSFF32>(path, s);
    case LRawCodec::Float32BE: return Sink<LSFF32BE>(path, s);
    case LRawCodec::ULaw: return Sink<LSFULAW>(path, s);
    case LRawCodec::ALaw: return Sink<LSFALAW>(path, s);
    case LRawCodec::DialogicADPCM: return LSoundSink::Make<LSNKDialogicADPCM>(path, s.iSampleRate, s.iChannels);
    default: return LSoundSink();
  }
}

}  // namespace LRawFile
