// test_geometry.cpp - POINTD, RECTD and CPrecise: the nudge-and-truncate
// and round-half-away rules at their edges, tolerant point comparison
// against exact rectangle comparison, normalising and bounding boxes.
#include <tqbase/tqbase.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>

namespace {

POINT Pt(int x, int y) { return POINT{x, y}; }

// The conversion rules written out longhand, for the random comparisons.
long long ModelTrunc(double v) {
  double w = v >= 0 ? v + 1e-10 : v - 1e-10;
  return (long long)std::trunc(w);
}
long long ModelRound(double v) { return ModelTrunc(v >= 0 ? v + 0.5 : v - 0.5); }

// The conversion rules at their edges: truncation and rounding both nudge
// by 1e-10 away from zero before cutting the fraction off.
TEST(Geometry, TruncationAndRoundingEdges) {
  struct Case {
    double v;
    int trunc, round;
  } cases[] = {
      {0.49999999999, 0, 1}, {2.99999999999, 3, 3}, {2.9999999998, 2, 3},      {-0.7, 0, -1},
      {-0.5, 0, -1},         {-0.49, 0, 0},          {-2.49999999999, -2, -3},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(POINT(POINTD(c.v, -c.v)).x, c.trunc) << c.v;
    EXPECT_EQ(POINT(POINTD(c.v, -c.v)).y, -c.trunc) << c.v;
    EXPECT_EQ(POINTD(c.v, -c.v).GPOINT().x, c.round) << c.v;
    EXPECT_EQ(POINTD(c.v, -c.v).GPOINT().y, -c.round) << c.v;
  }
}

TEST(Geometry, OutOfRangeGivesIndefiniteInteger) {
  EXPECT_EQ(POINT(POINTD(3e9, -3e9)).x, INT_MIN);
  EXPECT_EQ(POINT(POINTD(3e9, -3e9)).y, INT_MIN);
  EXPECT_EQ(POINT(POINTD(NAN, 0)).x, INT_MIN);
  EXPECT_EQ(POINT(POINTD(2147483647.0, -2147483648.0)).x, INT_MAX);
  EXPECT_EQ(POINT(POINTD(2147483647.0, -2147483648.0)).y, INT_MIN);
}

TEST(Geometry, ConversionsAgreeWithModelOnRandomValues) {
  std::mt19937_64 rng(12345);
  std::uniform_real_distribution<double> big(-1e6, 1e6);
  std::uniform_int_distribution<int> ints(-100000, 100000);
  for (int i = 0; i < 20000; ++i) {
    // Half the values sit within a few ulps of an integer or a half.
    double v = big(rng);
    if (i % 2) v = ints(rng) + (i % 4 == 1 ? 0.5 : 0.0) + (double)((int)(rng() % 7) - 3) * 1e-11;
    POINTD p(v, -v);
    POINT t = p, r = p.GPOINT();
    ASSERT_EQ(t.x, ModelTrunc(v)) << "POINT(POINTD(" << std::hexfloat << v << ", 0))";
    ASSERT_EQ(t.y, ModelTrunc(-v)) << std::hexfloat << -v;
    ASSERT_EQ(r.x, ModelRound(v)) << "POINTD(" << std::hexfloat << v << ", 0).GPOINT()";
    ASSERT_EQ(r.y, ModelRound(-v)) << std::hexfloat << -v;
    ASSERT_EQ(CPrecise::PreciseInt(v, 0.5), ModelRound(v)) << std::hexfloat << v;
    ASSERT_EQ(CPrecise::PreciseInt(v, 0.0), ModelTrunc(v)) << std::hexfloat << v;
    ASSERT_EQ(CPrecise::PreciseInt(v, 0.0), AnxFloatToInt(v, FALSE)) << std::hexfloat << v;
    ASSERT_EQ(CPrecise::PreciseInt(v, 0.5), AnxFloatToInt(v, TRUE)) << std::hexfloat << v;
  }
}

TEST(Geometry, PointComparisonUsesStrictTolerance) {
  EXPECT_TRUE(POINTD(1, 1) == POINTD(1 + 5e-11, 1));
  EXPECT_FALSE(POINTD(1, 1) != POINTD(1 + 5e-11, 1));
  EXPECT_FALSE(POINTD(1, 1) == POINTD(1 + 2e-10, 1));
  EXPECT_FALSE(POINTD(0, 0) == POINTD(0, 1e-10));  // bound is strict
  EXPECT_TRUE(POINTD(0, 0) == POINTD(0, 0.99e-10));
  EXPECT_TRUE(POINTD(3, -4) == Pt(3, -4));
  EXPECT_TRUE(POINTD(3 + 1e-11, -4) == Pt(3, -4));
  EXPECT_TRUE(POINTD(3.5, -4) != Pt(3, -4));
}

TEST(Geometry, CompoundAssignmentReturnsACopy) {
  // += and -= change the point and hand back a copy.
  POINTD c(1, 1);
  POINTD r = (c += POINTD(2, 3));
  r.x = 100;
  EXPECT_TRUE(c == POINTD(3, 4) && r == POINTD(100, 4));
  EXPECT_TRUE((c -= POINTD(1, 1)) == POINTD(2, 3));
}

TEST(Geometry, RectanglesCompareExactly) {
  RECTD a(0, 0, 1, 1), b(0, 0, 1 + 1e-15, 1);
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != b);
  RECT rc = {0, 0, 1, 1};
  EXPECT_TRUE(a == rc);
  EXPECT_TRUE(b != rc);
  EXPECT_TRUE(RECTD(rc) == a);
}

TEST(Geometry, EmptinessNullnessAndPtInRect) {
  EXPECT_FALSE(RECTD(5, 0, 2, 3).IsRectEmpty());  // inverted is not empty
  EXPECT_TRUE(RECTD(2, 0, 2, 3).IsRectEmpty());
  EXPECT_TRUE(RECTD(0, 3, 7, 3).IsRectEmpty());
  EXPECT_TRUE(RECTD().IsRectNull());
  EXPECT_FALSE(RECTD(0, 0, 0, 1e-300).IsRectNull());
  RECTD r(1, 2, 3, 4);
  r.SetRectEmpty();
  EXPECT_TRUE(r.IsRectNull());
  r = RECTD(0, 0, 10, 5);  // PtInRect is half-open
  EXPECT_TRUE(r.PtInRect(POINTD(0, 0)) && r.PtInRect(POINTD(9.999, 4.999)));
  EXPECT_FALSE(r.PtInRect(POINTD(10, 2)) || r.PtInRect(POINTD(2, 5)) || r.PtInRect(POINTD(-1e-12, 2)));
}

TEST(Geometry, UnionMeasuresAndOffset) {
  // The union includes zero rectangles.
  RECTD u;
  u.UnionRect(RECTD(5, 6, 10, 12), RECTD());
  EXPECT_TRUE(u == RECTD(0, 0, 10, 12));
  // Aliasing the output with an input works.
  RECTD a(1, 1, 2, 2);
  a.UnionRect(a, RECTD(-3, 0, 0, 5));
  EXPECT_TRUE(a == RECTD(-3, 0, 2, 5));
  RECTD r(4, 8, 0, 2);  // inverted: negative measures
  EXPECT_TRUE(r.Width() == -4 && r.Height() == -6 && r.CenterPoint() == POINTD(2, 5));
  r.OffsetRect(1, -1);
  EXPECT_TRUE(r == RECTD(5, 7, 1, 1));
  r.NormalizeRect();
  EXPECT_TRUE(r == RECTD(1, 1, 5, 7));
}

TEST(Geometry, NormalizeBorderMakesSquareAtTopLeft) {
  const RECTD cases[][2] = {{RECTD(10, 10, 10, 14), RECTD(10, 10, 14, 14)},
                            {RECTD(4, 8, 0, 8), RECTD(0, 8, 4, 12)},
                            {RECTD(3, 3, 3, 3), RECTD(3, 3, 4, 4)},
                            {RECTD(0, 0, 7, 2), RECTD(0, 0, 7, 7)}};
  for (const auto& c : cases) {
    RECTD r = c[0];
    r.NormalizeBorder();
    EXPECT_TRUE(r == c[1]) << c[0].left << "," << c[0].top << "," << c[0].right << "," << c[0].bottom;
  }
}

TEST(Geometry, BorderRectIsClosedBoundingBox) {
  POINTD pts[] = {POINTD(3, 4), POINTD(-1, 9), POINTD(7, -2), POINTD(2, 2)};
  RECTD one(pts, 1);
  EXPECT_TRUE(one == RECTD(3, 4, 3, 4));
  RECTD none(5, 5, 6, 6), zero(5, 5, 6, 6);
  none.GetBorderRect(nullptr, 3);
  zero.GetBorderRect(pts, 0);
  EXPECT_TRUE(none.IsRectNull() && zero.IsRectNull());

  std::mt19937 rng(7);
  std::uniform_real_distribution<double> d(-1000, 1000);
  for (int trial = 0; trial < 200; ++trial) {
    POINTD p[17];
    int n = 1 + trial % 17;
    for (int i = 0; i < n; ++i) p[i] = POINTD(d(rng), d(rng));
    RECTD b(p, n);
    for (int i = 0; i < n; ++i) {
      ASSERT_TRUE(b.left <= p[i].x && p[i].x <= b.right && b.top <= p[i].y && p[i].y <= b.bottom);
    }
    bool l = false, t = false, rr = false, bb = false;
    for (int i = 0; i < n; ++i) {
      l |= p[i].x == b.left;
      rr |= p[i].x == b.right;
      t |= p[i].y == b.top;
      bb |= p[i].y == b.bottom;
    }
    ASSERT_TRUE(l && t && rr && bb) << "trial " << trial;
  }
}

TEST(Geometry, RectConversions) {
  RECTD r(-0.5, 0.5, 2.5, -2.49);
  RECT g = r.GRECT(), t = r, wantG = {-1, 1, 3, -2}, wantT = {0, 0, 2, -2};
  EXPECT_TRUE(EqualRect(&g, &wantG));
  EXPECT_TRUE(EqualRect(&t, &wantT));
}

TEST(Geometry, PreciseIntEdges) {
  EXPECT_EQ(CPrecise::PreciseInt(-0.0, 0.5), 0);
  EXPECT_EQ(CPrecise::PreciseInt(0.7, 0.3), 1);   // threshold moved to 0.7
  EXPECT_EQ(CPrecise::PreciseInt(0.69, 0.3), 0);
  EXPECT_EQ(CPrecise::PreciseInt(-0.7, 0.3), -1);
  int ix, iy;
  CPrecise::PrecisePoint(1.5, -1.5, ix, iy, 0.5);
  long lx, ly;
  CPrecise::PrecisePoint(1.5, -1.5, lx, ly, 0.0);
  POINT p;
  CPrecise::PrecisePoint(POINTD(9.5, -0.49), p, 0.5);
  EXPECT_TRUE(ix == 2 && iy == -2 && lx == 1 && ly == -1 && p.x == 10 && p.y == 0);
}

}  // namespace
