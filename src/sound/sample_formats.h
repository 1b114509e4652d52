#pragma once
#include <array>
#include <bit>
#include <cstdint>

#include "foundation/byte_order.h"

// The storage formats of audio bodies in files, one class per format. Each class is
// the stored sample itself (its size is the size on disk, alignment permitting a
// buffer of them to be read straight from a file) with Get, the value as float, and
// Set, the float stored. Integer formats scale by the largest positive code, so 1.0
// is full scale and -1.0 its mirror.
//
// Nothing clips: a value beyond full scale wraps the way the integer store wraps.
// Limiting belongs to the end of every write job, not to the file formats. A NaN,
// or a value too large for any integer, stores 0 rather than an undefined pattern.
//
// Bulk conversions: ConvertSamplesIn<F> and ConvertSamplesOut<F> below; counts are
// samples, not frames.

namespace LSampleFormatDetail {

// Truncation toward zero of a value that may lie far outside every integer range.
inline std::int64_t Trunc(double d) {
  if (d > -9.0e18 && d < 9.0e18) return static_cast<std::int64_t>(d);
  return 0;
}

// float -> 16-bit: in single precision times 32767, then in double half a step away
// from zero, truncated.
inline std::uint16_t Out16(float v) {
  double d = static_cast<double>(v * 32767.0f);
  d += v >= 0.0f ? 0.5 : -0.5;
  return static_cast<std::uint16_t>(Trunc(d));
}

// float -> 32-bit: in double times 2^31-1, half a step away from zero, truncated.
inline std::uint32_t Out32(float v) {
  double d = static_cast<double>(v) * 2147483647.0;
  d += v >= 0.0f ? 0.5 : -0.5;
  return static_cast<std::uint32_t>(Trunc(d));
}

// float -> offset 8-bit: single precision, truncated without rounding, so that the
// byte values stay where the older files of this program put them.
inline std::uint8_t OutU8(float v) {
  return static_cast<std::uint8_t>(Trunc(v * 127.0f + 128.0f));
}

inline float In32(std::uint32_t u) {
  return static_cast<float>(static_cast<double>(static_cast<std::int32_t>(u)) * 4.656612875e-10);
}

}  // namespace LSampleFormatDetail

// Unsigned 8-bit, 128 the zero (WAV).
struct LSFU8 {
  std::uint8_t v;
  float Get() const { return static_cast<float>(static_cast<int>(v) - 128) * 0.007874016f; }
  void Set(float f) { v = LSampleFormatDetail::OutU8(f); }
};

// Signed 8-bit (AIFF, AU): the same scale and truncation as LSFU8, with the sign bit
// flipped in the store.
struct LSFS8 {
  std::uint8_t v;
  float Get() const { return static_cast<float>(static_cast<std::int8_t>(v)) * 0.007874016f; }
  void Set(float f) { v = static_cast<std::uint8_t>(LSampleFormatDetail::OutU8(f) ^ 0x80u); }
};

// Signed 16-bit little-endian.
struct LSF16 {
  std::uint16_t v;
  float Get() const { return static_cast<float>(static_cast<std::int16_t>(LHostFromLE(v))) * 3.051851e-5f; }
  void Set(float f) { v = LHostFromLE(LSampleFormatDetail::Out16(f)); }
};

// Signed 16-bit big-endian: LSF16 byte-swapped.
struct LSF16BE {
  std::uint16_t v;
  float Get() const { return static_cast<float>(static_cast<std::int16_t>(LHostFromBE(v))) * 3.051851e-5f; }
  void Set(float f) { v = LHostFromBE(LSampleFormatDetail::Out16(f)); }
};

// Signed 24-bit little-endian in three bytes: the bytes go to the top of a 32-bit
// word, which then converts as LSF32.
struct LSFLE24 {
  std::uint8_t b[3];
  float Get() const {
    return LSampleFormatDetail::In32((std::uint32_t{b[0]} << 8) | (std::uint32_t{b[1]} << 16) |
                                     (std::uint32_t{b[2]} << 24));
  }
  void Set(float f) {
    std::uint32_t const u = LSampleFormatDetail::Out32(f);
    b[0] = static_cast<std::uint8_t>(u >> 8);
    b[1] = static_cast<std::uint8_t>(u >> 16);
    b[2] = static_cast<std::uint8_t>(u >> 24);
  }
};

// Signed 24-bit big-endian: LSFLE24 byte-swapped.
struct LSFBE24 {
  std::uint8_t b[3];
  float Get() const {
    return LSampleFormatDetail::In32((std::uint32_t{b[2]} << 8) | (std::uint32_t{b[1]} << 16) |
                                     (std::uint32_t{b[0]} << 24));
  }
  void Set(float f) {
    std::uint32_t const u = LSampleFormatDetail::Out32(f);
    b[2] = static_cast<std::uint8_t>(u >> 8);
    b[1] = static_cast<std::uint8_t>(u >> 16);
    b[0] = static_cast<std::uint8_t>(u >> 24);
  }
};

// Signed 32-bit little-endian.
struct LSF32 {
  std::uint32_t v;
  float Get() const { return LSampleFormatDetail::In32(LHostFromLE(v)); }
  void Set(float f) { v = LHostFromLE(LSampleFormatDetail::Out32(f)); }
};

// Signed 32-bit big-endian.
struct LSF32BE {
  std::uint32_t v;
  float Get() const { return LSampleFormatDetail::In32(LHostFromBE(v)); }
  void Set(float f) { v = LHostFromBE(LSampleFormatDetail::Out32(f)); }
};

// A signed integer of 20 significant bits in the low part of a 32-bit little-endian
// word, as some capture hardware delivers it. Read only.
struct LSF20 {
  std::uint32_t v;
  float Get() const { return static_cast<float>(static_cast<std::int32_t>(LHostFromLE(v))) * 1.9073523e-6f; }
};

// IEEE single, little-endian: copied both ways.
struct LSFF32 {
  std::uint32_t v;
  float Get() const { return std::bit_cast<float>(LHostFromLE(v)); }
  void Set(float f) { v = LHostFromLE(std::bit_cast<std::uint32_t>(f)); }
};

// IEEE single, big-endian.
struct LSFF32BE {
  std::uint32_t v;
  float Get() const { return std::bit_cast<float>(LHostFromBE(v)); }
  void Set(float f) { v = LHostFromBE(std::bit_cast<std::uint32_t>(f)); }
};

// IEEE double, little-endian, narrowed to single. Read only.
struct LSFF64 {
  std::uint64_t v;
  float Get() const { return static_cast<float>(std::bit_cast<double>(LHostFromLE(v))); }
};

// IEEE double, big-endian. Read only.
struct LSFF64BE {
  std::uint64_t v;
  float Get() const { return static_cast<float>(std::bit_cast<double>(LHostFromBE(v))); }
};

// The float value of every G.711 code; filled once from the expansion rules.
extern std::array<float, 256> const kLSFULawToFloat;
extern std::array<float, 256> const kLSFALawToFloat;

// G.711 mu-law byte. The float scale puts the 16-bit linear value 32256 at 1.0, so
// that no code exceeds full scale; compression saturates at the largest code, as the
// law has no wrap.
struct LSFULAW {
  std::uint8_t v;
  float Get() const { return kLSFULawToFloat[v]; }
  void Set(float f) { v = Compress(f); }

  // The G.711 expansion to 16-bit linear (largest magnitude 32124).
  static int Expand(std::uint8_t code);
  // The G.711 compression of a 16-bit linear value.
  static std::uint8_t CompressLinear(int linear);
  static std::uint8_t Compress(float f);
};

// G.711 A-law byte, same float scale as mu-law (largest magnitude 32256 is 1.0).
struct LSFALAW {
  std::uint8_t v;
  float Get() const { return kLSFALawToFloat[v]; }
  void Set(float f) { v = Compress(f); }

  static int Expand(std::uint8_t code);
  static std::uint8_t CompressLinear(int linear);
  static std::uint8_t Compress(float f);
};

static_assert(sizeof(LSFU8) == 1 && sizeof(LSFS8) == 1 && sizeof(LSF16) == 2 && sizeof(LSF16BE) == 2);
static_assert(sizeof(LSFLE24) == 3 && sizeof(LSFBE24) == 3 && sizeof(LSF32) == 4 && sizeof(LSF32BE) == 4);
static_assert(sizeof(LSF20) == 4 && sizeof(LSFF32) == 4 && sizeof(LSFF32BE) == 4);
static_assert(sizeof(LSFF64) == 8 && sizeof(LSFF64BE) == 8 && sizeof(LSFULAW) == 1 && sizeof(LSFALAW) == 1);

// File to float, `count` samples. Unrolled by eight so the compiler keeps eight
// independent conversions in flight; the tail goes one by one.
template <class F>
inline void ConvertSamplesIn(float* dst, F const* src, int count) {
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    dst[i] = src[i].Get();
    dst[i + 1] = src[i + 1].Get();
    dst[i + 2] = src[i + 2].Get();
    dst[i + 3] = src[i + 3].Get();
    dst[i + 4] = src[i + 4].Get();
    dst[i + 5] = src[i + 5].Get();
    dst[i + 6] = src[i + 6].Get();
    dst[i + 7] = src[i + 7].Get();
  }
  for (; i < count; ++i) dst[i] = src[i].Get();
}

// Float to file, `count` samples.
template <class F>
inline void ConvertSamplesOut(F* dst, float const* src, int count) {
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    dst[i].Set(src[i]);
    dst[i + 1].Set(src[i + 1]);
    dst[i + 2].Set(src[i + 2]);
    dst[i + 3].Set(src[i + 3]);
    dst[i + 4].Set(src[i + 4]);
    dst[i + 5].Set(src[i + 5]);
    dst[i + 6].Set(src[i + 6]);
    dst[i + 7].Set(src[i + 7]);
  }
  for (; i < count; ++i) dst[i].Set(src[i]);
}

// Whether F can be written (the read-only formats have no Set).
template <class F>
concept LSampleFormatWritable = requires(F f) {
  f.Set(0.0f);
};
