// ellipse_shapes.cpp - CEllipse's shapes beyond the upright and turned
// ones: ellipses and rectangles under an affine transform, quadrilaterals
// and parallelograms from their corners, one-pixel lines and chords of
// ellipses. Each is a thin layer over the producers of ellipse.cpp
// (ellipse_core.h): it checks its input, picks the exact upright form
// where the shape is one, and otherwise hands the outline to the
// pixel-centre rasterizers.
#include "ellipse_core.h"

#include <algorithm>

using namespace tqell;

namespace {

// The first row reported for an empty or failed shape given in doubles:
// its top rounded down, or 0 when that is not a 32-bit row.
int TopRow(double top) {
  if (!(top >= (double)kMinCoord && top < (double)kMaxCoord)) return 0;
  return (int)FloorI(top);
}

// The library's tolerance, for the coefficients of a transform.
bool NearZero(double v) { return v > -1e-10 && v < 1e-10; }

// v within rounding of an integer of the 32-bit plane: the integer. The
// allowance grows with the value (about 500 units in the last place), so
// that corners carried through a transform's arithmetic still count.
bool NearInteger(double v, i64* out) {
  if (!(v >= (double)kMinCoord && v <= (double)kMaxCoord)) return false;
  const double r = std::nearbyint(v);
  if (std::fabs(v - r) > 1e-10 + std::fabs(v) * 1e-13) return false;
  *out = (i64)r;
  return true;
}

// The image of rc under m, when it is an upright rectangle with integer
// corners and area: the linear part keeps the axes (within the library's
// tolerance) and every corner lands on integers.
bool UprightImage(const RECTD& rc, const ATransform& trans, RECT* out) {
  const TransMatrix& m = trans.GetMatrix();
  if (!((NearZero(m.m12) && NearZero(m.m21)) || (NearZero(m.m11) && NearZero(m.m22)))) return false;
  const double xs[4] = {rc.left, rc.right, rc.right, rc.left}, ys[4] = {rc.top, rc.top, rc.bottom, rc.bottom};
  i64 px[4], py[4];
  for (int i = 0; i < 4; ++i) {
    double x = xs[i], y = ys[i];
    trans.CalcPoint(x, y);
    if (!NearInteger(x, &px[i]) || !NearInteger(y, &py[i])) return false;
  }
  const i64 l = std::min(px[0], px[2]), r = std::max(px[0], px[2]);
  const i64 t = std::min(py[0], py[2]), b = std::max(py[0], py[2]);
  if (l == r || t == b) return false;  // squashed: a line
  for (int i = 0; i < 4; ++i)
    if ((px[i] != l && px[i] != r) || (py[i] != t && py[i] != b)) return false;
  if (px[1] == px[0] ? py[1] == py[0] : py[1] != py[0]) return false;  // a true rectangle's corner order
  *out = RECT{(LONG)l, (LONG)t, (LONG)r, (LONG)b};
  return true;
}

void CheckTransform(const ATransform& trans) {
  const TransMatrix& m = trans.GetMatrix();
  const double v[6] = {m.m11, m.m12, m.m21, m.m22, m.dx, m.dy};
  for (double x : v)
    if (!std::isfinite(x)) Fail("CEllipse: the transform is not a finite number");
}

// ---- producers ---------------------------------------------------------------------

template <class RUN>
i64 RasterEllipseTransformed(const RECTD& rc, const ATransform& trans, std::vector<RUN>& runs, RECT* box) {
  CheckTransform(trans);
  CheckFinite(rc.left, rc.top, "CEllipse: the rectangle");
  CheckFinite(rc.right, rc.bottom, "CEllipse: the rectangle");
  if (!(rc.right - rc.left > 0.0 && rc.bottom - rc.top > 0.0)) {
    runs.clear();
    ZeroBox(box);
    return TopRow(rc.top);
  }
  RECT up;
  if (UprightImage(rc, trans, &up)) return RasterEllipse(up, 0.0, runs, box);
  POINTD centre;
  double a, b, tilt;
  if (!CEllipse::GetEllipseParam(rc, trans, centre, a, b, tilt)) throw ShapeFailure();
  return RasterTurnedEllipse(centre, a, b, tilt, runs, box);
}

template <class RUN>
i64 RasterRectTransformed(const RECT& rc, const ATransform& trans, std::vector<RUN>& runs, RECT* box) {
  CheckTransform(trans);
  if ((i64)rc.right - rc.left < 1 || (i64)rc.bottom - rc.top < 1) {
    runs.clear();
    ZeroBox(box);
    return rc.top;
  }
  const RECTD rd(rc);
  RECT up;
  if (UprightImage(rd, trans, &up)) return RasterRect(up, 0.0, runs, box);
  POINTD p[4] = {POINTD(rd.left, rd.top), POINTD(rd.right, rd.top), POINTD(rd.right, rd.bottom),
                 POINTD(rd.left, rd.bottom)};
  for (POINTD& q : p) trans.CalcPoint(q);
  const TransMatrix& m = trans.GetMatrix();
  if (m.m11 * m.m22 - m.m12 * m.m21 == 0.0) {
    // Squashed onto a line whatever the rounding of the corners says: the
    // segment between the two corners furthest apart.
    int bi = 0, bj = 1;
    double best = -1.0;
    for (int i = 0; i < 4; ++i)
      for (int j = i + 1; j < 4; ++j) {
        const double dx = p[j].x - p[i].x, dy = p[j].y - p[i].y, d = dx * dx + dy * dy;
        if (d > best) {
          best = d;
          bi = i;
          bj = j;
        }
      }
    const POINTD ends[2] = {p[bi], p[bj]};
    return RasterPolygon(ends, 2, runs, box);
  }
  return RasterPolygon(p, 4, runs, box);
}

// A null array of corners is a misuse: it asserts and fails.
void CheckCorners(const void* pts) {
  ASSERT(pts != nullptr);
  if (!pts) Fail("CEllipse: no corners given");
}

template <class RUN>
i64 RasterParalgram(const POINTD* pts, std::vector<RUN>& runs, RECT* box) {
  CheckCorners(pts);
  const POINTD q[4] = {pts[0], pts[1], POINTD(pts[1].x + pts[2].x - pts[0].x, pts[1].y + pts[2].y - pts[0].y),
                       pts[2]};
  return RasterPolygon(q, 4, runs, box);
}

// The chord: the upright ellipse's runs cut by the chord line, row by row.
// A pixel centre p is on the arc's side when cross(d, p - P1) < 0, with
// d = P2 - P1 (the arc always bulges to that side of its chord, as the
// angle grows from +x towards +y); on the line itself it belongs to the
// chord when d points down, or left when d is horizontal.
template <class RUN>
i64 RasterArc(const RECT& rc, double start, double end, std::vector<RUN>& runs, RECT* box) {
  CheckFinite(start, end, "CEllipse: an angle of the arc");
  const i64 first = RasterEllipse(rc, 0.0, runs, nullptr);
  if (runs.empty()) {
    ZeroBox(box);
    return first;
  }
  double sweep = std::fmod(end - start, kTwoPi);
  if (!std::isfinite(sweep)) sweep = 0.0;  // both huge: treat as equal
  if (sweep < 0.0) sweep += kTwoPi;
  if (sweep < 1e-10 || sweep > kTwoPi - 1e-10) {
    SetBox(runs, first, box);
    return first;
  }
  const POINTD c(((double)rc.left + rc.right) * 0.5, ((double)rc.top + rc.bottom) * 0.5);
  const double A = ((double)rc.right - rc.left) * 0.5, B = ((double)rc.bottom - rc.top) * 0.5;
  const POINTD p1 = CEllipse::EllipsePoint(c, A, B, 0.0, start);
  const POINTD p2 = CEllipse::EllipsePoint(c, A, B, 0.0, end);
  const double dx = p2.x - p1.x, dy = p2.y - p1.y;
  if (dx == 0.0 && dy == 0.0) {  // ends that meet: the whole ellipse
    SetBox(runs, first, box);
    return first;
  }
  RUN* out = runs.data();
  const size_t n = runs.size();
  size_t lo = n, hi = 0;  // the rows that keep pixels
  const double slope = dy != 0.0 ? dx / dy : 0.0;
  for (size_t k = 0; k < n; ++k) {
    i64 x1, x2;
    RunEnds(out[k], &x1, &x2);
    const double py = (double)(first + (i64)k) + 0.5 - p1.y;
    i64 a = x1, b = x2;
    if (dy == 0.0) {
      const double cr = dx * py;
      if (!(cr < 0.0 || (cr == 0.0 && dx < 0.0))) b = a - 1;
    } else {
      double X = p1.x + py * slope;
      X = std::min(std::max(X, (double)x1 - 2.0), (double)x2 + 2.0);
      const i64 t = CeilI(X - 0.5);
      if (dy > 0.0) {
        a = std::max(a, t);  // x + 0.5 >= X
      } else {
        b = std::min(b, t - 1);  // x + 0.5 < X
      }
    }
    if (a > b) {
      // A row left without pixels keeps the ellipse's pixel nearest to the
      // chord; rows at the ends are dropped below.
      a = b = dy > 0.0 ? x2 : x1;
    } else {
      lo = std::min(lo, k);
      hi = k;
    }
    out[k] = MakeRun<RUN>(a, b);
  }
  if (lo == n) {
    runs.clear();
    ZeroBox(box);
    return rc.top;
  }
  runs.resize(hi + 1);
  runs.erase(runs.begin(), runs.begin() + (std::ptrdiff_t)lo);
  SetBox(runs, first + (i64)lo, box);
  return first + (i64)lo;
}

}  // namespace

// ---- the interface -------------------------------------------------------------------------

BOOL CEllipse::EllipseRasterLine(const RECT& rect, const ATransform& trans, RSRLINE& rst) {
  const RECTD rd(rect);
  return IntoPiece(rect.top, rst, [&](auto& v, RECT* b) { return RasterEllipseTransformed(rd, trans, v, b); });
}

BOOL CEllipse::EllipseRasterLine(const RECTD& rect, const ATransform& trans, RSRLINE& rst) {
  return IntoPiece(TopRow(rect.top), rst,
                   [&](auto& v, RECT* b) { return RasterEllipseTransformed(rect, trans, v, b); });
}

int CEllipse::EllipseRasterLine(const RECTD& rect, const ATransform& trans, CArray<POINT, POINT>& runs,
                                RECT* box) {
  return IntoArray(TopRow(rect.top), runs, box,
                   [&](auto& v, RECT* b) { return RasterEllipseTransformed(rect, trans, v, b); });
}

int CEllipse::RectRasterLine(const RECT& rect, const ATransform& trans, CArray<POINT, POINT>& runs,
                             RECT* box) {
  return IntoArray(rect.top, runs, box, [&](auto& v, RECT* b) { return RasterRectTransformed(rect, trans, v, b); });
}

BOOL CEllipse::RectRasterLine(const RECT& rect, const ATransform& trans, RSRLINE& rst) {
  return IntoPiece(rect.top, rst, [&](auto& v, RECT* b) { return RasterRectTransformed(rect, trans, v, b); });
}

int CEllipse::MidPointRect(const POINTD* corners, CArray<POINT, POINT>& runs, RECT* box) {
  return IntoArray(corners ? TopRow(corners[0].y) : 0, runs, box, [&](auto& v, RECT* b) {
    CheckCorners(corners);
    return RasterPolygon(corners, 4, v, b);
  });
}

BOOL CEllipse::MidPointRect(const POINTD* corners, RSRLINE& rst) {
  return IntoPiece(corners ? TopRow(corners[0].y) : 0, rst, [&](auto& v, RECT* b) {
    CheckCorners(corners);
    return RasterPolygon(corners, 4, v, b);
  });
}

int CEllipse::MidPointParalgram(const POINTD* points, CArray<POINT, POINT>& runs, RECT* box) {
  return IntoArray(points ? TopRow(points[0].y) : 0, runs, box,
                   [&](auto& v, RECT* b) { return RasterParalgram(points, v, b); });
}

BOOL CEllipse::MidPointParalgram(const POINTD* points, RSRLINE& rst) {
  return IntoPiece(points ? TopRow(points[0].y) : 0, rst,
                   [&](auto& v, RECT* b) { return RasterParalgram(points, v, b); });
}

int CEllipse::PlgRasterLine(const POINT* points, CArray<POINT, POINT>& runs, RECT* box) {
  return IntoArray(points ? points[0].y : 0, runs, box, [&](auto& v, RECT* b) {
    CheckCorners(points);
    const POINTD p[3] = {POINTD(points[0]), POINTD(points[1]), POINTD(points[2])};
    return RasterParalgram(p, v, b);
  });
}

BOOL CEllipse::PlgRasterLine(const POINT* points, RSRLINE& rst) {
  return IntoPiece(points ? points[0].y : 0, rst, [&](auto& v, RECT* b) {
    CheckCorners(points);
    const POINTD p[3] = {POINTD(points[0]), POINTD(points[1]), POINTD(points[2])};
    return RasterParalgram(p, v, b);
  });
}

int CEllipse::MidPointLine(const POINT& p1, const POINT& p2, CArray<POINT, POINT>& runs, RECT* box) {
  return IntoArray(std::min(p1.y, p2.y), runs, box,
                   [&](auto& v, RECT* b) { return RasterLine(p1.x, p1.y, p2.x, p2.y, v, b); });
}

BOOL CEllipse::MidPointLine(const POINT& p1, const POINT& p2, RSRLINE& rst) {
  return IntoPiece(std::min(p1.y, p2.y), rst,
                   [&](auto& v, RECT* b) { return RasterLine(p1.x, p1.y, p2.x, p2.y, v, b); });
}

int CEllipse::MidPointArc(const RECT& rect, double start, double end, CArray<POINT, POINT>& runs, RECT* box) {
  return IntoArray(rect.top, runs, box, [&](auto& v, RECT* b) { return RasterArc(rect, start, end, v, b); });
}

BOOL CEllipse::MidPointArc(const RECT& rect, double start, double end, RSRLINE& rst) {
  return IntoPiece(rect.top, rst, [&](auto& v, RECT* b) { return RasterArc(rect, start, end, v, b); });
}
