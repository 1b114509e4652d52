#pragma once

// A track's fixed gain and pan. The centre is the level the user set; the two
// channel gains are what the mix applies, derived from centre and pan by
// ApplyCentreToLeftAndRight. All levels in dB.
class TDPannedVolume {
 public:
  float fFirstChannelGain = 0.0f;
  float fSecondChannelGain = 0.0f;
  float fCentre = 0.0f;
  // 1.0 leans fully to the first (left) channel by lowering the second; -1.0 the
  // other way. The controller maps its 0..100 pan control onto this.
  double dPan = 0.0;

  // Pan only ever lowers the channel away from which it points; a full pan leaves
  // that side 48 dB down rather than silent, matching the range of the pan lines.
  void ApplyCentreToLeftAndRight();
};
