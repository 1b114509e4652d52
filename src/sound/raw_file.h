#pragma once
#include <cstdint>
#include <string>

#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Body formats of headerless files, as the "Codec" setting numbers them.
namespace LRawCodec {
inline constexpr int DialogicADPCM = 0;  // the usual body of ".vox" (sound/dialogic_adpcm.h)
inline constexpr int PCM8Unsigned = 1;
inline constexpr int PCM8Signed = 2;
inline constexpr int PCM16LE = 3;
inline constexpr int PCM16BE = 4;
inline constexpr int PCM24LE = 5;
inline constexpr int PCM24BE = 6;
inline constexpr int PCM32LE = 7;
inline constexpr int PCM32BE = 8;
inline constexpr int Float32LE = 9;
inline constexpr int Float32BE = 10;
inline constexpr int Float64LE = 11;  // read only
inline constexpr int Float64BE = 12;  // read only
inline constexpr int ULaw = 13;
inline constexpr int ALaw = 14;
inline constexpr int Count = 15;
}  // namespace LRawCodec

// What the user states about a headerless file.
struct LRawSettings {
  int iCodec = LRawCodec::PCM16LE;
  int iSampleRate = 44100;
  int iChannels = 2;
  // Bytes to skip before the body (a header of a format we do not know); reading only.
  std::int64_t iOffset = 0;
};

namespace LRawFile {

// The whole file behind the offset is the body. A rate or channel count out of range,
// or a negative offset, gives state 3; a codec without a decoder state 5.
LSoundSource OpenSource(std::string const& path, LRawSettings const& settings);
// Writes the body alone; an error sink for a codec that cannot be written.
LSoundSink OpenSink(std::string const& path, LRawSettings const& settings);

}  // namespace LRawFile
