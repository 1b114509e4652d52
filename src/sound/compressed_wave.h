#pragma once
#include <string>

#include "foundation/file.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"
#include "sound/wave_file.h"

// Block-coded bodies: IMA ADPCM and GSM 06.10 in WAV files (tags 17 and 49), and
// raw ".gsm" files. The sources decode one block at a time into a buffer made at open,
// seek by whole blocks, and end at the "fact" chunk's frame count when there is one,
// since the last block is padded.

// Sources over an open WAV file whose header has been read; OpenSource of LWaveFile
// hands these the tags it does not decode itself. The file is removed when the
// source goes if `deletePath` is given.
LSoundSource LIMAWaveOpenSource(LFile file, LWavHeader const& header, std::string const* deletePath);
LSoundSource LGSMWaveOpenSource(LFile file, LWavHeader const& header, std::string const* deletePath);

// GSM 06.10 in WAV, two frames (320 samples) in 65 bytes. The codec is mono; other
// channel counts give an error sink. Any rate may be stated, the codec is made for 8000.
LSoundSink LGSMWaveOpenSink(std::string const& path, int rate, int channels);

// Raw GSM 06.10: 33-byte frames of 160 samples, 8000 Hz mono, no header.
namespace LGSMFile {
LSoundSource OpenSource(std::string const& path);
LSoundSink OpenSink(std::string const& path);
}  // namespace LGSMFile
