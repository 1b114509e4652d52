#include "project/anchor_envelope_line.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Points = std::vector<TDAnchorEnvelopePoint>;

}  // namespace

TEST(AnchorEnvelopeLine, AnchorsStayAndInnerPointsKeepTheirPlace) {
  TDAnchorEnvelopePointLine line(1000, 0);  // given the wrong way round
  EXPECT_EQ(line.GetEnvelopePointsList(), (Points{{0, 0.0}, {1000, 0.0}}));

  EXPECT_EQ(line.AddEnvelopePoint(0, 0.5), nullptr);
  EXPECT_EQ(line.AddEnvelopePoint(1000, 0.5), nullptr);
  EXPECT_EQ(line.AddEnvelopePoint(-5, 0.5), nullptr);
  TDAnchorEnvelopePoint* const mid = line.AddEnvelopePoint(400, 1.0);
  ASSERT_NE(mid, nullptr);
  EXPECT_EQ(line.AddEnvelopePoint(400, 0.2), nullptr);  // taken
  ASSERT_NE(line.AddEnvelopePoint(200, -1.0), nullptr);
  EXPECT_EQ(line.GetEnvelopePointsCount(), 4);
  EXPECT_EQ(line.GetEnvelopePointsList(), (Points{{0, 0.0}, {200, -1.0}, {400, 1.0}, {1000, 0.0}}));

  EXPECT_DOUBLE_EQ(line.GetAmplitude(100), -0.5);
  EXPECT_DOUBLE_EQ(line.GetAmplitude(700), 0.5);
  EXPECT_EQ(line.GetAmplitude(1000), 0.0);
  EXPECT_EQ(line.GetAmplitude(-1), 0.0);
  EXPECT_EQ(line.GetAmplitude(1001), 0.0);

  EXPECT_EQ(line.FindEnvelopePoint(200)->dValue, -1.0);
  EXPECT_EQ(line.FindEnvelopePoint(201), nullptr);
  EXPECT_EQ(line.FindEnvelopePointBefore(200)->iPosition, 0);
  EXPECT_EQ(line.FindEnvelopePointAfter(200)->iPosition, 400);
  EXPECT_EQ(line.FindEnvelopePointBefore(0), nullptr);
  EXPECT_EQ(line.FindEnvelopePointAfter(1000), nullptr);

  // An inner point is held a millisecond clear of its neighbours; an anchor
  // takes a value but keeps its time.
  TDAnchorEnvelopePoint* p = line.FindEnvelopePoint(400);
  EXPECT_TRUE(line.ModifyEnvelopePoint(p, 50, 0.3));
  EXPECT_EQ(line.GetEnvelopePointsList()[2], (TDAnchorEnvelopePoint{201, 0.3}));
  EXPECT_TRUE(line.ModifyEnvelopePoint(p, 5000, 0.3));
  EXPECT_EQ(line.GetEnvelopePointsList()[2], (TDAnchorEnvelopePoint{999, 0.3}));
  EXPECT_TRUE(line.ModifyEnvelopePoint(line.GetEndAnchorPoint(), 500, -0.25));
  EXPECT_EQ(*line.GetEndAnchorPoint(), (TDAnchorEnvelopePoint{1000, -0.25}));

  // Anchors can't be deleted, nor points of another line.
  EXPECT_FALSE(line.DeleteEnvelopePoint(line.GetStartAnchorPoint()));
  EXPECT_FALSE(line.DeleteEnvelopePoint(line.GetEndAnchorPoint()));
  TDAnchorEnvelopePointLine other = line;
  EXPECT_FALSE(line.DeleteEnvelopePoint(other.FindEnvelopePoint(200)));
  EXPECT_FALSE(line.ModifyEnvelopePoint(other.FindEnvelopePoint(200), 300, 0.0));
  EXPECT_EQ(line.GetEnvelopePointsList(), other.GetEnvelopePointsList());
  EXPECT_TRUE(line.DeleteEnvelopePoint(line.FindEnvelopePoint(200)));
  EXPECT_EQ(line.GetEnvelopePointsCount(), 3);
}
