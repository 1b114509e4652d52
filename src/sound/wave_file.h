#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/file.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// WAV format tags this program knows by number.
inline constexpr int LWavTagPCM = 1;
inline constexpr int LWavTagADPCM = 2;
inline constexpr int LWavTagFloat = 3;
inline constexpr int LWavTagALaw = 6;
inline constexpr int LWavTagULaw = 7;
inline constexpr int LWavTagIMAADPCM = 17;
inline constexpr int LWavTagGSM610 = 49;
inline constexpr int LWavTagMPEGLayer3 = 85;
inline constexpr int LWavTagExtensible = 0xFFFE;

// The head of a WAV file as found by the chunk walk: the format chunk as stored, the
// values read from it (the tag with an extensible format already resolved to its
// sub-format), and where the data chunk's body starts.
struct LWavHeader {
  std::vector<std::uint8_t> vFormatChunk;
  int iTag = 0;
  int iChannels = 0;
  std::uint32_t uSampleRate = 0;
  std::uint32_t uAvgBytesPerSec = 0;
  int iBlockAlign = 0;
  int iBits = 0;
  std::int64_t iRiffBody = 0;   // first byte behind "RIFF" size "WAVE"
  std::int64_t iDataStart = 0;  // first byte of the data chunk's body
  std::uint32_t uDataSize = 0;  // as stated; LPCMUnknownSizeFrom and above: not known yet
};

// Walks `file` as LWaveFile::OpenSource does: past anything before the RIFF chunk,
// then to "fmt " and to "data". Returns 0, or the error state of a source that could
// not be made of it (3 for a damaged or incomplete header). With `needData` false it
// stops at the format. Channels and rate are not checked here.
std::uint8_t LWavReadHeader(LFile const& file, LWavHeader& header, bool needData = true);

// Finds chunk `id` in the RIFF body that starts at `riffBody`. On success gives the
// offset of the chunk's body and its stated size.
bool LWavFindChunk(LFile const& file, std::int64_t riffBody, char const id[4], std::int64_t& body, std::uint32_t& size);

// A WAV format as the user chose it for export: the first fields of WAVEFORMATEX and
// the format-specific bytes behind them. Stored in "WavCodec.wff" as 1028 bytes.
struct LWaveFileFormat {
  static constexpr std::size_t kFileBytes = 1028;
  static constexpr std::size_t kExtraBytes = kFileBytes - 16;

  std::uint16_t wFormatTag = 0;
  std::uint16_t nChannels = 0;
  std::uint32_t nSamplesPerSec = 0;
  std::uint32_t nAvgBytesPerSec = 0;
  std::uint16_t nBlockAlign = 0;
  std::uint16_t wBitsPerSample = 0;
  std::array<std::uint8_t, kExtraBytes> abExtra{};  // cbSize first, then what the format adds

  static LWaveFileFormat PCM(int rate, int channels, int bits);
  static LWaveFileFormat Float(int rate, int channels);
  static LWaveFileFormat G711(int rate, int channels, int tag);

  bool IsValid() const { return wFormatTag != 0 && nSamplesPerSec >= 1 && nChannels != 0; }

  void ToBytes(std::uint8_t out[kFileBytes]) const;
  void FromBytes(std::uint8_t const in[kFileBytes]);

  // Whole-file writes and reads under a file lock held at most 100 ms. The loader
  // takes only a path ending in ".wff" and only a format that IsValid.
  bool SaveToWavCodecFile(std::string const& path) const;
  bool LoadFromWavCodecFile(std::string const& path);
};

// "WavCodec.wff" in the user's data folder.
std::string GetWavCodecFilePath();

// A copy of a file's "fmt " chunk, found as LWaveFile::OpenSource finds it.
class LWaveFormatEx {
 public:
  bool Load(std::string const& path);
  void Destroy();

  bool IsLoaded() const { return !vChunk.empty(); }
  std::uint8_t const* Data() const { return vChunk.data(); }
  std::size_t Size() const { return vChunk.size(); }
  // The tag as stored (an extensible format stays 0xFFFE here).
  int GetFormatTag() const;
  int GetChannels() const;
  std::uint32_t GetSampleRate() const;
  std::uint32_t GetAvgBytesPerSec() const;
  int GetBlockAlign() const;
  int GetBitsPerSample() const;
  // 0 for a chunk of 17 bytes or fewer.
  int GetExtraSize() const;

 private:
  std::vector<std::uint8_t> vChunk;
};

namespace LWaveFile {

// Reads PCM (8 to 32 bits), IEEE float (32 and 64 bits), A-law and mu-law, IMA
// ADPCM and GSM 6.10. A failed source carries state 4 (cannot open), 3 (damaged
// header), 5 (no decoder) or 7 (a format this program refuses).
LSoundSource OpenSource(std::string const& path);
// The same; the file is removed when the source is closed (or at once if it cannot
// be opened as sound). For temporary files of decoders.
LSoundSource OpenSourceDeletingFileWhenClosed(std::string const& path);

// Integer PCM: bits up to 8 write unsigned 8-bit, up to 16 16-bit, up to 24 24-bit,
// above that 32-bit. A start frame above 0 starts the sink's position there.
LSoundSink OpenSinkPCM(std::string const& path, int rate, int channels, int bits, int startFrame = 0);
// 32-bit IEEE float with format tag 3, so that other programs read it as float.
LSoundSink OpenSinkFloat(std::string const& path, int rate, int channels, int startFrame = 0);
// Tag 6 (A-law) or 7 (mu-law); any other tag gives an error sink.
LSoundSink OpenSinkG711(std::string const& path, int rate, int channels, int tag, int startFrame = 0);
// By the format's tag: 1 PCM, 3 with 32 bits float, 6 and 7 G.711, 49 GSM 6.10;
// anything else gives an error sink.
LSoundSink OpenSink(std::string const& path, LWaveFileFormat const& format);

}  // namespace LWaveFile
