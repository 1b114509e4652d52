#pragma once
#include <cstdint>

// GSM 06.10 full-rate speech codec (RPE-LTP), 8000 Hz mono, 160 samples a frame, in the
// fixed-point arithmetic of the standard so that output is bit-exact with other
// conforming coders. Samples are 16-bit linear PCM of which the codec keeps the top 13
// bits on input and delivers 13 bits, left-aligned, on output.
//
// Two packings exist:
//  - 33 bytes a frame, first nibble 0xD, the parameters following most significant bit
//    first: raw `.gsm` files are runs of these;
//  - WAVE format tag 49 ("WAV49"): two frames of 260 bits each in 65 bytes, the
//    parameters least significant bit first and no signature.
//
// Neither the encoder nor the decoder allocates; both carry state from frame to frame,
// so frames must be fed in order, and Reset() is called at a seek.

// The parameters of one frame, as transmitted. Each is an unsigned code of its field's
// width; the log-area ratios are offset so their codes start at 0.
struct LGsm610Frame {
  std::uint8_t LARc[8];     // widths 6 6 5 5 4 4 3 3
  std::uint8_t Nc[4];       // long-term lag, 7 bits (40..120 when sent by a coder)
  std::uint8_t bc[4];       // long-term gain, 2 bits
  std::uint8_t Mc[4];       // grid position, 2 bits
  std::uint8_t xmaxc[4];    // block amplitude, 6 bits
  std::uint8_t xMc[4][13];  // pulses, 3 bits each
};

// Packs one frame into 33 bytes with the 0xD signature.
void LGsm610Pack(LGsm610Frame const& frame, std::uint8_t out[33]);
// Unpacks 33 bytes; false when the signature nibble is not 0xD (the fields are still read).
bool LGsm610Unpack(std::uint8_t const in[33], LGsm610Frame& frame);
// Packs two frames into one 65-byte WAV49 block, and back.
void LGsm610PackWav49(LGsm610Frame const& first, LGsm610Frame const& second, std::uint8_t out[65]);
void LGsm610UnpackWav49(std::uint8_t const in[65], LGsm610Frame& first, LGsm610Frame& second);

class LGsm610Encoder {
 public:
  LGsm610Encoder() { Reset(); }
  void Reset();
  // Analyses 160 samples into one frame's parameters.
  void Encode(std::int16_t const in[160], LGsm610Frame& frame);
  void EncodeFrame(std::int16_t const in[160], std::uint8_t out[33]);
  // Microsoft WAV49 packing: two frames, 320 samples, in 65 bytes.
  void EncodeWav49Block(std::int16_t const in[320], std::uint8_t out[65]);

 private:
  // Pre-processing: offset compensation and pre-emphasis memories.
  std::int16_t z1;
  std::int32_t L_z2;
  std::int16_t mp;
  // The previous frame's decoded log-area ratios, for interpolation.
  std::int16_t LARppPrev[8];
  // Short-term analysis lattice memory.
  std::int16_t u[8];
  // The last 120 samples of the reconstructed short-term residual, as the decoder will
  // have them; the long-term predictor searches these.
  std::int16_t dp[120];
};

class LGsm610Decoder {
 public:
  LGsm610Decoder() { Reset(); }
  void Reset();
  // Synthesises 160 samples from one frame's parameters. Fields wider than their
  // widths are masked, so any frame is safe.
  void Decode(LGsm610Frame const& frame, std::int16_t out[160]);
  // False if the 0xD signature nibble is wrong (the frame is still decoded).
  bool DecodeFrame(std::uint8_t const in[33], std::int16_t out[160]);
  void DecodeWav49Block(std::uint8_t const in[65], std::int16_t out[320]);

 private:
  std::int16_t LARppPrev[8];
  // Short-term synthesis lattice memory.
  std::int16_t v[9];
  // De-emphasis memory.
  std::int16_t msr;
  // The last lag that was in range, used when a frame carries one that is not.
  int nrp;
  // The last 120 samples of the reconstructed short-term residual.
  std::int16_t drp[120];
};
