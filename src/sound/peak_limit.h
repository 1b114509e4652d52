#pragma once
#include <memory>

#include "sound/sound_source.h"

// The peak limiter that the player and the exporter put on the end of a chain, so
// that a mix that exceeds full scale leaves the program under a stated ceiling.
//
// Typical use, at the end of a chain that is about to go to a device or a file:
//
//   LSoundSource out = LSPPeakLimit().OpenSource(mix);            // ceiling 32767/32768
//   LSoundSource loud = LSPPeakLimit(0.5f).OpenSource(mix);       // another ceiling
//
// OpenSource only adds a limiter when the source's peak bound says it can exceed the
// ceiling; a chain that stays in range comes back as the same handle, and costs
// nothing. The result's peak bound is the ceiling.

// The description: a ceiling, and the opening of a limiter when a source needs one.
class LSPPeakLimit {
 public:
  LSPPeakLimit() = default;
  explicit LSPPeakLimit(float limit) : fLimit(limit) {}

  // `source` itself when it is in error or its peak bound is at or under the
  // ceiling; otherwise a new LSRCPeakLimit over it.
  LSoundSource OpenSource(LSoundSource const& source) const;

  float GetLimit() const { return fLimit; }
  void SetLimit(float limit) { fLimit = limit; }

  float fLimit = LSoundPeakInRange;
};

// A look-ahead limiter: no sample leaves it above the ceiling, and the gain moves
// in straight ramps rather than jumps, so limiting does not click.
//
// The source is read in blocks of B frames (rate / 35, or rate / 70 for a streaming
// source, held to 16..8192), three blocks ahead of what is played. Each block gets a
// gain, ceiling / peak when its peak exceeds the ceiling and 1 otherwise; while a
// block plays, the gain ramps towards the least of the gains of the block playing,
// the one after it, and the mean of the four around, so it has reached a block's
// gain before that block starts. Output frame p is source frame p times the gain:
// the look-ahead delays the reading, not the sound.
//
// ControlMessage: GetLookAhead gives the frames read ahead of the output;
// PositionCorrection subtracts them (translated by the stages below); GetLimitingFlag
// tells whether any block exceeded the ceiling since it was last asked, and clears it.
class LSRCPeakLimit : public LSoundProcessBase {
 public:
  LSRCPeakLimit(LSoundSource const& source, float limit);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override;
  int GetEndSample() const override;
  void Seek(int frame) override;
  bool ControlMessage(int code, long* value) override;

  int GetBlockFrames() const { return iBlock; }
  float GetLimit() const { return fLimit; }
  // Frames read from the source but not played yet: 3 * B less what of the current
  // block has been played; 0 before the first read.
  int GetLookAheadFrames() const { return 3 * iBlock - iIndex < 0 ? 0 : 3 * iBlock - iIndex; }

 private:
  void Restart();
  // Reads one block into `block` and returns its gain.
  float ReadBlock(float* block);
  void SetStep();

  float fLimit;
  int iBlock;                       // B, frames per block
  std::unique_ptr<float[]> pStore;  // the three blocks, B frames of all channels each
  float* pPlay = nullptr;
  float* pNext = nullptr;
  float* pLast = nullptr;
  float fGains[4] = {1, 1, 1, 1};  // g0 (the block before) .. g3 (pLast)
  float fGain = 1.0f;              // gain of the next frame to play
  float fStart = 1.0f;             // gain at the start of the playing block
  float fStep = 0.0f;              // change of gain per frame in the playing block
  float fEnd = 1.0f;               // gain the ramp reaches at the end of the block
  int iIndex;                      // frame of pPlay to play next; 3 * B before the first read
  bool bClipped = false;
};
