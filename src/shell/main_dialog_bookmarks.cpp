// Bookmarks: named marks on the time line the user jumps between.
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
