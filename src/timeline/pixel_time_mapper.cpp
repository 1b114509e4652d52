#include "timeline/pixel_time_mapper.h"

#include <cmath>
#include <limits>

double TDPixelSoundTimeMapper::GetMSPerPixel() const {
  if (iLastPixel == iFirstPixel) return 0.0;
  return static_cast<double>(iLastTime - iFirstTime) / static_cast<double>(iLastPixel - iFirstPixel);
}

LSoundTime TDPixelSoundTimeMapper::MapPixelToSoundTime(int pixel) const {
  double const time = std::trunc(pixel * GetMSPerPixel()) + iFirstTime;
  constexpr double kMax = std::numeric_limits<LSoundTime>::max();
  constexpr double kMin = std::numeric_limits<LSoundTime>::min();
  return static_cast<LSoundTime>(time > kMax ? kMax : time < kMin ? kMin : time);
}

int TDPixelSoundTimeMapper::MapSoundTimeToPixel(LSoundTime time) const {
  double const msPerPixel = GetMSPerPixel();
  if (msPerPixel == 0.0) return iFirstPixel;
  double const pixel = std::trunc(iFirstPixel + static_cast<double>(time - iFirstTime) / msPerPixel);
  // Far outside the view (a clip hours away when zoomed in) still gives a column
  // a painter can clip, never an overflow.
  constexpr double kLimit = std::numeric_limits<int>::max() / 2;
  if (pixel > kLimit) return static_cast<int>(kLimit);
  if (pixel < -kLimit) return static_cast<int>(-kLimit);
  return static_cast<int>(pixel);
}
