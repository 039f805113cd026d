// acycle.cpp - ACycle: its parameters, folding points into the repeat
// tile, cutting runs and rectangles into per-tile pieces, and scaling the
// repeat by packed resolution ratios. The copies that meet a clipping
// rectangle (GCycleSituation) are in acycle_situation.cpp; the tile
// arithmetic both share is in acycle_walk.h.
//
// All coordinate arithmetic runs in 64-bit integers: a fold displaces y by
// k * param with k up to 2^31, and the walks step below the 32-bit range.
// Results that land in the tile always fit 32 bits again. The folds divide
// in integers: for 32-bit operands the floor of the exact quotient equals
// the floor of the double quotient (the rounding error of x / w is below
// 1 / |w|), so the integer path gives the same tile counts.
//
// Relies on geometry.h (POINTD), mfcport.h (CArray), errorinfo.h (g_Error).
#include "acycle_walk.h"

#include "tqbase/errorinfo.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

using namespace tqbase::cycle;

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
  if (ci == nullptr || ci->onOff == 0 || ci->width < 1 || ci->height < 1) return;
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
  // b is folded along its own period bm afterwards, so only k modulo bm
  // matters for its displacement: the count is reduced (exactly, by fmod)
  // before it multiplies disp, which keeps b finite however large a is.
  auto fold = [](double& a, double& b, double m, double disp, double bm) {
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
    if (disp != 0) b -= (std::fabs(k) < bm ? k : std::fmod(k, bm)) * disp;
  };
  double x = p.x, y = p.y, unused = 0;
  if (ci->way == 1) {
    fold(x, y, w, d, h);
    fold(y, unused, h, 0, 0);
  } else if (ci->way == 2) {
    fold(y, x, h, d, w);
    fold(x, unused, w, 0, 0);
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
  if (!TileUsable(*ci)) return 0;
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
  if (!TileUsable(*ci)) return 0;
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
// Moving rectangles into the tile

namespace {
bool FitsLong(i64 v) { return v >= INT32_MIN && v <= INT32_MAX; }

// Moves rc by (dx, dy) unless a side would leave the 32-bit range.
void MoveRect(RECT& rc, i64 dx, i64 dy) {
  const i64 l = rc.left + dx, t = rc.top + dy, r = rc.right + dx, b = rc.bottom + dy;
  if (!FitsLong(l) || !FitsLong(t) || !FitsLong(r) || !FitsLong(b)) return;
  rc.left = (LONG)l;
  rc.top = (LONG)t;
  rc.right = (LONG)r;
  rc.bottom = (LONG)b;
}
}  // namespace

void ACycle::BoundLeftLower(RECT& rc) const {
  if (CYCLEINFO::onOff == 0) return;
  i64 x = rc.left, y = rc.top;
  Fold64(x, y, *CycleInfoPtr());
  MoveRect(rc, x - rc.left, y - rc.top);
}

void ACycle::BoundLeftUpper(RECT& rc) const {
  if (CYCLEINFO::onOff == 0) return;
  i64 x = rc.left, y = rc.bottom;
  Fold64(x, y, *CycleInfoPtr());
  MoveRect(rc, x - rc.left, y - rc.bottom);
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
