// amathopt.cpp - AMathOpt raster maths helpers.
#include "tqbase/amathopt.h"

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

BOOL AMathOpt::GetBorderRect(const POINT* pts, int count, RECT& rc) {
  SetRectEmpty(&rc);
  if (!pts || count < 1) return FALSE;
  rc = RECT{pts[0].x, pts[0].y, pts[0].x, pts[0].y};
  for (int i = 1; i < count; ++i) {
    if (pts[i].x < rc.left) rc.left = pts[i].x;
    if (pts[i].x > rc.right) rc.right = pts[i].x;
    if (pts[i].y < rc.top) rc.top = pts[i].y;
    if (pts[i].y > rc.bottom) rc.bottom = pts[i].y;
  }
  return TRUE;
}
