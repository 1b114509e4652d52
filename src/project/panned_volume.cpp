#include "project/panned_volume.h"

#include <algorithm>
#include <cmath>

void TDPannedVolume::ApplyCentreToLeftAndRight() {
  fFirstChannelGain = fCentre;
  fSecondChannelGain = fCentre;
  if (dPan == 0.0) return;

  const double centreAmplitude = std::pow(10.0, fCentre * 0.05);
  const double fullPanAmplitude = std::pow(10.0, -48.0 * 0.05);
  const double x = (fullPanAmplitude - centreAmplitude) * std::fabs(dPan) + centreAmplitude;
  const float lowered = x > 0.0 ? static_cast<float>(std::clamp(20.0 * std::log10(x), -127.0, 127.0)) : -127.0f;
  if (dPan > 0.0)
    fSecondChannelGain = lowered;
  else
    fFirstChannelGain = lowered;
}
