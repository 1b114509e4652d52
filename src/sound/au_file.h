#pragma once
#include <string>

#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Sun/NeXT ".au" and ".snd" files: a 24-byte big-endian header, then the body.
namespace LAuFile {

// Encodings 1 (mu-law), 2 (signed 8-bit), 3 (16-bit big-endian) and 27 (A-law);
// any other gives state 5, a header without the ".snd" magic state 3.
LSoundSource OpenSource(std::string const& path);

LSoundSink OpenSinkPCM8(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM16(std::string const& path, int rate, int channels);
LSoundSink OpenSinkULaw(std::string const& path, int rate, int channels);
LSoundSink OpenSinkALaw(std::string const& path, int rate, int channels);

}  // namespace LAuFile
