// fuzz_transform.cpp - transforms, the double-to-pixel conversions and the
// units for any double: NaN, infinities, zeros of both signs, denormals,
// the largest values and the 32-bit limits, as well as small well-behaved
// values. The build's UndefinedBehaviorSanitizer catches every conversion
// of a double that leaves the range of its integer type.
//
// Input: up to 12 operations, each a kind byte and its operands. Whatever
// the values, every function returns and keeps its documented rule for
// non-finite and out-of-range input (saturation, INT_MIN, refusal, NaN
// passing through). Where the values are well-behaved the properties that
// hold are checked: a transform times its inverse is the identity within a
// tolerance scaled by the condition, building operations undo, frame
// conversions compose and undo, the factorisation reproduces its
// transform, conversions round trip through the units that allow it,
// clamped resolutions are valid, number texts read back within their
// rounding, and zoom steps stay on the ladder and move the right way.
#include "fuzz_codec_common.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using tqfuzz::Reader;

namespace {

const double kEps = 2.220446049250313e-16;

// Small values with a fraction: well-behaved operands.
double Nice(Reader& r) { return (double)(int16_t)r.U16() / (double)(1 + r.Byte() % 64); }
double Pick(Reader& r, bool nice) { return nice ? Nice(r) : r.AnyDouble(); }

bool SameValue(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }
bool SameValue(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

bool Near(double a, double b, double tol) { return std::fabs(a - b) <= tol; }

// A double as the float nearest it, infinities beyond the float range.
float ToFloat(double v) {
  if (std::isnan(v)) return NAN;
  if (v > FLT_MAX) return INFINITY;
  if (v < -FLT_MAX) return -INFINITY;
  return (float)v;
}

TransMatrix Matrix(Reader& r, bool nice) {
  TransMatrix m;
  m.m11 = Pick(r, nice);
  m.m12 = Pick(r, nice);
  m.m21 = Pick(r, nice);
  m.m22 = Pick(r, nice);
  m.dx = Pick(r, nice);
  m.dy = Pick(r, nice);
  return m;
}

bool Finite(const TransMatrix& m) {
  return std::isfinite(m.m11) && std::isfinite(m.m12) && std::isfinite(m.m21) && std::isfinite(m.m22) &&
         std::isfinite(m.dx) && std::isfinite(m.dy);
}

bool SameBits(const TransMatrix& a, const TransMatrix& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

double Largest(const TransMatrix& m) {
  return std::max({std::fabs(m.m11), std::fabs(m.m12), std::fabs(m.m21), std::fabs(m.m22), std::fabs(m.dx),
                   std::fabs(m.dy)});
}

// a and b agree entry by entry within tol times the scale of the entries
// that made them.
bool Close(const TransMatrix& a, const TransMatrix& b, double tol) {
  return Near(a.m11, b.m11, tol) && Near(a.m12, b.m12, tol) && Near(a.m21, b.m21, tol) &&
         Near(a.m22, b.m22, tol) && Near(a.dx, b.dx, tol) && Near(a.dy, b.dy, tol);
}

// The determinant's condition: 1 for a product without cancellation.
double DetCondition(const TransMatrix& m) {
  const double det = m.m11 * m.m22 - m.m12 * m.m21;
  return (std::fabs(m.m11 * m.m22) + std::fabs(m.m12 * m.m21)) / std::fabs(det);
}

// A matrix as code that makes it again.
std::string Code(const TransMatrix& m) {
  char b[320];
  std::snprintf(b, sizeof b, "TransMatrix m; m.m11 = %a; m.m12 = %a; m.m21 = %a; m.m22 = %a; m.dx = %a; m.dy = %a;",
                m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
  return b;
}

// A call's operands as text (hexadecimal doubles, exact).
std::string Values(const char* what, std::initializer_list<double> v) {
  std::string o = what;
  char b[40];
  for (double x : v) {
    std::snprintf(b, sizeof b, " %a", x);
    o += b;
  }
  return o;
}

// ---------------------------------------------------------------------------
// Matrices and their inverses

void CheckInverse(const TransMatrix& t, bool nice) {
  tqfuzz::Context() = Code(t);
  double arr[9];
  t.GetTransMatrix(arr);
  TransMatrix back;
  back.SetTransMatrix(arr);
  FUZZ_CHECK(SameBits(back, t) && arr[2] == 0 && arr[5] == 0 && arr[8] == 1);
  const XFORM xf = t;
  const TransMatrix widened(xf);
  FUZZ_CHECK(std::isnan(widened.m11) == std::isnan(t.m11) && std::isnan(widened.dy) == std::isnan(t.dy));

  const double det = t.m11 * t.m22 - t.m12 * t.m21;
  TransMatrix inv = t;
  const BOOL ok = inv.InverseMatrix();
  TransMatrix other, st;
  FUZZ_CHECK(other.InverseMatrix(t) == ok && TransMatrix::InverseMatrix(st, t) == ok);
  FUZZ_CHECK(!ok || (SameBits(other, inv) && SameBits(st, inv)));
  if (!ok) {
    FUZZ_CHECK(SameBits(inv, t));  // unchanged
  } else {
    FUZZ_CHECK(Finite(inv) && std::isfinite(det) && !(det > -1e-10 && det < 1e-10));
  }
  if (std::isnan(det) || std::isinf(det) || (det > -1e-10 && det < 1e-10)) FUZZ_CHECK(!ok);
  // Moderate entries and determinant: the inverse exists in doubles.
  if (Finite(t) && std::fabs(det) >= 1e-10 && Largest(t) <= 1e100) FUZZ_CHECK(ok);
  const ATransform at(t);
  FUZZ_CHECK((at.CanInverseCalc() != 0) == (det != 0.0 && std::isfinite(det)));
  if (Finite(t)) FUZZ_CHECK(t.OnlyOffset(t, nullptr) == -1);

  // The 3 x 3 inverse of the same matrix agrees; the copying form is the
  // in-place one.
  double a3[9], b3[9];
  t.GetTransMatrix(a3);
  const BOOL ok3 = TransMatrix::InverseMatrix(b3, a3, 3);
  if (!Finite(t)) FUZZ_CHECK(!ok3 && std::memcmp(a3, b3, sizeof a3) == 0);

  if (!ok || !nice || DetCondition(t) > 1e6) return;
  // T x T^-1 = I, entry by entry within the rounding of the products that
  // form it, scaled by the condition (of the determinant and of the linear
  // part).
  const double lin = std::max({std::fabs(inv.m11), std::fabs(inv.m12), std::fabs(inv.m21), std::fabs(inv.m22)});
  const double linT = std::max({std::fabs(t.m11), std::fabs(t.m12), std::fabs(t.m21), std::fabs(t.m22)});
  const double kappa = DetCondition(t) + 2 * linT * lin + 1;
  const ATransform p = ATransform(t) * ATransform(inv);
  const TransMatrix& m = p.GetMatrix();
  auto tol = [&](double s) { return 64 * kEps * kappa * s + 1e-300; };
  const double ad = std::fabs(det);
  FUZZ_CHECK(Near(m.m11, 1, tol(std::fabs(t.m11 * inv.m11) + std::fabs(t.m12 * inv.m21))));
  FUZZ_CHECK(Near(m.m12, 0, tol(std::fabs(t.m11 * inv.m12) + std::fabs(t.m12 * inv.m22))));
  FUZZ_CHECK(Near(m.m21, 0, tol(std::fabs(t.m21 * inv.m11) + std::fabs(t.m22 * inv.m21))));
  FUZZ_CHECK(Near(m.m22, 1, tol(std::fabs(t.m21 * inv.m12) + std::fabs(t.m22 * inv.m22))));
  const double offs = (std::fabs(t.m21 * t.dy) + std::fabs(t.m22 * t.dx) + std::fabs(t.m12 * t.dx) +
                       std::fabs(t.m11 * t.dy)) / ad;
  const double sOff = (std::fabs(t.dx) + std::fabs(t.dy)) * lin + std::fabs(inv.dx) + std::fabs(inv.dy) + offs;
  FUZZ_CHECK(Near(m.dx, 0, tol(sOff)) && Near(m.dy, 0, tol(sOff)));
  // The 3 x 3 Gauss-Jordan inverse is the same matrix, when its pivots
  // (its own refusal rule) allow it.
  const double tol3 = 64 * kEps * kappa * (Largest(inv) + offs + 1);
  FUZZ_CHECK(!ok3 || (Near(b3[0], inv.m11, tol3) && Near(b3[1], inv.m12, tol3) && Near(b3[3], inv.m21, tol3) &&
                      Near(b3[4], inv.m22, tol3) && Near(b3[6], inv.dx, tol3) && Near(b3[7], inv.dy, tol3)));
  FUZZ_CHECK(!ok3 || (Near(b3[2], 0, tol3) && Near(b3[5], 0, tol3) && Near(b3[8], 1, tol3)));
  // Points go forth and back.
  double x = t.dx / 3 + 1.25, y = t.dy / 7 - 0.5;
  const double x0 = x, y0 = y;
  at.CalcPoint(x, y);
  at.InverseCalcPoint(x, y);
  const double ptol = 64 * kEps * kappa * (std::fabs(x0) + std::fabs(y0) + sOff + 1) * (Largest(t) * lin + 1);
  FUZZ_CHECK(Near(x, x0, ptol) && Near(y, y0, ptol));
}

// n x n Gauss-Jordan.
void CheckGaussJordan(Reader& r) {
  const int n = 1 + r.Byte() % 6;
  const bool nice = r.Byte() % 4 != 0;
  std::vector<double> a((size_t)(n * n)), inv, copy;
  for (double& v : a) v = Pick(r, nice);
  inv = a;
  const BOOL ok = TransMatrix::InverseMatrix(inv.data(), n);
  copy.resize(a.size());
  FUZZ_CHECK(TransMatrix::InverseMatrix(copy.data(), a.data(), n) == ok);
  FUZZ_CHECK(std::memcmp(copy.data(), inv.data(), a.size() * sizeof(double)) == 0);
  bool finite = true;
  for (double v : a) finite = finite && std::isfinite(v);
  if (!finite) FUZZ_CHECK(!ok && std::memcmp(a.data(), inv.data(), a.size() * sizeof(double)) == 0);
  if (!ok) return;
  for (double v : inv) FUZZ_CHECK(std::isfinite(v));
  if (!nice) return;
  // A x A^-1 = I within n * eps * |A| |A^-1| (Gauss-Jordan with full
  // pivoting is backward stable in practice), the norms by rows.
  double na = 0, ni = 0;
  for (int i = 0; i < n; ++i) {
    double sa = 0, si = 0;
    for (int j = 0; j < n; ++j) {
      sa += std::fabs(a[(size_t)(i * n + j)]);
      si += std::fabs(inv[(size_t)(i * n + j)]);
    }
    na = std::max(na, sa);
    ni = std::max(ni, si);
  }
  const double tol = 256 * n * kEps * na * ni;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      double s = 0;
      for (int k = 0; k < n; ++k) s += a[(size_t)(i * n + k)] * inv[(size_t)(k * n + j)];
      FUZZ_CHECK(Near(s, i == j ? 1.0 : 0.0, tol));
    }
}

// ---------------------------------------------------------------------------
// Maps

void CheckMaps(const ATransform& t, double x, double y, int ix, int iy, double precision) {
  char b[120];
  std::snprintf(b, sizeof b, " double x = %a, y = %a; int ix = %d, iy = %d; double precision = %a;", x, y, ix, iy,
                precision);
  tqfuzz::Context() = Code(t.GetMatrix()) + b;
  double X = x, Y = y;
  t.CalcPoint(X, Y);
  POINTD pd(x, y);
  t.CalcPoint(pd);
  FUZZ_CHECK(SameValue(pd.x, X) && SameValue(pd.y, Y));
  POINTD pts[3] = {POINTD(x, y), POINTD(y, x), POINTD(x, y)};
  int counts[2] = {1, 2};
  t.CalcPointPoints(pts, counts, 2);
  FUZZ_CHECK(SameValue(pts[0].x, X) && SameValue(pts[2].y, Y));
  // Floats: the double map of the float's value, rounded to a float.
  const float fx = ToFloat(x), fy = ToFloat(y);
  double wx = fx, wy = fy;
  t.CalcPoint(wx, wy);
  float gx = fx, gy = fy;
  t.CalcPoint(gx, gy);
  POINTF pf = {fx, fy};
  t.CalcPoints(&pf, 1);
  FUZZ_CHECK(SameValue(gx, (float)wx) && SameValue(gy, (float)wy) && SameValue(pf.x, gx) && SameValue(pf.y, gy));
  // Integers: the double map of the integer point, converted by CPrecise.
  double dx = ix, dy = iy;
  t.CalcPoint(dx, dy);
  int jx = ix, jy = iy;
  t.CalcPoint(jx, jy, precision);
  long lx = ix, ly = iy;
  t.CalcPoint(lx, ly, precision);
  POINT p = {ix, iy}, q[2] = {{ix, iy}, {iy, ix}};
  t.CalcPoint(p, precision);
  t.CalcPoints(q, 2, precision);
  const int ex = CPrecise::PreciseInt(dx, precision), ey = CPrecise::PreciseInt(dy, precision);
  FUZZ_CHECK(jx == ex && jy == ey && lx == ex && ly == ey && p.x == ex && p.y == ey && q[0].x == ex && q[0].y == ey);
  double d = x;
  t.CalcDist(d);
  // d maps to the length of T(d, 0) - T(0, 0), within the rounding of the
  // offsets it cancels (a sum of squares: its squares must neither
  // overflow nor fall into the denormals).
  const TransMatrix& tm = t.GetMatrix();
  const double length = std::hypot(x * tm.m11, x * tm.m12);
  if (std::isfinite(x) && Finite(tm) && length > 1e-100 && length < 1e100)
    FUZZ_CHECK(Near(d, length,
                    1e-14 * (std::fabs(x * tm.m11) + std::fabs(x * tm.m12)) +
                        8 * kEps * (std::fabs(tm.dx) + std::fabs(tm.dy)) + 1e-300));
  // The backward maps: callers test CanInverseCalc first.
  if (!t.CanInverseCalc()) return;
  double bx = x, by = y;
  t.InverseCalcPoint(bx, by);
  POINTD bd(x, y);
  t.InverseCalcPoint(bd);
  FUZZ_CHECK(SameValue(bd.x, bx) && SameValue(bd.y, by));
  double ibx = ix, iby = iy;
  t.InverseCalcPoint(ibx, iby);
  POINT ip = {ix, iy};
  t.InverseCalcPoint(ip, precision);
  int kx = ix, ky = iy;
  t.InverseCalcPoint(kx, ky, precision);
  FUZZ_CHECK(ip.x == CPrecise::PreciseInt(ibx, precision) && ip.y == CPrecise::PreciseInt(iby, precision) &&
             kx == ip.x && ky == ip.y);
  float hx = fx, hy = fy;
  t.InverseCalcPoint(hx, hy);
  double inv = 1;
  t.InverseCalcDist(inv);
}

// ---------------------------------------------------------------------------
// Building operations and frames

void CheckBuilding(Reader& r, const TransMatrix& start, bool nice) {
  tqfuzz::Context() = Code(start);
  const double a = Pick(r, nice), b = Pick(r, nice), cx = Pick(r, nice), cy = Pick(r, nice);
  ATransform t(start), u;
  u.Translation(&t, a, b);
  ATransform v(start);
  v.Translation(a, b);
  FUZZ_CHECK(SameBits(u.GetMatrix(), v.GetMatrix()));
  const double scale = (Largest(start) + 1) * (std::fabs(a) + std::fabs(b) + std::fabs(cx) + std::fabs(cy) + 1);
  auto undo = [&](const char* what, ATransform w, double tolScale) {
    (void)what;
    if (nice) FUZZ_CHECK(Close(w.GetMatrix(), start, 1e-12 * tolScale));
  };
  {
    ATransform w(start);
    w.Translation(a, b);
    w.Translation(-a, -b);
    undo("translation", w, scale);
  }
  {
    ATransform w(start);
    w.Rotate(a, cx, cy);
    w.Rotate(-a, cx, cy);
    undo("rotation", w, scale);
  }
  {
    // A mirror is its own inverse; outside [0, pi) it is a half turn, and
    // so is that.
    ATransform w(start);
    w.Reflection(a, cx, cy);
    w.Reflection(a, cx, cy);
    undo("reflection", w, scale);
  }
  if (a != 0 && b != 0) {
    ATransform w(start);
    w.Scaling(a, b, cx, cy);
    w.Scaling(1 / a, 1 / b, cx, cy);
    const double k = std::max({std::fabs(a), std::fabs(b), 1 / std::fabs(a), 1 / std::fabs(b)});
    undo("scaling", w, scale * k * k);
  }
  {
    // A shear alone: x' = x + shy (y - cy), y' = y + shx (x - cx).
    ATransform w;
    w.Shear(a, b, cx, cy);
    double px = cx + 3, py = cy - 5;
    const double ox = px, oy = py;
    w.CalcPoint(px, py);
    if (nice) FUZZ_CHECK(Near(px, ox + b * (oy - cy), 1e-12 * scale) && Near(py, oy + a * (ox - cx), 1e-12 * scale));
    ATransform s(start);
    s.Shear(&t, a, b, cx, cy);
    s.Scaling(&t, a, b, cx, cy);
    s.Rotate(&t, a, cx, cy);
    s.Reflection(&t, a, cx, cy);
  }
}

void CheckFrames(Reader& r, const TransMatrix& a, bool nice) {
  tqfuzz::Context() = Code(a);
  const DWORD res = r.U32();
  const POINT origin = {r.AnyInt(), r.AnyInt()};
  const POINT* o = r.Byte() % 4 ? &origin : nullptr;
  const double h = HIWORD(res) ? HIWORD(res) : 1, l = LOWORD(res) ? LOWORD(res) : 1;
  ATransform fv, vf;
  fv.IdentityFView(res, o);
  vf.IdentityVFlower(res, o);
  const double ox = o ? o->x : 0, oy = o ? o->y : 0;
  // M maps (x, y) to (s x + ox, -s y + oy).
  double px = 3, py = -2;
  fv.CalcPoint(px, py);
  FUZZ_CHECK(Near(px, 3 * h / l + ox, 1e-15 * (std::fabs(ox) + 3 * h / l)) &&
             Near(py, 2 * h / l + oy, 1e-15 * (std::fabs(oy) + 2 * h / l)));
  FUZZ_CHECK(fv.CanInverseCalc() && vf.CanInverseCalc());

  const ATransform at(a);
  ATransform f1, f2, back, via, direct;
  f1.FFlowerToFView(at, res, o);
  back.FViewToFFlower(f1, res, o);
  via.FViewToVView(f1, res, o);
  direct.FFlowerToVView(at, res, o);
  ATransform v1, vback, vvia, vdirect;
  v1.VViewToVFlower(at, res, o);
  vback.VFlowerToVView(v1, res, o);
  vvia.VFlowerToFFlower(v1, res, o);
  vdirect.VViewToFFlower(at, res, o);
  // The source may be the result.
  f2 = at;
  f2.FFlowerToFView(f2, res, o);
  FUZZ_CHECK(SameBits(f2.GetMatrix(), f1.GetMatrix()) || !Finite(a));
  if (!nice) return;
  // The conversions undo and compose, within the rounding of entries as
  // large as the scale (or its reciprocal) times the origin.
  const double s = std::max(h / l, l / h);
  const double reach = std::fabs(ox) + std::fabs(oy) + 1;
  const double big = (Largest(a) + 1) * reach * reach * s * s;
  const double tol = 1e-12 * big;
  FUZZ_CHECK(Close(back.GetMatrix(), a, tol) && Close(vback.GetMatrix(), a, tol));
  FUZZ_CHECK(Close(via.GetMatrix(), direct.GetMatrix(), tol) && Close(vvia.GetMatrix(), vdirect.GetMatrix(), tol));
}

void CheckResolution(Reader& r, bool nice) {
  // A shear-free transform made from its three factors, or any matrix.
  ATransform t;
  const POINTD p1(Pick(r, nice), Pick(r, nice)), p2(Pick(r, nice), Pick(r, nice));
  if (r.Byte() % 2) {
    t.Scaling(Pick(r, nice), Pick(r, nice), p1.x, p1.y);
    t.Translation(Pick(r, nice), Pick(r, nice));
    t.Rotate(Pick(r, nice), p2.x, p2.y);
  } else {
    t.SetMatrix(Matrix(r, nice));
  }
  tqfuzz::Context() = Code(t.GetMatrix()) + Values(" p1, p2", {p1.x, p1.y, p2.x, p2.y});
  ATransform scale, move, rotate;
  const TransMatrix keep = scale.GetMatrix();
  if (!t.Resolution(p1, p2, &scale, &move, &rotate)) {
    FUZZ_CHECK(SameBits(scale.GetMatrix(), keep));  // nothing written
    return;
  }
  FUZZ_CHECK(Finite(scale.GetMatrix()) && Finite(move.GetMatrix()) && Finite(rotate.GetMatrix()));
  FUZZ_CHECK(Finite(t.GetMatrix()) && std::isfinite(p1.x) && std::isfinite(p1.y) && std::isfinite(p2.x) &&
             std::isfinite(p2.y));
  // A matrix with m11 exactly 0 takes the quarter-turn form, which (by this
  // library's rule) does not reproduce a non-zero m22.
  if (!nice || t.GetMatrix().m11 == 0) return;
  const ATransform again = scale * move * rotate;
  const double big = (Largest(t.GetMatrix()) + 1) * (Largest(scale.GetMatrix()) + 1) *
                     (Largest(move.GetMatrix()) + 1) * (Largest(rotate.GetMatrix()) + 1);
  FUZZ_CHECK(Close(again.GetMatrix(), t.GetMatrix(), 1e-12 * big));
}

// ---------------------------------------------------------------------------
// Double-to-integer conversions

void CheckPrecise(double v, double precision) {
  tqfuzz::Context() = Values("CheckPrecise", {v, precision});
  const int r = CPrecise::PreciseInt(v, precision);
  const double w = v >= 0 ? v + precision : v - precision;
  if (std::isnan(w) || std::fabs(w) >= 2147483649.0) {
    FUZZ_CHECK(r == INT_MIN);
  } else if (std::fabs(w) <= 2147483646.0) {
    // Truncation toward zero after the 1e-10 nudge away from zero.
    FUZZ_CHECK(std::fabs(w - r) < 1 + 1e-9 && std::fabs((double)r) <= std::fabs(w) + 1e-9);
    FUZZ_CHECK(r == 0 || (r > 0) == (w > 0));
  }
  const POINTD p(v, precision);
  const POINT t = p, g = p.GPOINT();
  FUZZ_CHECK(t.x == CPrecise::PreciseInt(v, 0.0) && g.x == CPrecise::PreciseInt(v, 0.5));
  RECTD rc(v, precision, -v, v);
  const RECT tr = rc, gr = rc.GRECT();
  FUZZ_CHECK(tr.left == t.x && gr.left == g.x && tr.right == CPrecise::PreciseInt(-v, 0.0));
  rc.NormalizeRect();
  if (!std::isnan(v) && !std::isnan(precision)) FUZZ_CHECK(rc.left <= rc.right && rc.top <= rc.bottom);
  rc.NormalizeBorder();
  const POINTD pts[3] = {POINTD(v, precision), POINTD(precision, v), POINTD(0, 0)};
  RECTD box(pts, 3);
  if (std::isfinite(v) && std::isfinite(precision))
    for (const POINTD& q : pts) FUZZ_CHECK(box.left <= q.x && q.x <= box.right && box.top <= q.y && q.y <= box.bottom);
}

// AnxFloatToInt and AnxFloatToDWORD: saturation, NaN to 0, rounding within
// a half, and order kept.
void CheckFloatToInt(double a, double b, BOOL round) {
  tqfuzz::Context() = Values("CheckFloatToInt", {a, b, (double)round});
  const int ia = AnxFloatToInt(a, round), ib = AnxFloatToInt(b, round);
  const DWORD ua = AnxFloatToDWORD(a, round), ub = AnxFloatToDWORD(b, round);
  if (std::isnan(a)) FUZZ_CHECK(ia == 0 && ua == 0);
  if (!std::isnan(a) && !std::isnan(b) && a <= b) FUZZ_CHECK(ia <= ib && ua <= ub);
  if (a >= 2147483648.0) FUZZ_CHECK(ia == INT_MAX);
  if (a <= -2147483649.0) FUZZ_CHECK(ia == INT_MIN);
  if (a >= 4294967296.0) FUZZ_CHECK(ua == 0xFFFFFFFFu);
  if (a <= -1.0) FUZZ_CHECK(ua == 0);
  if (std::fabs(a) < 2147483000.0) FUZZ_CHECK(std::fabs(a - ia) <= (round ? 0.5 : 1.0) + 1e-9);
  if (a >= 0 && a < 4294967000.0) FUZZ_CHECK(std::fabs(a - ua) <= (round ? 0.5 : 1.0) + 1e-9);
}

bool WellFormedNumber(const std::string& s) {
  size_t i = s[0] == '-' ? 1 : 0, digits = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  if (digits == 0) return false;
  if (i == s.size()) return true;
  if (s[i++] != '.') return false;
  size_t frac = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++frac;
  return frac > 0 && i == s.size();
}

void CheckText(double v, int digits, BOOL round, int iv, int group) {
  tqfuzz::Context() = Values("CheckText", {v, (double)digits, (double)round, (double)iv, (double)group});
  const CString text = AnxFloatPrecisionString(v, digits, round);
  const std::string s(text.GetString());
  FUZZ_CHECK(!s.empty() && WellFormedNumber(s));
  const double back = AnxFloatPrecision(v, digits, round);
  FUZZ_CHECK(back == std::strtod(s.c_str(), nullptr));
  if (std::isnan(v)) FUZZ_CHECK(s == "0");
  if (v == INFINITY) FUZZ_CHECK(s == "9223372036854775807");
  if (v == -INFINITY) FUZZ_CHECK(s == "-9223372036854775808");
  const int d = std::min(digits, 10);
  if (std::fabs(v) < 1e9 && d >= 1 && d <= 8) {
    const double unit = std::pow(10.0, -d);
    FUZZ_CHECK(Near(back, v, (round ? 0.5 : 1.0) * unit + 1e-9));
  }
  // Grouped integers read back without their separators.
  const CString g = AnxIntString(iv, group, '\'');
  std::string plain;
  for (const char* c = g.GetString(); *c; ++c)
    if (*c != '\'') plain += *c;
  FUZZ_CHECK(plain == std::to_string(iv));
  const CString u = AnxDWORDString((DWORD)iv, group, ',');
  FUZZ_CHECK(u.GetLength() >= 1);
}

// ---------------------------------------------------------------------------
// Units

// A resolution in range for the unit.
double ValidRes(double v, int unit) { return RightRes(std::fabs(v), unit); }

void CheckUnits(Reader& r) {
  const bool nice = r.Byte() % 4 != 0;
  const double v = Pick(r, nice), res = Pick(r, nice), w = Pick(r, nice);
  const int ru = r.Byte() % 8, su = r.Byte() % 9, tu = r.Byte() % 9;  // some outside the lists
  const BOOL integer = r.Byte() % 2;
  tqfuzz::Context() = Values("CheckUnits", {v, res, w, (double)ru, (double)su, (double)tu, (double)integer});
  // Every function, any arguments.
  ToDPI(v, ru);
  ToDPMM(v, ru);
  ToNDPI(v, ru);
  ConvertRes(v, ru, tu % 8, integer);
  ToMM(v, res, ru, su);
  ToINCH(v, res, ru, su);
  ToPIXEL(v, res, ru, su);
  ToNPIXEL(v, res, ru, su);
  ConvertSize(v, su, tu, res, ru, integer);
  DefResPrecision(ru);
  char buf[8];
  ResUnitString(buf, 1 + r.Byte() % 8, ru);
  SizeUnitString(buf, 1 + r.Byte() % 8, su);
  // Equality: symmetric, NaN equals nothing, finite values equal themselves.
  for (int u = 0; u <= 6; ++u) {
    FUZZ_CHECK(EqualRes(v, w, u, integer) == EqualRes(w, v, u, integer));
    if (std::isnan(v)) FUZZ_CHECK(!EqualRes(v, w, u, integer));
    if (std::isfinite(v)) FUZZ_CHECK(EqualRes(v, v, u, integer));
  }
  FUZZ_CHECK(EqualDPI(v, w) == EqualDPI(w, v) && EqualNDPI(v, w) == EqualNDPI(w, v) &&
             EqualDPMM(v, w) == EqualDPMM(w, v));
  if (std::isnan(v)) FUZZ_CHECK(!EqualDPI(v, w) && !EqualNDPI(v, w) && !EqualDPMM(v, w));
  // Clamping gives a valid resolution and keeps valid ones.
  for (int u = 1; u <= 5; ++u) {
    const double c = RightRes(v, u);
    FUZZ_CHECK(IsValidRes(c, u));
    if (IsValidRes(v, u)) FUZZ_CHECK(c == v);
  }
  // A length held unit-free.
  CUnitTrans t;
  const BOOL valid = t.SetParams(v, res, ru, su);
  FUZZ_CHECK(valid == t.IsValid() && (!valid || (std::isfinite(t.dDPMM) && t.dDPMM > 0)));
  t.GetValue(tu, r.Byte() % 12, integer);
  if (!nice) return;

  // Round trips at a resolution in range: sizes through every pair of
  // pixels, 0.01 mm, mm, cm and m, and between mm and inches; resolutions
  // through every pair of units.
  const int rres = 1 + r.Byte() % 5;
  const double rr = ValidRes(res, rres);
  for (int a = 1; a <= 5; ++a)
    for (int b = 1; b <= 5; ++b) {
      const double there = ConvertSize(v, a, b, rr, rres, FALSE);
      FUZZ_CHECK(Near(ConvertSize(there, b, a, rr, rres, FALSE), v, 1e-12 * std::fabs(v) + 1e-300));
    }
  const double inch = ConvertSize(v, 3, 6, rr, rres, FALSE);
  FUZZ_CHECK(Near(ConvertSize(inch, 6, 3, rr, rres, FALSE), v, 1e-12 * std::fabs(v)));
  for (int a = 1; a <= 5; ++a)
    for (int b = 1; b <= 5; ++b)
      FUZZ_CHECK(Near(ConvertRes(ConvertRes(v, a, b, FALSE), b, a, FALSE), v, 1e-12 * std::fabs(v)));
  // A length set in a unit comes back in it, to the decimals asked. (The
  // lowest resolutions lie within the tolerance of 0, which CUnitTrans
  // takes for none.)
  const int lu = 2 + r.Byte() % 4;
  CUnitTrans back;
  const BOOL held = back.SetParams(v, rr, rres, lu);
  FUZZ_CHECK(held || ToDPMM(rr, rres) <= 2 * (double)TQ_MIN_DPMM);
  if (!held) return;
  FUZZ_CHECK(Near(back.GetValue(lu, 6, FALSE), v, 0.5e-6 + 1e-9 + 1e-12 * std::fabs(v)));
  // Pixels come back as the nearest whole number.
  FUZZ_CHECK(back.SetParams(v, rr, rres, SIZEUNIT_PIXEL));
  FUZZ_CHECK(Near(back.GetValue(SIZEUNIT_PIXEL, 0, TRUE), v, 0.5 + 1e-6));
}

// Ladder values are the fixed points of the normal zoom.
bool OnLadder(double r) {
  double n = r;
  AnxZoomNormalRatio(n);
  return n == r && r >= 1.0 / 20001 && r <= 100;
}

void CheckZoom(double v) {
  tqfuzz::Context() = Values("CheckZoom", {v});
  double in = v, out = v, normal = v;
  AnxZoomInRatio(in);
  AnxZoomOutRatio(out);
  AnxZoomNormalRatio(normal);
  FUZZ_CHECK(OnLadder(in) && OnLadder(out) && OnLadder(normal));
  if (std::isfinite(v) && v > 1e-10 && v < 100) FUZZ_CHECK(in > v);
  if (v > 1.0 / 19999) FUZZ_CHECK(out < v);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  // The unit defaults as a host sets them, and a default resolution or none.
  g_Flags.ResUnit = (AResUnit)(1 + r.Byte() % 5);
  g_Flags.SizeUnit = (ASizeUnit)(1 + r.Byte() % 6);
  g_Flags.dDefRes = r.Byte() % 2 ? 0.0 : r.AnyDouble();
  for (int op = 0; op < 12 && r.n > 0; ++op) {
    const uint8_t kind = r.Byte();
    tqfuzz::Context().clear();
    const bool nice = (kind >> 4) % 4 != 0;
    switch (kind % 10) {
      case 0:
        CheckInverse(Matrix(r, nice), nice);
        break;
      case 1:
        CheckGaussJordan(r);
        break;
      case 2: {
        const ATransform t(Matrix(r, nice));
        const double x = Pick(r, nice), y = Pick(r, nice), precision = r.Byte() % 2 ? 0.5 : Pick(r, nice);
        CheckMaps(t, x, y, r.AnyInt(), r.AnyInt(), precision);
        break;
      }
      case 3:
        CheckBuilding(r, Matrix(r, nice), nice);
        break;
      case 4:
        CheckFrames(r, Matrix(r, nice), nice);
        break;
      case 5:
        CheckResolution(r, nice);
        break;
      case 6: {
        const double v = r.AnyDouble();
        CheckPrecise(v, r.Byte() % 2 ? 0.5 * (r.Byte() % 3) : r.AnyDouble());
        break;
      }
      case 7: {
        const double a = r.AnyDouble(), b = r.AnyDouble();
        CheckFloatToInt(a, b, r.Byte() % 2);
        const int digits = (int)(r.Byte() % 16) - 2;
        CheckText(Pick(r, nice), digits, r.Byte() % 2, r.AnyInt(), (int)(r.Byte() % 6) - 1);
        break;
      }
      case 8:
        CheckUnits(r);
        break;
      case 9:
        CheckZoom(Pick(r, nice));
        break;
    }
  }
  return 0;
}
