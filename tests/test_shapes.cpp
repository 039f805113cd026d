// test_shapes.cpp - CEllipse's transformed, polygonal, line and chord
// shapes: each against a brute-force inside test of the continuous shape on
// seeded random sizes, angles and transforms; the upright forms where the
// image is an upright integer rectangle; shared edges; the geometry
// helpers; degenerate and failing input.
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
typedef std::function<double(double, double)> Margin;  // > 0 inside, < 0 outside, concave

struct Shape {
  int first = 0;
  std::vector<POINT> runs;
  RECT box{0, 0, 0, 0};
  bool operator==(const Shape& o) const {
    return first == o.first && runs == o.runs && box.left == o.box.left && box.top == o.box.top &&
           box.right == o.box.right && box.bottom == o.box.bottom;
  }
};

// Both forms of a shape. The region form must be a valid piece with the
// same runs, one per row, and the inclusive box (the empty piece when the
// list is empty); the list's box is exactly the half-open bounds of its
// inclusive runs.
template <class List, class Piece>
Shape Both(List list, Piece piece) {
  Shape s;
  CArray<POINT, POINT> runs;
  runs.Add(POINT{7, 7});  // replaced by every call
  s.first = list(runs, &s.box);
  s.runs = runs.vec();
  RSRLINE rst;
  rst.arCount.Add(3);
  EXPECT_EQ(piece(rst), !s.runs.empty());
  EXPECT_TRUE(CRstLines::IsValid(&rst));
  EXPECT_EQ(rst.arCount.vec(), std::vector<int>(s.runs.size(), 1));
  std::vector<POINT> same;
  for (const RSRUN& r : rst.arRun) same.push_back(POINT{r.x1, r.x2});
  EXPECT_EQ(same, s.runs);
  i64 lo = INT_MAX, hi = INT_MIN;
  for (const POINT& r : s.runs) {
    EXPECT_LE(r.x, r.y);
    lo = std::min<i64>(lo, r.x);
    hi = std::max<i64>(hi, r.y);
  }
  RECT want{0, 0, 0, 0}, inclusive{0, 0, 0, 0};
  if (!s.runs.empty()) {
    want = RECT{(LONG)lo, s.first, (LONG)(hi + 1), (LONG)(s.first + (i64)s.runs.size())};
    inclusive = RECT{want.left, want.top, want.right - 1, want.bottom - 1};
  }
  EXPECT_TRUE(s.box.left == want.left && s.box.top == want.top && s.box.right == want.right && s.box.bottom == want.bottom);
  EXPECT_TRUE(rst.rcBox.left == inclusive.left && rst.rcBox.top == inclusive.top && rst.rcBox.right == inclusive.right &&
              rst.rcBox.bottom == inclusive.bottom);
  return s;
}
#define SHAPE(fn, ...)                                                                                 \
  Both([&](CArray<POINT, POINT>& r_, RECT* b_) { return CEllipse::fn(__VA_ARGS__, r_, b_); }, \
       [&](RSRLINE& p_) { return CEllipse::fn(__VA_ARGS__, p_); })

bool Covers(const Shape& s, i64 x, i64 y) {
  const i64 k = y - s.first;
  return k >= 0 && k < (i64)s.runs.size() && x >= s.runs[(size_t)k].x && x <= s.runs[(size_t)k].y;
}

double MaxConcave(const std::function<double(double)>& f, double lo, double hi) {
  for (int i = 0; i < 100; ++i) {
    const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
    if (f(m1) < f(m2)) {
      lo = m1;
    } else {
      hi = m2;
    }
  }
  return f((lo + hi) / 2);
}

// The pixel-centre model of a convex shape: a pixel whose centre is inside
// (beyond hair) is covered, one whose centre is outside is not, except in a
// row with no centre inside, which holds one pixel whose stretch of the
// centre line meets the shape - or, when it is the shape's only row, pixels
// that each meet the shape.
void ExpectCentres(const Shape& s, const Margin& margin, const std::string& call, double hair = 1e-9) {
  SCOPED_TRACE(call);
  ASSERT_FALSE(s.runs.empty());
  for (i64 y = (i64)s.first - 2; y <= (i64)s.first + (i64)s.runs.size() + 1; ++y) {
    const double yc = y + 0.5;
    int inside = 0;
    for (i64 x = s.box.left - 3; x <= s.box.right + 2; ++x) inside += margin(x + 0.5, yc) > -hair;
    const i64 k = y - s.first;
    const bool sliver = k >= 0 && k < (i64)s.runs.size() && inside == 0;
    for (i64 x = s.box.left - 3; x <= s.box.right + 2; ++x) {
      const double m = margin(x + 0.5, yc);
      const bool in = Covers(s, x, y);
      ASSERT_TRUE(!(m > hair) || in) << "pixel (" << x << ", " << y << ") missing";
      ASSERT_TRUE(!(m < -hair) || !in || sliver) << "pixel (" << x << ", " << y << ") outside";
      if (!in || !sliver) continue;
      const bool lone = s.runs.size() == 1;
      ASSERT_TRUE(lone || s.runs[(size_t)k].x == s.runs[(size_t)k].y) << "row " << y << " has no centre inside";
      auto along = [&](double py) { return MaxConcave([&](double px) { return margin(px, py); }, (double)x, x + 1.0); };
      const double meet = lone ? MaxConcave(along, (double)y, y + 1.0) : along(yc);
      ASSERT_GT(meet, -hair) << "pixel (" << x << ", " << y << ") off the shape";
    }
  }
}

// ---- models -------------------------------------------------------------------------------

ATransform FromMatrix(double m11, double m12, double m21, double m22, double dx, double dy) {
  TransMatrix m;
  m.m11 = m11; m.m12 = m12; m.m21 = m21; m.m22 = m22; m.dx = dx; m.dy = dy;
  return ATransform(m);
}

// The ellipse inscribed in rc under t, as 1 - its unit radius: the pixel
// centre mapped back through an inverse formed here.
Margin EllipseModel(const RECTD& rc, const ATransform& t) {
  const TransMatrix& m = t.GetMatrix();
  const double det = m.m11 * m.m22 - m.m12 * m.m21;
  const double cx = (rc.left + rc.right) / 2, cy = (rc.top + rc.bottom) / 2;
  const double A = (rc.right - rc.left) / 2, B = (rc.bottom - rc.top) / 2;
  return [=](double x, double y) {
    x -= m.dx;
    y -= m.dy;
    return 1.0 - std::hypot(((x * m.m22 - y * m.m21) / det - cx) / A, ((y * m.m11 - x * m.m12) / det - cy) / B);
  };
}

// A convex polygon in outline order: the least signed distance to its edges.
Margin PolygonModel(std::vector<POINTD> p) {
  double area = 0;
  for (size_t i = 0; i < p.size(); ++i) area += p[i].x * p[(i + 1) % p.size()].y - p[i].y * p[(i + 1) % p.size()].x;
  if (area < 0) std::reverse(p.begin(), p.end());
  return [p](double x, double y) {
    double m = 1e300;
    for (size_t i = 0; i < p.size(); ++i) {
      const POINTD &a = p[i], &b = p[(i + 1) % p.size()];
      const double len = std::hypot(b.x - a.x, b.y - a.y);
      if (len > 0) m = std::min(m, ((b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x)) / len);
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
  char buf[320];
  std::snprintf(buf, sizeof buf, "CEllipse::%s(RECTD(%.17g, %.17g, %.17g, %.17g), FromMatrix(%.17g, %.17g, %.17g, %.17g, %.17g, %.17g), ...)",
                fn, rc.left, rc.top, rc.right, rc.bottom, m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
  return buf;
}

// A layout transform: turned, scaled, sometimes sheared or mirrored, moved
// by a fraction of a pixel.
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
    const int w = i % 5 == 0 ? 1 + i % 3 : 1 + (int)(rng() % 60), h = i % 7 == 0 ? 1 + i % 3 : 1 + (int)(rng() % 60);
    const int l = (int)(rng() % 200) - 100, tp = (int)(rng() % 200) - 100;
    const RECT rc{l, tp, l + w, tp + h};
    const RECTD rd = i % 2 ? RECTD(rc) : RECTD(l + u(rng), tp + u(rng), l + w + u(rng), tp + h + u(rng));
    ExpectCentres(SHAPE(EllipseRasterLine, rd, t), EllipseModel(rd, t), Call("EllipseRasterLine", rd, t));
    ExpectCentres(SHAPE(RectRasterLine, rc, t), PolygonModel(Corners(RECTD(rc), t)), Call("RectRasterLine", rc, t));
    RSRLINE a, b;  // the RECT form of the ellipse is the RECTD form
    EXPECT_EQ(CEllipse::EllipseRasterLine(rc, t, a), CEllipse::EllipseRasterLine(RECTD(rc), t, b));
    EXPECT_TRUE(CRstLines::IsEqual(&a, &b));
  }
}

// No pixel whose centre is more than half a pixel from the continuous
// ellipse goes the other way; for the midpoint forms (upright images),
// three quarters of a pixel.
TEST(ShapesTransformed, EveryEllipseIsWithinHalfAPixelOfTheContinuousOne) {
  std::mt19937 rng(5);
  for (int i = 0; i < 90; ++i) {
    const int w = 3 + (int)(rng() % 50), h = 3 + (int)(rng() % 50), l = -(int)(rng() % 30), tp = (int)(rng() % 30);
    const RECTD r(l, tp, l + w, tp + h);
    ATransform t;
    if (i % 3 == 1) t = RandomTransform(rng);
    if (i % 3 == 2) t.Scaling(2, 3, 0, 0);
    const Shape s = SHAPE(EllipseRasterLine, r, t);
    const TransMatrix& m = t.GetMatrix();
    POINTD c;
    double ia, ib, tilt;
    ASSERT_TRUE(CEllipse::GetEllipseParam(r, t, c, ia, ib, tilt));
    const Margin inside = EllipseModel(r, t);
    auto dist2 = [&](double th, double px, double py) {
      const double x = c.x + std::cos(th) * w / 2 * m.m11 + std::sin(th) * h / 2 * m.m21 - px;
      const double y = c.y + std::cos(th) * w / 2 * m.m12 + std::sin(th) * h / 2 * m.m22 - py;
      return x * x + y * y;
    };
    SCOPED_TRACE(Call("EllipseRasterLine", r, t));
    for (i64 y = s.box.top - 2; y < s.box.bottom + 2; ++y)
      for (i64 x = s.box.left - 2; x < s.box.right + 2; ++x) {
        const double mi = inside(x + 0.5, y + 0.5);
        if (std::fabs(mi) * ib > 0.8) continue;  // at least |mi| times the short semi-axis away
        int best = 0;
        for (int k = 1; k < 360; ++k) best = dist2(kPi * k / 180, x + 0.5, y + 0.5) < dist2(kPi * best / 180, x + 0.5, y + 0.5) ? k : best;
        const double d = std::sqrt(-MaxConcave([&](double th) { return -dist2(th, x + 0.5, y + 0.5); },
                                               kPi * (best - 1) / 180, kPi * (best + 1) / 180));
        ASSERT_TRUE(d <= (i % 3 == 1 ? 0.5 : 0.75) + 1e-9 || Covers(s, x, y) == (mi > 0))
            << "pixel (" << x << ", " << y << ") at " << d;
      }
  }
}

// Where the image of the rectangle is an upright rectangle with integer
// corners, the result is exactly the upright form of that rectangle.
TEST(ShapesTransformed, UprightImagesGiveTheUprightFormsExactly) {
  std::mt19937 rng(3);
  for (int i = 0; i < 400; ++i) {
    const int w = 1 + (int)(rng() % (i < 60 ? 4 : 90)), h = 1 + (int)(rng() % (i < 60 ? 4 : 90));
    const int l = (int)(rng() % 2001) - 1000, tp = (int)(rng() % 2001) - 1000;
    const int px = (int)(rng() % 201) - 100, py = (int)(rng() % 201) - 100;
    const RECT rc{l, tp, l + w, tp + h};
    ATransform t;
    RECT image = rc;
    if (i % 6 == 1) {  // an integer move
      t.Translation(px, py);
      image = RECT{l + px, tp + py, l + w + px, tp + h + py};
    } else if (i % 6 == 2 || i % 6 == 3) {  // 1 to 3 quarter turns, or -1, about an integer point
      const int q = i % 6 == 2 ? 1 + (int)(rng() % 3) : -1;
      t.Rotate(q * kPi / 2, px, py);
      POINT a{rc.left - px, rc.top - py}, b{rc.right - px, rc.bottom - py};
      for (int k = 0; k < (q + 4) % 4; ++k) a = POINT{-a.y, a.x}, b = POINT{-b.y, b.x};
      image = RECT{std::min(a.x, b.x) + px, std::min(a.y, b.y) + py, std::max(a.x, b.x) + px, std::max(a.y, b.y) + py};
    } else if (i % 6 == 4) {  // a mirror top to bottom
      t.Reflection(0, 0, py);
      image = RECT{l, 2 * py - (tp + h), l + w, 2 * py - tp};
    } else if (i % 6 == 5) {  // integer scalings, one mirrored
      t.Scaling(2, -3, 0, 0);
      image = RECT{2 * l, -3 * (tp + h), 2 * (l + w), -3 * tp};
    }
    SCOPED_TRACE(Call("EllipseRasterLine", rc, t));
    ASSERT_TRUE(SHAPE(EllipseRasterLine, RECTD(rc), t) == SHAPE(EllipseRasterLine, CRect(image), 0.0));
    ASSERT_TRUE(SHAPE(RectRasterLine, rc, t) == SHAPE(RectRasterLine, image, 0.0));
  }
  ATransform half;  // a rectangle in doubles whose image lands on integers
  half.Translation(0.5, -0.25);
  EXPECT_TRUE(SHAPE(EllipseRasterLine, RECTD(-0.5, 3.25, 20.5, 14.25), half) ==
              SHAPE(EllipseRasterLine, CRect(0, 3, 21, 14), 0.0));
}

TEST(ShapesTransformed, SingularTransformsGiveLinesOrPoints) {
  const RECT rc{2, 3, 12, 9};
  // Onto y = 0: the 10 pixels from 2 to 11 (x = 12 is the edge of pixel 11).
  EXPECT_EQ(SHAPE(RectRasterLine, rc, FromMatrix(1, 0, 0, 0, 0, 0)).runs, (std::vector<POINT>{{2, 11}}));
  // x' = x + 2y, y' = x / 2 + y: the corners (2, 3) and (12, 9) go to (8, 4)
  // and (30, 15), inside the pixels (8, 4) and (29, 14).
  const ATransform slant = FromMatrix(1, 0.5, 2, 1, 0, 0);
  EXPECT_TRUE(SHAPE(RectRasterLine, rc, slant) == SHAPE(MidPointLine, POINT{8, 4}, POINT{29, 14}));
  const Shape ell = SHAPE(EllipseRasterLine, RECTD(rc), slant);  // a line along x = 2y
  ASSERT_FALSE(ell.runs.empty());
  for (size_t k = 0; k < ell.runs.size(); ++k)
    EXPECT_TRUE(std::fabs(ell.runs[k].x - 2.0 * (ell.first + k)) <= 2 && std::fabs(ell.runs[k].y - 2.0 * (ell.first + k)) <= 2);
  const ATransform dot = FromMatrix(0, 0, 0, 0, 7.5, -2.5);
  const Shape d = SHAPE(EllipseRasterLine, RECTD(rc), dot);
  EXPECT_TRUE(d.first == -3 && d.runs == (std::vector<POINT>{{7, 7}}) && SHAPE(RectRasterLine, rc, dot) == d);
  // Nearly singular: thin, one run in every row.
  const ATransform thin = FromMatrix(1, 0.5, 2, 1 + 1e-9, 0, 0);
  ExpectCentres(SHAPE(RectRasterLine, rc, thin), PolygonModel(Corners(RECTD(rc), thin)), "thin", 1e-12);
}

// ---- quadrilaterals and parallelograms ----------------------------------------------------

TEST(ShapesPolygons, QuadrilateralsAndParallelogramsHoldThePixelCentresInside) {
  std::mt19937 rng(41);
  std::uniform_real_distribution<double> u(-40, 40);
  for (int i = 0; i < 300; ++i) {
    POINTD p[3] = {POINTD(u(rng), u(rng)), POINTD(u(rng), u(rng)), POINTD(u(rng), u(rng))};
    if (i % 4 == 0) p[2] = POINTD(p[0].x + (p[1].y - p[0].y) * 0.05, p[0].y - (p[1].x - p[0].x) * 0.05);  // thin
    if (i % 9 == 0) p[1].y = p[0].y;  // a horizontal edge
    const std::vector<POINTD> q = {p[0], p[1], POINTD(p[1].x + p[2].x - p[0].x, p[1].y + p[2].y - p[0].y), p[2]};
    char call[200];
    std::snprintf(call, sizeof call, "MidPointParalgram({%.17g, %.17g}, {%.17g, %.17g}, {%.17g, %.17g})", p[0].x, p[0].y,
                  p[1].x, p[1].y, p[2].x, p[2].y);
    const Shape s = SHAPE(MidPointParalgram, p);
    ExpectCentres(s, PolygonModel(q), call);
    // The same quadrilateral from its four corners, either way round; a
    // triangle as a repeated corner.
    const POINTD back[4] = {q[3], q[2], q[1], q[0]}, tri[4] = {p[0], p[1], p[2], p[2]};
    EXPECT_TRUE(SHAPE(MidPointRect, q.data()) == s && SHAPE(MidPointRect, back) == s) << call;
    ExpectCentres(SHAPE(MidPointRect, tri), PolygonModel({p[0], p[1], p[2]}), std::string(call) + " as a triangle");
  }
}

TEST(ShapesPolygons, IntegerCornersOnPixelEdges) {
  const Shape rect = SHAPE(RectRasterLine, RECT{-5, 2, 7, 9}, 0.0);
  const POINT ul{-5, 2}, ur{7, 2}, ll{-5, 9}, lr{7, 9};
  for (const std::vector<POINT>& c : std::vector<std::vector<POINT>>{{ul, ur, ll}, {lr, ll, ur}, {ur, ul, lr}})
    EXPECT_TRUE(SHAPE(PlgRasterLine, c.data()) == rect);
  // (0, 0), (4, 0), (8, 4), (4, 4): row y's centre line runs inside from
  // x = y + 0.5 to y + 4.5.
  const POINT sh[3] = {{0, 0}, {4, 0}, {4, 4}}, col[3] = {{0, 0}, {6, 3}, {2, 1}}, one[3] = {{5, 5}, {5, 5}, {5, 5}};
  EXPECT_EQ(SHAPE(PlgRasterLine, sh).runs, (std::vector<POINT>{{0, 3}, {1, 4}, {2, 5}, {3, 6}}));
  EXPECT_TRUE(SHAPE(PlgRasterLine, col) == SHAPE(MidPointLine, POINT{0, 0}, POINT{7, 3}));  // to the edge of (7, 3)
  EXPECT_EQ(SHAPE(PlgRasterLine, one).runs, (std::vector<POINT>{{5, 5}}));
}

// Pieces that share an edge share no pixel and make exactly the whole (the
// pieces here hold a pixel centre in every row).
TEST(ShapesPolygons, SharedEdgesTile) {
  std::mt19937 rng(8);
  std::uniform_real_distribution<double> u(-30, 30);
  for (int i = 0; i < 200; ++i) {
    const double y0 = std::floor(u(rng)) + (i % 2 ? 0.5 : 0.0), hgt = 2 + (int)(rng() % 30);
    double xa = u(rng), wid = 2 + std::fabs(u(rng)), sh = u(rng) / 10, cut = 1 + std::fabs(u(rng)) / 30 * wid;
    if (i % 3 == 0) {  // edges through pixel centres
      xa = std::floor(xa) + 0.5;
      cut = std::floor(cut);
      sh = std::floor(sh * 10) / hgt;
    }
    const POINTD whole[3] = {POINTD(xa, y0), POINTD(xa + 2 * wid, y0), POINTD(xa + sh * hgt, y0 + hgt)};
    const POINTD left[3] = {whole[0], POINTD(xa + cut, y0), whole[2]};
    const POINTD right[3] = {left[1], whole[1], POINTD(xa + cut + sh * hgt, y0 + hgt)};
    const POINTD top[3] = {whole[0], whole[1], POINTD(xa + sh * hgt / 2, y0 + hgt / 2)};
    const POINTD low[3] = {top[2], POINTD(top[2].x + 2 * wid, top[2].y), whole[2]};
    const Shape all = SHAPE(MidPointParalgram, whole);
    for (auto pair : {std::make_pair(SHAPE(MidPointParalgram, left), SHAPE(MidPointParalgram, right)),
                      std::make_pair(SHAPE(MidPointParalgram, top), SHAPE(MidPointParalgram, low))})
      for (i64 y = all.first - 1; y <= all.first + (i64)all.runs.size(); ++y)
        for (i64 x = all.box.left - 1; x <= all.box.right; ++x) {
          const bool a = Covers(pair.first, x, y), b = Covers(pair.second, x, y);
          ASSERT_TRUE(!(a && b) && (a || b) == Covers(all, x, y)) << "pixel (" << x << ", " << y << "), case " << i;
        }
  }
}

TEST(ShapesPolygons, RotateRectTurnsAboutTheCentre) {
  const RECT rc{10, 20, 16, 24};  // centre (13, 22)
  POINTD c[4];
  for (double a : {kPi / 2, -3 * kPi / 2 + 4 * kPi}) {  // exact at quarter turns: (u, v) -> (-v, u)
    CEllipse::RotateRect(rc, a, c);
    EXPECT_TRUE(c[0] == POINTD(15, 19) && c[1] == POINTD(15, 25) && c[2] == POINTD(11, 25) && c[3] == POINTD(11, 19) &&
                c[0].x == 15 && c[2].y == 25);
  }
  std::mt19937 rng(2);
  for (int i = 0; i < 50; ++i) {
    ATransform t;
    const double a = std::uniform_real_distribution<double>(-100, 100)(rng);
    t.Rotate(a, 13, 22);
    CEllipse::RotateRect(rc, a, c);
    const std::vector<POINTD> ref = Corners(RECTD(rc), t);
    for (int k = 0; k < 4; ++k) EXPECT_TRUE(std::fabs(c[k].x - ref[k].x) < 1e-9 && std::fabs(c[k].y - ref[k].y) < 1e-9);
  }
}

// ---- lines and chords ------------------------------------------------------------------------

TEST(ShapesLines, OnePixelLinesFollowTheNearestCentres) {
  std::mt19937 rng(99);
  for (int i = 0; i < 3000; ++i) {
    const int span = i < 1000 ? 12 : 400;
    auto coord = [&] { return (int)(rng() % (2 * span + 1)) - span; };
    const POINT a{coord(), coord()};
    POINT b{coord(), coord()};
    if (i % 5 == 0) b.y = a.y;
    if (i % 7 == 0) b.x = a.x;
    if (i % 11 == 0) b.y = a.y + (b.x - a.x);
    SCOPED_TRACE("MidPointLine({" + std::to_string(a.x) + ", " + std::to_string(a.y) + "}, {" + std::to_string(b.x) + ", " +
                 std::to_string(b.y) + "})");
    const Shape s = SHAPE(MidPointLine, a, b);
    ASSERT_TRUE(SHAPE(MidPointLine, b, a) == s);
    const POINT top = a.y < b.y || (a.y == b.y && a.x <= b.x) ? a : b, bot = top == a ? b : a;
    ASSERT_TRUE(s.first == top.y && (i64)s.runs.size() == (i64)bot.y - top.y + 1 && Covers(s, a.x, a.y) && Covers(s, b.x, b.y));
    const i64 dx = (i64)bot.x - top.x, dy = (i64)bot.y - top.y, adx = std::llabs(dx);
    i64 total = 0;
    for (i64 j = 0; j < (i64)s.runs.size(); ++j)
      for (i64 x = s.runs[(size_t)j].x; x <= s.runs[(size_t)j].y; ++x, ++total) {
        // Flat: the row whose centre is nearest the line at this column,
        // the upper one on a tie. Steep: the nearest column, the left one.
        const i64 e = adx > dy ? 2 * adx * j - 2 * dy * std::llabs(x - top.x) : 2 * dy * (x - top.x) - 2 * dx * j;
        ASSERT_TRUE(dy == 0 || (e >= -std::max(adx, dy) && e < std::max(adx, dy))) << "pixel (" << x << ", " << top.y + j << ")";
      }
    ASSERT_EQ(total, std::max(adx, dy) + 1);  // one pixel per column (or row), none twice
  }
  const Shape h = SHAPE(MidPointLine, POINT{INT_MIN, 5}, POINT{INT_MAX - 1, 5});
  EXPECT_TRUE(h.runs == (std::vector<POINT>{{INT_MIN, INT_MAX - 1}}) && h.box.right == INT_MAX);
}

// The chord model: pixels of the upright ellipse on the arc's side of the
// line through the arc's ends, the ends found here with cos and sin.
double ChordSide(const RECT& rc, double s, double e, double x, double y) {
  const double cx = (rc.left + rc.right) / 2.0, cy = (rc.top + rc.bottom) / 2.0, A = (rc.right - rc.left) / 2.0,
               B = (rc.bottom - rc.top) / 2.0;
  const double r1 = 1 / std::hypot(std::cos(s) / A, std::sin(s) / B), r2 = 1 / std::hypot(std::cos(e) / A, std::sin(e) / B);
  const double px = cx + r1 * std::cos(s), py = cy + r1 * std::sin(s);
  const double dx = cx + r2 * std::cos(e) - px, dy = cy + r2 * std::sin(e) - py;
  return -(dx * (y - py) - dy * (x - px)) / std::hypot(dx, dy);
}

TEST(ShapesArcs, ChordsAreTheEllipseOnTheArcsSide) {
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> ang(-20, 20);
  for (int i = 0; i < 500; ++i) {
    const int l = (int)(rng() % 100) - 50, t = (int)(rng() % 100) - 50;
    const RECT r{l, t, l + 1 + (int)(rng() % 70), t + 1 + (int)(rng() % 70)};
    const double s = ang(rng), e = i % 10 == 0 ? s + 1e-3 : ang(rng);
    char call[160];
    std::snprintf(call, sizeof call, "MidPointArc(RECT{%d, %d, %d, %d}, %.17g, %.17g)", (int)r.left, (int)r.top,
                  (int)r.right, (int)r.bottom, s, e);
    SCOPED_TRACE(call);
    const Shape ell = SHAPE(EllipseRasterLine, CRect(r), 0.0), chord = SHAPE(MidPointArc, r, s, e), other = SHAPE(MidPointArc, r, e, s);
    // Pixels clearly on a side are in that side's chord; the two chords
    // make the ellipse and share only a sliver row's pixel.
    for (size_t k = 0; k < ell.runs.size(); ++k)
      for (i64 y = ell.first + (i64)k, x = ell.runs[k].x; x <= ell.runs[k].y; ++x) {
        const double side = ChordSide(r, s, e, x + 0.5, y + 0.5);
        const bool in = Covers(chord, x, y), out = Covers(other, x, y);
        ASSERT_TRUE((in || side < 1e-9) && (out || side > -1e-9) && (in || out)) << "pixel (" << x << ", " << y << ")";
        const Shape& sl = side > 0 ? other : chord;
        ASSERT_TRUE(!(in && out) || sl.runs[(size_t)(y - sl.first)].x == sl.runs[(size_t)(y - sl.first)].y);
      }
    for (const Shape* c : {&chord, &other})
      for (size_t k = 0; k < c->runs.size(); ++k)
        for (i64 x = c->runs[k].x; x <= c->runs[k].y; ++x) ASSERT_TRUE(Covers(ell, x, c->first + (i64)k));
  }
}

TEST(ShapesArcs, FullTurnsHalvesAndMirrors) {
  const RECT rc{-20, 10, 21, 41};  // 41 x 31: centre row 25 (index 15), centre column 0
  const Shape ell = SHAPE(EllipseRasterLine, CRect(rc), 0.0);
  for (auto se : std::vector<std::pair<double, double>>{{1.0, 1.0}, {1.0, 1.0 + 2 * kPi}, {-3.0, -3.0 - 4 * kPi}, {0.5, 0.5 + 1e-11}})
    EXPECT_TRUE(SHAPE(MidPointArc, rc, se.first, se.second) == ell) << se.first << " " << se.second;
  // 0 to pi: the lower half with the centre row (its chord runs left);
  // pi to 2 pi: the upper half without it.
  const Shape lower = SHAPE(MidPointArc, rc, 0, kPi), upper = SHAPE(MidPointArc, rc, kPi, 2 * kPi);
  EXPECT_TRUE(lower.first == 25 && lower.runs == std::vector<POINT>(ell.runs.begin() + 15, ell.runs.end()));
  EXPECT_EQ(upper.runs, std::vector<POINT>(ell.runs.begin(), ell.runs.begin() + 15));
  EXPECT_TRUE(SHAPE(MidPointArc, rc, -kPi, 0) == upper && SHAPE(MidPointArc, rc, 3 * kPi, 4 * kPi) == upper &&
              SHAPE(MidPointArc, rc, 2 * kPi, -kPi) == lower);
  // -pi/2 to pi/2: the right half with the centre column (its chord runs
  // down); the other way, the left half without it.
  const Shape right = SHAPE(MidPointArc, rc, -kPi / 2, kPi / 2), left = SHAPE(MidPointArc, rc, kPi / 2, 3 * kPi / 2);
  for (size_t k = 0; k < ell.runs.size(); ++k)
    EXPECT_TRUE(right.runs[k] == (POINT{0, ell.runs[k].y}) && left.runs[k] == (POINT{ell.runs[k].x, -1})) << k;
  for (double a : {0.3, 1.0, 2.0, 2.9}) {  // a and -a end on mirrored points
    const Shape c = SHAPE(MidPointArc, rc, -a, a);
    for (size_t k = 0; k < c.runs.size(); ++k) EXPECT_EQ(c.runs[k], c.runs[c.runs.size() - 1 - k]) << a;
  }
  EXPECT_LE(SHAPE(MidPointArc, rc, 0.5, 0.5 + 1e-4).runs.size(), 2u);  // at most pixels standing out beyond the arc
  EXPECT_TRUE(SHAPE(MidPointArc, RECT{0, 0, 0, 5}, 0, 1).runs.empty());
}

// ---- the geometry helpers ---------------------------------------------------------------------

TEST(ShapesGeometry, OctantSymmetries) {
  const ELLSEPPROC procs[8] = {&CEllipse::EllSep0, &CEllipse::EllSep1, &CEllipse::EllSep2, &CEllipse::EllSep3,
                               &CEllipse::EllSep4, &CEllipse::EllSep5, &CEllipse::EllSep6, &CEllipse::EllSep7};
  for (int k = 0; k < 8; ++k) {
    double x, y;
    CEllipse::m_EllSepProc[k](2.0, 1.0, x, y);  // (2, 1)'s image lies in octant k, as far out
    const double a = std::atan2(y, x) + (y < 0 ? 2 * kPi : 0);
    EXPECT_TRUE(CEllipse::m_EllSepProc[k] == procs[k] && a > k * kPi / 4 && a < (k + 1) * kPi / 4 && x * x + y * y == 5) << k;
  }
}

TEST(ShapesGeometry, EllipseParametersBordersPointsAndSections) {
  std::mt19937 rng(23);
  std::uniform_real_distribution<double> u(0, 1);
  for (int i = 0; i < 200; ++i) {
    const ATransform t = RandomTransform(rng);
    const RECTD rc(u(rng) * 50, u(rng) * 50, 50 + u(rng) * 50, 50 + u(rng) * 50);
    POINTD c;
    double a, b, tilt;
    RECT border;
    ASSERT_TRUE(CEllipse::GetEllipseParam(rc, t, c, a, b, tilt) && CEllipse::GetEllipseBorder(c, a, b, tilt, border));
    ASSERT_TRUE(a >= b && b > 0 && tilt >= 0 && tilt < kPi);
    // The unit radius in the parameters' own axes.
    auto radius = [&](double x, double y) {
      const double du = (x - c.x) * std::cos(tilt) + (y - c.y) * std::sin(tilt), dv = (y - c.y) * std::cos(tilt) - (x - c.x) * std::sin(tilt);
      return std::hypot(du / a, dv / b);
    };
    double ylo = 1e300, yhi = -1e300;
    for (int k = 0; k < 360; ++k) {
      const double th = 2 * kPi * k / 360;
      double x = (rc.left + rc.right) / 2 + std::cos(th) * (rc.right - rc.left) / 2, y = (rc.top + rc.bottom) / 2 + std::sin(th) * (rc.bottom - rc.top) / 2;
      t.CalcPoint(x, y);  // the mapped ellipse's points fit the parameters and the border
      ASSERT_NEAR(radius(x, y), 1.0, 1e-9);
      ASSERT_TRUE(x >= border.left && x < border.right && y >= border.top && y < border.bottom);
      ylo = std::min(ylo, y);
      yhi = std::max(yhi, y);
      const POINTD p = CEllipse::EllipsePoint(c, a, b, tilt, th);  // on the ellipse, along the ray
      ASSERT_NEAR(radius(p.x, p.y), 1.0, 1e-9);
      ASSERT_NEAR(std::sin(std::atan2(p.y - c.y, p.x - c.x) - th), 0.0, 1e-9);
    }
    EXPECT_TRUE(border.top == (LONG)std::floor(ylo) || border.top == (LONG)std::floor(ylo) - 1);
    for (double y = border.top - 1.0; y <= border.bottom + 1.0; y += 0.37) {
      double x1, x2;
      const bool hit = CEllipse::GetEllBoundary(c, a, b, tilt, y, x1, x2);
      ASSERT_TRUE(hit ? y >= border.top && y <= border.bottom : !(y > ylo + 0.01 && y < yhi - 0.01)) << y;
      ASSERT_TRUE(!hit || (std::fabs(radius(x1, y) - 1) < 1e-6 && std::fabs(radius(x2, y) - 1) < 1e-6)) << y;
    }
  }
  const POINTD c(10, 20), top = CEllipse::EllipsePoint(c, 5, 3, 0, -kPi / 2), left = CEllipse::EllipsePoint(c, 5, 3, 0, kPi);
  EXPECT_TRUE(top.x == 10 && top.y == 17 && left.x == 5 && left.y == 20);  // exact on the axes
  double a, b, tilt;
  POINTD cc;
  ASSERT_TRUE(CEllipse::GetEllipseParam(RECTD(0, 0, 10, 4), FromMatrix(1, 0.5, 2, 1, 3, 4), cc, a, b, tilt));
  EXPECT_TRUE(b == 0 && cc.x == 12 && cc.y == 8.5);  // singular: flat exactly
}

// ---- bad input --------------------------------------------------------------------------------

TEST(ShapesFailures, BadInputGivesEmptyResultsAndAText) {
  ATransform remote, huge, tall;
  remote.Translation(3e9, 0);
  huge.Scaling(1e8, 1e8, 0, 0);
  tall.Scaling(1, 2e6, 0, 0);
  tall.Rotate(0.3, 0, 0);
  const ATransform nan = FromMatrix(1, 0, 0, std::nan(""), 0, 0);
  const POINTD inf[3] = {POINTD(0, 0), POINTD(INFINITY, 0), POINTD(0, 1)};
  const POINT edge[3] = {{INT_MAX - 2, 0}, {INT_MAX, 0}, {INT_MAX - 2, 2}};
  const std::vector<std::pair<std::function<Shape()>, const char*>> cases = {
      {[&] { return SHAPE(EllipseRasterLine, RECTD(0, 0, 10, 10), remote); }, "32-bit"},
      {[&] { return SHAPE(RectRasterLine, RECT{0, 0, 10, 10}, remote); }, "32-bit"},
      {[&] { return SHAPE(EllipseRasterLine, RECTD(0, 0, 100, 100), huge); }, "32-bit"},
      {[&] { return SHAPE(RectRasterLine, RECT{0, 0, 100, 100}, huge); }, "32-bit"},
      {[&] { return SHAPE(RectRasterLine, RECT{INT_MAX - 100, 0, INT_MAX, 50}, 0.7); }, "32-bit"},
      {[&] { return SHAPE(PlgRasterLine, edge); }, "32-bit"},
      {[&] { return SHAPE(MidPointLine, POINT{INT_MAX, 0}, POINT{0, 0}); }, "32-bit"},
      {[&] { return SHAPE(RectRasterLine, RECT{0, 0, 10, 10}, nan); }, "finite"},
      {[&] { return SHAPE(EllipseRasterLine, RECTD(0, 0, 10, 10), nan); }, "finite"},
      {[&] { return SHAPE(EllipseRasterLine, RECTD(0, 0, INFINITY, 10), ATransform()); }, "finite"},
      {[&] { return SHAPE(MidPointParalgram, inf); }, "finite"},
      {[&] { return SHAPE(MidPointArc, RECT{0, 0, 9, 9}, 0.5, std::nan("")); }, "finite"},
      {[&] { return SHAPE(EllipseRasterLine, RECTD(0, 0, 100, 100), tall); }, "rows"},
      {[&] { return SHAPE(MidPointLine, POINT{0, INT_MIN}, POINT{0, INT_MAX - 1}); }, "rows"},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    g_Error.ClearError();
    EXPECT_TRUE(cases[i].first().runs.empty()) << i;
    EXPECT_NE(std::string(g_Error.strError).find(cases[i].second), std::string::npos) << i << ": " << g_Error.strError;
  }
  // Empty rectangles are empty shapes, not failures, under any transform.
  g_Error.ClearError();
  EXPECT_TRUE(SHAPE(EllipseRasterLine, RECTD(5, 5, 5, 9), huge).runs.empty() &&
              SHAPE(EllipseRasterLine, RECTD(5, 9, 6, 5), ATransform()).runs.empty() &&
              SHAPE(RectRasterLine, RECT{5, 5, 4, 9}, huge).runs.empty() && !g_Error.IsError());
  // Null corners are a misuse: an assertion, then the empty result.
  tqtest::HookCapture hooks;
  CArray<POINT, POINT> runs;
  RSRLINE piece;
  RECT border;
  EXPECT_TRUE(CEllipse::PlgRasterLine(nullptr, runs, nullptr) == 0 && !CEllipse::MidPointParalgram(nullptr, piece) &&
              !CEllipse::MidPointRect(nullptr, piece) && !CEllipse::GetRectBorder(nullptr, 4, border));
  EXPECT_EQ(hooks.Assertions(), 4);
}

// Angles far outside [0, 2 pi) and negative turn shapes like their
// remainders.
TEST(ShapesFailures, FarAndNegativeAngles) {
  const RECT rc{0, 0, 31, 12};
  for (double a : {0.7, 2.0, 4.0})
    for (int k : {-1000, -3, -1, 1, 5, 100000}) {
      const double b = a + k * 2 * kPi;
      std::vector<POINTD> p(4);
      CEllipse::RotateRect(rc, a, p.data());
      ATransform t;
      t.Rotate(a, 15.5, 6);
      ExpectCentres(SHAPE(RectRasterLine, rc, b), PolygonModel(p), "RectRasterLine at " + std::to_string(b), 1e-6);
      ExpectCentres(SHAPE(EllipseRasterLine, CRect(rc), b), EllipseModel(RECTD(rc), t), "EllipseRasterLine at " + std::to_string(b), 1e-6);
    }
}

}  // namespace
