// The time line's marks: the working region that plays in a loop, and bookmarks,
// named marks the user jumps between.
#include <algorithm>

#include "shell/main_dialog.h"

namespace {

// Bookmarks take turns through a few clear colours, so neighbours differ.
TDRGB16 NthColour(std::size_t n) {
  static constexpr unsigned char kColours[][3] = {
      {230, 126, 34}, {52, 152, 219}, {46, 204, 113}, {155, 89, 182}, {241, 196, 15}, {231, 76, 60}};
  auto const& c = kColours[n % std::size(kColours)];
  TDRGB16 colour;
  colour.uRed = static_cast<unsigned short>(c[0] * 257);
  colour.uGreen = static_cast<unsigned short>(c[1] * 257);
  colour.uBlue = static_cast<unsigned short>(c[2] * 257);
  return colour;
}

}  // namespace

void MainDialog::CmBookmarkAdd() {
  if (Project.FindBookmark(iCursor) != nullptr) return;
  // The lowest number no bookmark is named after yet.
  std::size_t n = Project.GetBookmarks().size() + 1;
  for (std::size_t k = 1; k <= Project.GetBookmarks().size() + 1; ++k) {
    std::string const name = "Bookmark " + std::to_string(k);
    if (std::none_of(Project.GetBookmarks().begin(), Project.GetBookmarks().end(),
                     [&](LTimeLineBookmark const& b) { return b.GetName() == name; })) {
      n = k;
      break;
    }
  }
  LTimeLineBookmark mark;
  mark.iPosition = iCursor;
  mark.SetName("Bookmark " + std::to_string(n));
  mark.Colour = NthColour(n - 1);
  Project.AddBookmark(mark);
  Project.ResetEnd();
  SetProjectDirty();
  View.UIClipsApply();
}

void MainDialog::CmGotoNextBookMark() {
  LSoundTime best = -1;
  for (auto const& b : Project.GetBookmarks()) {
    if (b.iPosition > iCursor && (best < 0 || b.iPosition < best)) best = b.iPosition;
  }
  if (best < 0) return;
  SetCursorPosition(best);
  View.UIClipsApply();
}

void MainDialog::CmGotoPrevBookMark() {
  LSoundTime best = -1;
  for (auto const& b : Project.GetBookmarks()) {
    if (b.iPosition < iCursor && b.iPosition > best) best = b.iPosition;
  }
  if (best < 0) return;
  SetCursorPosition(best);
  View.UIClipsApply();
}

bool MainDialog::CmBookmarkRename(LSoundTime position, const std::string& name) {
  LTimeLineBookmark* mark = Project.FindBookmark(position);
  if (mark == nullptr || name.empty() || name == mark->GetName()) return false;
  mark->SetName(name);
  SetProjectDirty();
  View.UIClipsApply();
  return true;
}

bool MainDialog::CmBookmarkMove(LSoundTime position, LSoundTime to) {
  to = std::max<LSoundTime>(0, to);
  LTimeLineBookmark* mark = Project.FindBookmark(position);
  // Two bookmarks never share a place: the one there keeps it.
  if (mark == nullptr || to == position || Project.FindBookmark(to) != nullptr) return false;
  mark->iPosition = to;
  Project.ResetEnd();
  SetProjectDirty();
  View.UIClipsApply();
  return true;
}

bool MainDialog::CmBookmarkDelete(LSoundTime position) {
  if (!Project.RemoveBookmark(position)) return false;
  SetProjectDirty();
  View.UIClipsApply();
  return true;
}

void MainDialog::SetWorkRegion(LSoundTime start, LSoundTime end) {
  LSoundTime const limit = Project.WorkRegion.GetMaxWorkRegionEnd();
  start = std::clamp<LSoundTime>(start, 0, limit);
  end = std::clamp<LSoundTime>(end, 0, limit);
  if (end < start) std::swap(start, end);
  if (start == end) {
    Project.WorkRegion.Clear();
  } else {
    Project.WorkRegion.Set(start, end);
  }
  RestartIfPlaying();
  View.UIClipsApply();
}

void MainDialog::CmLoopAdd() {
  TDEditRegion const& r = Project.GetEditRegion();
  if (r.iStart == r.iEnd) {
    View.InfoBar("Select a stretch across the tracks first; it then becomes the loop.");
    return;
  }
  SetWorkRegion(r.iStart, r.iEnd);
}

void MainDialog::CmSelectLoopAreaStart() {
  TDWorkRegionInfo const& w = Project.WorkRegion;
  // With no end after the cursor, the loop runs to the last clip, or the project's end.
  LSoundTime end = w.GetEnd();
  if (w.IsEmpty() || end <= iCursor) {
    end = Project.Clips.GetPlayableClipsEnd();
    if (end <= iCursor) end = w.GetMaxWorkRegionEnd();
  }
  SetWorkRegion(iCursor, end);
}

void MainDialog::CmSelectLoopAreaEnd() {
  TDWorkRegionInfo const& w = Project.WorkRegion;
  LSoundTime const start = w.IsEmpty() || w.GetStart() >= iCursor ? 0 : w.GetStart();
  SetWorkRegion(start, iCursor);
}

void MainDialog::CmDeselectLoopArea() {
  if (Engine.IsRecording()) {
    View.Alert("The working region can't be cleared while recording is in progress.", "Can't clear working region");
    return;
  }
  SetWorkRegion(0, 0);
}
