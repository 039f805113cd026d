// ellipse_core.h - the shape rasterizers' shared machinery, private to the
// ellipse*.cpp files: run records of either form, boxes, failures, the
// row limit, the direction of an angle, the producers of every shape
// family, and the wrappers that turn a producer into the run-list or the
// region form of the interface.
//
// Producers write straight into the caller's vector: POINT (x, y) and
// RSRUN (x1, x2) are both a run's left and right ends, two 32-bit ints, so
// one templated producer serves both forms without a copy. Inside a
// producer, failures travel as ShapeFailure (the text already recorded)
// and allocation failures as std::bad_alloc; the wrappers catch both once
// and hand back the empty result.
//
// Coordinates are carried in 64-bit integers and doubles, and every row and
// column is checked against the 32-bit plane before a run is stored.
#ifndef TQBASE_ELLIPSE_CORE_H
#define TQBASE_ELLIPSE_CORE_H

#include "tqbase/ellipse.h"
#include "tqbase/errorinfo.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

namespace tqell {

typedef long long i64;

// All from the library's value of pi.
constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 2.0 * kPi;
constexpr double kHalfPi = kPi / 2.0;
constexpr double kThreeHalfPi = 3.0 * kPi / 2.0;
constexpr double kQuarterPi = kPi / 4.0;

const i64 kMinCoord = std::numeric_limits<int32_t>::min();
const i64 kMaxCoord = std::numeric_limits<int32_t>::max();

// Floor and ceiling of a double known to lie well inside the 64-bit range
// (every caller has checked its shape against the 32-bit plane first).
inline i64 FloorI(double v) {
  i64 t = (i64)v;
  return t - ((double)t > v ? 1 : 0);
}
inline i64 CeilI(double v) {
  i64 t = (i64)v;
  return t + ((double)t < v ? 1 : 0);
}
// (left + right) / 2 rounded toward minus infinity.
inline i64 FloorHalf(i64 v) { return v >= 0 ? v / 2 : -((-v + 1) / 2); }

// ---- runs and boxes ------------------------------------------------------------

template <class RUN>
inline RUN MakeRun(i64 x1, i64 x2) {
  return RUN{(int32_t)x1, (int32_t)x2};
}
inline void RunEnds(const POINT& r, i64* x1, i64* x2) { *x1 = r.x; *x2 = r.y; }
inline void RunEnds(const RSRUN& r, i64* x1, i64* x2) { *x1 = r.x1; *x2 = r.x2; }

inline void ZeroBox(RECT* box) {
  if (box) box->left = box->top = box->right = box->bottom = 0;
}

// Sets the half-open box of runs that start at row first (all zero when
// there are none).
template <class RUN>
void SetBox(const std::vector<RUN>& runs, i64 first, RECT* box) {
  if (!box) return;
  if (runs.empty()) return ZeroBox(box);
  i64 lo = kMaxCoord, hi = kMinCoord;
  for (const RUN& r : runs) {
    i64 x1, x2;
    RunEnds(r, &x1, &x2);
    if (x1 < lo) lo = x1;
    if (x2 > hi) hi = x2;
  }
  box->left = (LONG)lo;
  box->top = (LONG)first;
  box->right = (LONG)(hi + 1);
  box->bottom = (LONG)(first + (i64)runs.size());
}

// ---- failures --------------------------------------------------------------------

// A failure whose text is already recorded in g_Error.
struct ShapeFailure {};

[[noreturn]] void Fail(const char* text);

// A shape has at most as many rows as a region piece may hold; beyond that
// the request is refused before anything is allocated.
void CheckRows(i64 rows);

// Both values finite, else the failure "<what> is not a finite number".
void CheckFinite(double a, double b, const char* what);

// ---- directions --------------------------------------------------------------------

// cos and sin of angle, found in octant 0 and carried to the angle's octant
// through CEllipse::m_EllSepProc: a residue within 1e-10 of an octant's
// edge counts as the edge, so quarter turns and diagonals are exact, and
// angle and -angle give exactly mirrored directions. angle is finite.
void Direction(double angle, double* c, double* s);

// The exact bounds of a shape.
struct Bounds {
  double xmin, ymin, xmax, ymax;
};

// The pixel box [floor(xmin), floor(xmax) + 1) x [floor(ymin), floor(ymax)
// + 1) of exact bounds; false (and the reason) when it is not finite or
// leaves the 32-bit plane (the box's right and bottom must fit too).
bool PixelBox(const Bounds& bd, RECT* border, const char** why);

// An ellipse about (cx, cy) as { cx + u U + v V : u^2 + v^2 <= 1 }, kept as
// the Gram entries of its semi-axis vectors U and V: E = Ux^2 + Vx^2,
// G = Uy^2 + Vy^2, F = Ux Uy + Vx Vy, and the area factor D = Ux Vy - Uy Vx.
// Its half extents are sqrt(E) across and sqrt(G) down; on the line
// y = cy + eta its cross-section is centred on cx + eta F / G with the half
// width |D| sqrt(G - eta^2) / G.
struct EllGeom {
  double cx, cy, E, F, G, D;

  inline EllGeom(const POINTD& centre, double a, double b, double tilt) {
    double c, s;
    Direction(tilt, &c, &s);
    cx = centre.x;
    cy = centre.y;
    const double a2 = a * a, b2 = b * b;
    E = a2 * c * c + b2 * s * s;
    G = a2 * s * s + b2 * c * c;
    F = (a2 - b2) * c * s;
    D = a * b;
  }
  Bounds GetBounds() const {
    const double hx = std::sqrt(E), hy = std::sqrt(G);
    return Bounds{cx - hx, cy - hy, cx + hx, cy + hy};
  }
};

// The cross-sections of a non-flat ellipse (G > 0), row after row.
struct EllSection {
  double cx, cy, g, fg, dg;
  explicit EllSection(const EllGeom& e)
      : cx(e.cx), cy(e.cy), g(e.G), fg(e.F / e.G), dg(std::fabs(e.D) / e.G) {}
  void operator()(double y, double* xa, double* xb) const {
    const double eta = y - cy;
    const double q = g - eta * eta;
    const double half = q > 0.0 ? dg * std::sqrt(q) : 0.0;
    const double mid = cx + eta * fg;
    *xa = mid - half;
    *xb = mid + half;
  }
};

// The centre of a rectangle, in doubles.
inline POINTD CentreOf(const RECT& rc) {
  return POINTD(((double)rc.left + (double)rc.right) * 0.5, ((double)rc.top + (double)rc.bottom) * 0.5);
}


// ---- producers ----------------------------------------------------------------------
// Each returns the first row and fills runs (one per row) and, when wanted,
// the half-open box. RUN is POINT or RSRUN.

// The ellipse inscribed in rc, turned by angle about its centre, with the
// upright rules (midpoint cores, thin rectangles, quarter turns).
template <class RUN>
i64 RasterEllipse(const RECT& rc, double angle, std::vector<RUN>& runs, RECT* box);
// The rectangle rc turned by angle about its centre.
template <class RUN>
i64 RasterRect(const RECT& rc, double angle, std::vector<RUN>& runs, RECT* box);
// The ellipse about centre with semi-axes a and b, a along the direction
// tilt, by the pixel-centre rule (a or b of 0: a line or a point).
template <class RUN>
i64 RasterTurnedEllipse(const POINTD& centre, double a, double b, double tilt,
                        std::vector<RUN>& runs, RECT* box);
// The convex hull of n (1 to 4) corners by the pixel-centre rule.
template <class RUN>
i64 RasterPolygon(const POINTD* pts, int n, std::vector<RUN>& runs, RECT* box);
// The one-pixel line between two pixels.
template <class RUN>
i64 RasterLine(i64 x0, i64 y0, i64 x1, i64 y1, std::vector<RUN>& runs, RECT* box);

// ---- the two forms of the interface ------------------------------------------------

// Runs produce() and turns its failures into the empty result: no runs, an
// all-zero box, and fallback as the first row.
template <class Producer, class RUN>
int Guarded(int fallback, std::vector<RUN>& runs, RECT* box, Producer produce, bool* ok) {
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
  ZeroBox(box);
  return fallback;
}

// The region form: runs and box straight into the piece, the box made
// inclusive, one run per row. An empty shape is the valid empty piece with
// an all-zero box: shrinking its empty box by one would make it invalid.
// produce(runs, box) is a producer for RSRUN.
template <class Producer>
BOOL IntoPiece(int fallback, RSRLINE& rst, Producer produce) {
  RECT box;
  bool ok;
  std::vector<RSRUN>& runs = rst.arRun.vec();
  Guarded(fallback, runs, &box, [&] { return produce(runs, &box); }, &ok);
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
  ZeroBox(&rst.rcBox);
  return FALSE;
}

// The run-list form: the runs straight into the caller's array.
template <class Producer>
int IntoArray(int fallback, CArray<POINT, POINT>& runs, RECT* box, Producer produce) {
  bool ok;
  std::vector<POINT>& v = runs.vec();
  return Guarded(fallback, v, box, [&] { return produce(v, box); }, &ok);
}

}  // namespace tqell

#endif  // TQBASE_ELLIPSE_CORE_H
