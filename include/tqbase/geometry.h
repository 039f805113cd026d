// geometry.h - double-precision points and rectangles (POINTD, RECTD) and
// CPrecise, the double-to-pixel conversion with a caller-given precision.
//
// Two rules govern every geometric routine of the library and live here:
//  - doubles compare equal when their difference d satisfies
//    -1e-10 < d < 1e-10 (both bounds strict); rectangles, however, compare
//    exactly - the asymmetry is deliberate;
//  - a double becomes a pixel integer by pushing it 1e-10 away from zero
//    (zero counts as non-negative) and truncating toward zero; rounding
//    first adds 0.5 away from zero and then applies that same rule, the
//    sign of the shifted value choosing the direction of the nudge.
// Region edges computed by different routines meet on the same pixel only
// because all of them go through these conversions.
//
// Relies on winport.h for POINT, POINTF and RECT.
#ifndef TQBASE_GEOMETRY_H
#define TQBASE_GEOMETRY_H

#include "tqbase/tqbasexp.h"

// The library's comparison tolerance and truncation nudge.
#define TQ_GEOM_EPS 1e-10

// Truncation with nudge: v + 1e-10 (v >= 0) or v - 1e-10 (v < 0), then
// truncated toward zero. A value outside the 32-bit range, or NaN, gives the
// integer indefinite value 0x80000000, as the processor's conversion does.
inline int tqNudgeTrunc(double v) {
  double w = v >= 0 ? v + TQ_GEOM_EPS : v - TQ_GEOM_EPS;
  if (!(w > -2147483649.0 && w < 2147483648.0)) return (int)0x80000000u;
  return (int)w;
}

// Rounding half away from zero, then truncation with nudge.
inline int tqNudgeRound(double v) { return tqNudgeTrunc(v >= 0 ? v + 0.5 : v - 0.5); }

// True when -1e-10 < a - b < 1e-10.
inline bool tqNearlyEqual(double a, double b) {
  double d = a - b;
  return d > -TQ_GEOM_EPS && d < TQ_GEOM_EPS;
}

// A double-precision point. Compares with the tolerance; converts to pixels
// by truncation (operator POINT) or by rounding (GPOINT).
struct TQBASE_API POINTD {
  double x;
  double y;

  POINTD() : x(0.0), y(0.0) {}
  POINTD(double ix, double iy) : x(ix), y(iy) {}
  POINTD(const POINT& p) : x((double)p.x), y((double)p.y) {}
  POINTD(const POINTF& p) : x((double)p.x), y((double)p.y) {}
  POINTD(const POINTD& p) = default;
  POINTD& operator=(const POINTD& p) = default;

  // Each coordinate truncated toward zero after the nudge (no rounding).
  operator POINT() const {
    POINT p;
    p.x = tqNudgeTrunc(x);
    p.y = tqNudgeTrunc(y);
    return p;
  }
  // Each coordinate rounded half away from zero.
  POINT GPOINT() const {
    POINT p;
    p.x = tqNudgeRound(x);
    p.y = tqNudgeRound(y);
    return p;
  }

  BOOL operator==(const POINTD& p) const { return tqNearlyEqual(x, p.x) && tqNearlyEqual(y, p.y); }
  BOOL operator==(const POINT& p) const { return *this == POINTD(p); }
  BOOL operator!=(const POINTD& p) const { return !(*this == p); }
  BOOL operator!=(const POINT& p) const { return !(*this == p); }

  POINTD operator+(const POINTD& p) const { return POINTD(x + p.x, y + p.y); }
  POINTD operator-(const POINTD& p) const { return POINTD(x - p.x, y - p.y); }
  // These change the point and return a copy of the result, not a
  // reference: the value form is part of this library's interface.
  POINTD operator+=(const POINTD& p) { x += p.x; y += p.y; return *this; }
  POINTD operator-=(const POINTD& p) { x -= p.x; y -= p.y; return *this; }
};

// A double-precision rectangle in RECT's field order. Not kept normalised:
// only NormalizeRect and NormalizeBorder reorder the fields. Compares
// exactly (no tolerance). IsRectEmpty is true only for a zero width or
// height; an inverted rectangle is not empty.
class TQBASE_API RECTD {
public:
  double left;
  double top;
  double right;
  double bottom;

  RECTD() : left(0.0), top(0.0), right(0.0), bottom(0.0) {}
  RECTD(double l, double t, double r, double b) : left(l), top(t), right(r), bottom(b) {}
  RECTD(const RECT& rc)
      : left((double)rc.left), top((double)rc.top), right((double)rc.right), bottom((double)rc.bottom) {}
  // The bounding box of the points, as GetBorderRect.
  RECTD(const POINTD* points, long count) { GetBorderRect(points, count); }
  RECTD(const RECTD& rc) = default;
  RECTD& operator=(const RECTD& rc) = default;

  // Each field rounded half away from zero.
  RECT GRECT() const {
    RECT rc;
    rc.left = tqNudgeRound(left);
    rc.top = tqNudgeRound(top);
    rc.right = tqNudgeRound(right);
    rc.bottom = tqNudgeRound(bottom);
    return rc;
  }
  // Each field truncated after the nudge.
  operator RECT() const {
    RECT rc;
    rc.left = tqNudgeTrunc(left);
    rc.top = tqNudgeTrunc(top);
    rc.right = tqNudgeTrunc(right);
    rc.bottom = tqNudgeTrunc(bottom);
    return rc;
  }

  BOOL operator==(const RECTD& rc) const {
    return left == rc.left && top == rc.top && right == rc.right && bottom == rc.bottom;
  }
  BOOL operator!=(const RECTD& rc) const { return !(*this == rc); }
  BOOL operator==(const RECT& rc) const { return *this == RECTD(rc); }
  BOOL operator!=(const RECT& rc) const { return !(*this == rc); }

  double Width() const { return right - left; }
  double Height() const { return bottom - top; }
  POINTD CenterPoint() const { return POINTD((left + right) / 2, (top + bottom) / 2); }
  POINTD TopLeft() const { return POINTD(left, top); }
  POINTD BottomRight() const { return POINTD(right, bottom); }

  void NormalizeRect();
  // Makes the rectangle a square of the larger side, keeping the top-left
  // corner; a zero side first becomes 1.0.
  void NormalizeBorder();
  void SetRect(double l, double t, double r, double b) { left = l; top = t; right = r; bottom = b; }
  void SetRectEmpty() { left = top = right = bottom = 0.0; }
  BOOL IsRectEmpty() const { return right == left || bottom == top; }
  BOOL IsRectNull() const { return left == 0.0 && top == 0.0 && right == 0.0 && bottom == 0.0; }
  // Component-wise min/max: an empty or all-zero input still counts.
  void UnionRect(const RECTD& a, const RECTD& b);
  void OffsetRect(double dx, double dy) { left += dx; right += dx; top += dy; bottom += dy; }
  // Closed bounding box of the points (no one-pixel extension); empty
  // (all zero) for a null array or count <= 0.
  void GetBorderRect(const POINTD* points, long count);
  // left <= x < right and top <= y < bottom, compared exactly.
  BOOL PtInRect(POINTD p) const { return left <= p.x && p.x < right && top <= p.y && p.y < bottom; }
};

// Double-to-pixel conversion with a caller-given precision: the value is
// moved by precision away from zero, then nudged and truncated. Precision
// 0.5 rounds half away from zero, 0.0 truncates. A moved value that is NaN
// or beyond the 32-bit range gives INT_MIN (0x80000000), as tqNudgeTrunc.
class TQBASE_API CPrecise {
public:
  static int PreciseInt(double value, double precision) {
    return tqNudgeTrunc(value >= 0 ? value + precision : value - precision);
  }
  static void PrecisePoint(double x, double y, int& outX, int& outY, double precision) {
    outX = PreciseInt(x, precision);
    outY = PreciseInt(y, precision);
  }
  static void PrecisePoint(double x, double y, long& outX, long& outY, double precision) {
    outX = PreciseInt(x, precision);
    outY = PreciseInt(y, precision);
  }
  static void PrecisePoint(POINTD point, POINT& out, double precision) {
    out.x = PreciseInt(point.x, precision);
    out.y = PreciseInt(point.y, precision);
  }
};

#endif  // TQBASE_GEOMETRY_H
