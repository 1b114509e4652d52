#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/process_interface.h"
#include "foundation/sdf.h"
#include "foundation/sound_time.h"
#include "project/fade_points.h"
#include "project/identity.h"
#include "sound/sound_source.h"

class TDTrack;

// Times on the timeline are milliseconds; audio counts frames. These are the two
// conversions every clip operation uses, in whole numbers so that the same time
// always lands on the same frame: the whole seconds and the rest apart, so that
// long times don't overflow.
inline int TDTimeToFrames(LSoundTime ms, int rate) {
  return static_cast<int>(static_cast<std::int64_t>(rate) * (ms / 1000) +
                          static_cast<std::int64_t>(rate) * (ms % 1000) / 1000);
}
inline LSoundTime TDFramesToTime(std::int64_t frames, int rate) {
  return static_cast<LSoundTime>((frames / rate) * 1000 + (frames % rate) * 1000 / rate);
}

// One block on a track: audio or MIDI. A take is an ordinary clip that shares a
// group id with the other takes of one loop recording; exactly one of the group
// is active and plays.
//
// Times given to the editing operations are on the project timeline (ms) unless
// said otherwise; GetEnd is the clip's length, not an end time: the clip covers
// iPosition to iPosition + GetEnd().
//
// A clip carries its volume and pan lines (its fade points) with it: every edit
// that moves or cuts the audio moves or cuts the lines the same way, so a fade
// stays on the sound it was drawn over.
class TDClip : public TDClipFadePointsList {
 public:
  TDClip();
  virtual ~TDClip();

  virtual bool IsMidi() const { return false; }
  // Plays through a rendering synthesiser rather than a MIDI port.
  virtual bool IsMidiVirtual() const { return false; }
  virtual bool CanBePlayedBySoundPlayer() const { return true; }
  virtual bool CanBePlayedByMidiPlayer() const { return true; }
  // The clip's sound at the asked rate and channels, fades applied.
  virtual LSoundSource OpenSource(int rate, int channels) = 0;
  virtual std::string GetTitle() const;
  virtual LProcessResult RestoreToOriginal(LProcessInterface& pi) = 0;
  // Applies what SetTrimOrExpandStart/End left pending.
  virtual void TrimOrExpand() = 0;
  // A change of the end (positive lengthens) or the start (positive shortens from
  // the head), clamped so the clip keeps at least 1 ms and the start stays at or
  // after 0; it waits as pending until TrimOrExpandStart/End applies it.
  virtual void SetTrimOrExpandEnd(LSoundTime delta);
  virtual void SetTrimOrExpandStart(LSoundTime delta);
  virtual void CutFromMiddle(LSoundTime start, LSoundTime end) = 0;
  virtual void SilenceRegion(LSoundTime start, LSoundTime end) = 0;
  // Keeps only start..end of the clip.
  virtual void TrimOutSide(LSoundTime start, LSoundTime end);
  // Appends `clip` (in front when `before`); false when the two can't be joined.
  virtual bool Join(TDClip const& clip, bool before) = 0;
  virtual LProcessResult Stretch(LProcessInterface& pi, LSoundTime length, bool keepPitch) = 0;
  // What the user sees becomes the unit that trimming and expanding repeat.
  virtual void SetAsTrimOrExpandBase() = 0;
  virtual LSoundTime GetEnd() const = 0;
  virtual int GetEndSample() const = 0;
  // A copy with the same id; the caller gives it a new one if it keeps both.
  virtual std::unique_ptr<TDClip> Clone() const = 0;

  void TrimOrExpandStart();
  void TrimOrExpandEnd();

  // The lines stand on the clip: from its position, over its length.
  LSoundTime GetFadePointStartTime() const override { return iPosition; }
  LSoundTime GetFadePointsLength() const override { return GetEnd(); }
  // The line of `type` that the clip's track shows and edits (a clip on no track
  // shows its volume line).
  FadeType GetFadeTypeShown() const;

  // The clip's end on the timeline.
  LSoundTime GetEndTime() const { return iPosition + GetEnd(); }
  bool IsTake() const { return uTakeGroupId != 0; }
  // Plays (and counts for the playable end): not a take, or the active one.
  bool IsPlayable() const { return uTakeGroupId == 0 || bActiveTake; }
  // Strict on both sides: clips that only touch don't overlap.
  bool Overlaps(LSoundTime start, LSoundTime end) const { return iPosition < end && start < GetEndTime(); }
  void BindTrack(TDTrack* track, int index);

  std::uint32_t uClipId = 0xFFFFFFFFu;
  int iTakeNumber = 0;
  std::uint32_t uTakeGroupId = 0;  // 0: not a take
  bool bActiveTake = true;
  int iTrackIndex = 0;
  TDTrack* pTrack = nullptr;
  std::uint64_t uTrackId = 0;
  std::string szName;
  bool bLocked = false;
  bool bTemporary = false;  // a recording in progress
  bool bWaveformStale = false;
  LSoundTime iPosition = 0;
  LSoundTime iPendingTrimStart = 0;
  LSoundTime iPendingTrimEnd = 0;
  LSoundTime iTrimStartTotal = 0;
  LSoundTime iTrimEndTotal = 0;
  bool bSelected = false;
  // Unknown chunks among the clip's fields, and beside the fields and the audio.
  LSDFUnknownChunkList lUnknown;
  LSDFUnknownChunkList lUnknownOuter;

 protected:
  TDClip(TDClip const&) = default;
  TDClip& operator=(TDClip const&) = default;

  // After an edit that left the last point of each line where the clip's new end
  // was meant to be: the length measured from the audio may differ from that by a
  // millisecond of rounding, and a line that stops short leaves the last frames
  // unshaped (a fade out would end in a click). The last points go to the length,
  // then the lines are validated.
  void FitFadePointsToEnd();
};

// Strategy objects run over the clip list by the bulk operations.
struct TDClipConditionSelected {
  bool IsItemSatisfyCondition(TDClip const& clip) const { return clip.bSelected; }
};
// Keeps the clip with the smallest position seen, and that position.
struct TDClipActionMinStartPos {
  TDClip* pClip = nullptr;
  LSoundTime iPosition = 0;
  void ExecuteActionOnItem(TDClip& clip);
};
// Keeps the clip with the latest end seen, and that end.
struct TDClipActionMaxEndPos {
  TDClip* pClip = nullptr;
  LSoundTime iPosition = 0;
  void ExecuteActionOnItem(TDClip& clip);
};
