// test_acycle.cpp - repeat cycles against a brute-force tile model: point
// folding (both ways, negative coordinates, displacements beyond the tile,
// coordinates at the 32-bit limits), run and rectangle cutting, the
// clipping forms, and resolution scaling. Every random failure prints the
// record and input as code that reproduces it.
#include <tqbase/tqbase.h>

#include "cycle_model.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

using namespace tqtest;

namespace {

CYCLEINFO Cycle(int w, int h, int p, int way, int on = 1) {
  CYCLEINFO ci;
  ci.width = w, ci.height = h, ci.param = p, ci.way = way, ci.onOff = on;
  return ci;
}

// A failing random case prints the record and input as code.
std::string Join(std::initializer_list<long long> v) {
  std::string s;
  for (long long x : v) s += (s.empty() ? "" : ", ") + std::to_string(x);
  return s;
}
std::string Code(const CYCLEINFO& ci) {
  return "CYCLEINFO ci = Cycle(" + Join({ci.width, ci.height, ci.param, ci.way, ci.onOff}) + ");";
}
std::string Code(const APTLENGTH& r) { return " APTLENGTH run = {" + Join({r.x, r.y, r.length}) + "};"; }
std::string Code(const RECT& r, const char* name = "rc") {
  return std::string(" RECT ") + name + " = {" + Join({r.left, r.top, r.right, r.bottom}) + "};";
}

POINT Pt(int x, int y) { return POINT{x, y}; }

std::vector<RunPiece> CutRun(const APTLENGTH& run, const CYCLEINFO& ci) {
  int n = ACycle::GCalCycleLine(run, nullptr, nullptr, &ci);
  std::vector<APTLENGTH> pieces((size_t)std::max(n, 1));
  std::vector<int> offsets((size_t)std::max(n, 1));
  int got = ACycle::GCalCycleLine(run, pieces.data(), offsets.data(), &ci);
  EXPECT_LE(got, n);
  std::vector<RunPiece> out;
  for (int i = 0; i < got; ++i) out.push_back(RunPiece{pieces[i].x, pieces[i].y, pieces[i].length, offsets[i]});
  return out;
}

// ---------------------------------------------------------------------------
// Folding

TEST(ACycleFold, LeavesPointWhenOffZeroSizedOrOddWay) {
  for (CYCLEINFO ci : {Cycle(100, 50, 25, 0), Cycle(100, 50, 25, 3), Cycle(100, 50, 25, -1),
                       Cycle(100, 50, 25, 1, 0), Cycle(0, 50, 25, 1), Cycle(100, 0, 25, 2)}) {
    POINT p = ACycle::GCalLocalPoint(-777, 12345, &ci);
    EXPECT_EQ(p.x, -777) << Code(ci);
    EXPECT_EQ(p.y, 12345) << Code(ci);
    POINTD d(-7.5, 1e6);
    ACycle::GCalLocalPointD(d, &ci);
    EXPECT_EQ(d.x, -7.5) << Code(ci);
  }
}

// Small tiles and coordinates against the stepping model; tiles up to
// INT_MAX and any coordinates and displacements against what defines the
// fold: the result lies in the tile and differs from the point by a lattice
// translation (which makes it unique).
TEST(ACycleFold, AgreesWithSteppingModelAndStaysExactAtTheLimits) {
  std::mt19937_64 rng(1);
  const int edge[] = {INT_MIN, INT_MIN + 1, -1, 0, 1, INT_MAX - 1, INT_MAX};
  auto any = [&] { return rng() % 2 ? (int)rng() : edge[rng() % 7]; };
  for (int trial = 0; trial < 24000; ++trial) {
    const bool limits = trial % 6 == 0;
    const int w = limits && rng() % 3 == 0 ? INT_MAX - (int)(rng() % 3) : 1 + (int)(rng() % (limits ? 1000 : 40));
    const int h = limits && rng() % 5 == 0 ? INT_MAX : 1 + (int)(rng() % (limits ? 1000 : 40));
    const int p = limits ? any() : (int)(rng() % 301) - 150;  // often beyond the tile
    const CYCLEINFO ci = Cycle(w, h, p, 1 + (int)(rng() % 2));
    const int x = limits ? any() : (int)(rng() % 4001) - 2000, y = limits ? any() : (int)(rng() % 4001) - 2000;
    const POINT got = ACycle::GCalLocalPoint(x, y, &ci);
    const std::string code = Code(ci) + " ACycle::GCalLocalPoint(" + Join({x, y}) + ", &ci);";
    ASSERT_TRUE(got.x >= 0 && got.x < w && got.y >= 0 && got.y < h) << code;
    const long long dx = (long long)x - got.x, dy = (long long)y - got.y;
    if (ci.way == 1) {
      ASSERT_TRUE(dx % w == 0 && (dy - dx / w * (long long)p) % h == 0) << code;
    } else {
      ASSERT_TRUE(dy % h == 0 && (dx - dy / h * (long long)p) % w == 0) << code;
    }
    if (limits) continue;
    long long mx = x, my = y;
    ModelFold(mx, my, ci);
    ASSERT_TRUE(got.x == mx && got.y == my) << code << " // expected (" << mx << ", " << my << ")";
    // The in-place and double forms agree.
    POINT q = Pt(x, y);
    ACycle::GCalLocalPoint(q, &ci);
    int ix = x, iy = y;
    ACycle::GCalLocalPoint(&ix, &iy, &ci);
    POINTD d(x, y);
    ACycle::GCalLocalPointD(d, &ci);
    ASSERT_TRUE(q.x == mx && q.y == my && ix == mx && iy == my && d.x == mx && d.y == my) << code;
  }
}

// A tile below one pixel has no cell, whatever the sign of its sides: no
// fold, no pieces, in the counting and the filling calls alike. (A negative
// width once folded into (width, 0], outside the tile, and a negative run on
// a negative width counted 2^31 - 1 steps that took seconds to walk.)
TEST(ACycleFold, TileWithoutPixelsFoldsAndCutsNothing) {
  for (CYCLEINFO ci : {Cycle(-10, 50, 25, 1), Cycle(100, -1, 25, 2), Cycle(INT_MIN, INT_MIN, 3, 1),
                       Cycle(-1, 7, 0, 2), Cycle(0, -5, 1, 1)}) {
    POINT p = ACycle::GCalLocalPoint(5, 7, &ci);
    EXPECT_TRUE(p.x == 5 && p.y == 7) << Code(ci);
    POINTD d(5.5, -7.5);
    ACycle::GCalLocalPointD(d, &ci);
    EXPECT_TRUE(d.x == 5.5 && d.y == -7.5) << Code(ci);
    ACycle cyc(ci);
    RECT rc = {-3, -4, 5, 6}, same = rc;
    cyc.BoundLeftLower(rc);
    EXPECT_TRUE(EqualRect(&rc, &same)) << Code(ci);
    APTLENGTH pieces[2], runs[] = {{0, 0, -2147483646}, {-5, 3, 40}};
    for (const APTLENGTH& run : runs) {
      EXPECT_EQ(ACycle::GCalCycleLine(run, nullptr, nullptr, &ci), 0) << Code(ci) << Code(run);
      EXPECT_EQ(ACycle::GCalCycleLine(run, pieces, nullptr, &ci), 0) << Code(ci) << Code(run);
      EXPECT_EQ(ACycle::GCycleSituation(&run, (POINT*)nullptr, &ci), 0) << Code(ci) << Code(run);
    }
    RECT rects[] = {{0, 0, 10, 10}, {INT_MAX, INT_MAX, -1000, -1000}};
    RECT rp[2];
    for (const RECT& r : rects) {
      EXPECT_EQ(ACycle::GCalCycleRect(r, nullptr, nullptr, &ci), 0) << Code(ci) << Code(r);
      EXPECT_EQ(ACycle::GCalCycleRect(r, rp, nullptr, &ci), 0) << Code(ci) << Code(r);
    }
  }
}

TEST(ACycleFold, DoublesKeepTheTileInvariant) {
  // Any finite point lands in the tile: the tile count of a huge
  // coordinate times the displacement once overflowed to an infinity and
  // left a NaN in the other coordinate.
  for (CYCLEINFO c : {Cycle(1, 50, 25, 1), Cycle(3, 1, INT_MIN, 2), Cycle(1, 1, INT_MAX, 1)}) {
    for (double v : {DBL_MAX, -DBL_MAX, 1e300, -4.9e-324, 9.007199254740993e15}) {
      POINTD q(v, -v);
      ACycle::GCalLocalPointD(q, &c);
      EXPECT_TRUE(q.x >= 0 && q.x < c.width && q.y >= 0 && q.y < c.height) << Code(c) << " POINTD q(" << v << ")";
    }
  }
  // A coordinate that is not finite leaves the point as it is.
  CYCLEINFO ci = Cycle(100, 50, 25, 1);
  POINTD inf(INFINITY, 3);
  ACycle::GCalLocalPointD(inf, &ci);
  EXPECT_TRUE(std::isinf(inf.x) && inf.y == 3);
  POINTD d(-1e-20, 7.25);
  ACycle::GCalLocalPointD(d, &ci);
  EXPECT_TRUE(d.x >= 0 && d.x < 100);
  EXPECT_EQ(d.y, 7.25);  // no tile step after all
  d = POINTD(-0.5, 10.5);
  ACycle::GCalLocalPointD(d, &ci);
  EXPECT_TRUE(d.x == 99.5 && d.y == 35.5);
  d = POINTD(NAN, 3);
  ACycle::GCalLocalPointD(d, &ci);
  EXPECT_EQ(d.y, 3);

  std::mt19937_64 rng(8);
  std::uniform_real_distribution<double> u(-1e4, 1e4);
  for (int trial = 0; trial < 5000; ++trial) {
    CYCLEINFO c = Cycle(1 + (int)(rng() % 50), 1 + (int)(rng() % 50), (int)(rng() % 201) - 100, 1 + trial % 2);
    double x = u(rng), y = u(rng);
    if (trial % 3 == 0) x = std::nextafter(std::round(x / c.width) * c.width, -1e9);
    POINTD q(x, y);
    ACycle::GCalLocalPointD(q, &c);
    ASSERT_TRUE(q.x >= 0 && q.x < c.width && q.y >= 0 && q.y < c.height)
        << Code(c) << std::hexfloat << " POINTD q(" << x << ", " << y << ");";
  }
}

// ---------------------------------------------------------------------------
// Runs

TEST(ACycleRun, TileCountBound) {
  // The bound is the walk's length, which may exceed the pieces produced.
  const CYCLEINFO ci = Cycle(100, 10, 0, 1), off = Cycle(100, 10, 0, 1, 0), zero = Cycle(0, 10, 0, 1);
  for (auto c : {std::make_pair(1, 1), std::make_pair(101, 2), std::make_pair(102, 3), std::make_pair(100, 2)}) {
    APTLENGTH r = {0, 0, c.first};
    EXPECT_EQ(ACycle::GCalCycleLine(r, nullptr, nullptr, &ci), c.second) << Code(r);
  }
  APTLENGTH r = {0, 0, 100000};
  APTLENGTH pieces[4];
  EXPECT_EQ(ACycle::GCalCycleLine(r, nullptr, nullptr, &off), 1);
  EXPECT_EQ(ACycle::GCalCycleLine(r, nullptr, nullptr, &zero), 0);
  EXPECT_EQ(ACycle::GCalCycleLine(r, pieces, nullptr, &zero), 0);
  // W = 1 and a run of INT_MAX pixels would need more than an int counts.
  CYCLEINFO one = Cycle(1, 1, 0, 1);
  APTLENGTH huge = {0, 0, INT_MAX};
  EXPECT_EQ(ACycle::GCalCycleLine(huge, nullptr, nullptr, &one), 0);
  EXPECT_EQ(ACycle::GCalCycleLine(huge, pieces, nullptr, &one), 0);
}

TEST(ACycleRun, OffClipsToTheTile) {
  CYCLEINFO ci = Cycle(100, 50, 25, 1, 0);
  APTLENGTH r = {-10, 5, 30}, piece;
  int off = -1;
  ASSERT_EQ(ACycle::GCalCycleLine(r, &piece, &off, &ci), 1);
  EXPECT_TRUE(piece.x == 0 && piece.length == 20 && off == 10) << Code(piece);
  r.y = 50;
  EXPECT_EQ(ACycle::GCalCycleLine(r, &piece, &off, &ci), 0);
  POINT s;
  r.y = 49;
  ASSERT_EQ(ACycle::GCycleSituation(&r, &s, &ci), 1);
  EXPECT_EQ(s.x, -10);
}

TEST(ACycleRun, InterLineRectEdges) {
  const RECT rc = {10, 10, 20, 20}, empty = {10, 10, 10, 20}, all = {INT_MIN, INT_MIN, INT_MAX, INT_MAX},
             left = {INT_MIN + 2, -1, 0, 1};
  struct Case {
    APTLENGTH run;
    const RECT* rc;
    bool meets;
    int x, length;
  } cases[] = {
      {{5, 10, 6}, &rc, true, 10, 1},    {{5, 10, 5}, &rc, false, 0, 0},  // the second ends at 9
      {{19, 19, 100}, &rc, true, 19, 1}, {{20, 15, 1}, &rc, false, 0, 0},
      {{15, 20, 1}, &rc, false, 0, 0},   {{15, 9, 1}, &rc, false, 0, 0},
      {{15, 15, 0}, &rc, false, 0, 0},   {{0, 15, 100}, &empty, false, 0, 0},
      // No 32-bit overflow at the limits.
      {{INT_MAX - 5, 0, INT_MAX}, &all, true, INT_MAX - 5, 5},
      {{INT_MIN, 0, 3}, &left, true, INT_MIN + 2, 1},
  };
  for (const Case& c : cases) {
    APTLENGTH out = {7, 7, 7};
    std::string code = Code(c.run) + Code(*c.rc);
    ASSERT_EQ(ACycle::InterLineRect(&out, &c.run, c.rc) != 0, c.meets) << code;
    if (c.meets) {
      EXPECT_TRUE(out.x == c.x && out.length == c.length) << code;
    }
  }
}

TEST(ACycleRun, CutAgreesWithPixelModel) {
  std::mt19937 rng(11);
  int lost = 0;
  for (int trial = 0; trial < 6000; ++trial) {
    int w = 1 + (int)(rng() % 30), h = 1 + (int)(rng() % 30);
    int way = 1 + (int)(rng() % 2);
    int p = (int)(rng() % 121) - 60;
    CYCLEINFO ci = Cycle(w, h, p, way);
    APTLENGTH r = {(int)(rng() % 601) - 300, (int)(rng() % 601) - 300, (int)(rng() % 200)};
    std::string code = Code(ci) + Code(r) + " ACycle::GCalCycleLine(run, pieces, offsets, &ci);";
    std::vector<RunPiece> got = CutRun(r, ci), want = ModelCutRun(r, ci);
    bool exact = way == 2 || std::abs(p) <= h;
    if (exact) {
      ASSERT_EQ(got, want) << code;
    } else {
      // A displacement beyond one tile height can push a step out of the
      // tile; the pieces produced are still true pieces, in order.
      for (const RunPiece& g : got)
        ASSERT_TRUE(std::find(want.begin(), want.end(), g) != want.end()) << code << " stray " << g;
      ASSERT_TRUE(std::is_sorted(got.begin(), got.end())) << code;
      lost += (int)(want.size() - got.size());
    }
    // Pieces always lie in the tile.
    for (const RunPiece& g : got) ASSERT_TRUE(g.x >= 0 && g.x + g.length <= w && g.y >= 0 && g.y < h) << code;
    // The starts walk the same steps.
    std::vector<POINT> starts((size_t)std::max(1, ACycle::GCycleSituation(&r, nullptr, &ci)));
    int ns = ACycle::GCycleSituation(&r, starts.data(), &ci);
    ASSERT_EQ(ns, (int)got.size()) << code;
    for (int i = 0; i < ns; ++i) {
      ASSERT_EQ(starts[i].x + got[i].offset, got[i].x) << code;
      ASSERT_EQ(starts[i].y, got[i].y) << code;
    }
  }
  EXPECT_GT(lost, 0);  // the one-step wrap did bite in the sample
}

TEST(ACycleRun, OddWayWalksWithoutFolding) {
  CYCLEINFO ci = Cycle(10, 10, 3, 0);
  APTLENGTH r = {25, 4, 12};  // not folded: starts outside the tile
  std::vector<RunPiece> got = CutRun(r, ci);
  // n = 3 steps at x = 25, 15, 5: only the last meets the tile.
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0], (RunPiece{5, 4, 5, 0}));
  r = {5, 4, 12};
  got = CutRun(r, ci);
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0], (RunPiece{5, 4, 5, 0}));
  EXPECT_EQ(got[1], (RunPiece{0, 4, 7, 5}));  // way other than 1: y stays
}

// ---------------------------------------------------------------------------
// Rectangles

TEST(ACycleRect, CutAgreesWithPixelModel) {
  std::mt19937 rng(21);
  for (int trial = 0; trial < 3000; ++trial) {
    int w = 1 + (int)(rng() % 15), h = 1 + (int)(rng() % 15);
    int way = 1 + (int)(rng() % 2);
    int p = (int)(rng() % 41) - 20;
    CYCLEINFO ci = Cycle(w, h, p, way);
    int l = (int)(rng() % 201) - 100, t = (int)(rng() % 201) - 100;
    RECT rc = {l, t, l + (int)(rng() % 40), t + (int)(rng() % 40)};
    std::string code = Code(ci) + Code(rc) + " ACycle::GCalCycleRect(rc, pieces, offsets, &ci);";
    int n = ACycle::GCalCycleRect(rc, nullptr, nullptr, &ci);
    std::vector<RECT> pieces((size_t)std::max(n, 1));
    std::vector<POINT> offs((size_t)std::max(n, 1));
    int got = ACycle::GCalCycleRect(rc, pieces.data(), offs.data(), &ci);
    ASSERT_LE(got, n) << code;
    std::vector<RectPiece> g;
    for (int i = 0; i < got; ++i) g.push_back(RectPiece{pieces[i], offs[i]});
    std::sort(g.begin(), g.end());
    std::vector<RectPiece> want = ModelCutRect(rc, ci);
    bool exact = way == 1 ? std::abs(p) <= h : std::abs(p) <= w;
    if (exact) {
      ASSERT_EQ(g.size(), want.size()) << code;
      for (size_t i = 0; i < g.size(); ++i) ASSERT_EQ(g[i], want[i]) << code;
    } else {
      for (const RectPiece& x : g)
        ASSERT_TRUE(std::binary_search(want.begin(), want.end(), x)) << code << " stray " << x;
    }
    // The corners walk the same positions: corner = piece - offset.
    int nc = ACycle::GCycleSituation(&rc, (POINT*)nullptr, &ci);
    if (rc.right > rc.left && rc.bottom > rc.top) {
      ASSERT_EQ(nc, n) << code;
    }
    std::vector<POINT> corners((size_t)std::max(nc, 1));
    int gc = ACycle::GCycleSituation(&rc, corners.data(), &ci);
    ASSERT_EQ(gc, rc.right > rc.left && rc.bottom > rc.top ? got : 0) << code;
    for (int i = 0; i < gc; ++i) {
      ASSERT_EQ(corners[i].x, pieces[i].left - offs[i].x) << code;
      ASSERT_EQ(corners[i].y, pieces[i].top - offs[i].y) << code;
    }
  }
}

TEST(ACycleRect, OffAndDegenerateTiles) {
  CYCLEINFO off = Cycle(100, 50, 0, 1, 0);
  RECT outside = {200, 0, 300, 10};
  RECT pieces[2];
  POINT offs[2];
  EXPECT_EQ(ACycle::GCalCycleRect(outside, nullptr, nullptr, &off), 1);
  EXPECT_EQ(ACycle::GCalCycleRect(outside, pieces, offs, &off), 0);
  RECT across = {-5, 40, 20, 60};
  ASSERT_EQ(ACycle::GCalCycleRect(across, pieces, offs, &off), 1);
  EXPECT_TRUE(pieces[0].left == 0 && pieces[0].bottom == 50 && offs[0].x == 5 && offs[0].y == 0) << Code(pieces[0]);
  CYCLEINFO noH = Cycle(100, 0, 0, 1);
  EXPECT_EQ(ACycle::GCalCycleRect(across, nullptr, nullptr, &noH), 0);
  // The corner form refuses a tile below one pixel even with the repeat off.
  CYCLEINFO offNoW = Cycle(0, 50, 0, 1, 0);
  EXPECT_EQ(ACycle::GCycleSituation(&across, (POINT*)nullptr, &offNoW), 0);
  EXPECT_EQ(ACycle::GCycleSituation(&across, (POINT*)nullptr, &off), 1);
  RECT empty = {5, 5, 5, 9};
  EXPECT_EQ(ACycle::GCycleSituation(&empty, (POINT*)nullptr, &off), 0);
  EXPECT_EQ(ACycle::GCycleSituation((const RECT*)nullptr, (POINT*)nullptr, &off), 0);
  // Counts that do not fit an int give 0 in both calls.
  CYCLEINFO tiny = Cycle(1, 1, 0, 1);
  RECT big = {0, 0, 100000, 100000};
  EXPECT_EQ(ACycle::GCalCycleRect(big, nullptr, nullptr, &tiny), 0);
  EXPECT_EQ(ACycle::GCalCycleRect(big, pieces, nullptr, &tiny), 0);
  RECT wide = {INT_MIN, 0, INT_MAX, 1};
  EXPECT_EQ(ACycle::GCalCycleRect(wide, nullptr, nullptr, &off), 0);
}

TEST(ACycleRect, BoundLeftLowerAndUpper) {
  ACycle cyc(Cycle(100, 50, 25, 1));
  RECT rc = {-1, 10, 9, 30}, wantLower = {99, 35, 109, 55};
  cyc.BoundLeftLower(rc);
  EXPECT_TRUE(EqualRect(&rc, &wantLower)) << Code(rc);
  RECT up = {-1, -10, 9, 10}, wantUpper = {99, 15, 109, 35};  // bottom-left (-1, 10) folds to (99, 35)
  cyc.BoundLeftUpper(up);
  EXPECT_TRUE(EqualRect(&up, &wantUpper)) << Code(up);
  cyc.SetCycleOnOff(0);
  RECT same = {-1, 10, 9, 30};
  cyc.BoundLeftLower(same);
  EXPECT_EQ(same.left, -1);
  // A rectangle that would leave the 32-bit range once moved stays as it
  // is (its right side once wrapped round to the left of its left side).
  cyc.SetCycleOnOff(1);
  RECT wide = {INT_MIN, 0, INT_MAX, 10}, keep = wide;
  cyc.BoundLeftLower(wide);
  EXPECT_TRUE(EqualRect(&wide, &keep)) << Code(wide);
  RECT tall = {5, INT_MIN + 1, 6, INT_MAX}, keepTall = tall;
  cyc.BoundLeftUpper(tall);
  EXPECT_TRUE(EqualRect(&tall, &keepTall)) << Code(tall);
  RECT fits = {INT_MAX - 10, INT_MAX - 10, INT_MAX, INT_MAX};  // moves to the tile and fits
  cyc.BoundLeftLower(fits);
  EXPECT_TRUE(fits.left >= 0 && fits.left < 100 && fits.right - fits.left == 10) << Code(fits);
}

// A rectangle inverted in one axis has no tile positions; the walk over
// the other axis alone (2^30 steps here) once ran all the same.
TEST(ACycleRect, NoPositionsWalkNothing) {
  const CYCLEINFO ci = Cycle(2, 100, 2, 1), rows = Cycle(2, 100, 2, 2);
  const RECT rc = {2, INT_MAX, INT_MAX, 65536}, cols = {INT_MAX, 2, 65536, INT_MAX};
  RECT piece;
  POINT corner;
  for (const CYCLEINFO* c : {&ci, &rows}) {
    for (const RECT* r : {&rc, &cols}) {
      EXPECT_EQ(ACycle::GCalCycleRect(*r, nullptr, nullptr, c), 0) << Code(*c) << Code(*r);
      EXPECT_EQ(ACycle::GCalCycleRect(*r, &piece, nullptr, c), 0) << Code(*c) << Code(*r);
      EXPECT_EQ(ACycle::GCycleSituation(r, &corner, c), 0) << Code(*c) << Code(*r);
    }
  }
}

// ---------------------------------------------------------------------------
// Clipping forms

TEST(ACycleClip, CopiesAgreeWithLatticeModel) {
  std::mt19937 rng(31);
  for (int trial = 0; trial < 400; ++trial) {
    int w = 3 + (int)(rng() % 12), h = 3 + (int)(rng() % 12);
    int way = 1 + (int)(rng() % 2);
    int p = (int)(rng() % 41) - 20;
    CYCLEINFO ci = Cycle(w, h, p, way, trial % 10 ? 1 : 0);
    int cl = (int)(rng() % 121) - 60, ct = (int)(rng() % 121) - 60;
    RECT clip = {cl, ct, cl + 1 + (int)(rng() % 60), ct + 1 + (int)(rng() % 60)};
    APTLENGTH run = {(int)(rng() % 21) - 5, (int)(rng() % 21) - 5, 1 + (int)(rng() % 25)};
    std::string code = Code(ci) + Code(run) + Code(clip, "clip");
    // Run starts.
    CArray<POINT> starts;
    int n = ACycle::GCycleSituation(&run, starts, &clip, &ci);
    auto want = ModelCopies(run.x, run.y, clip.left - run.length + 1, clip.right - 1, clip.top, clip.bottom - 1, ci);
    ASSERT_EQ(n, (int)want.size()) << code << " CArray<POINT> s; ACycle::GCycleSituation(&run, s, &clip, &ci);";
    for (int i = 0; i < n; ++i) {
      ASSERT_EQ(starts[i].x, want[i].second - clip.left) << code;
      ASSERT_EQ(starts[i].y, want[i].first - clip.top) << code;
    }
    // Run pieces clipped to the window.
    CArray<APTLENGTH> pieces;
    CArray<int> offsets;
    ASSERT_EQ(ACycle::GCycleSituation(&run, &pieces, &offsets, &clip, &ci), n) << code;
    for (int i = 0; i < n; ++i) {
      const APTLENGTH& pc = pieces[i];
      ASSERT_TRUE(pc.x >= 0 && pc.length >= 1 && pc.x + pc.length <= clip.right - clip.left && pc.y >= 0 &&
                  pc.y < clip.bottom - clip.top)
          << code;
      ASSERT_EQ(pc.x - offsets[i], starts[i].x) << code;
    }
    // Without a window: the pieces of cutting the run, in the same order.
    const std::vector<RunPiece> cut = CutRun(run, ci);
    ASSERT_EQ(ACycle::GCycleSituation(&run, &pieces, &offsets, nullptr, &ci), (int)cut.size()) << code;
    for (size_t i = 0; i < cut.size(); ++i)
      ASSERT_EQ((RunPiece{pieces[i].x, pieces[i].y, pieces[i].length, offsets[i]}), cut[i]) << code;
    // Points.
    POINT pt = Pt(run.x, run.y);
    CArray<POINT> pts;
    int np = ACycle::GCycleSituation(&pt, pts, &clip, &ci);
    auto wantPts = ModelCopies(pt.x, pt.y, clip.left, clip.right - 1, clip.top, clip.bottom - 1, ci);
    ASSERT_EQ(np, (int)wantPts.size()) << code;
    POINT first = pt;
    ASSERT_EQ(ACycle::GCycleSituation(&first, &clip, &ci), np) << code;
    if (np > 0) {
      EXPECT_EQ(first.x, pts[0].x);
      EXPECT_EQ(first.y, pts[0].y);
    }
    // Rectangles.
    RECT rc = {run.x, run.y, run.x + run.length, run.y + 1 + (int)(rng() % 8)};
    CArray<POINT> corners;
    int nr = ACycle::GCycleSituation(&rc, corners, &clip, &ci);
    auto wantRc = ModelCopies(rc.left, rc.top, clip.left - (rc.right - rc.left) + 1, clip.right - 1,
                              clip.top - (rc.bottom - rc.top) + 1, clip.bottom - 1, ci);
    ASSERT_EQ(nr, (int)wantRc.size()) << code << Code(rc);
    CArray<RECT> rpieces;
    CArray<POINT> roffs;
    ASSERT_EQ(ACycle::GCycleSituation(&rc, &rpieces, &roffs, &clip, &ci), nr) << code << Code(rc);
    for (int i = 0; i < nr; ++i) {
      ASSERT_EQ(rpieces[i].left - roffs[i].x, corners[i].x) << code;
      ASSERT_FALSE(IsRectEmpty(&rpieces[i])) << code;
    }
    ASSERT_EQ(ACycle::GIsIntersectant(&rc, &clip, &ci) != 0, nr > 0) << code << Code(rc);
  }
}

TEST(ACycleClip, BadArgumentsAndLimits) {
  const CYCLEINFO ci = Cycle(10, 10, 3, 1), zero = Cycle(0, 10, 3, 1), off = Cycle(10, 10, 3, 1, 0);
  CArray<POINT> out;
  // A null point, an empty window, null pieces, a tile of width 0, and a
  // window too wide for relative coordinates are refused.
  const RECT clip = {0, 0, 5, 5}, empty = {0, 0, 0, 5}, huge = {INT_MIN, 0, INT_MAX, 1};
  const POINT p = Pt(3, 3);
  const APTLENGTH run = {0, 0, 5};
  EXPECT_EQ(ACycle::GCycleSituation((const POINT*)nullptr, out, &clip, &ci), 0);
  EXPECT_EQ(ACycle::GCycleSituation(&p, out, &empty, &ci), 0);
  EXPECT_EQ(ACycle::GCycleSituation(&run, (CArray<APTLENGTH>*)nullptr, nullptr, &clip, &ci), 0);
  EXPECT_EQ(ACycle::GCycleSituation(&p, out, &clip, &zero), 0);
  EXPECT_EQ(ACycle::GCycleSituation(&p, out, &huge, &ci), 0);
  CArray<APTLENGTH> pieces;
  pieces.SetSize(3);
  EXPECT_EQ(ACycle::GCycleSituation(&run, &pieces, nullptr, nullptr, &zero), 0);
  EXPECT_EQ(pieces.GetSize(), 0);  // emptied
  // Off: the one copy, wherever it is.
  const RECT distant = {1000, 1000, 1010, 1010};
  const POINT q = Pt(1005, 1001);
  ASSERT_EQ(ACycle::GCycleSituation(&q, out, &distant, &off), 1);
  EXPECT_TRUE(out[0].x == 5 && out[0].y == 1);
  RECT a = {0, 0, 3, 3}, b = {10, 3, 12, 5};  // meets the copy at (10, 3)
  EXPECT_FALSE(ACycle::GIsIntersectant(&a, &b, &off));
  EXPECT_TRUE(ACycle::GIsIntersectant(&a, &b, &ci) && ACycle(ci).IsIntersectant(&a, &b));
}

// ---------------------------------------------------------------------------
// Scaling and the object

TEST(ACycleScale, PackedRatios) {
  CYCLEPARAMS in = Cycle(100, 7, -3, 1), out;
  EXPECT_TRUE(ACycle::GScaleCycleParams(&out, &in, MAKELONG(400, 600), 0));
  EXPECT_TRUE(out.width == 150 && out.height == 10 && out.param == -4);  // 10.5 and -4.5 toward zero
  EXPECT_FALSE(ACycle::GScaleCycleParams(&out, &in, MAKELONG(300, 300), 0));
  EXPECT_TRUE(ACycle::GScaleCycleParams(&out, &in, MAKELONG(300, 300), 1));
  EXPECT_EQ(out.param, 3);
  // 64-bit intermediate: 2e9 * 3 / 4 does not overflow.
  in.width = 2000000000;
  EXPECT_TRUE(ACycle::GScaleCycleParams(&in, &in, MAKELONG(4, 3), 0));
  EXPECT_EQ(in.width, 1500000000);
  // A zero denominator counts as 1.
  in.width = 5;
  ACycle::GScaleCycleParams(&in, &in, MAKELONG(0, 2), 0);
  EXPECT_EQ(in.width, 10);
  in.param = INT_MIN;
  ACycle::GScaleCycleParams(&in, &in, MAKELONG(1, 1), 1);
  EXPECT_EQ(in.param, INT_MAX);
  // Results beyond the int range saturate.
  CYCLEPARAMS big = Cycle(2000000000, -2000000000, INT_MIN, 1);
  ACycle::GScaleCycleParams(&big, &big, MAKELONG(1, 65535), 0);
  EXPECT_TRUE(big.width == INT_MAX && big.height == INT_MIN && big.param == INT_MIN) << big.param;

  CYCLEINFO ci = Cycle(100, 100, 10, 1);
  EXPECT_TRUE(ACycle::GScaleCycleParams(&out, &ci, MAKELONG(1, 2), MAKELONG(1, 3), 0));
  EXPECT_TRUE(out.width == 200 && out.height == 300 && out.param == 30);  // way 1: a y distance
  ci.way = 2;
  ACycle::GScaleCycleParams(&out, &ci, MAKELONG(1, 2), MAKELONG(1, 3), 0);
  EXPECT_EQ(out.param, 20);  // way 2: an x distance
  EXPECT_FALSE(ACycle::GScaleCycleParams(&out, &ci, MAKELONG(5, 5), MAKELONG(9, 9), 0));
}

TEST(ACycleScale, MemberFormsKeepTheirAsymmetry) {
  ACycle cyc(Cycle(100, 50, 25, 2));
  CYCLEPARAMS saved;
  EXPECT_FALSE(cyc.ScaleCycleParams(MAKELONG(2, 2), &saved, 0));
  EXPECT_EQ(saved.width, 100);
  EXPECT_TRUE(cyc.ScaleCycleParams(MAKELONG(2, 2), MAKELONG(3, 3), &saved, 0));
  EXPECT_FALSE(cyc.ScaleCycleParams(MAKELONG(1, 1), nullptr, 0));
  EXPECT_TRUE(cyc.ScaleCycleParams(MAKELONG(1, 2), &saved, 0));
  EXPECT_EQ(Code(*cyc.CycleInfoPtr()), Code(Cycle(200, 100, 50, 2, 1)));
  cyc.TRestoreParams(&saved);
  EXPECT_EQ(cyc.CycleWidth(), 100);
  EXPECT_TRUE(cyc.ScaleCycleParams(MAKELONG(1, 2), MAKELONG(1, 4), nullptr, 1));
  EXPECT_EQ(Code(*cyc.CycleInfoPtr()), Code(Cycle(200, 200, -50, 2, 1)));  // x ratio under way 2, negated
  EXPECT_TRUE(cyc.TScaleParams(MAKELONG(2, 1), nullptr, 0));
  EXPECT_EQ(cyc.CycleWidth(), 100);
}

// Counts calls to the virtual setters, as a derived view class would.
class CountingCycle : public ACycle {
public:
  int onOffCalls = 0;
  void SetCycleOnOff(int onOff) override {
    ++onOffCalls;
    ACycle::SetCycleOnOff(onOff);
  }
};

TEST(ACycleObject, RecordsSettersAndReaders) {
  static_assert(sizeof(CYCLEPARAMS) == 12 && sizeof(CYCLEINFO) == 20 && sizeof(APTLENGTH) == 12, "ints");

  // The setters are virtual: a derived view class sees every call.
  CountingCycle c;
  ACycle& base = c;
  base.SetCycleOnOff(1);
  EXPECT_EQ(c.onOffCalls, 1);
  EXPECT_TRUE(base.SetCycleParams(10, 20, 3));
  base.SetCycleWay(2);
  base.SetCycleWidth(11);
  base.SetCycleParam(4);
  CYCLEINFO got;
  base.GetCycleInfo(&got);
  EXPECT_EQ(Code(got), Code(Cycle(11, 20, 4, 2, 1)));
  CYCLEINFO again = Cycle(7, 8, 9, 1, 0);
  EXPECT_TRUE(base.SetCycleInfo(&again));
  EXPECT_EQ(base.CycleOnOff(), 0);

  tqtest::HookCapture hooks;
  EXPECT_FALSE(base.SetCycleInfo(nullptr));
  base.GetCycleInfo(nullptr);
  EXPECT_EQ(hooks.Assertions(), 2);
}

TEST(ACycleObject, FloatRecordConversion) {
  CYCLEINFO_FLOAT f;
  f.width = 99.99999999995;
  f.height = 50.5;
  f.param = -12.5;
  f.onOff = 1;
  f.way = 1;
  CYCLEINFO ci;
  ASSERT_TRUE(ACycle::GCycleInfoFromFloat(&ci, &f));
  EXPECT_EQ(Code(ci), Code(Cycle(100, 51, -13, 1, 1)));
  ASSERT_TRUE(ACycle::GCycleInfoFromFloat(&ci, &f, 2.0, 10.0));
  EXPECT_TRUE(ci.width == 200 && ci.param == -125) << Code(ci);  // way 1: y scale
  f.way = 2;
  ASSERT_TRUE(ACycle::GCycleInfoFromFloat(&ci, &f, 2.0, 10.0));
  EXPECT_EQ(ci.param, -25);
  CYCLEINFO keep = Cycle(1, 2, 3, 1);
  f.width = 3e9;
  EXPECT_FALSE(ACycle::GCycleInfoFromFloat(&keep, &f));
  EXPECT_EQ(keep.width, 1);
  EXPECT_TRUE(g_Error.IsError());
  f.width = 10;
  EXPECT_FALSE(ACycle::GCycleInfoFromFloat(&keep, &f, 0.0, 1.0));
  EXPECT_FALSE(ACycle::GCycleInfoFromFloat(&keep, nullptr));

  ACycle cyc;
  f.width = 10.4;
  cyc.SetCycleInfoFloat(&f);
  ASSERT_TRUE(cyc.CycleInfoFromFloat());
  EXPECT_TRUE(cyc.CycleWidth() == 10 && cyc.CycleWay() == 2);
}

// The member forms use the object's own record.
TEST(ACycleObject, MemberFormsUseOwnRecord) {
  ACycle cyc(Cycle(100, 50, 25, 1));
  RECT rc = {-10, -10, 10, 10}, rp[4];
  POINT ro[4], corners[4];
  EXPECT_EQ(cyc.CalCycleRect(rc, nullptr, nullptr), 4);
  // Four walk positions; the lower-left one misses the tile.
  EXPECT_EQ(cyc.CalCycleRect(rc, rp, ro), 3);
  EXPECT_EQ(cyc.CycleSituation(&rc, corners), 3);
  POINT p = Pt(-1, 10);
  EXPECT_EQ(cyc.CycleSituation(&p, (const RECT*)nullptr), 1);
  EXPECT_EQ(p.x, 99);
  cyc.SetCycleParams(30, 20, 7);
  cyc.SetCycleWay(2);
  POINT pts[3] = {Pt(-5, -5), Pt(31, 19), Pt(100, -100)}, ref[3];
  for (int i = 0; i < 3; ++i) ref[i] = ACycle::GCalLocalPoint(pts[i].x, pts[i].y, cyc.CycleInfoPtr());
  cyc.CalLocalPoints(pts, 3);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(pts[i].x == ref[i].x && pts[i].y == ref[i].y) << i;
  // Off: only a point inside the tile is in the situation.
  cyc.SetCycleOnOff(0);
  for (POINT t : {Pt(29, 19), Pt(30, 0), Pt(-1, 0)}) EXPECT_EQ(cyc.CycleSituation(&t) != 0, t.x == 29) << t.x;
}

}  // namespace
