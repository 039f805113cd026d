// crstlines_pieces.cpp - the static operations on pieces and raster arrays
// that every other part of the engine uses: validity and the invariant
// checks, boxes, offsets, copies, release and equality.
//
// Relies on crstlines_core.h only.
#include <algorithm>
#include <climits>

#include "crstlines_core.h"

using namespace tqrgn;

// ---- validity and invariants ----------------------------------------------------------

BOOL CRstLines::SetValidate(BOOL on) {
  const BOOL old = g_validate ? TRUE : FALSE;
  g_validate = on != 0;
  return old;
}

BOOL CRstLines::IsValid(const RSRLINE* p) { return CheckPiece(p, false) ? TRUE : FALSE; }

BOOL CRstLines::IsValid(const CRasterArray* arr) {
  if (!arr) return FALSE;
  for (const RSRLINE* p : *arr)
    if (!IsValid(p)) return FALSE;
  return TRUE;
}

BOOL CRstLines::IsWellFormed(const RSRLINE* p) {
  return CheckPiece(p) == (kPieceValid | kPieceSorted) ? TRUE : FALSE;
}

BOOL CRstLines::IsWellFormed(const CRasterArray* arr) {
  if (!arr) return FALSE;
  for (const RSRLINE* p : *arr)
    if (!IsWellFormed(p)) return FALSE;
  return TRUE;
}

namespace tqrgn {

bool Invariant(const RSRLINE* p, bool wellFormed) {
  const int f = CheckPiece(p, wellFormed);
  return wellFormed ? f == (kPieceValid | kPieceSorted) : (f & kPieceValid) != 0;
}

bool Invariant(const CRasterArray* arr, bool wellFormed) {
  if (!arr) return true;
  for (const RSRLINE* p : *arr)
    if (!Invariant(p, wellFormed)) return false;
  return true;
}

bool Invariant(const CRstLines& r) {
  const RECT box = r.GetBox();
  const RECT want = CRstLines::GetBox(r.GetData());
  return Invariant(r.GetData(), false) && EqualRect(&box, &want);
}

}  // namespace tqrgn

// ---- boxes ----------------------------------------------------------------------------

void CRstLines::SetRasterBox(RSRLINE* p, int nRuns, int nRows, int top) {
  p->arRun.SetSize(nRuns);
  p->arCount.SetSize(nRows);
  const RSRUN* r = p->arRun.GetData();
  bool any = false;
  LONG left = 0, right = 0;
  for (int k = 0; k < nRows; ++k) {
    const int c = p->arCount[k];
    if (c <= 0) continue;
    if (!any || r[0].x1 < left) left = r[0].x1;
    if (!any || r[c - 1].x2 > right) right = r[c - 1].x2;
    any = true;
    r += c;
  }
  p->rcBox.left = left;
  p->rcBox.right = right;
  p->rcBox.top = top;
  p->rcBox.bottom = nRows > 0 ? top + nRows - 1 : top;
}

RECT CRstLines::GetBox(const CRasterArray* arr) {
  RECT rc;
  SetRectEmpty(&rc);
  if (!arr || arr->GetSize() == 0) return rc;
  RGN_VALIDATE(Invariant(arr, false));
  bool any = false;
  for (const RSRLINE* p : *arr) {
    if (!p) continue;
    const RECT& b = p->rcBox;
    if (!any) {
      rc = b;
      any = true;
      continue;
    }
    rc.left = std::min(rc.left, b.left);
    rc.top = std::min(rc.top, b.top);
    rc.right = std::max(rc.right, b.right);
    rc.bottom = std::max(rc.bottom, b.bottom);
  }
  return rc;
}

// ---- offsets --------------------------------------------------------------------------

namespace {
const char kOffsetOp[] = "CRstLines::Offset";

bool Fits(long long v) { return v >= INT_MIN && v <= INT_MAX; }

// True when every coordinate of p stays inside int after the move. The
// runs are looked at as well, so that a malformed piece cannot overflow.
bool CanMove(const RSRLINE* p, int dx, int dy) {
  const RECT& b = p->rcBox;
  if (!Fits((long long)b.left + dx) || !Fits((long long)b.right + dx) || !Fits((long long)b.top + dy) ||
      !Fits((long long)b.bottom + dy))
    return false;
  if (dx != 0)
    for (const RSRUN& r : p->arRun)
      if (!Fits((long long)r.x1 + dx) || !Fits((long long)r.x2 + dx)) return false;
  return true;
}

void Move(RSRLINE* p, int dx, int dy) {
  if (dx != 0)
    for (RSRUN& r : p->arRun) {
      r.x1 += dx;
      r.x2 += dx;
    }
  OffsetRect(&p->rcBox, dx, dy);
}
}  // namespace

// A move that would carry a coordinate out of the int range is refused as
// a whole (FALSE, nothing moved).
BOOL CRstLines::Offset(RSRLINE* p, int dx, int dy) {
  if (!p || (dx == 0 && dy == 0)) return TRUE;
  RGN_VALIDATE(Invariant(p, false));
  if (!CanMove(p, dx, dy)) return Fail(kOffsetOp, kOutOfRange);
  Move(p, dx, dy);
  RGN_VALIDATE(Invariant(p, false));
  return TRUE;
}

BOOL CRstLines::Offset(CRasterArray* arr, int dx, int dy) {
  if (!arr || (dx == 0 && dy == 0)) return TRUE;
  RGN_VALIDATE(Invariant(arr, false));
  for (const RSRLINE* p : *arr)
    if (p && !CanMove(p, dx, dy)) return Fail(kOffsetOp, kOutOfRange);
  for (RSRLINE* p : *arr)
    if (p) Move(p, dx, dy);
  RGN_VALIDATE(Invariant(arr, false));
  return TRUE;
}

// ---- copies, release, equality -------------------------------------------------------------

BOOL CRstLines::CopyRaster(RSRLINE* dst, const RSRLINE* src) {
  if (!dst || !src) return FALSE;
  ASSERT(IsValid(src));
  if (dst == src) return TRUE;
  return Guarded("CRstLines::CopyRaster", [&] {
    // Both arrays are copied before either is installed, so that a failure
    // leaves dst as it was.
    CArray<RSRUN, const RSRUN&> runs;
    CArray<int, int> counts;
    runs.vec().assign(src->arRun.begin(), src->arRun.end());
    counts.vec().assign(src->arCount.begin(), src->arCount.end());
    dst->arRun.vec().swap(runs.vec());
    dst->arCount.vec().swap(counts.vec());
    dst->rcBox = src->rcBox;
    RGN_VALIDATE(Invariant(dst, false));
    return true;
  });
}

BOOL CRstLines::CopyRasterArray(CRasterArray* dst, const CRasterArray* src) {
  if (!dst || !src) return FALSE;
  if (dst == src) return TRUE;
  RGN_VALIDATE(Invariant(src, false));
  return Guarded("CRstLines::CopyRasterArray", [&] {
    PieceList copy;
    copy.Reserve(src->GetSize());
    for (const RSRLINE* s : *src)
      if (s) copy.Add(CopyPiece(s));
    copy.MoveTo(dst);
    RGN_VALIDATE(Invariant(dst, false));
    return true;
  });
}

void CRstLines::Delete(RSRLINE*& p) {
  delete p;
  p = nullptr;
}

void CRstLines::Delete(CRasterArray*& arr) {
  if (!arr) return;
  FreePieces(arr);
  delete arr;
  arr = nullptr;
}

void CRstLines::Release(CRasterArray* arr) { FreePieces(arr); }

BOOL CRstLines::IsEmpty(const CRasterArray* arr) { return !arr || arr->GetSize() == 0; }

BOOL CRstLines::IsEqual(const RSRLINE* a, const RSRLINE* b) {
  if (!a && !b) return TRUE;
  if (!a || !b) return FALSE;
  if (!EqualRect(&a->rcBox, &b->rcBox)) return FALSE;
  if (a->arCount.GetSize() != b->arCount.GetSize() || a->arRun.GetSize() != b->arRun.GetSize()) return FALSE;
  if (!std::equal(a->arCount.begin(), a->arCount.end(), b->arCount.begin())) return FALSE;
  return std::equal(a->arRun.begin(), a->arRun.end(), b->arRun.begin(),
                    [](const RSRUN& x, const RSRUN& y) { return x.x1 == y.x1 && x.x2 == y.x2; });
}

BOOL CRstLines::IsEqual(const CRasterArray* a, const CRasterArray* b) {
  if (!a && !b) return TRUE;
  if (!a || !b) return FALSE;
  if (a->GetSize() != b->GetSize()) return FALSE;
  for (int i = 0; i < a->GetSize(); ++i)
    if (!IsEqual(a->GetAt(i), b->GetAt(i))) return FALSE;
  return TRUE;
}
