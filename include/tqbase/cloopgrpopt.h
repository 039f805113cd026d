// cloopgrpopt.h - the contour loop records: ANLOOP (the closed outlines of
// one region piece) and ANLOOPGRP (one ANLOOP per piece of a raster array).
//
// The region engine builds regions from these (CRstLines::Create and
// CRstLines::CreateRasterArray); both blocks of an ANLOOP and the loop block
// of an ANLOOPGRP come from the memory manager (memorymanage.h).
//
// Invariants:
//  - ANLOOP: nPoints == sum of pnLoopSizes[0..nLoops-1]; every loop is
//    closed (its last point repeats its first); both pointers are null
//    exactly when the counts are 0.
//  - ANLOOPGRP: hLoops names a movable block of nCount ANLOOP records,
//    locked while in use and unlocked after; the group is empty when
//    nCount < 1 or hLoops is null.
#ifndef TQBASE_CLOOPGRPOPT_H
#define TQBASE_CLOOPGRPOPT_H

#include "tqbase/tqbasexp.h"

// The closed outlines of one region piece, as integer points.
struct ANLOOP {
  int nLoops;          // number of loops
  int nPoints;         // total points of all loops
  int* pnLoopSizes;    // points of each loop, in loop order
  POINT* pPoints;      // all points, loop after loop
  RECT rcBox;          // bounding rectangle of the points
};

// One ANLOOP per piece of a raster array.
struct ANLOOPGRP {
  int nCount;          // number of ANLOOP records; empty when below 1
  HGLOBAL hLoops;      // movable block of nCount ANLOOP records
  RECT rcBox;          // the source region's box
};

#endif  // TQBASE_CLOOPGRPOPT_H
