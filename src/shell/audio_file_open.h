#pragma once
#include <string>

#include "sound/sound_source.h"

// Opens an audio file by its extension with the readers this version has: WAV,
// AIFF and AIFC, AU, GSM. Anything else, or a file a reader refuses, gives a
// source in error.
LSoundSource TDOpenAudioFile(std::string const& path);

// The extension of a path in lower case with its dot, or empty.
std::string TDLowerExtension(std::string const& path);
