// fuzz_cycle.cpp - repeat cycles for any parameters: folding points (int
// and double), cutting runs and rectangles into tile pieces, the starts and
// corners of the walks, the copies inside a clipping rectangle, moving
// rectangles into the tile, resolution scaling and the double-precision
// record.
//
// Input: a mode byte (even: small tiles, displacements and coordinates;
// odd: any ints, the 32-bit limits, zero and negative sizes), the cycle
// record, then up to 16 operations, each a kind byte and its operands.
//
// Small inputs are checked against the tile-stepping model of the cycle
// suite (tests/cycle_model.h). Every input is checked against what defines
// the results whatever the parameters: folded points and pieces lie in the
// tile and differ from their source by a lattice translation, run pieces
// cover disjoint stretches of the run in order, the counting call bounds
// the filling call, the cut is complete when the one-tile wrap of the walk
// is exact, and a tile smaller than one pixel gives nothing. Filling calls
// are made only when the count is small (the caller provides the memory),
// and the clip forms only when the lattice positions they try are few:
// their time grows with the tile columns crossing the clip, copies or not.
#include "fuzz_codec_common.h"

#include "cycle_model.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

using tqfuzz::Reader;
using namespace tqtest;

namespace {

typedef long long i64;

const int kCap = 4096;          // largest filling call made
const double kMaxTries = 4096;  // largest clip enumeration made

i64 Mod(i64 a, i64 m) {
  const i64 r = a % m;
  return r < 0 ? r + m : r;
}

// (a * b) mod m for m >= 1, the factors reduced first so that the product
// stays below 2^62.
i64 MulMod(i64 a, i64 b, i64 m) { return Mod(Mod(a, m) * Mod(b, m), m); }

// True when (dx, dy) is a translation of the repeat's lattice: spanned by
// (width, param) and (0, height) under way 1, by (param, height) and
// (width, 0) otherwise. Needs a tile of at least one pixel.
bool Lattice(i64 dx, i64 dy, const CYCLEINFO& ci, bool way1) {
  const i64 w = ci.width, h = ci.height, p = ci.param;
  if (way1) return dx % w == 0 && Mod(dy, h) == MulMod(dx / w, p, h);
  return dy % h == 0 && Mod(dx, w) == MulMod(dy / h, p, w);
}

bool On(const CYCLEINFO& ci) { return ci.onOff != 0; }
bool Usable(const CYCLEINFO& ci) { return ci.width >= 1 && ci.height >= 1; }
bool Folds(const CYCLEINFO& ci) { return On(ci) && Usable(ci) && (ci.way == 1 || ci.way == 2); }

bool InTile(i64 x, i64 y, const CYCLEINFO& ci) { return x >= 0 && x < ci.width && y >= 0 && y < ci.height; }

// The walk's one-tile wrap of the displaced coordinate is exact.
bool ExactRunWalk(const CYCLEINFO& ci) { return ci.way == 2 || std::llabs((i64)ci.param) <= ci.height; }
bool ExactRectWalk(const CYCLEINFO& ci) {
  return std::llabs((i64)ci.param) <= (ci.way == 1 ? ci.height : ci.width);
}

bool Same(const POINT& a, i64 x, i64 y) { return a.x == x && a.y == y; }
bool Same(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

CYCLEINFO SmallCycle(Reader& r) {
  static const int kWays[] = {1, 2, 1, 2, 1, 2, 0, 3};
  CYCLEINFO ci;
  ci.width = 1 + r.Byte() % 40;
  ci.height = 1 + r.Byte() % 40;
  ci.param = (int)(r.Byte() % 241) - 120;  // often beyond the tile
  const uint8_t s = r.Byte();
  ci.way = kWays[s % 8];
  ci.onOff = (s >> 3) % 8 != 0;
  return ci;
}

CYCLEINFO AnyCycle(Reader& r) {
  CYCLEINFO ci;
  ci.width = r.AnyInt();
  ci.height = r.AnyInt();
  ci.param = r.AnyInt();
  const uint8_t s = r.Byte();
  ci.way = s < 224 ? 1 + s % 2 : r.AnyInt();
  ci.onOff = s % 8 == 0 ? 0 : (s % 8 == 1 ? r.AnyInt() : 1);
  return ci;
}

// ---------------------------------------------------------------------------
// Points

void CheckPoint(const CYCLEINFO& ci, int x, int y, bool small) {
  const POINT got = ACycle::GCalLocalPoint(x, y, &ci);
  POINT q = {x, y};
  ACycle::GCalLocalPoint(q, &ci);
  int ix = x, iy = y;
  ACycle::GCalLocalPoint(&ix, &iy, &ci);
  POINT arr[2] = {{x, y}, {y, x}};
  ACycle::GCalLocalPoints(arr, 2, &ci);
  const ACycle obj(ci);
  const POINT member = obj.CalLocalPoint(x, y);
  const POINT swapped = ACycle::GCalLocalPoint(y, x, &ci);
  FUZZ_CHECK(Same(q, got.x, got.y) && ix == got.x && iy == got.y && Same(arr[0], got.x, got.y) &&
             Same(member, got.x, got.y) && Same(arr[1], swapped.x, swapped.y));
  if (Folds(ci)) {
    FUZZ_CHECK(InTile(got.x, got.y, ci));
    FUZZ_CHECK(Lattice((i64)x - got.x, (i64)y - got.y, ci, ci.way == 1));
  } else {
    FUZZ_CHECK(got.x == x && got.y == y);
  }
  POINT s = {x, y};
  const BOOL in = ACycle::GCycleSituation(&s, &ci);
  if (On(ci)) {
    FUZZ_CHECK(in && Same(s, got.x, got.y));
  } else {
    FUZZ_CHECK((in != 0) == InTile(x, y, ci) && s.x == x && s.y == y);
  }
  // The double form folds integer points onto the same place while its
  // arithmetic is exact.
  POINTD d(x, y);
  ACycle::GCalLocalPointD(d, &ci);
  if (Folds(ci)) {
    FUZZ_CHECK(d.x >= 0 && d.x < ci.width && d.y >= 0 && d.y < ci.height);
  } else {
    FUZZ_CHECK(d.x == x && d.y == y);
  }
  if (!small) return;
  i64 mx = x, my = y;
  ModelFold(mx, my, ci);
  FUZZ_CHECK(got.x == mx && got.y == my);
  FUZZ_CHECK(d.x == mx && d.y == my);
}

void CheckPointD(const CYCLEINFO& ci, double x, double y) {
  POINTD d(x, y);
  ACycle::GCalLocalPointD(d, &ci);
  if (Folds(ci) && std::isfinite(x) && std::isfinite(y)) {
    FUZZ_CHECK(d.x >= 0 && d.x < ci.width && d.y >= 0 && d.y < ci.height);
  } else {
    FUZZ_CHECK(std::memcmp(&d.x, &x, sizeof x) == 0 && std::memcmp(&d.y, &y, sizeof y) == 0);
  }
}

// ---------------------------------------------------------------------------
// Runs

void CheckRun(const CYCLEINFO& ci, const APTLENGTH& run, bool small) {
  const int n = ACycle::GCalCycleLine(run, nullptr, nullptr, &ci);
  FUZZ_CHECK(n >= 0);
  FUZZ_CHECK(ACycle::GCycleSituation(&run, (POINT*)nullptr, &ci) == n);
  if (On(ci) && !Usable(ci)) FUZZ_CHECK(n == 0);
  if (n > kCap) return;
  // Exact-size buffers: the sanitizer sees any write past the count.
  std::unique_ptr<APTLENGTH[]> pieces(new APTLENGTH[(size_t)n]);
  std::unique_ptr<int[]> offs(new int[(size_t)n]);
  std::unique_ptr<POINT[]> starts(new POINT[(size_t)n]);
  const int got = ACycle::GCalCycleLine(run, pieces.get(), offs.get(), &ci);
  FUZZ_CHECK(got >= 0 && got <= n);
  i64 next = 0, total = 0;
  std::vector<RunPiece> g;
  for (int i = 0; i < got; ++i) {
    const APTLENGTH& pc = pieces[i];
    const i64 off = offs[i];
    FUZZ_CHECK(pc.length >= 1 && pc.x >= 0 && (i64)pc.x + pc.length <= ci.width && pc.y >= 0 && pc.y < ci.height);
    FUZZ_CHECK(off >= next && off + pc.length <= run.length);  // disjoint stretches, in order
    next = off + pc.length;
    total += pc.length;
    const i64 dx = (i64)run.x + off - pc.x, dy = (i64)run.y - pc.y;
    if (Folds(ci)) {
      FUZZ_CHECK(Lattice(dx, dy, ci, ci.way == 1));
    } else if (On(ci)) {
      FUZZ_CHECK(dy == 0 && dx % ci.width == 0);  // walked along x without folding
    } else {
      FUZZ_CHECK(dx == 0 && dy == 0);  // the run clipped to the tile
    }
    g.push_back(RunPiece{pc.x, pc.y, pc.length, offs[i]});
  }
  if (Folds(ci) && ExactRunWalk(ci) && run.length >= 1 && n > 0) FUZZ_CHECK(total == run.length);
  if (!On(ci) && Usable(ci) && run.length >= 1) {
    const bool meets = run.y >= 0 && run.y < ci.height && run.x < ci.width && (i64)run.x + run.length > 0;
    FUZZ_CHECK(got == (meets ? 1 : 0));
  }
  // Without offsets: the same pieces.
  std::unique_ptr<APTLENGTH[]> again(new APTLENGTH[(size_t)n]);
  FUZZ_CHECK(ACycle::GCalCycleLine(run, again.get(), nullptr, &ci) == got);
  for (int i = 0; i < got; ++i)
    FUZZ_CHECK(again[i].x == pieces[i].x && again[i].y == pieces[i].y && again[i].length == pieces[i].length);
  // The starts walk the same steps.
  FUZZ_CHECK(ACycle::GCycleSituation(&run, starts.get(), &ci) == got);
  for (int i = 0; i < got; ++i) {
    if (On(ci)) {
      FUZZ_CHECK((i64)starts[i].x + offs[i] == pieces[i].x && starts[i].y == pieces[i].y);
    } else {
      FUZZ_CHECK(Same(starts[i], run.x, run.y));
    }
  }
  // The array form without a window is the cut itself.
  CArray<APTLENGTH> ap;
  CArray<int> ao;
  FUZZ_CHECK(ACycle::GCycleSituation(&run, &ap, &ao, nullptr, &ci) == got);
  FUZZ_CHECK(ap.GetSize() == got && ao.GetSize() == got);
  for (int i = 0; i < got; ++i)
    FUZZ_CHECK(ap[i].x == pieces[i].x && ap[i].y == pieces[i].y && ap[i].length == pieces[i].length &&
               ao[i] == offs[i]);
  if (!small || !Folds(ci)) return;
  const std::vector<RunPiece> want = ModelCutRun(run, ci);
  if (ExactRunWalk(ci)) {
    FUZZ_CHECK(g == want);
  } else {
    // A displacement beyond one tile can push a step out of the tile; the
    // pieces produced are still true pieces.
    for (const RunPiece& p : g) FUZZ_CHECK(std::find(want.begin(), want.end(), p) != want.end());
  }
}

// ---------------------------------------------------------------------------
// Rectangles

void CheckBound(const CYCLEINFO& ci, const RECT& rc) {
  const ACycle obj(ci);
  const i64 w = (i64)rc.right - rc.left, h = (i64)rc.bottom - rc.top;
  auto fits = [](i64 v) { return v >= INT32_MIN && v <= INT32_MAX; };
  RECT lower = rc, upper = rc;
  obj.BoundLeftLower(lower);
  obj.BoundLeftUpper(upper);
  if (!On(ci)) {
    FUZZ_CHECK(Same(lower, rc) && Same(upper, rc));
    return;
  }
  const POINT tl = ACycle::GCalLocalPoint(rc.left, rc.top, &ci);
  const POINT bl = ACycle::GCalLocalPoint(rc.left, rc.bottom, &ci);
  if (fits(tl.x + w) && fits(tl.y + h)) {
    FUZZ_CHECK(Same(lower, RECT{tl.x, tl.y, (LONG)(tl.x + w), (LONG)(tl.y + h)}));
  } else {
    FUZZ_CHECK(Same(lower, rc));
  }
  if (fits(bl.x + w) && fits(bl.y - h)) {
    FUZZ_CHECK(Same(upper, RECT{bl.x, (LONG)(bl.y - h), (LONG)(bl.x + w), bl.y}));
  } else {
    FUZZ_CHECK(Same(upper, rc));
  }
}

void CheckRect(const CYCLEINFO& ci, const RECT& rc, bool small) {
  CheckBound(ci, rc);
  const int n = ACycle::GCalCycleRect(rc, nullptr, nullptr, &ci);
  FUZZ_CHECK(n >= 0);
  if (On(ci) && !Usable(ci)) FUZZ_CHECK(n == 0);
  const i64 rw = (i64)rc.right - rc.left, rh = (i64)rc.bottom - rc.top;
  const bool nonEmpty = rw >= 1 && rh >= 1;
  const int nc = ACycle::GCycleSituation(&rc, (POINT*)nullptr, &ci);
  FUZZ_CHECK(nc == (Usable(ci) && nonEmpty ? n : 0));
  if (n > kCap) return;
  std::unique_ptr<RECT[]> pieces(new RECT[(size_t)n]);
  std::unique_ptr<POINT[]> offs(new POINT[(size_t)n]);
  std::unique_ptr<POINT[]> corners(new POINT[(size_t)n]);
  const int got = ACycle::GCalCycleRect(rc, pieces.get(), offs.get(), &ci);
  FUZZ_CHECK(got >= 0 && got <= n);
  i64 area = 0;
  const i64 rcArea = nonEmpty && rw <= INT_MAX && rh <= INT_MAX ? rw * rh : -1;
  std::vector<RectPiece> g;
  for (int i = 0; i < got; ++i) {
    const RECT& pc = pieces[i];
    const POINT& off = offs[i];
    FUZZ_CHECK(pc.left >= 0 && pc.left < pc.right && pc.right <= ci.width && pc.top >= 0 && pc.top < pc.bottom &&
               pc.bottom <= ci.height);
    FUZZ_CHECK(off.x >= 0 && off.x + (i64)pc.right - pc.left <= rw && off.y >= 0 &&
               off.y + (i64)pc.bottom - pc.top <= rh);
    const i64 dx = (i64)rc.left + off.x - pc.left, dy = (i64)rc.top + off.y - pc.top;
    if (On(ci)) {
      FUZZ_CHECK(Lattice(dx, dy, ci, ci.way == 1));
    } else {
      FUZZ_CHECK(dx == 0 && dy == 0);
    }
    area += ((i64)pc.right - pc.left) * ((i64)pc.bottom - pc.top);
    FUZZ_CHECK(rcArea < 0 || area <= rcArea);
    g.push_back(RectPiece{pc, off});
  }
  if (Folds(ci) && ExactRectWalk(ci) && rcArea > 0 && n > 0) FUZZ_CHECK(area == rcArea);  // not refused
  if (!On(ci) && Usable(ci) && n == 1) {
    const bool meets = rc.left < ci.width && rc.right > 0 && rc.top < ci.height && rc.bottom > 0 &&
                       rc.left < rc.right && rc.top < rc.bottom;
    FUZZ_CHECK(got == (meets ? 1 : 0));
  }
  // The corners walk the same positions: corner = piece - offset.
  const int gc = ACycle::GCycleSituation(&rc, corners.get(), &ci);
  FUZZ_CHECK(gc == (Usable(ci) && nonEmpty ? got : 0));
  for (int i = 0; i < gc; ++i)
    FUZZ_CHECK(corners[i].x == pieces[i].left - offs[i].x && corners[i].y == pieces[i].top - offs[i].y);
  CArray<RECT> ap;
  CArray<POINT> ao;
  FUZZ_CHECK(ACycle::GCycleSituation(&rc, &ap, &ao, nullptr, &ci) == got);
  for (int i = 0; i < got; ++i) FUZZ_CHECK(Same(ap[i], pieces[i]) && Same(ao[i], offs[i].x, offs[i].y));
  if (!small || !Folds(ci)) return;
  std::sort(g.begin(), g.end());
  const std::vector<RectPiece> want = ModelCutRect(rc, ci);
  if (ExactRectWalk(ci)) {
    FUZZ_CHECK(g == want);
  } else {
    for (const RectPiece& p : g) FUZZ_CHECK(std::binary_search(want.begin(), want.end(), p));
  }
}

// ---------------------------------------------------------------------------
// Copies inside a clipping rectangle

// An upper bound of the lattice positions tried for a box of the given
// extents; 0 when the clip forms refuse the tile.
double Tries(const CYCLEINFO& ci, double ex, double ey) {
  if (!On(ci)) return 1;
  if (!Usable(ci)) return 0;
  const bool way1 = ci.way == 1;
  const double a = way1 ? ex : ey, b = way1 ? ey : ex;
  return (a / (way1 ? ci.width : ci.height) + 3) * (b / (way1 ? ci.height : ci.width) + 3);
}

// The model's index arithmetic stays far inside 64 bits for copies of
// (x0, y0) near the clip: the tile index along the stepping axis, times the
// displacement. The margin covers the run or rectangle that widens the box.
bool ModelFits(const CYCLEINFO& ci, const RECT& clip, i64 x0, i64 y0) {
  if (!On(ci)) return true;
  const bool way1 = ci.way == 1;
  const double a0 = (double)(way1 ? x0 : y0);
  const double lo = (double)(way1 ? clip.left : clip.top) - 1e10;
  const double hi = (double)(way1 ? clip.right : clip.bottom) + 1e10;
  const double index = std::max(std::fabs(lo - a0), std::fabs(hi - a0)) / (way1 ? ci.width : ci.height) + 3;
  return index * (std::fabs((double)ci.param) + 1) < 1e17;
}

// Every entry relative to the clip lies in [0, cw) x [0, ch) (or meets it,
// for starts and corners), in raster order, strictly.
template <class T, class Key>
void CheckOrdered(const CArray<T>& v, Key key) {
  for (int i = 1; i < v.GetSize(); ++i) FUZZ_CHECK(key(v[i - 1]) < key(v[i]));
}

void CheckClip(const CYCLEINFO& ci, const RECT& clip, const APTLENGTH& run, const RECT& rc) {
  const i64 cw = (i64)clip.right - clip.left, ch = (i64)clip.bottom - clip.top;
  const i64 rw = (i64)rc.right - rc.left, rh = (i64)rc.bottom - rc.top;
  const double ex = (double)cw + std::max<double>({0.0, (double)rw, (double)run.length});
  const double ey = (double)ch + std::max<double>(0.0, (double)rh);
  if (cw < 1 || ch < 1 || cw > INT_MAX || ch > INT_MAX || Tries(ci, ex, ey) > kMaxTries) return;
  auto raster = [](const POINT& p) { return std::make_pair((i64)p.y, (i64)p.x); };
  const bool way1 = ci.way == 1;
  const bool usable = !On(ci) || Usable(ci);

  // Points.
  const POINT pt = {run.x, run.y};
  CArray<POINT> pts;
  const int np = ACycle::GCycleSituation(&pt, pts, &clip, &ci);
  FUZZ_CHECK(np == pts.GetSize() && (usable || np == 0));
  CheckOrdered(pts, raster);
  for (const POINT& q : pts) {
    FUZZ_CHECK(q.x >= 0 && q.x < cw && q.y >= 0 && q.y < ch);
    const i64 dx = (i64)clip.left + q.x - pt.x, dy = (i64)clip.top + q.y - pt.y;
    FUZZ_CHECK(On(ci) ? Lattice(dx, dy, ci, way1) : dx == 0 && dy == 0);
  }
  POINT first = pt;
  FUZZ_CHECK(ACycle::GCycleSituation(&first, &clip, &ci) == np);
  FUZZ_CHECK(np == 0 ? Same(first, pt.x, pt.y) : Same(first, pts[0].x, pts[0].y));

  // Run starts and pieces.
  CArray<POINT> starts;
  const int ns = ACycle::GCycleSituation(&run, starts, &clip, &ci);
  FUZZ_CHECK(ns == starts.GetSize() && (run.length >= 1 || ns == 0));
  CheckOrdered(starts, raster);
  for (const POINT& s : starts) {
    FUZZ_CHECK(s.x < cw && (i64)s.x + run.length > 0 && s.y >= 0 && s.y < ch);
    const i64 dx = (i64)clip.left + s.x - run.x, dy = (i64)clip.top + s.y - run.y;
    FUZZ_CHECK(On(ci) ? Lattice(dx, dy, ci, way1) : dx == 0 && dy == 0);
  }
  CArray<APTLENGTH> rp;
  CArray<int> ro;
  const bool isTile = clip.left == 0 && clip.top == 0 && clip.right == ci.width && clip.bottom == ci.height;
  const int nrp = ACycle::GCycleSituation(&run, &rp, &ro, &clip, &ci);
  if (!isTile) {
    FUZZ_CHECK(nrp == ns && rp.GetSize() == ns && ro.GetSize() == ns);
    for (int i = 0; i < ns; ++i) {
      FUZZ_CHECK(rp[i].x >= 0 && rp[i].length >= 1 && (i64)rp[i].x + rp[i].length <= cw && rp[i].y == starts[i].y);
      FUZZ_CHECK((i64)rp[i].x - ro[i] == starts[i].x);
    }
  }

  // Rectangle corners and pieces.
  CArray<POINT> corners;
  const int nr = ACycle::GCycleSituation(&rc, corners, &clip, &ci);
  const bool rcUsable = rw >= 1 && rh >= 1 && rw <= INT_MAX && rh <= INT_MAX;
  FUZZ_CHECK(nr == corners.GetSize() && (rcUsable || nr == 0));
  CheckOrdered(corners, raster);
  for (const POINT& c : corners) {
    FUZZ_CHECK(c.x < cw && (i64)c.x + rw > 0 && c.y < ch && (i64)c.y + rh > 0);
    const i64 dx = (i64)clip.left + c.x - rc.left, dy = (i64)clip.top + c.y - rc.top;
    FUZZ_CHECK(On(ci) ? Lattice(dx, dy, ci, way1) : dx == 0 && dy == 0);
  }
  CArray<RECT> cp;
  CArray<POINT> co;
  const int ncp = ACycle::GCycleSituation(&rc, &cp, &co, &clip, &ci);
  if (!isTile) {
    FUZZ_CHECK(ncp == nr);
    for (int i = 0; i < nr; ++i) {
      FUZZ_CHECK(cp[i].left >= 0 && cp[i].left < cp[i].right && cp[i].right <= cw && cp[i].top >= 0 &&
                 cp[i].top < cp[i].bottom && cp[i].bottom <= ch);
      FUZZ_CHECK(cp[i].left - co[i].x == corners[i].x && cp[i].top - co[i].y == corners[i].y);
    }
  }
  if (rcUsable) FUZZ_CHECK((ACycle::GIsIntersectant(&rc, &clip, &ci) != 0) == (nr > 0));

  // Completeness against the lattice model.
  if (!usable) return;
  const i64 cl = clip.left, ct = clip.top, cr = clip.right, cb = clip.bottom;
  if (ModelFits(ci, clip, pt.x, pt.y)) {
    const auto want = ModelCopies(pt.x, pt.y, cl, cr - 1, ct, cb - 1, ci);
    FUZZ_CHECK(np == (int)want.size());
    for (int i = 0; i < np; ++i) FUZZ_CHECK(pts[i].x + cl == want[i].second && pts[i].y + ct == want[i].first);
  }
  if (run.length >= 1 && ModelFits(ci, clip, run.x, run.y)) {
    const auto want = ModelCopies(run.x, run.y, cl - run.length + 1, cr - 1, ct, cb - 1, ci);
    FUZZ_CHECK(ns == (int)want.size());
    for (int i = 0; i < ns; ++i)
      FUZZ_CHECK(starts[i].x + cl == want[i].second && starts[i].y + ct == want[i].first);
  }
  if (rcUsable && ModelFits(ci, clip, rc.left, rc.top)) {
    const auto want = ModelCopies(rc.left, rc.top, cl - rw + 1, cr - 1, ct - rh + 1, cb - 1, ci);
    FUZZ_CHECK(nr == (int)want.size());
    for (int i = 0; i < nr; ++i)
      FUZZ_CHECK(corners[i].x + cl == want[i].second && corners[i].y + ct == want[i].first);
  }
}

// ---------------------------------------------------------------------------
// Scaling and the double-precision record

int Scaled(int v, DWORD packed) {
  const i64 num = HIWORD(packed), den = LOWORD(packed) ? LOWORD(packed) : 1;
  if (num == den) return v;
  const i64 r = (i64)v * num / den;
  return (int)std::min<i64>(INT_MAX, std::max<i64>(INT_MIN, r));
}

bool RatioIsOne(DWORD packed) { return HIWORD(packed) == (LOWORD(packed) ? LOWORD(packed) : 1); }

void CheckScale(const CYCLEINFO& ci, DWORD rx, DWORD ry, int negate) {
  auto neg = [&](int v) { return negate ? (v == INT_MIN ? INT_MAX : -v) : v; };
  CYCLEPARAMS out;
  const BOOL one = ACycle::GScaleCycleParams(&out, &ci, rx, negate);
  FUZZ_CHECK(out.width == Scaled(ci.width, rx) && out.height == Scaled(ci.height, rx) &&
             out.param == neg(Scaled(ci.param, rx)));
  FUZZ_CHECK((one != 0) == (!RatioIsOne(rx) || negate != 0));
  const BOOL two = ACycle::GScaleCycleParams(&out, &ci, rx, ry, negate);
  FUZZ_CHECK(out.width == Scaled(ci.width, rx) && out.height == Scaled(ci.height, ry) &&
             out.param == neg(Scaled(ci.param, ci.way == 2 ? rx : ry)));
  FUZZ_CHECK((two != 0) == (!RatioIsOne(rx) || !RatioIsOne(ry) || negate != 0));
  // The member forms scale in place and restore.
  ACycle obj(ci);
  CYCLEPARAMS saved;
  obj.ScaleCycleParams(rx, ry, &saved, negate);
  FUZZ_CHECK(obj.CycleWidth() == out.width && obj.CycleHeight() == out.height && obj.CycleParam() == out.param);
  obj.TRestoreParams(&saved);
  FUZZ_CHECK(obj.CycleWidth() == ci.width && obj.CycleHeight() == ci.height && obj.CycleParam() == ci.param);
}

void CheckFloat(Reader& r) {
  CYCLEINFO_FLOAT f;
  f.width = r.AnyDouble();
  f.height = r.AnyDouble();
  f.param = r.AnyDouble();
  f.onOff = r.Byte() % 2;
  f.way = 1 + r.Byte() % 2;
  const double sx = r.Byte() % 2 ? 1.0 : r.AnyDouble(), sy = r.Byte() % 2 ? 1.0 : r.AnyDouble();
  CYCLEINFO out;
  out.width = 12345;
  g_Error.ClearError();
  const BOOL ok = ACycle::GCycleInfoFromFloat(&out, &f, sx, sy);
  if (!ok) {
    FUZZ_CHECK(out.width == 12345 && g_Error.IsError());
    const bool scales = std::isfinite(sx) && sx > 0 && std::isfinite(sy) && sy > 0;
    if (scales) {
      // Some value is not finite or does not round into the int range.
      const double v[3] = {f.width * sx, f.height * sy, f.param * (f.way == 2 ? sx : sy)};
      bool outside = false;
      for (double x : v) outside = outside || !(std::fabs(x) < 2147483647.0);
      FUZZ_CHECK(outside);
    }
    return;
  }
  FUZZ_CHECK(std::isfinite(sx) && sx > 0 && std::isfinite(sy) && sy > 0);
  // Rounded half away from zero with the nudge: within a half of the value.
  auto closeTo = [](int got, double v) { return std::fabs((double)got - v) <= 0.5 + 1e-9; };
  FUZZ_CHECK(closeTo(out.width, f.width * sx) && closeTo(out.height, f.height * sy) &&
             closeTo(out.param, f.param * (f.way == 2 ? sx : sy)));
  FUZZ_CHECK(out.onOff == f.onOff && out.way == f.way);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const bool small = r.Byte() % 2 == 0;
  const CYCLEINFO ci = small ? SmallCycle(r) : AnyCycle(r);
  auto coord = [&]() { return small ? (int)(r.U16() % 601) - 300 : r.AnyInt(); };
  auto length = [&]() { return small ? (int)(r.Byte() % 220) - 10 : r.AnyInt(); };
  for (int op = 0; op < 16 && r.n > 0; ++op) {
    switch (r.Byte() % 7) {
      case 0: {
        const int x = coord(), y = coord();
        CheckPoint(ci, x, y, small);
        break;
      }
      case 1: {
        const double x = r.AnyDouble(), y = r.AnyDouble();
        CheckPointD(ci, x, y);
        break;
      }
      case 2: {
        APTLENGTH run;
        run.x = coord();
        run.y = coord();
        run.length = length();
        CheckRun(ci, run, small);
        break;
      }
      case 3: {
        RECT rc;
        rc.left = coord();
        rc.top = coord();
        if (small) {
          rc.right = rc.left + (int)(r.Byte() % 44) - 2;
          rc.bottom = rc.top + (int)(r.Byte() % 44) - 2;
        } else {
          rc.right = r.AnyInt();
          rc.bottom = r.AnyInt();
        }
        CheckRect(ci, rc, small);
        break;
      }
      case 4: {
        RECT clip, rc;
        APTLENGTH run;
        if (small) {
          clip.left = (int)(r.Byte() % 241) - 120;
          clip.top = (int)(r.Byte() % 241) - 120;
          clip.right = clip.left + (int)(r.Byte() % 64);
          clip.bottom = clip.top + (int)(r.Byte() % 64);
          run.x = (int)(r.Byte() % 41) - 20;
          run.y = (int)(r.Byte() % 41) - 20;
          run.length = (int)(r.Byte() % 40) - 2;
          rc.left = run.x;
          rc.top = run.y;
          rc.right = rc.left + (int)(r.Byte() % 20) - 2;
          rc.bottom = rc.top + (int)(r.Byte() % 20) - 2;
        } else {
          clip.left = r.AnyInt();
          clip.top = r.AnyInt();
          clip.right = r.AnyInt();
          clip.bottom = r.AnyInt();
          run.x = r.AnyInt();
          run.y = r.AnyInt();
          run.length = r.AnyInt();
          rc.left = r.AnyInt();
          rc.top = r.AnyInt();
          rc.right = r.AnyInt();
          rc.bottom = r.AnyInt();
        }
        CheckClip(ci, clip, run, rc);
        break;
      }
      case 5: {
        const DWORD rx = r.U32(), ry = r.U32();
        CheckScale(ci, rx, ry, r.Byte() % 2);
        break;
      }
      case 6:
        CheckFloat(r);
        break;
    }
  }
  return 0;
}
