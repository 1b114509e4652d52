// Every header reader of uncompressed and companded files takes any bytes: the
// file is opened as WAV, AIFF/AIFC and AU in turn, and whatever opens is read
// and sought through, bounded, so that a damaged header cannot crash, over-read
// or allocate without bound.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/wave_file.h"

namespace {

void Exercise(LSoundSource source) {
  if (source->IsError()) return;
  const int channels = source->GetChannels();
  if (channels < 1 || channels > 255) __builtin_trap();  // a source's promise
  static std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 255);
  // A few blocks from the start, one from the middle, one past the end.
  for (int i = 0; i < 3; ++i) source->Read(buffer.data(), 1024);
  const int end = source->GetEndSample();
  source->Seek(end / 2);
  source->Read(buffer.data(), 4096);
  source->Seek(end + 10);
  source->Read(buffer.data(), 16);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The readers take paths; a memory file gives one without touching the disk.
  static int fd = ::memfd_create("tandrel-fuzz", 0);
  if (fd < 0) return 0;
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  Exercise(LWaveFile::OpenSource(path));
  Exercise(LAifFile::OpenSource(path));
  Exercise(LAuFile::OpenSource(path));
  return 0;
}
