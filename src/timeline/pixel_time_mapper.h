#pragma once
#include "foundation/sound_time.h"

// The map between the columns of the track area and project time: `first
// pixel` shows `first time`, `last pixel` shows `last time`, straight between.
// Pixel and time results are truncated, never rounded, so a column always shows
// the time at its left edge and the same time maps back to the same column.
struct TDPixelSoundTimeMapper {
  int iFirstPixel = 0;
  int iLastPixel = 0;
  LSoundTime iFirstTime = 0;
  LSoundTime iLastTime = 0;

  TDPixelSoundTimeMapper() = default;
  TDPixelSoundTimeMapper(int firstPixel, int lastPixel, LSoundTime firstTime, LSoundTime lastTime)
      : iFirstPixel(firstPixel), iLastPixel(lastPixel), iFirstTime(firstTime), iLastTime(lastTime) {}

  // Milliseconds a column covers; 0 for a mapper without width.
  double GetMSPerPixel() const;
  LSoundTime MapPixelToSoundTime(int pixel) const;
  int MapSoundTimeToPixel(LSoundTime time) const;
};
