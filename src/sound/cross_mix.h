#pragma once
#include <vector>

#include "sound/sound_source.h"

// A seamless join: over the last `length` frames of the first source the sound
// fades from it into the start of a second source, with two linear ramps whose
// weights always add up to one; past the first source's end the second plays on.
// Position and end are the first source's. Both sources must have the same rate
// and channels.
class LSPCrossMix {
 public:
  LSPCrossMix(int length, LSoundSource second) : iLength(length), lssSecond(std::move(second)) {}
  // A source in error (3) when the formats differ.
  LSoundSource OpenSource(LSoundSource const& first) const;

 private:
  int iLength;
  LSoundSource lssSecond;
};

class LSRCCrossMix : public LSoundProcessBase {
 public:
  LSRCCrossMix(LSoundSource const& first, LSoundSource const& second, int length);

  void Read(float* buffer, int frames) override;
  void Seek(int frame) override;

 private:
  LSoundSource lssSecond;
  int iLength;
  std::vector<float> vRising;
  std::vector<float> vFalling;
  std::vector<float> vSecond;  // one read's worth of the second source
};
