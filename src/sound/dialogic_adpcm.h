#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/file.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Dialogic (OKI) ADPCM, the usual body of ".vox" files from telephone systems: 4 bits
// a sample, high nibble first, 12-bit samples, no header and no blocks. The decoder's
// state runs through the whole file from predictor 0 and step index 0, so a sample can
// only be reached by decoding everything before it. With several channels the nibbles
// of one frame follow each other, each channel with its own state.

struct LDialogicADPCMState {
  int iPredictor = 0;  // -2048..2047
  int iStepIndex = 0;  // 0..48
};

// One nibble to a 12-bit sample; the state moves on.
int LDialogicADPCMDecode(LDialogicADPCMState& state, int nibble);
// The nibble that brings the state nearest to `sample` (12-bit, clamped); the state
// moves on exactly as the decoder's will.
int LDialogicADPCMEncode(LDialogicADPCMState& state, int sample);

// A ".vox" body as a source. Reads go forward from where the last one ended; a seek
// backwards decodes again from the start of the file. Buffers are made at open.
class LSRCDialogicADPCM : public LSoundSourceBase {
 public:
  LSRCDialogicADPCM(LFile file, int rate, int channels, std::int64_t dataStart, std::int64_t dataBytes);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  void Seek(int frame) override { sPosition = frame; }

 private:
  // Decodes `frames` frames from the decoder's position into `out` (null: dropped).
  void Decode(float* out, int frames);
  void Restart();

  LFile lfFile;
  std::int64_t iDataStart;
  std::int64_t iDataBytes;
  int sPosition = 0;
  int sEnd = 0;
  std::int64_t iDecoded = 0;  // frames decoded so far, where the next Read would go on
  std::int64_t iNibble = 0;   // the next nibble of the body
  std::vector<LDialogicADPCMState> vStates;
  std::vector<std::uint8_t> vBytes;  // one read from the file
  std::int64_t iBytesStart = -1;     // body offset of vBytes[0]
  int iBytesValid = 0;
};

// Writes a ".vox" body; an odd number of nibbles is completed by a zero nibble when
// the sink finishes.
class LSNKDialogicADPCM : public LSoundSinkBase {
 public:
  LSNKDialogicADPCM(std::string const& path, int rate, int channels);
  ~LSNKDialogicADPCM() override;

  void Write(float const* buffer, int frames) override;
  bool Finish() override;

 private:
  void Flush();

  LFile lfFile;
  std::vector<LDialogicADPCMState> vStates;
  std::vector<std::uint8_t> vBytes;
  int iBytes = 0;
  int iHalf = -1;  // a high nibble waiting for its low one
  bool bFinished = false;
};
