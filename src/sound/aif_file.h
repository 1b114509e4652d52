#pragma once
#include <cstdint>
#include <string>

#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// The 80-bit IEEE extended float, big-endian, in which AIFF states its rate. Rounds
// to the nearest integer; a negative, infinite or NaN value, or one that rounds to 0,
// gives 0, and a value beyond 31 bits gives 0x7FFFFFFF; the reader refuses both.
int LConvert80to32(std::uint8_t const in[10]);
void LConvert32to80(int value, std::uint8_t out[10]);

namespace LAifFile {

// AIFF and AIFC: uncompressed big-endian ("NONE", "twos") and little-endian
// ("sowt") integers of 8 to 32 bits, IEEE float ("fl32", "FL32", "fl64", "FL64")
// and G.711 ("alaw", "ulaw" in either case). Another compression gives state 7;
// a damaged header, or one without a sound chunk, state 3.
LSoundSource OpenSource(std::string const& path);

// AIFF, big-endian signed integers.
LSoundSink OpenSinkPCM8(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM16(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM24(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM32(std::string const& path, int rate, int channels);

// AIFC, compression "NONE".
LSoundSink OpenSinkPCM8AIFC(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM16AIFC(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM24AIFC(std::string const& path, int rate, int channels);
LSoundSink OpenSinkPCM32AIFC(std::string const& path, int rate, int channels);
// AIFC, 16-bit little-endian ("sowt").
LSoundSink OpenSinkPCM16AIFCLE(std::string const& path, int rate, int channels);
// AIFC, G.711 ("ulaw", "alaw").
LSoundSink OpenSinkULawAIFC(std::string const& path, int rate, int channels);
LSoundSink OpenSinkALawAIFC(std::string const& path, int rate, int channels);

}  // namespace LAifFile
