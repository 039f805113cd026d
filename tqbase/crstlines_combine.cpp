// crstlines_combine.cpp - the boolean algebra of regions: AND, OR, DIFF and
// XOR of pieces and of raster arrays, intersection tests, orientation of
// outlines.
//
// One sweep serves every form: the operands' rows are read through
// RowSource (which merges the pieces of an array and normalises unsorted
// rows), each pair of rows is combined by a linear merge, and BandBuilder
// collects the result into one exactly sized piece per band of non-empty
// rows. So a boolean costs time linear in the runs (plus the covered rows)
// and allocates once per result piece and once for its scratch.
//
// Relies on crstlines_internal.h; the repeat-cycle preparation lives in
// crstlines_cycle.cpp.
#include <algorithm>
#include <new>

#include "crstlines_internal.h"
#include "tqbase/acycle.h"

using namespace tqrgn;

namespace tqrgn {
// Defined in crstlines_cycle.cpp: the operand folded into the base cell.
bool WrapArray(const CRasterArray* src, const CYCLEINFO* ci, CRasterArray* out);
bool CycleUsable(const ACycle* cycle);
}  // namespace tqrgn

namespace {

const long long kNoRow = INT64_MAX;

// One row of each operand combined into bb (runs must be sorted, merged).
template <int MODE>
inline void CombineRow(const RSRUN* a, int na, const RSRUN* b, int nb, BandBuilder& bb) {
  if (MODE == RST_AND) {
    int i = 0, j = 0;
    while (i < na && j < nb) {
      int lo = std::max(a[i].x1, b[j].x1);
      int hi = std::min(a[i].x2, b[j].x2);
      if (lo <= hi) bb.Emit(lo, hi);
      if (a[i].x2 < b[j].x2)
        ++i;
      else
        ++j;
    }
    return;
  }
  if (MODE == RST_OR) {
    int i = 0, j = 0;
    while (i < na && j < nb) {
      if (a[i].x1 <= b[j].x1) {
        bb.Emit(a[i].x1, a[i].x2);
        ++i;
      } else {
        bb.Emit(b[j].x1, b[j].x2);
        ++j;
      }
    }
    for (; i < na; ++i) bb.Emit(a[i].x1, a[i].x2);
    for (; j < nb; ++j) bb.Emit(b[j].x1, b[j].x2);
    return;
  }
  if (MODE == RST_DIFF) {
    int j = 0;
    for (int i = 0; i < na; ++i) {
      long long cur = a[i].x1;
      const long long e = a[i].x2;
      while (j < nb && b[j].x2 < cur) ++j;
      int k = j;
      while (k < nb && b[k].x1 <= e) {
        if (b[k].x1 > cur) bb.Emit(cur, (long long)b[k].x1 - 1);
        cur = std::max(cur, (long long)b[k].x2 + 1);
        ++k;
      }
      if (cur <= e) bb.Emit(cur, e);
    }
    return;
  }
  // XOR: sweep the run boundaries of both rows (half-open ends).
  int ia = 0, ib = 0;
  const int ea = 2 * na, eb = 2 * nb;
  bool inA = false, inB = false, in = false;
  long long start = 0;
  while (ia < ea || ib < eb) {
    long long pa = ia < ea ? ((ia & 1) ? (long long)a[ia >> 1].x2 + 1 : a[ia >> 1].x1) : kNoRow;
    long long pb = ib < eb ? ((ib & 1) ? (long long)b[ib >> 1].x2 + 1 : b[ib >> 1].x1) : kNoRow;
    long long p = std::min(pa, pb);
    if (pa == p) {
      inA = !inA;
      ++ia;
    }
    if (pb == p) {
      inB = !inB;
      ++ib;
    }
    bool now = inA != inB;
    if (now && !in) start = p;
    if (!now && in) bb.Emit(start, p - 1);
    in = now;
  }
}

template <int MODE>
void SweepRows(RowSource& sa, RowSource& sb, bool hasA, bool hasB, long long top, long long bottom,
               BandBuilder& bb) {
  long long y = top;
  while (y <= bottom) {
    long long ny = kNoRow;
    if (hasA) ny = std::min(ny, sa.NextCovered(y));
    if (hasB) ny = std::min(ny, sb.NextCovered(y));
    if (ny > bottom) break;
    y = ny;
    const RSRUN* ra = nullptr;
    const RSRUN* rb = nullptr;
    int na = 0, nb = 0;
    if (hasA) sa.Row(y, ra, na);
    if (hasB) sb.Row(y, rb, nb);
    bb.BeginRow(y);
    if (MODE == RST_AND) {
      if (na && nb) CombineRow<RST_AND>(ra, na, rb, nb, bb);
    } else if (nb == 0) {
      for (int i = 0; i < na; ++i) bb.Emit(ra[i].x1, ra[i].x2);
    } else if (na == 0) {
      if (MODE != RST_DIFF)
        for (int i = 0; i < nb; ++i) bb.Emit(rb[i].x1, rb[i].x2);
    } else {
      CombineRow<MODE>(ra, na, rb, nb, bb);
    }
    bb.EndRow();
    ++y;
  }
}

// The pixel set of (a mode b) into out as bands. a or b may be empty
// sources (hasA/hasB false). Returns false on a limit; may throw bad_alloc.
bool SweepSources(RowSource& sa, bool hasA, RowSource& sb, bool hasB, int mode, CRasterArray* out) {
  long long top, bottom;
  switch (mode) {
    case RST_AND:
      if (!hasA || !hasB) return true;
      top = std::max(sa.Top(), sb.Top());
      bottom = std::min(sa.Bottom(), sb.Bottom());
      break;
    case RST_DIFF:
      if (!hasA) return true;
      top = sa.Top();
      bottom = sa.Bottom();
      hasB = hasB && !(sb.Bottom() < top || sb.Top() > bottom);
      break;
    default:
      if (!hasA && !hasB) return true;
      top = hasA ? sa.Top() : sb.Top();
      bottom = hasA ? sa.Bottom() : sb.Bottom();
      if (hasA && hasB) {
        top = std::min(sa.Top(), sb.Top());
        bottom = std::max(sa.Bottom(), sb.Bottom());
      }
      break;
  }
  if (top > bottom) return true;
  long long maxRuns = (hasA ? sa.TotalRuns() : 0) + (hasB ? sb.TotalRuns() : 0) + 1;
  long long maxRows = std::min(bottom - top + 1, (hasA ? sa.TotalRows() : 0) + (hasB ? sb.TotalRows() : 0));
  BandBuilder bb;
  if (!bb.Init(out, maxRuns, maxRows)) return !Fail("CRstLines: the regions are too large to combine");
  switch (mode) {
    case RST_AND: SweepRows<RST_AND>(sa, sb, hasA, hasB, top, bottom, bb); break;
    case RST_OR: SweepRows<RST_OR>(sa, sb, hasA, hasB, top, bottom, bb); break;
    case RST_DIFF: SweepRows<RST_DIFF>(sa, sb, hasA, hasB, top, bottom, bb); break;
    default: SweepRows<RST_XOR>(sa, sb, hasA, hasB, top, bottom, bb); break;
  }
  bb.Finish();
  return true;
}

// The two-piece forms: checks, release of out, sweep; out is emptied on
// any failure after the checks.
BOOL PiecePair(const RSRLINE* a, const RSRLINE* b, CRasterArray* out, int mode, const char* name) {
  if (!a || !b || !out) return FALSE;
  if (!CRstLines::IsValid(a) || !CRstLines::IsValid(b)) {
    ASSERT(CRstLines::IsValid(a) && CRstLines::IsValid(b));
    g_Error.SetLastError("%s: invalid region", name);
    return FALSE;
  }
  CRstLines::Release(out);
  try {
    if (mode == RST_OR) {
      if (a->arRun.GetSize() == 0 || a->arCount.GetSize() == 0) return FALSE;
      if (b->arRun.GetSize() == 0 || b->arCount.GetSize() == 0) {
        RSRLINE* c = new RSRLINE;
        out->Add(c);
        return CRstLines::CopyRaster(c, a) ? TRUE : (CRstLines::Release(out), FALSE);
      }
      // a starting two or more rows below b's last row: the two stay apart,
      // a first. A gap of empty rows the other way round gives two bands
      // of the sweep, in row order.
      if ((long long)a->rcBox.top > (long long)b->rcBox.top + b->arCount.GetSize()) {
        RSRLINE* ca = new RSRLINE;
        out->Add(ca);
        RSRLINE* cb = new RSRLINE;
        out->Add(cb);
        if (!CRstLines::CopyRaster(ca, a) || !CRstLines::CopyRaster(cb, b)) {
          CRstLines::Release(out);
          return FALSE;
        }
        return TRUE;
      }
    }
    RowSource sa, sb;
    bool hasA = sa.Init(a), hasB = sb.Init(b);
    if (!SweepSources(sa, hasA, sb, hasB, mode, out)) {
      CRstLines::Release(out);
      return FALSE;
    }
  } catch (const std::bad_alloc&) {
    CRstLines::Release(out);
    g_Error.SetLastError("%s: out of memory", name);
    return FALSE;
  }
  RGN_CHECK_ARRAY(out);
  return TRUE;
}

}  // namespace

// ---- RowSource::NextCovered (kept beside the sweep that needs it) ----------

long long RowSource::NextCovered(long long y) {
  if (m_pieces.size() == 1) {
    const Cursor& c = m_pieces[0];
    if (y < c.top) return c.top;
    return y <= c.bottom ? y : INT64_MAX;
  }
  Advance(y);
  if (!m_active.empty()) return y;
  if (m_nextPiece < m_pieces.size()) return std::max(y, m_pieces[m_nextPiece].top);
  return INT64_MAX;
}

BOOL CRstLines::ANDPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out) {
  return PiecePair(a, b, out, RST_AND, "CRstLines::ANDPolylines");
}

BOOL CRstLines::ORPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out) {
  return PiecePair(a, b, out, RST_OR, "CRstLines::ORPolylines");
}

BOOL CRstLines::DIFFPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out) {
  return PiecePair(a, b, out, RST_DIFF, "CRstLines::DIFFPolylines");
}

BOOL CRstLines::XORPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out) {
  return PiecePair(a, b, out, RST_XOR, "CRstLines::XORPolylines");
}

CRasterArray* CRstLines::CreateRasterArray(const RSRLINE* a, const RSRLINE* b, int mode) {
  if (!a) return nullptr;
  CRasterArray* arr = nullptr;
  try {
    arr = new CRasterArray;
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::CreateRasterArray: out of memory");
    return nullptr;
  }
  BOOL ok = TRUE;
  switch (mode) {
    case RST_AND: ok = ANDPolylines(a, b, arr); break;
    case RST_OR: ok = ORPolylines(a, b, arr); break;
    case RST_DIFF: ok = DIFFPolylines(a, b, arr); break;
    case RST_XOR: ok = XORPolylines(a, b, arr); break;
    default: break;
  }
  if (!ok) Delete(arr);
  return arr;
}

BOOL CRstLines::Create(CRasterArray* out, const CRasterArray* a, const CRasterArray* b, int mode,
                       const ACycle* cycle) {
  if (!out || !a || !b) return FALSE;
  if (out == a || out == b) {
    ASSERT(out != a && out != b);
    Fail("CRstLines::Create: the result array is one of the operands");
    return FALSE;
  }
  if (mode < RST_AND || mode > RST_XOR) {
    g_Error.SetLastError("CRstLines::Create: unknown combination mode %d", mode);
    return FALSE;
  }
  if (!IsValid(a) || !IsValid(b)) {
    ASSERT(IsValid(a) && IsValid(b));
    Fail("CRstLines::Create: invalid region");
    return FALSE;
  }
  CRasterArray result, wa, wb;
  try {
    if (mode != RST_OR && CycleUsable(cycle)) {
      // Both operands repeat over the plane; their combination is kept as
      // its one copy in the base cell.
      const CYCLEINFO* ci = cycle->CycleInfoPtr();
      if (!WrapArray(a, ci, &wa) || !WrapArray(b, ci, &wb)) {
        Release(&wa);
        Release(&wb);
        return FALSE;
      }
      a = &wa;
      b = &wb;
    }
    RowSource sa, sb;
    bool hasA = sa.Init(a), hasB = sb.Init(b);
    if (!SweepSources(sa, hasA, sb, hasB, mode, &result)) {
      Release(&result);
      Release(&wa);
      Release(&wb);
      return FALSE;
    }
  } catch (const std::bad_alloc&) {
    Release(&result);
    Release(&wa);
    Release(&wb);
    Fail("CRstLines::Create: out of memory");
    return FALSE;
  }
  Release(&wa);
  Release(&wb);
  Release(out);
  out->vec().swap(result.vec());
  RGN_CHECK_ARRAY(out);
  return TRUE;
}

int CRstLines::Combine(const CRasterArray* a, const CRasterArray* b, int mode, CRasterArray** result,
                       const ACycle* cycle) {
  if (!result) return RST_FAILED;
  *result = nullptr;
  CRasterArray* arr = nullptr;
  try {
    arr = new CRasterArray;
  } catch (const std::bad_alloc&) {
    ASSERT(arr != nullptr);
    Fail("CRstLines::Combine: out of memory");
    return RST_FAILED;
  }
  if (!Create(arr, a, b, mode, cycle)) {
    Delete(arr);
    return RST_FAILED;
  }
  if (arr->GetSize() == 0) {
    Delete(arr);
    return RST_EMPTY;
  }
  *result = arr;
  return RST_NOTEMPTY;
}

// Boxes meet by the half-open rule and runs by strict comparisons: pieces
// sharing only a border pixel do not intersect. Kept as the system has it.
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
