// acycle_situation.cpp - ACycle's situations: every copy of a point, run
// or rectangle that meets a clipping rectangle on the repeating plane, and
// whether a rectangle meets one at all.
#include "acycle_walk.h"

#include "tqbase/errorinfo.h"

using namespace tqbase::cycle;

// ---------------------------------------------------------------------------
// Situations

BOOL ACycle::GCycleSituation(POINT* p, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (p == nullptr || ci == nullptr) return FALSE;
  if (ci->onOff != 0) {
    GCalLocalPoint(*p, ci);
    return TRUE;
  }
  return p->x >= 0 && p->x < ci->width && p->y >= 0 && p->y < ci->height;
}

int ACycle::GCycleSituation(const APTLENGTH* run, POINT* starts, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (run == nullptr || ci == nullptr) return 0;
  const bool on = ci->onOff != 0;
  if (!TileUsable(*ci)) return 0;
  if (starts == nullptr) return GCalCycleLine(*run, nullptr, nullptr, ci);
  if (!on) {
    APTLENGTH piece;
    if (!ClipRun64(run->x, run->y, run->length, 0, 0, ci->width, ci->height, &piece)) return 0;
    starts[0].x = run->x;
    starts[0].y = run->y;
    return 1;
  }
  int count = 0;
  WalkRun(*run, *ci, [&](const APTLENGTH&, i64 x, i64 y) {
    starts[count].x = (LONG)x;
    starts[count].y = (LONG)y;
    ++count;
  });
  return count;
}

int ACycle::GCycleSituation(const RECT* rc, POINT* corners, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || ci == nullptr) return 0;
  if (ci->width < 1 || ci->height < 1) return 0;
  if (rc->left >= rc->right || rc->top >= rc->bottom) return 0;
  const bool on = ci->onOff != 0;
  i64 nx = 1, ny = 1;
  if (on) {
    if (!RectCounts(*rc, *ci, &nx, &ny)) return 0;
  } else if ((i64)rc->right - rc->left > INT_MAX || (i64)rc->bottom - rc->top > INT_MAX) {
    return 0;
  }
  if (corners == nullptr) return (int)(nx * ny);
  if (!on) {
    Rect64 piece;
    const Rect64 tile = {0, 0, ci->width, ci->height};
    if (!Intersect64(tile, Rect64{rc->left, rc->top, rc->right, rc->bottom}, &piece)) return 0;
    corners[0].x = rc->left;
    corners[0].y = rc->top;
    return 1;
  }
  int count = 0;
  WalkRect(*rc, *ci, nx, ny, [&](const Rect64&, const Rect64& cur) {
    corners[count].x = (LONG)cur.left;
    corners[count].y = (LONG)cur.top;
    ++count;
  });
  return count;
}

namespace {
// Pieces and their offsets always have one length; offsets may be absent.
template <class Piece, class Off>
void SizeBoth(CArray<Piece>* pieces, CArray<Off>* offsets, int n) {
  pieces->SetSize(n);
  if (offsets != nullptr) offsets->SetSize(n);
}

// Failure on allocation: both arrays emptied, the message recorded, 0.
template <class Piece, class Off>
int DropBoth(CArray<Piece>* pieces, CArray<Off>* offsets, const char* message) {
  pieces->RemoveAll();
  if (offsets != nullptr) offsets->RemoveAll();
  g_Error.SetLastError("%s", message);
  return 0;
}

// Fills the arrays from a cutter of the form cut(pieces, offsets) -> count
// that only counts when given null buffers: count, size, cut, trim.
template <class Piece, class Off, class Cut>
int CutIntoArrays(CArray<Piece>* pieces, CArray<Off>* offsets, Cut&& cut) {
  int n = cut(static_cast<Piece*>(nullptr), static_cast<Off*>(nullptr));
  if (n <= 0) {
    SizeBoth(pieces, offsets, 0);
    return 0;
  }
  SizeBoth(pieces, offsets, n);
  n = cut(pieces->GetData(), offsets != nullptr ? offsets->GetData() : nullptr);
  SizeBoth(pieces, offsets, n);
  return n;
}
}  // namespace

int ACycle::GCycleSituation(const APTLENGTH* run, CArray<APTLENGTH>* pieces, CArray<int>* offsets,
                            const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (run == nullptr || pieces == nullptr || ci == nullptr) return 0;
  try {
    if (clip == nullptr || IsTile(clip, *ci)) {
      return CutIntoArrays(pieces, offsets, [&](APTLENGTH* pc, int* off) { return GCalCycleLine(*run, pc, off, ci); });
    }
    CArray<POINT> starts;
    const int n = GCycleSituation(run, starts, clip, ci);
    SizeBoth(pieces, offsets, n);
    if (n == 0) return 0;
    const i64 cw = (i64)clip->right - clip->left, ch = (i64)clip->bottom - clip->top;
    APTLENGTH* out = pieces->GetData();
    int* offs = offsets != nullptr ? offsets->GetData() : nullptr;
    for (int i = 0; i < n; ++i) {
      const POINT& s = starts.GetData()[i];
      // Every collected start meets the clip, so the clip always succeeds.
      ClipRun64(s.x, s.y, run->length, 0, 0, cw, ch, &out[i]);
      if (offs != nullptr) offs[i] = out[i].x - s.x;
    }
    return n;
  } catch (const std::bad_alloc&) {
    return DropBoth(pieces, offsets, "GCycleSituation: out of memory for the run pieces");
  }
}

int ACycle::GCycleSituation(const POINT* p, CArray<POINT>& out, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  out.SetSize(0);
  Rect64 c;
  if (p == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  if (!Collect(p->x, p->y, c.left, c.right - 1, c.top, c.bottom - 1, c.left, c.top, *ci, out.vec(),
               "GCycleSituation"))
    return 0;
  return out.GetSize();
}

int ACycle::GCycleSituation(POINT* p, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  Rect64 c;
  if (p == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  // Counts without collecting; keeps the first copy in raster order.
  i64 count = 0;
  POINT first = {0, 0};
  bool ok = Enumerate(p->x, p->y, c.left, c.right - 1, c.top, c.bottom - 1, *ci, [&](i64 x, i64 y) {
    POINT q;
    q.x = (LONG)(x - c.left);
    q.y = (LONG)(y - c.top);
    if (count == 0 || RasterLess(q, first)) first = q;
    return ++count < INT_MAX;
  });
  if (!ok) return 0;
  if (count > 0) *p = first;
  return (int)count;
}

int ACycle::GCycleSituation(const APTLENGTH* run, CArray<POINT>& starts, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  starts.SetSize(0);
  Rect64 c;
  if (run == nullptr || ci == nullptr || run->length < 1 || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c))
    return 0;
  // A copy starting at sx meets the clip when sx lies in
  // [left - length + 1, right - 1] and its row in [top, bottom - 1].
  if (!Collect(run->x, run->y, c.left - run->length + 1, c.right - 1, c.top, c.bottom - 1, c.left, c.top, *ci,
               starts.vec(), "GCycleSituation"))
    return 0;
  return starts.GetSize();
}

int ACycle::GCycleSituation(const RECT* rc, CArray<POINT>& corners, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  corners.SetSize(0);
  Rect64 c;
  if (rc == nullptr || ci == nullptr || !TileUsable(*ci) || !ClipOrTile(clip, *ci, &c)) return 0;
  const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
  if (w < 1 || h < 1 || w > INT_MAX || h > INT_MAX) return 0;
  if (!Collect(rc->left, rc->top, c.left - w + 1, c.right - 1, c.top - h + 1, c.bottom - 1, c.left, c.top, *ci,
               corners.vec(), "GCycleSituation"))
    return 0;
  return corners.GetSize();
}

int ACycle::GCycleSituation(const RECT* rc, CArray<RECT>* pieces, CArray<POINT>* offsets, const RECT* clip,
                            const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || pieces == nullptr || ci == nullptr) return 0;
  try {
    if (clip == nullptr || IsTile(clip, *ci)) {
      return CutIntoArrays(pieces, offsets, [&](RECT* pc, POINT* off) { return GCalCycleRect(*rc, pc, off, ci); });
    }
    CArray<POINT> corners;
    const int n = GCycleSituation(rc, corners, clip, ci);
    SizeBoth(pieces, offsets, n);
    if (n == 0) return 0;
    const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
    const Rect64 local = {0, 0, (i64)clip->right - clip->left, (i64)clip->bottom - clip->top};
    for (int i = 0; i < n; ++i) {
      const POINT& s = corners.GetData()[i];
      Rect64 piece;
      Intersect64(local, Rect64{s.x, s.y, s.x + w, s.y + h}, &piece);
      pieces->GetData()[i] = ToRect(piece);
      if (offsets != nullptr) {
        offsets->GetData()[i].x = (LONG)(piece.left - s.x);
        offsets->GetData()[i].y = (LONG)(piece.top - s.y);
      }
    }
    return n;
  } catch (const std::bad_alloc&) {
    return DropBoth(pieces, offsets, "GCycleSituation: out of memory for the rectangle pieces");
  }
}

BOOL ACycle::GIsIntersectant(const RECT* rc, const RECT* clip, const CYCLEINFO* ci) {
  ASSERT(ci != nullptr);
  if (rc == nullptr || clip == nullptr || ci == nullptr || !TileUsable(*ci)) return FALSE;
  const i64 w = (i64)rc->right - rc->left, h = (i64)rc->bottom - rc->top;
  if (w < 1 || h < 1 || clip->right <= clip->left || clip->bottom <= clip->top) return FALSE;
  bool found = false;
  Enumerate(rc->left, rc->top, (i64)clip->left - w + 1, (i64)clip->right - 1, (i64)clip->top - h + 1,
            (i64)clip->bottom - 1, *ci, [&](i64, i64) {
              found = true;
              return false;
            });
  return found ? TRUE : FALSE;
}
