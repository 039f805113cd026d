// cloopgrpopt.cpp - CLoopGrpOpt: the life of loop records and groups,
// copies, moves, combinations, flattening and drawing; CSvgDC.
//
// Every block comes from the memory manager. Operations build what they
// hand out completely before installing it, so that a failure frees what
// was made and leaves the caller's records as they were. Relies on the
// tracing (cloopgrpopt_trace.cpp), the region engine's piece operations and
// AMathOpt::GetBorderRect; the creators that build regions first live in
// cloopgrpopt_build.cpp.
#include "tqbase/cloopgrpopt.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "crstlines_core.h"
#include "tqbase/amathopt.h"
#include "tqbase/crstlines.h"
#include "tqbase/memorymanage.h"

using namespace tqrgn;

namespace {

const char kLoopOp[] = "CLoopGrpOpt";

// A memory-manager block of count elements of T (at least one byte);
// null and a recorded failure when too large or out of memory.
template <class T>
T* NewBlock(long long count, UINT flags = GMEM_FIXED) {
  if (count < 0 || count > kMaxItems) {
    Fail(kLoopOp, kTooLarge);
    return nullptr;
  }
  const size_t bytes = (size_t)count * sizeof(T);
  T* p = static_cast<T*>(AGlobalAllocPtr(flags, (DWORD)(bytes ? bytes : 1)));
  if (!p) Fail(kLoopOp, kNoMemory);
  return p;
}

void FreeBlock(void* p) {
  if (p) AGlobalFreePtr(p);
}

void ClearLoop(ANLOOP* l) {
  l->nLoops = l->nPoints = 0;
  l->pnLoopSizes = nullptr;
  l->pPoints = nullptr;
  SetRectEmpty(&l->rcBox);
}

// The records of a group, locked for the lifetime of the view.
class Locked {
public:
  explicit Locked(const ANLOOPGRP* g) : m_h(g && g->nCount > 0 ? g->hLoops : nullptr) {
    if (m_h) m_p = static_cast<ANLOOP*>(AGlobalLock(m_h));
  }
  ~Locked() {
    if (m_p) AGlobalUnlock(m_h);
  }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;
  ANLOOP* get() const { return m_p; }

private:
  HGLOBAL m_h;
  ANLOOP* m_p = nullptr;
};

// Fills dst (empty) with a deep copy of src's blocks, counts and box.
BOOL CopyInto(ANLOOP* dst, const ANLOOP& src) {
  ClearLoop(dst);
  if (src.nLoops < 1 || src.nPoints < 1 || !src.pPoints || !src.pnLoopSizes) {
    dst->rcBox = src.rcBox;
    return TRUE;
  }
  POINT* p = NewBlock<POINT>(src.nPoints);
  int* s = p ? NewBlock<int>(src.nLoops) : nullptr;
  if (!s) {
    FreeBlock(p);
    return FALSE;
  }
  std::memcpy(p, src.pPoints, (size_t)src.nPoints * sizeof(POINT));
  std::memcpy(s, src.pnLoopSizes, (size_t)src.nLoops * sizeof(int));
  dst->pPoints = p;
  dst->pnLoopSizes = s;
  dst->nPoints = src.nPoints;
  dst->nLoops = src.nLoops;
  dst->rcBox = src.rcBox;
  return TRUE;
}

// A new group record holding count zeroed ANLOOP records (a movable
// block); null on failure.
ANLOOPGRP* NewGroup(int count) {
  if (count < 0 || count > kMaxItems / (long long)sizeof(ANLOOP)) {
    Fail(kLoopOp, kTooLarge);
    return nullptr;
  }
  ANLOOPGRP* g = NewBlock<ANLOOPGRP>(1, GPTR);
  if (!g || count == 0) return g;
  g->hLoops = AGlobalAlloc(GHND, (DWORD)((size_t)count * sizeof(ANLOOP)));
  if (!g->hLoops) {
    Fail(kLoopOp, kNoMemory);
    FreeBlock(g);
    return nullptr;
  }
  g->nCount = count;
  return g;
}

bool Fits(long long v) { return v >= INT_MIN && v <= INT_MAX; }

}  // namespace

// ---- the invariants --------------------------------------------------------------------

BOOL CLoopGrpOpt::IsValid(const ANLOOP* l) {
  if (!l || l->nLoops < 0 || l->nPoints < 0) return FALSE;
  if ((l->nLoops == 0) != (l->pnLoopSizes == nullptr) || (l->nPoints == 0) != (l->pPoints == nullptr)) return FALSE;
  long long sum = 0, at = 0;
  for (int i = 0; i < l->nLoops; ++i) {
    const int n = l->pnLoopSizes[i];
    if (n < 2 || at + n > l->nPoints) return FALSE;
    const POINT& a = l->pPoints[at];
    const POINT& b = l->pPoints[at + n - 1];
    if (a.x != b.x || a.y != b.y) return FALSE;
    at += n;
    sum += n;
  }
  if (sum != l->nPoints) return FALSE;
  const RECT& r = l->rcBox;
  if (r.left == 0 && r.top == 0 && r.right == 0 && r.bottom == 0) return TRUE;
  RECT bound;
  return AMathOpt::GetBorderRect(l->pPoints, l->nPoints, bound) && EqualRect(&bound, &r);
}

BOOL CLoopGrpOpt::IsValid(const ANLOOPGRP* g) {
  if (!g || g->nCount < 0) return FALSE;
  if (g->nCount == 0) return g->hLoops == nullptr;
  if (!g->hLoops || GlobalSize(g->hLoops) < (size_t)g->nCount * sizeof(ANLOOP)) return FALSE;
  Locked rec(g);
  if (!rec.get()) return FALSE;
  for (int i = 0; i < g->nCount; ++i)
    if (!IsValid(&rec.get()[i])) return FALSE;
  return TRUE;
}

// ---- loops of one piece ---------------------------------------------------------------

ANLOOP* CLoopGrpOpt::CreateAnloop() {
  ANLOOP* l = NewBlock<ANLOOP>(1, GPTR);
  if (l) ClearLoop(l);
  return l;
}

ANLOOP* CLoopGrpOpt::CreateAnloop(const RSRLINE* piece) {
  if (!piece) return nullptr;
  ANLOOP* l = CreateAnloop();
  if (!l) return nullptr;
  if (!RasterToPts(piece, l->pPoints, l->nPoints, l->pnLoopSizes, l->nLoops)) {
    DeleteAnloop(l);
    return nullptr;
  }
  RGN_VALIDATE(IsValid(l));
  return l;
}

ANLOOP* CLoopGrpOpt::CreateAnloop(ANLOOP* src) {
  if (!src) return nullptr;
  RGN_VALIDATE(IsValid(src));
  ANLOOP* l = CreateAnloop();
  if (l && !CopyInto(l, *src)) DeleteAnloop(l);
  return l;
}

ANLOOP* CLoopGrpOpt::CreateAnloop(const POINT* pts, const int* sizes, int nLoops) {
  if (!pts || !sizes || nLoops < 1) return nullptr;
  long long total = 0;
  for (int i = 0; i < nLoops; ++i) {
    if (sizes[i] < 1) return nullptr;
    total += sizes[i];
  }
  // Room for a closing point per loop that needs one.
  long long at = 0, closing = 0;
  for (int i = 0; i < nLoops; ++i) {
    const POINT& a = pts[at];
    const POINT& b = pts[at + sizes[i] - 1];
    closing += (a.x != b.x || a.y != b.y);
    at += sizes[i];
  }
  if (total + closing > INT_MAX) {
    Fail(kLoopOp, kTooLarge);
    return nullptr;
  }
  ANLOOP* l = CreateAnloop();
  if (!l) return nullptr;
  POINT* p = NewBlock<POINT>(total + closing);
  int* s = p ? NewBlock<int>(nLoops) : nullptr;
  if (!s) {
    FreeBlock(p);
    DeleteAnloop(l);
    return nullptr;
  }
  long long in = 0, out = 0;
  for (int i = 0; i < nLoops; ++i) {
    std::memcpy(p + out, pts + in, (size_t)sizes[i] * sizeof(POINT));
    long long n = sizes[i];
    if (p[out].x != p[out + n - 1].x || p[out].y != p[out + n - 1].y) p[out + n++] = p[out];
    s[i] = (int)n;
    in += sizes[i];
    out += n;
  }
  l->pPoints = p;
  l->pnLoopSizes = s;
  l->nPoints = (int)out;
  l->nLoops = nLoops;
  AMathOpt::GetBorderRect(p, l->nPoints, l->rcBox);
  if (!IsValid(l)) {  // a loop of one point
    DeleteAnloop(l);
    return nullptr;
  }
  return l;
}

BOOL CLoopGrpOpt::CopyAnloop(ANLOOP* dst, const ANLOOP* src) {
  if (!dst || !src || dst == src) return FALSE;
  if (!src->pPoints || !src->pnLoopSizes || !dst->pPoints || !dst->pnLoopSizes) return FALSE;
  if (src->nPoints < 0 || src->nLoops < 0) return FALSE;
  // The caller sizes dst; a block too small is refused, not overrun.
  const size_t pointRoom = GlobalSize(GlobalHandle(dst->pPoints));
  const size_t sizeRoom = GlobalSize(GlobalHandle(dst->pnLoopSizes));
  if (pointRoom < (size_t)src->nPoints * sizeof(POINT) || sizeRoom < (size_t)src->nLoops * sizeof(int)) {
    ASSERT(!"CLoopGrpOpt::CopyAnloop: the destination's blocks are too small");
    g_Error.SetLastError("%s", "CLoopGrpOpt::CopyAnloop: the destination's blocks are too small");
    return FALSE;
  }
  std::memcpy(dst->pPoints, src->pPoints, (size_t)src->nPoints * sizeof(POINT));
  std::memcpy(dst->pnLoopSizes, src->pnLoopSizes, (size_t)src->nLoops * sizeof(int));
  dst->nPoints = src->nPoints;
  dst->nLoops = src->nLoops;
  dst->rcBox = src->rcBox;
  return TRUE;
}

void CLoopGrpOpt::ReleaseAnloop(ANLOOP* l) {
  if (!l) return;
  FreeBlock(l->pPoints);
  FreeBlock(l->pnLoopSizes);
  ClearLoop(l);
}

void CLoopGrpOpt::DeleteAnloop(ANLOOP*& l) {
  if (!l) return;
  ReleaseAnloop(l);
  FreeBlock(l);
  l = nullptr;
}

// ---- groups ------------------------------------------------------------------------------

ANLOOPGRP* CLoopGrpOpt::CreateAnloopGrp() { return NewGroup(0); }

ANLOOPGRP* CLoopGrpOpt::CreateAnloopGrp(const CRasterArray* arr) {
  if (CRstLines::IsEmpty(arr)) return nullptr;
  ANLOOPGRP* g = NewGroup(arr->GetSize());
  if (!g) return nullptr;
  bool ok = true;
  {
    Locked rec(g);
    ok = rec.get() != nullptr;
    for (int i = 0; ok && i < arr->GetSize(); ++i) {
      ANLOOP& l = rec.get()[i];
      ok = RasterToPts(arr->GetAt(i), l.pPoints, l.nPoints, l.pnLoopSizes, l.nLoops) &&
           AMathOpt::GetBorderRect(l.pPoints, l.nPoints, l.rcBox);
    }
  }
  if (!ok) {
    DeleteAnloopGrp(g);
    return nullptr;
  }
  g->rcBox = CRstLines::GetBox(arr);
  RGN_VALIDATE(IsValid(g));
  return g;
}

ANLOOPGRP* CLoopGrpOpt::CreateAnloopGrp(const ANLOOPGRP* src) {
  if (!src) return nullptr;
  ANLOOPGRP* g = CreateAnloopGrp();
  if (g && !CopyAnloopGrp(g, src)) DeleteAnloopGrp(g);
  return g;
}

BOOL CLoopGrpOpt::CopyAnloopGrp(ANLOOPGRP* dst, const ANLOOPGRP* src) {
  if (!dst || !src) return FALSE;
  if (dst == src) return TRUE;
  RGN_VALIDATE(IsValid(src) && IsValid(dst));
  const int n = IsEmpty(src) ? 0 : src->nCount;
  ANLOOPGRP* copy = NewGroup(n);
  if (!copy) return FALSE;
  bool ok = true;
  {
    Locked from(src), to(copy);
    if (n > 0 && (!from.get() || !to.get())) ok = false;
    for (int i = 0; ok && i < n; ++i) ok = CopyInto(&to.get()[i], from.get()[i]) != FALSE;
  }
  if (!ok) {
    DeleteAnloopGrp(copy);
    return FALSE;
  }
  copy->rcBox = src->rcBox;
  ReleaseAnloopGrp(dst);
  *dst = *copy;
  FreeBlock(copy);
  RGN_VALIDATE(IsValid(dst));
  return TRUE;
}

BOOL CLoopGrpOpt::MoveAnloopGrp(ANLOOPGRP* g, int dx, int dy) {
  if (!g) return FALSE;
  if (dx == 0 && dy == 0) return TRUE;
  RGN_VALIDATE(IsValid(g));
  auto movable = [&](const RECT& r) {
    return Fits((long long)r.left + dx) && Fits((long long)r.right + dx) && Fits((long long)r.top + dy) &&
           Fits((long long)r.bottom + dy);
  };
  Locked rec(g);
  if (IsEmpty(g) || !rec.get()) {
    if (!movable(g->rcBox)) return Fail("CLoopGrpOpt::MoveAnloopGrp", kOutOfRange);
    OffsetRect(&g->rcBox, dx, dy);
    return TRUE;
  }
  // Every point first, so that a refused move changes nothing.
  bool ok = movable(g->rcBox);
  for (int i = 0; ok && i < g->nCount; ++i) {
    const ANLOOP& l = rec.get()[i];
    RECT bound;
    ok = movable(l.rcBox) && (l.nPoints == 0 || (AMathOpt::GetBorderRect(l.pPoints, l.nPoints, bound) && movable(bound)));
  }
  if (!ok) return Fail("CLoopGrpOpt::MoveAnloopGrp", kOutOfRange);
  for (int i = 0; i < g->nCount; ++i) {
    ANLOOP& l = rec.get()[i];
    for (int k = 0; k < l.nPoints; ++k) {
      l.pPoints[k].x += dx;
      l.pPoints[k].y += dy;
    }
    const RECT& b = l.rcBox;
    if (b.left || b.top || b.right || b.bottom) OffsetRect(&l.rcBox, dx, dy);  // all zero: no box
  }
  OffsetRect(&g->rcBox, dx, dy);
  RGN_VALIDATE(IsValid(g));
  return TRUE;
}

void CLoopGrpOpt::ReleaseAnloopGrp(ANLOOPGRP* g) {
  if (!g) return;
  if (g->hLoops) {
    {
      Locked rec(g);
      if (rec.get())
        for (int i = 0; i < g->nCount; ++i) ReleaseAnloop(&rec.get()[i]);
    }
    AGlobalFree(g->hLoops);
  }
  g->hLoops = nullptr;
  g->nCount = 0;
  SetRectEmpty(&g->rcBox);
}

void CLoopGrpOpt::DeleteAnloopGrp(ANLOOPGRP*& g) {
  if (!g) return;
  ReleaseAnloopGrp(g);
  FreeBlock(g);
  g = nullptr;
}

BOOL CLoopGrpOpt::IsEmpty(const ANLOOPGRP* g) { return !g || !g->hLoops || g->nCount < 1; }

BOOL CLoopGrpOpt::IsEqual(const ANLOOPGRP* a, const ANLOOPGRP* b) {
  if (a == b) return TRUE;
  if (!a || !b) return FALSE;
  if (IsEmpty(a) != IsEmpty(b) || !EqualRect(&a->rcBox, &b->rcBox)) return FALSE;
  if (IsEmpty(a)) return TRUE;
  if (a->nCount != b->nCount) return FALSE;
  Locked ra(a), rb(b);
  if (!ra.get() || !rb.get()) return FALSE;
  for (int i = 0; i < a->nCount; ++i) {
    const ANLOOP& x = ra.get()[i];
    const ANLOOP& y = rb.get()[i];
    if (x.nLoops != y.nLoops || x.nPoints != y.nPoints || !EqualRect(&x.rcBox, &y.rcBox)) return FALSE;
    if (x.nLoops && std::memcmp(x.pnLoopSizes, y.pnLoopSizes, (size_t)x.nLoops * sizeof(int))) return FALSE;
    if (x.nPoints && std::memcmp(x.pPoints, y.pPoints, (size_t)x.nPoints * sizeof(POINT))) return FALSE;
  }
  return TRUE;
}

// ---- flattening and drawing --------------------------------------------------------------

namespace {
// Calls fn(points, sizes, nLoops) for every record with loops; false when
// the group cannot be read.
template <class Fn>
bool ForEachRecord(const ANLOOPGRP* g, Fn fn) {
  if (CLoopGrpOpt::IsEmpty(g)) return true;
  Locked rec(g);
  if (!rec.get()) return false;
  for (int i = 0; i < g->nCount; ++i) {
    const ANLOOP& l = rec.get()[i];
    if (l.nLoops < 1 || l.nPoints < 1 || !l.pPoints || !l.pnLoopSizes) continue;
    fn(l.pPoints, l.pnLoopSizes, l.nLoops, l.nPoints);
  }
  return true;
}
}  // namespace

BOOL CLoopGrpOpt::GetPolyPolygon(const ANLOOPGRP* g, POINT*& pts, int*& sizes, int& nLoops) {
  pts = nullptr;
  sizes = nullptr;
  nLoops = 0;
  if (!g) return FALSE;
  RGN_VALIDATE(IsValid(g));
  long long points = 0, loops = 0;
  if (!ForEachRecord(g, [&](const POINT*, const int*, int n, int np) {
        loops += n;
        points += np;
      }))
    return FALSE;
  if (loops == 0) return TRUE;
  if (points > INT_MAX || loops > INT_MAX) return Fail("CLoopGrpOpt::GetPolyPolygon", kTooLarge);
  POINT* p = NewBlock<POINT>(points);
  int* s = p ? NewBlock<int>(loops) : nullptr;
  if (!s) {
    FreeBlock(p);
    return FALSE;
  }
  long long ap = 0, as = 0;
  ForEachRecord(g, [&](const POINT* lp, const int* ls, int n, int np) {
    std::memcpy(p + ap, lp, (size_t)np * sizeof(POINT));
    std::memcpy(s + as, ls, (size_t)n * sizeof(int));
    ap += np;
    as += n;
  });
  pts = p;
  sizes = s;
  nLoops = (int)loops;
  return TRUE;
}

BOOL CLoopGrpOpt::GetPolyPolygon(const ANLOOPGRP* g, CArray<POINT, POINT>& pts, CArray<int, int>& sizes) {
  if (!g) return FALSE;
  return Guarded("CLoopGrpOpt::GetPolyPolygon", [&] {
    CArray<POINT, POINT> p;
    CArray<int, int> s;
    if (!ForEachRecord(g, [&](const POINT* lp, const int* ls, int n, int np) {
          ReserveFor(p.vec(), (long long)p.GetSize() + np);
          ReserveFor(s.vec(), (long long)s.GetSize() + n);
          p.vec().insert(p.vec().end(), lp, lp + np);
          s.vec().insert(s.vec().end(), ls, ls + n);
        }))
      return false;
    pts.vec().swap(p.vec());
    sizes.vec().swap(s.vec());
    return true;
  });
}

void CLoopGrpOpt::DrawAnloopGrp(CDC* dc, const ANLOOPGRP* g) {
  if (!dc || !g || g->nCount < 1) return;
  ForEachRecord(g, [&](const POINT* p, const int* s, int n, int) { dc->PolyPolygon(p, s, n); });
}

// ---- CSvgDC ----------------------------------------------------------------------------------

void CSvgDC::Add(char op, int x, int y) {
  char buf[64];
  const int n = std::snprintf(buf, sizeof buf, "%s%c%.10g %.10g", m_path.IsEmpty() ? "" : " ", op, x + m_offset,
                              y + m_offset);
  if (n > 0) m_path += buf;
}

CPoint CSvgDC::MoveTo(int x, int y) {
  const CPoint old = m_pos;
  Add('M', x, y);
  m_pos = CPoint(x, y);
  return old;
}

BOOL CSvgDC::LineTo(int x, int y) {
  Add('L', x, y);
  m_pos = CPoint(x, y);
  return TRUE;
}

BOOL CSvgDC::Polygon(const POINT* pts, int count) {
  if (!pts || count < 2) return FALSE;
  MoveTo(pts[0].x, pts[0].y);
  for (int i = 1; i < count; ++i) LineTo(pts[i].x, pts[i].y);
  m_path += " Z";
  return TRUE;
}
