#include "project/fade_points.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "sound/envelope_points.h"

namespace {

// A clip as far as its fade points care: where it starts and how long it is.
class FadeClip : public TDClipFadePointsList {
 public:
  FadeClip(LSoundTime start, LSoundTime length) : iStart(start), iLength(length) {}
  LSoundTime GetFadePointStartTime() const override { return iStart; }
  LSoundTime GetFadePointsLength() const override { return iLength; }

  LSoundTime iStart;
  LSoundTime iLength;
};

using Line = std::vector<std::pair<LSoundTime, double>>;

Line LineOf(FadeClip const& clip, FadeType type = FadeTypeVolume) {
  Line out;
  for (TDClipFadePoint const& p : clip.GetFadeListByType(type)) {
    EXPECT_EQ(p.iType, type);
    out.emplace_back(p.iPosition, p.dValue);
  }
  return out;
}

void SetLine(FadeClip& clip, Line const& line, FadeType type = FadeTypeVolume) {
  TDClipFadePoints& list = clip.GetFadeListByType(type);
  list.clear();
  for (auto const& [t, v] : line) list.push_back(TDClipFadePoint{v, t, type});
}

}  // namespace

TEST(ClipFadePoints, AnchorsAndValidation) {
  FadeClip clip(0, 10000);
  clip.InitFadePoints();
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {10000, 0.0}}));
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, 0.0}, {10000, 0.0}}));
  // Two points of any kind make a list that Init leaves alone.
  SetLine(clip, {{300, 0.5}, {400, 0.2}});
  clip.InitFadePoints();
  EXPECT_EQ(LineOf(clip), (Line{{300, 0.5}, {400, 0.2}}));

  // Points within 100 ms of an end stand for its anchor.
  SetLine(clip, {{9900, -0.5}, {60, 0.3}});
  clip.AddAnchorPoints();
  EXPECT_EQ(LineOf(clip), (Line{{60, 0.3}, {9900, -0.5}}));
  SetLine(clip, {{101, 0.3}, {9899, -0.5}});
  clip.AddAnchorPoints();
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {101, 0.3}, {9899, -0.5}, {10000, 0.0}}));

  // Validation drops what lies outside, puts the anchors back and sorts.
  SetLine(clip, {{12000, 0.1}, {5000, 0.4}, {-10, 0.2}, {40, -1.0}});
  clip.ValidateFadePoints();
  EXPECT_EQ(LineOf(clip), (Line{{40, -1.0}, {5000, 0.4}, {10000, 0.0}}));
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, 0.0}, {10000, 0.0}}));

  // A clip shorter than the reach still gets two ends.
  FadeClip tiny(0, 50);
  tiny.ValidateFadePoints();
  EXPECT_EQ(LineOf(tiny), (Line{{0, 0.0}, {50, 0.0}}));
  SetLine(tiny, {{20, 0.5}});
  tiny.ValidateFadePoints(FadeTypeVolume);
  EXPECT_EQ(LineOf(tiny), (Line{{20, 0.5}, {50, 0.0}}));
}

TEST(ClipFadePoints, PointsAtTimesNeighboursAndDeletion) {
  FadeClip clip(2000, 1000);
  SetLine(clip, {{0, -1.0}, {400, 0.0}, {1000, 0.6}});
  EXPECT_EQ(clip.AddFadePointAtTime(-1, FadeTypeVolume), nullptr);
  EXPECT_EQ(clip.AddFadePointAtTime(1001, FadeTypeVolume), nullptr);
  TDClipFadePoint* const existing = clip.AddFadePointAtTime(400, FadeTypeVolume);
  ASSERT_NE(existing, nullptr);
  EXPECT_EQ(existing, &clip.GetFadeListByType(FadeTypeVolume)[1]);
  EXPECT_EQ(LineOf(clip).size(), 3u);

  TDClipFadePoint* const made = clip.AddFadePointAtTime(100, FadeTypeVolume);
  ASSERT_NE(made, nullptr);
  EXPECT_DOUBLE_EQ(made->dValue, -0.75);
  EXPECT_EQ(made->iType, FadeTypeVolume);
  made->dValue = -0.5;
  EXPECT_EQ(LineOf(clip), (Line{{0, -1.0}, {100, -0.5}, {400, 0.0}, {1000, 0.6}}));

  // No neighbour on one side: nothing is made.
  SetLine(clip, {{200, 0.0}, {900, 0.0}}, FadeTypePan);
  EXPECT_EQ(clip.AddFadePointAtTime(100, FadeTypePan), nullptr);
  EXPECT_EQ(clip.AddFadePointAtTime(950, FadeTypePan), nullptr);

  EXPECT_EQ(clip.GetNextFadeByTime(100, FadeTypeVolume)->iPosition, 400);
  EXPECT_EQ(clip.GetPreviousFadeByTime(100, FadeTypeVolume)->iPosition, 0);
  EXPECT_EQ(clip.GetNextFadeByTime(1000, FadeTypeVolume), nullptr);
  EXPECT_EQ(clip.GetPreviousFadeByTime(0, FadeTypeVolume), nullptr);

  TDClipFadePoints& vol = clip.GetFadeListByType(FadeTypeVolume);
  EXPECT_TRUE(clip.IsFadePointAnchor(&vol.front()));
  EXPECT_TRUE(clip.IsFadePointAnchor(&vol.back()));
  EXPECT_FALSE(clip.IsFadePointAnchor(&vol[1]));
  EXPECT_TRUE(clip.ContainFadePoint(&vol[2]));

  // A point of another clip, even an equal one, is not this clip's.
  FadeClip other = clip;
  TDClipFadePoint const* foreign = &other.GetFadeListByType(FadeTypeVolume)[1];
  EXPECT_FALSE(clip.ContainFadePoint(foreign));
  EXPECT_FALSE(clip.IsFadePointAnchor(&other.GetFadeListByType(FadeTypeVolume)[0]));
  EXPECT_FALSE(clip.DeleteFadePoint(foreign));
  EXPECT_EQ(LineOf(clip), LineOf(other));
  EXPECT_TRUE(clip.DeleteFadePoint(&vol[1]));
  EXPECT_EQ(LineOf(clip), (Line{{0, -1.0}, {400, 0.0}, {1000, 0.6}}));

  // A range delete spares the ends of the list even when they lie inside it.
  clip.AddFadePoint(TDClipFadePoint{0.1, 700, FadeTypeVolume});
  clip.AddFadePoint(TDClipFadePoint{0.2, 700, FadeTypeVolume});  // after the one already there
  EXPECT_EQ(LineOf(clip), (Line{{0, -1.0}, {400, 0.0}, {700, 0.1}, {700, 0.2}, {1000, 0.6}}));
  clip.DeleteFadePoints(1000, 400, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), (Line{{0, -1.0}, {1000, 0.6}}));
  clip.DeleteFadePoints(-100, 2000, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip).size(), 2u);
  clip.ClearFadePoints();
  EXPECT_TRUE(LineOf(clip).empty());
  EXPECT_TRUE(LineOf(clip, FadeTypePan).empty());
}

TEST(ClipFadePoints, FadesInAndOutAtTheClipEndsAndInside) {
  FadeClip clip(0, 10000);
  clip.InitFadePoints();
  // To the end: the end anchor itself falls to silence; no point is added.
  clip.FadeOutRegion(8000, 10000, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {8000, 0.0}, {10000, -1.0}}));
  // A short fade at the head uses the start anchor, and validation finds nothing
  // missing since the point at 50 ms is within reach of it.
  clip.FadeInRegion(0, 50, FadeTypeVolume);
  clip.ValidateFadePoints();
  EXPECT_EQ(LineOf(clip), (Line{{0, -1.0}, {50, 0.0}, {8000, 0.0}, {10000, -1.0}}));
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, 0.0}, {10000, 0.0}}));

  // Inside the clip the points under the fade go, the ends are made on the line,
  // and times beyond the clip are held to it; the order of the two times and
  // equal times do not matter.
  SetLine(clip, {{0, 0.0}, {3000, 0.4}, {5000, 1.0}, {10000, 0.0}});
  clip.FadeInRegion(4000, 2000, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {2000, -1.0}, {4000, 0.0}, {5000, 1.0}, {10000, 0.0}}));
  clip.FadeOutRegion(9000, 25000, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {2000, -1.0}, {4000, 0.0}, {5000, 1.0}, {9000, 0.0}, {10000, -1.0}}));
  Line const before = LineOf(clip);
  clip.FadeInRegion(12000, 15000, FadeTypeVolume);
  clip.FadeInRegion(500, 500, FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), before);

  // The pan line fades the same way, apart from the volume line.
  SetLine(clip, {}, FadeTypePan);
  clip.FadeInRegion(-500, 1000, FadeTypePan);
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, -1.0}, {1000, 0.0}, {10000, 0.0}}));
  EXPECT_EQ(LineOf(clip), before);
}

// Trim, expand and cut keep the level the line had at each cut point, and the
// rest of the line where it was relative to the audio that stays.
TEST(ClipFadePoints, TrimExpandAndCutKeepTheLine) {
  FadeClip clip(5000, 10000);
  Line const original = {{0, -1.0}, {2000, 0.0}, {6000, 0.5}, {10000, -0.5}};
  SetLine(clip, original);
  SetLine(clip, {{0, 0.0}, {10000, 1.0}}, FadeTypePan);
  FadeClip const untouched = clip;

  // On the timeline 6000..13000 is 1000..8000 of the clip.
  clip.TrimFadePoints(13000, 6000);
  EXPECT_EQ(LineOf(clip), (Line{{0, -0.5}, {1000, 0.0}, {5000, 0.5}, {7000, 0.0}}));
  for (LSoundTime t = 0; t <= 7000; t += 125) {
    ASSERT_DOUBLE_EQ(GetAmplitudeAtPos(clip.GetFadeListByType(FadeTypeVolume), t),
                     GetAmplitudeAtPos(untouched.GetFadeListByType(FadeTypeVolume), t + 1000))
        << t;
  }
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, 0.1}, {7000, 0.8}}));

  // Ranges that miss the clip, or just touch it, change nothing; one that holds
  // all of it adds no points.
  FadeClip same = untouched;
  same.TrimFadePoints(0, 5000);
  same.TrimFadePoints(15000, 20000);
  same.TrimFadePoints(-100, 99999);
  EXPECT_EQ(LineOf(same), original);

  // The clip now starts at 6000 and lasts 7000. Growing it by 2000 at each end
  // moves the line on by the head, and its last point on by the tail as well.
  clip.iStart = 6000;
  clip.iLength = 7000;
  FadeClip const trimmed = clip;
  clip.ExpandFadepoints(4000, 15000);
  EXPECT_EQ(LineOf(clip), (Line{{2000, -0.5}, {3000, 0.0}, {7000, 0.5}, {11000, 0.0}}));
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{2000, 0.1}, {11000, 0.8}}));
  // A range that does not hold the clip is no expansion.
  FadeClip notHeld = trimmed;
  notHeld.ExpandFadepoints(6500, 15000);
  notHeld.ExpandFadepoints(4000, 12000);
  EXPECT_EQ(LineOf(notHeld), LineOf(trimmed));

  // Cutting 2000..6000 out of the middle: the level at 2000 (0.5) stays before
  // the cut and the level at 6000 (0.0) after it, a millisecond on.
  FadeClip cut(0, 10000);
  SetLine(cut, {{0, 0.0}, {4000, 1.0}, {8000, -1.0}, {10000, 0.0}});
  cut.CutFadePointsFromMiddle(2000, 6000);
  EXPECT_EQ(LineOf(cut), (Line{{0, 0.0}, {2000, 0.5}, {2001, 0.0}, {4000, -1.0}, {6000, 0.0}}));
  // Where the levels agree the two points become one; times are held to the clip.
  SetLine(cut, {{0, 0.0}, {3000, -0.5}, {10000, 0.0}});
  cut.CutFadePointsFromMiddle(-500, 2000);
  EXPECT_EQ(LineOf(cut, FadeTypeVolume).front(), (std::pair<LSoundTime, double>{0, 0.0}));
  EXPECT_EQ(LineOf(cut).size(), 4u);  // 0 and the level at 2000, a ms apart, then 1000 and 8000
  EXPECT_DOUBLE_EQ(LineOf(cut)[1].second, -1.0 / 3.0);
  SetLine(cut, {{0, 0.2}, {10000, 0.2}});
  cut.CutFadePointsFromMiddle(9000, 12000);
  EXPECT_EQ(LineOf(cut), (Line{{0, 0.2}, {9000, 0.2}}));
}

TEST(ClipFadePoints, RedundantPointsAndProportionalChange) {
  FadeClip clip(0, 1000);
  SetLine(clip, {{0, 0.0}, {100, 0.3}, {100, 0.3}, {100, -0.2}, {101, 0.7}, {101, 0.7}, {200, 0.0}});
  clip.AdjustRedundantFadePoints(FadeTypeVolume);
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {100, 0.3}, {101, -0.2}, {102, 0.7}, {200, 0.0}}));

  SetLine(clip, {{0, 0.0}, {333, 0.5}, {1000, -1.0}});
  SetLine(clip, {{0, 0.0}, {999, 0.5}}, FadeTypePan);
  clip.ChangeFadepointsProportional(1.5);
  EXPECT_EQ(LineOf(clip), (Line{{0, 0.0}, {499, 0.5}, {1500, -1.0}}));
  EXPECT_EQ(LineOf(clip, FadeTypePan), (Line{{0, 0.0}, {1498, 0.5}}));
  clip.ChangeFadepointsProportional(1e12);  // held to the range of a time, not undefined
  EXPECT_EQ(LineOf(clip).back().first, 2147483647);
}
