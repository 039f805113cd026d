// region_model.h - the brute-force region models that the region suites
// and the region fuzz targets share, free of GoogleTest:
//  - pixel sets of pieces and arrays, the model every result is compared
//    with;
//  - the continuous fill model of scan conversion: a pixel centre (x, y) is
//    inside an outline set when the horizontal ray to its left crosses the
//    outlines an odd number of times (alternate fill) or with a non-zero
//    winding sum (winding fill). It speaks only for pixels it can decide
//    without the raster rules of the edges: rows through a vertex are not
//    modelled, nor pixels within 1.5 of a crossing;
//  - the banded structure of every result of the engine.
#ifndef TQBASE_TESTS_REGION_MODEL_H
#define TQBASE_TESTS_REGION_MODEL_H

#include <tqbase/tqbase.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace tqtest {

typedef std::set<std::pair<long long, long long>> PixelSet;  // (y, x)

inline PixelSet Pixels(const RSRLINE* p) {
  PixelSet s;
  if (!p) return s;
  const RSRUN* r = p->arRun.GetData();
  long long y = p->rcBox.top;
  for (int c : p->arCount) {
    for (int i = 0; i < c; ++i, ++r)
      for (long long x = r->x1; x <= r->x2; ++x) s.insert({y, x});
    ++y;
  }
  return s;
}

inline PixelSet Pixels(const CRasterArray* a) {
  PixelSet s;
  if (!a) return s;
  for (const RSRLINE* p : *a) {
    PixelSet t = Pixels(p);
    s.insert(t.begin(), t.end());
  }
  return s;
}

// What is wrong with the structure every result of the engine has, or null:
// well-formed pieces, each one band of non-empty rows with a tight box,
// pieces in row order with a gap between bands.
inline const char* BandedDefect(const CRasterArray* a) {
  if (!a) return nullptr;
  long long lastBottom = INT64_MIN;
  for (const RSRLINE* p : *a) {
    if (!p) return "null piece";
    if (!CRstLines::IsWellFormed(p)) return "piece not well formed";
    for (int c : p->arCount)
      if (c == 0) return "empty row inside a piece";
    long long maxX2 = INT64_MIN;
    for (const RSRUN& r : p->arRun) maxX2 = std::max<long long>(maxX2, r.x2);
    if (maxX2 != p->rcBox.right) return "box not tight";
    if (p->rcBox.top <= lastBottom) return "pieces out of row order";
    if (p->rcBox.top == lastBottom + 1) return "adjacent bands not joined";
    lastBottom = p->rcBox.bottom;
  }
  return nullptr;
}

// The crossings of the closed outline p with row y left of x, added into
// parity and wind. False when the row holds a vertex or a crossing lies
// within 1.5 of x.
inline bool ModelCrossings(const POINT* p, int n, long long x, long long y, int& parity, int& wind) {
  for (int i = 0; i < n; ++i) {
    const POINT& a = p[i];
    const POINT& b = p[(i + 1) % n];
    if (a.y == y || b.y == y) return false;  // vertex rows are not modelled
    if ((a.y < y) == (b.y < y)) continue;
    double cx = a.x + (double)(y - a.y) * (double)((long long)b.x - a.x) / (double)((long long)b.y - a.y);
    if (std::fabs(cx - (double)x) < 1.5) return false;
    if (cx < (double)x) {
      parity ^= 1;
      wind += b.y > a.y ? 1 : -1;
    }
  }
  return true;
}

// One outline: true when the model decides the pixel, with *inside set.
inline bool ModelSafe(const std::vector<POINT>& p, long long x, long long y, int mode, bool* inside) {
  int parity = 0, wind = 0;
  if (!ModelCrossings(p.data(), (int)p.size(), x, y, parity, wind)) return false;
  *inside = mode == 1 ? parity != 0 : wind != 0;
  return true;
}

// Outlines filled together (counts[k] points each, one after another).
inline bool ModelSafe(const std::vector<POINT>& pts, const std::vector<int>& counts, long long x, long long y,
                      int mode, bool* inside) {
  int parity = 0, wind = 0;
  size_t off = 0;
  for (int c : counts) {
    if (!ModelCrossings(pts.data() + off, c, x, y, parity, wind)) return false;
    off += (size_t)c;
  }
  *inside = mode == 1 ? parity != 0 : wind != 0;
  return true;
}

}  // namespace tqtest

#endif  // TQBASE_TESTS_REGION_MODEL_H
