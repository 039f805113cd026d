// crstlines_scan.cpp - scan conversion: polygons, polygon sets and contour
// loop groups into region pieces.
//
// Every row between the least and greatest vertex y receives boundary
// items, bucketed by a counting sort:
//  - one point per edge crossing the row strictly between its ends, at
//    x = x0 + (y - y0) * (x0 - x1) / (y0 - y1) in double, truncated toward
//    zero; it is a crossing in the edge's y direction;
//  - one item per horizontal stretch, a maximal run of consecutive outline
//    vertices on the row (a single vertex is a stretch of one); it covers
//    the least to the greatest x of its vertices. It is a crossing when the
//    outline arrives from one side of the row and leaves to the other, and
//    a turning point (no crossing) when it returns to the side it came from.
// A row's items are ordered by x (adjacent swaps below 200 items, the C
// library's qsort from 200 on), then swept: every item's own pixels are
// inside (so the outline belongs to the region), and between items the
// region is inside where the crossing count so far is odd (alternate fill)
// or non-zero (winding fill, which also fills self-overlaps). The order of
// items with equal x does not change the result, so the two sorts agree.
//
// Relies on crstlines_internal.h (scratch blocks, band builder).
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>

#include "crstlines_internal.h"
#include "tqbase/memorymanage.h"

using namespace tqrgn;

namespace {

struct Item {
  int l;    // least x of the item
  int r;    // greatest x
  int dir;  // +1 crossing downwards, -1 upwards, 0 turning point
};

struct Poly {
  const POINT* p;
  int n;  // after trailing repeats are dropped
};

// Repeated points at the end of the outline are dropped.
int TrimmedCount(const POINT* p, int n) {
  while (n > 1 && p[n - 1].x == p[n - 2].x && p[n - 1].y == p[n - 2].y) --n;
  return n;
}

// Calls fn(y, item) for every horizontal stretch of the outline.
template <class Fn>
void ForEachStretch(const Poly& poly, Fn fn) {
  const POINT* p = poly.p;
  const int n = poly.n;
  int s = -1;
  for (int i = 0; i < n; ++i)
    if (p[i].y != p[(i + n - 1) % n].y) {
      s = i;
      break;
    }
  if (s < 0) {
    // The whole outline lies on one row: its extent, no crossing.
    int l = p[0].x, r = p[0].x;
    for (int i = 1; i < n; ++i) {
      l = std::min(l, (int)p[i].x);
      r = std::max(r, (int)p[i].x);
    }
    fn(p[0].y, Item{l, r, 0});
    return;
  }
  int k = 0;
  while (k < n) {
    int first = (s + k) % n;
    int y = p[first].y;
    int l = p[first].x, r = p[first].x;
    int len = 1;
    while (k + len < n && p[(s + k + len) % n].y == y) {
      int x = p[(s + k + len) % n].x;
      l = std::min(l, x);
      r = std::max(r, x);
      ++len;
    }
    int prevY = p[(first + n - 1) % n].y;
    int nextY = p[(s + k + len) % n].y;
    int dir = 0;
    if (prevY < y && nextY > y) dir = 1;
    else if (prevY > y && nextY < y) dir = -1;
    fn(y, Item{l, r, dir});
    k += len;
  }
}

inline int TruncToInt(double v) {
  if (!(v > -2147483649.0)) return INT32_MIN;
  if (!(v < 2147483648.0)) return INT32_MAX;
  return (int)v;  // truncation toward zero
}

int CompareItems(const void* a, const void* b) {
  int la = static_cast<const Item*>(a)->l, lb = static_cast<const Item*>(b)->l;
  return (la > lb) - (la < lb);
}

// Orders a row's items by x.
void SortRow(Item* it, long long n) {
  if (n >= 200) {
    std::qsort(it, (size_t)n, sizeof(Item), CompareItems);
    return;
  }
  // Adjacent swaps, each item sinking to its place.
  for (long long i = 1; i < n; ++i) {
    Item v = it[i];
    long long j = i;
    while (j > 0 && it[j - 1].l > v.l) {
      it[j] = it[j - 1];
      --j;
    }
    it[j] = v;
  }
}

// Scan-converts a set of outlines filled together into bands of out.
// Returns false on a limit or allocation failure (out may hold pieces).
bool ScanPolys(const Poly* polys, int nPolys, int mode, CRasterArray* out) {
  long long miny = 0, maxy = 0;
  bool any = false;
  long long total = 0;
  for (int k = 0; k < nPolys; ++k) {
    const Poly& pl = polys[k];
    for (int i = 0; i < pl.n; ++i) {
      long long y = pl.p[i].y;
      if (!any || y < miny) miny = y;
      if (!any || y > maxy) maxy = y;
      any = true;
    }
    total += pl.n;  // at most one stretch per vertex
    for (int i = 0; i < pl.n; ++i) {
      long long dy = std::llabs((long long)pl.p[(i + 1) % pl.n].y - pl.p[i].y);
      if (dy > 1) total += dy - 1;
      if (total > kMaxItems) return !Fail("CRstLines::CreateRaster: the polygon is too large");
    }
  }
  if (!any) return true;
  const long long rows = maxy - miny + 1;
  if (rows > kMaxRows || total > kMaxItems)
    return !Fail("CRstLines::CreateRaster: the polygon is too large");

  Scratch block;
  size_t bytes = (size_t)(rows + 2) * sizeof(uint32_t) + (size_t)total * sizeof(Item);
  void* mem = block.Get(bytes);
  if (!mem) return !Fail("CRstLines::CreateRaster: out of memory");
  Item* items = static_cast<Item*>(mem);
  uint32_t* S = reinterpret_cast<uint32_t*>(items + total);
  std::memset(S, 0, (size_t)(rows + 2) * sizeof(uint32_t));

  // Count: interpolated points through a difference array, then stretches.
  for (int k = 0; k < nPolys; ++k) {
    const Poly& pl = polys[k];
    for (int i = 0; i < pl.n; ++i) {
      long long y0 = pl.p[i].y, y1 = pl.p[(i + 1) % pl.n].y;
      long long lo = std::min(y0, y1) + 1, hi = std::max(y0, y1);
      if (hi - lo < 1) continue;
      S[lo - miny] += 1;
      S[hi - miny] -= 1;
    }
  }
  uint32_t run = 0;
  for (long long r = 0; r < rows; ++r) {
    run += S[r];
    S[r] = run;
  }
  S[rows] = 0;
  for (int k = 0; k < nPolys; ++k)
    ForEachStretch(polys[k], [&](long long y, const Item&) { S[y - miny] += 1; });
  // Exclusive prefix: S[r] becomes the first slot of row r.
  uint32_t acc = 0;
  for (long long r = 0; r <= rows; ++r) {
    uint32_t c = S[r];
    S[r] = acc;
    acc += c;
  }

  // Fill in outline order; afterwards S[r] is the end of row r.
  for (int k = 0; k < nPolys; ++k) {
    const Poly& pl = polys[k];
    for (int i = 0; i < pl.n; ++i) {
      const POINT& a = pl.p[i];
      const POINT& b = pl.p[(i + 1) % pl.n];
      if (a.y == b.y) continue;
      const long long y0 = a.y, y1 = b.y;
      const int dir = y1 > y0 ? 1 : -1;
      const double slope = (double)((long long)a.x - b.x) / (double)(y0 - y1);
      const double x0 = a.x;
      for (long long y = y0 + dir; y != y1; y += dir) {
        int x = TruncToInt(x0 + (double)(y - y0) * slope);
        items[S[y - miny]++] = Item{x, x, dir};
      }
    }
    ForEachStretch(pl, [&](long long y, const Item& it) { items[S[y - miny]++] = it; });
  }

  BandBuilder bb;
  if (!bb.Init(out, std::max<long long>(total, 1), rows)) return !Fail("CRstLines::CreateRaster: out of memory");
  const bool winding = mode == WINDING_FILL;
  for (long long r = 0; r < rows; ++r) {
    uint32_t b = r == 0 ? 0 : S[r - 1];
    uint32_t e = S[r];
    Item* it = items + b;
    long long n = (long long)e - b;
    bb.BeginRow(miny + r);
    if (n > 0) {
      SortRow(it, n);
      int count = 0;
      bool have = false;
      long long cl = 0, cr = 0;
      for (long long i = 0; i < n; ++i) {
        const Item& t = it[i];
        if (count == 0) {
          if (have && t.l <= cr + 1) {
            if (t.r > cr) cr = t.r;
          } else {
            if (have) bb.Emit(cl, cr);
            cl = t.l;
            cr = t.r;
            have = true;
          }
        } else if (t.r > cr) {
          cr = t.r;
        }
        if (t.dir) count = winding ? count + t.dir : (count ^ 1);
      }
      if (have) bb.Emit(cl, cr);
    }
    bb.EndRow();
  }
  bb.Finish();
  return true;
}

bool CheckedPolys(const POINT* pts, const int* counts, int nPolys, std::vector<Poly>& polys) {
  if (!pts || !counts || nPolys < 1) return false;
  long long off = 0;
  polys.reserve((size_t)nPolys);
  for (int k = 0; k < nPolys; ++k) {
    if (counts[k] < 1) return false;
    polys.push_back(Poly{pts + off, TrimmedCount(pts + off, counts[k])});
    off += counts[k];
  }
  return true;
}

}  // namespace

RSRLINE* CRstLines::CreateRaster(const POINT* pts, int n, int mode) {
  if ((mode != ALTERNATE_FILL && mode != WINDING_FILL) || !pts || n < 1) return nullptr;
  Poly poly{pts, TrimmedCount(pts, n)};
  CRasterArray tmp;
  RSRLINE* result = nullptr;
  try {
    if (ScanPolys(&poly, 1, mode, &tmp) && tmp.GetSize() == 1) {
      result = tmp[0];
      tmp.vec().clear();
    }
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::CreateRaster: out of memory");
  }
  Release(&tmp);
  RGN_CHECK_PIECE(result);
  return result;
}

CRasterArray* CRstLines::CreateRasterArray(const POINT* pts, int n, int mode) {
  if (mode != ALTERNATE_FILL && mode != WINDING_FILL) return nullptr;
  RSRLINE* p = CreateRaster(pts, n, mode);
  if (!p) return nullptr;
  CRasterArray* arr = nullptr;
  try {
    arr = new CRasterArray;
    arr->Add(p);
  } catch (const std::bad_alloc&) {
    delete p;
    delete arr;
    Fail("CRstLines::CreateRasterArray: out of memory");
    return nullptr;
  }
  return arr;
}

CRasterArray* CRstLines::CreateRasterArray(const POINT* pts, const int* counts, int nPolys, int mode,
                                           int nJoin) {
  if (mode != ALTERNATE_FILL && mode != WINDING_FILL) return nullptr;
  CRasterArray* arr = nullptr;
  CRasterArray parts;
  try {
    std::vector<Poly> polys;
    if (!CheckedPolys(pts, counts, nPolys, polys)) return nullptr;
    arr = new CRasterArray;
    bool ok;
    if (nJoin || nPolys == 1) {
      ok = ScanPolys(polys.data(), nPolys, mode, arr);
    } else {
      // Each polygon on its own, then the union of their pixels.
      ok = true;
      for (const Poly& pl : polys)
        if (!(ok = ScanPolys(&pl, 1, mode, &parts))) break;
      if (ok) {
        RowSource src;
        if (src.Init(&parts)) {
          BandBuilder bb;
          if (!bb.Init(arr, src.TotalRuns(), src.Bottom() - src.Top() + 1)) {
            ok = !Fail("CRstLines::CreateRasterArray: out of memory");
          } else {
            for (long long y = src.Top(); y <= src.Bottom(); ++y) {
              const RSRUN* r;
              int c;
              src.Row(y, r, c);
              bb.BeginRow(y);
              for (int i = 0; i < c; ++i) bb.Emit(r[i].x1, r[i].x2);
              bb.EndRow();
            }
            bb.Finish();
          }
        }
      }
    }
    Release(&parts);
    if (!ok) Delete(arr);
  } catch (const std::bad_alloc&) {
    Release(&parts);
    Delete(arr);
    Fail("CRstLines::CreateRasterArray: out of memory");
    return nullptr;
  }
  RGN_CHECK_ARRAY(arr);
  return arr;
}

// The loops of all ANLOOP records filled together: outer loops and the
// loops of holes traced from a region give that region back.
CRasterArray* CRstLines::CreateRasterArray(const ANLOOPGRP* group, int mode) {
  if (mode != ALTERNATE_FILL && mode != WINDING_FILL) return nullptr;
  if (!group || group->nCount < 1 || !group->hLoops) return nullptr;
  const ANLOOP* loops = static_cast<const ANLOOP*>(AGlobalLock(group->hLoops));
  if (!loops) return nullptr;
  CRasterArray* arr = nullptr;
  try {
    size_t bytes = 0;
    if (tqbase::CheckedBytes(group->nCount, sizeof(ANLOOP), &bytes) && GlobalSize(group->hLoops) >= bytes) {
      std::vector<POINT> pts;
      std::vector<int> sizes;
      bool ok = true;
      for (int i = 0; i < group->nCount && ok; ++i) {
        const ANLOOP& L = loops[i];
        if (L.nLoops < 1 || L.nPoints < 1) continue;
        if (!L.pnLoopSizes || !L.pPoints) {
          ok = false;
          break;
        }
        long long sum = 0;
        for (int k = 0; k < L.nLoops; ++k) {
          if (L.pnLoopSizes[k] < 1) ok = false;
          sum += L.pnLoopSizes[k];
        }
        if (!ok || sum != L.nPoints) {
          ok = false;
          break;
        }
        pts.insert(pts.end(), L.pPoints, L.pPoints + L.nPoints);
        sizes.insert(sizes.end(), L.pnLoopSizes, L.pnLoopSizes + L.nLoops);
      }
      if (ok && !sizes.empty() && sizes.size() <= (size_t)INT32_MAX)
        arr = CreateRasterArray(pts.data(), sizes.data(), (int)sizes.size(), ALTERNATE_FILL, 1);
    }
  } catch (const std::bad_alloc&) {
    Delete(arr);
    Fail("CRstLines::CreateRasterArray: out of memory");
  }
  AGlobalUnlock(group->hLoops);
  return arr;
}
