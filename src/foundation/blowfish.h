#pragma once
#include <cstddef>
#include <cstdint>

// Blowfish, the 64-bit block cipher of Schneier's 1993 paper: 16 rounds, a key of
// 1 to 56 bytes expanded into key-dependent P-array and S-boxes.
//
// The program uses it to keep stored passwords and tokens from reading as plain
// text in the preference file. Its key is built into the program, so that is
// hiding, not protection; do not use this class where secrecy matters.
class LBlowfish {
 public:
  static constexpr std::size_t kBlockBytes = 8;

  // The key bytes are used cyclically over the 72 bytes of the P-array, so bytes
  // past the 72nd change nothing, and an empty key acts as a key of zero bytes.
  LBlowfish(const void* key, std::size_t keyBytes);

  // One block as two 32-bit halves.
  void EncryptBlock(std::uint32_t& left, std::uint32_t& right) const;
  void DecryptBlock(std::uint32_t& left, std::uint32_t& right) const;

  // One 8-byte block in place; each half is read big-endian, the byte order of
  // the published test vectors.
  void EncryptBlock(std::uint8_t* block) const;
  void DecryptBlock(std::uint8_t* block) const;

  // Each block on its own (ECB). False, with nothing changed, when size is not a
  // whole number of blocks.
  bool EncryptECB(std::uint8_t* data, std::size_t size) const;
  bool DecryptECB(std::uint8_t* data, std::size_t size) const;

 private:
  std::uint32_t F(std::uint32_t x) const;

  std::uint32_t P[18];
  std::uint32_t S[4][256];
};
