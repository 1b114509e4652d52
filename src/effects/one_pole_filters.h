#pragma once
#include <vector>

#include "sound/sound_source.h"

// One-pole filters, cheap enough for every track. Both work on a coefficient k
// in 1/256 steps, k = trunc((1 - exp(-2 pi f / rate)) * 256), doubled over a
// source whose peaks stay within 8: the filters were tuned on such sources, and
// the doubling is what gives their corners the place users know.
int LSRCOnePoleCoefficient(int frequency, int sampleRate, float peakBound);

// Removes what lies below the corner: y = x - z * strength / 25600, z += y * k,
// one z per channel. Its output can reach twice a step in its input.
class LSRCHighPass : public LSoundProcessBase {
 public:
  static constexpr int kWarmUpFrames = 512;

  LSRCHighPass(LSoundSource const& source, int frequency, int strength = 100);

  void Read(float* buffer, int frames) override;
  // Seeks below and then reads up to 512 frames before the position through the
  // filter, so that a seek into a low hum does not start with a click.
  void Seek(int frame) override;
  int GetK() const { return iK; }

 private:
  int iK;
  float fFeedback;
  std::vector<float> vState;
  std::vector<float> vWarmUp;  // made here: a seek must not allocate
};

// Keeps what lies below the corner: z += (x - z / 256) * k, y = z / 256.
class LSRCLowPass : public LSoundProcessBase {
 public:
  LSRCLowPass(LSoundSource const& source, int frequency);

  void Read(float* buffer, int frames) override;
  // Clears the state only and leaves the source below where it is: whoever
  // seeks a graph with a low pass in it must place the source below as well.
  void Seek(int frame) override;
  int GetK() const { return iK; }

 private:
  int iK;
  std::vector<float> vState;
};
