#pragma once
#include <cstdint>

// Sub-band samples of one frame are kept sub-band by sub-band, time slot after time
// slot: up to 36 slots (two granules) and room for the four-slot steps to run over.
inline constexpr int LMP3SlotStride = 40;

// The polyphase filter bank that turns 32 sub-band samples into 32 output samples,
// one channel at a time, four or eight time slots at once. Its history (the cosine transforms
// of the last 15 time slots) is the state a seek clears.
class LMP3PolyphaseSynth {
 public:
  LMP3PolyphaseSynth() { Reset(); }
  void Reset();

  // `slots` time slots (18 or 36): sub-band k's sample of slot i at subbands[k][i],
  // with slots rounded up to a multiple of 4 readable. Writes slots * 32 samples to
  // `pcm` in time order at full scale 1 (and may write up to 3 * 32 after them).
  void Synthesize(float const (*subbands)[LMP3SlotStride], int slots, float* pcm);

  // Where the processor has AVX2 and FMA, eight slots go at once; false keeps every
  // filter bank to the four-slot code that runs anywhere, so that tests can hold
  // both to the same results.
  static void AllowWideVectors(bool allow);

  // Y[m][t]: output m of the 32-point cosine transform (DCT-II) of time slot t. The
  // frame's slots start at t = kFirst, the last 15 of the frame before lie just below
  // it; row 32 stays zero.
  static constexpr int kFirst = 16;
  static constexpr int kRow = kFirst + 36 + 4;

 private:
  alignas(16) float aY[33][kRow];
};

// The planar samples of one or two channels (right null for one), at full scale 1,
// as interleaved integers at full scale 2^27 (LMP3IntegerScale), rounded and held in
// range. `samples` per channel is a multiple of 4.
void LMP3ToIntegers(float const* left, float const* right, int samples, std::int32_t* out);
// The same integers as floats at full scale 1: each exactly the integer times 2^-27.
void LMP3ToIntegerSteps(float const* left, float const* right, int samples, float* out);

// Full scale of the integer samples the decoder gives: 2^27, so that the 32-bit
// range leaves four bits above full scale for the overshoot of loud passages.
inline constexpr float LMP3IntegerScale = 134217728.0f;
