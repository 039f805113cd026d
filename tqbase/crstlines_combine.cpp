// crstlines_combine.cpp - the boolean algebra of regions: AND, OR, DIFF and
// XOR of pieces and of raster arrays, intersection tests, orientation of
// outlines.
//
// Two sweeps serve every form. The fast sweep (below) takes operands of
// well-formed pieces with disjoint row ranges, the common case, and runs
// per-mode row kernels straight into the result. The general sweep reads
// the operands' rows through RowSource (which merges the pieces of an array
// and normalises unsorted rows), combines each pair of rows by a linear
// merge, and BandBuilder collects the result. Both give one exactly sized
// piece per band of non-empty rows. So a boolean costs time linear in the
// runs (plus the covered rows) and allocates once per array of each result
// piece, plus its scratch.
//
// Relies on crstlines_internal.h; the repeat-cycle preparation lives in
// crstlines_cycle.cpp.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
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

// ---- the fast sweep -----------------------------------------------------------
//
// Operands whose pieces are all well-formed and cover disjoint row ranges
// (every result of this engine, and every scan-converted polygon or set)
// need no row normalisation: a row of the operand is a row of exactly one
// piece, already sorted and merged. The sweep then walks row pointers and
// count pointers directly, combines each pair of rows with a kernel of its
// mode, and writes straight into scratch blocks sized once from upper
// bounds (a row of a mode b never holds more than na + nb runs; rows are
// bounded by the range and by the operands' rows), so no capacity test or
// growth happens per run. Each band of non-empty rows becomes one exactly
// sized piece at the end (one allocation for each of its two arrays).
// Operands with overlapping pieces or unsorted rows go through the general
// sweep above, which also serves as the reference the fast path is tested
// against (CRstLinesBoolean.FastPathAgreesWithGeneralSweep and
// PieceKernelsAgreeWithGeneralSweep).
//
// Speed-ups here are measured by bench/bench_region.cpp, BM_Bool_Ours
// against BM_Bool_Pixman and BM_Bool_AGG.

// A piece of an operand seen as a slab of rows.
struct Slab {
  const int* cnt;
  const RSRUN* runs;
  long long top, bottom;
};

struct Operand {
  Slab one{};
  std::vector<Slab> many;
  const Slab* s = nullptr;
  size_t n = 0;
  long long top = 0, bottom = -1, runs = 0, rows = 0;
};

enum Prep { kInvalid, kGeneral, kFast };

Prep AddSlab(const RSRLINE* p, Operand& op, bool& ordered, bool& sorted) {
  int f = CheckPiece(p);
  if (!(f & kPieceValid)) return kInvalid;
  if (!(f & kPieceSorted)) sorted = false;
  if (p->arRun.GetSize() == 0) return kFast;
  Slab sl{p->arCount.GetData(), p->arRun.GetData(), p->rcBox.top,
          (long long)p->rcBox.top + p->arCount.GetSize() - 1};
  if (op.n == 0) {
    op.top = sl.top;
    op.bottom = sl.bottom;
  } else {
    if (sl.top <= op.bottom) ordered = false;
    op.top = std::min(op.top, sl.top);
    op.bottom = std::max(op.bottom, sl.bottom);
  }
  if (op.n == 0) {
    op.one = sl;
  } else {
    if (op.n == 1) op.many.push_back(op.one);
    op.many.push_back(sl);
  }
  ++op.n;
  op.runs += p->arRun.GetSize();
  op.rows += p->arCount.GetSize();
  return kFast;
}

// Validity of every piece (the operation's entry check, in the same pass
// as sortedness), then whether the fast sweep applies.
Prep PrepareOperand(const CRasterArray* arr, Operand& op) {
  bool ordered = true, sorted = true;
  for (const RSRLINE* p : *arr)
    if (AddSlab(p, op, ordered, sorted) == kInvalid) return kInvalid;
  op.s = op.n > 1 ? op.many.data() : &op.one;
  if (!sorted) return kGeneral;
  if (!ordered) {
    std::sort(op.many.begin(), op.many.end(), [](const Slab& a, const Slab& b) { return a.top < b.top; });
    for (size_t i = 1; i < op.n; ++i)
      if (op.many[i].top <= op.many[i - 1].bottom) return kGeneral;
  }
  return kFast;
}

Prep PreparePiece(const RSRLINE* p, Operand& op) {
  bool ordered = true, sorted = true;
  if (AddSlab(p, op, ordered, sorted) == kInvalid) return kInvalid;
  op.s = &op.one;
  return sorted ? kFast : kGeneral;
}

inline RSRUN* CopyRuns(const RSRUN* r, int n, RSRUN* o) {
  std::memcpy(o, r, (size_t)n * sizeof(RSRUN));
  return o + n;
}

// Row kernels: sorted, merged rows in, a sorted, merged row out at o; the
// caller guarantees room for na + nb runs. Branch-free loops store a
// candidate run and advance the output only when it counts; such a store
// never lands past the row's final end, which is within the room.

// First index of r[0..n) whose x2 >= v (x2 ascends in a sorted row);
// binary search on long rows so that a row against a one-run row costs
// a search plus a copy.
inline int FirstEndingAtOrAfter(const RSRUN* r, int n, long long v) {
  if (n < 16) {
    int i = 0;
    while (i < n && r[i].x2 < v) ++i;
    return i;
  }
  return (int)(std::partition_point(r, r + n, [v](const RSRUN& q) { return q.x2 < v; }) - r);
}

// First index from `from` whose x1 > v.
inline int FirstStartingAfter(const RSRUN* r, int from, int n, long long v) {
  if (n - from < 16) {
    int i = from;
    while (i < n && r[i].x1 <= v) ++i;
    return i;
  }
  return (int)(std::partition_point(r + from, r + n, [v](const RSRUN& q) { return q.x1 <= v; }) - r);
}

// r clipped to [L, R].
inline RSRUN* ClipRow(const RSRUN* r, int n, int L, int R, RSRUN* o) {
  const int i = FirstEndingAtOrAfter(r, n, L);
  const int k = FirstStartingAfter(r, i, n, R);
  if (k == i) return o;
  RSRUN* o0 = o;
  o = CopyRuns(r + i, k - i, o);
  o0->x1 = std::max(o0->x1, L);
  o[-1].x2 = std::min(o[-1].x2, R);
  return o;
}

// r minus [L, R].
inline RSRUN* DiffOne(const RSRUN* r, int n, int L, int R, RSRUN* o) {
  const int i = FirstEndingAtOrAfter(r, n, L);
  o = CopyRuns(r, i, o);
  if (i < n && r[i].x1 < L) *o++ = RSRUN{r[i].x1, L - 1};
  int k = FirstEndingAtOrAfter(r + i, n - i, (long long)R + 1) + i;
  if (k < n && r[k].x1 <= R) {
    *o++ = RSRUN{R + 1, r[k].x2};
    ++k;
  }
  return CopyRuns(r + k, n - k, o);
}

// r united with [L, R].
inline RSRUN* OrOne(const RSRUN* r, int n, int L, int R, RSRUN* o) {
  const int i = FirstEndingAtOrAfter(r, n, (long long)L - 1);
  o = CopyRuns(r, i, o);
  const int k = FirstStartingAfter(r, i, n, (long long)R + 1);
  RSRUN cur{L, R};
  if (k > i) {
    cur.x1 = std::min(cur.x1, r[i].x1);
    cur.x2 = std::max(cur.x2, r[k - 1].x2);
  }
  *o++ = cur;
  return CopyRuns(r + k, n - k, o);
}

// A run packed into one 64-bit word (x1 in the low half, as it lies in
// memory on the little-endian targets this library builds for), so that
// choosing between two runs is one conditional move rather than a pair of
// them or a trip through vector registers.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#error "the packed run helpers assume a little-endian target"
#endif
typedef unsigned long long Packed;
inline Packed Ld(const RSRUN* r) {
  Packed v;
  std::memcpy(&v, r, sizeof v);
  return v;
}
inline void St(RSRUN* o, Packed v) { std::memcpy(o, &v, sizeof v); }
inline int X1(Packed v) { return (int)(unsigned)v; }
inline int X2(Packed v) { return (int)(unsigned)(v >> 32); }
inline Packed Mk(int x1, int x2) { return (Packed)(unsigned)x1 | ((Packed)(unsigned)x2 << 32); }
// c ? x : y by masks: the compiler turns a plain conditional here into a
// branch, which mispredicts on interleaved rows (BM_Bool_Ours/1/1).
inline Packed Sel(bool c, Packed x, Packed y) {
  const Packed m = (Packed)0 - (Packed)c;
  return (x & m) | (y & ~m);
}

inline RSRUN* AndRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o) {
  if (na == 0 || nb == 0 || a[na - 1].x2 < b[0].x1 || b[nb - 1].x2 < a[0].x1) return o;
  if (nb == 1) return ClipRow(a, na, b[0].x1, b[0].x2, o);
  if (na == 1) return ClipRow(b, nb, a[0].x1, a[0].x2, o);
  // The next runs of both rows are loaded before the choice, so that the
  // choice does not wait for a load that depends on it; the second loop
  // finishes near the rows' ends.
  int i = 0, j = 0;
  Packed va = Ld(a), vb = Ld(b);
  while (i + 1 < na && j + 1 < nb) {
    const Packed an = Ld(a + i + 1), bn = Ld(b + j + 1);
    const int lo = std::max(X1(va), X1(vb)), hi = std::min(X2(va), X2(vb));
    St(o, Mk(lo, hi));
    o += lo <= hi;
    const bool advA = X2(va) < X2(vb);
    i += advA;
    j += !advA;
    va = Sel(advA, an, va);
    vb = Sel(advA, vb, bn);
  }
  while (i < na && j < nb) {
    const int lo = std::max(a[i].x1, b[j].x1), hi = std::min(a[i].x2, b[j].x2);
    o->x1 = lo;
    o->x2 = hi;
    o += lo <= hi;
    const bool advA = a[i].x2 < b[j].x2;
    i += advA;
    j += !advA;
  }
  return o;
}

// Appends n to the open run cur, or closes cur and opens n.
inline void Coalesce(Packed& cur, Packed n, RSRUN*& o) {
  const bool join = (long long)X1(n) <= (long long)X2(cur) + 1;
  St(o, cur);
  o += !join;
  cur = Sel(join, Mk(X1(cur), std::max(X2(cur), X2(n))), n);
}

// The rest of a row after cur: runs joining cur merge into it, the others
// are copied as they are (they are apart from each other already).
inline RSRUN* FlushRest(Packed pc, const RSRUN* r, int n, RSRUN* o) {
  RSRUN cur{X1(pc), X2(pc)};
  int i = 0;
  while (i < n && (long long)r[i].x1 <= (long long)cur.x2 + 1) cur.x2 = std::max(cur.x2, r[i++].x2);
  *o++ = cur;
  return CopyRuns(r + i, n - i, o);
}

inline RSRUN* OrRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o) {
  if (nb == 0) return CopyRuns(a, na, o);
  if (na == 0) return CopyRuns(b, nb, o);
  if ((long long)a[na - 1].x2 + 1 < b[0].x1) return CopyRuns(b, nb, CopyRuns(a, na, o));
  if ((long long)b[nb - 1].x2 + 1 < a[0].x1) return CopyRuns(a, na, CopyRuns(b, nb, o));
  if (nb == 1) return OrOne(a, na, b[0].x1, b[0].x2, o);
  if (na == 1) return OrOne(b, nb, a[0].x1, a[0].x2, o);
  // The run with the lesser x1 is chosen through its address, so that one
  // iteration is a short chain (compare, pick, load) of few instructions;
  // cur is kept in two registers and joined or closed without branches.
  const RSRUN *pa = a, *pb = b;
  const RSRUN* const ea = a + na;
  const RSRUN* const eb = b + nb;
  const RSRUN* first = pa->x1 <= pb->x1 ? pa++ : pb++;
  int cx1 = first->x1, cx2 = first->x2;
  while (pa < ea && pb < eb) {
    const bool takeA = pa->x1 <= pb->x1;
    const uintptr_t m = (uintptr_t)0 - (uintptr_t)takeA;
    const RSRUN* q = (const RSRUN*)(((uintptr_t)pa & m) | ((uintptr_t)pb & ~m));
    pa += takeA;
    pb += !takeA;
    const int nx1 = q->x1, nx2 = q->x2;
    const bool join = (long long)nx1 <= (long long)cx2 + 1;
    o->x1 = cx1;
    o->x2 = cx2;
    o += !join;
    const int keep = -(int)join;
    cx1 = (cx1 & keep) | (nx1 & ~keep);
    cx2 = std::max((cx2 & keep) | (INT_MIN & ~keep), nx2);
  }
  const int i = (int)(pa - a), j = (int)(pb - b);
  const Packed cur = Mk(cx1, cx2);
  return i < na ? FlushRest(cur, a + i, na - i, o) : FlushRest(cur, b + j, nb - j, o);
}

inline RSRUN* DiffRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o) {
  if (na == 0) return o;
  if (nb == 0 || a[na - 1].x2 < b[0].x1 || b[nb - 1].x2 < a[0].x1) return CopyRuns(a, na, o);
  if (nb == 1) return DiffOne(a, na, b[0].x1, b[0].x2, o);
  // cur is what is left of a[i]; each step emits the part of cur left of
  // b[j], then either b[j] ends inside cur (cur starts after it, next b)
  // or it covers cur's end (next a). The first loop preloads the next runs
  // of both rows; the second finishes near the ends.
  int i = 0, j = 0;
  Packed pc = Ld(a), vb = Ld(b);
  while (i + 1 < na && j + 1 < nb) {
    const Packed an = Ld(a + i + 1), bn = Ld(b + j + 1);
    const int cx1 = X1(pc), cx2 = X2(pc), bx2 = X2(vb);
    const long long e2 = std::min<long long>(cx2, (long long)X1(vb) - 1);
    St(o, Mk(cx1, (int)e2));
    o += (long long)cx1 <= e2;
    const bool nextB = bx2 < cx2;
    i += !nextB;
    j += nextB;
    pc = Sel(nextB, Mk(std::max(cx1, (int)((unsigned)bx2 + 1u)), cx2), an);
    vb = Sel(nextB, bn, vb);
  }
  RSRUN cur{X1(pc), X2(pc)};
  for (;;) {
    const int bx1 = b[j].x1, bx2 = b[j].x2;
    const long long e2 = std::min<long long>(cur.x2, (long long)bx1 - 1);
    o->x1 = cur.x1;
    o->x2 = (int)e2;
    o += (long long)cur.x1 <= e2;
    const bool nextB = bx2 < cur.x2;
    i += !nextB;
    j += nextB;
    const RSRUN n = a[i < na ? i : na - 1];
    cur.x1 = nextB ? std::max(cur.x1, (int)((unsigned)bx2 + 1u)) : n.x1;
    cur.x2 = nextB ? cur.x2 : n.x2;
    if (i >= na || j >= nb) break;
  }
  if (i >= na) return o;
  *o++ = cur;
  return CopyRuns(a + i + 1, na - i - 1, o);
}

// Appends [x1, x2] to the row begun at row0, joining a touching last run.
inline void EmitJoin(RSRUN* row0, RSRUN*& o, int x1, int x2) {
  if (o > row0 && (long long)x1 <= (long long)o[-1].x2 + 1) {
    o[-1].x2 = std::max(o[-1].x2, x2);
    return;
  }
  o->x1 = x1;
  o->x2 = x2;
  ++o;
}

inline RSRUN* XorRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o) {
  if (nb == 0) return CopyRuns(a, na, o);
  if (na == 0) return CopyRuns(b, nb, o);
  if ((long long)a[na - 1].x2 + 1 < b[0].x1) return CopyRuns(b, nb, CopyRuns(a, na, o));
  if ((long long)b[nb - 1].x2 + 1 < a[0].x1) return CopyRuns(a, na, CopyRuns(b, nb, o));
  RSRUN* const row0 = o;
  // ax1, bx1: where the unconsumed parts of a[i] and b[j] start.
  int i = 0, j = 0, ax1 = a[0].x1, bx1 = b[0].x1;
  while (i < na && j < nb) {
    const int ax2 = a[i].x2, bx2 = b[j].x2;
    if (ax1 < bx1) {
      if (ax2 < bx1) {
        EmitJoin(row0, o, ax1, ax2);
        if (++i < na) ax1 = a[i].x1;
      } else {
        EmitJoin(row0, o, ax1, bx1 - 1);
        ax1 = bx1;
      }
    } else if (bx1 < ax1) {
      if (bx2 < ax1) {
        EmitJoin(row0, o, bx1, bx2);
        if (++j < nb) bx1 = b[j].x1;
      } else {
        EmitJoin(row0, o, bx1, ax1 - 1);
        bx1 = ax1;
      }
    } else if (ax2 < bx2) {
      bx1 = ax2 + 1;
      if (++i < na) ax1 = a[i].x1;
    } else if (bx2 < ax2) {
      ax1 = bx2 + 1;
      if (++j < nb) bx1 = b[j].x1;
    } else {
      if (++i < na) ax1 = a[i].x1;
      if (++j < nb) bx1 = b[j].x1;
    }
  }
  if (i < na) {
    EmitJoin(row0, o, ax1, a[i].x2);
    return CopyRuns(a + i + 1, na - i - 1, o);
  }
  if (j < nb) {
    EmitJoin(row0, o, bx1, b[j].x2);
    return CopyRuns(b + j + 1, nb - j - 1, o);
  }
  return o;
}

template <int MODE>
inline RSRUN* ModeRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o) {
  if (MODE == RST_AND) return AndRow(a, na, b, nb, o);
  if (MODE == RST_OR) return OrRow(a, na, b, nb, o);
  if (MODE == RST_DIFF) return DiffRow(a, na, b, nb, o);
  return XorRow(a, na, b, nb, o);
}

// Result rows written in place into scratch blocks; bands recorded as
// they close and turned into pieces by Flush.
class RowWriter {
public:
  bool Init(long long maxRuns, long long maxRows) {
    if (maxRuns < 1) maxRuns = 1;
    if (maxRows < 1) maxRows = 1;
    if (maxRuns > kMaxItems || maxRows > kMaxRows) return false;
    // Two blocks, each ending where its bound ends, so that an overrun of
    // either meets the end of a block (and the address sanitizer) rather
    // than the other's data. The counts come from the heap: the work
    // buffer is lent to the runs.
    m_runs = static_cast<RSRUN*>(m_runBuf.Get((size_t)maxRuns * sizeof(RSRUN)));
    m_cnt = static_cast<int*>(m_cntBuf.Get((size_t)maxRows * sizeof(int)));
    m_end = m_runs;
    return m_runs && m_cnt;
  }
  RSRUN* Out() const { return m_end; }
  // Ends row y, whose runs run from Out() to e.
  void EndRow(long long y, RSRUN* e) {
    const long long n = e - m_end;
    if (n == 0) {
      Gap();
      return;
    }
    if (!m_open || y != m_band.top + (m_nRows - m_band.row0)) Open(y);
    m_band.left = std::min(m_band.left, m_end->x1);
    m_band.right = std::max(m_band.right, e[-1].x2);
    m_cnt[m_nRows++] = (int)n;
    m_end = e;
  }
  void Gap() {
    if (m_open) Close();
  }
  // Copies `rows` rows of one operand (counts from cnt, runs from r,
  // which is left after them), starting at row y.
  void CopyRows(long long y, const int* cnt, const RSRUN*& r, long long rows) {
    for (long long k = 0; k < rows; ++k, ++y) {
      const int n = cnt[k];
      EndRow(y, CopyRuns(r, n, m_end));
      r += n;
    }
  }
  // Makes the pieces; may throw std::bad_alloc (the caller frees out).
  void Flush(CRasterArray* out) {
    Gap();
    out->Reserve(out->GetSize() + (int)m_bands.size());
    for (const Band& b : m_bands) {
      RSRLINE* p = new RSRLINE;
      try {
        p->arRun.vec().assign(m_runs + b.run0, m_runs + b.run1);
        p->arCount.vec().assign(m_cnt + b.row0, m_cnt + b.row1);
        out->Add(p);
      } catch (...) {
        delete p;
        throw;
      }
      p->rcBox.left = b.left;
      p->rcBox.right = b.right;
      p->rcBox.top = (LONG)b.top;
      p->rcBox.bottom = (LONG)(b.top + (b.row1 - b.row0) - 1);
    }
  }

private:
  struct Band {
    long long top, row0, row1, run0, run1;
    int left, right;
  };
  void Open(long long y) {
    Gap();
    m_band.top = y;
    m_band.row0 = m_nRows;
    m_band.run0 = m_end - m_runs;
    m_band.left = INT_MAX;
    m_band.right = INT_MIN;
    m_open = true;
  }
  void Close() {
    m_band.row1 = m_nRows;
    m_band.run1 = m_end - m_runs;
    m_bands.push_back(m_band);
    m_open = false;
  }
  Scratch m_runBuf;
  Scratch m_cntBuf;
  RSRUN* m_runs = nullptr;
  RSRUN* m_end = nullptr;
  int* m_cnt = nullptr;
  long long m_nRows = 0;
  bool m_open = false;
  Band m_band{};
  std::vector<Band> m_bands;
};

// Row cursor over an operand's slabs.
struct Cursor {
  const Operand* op;
  size_t s = 0;        // current slab
  long long k = 0;     // row index in it
  const RSRUN* r = nullptr;  // runs of row k
  explicit Cursor(const Operand* o) : op(o) {
    if (o->n) r = o->s[0].runs;
  }
  // Moves to the slab holding y or the first one below it; true when y
  // is covered. y never decreases.
  bool Seek(long long y) {
    while (s < op->n && op->s[s].bottom < y) {
      ++s;
      k = 0;
      if (s < op->n) r = op->s[s].runs;
    }
    if (s >= op->n || op->s[s].top > y) return false;
    const Slab& sl = op->s[s];
    for (const long long want = y - sl.top; k < want; ++k) r += sl.cnt[k];
    return true;
  }
  // Last row of the current stretch starting at y: the slab's bottom when
  // covered, else the row before the next slab (INT64_MAX when none).
  long long StretchEnd(bool covered) const {
    if (s >= op->n) return kNoRow;
    return covered ? op->s[s].bottom : op->s[s].top - 1;
  }
};

template <int MODE>
void FastRows(const Operand& A, const Operand& B, long long top, long long bottom, RowWriter& w) {
  Cursor ca(&A), cb(&B);
  long long y = top;
  while (y <= bottom) {
    const bool inA = ca.Seek(y), inB = cb.Seek(y);
    const long long end = std::min(bottom, std::min(ca.StretchEnd(inA), cb.StretchEnd(inB)));
    const long long rows = end - y + 1;
    if (inA && inB) {
      const Slab& sa = A.s[ca.s];
      const Slab& sb = B.s[cb.s];
      const int* na = sa.cnt + ca.k;
      const int* nb = sb.cnt + cb.k;
      const RSRUN* ra = ca.r;
      const RSRUN* rb = cb.r;
      for (long long k = 0; k < rows; ++k) {
        w.EndRow(y + k, ModeRow<MODE>(ra, na[k], rb, nb[k], w.Out()));
        ra += na[k];
        rb += nb[k];
      }
      ca.r = ra;
      cb.r = rb;
      ca.k += rows;
      cb.k += rows;
    } else if (inA && MODE != RST_AND) {
      const Slab& sa = A.s[ca.s];
      w.CopyRows(y, sa.cnt + ca.k, ca.r, rows);
      ca.k += rows;
    } else if (inB && (MODE == RST_OR || MODE == RST_XOR)) {
      const Slab& sb = B.s[cb.s];
      w.CopyRows(y, sb.cnt + cb.k, cb.r, rows);
      cb.k += rows;
    } else {
      w.Gap();
      if (end == kNoRow) break;
    }
    y = end + 1;
  }
}

// The pixel set of (a mode b) into out as bands, for operands prepared as
// kFast. Returns false on a limit; may throw bad_alloc.
bool FastCombine(const Operand& A, const Operand& B, int mode, CRasterArray* out) {
  long long top, bottom;
  const bool hasA = A.n > 0, hasB = B.n > 0;
  switch (mode) {
    case RST_AND:
      if (!hasA || !hasB) return true;
      top = std::max(A.top, B.top);
      bottom = std::min(A.bottom, B.bottom);
      break;
    case RST_DIFF:
      if (!hasA) return true;
      top = A.top;
      bottom = A.bottom;
      break;
    default:
      if (!hasA && !hasB) return true;
      top = std::min(hasA ? A.top : B.top, hasB ? B.top : A.top);
      bottom = std::max(hasA ? A.bottom : B.bottom, hasB ? B.bottom : A.bottom);
      break;
  }
  if (top > bottom) return true;
  RowWriter w;
  if (!w.Init(A.runs + B.runs, std::min(bottom - top + 1, A.rows + B.rows)))
    return !Fail("CRstLines: the regions are too large to combine");
  switch (mode) {
    case RST_AND: FastRows<RST_AND>(A, B, top, bottom, w); break;
    case RST_OR: FastRows<RST_OR>(A, B, top, bottom, w); break;
    case RST_DIFF: FastRows<RST_DIFF>(A, B, top, bottom, w); break;
    default: FastRows<RST_XOR>(A, B, top, bottom, w); break;
  }
  w.Flush(out);
  return true;
}

// The two-piece forms: checks, release of out, sweep; out is emptied on
// any failure after the checks.
BOOL PiecePair(const RSRLINE* a, const RSRLINE* b, CRasterArray* out, int mode, const char* name) {
  if (!a || !b || !out) return FALSE;
  Operand oa, ob;
  const Prep pa = PreparePiece(a, oa), pb = PreparePiece(b, ob);
  if (pa == kInvalid || pb == kInvalid) {
    ASSERT(pa != kInvalid && pb != kInvalid);
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
      // a first. Otherwise the union is merged row by row, and like every
      // other result it holds one piece per band of non-empty rows: a gap
      // of empty rows (b starting below a's end, or empty rows inside an
      // operand) ends a piece. A rule of this library: one piece spanning
      // such a gap could hold more rows than runs, which no valid piece
      // may, and every result must be valid.
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
    bool ok;
    if (pa == kFast && pb == kFast) {
      ok = FastCombine(oa, ob, mode, out);
    } else {
      RowSource sa, sb;
      bool hasA = sa.Init(a), hasB = sb.Init(b);
      ok = SweepSources(sa, hasA, sb, hasB, mode, out);
    }
    if (!ok) {
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
  Operand oa, ob;
  Prep pa = PrepareOperand(a, oa), pb = PrepareOperand(b, ob);
  if (pa == kInvalid || pb == kInvalid) {
    ASSERT(pa != kInvalid && pb != kInvalid);
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
      oa = Operand();
      ob = Operand();
      pa = PrepareOperand(a, oa);
      pb = PrepareOperand(b, ob);
    }
    bool ok;
    if (pa == kFast && pb == kFast) {
      ok = FastCombine(oa, ob, mode, &result);
    } else {
      RowSource sa, sb;
      bool hasA = sa.Init(a), hasB = sb.Init(b);
      ok = SweepSources(sa, hasA, sb, hasB, mode, &result);
    }
    if (!ok) {
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
