#include "sound/components.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

enum class Kind { Program, FFmpegEncoder, FFmpegDecoder, FFmpeg };

struct Component {
  char const* szName;
  Kind kind;
  char const* szProgram;  // a program's name, or an FFmpeg codec's name
  char const* szPackage;
};

constexpr Component kComponents[] = {
    {"mp3el2", Kind::Program, "lame", "lame"},
    {"oggenc2", Kind::Program, "oggenc", "vorbis-tools"},
    {"oggenc", Kind::Program, "oggenc", "vorbis-tools"},
    {"oggdec", Kind::Program, "oggdec", "vorbis-tools"},
    {"flaccodec", Kind::Program, "flac", "flac"},
    {"mpcenc2", Kind::Program, "mpcenc", "musepack-tools"},
    {"mpcdec", Kind::Program, "mpcdec", "musepack-tools"},
    {"speexenc2", Kind::Program, "speexenc", "speex"},
    {"speexdec", Kind::Program, "speexdec", "speex"},
    {"aacenc4", Kind::FFmpegEncoder, "aac", "libavcodec59"},
    {"alacenc", Kind::FFmpegEncoder, "alac", "libavcodec59"},
    {"amrenc2", Kind::FFmpegEncoder, "libopencore_amrnb", "libavcodec-extra"},
    {"amrdec2", Kind::FFmpegDecoder, "amrnb", "libavcodec59"},
    {"qcpdec", Kind::FFmpegDecoder, "qcelp", "libavcodec59"},
    {"devoc", Kind::FFmpeg, "", "libavformat59"},
    {"ffmpeg3", Kind::FFmpeg, "", "libavformat59"},
};

Component const* Find(char const* name) {
  if (name == nullptr) return nullptr;
  for (Component const& c : kComponents) {
    if (std::strcmp(c.szName, name) == 0) return &c;
  }
  return nullptr;
}

}  // namespace

bool LFindProgramOnPath(char const* program, std::string& path) {
  path.clear();
  if (program == nullptr || *program == '\0' || std::strchr(program, '/') != nullptr) return false;
  char const* env = std::getenv("PATH");
  if (env == nullptr) return false;
  std::string const dirs = env;
  std::size_t start = 0;
  for (;;) {
    std::size_t const colon = dirs.find(':', start);
    std::string dir = dirs.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
    // An empty entry is the current folder by the old rule; a program is not
    // taken from wherever the user happens to stand.
    if (!dir.empty()) {
      std::string const candidate = dir + "/" + program;
      struct stat st {};
      if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(candidate.c_str(), X_OK) == 0) {
        path = candidate;
        return true;
      }
    }
    if (colon == std::string::npos) return false;
    start = colon + 1;
  }
}

bool LComponentGetPath(char const* name, std::string& path) {
  path.clear();
  Component const* c = Find(name);
  if (c == nullptr) return false;
  switch (c->kind) {
    case Kind::Program: return LFindProgramOnPath(c->szProgram, path);
    case Kind::FFmpegEncoder: return avcodec_find_encoder_by_name(c->szProgram) != nullptr;
    case Kind::FFmpegDecoder: return avcodec_find_decoder_by_name(c->szProgram) != nullptr;
    case Kind::FFmpeg: return true;
  }
  return false;
}

char const* LComponentGetPackage(char const* name) {
  Component const* c = Find(name);
  return c ? c->szPackage : "";
}

std::string LComponentMissingText(char const* name, char const* extension) {
  std::string text = "Tandrel Multitrack Recorder could not locate a plugin for the file with extension \"";
  text += extension ? extension : "";
  text += "\".";
  char const* package = LComponentGetPackage(name);
  if (package != nullptr && *package != '\0') {
    text += " Install the Debian package \"";
    text += package;
    text += "\" and try again.";
  }
  return text;
}

bool LComponentGetPathDownload(LProcessInterface& pi, char const* name, std::string& path, char const* extension) {
  if (LComponentGetPath(name, path)) return true;
  pi.SetError(LComponentMissingText(name, extension).c_str());
  return false;
}
