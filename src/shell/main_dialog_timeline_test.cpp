#include <gtest/gtest.h>

#include <filesystem>

#include "shell/commands.h"
#include "shell/testing_controller.h"


namespace {

class TimelineCommandTest : public TDControllerTest {
 protected:
  void AddAt(LSoundTime t) {
    dialog.SetCursorPosition(t);
    dialog.Command(CM_BOOKMARK_ADD);
  }
  std::string NameAt(LSoundTime t) {
    LTimeLineBookmark* b = dialog.GetProject().FindBookmark(t);
    return b ? b->GetName() : std::string("(none)");
  }
};

TEST_F(TimelineCommandTest, MarksAreAddedNamedJumpedBetweenAndEdited) {
  AddAt(4000);
  AddAt(1000);
  AddAt(1000);  // one place, one mark
  AddAt(130000);  // past the end: the project grows to show it
  ASSERT_EQ(dialog.GetProject().GetBookmarks().size(), 3u);
  EXPECT_EQ(NameAt(4000), "Bookmark 1");
  EXPECT_EQ(NameAt(1000), "Bookmark 2");
  EXPECT_GE(dialog.GetProject().GetEnd(), 130000);
  EXPECT_TRUE(dialog.IsProjectDirty());

  // Jumps go to the nearest mark on either side, and stay put past the last.
  dialog.SetCursorPosition(2000);
  dialog.Command(CM_GOTO_NEXT_BOOKMARK);
  EXPECT_EQ(dialog.GetCursorPosition(), 4000);
  dialog.Command(CM_GOTO_NEXT_BOOKMARK);
  EXPECT_EQ(dialog.GetCursorPosition(), 130000);
  dialog.Command(CM_GOTO_NEXT_BOOKMARK);
  EXPECT_EQ(dialog.GetCursorPosition(), 130000);
  dialog.Command(CM_GOTO_PREV_BOOKMARK);
  dialog.Command(CM_GOTO_PREV_BOOKMARK);
  EXPECT_EQ(dialog.GetCursorPosition(), 1000);
  dialog.Command(CM_GOTO_PREV_BOOKMARK);
  EXPECT_EQ(dialog.GetCursorPosition(), 1000);

  // A freed number is used again before a new one.
  EXPECT_TRUE(dialog.CmBookmarkDelete(4000));
  EXPECT_FALSE(dialog.CmBookmarkDelete(4000));
  AddAt(6000);
  EXPECT_EQ(NameAt(6000), "Bookmark 1");

  EXPECT_TRUE(dialog.CmBookmarkRename(6000, "Chorus"));
  EXPECT_FALSE(dialog.CmBookmarkRename(6000, ""));
  EXPECT_EQ(NameAt(6000), "Chorus");
  // A move onto another mark is refused; elsewhere it goes.
  EXPECT_FALSE(dialog.CmBookmarkMove(6000, 1000));
  EXPECT_TRUE(dialog.CmBookmarkMove(6000, 7500));
  EXPECT_EQ(NameAt(7500), "Chorus");
  EXPECT_EQ(NameAt(6000), "(none)");

  // They are kept with the project.
  std::string const path = (scratch / "marks.tdpj").string();
  ASSERT_TRUE(dialog.ProjectSave(path, "Save Project", false));
  dialog.GetProject().ClearBookmarks();
  view.answers.push_back({2, false});  // "Do Not Save", should the close ask
  ASSERT_TRUE(dialog.ProjectLoad(path)) << view.LastAlert();
  EXPECT_EQ(dialog.GetProject().GetBookmarks().size(), 3u);
  EXPECT_EQ(NameAt(7500), "Chorus");
  EXPECT_EQ(NameAt(130000), "Bookmark 3");
}

TEST_F(TimelineCommandTest, TheLoopComesFromTheSelectionTheCursorOrADrag) {
  TDWorkRegionInfo const& loop = dialog.GetProject().WorkRegion;
  dialog.Command(CM_LOOP_ADD);  // nothing selected: said, no loop
  EXPECT_TRUE(loop.IsEmpty());
  ASSERT_FALSE(view.infoBar.empty());

  dialog.GetProject().SetEditRegion(3000, 5000, 0, 2);
  engine.playing = true;
  int const restarts = engine.restarts;
  dialog.Command(CM_LOOP_ADD);
  EXPECT_EQ(loop.GetStart(), 3000);
  EXPECT_EQ(loop.GetEnd(), 5000);
  EXPECT_GT(engine.restarts, restarts);  // the playing mix takes the loop at once
  engine.playing = false;

  // "[" and "]": an end before the start moves the other end out of the way.
  dialog.SetCursorPosition(4000);
  dialog.Command(CM_SELECT_LOOP_AREA_END);
  EXPECT_EQ(loop.GetStart(), 3000);
  EXPECT_EQ(loop.GetEnd(), 4000);
  dialog.SetCursorPosition(2000);
  dialog.Command(CM_SELECT_LOOP_AREA_END);
  EXPECT_EQ(loop.GetStart(), 0);
  EXPECT_EQ(loop.GetEnd(), 2000);
  dialog.SetCursorPosition(2500);
  dialog.Command(CM_SELECT_LOOP_AREA_START);
  EXPECT_EQ(loop.GetStart(), 2500);
  EXPECT_EQ(loop.GetEnd(), dialog.GetProject().GetEnd());  // no clips: to the project's end

  // A drag on the ruler: either way round, kept within the project.
  dialog.SetWorkRegion(9000, -50);
  EXPECT_EQ(loop.GetStart(), 0);
  EXPECT_EQ(loop.GetEnd(), 9000);
  dialog.SetWorkRegion(7000, 7000);
  EXPECT_TRUE(loop.IsEmpty());

  dialog.SetWorkRegion(1000, 2000);
  engine.recording = true;
  dialog.Command(CM_DESELECT_LOOP_AREA);
  EXPECT_EQ(view.LastAlert(), "The working region can't be cleared while recording is in progress.");
  EXPECT_FALSE(loop.IsEmpty());
  engine.recording = false;
  dialog.Command(CM_DESELECT_LOOP_AREA);
  EXPECT_TRUE(loop.IsEmpty());
}

}  // namespace
