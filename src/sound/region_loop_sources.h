#pragma once
#include <cstdint>

#include "sound/sound_source.h"

// Plays the frames [start, end) of a source, counted in the source's own frame
// numbers, and zeros after. Start and end given the wrong way round are swapped.
class LRegionSourceBase : public LSoundProcessBase {
 public:
  LRegionSourceBase(LSoundSource const& source, int start, int end);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  // Clamped to the region; the source is seeked within its own range.
  void Seek(int frame) override;

  int GetStart() const { return sStart; }

 private:
  int sStart;
  int sEnd;
  int sPosition;
};

// Plays a source from wherever it stands and, on reaching `end`, jumps back to
// `start`, without end. The loop is fitted into the source at construction; an empty
// loop (start equal to end) plays silence.
class LLoopSourceBase : public LSoundProcessBase {
 public:
  LLoopSourceBase(LSoundSource const& source, int start, int end);

  void Read(float* buffer, int frames) override;
  int GetEndSample() const override { return 0x7FFFFFFF; }
  // Positions outside the loop are folded into it.
  void Seek(int frame) override;
  int AdjustRelativeOffset(int offset, int position) override;
  // Takes FoldIntoLoop and TranslateOffset; everything goes down as well.
  bool ControlMessage(int code, long* value) override;

  int GetLoopStart() const { return sStart; }
  int GetLoopEnd() const { return sEnd; }
  // Maps a position on the unrolled timeline into [start, end].
  std::int64_t Fold(std::int64_t position) const;

 private:
  int sStart;
  int sEnd;
  int sLength;
};

// A run-in, then a loop: plays the source from `preStart` up to the loop's end and
// from then on loops between `loopStart` and `loopEnd`, without end. Recording
// into a loop starts this way, so the pre-roll before the loop is heard once.
//
// Unlike a plain loop, a position before the loop start is not folded into the
// loop while the run-in lasts: a seek there plays on from that position. A seek at
// or past the loop end goes into the loop.
class LLoopSourcePrerollBase : public LSoundProcessBase {
 public:
  LLoopSourcePrerollBase(LSoundSource const& source, int preStart, int loopStart, int loopEnd);

  void Read(float* buffer, int frames) override;
  int GetEndSample() const override { return 0x7FFFFFFF; }
  void Seek(int frame) override;
  int AdjustRelativeOffset(int offset, int position) override;
  bool ControlMessage(int code, long* value) override;

  bool IsLooping() const { return bLooping; }
  // The loop as fitted into the source.
  int GetLoopStart() const { return lssLoop->GetLoopStart(); }
  int GetLoopEnd() const { return lssLoop->GetLoopEnd(); }

 private:
  // The loop over the same source: once the run-in reaches the loop's end it
  // takes over, finding the source standing at its end.
  LSoundSourceTransparent<LLoopSourceBase> lssLoop;
  bool bLooping = false;
};
