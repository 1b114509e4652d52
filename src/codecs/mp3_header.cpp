#include "codecs/mp3_header.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>

namespace {

// By the header's two version bits: 2.5, reserved, 2, 1.
constexpr int kVersionTable[4] = {2, 4, 1, 0};
// Layer III bit rates in kbit/s: MPEG-1, then MPEG-2 and 2.5. Index 0 is the free
// format, which this reader does not take, and 15 is forbidden.
constexpr int kBitRateTable[2][16] = {
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
};
constexpr int kSampleRateTable[3] = {44100, 48000, 32000};

}  // namespace

LMP3ReadFile::LMP3ReadFile() : aBuffer(kBufferBytes) {}

bool LMP3ReadFile::Open(std::string const& path) {
  // O_NOATIME where allowed is not worth a second try: plain read-only.
  if (!lfFile.Open(path, O_RDONLY)) return false;
  iFileSize = std::max<std::int64_t>(lfFile.Size(), 0);
  iEndOfAudio = iFileSize;
  iBufLen = iBufPos = 0;
  iBufStart = 0;

  // Tags at the start: each ID3v2 tag is skipped whole, and the audio begins after
  // the last one. A head that does not look right ends the walk there.
  std::int64_t start = 0;
  std::uint8_t head[10];
  while (ReadAt(head, 10, start) && head[0] == 'I' && head[1] == 'D' && head[2] == '3') {
    std::int64_t const size = LMP3ID3v2BodySize(head);
    if (size < 0 || size >= iFileSize) break;
    start += size + 10;
  }
  iFirstAudioByte = std::min(start, iFileSize);

  // An ID3v1 tag fills the last 128 bytes; the audio ends before it.
  std::uint8_t tag[3];
  if (iFileSize - 128 >= iFirstAudioByte && ReadAt(tag, 3, iFileSize - 128) && std::memcmp(tag, "TAG", 3) == 0) {
    iEndOfAudio = iFileSize - 128;
  }
  Seek(iFirstAudioByte);
  return true;
}

void LMP3ReadFile::Seek(std::int64_t offset) {
  if (offset < 0) offset = 0;
  iOffset = offset;
  if (offset >= iBufStart && offset <= iBufStart + iBufLen) {
    iBufPos = static_cast<int>(offset - iBufStart);
  } else {
    iBufStart = offset;
    iBufLen = iBufPos = 0;
  }
}

int LMP3ReadFile::Read(void* buffer, int bytes) {
  auto* out = static_cast<std::uint8_t*>(buffer);
  int done = 0;
  std::int64_t const left = BytesLeft();
  if (bytes > left) bytes = static_cast<int>(left);
  while (done < bytes) {
    if (iBufPos >= iBufLen) {
      // Refill from the current offset; a large request bypasses the buffer.
      iBufStart = iOffset;
      iBufPos = 0;
      iBufLen = 0;
      std::int64_t const want = std::min<std::int64_t>(kBufferBytes, iEndOfAudio - iOffset);
      if (want <= 0) break;
      std::int64_t const got = lfFile.ReadAt(aBuffer.data(), static_cast<std::size_t>(want), iOffset);
      if (got <= 0) break;
      iBufLen = static_cast<int>(got);
    }
    int const n = std::min(bytes - done, iBufLen - iBufPos);
    std::memcpy(out + done, aBuffer.data() + iBufPos, static_cast<std::size_t>(n));
    iBufPos += n;
    iOffset += n;
    done += n;
  }
  return done;
}

bool LMP3ReadFile::ReadAt(void* buffer, int bytes, std::int64_t offset) const {
  if (offset < 0 || bytes < 0) return false;
  return lfFile.ReadExactAt(buffer, static_cast<std::size_t>(bytes), offset);
}

std::int64_t LMP3ID3v2BodySize(std::uint8_t const h[10]) {
  if (h[0] != 'I' || h[1] != 'D' || h[2] != '3') return -1;
  if (h[3] == 255 || h[4] == 255) return -1;
  if (h[6] >= 128 || h[7] >= 128 || h[8] >= 128 || h[9] >= 128) return -1;
  return (static_cast<std::int64_t>(h[6]) << 21) | (h[7] << 14) | (h[8] << 7) | h[9];
}

bool LMP3Header::Parse(std::uint8_t const b[4]) {
  if (b[0] != 255 || b[1] <= 223) return false;
  int const version = kVersionTable[(b[1] >> 3) & 3];
  if (version >= 4) return false;
  if (((b[1] >> 1) & 3) != 1) return false;  // Layer III only
  int const rate = kBitRateTable[version == 0 ? 0 : 1][b[2] >> 4];
  if (rate == 0) return false;
  int const rateIndex = (b[2] >> 2) & 3;
  if (rateIndex >= 3) return false;
  iVersion = version;
  bProtected = (b[1] & 1) == 0;
  iBitRate = rate * 1000;
  iRateIndex = rateIndex;
  iPadding = (b[2] >> 1) & 1;
  iMode = b[3] >> 6;
  iModeExtension = (b[3] >> 4) & 3;
  return true;
}

// Slides through the stream a byte at a time until four bytes make a header. An
// ID3v2 tag met on the way is stepped over whole. Gives up at the end of audio or
// after LMP3MaxHeaderSearch bytes that led nowhere.
bool LMP3Header::ReadHeader(LMP3ReadFile& file) {
  std::uint8_t b[4];
  if (!file.ReadExact(b, 4)) return false;
  int shifted = 0;
  std::int64_t skipped = 0;
  for (;;) {
    if (b[0] == 'I' && b[1] == 'D' && b[2] == '3') {
      std::uint8_t head[10];
      std::memcpy(head, b, 4);
      std::int64_t const at = file.Tell();
      if (file.ReadExact(head + 4, 6)) {
        std::int64_t const size = LMP3ID3v2BodySize(head);
        if (size >= 0) {
          file.Skip(size);
          skipped += size + 10;
          if (!file.ReadExact(b, 4)) return false;
          continue;
        }
      }
      file.Seek(at);
    }
    if (Parse(b)) {
      iSkipped = static_cast<int>(std::min<std::int64_t>(skipped, 0x7FFFFFFF));
      return true;
    }
    if (++shifted > LMP3MaxHeaderSearch) return false;
    int const next = file.ReadByte();
    if (next < 0) return false;
    b[0] = b[1];
    b[1] = b[2];
    b[2] = b[3];
    b[3] = static_cast<std::uint8_t>(next);
    ++skipped;
  }
}

int LMP3Header::GetSampleRate() const { return kSampleRateTable[iRateIndex] >> iVersion; }

int LMP3Header::GetFrameLength() const { return GetFactor() * iBitRate / GetSampleRate() + iPadding; }

int LMP3Header::GetSideInfoSize() const {
  if (iVersion == 0) return IsMono() ? 17 : 32;
  return IsMono() ? 9 : 17;
}
