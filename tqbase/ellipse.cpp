// ellipse.cpp - CEllipse: the integer midpoint cores for circles and
// ellipses, the upright ellipse with its quarter-turn snapping and even/odd
// width rules, rectangles, directions, and the pixel-centre
// rasterizers that every turned or transformed shape goes through: turned
// ellipses, convex polygons of up to four corners, and one-pixel lines.
// The ellipse geometry (symmetries, parameters, borders, cross-sections)
// lives in ellipse_geometry.cpp.
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
//    thousand pixels), and still exact for larger shapes;
//  - a pixel belongs to a shape at a general angle when its centre lies
//    inside, a centre on a left or top edge being inside and one on a right
//    or bottom edge outside; a row crossed without a centre inside keeps the
//    pixel under the middle of the crossing (ellipse.h states the rule for
//    users).
//
// The general rasterizers cost a few multiplications per row and nothing
// per pixel (bench_ellipse: BM_EllipseTransformed_Ours,
// BM_RectTransformed_Ours, BM_Line_Ours).
#include "ellipse_core.h"

#include "crstlines_core.h"

#include <algorithm>

namespace tqell {

namespace {

// The snapping tolerance is the single-precision 0.005 (0.004999999888241291).
const double kSnap = (double)0.005f;

// The library's one tolerance for directions.
const double kEps = 1e-10;

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

// A rectangle without area is the empty shape: no runs, an all-zero box,
// and its top as the first row.
template <class RUN>
bool NoArea(const RECT& rc, std::vector<RUN>& runs, RECT* box) {
  if ((i64)rc.right - rc.left >= 1 && (i64)rc.bottom - rc.top >= 1) return false;
  runs.clear();
  ZeroBox(box);
  return true;
}

// ---- the pixel-centre rasterizer ---------------------------------------------------

// Pixels whose centres lie in a convex shape, one run per row.
// section(yc, &xa, &xb) gives the shape's cross-section on the horizontal
// line yc, called with yc growing. Rows are those whose centre lines meet
// [ymin, ymax) (a shape between two centre lines keeps the row under its
// middle, cut on its edge nearest to that row's centre line); a row whose
// cross-section holds no pixel centre takes the pixel under the section's
// middle (rule 3 of ellipse.h). The bounds have passed
// PixelBox, so every pixel fits the 32-bit plane.
template <class RUN, class Section>
i64 RasterSections(const Bounds& bd, Section& section, std::vector<RUN>& runs, RECT* box) {
  i64 y0 = CeilI(bd.ymin - 0.5), y1 = CeilI(bd.ymax - 0.5) - 1;
  if (y1 < y0) y0 = y1 = FloorI((bd.ymin + bd.ymax) * 0.5);
  CheckRows(y1 - y0 + 1);
  const size_t n = (size_t)(y1 - y0 + 1);
  runs.resize(n);
  RUN* out = runs.data();
  const i64 lo = FloorI(bd.xmin), hi = FloorI(bd.xmax);
  i64 left = hi, right = lo;
  double yc = (double)y0 + 0.5;
  for (size_t k = 0; k < n; ++k, yc += 1.0) {
    double y = yc < bd.ymin ? bd.ymin : (yc > bd.ymax ? bd.ymax : yc);
    double xa, xb;
    section(y, &xa, &xb);
    if (!(xa >= bd.xmin)) xa = bd.xmin;  // also a NaN, which no section makes
    if (!(xb <= bd.xmax)) xb = bd.xmax;
    i64 x1 = CeilI(xa - 0.5), x2 = CeilI(xb - 0.5) - 1;
    if (x2 < x1) x1 = x2 = FloorI((xa + xb) * 0.5);
    x1 = std::min(std::max(x1, lo), hi);
    x2 = std::min(std::max(x2, x1), hi);
    out[k] = MakeRun<RUN>(x1, x2);
    left = std::min(left, x1);
    right = std::max(right, x2);
  }
  if (box) {
    box->left = (LONG)left;
    box->top = (LONG)y0;
    box->right = (LONG)(right + 1);
    box->bottom = (LONG)(y1 + 1);
  }
  return y0;
}

// Checked bounds: the failure is recorded and thrown.
void CheckBounds(const Bounds& bd) {
  RECT border;
  const char* why = nullptr;
  if (!PixelBox(bd, &border, &why)) Fail(why);
}

// ---- convex polygons ------------------------------------------------------------------

double Cross(const POINTD& o, const POINTD& a, const POINTD& b) {
  return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

// The convex hull of n <= 4 points (monotone chain), corners only: 1 point
// when all are equal, 2 when all lie on a line. Returns the hull's size.
int Hull(const POINTD* pts, int n, POINTD* hull) {
  POINTD p[4];
  for (int i = 0; i < n; ++i) {  // insertion by x, then y
    int j = i;
    while (j > 0 && (pts[i].x < p[j - 1].x || (pts[i].x == p[j - 1].x && pts[i].y < p[j - 1].y))) {
      p[j] = p[j - 1];
      --j;
    }
    p[j] = pts[i];
  }
  POINTD h[8];
  int k = 0;
  for (int i = 0; i < n; ++i) {  // lower hull
    while (k >= 2 && Cross(h[k - 2], h[k - 1], p[i]) <= 0) --k;
    h[k++] = p[i];
  }
  for (int i = n - 2, t = k + 1; i >= 0; --i) {  // upper hull
    while (k >= t && Cross(h[k - 2], h[k - 1], p[i]) <= 0) --k;
    h[k++] = p[i];
  }
  int m = k > 1 ? k - 1 : k;  // the last point repeats the first
  if (m == 2 && h[0].x == h[1].x && h[0].y == h[1].y) m = 1;
  for (int i = 0; i < m; ++i) hull[i] = h[i];
  return m;
}

// One side of a convex polygon from its top corner to its bottom corner:
// y never decreases along it. At(yc) is the side's x on the line yc, for yc
// growing from call to call.
struct Chain {
  double x[5], y[5], slope[4];
  int n = 0, e = 0;

  void Add(const POINTD& p) {
    x[n] = p.x;
    y[n] = p.y;
    if (n > 0) {
      const double dy = y[n] - y[n - 1];
      double s = dy > 0.0 ? (x[n] - x[n - 1]) / dy : 0.0;
      slope[n - 1] = std::isfinite(s) ? s : 0.0;  // an edge too flat to matter
    }
    ++n;
  }
  double At(double yc) {
    while (e < n - 2 && y[e + 1] <= yc) ++e;
    if (n == 1) return x[0];
    const double v = x[e] + (yc - y[e]) * slope[e];
    const double lo = std::min(x[e], x[e + 1]), hi = std::max(x[e], x[e + 1]);
    return v < lo ? lo : (v > hi ? hi : v);
  }
};

struct PolySection {
  Chain a, b;
  void operator()(double y, double* xa, double* xb) {
    const double u = a.At(y), v = b.At(y);
    *xa = std::min(u, v);
    *xb = std::max(u, v);
  }
};

}  // namespace

// The pixel box [floor(xmin), floor(xmax) + 1) x [floor(ymin), floor(ymax)
// + 1) of exact bounds; false when it is not finite or leaves the 32-bit
// plane (the box's right and bottom must fit too).
bool PixelBox(const Bounds& bd, RECT* border, const char** why) {
  if (!(std::isfinite(bd.xmin) && std::isfinite(bd.xmax) && std::isfinite(bd.ymin) &&
        std::isfinite(bd.ymax))) {
    *why = "CEllipse: the shape's coordinates are not finite numbers";
    return false;
  }
  const double lo = (double)kMinCoord, hi = (double)kMaxCoord;
  if (!(bd.xmin >= lo && bd.ymin >= lo && bd.xmax < hi && bd.ymax < hi)) {
    *why = "CEllipse: the shape exceeds the 32-bit coordinate range";
    return false;
  }
  border->left = (LONG)FloorI(bd.xmin);
  border->top = (LONG)FloorI(bd.ymin);
  border->right = (LONG)(FloorI(bd.xmax) + 1);
  border->bottom = (LONG)(FloorI(bd.ymax) + 1);
  return true;
}

// ---- failures ---------------------------------------------------------------------------

void Fail(const char* text) {
  g_Error.SetLastError("%s", text);
  throw ShapeFailure();
}

void CheckRows(i64 rows) {
  if (rows > tqrgn::kMaxRows)
    Fail("CEllipse: the shape has more rows than a region can hold");
}

void CheckFinite(double a, double b, const char* what) {
  if (!std::isfinite(a) || !std::isfinite(b)) {
    g_Error.SetLastError("%s is not a finite number", what);
    throw ShapeFailure();
  }
}

// ---- directions ---------------------------------------------------------------------------

void Direction(double angle, double* c, double* s) {
  const bool negative = angle < 0.0;
  double a = std::fabs(angle);
  if (a >= kTwoPi) a = std::fmod(a, kTwoPi);
  int k = (int)(a / kQuarterPi);
  if (k > 7) k = 7;
  // The residue from the octant's nearer edge of octant 0's mirror image:
  // even octants start at their lower edge, odd ones at their upper edge.
  double phi = (k & 1) ? (double)(k + 1) * kQuarterPi - a : a - (double)k * kQuarterPi;
  double u, v;
  if (phi < kEps) {
    u = 1.0;
    v = 0.0;
  } else if (phi > kQuarterPi - kEps) {
    u = v = std::sqrt(0.5);
  } else {
    u = std::cos(phi);
    v = std::sin(phi);
  }
  double x, y;
  CEllipse::m_EllSepProc[k](u, v, x, y);
  *c = x;
  *s = negative ? -y : y;
}

// ---- the one-pixel line -------------------------------------------------------------------

// Rows from the upper end down. With dy rows to go and adx columns, column
// offset i lies on row round(i dy / adx) and row offset j on column
// round(j adx / dy), ties to the upper row and the left column. Both are
// followed by a quotient and remainder that grow by a fixed step per row,
// so no product or division is formed inside the loop (operands stay below
// 2^34).
template <class RUN>
i64 RasterLine(i64 x0, i64 y0, i64 x1, i64 y1, std::vector<RUN>& runs, RECT* box) {
  if (y1 < y0 || (y1 == y0 && x1 < x0)) {
    std::swap(x0, x1);
    std::swap(y0, y1);
  }
  if (std::min(x0, x1) < kMinCoord || std::max(x0, x1) >= kMaxCoord || y0 < kMinCoord ||
      y1 >= kMaxCoord)
    Fail("CEllipse: the shape exceeds the 32-bit coordinate range");
  const i64 dy = y1 - y0, dx = x1 - x0, adx = dx < 0 ? -dx : dx;
  CheckRows(dy + 1);
  runs.resize((size_t)(dy + 1));
  RUN* out = runs.data();
  if (dy == 0) {
    out[0] = MakeRun<RUN>(x0, x1);
  } else if (adx <= dy) {
    // One pixel per row: i_j = floor((2 j adx + c) / 2dy), c = dy - 1 rounds
    // a tie down (left, going right), c = dy rounds it up (left, going left).
    const i64 den = 2 * dy, step = 2 * adx;
    i64 q = 0, r = dx >= 0 ? dy - 1 : dy;
    for (i64 j = 0; j <= dy; ++j) {
      const i64 x = dx >= 0 ? x0 + q : x0 - q;
      out[j] = MakeRun<RUN>(x, x);
      r += step;
      if (r >= den) {
        r -= den;
        ++q;
      }
    }
  } else {
    // One run per row: row j starts at column offset
    // floor(adx (2j - 1) / 2dy) + 1 and ends before the next row's start.
    const i64 den = 2 * dy, sq = (2 * adx) / den, sr = (2 * adx) % den;
    i64 q = adx / den, r = adx % den;  // row 1's start, less one
    i64 start = 0;
    for (i64 j = 0; j <= dy; ++j) {
      const i64 end = j == dy ? adx : q;  // q + 1 is row j + 1's start
      out[j] = dx >= 0 ? MakeRun<RUN>(x0 + start, x0 + end) : MakeRun<RUN>(x0 - end, x0 - start);
      start = q + 1;
      q += sq;
      r += sr;
      if (r >= den) {
        r -= den;
        ++q;
      }
    }
  }
  if (box) {
    box->left = (LONG)std::min(x0, x1);
    box->top = (LONG)y0;
    box->right = (LONG)(std::max(x0, x1) + 1);
    box->bottom = (LONG)(y1 + 1);
  }
  return y0;
}

namespace {

// The pixel that holds the end p of a segment running towards q, taken
// from just inside the segment: an end on a pixel edge belongs to the pixel
// the segment enters, so a w x h rectangle squashed flat is a line of w (or
// h) pixels.
i64 EndPixel(double p, double q) { return q < p ? CeilI(p) - 1 : FloorI(p); }

// A shape squashed onto the segment pq: the one-pixel line between the
// pixels that hold its ends (the pixel that holds p when q is p).
template <class RUN>
i64 RasterSegment(const POINTD& p, const POINTD& q, std::vector<RUN>& runs, RECT* box) {
  CheckBounds(Bounds{std::min(p.x, q.x), std::min(p.y, q.y), std::max(p.x, q.x), std::max(p.y, q.y)});
  return RasterLine(EndPixel(p.x, q.x), EndPixel(p.y, q.y), EndPixel(q.x, p.x), EndPixel(q.y, p.y), runs, box);
}

}  // namespace

// ---- turned ellipses and convex polygons ---------------------------------------------------

template <class RUN>
i64 RasterTurnedEllipse(const POINTD& centre, double a, double b, double tilt,
                        std::vector<RUN>& runs, RECT* box) {
  CheckFinite(centre.x, centre.y, "CEllipse: the ellipse's centre");
  CheckFinite(a, b, "CEllipse: a semi-axis of the ellipse");
  CheckFinite(tilt, 0.0, "CEllipse: the angle");
  a = std::fabs(a);
  b = std::fabs(b);
  const EllGeom geom(centre, a, b, tilt);
  const Bounds bd = geom.GetBounds();
  CheckBounds(bd);
  if (a == 0.0 || b == 0.0 || !(geom.G > 0.0)) {
    // A segment along the longer axis (a point when both are 0).
    double c, s;
    Direction(tilt, &c, &s);
    double ux = a * c, uy = a * s;
    if (b > a) {
      ux = -b * s;
      uy = b * c;
    }
    if (a != 0.0 && b != 0.0) {  // flat beyond double precision: along x
      ux = std::sqrt(geom.E);
      uy = 0.0;
    }
    return RasterSegment(POINTD(centre.x - ux, centre.y - uy), POINTD(centre.x + ux, centre.y + uy), runs, box);
  }
  EllSection section(geom);
  return RasterSections(bd, section, runs, box);
}

template <class RUN>
i64 RasterPolygon(const POINTD* pts, int n, std::vector<RUN>& runs, RECT* box) {
  RECT border;
  if (!CEllipse::GetRectBorder(pts, n, border)) throw ShapeFailure();
  POINTD h[4];
  const int m = Hull(pts, n, h);
  if (m == 1) return RasterSegment(h[0], h[0], runs, box);
  if (m == 2) return RasterSegment(h[0], h[1], runs, box);
  // The top corner (least y, then least x) and the bottom one (greatest y,
  // then greatest x); the two chains walk from one to the other.
  int top = 0, bottom = 0;
  for (int i = 1; i < m; ++i) {
    if (h[i].y < h[top].y || (h[i].y == h[top].y && h[i].x < h[top].x)) top = i;
    if (h[i].y > h[bottom].y || (h[i].y == h[bottom].y && h[i].x > h[bottom].x)) bottom = i;
  }
  PolySection section;
  for (int i = top;; i = (i + 1) % m) {
    section.a.Add(h[i]);
    if (i == bottom) break;
  }
  for (int i = top;; i = (i + m - 1) % m) {
    section.b.Add(h[i]);
    if (i == bottom) break;
  }
  Bounds bd{h[0].x, h[top].y, h[0].x, h[bottom].y};
  for (int i = 1; i < m; ++i) {
    bd.xmin = std::min(bd.xmin, h[i].x);
    bd.xmax = std::max(bd.xmax, h[i].x);
  }
  return RasterSections(bd, section, runs, box);
}

// ---- the midpoint cores -------------------------------------------------------------------

namespace {

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

}  // namespace

// ---- upright and turned rectangles and ellipses -----------------------------------------------

template <class RUN>
i64 RasterRect(const RECT& rc, double angle, std::vector<RUN>& runs, RECT* box) {
  if (NoArea(rc, runs, box)) return rc.top;
  const i64 l = rc.left, t = rc.top, r = rc.right, b = rc.bottom;
  const i64 w = r - l, h = b - t;
  AngleClass cls = ClassifyAngle(angle);
  if (cls == kInvalid) Fail("CEllipse: the angle is not a finite number");
  i64 first;
  if (cls == kUpright || (cls == kQuarter && w == h)) {
    CheckRows(h);
    runs.assign((size_t)h, MakeRun<RUN>(l, r - 1));
    first = t;
  } else if (cls == kQuarter) {
    // The exchanged rectangle, placed about the centre pixel as the upright
    // ellipse places its runs: an even extent reaches one further left, and
    // one further down.
    CheckRows(w);
    const i64 cx = FloorHalf(l + r), cy = FloorHalf(t + b);
    const i64 x1 = (h % 2 == 0) ? cx - h / 2 : cx - (h - 1) / 2;
    const i64 x2 = x1 + h - 1;
    first = (w % 2 == 0) ? cy - (w / 2 - 1) : cy - (w - 1) / 2;
    if (first < kMinCoord || first + w - 1 >= kMaxCoord || x1 < kMinCoord || x2 >= kMaxCoord)
      Fail("CEllipse: the shape exceeds the 32-bit coordinate range");
    runs.assign((size_t)w, MakeRun<RUN>(x1, x2));
  } else {
    POINTD corners[4];
    CEllipse::RotateRect(rc, angle, corners);
    return RasterPolygon(corners, 4, runs, box);
  }
  SetBox(runs, first, box);
  return first;
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

  const int a = (int)(w / 2 - (w % 2 == 0 ? 1 : 0));
  const int bb = (int)(h / 2 - (h % 2 == 0 ? 1 : 0));
  const i64 cx = FloorHalf(l + r), cy = FloorHalf(t + b);
  std::vector<int>& widths = Scratch();
  i64 first = t;
  i64 across = w, down = h;  // extents of the shape as drawn
  if (w == h) {
    CheckRows(h);
    CircleWidths(a, widths);
  } else {
    AngleClass cls = ClassifyAngle(angle);
    if (cls == kInvalid) Fail("CEllipse: the angle is not a finite number");
    if (cls == kUpright) {
      CheckRows(h);
      EllipseWidths(a, bb, widths);
    } else if (cls == kQuarter) {
      CheckRows(w);
      EllipseWidths(bb, a, widths);
      across = h;
      down = w;
      first = cy - a;
    } else {
      return RasterTurnedEllipse(CentreOf(rc), (double)w * 0.5, (double)h * 0.5, angle, runs, box);
    }
  }

  const size_t n = widths.size();
  const size_t total = (down % 2 == 0) ? 2 * n : 2 * n - 1;
  // Runs reach from cx - across / 2 to cx + (across - 1) / 2; the box's
  // right and bottom must fit as well.
  if (first < kMinCoord || first + (i64)total - 1 >= kMaxCoord ||
      cx - across / 2 < kMinCoord || cx + (across - 1) / 2 >= kMaxCoord)
    Fail("CEllipse: the shape exceeds the 32-bit coordinate range");
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

// The producers for both run records.
#define TQELL_INSTANTIATE(RUN)                                                                    \
  template i64 RasterEllipse<RUN>(const RECT&, double, std::vector<RUN>&, RECT*);                \
  template i64 RasterRect<RUN>(const RECT&, double, std::vector<RUN>&, RECT*);                   \
  template i64 RasterTurnedEllipse<RUN>(const POINTD&, double, double, double, std::vector<RUN>&, \
                                        RECT*);                                                  \
  template i64 RasterPolygon<RUN>(const POINTD*, int, std::vector<RUN>&, RECT*);                 \
  template i64 RasterLine<RUN>(i64, i64, i64, i64, std::vector<RUN>&, RECT*);
TQELL_INSTANTIATE(POINT)
TQELL_INSTANTIATE(RSRUN)
#undef TQELL_INSTANTIATE

}  // namespace tqell

using namespace tqell;

// ---- the interface: cores, upright and turned shapes ---------------------------------------------

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
  return IntoArray(rect.top, runs, box, [&](std::vector<POINT>& v, RECT* vbox) {
    if (!std::isfinite(angle)) Fail("CEllipse: the angle is not a finite number");
    if (NoArea(rect, v, vbox)) return (i64)rect.top;
    return RasterTurnedEllipse(CentreOf(rect), ((double)rect.right - rect.left) * 0.5,
                               ((double)rect.bottom - rect.top) * 0.5, angle, v, vbox);
  });
}

int CEllipse::EllipseRasterLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                                RECT* box) {
  return IntoArray(rect.top, runs, box,
                   [&](auto& v, RECT* b) { return RasterEllipse(rect, angle, v, b); });
}

BOOL CEllipse::EllipseRasterLine(const RECT& rect, double angle, RSRLINE& rst) {
  return IntoPiece(rect.top, rst, [&](auto& v, RECT* b) { return RasterEllipse(rect, angle, v, b); });
}

int CEllipse::RectRasterLine(const RECT& rect, double angle, CArray<POINT, POINT>& runs,
                             RECT* box) {
  return IntoArray(rect.top, runs, box,
                   [&](auto& v, RECT* b) { return RasterRect(rect, angle, v, b); });
}

BOOL CEllipse::RectRasterLine(const RECT& rect, double angle, RSRLINE& rst) {
  return IntoPiece(rect.top, rst, [&](auto& v, RECT* b) { return RasterRect(rect, angle, v, b); });
}
