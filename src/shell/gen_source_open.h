#pragma once
#include <cstdint>
#include <string>
#include <type_traits>

#include "foundation/process_interface.h"
#include "sound/raw_file.h"
#include "sound/sound_source.h"

class TDMainWindowView;

// The one way every part of the program opens an audio (or video) file: a reader
// picked by extension, FFmpeg for everything else, a decoder program when FFmpeg
// fails, and one clear sentence when nothing works.

// A job's interface with one more question: whether the user may be asked something
// in the middle (the format of a headerless file, say).
class LGenSourceOpenInterface : public LProcessInterfaceNested {
 public:
  using LProcessInterfaceNested::LProcessInterfaceNested;
  virtual bool IsInteractive() const = 0;
};

// For jobs and tools: everything goes to the job's interface; nobody is asked.
class LGenSourceOpenInterfaceProcess : public LGenSourceOpenInterface {
 public:
  explicit LGenSourceOpenInterfaceProcess(LProcessInterface& job) : LGenSourceOpenInterface(job) {}
  bool IsInteractive() const override { return false; }
};

// For the window: a failure is an alert over the main window, and prompts may come.
class LGenSourceOpenInterfaceGUI : public LGenSourceOpenInterface {
 public:
  LGenSourceOpenInterfaceGUI(TDMainWindowView& window, LProcessInterface& job)
      : LGenSourceOpenInterface(job), view(window) {}
  bool IsInteractive() const override { return true; }
  void SetError(char const* text) override;

 private:
  TDMainWindowView& view;
};

struct LGenSourceOpenOptions {
  // The format of a ".raw" or ".pcm" file, given by the caller instead of the one
  // stored in "RawAudio" (tandrel-cli's --raw).
  LRawSettings const* pRawSettings = nullptr;
};

// The state of a source that a decoder program failed to make.
inline constexpr std::uint8_t LSoundErrorDecoderProcess = 8;

// The core of ProcessGenSourceOpenSource, for either face.
LProcessResult ProcessGenSourceOpenSourceWith(LSoundSource& out, char const* path, LGenSourceOpenInterface& face,
                                              LGenSourceOpenOptions const& options);

// Opens `path` into `out`: 0 with a good source; 1 when the user stopped a decoding;
// 2 with the reason given to the face's SetError and an error source in `out`.
// A stream whose length FFmpeg cannot tell (raw ADTS, AMR) is decoded to a temporary
// WAV file first, which goes when the source does, so that every source from here
// has its length; only a PCM file that another program is still writing streams, and
// a copy of it takes what is there.
template <class I>
LProcessResult ProcessGenSourceOpenSource(LSoundSource& out, char const* path, I& face,
                                          LGenSourceOpenOptions const& options = {}) {
  static_assert(std::is_base_of_v<LGenSourceOpenInterface, I>, "ProcessGenSourceOpenSource needs an open interface");
  return ProcessGenSourceOpenSourceWith(out, path, face, options);
}

// The sentence that says why `source` (in error) could not be made of `path`, by
// its error state and then by the extension (lower case, with its dot).
std::string LGenSourceGetErrorText(LSoundSource const& source, char const* path, char const* extension);
// The same, given to `pi`'s SetError.
void ProcessGenSourceGetError(LProcessInterface& pi, LSoundSource& source, char const* path, char const* extension);

// The extension of a path in lower case with its dot, or empty.
std::string TDLowerExtension(std::string const& path);
