#pragma once
#include <bit>
#include <cstdint>

// Reading and writing fixed-width integers at a byte address in a stated byte order.
// File headers are parsed out of byte buffers with these, never by overlaying a
// struct, so a header reads the same on any host and from any alignment.

inline std::uint16_t LReadLE16(std::uint8_t const* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t LReadLE32(std::uint8_t const* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline std::uint16_t LReadBE16(std::uint8_t const* p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t LReadBE32(std::uint8_t const* p) {
  return (static_cast<std::uint32_t>(p[0]) << 24) | (static_cast<std::uint32_t>(p[1]) << 16) |
         (static_cast<std::uint32_t>(p[2]) << 8) | static_cast<std::uint32_t>(p[3]);
}
inline std::uint64_t LReadBE64(std::uint8_t const* p) {
  return (static_cast<std::uint64_t>(LReadBE32(p)) << 32) | LReadBE32(p + 4);
}

inline void LWriteLE16(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void LWriteLE32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void LWriteBE16(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}
inline void LWriteBE32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
}
inline void LWriteBE64(std::uint8_t* p, std::uint64_t v) {
  LWriteBE32(p, static_cast<std::uint32_t>(v >> 32));
  LWriteBE32(p + 4, static_cast<std::uint32_t>(v));
}

// Byte order conversion of a value already in a register: little- and big-endian
// storage to host order and back (the same operation both ways).
inline std::uint16_t LByteSwap16(std::uint16_t v) {
  return __builtin_bswap16(v);
}
inline std::uint32_t LByteSwap32(std::uint32_t v) {
  return __builtin_bswap32(v);
}
inline std::uint64_t LByteSwap64(std::uint64_t v) {
  return __builtin_bswap64(v);
}

template <class T>
inline T LHostFromLE(T v) {
  if constexpr (std::endian::native == std::endian::little || sizeof(T) == 1) {
    return v;
  } else if constexpr (sizeof(T) == 2) {
    return static_cast<T>(LByteSwap16(static_cast<std::uint16_t>(v)));
  } else if constexpr (sizeof(T) == 4) {
    return static_cast<T>(LByteSwap32(static_cast<std::uint32_t>(v)));
  } else {
    return static_cast<T>(LByteSwap64(static_cast<std::uint64_t>(v)));
  }
}

template <class T>
inline T LHostFromBE(T v) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) {
    return v;
  } else if constexpr (sizeof(T) == 2) {
    return static_cast<T>(LByteSwap16(static_cast<std::uint16_t>(v)));
  } else if constexpr (sizeof(T) == 4) {
    return static_cast<T>(LByteSwap32(static_cast<std::uint32_t>(v)));
  } else {
    return static_cast<T>(LByteSwap64(static_cast<std::uint64_t>(v)));
  }
}
