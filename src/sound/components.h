#pragma once
#include <string>

#include "foundation/process_interface.h"

// Components: the encoders and decoders this program does not hold itself. On
// Linux they are never downloaded. A program component is the distribution's
// program found on PATH; an FFmpeg component is a codec of the linked FFmpeg
// libraries, there when this build of them has it. Names are those the rest of the
// program asks for:
//
//   "mp3el2"     lame              (lame)
//   "oggenc2"    oggenc            (vorbis-tools); "oggenc" is the same program
//   "flaccodec"  flac              (flac), encoder and decoder
//   "mpcenc2"    mpcenc            (musepack-tools)
//   "speexenc2"  speexenc          (speex)
//   "oggdec", "mpcdec", "speexdec": the decoders of the same packages
//   "aacenc4"    FFmpeg's AAC encoder
//   "alacenc"    FFmpeg's ALAC encoder
//   "amrenc2"    FFmpeg's AMR-NB encoder (libavcodec-extra)
//   "amrdec2", "qcpdec", "devoc", "ffmpeg3": the FFmpeg libraries themselves

// True when the component can be used; for a program `path` receives where it is,
// for an FFmpeg component it is left empty.
bool LComponentGetPath(char const* name, std::string& path);

// The Debian package that brings the component, or empty for an unknown name.
char const* LComponentGetPackage(char const* name);

// "Tandrel Multitrack Recorder could not locate a plugin for the file with extension
// "<extension>"." and the package that brings it.
std::string LComponentMissingText(char const* name, char const* extension);

// LComponentGetPath, and when the component is missing the message above through
// `pi`'s SetError. Nothing is fetched: the user installs the package.
bool LComponentGetPathDownload(LProcessInterface& pi, char const* name, std::string& path, char const* extension);

// The program's path when `program` (a bare name) is an executable file in one of
// PATH's folders.
bool LFindProgramOnPath(char const* program, std::string& path);
