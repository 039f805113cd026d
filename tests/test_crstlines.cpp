// test_crstlines.cpp - the scanline region engine against brute-force pixel
// models: scan conversion, validity, the four booleans, repeat-cycle
// folding, mirrors, masks and the owning object.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tqbase/tqbase.h"
#include "region_test_util.h"
#include "test_support.h"

using namespace tqtest;

namespace {

// The structure of a union: well-formed pieces in order of their top rows,
// no two sharing a pixel (pieces kept from an operand stay as they were,
// and may share rows with new ones).
::testing::AssertionResult Tidy(const CRasterArray* a) {
  if (!a) return ::testing::AssertionSuccess();
  long long lastTop = INT64_MIN;
  size_t total = 0;
  for (RSRLINE* p : *a) {
    if (!CRstLines::IsWellFormed(p)) return ::testing::AssertionFailure() << "piece not well formed";
    if (p->rcBox.top < lastTop) return ::testing::AssertionFailure() << "pieces out of order";
    lastTop = p->rcBox.top;
    total += Pixels(p).size();
  }
  if (total != Pixels(a).size()) return ::testing::AssertionFailure() << "pieces overlap";
  return ::testing::AssertionSuccess();
}

std::string PolyCode(const std::vector<POINT>& pts, int mode) {
  std::ostringstream o;
  o << "POINT pts[] = {";
  for (size_t i = 0; i < pts.size(); ++i) o << (i ? ", " : "") << "{" << pts[i].x << ", " << pts[i].y << "}";
  o << "}; CRstLines::CreateRaster(pts, " << pts.size() << ", " << mode << ");";
  return o.str();
}

std::vector<POINT> RandomPoly(std::mt19937& rng, int n, int span, int ox = 0, int oy = 0) {
  std::uniform_int_distribution<int> d(-span, span);
  std::vector<POINT> p((size_t)n);
  for (POINT& q : p) {
    q.x = d(rng) + ox;
    q.y = d(rng) + oy;
  }
  return p;
}

CRasterArray* Wrap(RSRLINE* p) {
  CRasterArray* a = new CRasterArray;
  a->Add(p);
  return a;
}

PixelSet Op(const PixelSet& a, const PixelSet& b, int mode) {
  PixelSet r;
  if (mode == RST_AND) {
    for (auto& q : a)
      if (b.count(q)) r.insert(q);
  } else if (mode == RST_OR) {
    r = a;
    r.insert(b.begin(), b.end());
  } else if (mode == RST_DIFF) {
    for (auto& q : a)
      if (!b.count(q)) r.insert(q);
  } else {
    for (auto& q : a)
      if (!b.count(q)) r.insert(q);
    for (auto& q : b)
      if (!a.count(q)) r.insert(q);
  }
  return r;
}

}  // namespace

// ---- validity ------------------------------------------------------------------

// The structural rules the random defect check below does not reach.
TEST(CRstLinesValidity, StructuralRules) {
  RSRLINE* p = MakePiece(5, {{{0, 3}}, {{1, 2}, {4, 6}}});
  EXPECT_TRUE(CRstLines::IsValid(p));
  p->rcBox.bottom += 1;  // row count disagrees
  EXPECT_FALSE(CRstLines::IsValid(p));
  p->rcBox.bottom -= 1;
  p->arCount[0] = 4;
  p->arCount[1] = -1;  // sums to 3 but hides a row
  EXPECT_FALSE(CRstLines::IsValid(p));
  delete p;

  RSRLINE empty;
  EXPECT_TRUE(CRstLines::IsValid(&empty));
  empty.rcBox.right = 1;
  EXPECT_FALSE(CRstLines::IsValid(&empty));
  EXPECT_FALSE(CRstLines::IsValid((const RSRLINE*)nullptr));

  // More rows than runs is invalid even with a consistent box.
  RSRLINE* gap = MakePiece(0, {{{0, 0}}, {}, {}});
  EXPECT_FALSE(CRstLines::IsValid(gap));
  delete gap;
}

// ---- scan conversion ---------------------------------------------------------------

TEST(CRstLinesScan, DegenerateOutlines) {
  POINT one[] = {{7, -3}};
  RSRLINE* p = CRstLines::CreateRaster(one, 1, 1);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Pixels(p), (PixelSet{{-3, 7}}));
  CRstLines::Delete(p);
  EXPECT_EQ(p, nullptr);

  POINT same[] = {{2, 2}, {2, 2}, {2, 2}};
  p = CRstLines::CreateRaster(same, 3, 2);
  EXPECT_EQ(Pixels(p), (PixelSet{{2, 2}}));
  CRstLines::Delete(p);

  POINT hline[] = {{0, 4}, {9, 4}, {3, 4}};
  p = CRstLines::CreateRaster(hline, 3, 1);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->arRun.GetSize(), 1);
  EXPECT_EQ(Pixels(p), RectPixels(0, 4, 9, 4));
  CRstLines::Delete(p);

  POINT vline[] = {{3, 0}, {3, 10}};
  p = CRstLines::CreateRaster(vline, 2, 1);
  EXPECT_EQ(Pixels(p), RectPixels(3, 0, 3, 10));
  CRstLines::Delete(p);

  EXPECT_EQ(CRstLines::CreateRaster(one, 1, 3), nullptr);
  EXPECT_EQ(CRstLines::CreateRaster(one, 0, 1), nullptr);
  EXPECT_EQ(CRstLines::CreateRaster(nullptr, 1, 1), nullptr);
  EXPECT_EQ(CRstLines::CreateRasterArray(one, 1, 0), nullptr);
}

TEST(CRstLinesScan, RectangleOutlineIsInclusive) {
  POINT rc[] = {{0, 0}, {10, 0}, {10, 5}, {0, 5}};
  for (int mode = 1; mode <= 2; ++mode) {
    RSRLINE* p = CRstLines::CreateRaster(rc, 4, mode);
    EXPECT_EQ(Pixels(p), RectPixels(0, 0, 10, 5)) << "mode " << mode;
    EXPECT_TRUE(CRstLines::IsWellFormed(p));
    CRstLines::Delete(p);
  }
}

TEST(CRstLinesScan, TrailingRepeatsChangeNothing) {
  POINT a[] = {{0, 0}, {20, 3}, {5, 17}};
  POINT b[] = {{0, 0}, {20, 3}, {5, 17}, {5, 17}, {5, 17}};
  RSRLINE* pa = CRstLines::CreateRaster(a, 3, 1);
  RSRLINE* pb = CRstLines::CreateRaster(b, 5, 1);
  EXPECT_TRUE(CRstLines::IsEqual(pa, pb));
  CRstLines::Delete(pa);
  CRstLines::Delete(pb);
}

TEST(CRstLinesScan, TurningVertexIsNotACrossing) {
  // A "W": the middle vertex turns back upwards at row 10; the row must not
  // be filled between the two outer edges beyond the vertex pixel.
  POINT w[] = {{0, 0}, {10, 10}, {20, 0}, {30, 10}, {40, 0}, {40, -5}, {0, -5}};
  RSRLINE* p = CRstLines::CreateRaster(w, 7, 1);
  ASSERT_NE(p, nullptr);
  PixelSet s = Pixels(p);
  EXPECT_TRUE(s.count({10, 10}));
  EXPECT_TRUE(s.count({10, 30}));
  EXPECT_FALSE(s.count({10, 20}));
  EXPECT_TRUE(s.count({0, 20}));  // the apex at (20,0) is a turning vertex inside the fill
  EXPECT_FALSE(s.count({5, 20}));
  CRstLines::Delete(p);
}

// y-monotone outlines (convex ones, zigzag chains, chains that cross each
// other) take the row-by-row path in CreateRaster; the one-polygon set
// takes the item sweep. Both must give the same piece, one run a row.
TEST(CRstLinesScan, MonotonePathAgreesWithItems) {
  std::mt19937 rng(11);
  for (int iter = 0; iter < 400; ++iter) {
    std::vector<POINT> pts;
    const int kind = iter % 3;
    if (kind == 0) {  // convex
      const int n = 3 + (int)(rng() % 30);
      const double cx = (double)(rng() % 100) - 50, cy = (double)(rng() % 100) - 50, r = 3 + rng() % 60;
      for (int i = 0; i < n; ++i) {
        const double a = 2 * M_PI * i / n;
        pts.push_back(POINT{(LONG)std::lround(cx + r * std::cos(a)), (LONG)std::lround(cy + r * std::sin(a))});
      }
    } else {  // two chains from a top to a bottom, x anywhere (they may cross)
      const int top = (int)(rng() % 20) - 10, height = (int)(rng() % 40);
      std::vector<int> down(1 + rng() % 6), up(rng() % 6);
      for (int& y : down) y = top + (int)(rng() % (unsigned)(height + 1));
      for (int& y : up) y = top + (int)(rng() % (unsigned)(height + 1));
      std::sort(down.begin(), down.end());
      std::sort(up.rbegin(), up.rend());
      pts.push_back(POINT{(LONG)(rng() % 40) - 20, top});
      for (int y : down) pts.push_back(POINT{(LONG)(rng() % 40) - 20, y});
      for (int y : up) pts.push_back(POINT{(LONG)(rng() % 40) - 20, y});
      if (kind == 2) std::rotate(pts.begin(), pts.begin() + (long)(rng() % pts.size()), pts.end());
    }
    const int mode = 1 + (int)(rng() % 2), n = (int)pts.size();
    RSRLINE* row = CRstLines::CreateRaster(pts.data(), n, mode);
    CRasterArray* items = CRstLines::CreateRasterArray(pts.data(), &n, 1, mode, 0);
    ASSERT_TRUE(row && items && items->GetSize() == 1) << PolyCode(pts, mode);
    EXPECT_TRUE(CRstLines::IsEqual(row, items->GetAt(0))) << PolyCode(pts, mode);
    for (int c : row->arCount) ASSERT_LE(c, 1) << PolyCode(pts, mode);
    CRstLines::Delete(row);
    CRstLines::Delete(items);
  }
}

TEST(CRstLinesScan, AgreesWithContinuousModelAwayFromTheOutline) {
  std::mt19937 rng(12345);
  for (int iter = 0; iter < 400; ++iter) {
    int n = 3 + (int)(rng() % 12);
    int ox = iter % 3 == 0 ? -2000000000 : (iter % 3 == 1 ? 1900000000 : 0);
    std::vector<POINT> pts = RandomPoly(rng, n, 40, ox, -ox / 2);
    int mode = 1 + (int)(rng() % 2);
    RSRLINE* p = CRstLines::CreateRaster(pts.data(), n, mode);
    ASSERT_NE(p, nullptr) << PolyCode(pts, mode);
    ASSERT_TRUE(CRstLines::IsWellFormed(p)) << PolyCode(pts, mode);
    PixelSet s = Pixels(p);
    // Outline vertices belong to the region.
    for (const POINT& q : pts) ASSERT_TRUE(s.count({q.y, q.x})) << PolyCode(pts, mode);
    for (long long y = p->rcBox.top; y <= p->rcBox.bottom; ++y)
      for (long long x = (long long)p->rcBox.left - 2; x <= (long long)p->rcBox.right + 2; ++x) {
        bool in;
        if (!ModelSafe(pts, x, y, mode, &in)) continue;
        ASSERT_EQ(in, s.count({y, x}) != 0) << "pixel (" << x << ", " << y << ") " << PolyCode(pts, mode);
      }
    // Winding fills everything alternate fills, and self-overlaps besides.
    RSRLINE* other = CRstLines::CreateRaster(pts.data(), n, 3 - mode);
    const PixelSet& alt = mode == 1 ? s : Pixels(other);
    const PixelSet& wind = mode == 1 ? Pixels(other) : s;
    ASSERT_TRUE(std::includes(wind.begin(), wind.end(), alt.begin(), alt.end())) << PolyCode(pts, mode);
    CRstLines::Delete(other);
    CRstLines::Delete(p);
  }
}

TEST(CRstLinesScan, LongRowsSortTheSameEitherWay) {
  // A comb with t teeth: rows through the teeth carry 2t boundary points,
  // so 99 teeth sort by adjacent swaps and 100+ by the library sort.
  for (int teeth : {60, 99, 100, 101, 150}) {
    std::vector<POINT> pts;
    for (int i = 0; i < teeth; ++i) {
      pts.push_back(POINT{4 * i, 0});
      pts.push_back(POINT{4 * i, 20});
      pts.push_back(POINT{4 * i + 2, 20});
      pts.push_back(POINT{4 * i + 2, 0});
    }
    pts.push_back(POINT{4 * teeth - 2, -5});
    pts.push_back(POINT{0, -5});
    for (int mode = 1; mode <= 2; ++mode) {
      RSRLINE* p = CRstLines::CreateRaster(pts.data(), (int)pts.size(), mode);
      ASSERT_NE(p, nullptr);
      PixelSet want = RectPixels(0, -5, 4 * teeth - 2, 0);
      for (int i = 0; i < teeth; ++i) {
        PixelSet tooth = RectPixels(4 * i, 1, 4 * i + 2, 20);
        want.insert(tooth.begin(), tooth.end());
      }
      EXPECT_EQ(Pixels(p), want) << teeth << " teeth, mode " << mode;
      CRstLines::Delete(p);
    }
  }
}

TEST(CRstLinesScan, TooLargeFailsCleanly) {
  // Too large is reported as such, not as a lack of memory.
  POINT tall[] = {{0, -2000000000}, {10, 2000000000}, {0, 2000000000}};
  g_Error.ClearError();
  EXPECT_EQ(CRstLines::CreateRaster(tall, 3, 1), nullptr);
  CString text;
  EXPECT_TRUE(g_Error.GetLastError(text));
  EXPECT_NE(text.Find("too large"), -1) << text.GetString();
  CRstLines r;
  EXPECT_FALSE(r.Create(RECT{0, -2000000000, 5, 2000000000}));
  EXPECT_TRUE(g_Error.GetLastError(text));
  EXPECT_NE(text.Find("too large"), -1) << text.GetString();
}

// An outline on the corners of its box that runs down one side and back up
// the same side (an L, or a line with a spur on its top row) is not its
// box: a set filled polygon by polygon once took it for a rectangle.
TEST(CRstLinesScan, OneSidedOutlinesAreNotTheirBox) {
  const std::vector<std::vector<POINT>> outlines = {
      {{0, 0}, {0, 10}, {5, 10}, {0, 10}},            // an L
      {{1, -8}, {0, -8}, {0, 18}, {0, 18}, {0, -8}},  // a spur on the top row
      {{5, 0}, {5, 7}, {2, 7}, {5, 7}, {5, 0}, {2, 0}},
  };
  for (const auto& q : outlines) {
    for (int mode = 1; mode <= 2; ++mode) {
      const int n = (int)q.size();
      RSRLINE* one = CRstLines::CreateRaster(q.data(), n, mode);
      CRasterArray* set = CRstLines::CreateRasterArray(q.data(), &n, 1, mode, 0);
      // With a second polygon the set takes the per-polygon path.
      std::vector<POINT> two = q;
      two.push_back(POINT{100, 100});
      int counts[] = {n, 1};
      CRasterArray* pair = CRstLines::CreateRasterArray(two.data(), counts, 2, mode, 0);
      PixelSet want = Pixels(one);
      EXPECT_EQ(Pixels(set), want) << PolyCode(q, mode);
      want.insert({100, 100});
      EXPECT_EQ(Pixels(pair), want) << PolyCode(q, mode);
      EXPECT_LT(want.size(), 30u) << PolyCode(q, mode);  // a line and a spur, not a box
      CRstLines::Delete(one);
      CRstLines::Delete(set);
      CRstLines::Delete(pair);
    }
  }
}

// Rows between polygons that are far apart hold no pixels and cost
// nothing: sets spanning more rows than the engine takes were refused as
// too large, filled together or one by one.
TEST(CRstLinesScan, FarApartPolygonsInOneSet) {
  const std::vector<POINT> pts = {{0, -2000000000}, {6, -2000000000}, {3, -1999999995},  // a triangle
                                  {-7, 2000000000},  {-7, 2000000003},                   // an upright line
                                  {1, 0},           {9, 4},           {1, 8},  {9, 0}};    // a bow tie
  int counts[] = {3, 2, 4};
  for (int join = 0; join <= 1; ++join) {
    for (int mode = 1; mode <= 2; ++mode) {
      CRasterArray* set = CRstLines::CreateRasterArray(pts.data(), counts, 3, mode, join);
      ASSERT_NE(set, nullptr) << "join " << join << " mode " << mode;
      EXPECT_TRUE(Banded(set));
      EXPECT_EQ(set->GetSize(), 3);
      PixelSet want;
      for (int k = 0, off = 0; k < 3; off += counts[k++]) {
        RSRLINE* one = CRstLines::CreateRaster(pts.data() + off, counts[k], mode);
        PixelSet s = Pixels(one);
        want.insert(s.begin(), s.end());
        CRstLines::Delete(one);
      }
      EXPECT_EQ(Pixels(set), want) << "join " << join << " mode " << mode;
      CRstLines::Delete(set);
    }
  }
  // A region of pieces far apart traces and rebuilds.
  CRstLines region;
  ASSERT_TRUE(region.Create(pts.data(), counts, 3, ALTERNATE_FILL, 0));
  ANLOOPGRP* loops = CLoopGrpOpt::CreateAnloopGrp(region.GetData());
  ASSERT_NE(loops, nullptr);
  CRstLines back;
  ASSERT_TRUE(back.Create(loops));
  EXPECT_EQ(Pixels(back.GetData()), Pixels(region.GetData()));
  CLoopGrpOpt::DeleteAnloopGrp(loops);
  // One polygon spanning too many rows is still refused.
  const POINT tall[] = {{0, -2000000000}, {5, 2000000000}, {0, 2000000000}, {0, 0}, {1, 0}, {1, 1}};
  int tallCounts[] = {3, 3};
  EXPECT_EQ(CRstLines::CreateRasterArray(tall, tallCounts, 2, 1, 1), nullptr);
  EXPECT_EQ(CRstLines::CreateRasterArray(tall, tallCounts, 2, 1, 0), nullptr);
}

TEST(CRstLinesScan, PolygonSets) {
  // Outer square with a square inside: joined under alternate fill the
  // inner one cuts a hole; filled separately their union has none.
  POINT pts[] = {{0, 0}, {20, 0}, {20, 20}, {0, 20}, {5, 5}, {15, 5}, {15, 15}, {5, 15}};
  int counts[] = {4, 4};
  CRasterArray* joined = CRstLines::CreateRasterArray(pts, counts, 2, 1, 1);
  CRasterArray* united = CRstLines::CreateRasterArray(pts, counts, 2, 1, 0);
  ASSERT_NE(joined, nullptr);
  ASSERT_NE(united, nullptr);
  PixelSet j = Pixels(joined), u = Pixels(united);
  EXPECT_FALSE(j.count({10, 10}));
  EXPECT_TRUE(j.count({5, 10}));  // the inner outline itself is inside
  EXPECT_TRUE(u.count({10, 10}));
  EXPECT_EQ(u.size(), 21u * 21u);
  EXPECT_TRUE(Banded(joined));
  EXPECT_TRUE(Banded(united));
  CRstLines::Delete(joined);
  CRstLines::Delete(united);

  // Polygons far apart give one piece per band.
  POINT apart[] = {{0, 0}, {3, 0}, {3, 3}, {100, 50}, {103, 50}, {103, 53}};
  int fc[] = {3, 3};
  CRasterArray* two = CRstLines::CreateRasterArray(apart, fc, 2, 2, 0);
  ASSERT_NE(two, nullptr);
  EXPECT_EQ(two->GetSize(), 2);
  EXPECT_TRUE(Banded(two));
  CRstLines::Delete(two);
  int bad[] = {3, 0};
  EXPECT_EQ(CRstLines::CreateRasterArray(apart, bad, 2, 1, 0), nullptr);

  // Filled one by one, a set is the union of its polygons, whatever their
  // kind (rectangles, monotone outlines, others take different paths).
  std::mt19937 rng(515);
  for (int iter = 0; iter < 100; ++iter) {
    std::vector<POINT> pts;
    std::vector<int> cnt;
    PixelSet want;
    const int polys = 1 + (int)(rng() % 6), mode = 1 + (int)(rng() % 2);
    for (int k = 0; k < polys; ++k) {
      std::vector<POINT> q;
      const int ox = (int)(rng() % 60) - 30, oy = (int)(rng() % 60) - 30, w = 1 + (int)(rng() % 15);
      if (rng() % 3 == 0)
        q = {{ox, oy}, {ox + w, oy}, {ox + w, oy + 2 * w}, {ox, oy + 2 * w}};
      else
        q = RandomPoly(rng, 3 + (int)(rng() % 7), 12, ox, oy);
      RSRLINE* one = CRstLines::CreateRaster(q.data(), (int)q.size(), mode);
      const PixelSet s1 = Pixels(one);
      want.insert(s1.begin(), s1.end());
      CRstLines::Delete(one);
      pts.insert(pts.end(), q.begin(), q.end());
      cnt.push_back((int)q.size());
    }
    CRasterArray* set = CRstLines::CreateRasterArray(pts.data(), cnt.data(), polys, mode, 0);
    EXPECT_EQ(Pixels(set), want) << "iteration " << iter;
    EXPECT_TRUE(Banded(set)) << "iteration " << iter;
    CRstLines::Delete(set);
  }
}

// ---- hit tests and barycentre ---------------------------------------------------------

TEST(CRstLinesQueries, PointAndRectangle) {
  RSRLINE* p = MakePiece(10, {{{0, 4}, {8, 9}}, {{0, 9}}, {{2, 3}}});
  const PixelSet s = Pixels(p);
  for (LONG y = 8; y <= 14; ++y)
    for (LONG x = -2; x <= 11; ++x)
      EXPECT_EQ(CRstLines::PtInRaster(p, POINT{x, y}) != 0, s.count({y, x}) != 0) << x << "," << y;

  RECT r1 = {0, 10, 5, 12};
  EXPECT_TRUE(CRstLines::RectInRaster(p, &r1, nullptr));
  RECT r2 = {0, 10, 6, 11};
  EXPECT_FALSE(CRstLines::RectInRaster(p, &r2, nullptr));
  RECT r3 = {2, 10, 4, 13};
  EXPECT_TRUE(CRstLines::RectInRaster(p, &r3, nullptr));
  delete p;

  CRstLines full;
  RECT rc = {3, 4, 13, 9};
  ASSERT_TRUE(full.Create(rc));
  RECT excl = {3, 4, 13, 9};
  EXPECT_TRUE(CRstLines::RectInRasterArray(full.GetData(), &excl, nullptr));
  RECT big = {3, 4, 14, 9};
  EXPECT_FALSE(CRstLines::RectInRasterArray(full.GetData(), &big, nullptr));
}

TEST(CRstLinesQueries, BiasedBaryCenter) {
  CRstLines px;
  RECT one = {5, 7, 6, 8};
  ASSERT_TRUE(px.Create(one));
  POINTD c;
  ASSERT_TRUE(px.GetBaryCenter(c));
  EXPECT_DOUBLE_EQ(c.x, 5.0);
  EXPECT_DOUBLE_EQ(c.y, 8.0);

  CRstLines rc;
  RECT r = {0, 0, 4, 4};
  ASSERT_TRUE(rc.Create(r));
  ASSERT_TRUE(rc.GetBaryCenter(c));
  EXPECT_DOUBLE_EQ(c.x, 1.5);   // (0+3)*4/2 = 6 per run, 24 / 16
  EXPECT_DOUBLE_EQ(c.y, 2.5);   // rows counted as 1..4
  CRstLines none;
  EXPECT_FALSE(none.GetBaryCenter(c));
}

// ---- the booleans ---------------------------------------------------------------------

TEST(CRstLinesBoolean, PiecesAgainstBitmapModel) {
  std::mt19937 rng(777);
  for (int iter = 0; iter < 300; ++iter) {
    int na = 3 + (int)(rng() % 9), nb = 3 + (int)(rng() % 9);
    std::vector<POINT> pa = RandomPoly(rng, na, 30), pb = RandomPoly(rng, nb, 30, (int)(rng() % 30) - 15, (int)(rng() % 50) - 25);
    int fa = 1 + (int)(rng() % 2), fb = 1 + (int)(rng() % 2);
    RSRLINE* a = CRstLines::CreateRaster(pa.data(), na, fa);
    RSRLINE* b = CRstLines::CreateRaster(pb.data(), nb, fb);
    ASSERT_TRUE(a && b);
    PixelSet sa = Pixels(a), sb = Pixels(b);
    for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
      CRasterArray* r = CRstLines::CreateRasterArray(a, b, mode);
      ASSERT_NE(r, nullptr);
      std::string repro = PolyCode(pa, fa) + " / " + PolyCode(pb, fb) + " mode " + std::to_string(mode);
      EXPECT_EQ(Pixels(r), Op(sa, sb, mode)) << repro;
      // A union whose first operand starts two or more rows below the second
      // keeps the operands as two pieces, first operand first.
      if (mode == RST_OR && a->rcBox.top > b->rcBox.bottom + 1) {
        ASSERT_EQ(r->GetSize(), 2) << repro;
        EXPECT_TRUE(CRstLines::IsEqual(r->GetAt(0), a));
        EXPECT_TRUE(CRstLines::IsEqual(r->GetAt(1), b));
      } else {
        EXPECT_TRUE(Banded(r)) << repro;
      }
      EXPECT_TRUE(CRstLines::IsWellFormed(r)) << repro;
      CRstLines::Delete(r);
    }
    CRstLines::Delete(a);
    CRstLines::Delete(b);
  }
}

TEST(CRstLinesBoolean, ArraysAgainstBitmapModel) {
  std::mt19937 rng(4242);
  for (int iter = 0; iter < 150; ++iter) {
    // Multi-piece operands with overlapping pieces (polygon sets, united)
    // and rectangles.
    auto makeSet = [&](std::vector<POINT>& pts, std::vector<int>& cnt) {
      int polys = 1 + (int)(rng() % 4);
      for (int k = 0; k < polys; ++k) {
        int n = 3 + (int)(rng() % 6);
        auto p = RandomPoly(rng, n, 12, (int)(rng() % 60) - 30, (int)(rng() % 60) - 30);
        pts.insert(pts.end(), p.begin(), p.end());
        cnt.push_back(n);
      }
    };
    std::vector<POINT> pa, pb;
    std::vector<int> ca, cb;
    makeSet(pa, ca);
    makeSet(pb, cb);
    CRasterArray* a = CRstLines::CreateRasterArray(pa.data(), ca.data(), (int)ca.size(), 1 + iter % 2, iter % 3 == 0);
    CRasterArray* b = CRstLines::CreateRasterArray(pb.data(), cb.data(), (int)cb.size(), 2, 0);
    ASSERT_TRUE(a && b);
    // Append overlapping raw pieces so that the operands' pieces overlap.
    RSRLINE* extra = CRstLines::CreateRaster(pb.data(), cb[0], 1);
    a->Add(extra);
    PixelSet sa = Pixels(a), sb = Pixels(b);
    for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
      CRasterArray* r = nullptr;
      int code = CRstLines::Combine(a, b, mode, &r, nullptr);
      PixelSet want = Op(sa, sb, mode);
      ASSERT_EQ(code, want.empty() ? RST_EMPTY : RST_NOTEMPTY);
      EXPECT_EQ(Pixels(r), want) << "iteration " << iter << " mode " << mode;
      EXPECT_TRUE(mode == RST_OR ? Tidy(r) : Banded(r));
      CRstLines::Delete(r);
    }
    CRstLines::Delete(a);
    CRstLines::Delete(b);
  }
}

// A region built one shape at a time, as a layout module builds it: every
// step of unions and differences (Add and the member Combine with the
// region as either operand) against the pixel model. Pieces the shape
// cannot meet stay the very same objects, pieces never share a pixel, and
// the object's box follows its pieces.
TEST(CRstLinesBoolean, UnionAndDifferenceInPlace) {
  std::mt19937 rng(2468);
  for (int run = 0; run < 25; ++run) {
    CRstLines region;
    PixelSet model;
    for (int step = 0; step < 40; ++step) {
      const int x = (int)(rng() % 200), y = (int)(rng() % 200), w = 1 + (int)(rng() % 30);
      std::vector<POINT> q;
      if (rng() % 2)
        q = {{x, y}, {x + w, y}, {x + w, y + w / 2}, {x, y + w / 2}};
      else
        q = RandomPoly(rng, 3 + (int)(rng() % 6), w, x, y);
      CRstLines shape;
      ASSERT_TRUE(shape.Create(q.data(), (int)q.size(), WINDING_FILL));
      const PixelSet s = Pixels(shape.GetData());
      const bool add = step < 4 || rng() % 4 != 0;
      const RECT sb = shape.GetBox();
      std::vector<std::pair<const RSRLINE*, PixelSet>> distant;
      if (region.GetData())
        for (const RSRLINE* p : *region.GetData())
          if (p->rcBox.right + 1 < sb.left || sb.right + 1 < p->rcBox.left || p->rcBox.bottom + 1 < sb.top ||
              sb.bottom + 1 < p->rcBox.top)
            distant.push_back({p, Pixels(p)});
      int code;
      switch (rng() % 3) {
        case 0: code = region.Add(shape.GetData()->GetAt(0), add, nullptr); break;
        case 1: code = region.Combine(&region, &shape, add ? RST_OR : RST_DIFF, nullptr); break;
        default: code = add ? region.Combine(&shape, &region, RST_OR, nullptr) : region.Add(shape.GetData(), 0, nullptr);
      }
      model = Op(model, s, add ? RST_OR : RST_DIFF);
      const std::string where = "run " + std::to_string(run) + " step " + std::to_string(step);
      ASSERT_EQ(code, model.empty() ? RST_EMPTY : RST_NOTEMPTY) << where;
      ASSERT_EQ(Pixels(region.GetData()), model) << where;
      ASSERT_TRUE(CRstLines::IsWellFormed(region.GetData()) || model.empty()) << where;
      size_t total = 0;
      if (region.GetData())
        for (const RSRLINE* p : *region.GetData()) total += Pixels(p).size();
      ASSERT_EQ(total, model.size()) << where << ": pieces overlap";
      const RECT box = region.GetBox(), want = CRstLines::GetBox(region.GetData());
      ASSERT_TRUE(EqualRect(&box, &want)) << where;
      for (auto& f : distant) {
        const CRasterArray* arr = region.GetData();
        ASSERT_TRUE(arr && std::find(arr->begin(), arr->end(), f.first) != arr->end()) << where << ": a distant piece was replaced";
        ASSERT_EQ(Pixels(f.first), f.second) << where;
      }
    }
    EXPECT_EQ(region.Add((const RSRLINE*)nullptr, 1, nullptr), RST_FAILED);
    EXPECT_EQ(region.Combine(nullptr, &region, RST_OR), RST_FAILED);
  }
}

TEST(CRstLinesBoolean, StatedCases) {
  RSRLINE* p1 = MakePiece(3, {{{3, 3}}});
  RSRLINE* p2 = MakePiece(3, {{{3, 3}}});
  EXPECT_FALSE(CRstLines::IsIntersect(p1, p2));  // half-open rule
  RSRLINE* r1 = MakePiece(0, {{{0, 5}}, {{0, 5}}, {{0, 5}}, {{0, 5}}});
  RSRLINE* r2 = MakePiece(2, {{{4, 9}}, {{4, 9}}, {{4, 9}}, {{4, 9}}});
  EXPECT_TRUE(CRstLines::IsIntersect(r1, r2));
  RSRLINE* r3 = MakePiece(3, {{{5, 9}}});  // shares one pixel with r1
  EXPECT_FALSE(CRstLines::IsIntersect(r1, r3));

  {
    tqtest::HookCapture ac;
    CRasterArray a, b;
    EXPECT_TRUE(CRstLines::InSide(&a, &b));
    EXPECT_EQ(ac.Assertions(), 1);
  }

  CRasterArray* odd = CRstLines::CreateRasterArray(r1, r2, 9);
  ASSERT_NE(odd, nullptr);
  EXPECT_EQ(odd->GetSize(), 0);
  CRstLines::Delete(odd);
  EXPECT_EQ(CRstLines::CreateRasterArray(nullptr, r2, RST_AND), nullptr);

  // DIFF with an empty subtrahend copies the minuend; AND of disjoint
  // regions is empty.
  CRasterArray* A = Wrap(MakePiece(0, {{{0, 5}}, {{1, 2}}}));
  CRasterArray empty;
  CRasterArray* r = nullptr;
  EXPECT_EQ(CRstLines::Combine(A, &empty, RST_DIFF, &r, nullptr), RST_NOTEMPTY);
  EXPECT_TRUE(CRstLines::IsEqual(r, A));
  CRstLines::Delete(r);
  CRasterArray* D = Wrap(MakePiece(50, {{{0, 5}}}));
  EXPECT_EQ(CRstLines::Combine(A, D, RST_AND, &r, nullptr), RST_EMPTY);
  EXPECT_EQ(r, nullptr);

  // Aliasing is refused and leaves the array as it was.
  {
    tqtest::HookCapture ac;
    EXPECT_FALSE(CRstLines::Create(A, A, D, RST_OR, nullptr));
    EXPECT_GE(ac.Assertions(), 1);
    EXPECT_EQ(A->GetSize(), 1);
  }

  // Union: a starting two rows below b's end stays apart; right after, merged.
  RSRLINE* top = MakePiece(0, {{{0, 3}}, {{0, 3}}});
  RSRLINE* below2 = MakePiece(3, {{{1, 2}}});
  RSRLINE* below1 = MakePiece(2, {{{1, 2}}});
  CRasterArray out;
  ASSERT_TRUE(CRstLines::ORPolylines(below2, top, &out));
  ASSERT_EQ(out.GetSize(), 2);
  EXPECT_TRUE(CRstLines::IsEqual(out[0], below2));
  EXPECT_TRUE(CRstLines::IsEqual(out[1], top));
  ASSERT_TRUE(CRstLines::ORPolylines(below1, top, &out));
  ASSERT_EQ(out.GetSize(), 1);
  EXPECT_EQ(out[0]->rcBox.top, 0);
  EXPECT_EQ(out[0]->rcBox.bottom, 2);
  // The other way round, the empty row between them ends a piece: one
  // piece over rows 0..3 would hold 4 rows and 3 runs, which is invalid.
  ASSERT_TRUE(CRstLines::ORPolylines(top, below2, &out));
  ASSERT_EQ(out.GetSize(), 2);
  EXPECT_TRUE(CRstLines::IsEqual(out[0], top));
  EXPECT_TRUE(CRstLines::IsEqual(out[1], below2));
  EXPECT_TRUE(Banded(&out));
  CRstLines::Release(&out);
  RSRLINE* norun = new RSRLINE;
  EXPECT_FALSE(CRstLines::ORPolylines(norun, top, &out));
  ASSERT_TRUE(CRstLines::ORPolylines(top, norun, &out));
  EXPECT_TRUE(CRstLines::IsEqual(out[0], top));
  CRstLines::Release(&out);

  for (RSRLINE* q : {p1, p2, r1, r2, r3, top, below1, below2, norun}) delete q;
  CRstLines::Delete(A);
  CRstLines::Delete(D);
}

// ---- the fast sweep against the general one -----------------------------------------
//
// Operands made of well-formed pieces with disjoint row ranges take the
// fast sweep; the very same pixel sets with one row repeated as an extra,
// overlapping piece (arrays) or with two runs of a row swapped (pieces) go
// through the general, normalising sweep. Both must give identical pieces.

namespace {

typedef std::vector<std::vector<std::pair<int, int>>> Rows;

// Rows of sorted, non-touching runs. Row kinds are mixed so that every
// kernel case turns up: empty rows, one-run rows, long rows (past 64 runs
// the one-run kernels search instead of counting), and short gaps and lengths so that runs
// of the two operands touch, nest and cross often. base shifts x, kept
// in long long until the caller's range check.
Rows RandomRows(std::mt19937& rng, int rows, long long base, bool allowEmpty) {
  Rows r((size_t)rows);
  for (auto& row : r) {
    int kind = (int)(rng() % 8);
    int n = kind == 0 ? (allowEmpty ? 0 : 1) : kind == 1 ? 1 : kind == 2 ? 16 + (int)(rng() % 100) : 1 + (int)(rng() % 8);
    long long x = base + (long long)(rng() % 6);
    for (int i = 0; i < n; ++i) {
      long long len = 1 + (long long)(rng() % (kind == 1 ? 40 : 4));
      row.push_back({(int)x, (int)(x + len - 1)});
      x += len + 1 + (long long)(rng() % 3);
    }
  }
  return r;
}

std::string RowsCode(int top, const Rows& rows) {
  std::ostringstream o;
  o << "MakePiece(" << top << ", {";
  for (size_t k = 0; k < rows.size(); ++k) {
    o << (k ? ", " : "") << "{";
    for (size_t i = 0; i < rows[k].size(); ++i)
      o << (i ? ", " : "") << "{" << rows[k][i].first << ", " << rows[k][i].second << "}";
    o << "}";
  }
  o << "})";
  return o.str();
}

struct RandomArray {
  std::vector<std::pair<int, Rows>> pieces;  // (top, rows)
  std::string code;
  CRasterArray* Make() const {
    CRasterArray* a = new CRasterArray;
    for (auto& p : pieces) a->Add(MakePiece(p.first, p.second));
    return a;
  }
};

// 1 to 3 pieces stacked with gaps of 0 to 2 rows (adjacent pieces continue
// one band), listed top-down or, now and then, bottom-up. Every piece has
// at least as many runs as rows (a validity rule).
RandomArray MakeRandomArray(std::mt19937& rng, int top, long long base) {
  RandomArray ra;
  int nPieces = 1 + (int)(rng() % 3);
  int y = top;
  for (int k = 0; k < nPieces; ++k) {
    int rows = 1 + (int)(rng() % 12);
    Rows r = RandomRows(rng, rows, base, true);
    size_t runs = 0;
    for (auto& row : r) runs += row.size();
    if (runs < r.size() || r.front().empty() || r.back().empty()) r = RandomRows(rng, rows, base, false);
    ra.pieces.push_back({y, r});
    y += rows + (int)(rng() % 3);
  }
  if (rng() % 4 == 0) std::reverse(ra.pieces.begin(), ra.pieces.end());
  std::ostringstream o;
  o << "{";
  for (auto& p : ra.pieces) o << " arr->Add(" << RowsCode(p.first, p.second) << ");";
  o << " }";
  ra.code = o.str();
  return ra;
}

// The same pixel set with one non-empty row repeated as an extra piece:
// the pieces overlap, so the general sweep runs.
CRasterArray* WithOverlap(const RandomArray& ra) {
  CRasterArray* a = ra.Make();
  for (auto& p : ra.pieces)
    for (size_t k = 0; k < p.second.size(); ++k)
      if (!p.second[k].empty()) {
        a->Add(MakePiece(p.first + (int)k, {p.second[k]}));
        return a;
      }
  return a;
}

long long PickBase(std::mt19937& rng) {
  switch (rng() % 4) {
    case 0: return (long long)INT32_MIN;        // runs starting at INT_MIN
    case 1: return (long long)INT32_MAX - 700;  // long rows reach toward INT_MAX
    default: return -20;
  }
}

}  // namespace

TEST(CRstLinesBoolean, FastPathAgreesWithGeneralSweep) {
  std::mt19937 rng(9001);
  for (int iter = 0; iter < 1500; ++iter) {
    long long base = PickBase(rng);
    RandomArray ra = MakeRandomArray(rng, (int)(rng() % 10), base);
    RandomArray rb = MakeRandomArray(rng, (int)(rng() % 10), base + (long long)(rng() % 7) - (base > 0 ? 6 : 0));
    CRasterArray* a = ra.Make();
    CRasterArray* b = rb.Make();
    ASSERT_TRUE(CRstLines::IsWellFormed(a) && CRstLines::IsWellFormed(b)) << ra.code << " / " << rb.code;
    CRasterArray* ga = WithOverlap(ra);
    CRasterArray* gb = WithOverlap(rb);
    PixelSet sa = Pixels(a), sb = Pixels(b);
    for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
      std::string repro = "a: " + ra.code + " b: " + rb.code + " mode " + std::to_string(mode);
      CRasterArray fast, general;
      ASSERT_TRUE(CRstLines::Create(&fast, a, b, mode, nullptr)) << repro;
      ASSERT_TRUE(CRstLines::Create(&general, ga, gb, mode, nullptr)) << repro;
      if (mode == RST_OR) {
        EXPECT_EQ(Pixels(&fast), Pixels(&general)) << repro;
        EXPECT_TRUE(Tidy(&fast) && Tidy(&general)) << repro;
      } else {
        EXPECT_TRUE(CRstLines::IsEqual(&fast, &general)) << repro;
        EXPECT_TRUE(Banded(&fast)) << repro;
      }
      if (iter % 10 == 0) {
        EXPECT_EQ(Pixels(&fast), Op(sa, sb, mode)) << repro;
      }
      CRstLines::Release(&fast);
      CRstLines::Release(&general);
    }
    for (CRasterArray* x : {a, b, ga, gb}) CRstLines::Delete(x);
  }
}

TEST(CRstLinesBoolean, PieceKernelsAgreeWithGeneralSweep) {
  std::mt19937 rng(31337);
  for (int iter = 0; iter < 1500; ++iter) {
    long long base = PickBase(rng);
    int ta = (int)(rng() % 8), tb = (int)(rng() % 8);
    Rows ra = RandomRows(rng, 1 + (int)(rng() % 10), base, false);
    Rows rb = RandomRows(rng, 1 + (int)(rng() % 10), base + (long long)(rng() % 7) - (base > 0 ? 6 : 0), false);
    RSRLINE* a = MakePiece(ta, ra);
    RSRLINE* b = MakePiece(tb, rb);
    // b with two runs of one row swapped: same pixels, general sweep.
    Rows rbu = rb;
    for (auto& row : rbu)
      if (row.size() >= 2) {
        std::swap(row[0], row[row.size() - 1]);
        break;
      }
    RSRLINE* bu = MakePiece(tb, rbu);
    std::string repro = "a: " + RowsCode(ta, ra) + " b: " + RowsCode(tb, rb);
    for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
      CRasterArray* fast = CRstLines::CreateRasterArray(a, b, mode);
      CRasterArray* general = CRstLines::CreateRasterArray(a, bu, mode);
      ASSERT_TRUE(fast && general) << repro << " mode " << mode;
      if (mode == RST_OR && (long long)ta > (long long)tb + (long long)rb.size()) {
        // a two or more rows below b: copies of the operands as they are.
        ASSERT_EQ(fast->GetSize(), 2) << repro;
        EXPECT_TRUE(CRstLines::IsEqual(fast->GetAt(0), a)) << repro;
        EXPECT_TRUE(CRstLines::IsEqual(fast->GetAt(1), b)) << repro;
      } else {
        EXPECT_TRUE(CRstLines::IsEqual(fast, general)) << repro << " mode " << mode;
      }
      EXPECT_TRUE(CRstLines::IsWellFormed(fast)) << repro << " mode " << mode;
      if (iter % 10 == 0) {
        EXPECT_EQ(Pixels(fast), Op(Pixels(a), Pixels(b), mode)) << repro << " mode " << mode;
      }
      CRstLines::Delete(fast);
      CRstLines::Delete(general);
    }
    delete a;
    delete b;
    delete bu;
  }
}

// The one-pass check (counts, then runs with order breaks counted) against
// the rules applied one by one, on seeded random pieces with one defect
// or none.
TEST(CRstLinesValidity, CheckAgreesWithPlainRules) {
  auto plainValid = [](const RSRLINE* p) {
    long long R = p->arRun.GetSize(), N = p->arCount.GetSize();
    const RECT& b = p->rcBox;
    if (N > R) return false;
    if (R == 0 && N == 0) return b.right == b.left && b.bottom == b.top;
    if ((long long)b.bottom - b.top + 1 != N) return false;
    long long sum = 0;
    for (int c : p->arCount) {
      if (c < 0) return false;
      sum += c;
    }
    if (sum != R) return false;
    long long least = INT64_MAX, greatest = INT64_MIN;
    for (const RSRUN& r : p->arRun) {
      if (r.x1 > r.x2) return false;
      least = std::min<long long>(least, r.x1);
      greatest = std::max<long long>(greatest, r.x2);
    }
    return least == b.left && greatest <= b.right;
  };
  auto plainSorted = [](const RSRLINE* p) {
    const RSRUN* r = p->arRun.GetData();
    for (int c : p->arCount) {
      for (int i = 1; i < c; ++i)
        if ((long long)r[i].x1 <= (long long)r[i - 1].x2 + 1) return false;
      r += c;
    }
    return true;
  };
  std::mt19937 rng(555);
  int valid = 0, wellFormed = 0;
  for (int iter = 0; iter < 4000; ++iter) {
    long long base = PickBase(rng);
    // Up to 40 rows, some without runs: the checks work eight rows a step.
    Rows rows = RandomRows(rng, 1 + (int)(rng() % 40), base, rng() % 2 == 0);
    int top = (int)(rng() % 5) - 2;
    RSRLINE* p = MakePiece(top, rows);
    std::string repro = RowsCode(top, rows) + " defect ";
    int defect = (int)(rng() % 10);
    int R = p->arRun.GetSize(), i = R ? (int)(rng() % (unsigned)R) : 0;
    if (R == 0) defect = 9;
    RSRUN* r = p->arRun.GetData();
    switch (defect) {
      case 0:  // order
        std::swap(r[i], r[R - 1 - i]);
        break;
      case 1:  // touching or overlapping the run before
        if (i > 0) {
          long long v = std::max((long long)r[i].x1 - 2, (long long)r[i - 1].x2 + 1 - (long long)(rng() % 2));
          r[i].x1 = (int)std::min<long long>(std::max<long long>(v, INT32_MIN), INT32_MAX);
        }
        break;
      case 2:  // inverted (when longer than one pixel)
        std::swap(r[i].x1, r[i].x2);
        break;
      case 3:  // box off the least x1, either way
        p->rcBox.left += p->rcBox.left > INT32_MIN ? -1 : 1;
        break;
      case 4:  // wider on the right: still valid
        if (p->rcBox.right < INT32_MAX - 2) p->rcBox.right += (int)(rng() % 3);
        break;
      case 5:  // narrower than the runs on the right
        if (p->rcBox.right > INT32_MIN) p->rcBox.right -= 1;
        break;
      case 6:  // a row boundary moved
        if (p->arCount.GetSize() > 1) {
          p->arCount[0] += 1;
          p->arCount[1] -= 1;
        }
        break;
      case 7:
        p->arCount[0] -= 1;
        break;
      default:
        break;
    }
    repro += std::to_string(defect) + " at " + std::to_string(i);
    bool v = plainValid(p), s = v && plainSorted(p);
    EXPECT_EQ(CRstLines::IsValid(p) != 0, v) << repro;
    EXPECT_EQ(CRstLines::IsWellFormed(p) != 0, s) << repro;
    valid += v;
    wellFormed += s;
    delete p;
  }
  // The defects must leave a real mix of outcomes.
  EXPECT_GT(valid, 1000);
  EXPECT_LT(valid, 3900);
  EXPECT_GT(wellFormed, 500);
  EXPECT_LT(wellFormed, valid);
}

TEST(CRstLinesBoolean, FarCoordinatesAndLongGaps) {
  CRstLines a, b;
  RECT ra = {-2147483647, -2147483600, -2147483000, -2147483590};
  RECT rb = {2147483000, 2147483600, 2147483647, 2147483610};
  ASSERT_TRUE(a.Create(ra));
  ASSERT_TRUE(b.Create(rb));
  CRstLines r;
  EXPECT_EQ(r.Combine(&a, &b, RST_OR), RST_NOTEMPTY);
  ASSERT_NE(r.GetData(), nullptr);
  EXPECT_EQ(r.GetData()->GetSize(), 2);
  EXPECT_TRUE(Banded(r.GetData()));
  EXPECT_EQ(r.Combine(&r, &a, RST_XOR), RST_NOTEMPTY);
  EXPECT_TRUE(CRstLines::IsEqual(r.GetData(), b.GetData()));
  EXPECT_EQ(r.Combine(&r, &b, RST_DIFF), RST_EMPTY);
  EXPECT_TRUE(r.IsEmpty());
}

TEST(CRstLinesDirection, Orientation) {
  POINT cw[] = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};  // clockwise on screen
  POINT ccw[] = {{0, 0}, {0, 10}, {10, 10}, {10, 0}};
  POINT flat[] = {{0, 0}, {5, 0}, {10, 0}};
  EXPECT_EQ(CRstLines::JudgeDirection(cw, 4), 1);
  EXPECT_EQ(CRstLines::JudgeDirection(ccw, 4), -1);
  EXPECT_EQ(CRstLines::JudgeDirection(flat, 3), 0);
  EXPECT_EQ(CRstLines::JudgeDirectionFromX(cw, 4), 1);
  EXPECT_EQ(CRstLines::JudgeDirectionFromX(ccw, 4), -1);
  EXPECT_EQ(CRstLines::JudgeDirection(nullptr, 4), 0);
}

// ---- repeat cycles ------------------------------------------------------------------------

namespace {
PixelSet FoldSet(const PixelSet& s, const ACycle& c) {
  PixelSet r;
  for (auto& q : s) {
    POINT p = {(LONG)q.second, (LONG)q.first};
    c.CalLocalPoint(p);
    r.insert({p.y, p.x});
  }
  return r;
}
std::string CycleCode(int w, int h, int param, int way) {
  return "cycle(" + std::to_string(w) + "," + std::to_string(h) + "," + std::to_string(param) + ", way " +
         std::to_string(way) + ")";
}
}  // namespace

TEST(CRstLinesCycle, CombineResultLiesInTheBaseCell) {
  std::mt19937 rng(99);
  for (int iter = 0; iter < 120; ++iter) {
    int w = 5 + (int)(rng() % 40), h = 5 + (int)(rng() % 40);
    int param = (int)(rng() % (2 * h - 1)) - (h - 1);  // |param| < h
    int way = 1 + (int)(rng() % 2);
    if (way == 2) param = (int)(rng() % (2 * w - 1)) - (w - 1);
    ACycle c = OnCycle(w, h, param, way);
    auto pa = RandomPoly(rng, 5, 40, (int)(rng() % 200) - 100, (int)(rng() % 200) - 100);
    auto pb = RandomPoly(rng, 5, 40, (int)(rng() % 200) - 100, (int)(rng() % 200) - 100);
    CRasterArray* a = CRstLines::CreateRasterArray(pa.data(), 5, 1);
    CRasterArray* b = CRstLines::CreateRasterArray(pb.data(), 5, 2);
    // The model folds each pixel with the point fold, valid for way 1 and
    // for way 2 (the tile walk treats way 2 identically when |param| < w).
    PixelSet fa = FoldSet(Pixels(a), c);
    PixelSet fb = FoldSet(Pixels(b), c);
    for (int mode : {RST_AND, RST_DIFF, RST_XOR}) {
      CRasterArray* r = nullptr;
      int code = CRstLines::Combine(a, b, mode, &r, &c);
      ASSERT_NE(code, RST_FAILED);
      PixelSet got = Pixels(r);
      for (auto& q : got) {
        ASSERT_TRUE(q.first >= 0 && q.first < h && q.second >= 0 && q.second < w);
      }
      EXPECT_EQ(got, Op(fa, fb, mode)) << CycleCode(w, h, param, way) << " " << PolyCode(pa, 1) << " / "
                                       << PolyCode(pb, 2) << " mode " << mode;
      EXPECT_TRUE(mode == RST_OR ? Tidy(r) : Banded(r));
      CRstLines::Delete(r);
    }
    // Union never looks at the cycle.
    CRasterArray* u = nullptr;
    CRstLines::Combine(a, b, RST_OR, &u, &c);
    EXPECT_EQ(Pixels(u), Op(Pixels(a), Pixels(b), RST_OR));
    CRstLines::Delete(u);
    // CombineCycleRst: a folded union.
    CRstLines dst, src;
    dst.SetData(a);
    src.SetData(b);
    CRstLines folded;
    CRasterArray none;
    folded.SetData(&none);
    ASSERT_NE(CRstLines::CombineCycleRst(&folded, &src, &c), RST_FAILED);
    EXPECT_EQ(Pixels(folded.GetData()), fb);
    CRstLines::Delete(a);
    CRstLines::Delete(b);
  }
}

TEST(CRstLinesCycle, LongRunsFoldLikeTheirPixels) {
  // Runs many tiles long take the shortcut through the repeating middle.
  for (int way = 1; way <= 2; ++way)
    for (int param : {-7, 0, 3, 11}) {
      ACycle c = OnCycle(13, 12, param, way);
      CRstLines r;
      RECT rc = {-1000, 5, 1500, 7};
      r.Create(rc);
      CRasterArray* out = nullptr;
      CRstLines whole;
      RECT cell = {0, 0, 13, 12};
      whole.Create(cell);
      ASSERT_NE(CRstLines::Combine(r.GetData(), whole.GetData(), RST_AND, &out, &c), RST_FAILED);
      EXPECT_EQ(Pixels(out), FoldSet(Pixels(r.GetData()), c)) << CycleCode(13, 12, param, way);
      CRstLines::Delete(out);
    }
}

TEST(CRstLinesCycle, CycleRepeatsOverARectangle) {
  std::mt19937 rng(5);
  for (int iter = 0; iter < 60; ++iter) {
    int w = 4 + (int)(rng() % 20), h = 4 + (int)(rng() % 20);
    int way = 1 + (int)(rng() % 2);
    int param = way == 1 ? (int)(rng() % (2 * h - 1)) - (h - 1) : (int)(rng() % (2 * w - 1)) - (w - 1);
    ACycle c = OnCycle(w, h, param, way);
    auto pts = RandomPoly(rng, 6, 15, (int)(rng() % 100) - 50, (int)(rng() % 100) - 50);
    CRstLines r;
    r.Create(pts.data(), 6, WINDING_FILL);
    PixelSet folded = FoldSet(Pixels(r.GetData()), c);
    RECT rc = {(LONG)(rng() % 60) - 30, (LONG)(rng() % 60) - 30, 0, 0};
    rc.right = rc.left + 1 + (LONG)(rng() % 70);
    rc.bottom = rc.top + 1 + (LONG)(rng() % 70);
    ASSERT_TRUE(r.Cycle(&c, &rc));
    PixelSet want;
    for (long long y = rc.top; y < rc.bottom; ++y)
      for (long long x = rc.left; x < rc.right; ++x) {
        POINT p = {(LONG)x, (LONG)y};
        c.CalLocalPoint(p);
        if (folded.count({p.y, p.x})) want.insert({y, x});
      }
    EXPECT_EQ(Pixels(r.GetData()), want) << CycleCode(w, h, param, way) << " " << PolyCode(pts, 2);
    EXPECT_TRUE(Banded(r.GetData()));
  }
  // Without a cycle the region is clipped.
  CRstLines r;
  RECT big = {0, 0, 10, 10}, clip = {5, 5, 20, 20};
  r.Create(big);
  ASSERT_TRUE(r.Cycle(nullptr, &clip));
  EXPECT_EQ(Pixels(r.GetData()).size(), 25u);
}

TEST(CRstLinesCycle, CalLocalMovesTheTopLeftIntoTheCell) {
  ACycle c = OnCycle(100, 50, 25, 1);
  CRstLines r;
  RECT rc = {-1, 10, 30, 20};
  r.Create(rc);
  ASSERT_TRUE(r.CalLocal(&c));
  RECT box = r.GetBox();
  EXPECT_EQ(box.left, 99);
  EXPECT_EQ(box.top, 35);
  EXPECT_EQ(box.right - box.left, 30);
  POINT inCell = {99, 35};
  EXPECT_TRUE(r.PtInRstLines(inCell, &c));
}

// ---- mirrors and masks ----------------------------------------------------------------------

TEST(CRstLinesMirror, InvolutionsAndPixelMaps) {
  std::mt19937 rng(31);
  for (int iter = 0; iter < 200; ++iter) {
    int n = 3 + (int)(rng() % 10);
    auto pts = RandomPoly(rng, n, 30, (int)(rng() % 100) - 50, (int)(rng() % 100) - 50);
    RSRLINE* p = CRstLines::CreateRaster(pts.data(), n, 1);
    RSRLINE orig;
    CRstLines::CopyRaster(&orig, p);
    CRect ref((LONG)(rng() % 40) - 20, (LONG)(rng() % 40) - 20, (LONG)(rng() % 40), (LONG)(rng() % 40));
    PixelSet before = Pixels(p);
    for (bool hor : {true, false}) {
      PixelSet want;
      for (auto& q : before)
        want.insert(hor ? std::make_pair(q.first, (long long)ref.left + ref.right - q.second)
                        : std::make_pair((long long)ref.top + ref.bottom - q.first, q.second));
      auto mirror = [&] {
        if (hor)
          CRstLines::HorMirror(p, ref);
        else
          CRstLines::VerMirror(p, ref);
      };
      mirror();
      EXPECT_EQ(Pixels(p), want) << PolyCode(pts, 1) << (hor ? " HorMirror" : " VerMirror");
      EXPECT_TRUE(CRstLines::IsWellFormed(p));
      mirror();
      EXPECT_TRUE(CRstLines::IsEqual(p, &orig)) << PolyCode(pts, 1) << (hor ? " HorMirror" : " VerMirror");
    }
    CRstLines::Delete(p);
  }
}

TEST(CRstLinesMirror, OwnBoxAndArrayOrder) {
  POINT a[] = {{0, 0}, {10, 0}, {3, 8}};
  CRstLines r;
  r.Create(a, 3, ALTERNATE_FILL);
  RECT box = r.GetBox();
  r.HorMirror();
  RECT after = r.GetBox();
  EXPECT_TRUE(EqualRect(&box, &after));

  CRasterArray* arr = new CRasterArray;
  arr->Add(MakePiece(0, {{{0, 1}}}));
  arr->Add(MakePiece(5, {{{2, 3}}, {{2, 2}}}));
  arr->Add(MakePiece(9, {{{4, 4}}}));
  CRect ref(0, 0, 10, 9);
  CRstLines::VerMirror(arr, ref);
  ASSERT_EQ(arr->GetSize(), 3);
  EXPECT_EQ(arr->GetAt(0)->rcBox.top, 0);  // was the last piece at row 9
  EXPECT_EQ(arr->GetAt(0)->arRun[0].x1, 4);
  EXPECT_EQ(arr->GetAt(1)->rcBox.top, 3);
  EXPECT_EQ(arr->GetAt(1)->arRun[0].x2, 2);  // rows reversed
  EXPECT_EQ(arr->GetAt(2)->rcBox.top, 9);
  CRstLines::Delete(arr);
}

TEST(CRstLinesMask, WritesExactlyTheRegion) {
  std::mt19937 rng(8);
  for (int iter = 0; iter < 100; ++iter) {
    int n = 3 + (int)(rng() % 8);
    auto pts = RandomPoly(rng, n, 20);
    RSRLINE* p = CRstLines::CreateRaster(pts.data(), n, 2);
    RECT rc = {p->rcBox.left - (LONG)(rng() % 5), p->rcBox.top - (LONG)(rng() % 5), p->rcBox.right + 1 + (LONG)(rng() % 5),
               p->rcBox.bottom + 1 + (LONG)(rng() % 5)};
    int w = rc.right - rc.left, h = rc.bottom - rc.top;
    std::vector<unsigned char> buf((size_t)(w * h), 7);
    ASSERT_TRUE(CRstLines::SetRasterMaskInBuf(buf.data(), rc, p, 0x1FF));
    PixelSet s = Pixels(p);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        bool in = s.count({y + rc.top, x + rc.left}) != 0;
        ASSERT_EQ(buf[(size_t)(y * w + x)], in ? 255 : 7) << PolyCode(pts, 2);
      }
    // A bottom-right pixel on the rectangle's right or bottom edge is refused.
    RECT tight = {p->rcBox.left, p->rcBox.top, p->rcBox.right, p->rcBox.bottom + 1};
    std::vector<unsigned char> before = buf;
    EXPECT_FALSE(CRstLines::SetRasterMaskInBuf(buf.data(), tight, p, 1));
    RECT tight2 = {p->rcBox.left, p->rcBox.top, p->rcBox.right + 1, p->rcBox.bottom};
    EXPECT_FALSE(CRstLines::SetRasterMaskInBuf(buf.data(), tight2, p, 1));
    EXPECT_EQ(buf, before);
    CRstLines::Delete(p);
  }
  RECT rc = {0, 0, 1, 1};
  unsigned char b = 0;
  EXPECT_FALSE(CRstLines::SetRasterMaskInBuf(nullptr, rc, nullptr, 1));
  EXPECT_FALSE(CRstLines::SetRasterMaskInBuf(&b, rc, nullptr, 1));
}

// ---- the owning object ---------------------------------------------------------------------

TEST(CRstLinesObject, OwnershipAndCopies) {
  CRstLines a;
  EXPECT_TRUE(a.IsEmpty());
  POINT t[] = {{0, 0}, {20, 0}, {0, 20}};
  ASSERT_TRUE(a.Create(t, 3, ALTERNATE_FILL));
  EXPECT_FALSE(a.Create((const POINT*)nullptr, 3, ALTERNATE_FILL));
  EXPECT_FALSE(a.Create(t, 0, ALTERNATE_FILL));
  CRstLines b(a), c;
  c = a;
  EXPECT_TRUE(CRstLines::IsEqual(a.GetData(), b.GetData()) && CRstLines::IsEqual(a.GetData(), c.GetData()));
  EXPECT_TRUE(a.GetData() != b.GetData() && a.GetData() != c.GetData());

  RSRLINE before;
  CRstLines::CopyRaster(&before, a.GetData()->GetAt(0));
  EXPECT_FALSE(a.Offset(0, 0));
  EXPECT_TRUE(CRstLines::IsEqual(&before, a.GetData()->GetAt(0)));
  EXPECT_FALSE(a.Offset(5, -3));
  EXPECT_TRUE(a.GetBox().left == 5 && a.GetBox().top == -3);
  CRstLines none;
  EXPECT_TRUE(none.Offset(1, 1));

  // SetData(**) takes the array and nulls the caller's pointer.
  CRasterArray* arr = CRstLines::CreateRasterArray(t, 3, 2);
  c.SetData(&arr);
  EXPECT_EQ(arr, nullptr);
  EXPECT_TRUE(c.IsOwnData());
  // MoveData leaves the source empty and owning.
  CRstLines d;
  d.MoveData(&c);
  EXPECT_TRUE(c.IsEmpty());
  EXPECT_TRUE(c.IsOwnData());
  EXPECT_FALSE(d.IsEmpty());
  CRasterArray* empty = new CRasterArray;
  d.SetData(&empty);
  RECT box = d.GetBox();
  EXPECT_TRUE(d.IsEmpty() && empty == nullptr && IsRectEmpty(&box));

  RECT r = {0, 0, 0, 5};
  EXPECT_FALSE(d.Create(r));
  RECT g = {0, 0, 4, 4};
  ASSERT_TRUE(d.Create(g, 1, 1.0));
  EXPECT_EQ(Pixels(d.GetData()).size(), 36u);
  ASSERT_TRUE(d.Create(g, 0, 2.0));
  EXPECT_EQ(Pixels(d.GetData()).size(), 64u);
}

TEST(CRstLinesObject, LoopGroupBuildsTheRegion) {
  // One ANLOOP with an outer loop and a hole loop, as a trace gives them.
  POINT pts[] = {{0, 0}, {9, 0}, {9, 9}, {0, 9}, {0, 0}, {3, 3}, {6, 3}, {6, 6}, {3, 6}, {3, 3}};
  int sizes[] = {5, 5};
  HGLOBAL h = GlobalAlloc(GHND, sizeof(ANLOOP));
  ANLOOP* L = static_cast<ANLOOP*>(GlobalLock(h));
  L->nLoops = 2;
  L->nPoints = 10;
  L->pnLoopSizes = sizes;
  L->pPoints = pts;
  GlobalUnlock(h);
  ANLOOPGRP grp = {1, h, {0, 0, 9, 9}};
  CRstLines r;
  ASSERT_TRUE(r.Create(&grp));
  PixelSet s = Pixels(r.GetData());
  EXPECT_TRUE(s.count({0, 0}));
  EXPECT_TRUE(s.count({3, 4}));  // the hole's outline pixels stay
  EXPECT_FALSE(s.count({4, 4}));
  EXPECT_FALSE(s.count({5, 5}));
  EXPECT_EQ(s.size(), 100u - 4u);
  EXPECT_EQ(CRstLines::CreateRasterArray(&grp, 3), nullptr);
  GlobalFree(h);
}

TEST(CRstLinesObject, ValidationCatchesMalformedPieces) {
  BOOL old = CRstLines::SetValidate(TRUE);
  {
    // Valid but unsorted rows are accepted; a box wider on the left is not.
    tqtest::HookCapture ac;
    RSRLINE* p = MakePiece(0, {{{5, 6}, {0, 1}}});
    CRstLines::HorMirror(p, CRect(0, 0, 6, 0));
    EXPECT_EQ(ac.Assertions(), 0);
    p->rcBox.left -= 1;
    CRstLines::HorMirror(p, CRect(0, 0, 6, 0));
    EXPECT_GE(ac.Assertions(), 1);
    delete p;
  }
  {
    tqtest::HookCapture ac;
    POINT t[] = {{0, 0}, {20, 0}, {0, 20}};
    CRstLines r;
    r.Create(t, 3, ALTERNATE_FILL);
    r.HorMirror();
    r.VerMirror();
    EXPECT_EQ(ac.Assertions(), 0);
  }
  CRstLines::SetValidate(old);
}

TEST(CRstLinesCycle, RowsOfManyRunsLayOutWhole) {
  // A one-pixel design on a 2 x 1 cell: every row of the page holds one run
  // per cell, far more than the writer's first block.
  ACycle c = OnCycle(2, 1, 0, 1);
  CRstLines dot;
  dot.Create(RECT{0, 0, 1, 1});
  const RECT page = {0, 0, 20001, 3};
  ASSERT_TRUE(dot.Cycle(&c, &page));
  ASSERT_TRUE(CRstLines::IsWellFormed(dot.GetData()));
  long long runs = 0;
  for (const RSRLINE* p : *dot.GetData())
    for (const RSRUN& r : p->arRun) {
      EXPECT_TRUE(r.x1 == r.x2 && r.x1 % 2 == 0) << r.x1 << ".." << r.x2;
      ++runs;
    }
  EXPECT_EQ(runs, 3 * 10001);
}
