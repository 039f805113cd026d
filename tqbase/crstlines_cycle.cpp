// crstlines_cycle.cpp - regions on a repeating design: folding a region
// into the base cell, repeating it over a rectangle, and the cycle-aware
// preparation of the booleans.
//
// A region R on a repeat stands for its copies at every lattice position
// (ACycle's tiling). Folding R gives the base-cell copy of that pattern:
// every run is cut into its per-tile pieces with the tile walk of
// ACycle::GCalCycleLine (fold the start, then one tile step at a time,
// the displaced coordinate wrapped back by one tile only), and the pieces
// are united per row. Two shortcuts keep huge runs cheap without changing
// the result: once a walk step leaves the tile in y, no later step comes
// back; and the steps between the first pieces and the last two are full
// tile rows whose rows repeat with a period of at most the tile height, so
// only one period of them is walked.
//
// A cycle that is switched on but whose tile is less than one pixel wide or
// high is treated as switched off (it has no cell to fold into).
#include <algorithm>
#include <new>

#include "crstlines_internal.h"
#include "tqbase/acycle.h"

using namespace tqrgn;

namespace tqrgn {

bool CycleUsable(const ACycle* cycle) {
  return cycle && cycle->CycleOnOff() && cycle->CycleWidth() >= 1 && cycle->CycleHeight() >= 1;
}

// Calls fn(y, x1, x2, start) for every tile piece of the run (x, y, len),
// in tile coordinates, in walk order; start is the cell x at which the
// run's first pixel lies in that step (cell x = start + index in the run).
// compress: skip the repeating middle steps.
template <class Fn>
void WalkRun(int x, int y, long long len, const CYCLEINFO* ci, bool compress, Fn fn) {
  const long long W = ci->width, H = ci->height;
  POINT p0 = ACycle::GCalLocalPoint(x, y, ci);
  const long long n = len / W + (len % W < 2 ? 1 : 2);
  auto piece = [&](long long px, long long py) {
    if (px >= W || px + len <= 0) return;
    fn(py, std::max(px, 0LL), std::min(px + len, W) - 1, px);
  };
  long long px = p0.x, py = p0.y;
  const long long limit = compress ? std::min(n, H + 3) : n;
  long long j = 0;
  for (; j < limit; ++j) {
    if (py < 0 || py >= H) return;
    piece(px, py);
    px -= W;
    if (ci->way == 1) {
      py -= ci->param;
      if (py < 0)
        py += H;
      else if (py >= H)
        py -= H;
    }
  }
  if (j >= n || py < 0 || py >= H) return;
  // Still inside after more than a full period: the displacement is at most
  // one tile, so each wrap is an exact reduction modulo the height.
  for (long long k = std::max(j, n - 2); k < n; ++k) {
    long long qy = p0.y;
    if (ci->way == 1) {
      // (k * param) mod H without a 128-bit product: both factors are reduced
      // first, so the product stays below 2^62 and keeps the sign of param.
      qy = (p0.y - ((k % H) * ((long long)ci->param % H)) % H) % H;
      if (qy < 0) qy += H;
    }
    piece((long long)p0.x - k * W, qy);
  }
}

struct Triple {
  int y;
  int x1;
  int x2;
};

// The base-cell copy of src's repeat into out (one piece per band).
bool WrapArray(const CRasterArray* src, const CYCLEINFO* ci, CRasterArray* out) {
  const int H = ci->height;
  std::vector<Triple> pieces;
  long long total = 0;
  for (const RSRLINE* p : *src) {
    if (!p) continue;
    const RSRUN* r = p->arRun.GetData();
    long long y = p->rcBox.top;
    for (int c : p->arCount) {
      for (int i = 0; i < c; ++i, ++r) {
        WalkRun(r->x1, (int)y, (long long)r->x2 - r->x1 + 1, ci, true, [&](long long py, long long a, long long b, long long) {
          if (++total > kMaxItems) throw std::bad_alloc();
          pieces.push_back(Triple{(int)py, (int)a, (int)b});
        });
      }
      ++y;
    }
  }
  if (pieces.empty()) return true;
  // Counting sort by row, then each row sorted and merged.
  std::vector<uint32_t> start((size_t)H + 1, 0);
  for (const Triple& t : pieces) ++start[(size_t)t.y + 1];
  for (int k = 0; k < H; ++k) start[(size_t)k + 1] += start[(size_t)k];
  std::vector<RSRUN> rows(pieces.size());
  std::vector<uint32_t> pos(start.begin(), start.end() - 1);
  for (const Triple& t : pieces) rows[pos[(size_t)t.y]++] = RSRUN{t.x1, t.x2};
  pieces.clear();
  pieces.shrink_to_fit();
  BandBuilder bb;
  if (!bb.Init(out, (long long)rows.size(), H)) return !Fail("CRstLines: the repeat is too large");
  for (int k = 0; k < H; ++k) {
    RSRUN* r = rows.data() + start[(size_t)k];
    int n = SortMergeRow(r, (int)(start[(size_t)k + 1] - start[(size_t)k]));
    bb.BeginRow(k);
    for (int i = 0; i < n; ++i) bb.Emit(r[i].x1, r[i].x2);
    bb.EndRow();
  }
  bb.Finish();
  return true;
}

}  // namespace tqrgn

BOOL CRstLines::CalLocal(const ACycle* cycle) {
  if (!m_pRstArray || !cycle || !cycle->CycleOnOff()) return TRUE;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  BOOL ok = CalLocal(m_pRstArray, cycle);
  Update();
  return ok;
}

BOOL CRstLines::CalLocal(CRasterArray* arr, const ACycle* cycle) {
  if (IsEmpty(arr) || !cycle || !cycle->CycleOnOff()) return TRUE;
  ASSERT(IsValid(arr));
  RECT box = GetBox(arr);
  POINT p = {box.left, box.top};
  cycle->CalLocalPoint(p);
  long long dx = (long long)p.x - box.left, dy = (long long)p.y - box.top;
  if (!(dx >= INT32_MIN && dx <= INT32_MAX && dy >= INT32_MIN && dy <= INT32_MAX)) return FALSE;
  return Offset(arr, (int)dx, (int)dy);
}

BOOL CRstLines::Cycle(const ACycle* cycle, const RECT* rc) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData || !rc) return FALSE;
  RGN_CHECK_ARRAY(m_pRstArray);
  if ((long long)rc->bottom - rc->top > kMaxRows) {
    Fail("CRstLines::Cycle: the rectangle is too large");
    return FALSE;
  }
  if (IsRectEmpty(rc) || IsEmpty(m_pRstArray)) {
    SetEmpty();
    return TRUE;
  }
  CRasterArray* result = nullptr;
  CRasterArray tile;
  try {
    result = new CRasterArray;
    if (!CycleUsable(cycle)) {
      // No repeat: the region clipped to the rectangle.
      CRstLines r;
      if (!r.Create(*rc)) {
        Delete(result);
        return FALSE;
      }
      if (!Create(result, m_pRstArray, r.GetData(), RST_AND, nullptr)) {
        Delete(result);
        return FALSE;
      }
    } else {
      const CYCLEINFO* ci = cycle->CycleInfoPtr();
      if (!WrapArray(m_pRstArray, ci, &tile)) {
        Release(&tile);
        Delete(result);
        return FALSE;
      }
      RowSource ts;
      if (ts.Init(&tile)) {
        // Cell rows are read out of order: index them once.
        const int H = ci->height;
        std::vector<const RSRUN*> rowRuns((size_t)H, nullptr);
        std::vector<int> rowCount((size_t)H, 0);
        for (const RSRLINE* p : tile) {
          const RSRUN* r = p->arRun.GetData();
          for (int k = 0; k < p->arCount.GetSize(); ++k) {
            rowRuns[(size_t)(p->rcBox.top + k)] = r;
            rowCount[(size_t)(p->rcBox.top + k)] = p->arCount[k];
            r += p->arCount[k];
          }
        }
        const long long width = (long long)rc->right - rc->left;
        long long tileRuns = ts.TotalRuns();
        long long perRow = (width / ci->width + 2) * std::max<long long>(1, tileRuns);
        BandBuilder bb;
        if (!bb.Init(result, std::min(perRow * 4, kMaxItems), std::min<long long>((long long)rc->bottom - rc->top, kMaxRows))) {
          Release(&tile);
          Delete(result);
          Fail("CRstLines::Cycle: the repeat is too large");
          return FALSE;
        }
        for (long long y = rc->top; y < rc->bottom; ++y) {
          bb.BeginRow(y);
          WalkRun(rc->left, (int)y, width, ci, false, [&](long long py, long long a, long long b, long long px) {
            const RSRUN* r = rowRuns[(size_t)py];
            const int n = rowCount[(size_t)py];
            if (n == 0) return;
            const RSRUN* it = std::lower_bound(r, r + n, a, [](const RSRUN& run, long long v) { return run.x2 < v; });
            const long long shift = (long long)rc->left - px;
            for (; it != r + n && it->x1 <= b; ++it) {
              long long lo = std::max<long long>(it->x1, a), hi = std::min<long long>(it->x2, b);
              bb.Emit(lo + shift, hi + shift);
            }
          });
          bb.EndRow();
        }
        bb.Finish();
      }
      Release(&tile);
    }
  } catch (const std::bad_alloc&) {
    Release(&tile);
    Delete(result);
    Fail("CRstLines::Cycle: out of memory");
    return FALSE;
  }
  if (result->GetSize() == 0) Delete(result);
  if (m_pRstArray) Delete(m_pRstArray);
  m_pRstArray = result;
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return TRUE;
}

int CRstLines::CombineCycleRst(CRstLines* dst, const CRstLines* src, const ACycle* cycle) {
  if (!dst || !src) return RST_FAILED;
  if (!CycleUsable(cycle)) return dst->Combine(dst, src, RST_OR, nullptr);
  ASSERT(dst->m_bOwnData);
  if (!dst->m_bOwnData) return RST_FAILED;
  if (IsEmpty(src->m_pRstArray)) return IsEmpty(dst->m_pRstArray) ? RST_EMPTY : RST_NOTEMPTY;
  CRasterArray folded;
  CRasterArray* result = nullptr;
  try {
    if (!WrapArray(src->m_pRstArray, cycle->CycleInfoPtr(), &folded)) {
      Release(&folded);
      return RST_FAILED;
    }
    CRasterArray empty;
    int rc = Combine(dst->m_pRstArray ? dst->m_pRstArray : &empty, &folded, RST_OR, &result, nullptr);
    Release(&folded);
    if (rc == RST_FAILED) return rc;
    if (dst->m_pRstArray) Delete(dst->m_pRstArray);
    dst->m_pRstArray = result;
    dst->Update();
    return rc;
  } catch (const std::bad_alloc&) {
    Release(&folded);
    Fail("CRstLines::CombineCycleRst: out of memory");
    return RST_FAILED;
  }
}
