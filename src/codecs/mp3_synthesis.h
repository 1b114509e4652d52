#pragma once
#include <cstdint>

// The polyphase filter bank that turns 32 sub-band samples into 32 output samples,
// one channel at a time. Its history (16 vectors of 64) is the state a seek clears.
class LMP3PolyphaseSynth {
 public:
  LMP3PolyphaseSynth() { Reset(); }
  void Reset();

  // One granule: `subbands` holds 18 time slots of 32 sub-band samples each.
  // Writes 18 * 32 samples as integers at full scale 2^27, `stride` apart.
  void Synthesize(float const (*subbands)[32], std::int32_t* out, int stride);

  // The 32 values of one time slot: V[i] = sum over k of S[k] cos((16 + i)(2k + 1) pi / 64)
  // for i = 0..63, by a fast cosine transform. Public for the tests.
  static void MatrixMultiply(float const* s, float* v);

 private:
  float aHistory[16][64];
  int iHead = 0;  // the slot the newest vector went to
};

// Full scale of the integer samples the decoder gives: 2^27, so that the 32-bit
// range leaves four bits above full scale for the overshoot of loud passages.
inline constexpr float LMP3IntegerScale = 134217728.0f;
