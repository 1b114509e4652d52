#include "project/clips_manager.h"

#include <gtest/gtest.h>

#include <climits>

#include "project/clip_audio.h"
#include "project/project.h"
#include "project/testing_cut_lists.h"

namespace {

class ClipsTest : public CutListTest {
 protected:
  void SetUp() override {
    CutListTest::SetUp();
    for (int i = 0; i < 4; ++i) project.Tracks.AddTrack();
    MakeKnownFile(second, 1, 2000, 1, 1000);  // 2 s
  }

  TDClip* Add(int track, LSoundTime position, bool findFree = false) {
    auto clip = std::make_unique<TDClipAudio>(second);
    clip->iPosition = position;
    return project.AddClip(std::move(clip), track, findFree);
  }

  // Three takes of one loop pass, numbered 1 to 3, the first active.
  std::vector<TDClip*> MakeTakes(int track, LSoundTime position) {
    std::uint32_t const group = static_cast<std::uint32_t>(project.GetNewTakeGroupId());
    std::vector<TDClip*> takes;
    for (int n = 1; n <= 3; ++n) {
      TDClip* t = Add(track, position);
      t->uTakeGroupId = group;
      t->iTakeNumber = n;
      t->bActiveTake = n == 1;
      t->szName = "Vocal";
      takes.push_back(t);
    }
    return takes;
  }

  TDProject project;
  LCutListAudio second;
};

TEST_F(ClipsTest, ClipsGoOnFreeTracksAndTheEndFollowsThem) {
  TDClip* a = Add(2, 0, true);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->iTrackIndex, 2);
  EXPECT_NE(a->uTrackId, 0u);
  // Overlapping on track 2: the next free track towards the top.
  TDClip* b = Add(2, 1000, true);
  EXPECT_EQ(b->iTrackIndex, 1);
  // Touching only is no overlap.
  TDClip* c = Add(2, 2000, true);
  EXPECT_EQ(c->iTrackIndex, 2);
  Add(0, 500);
  // Tracks 0..2 are taken at 1500: a new track is made for the clip.
  TDClip* d = Add(2, 1500, true);
  EXPECT_EQ(project.Tracks.GetTrackCount(), 5);
  EXPECT_EQ(d->iTrackIndex, 4);
  EXPECT_EQ(project.FindTrackNoOverlapped(*d), 4);
  // Track 6 wraps to 1; there and on 0 other clips overlap, so it stays on 1.
  EXPECT_EQ(project.AdjustClipPositionNoOverlapping(*d, 6), 1);
  EXPECT_EQ(project.GetEnd(), TDProject::kMinimumEnd);

  TDClip* far = Add(3, 200000);
  EXPECT_EQ(project.GetEnd(), 212000);
  EXPECT_EQ(project.Clips.GetClipsEnd(), 202000);
  project.DeleteClip(far);
  project.ResetEnd();  // only grows
  EXPECT_EQ(project.GetEnd(), 212000);
  project.TrimEnd();  // the clips' end (c's, at 4 s) plus room
  EXPECT_EQ(project.GetEnd(), 14000);

  // Deleting track 1 takes its clip and moves those below up, bound anew.
  std::uint64_t const idOfTrack2 = project.Tracks.GetTrack(2)->uTrackId;
  ASSERT_TRUE(project.DeleteTrack(1));
  EXPECT_EQ(project.Clips.GetNumClipsOnTrack(1), 2);  // a and c, from track 2
  EXPECT_EQ(a->iTrackIndex, 1);
  EXPECT_EQ(a->uTrackId, idOfTrack2);
  EXPECT_EQ(a->pTrack, project.Tracks.GetTrack(1));

  project.Tracks.Clear();
  EXPECT_EQ(Add(0, 0), nullptr);  // no track, no clip
}

TEST_F(ClipsTest, TheListStaysInOrderAndSelectionAndLocksFollowTheRules) {
  TDClip* late = Add(0, 9000);
  TDClip* early = Add(1, 1000);
  TDClip* mid = Add(2, 5000);
  std::vector<TDClip*> order;
  for (auto const& c : project.Clips.GetClips()) order.push_back(c.get());
  EXPECT_EQ(order, (std::vector<TDClip*>{early, mid, late}));

  early->bSelected = late->bSelected = true;
  EXPECT_EQ(project.Clips.GetSelClipMinStartPos(), 1000);
  EXPECT_EQ(project.Clips.GetSelClipMaxEndPos(), 11000);
  EXPECT_EQ(project.Clips.GetSelectedClip(), early);
  late->bLocked = true;
  project.Clips.LockToggleSelectedClips();  // one unlocked: lock them all
  EXPECT_TRUE(early->bLocked && late->bLocked);
  project.Clips.LockToggleSelectedClips();
  EXPECT_FALSE(early->bLocked || late->bLocked);

  late->bLocked = true;
  project.Clips.OffsetClipsPosition(100, 1, 0);  // selected, unlocked only
  EXPECT_EQ(early->iPosition, 1100);
  EXPECT_EQ(late->iPosition, 9000);
  EXPECT_EQ(mid->iPosition, 5000);
  project.Clips.OffsetClipsPosition(-100, 2, 2);  // unselected, skipping audio: none
  EXPECT_EQ(mid->iPosition, 5000);
  EXPECT_EQ(project.DeleteSelectedClips(), 1);  // the locked one stays
  EXPECT_EQ(project.Clips.GetCount(), 2);
}

TEST_F(ClipsTest, ChoosingTakesWrapsAndAlignsTheGroup) {
  std::vector<TDClip*> takes = MakeTakes(1, 3000);
  EXPECT_EQ(project.GetNewTakeGroupId(), 2);
  EXPECT_EQ(takes[0]->GetTitle(), "Vocal Take 1");
  EXPECT_EQ(project.Clips.GetNumTakesInGroup(takes[0]->uTakeGroupId), 3);
  EXPECT_EQ(project.Clips.GetNextClipTake(*takes[2]), takes[0]);  // the highest wraps to the lowest
  EXPECT_EQ(project.Clips.GetPrevClipTake(*takes[0]), takes[2]);
  EXPECT_EQ(project.Clips.GetPlayableClipsEnd(), 5000);

  takes[0]->iPosition = 4000;  // dragged
  takes[0]->BindTrack(project.Tracks.GetTrack(3), 3);
  ASSERT_TRUE(project.Clips.SelectTakeByTakeId(3, *takes[0]));
  for (TDClip* t : takes) {
    EXPECT_EQ(t->iPosition, 4000);
    EXPECT_EQ(t->iTrackIndex, 3);
    EXPECT_EQ(t->bActiveTake, t == takes[2]);
    EXPECT_EQ(t->bSelected, t == takes[2]);
  }

  takes[1]->bLocked = true;
  project.Clips.SetAllTakesLockAsClip(*takes[1]);
  EXPECT_TRUE(takes[0]->bLocked && takes[2]->bLocked);

  // Groups 1, 2 and 4 in use: the next one is 3.
  for (std::uint32_t g : {2u, 4u}) {
    TDClip* c = Add(0, 0);
    c->uTakeGroupId = g;
  }
  EXPECT_EQ(project.GetNewTakeGroupId(), 3);
}

TEST_F(ClipsTest, DeletingTakesLeavesAPlainClipAtTheEnd) {
  std::vector<TDClip*> takes = MakeTakes(0, 0);
  std::uint32_t const group = takes[0]->uTakeGroupId;
  project.Clips.DeleteOneClipInTakeGroup(takes[0]);  // the active one
  std::vector<TDClip*> rest = project.Clips.GetTakesInGroup(group);
  ASSERT_EQ(rest.size(), 2u);
  EXPECT_TRUE(rest[0]->bActiveTake);
  EXPECT_FALSE(rest[1]->bActiveTake);
  // Numbers need not be contiguous after a deletion; next still wraps.
  EXPECT_EQ(project.Clips.GetNextClipTake(*rest[1])->iTakeNumber, 2);
  project.Clips.DeleteOneClipInTakeGroup(rest[0]);
  ASSERT_EQ(project.Clips.GetCount(), 1);
  TDClip const& left = *project.Clips.GetClips()[0];
  EXPECT_FALSE(left.IsTake());
  EXPECT_EQ(left.iTakeNumber, 0);
  EXPECT_TRUE(left.bActiveTake);
  EXPECT_EQ(left.GetTitle(), "Vocal");

  std::vector<TDClip*> more = MakeTakes(2, 0);
  project.Clips.DeleteAllClipsInTakeGroup(more[1]);
  EXPECT_EQ(project.Clips.GetCount(), 1);
}

}  // namespace

namespace {

using Line = std::vector<std::pair<LSoundTime, double>>;

Line LineOf(TDClip const& clip, FadeType type = FadeTypeVolume) {
  Line out;
  for (TDClipFadePoint const& p : clip.GetFadeListByType(type)) out.emplace_back(p.iPosition, p.dValue);
  return out;
}

// A clip placed in the project comes with flat lines; a cross fade shapes the
// overlap of two selected clips, whatever their order in time or on the tracks.
TEST_F(ClipsTest, CrossFadeShapesTheOverlapOfExactlyTwoSelectedAudioClips) {
  TDClip* early = Add(0, 1000);  // 1000..3000
  TDClip* late = Add(1, 2500);   // 2500..4500
  EXPECT_EQ(LineOf(*early), (Line{{0, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*early, FadeTypePan), (Line{{0, 0.0}, {2000, 0.0}}));

  late->bSelected = true;
  EXPECT_FALSE(project.CrossFadeClips());  // one clip
  early->bSelected = true;
  TDClip* third = Add(2, 0);
  third->bSelected = true;
  EXPECT_FALSE(project.CrossFadeClips());  // three
  third->bSelected = false;
  early->bLocked = true;
  EXPECT_FALSE(project.CrossFadeClips());  // a locked one
  EXPECT_EQ(LineOf(*early), (Line{{0, 0.0}, {2000, 0.0}}));
  early->bLocked = false;

  ASSERT_TRUE(project.CrossFadeClips());
  EXPECT_EQ(LineOf(*early), (Line{{0, 0.0}, {1500, 0.0}, {2000, -1.0}}));
  EXPECT_EQ(LineOf(*late), (Line{{0, -1.0}, {500, 0.0}, {2000, 0.0}}));

  // Clips that only touch don't overlap.
  early->bSelected = late->bSelected = false;
  TDClip* a = Add(0, 10000);
  TDClip* b = Add(0, 12000);
  a->bSelected = b->bSelected = true;
  EXPECT_FALSE(project.CrossFadeClips());
  EXPECT_EQ(LineOf(*b), (Line{{0, 0.0}, {2000, 0.0}}));
  // A clip inside another fades in over all of itself.
  b->SetTrimOrExpandEnd(-1000);
  b->TrimOrExpandEnd();
  b->iPosition = 10500;  // 10500..11500
  project.Clips.SortByPosition();
  ASSERT_TRUE(project.CrossFadeClips());
  EXPECT_EQ(LineOf(*a), (Line{{0, 0.0}, {500, 0.0}, {2000, -1.0}}));
  EXPECT_EQ(LineOf(*b), (Line{{0, -1.0}, {1000, 0.0}}));
}

TEST_F(ClipsTest, FadePointsAreAddedOnTheShownLineOfSelectedUnlockedClips) {
  TDClip* a = Add(0, 0);     // 0..2000
  TDClip* b = Add(1, 500);   // 500..2500
  TDClip* c = Add(2, 1500);  // 1500..3500, not under 1000
  a->FadeOutRegion(0, 2000, FadeTypeVolume);
  project.Tracks.GetTrack(1)->iFadeTypeShown = FadeTypePan;
  a->bSelected = b->bSelected = c->bSelected = true;
  EXPECT_EQ(project.Clips.AddFadePoint(1000), 2);
  EXPECT_EQ(LineOf(*a), (Line{{0, 0.0}, {1000, -0.5}, {2000, -1.0}}));
  EXPECT_EQ(LineOf(*b), (Line{{0, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*b, FadeTypePan), (Line{{0, 0.0}, {500, 0.0}, {2000, 0.0}}));
  EXPECT_EQ(LineOf(*c).size(), 2u);
  // Once there, a point is not made again; locked and unselected clips are left.
  EXPECT_EQ(project.Clips.AddFadePoint(1000), 0);
  b->bLocked = true;
  a->bSelected = false;
  EXPECT_EQ(project.Clips.AddFadePoint(1200), 0);

  // Validation fits every clip's lines to its length.
  a->GetFadeListByType(FadeTypePan).push_back(TDClipFadePoint{0.5, 2600, FadeTypePan});
  project.Clips.ValidateFadePoints();
  EXPECT_EQ(LineOf(*a, FadeTypePan), (Line{{0, 0.0}, {2000, 0.0}}));
}

}  // namespace
