#include "timeline/wave_profile_drawing.h"

#include <algorithm>

void TDLayoutWaveProfile(std::uint8_t const* upper, std::uint8_t const* lower, int width, int top, int height,
                         int selectionStart, int selectionEnd, TDWaveProfileGeometry& out) {
  width = std::max(width, 0);
  out.vLines.resize(static_cast<std::size_t>(width));
  int const half = height / 2;
  int const centre = top + half;
  for (int x = 0; x < width; ++x) {
    // Integer arithmetic gives the same truncation as the scaled quotient, and
    // never reaches past the rectangle: 255 maps to the full half height.
    int const up = upper != nullptr ? upper[x] * half / 255 : 0;
    int const down = lower != nullptr ? lower[x] * half / 255 : 0;
    out.vLines[static_cast<std::size_t>(x)] = {centre - up, centre + down};
  }

  int start = std::clamp(selectionStart, 1, std::max(1, width - 1));
  int end = std::clamp(selectionEnd, 1, std::max(1, width - 1));
  if (end < start) std::swap(start, end);
  if (selectionStart == selectionEnd) start = end = width;  // nothing selected
  out.aStretches[0] = {0, start, false};
  out.aStretches[1] = {start, end, true};
  out.aStretches[2] = {end, width, false};
}
