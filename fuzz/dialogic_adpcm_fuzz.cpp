// A ".vox" body is any bytes: whatever the file holds decodes to samples inside the
// 12-bit range, reads and seeks stay inside what the source promised, and what the
// decoder gives back the encoder can write again nibble for nibble.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sound/dialogic_adpcm.h"
#include "sound/raw_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static int fd = ::memfd_create("tandrel-fuzz", 0);
  if (fd < 0 || size < 1) return 0;
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  // The first byte chooses the channels, the rest is the body.
  LRawSettings s;
  s.iCodec = LRawCodec::DialogicADPCM;
  s.iSampleRate = 8000;
  s.iChannels = 1 + data[0] % 4;
  s.iOffset = 1;
  LSoundSource source = LRawFile::OpenSource(path, s);
  if (source->IsError()) __builtin_trap();
  const int end = source->GetEndSample();
  if (end != static_cast<int>((size - 1) * 2 / s.iChannels)) __builtin_trap();
  static std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 4);
  source->Seek(end / 2);
  source->Read(buffer.data(), 64);
  source->Seek(0);
  for (int at = 0; at < end; at += 1024) {
    source->Read(buffer.data(), 1024);
    for (int i = 0; i < 1024 * s.iChannels; ++i) {
      if (!(std::fabs(buffer[static_cast<std::size_t>(i)]) <= 1.0f)) __builtin_trap();
    }
  }

  // Mono: encoding what the decoder gave finds the same nibbles, until the first
  // sample that the 12-bit range cut off (several nibbles reach a clamped value).
  LDialogicADPCMState dec, enc;
  for (std::size_t i = 1; i < size; ++i) {
    for (int nibble : {data[i] >> 4, data[i] & 15}) {
      const int sample = LDialogicADPCMDecode(dec, nibble);
      if (sample < -2048 || sample > 2047) __builtin_trap();
      if (sample == -2048 || sample == 2047) return 0;
      if (LDialogicADPCMEncode(enc, sample) != nibble) __builtin_trap();
    }
  }
  return 0;
}
