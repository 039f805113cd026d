// crstlines_scan.cpp - scan conversion: polygons, polygon sets and contour
// loop groups into region pieces.
//
// Every row between the least and greatest vertex y receives boundary
// items:
//  - one point per edge crossing the row strictly between its ends, at
//    x = x0 + (y - y0) * (x0 - x1) / (y0 - y1) in double, truncated toward
//    zero; it is a crossing in the edge's y direction;
//  - one item per horizontal stretch, a maximal run of consecutive outline
//    vertices on the row (a single vertex is a stretch of one); it covers
//    the least to the greatest x of its vertices. It is a crossing when the
//    outline arrives from one side of the row and leaves to the other, and
//    a turning point (no crossing) when it returns to the side it came from.
// A row's items are ordered by x (adjacent swaps below 200 items, the C
// library's qsort from 200 on), then swept: every item's own pixels are
// inside (so the outline belongs to the region), and between items the
// region is inside where the crossing count so far is odd (alternate fill)
// or non-zero (winding fill, which also fills self-overlaps). The order of
// items with equal x does not change the result, so the two sorts agree.
//
// A y-monotone outline (its y changes direction exactly twice around the
// outline) crosses every inner row exactly twice and its top and bottom
// rows each hold one stretch, so each row of it is the one run from its
// least to its greatest item under either fill rule; such outlines (every
// convex polygon among them) are converted row by row without items or
// sorting. Both paths compute crossing points with EdgeX, so they agree to
// the pixel (CRstLinesScan.MonotonePathAgreesWithItems).
//
// A polygon set filled polygon by polygon (nJoin == 0) is one sweep: each
// polygon becomes a source of rows (a rectangle a constant run, a monotone
// outline one run per row, any other its converted piece) and the merger
// unites them row by row.
//
// Relies on crstlines_core.h and the memory manager.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "crstlines_core.h"
#include "tqbase/memorymanage.h"

using namespace tqrgn;

namespace {

const char kCreateRasterOp[] = "CRstLines::CreateRaster";
const char kCreateArrayOp[] = "CRstLines::CreateRasterArray";

struct Item {
  int l;    // least x of the item
  int r;    // greatest x
  int dir;  // +1 crossing downwards, -1 upwards, 0 turning point
};

struct Poly {
  const POINT* p;
  int n;  // after trailing repeats are dropped
};

// Repeated points at the end of the outline are dropped.
int TrimmedCount(const POINT* p, int n) {
  while (n > 1 && p[n - 1].x == p[n - 2].x && p[n - 1].y == p[n - 2].y) --n;
  return n;
}

inline int TruncToInt(double v) {
  if (!(v > -2147483649.0)) return INT_MIN;
  if (!(v < 2147483648.0)) return INT_MAX;
  return (int)v;  // truncation toward zero
}

// The crossing of edge a -> b (a.y != b.y) with row y.
inline int EdgeX(const POINT& a, double slope, long long y) {
  return TruncToInt((double)a.x + (double)(y - a.y) * slope);
}
inline double Slope(const POINT& a, const POINT& b) {
  return (double)((long long)a.x - b.x) / (double)((long long)a.y - b.y);
}

// Least and greatest y of the outline.
void YRange(const Poly& pl, long long& miny, long long& maxy) {
  miny = maxy = pl.p[0].y;
  for (int i = 1; i < pl.n; ++i) {
    miny = std::min<long long>(miny, pl.p[i].y);
    maxy = std::max<long long>(maxy, pl.p[i].y);
  }
}

// True when the outline's y changes direction exactly twice around it
// (level steps not counted), or never (the outline lies on one row).
bool Monotone(const Poly& pl) {
  int first = 0, last = 0, changes = 0;
  for (int i = 0; i < pl.n; ++i) {
    const long long dy = (long long)pl.p[(i + 1) % pl.n].y - pl.p[i].y;
    if (dy == 0) continue;
    const int s = dy > 0 ? 1 : -1;
    if (first == 0) first = s;
    else if (s != last) ++changes;
    last = s;
    if (changes > 2) return false;
  }
  if (first == 0) return true;
  if (first != last) ++changes;
  return changes == 2;
}

// True when the y-monotone outline fills its whole box: every edge level
// or upright, every vertex a corner of the box, and (unless the box is one
// row or one column) upright edges on both the left and the right side.
// Without the last condition an outline that runs down and back up one
// side (an L, or a line with a spur on one row) would fill its box.
bool Rectangle(const Poly& pl, RSRUN& cols, long long miny, long long maxy) {
  int l = pl.p[0].x, r = pl.p[0].x;
  for (int i = 1; i < pl.n; ++i) {
    l = std::min(l, (int)pl.p[i].x);
    r = std::max(r, (int)pl.p[i].x);
  }
  bool leftSide = false, rightSide = false;
  for (int i = 0; i < pl.n; ++i) {
    const POINT& a = pl.p[i];
    const POINT& b = pl.p[(i + 1) % pl.n];
    if (a.x != b.x && a.y != b.y) return false;
    if ((a.x != l && a.x != r) || (a.y != miny && a.y != maxy)) return false;
    if (a.y != b.y) {
      leftSide = leftSide || a.x == l;
      rightSide = rightSide || a.x == r;
    }
  }
  if (miny != maxy && l != r && !(leftSide && rightSide)) return false;
  cols = RSRUN{l, r};
  return true;
}

// The rows of a monotone outline, top..top + rows - 1, into out[0..rows):
// each row's least and greatest item.
void MonotoneRows(const Poly& pl, long long top, long long rows, RSRUN* out) {
  for (long long k = 0; k < rows; ++k) out[k] = RSRUN{INT_MAX, INT_MIN};
  for (int i = 0; i < pl.n; ++i) {
    const POINT& a = pl.p[i];
    RSRUN& v = out[a.y - top];
    v.x1 = std::min(v.x1, (int)a.x);
    v.x2 = std::max(v.x2, (int)a.x);
    const POINT& b = pl.p[(i + 1) % pl.n];
    if (a.y == b.y) continue;
    const long long dir = b.y > a.y ? 1 : -1;
    const double slope = Slope(a, b);
    for (long long y = (long long)a.y + dir; y != b.y; y += dir) {
      const int x = EdgeX(a, slope, y);
      RSRUN& u = out[y - top];
      u.x1 = std::min(u.x1, x);
      u.x2 = std::max(u.x2, x);
    }
  }
}

// Calls fn(y, item) for every horizontal stretch of the outline.
template <class Fn>
void ForEachStretch(const Poly& poly, Fn fn) {
  const POINT* p = poly.p;
  const int n = poly.n;
  int s = -1;
  for (int i = 0; i < n; ++i)
    if (p[i].y != p[(i + n - 1) % n].y) {
      s = i;
      break;
    }
  if (s < 0) {
    // The whole outline lies on one row: its extent, no crossing.
    int l = p[0].x, r = p[0].x;
    for (int i = 1; i < n; ++i) {
      l = std::min(l, (int)p[i].x);
      r = std::max(r, (int)p[i].x);
    }
    fn(p[0].y, Item{l, r, 0});
    return;
  }
  int k = 0;
  while (k < n) {
    const int first = (s + k) % n;
    const int y = p[first].y;
    int l = p[first].x, r = p[first].x;
    int len = 1;
    while (k + len < n && p[(s + k + len) % n].y == y) {
      const int x = p[(s + k + len) % n].x;
      l = std::min(l, x);
      r = std::max(r, x);
      ++len;
    }
    const int prevY = p[(first + n - 1) % n].y;
    const int nextY = p[(s + k + len) % n].y;
    int dir = 0;
    if (prevY < y && nextY > y) dir = 1;
    else if (prevY > y && nextY < y) dir = -1;
    fn(y, Item{l, r, dir});
    k += len;
  }
}

int CompareItems(const void* a, const void* b) {
  const int la = static_cast<const Item*>(a)->l, lb = static_cast<const Item*>(b)->l;
  return (la > lb) - (la < lb);
}

// Orders a row's items by x.
void SortRow(Item* it, long long n) {
  if (n >= 200) {
    std::qsort(it, (size_t)n, sizeof(Item), CompareItems);
    return;
  }
  // Adjacent swaps, each item sinking to its place.
  for (long long i = 1; i < n; ++i) {
    const Item v = it[i];
    long long j = i;
    for (; j > 0 && it[j - 1].l > v.l; --j) it[j] = it[j - 1];
    it[j] = v;
  }
}

// The items an outline gives: at most one stretch per vertex, and the
// crossing points strictly inside its edges.
long long ItemCount(const Poly& pl) {
  long long total = CheckedCount(pl.n);
  for (int i = 0; i < pl.n; ++i) {
    const long long dy = std::llabs((long long)pl.p[(i + 1) % pl.n].y - pl.p[i].y);
    if (dy > 1) total = CheckedCount(total + dy - 1);
  }
  return total;
}

// Row ranges [lo, hi] of outlines, sorted by lo, and joined into groups
// whose ranges overlap or touch: fn(first, last, lo, hi) for each group,
// in row order. Outlines of different groups share no row and no row edge.
struct RowRange {
  long long lo, hi;
  int index;
};

template <class Fn>
void ForEachRowGroup(std::vector<RowRange>& r, Fn fn) {
  std::sort(r.begin(), r.end(), [](const RowRange& a, const RowRange& b) { return a.lo < b.lo; });
  for (size_t i = 0; i < r.size();) {
    long long hi = r[i].hi;
    size_t j = i + 1;
    while (j < r.size() && r[j].lo <= hi + 1) hi = std::max(hi, r[j++].hi);
    fn(i, j, r[i].lo, hi);
    i = j;
  }
}

// Scan-converts a group of outlines filled together by their items, rows
// miny..maxy, into w. May throw.
void ScanGroup(const Poly* polys, int nPolys, int mode, long long miny, long long maxy, RowWriter& w) {
  long long total = 0;
  for (int k = 0; k < nPolys; ++k) total = CheckedCount(total + ItemCount(polys[k]));
  const long long rows = maxy - miny + 1;
  if (rows > kMaxRows) throw TooLarge();

  Scratch itemBuf, rowBuf;
  Item* items = itemBuf.Get<Item>(total);
  uint32_t* S = rowBuf.Get<uint32_t>(rows + 2);
  std::memset(S, 0, (size_t)(rows + 2) * sizeof(uint32_t));

  // Count: interpolated points through a difference array, then stretches.
  for (int k = 0; k < nPolys; ++k) {
    const Poly& pl = polys[k];
    for (int i = 0; i < pl.n; ++i) {
      const long long y0 = pl.p[i].y, y1 = pl.p[(i + 1) % pl.n].y;
      const long long lo = std::min(y0, y1) + 1, hi = std::max(y0, y1);
      if (hi - lo < 1) continue;
      S[lo - miny] += 1;
      S[hi - miny] -= 1;
    }
  }
  uint32_t run = 0;
  for (long long r = 0; r < rows; ++r) {
    run += S[r];
    S[r] = run;
  }
  S[rows] = 0;
  for (int k = 0; k < nPolys; ++k) ForEachStretch(polys[k], [&](long long y, const Item&) { S[y - miny] += 1; });
  // Exclusive prefix: S[r] becomes the first slot of row r.
  uint32_t acc = 0;
  for (long long r = 0; r <= rows; ++r) {
    const uint32_t c = S[r];
    S[r] = acc;
    acc += c;
  }

  // Fill in outline order; afterwards S[r] is the end of row r.
  for (int k = 0; k < nPolys; ++k) {
    const Poly& pl = polys[k];
    for (int i = 0; i < pl.n; ++i) {
      const POINT& a = pl.p[i];
      const POINT& b = pl.p[(i + 1) % pl.n];
      if (a.y == b.y) continue;
      const int dir = b.y > a.y ? 1 : -1;
      const double slope = Slope(a, b);
      for (long long y = (long long)a.y + dir; y != b.y; y += dir) {
        const int x = EdgeX(a, slope, y);
        items[S[y - miny]++] = Item{x, x, dir};
      }
    }
    ForEachStretch(pl, [&](long long y, const Item& it) { items[S[y - miny]++] = it; });
  }

  const bool winding = mode == WINDING_FILL;
  for (long long r = 0; r < rows; ++r) {
    const uint32_t b = r == 0 ? 0 : S[r - 1];
    Item* it = items + b;
    const long long n = (long long)S[r] - b;
    RSRUN* o = w.Out();
    RSRUN* const row0 = o;
    SortRow(it, n);
    int count = 0;
    for (long long i = 0; i < n; ++i) {
      const Item& t = it[i];
      if (count == 0 && !(o > row0 && (long long)t.l <= (long long)o[-1].x2 + 1)) {
        *o++ = RSRUN{t.l, t.r};
      } else if (t.r > o[-1].x2) {
        o[-1].x2 = t.r;
      }
      if (t.dir) count = winding ? count + t.dir : (count ^ 1);
    }
    w.EndRow(miny + r, o);
  }
}

// Scan-converts a set of outlines filled together by their items; the
// bands are appended to out. Outlines whose rows neither overlap nor touch
// those of the others cannot meet in the fill, so each group of outlines
// with joined rows is converted on its own: the rows between groups cost
// nothing (two small polygons 2^31 rows apart are two small bands), and the
// row limit applies to the rows that hold pixels. May throw.
void ScanItems(const Poly* polys, int nPolys, int mode, PieceList& out) {
  std::vector<RowRange> ranges;
  ReserveFor(ranges, nPolys);
  long long items = 0;
  for (int k = 0; k < nPolys; ++k) {
    RowRange r{0, 0, k};
    YRange(polys[k], r.lo, r.hi);
    ranges.push_back(r);
    items = CheckedCount(items + ItemCount(polys[k]));
  }
  long long rows = 0;
  ForEachRowGroup(ranges, [&](size_t, size_t, long long lo, long long hi) {
    rows += hi - lo + 1;
    if (rows > kMaxRows) throw TooLarge();
  });
  std::vector<Poly> order;  // the outlines in the order of their ranges
  ReserveFor(order, nPolys);
  for (const RowRange& r : ranges) order.push_back(polys[r.index]);
  RowWriter w;
  w.Init(items, rows);
  ForEachRowGroup(ranges, [&](size_t first, size_t last, long long lo, long long hi) {
    ScanGroup(order.data() + first, (int)(last - first), mode, lo, hi, w);
  });
  w.Flush(out);
}

// One polygon into one piece (null when it has no rows, which cannot
// happen for n >= 1). May throw.
OwnedPiece ScanOne(const Poly& pl, int mode) {
  long long miny, maxy;
  YRange(pl, miny, maxy);
  const long long rows = maxy - miny + 1;
  if (rows > kMaxRows) throw TooLarge();
  if (pl.n == 1 || Monotone(pl)) {
    OwnedPiece p = NewPiece(rows, rows);
    RSRUN* r = p->arRun.GetData();
    MonotoneRows(pl, miny, rows, r);
    std::fill(p->arCount.begin(), p->arCount.end(), 1);
    int left = INT_MAX, right = INT_MIN;
    for (long long k = 0; k < rows; ++k) {
      left = std::min(left, r[k].x1);
      right = std::max(right, r[k].x2);
    }
    p->rcBox = RECT{left, (LONG)miny, right, (LONG)maxy};
    return p;
  }
  PieceList parts;
  ScanItems(&pl, 1, mode, parts);
  if (parts.Size() != 1) return OwnedPiece();
  OwnedPiece p(parts.Get()[0]);
  parts.Disown();
  return p;
}

// The polygons one by one, united in one sweep; bands appended to out.
void ScanSet(const std::vector<Poly>& polys, int mode, PieceList& out) {
  enum Kind { kRect, kMono, kItems };
  struct Shape {
    Kind kind;
    long long top, bottom;
    RSRUN cols;  // a rectangle's columns
  };
  std::vector<Shape> shapes;
  ReserveFor(shapes, (long long)polys.size());
  long long monoTotal = 0, maxMono = 0;
  for (const Poly& pl : polys) {
    Shape sh{kItems, 0, 0, RSRUN{0, 0}};
    YRange(pl, sh.top, sh.bottom);
    const long long rows = sh.bottom - sh.top + 1;
    if (rows > kMaxRows) throw TooLarge();
    if (pl.n == 1 || Monotone(pl)) {
      sh.kind = Rectangle(pl, sh.cols, sh.top, sh.bottom) ? kRect : kMono;
      if (sh.kind == kMono) {
        monoTotal = CheckedCount(monoTotal + rows);
        maxMono = std::max(maxMono, rows);
      }
    }
    shapes.push_back(sh);
  }
  // Monotone rows share one block, their counts one block of ones; other
  // outlines are converted into pieces of their own.
  Scratch monoBuf, onesBuf;
  RSRUN* mono = monoBuf.Get<RSRUN>(monoTotal);
  int* ones = onesBuf.Get<int>(maxMono);
  std::fill(ones, ones + maxMono, 1);
  PieceList parts;
  std::vector<RowSource> src;
  ReserveFor(src, (long long)polys.size());
  long long total = 0;
  for (size_t i = 0; i < polys.size(); ++i) {
    const Shape& sh = shapes[i];
    const long long rows = sh.bottom - sh.top + 1;
    RowSource s{Slab{ones, mono, sh.top, sh.bottom, 0, 0, nullptr}, false, sh.cols};
    if (sh.kind == kItems) {
      const int first = parts.Size();
      ScanItems(&polys[i], 1, mode, parts);
      for (int k = first; k < parts.Size(); ++k) {
        const RSRLINE* p = parts.Get()[k];
        total = CheckedCount(total + p->arRun.GetSize());
        src.push_back(RowSource{SlabOf(p), false, RSRUN{0, 0}});
      }
      continue;
    }
    if (sh.kind == kRect) {
      s.constant = true;
    } else {
      MonotoneRows(polys[i], sh.top, rows, mono);
      mono += rows;
    }
    total = CheckedCount(total + rows);
    src.push_back(s);
  }
  // The merger writes only rows that some shape covers: far-apart
  // polygons do not pay for the rows between them.
  std::vector<RowRange> ranges;
  ReserveFor(ranges, (long long)shapes.size());
  for (const Shape& sh : shapes) ranges.push_back(RowRange{sh.top, sh.bottom, 0});
  long long covered = 0;
  ForEachRowGroup(ranges, [&](size_t, size_t, long long lo, long long hi) { covered += hi - lo + 1; });
  RowWriter w;
  w.Init(total, covered);
  MergeSources(src, w);
  w.Flush(out);
}

bool CheckedPolys(const POINT* pts, const int* counts, int nPolys, std::vector<Poly>& polys) {
  if (!pts || !counts || nPolys < 1) return false;
  long long off = 0;
  ReserveFor(polys, nPolys);
  for (int k = 0; k < nPolys; ++k) {
    if (counts[k] < 1) return false;
    polys.push_back(Poly{pts + off, TrimmedCount(pts + off, counts[k])});
    off += counts[k];
  }
  return true;
}

bool FillMode(int mode) { return mode == ALTERNATE_FILL || mode == WINDING_FILL; }

}  // namespace

RSRLINE* CRstLines::CreateRaster(const POINT* pts, int n, int mode) {
  if (!FillMode(mode) || !pts || n < 1) return nullptr;
  OwnedPiece result;
  Guarded(kCreateRasterOp, [&] {
    result = ScanOne(Poly{pts, TrimmedCount(pts, n)}, mode);
    return true;
  });
  RGN_VALIDATE(!result || Invariant(result.get(), true));
  return result.release();
}

CRasterArray* CRstLines::CreateRasterArray(const POINT* pts, int n, int mode) {
  if (!FillMode(mode)) return nullptr;
  OwnedPiece p(CreateRaster(pts, n, mode));
  if (!p) return nullptr;
  OwnedArray arr;
  Guarded(kCreateArrayOp, [&] {
    OwnedArray a = NewArray();
    a->Add(p.get());
    p.release();
    arr = std::move(a);
    return true;
  });
  return arr.release();
}

CRasterArray* CRstLines::CreateRasterArray(const POINT* pts, const int* counts, int nPolys, int mode,
                                           int nJoin) {
  if (!FillMode(mode)) return nullptr;
  OwnedArray arr;
  Guarded(kCreateArrayOp, [&] {
    std::vector<Poly> polys;
    if (!CheckedPolys(pts, counts, nPolys, polys)) return false;
    PieceList pieces;
    if (nJoin || nPolys == 1)
      ScanItems(polys.data(), nPolys, mode, pieces);
    else
      ScanSet(polys, mode, pieces);
    OwnedArray a = NewArray();
    pieces.MoveTo(a.get());
    arr = std::move(a);
    return true;
  });
  RGN_VALIDATE(!arr || Invariant(arr.get(), true));
  return arr.release();
}

// The loops of all ANLOOP records filled together by the even-odd rule, as
// one outline set: outer loops and the loops of holes traced from a region
// give that region back.
CRasterArray* CRstLines::CreateRasterArray(const ANLOOPGRP* group, int mode) {
  if (!FillMode(mode) || CLoopGrpOpt::IsEmpty(group)) return nullptr;
  POINT* pts = nullptr;
  int* sizes = nullptr;
  int loops = 0;
  if (!CLoopGrpOpt::GetPolyPolygon(group, pts, sizes, loops)) return nullptr;
  CRasterArray* arr = loops > 0 ? CreateRasterArray(pts, sizes, loops, ALTERNATE_FILL, 1) : nullptr;
  AGlobalFreePtr(pts);
  AGlobalFreePtr(sizes);
  return arr;
}
