// amathopt.h - AMathOpt: raster maths helpers shared by the codecs and the
// region engine and the loop groups (resampling maps, point-set bounds).
// All members static.
#ifndef TQBASE_AMATHOPT_H
#define TQBASE_AMATHOPT_H

#include "tqbase/tqbasexp.h"

class TQBASE_API AMathOpt {
public:
  // Prepares the maths tables; returns 1 and never stops the load.
  static BOOL Init();
  static void Exit();

  // Nearest-neighbour map from dstCount destination pixels to srcCount
  // source pixels: map[i] = trunc(a + 0.5) with a summing srcCount/dstCount
  // (in double precision) from 0.0, as ACompress::ZoomBits rounds; an index
  // past the last source pixel takes the last one. Writes dstCount entries.
  // Fails on a null map or a count below 1.
  static BOOL ResampleLineMap(int srcCount, int dstCount, unsigned long* map);

  // The bounding rectangle of count points, inclusive as the region boxes
  // are (left = least x, right = greatest x, likewise y). FALSE, and an
  // empty rectangle, for null points or a count below 1.
  static BOOL GetBorderRect(const POINT* pts, int count, RECT& rc);
};

#endif  // TQBASE_AMATHOPT_H
