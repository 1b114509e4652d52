#pragma once
#include "project/tracks_manager.h"

// Where tracks and their automation rows stand down the track area. Heights
// follow each track's state: collapsed, body only, or body with its automation
// rows (volume and pan lines first, then effect parameter lines). Everything is
// measured from the top of the first track; the caller adds its own scroll.
class TDTrackPixelMapping {
 public:
  static constexpr int kBodyPixels = 98;
  static constexpr int kCollapsedPixels = 24;
  // Room above a track's content, so its frame line stays visible.
  static constexpr int kTopMargin = 2;

  // One vertical zoom for the whole program; below 1 a body keeps its 98 pixels.
  static double dZoomFactorV;

  explicit TDTrackPixelMapping(TDTracksManager const& tracks) : Tracks(tracks) {}

  static int GetTrackBodyHeight();
  int GetTrackHeight(int index) const;
  // The top of a track: the heights of those above it.
  int GetTrackYPixel(int index) const;
  int MapTrackIndexToPixelY(int index) const { return GetTrackYPixel(index) + kTopMargin; }
  // The track under y; past the last track the last, and 0 without tracks.
  int MapPixelYToTrackIndex(int y) const;
  // The automation row under y, counted over both row groups of its track; -1 in a
  // track body, in a track whose rows are not shown, or below every track.
  int MapPixelYToSubTrackIndex(int y) const;
  // The top of row `row` of a track (rows counted as above).
  int MapSubTrackIndexToPixelY(int index, int row) const;
  bool IsPixelYInAnyTrack(int y) const { return y >= 0 && y < GetAllTracksHeightPixels(); }
  int GetAllTracksHeightPixels() const;

 private:
  static bool ShowsRows(TDTrack const& track);
  // The rows of both groups, in drawn order, as pixel heights.
  static int RowCount(TDTrack const& track);
  static int RowHeight(TDTrack const& track, int row);

  TDTracksManager const& Tracks;
};
