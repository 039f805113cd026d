// test_ellipse.cpp - CEllipse: the midpoint cores against models that
// evaluate the midpoint decisions directly, the upright shapes at the
// stated sizes and angles, the quarter-turn exchange, rectangles, shapes at
// general angles against a per-pixel model, and the region form.
#include <tqbase/tqbase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

// The library's cores are private; the class names this struct its friend.
struct CEllipseAccess {
  static std::vector<int> Circle(int r) {
    CArray<int, int> w;
    CEllipse::MidPointCircle(r, w);
    return w.vec();
  }
  static std::vector<int> Ellipse(int a, int b) {
    CArray<int, int> w;
    CEllipse::MidPointEllipse(a, b, w);
    return w.vec();
  }
  static int General(const CRect& rc, double angle, CArray<POINT, POINT>& runs, RECT* box) {
    return CEllipse::MidPointEllipseLine(rc, angle, runs, box);
  }
};

// Runs compare as pairs (found by argument lookup: POINT is global).
static bool operator==(const POINT& a, const POINT& b) { return a.x == b.x && a.y == b.y; }

namespace {

const double kPi = 3.141592653589793;
typedef long long i64;

struct Shape {
  int first = 0;
  std::vector<POINT> runs;
  RECT box{0, 0, 0, 0};
};

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// Every shape is made in both forms: the run list, and the region form,
// which must hold the same runs (one per row) and the inclusive box, or be
// refused when the list is empty.
Shape Make(bool ellipse, const RECT& rc, double angle, RSRLINE* reuse = nullptr) {
  Shape s;
  CArray<POINT, POINT> runs;
  s.first = ellipse ? CEllipse::EllipseRasterLine(rc, angle, runs, &s.box)
                    : CEllipse::RectRasterLine(rc, angle, runs, &s.box);
  s.runs = runs.vec();
  RSRLINE local, &piece = reuse ? *reuse : local;  // a reused piece: every call replaces what it held
  const bool made =
      ellipse ? CEllipse::EllipseRasterLine(rc, angle, piece) : CEllipse::RectRasterLine(rc, angle, piece);
  EXPECT_EQ(made, !s.runs.empty());
  EXPECT_EQ(piece.arRun.GetSize(), (int)s.runs.size());
  EXPECT_EQ(piece.arCount.GetSize(), (int)s.runs.size());
  for (int k = 0; k < piece.arRun.GetSize() && k < (int)s.runs.size(); ++k)
    EXPECT_TRUE(piece.arCount[k] == 1 && piece.arRun[k].x1 == s.runs[(size_t)k].x &&
                piece.arRun[k].x2 == s.runs[(size_t)k].y) << "row " << k;
  EXPECT_TRUE(!made || SameRect(piece.rcBox, RECT{s.box.left, s.box.top, s.box.right - 1, s.box.bottom - 1}));
  return s;
}
Shape Ellipse(const RECT& rc, double angle, RSRLINE* reuse = nullptr) { return Make(true, rc, angle, reuse); }
Shape Rect(const RECT& rc, double angle, RSRLINE* reuse = nullptr) { return Make(false, rc, angle, reuse); }

bool Same(const Shape& a, const Shape& b) {
  return a.first == b.first && a.runs == b.runs && SameRect(a.box, b.box);
}

std::string Call(const char* fn, const RECT& rc, double angle) {
  char buf[200];
  std::snprintf(buf, sizeof buf, "CEllipse::%s(CRect(%d, %d, %d, %d), %.17g, runs, &box)", fn,
                (int)rc.left, (int)rc.top, (int)rc.right, (int)rc.bottom, angle);
  return buf;
}

// Invariants of every result: inclusive runs, a box that is exactly the
// half-open bounds of the runs, and the first row as the box's top.
void ExpectWellFormed(const Shape& s) {
  if (s.runs.empty()) {
    EXPECT_TRUE(SameRect(s.box, RECT{0, 0, 0, 0}));
    return;
  }
  LONG lo = INT_MAX, hi = INT_MIN;
  for (const POINT& r : s.runs) {
    EXPECT_LE(r.x, r.y);
    lo = std::min(lo, r.x);
    hi = std::max(hi, r.y);
  }
  EXPECT_EQ(s.box.left, lo);
  EXPECT_EQ(s.box.right, hi + 1);
  EXPECT_EQ(s.box.top, s.first);
  EXPECT_EQ((i64)s.box.bottom - s.box.top, (i64)s.runs.size());
}

// ---- models of the midpoint cores ----------------------------------------

// The circle: in the second octant the walk keeps, for each x, the largest
// y whose midpoint (x, y - 1/2) lies strictly inside: 4x^2 + (2y-1)^2 < 4r^2.
// Each such point and its mirror image (y, x) widen their rows.
std::vector<int> CircleModel(int r) {
  std::vector<int> w;
  if (r <= 0) return w;
  w.assign((size_t)r + 1, -1);
  i64 y = r;
  for (i64 x = 0;; ++x) {
    while (y >= x && 4 * x * x + (2 * y - 1) * (2 * y - 1) >= 4 * (i64)r * r) --y;
    if (x > y) break;
    w[(size_t)(r - y)] = std::max<int>(w[(size_t)(r - y)], (int)x);
    w[(size_t)(r - x)] = std::max<int>(w[(size_t)(r - x)], (int)y);
  }
  return w;
}

// The ellipse: the two-region walk with every decision evaluated from the
// implicit function F(x, y) = b^2 x^2 + a^2 y^2 - a^2 b^2 at the midpoint,
// four times scaled so that everything stays integral.
std::vector<int> EllipseModel(i64 a, i64 b) {
  auto F4 = [&](i64 x2, i64 y2) {
    return (__int128)b * b * x2 * x2 + (__int128)a * a * y2 * y2 - (__int128)4 * a * a * b * b;
  };
  std::vector<int> w;
  i64 x = 0, y = b;
  while ((__int128)2 * a * a * y - (__int128)a * a > (__int128)2 * b * b * (x + 1)) {
    if (F4(2 * x + 2, 2 * y - 1) >= 0) {
      w.push_back((int)x);
      --y;
    }
    ++x;
  }
  for (; y >= 1; --y) {
    w.push_back((int)x);
    if (F4(2 * x + 1, 2 * y - 2) < 0) ++x;
  }
  w.push_back((int)x);
  return w;
}

TEST(EllipseCores, CircleMatchesTheOctantModel) {
  EXPECT_TRUE(CEllipseAccess::Circle(0).empty() && CEllipseAccess::Circle(-3).empty());
  EXPECT_EQ(CEllipseAccess::Circle(2), (std::vector<int>{1, 2, 2}));
  tqtest::HookCapture hooks;  // the core checks its row count with an assertion
  for (int r = 1; r <= 700; ++r) {
    std::vector<int> w = CEllipseAccess::Circle(r);
    ASSERT_EQ(w, CircleModel(r)) << "CEllipseAccess::Circle(" << r << ")";
  }
  for (int r : {1023, 1024, 4000, 20000}) EXPECT_EQ(CEllipseAccess::Circle(r), CircleModel(r)) << r;
  EXPECT_EQ(hooks.Assertions(), 0);
}

TEST(EllipseCores, EllipseMatchesTheDirectModel) {
  tqtest::HookCapture hooks;
  for (int a = 0; a <= 40; ++a)
    for (int b = 0; b <= 40; ++b)
      ASSERT_EQ(CEllipseAccess::Ellipse(a, b), EllipseModel(a, b))
          << "CEllipseAccess::Ellipse(" << a << ", " << b << ")";
  std::mt19937 rng(20240611);
  for (int i = 0; i < 400; ++i) {
    int a = (int)(rng() % 4000) + 1, b = (int)(rng() % 4000) + 1;
    if (i % 4 == 0) b = (int)(rng() % 8) + 1;  // flat ones stay in region 1 for long
    if (i % 4 == 1) a = (int)(rng() % 8) + 1;
    std::vector<int> w = CEllipseAccess::Ellipse(a, b);
    ASSERT_EQ(w, EllipseModel(a, b)) << "CEllipseAccess::Ellipse(" << a << ", " << b << ")";
    ASSERT_EQ((int)w.size(), b + 1);
    for (size_t k = 1; k < w.size(); ++k) ASSERT_LE(w[k - 1], w[k]);
    ASSERT_LE(w.back(), a);
  }
  EXPECT_EQ(hooks.Assertions(), 0);
}

// ---- upright ellipses and circles -----------------------------------------

TEST(EllipseUpright, EmptyAndSinglePixel) {
  for (RECT rc : {RECT{5, 7, 5, 20}, RECT{5, 7, 20, 7}, RECT{9, 9, 3, 3}, RECT{0, 0, 0, 0}}) {
    CArray<POINT, POINT> runs;
    runs.Add(POINT{1, 2});
    RECT box{1, 2, 3, 4};
    EXPECT_EQ(CEllipse::EllipseRasterLine(rc, 0.3, runs, &box), rc.top);
    EXPECT_EQ(runs.GetSize(), 0);
    EXPECT_TRUE(SameRect(box, RECT{0, 0, 0, 0}));
    EXPECT_EQ(CEllipse::EllipseRasterLine(rc, 0.0, runs, nullptr), rc.top);
    RSRLINE piece;
    EXPECT_FALSE(CEllipse::EllipseRasterLine(rc, 0.0, piece));
    EXPECT_EQ(piece.arRun.GetSize(), 0);
    EXPECT_EQ(piece.arCount.GetSize(), 0);
    EXPECT_TRUE(SameRect(piece.rcBox, RECT{0, 0, 0, 0}));  // the valid empty piece
  }
  for (double angle : {0.0, 0.7, kPi / 2, -3.0}) {
    Shape s = Ellipse(RECT{-4, 9, -3, 10}, angle);
    EXPECT_TRUE(s.first == 9 && s.runs == std::vector<POINT>(1, POINT{-4, -4}) && SameRect(s.box, RECT{-4, 9, -3, 10}));
  }
}

TEST(EllipseUpright, ThinRectanglesAreRectangles) {
  for (RECT rc : {RECT{0, 0, 2, 9}, RECT{3, -4, 40, -2}, RECT{0, 0, 1, 7}, RECT{-8, 1, 30, 2}})
    for (double angle : {0.0, 0.004, kPi, kPi / 2, 1.0, -2.5}) {
      SCOPED_TRACE(Call("EllipseRasterLine", rc, angle));
      EXPECT_TRUE(Same(Ellipse(rc, angle), Rect(rc, angle)));
    }
}

// Squares give circles from the circle core: an odd side is centred on its
// middle pixel, an even side has two equal centre rows and leans one pixel
// to the left.
TEST(EllipseUpright, SquaresAreSymmetricCircles) {
  for (int side = 3; side <= 241; ++side) {
    for (POINT org : {POINT{0, 0}, POINT{-37, 11}, POINT{-1000, -999}}) {
      if (side % 2 == 0 && org.x != 0) continue;
      RECT rc{org.x, org.y, org.x + side, org.y + side};
      SCOPED_TRACE(Call("EllipseRasterLine", rc, 0.0));
      Shape s = Ellipse(rc, 0.0);
      ExpectWellFormed(s);
      const int half = side / 2, cx = org.x + half, lean = side % 2 == 0;
      ASSERT_EQ((int)s.runs.size(), side);
      EXPECT_EQ(s.first, rc.top);
      EXPECT_EQ(s.runs[(size_t)half], (POINT{cx - half, cx + half - lean}));
      EXPECT_TRUE(SameRect(s.box, rc));
      std::vector<int> model = CircleModel(half - lean);
      for (int k = 0; k < side; ++k) {
        const POINT& run = s.runs[(size_t)k];
        EXPECT_EQ(cx - run.x, run.y - cx + lean);                             // centred
        EXPECT_EQ(run, s.runs[(size_t)(side - 1 - k)]);                       // top-bottom
        EXPECT_EQ(run.y - cx, model[(size_t)std::min(k, side - 1 - k)]);  // the core
      }
    }
  }
}

// The upright ellipse from the stated width rule: runs of the upper half
// from the core's widths, the lower half mirrored.
Shape UprightModel(const RECT& rc, bool exchanged) {
  i64 w = (i64)rc.right - rc.left, h = (i64)rc.bottom - rc.top;
  int a = (int)(w / 2 - (w % 2 == 0)), b = (int)(h / 2 - (h % 2 == 0));
  i64 cx = (i64)std::floor(((double)rc.left + rc.right) / 2);
  i64 cy = (i64)std::floor(((double)rc.top + rc.bottom) / 2);
  std::vector<int> widths = exchanged ? EllipseModel(b, a) : EllipseModel(a, b);
  i64 across = exchanged ? h : w, down = exchanged ? w : h;
  Shape s;
  s.first = (int)(exchanged ? cy - a : rc.top);
  for (int wk : widths) s.runs.push_back(POINT{(LONG)(cx - wk - (across % 2 == 0)), (LONG)(cx + wk)});
  for (int k = (int)widths.size() - 1 - (down % 2 == 1); k >= 0; --k) s.runs.push_back(s.runs[(size_t)k]);
  s.box = RECT{s.runs[widths.size() - 1].x, s.first, s.runs[widths.size() - 1].y + 1,
               (LONG)(s.first + (i64)s.runs.size())};
  return s;
}

TEST(EllipseUpright, AnglesSnapToQuarterTurns) {
  const RECT rc{100, 50, 110, 56};  // 10 x 6
  Shape upright = Ellipse(rc, 0.0);
  EXPECT_TRUE(Same(upright, UprightModel(rc, false)));
  for (double angle : {0.004, kPi - 0.004, kPi + 0.004, 2 * kPi, -0.004, 4 * kPi + 0.001, -kPi})
    EXPECT_TRUE(Same(Ellipse(rc, angle), upright)) << angle;

  Shape turned = Ellipse(rc, kPi / 2 + 0.004);
  EXPECT_TRUE(Same(turned, UprightModel(rc, true)));
  for (double angle : {kPi / 2, 3 * kPi / 2 - 0.004, -kPi / 2, 5 * kPi / 2 + 0.0049})
    EXPECT_TRUE(Same(Ellipse(rc, angle), turned)) << angle;

  // Past the tolerance the ellipse is turned for real (at 0.006 a shape
  // this small still comes out as the upright one).
  Shape general = Ellipse(rc, 0.006);
  EXPECT_TRUE(Same(general, upright));
  EXPECT_FALSE(Same(Ellipse(rc, 0.3), upright));
  CArray<POINT, POINT> runs;
  RECT box;
  EXPECT_EQ(CEllipseAccess::General(rc, 0.006, runs, &box), general.first);
  EXPECT_EQ(runs.vec(), general.runs);

  // A circle is the same at every angle.
  const RECT sq{-4, -4, 5, 5};
  Shape circle = Ellipse(sq, 0.0);
  for (double angle : {0.006, 0.7, kPi / 2, 2.0, -1.0, 1e6}) EXPECT_TRUE(Same(Ellipse(sq, angle), circle));
}

TEST(EllipseUpright, RandomEllipsesFollowTheWidthRules) {
  std::mt19937 rng(7);
  RSRLINE piece;
  for (int i = 0; i < 1500; ++i) {
    int w = 3 + (int)(rng() % 300), h = 3 + (int)(rng() % 300);
    if (i % 5 == 0) h = 3 + (int)(rng() % 4);
    int l = (int)(rng() % 20001) - 10000, t = (int)(rng() % 20001) - 10000;
    RECT rc{l, t, l + w, t + h};
    bool quarter = i % 3 == 0;
    double angle = quarter ? kPi / 2 : 0.0;
    SCOPED_TRACE(Call("EllipseRasterLine", rc, angle));
    Shape s = Ellipse(rc, angle, &piece);
    ExpectWellFormed(s);
    if (w == h) continue;
    ASSERT_TRUE(Same(s, UprightModel(rc, quarter)));
    if (!quarter) {
      // Inscribed: inside the rectangle, touching its top and bottom rows.
      EXPECT_TRUE(s.box.left >= rc.left && s.box.right <= rc.right);
      EXPECT_TRUE(s.box.top == rc.top && s.box.bottom == rc.bottom);
      continue;
    }
    // The ellipse and the rectangle of one bounding rectangle are placed
    // by the same rule, so the ellipse stays inscribed when both are turned.
    const Shape r = Rect(rc, angle, &piece);
    ASSERT_TRUE(s.runs.size() == r.runs.size() && s.first == r.first);
    for (size_t k = 0; k < s.runs.size(); ++k) ASSERT_TRUE(s.runs[k].x >= r.runs[k].x && s.runs[k].y <= r.runs[k].y);
  }
}

// ---- rectangles -------------------------------------------------------------

TEST(EllipseRect, UprightAndQuarterTurns) {
  Shape s = Rect(RECT{-3, 4, 5, 7}, 0.0);
  EXPECT_TRUE(s.first == 4 && s.runs == std::vector<POINT>(3, POINT{-3, 4}) && SameRect(s.box, RECT{-3, 4, 5, 7}));
  EXPECT_TRUE(Same(Rect(RECT{-3, 4, 5, 7}, kPi + 0.003), s));

  // 8 x 3 a quarter turn: 3 wide, 8 tall, about the centre pixel (1, 5).
  Shape q = Rect(RECT{-3, 4, 5, 7}, kPi / 2);
  EXPECT_TRUE(q.first == 5 - 3 && q.runs == std::vector<POINT>(8, POINT{0, 2}));
  EXPECT_TRUE(Same(Rect(RECT{-3, 4, 5, 7}, 3 * kPi / 2), q));

  EXPECT_TRUE(Rect(RECT{0, 0, 0, 5}, 0.0).runs.empty());
  RSRLINE piece;
  EXPECT_TRUE(CEllipse::RectRasterLine(RECT{2, 3, 6, 5}, 0.0, piece));
  EXPECT_EQ(piece.arCount.vec(), (std::vector<int>{1, 1}));
  EXPECT_TRUE(SameRect(piece.rcBox, RECT{2, 3, 5, 4}));
}

// Signed distance-like margins of the pixel centre (px, py) inside the
// rectangle rc, or its inscribed ellipse, turned by angle about rc's
// centre: positive inside, negative outside. (u, v) is the centre's place
// in the shape's own axes, (A, B) the half sides.
double Margin(bool ellipse, const RECT& rc, double angle, double px, double py) {
  const double dx = px - ((double)rc.left + rc.right) / 2, dy = py - ((double)rc.top + rc.bottom) / 2;
  const double u = dx * std::cos(angle) + dy * std::sin(angle), v = -dx * std::sin(angle) + dy * std::cos(angle);
  const double A = ((double)rc.right - rc.left) / 2, B = ((double)rc.bottom - rc.top) / 2;
  return ellipse ? 1.0 - (u * u / (A * A) + v * v / (B * B)) : std::min(A - std::fabs(u), B - std::fabs(v));
}

// Per-pixel model of the shapes at general angles: a pixel belongs when its
// centre is inside; a row with no centre inside keeps one pixel (the shape
// crosses it only as a sliver). Pixels within a hair of the outline may go
// either way.
void ExpectPixelCentres(const Shape& s, const RECT& rc, double angle, bool ellipse) {
  auto margin = [&](double px, double py) { return Margin(ellipse, rc, angle, px, py); };
  const double hair = 1e-7;
  ASSERT_FALSE(s.runs.empty());
  for (size_t k = 0; k < s.runs.size(); ++k) {
    const int y = s.first + (int)k;
    const POINT& run = s.runs[k];
    int inside = 0;
    for (int x = s.box.left - 3; x <= s.box.right + 2; ++x) {
      double m = margin(x + 0.5, y + 0.5);
      bool in = x >= run.x && x <= run.y;
      if (m > hair) {
        ++inside;
        ASSERT_TRUE(in) << "pixel (" << x << ", " << y << ") missing";
      } else if (m < -hair && run.x != run.y) {
        ASSERT_FALSE(in) << "pixel (" << x << ", " << y << ") outside";
      }
    }
    if (run.x == run.y && inside == 0) {
      // a sliver row: its one pixel must be near the shape
      ASSERT_GT(margin(run.x + 0.5, y + 0.5), -2.0);
    }
  }
  // No row with a centre clearly inside is left out.
  for (int y : {s.first - 1, s.first + (int)s.runs.size()})
    for (int x = s.box.left - 3; x <= s.box.right + 2; ++x)
      ASSERT_LE(margin(x + 0.5, y + 0.5), hair) << "row " << y << " left out";
}

TEST(EllipseGeneral, TurnedShapesHoldThePixelCentresInside) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> turn(-7.0, 7.0);
  RSRLINE piece;
  for (int i = 0; i < 600; ++i) {
    int w = 1 + (int)(rng() % 90), h = 1 + (int)(rng() % 90);
    int l = (int)(rng() % 401) - 200, t = (int)(rng() % 401) - 200;
    RECT rc{l, t, l + w, t + h};
    double angle = turn(rng);
    double a = std::fmod(std::fabs(angle), kPi / 2);
    if (a < 0.005 || a > kPi / 2 - 0.005) continue;  // snapped to a quarter turn
    for (bool ellipse : {false, true}) {
      if (ellipse && (w < 3 || h < 3 || w == h)) continue;
      SCOPED_TRACE(Call(ellipse ? "EllipseRasterLine" : "RectRasterLine", rc, angle));
      Shape s = Make(ellipse, rc, angle, &piece);
      ExpectWellFormed(s);
      ExpectPixelCentres(s, rc, angle, ellipse);
    }
  }
}

// ---- bad input ---------------------------------------------------------------

TEST(EllipseFailures, BadAnglesAndCoordinatesGiveEmptyResults) {
  g_Error.ClearError();
  CArray<POINT, POINT> runs;
  RECT box{1, 1, 1, 1};
  const RECT rc{0, 0, 10, 6};
  EXPECT_EQ(CEllipse::EllipseRasterLine(rc, std::nan(""), runs, &box), 0);
  EXPECT_EQ(runs.GetSize(), 0);
  EXPECT_TRUE(SameRect(box, RECT{0, 0, 0, 0}));
  EXPECT_TRUE(g_Error.IsError());
  EXPECT_NE(std::string(g_Error.strError).find("angle"), std::string::npos);

  // Refused region forms: a bad angle, turned beyond the 32-bit plane, more
  // rows than a region holds.
  RSRLINE piece;
  const RECT edge{0, INT_MAX - 3, 1000, INT_MAX}, wide{INT_MIN + 10, -5, INT_MAX - 10, 5};
  for (auto c : {std::make_pair(rc, (double)INFINITY), std::make_pair(edge, 0.7), std::make_pair(edge, kPi / 2),
                 std::make_pair(wide, kPi / 4)}) {
    g_Error.ClearError();
    EXPECT_FALSE(CEllipse::RectRasterLine(c.first, c.second, piece)) << Call("RectRasterLine", c.first, c.second);
    EXPECT_TRUE(g_Error.IsError());
    EXPECT_EQ(piece.arRun.GetSize(), 0);
  }

  // A circle needs no angle.
  g_Error.ClearError();
  EXPECT_EQ(CEllipse::EllipseRasterLine(RECT{0, 0, 7, 7}, std::nan(""), runs, &box), 0);
  EXPECT_EQ(runs.GetSize(), 7);
  EXPECT_FALSE(g_Error.IsError());

  // Right at the edge of the plane, upright shapes still fit.
  g_Error.ClearError();
  const RECT corner{INT_MAX - 10, INT_MAX - 7, INT_MAX, INT_MAX};
  const RECT low{INT_MIN, INT_MIN, INT_MIN + 9, INT_MIN + 5};
  Shape s = Ellipse(corner, 0.0), s2 = Ellipse(low, 0.0);
  ExpectWellFormed(s);
  ExpectWellFormed(s2);
  EXPECT_TRUE(s.runs.size() == 7u && s.box.right == INT_MAX && s2.box.left == INT_MIN);
  EXPECT_FALSE(g_Error.IsError());
}

}  // namespace
