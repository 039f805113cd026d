// crstlines_kernels.cpp - the per-mode boolean kernels and the sweep that
// combines two clean operands (every piece well-formed, no two pieces of
// one operand sharing a row) row by row.
//
// A row of a clean operand is a row of exactly one piece, already sorted
// and merged, so the sweep walks row and count pointers directly, combines
// each pair of rows with the kernel of its mode, and writes straight into
// the row writer's blocks, sized once from upper bounds (a row of a mode b
// never holds more than na + nb runs), so no capacity test or growth
// happens per run. The kernels are tested against a brute-force pixel
// model (CRstLinesBoolean in test_crstlines).
//
// Relies on crstlines_core.h (operands, row writer).
#include "crstlines_kernels.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

// The sweep is built twice on x86-64 Linux with GCC, for AVX2 and for the
// baseline, and the loader picks one (bench_region, BM_Combine_Ours). Not
// under the sanitizers: the loader runs the picker while relocating, before
// their runtimes start, and ThreadSanitizer's build of it crashes there.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__linux__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TQ_SWEEP_CLONES __attribute__((target_clones("avx2", "default"), flatten))
#else
#define TQ_SWEEP_CLONES
#endif

namespace tqrgn {
namespace {

const long long kNoRow = INT64_MAX;

// Short copies are the common case (a row's runs before or after the
// stretch a kernel changes): a loop of 8-byte moves, no library call.
inline RSRUN* CopyRuns(const RSRUN* r, int n, RSRUN* o) {
  if (n > 16) {
    std::memcpy(o, r, (size_t)n * sizeof(RSRUN));
    return o + n;
  }
  for (int i = 0; i < n; ++i) o[i] = r[i];
  return o + n;
}

// Row kernels: sorted, merged rows in, a sorted, merged row out at o; the
// caller guarantees room for na + nb runs. Branch-free loops store a
// candidate run and advance the output only when it counts; such a store
// never lands past the row's final end, which is within the room.

// Two counts over a sorted row r[0..n): c1, the runs whose x1 is below t1
// (the first run starting after t1 - 1), and c2, the runs whose x2 is
// below t2 (the first run ending at or after t2). On rows of typical
// length one branch-free pass, two runs a step with the counts kept in a
// vector, beats two searches whose branches mispredict half the time;
// long rows are searched. Measured by bench_region (BM_Combine_Ours/1 and
// /2: a star of 17 runs a row against a one-run row).
const int kCountLimit = 64;

inline int Clamp(long long t) { return t < INT_MIN ? INT_MIN : t > INT_MAX ? INT_MAX : (int)t; }

// The counts of the previous row of a sweep: the rows of a region change
// little from one to the next, so they are usually right again, which two
// comparisons each confirm (bench_region, BM_Combine_Ours: a star's rows
// against a polygon's).
struct Hint {
  int c1 = 0, c2 = 0;
};

inline void CountPairDirect(const RSRUN* r, int n, long long t1, long long t2, int& c1, int& c2);

inline void CountPair(const RSRUN* r, int n, long long t1, long long t2, int& c1, int& c2, Hint& h) {
  if (t1 > INT_MIN && t1 <= INT_MAX && t2 > INT_MIN && t2 <= INT_MAX && h.c1 <= n && h.c2 <= n) {
    const int v1 = (int)t1, v2 = (int)t2, a = h.c1, b = h.c2;
    const bool okA = (a == 0 || r[a - 1].x1 < v1) && (a == n || r[a].x1 >= v1);
    const bool okB = (b == 0 || r[b - 1].x2 < v2) && (b == n || r[b].x2 >= v2);
    if (okA && okB) {
      c1 = a;
      c2 = b;
      return;
    }
  }
  CountPairDirect(r, n, t1, t2, c1, c2);
  h.c1 = c1;
  h.c2 = c2;
}

inline void CountPairDirect(const RSRUN* r, int n, long long t1, long long t2, int& c1, int& c2) {
  const int v1 = Clamp(t1), v2 = Clamp(t2);
  if (n > kCountLimit) {
    c1 = (int)(std::partition_point(r, r + n, [v1](const RSRUN& q) { return q.x1 < v1; }) - r);
    c2 = (int)(std::partition_point(r, r + n, [v2](const RSRUN& q) { return q.x2 < v2; }) - r);
  } else {
    // Generic vectors: four runs a step where the sweep is built for AVX2
    // (CombineClean's clones), two steps of two elsewhere.
    typedef int V8 __attribute__((vector_size(32)));
    const V8 t = {v1, v2, v1, v2, v1, v2, v1, v2};
    V8 acc = {0, 0, 0, 0, 0, 0, 0, 0};
    int k = 0;
    for (; k + 4 <= n; k += 4) {
      V8 x;
      std::memcpy(&x, r + k, sizeof x);
      acc -= x < t;
    }
    typedef int V4 __attribute__((vector_size(16)));
    V4 h = __builtin_shufflevector(acc, acc, 0, 1, 2, 3) + __builtin_shufflevector(acc, acc, 4, 5, 6, 7);
    if (k + 2 <= n) {
      V4 x;
      std::memcpy(&x, r + k, sizeof x);
      h -= x < __builtin_shufflevector(t, t, 0, 1, 2, 3);
      k += 2;
    }
    h += __builtin_shufflevector(h, h, 2, 3, 0, 1);
    c1 = h[0];
    c2 = h[1];
    for (; k < n; ++k) {
      c1 += r[k].x1 < v1;
      c2 += r[k].x2 < v2;
    }
  }
  // A threshold past the int range counts every run.
  if (t1 > INT_MAX) c1 = n;
  if (t2 > INT_MAX) c2 = n;
}

// r clipped to [L, R].
inline RSRUN* ClipRow(const RSRUN* r, int n, int L, int R, RSRUN* o, Hint& h) {
  int k, i;
  CountPair(r, n, (long long)R + 1, L, k, i, h);
  if (k <= i) return o;
  RSRUN* o0 = o;
  o = CopyRuns(r + i, k - i, o);
  o0->x1 = std::max(o0->x1, L);
  o[-1].x2 = std::min(o[-1].x2, R);
  return o;
}

// r minus [L, R]: runs i..k-1 meet [L, R]; the first may stick out on the
// left, the last on the right.
inline RSRUN* DiffOne(const RSRUN* r, int n, int L, int R, RSRUN* o, Hint& h) {
  int k, i;
  CountPair(r, n, (long long)R + 1, L, k, i, h);
  o = CopyRuns(r, i, o);
  if (k <= i) return CopyRuns(r + i, n - i, o);
  if (r[i].x1 < L) *o++ = RSRUN{r[i].x1, L - 1};
  if (r[k - 1].x2 > R) *o++ = RSRUN{R + 1, r[k - 1].x2};
  return CopyRuns(r + k, n - k, o);
}

// r united with [L, R]: runs i..k-1 touch or meet it and merge into one.
inline RSRUN* OrOne(const RSRUN* r, int n, int L, int R, RSRUN* o, Hint& h) {
  int k, i;
  CountPair(r, n, (long long)R + 2, (long long)L - 1, k, i, h);
  o = CopyRuns(r, i, o);
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

inline RSRUN* AndRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o, Hint& h) {
  if (na == 0 || nb == 0 || a[na - 1].x2 < b[0].x1 || b[nb - 1].x2 < a[0].x1) return o;
  if (nb == 1) return ClipRow(a, na, b[0].x1, b[0].x2, o, h);
  if (na == 1) return ClipRow(b, nb, a[0].x1, a[0].x2, o, h);
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

// The rest of a row after cur: runs joining cur merge into it, the others
// are copied as they are (they are apart from each other already).
inline RSRUN* FlushRest(Packed pc, const RSRUN* r, int n, RSRUN* o) {
  RSRUN cur{X1(pc), X2(pc)};
  int i = 0;
  while (i < n && (long long)r[i].x1 <= (long long)cur.x2 + 1) cur.x2 = std::max(cur.x2, r[i++].x2);
  *o++ = cur;
  return CopyRuns(r + i, n - i, o);
}

inline RSRUN* OrRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o, Hint& h) {
  if (nb == 0) return CopyRuns(a, na, o);
  if (na == 0) return CopyRuns(b, nb, o);
  if ((long long)a[na - 1].x2 + 1 < b[0].x1) return CopyRuns(b, nb, CopyRuns(a, na, o));
  if ((long long)b[nb - 1].x2 + 1 < a[0].x1) return CopyRuns(a, na, CopyRuns(b, nb, o));
  if (nb == 1) return OrOne(a, na, b[0].x1, b[0].x2, o, h);
  if (na == 1) return OrOne(b, nb, a[0].x1, a[0].x2, o, h);
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

inline RSRUN* DiffRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o, Hint& h) {
  if (na == 0) return o;
  if (nb == 0 || a[na - 1].x2 < b[0].x1 || b[nb - 1].x2 < a[0].x1) return CopyRuns(a, na, o);
  if (nb == 1) return DiffOne(a, na, b[0].x1, b[0].x2, o, h);
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

// r xor [L, R]: runs i..k-1 meet [L, R]; inside it the gaps between them
// remain, outside it their parts that stick out; everything joins where
// it touches.
inline RSRUN* XorOne(const RSRUN* r, int n, int L, int R, RSRUN* o, Hint& h) {
  int k, i;
  CountPair(r, n, (long long)R + 1, L, k, i, h);
  RSRUN* const row0 = o;
  o = CopyRuns(r, i, o);
  long long cur = L;  // where the next gap inside [L, R] may start
  if (k > i && r[i].x1 < L) EmitJoin(row0, o, r[i].x1, L - 1);
  for (int j = i; j < k; ++j) {
    const long long a = std::max(r[j].x1, L);
    if (cur < a) EmitJoin(row0, o, (int)cur, (int)(a - 1));
    cur = (long long)std::min(r[j].x2, R) + 1;
  }
  if (cur <= R) EmitJoin(row0, o, (int)cur, R);
  if (k > i && r[k - 1].x2 > R) EmitJoin(row0, o, R + 1, r[k - 1].x2);
  if (k < n) {
    EmitJoin(row0, o, r[k].x1, r[k].x2);
    o = CopyRuns(r + k + 1, n - k - 1, o);
  }
  return o;
}

inline RSRUN* XorRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o, Hint& h) {
  if (nb == 0) return CopyRuns(a, na, o);
  if (na == 0) return CopyRuns(b, nb, o);
  if ((long long)a[na - 1].x2 + 1 < b[0].x1) return CopyRuns(b, nb, CopyRuns(a, na, o));
  if ((long long)b[nb - 1].x2 + 1 < a[0].x1) return CopyRuns(a, na, CopyRuns(b, nb, o));
  if (nb == 1) return XorOne(a, na, b[0].x1, b[0].x2, o, h);
  if (na == 1) return XorOne(b, nb, a[0].x1, a[0].x2, o, h);
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
inline RSRUN* ModeRow(const RSRUN* a, int na, const RSRUN* b, int nb, RSRUN* o, Hint& h) {
  if (MODE == RST_AND) return AndRow(a, na, b, nb, o, h);
  if (MODE == RST_OR) return OrRow(a, na, b, nb, o, h);
  if (MODE == RST_DIFF) return DiffRow(a, na, b, nb, o, h);
  return XorRow(a, na, b, nb, o, h);
}

// Row cursor over an operand's slabs.
struct Cursor {
  const Operand* op;
  size_t s = 0;        // current slab
  long long k = 0;     // row index in it
  const RSRUN* r = nullptr;  // runs of row k
  explicit Cursor(const Operand* o) : op(o) {
    if (o->Count()) r = (*o)[0].runs;
  }
  // Moves to the slab holding y or the first one below it; true when y
  // is covered. y never decreases.
  bool Seek(long long y) {
    while (s < op->Count() && (*op)[s].bottom < y) {
      ++s;
      k = 0;
      if (s < op->Count()) r = (*op)[s].runs;
    }
    if (s >= op->Count() || (*op)[s].top > y) return false;
    const Slab& sl = (*op)[s];
    for (const long long want = y - sl.top; k < want; ++k) r += sl.cnt[k];
    return true;
  }
  // Last row of the current stretch starting at y: the slab's bottom when
  // covered, else the row before the next slab (INT64_MAX when none).
  long long StretchEnd(bool covered) const {
    if (s >= op->Count()) return kNoRow;
    return covered ? (*op)[s].bottom : (*op)[s].top - 1;
  }
};

template <int MODE>
void FastRows(const Operand& A, const Operand& B, long long top, long long bottom, RowWriter& w) {
  Cursor ca(&A), cb(&B);
  Hint hint;
  long long y = top;
  while (y <= bottom) {
    const bool inA = ca.Seek(y), inB = cb.Seek(y);
    const long long end = std::min(bottom, std::min(ca.StretchEnd(inA), cb.StretchEnd(inB)));
    const long long rows = end - y + 1;
    if (inA && inB) {
      const Slab& sa = A[ca.s];
      const Slab& sb = B[cb.s];
      const int* na = sa.cnt + ca.k;
      const int* nb = sb.cnt + cb.k;
      const RSRUN* ra = ca.r;
      const RSRUN* rb = cb.r;
      for (long long k = 0; k < rows; ++k) {
        w.EndRow(y + k, ModeRow<MODE>(ra, na[k], rb, nb[k], w.Out(), hint));
        ra += na[k];
        rb += nb[k];
      }
      ca.r = ra;
      cb.r = rb;
      ca.k += rows;
      cb.k += rows;
    } else if (inA && MODE != RST_AND) {
      const Slab& sa = A[ca.s];
      w.CopyRows(y, sa.cnt + ca.k, ca.r, rows);
      ca.k += rows;
    } else if (inB && (MODE == RST_OR || MODE == RST_XOR)) {
      const Slab& sb = B[cb.s];
      w.CopyRows(y, sb.cnt + cb.k, cb.r, rows);
      cb.k += rows;
    } else {
      w.Gap();
      if (end == kNoRow) break;
    }
    y = end + 1;
  }
}


}  // namespace

TQ_SWEEP_CLONES
void CombineClean(const Operand& A, const Operand& B, int mode, PieceList& out) {
  long long top, bottom;
  const bool hasA = !A.Empty(), hasB = !B.Empty();
  switch (mode) {
    case RST_AND:
      if (!hasA || !hasB) return;
      top = std::max(A.Top(), B.Top());
      bottom = std::min(A.Bottom(), B.Bottom());
      break;
    case RST_DIFF:
      if (!hasA) return;
      top = A.Top();
      bottom = A.Bottom();
      break;
    default:
      if (!hasA && !hasB) return;
      top = std::min(hasA ? A.Top() : B.Top(), hasB ? B.Top() : A.Top());
      bottom = std::max(hasA ? A.Bottom() : B.Bottom(), hasB ? B.Bottom() : A.Bottom());
      break;
  }
  if (top > bottom) return;
  RowWriter w;
  w.Init(CheckedCount(A.Runs() + B.Runs()), std::min(bottom - top + 1, A.Rows() + B.Rows()));
  switch (mode) {
    case RST_AND: FastRows<RST_AND>(A, B, top, bottom, w); break;
    case RST_OR: FastRows<RST_OR>(A, B, top, bottom, w); break;
    case RST_DIFF: FastRows<RST_DIFF>(A, B, top, bottom, w); break;
    default: FastRows<RST_XOR>(A, B, top, bottom, w); break;
  }
  w.Flush(out);
}

}  // namespace tqrgn
