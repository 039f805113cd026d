// fill_model.h - the continuous fill model that scan conversion is checked
// against by the region suite and the scan fuzz target: a pixel centre
// (x, y) is inside an outline set when the horizontal ray to its left
// crosses the outlines an odd number of times (alternate fill) or with a
// non-zero winding sum (winding fill). The model speaks only for pixels it
// can decide without the raster rules of the edges: rows through a vertex
// are not modelled, nor pixels within 1.5 of a crossing. Free of
// GoogleTest so that the fuzz targets can use it.
#ifndef TQBASE_TESTS_FILL_MODEL_H
#define TQBASE_TESTS_FILL_MODEL_H

#include <tqbase/tqbase.h>

#include <cmath>
#include <vector>

namespace tqtest {

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

#endif  // TQBASE_TESTS_FILL_MODEL_H
