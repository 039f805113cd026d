// crstlines_mirror.cpp - mirroring regions left-right and top-bottom about
// a reference rectangle, and writing a piece into a byte mask.
//
// Both mirrors work in place without allocating: the left-right mirror
// reverses each row's runs, the top-bottom mirror reverses the whole run
// array (which reverses the rows and, within each row, the runs) and then
// turns each row's runs back into ascending order.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "crstlines_core.h"

using namespace tqrgn;

namespace {
bool InIntRange(long long v) { return v >= INT32_MIN && v <= INT32_MAX; }
}  // namespace

// The mirrored box is the mirror of the runs' extent: for the tight boxes
// of well-formed pieces that is the box of the same width at
// L + R - old right; a box with slack on the right (allowed by IsValid)
// would otherwise turn into slack on the left, which no piece may have.
void CRstLines::HorMirror(RSRLINE* p, const CRect& rc) {
  if (!p) return;
  RGN_VALIDATE(Invariant(p, false));
  const long long s = (long long)rc.left + rc.right;
  long long maxX2 = p->rcBox.right;
  if (p->arRun.GetSize() > 0) {
    maxX2 = p->arRun[0].x2;
    for (const RSRUN& r : p->arRun) maxX2 = std::max<long long>(maxX2, r.x2);
  }
  if (!InIntRange(s - maxX2) || !InIntRange(s - p->rcBox.left)) {
    ASSERT(!"CRstLines::HorMirror: the mirror leaves the coordinate range");
    Fail("CRstLines::HorMirror", kOutOfRange);
    return;
  }
  RSRUN* r = p->arRun.GetData();
  const long long nRuns = p->arRun.GetSize();
  long long off = 0;
  for (int& c : p->arCount) {
    if (c < 1) {
      c = 0;
      continue;
    }
    if (off + c > nRuns) break;
    RSRUN* row = r + off;
    std::reverse(row, row + c);
    for (int i = 0; i < c; ++i) {
      int x1 = (int)(s - row[i].x2);
      int x2 = (int)(s - row[i].x1);
      row[i].x1 = x1;
      row[i].x2 = x2;
    }
    off += c;
  }
  if (nRuns > 0) {
    p->rcBox.right = (LONG)(s - p->rcBox.left);
    p->rcBox.left = (LONG)(s - maxX2);
  } else {
    LONG w = p->rcBox.right - p->rcBox.left;
    p->rcBox.left = (LONG)(s - p->rcBox.right);
    p->rcBox.right = p->rcBox.left + w;
  }
  RGN_VALIDATE(Invariant(p, false));
}

void CRstLines::HorMirror(CRasterArray* arr, const CRect& rc) {
  if (!arr) return;
  for (RSRLINE* p : *arr)
    if (p) HorMirror(p, rc);
}

void CRstLines::VerMirror(RSRLINE* p, const CRect& rc) {
  if (!p) return;
  RGN_VALIDATE(Invariant(p, false));
  const long long newTop = (long long)rc.top + rc.bottom - p->rcBox.bottom;
  const long long height = (long long)p->rcBox.bottom - p->rcBox.top;
  if (!InIntRange(newTop) || !InIntRange(newTop + height)) {
    ASSERT(!"CRstLines::VerMirror: the mirror leaves the coordinate range");
    Fail("CRstLines::VerMirror", kOutOfRange);
    return;
  }
  for (int& c : p->arCount)
    if (c < 1) c = 0;
  RSRUN* r = p->arRun.GetData();
  const long long nRuns = p->arRun.GetSize();
  std::reverse(p->arRun.begin(), p->arRun.end());
  std::reverse(p->arCount.begin(), p->arCount.end());
  long long off = 0;
  for (int c : p->arCount) {
    if (off + c > nRuns) break;
    std::reverse(r + off, r + off + c);
    off += c;
  }
  p->rcBox.top = (LONG)newTop;
  p->rcBox.bottom = (LONG)(newTop + height);
  RGN_VALIDATE(Invariant(p, false));
}

void CRstLines::VerMirror(CRasterArray* arr, const CRect& rc) {
  if (!arr) return;
  ASSERT(IsValid(arr));
  std::reverse(arr->begin(), arr->end());
  for (RSRLINE* p : *arr)
    if (p) VerMirror(p, rc);
  ASSERT(IsValid(arr));
}

BOOL CRstLines::SetRasterMaskInBuf(unsigned char* buf, const RECT& rc, RSRLINE* p, int value) {
  if (!buf || !p) return FALSE;
  if (!IsValid(p)) {
    ASSERT(IsValid(p));
    return FALSE;
  }
  POINT tl = {p->rcBox.left, p->rcBox.top};
  POINT br = {p->rcBox.right, p->rcBox.bottom};
  if (!PtInRect(&rc, tl) || !PtInRect(&rc, br)) return FALSE;
  const size_t stride = (size_t)((long long)rc.right - rc.left);
  const unsigned char v = (unsigned char)(value & 0xFF);
  const RSRUN* r = p->arRun.GetData();
  unsigned char* line = buf + (size_t)((long long)p->rcBox.top - rc.top) * stride;
  const long long left = rc.left;
  for (int c : p->arCount) {
    for (int i = 0; i < c; ++i, ++r) std::memset(line + (r->x1 - left), v, (size_t)((long long)r->x2 - r->x1 + 1));
    line += stride;
  }
  return TRUE;
}
