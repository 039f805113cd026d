// crstlines_query.cpp - questions asked of regions without changing them:
// point and rectangle tests, the barycentre, intersection tests and the
// orientation of outlines.
//
// Relies on crstlines_core.h and the piece operations.
#include <algorithm>
#include <cstdint>

#include "crstlines_core.h"
#include "tqbase/acycle.h"

using namespace tqrgn;

BOOL CRstLines::PtInRaster(const RSRLINE* p, const POINT& pt) {
  if (!p) return FALSE;
  const RECT& b = p->rcBox;
  if (pt.y < b.top || pt.y > b.bottom || pt.x < b.left || pt.x > b.right) return FALSE;
  long long k = (long long)pt.y - b.top;
  if (k >= p->arCount.GetSize()) return FALSE;
  const int* cnt = p->arCount.GetData();
  long long off = 0;
  for (long long i = 0; i < k; ++i) off += std::max(cnt[i], 0);
  long long n = std::max(cnt[k], 0);
  if (off + n > p->arRun.GetSize()) return FALSE;
  const RSRUN* r = p->arRun.GetData() + off;
  for (long long i = 0; i < n; ++i)
    if (r[i].x1 <= pt.x && pt.x <= r[i].x2) return TRUE;
  return FALSE;
}

BOOL CRstLines::PtInRasterArray(const CRasterArray* arr, const POINT& ptIn, const ACycle* cycle) {
  if (IsEmpty(arr)) return FALSE;
  POINT pt = ptIn;
  if (cycle && cycle->CycleOnOff()) cycle->CalLocalPoint(pt);
  for (const RSRLINE* p : *arr)
    if (PtInRaster(p, pt)) return TRUE;
  return FALSE;
}

BOOL CRstLines::RectInRaster(const RSRLINE* p, RECT* rc, const ACycle* cycle) {
  (void)cycle;
  if (!p || !rc) return FALSE;
  const RECT& b = p->rcBox;
  if (rc->left < b.left || (long long)rc->right > (long long)b.right + 1 || rc->top < b.top ||
      (long long)rc->bottom > (long long)b.bottom + 1)
    return FALSE;
  const int* cnt = p->arCount.GetData();
  const RSRUN* runs = p->arRun.GetData();
  long long nRows = p->arCount.GetSize();
  long long nRuns = p->arRun.GetSize();
  long long off = 0;
  long long k0 = (long long)rc->top - b.top;
  for (long long i = 0; i < k0 && i < nRows; ++i) off += std::max(cnt[i], 0);
  for (long long y = rc->top; y < rc->bottom; ++y) {
    long long k = y - b.top;
    if (k >= nRows) return FALSE;
    long long n = std::max(cnt[k], 0);
    if (off + n > nRuns) return FALSE;
    bool covered = false;
    for (long long i = 0; i < n; ++i) {
      const RSRUN& r = runs[off + i];
      if (r.x1 <= rc->left && (long long)r.x2 >= (long long)rc->right - 1) {
        covered = true;
        break;
      }
    }
    if (!covered) return FALSE;
    off += n;
  }
  return TRUE;
}

BOOL CRstLines::RectInRasterArray(const CRasterArray* arr, RECT* rc, const ACycle* cycle) {
  if (IsEmpty(arr) || !rc) return FALSE;
  if (cycle && cycle->CycleOnOff()) cycle->BoundLeftLower(*rc);
  for (const RSRLINE* p : *arr)
    if (RectInRaster(p, rc, cycle)) return TRUE;
  return FALSE;
}

// The per-run x term ((x1 + x2) * len) / 2 is 32-bit signed arithmetic:
// the product wraps to 32 bits before the halving. It is formed in 64 bits
// and wrapped explicitly, so that huge coordinates stay defined behaviour.
// Every row counts one row below its place (the first as top + 1): y is
// advanced before it is used, a deliberate bias of the barycentre.
BOOL CRstLines::GetBaryCenter(CRasterArray* arr, POINTD& pt) {
  if (IsEmpty(arr)) return FALSE;
  long long A = 0, Sx = 0, Sy = 0;
  for (const RSRLINE* p : *arr) {
    if (!p || p->arRun.GetSize() == 0) return FALSE;
    const RSRUN* r = p->arRun.GetData();
    const RSRUN* end = r + p->arRun.GetSize();
    long long y = p->rcBox.top;
    for (int c : p->arCount) {
      long long rowPixels = 0;
      for (int i = 0; i < c && r < end; ++i, ++r) {
        long long len = (long long)r->x2 - r->x1 + 1;
        if (len < 1) return FALSE;
        A += len;
        rowPixels += len;
        Sx += (int32_t)(uint32_t)((uint64_t)((long long)r->x1 + r->x2) * (uint64_t)len) / 2;
      }
      ++y;  // advanced before use: the bias above
      Sy += y * rowPixels;
    }
  }
  if (A == 0) return FALSE;
  pt.x = (double)Sx / (double)A;
  pt.y = (double)Sy / (double)A;
  return TRUE;
}

// Boxes meet by the half-open rule and runs by strict comparisons: pieces
// that share only a border pixel, column or row do not intersect. This
// rule of the intersection test is deliberate; use the combinations for
// the exact pixel overlap.
BOOL CRstLines::IsIntersect(const RSRLINE* a, const RSRLINE* b) {
  if (!a || !b) return FALSE;
  if (!IsValid(a) || !IsValid(b)) {
    ASSERT(IsValid(a) && IsValid(b));
    return FALSE;
  }
  RECT rc;
  if (!IntersectRect(&rc, &a->rcBox, &b->rcBox)) return FALSE;
  const int* ca = a->arCount.GetData();
  const int* cb = b->arCount.GetData();
  long long offA = 0, offB = 0;
  long long ka0 = (long long)rc.top - a->rcBox.top, kb0 = (long long)rc.top - b->rcBox.top;
  for (long long k = 0; k < ka0; ++k) offA += ca[k];
  for (long long k = 0; k < kb0; ++k) offB += cb[k];
  const RSRUN* runsA = a->arRun.GetData();
  const RSRUN* runsB = b->arRun.GetData();
  for (long long y = rc.top; y < rc.bottom; ++y) {
    long long ka = y - a->rcBox.top, kb = y - b->rcBox.top;
    int na = ca[ka], nb = cb[kb];
    const RSRUN* ra = runsA + offA;
    const RSRUN* rb = runsB + offB;
    offA += na;
    offB += nb;
    if (na == 0 || nb == 0) continue;
    if (ra[0].x1 > rc.right || ra[na - 1].x2 < rc.left) continue;
    if (rb[0].x1 > rc.right || rb[nb - 1].x2 < rc.left) continue;
    int j = 0;
    for (int i = 0; i < na; ++i) {
      while (j < nb && rb[j].x2 <= ra[i].x1) ++j;
      if (j < nb && ra[i].x2 > rb[j].x1) return TRUE;
    }
  }
  return FALSE;
}

BOOL CRstLines::IsIntersect(const CRasterArray* a, const CRasterArray* b) {
  if (!a || !b) return FALSE;
  for (const RSRLINE* pa : *a)
    for (const RSRLINE* pb : *b)
      if (pa && pb && IsIntersect(pa, pb)) return TRUE;
  return FALSE;
}

BOOL CRstLines::InSide(const CRasterArray* a, const CRasterArray* b) {
  (void)a;
  (void)b;
  ASSERT(!"CRstLines::InSide is not implemented");
  return TRUE;
}

namespace {
#ifdef __SIZEOF_INT128__
typedef __int128 Wide;
#else
typedef long double Wide;
#endif
int Sign(Wide v) { return v > 0 ? 1 : (v < 0 ? -1 : 0); }
}  // namespace

int CRstLines::JudgeDirection(const POINT* pts, int n) {
  if (!pts || n < 3) return 0;
  Wide sum = 0;
  for (int i = 0; i < n; ++i) {
    const POINT& p = pts[i];
    const POINT& q = pts[(i + 1) % n];
    sum += (Wide)((long long)p.x * q.y - (long long)q.x * p.y);
  }
  return Sign(sum);
}

int CRstLines::JudgeDirectionFromX(const POINT* pts, int n) {
  if (!pts || n < 3) return 0;
  int m = 0;
  for (int i = 1; i < n; ++i)
    if (pts[i].x < pts[m].x || (pts[i].x == pts[m].x && pts[i].y < pts[m].y)) m = i;
  // The neighbours along the outline that differ from the extreme vertex.
  int prev = m, next = m;
  for (int k = 1; k < n; ++k) {
    int i = (m - k + n) % n;
    if (pts[i].x != pts[m].x || pts[i].y != pts[m].y) {
      prev = i;
      break;
    }
  }
  for (int k = 1; k < n; ++k) {
    int i = (m + k) % n;
    if (pts[i].x != pts[m].x || pts[i].y != pts[m].y) {
      next = i;
      break;
    }
  }
  if (prev == m || next == m) return 0;
  long long ax = (long long)pts[m].x - pts[prev].x, ay = (long long)pts[m].y - pts[prev].y;
  long long bx = (long long)pts[next].x - pts[m].x, by = (long long)pts[next].y - pts[m].y;
  return Sign((Wide)ax * by - (Wide)ay * bx);
}
