// A cut list read from a project file takes any bytes: both chunk layouts and the
// audio stored in the oldest project files. Whatever loads must be a list whose
// references the tank counted, and reading it as sound must stay in bounds.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "project/cut_list_load_save.h"

namespace {

struct Folder {
  std::string path;
  Folder() {
    path = (std::filesystem::temp_directory_path() / ("tandrel-fuzz-" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(path);
    LAudioCutTank::Instance().SetWorkingFolder(path);
  }
};

void Check(LCutListAudio const& list) {
  int counted = 0;
  list.ForEachSegment([&](LCutListSegment const& s) {
    if (s.iLength < 0) __builtin_trap();
    if (!s.IsSilence() && LAudioCutTank::Instance().GetRefCount(s.GetCut()) < 1) __builtin_trap();
    ++counted;
  });
  if (counted != list.GetSegmentCount()) __builtin_trap();
  LSoundSource source = list.OpenSource();
  if (!source.IsGood()) return;
  static std::vector<float> buffer(static_cast<std::size_t>(LSoundMaxReadFrames) * 255);
  source->Read(buffer.data(), 512);
  source->Seek(source->GetEndSample() - 100);
  source->Read(buffer.data(), 512);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Folder folder;
  LProcessInterfaceVoid quiet;
  {
    LInputStreamMemory in(data, size);
    LSDFReader<LInputStreamMemory> reader;
    if (reader.Open(in, 4)) {
      LSDFReaderChunkIterator<LInputStreamMemory> it(reader);
      if (it.IsValid()) {
        LCutListAudio list;
        if (ProcessLoadCutListAudioLink(quiet, reader, *it, list) == LProcessFinished) Check(list);
        LSDFReaderChunkIterator<LInputStreamMemory> again(reader);
        LCutListAudio old;
        if (ProcessLoadCutListAudioLink(quiet, again, old) == LProcessFinished) Check(old);
      }
    }
  }
  {
    LInputStreamMemory in(data, size);
    LCutListAudio stored;
    if (ProcessLoadCutListAudio(quiet, in, stored) == LProcessFinished) Check(stored);
  }
  // Every file made above has gone with its list.
  LAudioCutTank::Instance().DeleteCachedFiles();
  return 0;
}
