#pragma once
#include <array>
#include <cstdint>
#include <vector>

// The geometry of a clip's outline in a rectangle, apart from any drawing
// library: one vertical line per column and the three stretches (before, inside
// and after the selection) that are drawn in turn with their own pens.
struct TDWaveProfileLine {
  int iTop = 0;
  int iBottom = 0;  // inclusive
};

struct TDWaveProfileStretch {
  int iFrom = 0;  // first column
  int iTo = 0;    // one past the last
  bool bSelected = false;
};

struct TDWaveProfileGeometry {
  std::vector<TDWaveProfileLine> vLines;  // one per column, from the left
  std::array<TDWaveProfileStretch, 3> aStretches;
};

// Lays out `width` columns of an outline (peak bytes 0..255 of full scale above
// and below zero) in a rectangle at `top` of `height` pixels around its middle.
// The selection runs over columns selectionStart..selectionEnd of the rectangle,
// clamped to 1..width - 1 and put in order; an empty one leaves every column in
// the first stretch. `out` keeps its capacity between calls, so redrawing costs
// no allocation once the widest clip was drawn.
void TDLayoutWaveProfile(std::uint8_t const* upper, std::uint8_t const* lower, int width, int top, int height,
                         int selectionStart, int selectionEnd, TDWaveProfileGeometry& out);
