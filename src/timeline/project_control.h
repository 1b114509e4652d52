#pragma once
#include <cstdint>

#include "project/project.h"
#include "timeline/pixel_time_mapper.h"
#include "timeline/track_pixel_mapping.h"

// A place in the track area, in pixels.
struct TDPixelPoint {
  int x = 0;
  int y = 0;
};

// A round step of time (1, 2 or 5 times a power of ten ms) whose marks on a view
// of `span` ms over `width` pixels lie at least `pixels` apart. The ruler's
// labels stand every ten steps.
double TDGetTimeInterval(double span, int width, int pixels);

// The rules of the mouse over the track area: grids, snapping, hit zones and
// clamps for moving clips, trimming their ends and resizing the selected
// region. It works in the area's own pixels (y from the top of the first track,
// scroll already taken off) and changes the project directly; the window turns
// buttons and keys into these calls and the controller sets the undo point when
// the gesture ends.
class TDProjectControl {
 public:
  // "TimelineMode": the grid follows time or beats; any other value has none.
  static constexpr int kTimelineModeTime = 0;
  static constexpr int kTimelineModeBeats = 3;
  enum TDRound { kRoundNearest = 0, kRoundFloor = 1, kRoundCeil = 2 };
  // How near another clip has to come, with snapping off, to catch a moved clip.
  static constexpr int kClipSnapPixels = 15;
  // A clip is never trimmed narrower than this.
  static constexpr int kMinClipPixels = 10;
  // The top strip of a clip moves it; its ends trim only below this.
  static constexpr int kEdgeTopPixels = 13;
  // The clip's title strip, above where levels are drawn.
  static constexpr int kTitleStripPixels = 14;

  enum class TDDragResult { Moved, Unchanged, Locked, CopyPending };

  explicit TDProjectControl(TDProject& project) : Project(project), Rows(project.Tracks) {}

  // The view: pixels 0..width - 1 show `mapper`'s times.
  void SetView(TDPixelSoundTimeMapper const& mapper, int width);
  TDPixelSoundTimeMapper const& GetMapper() const { return Mapper; }
  int iTimelineMode = kTimelineModeTime;

  void Reset();

  // Grid by time: a round interval whose columns lie at least 20 pixels apart.
  double GetBestGridInterval() const;
  // Grid by beats: a power-of-two share or multiple of a beat, 20 to 40 pixels apart.
  double CalculateBeatGroup() const;
  LSoundTime MapToGridSnapPoint(LSoundTime time, int round) const;
  LSoundTime MapToGridSnapPointRound(LSoundTime time) const { return MapToGridSnapPoint(time, kRoundNearest); }
  LSoundTime MapToGridSnapPointFloor(LSoundTime time) const { return MapToGridSnapPoint(time, kRoundFloor); }
  LSoundTime MapToGridSnapPointCeil(LSoundTime time) const { return MapToGridSnapPoint(time, kRoundCeil); }

  // The bookmark nearest `time` (the first seen on a tie), -1 without bookmarks.
  LSoundTime MapTimeToNearestBookmark(LSoundTime time) const;
  // The start that puts the nearer end of start..end on its nearest bookmark; -1
  // without bookmarks.
  LSoundTime MapToBookmarkSnapPoint(LSoundTime start, LSoundTime end) const;
  // The start that makes the nearest pair of ends meet, between start..end and
  // the other clips whose selection state is `selected`; -1 with no such clip.
  LSoundTime MapSoundTimeToNearestClipSnapPoint(TDClip const& clip, LSoundTime start, LSoundTime end,
                                                bool selected) const;
  // Where a clip put at `time` (or a point, with no clip) snaps to: the nearest
  // of the clip snap, the grid and the bookmark snap, in that order on a tie.
  LSoundTime MapSoundTimeToNearestSnapPoint(LSoundTime time, TDClip const* clip) const;

  // A drag of the selected clips starts under (x, y).
  void BeginDrag(int x, int y);
  // Moves the selected clips with the pointer. With `copy` nothing moves: the
  // window makes copies at the release, at the offset DragOffset gives.
  TDDragResult DragClip(int x, int y, bool snap, bool copy = false);
  LSoundTime GetDragTimeOffset() const { return iDragTotalTime; }
  int GetDragRowOffset() const { return iDragTotalRows; }
  bool IsDraggingAllowed(int x, int /*y*/) const { return x >= 0 && x < iWidth; }

  // Moves the grabbed edge of `clip` to the pointer (pending until the release
  // commits it). False when nothing changed, for a locked clip among others.
  bool TrimOrExpandClip(int x, int y, TDClip& clip, bool leftEdge, bool grid);
  bool IsPixelAtClipLeftEdge(TDClip const& clip, int x, int y, int tolerance) const;
  bool IsPixelAtClipRightEdge(TDClip const& clip, int x, int y, int tolerance) const;

  // Levels inside a track body of `height` pixels from `top`, +1 at the top strip
  // and -1 at the bottom.
  static int MapAmplitudeToPixelY(double amplitude, int top, int height);
  static double MapPixelYToAmplitude(int y, int top, int height);

  // The point of the line `clip`'s track shows (volume or pan) under the pointer:
  // within 10 pixels across and less than 5 up or down, the closest across
  // winning. -1 when none is, or the clip plays no sound of its own.
  int MapPixelToNearestFadePoint(int x, int y, TDClip const& clip) const;
  // Moves point `index` of the shown line to the pointer: its value from the
  // height, its time kept strictly between its neighbours; the end points keep
  // their times. False for a locked clip or a point that is not there.
  bool DragFadePoint(int x, int y, TDClip& clip, int index);
  // Where a point of a clip's line is drawn.
  TDPixelPoint FadePointPixel(TDClip const& clip, TDClipFadePoint const& point) const;

  // Moves one edge of the selected region to the pointer, the other fixed.
  void ResizeEditArea(int x, int y, bool startEdge);

 private:
  bool PointerOnTrackOf(TDClip const& clip, int y) const;
  std::vector<TDClip*> SelectedClips() const;

  TDProject& Project;
  TDTrackPixelMapping Rows;
  TDPixelSoundTimeMapper Mapper;
  int iWidth = 0;
  // Where the drag's pointer was last applied, as a time and a track row.
  LSoundTime iDragTime = 0;
  int iDragRow = 0;
  LSoundTime iDragTotalTime = 0;
  int iDragTotalRows = 0;
  bool bDragging = false;
};
