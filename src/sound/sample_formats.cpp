#include "sound/sample_formats.h"

#include <array>
#include <bit>

namespace {

// One step of the float scale: the mu-law expansion written sixteen times larger
// (bias table 0, 2112, ..., 268224 and a mantissa shift of exponent + 7), times this.
constexpr float kG711Scale = 1.9376241e-6f;

constexpr int ExpandULaw(std::uint8_t code) {
  // Codes are stored inverted so that silence is not a run of zero bytes on the line.
  int const u = ~code & 0xFF;
  int const exponent = (u >> 4) & 7;
  int const mantissa = u & 0x0F;
  // Segment e starts at 132 * (2^e - 1); the mantissa steps by 2^(e+3).
  int const magnitude = (((mantissa << 3) + 0x84) << exponent) - 0x84;
  return (u & 0x80) != 0 ? -magnitude : magnitude;
}

constexpr int ExpandALaw(std::uint8_t code) {
  // Even bits are inverted on the line; the set sign bit means positive.
  int const a = code ^ 0x55;
  int const segment = (a >> 4) & 7;
  int const mantissa = a & 0x0F;
  int magnitude = (mantissa << 4) + 8;
  if (segment > 0) magnitude = ((mantissa << 4) + 0x108) << (segment - 1);
  return (a & 0x80) != 0 ? magnitude : -magnitude;
}

constexpr std::array<float, 256> MakeTable(int (*expand)(std::uint8_t)) {
  std::array<float, 256> t{};
  for (int c = 0; c < 256; ++c) {
    t[static_cast<std::size_t>(c)] = static_cast<float>(expand(static_cast<std::uint8_t>(c)) * 16) * kG711Scale;
  }
  return t;
}

// Float of the G.711 scale to the nearest 16-bit linear value, held in range (the
// laws saturate, they do not wrap).
int LinearFromFloat(float f) {
  float const s = f * 32256.0f;
  if (!(s == s)) return 0;  // NaN
  if (s >= 32767.0f) return 32767;
  if (s <= -32768.0f) return -32768;
  return static_cast<int>(s >= 0.0f ? s + 0.5f : s - 0.5f);
}

// Bit length of a positive value below 2^16.
int BitLength(unsigned v) {
  return v == 0 ? 0 : 32 - std::countl_zero(v);
}

}  // namespace

constinit std::array<float, 256> const kLSFULawToFloat = MakeTable(ExpandULaw);
constinit std::array<float, 256> const kLSFALawToFloat = MakeTable(ExpandALaw);

int LSFULAW::Expand(std::uint8_t code) {
  return ExpandULaw(code);
}

std::uint8_t LSFULAW::CompressLinear(int linear) {
  int const sign = linear < 0 ? 0x80 : 0x00;
  // The law works on 14-bit magnitudes; from 8158 on, all inputs share the last code.
  // Negative inputs are taken in one's complement, as the ITU reference coder does,
  // so that -1 is the negative zero and both signs have the same decision levels.
  int magnitude = (linear < 0 ? ~linear : linear) >> 2;
  if (magnitude > 8158) magnitude = 8158;
  // With the bias of 33 every segment begins at a power of two: the exponent is the
  // position of the leading one and the mantissa the four bits behind it.
  unsigned const biased = static_cast<unsigned>(magnitude + 33);
  int const exponent = BitLength(biased) - 6;
  int const mantissa = static_cast<int>(biased >> (exponent + 1)) & 0x0F;
  return static_cast<std::uint8_t>(~(sign | (exponent << 4) | mantissa) & 0xFF);
}

std::uint8_t LSFULAW::Compress(float f) {
  return CompressLinear(LinearFromFloat(f));
}

int LSFALAW::Expand(std::uint8_t code) {
  return ExpandALaw(code);
}

std::uint8_t LSFALAW::CompressLinear(int linear) {
  int const sign = linear >= 0 ? 0x80 : 0x00;
  // 13-bit magnitudes, negatives in one's complement as for mu-law; 4095 is the top
  // of the last segment.
  int magnitude = (linear < 0 ? ~linear : linear) >> 3;
  if (magnitude > 4095) magnitude = 4095;
  int exponent = 0;
  int mantissa = (magnitude >> 1) & 0x0F;
  if (magnitude >= 32) {
    exponent = BitLength(static_cast<unsigned>(magnitude)) - 5;
    mantissa = (magnitude >> exponent) & 0x0F;
  }
  return static_cast<std::uint8_t>((sign | (exponent << 4) | mantissa) ^ 0x55);
}

std::uint8_t LSFALAW::Compress(float f) {
  return CompressLinear(LinearFromFloat(f));
}
