#pragma once
#include <memory>

#include "sound/sound_source.h"

// Scrubbing: while the user holds the cursor still, the few frames around it sound
// again and again, so that a spot can be found by ear. The window is a tenth of a
// second (at least 20 frames); each turn of it fades in from what would have
// followed the last turn, over a twentieth of a second, so the repeat does not click.
//
// It reads a window [start, start + window) of its source: it plays [start, end),
// end = start + window - fade, and at the start of each turn mixes the tail that
// follows end into the head, tail * (1 - w) + head * w, w rising from 0 to 1 over the
// fade. Its end is never reached.
class LScrubSourceBase : public LSoundProcessBase {
 public:
  // Centred on `point`, a frame of `source`.
  LScrubSourceBase(LSoundSource const& source, int point);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return lssSource->GetPositionSample(); }
  int GetEndSample() const override { return 0x7FFFFFFF; }
  // Keeps the window: a position outside it starts a turn.
  void Seek(int frame) override;

  // Moves the window to be centred on `point`. When the source stands before the
  // new window's fade ends (the user moved back), the next turn starts without a
  // fade: there is no tail of the old window to fade from that would fit.
  void SetPoint(int point);
  // Puts another source under the window (the mix was rebuilt), at the same place.
  void SetSource(LSoundSource const& source);

  int GetWindowFrames() const { return iWindow; }
  int GetFadeFrames() const { return iFade; }
  int GetLoopStart() const { return iStart; }
  int GetLoopEnd() const { return iEnd; }

 private:
  int iWindow;
  int iFade;
  float fFadeStep;
  int iStart = 0;
  int iEnd = 0;
  bool bNoFade = false;
  std::unique_ptr<float[]> pHead;
  std::unique_ptr<float[]> pTail;
};
