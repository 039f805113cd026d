// crstlines_combine.cpp - the boolean algebra of regions: AND, OR, DIFF and
// XOR of pieces and of raster arrays, and the union and difference that
// change a region in place.
//
// Results are made of new, well-formed pieces. AND, DIFF and XOR give one
// piece per band of consecutive non-empty rows. OR keeps the pieces that
// cannot meet the other operand as they are and unites only those that
// meet it (share a pixel or touch side by side), so that a region built
// one shape at a time costs what each shape touches, not what the region
// holds (bench_region: BM_Union_Ours against pixman's in-place union).
// The result's pixels are those of the mode table whatever its pieces.
//
// Relies on crstlines_core.h, the kernels and the repeat folding.
#include "crstlines_combine.h"

#include <algorithm>
#include <climits>

#include "crstlines_fold.h"
#include "crstlines_kernels.h"

using namespace tqrgn;

namespace {

// ---- which pieces meet an operand ----------------------------------------------------

// Walks the rows of a slab; rows are visited in increasing order.
struct RowCursor {
  const Slab* s;
  long long k = 0;
  long long off = 0;
  explicit RowCursor(const Slab& sl) : s(&sl) {}
  void Seek(long long row) {
    while (k < row) off += s->cnt[k++];
  }
  const RSRUN* Runs() const { return s->runs + off; }
  int Count() const { return s->cnt[k]; }
};

// True when some run of a and some run of b come within slack columns of
// each other (slack 0: share a column). Both rows sorted.
bool RowsMeet(const RSRUN* a, int na, const RSRUN* b, int nb, long long slack) {
  int i = 0, j = 0;
  while (i < na && j < nb) {
    if ((long long)a[i].x2 + slack < b[j].x1)
      ++i;
    else if ((long long)b[j].x2 + slack < a[i].x1)
      ++j;
    else
      return true;
  }
  return false;
}

// True when well-formed slabs p and q share a pixel or, with touch, when a
// pixel of one lies next to a pixel of the other (left, right, above or
// below; a diagonal contact does not count).
bool Meets(const Slab& p, const Slab& q, bool touch) {
  const long long t = touch ? 1 : 0;
  if ((long long)p.left > (long long)q.right + t || (long long)q.left > (long long)p.right + t) return false;
  const long long y0 = std::max(p.top, q.top - t), y1 = std::min(p.bottom, q.bottom + t);
  if (y0 > y1) return false;
  RowCursor cp(p), above(q), same(q), below(q);
  for (long long y = y0; y <= y1; ++y) {
    cp.Seek(y - p.top);
    const int pn = cp.Count();
    if (pn == 0) continue;
    const RSRUN* pr = cp.Runs();
    if (y >= q.top && y <= q.bottom) {
      same.Seek(y - q.top);
      if (RowsMeet(pr, pn, same.Runs(), same.Count(), t)) return true;
    }
    if (!touch) continue;
    if (y - 1 >= q.top && y - 1 <= q.bottom) {
      above.Seek(y - 1 - q.top);
      if (RowsMeet(pr, pn, above.Runs(), above.Count(), 0)) return true;
    }
    if (y + 1 >= q.top && y + 1 <= q.bottom) {
      below.Seek(y + 1 - q.top);
      if (RowsMeet(pr, pn, below.Runs(), below.Count(), 0)) return true;
    }
  }
  return false;
}

// The pieces of region that meet the clean operand op, by index
// (ascending). A candidate (its box within reach of op's) that is not
// well-formed counts as meeting, so that uniting or subtracting rebuilds
// it well-formed. checked: every piece of region is known to be valid;
// otherwise candidates are checked and an invalid one fails the search.
// keptBox receives the union of the boxes of the other pieces.
struct Meeting {
  std::vector<size_t> hit;
  std::vector<char> clean;  // per hit: well-formed
  RECT keptBox{0, 0, 0, 0};
  bool anyKept = false;
};

bool FindMeeting(const CRasterArray& region, const Operand& op, bool touch, bool checked, Meeting& m) {
  const long long t = touch ? 1 : 0;
  long long opLeft = LLONG_MAX, opRight = LLONG_MIN;
  for (size_t i = 0; i < op.Count(); ++i) {
    opLeft = std::min<long long>(opLeft, op[i].left);
    opRight = std::max<long long>(opRight, op[i].right);
  }
  ReserveFor(m.hit, 8);
  const size_t n = (size_t)region.GetSize();
  for (size_t i = 0; i < n; ++i) {
    const RSRLINE* p = region.GetData()[i];
#if defined(__GNUC__) || defined(__clang__)
    // The pieces lie apart on the heap: fetch boxes a few pieces ahead.
    if (i + 8 < n && region.GetData()[i + 8]) __builtin_prefetch(&region.GetData()[i + 8]->rcBox);
#endif
    if (!p) continue;
    const RECT& b = p->rcBox;
    bool candidate = !op.Empty() && p->arRun.GetSize() > 0 && b.top <= op.Bottom() + t &&
                     b.bottom >= op.Top() - t && b.left <= opRight + t && b.right >= opLeft - t;
    int flags = kPieceValid | kPieceSorted;
    if (candidate && !checked) {
      flags = CheckPiece(p);
      if (!(flags & kPieceValid)) return false;
    }
    bool meets = false;
    if (candidate) {
      if (!(flags & kPieceSorted)) {
        meets = true;
      } else {
        const Slab sp = SlabOf(p);
        // op's slabs are ordered by top and share no rows: the first that
        // can reach p is found by search.
        size_t k = std::partition_point(&op[0], &op[0] + op.Count(),
                                        [&](const Slab& s) { return s.bottom < sp.top - t; }) -
                   &op[0];
        for (; k < op.Count() && op[k].top <= sp.bottom + t && !meets; ++k) meets = Meets(sp, op[k], touch);
      }
    }
    if (meets) {
      m.hit.push_back(i);
      m.clean.push_back((flags & kPieceSorted) != 0);
    } else if (!m.anyKept) {
      m.keptBox = b;
      m.anyKept = true;
    } else {
      UnionRectInclusive(m.keptBox, b);
    }
  }
  return true;
}

// ---- building the new pieces -----------------------------------------------------------

// Copies of the operand's (clean) pieces.
void CopyOperand(const Operand& op, PieceList& out) {
  out.Reserve(out.Size() + (long long)op.Count());
  for (size_t i = 0; i < op.Count(); ++i) out.Add(CopyPiece(op[i].piece));
}

// The union of the pieces of region listed in m with the operand.
void UniteWith(const CRasterArray& region, const Meeting& m, const Operand& op, PieceList& out) {
  if (m.hit.empty()) {
    CopyOperand(op, out);
    return;
  }
  if (m.hit.size() == 1 && m.clean[0]) {
    Operand a;
    a.PrepareChecked(region.GetData()[m.hit[0]]);
    CombineClean(a, op, RST_OR, out);
    return;
  }
  std::vector<Slab> slabs;
  ReserveFor(slabs, (long long)(m.hit.size() + op.Count()));
  for (size_t i : m.hit) slabs.push_back(SlabOf(region.GetData()[i]));
  for (size_t i = 0; i < op.Count(); ++i) slabs.push_back(op[i]);
  UniteSlabs(slabs, out);
}

RECT BoxOf(const Meeting& m, const PieceList& fresh) {
  RECT box = m.keptBox;
  bool any = m.anyKept;
  for (const RSRLINE* p : fresh.Get()) {
    if (!any) {
      box = p->rcBox;
      any = true;
    } else {
      UnionRectInclusive(box, p->rcBox);
    }
  }
  if (!any) SetRectEmpty(&box);
  return box;
}

// The region's pieces listed in m replaced: the new pieces of each hit
// (fresh[from[h]..from[h + 1])) where it stood, or, with from null, all of
// fresh placed by top among the pieces kept. The pieces kept do not move
// except to close or open gaps in the pointer list. Nothing throws once the
// room is reserved, so a failure leaves the region as it was.
void Commit(CRasterArray& region, const Meeting& m, PieceList& fresh, const std::vector<int>* from) {
  std::vector<RSRLINE*>& v = region.vec();
  const long long need = (long long)v.size() - (long long)m.hit.size() + fresh.Size();
  if ((long long)v.capacity() < need) ReserveFor(v, std::max(need, 2 * (long long)v.size()));
  const CRasterArray& f = fresh.Get();
  if (from) {
    for (size_t h = m.hit.size(); h-- > 0;) {
      const size_t i = m.hit[h];
      delete v[i];
      v.erase(v.begin() + (long)i);
      v.insert(v.begin() + (long)i, f.begin() + (*from)[h], f.begin() + (*from)[h + 1]);
    }
  } else {
    if (!m.hit.empty()) {
      size_t w = m.hit[0], h = 0;
      for (size_t i = m.hit[0]; i < v.size(); ++i) {
        if (h < m.hit.size() && m.hit[h] == i) {
          delete v[i];
          ++h;
        } else {
          v[w++] = v[i];
        }
      }
      v.resize(w);
    }
    for (RSRLINE* p : f) {
      const auto at = std::upper_bound(v.begin(), v.end(), p->rcBox.top, [](LONG top, const RSRLINE* q) {
        return q && top < q->rcBox.top;
      });
      v.insert(at, p);
    }
  }
  fresh.Disown();
}

}  // namespace

// ---- in place ----------------------------------------------------------------------------

// The union (unite) or the difference, in place: the pieces that meet the
// operand are found once, then either united with it (placed by top) or
// each replaced by its difference (placed where it stood).
bool tqrgn::ChangeInPlace(CRasterArray& region, const CRasterArray* operand, bool unite, RECT* box, const char* op) {
  RGN_VALIDATE(Invariant(&region, false) && Invariant(operand, false));
  const bool ok = Guarded(op, [&] {
    Operand b;
    if (!operand || !b.Prepare(operand)) return Fail(op, kInvalidRegion);
    Meeting m;
    if (!FindMeeting(region, b, unite, false, m)) return Fail(op, kInvalidRegion);
    PieceList fresh;
    std::vector<int> from;
    if (unite) {
      if (!b.Empty()) UniteWith(region, m, b, fresh);
    } else {
      ReserveFor(from, (long long)m.hit.size() + 1);
      for (size_t h = 0; h < m.hit.size(); ++h) {
        from.push_back(fresh.Size());
        Operand a;
        const RSRLINE* p = region.GetData()[m.hit[h]];
        if (m.clean[h])
          a.PrepareChecked(p);
        else if (!a.Prepare(p))
          return Fail(op, kInvalidRegion);
        CombineClean(a, b, RST_DIFF, fresh);
      }
      from.push_back(fresh.Size());
    }
    *box = BoxOf(m, fresh);
    Commit(region, m, fresh, unite ? nullptr : &from);
    return true;
  });
  RGN_VALIDATE(Invariant(&region, false));
  return ok;
}

// ---- two arrays into new pieces ----------------------------------------------------------

bool tqrgn::CombineArrays(const CRasterArray* a, const CRasterArray* b, int mode, const ACycle* cycle,
                          PieceList& out, const char* op) {
  if (mode < RST_AND || mode > RST_XOR) return Fail(op, kBadMode);
  return Guarded(op, [&] {
    Operand oa, ob;
    if (!oa.Prepare(a) || !ob.Prepare(b)) {
      ASSERT(!"invalid region operand");
      return Fail(op, kInvalidRegion);
    }
    if (mode == RST_OR) {
      // The operand of more pieces is the base whose pieces are kept or
      // copied; the other is united with the ones it meets.
      const bool swap = ob.Count() > oa.Count();
      const CRasterArray* base = swap ? b : a;
      const Operand& ot = swap ? ob : oa;
      const Operand& other = swap ? oa : ob;
      if (ot.Normalised().Size() > 0) base = &ot.Normalised().Get();
      Meeting m;
      FindMeeting(*base, other, true, true, m);
      PieceList res;
      res.Reserve((long long)base->GetSize() - (long long)m.hit.size());
      size_t h = 0;
      for (size_t i = 0; i < (size_t)base->GetSize(); ++i) {
        const RSRLINE* p = base->GetData()[i];
        if (h < m.hit.size() && m.hit[h] == i) {
          ++h;
        } else if (p && p->arRun.GetSize() > 0) {
          res.Add(CopyPiece(p));
        }
      }
      if (!other.Empty()) UniteWith(*base, m, other, res);
      res.SortByTop();  // pieces in order from top to bottom
      res.AppendTo(out);
      return true;
    }
    PieceList wa, wb;
    if (CycleUsable(cycle)) {
      // Both operands repeat over the plane; their combination is kept as
      // its one copy in the base cell.
      const CYCLEINFO* ci = cycle->CycleInfoPtr();
      WrapArray(a, ci, wa);
      WrapArray(b, ci, wb);
      oa.Prepare(&wa.Get());
      ob.Prepare(&wb.Get());
    }
    CombineClean(oa, ob, mode, out);
    return true;
  });
}

// ---- the interface -------------------------------------------------------------------------

namespace {

// The two-piece forms: a result computed aside, then out released and
// filled; out is untouched on failure.
BOOL PiecePair(const RSRLINE* a, const RSRLINE* b, CRasterArray* out, int mode, const char* op) {
  if (!a || !b || !out) return FALSE;
  return Guarded(op, [&] {
    Operand oa, ob;
    if (!oa.Prepare(a) || !ob.Prepare(b)) {
      ASSERT(!"invalid region operand");
      return Fail(op, kInvalidRegion);
    }
    PieceList res;
    if (mode == RST_OR) {
      if (a->arRun.GetSize() == 0 || a->arCount.GetSize() == 0) return false;
      if (b->arRun.GetSize() == 0 || b->arCount.GetSize() == 0) {
        res.Add(CopyPiece(a));
        res.MoveTo(out);
        return true;
      }
      // a starting two or more rows below b's last row: the two stay apart,
      // a first. Otherwise the union is merged row by row, and like every
      // other result it holds one piece per band of non-empty rows: one
      // piece spanning a gap of empty rows could hold more rows than runs,
      // which no valid piece may.
      if ((long long)a->rcBox.top > (long long)b->rcBox.top + b->arCount.GetSize()) {
        res.Reserve(2);
        res.Add(CopyPiece(a));
        res.Add(CopyPiece(b));
        res.MoveTo(out);
        return true;
      }
    }
    CombineClean(oa, ob, mode, res);
    res.MoveTo(out);
    return true;
  });
}

}  // namespace

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
  OwnedArray arr;
  if (!Guarded("CRstLines::CreateRasterArray", [&] {
        arr = NewArray();
        return true;
      }))
    return nullptr;
  BOOL ok = TRUE;
  switch (mode) {
    case RST_AND: ok = ANDPolylines(a, b, arr.get()); break;
    case RST_OR: ok = ORPolylines(a, b, arr.get()); break;
    case RST_DIFF: ok = DIFFPolylines(a, b, arr.get()); break;
    case RST_XOR: ok = XORPolylines(a, b, arr.get()); break;
    default: break;
  }
  return ok ? arr.release() : nullptr;
}

BOOL CRstLines::Create(CRasterArray* out, const CRasterArray* a, const CRasterArray* b, int mode,
                       const ACycle* cycle) {
  static const char op[] = "CRstLines::Create";
  if (!out || !a || !b) return FALSE;
  if (out == a || out == b) {
    ASSERT(out != a && out != b);
    return Fail(op, kAliased);
  }
  PieceList res;
  if (!CombineArrays(a, b, mode, cycle, res, op)) return FALSE;
  res.MoveTo(out);
  RGN_VALIDATE(Invariant(out, true));
  return TRUE;
}

int CRstLines::Combine(const CRasterArray* a, const CRasterArray* b, int mode, CRasterArray** result,
                       const ACycle* cycle) {
  if (!result) return RST_FAILED;
  *result = nullptr;
  OwnedArray arr;
  if (!Guarded("CRstLines::Combine", [&] {
        arr = NewArray();
        return true;
      })) {
    ASSERT(!"CRstLines::Combine: no memory for the result array");
    return RST_FAILED;
  }
  if (!Create(arr.get(), a, b, mode, cycle)) return RST_FAILED;
  if (arr->GetSize() == 0) return RST_EMPTY;
  *result = arr.release();
  return RST_NOTEMPTY;
}
