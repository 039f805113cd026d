// acycle_walk.h - the 64-bit tile arithmetic behind ACycle, private to
// its sources: floor divisions, the fold, run and rectangle walks over the
// tiles, and the enumeration of the copies that meet a rectangle.
#ifndef TQBASE_ACYCLE_WALK_H
#define TQBASE_ACYCLE_WALK_H

#include "tqbase/acycle.h"
#include "tqbase/errorinfo.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace tqbase {
namespace cycle {

typedef int64_t i64;

// The tile must hold a pixel for the folds, walks and clip forms when the
// repeat is on.
inline bool TileUsable(const CYCLEINFO& ci) { return ci.onOff == 0 || (ci.width >= 1 && ci.height >= 1); }

// floor(a / b) for b != 0, |a| well inside the 64-bit range.
inline i64 FloorDiv(i64 a, i64 b) {
  i64 q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

// ceil(a / b) for b > 0.
inline i64 CeilDivPos(i64 a, i64 b) { return -FloorDiv(-a, b); }

// a mod b in [0, b) for b > 0.
inline i64 FloorModPos(i64 a, i64 b) {
  i64 r = a % b;
  return r < 0 ? r + b : r;
}

// floor(a / b) for b > 0, without data-dependent branches: the remainder's
// sign corrects the truncated quotient. Operands that fit 32 bits (nearly
// all) take the 32-bit divide, which is markedly cheaper than the 64-bit
// one (BM_FoldInteger vs BM_FoldDivide64 in bench_acycle).
inline i64 FloorDivPos(i64 a, i64 b) {
  if (a >= INT32_MIN && a <= INT32_MAX && b <= INT32_MAX) {
    int32_t q = (int32_t)a / (int32_t)b, r = (int32_t)a % (int32_t)b;
    return (i64)q - (r < 0);
  }
  i64 q = a / b, r = a % b;
  return q - (r < 0);
}

inline i64 FloorDivAny(i64 a, i64 b) { return b > 0 ? FloorDivPos(a, b) : FloorDiv(a, b); }

// Folds (x, y) into the tile as GCalLocalPoint does, in 64 bits. A
// coordinate already inside the tile gets a tile count of 0, so the range
// tests of the rule need no branch of their own: random coordinates would
// mispredict them (BM_FoldInteger vs BM_FoldDoubleFloor in bench_acycle).
// A tile smaller than one pixel has no cell to fold into.
inline void Fold64(i64& x, i64& y, const CYCLEINFO& ci) {
  const i64 w = ci.width, h = ci.height, p = ci.param;
  if (ci.onOff == 0 || w < 1 || h < 1) return;
  if (ci.way == 1) {
    i64 k = FloorDivAny(x, w);
    x -= k * w;
    y -= k * p;
    y -= FloorDivAny(y, h) * h;
  } else if (ci.way == 2) {
    i64 k = FloorDivAny(y, h);
    y -= k * h;
    x -= k * p;
    x -= FloorDivAny(x, w) * w;
  }
}

// The tile count n(L, P) = L / P + (L % P < 2 ? 1 : 2); P != 0.
inline i64 TileCount(i64 length, i64 period) { return length / period + ((length % period) < 2 ? 1 : 2); }

// A 64-bit half-open rectangle for the walks.
struct Rect64 {
  i64 left, top, right, bottom;
};

inline bool Intersect64(const Rect64& a, const Rect64& b, Rect64* out) {
  out->left = std::max(a.left, b.left);
  out->top = std::max(a.top, b.top);
  out->right = std::min(a.right, b.right);
  out->bottom = std::min(a.bottom, b.bottom);
  return out->left < out->right && out->top < out->bottom;
}

inline RECT ToRect(const Rect64& r) {
  RECT rc;
  rc.left = (LONG)r.left;
  rc.top = (LONG)r.top;
  rc.right = (LONG)r.right;
  rc.bottom = (LONG)r.bottom;
  return rc;
}

// InterLineRect on 64-bit coordinates: the run x .. x + length - 1 of row y
// clipped to rc. The result, when there is one, lies in rc.
inline bool ClipRun64(i64 x, i64 y, i64 length, i64 left, i64 top, i64 right, i64 bottom, APTLENGTH* out) {
  if (length < 1 || right <= left || bottom <= top) return false;
  if (y >= bottom || y < top || x >= right || x + length <= left) return false;
  i64 ox = std::max(x, left);
  out->x = (int)ox;
  out->y = (int)y;
  out->length = (int)(std::min(x + length, right) - ox);
  return true;
}

// Walks the run's tiles exactly as the cutting rules say: fold the start,
// then n(length, width) steps of one tile width, under way 1 displacing y
// by param and wrapping it back by one tile height. For every step whose
// run meets T, calls f(piece, startX, startY). Returns false when the tile
// count does not fit an int. Precondition: the repeat is on, width != 0.
template <class F>
inline bool WalkRun(const APTLENGTH& run, const CYCLEINFO& ci, F&& f) {
  const i64 w = ci.width, h = ci.height, p = ci.param, len = run.length;
  i64 n = TileCount(len, w);
  if (n > INT_MAX) return false;
  i64 x = run.x, y = run.y;
  Fold64(x, y, ci);
  const bool way1 = ci.way == 1;
  APTLENGTH piece;
  for (i64 i = 0; i < n; ++i) {
    if (ClipRun64(x, y, len, 0, 0, w, h, &piece)) f(piece, x, y);
    x -= w;
    if (way1) {
      y -= p;
      if (y < 0) y += h;
      else if (y >= h) y -= h;
    }
  }
  return true;
}

// Tile counts of a rectangle walk, or false when the rectangle or the
// product leaves the int range. Negative counts (negative tile sizes) walk
// nothing.
inline bool RectCounts(const RECT& rc, const CYCLEINFO& ci, i64* nx, i64* ny) {
  i64 w = (i64)rc.right - rc.left, h = (i64)rc.bottom - rc.top;
  if (w > INT_MAX || h > INT_MAX) return false;
  *nx = std::max<i64>(0, TileCount(w, ci.width));
  *ny = std::max<i64>(0, TileCount(h, ci.height));
  return *nx == 0 || *ny <= INT_MAX / *nx;
}

// Walks the rectangle's tile positions exactly as the cutting rules say and
// calls f(piece, cur) for every position whose rectangle meets T.
// Precondition: the repeat is on, width and height != 0, counts from
// RectCounts.
template <class F>
inline void WalkRect(const RECT& rc, const CYCLEINFO& ci, i64 nx, i64 ny, F&& f) {
  // No positions at all: the outer loop alone could step 2^31 times.
  if (nx == 0 || ny == 0) return;
  const i64 w = ci.width, h = ci.height, p = ci.param;
  i64 x = rc.left, y = rc.top;
  Fold64(x, y, ci);
  const i64 rw = (i64)rc.right - rc.left, rh = (i64)rc.bottom - rc.top;
  const Rect64 tile = {0, 0, w, h};
  Rect64 start = {x, y, x + rw, y + rh};
  Rect64 cur = start, piece;
  auto shift = [](Rect64& r, i64 dx, i64 dy) {
    r.left += dx;
    r.right += dx;
    r.top += dy;
    r.bottom += dy;
  };
  if (ci.way != 1) {
    // Rows first: along x by whole tiles, then the next row of tiles sits
    // param further in x and wraps back by one tile width.
    for (i64 iy = 0; iy < ny; ++iy) {
      for (i64 ix = 0; ix < nx; ++ix) {
        if (Intersect64(tile, cur, &piece)) f(piece, cur);
        shift(cur, -w, 0);
      }
      shift(start, -p, -h);
      if (start.left < 0) shift(start, w, 0);
      else if (start.left >= w) shift(start, -w, 0);
      cur = start;
    }
  } else {
    // Columns first: along y by whole tiles, then the next column sits
    // param further in y and wraps back by one tile height.
    for (i64 ix = 0; ix < nx; ++ix) {
      for (i64 iy = 0; iy < ny; ++iy) {
        if (Intersect64(tile, cur, &piece)) f(piece, cur);
        shift(cur, 0, -h);
      }
      shift(start, -w, -p);
      if (start.top < 0) shift(start, 0, h);
      else if (start.top >= h) shift(start, 0, -h);
      cur = start;
    }
  }
}

// Enumerates the copies of a reference point (x0, y0) whose position lies
// in [xlo, xhi] x [ylo, yhi]. With the repeat off the one copy is the point
// itself. With it on (width, height >= 1) the copies are the lattice
// spanned by (width, param) and (0, height) under way 1, by (param, height)
// and (width, 0) under any other way. f(x, y) returns false to stop;
// Enumerate returns false when stopped.
template <class F>
inline bool Enumerate(i64 x0, i64 y0, i64 xlo, i64 xhi, i64 ylo, i64 yhi, const CYCLEINFO& ci, F&& f) {
  if (xlo > xhi || ylo > yhi) return true;
  if (ci.onOff == 0) {
    if (x0 >= xlo && x0 <= xhi && y0 >= ylo && y0 <= yhi) return f(x0, y0);
    return true;
  }
  // The primary axis carries the tile step that displaces the other
  // (secondary) axis by param.
  const bool way1 = ci.way == 1;
  const i64 pStep = way1 ? ci.width : ci.height;
  const i64 sStep = way1 ? ci.height : ci.width;
  const i64 p0 = way1 ? x0 : y0, s0 = way1 ? y0 : x0;
  const i64 plo = way1 ? xlo : ylo, phi = way1 ? xhi : yhi;
  const i64 slo = way1 ? ylo : xlo, shi = way1 ? yhi : xhi;
  // The lattice is unchanged by reducing the displacement modulo sStep; the
  // secondary coordinate of column i is then tracked modulo sStep, which
  // keeps every product small.
  const i64 disp = FloorModPos(ci.param, sStep);
  const i64 iLo = CeilDivPos(plo - p0, pStep), iHi = FloorDiv(phi - p0, pStep);
  if (iLo > iHi) return true;
  i64 r = FloorModPos(FloorModPos(s0, sStep) + FloorModPos(iLo, sStep) * disp, sStep);
  for (i64 i = iLo; i <= iHi; ++i) {
    const i64 pc = p0 + i * pStep;
    const i64 jLo = CeilDivPos(slo - r, sStep), jHi = FloorDiv(shi - r, sStep);
    for (i64 j = jLo; j <= jHi; ++j) {
      const i64 sc = r + j * sStep;
      if (!(way1 ? f(pc, sc) : f(sc, pc))) return false;
    }
    r += disp;
    if (r >= sStep) r -= sStep;
  }
  return true;
}

// The clipping rectangle of the clip forms: a null clip stands for T. False
// for an empty clip or one too large for relative coordinates.
inline bool ClipOrTile(const RECT* clip, const CYCLEINFO& ci, Rect64* out) {
  if (clip == nullptr) {
    *out = Rect64{0, 0, ci.width, ci.height};
  } else {
    *out = Rect64{clip->left, clip->top, clip->right, clip->bottom};
  }
  if (out->right <= out->left || out->bottom <= out->top) return false;
  return out->right - out->left <= INT_MAX && out->bottom - out->top <= INT_MAX;
}

inline bool IsTile(const RECT* rc, const CYCLEINFO& ci) {
  return rc->left == 0 && rc->top == 0 && rc->right == ci.width && rc->bottom == ci.height;
}

inline bool RasterLess(const POINT& a, const POINT& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; }

// Collects the copies of the reference point inside the box into out,
// relative to (ox, oy), in raster order. False (out emptied, g_Error set)
// when there are more than an int counts or memory holds.
inline bool Collect(i64 x0, i64 y0, i64 xlo, i64 xhi, i64 ylo, i64 yhi, i64 ox, i64 oy, const CYCLEINFO& ci,
             std::vector<POINT>& out, const char* what) {
  out.clear();
  try {
    bool ok = Enumerate(x0, y0, xlo, xhi, ylo, yhi, ci, [&](i64 x, i64 y) {
      if (out.size() >= (size_t)INT_MAX) return false;
      POINT pt;
      pt.x = (LONG)(x - ox);
      pt.y = (LONG)(y - oy);
      out.push_back(pt);
      return true;
    });
    if (!ok) {
      out.clear();
      out.shrink_to_fit();
      g_Error.SetLastError("%s: too many repeat copies in the clipping rectangle", what);
      return false;
    }
    std::sort(out.begin(), out.end(), RasterLess);
    return true;
  } catch (const std::bad_alloc&) {
    out.clear();
    out.shrink_to_fit();
    g_Error.SetLastError("%s: out of memory", what);
    return false;
  }
}

// One packed ratio: numerator in the high word, denominator in the low
// word; a zero denominator counts as 1.
struct Ratio {
  i64 num, den;
  explicit Ratio(DWORD packed) : num(HIWORD(packed)), den(LOWORD(packed) ? LOWORD(packed) : 1) {}
  bool IsOne() const { return num == den; }
  // v * num / den, truncated toward zero, kept in the int range.
  int Apply(int v) const {
    if (IsOne()) return v;
    i64 r = (i64)v * num / den;
    return (int)std::min<i64>(INT_MAX, std::max<i64>(INT_MIN, r));
  }
};

inline int Negate(int v) { return v == INT_MIN ? INT_MAX : -v; }

// Rounds half away from zero with the nudge; false outside the int range.
inline bool RoundToInt(double v, int* out) {
  if (!std::isfinite(v)) return false;
  double u = v >= 0 ? v + 0.5 : v - 0.5;
  double w = u >= 0 ? u + TQ_GEOM_EPS : u - TQ_GEOM_EPS;
  if (!(w > -2147483649.0 && w < 2147483648.0)) return false;
  *out = (int)w;
  return true;
}

}  // namespace cycle
}  // namespace tqbase

#endif  // TQBASE_ACYCLE_WALK_H
