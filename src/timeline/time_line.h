#pragma once
#include <list>
#include <vector>

#include "foundation/sound_time.h"
#include "project/bookmark.h"
#include "project/metronome_feature.h"

class LTimeLine;

// Told of every change to a time line. The ruler, the track area and the
// controller each watch the same one, so a zoom in one shows in all.
class LTimeLineNotify {
 public:
  virtual ~LTimeLineNotify() = default;
  virtual void TimeLineChanged(LTimeLine& line) = 0;
};

// The model behind the ruler: the part of the project in view, the position,
// the tempo list and the bookmarks.
class LTimeLine {
 public:
  // The narrowest view: 10 ms across the whole width is as close as anyone edits.
  static constexpr LSoundTime kMinViewSpan = 10;

  void AddNotify(LTimeLineNotify* notify);
  void RemoveNotify(LTimeLineNotify* notify);

  // The view from `start` to `end`, kept inside 0..end of the project and at
  // least kMinViewSpan wide.
  void SetViewRegion(LSoundTime start, LSoundTime end);
  // Zooms by `factor` (above 1 shows more time) about `anchor`, which stays on the
  // same column.
  void SetViewRegionZoom(double factor, LSoundTime anchor);
  LSoundTime GetViewStart() const { return iViewStart; }
  LSoundTime GetViewEnd() const { return iViewEnd; }

  void SetPosition(LSoundTime position);
  // Sets the position without telling `skip`, the one who moved it.
  void SetPositionNoNotify(LSoundTime position, LTimeLineNotify* skip);
  LSoundTime GetPosition() const { return iPosition; }

  // A tempo from `beat` on: replaces a change at that very beat, else adds one.
  void SetBPM(double beat, double bpm);
  // Removes the change at `beat`; the first change always stays.
  void RemoveBPM(double beat);
  void SetTempoChanges(std::vector<LTempoChange> tempos);
  std::vector<LTempoChange> const& GetTempoChanges() const { return vTempos; }

  // The length the ruler runs to; the view and the position stay inside it.
  void SetEnd(LSoundTime end);
  LSoundTime GetEnd() const { return iEnd; }

  // One bookmark per position: setting at a marked position renames it.
  void SetBookmark(LTimeLineBookmark const& bookmark);
  bool RemoveBookmark(LSoundTime position);
  void ClearBookmarks();
  std::list<LTimeLineBookmark> const& GetBookmarks() const { return lBookmarks; }

 private:
  void Notify(LTimeLineNotify* skip = nullptr);
  LSoundTime ClampToEnd(LSoundTime time) const;

  std::vector<LTimeLineNotify*> vNotify;
  LSoundTime iViewStart = 0;
  LSoundTime iViewEnd = 120000;
  LSoundTime iPosition = 0;
  LSoundTime iEnd = 120000;
  std::vector<LTempoChange> vTempos{{TDProjectMetronomeFeature::kFirstTempoPosition, TDProjectMetronomeFeature::kDefaultBPM}};
  std::list<LTimeLineBookmark> lBookmarks;
};
