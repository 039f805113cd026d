// amathopt.cpp - AMathOpt raster maths helpers.
#include "tqbase/amathopt.h"

#include <algorithm>
#include <cstring>

BOOL AMathOpt::Init() { return TRUE; }
void AMathOpt::Exit() {}

BOOL AMathOpt::ResampleLineMap(int srcCount, int dstCount, unsigned long* map) {
  if (!map || srcCount < 1 || dstCount < 1) {
    ASSERT(map && srcCount >= 1 && dstCount >= 1);
    return FALSE;
  }
  // The same accumulation as ZoomBits's columns, so that a line resampled
  // here matches a row of a zoomed image.
  const double step = (double)srcCount / dstCount;
  double a = 0.0;
  for (int i = 0; i < dstCount; ++i, a += step) {
    unsigned long s = (unsigned long)(a + 0.5);
    map[i] = s >= (unsigned long)srcCount ? (unsigned long)srcCount - 1 : s;
  }
  return TRUE;
}

// Minima and maxima two points a step in vector registers (lanes x, y,
// x, y), folded at the end (bench_cloopgrpopt: a traced group's boxes).
BOOL AMathOpt::GetBorderRect(const POINT* pts, int count, RECT& rc) {
  SetRectEmpty(&rc);
  if (!pts || count < 1) return FALSE;
  typedef int V4 __attribute__((vector_size(16)));
  V4 lo = {pts[0].x, pts[0].y, pts[0].x, pts[0].y}, hi = lo;
  int i = 0;
  for (; i + 2 <= count; i += 2) {
    V4 v;
    std::memcpy(&v, pts + i, sizeof v);
    lo = v < lo ? v : lo;
    hi = v > hi ? v : hi;
  }
  int l = std::min(lo[0], lo[2]), t = std::min(lo[1], lo[3]);
  int r = std::max(hi[0], hi[2]), b = std::max(hi[1], hi[3]);
  for (; i < count; ++i) {
    l = std::min(l, (int)pts[i].x);
    r = std::max(r, (int)pts[i].x);
    t = std::min(t, (int)pts[i].y);
    b = std::max(b, (int)pts[i].y);
  }
  rc = RECT{l, t, r, b};
  return TRUE;
}
