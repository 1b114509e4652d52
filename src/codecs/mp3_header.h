#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/file.h"

// The file under an MP3 source: reads through a buffer made at open, so the byte-wise
// header search costs no system call per byte, and treats the end tag as the end.
class LMP3ReadFile {
 public:
  static constexpr int kBufferBytes = 65536;

  LMP3ReadFile();
  // Opens read-only and finds where the audio lies: past any ID3v2 tags at the
  // start and before an ID3v1 tag in the last 128 bytes.
  bool Open(std::string const& path);
  bool IsOpen() const { return lfFile.IsOpen(); }

  // Reads up to `bytes` at the current offset, never past the end of audio; gives
  // the count read and moves on by it.
  int Read(void* buffer, int bytes);
  bool ReadExact(void* buffer, int bytes) { return Read(buffer, bytes) == bytes; }
  // One byte, or -1 at the end of audio.
  int ReadByte() {
    if (iBufPos < iBufLen) {
      ++iOffset;
      return aBuffer[static_cast<std::size_t>(iBufPos++)];
    }
    std::uint8_t b;
    return Read(&b, 1) == 1 ? b : -1;
  }
  // Any offset may be set; reads past the end of audio give nothing.
  void Seek(std::int64_t offset);
  void Skip(std::int64_t bytes) { Seek(iOffset + bytes); }
  std::int64_t Tell() const { return iOffset; }
  // Bytes from the current offset to the end of audio.
  std::int64_t BytesLeft() const { return iOffset < iEndOfAudio ? iEndOfAudio - iOffset : 0; }

  // Reads at an absolute offset, within the whole file (tags included); the
  // current offset stays.
  bool ReadAt(void* buffer, int bytes, std::int64_t offset) const;

  std::int64_t GetFileSize() const { return iFileSize; }
  std::int64_t GetFirstAudioByte() const { return iFirstAudioByte; }
  std::int64_t GetEndOfAudio() const { return iEndOfAudio; }

 private:
  LFile lfFile;
  std::vector<std::uint8_t> aBuffer;
  std::int64_t iBufStart = 0;  // file offset of aBuffer[0]
  int iBufLen = 0;
  int iBufPos = 0;
  std::int64_t iOffset = 0;
  std::int64_t iFileSize = 0;
  std::int64_t iFirstAudioByte = 0;
  std::int64_t iEndOfAudio = 0;
};

// An ID3v2 head: "ID3", two version bytes other than 255, a flags byte and four
// sync-safe size bytes. Gives the size of the tag's body, or -1.
std::int64_t LMP3ID3v2BodySize(std::uint8_t const head[10]);

// One frame header as found in the stream.
struct LMP3Header {
  int iVersion = 0;      // 0 MPEG-1, 1 MPEG-2, 2 MPEG-2.5
  bool bProtected = false;  // a 16-bit CRC follows the header
  int iBitRate = 0;      // bits per second
  int iRateIndex = 0;    // 0..2
  int iPadding = 0;      // 0 or 1
  int iMode = 0;         // 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
  int iModeExtension = 0;
  int iSkipped = 0;      // bytes passed over before this header

  // Fills the fields from four header bytes; false for anything that is not a
  // Layer III header of a known bit rate and rate.
  bool Parse(std::uint8_t const b[4]);

  // Finds the next header from the file's offset, as described in the .cpp; leaves
  // the file just past it.
  bool ReadHeader(LMP3ReadFile& file);

  int GetSampleRate() const;
  int GetChannels() const { return iMode == 3 ? 1 : 2; }
  bool IsMono() const { return iMode == 3; }
  // 1152 under MPEG-1, 576 under MPEG-2 and 2.5.
  int GetFrameSamples() const { return iVersion == 0 ? 1152 : 576; }
  // 144 under MPEG-1, 72 otherwise: bytes per frame per bit per second per rate.
  int GetFactor() const { return iVersion == 0 ? 144 : 72; }
  int GetFrameLength() const;
  // Side information bytes: 32, 17 or 9.
  int GetSideInfoSize() const;
  // Index into the band tables: version * 3 + rate index.
  int GetRateTableIndex() const { return iVersion * 3 + iRateIndex; }
  bool IsSameStream(LMP3Header const& other) const {
    return iVersion == other.iVersion && iRateIndex == other.iRateIndex && IsMono() == other.IsMono();
  }
};

// The header search gives up after this many bytes that are no header.
inline constexpr int LMP3MaxHeaderSearch = 65535;
