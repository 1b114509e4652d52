#pragma once
#include <string>

#include "foundation/process_interface.h"
#include "sound/encoder_sinks.h"
#include "sound/sound_source.h"

class TDClip;
class TDProject;

// Export: a source (a clip, a file, the project's mix) pulled through the limiter of
// the copy job into the sink that the target's extension names. No dither, no
// normalising and no tail are added.

// "Tandrel could not export the project to the target file - <path> - ...": every
// failure to make or write the target says this.
std::string TDExportFailedText(std::string const& path);

// An export never writes over the file it replaces until it is complete: it writes
// under a hidden passing name beside the target, which takes the target's name at
// the end, so a stopped or failed export leaves the old file as it was. A podcast
// feed names its MP3 after itself, so ".rss" is written in place.
std::string TDExportWritingPath(std::string const& target);
// Ends an export written at `writing`: a finished one takes the target's name
// (false when that fails), anything else is removed. True when the target is made.
bool TDExportSettle(std::string const& writing, std::string const& target, bool finished);
// A message about the passing file, told with the name the user gave.
std::string TDExportNameForUser(std::string text, std::string const& writing, std::string const& target);

struct TDExportSource {
  LSoundSource lssSource;
  std::string szPath;
  int iSampleRate = 0;  // 0: the source's
  int iChannels = 2;    // a mix goes out in stereo; 0: the source's
  LSoundTags const* pTags = nullptr;
  char const* szTitle = "Mixing down file...";
};

// 0 when the file is complete; 1 after a stop, 2 on a failure, with what was written
// left in place for the caller to keep or remove. An extension that no sink has
// fails at once and makes no file; a missing encoder says which package brings it.
LProcessResult Process(LProcessInterface& pi, TDExportSource& job);

// The project's mix to a file, in stereo, as far as the last clip that is heard.
// The metronome is silent in an export whatever its setting, which is put back
// afterwards. MIDI clips are not rendered: this version has no synthesiser to
// render them with, so only their audio partners are heard.
struct TDExportProjectNormal {
  TDProject* pProject = nullptr;
  std::string szPath;
  bool bSelectionOnly = false;  // only the selected stretch, when there is one
  int iSampleRate = 0;          // 0: the project's
  LSoundTags const* pTags = nullptr;
};

LProcessResult Process(LProcessInterface& pi, TDExportProjectNormal& job);

// One clip to a file at the given rate, in stereo.
struct TDExportClip {
  TDClip* pClip = nullptr;
  std::string szPath;
  int iSampleRate = 44100;
};

LProcessResult Process(LProcessInterface& pi, TDExportClip& job);
