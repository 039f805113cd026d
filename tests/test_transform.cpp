// test_transform.cpp - TransMatrix and ATransform against explicit 3x3
// matrix algebra: composition order, the elementary transforms, both
// inverses, forward and backward maps with pixel rounding, the frame
// conversions' round trips and the factorisation into scale, move and
// rotate.
#include <tqbase/tqbase.h>

#include "test_support.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <vector>

namespace {

const double kPi = 3.141592653589793;

// A 3x3 row-major matrix in the row-vector convention.
typedef std::array<double, 9> M3;

M3 Mul(const M3& a, const M3& b) {
  M3 r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      for (int k = 0; k < 3; ++k) r[i * 3 + j] += a[i * 3 + k] * b[k * 3 + j];
  return r;
}
M3 FromT(const ATransform& t) {
  M3 m;
  t.GetMatrix().GetTransMatrix(m.data());
  return m;
}
M3 Translate3(double dx, double dy) { return {1, 0, 0, 0, 1, 0, dx, dy, 1}; }
M3 Scale3(double sx, double sy) { return {sx, 0, 0, 0, sy, 0, 0, 0, 1}; }
M3 Rotate3(double a) { return {std::cos(a), std::sin(a), 0, -std::sin(a), std::cos(a), 0, 0, 0, 1}; }
// About a centre: move the centre to the origin, act, move back.
M3 About(const M3& e, double cx, double cy) { return Mul(Mul(Translate3(-cx, -cy), e), Translate3(cx, cy)); }

void ExpectNear(const M3& a, const M3& b, double tol, const std::string& what) {
  for (int i = 0; i < 9; ++i) ASSERT_NEAR(a[i], b[i], tol) << what << " element " << i;
}

TransMatrix Mx(double m11, double m12, double m21, double m22, double dx = 0, double dy = 0) {
  TransMatrix t;
  t.m11 = m11, t.m12 = m12, t.m21 = m21, t.m22 = m22, t.dx = dx, t.dy = dy;
  return t;
}

void Apply(const M3& m, double& x, double& y) {
  double ox = x;
  x = ox * m[0] + y * m[3] + m[6];
  y = ox * m[1] + y * m[4] + m[7];
}

// The reflection's odd rules (the random chains use angles in [0, pi)): an
// angle outside [0, pi) means a half turn about the centre instead, and the
// diagonal mirror swaps coordinates and is an involution.
TEST(Transform, ReflectionOutsideItsRange) {
  ATransform pi, negative, diagonal;
  pi.Reflection(kPi, 0, 5);
  negative.Reflection(-0.3, 1, 1);
  diagonal.Reflection(kPi / 4, 0, 0);
  double x = 3, y = 7, u = 2, v = 3, p = 2, q = 5;
  pi.CalcPoint(x, y);
  negative.CalcPoint(u, v);
  diagonal.CalcPoint(p, q);
  EXPECT_TRUE(std::fabs(x + 3) < 1e-12 && std::fabs(y - 3) < 1e-12) << x << "," << y;
  EXPECT_TRUE(std::fabs(u) < 1e-12 && std::fabs(v + 1) < 1e-12) << u << "," << v;
  EXPECT_TRUE(std::fabs(p - 5) < 1e-12 && std::fabs(q - 2) < 1e-12) << p << "," << q;
  EXPECT_TRUE((diagonal * diagonal).GetMatrix().IdentityMatrix());
}

TEST(Transform, RandomChainsMatchMatrixAlgebra) {
  std::mt19937_64 rng(2024);
  std::uniform_real_distribution<double> u(-5, 5);
  std::uniform_int_distribution<int> op(0, 4);
  for (int trial = 0; trial < 500; ++trial) {
    ATransform t;
    M3 m = Translate3(0, 0);
    std::ostringstream code;
    code << "ATransform t;";
    // Each step: the call as code, then the call and its matrix.
    auto note = [&](const char* fn, std::initializer_list<double> args) {
      const char* sep = "";
      code << " t." << fn << "(";
      for (double v : args) code << sep << v, sep = ",";
      code << ");";
    };
    for (int k = 0; k < 6; ++k) {
      const double a = u(rng), b = u(rng), cx = u(rng), cy = u(rng), ang = std::fmod(std::fabs(a), kPi);
      switch (op(rng)) {
        case 0: note("Translation", {a, b}); t.Translation(a, b); m = Mul(m, Translate3(a, b)); break;
        case 1: note("Scaling", {a, b, cx, cy}); t.Scaling(a, b, cx, cy); m = Mul(m, About(Scale3(a, b), cx, cy));
          break;
        case 2: note("Rotate", {a, cx, cy}); t.Rotate(a, cx, cy); m = Mul(m, About(Rotate3(a), cx, cy)); break;
        case 3:  // x' = x + b (y - cy), y' = y + a (x - cx)
          note("Shear", {a, b, cx, cy}); t.Shear(a, b, cx, cy); m = Mul(m, M3{1, a, 0, b, 1, 0, -b * cy, -a * cx, 1});
          break;
        default:
          note("Reflection", {ang, cx, cy}); t.Reflection(ang, cx, cy);
          m = Mul(m, About(Mul(Mul(Rotate3(-ang), Scale3(1, -1)), Rotate3(ang)), cx, cy));
      }
    }
    M3 got = FromT(t);
    double scale = 1;
    for (double v : m) scale = std::max(scale, std::fabs(v));
    ExpectNear(got, m, 1e-9 * scale, code.str());
    double x = u(rng), y = u(rng), ex = x, ey = y;
    t.CalcPoint(x, y);
    Apply(m, ex, ey);
    ASSERT_NEAR(x, ex, 1e-9 * scale * 10) << code.str();
    ASSERT_NEAR(y, ey, 1e-9 * scale * 10) << code.str();
  }
}

// Every product form agrees with the matrix algebra; a product with itself
// as an argument asserts and still computes the right product.
TEST(Transform, ProductsAndOperators) {
  ATransform a, b;
  a.Rotate(0.3, 1, 2);
  a.Translation(4, -1);
  b.Scaling(2, 3, -1, 0);
  b.Shear(0.2, 0.1, 0, 0);
  const M3 expect = Mul(FromT(a), FromT(b)), square = Mul(FromT(a), FromT(a));
  ExpectNear(FromT(a * b), expect, 1e-12, "a*b");
  ExpectNear(FromT(a * b.GetMatrix()), expect, 1e-12, "a*TransMatrix");
  ExpectNear(FromT(a.GetMatrix() * b), expect, 1e-12, "TransMatrix*b");
  ATransform out, c = a;
  ATransform::MultMatrix(out, a, b);
  c.MultMatrix(b);
  EXPECT_TRUE(c == out && !(c != out));
  ExpectNear(FromT(out), expect, 1e-12, "static MultMatrix");
  tqtest::HookCapture hooks;
  a.MultMatrix(a);
  EXPECT_EQ(hooks.Assertions(), 1);
  ExpectNear(FromT(a), square, 1e-12, "self product");
  ATransform::MultMatrix(b, b, a);
  EXPECT_GE(hooks.Assertions(), 2);
}

TEST(Transform, TwoDimensionalInverseAndNearSingularMatrices) {
  std::mt19937_64 rng(99);
  std::uniform_real_distribution<double> u(-10, 10);
  for (int trial = 0; trial < 500; ++trial) {
    TransMatrix m = Mx(u(rng), u(rng), u(rng), u(rng), u(rng), u(rng));
    double det = m.m11 * m.m22 - m.m12 * m.m21;
    if (std::fabs(det) < 1e-3) continue;
    TransMatrix inv;
    ASSERT_TRUE(TransMatrix::InverseMatrix(inv, m));
    M3 a, b;
    m.GetTransMatrix(a.data());
    inv.GetTransMatrix(b.data());
    ExpectNear(Mul(a, b), Translate3(0, 0), 1e-8, "m * m^-1");
    ExpectNear(Mul(b, a), Translate3(0, 0), 1e-8, "m^-1 * m");
    TransMatrix again;
    ASSERT_TRUE(again.InverseMatrix(inv));
    EXPECT_NEAR(again.dx, m.dx, 1e-8);
  }
  // Near singular: refused and left as it was, while the backward map works.
  TransMatrix m = Mx(5e-11, 0, 0, 1, 3);  // det = 5e-11
  EXPECT_FALSE(m.InverseMatrix());
  EXPECT_TRUE(m.m11 == 5e-11 && m.dx == 3);
  EXPECT_TRUE(ATransform(m).CanInverseCalc());
  EXPECT_FALSE(ATransform(Mx(0, 0, 0, 1)).CanInverseCalc());
  // A determinant of exactly 1e-10 is outside the open tolerance.
  TransMatrix e = Mx(1e-10, 0, 0, 1);
  EXPECT_TRUE(e.InverseMatrix());
}

TEST(Transform, BackwardMapInvertsForwardMap) {
  std::mt19937_64 rng(5);
  std::uniform_real_distribution<double> u(-3, 3);
  for (int trial = 0; trial < 300; ++trial) {
    ATransform t;
    t.Rotate(u(rng), u(rng), u(rng));
    t.Scaling(u(rng), u(rng), u(rng), u(rng));
    t.Translation(u(rng) * 100, u(rng) * 100);
    if (!t.CanInverseCalc()) continue;
    double x = u(rng) * 50, y = u(rng) * 50, ox = x, oy = y;
    t.CalcPoint(x, y);
    t.InverseCalcPoint(x, y);
    ASSERT_NEAR(x, ox, 1e-6);
    ASSERT_NEAR(y, oy, 1e-6);
    POINTD p(ox, oy);
    t.CalcPoint(p);
    t.InverseCalcPoint(p);
    ASSERT_NEAR(p.x, ox, 1e-6);
  }
  // A distance maps out and back to itself under a uniform scaling.
  ATransform s;
  s.Scaling(3, 3, 10, 10);
  s.Rotate(0.7, 2, 2);
  double d = 2;
  s.CalcDist(d);
  EXPECT_NEAR(d, 6, 1e-12);
  s.InverseCalcDist(d);
  EXPECT_NEAR(d, 2, 1e-12);
}

// The integer and float forms map in doubles and convert with the given
// precision. Scaling by 1.5 and -2.5 puts many results exactly on a half.
TEST(Transform, IntegerMapsRoundTheDoubleMap) {
  std::mt19937_64 rng(13);
  std::uniform_int_distribution<int> u(-1000, 1000);
  ATransform ties, turned;
  ties.Scaling(1.5, -2.5, 0, 0);
  turned.Rotate(0.3, 1, 2);
  turned.Scaling(1.5, -0.75, 0, 0);
  for (int trial = 0; trial < 4000; ++trial) {
    ATransform& t = trial % 4 < 2 ? ties : turned;
    const double prec = trial % 2 ? 0.5 : 0.0;
    const int x0 = u(rng), y0 = u(rng);
    double fx = x0, fy = y0, bx = x0, by = y0;
    t.CalcPoint(fx, fy);
    t.InverseCalcPoint(bx, by);
    const long long wx = CPrecise::PreciseInt(fx, prec), wy = CPrecise::PreciseInt(fy, prec);
    std::ostringstream code;
    code << "trial " << trial << " point (" << x0 << ", " << y0 << ") precision " << prec;
    int ix = x0, iy = y0;
    t.CalcPoint(ix, iy, prec);
    ASSERT_TRUE(ix == wx && iy == wy) << code.str();
    long lx = x0, ly = y0;
    t.CalcPoint(lx, ly, prec);
    ASSERT_TRUE(lx == wx && ly == wy) << code.str();
    POINT pts[2] = {{x0, y0}, {y0, x0}};
    t.CalcPoints(pts, 1, prec);
    ASSERT_TRUE(pts[0].x == wx && pts[0].y == wy && pts[1].x == y0) << code.str();
    POINT b = {x0, y0}, bs[1] = {{x0, y0}};
    t.InverseCalcPoint(b, prec);
    t.InverseCalcPoints(bs, 1, prec);
    ASSERT_TRUE(b.x == CPrecise::PreciseInt(bx, prec) && b.y == CPrecise::PreciseInt(by, prec)) << code.str();
    ASSERT_TRUE(bs[0].x == b.x && bs[0].y == b.y) << code.str();
  }
  float fx = 2, fy = 4;
  ties.CalcPoint(fx, fy);
  EXPECT_TRUE(fx == 3.0f && fy == -10.0f);
  POINTF pf = {fx, fy};
  ties.InverseCalcPoint(pf);
  EXPECT_TRUE(pf.x == 2.0f && pf.y == 4.0f);
}

TEST(Transform, GroupedPointsStopAtBadCount) {
  tqtest::HookCapture hooks;
  ATransform t;
  t.Translation(10, 0);
  POINTD pts[5] = {POINTD(0, 0), POINTD(1, 0), POINTD(2, 0), POINTD(3, 0), POINTD(4, 0)};
  int counts[3] = {2, 0, 3};
  t.CalcPointPoints(pts, counts, 3);
  EXPECT_EQ(hooks.Assertions(), 1);
  EXPECT_EQ(pts[1].x, 11);
  EXPECT_EQ(pts[2].x, 2);  // the walk stopped at the empty group
  int good[2] = {2, 3};
  t.InverseCalcPointPoints(pts, good, 2);
  EXPECT_EQ(pts[0].x, 0);
  EXPECT_EQ(pts[4].x, -6);
  POINT ip[2] = {{0, 0}, {1, 1}};
  int one[1] = {2};
  t.CalcPointPoints(ip, one, 1, 0.5);
  EXPECT_EQ(ip[1].x, 11);
  hooks.Clear();
  t.CalcPoints((POINT*)nullptr, 3, 0.5);
  EXPECT_EQ(hooks.Assertions(), 1);
}

TEST(Transform, MatrixPredicatesAndOffsets) {
  TransMatrix m;
  m.dx = 5e-11;
  EXPECT_TRUE(m.IdentityMatrix());
  m.dx = 1e-10;  // the tolerance is strict
  EXPECT_FALSE(m.IdentityMatrix());
  EXPECT_TRUE(m.OnlyScaleOffset());
  m.m21 = 0.1;
  EXPECT_FALSE(m.OnlyScaleOffset());
  // OnlyOffset: -1 for the same matrix, 1 and the offset for a move, 0 else.
  ATransform t;
  t.Rotate(0.4, 1, 1);
  t.Translation(3, 4);
  POINTD off(99, 99);
  EXPECT_EQ(t.GetMatrix().OnlyOffset(t.GetMatrix(), &off), -1);
  EXPECT_TRUE(off == POINTD(0, 0));
  TransMatrix moved = t.GetMatrix();
  moved.dx += 1;
  EXPECT_EQ(t.GetMatrix().OnlyOffset(moved, &off), 1);
  EXPECT_TRUE(off == POINTD(-1, 0));
  ATransform scaled = t;
  scaled.Scaling(2, 2, 0, 0);
  EXPECT_EQ(t.GetMatrix().OnlyOffset(scaled.GetMatrix(), nullptr), 0);
}

TEST(Transform, ArraysAndXformRoundTrip) {
  // The array's third column is ignored on the way in and reads 0, 0, 1.
  double a[9] = {1, 2, 77, 3, 4, 77, 5, 6, 77}, b[9];
  TransMatrix m;
  m.SetTransMatrix(a);
  m.GetTransMatrix(b);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(b[i], i % 3 != 2 ? a[i] : i == 8 ? 1 : 0) << i;
  m.m12 = 0.1;  // not a float: the XFORM keeps its float rounding
  XFORM xf = m;
  TransMatrix back(xf);
  EXPECT_EQ(back.m12, (double)0.1f);
  EXPECT_EQ(back.dx, 5);
  EXPECT_EQ(ATransform(xf).GetMatrix().m21, 3);
}

TEST(Transform, GaussJordanInverseAndItsRefusals) {
  std::mt19937_64 rng(77);
  std::uniform_real_distribution<double> u(-1, 1);
  for (int n : {1, 2, 3, 4, 5, 8, 17, 24}) {
    for (int trial = 0; trial < 20; ++trial) {
      std::vector<double> a((size_t)n * n), inv((size_t)n * n);
      for (double& v : a) v = u(rng);
      ASSERT_TRUE(TransMatrix::InverseMatrix(inv.data(), a.data(), n)) << "n=" << n;
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
          double s = 0;
          for (int k = 0; k < n; ++k) s += a[i * n + k] * inv[k * n + j];
          ASSERT_NEAR(s, i == j ? 1.0 : 0.0, 1e-7) << "n=" << n << " trial " << trial;
        }
    }
  }
  // Permutation matrices are full of tied pivots; their inverse is their
  // transpose, exactly.
  const int n = 5;
  int perm[n] = {3, 0, 4, 1, 2};
  std::vector<double> p(n * n, 0.0);
  for (int i = 0; i < n; ++i) p[i * n + perm[i]] = 1;
  std::vector<double> q = p;
  ASSERT_TRUE(TransMatrix::InverseMatrix(q.data(), n));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) EXPECT_EQ(q[i * n + j], p[j * n + i]);
  // The 3x3 form of an affine matrix agrees with the 2-D inverse.
  ATransform t;
  t.Rotate(0.9, 3, -2);
  t.Scaling(2, -0.5, 1, 1);
  M3 m3 = FromT(t);
  ASSERT_TRUE(TransMatrix::InverseMatrix(m3.data(), 3));
  TransMatrix inv2 = t.GetMatrix();
  ASSERT_TRUE(inv2.InverseMatrix());
  ExpectNear(m3, FromT(ATransform(inv2)), 1e-12, "3x3 against 2-D inverse");
  // Singular, tiny and NaN matrices and bad arguments are refused.
  double s[9] = {1, 2, 3, 2, 4, 6, 0, 1, 1};  // rank 2
  EXPECT_FALSE(TransMatrix::InverseMatrix(s, 3));
  double z[4] = {0, 0, 0, 0};
  EXPECT_FALSE(TransMatrix::InverseMatrix(z, 2));
  double tiny[1] = {5e-11};
  EXPECT_FALSE(TransMatrix::InverseMatrix(tiny, 1));
  double nan[1] = {NAN};
  EXPECT_FALSE(TransMatrix::InverseMatrix(nan, 1));
  tqtest::HookCapture hooks;
  EXPECT_FALSE(TransMatrix::InverseMatrix((double*)nullptr, 3));
  double one[1] = {4};
  EXPECT_FALSE(TransMatrix::InverseMatrix(one, 0));
  EXPECT_EQ(hooks.Assertions(), 2);
  EXPECT_TRUE(TransMatrix::InverseMatrix(one, 1));
  EXPECT_EQ(one[0], 0.25);
}

TEST(Transform, FrameTransforms) {
  ATransform f;
  f.IdentityFView(0, nullptr);
  EXPECT_TRUE(f.GetMatrix().m11 == 1 && f.GetMatrix().m22 == -1);
  ATransform v;
  v.IdentityVFlower(0, nullptr);
  EXPECT_TRUE(v == f);
  POINT origin = {100, 50};
  f.IdentityFView(MAKELONG(300, 600), &origin);  // H = 600, L = 300
  double x = 1, y = 1;
  f.CalcPoint(x, y);
  EXPECT_DOUBLE_EQ(x, 102);
  EXPECT_DOUBLE_EQ(y, 48);
  v.IdentityVFlower(MAKELONG(300, 600), &origin);
  x = 2, y = 2;
  v.CalcPoint(x, y);
  EXPECT_DOUBLE_EQ(x, 101);
  EXPECT_DOUBLE_EQ(y, 49);
  ATransform h0;
  h0.IdentityFView(MAKELONG(4, 0), nullptr);  // H = 0 counts as 1
  EXPECT_DOUBLE_EQ(h0.GetMatrix().m11, 0.25);
}

// The conversions against each other: each "to" has its "back", the
// two-step conversions are their one-step halves in turn, and every form
// may take the object itself as its argument.
TEST(Transform, FrameConversionsRoundTripAndCompose) {
  ATransform a;
  a.Rotate(0.5, 10, 20);
  a.Scaling(1.5, 0.75, 3, 4);
  a.Translation(7, -9);
  const POINT origin = {31, -17};
  const DWORD res = MAKELONG(254, 720);
  typedef void (ATransform::*Conv)(const ATransform&, DWORD, const POINT*);
  auto conv = [&](Conv fn, const ATransform& in) {
    ATransform out;
    (out.*fn)(in, res, &origin);
    ATransform self = in;  // in place
    (self.*fn)(self, res, &origin);
    ExpectNear(FromT(self), FromT(out), 1e-12, "in place");
    return out;
  };
  ExpectNear(FromT(conv(&ATransform::FViewToFFlower, conv(&ATransform::FFlowerToFView, a))), FromT(a), 1e-9,
             "F flower -> F view -> F flower");
  ExpectNear(FromT(conv(&ATransform::VFlowerToVView, conv(&ATransform::VViewToVFlower, a))), FromT(a), 1e-9,
             "V view -> V flower -> V view");
  ExpectNear(FromT(conv(&ATransform::FFlowerToVView, a)),
             FromT(conv(&ATransform::FViewToVView, conv(&ATransform::FFlowerToFView, a))), 1e-9, "F flower -> V view");
  ExpectNear(FromT(conv(&ATransform::VViewToFFlower, a)),
             FromT(conv(&ATransform::VFlowerToFFlower, conv(&ATransform::VViewToVFlower, a))), 1e-9,
             "V view -> F flower");
  // A point mapped by the converted transform is the frame's image of the
  // point mapped by a.
  ATransform frame, there = conv(&ATransform::FFlowerToFView, a);
  frame.IdentityFView(res, &origin);
  double x = 3, y = -4, fx = 3, fy = -4;
  there.CalcPoint(x, y);
  a.CalcPoint(fx, fy);
  frame.CalcPoint(fx, fy);
  EXPECT_NEAR(x, fx, 1e-9);
  EXPECT_NEAR(y, fy, 1e-9);
}

void ExpectFactorsReproduce(const ATransform& t, const POINTD& p1, const POINTD& p2) {
  ATransform s, m, r;
  ASSERT_TRUE(t.Resolution(p1, p2, &s, &m, &r));
  ATransform prod = s * m * r;
  ExpectNear(FromT(prod), FromT(t), 1e-9, "scale x move x rotate");
  EXPECT_TRUE(m.GetMatrix().m11 == 1 && m.GetMatrix().m12 == 0 && m.GetMatrix().m21 == 0 &&
              m.GetMatrix().m22 == 1);
  // The scale keeps p1 fixed, the rotation keeps p2 fixed.
  POINTD q1 = p1, q2 = p2;
  s.CalcPoint(q1);
  r.CalcPoint(q2);
  EXPECT_TRUE(q1 == p1 || (std::fabs(q1.x - p1.x) < 1e-9 && std::fabs(q1.y - p1.y) < 1e-9));
  EXPECT_NEAR(q2.x, p2.x, 1e-9);
  EXPECT_NEAR(q2.y, p2.y, 1e-9);
}

TEST(Transform, ResolutionFactorsShearFreeTransforms) {
  std::mt19937_64 rng(31);
  std::uniform_real_distribution<double> u(-4, 4);
  for (int trial = 0; trial < 200; ++trial) {
    ATransform t;
    double sx = u(rng), sy = u(rng);
    if (std::fabs(sx) < 0.1 || std::fabs(sy) < 0.1) continue;
    t.Scaling(sx, sy, u(rng), u(rng));
    t.Translation(u(rng) * 10, u(rng) * 10);
    double ang = u(rng);
    t.Rotate(ang, u(rng), u(rng));
    if (std::fabs(std::cos(ang)) < 1e-3 || std::fabs(std::sin(ang)) < 1e-3) continue;
    SCOPED_TRACE(trial);
    ExpectFactorsReproduce(t, POINTD(u(rng), u(rng)), POINTD(u(rng), u(rng)));
  }
  ATransform axis;
  axis.Scaling(2, -3, 5, 5);
  axis.Translation(1, 2);
  ExpectFactorsReproduce(axis, POINTD(1, 1), POINTD(-2, 4));
}

TEST(Transform, ResolutionFailures) {
  POINTD p;
  ATransform s, m, r;
  ATransform ok;
  ok.Scaling(2, 2, 0, 0);
  EXPECT_FALSE(ok.Resolution(p, p, nullptr, &m, &r));
  EXPECT_FALSE(ok.Resolution(p, p, &s, nullptr, &r));
  EXPECT_FALSE(ok.Resolution(p, p, &s, &m, nullptr));
  EXPECT_FALSE(ATransform(Mx(1e-6, 0, 0, 1e-5)).Resolution(p, p, &s, &m, &r));  // det 1e-11
  // A pure quarter turn: m22 vanishes and fails.
  EXPECT_FALSE(ATransform(Mx(0, 1, -1, 0)).Resolution(p, p, &s, &m, &r));
  EXPECT_FALSE(ATransform(Mx(1, 0.5, 0, 1)).Resolution(p, p, &s, &m, &r));  // m21 stays 0
  ATransform sh;
  sh.Rotate(0.3, 0, 0);
  sh.Shear(0.2, 0.0, 0, 0);
  TransMatrix before = s.GetMatrix();
  EXPECT_FALSE(sh.Resolution(p, p, &s, &m, &r));  // axes not perpendicular
  EXPECT_TRUE(s.GetMatrix().m11 == before.m11);   // nothing written
  // m11 exactly 0 with a usable m22 passes the checks and reaches the
  // quarter-turn form, which asserts (m22 is not 0).
  tqtest::HookCapture hooks;
  EXPECT_TRUE(ATransform(Mx(0, 2, -3, 1)).Resolution(POINTD(), POINTD(), &s, &m, &r));
  EXPECT_EQ(hooks.Assertions(), 1);
  EXPECT_EQ(s.GetMatrix().m11, 2);   // sx = m12
  EXPECT_EQ(s.GetMatrix().m22, 3);   // sy = -m21
  EXPECT_EQ(r.GetMatrix().m11, 0);   // c = 0
  EXPECT_EQ(r.GetMatrix().m12, 1);   // s = 1
}

// What has no finite result is refused: a NaN or infinite determinant, a
// NaN or infinite offset, an inverse that overflows. (A NaN matrix once
// inverted to NaNs with TRUE, and CanInverseCalc said TRUE for it.)
TEST(Transform, NonFiniteMatricesHaveNoInverse) {
  TransMatrix overflow = Mx(0x1p-1032, 0, 0, 0x1p+1000);  // det 2^-32, inverse m11 2^1032
  TransMatrix nanOffset = Mx(2, 0, 0, 2);
  nanOffset.dx = NAN;
  for (const TransMatrix& t : {Mx(NAN, 0, 0, 1), Mx(1e300, 0, 0, 1e300), Mx(INFINITY, 0, 0, 1), nanOffset, overflow}) {
    TransMatrix inv = t;
    EXPECT_FALSE(inv.InverseMatrix()) << t.m11;
    EXPECT_EQ(std::memcmp(&inv, &t, sizeof t), 0) << t.m11;  // unchanged
  }
  // Gauss-Jordan needs no determinant: a huge diagonal inverts, the rest
  // is refused.
  for (const TransMatrix& t : {Mx(NAN, 0, 0, 1), Mx(INFINITY, 0, 0, 1), nanOffset, overflow}) {
    double m[9];
    t.GetTransMatrix(m);
    EXPECT_FALSE(TransMatrix::InverseMatrix(m, 3)) << t.m11;
  }
  for (const TransMatrix& t : {Mx(NAN, 0, 0, 1), Mx(INFINITY, 0, 0, 1), nanOffset}) {
    POINTD p;
    ATransform s, mv, r;
    EXPECT_FALSE(ATransform(t).Resolution(p, p, &s, &mv, &r)) << t.m11;
  }
  // The n x n form leaves a non-finite matrix as it was.
  double inf[4] = {1, INFINITY, 0, 1}, keep[4] = {1, INFINITY, 0, 1};
  EXPECT_FALSE(TransMatrix::InverseMatrix(inf, 2));
  EXPECT_EQ(std::memcmp(inf, keep, sizeof inf), 0);
  // The backward maps need a finite, non-zero determinant.
  EXPECT_FALSE(ATransform(Mx(NAN, 0, 0, 1)).CanInverseCalc());
  EXPECT_FALSE(ATransform(Mx(1e300, 0, 0, 1e300)).CanInverseCalc());
  EXPECT_TRUE(ATransform(Mx(0x1p-1032, 0, 0, 0x1p+1000)).CanInverseCalc());
  // A finite transform with points that are not: refused too.
  ATransform s, mv, r;
  EXPECT_FALSE(ATransform(Mx(2, 0, 0, 3)).Resolution(POINTD(NAN, 0), POINTD(), &s, &mv, &r));
  EXPECT_TRUE(ATransform(Mx(2, 0, 0, 3)).Resolution(POINTD(1, 0), POINTD(), &s, &mv, &r));
}

// NaN and infinities pass through the double maps; the integer forms give
// INT_MIN for them and for values beyond 32 bits; the float forms give
// infinities beyond the float range.
TEST(Transform, NonFiniteValuesInTheMaps) {
  ATransform t(Mx(1e300, 0, 0, NAN));
  double x = 1e10, y = 1;
  t.CalcPoint(x, y);
  EXPECT_TRUE(std::isinf(x) && std::isnan(y));
  int ix = 3, iy = 4;
  t.CalcPoint(ix, iy, 0.5);
  EXPECT_TRUE(ix == INT_MIN && iy == INT_MIN);
  POINT p = {1, 1};
  ATransform(Mx(3e9, 0, 0, 1)).CalcPoint(p, 0.0);
  EXPECT_TRUE(p.x == INT_MIN && p.y == 1);
  float fx = 2, fy = 2;
  ATransform(Mx(1e300, 0, 0, -1e300)).CalcPoint(fx, fy);
  EXPECT_TRUE(fx == INFINITY && fy == -INFINITY);
  const XFORM xf = TransMatrix(Mx(1e300, NAN, 0, 1));
  EXPECT_TRUE(xf.eM11 == INFINITY && std::isnan(xf.eM12));
  EXPECT_EQ(CPrecise::PreciseInt(1, NAN), INT_MIN);
  EXPECT_EQ(CPrecise::PreciseInt(2147483647.6, 0.5), INT_MIN);
  EXPECT_EQ(CPrecise::PreciseInt(2147483647.4, 0.0), INT_MAX);
}

// The source forms load the source and then apply the operation.
TEST(Transform, SourceFormsLoadThenApply) {
  ATransform src, a, b, c, d, e;
  src.Rotate(0.2, 1, 1);
  src.Translation(5, 5);
  ATransform wa = src, wb = src, wc = src, wd = src, we = src;
  a.Scaling(&src, 2, 3, 1, 0);
  wa.Scaling(2, 3, 1, 0);
  b.Rotate(src, 0.7, 2, 0);
  wb.Rotate(0.7, 2, 0);
  c.Translation(src, 1, -1);
  wc.Translation(1, -1);
  d.Shear(src, 0.1, 0.2, 0, 1);
  wd.Shear(0.1, 0.2, 0, 1);
  e.Reflection(src, 0.4, 3, 3);
  we.Reflection(0.4, 3, 3);
  EXPECT_TRUE(a == wa && b == wb && c == wc && d == wd && e == we);
}

}  // namespace
