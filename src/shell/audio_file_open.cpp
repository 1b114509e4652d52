#include "shell/audio_file_open.h"

#include <cctype>

#include "sound/aif_file.h"
#include "sound/au_file.h"
#include "sound/compressed_wave.h"
#include "sound/wave_file.h"

std::string TDLowerExtension(std::string const& path) {
  std::size_t const dot = path.find_last_of('.');
  std::size_t const slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
  std::string ext = path.substr(dot);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

LSoundSource TDOpenAudioFile(std::string const& path) {
  std::string const ext = TDLowerExtension(path);
  if (ext == ".wav" || ext == ".wave" || ext == ".bwf") return LWaveFile::OpenSource(path);
  if (ext == ".aif" || ext == ".aiff" || ext == ".aifc" || ext == ".afc") return LAifFile::OpenSource(path);
  if (ext == ".au" || ext == ".snd") return LAuFile::OpenSource(path);
  if (ext == ".gsm") return LGSMFile::OpenSource(path);
  return LSoundSource();
}
