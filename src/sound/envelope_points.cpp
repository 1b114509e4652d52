#include "sound/envelope_points.h"

#include <cmath>

namespace {

// Whole dB of a double, half away from zero, held to the range a signed char
// level can say. A NaN read from a damaged file becomes silence rather than an
// undefined conversion.
signed char WholeDB(double dB) {
  if (std::isnan(dB)) return -127;
  return static_cast<signed char>(std::clamp(std::round(dB), -127.0, 127.0));
}

}  // namespace

LdB<signed char> LEnvelopePointVol::GetDB() const {
  if (dValue == -1.0) return LdB<signed char>(-127);
  return LdB<signed char>(WholeDB(dValue <= 0.0 ? dValue * 48.0 : dValue * 12.0));
}

LDBMultiChannel<signed char> LEnvelopePointPan::GetPanDB() const {
  LDBMultiChannel<signed char> levels(2);
  levels[0] = 0;
  levels[1] = 0;
  if (dValue > 0.0) {
    levels[1] = dValue == 1.0 ? static_cast<signed char>(-127) : WholeDB(-dValue * 48.0);
  } else if (dValue < 0.0) {
    levels[0] = dValue == -1.0 ? static_cast<signed char>(-127) : WholeDB(dValue * 48.0);
  }
  return levels;
}
