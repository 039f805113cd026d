// crstlines_cycle.cpp - regions on a repeating design: moving a region
// into the base cell, repeating it over a rectangle, and uniting a region
// into one that lives in the base cell.
//
// Relies on the repeat folding (crstlines_fold.h) and the in-place union.
#include <algorithm>

#include "crstlines_combine.h"
#include "crstlines_fold.h"

using namespace tqrgn;

BOOL CRstLines::CalLocal(const ACycle* cycle) {
  if (!m_pRstArray || !cycle || !cycle->CycleOnOff()) return TRUE;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  RGN_VALIDATE(Invariant(*this));
  const BOOL ok = CalLocal(m_pRstArray, cycle);
  Update();
  RGN_VALIDATE(Invariant(*this));
  return ok;
}

BOOL CRstLines::CalLocal(CRasterArray* arr, const ACycle* cycle) {
  if (IsEmpty(arr) || !cycle || !cycle->CycleOnOff()) return TRUE;
  ASSERT(IsValid(arr));
  const RECT box = GetBox(arr);
  POINT p = {box.left, box.top};
  cycle->CalLocalPoint(p);
  const long long dx = (long long)p.x - box.left, dy = (long long)p.y - box.top;
  if (dx < INT32_MIN || dx > INT32_MAX || dy < INT32_MIN || dy > INT32_MAX)
    return Fail("CRstLines::CalLocal", kOutOfRange);
  return Offset(arr, (int)dx, (int)dy);
}

namespace tqrgn {

void RepeatOver(const CRasterArray* region, const CYCLEINFO* ci, const RECT& rc, PieceList& out) {
  PieceList tile;
  WrapArray(region, ci, tile);
  if (tile.Size() == 0) return;
  // Cell rows are read out of order: index them once.
  const int H = ci->height;
  std::vector<const RSRUN*> rowRuns;
  std::vector<int> rowCount;
  SizeTo(rowRuns, H);
  SizeTo(rowCount, H);
  for (const RSRLINE* p : tile.Get()) {
    const RSRUN* r = p->arRun.GetData();
    for (int k = 0; k < p->arCount.GetSize(); ++k) {
      rowRuns[(size_t)(p->rcBox.top + k)] = r;
      rowCount[(size_t)(p->rcBox.top + k)] = p->arCount[k];
      r += p->arCount[k];
    }
  }
  const long long width = (long long)rc.right - rc.left;
  RowWriter w;
  w.Init(4096, (long long)rc.bottom - rc.top);
  for (long long y = rc.top; y < rc.bottom; ++y) {
    long long written = 0;  // runs of this row so far, from Out()
    WalkRun(rc.left, (int)y, width, ci, false, [&](long long py, long long a, long long b, long long px) {
      const RSRUN* r = rowRuns[(size_t)py];
      const int n = rowCount[(size_t)py];
      const RSRUN* it = std::lower_bound(r, r + n, a, [](const RSRUN& run, long long v) { return run.x2 < v; });
      const RSRUN* end = std::upper_bound(it, r + n, b, [](long long v, const RSRUN& run) { return v < run.x1; });
      w.Room(written + (end - it), written);
      RSRUN* const row0 = w.Out();
      const long long shift = (long long)rc.left - px;
      for (; it != end; ++it) {
        const int lo = (int)(std::max<long long>(it->x1, a) + shift);
        const int hi = (int)(std::min<long long>(it->x2, b) + shift);
        if (written > 0 && (long long)lo <= (long long)row0[written - 1].x2 + 1)
          row0[written - 1].x2 = std::max(row0[written - 1].x2, hi);
        else
          row0[written++] = RSRUN{lo, hi};
      }
    });
    w.EndRow(y, w.Out() + written);
  }
  w.Flush(out);
}

}  // namespace tqrgn

BOOL CRstLines::Cycle(const ACycle* cycle, const RECT* rc) {
  static const char op[] = "CRstLines::Cycle";
  ASSERT(m_bOwnData);
  if (!m_bOwnData || !rc) return FALSE;
  RGN_VALIDATE(Invariant(*this));
  if ((long long)rc->bottom - rc->top > kMaxRows) return Fail(op, kTooLarge);
  if (IsRectEmpty(rc) || IsEmpty(m_pRstArray)) {
    SetEmpty();
    return TRUE;
  }
  OwnedArray result;
  const bool ok = Guarded(op, [&] {
    PieceList pieces;
    if (!CycleUsable(cycle)) {
      // No repeat: the region clipped to the rectangle.
      CRstLines clip;
      if (!clip.Create(*rc)) return false;
      if (!CombineArrays(m_pRstArray, clip.GetData(), RST_AND, nullptr, pieces, op)) return false;
    } else {
      if (!IsValid(m_pRstArray)) return Fail(op, kInvalidRegion);
      RepeatOver(m_pRstArray, cycle->CycleInfoPtr(), *rc, pieces);
    }
    if (pieces.Size() > 0) {
      result = NewArray();
      pieces.MoveTo(result.get());
    }
    return true;
  });
  if (!ok) return FALSE;
  Adopt(result.release());
  RGN_VALIDATE(Invariant(*this) && Invariant(m_pRstArray, true));
  return TRUE;
}

int CRstLines::CombineCycleRst(CRstLines* dst, const CRstLines* src, const ACycle* cycle) {
  static const char op[] = "CRstLines::CombineCycleRst";
  if (!dst || !src) return RST_FAILED;
  if (!CycleUsable(cycle)) return dst->Combine(dst, src, RST_OR, nullptr);
  ASSERT(dst->m_bOwnData);
  if (!dst->m_bOwnData) return RST_FAILED;
  RGN_VALIDATE(Invariant(*dst) && Invariant(*src));
  if (IsEmpty(src->m_pRstArray)) return IsEmpty(dst->m_pRstArray) ? RST_EMPTY : RST_NOTEMPTY;
  if (!IsValid(src->m_pRstArray)) {
    Fail(op, kInvalidRegion);
    return RST_FAILED;
  }
  OwnedArray fresh;
  PieceList folded;
  if (!Guarded(op, [&] {
        WrapArray(src->m_pRstArray, cycle->CycleInfoPtr(), folded);
        if (!dst->m_pRstArray) fresh = NewArray();
        return true;
      }))
    return RST_FAILED;
  CRasterArray* target = dst->m_pRstArray ? dst->m_pRstArray : fresh.get();
  RECT box;
  if (!ChangeInPlace(*target, &folded.Get(), true, &box, op)) return RST_FAILED;
  if (fresh) dst->Adopt(fresh.release());
  if (IsEmpty(dst->m_pRstArray)) {
    dst->Adopt(nullptr);
    return RST_EMPTY;
  }
  dst->m_rcBox = box;
  RGN_VALIDATE(Invariant(*dst));
  return RST_NOTEMPTY;
}
