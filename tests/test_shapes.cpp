// test_shapes.cpp - CEllipse's transformed ellipses and rectangles,
// quadrilaterals, parallelograms, lines and chords: every shape against a
// brute-force inside test of the continuous shape on seeded random sizes,
// angles and transforms; exact agreement with the upright forms where the
// image is an upright integer rectangle; the top-left rule on shared edges;
// the geometry helpers; degenerate and failing input.
#include <tqbase/tqbase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

static bool operator==(const POINT& a, const POINT& b) { return a.x == b.x && a.y == b.y; }

namespace {

const double kPi = 3.141592653589793;
typedef long long i64;
typedef std::function<double(double, double)> Margin;  // > 0 inside, < 0 outside

struct Shape {
  int first = 0;
  std::vector<POINT> runs;
  RECT box{0, 0, 0, 0};
  bool operator==(const Shape& o) const {
    return first == o.first && runs == o.runs && box.left == o.box.left && box.top == o.box.top &&
           box.right == o.box.right && box.bottom == o.box.bottom;
  }
};

std::string Describe(const Shape& s) {
  char buf[120];
  std::snprintf(buf, sizeof buf, "first %d, %zu rows, box (%d, %d, %d, %d)", s.first, s.runs.size(),
                (int)s.box.left, (int)s.box.top, (int)s.box.right, (int)s.box.bottom);
  return buf;
}

// Every shape is made in both forms; the region form must hold the same
// runs (one per row) with the inclusive box and be a valid piece, or be
// the empty piece when the list is empty. Every result is well formed:
// inclusive runs and a box that is exactly the half-open bounds of the runs.
template <class List, class Piece>
Shape Both(List list, Piece piece) {
  Shape s;
  CArray<POINT, POINT> runs;
  runs.Add(POINT{7, 7});  // replaced by every call
  s.first = list(runs, &s.box);
  s.runs = runs.vec();
  RSRLINE rst;
  rst.arCount.Add(3);
  const BOOL made = piece(rst);
  EXPECT_EQ(made, !s.runs.empty());
  EXPECT_TRUE(CRstLines::IsValid(&rst));
  EXPECT_EQ(rst.arRun.GetSize(), (int)s.runs.size());
  EXPECT_EQ(rst.arCount.vec(), std::vector<int>(s.runs.size(), 1));
  for (int k = 0; k < rst.arRun.GetSize() && k < (int)s.runs.size(); ++k)
    EXPECT_TRUE(rst.arRun[k].x1 == s.runs[(size_t)k].x && rst.arRun[k].x2 == s.runs[(size_t)k].y) << "row " << k;
  if (made) {
    EXPECT_TRUE(rst.rcBox.left == s.box.left && rst.rcBox.top == s.box.top &&
                rst.rcBox.right == s.box.right - 1 && rst.rcBox.bottom == s.box.bottom - 1);
    i64 lo = INT_MAX, hi = INT_MIN;
    for (const POINT& r : s.runs) {
      EXPECT_LE(r.x, r.y);
      lo = std::min<i64>(lo, r.x);
      hi = std::max<i64>(hi, r.y);
    }
    EXPECT_TRUE(s.box.left == lo && s.box.right == hi + 1 && s.box.top == s.first &&
                (i64)s.box.bottom - s.box.top == (i64)s.runs.size()) << Describe(s);
  } else {
    EXPECT_TRUE(s.box.left == 0 && s.box.top == 0 && s.box.right == 0 && s.box.bottom == 0);
  }
  return s;
}

Shape Ellipse(const RECTD& rc, const ATransform& t) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::EllipseRasterLine(rc, t, r, b); },
              [&](RSRLINE& p) { return CEllipse::EllipseRasterLine(rc, t, p); });
}
Shape Rect(const RECT& rc, const ATransform& t) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::RectRasterLine(rc, t, r, b); },
              [&](RSRLINE& p) { return CEllipse::RectRasterLine(rc, t, p); });
}
Shape UprightEllipse(const RECT& rc, double angle = 0.0) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::EllipseRasterLine(rc, angle, r, b); },
              [&](RSRLINE& p) { return CEllipse::EllipseRasterLine(rc, angle, p); });
}
Shape UprightRect(const RECT& rc, double angle = 0.0) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::RectRasterLine(rc, angle, r, b); },
              [&](RSRLINE& p) { return CEllipse::RectRasterLine(rc, angle, p); });
}
Shape Quad(const POINTD* c) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::MidPointRect(c, r, b); },
              [&](RSRLINE& p) { return CEllipse::MidPointRect(c, p); });
}
Shape Plg(const POINTD* c) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::MidPointParalgram(c, r, b); },
              [&](RSRLINE& p) { return CEllipse::MidPointParalgram(c, p); });
}
Shape PlgInt(const POINT* c) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::PlgRasterLine(c, r, b); },
              [&](RSRLINE& p) { return CEllipse::PlgRasterLine(c, p); });
}
Shape Line(POINT a, POINT b) {
  return Both([&](CArray<POINT, POINT>& r, RECT* bx) { return CEllipse::MidPointLine(a, b, r, bx); },
              [&](RSRLINE& p) { return CEllipse::MidPointLine(a, b, p); });
}
Shape Arc(const RECT& rc, double s, double e) {
  return Both([&](CArray<POINT, POINT>& r, RECT* b) { return CEllipse::MidPointArc(rc, s, e, r, b); },
              [&](RSRLINE& p) { return CEllipse::MidPointArc(rc, s, e, p); });
}

bool Covers(const Shape& s, i64 x, i64 y) {
  const i64 k = y - s.first;
  return k >= 0 && k < (i64)s.runs.size() && x >= s.runs[(size_t)k].x && x <= s.runs[(size_t)k].y;
}

// The greatest value of a concave function on [lo, hi].
double MaxConcave(const std::function<double(double)>& f, double lo, double hi) {
  for (int i = 0; i < 100; ++i) {
    const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
    if (f(m1) < f(m2)) lo = m1; else hi = m2;
  }
  return f((lo + hi) / 2);
}

// The pixel-centre model of a convex shape given by a concave margin: a
// pixel whose centre is inside (beyond hair) is covered, one whose centre
// is outside is not, except the one pixel of a row whose centre line
// crosses the shape without a centre inside; that pixel's own stretch of
// the centre line must meet the shape. Rows without a centre inside are
// such slivers (or a lone row of a shape between two centre lines).
void ExpectCentres(const Shape& s, const Margin& margin, const std::string& call, double hair = 1e-9) {
  SCOPED_TRACE(call);
  ASSERT_FALSE(s.runs.empty());
  const i64 x0 = (i64)s.box.left - 3, x1 = (i64)s.box.right + 2;
  for (i64 y = (i64)s.first - 2; y <= (i64)s.first + (i64)s.runs.size() + 1; ++y) {
    const double yc = (double)y + 0.5;
    int inside = 0;
    for (i64 x = x0; x <= x1; ++x) inside += margin((double)x + 0.5, yc) > -hair;
    const i64 k = y - s.first;
    const bool row = k >= 0 && k < (i64)s.runs.size();
    const bool sliver = row && inside == 0;
    auto along = [&](double xa, double xb) {
      return MaxConcave([&](double x) { return margin(x, yc); }, xa, xb);
    };
    if (sliver && s.runs.size() > 1) {
      const POINT& r = s.runs[(size_t)k];
      ASSERT_EQ(r.x, r.y) << "row " << y << " has no centre inside but " << r.y - r.x + 1 << " pixels";
      ASSERT_GT(along((double)r.x, (double)r.x + 1.0), -hair) << "sliver pixel (" << r.x << ", " << y << ") off the shape";
    }
    if (sliver && s.runs.size() == 1) {
      // A shape between two centre lines: every pixel of its one row meets
      // the shape.
      for (i64 x = s.runs[0].x; x <= s.runs[0].y; ++x) {
        const double m = MaxConcave([&](double py) {
          return MaxConcave([&](double px) { return margin(px, py); }, (double)x, (double)x + 1);
        }, (double)y, (double)y + 1);
        ASSERT_GT(m, -hair) << "pixel (" << x << ", " << y << ") of the lone row off the shape";
      }
    }
    for (i64 x = x0; x <= x1; ++x) {
      const double m = margin((double)x + 0.5, yc);
      const bool in = Covers(s, x, y);
      if (m > hair) {
        ASSERT_TRUE(in) << "pixel (" << x << ", " << y << ") missing";
      }
      if (m < -hair && !sliver) {
        ASSERT_FALSE(in) << "pixel (" << x << ", " << y << ") outside";
      }
    }
  }
}

// ---- models of the continuous shapes --------------------------------------------------

// The inverse of a transform's linear part and offset, formed here.
struct Inverse {
  double a11, a12, a21, a22, ox, oy;
  explicit Inverse(const ATransform& t) {
    const TransMatrix& m = t.GetMatrix();
    const double det = m.m11 * m.m22 - m.m12 * m.m21;
    a11 = m.m22 / det; a12 = -m.m12 / det; a21 = -m.m21 / det; a22 = m.m11 / det;
    ox = -(m.dx * a11 + m.dy * a21);
    oy = -(m.dx * a12 + m.dy * a22);
  }
  void Map(double x, double y, double* u, double* v) const {
    *u = x * a11 + y * a21 + ox;
    *v = x * a12 + y * a22 + oy;
  }
};

// The ellipse inscribed in rc under t: 1 - |(u, v)| in the unit disk's
// coordinates (concave along any line).
Margin EllipseModel(const RECTD& rc, const ATransform& t) {
  const Inverse inv(t);
  const double cx = (rc.left + rc.right) / 2, cy = (rc.top + rc.bottom) / 2;
  const double A = (rc.right - rc.left) / 2, B = (rc.bottom - rc.top) / 2;
  return [=](double x, double y) {
    double u, v;
    inv.Map(x, y, &u, &v);
    return 1.0 - std::hypot((u - cx) / A, (v - cy) / B);
  };
}

// A convex polygon in outline order (either direction): the least signed
// distance to its edges' lines.
Margin PolygonModel(std::vector<POINTD> p) {
  double area = 0;
  for (size_t i = 0; i < p.size(); ++i) {
    const POINTD &a = p[i], &b = p[(i + 1) % p.size()];
    area += a.x * b.y - a.y * b.x;
  }
  if (area < 0) std::reverse(p.begin(), p.end());
  return [p](double x, double y) {
    double m = 1e300;
    for (size_t i = 0; i < p.size(); ++i) {
      const POINTD &a = p[i], &b = p[(i + 1) % p.size()];
      const double ex = b.x - a.x, ey = b.y - a.y, len = std::hypot(ex, ey);
      if (len == 0) continue;
      m = std::min(m, (ex * (y - a.y) - ey * (x - a.x)) / len);
    }
    return m;
  };
}

std::vector<POINTD> Corners(const RECTD& rc, const ATransform& t) {
  std::vector<POINTD> p = {POINTD(rc.left, rc.top), POINTD(rc.right, rc.top), POINTD(rc.right, rc.bottom),
                           POINTD(rc.left, rc.bottom)};
  for (POINTD& q : p) t.CalcPoint(q);
  return p;
}

std::string Call(const char* fn, const RECTD& rc, const ATransform& t) {
  const TransMatrix& m = t.GetMatrix();
  char buf[400];
  std::snprintf(buf, sizeof buf,
                "CEllipse::%s(RECTD(%.17g, %.17g, %.17g, %.17g), ATransform(TransMatrix{%.17g, %.17g, %.17g, "
                "%.17g, %.17g, %.17g}), ...)",
                fn, rc.left, rc.top, rc.right, rc.bottom, m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
  return buf;
}

ATransform FromMatrix(double m11, double m12, double m21, double m22, double dx, double dy) {
  TransMatrix m;
  m.m11 = m11; m.m12 = m12; m.m21 = m21; m.m22 = m22; m.dx = dx; m.dy = dy;
  return ATransform(m);
}

// A layout transform: turned, scaled, sheared, sometimes mirrored, moved by
// a fraction of a pixel.
ATransform RandomTransform(std::mt19937& rng) {
  std::uniform_real_distribution<double> u(0, 1);
  ATransform t;
  t.Rotate(u(rng) * 14 - 7, u(rng) * 40, u(rng) * 40);
  t.Scaling(0.3 + 2 * u(rng), 0.3 + 2 * u(rng), u(rng) * 10, u(rng) * 10);
  if (u(rng) < 0.5) t.Shear(u(rng) - 0.5, u(rng) - 0.5, 0, 0);
  if (u(rng) < 0.3) t.Reflection(u(rng) * kPi, 5, 5);
  t.Translation(u(rng) * 200 - 100, u(rng) * 200 - 100);
  return t;
}

// ---- transformed ellipses and rectangles ------------------------------------------------

TEST(ShapesTransformed, EllipsesAndRectanglesHoldThePixelCentresInside) {
  std::mt19937 rng(20240612);
  std::uniform_real_distribution<double> u(0, 1);
  for (int i = 0; i < 250; ++i) {
    const ATransform t = RandomTransform(rng);
    // Integer rectangles of 1 to 60 pixels (1, 2 and 3 often), and
    // rectangles in doubles.
    const int w = i % 5 == 0 ? 1 + i % 3 : 1 + (int)(rng() % 60), h = i % 7 == 0 ? 1 + i % 3 : 1 + (int)(rng() % 60);
    const int l = (int)(rng() % 200) - 100, tp = (int)(rng() % 200) - 100;
    const RECT rc{l, tp, l + w, tp + h};
    const RECTD rd = i % 2 ? RECTD(rc) : RECTD(l + u(rng), tp + u(rng), l + w + u(rng), tp + h + u(rng));
    ExpectCentres(Ellipse(rd, t), EllipseModel(rd, t), Call("EllipseRasterLine", rd, t), 1e-9);
    ExpectCentres(Rect(rc, t), PolygonModel(Corners(RECTD(rc), t)), Call("RectRasterLine", RECTD(rc), t), 1e-9);
    {
      const RECT rci = rc;  // the RECT form of the ellipse equals the RECTD form
      RSRLINE a, b;
      EXPECT_EQ(CEllipse::EllipseRasterLine(rci, t, a), CEllipse::EllipseRasterLine(RECTD(rci), t, b));
      EXPECT_TRUE(CRstLines::IsEqual(&a, &b));
    }
  }
}

// No pixel whose centre lies more than half a pixel inside the continuous
// ellipse is left out and none more than half a pixel outside is covered;
// for the midpoint forms (upright images) three quarters of a pixel.
double DistanceToEllipse(double px, double py, double cx, double cy, double ux, double uy, double vx, double vy) {
  auto d2 = [&](double t) {
    const double x = cx + std::cos(t) * ux + std::sin(t) * vx - px, y = cy + std::cos(t) * uy + std::sin(t) * vy - py;
    return x * x + y * y;
  };
  const int n = 360;
  int best = 0;
  for (int i = 1; i < n; ++i)
    if (d2(2 * kPi * i / n) < d2(2 * kPi * best / n)) best = i;
  double lo = 2 * kPi * (best - 1) / n, hi = 2 * kPi * (best + 1) / n;
  for (int i = 0; i < 80; ++i) {
    const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
    if (d2(m1) > d2(m2)) lo = m1; else hi = m2;
  }
  return std::sqrt(d2((lo + hi) / 2));
}

TEST(ShapesTransformed, EveryEllipseIsWithinHalfAPixelOfTheContinuousOne) {
  std::mt19937 rng(5);
  for (int i = 0; i < 90; ++i) {
    const int w = 3 + (int)(rng() % 50), h = 3 + (int)(rng() % 50);
    const RECT rc{-(int)(rng() % 30), (int)(rng() % 30), 0, 0};
    const RECT r{rc.left, rc.top, rc.left + w, rc.top + h};
    ATransform t;
    if (i % 3 == 1) t = RandomTransform(rng);
    if (i % 3 == 2) t.Scaling(2, 3, 0, 0);  // an integer image: the midpoint core
    const Shape s = Ellipse(RECTD(r), t);
    const TransMatrix& m = t.GetMatrix();
    double cx = (r.left + r.right) / 2.0, cy = (r.top + r.bottom) / 2.0;
    t.CalcPoint(cx, cy);
    const double A = w / 2.0, B = h / 2.0;
    const Margin inside = EllipseModel(RECTD(r), t);
    POINTD pc;
    double ia, ib, tilt;
    ASSERT_TRUE(CEllipse::GetEllipseParam(RECTD(r), t, pc, ia, ib, tilt));
    SCOPED_TRACE(Call("EllipseRasterLine", RECTD(r), t));
    for (i64 y = (i64)s.box.top - 2; y < (i64)s.box.bottom + 2; ++y)
      for (i64 x = (i64)s.box.left - 2; x < (i64)s.box.right + 2; ++x) {
        const double px = x + 0.5, py = y + 0.5, mi = inside(px, py);
        // A centre at unit radius 1 - mi lies at least |mi| times the short
        // semi-axis from the outline: far pixels are settled by the centre.
        if (std::fabs(mi) * ib > 0.8) continue;
        const double d = DistanceToEllipse(px, py, cx, cy, A * m.m11, A * m.m12, B * m.m21, B * m.m22);
        if (d <= (i % 3 == 1 ? 0.5 : 0.75) + 1e-9) continue;
        ASSERT_EQ(Covers(s, x, y), mi > 0) << "pixel (" << x << ", " << y << ") at " << d << (mi > 0 ? " inside" : " outside");
      }
  }
}

// Where the image of the rectangle is again an upright rectangle with
// integer corners, the result is the upright form of that rectangle.
TEST(ShapesTransformed, UprightImagesGiveTheUprightFormsExactly) {
  std::mt19937 rng(3);
  for (int i = 0; i < 400; ++i) {
    const int w = 1 + (int)(rng() % (i < 60 ? 4 : 90)), h = 1 + (int)(rng() % (i < 60 ? 4 : 90));
    const int l = (int)(rng() % 2001) - 1000, tp = (int)(rng() % 2001) - 1000;
    const RECT rc{l, tp, l + w, tp + h};
    const int px = (int)(rng() % 201) - 100, py = (int)(rng() % 201) - 100;
    ATransform t;
    RECT image = rc;
    switch (i % 6) {
      case 0:  // the identity
        break;
      case 1:  // an integer translation
        t.Translation(px, py);
        image = RECT{l + px, tp + py, l + w + px, tp + h + py};
        break;
      case 2:
      case 3: {  // a quarter turn (1 to 3, or -1) about an integer point
        const int q = i % 6 == 2 ? 1 + (int)(rng() % 3) : -1;
        t.Rotate(q * kPi / 2, px, py);
        POINT a{rc.left - px, rc.top - py}, b{rc.right - px, rc.bottom - py};
        for (int k = 0; k < (q + 4) % 4; ++k) {  // (x, y) -> (-y, x)
          a = POINT{-a.y, a.x};
          b = POINT{-b.y, b.x};
        }
        image = RECT{std::min(a.x, b.x) + px, std::min(a.y, b.y) + py, std::max(a.x, b.x) + px,
                     std::max(a.y, b.y) + py};
        break;
      }
      case 4:  // a mirror top to bottom about an integer line
        t.Reflection(0, 0, py);
        image = RECT{l, 2 * py - (tp + h), l + w, 2 * py - tp};
        break;
      case 5:  // integer scalings, one of them mirrored
        t.Scaling(2, -3, 0, 0);
        image = RECT{2 * l, -3 * (tp + h), 2 * (l + w), -3 * tp};
        break;
    }
    SCOPED_TRACE(Call("EllipseRasterLine", RECTD(rc), t));
    ASSERT_TRUE(Ellipse(RECTD(rc), t) == UprightEllipse(image));
    ASSERT_TRUE(Rect(rc, t) == UprightRect(image));
    RSRLINE a, b;
    CEllipse::EllipseRasterLine(rc, t, a);
    CEllipse::EllipseRasterLine(image, 0.0, b);
    ASSERT_TRUE(CRstLines::IsEqual(&a, &b));
  }
  // A rectangle in doubles whose image lands on integers counts too.
  ATransform half;
  half.Translation(0.5, -0.25);
  EXPECT_TRUE(Ellipse(RECTD(-0.5, 3.25, 20.5, 14.25), half) == UprightEllipse(RECT{0, 3, 21, 14}));
}

// A shape moved by whole pixels moves by whole pixels: its runs are the
// same, shifted.
TEST(ShapesTransformed, IntegerMovesShiftTheRuns) {
  std::mt19937 rng(17);
  for (int i = 0; i < 60; ++i) {
    ATransform t = RandomTransform(rng), moved = t;
    const int dx = (int)(rng() % 2001) - 1000, dy = (int)(rng() % 2001) - 1000;
    moved.Translation(dx, dy);
    const RECT rc{0, 0, 3 + (int)(rng() % 40), 3 + (int)(rng() % 40)};
    for (int kind = 0; kind < 2; ++kind) {
      const Shape a = kind ? Rect(rc, t) : Ellipse(RECTD(rc), t);
      const Shape b = kind ? Rect(rc, moved) : Ellipse(RECTD(rc), moved);
      ASSERT_EQ(b.first, a.first + dy);
      ASSERT_EQ(a.runs.size(), b.runs.size());
      // Doubles moved by integers round differently only at exact ties.
      size_t same = 0;
      for (size_t k = 0; k < a.runs.size(); ++k)
        same += b.runs[k].x == a.runs[k].x + dx && b.runs[k].y == a.runs[k].y + dx;
      EXPECT_GE(same + 1, a.runs.size()) << Call(kind ? "RectRasterLine" : "EllipseRasterLine", RECTD(rc), t);
    }
  }
}

// Squashed shapes are lines or points; nothing crashes, every result is a
// valid piece.
TEST(ShapesTransformed, SingularTransformsGiveLinesOrPoints) {
  const RECT rc{2, 3, 12, 9};
  // Onto the line y = 0 (x' = x, y' = 0): the 10 pixels of row 0 from 2
  // to 11, the segment's right end being the edge of pixel 11.
  const Shape flat = Rect(rc, FromMatrix(1, 0, 0, 0, 0, 0));
  EXPECT_TRUE(flat.first == 0 && flat.runs == (std::vector<POINT>{POINT{2, 11}})) << Describe(flat);
  // Onto a slanted line: x' = x + 2y, y' = (x + 2y) / 2. The corners (2, 3)
  // and (12, 9) go to (8, 4) and (30, 15), inside pixels (8, 4) and (29, 14).
  const Shape slant = Rect(rc, FromMatrix(1, 0.5, 2, 1, 0, 0));
  EXPECT_TRUE(slant == Line(POINT{8, 4}, POINT{29, 14})) << Describe(slant);
  // The ellipse squashed the same way: a one-pixel line along x = 2y + 0
  // through its centre (19, 9.5).
  const Shape ell = Ellipse(RECTD(rc), FromMatrix(1, 0.5, 2, 1, 0, 0));
  EXPECT_FALSE(ell.runs.empty());
  for (size_t k = 0; k < ell.runs.size(); ++k) {
    const double yc = ell.first + (double)k + 0.5;
    EXPECT_LE(std::fabs(ell.runs[k].x + 0.5 - 2 * yc), 1.5);
    EXPECT_LE(std::fabs(ell.runs[k].y + 0.5 - 2 * yc), 1.5);
  }
  // Onto a point.
  const Shape dot = Ellipse(RECTD(rc), FromMatrix(0, 0, 0, 0, 7.5, -2.5));
  EXPECT_TRUE(dot.first == -3 && dot.runs == (std::vector<POINT>{POINT{7, 7}})) << Describe(dot);
  EXPECT_TRUE(Rect(rc, FromMatrix(0, 0, 0, 0, 7.5, -2.5)) == dot);
  // Nearly singular: a thin but unbroken shape, one run in every row.
  const Shape thin = Rect(rc, FromMatrix(1, 0.5, 2, 1 + 1e-9, 0, 0));
  ExpectCentres(thin, PolygonModel(Corners(RECTD(rc), FromMatrix(1, 0.5, 2, 1 + 1e-9, 0, 0))), "thin", 1e-12);
}

// ---- quadrilaterals and parallelograms ----------------------------------------------------

TEST(ShapesPolygons, QuadrilateralsAndParallelogramsHoldThePixelCentresInside) {
  std::mt19937 rng(41);
  std::uniform_real_distribution<double> u(-40, 40);
  for (int i = 0; i < 300; ++i) {
    POINTD p[3] = {POINTD(u(rng), u(rng)), POINTD(u(rng), u(rng)), POINTD(u(rng), u(rng))};
    if (i % 4 == 0) p[2] = POINTD(p[0].x + (p[1].y - p[0].y) * 0.05, p[0].y - (p[1].x - p[0].x) * 0.05);  // thin
    if (i % 9 == 0) p[1].y = p[0].y;  // a horizontal edge
    const std::vector<POINTD> quad = {p[0], p[1], POINTD(p[1].x + p[2].x - p[0].x, p[1].y + p[2].y - p[0].y), p[2]};
    char call[200];
    std::snprintf(call, sizeof call, "MidPointParalgram({%.17g, %.17g}, {%.17g, %.17g}, {%.17g, %.17g})", p[0].x,
                  p[0].y, p[1].x, p[1].y, p[2].x, p[2].y);
    const Shape s = Plg(p);
    ExpectCentres(s, PolygonModel(quad), call);
    EXPECT_TRUE(Quad(quad.data()) == s) << call;
    // Corners in the other direction, or starting elsewhere, or as a
    // triangle with a repeated corner.
    const POINTD back[4] = {quad[3], quad[2], quad[1], quad[0]};
    EXPECT_TRUE(Quad(back) == s) << call;
    const POINTD tri[4] = {p[0], p[1], p[2], p[2]};
    ExpectCentres(Quad(tri), PolygonModel({p[0], p[1], p[2]}), std::string(call) + " as a triangle");
  }
}

TEST(ShapesPolygons, IntegerCornersOnPixelEdges) {
  // Axis-aligned: exactly the rectangle's pixels, whatever the order the
  // corners describe it in.
  const RECT rc{-5, 2, 7, 9};
  const POINT ul{-5, 2}, ur{7, 2}, ll{-5, 9}, lr{7, 9};
  const Shape rect = UprightRect(rc);
  for (const std::vector<POINT>& c : std::vector<std::vector<POINT>>{{ul, ur, ll}, {lr, ll, ur}, {ur, ul, lr}})
    EXPECT_TRUE(PlgInt(c.data()) == rect);
  // A sheared one (the corners (0, 0), (4, 0), (8, 4), (4, 4)): on row y
  // the centre line y + 0.5 meets it from x = y + 0.5 to y + 4.5.
  const POINT sh[3] = {{0, 0}, {4, 0}, {4, 4}};
  const Shape s = PlgInt(sh);
  EXPECT_EQ(s.first, 0);
  EXPECT_EQ(s.runs, (std::vector<POINT>{{0, 3}, {1, 4}, {2, 5}, {3, 6}}));
  // Collinear corners: a line; equal corners: a pixel.
  const POINT col[3] = {{0, 0}, {6, 3}, {2, 1}};
  EXPECT_TRUE(PlgInt(col) == Line(POINT{0, 0}, POINT{7, 3}));  // (8, 4) is the edge of pixel (7, 3)
  const POINT one[3] = {{5, 5}, {5, 5}, {5, 5}};
  EXPECT_EQ(PlgInt(one).runs, (std::vector<POINT>{POINT{5, 5}}));
}

// Shapes that share an edge share no pixel, and together they are the
// shape they split (the top-left rule; the pieces have no sliver rows).
TEST(ShapesPolygons, SharedEdgesTile) {
  std::mt19937 rng(8);
  std::uniform_real_distribution<double> u(-30, 30);
  for (int i = 0; i < 200; ++i) {
    // Horizontal top and bottom edges at half rows and on row edges, and a
    // slanted side: every row of every piece holds a pixel centre.
    const double y0 = std::floor(u(rng)) + (i % 2 ? 0.5 : 0.0), hgt = 2 + (int)(rng() % 30);
    const double xa = u(rng), wid = 2 + std::fabs(u(rng)), shear = u(rng) / 10, cut = 1 + std::fabs(u(rng)) / 30 * wid;
    const POINTD whole[3] = {POINTD(xa, y0), POINTD(xa + 2 * wid, y0), POINTD(xa + shear * hgt, y0 + hgt)};
    const POINTD left[3] = {whole[0], POINTD(xa + cut, y0), whole[2]};
    const POINTD right[3] = {POINTD(xa + cut, y0), whole[1], POINTD(xa + cut + shear * hgt, y0 + hgt)};
    const POINTD topHalf[3] = {whole[0], whole[1], POINTD(xa + shear * hgt / 2, y0 + hgt / 2)};
    const POINTD lowHalf[3] = {topHalf[2], POINTD(topHalf[2].x + 2 * wid, topHalf[2].y), whole[2]};
    const Shape all = Plg(whole);
    for (auto pair : {std::make_pair(Plg(left), Plg(right)), std::make_pair(Plg(topHalf), Plg(lowHalf))}) {
      for (i64 y = all.first - 1; y <= all.first + (i64)all.runs.size(); ++y)
        for (i64 x = all.box.left - 1; x <= all.box.right; ++x) {
          const bool a = Covers(pair.first, x, y), b = Covers(pair.second, x, y);
          ASSERT_FALSE(a && b) << "pixel (" << x << ", " << y << ") in both, case " << i;
          ASSERT_EQ(a || b, Covers(all, x, y)) << "pixel (" << x << ", " << y << "), case " << i;
        }
    }
  }
}

// ---- turned rectangles: RotateRect ---------------------------------------------------------

TEST(ShapesPolygons, RotateRectTurnsAboutTheCentre) {
  const RECT rc{10, 20, 16, 24};  // centre (13, 22), half sides 3 and 2
  POINTD c[4];
  CEllipse::RotateRect(rc, kPi / 2, c);  // exact at quarter turns: (u, v) -> (-v, u)
  const POINTD expect[4] = {POINTD(15, 19), POINTD(15, 25), POINTD(11, 25), POINTD(11, 19)};
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(c[i].x == expect[i].x && c[i].y == expect[i].y) << i;
  CEllipse::RotateRect(rc, -3 * kPi / 2 + 4 * kPi, c);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(c[i].x == expect[i].x && c[i].y == expect[i].y) << i;
  std::mt19937 rng(2);
  for (int i = 0; i < 50; ++i) {
    const double a = std::uniform_real_distribution<double>(-100, 100)(rng);
    CEllipse::RotateRect(rc, a, c);
    ATransform t;
    t.Rotate(a, 13, 22);
    const std::vector<POINTD> ref = Corners(RECTD(rc), t);
    for (int k = 0; k < 4; ++k) EXPECT_TRUE(std::fabs(c[k].x - ref[k].x) < 1e-9 && std::fabs(c[k].y - ref[k].y) < 1e-9);
  }
}

// ---- lines ---------------------------------------------------------------------------------

TEST(ShapesLines, OnePixelLinesFollowTheNearestCentres) {
  std::mt19937 rng(99);
  for (int i = 0; i < 3000; ++i) {
    const int span = i < 1000 ? 12 : 400;
    const POINT a{(int)(rng() % (2 * span + 1)) - span, (int)(rng() % (2 * span + 1)) - span};
    POINT b{(int)(rng() % (2 * span + 1)) - span, (int)(rng() % (2 * span + 1)) - span};
    if (i % 5 == 0) b.y = a.y;                 // horizontal
    if (i % 7 == 0) b.x = a.x;                 // vertical
    if (i % 11 == 0) b.y = a.y + (b.x - a.x);  // diagonal
    const Shape s = Line(a, b);
    SCOPED_TRACE(std::to_string(a.x) + "," + std::to_string(a.y) + " -> " + std::to_string(b.x) + "," +
                 std::to_string(b.y));
    ASSERT_TRUE(Line(b, a) == s);  // the same pixels either way
    const POINT& top = a.y < b.y || (a.y == b.y && a.x <= b.x) ? a : b;
    const POINT& bot = &top == &a ? b : a;
    ASSERT_EQ(s.first, top.y);
    ASSERT_EQ((int)s.runs.size(), bot.y - top.y + 1);
    ASSERT_TRUE(Covers(s, a.x, a.y) && Covers(s, b.x, b.y));
    const i64 dx = (i64)bot.x - top.x, dy = (i64)bot.y - top.y, adx = std::llabs(dx);
    i64 total = 0;
    for (size_t k = 0; k < s.runs.size(); ++k) {
      const i64 j = (i64)k;
      for (i64 x = s.runs[k].x; x <= s.runs[k].y; ++x) {
        ++total;
        const i64 i = std::llabs(x - top.x);
        if (dy == 0) continue;
        if (adx > dy) {
          // One pixel per column: the row whose centre is nearest the line
          // at this column's centre, the upper one on a tie: |e| <= adx
          // with e = 2 adx j - 2 dy i, and e = adx not allowed.
          const i64 e = 2 * adx * j - 2 * dy * i;
          ASSERT_TRUE(e >= -adx && e < adx) << "pixel (" << x << ", " << top.y + j << ")";
        } else {
          // One pixel per row: the nearest column, the left one on a tie.
          const i64 off = x - top.x, e = 2 * dy * off - 2 * dx * j;
          ASSERT_TRUE(e >= -dy && e < dy) << "pixel (" << x << ", " << top.y + j << ")";
        }
      }
    }
    ASSERT_EQ(total, std::max(adx, dy) + 1);  // no pixel twice, none left out
  }
}

TEST(ShapesLines, EdgesOfThePlane) {
  const Shape h = Line(POINT{INT_MIN, 5}, POINT{INT_MAX - 1, 5});
  EXPECT_TRUE(h.runs.size() == 1 && h.runs[0] == (POINT{INT_MIN, INT_MAX - 1}) && h.box.right == INT_MAX);
  const Shape d = Line(POINT{INT_MAX - 3, INT_MAX - 3}, POINT{INT_MAX - 1, INT_MAX - 1});
  EXPECT_EQ(d.runs, (std::vector<POINT>{{INT_MAX - 3, INT_MAX - 3}, {INT_MAX - 2, INT_MAX - 2}, {INT_MAX - 1, INT_MAX - 1}}));
  // A pixel at INT_MAX has no half-open box; a line of more rows than a
  // region holds is refused before anything is allocated.
  for (auto ends : {std::make_pair(POINT{INT_MAX, 0}, POINT{0, 0}), std::make_pair(POINT{0, INT_MIN}, POINT{0, INT_MAX - 1})}) {
    g_Error.ClearError();
    CArray<POINT, POINT> runs;
    RECT box{1, 1, 1, 1};
    CEllipse::MidPointLine(ends.first, ends.second, runs, &box);
    EXPECT_TRUE(runs.GetSize() == 0 && box.left == 0 && box.right == 0 && g_Error.IsError());
  }
  EXPECT_NE(std::string(g_Error.strError).find("rows"), std::string::npos) << g_Error.strError;
}

// ---- chords --------------------------------------------------------------------------------

// The chord model: pixels of the upright ellipse on the arc's side of the
// line through the arc's ends, found here with the library's cos and sin.
struct ChordModel {
  double p1x, p1y, dx, dy;
  ChordModel(const RECT& rc, double s, double e) {
    const double cx = (rc.left + rc.right) / 2.0, cy = (rc.top + rc.bottom) / 2.0;
    const double A = (rc.right - rc.left) / 2.0, B = (rc.bottom - rc.top) / 2.0;
    auto at = [&](double t, double* x, double* y) {
      const double r = 1 / std::hypot(std::cos(t) / A, std::sin(t) / B);
      *x = cx + r * std::cos(t);
      *y = cy + r * std::sin(t);
    };
    double x2, y2;
    at(s, &p1x, &p1y);
    at(e, &x2, &y2);
    dx = x2 - p1x;
    dy = y2 - p1y;
  }
  double Side(double x, double y) const { return -(dx * (y - p1y) - dy * (x - p1x)) / std::hypot(dx, dy); }
};

TEST(ShapesArcs, ChordsAreTheEllipseOnTheArcsSide) {
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> ang(-20, 20);
  for (int i = 0; i < 500; ++i) {
    const int w = 1 + (int)(rng() % 70), h = 1 + (int)(rng() % 70);
    const RECT rc{(int)(rng() % 100) - 50, (int)(rng() % 100) - 50, 0, 0};
    const RECT r{rc.left, rc.top, rc.left + w, rc.top + h};
    const double s = ang(rng), e = i % 10 == 0 ? s + 1e-3 : ang(rng);
    char call[160];
    std::snprintf(call, sizeof call, "MidPointArc(RECT{%d, %d, %d, %d}, %.17g, %.17g)", (int)r.left, (int)r.top,
                  (int)r.right, (int)r.bottom, s, e);
    SCOPED_TRACE(call);
    const Shape ell = UprightEllipse(r), chord = Arc(r, s, e), other = Arc(r, e, s);
    const ChordModel m(r, s, e);
    // Every pixel of the ellipse clearly on the arc's side is in the
    // chord; every pixel of the chord is in the ellipse and not clearly on
    // the other side, unless its row is a lone sliver.
    for (size_t k = 0; k < ell.runs.size(); ++k) {
      const i64 y = ell.first + (i64)k;
      for (i64 x = ell.runs[k].x; x <= ell.runs[k].y; ++x) {
        const double side = m.Side(x + 0.5, y + 0.5);
        const bool in = Covers(chord, x, y), out = Covers(other, x, y);
        if (side > 1e-9) {
          ASSERT_TRUE(in) << "pixel (" << x << ", " << y << ") missing";
        }
        if (side < -1e-9) {
          ASSERT_TRUE(out) << "pixel (" << x << ", " << y << ") missing from the other chord";
        }
        ASSERT_TRUE(in || out) << "pixel (" << x << ", " << y << ") in neither chord";
        if (in && out) {  // only a sliver row's pixel lies in both
          const Shape& sl = side > 0 ? other : chord;
          ASSERT_EQ(sl.runs[(size_t)(y - sl.first)].x, sl.runs[(size_t)(y - sl.first)].y);
        }
      }
    }
    for (const Shape* c : {&chord, &other})
      for (size_t k = 0; k < c->runs.size(); ++k)
        for (i64 x = c->runs[k].x; x <= c->runs[k].y; ++x) ASSERT_TRUE(Covers(ell, x, c->first + (i64)k));
  }
}

TEST(ShapesArcs, FullTurnsHalvesAndMirrors) {
  const RECT rc{-20, 10, 21, 41};  // 41 x 31: centre row 25, centre column 0
  const Shape ell = UprightEllipse(rc);
  for (auto se : {std::make_pair(1.0, 1.0), std::make_pair(1.0, 1.0 + 2 * kPi), std::make_pair(-3.0, -3.0 - 4 * kPi),
                  std::make_pair(0.5, 0.5 + 1e-11)})
    EXPECT_TRUE(Arc(rc, se.first, se.second) == ell) << se.first << " " << se.second;
  // From 0 to pi: the lower half with the centre row (a horizontal chord
  // running left); from pi to 2 pi: the upper half without it.
  const Shape lower = Arc(rc, 0, kPi), upper = Arc(rc, kPi, 2 * kPi);
  EXPECT_EQ(lower.first, 25);
  EXPECT_EQ(std::vector<POINT>(ell.runs.begin() + 15, ell.runs.end()), lower.runs);
  EXPECT_EQ(std::vector<POINT>(ell.runs.begin(), ell.runs.begin() + 15), upper.runs);
  EXPECT_TRUE(Arc(rc, -kPi, 0) == upper && Arc(rc, 3 * kPi, 4 * kPi) == upper && Arc(rc, 2 * kPi, -kPi) == lower);
  // From -pi/2 to pi/2: the right half with the centre column (a chord
  // running down); the other way the left half without it.
  const Shape right = Arc(rc, -kPi / 2, kPi / 2), left = Arc(rc, kPi / 2, 3 * kPi / 2);
  for (size_t k = 0; k < ell.runs.size(); ++k) {
    EXPECT_EQ(right.runs[k], (POINT{0, ell.runs[k].y}));
    EXPECT_EQ(left.runs[k], (POINT{ell.runs[k].x, -1}));
  }
  // Angles a and -a end on mirrored points: the chord is symmetric about
  // the centre row.
  for (double a : {0.3, 1.0, 2.0, 2.9}) {
    const Shape c = Arc(rc, -a, a);
    for (size_t k = 0; k < c.runs.size(); ++k) EXPECT_EQ(c.runs[k], c.runs[c.runs.size() - 1 - k]) << a;
  }
  // A chord far thinner than a pixel holds at most the ellipse's pixels
  // that stand out beyond the arc; a bad angle fails.
  const Shape sliver = Arc(rc, 0.5, 0.5 + 1e-4);
  EXPECT_LE(sliver.runs.size(), 2u);
  for (size_t k = 0; k < sliver.runs.size(); ++k) EXPECT_TRUE(Covers(ell, sliver.runs[k].x, sliver.first + (i64)k));
  g_Error.ClearError();
  EXPECT_TRUE(Arc(rc, 0.5, std::nan("")).runs.empty());
  EXPECT_TRUE(g_Error.IsError());
  EXPECT_TRUE(Arc(RECT{0, 0, 0, 5}, 0, 1).runs.empty());
}

// ---- the geometry helpers ---------------------------------------------------------------------

TEST(ShapesGeometry, OctantSymmetries) {
  const ELLSEPPROC procs[8] = {&CEllipse::EllSep0, &CEllipse::EllSep1, &CEllipse::EllSep2, &CEllipse::EllSep3,
                               &CEllipse::EllSep4, &CEllipse::EllSep5, &CEllipse::EllSep6, &CEllipse::EllSep7};
  std::vector<std::pair<double, double>> seen;
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(CEllipse::m_EllSepProc[k], procs[k]);
    double x, y;
    CEllipse::m_EllSepProc[k](2.0, 1.0, x, y);
    // The image of (2, 1) lies in octant k, at the same distance.
    double a = std::atan2(y, x);
    if (a < 0) a += 2 * kPi;
    EXPECT_TRUE(a > k * kPi / 4 && a < (k + 1) * kPi / 4) << k;
    EXPECT_EQ(x * x + y * y, 5.0);
    seen.push_back({x, y});
  }
  std::sort(seen.begin(), seen.end());
  EXPECT_TRUE(std::unique(seen.begin(), seen.end()) == seen.end());
}

TEST(ShapesGeometry, EllipseParametersBordersPointsAndSections) {
  std::mt19937 rng(23);
  std::uniform_real_distribution<double> u(0, 1);
  for (int i = 0; i < 200; ++i) {
    const ATransform t = RandomTransform(rng);
    const RECTD rc(u(rng) * 50, u(rng) * 50, 50 + u(rng) * 50, 50 + u(rng) * 50);
    POINTD c;
    double a, b, tilt;
    ASSERT_TRUE(CEllipse::GetEllipseParam(rc, t, c, a, b, tilt));
    ASSERT_TRUE(a >= b && b > 0 && tilt >= 0 && tilt < kPi);
    RECT border;
    ASSERT_TRUE(CEllipse::GetEllipseBorder(c, a, b, tilt, border));
    double lo[2] = {1e300, 1e300}, hi[2] = {-1e300, -1e300};
    for (int k = 0; k < 360; ++k) {
      // Points of the mapped ellipse satisfy the parameters' equation and
      // lie in the border.
      const double th = 2 * kPi * k / 360;
      double x = (rc.left + rc.right) / 2 + std::cos(th) * (rc.right - rc.left) / 2;
      double y = (rc.top + rc.bottom) / 2 + std::sin(th) * (rc.bottom - rc.top) / 2;
      t.CalcPoint(x, y);
      const double du = (x - c.x) * std::cos(tilt) + (y - c.y) * std::sin(tilt);
      const double dv = -(x - c.x) * std::sin(tilt) + (y - c.y) * std::cos(tilt);
      ASSERT_NEAR(du * du / (a * a) + dv * dv / (b * b), 1.0, 1e-9);
      ASSERT_TRUE(x >= border.left && x < border.right && y >= border.top && y < border.bottom);
      lo[0] = std::min(lo[0], x); hi[0] = std::max(hi[0], x); lo[1] = std::min(lo[1], y); hi[1] = std::max(hi[1], y);
      // The ray at th from the centre leaves the ellipse at EllipsePoint.
      const POINTD p = CEllipse::EllipsePoint(c, a, b, tilt, th);
      const double pu = (p.x - c.x) * std::cos(tilt) + (p.y - c.y) * std::sin(tilt);
      const double pv = -(p.x - c.x) * std::sin(tilt) + (p.y - c.y) * std::cos(tilt);
      ASSERT_NEAR(pu * pu / (a * a) + pv * pv / (b * b), 1.0, 1e-9);
      ASSERT_NEAR(std::atan2(std::sin(std::atan2(p.y - c.y, p.x - c.x) - th), std::cos(std::atan2(p.y - c.y, p.x - c.x) - th)), 0.0, 1e-9);
    }
    // The border is the pixel box of the exact bounds.
    EXPECT_TRUE(border.left == (LONG)std::floor(lo[0]) || border.left == (LONG)std::floor(lo[0]) - 1);
    EXPECT_TRUE(border.bottom == (LONG)std::floor(hi[1]) + 1 || border.bottom == (LONG)std::floor(hi[1]) + 2);
    // Sections: both ends on the ellipse, nothing above or below it.
    for (double y = border.top - 1.0; y <= border.bottom + 1.0; y += 0.37) {
      double x1, x2;
      const bool hit = CEllipse::GetEllBoundary(c, a, b, tilt, y, x1, x2);
      if (y < border.top || y > border.bottom) {
        ASSERT_FALSE(hit) << y;
      }
      if (y > lo[1] + 0.01 && y < hi[1] - 0.01) {
        ASSERT_TRUE(hit) << y;
      }
      if (!hit) continue;
      for (double x : {x1, x2}) {
        const double du = (x - c.x) * std::cos(tilt) + (y - c.y) * std::sin(tilt);
        const double dv = -(x - c.x) * std::sin(tilt) + (y - c.y) * std::cos(tilt);
        ASSERT_NEAR(du * du / (a * a) + dv * dv / (b * b), 1.0, 1e-6);
      }
    }
  }
  // Exact where it can be: axis points, a singular transform's b.
  const POINTD c(10, 20);
  const POINTD top = CEllipse::EllipsePoint(c, 5, 3, 0, -kPi / 2), left = CEllipse::EllipsePoint(c, 5, 3, 0, kPi);
  EXPECT_TRUE(top.x == 10 && top.y == 17 && left.x == 5 && left.y == 20);
  double a, b, tilt;
  POINTD cc;
  ASSERT_TRUE(CEllipse::GetEllipseParam(RECTD(0, 0, 10, 4), FromMatrix(1, 0.5, 2, 1, 3, 4), cc, a, b, tilt));
  EXPECT_EQ(b, 0.0);
  EXPECT_TRUE(cc.x == 12 && cc.y == 8.5);
}

// ---- bad input --------------------------------------------------------------------------------

TEST(ShapesFailures, BadInputGivesEmptyResultsAndAText) {
  struct Case {
    const char* name;
    std::function<Shape()> make;
    const char* text;
  };
  ATransform far;
  far.Translation(3e9, 0);
  ATransform huge;
  huge.Scaling(1e8, 1e8, 0, 0);
  const ATransform nan = FromMatrix(1, 0, 0, std::nan(""), 0, 0);
  ATransform tall;
  tall.Scaling(1, 2e6, 0, 0);
  tall.Rotate(0.3, 0, 0);
  const POINTD inf[3] = {POINTD(0, 0), POINTD(INFINITY, 0), POINTD(0, 1)};
  const POINT edge[3] = {{INT_MAX - 2, 0}, {INT_MAX, 0}, {INT_MAX - 2, 2}};
  const std::vector<Case> cases = {
      {"ellipse moved off the plane", [&] { return Ellipse(RECTD(0, 0, 10, 10), far); }, "32-bit"},
      {"rectangle moved off the plane", [&] { return Rect(RECT{0, 0, 10, 10}, far); }, "32-bit"},
      {"ellipse scaled off the plane", [&] { return Ellipse(RECTD(0, 0, 100, 100), huge); }, "32-bit"},
      {"rectangle scaled off the plane", [&] { return Rect(RECT{0, 0, 100, 100}, huge); }, "32-bit"},
      {"transform not finite", [&] { return Rect(RECT{0, 0, 10, 10}, nan); }, "finite"},
      {"ellipse transform not finite", [&] { return Ellipse(RECTD(0, 0, 10, 10), nan); }, "finite"},
      {"rectangle not finite", [&] { return Ellipse(RECTD(0, 0, INFINITY, 10), ATransform()); }, "finite"},
      {"too many rows", [&] { return Ellipse(RECTD(0, 0, 100, 100), tall); }, "rows"},
      {"corner not finite", [&] { return Plg(inf); }, "finite"},
      {"parallelogram reaching INT_MAX", [&] { return PlgInt(edge); }, "32-bit"},
      {"turned rectangle off the plane", [&] { return UprightRect(RECT{INT_MAX - 100, 0, INT_MAX, 50}, 0.7); }, "32-bit"},
  };
  for (const Case& c : cases) {
    g_Error.ClearError();
    const Shape s = c.make();
    EXPECT_TRUE(s.runs.empty()) << c.name;
    EXPECT_TRUE(g_Error.IsError()) << c.name;
    EXPECT_NE(std::string(g_Error.strError).find(c.text), std::string::npos) << c.name << ": " << g_Error.strError;
  }
  // Empty rectangles are empty shapes, not failures, under any transform.
  g_Error.ClearError();
  std::mt19937 rng(1);
  EXPECT_TRUE(Ellipse(RECTD(5, 5, 5, 9), RandomTransform(rng)).runs.empty());
  EXPECT_TRUE(Ellipse(RECTD(5, 9, 6, 5), ATransform()).runs.empty());
  EXPECT_TRUE(Rect(RECT{5, 5, 4, 9}, huge).runs.empty());
  EXPECT_FALSE(g_Error.IsError());
  // Null corners are a misuse: an assertion, then the empty result.
  tqtest::HookCapture hooks;
  CArray<POINT, POINT> runs;
  RSRLINE piece;
  EXPECT_EQ(CEllipse::PlgRasterLine(nullptr, runs, nullptr), 0);
  EXPECT_FALSE(CEllipse::MidPointParalgram(nullptr, piece));
  EXPECT_FALSE(CEllipse::MidPointRect(nullptr, piece));
  RECT border;
  EXPECT_FALSE(CEllipse::GetRectBorder(nullptr, 4, border));
  EXPECT_EQ(hooks.Assertions(), 4);
}

// Angles far outside [0, 2 pi) and negative turn shapes like their
// remainders.
TEST(ShapesFailures, FarAndNegativeAngles) {
  const RECT rc{0, 0, 31, 12};
  for (double a : {0.7, 2.0, 4.0}) {
    for (int k : {-1000, -3, -1, 1, 5, 100000}) {
      const double b = a + k * 2 * kPi;
      SCOPED_TRACE(std::to_string(b));
      ExpectCentres(UprightRect(rc, b), PolygonModel([&] {
                      std::vector<POINTD> p(4);
                      CEllipse::RotateRect(rc, a, p.data());
                      return p;
                    }()),
                    "RectRasterLine", 1e-6);
      ATransform t;
      t.Rotate(a, 15.5, 6);
      ExpectCentres(UprightEllipse(rc, b), EllipseModel(RECTD(rc), t), "EllipseRasterLine", 1e-6);
    }
  }
}

}  // namespace
