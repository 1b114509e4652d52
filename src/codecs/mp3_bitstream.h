#pragma once
#include <cstddef>
#include <cstdint>

// Reads bits most significant first from a byte buffer. The buffer must have at
// least kPadBytes readable bytes past the last one that counts, so a look-ahead
// never needs a bounds test; what lies there is never taken as data by the callers,
// who hold their own limits. (The spectrum's reader in mp3_layer3.cpp tops up its
// buffer from up to 16 bytes past its position.)
class LMP3BitReader {
 public:
  static constexpr int kPadBytes = 16;

  LMP3BitReader() = default;
  LMP3BitReader(std::uint8_t const* data, std::size_t bitPos) : pData(data), uPos(bitPos) {}

  // The next 32 bits, left-aligned, without moving.
  std::uint32_t Peek32() const {
    std::uint8_t const* p = pData + (uPos >> 3);
    std::uint64_t v = (static_cast<std::uint64_t>(p[0]) << 56) | (static_cast<std::uint64_t>(p[1]) << 48) |
                      (static_cast<std::uint64_t>(p[2]) << 40) | (static_cast<std::uint64_t>(p[3]) << 32) |
                      (static_cast<std::uint64_t>(p[4]) << 24);
    return static_cast<std::uint32_t>((v << (uPos & 7)) >> 32);
  }
  void Skip(unsigned bits) { uPos += bits; }
  // Up to 24 bits.
  std::uint32_t Read(int bits) {
    if (bits == 0) return 0;
    std::uint32_t const v = Peek32() >> (32 - bits);
    uPos += static_cast<unsigned>(bits);
    return v;
  }
  std::uint32_t ReadBit() { return Read(1); }
  std::size_t Position() const { return uPos; }
  void SetPosition(std::size_t bitPos) { uPos = bitPos; }

 private:
  std::uint8_t const* pData = nullptr;
  std::size_t uPos = 0;
};
