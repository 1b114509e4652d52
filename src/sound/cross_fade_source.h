#pragma once
#include <memory>

#include "sound/sound_source.h"

class LSRCCrossFade;

// The player's memory of what it sent to the device, which lets a new source take
// over without a click. Every frame the top of the chain delivers is kept in a
// history of 2,097,152 floats (8 MB, about 21 s of stereo at 48 kHz); when the
// player swaps sources it steps the history back by the frames it dropped from its
// ring, so that the history's next frames are exactly what the old source would
// have played next, and the new source's first read fades from them to itself.
//
// The player owns one of these for its life; each source it plays is wrapped by
// OpenSource into an LSRCCrossFade that writes here. Used from the pump, or from
// the main thread while the pump is held off.
class LCrossFadeSource {
 public:
  static constexpr int BufferFloats = 2097152;
  static constexpr int IndexMask = BufferFloats - 1;
  // The most channels a fade mixes; wider sources switch without one.
  static constexpr int MaxChannels = 32;

  LCrossFadeSource();
  LCrossFadeSource(LCrossFadeSource const&) = delete;
  LCrossFadeSource& operator=(LCrossFadeSource const&) = delete;

  // Wraps `source` so that what it delivers is kept here and, when a fade is armed,
  // its first read fades in over the history. A source in error comes back as it is.
  LSoundSource OpenSource(LSoundSource const& source);
  // Forgets the history: the next source starts without a fade.
  void Clear();
  // Moves the history's read point back by `frames`, the frames the player dropped,
  // and arms the fade for the next read.
  void ArmFade(int frames);

  bool IsFadeArmed() const { return bDoCrossFade; }
  int GetIndex() const { return iCrossFadeIdx; }

 private:
  friend class LSRCCrossFade;

  LSoundSource lss;
  bool bDoCrossFade = false;
  std::unique_ptr<float[]> CrossFadeBuffer;
  int iCrossFadeIdx = 0;
  int nChans = 0;       // channels of what the history holds
  int iHeldFloats = 0;  // floats written since the last Clear, up to the buffer
};

// Reads its source and, when the owner's fade is armed, mixes this one read as
// `new * ramp + old * (1 - ramp)`, the ramp rising from 0 by 1 / frames a frame, the
// old frames coming from the owner's history. Everything it delivers goes into the
// history. Everything else passes down.
class LSRCCrossFade : public LSoundProcessBase {
 public:
  LSRCCrossFade(LSoundSource const& source, LCrossFadeSource& owner);
  void Read(float* buffer, int frames) override;

 private:
  LCrossFadeSource& rOwner;
};
