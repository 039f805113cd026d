// crstlines_fold.h - folding runs into the base cell of a repeat cycle,
// private to the region engine (crstlines_fold.cpp).
//
// A region on a repeat stands for its copies at every lattice position
// (ACycle's tiling). A run is cut into its per-tile pieces by the tile
// walk of ACycle::GCalCycleLine: fold the start, then one tile step at a
// time, the displaced coordinate wrapped back by one tile only. Two
// shortcuts keep huge runs cheap without changing the result: once a walk
// step leaves the tile in y, no later step comes back; and the steps
// between the first pieces and the last two are full tile rows whose rows
// repeat with a period of at most the tile height, so only one period of
// them is walked.
#ifndef TQBASE_CRSTLINES_FOLD_H
#define TQBASE_CRSTLINES_FOLD_H

#include <algorithm>

#include "crstlines_core.h"
#include "tqbase/acycle.h"

namespace tqrgn {

// A cycle that is switched on and whose tile is at least one pixel wide
// and high (a smaller tile has no cell to fold into: treated as off).
bool CycleUsable(const ACycle* cycle);

// Calls fn(y, x1, x2, start) for every tile piece of the run (x, y, len),
// in tile coordinates, in walk order; start is the cell x at which the
// run's first pixel lies in that step (cell x = start + index in the run).
// compress: skip the repeating middle steps.
template <class Fn>
void WalkRun(int x, int y, long long len, const CYCLEINFO* ci, bool compress, Fn fn) {
  const long long W = ci->width, H = ci->height;
  const POINT p0 = ACycle::GCalLocalPoint(x, y, ci);
  const long long n = len / W + (len % W < 2 ? 1 : 2);
  auto piece = [&](long long px, long long py) {
    if (px >= W || px + len <= 0) return;
    fn(py, std::max(px, 0LL), std::min(px + len, W) - 1, px);
  };
  long long px = p0.x, py = p0.y;
  const long long limit = compress ? std::min(n, H + 3) : n;
  long long j = 0;
  for (; j < limit; ++j) {
    if (py < 0 || py >= H) return;
    piece(px, py);
    px -= W;
    if (ci->way == 1) {
      py -= ci->param;
      if (py < 0)
        py += H;
      else if (py >= H)
        py -= H;
    }
  }
  if (j >= n || py < 0 || py >= H) return;
  // Still inside after more than a full period: the displacement is at most
  // one tile, so each wrap is an exact reduction modulo the height.
  for (long long k = std::max(j, n - 2); k < n; ++k) {
    long long qy = p0.y;
    if (ci->way == 1) {
      // (k * param) mod H without a 128-bit product: both factors are reduced
      // first, so the product stays below 2^62 and keeps the sign of param.
      qy = (p0.y - ((k % H) * ((long long)ci->param % H)) % H) % H;
      if (qy < 0) qy += H;
    }
    piece((long long)p0.x - k * W, qy);
  }
}

// The base-cell copy of src's repeat, one piece per band, appended to out.
// May throw.
void WrapArray(const CRasterArray* src, const CYCLEINFO* ci, PieceList& out);

// The repeat of the region over rc (half-open): every pixel of rc whose
// folded position lies in the folded region, one piece per band, appended
// to out. May throw.
void RepeatOver(const CRasterArray* region, const CYCLEINFO* ci, const RECT& rc, PieceList& out);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_FOLD_H
