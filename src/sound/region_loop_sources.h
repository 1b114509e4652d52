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

 private:
  // Maps a position on the unrolled timeline into [start, end].
  std::int64_t Fold(std::int64_t position) const;

  int sStart;
  int sEnd;
  int sLength;
};
