#pragma once
#include <cstdint>

// A colour as saved in project files: three 16-bit components.
struct TDRGB16 {
  std::uint16_t uRed = 0;
  std::uint16_t uGreen = 0;
  std::uint16_t uBlue = 0;

  friend bool operator==(const TDRGB16&, const TDRGB16&) = default;
};
