// test_cloopgrpopt.cpp - contour loop groups: tracing regions into loops
// and rebuilding them (against the pixels on random bitmaps with holes,
// islands, diagonal contacts and one-pixel gaps), the rules every traced
// loop keeps, the stated small cases, and the group operations.
#include <gtest/gtest.h>

#include <algorithm>
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

// The rules every traced loop keeps: closed, every point a pixel of the
// piece, every step one row at most and, between rows, one column at most.
::testing::AssertionResult LoopsKeepTheRules(const RSRLINE* piece, const POINT* pts, int nPts, const int* sizes,
                                             int nLoops) {
  const PixelSet s = Pixels(piece);
  long long at = 0;
  for (int i = 0; i < nLoops; ++i) {
    const int n = sizes[i];
    if (n < 2) return ::testing::AssertionFailure() << "loop " << i << " of " << n << " points";
    const POINT* p = pts + at;
    if (p[0].x != p[n - 1].x || p[0].y != p[n - 1].y) return ::testing::AssertionFailure() << "loop " << i << " open";
    for (int k = 0; k < n; ++k) {
      if (!s.count({p[k].y, p[k].x}))
        return ::testing::AssertionFailure() << "loop " << i << " point " << k << " off the piece";
      if (k > 0) {
        const long long dx = std::llabs((long long)p[k].x - p[k - 1].x), dy = std::llabs((long long)p[k].y - p[k - 1].y);
        if (dy > 1 || (dy == 1 && dx > 1))
          return ::testing::AssertionFailure() << "loop " << i << " step " << k << " jumps";
      }
    }
    at += n;
  }
  if (at != nPts) return ::testing::AssertionFailure() << "sizes add up to " << at << ", not " << nPts;
  return ::testing::AssertionSuccess();
}

// Traces every piece of r, checks the loops and rebuilds the region from
// the group; returns the rebuilt pixels.
PixelSet TraceAndRebuild(const CRstLines& r, const std::string& repro) {
  if (r.IsEmpty()) return PixelSet();
  for (const RSRLINE* p : *r.GetData()) {
    POINT* pts;
    int* sizes;
    int nPts, nLoops;
    EXPECT_TRUE(CLoopGrpOpt::RasterToPts(p, pts, nPts, sizes, nLoops)) << repro;
    EXPECT_TRUE(LoopsKeepTheRules(p, pts, nPts, sizes, nLoops)) << repro;
    AGlobalFreePtr(pts);
    AGlobalFreePtr(sizes);
  }
  ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(r.GetData());
  EXPECT_TRUE(g && CLoopGrpOpt::IsValid(g)) << repro;
  CRstLines back;
  EXPECT_TRUE(back.Create(g)) << repro;
  CRasterArray* winding = CRstLines::CreateRasterArray(g, WINDING_FILL);
  EXPECT_EQ(Pixels(winding), Pixels(back.GetData())) << repro;
  CRstLines::Delete(winding);
  CLoopGrpOpt::DeleteAnloopGrp(g);
  return Pixels(back.GetData());
}

}  // namespace

// ---- tracing and rebuilding ------------------------------------------------------------

TEST(CLoopGrpOptTrace, RandomBitmapsRebuildExactly) {
  std::mt19937 rng(4711);
  for (int iter = 0; iter < 400; ++iter) {
    const int w = 1 + (int)(rng() % 24), h = 1 + (int)(rng() % 16), percent = 30 + (int)(rng() % 60);
    const std::vector<std::string> rows = RandomBitmap(rng, w, h, percent);
    CRstLines r = FromBitmap(rows, (int)(rng() % 7) - 3, (int)(rng() % 7) - 3);
    ASSERT_EQ(TraceAndRebuild(r, BitmapCode(rows)), Pixels(r.GetData())) << BitmapCode(rows);
  }
}

TEST(CLoopGrpOptTrace, ShapesWithHolesAndIslandsRebuildExactly) {
  std::mt19937 rng(99);
  const std::vector<std::vector<std::string>> fixed = {
      {"#####", "#...#", "#.#.#", "#...#", "#####"},          // island in a hole
      {"###", "#.#", "###"},                                  // one-pixel hole
      {"#.#", ".#.", "#.#"},                                  // diagonal contacts only
      {"##..##", "#.##.#", "##..##"},                         // two holes, joined below
      {"#.#.#.#", "#######"},                                 // comb
      {"#######", "#.#.#.#"},                                 // comb upside down
      {"..#..", ".###.", "#####", ".###.", "..#.."},          // diamond
  };
  for (const auto& rows : fixed) {
    CRstLines r = FromBitmap(rows);
    EXPECT_EQ(TraceAndRebuild(r, BitmapCode(rows)), Pixels(r.GetData())) << BitmapCode(rows);
  }
  // Polygons cut by polygons: holes and islands of every shape.
  for (int iter = 0; iter < 100; ++iter) {
    CRstLines r;
    for (int k = 0; k < 5; ++k) {
      std::vector<POINT> q;
      const int n = 3 + (int)(rng() % 6);
      for (int i = 0; i < n; ++i) q.push_back(POINT{(LONG)(rng() % 60), (LONG)(rng() % 60)});
      CRstLines s;
      s.Create(q.data(), n, 1 + (int)(rng() % 2) == 1 ? ALTERNATE_FILL : WINDING_FILL);
      if (r.IsEmpty())
        r.Copy(&s);
      else
        r.Combine(&r, &s, k % 2 ? RST_XOR : RST_DIFF);
    }
    EXPECT_EQ(TraceAndRebuild(r, "iteration " + std::to_string(iter)), Pixels(r.GetData())) << iter;
  }
  // A comb of 200 teeth, far out near the ends of the coordinate range.
  for (int base : {-2000000000, 1999990000}) {
    CRstLines comb;
    comb.Create(RECT{base, base, base + 800, base + 2});
    for (int t = 0; t < 200; ++t) {
      CRstLines tooth;
      tooth.Create(RECT{base + 4 * t, base + 2, base + 4 * t + 2, base + 30});
      comb.Add(tooth.GetData(), 1, nullptr);
    }
    EXPECT_EQ(TraceAndRebuild(comb, "comb at " + std::to_string(base)), Pixels(comb.GetData()));
  }
}

TEST(CLoopGrpOptTrace, StatedCases) {
  // A single pixel: one closed loop.
  CRstLines px = FromBitmap({"#"}, 7, -3);
  POINT* pts;
  int* sizes;
  int nPts, nLoops;
  ASSERT_TRUE(CLoopGrpOpt::RasterToPts(px.GetData()->GetAt(0), pts, nPts, sizes, nLoops));
  EXPECT_EQ(nLoops, 1);
  for (int i = 0; i < nPts; ++i) EXPECT_TRUE(pts[i].x == 7 && pts[i].y == -3);
  AGlobalFreePtr(pts);
  AGlobalFreePtr(sizes);
  // A rectangle: one loop whose steps are horizontal or vertical.
  CRstLines rc;
  rc.Create(RECT{10, 20, 31, 27});
  ASSERT_TRUE(CLoopGrpOpt::RasterToPts(rc.GetData()->GetAt(0), pts, nPts, sizes, nLoops));
  EXPECT_EQ(nLoops, 1);
  for (int i = 1; i < nPts; ++i) EXPECT_TRUE(pts[i].x == pts[i - 1].x || pts[i].y == pts[i - 1].y) << i;
  AGlobalFreePtr(pts);
  AGlobalFreePtr(sizes);
  // Runs touching only diagonally are two loops.
  RSRLINE diag;
  diag.arRun.Add(RSRUN{0, 2});
  diag.arRun.Add(RSRUN{3, 5});
  diag.arCount.Add(1);
  diag.arCount.Add(1);
  diag.rcBox = RECT{0, 0, 5, 1};
  ASSERT_TRUE(CLoopGrpOpt::RasterToPts(&diag, pts, nPts, sizes, nLoops));
  EXPECT_EQ(nLoops, 2);
  AGlobalFreePtr(pts);
  AGlobalFreePtr(sizes);
  // No runs: FALSE, every output null and 0.
  RSRLINE none;
  pts = reinterpret_cast<POINT*>(&none);
  sizes = reinterpret_cast<int*>(&none);
  nPts = nLoops = 5;
  EXPECT_FALSE(CLoopGrpOpt::RasterToPts(&none, pts, nPts, sizes, nLoops));
  EXPECT_TRUE(pts == nullptr && sizes == nullptr && nPts == 0 && nLoops == 0);
  EXPECT_EQ(CLoopGrpOpt::CreateAnloop(&none), nullptr);
  // A loop from a piece leaves its box empty; its loops are valid.
  ANLOOP* l = CLoopGrpOpt::CreateAnloop(rc.GetData()->GetAt(0));
  ASSERT_NE(l, nullptr);
  EXPECT_TRUE(l->rcBox.left == 0 && l->rcBox.top == 0 && l->rcBox.right == 0 && l->rcBox.bottom == 0);
  EXPECT_TRUE(CLoopGrpOpt::IsValid(l));
  CLoopGrpOpt::DeleteAnloop(l);
  EXPECT_EQ(l, nullptr);
  // Unsorted rows trace like their sorted form.
  RSRLINE mixed;
  for (RSRUN q : {RSRUN{5, 6}, RSRUN{0, 2}, RSRUN{0, 6}}) mixed.arRun.Add(q);
  mixed.arCount.Add(2);
  mixed.arCount.Add(1);
  mixed.rcBox = RECT{0, 0, 6, 1};
  ANLOOP* lm = CLoopGrpOpt::CreateAnloop(&mixed);
  ASSERT_NE(lm, nullptr);
  CRstLines sorted = FromBitmap({"###..##", "#######"});
  ANLOOP* ls = CLoopGrpOpt::CreateAnloop(sorted.GetData()->GetAt(0));
  ASSERT_TRUE(ls != nullptr);
  ASSERT_EQ(sorted.GetData()->GetSize(), 1);
  ASSERT_EQ(lm->nPoints, ls->nPoints);
  EXPECT_TRUE(std::equal(lm->pPoints, lm->pPoints + lm->nPoints, ls->pPoints,
                         [](const POINT& a, const POINT& b) { return a.x == b.x && a.y == b.y; }));
  CLoopGrpOpt::DeleteAnloop(lm);
  CLoopGrpOpt::DeleteAnloop(ls);
}

// ---- records and groups ------------------------------------------------------------------

namespace {
// A drawing target that records its calls.
struct RecordingDC : CDC {
  std::vector<std::string> calls;
  CPoint MoveTo(int x, int y) override {
    calls.push_back("M" + std::to_string(x) + "," + std::to_string(y));
    return CPoint();
  }
  BOOL LineTo(int x, int y) override {
    calls.push_back("L" + std::to_string(x) + "," + std::to_string(y));
    return TRUE;
  }
};
}  // namespace

TEST(CLoopGrpOptGroup, CreateCopyMoveFlattenDraw) {
  CRstLines r = FromBitmap({"####..##", "#..#..##", "####...."}, 100, 50);
  ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(r.GetData());
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(g->nCount, r.GetData()->GetSize());
  const RECT box = r.GetBox();
  EXPECT_TRUE(EqualRect(&g->rcBox, &box));
  EXPECT_FALSE(CLoopGrpOpt::IsEmpty(g));

  // Copies are equal and independent; a move shifts every point and box.
  ANLOOPGRP* c = CLoopGrpOpt::CreateAnloopGrp(g);
  ASSERT_TRUE(c && CLoopGrpOpt::IsEqual(g, c));
  ASSERT_TRUE(CLoopGrpOpt::MoveAnloopGrp(c, -100, -50));
  EXPECT_FALSE(CLoopGrpOpt::IsEqual(g, c));
  CRstLines moved;
  ASSERT_TRUE(moved.Create(c));
  CRstLines expect = FromBitmap({"####..##", "#..#..##", "####...."});
  EXPECT_EQ(Pixels(moved.GetData()), Pixels(expect.GetData()));
  EXPECT_FALSE(CLoopGrpOpt::MoveAnloopGrp(c, INT32_MAX, 0));  // refused whole
  ASSERT_TRUE(CLoopGrpOpt::MoveAnloopGrp(c, 100, 50));
  EXPECT_TRUE(CLoopGrpOpt::IsEqual(g, c));
  ANLOOPGRP* d = CLoopGrpOpt::CreateAnloopGrp();
  ASSERT_TRUE(d && CLoopGrpOpt::IsEmpty(d));
  ASSERT_TRUE(CLoopGrpOpt::CopyAnloopGrp(d, g));
  EXPECT_TRUE(CLoopGrpOpt::IsEqual(d, g));

  // Both flattened forms agree, and drawing draws each loop closed.
  POINT* pts;
  int* sizes;
  int loops;
  ASSERT_TRUE(CLoopGrpOpt::GetPolyPolygon(g, pts, sizes, loops));
  CArray<POINT, POINT> ap;
  CArray<int, int> as;
  ASSERT_TRUE(CLoopGrpOpt::GetPolyPolygon(g, ap, as));
  ASSERT_EQ(as.GetSize(), loops);
  int total = 0;
  for (int i = 0; i < loops; ++i) total += sizes[i];
  ASSERT_EQ(ap.GetSize(), total);
  for (int i = 0; i < total; ++i) EXPECT_TRUE(ap[i].x == pts[i].x && ap[i].y == pts[i].y);
  RecordingDC dc;
  CLoopGrpOpt::DrawAnloopGrp(&dc, g);
  EXPECT_EQ(std::count_if(dc.calls.begin(), dc.calls.end(), [](const std::string& s) { return s[0] == 'M'; }), loops);
  EXPECT_EQ((int)dc.calls.size(), total);  // loops are closed: no extra closing line
  CLoopGrpOpt::DrawAnloopGrp(nullptr, g);
  CSvgDC svg;
  CLoopGrpOpt::DrawAnloopGrp(&svg, g);
  const std::string path = svg.GetPathData().GetString();
  // Loops start at the right end of a piece's first run, here x 103 or 107.
  EXPECT_TRUE(path.rfind("M103.5 50.5 L", 0) == 0 || path.rfind("M107.5 50.5 L", 0) == 0) << path.substr(0, 40);
  EXPECT_EQ((int)std::count(path.begin(), path.end(), 'Z'), loops);
  AGlobalFreePtr(pts);
  AGlobalFreePtr(sizes);

  // CopyAnloop fills existing blocks, and refuses blocks that are too small.
  ANLOOP* big = CLoopGrpOpt::CreateAnloop(r.GetData()->GetAt(0));
  ANLOOP* small = CLoopGrpOpt::CreateAnloop(FromBitmap({"#"}).GetData()->GetAt(0));
  ASSERT_TRUE(big && small);
  EXPECT_TRUE(CLoopGrpOpt::CopyAnloop(big, small));
  EXPECT_EQ(big->nPoints, small->nPoints);
  ANLOOP* again = CLoopGrpOpt::CreateAnloop(r.GetData()->GetAt(0));
  {
    tqtest::HookCapture ac;
    EXPECT_FALSE(CLoopGrpOpt::CopyAnloop(small, again));
    EXPECT_GE(ac.Assertions(), 1);
  }
  for (ANLOOP* l : {big, small, again}) CLoopGrpOpt::DeleteAnloop(l);

  for (ANLOOPGRP* x : {g, c, d}) CLoopGrpOpt::DeleteAnloopGrp(x);
  EXPECT_EQ(CLoopGrpOpt::CreateAnloopGrp((const CRasterArray*)nullptr), nullptr);
  EXPECT_TRUE(CLoopGrpOpt::IsEmpty(nullptr));
}

TEST(CLoopGrpOptGroup, CreatorsFromRectanglesPolygonsAndCombinations) {
  // The rectangle loop is the trace of the rectangle region, with its box.
  ANLOOP* l = CLoopGrpOpt::CreateAnloop(RECT{0, 0, 10, 4}, 1, 2.0);
  ASSERT_NE(l, nullptr);
  EXPECT_TRUE(l->rcBox.left == -1 && l->rcBox.top == -1 && l->rcBox.right == 20 && l->rcBox.bottom == 8);
  CLoopGrpOpt::DeleteAnloop(l);
  EXPECT_EQ(CLoopGrpOpt::CreateAnloop(RECT{5, 5, 5, 9}), nullptr);

  // A polygon set: open loops are closed; one-point loops refused.
  POINT tri[] = {{0, 0}, {9, 0}, {4, 7}};
  int n3 = 3;
  ANLOOP* t = CLoopGrpOpt::CreateAnloop(tri, &n3, 1);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->nPoints, 4);
  EXPECT_TRUE(t->rcBox.right == 9 && t->rcBox.bottom == 7);
  CLoopGrpOpt::DeleteAnloop(t);
  int n1 = 1;
  EXPECT_EQ(CLoopGrpOpt::CreateAnloop(tri, &n1, 1), nullptr);

  // Combinations trace the combined regions.
  std::mt19937 rng(7);
  for (int iter = 0; iter < 40; ++iter) {
    std::vector<POINT> a, b;
    for (int i = 0; i < 6; ++i) a.push_back(POINT{(LONG)(rng() % 40), (LONG)(rng() % 40)});
    for (int i = 0; i < 5; ++i) b.push_back(POINT{(LONG)(rng() % 40), (LONG)(rng() % 40)});
    CRstLines ra, rb;
    ra.Create(a.data(), 6, ALTERNATE_FILL);
    rb.Create(b.data(), 5, ALTERNATE_FILL);
    ANLOOPGRP* ga = CLoopGrpOpt::CreateAnloopGrp(ra.GetData());
    ANLOOPGRP* gb = CLoopGrpOpt::CreateAnloopGrp(rb.GetData());
    for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
      CRstLines want;
      want.Combine(&ra, &rb, mode);
      ANLOOPGRP* fromGroups = CLoopGrpOpt::CreateAnloopGrp(ga, gb, mode);
      ANLOOPGRP* fromPoints = CLoopGrpOpt::CreateAnloopGrp(a.data(), 6, b.data(), 5, mode);
      ASSERT_EQ(fromGroups != nullptr, !want.IsEmpty());
      ASSERT_TRUE(CLoopGrpOpt::IsEqual(fromGroups, fromPoints));
      CRstLines back;
      if (fromGroups) {
        ASSERT_TRUE(back.Create(fromGroups));
      }
      EXPECT_EQ(Pixels(back.GetData()), Pixels(want.GetData())) << "iteration " << iter << " mode " << mode;
      CLoopGrpOpt::DeleteAnloopGrp(fromGroups);
      CLoopGrpOpt::DeleteAnloopGrp(fromPoints);
    }
    EXPECT_EQ(CLoopGrpOpt::CreateAnloopGrp(ga, gb, 9), nullptr);
    CLoopGrpOpt::DeleteAnloopGrp(ga);
    CLoopGrpOpt::DeleteAnloopGrp(gb);
  }
}
