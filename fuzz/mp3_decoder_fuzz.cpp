// The MP3 reader takes any bytes: header search, tags, side information, Huffman
// data and the reservoir all meet what a damaged or hostile file may hold. The
// source is read through, sought about and read again, bounded, so that nothing
// can crash, hang or read out of bounds.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "codecs/mp3_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The reader takes a path; a memory file gives one without touching the disk.
  static int fd = ::memfd_create("tandrel-mp3-fuzz", 0);
  if (fd < 0) return 0;
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  // The first byte chooses a whole scan, so that path is fuzzed too.
  const bool scan = size > 0 && (data[0] & 1);
  LSoundSource source = LMP3File::OpenSource(path.c_str(), scan);
  if (source->IsError()) return 0;
  if (source->GetChannels() < 1 || source->GetChannels() > 2) __builtin_trap();
  static std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 2);
  for (int i = 0; i < 8 && source->GetPositionSample() < source->GetEndSample(); ++i) source->Read(buffer.data(), 4096);
  const int end = source->GetEndSample();
  source->Seek(end / 2);
  source->Read(buffer.data(), 2000);
  source->Seek(end + 10);
  source->Read(buffer.data(), 16);
  source->Seek(-600);
  source->Read(buffer.data(), 1200);
  for (int i = 0; i < 2000 * source->GetChannels(); ++i) {
    if (!(buffer[static_cast<std::size_t>(i)] == buffer[static_cast<std::size_t>(i)])) __builtin_trap();  // NaN
  }
  return 0;
}
