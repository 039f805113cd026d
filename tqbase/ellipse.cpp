// ellipse.cpp - CEllipse: the integer midpoint cores for circles and
// ellipses, the upright ellipse with its quarter-turn snapping and even/odd
// width rules, rectangles, and the shapes at general angles.
//
// The run list and the RSRLINE forms share one templated producer that
// writes straight into the caller's vector (POINT and RSRUN are both two
// 32-bit ints, x1 then x2), so the region form costs no copy.
//
// Rules of this library that the code below relies on:
//  - the centre column and row are the floor of the rectangle's midpoint,
//    (left + right) / 2 rounded toward minus infinity, so a shape moved by
//    (dx, dy) rasterizes to the same runs moved by (dx, dy), and an ellipse
//    stays inscribed in its rectangle also at negative coordinates;
//  - an angle within the snapping tolerance of a full turn (just below 2 pi
//    after normalisation, such as -0.001) snaps to 0 like one just above 0;
//  - under a quarter turn the shape is the upright shape of the exchanged
//    rectangle: the exchanged width decides the even/odd run rule and the
//    exchanged height (the rectangle's width) decides whether the centre row
//    is doubled, so the result has exactly as many rows as the rectangle is
//    wide;
//  - the midpoint cores form their products in 64-bit integers: identical
//    to 32-bit products wherever those fit (semi-axes below about a
//    thousand pixels), and still exact for larger shapes.
#include "tqbase/ellipse.h"

#include "tqbase/errorinfo.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

// Computed once at start-up from the library's value of pi.
const double kPi = 3.141592653589793;
const double kTwoPi = 2.0 * kPi;
const double kHalfPi = kPi / 2.0;
const double kThreeHalfPi = 3.0 * kPi / 2.0;
// The snapping tolerance is the single-precision 0.005 (0.004999999888241291).
const double kSnap = (double)0.005f;

typedef long long i64;

enum AngleClass { kUpright, kQuarter, kGeneral, kInvalid };

// Brings angle into [0, 2 pi) and classifies it.
AngleClass ClassifyAngle(double angle) {
  if (!std::isfinite(angle)) return kInvalid;
  if (angle < 0.0 || angle >= kTwoPi) {
    angle -= std::floor(angle / kTwoPi) * kTwoPi;
    // Huge angles lose the fraction in the product above; fmod keeps it.
    if (!(angle >= 0.0 && angle < kTwoPi)) {
      angle = std::fmod(angle, kTwoPi);
      if (angle < 0.0) angle += kTwoPi;
    }
  }
  if (std::fabs(angle) < kSnap || std::fabs(angle - kPi) < kSnap ||
      std::fabs(angle - kTwoPi) < kSnap)
    return kUpright;
  if (std::fabs(angle - kHalfPi) < kSnap || std::fabs(angle - kThreeHalfPi) < kSnap)
    return kQuarter;
  return kGeneral;
}

i64 FloorHalf(i64 v) { return v >= 0 ? v / 2 : -((-v + 1) / 2); }

// POINT (x, y) and RSRUN (x1, x2) are both a run's left and right ends.
template <class RUN>
RUN MakeRun(i64 x1, i64 x2) {
  return RUN{(int32_t)x1, (int32_t)x2};
}
inline void RunEnds(const POINT& r, int32_t* x1, int32_t* x2) { *x1 = r.x; *x2 = r.y; }
inline void RunEnds(const RSRUN& r, int32_t* x1, int32_t* x2) { *x1 = r.x1; *x2 = r.x2; }

// Sets the half-open box of runs that start at row first.
template <class RUN>
void SetBox(const std::vector<RUN>& runs, i64 first, RECT* box) {
  if (!box) return;
  if (runs.empty()) {
    box->left = box->top = box->right = box->bottom = 0;
    return;
  }
  int32_t lo = std::numeric_limits<int32_t>::max(), hi = std::numeric_limits<int32_t>::min();
  for (const RUN& r : runs) {
    int32_t x1, x2;
    RunEnds(r, &x1, &x2);
    lo = std::min(lo, x1);
    hi = std::max(hi, x2);
  }
  box->left = lo;
  box->top = (LONG)first;
  box->right = (LONG)((i64)hi + 1);
  box->bottom = (LONG)(first + (i64)runs.size());
}

// A rectangle without area is the empty shape: no runs, an all-zero box,
// and its top as the first row.
template <class RUN>
bool NoArea(const RECT& rc, std::vector<RUN>& runs, RECT* box) {
  if ((i64)rc.right - rc.left >= 1 && (i64)rc.bottom - rc.top >= 1) return false;
  runs.clear();
  SetBox(runs, rc.top, box);
  return true;
}

// Failure that is not an allocation failure: the text is already recorded.
struct ShapeFailure {};

[[noreturn]] void Fail(const char* text) {
  g_Error.SetLastError("%s", text);
  throw ShapeFailure();
}

const i64 kMinCoord = std::numeric_limits<int32_t>::min();
const i64 kMaxCoord = std::numeric_limits<int32_t>::max();

// A piece's rows and runs are counted in ints.
void CheckRows(i64 rows) {
  if (rows > kMaxCoord) Fail("CEllipse: the shape has more rows than a region can hold");
}

// Pixels whose centres lie in a convex shape, one run per row. section(yc,
// &xa, &xb) gives the shape's cross-section on the horizontal line yc (a
// point when the line only touches it). Rows are those whose centre lines
// meet [ymin, ymax]; a row whose cross-section holds no pixel centre (a
// sliver at a pointed end) takes the pixel under the section's midpoint, so
// that no row inside the shape is left without its run. Returns the first
// row.
template <class RUN, class Section>
i64 RasterConvex(double ymin, double ymax, double xmin, double xmax, Section section,
                 std::vector<RUN>& runs) {
  if (!(ymin - 1.0 > (double)kMinCoord && ymax + 1.0 < (double)kMaxCoord &&
        xmin - 1.0 > (double)kMinCoord && xmax + 1.0 < (double)kMaxCoord))
    Fail("CEllipse: the turned shape exceeds the 32-bit coordinate range");
  i64 y0 = (i64)std::ceil(ymin - 0.5);
  i64 y1 = (i64)std::floor(ymax - 0.5);
  if (y1 < y0) y0 = y1 = (i64)std::floor((ymin + ymax) * 0.5);
  CheckRows(y1 - y0 + 1);
  runs.clear();
  runs.reserve((size_t)(y1 - y0 + 1));
  for (i64 y = y0; y <= y1; ++y) {
    double yc = (double)y + 0.5;
    if (yc < ymin) yc = ymin;  // only for the single row of a tiny shape
    if (yc > ymax) yc = ymax;
    double xa, xb;
    section(yc, &xa, &xb);
    i64 x1 = (i64)std::ceil(xa - 0.5);
    i64 x2 = (i64)std::floor(xb - 0.5);
    if (x2 < x1) x1 = x2 = (i64)std::floor((xa + xb) * 0.5);
    x1 = std::max<i64>(x1, (i64)std::floor(xmin));
    x2 = std::min<i64>(x2, (i64)std::floor(xmax));
    if (x2 < x1) x2 = x1;
    runs.push_back(MakeRun<RUN>(x1, x2));
  }
  return y0;
}

// The rectangle [l, r) x [t, b) turned by angle (a general one) about its
// centre.
template <class RUN>
i64 RasterTurnedRect(i64 l, i64 t, i64 r, i64 b, double angle, std::vector<RUN>& runs) {
  const double xc = ((double)l + (double)r) * 0.5, yc = ((double)t + (double)b) * 0.5;
  const double hw = ((double)r - (double)l) * 0.5, hh = ((double)b - (double)t) * 0.5;
  const double c = std::cos(angle), s = std::sin(angle);
  double px[4], py[4];
  const double us[4] = {-hw, hw, hw, -hw}, vs[4] = {-hh, -hh, hh, hh};
  for (int i = 0; i < 4; ++i) {
    px[i] = xc + us[i] * c - vs[i] * s;
    py[i] = yc + us[i] * s + vs[i] * c;
  }
  double ymin = *std::min_element(py, py + 4), ymax = *std::max_element(py, py + 4);
  double xmin = *std::min_element(px, px + 4), xmax = *std::max_element(px, px + 4);
  auto section = [&](double y, double* xa, double* xb) {
    double lo = xmax, hi = xmin;
    for (int i = 0; i < 4; ++i) {
      int j = (i + 1) & 3;
      double ya = py[i], yb = py[j];
      if (ya == yb) {
        if (y == ya) {
          lo = std::min(lo, std::min(px[i], px[j]));
          hi = std::max(hi, std::max(px[i], px[j]));
        }
        continue;
      }
      if ((y < ya && y < yb) || (y > ya && y > yb)) continue;
      double x = px[i] + (y - ya) * (px[j] - px[i]) / (yb - ya);
      lo = std::min(lo, x);
      hi = std::max(hi, x);
    }
    if (lo > hi) lo = hi = xc;  // unreachable for a line within [ymin, ymax]
    *xa = lo;
    *xb = hi;
  };
  return RasterConvex(ymin, ymax, xmin, xmax, section, runs);
}

// The ellipse inscribed in [l, r) x [t, b), turned by angle about its centre.
template <class RUN>
i64 RasterTurnedEllipse(i64 l, i64 t, i64 r, i64 b, double angle, std::vector<RUN>& runs) {
  const double xc = ((double)l + (double)r) * 0.5, yc = ((double)t + (double)b) * 0.5;
  const double A = ((double)r - (double)l) * 0.5, B = ((double)b - (double)t) * 0.5;
  const double c = std::cos(angle), s = std::sin(angle);
  const double ia = 1.0 / (A * A), ib = 1.0 / (B * B);
  // In centred coordinates the ellipse is P x^2 + 2 Q x y + R y^2 <= 1.
  const double P = c * c * ia + s * s * ib;
  const double Q = c * s * (ia - ib);
  const double R = s * s * ia + c * c * ib;
  const double hy = std::sqrt(A * A * s * s + B * B * c * c);
  const double hx = std::sqrt(A * A * c * c + B * B * s * s);
  auto section = [&](double y, double* xa, double* xb) {
    double dy = y - yc;
    double disc = Q * Q * dy * dy - P * (R * dy * dy - 1.0);
    double root = disc > 0.0 ? std::sqrt(disc) : 0.0;
    double mid = -Q * dy / P;
    *xa = xc + mid - root / P;
    *xb = xc + mid + root / P;
  };
  return RasterConvex(yc - hy, yc + hy, xc - hx, xc + hx, section, runs);
}

// Rectangles: upright, a quarter turn, or a general angle.
template <class RUN>
i64 RasterRect(const RECT& rc, double angle, std::vector<RUN>& runs, RECT* box) {
  if (NoArea(rc, runs, box)) return rc.top;
  const i64 l = rc.left, t = rc.top, r = rc.right, b = rc.bottom;
  const i64 w = r - l, h = b - t;
  AngleClass cls = ClassifyAngle(angle);
  if (cls == kInvalid) Fail("CEllipse: the angle is not a finite number");
  CheckRows(std::max(w, h));
  i64 first;
  if (cls == kUpright || (cls == kQuarter && w == h)) {
    runs.assign((size_t)h, MakeRun<RUN>(l, r - 1));
    first = t;
  } else if (cls == kQuarter) {
    // The exchanged rectangle, placed about the centre pixel as the upright
    // ellipse places its runs: an even extent reaches one further left, and
    // one further down.
    const i64 cx = FloorHalf(l + r), cy = FloorHalf(t + b);
    const i64 x1 = (h % 2 == 0) ? cx - h / 2 : cx - (h - 1) / 2;
    const i64 x2 = x1 + h - 1;
    first = (w % 2 == 0) ? cy - (w / 2 - 1) : cy - (w - 1) / 2;
    if (first < kMinCoord || first + w - 1 > kMaxCoord || x1 < kMinCoord || x2 > kMaxCoord)
      Fail("CEllipse: the turned shape exceeds the 32-bit coordinate range");
    runs.assign((size_t)w, MakeRun<RUN>(x1, x2));
  } else {
    first = RasterTurnedRect(l, t, r, b, angle, runs);
  }
  SetBox(runs, first, box);
  return first;
}

// The walk of MidPointCircle, into a plain vector.
void CircleWidths(int r, std::vector<int>& w) {
  w.clear();
  if (r <= 0) return;
  w.assign((size_t)r + 1, 0);
  // The second octant is walked from the top (x = 0, y = r). Rows finished
  // there fill the list from the top; the y reached at each x is the width
  // of the mirrored row at distance x from the centre and fills the list
  // from the bottom (the side list, stored in place: side[x] at r - x).
  // The side list opens with the starting y itself (x = 0: the centre row
  // spans the radius); only so do the finished rows and the side entries
  // always add up to the r + 1 rows of the half circle (a radius of 1
  // finishes one row and has one side entry).
  i64 x = 0, y = r, d = 1 - (i64)r, dE = 3, dSE = 2 - 2 * (i64)r;
  int rows = 0, side = 1;
  w[(size_t)r] = r;  // side[0]: the centre row
  while (x < y) {
    if (d < 0) {
      d += dE;
      dE += 2;
      x += 1;
    } else {
      d += dE + dSE;
      dE += 2;
      dSE += 2;
      w[(size_t)rows++] = (int)x;
      x += 1;
      y -= 1;
    }
    // A step that carried x past y is dropped: its row was just finished.
    if (x <= y) {
      w[(size_t)(r - x)] = (int)y;
      ++side;
    }
  }
  ASSERT(rows + side == r + 1);
}

// The walk of MidPointEllipse, into a plain vector.
void EllipseWidths(int ia, int ib, std::vector<int>& w) {
  w.clear();
  if (ia < 0 || ib < 0) return;
  const i64 a2 = (i64)ia * ia, b2 = (i64)ib * ib;
  const size_t cap = (size_t)ib + 1;
  w.assign(cap, 0);
  size_t n = 0;
  i64 x = 0, y = ib;
  double d1 = (double)b2 + (double)a2 * (0.25 - (double)ib);
  while ((double)a2 * ((double)y - 0.5) > (double)(b2 * (x + 1))) {
    if (d1 >= 0) {
      d1 += (double)(b2 * (2 * x + 3) + a2 * (2 - 2 * y));
      if (n < cap) w[n++] = (int)x;
      x += 1;
      y -= 1;
    } else {
      d1 += (double)(b2 * (2 * x + 3));
      x += 1;
    }
  }
  double d2 = (double)b2 * (((double)x + 0.5) * ((double)x + 0.5) - (double)a2) +
              (double)(a2 * (y - 1) * (y - 1));
  for (; y >= 1; --y) {
    if (d2 >= 0) {
      d2 += (double)(a2 * (3 - 2 * y));
      if (n < cap) w[n++] = (int)x;
    } else {
      d2 += (double)(b2 * (2 * x + 2) + a2 * (3 - 2 * y));
      if (n < cap) w[n++] = (int)x;
      x += 1;
    }
  }
  if (n < cap) w[n++] = (int)x;
  ASSERT(n == cap);
  w.resize(n);
}

// Scratch widths, reused across calls on one thread.
std::vector<int>& Scratch() {
  thread_local std::vector<int> widths;
  return widths;
}

template <class RUN>
i64 RasterEllipse(const RECT& rc, double angle, std::vector<RUN>& runs, RECT* box) {
  if (NoArea(rc, runs, box)) return rc.top;
  const i64 l = rc.left, t = rc.top, r = rc.right, b = rc.bottom;
  const i64 w = r - l, h = b - t;
  if (w == 1 && h == 1) {
    runs.assign(1, MakeRun<RUN>(l, l));
    SetBox(runs, t, box);
    return t;
  }
  if (w < 3 || h < 3) return RasterRect(rc, angle, runs, box);
  CheckRows(std::max(w, h));

  const int a = (int)(w / 2 - (w % 2 == 0 ? 1 : 0));
  const int bb = (int)(h / 2 - (h % 2 == 0 ? 1 : 0));
  const i64 cx = FloorHalf(l + r), cy = FloorHalf(t + b);
  std::vector<int>& widths = Scratch();
  i64 first = t;
  i64 across = w, down = h;  // extents of the shape as drawn
  if (w == h) {
    CircleWidths(a, widths);
  } else {
    AngleClass cls = ClassifyAngle(angle);
    if (cls == kInvalid) Fail("CEllipse: the angle is not a finite number");
    if (cls == kUpright) {
      EllipseWidths(a, bb, widths);
    } else if (cls == kQuarter) {
      EllipseWidths(bb, a, widths);
      across = h;
      down = w;
      first = cy - a;
    } else {
      i64 f = RasterTurnedEllipse(l, t, r, b, angle, runs);
      SetBox(runs, f, box);
      return f;
    }
  }

  const size_t n = widths.size();
  const size_t total = (down % 2 == 0) ? 2 * n : 2 * n - 1;
  if (first < kMinCoord || first + (i64)total - 1 > kMaxCoord ||
      cx - across / 2 < kMinCoord || cx + across / 2 > kMaxCoord)
    Fail("CEllipse: the turned shape exceeds the 32-bit coordinate range");
  runs.resize(total);
  RUN* out = runs.data();
  const i64 extra = (across % 2 == 0) ? 1 : 0;  // an even extent reaches one further left
  for (size_t k = 0; k < n; ++k) {
    const i64 wk = widths[k];
    out[k] = MakeRun<RUN>(cx - wk - extra, cx + wk);
  }
  // The lower half mirrors the upper; the centre row of an odd height is
  // not doubled.
  for (size_t k = n; k < total; ++k) out[k] = out[total - 1 - k];
  if (box) {
    // The widest row is the centre one: widths never shrink towards it.
    const i64 wc = widths[n - 1];
    box->left = (LONG)(cx - wc - extra);
    box->right = (LONG)(cx + wc + 1);
    box->top = (LONG)first;
    box->bottom = (LONG)(first + (i64)total);
  }
  return first;
}

// Runs the producer and turns failures into the empty result. Returns the
// first row, or the rectangle's top on failure.
template <class Producer, class RUN>
int Guarded(const RECT& rc, std::vector<RUN>& runs, RECT* box, Producer produce, bool* ok) {
  *ok = false;
  try {
    i64 first = produce();
    *ok = true;
    return (int)first;
  } catch (const std::bad_alloc&) {
    g_Error.SetLastError("CEllipse: not enough memory for the runs of the shape");
  } catch (const std::length_error&) {
    g_Error.SetLastError("CEllipse: not enough memory for the runs of the shape");
  } catch (const ShapeFailure&) {
    // text already recorded
  }
  std::vector<RUN>().swap(runs);
  if (box) box->left = box->top = box->right = box->bottom = 0;
  return rc.top;
}

// The region form: runs and box straight into the piece, the box made
// inclusive, one run per row. An empty shape is the valid empty piece with
// an all-zero box: shrinking its empty box by one would make it invalid.
template <class Producer>
BOOL IntoPiece(const RECT& rc, RSRLINE& rst, Producer produce) {
  RECT box;
  bool ok;
  std::vector<RSRUN>& runs = rst.arRun.vec();
  Guarded(rc, runs, &box, [&] { return produce(runs, &box); }, &ok);
  if (ok && !runs.empty()) {
    try {
      rst.arCount.vec().assign(runs.size(), 1);
      box.right -= 1;
      box.bottom -= 1;
      rst.rcBox = box;
      return TRUE;
    } catch (const std::bad_alloc&) {
      g_Error.SetLastError("CEllipse: not enough memory for the runs of the shape");
    }
  }
  rst.arRun.RemoveAll();
  rst.arCount.RemoveAll();
  rst.rcBox.left = rst.rcBox.top = rst.rcBox.right = rst.rcBox.bottom = 0;
  return FALSE;
}

// The array form: the runs straight into the caller's array.
template <class Producer>
int IntoArray(const RECT& rc, CArray<POINT, POINT>& runs, RECT* box, Producer produce) {
  bool ok;
  std::vector<POINT>& v = runs.vec();
  return Guarded(rc, v, box, [&] { return produce(v, box); }, &ok);
}

// The two upright-or-turned shapes as producers for either run type.
auto EllipseOf(const RECT& rc, double angle) {
  return [&rc, angle](auto& runs, RECT* box) { return RasterEllipse(rc, angle, runs, box); };
}
auto RectOf(const RECT& rc, double angle) {
  return [&rc, angle](auto& runs, RECT* box) { return RasterRect(rc, angle, runs, box); };
}

}  // namespace

void CEllipse::MidPointCircle(int r, CArray<int, int>& widths) {
  try {
    CircleWidths(r, widths.vec());
  } catch (const std::bad_alloc&) {
    widths.RemoveAll();
    g_Error.SetLastError("CEllipse: not enough memory for a circle of radius %d", r);
  }
}

void CEllipse::MidPointEllipse(int a, int b, CArray<int, int>& widths) {
  try {
    EllipseWidths(a, b, widths.vec());
  } catch (const std::bad_alloc&) {
    widths.RemoveAll();
    g_Error.SetLastError("CEllipse: not enough memory for an ellipse of %d x %d", a, b);
  }
}

int CEllipse::MidPointEllipseLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                                  RECT* box) {
  return IntoArray(rect, runs, box, [&](std::vector<POINT>& v, RECT* vbox) {
    if (!std::isfinite(angle)) Fail("CEllipse: the angle is not a finite number");
    if (NoArea(rect, v, vbox)) return (i64)rect.top;
    const i64 l = rect.left, t = rect.top, r = rect.right, b = rect.bottom;
    i64 f = RasterTurnedEllipse(l, t, r, b, angle, v);
    SetBox(v, f, vbox);
    return f;
  });
}

int CEllipse::EllipseRasterLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                                RECT* box) {
  return IntoArray(rect, runs, box, EllipseOf(rect, angle));
}

BOOL CEllipse::EllipseRasterLine(const RECT& rect, double angle, RSRLINE& rst) {
  return IntoPiece(rect, rst, EllipseOf(rect, angle));
}

int CEllipse::RectRasterLine(const RECT& rect, double angle, CArray<POINT, POINT>& runs,
                             RECT* box) {
  return IntoArray(rect, runs, box, RectOf(rect, angle));
}

BOOL CEllipse::RectRasterLine(const RECT& rect, double angle, RSRLINE& rst) {
  return IntoPiece(rect, rst, RectOf(rect, angle));
}
