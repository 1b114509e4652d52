#include "timeline/track_pixel_mapping.h"

#include <algorithm>

double TDTrackPixelMapping::dZoomFactorV = 1.0;

int TDTrackPixelMapping::GetTrackBodyHeight() {
  return std::max(kBodyPixels, static_cast<int>(kBodyPixels * dZoomFactorV));
}

bool TDTrackPixelMapping::ShowsRows(TDTrack const& track) {
  return !track.bCollapsed && !track.bAutomationHidden && RowCount(track) > 0;
}

int TDTrackPixelMapping::RowCount(TDTrack const& track) {
  return track.Automation.GetCount() + track.EffectAutomation.GetCount();
}

int TDTrackPixelMapping::RowHeight(TDTrack const& track, int row) {
  int const own = track.Automation.GetCount();
  TDTrackAutomation const* line =
      row < own ? track.Automation.GetAutomationTrack(row) : track.EffectAutomation.GetAutomationTrack(row - own);
  // Rows are sized in dialog units, two pixels each.
  return line != nullptr ? 2 * line->GetSubTrackHeightDialogUnits() : 0;
}

int TDTrackPixelMapping::GetTrackHeight(int index) const {
  TDTrack const* track = Tracks.GetTrack(index);
  if (track == nullptr) return 0;
  if (track->bCollapsed) return kCollapsedPixels;
  int height = GetTrackBodyHeight();
  if (ShowsRows(*track)) {
    height += 2 * (track->Automation.GetTotalAutomationTracksHeightDialogUnits() +
                   track->EffectAutomation.GetTotalAutomationTracksHeightDialogUnits());
  }
  return height;
}

int TDTrackPixelMapping::GetTrackYPixel(int index) const {
  int y = 0;
  int const last = std::min(index, Tracks.GetTrackCount());
  for (int i = 0; i < last; ++i) y += GetTrackHeight(i);
  return y;
}

int TDTrackPixelMapping::MapPixelYToTrackIndex(int y) const {
  int const count = Tracks.GetTrackCount();
  int bottom = 0;
  for (int i = 0; i < count; ++i) {
    bottom += GetTrackHeight(i);
    if (y < bottom) return i;
  }
  return count > 0 ? count - 1 : 0;
}

int TDTrackPixelMapping::MapPixelYToSubTrackIndex(int y) const {
  int const count = Tracks.GetTrackCount();
  int top = 0;
  for (int i = 0; i < count; ++i) {
    int const height = GetTrackHeight(i);
    if (y < top + height) {
      TDTrack const& track = *Tracks.GetTrack(i);
      int rowTop = top + GetTrackBodyHeight();
      if (!ShowsRows(track) || y < rowTop) return -1;
      for (int row = 0; row < RowCount(track); ++row) {
        rowTop += RowHeight(track, row);
        if (y < rowTop) return row;
      }
      return -1;
    }
    top += height;
  }
  return -1;
}

int TDTrackPixelMapping::MapSubTrackIndexToPixelY(int index, int row) const {
  int y = GetTrackYPixel(index) + GetTrackBodyHeight();
  TDTrack const* track = Tracks.GetTrack(index);
  if (track == nullptr) return y;
  for (int r = 0; r < row && r < RowCount(*track); ++r) y += RowHeight(*track, r);
  return y;
}

int TDTrackPixelMapping::GetAllTracksHeightPixels() const { return GetTrackYPixel(Tracks.GetTrackCount()); }
