// acycle.cpp - ACycle: folding points into the repeat tile, cutting runs
// and rectangles into per-tile pieces, collecting the copies that meet a
// clipping rectangle, and scaling the repeat by packed resolution ratios.
//
// All coordinate arithmetic runs in 64-bit integers: a fold displaces y by
// k * param with k up to 2^31, and the walks step below the 32-bit range.
// Results that land in the tile always fit 32 bits again. The folds divide
// in integers: for 32-bit operands the floor of the exact quotient equals
// the floor of the double quotient (the rounding error of x / w is below
// 1 / |w|), so the integer path gives the same tile counts.
//
// Relies on geometry.h (POINTD), mfcport.h (CArray), errorinfo.h (g_Error).
#include "tqbase/acycle.h"

#include "tqbase/errorinfo.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace {

typedef int64_t i64;

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
inline void Fold64(i64& x, i64& y, const CYCLEINFO& ci) {
  const i64 w = ci.width, h = ci.height, p = ci.param;
  if (ci.onOff == 0 || w == 0 || h == 0) return;
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
bool WalkRun(const APTLENGTH& run, const CYCLEINFO& ci, F&& f) {
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
void WalkRect(const RECT& rc, const CYCLEINFO& ci, i64 nx, i64 ny, F&& f) {
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
bool Enumerate(i64 x0, i64 y0, i64 xlo, i64 xhi, i64 ylo, i64 yhi, const CYCLEINFO& ci, F&& f) {
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

// The tile must hold a pixel for the clip forms when the repeat is on.
inline bool TileUsable(const CYCLEINFO& ci) { return ci.onOff == 0 || (ci.width >= 1 && ci.height >= 1); }

inline bool IsTile(const RECT* rc, const CYCLEINFO& ci) {
  return rc->left == 0 && rc->top == 0 && rc->right == ci.width && rc->bottom == ci.height;
}

inline bool RasterLess(const POINT& a, const POINT& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; }

// Collects the copies of the reference point inside the box into out,
// relative to (ox, oy), in raster order. False (out emptied, g_Error set)
// when there are more than an int counts or memory holds.
bool Collect(i64 x0, i64 y0, i64 xlo, i64 xhi, i64 ylo, i64 yhi, i64 ox, i64 oy, const CYCLEINFO& ci,
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

}  // namespace

// ---------------------------------------------------------------------------
// Setters and readers

void ACycle::SetCycleOnOff(int onOff) { CYCLEINFO::onOff = onOff; }
void ACycle::SetCycleWay(int way) { CYCLEINFO::way = way; }
void ACycle::SetCycleParam(int param) { CYCLEINFO::param = param; }
void ACycle::SetCycleWidth(int width) { CYCLEINFO::width = width; }
void ACycle::SetCycleHeight(int height) { CYCLEINFO::height = height; }

BOOL ACycle::SetCycleParams(const CYCLEPARAMS* params) {
  ASSERT(params != nullptr);
  if (params == nullptr) return FALSE;
  CYCLEINFO::width = params->width;
  CYCLEINFO::height = params->height;
  CYCLEINFO::param = params->param;
  return TRUE;
}

BOOL ACycle::SetCycleParams(int width, int height, int param) {
  CYCLEINFO::width = width;
  CYCLEINFO::height = height;
  CYCLEINFO::param = param;
  return TRUE;
}

BOOL ACycle::SetCycleInfo(const CYCLEINFO* info) {
  ASSERT(info != nullptr);
  if (info == nullptr) return FALSE;
  *static_cast<CYCLEINFO*>(this) = *info;
  return TRUE;
}

void ACycle::GetCycleParams(CYCLEPARAMS* params) const {
  ASSERT(params != nullptr);
  if (params == nullptr) return;
  params->width = CYCLEINFO::width;
  params->height = CYCLEINFO::height;
  params->param = CYCLEINFO::param;
}

void ACycle::GetCycleInfo(CYCLEINFO* info) const {
  ASSERT(info != nullptr);
  if (info != nullptr) *info = *CycleInfoPtr();
}

void ACycle::GetCycleInfoFloat(CYCLEINFO_FLOAT* info) const {
  ASSERT(info != nullptr);
  if (info != nullptr) *info = *static_cast<const CYCLEINFO_FLOAT*>(this);
}

void ACycle::SetCycleInfoFloat(const CYCLEINFO_FLOAT* info) {
  ASSERT(info != nullptr);
  if (info != nullptr) *static_cast<CYCLEINFO_FLOAT*>(this) = *info;
}

BOOL ACycle::GCycleInfoFromFloat(CYCLEINFO* out, const CYCLEINFO_FLOAT* in, double scaleX, double scaleY) {
  if (out == nullptr || in == nullptr) {
    g_Error.SetLastError("GCycleInfoFromFloat: null record");
    return FALSE;
  }
  if (!(std::isfinite(scaleX) && scaleX > 0 && std::isfinite(scaleY) && scaleY > 0)) {
    g_Error.SetLastError("GCycleInfoFromFloat: scale %g x %g is not a positive number", scaleX, scaleY);
    return FALSE;
  }
  const double paramScale = in->way == 2 ? scaleX : scaleY;
  CYCLEINFO r;
  if (!RoundToInt(in->width * scaleX, &r.width) || !RoundToInt(in->height * scaleY, &r.height) ||
      !RoundToInt(in->param * paramScale, &r.param)) {
    g_Error.SetLastError("GCycleInfoFromFloat: repeat %g x %g + %g does not fit in pixels", in->width,
                         in->height, in->param);
    return FALSE;
  }
  r.onOff = in->onOff;
  r.way = in->way;
  *out = r;
  return TRUE;
}

BOOL ACycle::CycleInfoFromFloat(double scaleX, double scaleY) {
  CYCLEINFO r;
  if (!GCycleInfoFromFloat(&r, static_cast<const CYCLEINFO_FLOAT*>(this), scaleX, scaleY)) return FALSE;
  return SetCycleInfo(&r);
}

// ---------------------------------------------------------------------------
// Folding

void ACycle::GCalLocalPoint(POINT& p, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (ci == nullptr) return;
  i64 x = p.x, y = p.y;
  Fold64(x, y, *ci);
  p.x = (LONG)x;
  p.y = (LONG)y;
}

void ACycle::GCalLocalPoint(int* x, int* y, const CYCLEINFO* ci) {
  ASSERT(x != nullptr && y != nullptr && ci != nullptr);
  if (x == nullptr || y == nullptr || ci == nullptr) return;
  i64 fx = *x, fy = *y;
  Fold64(fx, fy, *ci);
  *x = (int)fx;
  *y = (int)fy;
}

POINT ACycle::GCalLocalPoint(int x, int y, const CYCLEINFO* ci) {
  POINT p;
  p.x = x;
  p.y = y;
  GCalLocalPoint(p, ci);
  return p;
}

void ACycle::GCalLocalPointD(POINTD& p, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (ci == nullptr || ci->onOff == 0 || ci->width == 0 || ci->height == 0) return;
  if (!std::isfinite(p.x) || !std::isfinite(p.y)) return;
  const double w = ci->width, h = ci->height, d = ci->param;
  // Folds a along period m, moving b by disp per tile. The tile count is
  // floor(a / m) as for integers. Doubles can break 0 <= a < m in two
  // ways, and both are repaired here so that the invariant always holds:
  //  - the quotient rounds onto the neighbouring integer (a hair below a
  //    tile edge): the count is corrected by one and the displacement
  //    follows;
  //  - the remainder is not representable (a negative hair above -0, whose
  //    corrected value rounds to m; or |a| so large that a - k*m cancels):
  //    the exact remainder fmod gives the place, a hair below 0 counts as
  //    0, and the count is whatever whole number of tiles was removed.
  auto fold = [](double& a, double& b, double m, double disp) {
    if (!(a < 0 || a >= m)) return;
    double k = std::floor(a / m);
    double r = a - k * m;
    if (m > 0) {
      if (r >= m) {
        r -= m;
        k += 1;
      } else if (r < 0) {
        r += m;
        k -= 1;
      }
      if (!(r >= 0 && r < m)) {
        r = std::fmod(a, m);
        if (r < 0) r += m;
        if (r >= m) r = 0;
        k = std::nearbyint((a - r) / m);
      }
    }
    a = r;
    b -= k * disp;
  };
  double x = p.x, y = p.y, unused = 0;
  if (ci->way == 1) {
    fold(x, y, w, d);
    fold(y, unused, h, 0);
  } else if (ci->way == 2) {
    fold(y, x, h, d);
    fold(x, unused, w, 0);
  }
  p.x = x;
  p.y = y;
}

void ACycle::GCalLocalPoints(POINT* points, int count, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (points == nullptr || count < 1 || ci == nullptr) return;
  const CYCLEINFO c = *ci;
  for (int i = 0; i < count; ++i) {
    i64 x = points[i].x, y = points[i].y;
    Fold64(x, y, c);
    points[i].x = (LONG)x;
    points[i].y = (LONG)y;
  }
}

// ---------------------------------------------------------------------------
// Runs and rectangles

BOOL ACycle::InterLineRect(APTLENGTH* out, const APTLENGTH* run, const RECT* rc) {
  ASSERT(out != nullptr && run != nullptr && rc != nullptr);
  if (out == nullptr || run == nullptr || rc == nullptr) return FALSE;
  APTLENGTH r;
  if (!ClipRun64(run->x, run->y, run->length, rc->left, rc->top, rc->right, rc->bottom, &r)) return FALSE;
  *out = r;
  return TRUE;
}

int ACycle::GCalCycleLine(const APTLENGTH& run, APTLENGTH* pieces, int* offsets, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (ci == nullptr) return 0;
  const bool on = ci->onOff != 0;
  if (on && ci->width == 0) return 0;
  if (pieces == nullptr) {
    if (!on) return 1;
    i64 n = TileCount(run.length, ci->width);
    return n > INT_MAX ? 0 : (int)std::max<i64>(0, n);
  }
  if (!on) {
    if (!ClipRun64(run.x, run.y, run.length, 0, 0, ci->width, ci->height, &pieces[0])) return 0;
    if (offsets != nullptr) offsets[0] = pieces[0].x - run.x;
    return 1;
  }
  int count = 0;
  WalkRun(run, *ci, [&](const APTLENGTH& piece, i64 x, i64) {
    pieces[count] = piece;
    if (offsets != nullptr) offsets[count] = (int)(piece.x - x);
    ++count;
  });
  return count;
}

int ACycle::GCalCycleRect(const RECT& rc, RECT* pieces, POINT* offsets, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (ci == nullptr) return 0;
  const bool on = ci->onOff != 0;
  if (on && (ci->width == 0 || ci->height == 0)) return 0;
  i64 nx = 1, ny = 1;
  if (on) {
    if (!RectCounts(rc, *ci, &nx, &ny)) return 0;
  } else if ((i64)rc.right - rc.left > INT_MAX || (i64)rc.bottom - rc.top > INT_MAX) {
    return 0;
  }
  if (pieces == nullptr) return (int)(nx * ny);
  const Rect64 tile = {0, 0, ci->width, ci->height};
  if (!on) {
    Rect64 piece;
    if (!Intersect64(tile, Rect64{rc.left, rc.top, rc.right, rc.bottom}, &piece)) return 0;
    pieces[0] = ToRect(piece);
    if (offsets != nullptr) {
      offsets[0].x = (LONG)(piece.left - rc.left);
      offsets[0].y = (LONG)(piece.top - rc.top);
    }
    return 1;
  }
  int count = 0;
  WalkRect(rc, *ci, nx, ny, [&](const Rect64& piece, const Rect64& cur) {
    pieces[count] = ToRect(piece);
    if (offsets != nullptr) {
      offsets[count].x = (LONG)(piece.left - cur.left);
      offsets[count].y = (LONG)(piece.top - cur.top);
    }
    ++count;
  });
  return count;
}

// ---------------------------------------------------------------------------
// Situations

BOOL ACycle::GCycleSituation(POINT* p, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (p == nullptr || ci == nullptr) return FALSE;
  if (ci->onOff != 0) {
    GCalLocalPoint(*p, ci);
    return TRUE;
  }
  return p->x >= 0 && p->x < ci->width && p->y >= 0 && p->y < ci->height;
}

int ACycle::GCycleSituation(const APTLENGTH* run, POINT* starts, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (run == nullptr || ci == nullptr) return 0;
  const bool on = ci->onOff != 0;
  if (on && ci->width == 0) return 0;
  if (starts == nullptr) return GCalCycleLine(*run, nullptr, nullptr, ci);
  if (!on) {
    APTLENGTH piece;
    if (!ClipRun64(run->x, run->y, run->length, 0, 0, ci->width, ci->height, &piece)) return 0;
    starts[0].x = run->x;
    starts[0].y = run->y;
    return 1;
  }
  int count = 0;
  WalkRun(*run, *ci, [&](const APTLENGTH&, i64 x, i64 y) {
    starts[count].x = (LONG)x;
    starts[count].y = (LONG)y;
    ++count;
  });
  return count;
}

int ACycle::GCycleSituation(const RECT* rc, POINT* corners, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || ci == nullptr) return 0;
  if (ci->width < 1 || ci->height < 1) return 0;
  if (rc->left >= rc->right || rc->top >= rc->bottom) return 0;
  const bool on = ci->onOff != 0;
  i64 nx = 1, ny = 1;
  if (on) {
    if (!RectCounts(*rc, *ci, &nx, &ny)) return 0;
  } else if ((i64)rc->right - rc->left > INT_MAX || (i64)rc->bottom - rc->top > INT_MAX) {
    return 0;
  }
  if (corners == nullptr) return (int)(nx * ny);
  if (!on) {
    Rect64 piece;
    const Rect64 tile = {0, 0, ci->width, ci->height};
    if (!Intersect64(tile, Rect64{rc->left, rc->top, rc->right, rc->bottom}, &piece)) return 0;
    corners[0].x = rc->left;
    corners[0].y = rc->top;
    return 1;
  }
  int count = 0;
  WalkRect(*rc, *ci, nx, ny, [&](const Rect64&, const Rect64& cur) {
    corners[count].x = (LONG)cur.left;
    corners[count].y = (LONG)cur.top;
    ++count;
  });
  return count;
}

namespace {
// Pieces and their offsets always have one length; offsets may be absent.
template <class Piece, class Off>
void SizeBoth(CArray<Piece>* pieces, CArray<Off>* offsets, int n) {
  pieces->SetSize(n);
  if (offsets != nullptr) offsets->SetSize(n);
}

// Failure on allocation: both arrays emptied, the message recorded, 0.
template <class Piece, class Off>
int DropBoth(CArray<Piece>* pieces, CArray<Off>* offsets, const char* message) {
  pieces->RemoveAll();
  if (offsets != nullptr) offsets->RemoveAll();
  g_Error.SetLastError("%s", message);
  return 0;
}

// Fills the arrays from a cutter of the form cut(pieces, offsets) -> count
// that only counts when given null buffers: count, size, cut, trim.
template <class Piece, class Off, class Cut>
int CutIntoArrays(CArray<Piece>* pieces, CArray<Off>* offsets, Cut&& cut) {
  int n = cut(static_cast<Piece*>(nullptr), static_cast<Off*>(nullptr));
  if (n <= 0) {
    SizeBoth(pieces, offsets, 0);
    return 0;
  }
  SizeBoth(pieces, offsets, n);
  n = cut(pieces->GetData(), offsets != nullptr ? offsets->GetData() : nullptr);
  SizeBoth(pieces, offsets, n);
  return n;
}
}  // namespace

int ACycle::GCycleSituation(const APTLENGTH* run, CArray<APTLENGTH>* pieces, CArray<int>* offsets,
                            const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (run == nullptr || pieces == nullptr || ci == nullptr) return 0;
  try {
    if (clip == nullptr || IsTile(clip, *ci)) {
      return CutIntoArrays(pieces, offsets, [&](APTLENGTH* pc, int* off) { return GCalCycleLine(*run, pc, off, ci); });
    }
    CArray<POINT> starts;
    const int n = GCycleSituation(run, starts, clip, ci);
    SizeBoth(pieces, offsets, n);
    if (n == 0) return 0;
    const i64 cw = (i64)clip->right - clip->left, ch = (i64)clip->bottom - clip->top;
    APTLENGTH* out = pieces->GetData();
    int* offs = offsets != nullptr ? offsets->GetData() : nullptr;
    for (int i = 0; i < n; ++i) {
      const POINT& s = starts.GetData()[i];
      // Every collected start meets the clip, so the clip always succeeds.
      ClipRun64(s.x, s.y, run->length, 0, 0, cw, ch, &out[i]);
      if (offs != nullptr) offs[i] = out[i].x - s.x;
    }
    return n;
  } catch (const std::bad_alloc&) {
    return DropBoth(pieces, offsets, "GCycleSituation: out of memory for the run pieces");
  }
}

int ACycle::GCycleSituation(const POINT* p, CArray<POINT>& out, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  out.SetSize(0);
  Rect64 c;
  if (p == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  if (!Collect(p->x, p->y, c.left, c.right - 1, c.top, c.bottom - 1, c.left, c.top, *ci, out.vec(),
               "GCycleSituation"))
    return 0;
  return out.GetSize();
}

int ACycle::GCycleSituation(POINT* p, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  Rect64 c;
  if (p == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  // Counts without collecting; keeps the first copy in raster order.
  i64 count = 0;
  POINT first = {0, 0};
  bool ok = Enumerate(p->x, p->y, c.left, c.right - 1, c.top, c.bottom - 1, *ci, [&](i64 x, i64 y) {
    POINT q;
    q.x = (LONG)(x - c.left);
    q.y = (LONG)(y - c.top);
    if (count == 0 || RasterLess(q, first)) first = q;
    return ++count < INT_MAX;
  });
  if (!ok) return 0;
  if (count > 0) *p = first;
  return (int)count;
}

int ACycle::GCycleSituation(const APTLENGTH* run, CArray<POINT>& starts, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  starts.SetSize(0);
  Rect64 c;
  if (run == nullptr || ci == nullptr || run->length < 1 || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c))
    return 0;
  // A copy starting at sx meets the clip when sx lies in
  // [left - length + 1, right - 1] and its row in [top, bottom - 1].
  if (!Collect(run->x, run->y, c.left - run->length + 1, c.right - 1, c.top, c.bottom - 1, c.left, c.top, *ci,
               starts.vec(), "GCycleSituation"))
    return 0;
  return starts.GetSize();
}

int ACycle::GCycleSituation(const RECT* rc, CArray<POINT>& corners, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  corners.SetSize(0);
  Rect64 c;
  if (rc == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
  if (w < 1 || h < 1 || w > INT_MAX || h > INT_MAX) return 0;
  if (!Collect(rc->left, rc->top, c.left - w + 1, c.right - 1, c.top - h + 1, c.bottom - 1, c.left, c.top, *ci,
               corners.vec(), "GCycleSituation"))
    return 0;
  return corners.GetSize();
}

int ACycle::GCycleSituation(const RECT* rc, CArray<RECT>* pieces, CArray<POINT>* offsets, const RECT* clip,
                            const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || pieces == nullptr || ci == nullptr) return 0;
  try {
    if (clip == nullptr || IsTile(clip, *ci)) {
      return CutIntoArrays(pieces, offsets, [&](RECT* pc, POINT* off) { return GCalCycleRect(*rc, pc, off, ci); });
    }
    CArray<POINT> corners;
    const int n = GCycleSituation(rc, corners, clip, ci);
    SizeBoth(pieces, offsets, n);
    if (n == 0) return 0;
    const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
    const Rect64 local = {0, 0, (i64)clip->right - clip->left, (i64)clip->bottom - clip->top};
    for (int i = 0; i < n; ++i) {
      const POINT& s = corners.GetData()[i];
      Rect64 piece;
      Intersect64(local, Rect64{s.x, s.y, s.x + w, s.y + h}, &piece);
      pieces->GetData()[i] = ToRect(piece);
      if (offsets != nullptr) {
        offsets->GetData()[i].x = (LONG)(piece.left - s.x);
        offsets->GetData()[i].y = (LONG)(piece.top - s.y);
      }
    }
    return n;
  } catch (const std::bad_alloc&) {
    return DropBoth(pieces, offsets, "GCycleSituation: out of memory for the rectangle pieces");
  }
}

BOOL ACycle::GIsIntersectant(const RECT* rc, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || clip == nullptr || ci == nullptr || !TileUsable(*ci)) return FALSE;
  const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
  if (w < 1 || h < 1 || clip->right <= clip->left || clip->bottom <= clip->top) return FALSE;
  bool found = false;
  Enumerate(rc->left, rc->top, (i64)clip->left - w + 1, (i64)clip->right - 1, (i64)clip->top - h + 1,
            (i64)clip->bottom - 1, *ci, [&](i64, i64) {
              found = true;
              return false;
            });
  return found ? TRUE : FALSE;
}

// ---------------------------------------------------------------------------
// Moving rectangles into the tile

void ACycle::BoundLeftLower(RECT& rc) const {
  if (CYCLEINFO::onOff == 0) return;
  i64 x = rc.left, y = rc.top;
  Fold64(x, y, *CycleInfoPtr());
  const i64 w = (i64)rc.right - rc.left, h = (i64)rc.bottom - rc.top;
  rc.left = (LONG)x;
  rc.top = (LONG)y;
  rc.right = (LONG)(x + w);
  rc.bottom = (LONG)(y + h);
}

void ACycle::BoundLeftUpper(RECT& rc) const {
  if (CYCLEINFO::onOff == 0) return;
  i64 x = rc.left, y = rc.bottom;
  Fold64(x, y, *CycleInfoPtr());
  const i64 w = (i64)rc.right - rc.left, h = (i64)rc.bottom - rc.top;
  rc.left = (LONG)x;
  rc.bottom = (LONG)y;
  rc.right = (LONG)(x + w);
  rc.top = (LONG)(y - h);
}

// ---------------------------------------------------------------------------
// Resolution scaling

BOOL ACycle::GScaleCycleParams(CYCLEPARAMS* out, const CYCLEPARAMS* in, DWORD resolution, int negate) {
  ASSERT(out != nullptr && in != nullptr);
  if (out == nullptr || in == nullptr) return FALSE;
  const Ratio r(resolution);
  const CYCLEPARAMS src = *in;  // out may be in
  out->width = r.Apply(src.width);
  out->height = r.Apply(src.height);
  out->param = r.Apply(src.param);
  if (negate) out->param = Negate(out->param);
  return (!r.IsOne() || negate) ? TRUE : FALSE;
}

BOOL ACycle::GScaleCycleParams(CYCLEPARAMS* out, const CYCLEINFO* in, DWORD resX, DWORD resY, int negate) {
  ASSERT(out != nullptr && in != nullptr);
  if (out == nullptr || in == nullptr) return FALSE;
  const Ratio rx(resX), ry(resY);
  const CYCLEINFO src = *in;
  // Under way 2 the displacement is an x distance, else a y distance.
  const Ratio& rp = src.way == 2 ? rx : ry;
  out->width = rx.Apply(src.width);
  out->height = ry.Apply(src.height);
  out->param = rp.Apply(src.param);
  if (negate) out->param = Negate(out->param);
  return (!rx.IsOne() || !ry.IsOne() || negate) ? TRUE : FALSE;
}

BOOL ACycle::TScaleParams(DWORD resolution, CYCLEPARAMS* saved, int negate) {
  CYCLEPARAMS scratch;
  CYCLEPARAMS* s = saved != nullptr ? saved : &scratch;
  GetCycleParams(s);
  return GScaleCycleParams(static_cast<CYCLEINFO*>(this), s, resolution, negate);
}

BOOL ACycle::TScaleParams(DWORD resX, DWORD resY, CYCLEPARAMS* saved, int negate) {
  if (saved != nullptr) GetCycleParams(saved);
  const CYCLEINFO current = *CycleInfoPtr();
  return GScaleCycleParams(static_cast<CYCLEINFO*>(this), &current, resX, resY, negate);
}

void ACycle::TRestoreParams(const CYCLEPARAMS* saved) {
  ASSERT(saved != nullptr);
  if (saved == nullptr) return;
  CYCLEINFO::width = saved->width;
  CYCLEINFO::height = saved->height;
  CYCLEINFO::param = saved->param;
}

BOOL ACycle::ScaleCycleParams(DWORD resX, DWORD resY, CYCLEPARAMS* saved, int negate) {
  if (Ratio(resX).IsOne() && Ratio(resY).IsOne() && negate == 0) {
    if (saved != nullptr) GetCycleParams(saved);
    return TRUE;  // the two-ratio form says TRUE here; the one-ratio form FALSE
  }
  return TScaleParams(resX, resY, saved, negate);
}

BOOL ACycle::ScaleCycleParams(DWORD resolution, CYCLEPARAMS* saved, int negate) {
  if (Ratio(resolution).IsOne() && negate == 0) {
    if (saved != nullptr) GetCycleParams(saved);
    return FALSE;
  }
  return TScaleParams(resolution, saved, negate);
}
